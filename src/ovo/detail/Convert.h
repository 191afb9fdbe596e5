/// \file
/// Stored values to the library's own and back. Which pairs convert is told in ovo/Attribute.h.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "ovo/Array.h"
#include "ovo/Token.h"
#include "ovo/detail/OpenUsd.h"
#include "tarn/Mat4.h"
#include "tarn/Vec.h"

namespace ovo::detail {

template <class... S>
struct StoredTypes {};

// Which stored types an element type reads from and is written as.
template <class T>
struct StoredOf;
template <>
struct StoredOf<bool> {
  using Types = StoredTypes<bool, int, unsigned char, unsigned, std::int64_t, std::uint64_t>;
};
template <>
struct StoredOf<int> {
  using Types = StoredTypes<int, bool, unsigned char, unsigned, std::int64_t, std::uint64_t>;
};
template <>
struct StoredOf<std::int64_t> {
  using Types = StoredTypes<std::int64_t, int, bool, unsigned char, unsigned, std::uint64_t>;
};
template <>
struct StoredOf<float> {
  using Types = StoredTypes<float, double, pxr::GfHalf, pxr::SdfTimeCode>;
};
template <>
struct StoredOf<double> {
  using Types = StoredTypes<double, float, pxr::GfHalf, pxr::SdfTimeCode>;
};
template <>
struct StoredOf<std::string> {
  using Types = StoredTypes<std::string, pxr::TfToken, pxr::SdfAssetPath>;
};
template <>
struct StoredOf<Token> {
  using Types = StoredTypes<pxr::TfToken, std::string, pxr::SdfAssetPath>;
};
template <>
struct StoredOf<tarn::Vec2i> {
  using Types = StoredTypes<pxr::GfVec2i>;
};
template <>
struct StoredOf<tarn::Vec3i> {
  using Types = StoredTypes<pxr::GfVec3i>;
};
template <>
struct StoredOf<tarn::Vec4i> {
  using Types = StoredTypes<pxr::GfVec4i>;
};
template <class F>
struct StoredOf<tarn::Vec2<F>> {
  using Types = StoredTypes<pxr::GfVec2f, pxr::GfVec2d, pxr::GfVec2h>;
};
template <class F>
struct StoredOf<tarn::Vec3<F>> {
  using Types = StoredTypes<pxr::GfVec3f, pxr::GfVec3d, pxr::GfVec3h>;
};
template <class F>
struct StoredOf<tarn::Vec4<F>> {
  using Types = StoredTypes<pxr::GfVec4f, pxr::GfVec4d, pxr::GfVec4h, pxr::GfQuatf, pxr::GfQuatd,
                            pxr::GfQuath>;
};
template <>
struct StoredOf<tarn::Mat4d> {
  using Types = StoredTypes<pxr::GfMatrix4d>;
};

template <class T>
inline constexpr bool isArray = false;
template <class T>
inline constexpr bool isArray<Array<T>> = true;

template <class V>
inline constexpr std::size_t dimensionOf = 0;
template <class T>
inline constexpr std::size_t dimensionOf<tarn::Vec2<T>> = 2;
template <class T>
inline constexpr std::size_t dimensionOf<tarn::Vec3<T>> = 3;
template <class T>
inline constexpr std::size_t dimensionOf<tarn::Vec4<T>> = 4;

template <class S>
inline constexpr bool isQuat = std::is_same_v<S, pxr::GfQuatf> || std::is_same_v<S, pxr::GfQuatd> ||
                               std::is_same_v<S, pxr::GfQuath>;

// Any number to any number: half has conversions to and from float only.
template <class To, class From>
[[nodiscard]] To castNumber(From from) {
  if constexpr (std::is_same_v<From, pxr::GfHalf>)
    return static_cast<To>(static_cast<float>(from));
  else if constexpr (std::is_same_v<To, pxr::GfHalf>)
    return pxr::GfHalf(static_cast<float>(from));
  else
    return static_cast<To>(from);
}

// True and the value when an integer fits.
template <class To, class From>
[[nodiscard]] bool castInteger(From from, To& to) {
  if constexpr (std::is_same_v<To, bool>) {
    to = from != From(0);
    return from == From(0) || from == From(1);
  } else if constexpr (std::is_signed_v<From>) {
    if (std::is_unsigned_v<To> && from < From(0)) return false;
    to = static_cast<To>(from);
    return static_cast<From>(to) == from;
  } else {
    if (static_cast<std::uint64_t>(from) >
        static_cast<std::uint64_t>(std::numeric_limits<To>::max()))
      return false;
    to = static_cast<To>(from);
    return true;
  }
}

/// One stored value to one of ours. \p times maps time codes to the stage's time.
template <class S, class T>
[[nodiscard]] bool fromStored(const S& stored, T& value, const pxr::SdfLayerOffset& times) {
  if constexpr (std::is_same_v<S, pxr::SdfTimeCode>) {
    value = static_cast<T>(times * stored.GetValue());
  } else if constexpr (std::is_integral_v<T>) {
    return castInteger(stored, value);
  } else if constexpr (std::is_floating_point_v<T>) {
    value = castNumber<T>(stored);
  } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, Token>) {
    if constexpr (std::is_same_v<S, pxr::TfToken>)
      value = T(stored.GetString());
    else if constexpr (std::is_same_v<S, pxr::SdfAssetPath>)
      value =
          T(stored.GetAuthoredPath().empty() ? stored.GetAssetPath() : stored.GetAuthoredPath());
    else
      value = T(stored);
  } else if constexpr (std::is_same_v<S, pxr::GfMatrix4d>) {
    for (std::size_t i = 0; i < 16; ++i) value[i] = stored.GetArray()[i];
  } else if constexpr (isQuat<S>) {
    using Number = std::decay_t<decltype(value.x)>;
    const auto& imaginary = stored.GetImaginary();
    for (std::size_t i = 0; i < 3; ++i) value[i] = castNumber<Number>(imaginary[i]);
    value.w = castNumber<Number>(stored.GetReal());
  } else {
    using Number = std::decay_t<decltype(value.x)>;
    for (std::size_t i = 0; i < dimensionOf<T>; ++i) value[i] = castNumber<Number>(stored[i]);
  }
  return true;
}

