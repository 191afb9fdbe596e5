// Small parts of the command: numbers and lists as text, reports, files that appear whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Json.h"
#include "Options.h"
#include "OutputFile.h"
#include "Text.h"
#include "vela/picture/LayerTable.h"

namespace {

using namespace command;
using Words = std::vector<std::string>;

TEST(Text, ListsAreSplitAtCommasAndTrimmed) {
  EXPECT_EQ(splitList("a,b"), (Words{"a", "b"}));
  EXPECT_EQ(splitList(" a ,\tb c ,,"), (Words{"a", "b c"}));
  EXPECT_EQ(splitList(""), Words{});
  EXPECT_EQ(splitList(" , "), Words{});
}

TEST(Text, LinesAreBrokenAtBlanksAndNeverInWords) {
  EXPECT_EQ(wrapText("one two three four", 9), "one two\nthree\nfour");
  EXPECT_EQ(wrapText("one two three four", 10), "one two\nthree four");
  EXPECT_EQ(wrapText("a verylongword b", 4), "a\nverylongword\nb");
  EXPECT_EQ(wrapText("", 4), "");
}

TEST(Text, NumbersMustBeAsManyAsAskedForFiniteAndNothingElse) {
  std::vector<double> numbers;
  EXPECT_TRUE(readNumbers("1,-2.5, +3e2", 3, numbers));
  EXPECT_EQ(numbers, (std::vector<double>{1.0, -2.5, 300.0}));
  for (const char* text : {"1,2", "1,2,3,4", "1,2,x", "1,2,3x", "1,2,inf", "1,2,nan", "1,2,1e999",
                           "", "1,2,+", "1,2,++3"})
    EXPECT_FALSE(readNumbers(text, 3, numbers)) << text;
}

TEST(Text, TheShortestTextReadsBackTheSame) {
  EXPECT_EQ(toText(0.1f), "0.1");
  EXPECT_EQ(toText(-3.0f), "-3");
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> any(-1e6f, 1e6f);
  for (int i = 0; i < 1000; ++i) {
    const float value = any(random);
    EXPECT_EQ(std::stof(toText(value)), value);
  }
}

TEST(Json, APickReportHasTheShortestDecimals) {
  PickReport report;
  report.hit = true;
  report.path = "/A";
  report.distance = 0.1f;
  report.position = {0.2f, -3.0f, std::numeric_limits<float>::quiet_NaN()};
  const std::string text = toJson(report);
  EXPECT_NE(text.find("\"distance\": 0.1,"), std::string::npos) << text;
  EXPECT_NE(text.find("null"), std::string::npos) << text;
}

TEST(Help, OfRenderNamesEachLayerOfTheTable) {
  char name[] = "--help";
  char* arguments[] = {name};
  RenderOptions options;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(readArguments(1, arguments, options));
  const std::string help = testing::internal::GetCapturedStdout();
  EXPECT_EQ(help.find('@'), std::string::npos);

  // Blanks and line ends are the same to a reader.
  std::string words;
  std::istringstream in(help);
  for (std::string word; in >> word;) words += word + " ";
  for (const std::string& layer : vela::picture::layerNames()) {
    EXPECT_NE(words.find(layer), std::string::npos) << layer;
    const vela::picture::LayerInfo* row = vela::picture::findLayerInfo(layer);
    if (!row) continue;  // a group
    const vela::picture::LayerInfo& info = *row;
    std::string described;
    for (const std::string& channel : info.channels) described += channel + " ";
    if (!info.isPart) {
      EXPECT_NE(words.find(described + info.help), std::string::npos) << info.name;
    }
  }
  for (const vela::picture::LayerGroup& group : vela::picture::layerGroups())
    EXPECT_NE(words.find(group.layers.back() + ".a " + group.help), std::string::npos);
}

TEST(OutputFile, AppearsWithCommitAndLeavesNothingWithoutIt) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / "vela_output_file";
  std::filesystem::create_directories(folder);
  const std::string name = (folder / "a.txt").string();
  std::filesystem::remove(name);
  {
    const OutputFile file(name);
    std::ofstream(file.temporaryName()) << "half";
    EXPECT_FALSE(std::filesystem::exists(name));
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  {
    OutputFile file(name);
    std::ofstream(file.temporaryName()) << "whole";
    file.commit();
  }
  std::string text;
  std::ifstream(name) >> text;
  EXPECT_EQ(text, "whole");
  std::filesystem::remove_all(folder);
}

}  // namespace
