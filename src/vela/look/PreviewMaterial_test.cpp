// Networks of materials, held against what OpenUSD says about scenes made for each rule and about
// real ones.
#include "vela/look/PreviewMaterial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ovo/Stage.h"
#include "support/SharedData.h"
#include "support/TextStage.h"

namespace {

using nlohmann::json;
using namespace vela::look;
using tarn::Vec4f;
using vela_test::stageOf;

// Numbers, or a single one, against the first of four. Expected values have seven digits.
void expectNumbers(const Vec4f& found, const json& expected, const std::string& what) {
  if (expected.is_boolean() || expected.is_number()) {
    const double value = expected.is_boolean() ? expected.get<bool>() : expected.get<double>();
    EXPECT_NEAR(static_cast<double>(found.x), value, 1e-6 * std::max(1.0, std::abs(value))) << what;
    return;
  }
  if (expected.is_string()) return;  // no number: the definition's value, which is checked apart
  ASSERT_TRUE(expected.is_array()) << what << ": " << expected.dump();
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_NEAR(static_cast<double>(found[i]), expected[i].get<double>(), 1e-6) << what << " " << i;
}

// A value is a number, numbers, a word, or an object with `value` in it.
json plain(const json& from) {
  return from.is_object() && from.contains("value") ? from["value"] : from;
}

struct Checker {
  const PreviewMaterial& material;
  std::string folder;  // of the scene
  std::size_t compared = 0;

  void value(const NetworkValue& found, const json& expected, const Vec4f& defined,
             const std::string& what) {
    ++compared;
    const auto has = [&](const char* key) {
      return expected.is_object() && expected.contains(key);
    };
    if (has("texture")) {
      texture(found, expected["texture"], what);
    } else if (has("primvar")) {
      primvar(found, expected["primvar"], what);
    } else if (has("transform2d")) {
      transform(found, expected["transform2d"], what);
    } else if (has("node") && !has("value")) {
      EXPECT_TRUE(found.isConstant()) << what;
      EXPECT_EQ(found.constant, defined) << what;
    } else {
      EXPECT_TRUE(found.isConstant()) << what;
      expectNumbers(found.constant, plain(expected), what);
    }
  }

  const NetworkNode* node(const NetworkValue& found, NetworkNode::Kind kind,
                          const std::string& what) {
    EXPECT_FALSE(found.isConstant()) << what;
    if (found.isConstant()) return nullptr;
    const NetworkNode& node = material.nodes[static_cast<std::size_t>(found.node)];
    EXPECT_EQ(node.kind, kind) << what;
    return node.kind == kind ? &node : nullptr;
  }

  static void wrap(NetworkNode::Wrap found, const json& expected, const std::string& what) {
    using Wrap = NetworkNode::Wrap;
    const std::string word = plain(expected).get<std::string>();
    EXPECT_EQ(found, word == "clamp"    ? Wrap::clamp
                     : word == "repeat" ? Wrap::repeat
                     : word == "mirror" ? Wrap::mirror
                                        : Wrap::black)
        << what;
  }

  void texture(const NetworkValue& value, const json& expected, const std::string& what) {
    const NetworkNode* const found = node(value, NetworkNode::Kind::texture, what);
    if (!found) return;
    const std::string output = expected["output"];
    EXPECT_EQ(value.output, output == "r"   ? NodeOutput::r
                            : output == "g" ? NodeOutput::g
                            : output == "b" ? NodeOutput::b
                            : output == "a" ? NodeOutput::a
                                            : NodeOutput::rgb)
        << what;
    expectNumbers(found->fallback, plain(expected["fallback"]), what + " fallback");
    expectNumbers(found->scale, plain(expected["scale"]), what + " scale");
    expectNumbers(found->bias, plain(expected["bias"]), what + " bias");
    wrap(found->wrapS, expected["wrapS"], what);
    wrap(found->wrapT, expected["wrapT"], what);
    const std::string space = plain(expected["sourceColorSpace"]);
    EXPECT_EQ(found->colourSpace, space == "raw"    ? NetworkNode::ColourSpace::raw
                                  : space == "sRGB" ? NetworkNode::ColourSpace::srgb
                                                    : NetworkNode::ColourSpace::automatic)
        << what;
    if (expected.contains("file") && expected["file"].is_string()) {
      const std::string file = expected["file"];
      EXPECT_EQ(found->file.resolved, file[0] == '/' ? file : folder + file) << what;
    } else {
      // Files that were missing when the expected values were made may have come since.
      std::string place = expected.value("wouldBe", "");
      const std::string onSearchPath = "search path: ";
      if (place.compare(0, onSearchPath.size(), onSearchPath) == 0)
        place.erase(0, onSearchPath.size());
      EXPECT_EQ(found->file.resolved,
                std::filesystem::exists(folder + place) && !place.empty() ? folder + place : "")
          << what;
    }
    if (expected.contains("asset") && !expected.contains("note")) {
      EXPECT_EQ(found->file.written, expected["asset"].get<std::string>()) << what;
    }
    this->value(found->coordinates, expected["st"], {0.0f, 0.0f, 0.0f, 0.0f}, what + " st");
  }

