// Views and their rays, what rays of the world meet, surfaces, picking, explanations.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "RayBatch.h"
#include "Records.h"
#include "SceneLists.h"
#include "ovo/Faces.h"
#include "vela/scene/ExplainRay.h"
#include "vela/scene/Picking.h"
#include "vela/scene/PixelFinder.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/Refinement.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/Surface.h"
#include "vela/scene/View.h"

namespace vela::python {

namespace {

using namespace vela::scene;
using StagePtr = std::shared_ptr<ovo::Stage>;

constexpr std::size_t kAtOnce = 256;

// Rays of the world, from arrays: origins in double, or bases and offsets as views make them.
class WorldRayBatch {
 public:
  WorldRayBatch(nb::handle origins, nb::handle directions, nb::handle least, nb::handle most,
                nb::handle offsets)
      : origins_(In<tarn::Vec3d>{nb::borrow(origins)}.read("origins")),
        directions_(In<tarn::Vec3f>{nb::borrow(directions)}.read("directions")),
        least_(least, origins_.size(), "min_distance", 0.0f),
        most_(most, origins_.size(), "max_distance", std::numeric_limits<float>::max()) {
    if (directions_.size() != origins_.size())
      refuse("directions: expected " + std::to_string(origins_.size()) +
             " rows as origins, found " + std::to_string(directions_.size()));
    if (!offsets.is_none()) {
      offsets_.emplace(In<tarn::Vec3d>{nb::borrow(offsets)}.read("offsets"));
      if (offsets_->size() != origins_.size())
        refuse("offsets: expected " + std::to_string(origins_.size()) + " rows as origins, found " +
               std::to_string(offsets_->size()));
    }
  }
  [[nodiscard]] std::size_t size() const { return origins_.size(); }
  [[nodiscard]] WorldRay operator[](std::size_t i) const {
    WorldRay ray;
    ray.base = origins_.data()[i];
    if (offsets_) ray.offset = offsets_->data()[i];
    ray.direction = directions_.data()[i];
    ray.minDistance = least_[i];
    ray.maxDistance = most_[i];
    return ray;
  }

