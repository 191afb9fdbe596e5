#include "ovo/Attribute.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <vector>

#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::Array;
using ovo::Attribute;
using ovo::Token;
using ovo::Value;
using ovo_test::sceneOf;
using tarn::earliestTimeValue;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using tarn::Vec3i;
using tarn::Vec4d;
using tarn::Vec4f;

Attribute attributeOf(const std::string& declaration) {
  const auto stage = sceneOf("def \"A\" {\n" + declaration + "\n}\n");
  const auto names = stage->getPrimAtPath("/A").getAttrNames();
  return names.empty() ? Attribute() : stage->getPrimAtPath("/A").getAttr(names[0]);
}

template <class T>
T valueAt(const Attribute& attribute, double time) {
  T value{};
  EXPECT_TRUE(attribute.get(value, time)) << attribute.name() << " at " << time;
  return value;
}

TEST(Attribute, OneOfNothingIsNotValidAndFails) {
  const Attribute none;
  float value = 3;
  EXPECT_FALSE(none.isValid() || none.get(value) || none.getAuthored(value) || none.set(1.0f) ||
               none.block() || none.clear());
  EXPECT_EQ(value, 3);
  EXPECT_FALSE(none.hasTimeSamples() || none.mightBeTimeVarying() || none.hasAuthoredValue() ||
               none.isArray());
  EXPECT_TRUE(none.timeSamples().empty());
  EXPECT_EQ(none.typeName(), Token());
  EXPECT_EQ(none.valueType(), Value::none);
}

TEST(Attribute, DefaultTimeGivesTheDefaultElseTheFirstSample) {
  const Attribute both = attributeOf("float f = 5\nfloat f.timeSamples = {1: 10, 3: 30}");
  EXPECT_EQ(valueAt<float>(both, tarn::defaultTimeValue()), 5.0f);
  EXPECT_EQ(valueAt<float>(both, 2.0), 20.0f);
  const Attribute samples = attributeOf("float f.timeSamples = {1: 10, 3: 30}");
  EXPECT_EQ(valueAt<float>(samples, tarn::defaultTimeValue()), 10.0f);
  EXPECT_EQ(valueAt<float>(samples, earliestTimeValue()), 10.0f);
  float value = -1;
  EXPECT_FALSE(samples.getAuthored(value));
  EXPECT_EQ(value, -1);
  EXPECT_TRUE(samples.getAuthored(value, 3.0));
  EXPECT_EQ(value, 30);
}

TEST(Attribute, SamplesAreHeldOutsideAndMixedBetween) {
  const Attribute f = attributeOf("float f.timeSamples = {-1: 0, 1: 1, 2: 0.25}");
  EXPECT_EQ(valueAt<float>(f, -100), 0.0f);
  EXPECT_EQ(valueAt<float>(f, 0), 0.5f);
  EXPECT_EQ(valueAt<float>(f, 1.75), 0.4375f);
  EXPECT_EQ(valueAt<float>(f, 100), 0.25f);
  EXPECT_EQ(f.timeSamples(), (std::vector<double>{-1, 1, 2}));
  EXPECT_TRUE(f.hasTimeSamples() && f.mightBeTimeVarying());
  const Attribute one = attributeOf("float f.timeSamples = {1: 1}");
  EXPECT_TRUE(one.hasTimeSamples() && !one.mightBeTimeVarying());
}

TEST(Attribute, OnlyFloatingPointIsMixed) {
  EXPECT_EQ(valueAt<int>(attributeOf("int i.timeSamples = {0: 1, 10: 11}"), 9.9), 1);
  EXPECT_EQ(valueAt<bool>(attributeOf("bool b.timeSamples = {0: 1, 10: 0}"), 9.9), true);
  EXPECT_EQ(valueAt<Token>(attributeOf("token t.timeSamples = {0: \"a\", 10: \"b\"}"), 9.9),
            Token("a"));
  EXPECT_EQ(valueAt<Vec3i>(attributeOf("int3 v.timeSamples = {0: (1, 2, 3), 10: (5, 6, 7)}"), 9.9),
            Vec3i(1, 2, 3));
  EXPECT_EQ(valueAt<Array<int>>(attributeOf("int[] v.timeSamples = {0: [1], 10: [5]}"), 9.9),
            Array<int>({1}));
  EXPECT_EQ(valueAt<Vec3d>(attributeOf("double3 v.timeSamples = {0: (0, 2, 4), 2: (1, 4, 8)}"), 1),
            Vec3d(0.5, 3, 6));
  EXPECT_EQ(valueAt<Array<Vec3f>>(
                attributeOf("point3f[] v.timeSamples = {0: [(0, 2, 4)], 2: [(1, 4, 8)]}"), 1),
            (Array<Vec3f>{{0.5f, 3, 6}}));
  const auto matrix = valueAt<tarn::Mat4d>(
      attributeOf("matrix4d m.timeSamples = {0: ((1,0,0,0),(0,1,0,0),(0,0,1,0),(0,0,0,1)), 2: "
                  "((3,0,0,0),(0,1,0,0),(0,0,1,0),(4,0,0,1))}"),
      1);
  EXPECT_EQ(matrix[0], 2.0);
  EXPECT_EQ(matrix[12], 2.0);
}

