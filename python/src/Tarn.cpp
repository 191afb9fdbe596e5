// Boxes, rays, frames, transforms, areas and hashes. Vectors and matrices are arrays: see Values.h.
#include <sstream>

#include "Module.h"
#include "Records.h"
#include "tarn/Area.h"
#include "tarn/Box3.h"
#include "tarn/Frame.h"
#include "tarn/Hash.h"
#include "tarn/Ray.h"

namespace vela::python {

namespace {

template <class T>
void bindBox(nb::module_& m, const char* name, const char* doc) {
  using Box = tarn::Box3<T>;
  using Point = tarn::Vec3<T>;
  Record<Box> record(m, name, doc);
  record.field("min", &Box::min, "The lower corner, shape (3,).")
      .field("max", &Box::max, "The upper corner, shape (3,).");
  record.type()
      .def(
          "__init__",
          [](Box* self, const Point& low, const Point& high) {
            new (self) Box{low, high};
          },
          nb::arg("min"), nb::arg("max"))
      .def_prop_ro(
          "is_empty", [](const Box& b) { return b.isEmpty(); },
          "True for a box without a point, as a new one is.")
      .def(
          "extend_by", [](Box& b, const Point& p) { b.extendBy(p); }, nb::arg("point"),
          "Grows the box, in place, to hold a point.")
      .def(
          "extend_by", [](Box& b, const Box& o) { b.extendBy(o); }, nb::arg("box"),
          "Grows the box, in place, to hold another one.")
      .def(
          "pad", [](Box& b, const Point& v) { b.pad(v); }, nb::arg("by"),
          "Moves every face outward by `by`, in place; an empty box stays empty.")
      .def_prop_ro("center", &Box::center, "The middle, shape (3,); zero when empty.")
      .def_prop_ro("size", &Box::size, "max - min, shape (3,); zero when empty.")
      .def_prop_ro("major_axis", &Box::majorAxis,
                   "0, 1 or 2: the axis of the largest size; the first on ties.")
      .def(
          "split",
          [](const Box& b, int axis, T at) {
            if (axis < 0 || axis > 2) throw nb::value_error("axis: expected 0, 1 or 2");
            return b.split(axis, at);
          },
          nb::arg("axis"), nb::arg("at"),
          "The low and the high box on either side of the plane `axis` = `at`.")
      .def(
          "intersects", [](const Box& b, const Point& p) { return b.intersects(p); },
          nb::arg("point"), "True for points inside or on the box.")
      .def_prop_ro("surface", &Box::surface, "The area of all faces; zero when empty.")
      .def(
          "transformed", [](const Box& b, const tarn::Mat4d& by) { return b.transformed(by); },
          nb::arg("matrix"), "The box of the eight transformed corners.")
      .def("__str__", [](const Box& b) {
        std::ostringstream out;
        out << b;
        return out.str();
      });
}

template <class T>
void bindRay(nb::module_& m, const char* name, const char* doc) {
  using Ray = tarn::Ray<T>;
  using V = tarn::Vec3<T>;
  Record<Ray> record(m, name, doc);
  record.field("origin", &Ray::origin, "Where it starts, shape (3,).")
      .field("direction", &Ray::direction,
             "Of any length, shape (3,); distances are multiples of it.")
      .field("min_distance", &Ray::minDistance, "Where the range of distances begins.")
      .field("max_distance", &Ray::maxDistance, "Where the range of distances ends.");
  record.type().def(
      "__init__",
      [](Ray* self, const V& origin, const V& direction, T least, T most) {
        new (self) Ray(origin, direction, least, most);
      },
      nb::arg("origin"), nb::arg("direction"), nb::arg("min_distance") = T(0),
      nb::arg("max_distance") = std::numeric_limits<T>::max());
}

}  // namespace

void bindTarn(nb::module_& m) {
  bindBox<float>(m, "Box3f",
                 "A box along the axes, in single precision. A new one is empty.\n\n"
                 ">>> box = vela.tarn.Box3f([0, 0, 0], [2, 4, 6])\n"
                 ">>> box.center.tolist(), box.major_axis, box.surface\n"
                 "([1.0, 2.0, 3.0], 2, 88.0)");
  bindBox<double>(m, "Box3d",
                  "A box along the axes, in double precision. A new one is empty.\n\n"
                  ">>> box = vela.tarn.Box3d()\n>>> box.extend_by([1, 2, 3])\n"
                  ">>> box.is_empty, box.max.tolist()\n(False, [1.0, 2.0, 3.0])");
  bindRay<float>(m, "Ray3f",
                 "A ray and the range of distances that counts, in single precision.\n\n"
                 ">>> vela.tarn.Ray3f([0, 0, 5], [0, 0, -2]).direction.tolist()\n"
                 "[0.0, 0.0, -2.0]");
  bindRay<double>(m, "Ray3d",
                  "A ray and the range of distances that counts, in double precision.\n\n"
                  ">>> vela.tarn.Ray3d([0, 0, 5], [0, 0, -2], max_distance=3).max_distance\n3.0");

  nb::class_<tarn::Hash> hash(m, "Hash",
                              "An incremental 64-bit hash, the same on every platform; for keys, "
                              "not against an adversary.\n\n"
                              ">>> h = vela.tarn.Hash()\n>>> h.append(7)\n"
                              ">>> other = vela.tarn.Hash()\n"
                              ">>> other.append(b'\\x07\\x00\\x00\\x00')\n"
                              ">>> h.value == other.value\nTrue");
  hash.def(nb::init<>())
      .def(
          "append", [](tarn::Hash& h, std::uint32_t v) { h.append(v); }, nb::arg("value"),
          "Appends the four bytes of an integer, lowest first.")
      .def(
          "append", [](tarn::Hash& h, nb::bytes b) { h.append(b.c_str(), b.size()); },
          nb::arg("data"), "Appends bytes.")
      .def_prop_ro("value", &tarn::Hash::value, "The hash of what was appended until now.")
      .def(
          "__eq__", [](const tarn::Hash& a, const tarn::Hash& b) { return a.value() == b.value(); },
          nb::is_operator())
      .def("__hash__", [](const tarn::Hash& h) { return static_cast<Py_hash_t>(h.value() >> 1); })
      .def("__repr__",
           [](const tarn::Hash& h) { return "Hash(value=" + std::to_string(h.value()) + ")"; });
  refusePickle(hash, "it is a computation under way; pickle its value");

  m.def(
      "inverse", [](const tarn::Mat4d& a) { return a.inverse(); }, nb::arg("matrix"),
      "The inverse of a transform, shape (4, 4); the zero matrix where there is none.\n\n"
      ">>> vela.tarn.inverse(vela.tarn.translation([1, 2, 3]))[:3, 3].tolist()\n"
      "[-1.0, -2.0, -3.0]");
  m.def(
      "translation", [](const tarn::Vec3d& by) { return tarn::Mat4d().translate(by); },
      nb::arg("by"),
      "A move, shape (4, 4).\n\n>>> vela.tarn.translation([1, 2, 3])[:3, 3].tolist()\n[1.0, 2.0, "
      "3.0]");
  m.def(
      "scaling", [](const tarn::Vec3d& by) { return tarn::Mat4d().scale(by); }, nb::arg("by"),
      "A scale along the axes, shape (4, 4).\n\n>>> vela.tarn.scaling([2, 3, 4])[1, "
      "1].item()\n3.0");
  m.def(
      "rotation",
      [](char axis, double radians) {
        tarn::Mat4d out;
        if (axis == 'x') return out.rotateX(radians);
        if (axis == 'y') return out.rotateY(radians);
        if (axis == 'z') return out.rotateZ(radians);
        throw nb::value_error("axis: expected 'x', 'y' or 'z'");
      },
      nb::arg("axis"), nb::arg("radians"),
      "A right-handed turn about an axis, shape (4, 4).\n\n"
      ">>> vela.tarn.rotation('z', 0.0)[0, 0].item()\n1.0");
  m.def(
      "from_quaternion", [](const tarn::Vec4d& q) { return tarn::Mat4d::fromQuaternion(q); },
      nb::arg("quaternion"),
      "The rotation by a quaternion (x, y, z, w) of any length, w being its real part.\n\n"
      ">>> vela.tarn.from_quaternion([0, 0, 0, 1])[0].tolist()\n[1.0, 0.0, 0.0, 0.0]");
  m.def(
      "projection",
      [](double scale, double nearDistance, double farDistance, bool perspective) {
        tarn::Mat4d out;
        out.setToProjection(scale, nearDistance, farDistance, perspective);
        return out;
      },
      nb::arg("focal_over_width"), nb::arg("near"), nb::arg("far"), nb::arg("perspective") = true,
      "Camera space to NDC. `focal_over_width` is focal length over film width.\n\n"
      ">>> vela.tarn.projection(0.5, 1, 100).shape\n(4, 4)");
  m.def(
      "transform_points",
      [](const tarn::Mat4d& matrix, const In<tarn::Vec3d>& points) {
        const auto in = points.read("points");
        NewArray<tarn::Vec3d> out(in.size());
        for (std::size_t i = 0; i < in.size(); ++i)
          out.data[i] = matrix.transformPoint(in.data()[i]);
        return out;
      },
      nb::arg("matrix"), nb::arg("points"),
      "Points (n, 3) moved by a transform, in double; nothing is divided by w.\n\n"
      ">>> vela.tarn.transform_points(vela.tarn.scaling([2, 2, 2]), [[1, 2, 3]]).tolist()\n"
      "[[2.0, 4.0, 6.0]]");
  m.def(
      "transform_vectors",
      [](const tarn::Mat4d& matrix, const In<tarn::Vec3d>& vectors) {
        const auto in = vectors.read("vectors");
        NewArray<tarn::Vec3d> out(in.size());
        for (std::size_t i = 0; i < in.size(); ++i)
          out.data[i] = matrix.transformVector(in.data()[i]);
        return out;
      },
      nb::arg("matrix"), nb::arg("vectors"),
      "Directions (n, 3) turned by a transform, in double; they are not moved.\n\n"
      ">>> vela.tarn.transform_vectors(vela.tarn.translation([9, 9, 9]), [[1, 2, 3]]).tolist()\n"
      "[[1.0, 2.0, 3.0]]");
  m.def(
      "orient_around_normal",
      [](tarn::Vec3d v, const tarn::Vec3d& normal, bool keepHemisphere) {
        v.orientAroundNormal(normal, keepHemisphere);
        return v;
      },
      nb::arg("vector"), nb::arg("normal"), nb::arg("keep_hemisphere") = true,
      "Takes a vector from a frame whose z is (0, 0, 1) to one whose z is `normal`. Without "
      "`keep_hemisphere` the result lies on the normal's side.\n\n"
      ">>> vela.tarn.orient_around_normal([0, 0, 1], [0, 5, 0]).tolist()\n[0.0, 1.0, 0.0]");
  m.def(
      "frame_about",
      [](const tarn::Vec3d& z, std::optional<tarn::Vec3d> up) {
        const tarn::Frame<double> frame = up ? tarn::frameAbout(z, *up) : tarn::frameAbout(z);
        return std::tuple(frame.x, frame.y, frame.z);
      },
      nb::arg("z"), nb::arg("up") = nb::none(),
      "The frame (x, y, z) of unit vectors about a unit vector z whose y leans towards `up`; any "
      "such frame without `up`.\n\n"
      ">>> x, y, z = vela.tarn.frame_about([0, 0, 1], [0, 5, 0])\n>>> x.tolist(), y.tolist()\n"
      "([1.0, 0.0, 0.0], [0.0, 1.0, 0.0])");
  m.def(
      "area_vector",
      [](const In<tarn::Vec3d>& corners) {
        const auto in = corners.read("corners");
        return tarn::areaVector(in.size(), [&in](std::size_t k) { return in.data()[k]; });
      },
      nb::arg("corners"),
      "The area vector of a polygon (n, 3), flat or not: along its normal, as long as twice its "
      "area.\n\n>>> vela.tarn.area_vector([[0, 0, 0], [2, 0, 0], [0, 1, 0]]).tolist()\n"
      "[0.0, 0.0, 2.0]");
  m.attr("EARLIEST_TIME") = tarn::earliestTimeValue();
}

}  // namespace vela::python
