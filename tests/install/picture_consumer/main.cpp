// A caller of the installed picture library: makes a scene, renders it, writes it into memory.
#include <vela/picture/picture.h>
#include <vela/vela.h>

#include <cstdio>

int main() {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  ovo::MeshPrim mesh = ovo::MeshPrim::define(stage, ovo::Path("/quad"));
  mesh.setPoints({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, tarn::defaultTimeValue());
  mesh.createFaceVertexCountsAttr().set(ovo::Array<int>{4}, tarn::defaultTimeValue());
  mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3}, tarn::defaultTimeValue());

  vela::picture::RenderOptions options;
  options.view.width = 32;
  options.view.height = 18;
  options.samples = 4;
  options.layers = {"rgba", "depth"};
  std::string error;
  const auto picture = vela::picture::renderPicture(stage, options, 2, {}, &error);
  if (!picture) return std::printf("no picture: %s\n", error.c_str()), 1;
  if (!(picture->layer("alpha").floats(16, 9) == 1.0f)) return 1;

  std::vector<unsigned char> exr, png;
  if (!vela::picture::writeExr(*picture, exr) ||
      !vela::picture::writePng(picture->width, picture->height,
                               vela::picture::overBackdrop(*picture), png))
    return 1;
  std::printf("a picture of %d x %d pixels,", picture->width, picture->height);
  for (const vela::picture::Layer& layer : picture->layers) std::printf(" %s", layer.name.c_str());
  std::printf(",%s%s\n", exr[0] == 0x76 ? " OpenEXR" : "", png[1] == 'P' ? " and PNG" : "");
  return 0;
}
