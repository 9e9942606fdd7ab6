// Scratch memory of a kernel.
#pragma once

#include <cstddef>
#include <cstdlib>

#include "frame/arrays.h"

namespace fragments {

// There is no memory: a MemoryError in the checked build. The normal build has no way out of a kernel and ends the
// process with the interpreter's fatal error, which shows where in the host code the call stands.
[[noreturn, gnu::cold]] void leave_without_memory();

// `count` zero-filled elements that live until the end of the kernel.
template <class T>
class Scratch {
 public:
  explicit Scratch(i64 count)
      : data_(static_cast<T*>(std::calloc(static_cast<std::size_t>(count < 0 ? 0 : count), sizeof(T)))),
        bounds_(Bounds::of("scratch", count < 0 ? 0 : count))
  {
    if (!data_ && count > 0) leave_without_memory();
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

}  // namespace fragments
