// Picking through rectangles.
#include "vela/scene/Picking.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/TextStage.h"

namespace {

using namespace vela::scene;
using vela_test::at;
using vela_test::squareText;
using vela_test::stageOf;
namespace sel = vela::Selection;
using Indices = std::set<std::size_t>;

const double kNow = tarn::defaultTimeValue();

// A wall of 4 by 4 squares of one unit in the x-y plane, corners at 0 to 4, seen from +z by a
// camera that shows x and y from 0 to 4 in 40 by 40 pixels, so that a square is 10 pixels wide.
// Behind it at z = -1 stands a second one.
std::string wallText(const std::string& name, double z, const std::string& scheme = "none") {
  std::string counts, indices, points;
  for (int y = 0; y <= 4; ++y)
    for (int x = 0; x <= 4; ++x)
      points += "(" + std::to_string(x) + "," + std::to_string(y) + ",0),";
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) {
      counts += "4,";
      const int p = 5 * y + x;
      for (const int corner : {p, p + 1, p + 6, p + 5}) indices += std::to_string(corner) + ",";
    }
  const auto list = [](std::string text) { return "[" + text.substr(0, text.size() - 1) + "]"; };
  return "def Mesh \"" + name + "\"\n{\n int[] faceVertexCounts = " + list(counts) +
         "\n int[] faceVertexIndices = " + list(indices) + "\n point3f[] points = " + list(points) +
         "\n uniform token subdivisionScheme = \"" + scheme + "\"\n" + at(0, 0, z) + "}\n";
}

// Moved by a little, so that no ray goes through an edge.
const std::string kCamera =
    "def Camera \"Eye\"\n{\n token projection = \"orthographic\"\n float horizontalAperture = 40\n"
    " float verticalAperture = 40\n" +
    at(2.001, 2.001, 10) + "}\n";

struct Wall {
  explicit Wall(const std::string& text, int level = 0)
      : stage(stageOf(kCamera + text)),
        list(listMeshes(*stage, filterOf(level)).value()),
        extent(extentOf(list)),
        caster(CasterKind::tracer, list, extent, kNow),
        view(makeView(*stage, {{}, vela::LensProjection::none, 40, 40, kNow}, extent).value()) {}
  static MeshFilter filterOf(int level) {
    MeshFilter filter;
    filter.subdivisionLevel = level;
    return filter;
  }
  sel::GeoSelection pick(const PixelRect& rect, bool through, PickedPart part,
                         std::size_t* picked = nullptr) const {
    sel::GeoSelection selection;
    const auto count = pickRect(list, caster, view, rect, through, part, selection);
    EXPECT_TRUE(count);
    if (picked) *picked = *count;
    return selection;
  }
  std::shared_ptr<ovo::Stage> stage;
  MeshList list;
  Extent extent;
  RayCaster caster;
  View view;
};

Indices chosen(const sel::GeoSelection& selection, const char* path, sel::PartType type) {
  Indices indices;
  const auto found = selection.find(ovo::Path(path));
  if (found == selection.end()) return indices;
  const auto& values = found->second.getPartSelection(type).selections;
  for (std::size_t i = 0; i < values.size(); ++i)
    if (values[i] == 1.0f) indices.insert(i);
  return indices;
}

TEST(Picking, WhatShowsAndWhatLiesBehind) {
  const Wall wall(wallText("Front", 0) + wallText("Back", -1));
  // Pixels count from the top: rows 12 to 17 look at y from 2.2 to 2.8, the third row of squares.
  const PixelRect rect{12, 12, 27, 17};
  std::size_t picked = 0;
  const sel::GeoSelection front = wall.pick(rect, false, PickedPart::faces, &picked);
  EXPECT_EQ(picked, 1u);
  EXPECT_EQ(chosen(front, "/Front", sel::faces), (Indices{9, 10}));
  EXPECT_EQ(front.find(ovo::Path("/Front"))->second.getPartSelection(sel::faces).size(), 16u);
  EXPECT_FALSE(front.isPathPresent(ovo::Path("/Back")));

  const sel::GeoSelection both = wall.pick(rect, true, PickedPart::faces, &picked);
  EXPECT_EQ(picked, 2u);
  EXPECT_EQ(chosen(both, "/Front", sel::faces), (Indices{9, 10}));
  EXPECT_EQ(chosen(both, "/Back", sel::faces), (Indices{9, 10}));

  const sel::GeoSelection objects = wall.pick(rect, true, PickedPart::objects);
  EXPECT_EQ(objects.size(), 2u);
  EXPECT_TRUE(objects.isObjectSelected(ovo::Path("/Back")));
}

