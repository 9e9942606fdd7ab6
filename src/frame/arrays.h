// The arrays a kernel sees: array arguments after binding, runs inside them, and scratch memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "frame/bounds.h"

namespace fragments {

using i32 = std::int32_t;
using i64 = std::int64_t;
using f64 = double;

// A one-dimensional array argument. `None` binds as an empty one: null data, count 0.
template <class T>
struct StridedArray {
  T* data = nullptr;
  std::ptrdiff_t stride = 0;  // between elements, in elements
  i64 count = 0;
  [[no_unique_address]] Bounds bounds{};

  T& operator[](i64 k) const
  {
    bounds.check(k);
    return data[k * stride];
  }
};

// A two-dimensional array argument.
template <class T>
struct StridedMatrix {
  T* data = nullptr;
  std::ptrdiff_t rowstride = 0;  // both in elements
  std::ptrdiff_t colstride = 0;
  i64 rows = 0;
  i64 cols = 0;
  [[no_unique_address]] MatrixBounds bounds{};

  T& operator()(i64 r, i64 c) const
  {
    bounds.check(r, c);
    return data[r * rowstride + c * colstride];
  }
};

// An array of arrays: entry k is a one-dimensional array, empty where the caller passed None.
template <class T>
struct ArrayTable {
  StridedArray<T>* entries = nullptr;
  i64 count = 0;
  [[no_unique_address]] Bounds bounds{};

  const StridedArray<T>& operator[](i64 k) const
  {
    bounds.check(k);
    return entries[k];
  }
};

using I32 = StridedArray<i32>;
using I64 = StridedArray<i64>;
using F64 = StridedArray<f64>;
using I32x2 = StridedMatrix<i32>;
using F64x2 = StridedMatrix<f64>;
using I32Table = ArrayTable<i32>;

// A field of a record, or any stretch of an array, from a position on: element k of the run is element position + k of
// the array. The position is turned into a pointer once, here, so that loops over a run are plain pointer loops.
template <class T>
struct Run {
  T* data = nullptr;
  std::ptrdiff_t stride = 0;
  [[no_unique_address]] Bounds bounds{};

  Run() = default;
  // An array that is None has no run to point into: kernels form all runs of a record, also those they will not touch.
  Run(const StridedArray<T>& array, i64 position)
      : data(array.data ? array.data + position * array.stride : nullptr),
        stride(array.stride),
        bounds(array.bounds.from(position))
  {
  }

  T& operator[](i64 k) const
  {
    bounds.check(k);
    return data[k * stride];
  }

  // The run that begins at element k of this one.
  Run from(i64 k) const
  {
    Run rest = *this;
    rest.data += k * stride;
    rest.bounds = bounds.from(k);
    return rest;
  }
};

// `count` zero-filled elements that live until the end of the kernel.
template <class T>
class Scratch {
 public:
  explicit Scratch(i64 count)
      : data_(static_cast<T*>(std::calloc(static_cast<std::size_t>(count < 0 ? 0 : count), sizeof(T)))),
        bounds_(Bounds::of("scratch", count))
  {
  }
  ~Scratch() { std::free(data_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  T& operator[](i64 k) const
  {
    bounds_.check(k);
    return data_[k];
  }

 private:
  T* data_;
  [[no_unique_address]] Bounds bounds_;
};

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
