// Many rays at once through the tracer's trees, compiled once for each set of instructions.
//
// A single ray waits: for memory, for divisions, for branches that cannot be foreseen. Here up to
// kSlots rays are under way, each with a state of its own, and every step is done for all of them
// before the next one. No answer depends on the order, so each is the one that the ray gets alone.

// No include guard: included once for each instruction set.

#include "vela/trace/detail/TracerWalk.h"

namespace vela::tracer {
namespace {
namespace TARN_LANES_SET {

inline constexpr std::uint32_t kSlots = 64;
/// Children that may wait on a slot's stack; deeper trees are walked ray by ray.
inline constexpr std::uint32_t kSpanStack = 120;
/// With fewer rays than this the set-up does not pay.
inline constexpr std::size_t kFewestInSpan = 32;
/// On a stack: the ray leaves the placement that it is in. The one value above, kNone, ends it.
inline constexpr std::uint32_t kLeave = kNone - 1;

using Floats4Mask = tarn::TARN_LANES_SET::Mask<4>;
using DoublesMask = tarn::TARN_LANES_SET::DoubleMask<4>;

/// upperS for four rays.
inline Doubles upperSOfFour(const Doubles& distance, const Doubles& sPerDistance,
                            const Doubles& start) {
  const Doubles s = distance * sPerDistance, v = s - start;
  const Doubles up =
      v + ((abs(s) + abs(start)) * Doubles::broadcast(kDoubleSlack) +
           abs(v) * Doubles::broadcast(kFloatSlack) + Doubles::broadcast(kAbsoluteSlack));
  const Doubles most = Doubles::broadcast(3e38);
  return select(up < most, max(up, -most),
                Doubles::broadcast(std::numeric_limits<double>::infinity()));
}

/// Four rays of the caller, component by component.
template <class T>
struct FourRays {
  Doubles origin[3], direction[3], min, max;

  explicit FourRays(const tarn::Ray<T>* const (&ray)[4]) {
    if constexpr (std::is_same_v<T, float>) {
      Floats4 first[4], second[4];
      for (std::size_t k = 0; k < 4; ++k) {
        first[k] = Floats4::load(&ray[k]->origin.x);
        second[k] = Floats4::load(&ray[k]->direction.y);
      }
      transposeFloats(first);
      transposeFloats(second);
      set(widen(first[0]), widen(first[1]), widen(first[2]), widen(first[3]), widen(second[0]),
          widen(second[1]), widen(second[2]), widen(second[3]));
    } else {
      Doubles first[4], second[4];
      for (std::size_t k = 0; k < 4; ++k) {
        first[k] = Doubles::load(&ray[k]->origin.x);
        second[k] = Doubles::load(&ray[k]->direction.y);
      }
      transposeDoubles(first);
      transposeDoubles(second);
      set(first[0], first[1], first[2], first[3], second[0], second[1], second[2], second[3]);
    }
  }

  /// isUsable.
  [[nodiscard]] DoublesMask areUsable() const {
    constexpr bool isDouble = std::is_same_v<T, double>;
    const Doubles most = Doubles::broadcast(
        isDouble ? kLargestDouble : static_cast<double>(std::numeric_limits<float>::max()));
    DoublesMask all = min <= max;
    for (std::size_t i = 0; i < 3; ++i)
      all = all & (abs(origin[i]) <= most) & (abs(direction[i]) <= most);
    const auto isDirection = [&](std::size_t i) {
      if constexpr (isDouble)
        return abs(direction[i]) >= Doubles::broadcast(kSmallestDirection);
      else
        return abs(direction[i]) > Doubles::broadcast(0.0);
    };
    return all & (isDirection(0) | isDirection(1) | isDirection(2));
  }

  /// DistanceRange::low and high.
  [[nodiscard]] Doubles low() const { return min - slack(min); }
  [[nodiscard]] Doubles high() const { return max + slack(max); }

