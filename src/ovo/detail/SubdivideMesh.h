/// \file
/// A mesh between two steps of its refinement.
///
/// Refinement goes in four steps, a file each: the caller's arrays become a Level (SubdivideInput),
/// OpenSubdiv refines it as a whole for all levels but the last (SubdivideLevels), the last level
/// is refined in parts to save memory (SubdivideParts), and the faces of each part are written to
/// the arrays that come out (SubdivideFaces).
///
/// A corner is a face-vertex: corner c of a Level has the point indices[c].
#pragma once

#include <opensubdiv/far/primvarRefiner.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "ovo/Array.h"
#include "tarn/Vec.h"

namespace ovo::detail::subdivision {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

constexpr std::size_t kMaxIndex = static_cast<std::size_t>(std::numeric_limits<int>::max());

inline std::size_t at(int index) { return static_cast<std::size_t>(index); }

// ---- The mesh

/// An edge with a sharpness; a < b.
struct SharpEdge {
  int a, b;
  float sharpness;
};
inline bool beforeByEnds(const SharpEdge& l, const SharpEdge& r) {
  return l.a != r.a ? l.a < r.a : l.b < r.b;
}
inline bool sameEnds(const SharpEdge& l, const SharpEdge& r) { return l.a == r.a && l.b == r.b; }

struct SharpPoint {
  int point;
  float sharpness;
};

/// Where data per corner is continuous: two corners of a point have the same value index when
/// their values are joined there. Arrays with the same seams share a channel.
struct Channel {
  std::vector<int> valueOfCorner;
  int valueCount = 0;
};

struct Level {
  int pointCount = 0;
  std::vector<int> counts, indices;
  std::vector<SharpEdge> edges;    ///< sorted by a, then b, each once
  std::vector<SharpPoint> points;  ///< sorted by point
  std::vector<char> holes;         ///< by face; empty when there are none
  std::vector<int> sources;        ///< the caller's face of each face; empty when nobody asks
  std::vector<Channel> channels;
};

/// The corners around each point: those of point p are cornerAt[start[p]] up to but not including
/// cornerAt[start[p + 1]], ascending.
struct PointCorners {
  std::vector<int> start, cornerAt;
  explicit PointCorners(const Level& level)
      : start(at(level.pointCount) + 1, 0), cornerAt(level.indices.size()) {
    for (const int p : level.indices) ++start[at(p)];
    // Counts become the ends of the runs; filling from the last corner to the first then turns them
    // into the starts.
    int end = 0;
    for (int& entry : start) entry = end += entry;
    for (std::size_t c = level.indices.size(); c-- > 0;)
      cornerAt[at(--start[at(level.indices[c])])] = static_cast<int>(c);
  }
};

// ---- The data that goes with it

/// The arithmetic that OpenSubdiv's refiner asks of a value.
template <class T>
struct Weighted {
  T value{};
  void Clear() { value = T{}; }
  void AddWithWeight(const Weighted& other, float weight) { value += other.value * weight; }
};
using WeightedVec3 = Weighted<tarn::Vec3f>;

/// One array with a value a point. The positions are the first of them.
struct PointData {
  Array<tarn::Vec3f>* target;  ///< the caller's
  bool linear;
  std::vector<WeightedVec3> values;                  ///< at the level reached
  std::vector<WeightedVec3> source = {}, part = {};  ///< before and after, of one part
  Array<tarn::Vec3f> result = {};
  tarn::Vec3f* out = nullptr;  ///< of `result`

  /// The values of a level from those of the one before.
  void interpolate(const Far::PrimvarRefiner& refiner, int level,
                   const std::vector<WeightedVec3>& from, std::vector<WeightedVec3>& to) const {
    if (linear)
      refiner.InterpolateVarying(level, from, to);
    else
      refiner.Interpolate(level, from, to);
  }
};

/// One array with a value a corner, whatever its element type: one value for each value index of
/// its channel.
struct CornerData {
  explicit CornerData(std::size_t c) : channel(c) {}
  virtual ~CornerData() = default;
  /// To the next level of the whole mesh.
  virtual void refine(const Far::PrimvarRefiner& refiner, int level, int valueCount) = 0;
  /// To the next level of a part, whose value i is the mesh's value globalOfLocal[i].
  virtual void refinePart(const Far::PrimvarRefiner& refiner, const std::vector<int>& globalOfLocal,
                          int valueCount) = 0;
  /// The output: made for that many corners, written value by value of the part, cut to what was
  /// written, and at last moved to the caller's array.
  virtual void startOutput(std::size_t corners) = 0;
  virtual void write(std::size_t corner, int value) = 0;
  virtual void finish(std::size_t corners) = 0;
  virtual void commit() noexcept = 0;

  std::size_t channel;
};
using CornerDataList = std::vector<std::unique_ptr<CornerData>>;

template <class T>
struct CornerDataOf final : CornerData {
  CornerDataOf(std::size_t c, Array<T>* t) : CornerData(c), target(t) {}

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

}  // namespace ovo::detail::subdivision
