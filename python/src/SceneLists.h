/// \file
/// Lists of a scene's meshes as Python holds them: shared, with the stage that they come from.
#pragma once

#include <memory>

#include "Calls.h"
#include "vela/scene/SceneMeshes.h"

namespace vela::python {

struct MeshListRef {
  std::shared_ptr<const scene::MeshList> list;
  std::shared_ptr<ovo::Stage> stage;
  double time;
};

}  // namespace vela::python
