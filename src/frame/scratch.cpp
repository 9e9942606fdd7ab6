#include "frame/scratch.h"

#define PY_SSIZE_T_CLEAN
#include <Python.h>

namespace fragments {

void leave_without_memory()
{
#ifdef FRAGMENTS_CHECKED
  throw Fault{Fault::memory, "no memory for scratch"};
#else
  Py_FatalError("no memory for the scratch of a fragments kernel");
#endif
}

}  // namespace fragments