 private:
  void set(const Doubles& ox, const Doubles& oy, const Doubles& oz, const Doubles& dx,
           const Doubles& dy, const Doubles& dz, const Doubles& low, const Doubles& high) {
    origin[0] = ox;
    origin[1] = oy;
    origin[2] = oz;
    direction[0] = dx;
    direction[1] = dy;
    direction[2] = dz;
    min = low;
    max = high;
  }
  static Doubles slack(const Doubles& end) {
    if constexpr (std::is_same_v<T, double>) return Doubles::broadcast(0.0);
    return abs(end) * Doubles::broadcast(kRangeSlack) + Doubles::broadcast(kAbsoluteRangeSlack);
  }
};

/// boundedInverse for four rays.
inline Floats4 boundedInverseOfFour(const Doubles& length, const Doubles& v) {
  return narrow(flipSign(min(abs(length / v), Doubles::broadcast(kLargestInverse)), v));
}

/// The slabs of four boxes against four rays.
struct FourSlabs {
  Floats4 near, far;

  FourSlabs(const Floats4& low, const Floats4& high) : near(low), far(high) {}
  void cut(const Floats4& low, const Floats4& high, const Floats4& nearOrigin,
           const Floats4& farOrigin, const Floats4& inverse) {
    near = max(near, min((low - nearOrigin) * inverse, (high - nearOrigin) * inverse));
    far = min(far, max((low - farOrigin) * inverse, (high - farOrigin) * inverse));
  }
};

/// What tubes need of a ray in the placement that it is in, as in RoundRay.
template <bool hasTubes>
struct SlotOfTubes {};
template <>
struct SlotOfTubes<true> {
  double exactOrigin[4], exactDirection[4];
};

/// A ray under way.
template <class T, bool hasTubes>
struct alignas(64) Slot : SlotOfTubes<hasTubes> {
  // In the placement that the ray is in, as in LocalRay. Rows of four are written at once.
  float origin[3], low;
  float inverse[3], high;  ///< high: no s above it is of interest
  float corner[3], zSign;  ///< origin by axis
  float shear[2], unused[2];
  std::uint32_t nearSide[3], z;  ///< in floats, as an offset into Node::side
  double start, distancePerS, sPerDistance, unusedDouble;
  const Mesh* mesh;
  const Node* nodes;
  const Block* blocks;
  std::uint32_t placement;

  std::uint32_t current;     ///< where the ray stands
  std::uint32_t top, base;   ///< of its stack; `base` is the lowest entry of this placement
  std::uint32_t candidates;  ///< a bit for each triangle of the block that needs the exact test

  // In the tree over placements.
  float worldNear[3], worldLow;
  float worldFar[3], unusedWorld;
  float worldInverse[3], worldHigh;
  std::uint32_t worldSide[4];
  double worldSPerDistance, rangeHigh;

  const tarn::Ray<T>* ray;
  std::size_t index;  ///< of the ray in the span
  Nearest nearest;

  std::int32_t key[kSpanStack + kWidth];
  std::uint32_t child[kSpanStack + kWidth];

  void push(std::uint32_t c) {
    key[top] = 0;
    child[top++] = c;
  }
  void prune(std::uint32_t from, float limit) {
    top = dropFarther(key, child, from, top, Floats::broadcast(storedLimit(limit)));
  }
};

/// Tests a node for one slot and goes on to the next child.
template <bool isRelative, class T, bool hasTubes>
inline void stepThroughNode(Slot<T, hasTubes>& s, const Node& node, const float* nearOrigin,
                            const float* farOrigin, const float* inverse, float low, float high,
                            const std::uint32_t* nearSide) {
  const float* const sides = &node.side[0][0][0];
  constexpr std::uint32_t kFar = 3 * kWidth;
  const auto slab = [&](std::uint32_t axis, std::uint32_t side, const float* from) {
    return (Floats::load(sides + side + axis * kWidth) - Floats::broadcast(from[axis])) *
           Floats::broadcast(inverse[axis]);
  };
  const Floats near = max(max(slab(0, nearSide[0], nearOrigin), slab(1, nearSide[1], nearOrigin)),
                          max(slab(2, nearSide[2], nearOrigin), Floats::broadcast(low)));
  Floats far =
      min(min(slab(0, kFar - nearSide[0], farOrigin), slab(1, kFar - nearSide[1], farOrigin)),
          min(slab(2, kFar - nearSide[2], farOrigin), Floats::broadcast(high)));
  if (isRelative)
    far =
        max(far * Floats::broadcast(1.0f + kSlabSlack), far * Floats::broadcast(1.0f - kSlabSlack));
  s.top += pushSorted(max(near, Floats::broadcast(0.0f)), near <= far, node.child, s.key + s.top,
                      s.child + s.top);
  s.current = s.child[--s.top];
}

/// Traces a span of rays.
///
/// \tparam isAny    any hit ends a ray
/// \tparam isWorld  more than one placement: rays start in the tree over them
/// \tparam hasTubes scenes of triangles alone are traced by code that knows nothing else
template <class T, bool isAny, bool isWorld, bool hasTubes>
class SpanTracer {
 public:
  SpanTracer(const SceneView& scene, const tarn::Ray<T>* rays, std::size_t count,
             const SpanAnswers& answers)
      : scene_(scene), rays_(rays), count_(count), answers_(answers) {
    for (std::uint32_t i = kSlots; i-- > 0;) free_[numFree_++] = static_cast<std::uint8_t>(i);
  }