TEST(Attribute, ArraysOfUnequalSizeAreHeld) {
  const Attribute a = attributeOf("float[] v.timeSamples = {0: [1, 2], 2: [5]}");
  EXPECT_EQ(valueAt<Array<float>>(a, 1), (Array<float>{1, 2}));
  EXPECT_EQ(valueAt<Array<float>>(a, 2), (Array<float>{5}));
}

TEST(Attribute, QuaternionsTurnAtAConstantRateAndHaveTheRealPartLast) {
  const Attribute q = attributeOf("quatd q.timeSamples = {0: (1, 0, 0, 0), 2: (0, 0, 0, 1)}");
  const auto half = valueAt<Vec4d>(q, 1);
  EXPECT_NEAR(half.w, std::sqrt(0.5), 1e-12);
  EXPECT_NEAR(half.z, std::sqrt(0.5), 1e-12);
  EXPECT_EQ(valueAt<Vec4d>(attributeOf("quatd q = (1, 2, 3, 4)"), 0), Vec4d(2, 3, 4, 1));
  EXPECT_EQ(valueAt<Array<Vec4f>>(attributeOf("quath[] q = [(1, 2, 3, 4)]"), 0),
            (Array<Vec4f>{{2, 3, 4, 1}}));
}

TEST(Attribute, BlocksHideValues) {
  float value = -1;
  const Attribute whole = attributeOf("float f = None");
  EXPECT_TRUE(whole.isValid());
  EXPECT_FALSE(whole.hasAuthoredValue() || whole.get(value) || whole.get(value, 1.0));
  const Attribute gap = attributeOf("float f.timeSamples = {1: 1, 2: None, 3: 3}");
  EXPECT_EQ(valueAt<float>(gap, 1.5), 1.0f) << "the next sample is a block, so this one is held";
  EXPECT_FALSE(gap.get(value, 2.0) || gap.get(value, 2.5));
  EXPECT_EQ(valueAt<float>(gap, 3.0), 3.0f);
  EXPECT_EQ(value, -1);
}

TEST(Attribute, ABlockLetsTheFallbackThroughButNotAmongSamples) {
  const auto stage = sceneOf(
      "def Sphere \"A\" { double radius = None }\ndef Sphere \"B\" { double radius.timeSamples = "
      "{1: 4, 2: None} }");
  double radius = 0;
  EXPECT_TRUE(stage->getPrimAtPath("/A").getAttr("radius").get(radius));
  EXPECT_EQ(radius, 1.0);
  EXPECT_TRUE(stage->getPrimAtPath("/B").getAttr("radius").get(radius, 1));
  EXPECT_EQ(radius, 4.0);
  EXPECT_FALSE(stage->getPrimAtPath("/B").getAttr("radius").get(radius, 2));
  EXPECT_TRUE(stage->getPrimAtPath("/B").getAttr("radius").getAuthored(radius))
      << "no default value: the fallback";
  EXPECT_EQ(radius, 1.0);
}

TEST(Attribute, AStrongDefaultHidesWeakerSamples) {
  const auto stage = sceneOf(
      "def \"Weak\" { float f.timeSamples = {1: 1, 2: 2} }\ndef \"A\" (references = </Weak>) { "
      "float f = 7 }");
  EXPECT_EQ(valueAt<float>(stage->getPrimAtPath("/A").getAttr("f"), 1.5), 7.0f);
  EXPECT_FALSE(stage->getPrimAtPath("/A").getAttr("f").hasTimeSamples());
}

