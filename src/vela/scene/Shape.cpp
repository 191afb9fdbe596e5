#include "vela/scene/Shape.h"

#include "ovo/Tokens.h"

namespace vela::scene {

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
