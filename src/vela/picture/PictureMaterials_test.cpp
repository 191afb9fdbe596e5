// What pictures say and show of materials.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "support/TextStage.h"
#include "vela/picture/PictureRenderer.h"

namespace {

using namespace vela::picture;
using vela_test::stageOf;

TEST(PictureMaterials, TheLayerHasTheMaterialOfEachFaceAndTheManifestItsName) {
  // Four squares side by side, seen from the front: by the mesh, by a subset, by a subset whose
  // binding leads nowhere, by the mesh again but for previews.
  const auto stage = stageOf(
      "def Scope \"Looks\"\n{\n def Material \"A\"\n {\n }\n def Material \"B\"\n {\n }\n"
      " def Material \"C\"\n {\n }\n}\n"
      "def Mesh \"Row\"\n{\n int[] faceVertexCounts = [4, 4, 4, 4]\n"
      " int[] faceVertexIndices = [0,1,6,5, 1,2,7,6, 2,3,8,7, 3,4,9,8]\n"
      " point3f[] points = [(0,0,0),(1,0,0),(2,0,0),(3,0,0),(4,0,0),"
      "(0,1,0),(1,1,0),(2,1,0),(3,1,0),(4,1,0)]\n"
      " uniform token subdivisionScheme = \"none\"\n rel material:binding = </Looks/A>\n"
      " rel material:binding:preview = </Looks/C>\n"
      " def GeomSubset \"s\"\n {\n  int[] indices = [1]\n"
      "  uniform token familyName = \"materialBind\"\n  rel material:binding:full = </Looks/B>\n "
      "}\n"
      " def GeomSubset \"t\"\n {\n  int[] indices = [2]\n"
      "  uniform token familyName = \"materialBind\"\n"
      "  rel material:binding:full = </Looks/Gone>\n }\n}\n"
      "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
      " float horizontalAperture = 50\n float verticalAperture = 10\n"
      " double3 xformOp:translate = (2, 0.5, 5)\n"
      " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n");
  RenderOptions options;
  options.view.width = 10;
  options.view.height = 2;
  options.layers = {"material", "prim"};
  const auto values = [&] {
    std::string error;
    const auto picture = renderPicture(stage, options, 1, {}, &error);
    EXPECT_TRUE(picture) << error;
    std::vector<std::uint32_t> row;
    for (int x = 0; x < 10; ++x) row.push_back(picture->channel("material.id").integers(x, 0));
    for (const Attribute& attribute : picture->attributes)
      if (attribute.name == "material/manifest")
        return std::make_pair(row, std::get<std::string>(attribute.value));
    return std::make_pair(row, std::string("no manifest"));
  };
  using Row = std::vector<std::uint32_t>;
  EXPECT_EQ(values(), std::make_pair(Row({0, 1, 1, 2, 2, 0, 0, 1, 1, 0}),
                                     std::string(R"({"/Looks/A":1,"/Looks/B":2})")));
  options.materialPurpose = vela::scene::MaterialPurpose::preview;
  EXPECT_EQ(values(),
            std::make_pair(Row({0, 1, 1, 1, 1, 1, 1, 1, 1, 0}), std::string(R"({"/Looks/C":1})")));

  // The manifest comes with the layer alone.
  options.layers = {"prim"};
  const auto picture = renderPicture(stage, options);
  ASSERT_TRUE(picture);
  for (const Attribute& attribute : picture->attributes)
    EXPECT_NE(attribute.name, "material/manifest");
}

}  // namespace
