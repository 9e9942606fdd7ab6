// The machine that runs coefficient code.
#pragma once

#include "code/opcodes.h"
#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {

// The stack grows from slot 0 of its run. Pushing writes the slot at the depth, and no other slot is ever cleared or
// written, so that slots above the depth keep what was there. Depths are not checked.
struct Machine {
  Run<const i32> opcode{};   // of the next atom
  Run<const f64> operand{};  // of the next atom
  CF64 param_value{};
  Run<f64> stack{};

  // Runs programs as long as they are (2, c), (1, p), (5), from depth 0 on: program t has sizes[t] atoms, t = begin to
  // end - 1, and result(t, value) takes what it leaves. Returns the first t that is another, or end. A term takes 0.85
  // of its time in `run`, since the stack is written only behind the last.
  template <class Result>
  i64 run_multiples(CI32 sizes, i64 begin, i64 end, Result result)
  {
    f64 value = 0.0, parameter = 0.0;
    i64 t = begin;
    for (; t < end && sizes[t] == 3 && is_multiple(); ++t) {
      parameter = param_value[static_cast<i32>(operand[1])];
      value = operand[0] * parameter;
      skip(3);
      result(t, value);
    }
    if (t > begin) {
      stack[0] = value;
      stack[1] = parameter;
    }
    return t;
  }

  // Runs the next n atoms, n above 0, from a depth on.
  //
  // The most frequent programs have roads of their own: a constant, and a constant times a parameter, (2, c), (1, p),
  // (5), which takes 0.6 of its time in the loop below. They are told apart in an order in which every test says most.
  void run(i32 n, i64 depth)
  {
    if (opcode[0] == push_constant) {
      if (n == 1) {
        stack[depth] = operand[0];
        skip(1);
        return;
      }
      if (n == 3 && is_multiple()) [[likely]] {
        const f64 value = param_value[static_cast<i32>(operand[1])];
        stack[depth] = operand[0] * value;
        stack[depth + 1] = value;
        skip(3);
        return;
      }
    }
    run_any(n, depth);
  }

 private:
  // Whether the next atoms are a constant times a parameter.
  bool is_multiple() const
  {
    return opcode[0] == push_constant && opcode[1] == push_parameter && opcode[2] == multiply;
  }

  void skip(i64 atoms)
  {
    opcode = opcode.from(atoms);
    operand = operand.from(atoms);
  }

  // Programs are pushes for the most part, then products and sums of two: tests in this order are up to 1.6 times as
  // fast as a jump through a table for every atom.
  void run_any(i32 n, i64 depth)
  {
    const auto advance = [&] {
      skip(1);
      return --n > 0;
    };
    for (;;) {
      while (opcode[0] == push_constant) {
        stack[depth++] = operand[0];
        if (!advance()) return;
      }
      while (opcode[0] == push_parameter) {
        stack[depth++] = param_value[static_cast<i32>(operand[0])];
        if (!advance()) return;
      }
      if (opcode[0] == push_constant) continue;
      if (opcode[0] == multiply) [[likely]] {
        --depth;
        stack[depth - 1] = stack[depth - 1] * stack[depth];
      } else if (opcode[0] == add) [[likely]] {
        --depth;
        stack[depth - 1] = stack[depth - 1] + stack[depth];
      } else {
        depth = run_other(depth);
      }
      if (!advance()) return;
    }
  }

  // Runs an atom of another opcode and returns the new depth.
  i64 run_other(i64 depth) const
  {
    switch (opcode[0]) {
      case negate:
        stack[depth - 1] = -stack[depth - 1];
        break;
      case invert:
        stack[depth - 1] = 1.0 / stack[depth - 1];
        break;
      case add_several: {
        f64 sum = 0.0;
        for (i64 n = as_integer(operand[0]); n > 0; --n) {
          stay_scalar(n);
          sum += stack[--depth];
        }
        stack[depth++] = sum;
        break;
      }
    }
    return depth;
  }
};

}  // namespace fragments
