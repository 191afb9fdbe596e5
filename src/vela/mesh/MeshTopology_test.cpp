#include "vela/mesh/MeshTopology.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

#include "support/SampleMeshes.h"

namespace {

using tarn::Vec3;
using vela::MeshTopology;
using vela_test::SampleMesh;
using vela_test::sampleMeshes;
using vela_test::topologyOf;
using Edge = MeshTopology::Edges::Edge;

TEST(MeshTopology, IsEmptyAtFirst) {
  const MeshTopology t;
  EXPECT_TRUE(t.points.empty());
  EXPECT_TRUE(t.faces().empty());
  EXPECT_TRUE(t.edges().empty());
  EXPECT_EQ(t.faces().begin(), t.faces().end());
}

TEST(MeshTopology, FacesAreRunsOfIndices) {
  MeshTopology t;
  t.points.resize(6);
  t.vertsPerFace = {3, 0, 4, 2};
  t.faceVertPointIndices = {0, 1, 2, 2, 1, 3, 4, 4, 5};
  std::vector<std::vector<int>> runs;
  std::vector<std::size_t> firsts;
  for (const auto face : t.faces()) {
    EXPECT_EQ(face.index(), runs.size());
    runs.emplace_back(face.begin(), face.end());
    firsts.push_back(face.firstVertex());
  }
  EXPECT_EQ(runs, (std::vector<std::vector<int>>{{0, 1, 2}, {}, {2, 1, 3, 4}, {4, 5}}));
  EXPECT_EQ(firsts, (std::vector<std::size_t>{0, 3, 3, 7}));
  const auto faces = t.faces();
  EXPECT_EQ(faces[2][3], 4);
  EXPECT_EQ(faces[3].size(), 2u);
  EXPECT_TRUE(faces[1].empty());
}

TEST(MeshTopology, FacesOutliveTheTopologyAndDoNotSeeItsChanges) {
  auto t = std::make_unique<MeshTopology>(topologyOf(sampleMeshes().front()));
  const auto faces = t->faces();
  t->faceVertPointIndices[0] = 77;
  t.reset();
  EXPECT_EQ(faces[0][0], 0);
  EXPECT_EQ(faces.size(), 6u);
}

TEST(MeshTopology, FacesThatPassTheEndOfTheIndicesAreEmptyRuns) {
  for (const auto& m : sampleMeshes()) {
    SCOPED_TRACE(m.name);
    const MeshTopology t = topologyOf(m);
    std::size_t count = 0;
    for (const auto face : t.faces()) {
      EXPECT_LE(face.firstVertex() + face.size(), m.indices.size());
      if (m.usable(count)) {
        EXPECT_EQ(face.size(), static_cast<std::size_t>(m.counts[count]));
      }
      for (std::size_t k = 0; k < face.size(); ++k)
        EXPECT_EQ(face[k], m.indices[face.firstVertex() + k]);
      ++count;
    }
    EXPECT_EQ(count, m.counts.size());
    EXPECT_EQ(t.faces().size(), m.counts.size());
  }
}

TEST(MeshTopology, EdgesAreUniqueAndUndirected) {
  MeshTopology t;
  t.points.resize(5);
  t.vertsPerFace = {3, 3, 4};
  t.faceVertPointIndices = {0, 1, 2, 2, 1, 3, 3, 4, 2, 1};
  const auto edges = t.edges();
  const std::vector<Edge> expected = {{0, 1, 1}, {0, 2, 1}, {1, 2, 3}, {1, 3, 2},
                                      {2, 3, 1}, {2, 4, 1}, {3, 4, 1}};
  EXPECT_EQ(std::vector<Edge>(edges.begin(), edges.end()), expected);
  EXPECT_EQ(edges[2].faceCount, 3);
}

TEST(MeshTopology, SidesFromAPointToItselfAndToNoPointAreNoEdges) {
  MeshTopology t;
  t.points.resize(3);
  t.vertsPerFace = {4, 3, 2, 1};
  t.faceVertPointIndices = {0, 1, 1, 2, 0, 9, -1, 2, 1, 0};
  const auto edges = t.edges();
  const std::vector<Edge> expected = {{0, 1, 1}, {0, 2, 1}, {1, 2, 2}};
  EXPECT_EQ(std::vector<Edge>(edges.begin(), edges.end()), expected);
}

TEST(MeshTopology, ClosedMeshesHaveTheirEulerNumberAndTwoFacesAnEdge) {
  for (const auto& m : sampleMeshes()) {
    if (!m.closed) continue;
    SCOPED_TRACE(m.name);
    const auto edges = topologyOf(m).edges();
    EXPECT_EQ(static_cast<int>(m.points.size()) - static_cast<int>(edges.size()) +
                  static_cast<int>(m.counts.size()),
              m.euler);
    for (const Edge& e : edges) EXPECT_EQ(e.faceCount, 2);
  }
}

TEST(MeshTopology, EdgesOfEverySampleMeshAgreeWithAMap) {
  for (const auto& m : sampleMeshes()) {
    SCOPED_TRACE(m.name);
    const MeshTopology t = topologyOf(m);
    std::map<std::pair<int, int>, int> model;
    for (const auto face : t.faces())
      for (std::size_t k = 0; k < (face.size() < 3 ? face.size() / 2 : face.size()); ++k) {
        const int a = face[k], b = face[(k + 1) % face.size()];
        const std::pair<int, int> side(std::min(a, b), std::max(a, b));
        if (side.first >= 0 && side.second < static_cast<int>(m.points.size()) &&
            side.first != side.second)
          ++model[side];
      }
    std::vector<Edge> expected;
    for (const auto& [side, count] : model) expected.push_back({side.first, side.second, count});
    const auto edges = t.edges();
    EXPECT_EQ(std::vector<Edge>(edges.begin(), edges.end()), expected);
  }
}

}  // namespace
