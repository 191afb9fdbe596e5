/// \file
/// How a preview surface answers light.
///
/// Directions have unit length and point away from the surface. All is in single precision.
/// Sources: UsdPreviewSurface 2.5, as OpenUSD publishes it; Walter et al., Microfacet Models for
/// Refraction through Rough Surfaces, EGSR 2007, with Schlick's approximations of Fresnel and Smith
/// terms.
#pragma once

#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela::look {

/// The inputs of a preview surface at one point.
struct PreviewSurface {
  tarn::Vec3f diffuseColor{0.18f, 0.18f, 0.18f};  ///< linear
  tarn::Vec3f emissiveColor{0.0f, 0.0f, 0.0f};    ///< linear
  tarn::Vec3f specularColor{0.0f, 0.0f, 0.0f};    ///< linear; at normal incidence
  bool isSpecularWorkflow = false;                ///< specularColor counts, not metallic
  float metallic = 0.0f;                          ///< 0 to 1
  float roughness = 0.5f;                         ///< 0 to 1
  float clearcoat = 0.0f;                         ///< 0 to 1
  float clearcoatRoughness = 0.01f;               ///< 0 to 1
  float ior = 1.5f;                               ///< index of refraction

  /// Brings every number to where it means something: shares to 0 to 1, the index of refraction to
  /// 1 or more, colours to 0 or more. What is NaN or infinite becomes the default.
  VELA_API void sanitise();
};

/// What a surface sends on of light, each as a share of the light that arrives on a square unit
/// that faces it: the cosine to the normal is in them.
struct PreviewResponse {
  /// The part that is scattered, and that which is reflected: by the base and by the coat. @{
  tarn::Vec3f diffuse, specular;
  /// @}

  /// All of it.
  [[nodiscard]] tarn::Vec3f sum() const { return diffuse + specular; }
};

/// The response to light from one direction.
///
/// \param normal   the one to shade with
/// \param toLight  zero comes back where it lies behind the surface
/// \param toViewer the same
///
/// \code
///   using vela::look::respond;
///   const tarn::Vec3f up(0.0f, 0.0f, 1.0f);
///   const vela::look::PreviewSurface surface;
///   assert(std::fabs(respond(surface, up, up, up).sum().x - 0.105934f) < 1e-5f);
///   assert(respond(surface, up, -up, up).sum().x == 0.0f);
/// \endcode
[[nodiscard]] VELA_API PreviewResponse respond(const PreviewSurface& surface,
                                               const tarn::Vec3f& normal,
                                               const tarn::Vec3f& toLight,
                                               const tarn::Vec3f& toViewer);

/// A direction of light that reflects towards the viewer, likelier where more of it does.
struct ReflectedDirection {
  tarn::Vec3f toLight;  ///< unit length
  /// The specular response over the density of such directions: the mean of weight times light,
  /// over many, is what reflects. Zero for directions that come from behind.
  tarn::Vec3f weight;
};

/// \param u, v  a point of the unit square
/// \param coat  whether the coat reflects here, else the base: each for half of the directions.
///              Without a coat the base always does
/// Source: Walter et al. 2007, with the density of both reflections together, so that neither makes
/// the other noisy.
[[nodiscard]] VELA_API ReflectedDirection sampleReflection(const PreviewSurface& surface,
                                                           const tarn::Vec3f& normal,
                                                           const tarn::Vec3f& toViewer, float u,
                                                           float v, bool coat);

/// The specular response to light from one direction, and how likely chooseReflection() is to
/// choose that direction.
struct Reflection {
  tarn::Vec3f toLight;   ///< unit length
  tarn::Vec3f specular;  ///< as PreviewResponse::specular
  float density = 0.0f;  ///< in solid angle; 0: never
};

/// For light that has a size, which smooth surfaces show sharply. Within the base a facet's angle
/// to the normal comes from its sine: the cosine that respond() takes says nothing of angles below
/// 0.0003 in single precision, and surfaces of roughness 0.02 have no others.
[[nodiscard]] VELA_API Reflection reflectionTowards(const PreviewSurface& surface,
                                                    const tarn::Vec3f& normal,
                                                    const tarn::Vec3f& toLight,
                                                    const tarn::Vec3f& toViewer);

/// A direction that light reflects from towards the viewer, likelier where more of it does.
/// \param u, v  a point of the unit square, below 1
/// \param coat  as for sampleReflection()
[[nodiscard]] VELA_API Reflection chooseReflection(const PreviewSurface& surface,
                                                   const tarn::Vec3f& normal,
                                                   const tarn::Vec3f& toViewer, float u, float v,
                                                   bool coat);

}  // namespace vela::look
