// What a renderer promises beside its values: the same bytes from tiles and threads, work that
// stops, reasons for what it does not do.
#include "vela/picture/PictureRenderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <variant>
#include <vector>

#include "ovo/CameraPrim.h"
#include "ovo/MeshPrim.h"
#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "ovo/Xform.h"
#include "support/SharedData.h"
#include "vela/Version.h"

namespace {

using namespace vela::picture;
using vela::scene::Problem;
using vela::scene::Work;

std::shared_ptr<ovo::Stage> demo() {
  std::string error;
  auto stage = ovo::Stage::open(vela_test::sourcePath("examples/demo/demo.usda"), &error);
  EXPECT_TRUE(stage) << error;
  return stage;
}

// A square in the plane z = 0 that looks along z.
std::shared_ptr<ovo::Stage> square() {
  const auto stage = ovo::Stage::createInMemory();
  ovo::MeshPrim mesh = ovo::MeshPrim::define(stage, ovo::Path("/Square"));
  mesh.setPoints({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, tarn::defaultTimeValue());
  mesh.createFaceVertexCountsAttr().set(ovo::Array<int>{4}, tarn::defaultTimeValue());
  mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3}, tarn::defaultTimeValue());
  return stage;
}

std::vector<std::string> allLayers() {
  std::vector<std::string> names;
  for (const LayerInfo& info : layerTable()) names.push_back(info.name);
  return names;
}

int countOf(const Picture& picture, const std::string& name) {
  int count = 0;
  for (const Attribute& attribute : picture.attributes) count += attribute.name == name;
  return count;
}

template <class T>
T valueOf(const Picture& picture, const std::string& name) {
  EXPECT_EQ(countOf(picture, name), 1) << name;
  for (const Attribute& attribute : picture.attributes)
    if (attribute.name == name) return std::get<T>(attribute.value);
  return T();
}

std::string textOf(const Picture& picture, const std::string& name) {
  return valueOf<std::string>(picture, name);
}

RenderOptions smallOptions(int width = 70, int height = 45) {
  RenderOptions options;
  options.view.width = width;
  options.view.height = height;
  options.samples = 4;
  options.layers = allLayers();
  return options;
}

std::unique_ptr<PictureRenderer> rendererOf(const std::shared_ptr<ovo::Stage>& stage,
                                            const RenderOptions& options) {
  std::vector<Problem> problems;
  auto renderer = PictureRenderer::make(stage, options, &problems);
  EXPECT_TRUE(renderer) << (problems.empty() ? "" : problems.back().text());
  return renderer;
}

void expectSameBytes(const Picture& a, const Picture& b) {
  ASSERT_EQ(a.layers.size(), b.layers.size());
  for (std::size_t l = 0; l < a.layers.size(); ++l) {
    EXPECT_EQ(a.layers[l].name, b.layers[l].name);
    EXPECT_EQ(a.layers[l].floats, b.layers[l].floats) << a.layers[l].name;
    EXPECT_EQ(a.layers[l].integers, b.layers[l].integers) << a.layers[l].name;
  }
}

// ---- Tiles and threads

TEST(PictureRenderer, OneToEightThreadsMakeTheSameBytes) {
  const auto renderer = rendererOf(demo(), smallOptions());
  const auto one = renderer->renderAll(1);
  ASSERT_TRUE(one);
  for (int threads = 2; threads <= 8; ++threads) {
    const auto many = renderer->renderAll(threads);
    ASSERT_TRUE(many);
    expectSameBytes(*one, *many);
  }
}

