// Division by a number that stays the same for a whole loop, as a multiplication with its reciprocal: half the time of
// a division instruction. What is divided is a flat position, from 0 on.
#pragma once

#include <cstdint>

#include "frame/frame.h"

namespace fragments {

// A positive divisor of numbers from 0 on. It may be 0 as long as nothing is divided: extents and strides come in
// before it is known whether there is anything to divide.
class Divisor {
 public:
  explicit Divisor(i64 value) : value_(static_cast<u64>(value)), reciprocal_(value ? ~u64{0} / value_ : 0) {}

  struct Result {
    i64 quotient, remainder;
  };
  Result divide(i64 n) const
  {
    const u64 number = static_cast<u64>(n);
    // Exact as long as (n + 1) * value stays within 2^64: for nearly all that ever comes.
    if (number < reciprocal_) [[likely]] {
      const u64 quotient = high(number + 1);
      return {static_cast<i64>(quotient), static_cast<i64>(number - quotient * value_)};
    }
    // The reciprocal falls short of 2^64 / value by at most 1, so that the product comes out exact or one too small for
    // every number below 2^63.
    const u64 quotient = high(number);
    const u64 remainder = number - quotient * value_;
    const u64 is_small = remainder >= value_;
    return {static_cast<i64>(quotient + is_small), static_cast<i64>(remainder - (value_ & -is_small))};
  }
  i64 quotient(i64 n) const { return divide(n).quotient; }
  i64 remainder(i64 n) const { return divide(n).remainder; }
  i64 value() const { return static_cast<i64>(value_); }

 private:
  using u64 = std::uint64_t;
  __extension__ using u128 = unsigned __int128;

  // The high half of the product with the reciprocal.
  u64 high(u64 number) const { return static_cast<u64>((static_cast<u128>(reciprocal_) * number) >> 64); }

  u64 value_;
  u64 reciprocal_;
};

// The coordinate of a flat position along one axis. The innermost axis needs no quotient and the outermost, if it is
// said to be it, no remainder of what lies in the shape: half the time.
struct Coordinate {
  Divisor stride{1}, extent{1};
  bool is_outermost = false;

  i64 operator()(i64 flat) const
  {
    const i64 steps = stride.value() == 1 ? flat : stride.quotient(flat);
    if (is_outermost && steps < extent.value()) return steps;
    return extent.remainder(steps);
  }
};

}  // namespace fragments
