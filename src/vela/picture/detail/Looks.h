/// \file
/// The materials of a picture's meshes, ready to be asked for at points of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "tarn/Vec.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/look/PreviewResponse.h"
#include "vela/picture/detail/TextureSet.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Surface.h"
#include "vela/scene/SurfaceHit.h"
#include "vela/scene/Work.h"

namespace vela::picture::detail {

/// What a material is at one point.
struct LookPoint {
  look::PreviewSurface surface;
  float opacity = 1.0f;     ///< 0 to 1
  bool isCutOut = false;    ///< there is no surface here
  bool fadesWhole = false;  ///< opacity fades reflections too
  tarn::Vec3f normal;       ///< the one to shade with, in the world, pointing out
};

/// Threads: const calls may run from any number of threads at once.
class Looks {
 public:
  /// Reads materials and textures.
  /// \param meshes       must outlive this
  /// \param materials    of the meshes; must outlive this
  /// \param surfaces     of each shape, must outlive this; get the primvars that materials read
  /// \param textureBytes as for TextureSet::load
  Looks(const scene::MeshList& meshes, const scene::SceneMaterials& materials,
        std::vector<scene::Surface>& surfaces, double time, std::size_t textureBytes,
        const scene::Work& work = {});

  /// True when some face shows a material.
  [[nodiscard]] bool any() const { return hasAny_; }
  /// True when some material may let light through.
  [[nodiscard]] bool maySeeThrough() const { return maySeeThrough_; }
  [[nodiscard]] const std::vector<scene::Problem>& problems() const { return textures_.problems(); }

  /// The material of the face that was hit, for the calls below; nothing where none shows.
  [[nodiscard]] std::optional<std::uint32_t> at(const scene::SurfaceHit& hit) const;

  /// What the material is at a hit.
  /// \param normal    the surface's own, in the world, pointing out
  /// \param footprint the width, in the world, of what the point stands for
  [[nodiscard]] LookPoint evaluate(std::uint32_t material, const scene::SurfaceHit& hit,
                                   const scene::SurfacePoint& point, const tarn::Vec3f& normal,
                                   float footprint) const;

  /// How much light goes straight through the surface that was hit, 0 to 1.
  [[nodiscard]] float through(const scene::SurfaceHit& hit, const scene::SurfacePoint& point) const;

 private:
  struct Material {
    look::PreviewMaterial network;
    std::vector<std::uint32_t> textures;  // of each node; 0 where it is none
    bool mayBeSeenThrough = false;
  };
  // Of each node of a material: the number of its primvar in a surface.
  using Primvars = std::vector<std::optional<std::size_t>>;
  // A node's result, and how wide the footprint is in its units.
  struct NodeValue {
    tarn::Vec4f value;
    float width = 0.0f;
  };
  struct Triangle;
  struct Query;

  void bind(std::uint32_t shape, std::uint32_t material, std::vector<scene::Surface>& surfaces);
  void run(const Query& query, std::vector<NodeValue>& out) const;
  [[nodiscard]] NodeValue runTexture(const Query& query, std::size_t node,
                                     const std::vector<NodeValue>& values) const;
  [[nodiscard]] tarn::Vec3f bend(const Query& query, const tarn::Vec4f& mapped,
                                 const tarn::Vec3f& normal) const;
  [[nodiscard]] Triangle triangleOf(const scene::SurfaceHit& hit) const;

  const scene::MeshList& meshes_;
  const scene::SceneMaterials& sources_;
  const std::vector<scene::Surface>& surfaces_;
  std::vector<Material> materials_;                       // index by index of the sources
  std::unordered_map<std::uint64_t, Primvars> primvars_;  // by shape and material
  TextureSet textures_;
  bool hasAny_ = false, maySeeThrough_ = false;
};

}  // namespace vela::picture::detail
