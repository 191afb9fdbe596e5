/// \file
/// Arrays between Python and the library.
///
/// Holds for the whole module. Into the library: a C-contiguous array of the very element type,
/// from NumPy, from anything with the buffer protocol or, by DLPack, from other libraries, is read
/// where it is. An array of another numeric type, byte order or layout is converted once, and a
/// ConversionWarning names the argument. Lists and other sequences are converted in silence. What
/// has the wrong shape is a ValueError, what holds no numbers a TypeError; both say what was
/// expected and what was found.
///
/// Out of the library: views of what the library keeps are read-only and keep their owner alive;
/// results of calls are new arrays that belong to the caller.
#pragma once

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
// All of them in every file: one that lacks a conversion would compile another one under its name.
#include <nanobind/stl/array.h>
#include <nanobind/stl/function.h>
#include <nanobind/stl/map.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/set.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/unordered_set.h>
#include <nanobind/stl/vector.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include "ovo/Array.h"
#include "tarn/Span.h"
#include "tarn/Vec.h"

namespace nb = nanobind;

namespace vela::python {

/// The element types that cross the border.
enum class Element { float32, float64, int32, int64, uint32, uint8, boolean };

template <class T>
constexpr Element elementOf() {
  using U = std::remove_cv_t<T>;
  if constexpr (std::is_same_v<U, float>)
    return Element::float32;
  else if constexpr (std::is_same_v<U, double>)
    return Element::float64;
  else if constexpr (std::is_same_v<U, std::int32_t>)
    return Element::int32;
  else if constexpr (std::is_same_v<U, std::int64_t>)
    return Element::int64;
  else if constexpr (std::is_same_v<U, std::uint32_t>)
    return Element::uint32;
  else if constexpr (std::is_same_v<U, std::uint8_t>)
    return Element::uint8;
  else {
    static_assert(std::is_same_v<U, bool>);
    return Element::boolean;
  }
}

/// How values of the library lie in arrays: `Row<tarn::Vec3f>` are three floats a row.
template <class T>
struct Row {
  using Scalar = T;
  static constexpr int columns = 0;  // one-dimensional
};
template <class T>
struct Row<tarn::Vec2<T>> {
  using Scalar = T;
  static constexpr int columns = 2;
};
template <class T>
struct Row<tarn::Vec3<T>> {
  using Scalar = T;
  static constexpr int columns = 3;
};
template <class T>
struct Row<tarn::Vec4<T>> {
  using Scalar = T;
  static constexpr int columns = 4;
};

/// The numbers of one array that came in, and what keeps them there. Belongs to a thread that holds
/// the interpreter; the numbers may be read without it.
class HeldArray {
 public:
  HeldArray() = default;
  /// \param columns 0 for a one-dimensional array, else for one of shape (n, columns)
  /// \param name    of the argument, for warnings and errors
  /// \param out     the array is written: nothing is converted then
  HeldArray(nb::handle source, Element element, int columns, const char* name, bool out = false);
  HeldArray(HeldArray&& other) noexcept { *this = static_cast<HeldArray&&>(other); }
  HeldArray& operator=(HeldArray&& other) noexcept;
  HeldArray(const HeldArray&) = delete;
  HeldArray& operator=(const HeldArray&) = delete;
  ~HeldArray();

  [[nodiscard]] void* data() const { return buffer_.buf; }
  [[nodiscard]] std::size_t rows() const { return rows_; }
  /// The type of an array's elements before anything is converted; float64 for what is no array.
  [[nodiscard]] static Element elementTypeOf(nb::handle source);

 private:
  bool take(nb::handle source, Element element, int columns, const char* name, bool out);

  Py_buffer buffer_{};
  bool isHeld_ = false;
  std::size_t rows_ = 0;
};

/// Elements of T, read where the caller has them or in a converted copy.
template <class T>
class InView {
 public:
  explicit InView(HeldArray held) : held_(std::move(held)) {}

  [[nodiscard]] const T* data() const { return static_cast<const T*>(held_.data()); }
  /// Of an array that was opened to be written.
  [[nodiscard]] T* mutableData() const { return static_cast<T*>(held_.data()); }
  [[nodiscard]] std::size_t size() const { return held_.rows(); }
  [[nodiscard]] tarn::Span<const T> span() const { return {data(), size()}; }
  /// A copy as the library's scenes and meshes keep it.
  [[nodiscard]] ovo::Array<T> array() const { return ovo::Array<T>(span()); }
  [[nodiscard]] std::vector<T> vector() const { return std::vector<T>(data(), data() + size()); }

 private:
  HeldArray held_;
};

/// An argument that is an array of T: `In<tarn::Vec3f>` has shape (n, 3) and float32.
template <class T>
struct In {
  nb::object source;

