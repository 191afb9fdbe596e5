#include "vela/scene/LeftOut.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "ovo/CameraPrim.h"
#include "ovo/MeshPrim.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Tokens.h"
#include "vela/look/LightSource.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/SceneLights.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

using Keys = std::vector<std::string>;

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What a prim has of each kind, by a key that tells it from others of the kind.

// Lights of kinds that are not shown, those among the prototypes of instancers, and geometry that
// the scene makes shine.
Keys lights(const ovo::Prim& prim, double) {
  bool isLeftOut = isLight(prim) && !isShownLight(prim);
  if (!isLight(prim))
    for (const ovo::Token& schema : ovo::PropertyLinks(prim).appliedSchemas())
      isLeftOut = isLeftOut || schema == "LightAPI" || schema == "MeshLightAPI";
  return isLeftOut ? Keys{prim.getPath().asString()} : Keys();
}

Keys profiles(const ovo::Prim& prim, double time) {
  return isShownLight(prim) && look::hasLightProfile(prim, time) ? Keys{prim.getPath().asString()}
                                                                 : Keys();
}

Keys materials(const ovo::Prim& prim, double) {
  Keys keys;
  std::vector<ovo::Path> targets;
  prim.getRelationshipTargets(ovo::Token("material:binding"), targets);
  for (const ovo::Path& target : targets) keys.push_back(target.asString());
  return keys;
}

bool isNoPreviewMaterial(const ovo::Stage& stage, const std::string& path, double time) {
  return !look::readPreviewMaterial(stage.getPrimAtPath(path), time).isShown;
}

Keys opacities(const ovo::Prim& prim, double time) {
  const ovo::Primvar opacity = prim.getPrimvar(ovo::Token("displayOpacity"));
  ovo::Array<float> values;
  if (!opacity.isValid() || !opacity.computeFlattened(values, time)) return {};
  const auto view = values.view();
  const bool isOpaque = std::all_of(view.begin(), view.end(), [](float v) { return v >= 1.0f; });
  return isOpaque ? Keys() : Keys{prim.getPath().asString()};
}

Keys drawModes(const ovo::Prim& prim, double time) {
  ovo::Token mode;
  if (!prim.getAttr(ovo::Token("model:drawMode")).get(mode, time)) return {};
  const std::string& word = mode.asString();
  return word == "origin" || word == "bounds" || word == "cards" ? Keys{prim.getPath().asString()}
                                                                 : Keys();
}

// Curves and points that the scene has turned towards somewhere: pictures have them round.

Keys withNormals(const ovo::Prim& prim, const ovo::Token& type, double time) {
  if (prim.getTypeName() != type) return {};
  const ovo::Primvar normals = prim.getPrimvar(ovo::tokens().normals);
  ovo::Array<tarn::Vec3f> values;
  const bool hasAny =
      normals.isValid() && normals.computeFlattened(values, time) && !values.empty();
  return hasAny ? Keys{prim.getPath().asString()} : Keys();
}
Keys ribbons(const ovo::Prim& prim, double time) {
  return withNormals(prim, ovo::tokens().BasisCurves, time);
}
Keys disks(const ovo::Prim& prim, double time) {
  return withNormals(prim, ovo::tokens().Points, time);
}

// Parts of curves and points that have a material of their own: they show that of the whole.
Keys subsetsOfCurves(const ovo::Prim& prim, double time) {
  if (prim.getTypeName() != "GeomSubset" || !isCurvesType(prim.parent().getTypeName())) return {};
  ovo::Token family;
  prim.getAttr(ovo::Token("familyName")).get(family, time);
  const bool isBound = !ovo::PropertyLinks(prim).propertyNames("material:binding").empty();
  return family == "materialBind" && isBound ? Keys{prim.getPath().asString()} : Keys();
}

// What the picture's camera is set to.

bool hasDepthOfField(const ovo::CameraParameters& camera) {
  return camera.perspective && camera.fStop > 0.0;
}
bool hasClippingPlanes(const ovo::CameraParameters& camera) {
  return !camera.clippingPlanes.empty();
}