TEST(Picking, VerticesAreThoseWithinTheRectangle) {
  const Wall wall(wallText("Front", 0));
  // Around the corners at (1, 3) and (2, 3): pixels 10 and 20 of the row that y = 3 begins.
  EXPECT_EQ(chosen(wall.pick({8, 8, 21, 11}, false, PickedPart::vertices), "/Front", sel::vertices),
            (Indices{16, 17}));
  // Within one square: its face is met, but no corner shows there.
  std::size_t picked = 9;
  const sel::GeoSelection none = wall.pick({12, 12, 17, 17}, false, PickedPart::vertices, &picked);
  EXPECT_EQ(picked, 0u);
  EXPECT_EQ(none.size(), 0u);
}

TEST(Picking, RefinedSurfacesGiveTheScenesFacesAndPoints) {
  const Wall wall(wallText("Smooth", 0, "bilinear"), 2);
  ASSERT_TRUE(wall.list.shapes[0].refinement);
  const sel::GeoSelection faces = wall.pick({12, 12, 27, 17}, false, PickedPart::faces);
  EXPECT_EQ(chosen(faces, "/Smooth", sel::faces), (Indices{9, 10}));
  EXPECT_EQ(faces.find(ovo::Path("/Smooth"))->second.getPartSelection(sel::faces).size(), 16u);
  EXPECT_EQ(
      chosen(wall.pick({8, 8, 21, 11}, false, PickedPart::vertices), "/Smooth", sel::vertices),
      (Indices{16, 17}));
}

TEST(Picking, ARectangleIsCutAtThePicture) {
  const Wall wall(wallText("Front", 0));
  EXPECT_EQ(chosen(wall.pick({-2147483647, -2147483647, 2147483647, 2147483647}, false,
                             PickedPart::faces),
                   "/Front", sel::faces)
                .size(),
            16u);
  EXPECT_EQ(wall.pick({50, 0, 60, 39}, false, PickedPart::faces).size(), 0u);
}

TEST(Picking, PickedElementsGetTheValueOneWhateverTheyHad) {
  const Wall wall(wallText("Front", 0));
  sel::GeoSelection selection;
  auto& part = selection.getWritablePartSelection(ovo::Path("/Front"), sel::faces);
  part.resize(16);
  part.selections[9] = 0.25f;
  part.selections[3] = 0.5f;
  ASSERT_TRUE(pickRect(wall.list, wall.caster, wall.view, {12, 12, 27, 17}, false,
                       PickedPart::faces, selection));
  const auto& values =
      selection.find(ovo::Path("/Front"))->second.getPartSelection(sel::faces).selections;
  EXPECT_EQ(values[9], 1.0f);
  EXPECT_EQ(values[10], 1.0f);
  EXPECT_EQ(values[3], 0.5f);
}

TEST(Picking, AStopLeavesTheSelectionAlone) {
  const Wall wall(wallText("Front", 0));
  for (const bool through : {false, true}) {
    int questions = 0;
    Work work;
    work.stop = [&] { return ++questions == 3; };
    sel::GeoSelection selection;
    EXPECT_FALSE(pickRect(wall.list, wall.caster, wall.view, {0, 0, 39, 39}, through,
                          PickedPart::objects, selection, work));
    EXPECT_EQ(selection.size(), 0u);
  }
}

}  // namespace
