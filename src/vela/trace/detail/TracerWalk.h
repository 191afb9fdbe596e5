// The walk of one ray through the tracer's trees, compiled once for each set of instructions.
// Nothing here decides an answer: it skips what crossTriangle would refuse and what cannot be
// nearer.

// No include guard: included once for each instruction set, see tarn/Lanes.h.

namespace vela::tracer {
namespace {
namespace TARN_LANES_SET {

using Floats = tarn::TARN_LANES_SET::FloatLanes<8>;
using Floats4 = tarn::TARN_LANES_SET::FloatLanes<4>;
using Doubles = tarn::TARN_LANES_SET::DoubleLanes<4>;
using Hits = tarn::TARN_LANES_SET::Mask<8>;

/// A ray against the boxes of a node.
struct BoxRay {
  /// The origin, rounded so that no slab is entered later or left earlier; both are the same where
  /// the origin is a float.
  Floats nearOrigin[3], farOrigin[3];
  Floats inverse[3];
  Floats low;               ///< s where the range begins
  std::size_t nearSide[3];  ///< of the two sides in Node, the one that the ray meets first

  /// The eight children: which are hit, and where the ray enters them.
  ///
  /// \tparam isRelative widens by kSlabSlack, for boxes that were not grown for this test
  template <bool isRelative>
  inline Hits test(const Node& node, const Floats& high, Floats& near) const {
    const auto slab = [&](std::size_t axis, std::size_t side, const Floats& from) {
      return (Floats::load(node.side[side][axis]) - from) * inverse[axis];
    };
    near = max(max(slab(0, nearSide[0], nearOrigin[0]), slab(1, nearSide[1], nearOrigin[1])),
               max(slab(2, nearSide[2], nearOrigin[2]), low));
    Floats far =
        min(min(slab(0, 1 - nearSide[0], farOrigin[0]), slab(1, 1 - nearSide[1], farOrigin[1])),
            min(slab(2, 1 - nearSide[2], farOrigin[2]), high));
    // Upwards: away from zero where far is positive, towards zero where it is negative.
    if (isRelative)
      far = max(far * Floats::broadcast(1.0f + kSlabSlack),
                far * Floats::broadcast(1.0f - kSlabSlack));
    return near <= far;
  }
};

/// A ray against the triangles of a block.
struct TriangleRay {
  Floats origin[3];  ///< by `axis`
  Floats shearX, shearY;
  Floats zSign;                ///< -0 where the direction along axis[2] is negative, else 0
  std::size_t axis[3];         ///< x, y and z of LocalRay
  double start, distancePerS;  ///< as in LocalRay

  /// A bit for each triangle that crossTriangle may take at an s of at most \p high.
  [[nodiscard]] inline unsigned test(const Block& block, const Floats& high) const {
    Floats x[3], y[3], z[3];
    for (std::size_t c = 0; c < 3; ++c) {
      const auto& corner = block.corner[c];
      z[c] = flipSign(Floats::load(corner[axis[2]]) - origin[2], zSign);
      x[c] = (Floats::load(corner[axis[0]]) - origin[0]) - shearX * z[c];
      y[c] = (Floats::load(corner[axis[1]]) - origin[1]) - shearY * z[c];
    }
    const Floats u = x[2] * y[1] - y[2] * x[1];
    const Floats v = x[0] * y[2] - y[0] * x[2];
    const Floats w = x[1] * y[0] - y[1] * x[0];
    const Floats zero = Floats::broadcast(0.0f);
    // A lane without a triangle is NaN in all three areas, and so is the minimum and maximum.
    const Hits inside = (zero <= min(u, min(v, w))) | (max(u, max(v, w)) <= zero);
    return bits(inside & (min(z[0], min(z[1], z[2])) <= high));
  }

