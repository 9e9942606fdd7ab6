#include "frame/bounds.h"

#ifdef FRAGMENTS_CHECKED

namespace fragments {

void leave_at(const char* name, std::int64_t index, std::int64_t count)
{
  throw OutOfBounds{std::string(name) + "[" + std::to_string(index) + "] outside 0.." + std::to_string(count)};
}

void leave_at(const char* name, std::int64_t row, std::int64_t column, std::int64_t rows, std::int64_t columns)
{
  throw OutOfBounds{std::string(name) + "[" + std::to_string(row) + ", " + std::to_string(column) + "] outside 0.." +
                    std::to_string(rows) + ", 0.." + std::to_string(columns)};
}

}  // namespace fragments

#endif
