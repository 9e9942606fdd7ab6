#include "frame/binding.h"

#include <cstdlib>
#include <string>
#include <type_traits>

namespace fragments {

void refuse_array(const char* name)
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

template <class T>
bool has_form(PyObject* view, int dimensions, const char* name)
{
  const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
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

template bool has_form<i32>(PyObject*, int, const char*);
template bool has_form<i64>(PyObject*, int, const char*);
template bool has_form<f64>(PyObject*, int, const char*);
template bool has_form<const i32>(PyObject*, int, const char*);
template bool has_form<const i64>(PyObject*, int, const char*);
template bool has_form<const f64>(PyObject*, int, const char*);

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
