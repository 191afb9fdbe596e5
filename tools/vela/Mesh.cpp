#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Interrupt.h"
#include "Options.h"
#include "Scene.h"
#include "Text.h"
#include "ovo/Primvar.h"
#include "ovo/Tokens.h"
#include "vela/mesh/MeshTopology.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

using Json = nlohmann::ordered_json;
using tarn::Vec3;

struct Defect {
  std::string kind;
  std::size_t count = 0;
  std::size_t first = 0;  // the first face, point or face-vertex that has it
};

struct PrimvarFacts {
  std::string name, type, interpolation;
  std::size_t elements = 0;
  bool indexed = false, fits = true;
};

struct MeshReport {
  std::string path, scheme, orientation;
  std::size_t points = 0, faces = 0, faceVertices = 0, triangles = 0, quads = 0, edges = 0,
              borderEdges = 0, crowdedEdges = 0;
  tarn::Box3<float> bounds;
  std::vector<PrimvarFacts> primvars;
  std::vector<Defect> defects;
};

class Defects {
 public:
  explicit Defects(std::vector<Defect>& out) : out_(out) {}
  void add(const char* kind, std::size_t where) {
    for (Defect& d : out_)
      if (d.kind == kind) {
        ++d.count;
        return;
      }
    out_.push_back({kind, 1, where});
  }

 private:
  std::vector<Defect>& out_;
};

