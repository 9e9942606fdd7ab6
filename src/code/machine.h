// The machine that runs coefficient code.
#pragma once

#include "code/opcodes.h"
#include "frame/frame.h"
#include "stack/runs.h"

namespace fragments {

// The stack grows from slot 0 of its run; `top` is its depth. Pushing writes the slot at `top`, and no other slot is
// ever cleared or written, so that slots above the depth keep what was there. Depths are not checked.
struct Machine {
  I32 code;
  F64 cconst;
  F64 param_value;
  Run<f64> stack;
  i32 top;

  // Runs the atoms first .. end-1, at least one.
  void run(i64 first, i64 end)
  {
    i64 depth = top;
    i64 a = first;
    do {
      switch (code[a]) {
        case push_parameter:
          stack[depth++] = param_value[static_cast<i32>(cconst[a])];
          break;
        case push_constant:
          stack[depth++] = cconst[a];
          break;
        case add:
          --depth;
          stack[depth - 1] = stack[depth - 1] + stack[depth];
          break;
        case negate:
          stack[depth - 1] = -stack[depth - 1];
          break;
        case multiply:
          --depth;
          stack[depth - 1] = stack[depth - 1] * stack[depth];
          break;
        case invert:
          stack[depth - 1] = 1.0 / stack[depth - 1];
          break;
        case add_several: {
          f64 sum = 0.0;
          for (i64 n = as_integer(cconst[a]); n > 0; --n) {
            stay_scalar(n);
            sum += stack[--depth];
          }
          stack[depth++] = sum;
          break;
        }
      }
    } while (++a < end);
    top = static_cast<i32>(depth);
  }
};

}  // namespace fragments
