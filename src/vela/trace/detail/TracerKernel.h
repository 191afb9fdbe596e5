/// \file
/// What a kernel is: the functions that trace a ray through a scene, once for every processor and
/// once for those with AVX2. All kernels give the same bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "tarn/Ray.h"
#include "vela/trace/detail/Placement.h"
#include "vela/trace/detail/TracerMath.h"
#include "vela/trace/detail/TracerMesh.h"
#include "vela/trace/detail/WideTree.h"

namespace vela::tracer {

/// The nearest crossing so far.
struct Nearest {
  double distance = std::numeric_limits<double>::infinity();
  std::uint32_t placement = kNone;
  std::uint32_t triangle = kNone;
  Crossing crossing{};
  const Block* block = nullptr;
  std::uint32_t lane = 0;

  void take(const Crossing& c, std::uint32_t p, const Block& b, std::uint32_t l) {
    distance = c.distance;
    placement = p;
    triangle = b.triangle[l];
    crossing = c;
    block = &b;
    lane = l;
  }
  /// Of a mesh of tubes: `triangle` is the piece, `crossing.a` the s of the point.
  void takePiece(double s, double d, std::uint32_t p, std::uint32_t piece) {
    distance = d;
    placement = p;
    triangle = piece;
    crossing.a = s;
  }
  /// By distance, then by placement, then by triangle, so that no order of the walk shows.
  [[nodiscard]] bool isBeatenBy(double d, std::uint32_t p, std::uint32_t t) const {
    if (d != distance) return d < distance;
    return p != placement ? p < placement : t < triangle;
  }
};

/// A scene as a kernel sees it.
struct SceneView {
  const Mesh* meshes = nullptr;
  const Placement* placements = nullptr;
  const Node* nodes = nullptr;  ///< over the placements that have a box; null when none has
  std::uint32_t onlyPlacement =
      kNone;  ///< the one placement that has a box; kNone when there are more
  const std::uint32_t* unboxed = nullptr;  ///< placements that every ray must ask
  std::size_t numUnboxed = 0;
  /// Of the tree over placements; mostWaiting counts the deepest of the meshes' trees too.
  TreeLimits limits;
  bool hasTubes = false;  ///< some mesh is one of tubes
};

/// Where the answers of a span go, in any order: each ray's index and the nearest crossing, whose
/// placement is kNone on a miss. Only the placement says anything where any hit was asked for.
struct SpanAnswers {
  void (*take)(const void* self, std::size_t ray, const Nearest& nearest);
  const void* self;
};

/// What a kernel answers, for rays of one type.
template <class T>
struct RayFunctions {
  void (*nearest)(const SceneView&, const tarn::Ray<T>&, Nearest&);
  bool (*occluded)(const SceneView&, const tarn::Ray<T>&);
  /// The same for many rays. \return false, with nothing done, where they must be asked one by one
  bool (*nearestOfSpan)(const SceneView&, const tarn::Ray<T>*, std::size_t, const SpanAnswers&);
  bool (*occludedOfSpan)(const SceneView&, const tarn::Ray<T>*, std::size_t, const SpanAnswers&);
};
struct KernelFunctions {
  RayFunctions<float> ofFloat;
  RayFunctions<double> ofDouble;

  template <class T>
  [[nodiscard]] const RayFunctions<T>& of() const {
    if constexpr (std::is_same_v<T, float>)
      return ofFloat;
    else
      return ofDouble;
  }
};
/// Runs anywhere.
KernelFunctions plainKernel();
/// The best that this processor runs; the plain one where there is no better.
KernelFunctions bestKernel();

}  // namespace vela::tracer
