#include "ovo/Subdivide.h"

#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "ovo/MeshPrim.h"
#include "ovo/Tokens.h"

namespace ovo {

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

using tarn::Vec3;

constexpr std::size_t kMaxIndex = static_cast<std::size_t>(std::numeric_limits<int>::max());
constexpr std::size_t kMaxValence = 65535;  // OpenSubdiv counts neighbours in 16 bits
constexpr float kInfinitelySharp = 10;      // OpenSubdiv: from here on an edge stays sharp for ever
constexpr int kMaxLevels = 15;              // and levels in 4
// Faces that are refined together in the last step: enough to make their rim cheap, few enough to
// need little memory.
constexpr std::size_t kFacesATime = 16384;

std::size_t at(int index) { return static_cast<std::size_t>(index); }

// What OpenSubdiv's refiner asks of a value.
template <class T>
struct Weighted {
  T value{};
  void Clear() { value = T{}; }
  void AddWithWeight(const Weighted& other, float weight) { value += other.value * weight; }
};

// ---- A mesh at one level

struct SharpEdge {
  int a, b;  // a < b
  float sharpness;
};
bool beforeByEnds(const SharpEdge& l, const SharpEdge& r) {
  return l.a != r.a ? l.a < r.a : l.b < r.b;
}
bool sameEnds(const SharpEdge& l, const SharpEdge& r) { return l.a == r.a && l.b == r.b; }

struct SharpPoint {
  int point;
  float sharpness;
};

// Which values of one carried array are joined: two corners of a point have the same value number
// where the data is continuous across them.
struct Channel {
  std::vector<int> valueOfCorner;
  int valueCount = 0;
};

struct Level {
  int pointCount = 0;
  std::vector<int> counts, indices;
  std::vector<SharpEdge> edges;    // sorted by a, then b
  std::vector<SharpPoint> points;  // sorted
  std::vector<char> holes;         // by face, or empty
  std::vector<int> sources;        // the caller's face of each, or empty
  std::vector<Channel> channels;
};

// An array with a value a point between levels; the first one is that of the positions.
struct PointData {
  Array<Vec3<float>>* target;
  bool linear;
  std::vector<Weighted<Vec3<float>>> values;
  std::vector<Weighted<Vec3<float>>> source = {}, part = {};
  Array<Vec3<float>> result = {};
  Vec3<float>* out = nullptr;

  // The values of a level from those of the one before.
  void interpolate(const Far::PrimvarRefiner& refiner, int level,
                   const std::vector<Weighted<Vec3<float>>>& from,
                   std::vector<Weighted<Vec3<float>>>& to) const {
    if (linear)
      refiner.InterpolateVarying(level, from, to);
    else
      refiner.Interpolate(level, from, to);
  }
};

// A carried array between levels: one value for each value number of its channel.
struct Carried {
  explicit Carried(std::size_t c) : channel(c) {}
  virtual ~Carried() = default;
  // To the next level of a whole refiner.
  virtual void refine(const Far::PrimvarRefiner& refiner, int level, int valueCount) = 0;
  // The next level of a part: values by its own numbers, then handed out by write().
  virtual void refinePart(const Far::PrimvarRefiner& refiner, const std::vector<int>& globalOfLocal,
                          int valueCount) = 0;
  virtual void startOutput(std::size_t corners) = 0;
  virtual void write(std::size_t corner, int value) = 0;
  virtual void finish(std::size_t corners) = 0;
  virtual void commit() noexcept = 0;

  std::size_t channel;
};

template <class T>
struct CarriedOf final : Carried {
  CarriedOf(std::size_t c, Array<T>* t) : Carried(c), target(t) {}

  void refine(const Far::PrimvarRefiner& refiner, int level, int valueCount) override {
    std::vector<Weighted<T>> next(at(valueCount));
    refiner.InterpolateFaceVarying(level, values, next, static_cast<int>(channel));
    values.swap(next);
  }
  void refinePart(const Far::PrimvarRefiner& refiner, const std::vector<int>& globalOfLocal,
                  int valueCount) override {
    source.resize(globalOfLocal.size());
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = values[at(globalOfLocal[i])];
    part.resize(at(valueCount));
    refiner.InterpolateFaceVarying(1, source, part, static_cast<int>(channel));
  }
  void startOutput(std::size_t corners) override {
    result.resize(corners);
    out = result.data();
  }
  void write(std::size_t corner, int value) override { out[corner] = part[at(value)].value; }
  void finish(std::size_t corners) override { result.resize(corners); }
  void commit() noexcept override { *target = std::move(result); }

