#include "vela/selection/GeoSelection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <type_traits>

#include "ovo/Stage.h"

namespace {

using namespace vela::Selection;
using ovo::Path;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
using Floats = std::vector<float>;

// ---- Enumerations and records

TEST(SelectionTypes, EnumerationsHaveTheirValues) {
  EXPECT_EQ(static_cast<int>(PartType::vertices), 0);
  EXPECT_EQ(static_cast<int>(PartType::faces), 1);
  EXPECT_EQ(static_cast<int>(PrimSelectionStatus::notSelected), 0);
  EXPECT_EQ(static_cast<int>(PrimSelectionStatus::selected), 1);
  EXPECT_EQ(static_cast<int>(PrimSelectionStatus::descendant), 2);
  static_assert(std::is_same_v<std::underlying_type_t<PartType>, int>);
  static_assert(std::is_same_v<std::underlying_type_t<PrimSelectionStatus>, int>);
}

TEST(WeightedPart, SizeAndEmptyLookAtSelectionsOnly) {
  WeightedPartSelection part;
  EXPECT_TRUE(part.empty());
  EXPECT_EQ(part.size(), 0u);
  part.weights = {1, 2};
  EXPECT_TRUE(part.empty());
  EXPECT_EQ(part.size(), 0u);
  part.selections = {1};
  EXPECT_FALSE(part.empty());
  EXPECT_EQ(part.size(), 1u);
}

TEST(WeightedPart, ResizeFillsBothWithZeros) {
  WeightedPartSelection part{{1}, {2, 3, 4}};
  part.resize(2);
  EXPECT_EQ(part.selections, (Floats{1, 0}));
  EXPECT_EQ(part.weights, (Floats{2, 3}));
}

TEST(WeightedPart, ClearKeepsTheMemory) {
  WeightedPartSelection part{Floats(100, 1.0f), Floats(50, 1.0f)};
  part.clear();
  EXPECT_TRUE(part.selections.empty() && part.weights.empty());
  EXPECT_GE(part.selections.capacity(), 100u);
  EXPECT_GE(part.weights.capacity(), 50u);
}

TEST(WeightedPart, ClearingValuesKeepsTheLengths) {
  WeightedPartSelection part{{1, 2}, {3, 4, 5}};
  part.clearSelections();
  EXPECT_EQ(part, (WeightedPartSelection{{0, 0}, {3, 4, 5}}));
  part.clearWeights();
  EXPECT_EQ(part, (WeightedPartSelection{{0, 0}, {0, 0, 0}}));
}

TEST(WeightedPart, EqualityNeedsLengthsAndValues) {
  EXPECT_TRUE((WeightedPartSelection{{1}, {2}} == WeightedPartSelection{{1}, {2}}));
  EXPECT_FALSE((WeightedPartSelection{{1}, {2}} == WeightedPartSelection{{1}, {3}}));
  EXPECT_FALSE((WeightedPartSelection{{1}, {2}} == WeightedPartSelection{{1}, {2, 0}}));
  EXPECT_TRUE((WeightedPartSelection{{1}, {2}} != WeightedPartSelection{{1, 0}, {2}}));
  EXPECT_TRUE((WeightedPartSelection{{0.0f}, {}} == WeightedPartSelection{{-0.0f}, {}}));
}

TEST(WeightedPart, NaNEqualsNothing) {
  const WeightedPartSelection part{{kNaN}, {0}};
  EXPECT_FALSE(part == part);
}

TEST(WeightedPart, AddGrowsAShorterPart) {
  WeightedPartSelection part{{1}, {0.5f}};
  part.add({{10, 20, 30}, {1, 2, 3}});
  EXPECT_EQ(part, (WeightedPartSelection{{11, 20, 30}, {1.5f, 2, 3}}));
}

TEST(WeightedPart, AddTakesValuesPastTheOthersEndAsZero) {
  WeightedPartSelection part{{1, 2, 3}, {4, 5, 6}};
  part.add({{10}, {20}});
  EXPECT_EQ(part, (WeightedPartSelection{{11, 2, 3}, {24, 5, 6}}));
}

TEST(WeightedPart, AddOfNothingTurnsNegativeZeroIntoZero) {
  WeightedPartSelection part{{-0.0f, -0.0f}, {-0.0f, -0.0f}};
  part.add({{-0.0f}, {}});
  EXPECT_TRUE(std::signbit(part.selections[0])) << "-0 and -0 are -0";
  EXPECT_FALSE(std::signbit(part.selections[1]));
  EXPECT_FALSE(std::signbit(part.weights[0]));
  EXPECT_FALSE(std::signbit(part.weights[1]));
}

TEST(WeightedPart, AddDoesNotClamp) {
  WeightedPartSelection part{{0.9f}, {-0.9f}};
  part.add(part);
  EXPECT_EQ(part, (WeightedPartSelection{{1.8f}, {-1.8f}}));
}

TEST(WeightedPart, AddOfArraysOfDifferentLengthsStaysInside) {
  WeightedPartSelection part{{1, 1, 1}, {}};
  part.add({{1}, {5, 6, 7, 8}});
  EXPECT_EQ(part, (WeightedPartSelection{{2, 1, 1}, {5, 6, 7}}));
  WeightedPartSelection longer{{}, {1, 1, 1}};
  longer.add({{2}, {}});
  EXPECT_EQ(longer, (WeightedPartSelection{{2}, {1}}))
      << "growing brings both arrays to the other's size";
  WeightedPartSelection none;
  none.add({{}, {1, 2}});
  EXPECT_EQ(none, WeightedPartSelection());
}

TEST(ObjectSelection, IsEmptyWithoutFlagAndSelections) {
  GeoObjectSelection object;
  EXPECT_FALSE(object.objectSelected);
  EXPECT_TRUE(object.isEmpty());
  object.getPartSelection(faces).weights = {1};
  EXPECT_TRUE(object.isEmpty()) << "weights are not looked at";
  object.getPartSelection(faces).selections = {0};
  EXPECT_FALSE(object.isEmpty());
  object = GeoObjectSelection();
  object.getPartSelection(vertices).selections = {0};
  EXPECT_FALSE(object.isEmpty());
  object = GeoObjectSelection();
  object.objectSelected = true;
  EXPECT_FALSE(object.isEmpty());
}

TEST(ObjectSelection, PartsAreIndexedByType) {
  GeoObjectSelection object;
  object.getPartSelection(vertices).selections = {1};
  object.getPartSelection(faces).selections = {2};
  EXPECT_EQ(object.parts[0].selections, Floats{1});
  EXPECT_EQ(object.parts[1].selections, Floats{2});
  const GeoObjectSelection& constant = object;
  EXPECT_EQ(&constant.getPartSelection(faces), &object.parts[1]);
}

// ---- Entries

TEST(Selection, StartsEmptyAndValid) {
  const GeoSelection selection;
  EXPECT_EQ(selection.size(), 0u);
  EXPECT_TRUE(selection.begin() == selection.end());
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  EXPECT_TRUE(selection.getPrimSelectionStatus().empty());
}

TEST(Selection, SelectingANewObjectPutsTheStatusOutOfDate) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  EXPECT_TRUE(selection.isObjectSelected("/a"));
  EXPECT_TRUE(selection.isPathPresent("/a"));
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());
}