  [[nodiscard]] InView<T> read(const char* name) const {
    using Scalar = typename Row<T>::Scalar;
    return InView<T>(HeldArray(source, elementOf<Scalar>(), Row<T>::columns, name));
  }
  [[nodiscard]] bool isNone() const { return source.is_none(); }
};

/// An argument that is written: an array of T of `size` rows, never converted.
template <class T>
struct Out {
  nb::object source;

  [[nodiscard]] InView<T> open(const char* name) const {
    using Scalar = typename Row<T>::Scalar;
    return InView<T>(HeldArray(source, elementOf<Scalar>(), Row<T>::columns, name, true));
  }
  [[nodiscard]] bool isNone() const { return source.is_none(); }
};

/// An array of scalars T that goes out.
template <class T>
struct NumpyArray {
  nb::object array;
};

/// A new array of the caller's, not filled yet. \return where its elements lie
void* makeArray(Element element, std::initializer_list<std::size_t> shape, nb::object& array);

/// A new array of n values of T, to be filled through `data`.
template <class T>
struct NewArray : NumpyArray<typename Row<T>::Scalar> {
  explicit NewArray(std::size_t size) {
    using Scalar = typename Row<T>::Scalar;
    constexpr auto columns = static_cast<std::size_t>(Row<T>::columns);
    void* const made = columns == 0 ? makeArray(elementOf<Scalar>(), {size}, this->array)
                                    : makeArray(elementOf<Scalar>(), {size, columns}, this->array);
    data = static_cast<T*>(made);
  }
  T* data;
};

/// A copy of values as an array of the caller's.
template <class T>
NumpyArray<typename Row<T>::Scalar> copyOut(const T* values, std::size_t count) {
  NewArray<T> made(count);
  if (count != 0) std::memcpy(static_cast<void*>(made.data), values, count * sizeof(T));
  return {std::move(made.array)};
}
template <class T>
NumpyArray<typename Row<T>::Scalar> copyOut(const std::vector<T>& values) {
  return copyOut(values.data(), values.size());
}

/// A read-only view of elements that `owner` keeps alive.
template <class T>
NumpyArray<typename Row<T>::Scalar> viewOut(const T* values, std::size_t count, nb::handle owner) {
  using Scalar = typename Row<T>::Scalar;
  constexpr auto columns = static_cast<std::size_t>(Row<T>::columns);
  const std::size_t shape[2] = {count, columns};
  const nb::ndarray<nb::numpy, const Scalar> array(values, columns == 0 ? 1 : 2, shape, owner);
  return {nb::cast(array)};
}

/// A read-only view of an array of the library, which shares its storage.
template <class T>
NumpyArray<typename Row<T>::Scalar> shareOut(const ovo::Array<T>& values) {
  if (values.empty()) return copyOut(values.data(), 0);
  auto* const kept = new ovo::Array<T>(values);
  const nb::capsule owner(kept, [](void* p) noexcept { delete static_cast<ovo::Array<T>*>(p); });
  return viewOut(kept->cdata(), kept->size(), owner);
}

}  // namespace vela::python

namespace nanobind::detail {

template <class T>
struct type_caster<vela::python::In<T>> {
  NB_TYPE_CASTER(vela::python::In<T>, const_name("numpy.typing.ArrayLike"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    value.source = borrow(source);
    return true;
  }
};

template <class T>
struct type_caster<vela::python::Out<T>> {
  NB_TYPE_CASTER(vela::python::Out<T>, const_name("numpy.typing.NDArray[typing.Any]"))
  bool from_python(handle source, std::uint32_t, cleanup_list*) noexcept {
    value.source = borrow(source);
    return true;
  }
};

template <class T>
constexpr auto numpyName() {
  if constexpr (std::is_same_v<T, bool>)
    return const_name("numpy.typing.NDArray[numpy.bool_]");
  else
    return const_name("numpy.typing.NDArray[numpy.") + dtype_traits<T>::name + const_name("]");
}

template <class T>
struct type_caster<vela::python::NumpyArray<T>> {
  NB_TYPE_CASTER(vela::python::NumpyArray<T>, numpyName<T>())
  bool from_python(handle, std::uint32_t, cleanup_list*) noexcept { return false; }
  static handle from_cpp(const vela::python::NumpyArray<T>& array, rv_policy,
                         cleanup_list*) noexcept {
    return object(array.array).release();
  }
};

template <class T>
struct type_caster<vela::python::NewArray<T>>
    : type_caster<vela::python::NumpyArray<typename vela::python::Row<T>::Scalar>> {};

}  // namespace nanobind::detail
