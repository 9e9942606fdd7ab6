#include "frame/bounds.h"

#ifdef FRAGMENTS_CHECKED

namespace fragments {
namespace {

std::string range(std::int64_t count)
{
  return "0.." + std::to_string(count);
}

// "NAME[INDEX] outside RANGES", or that the array is None.
[[noreturn]] void leave(const std::string& name, const std::string& index, bool is_none, const std::string& ranges)
{
  const std::string what = is_none ? ", but " + name + " is None" : " outside " + ranges;
  throw Fault{Fault::index, name + "[" + index + "]" + what};
}

}  // namespace

void refuse_argument(const std::string& name, const std::string& want, const std::string& got)
{
  throw Fault{Fault::value, name + ": want " + want + "; got " + got};
}

void Bounds::leave_at(std::int64_t index) const
{
  const std::string array = entry < 0 ? name : std::string(name) + "[" + std::to_string(entry) + "]";
  leave(array, std::to_string(index), count < 0, range(count));
}

void Bounds::refuse_element(std::int64_t k, std::int64_t value) const
{
  refuse_argument(name, "numbers above 0", std::to_string(value) + " as element " + std::to_string(start + k));
}

void MatrixBounds::leave_at(std::int64_t r, std::int64_t c) const
{
  leave(name, std::to_string(r) + ", " + std::to_string(c), rows < 0, range(rows) + ", " + range(cols));
}

}  // namespace fragments

#endif