/// One of ours to one stored value.
template <class S, class T>
[[nodiscard]] bool toStored(const T& value, S& stored) {
  if constexpr (std::is_same_v<S, pxr::SdfTimeCode>) {
    stored = pxr::SdfTimeCode(static_cast<double>(value));
  } else if constexpr (std::is_integral_v<T>) {
    return castInteger(value, stored);
  } else if constexpr (std::is_floating_point_v<T>) {
    stored = castNumber<S>(value);
  } else if constexpr (std::is_same_v<T, std::string>) {
    stored = S(value);
  } else if constexpr (std::is_same_v<T, Token>) {
    stored = S(value.asString());
  } else if constexpr (std::is_same_v<S, pxr::GfMatrix4d>) {
    for (std::size_t i = 0; i < 16; ++i) stored.GetArray()[i] = value[i];
  } else if constexpr (isQuat<S>) {
    using Number = typename S::ScalarType;
    stored = S(castNumber<Number>(value.w), castNumber<Number>(value.x),
               castNumber<Number>(value.y), castNumber<Number>(value.z));
  } else {
    using Number = typename S::ScalarType;
    for (std::size_t i = 0; i < dimensionOf<T>; ++i) stored[i] = castNumber<Number>(value[i]);
  }
  return true;
}

// True when both hold the same numbers in the same order, so that an array is one copy of bytes.
template <class S, class T>
[[nodiscard]] constexpr bool sameLayout() {
  if constexpr (std::is_same_v<S, T>)
    return std::is_arithmetic_v<S>;
  else if constexpr (dimensionOf<T> != 0 && !isQuat<S> && std::is_class_v<S>)
    return std::is_same_v<typename S::ScalarType, std::decay_t<decltype(T().x)>> &&
           sizeof(S) == sizeof(T) && std::is_trivially_copyable_v<S>;
  else
    return false;
}

template <class S, class E>
[[nodiscard]] bool arrayFrom(const pxr::VtArray<S>& stored, Array<E>& values,
                             const pxr::SdfLayerOffset& times) {
  Array<E> fresh;
  fresh.resize(stored.size());
  E* const out = fresh.data();
  const S* const in = stored.cdata();
  if constexpr (sameLayout<S, E>()) {
    if (!stored.empty())
      std::memcpy(static_cast<void*>(out), static_cast<const void*>(in), stored.size() * sizeof(E));
  } else {
    for (std::size_t i = 0; i < stored.size(); ++i)
      if (!fromStored(in[i], out[i], times)) return false;
  }
  values.swap(fresh);
  return true;
}

template <class E, class... S>
[[nodiscard]] bool readArray(const pxr::VtValue& stored, Array<E>& values,
                             const pxr::SdfLayerOffset& times, StoredTypes<S...>) {
  bool done = false;
  (void)((stored.IsHolding<pxr::VtArray<S>>() &&
          (done = arrayFrom(stored.UncheckedGet<pxr::VtArray<S>>(), values, times), true)) ||
         ...);
  return done;
}

template <class T, class... S>
[[nodiscard]] bool readSingle(const pxr::VtValue& stored, T& value,
                              const pxr::SdfLayerOffset& times, StoredTypes<S...>) {
  bool done = false;
  T fresh{};
  (void)((stored.IsHolding<S>() &&
          (done = fromStored(stored.UncheckedGet<S>(), fresh, times), true)) ||
         ...);
  if (done) value = std::move(fresh);
  return done;
}

