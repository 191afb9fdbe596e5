#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>

#include "fuzz/ReferenceSelectionText.h"
#include "support/ChildProcess.h"
#include "support/SharedData.h"
#include "vela/selection/GeoSelection.h"

namespace {

using namespace vela::Selection;
using Floats = std::vector<float>;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

std::string textOf(const GeoSelection& selection) {
  std::ostringstream out;
  selection.serialize(out);
  return out.str();
}

// Reads, and gives what went to the standard error stream.
std::string read(std::istream& in, GeoSelection& selection) {
  std::ostringstream captured;
  std::streambuf* const before = std::cerr.rdbuf(captured.rdbuf());
  EXPECT_EQ(&selection.deserialize(in), &in);
  std::cerr.rdbuf(before);
  return captured.str();
}

// Both calls read every text alike; the one that gives its reason writes nothing.
std::string read(const std::string& text, GeoSelection& selection) {
  std::istringstream in(text), again(text);
  const std::string line = read(in, selection);

  GeoSelection told;
  std::string error = "before";
  std::ostringstream captured;
  std::streambuf* const before = std::cerr.rdbuf(captured.rdbuf());
  const bool isRead = told.deserialize(again, &error);
  std::cerr.rdbuf(before);
  EXPECT_EQ(captured.str(), "");
  EXPECT_EQ(isRead, line.empty());
  EXPECT_EQ(line, isRead ? "" : "GeoSelection deserialization error, " + error + "\n");
  EXPECT_EQ(isRead, error.empty());
  EXPECT_EQ(textOf(told), textOf(selection));
  EXPECT_EQ(again.rdstate(), in.rdstate());
  EXPECT_EQ(again.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in),
            in.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in));
  return line;
}

std::string words(const std::string& text) {
  std::istringstream in(text);
  std::string result, word;
  while (in >> word) result += (result.empty() ? "" : " ") + word;
  return result;
}

// A selection with one list of these values.
GeoSelection withValues(const Floats& values) {
  GeoSelection selection;
  selection.getWritablePartSelection("/a", vertices).selections = values;
  return selection;
}

Floats valuesOf(const GeoSelection& selection) {
  return selection.size() == 1 ? selection.begin()->second.parts[0].selections : Floats();
}

// The text with one list in it.
std::string withList(const std::string& list) {
  return "geoselection { paths 1 { /a 0 { verts " + list + " 0 } { faces 0 0 } } }";
}

// ---- Writing

TEST(SelectionWriter, EmptySelection) { EXPECT_EQ(textOf({}), "geoselection { paths 0 {  }  } "); }

TEST(SelectionWriter, OneObjectByteForByte) {
  GeoSelection selection;
  selection.setObjectSelected("/world/cube", true);
  selection.getWritablePartSelection("/world/cube", vertices) = {{1, 1, 1, 0.5f}, {0, 0, 0, 0}};
  const std::string text = textOf(selection);
  EXPECT_EQ(text,
            "geoselection { paths 1 { /world/cube 1  { verts 4 {  3 1  1 0.5  } 4 {  4 0  }  }  { "
            "faces 0 0  }  }  } ");
  EXPECT_EQ(words(text),
            "geoselection { paths 1 { /world/cube 1 { verts 4 { 3 1 1 0.5 } 4 { 4 0 } } { faces 0 "
            "0 } } }");
}

TEST(SelectionWriter, EntriesComeInTheOrderOfTheirPaths) {
  GeoSelection selection;
  for (const char* path : {"/b", "/a/b", "/a-b", "/a", "/\xc3\xa4", "/B"})
    selection.setObjectSelected(path, false);
  EXPECT_EQ(
      words(textOf(selection)),
      "geoselection { paths 6 { /B 0 { verts 0 0 } { faces 0 0 } /a 0 { verts 0 0 } { faces 0 0 } "
      "/a-b 0 { verts 0 0 } { faces 0 0 } /a/b 0 { verts 0 0 } { faces 0 0 } /b 0 { verts 0 0 } { "
      "faces 0 0 } "
      "/\xc3\xa4 0 { verts 0 0 } { faces 0 0 } } }");
}