TEST(Selection, DeselectingAnAbsentObjectMakesAnEntryAndLeavesTheStatusValid) {
  GeoSelection selection;
  selection.setObjectSelected("/a", false);
  EXPECT_TRUE(selection.isPathPresent("/a"));
  EXPECT_FALSE(selection.isObjectSelected("/a"));
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(Selection, OnlyAChangeOfTheFlagPutsTheStatusOutOfDate) {
  GeoSelection selection;
  const auto stage = ovo::Stage::createInMemory();
  selection.setObjectSelected("/a", true);
  selection.updatePrimSelectionStatus(stage);
  selection.setObjectSelected("/a", true);
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  selection.setObjectSelected("/a", false);
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());
  EXPECT_TRUE(selection.getPrimSelectionStatus().empty());
}

TEST(Selection, PathsWithoutEntryAreNotSelected) {
  const GeoSelection selection;
  EXPECT_FALSE(selection.isObjectSelected("/a"));
  EXPECT_FALSE(selection.isPathPresent("/a"));
  EXPECT_TRUE(selection.find("/a") == selection.end());
}

TEST(Selection, WritablePartMakesTheEntryAndLeavesTheStatus) {
  GeoSelection selection;
  WeightedPartSelection& part = selection.getWritablePartSelection("/a", faces);
  part.resize(3);
  EXPECT_TRUE(selection.isPathPresent("/a"));
  EXPECT_FALSE(selection.isObjectSelected("/a"));
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  EXPECT_EQ(&selection.getWritablePartSelection("/a", faces), &part);
  EXPECT_EQ(selection.find("/a")->second.getPartSelection(faces).size(), 3u);
  EXPECT_TRUE(selection.find("/a")->second.getPartSelection(vertices).empty());
}