TEST(Attribute, OffsetsMoveSamplesAndTimeCodes) {
  ovo_test::TemporaryFolder folder;
  folder.writeScene("part.usda",
                    "#usda 1.0\ndef \"P\" { float f.timeSamples = {0: 0, 10: 10}\n timecode t = "
                    "5\n timecode[] ts = [1, 2] }\n");
  const auto stage = ovo::Stage::open(folder.writeScene(
      "root.usda",
      "#usda 1.0\ndef \"A\" (references = @./part.usda@</P> (offset = 100; scale = 2)) {}\n"));
  ASSERT_NE(stage, nullptr);
  const auto prim = stage->getPrimAtPath("/A");
  EXPECT_EQ(prim.getAttr("f").timeSamples(), (std::vector<double>{100, 120}));
  EXPECT_EQ(valueAt<float>(prim.getAttr("f"), 110), 5.0f);
  EXPECT_EQ(valueAt<float>(prim.getAttr("f"), earliestTimeValue()), 0.0f);
  EXPECT_EQ(valueAt<double>(prim.getAttr("t"), 0), 110.0);
  EXPECT_EQ(valueAt<Array<double>>(prim.getAttr("ts"), 0), (Array<double>{102, 104}));
}

// Layer times are stage times divided by a scale, and that rounds: 23.6 and its like come out a
// hair before the sample.
TEST(Attribute, AtTheTimeOfASampleThatSampleCountsWhateverTheOffset) {
  const ovo_test::TemporaryFolder folder;
  folder.writeScene(
      "anim.usda",
      "#usda 1.0\ndef \"A\" {\ntoken word.timeSamples = {\n0: \"a\",\n7.3: \"b\",\n9.5: \"c\"\n}\n"
      "double number.timeSamples = {\n0: 0,\n7.3: 100,\n9.5: -3\n}\n}");
  std::mt19937 random(20);
  std::uniform_real_distribution<double> offsets(-5.0, 5.0), scales(0.05, 3.0);
  for (int round = 0; round < 200; ++round) {
    std::ostringstream text;
    text.precision(17);
    text << "(\nsubLayers = [@" << folder.path("anim.usda") << "@ (offset = " << offsets(random)
         << "; scale = " << scales(random) << ")]\n)";
    const auto prim = sceneOf(text.str())->getPrimAtPath("/A");
    const Attribute word = prim.getAttr("word"), number = prim.getAttr("number");
    const std::vector<double> times = number.timeSamples();
    ASSERT_EQ(times.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(valueAt<Token>(word, times[i]), (std::vector<Token>{"a", "b", "c"}[i]))
          << text.str();
      EXPECT_EQ(valueAt<double>(number, times[i]), (std::vector<double>{0, 100, -3}[i]))
          << text.str();
    }
    // Between them the fraction is that of the stage's times.
    const double between = times[0] + 0.3 * (times[1] - times[0]);
    const double t = (between - times[0]) / (times[1] - times[0]);
    EXPECT_EQ(valueAt<double>(number, between), (1.0 - t) * 0.0 + t * 100.0) << text.str();
  }
}

TEST(Attribute, NumbersOfAnyWidthReadAsEachOther) {
  EXPECT_EQ(valueAt<double>(attributeOf("half h = 0.5"), 0), 0.5);
  EXPECT_EQ(valueAt<float>(attributeOf("double d = 0.1"), 0), 0.1f);
  EXPECT_EQ(valueAt<Vec3f>(attributeOf("half3 h = (1, 2, 3)"), 0), Vec3f(1, 2, 3));
  EXPECT_EQ(valueAt<Array<Vec3f>>(attributeOf("point3d[] p = [(1, 2, 3)]"), 0),
            (Array<Vec3f>{{1, 2, 3}}));
  EXPECT_EQ(valueAt<Array<Vec2d>>(attributeOf("texCoord2h[] p = [(1, 2)]"), 0),
            (Array<Vec2d>{{1, 2}}));
  EXPECT_EQ(valueAt<std::int64_t>(attributeOf("uchar c = 200"), 0), 200);
  EXPECT_EQ(valueAt<int>(attributeOf("bool b = 1"), 0), 1);
  EXPECT_EQ(valueAt<int>(attributeOf("uint64 u = 7"), 0), 7);
  EXPECT_EQ(valueAt<Array<std::int64_t>>(attributeOf("int[] u = [7, -7]"), 0),
            (Array<std::int64_t>{7, -7}));
}

