// A module for tests of the frame: buffers of any description that record when they are taken and released.
//
//     recorder.Buffer(log, name, data, format, itemsize, shape, strides=None, offset=0, readonly=False)
//
// views the memory of `data`, whose length is not checked, or a null pointer if that is None. `shape` and `strides` (in
// bytes, of a contiguous array unless given) are tuples of the same length. The list `log` gets "+name" when a view is
// taken and "-name" when it is released.

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <array>

namespace {

constexpr int max_dimensions = 4;
using Extents = std::array<Py_ssize_t, max_dimensions>;

struct Recorder {
  PyObject_HEAD PyObject* log;
  PyObject* taken;
  PyObject* released;
  PyObject* format;  // bytes
  Py_buffer memory;
  Py_ssize_t itemsize;
  Py_ssize_t offset;
  int readonly;
  int dimensions;
  Extents shape;
  Extents strides;
};

bool read_extents(PyObject* tuple, Extents& extents)
{
  if (!PyTuple_Check(tuple) || PyTuple_GET_SIZE(tuple) > max_dimensions) {
    PyErr_SetString(PyExc_TypeError, "shape and strides are tuples of at most 4 integers");
    return false;
  }
  for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(tuple); ++k) {
    extents[static_cast<std::size_t>(k)] = PyLong_AsSsize_t(PyTuple_GET_ITEM(tuple, k));
  }
  return !PyErr_Occurred();
}

int initialise(PyObject* object, PyObject* arguments, PyObject* keywords)
{
  const char* const names[] = {"log",   "name",    "data",   "format",   "itemsize",
                               "shape", "strides", "offset", "readonly", nullptr};
  auto* self = reinterpret_cast<Recorder*>(object);
  PyObject *log, *name, *data, *shape, *strides = Py_None;
  const char* format;
  if (!PyArg_ParseTupleAndKeywords(arguments, keywords, "O!UOsnO|Onp", const_cast<char**>(names), &PyList_Type, &log,
                                   &name, &data, &format, &self->itemsize, &shape, &strides, &self->offset,
                                   &self->readonly)) {
    return -1;
  }
  if (!read_extents(shape, self->shape)) return -1;
  self->dimensions = static_cast<int>(PyTuple_GET_SIZE(shape));
  if (strides != Py_None) {
    if (!read_extents(strides, self->strides)) return -1;
  } else {
    Py_ssize_t stride = self->itemsize;
    for (auto k = static_cast<std::size_t>(self->dimensions); k-- > 0; stride *= self->shape[k]) {
      self->strides[k] = stride;
    }
  }
  Py_INCREF(log);
  self->log = log;
  self->taken = PyUnicode_FromFormat("+%U", name);
  self->released = PyUnicode_FromFormat("-%U", name);
  self->format = PyBytes_FromString(format);
  if (!self->taken || !self->released || !self->format) return -1;
  return data == Py_None ? 0 : PyObject_GetBuffer(data, &self->memory, PyBUF_SIMPLE);
}

void destroy(PyObject* object)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  PyBuffer_Release(&self->memory);
  Py_XDECREF(self->log);
  Py_XDECREF(self->taken);
  Py_XDECREF(self->released);
  Py_XDECREF(self->format);
  PyTypeObject* type = Py_TYPE(object);
  type->tp_free(object);
  Py_DECREF(type);
}

int take(PyObject* object, Py_buffer* view, int)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  view->obj = nullptr;
  if (PyList_Append(self->log, self->taken) < 0) return -1;
  view->buf = static_cast<char*>(self->memory.buf) + self->offset;
  view->itemsize = self->itemsize;
  view->len = self->itemsize;
  for (int k = 0; k < self->dimensions; ++k) view->len *= self->shape[static_cast<std::size_t>(k)];
  view->readonly = self->readonly;
  view->ndim = self->dimensions;
  view->format = PyBytes_AS_STRING(self->format);
  view->shape = self->dimensions ? self->shape.data() : nullptr;
  view->strides = self->dimensions ? self->strides.data() : nullptr;
  view->suboffsets = nullptr;
  view->internal = nullptr;
  Py_INCREF(object);
  view->obj = object;
  return 0;
}

void release(PyObject* object, Py_buffer*)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  if (PyList_Append(self->log, self->released) < 0) PyErr_WriteUnraisable(object);
}

PyType_Slot slots[] = {
    {Py_tp_init, reinterpret_cast<void*>(initialise)},       {Py_tp_dealloc, reinterpret_cast<void*>(destroy)},
    {Py_bf_getbuffer, reinterpret_cast<void*>(take)},        {Py_bf_releasebuffer, reinterpret_cast<void*>(release)},
    {Py_tp_new, reinterpret_cast<void*>(PyType_GenericNew)}, {0, nullptr},
};

PyType_Spec type = {"recorder.Buffer", sizeof(Recorder), 0, Py_TPFLAGS_DEFAULT, slots};

PyModuleDef module_definition = {
    PyModuleDef_HEAD_INIT, "recorder", nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr,
};

}  // namespace

PyMODINIT_FUNC PyInit_recorder()
{
  PyObject* module = PyModule_Create(&module_definition);
  PyObject* buffer = PyType_FromSpec(&type);
  if (module && buffer && PyModule_AddObject(module, "Buffer", buffer) == 0) return module;
  Py_XDECREF(buffer);
  Py_XDECREF(module);
  return nullptr;
}