  void run() {
    for (;;) {
      while (numFree_ >= 4 && next_ < count_) takeFour();
      if (numFree_ == kSlots) {
        if (next_ == count_) return;
        continue;
      }
      if (isWorld) {
        stepWorldNodes();
        enterPlacements();
      }
      stepNodes();
      testBlocks();
      crossCandidates();
      leavePlacements();
    }
  }

 private:
  using Slot = tracer::TARN_LANES_SET::Slot<T, hasTubes>;
  using SlotList = std::uint8_t[kSlots + 4];

  // Lists are filled by storing always and counting conditionally: the condition is a coin toss.

  // Sorts a slot by what its ray meets next in its placement.
  void sort(std::uint32_t i) { sortIf(i, 1); }
  void sortIf(std::uint32_t i, std::uint32_t condition) {
    const std::uint32_t current = slots_[i].current;
    const std::uint32_t isLeaf = current >> 31, isEnd = current >= kLeave ? 1 : 0;
    atNode_[numAtNode_] = static_cast<std::uint8_t>(i);
    numAtNode_ += (isLeaf ^ 1u) & condition;
    atBlock_[numAtBlock_] = static_cast<std::uint8_t>(i);
    numAtBlock_ += (isLeaf ^ isEnd) & condition;
    atEnd_[numAtEnd_] = static_cast<std::uint8_t>(i);
    numAtEnd_ += isEnd & condition;
    prefetch(slots_[i]);
  }
  // What the ray needs next. Where it has come to an end, the address means nothing and does no
  // harm.
  static void prefetch(const Slot& s) {
    const bool isLeaf = (s.current & kLeaf) != 0;
    if constexpr (hasTubes)
      if (s.mesh->isRound && isLeaf) {
        if (s.current < kLeave) __builtin_prefetch(&s.mesh->pieces[s.current & ~kLeaf]);
        return;
      }
    const char* const from =
        isLeaf ? reinterpret_cast<const char*>(s.blocks) +
                     std::size_t{s.current & ~kLeaf} * sizeof(Block)
               : reinterpret_cast<const char*>(s.nodes) + std::size_t{s.current} * sizeof(Node);
    for (std::size_t line = 0; line < sizeof(Node); line += 64) __builtin_prefetch(from + line);
    if (isLeaf) __builtin_prefetch(from + 256);
  }
  // Sorts a slot by what its ray meets next in the tree over placements.
  void sortInWorld(std::uint32_t i) {
    const std::uint32_t current = slots_[i].current;
    const std::uint32_t isLeaf = current >> 31, isEnd = current == kNone ? 1 : 0;
    atWorldNode_[numAtWorldNode_] = static_cast<std::uint8_t>(i);
    numAtWorldNode_ += isLeaf ^ 1u;
    atPlacement_[numAtPlacement_] = static_cast<std::uint8_t>(i);
    numAtPlacement_ += isLeaf ^ isEnd;
    if (isEnd != 0) finish(i);
  }

  void finish(std::uint32_t i) {
    const Slot& s = slots_[i];
    answers_.take(answers_.self, s.index, s.nearest);
    free_[numFree_++] = static_cast<std::uint8_t>(i);
  }
  void miss(std::size_t index) { answers_.take(answers_.self, index, Nearest()); }

  // Four rays of the caller take slots, but for those that miss the whole scene.