bool isFinite(const Vec3<float>& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// Twice the area along the mean normal, in double, about the first corner (Newell).
Vec3<double> areaVector(const vela::MeshTopology& mesh,
                        const vela::MeshTopology::Faces::Face& face) {
  Vec3<double> sum;
  const auto corner = [&](std::size_t k) { return Vec3<double>(mesh.points.cdata()[face[k]]); };
  const Vec3<double> origin = corner(0);
  for (std::size_t k = 1; k + 1 < face.size(); ++k)
    sum += cross(corner(k) - origin, corner(k + 1) - origin);
  return sum;
}

// Corners by their axes, for looking along the one in which the face is widest.
struct FlatCorner {
  double x, y;
};

// Twice the area of three of them: above 0 when they turn left.
double turnOf(const FlatCorner& a, const FlatCorner& b, const FlatCorner& c) {
  return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

// True when two sides cross somewhere between their ends. Looked at along the axis in which the
// face is widest; one whose halves cancel each other out is seen along that of its largest corner.
bool sidesCross(const vela::MeshTopology& mesh, const vela::MeshTopology::Faces::Face& face,
                const Vec3<double>& area) {
  const std::size_t n = face.size();
  const auto corner = [&](std::size_t k) { return Vec3<double>(mesh.points.cdata()[face[k % n]]); };
  Vec3<double> along = area;
  for (std::size_t k = 0; k < n && area.lengthSquared() == 0; ++k) {
    const Vec3<double> turn = cross(corner(k + 1) - corner(k), corner(k + 2) - corner(k));
    if (turn.lengthSquared() > along.lengthSquared()) along = turn;
  }
  const Vec3<double> width(std::fabs(along.x), std::fabs(along.y), std::fabs(along.z));
  const std::size_t axis = width.z >= width.x && width.z >= width.y ? 2
                           : width.x >= width.y                     ? 0
                                                                    : 1;

  // Sides by where they begin along x: only those that overlap there are tried against each other.
  struct Side {
    FlatCorner from, to;
    double low, high;
    std::size_t number;
  };
  std::vector<Side> sides(n);
  for (std::size_t k = 0; k < n; ++k) {
    const auto flat = [&](std::size_t c) {
      return FlatCorner{corner(c)[(axis + 1) % 3], corner(c)[(axis + 2) % 3]};
    };
    sides[k] = {flat(k), flat(k + 1), 0, 0, k};
    sides[k].low = std::min(sides[k].from.x, sides[k].to.x);
    sides[k].high = std::max(sides[k].from.x, sides[k].to.x);
  }
  std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) { return a.low < b.low; });
  for (std::size_t i = 0; i < n; ++i) {
    if ((i & 0xFFF) == 0) throwIfInterrupted();
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
bool crossesItself(const vela::MeshTopology& mesh, const vela::MeshTopology::Faces::Face& face,
                   const Vec3<double>& area) {
  if (face.size() > 4) return sidesCross(mesh, face, area);
  if (face.size() < 4) return false;
  const auto half = [&](std::size_t a, std::size_t b, std::size_t c) {
    const auto corner = [&](std::size_t k) { return Vec3<double>(mesh.points.cdata()[face[k]]); };
    return cross(corner(b) - corner(a), corner(c) - corner(a));
  };
  return dot(half(0, 1, 2), half(0, 2, 3)) < 0 && dot(half(1, 2, 3), half(1, 3, 0)) < 0;
}

void inspectFaces(const vela::MeshTopology& mesh, MeshReport& report) {
  Defects defects(report.defects);
  const auto pointCount = static_cast<std::int64_t>(mesh.points.size());
  std::int64_t sum = 0;
  for (std::size_t f = 0; f < mesh.vertsPerFace.size(); ++f) {
    const std::int32_t n = mesh.vertsPerFace.cdata()[f];
    if (n < 3) defects.add("face of fewer than three vertices", f);
    sum += std::max(n, 0);
  }
  if (sum != static_cast<std::int64_t>(mesh.faceVertPointIndices.size()))
    defects.add("counts do not add up to the number of indices", static_cast<std::size_t>(sum));

  std::vector<char> used(mesh.points.size(), 0);
  std::vector<std::tuple<int, int, std::size_t>> sides;  // from, to, face
  sides.reserve(mesh.faceVertPointIndices.size());
  std::vector<int> sorted;
  for (std::size_t v = 0; v < mesh.faceVertPointIndices.size(); ++v) {
    const std::int32_t p = mesh.faceVertPointIndices.cdata()[v];
    if (p < 0 || p >= pointCount)
      defects.add("index out of range", v);
    else
      used[static_cast<std::size_t>(p)] = 1;
  }
  for (const auto face : mesh.faces()) {
    if ((face.index() & 0xFFFF) == 0) throwIfInterrupted();
    if (face.size() == 3) ++report.triangles;
    if (face.size() == 4) ++report.quads;
    const bool usable = face.size() >= 3 && std::all_of(face.begin(), face.end(), [&](int p) {
                          return p >= 0 && p < pointCount && isFinite(mesh.points.cdata()[p]);
                        });
    if (!usable) continue;
    sorted.assign(face.begin(), face.end());
    std::sort(sorted.begin(), sorted.end());
    const Vec3<double> area = areaVector(mesh, face);
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
      defects.add("face that names a point twice", face.index());
    else if (crossesItself(mesh, face, area))
      defects.add("folded face", face.index());
    else if (area.x == 0 && area.y == 0 && area.z == 0)
      defects.add("face without area", face.index());
    for (std::size_t k = 0; k < face.size(); ++k) {
      const int from = face[k], to = face[(k + 1) % face.size()];
      if (from != to) sides.emplace_back(from, to, face.index());
    }
  }
  // Two faces that run the same way along an edge are wound differently, or lie on each other.
  std::sort(sides.begin(), sides.end());
  for (std::size_t i = 1; i < sides.size(); ++i)
    if (std::get<0>(sides[i]) == std::get<0>(sides[i - 1]) &&
        std::get<1>(sides[i]) == std::get<1>(sides[i - 1]))
      defects.add("edge along which two faces run the same way", std::get<2>(sides[i]));
  for (std::size_t p = 0; p < mesh.points.size(); ++p) {
    if (!isFinite(mesh.points.cdata()[p])) defects.add("point that is no number", p);
    if (!used[p]) defects.add("unused point", p);
  }
  for (const auto& edge : mesh.edges()) {
    ++report.edges;
    report.borderEdges += edge.faceCount == 1 ? 1u : 0u;
    report.crowdedEdges += edge.faceCount > 2 ? 1u : 0u;
  }
}

void inspectPrimvars(const ovo::MeshPrim& prim, double time, MeshReport& report) {
  const ovo::Tokens& t = ovo::tokens();
  Defects defects(report.defects);
  const auto inspect = [&](const ovo::Primvar& primvar) {
    PrimvarFacts facts;
    facts.name = primvar.name().asString();
    facts.type = primvar.typeName().asString();
    facts.interpolation = primvar.interpolation().asString();
    facts.elements = primvar.elementCount(time);
    facts.indexed = primvar.isIndexed();
    const ovo::Token interpolation = primvar.interpolation();
    std::size_t expected = facts.elements;
    if (interpolation == t.faceVarying) expected = report.faceVertices;
    if (interpolation == t.vertex || interpolation == t.varying) expected = report.points;
    if (interpolation == t.uniform) expected = report.faces;
    if (interpolation == t.constant && !primvar.isArray()) expected = 1;
    facts.fits = facts.elements == expected || facts.elements == 0;
    if (!facts.fits)
      defects.add("primvar whose count does not fit its interpolation", report.primvars.size());
    report.primvars.push_back(std::move(facts));
  };
  for (const ovo::Token& name : prim.getPrimvarNames()) inspect(prim.getPrimvar(name));
  const ovo::Primvar normals(prim.getAttr(t.normals));
  if (normals.isValid() && normals.hasAuthoredValue()) inspect(normals);
}

MeshReport reportOf(const ovo::MeshPrim& prim, double time) {
  // Read array by array: what is missing must not hide what is there.
  vela::MeshTopology mesh;
  prim.getPoints(mesh.points, time);
  prim.getAttr(ovo::tokens().faceVertexCounts).get(mesh.vertsPerFace, time);
  prim.getAttr(ovo::tokens().faceVertexIndices).get(mesh.faceVertPointIndices, time);
  MeshReport report;
  report.path = prim.getPath().asString();
  report.scheme = prim.getSubdivisionScheme().asString();
  report.orientation = prim.getOrientation().asString();
  report.points = mesh.points.size();
  report.faces = mesh.vertsPerFace.size();
  report.faceVertices = mesh.faceVertPointIndices.size();
  report.bounds = prim.getBoundsBox(time, false);
  inspectFaces(mesh, report);
  inspectPrimvars(prim, time, report);
  return report;
}

Json number(float value) {
  return std::isfinite(value) ? Json(std::strtod(toText(value).c_str(), nullptr)) : Json();
}
Json vector(const Vec3<float>& v) { return Json::array({number(v.x), number(v.y), number(v.z)}); }

Json toJson(const MeshReport& report) {
  Json primvars = Json::array(), defects = Json::array();
  for (const PrimvarFacts& p : report.primvars)
    primvars.push_back({{"name", p.name},
                        {"type", p.type},
                        {"interpolation", p.interpolation},
                        {"elements", p.elements},
                        {"indexed", p.indexed},
                        {"fits", p.fits}});
  for (const Defect& d : report.defects)
    defects.push_back({{"kind", d.kind}, {"count", d.count}, {"first", d.first}});
  const bool empty = report.bounds.isEmpty();
  return {{"prim", report.path},
          {"points", report.points},
          {"faces", report.faces},
          {"faceVertices", report.faceVertices},
          {"triangles", report.triangles},
          {"quads", report.quads},
          {"edges", report.edges},
          {"borderEdges", report.borderEdges},
          {"edgesOfMoreThanTwoFaces", report.crowdedEdges},
          {"bounds",
           empty ? Json()
                 : Json{{"min", vector(report.bounds.min)}, {"max", vector(report.bounds.max)}}},
          {"subdivisionScheme", report.scheme},
          {"orientation", report.orientation},
          {"primvars", primvars},
          {"defects", defects}};
}

std::string textOf(const Vec3<float>& v) {
  return toText(v.x) + " " + toText(v.y) + " " + toText(v.z);
}

void print(const MeshReport& report) {
  std::printf("%s\n  %zu points, %zu faces (%zu triangles, %zu quads), %zu face-vertices\n",
              report.path.c_str(), report.points, report.faces, report.triangles, report.quads,
              report.faceVertices);
  std::printf("  %zu edges, %zu on borders, %zu of more than two faces\n", report.edges,
              report.borderEdges, report.crowdedEdges);
  if (!report.bounds.isEmpty())
    std::printf("  from %s to %s\n", textOf(report.bounds.min).c_str(),
                textOf(report.bounds.max).c_str());
  std::printf("  subdivision %s, %s\n", report.scheme.c_str(), report.orientation.c_str());
  for (const PrimvarFacts& p : report.primvars)
    std::printf("  %s %s: %zu, %s%s%s\n", p.type.c_str(), p.name.c_str(), p.elements,
                p.interpolation.c_str(), p.indexed ? ", indexed" : "",
                p.fits ? "" : " (does not fit)");
  for (const Defect& d : report.defects)
    std::printf("  defect: %s: %zu, first %zu\n", d.kind.c_str(), d.count, d.first);
}

}  // namespace

void mesh(const MeshOptions& options) {
  const std::shared_ptr<ovo::Stage> stage = openStage("mesh", options.file);
  std::vector<ovo::MeshPrim> prims;
  if (!options.prim.empty()) {
    prims.emplace_back(stage->getPrimAtPath(ovo::Path(options.prim)));
    if (!prims.back().isValid())
      throw Failure{kBadInput, "no such mesh", options.prim, "",
                    "vela info lists the meshes of a scene"};
  } else {
    vela::scene::forEachPrim(
        *stage,
        [&](const ovo::Prim& prim) {
          if (const ovo::MeshPrim candidate(prim); candidate.isValid()) prims.push_back(candidate);
          return true;
        },
        interruptibleWork());
    throwIfInterrupted();
  }

  std::size_t defects = 0, faulty = 0;
  Json all = Json::array();
  for (const ovo::MeshPrim& prim : prims) {
    throwIfInterrupted();
    const MeshReport report = reportOf(prim, options.time);
    defects += report.defects.size();
    faulty += report.defects.empty() ? 0u : 1u;
    if (options.json)
      all.push_back(toJson(report));
    else
      print(report);
  }
  if (options.json) {
    const Json whole = {{"file", options.file}, {"meshes", all}};
    std::fputs((whole.dump(2, ' ', false, Json::error_handler_t::replace) + "\n").c_str(), stdout);
  }
  if (defects > 0)
    throw Failure{kBadInput, "defects", options.file,
                  std::to_string(defects) + " of their kinds in " + std::to_string(faulty) +
                      " of " + std::to_string(prims.size()) + " meshes",
                  ""};
}

}  // namespace command
