#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Scene.h"
#include "Text.h"
#include "ovo/CameraPrim.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Stage.h"
#include "tarn/Constants.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

constexpr double kDegrees = tarn::kDegreesPerRadian<double>;

InfoReport::CameraFacts factsOf(const ovo::CameraPrim& prim, double time, double metersPerUnit) {
  const ovo::CameraParameters from = prim.getParameters(time);
  const double millimetres = 1000.0 * metersPerUnit;
  const auto view = [&](double aperture) {
    return from.perspective ? 2.0 * std::atan(aperture / (2.0 * from.focalLength)) * kDegrees
                            : aperture;
  };
  InfoReport::CameraFacts facts;
  facts.path = prim.getPath().asString();
  facts.perspective = from.perspective;
  facts.focalLength = from.focalLength * millimetres;
  facts.horizontalAperture = from.horizontalAperture * millimetres;
  facts.verticalAperture = from.verticalAperture * millimetres;
  facts.horizontalOffset = from.horizontalApertureOffset * millimetres;
  facts.verticalOffset = from.verticalApertureOffset * millimetres;
  facts.horizontalView = view(from.horizontalAperture);
  facts.verticalView = view(from.verticalAperture);
  facts.clippingNear = from.clippingNear;
  facts.clippingFar = from.clippingFar;
  facts.focusDistance = from.focusDistance;
  facts.fStop = from.fStop;
  facts.shutterOpen = from.shutterOpen;
  facts.shutterClose = from.shutterClose;
  return facts;
}

InfoReport::MeshFacts factsOf(const ovo::MeshPrim& prim, double time) {
  InfoReport::MeshFacts facts;
  ovo::Array<tarn::Vec3f> points;
  ovo::Array<int> counts, indices;
  bool reverseWinding = false;
  prim.getPoints(points, time);
  prim.getFaceTopology(counts, indices, reverseWinding, time);
  facts.path = prim.getPath().asString();
  facts.points = points.size();
  facts.faces = counts.size();
  for (auto count = counts.cbegin(); count != counts.cend(); ++count)
    if (*count > 2) facts.triangles += static_cast<std::size_t>(*count) - 2;
  facts.subdivision = prim.getSubdivisionScheme().asString();
  facts.purpose = prim.purpose().asString();
  facts.visible = prim.isVisible(time);
  return facts;
}

// The materials that prims are bound to, those of equal sources as one.
class MaterialCounts {
 public:
  explicit MaterialCounts(const ovo::Stage& stage) : finder_(stage) {}

  void add(const ovo::Prim& prim, double time, std::vector<InfoReport::MaterialFacts>& facts) {
    addOne(finder_.find(prim).material, time, facts);
    if (ovo::MeshPrim(prim).isValid())
      for (const vela::scene::MaterialSubset& subset : vela::scene::materialSubsets(prim, time))
        addOne(finder_.find(subset.prim).material, time, facts);
  }

 private:
  static InfoReport::MaterialFacts factsOf(const ovo::Prim& material, double time) {
    const vela::look::PreviewMaterial read = vela::look::readPreviewMaterial(material, time);
    InfoReport::MaterialFacts facts;
    facts.path = material.getPath().asString();
    facts.isShown = read.isShown;
    for (const vela::look::NetworkNode& node : read.nodes)
      if (node.kind == vela::look::NetworkNode::Kind::texture)
        facts.textures.push_back({node.file.written, isThere(material, node.file)});
    return facts;
  }

  // Of a name that stands for tiles one is enough.
  static bool isThere(const ovo::Prim& material, const ovo::FileReference& file) {
    const std::string mark = "<UDIM>";
    const std::size_t at = file.anchored.find(mark);
    if (at == std::string::npos) return !file.resolved.empty();
    for (int tile = 1001; tile <= 1100; ++tile) {
      std::string name = file.anchored;
      name.replace(at, mark.size(), std::to_string(tile));
      if (!ovo::PropertyLinks(material).resolveFile(name).empty()) return true;
    }
    return false;
  }

  void addOne(const ovo::Prim& material, double time,
              std::vector<InfoReport::MaterialFacts>& facts) {
    if (!material.isValid()) return;
    const auto [path, isNewPath] = byPath_.try_emplace(material.getPath(), facts.size());
    if (isNewPath) {
      const auto [source, isNew] =
          bySource_.try_emplace(ovo::PropertyLinks(material).sourceKey(), facts.size());
      if (isNew) facts.push_back(factsOf(material, time));
      path->second = source->second;
    }
    ++facts[path->second].prims;
  }

  vela::scene::MaterialFinder finder_;
  std::unordered_map<ovo::Path, std::size_t> byPath_;
  std::unordered_map<std::string, std::size_t> bySource_;
};

// Prims of these types have a surface.
bool hasSurface(const std::string& type) {
  static const std::set<std::string> types = {
      "Mesh",        "Cube",          "Sphere",     "Cylinder",  "Cylinder_1",
      "Cone",        "Capsule",       "Plane",      "Capsule_1", "BasisCurves",
      "NurbsCurves", "HermiteCurves", "NurbsPatch", "TetMesh",   "Points"};
  return types.count(type) > 0;
}

