// What the checked build (option `checked`) tests; in the normal build every check is empty and leaves no trace.
#pragma once

#include <cstdint>

#ifdef FRAGMENTS_CHECKED
#include <string>
#endif

namespace fragments {

#ifdef FRAGMENTS_CHECKED

// Ends a call: the frame turns it into an exception, and puts the kernel's name before the text.
struct Fault {
  enum Kind { index, value, memory } kind;
  std::string text;
};

// Refuses an argument: "NAME: want WANT; got GOT".
[[noreturn, gnu::cold]] void refuse_argument(const std::string& name, const std::string& want, const std::string& got);

struct Bounds {
  const char* name = "";
  std::int64_t count = 0;  // below 0 for None
  std::int64_t start = 0;
  std::int64_t entry = -1;  // which one of a table of arrays, if it is one

  static Bounds of(const char* name, std::int64_t count) { return {name, count}; }
  static Bounds none(const char* name) { return {name, -1}; }
  Bounds as_entry(const char* table, std::int64_t k) const { return {table, count, start, k}; }
  Bounds from(std::int64_t position) const { return {name, count, start + position, entry}; }
  void check(std::int64_t k) const
  {
    const std::int64_t index = start + k;
    if (index < 0 || index >= count) leave_at(index);
  }
  // Checks elements 0 to n-1 at once and names the first one outside.
  void check_run(std::int64_t n) const
  {
    if (n <= 0) return;
    check(0);
    if (start + n > count) check(count - start);
  }
  // An element that has to be above 0.
  void check_positive(std::int64_t k, std::int64_t value) const
  {
    if (value <= 0) refuse_element(k, value);
  }

 private:
  // Defined elsewhere: each of the thousands of checks that are inlined into a kernel is a comparison and a call.
  [[noreturn, gnu::cold]] void leave_at(std::int64_t index) const;
  [[noreturn, gnu::cold]] void refuse_element(std::int64_t k, std::int64_t value) const;
};

struct MatrixBounds {
  const char* name = "";
  std::int64_t rows = 0;  // below 0 for None
  std::int64_t cols = 0;

  static MatrixBounds of(const char* name, std::int64_t rows, std::int64_t cols) { return {name, rows, cols}; }
  static MatrixBounds none(const char* name) { return {name, -1, -1}; }
  void check(std::int64_t r, std::int64_t c) const
  {
    if (r < 0 || r >= rows || c < 0 || c >= cols) leave_at(r, c);
  }

 private:
  [[noreturn, gnu::cold]] void leave_at(std::int64_t r, std::int64_t c) const;
};

#else

struct Bounds {
  static constexpr Bounds of(const char*, std::int64_t) { return {}; }
  static constexpr Bounds none(const char*) { return {}; }
  constexpr Bounds as_entry(const char*, std::int64_t) const { return {}; }
  constexpr Bounds from(std::int64_t) const { return {}; }
  constexpr void check(std::int64_t) const {}
  constexpr void check_run(std::int64_t) const {}
  constexpr void check_positive(std::int64_t, std::int64_t) const {}
};

struct MatrixBounds {
  static constexpr MatrixBounds of(const char*, std::int64_t, std::int64_t) { return {}; }
  static constexpr MatrixBounds none(const char*) { return {}; }
  constexpr void check(std::int64_t, std::int64_t) const {}
};

#endif

}  // namespace fragments
