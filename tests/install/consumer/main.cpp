// A caller of the installed library: makes a scene, casts a ray at it, prints what was hit.
#include <vela/vela.h>

#include <cstdio>

int main() {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  ovo::MeshPrim mesh = ovo::MeshPrim::define(stage, ovo::Path("/quad"));
  mesh.setPoints({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, tarn::defaultTimeValue());
  mesh.createFaceVertexCountsAttr().set(ovo::Array<int>{4}, tarn::defaultTimeValue());
  mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3}, tarn::defaultTimeValue());

  const vela::HitDetectModel model(stage, tarn::defaultTimeValue());
  const vela::HitDetector detector(model);
  vela::CollisionResult result;
  if (!detector.intersect(vela::IntersectionContext(), tarn::Ray3f({0.25f, 0.5f, 3}, {0, 0, -1}),
                          result))
    return 1;
  std::printf("vela %s hit at distance %g\n", vela::version(),
              static_cast<double>(result.distance));
  return 0;
}