TEST(PictureRenderer, TilesOnDemandMakeTheBytesOfTheWholePicture) {
  const auto renderer = rendererOf(demo(), smallOptions());
  const auto whole = renderer->renderAll(2);
  ASSERT_TRUE(whole);

  // Rectangles that fit no grid, among them ones that are wider than the tiles of renderAll().
  const unsigned seed = 7;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int k = 0; k < 12; ++k) {
    const int x0 = static_cast<int>(random() % 69), y0 = static_cast<int>(random() % 44);
    const Tile tile{x0, y0, x0 + 1 + static_cast<int>(random() % static_cast<unsigned>(70 - x0)),
                    y0 + 1 + static_cast<int>(random() % static_cast<unsigned>(45 - y0))};
    const auto part = renderer->render(tile);
    ASSERT_TRUE(part);
    ASSERT_EQ(part->width, tile.width());
    ASSERT_EQ(part->height, tile.height());
    EXPECT_TRUE(part->manifest.empty());
    for (const LayerInfo& info : layerTable()) {
      const LayerView of = part->layer(info.name), in = whole->layer(info.name);
      for (int y = 0; y < tile.height(); ++y)
        for (int x = 0; x < tile.width(); ++x)
          for (int c = 0; c < static_cast<int>(info.channels.size()); ++c)
            if (info.type == ValueType::float32)
              ASSERT_EQ(of.floats(x, y, c), in.floats(tile.x0 + x, tile.y0 + y, c)) << info.name;
            else
              ASSERT_EQ(of.integers(x, y, c), in.integers(tile.x0 + x, tile.y0 + y, c))
                  << info.name;
    }
  }

  // Each written where it belongs, the last one first.
  Picture pieces = renderer->makePicture();
  EXPECT_TRUE(renderer->render({0, 20, 70, 45}, pieces));
  EXPECT_TRUE(renderer->render({33, 0, 70, 20}, pieces));
  EXPECT_TRUE(renderer->render({0, 0, 33, 20}, pieces));
  expectSameBytes(*whole, pieces);
  EXPECT_EQ(whole->manifest, pieces.manifest);
}

// The bits: a float that is NaN equals itself.
template <class T>
void expectCrop(const PixelView<T>& part, const PixelView<T>& whole, const Tile& tile) {
  ASSERT_EQ(part.width, tile.width());
  ASSERT_EQ(part.height, tile.height());
  for (int y = 0; y < tile.height(); ++y)
    for (int x = 0; x < tile.width(); ++x)
      ASSERT_EQ(std::memcmp(&part(x, y), &whole(tile.x0 + x, tile.y0 + y),
                            sizeof(T) * static_cast<std::size_t>(part.channels)),
                0)
          << x << "," << y;
}

TEST(PictureRenderer, ARegionIsACropOfTheWholePicture) {
  RenderOptions options = smallOptions();
  options.layers.emplace_back("crypto_object");
  const auto renderer = rendererOf(demo(), options);
  const auto whole = renderer->renderAll(2);
  ASSERT_TRUE(whole);
  for (const Tile asked : {Tile{0, 0, 70, 45}, Tile{3, 5, 68, 44}, Tile{69, 44, 70, 45},
                           Tile{-9, 20, 40, 99}, Tile{32, 32, 64, 40}})
    for (const int threads : {1, 3}) {
      const auto part = renderer->renderRegion(asked, threads);
      ASSERT_TRUE(part);
      const Tile tile{std::max(asked.x0, 0), asked.y0, std::min(asked.x1, 70),
                      std::min(asked.y1, 45)};
      EXPECT_EQ(part->manifest, whole->manifest);
      ASSERT_EQ(part->layers.size(), whole->layers.size());
      ASSERT_GT(part->layers.size(), 3U);
      for (const Layer& layer : part->layers) {
        SCOPED_TRACE(layer.name);
        const LayerView in = whole->layer(layer.name);
        if (layer.type == ValueType::float32)
          expectCrop(part->layer(layer.name).floats, in.floats, tile);
        else
          expectCrop(part->layer(layer.name).integers, in.integers, tile);
      }
      // Attributes are those of the whole, but for the names that a matte shows.
      ASSERT_EQ(part->attributes.size(), whole->attributes.size());
      for (std::size_t i = 0; i < part->attributes.size(); ++i) {
        EXPECT_EQ(part->attributes[i].name, whole->attributes[i].name);
        if (part->attributes[i].name.find("cryptomatte/") != 0) {
          EXPECT_TRUE(part->attributes[i].value == whole->attributes[i].value);
        }
      }
    }

  const auto nothing = renderer->renderRegion({70, 0, 80, 10}, 2);
  ASSERT_TRUE(nothing);
  EXPECT_EQ(nothing->pixelCount(), 0U);
  Work stopped;
  stopped.stop = [] { return true; };
  EXPECT_FALSE(renderer->renderRegion({0, 0, 9, 9}, 2, stopped));
}

