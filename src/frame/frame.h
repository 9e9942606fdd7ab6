// What a kernel file needs: the array types, runs, scratch memory, wrapping arithmetic, and KERNEL.
#pragma once

#include "frame/arrays.h"
#include "frame/kernel.h"