TEST(SelectionWriter, EqualValuesAreOneRun) {
  EXPECT_NE(textOf(withValues(Floats(1000, 0.25f))).find("verts 1000 {  1000 0.25  } 0  } "),
            std::string::npos);
}

TEST(SelectionWriter, EveryNaNIsARunOfItsOwn) {
  EXPECT_NE(
      textOf(withValues({kNaN, kNaN, 1, 1, kNaN})).find("verts 5 {  1 nan  1 nan  2 1  1 nan  } "),
      std::string::npos);
}

TEST(SelectionWriter, ZerosOfBothSignsAreOneRunWrittenAsItsFirst) {
  EXPECT_NE(textOf(withValues({-0.0f, 0.0f, -0.0f})).find("{  3 -0  }"), std::string::npos);
  EXPECT_NE(textOf(withValues({0.0f, -0.0f})).find("{  2 0  }"), std::string::npos);
}

TEST(SelectionWriter, StreamOperatorIsSerialize) {
  const GeoSelection selection = withValues({1, 2});
  std::ostringstream out;
  out << selection << "|";
  EXPECT_EQ(out.str(), textOf(selection) + "|");
}

// A locale with a comma for the point and groups of three digits.
struct Grouping : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
  std::string do_truename() const override { return "yes"; }
};

const std::locale kOtherLocale(std::locale::classic(), new Grouping);

TEST(SelectionWriter, NeitherDependsOnFlagsAndLocaleNorChangesThem) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  selection.getWritablePartSelection("/a", vertices).selections = Floats(12345, 1234.5f);
  std::ostringstream out;
  out.imbue(kOtherLocale);
  out << std::hex << std::showbase << std::showpos << std::boolalpha << std::scientific
      << std::uppercase << std::setprecision(2) << std::setfill('*');
  const auto flags = out.flags();
  out.width(30);
  selection.serialize(out);
  EXPECT_EQ(out.str(), textOf(selection));
  EXPECT_NE(textOf(selection).find("12345 {  12345 1234.5  }"), std::string::npos);
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.precision(), 2);
  EXPECT_EQ(out.width(), 30);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.getloc(), kOtherLocale);
}

TEST(SelectionWriter, StreamThatCannotBeWrittenStaysFailed) {
  std::ostringstream out;
  out.setstate(std::ios_base::failbit);
  withValues({1}).serialize(out);
  EXPECT_TRUE(out.fail());
  EXPECT_EQ(out.str(), "");
}

// Writes the values both ways, each as a run of its own.
void expectFormattedLikeAStream(const Floats& values) {
  std::ostringstream expected;
  expected << "geoselection { paths 1 { /a 0  { verts " << values.size() << " { ";
  for (const float value : values) expected << " 1 " << value << " ";
  expected << " } 0  }  { faces 0 0  }  }  } ";
  const std::string text = textOf(withValues(values));
  if (text == expected.str()) return;
  const std::string& other = expected.str();
  const auto at =
      std::mismatch(text.begin(), text.end(), other.begin(), other.end()).first - text.begin();
  const auto from = static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, at - 20));
  ADD_FAILURE() << "written " << text.substr(from, 60) << "\nexpected " << other.substr(from, 60);
}

TEST(SelectionWriter, NumbersAreByteForByteThoseOfAStream) {
  Floats values;
  const auto add = [&](float value) {
    if (values.empty() || values.back() != value) values.push_back(value);
  };
  // Ties, both sides of every power of ten, where the notation changes, and the ends of the range.
  for (int exponent = -45; exponent <= 38; ++exponent) {
    const float power = static_cast<float>(std::pow(10.0, exponent));
    float below = power, above = power;
    for (int i = 0; i < 40; ++i) {
      add(below);
      add(-above);
      below = std::nextafter(below, 0.0f);
      above = std::nextafter(above, kInfinity);
    }
  }
  for (int i = 0; i < 2000; ++i) {
    add(99999.5f + static_cast<float>(i));
    add(999990.0f + static_cast<float>(i) / 64.0f);
    add(1.0f + static_cast<float>(i) / 1024.0f);
    add(static_cast<float>(i) * 3125.0f / 1048576.0f);
    add(static_cast<float>(i * 497));
  }
  for (const float value :
       {0.0f, -0.0f, kInfinity, -kInfinity, kNaN, -kNaN, std::numeric_limits<float>::max(),
        std::numeric_limits<float>::lowest(), std::numeric_limits<float>::min(),
        std::numeric_limits<float>::denorm_min(), 0.0001f, 0.00001f, 123456.5f, 1234565.0f})
    add(value);
  expectFormattedLikeAStream(values);
}