  void takeFour() {
    const std::size_t n = count_ - next_ < 4 ? count_ - next_ : 4;
    const tarn::Ray<T>* ray[4];
    std::uint32_t slot[4];
    for (std::size_t k = 0; k < 4; ++k) {
      ray[k] = rays_ + next_ + (k < n ? k : 0);
      slot[k] = free_[numFree_ - 1 - k];
    }
    const FourRays<T> four(ray);
    unsigned alive = bits(four.areUsable()) & ((1u << n) - 1u);
    if (isWorld)
      alive &= startInWorld(four, slot);
    else
      alive &=
          enter(four, slot, Doubles::broadcast(std::numeric_limits<double>::infinity()), alive);

    numFree_ -= 4;
    for (std::size_t k = 4; k-- > 0;) {
      const std::uint32_t i = slot[k];
      if ((alive >> k & 1u) == 0) {
        free_[numFree_++] = static_cast<std::uint8_t>(i);
        if (k < n) miss(next_ + k);
        continue;
      }
      Slot& s = slots_[i];
      s.ray = ray[k];
      s.index = next_ + k;
      s.nearest.distance = std::numeric_limits<double>::infinity();
      s.nearest.placement = kNone;
      s.nearest.triangle = kNone;
      s.top = 0;
      s.push(kNone);
      s.current = 0;
      if (isWorld) {
        sortInWorld(i);
      } else {
        s.base = s.top;
        settle(s, scene_.onlyPlacement);
        sort(i);
      }
    }
    next_ += n;
  }

  // The rays in the tree over placements. \return a bit for each that meets its box
  unsigned startInWorld(const FourRays<T>& rays, const std::uint32_t (&slot)[4]) {
    const Doubles zero = Doubles::broadcast(0.0);
    Doubles length = abs(rays.direction[0]);
    length = max(abs(rays.direction[1]), length);
    length = max(abs(rays.direction[2]), length);
    Floats4 nearOrigin[4], farOrigin[4], inverse[4];
    for (std::size_t i = 0; i < 3; ++i) {
      inverse[i] = boundedInverseOfFour(length, rays.direction[i]);
      if constexpr (std::is_same_v<T, float>) {
        nearOrigin[i] = farOrigin[i] = narrow(rays.origin[i]);
      } else {
        double origin[4], direction[4];
        float near[4], far[4];
        rays.origin[i].store(origin);
        rays.direction[i].store(direction);
        for (std::size_t k = 0; k < 4; ++k) {
          near[k] = roundOrigin(origin[k], !std::signbit(direction[k]));
          far[k] = roundOrigin(origin[k], std::signbit(direction[k]));
        }
        nearOrigin[i] = Floats4::load(near);
        farOrigin[i] = Floats4::load(far);
      }
    }
    const Doubles rangeHigh = rays.high();
    nearOrigin[3] = narrow(-upperSOfFour(-rays.low(), length, -zero));
    farOrigin[3] = nearOrigin[3];
    inverse[3] = narrow(upperSOfFour(rangeHigh, length, zero));

    FourSlabs slabs(nearOrigin[3], inverse[3]);
    for (std::size_t i = 0; i < 3; ++i)
      slabs.cut(Floats4::broadcast(scene_.limits.box[0][i]),
                Floats4::broadcast(scene_.limits.box[1][i]), nearOrigin[i], farOrigin[i],
                inverse[i]);
    const Floats4 far = max(slabs.far * Floats4::broadcast(1.0f + kSlabSlack),
                            slabs.far * Floats4::broadcast(1.0f - kSlabSlack));
    const unsigned alive = bits(slabs.near <= far);
    if (alive == 0) return 0;

    double lengths[4], highs[4];
    length.store(lengths);
    rangeHigh.store(highs);
    transposeFloats(nearOrigin);
    transposeFloats(farOrigin);
    transposeFloats(inverse);
    for (std::size_t k = 0; k < 4; ++k) {
      Slot& s = slots_[slot[k]];
      nearOrigin[k].store(s.worldNear);
      farOrigin[k].store(s.worldFar);
      inverse[k].store(s.worldInverse);
      for (std::size_t i = 0; i < 3; ++i)
        s.worldSide[i] = std::signbit(s.worldInverse[i]) ? 3 * kWidth : 0;
      s.worldSPerDistance = lengths[k];
      s.rangeHigh = highs[k];
    }
    return alive;
  }

  // Entering a placement: makeLocalRay for four rays, and the box of the mesh.

  // The matrices and frames of four placements, or four times the only one.
  struct FourPlacements {
    Doubles m[4][3], center[3], radius;
    Floats4 low[3], high[3];

