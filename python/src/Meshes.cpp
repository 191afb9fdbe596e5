// Mesh samples, topology, builders, normals, triangulation, nearest points.
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/MeshPrim.h"
#include "vela/mesh/MeshBuilders.h"
#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/MeshSample.h"
#include "vela/mesh/MeshTopology.h"
#include "vela/mesh/NearestPointQuery.h"
#include "vela/mesh/Triangulate.h"

namespace vela::python {

namespace {

using tarn::Vec3f;

// Both arrays of faces at once: a sample has no other way to take them.
void setFaces(MeshSample& mesh, const InView<int>& counts, const InView<int>& indices) {
  std::size_t total = 0;
  for (const int count : counts.span()) {
    if (count != 3 && count != 4)
      refuse(
          "counts: a sample that is made by hand has triangles and quadrilaterals alone, found " +
          std::to_string(count));
    total += static_cast<std::size_t>(count);
  }
  if (total != indices.size())
    refuse("indices: expected " + std::to_string(total) + ", as counts add up to, found " +
           std::to_string(indices.size()));
  mesh.clearFaces();
  mesh.reserveFaceVertSpace(counts.size(), indices.size());
  const int* at = indices.data();
  for (const int count : counts.span()) {
    if (count == 3)
      mesh.addTri(at[0], at[1], at[2]);
    else
      mesh.addQuad(at[0], at[1], at[2], at[3]);
    at += count;
  }
}

void bindSample(nb::module_& m) {
  using S = MeshSample;
  nb::object type;
  {
    Record<S> r(
        m, "MeshSample",
        "A polygon mesh at one time: read from a scene, built by hand or by the builders, written "
        "back. "
        "Arrays are read-only views that share the sample's storage; assigning replaces them.\n\n"
        ">>> mesh = vela.MeshSample(points=[[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]])\n"
        ">>> mesh.add_quad(0, 1, 2, 3)\n>>> stage = vela.Stage.create_in_memory()\n"
        ">>> prim = vela.ovo.MeshPrim.define(stage, '/Square')\n"
        ">>> mesh.set_face_topology(prim), mesh.set_points_and_bounds(prim, True)\n(True, True)\n"
        ">>> vela.MeshSample.read(prim).normals[0].tolist()\n[0.0, 0.0, 1.0]");
    r.field("points", &S::points, "Positions in the prim's own space, (n, 3).")
        .time("time", &S::time, "When the sample was taken; where writes go.")
        .field("tag", &S::tag, "The caller's own.")
        .part("bounds", &S::bounds, "For the caller to fill: sampling sets it to empty.")
        .field("xform", &S::xform, "Local to world, (4, 4).")
        .field("inverse_xform", &S::inverseXform, "Computed only when xform is not the identity.")
        .field("xform_is_identity", &S::xformIsIdentity, "Of xform.")
        .field("all_triangles", &S::allTriangles, "Hint: every face is a triangle.")
        .field("all_quads", &S::allQuads, "Hint: every face is a quadrilateral.")
        .field("reverse_winding", &S::reverseWinding, "Data was reversed within each face.")
        .field("uvs", &S::uvs, "Per face-vertex, (n, 2).")
        .field("uv_extra", &S::uvExtra, "Per face-vertex, (n,).")
        .field("normals", &S::normals, "Per face-vertex, (n, 3).")
        .field("vectors", &S::vectors, "Per face-vertex, (n, 3).")
        .field("scalars", &S::scalars, "Per face-vertex, (n,).")
        .field("point_vectors", &S::pointVectors, "As stored, (n, 3).")
        .field("point_data", &S::pointData, "As stored, (n, 3).")
        .field("subdivision_scheme", &S::subdivisionScheme, "As the prim says.")
        .field("subdivision_level", &S::subdivisionLevel, "Of the arrays before refining: 0.")
        .field("hole_indices", &S::holeIndices, "Of the unrefined mesh, (n,).")
        .field("crease_indices", &S::creaseIndices, "Of the unrefined mesh, (n,).")
        .field("crease_lengths", &S::creaseLengths, "Of the unrefined mesh, (n,).")
        .field("crease_sharpnesses", &S::creaseSharpnesses, "Of the unrefined mesh, (n,).")
        .field("corner_indices", &S::cornerIndices, "Of the unrefined mesh, (n,).")
        .field("corner_sharpnesses", &S::cornerSharpnesses, "Of the unrefined mesh, (n,).");
    r.withoutPickling();
    type = nb::borrow(r.type());
    r.type()
        .def_static(
            "read",
            [](const ovo::MeshPrim& prim, Time time, int tag, int level, bool uvs, bool normals,
               bool scalars, bool vectors, bool pointVectors, bool pointData,
               const ovo::Token& uvName) {
              requireOpen(prim);
              S sample;
              if (!sample.sampleMeshPrim(prim, time, tag, level, uvs, normals, scalars, vectors,
                                         pointVectors, pointData, uvName))
                refuse(prim.getPath().asString() + ": not a mesh with points and faces");
              return sample;
            },
            nb::arg("mesh"), nb::arg("time") = Time(), nb::kw_only(), nb::arg("tag") = 0,
            nb::arg("subdivision_level") = 0, nb::arg("uvs") = true, nb::arg("normals") = true,
            nb::arg("scalars") = true, nb::arg("vectors") = true, nb::arg("point_vectors") = false,
            nb::arg("point_data") = false, nb::arg("uv_primvar_name") = "",
            "Reads a mesh of a scene and refines it so often; primvars come out per face-vertex. "
            "ValueError for a prim without points or faces.")
        .def(
            "sample_face_topology",
            [](S& s, const ovo::MeshPrim& prim, Time time) {
              requireOpen(prim);
              return s.sampleMeshPrimFaceTopology(prim, time.code);
            },
            nb::arg("mesh"), nb::arg("time") = Time(),
            "Reads counts and indices only; False without.")
        .def(
            "set_face_topology",
            [](const S& s, ovo::MeshPrim prim) {
              requireIdle(prim);
              return s.setMeshPrimFaceTopology(prim);
            },
            nb::arg("mesh"), "Writes counts and indices; True when at least one was written.")
        .def(
            "set_points_and_bounds",
            [](const S& s, ovo::MeshPrim prim, bool writeBounds) {
              requireIdle(prim);
              return s.setMeshPrimPointsAndBounds(prim, writeBounds);
            },
            nb::arg("mesh"), nb::arg("write_bounds"),
            "Writes the points and the extent; what writing the extent gave.")
        .def(
            "set_properties",
            [](const S& s, ovo::MeshPrim prim, bool uvs, bool normals, bool vectors, bool scalars,
               bool pointVectors, bool pointData) {
              requireIdle(prim);
              return s.setMeshPrimProperties(prim, uvs, normals, vectors, scalars, pointVectors,
                                             pointData);
            },
            nb::arg("mesh"), nb::kw_only(), nb::arg("uvs") = true, nb::arg("normals") = true,
            nb::arg("vectors") = true, nb::arg("scalars") = true, nb::arg("point_vectors") = true,
            nb::arg("point_data") = true, "Writes what is not empty; True when anything was.")
        .def("add_tri", &S::addTri, nb::arg("a"), nb::arg("b"), nb::arg("c"), "Appends a triangle.")
        .def("add_quad", &S::addQuad, nb::arg("a"), nb::arg("b"), nb::arg("c"), nb::arg("d"),
             "Appends a quadrilateral.")
        .def("clear_faces", &S::clearFaces, "Removes all faces.")
        .def("reserve_face_vert_space", &S::reserveFaceVertSpace, nb::arg("faces"),
             nb::arg("verts"), "Room for that many faces and face-vertices in all.")
        .def(
            "set_faces",
            [](S& s, const In<int>& counts, const In<int>& indices) {
              setFaces(s, counts.read("counts"), indices.read("indices"));
            },
            nb::arg("counts"), nb::arg("indices"),
            "Replaces the faces by triangles and quadrilaterals, counts (faces,) and indices "
            "(face-vertices,), as add_tri and add_quad would.")
        // Copies: the sample hands its faces out by pointer, and they change with it.
        .def_prop_ro(
            "verts_per_face", [](const S& s) { return copyOut(s.vertsPerFace(), s.nFaces()); },
            "How many vertices each face has, (faces,), a copy.")
        .def_prop_ro(
            "face_vert_point_indices",
            [](const S& s) { return copyOut(s.faceVertPointIndices(), s.nVerts()); },
            "The point of each face-vertex, (n,), a copy.")
        .def_prop_ro("n_points", &S::nPoints, "How many points.")
        .def_prop_ro("n_faces", &S::nFaces, "How many faces.")
        .def_prop_ro("n_verts", &S::nVerts, "How many face-vertices.")
        .def_prop_ro("is_subd_mesh", &S::isSubdMesh, "False without a scheme, and for `none`.")
        .def("__copy__", [](const S& s) { return S(s); })
        .def(
            "__deepcopy__", [](const S& s, nb::handle) { return S(s); }, nb::arg("memo"));
  }
  refusePickle(type, "faces of more than four corners come from a scene alone; write it into one");
}

void bindTopology(nb::module_& m) {
  using T = MeshTopology;
  Record<T> r(
      m, "MeshTopology",
      "The points and faces of a mesh. Arrays are kept as they are and may contradict each "
      "other.\n\n"
      ">>> mesh = vela.MeshTopology(points=[[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [2, 0, "
      "0]], verts_per_face=[4, 3], face_vert_point_indices=[0, 1, 2, 3, 1, 4, 2])\n"
      ">>> [face.tolist() for face in mesh.faces()]\n[[0, 1, 2, 3], [1, 4, 2]]\n"
      ">>> edges, face_counts = mesh.edges()\n>>> len(edges), (face_counts == 1).sum().item()\n"
      "(6, 5)");
  r.field("points", &T::points, "Positions, (n, 3).")
      .field("verts_per_face", &T::vertsPerFace, "How many vertices each face has, (faces,).")
      .field("face_vert_point_indices", &T::faceVertPointIndices, "The point of each, (n,).");
  r.type()
      .def_static(
          "read",
          [](const ovo::MeshPrim& prim, Time time) {
            requireOpen(prim);
            return T(prim, time.code);
          },
          nb::arg("mesh"), nb::arg("time") = Time(), "Reads a mesh of a scene, as stored.")
      .def(
          "faces",
          [](const T& mesh) {
            nb::list out;
            for (const ovo::Face face : mesh.faces()) out.append(copyOut(face.data(), face.size()));
            return out;
          },
          nb::sig("def faces(self) -> list[numpy.typing.NDArray[numpy.int32]]"),
          "Every face in turn, as its point indices (corners,); those past the end are empty.")
      .def(
          "edges",
          [](const T& mesh) {
            const T::Edges edges = mesh.edges();
            NewArray<tarn::Vec2i> ends(edges.size());
            NewArray<std::int32_t> counts(edges.size());
            for (std::size_t i = 0; i < edges.size(); ++i) {
              ends.data[i] = {edges[i].a, edges[i].b};
              counts.data[i] = edges[i].faceCount;
            }
            return std::tuple(NumpyArray<std::int32_t>{ends.array},
                              NumpyArray<std::int32_t>{counts.array});
          },
          "(edges (n, 2), face sides along each (n,)): every edge once, the smaller point first, "
          "in "
          "order.");
}

void bindBuilders(nb::module_& m) {
  m.def(
      "build_rect_quad_mesh",
      [](MeshSample& mesh, const Vec3f& p0, const Vec3f& p1, const Vec3f& p2, const Vec3f& p3,
         unsigned rows, unsigned columns, bool faces, bool points, bool normals, bool uvs) {
        buildRectQuadMesh(mesh, p0, p1, p2, p3, rows, columns, faces, points, normals, uvs);
      },
      nb::arg("mesh"), nb::arg("p0"), nb::arg("p1"), nb::arg("p2"), nb::arg("p3"), nb::arg("rows"),
      nb::arg("columns"), nb::kw_only(), nb::arg("faces") = true, nb::arg("points") = true,
      nb::arg("normals") = true, nb::arg("uvs") = true,
      "A bilinear patch of rows x columns quadrilaterals, into a sample.\n\n"
      ">>> mesh = vela.MeshSample()\n"
      ">>> vela.build_rect_quad_mesh(mesh, [0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], 2, 3)\n"
      ">>> mesh.n_faces, mesh.n_points\n(6, 12)");
  m.def(
      "build_cube",
      [](MeshSample& mesh, const tarn::Box3d& box, unsigned sides, unsigned caps, bool faces,
         bool points, bool normals, bool uvs,
         bool shared) { buildCube(mesh, box, sides, caps, faces, points, normals, uvs, shared); },
      nb::arg("mesh"), nb::arg("box"), nb::arg("side_divisions") = 1, nb::arg("cap_divisions") = 1,
      nb::kw_only(), nb::arg("faces") = true, nb::arg("points") = true, nb::arg("normals") = true,
      nb::arg("uvs") = true, nb::arg("shared_points") = true,
      "A box of quadrilaterals, into a sample.\n\n>>> mesh = vela.MeshSample()\n"
      ">>> vela.build_cube(mesh, vela.tarn.Box3d([-1, -1, -1], [1, 1, 1]))\n"
      ">>> mesh.n_faces, mesh.n_points\n(6, 8)");
  m.def("build_sphere_mesh", &buildSphereMesh, nb::arg("mesh"), nb::arg("rows"), nb::arg("columns"),
        nb::arg("scale") = std::tuple(1.0, 1.0, 1.0),
        "A sphere or ellipsoid about the origin, its poles on the y axis, into a sample.\n\n"
        ">>> ball = vela.MeshSample()\n>>> vela.build_sphere_mesh(ball, 16, 32, [2.5, 2.5, 2.5])\n"
        ">>> ball.n_faces == 16 * 32\nTrue");
  m.def("build_cylinder_mesh", &buildCylinderMesh, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("scale") = std::tuple(1.0, 1.0, 1.0), nb::arg("top_cap") = true,
        nb::arg("bottom_cap") = true, nb::arg("share_cap_rings") = true,
        "A cylinder about the y axis, into a sample.\n\n>>> mesh = vela.MeshSample()\n"
        ">>> vela.build_cylinder_mesh(mesh, 1, 8)\n>>> mesh.n_faces\n24");
  m.def("build_revolve_mesh_points", &buildRevolveMeshPoints, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("radius"), nb::arg("height"),
        nb::arg("scale") = std::tuple(1.0, 1.0, 1.0), nb::arg("top_cap") = true,
        nb::arg("bottom_cap") = true, nb::arg("share_cap_rings") = true,
        "Writes the points of a surface of revolution into the sample's points.\n\n"
        ">>> import numpy\n>>> mesh = vela.MeshSample(points=numpy.zeros((10, 3), numpy.float32))\n"
        ">>> vela.build_revolve_mesh_points(mesh, 1, 4, lambda i: 1.0, float)\n"
        ">>> mesh.points[1].tolist()\n[0.0, 0.0, 1.0]");
  m.def("build_revolve_mesh_uvs", &buildRevolveMeshUVs, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("sweep_u") = 360.0f, nb::arg("sweep_v") = 180.0f,
        nb::arg("top_cap") = true, nb::arg("bottom_cap") = true, nb::arg("top_pole") = false,
        nb::arg("bottom_pole") = false, "Writes one UV a face-vertex into the sample's uvs.");
  m.def("build_revolve_mesh_faces", &buildRevolveMeshFaces, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("top_cap") = true, nb::arg("bottom_cap") = true,
        nb::arg("share_cap_rings") = true, "Replaces the faces by those of such a surface.");
  m.def("build_cylinder_mesh_normals", &buildCylinderMeshNormals, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("scale") = std::tuple(1.0, 1.0, 1.0), nb::arg("top_cap") = true,
        nb::arg("bottom_cap") = true, "Writes normals of a scaled cylinder.");
  m.def("build_sphere_mesh_normals", &buildSphereMeshNormals, nb::arg("mesh"), nb::arg("rows"),
        nb::arg("columns"), nb::arg("scale") = std::tuple(1.0, 1.0, 1.0), nb::arg("top_cap") = true,
        nb::arg("bottom_cap") = true, "Writes normals of a scaled sphere.");
  using Shape = RevolveShape;
  using Of = std::function<float(int)>;
  const auto optional = [](const Of& of) { return of ? std::optional<Of>(of) : std::nullopt; };
  nb::object type;
  {
    Record<Shape> r(m, "RevolveShape",
                    "What the builders of surfaces of revolution take for one shape; `radius` and "
                    "`height` give those of a ring by its index.\n\n"
                    ">>> vela.RevolveShape(rows=2).columns\n32");
    r.field("rows", &Shape::rows, "Bands.")
        .field("columns", &Shape::columns, "Faces a band.")
        .property(
            "radius", [optional](const Shape& s) { return optional(s.radius); },
            [](Shape& s, const std::optional<Of>& of) { s.radius = of ? *of : Of(); },
            "Of a ring: a function of its index, or None.")
        .property(
            "height", [optional](const Shape& s) { return optional(s.height); },
            [](Shape& s, const std::optional<Of>& of) { s.height = of ? *of : Of(); },
            "Of a ring: a function of its index, or None.")
        .field("scale", &Shape::scale, "Of the whole shape, (3,).")
        .field("sweep_u", &Shape::sweepU, "Degrees.")
        .field("sweep_v", &Shape::sweepV, "Degrees.")
        .field("top_cap", &Shape::topCap, "Has a cap.")
        .field("bottom_cap", &Shape::bottomCap, "Has a cap.")
        .field("top_pole", &Shape::topPole, "The cap has a band of v of its own.")
        .field("bottom_pole", &Shape::bottomPole, "The cap has a band of v of its own.")
        .field("share_cap_rings", &Shape::shareCapRings, "Caps use the first and the last ring.");
  }
  m.def(
      "build_revolve_mesh",
      [](MeshSample& mesh, const Shape& shape) {
        if (!shape.radius || !shape.height) refuse("shape: radius and height are missing");
        buildRevolveMesh(mesh, shape);
      },
      nb::arg("mesh"), nb::arg("shape"),
      "Replaces points, faces and uvs by those of the whole shape, and the normals by zeros.\n\n"
      ">>> mesh = vela.MeshSample()\n"
      ">>> shape = vela.RevolveShape(rows=1, columns=8, radius=lambda i: 1.0, height=float)\n"
      ">>> vela.build_revolve_mesh(mesh, shape)\n>>> mesh.n_faces\n24");
}

void bindArrays(nb::module_& m) {
  m.def(
      "point_normals",
      [](const In<Vec3f>& pointsIn, const In<int>& countsIn, const In<int>& indicesIn,
         bool keepSign) {
        const auto points = pointsIn.read("points");
        const auto counts = countsIn.read("counts"), indices = indicesIn.read("indices");
        ovo::Array<Vec3f> normals(points.size());
        calcPointNormals(points.size(), points.data(), indices.size(), indices.data(),
                         counts.size(), counts.data(), false, false, normals, keepSign);
        return shareOut(normals);
      },
      nb::arg("points"), nb::arg("counts"), nb::arg("indices"), nb::arg("keep_sign") = true,
      "One smooth normal a point, (n, 3), larger faces weighing more; zero for a point of no face. "
      "Without `keep_sign` they point the other way.\n\n"
      ">>> vela.point_normals([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [3], [0, 1, 2])[0].tolist()\n"
      "[0.0, 0.0, 1.0]");
  m.def(
      "vertex_normals",
      [](const In<Vec3f>& pointsIn, const In<int>& countsIn, const In<int>& indicesIn,
         float threshold) {
        const auto points = pointsIn.read("points");
        const auto counts = countsIn.read("counts"), indices = indicesIn.read("indices");
        ovo::Array<Vec3f> normals(indices.size());
        calcVertexNormals(points.size(), points.data(), indices.size(), indices.data(),
                          counts.size(), counts.data(), threshold, normals);
        return shareOut(normals);
      },
      nb::arg("points"), nb::arg("counts"), nb::arg("indices"), nb::arg("threshold"),
      "One normal a face-vertex, (n, 3), smooth across gentle edges only: `threshold` is one minus "
      "the "
      "cosine of the widest angle.\n\n"
      ">>> vela.vertex_normals([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [3], [0, 1, 2], 0.5).shape\n(3, "
      "3)");
  m.def(
      "position_at_uv",
      [](const MeshTopology& topology, int face, const tarn::Vec2f& uv) {
        return getPosFromImplicitUV(topology, face, uv);
      },
      nb::arg("topology"), nb::arg("face"), nb::arg("uv"),
      "The position on a face for (u, v) in [0, 1] squared, (3,); zero for a face that is not "
      "there.\n\n"
      ">>> mesh = vela.MeshTopology(points=[[0, 0, 0], [2, 0, 0], [2, 2, 0], [0, 2, 0]], "
      "verts_per_face=[4], face_vert_point_indices=[0, 1, 2, 3])\n"
      ">>> vela.position_at_uv(mesh, 0, [0.5, 0.25]).tolist()\n[1.0, 0.5, 0.0]");
  const auto cut = [](const In<Vec3f>& pointsIn, const std::optional<In<int>>& cornersIn,
                      void (*how)(const Vec3f*, const int*, int, std::vector<int>&)) {
    const auto points = pointsIn.read("points");
    std::vector<int> corners;
    if (cornersIn) {
      const auto given = cornersIn->read("corners");
      for (const int corner : given.span())
        if (corner < 0 || static_cast<std::size_t>(corner) >= points.size())
          refuse("corners: " + std::to_string(corner) + " names none of " +
                 std::to_string(points.size()) + " points");
      corners = given.vector();
    } else {
      corners.resize(points.size());
      for (std::size_t i = 0; i < corners.size(); ++i) corners[i] = static_cast<int>(i);
    }
    if (corners.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
      refuse("corners: more than an int32 counts");
    std::vector<int> triangles;
    {
      const Unlocked unlocked;
      how(points.data(), corners.data(), static_cast<int>(corners.size()), triangles);
    }
    NewArray<tarn::Vec3i> out(triangles.size() / 3);
    if (!triangles.empty())
      std::memcpy(static_cast<void*>(out.data), triangles.data(), triangles.size() * sizeof(int));
    return NumpyArray<std::int32_t>{out.array};
  };
  m.def(
      "triangulate_polygon",
      [cut](const In<Vec3f>& points, const std::optional<In<int>>& corners) {
        return cut(points, corners,
                   static_cast<void (*)(const Vec3f*, const int*, int, std::vector<int>&)>(
                       &triangulatePolygon));
      },
      nb::arg("points"), nb::arg("corners") = nb::none(),
      "Cuts a polygon for pictures, at any size, into its corners minus 2 triangles: (n, 3) of "
      "corner "
      "positions. Without `corners` the points (n, 3) are the outline in order.\n\n"
      ">>> vela.triangulate_polygon([[0, 0, 0], [4, 0, 0], [1, 1, 0], [0, 4, 0]]).tolist()\n"
      "[[0, 1, 2], [0, 2, 3]]");
  m.def(
      "triangulate",
      [cut](const In<Vec3f>& points, const std::optional<In<int>>& corners) {
        return cut(points, corners, &Triangulate);
      },
      nb::arg("points"), nb::arg("corners") = nb::none(),
      "Ear clipping in single precision with an absolute tolerance: the cut that acceleration "
      "models "
      "are bound to. There may be fewer triangles than corners minus 2.\n\n"
      ">>> vela.triangulate([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]]).tolist()\n"
      "[[0, 1, 2], [0, 2, 3]]");
}

// The query and what calls from several threads do to it.
struct NearestPoints {
  NearestPoints(const tarn::Box3f& bounds, float cellSize) : query(bounds, cellSize) {}
  NearestPointQuery query;
  std::vector<Vec3f> points;  // for the exact answer
};

void bindNearest(nb::module_& m) {
  nb::class_<NearestPoints> nearest(
      m, "NearestPointQuery",
      "Candidates for the points nearest to a position, from a uniform grid over a box. A point "
      "closer "
      "than one cell to the position, inside the box, is always among them.\n\n"
      ">>> query = vela.NearestPointQuery(vela.tarn.Box3f([0, 0, 0], [1, 1, 1]), 0.25)\n"
      ">>> query.add_points([[0.1, 0.1, 0.1], [0.9, 0.9, 0.9]])\n"
      ">>> query.neighbours([0.2, 0.2, 0.2]).tolist()\n[0]");
  nearest.def(nb::init<const tarn::Box3f&, float>(), nb::arg("bounds"), nb::arg("cell_size"))
      .def(
          "add_points",
          [](NearestPoints& n, const In<Vec3f>& pointsIn) {
            const auto points = pointsIn.read("points");
            n.query.addPoints(points.data(), points.size());
            n.points = points.vector();
          },
          nb::arg("points"), "Replaces the points, (n, 3).")
      .def(
          "neighbours",
          [](const NearestPoints& n, const Vec3f& position) {
            std::vector<unsigned int> ids;
            n.query.getNeighbours(position, ids);
            return copyOut(ids);
          },
          nb::arg("position"),
          "Indices of the points in the 27 cells around a position, (n,) uint32; distances are the "
          "caller's business.")
      .def(
          "nearest",
          [](const NearestPoints& n, const In<Vec3f>& positionsIn) {
            const auto positions = positionsIn.read("positions");
            NewArray<std::int32_t> out(positions.size());
            std::vector<unsigned int> ids;
            for (std::size_t i = 0; i < positions.size(); ++i) {
              n.query.getNeighbours(positions.data()[i], ids);
              float best = std::numeric_limits<float>::infinity();
              out.data[i] = -1;
              for (const unsigned int id : ids) {
                const float square = (n.points[id] - positions.data()[i]).lengthSquared();
                if (!(square < best)) continue;
                best = square;
                out.data[i] = static_cast<std::int32_t>(id);
              }
            }
            return NumpyArray<std::int32_t>{out.array};
          },
          nb::arg("positions"),
          "The nearest candidate of each position (n, 3), (n,) int32; -1 where there is none. It "
          "is the "
          "nearest point wherever that is closer than one cell.")
      .def_prop_ro(
          "bounds", [](const NearestPoints& n) { return n.query.bounds; }, "The box.")
      .def_prop_ro(
          "cell_counts",
          [](const NearestPoints& n) {
            return tarn::Vec3i(n.query.cellCountX, n.query.cellCountY, n.query.cellCountZ);
          },
          "Cells along each axis, (3,).")
      .def("__repr__", [](const NearestPoints& n) {
        return "<NearestPointQuery of " + std::to_string(n.points.size()) + " points>";
      });
  refusePickle(nearest, "its grid is built in memory; pickle its points");
}

}  // namespace

void bindMeshes(nb::module_& m) {
  bindSample(m);
  bindTopology(m);
  bindBuilders(m);
  bindArrays(m);
  bindNearest(m);
}

}  // namespace vela::python
