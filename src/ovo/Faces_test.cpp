#include "ovo/Faces.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "ovo/Array.h"
#include "support/SampleMeshes.h"

namespace {

using ovo::Face;
using ovo::Faces;

std::vector<std::vector<int>> runsOf(const Faces& faces) {
  std::vector<std::vector<int>> runs;
  for (const Face face : faces) runs.emplace_back(face.begin(), face.end());
  return runs;
}
using Runs = std::vector<std::vector<int>>;

TEST(Faces, DefaultHasNone) {
  const Faces faces;
  EXPECT_TRUE(faces.empty());
  EXPECT_EQ(faces.begin(), faces.end());
}

TEST(Faces, OneForEachCountWithItsOwnIndices) {
  const std::vector<int> counts = {3, 0, 4, 2}, indices = {0, 1, 2, 2, 1, 3, 4, 4, 5};
  const Faces faces(counts, indices);
  EXPECT_EQ(runsOf(faces), (Runs{{0, 1, 2}, {}, {2, 1, 3, 4}, {4, 5}}));
  EXPECT_EQ(faces.size(), 4u);
  EXPECT_EQ(faces[2].index(), 2u);
  EXPECT_EQ(faces[2].firstVertex(), 3u);
  EXPECT_EQ(faces[3][1], 5);
}

TEST(Faces, NegativeCountIsAnEmptyFaceThatTakesNoIndices) {
  const std::vector<int> counts = {2, -5, std::numeric_limits<int>::min(), 2},
                         indices = {1, 2, 3, 4};
  EXPECT_EQ(runsOf({counts, indices}), (Runs{{1, 2}, {}, {}, {3, 4}}));
}

TEST(Faces, FromTheFirstFaceThatIsCutOffOnAllAreEmpty) {
  const std::vector<int> counts = {2, std::numeric_limits<int>::max(), 1, 2, 0},
                         indices = {1, 2, 3, 4, 5};
  EXPECT_EQ(runsOf({counts, indices}), (Runs{{1, 2}, {}, {}, {}, {}}));
  EXPECT_EQ(runsOf({counts, {}}), (Runs{{}, {}, {}, {}, {}}));
  EXPECT_EQ(runsOf({{}, indices}), Runs());
}

TEST(Faces, UsableMeansThreeVerticesThatNamePoints) {
  const auto isUsable = [](const std::vector<int>& indices, std::size_t points) {
    const std::vector<int> counts = {static_cast<int>(indices.size())};
    return Faces(counts, indices)[0].isUsable(points);
  };
  EXPECT_TRUE(isUsable({0, 1, 2}, 3));
  EXPECT_TRUE(isUsable({2, 2, 2, 2}, 3));  // whether it has area is another question
  EXPECT_FALSE(isUsable({0, 1}, 3));
  EXPECT_FALSE(isUsable({}, 3));
  EXPECT_FALSE(isUsable({0, 1, 3}, 3));
  EXPECT_FALSE(isUsable({0, -1, 2}, 3));
  EXPECT_FALSE(isUsable({0, 1, std::numeric_limits<int>::min()}, 3));
  EXPECT_FALSE(isUsable({0, 1, 2}, 0));
}

TEST(Faces, OfEverySampleMeshLieInTheIndices) {
  for (const auto& mesh : vela_test::sampleMeshes()) {
    SCOPED_TRACE(mesh.name);
    std::size_t count = 0;
    for (const Face face : Faces(mesh.counts, mesh.indices)) {
      EXPECT_EQ(face.index(), count);
      EXPECT_LE(face.firstVertex() + face.size(), mesh.indices.size());
      EXPECT_EQ(face.isUsable(mesh.points.size()), mesh.usable(count));
      for (std::size_t k = 0; k < face.size(); ++k)
        EXPECT_EQ(face[k], mesh.indices[face.firstVertex() + k]);
      ++count;
    }
    EXPECT_EQ(count, mesh.counts.size());
  }
}

}  // namespace
