/// \file
/// The words of scenes: type, attribute and primvar names, and the words that attributes take as
/// values.
#pragma once

#include "ovo/Api.h"
#include "ovo/Token.h"

namespace ovo {

/// Each member is the token of its own name, but for those that say otherwise.
struct Tokens {
  // Prim types
  Token Xform{"Xform"}, Scope{"Scope"}, Mesh{"Mesh"}, Camera{"Camera"}, GeomSubset{"GeomSubset"},
      PointInstancer{"PointInstancer"}, Material{"Material"}, Shader{"Shader"}, Points{"Points"},
      BasisCurves{"BasisCurves"}, Cube{"Cube"}, Sphere{"Sphere"}, Cylinder{"Cylinder"},
      Cone{"Cone"}, Capsule{"Capsule"}, Plane{"Plane"};

  // Geometry
  Token points{"points"}, normals{"normals"}, velocities{"velocities"},
      accelerations{"accelerations"}, faceVertexCounts{"faceVertexCounts"},
      faceVertexIndices{"faceVertexIndices"}, holeIndices{"holeIndices"}, extent{"extent"},
      extentsHint{"extentsHint"}, orientation{"orientation"}, doubleSided{"doubleSided"};
  Token subdivisionScheme{"subdivisionScheme"}, interpolateBoundary{"interpolateBoundary"},
      faceVaryingLinearInterpolation{"faceVaryingLinearInterpolation"},
      triangleSubdivisionRule{"triangleSubdivisionRule"}, creaseIndices{"creaseIndices"},
      creaseLengths{"creaseLengths"}, creaseSharpnesses{"creaseSharpnesses"},
      cornerIndices{"cornerIndices"}, cornerSharpnesses{"cornerSharpnesses"};
  // Point instancers
  Token prototypes{"prototypes"}, protoIndices{"protoIndices"}, positions{"positions"},
      orientations{"orientations"}, orientationsf{"orientationsf"}, scales{"scales"}, ids{"ids"},
      invisibleIds{"invisibleIds"};

  // Primvars
  Token st{"st"}, st0{"st0"}, st1{"st1"}, uv{"uv"}, uv0{"uv0"}, uv1{"uv1"}, map1{"map1"},
      UVMap{"UVMap"}, displayColor{"displayColor"}, displayOpacity{"displayOpacity"}, Cd{"Cd"},
      st_w{"st_w"}, uv_w{"uv_w"}, map1_w{"map1_w"}, UVMap_w{"UVMap_w"};
  Token primvarsSt{"primvars:st"};            ///< `primvars:st`
  Token primvarsUv{"primvars:uv"};            ///< `primvars:uv`
  Token primvarsNormals{"primvars:normals"};  ///< `primvars:normals`
  Token primvarsPrefix{"primvars:"};          ///< `primvars:`

  // Interpolations
  Token constant{"constant"}, uniform{"uniform"}, vertex{"vertex"}, varying{"varying"},
      faceVarying{"faceVarying"};

  // Subdivision schemes and orientations
  Token catmullClark{"catmullClark"}, loop{"loop"}, bilinear{"bilinear"}, none{"none"};
  Token leftHanded{"leftHanded"}, rightHanded{"rightHanded"};

  // Visibility and purpose
  Token visibility{"visibility"}, inherited{"inherited"}, invisible{"invisible"},
      purpose{"purpose"}, render{"render"}, proxy{"proxy"}, guide{"guide"};
  Token default_{"default"};  ///< `default`

  // Transforms
  Token xformOpOrder{"xformOpOrder"};
  Token xformOpTransform{"xformOp:transform"};  ///< `xformOp:transform`
  Token resetXformStack{"!resetXformStack!"};   ///< `!resetXformStack!`

  // Cameras
  Token projection{"projection"}, perspective{"perspective"}, orthographic{"orthographic"},
      focalLength{"focalLength"}, horizontalAperture{"horizontalAperture"},
      verticalAperture{"verticalAperture"}, horizontalApertureOffset{"horizontalApertureOffset"},
      verticalApertureOffset{"verticalApertureOffset"}, clippingRange{"clippingRange"},
      clippingPlanes{"clippingPlanes"}, fStop{"fStop"}, focusDistance{"focusDistance"},
      exposure{"exposure"};
  Token shutterOpen{"shutter:open"};    ///< `shutter:open`
  Token shutterClose{"shutter:close"};  ///< `shutter:close`

  // Axes
  Token X{"X"}, Y{"Y"}, Z{"Z"};
};

/// The one table, made on first use and never destroyed, so that it can be used while the process
/// starts and ends.
[[nodiscard]] OVO_API const Tokens& tokens();

}  // namespace ovo
