// KERNEL: one plain C++ function whose signature is everything that a kernel's caller has to know.
//
//     // Zeroes n slots from top on.
//     KERNEL((333, 373, 378), (), zero_slots, i32 top, F64 rf64, i32 n)
//     {
//       for (i32 i = 0; i < n; ++i) rf64[top + i] = 0.0;
//     }
//
// The numbers, 32 at the most, are the module functions _c_closure_N that run this body; the second list is the result:
// () for None, `(i32 count)` for a plain value, several for a tuple in that order (the body returns `{a, b}`). A result
// that is a parameter carried on has the parameter's name. The parameters' types give the format string, their names
// stand in the error messages. A name that C++ or this header has taken is written with the ending `_arg`, which the
// messages leave out: `I32 i32_arg` is called 'i32'.
//
//     scalars   i32  i64  f64  bool (the truth of any object)
//     arrays    I32  I64  F64, two-dimensional I32x2  F64x2
//     to read   CI32  CI64  CF64, CI32x2  CF64x2, array of arrays CI32Table
//
// A call parses its arguments, binds every array in order, runs the body, releases all views in reverse order of
// binding, and builds the result. The body is compiled twice into that call: with every stride a literal 1 for
// arguments that are all contiguous, so that its loops are pointer loops, and with the strides as they are.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

#include "frame/binding.h"

namespace fragments {

// The module function _c_closure_N; KERNEL defines one specialisation for each of its numbers. Hidden in its
// declaration too, so that a number without a kernel is an error when the module is linked, and not when it is
// imported.
template <int N>
[[gnu::visibility("hidden")]] PyObject* closure(PyObject* module, PyObject* arguments);

// The return type of a body: void, a value, or a tuple, from the result list written as a function's parameters.
template <class Results>
struct ResultOf;
template <>
struct ResultOf<void()> {
  using type = void;
};
template <class T>
struct ResultOf<void(T)> {
  using type = T;
};
template <class T, class... Rest>
struct ResultOf<void(T, Rest...)> {
  using type = std::tuple<T, Rest...>;
};

inline PyObject* to_object(i32 value)
{
  return PyLong_FromLong(value);
}
inline PyObject* to_object(i64 value)
{
  return PyLong_FromLongLong(value);
}
inline PyObject* to_object(bool value)
{
  return PyBool_FromLong(value);
}
template <class... T>
PyObject* to_object(const std::tuple<T...>& values)
{
  PyObject* result = PyTuple_New(sizeof...(T));
  if (!result) return nullptr;
  std::apply(
      [&](T... value) {
        Py_ssize_t place = 0;
        (PyTuple_SET_ITEM(result, place++, to_object(value)), ...);
      },
      values);
  return result;
}

using ParameterName = std::array<char, 32>;

// The names in a parameter list as it stands in the source: the last word before each comma.
template <std::size_t n>
consteval std::array<ParameterName, n> names_in(std::string_view parameters)
{
  std::array<ParameterName, n> names{};
  for (ParameterName& name : names) {
    const std::string_view parameter = parameters.substr(0, parameters.find(','));
    parameters.remove_prefix(parameter.size() < parameters.size() ? parameter.size() + 1 : parameter.size());
    std::string_view word = parameter.substr(parameter.rfind(' ') + 1);
    if (word.ends_with("_arg")) word.remove_suffix(4);
    for (std::size_t k = 0; k < word.size(); ++k) name[k] = word[k];
  }
  return names;
}

// How many words a list has that stands in the source.
consteval std::size_t word_count(std::string_view list)
{
  return static_cast<std::size_t>(std::count(list.begin(), list.end(), ',')) + 1;
}

#ifdef FRAGMENTS_CHECKED
// Sets the exception for a fault of kernel `number`.
[[gnu::cold]] void raise(int number, const Fault& fault);
#endif

template <auto body>
struct Frame;

template <class Result, class... P, Result (*body)(P...)>
struct Frame<body> {
  static constexpr std::size_t parameter_count = sizeof...(P);
  static constexpr std::array<char, sizeof...(P) + 1> format{Parameter<P>::letter..., '\0'};