  void primvar(const NetworkValue& value, const json& expected, const std::string& what) {
    const NetworkNode* const found = node(value, NetworkNode::Kind::primvar, what);
    if (!found) return;
    EXPECT_EQ(found->primvar.asString(), plain(expected["varname"]).get<std::string>()) << what;
    const std::string type = expected["type"];
    EXPECT_EQ(found->components, type == "float" || type == "int"       ? 1
                                 : type == "float2"                     ? 2
                                 : type == "float4"                     ? 4
                                 : type == "string" || type == "matrix" ? 0
                                                                        : 3)
        << what;
    if (found->components > 0)
      expectNumbers(found->fallback, plain(expected["fallback"]), what + " fallback");
  }

  void transform(const NetworkValue& value, const json& expected, const std::string& what) {
    const NetworkNode* const found = node(value, NetworkNode::Kind::transform, what);
    if (!found) return;
    expectNumbers({found->rotation, 0, 0, 0}, plain(expected["rotation"]), what + " rotation");
    expectNumbers({found->scaling.x, found->scaling.y, 0, 0}, plain(expected["scale"]),
                  what + " scale");
    expectNumbers({found->translation.x, found->translation.y, 0, 0},
                  plain(expected["translation"]), what + " translation");
    this->value(found->coordinates, expected["in"], {0.0f, 0.0f, 0.0f, 0.0f}, what + " in");
  }
};

class MaterialOracle : public testing::TestWithParam<const char*> {};

TEST_P(MaterialOracle, EveryInputIsWhatItShouldBe) {
  requireSharedData("usd/oracle-materials");
  std::ifstream in(
      vela_test::sharedDataPath(std::string("usd/oracle-materials/") + GetParam() + ".json"));
  const json oracle = json::parse(in);
  std::size_t compared = 0, materials = 0;
  for (const auto& [name, scene] : oracle["scenes"].items()) {
    if (!scene.contains("materials")) continue;
    SCOPED_TRACE(name);
    const std::string file =
        std::filesystem::canonical(vela_test::sharedDataPath("usd/" + name)).string();
    const auto stage = ovo::Stage::open(file);
    ASSERT_TRUE(stage);
    std::map<std::string, const json*> byPath;
    for (const json& entry : scene["materials"]) byPath[entry["path"]] = &entry;
    for (const json& entry : scene["materials"]) {
      SCOPED_TRACE(entry["path"].get<std::string>());
      const json& wanted = entry.contains("as") ? *byPath.at(entry["as"]) : entry;
      const ovo::Prim prim = stage->getPrimAtPath(entry["path"].get<std::string>());
      const PreviewMaterial found = readPreviewMaterial(prim);
      // Expected are the inputs of the surface for all contexts; here that for rasterisers goes
      // before it.
      const json outputs = wanted.value("outputs", json::object());
      if (outputs.contains("glslfx:surface") && !outputs["glslfx:surface"].is_null()) continue;
      EXPECT_EQ(found.isShown, wanted.contains("inputs"));
      if (!found.isShown || !wanted.contains("inputs")) continue;
      ++materials;
      const json& inputs = wanted["inputs"];
      Checker checker{found, file.substr(0, file.rfind('/') + 1)};
      for (std::size_t i = 0; i < kSurfaceInputs; ++i) {
        const auto input = static_cast<SurfaceInput>(i);
        if (inputs.contains(nameOf(input))) {
          const json& one = inputs[nameOf(input)];
          const bool hasSamples = one.contains("at") && one["at"].is_object();
          // Where OpenUSD has samples alone it reads nothing at the default time; here the first
          // sample counts.
          if (hasSamples && one.contains("from"))
            expectNumbers(found[input].constant, *one["at"].begin(), nameOf(input));
          else
            checker.value(found[input], one, definedValue(input), nameOf(input));
          if (hasSamples)
            for (const auto& [time, value] : one["at"].items())
              expectNumbers(readPreviewMaterial(prim, std::stod(time))[input].constant, value,
                            nameOf(input));
        } else {
          EXPECT_TRUE(found[input].isConstant()) << nameOf(input);
          EXPECT_EQ(found[input].constant, definedValue(input)) << nameOf(input);
          ++checker.compared;
        }
      }
      if (inputs.contains("useSpecularWorkflow") &&
          inputs["useSpecularWorkflow"].contains("value")) {
        const json& value = inputs["useSpecularWorkflow"]["value"];
        EXPECT_EQ(found.isSpecularWorkflow,
                  value.is_boolean() ? value.get<bool>() : value.get<double>() != 0.0);
      }
      if (inputs.contains("opacityMode") && inputs["opacityMode"].contains("value")) {
        EXPECT_EQ(found.fadesWhole, inputs["opacityMode"]["value"] == "presence");
      }
      compared += checker.compared;
    }
  }
  EXPECT_GT(materials, 8u);
  EXPECT_GT(compared, materials * kSurfaceInputs - 1);
}

INSTANTIATE_TEST_SUITE_P(All, MaterialOracle,
                         testing::Values("own", "scenes", "openusd_testenv", "usdwg_test_assets"),
                         [](const auto& file) { return std::string(file.param); });

TEST(PreviewMaterial, WhatIsNoPreviewSurfaceIsNamed) {
  const auto stage = stageOf(
      "def Material \"M\"\n{\n token outputs:mtlx:surface.connect = </M/S.outputs:out>\n"
      " token outputs:surface\n def Shader \"S\"\n {\n"
      "  uniform token info:id = \"ND_standard_surface\"\n  token outputs:out\n }\n}\n"
      "def Material \"Other\"\n{\n token outputs:surface.connect = </Other/S.outputs:out>\n"
      " def Shader \"S\"\n {\n  uniform token info:id = \"Paint\"\n  token outputs:out\n }\n}\n"
      "def Material \"Empty\"\n{\n}\n");
  const auto read = [&](const char* path) {
    return readPreviewMaterial(stage->getPrimAtPath(path));
  };
  EXPECT_FALSE(read("/M").isShown);
  EXPECT_EQ(read("/M").other, "mtlx");
  EXPECT_EQ(read("/Other").other, "Paint");
  EXPECT_EQ(read("/Empty").other, "");
  EXPECT_FALSE(readPreviewMaterial(ovo::Prim()).isShown);
}

TEST(PreviewMaterial, CyclesAndEndlessChainsAreAsIfNothingWereConnected) {
  // Through two graphs that name each other; through a texture that is its own coordinates; through
  // 10,000 transforms.
  std::string chain;
  constexpr int kCount = 10000;
  for (int i = 0; i < kCount; ++i)
    chain += " def Shader \"T" + std::to_string(i) +
             "\"\n {\n  uniform token info:id = \"UsdTransform2d\"\n"
             "  float2 inputs:in.connect = </M/T" +
             std::to_string(i + 1) + ".outputs:result>\n  float2 outputs:result\n }\n";
  const auto stage = stageOf(
      "def Material \"M\"\n{\n token outputs:surface.connect = </M/S.outputs:surface>\n"
      " def Shader \"S\"\n {\n  uniform token info:id = \"UsdPreviewSurface\"\n"
      "  color3f inputs:diffuseColor = (1, 0, 0)\n"
      "  color3f inputs:diffuseColor.connect = </M/A.outputs:c>\n"
      "  color3f inputs:emissiveColor.connect = </M/Tex.outputs:rgb>\n"
      "  float inputs:roughness.connect = </M/Far.outputs:r>\n  token outputs:surface\n }\n"
      " def NodeGraph \"A\"\n {\n  color3f outputs:c.connect = </M/B.outputs:c>\n }\n"
      " def NodeGraph \"B\"\n {\n  color3f outputs:c.connect = </M/A.outputs:c>\n }\n"
      " def Shader \"Tex\"\n {\n  uniform token info:id = \"UsdUVTexture\"\n"
      "  float2 inputs:st.connect = </M/Tex.outputs:rgb>\n  float3 outputs:rgb\n }\n"
      " def Shader \"Far\"\n {\n  uniform token info:id = \"UsdUVTexture\"\n"
      "  float2 inputs:st.connect = </M/T0.outputs:result>\n  float3 outputs:r\n }\n" +
      chain + "}\n");
  const PreviewMaterial m = readPreviewMaterial(stage->getPrimAtPath("/M"));
  ASSERT_TRUE(m.isShown);
  EXPECT_TRUE(m[SurfaceInput::diffuseColor].isConstant());
  EXPECT_EQ(m[SurfaceInput::diffuseColor].constant, Vec4f(1.0f, 0.0f, 0.0f, 0.0f));
  const NetworkValue& emission = m[SurfaceInput::emissiveColor];
  ASSERT_FALSE(emission.isConstant());
  EXPECT_TRUE(m.nodes[static_cast<std::size_t>(emission.node)].coordinates.isConstant());
  EXPECT_FALSE(m[SurfaceInput::roughness].isConstant());
  for (std::size_t i = 0; i < m.nodes.size(); ++i)
    EXPECT_LT(m.nodes[i].coordinates.node, static_cast<int>(i));
  EXPECT_LT(m.nodes.size(), 2000u);
}

}  // namespace
