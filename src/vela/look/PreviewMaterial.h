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
  diffuseColor,
  emissiveColor,
  specularColor,
  metallic,
  roughness,
  clearcoat,
  clearcoatRoughness,
  opacity,
  opacityThreshold,
  ior,
  normal,
  displacement,
  occlusion,
};
inline constexpr std::size_t kSurfaceInputs = 13;

/// Which part of a node's result is taken.
enum class NodeOutput { rgb, r, g, b, a };

/// A number or a vector: a constant, or what a node gives.
struct NetworkValue {
  /// Single numbers stand in all four places.
  tarn::Vec4f constant;
  int node = -1;  ///< index in PreviewMaterial::nodes; -1: the constant counts
  NodeOutput output = NodeOutput::rgb;

  [[nodiscard]] bool isConstant() const { return node < 0; }
};

/// A node of a network. Which members count is said by its kind.
struct NetworkNode {
  enum class Kind { texture, primvar, transform };
  enum class Wrap { black, clamp, repeat, mirror };
  enum class ColourSpace { automatic, raw, srgb };

  Kind kind = Kind::primvar;
  std::string path;  ///< of the shader prim

  /// texture and transform: the coordinates that go in.
  NetworkValue coordinates;

  // texture
  ovo::FileReference file;
  Wrap wrapS = Wrap::black, wrapT = Wrap::black;
  ColourSpace colourSpace = ColourSpace::automatic;
  /// Of the result: value * scale + bias, the fallback included.
  tarn::Vec4f scale{1.0f, 1.0f, 1.0f, 1.0f}, bias{0.0f, 0.0f, 0.0f, 0.0f};

  // primvar
  ovo::Token primvar;
  int components = 1;  ///< how many numbers a value has, 1 to 4; 0 for types that are no numbers

  /// texture, primvar: where there is no image, or no such primvar.
  tarn::Vec4f fallback{0.0f, 0.0f, 0.0f, 1.0f};

  // transform: the rotation is in degrees, counter-clockwise, after the scale
  float rotation = 0.0f;
  tarn::Vec2f scaling{1.0f, 1.0f}, translation{0.0f, 0.0f};
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

  std::array<NetworkValue, kSurfaceInputs> inputs;
  bool isSpecularWorkflow = false;  ///< colours of reflections by specularColor, not by metallic
  bool fadesWhole = false;  ///< opacity fades reflections too (`presence`), not diffuse light alone
  std::vector<NetworkNode> nodes;  ///< each after those that it takes values from

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
