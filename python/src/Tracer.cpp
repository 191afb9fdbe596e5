// The tracer: meshes, placements, rays in batches.
#include <algorithm>
#include <optional>
#include <string>

#include "Calls.h"
#include "Module.h"
#include "RayBatch.h"
#include "Records.h"
#include "ovo/MeshPrim.h"
#include "vela/trace/SceneTracer.h"

namespace vela::python {

namespace {

// A tracer, and what calls from several threads do to it.
struct Tracer {
  SceneTracer tracer;
  mutable Busy busy;
};

constexpr std::size_t kAtOnce = 256;  // rays that are gathered, traced and parted while in cache

// An array of answers: a new one, or the caller's.
template <class T>
class Column {
 public:
  Column(nb::handle given, const char* name, std::size_t size) {
    if (given.is_none()) {
      NewArray<T> made(size);
      array_ = std::move(made.array);
      data_ = made.data;
      return;
    }
    array_ = nb::borrow(given);
    held_.emplace(Out<T>{array_}.open(name));
    if (held_->size() != size)
      refuse(std::string(name) + ": expected " + std::to_string(size) + " rows as origins, found " +
             std::to_string(held_->size()));
    data_ = held_->mutableData();
  }
  [[nodiscard]] const nb::object& array() const { return array_; }
  [[nodiscard]] T* data() const { return data_; }
  [[nodiscard]] T& operator[](std::size_t i) const { return data_[i]; }

