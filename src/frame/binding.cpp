#include "frame/binding.h"

#include <cstdlib>
#include <string_view>
#include <type_traits>

namespace fragments {
namespace {

// The element types of arrays; const elements bind alike. The first character of the buffer's format decides together
// with the item size, since `l` means 4 or 8 bytes by platform; a format with a byte-order mark is refused.
template <class T>
struct Element;
template <class T>
struct Element<const T> : Element<T> {
};
template <>
struct Element<i32> {
  static constexpr const char* name = "int32";
  static bool accepts(char format) { return format == 'i' || format == 'l'; }
  static constexpr int shift = 2;
};
template <>
struct Element<i64> {
  static constexpr const char* name = "int64";
  static bool accepts(char format) { return format == 'q' || format == 'l'; }
  static constexpr int shift = 3;
};
template <>
struct Element<f64> {
  static constexpr const char* name = "float64";
  static bool accepts(char format) { return format == 'd'; }
  static constexpr int shift = 3;
};

// Where a buffer's elements begin. Null stands for None alone, so a buffer without elements gets another address.
template <class T>
T* data_of(const Py_buffer& buffer)
{
  static f64 no_elements;
  return static_cast<T*>(buffer.buf ? buffer.buf : &no_elements);
}

#ifdef FRAGMENTS_CHECKED

std::string type_and_axes(const std::string& type, int axes)
{
  return type + (axes == 1 ? ", 1 axis" : ", " + std::to_string(axes) + " axes");
}

// The elements of a buffer in NumPy's words, or the format that says what they are.
std::string type_of(const Py_buffer& buffer)
{
  const std::string_view format = buffer.format;
  const std::string bits = std::to_string(8 * buffer.itemsize);
  if (format == "O") return "object";
  if (format == "?") return "bool";
  if (format.size() == 1 && std::string_view("bhilqn").find(format) != format.npos) return "int" + bits;
  if (format.size() == 1 && std::string_view("BHILQN").find(format) != format.npos) return "uint" + bits;
  if (format.size() == 1 && std::string_view("efd").find(format) != format.npos) return "float" + bits;
  return "format '" + std::string(format) + "'";
}

[[noreturn, gnu::cold]] void refuse_array(const char* name, const Py_buffer& buffer, const char* type, int axes)
{
  refuse_argument(name, type_and_axes(type, axes), type_and_axes(type_of(buffer), buffer.ndim));
}

// Refuses an array that is written but read-only, and elements that do not lie where a kernel looks for them: at
// multiples of their size from each other, each at an address for its type. What no element depends on is not looked
// at.
void check_memory(const Py_buffer& buffer, const char* name, std::size_t alignment, bool is_written)
{
  if (is_written && buffer.readonly) refuse_argument(name, "an array to write", "a read-only one");
  if (buffer.len == 0) return;
  for (int axis = 0; axis < buffer.ndim; ++axis) {
    if (buffer.suboffsets && buffer.suboffsets[axis] >= 0) refuse_argument(name, "one block of memory", "suboffsets");
    if (buffer.shape[axis] > 1 && buffer.strides[axis] % buffer.itemsize != 0) {
      refuse_argument(name, "strides of whole elements, " + std::to_string(buffer.itemsize) + " bytes each",
                      "a stride of " + std::to_string(buffer.strides[axis]) + " bytes");
    }
  }
  if (const auto off = reinterpret_cast<std::uintptr_t>(buffer.buf) % alignment) {
    refuse_argument(name, "an address that is a multiple of " + std::to_string(alignment),
                    "one that is " + std::to_string(off) + " past it");
  }
}

#else

// Sets the ValueError "Invalid array shape or type for argument 'NAME'".
[[gnu::cold]] void refuse_array(const char* name, const Py_buffer&, const char*, int)
{
  char message[96];
  char* end = message;
  const auto append = [&](const char* text) {
    while (*text && end < message + sizeof message - 2) *end++ = *text++;
  };
  append("Invalid array shape or type for argument '");
  append(name);
  *end++ = '\'';
  *end = '\0';
  PyErr_SetString(PyExc_ValueError, message);
}

void check_memory(const Py_buffer&, const char*, std::size_t, bool) {}

#endif

// Whether a buffer has `dimensions` axes and elements of type T. Refuses the array by its name if not.
template <class T>
bool has_form(const Py_buffer& buffer, int dimensions, const char* name)
{
  if (buffer.ndim != dimensions || !Element<T>::accepts(buffer.format[0]) || buffer.itemsize != sizeof(T)) {
    refuse_array(name, buffer, Element<T>::name, dimensions);
    return false;
  }
  check_memory(buffer, name, alignof(T), !std::is_const_v<T>);
  return true;
}

}  // namespace

template <class T>
bool bind_array(PyObject* object, const char* name, PyObject*& view, StridedArray<T>& array)
{
  array.bounds = Bounds::none(name);
  if (object == Py_None) return true;
  view = PyMemoryView_FromObject(object);
  if (!view) return false;
  const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
  if (!has_form<T>(buffer, 1, name)) return false;
  array.data = data_of<T>(buffer);
  array.stride = buffer.strides[0] >> Element<T>::shift;
  array.count = buffer.len >> Element<T>::shift;
  array.bounds = Bounds::of(name, array.count);
  return true;
}

template <class T>
bool bind_array(PyObject* object, const char* name, PyObject*& view, StridedMatrix<T>& matrix)
{
  matrix.bounds = MatrixBounds::none(name);
  if (object == Py_None) return true;
  view = PyMemoryView_FromObject(object);
  if (!view) return false;
  const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
  if (!has_form<T>(buffer, 2, name)) return false;
  matrix.data = data_of<T>(buffer);
  matrix.rowstride = buffer.strides[0] >> Element<T>::shift;
  matrix.colstride = buffer.strides[1] >> Element<T>::shift;
  matrix.rows = buffer.shape[0];
  matrix.cols = buffer.shape[1];
  matrix.bounds = MatrixBounds::of(name, matrix.rows, matrix.cols);
  return true;
}

template bool bind_array(PyObject*, const char*, PyObject*&, I32&);
template bool bind_array(PyObject*, const char*, PyObject*&, I64&);
template bool bind_array(PyObject*, const char*, PyObject*&, F64&);
template bool bind_array(PyObject*, const char*, PyObject*&, CI32&);
template bool bind_array(PyObject*, const char*, PyObject*&, CI64&);
template bool bind_array(PyObject*, const char*, PyObject*&, CF64&);
template bool bind_array(PyObject*, const char*, PyObject*&, I32x2&);
template bool bind_array(PyObject*, const char*, PyObject*&, F64x2&);
template bool bind_array(PyObject*, const char*, PyObject*&, CI32x2&);
template bool bind_array(PyObject*, const char*, PyObject*&, CF64x2&);

bool Parameter<CI32Table>::Bound::bind(const char* name)
{
  table.bounds = Bounds::none(name);
  if (parsed == Py_None) return true;
  view = PyMemoryView_FromObject(parsed);
  if (!view) return false;
  const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
  if (buffer.ndim != 1 || buffer.format[0] != 'O' || buffer.format[1] != '\0') {
    refuse_array(name, buffer, "object", 1);
    return false;
  }
  check_memory(buffer, name, alignof(PyObject*), false);
  const i64 count = buffer.len / static_cast<i64>(sizeof(PyObject*));
  table.bounds = Bounds::of(name, count);
  if (count < 1) return true;

  entry_views = static_cast<PyObject**>(std::calloc(static_cast<std::size_t>(count), sizeof(PyObject*)));
  table.entries = static_cast<CI32*>(std::calloc(static_cast<std::size_t>(count), sizeof(CI32)));
  if (!entry_views || !table.entries) return false;
  table.count = count;
  for (i64 k = 0; k < count; ++k) {
    const void* place = static_cast<char*>(buffer.buf) + k * buffer.strides[0];
    PyObject* entry = *static_cast<PyObject* const*>(place);
#ifdef FRAGMENTS_CHECKED
    const std::string indexed_name = std::string(name) + "[" + std::to_string(k) + "]";
    const char* entry_name = indexed_name.c_str();
#else
    const char* entry_name = name;
#endif
    // A null reference stands for None in object arrays. The view of an entry that is refused stays among the entries,
    // where its turn of release is.
    if (!bind_array(entry ? entry : Py_None, entry_name, entry_views[k], table.entries[k])) return false;
    table.entries[k].bounds = table.entries[k].bounds.as_entry(name, k);
  }
  return true;
}

void Parameter<CI32Table>::Bound::release()
{
  for (i64 k = 0; k < table.count; ++k) Py_XDECREF(entry_views[k]);
  std::free(entry_views);
  std::free(table.entries);
  Py_XDECREF(view);
}

}  // namespace fragments
