/// \file
/// The walk through the tracer's trees, written once over eight lanes of floats. A .cpp includes it
/// after defining `Lanes` in an unnamed namespace, so each set of instructions gets its own copy of
/// everything here.
///
/// Lanes gives: `static Lanes load(const float*)` (32-byte aligned), `broadcast(float)`,
/// `store(float*)`, `+ - *`, `min`, `max`, `flipSign(Lanes)` (exclusive or with sign bits),
/// `unsigned lessEqual(a, b)` as a bit a lane, false for NaN; and min and max of a NaN that are not
/// less or equal to, or greater or equal to, zero.
///
/// Nothing here decides an answer: it passes over what crossTriangle would refuse or what cannot be
/// nearer.

// No include guard: included once by each kernel, inside an unnamed namespace.

/// std::fmin is a call into the C library.
inline double least(double a, double b) { return b < a ? b : a; }
inline double largest(double a, double b) { return b > a ? b : a; }

/// s of a distance, rounded outward: up for the far end, down for the near one. The constant stands
/// in for the smallest distances, as floats so small would each cost the processor a detour.
inline float upperS(double distance, double sPerDistance, double start) {
  const double s = distance * sPerDistance, v = s - start;
  const double up = v + ((std::fabs(s) + std::fabs(start)) * 2e-15 + std::fabs(v) * 2.4e-7 + 1e-30);
  if (!(up < 3e38)) return std::numeric_limits<float>::infinity();
  return up < -3e38 ? -3e38f : static_cast<float>(up);
}
inline float lowerS(double distance, double sPerDistance, double start) {
  return -upperS(-distance, sPerDistance, -start);
}

struct Entry {
  float near;
  std::uint32_t child;
};

/// One ray against the boxes of a node.
struct BoxTester {
  Lanes origin[3], inverse[3];
  Lanes low;
  std::size_t nearSide[3];

  BoxTester(const float (&o)[3], const float (&inv)[3], float sLow) {
    for (std::size_t i = 0; i < 3; ++i) {
      origin[i] = Lanes::broadcast(o[i]);
      inverse[i] = Lanes::broadcast(inv[i]);
      nearSide[i] = inv[i] < 0.0f ? 1 : 0;
    }
    low = Lanes::broadcast(sLow);
  }

  /// \param isRelative widens by the roundings of the test itself, for boxes that were not grown
  ///                   for them
  template <bool isRelative>
  unsigned test(const Node& node, const Lanes& high, Lanes& near) const {
    const Lanes nx = (Lanes::load(node.side[nearSide[0]][0]) - origin[0]) * inverse[0];
    const Lanes ny = (Lanes::load(node.side[nearSide[1]][1]) - origin[1]) * inverse[1];
    const Lanes nz = (Lanes::load(node.side[nearSide[2]][2]) - origin[2]) * inverse[2];
    const Lanes fx = (Lanes::load(node.side[1 - nearSide[0]][0]) - origin[0]) * inverse[0];
    const Lanes fy = (Lanes::load(node.side[1 - nearSide[1]][1]) - origin[1]) * inverse[1];
    const Lanes fz = (Lanes::load(node.side[1 - nearSide[2]][2]) - origin[2]) * inverse[2];
    near = max(max(nx, ny), max(nz, low));
    Lanes far = min(min(fx, fy), min(fz, high));
    // Each slab value is off by at most four roundings of its own size; sixteen, on the side away
    // from zero or towards it.
    if (isRelative)
      far = max(far * Lanes::broadcast(1.0f + 9.5367432e-7f),
                far * Lanes::broadcast(1.0f - 9.5367432e-7f));
    return lessEqual(near, far);
  }
};

/// Puts the hit children of a node on the stack, the farthest first, and gives back the nearest.
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
    // Insertion, the nearest on top.
    Entry* at = top++;
    while (at > base && (at - 1)->near < next.near) {
      *at = *(at - 1);
      --at;
    }
    *at = next;
  } while (mask != 0);
  return best.child;
}

/// Eight triangles against a ray: one bit for each that crossTriangle may take.
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

/// One placement. \return true when an any-hit query is answered
template <bool isAny>
inline bool traceMesh(const Mesh& mesh, const LocalRay& ray, const DistanceRange& range,
                      std::uint32_t placement, Nearest& nearest) {
  const Node* const nodes = mesh.nodes.data();
  const Block* const blocks = mesh.blocks.data();
  const BoxTester boxes(ray.origin, ray.inverse, lowerS(range.low, ray.sPerDistance, ray.start));
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
    // Back to the nearest box that is left and still in reach.
    do {
      if (top == stack) return false;
      --top;
    } while (top->near > prune);
    current = top->child;
  }
}

template <bool isAny>
inline bool tracePlacement(const SceneView& scene, std::uint32_t index, const tarn::Ray<float>& ray,
                           const DistanceRange& range, Nearest& nearest) {
  const Placement& placement = scene.placements[index];
  const Mesh& mesh = scene.meshes[placement.mesh];
  LocalRay local;
  if (!makeLocalRay(placement.localFromWorld, mesh.frame, ray, local)) return false;
  return traceMesh<isAny>(mesh, local, range, index, nearest);
}

template <bool isAny>
inline bool traceScene(const SceneView& scene, const tarn::Ray<float>& ray, Nearest& nearest) {
  if (!isUsable(ray)) return false;
  const DistanceRange range(ray);
  for (std::size_t i = 0; i < scene.numUnboxed; ++i)
    if (tracePlacement<isAny>(scene, scene.unboxed[i], ray, range, nearest)) return true;
  if (scene.nodes == nullptr) return false;
  if (scene.onlyPlacement != kNone)
    return tracePlacement<isAny>(scene, scene.onlyPlacement, ray, range, nearest);

  // World space, measured along the direction's largest axis as in LocalRay.
  float origin[3], inverse[3];
  double sPerDistance = 0.0;
  for (std::size_t i = 0; i < 3; ++i)
    sPerDistance = largest(sPerDistance, std::fabs(static_cast<double>(ray.direction[i])));
  for (std::size_t i = 0; i < 3; ++i) {
    origin[i] = ray.origin[i];
    inverse[i] = boundedInverse(sPerDistance, static_cast<double>(ray.direction[i]));
  }
  const BoxTester boxes(origin, inverse, lowerS(range.low, sPerDistance, 0.0));
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
      // The nearest side of a box is off by its own roundings, as in the test.
    } while (top->near >
             (prune < 0.0f ? prune * (1.0f - 9.5367432e-7f) : prune * (1.0f + 9.5367432e-7f)));
    current = top->child;
  }
}

void findNearest(const SceneView& scene, const tarn::Ray<float>& ray, Nearest& nearest) {
  traceScene<false>(scene, ray, nearest);
}
bool findAny(const SceneView& scene, const tarn::Ray<float>& ray) {
  Nearest nearest;
  return traceScene<true>(scene, ray, nearest);
}
