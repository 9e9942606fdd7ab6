#include "frame/binding.h"

#include <cstdlib>
#include <string>
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
  static bool accepts(char format) { return format == 'i' || format == 'l'; }
  static constexpr int shift = 2;
};
template <>
struct Element<i64> {
  static bool accepts(char format) { return format == 'q' || format == 'l'; }
  static constexpr int shift = 3;
};
template <>
struct Element<f64> {
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

// Sets the ValueError "Invalid array shape or type for argument 'NAME'".
[[gnu::cold]] void refuse_array(const char* name)
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

// Whether a buffer has `dimensions` axes and elements of type T. Refuses the array by its name if not.
template <class T>
bool has_form(const Py_buffer& buffer, int dimensions, const char* name)
{
  if (buffer.ndim != dimensions || !Element<T>::accepts(buffer.format[0]) || buffer.itemsize != sizeof(T)) {
    refuse_array(name);
    return false;
  }
#ifdef FRAGMENTS_CHECKED
  if (!std::is_const_v<T> && buffer.readonly) {
    const std::string message = std::string("Read-only array for argument '") + name + "', which is written";
    PyErr_SetString(PyExc_ValueError, message.c_str());
    return false;
  }
#endif
  return true;
}

}  // namespace

template <class T>
bool bind_array(PyObject* object, const char* name, PyObject*& view, StridedArray<T>& array)
{
  array.bounds = Bounds::of(name, 0);
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
  matrix.bounds = MatrixBounds::of(name, 0, 0);
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
  table.bounds = Bounds::of(name, 0);
  if (parsed == Py_None) return true;
  view = PyMemoryView_FromObject(parsed);
  if (!view) return false;
  const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
  if (buffer.ndim != 1 || buffer.format[0] != 'O' || buffer.format[1] != '\0') {
    refuse_array(name);
    return false;
  }
  const i64 count = buffer.len / static_cast<i64>(sizeof(PyObject*));
  if (count < 1) return true;

  entry_views = static_cast<PyObject**>(std::calloc(static_cast<std::size_t>(count), sizeof(PyObject*)));
  table.entries = static_cast<CI32*>(std::calloc(static_cast<std::size_t>(count), sizeof(CI32)));
  if (!entry_views || !table.entries) return false;
  table.count = count;
  table.bounds = Bounds::of(name, count);
  for (i64 k = 0; k < count; ++k) {
    PyObject* entry = *reinterpret_cast<PyObject**>(static_cast<char*>(buffer.buf) + k * buffer.strides[0]);
    Parameter<CI32>::Bound bound;
    bound.parsed = entry ? entry : Py_None;  // a null reference stands for None in object arrays
    const bool ok = bound.bind(name);
    entry_views[k] = bound.view;  // also of an entry that is refused: its turn of release is among the entries
    table.entries[k] = bound.array;
    if (!ok) return false;
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
