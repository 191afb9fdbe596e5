/// \file
/// Which names the meshes of a scene have in mattes, and what covers a pixel.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "vela/picture/LayerChoice.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/SurfaceHit.h"

namespace vela::picture::detail {

/// What a matte tells apart.
enum class MatteKind { object, asset, material };
inline constexpr std::size_t kMatteKinds = 3;
inline constexpr MatteKind kAllMattes[kMatteKinds] = {MatteKind::object, MatteKind::asset,
                                                      MatteKind::material};
/// Ranks that pictures have, two for each layer of a matte.
inline constexpr std::size_t kMatteRanks = 6;

/// `crypto_object`, `crypto_asset` or `crypto_material`.
[[nodiscard]] const char* matteName(MatteKind kind);
/// As LayerInfo::help.
[[nodiscard]] const char* matteHelp(MatteKind kind);

/// True when any layer of a matte is chosen.
[[nodiscard]] bool hasMatte(const LayerChoice& layers, MatteKind kind);

/// The ids of all that a picture may show, for the mattes that it has.
///
/// Threads: const calls may run from any number of threads at once.
class Mattes {
 public:
  /// \param meshes    must outlive the object
  /// \param materials must too; null when the picture has no matte of materials
  /// \param layers    for which of the mattes ids are made
  /// \param problems  gets a note for each matte in which different names have the same id
  Mattes(const scene::MeshList& meshes, const scene::SceneMaterials* materials,
         const LayerChoice& layers, std::vector<scene::Problem>& problems);

  [[nodiscard]] bool has(MatteKind kind) const { return has_[at(kind)]; }
  /// The id of what a ray met; 0 where it has no material. Only for a matte that the picture has.
  [[nodiscard]] std::uint32_t idOf(MatteKind kind, const scene::SurfaceHit& hit) const;

  /// The names behind ids, each once, in the order of the scene.
  /// \param shown sorted
  [[nodiscard]] std::vector<std::pair<std::string, std::uint32_t>> namesOf(
      MatteKind kind, const std::vector<std::uint32_t>& shown) const;

 private:
  static std::size_t at(MatteKind kind) { return static_cast<std::size_t>(kind); }
  // By the index of an entry, of materials by that of the material.
  [[nodiscard]] std::size_t countOf(MatteKind kind) const;
  [[nodiscard]] std::string nameOf(MatteKind kind, std::size_t index) const;
  void makeIds(MatteKind kind, std::vector<scene::Problem>& problems);

  const scene::MeshList& meshes_;
  const scene::SceneMaterials* materials_;
  std::array<bool, kMatteKinds> has_ = {};
  std::array<std::vector<std::uint32_t>, kMatteKinds> ids_;
};

/// The names that cover a pixel, by the shares of its samples.
class PixelCoverage {
 public:
  struct Rank {
    std::uint32_t id = 0;  ///< 0: nothing
    float share = 0.0f;    ///< of the pixel's samples
  };

  /// Counts the samples of a pixel. Greatest share first; equal ones by their ids, so that the
  /// order does not hang on the samples'. What is beyond the last rank is left out.
  void count(const Mattes& mattes, const scene::SurfaceHit* hits, std::size_t samples);

  [[nodiscard]] const Rank& rank(MatteKind kind, std::size_t i) const {
    return ranks_[static_cast<std::size_t>(kind)][i];
  }

 private:
  void countMatte(MatteKind kind, const Mattes& mattes, const scene::SurfaceHit* hits,
                  std::size_t samples);

  std::array<std::array<Rank, kMatteRanks>, kMatteKinds> ranks_;
  std::vector<std::uint32_t> ids_;                               // of the samples that met anything
  std::vector<std::pair<std::size_t, std::uint32_t>> coverers_;  // samples and id
};

}  // namespace vela::picture::detail