TEST(PictureRenderer, TilesAreCutOffAtThePicturesEdges) {
  const auto renderer = rendererOf(square(), smallOptions());
  const auto corner = renderer->render({-10, -10, 5, 3});
  ASSERT_TRUE(corner);
  EXPECT_EQ(corner->width, 5);
  EXPECT_EQ(corner->height, 3);
  constexpr int kMost = std::numeric_limits<int>::max(), kLeast = std::numeric_limits<int>::min();
  const auto all = renderer->render({kLeast, kLeast, kMost, kMost});
  ASSERT_TRUE(all);
  EXPECT_EQ(all->width, 70);
  for (const Tile& none : {Tile{70, 0, 80, 5}, {5, 5, 5, 9}, {9, 9, 5, 5}, {kMost, 0, kLeast, 5}}) {
    const auto part = renderer->render(none);
    ASSERT_TRUE(part);
    EXPECT_EQ(part->pixelCount(), 0u);
  }
}

TEST(PictureRenderer, APictureOfAnotherShapeIsNotWrittenTo) {
  const auto renderer = rendererOf(square(), smallOptions());
  const auto other = rendererOf(square(), smallOptions(70, 46));
  Picture picture = other->makePicture();
  EXPECT_FALSE(renderer->render({0, 0, 8, 8}, picture));
  picture = renderer->makePicture();
  picture.layers.pop_back();
  EXPECT_FALSE(renderer->render({0, 0, 8, 8}, picture));
  picture = renderer->makePicture();
  picture.layers[0].floats.clear();
  EXPECT_FALSE(renderer->render({0, 0, 8, 8}, picture));
  Picture empty;
  EXPECT_FALSE(renderer->render({0, 0, 8, 8}, empty));
}

// ---- Stopping

TEST(PictureRenderer, StoppingReachesIntoATile) {
  RenderOptions options = smallOptions(32, 32);
  options.layers = {"depth"};
  const auto renderer = rendererOf(demo(), options);
  // Asked before each row: ten rows of one tile are done.
  int asked = 0;
  Work work;
  work.stop = [&] { return ++asked > 10; };
  Picture picture = renderer->makePicture();
  EXPECT_FALSE(renderer->render({0, 0, 32, 32}, picture, work));
  EXPECT_EQ(renderer->raysTraced(), 320u);
  EXPECT_NE(picture.layer("depth").floats(0, 9), 0.0f);
  EXPECT_EQ(picture.layer("depth").floats(0, 10), 0.0f);

  asked = 0;
  EXPECT_FALSE(renderer->render({0, 0, 32, 32}, work));
}

TEST(PictureRenderer, RenderAllStopsAndSaysSo) {
  const auto renderer = rendererOf(demo(), smallOptions(512, 512));
  Work work;
  double share = 0.0;
  work.progress = [&](double now) { share = now; };
  work.stop = [&] { return renderer->raysTraced() > 0; };
  EXPECT_FALSE(renderer->renderAll(2, work));
  EXPECT_LT(share, 1.0);

  std::string error;
  work.stop = [] { return true; };
  EXPECT_FALSE(renderPicture(demo(), smallOptions(), 1, work, &error));
  EXPECT_EQ(error, "stopped");
  std::vector<Problem> problems;
  EXPECT_FALSE(PictureRenderer::make(demo(), smallOptions(), &problems, work));
  ASSERT_FALSE(problems.empty());
  EXPECT_EQ(problems.back().kind, Problem::Kind::stopped);
}

TEST(PictureRenderer, ProgressRisesToOne) {
  const auto renderer = rendererOf(demo(), smallOptions());
  double share = 0.0;
  Work work;
  work.progress = [&](double now) {
    EXPECT_GE(now, share);
    share = now;
  };
  EXPECT_TRUE(renderer->renderAll(2, work));
  EXPECT_EQ(share, 1.0);
}

// ---- Options

