// The response of preview surfaces to light, held against values that were computed elsewhere.
#include "vela/look/PreviewResponse.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

using tarn::Vec3f;
using vela::look::PreviewSurface;
using vela::look::respond;

const Vec3f kUp(0.0f, 0.0f, 1.0f);
const Vec3f kLeft45 = Vec3f(-1.0f, 0.0f, 1.0f).normalized();
const Vec3f kRight45 = Vec3f(1.0f, 0.0f, 1.0f).normalized();

void expectSum(const PreviewSurface& surface, const Vec3f& toLight, const Vec3f& toViewer,
               const Vec3f& expected) {
  const Vec3f found = respond(surface, kUp, toLight, toViewer).sum();
  for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(found[c], expected[c], 1e-5f) << c;
}

TEST(PreviewResponse, HasTheCheckValues) {
  PreviewSurface surface;
  expectSum(surface, kUp, kUp, Vec3f(0.105934f));
  expectSum(surface, kLeft45, kRight45, Vec3f(0.107287f));

  surface.diffuseColor = {0.9f, 0.6f, 0.2f};
  surface.metallic = 0.5f;
  surface.ior = 1.8f;
  expectSum(surface, kLeft45, kRight45, {0.886962f, 0.743780f, 0.544334f});

  PreviewSurface specular;
  specular.specularColor = {0.2f, 0.3f, 0.4f};
  specular.isSpecularWorkflow = true;
  expectSum(specular, kLeft45, kRight45, {0.360691f, 0.519069f, 0.677447f});

  PreviewSurface metal;
  metal.diffuseColor = {0.9f, 0.6f, 0.2f};
  metal.metallic = 1.0f;
  metal.roughness = 0.2f;
  expectSum(metal, kLeft45, kUp, {0.005202f, 0.003468f, 0.001156f});
}

TEST(PreviewResponse, TheCoatIsAddedAndAMetalScattersNothing) {
  PreviewSurface plain, coated;
  coated.clearcoat = 1.0f;
  coated.clearcoatRoughness = 0.5f;
  const auto a = respond(plain, kUp, kLeft45, kRight45),
             b = respond(coated, kUp, kLeft45, kRight45);
  EXPECT_EQ(a.diffuse, b.diffuse);
  // Of the same roughness and index the coat reflects as the base does.
  EXPECT_NEAR(b.specular.x, 2.0f * a.specular.x, 1e-6f);
  plain.metallic = 1.0f;
  EXPECT_EQ(respond(plain, kUp, kLeft45, kRight45).diffuse, Vec3f(0.0f));
}

TEST(PreviewResponse, BehindTheSurfaceIsNothing) {
  const PreviewSurface surface;
  EXPECT_EQ(respond(surface, kUp, -kUp, kUp).sum(), Vec3f(0.0f));
  EXPECT_EQ(respond(surface, kUp, Vec3f(1.0f, 0.0f, 0.0f), kUp).sum(), Vec3f(0.0f));
  EXPECT_EQ(respond(surface, kUp, Vec3f(std::nanf("")), kUp).sum(), Vec3f(0.0f));
}

TEST(PreviewResponse, IsFiniteForAnyInputsAfterTheyAreBroughtToWhereTheyMeanSomething) {
  std::mt19937 random(3);
  std::uniform_real_distribution<float> between(-2.0f, 3.0f);
  const float odd[] = {std::nanf(""), std::numeric_limits<float>::infinity(), -1e30f, 0.0f};
  const auto number = [&] { return random() % 5 ? between(random) : odd[random() % 4]; };
  for (int i = 0; i < 20000; ++i) {
    PreviewSurface s;
    s.diffuseColor = {number(), number(), number()};
    s.emissiveColor = {number(), number(), number()};
    s.specularColor = {number(), number(), number()};
    s.isSpecularWorkflow = i % 2;
    s.metallic = number();
    s.roughness = number();
    s.clearcoat = number();
    s.clearcoatRoughness = number();
    s.ior = number();
    s.sanitise();
    const auto direction = [&] {
      return Vec3f(between(random), between(random), between(random)).normalized();
    };
    const Vec3f sum = respond(s, kUp, direction(), direction()).sum();
    for (std::size_t c = 0; c < 3; ++c) ASSERT_TRUE(std::isfinite(sum[c]));
    ASSERT_TRUE(s.emissiveColor.x >= 0.0f && std::isfinite(s.emissiveColor.x));
    ASSERT_TRUE(s.ior >= 1.0f && std::isfinite(s.ior));
  }
}

