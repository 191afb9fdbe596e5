#include "ovo/detail/SubdivideParts.h"

#include <algorithm>
#include <memory>

#include "ovo/detail/SubdivideLevels.h"

namespace ovo::detail::subdivision {

namespace {

// Faces of a part: enough to make what touches them cheap, few enough to need little memory.
constexpr std::size_t kFacesOfPart = 16384;

// An index for each edge, the same from every face that has it: that of a corner is the edge to the
// next corner of its face. By their smaller point, then by their larger one. \return how many
int numberEdges(const Level& level, const PointCorners& around, std::vector<int>& edgeOfCorner) {
  std::vector<int> next(level.indices.size());
  std::vector<int> previous(level.indices.size());
  std::size_t first = 0;
  for (const int count : level.counts) {
    for (std::size_t k = 0; k < at(count); ++k) {
      next[first + k] = static_cast<int>(first + (k + 1) % at(count));
      previous[first + (k + 1) % at(count)] = static_cast<int>(first + k);
    }
    first += at(count);
  }
  edgeOfCorner.assign(level.indices.size(), -1);
  int edges = 0;
  std::vector<std::pair<int, int>> sides;  // larger point, corner
  for (std::size_t p = 0; p < at(level.pointCount); ++p) {
    sides.clear();
    for (int i = around.start[p]; i < around.start[p + 1]; ++i) {
      const int corner = around.cornerAt[at(i)], back = previous[at(corner)];
      const int ahead = level.indices[at(next[at(corner)])], behind = level.indices[at(back)];
      if (at(ahead) > p) sides.emplace_back(ahead, corner);
      if (at(behind) > p) sides.emplace_back(behind, back);
    }
    std::sort(sides.begin(), sides.end());
    for (std::size_t i = 0; i < sides.size(); ++i) {
      if (i == 0 || sides[i].first != sides[i - 1].first) ++edges;
      edgeOfCorner[at(sides[i].second)] = edges - 1;
    }
  }
  return edges;
}

// ---- Cutting a part out

void sortUnique(std::vector<int>& list) {
  std::sort(list.begin(), list.end());
  list.erase(std::unique(list.begin(), list.end()), list.end());
}

// The part's faces and points, in the mesh's order: OpenSubdiv's sums then run as over the whole
// mesh, and round alike.
void takeFaces(const LastLevel& mesh, Part& part) {
  const Level& level = mesh.level;
  const std::size_t corners = level.indices.size();
  const std::size_t endCorner =
      part.end == level.counts.size() ? corners : at(mesh.firstOf[part.end]);
  part.faces.clear();
  // Each point once: that in the middle of a face of many corners is a corner of as many faces, and
  // all of them are around it.
  std::vector<int> points(level.indices.begin() + mesh.firstOf[part.begin],
                          level.indices.begin() + static_cast<std::ptrdiff_t>(endCorner));
  sortUnique(points);
  for (const int p : points)
    for (int i = mesh.around.start[at(p)]; i < mesh.around.start[at(p) + 1]; ++i)
      part.faces.push_back(mesh.faceOfCorner[at(mesh.around.cornerAt[at(i)])]);
  sortUnique(part.faces);

  points.clear();
  for (const int f : part.faces) {
    const auto first = level.indices.begin() + mesh.firstOf[at(f)];
    points.insert(points.end(), first, first + level.counts[at(f)]);
  }
  sortUnique(points);
  part.points.set(std::move(points));
}

// Its topology by its own indices.
void takeTopology(const LastLevel& mesh, Part& part) {
  const Level& level = mesh.level;
  part.level = Level();
  part.level.pointCount = static_cast<int>(part.points.globalOf().size());
  part.level.channels.resize(level.channels.size());
  for (const int f : part.faces) {
    part.level.counts.push_back(level.counts[at(f)]);
    if (!level.holes.empty()) part.level.holes.push_back(level.holes[at(f)]);
    for (std::size_t k = at(mesh.firstOf[at(f)]), end = k + at(level.counts[at(f)]); k < end; ++k) {
      part.level.indices.push_back(part.points[level.indices[k]]);
      for (std::size_t c = 0; c < level.channels.size(); ++c)
        part.level.channels[c].valueOfCorner.push_back(
            part.values[c].add(level.channels[c].valueOfCorner[k]));
    }
  }
  for (std::size_t c = 0; c < level.channels.size(); ++c)
    part.level.channels[c].valueCount = static_cast<int>(part.values[c].globalOf().size());
}

void takeSharpness(const LastLevel& mesh, Part& part) {
  const Level& level = mesh.level;
  if (!level.points.empty())
    for (int p = 0; p < part.level.pointCount; ++p) {
      const int global = part.points.globalOf()[at(p)];
      auto corner = std::lower_bound(level.points.begin(), level.points.end(), global,
                                     [](const SharpPoint& s, int g) { return s.point < g; });
      for (; corner != level.points.end() && corner->point == global; ++corner)
        part.level.points.push_back({p, corner->sharpness});
    }
  if (level.edges.empty()) return;

  // Edges by the sides of the faces: the part may have both ends of an edge, and not the edge.
  for (const int f : part.faces)
    for (int k = 0; k < level.counts[at(f)]; ++k) {
      const int p = level.indices[at(mesh.firstOf[at(f)] + k)];
      const int q = level.indices[at(mesh.firstOf[at(f)] + (k + 1) % level.counts[at(f)])];
      const SharpEdge key{std::min(p, q), std::max(p, q), 0};
      const auto edge = std::lower_bound(level.edges.begin(), level.edges.end(), key, beforeByEnds);
      if (edge != level.edges.end() && sameEnds(*edge, key))
        part.level.edges.push_back({part.points[key.a], part.points[key.b], edge->sharpness});
    }
  std::sort(part.level.edges.begin(), part.level.edges.end(), beforeByEnds);
  part.level.edges.erase(std::unique(part.level.edges.begin(), part.level.edges.end(), sameEnds),
                         part.level.edges.end());
}

// ---- Its data

void refineData(const Part& part, const Far::TopologyRefiner& refiner,
                std::vector<PointData>& perPoint, CornerDataList& perCorner) {
  const Far::PrimvarRefiner refine(refiner);
  const Far::TopologyLevel& next = refiner.GetLevel(1);
  const std::vector<int>& globalOf = part.points.globalOf();
  for (PointData& data : perPoint) {
    data.source.resize(globalOf.size());
    for (std::size_t i = 0; i < data.source.size(); ++i)
      data.source[i] = data.values[at(globalOf[i])];
    data.part.resize(at(next.GetNumVertices()));
    data.interpolate(refine, 1, data.source, data.part);
  }
  for (auto& data : perCorner)
    data->refinePart(refine, part.values[data->channel].globalOf(),
                     next.GetNumFVarValues(static_cast<int>(data->channel)));
}

}  // namespace

LastLevel::LastLevel(const Level& l, bool areTriangles)
    : level(l), triangles(areTriangles), around(l) {
  const std::size_t faces = level.counts.size(), corners = level.indices.size();
  const int edgeCount = numberEdges(level, around, edgeOfCorner);
  firstOf.resize(faces);
  faceOfCorner.resize(corners);
  for (std::size_t f = 0, first = 0; f < faces; first += at(level.counts[f]), ++f) {
    firstOf[f] = static_cast<int>(first);
    for (std::size_t k = 0; k < at(level.counts[f]); ++k)
      faceOfCorner[first + k] = static_cast<int>(f);
  }
  firstEdge = at(level.pointCount);
  firstFace = firstEdge + at(edgeCount);
  pointCount = firstFace + (triangles ? 0 : faces);
  faceCount = triangles ? faces * 4 : corners;
  faceSize = triangles ? 3 : 4;
}

Part::Part(const Level& mesh) : points(at(mesh.pointCount)) {
  for (const Channel& c : mesh.channels) values.emplace_back(at(c.valueCount));
}

bool refineParts(Sdc::SchemeType scheme, const Sdc::Options& options, const LastLevel& mesh,
                 std::vector<PointData>& perPoint, CornerDataList& perCorner, FaceWriter& out) {
  const std::size_t faces = mesh.level.counts.size();
  Part part(mesh.level);
  for (std::size_t begin = 0; begin < faces; begin += kFacesOfPart) {
    part.begin = begin;
    part.end = std::min(faces, begin + kFacesOfPart);
    takeFaces(mesh, part);
    takeTopology(mesh, part);
    takeSharpness(mesh, part);

    const std::unique_ptr<Far::TopologyRefiner> refiner = makeRefiner(part.level, scheme, options);
    if (!refiner) return false;
    refiner->RefineUniform(Far::TopologyRefiner::UniformOptions(1));
    refineData(part, *refiner, perPoint, perCorner);
    out.write(part, *refiner);

    part.points.clear();
    for (Renumbering& v : part.values) v.clear();
  }
  out.finish();
  return true;
}

}  // namespace ovo::detail::subdivision
