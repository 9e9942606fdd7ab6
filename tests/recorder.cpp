// A module for tests of the frame: buffers of any description that record when they are taken and released.
//
//     recorder.Buffer(log, name, data, format, itemsize, shape, suboffset=-1, stride=itemsize)
//
// views the memory of `data`, whose length is not checked, or a null pointer if that is None. `shape` is a tuple,
// `suboffset` that of the first axis if it is 0 or above, and `stride` the bytes between elements of the last axis. The
// list `log` gets "+name" when a view is taken and "-name" when it is released.

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
  int dimensions;
  Extents shape;
  Extents strides;  // in bytes
  Extents suboffsets;
};

int initialise(PyObject* object, PyObject* arguments, PyObject*)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  PyObject *log, *name, *data, *shape;
  const char* format;
  Py_ssize_t stride = 0;
  self->suboffsets.fill(-1);
  if (!PyArg_ParseTuple(arguments, "O!UOsnO!|nn", &PyList_Type, &log, &name, &data, &format, &self->itemsize,
                        &PyTuple_Type, &shape, &self->suboffsets[0], &stride)) {
    return -1;
  }
  self->dimensions = static_cast<int>(PyTuple_GET_SIZE(shape));
  if (self->dimensions > max_dimensions) {
    PyErr_SetString(PyExc_ValueError, "more than 4 dimensions");
    return -1;
  }
  if (stride == 0) stride = self->itemsize;
  for (Py_ssize_t k = self->dimensions; k-- > 0;) {
    const auto axis = static_cast<std::size_t>(k);
    self->shape[axis] = PyLong_AsSsize_t(PyTuple_GET_ITEM(shape, k));
    self->strides[axis] = stride;
    stride *= self->shape[axis];
  }
  Py_INCREF(log);
  self->log = log;
  self->taken = PyUnicode_FromFormat("+%U", name);
  self->released = PyUnicode_FromFormat("-%U", name);
  self->format = PyBytes_FromString(format);
  if (PyErr_Occurred()) return -1;
  return data == Py_None ? 0 : PyObject_GetBuffer(data, &self->memory, PyBUF_SIMPLE);
}

void destroy(PyObject* object)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  PyBuffer_Release(&self->memory);
  for (PyObject* held : {self->log, self->taken, self->released, self->format}) Py_XDECREF(held);
  PyTypeObject* type = Py_TYPE(object);
  type->tp_free(object);
  Py_DECREF(type);
}

int take(PyObject* object, Py_buffer* view, int)
{
  auto* self = reinterpret_cast<Recorder*>(object);
  *view = {};
  if (PyList_Append(self->log, self->taken) < 0) return -1;
  view->buf = self->memory.buf;
  view->itemsize = self->itemsize;
  view->len = self->dimensions ? self->strides[0] * self->shape[0] : self->itemsize;
  view->ndim = self->dimensions;
  view->format = PyBytes_AS_STRING(self->format);
  view->shape = self->dimensions ? self->shape.data() : nullptr;
  view->strides = self->dimensions ? self->strides.data() : nullptr;
  view->suboffsets = self->suboffsets[0] >= 0 ? self->suboffsets.data() : nullptr;
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
