/// \file
/// Shape prims as meshes: cubes, spheres, cylinders, cones, capsules and planes.
#pragma once

#include <map>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Prim.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela::scene {

/// A mesh that is in no scene file. Faces are wound counter-clockwise seen from outside.
struct MadeMesh {
  ovo::Array<tarn::Vec3f> points;  ///< in the prim's own space
  /// The length of each face, and the point indices face by face. @{
  ovo::Array<int> counts, indices;
  /// @}
  ovo::Array<tarn::Vec3f> normals;  ///< one a face-vertex, pointing out
};

/// Makes the meshes of shape prims. Shapes of the same measures share their arrays.
///
/// Round ones have 128 sides, spheres 64 rows from pole to pole and the halves of capsules 32 each:
/// their outlines stay within 0.0003 of the radius of the true ones.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::Prim prim = stage->definePrim(ovo::Path("/Box"), ovo::Token("Cube"));
///   vela::scene::ShapePrims shapes;
///   vela::scene::MadeMesh mesh;
///   assert(shapes.make(prim, tarn::defaultTimeValue(), mesh) && mesh.counts.size() == 6);
/// \endcode
class VELA_API ShapePrims {
 public:
  /// \param mesh replaced, when the prim is one of the shapes
  /// \return whether it is
  bool make(const ovo::Prim& prim, double time, MadeMesh& mesh);

 private:
  std::map<std::vector<double>, MadeMesh> known_;  // by kind and measures
};

}  // namespace vela::scene
