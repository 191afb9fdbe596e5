// Lenses: batches of image coordinates to rays, and points of the world to image coordinates.
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "vela/camera/LensProjection.h"

namespace vela::python {

namespace {

using Lens = LensProjectionFunction;
using Sample = Camera::Sample;

// The sample that is meant: the one that was given, or a plain one for the lens.
Sample sampleFor(const Lens& lens, const std::optional<Sample>& given) {
  if (given) return *given;
  Sample sample;
  sample.updateDerivedValues(&lens);
  return sample;
}

nb::object rays(const Lens& lens, const In<tarn::Vec2f>& ndcIn, const std::optional<Sample>& given,
                float aspect, const std::optional<In<tarn::Vec2f>>& offsetsIn, int threads) {
  const auto ndc = ndcIn.read("ndc");
  const Sample sample = sampleFor(lens, given);
  std::optional<InView<tarn::Vec2f>> offsets;
  if (offsetsIn) {
    offsets.emplace(offsetsIn->read("offsets"));
    if (offsets->size() != ndc.size())
      refuse("offsets: expected " + std::to_string(ndc.size()) + " rows, found " +
             std::to_string(offsets->size()));
  }
  const std::size_t size = ndc.size();
  NewArray<tarn::Vec3f> origins(size), directions(size), xs(size), ys(size);
  NewArray<float> nearest(size), farthest(size);
  const ProjectionImageContext image{aspect, 0, 0};
  inBatches(size, threads, [&](std::size_t first, std::size_t count) {
    constexpr std::size_t kAtOnce = 256;
    ProjectCoord coords[kAtOnce];
    RayContext out[kAtOnce];
    for (std::size_t from = first; from < first + count; from += kAtOnce) {
      const std::size_t n = std::min(kAtOnce, first + count - from);
      for (std::size_t i = 0; i < n; ++i) {
        const tarn::Vec2f at = ndc.data()[from + i];
        coords[i] = {};
        coords[i].x = at.x;
        coords[i].y = at.y;
        if (offsets) {
          coords[i].dx = offsets->data()[from + i].x;
          coords[i].dy = offsets->data()[from + i].y;
        }
      }
      generateCameraRays(lens, static_cast<unsigned>(n), coords, sample, image, out);
      for (std::size_t i = 0; i < n; ++i) {
        origins.data[from + i] = out[i].origin;
        directions.data[from + i] = out[i].direction;
        xs.data[from + i] = out[i].xDirection;
        ys.data[from + i] = out[i].yDirection;
        nearest.data[from + i] = out[i].minDistance;
        farthest.data[from + i] = out[i].maxDistance;
      }
    }
  });
  return nb::module_::import_("vela._results")
      .attr("Rays")(origins.array, directions.array, nearest.array, farthest.array, xs.array,
                    ys.array);
}

NumpyArray<float> project(const Lens& lens, const In<tarn::Vec3f>& pointsIn,
                          const std::optional<Sample>& given, float aspect, int threads) {
  const auto points = pointsIn.read("points");
  const Sample sample = sampleFor(lens, given);
  NewArray<tarn::Vec3f> out(points.size());
  const ProjectionImageContext image{aspect, 0, 0};
  inBatches(points.size(), threads, [&](std::size_t first, std::size_t count) {
    std::vector<ProjectCoord> coords(count);
    for (std::size_t i = 0; i < count; ++i) {
      const tarn::Vec3f p = points.data()[first + i];
      coords[i].px = p.x;
      coords[i].py = p.y;
      coords[i].pz = p.z;
    }
    lens.project(sample, image, static_cast<unsigned>(count), coords.data());
    for (std::size_t i = 0; i < count; ++i)
      out.data[first + i] = {coords[i].x, coords[i].y, coords[i].depth};
  });
  return {out.array};
}

template <class L>
void bindLens(nb::module_& m, const char* name, const char* doc) {
  nb::class_<L, Lens> type(m, name, doc);
  type.def(nb::init<>())
      .def(
          "__reduce__",
          [](nb::handle self) { return nb::make_tuple(self.type(), nb::make_tuple()); },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
  type.def(
      "__eq__", [](const L&, nb::handle other) { return nb::isinstance<L>(other); },
      nb::arg().none(), nb::sig("def __eq__(self, other: object, /) -> bool"));
  type.attr("__hash__") = nb::none();
}
template <class L>
void bindLinearLens(nb::module_& m, const char* name, const char* doc) {
  nb::class_<L, Lens> type(m, name, doc);
  type.def(nb::init<bool>(), nb::arg("orthographic") = false)
      .def(
          "__reduce__",
          [](nb::handle self) {
            const bool orthographic =
                nb::cast<const L&>(self).lensProjectionMode() == LensProjection::orthographic;
            return nb::make_tuple(self.type(), nb::make_tuple(orthographic));
          },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
  type.def(
      "__eq__",
      [](const L& a, nb::handle other) {
        return other.type().is(nb::type<L>()) &&
               nb::cast<const L&>(other).lensProjectionMode() == a.lensProjectionMode();
      },
      nb::arg().none(), nb::sig("def __eq__(self, other: object, /) -> bool"));
  type.attr("__hash__") = nb::none();
}

}  // namespace

void bindLenses(nb::module_& m) {
  nb::class_<Lens> lens = nb::borrow<nb::class_<Lens>>(nb::type<Lens>());
  lens.def_prop_ro(
          "identifier", [](const Lens& l) { return std::string(l.identifier()); }, "Its name.")
      .def_prop_ro(
          "mode", [](const Lens& l) { return l.lensProjectionMode(); },
          "Which of the lenses it is.")
      .def_prop_ro(
          "is_linear", [](const Lens& l) { return l.isLinear(); },
          "True when straight lines stay straight.")
      .def_prop_ro(
          "can_be_extended_horizontally",
          [](const Lens& l) { return l.canBeExtendedHorizontally(); },
          "True when coordinates outside the image still give rays.")
      .def_prop_ro(
          "can_be_extended_vertically", [](const Lens& l) { return l.canBeExtendedVertically(); },
          "True when coordinates outside the image still give rays.")
      .def("rays", &rays, nb::arg("ndc"), nb::arg("sample") = nb::none(), nb::arg("aspect") = 1.0f,
           nb::arg("offsets") = nb::none(), nb::arg("threads") = 1,
           nb::sig(
               "def rays(self, ndc: numpy.typing.ArrayLike, sample: Camera.Sample | None = None, "
               "aspect: float = 1.0, offsets: numpy.typing.ArrayLike | None = None, "
               "threads: int = 1) -> vela._results.Rays"),
           "The camera-space rays of image coordinates (n, 2).\n\n"
           "`sample` has its derived values up to date; without one a plain camera is taken. "
           "`aspect` "
           "is height over width. `offsets` (n, 2) lead to the neighbouring coordinates.\n\n"
           ">>> vela.SphericalProjection().rays([[0, 0]], aspect=0.5).directions.round(6) + 0.0\n"
           "array([[ 0.,  0., -1.]], dtype=float32)")
      .def("project", &project, nb::arg("points"), nb::arg("sample") = nb::none(),
           nb::arg("aspect") = 1.0f, nb::arg("threads") = 1,
           "NDC x, y and depth (n, 3) of points of the world (n, 3). Zeros for lenses that project "
           "nothing: orthographic, spherical and cylindrical.\n\n"
           ">>> vela.LinearProjection().project([[0, 0, -10]])[0, :2].tolist()\n[0.0, 0.0]")
      .def(
          "distance_to_linear_z",
          [](const Lens& l, const Sample& s, const tarn::Vec2f& ndc, float distance) {
            return l.distanceToLinearZ(s, ndc, distance);
          },
          nb::arg("sample"), nb::arg("ndc"), nb::arg("distance"),
          "The part along -z of a distance along the ray at `ndc`.")
      .def(
          "lens_magnification",
          [](const Lens& l, const Sample& s) { return l.lensMagnification(s); }, nb::arg("sample"),
          "Film width over focal length.")
      .def(
          "projection_matrix", [](const Lens& l, const Sample& s) { return l.projectionMatrix(s); },
          nb::arg("sample"), "Camera space to NDC, (4, 4).")
      .def(
          "ndc_transform_matrix",
          [](const Lens& l, const Sample& s) { return l.ndcTransformMatrix(s); }, nb::arg("sample"),
          "What the film window does to NDC coordinates, (4, 4).")
      .def(
          "validate_projection", [](Lens& l) { l.validateProjection(); },
          "Runs the lens's own validation; none of these has any.")
      .def("__repr__", [](nb::handle self) {
        const Lens& l = nb::cast<const Lens&>(self);
        return std::string("<") + nb::str(self.type().attr("__name__")).c_str() + " " +
               l.identifier() + ">";
      });
  refusePickle(lens, "it has no kind; pickle one of the lenses");
  bindLinearLens<LinearProjection>(
      m, "LinearProjection",
      "Perspective or orthographic.\n\n>>> vela.LinearProjection(orthographic=True).mode.name\n"
      "'ORTHOGRAPHIC'");
  bindLinearLens<WarpedLinearProjection>(
      m, "WarpedLinearProjection",
      "A linear lens whose rays a host fills in: directions are zero.\n\n"
      ">>> vela.WarpedLinearProjection().rays([[0, 0]]).directions.tolist()\n[[0.0, 0.0, 0.0]]");
  bindLens<SphericalProjection>(
      m, "SphericalProjection",
      "Longitude over the width, latitude over the height; the centre looks down -z.\n\n"
      ">>> vela.SphericalProjection().is_linear\nFalse");
  bindLens<CylindricalProjection>(
      m, "CylindricalProjection",
      "Longitude over the width, the linear lens's height over the height.\n\n"
      ">>> vela.CylindricalProjection().mode.name\n'CYLINDRICAL'");
  m.def(
      "lens_names", [] { return LensProjectionClassNameList(); },
      "The names of the four lenses.\n\n>>> vela.lens_names()[0]\n'Perspective'");
  m.def(
      "lens_name", [](LensProjection projection) { return LensProjectionClassName(projection); },
      nb::arg("projection"),
      "The name of a lens; empty for NONE.\n\n"
      ">>> vela.lens_name(vela.LensProjection.CYLINDRICAL)\n'Cylindrical'");
  m.def(
      "create_lens",
      [](LensProjection projection) {
        Lens* const made = CreateProjectionFunc(projection);
        if (!made) refuse("projection: there is no lens of that kind");
        return made;
      },
      nb::arg("projection"), nb::rv_policy::take_ownership,
      "A new lens; ValueError for NONE.\n\n"
      ">>> vela.create_lens(vela.LensProjection.PERSPECTIVE).is_linear\nTrue");
}

}  // namespace vela::python
