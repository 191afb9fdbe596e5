/// \file
/// Shape prims as meshes: cubes, spheres, cylinders, cones, capsules and planes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Prim.h"
#include "tarn/Vec.h"

namespace command {

/// A mesh made of numbers. Faces are wound counter-clockwise seen from outside.
struct MadeMesh {
  ovo::Array<tarn::Vec3<float>> points;
  ovo::Array<int> counts, indices;
  ovo::Array<tarn::Vec3<float>> normals;  ///< one a face-vertex, pointing out
};

/// Makes the meshes of shape prims. Shapes of the same measures share their arrays.
///
/// Round ones have 128 sides, spheres 64 rows from pole to pole and the halves of capsules 32 each:
/// their outlines stay within 0.0003 of the radius of the true ones.
class ShapePrims {
 public:
  /// \param mesh replaced, when the prim is one of the shapes
  /// \return whether it is
  bool make(const ovo::Prim& prim, double time, MadeMesh& mesh);

 private:
  std::map<std::vector<double>, MadeMesh> known_;  // by kind and measures
};

}  // namespace command