TEST(SelectionWriter, RandomNumbersAreByteForByteThoseOfAStream) {
  const unsigned seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Floats values;
  for (int i = 0; i < 500000; ++i) {
    const auto bits = static_cast<std::uint32_t>(random());
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    values.push_back(value);
    values.push_back(
        std::ldexp(static_cast<float>(random() >> 8), -static_cast<int>(random() % 40)));
    values.push_back(static_cast<float>(random() % 1000000) / 1000.0f);
  }
  values.erase(std::unique(values.begin(), values.end()), values.end());
  expectFormattedLikeAStream(values);
}

// ---- Reading

TEST(SelectionReader, EmptySelectionReadsBackWithoutAWord) {
  GeoSelection selection = withValues({1});
  EXPECT_EQ(read(textOf({}), selection), "");
  EXPECT_EQ(selection.size(), 0u);
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(SelectionReader, ReasonIsGivenInPlaceOfTheLine) {
  GeoSelection selection = withValues({1});
  std::string error = "before";
  std::istringstream damaged("geoselection { paths x { } }");
  EXPECT_FALSE(selection.deserialize(damaged, &error));
  EXPECT_EQ(error, "bad token 'paths' at position -1, expected '{'");
  EXPECT_EQ(selection.size(), 0u);

  std::istringstream empty(textOf({}));
  EXPECT_TRUE(selection.deserialize(empty, &error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(selection.size(), 0u);

  std::istringstream unasked("no selection");
  EXPECT_FALSE(selection.deserialize(unasked, nullptr));
}

TEST(SelectionReader, ReadsWhatWasWritten) {
  GeoSelection selection, back;
  selection.setObjectSelected("/world/cube", true);
  selection.getWritablePartSelection("/world/cube", vertices) = {{1, 1, 1, 0.5f}, {0, 0, 0, 0}};
  selection.getWritablePartSelection("/world/sphere", faces) = {{0.25f}, {}};
  EXPECT_EQ(read(textOf(selection), back), "");
  EXPECT_EQ(vela_test::referenceOf(back).size(), 2u);
  EXPECT_TRUE(back.isObjectSelected("/world/cube"));
  EXPECT_EQ(back.find("/world/cube")->second.parts[0],
            (WeightedPartSelection{{1, 1, 1, 0.5f}, {0, 0, 0, 0}}));
  EXPECT_EQ(back.find("/world/sphere")->second.parts[1], (WeightedPartSelection{{0.25f}, {}}));
  EXPECT_FALSE(back.isPrimSelectionStatusValid())
      << "a selected object puts the status out of date";
}

TEST(SelectionReader, UnselectedEntriesLeaveTheStatusValid) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("0"), selection), "");
  EXPECT_TRUE(selection.isPathPresent("/a"));
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(SelectionReader, AmountOfWhiteSpaceDoesNotMatter) {
  GeoSelection selection;
  EXPECT_EQ(
      read("\n\t geoselection\v{\fpaths\r1\n\n{ /a\t1 {\nverts 2 {1 3 1 4} 0 } { faces 0 0 }} }",
           selection),
      "GeoSelection deserialization error, bad token '{1' at position 43, expected '{'\n");
  EXPECT_EQ(read("\n\t geoselection\v{\fpaths\r1\n\n{ /a\t1 {\nverts 2 { 1 3 1 4 } 0 "
                 "}\n{\nfaces\n0\n0\n} } }",
                 selection),
            "");
  EXPECT_EQ(valuesOf(selection), (Floats{3, 4}));
}

TEST(SelectionReader, ThirdClosingBraceIsLookedFor) {
  // KEEP(selection-third-brace)
  const std::string text = textOf(withValues({1, 2}));
  GeoSelection selection;
  std::istringstream in(text + " } rest");
  EXPECT_EQ(read(in, selection), "");
  EXPECT_EQ(valuesOf(selection), (Floats{1, 2}));
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, "rest") << "the third brace is taken from the text";

  EXPECT_EQ(read(text + "rest", selection),
            "GeoSelection deserialization error, bad token 'rest' at position " +
                std::to_string(text.size() - 1) + ", expected '}'\n");
  EXPECT_EQ(selection.size(), 0u);
}

