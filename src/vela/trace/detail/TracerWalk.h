/// \file
/// The walk of one ray through the tracer's trees, written once over eight lanes of floats. A .cpp
/// includes it after defining `Lanes` in an unnamed namespace, so each set of instructions gets its
/// own copy of everything here.
///
/// Lanes gives: `static Lanes load(const float*)` (32-byte aligned), `broadcast(float)`,
/// `store(float*)`, `+ - *`, `min`, `max`, `flipSign(Lanes)` (exclusive or with sign bits),
/// `unsigned lessEqual(a, b)`, one bit a lane, false for NaN. min and max of a NaN are neither less
/// than or equal to zero nor greater than or equal to it.
///
/// Nothing here decides an answer. It skips what crossTriangle would refuse and what cannot be
/// nearer.

// No include guard: included once by each kernel, inside an unnamed namespace.

/// std::fmin and std::fmax would be calls into the C library.
inline double least(double a, double b) { return b < a ? b : a; }
inline double largest(double a, double b) { return b > a ? b : a; }

/// A float that no s of a crossing up to the distance exceeds.
///
/// A crossing's distance carries the roundings of start + s, of distancePerS and of their product,
/// and here sPerDistance adds a fourth; the subtraction of start is the fifth. All are roundings of
/// doubles no larger than |s| + |start|. Narrowing the result costs one rounding of a float. The
/// absolute slack, far below any coordinate in scaled space, keeps the result from being a
/// denormal, which slows the processor by some hundred cycles.
inline float upperS(double distance, double sPerDistance, double start) {
  constexpr double kDoubleSlack = 2e-15, kFloatSlack = 2.4e-7, kAbsoluteSlack = 1e-30;
  static_assert(kDoubleSlack > 5.0 * kDoubleRounding && kFloatSlack > 2.0 * kFloatRounding);
  const double s = distance * sPerDistance, v = s - start;
  const double up = v + ((std::fabs(s) + std::fabs(start)) * kDoubleSlack +
                         std::fabs(v) * kFloatSlack + kAbsoluteSlack);
  if (!(up < 3e38)) return std::numeric_limits<float>::infinity();
  return up < -3e38 ? -3e38f : static_cast<float>(up);
}
/// The other end: no s of a crossing from the distance on is below it.
inline float lowerS(double distance, double sPerDistance, double start) {
  return -upperS(-distance, sPerDistance, -start);
}

/// The relative error of a slab value against a box that was not grown for it: the roundings of the
/// inverse, of the difference and of the product, with ample room. 2^-20.
constexpr float kSlabSlack = 9.5367432e-7f;
static_assert(static_cast<double>(kSlabSlack) > 5 * kFloatRounding);

/// A child that waits on the stack, and where the ray enters its box.
struct Entry {
  float near;
  std::uint32_t child;
};

/// One ray against the boxes of a node.
struct BoxTester {
  Lanes nearOrigin[3], farOrigin[3], inverse[3];
  Lanes low;
  std::size_t nearSide[3];

  /// \param nearO, farO the ray's origin, rounded so that the slabs are entered no later and left
  ///                    no earlier; the same where it is exact
  BoxTester(const float (&nearO)[3], const float (&farO)[3], const float (&inv)[3], float sLow) {
    for (std::size_t i = 0; i < 3; ++i) {
      nearOrigin[i] = Lanes::broadcast(nearO[i]);
      farOrigin[i] = Lanes::broadcast(farO[i]);
      inverse[i] = Lanes::broadcast(inv[i]);
      nearSide[i] = inv[i] < 0.0f ? 1 : 0;
    }
    low = Lanes::broadcast(sLow);
  }

  /// Tests the eight children. \return a bit for each hit; \p near is where the ray enters it
  ///
  /// \tparam isRelative widens by kSlabSlack, for boxes that were not grown for this test
  template <bool isRelative>
  unsigned test(const Node& node, const Lanes& high, Lanes& near) const {
    const Lanes nx = (Lanes::load(node.side[nearSide[0]][0]) - nearOrigin[0]) * inverse[0];
    const Lanes ny = (Lanes::load(node.side[nearSide[1]][1]) - nearOrigin[1]) * inverse[1];
    const Lanes nz = (Lanes::load(node.side[nearSide[2]][2]) - nearOrigin[2]) * inverse[2];
    const Lanes fx = (Lanes::load(node.side[1 - nearSide[0]][0]) - farOrigin[0]) * inverse[0];
    const Lanes fy = (Lanes::load(node.side[1 - nearSide[1]][1]) - farOrigin[1]) * inverse[1];
    const Lanes fz = (Lanes::load(node.side[1 - nearSide[2]][2]) - farOrigin[2]) * inverse[2];
    near = max(max(nx, ny), max(nz, low));
    Lanes far = min(min(fx, fy), min(fz, high));
    // Upwards: away from zero where far is positive, towards zero where it is negative.
    if (isRelative)
      far =
          max(far * Lanes::broadcast(1.0f + kSlabSlack), far * Lanes::broadcast(1.0f - kSlabSlack));
    return lessEqual(near, far);
  }
};

