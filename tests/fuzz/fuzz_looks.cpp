// Materials and textures. An input that begins like an image is read as one and looked up; any
// other is a scene text, whose materials are read.
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "ovo/Stage.h"
#include "vela/look/PreviewMaterial.h"
#include "vela/picture/detail/Texture.h"

namespace {

using namespace vela::picture::detail;
using namespace vela::look;
using vela_test::require;

constexpr std::size_t kMostBytes = std::size_t{1} << 24;

void readImage(std::string_view bytes) {
  std::string error;
  {
    const auto reader = ImageReader::open(bytes, kMostBytes, &error);
    require((reader == nullptr) == !error.empty(), "there is a reason exactly when there is none");
    if (!reader) return;
    const ImageInfo& info = reader->info();
    require(info.width > 0 && info.height > 0 && info.channels >= 1 && info.channels <= 4,
            "an image has a size");
    if (info.bytesOfRow() > kMostBytes || Texture::bytesFor(info, 0) > kMostBytes) return;
  }
  const auto texture = Texture::read(bytes, ColourSpace::automatic, 0, kMostBytes, &error);
  if (!texture) {
    require(!error.empty(), "there is a reason");
    return;
  }
  for (const Wrap wrap : {Wrap::black, Wrap::clamp, Wrap::repeat, Wrap::mirror})
    for (const float at : {0.0f, 0.5f, 1.0f, -7.25f, 1e30f, std::nanf("")})
      for (const float footprint : {0.0f, 0.1f, 100.0f})
        static_cast<void>(texture->lookup({at, 1.0f - at}, footprint, wrap, wrap));
}

void checkValue(const NetworkValue& value, std::size_t nodesBefore) {
  require(value.node < 0 || static_cast<std::size_t>(value.node) < nodesBefore,
          "values come from nodes that stand before");
}

void readMaterials(const std::string& text) {
  const auto stage = ovo::Stage::openText("#usda 1.0\n" + text);
  if (!stage) return;
  std::vector<ovo::Prim> prims;
  stage->findDescendentPrims({"/"}, prims);
  for (const ovo::Prim& prim : prims) {
    const PreviewMaterial material = readPreviewMaterial(prim);
    if (!material.isShown) continue;
    for (const NetworkValue& input : material.inputs) checkValue(input, material.nodes.size());
    for (std::size_t i = 0; i < material.nodes.size(); ++i) {
      const NetworkNode& node = material.nodes[i];
      checkValue(node.coordinates, i);
      require(node.components >= 0 && node.components <= 4, "a value has up to four numbers");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.substr(0, 2) == "\xff\xd8" || bytes.substr(0, 4) == "\x89PNG" ||
      bytes.substr(0, 4) == "v/1\x01")
    readImage(bytes);
  else
    readMaterials(std::string(bytes));
  return 0;
}