  Array<T>* target;
  std::vector<Weighted<T>> values, source, part;
  Array<T> result;
  T* out = nullptr;
};

// ---- From the caller's arrays

struct Input {
  Level level;
  std::vector<PointData> perPoint;
  std::vector<std::size_t> corners;  // which of the caller's corners each corner was
};

// The caller's number of each usable face, with its first corner; points repeated one after another
// are taken out. False when there is none.
bool takeFaces(const Array<int>& counts, const Array<int>& indices, std::size_t faces,
               std::size_t faceVerts, std::size_t points, Input& input, std::vector<int>& faceOf) {
  faceOf.assign(faces, -1);
  std::vector<int> corner;
  std::vector<int> sorted;
  std::size_t cursor = 0;
  for (std::size_t face = 0; face < faces; ++face) {
    if (counts[face] <= 0) continue;
    const std::size_t n = at(counts[face]);
    if (n > faceVerts - cursor) break;
    const std::size_t first = cursor;
    cursor += n;
    bool usable = true;
    const std::size_t cornersBefore = input.corners.size();
    corner.clear();
    for (std::size_t k = 0; k < n && usable; ++k) {
      const int p = indices[first + k];
      usable = p >= 0 && at(p) < points;
      const int before = indices[first + (k == 0 ? n - 1 : k - 1)];
      if (usable && p != before) {
        corner.push_back(p);
        input.corners.push_back(first + k);
      }
    }
    sorted = corner;
    std::sort(sorted.begin(), sorted.end());
    usable = usable && corner.size() >= 3 &&
             std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
    if (!usable) {
      input.corners.resize(cornersBefore);
      continue;
    }
    faceOf[face] = static_cast<int>(input.level.counts.size());
    input.level.counts.push_back(static_cast<int>(corner.size()));
    input.level.indices.insert(input.level.indices.end(), corner.begin(), corner.end());
  }
  return !input.level.counts.empty();
}

// Renumbers the points so that every one is used; `pointOf` gives the new number of an old one, or
// -1.
void takePoints(const MeshTessellateContext& context, std::size_t count, Input& input,
                std::vector<int>& pointOf) {
  input.perPoint.push_back({context.points, false, {}});
  for (Array<Vec3<float>>* array : context.pointVec3s) input.perPoint.push_back({array, false, {}});
  for (Array<Vec3<float>>* array : context.linearPointVec3s)
    input.perPoint.push_back({array, true, {}});
  pointOf.assign(count, -1);
  for (const int p : input.level.indices) pointOf[at(p)] = 0;
  int next = 0;
  for (std::size_t p = 0; p < count; ++p)
    if (pointOf[p] == 0) {
      pointOf[p] = next++;
      for (PointData& data : input.perPoint) data.values.push_back({data.target->cdata()[p]});
    }
  for (int& p : input.level.indices) p = pointOf[at(p)];
  input.level.pointCount = next;
}

// Only edges that the mesh has may be named to OpenSubdiv, which complains about others on the
// screen.
void takeCreases(const ArgSet& args, const std::vector<int>& pointOf, Level& level) {
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
  if (edges.empty()) return;

  // Of several entries for one edge the last counts.
  std::stable_sort(edges.begin(), edges.end(), beforeByEnds);
  std::vector<SharpEdge> unique;
  for (const SharpEdge& e : edges) {
    if (!unique.empty() && sameEnds(unique.back(), e)) unique.pop_back();
    unique.push_back(e);
  }
  std::vector<char> exists(unique.size(), 0);
  std::size_t first = 0;
  for (const int count : level.counts) {
    for (std::size_t k = 0; k < at(count); ++k) {
      const int a = level.indices[first + k], b = level.indices[first + (k + 1) % at(count)];
      const SharpEdge key{std::min(a, b), std::max(a, b), 0};
      const auto found = std::lower_bound(unique.begin(), unique.end(), key, beforeByEnds);
      if (found != unique.end() && sameEnds(*found, key))
        exists[static_cast<std::size_t>(found - unique.begin())] = 1;
    }
    first += at(count);
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

// The corners around each point: those of point p are cornerAt[start[p]] up to cornerAt[start[p +
// 1]], ascending.
struct PointCorners {
  std::vector<int> start, cornerAt;
  explicit PointCorners(const Level& level)
      : start(at(level.pointCount) + 1, 0), cornerAt(level.indices.size()) {
    for (const int p : level.indices) ++start[at(p)];
    int end = 0;
    for (int& entry : start) entry = end += entry;
    for (std::size_t c = level.indices.size(); c-- > 0;)
      cornerAt[at(--start[at(level.indices[c])])] = static_cast<int>(c);
  }
};

// Bits that order values and are equal for equal ones: adding zero makes one of both zeros.
template <class T>
std::array<char, sizeof(T)> bitsOf(const T& value) {
  std::array<char, sizeof(T)> bits;
  const T plain = value + T{};
  std::memcpy(bits.data(), &plain, sizeof(T));
  return bits;
}

template <class T>
void takeData(const std::vector<Array<T>*>& arrays, const PointCorners& around, Input& input,
              std::vector<std::unique_ptr<Carried>>& carried) {
  Level& level = input.level;
  std::vector<int> order;
  for (Array<T>* array : arrays) {
    const T* const data = array->cdata();
    const auto valueAt = [&](int corner) -> const T& { return data[input.corners[at(corner)]]; };
    auto taken = std::make_unique<CarriedOf<T>>(0, array);
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
    carried.push_back(std::move(taken));
  }
}

// ---- OpenSubdiv

Sdc::Options optionsOf(const ArgSet& args) {
  const Tokens& t = tokens();
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(
      args.interpolateBoundary == t.none              ? Sdc::Options::VTX_BOUNDARY_NONE
      : args.interpolateBoundary == Token("edgeOnly") ? Sdc::Options::VTX_BOUNDARY_EDGE_ONLY
                                                      : Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  const Token& fvar = args.faceVaryingLinearInterpolation;
  options.SetFVarLinearInterpolation(
      fvar == t.none                  ? Sdc::Options::FVAR_LINEAR_NONE
      : fvar == Token("cornersOnly")  ? Sdc::Options::FVAR_LINEAR_CORNERS_ONLY
      : fvar == Token("cornersPlus2") ? Sdc::Options::FVAR_LINEAR_CORNERS_PLUS2
      : fvar == Token("boundaries")   ? Sdc::Options::FVAR_LINEAR_BOUNDARIES
      : fvar == Token("all")          ? Sdc::Options::FVAR_LINEAR_ALL
                                      : Sdc::Options::FVAR_LINEAR_CORNERS_PLUS1);
  options.SetTriangleSubdivision(args.triangleSubdivisionRule == Token("smooth")
                                     ? Sdc::Options::TRI_SUB_SMOOTH
                                     : Sdc::Options::TRI_SUB_CATMARK);
  return options;
}

std::unique_ptr<Far::TopologyRefiner> makeRefiner(const Level& level, Sdc::SchemeType scheme,
                                                  const Sdc::Options& options) {
  std::vector<int> pairs, corners, holes;
  std::vector<float> pairSharpness, cornerSharpness;
  for (const SharpEdge& e : level.edges) {
    pairs.push_back(e.a);
    pairs.push_back(e.b);
    pairSharpness.push_back(e.sharpness);
  }
  for (const SharpPoint& p : level.points) {
    corners.push_back(p.point);
    cornerSharpness.push_back(p.sharpness);
  }
  for (std::size_t f = 0; f < level.holes.size(); ++f)
    if (level.holes[f]) holes.push_back(static_cast<int>(f));
  std::vector<Far::TopologyDescriptor::FVarChannel> channels(level.channels.size());
  for (std::size_t c = 0; c < channels.size(); ++c) {
    channels[c].numValues = level.channels[c].valueCount;
    channels[c].valueIndices = level.channels[c].valueOfCorner.data();
  }

  Far::TopologyDescriptor mesh;
  mesh.numVertices = level.pointCount;
  mesh.numFaces = static_cast<int>(level.counts.size());
  mesh.numVertsPerFace = level.counts.data();
  mesh.vertIndicesPerFace = level.indices.data();
  mesh.numCreases = static_cast<int>(pairSharpness.size());
  mesh.creaseVertexIndexPairs = pairs.data();
  mesh.creaseWeights = pairSharpness.data();
  mesh.numCorners = static_cast<int>(corners.size());
  mesh.cornerVertexIndices = corners.data();
  mesh.cornerWeights = cornerSharpness.data();
  mesh.numHoles = static_cast<int>(holes.size());
  mesh.holeIndices = holes.data();
  mesh.numFVarChannels = static_cast<int>(channels.size());
  mesh.fvarChannels = channels.data();
  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  return std::unique_ptr<Far::TopologyRefiner>(
      Factory::Create(mesh, Factory::Options(scheme, options)));
}

// ---- Whole levels

// Refines everything `levels` times and reads the last level back, with what is left of its
// sharpness.
bool refineWhole(int levels, Sdc::SchemeType scheme, const Sdc::Options& options, Level& level,
                 std::vector<PointData>& perPoint, std::vector<std::unique_ptr<Carried>>& carried) {
  const std::unique_ptr<Far::TopologyRefiner> refiner = makeRefiner(level, scheme, options);
  if (!refiner) return false;
  const std::size_t channelCount = level.channels.size();
  std::vector<int> sources = std::move(level.sources);
  level = Level();
  Far::TopologyRefiner::UniformOptions uniform(levels);
  uniform.fullTopologyInLastLevel = true;
  refiner->RefineUniform(uniform);

  const Far::PrimvarRefiner values(*refiner);
  for (int l = 1; l <= levels; ++l) {
    const Far::TopologyLevel& made = refiner->GetLevel(l);
    for (PointData& data : perPoint) {
      std::vector<Weighted<Vec3<float>>> next(at(made.GetNumVertices()));
      data.interpolate(values, l, data.values, next);
      data.values.swap(next);
    }
    for (auto& data : carried)
      data->refine(values, l, made.GetNumFVarValues(static_cast<int>(data->channel)));
    if (sources.empty()) continue;
    std::vector<int> next(at(made.GetNumFaces()));
    for (int f = 0; f < made.GetNumFaces(); ++f)
      next[at(f)] = sources[at(made.GetFaceParentFace(f))];
    sources.swap(next);
  }
  level.sources = std::move(sources);

  const Far::TopologyLevel& last = refiner->GetLevel(levels);
  const int faces = last.GetNumFaces();
  level.pointCount = last.GetNumVertices();
  level.counts.resize(at(faces));
  level.indices.reserve(at(last.GetNumFaceVertices()));
  level.channels.resize(channelCount);
  for (std::size_t c = 0; c < channelCount; ++c) {
    level.channels[c].valueCount = last.GetNumFVarValues(static_cast<int>(c));
    level.channels[c].valueOfCorner.reserve(at(last.GetNumFaceVertices()));
  }
  for (int f = 0; f < faces; ++f) {
    const Far::ConstIndexArray corners = last.GetFaceVertices(f);
    level.counts[at(f)] = corners.size();
    level.indices.insert(level.indices.end(), corners.begin(), corners.end());
    for (std::size_t c = 0; c < channelCount; ++c) {
      const Far::ConstIndexArray numbers = last.GetFaceFVarValues(f, static_cast<int>(c));
      std::vector<int>& to = level.channels[c].valueOfCorner;
      to.insert(to.end(), numbers.begin(), numbers.end());
    }
    if (last.IsFaceHole(f)) {
      if (level.holes.empty()) level.holes.assign(at(faces), 0);
      level.holes[at(f)] = 1;
    }
  }
  for (int e = 0; e < last.GetNumEdges(); ++e) {
    if (last.IsEdgeBoundary(e) || !(last.GetEdgeSharpness(e) > 0)) continue;
    const Far::ConstIndexArray ends = last.GetEdgeVertices(e);
    level.edges.push_back(
        {std::min(ends[0], ends[1]), std::max(ends[0], ends[1]), last.GetEdgeSharpness(e)});
  }
  std::sort(level.edges.begin(), level.edges.end(), beforeByEnds);
  for (int p = 0; p < level.pointCount; ++p)
    if (last.GetVertexSharpness(p) > 0) level.points.push_back({p, last.GetVertexSharpness(p)});
  return true;
}

// ---- The last level, part by part
//
// OpenSubdiv's tables take several times the memory of the mesh itself, and three quarters of all
// is the last level. So this one is made of parts: some faces with all that touch them, which is as
// far as one refinement looks.

// A number for each edge, by its points and so the same from every face that has it: that of a
// corner is the edge to the next corner.
int numberEdges(const Level& level, const PointCorners& around, std::vector<int>& edgeOfCorner) {
  // The other end of each corner's edge; kept where the numbers will be.
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

// Gives numbers of their own to the few things of a part; all entries are -1 between parts.
class Renumbering {
 public:
  explicit Renumbering(std::size_t size) : localOf_(size, -1) {}
  std::vector<int> globalOf;

  int add(int global) {
    int& local = localOf_[at(global)];
    if (local < 0) {
      local = static_cast<int>(globalOf.size());
      globalOf.push_back(global);
    }
    return local;
  }
  // Numbers that ascend with the old ones, for a list without repetition.
  void set(std::vector<int>&& globals) {
    globalOf = std::move(globals);
    for (std::size_t i = 0; i < globalOf.size(); ++i)
      localOf_[at(globalOf[i])] = static_cast<int>(i);
  }
  int operator[](int global) const { return localOf_[at(global)]; }
  void clear() {
    for (const int g : globalOf) localOf_[at(g)] = -1;
    globalOf.clear();
  }

 private:
  std::vector<int> localOf_;
};

// What comes out.
struct Output {
  Array<int> counts, indices, sourceFaces;
  std::vector<int> kept;  // the place of each point where some were dropped
};

bool refineParts(Sdc::SchemeType scheme, const Sdc::Options& options, const Level& level,
                 std::vector<PointData>& perPoint, std::vector<std::unique_ptr<Carried>>& carried,
                 Output& output) {
  const bool triangles = scheme == Sdc::SCHEME_LOOP;
  const std::size_t faces = level.counts.size(), corners = level.indices.size();
  const PointCorners around(level);
  std::vector<int> edgeOfCorner;
  const int edgeCount = numberEdges(level, around, edgeOfCorner);
  std::vector<int> firstOf(faces), faceOfCorner(corners);
  for (std::size_t f = 0, first = 0; f < faces; first += at(level.counts[f]), ++f) {
    firstOf[f] = static_cast<int>(first);
    for (std::size_t k = 0; k < at(level.counts[f]); ++k)
      faceOfCorner[first + k] = static_cast<int>(f);
  }

  // New points: those of the old ones, then one an edge, then one a face.
  const std::size_t firstEdge = at(level.pointCount), firstFace = firstEdge + at(edgeCount);
  const std::size_t pointCount = firstFace + (triangles ? 0 : faces);
  const std::size_t faceCount = triangles ? faces * 4 : corners, size = triangles ? 3 : 4;
  if (pointCount > kMaxIndex || faceCount * size > kMaxIndex) return false;
  for (PointData& data : perPoint) {
    data.result.resize(pointCount);
    data.out = data.result.data();
  }
  output.counts.resize(faceCount, static_cast<int>(size));
  output.indices.resize(faceCount * size);
  if (!level.sources.empty()) output.sourceFaces.resize(faceCount);
  int* const outIndices = output.indices.data();
  int* const outSources = output.sourceFaces.empty() ? nullptr : output.sourceFaces.data();
  for (auto& data : carried) data->startOutput(faceCount * size);

  Renumbering points(at(level.pointCount));
  std::vector<Renumbering> values;
  for (const Channel& c : level.channels) values.emplace_back(at(c.valueCount));
  std::vector<int> partFaces, partPoints, newOf;
  std::size_t written = 0;
  bool dropped = false;
  for (std::size_t begin = 0; begin < faces; begin += kFacesATime) {
    const std::size_t end = std::min(faces, begin + kFacesATime);

    // The faces, and all that touch them, in their old order.
    partFaces.clear();
    for (std::size_t c = at(firstOf[begin]); c < (end == faces ? corners : at(firstOf[end])); ++c) {
      const std::size_t p = at(level.indices[c]);
      for (int i = around.start[p]; i < around.start[p + 1]; ++i)
        partFaces.push_back(faceOfCorner[at(around.cornerAt[at(i)])]);
    }
    std::sort(partFaces.begin(), partFaces.end());
    partFaces.erase(std::unique(partFaces.begin(), partFaces.end()), partFaces.end());
    partPoints.clear();
    for (const int f : partFaces)
      partPoints.insert(partPoints.end(), level.indices.begin() + firstOf[at(f)],
                        level.indices.begin() + firstOf[at(f)] + level.counts[at(f)]);
    std::sort(partPoints.begin(), partPoints.end());
    partPoints.erase(std::unique(partPoints.begin(), partPoints.end()), partPoints.end());
    points.set(std::move(partPoints));
    partPoints = {};

    // They as a mesh of their own.
    Level part;
    part.pointCount = static_cast<int>(points.globalOf.size());
    part.channels.resize(level.channels.size());
    for (const int f : partFaces) {
      part.counts.push_back(level.counts[at(f)]);
      if (!level.holes.empty()) part.holes.push_back(level.holes[at(f)]);
      for (std::size_t k = at(firstOf[at(f)]); k < at(firstOf[at(f)] + level.counts[at(f)]); ++k) {
        part.indices.push_back(points[level.indices[k]]);
        for (std::size_t c = 0; c < part.channels.size(); ++c)
          part.channels[c].valueOfCorner.push_back(
              values[c].add(level.channels[c].valueOfCorner[k]));
      }
    }
    for (std::size_t c = 0; c < part.channels.size(); ++c)
      part.channels[c].valueCount = static_cast<int>(values[c].globalOf.size());
    if (!level.points.empty())
      for (int p = 0; p < part.pointCount; ++p) {
        const int global = points.globalOf[at(p)];
        auto corner = std::lower_bound(level.points.begin(), level.points.end(), global,
                                       [](const SharpPoint& s, int g) { return s.point < g; });
        for (; corner != level.points.end() && corner->point == global; ++corner)
          part.points.push_back({p, corner->sharpness});
      }
    if (!level.edges.empty()) {
      // By the sides of its faces: both ends of an edge may lie in the part, and the edge not.
      for (const int f : partFaces)
        for (int k = 0; k < level.counts[at(f)]; ++k) {
          const int p = level.indices[at(firstOf[at(f)] + k)];
          const int q = level.indices[at(firstOf[at(f)] + (k + 1) % level.counts[at(f)])];
          const SharpEdge key{std::min(p, q), std::max(p, q), 0};
          const auto edge =
              std::lower_bound(level.edges.begin(), level.edges.end(), key, beforeByEnds);
          if (edge != level.edges.end() && sameEnds(*edge, key))
            part.edges.push_back({points[key.a], points[key.b], edge->sharpness});
        }
      std::sort(part.edges.begin(), part.edges.end(), beforeByEnds);
      part.edges.erase(std::unique(part.edges.begin(), part.edges.end(), sameEnds),
                       part.edges.end());
    }

    // One refinement.
    const std::unique_ptr<Far::TopologyRefiner> refiner = makeRefiner(part, scheme, options);
    if (!refiner) return false;
    refiner->RefineUniform(Far::TopologyRefiner::UniformOptions(1));
    const Far::TopologyLevel &base = refiner->GetLevel(0), &next = refiner->GetLevel(1);
    const Far::PrimvarRefiner refine(*refiner);
    for (PointData& data : perPoint) {
      data.source.resize(points.globalOf.size());
      for (std::size_t i = 0; i < data.source.size(); ++i)
        data.source[i] = data.values[at(points.globalOf[i])];
      data.part.resize(at(next.GetNumVertices()));
      data.interpolate(refine, 1, data.source, data.part);
    }
    for (auto& data : carried)
      data->refinePart(refine, values[data->channel].globalOf,
                       next.GetNumFVarValues(static_cast<int>(data->channel)));

    // The new faces of the faces, not of those around them.
    newOf.assign(at(next.GetNumVertices()), -1);
    const auto firstOwn =
        std::lower_bound(partFaces.begin(), partFaces.end(), static_cast<int>(begin));
    for (auto own = firstOwn; own != partFaces.end() && at(*own) < end; ++own) {
      const int local = static_cast<int>(own - partFaces.begin());
      if (base.IsFaceHole(local)) {
        dropped = true;
        continue;
      }
      const Far::ConstIndexArray baseCorners = base.GetFaceVertices(local),
                                 baseEdges = base.GetFaceEdges(local);
      for (int k = 0; k < baseCorners.size(); ++k) {
        newOf[at(base.GetVertexChildVertex(baseCorners[k]))] = points.globalOf[at(baseCorners[k])];
        newOf[at(base.GetEdgeChildVertex(baseEdges[k]))] =
            static_cast<int>(firstEdge) + edgeOfCorner[at(firstOf[at(*own)] + k)];
      }
      if (!triangles)
        newOf[at(base.GetFaceChildVertex(local))] = static_cast<int>(firstFace) + *own;
      const Far::ConstIndexArray children = base.GetFaceChildFaces(local);
      for (int i = 0; i < children.size(); ++i) {
        const Far::ConstIndexArray child = next.GetFaceVertices(children[i]);
        for (int k = 0; k < child.size(); ++k) {
          const int p = newOf[at(child[k])];
          outIndices[written + at(k)] = p;
          for (PointData& data : perPoint) data.out[at(p)] = data.part[at(child[k])].value;
        }
        if (outSources) outSources[written / size] = level.sources[at(*own)];
        for (auto& data : carried) {
          const Far::ConstIndexArray numbers =
              next.GetFaceFVarValues(children[i], static_cast<int>(data->channel));
          for (int k = 0; k < numbers.size(); ++k) data->write(written + at(k), numbers[k]);
        }
        written += size;
      }
    }
    points.clear();
    for (Renumbering& v : values) v.clear();
  }

  // Holes leave room, and points that nothing uses.
  for (auto& data : carried) data->finish(written);
  if (dropped) {
    output.indices.resize(written);
    output.counts.resize(written / size);
    if (outSources) output.sourceFaces.resize(written / size);
    output.kept.assign(pointCount, -1);
    for (const int p : std::as_const(output.indices)) output.kept[at(p)] = 0;
    int kept = 0;
    for (std::size_t p = 0; p < pointCount; ++p)
      if (output.kept[p] == 0) {
        for (PointData& data : perPoint) data.out[at(kept)] = data.out[p];
        output.kept[p] = kept++;
      }
    for (PointData& data : perPoint) data.result.resize(at(kept));
    for (int& p : output.indices) p = output.kept[at(p)];
  }
  return true;
}

}  // namespace

ArgSet::ArgSet()
    : scheme(tokens().catmullClark),
      interpolateBoundary("edgeAndCorner"),
      faceVaryingLinearInterpolation("cornersPlus1"),
      triangleSubdivisionRule(tokens().catmullClark) {}

ArgSet::ArgSet(const MeshPrim& prim, double time) : ArgSet() {
  if (!prim.isValid()) return;
  const Tokens& t = tokens();
  scheme = prim.getSubdivisionScheme();
  prim.getAttr(t.interpolateBoundary).get(interpolateBoundary, time);
  prim.getAttr(t.faceVaryingLinearInterpolation).get(faceVaryingLinearInterpolation, time);
  prim.getAttr(t.triangleSubdivisionRule).get(triangleSubdivisionRule, time);
  prim.getAttr(t.holeIndices).get(holeIndices, time);
  prim.getAttr(t.creaseIndices).get(creaseIndices, time);
  prim.getAttr(t.creaseLengths).get(creaseLengths, time);
  prim.getAttr(t.creaseSharpnesses).get(creaseSharpnesses, time);
  prim.getAttr(t.cornerIndices).get(cornerIndices, time);
  prim.getAttr(t.cornerSharpnesses).get(cornerSharpnesses, time);
}

bool subdivideUniform(const ArgSet& args, std::size_t faces, std::size_t faceVerts,
                      std::size_t points, int fromLevel, int toLevel,
                      const MeshTessellateContext& context) {
  if (!context.vertsPerFace || !context.faceVertPointIndices || !context.points) return false;
  if (context.vertsPerFace->size() < faces || context.faceVertPointIndices->size() < faceVerts ||
      context.points->size() < points)
    return false;
  const auto fits = [](const auto& arrays, std::size_t count) {
    return std::all_of(arrays.begin(), arrays.end(),
                       [count](const auto* a) { return a && a->size() >= count; });
  };
  if (!fits(context.floats, faceVerts) || !fits(context.vec2s, faceVerts) ||
      !fits(context.vec3s, faceVerts) || !fits(context.pointVec3s, points) ||
      !fits(context.linearPointVec3s, points))
    return false;
  if (toLevel <= fromLevel) return true;
  const std::int64_t levels = static_cast<std::int64_t>(toLevel) - fromLevel;

  const Tokens& t = tokens();
  Sdc::SchemeType scheme = Sdc::SCHEME_CATMARK;
  if (args.scheme == t.loop)
    scheme = Sdc::SCHEME_LOOP;
  else if (args.scheme == t.bilinear)
    scheme = Sdc::SCHEME_BILINEAR;
  else if (args.scheme != t.catmullClark)
    return false;

  // Take what can be used.
  Input input;
  std::vector<int> faceOf, pointOf;
  if (!takeFaces(std::as_const(*context.vertsPerFace), std::as_const(*context.faceVertPointIndices),
                 faces, faceVerts, points, input, faceOf))
    return false;
  takePoints(context, points, input, pointOf);
  Level& level = input.level;
  if (context.sourceFaces) {
    level.sources.resize(level.counts.size());
    for (std::size_t face = 0; face < faces; ++face)
      if (faceOf[face] >= 0) level.sources[at(faceOf[face])] = static_cast<int>(face);
  }
  takeCreases(args, pointOf, level);
  takeCornersAndHoles(args, pointOf, faceOf, level);

  // Refuse what would not fit before anything large is made.
  std::size_t newCorners =
      scheme == Sdc::SCHEME_LOOP ? level.counts.size() * 3 : level.indices.size();
  for (std::int64_t l = 0; l < levels; ++l) {
    if (l >= kMaxLevels || newCorners > kMaxIndex / 4) return false;
    newCorners *= 4;
  }
  for (const int count : level.counts)
    if (at(count) > kMaxValence || (scheme == Sdc::SCHEME_LOOP && count != 3)) return false;
  std::vector<std::unique_ptr<Carried>> carried;
  {
    const PointCorners around(level);
    for (std::size_t p = 0; p < at(level.pointCount); ++p)
      if (at(around.start[p + 1] - around.start[p]) > kMaxValence / 2) return false;
    takeData(context.floats, around, input, carried);
    takeData(context.vec2s, around, input, carried);
    takeData(context.vec3s, around, input, carried);
  }
  input.corners = {};

  // All levels but the last, then the last. Borders that make holes of the faces along them do so
  // once: the holes are then known, and a second time would take the next row of faces.
  Sdc::Options options = optionsOf(args);
  if (levels > 1) {
    if (!refineWhole(static_cast<int>(levels) - 1, scheme, options, level, input.perPoint, carried))
      return false;
    if (options.GetVtxBoundaryInterpolation() == Sdc::Options::VTX_BOUNDARY_NONE)
      options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_ONLY);
  }
  Output output;
  if (!refineParts(scheme, options, level, input.perPoint, carried, output)) return false;

  // The points of the mesh come first, and stay in their order.
  Array<int> places;
  if (context.placesOfPoints) {
    places.assign(pointOf.begin(), pointOf.end());
    if (!output.kept.empty())
      for (int& p : places)
        if (p >= 0) p = output.kept[at(p)];
  }

  // Nothing fails from here on.
  for (auto& data : carried) data->commit();
  *context.vertsPerFace = std::move(output.counts);
  *context.faceVertPointIndices = std::move(output.indices);
  for (PointData& data : input.perPoint) *data.target = std::move(data.result);
  if (context.sourceFaces) *context.sourceFaces = std::move(output.sourceFaces);
  if (context.placesOfPoints) *context.placesOfPoints = std::move(places);
  return true;
}

}  // namespace ovo