/// Puts the hit children of a node on the stack, the farthest first, and returns the nearest.
inline std::uint32_t pushChildren(const Node& node, unsigned mask, const Lanes& near, Entry*& top) {
  const auto first = static_cast<unsigned>(__builtin_ctz(mask));
  mask &= mask - 1;
  if (mask == 0) return node.child[first];
  alignas(32) float distance[kWidth];
  near.store(distance);
  Entry best{distance[first], node.child[first]};
  Entry* const base = top;
  do {
    const auto lane = static_cast<unsigned>(__builtin_ctz(mask));
    mask &= mask - 1;
    Entry next{distance[lane], node.child[lane]};
    if (next.near < best.near) std::swap(next, best);
    // Insert, so that the nearest is on top.
    Entry* at = top++;
    while (at > base && (at - 1)->near < next.near) {
      *at = *(at - 1);
      --at;
    }
    *at = next;
  } while (mask != 0);
  return best.child;
}

/// Eight triangles against a ray, by the float part of crossTriangle.
struct TriangleTester {
  Lanes origin[3], shearX, shearY, sign;
  int x, y, z;

  explicit TriangleTester(const LocalRay& ray)
      : shearX(Lanes::broadcast(ray.shearX)),
        shearY(Lanes::broadcast(ray.shearY)),
        sign(Lanes::broadcast(ray.zSign < 0.0f ? -0.0f : 0.0f)),
        x(ray.x),
        y(ray.y),
        z(ray.z) {
    origin[0] = Lanes::broadcast(ray.origin[ray.x]);
    origin[1] = Lanes::broadcast(ray.origin[ray.y]);
    origin[2] = Lanes::broadcast(ray.origin[ray.z]);
  }

  /// \return a bit for each triangle that crossTriangle may take at an s of at most \p high
  unsigned test(const Block& block, const Lanes& high) const {
    const auto& [a, b, c] = block.corner;
    const Lanes az = (Lanes::load(a[z]) - origin[2]).flipSign(sign);
    const Lanes bz = (Lanes::load(b[z]) - origin[2]).flipSign(sign);
    const Lanes cz = (Lanes::load(c[z]) - origin[2]).flipSign(sign);
    const Lanes ax = (Lanes::load(a[x]) - origin[0]) - shearX * az,
                ay = (Lanes::load(a[y]) - origin[1]) - shearY * az;
    const Lanes bx = (Lanes::load(b[x]) - origin[0]) - shearX * bz,
                by = (Lanes::load(b[y]) - origin[1]) - shearY * bz;
    const Lanes cx = (Lanes::load(c[x]) - origin[0]) - shearX * cz,
                cy = (Lanes::load(c[y]) - origin[1]) - shearY * cz;
    const Lanes u = cx * by - cy * bx, v = ax * cy - ay * cx, w = bx * ay - by * ax;
    const Lanes zero = Lanes::broadcast(0.0f);
    const unsigned inside = lessEqual(zero, min(u, min(v, w))) | lessEqual(max(u, max(v, w)), zero);
    return inside & lessEqual(min(az, min(bz, cz)), high);
  }
};

/// Walks the tree of one placed mesh. \return true when an any-hit query is answered
template <bool isAny, class T>
inline bool traceMesh(const Mesh& mesh, const LocalRay& ray, const DistanceRange<T>& range,
                      std::uint32_t placement, Nearest& nearest) {
  const Node* const nodes = mesh.nodes.data();
  const Block* const blocks = mesh.blocks.data();
  const BoxTester boxes(ray.origin, ray.origin, ray.inverse,
                        lowerS(range.low, ray.sPerDistance, ray.start));
  const TriangleTester triangles(ray);
  float prune = upperS(least(range.high, nearest.distance), ray.sPerDistance, ray.start);
  Lanes high = Lanes::broadcast(prune);

  Entry stack[kStackSize];
  Entry* top = stack;
  std::uint32_t current = 0;
  for (;;) {
    if ((current & kLeaf) == 0) {
      Lanes near;
      const unsigned mask = boxes.template test<false>(nodes[current], high, near);
      if (mask != 0) {
        current = pushChildren(nodes[current], mask, near, top);
        continue;
      }
    } else {
      const Block& block = blocks[current & ~kLeaf];
      for (unsigned mask = triangles.test(block, high); mask != 0; mask &= mask - 1) {
        const auto lane = static_cast<std::uint32_t>(__builtin_ctz(mask));
        const auto& corner = block.corner;
        const float a[3] = {corner[0][0][lane], corner[0][1][lane], corner[0][2][lane]};
        const float b[3] = {corner[1][0][lane], corner[1][1][lane], corner[1][2][lane]};
        const float c[3] = {corner[2][0][lane], corner[2][1][lane], corner[2][2][lane]};
        Crossing crossing;
        if (!crossTriangle(ray, a, b, c, crossing) || !range.contains(crossing.distance)) continue;
        if (isAny) return true;
        if (!nearest.isBeatenBy(crossing.distance, placement, block.triangle[lane])) continue;
        nearest.distance = crossing.distance;
        nearest.placement = placement;
        nearest.triangle = block.triangle[lane];
        nearest.crossing = crossing;
        nearest.block = &block;
        __builtin_prefetch(&mesh.triangles[block.triangle[lane]]);
        nearest.lane = lane;
        prune = upperS(least(range.high, crossing.distance), ray.sPerDistance, ray.start);
        high = Lanes::broadcast(prune);
      }
    }
    // Take the nearest box that waits and is still in reach.
    do {
      if (top == stack) return false;
      --top;
    } while (top->near > prune);
    current = top->child;
  }
}