TEST(Attribute, IntegersThatDoNotFitAreNotRead) {
  int value = -1;
  bool flag = false;
  EXPECT_FALSE(attributeOf("int64 i = 5000000000").get(value));
  EXPECT_FALSE(attributeOf("uint i = 4000000000").get(value));
  EXPECT_FALSE(attributeOf("int i = 2").get(flag));
  Array<int> values{9};
  EXPECT_FALSE(attributeOf("int64[] i = [1, 5000000000]").get(values));
  EXPECT_EQ(value, -1);
  EXPECT_EQ(values, Array<int>({9}));
}

TEST(Attribute, NamesThatNoFileCanHoldNameNothingAndAreNoProblem) {
  const auto stage = sceneOf("def Mesh \"A\" {}");
  float value = 0;
  for (const char* bad : {"", " ", "a b", "1", ":", "a:", "a.b", "/a", "a[0]", "\xff"}) {
    const Attribute attribute = stage->getPrimAtPath("/A").getAttr(bad);
    EXPECT_FALSE(attribute.isValid() || attribute.get(value) || attribute.set(1.0f)) << bad;
    EXPECT_FALSE(stage->getPrimAtPath("/A").getPrimvar(bad).isValid()) << bad;
  }
  EXPECT_TRUE(stage->problems().empty());
}

TEST(Attribute, ReadsOfAnotherTypeFail) {
  const Attribute number = attributeOf("float f = 1");
  int i = 7;
  std::string text = "old";
  Array<float> array{1, 2};
  Vec3f vector(1, 2, 3);
  EXPECT_FALSE(number.get(i) || number.get(text) || number.get(array) || number.get(vector));
  EXPECT_EQ(i, 7);
  EXPECT_EQ(text, "old");
  EXPECT_EQ(array, (Array<float>{1, 2}));
  float f = 0;
  EXPECT_FALSE(attributeOf("int i = 1").get(f)) << "an integer is no floating-point number";
  EXPECT_FALSE(attributeOf("float[] f = [1]").get(f));
}

TEST(Attribute, TextTokensAndFilesReadAsEachOther) {
  for (const char* declaration :
       {"string s = \"word\"", "token s = \"word\"", "asset s = @word@"}) {
    EXPECT_EQ(valueAt<std::string>(attributeOf(declaration), 0), "word");
    EXPECT_EQ(valueAt<Token>(attributeOf(declaration), 0), Token("word"));
  }
  EXPECT_EQ(valueAt<Array<std::string>>(attributeOf("asset[] s = [@a@, @b@]"), 0),
            (Array<std::string>{"a", "b"}));
  EXPECT_EQ(valueAt<Array<Token>>(attributeOf("string[] s = [\"a\"]"), 0), (Array<Token>{"a"}));
}

TEST(Attribute, KnowsItsType) {
  struct Row {
    const char* type;
    Value::Type code;
    bool array;
  };
  for (const Row& row :
       {Row{"int", Value::int_, false}, Row{"int2", Value::int2, false},
        Row{"int3[]", Value::int3, true}, Row{"int4", Value::int4, false},
        Row{"float", Value::float_, false}, Row{"texCoord2f[]", Value::float2, true},
        Row{"point3f[]", Value::float3, true}, Row{"float4", Value::float4, false},
        Row{"color3f", Value::color3f, false}, Row{"color4f[]", Value::color4f, true},
        Row{"double", Value::none, false}, Row{"token", Value::none, false}}) {
    const Attribute attribute = attributeOf(std::string(row.type) + " x");
    EXPECT_EQ(attribute.typeName(), Token(row.type));
    EXPECT_EQ(attribute.valueType(), row.code) << row.type;
    EXPECT_EQ(attribute.isArray(), row.array) << row.type;
    float value = 0;
    EXPECT_TRUE(attribute.isValid());
    EXPECT_FALSE(attribute.hasAuthoredValue() || attribute.get(value));
  }
}