TEST(SelectionReader, SecondSelectionBehindTheFirstIsAnError) {
  const std::string text = textOf(withValues({1}));
  std::istringstream in(text + text);
  GeoSelection selection;
  EXPECT_EQ(read(in, selection),
            "GeoSelection deserialization error, bad token 'geoselection' at position " +
                std::to_string(text.size() - 1) + ", expected '}'\n");
  EXPECT_EQ(selection.size(), 0u);
  std::string next;
  in >> next;
  EXPECT_EQ(next, "{") << "the unexpected word was taken from the text";
}

TEST(SelectionReader, MissingClosingBracesAreServedByTheLastOne) {
  GeoSelection selection;
  EXPECT_EQ(read("geoselection { paths 1 { /a 1 { verts 0 0 } { faces 0 0 }", selection), "");
  EXPECT_TRUE(selection.isObjectSelected("/a"));
}

TEST(SelectionReader, StreamIsLeftAtItsEndAndFailed) {
  std::istringstream in(textOf({}));
  GeoSelection selection;
  EXPECT_EQ(read(in, selection), "");
  EXPECT_EQ(in.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
}

TEST(SelectionReader, DuplicatedPathAppendsToTheFirst) {
  // KEEP(selection-duplicate-path)
  GeoSelection selection;
  const std::string once = "/a 0 { verts 2 { 2 1 } 0 } { faces 0 0 } ";
  EXPECT_EQ(read("geoselection { paths 2 { " + once +
                     "/a 1 { verts 5 { 3 7 } 1 { 1 9 } } { faces 0 0 } } }",
                 selection),
            "");
  EXPECT_EQ(selection.size(), 1u);
  EXPECT_EQ(selection.begin()->second.parts[0], (WeightedPartSelection{{1, 1, 7, 7, 7}, {9}}));
  EXPECT_TRUE(selection.isObjectSelected("/a"));
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());

  // A list that is not longer than what is there already has no room for runs.
  EXPECT_EQ(read("geoselection { paths 2 { " + once + once + "} }", selection),
            "GeoSelection deserialization error, bad token '2' at position 82, expected '}'\n");
}

TEST(SelectionReader, LastRunMayGoPastTheCount) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("3 { 2 1 5 2 }"), selection), "");
  EXPECT_EQ(valuesOf(selection), (Floats{1, 1, 2, 2, 2, 2, 2}));
}

TEST(SelectionReader, RunsOfNoneAreTaken) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("1 { 0 5 0 6 1 7 }"), selection), "");
  EXPECT_EQ(valuesOf(selection), Floats{7});
}

TEST(SelectionReader, NumbersAreThoseOfExtraction) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("+8 { 01 +1.5 1 .5 1 5. 1 -0 1 1e-60 1 00.25E+1 1 -1e-3 1 16777217 }"),
                 selection),
            "");
  EXPECT_EQ(valuesOf(selection), (Floats{1.5f, 0.5f, 5, 0, 0, 2.5f, -0.001f, 16777216}));
  EXPECT_TRUE(std::signbit(valuesOf(selection)[3]));
}

TEST(SelectionReader, InfinitiesAndNaNsCannotBeReadBack) {
  for (const float value : {kInfinity, -kInfinity, kNaN}) {
    GeoSelection selection;
    EXPECT_EQ(read(textOf(withValues({value})), selection),
              "GeoSelection deserialization error, bad token '{' at position -1, expected '}'\n");
    EXPECT_EQ(selection.size(), 0u);
  }
}

