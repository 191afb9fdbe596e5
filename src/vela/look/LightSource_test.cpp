// Lights as the scene has them, and the light that arrives from them.
#include "vela/look/LightSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>

#include <nlohmann/json.hpp>

#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "ovo/Xform.h"
#include "support/SharedData.h"
#include "support/TextStage.h"

namespace {

using namespace vela::look;
using tarn::Mat4d;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

constexpr double kPi = 3.14159265358979323846;
const Vec3f kUp(0.0f, 0.0f, 1.0f);

LightSource lightOf(const std::string& type, const std::string& more,
                    const Mat4d& worldFromLight = Mat4d()) {
  static std::shared_ptr<ovo::Stage> stage;  // files that lights name belong to it
  stage = vela_test::stageOf("def " + type + " \"L\"\n{\n" + more + "\n}\n");
  const auto light = readLight(stage->getPrimAtPath("/L"), worldFromLight);
  EXPECT_TRUE(light) << type;
  return light.value_or(LightSource());
}

Mat4d placed(double x, double y, double z) {
  Mat4d m;
  m.translate(x, y, z);
  return m;
}

// The light on a square unit at a point, by many samples of a grid: the mean of radiance times
// cosine over density.
double irradiance(const LightSource& light, const Vec3d& point, const Vec3f& normal = kUp,
                  int side = 400) {
  double sum = 0.0;
  for (int i = 0; i < side; ++i)
    for (int j = 0; j < side; ++j) {
      const LightSample s = sampleLight(light, point, normal, (i + 0.5) / side, (j + 0.5) / side);
      const auto facing = static_cast<double>(dot(s.toLight, normal));
      if (!(s.radiance.x > 0.0f) || facing <= 0.0) continue;
      const double density = s.density > 0.0 ? s.density : 1.0;
      sum += static_cast<double>(s.radiance.x) * facing / density;
    }
  return sum / (static_cast<double>(side) * side);
}

// The same by looking into evenly spread directions, which knows nothing of how places are chosen.
double irradianceByDirections(const LightSource& light, const Vec3d& point,
                              const Vec3f& normal = kUp, int side = 900) {
  double sum = 0.0;
  for (int i = 0; i < side; ++i)
    for (int j = 0; j < side; ++j) {
      const double z = 2.0 * (i + 0.5) / side - 1.0, s = std::sqrt(1.0 - z * z);
      const double turn = 2.0 * kPi * (j + 0.5) / side;
      const Vec3f direction(Vec3d(s * std::cos(turn), s * std::sin(turn), z));
      const double facing = dot(direction, normal);
      if (facing <= 0.0) continue;
      sum += static_cast<double>(meetLight(light, point, normal, direction).radiance.x) * facing;
    }
  return sum * 4.0 * kPi / (static_cast<double>(side) * side);
}

void expectShare(double found, double expected, double share, const char* what) {
  EXPECT_NEAR(found, expected, share * expected) << what;
}

TEST(LightSource, PowerAndSizeAreThoseOfTheLibrary) {
  requireSharedData("usd/oracle-materials/own.json");
  std::ifstream in(vela_test::sharedDataPath("usd/oracle-materials/own.json"));
  const nlohmann::json oracle = nlohmann::json::parse(in);
  const auto stage = ovo::Stage::open(vela_test::sharedDataPath("usd/materials/16_lights.usda"));
  ovo::XformCache xforms;
  int checked = 0;
  for (const auto& wanted : oracle["scenes"]["materials/16_lights.usda"]["lights"]) {
    const std::string path = wanted["path"];
    const ovo::Prim prim = stage->getPrimAtPath(ovo::Path(path));
    const auto light = readLight(prim, xforms.getLocalToWorld(prim));
    const std::string type = wanted["type"];
    const bool isShown =
        type != "Sphere" && type != "Mesh" && type != "PortalLight" && type != "GeometryLight";
    ASSERT_EQ(light.has_value(), isShown) << path;
    if (!light) continue;
    EXPECT_TRUE(light->defects.empty()) << path;
    ++checked;
    // What is thin has other units than radiance.
    const double factor = path.find("/Point") != std::string::npos ? kPi * 0.25 : 1.0;
    for (std::size_t c = 0; c < 3; ++c) {
      const double emission = wanted["emission"][c];
      // Colours of temperatures are within 3e-3 of white's.
      const double brightest =
          *std::max_element(wanted["emission"].begin(), wanted["emission"].end());
      const double close =
          wanted.contains("temperatureColour") ? 3e-3 * brightest : 1e-6 * emission;
      EXPECT_NEAR(static_cast<double>(light->radiance[c]), emission * factor, close * factor)
          << path;
    }
    const auto& inputs = wanted["inputs"];
    EXPECT_FLOAT_EQ(light->diffuse, inputs["diffuse"]) << path;
    EXPECT_FLOAT_EQ(light->specular, inputs["specular"]) << path;
    EXPECT_EQ(light->isShaped, inputs.contains("shaping:cone:angle")) << path;
    EXPECT_EQ(light->texture.written.empty(),
              !inputs.contains("texture:file") || inputs["texture:file"].is_null())
        << path;
    if (wanted.contains("poleAxis")) {
      EXPECT_EQ(light->isPoleZ, wanted["poleAxis"] == "Z") << path;
    }
  }
  EXPECT_EQ(checked, 19);
}

TEST(LightSource, ColoursOfTemperatures) {
  // Held against values that were computed from the spectra.
  const std::map<float, Vec3f> expected = {{3000.0f, {1.771f, 0.844f, 0.272f}},
                                           {6500.0f, {1.043f, 0.984f, 1.035f}},
                                           {10000.0f, {0.872f, 0.995f, 1.430f}}};
  for (const auto& [kelvin, colour] : expected)
    for (std::size_t c = 0; c < 3; ++c)
      EXPECT_NEAR(blackBodyColour(kelvin)[c], colour[c], 3e-3f) << kelvin;
  for (float kelvin = 500.0f; kelvin < 20000.0f; kelvin += 250.0f) {
    const Vec3f c = blackBodyColour(kelvin);
    EXPECT_NEAR(0.2126f * c.x + 0.7152f * c.y + 0.0722f * c.z, 1.0f, 1e-5f) << kelvin;
    EXPECT_GE(c.z, 0.0f);
  }
  EXPECT_EQ(blackBodyColour(1.0f), blackBodyColour(1000.0f));
  EXPECT_EQ(blackBodyColour(1e9f), blackBodyColour(10000.0f));
  EXPECT_EQ(blackBodyColour(std::nanf("")), blackBodyColour(6500.0f));
}

TEST(LightSource, ASphereLightsAsFarAsItIsSeen) {
  // pi L (r / d)^2, straight above and at an angle.
  const LightSource ball = lightOf(
      "SphereLight", "float inputs:radius = 0.5\nfloat inputs:intensity = 7", placed(0, 0, 2));
  expectShare(irradiance(ball, {}), 7 * kPi / 16, 1e-4, "above");
  expectShare(irradiance(ball, {2, 0, 0}), 7 * kPi / 32 * std::sqrt(0.5), 1e-4, "beside");
  // Nothing within: its outside shines.
  EXPECT_EQ(irradiance(ball, {0.1, 0, 2}), 0.0);
  // Stretched, it is no longer a cone: an ellipsoid seen end on is a disk of the two other axes.
  Mat4d stretched = placed(0, 0, 8);
  stretched.scale(2.0, 2.0, 1.0);
  LightSource egg = ball;
  egg.worldFromLight = stretched;
  // The cone that touches it has the tangent a^2 / (d^2 - c^2), squared.
  const double tangent2 = 1.0 / (64.0 - 0.25);
  expectShare(irradiance(egg, {}), 7 * kPi * tangent2 / (1 + tangent2), 1e-4, "stretched");
}

TEST(LightSource, FlatLightsShineToOneSide) {
  // A disk above its middle: pi L sin^2 of the half angle. A rectangle: by its corners, four times
  // that of one quarter (Hottel and Sarofim).
  const LightSource disk =
      lightOf("DiskLight", "float inputs:radius = 2\nfloat inputs:intensity = 3", placed(0, 0, 4));
  expectShare(irradiance(disk, {}), 3 * kPi * 4.0 / 20.0, 1e-4, "disk");
  EXPECT_EQ(irradiance(disk, {0, 0, 5}, -kUp), 0.0);
  const LightSource rect = lightOf(
      "RectLight", "float inputs:width = 2\nfloat inputs:height = 4\nfloat inputs:intensity = 5",
      placed(0, 0, 2));
  const auto quarter = [](double a, double b) {
    return 0.5 * (a / std::sqrt(1 + a * a) * std::atan(b / std::sqrt(1 + a * a)) +
                  b / std::sqrt(1 + b * b) * std::atan(a / std::sqrt(1 + b * b)));
  };
  expectShare(irradiance(rect, {}), 5 * 4 * quarter(0.5, 1.0), 1e-4, "rectangle");
  EXPECT_EQ(irradiance(rect, {0, 0, 3}, -kUp), 0.0);
  // Far off: L area / d^2, whatever the shape; turned away, with the cosine of the turn.
  expectShare(irradiance(rect, {0, 0, -98}), 5 * 8 / 1e4, 2e-3, "far");
  Mat4d turned = placed(0, 0, 100);
  turned.rotateY(kPi / 3);
  LightSource away = rect;
  away.worldFromLight = turned;
  expectShare(irradiance(away, {}), 5 * 8 / 1e4 * 0.5, 5e-3, "turned");
  // A mirrored transform turns no side round.
  Mat4d mirrored = placed(0, 0, 2);
  mirrored.scale(-1.0, 1.0, 1.0);
  away.worldFromLight = mirrored;
  expectShare(irradiance(away, {}), irradiance(rect, {}), 1e-6, "mirrored");
}

TEST(LightSource, ACylinderShinesFromItsRoundSide) {
  const LightSource tube = lightOf(
      "CylinderLight", "float inputs:length = 3\nfloat inputs:radius = 0.5", placed(0, 0, 2));
  for (const Vec3d& point : {Vec3d(), Vec3d(1, 1, 0), Vec3d(3, 0.5, 0)})
    expectShare(irradiance(tube, point), irradianceByDirections(tube, point), 5e-3, "tube");
  // Far off: the shadow of its side, 2 r l.
  expectShare(irradiance(tube, {0, 0, -198}), 2 * 0.5 * 3 / 4e4, 2e-3, "far");
  // A line of the same power.
  const LightSource line = lightOf(
      "CylinderLight", "float inputs:length = 3\nfloat inputs:radius = 0.5\nbool treatAsLine = 1",
      placed(0, 0, 2));
  EXPECT_TRUE(line.isThin);
  expectShare(irradiance(line, {0, 0, -198}), 2 * 0.5 * 3 / 4e4, 2e-3, "line");
}

TEST(LightSource, DistantLightsAndDomes) {
  // The sun of the schema's defaults: white paper of albedo 1 has 3.36 / pi.
  const LightSource sun = lightOf("DistantLight", "");
  expectShare(irradiance(sun, {}), 3.36, 1e-3, "sun");
  for (const double angle : {0.01, 1.0, 40.0, 180.0}) {
    LightSource wide = sun;
    wide.radiance = Vec3f(1.0f);
    wide.angle = static_cast<float>(angle);
    const double sine = std::sin(angle * kPi / 360);
    expectShare(irradiance(wide, {}), kPi * sine * sine, 1e-4, "distant");
  }
  const LightSource parallel =
      lightOf("DistantLight", "float inputs:angle = 0\nfloat inputs:intensity = 2");
  EXPECT_TRUE(parallel.isThin);
  expectShare(irradiance(parallel, {}), 2.0, 1e-6, "parallel");
  const LightSource dome = lightOf("DomeLight", "float inputs:intensity = 0.5");
  expectShare(irradiance(dome, {}), 0.5 * kPi, 1e-6, "dome");
}

TEST(LightSource, NormalisedPowerDoesNotHangOnTheSize) {
  const std::string normal = "bool inputs:normalize = 1\n";
  const double far2 = 1e10;
  Mat4d scaled = placed(0, 0, 1e5);
  scaled.scale(3.0, 2.0, 5.0);
  // Far off a flat light has L area / d^2, and a sphere a quarter of its area.
  expectShare(irradiance(lightOf("RectLight", normal + "float inputs:width = 3", scaled), {}),
              1 / far2, 1e-3, "rect");
  expectShare(irradiance(lightOf("DiskLight", normal + "float inputs:radius = 3", scaled), {}),
              1 / far2, 1e-3, "disk");
  for (const double scale : {1.0, 7.0}) {
    Mat4d round = placed(0, 0, 1e5);
    round.scale(scale, scale, scale);
    expectShare(irradiance(lightOf("SphereLight", normal, round), {}), 0.25 / far2, 1e-3, "sphere");
    expectShare(irradiance(lightOf("CylinderLight", normal, round), {}), 1 / (kPi * far2), 1e-3,
                "tube");
    expectShare(irradiance(lightOf("CylinderLight", normal + "bool treatAsLine = 1", round), {}),
                1 / (kPi * far2), 1e-3, "line");
    expectShare(irradiance(lightOf("SphereLight", normal + "bool treatAsPoint = 1", round), {}),
                0.25 / far2, 1e-6, "point");
  }
  // A point needs no size to be normalised.
  expectShare(
      irradiance(lightOf("SphereLight", normal + "float inputs:radius = 0", placed(0, 0, 1)), {}),
      0.25, 1e-6, "no size");
  for (const double angle : {0.0, 0.5, 90.0, 180.0})
    expectShare(irradiance(lightOf("DistantLight", normal +
                                                       "float inputs:intensity = 1\n"
                                                       "float inputs:angle = " +
                                                       std::to_string(angle)),
                           {}),
                1.0, 1e-4, "distant");
  // The areas of a sphere and of an ellipsoid.
  EXPECT_NEAR(lightOf("SphereLight", "", placed(0, 0, 0)).worldArea(), kPi, 1e-9);
  LightSource egg = lightOf("SphereLight", "float inputs:radius = 1");
  egg.worldFromLight.scale(1.0, 1.0, 2.0);
  const double e = std::sqrt(0.75);
  expectShare(egg.worldArea(), 2 * kPi * (1 + 2 / e * std::asin(e)), 1e-3, "egg");
}

TEST(LightSource, ShapingByConeSoftnessAndFocus) {
  const LightSource spot = lightOf("SphereLight",
                                   "float inputs:shaping:cone:angle = 25\n"
                                   "float inputs:shaping:cone:softness = 0.2\n"
                                   "float inputs:shaping:focus = 4\n"
                                   "color3f inputs:shaping:focusTint = (0.1, 0, 0)");
  EXPECT_TRUE(spot.isShaped);
  const auto at = [&](double degrees) {
    const double t = degrees * kPi / 180;
    return spot.shapingTowards({std::sin(t), 0.0, -std::cos(t)});
  };
  EXPECT_EQ(at(0), Vec3f(1.0f));
  EXPECT_EQ(at(25.1), Vec3f(0.0f));
  EXPECT_EQ(at(180), Vec3f(0.0f));
  // Before it fades: the tint takes what the focus does not have.
  const double focus = std::pow(std::cos(10 * kPi / 180), 4.0);
  EXPECT_NEAR(static_cast<double>(at(10).y), focus, 1e-5);
  EXPECT_NEAR(static_cast<double>(at(10).x), focus + 0.1 * (1 - focus), 1e-5);
  // Half way between 20 and 25 degrees a half is left.
  EXPECT_NEAR(static_cast<double>(at(22.5).y), 0.5 * std::pow(std::cos(22.5 * kPi / 180), 4.0),
              1e-4);
  // Applied without a word it has the cone of 90 degrees; of domes it is not asked.
  const LightSource half = lightOf("SphereLight", "float inputs:shaping:focus = 0");
  EXPECT_EQ(half.shapingTowards({0, 0, 1}), Vec3f(0.0f));
  EXPECT_EQ(lightOf("SphereLight", "").shapingTowards({0, 0, 1}), Vec3f(1.0f));
  EXPECT_FALSE(lightOf("DomeLight", "float inputs:shaping:focus = 3").isShaped);
  // The transform turns the axis.
  LightSource turned = spot;
  turned.worldFromLight.rotateY(kPi / 2);
  EXPECT_EQ(turned.shapingTowards({-1, 0, 0}), Vec3f(1.0f));
}

TEST(LightSource, BothWaysToALightKnowTheSameDensity) {
  // Where sampleLight goes meetLight meets the light, as bright and as likely.
  std::mt19937 random(5);
  std::uniform_real_distribution<double> number(0.0, 1.0);
  const std::string shaped = "float inputs:shaping:focus = 2\n";
  Mat4d odd = placed(0.3, -0.2, 3);
  odd.rotateY(0.4);
  odd.scale(2.0, -1.0, 0.5);
  Mat4d even = placed(0.3, -0.2, 3);
  for (const char* type :
       {"SphereLight", "RectLight", "DiskLight", "CylinderLight", "DistantLight", "DomeLight"})
    for (const Mat4d& place : {odd, even}) {
      const LightSource light = lightOf(type, shaped, place);
      int met = 0;
      for (int i = 0; i < 200; ++i) {
        const Vec3d point(number(random), number(random), number(random));
        const LightSample s = sampleLight(light, point, kUp, number(random), number(random));
        if (!(s.radiance.x > 0.0f)) continue;
        const LightSample m = meetLight(light, point, kUp, s.toLight);
        // Single precision may have the direction pass the rim by.
        if (!(m.radiance.x > 0.0f)) continue;
        ++met;
        EXPECT_NEAR(m.density / s.density, 1.0, 2e-2) << type;
        EXPECT_NEAR(static_cast<double>(m.radiance.x / s.radiance.x), 1.0, 1e-3) << type;
        if (std::isfinite(s.distance)) {
          EXPECT_NEAR(m.distance / s.distance, 1.0, 1e-2) << type;
        }
      }
      EXPECT_GT(met, 60) << type;
    }
}

TEST(LightSource, DensitiesAddUpToOne) {
  Mat4d odd = placed(0.3, -0.2, 2);
  odd.scale(1.5, 1.0, 0.7);
  for (const char* type : {"SphereLight", "RectLight", "DiskLight", "CylinderLight", "DomeLight"}) {
    const LightSource light = lightOf(type, "", odd);
    double sum = 0.0;
    const int side = 900;
    for (int i = 0; i < side; ++i)
      for (int j = 0; j < side; ++j) {
        const double z = 2.0 * (i + 0.5) / side - 1.0, s = std::sqrt(1.0 - z * z);
        const double turn = 2.0 * kPi * (j + 0.5) / side;
        sum += meetLight(light, {}, kUp, Vec3f(Vec3d(s * std::cos(turn), s * std::sin(turn), z)))
                   .density;
      }
    sum *= 4.0 * kPi / (static_cast<double>(side) * side);
    // Half of a closed body is turned away: what is chosen there brings nothing.
    const bool isClosed =
        std::string(type) == "SphereLight" || std::string(type) == "CylinderLight";
    EXPECT_LE(sum, 1.01) << type;
    EXPECT_GE(sum, isClosed ? 0.2 : 0.98) << type;
  }
}

TEST(LightSource, DomesPutTheMiddleOfTheirImageOnZ) {
  const LightSource dome = lightOf("DomeLight", "");
  const auto at = [](const LightSource& light, const Vec3d& direction) {
    return domeCoordinates(light, direction);
  };
  const auto expectAt = [](const Vec2f& found, double u, double v) {
    EXPECT_NEAR(static_cast<double>(found.x), u, 1e-6);
    EXPECT_NEAR(static_cast<double>(found.y), v, 1e-6);
  };
  expectAt(at(dome, {0, 0, 1}), 0.5, 0.5);
  expectAt(at(dome, {1, 0, 0}), 0.25, 0.5);
  EXPECT_NEAR(at(dome, {0, 1, 0}).y, 1.0f, 1e-6f);
  // By its pole: of z the middle is -y.
  LightSource upright = dome;
  upright.isPoleZ = true;
  expectAt(at(upright, {0, -1, 0}), 0.5, 0.5);
  expectAt(at(upright, {1, 0, 0}), 0.25, 0.5);
  EXPECT_NEAR(at(upright, {0, 0, 1}).y, 1.0f, 1e-6f);
  // Turned, and mirrored with a scale, it comes back from where it went.
  upright.worldFromLight.rotateY(0.7);
  upright.worldFromLight.scale(-3.0, 2.0, 1.0);
  for (const LightSource& light : {dome, upright})
    for (const Vec2d& point : {Vec2d(0.1, 0.2), Vec2d(0.6, 0.9), Vec2d(0.99, 0.5)})
      expectAt(at(light, domeDirection(light, point)), point.x, point.y);
  // The newer type says which axis its pole is.
  const auto pole = [](const std::string& up, const std::string& axis) {
    const auto stage = vela_test::stageOf("( upAxis = \"" + up +
                                          "\" )\ndef DomeLight_1 \"L\"\n{\n" + axis + "}\n");
    return readLight(stage->getPrimAtPath("/L"), Mat4d())->isPoleZ;
  };
  EXPECT_FALSE(pole("Y", ""));
  EXPECT_TRUE(pole("Z", ""));
  EXPECT_FALSE(pole("Z", "uniform token poleAxis = \"Y\"\n"));
  EXPECT_TRUE(pole("Y", "uniform token poleAxis = \"Z\"\n"));
}

TEST(LightSource, WhatIsNotFiniteCountsAsTheDefaultAndIsTold) {
  using Defects = std::vector<std::string>;
  const LightSource nan =
      lightOf("SphereLight", "float inputs:intensity = nan\nfloat inputs:radius = inf");
  EXPECT_EQ(nan.radiance, Vec3f(1.0f));
  EXPECT_EQ(nan.radius, 0.5f);
  EXPECT_EQ(nan.defects, (Defects{"radius is not finite", "intensity is not finite"}));
  EXPECT_EQ(lightOf("DistantLight", "float inputs:intensity = inf").radiance, Vec3f(50000.0f));
  // Too much for a number, and a size of nothing to divide by.
  const LightSource huge = lightOf("SphereLight", "float inputs:exposure = 1000");
  EXPECT_EQ(huge.radiance, Vec3f(0.0f));
  EXPECT_EQ(huge.defects, Defects{"its power is not finite"});
  EXPECT_EQ(lightOf("RectLight", "float inputs:width = 0\nbool inputs:normalize = 1").radiance,
            Vec3f(0.0f));
  EXPECT_EQ(lightOf("RectLight", "color3f inputs:color = (-1, 1, nan)").radiance, Vec3f(1.0f));
  EXPECT_EQ(lightOf("RectLight", "float inputs:intensity = -2").radiance, Vec3f(0.0f));
  Mat4d flat;
  flat.scale(0.0, 1.0, 1.0);
  for (const char* type :
       {"SphereLight", "RectLight", "DiskLight", "CylinderLight", "DistantLight", "DomeLight"}) {
    const LightSource light = lightOf(type, "", flat);
    const double arrives = irradiance(light, {0.1, 0.2, -1}, kUp, 50);
    EXPECT_TRUE(std::isfinite(arrives)) << type;
  }
  Mat4d broken;
  broken[12] = std::numeric_limits<double>::quiet_NaN();
  const LightSource nowhere = lightOf("RectLight", "", broken);
  EXPECT_EQ(nowhere.radiance, Vec3f(0.0f));
  EXPECT_EQ(nowhere.defects, Defects{"its transform is not finite"});
}

TEST(LightSource, InputsComeThroughConnectionsWithoutGoingInCircles) {
  const auto stage = vela_test::stageOf(
      "def Material \"Tint\"\n{\n color3f inputs:a = (0.1, 0.2, 0.3)\n"
      " float inputs:round.connect = </Tint.inputs:round>\n}\n"
      "def SphereLight \"L\"\n{\n color3f inputs:color = (1, 0, 0)\n"
      " color3f inputs:color.connect = </Tint.inputs:a>\n float inputs:intensity = 2\n"
      " float inputs:intensity.connect = </Tint.inputs:round>\n"
      " float inputs:exposure.connect = </Gone.inputs:x>\n}\n");
  const auto light = readLight(stage->getPrimAtPath("/L"), Mat4d());
  EXPECT_EQ(light->radiance, Vec3f(0.2f, 0.4f, 0.6f));
  EXPECT_FALSE(readLight(stage->getPrimAtPath("/Tint"), Mat4d()));
}

}  // namespace