InfoReport gather(const ovo::Stage& stage, const InfoOptions& options) {
  InfoReport report;
  report.file = options.file;
  report.upAxis = stage.getUpAxis().asString();
  report.metersPerUnit = stage.getMetersPerUnit();
  report.timeCodesPerSecond = stage.getTimeCodesPerSecond();
  report.framesPerSecond = stage.getFramesPerSecond();
  report.hasTimeRange = stage.hasTimeCodeRange();
  report.startTimeCode = stage.getStartTimeCode();
  report.endTimeCode = stage.getEndTimeCode();
  report.defaultPrim = stage.getDefaultPrimName().asString();

  MaterialCounts materials(stage);
  vela::scene::forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        if (prim == stage.getRootPrim()) return true;
        const std::string type = prim.getTypeName().asString();
        ++report.primsByType[type.empty() ? "(none)" : type];
        if (const ovo::MeshPrim mesh(prim); mesh.isValid())
          report.meshes.push_back(factsOf(mesh, options.time));
        if (hasSurface(type)) materials.add(prim, options.time, report.materials);
        if (const ovo::CameraPrim camera(prim); camera.isValid())
          report.cameras.push_back(factsOf(camera, options.time, report.metersPerUnit));
        return true;
      },
      interruptibleWork());
  throwIfInterrupted();
  report.problems = stage.problems();
  return report;
}

void print(const InfoReport& report) {
  const auto text = [](double value) { return toText(static_cast<float>(value)); };
  std::printf("%s\n  up axis %s, %s metres a unit, %s time codes a second", report.file.c_str(),
              report.upAxis.c_str(), text(report.metersPerUnit).c_str(),
              text(report.timeCodesPerSecond).c_str());
  if (report.hasTimeRange)
    std::printf(", time codes %s to %s", text(report.startTimeCode).c_str(),
                text(report.endTimeCode).c_str());
  std::printf("\n");
  if (!report.defaultPrim.empty()) std::printf("  default prim %s\n", report.defaultPrim.c_str());

  std::printf("\nPrims by type\n");
  for (const auto& [type, count] : report.primsByType)
    std::printf("  %8zu  %s\n", count, type.c_str());

  // Long lists would scroll the rest away; JSON has them whole.
  constexpr std::size_t kMostMeshes = 40;
  std::size_t points = 0, faces = 0, triangles = 0;
  for (const InfoReport::MeshFacts& mesh : report.meshes) {
    points += mesh.points;
    faces += mesh.faces;
    triangles += mesh.triangles;
  }
  std::printf("\nMeshes: %zu, with %zu points, %zu faces, %zu triangles\n", report.meshes.size(),
              points, faces, triangles);
  if (!report.meshes.empty()) std::printf("    points     faces  triangles\n");
  for (std::size_t i = 0; i < std::min(report.meshes.size(), kMostMeshes); ++i) {
    const InfoReport::MeshFacts& mesh = report.meshes[i];
    std::printf("  %8zu  %8zu   %8zu  %s%s%s%s\n", mesh.points, mesh.faces, mesh.triangles,
                mesh.path.c_str(),
                mesh.subdivision == "none" ? "" : (" (" + mesh.subdivision + ")").c_str(),
                mesh.purpose == "default" ? "" : (" (" + mesh.purpose + ")").c_str(),
                mesh.visible ? "" : " (invisible)");
  }
  if (report.meshes.size() > kMostMeshes)
    std::printf("  ... and %zu more: --json lists all\n", report.meshes.size() - kMostMeshes);

  if (!report.materials.empty()) {
    std::printf("\nMaterials: %zu\n", report.materials.size());
    for (std::size_t i = 0; i < std::min(report.materials.size(), kMostMeshes); ++i) {
      const InfoReport::MaterialFacts& material = report.materials[i];
      std::printf("  %8zu  %s%s\n", material.prims, material.path.c_str(),
                  material.isShown ? "" : " (no preview surface)");
      for (const InfoReport::MaterialFacts::Texture& texture : material.textures)
        std::printf("            %s%s\n", texture.file.c_str(), texture.found ? "" : " (missing)");
    }
    if (report.materials.size() > kMostMeshes)
      std::printf("  ... and %zu more: --json lists all\n", report.materials.size() - kMostMeshes);
  }

  std::printf("\nCameras: %zu\n", report.cameras.size());
  for (const InfoReport::CameraFacts& camera : report.cameras) {
    std::printf("  %s\n", camera.path.c_str());
    if (camera.perspective)
      std::printf(
          "    perspective, field of view %.4g x %.4g degrees, focal length %.6g mm, film %.6g x "
          "%.6g mm\n",
          camera.horizontalView, camera.verticalView, camera.focalLength, camera.horizontalAperture,
          camera.verticalAperture);
    else
      std::printf("    orthographic, window %.6g x %.6g units\n", camera.horizontalView,
                  camera.verticalView);
    std::printf("    clipping %.6g to %.6g units, focus at %.6g units, f-stop %.4g\n",
                camera.clippingNear, camera.clippingFar, camera.focusDistance, camera.fStop);
  }
}

}  // namespace

ExitCode info(const InfoOptions& options) {
  const std::shared_ptr<ovo::Stage> stage = openStage("info", options.file);
  const InfoReport report = gather(*stage, options);
  if (options.json)
    std::fputs(toJson(report).c_str(), stdout);
  else
    print(report);
  return kDone;
}

}  // namespace command
