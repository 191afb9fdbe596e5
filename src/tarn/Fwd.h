/// \file
/// The names of this folder, for headers that only pass them on, and the short forms of the common
/// ones: `f` for float, `d` for double, `i` for int.
#pragma once

namespace tarn {

template <class T>
struct Vec2;
template <class T>
struct Vec3;
template <class T>
struct Vec4;
template <class T>
class Mat4;
template <class T>
struct Box3;
template <class T>
struct Ray;
template <class T>
struct Frame;
template <class T>
class Span;
class Hash;

/// A short form: `f` for float, `d` for double, `i` for int. @{
using Vec2f = Vec2<float>;
using Vec2d = Vec2<double>;
using Vec2i = Vec2<int>;
using Vec3f = Vec3<float>;
using Vec3d = Vec3<double>;
using Vec3i = Vec3<int>;
using Vec4f = Vec4<float>;
using Vec4d = Vec4<double>;
using Vec4i = Vec4<int>;
using Mat4f = Mat4<float>;
using Mat4d = Mat4<double>;
using Box3f = Box3<float>;
using Box3d = Box3<double>;
using Ray3f = Ray<float>;
using Ray3d = Ray<double>;
using Frame3f = Frame<float>;
using Frame3d = Frame<double>;
/// @}

}  // namespace tarn