TEST(SelectionReader, RunLongerThanMemoryEndsTheList) {
  GeoSelection selection;
  for (const char* run : {"18446744073709551615", "9223372036854775807", "2305843009213693951",
                          "1000000000000", "-1"}) {
    EXPECT_EQ(read(withList(std::string("5 { 1 1 ") + run + " 2 }"), selection),
              "GeoSelection deserialization error, bad token '{' at position -1, expected '}'\n")
        << run;
    EXPECT_EQ(selection.size(), 0u);
  }
}

TEST(SelectionReader, RunsThatTogetherAreLongerThanMemoryEndTheList) {
  // No run of these is too long by itself, and the first ones are short enough to be filled.
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  const std::uint64_t most =
      static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize) / sizeof(float);
  GeoSelection selection;
  EXPECT_EQ(read(withList("2000000 { 2000000 1 } 1 { " + std::to_string(most - 1000000) + " 2 }"),
                 selection),
            "GeoSelection deserialization error, bad token '{' at position -1, expected '}'\n");
  EXPECT_EQ(selection.size(), 0u);
}

TEST(SelectionReader, RunsClaimNoMoreThanAGigabyte) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("268435457 { 268435457 1 }"), selection),
            "GeoSelection deserialization error, bad token '{' at position -1, expected '}'\n");
  EXPECT_EQ(selection.size(), 0u);
}

TEST(SelectionReader, CountsAloneCostNoMemory) {
  GeoSelection selection;
  EXPECT_EQ(read(withList("1000000000000000 { 1 1 }"), selection),
            "GeoSelection deserialization error, bad token '{' at position -1, expected '}'\n");
  EXPECT_EQ(read("geoselection { paths 18446744073709551615 { } }", selection),
            "GeoSelection deserialization error, bad token '}' at position -1, expected '{'\n");
}

TEST(SelectionReader, PathMayBeAnyWord) {
  GeoSelection selection;
  EXPECT_EQ(read("geoselection { paths 2 { } 1 { verts 0 0 } { faces 0 0 } \xff/{ 0 { verts 0 0 } "
                 "{ faces 0 0 } } }",
                 selection),
            "");
  EXPECT_TRUE(selection.isObjectSelected("}"));
  EXPECT_TRUE(selection.isPathPresent("\xff/{"));
}

TEST(SelectionReader, NeitherDependsOnFlagsAndLocaleNorChangesThem) {
  const std::string text =
      "geoselection { paths 1 { /a 1 { verts 1000 { 010 1234.5 990 2 } 0 } { faces 0 0 } } } } "
      "rest";
  std::istringstream in(text);
  in.imbue(kOtherLocale);
  in >> std::hex >> std::noskipws >> std::boolalpha;
  in.width(3);
  const auto flags = in.flags();
  GeoSelection selection;
  EXPECT_EQ(read(in, selection), "");
  ASSERT_EQ(valuesOf(selection).size(), 1000u);
  EXPECT_EQ(valuesOf(selection)[9], 1234.5f);
  EXPECT_EQ(in.flags(), flags);
  EXPECT_EQ(in.width(), 3);
  EXPECT_EQ(in.getloc(), kOtherLocale);
  EXPECT_TRUE(in.good());
}

TEST(SelectionReader, ErrorLineDoesNotDependOnTheErrorStreamsFlags) {
  std::ostringstream captured;
  std::streambuf* const before = std::cerr.rdbuf(captured.rdbuf());
  const auto flags = std::cerr.flags();
  std::cerr << std::hex;
  std::cerr.width(200);
  GeoSelection selection;
  std::istringstream in("geoselection { {");
  selection.deserialize(in);
  std::cerr.width(0);
  std::cerr.flags(flags);
  std::cerr.rdbuf(before);
  EXPECT_EQ(captured.str(),
            "GeoSelection deserialization error, bad token '{' at position 14, expected 'paths'\n");
}