TEST(PictureRenderer, BadOptionsAreNamed) {
  const auto stage = square();
  const auto expect = [&](const RenderOptions& options, const std::string& message) {
    std::string error;
    EXPECT_FALSE(renderPicture(stage, options, 1, {}, &error));
    EXPECT_EQ(error, message);
    std::vector<Problem> problems;
    EXPECT_FALSE(PictureRenderer::make(stage, options, &problems));
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].severity, Problem::Severity::error);
    EXPECT_EQ(problems[0].kind, Problem::Kind::badOption);
  };
  for (const int samples : {0, -1, 4097}) {
    RenderOptions options = smallOptions();
    options.samples = samples;
    expect(options, "samples: " + std::to_string(samples) + " is not from 1 to 4096");
  }
  RenderOptions options = smallOptions(-1, 5);
  expect(options, "width: -1 is not from 0 to 65536");
  options = smallOptions(5, 65537);
  expect(options, "height: 65537 is not from 0 to 65536");
  options = smallOptions();
  options.meshes.subdivisionLevel = -1;
  expect(options, "subdivision level: it is less than 0");
  options = smallOptions();
  options.layers = {"rgba", "heat"};
  expect(options, "layers: no such layer: heat; " + layersToTry());
  options.layers = {};
  expect(options, "layers: no layers: the list is empty; " + layersToTry());
  options = smallOptions();
  options.caster = vela::scene::CasterKind::hitDetector;
  options.smooth = true;
  expect(options,
         "smooth: does not go with the hit detector, which takes meshes as the scene has them");
  options.smooth = false;
  options.meshes.subdivisionLevel = 1;
  expect(
      options,
      "subdivision level: does not go with the hit detector, which takes meshes as the scene has "
      "them");

  std::string error;
  EXPECT_FALSE(renderPicture(nullptr, smallOptions(), 1, {}, &error));
  EXPECT_EQ(error, "stage: there is none");
}

TEST(PictureRenderer, ANamedCameraMustBeThere) {
  RenderOptions options = smallOptions();
  options.view.camera = ovo::Path("/Nobody");
  std::vector<Problem> problems;
  EXPECT_FALSE(PictureRenderer::make(demo(), options, &problems));
  ASSERT_FALSE(problems.empty());
  EXPECT_EQ(problems.back().kind, Problem::Kind::noSuchCamera);
  EXPECT_EQ(problems.back().subject, "/Nobody");
}

TEST(PictureRenderer, AnEmptySceneIsAPictureOfNothingAndSaysSo) {
  std::vector<Problem> problems;
  const auto renderer =
      PictureRenderer::make(ovo::Stage::createInMemory(), smallOptions(9, 5), &problems);
  ASSERT_TRUE(renderer);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].kind, Problem::Kind::nothingShown);
  EXPECT_EQ(problems[0].severity, Problem::Severity::warning);
  const auto picture = renderer->renderAll(1);
  ASSERT_TRUE(picture);
  for (const float alpha : picture->layers[0].floats) EXPECT_EQ(alpha, 0.0f);
  EXPECT_EQ(picture->layer("depth").floats(8, 4), std::numeric_limits<float>::infinity());
  EXPECT_EQ(picture->layer("prim").integers(8, 4), 0u);
}

// ---- Values of a scene that is simple enough to tell them

TEST(PictureRenderer, EachLayerOfASquare) {
  const auto stage = square();
  RenderOptions options = smallOptions(16, 16);
  options.samples = 1;
  options.view.lens = vela::LensProjection::orthographic;
  const auto renderer = rendererOf(stage, options);
  const auto picture = renderer->renderAll(1);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->manifest, (std::vector<std::string>{"/Square"}));
  const PixelView<std::uint32_t> prim = picture->layer("prim").integers;
  int seen = 0;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) {
      const bool hit = prim(x, y) != 0;
      seen += hit;
      EXPECT_EQ(picture->layer("alpha").floats(x, y), hit ? 1.0f : 0.0f);
      EXPECT_EQ(picture->layer("albedo").floats(x, y, 1), hit ? 0.5f : 0.0f);
      EXPECT_EQ(picture->layer("N").floats(x, y, 2), hit ? 1.0f : 0.0f);
      EXPECT_NEAR(picture->layer("P").floats(x, y, 2), 0.0f, 1e-6f);
      EXPECT_EQ(picture->layer("face").integers(x, y), 0u);
      EXPECT_EQ(std::isinf(picture->layer("depth").floats(x, y)), !hit);
      if (hit) {
        EXPECT_LE(std::abs(picture->layer("P").floats(x, y, 0)), 1.0f);
        EXPECT_GT(picture->layer("rgb").floats(x, y, 0), 0.05f);
      }
    }
  EXPECT_GT(seen, 40);
  EXPECT_LT(seen, 250);
}

