/// \file
/// The words of scenes: type, attribute and primvar names, and the words that attributes take as
/// values.
#pragma once

#include "ovo/Api.h"
#include "ovo/Token.h"

namespace ovo {

/// Each member is the token of its own name, but for those that say otherwise.
struct Tokens {
  /// The type of a prim. @{
  Token Xform{"Xform"}, Scope{"Scope"}, Mesh{"Mesh"}, Camera{"Camera"}, GeomSubset{"GeomSubset"},
      PointInstancer{"PointInstancer"}, Material{"Material"}, Shader{"Shader"}, Points{"Points"},
      BasisCurves{"BasisCurves"}, Cube{"Cube"}, Sphere{"Sphere"}, Cylinder{"Cylinder"},
      Cone{"Cone"}, Capsule{"Capsule"}, Plane{"Plane"};
  /// @}

  /// An attribute of geometry. @{
  Token points{"points"}, normals{"normals"}, velocities{"velocities"},
      accelerations{"accelerations"}, faceVertexCounts{"faceVertexCounts"},
      faceVertexIndices{"faceVertexIndices"}, holeIndices{"holeIndices"}, extent{"extent"},
      extentsHint{"extentsHint"}, orientation{"orientation"}, doubleSided{"doubleSided"};
  /// @}
  /// An attribute of a mesh that is refined as a subdivision surface; see ArgSet. @{
  Token subdivisionScheme{"subdivisionScheme"}, interpolateBoundary{"interpolateBoundary"},
      faceVaryingLinearInterpolation{"faceVaryingLinearInterpolation"},
      triangleSubdivisionRule{"triangleSubdivisionRule"}, creaseIndices{"creaseIndices"},
      creaseLengths{"creaseLengths"}, creaseSharpnesses{"creaseSharpnesses"},
      cornerIndices{"cornerIndices"}, cornerSharpnesses{"cornerSharpnesses"};
  /// @}
  /// An attribute or relationship of a point instancer; see PointInstancerPrim. @{
  Token prototypes{"prototypes"}, protoIndices{"protoIndices"}, positions{"positions"},
      orientations{"orientations"}, orientationsf{"orientationsf"}, scales{"scales"}, ids{"ids"},
      invisibleIds{"invisibleIds"};
  /// @}

  /// A name that primvars commonly have: texture coordinates, colours. On `_w` end those of a
  /// third texture coordinate. @{
  Token st{"st"}, st0{"st0"}, st1{"st1"}, uv{"uv"}, uv0{"uv0"}, uv1{"uv1"}, map1{"map1"},
      UVMap{"UVMap"}, displayColor{"displayColor"}, displayOpacity{"displayOpacity"}, Cd{"Cd"},
      st_w{"st_w"}, uv_w{"uv_w"}, map1_w{"map1_w"}, UVMap_w{"UVMap_w"};
  /// @}
  Token primvarsSt{"primvars:st"};            ///< `primvars:st`
  Token primvarsUv{"primvars:uv"};            ///< `primvars:uv`
  Token primvarsNormals{"primvars:normals"};  ///< `primvars:normals`
  Token primvarsPrefix{"primvars:"};          ///< `primvars:`

  /// How a primvar varies over a surface; see Primvar::interpolation(). @{
  Token constant{"constant"}, uniform{"uniform"}, vertex{"vertex"}, varying{"varying"},
      faceVarying{"faceVarying"};
  /// @}

  /// A value of `subdivisionScheme`. @{
  Token catmullClark{"catmullClark"}, loop{"loop"}, bilinear{"bilinear"}, none{"none"};
  /// @}
  /// A value of `orientation`: seen from outside, the vertices of a face run clockwise
  /// (`leftHanded`) or counterclockwise (`rightHanded`). @{
  Token leftHanded{"leftHanded"}, rightHanded{"rightHanded"};
  /// @}

  /// `visibility` and its values `inherited` and `invisible`; `purpose` and its values. @{
  Token visibility{"visibility"}, inherited{"inherited"}, invisible{"invisible"},
      purpose{"purpose"}, render{"render"}, proxy{"proxy"}, guide{"guide"};
  /// @}
  Token default_{"default"};  ///< `default`

  Token xformOpOrder{"xformOpOrder"};           ///< the list of a prim's operations
  Token xformOpTransform{"xformOp:transform"};  ///< `xformOp:transform`
  Token resetXformStack{"!resetXformStack!"};   ///< `!resetXformStack!`

  /// An attribute of a camera, or one of the two values of `projection`. @{
  Token projection{"projection"}, perspective{"perspective"}, orthographic{"orthographic"},
      focalLength{"focalLength"}, horizontalAperture{"horizontalAperture"},
      verticalAperture{"verticalAperture"}, horizontalApertureOffset{"horizontalApertureOffset"},
      verticalApertureOffset{"verticalApertureOffset"}, clippingRange{"clippingRange"},
      clippingPlanes{"clippingPlanes"}, fStop{"fStop"}, focusDistance{"focusDistance"},
      exposure{"exposure"};
  /// @}
  Token shutterOpen{"shutter:open"};    ///< `shutter:open`
  Token shutterClose{"shutter:close"};  ///< `shutter:close`

  /// An axis: X, Y or Z. @{
  Token X{"X"}, Y{"Y"}, Z{"Z"};
  /// @}
};

/// The one table, made on first use and never destroyed, so that it can be used while the process
/// starts and ends.
[[nodiscard]] OVO_API const Tokens& tokens();

}  // namespace ovo