TEST(SelectionReader, NothingIsThrownByAStreamThatIsToldToThrow) {
  std::istringstream in(textOf(withValues({1})));
  in.exceptions(std::ios_base::failbit | std::ios_base::eofbit | std::ios_base::badbit);
  GeoSelection selection;
  EXPECT_NO_THROW(selection.deserialize(in));
  EXPECT_EQ(valuesOf(selection), Floats{1});
  EXPECT_TRUE(in.eof());
}

TEST(SelectionReader, FailedStreamGivesNoWord) {
  const std::string message =
      "GeoSelection deserialization error, bad token '' at position -1, expected 'geoselection'\n";
  GeoSelection selection;
  std::istringstream in(textOf({}));
  in.setstate(std::ios_base::failbit);
  EXPECT_EQ(read(in, selection), message);
  std::istream none(nullptr);
  EXPECT_EQ(read(none, selection), message);
  std::ifstream missing("/no/such/file");
  EXPECT_EQ(read(missing, selection), message);
}

// Hands out one character at a time, with or without a get area, and may throw at a place.
class TrickleBuffer : public std::streambuf {
 public:
  TrickleBuffer(std::string text, bool hasArea, std::size_t throwAt = std::string::npos)
      : text_(std::move(text)), hasArea_(hasArea), throwAt_(throwAt) {}

 protected:
  int_type underflow() override {
    if (hasArea_ && gptr() != nullptr) ++at_;  // the one before was taken
    if (at_ == throwAt_) throw std::runtime_error("broken");
    if (at_ >= text_.size()) return traits_type::eof();
    if (hasArea_) setg(&text_[at_], &text_[at_], &text_[at_] + 1);
    return traits_type::to_int_type(text_[at_]);
  }
  int_type uflow() override {
    if (hasArea_) return std::streambuf::uflow();
    const int_type c = underflow();
    if (c != traits_type::eof()) ++at_;
    return c;
  }

 private:
  std::string text_;
  bool hasArea_;
  std::size_t throwAt_;
  std::size_t at_ = 0;
};

TEST(SelectionReader, StreamsWithoutBufferOrPlacesAreRead) {
  const std::string text = textOf(withValues({1, 2.5f, 3e20f, 3e20f}));
  for (const bool hasArea : {false, true}) {
    TrickleBuffer whole(text + "} rest", hasArea), wrong(text + "wrong rest", hasArea);
    std::istream in(&whole), bad(&wrong);
    GeoSelection selection;
    EXPECT_EQ(read(in, selection), "");
    EXPECT_EQ(valuesOf(selection), (Floats{1, 2.5f, 3e20f, 3e20f}));
    std::string rest;
    in >> rest;
    EXPECT_EQ(rest, "rest") << hasArea;
    EXPECT_EQ(
        read(bad, selection),
        "GeoSelection deserialization error, bad token 'wrong' at position -1, expected '}'\n");
    bad >> rest;
    EXPECT_EQ(rest, "rest") << hasArea;
  }
}

TEST(SelectionReader, BufferThatThrowsIsABrokenStream) {
  TrickleBuffer buffer(textOf(withValues({1, 2})), true, 40);
  std::istream in(&buffer);
  GeoSelection selection;
  std::string message;
  EXPECT_NO_THROW(message = read(in, selection));
  EXPECT_TRUE(in.bad());
  EXPECT_EQ(message.substr(0, 47), "GeoSelection deserialization error, bad token '");
  EXPECT_EQ(selection.size(), 0u);
}

TEST(SelectionReader, FilesAreReadAcrossTheirBuffers) {
  const vela_test::TemporaryFolder folder;
  Floats values(20000);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i % 8000) / 8.0f;
  ASSERT_TRUE(vela_test::writeFile(folder.file("s.sel"), textOf(withValues(values))));
  std::ifstream in(folder.file("s.sel"));
  GeoSelection selection;
  EXPECT_EQ(read(in, selection), "");
  EXPECT_EQ(valuesOf(selection), values);

  const std::string text = textOf(withValues(values)) + "extra";
  ASSERT_TRUE(vela_test::writeFile(folder.file("s.sel"), text));
  std::ifstream bad(folder.file("s.sel"));
  EXPECT_EQ(read(bad, selection),
            "GeoSelection deserialization error, bad token 'extra' at position " +
                std::to_string(text.size() - 6) + ", expected '}'\n");
}