    FourPlacements(const SceneView& scene, const std::uint32_t (&index)[4]) {
      if (isWorld) {
        const Mesh* mesh[4];
        Doubles rows[4][4];  // the twelve numbers of a matrix in three rows of four, the frame
        Floats4 lows[4], highs[4];
        double radii[4];
        for (std::size_t k = 0; k < 4; ++k) {
          const Placement& placement = scene.placements[index[k]];
          mesh[k] = &scene.meshes[placement.mesh];
          const double* const from = placement.localFromWorld.column[0];
          for (std::size_t r = 0; r < 3; ++r) rows[r][k] = Doubles::load(from + 4 * r);
          rows[3][k] = Doubles::load(&mesh[k]->frame.center.x);
          lows[k] = Floats4::load(mesh[k]->limits.box[0]);
          highs[k] = Floats4::load(mesh[k]->limits.box[1]);
          radii[k] = mesh[k]->frame.radius;
        }
        for (auto& row : rows) transposeDoubles(row);
        transposeFloats(lows);
        transposeFloats(highs);
        for (std::size_t n = 0; n < 12; ++n) m[n / 3][n % 3] = rows[n / 4][n % 4];
        for (std::size_t i = 0; i < 3; ++i) {
          center[i] = rows[3][i];
          low[i] = lows[i];
          high[i] = highs[i];
        }
        radius = Doubles::load(radii);
      } else {
        const Placement& placement = scene.placements[index[0]];
        const Mesh& mesh = scene.meshes[placement.mesh];
        for (std::size_t c = 0; c < 4; ++c)
          for (std::size_t i = 0; i < 3; ++i)
            m[c][i] = Doubles::broadcast(placement.localFromWorld.column[c][i]);
        for (std::size_t i = 0; i < 3; ++i) {
          center[i] = Doubles::broadcast(mesh.frame.center[i]);
          low[i] = Floats4::broadcast(mesh.limits.box[0][i]);
          high[i] = Floats4::broadcast(mesh.limits.box[1][i]);
        }
        radius = Doubles::broadcast(mesh.frame.radius);
      }
    }
  };