TEST(Selection, AnyTextIsAPath) {
  GeoSelection selection;
  for (const char* path : {"", "/", "not a path", "/\xff\xfe", "/a/", "a"})
    selection.setObjectSelected(path, true);
  EXPECT_EQ(selection.size(), 6u);
  EXPECT_TRUE(selection.isObjectSelected(""));
}

GeoSelection sample() {
  GeoSelection selection;
  selection.setObjectSelected("/selected", true);
  selection.getWritablePartSelection("/both", vertices) = {{1, 2}, {3, 4}};
  selection.getWritablePartSelection("/both", faces) = {{5}, {6}};
  selection.getWritablePartSelection("/weights", faces) = {{}, {7}};
  return selection;
}

TEST(Selection, AddingCopiesNewEntries) {
  GeoSelection selection;
  selection.addSelection(sample());
  EXPECT_EQ(selection.size(), 3u);
  EXPECT_TRUE(selection.isObjectSelected("/selected"));
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());
  EXPECT_EQ(selection.find("/both")->second.parts[0], (WeightedPartSelection{{1, 2}, {3, 4}}));
  EXPECT_EQ(selection.find("/weights")->second.parts[1], (WeightedPartSelection{{}, {7}}))
      << "arrays come as they are";
}

TEST(Selection, AddingUnselectedEntriesLeavesTheStatusValid) {
  GeoSelection selection, other;
  other.getWritablePartSelection("/a", vertices) = {{1}, {1}};
  selection.addSelection(other);
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  EXPECT_TRUE(selection.isPathPresent("/a"));
}

TEST(Selection, AddingJoinsEntriesThatBothHave) {
  GeoSelection selection = sample(), other;
  other.setObjectSelected("/both", true);
  other.setObjectSelected("/selected", false);
  other.getWritablePartSelection("/both", vertices) = {{10, 20, 30}, {1, 1, 1}};
  selection.addSelection(other);
  EXPECT_TRUE(selection.isObjectSelected("/both"));
  EXPECT_TRUE(selection.isObjectSelected("/selected")) << "selected in either is selected";
  EXPECT_EQ(selection.find("/both")->second.parts[0],
            (WeightedPartSelection{{11, 22, 30}, {4, 5, 1}}));
  EXPECT_EQ(selection.find("/both")->second.parts[1], (WeightedPartSelection{{5}, {6}}));
}

TEST(Selection, AddingItselfDoublesEveryValue) {
  GeoSelection selection = sample();
  selection.addSelection(selection);
  EXPECT_EQ(selection.size(), 3u);
  EXPECT_EQ(selection.find("/both")->second.parts[0], (WeightedPartSelection{{2, 4}, {6, 8}}));
  EXPECT_EQ(selection.find("/both")->second.parts[1], (WeightedPartSelection{{10}, {12}}));
}

