// The array arguments that a kernel sees after binding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/bounds.h"

namespace fragments {

using i32 = std::int32_t;
using i64 = std::int64_t;
using f64 = double;

// A one-dimensional array argument. `None` binds as an empty one: null data, count 0. An array of const elements is
// only read; every array can be handed on as one.
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
  operator StridedArray<const T>() const requires(!std::is_const_v<T>) { return {data, stride, count, bounds}; }
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
  operator StridedMatrix<const T>() const requires(!std::is_const_v<T>)
  {
    return {data, rowstride, colstride, rows, cols, bounds};
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

// What a kernel may write.
using I32 = StridedArray<i32>;
using I64 = StridedArray<i64>;
using F64 = StridedArray<f64>;
using I32x2 = StridedMatrix<i32>;
using F64x2 = StridedMatrix<f64>;

// What it only reads.
using CI32 = StridedArray<const i32>;
using CI64 = StridedArray<const i64>;
using CF64 = StridedArray<const f64>;
using CI32x2 = StridedMatrix<const i32>;
using CF64x2 = StridedMatrix<const f64>;
using CI32Table = ArrayTable<const i32>;

}  // namespace fragments