  // \param nearest distances of what the rays have hit so far
  // \return a bit for each ray that meets the box of the mesh; only their slots are written
  unsigned enter(const FourRays<T>& rays, const std::uint32_t (&slot)[4], const Doubles& nearest,
                 unsigned wanted) {
    std::uint32_t index[4];
    for (std::size_t k = 0; k < 4; ++k)
      index[k] = isWorld ? slots_[slot[k]].current & ~kLeaf : scene_.onlyPlacement;
    const FourPlacements at(scene_, index);

    // Into local space.
    Doubles o[3], d[3], size[3];
    for (std::size_t i = 0; i < 3; ++i) {
      d[i] = at.m[0][i] * rays.direction[0] + at.m[1][i] * rays.direction[1] +
             at.m[2][i] * rays.direction[2];
      o[i] = at.m[0][i] * rays.origin[0] + at.m[1][i] * rays.origin[1] +
             at.m[2][i] * rays.origin[2] + at.m[3][i];
      size[i] = abs(d[i]);
    }
    const Doubles size01 = max(size[1], size[0]), length = max(size[2], size01);
    const DoublesMask isZ = size[2] > size01, isY = size[1] > size[0];
    const Doubles scale = Doubles::broadcast(1.0) / length;
    const Doubles most = Doubles::broadcast(std::numeric_limits<double>::max());
    DoublesMask isAlive = (scale <= most) & (length <= most);
    Floats4 inverse[4];
    for (std::size_t i = 0; i < 3; ++i) {
      inverse[i] = boundedInverseOfFour(length, d[i]);
      d[i] = d[i] * scale;
    }

    // A far origin moves to just before the mesh.
    const Doubles zero = Doubles::broadcast(0.0);
    Doubles start = zero;
    const Doubles q[3] = {at.center[0] - o[0], at.center[1] - o[1], at.center[2] - o[2]};
    const Doubles qq = q[0] * q[0] + q[1] * q[1] + q[2] * q[2], rr = at.radius * at.radius;
    const DoublesMask isFar = qq > Doubles::broadcast(16.0) * rr;
    if (bits(isFar) != 0) {
      const Doubles dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
      const Doubles qd = q[0] * d[0] + q[1] * d[1] + q[2] * d[2];
      const Doubles cx = q[1] * d[2] - q[2] * d[1], cy = q[2] * d[0] - q[0] * d[2],
                    cz = q[0] * d[1] - q[1] * d[0];
      const DoublesMask isPast =
          cx * cx + cy * cy + cz * cz >
          Doubles::broadcast(1.0001) * rr * dd + Doubles::broadcast(1e-26) * qq * dd;
      isAlive = andNot(isAlive, isFar & isPast);
      // Chosen, not multiplied by 0: adding a step of 0 would change the sign of a zero.
      const Doubles moved = qd / dd - Doubles::broadcast(2.0) * at.radius;
      start = select(isFar, moved, zero);
      for (std::size_t i = 0; i < 3; ++i) o[i] = select(isFar, o[i] + moved * d[i], o[i]);
    }
    Floats4 origin[4];
    for (std::size_t i = 0; i < 3; ++i) {
      isAlive = isAlive & (abs(o[i]) <= Doubles::broadcast(16.0));
      origin[i] = narrow(o[i]);
    }

    // The range, and the box.
    const Doubles high = rays.high();
    origin[3] = narrow(-upperSOfFour(-rays.low(), length, -start));
    inverse[3] = narrow(upperSOfFour(isWorld ? min(nearest, high) : high, length, start));
    FourSlabs slabs(origin[3], inverse[3]);
    for (std::size_t i = 0; i < 3; ++i)
      slabs.cut(at.low[i], at.high[i], origin[i], origin[i], inverse[i]);
    const unsigned alive = bits(isAlive) & bits(slabs.near <= slabs.far) & wanted;
    if (alive == 0) return 0;

    // What triangles need, by axis.
    const Floats4Mask isZ4 = narrow(isZ), isY4 = narrow(isY);
    const auto choose4 = [&](const Floats4& ofX, const Floats4& ofY, const Floats4& ofZ) {
      return select(isZ4, ofZ, select(isY4, ofY, ofX));
    };
    const auto choose = [&](const Doubles& ofX, const Doubles& ofY, const Doubles& ofZ) {
      return select(isZ, ofZ, select(isY, ofY, ofX));
    };
    Floats4 corner[4] = {choose4(origin[1], origin[2], origin[0]),
                         choose4(origin[2], origin[0], origin[1]),
                         choose4(origin[0], origin[1], origin[2]), Floats4::broadcast(0.0f)};
    corner[3] = select(narrow(choose(d[0], d[1], d[2]) < zero), Floats4::broadcast(-0.0f),
                       Floats4::broadcast(0.0f));
    Floats4 shear[4] = {narrow(choose(d[1], d[2], d[0])), narrow(choose(d[2], d[0], d[1])),
                        Floats4::broadcast(0.0f), Floats4::broadcast(0.0f)};
    Doubles lengths[4] = {start, scale, length, zero};
    const unsigned zs = bits(isZ4), ys = bits(isY4);

    transposeFloats(origin);
    transposeFloats(inverse);
    transposeFloats(corner);
    transposeFloats(shear);
    transposeDoubles(lengths);
    if constexpr (hasTubes) {
      Doubles exactOrigin[4] = {o[0], o[1], o[2], zero};
      Doubles exactDirection[4] = {d[0], d[1], d[2], zero};
      transposeDoubles(exactOrigin);
      transposeDoubles(exactDirection);
      for (std::size_t k = 0; k < 4; ++k) {
        if ((alive >> k & 1u) == 0) continue;
        exactOrigin[k].store(slots_[slot[k]].exactOrigin);
        exactDirection[k].store(slots_[slot[k]].exactDirection);
      }
    }
    for (std::size_t k = 0; k < 4; ++k) {
      if ((alive >> k & 1u) == 0) continue;
      Slot& s = slots_[slot[k]];
      origin[k].store(s.origin);
      inverse[k].store(s.inverse);
      corner[k].store(s.corner);
      shear[k].store(s.shear);
      lengths[k].store(&s.start);
      for (std::size_t i = 0; i < 3; ++i)
        s.nearSide[i] = std::signbit(s.inverse[i]) ? 3 * kWidth : 0;
      s.z = (zs >> k & 1u) != 0 ? 2 : ys >> k & 1u;
    }
    return alive;
  }

  void settle(Slot& s, std::uint32_t placement) {
    s.placement = placement;
    s.mesh = &scene_.meshes[scene_.placements[placement].mesh];
    s.nodes = s.mesh->nodes.data();
    s.blocks = s.mesh->blocks.data();
  }

  // The steps of a round.