TEST(PictureRenderer, AttributesSayWhatMadeThePictureAndWhereTheCameraStood) {
  RenderOptions options = smallOptions(8, 8);
  options.layers = defaultLayers();
  const auto renderer = rendererOf(demo(), options);
  const Picture picture = renderer->makePicture();
  EXPECT_EQ(textOf(picture, "software"), std::string("vela ") + vela::version());
  EXPECT_TRUE(std::regex_match(textOf(picture, "versions"),
                               std::regex("OpenUSD [0-9.]+, OpenSubdiv [0-9.]+")))
      << textOf(picture, "versions");
  EXPECT_EQ(textOf(picture, "camera"), renderer->view().camera.asString());
  EXPECT_EQ(valueOf<float>(picture, "framesPerSecond"), 24.0f);
  const auto cameraFromWorld = valueOf<tarn::Mat4f>(picture, "worldToCamera");
  const tarn::Vec3d eye(renderer->view().worldFromCamera[12], renderer->view().worldFromCamera[13],
                        renderer->view().worldFromCamera[14]);
  EXPECT_NEAR(cameraFromWorld.transformPoint(tarn::Vec3f(eye)).length(), 0.0f,
              1e-5f * static_cast<float>(eye.length()));
  // Without a time there is no frame.
  EXPECT_EQ(countOf(picture, "frame"), 0);
  options.time = 12.5;
  EXPECT_EQ(valueOf<float>(rendererOf(demo(), options)->makePicture(), "frame"), 12.5f);
}

// What each pixel shows lies, by worldToNDC, in that pixel; with shifted films too.
TEST(PictureRenderer, WorldToNdcTakesPositionsToTheirPixels) {
  for (const char* projection : {"perspective", "orthographic"}) {
    const auto stage = square();
    const ovo::CameraPrim camera = ovo::CameraPrim::define(stage, ovo::Path("/Camera"));
    ovo::CameraParameters parameters;
    parameters.perspective = std::string(projection) == "perspective";
    parameters.horizontalAperture = parameters.perspective ? 3.0 : 4.0;
    parameters.horizontalApertureOffset = 0.25;
    parameters.verticalApertureOffset = -0.125;
    camera.setParameters(parameters);
    tarn::Mat4d placement;
    placement.translate(0.5, 0.25, 6.0).rotateZ(0.3).rotateX(0.1);
    ovo::XformablePrim(camera).setLocalXform(placement);
    RenderOptions options = smallOptions(40, 24);
    options.layers = {"P", "prim"};
    const auto picture = rendererOf(stage, options)->renderAll(1);
    ASSERT_TRUE(picture);
    const auto ndcFromWorld = valueOf<tarn::Mat4f>(*picture, "worldToNDC");
    int seen = 0;
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 40; ++x) {
        if (picture->layer("prim").integers(x, y) == 0) continue;
        ++seen;
        const PixelView<float> at = picture->layer("P").floats;
        const auto ndc = ndcFromWorld.transform({at(x, y, 0), at(x, y, 1), at(x, y, 2), 1.0f});
        ASSERT_NEAR(ndc.x / ndc.w * 40.0f, static_cast<float>(x) + 0.5f, 1e-3f) << projection;
        ASSERT_NEAR(ndc.y / ndc.w * 24.0f, static_cast<float>(y) + 0.5f, 1e-3f) << projection;
      }
    EXPECT_GT(seen, 100) << projection;
    // The window is the film over the focal length, and its middle the film's.
    if (parameters.perspective) {
      EXPECT_FLOAT_EQ(valueOf<float>(*picture, "screenWindowWidth"), 3.0f / 5.0f);
      const auto centre = valueOf<tarn::Vec2f>(*picture, "screenWindowCenter");
      EXPECT_FLOAT_EQ(centre.x, 0.25f / 5.0f);
      EXPECT_FLOAT_EQ(centre.y, -0.125f / 5.0f);
    } else {
      EXPECT_EQ(countOf(*picture, "screenWindowWidth"), 0);
    }
  }
  RenderOptions options = smallOptions(8, 4);
  options.view.lens = vela::LensProjection::spherical;
  EXPECT_EQ(countOf(rendererOf(demo(), options)->makePicture(), "worldToNDC"), 0);
}

