/// \file
/// Lights of a scene as plain records, and the light that arrives from them.
///
/// Lights emit along their own -z. Radiance is in the scene's units: where it is 1, a white surface
/// that sees nothing else has the value 1. How large a light is counts in the world: a transform
/// scales its area, not its radiance.
/// Source: the light schemas of OpenUSD (UsdLux).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ovo/Prim.h"
#include "ovo/PropertyLinks.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela::look {

/// What kind of light a prim is.
enum class LightKind {
  distant,   ///< from one direction, or from a small part of the sky
  sphere,    ///< a sphere, or a point
  rect,      ///< a rectangle, which shines down its -z
  disk,      ///< a disk, which shines down its -z
  cylinder,  ///< a cylinder without caps, or a line
  dome,      ///< from all around
};

/// What keeps light of a light within a cone.
struct LightShaping {
  float coneAngle = 90.0f;         ///< degrees off the axis, beyond which there is no light
  float coneSoftness = 0.0f;       ///< the share of the angle in which it fades, 0 to 1
  float focus = 0.0f;              ///< the exponent of the cosine that light falls off by
  tarn::Vec3f focusTint{0, 0, 0};  ///< what light becomes that falls off
};

/// The shadows of a light.
struct LightShadow {
  bool isEnabled = true;        ///< false: it throws none
  tarn::Vec3f colour{0, 0, 0};  ///< of what arrives where something is in the way: a factor
  float distance = -1.0f;       ///< what is farther off throws none; negative: no limit
  float falloff = -1.0f;  ///< over which shadows fade up to that distance; negative: they do not
  float falloffGamma = 1.0f;  ///< the exponent of that
};

/// A light. Which members count depends on its kind.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::openText(
///       "#usda 1.0\ndef SphereLight \"Bulb\"\n{\n  float inputs:intensity = 30\n"
///       "  float inputs:radius = 2\n  bool inputs:normalize = 1\n}\n");
///   using namespace vela::look;
///   const std::optional<LightSource> bulb =
///       readLight(stage->getPrimAtPath("/Bulb"), tarn::Mat4d());
///   assert(bulb && bulb->kind == LightKind::sphere);
///   assert(std::fabs(bulb->radiance.x - 30.0f / (16.0f * 3.14159265f)) < 1e-5f);
/// \endcode
struct VELA_API LightSource {
  LightKind kind = LightKind::sphere;  ///< which of the kinds
  tarn::Mat4d worldFromLight;          ///< light to world
  /// What it emits, before texture and shaping: colour, intensity, exposure, temperature and
  /// normalisation together. Finite and not negative. Of a point (see isThin) the intensity, of a
  /// line the intensity of a unit of length across the line, of a distant light without an angle
  /// the irradiance of a surface that faces it.
  tarn::Vec3f radiance{0, 0, 0};
  /// Factor of what surfaces scatter, or reflect, of it. @{
  float diffuse = 1.0f, specular = 1.0f;
  /// @}

  float angle = 0.53f;  ///< distant: degrees that it fills, 0 to 360
  float radius = 0.5f;  ///< sphere, disk, cylinder
  /// Of a rect: its sides along x and y. @{
  float width = 1.0f, height = 1.0f;
  /// @}
  float length = 1.0f;  ///< cylinder: along x; it has no caps
  /// Without a size across: a sphere that is a point, a cylinder that is a line, a distant light
  /// without an angle.
  bool isThin = false;

  bool isShaped = false;  ///< by what follows; never for domes and distant lights
  LightShaping shaping;   ///< its cone
  LightShadow shadow;     ///< its shadows

  /// rect and dome: the image that it shows; `written` is empty without one.
  ovo::FileReference texture;
  bool isPoleZ = false;  ///< dome: the pole of the image is z and its middle -y; else +y and +z

  /// What is wrong with it, each a line; it counts as it stands here.
  std::vector<std::string> defects;

  /// The share of light that shaping leaves, colour by colour, in a direction of the world that
  /// leads away from the light, of unit length.
  [[nodiscard]] tarn::Vec3f shapingTowards(const tarn::Vec3d& away) const;
  /// The area in the world of a sphere, disk, rect or cylinder, that of its round side alone.
  [[nodiscard]] double worldArea() const;
};

/// Reads a light as it is at a time. Inputs that are not finite count as their defaults and are
/// among the defects; a light whose radiance is not finite all the same gives none. Radiance below
/// 0 counts as 0, sizes below 0 as 0.
///
/// Inputs may be connected to those of other prims: the first connection that leads to a value
/// counts before the input's own. The names of old files, without `inputs:`, do not count.
///
/// \return nothing for prims that are none of the kinds: portals, geometry and plug-in lights too
[[nodiscard]] VELA_API std::optional<LightSource> readLight(const ovo::Prim& prim,
                                                            const tarn::Mat4d& worldFromLight,
                                                            double time = tarn::defaultTimeValue());

/// The kind of a prim; nothing as for readLight().
[[nodiscard]] VELA_API std::optional<LightKind> lightKindOf(const ovo::Prim& prim);

/// True when the light names a profile of what it emits, which is not read.
[[nodiscard]] VELA_API bool hasLightProfile(const ovo::Prim& prim,
                                            double time = tarn::defaultTimeValue());

/// The colour of a black body, linear Rec.709, of the luminance 1.
/// \param kelvin counts within 1000 and 10000; a NaN counts as 6500
/// Source: Krystek, Color Research & Application 10(1), 1985. Channels below 0 become 0.
[[nodiscard]] VELA_API tarn::Vec3f blackBodyColour(float kelvin);

/// Light that arrives at a point from one place of a light.
struct LightSample {
  tarn::Vec3f toLight;    ///< unit length
  double distance = 0.0;  ///< to the light; infinite for distant lights and domes
  tarn::Vec3f radiance;   ///< shaped, without the texture; zero: nothing arrives
  /// In solid angle; of thin lights 0: what radiance has is then the irradiance of a surface that
  /// faces the light.
  double density = 0.0;
  tarn::Vec2f onTexture;  ///< where the image counts; v runs up
};

/// Chooses a place on a light.
///
/// Domes are sampled by the cosine to the normal. Who knows their image does better.
///
/// \param point  in the world
/// \param normal of the surface there, unit length
/// \param u, v   a point of the unit square, both below 1
/// Source: spheres by the cone that they fill, of all else a point of the area.
[[nodiscard]] VELA_API LightSample sampleLight(const LightSource& light, const tarn::Vec3d& point,
                                               const tarn::Vec3f& normal, double u, double v);

/// What arrives from a direction: as sampleLight() would give it, with the density that it has for
/// that direction. Thin lights are never met.
[[nodiscard]] VELA_API LightSample meetLight(const LightSource& light, const tarn::Vec3d& point,
                                             const tarn::Vec3f& normal, const tarn::Vec3f& toLight);

/// Where the image of a dome counts for a direction of the world; u from 0 to 1 from its left, v
/// from 0 to 1 from its lower edge.
[[nodiscard]] VELA_API tarn::Vec2f domeCoordinates(const LightSource& dome,
                                                   const tarn::Vec3d& direction);
/// The other way round.
[[nodiscard]] VELA_API tarn::Vec3d domeDirection(const LightSource& dome,
                                                 const tarn::Vec2d& coordinates);

}  // namespace vela::look