TEST(Selection, DeselectEmptiesOnePartEverywhere) {
  GeoSelection selection = sample();
  selection.updatePrimSelectionStatus(ovo::Stage::createInMemory());
  selection.deselect(faces);
  EXPECT_EQ(selection.size(), 3u);
  EXPECT_EQ(selection.find("/both")->second.parts[0], (WeightedPartSelection{{1, 2}, {3, 4}}));
  EXPECT_EQ(selection.find("/both")->second.parts[1], WeightedPartSelection());
  EXPECT_TRUE(selection.find("/weights")->second.parts[1].weights.empty());
  EXPECT_TRUE(selection.isObjectSelected("/selected"));
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(Selection, DeleteEmptyRemovesEntriesWithWeightsAlone) {
  GeoSelection selection = sample();
  selection.setObjectSelected("/none", false);
  selection.deleteEmpty();
  EXPECT_EQ(selection.size(), 2u);
  EXPECT_FALSE(selection.isPathPresent("/weights"));
  EXPECT_FALSE(selection.isPathPresent("/none"));
}

TEST(Selection, DeleteEmptyLeavesTheStatus) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  selection.updatePrimSelectionStatus(ovo::Stage::createInMemory());
  selection.getWritablePartSelection("/b", faces);
  selection.deleteEmpty();
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  EXPECT_EQ(selection.getPrimSelectionStatus("/a"), selected);
  selection.setObjectSelected("/a", false);
  selection.deleteEmpty();
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());
}

TEST(Selection, ClearValuesOnlyKeepsTheKeysAndMakesTheStatusValid) {
  GeoSelection selection = sample();
  selection.clearValuesOnly();
  EXPECT_EQ(selection.size(), 3u);
  for (const auto& [path, object] : selection) {
    EXPECT_TRUE(object.isEmpty()) << path.asString();
    EXPECT_TRUE(object.parts[1].weights.empty());
  }
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
  EXPECT_TRUE(selection.getPrimSelectionStatus().empty());
}

TEST(Selection, ClearRemovesEverything) {
  GeoSelection selection = sample();
  selection.clear();
  EXPECT_EQ(selection.size(), 0u);
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(Selection, CopiesCarryEntriesStatusAndFlag) {
  GeoSelection selection = sample();
  GeoSelection outOfDate = selection;
  EXPECT_FALSE(outOfDate.isPrimSelectionStatusValid());
  selection.updatePrimSelectionStatus(ovo::Stage::createInMemory());
  GeoSelection copy;
  copy = selection;
  EXPECT_TRUE(copy.isPrimSelectionStatusValid());
  EXPECT_EQ(copy.getPrimSelectionStatus("/selected"), selected);
  copy.setObjectSelected("/selected", false);
  EXPECT_TRUE(selection.isObjectSelected("/selected"));
  EXPECT_EQ(selection.getPrimSelectionStatus("/selected"), selected);
}

// ---- Status

std::shared_ptr<ovo::Stage> family() {
  const auto stage = ovo::Stage::createInMemory();
  for (const char* path : {"/a/b/c", "/a/d", "/ab", "/e"}) stage->definePrim(path);
  return stage;
}

std::map<Path, int> statuses(const GeoSelection& selection) {
  std::map<Path, int> result;
  for (const auto& [path, status] : selection.getPrimSelectionStatus()) result[path] = status;
  return result;
}

TEST(SelectionStatus, IsNotSelectedUntilUpdated) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  EXPECT_EQ(selection.getPrimSelectionStatus("/a"), notSelected);
  selection.updatePrimSelectionStatus(nullptr);
  EXPECT_EQ(selection.getPrimSelectionStatus("/a"), notSelected);
  EXPECT_FALSE(selection.isPrimSelectionStatusValid());
  selection.updatePrimSelectionStatus(family());
  EXPECT_EQ(selection.getPrimSelectionStatus("/a"), selected);
  EXPECT_TRUE(selection.isPrimSelectionStatusValid());
}

TEST(SelectionStatus, ReachesAllDescendants) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  selection.updatePrimSelectionStatus(family());
  EXPECT_EQ(statuses(selection),
            (std::map<Path, int>{{"/a", 1}, {"/a/b", 2}, {"/a/b/c", 2}, {"/a/d", 2}}));
  EXPECT_EQ(selection.getPrimSelectionStatus("/ab"), notSelected);
  EXPECT_EQ(selection.getPrimSelectionStatus("/e"), notSelected);
}