// ---- Texts that must fail

std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      result += text[i];
      continue;
    }
    const char c = text[++i];
    result += c == 'n' ? '\n' : c == 't' ? '\t' : c;
  }
  return result;
}

TEST(SelectionCorpus, EveryTextGivesItsErrorLine) {
  std::ifstream corpus(vela_test::sourcePath("src/vela/selection/selections.txt"));
  int count = 0;
  for (std::string line; std::getline(corpus, line);) {
    if (line.empty() || line[0] == '#') continue;
    ++count;
    const std::size_t first = line.find(" | "), second = line.rfind(" | ");
    ASSERT_TRUE(first != std::string::npos && second > first) << line;
    SCOPED_TRACE(line.substr(0, first));
    const std::string text = unescaped(line.substr(first + 3, second - first - 3)),
                      expected = line.substr(second + 3);

    GeoSelection selection = withValues({1});
    selection.setObjectSelected("/before", true);
    EXPECT_EQ(read(text, selection), "GeoSelection deserialization error, " + expected + "\n");
    EXPECT_EQ(selection.size(), 0u);
    EXPECT_TRUE(selection.isPrimSelectionStatusValid());
    EXPECT_TRUE(selection.getPrimSelectionStatus().empty());
  }
  EXPECT_GT(count, 0) << "the corpus is empty";
}

// ---- Properties

// A weight as hosts make them; anything that the text can carry without loss when `exact`.
float randomValue(std::mt19937& random, bool exact) {
  switch (random() % (exact ? 4 : 7)) {
    case 0: return 0.0f;
    case 1: return 1.0f;
    case 2: return static_cast<float>(static_cast<int>(random() % 2000001) - 1000000) / 1000000.0f;
    case 3: return static_cast<float>(random() % 100000);
    case 4:
      return std::ldexp(static_cast<float>(random() >> 8), static_cast<int>(random() % 200) - 120);
    case 5: return -0.0f;
    default: return static_cast<float>(random()) / 4294967296.0f;
  }
}

GeoSelection randomSelection(std::mt19937& random, bool exact) {
  static const char* const kNames[] = {
      "/", "/a", "/a/b", "/b", "/a/b/c", "/world/cube", "/\xc3\xa9t\xc3\xa9", "{", "verts", "7"};
  GeoSelection selection;
  for (auto objects = random() % 4; objects > 0; --objects) {
    const char* const path = kNames[random() % std::size(kNames)];
    if (random() % 2 == 0) selection.setObjectSelected(path, random() % 3 != 0);
    for (const PartType type : {vertices, faces}) {
      WeightedPartSelection& part = selection.getWritablePartSelection(path, type);
      for (Floats* list : {&part.selections, &part.weights}) {
        list->clear();
        for (auto runs = random() % 4; runs > 0; --runs) {
          const float value = randomValue(random, exact);
          for (auto length = 1 + random() % 3; length > 0; --length) list->push_back(value);
        }
      }
    }
  }
  return selection;
}

TEST(SelectionProperties, RandomSelectionsReadBackTheSame) {
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int i = 0; i < 100000; ++i) {
    const GeoSelection selection = randomSelection(random, true);
    const std::string text = textOf(selection);
    GeoSelection back;
    ASSERT_EQ(read(text, back), "") << text;
    ASSERT_EQ(back.size(), selection.size()) << text;
    for (const auto& [path, object] : selection) {
      ASSERT_TRUE(back.isPathPresent(path)) << text;
      ASSERT_EQ(back.isObjectSelected(path), object.objectSelected) << text;
      ASSERT_TRUE(back.find(path)->second.parts == object.parts) << text;
    }
  }
}

TEST(SelectionProperties, WhatIsWrittenEqualsPlainInsertionAndIsStable) {
  const unsigned seed = 12;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int i = 0; i < 20000; ++i) {
    const GeoSelection selection = randomSelection(random, false);
    const std::string text = textOf(selection);
    std::ostringstream expected;
    vela_test::referenceWrite(expected, vela_test::referenceOf(selection));
    ASSERT_EQ(text, expected.str());
    GeoSelection back;
    ASSERT_EQ(read(text, back), "") << text;
    ASSERT_EQ(textOf(back), text) << "six digits survive";
  }
}