TEST(PreviewResponse, SampledReflectionsAddUpToWhatReflects) {
  // The integral of the specular response over the half sphere, by directions spread evenly and by
  // sampled ones.
  PreviewSurface rough, coated;
  rough.roughness = 0.4f;
  rough.metallic = 1.0f;
  rough.diffuseColor = {0.9f, 0.6f, 0.3f};
  coated.roughness = 0.6f;
  coated.clearcoat = 0.8f;
  coated.clearcoatRoughness = 0.3f;
  std::mt19937 random(7);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (const PreviewSurface& surface : {rough, coated}) {
    double even[3] = {}, sampled[3] = {};
    constexpr int kCount = 400000;
    for (int i = 0; i < kCount; ++i) {
      const float z = unit(random), angle = 6.2831853f * unit(random);
      const float r = std::sqrt(1.0f - z * z);
      const Vec3f one =
          respond(surface, kUp, {r * std::cos(angle), r * std::sin(angle), z}, kLeft45).specular;
      const Vec3f other = vela::look::sampleReflection(surface, kUp, kLeft45, unit(random),
                                                       unit(random), i % 2 == 1)
                              .weight;
      for (std::size_t c = 0; c < 3; ++c) {
        even[c] += static_cast<double>(one[c]) * 6.283185307 / kCount;
        sampled[c] += static_cast<double>(other[c]) / kCount;
      }
    }
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(sampled[c] / even[c], 1.0, 0.02);
  }
}

TEST(PreviewResponse, AMattSurfaceSendsOnWhatItsColourSays) {
  // Over the half sphere, of a surface without reflections: the integral is the colour itself.
  PreviewSurface surface;
  surface.isSpecularWorkflow = true;
  surface.diffuseColor = {0.5f, 0.25f, 1.0f};
  std::mt19937 random(5);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  double sum[3] = {};
  constexpr int kCount = 200000;
  for (int i = 0; i < kCount; ++i) {
    const float z = unit(random), angle = 6.2831853f * unit(random);
    const float r = std::sqrt(1.0f - z * z);
    const auto found =
        respond(surface, kUp, {r * std::cos(angle), r * std::sin(angle), z}, kUp).diffuse;
    for (std::size_t c = 0; c < 3; ++c)
      sum[c] += static_cast<double>(found[c]) * 6.283185307 / kCount;
  }
  // At the edge Fresnel takes something of it: with f the fifth power the loss is a few per cent.
  EXPECT_NEAR(sum[0] / 0.5, sum[2], 1e-3);
  EXPECT_NEAR(sum[2], 0.99, 0.02);
}

TEST(PreviewResponse, ReflectionsOfLightWithASizeAreThoseOfTheResponse) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> number(0.0f, 1.0f);
  for (const float coat : {0.0f, 0.7f})
    for (const bool isSpecular : {false, true}) {
      PreviewSurface surface;
      surface.roughness = 0.4f;
      surface.metallic = 0.3f;
      surface.specularColor = {0.2f, 0.3f, 0.4f};
      surface.isSpecularWorkflow = isSpecular;
      surface.clearcoat = coat;
      surface.clearcoatRoughness = 0.2f;
      int seen = 0;
      for (int i = 0; i < 500; ++i) {
        const Vec3f toViewer = Vec3f(number(random), number(random), 0.3f).normalized();
        const auto choice = vela::look::chooseReflection(surface, kUp, toViewer, number(random),
                                                         number(random), i % 2 == 0);
        if (!(choice.density > 0.0f)) continue;
        ++seen;
        const Vec3f expected = respond(surface, kUp, choice.toLight, toViewer).specular;
        for (std::size_t c = 0; c < 3; ++c)
          EXPECT_NEAR(choice.specular[c], expected[c], 1e-3f * expected[c]);
      }
      EXPECT_GT(seen, 300);
      const auto behind = vela::look::reflectionTowards(surface, kUp, -kUp, kUp);
      EXPECT_EQ(behind.specular, Vec3f(0.0f));
      EXPECT_EQ(behind.density, 0.0f);
    }
}

TEST(PreviewResponse, AMetalMirrorsAllOfAWhiteWorldHoweverSmoothItIs) {
  // The mean of the response over its density is what it reflects of the same light from
  // everywhere; a mirror all of it.
  for (const float roughness : {0.0f, 0.005f, 0.02f, 0.05f, 0.1f}) {
    PreviewSurface surface;
    surface.diffuseColor = Vec3f(1.0f);
    surface.metallic = 1.0f;
    surface.roughness = roughness;
    double sum = 0.0;
    const int n = 200;
    const Vec3f toViewer = Vec3f(0.5f, 0.2f, 0.8f).normalized();
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) {
        const auto choice =
            vela::look::chooseReflection(surface, kUp, toViewer, (static_cast<float>(i) + 0.5f) / n,
                                         (static_cast<float>(j) + 0.5f) / n, false);
        if (choice.density > 0.0f)
          sum += static_cast<double>(choice.specular.x / choice.density) / (n * n);
      }
    EXPECT_NEAR(sum, 1.0, 0.01) << roughness;
  }
}

}  // namespace