  template <const auto& names>
  [[gnu::flatten, gnu::hot]] static PyObject* call([[maybe_unused]] int number, PyObject* arguments)
  {
    return call<names>(number, arguments, std::index_sequence_for<P...>{});
  }

 private:
  template <const auto& names, std::size_t... k>
  static PyObject* call([[maybe_unused]] int number, PyObject* arguments, std::index_sequence<k...>)
  {
    std::tuple<typename Parameter<P>::Bound...> bound;
    if (!PyArg_ParseTuple(arguments, format.data(), &std::get<k>(bound).parsed...)) return nullptr;

    const auto release = [&] { (std::get<sizeof...(P) - 1 - k>(bound).release(), ...); };
    const auto run = [&]() -> Result {
#ifndef FRAGMENTS_CHECKED
      if ((std::get<k>(bound).has_unit_stride() && ...)) return body(std::get<k>(bound).as_unit()...);
#endif
      return body(std::get<k>(bound).as_given()...);
    };
#ifdef FRAGMENTS_CHECKED
    try {
#endif
      if (!(std::get<k>(bound).bind(names[k].data()) && ...)) {
        release();
        return nullptr;
      }
      if constexpr (std::is_void_v<Result>) {
        run();
        release();
        Py_RETURN_NONE;
      } else {
        const Result result = run();
        release();
        return to_object(result);
      }
#ifdef FRAGMENTS_CHECKED
    } catch (const Fault& fault) {
      release();
      raise(number, fault);
      return nullptr;
    }
#endif
  }
};

#define FRAGMENTS_NUMBERS(...) __VA_ARGS__
#define FRAGMENTS_PARENTHESES ()
#define FRAGMENTS_EXPAND(...) FRAGMENTS_EXPAND1(FRAGMENTS_EXPAND1(FRAGMENTS_EXPAND1(__VA_ARGS__)))
#define FRAGMENTS_EXPAND1(...) FRAGMENTS_EXPAND2(FRAGMENTS_EXPAND2(FRAGMENTS_EXPAND2(__VA_ARGS__)))
#define FRAGMENTS_EXPAND2(...) FRAGMENTS_EXPAND3(FRAGMENTS_EXPAND3(__VA_ARGS__))
#define FRAGMENTS_EXPAND3(...) __VA_ARGS__
// One closure for every number, each handing its own number on.
#define FRAGMENTS_CLOSURES(name, number, ...)                \
  template <>                                                \
  PyObject* closure<number>(PyObject*, PyObject * arguments) \
  {                                                          \
    return name##_frame::call(number, arguments);            \
  }                                                          \
  __VA_OPT__(FRAGMENTS_CLOSURES_AGAIN FRAGMENTS_PARENTHESES(name, __VA_ARGS__))
#define FRAGMENTS_CLOSURES_AGAIN() FRAGMENTS_CLOSURES
#define FRAGMENTS_CLOSURES_OF(...) FRAGMENTS_CLOSURES(__VA_ARGS__)

#define KERNEL(numbers, results, name, ...)                                              \
  static_assert(word_count(#numbers) <= 32, "KERNEL takes 32 numbers at the most");      \
  [[gnu::always_inline]] static inline ResultOf<void results>::type name(__VA_ARGS__);   \
  namespace name##_frame                                                                 \
  {                                                                                      \
    static constexpr auto names = names_in<Frame<&name>::parameter_count>(#__VA_ARGS__); \
    static PyObject* call(int number, PyObject* arguments)                               \
    {                                                                                    \
      return Frame<&name>::call<names>(number, arguments);                               \
    }                                                                                    \
  }                                                                                      \
  FRAGMENTS_EXPAND(FRAGMENTS_CLOSURES_OF(name, FRAGMENTS_NUMBERS numbers))               \
  static inline ResultOf<void results>::type name(__VA_ARGS__)

}  // namespace fragments