  /// crossTriangle for one lane that has passed the test above, so that the signs of the float
  /// areas are known. Corners a, b and c are lanes of one register.
  [[nodiscard]] inline bool cross(const Block& block, std::size_t lane, Crossing& out) const {
    const auto corners = [&](std::size_t i) {
      Floats4 lanes;
      setLanes(lanes, block.corner[0][i][lane], block.corner[1][i][lane], block.corner[2][i][lane]);
      return lanes;
    };
    const Floats4 z = flipSign(corners(axis[2]) - lower(origin[2]), lower(zSign));
    const Doubles x = widen((corners(axis[0]) - lower(origin[0])) - lower(shearX) * z);
    const Doubles y = widen((corners(axis[1]) - lower(origin[1])) - lower(shearY) * z);
    const Doubles area = previous(x) * next(y) - previous(y) * next(x);
    const Doubles zero = Doubles::broadcast(0.0);
    if ((bits(area >= zero) & 7u) != 7u && (bits(area <= zero) & 7u) != 7u) return false;
    const double u = laneOf<0>(area), v = laneOf<1>(area), w = laneOf<2>(area);
    const double sum = u + v + w;
    if (sum == 0.0) return false;
    const Doubles weighted = area * widen(z);
    const double s = (laneOf<0>(weighted) + laneOf<1>(weighted) + laneOf<2>(weighted)) / sum;
    out.a = u;
    out.b = v;
    out.c = w;
    out.sum = sum;
    out.distance = (start + s) * distancePerS;
    return true;
  }
};

/// Children that wait. The lowest entry is kNone, so that taking the next needs no test for an
/// empty stack.
struct Stack {
  /// Room for a path through the tree over placements and one through a mesh.
  std::int32_t key[2 * kStackSize + kWidth];
  std::uint32_t child[2 * kStackSize + kWidth];
  std::uint32_t top = 0;

  Stack() { push(kNone); }
  void push(std::uint32_t c) {
    key[top] = 0;
    child[top++] = c;
  }
  std::uint32_t pop() { return child[--top]; }

