/// \file
/// Light on surfaces: that of the scene's lights; or a key and a fill light, and daylight that
/// corners keep out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ovo/Stage.h"
#include "tarn/Frame.h"
#include "tarn/Vec.h"
#include "vela/picture/detail/Lights.h"
#include "vela/picture/detail/Looks.h"
#include "vela/picture/detail/PixelSamples.h"
#include "vela/scene/ObjectSpace.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneLights.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/SceneMotion.h"
#include "vela/scene/Surface.h"
#include "vela/scene/SurfaceHit.h"
#include "vela/scene/View.h"
#include "vela/scene/WorldRay.h"
#include "vela/selection/GeoSelection.h"

namespace vela::picture::detail {

/// Rays that start on a surface start this far off it, or its own rounding would put them beneath:
/// by a share of what a hit's coordinates are rounded from, and by a share of what the points of
/// the mesh are rounded from. Shader_test.cpp holds both against exact planes.
///
/// A hit is a sum of floats of the size of its offset from the caster's base and of half the
/// distance, each off by 2^-24 of that; 4e-6 is 67 such roundings.
inline constexpr float kHitRounding = 4e-6f;
/// The points of a mesh are floats in its own space. A plane through three of them is off by the
/// rounding of the points and of the hit's own point there; 2.5e-7 is 4 roundings of 2^-24.
inline constexpr float kPointRounding = 2.5e-7f;

/// Where light may come from: the scene's meshes as surfaces, and the lights.
///
/// Threads: const calls may run from any number of threads at once.
class Shader {
 public:
  /// \param meshes      must outlive the shader
  /// \param motion      of the meshes; null when rays are all of one time
  /// \param caster      what the hits come from
  /// \param radius      half the size of what is shown: how far corners darken
  /// \param ambientGrid as for PixelSamples
  /// \param smooth      as for scene::Surface
  Shader(const scene::MeshList& meshes, const scene::SceneMotion* motion,
         const scene::RayCaster& caster, double time, const scene::View& view, double radius,
         int ambientGrid, bool smooth);
  /// The same for another view, with the surfaces, materials and lights of \p other; those must not
  /// change any more.
  /// \param scatters whether light is scattered on, as it is by \p other
  Shader(const Shader& other, const scene::View& view, int ambientGrid, bool scatters);

  /// Tints what the selection has, from now on.
  /// \param selection its status of prims is brought up to date by \p stage
  void tint(Selection::GeoSelection& selection, const std::shared_ptr<ovo::Stage>& stage);

  /// Shows the materials of a scene from now on.
  /// \param materials must outlive the shader
  /// \param problems  gets what is wrong with their textures
  void useMaterials(const scene::SceneMaterials& materials, double time, std::size_t textureBytes,
                    std::vector<scene::Problem>& problems, const scene::Work& work);
  /// Lets the lights of the scene shine from now on. To be called before useMaterials().
  /// \param lights  must outlive the shader
  /// \param withOwn whether the shader's own lights stay
  /// \param bounces how often their light is scattered on the way
  /// \param textureBytes what their images may take; useMaterials() gets what is left of it
  void useLights(const scene::SceneLights& lights, bool withOwn, int bounces,
                 std::size_t textureBytes, std::vector<scene::Problem>& problems,
                 const scene::Work& work);
  [[nodiscard]] bool hasOwnLights() const { return hasOwnLights_; }
  /// Of the scene; null when they do not shine.
  [[nodiscard]] const Lights* lights() const { return lights_; }

  /// True when some face shows a material; light() would not show it.
  [[nodiscard]] bool hasLooks() const { return looks_ && looks_->any(); }
  /// True when some surface may let light through.
  [[nodiscard]] bool maySeeThrough() const { return looks_ && looks_->maySeeThrough(); }

  /// Some light that arrives unless a ray is stopped.
  struct Light {
    std::size_t target;                ///< the caller's index of the pixel
    tarn::Vec3f colour;                ///< what arrives when nothing is in the way
    std::uint32_t source = kOwnLight;  ///< the light of the scene that it comes from
  };
  /// A way that light may come by from surface to surface, seen from the viewer.
  struct Bounce {
    std::size_t target;
    scene::WorldRay ray;
    tarn::Vec3f weight;   ///< what arrives at the viewer of a unit of light
    float footprint = 0;  ///< the width in the world of what the ray stands for at its start
    int depth = 1;        ///< how often it has been scattered
    int surfaces = 0;     ///< how many it has gone through since
  };
  /// Rays and what each decides over, index by index; and what needs no such ray.
  struct Batch {
    std::vector<scene::WorldRay> rays;
    std::vector<Light> lights;
    std::vector<Light> unshadowed;  ///< of lights that throw no shadows
    std::vector<Bounce> bounces;
    void clear() {
      rays.clear();
      lights.clear();
      unshadowed.clear();
      bounces.clear();
    }
  };

  /// Adds the rays and lights of one hit. \return displayColor there
  tarn::Vec3f light(const scene::WorldRay& ray, const scene::SurfaceHit& hit,
                    const PixelSamples& samples, std::size_t sample, std::size_t target,
                    Batch& batch) const;

