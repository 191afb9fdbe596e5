#include "vela/scene/MeshDefects.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <tuple>
#include <utility>

#include "ovo/Primvar.h"
#include "ovo/Tokens.h"
#include "tarn/Area.h"
#include "tarn/Vec.h"

namespace vela::scene {

namespace {

using tarn::Vec3d;
using Face = MeshTopology::Faces::Face;
using Kind = MeshDefect::Kind;

void add(std::vector<MeshDefect>& defects, Kind kind, std::size_t where) {
  for (MeshDefect& d : defects)
    if (d.kind == kind) {
      ++d.count;
      return;
    }
  defects.push_back({kind, 1, where});
}

Vec3d cornerOf(const MeshTopology& mesh, const Face& face, std::size_t k) {
  return Vec3d(mesh.points.view()[face[k]]);
}

// ---- Faces that cross themselves

// A corner in the plane that is looked at.
struct FlatCorner {
  double x, y;
};

// Twice the area of three of them: above 0 when they turn left.
double turnOf(const FlatCorner& a, const FlatCorner& b, const FlatCorner& c) {
  return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

// The axis along which a face is widest. One whose halves cancel each other out is seen along that
// of its largest corner.
std::size_t widestAxis(const MeshTopology& mesh, const Face& face, const Vec3d& area) {
  const std::size_t n = face.size();
  const auto corner = [&](std::size_t k) { return cornerOf(mesh, face, k % n); };
  Vec3d along = area;
  for (std::size_t k = 0; k < n && area.lengthSquared() == 0; ++k) {
    const Vec3d turn = tarn::areaVector(corner(k), corner(k + 1), corner(k + 2));
    if (turn.lengthSquared() > along.lengthSquared()) along = turn;
  }
  const Vec3d width(std::fabs(along.x), std::fabs(along.y), std::fabs(along.z));
  return width.z >= width.x && width.z >= width.y ? 2 : width.x >= width.y ? 0 : 1;
}

// True when two sides cross somewhere between their ends, seen along the axis in which the face is
// widest. False as well when the work was stopped.
bool sidesCross(const MeshTopology& mesh, const Face& face, const Vec3d& area, const Work& work) {
  const std::size_t n = face.size(), axis = widestAxis(mesh, face, area);

  // Sides by where they begin along x: only those that overlap there are tried against each other.
  struct Side {
    FlatCorner from, to;
    double low, high;
    std::size_t number;
  };
  std::vector<Side> sides(n);
  for (std::size_t k = 0; k < n; ++k) {
    const auto flat = [&](std::size_t c) {
      const Vec3d corner = cornerOf(mesh, face, c % n);
      return FlatCorner{corner[(axis + 1) % 3], corner[(axis + 2) % 3]};
    };
    sides[k] = {flat(k), flat(k + 1), 0, 0, k};
    sides[k].low = std::min(sides[k].from.x, sides[k].to.x);
    sides[k].high = std::max(sides[k].from.x, sides[k].to.x);
  }
  std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) { return a.low < b.low; });

