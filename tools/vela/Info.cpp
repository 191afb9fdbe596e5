#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Interrupt.h"
#include "Json.h"
#include "Notices.h"
#include "Options.h"
#include "Scene.h"
#include "SceneFiles.h"
#include "SeveralFiles.h"
#include "Text.h"
#include "ovo/CameraPrim.h"
#include "ovo/LayerUses.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Stage.h"
#include "tarn/Constants.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/MaterialBinding.h"
#include "vela/scene/ScenePrims.h"
#include "vela/scene/SceneSummary.h"

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

InfoReport::CurveFacts curveFactsOf(const ovo::Prim& prim, double time) {
  InfoReport::CurveFacts facts;
  ovo::Array<tarn::Vec3f> points;
  ovo::Array<int> counts;
  prim.getAttr(ovo::Token("points")).get(points, time);
  prim.getAttr(ovo::Token("curveVertexCounts")).get(counts, time);
  facts.path = prim.getPath().asString();
  facts.type = prim.getTypeName().asString();
  facts.points = points.size();
  facts.curves = facts.type == "Points" ? points.size() : counts.size();
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

InfoReport gather(const ovo::Stage& stage, const std::string& file, const InfoOptions& options) {
  InfoReport report;
  report.file = file;
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
        if (vela::scene::isCurvesType(prim.getTypeName()))
          report.curves.push_back(curveFactsOf(prim, options.time));
        if (hasSurface(type)) materials.add(prim, options.time, report.materials);
        if (const ovo::CameraPrim camera(prim); camera.isValid())
          report.cameras.push_back(factsOf(camera, options.time, report.metersPerUnit));
        return true;
      },
      interruptibleWork());
  throwIfInterrupted();
  auto summary = vela::scene::summarize(stage, {options.time, options.depth}, interruptibleWork());
  throwIfInterrupted();
  if (summary)
    report.summary = *std::move(summary);
  else
    say(Notice::warning, file +
                             ": it has more instances than memory is likely to hold: the tree "
                             "and its boxes are left out");
  report.layers = ovo::layerUses(stage);
  report.problems = stage.problems();
  return report;
}

std::string textOf(const tarn::Vec3d& v) {
  char text[128];
  std::snprintf(text, sizeof text, "%.6g %.6g %.6g", v.x, v.y, v.z);
  return text;
}

std::string textOf(const tarn::Box3d& box) { return textOf(box.min) + " to " + textOf(box.max); }

// Long lists would scroll the rest away; JSON has them whole.
template <class Items, class Print>
void printList(const char* title, const Items& items, const Print& printOne) {
  constexpr std::size_t kMost = 40;
  if (items.empty()) return;
  std::printf("\n%s: %zu\n", title, items.size());
  for (std::size_t i = 0; i < std::min(items.size(), kMost); ++i) printOne(items[i]);
  if (items.size() > kMost)
    std::printf("  ... and %zu more: --json lists all\n", items.size() - kMost);
}

void printSummary(const InfoReport& report) {
  using vela::scene::SceneSummary;
  const SceneSummary& summary = report.summary;
  printList("Tree", summary.tree, [](const SceneSummary::Node& node) {
    const std::string& path = node.path.asString();
    std::printf("  %*s%s%s%s", 2 * (node.depth - 1), "", path.c_str() + path.rfind('/') + 1,
                node.type.empty() ? "" : (" (" + node.type + ")").c_str(),
                node.isInstance ? " instance" : "");
    if (node.below > 0) std::printf(", %zu below", node.below);
    if (!node.box.isEmpty()) std::printf(", from %s", textOf(node.box).c_str());
    std::printf("\n");
  });
  printList("Variants", summary.variants, [](const SceneSummary::VariantSet& set) {
    std::printf("  %s:%s=%s of", set.prim.asString().c_str(), set.set.c_str(),
                set.selected.c_str());
    for (const std::string& name : set.variants) std::printf(" %s", name.c_str());
    std::printf("\n");
  });
  printList("Lights", summary.lights, [](const SceneSummary::Light& light) {
    std::printf("  %s (%s)%s\n", light.path.asString().c_str(), light.type.c_str(),
                light.visible ? "" : " (invisible)");
  });
  printList("Textures", summary.textures, [](const SceneSummary::Texture& texture) {
    std::printf("  %s%s\n", texture.file.c_str(), texture.resolved.empty() ? " (missing)" : "");
  });
  if (summary.instances > 0) std::printf("\nInstances: %zu prims\n", summary.instances);
  printList("Point instancers", summary.instancers, [](const SceneSummary::Instancer& instancer) {
    std::printf("  %8zu  %s\n", instancer.instances, instancer.path.asString().c_str());
  });
  printList("Layers", report.layers, [](const ovo::LayerUse& layer) {
    std::printf("  %s (%s%s%s)\n", layer.file.c_str(), layer.arc.c_str(),
                layer.from.empty() ? "" : " of ",
                layer.from.substr(layer.from.rfind('/') + 1).c_str());
  });
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

  if (const tarn::Box3d& box = report.summary.box; !box.isEmpty()) {
    const tarn::Box3d metres(box.min * report.metersPerUnit, box.max * report.metersPerUnit);
    std::printf("  from %s units\n  from %s metres\n", textOf(box).c_str(), textOf(metres).c_str());
  }
  printSummary(report);

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

  if (!report.curves.empty()) {
    std::size_t curves = 0, controls = 0;
    for (const InfoReport::CurveFacts& set : report.curves) {
      controls += set.points;
      curves += set.curves;
    }
    std::printf("\nCurves and points: %zu, with %zu curves and balls of %zu points\n",
                report.curves.size(), curves, controls);
    std::printf("    points    curves\n");
    for (std::size_t i = 0; i < std::min(report.curves.size(), kMostMeshes); ++i) {
      const InfoReport::CurveFacts& set = report.curves[i];
      std::printf("  %8zu  %8zu  %s (%s)%s%s\n", set.points, set.curves, set.path.c_str(),
                  set.type.c_str(),
                  set.purpose == "default" ? "" : (" (" + set.purpose + ")").c_str(),
                  set.visible ? "" : " (invisible)");
    }
    if (report.curves.size() > kMostMeshes)
      std::printf("  ... and %zu more: --json lists all\n", report.curves.size() - kMostMeshes);
  }

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
  std::vector<InfoReport> reports;
  std::vector<FilesReport> lists;
  Separator separator;
  const ExitCode code = forEachFile("info", options.files, [&](const std::string& file) {
    const std::shared_ptr<ovo::Stage> stage = openStage("info", file);
    if (options.filesAlone) {
      lists.push_back({file, filesOf(*stage)});
      if (!options.json)
        for (const std::string& read : lists.back().reads) std::puts(read.c_str());
      return;
    }
    InfoReport report = gather(*stage, file, options);
    if (options.json) {
      reports.push_back(std::move(report));
      return;
    }
    separator.print();
    print(report);
  });
  const auto printJson = [&](const auto& all) {
    std::fputs(options.files.size() > 1 ? toJson(all).c_str() : toJson(all.front()).c_str(),
               stdout);
  };
  if (options.json && options.filesAlone)
    printJson(lists);
  else if (options.json)
    printJson(reports);
  return code;
}

}  // namespace command
