#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Json.h"
#include "Messages.h"
#include "Options.h"
#include "Scene.h"
#include "Text.h"
#include "vela/scene/MaterialBinding.h"

namespace command {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;
using vela::scene::MeshList;
using vela::scene::RayCaster;
using vela::scene::Surface;
using vela::scene::SurfaceHit;
using vela::scene::View;
using vela::scene::WorldRay;

std::string toText(const Vec3f& v) {
  return command::toText(v.x) + " " + command::toText(v.y) + " " + command::toText(v.z);
}

// The material bound to the face that was met: that of the last subset with the face, else the
// prim's own.
ovo::Prim materialAt(const ovo::Stage& stage, const SceneOptions& options, const MeshList& list,
                     const SurfaceHit& hit) {
  vela::scene::MaterialFinder finder(stage, options.materialPurpose);
  const vela::scene::Shape& shape = list.shapeOf(hit.entry);
  const ovo::Prim& prim = list.entries[hit.entry].prim;
  ovo::Prim bound = prim;
  if (shape.prim.isValid())
    for (const vela::scene::MaterialSubset& subset :
         vela::scene::materialSubsets(prim, options.time))
      if (std::find(subset.faces.cbegin(), subset.faces.cend(), shape.sceneFace(hit.face)) !=
          subset.faces.cend())
        bound = subset.prim;
  return finder.find(bound).material;
}

}  // namespace

WorldRay rayOf(const ovo::Stage& stage, const PickOptions& options,
               const vela::scene::Extent& extent) {
  WorldRay ray;
  if (options.byRay) {
    const double* r = options.ray;
    ray.base = {r[0], r[1], r[2]};
    ray.direction = Vec3f(Vec3d(r[3], r[4], r[5]));
    return ray;
  }
  const View view = makeView(stage, options.scene, extent);
  if (options.pixelX >= view.width || options.pixelY >= view.height)
    throw failure(Message::pixelOutside,
                  {"--pixel", std::to_string(view.width), std::to_string(view.height)});
  const tarn::Vec2f place = view.ndc(options.pixelX + 0.5, options.pixelY + 0.5);
  view.makeRays(&place, 1, &ray);
  return ray;
}

PickReport reportOf(const ovo::Stage& stage, const SceneOptions& scene, const MeshList& list,
                    const RayCaster& caster, const WorldRay& ray) {
  SurfaceHit hit;
  caster.intersect(&ray, 1, &hit);
  PickReport report;
  report.hit = hit.hit;
  if (hit.hit) {
    report.path = nameOf(list, hit.entry);
    report.material = materialAt(stage, scene, list, hit).getPath().asString();
    report.entry = hit.entry;
    report.face = list.shapeOf(hit.entry).sceneFace(hit.face);
    report.distance = static_cast<float>(hit.distance);
    report.position = Vec3f(hit.position());
    report.normal = list.shapeOf(hit.entry).leftHanded ? -hit.normal : hit.normal;
    if (scene.smooth) {
      const vela::scene::ObjectSpace space = caster.objectSpace(hit.entry);
      report.normal = shadingNormal(Surface(list.shapeOf(hit.entry), scene.time, true), space,
                                    space.surfacePoint(hit), hit);
    }
  }
  return report;
}

ExitCode pick(const PickOptions& options) {
  const SceneOptions& scene = options.scene;
  const std::shared_ptr<ovo::Stage> stage = openStage("pick", scene.file, scene.variants);
  const MeshList list = listMeshes(*stage, scene);
  const vela::scene::Extent extent = findExtent(list);
  const RayCaster caster = makeCaster(scene, list, extent);

  const WorldRay ray = rayOf(*stage, options, extent);
  const PickReport report = reportOf(*stage, scene, list, caster, ray);

  if (options.json) {
    std::fputs(toJson(report).c_str(), stdout);
  } else if (!report.hit) {
    std::puts("nothing there");
  } else {
    std::printf(
        "prim      %s\nentry     %u\nface      %d\ndistance  %s\nposition  %s\nnormal    %s\n",
        report.path.c_str(), report.entry, report.face, command::toText(report.distance).c_str(),
        toText(report.position).c_str(), toText(report.normal).c_str());
    if (!report.material.empty()) std::printf("material  %s\n", report.material.c_str());
  }
  return report.hit ? kDone : kNotFound;
}

}  // namespace command
