// The module `fragments`: a table of 652 functions and nothing else.

#include <array>
#include <string_view>
#include <utility>

#include "frame/frame.h"

namespace fragments {

#ifdef FRAGMENTS_CHECKED
void raise(int number, const Fault& fault)
{
  PyObject* exception = fault.kind == Fault::index   ? PyExc_IndexError
                        : fault.kind == Fault::value ? PyExc_ValueError
                                                     : PyExc_MemoryError;
  const std::string message = "_c_closure_" + std::to_string(number) + ": " + fault.text;
  PyErr_SetString(exception, message.c_str());
}
#endif

namespace {

constexpr int kernel_count = 652;
constexpr char no_text[] = "";

template <int number>
struct ClosureName {
  static constexpr std::array<char, 16> text = [] {
    std::array<char, 16> name{};
    char* end = name.data();
    for (const char c : std::string_view("_c_closure_")) *end++ = c;
    int power = 1;
    while (number / power >= 10) power *= 10;
    for (; power > 0; power /= 10) *end++ = static_cast<char>('0' + number / power % 10);
    return name;
  }();
};

// Descending, closed by an all-zero entry. A kernel that isn't there is a link error.
template <int... k>
constexpr std::array<PyMethodDef, kernel_count + 1> method_table(std::integer_sequence<int, k...>)
{
  return {
      {{ClosureName<kernel_count - 1 - k>::text.data(), &closure<kernel_count - 1 - k>, METH_VARARGS, no_text}..., {}}};
}

constinit auto methods = method_table(std::make_integer_sequence<int, kernel_count>{});

constinit PyModuleDef module_definition = {
    PyModuleDef_HEAD_INIT, "fragments", no_text, -1, methods.data(), nullptr, nullptr, nullptr, nullptr,
};

}  // namespace
}  // namespace fragments

PyMODINIT_FUNC PyInit_fragments()
{
  constexpr int api_version = 1013;
  return PyModule_Create2(&fragments::module_definition, api_version);
}
