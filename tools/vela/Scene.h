/// \file
/// Scenes for the verbs: what vela/scene finds, its reasons as the command's messages.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Json.h"
#include "Options.h"
#include "ovo/Stage.h"
#include "ovo/Variants.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"
#include "vela/scene/WorldRay.h"

namespace command {

/// Opens a scene. Why parts of it are missing is said on standard error, a line each.
/// \throws Failure when the file cannot be opened, or a variant is none of the scene's
[[nodiscard]] std::shared_ptr<ovo::Stage> openStage(
    const char* verb, const std::string& file,
    const std::vector<ovo::VariantChoice>& variants = {});

/// Why a scene cannot be opened, in words for the user.
/// \param why the reader's
[[nodiscard]] Failure cannotOpen(const std::string& file, const std::string& why);

/// The path of the camera that a text stands for, see findCameras. Empty for an empty text; what
/// stands for none comes back as it is, for makeView to complain about.
/// \throws Failure when it stands for several
[[nodiscard]] std::string cameraPath(const ovo::Stage& stage, const std::string& text);

/// The meshes that the options ask for. What cannot be shown is said on standard error.
/// \throws Failure when there are more instances, or faces to refine, than memory is likely to hold
[[nodiscard]] vela::scene::MeshList listMeshes(const ovo::Stage& stage,
                                               const SceneOptions& options);

/// \throws Interrupted
[[nodiscard]] vela::scene::Extent findExtent(const vela::scene::MeshList& list);

/// The view that the options ask for. A camera that is passed over is said on standard error.
/// \throws Failure when no camera has the name, or the camera or the lens cannot be used
[[nodiscard]] vela::scene::View makeView(const ovo::Stage& stage, const SceneOptions& options,
                                         const vela::scene::Extent& extent);

/// The ray that is asked about: as it is given, or that of the pixel's centre.
/// \throws Failure (usage) for a pixel outside the picture
[[nodiscard]] vela::scene::WorldRay rayOf(const ovo::Stage& stage, const PickOptions& options,
                                          const vela::scene::Extent& extent);

/// What a ray meets.
/// \param list the caster's
[[nodiscard]] PickReport reportOf(const ovo::Stage& stage, const SceneOptions& scene,
                                  const vela::scene::MeshList& list,
                                  const vela::scene::RayCaster& caster,
                                  const vela::scene::WorldRay& ray);

/// What answers rays, as the options ask for it. What it does not take is said on standard error.
[[nodiscard]] vela::scene::RayCaster makeCaster(const SceneOptions& options,
                                                const vela::scene::MeshList& list,
                                                const vela::scene::Extent& extent);

/// What the library is asked for. Which of it is tinted is the caller's.
[[nodiscard]] vela::picture::RenderOptions pictureOptions(const RenderOptions& options);

/// A picture that is ready to be rendered. What it does not show is said on standard error.
/// \param file the stage's, for messages
/// \throws Failure as the functions above
[[nodiscard]] std::unique_ptr<vela::picture::PictureRenderer> openPicture(
    const std::shared_ptr<ovo::Stage>& stage, const std::string& file,
    const vela::picture::RenderOptions& options);

}  // namespace command