TEST(Attribute, TypesGiveFallbacks) {
  const auto stage =
      sceneOf("def Mesh \"M\" {}\ndef Camera \"C\" {}\ndef Scope \"S\" {}\ndef \"N\" {}");
  Token word;
  EXPECT_TRUE(stage->getPrimAtPath("/M").getAttr("subdivisionScheme").get(word) &&
              word == Token("catmullClark"));
  EXPECT_TRUE(stage->getPrimAtPath("/M").getAttr("orientation").getAuthored(word, 3.0) &&
              word == Token("rightHanded"));
  EXPECT_TRUE(stage->getPrimAtPath("/S").getAttr("purpose").get(word) && word == Token("default"));
  float number = 0;
  EXPECT_TRUE(stage->getPrimAtPath("/C").getAttr("horizontalAperture").get(number) &&
              number == 20.955f);
  EXPECT_FALSE(stage->getPrimAtPath("/N").getAttr("purpose").isValid());
  EXPECT_FALSE(stage->getPrimAtPath("/M").getAttr("focalLength").isValid());
  EXPECT_FALSE(stage->getPrimAtPath("/M").getAttr("points").isValid());
  EXPECT_EQ(stage->getPrimAtPath("/M").getAttr("orientation").typeName(), Token("token"));
  EXPECT_FALSE(stage->getPrimAtPath("/M").getAttr("orientation").hasAuthoredValue());
}

TEST(Attribute, TypesGiveEmptyListsAndBoxesToo) {
  const auto stage = sceneOf(
      "def Mesh \"M\" {}\ndef PointInstancer \"I\" {}\ndef Capsule \"C\" {}\ndef Camera \"K\" {}");
  for (const char* name : {"holeIndices", "creaseIndices", "creaseLengths", "cornerIndices"}) {
    Array<int> list{1};
    EXPECT_TRUE(stage->getPrimAtPath("/M").getAttr(name).get(list) && list.empty()) << name;
  }
  Array<float> sharpnesses{1};
  EXPECT_TRUE(stage->getPrimAtPath("/M").getAttr("creaseSharpnesses").get(sharpnesses) &&
              sharpnesses.empty());
  Array<std::int64_t> ids{1};
  EXPECT_TRUE(stage->getPrimAtPath("/I").getAttr("invisibleIds").get(ids, 2.0) && ids.empty());
  EXPECT_FALSE(stage->getPrimAtPath("/I").getAttr("ids").isValid());
  Array<Vec3f> extent;
  EXPECT_TRUE(stage->getPrimAtPath("/C").getAttr("extent").get(extent));
  EXPECT_EQ(extent, (Array<Vec3f>{{-0.5f, -0.5f, -1}, {0.5f, 0.5f, 1}}));
  float iso = 0, intensity = 0;
  EXPECT_TRUE(sceneOf("def DistantLight \"L\" {}")
                  ->getPrimAtPath("/L")
                  .getAttr("inputs:intensity")
                  .get(intensity));
  EXPECT_EQ(intensity, 50000.0f);
  EXPECT_TRUE(stage->getPrimAtPath("/K").getAttr("exposure:iso").get(iso) && iso == 100.0f);
}

// A type name from before the current ones, with a role that no current name has.
TEST(Attribute, OldNamesOfTypesReadAsTheCurrentOnes) {
  const Attribute indices = attributeOf("PointIndex[] x = [3, 1]");
  EXPECT_EQ(indices.typeName(), Token("int[]"));
  EXPECT_EQ(indices.valueType(), Value::int_);
  EXPECT_EQ(valueAt<Array<int>>(indices, 0), (Array<int>{3, 1}));
  EXPECT_EQ(attributeOf("Vec3f x = (1, 2, 3)").typeName(), Token("float3"));
}

TEST(Attribute, SetChecksTheTypeAndConvertsNumbers) {
  const auto stage = ovo::Stage::createInMemory();
  const auto prim = stage->definePrim("/A");
  const Attribute points = prim.createAttr("points", "point3f[]");
  ASSERT_TRUE(points.isValid());
  EXPECT_TRUE(points.set(Array<Vec3d>{{0.1, 2, 3}}));
  EXPECT_EQ(valueAt<Array<Vec3f>>(points, 0), (Array<Vec3f>{{0.1f, 2, 3}}));
  EXPECT_FALSE(points.set(Array<Vec2f>{{1, 2}}) || points.set(1.0f) ||
               points.set(std::string("x")));
  EXPECT_FALSE(points.set(Array<Vec3f>{}, std::numeric_limits<double>::infinity()));
  const Attribute byte = prim.createAttr("byte", "uchar");
  EXPECT_FALSE(byte.set(300) || byte.set(-1));
  EXPECT_TRUE(byte.set(255));
  EXPECT_EQ(valueAt<int>(byte, 0), 255);
  const Attribute q = prim.createAttr("q", "quatf");
  EXPECT_TRUE(q.set(Vec4f(2, 3, 4, 1)));
  EXPECT_EQ(valueAt<Vec4f>(q, 0), Vec4f(2, 3, 4, 1));
}

