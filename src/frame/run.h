// Runs: stretches of an array.
#pragma once

#include <cstddef>
#include <type_traits>

#include "frame/arrays.h"

namespace fragments {

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

  // A run to write is one to read as well.
  operator Run<const T>() const requires(!std::is_const_v<T>)
  {
    Run<const T> run;
    run.data = data;
    run.stride = stride;
    run.bounds = bounds;
    return run;
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

}  // namespace fragments
