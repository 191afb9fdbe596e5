// The given ray tests, models, structures and hit detection.
#include "vela/intersect/Intersection.h"

#include <nanobind/trampoline.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "RayBatch.h"
#include "Records.h"
#include "ovo/MeshPrim.h"
#include "vela/intersect/Acceleration.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/HitDetect.h"

namespace vela::python {

namespace {

using Context = IntersectionContext;
using Result = CollisionResult;
using Ray = tarn::Ray3f;
using tarn::Vec3f;

// A model that Python has written. Its calls need the interpreter, which the batches below give up:
// structures over such a model are asked with the interpreter's lock held.
struct PythonModel : AccelerationModel {
  NB_TRAMPOLINE(AccelerationModel);
  std::size_t size() const override { NB_OVERRIDE_PURE_NAME("size", size); }
  tarn::Box3f bounds(std::size_t i) const override {
    NB_OVERRIDE_PURE_NAME("primitive_bounds", bounds, i);
  }
  tarn::Box3f bounds() const override { NB_OVERRIDE_PURE_NAME("bounds", bounds); }
  bool intersect(const Context& context, const Ray& ray, std::size_t i,
                 Result& result) const override {
    // By value, since Python gives a result back instead of filling one in.
    const nb::detail::ticket ticket(nb_trampoline, "intersect", nb::detail::str_hash("intersect"),
                                    true);
    const nb::object found = nb_trampoline.base().attr(ticket.key)(context, ray, i);
    if (found.is_none()) return false;
    result = nb::cast<const Result&>(found);
    return true;
  }
  bool exclude(const Context&, std::size_t) const override { return false; }
};

bool needsPython(const AccelerationModel& model) {
  return dynamic_cast<const PythonModel*>(&model) != nullptr;
}

// Any number of rays through `ask(ray, result)`.
template <class Ask>
nb::object batch(nb::handle origins, nb::handle directions, nb::handle least, nb::handle most,
                 int threads, bool withPython, const Ask& ask) {
  const RayBatch<float> rays(origins, directions, least, most);
  const std::size_t size = rays.size();
  NewArray<float> distance(size);
  NewArray<Vec3f> position(size), normal(size);
  NewArray<std::uint32_t> primitive(size);
  NewArray<std::int32_t> face(size);
  NewArray<bool> isHit(size);
  const auto run = [&](std::size_t first, std::size_t count) {
    for (std::size_t i = first; i < first + count; ++i) {
      Result result;
      ask(rays[i], result);
      distance.data[i] = result.distance;
      position.data[i] = result.position;
      normal.data[i] = result.normal;
      primitive.data[i] = result.primitiveIndex;
      face.data[i] = result.faceIndex;
      isHit.data[i] = result.hit;
    }
  };
  if (withPython)
    run(0, size);
  else
    inBatches(size, threads, run);
  return nb::module_::import_("vela._results")
      .attr("Collisions")(distance.array, position.array, normal.array, primitive.array, face.array,
                          isHit.array);
}

void bindRecords(nb::module_& m) {
  {
    Record<Context> r(m, "IntersectionContext",
                      "What a query wants.\n\n"
                      ">>> vela.IntersectionContext(nearest_hit=False).nearest_hit\nFalse");
    r.field("nearest_hit", &Context::nearestHit,
            "True: the nearest hit; False: whichever comes first.")
        .field("excluded_paths", &Context::excludedPaths,
               "Prims that are never hit: a set of paths.")
        .field("included_type_names", &Context::includedTypeNames,
               "When not empty: only prims of these types can be hit.");
  }
  {
    Record<Result> r(m, "CollisionResult",
                     "What a query found.\n\n>>> vela.CollisionResult().hit\nFalse");
    r.field("distance", &Result::distance, "In units of the ray's direction.")
        .field("normal", &Result::normal, "(3,), by the winding of the triangle.")
        .field("position", &Result::position, "(3,).")
        .field("primitive_index", &Result::primitiveIndex, "Which primitive of the model.")
        .field("face_index", &Result::faceIndex, "Which face of the primitive or mesh.")
        .field("hit", &Result::hit, "Whether anything was met.");
    r.type().def("__bool__", [](const Result& result) { return result.hit; });
  }
}

void bindTests(nb::module_& m) {
  m.def(
      "intersect_triangle",
      [](const tarn::Vec3d& origin, const Vec3f& a, const Vec3f& b, const Vec3f& c,
         const RayContext& ray, std::optional<bool> front)
          -> std::optional<std::tuple<tarn::Vec2f, tarn::Vec2f, tarn::Vec2f, float>> {
        tarn::Vec2f uv, uvDx, uvDy;
        float t = 0.0f;
        const bool isHit =
            front ? intersectTriangleSided(*front, origin, a, b, c, ray, uv, uvDx, uvDy, t)
                  : intersectTriangle(origin, a, b, c, ray, uv, uvDx, uvDy, t);
        if (!isHit) return std::nullopt;
        return std::tuple(uv, uvDx, uvDy, t);
      },
      nb::arg("mesh_origin"), nb::arg("a"), nb::arg("b"), nb::arg("c"), nb::arg("ray"),
      nb::arg("front_side") = nb::none(),
      "Tests a RayContext against a triangle about a point: (uv, uv_dx, uv_dy, distance), or None "
      "on a "
      "miss. With `front_side` for one side alone.\n\n"
      ">>> ray = vela.RayContext()\n>>> ray.set_geom([0.25, 0.25, 1], [0, 0, -1], 0, 10)\n"
      ">>> uv, _, _, t = vela.intersect_triangle([0, 0, 0], [0, 0, 0], [1, 0, 0], [0, 1, 0], ray)\n"
      ">>> uv.tolist(), t\n([0.25, 0.25], 1.0)");
  m.def(
      "intersect_box",
      [](const Ray& ray, const tarn::Box3f& box) -> std::optional<std::tuple<float, float>> {
        float tNear = 0.0f, tFar = 0.0f;
        if (!Intersect(ray, box, tNear, tFar)) return std::nullopt;
        return std::tuple(tNear, tFar);
      },
      nb::arg("ray"), nb::arg("box"),
      "The part (near, far) of a ray's range in a box; None on a miss.\n\n"
      ">>> ray = vela.tarn.Ray3f([0, 0, 5], [0, 0, -1])\n"
      ">>> vela.intersect_box(ray, vela.tarn.Box3f([-1, -1, -1], [1, 1, 1]))\n(4.0, 6.0)");
  m.def(
      "intersect_ray_triangle",
      [](const Ray& ray, const Vec3f& a, const Vec3f& b, const Vec3f& c) -> std::optional<Result> {
        Result result;
        if (!Intersect(ray, a, b, c, result)) return std::nullopt;
        return result;
      },
      nb::arg("ray"), nb::arg("a"), nb::arg("b"), nb::arg("c"),
      "Tests a ray against one two-sided triangle; None on a miss.\n\n"
      ">>> ray = vela.tarn.Ray3f([0.25, 0.25, 3], [0, 0, -1])\n"
      ">>> vela.intersect_ray_triangle(ray, [0, 0, 0], [1, 0, 0], [0, 1, 0]).distance\n3.0");
  m.def(
      "intersect_mesh",
      [](const Context& context, const Ray& ray, const In<Vec3f>& points, const In<int>& counts,
         const In<int>& indices) -> std::optional<Result> {
        Result result;
        if (!Intersect(context, ray, points.read("points").array(), counts.read("counts").array(),
                       indices.read("indices").array(), result))
          return std::nullopt;
        return result;
      },
      nb::arg("context"), nb::arg("ray"), nb::arg("points"), nb::arg("counts"), nb::arg("indices"),
      "Tests a ray against a polygon mesh, face by face; None on a miss.\n\n"
      ">>> ray = vela.tarn.Ray3f([0.5, 0.25, 3], [0, 0, -1])\n"
      ">>> square = [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]]\n"
      ">>> vela.intersect_mesh(vela.IntersectionContext(), ray, square, [4], [0, 1, 2, "
      "3]).distance\n"
      "3.0");
}

void bindModels(nb::module_& m) {
  nb::class_<AccelerationModel, PythonModel> model(
      m, "AccelerationModel",
      "A list of primitives with boxes. Derive from it to put primitives of your own into a "
      "structure: "
      "size(), primitive_bounds(i), bounds() and intersect(context, ray, i), which gives a "
      "CollisionResult or None. Calls of such a model hold the interpreter's lock.\n\n"
      ">>> issubclass(vela.TriangleAccelerationModel, vela.AccelerationModel)\nTrue");
  model.def(nb::init<>())
      .def(
          "size", [](const AccelerationModel& a) { return a.size(); }, "Number of primitives.")
      .def("__len__", [](const AccelerationModel& a) { return a.size(); })
      .def(
          "primitive_bounds",
          [](const AccelerationModel& a, Py_ssize_t i) {
            return a.bounds(indexOf(i, a.size(), "primitives"));
          },
          nb::arg("index"), "Box of one primitive; may be empty.")
      .def(
          "bounds", [](const AccelerationModel& a) { return a.bounds(); }, "Box of all primitives.")
      .def(
          "intersect",
          [](const AccelerationModel& a, const Context& context, const Ray& ray,
             Py_ssize_t i) -> std::optional<Result> {
            Result result;
            if (!a.intersect(context, ray, indexOf(i, a.size(), "primitives"), result))
              return std::nullopt;
            return result;
          },
          nb::arg("context"), nb::arg("ray"), nb::arg("index"),
          "Tests one primitive; None on a miss.")
      .def(
          "exclude",
          [](const AccelerationModel& a, const Context& context, Py_ssize_t i) {
            return a.exclude(context, indexOf(i, a.size(), "primitives"));
          },
          nb::arg("context"), nb::arg("index"), "True when the context rules the primitive out.");
  refusePickle(model, "structures refer to it; pickle what it is made from");

  nb::class_<TriangleAccelerationModel, AccelerationModel>(
      m, "TriangleAccelerationModel",
      "The triangles of one polygon mesh, in the order of its faces.\n\n"
      ">>> square = [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]]\n"
      ">>> model = vela.TriangleAccelerationModel(square, [4], [0, 1, 2, 3])\n"
      ">>> model.size(), model.face_index(1)\n(2, 0)")
      .def(
          "__init__",
          [](TriangleAccelerationModel* self, const In<Vec3f>& points, const In<int>& counts,
             const In<int>& indices) {
            new (self) TriangleAccelerationModel(points.read("points").array(),
                                                 counts.read("counts").array(),
                                                 indices.read("indices").array());
          },
          nb::arg("points"), nb::arg("counts"), nb::arg("indices"))
      .def(
          "__init__",
          [](TriangleAccelerationModel* self, const ovo::MeshPrim& mesh, Time time) {
            requireOpen(mesh);
            new (self) TriangleAccelerationModel(mesh, time);
          },
          nb::arg("mesh"), nb::arg("time") = Time())
      .def(
          "face_index",
          [](const TriangleAccelerationModel& t, Py_ssize_t i) {
            return t.faceIndex(indexOf(i, t.size(), "triangles"));
          },
          nb::arg("index"), "Number of the face that a triangle came from.");

  using Prims = PrimAccelerationModel;
  nb::class_<Prims, AccelerationModel>(
      m, "PrimAccelerationModel",
      "Mesh prims of a scene, each placed by its world transform.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> model = vela.PrimAccelerationModel()\n"
      ">>> model.add_mesh_prims(stage) == model.size() == len(model)\nTrue")
      .def(
          "__init__", [](Prims* self, Time time) { new (self) Prims(time); },
          nb::arg("time") = Time())
      .def(
          "prim",
          [](const Prims& p, Py_ssize_t i) {
            return p[static_cast<int>(indexOf(i, p.size(), "entries"))];
          },
          nb::arg("index"), "The prim of an entry.")
      .def(
          "add_mesh_prims",
          [](Prims& p, nb::handle what, Time time) {
            std::string why;
            std::size_t added = 0;
            if (nb::isinstance<ovo::Stage>(what)) {
              const auto stage = nb::cast<std::shared_ptr<ovo::Stage>>(what);
              requireOpen(stage);
              added = p.addMeshPrims(stage, time, &why);
            } else if (nb::isinstance<ovo::Prim>(what)) {
              const auto prim = nb::cast<ovo::Prim>(what);
              requireOpen(prim);
              added = p.addMeshPrims(prim, time, &why);
            } else {
              const auto meshes = nb::cast<std::vector<ovo::MeshPrim>>(what);
              for (const ovo::MeshPrim& mesh : meshes) requireOpen(mesh);
              added = p.addMeshPrims(meshes, time, &why);
            }
            if (!why.empty()) warn(why);
            return added;
          },
          nb::arg("what"), nb::arg("time") = Time(),
          nb::sig("def add_mesh_prims(self, what: vela._vela.ovo.Stage | vela._vela.ovo.Prim | "
                  "typing.Sequence[vela._vela.ovo.MeshPrim], time: float | None = None) -> int"),
          "Adds every mesh of a stage, of a prim's subtree, or the given ones; a VelaWarning names "
          "the "
          "first that no ray can hit. Returns how many were added.");
}

void bindStructures(nb::module_& m) {
  nb::class_<Acceleration> acceleration(
      m, "Acceleration",
      "What every structure over a model can do. It keeps its model alive.\n\n"
      ">>> square = [[0, 0, 0], [1, 0, 0], [1, 1, 1], [0, 1, 1]]\n"
      ">>> model = vela.TriangleAccelerationModel(square, [4], [0, 1, 2, 3])\n"
      ">>> tree = vela.BvhAcceleration(model)\n"
      ">>> tree.intersect([[0.5, 0.5, 5]], [[0, 0, -1]]).distance.tolist()\n[4.5]");
  acceleration
      .def(
          "intersect",
          [](const Acceleration& a, nb::object origins, nb::object directions,
             const std::optional<Context>& context, nb::object least, nb::object most,
             int threads) {
            const Context wanted = context ? *context : Context();
            return batch(origins, directions, least, most, threads, needsPython(a.model()),
                         [&](const Ray& ray, Result& result) { a.intersect(wanted, ray, result); });
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("context") = nb::none(),
          nb::arg("min_distance") = nb::none(), nb::arg("max_distance") = nb::none(),
          nb::arg("threads") = 1,
          nb::sig(
              "def intersect(self, origins: numpy.typing.ArrayLike, directions: "
              "numpy.typing.ArrayLike, context: IntersectionContext | None = None, min_distance: "
              "numpy.typing.ArrayLike | None = None, max_distance: numpy.typing.ArrayLike | None = "
              "None, threads: int = 1) -> vela._results.Collisions"),
          "What rays meet: origins and directions (n, 3). Hits count strictly inside the range.")
      .def(
          "intersect_ray",
          [](const Acceleration& a, const Ray& ray,
             const std::optional<Context>& context) -> std::optional<Result> {
            Result result;
            if (!a.intersect(context ? *context : Context(), ray, result)) return std::nullopt;
            return result;
          },
          nb::arg("ray"), nb::arg("context") = nb::none(), "What one ray meets; None on a miss.")
      .def(
          "boxes",
          [](const Acceleration& a) {
            // The callback is a plain function, so the boxes go to where it finds them.
            static thread_local std::vector<std::pair<tarn::Box3f, tarn::Vec4f>>* into = nullptr;
            std::vector<std::pair<tarn::Box3f, tarn::Vec4f>> boxes;
            into = &boxes;
            a.draw([](const tarn::Box3f& box, const tarn::Vec4f& colour) {
              into->emplace_back(box, colour);
            });
            into = nullptr;
            nb::list out;
            for (const auto& [box, colour] : boxes) out.append(nb::make_tuple(box, colour));
            return out;
          },
          nb::sig("def boxes(self) -> list[tuple[vela._vela.tarn.Box3f, "
                  "numpy.typing.NDArray[numpy.float32]]]"),
          "The structure as boxes, each with its colour (4,).")
      .def_prop_ro(
          "model", [](const Acceleration& a) -> const AccelerationModel& { return a.model(); },
          nb::rv_policy::reference, "The model.");
  refusePickle(acceleration, "it is built in memory over a model");
  nb::class_<NoAcceleration, Acceleration>(
      m, "NoAcceleration",
      "Tests every primitive in order; always the nearest hit.\n\n"
      ">>> model = vela.TriangleAccelerationModel([[0, 0, 0], [1, 0, 0], [0, 1, 1]], [3], [0, 1, "
      "2])\n"
      ">>> vela.NoAcceleration(model).model is model\nTrue")
      .def(nb::init<const AccelerationModel&>(), nb::arg("model"), nb::keep_alive<1, 2>());
  nb::class_<GridAcceleration, Acceleration>(
      m, "GridAcceleration",
      "A uniform grid: the first occupied cell along the ray ends the query.\n\n"
      ">>> model = vela.TriangleAccelerationModel([[0, 0, 0], [1, 0, 0], [0, 1, 1]], [3], [0, 1, "
      "2])\n"
      ">>> all(1 <= cells <= 64 for cells in vela.GridAcceleration(model).resolution)\nTrue")
      .def(nb::init<const AccelerationModel&>(), nb::arg("model"), nb::keep_alive<1, 2>())
      .def_prop_ro(
          "resolution", [](const GridAcceleration& g) { return g.resolution(); },
          "Cells along x, y and z; all 0 when the grid is empty.");
  nb::class_<BvhAcceleration, Acceleration>(
      m, "BvhAcceleration",
      "A tree of boxes over the primitives of any model.\n\n"
      ">>> model = vela.TriangleAccelerationModel([[0, 0, 0], [1, 0, 0], [0, 1, 1]], [3], [0, 1, "
      "2])\n"
      ">>> len(vela.BvhAcceleration(model, use_sah=False).boxes())\n1")
      .def(nb::init<const AccelerationModel&, bool>(), nb::arg("model"), nb::arg("use_sah") = true,
           nb::keep_alive<1, 2>());
  nb::class_<MeshAccelerator> mesh(
      m, "MeshAccelerator",
      "One mesh with a grid over its triangles, in its local space.\n\n"
      ">>> mesh = vela.MeshAccelerator([[0, 0, 0], [1, 0, 0], [0, 1, 1]], [3], [0, 1, 2], 7)\n"
      ">>> mesh.intersect([[0.25, 0.25, 5]], [[0, 0, -1]]).primitive_index.tolist()\n[7]");
  mesh.def(
          "__init__",
          [](MeshAccelerator* self, const In<Vec3f>& points, const In<int>& counts,
             const In<int>& indices, std::size_t id) {
            new (self) MeshAccelerator(points.read("points").array(), counts.read("counts").array(),
                                       indices.read("indices").array(), id);
          },
          nb::arg("points"), nb::arg("counts"), nb::arg("indices"), nb::arg("id") = 0)
      .def(
          "__init__",
          [](MeshAccelerator* self, const ovo::MeshPrim& prim, std::size_t id, Time time) {
            requireOpen(prim);
            new (self) MeshAccelerator(prim, id, time);
          },
          nb::arg("mesh"), nb::arg("id") = 0, nb::arg("time") = Time())
      .def(
          "intersect",
          [](const MeshAccelerator& a, nb::object origins, nb::object directions,
             const std::optional<Context>& context, nb::object least, nb::object most,
             int threads) {
            const Context wanted = context ? *context : Context();
            return batch(origins, directions, least, most, threads, false,
                         [&](const Ray& ray, Result& result) { a.intersect(wanted, ray, result); });
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("context") = nb::none(),
          nb::arg("min_distance") = nb::none(), nb::arg("max_distance") = nb::none(),
          nb::arg("threads") = 1,
          nb::sig(
              "def intersect(self, origins: numpy.typing.ArrayLike, directions: "
              "numpy.typing.ArrayLike, context: IntersectionContext | None = None, min_distance: "
              "numpy.typing.ArrayLike | None = None, max_distance: numpy.typing.ArrayLike | None = "
              "None, threads: int = 1) -> vela._results.Collisions"),
          "The grid's answers, as Acceleration.intersect.");
  refusePickle(mesh, "it is built in memory; pickle the arrays of its mesh");
}

// A model of a scene, and the scene that its rays read meshes from.
struct DetectModel {
  std::unique_ptr<HitDetectModel> model;
  std::unique_ptr<HitDetector> detector;
  std::shared_ptr<ovo::Stage> stage;
};

void bindDetector(nb::module_& m) {
  nb::class_<DetectModel> detector(
      m, "HitDetector",
      "Picking in a scene: rays in world space against all its meshes, by a tree over the prims "
      "and a "
      "grid over each. Where the true nearest surface matters take SceneTracer. Points of a mesh "
      "are "
      "read when the first ray reaches it, and always at the default time.\n\n"
      ">>> stage = vela.open('examples/demo/demo.usda')\n>>> detector = vela.HitDetector(stage)\n"
      ">>> found = detector.intersect([[0, 1000, 0]], [[0, -1, 0]])\n"
      ">>> found.hit.tolist(), detector.prim(found.primitive_index[0]).type_name\n([True], "
      "'Mesh')");
  detector
      .def(
          "__init__",
          [](DetectModel* self, nb::handle what, Time time) {
            auto* const made = new (self) DetectModel;
            std::string why;
            if (nb::isinstance<ovo::Stage>(what)) {
              made->stage = nb::cast<std::shared_ptr<ovo::Stage>>(what);
              requireOpen(made->stage);
              made->model = std::make_unique<HitDetectModel>(made->stage, time, &why);
            } else if (nb::isinstance<ovo::Prim>(what)) {
              const auto prim = nb::cast<ovo::Prim>(what);
              requireOpen(prim);
              made->stage = prim.getStage();
              made->model = std::make_unique<HitDetectModel>(prim, time, &why);
            } else {
              const auto meshes = nb::cast<std::vector<ovo::MeshPrim>>(what);
              for (const ovo::MeshPrim& mesh : meshes) requireOpen(mesh);
              if (!meshes.empty()) made->stage = meshes[0].getStage();
              made->model = std::make_unique<HitDetectModel>(meshes, time, &why);
            }
            made->detector = std::make_unique<HitDetector>(*made->model);
            if (!why.empty()) warn(why);
          },
          nb::arg("what"), nb::arg("time") = Time(),
          nb::sig("def __init__(self, what: vela._vela.ovo.Stage | vela._vela.ovo.Prim | "
                  "typing.Sequence[vela._vela.ovo.MeshPrim], time: float | None = None) -> None"))
      .def("__len__", [](const DetectModel& d) { return d.model->model().size(); })
      .def(
          "prim",
          [](const DetectModel& d, Py_ssize_t i) {
            return d.model
                ->model()[static_cast<int>(indexOf(i, d.model->model().size(), "entries"))];
          },
          nb::arg("index"), "The prim of an entry, as `primitive_index` counts them.")
      .def(
          "bounds", [](const DetectModel& d) { return d.model->model().bounds(); },
          "The world box of all entries.")
      .def(
          "intersect",
          [](const DetectModel& d, nb::object origins, nb::object directions,
             const std::optional<Context>& context, nb::object least, nb::object most,
             int threads) {
            std::optional<StageReader> reader;
            if (d.stage) reader.emplace(d.stage);
            const Context wanted = context ? *context : Context();
            return batch(origins, directions, least, most, threads, false,
                         [&](const Ray& ray, Result& result) {
                           d.detector->intersect(wanted, ray, result);
                         });
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("context") = nb::none(),
          nb::arg("min_distance") = nb::none(), nb::arg("max_distance") = nb::none(),
          nb::arg("threads") = 1,
          nb::sig(
              "def intersect(self, origins: numpy.typing.ArrayLike, directions: "
              "numpy.typing.ArrayLike, context: IntersectionContext | None = None, min_distance: "
              "numpy.typing.ArrayLike | None = None, max_distance: numpy.typing.ArrayLike | None = "
              "None, threads: int = 1) -> vela._results.Collisions"),
          "What rays of the world meet; `primitive_index` is the prim's entry.")
      .def("__repr__", [](const DetectModel& d) {
        return "<HitDetector of " + std::to_string(d.model->model().size()) + " meshes>";
      });
  refusePickle(detector, "it refers to a scene");
}

}  // namespace

void bindIntersection(nb::module_& m) {
  bindRecords(m);
  bindTests(m);
  bindModels(m);
  bindStructures(m);
  bindDetector(m);
}

}  // namespace vela::python
