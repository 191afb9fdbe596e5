/// \file
/// All that the tiles of one picture share.
#pragma once

#include <vector>

#include "vela/picture/LayerChoice.h"
#include "vela/picture/detail/Mattes.h"
#include "vela/picture/detail/Shader.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"

namespace vela::picture::detail {

/// Read by all threads, changed by none.
struct RenderJob {
  const scene::MeshList& meshes;
  const scene::View& view;
  const scene::RayCaster& caster;
  const LayerChoice& layers;
  const scene::SceneMaterials* materials;  ///< null when nothing needs to know of them
  const Shader* light;                     ///< null when no layer needs light or colour
  const Shader* smooth;                    ///< null when the layer of normals has the faces' own
  int grid;                                ///< samples of a pixel are grid * grid
  int ambientGrid;       ///< rays into the open for each of them are ambientGrid * ambientGrid
  bool jittered;         ///< else the samples' points are regular
  int frame;             ///< a part of each pixel's seed
  const Mattes* mattes;  ///< null when there is no layer of a matte
  /// The view at each moment while the shutter is open; empty: all rays are of one time.
  const std::vector<const scene::View*>& moments;
};

}  // namespace vela::picture::detail
