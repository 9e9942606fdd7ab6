// Arithmetic that wraps around.
#pragma once

#include <type_traits>

namespace fragments {

// 32-bit and 64-bit arithmetic that wraps around where the result leaves the range.
template <class T>
T wrapping_add(T a, T b)
{
  using U = std::make_unsigned_t<T>;
  return static_cast<T>(static_cast<U>(a) + static_cast<U>(b));
}
template <class T>
T wrapping_sub(T a, T b)
{
  using U = std::make_unsigned_t<T>;
  return static_cast<T>(static_cast<U>(a) - static_cast<U>(b));
}
template <class T>
T wrapping_mul(T a, T b)
{
  using U = std::make_unsigned_t<T>;
  return static_cast<T>(static_cast<U>(a) * static_cast<U>(b));
}

}  // namespace fragments