TEST(PictureRenderer, LayersThatNeedNoLightTraceNone) {
  RenderOptions options = smallOptions(16, 16);
  options.layers = {"depth"};
  const auto data = rendererOf(demo(), options);
  ASSERT_TRUE(data->renderAll(1));
  EXPECT_EQ(data->raysTraced(), 256u);
  EXPECT_EQ(data->stats().cameraRays, 256u);
  EXPECT_EQ(data->stats().lightRays, 0u);
  EXPECT_GT(data->stats().traceSeconds, 0.0);
  EXPECT_EQ(data->stats().shadeSeconds, 0.0);
  // Colour alone needs no ray of its own through the centres.
  options.layers = {"rgba"};
  const auto light = rendererOf(ovo::Stage::createInMemory(), options);
  ASSERT_TRUE(light->renderAll(1));
  EXPECT_EQ(light->raysTraced(), 1024u);
  EXPECT_EQ(light->stats().cameraRays, 1024u);
  // Of what is lit, rays to lights count as such, and light takes time of its own.
  const auto lit = rendererOf(square(), options);
  ASSERT_TRUE(lit->renderAll(1));
  EXPECT_EQ(lit->stats().cameraRays, 1024u);
  EXPECT_GT(lit->stats().lightRays, 1024u);
  EXPECT_EQ(lit->raysTraced(), lit->stats().cameraRays + lit->stats().lightRays);
  EXPECT_GT(lit->stats().shadeSeconds, 0.0);
}

TEST(PictureRenderer, WhatIsSelectedIsTintedButItsAlbedoIsNot) {
  const auto stage = square();
  RenderOptions options = smallOptions(16, 16);
  const auto plain = rendererOf(stage, options)->renderAll(1);
  options.selection.emplace();
  options.selection->setObjectSelected(ovo::Path("/Square"), true);
  const auto tinted = rendererOf(stage, options)->renderAll(1);
  ASSERT_TRUE(plain && tinted);
  const auto ratio = [](const Picture& picture) {
    return picture.layer("rgba").floats(8, 8, 0) / picture.layer("rgba").floats(8, 8, 2);
  };
  EXPECT_GT(ratio(*tinted), 2.0f * ratio(*plain));
  EXPECT_EQ(plain->layer("albedo").floats(8, 8), tinted->layer("albedo").floats(8, 8));
}

// True when two pictures are the same in every value and attribute.
void expectSame(const Picture& one, const Picture& other) {
  ASSERT_EQ(one.layers.size(), other.layers.size());
  for (std::size_t i = 0; i < one.layers.size(); ++i) {
    EXPECT_EQ(one.layers[i].name, other.layers[i].name);
    const auto& a = one.layers[i].floats;
    const auto& b = other.layers[i].floats;
    ASSERT_EQ(a.size(), b.size());
    EXPECT_TRUE(a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0)
        << one.layers[i].name;
    EXPECT_EQ(one.layers[i].integers, other.layers[i].integers);
  }
  EXPECT_EQ(one.manifest, other.manifest);
  ASSERT_EQ(one.attributes.size(), other.attributes.size());
  for (std::size_t i = 0; i < one.attributes.size(); ++i) {
    EXPECT_EQ(one.attributes[i].name, other.attributes[i].name);
    EXPECT_TRUE(one.attributes[i].value == other.attributes[i].value) << one.attributes[i].name;
  }
}

// The view that the options settle on, with what the renderer found.
vela::scene::View viewOf(const ovo::Stage& stage, const RenderOptions& options,
                         const PictureRenderer& renderer) {
  vela::scene::ViewOptions wanted = options.view;
  wanted.time = options.time;
  return vela::scene::makeView(stage, wanted, renderer.extent()).value();
}

TEST(PictureRenderer, AnotherViewIsThatOfARendererMadeForIt) {
  const auto stage = demo();
  RenderOptions options = smallOptions();
  for (const LayerGroup& group : layerGroups())
    options.layers.insert(options.layers.end(), group.layers.begin(), group.layers.end());
  for (const bool smooth : {false, true}) {
    options.smooth = smooth;
    const auto first = rendererOf(stage, options);
    RenderOptions other = options;
    other.view.lens = smooth ? vela::LensProjection::spherical : vela::LensProjection::perspective;
    other.view.turn = 75.0;
    other.view.width = 33;
    other.view.height = 21;
    other.samples = 9;
    for (const std::vector<std::string>& layers :
         {std::vector<std::string>{"rgba"}, {"N", "depth"}, {"crypto_object"}, options.layers}) {
      other.layers = layers;
      const auto again = first->withView(*stage, viewOf(*stage, other, *first), 9, layers);
      ASSERT_TRUE(again);
      expectSame(*again->renderAll(2), *rendererOf(stage, other)->renderAll(2));
    }
    // And so once more by way of the second, which may be gone when the third is at work.
    auto second = first->withView(*stage, viewOf(*stage, other, *first), 9, options.layers);
    const auto third =
        second->withView(*stage, viewOf(*stage, options, *first), options.samples, options.layers);
    second.reset();
    expectSame(*third->renderAll(2), *first->renderAll(2));
  }
}

