#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Engine.h"
#include "Failure.h"
#include "Json.h"
#include "Options.h"
#include "Scene.h"
#include "Shading.h"
#include "Text.h"
#include "View.h"

namespace command {

namespace {

using tarn::Ray;
using tarn::Vec3;

std::string toText(const Vec3<float>& v) {
  return command::toText(v.x) + " " + command::toText(v.y) + " " + command::toText(v.z);
}

}  // namespace

void pick(const PickOptions& options) {
  const SceneOptions& scene = options.scene;
  const std::shared_ptr<ovo::Stage> stage = openStage("pick", scene.file);
  const MeshList list = listMeshes(*stage, scene.filter());
  reportNotShown("pick", list);
  const Extent extent = extentOf(list);
  const tarn::Box3<double>& bounds = extent.box;
  const Vec3<double> middle = bounds.isEmpty() ? Vec3<double>() : bounds.center();
  const std::unique_ptr<Engine> engine = makeEngine(scene.engine, list, scene.time, middle);

  // The ray: as it is given, or that of the pixel's centre.
  std::vector<Ray<float>> rays(1);
  if (options.byRay) {
    const double* r = options.ray;
    rays[0].origin = Vec3<float>(Vec3<double>(r[0], r[1], r[2]) - engine->origin());
    rays[0].direction = Vec3<float>(Vec3<double>(r[3], r[4], r[5]));
    rays[0].minDistance = 0.0f;
    rays[0].maxDistance = std::numeric_limits<float>::max();
  } else {
    const View view = makeView(*stage, scene.view(), extent);
    if (options.pixelX >= view.width || options.pixelY >= view.height)
      throw Failure{kUsage, "wrong usage", "--pixel",
                    "lies outside the picture of " + std::to_string(view.width) + " x " +
                        std::to_string(view.height) + " pixels",
                    "try a larger --size"};
    const tarn::Vec2<float> place = view.ndc(options.pixelX + 0.5, options.pixelY + 0.5);
    RayMaker(view, engine->origin()).make(&place, 1, rays);
  }

  SurfaceHit hit;
  engine->intersect(rays.data(), 1, &hit);
  PickReport report;
  report.hit = hit.hit;
  if (hit.hit) {
    report.path = nameOf(list, hit.entry);
    report.entry = hit.entry;
    report.face = list.shapeOf(hit.entry).sceneFace(hit.face);
    report.distance = static_cast<float>(hit.distance);
    report.position = Vec3<float>(Vec3<double>(hit.position) + engine->origin());
    report.normal = list.shapeOf(hit.entry).leftHanded ? -hit.normal : hit.normal;
    if (scene.smooth) {
      tarn::Mat4<double> worldFromEngine;
      worldFromEngine.translate(engine->origin().x, engine->origin().y, engine->origin().z);
      const tarn::Mat4<double> objectFromEngine =
          list.entries[hit.entry].worldFromObject.inverse() * worldFromEngine;
      report.normal =
          normalAt(Surface(list.shapeOf(hit.entry), scene.time, true), objectFromEngine,
                   Vec3<float>(objectFromEngine.transformPoint(Vec3<double>(hit.position))), hit);
    }
  }

  if (options.json) {
    std::fputs(toJson(report).c_str(), stdout);
  } else if (!report.hit) {
    std::puts("nothing there");
  } else {
    std::printf(
        "prim      %s\nentry     %u\nface      %d\ndistance  %s\nposition  %s\nnormal    %s\n",
        report.path.c_str(), report.entry, report.face, command::toText(report.distance).c_str(),
        toText(report.position).c_str(), toText(report.normal).c_str());
  }
}

}  // namespace command
