#include "ovo/detail/SubdivideInput.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "ovo/Faces.h"

namespace ovo::detail::subdivision {

namespace {

using tarn::Vec3f;

constexpr std::size_t kMaxValence = 65535;  // OpenSubdiv counts neighbours in 16 bits
constexpr int kMaxLevels = 15;              // and levels in 4
constexpr float kInfinitelySharp = 10;      // to OpenSubdiv: an edge that stays sharp for ever

// Where the parts of the Level come from.
struct Origins {
  std::vector<int> faceOf;           // the Level's face of each of the caller's faces, or -1
  std::vector<std::size_t> corners;  // the caller's corner of each of the Level's corners
};

// Takes the usable faces, without points that are repeated one after another. \return false when
// there is none.
bool takeFaces(const Request& request, Level& level, Origins& from) {
  from.faceOf.assign(request.faces, -1);
  std::vector<int> corner;
  std::vector<int> sorted;
  const Faces all(request.context.vertsPerFace->view().first(request.faces),
                  request.context.faceVertPointIndices->view().first(request.faceVerts));
  for (const Face face : all) {
    if (!face.isUsable(request.points)) continue;
    const std::size_t cornersBefore = from.corners.size();
    corner.clear();
    for (std::size_t k = 0; k < face.size(); ++k) {
      if (face[k] == face[k == 0 ? face.size() - 1 : k - 1]) continue;
      corner.push_back(face[k]);
      from.corners.push_back(face.firstVertex() + k);
    }
    // OpenSubdiv takes no face that comes back to a point.
    sorted = corner;
    std::sort(sorted.begin(), sorted.end());
    if (corner.size() < 3 || std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
      from.corners.resize(cornersBefore);
      continue;
    }
    from.faceOf[face.index()] = static_cast<int>(level.counts.size());
    level.counts.push_back(static_cast<int>(corner.size()));
    level.indices.insert(level.indices.end(), corner.begin(), corner.end());
  }
  return !level.counts.empty();
}

// Numbers the points anew so that every one is used, and takes their data.
void takePoints(const Request& request, Input& input) {
  const MeshTessellateContext& context = request.context;
  input.perPoint.push_back({context.points, false, {}});
  for (Array<Vec3f>* array : context.pointVec3s) input.perPoint.push_back({array, false, {}});
  for (Array<Vec3f>* array : context.linearPointVec3s) input.perPoint.push_back({array, true, {}});
  std::vector<int>& pointOf = input.pointOf;
  pointOf.assign(request.points, -1);
  for (const int p : input.level.indices) pointOf[at(p)] = 0;
  int next = 0;
  for (std::size_t p = 0; p < request.points; ++p)
    if (pointOf[p] == 0) {
      pointOf[p] = next++;
      for (PointData& data : input.perPoint) data.values.push_back({data.target->view()[p]});
    }
  for (int& p : input.level.indices) p = pointOf[at(p)];
  input.level.pointCount = next;
}

// The edges of the creases by the Level's points, as they are given: repeated ones too, and some
// that are no edge of the mesh.
std::vector<SharpEdge> edgesOfCreases(const ArgSet& args, const std::vector<int>& pointOf) {
  std::vector<SharpEdge> edges;
  const auto pointAt = [&](std::size_t i) {
    const int p = args.creaseIndices[i];
    return p >= 0 && at(p) < pointOf.size() ? pointOf[at(p)] : -1;
  };
  std::size_t edgeCount = 0;
  for (const int length : args.creaseLengths)
    if (length > 1) edgeCount += at(length) - 1;
  const bool perEdge =
      args.creaseSharpnesses.size() == edgeCount && edgeCount != args.creaseLengths.size();
  std::size_t cursor = 0, edge = 0;
  for (std::size_t crease = 0; crease < args.creaseLengths.size(); ++crease) {
    const int length = args.creaseLengths[crease];
    if (length <= 0) continue;
    if (at(length) > args.creaseIndices.size() - cursor) break;
    for (std::size_t k = 0; k + 1 < at(length); ++k, ++edge) {
      const std::size_t s = perEdge ? edge : crease;
      const int a = pointAt(cursor + k), b = pointAt(cursor + k + 1);
      if (s >= args.creaseSharpnesses.size() || a < 0 || b < 0 || a == b) continue;
      const float sharpness = args.creaseSharpnesses[s];
      if (sharpness > 0)
        edges.push_back({std::min(a, b), std::max(a, b), std::min(sharpness, kInfinitelySharp)});
    }
    cursor += at(length);
  }
  return edges;
}

// Only edges that the mesh has may be named to OpenSubdiv, which complains about others on the
// screen.
void takeCreases(const ArgSet& args, const std::vector<int>& pointOf, Level& level) {
  std::vector<SharpEdge> edges = edgesOfCreases(args, pointOf);
  if (edges.empty()) return;

  // Of several entries for one edge the last counts.
  std::stable_sort(edges.begin(), edges.end(), beforeByEnds);
  std::vector<SharpEdge> unique;
  for (const SharpEdge& e : edges) {
    if (!unique.empty() && sameEnds(unique.back(), e)) unique.pop_back();
    unique.push_back(e);
  }

  std::vector<char> exists(unique.size(), 0);
  for (const Face face : Faces(level.counts, level.indices))
    for (std::size_t k = 0; k < face.size(); ++k) {
      const int a = face[k], b = face[(k + 1) % face.size()];
      const SharpEdge key{std::min(a, b), std::max(a, b), 0};
      const auto found = std::lower_bound(unique.begin(), unique.end(), key, beforeByEnds);
      if (found != unique.end() && sameEnds(*found, key))
        exists[static_cast<std::size_t>(found - unique.begin())] = 1;
    }
  for (std::size_t i = 0; i < unique.size(); ++i)
    if (exists[i]) level.edges.push_back(unique[i]);
}

void takeCornersAndHoles(const ArgSet& args, const std::vector<int>& pointOf,
                         const std::vector<int>& faceOf, Level& level) {
  const std::size_t count = std::min(args.cornerIndices.size(), args.cornerSharpnesses.size());
  for (std::size_t i = 0; i < count; ++i) {
    const int p = args.cornerIndices[i];
    if (p >= 0 && at(p) < pointOf.size() && pointOf[at(p)] >= 0 && args.cornerSharpnesses[i] > 0)
      level.points.push_back(
          {pointOf[at(p)], std::min(args.cornerSharpnesses[i], kInfinitelySharp)});
  }
  std::stable_sort(level.points.begin(), level.points.end(),
                   [](const SharpPoint& l, const SharpPoint& r) { return l.point < r.point; });
  for (const int hole : args.holeIndices) {
    if (hole < 0 || at(hole) >= faceOf.size() || faceOf[at(hole)] < 0) continue;
    if (level.holes.empty()) level.holes.assign(level.counts.size(), 0);
    level.holes[at(faceOf[at(hole)])] = 1;
  }
}

// Bits that are equal for equal values, and give them some order: adding zero turns -0 into +0.
template <class T>
std::array<char, sizeof(T)> bitsOf(const T& value) {
  std::array<char, sizeof(T)> bits;
  const T plain = value + T{};
  std::memcpy(bits.data(), &plain, sizeof(T));
  return bits;
}

// Arrays with a value a corner: equal values around a point are joined.
template <class T>
void takeCornerData(const std::vector<Array<T>*>& arrays, const PointCorners& around,
                    const std::vector<std::size_t>& corners, Input& input) {
  Level& level = input.level;
  std::vector<int> order;
  for (Array<T>* array : arrays) {
    const tarn::Span<const T> given = array->view();
    const auto valueAt = [&](int corner) -> const T& { return given[corners[at(corner)]]; };
    auto taken = std::make_unique<CornerDataOf<T>>(0, array);
    Channel channel;
    channel.valueOfCorner.resize(level.indices.size());
    for (std::size_t p = 0; p < at(level.pointCount); ++p) {
      order.assign(around.cornerAt.begin() + around.start[p],
                   around.cornerAt.begin() + around.start[p + 1]);
      std::stable_sort(order.begin(), order.end(),
                       [&](int l, int r) { return bitsOf(valueAt(l)) < bitsOf(valueAt(r)); });
      for (std::size_t i = 0; i < order.size(); ++i) {
        if (i == 0 || bitsOf(valueAt(order[i])) != bitsOf(valueAt(order[i - 1]))) {
          taken->values.push_back({valueAt(order[i])});
          ++channel.valueCount;
        }
        channel.valueOfCorner[at(order[i])] = channel.valueCount - 1;
      }
    }
    // Arrays with the same seams share a channel.
    std::size_t c = 0;
    while (c < level.channels.size() && level.channels[c].valueOfCorner != channel.valueOfCorner)
      ++c;
    if (c == level.channels.size()) level.channels.push_back(std::move(channel));
    taken->channel = c;
    input.perCorner.push_back(std::move(taken));
  }
}

// False when the result could not be counted: checked before anything large is made.
bool fits(const Level& level, const Request& request) {
  std::size_t corners =
      request.scheme == Sdc::SCHEME_LOOP ? level.counts.size() * 3 : level.indices.size();
  for (int l = 0; l < request.levels; ++l) {
    if (l >= kMaxLevels || corners > kMaxIndex / 4) return false;
    corners *= 4;
  }
  return true;
}

}  // namespace

bool takeInput(const Request& request, Input& input, std::string& why) {
  const bool isLoop = request.scheme == Sdc::SCHEME_LOOP;
  const auto refuse = [&](const char* reason) {
    why = reason;
    return false;
  };
  const char* const kForTriangles = "the scheme loop is for triangles alone";
  const auto refuseFaces = [&] {
    // Under loop a larger face that is broken too is told for what it is first.
    for (const int count : request.context.vertsPerFace->view().first(request.faces))
      if (isLoop && count > 3) return refuse(kForTriangles);
    return refuse("it has no usable face, or more neighbours at a point than can be counted");
  };

  // Faces and points.
  Level& level = input.level;
  Origins from;
  if (!takeFaces(request, level, from)) return refuseFaces();
  takePoints(request, input);
  if (request.context.sourceFaces) {
    level.sources.resize(level.counts.size());
    for (std::size_t face = 0; face < request.faces; ++face)
      if (from.faceOf[face] >= 0) level.sources[at(from.faceOf[face])] = static_cast<int>(face);
  }
  takeCreases(request.args, input.pointOf, level);
  takeCornersAndHoles(request.args, input.pointOf, from.faceOf, level);

  // What cannot be refined.
  if (!fits(level, request)) return refuse("the refined mesh would be too large to count");
  for (const int count : level.counts) {
    if (isLoop && count != 3) return refuse(kForTriangles);
    if (at(count) > kMaxValence) return refuseFaces();
  }
  const PointCorners around(level);
  for (std::size_t p = 0; p < at(level.pointCount); ++p)
    if (at(around.start[p + 1] - around.start[p]) > kMaxValence / 2) return refuseFaces();

  // Data per corner.
  takeCornerData(request.context.floats, around, from.corners, input);
  takeCornerData(request.context.vec2s, around, from.corners, input);
  takeCornerData(request.context.vec3s, around, from.corners, input);
  return true;
}

}  // namespace ovo::detail::subdivision