TEST(PictureRenderer, AViewThatWasMovedKeepsTheExposureAndNamesNoCamera) {
  const auto stage = square();
  const auto camera = stage->definePrim(ovo::Path("/Camera"), ovo::Token("Camera"));
  ovo::XformablePrim(camera).setLocalXform(
      [] {
        tarn::Mat4d m;
        m.translate({0, 0, 5});
        return m;
      }(),
      tarn::defaultTimeValue());
  camera.createAttr(ovo::Token("exposure"), ovo::Token("float"))
      .set(2.0f, tarn::defaultTimeValue());
  const RenderOptions options = smallOptions(16, 16);
  const auto renderer = rendererOf(stage, options);
  vela::scene::View view = viewOf(*stage, options, *renderer);
  view.camera = ovo::Path();
  view.worldFromCamera.translate({0, 0, 1});
  const auto moved = renderer->withView(*stage, std::move(view), 1, {"depth"});
  ASSERT_TRUE(moved);
  const auto picture = moved->renderAll(1);
  EXPECT_EQ(countOf(*picture, "camera"), 0);
  EXPECT_EQ(valueOf<float>(*picture, "exposure"), 2.0f);
  const auto before = renderer->renderAll(1);
  EXPECT_EQ(picture->layer("depth").floats(8, 8), before->layer("depth").floats(8, 8) + 1.0f);
}

TEST(PictureRenderer, ADraftTracesLessAndShowsTheSameSurfaces) {
  const auto stage = demo();
  RenderOptions options = smallOptions();
  options.samples = 1;
  options.layers = {"rgba", "albedo", "N"};
  for (const LightChoice lights : {LightChoice::scene, LightChoice::own}) {
    options.lights = lights;
    const auto whole = rendererOf(stage, options);
    const auto draft = whole->withView(*stage, viewOf(*stage, options, *whole), 0, options.layers);
    ASSERT_TRUE(draft);
    const auto expected = whole->renderAll(1), picture = draft->renderAll(1);
    EXPECT_LT(2 * draft->stats().lightRays, whole->stats().lightRays);
    EXPECT_EQ(draft->stats().cameraRays, whole->stats().cameraRays);
    EXPECT_EQ(expected->layers[1].floats, picture->layers[1].floats);
    EXPECT_EQ(expected->layers[2].floats, picture->layers[2].floats);
  }
}

TEST(PictureRenderer, AnotherViewSaysWhyThereIsNone) {
  const auto stage = square();
  RenderOptions options = smallOptions(16, 16);
  options.layers = {"rgba", "depth"};
  const auto renderer = rendererOf(stage, options);
  const auto why = [&](int samples, const std::vector<std::string>& layers, auto change) {
    vela::scene::View view = viewOf(*stage, options, *renderer);
    change(view);
    Problem problem;
    EXPECT_FALSE(renderer->withView(*stage, std::move(view), samples, layers, &problem));
    EXPECT_EQ(problem.kind, Problem::Kind::badOption);
    return problem.subject + ": " + problem.reason;
  };
  const auto asIs = [](vela::scene::View&) {};
  EXPECT_EQ(why(-1, {"rgba"}, asIs), "samples: -1 is not from 0 to 4096");
  EXPECT_EQ(why(1, {"N"}, asIs), "layers: the picture that is set up has no N");
  EXPECT_EQ(why(1, {"heat"}, asIs).substr(0, 27), "layers: no such layer: heat");
  EXPECT_EQ(why(1, {"rgba"}, [](auto& view) { view.width = 0; }),
            "width: 0 is not from 1 to 65536");
  EXPECT_EQ(why(1, {"rgba"}, [](auto& view) { view.projection.reset(); }), "view: it has no lens");
}

}  // namespace