  void stepWorldNodes() {
    const std::uint32_t n = numAtWorldNode_;
    numAtWorldNode_ = 0;
    for (std::uint32_t k = 0; k < n; ++k) {
      const std::uint32_t i = atWorldNode_[k];
      Slot& s = slots_[i];
      stepThroughNode<true>(s, scene_.nodes[s.current], s.worldNear, s.worldFar, s.worldInverse,
                            s.worldLow, s.worldHigh, s.worldSide);
      if ((s.current & kLeaf) != 0) __builtin_prefetch(&scene_.placements[s.current & ~kLeaf]);
      sortInWorld(i);
    }
  }

  void enterPlacements() {
    // Four at a time; fewer only where no other ray is under way.
    const std::uint32_t n = numAtPlacement_;
    const bool isIdle = numAtNode_ + numAtBlock_ + numAtWorldNode_ == 0;
    std::uint32_t k = 0;
    numAtPlacement_ = 0;
    SlotList entering;
    for (std::uint32_t e = 0; e < n; ++e) entering[e] = atPlacement_[e];
    for (; k + 4 <= n || (isIdle && k < n); k += 4) {
      const std::uint32_t here = n - k < 4 ? n - k : 4;
      std::uint32_t slot[4];
      const tarn::Ray<T>* ray[4];
      double nearest[4];
      for (std::uint32_t e = 0; e < 4; ++e) {
        slot[e] = entering[k + (e < here ? e : 0)];
        ray[e] = slots_[slot[e]].ray;
        nearest[e] = slots_[slot[e]].nearest.distance;
      }
      const unsigned alive =
          enter(FourRays<T>(ray), slot, Doubles::load(nearest), (1u << here) - 1u);
      for (std::uint32_t e = 0; e < here; ++e) {
        Slot& s = slots_[slot[e]];
        if ((alive >> e & 1u) != 0) {
          settle(s, s.current & ~kLeaf);
          s.push(kLeave);
          s.base = s.top;
          s.current = 0;
          sort(slot[e]);
        } else {
          s.current = s.child[--s.top];
          sortInWorld(slot[e]);
        }
      }
    }
    for (; k < n; ++k) atPlacement_[numAtPlacement_++] = entering[k];
  }

  void stepNodes() {
    const std::uint32_t n = numAtNode_;
    numAtNode_ = 0;
    for (std::uint32_t k = 0; k < n; ++k) {
      const std::uint32_t i = atNode_[k];
      Slot& s = slots_[i];
      stepThroughNode<false>(s, s.nodes[s.current], s.origin, s.origin, s.inverse, s.low, s.high,
                             s.nearSide);
      sort(i);
    }
  }

  void testBlocks() {
    const std::uint32_t n = numAtBlock_;
    numAtBlock_ = 0;
    for (std::uint32_t k = 0; k < n; ++k) {
      const std::uint32_t i = atBlock_[k];
      Slot& s = slots_[i];
      if constexpr (hasTubes)
        if (s.mesh->isRound) {
          testPiece(i);
          continue;
        }
      s.candidates = triangleRay(s).test(s.blocks[s.current & ~kLeaf], Floats::broadcast(s.high));
      const std::uint32_t isNone = s.candidates == 0 ? 1 : 0;
      withCandidates_[numWithCandidates_] = static_cast<std::uint8_t>(i);
      numWithCandidates_ += isNone ^ 1u;
      s.top -= isNone;
      s.current = isNone != 0 ? s.child[s.top] : s.current;
      sortIf(i, isNone);
    }
  }

  // One piece of a mesh of tubes, and on to the next child.
  void testPiece(std::uint32_t i) {
    Slot& s = slots_[i];
    const RoundRay ray(s.exactOrigin, s.exactDirection, s.start, s.distancePerS);
    const DistanceRange<T> range(*s.ray);
    if (tracePiece(*s.mesh, ray, range, s.placement, s.current & ~kLeaf, s.nearest)) {
      if (isAny) return finish(i);
      s.high = upperS(s.nearest.distance, s.sPerDistance, s.start);
      s.prune(s.base, s.high);
    }
    s.current = s.child[--s.top];
    sort(i);
  }