template <class T>
struct ElementOf {
  using Type = T;
};
template <class E>
struct ElementOf<Array<E>> {
  using Type = E;
};

/// A stored value as T; false, \p value untouched, when it does not read as that.
template <class T>
[[nodiscard]] bool readValue(const pxr::VtValue& stored, T& value,
                             const pxr::SdfLayerOffset& times) {
  using Types = typename StoredOf<typename ElementOf<T>::Type>::Types;
  if constexpr (isArray<T>)
    return readArray(stored, value, times, Types());
  else
    return readSingle(stored, value, times, Types());
}

template <class S, class T>
[[nodiscard]] bool writeAs(const T& value, pxr::VtValue& stored) {
  if constexpr (isArray<T>) {
    using E = typename ElementOf<T>::Type;
    pxr::VtArray<S> array(value.size());
    S* const out = array.data();
    if constexpr (sameLayout<S, E>()) {
      if (!value.empty())
        std::memcpy(static_cast<void*>(out), static_cast<const void*>(value.cdata()),
                    value.size() * sizeof(E));
    } else {
      for (std::size_t i = 0; i < value.size(); ++i)
        if (!toStored(value[i], out[i])) return false;
    }
    stored = pxr::VtValue::Take(array);
  } else {
    S single{};
    if (!toStored(value, single)) return false;
    stored = pxr::VtValue(single);
  }
  return true;
}

template <class T, class... S>
[[nodiscard]] bool writeAny(const T& value, const pxr::VtValue& example, pxr::VtValue& stored,
                            StoredTypes<S...>) {
  bool done = false;
  if constexpr (isArray<T>)
    (void)((example.IsHolding<pxr::VtArray<S>>() && (done = writeAs<S>(value, stored), true)) ||
           ...);
  else
    (void)((example.IsHolding<S>() && (done = writeAs<S>(value, stored), true)) || ...);
  return done;
}

/// T as a value of a declared type; false when it cannot be one.
template <class T>
[[nodiscard]] bool writeValue(const T& value, const pxr::SdfValueTypeName& type,
                              pxr::VtValue& stored) {
  using Types = typename StoredOf<typename ElementOf<T>::Type>::Types;
  return type && writeAny(value, type.GetDefaultValue(), stored, Types());
}

// Interpolation, in the stored type and by OpenUSD's own formulas: single precision stays single,
// so that the results are the same numbers.

template <class S>
[[nodiscard]] S mixSingle(const S& a, const S& b, double t) {
  if constexpr (isQuat<S>)
    return pxr::GfSlerp(t, a, b);
  else if constexpr (std::is_same_v<S, pxr::GfHalf>)
    return pxr::GfHalf(static_cast<float>((1.0 - t) * static_cast<double>(static_cast<float>(a)) +
                                          t * static_cast<double>(static_cast<float>(b))));
  else if constexpr (std::is_same_v<S, float>)
    return static_cast<float>((1.0 - t) * static_cast<double>(a) + t * static_cast<double>(b));
  else if constexpr (std::is_same_v<S, pxr::SdfTimeCode>)
    return pxr::SdfTimeCode((1.0 - t) * a.GetValue() + t * b.GetValue());
  else
    return (1.0 - t) * a + t * b;
}

template <class S>
[[nodiscard]] bool mixAs(const pxr::VtValue& a, const pxr::VtValue& b, double t,
                         pxr::VtValue& out) {
  if (a.IsHolding<S>() && b.IsHolding<S>()) {
    out = pxr::VtValue(mixSingle(a.UncheckedGet<S>(), b.UncheckedGet<S>(), t));
    return true;
  }
  using Stored = pxr::VtArray<S>;
  if (!a.IsHolding<Stored>() || !b.IsHolding<Stored>()) return false;
  const Stored& as = a.UncheckedGet<Stored>();
  const Stored& bs = b.UncheckedGet<Stored>();
  if (as.size() != bs.size()) return false;
  Stored mixed(as.size());
  S* const to = mixed.data();
  const S* const from = as.cdata();
  const S* const other = bs.cdata();
  for (std::size_t i = 0; i < as.size(); ++i) to[i] = mixSingle(from[i], other[i], t);
  out = pxr::VtValue::Take(mixed);
  return true;
}

/// The value a fraction \p t of the way from \p a to \p b; false for what is held: other types, and
/// arrays of unequal size.
[[nodiscard]] bool mixStored(const pxr::VtValue& a, const pxr::VtValue& b, double t,
                             pxr::VtValue& out);

}  // namespace ovo::detail