 private:
  InView<tarn::Vec3d> origins_;
  InView<tarn::Vec3f> directions_;
  std::optional<InView<tarn::Vec3d>> offsets_;
  RangeEnd<float> least_, most_;
};

nb::object makeRays(const View& view, const In<tarn::Vec2f>& pointsIn, int threads) {
  const auto points = pointsIn.read("points");
  const std::size_t size = points.size();
  NewArray<tarn::Vec3d> bases(size), offsets(size);
  NewArray<tarn::Vec3f> directions(size);
  NewArray<float> least(size), most(size);
  inBatches(size, threads, [&](std::size_t first, std::size_t count) {
    WorldRay rays[kAtOnce];
    for (std::size_t from = first; from < first + count; from += kAtOnce) {
      const std::size_t n = std::min(kAtOnce, first + count - from);
      view.makeRays(points.data() + from, n, rays);
      for (std::size_t i = 0; i < n; ++i) {
        bases.data[from + i] = rays[i].base;
        offsets.data[from + i] = rays[i].offset;
        directions.data[from + i] = rays[i].direction;
        least.data[from + i] = rays[i].minDistance;
        most.data[from + i] = rays[i].maxDistance;
      }
    }
  });
  return nb::module_::import_("vela._results")
      .attr("WorldRays")(bases.array, offsets.array, directions.array, least.array, most.array);
}

// The NDC of every pixel's centre, row by row from the top.
NumpyArray<float> pixelCentres(const View& view) {
  const auto width = static_cast<std::size_t>(view.width),
             height = static_cast<std::size_t>(view.height);
  NewArray<tarn::Vec2f> out(width * height);
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x)
      out.data[y * width + x] =
          view.ndc(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
  return {out.array};
}

void bindView(nb::module_& m) {
  nb::class_<View> view = nb::borrow<nb::class_<View>>(nb::type<View>());
  view.def_ro("camera", &View::camera, "Path of the prim; empty for a view that was made up.")
      .def_ro("lens", &View::lens, "Which lens.")
      .def_prop_ro(
          "projection", [](const View& v) { return v.projection.get(); },
          nb::rv_policy::reference_internal, "The lens itself.")
      .def_prop_ro(
          "sample", [](const View& v) { return Camera::Sample(v.sample); },
          "A copy of the camera's sample, derived values included.")
      .def_ro("world_from_camera", &View::worldFromCamera, "(4, 4), without any scale.")
      .def_ro("up", &View::up, "The scene's, (3,).")
      .def_ro("lens_radius", &View::lensRadius, "Scene units; 0: everything is in focus.")
      .def_ro("focus_distance", &View::focusDistance, "Along the axis, of what is in focus.")
      .def_prop_ro(
          "clipping_planes", [](const View& v) { return copyOut(v.clippingPlanes); },
          "Half spaces of the camera's space that show, (n, 4): a x + b y + c z + d >= 0.")
      .def_ro("width", &View::width, "Pixels.")
      .def_ro("height", &View::height, "Pixels.")
      .def_prop_ro(
          "problems", [](const View& v) { return v.problems; }, "A camera that was passed over.")
      .def("ndc", &View::ndc, nb::arg("x"), nb::arg("y"),
           "NDC (2,) of a point of the picture, in pixels from the top left corner.")
      .def("pixel_centres", &pixelCentres,
           "NDC (height * width, 2) of the pixels' centres, row by row from the top.")
      .def("rays", &makeRays, nb::arg("points"), nb::arg("threads") = 1,
           nb::sig("def rays(self, points: numpy.typing.ArrayLike, threads: int = 1) -> "
                   "vela._results.WorldRays"),
           "The rays of points of the picture, NDC (n, 2): directions have unit length, distances "
           "are "
           "scene units.\n\n"
           ">>> stage = vela.open('examples/demo/demo.usda')\n"
           ">>> view = vela.scene.make_view(stage, width=64, height=36)\n"
           ">>> view.rays(view.pixel_centres()).directions.shape\n(2304, 3)")
      .def(
          "depth_of",
          [](const View& v, const tarn::Vec3f& direction, double distance) {
            return depthOf(v, direction, distance);
          },
          nb::arg("direction"), nb::arg("distance"),
          "Depth of a hit: along the camera's axis for the linear lenses, from the camera for the "
          "others.")
      .def(
          "find_pixels",
          [](const View& v, const In<tarn::Vec3d>& pointsIn, int threads) {
            const auto points = pointsIn.read("points");
            NewArray<tarn::Vec2d> out(points.size());
            const PixelFinder finder(v);
            inBatches(points.size(), threads, [&](std::size_t first, std::size_t count) {
              for (std::size_t i = first; i < first + count; ++i) {
                tarn::Vec2d pixel;
                const double nan = std::numeric_limits<double>::quiet_NaN();
                out.data[i] = finder.find(points.data()[i], pixel) ? pixel : tarn::Vec2d(nan, nan);
              }
            });
            return NumpyArray<double>{out.array};
          },
          nb::arg("points"), nb::arg("threads") = 1,
          "Where points of the world (n, 3) show, in pixels from the top left corner (n, 2); NaN "
          "for "
          "what no pixel shows. May lie outside the picture.\n\n"
          ">>> stage = vela.open('examples/demo/demo.usda')\n"
          ">>> view = vela.scene.make_view(stage, width=64, height=36)\n"
          ">>> rays = view.rays([view.ndc(32.5, 20.5)])\n"
          ">>> view.find_pixels(rays.origins + rays.directions * 100).round(3).tolist()\n[[32.5, "
          "20.5]]")
      .def("__repr__", [](const View& v) {
        return "<View " + std::to_string(v.width) + "x" + std::to_string(v.height) + " " +
               v.camera.asString() + ">";
      });
  refusePickle(view, "make it from its scene again");
  m.def(
      "make_view",
      [](const StagePtr& stage, const ovo::Path& camera, LensProjection lens, int width, int height,
         Time time, std::optional<double> turn, const std::optional<Extent>& extent) {
        ViewOptions options;
        options.camera = camera;
        options.lens = lens;
        options.width = width;
        options.height = height;
        options.time = time;
        options.turn = turn;
        if (width < 0 || width > 65536) refuse("width: expected 0 to 65536");
        if (height < 0 || height > 65536) refuse("height: expected 0 to 65536");
        const StageReader reader(stage);
        InterruptibleWork work;
        Problem problem;
        std::optional<View> made;
        {
          const Unlocked unlocked;
          if (extent) {
            made = makeView(*stage, options, *extent, &problem, work.work());
          } else {
            MeshFilter filter;
            filter.time = time;
            if (const auto list = listMeshes(*stage, filter, &problem, work.work()))
              made = makeView(*stage, options, extentOf(*list, work.work()), &problem, work.work());
          }
        }
        work.rethrow();
        if (!made) refuseProblem(problem);
        return std::move(*made);
      },
      nb::arg("stage"), nb::arg("camera") = "", nb::kw_only(),
      nb::arg("lens") = LensProjection::none, nb::arg("width") = 0, nb::arg("height") = 0,
      nb::arg("time") = Time(), nb::arg("turn") = nb::none(), nb::arg("extent") = nb::none(),
      "Settles camera, lens and size. Without a camera the scene's first, or a view of all of it; "
      "a "
      "size of 0 is 1280 and the shape of the camera's film. `turn` goes around what there is to "
      "see, in "
      "degrees. LookupError when there is no such camera, ValueError when it cannot be used.");
}

// A caster, and the list that it refers to.
struct Caster {
  MeshListRef list;
  Extent extent;
  std::optional<RayCaster> caster;
};

nb::object intersectWorld(const Caster& self, nb::object origins, nb::object directions,
                          nb::object least, nb::object most, nb::object offsets, int threads) {
  const WorldRayBatch rays(origins, directions, least, most, offsets);
  const StageReader reader(self.list.stage);
  const std::size_t size = rays.size();
  NewArray<double> distance(size);
  NewArray<tarn::Vec3d> position(size);
  NewArray<tarn::Vec3f> normal(size);
  NewArray<std::uint32_t> entry(size);
  NewArray<std::int32_t> face(size);
  NewArray<tarn::Vec3i> points(size), faceVertices(size);
  NewArray<float> u(size), v(size);
  NewArray<bool> hasCorners(size), isHit(size);
  inBatches(size, threads, [&](std::size_t first, std::size_t count) {
    WorldRay in[kAtOnce];
    SurfaceHit out[kAtOnce];
    for (std::size_t from = first; from < first + count; from += kAtOnce) {
      const std::size_t n = std::min(kAtOnce, first + count - from);
      for (std::size_t i = 0; i < n; ++i) in[i] = rays[from + i];
      self.caster->intersect(in, n, out);
      for (std::size_t i = 0; i < n; ++i) {
        // On a miss the other fields say nothing: they get their defaults here.
        const SurfaceHit hit = out[i].hit ? out[i] : SurfaceHit();
        const std::size_t to = from + i;
        distance.data[to] = hit.hit ? hit.distance : std::numeric_limits<double>::max();
        position.data[to] = hit.position();
        normal.data[to] = hit.normal;
        entry.data[to] = hit.entry;
        face.data[to] = hit.face;
        points.data[to] = {hit.points[0], hit.points[1], hit.points[2]};
        faceVertices.data[to] = {hit.faceVertices[0], hit.faceVertices[1], hit.faceVertices[2]};
        u.data[to] = hit.u;
        v.data[to] = hit.v;
        hasCorners.data[to] = hit.hasCorners;
        isHit.data[to] = hit.hit;
      }
    }
  });
  return nb::module_::import_("vela._results")
      .attr("SurfaceHits")(distance.array, position.array, normal.array, entry.array, face.array,
                           points.array, faceVertices.array, u.array, v.array, hasCorners.array,
                           isHit.array);
}

void bindCaster(nb::module_& m) {
  nb::enum_<CasterKind>(m, "CasterKind",
                        "Which structures answer rays.\n\n"
                        ">>> vela.scene.CasterKind.TRACER.value\n0")
      .value("TRACER", CasterKind::tracer)
      .value("HIT_DETECTOR", CasterKind::hitDetector);
  nb::class_<Caster> caster(
      m, "RayCaster",
      "Casts rays of the world into the meshes of a list, and keeps it alive.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> meshes = "
      "vela.scene.list_meshes(stage)\n"
      ">>> caster = vela.scene.RayCaster(meshes)\n"
      ">>> hits = caster.intersect([[0, 1000, 0]], [[0, -1, 0]])\n"
      ">>> hits.hit.tolist(), meshes.name(hits.entry[0]).startswith('/Demo')\n([True], True)");
  caster
      .def(
          "__init__",
          [](Caster* self, const MeshListRef& list, CasterKind kind,
             const std::optional<Extent>& extent, nb::object progress) {
            const StageReader reader(list.stage);
            InterruptibleWork work(std::move(progress));
            Problem problem;
            Caster made{list, {}, {}};
            {
              const Unlocked unlocked;
              made.extent = extent ? *extent : extentOf(*list.list, work.work());
              made.caster =
                  RayCaster::make(kind, *list.list, made.extent, list.time, &problem, work.work());
            }
            work.rethrow();
            if (!made.caster) refuseProblem(problem);
            new (self) Caster(std::move(made));
          },
          nb::arg("meshes"), nb::arg("kind") = CasterKind::tracer, nb::arg("extent") = nb::none(),
          nb::arg("progress") = nb::none(),
          nb::sig("def __init__(self, meshes: MeshList, kind: CasterKind = CasterKind.TRACER, "
                  "extent: Extent | None = None, progress: typing.Callable[[float], object] | None "
                  "= None) -> None"))
      .def("intersect", &intersectWorld, nb::arg("origins"), nb::arg("directions"),
           nb::arg("min_distance") = nb::none(), nb::arg("max_distance") = nb::none(),
           nb::arg("offsets") = nb::none(), nb::arg("threads") = 1,
           nb::sig("def intersect(self, origins: numpy.typing.ArrayLike, directions: "
                   "numpy.typing.ArrayLike, min_distance: numpy.typing.ArrayLike | None = None, "
                   "max_distance: numpy.typing.ArrayLike | None = None, offsets: "
                   "numpy.typing.ArrayLike | None = None, threads: int = 1) -> "
                   "vela._results.SurfaceHits"),
           "The nearest hit of each ray: origins (n, 3) float64, directions (n, 3) float32, ranges "
           "a "
           "number or (n,), closed at both ends. Rays start at origins + offsets where there are "
           "any.")
      .def(
          "intersect_rays",
          [](const Caster& self, nb::object rays, int threads) {
            return intersectWorld(self, rays.attr("bases"), rays.attr("directions"),
                                  rays.attr("min_distance"), rays.attr("max_distance"),
                                  rays.attr("offsets"), threads);
          },
          nb::arg("rays"), nb::arg("threads") = 1,
          nb::sig("def intersect_rays(self, rays: vela._results.WorldRays, threads: int = 1) -> "
                  "vela._results.SurfaceHits"),
          "The same for the rays of a view.")
      .def(
          "occluded",
          [](const Caster& self, nb::object origins, nb::object directions, nb::object least,
             nb::object most, nb::object offsets, int threads) {
            const WorldRayBatch rays(origins, directions, least, most, offsets);
            const StageReader reader(self.list.stage);
            NewArray<bool> out(rays.size());
            inBatches(rays.size(), threads, [&](std::size_t first, std::size_t count) {
              WorldRay in[kAtOnce];
              for (std::size_t from = first; from < first + count; from += kAtOnce) {
                const std::size_t n = std::min(kAtOnce, first + count - from);
                for (std::size_t i = 0; i < n; ++i) in[i] = rays[from + i];
                self.caster->occluded(in, n, out.data + from);
              }
            });
            return NumpyArray<bool>{out.array};
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("min_distance") = nb::none(),
          nb::arg("max_distance") = nb::none(), nb::arg("offsets") = nb::none(),
          nb::arg("threads") = 1,
          nb::sig("def occluded(self, origins: numpy.typing.ArrayLike, directions: "
                  "numpy.typing.ArrayLike, min_distance: numpy.typing.ArrayLike | None = None, "
                  "max_distance: numpy.typing.ArrayLike | None = None, offsets: "
                  "numpy.typing.ArrayLike | None = None, threads: int = 1) -> "
                  "numpy.typing.NDArray[numpy.bool_]"),
          "Whether anything lies in each ray's range, (n,) bool.")
      .def(
          "object_points",
          [](const Caster& self, Py_ssize_t entryIn, const In<tarn::Vec3d>& positionsIn) {
            const std::size_t entry = indexOf(entryIn, self.list.list->entries.size(), "entries");
            const auto positions = positionsIn.read("positions");
            const tarn::Mat4d objectFromWorld =
                self.list.list->entries[entry].worldFromObject.inverse();
            NewArray<tarn::Vec3f> out(positions.size());
            for (std::size_t i = 0; i < positions.size(); ++i)
              out.data[i] = tarn::Vec3f(objectFromWorld.transformPoint(positions.data()[i]));
            return NumpyArray<float>{out.array};
          },
          nb::arg("entry"), nb::arg("positions"),
          "Positions of the world (n, 3) in the space of an entry's shape, for Surface.")
      .def_prop_ro(
          "meshes", [](const Caster& c) { return c.list; }, "The list.")
      .def_prop_ro(
          "extent", [](const Caster& c) { return c.extent; }, "The extent of the list.")
      .def(
          "problems", [](const Caster& c) { return c.caster->problems(); },
          "What the caster does not take, as notes.")
      .def("__repr__", [](const Caster& c) {
        return "<RayCaster of " + std::to_string(c.list.list->entries.size()) + " entries>";
      });
  refusePickle(caster, "its trees are built in memory");
}

// A surface, and which of its faces it may be asked about.
struct CheckedSurface {
  CheckedSurface(const Shape& shape, double time, bool smooth)
      : surface(shape, time, smooth), usable(shape.counts.size()) {
    for (const ovo::Face face : ovo::Faces(shape.counts, shape.indices))
      usable[face.index()] = shape.tubes ? !face.empty() : face.isUsable(shape.points.size());
  }
  // What `ask` answers for each pair of a face and a point.
  template <class T, class Ask>
  NewArray<T> each(const In<int>& facesIn, const In<tarn::Vec3f>& pointsIn, const Ask& ask) const {
    const auto faces = facesIn.read("faces");
    const auto points = pointsIn.read("points");
    if (faces.size() != points.size())
      refuse("points: expected " + std::to_string(faces.size()) + " rows as faces, found " +
             std::to_string(points.size()));
    for (const int face : faces.span())
      if (face < 0 || static_cast<std::size_t>(face) >= usable.size() ||
          !usable[static_cast<std::size_t>(face)])
        refuse("faces: " + std::to_string(face) + " is no face that a ray can meet");
    NewArray<T> out(faces.size());
    for (std::size_t i = 0; i < faces.size(); ++i)
      out.data[i] = ask(SurfacePoint(faces.data()[i], points.data()[i]));
    return out;
  }
  Surface surface;
  std::vector<bool> usable;
};

void bindSurface(nb::module_& m) {
  using S = CheckedSurface;
  nb::class_<S> surface(
      m, "Surface",
      "The values of a mesh between its points: colours, normals, primvars. Faces (n,) are the "
      "shape's, "
      "points (n, 3) in the object's space.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> shape = vela.scene.read_shape(stage.meshes()[0])\n"
      ">>> vela.scene.Surface(shape).colour([0], [shape.points[shape.indices[0]]]).shape\n(1, 3)");
  surface
      .def(
          "__init__",
          [](S* self, const Shape& shape, Time time, bool smooth) {
            if (shape.prim.getStage()) requireOpen(shape.prim);
            new (self) S(shape, time, smooth);
          },
          nb::arg("shape"), nb::arg("time") = Time(), nb::arg("smooth") = false)
      .def(
          "colour",
          [](const S& s, const In<int>& faces, const In<tarn::Vec3f>& points) {
            return s.each<tarn::Vec3f>(faces, points,
                                       [&s](const SurfacePoint& p) { return s.surface.colour(p); });
          },
          nb::arg("faces"), nb::arg("points"), "displayColor, (n, 3); a grey where there is none.")
      .def_prop_ro(
          "has_own_colour", [](const S& s) { return s.surface.hasOwnColour(); },
          "True when the scene gives the mesh a colour.")
      .def(
          "add_primvar",
          [](S& s, const ovo::Token& name, int components) {
            if (components < 1 || components > 4) refuse("components: expected 1 to 4");
            return s.surface.addPrimvar(name, components);
          },
          nb::arg("name"), nb::arg("components"),
          "Reads a primvar of so many numbers; its number for `primvar`, None without.")
      .def(
          "primvar",
          [](S& s, std::size_t number, const In<int>& faces, const In<tarn::Vec3f>& points) {
            return s.each<tarn::Vec4f>(
                faces, points, [&](const SurfacePoint& p) { return s.surface.primvar(number, p); });
          },
          nb::arg("number"), nb::arg("faces"), nb::arg("points"), "Its values, (n, 4).")
      .def_prop_ro(
          "has_own_normals", [](const S& s) { return s.surface.hasOwnNormals(); },
          "True when there are normals beside the faces'.")
      .def(
          "normal",
          [](const S& s, const In<int>& faces, const In<tarn::Vec3f>& points) {
            if (!s.surface.hasOwnNormals()) refuse("the surface has no normals of its own");
            return s.each<tarn::Vec3f>(faces, points,
                                       [&s](const SurfacePoint& p) { return s.surface.normal(p); });
          },
          nb::arg("faces"), nb::arg("points"), "Normals in object space, of any length, (n, 3).")
      .def(
          "set_selection",
          [](S& s, bool whole, const In<float>& faces, const In<float>& points) {
            s.surface.setSelection(whole, faces.read("faces").vector(),
                                   points.read("points").vector());
          },
          nb::arg("whole"), nb::arg("faces"), nb::arg("points"),
          "What is selected: all of it, or values for faces (n,) and points (n,).")
      .def(
          "selection",
          [](const S& s, const In<int>& faces, const In<tarn::Vec3f>& points) {
            return s.each<float>(faces, points,
                                 [&s](const SurfacePoint& p) { return s.surface.selection(p); });
          },
          nb::arg("faces"), nb::arg("points"), "How much is selected, 0 to 1, (n,).")
      .def_prop_ro(
          "is_left_handed", [](const S& s) { return s.surface.isLeftHanded(); }, "By the prim.")
      .def_prop_ro(
          "face_count", [](const S& s) { return s.surface.faceCount(); }, "How many faces.")
      .def_prop_ro(
          "triangle_count", [](const S& s) { return s.surface.triangleCount(); },
          "Triangles when cut.")
      .def("__repr__", [](const S& s) {
        return "<Surface of " + std::to_string(s.surface.faceCount()) + " faces>";
      });
  refusePickle(surface, "it is read from a shape");
  m.def(
      "carry_over_refined",
      [](const Shape& shape, const ovo::Token& interpolation, const In<tarn::Vec3f>& valuesIn,
         Time time) {
        if (!shape.refinement) refuse("the shape is not refined");
        if (shape.prim.getStage()) requireOpen(shape.prim);
        ovo::Array<tarn::Vec3f> values = valuesIn.read("values").array();
        if (!carryOverRefined(shape, time, interpolation, values))
          refuse("values: too few, or of no known interpolation");
        return shareOut(values);
      },
      nb::arg("shape"), nb::arg("interpolation"), nb::arg("values"), nb::arg("time") = Time(),
      "Values (n, 3) on a refined shape's control mesh, carried over as colours are.");
  m.def(
      "spread_over_refined_points",
      [](const Shape& shape, const In<tarn::Vec3f>& valuesIn, Time time) {
        if (!shape.refinement) refuse("the shape is not refined");
        if (shape.prim.getStage()) requireOpen(shape.prim);
        const auto values = valuesIn.read("values");
        if (values.size() != shape.refinement->points.size())
          refuse("values: expected one row a control point");
        return shareOut(spreadOverRefinedPoints(shape, time, values.array()));
      },
      nb::arg("shape"), nb::arg("values"), nb::arg("time") = Time(),
      "Values (points, 3) at a refined shape's control points, spread linearly over the refined "
      "ones.");
}

void bindPicking(nb::module_& m) {
  nb::enum_<PickedPart>(m, "PickedPart",
                        "What of the meshes is picked.\n\n"
                        ">>> vela.scene.PickedPart.FACES.value\n1")
      .value("OBJECTS", PickedPart::objects)
      .value("FACES", PickedPart::faces)
      .value("VERTICES", PickedPart::vertices);
  m.def(
      "pick_rect",
      [](const Caster& caster, const View& view, std::tuple<int, int, int, int> corners,
         bool through, PickedPart part) {
        const auto [x0, y0, x1, y1] = corners;
        if (x0 > x1 || y0 > y1)
          refuse("rect: expected (x0, y0, x1, y1) with x0 <= x1 and y0 <= y1");
        const StageReader reader(caster.list.stage);
        InterruptibleWork work;
        Selection::GeoSelection selection;
        // Beyond the picture nothing is met; a rectangle of all integers is not walked for that.
        const PixelRect rect{std::max(x0, 0), std::max(y0, 0), std::min(x1, view.width - 1),
                             std::min(y1, view.height - 1)};
        if (rect.x0 <= rect.x1 && rect.y0 <= rect.y1) {
          const Unlocked unlocked;
          (void)pickRect(*caster.list.list, *caster.caster, view, rect, through, part, selection,
                         work.work());
        }
        work.rethrow();
        return selection;
      },
      nb::arg("caster"), nb::arg("view"), nb::arg("rect"), nb::arg("through") = false,
      nb::arg("part") = PickedPart::objects,
      "Picks through a rectangle of pixels (x0, y0, x1, y1), both corners included: what shows, or "
      "with "
      "`through` all that rays meet. Instances select their prototype.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))\n"
      ">>> view = vela.scene.make_view(stage, width=64, height=36)\n"
      ">>> len(vela.scene.pick_rect(caster, view, (20, 10, 40, 30))) > 0\nTrue");
}

void bindExplain(nb::module_& m) {
  nb::enum_<RayVerdict>(m, "RayVerdict",
                        "What becomes of a mesh along a ray.\n\n"
                        ">>> vela.scene.RayVerdict.SHOWS.value\n0")
      .value("SHOWS", RayVerdict::shows)
      .value("BEHIND", RayVerdict::behind)
      .value("CLIPPED", RayVerdict::clipped)
      .value("MISSED", RayVerdict::missed)
      .value("CULLED", RayVerdict::culled)
      .value("DEGENERATE", RayVerdict::degenerate)
      .value("NOT_TAKEN", RayVerdict::notTaken);
  nb::enum_<HiddenBy>(m, "HiddenBy",
                      "Why the filter leaves a mesh out.\n\n>>> vela.scene.HiddenBy.MASK.value\n2")
      .value("NOTHING", HiddenBy::nothing)
      .value("EXCLUDE", HiddenBy::exclude)
      .value("MASK", HiddenBy::mask)
      .value("TYPE", HiddenBy::type)
      .value("VISIBILITY", HiddenBy::visibility)
      .value("PURPOSE", HiddenBy::purpose);
  Record<RayOutcome>(m, "RayOutcome",
                     "What one way of answering rays makes of a mesh.\n\n"
                     ">>> vela.scene.RayOutcome().face\n-1")
      .field("verdict", &RayOutcome::verdict, "What becomes of it.")
      .field("distance", &RayOutcome::distance, "In units of the ray's direction.")
      .field("face", &RayOutcome::face, "The scene's index; -1 without a hit.");
  Record<RayItem>(m, "RayItem",
                  "One mesh, or one instance of one.\n\n>>> vela.scene.RayItem().purpose\n''")
      .field("name", &RayItem::name, "As MeshList.name has it.")
      .field("type", &RayItem::type, "Of the prim.")
      .field("hidden_by", &RayItem::hiddenBy, "Why the filter leaves it out.")
      .field("purpose", &RayItem::purpose, "Of the prim.")
      .part("tracer", &RayItem::tracer, "By the tracer.")
      .part("detector", &RayItem::detector, "By the hit detector.");
  Record<RayExplanation>(m, "RayExplanation",
                         "Why a ray meets what it meets.\n\n"
                         ">>> vela.scene.RayExplanation().culled\n0")
      .field("items", &RayExplanation::items, "By the tracer's distance.")
      .field("culled", &RayExplanation::culled, "Whose boxes the ray does not enter.")
      .field("without_faces", &RayExplanation::withoutFaces, "Prims that no ray can meet.");
  m.def(
      "explain_ray",
      [](const StagePtr& stage, const tarn::Vec3d& origin, const tarn::Vec3f& direction,
         const std::optional<MeshFilter>& filter, float least, float most, bool withCulled) {
        const StageReader reader(stage);
        const MeshFilter wanted = filter ? *filter : MeshFilter();
        WorldRay ray;
        ray.base = origin;
        ray.direction = direction;
        ray.minDistance = least;
        ray.maxDistance = most;
        InterruptibleWork work;
        auto found = [&] {
          const Unlocked unlocked;
          return explainRay(*stage, wanted, ray, withCulled, work.work());
        }();
        work.rethrow();
        if (!found) {
          PyErr_SetString(PyExc_MemoryError, "more instances than memory is likely to hold");
          throw nb::python_error();
        }
        return *found;
      },
      nb::arg("stage"), nb::arg("origin"), nb::arg("direction"), nb::arg("filter") = nb::none(),
      nb::arg("min_distance") = 0.0f, nb::arg("max_distance") = std::numeric_limits<float>::max(),
      nb::arg("with_culled") = false,
      "Explains a ray mesh by mesh, by the tracer and by the hit detector side by side.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n"
      ">>> why = vela.scene.explain_ray(stage, [0, 200, 0], [0, -1, 0])\n"
      ">>> why.items[0].tracer.verdict.name\n'SHOWS'");
}

}  // namespace

void bindSceneRays(nb::module_& m) {
  bindView(m);
  bindCaster(m);
  bindSurface(m);
  bindPicking(m);
  bindExplain(m);
}

}  // namespace vela::python
