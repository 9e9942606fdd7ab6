// Bounds checking of the checked build (option `checked`); in the normal build every check is empty and leaves no
// trace.
#pragma once

#include <cstdint>

#ifdef FRAGMENTS_CHECKED
#include <string>
#endif

namespace fragments {

#ifdef FRAGMENTS_CHECKED

// Leaves a kernel's body at the first index outside an array; the frame turns it into an IndexError.
struct OutOfBounds {
  std::string fault;  // "rf64[1024] outside 0..1000": the end of the range is the array's length
};

// Defined elsewhere: each of the thousands of checks that are inlined into a kernel is a comparison and a call.
[[noreturn, gnu::cold]] void leave_at(const char* name, std::int64_t index, std::int64_t count);
[[noreturn, gnu::cold]] void leave_at(const char* name, std::int64_t row, std::int64_t column, std::int64_t rows,
                                      std::int64_t columns);

struct Bounds {
  const char* name = "";
  std::int64_t count = 0;
  std::int64_t start = 0;

  static Bounds of(const char* name, std::int64_t count) { return {name, count, 0}; }
  Bounds from(std::int64_t position) const { return {name, count, start + position}; }
  void check(std::int64_t k) const
  {
    const std::int64_t index = start + k;
    if (index < 0 || index >= count) leave_at(name, index, count);
  }
  // Checks elements 0 to n-1 at once and names the first one outside.
  void check_run(std::int64_t n) const
  {
    if (n <= 0) return;
    check(0);
    if (start + n > count) check(count - start);
  }
};

struct MatrixBounds {
  const char* name = "";
  std::int64_t rows = 0;
  std::int64_t cols = 0;

  static MatrixBounds of(const char* name, std::int64_t rows, std::int64_t cols) { return {name, rows, cols}; }
  void check(std::int64_t r, std::int64_t c) const
  {
    if (r < 0 || r >= rows || c < 0 || c >= cols) leave_at(name, r, c, rows, cols);
  }
};

#else

struct Bounds {
  static constexpr Bounds of(const char*, std::int64_t) { return {}; }
  constexpr Bounds from(std::int64_t) const { return {}; }
  constexpr void check(std::int64_t) const {}
  constexpr void check_run(std::int64_t) const {}
};

struct MatrixBounds {
  static constexpr MatrixBounds of(const char*, std::int64_t, std::int64_t) { return {}; }
  constexpr void check(std::int64_t, std::int64_t) const {}
};

#endif

}  // namespace fragments