  void crossCandidates() {
    const std::uint32_t n = numWithCandidates_;
    numWithCandidates_ = 0;
    for (std::uint32_t k = 0; k < n; ++k) {
      const std::uint32_t i = withCandidates_[k];
      Slot& s = slots_[i];
      const Block& block = s.blocks[s.current & ~kLeaf];
      const TriangleRay triangles = triangleRay(s);
      const DistanceRange<T> range(*s.ray);
      bool isNearer = false;
      for (unsigned mask = s.candidates; mask != 0; mask &= mask - 1) {
        const auto lane = static_cast<std::uint32_t>(__builtin_ctz(mask));
        Crossing crossing;
        if (!triangles.cross(block, lane, crossing) || !range.contains(crossing.distance) ||
            !s.nearest.isBeatenBy(crossing.distance, s.placement, block.triangle[lane]))
          continue;
        s.nearest.take(crossing, s.placement, block, lane);
        isNearer = true;
        if (isAny) break;
      }
      if (isNearer) {
        if (isAny) {
          finish(i);
          continue;
        }
        s.mesh->prefetchSource(s.nearest.triangle);
        s.high = upperS(s.nearest.distance, s.sPerDistance, s.start);
        s.prune(s.base, s.high);
      }
      s.current = s.child[--s.top];
      sort(i);
    }
  }

  void leavePlacements() {
    const std::uint32_t n = numAtEnd_;
    numAtEnd_ = 0;
    for (std::uint32_t k = 0; k < n; ++k) {
      const std::uint32_t i = atEnd_[k];
      if (!isWorld) {
        finish(i);
        continue;
      }
      Slot& s = slots_[i];
      if (s.nearest.placement == s.placement) {
        s.worldHigh = upperS(least(s.rangeHigh, s.nearest.distance), s.worldSPerDistance, 0.0);
        s.prune(1, s.worldHigh);
      }
      s.current = s.child[--s.top];
      sortInWorld(i);
    }
  }

  static TriangleRay triangleRay(const Slot& s) {
    TriangleRay ray;
    for (std::size_t i = 0; i < 3; ++i) ray.origin[i] = Floats::broadcast(s.corner[i]);
    ray.shearX = Floats::broadcast(s.shear[0]);
    ray.shearY = Floats::broadcast(s.shear[1]);
    ray.zSign = Floats::broadcast(s.zSign);
    ray.axis[2] = s.z;
    ray.axis[0] = static_cast<std::size_t>(kNextAxis[s.z]);
    ray.axis[1] = static_cast<std::size_t>(kNextAxis[ray.axis[0]]);
    ray.start = s.start;
    ray.distancePerS = s.distancePerS;
    return ray;
  }

  const SceneView& scene_;
  const tarn::Ray<T>* rays_;
  std::size_t count_, next_ = 0;
  const SpanAnswers& answers_;

  SlotList free_, atWorldNode_, atPlacement_, atNode_, atBlock_, withCandidates_, atEnd_;
  std::uint32_t numFree_ = 0, numAtWorldNode_ = 0, numAtPlacement_ = 0, numAtNode_ = 0,
                numAtBlock_ = 0, numWithCandidates_ = 0, numAtEnd_ = 0;
  Slot slots_[kSlots];
};

/// \return false where the rays must be traced one by one
template <class T, bool isAny, bool hasTubes>
bool traceSpanOf(const SceneView& scene, const tarn::Ray<T>* rays, std::size_t count,
                 const SpanAnswers& answers) {
  // Two entries for the ends of the stack's two parts.
  if (count < kFewestInSpan || scene.numUnboxed != 0 || scene.nodes == nullptr ||
      scene.limits.mostWaiting + 2 > kSpanStack)
    return false;
  if (scene.onlyPlacement != kNone)
    SpanTracer<T, isAny, false, hasTubes>(scene, rays, count, answers).run();
  else
    SpanTracer<T, isAny, true, hasTubes>(scene, rays, count, answers).run();
  return true;
}
template <class T, bool isAny>
bool traceSpan(const SceneView& scene, const tarn::Ray<T>* rays, std::size_t count,
               const SpanAnswers& answers) {
  return scene.hasTubes ? traceSpanOf<T, isAny, true>(scene, rays, count, answers)
                        : traceSpanOf<T, isAny, false>(scene, rays, count, answers);
}

template <class T>
RayFunctions<T> rayFunctions() {
  return {findNearest<T>, findAny<T>, traceSpan<T, false>, traceSpan<T, true>};
}
inline KernelFunctions kernelFunctions() { return {rayFunctions<float>(), rayFunctions<double>()}; }

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::tracer