/// Asks one placement. \return true when an any-hit query is answered
template <bool isAny, class T>
inline bool tracePlacement(const SceneView& scene, std::uint32_t index, const tarn::Ray<T>& ray,
                           const DistanceRange<T>& range, Nearest& nearest) {
  const Placement& placement = scene.placements[index];
  const Mesh& mesh = scene.meshes[placement.mesh];
  LocalRay local;
  if (!makeLocalRay(placement.localFromWorld, mesh.frame, ray, local)) return false;
  return traceMesh<isAny>(mesh, local, range, index, nearest);
}

/// A coordinate of a ray's origin as a float for the box test in world space: exact where it is
/// one, else the next one up or down. Beyond the range of float: the last one or infinity.
inline float roundOrigin(float v, bool) { return v; }
inline float roundOrigin(double v, bool isUp) {
  constexpr float most = std::numeric_limits<float>::max(), infinity = HUGE_VALF;
  if (v > static_cast<double>(most)) return isUp ? infinity : most;
  if (v < -static_cast<double>(most)) return isUp ? -most : -infinity;
  const auto rounded = static_cast<float>(v);
  if (static_cast<double>(rounded) == v) return rounded;
  if ((static_cast<double>(rounded) > v) == isUp) return rounded;
  return std::nextafter(rounded, isUp ? infinity : -infinity);
}

/// Asks the whole scene. \return true when an any-hit query is answered
template <bool isAny, class T>
inline bool traceScene(const SceneView& scene, const tarn::Ray<T>& ray, Nearest& nearest) {
  if (!isUsable(ray)) return false;
  const DistanceRange<T> range(ray);
  for (std::size_t i = 0; i < scene.numUnboxed; ++i)
    if (tracePlacement<isAny>(scene, scene.unboxed[i], ray, range, nearest)) return true;
  if (scene.nodes == nullptr) return false;
  if (scene.onlyPlacement != kNone)
    return tracePlacement<isAny>(scene, scene.onlyPlacement, ray, range, nearest);

  // The tree over placements, in world space. The ray is measured by s as in LocalRay.
  float nearOrigin[3], farOrigin[3], inverse[3];
  double sPerDistance = 0.0;
  for (std::size_t i = 0; i < 3; ++i)
    sPerDistance = largest(sPerDistance, std::fabs(static_cast<double>(ray.direction[i])));
  for (std::size_t i = 0; i < 3; ++i) {
    const double direction = static_cast<double>(ray.direction[i]);
    inverse[i] = boundedInverse(sPerDistance, direction);
    nearOrigin[i] = roundOrigin(ray.origin[i], !std::signbit(direction));
    farOrigin[i] = roundOrigin(ray.origin[i], std::signbit(direction));
  }
  const BoxTester boxes(nearOrigin, farOrigin, inverse, lowerS(range.low, sPerDistance, 0.0));
  float prune = upperS(least(range.high, nearest.distance), sPerDistance, 0.0);

  Entry stack[kStackSize];
  Entry* top = stack;
  std::uint32_t current = 0;
  for (;;) {
    if ((current & kLeaf) == 0) {
      Lanes near;
      const unsigned mask =
          boxes.template test<true>(scene.nodes[current], Lanes::broadcast(prune), near);
      if (mask != 0) {
        current = pushChildren(scene.nodes[current], mask, near, top);
        continue;
      }
    } else {
      if (tracePlacement<isAny>(scene, current & ~kLeaf, ray, range, nearest)) return true;
      prune = upperS(least(range.high, nearest.distance), sPerDistance, 0.0);
    }
    do {
      if (top == stack) return false;
      --top;
      // The entry into a box carries the roundings of its own test.
    } while (top->near >
             (prune < 0.0f ? prune * (1.0f - kSlabSlack) : prune * (1.0f + kSlabSlack)));
    current = top->child;
  }
}

template <class T>
void findNearest(const SceneView& scene, const tarn::Ray<T>& ray, Nearest& nearest) {
  traceScene<false>(scene, ray, nearest);
}
template <class T>
bool findAny(const SceneView& scene, const tarn::Ray<T>& ray) {
  Nearest nearest;
  return traceScene<true>(scene, ray, nearest);
}

inline KernelFunctions kernelFunctions() {
  return {{findNearest<float>, findAny<float>}, {findNearest<double>, findAny<double>}};
}
