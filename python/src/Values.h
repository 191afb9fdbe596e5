/// \file
/// Small values of the library in Python: vectors and matrices are read-only arrays, words are
/// texts, paths are texts with a few questions, times are numbers or None.
///
/// Vectors come in as anything with so many numbers. Matrices are arrays of shape (4, 4), indexed
/// [row, column], so that `m @ p` transforms the column p; the library stores columns.
#pragma once

#include <nanobind/nanobind.h>

#include <cstddef>
#include <string>

#include "Arrays.h"
#include "ovo/Path.h"
#include "ovo/Token.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace vela::python {

/// Reads exactly `count` numbers from a sequence or an array of any layout. \return false for
/// anything else; no Python error is left behind
bool readNumbers(nb::handle source, float* to, std::size_t count) noexcept;
bool readNumbers(nb::handle source, double* to, std::size_t count) noexcept;
bool readNumbers(nb::handle source, std::int32_t* to, std::size_t count) noexcept;
/// Reads four rows of four numbers into columns.
bool readMatrix(nb::handle source, double (&columns)[16]) noexcept;

/// A read-only array of the values. \return null with a Python error set when memory is short
PyObject* smallArray(const void* values, std::size_t count, Element element) noexcept;
/// The same for a matrix that is stored by columns.
PyObject* matrixArray(const void* columns, Element element) noexcept;

/// A time of the library: None stands for the default time.
struct Time {
  double code = tarn::defaultTimeValue();
  Time() = default;
  Time(double code_) : code(code_) {}
  operator double() const { return code; }
};

/// The name of a file, from text, bytes or what os.PathLike is.
struct FileName {
  std::string text;
};

/// Text that need not be UTF-8, and back: other bytes are Python's surrogate escapes.
PyObject* makeText(const std::string& text) noexcept;
bool readText(nb::handle source, std::string& text) noexcept;
/// A vela.ovo.Path of that text.
PyObject* makePath(const std::string& text) noexcept;

/// The same for code that may throw.
nb::object textOut(const std::string& text);

}  // namespace vela::python

namespace nanobind::detail {

template <class T>
constexpr auto smallArrayName() {
  if constexpr (std::is_same_v<T, float>)
    return io_name("numpy.typing.ArrayLike", "numpy.typing.NDArray[numpy.float32]");
  else if constexpr (std::is_same_v<T, double>)
    return io_name("numpy.typing.ArrayLike", "numpy.typing.NDArray[numpy.float64]");
  else
    return io_name("numpy.typing.ArrayLike", "numpy.typing.NDArray[numpy.int32]");
}

template <class V, class T, std::size_t N>
struct small_vector_caster {
  NB_TYPE_CASTER(V, smallArrayName<T>())
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    T numbers[N] = {};
    if (!vela::python::readNumbers(source, numbers, N)) return false;
    for (std::size_t i = 0; i < N; ++i) value[i] = numbers[i];
    return true;
  }
  static handle from_cpp(const V& v, rv_policy, cleanup_list*) noexcept {
    return vela::python::smallArray(&v, N, vela::python::elementOf<T>());
  }
};

template <class T>
struct type_caster<tarn::Vec2<T>> : small_vector_caster<tarn::Vec2<T>, T, 2> {};
template <class T>
struct type_caster<tarn::Vec3<T>> : small_vector_caster<tarn::Vec3<T>, T, 3> {};
template <class T>
struct type_caster<tarn::Vec4<T>> : small_vector_caster<tarn::Vec4<T>, T, 4> {};

template <class T>
struct type_caster<tarn::Mat4<T>> {
  NB_TYPE_CASTER(tarn::Mat4<T>, smallArrayName<T>())
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    double columns[16] = {};
    if (!vela::python::readMatrix(source, columns)) return false;
    for (std::size_t i = 0; i < 16; ++i) value[i] = static_cast<T>(columns[i]);
    return true;
  }
  static handle from_cpp(const tarn::Mat4<T>& m, rv_policy, cleanup_list*) noexcept {
    return vela::python::matrixArray(m.data(), vela::python::elementOf<T>());
  }
};

template <>
struct type_caster<vela::python::Time> {
  // The signature of an argument gets its "| None" from the trait below.
  NB_TYPE_CASTER(vela::python::Time, io_name("float", "float | None"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    if (source.is_none()) {
      value = {};
      return true;
    }
    const double code = PyFloat_AsDouble(source.ptr());
    if (code == -1.0 && PyErr_Occurred()) {
      PyErr_Clear();
      return false;
    }
    value.code = code;
    return true;
  }
  static handle from_cpp(const vela::python::Time& time, rv_policy, cleanup_list*) noexcept {
    if (tarn::isDefaultTime(time.code)) return none().release();
    return PyFloat_FromDouble(time.code);
  }
};

template <>
struct has_arg_defaults<vela::python::Time> : std::true_type {};

template <>
struct type_caster<vela::python::FileName> {
  NB_TYPE_CASTER(vela::python::FileName, const_name("str | bytes | os.PathLike[typing.Any]"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    PyObject* bytes = nullptr;
    if (PyUnicode_FSConverter(source.ptr(), &bytes) == 0) {
      PyErr_Clear();
      return false;
    }
    value.text.assign(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
    Py_DECREF(bytes);
    return true;
  }
};

template <>
struct type_caster<ovo::Token> {
  NB_TYPE_CASTER(ovo::Token, const_name("str"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    std::string text;
    if (!vela::python::readText(source, text)) return false;
    value = ovo::Token(text);
    return true;
  }
  static handle from_cpp(const ovo::Token& token, rv_policy, cleanup_list*) noexcept {
    return vela::python::makeText(token.asString());
  }
};

template <>
struct type_caster<ovo::Path> {
  NB_TYPE_CASTER(ovo::Path, io_name("str", "vela._path.Path"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    std::string text;
    if (!vela::python::readText(source, text)) return false;
    value = ovo::Path(text);
    return true;
  }
  static handle from_cpp(const ovo::Path& path, rv_policy, cleanup_list*) noexcept {
    return vela::python::makePath(path.asString());
  }
};

}  // namespace nanobind::detail
