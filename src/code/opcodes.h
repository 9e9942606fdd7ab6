// Coefficient code. A coefficient that depends on parameters is a short program for a stack of doubles; it is run once
// the parameters have values.
//
// A program is a run of atoms, pairs of an opcode and an operand at one index of `code` and `cconst`. The operand of an
// opcode that takes none is never read and may be anything.
#pragma once

#include <limits>

#include "frame/frame.h"

namespace fragments {

constexpr i32 push_parameter = 1;  // operand: the parameter's number
constexpr i32 push_constant = 2;   // operand: the constant
constexpr i32 add = 3;             // pops two
constexpr i32 negate = 4;
constexpr i32 multiply = 5;  // pops two
constexpr i32 invert = 6;
constexpr i32 add_several = 8;  // operand: how many to pop
// The whole code of a term whose coefficient turned out constant and now stands in `cof` alone. No operation: like all
// other opcodes it does nothing when it is run.
constexpr i32 moved_to_cof = 10;

// An operand that is a number or a count, cut to an integer; what no i32 can hold becomes the least one.
inline i32 as_integer(f64 operand)
{
  constexpr i32 least = std::numeric_limits<i32>::min();
  return operand > -2147483649.0 && operand < 2147483648.0 ? static_cast<i32>(operand) : least;
}

}  // namespace fragments
