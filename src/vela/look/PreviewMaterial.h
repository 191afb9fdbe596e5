/// \file
/// Materials made of preview nodes, as networks of plain records.
///
/// Read are UsdPreviewSurface and what may feed it: UsdUVTexture, UsdPrimvarReader_TYPE and
/// UsdTransform2d, through node graphs and the interfaces of materials. Other shaders give nothing:
/// an input that is connected to one has the value of its definition.
///
/// Which value counts: of an input's connections the first that leads to something; else the
/// farthest value on the way there that the scene gives; else the input's own; else that of the
/// definition, as OpenUSD publishes it: UsdPreviewSurface 2.5.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "ovo/Prim.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Token.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela::look {

/// The inputs of a preview surface that may differ from point to point.
enum class SurfaceInput {
  diffuseColor,        ///< light that the base scatters
  emissiveColor,       ///< light of its own
  specularColor,       ///< reflection that faces the viewer, in the specular workflow
  metallic,            ///< 0 a dielectric, 1 a metal
  roughness,           ///< of the base, 0 to 1
  clearcoat,           ///< share of the coat's reflection
  clearcoatRoughness,  ///< of the coat, 0 to 1
  opacity,             ///< 1 lets nothing through
  opacityThreshold,    ///< above 0: opacity below it shows nothing, other opacity counts as 1
  ior,                 ///< index of refraction
  normal,              ///< of the surface, in its tangent space
  displacement,        ///< read and not used
  occlusion,           ///< read and not used
};
inline constexpr std::size_t kSurfaceInputs = 13;  ///< how many SurfaceInput has

/// Which part of a node's result is taken.
enum class NodeOutput {
  rgb,  ///< all that the result has
  r,    ///< the first number
  g,    ///< the second number
  b,    ///< the third number
  a,    ///< the fourth number
};

/// A number or a vector: a constant, or what a node gives.
struct NetworkValue {
  /// Single numbers stand in all four places.
  tarn::Vec4f constant;
  int node = -1;  ///< index in PreviewMaterial::nodes; -1: the constant counts
  NodeOutput output = NodeOutput::rgb;  ///< of the node's result

  /// True when it is a constant.
  [[nodiscard]] bool isConstant() const { return node < 0; }
};

/// A node of a network. Which members count is said by its kind.
struct NetworkNode {
  /// What the node does.
  enum class Kind {
    texture,    ///< looks an image up
    primvar,    ///< gives a primvar of the surface
    transform,  ///< scales, turns and moves texture coordinates
  };
  /// What a texture shows beyond its edges.
  enum class Wrap {
    black,   ///< nothing: all four numbers are 0
    clamp,   ///< the pixels of the edge
    repeat,  ///< the image again
    mirror,  ///< the image again, every other time mirrored
  };
  /// How a texture's numbers are meant.
  enum class ColourSpace {
    automatic,  ///< by what the file says of itself
    raw,        ///< as they are
    srgb,       ///< as sRGB, to be made linear
  };

  Kind kind = Kind::primvar;  ///< which members count
  std::string path;           ///< of the shader prim

  /// texture and transform: the coordinates that go in.
  NetworkValue coordinates;

  // texture
  ovo::FileReference file;  ///< the image; `written` is empty without one
  /// Beyond the edges of u, and of v. @{
  Wrap wrapS = Wrap::black, wrapT = Wrap::black;
  /// @}
  ColourSpace colourSpace = ColourSpace::automatic;  ///< of the image
  /// Of the result: value * scale + bias, the fallback included. @{
  tarn::Vec4f scale{1.0f, 1.0f, 1.0f, 1.0f}, bias{0.0f, 0.0f, 0.0f, 0.0f};
  /// @}

  // primvar
  ovo::Token primvar;  ///< its name, without prefix
  int components = 1;  ///< how many numbers a value has, 1 to 4; 0 for types that are no numbers

  /// texture, primvar: where there is no image, or no such primvar.
  tarn::Vec4f fallback{0.0f, 0.0f, 0.0f, 1.0f};

  // transform: the rotation is in degrees, counter-clockwise, after the scale
  float rotation = 0.0f;  ///< degrees
  /// Factor, and what is added after the rotation. @{
  tarn::Vec2f scaling{1.0f, 1.0f}, translation{0.0f, 0.0f};
  /// @}
};

/// The surface of a material.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::openText(
///       "#usda 1.0\n"
///       "def Material \"Red\"\n{\n  color3f inputs:paint = (1, 0, 0)\n"
///       "  token outputs:surface.connect = </Red/Surface.outputs:surface>\n"
///       "  def Shader \"Surface\"\n  {\n    uniform token info:id = \"UsdPreviewSurface\"\n"
///       "    color3f inputs:diffuseColor.connect = </Red.inputs:paint>\n"
///       "    token outputs:surface\n  }\n}\n");
///   using namespace vela::look;
///   const PreviewMaterial red = readPreviewMaterial(stage->getPrimAtPath("/Red"));
///   assert(red.isShown);
///   assert(red[SurfaceInput::diffuseColor].constant.x == 1.0f);
///   assert(red[SurfaceInput::roughness].constant.x == 0.5f);
/// \endcode
struct VELA_API PreviewMaterial {
  /// True when there is a preview surface. Else nothing below counts but `other`.
  bool isShown = false;
  /// What the material has instead: the render context of an output that leads somewhere, such as
  /// `mtlx`, or the name of the shader that it leads to; empty: no surface at all.
  std::string other;

  std::array<NetworkValue, kSurfaceInputs> inputs;  ///< by SurfaceInput
  bool isSpecularWorkflow = false;  ///< colours of reflections by specularColor, not by metallic
  bool fadesWhole = false;  ///< opacity fades reflections too (`presence`), not diffuse light alone
  std::vector<NetworkNode> nodes;  ///< each after those that it takes values from

  /// By name.
  [[nodiscard]] const NetworkValue& operator[](SurfaceInput input) const {
    return inputs[static_cast<std::size_t>(input)];
  }
};

/// The value that the definition gives an input; single numbers stand in all four places.
[[nodiscard]] VELA_API tarn::Vec4f definedValue(SurfaceInput input);
/// The input's name without prefix, such as `diffuseColor`.
[[nodiscard]] VELA_API const char* nameOf(SurfaceInput input);

/// Reads the surface of a material as it is at a time. Cycles and chains of more than a thousand
/// connections end as if nothing were connected.
[[nodiscard]] VELA_API PreviewMaterial readPreviewMaterial(const ovo::Prim& material,
                                                           double time = tarn::defaultTimeValue());

}  // namespace vela::look