  for (std::size_t i = 0; i < n; ++i) {
    if ((i & 0xFFF) == 0 && work.isStopped()) return false;
    for (std::size_t j = i + 1; j < n && sides[j].low <= sides[i].high; ++j) {
      const Side &a = sides[i], &b = sides[j];
      const std::size_t apart = a.number > b.number ? a.number - b.number : b.number - a.number;
      if (apart == 1 || apart == n - 1) continue;
      if (turnOf(a.from, a.to, b.from) * turnOf(a.from, a.to, b.to) < 0 &&
          turnOf(b.from, b.to, a.from) * turnOf(b.from, b.to, a.to) < 0)
        return true;
    }
  }
  return false;
}

// A quadrilateral whose halves face opposite ways whichever diagonal cuts it, and a larger face
// with sides that cross.
bool crossesItself(const MeshTopology& mesh, const Face& face, const Vec3d& area,
                   const Work& work) {
  if (face.size() > 4) return sidesCross(mesh, face, area, work);
  if (face.size() < 4) return false;
  const auto half = [&](std::size_t a, std::size_t b, std::size_t c) {
    return tarn::areaVector(cornerOf(mesh, face, a), cornerOf(mesh, face, b),
                            cornerOf(mesh, face, c));
  };
  return dot(half(0, 1, 2), half(0, 2, 3)) < 0 && dot(half(1, 2, 3), half(1, 3, 0)) < 0;
}

// ---- Steps of a report

void inspectArrays(const MeshTopology& mesh, std::vector<char>& isUsed,
                   std::vector<MeshDefect>& defects) {
  const auto pointCount = static_cast<std::int64_t>(mesh.points.size());
  std::int64_t sum = 0;
  for (std::size_t f = 0; f < mesh.vertsPerFace.size(); ++f) {
    const std::int32_t n = mesh.vertsPerFace.view()[f];
    if (n < 3) add(defects, Kind::smallFace, f);
    sum += std::max(n, 0);
  }
  if (sum != static_cast<std::int64_t>(mesh.faceVertPointIndices.size()))
    add(defects, Kind::countsOff, static_cast<std::size_t>(sum));
  for (std::size_t v = 0; v < mesh.faceVertPointIndices.size(); ++v) {
    const std::int32_t p = mesh.faceVertPointIndices.view()[v];
    if (p < 0 || p >= pointCount)
      add(defects, Kind::indexOutOfRange, v);
    else
      isUsed[static_cast<std::size_t>(p)] = 1;
  }
}

struct Side {
  int from, to;
  std::size_t face;
  friend bool operator<(const Side& a, const Side& b) {
    return std::tie(a.from, a.to, a.face) < std::tie(b.from, b.to, b.face);
  }
};

// \return false when the work was stopped
bool inspectFaces(const MeshTopology& mesh, std::vector<Side>& sides, MeshReport& report,
                  const Work& work) {
  const auto pointCount = static_cast<std::int64_t>(mesh.points.size());
  std::vector<int> sorted;
  for (const auto face : mesh.faces()) {
    if ((face.index() & 0xFFFF) == 0 && work.isStopped()) return false;
    if (face.size() == 3) ++report.triangles;
    if (face.size() == 4) ++report.quads;
    const bool usable = face.size() >= 3 && std::all_of(face.begin(), face.end(), [&](int p) {
                          return p >= 0 && p < pointCount && isFinite(mesh.points.view()[p]);
                        });
    if (!usable) continue;
    sorted.assign(face.begin(), face.end());
    std::sort(sorted.begin(), sorted.end());
    const Vec3d area =
        tarn::areaVector(face.size(), [&](std::size_t k) { return cornerOf(mesh, face, k); });
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
      add(report.defects, Kind::pointTwice, face.index());
    else if (crossesItself(mesh, face, area, work))
      add(report.defects, Kind::foldedFace, face.index());
    else if (area.x == 0 && area.y == 0 && area.z == 0)
      add(report.defects, Kind::flatFace, face.index());
    for (std::size_t k = 0; k < face.size(); ++k) {
      const int from = face[k], to = face[(k + 1) % face.size()];
      if (from != to) sides.push_back({from, to, face.index()});
    }
  }
  return !work.isStopped();
}

void inspectPrimvars(const ovo::MeshPrim& prim, double time, MeshReport& report) {
  const ovo::Tokens& t = ovo::tokens();
  const auto inspect = [&](const ovo::Primvar& primvar) {
    const ovo::Token interpolation = primvar.interpolation();
    PrimvarReport facts;
    facts.name = primvar.name().asString();
    facts.type = primvar.typeName().asString();
    facts.interpolation = interpolation.asString();
    facts.elements = primvar.elementCount(time);
    facts.isIndexed = primvar.isIndexed();
    std::size_t expected = facts.elements;
    if (interpolation == t.faceVarying) expected = report.faceVertices;
    if (interpolation == t.vertex || interpolation == t.varying) expected = report.points;
    if (interpolation == t.uniform) expected = report.faces;
    if (interpolation == t.constant && !primvar.isArray()) expected = 1;
    facts.fits = facts.elements == expected || facts.elements == 0;
    if (!facts.fits) add(report.defects, Kind::primvarCount, report.primvars.size());
    report.primvars.push_back(std::move(facts));
  };
  for (const ovo::Token& name : prim.getPrimvarNames()) inspect(prim.getPrimvar(name));
  const ovo::Primvar normals(prim.getAttr(t.normals));
  if (normals.isValid() && normals.hasAuthoredValue()) inspect(normals);
}

}  // namespace