bool hasOpenShutter(const ovo::CameraParameters& camera) {
  return camera.shutterOpen < camera.shutterClose;
}

// Settings of a picture that ask for more than its frame.
Keys overscans(const ovo::Prim& prim, double time) {
  const std::string& type = prim.getTypeName().asString();
  if (type != "RenderSettings" && type != "RenderProduct") return {};
  tarn::Vec4f window;
  if (!prim.getAttr(ovo::Token("dataWindowNDC")).get(window, time)) return {};
  const bool isLarger = window.x < 0.0f || window.y < 0.0f || window.z > 1.0f || window.w > 1.0f;
  return isLarger ? Keys{prim.getPath().asString()} : Keys();
}

struct Row {
  LeftOutKind kind;
  Keys (*ofPrim)(const ovo::Prim& prim, double time) = nullptr;
  bool (*ofCamera)(const ovo::CameraParameters& camera) = nullptr;
  // Whether what a key stands for is left out; null: always.
  bool (*isLeftOut)(const ovo::Stage& stage, const std::string& key, double time) = nullptr;
  // The option that shows it; null: none does.
  bool ShownOptions::*option = nullptr;
  // Nothing moves in a picture of no time.
  bool needsTime = false;
};

// A row is deleted when pictures show the thing.
constexpr Row kRows[] = {
    {{"light", "lights", LeftOutConcern::look}, lights},
    {{"light profile", "light profiles", LeftOutConcern::look}, profiles},
    {{"material", "materials", LeftOutConcern::look}, materials, nullptr, isNoPreviewMaterial},
    {{"prim with opacity", "prims with opacity", LeftOutConcern::look}, opacities},
    {{"draw mode", "draw modes", LeftOutConcern::shape}, drawModes},
    {{"ribbon shown as a tube", "ribbons shown as tubes", LeftOutConcern::shape}, ribbons},
    {{"set of disks shown as balls", "sets of disks shown as balls", LeftOutConcern::shape}, disks},
    {{"material of a part of curves", "materials of parts of curves", LeftOutConcern::look},
     subsetsOfCurves},
    {{"depth of field", "depth of field", LeftOutConcern::camera},
     nullptr,
     hasDepthOfField,
     nullptr,
     &ShownOptions::depthOfField},
    {{"clipping planes", "clipping planes", LeftOutConcern::camera},
     nullptr,
     hasClippingPlanes,
     nullptr,
     &ShownOptions::clipping},
    {{"motion blur", "motion blur", LeftOutConcern::camera},
     nullptr,
     hasOpenShutter,
     nullptr,
     &ShownOptions::motion,
     true},
    {{"overscan", "overscans", LeftOutConcern::camera},
     overscans,
     nullptr,
     nullptr,
     &ShownOptions::overscan},
};

// Subdivision surfaces that show as their control meshes.
LeftOut controlMeshes(const MeshList& list) {
  LeftOut found;
  for (const Shape& shape : list.shapes) {
    if (shape.refinement || !shape.prim.isValid()) continue;
    const ovo::Token scheme = shape.prim.getSubdivisionScheme();
    if (scheme == ovo::tokens().none) continue;
    if (found.count++ == 0) found.first = shape.prim.getPath().asString();
  }
  found.what = found.count == 1 ? "subdivision surface shown as its control mesh"
                                : "subdivision surfaces shown as their control meshes";
  return found;
}

// Curves and points that are out, and those that got a width of their own making.
void addTubes(const MeshList& list, std::vector<LeftOut>& all) {
  LeftOut broken, thin;
  for (const Shape& shape : list.shapes) {
    if (!shape.tubes) continue;
    const std::string path = shape.prim.getPath().asString();
    if (shape.tubes->broken > 0 && broken.count == 0) broken.first = path;
    broken.count += shape.tubes->broken;
    if (!shape.tubes->hasWidths && !shape.points.empty() && thin.count++ == 0) thin.first = path;
  }
  broken.what = broken.count == 1 ? "curve or point that cannot be used"
                                  : "curves or points that cannot be used";
  thin.what = thin.count == 1 ? "set of curves or points without widths"
                              : "sets of curves or points without widths";
  if (broken.count > 0) all.push_back(broken);
  if (thin.count > 0) all.push_back(thin);
}

}  // namespace