TEST(Attribute, CreateAttrGivesWhatIsThereWhenTheTypeFits) {
  const auto stage = sceneOf("def \"A\" { float f = 3\n rel r = </A> }");
  const auto prim = stage->getPrimAtPath("/A");
  EXPECT_TRUE(prim.createAttr("f", "float").isValid());
  EXPECT_FALSE(prim.createAttr("f", "int").isValid());
  EXPECT_FALSE(prim.createAttr("r", "float").isValid());
  for (const char* bad : {"", "1x", "a b", "a:", ":a", "a.b", "a/b"})
    EXPECT_FALSE(prim.createAttr(bad, "float").isValid()) << bad;
  for (const char* bad : {"", "no_type", "float[", "Float"})
    EXPECT_FALSE(prim.createAttr("g", bad).isValid()) << bad;
  EXPECT_TRUE(prim.createAttr("ns:deep:name", Value::color3f).isValid());
  EXPECT_EQ(prim.getAttr("ns:deep:name").typeName(), Token("color3f"));
  EXPECT_FALSE(prim.createAttr("g", Value::none).isValid());
  EXPECT_EQ(prim.getAttrNames(), (std::vector<Token>{"f", "ns:deep:name"}));
}

TEST(Attribute, SamplesAreSetBlockedAndCleared) {
  const auto stage = sceneOf("def \"Weak\" { float f = 9 }\ndef \"A\" (references = </Weak>) {}");
  const Attribute f = stage->getPrimAtPath("/A").getAttr("f");
  EXPECT_TRUE(f.set(1.0f, 1.0) && f.set(3.0f, 3.0));
  EXPECT_EQ(valueAt<float>(f, 2.0), 2.0f);
  EXPECT_EQ(valueAt<float>(f, tarn::defaultTimeValue()), 9.0f);
  EXPECT_TRUE(f.block(3.0));
  float value = 0;
  EXPECT_FALSE(f.get(value, 3.5));
  EXPECT_TRUE(f.block());
  EXPECT_FALSE(f.get(value) || f.get(value, 1.0));
  EXPECT_TRUE(f.clear());
  EXPECT_EQ(valueAt<float>(f, 1.0), 9.0f);
}

TEST(Attribute, NearlyEqualSampleTimesCountAsOne) {
  const Attribute f = attributeOf("float f.timeSamples = {1: 1, 1.0000005: 2}");
  EXPECT_EQ(valueAt<float>(f, 1.0000002), 1.0f);
}

TEST(Attribute, SplinesGiveValuesBetweenTheirKnots) {
  const Attribute f =
      attributeOf("double d.spline = {\n bezier,\n 1: 10; post linear,\n 3: 30; post linear,\n}");
  ASSERT_TRUE(f.isValid());
  EXPECT_EQ(valueAt<double>(f, 2.0), 20.0);
  EXPECT_EQ(valueAt<double>(f, tarn::defaultTimeValue()), 10.0);
  EXPECT_TRUE(f.mightBeTimeVarying() && !f.hasTimeSamples());
}

TEST(Attribute, OfAnUnknownTypeHasNoValueType) {
  const auto stage = sceneOf("def \"a\" {\n custom foo x = 1\n custom foo[] y\n custom Foo z\n}\n");
  const ovo::Prim prim = stage->getPrimAtPath("/a");
  for (const char* name : {"x", "y", "z"}) {
    const ovo::Attribute attribute = prim.getAttr(name);
    ASSERT_TRUE(attribute.isValid()) << name;
    EXPECT_EQ(attribute.valueType(), ovo::Value::none) << name;
    EXPECT_FALSE(attribute.isArray()) << name;
    int value = 7;
    EXPECT_FALSE(attribute.get(value)) << name;
    EXPECT_FALSE(attribute.set(value)) << name;
    EXPECT_EQ(value, 7);
  }
  EXPECT_EQ(prim.getAttr("x").typeName().asString(), "foo");
}

}  // namespace