void expectReadLikeExtraction(const std::string& text) {
  std::istringstream in(text), expectedIn(text);
  GeoSelection selection;
  const std::string error = read(in, selection);
  std::string expectedError;
  const auto expected = vela_test::referenceRead(expectedIn, expectedError);
  ASSERT_EQ(error, expectedError.empty() ? "" : expectedError + "\n") << text;
  ASSERT_EQ(in.rdstate(), expectedIn.rdstate()) << text;
  in.clear();
  expectedIn.clear();
  ASSERT_EQ(in.tellg(), expectedIn.tellg()) << text;
  std::ostringstream out;
  vela_test::referenceWrite(out, expected);
  ASSERT_EQ(textOf(selection), out.str()) << text;
}

TEST(SelectionProperties, DamagedTextsReadExactlyLikeFormattedExtraction) {
  const unsigned seed = 13;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  static const char* const kPieces[] = {"{",
                                        "}",
                                        "verts",
                                        "faces",
                                        "paths",
                                        "geoselection",
                                        "/a",
                                        "0",
                                        "1",
                                        "2",
                                        "-1",
                                        "+1",
                                        "1e",
                                        "1e+",
                                        ".",
                                        "-",
                                        "+-1",
                                        "0x1",
                                        "1.5.",
                                        "1e5",
                                        "1e39",
                                        "nan",
                                        "inf",
                                        "007",
                                        "1,5",
                                        "",
                                        "\n",
                                        "2e",
                                        "-.5",
                                        "e5",
                                        ".e1",
                                        "1E-50",
                                        "9.99999999999999999999",
                                        "340282356779733661637539395458142568448"};
  for (int i = 0; i < 100000; ++i) {
    std::istringstream in(textOf(randomSelection(random, false)));
    std::vector<std::string> tokens;
    for (std::string token; in >> token;) tokens.push_back(token);
    for (auto changes = 1 + random() % 3; changes > 0; --changes) {
      const std::size_t at = random() % tokens.size();
      const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(at);
      switch (random() % 5) {
        case 0: tokens.erase(place); break;
        case 1: tokens.insert(place, kPieces[random() % std::size(kPieces)]); break;
        case 2: *place = kPieces[random() % std::size(kPieces)]; break;
        case 3: *place += kPieces[random() % std::size(kPieces)]; break;
        default: tokens.resize(at + 1); break;
      }
      if (tokens.empty()) tokens.push_back("");
    }
    std::string text;
    for (const std::string& token : tokens)
      text += token + (random() % 20 == 0 ? "" : random() % 5 == 0 ? "  \n" : " ");
    if (random() % 2 == 0 && !text.empty()) text.pop_back();
    if (vela_test::hasLargeRun(text)) continue;
    expectReadLikeExtraction(text);
    if (HasFatalFailure()) return;
  }
}

TEST(SelectionProperties, EveryKindOfNumberReadsLikeExtraction) {
  const unsigned seed = 14;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int i = 0; i < 200000; ++i) {
    // Random words over the characters that numbers are made of, and long decimal fractions.
    std::string number;
    if (i % 2 == 0) {
      static const std::string kCharacters = "0001234567899..-+eE";
      for (auto length = 1 + random() % 9; length > 0; --length)
        number += kCharacters[random() % kCharacters.size()];
    } else {
      const auto digits = [&](std::uint32_t most) {
        for (auto length = random() % most; length > 0; --length)
          number += static_cast<char>('0' + random() % 10);
      };
      digits(12);
      if (random() % 2 == 0) number += '.';
      digits(30);
      if (random() % 2 == 0) number += "e" + std::to_string(static_cast<int>(random() % 100) - 55);
    }
    expectReadLikeExtraction(withList("1 { 1 " + number + " }"));
    if (HasFatalFailure()) return;
  }
}

}  // namespace