TEST(SelectionStatus, SelectedBelowSelectedStaysSelected) {
  GeoSelection selection;
  for (const char* path : {"/a", "/a/b", "/a/b/c"}) selection.setObjectSelected(path, true);
  selection.updatePrimSelectionStatus(family());
  EXPECT_EQ(statuses(selection),
            (std::map<Path, int>{{"/a", 1}, {"/a/b", 1}, {"/a/b/c", 1}, {"/a/d", 2}}));
}

TEST(SelectionStatus, UnknownAndUnselectedPathsDoNotDisturb) {
  GeoSelection selection;
  selection.setObjectSelected("/not/there", true);
  selection.setObjectSelected("not a path", true);
  selection.setObjectSelected("", true);
  selection.setObjectSelected("/a", false);
  selection.getWritablePartSelection("/e", faces).resize(1);
  selection.updatePrimSelectionStatus(family());
  EXPECT_EQ(statuses(selection),
            (std::map<Path, int>{{"/not/there", 1}, {"not a path", 1}, {"", 1}}));
}

TEST(SelectionStatus, ValidStatusIsNotComputedAgain) {
  GeoSelection selection;
  selection.setObjectSelected("/a", true);
  selection.updatePrimSelectionStatus(family());
  selection.updatePrimSelectionStatus(ovo::Stage::createInMemory());
  EXPECT_EQ(selection.getPrimSelectionStatus("/a/d"), descendant);
}

TEST(SelectionStatus, AgreesWithPathPrefixesOnRandomScenes) {
  const unsigned seed = 20261121;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 50; ++round) {
    // A tree of short names, and a random choice among its prims.
    const auto stage = ovo::Stage::createInMemory();
    std::vector<Path> all;
    for (int i = 0; i < 30; ++i) {
      const Path parent = all.empty() || random() % 4 == 0 ? Path("/") : all[random() % all.size()];
      all.push_back(
          parent.child(ovo::Token(std::string(1, static_cast<char>('a' + random() % 5)))));
      stage->definePrim(all.back());
    }
    GeoSelection selection;
    for (const Path& path : all)
      if (random() % 5 == 0) selection.setObjectSelected(path, random() % 4 != 0);
    if (selection.isPrimSelectionStatusValid()) continue;
    selection.updatePrimSelectionStatus(stage);

    for (const Path& path : all) {
      bool isBelow = false;
      for (const Path& other : all)
        isBelow = isBelow || (selection.isObjectSelected(other) && path.hasPrefix(other));
      const int expected = selection.isObjectSelected(path) ? 1 : isBelow ? 2 : 0;
      EXPECT_EQ(static_cast<int>(selection.getPrimSelectionStatus(path)), expected)
          << path.asString();
    }
  }
}

// ---- The global selection

TEST(GlobalSelection, IsOneInstanceWithAnAnchor) {
  GlobalGeoSelection& global = GlobalGeoSelection::GetInstance();
  EXPECT_EQ(&global, &GlobalGeoSelection::GetInstance());
  EXPECT_EQ(global.getCurrent().size(), 0u);
  EXPECT_EQ(global.getAnchor().size(), 0u);
  EXPECT_EQ(&global.getCurrent(), &global.getWritableCurrent());

  global.getWritableCurrent().setObjectSelected("/a", true);
  global.getWritableCurrent().getWritablePartSelection("/a", faces) = {{1}, {2}};
  EXPECT_EQ(global.getAnchor().size(), 0u);
  global.setAnchorFromCurrent();
  EXPECT_TRUE(global.getAnchor().isObjectSelected("/a"));

  global.getWritableCurrent().clear();
  global.getWritableCurrent().setObjectSelected("/b", true);
  EXPECT_TRUE(global.getAnchor().isObjectSelected("/a")) << "the anchor is a copy";
  global.addAnchorToCurrent();
  EXPECT_TRUE(global.getCurrent().isObjectSelected("/a"));
  EXPECT_TRUE(global.getCurrent().isObjectSelected("/b"));
  EXPECT_EQ(global.getCurrent().find("/a")->second.parts[1], (WeightedPartSelection{{1}, {2}}));

  global.clearAnchor();
  EXPECT_EQ(global.getAnchor().size(), 0u);
  global.getWritableCurrent().clear();
}

}  // namespace