bool isLight(const ovo::Prim& prim) {
  const std::string& type = prim.getTypeName().asString();
  return endsWith(type, "Light") || endsWith(type, "Light_1");
}

std::vector<LeftOutKind> leftOutKinds() {
  std::vector<LeftOutKind> kinds;
  for (const Row& row : kRows) kinds.push_back(row.kind);
  return kinds;
}

std::vector<LeftOut> findLeftOut(const ovo::Stage& stage, const MeshList& list,
                                 const MeshFilter& filter, const View* view, const Work& work) {
  return findLeftOut(stage, list, filter, view, ShownOptions(), work);
}

std::vector<LeftOut> findLeftOut(const ovo::Stage& stage, const MeshList& list,
                                 const MeshFilter& filter, const View* view,
                                 const ShownOptions& shown, const Work& work) {
  const auto isShown = [&](const Row& row) {
    return (row.option && shown.*row.option) || (row.needsTime && !std::isfinite(filter.time)) ||
           (row.kind.concern == LeftOutConcern::camera && !view);
  };
  std::vector<LeftOut> found(std::size(kRows));
  std::vector<std::set<std::string>> known(std::size(kRows));
  const auto isExcluded = [&](const ovo::Prim& prim) {
    return std::any_of(filter.excludedPaths.begin(), filter.excludedPaths.end(),
                       [&](const ovo::Path& path) { return prim.getPath().hasPrefix(path); });
  };
  forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        if (isExcluded(prim)) return false;
        for (std::size_t i = 0; i < std::size(kRows); ++i) {
          if (!kRows[i].ofPrim || isShown(kRows[i])) continue;
          for (std::string& key : kRows[i].ofPrim(prim, filter.time)) {
            if (!filter.withInvisible && !prim.isVisible(filter.time)) break;
            const auto [place, isNew] = known[i].insert(std::move(key));
            if (!isNew || (kRows[i].isLeftOut && !kRows[i].isLeftOut(stage, *place, filter.time)))
              continue;
            if (found[i].count++ == 0) found[i].first = *place;
          }
        }
        return true;
      },
      work);
  if (view && !view->camera.isEmpty()) {
    const ovo::CameraPrim camera(stage.getPrimAtPath(view->camera));
    const ovo::CameraParameters parameters = camera.getParameters(filter.time);
    for (std::size_t i = 0; i < std::size(kRows); ++i)
      if (kRows[i].ofCamera && !isShown(kRows[i]) && kRows[i].ofCamera(parameters)) {
        found[i].count = 1;
        found[i].first = view->camera.asString();
      }
  }

  std::vector<LeftOut> all;
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (found[i].count == 0) continue;
    const LeftOutKind& kind = kRows[i].kind;
    found[i].what = found[i].count == 1 ? kind.one : kind.many;
    found[i].concern = kind.concern;
    all.push_back(std::move(found[i]));
  }
  if (list.badInstances > 0)
    all.push_back({list.badInstances == 1 ? "instance without a prototype or a position"
                                          : "instances without a prototype or a position",
                   list.badInstances, "", LeftOutConcern::shape});
  // Of a refined list those that stayed unrefined stand with their reasons in MeshList::notRefined.
  if (LeftOut meshes = controlMeshes(list); meshes.count > 0 && filter.subdivisionLevel == 0)
    all.push_back(meshes);
  addTubes(list, all);
  for (const auto& [type, count] : list.notShown) all.push_back({type, count, "", {}});
  return all;
}

std::string textOf(const std::vector<LeftOut>& leftOut) {
  std::string text;
  for (const LeftOut& one : leftOut) {
    if (!text.empty()) text += ", ";
    // A camera's setting is there or not.
    if (one.concern != LeftOutConcern::camera) text += std::to_string(one.count) + " ";
    text += one.what;
  }
  return text;
}

}  // namespace vela::scene