  /// What a ray sees of a hit, beside the light in the batch.
  struct Seen {
    tarn::Vec3f albedo;      ///< without light, not weighed by opacity
    tarn::Vec3f emission;    ///< light of the surface's own
    float coverage = 1.0f;   ///< how much of what is behind it hides
    bool isSurface = true;   ///< false where the material cuts the surface out
    scene::WorldRay behind;  ///< goes on behind the surface
  };
  /// As light(), for scenes with materials or with lights.
  /// \param weight    of all that is added to the batch
  /// \param footprint the width of a sample in the world there
  Seen see(const scene::WorldRay& ray, const scene::SurfaceHit& hit, const PixelSamples& samples,
           std::size_t sample, std::size_t target, float weight, float footprint,
           Batch& batch) const;
  /// The light that comes by a bounce from what its ray met: adds rays, lights and further bounces
  /// to the batch.
  /// \param samples of the target
  /// \return light of the surface's own, weighed
  tarn::Vec3f seeBounce(const Bounce& bounce, const scene::SurfaceHit& hit, PixelSamples& samples,
                        Batch& batch) const;
  /// How much light goes straight through a hit, 0 to 1, and the ray that goes on.
  float through(const scene::WorldRay& ray, const scene::SurfaceHit& hit,
                scene::WorldRay& behind) const;
  /// A ray as it goes on behind a hit.
  [[nodiscard]] scene::WorldRay behind(const scene::WorldRay& ray,
                                       const scene::SurfaceHit& hit) const;

  /// The normal that a hit is shaded with, see scene::shadingNormal.
  [[nodiscard]] tarn::Vec3f normal(const scene::SurfaceHit& hit) const;

 private:
  // A surface in its place.
  struct Placed {
    scene::ObjectSpace space;
    const scene::Surface* surface;
    const tarn::Vec3f* colour;  // of the instance; null where the surface's own counts
    float scale;                // the most that a length in the object grows in the world
  };
  // A light so far away that its rays are parallel, but for what its size spreads them.
  struct Directional {
    tarn::Frame3f frame;  // z points to the light
    tarn::Vec3f colour;
    float spread;  // tangent of the half angle that the light fills
  };
  // A point that is lit, from the viewer's side.
  struct LitPoint {
    tarn::Vec3f albedo;  // with the highlight of what is selected
    tarn::Vec3f toViewer;
    tarn::Vec3f geometric, shading;  // normals
    tarn::Vec3d base;
    tarn::Vec3f start;     // of rays to lights, from the base
    tarn::Vec3f far;       // of rays that go on behind the surface
    bool isSmooth;         // it starts where the smooth surface would be
    std::uint32_t moment;  // of all rays from here
    std::size_t target;
  };

  [[nodiscard]] Directional makeLight(const tarn::Vec3d& towards, const tarn::Vec3f& colour,
                                      float spread) const;
  [[nodiscard]] LitPoint litPoint(const Placed& placed, const tarn::Vec3f& own,
                                  const scene::SurfacePoint& onSurface, const scene::WorldRay& ray,
                                  const scene::SurfaceHit& hit,
                                  const tarn::Vec3f* ownNormal = nullptr) const;
  [[nodiscard]] static scene::WorldRay raysBehind(const LitPoint& point, const scene::WorldRay& ray,
                                                  const scene::SurfaceHit& hit);
  [[nodiscard]] tarn::Vec3f daylightFrom(const tarn::Vec3f& direction) const;

  // What the scene's lights fall on.
  struct Receiver {
    const LitPoint& point;
    const LookPoint* look;  // null: a matt surface of the point's albedo
    std::uint32_t entry;
    tarn::Vec3f weight;
    float footprint;
  };
  // A point for each light asked, and for the ways that light may come by.
  struct Draws;
  struct Answer {
    tarn::Vec3f diffuse, specular;
    float density = 0.0f;  // of the direction among reflections
  };
  [[nodiscard]] static Answer answerOf(const Receiver& to, const tarn::Vec3f& toLight, bool isThin);
  void addAllFromScene(const Receiver& to, const PixelSamples& samples, std::size_t sample,
                       Batch& batch) const;
  void addSceneLights(const Receiver& to, const Draws& draws, Batch& batch) const;
  void addReflection(const Receiver& to, const Draws& draws, Batch& batch) const;
  void addScattered(const Receiver& to, const Draws& draws, int depth, Batch& batch) const;
  void addLight(const Receiver& to, std::uint32_t source, const look::LightSample& sample,
                const tarn::Vec3f& colour, Batch& batch) const;

  // The same lights on a material.
  void addDirectional(const LitPoint& point, const LookPoint& look, const Directional& light,
                      const tarn::Vec2f& onLight, float weight, Batch& batch) const;
  void addDaylight(const LitPoint& point, const LookPoint& look, const PixelSamples& samples,
                   std::size_t sample, float weight, Batch& batch) const;
  void addOwnLights(const LitPoint& point, const PixelSamples& samples, std::size_t sample,
                    Batch& batch) const;
  void addDirectional(const LitPoint& point, const Directional& light, const tarn::Vec2f& onLight,
                      Batch& batch) const;
  void addDaylight(const LitPoint& point, const PixelSamples& samples, std::size_t sample,
                   Batch& batch) const;

  // What is the same from everywhere.
  struct Scenery {
    std::vector<scene::Surface> surfaces;  // of each shape
    std::vector<Placed> placed;            // of each entry
    std::unique_ptr<const Looks> looks;
    std::unique_ptr<const Lights> lights;
  };
  void placeOwnLights(const scene::View& view);

  const scene::MeshList& meshes_;
  std::shared_ptr<Scenery> scenery_;
  // Of the scenery.
  std::vector<scene::Surface>& surfaces_;
  std::vector<Placed>& placed_;
  const Looks* looks_ = nullptr;
  const Lights* lights_ = nullptr;
  Directional key_, fill_;
  tarn::Vec3f up_;
  float reach_;  // how far the rays of daylight look at most
  int ambient_;  // how many there are for a sample
  bool hasOwnLights_ = true;
  int bounces_ = 0;
};

}  // namespace vela::picture::detail
