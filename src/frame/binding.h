// Binding of one argument: from the interpreter's object to what a kernel's body takes, and back to release.
//
// A kernel holds one memoryview for every array argument while it runs, and nothing else of the interpreter's.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstddef>

#include "frame/arrays.h"

namespace fragments {

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

// Sets the ValueError "Invalid array shape or type for argument 'NAME'".
[[gnu::cold]] void refuse_array(const char* name);

// Whether a memoryview has `dimensions` axes and elements of type T. Refuses the array by its name if not. In the
// checked build, one of elements that are not const has to be writable too.
template <class T>
bool has_form(PyObject* view, int dimensions, const char* name);

// Where a buffer's elements begin. Null stands for None alone, so a buffer without elements gets another address.
inline void* data_of(const Py_buffer& buffer)
{
  static f64 no_elements;
  return buffer.buf ? buffer.buf : &no_elements;
}

// A parameter of a body: its letter in the format string, and how an argument for it is bound. A Bound begins with what
// the parser stores into `parsed`; bind() turns that into what the body takes, release() gives it back, also after a
// bind() that failed. Scalars bind as themselves.
template <class T, char format_letter, class Stored>
struct ScalarParameter {
  static constexpr char letter = format_letter;
  struct Bound {
    Stored parsed;

    Bound() {}
    bool bind(const char*) { return true; }
    void release() {}
    bool has_unit_stride() const { return true; }
    T as_given() const { return static_cast<T>(parsed); }
    T as_unit() const { return as_given(); }
  };
};

template <class T>
struct Parameter;
template <>
struct Parameter<i32> : ScalarParameter<i32, 'i', int> {
};
template <>
struct Parameter<i64> : ScalarParameter<i64, 'L', long long> {
};
template <>
struct Parameter<f64> : ScalarParameter<f64, 'd', double> {
};
template <>
struct Parameter<bool> : ScalarParameter<bool, 'p', int> {
};

template <class T>
struct Parameter<StridedArray<T>> {
  static constexpr char letter = 'O';
  struct Bound {
    PyObject* parsed;
    PyObject* view = nullptr;  // stays null for None
    StridedArray<T> array;

    Bound() {}

    bool bind(const char* name)
    {
      if (parsed == Py_None) {
        array.bounds = Bounds::of(name, 0);
        return true;
      }
      view = PyMemoryView_FromObject(parsed);
      if (!view || !has_form<T>(view, 1, name)) return false;
      const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
      array.data = static_cast<T*>(data_of(buffer));
      array.stride = buffer.strides[0] >> Element<T>::shift;
      array.count = buffer.len >> Element<T>::shift;
      array.bounds = Bounds::of(name, array.count);
      return true;
    }
    void release() { Py_XDECREF(view); }
    bool has_unit_stride() const { return array.stride == 1 || !array.data; }
    StridedArray<T> as_given() const { return array; }
    StridedArray<T> as_unit() const
    {
      StridedArray<T> unit = array;
      unit.stride = 1;
      return unit;
    }
  };
};

template <class T>
struct Parameter<StridedMatrix<T>> {
  static constexpr char letter = 'O';
  struct Bound {
    PyObject* parsed;
    PyObject* view = nullptr;
    StridedMatrix<T> matrix;

    Bound() {}

    bool bind(const char* name)
    {
      if (parsed == Py_None) {
        matrix.bounds = MatrixBounds::of(name, 0, 0);
        return true;
      }
      view = PyMemoryView_FromObject(parsed);
      if (!view || !has_form<T>(view, 2, name)) return false;
      const Py_buffer& buffer = *PyMemoryView_GET_BUFFER(view);
      matrix.data = static_cast<T*>(data_of(buffer));
      matrix.rowstride = buffer.strides[0] >> Element<T>::shift;
      matrix.colstride = buffer.strides[1] >> Element<T>::shift;
      matrix.rows = buffer.shape[0];
      matrix.cols = buffer.shape[1];
      matrix.bounds = MatrixBounds::of(name, matrix.rows, matrix.cols);
      return true;
    }
    void release() { Py_XDECREF(view); }
    bool has_unit_stride() const { return matrix.colstride == 1 || !matrix.data; }
    StridedMatrix<T> as_given() const { return matrix; }
    StridedMatrix<T> as_unit() const
    {
      StridedMatrix<T> unit = matrix;
      unit.colstride = 1;
      return unit;
    }
  };
};

// A one-dimensional buffer of object references, each None or a one-dimensional i32 array to read. All its arrays are
// bound before the body runs; an entry that can't be bound fails under the table's own name.
template <>
struct Parameter<CI32Table> {
  static constexpr char letter = 'O';
  struct Bound {
    PyObject* parsed;
    PyObject* view = nullptr;
    PyObject** entry_views = nullptr;
    CI32Table table;

    bool bind(const char* name);
    void release();  // the entries' views first, in ascending order, then the table's own
    bool has_unit_stride() const { return true; }
    CI32Table as_given() const { return table; }
    CI32Table as_unit() const { return table; }
  };
};

}  // namespace fragments
