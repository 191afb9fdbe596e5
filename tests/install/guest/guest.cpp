// A plug-in of a host: opens a scene through the installed library and casts a ray at it.
#include <vela/vela.h>

#include <memory>
#include <string>
#include <vector>

// How many prims the scene has, and at which distance the ray hits; less than 0 when it failed.
extern "C" __attribute__((visibility("default"))) int guestLook(const char* file,
                                                                double* distance) {
  std::string why;
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open(file, &why);
  if (!stage) return -1;
  std::vector<ovo::Prim> prims;
  stage->findDescendentPrims({ovo::Path("/")}, prims);
  ovo::XformCache placements(tarn::defaultTimeValue());
  vela::SceneTracer tracer;
  for (const ovo::Prim& prim : prims) {
    const ovo::MeshPrim mesh(prim);
    if (mesh.isValid() && prim.isActive() && !prim.isAbstract() && prim.isVisible())
      tracer.addPlacement(tracer.addMesh(mesh), placements.getLocalToWorld(prim));
  }
  tracer.build();
  vela::TracerHit hit;
  if (!tracer.intersect(tarn::Ray<float>({0, 60, 200}, {0, -0.25f, -1}), hit)) return -2;
  *distance = static_cast<double>(hit.distance);
  return static_cast<int>(prims.size());
}
