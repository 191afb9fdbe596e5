#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "Interrupt.h"
#include "Json.h"
#include "Messages.h"
#include "Options.h"
#include "Scene.h"
#include "Text.h"
#include "vela/scene/ExplainRay.h"

namespace command {

namespace {

using vela::scene::HiddenBy;
using vela::scene::RayExplanation;
using vela::scene::RayItem;
using vela::scene::RayOutcome;
using vela::scene::RayVerdict;

// What hides a mesh, in words.
std::string hiddenText(const RayItem& item) {
  switch (item.hiddenBy) {
    case HiddenBy::exclude: return "left out by --exclude";
    case HiddenBy::mask: return "left out by --mask";
    case HiddenBy::type: return "left out by --include-type, its type is " + item.type;
    case HiddenBy::visibility: return "hidden by the scene, see --invisible";
    case HiddenBy::purpose: return "left out by --purpose, its purpose is " + item.purpose;
    default: return "";
  }
}

std::string outcomeText(const RayItem& item, const RayOutcome& outcome) {
  const bool isHidden = item.hiddenBy != HiddenBy::nothing;
  const std::string hit = " at " + toText(static_cast<float>(outcome.distance)) + ", face " +
                          std::to_string(outcome.face);
  switch (outcome.verdict) {
    case RayVerdict::shows: return (isHidden ? "would be met" : "shows") + hit;
    case RayVerdict::behind: return "met" + hit + ", behind something nearer";
    case RayVerdict::clipped: return "met" + hit + ", outside the ray's range";
    case RayVerdict::missed: return "missed: its box is entered, no face is met";
    case RayVerdict::culled: return "culled: its box is not entered";
    case RayVerdict::degenerate: return "degenerate: no face has an area";
    default: return "not taken: it takes plain meshes alone";
  }
}

void print(const RayExplanation& why, const vela::scene::WorldRay& ray) {
  const auto text = [](const tarn::Vec3d& v) {
    return toText(static_cast<float>(v.x)) + " " + toText(static_cast<float>(v.y)) + " " +
           toText(static_cast<float>(v.z));
  };
  std::printf("ray from %s towards %s\n", text(ray.base + ray.offset).c_str(),
              text(tarn::Vec3d(ray.direction)).c_str());
  for (const RayItem& item : why.items) {
    std::printf("\n%s (%s)\n", item.name.c_str(), item.type.c_str());
    if (item.hiddenBy != HiddenBy::nothing) std::printf("  %s\n", hiddenText(item).c_str());
    std::printf("  tracer        %s\n  hit detector  %s\n", outcomeText(item, item.tracer).c_str(),
                outcomeText(item, item.detector).c_str());
  }
  for (const std::string& path : why.withoutFaces)
    std::printf("\n%s\n  has a shape but no faces, and no ray meets it\n", path.c_str());
  if (why.culled > 0)
    std::printf("\n%zu more: the ray does not enter their boxes; --all lists them\n", why.culled);
}

}  // namespace

ExitCode explain(const ExplainOptions& options) {
  const SceneOptions& scene = options.pick.scene;
  const std::shared_ptr<ovo::Stage> stage = openStage("explain", scene.file, scene.variants);
  const vela::scene::MeshList list = listMeshes(*stage, scene);
  const vela::scene::WorldRay ray = rayOf(*stage, options.pick, findExtent(list));
  const std::optional<RayExplanation> why =
      vela::scene::explainRay(*stage, scene.filter(), ray, options.withCulled, interruptibleWork());
  throwIfInterrupted();
  if (!why)
    throw failure(Message::tooManyInstances,
                  {"/", "together with what the options hide they are more than fit"});
  if (options.pick.json)
    std::fputs(toJson(*why, ray).c_str(), stdout);
  else
    print(*why, ray);
  return kDone;
}

}  // namespace command
