#include "vela/scene/Shape.h"

#include <cstddef>

#include "ovo/Tokens.h"
#include "vela/scene/CurvePrims.h"

namespace vela::scene {

tarn::Box3d boxOf(const Shape& shape) {
  tarn::Box3d box;
  const auto points = shape.points.view();
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!isFinite(points[i])) continue;
    const tarn::Vec3d at(points[i]);
    if (!shape.tubes) {
      box.extendBy(at);
    } else if (const float radius = shape.tubes->radii.view()[i]; radius >= 0.0f) {
      const tarn::Vec3d reach(static_cast<double>(radius));
      box.extendBy({at - reach, at + reach});
    }
  }
  return box;
}

Shape readShape(const ovo::MeshPrim& prim, double time) {
  Shape shape;
  shape.prim = prim;
  bool reverseWinding = false;
  prim.getPoints(shape.points, time);
  prim.getFaceTopology(shape.counts, shape.indices, reverseWinding, time);
  shape.leftHanded = prim.getOrientation() == ovo::tokens().leftHanded;
  return shape;
}

}  // namespace vela::scene
