#include "vela/scene/ScenePrims.h"

#include "ovo/Tokens.h"

namespace vela::scene {

bool forEachPrim(const ovo::Stage& stage, const std::function<bool(const ovo::Prim&)>& visit,
                 const Work& work) {
  std::vector<ovo::Prim> open{stage.getRootPrim()}, children;
  while (!open.empty()) {
    if (work.isStopped()) return false;
    const ovo::Prim prim = open.back();
    open.pop_back();
    if (!visit(prim)) continue;
    prim.getChildren(children, true, false, true);
    open.insert(open.end(), children.rbegin(), children.rend());
  }
  return true;
}

std::vector<ovo::CameraPrim> listCameras(const ovo::Stage& stage, const Work& work) {
  std::vector<ovo::CameraPrim> cameras;
  forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        const ovo::CameraPrim camera(prim);
        if (camera.isValid()) cameras.push_back(camera);
        return prim.getTypeName() != ovo::tokens().PointInstancer;
      },
      work);
  return cameras;
}

std::vector<ovo::CameraPrim> findCameras(const ovo::Stage& stage, const std::string& text,
                                         const Work& work) {
  // At its path a camera is found below an instancer too.
  if (const ovo::CameraPrim exact(stage.getPrimAtPath(ovo::Path(text))); exact.isValid())
    return {exact};
  std::vector<ovo::CameraPrim> named, found;
  for (const ovo::CameraPrim& camera : listCameras(stage, work)) {
    if (camera.getName().asString() == text) named.push_back(camera);
    if (!text.empty() && camera.getPath().asString().find(text) != std::string::npos)
      found.push_back(camera);
  }
  return named.empty() ? found : named;
}

}  // namespace vela::scene
