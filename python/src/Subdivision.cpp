// Uniform refinement of subdivision surfaces.
#include <list>
#include <string>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "ovo/MeshPrim.h"
#include "ovo/Subdivide.h"

namespace vela::python {

namespace {

using ovo::ArgSet;

// Data to carry along, refined in place: under its name, by its width.
struct Carried {
  std::list<std::pair<std::string, ovo::Array<float>>> floats;
  std::list<std::pair<std::string, ovo::Array<tarn::Vec2f>>> vec2s;
  std::list<std::pair<std::string, ovo::Array<tarn::Vec3f>>> vec3s;
};

// The width of an array's rows: 0 for one-dimensional ones.
std::size_t widthOf(nb::handle array, const std::string& name) {
  const nb::object shape = nb::module_::import_("numpy").attr("shape")(array);
  const std::size_t dimensions = nb::len(shape);
  if (dimensions == 1) return 0;
  if (dimensions == 2) return nb::cast<std::size_t>(nb::object(shape[1]));
  refuse(name + ": expected shape (n,), (n, 2) or (n, 3), found " + nb::repr(shape).c_str());
}

template <class T>
void add(std::list<std::pair<std::string, ovo::Array<T>>>& list, const std::string& name,
         nb::handle source, std::size_t rows) {
  ovo::Array<T> values = In<T>{nb::borrow(source)}.read(name.c_str()).array();
  if (values.size() != rows)
    refuse(name + ": expected " + std::to_string(rows) + " rows, found " +
           std::to_string(values.size()));
  list.emplace_back(name, std::move(values));
}

nb::object subdivide(const In<tarn::Vec3f>& pointsIn, const In<int>& countsIn,
                     const In<int>& indicesIn, int levels, const std::optional<ArgSet>& argsIn,
                     const nb::dict& faceVarying, const nb::dict& vertex, const nb::dict& varying) {
  ovo::Array<tarn::Vec3f> points = pointsIn.read("points").array();
  ovo::Array<int> counts = countsIn.read("counts").array();
  ovo::Array<int> indices = indicesIn.read("indices").array();
  if (levels < 0) refuse("levels: expected 0 or more");
  const ArgSet args = argsIn ? *argsIn : ArgSet();

  ovo::MeshTessellateContext mesh;
  mesh.vertsPerFace = &counts;
  mesh.faceVertPointIndices = &indices;
  mesh.points = &points;
  Carried corners;
  std::list<std::pair<std::string, ovo::Array<tarn::Vec3f>>> smooth, linear;
  for (const auto& [key, value] : faceVarying) {
    const std::string name = nb::cast<std::string>(key);
    switch (widthOf(value, name)) {
      case 0: add(corners.floats, name, value, indices.size()); break;
      case 2: add(corners.vec2s, name, value, indices.size()); break;
      case 3: add(corners.vec3s, name, value, indices.size()); break;
      default: refuse(name + ": expected shape (n,), (n, 2) or (n, 3)");
    }
  }
  for (const auto& [key, value] : vertex)
    add(smooth, nb::cast<std::string>(key), value, points.size());
  for (const auto& [key, value] : varying)
    add(linear, nb::cast<std::string>(key), value, points.size());
  for (auto& [name, values] : corners.floats) mesh.floats.push_back(&values);
  for (auto& [name, values] : corners.vec2s) mesh.vec2s.push_back(&values);
  for (auto& [name, values] : corners.vec3s) mesh.vec3s.push_back(&values);
  for (auto& [name, values] : smooth) mesh.pointVec3s.push_back(&values);
  for (auto& [name, values] : linear) mesh.linearPointVec3s.push_back(&values);
  ovo::Array<int> sourceFaces, refinedPointOf;
  mesh.sourceFaces = &sourceFaces;
  mesh.refinedPointOf = &refinedPointOf;

  if (levels > 0) {
    std::string why;
    bool isRefined = false;
    const std::size_t faces = counts.size(), corner = indices.size(), n = points.size();
    {
      const Unlocked unlocked;
      isRefined = ovo::subdivideUniform(args, faces, corner, n, 0, levels, mesh, &why);
    }
    if (!isRefined) refuse(why);
  } else {
    sourceFaces.resize(counts.size());
    for (std::size_t i = 0; i < counts.size(); ++i) sourceFaces[i] = static_cast<int>(i);
    refinedPointOf.resize(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) refinedPointOf[i] = static_cast<int>(i);
  }

  nb::dict data;
  for (const auto& [name, values] : corners.floats) data[name.c_str()] = shareOut(values);
  for (const auto& [name, values] : corners.vec2s) data[name.c_str()] = shareOut(values);
  for (const auto& [name, values] : corners.vec3s) data[name.c_str()] = shareOut(values);
  for (const auto& [name, values] : smooth) data[name.c_str()] = shareOut(values);
  for (const auto& [name, values] : linear) data[name.c_str()] = shareOut(values);
  return nb::module_::import_("vela._results")
      .attr("Subdivided")(shareOut(points), shareOut(counts), shareOut(indices),
                          shareOut(sourceFaces), shareOut(refinedPointOf), data);
}

}  // namespace

void bindSubdivision(nb::module_& m) {
  Record<ArgSet> args(
      m, "ArgSet",
      "How a mesh is to be refined, in the words of scene files. What names nothing in "
      "the mesh counts for nothing.\n\n"
      ">>> vela.ovo.ArgSet(scheme='bilinear').scheme\n'bilinear'");
  args.field("scheme", &ArgSet::scheme, "`catmullClark`, `loop` or `bilinear`.")
      .field("interpolate_boundary", &ArgSet::interpolateBoundary,
             "`none`, `edgeOnly` or `edgeAndCorner`.")
      .field("face_varying_linear_interpolation", &ArgSet::faceVaryingLinearInterpolation,
             "`none`, `cornersOnly`, `cornersPlus1`, `cornersPlus2`, `boundaries` or `all`.")
      .field("triangle_subdivision_rule", &ArgSet::triangleSubdivisionRule,
             "`catmullClark` or `smooth`.")
      .field("hole_indices", &ArgSet::holeIndices, "Faces that do not come out, (n,).")
      .field("crease_indices", &ArgSet::creaseIndices, "Points along creases, (n,).")
      .field("crease_lengths", &ArgSet::creaseLengths, "Points of each crease, (creases,).")
      .field("crease_sharpnesses", &ArgSet::creaseSharpnesses, "One a crease or an edge.")
      .field("corner_indices", &ArgSet::cornerIndices, "Sharp points, (n,).")
      .field("corner_sharpnesses", &ArgSet::cornerSharpnesses, "One for each of them.");
  args.type().def_static(
      "of",
      [](const ovo::MeshPrim& prim, Time time) {
        requireOpen(prim);
        return ArgSet(prim, time);
      },
      nb::arg("mesh"), nb::arg("time") = Time(), "All that a mesh prim says at the time.");
  m.def("subdivide_uniform", &subdivide, nb::arg("points"), nb::arg("counts"), nb::arg("indices"),
        nb::arg("levels"), nb::arg("args") = nb::none(), nb::kw_only(),
        nb::arg("face_varying") = nb::dict(), nb::arg("vertex") = nb::dict(),
        nb::arg("varying") = nb::dict(),
        nb::sig(
            "def subdivide_uniform(points: numpy.typing.ArrayLike, counts: numpy.typing.ArrayLike, "
            "indices: numpy.typing.ArrayLike, levels: int, args: ArgSet | None = None, *, "
            "face_varying: dict[str, numpy.typing.ArrayLike] = {}, "
            "vertex: dict[str, numpy.typing.ArrayLike] = {}, "
            "varying: dict[str, numpy.typing.ArrayLike] = {}) -> vela._results.Subdivided"),
        "Refines a mesh: points (n, 3), counts (faces,), indices (face-vertices,).\n\n"
        "`face_varying` data, (face-vertices,), (.., 2) or (.., 3), is refined as surfaces of its "
        "own; "
        "`vertex` and `varying` data (points, 3) as the points are, or linearly. Points come out "
        "where "
        "the refinements put them. ValueError with the reason when the mesh cannot be refined.\n\n"
        ">>> square = [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]]\n"
        ">>> fine = vela.ovo.subdivide_uniform(square, [4], [0, 1, 2, 3], 2)\n"
        ">>> fine.points.shape, fine.source_faces.tolist()[:3]\n((25, 3), [0, 0, 0])");
}

}  // namespace vela::python
