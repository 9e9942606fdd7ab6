// Binding of one argument: from the interpreter's object to what a kernel's body takes, and back to release.
//
// A kernel holds one memoryview for every array argument while it runs, and nothing else of the interpreter's.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstddef>

#include "frame/arrays.h"

namespace fragments {

// Binds an object: takes a memoryview of it, with the array's axes and elements of type T, and sets the array; None
// gives an empty one and no view. A refused array leaves its view to be released and a ValueError; the checked build
// throws a Fault, and also refuses read-only arrays of elements that are not const and elements that lie askew. Called,
// not inlined: so a call with arrays takes half the code and less time.
template <class T>
bool bind_array(PyObject* object, const char* name, PyObject*& view, StridedArray<T>& array);
template <class T>
bool bind_array(PyObject* object, const char* name, PyObject*& view, StridedMatrix<T>& matrix);

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

    bool bind(const char* name) { return bind_array(parsed, name, view, array); }
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

    bool bind(const char* name) { return bind_array(parsed, name, view, matrix); }
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
