// The values of parameters, read and set by their numbers.
//
// - idxs (array; elements): the number of the parameter of each element

#include "frame/frame.h"

namespace fragments {

// Reads the values: res[k] = param_value[idxs[k]] for all of `idxs`.
KERNEL((101), (), read_parameters, CI32 idxs, CF64 param_value, F64 res)
{
  for (i64 k = 0; k < idxs.count; ++k) res[k] = param_value[idxs[k]];
}

// Sets the values: param_value[idxs[k]] = vals[k] for all of `idxs`; of a repeated number the last value stays.
KERNEL((102), (), set_parameters, CI32 idxs, F64 param_value, CF64 vals)
{
  for (i64 k = 0; k < idxs.count; ++k) param_value[idxs[k]] = vals[k];
}

}  // namespace fragments