const char* describe(MeshDefect::Kind kind) {
  switch (kind) {
    case Kind::smallFace: return "face of fewer than three vertices";
    case Kind::countsOff: return "counts do not add up to the number of indices";
    case Kind::indexOutOfRange: return "index out of range";
    case Kind::pointTwice: return "face that names a point twice";
    case Kind::foldedFace: return "folded face";
    case Kind::flatFace: return "face without area";
    case Kind::sameWayEdge: return "edge along which two faces run the same way";
    case Kind::badPoint: return "point that is not finite";
    case Kind::unusedPoint: return "unused point";
    case Kind::primvarCount: return "primvar whose count does not fit its interpolation";
  }
  return "";
}

std::optional<MeshReport> inspectMesh(const MeshTopology& mesh, const Work& work) {
  MeshReport report;
  report.points = mesh.points.size();
  report.faces = mesh.vertsPerFace.size();
  report.faceVertices = mesh.faceVertPointIndices.size();

  std::vector<char> isUsed(mesh.points.size(), 0);
  inspectArrays(mesh, isUsed, report.defects);

  std::vector<Side> sides;
  sides.reserve(mesh.faceVertPointIndices.size());
  if (!inspectFaces(mesh, sides, report, work)) return std::nullopt;

  // Two faces that run the same way along an edge are wound differently, or lie on each other.
  std::sort(sides.begin(), sides.end());
  for (std::size_t i = 1; i < sides.size(); ++i)
    if (sides[i].from == sides[i - 1].from && sides[i].to == sides[i - 1].to)
      add(report.defects, Kind::sameWayEdge, sides[i].face);

  for (std::size_t p = 0; p < mesh.points.size(); ++p) {
    if (!isFinite(mesh.points.view()[p])) add(report.defects, Kind::badPoint, p);
    if (!isUsed[p]) add(report.defects, Kind::unusedPoint, p);
  }
  for (const auto& edge : mesh.edges()) {
    ++report.edges;
    report.borderEdges += edge.faceCount == 1 ? 1u : 0u;
    report.crowdedEdges += edge.faceCount > 2 ? 1u : 0u;
  }
  return report;
}

std::optional<MeshReport> inspectMesh(const ovo::MeshPrim& prim, double time, const Work& work) {
  // Array by array: what is missing must not hide what is there.
  MeshTopology mesh;
  prim.getPoints(mesh.points, time);
  prim.getAttr(ovo::tokens().faceVertexCounts).get(mesh.vertsPerFace, time);
  prim.getAttr(ovo::tokens().faceVertexIndices).get(mesh.faceVertPointIndices, time);
  std::optional<MeshReport> report = inspectMesh(mesh, work);
  if (!report) return std::nullopt;
  report->path = prim.getPath().asString();
  report->scheme = prim.getSubdivisionScheme().asString();
  report->orientation = prim.getOrientation().asString();
  report->bounds = prim.getBoundsBox(time, false);
  inspectPrimvars(prim, time, *report);
  return report;
}

}  // namespace vela::scene