 private:
  nb::object array_;
  std::optional<InView<T>> held_;
  T* data_ = nullptr;
};

const nb::object& hitsType() {
  static const nb::object* const type =
      new nb::object(nb::module_::import_("vela._results").attr("Hits"));
  return *type;
}

template <class T>
nb::object intersectAll(const Tracer& self, const RayBatch<T>& rays,
                        std::optional<std::uint32_t> placement, int threads, nb::handle given) {
  const Busy::Reading reading(self.busy, "the tracer");
  const std::size_t size = rays.size();
  if (!given.is_none() && !given.type().is(hitsType()))
    throw nb::type_error((std::string("out: expected Hits of an earlier call, found ") +
                          Py_TYPE(given.ptr())->tp_name)
                             .c_str());
  const auto part = [given](Py_ssize_t index) {
    if (given.is_none()) return given;
    const nb::handle found = PyTuple_GetItem(given.ptr(), index);
    if (found.is_none()) throw nb::type_error("out: expected Hits whose arrays are all there");
    return found;
  };
  const Column<double> distance(part(0), "out.distance", size);
  const Column<tarn::Vec3f> position(part(1), "out.position", size),
      normal(part(2), "out.normal", size);
  const Column<std::uint32_t> place(part(3), "out.placement", size);
  const Column<std::int32_t> face(part(4), "out.face", size);
  const Column<tarn::Vec3i> points(part(5), "out.points", size),
      faceVertices(part(6), "out.face_vertices", size);
  const Column<float> u(part(7), "out.u", size), v(part(8), "out.v", size);
  const Column<bool> isHit(part(9), "out.hit", size);
  inBatches(size, threads, [&](std::size_t first, std::size_t count) {
    tarn::Ray<T> in[kAtOnce];
    TracerHit out[kAtOnce];
    for (std::size_t from = first; from < first + count; from += kAtOnce) {
      const std::size_t n = std::min(kAtOnce, first + count - from);
      for (std::size_t i = 0; i < n; ++i) in[i] = rays[from + i];
      if (placement)
        for (std::size_t i = 0; i < n; ++i)
          self.tracer.intersectPlacement(*placement, in[i], out[i]);
      else
        self.tracer.intersect(in, n, out);
      for (std::size_t i = 0; i < n; ++i) {
        const TracerHit& hit = out[i];
        const std::size_t to = from + i;
        distance[to] = hit.distance;
        position[to] = hit.position;
        normal[to] = hit.normal;
        place[to] = hit.placement;
        face[to] = hit.face;
        points[to] = {hit.points[0], hit.points[1], hit.points[2]};
        faceVertices[to] = {hit.faceVertices[0], hit.faceVertices[1], hit.faceVertices[2]};
        u[to] = hit.u;
        v[to] = hit.v;
        isHit[to] = hit.hit;
      }
    }
  });
  if (!given.is_none()) return nb::borrow(given);
  return hitsType()(distance.array(), position.array(), normal.array(), place.array(), face.array(),
                    points.array(), faceVertices.array(), u.array(), v.array(), isHit.array());
}

template <class T>
NumpyArray<bool> occludedAll(const Tracer& self, const RayBatch<T>& rays, int threads,
                             nb::handle given) {
  const Busy::Reading reading(self.busy, "the tracer");
  const Column<bool> answers(given, "out", rays.size());
  inBatches(rays.size(), threads, [&](std::size_t first, std::size_t count) {
    tarn::Ray<T> in[kAtOnce];
    for (std::size_t from = first; from < first + count; from += kAtOnce) {
      const std::size_t n = std::min(kAtOnce, first + count - from);
      for (std::size_t i = 0; i < n; ++i) in[i] = rays[from + i];
      self.tracer.occluded(in, n, answers.data() + from);
    }
  });
  return {answers.array()};
}

}  // namespace

void bindTracer(nb::module_& m) {
  {
    Record<TracerHit> r(
        m, "TracerHit",
        "What one ray met; see Hits for its fields. On a miss every field but `hit` has "
        "its default.\n\n>>> vela.TracerHit().hit\nFalse");
    r.field("distance", &TracerHit::distance, "In units of the ray's direction.")
        .field("position", &TracerHit::position, "World space, (3,).")
        .field("normal", &TracerHit::normal, "World space, unit length, (3,).")
        .field("placement", &TracerHit::placement, "As add_placement numbered it.")
        .field("face", &TracerHit::face, "Index into the mesh's face counts.")
        .property(
            "points",
            [](const TracerHit& h) { return tarn::Vec3i(h.points[0], h.points[1], h.points[2]); },
            [](TracerHit& h, const tarn::Vec3i& p) {
              for (std::size_t i = 0; i < 3; ++i) h.points[i] = p[i];
            },
            "Point indices of the triangle's corners, (3,).")
        .property(
            "face_vertices",
            [](const TracerHit& h) {
              return tarn::Vec3i(h.faceVertices[0], h.faceVertices[1], h.faceVertices[2]);
            },
            [](TracerHit& h, const tarn::Vec3i& p) {
              for (std::size_t i = 0; i < 3; ++i) h.faceVertices[i] = p[i];
            },
            "Their places in the array of face vertex indices, (3,).")
        .field("u", &TracerHit::u, "Barycentric of the second corner.")
        .field("v", &TracerHit::v, "Barycentric of the third corner.")
        .field("hit", &TracerHit::hit, "Whether anything was met.");
    r.type().def("__bool__", [](const TracerHit& h) { return h.hit; });
  }
  nb::class_<Tracer> tracer(
      m, "SceneTracer",
      "Rays against placed meshes: the true nearest surface, without cracks, at any scale.\n\n"
      "Add meshes and placements, build, ask. Rays of float64 arrays are traced in double, all "
      "others "
      "in single precision. Batches let go of the interpreter's lock and run on `threads` threads "
      "(0: "
      "as many as the machine has); answers do not depend on their number. Changing the tracer "
      "while "
      "another thread asks is a RuntimeError. Equality is identity.\n\n"
      ">>> tracer = vela.SceneTracer()\n"
      ">>> square = tracer.add_mesh([[-1, -1, 0], [1, -1, 0], [1, 1, 0], [-1, 1, 0]], [4], "
      "[0, 1, 2, 3])\n"
      ">>> tracer.add_placement(square)\n0\n>>> tracer.build()\n"
      ">>> hits = tracer.intersect([[0.5, 0, 5], [3, 0, 5]], [[0, 0, -2], [0, 0, -2]])\n"
      ">>> hits.hit.tolist(), hits.distance[0].item(), hits.position[0].tolist()\n"
      "([True, False], 2.5, [0.5, 0.0, 0.0])");
  tracer.def(nb::init<>())
      .def(
          "add_mesh",
          [](Tracer& self, const In<tarn::Vec3f>& points, const In<int>& counts,
             const In<int>& indices) {
            const Busy::Changing changing(self.busy, "the tracer");
            return self.tracer.addMesh(points.read("points").array(), counts.read("counts").array(),
                                       indices.read("indices").array());
          },
          nb::arg("points"), nb::arg("counts"), nb::arg("indices"),
          "Adds a mesh, or finds the equal one: points (n, 3), corners of each face (faces,), "
          "point "
          "indices (face-vertices,); copied once. Faces that cannot be used are never hit and keep "
          "their number. Returns the mesh's number.")
      .def(
          "add_mesh",
          [](Tracer& self, const ovo::MeshPrim& prim, Time time) {
            requireOpen(prim);
            const Busy::Changing changing(self.busy, "the tracer");
            return self.tracer.addMesh(prim, time);
          },
          nb::arg("mesh"), nb::arg("time") = Time(),
          "Adds the points and faces that a mesh prim has at a time; its arrays are shared.")
      .def(
          "add_tubes",
          [](Tracer& self, const In<tarn::Vec3f>& points, const In<float>& radii,
             const In<int>& counts) {
            const Busy::Changing changing(self.busy, "the tracer");
            return self.tracer.addTubes(points.read("points").array(), radii.read("radii").array(),
                                        counts.read("counts").array());
          },
          nb::arg("points"), nb::arg("radii"), nb::arg("counts"),
          "Adds tubes, or finds equal ones: points (n, 3), a radius for each (n,), the points of "
          "each tube (tubes,); copied once. One point is a ball; a tube of four and more that ends "
          "where it begins is closed. What cannot be used is never hit and keeps its number. "
          "Returns a mesh number: in hits a tube is a face, `points` are the two that a piece "
          "joins and `u` says how far between them.\n\n"
          ">>> tracer = vela.SceneTracer()\n"
          ">>> tracer.add_placement(tracer.add_tubes([[0, 0, 0], [4, 0, 0]], [1, 1], [2]))\n0\n"
          ">>> tracer.build()\n"
          ">>> hits = tracer.intersect([[1, 0, 5]], [[0, 0, -1]])\n"
          ">>> hits.distance[0].item(), hits.u[0].item()\n(4.0, 0.25)")
      .def(
          "add_placement",
          [](Tracer& self, std::uint32_t mesh, const std::optional<tarn::Mat4d>& matrix) {
            const Busy::Changing changing(self.busy, "the tracer");
            return self.tracer.addPlacement(mesh, matrix ? *matrix : tarn::Mat4d());
          },
          nb::arg("mesh"), nb::arg("world_from_local") = nb::none(),
          "Places a mesh by a matrix (4, 4); without one where its points are. Returns the "
          "placement's number: 0, 1, 2 ...")
      .def(
          "without_placements",
          [](const Tracer& self) {
            const Busy::Reading reading(self.busy, "the tracer");
            return Tracer{self.tracer.withoutPlacements(), {}};
          },
          "A tracer with the same meshes, their numbers and the trees that are built, and no "
          "placements; both share the trees.\n\n"
          ">>> vela.SceneTracer().without_placements()\n<SceneTracer of 0 meshes in 0 placements>")
      .def(
          "reserve_placements",
          [](Tracer& self, std::size_t count) {
            const Busy::Changing changing(self.busy, "the tracer");
            self.tracer.reservePlacements(count);
          },
          nb::arg("count"), "Makes room for that many placements in all.")
      .def(
          "build",
          [](Tracer& self) {
            const Busy::Changing changing(self.busy, "the tracer");
            InterruptibleWork work;
            {
              const Unlocked unlocked;
              self.tracer.build([&work] { return work.work().isStopped(); });
            }
            work.rethrow();
          },
          "Builds the trees; what was added is asked from now on. Ctrl-C stops it between meshes.")
      .def(
          "intersect",
          [](const Tracer& self, nb::object origins, nb::object directions, nb::object least,
             nb::object most, std::optional<std::uint32_t> placement, int threads, nb::object out) {
            if (areFloats(origins, directions))
              return intersectAll(self, RayBatch<float>(origins, directions, least, most),
                                  placement, threads, out);
            return intersectAll(self, RayBatch<double>(origins, directions, least, most), placement,
                                threads, out);
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("min_distance") = nb::none(),
          nb::arg("max_distance") = nb::none(), nb::arg("placement") = nb::none(),
          nb::arg("threads") = 1, nb::arg("out") = nb::none(),
          nb::sig(
              "def intersect(self, origins: numpy.typing.ArrayLike, directions: "
              "numpy.typing.ArrayLike, min_distance: numpy.typing.ArrayLike | None = None, "
              "max_distance: numpy.typing.ArrayLike | None = None, placement: int | None = None, "
              "threads: int = 1, out: vela._results.Hits | None = None) -> vela._results.Hits"),
          "The nearest hit of each ray: origins and directions (n, 3), ranges a number or (n,), "
          "closed "
          "at both ends. With `placement` the nearest on that one, as if there were no other. A "
          "ray "
          "with a NaN, or of length zero, misses. `out` are the hits of an earlier call for as "
          "many "
          "rays: their arrays are written over, which spares what new memory costs, and returned; "
          "they "
          "must not overlap one another or the rays.\n\n"
          ">>> import numpy\n>>> tracer = vela.SceneTracer()\n>>> tracer.build()\n"
          ">>> down = numpy.zeros((2, 3), numpy.float32) - 1\n"
          ">>> hits = tracer.intersect(down, down)\n"
          ">>> tracer.intersect(down, down, out=hits) is hits\nTrue")
      .def(
          "intersect_ray",
          [](const Tracer& self, const tarn::Vec3d& origin, const tarn::Vec3d& direction,
             double least, double most) {
            const Busy::Reading reading(self.busy, "the tracer");
            TracerHit hit;
            self.tracer.intersect(tarn::Ray3d(origin, direction, least, most), hit);
            return hit;
          },
          nb::arg("origin"), nb::arg("direction"), nb::arg("min_distance") = 0.0,
          nb::arg("max_distance") = std::numeric_limits<double>::max(),
          "The nearest hit of one ray, in double.")
      .def(
          "occluded",
          [](const Tracer& self, nb::object origins, nb::object directions, nb::object least,
             nb::object most, int threads, nb::object out) {
            if (areFloats(origins, directions))
              return occludedAll(self, RayBatch<float>(origins, directions, least, most), threads,
                                 out);
            return occludedAll(self, RayBatch<double>(origins, directions, least, most), threads,
                               out);
          },
          nb::arg("origins"), nb::arg("directions"), nb::arg("min_distance") = nb::none(),
          nb::arg("max_distance") = nb::none(), nb::arg("threads") = 1, nb::arg("out") = nb::none(),
          nb::sig("def occluded(self, origins: numpy.typing.ArrayLike, directions: "
                  "numpy.typing.ArrayLike, min_distance: numpy.typing.ArrayLike | None = None, "
                  "max_distance: numpy.typing.ArrayLike | None = None, threads: int = 1, out: "
                  "numpy.typing.NDArray[numpy.bool_] | None = None) -> "
                  "numpy.typing.NDArray[numpy.bool_]"),
          "Whether anything lies in each ray's range, (n,) bool; into `out`, which is returned, "
          "where "
          "one is given.")
      .def_prop_ro(
          "num_meshes", [](const Tracer& t) { return t.tracer.numMeshes(); },
          "How many meshes were added.")
      .def_prop_ro(
          "num_placements", [](const Tracer& t) { return t.tracer.numPlacements(); },
          "How many placements were added.")
      .def(
          "num_triangles",
          [](const Tracer& t, std::uint32_t mesh) { return t.tracer.numTriangles(mesh); },
          nb::arg("mesh"), "Triangles of a mesh as of the last build; 0 for none.")
      .def(
          "num_pieces",
          [](const Tracer& t, std::uint32_t mesh) { return t.tracer.numPieces(mesh); },
          nb::arg("mesh"), "Pieces of tubes that can be hit; 0 for other meshes.")
      .def(
          "placement_mesh",
          [](const Tracer& t, std::uint32_t placement) {
            return t.tracer.placementMesh(placement);
          },
          nb::arg("placement"), "The mesh number of a placement; 4294967295 for none.")
      .def_prop_ro(
          "bounds", [](const Tracer& t) { return t.tracer.bounds(); },
          "World box of all that can be hit; empty before the first build.")
      .def_prop_ro(
          "memory_usage", [](const Tracer& t) { return t.tracer.memoryUsage(); },
          "Bytes held for queries.")
      .def(
          "set_kernel",
          [](Tracer& self, bool plain) {
            const Busy::Changing changing(self.busy, "the tracer");
            self.tracer.setKernel(plain ? SceneTracer::Kernel::plain : SceneTracer::Kernel::best);
          },
          nb::arg("plain"),
          "Plain instructions, for tests and measuring; the answers are the same.")
      .def("__repr__", [](const Tracer& t) {
        return "<SceneTracer of " + std::to_string(t.tracer.numMeshes()) + " meshes in " +
               std::to_string(t.tracer.numPlacements()) + " placements>";
      });
  refusePickle(tracer, "its trees are built in memory; pickle the arrays of its meshes");
}

}  // namespace vela::python