  /// Puts the hit children of a node in, the farthest first, and returns the nearest of all. Takes
  /// from the stack when none is hit.
  ///
  /// With branches: for one ray the processor foresees them well enough where rays are coherent,
  /// and then goes on without waiting for the distances. A sorting network is slower there by a
  /// tenth.
  inline std::uint32_t pushHits(const Node& node, const Hits& hit, const Floats& near) {
    unsigned mask = bits(hit);
    if (mask == 0) return pop();
    int lane = __builtin_ctz(mask);
    mask &= mask - 1;
    if (mask == 0) return node.child[lane];
    alignas(32) std::int32_t distance[kWidth];
    asInts(max(near, Floats::broadcast(0.0f))).store(distance);
    std::int32_t nearestKey = distance[lane];
    std::uint32_t nearest = node.child[lane];
    const std::uint32_t base = top;
    do {
      lane = __builtin_ctz(mask);
      mask &= mask - 1;
      std::int32_t nextKey = distance[lane];
      std::uint32_t nextChild = node.child[lane];
      if (nextKey < nearestKey) {
        const std::int32_t k = nearestKey;
        const std::uint32_t c = nearest;
        nearestKey = nextKey;
        nearest = nextChild;
        nextKey = k;
        nextChild = c;
      }
      std::uint32_t at = top++;
      for (; at > base && key[at - 1] < nextKey; --at) {
        key[at] = key[at - 1];
        child[at] = child[at - 1];
      }
      key[at] = nextKey;
      child[at] = nextChild;
    } while (mask != 0);
    return nearest;
  }
  /// Takes out what lies beyond an s of \p high, from the entry \p from on.
  inline void prune(std::uint32_t from, float high) {
    top = dropFarther(key, child, from, top, Floats::broadcast(storedLimit(high)));
  }
};

/// Walks the tree of one placed mesh, and keeps what is found. \return true when an any-hit query
/// is answered
///
/// \tparam hasTubes scenes of triangles alone are walked by code that knows nothing else
template <bool isAny, bool hasTubes, class T>
inline bool traceMesh(const SceneView& scene, std::uint32_t index, const tarn::Ray<T>& ray,
                      const DistanceRange<T>& range, Stack& stack, Nearest& nearest) {
  const Placement& placement = scene.placements[index];
  const Mesh& mesh = scene.meshes[placement.mesh];

  // Into local space: makeLocalRay, with the three axes as lanes. The fourth lane is not used.
  const auto wide = [](T v) {
    if constexpr (std::is_same_v<T, float>)
      return widen(Floats4::broadcast(v));
    else
      return Doubles::broadcast(v);
  };
  const double* const m = placement.localFromWorld.column[0];
  const Doubles m0 = Doubles::load(m), m1 = Doubles::load(m + 3), m2 = Doubles::load(m + 6);
  const Doubles m3 = rotated(Doubles::load(m + 8));
  const Doubles d =
      m0 * wide(ray.direction.x) + m1 * wide(ray.direction.y) + m2 * wide(ray.direction.z);
  Doubles o = m0 * wide(ray.origin.x) + m1 * wide(ray.origin.y) + m2 * wide(ray.origin.z) + m3;

  // The largest axis; the signs, on which the first loads depend; one division for all inverses.
  const Doubles size = abs(d);
  const double d0 = laneOf<0>(size), d1 = laneOf<1>(size), d2 = laneOf<2>(size);
  const double d01 = largest(d0, d1), length = largest(d01, d2);
  const unsigned signs = signBits(d);
  const Doubles lengths = Doubles::broadcast(length);
  const Doubles inverses = withFourth(lengths, Doubles::broadcast(1.0)) / withFourth(d, lengths);
  const double scale = laneOf<3>(inverses);
  constexpr double most = std::numeric_limits<double>::max();
  if (!(scale <= most) || !(length <= most)) return false;

  // A far origin moves to just before the mesh.
  const MeshFrame& frame = mesh.frame;
  const Doubles scaled = d * Doubles::broadcast(scale);
  const Doubles q = Doubles::load(&frame.center.x) - o;
  const auto dotOf = [](const Doubles& p) { return laneOf<0>(p) + laneOf<1>(p) + laneOf<2>(p); };
  const double qq = dotOf(q * q), rr = frame.radius * frame.radius;
  double start = 0.0;
  if (qq > 16.0 * rr) {
    const double dd = dotOf(scaled * scaled), qd = dotOf(q * scaled);
    // Lanes z, x, y of the cross product.
    const Doubles cross = q * next(scaled) - next(q) * scaled, square = cross * cross;
    if (laneOf<1>(square) + laneOf<2>(square) + laneOf<0>(square) >
        1.0001 * rr * dd + 1e-26 * qq * dd)
      return false;
    start = qd / dd - 2.0 * frame.radius;
    o = o + Doubles::broadcast(start) * scaled;
  }
  if ((bits(abs(o) <= Doubles::broadcast(16.0)) & 7u) != 7u) return false;

  BoxRay boxes;
  const Floats4 origin = narrow(o);
  const Doubles bounded = min(abs(inverses), Doubles::broadcast(kLargestInverse));
  const Floats4 inverse = narrow(flipSign(bounded, d));
  boxes.nearOrigin[0] = boxes.farOrigin[0] = spread<0, Floats>(origin);
  boxes.nearOrigin[1] = boxes.farOrigin[1] = spread<1, Floats>(origin);
  boxes.nearOrigin[2] = boxes.farOrigin[2] = spread<2, Floats>(origin);
  boxes.inverse[0] = spread<0, Floats>(inverse);
  boxes.inverse[1] = spread<1, Floats>(inverse);
  boxes.inverse[2] = spread<2, Floats>(inverse);
  for (std::size_t i = 0; i < 3; ++i) boxes.nearSide[i] = signs >> i & 1u;
  boxes.low = Floats::broadcast(lowerS(range.low, length, start));
  Floats high = Floats::broadcast(upperS(least(range.high, nearest.distance), length, start));

  // Down to the first leaf.
  const Node* const nodes = mesh.nodes.data();
  const Block* const blocks = mesh.blocks.data();
  const std::uint32_t base = stack.top;
  stack.push(kNone);
  std::uint32_t current = 0;
  const auto descend = [&] {
    while ((current & kLeaf) == 0) {
      Floats near;
      const Hits hit = boxes.template test<false>(nodes[current], high, near);
      current = stack.pushHits(nodes[current], hit, near);
    }
  };
  descend();
  if (current == kNone) return false;

  alignas(32) double direction[4];
  scaled.store(direction);
  if constexpr (hasTubes)
    if (mesh.isRound) {
      alignas(32) double exactOrigin[4];
      o.store(exactOrigin);
      const RoundRay round(exactOrigin, direction, start, scale);
      for (;;) {
        if (tracePiece(mesh, round, range, index, current & ~kLeaf, nearest)) {
          if (isAny) return true;
          const float prune = upperS(nearest.distance, length, start);
          high = Floats::broadcast(prune);
          stack.prune(base + 1, prune);
        }
        current = stack.pop();
        descend();
        if (current == kNone) return false;
      }
    }

  // What only triangles need.
  TriangleRay triangles;
  const std::size_t z = d2 > d01 ? 2 : d1 > d0 ? 1 : 0;
  const std::size_t x = static_cast<std::size_t>(kNextAxis[z]),
                    y = static_cast<std::size_t>(kNextAxis[x]);
  alignas(16) float from[4];
  origin.store(from);
  triangles.axis[0] = x;
  triangles.axis[1] = y;
  triangles.axis[2] = z;
  triangles.origin[0] = Floats::broadcast(from[x]);
  triangles.origin[1] = Floats::broadcast(from[y]);
  triangles.origin[2] = Floats::broadcast(from[z]);
  triangles.shearX = Floats::broadcast(static_cast<float>(direction[x]));
  triangles.shearY = Floats::broadcast(static_cast<float>(direction[y]));
  triangles.zSign = Floats::broadcast(direction[z] < 0.0 ? -0.0f : 0.0f);
  triangles.start = start;
  triangles.distancePerS = scale;

  for (;;) {
    const Block& block = blocks[current & ~kLeaf];
    for (unsigned mask = triangles.test(block, high); mask != 0; mask &= mask - 1) {
      const auto lane = static_cast<std::uint32_t>(__builtin_ctz(mask));
      Crossing crossing;
      if (!triangles.cross(block, lane, crossing) || !range.contains(crossing.distance)) continue;
      if (isAny) return true;
      if (!nearest.isBeatenBy(crossing.distance, index, block.triangle[lane])) continue;
      nearest.take(crossing, index, block, lane);
      mesh.prefetchSource(block.triangle[lane]);
      const float prune = upperS(crossing.distance, length, start);
      high = Floats::broadcast(prune);
      stack.prune(base + 1, prune);
    }
    current = stack.pop();
    descend();
    if (current == kNone) return false;
  }
}

/// A ray against the boxes of the tree over placements, in world space.
template <class T>
inline BoxRay makeWorldRay(const tarn::Ray<T>& ray, const DistanceRange<T>& range,
                           double& sPerDistance) {
  BoxRay boxes;
  // The axes as lanes; the fourth lane is not used.
  Doubles d;
  if constexpr (std::is_same_v<T, float>)
    d = widen(Floats4::load(&ray.direction.x));
  else
    d = Doubles::load(&ray.direction.x);
  const Doubles size = abs(d);
  sPerDistance = largest(largest(laneOf<0>(size), laneOf<1>(size)), laneOf<2>(size));
  const Doubles inverses = abs(Doubles::broadcast(sPerDistance) / d);
  const Floats4 inverse = narrow(flipSign(min(inverses, Doubles::broadcast(kLargestInverse)), d));
  boxes.inverse[0] = spread<0, Floats>(inverse);
  boxes.inverse[1] = spread<1, Floats>(inverse);
  boxes.inverse[2] = spread<2, Floats>(inverse);
  const unsigned signs = signBits(d);
  for (std::size_t i = 0; i < 3; ++i) {
    const bool isNegative = (signs >> i & 1u) != 0;
    boxes.nearOrigin[i] = Floats::broadcast(roundOrigin(ray.origin[i], !isNegative));
    boxes.farOrigin[i] = Floats::broadcast(roundOrigin(ray.origin[i], isNegative));
    boxes.nearSide[i] = isNegative ? 1 : 0;
  }
  boxes.low = Floats::broadcast(lowerS(range.low, sPerDistance, 0.0));
  return boxes;
}

/// Asks the whole scene. \return true when an any-hit query is answered
template <bool isAny, bool hasTubes, class T>
inline bool traceScene(const SceneView& scene, const tarn::Ray<T>& ray, Nearest& nearest) {
  if (!isUsable(ray)) return false;
  const DistanceRange<T> range(ray);
  Stack stack;
  for (std::size_t i = 0; i < scene.numUnboxed; ++i)
    if (traceMesh<isAny, hasTubes>(scene, scene.unboxed[i], ray, range, stack, nearest))
      return true;
  if (scene.nodes == nullptr) return false;
  if (scene.onlyPlacement != kNone)
    return traceMesh<isAny, hasTubes>(scene, scene.onlyPlacement, ray, range, stack, nearest);

  double sPerDistance;
  const BoxRay boxes = makeWorldRay(ray, range, sPerDistance);
  float high = upperS(least(range.high, nearest.distance), sPerDistance, 0.0);
  std::uint32_t current = 0;
  for (;;) {
    while ((current & kLeaf) == 0) {
      Floats near;
      const Hits hit =
          boxes.template test<true>(scene.nodes[current], Floats::broadcast(high), near);
      current = stack.pushHits(scene.nodes[current], hit, near);
    }
    if (current == kNone) return false;
    const double before = nearest.distance;
    if (traceMesh<isAny, hasTubes>(scene, current & ~kLeaf, ray, range, stack, nearest))
      return true;
    if (nearest.distance < before) {
      high = upperS(nearest.distance, sPerDistance, 0.0);
      stack.prune(1, high);
    }
    current = stack.pop();
  }
}

template <class T>
void findNearest(const SceneView& scene, const tarn::Ray<T>& ray, Nearest& nearest) {
  if (scene.hasTubes)
    traceScene<false, true>(scene, ray, nearest);
  else
    traceScene<false, false>(scene, ray, nearest);
}
template <class T>
bool findAny(const SceneView& scene, const tarn::Ray<T>& ray) {
  Nearest nearest;
  return scene.hasTubes ? traceScene<true, true>(scene, ray, nearest)
                        : traceScene<true, false>(scene, ray, nearest);
}

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::tracer
