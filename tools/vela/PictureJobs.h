/// \file
/// The pictures that one `vela render` makes: each frame, camera and step of a turntable.
#pragma once

#include <string>
#include <vector>

#include "Options.h"
#include "ovo/Stage.h"

namespace command {

/// What stands for a band's number in the names of --from-tiles.
inline constexpr const char* kTilePlace = "{tile}";

/// One picture.
struct PictureJob {
  RenderOptions options;  ///< with its own time, camera, turn and file names
  std::string label;      ///< `frame 7, camera /Rig/Left`; empty when it is the only one
};

/// Checks that several pictures have several names, as far as that is known without the scene.
/// \throws Failure (usage)
void checkJobNames(const RenderOptions& options);

/// Camera by camera, and of each frame by frame. In file names `{camera}` is the camera's name; its
/// path with `_` for `/` where another camera has the same name.
/// \throws Failure when the cameras are asked for and there are none
[[nodiscard]] std::vector<PictureJob> listJobs(const ovo::Stage& stage,
                                               const RenderOptions& options);

}  // namespace command
