// What a kernel file needs: the array types, runs, scratch memory, wrapping arithmetic, and KERNEL.
#pragma once

#include "frame/arrays.h"
#include "frame/kernel.h"
#include "frame/run.h"
#include "frame/scratch.h"
#include "frame/wrapping.h"
