#include "vela/mesh/MeshBuilders.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>

#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/MeshTopology.h"

namespace {

using tarn::Box3d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::MeshSample;

const Box3d kBox(Vec3d(-1, -2, -3), Vec3d(3, 4, 5));

MeshSample cube(unsigned side, unsigned cap, bool shared, const Box3d& box = kBox) {
  MeshSample mesh;
  vela::buildCube(mesh, box, side, cap, true, true, true, true, shared);
  return mesh;
}

std::vector<int> indices(const MeshSample& m) {
  return std::vector<int>(m.faceVertPointIndices(), m.faceVertPointIndices() + m.nVerts());
}

vela::MeshTopology topologyOf(const MeshSample& m) {
  vela::MeshTopology t;
  t.points = m.points;
  t.vertsPerFace.assign(m.vertsPerFace(), m.vertsPerFace() + m.nFaces());
  t.faceVertPointIndices.assign(m.faceVertPointIndices(), m.faceVertPointIndices() + m.nVerts());
  return t;
}

// The same mesh with points of equal position made one, so that shapes with seams can be tested for
// being closed.
vela::MeshTopology welded(const MeshSample& m) {
  vela::MeshTopology t = topologyOf(m), out;
  std::map<std::tuple<int, int, int>, int> found;
  std::vector<int> newOf;
  for (const auto& p : m.points) {
    const auto key = std::make_tuple(static_cast<int>(std::lround(p.x * 1e4f)),
                                     static_cast<int>(std::lround(p.y * 1e4f)),
                                     static_cast<int>(std::lround(p.z * 1e4f)));
    const auto at = found.emplace(key, static_cast<int>(out.points.size()));
    if (at.second) out.points.push_back(p);
    newOf.push_back(at.first->second);
  }
  out.vertsPerFace = t.vertsPerFace;
  for (std::size_t i = 0; i < m.nVerts(); ++i)
    out.faceVertPointIndices.push_back(
        newOf[static_cast<std::size_t>(m.faceVertPointIndices()[i])]);
  return out;
}

struct Measures {
  double volume = 0, area = 0;
  int euler = 0;
  bool closed = true;
};
Measures measure(const vela::MeshTopology& t) {
  Measures out;
  std::map<std::pair<int, int>, int> directed;
  for (const auto face : t.faces()) {
    const auto P = [&](std::size_t k) {
      return Vec3d(t.points[static_cast<std::size_t>(face[k])]);
    };
    for (std::size_t k = 1; k + 1 < face.size(); ++k) {
      const auto n = cross(P(k) - P(0), P(k + 1) - P(0));
      out.area += n.length() / 2;
      out.volume += dot(P(0), n) / 6;
    }
    for (std::size_t k = 0; k < face.size(); ++k)
      ++directed[{face[k], face[(k + 1) % face.size()]}];
  }
  for (const auto& [side, count] : directed)
    out.closed = out.closed && count == 1 && directed.count({side.second, side.first}) == 1;
  out.euler = static_cast<int>(t.points.size()) - static_cast<int>(t.edges().size()) +
              static_cast<int>(t.vertsPerFace.size());
  return out;
}

// Every face's own normal and the normals of its corners look to the same side.
void expectNormalsOutward(const MeshSample& m, double least) {
  ASSERT_EQ(m.normals.size(), m.nVerts());
  for (const auto face : topologyOf(m).faces()) {
    const auto P = [&](std::size_t k) { return m.points[static_cast<std::size_t>(face[k])]; };
    const Vec3f n = cross(P(2) - P(0), P(face.size() - 1) - P(1)).normalized();
    for (std::size_t k = 0; k < face.size(); ++k) {
      const Vec3f normal = m.normals[face.firstVertex() + k];
      EXPECT_NEAR(normal.length(), 1.0f, 1e-6f);
      if (n.length() > 0) {
        EXPECT_GT(dot(normal, face.size() == 3 ? cross(P(1) - P(0), P(2) - P(0)).normalized() : n),
                  least);
      }
    }
  }
}

TEST(BuildRectQuadMesh, OneQuadHasTheCornersInRows) {
  MeshSample m;
  const Vec3f p0(0, 0, 0), p1(2, 0, 0), p2(3, 5, 1), p3(0, 4, 0);
  vela::buildRectQuadMesh(m, p0, p1, p2, p3, 1, 1, true, true, true, true);
  EXPECT_EQ(m.points, (ovo::Array<Vec3f>{p0, p1, p3, p2}));
  EXPECT_EQ(indices(m), (std::vector<int>{0, 1, 3, 2}));
  EXPECT_EQ(m.vertsPerFace()[0], 4);
  EXPECT_TRUE(m.allQuads);
  EXPECT_FALSE(m.allTriangles);
  EXPECT_EQ(m.uvs, (ovo::Array<Vec2f>{{0, 0}, {1, 0}, {0, 1}, {1, 1}}));
  EXPECT_EQ(m.normals, ovo::Array<Vec3f>(4, Vec3f(0, 0, 1)));
}

TEST(BuildRectQuadMesh, AParameterOfOneGivesTheCornerItself) {
  MeshSample m;
  const Vec3f p0(0.1f, 0.7f, 1e-8f), p1(1e8f, 0.3f, 0.9f), p2(-0.3f, 7.1f, 1e7f),
      p3(0.6f, 1e-3f, 0.2f);
  for (const unsigned n : {1u, 3u, 7u, 49u}) {
    vela::buildRectQuadMesh(m, p0, p1, p2, p3, n, n, false, true, false, false);
    EXPECT_EQ(m.points[0], p0);
    EXPECT_EQ(m.points[n], p1);
    EXPECT_EQ(m.points[(n + 1) * n], p3);
    EXPECT_EQ(m.points[(n + 1) * (n + 1) - 1], p2);
  }
  EXPECT_EQ(m.nFaces(), 0u);
}

TEST(BuildRectQuadMesh, PointsAreWeighedSumsAlongTheRowAndThenAcross) {
  MeshSample m;
  const Vec3f p0(0.1f, 0.7f, -3.3f), p1(10.3f, 0.3f, 0.9f), p2(-0.3f, 7.1f, 11.7f),
      p3(0.6f, 1e-3f, 0.2f);
  const auto blend = [](float a, float b, float t) {
    return t == 0 ? a : t == 1 ? b : a * (1.0f - t) + b * t;
  };
  const unsigned rows = 7, columns = 11;
  vela::buildRectQuadMesh(m, p0, p1, p2, p3, rows, columns, false, true, false, false);
  for (unsigned i = 0; i <= rows; ++i)
    for (unsigned j = 0; j <= columns; ++j) {
      const float t = static_cast<float>(i) / 7.0f, s = static_cast<float>(j) / 11.0f;
      for (std::size_t k = 0; k < 3; ++k)
        EXPECT_EQ(m.points[i * 12 + j][k], blend(blend(p0[k], p1[k], s), blend(p3[k], p2[k], s), t))
            << i << ' ' << j;
    }
}

TEST(BuildRectQuadMesh, NothingHappensWithoutRowsOrColumns) {
  MeshSample m;
  m.points = {{1, 2, 3}};
  m.normals = {{1, 2, 3}};
  for (const auto& [rows, columns] : {std::pair{0u, 3u}, {3u, 0u}, {0u, 0u}})
    vela::buildRectQuadMesh(m, {}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, rows, columns, true, true, true,
                            true);
  EXPECT_EQ(m.points.size(), 1u);
  EXPECT_EQ(m.normals.size(), 1u);
  EXPECT_EQ(m.nFaces(), 0u);
  EXPECT_FALSE(m.allQuads);
}

TEST(BuildRectQuadMesh, EachFlagBuildsItsOwnArrayOnly) {
  for (int flags = 0; flags < 16; ++flags) {
    MeshSample m;
    vela::buildRectQuadMesh(m, {}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, 2, 3, flags & 1, flags & 2,
                            flags & 4, flags & 8);
    EXPECT_EQ(m.nFaces(), (flags & 1) ? 6u : 0u);
    EXPECT_EQ(m.nVerts(), (flags & 1) ? 24u : 0u);
    EXPECT_EQ(m.points.size(), (flags & 2) ? 12u : 0u);
    EXPECT_EQ(m.normals.size(), (flags & 4) ? 24u : 0u);
    EXPECT_EQ(m.uvs.size(), (flags & 8) ? 12u : 0u);
    EXPECT_EQ(m.allQuads, (flags & 1) != 0);
  }
}

TEST(BuildRectQuadMesh, BuildingAgainReplacesEverything) {
  MeshSample m;
  m.addTri(0, 1, 2);
  for (int round = 0; round < 2; ++round)
    vela::buildRectQuadMesh(m, {}, {4, 0, 0}, {4, 2, 0}, {0, 2, 0}, 2, 4, true, true, true, true);
  EXPECT_EQ(m.nFaces(), 8u);
  EXPECT_EQ(m.normals.size(), 32u);
  EXPECT_EQ(m.points[6], Vec3f(1, 1, 0));
  EXPECT_EQ(m.uvs[6], Vec2f(0.25f, 0.5f));
  EXPECT_TRUE(m.allQuads);
  EXPECT_FALSE(m.allTriangles);
  EXPECT_EQ(std::vector<int>(m.faceVertPointIndices() + 4 * 5, m.faceVertPointIndices() + 4 * 6),
            (std::vector<int>{6, 7, 12, 11}));
  const Measures got = measure(topologyOf(m));
  EXPECT_DOUBLE_EQ(got.area, 8.0);
  EXPECT_EQ(got.euler, 1);
  expectNormalsOutward(m, 0.99);
}

TEST(BuildRectQuadMesh, TooManyForPointNumbersIsALengthErrorAndChangesNothing) {
  MeshSample m;
  EXPECT_THROW(vela::buildRectQuadMesh(m, {}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, 4000000000u,
                                       4000000000u, true, true, true, true),
               std::length_error);
  EXPECT_THROW(vela::buildCube(m, kBox, 4000000000u, 4000000000u, true, true, true, true, true),
               std::length_error);
  EXPECT_THROW(vela::buildRevolveMeshFaces(m, 4000000000u, 4000000000u, true, true, true),
               std::length_error);
  EXPECT_EQ(m.nFaces(), 0u);
  EXPECT_TRUE(m.points.empty());
}

TEST(BuildCube, OneDivisionEachHasSixQuadsAndEightPointsSharedOr24) {
  for (const bool shared : {true, false}) {
    const MeshSample m = cube(1, 1, shared);
    EXPECT_EQ(m.nFaces(), 6u);
    EXPECT_EQ(m.nVerts(), 24u);
    EXPECT_EQ(m.nPoints(), shared ? 8u : 24u);
    EXPECT_EQ(m.uvs.size(), 24u);
    EXPECT_TRUE(m.allQuads);
    EXPECT_FALSE(m.allTriangles);
  }
}

TEST(BuildCube, SharedPointsOfOneDivisionAreTheFrontAndTheBack) {
  const MeshSample m = cube(1, 1, true);
  EXPECT_EQ(m.points, (ovo::Array<Vec3f>{{-1, -2, 5},
                                         {3, -2, 5},
                                         {-1, 4, 5},
                                         {3, 4, 5},
                                         {3, -2, -3},
                                         {-1, -2, -3},
                                         {3, 4, -3},
                                         {-1, 4, -3}}));
  EXPECT_EQ(indices(m), (std::vector<int>{0, 1, 3, 2, 4, 5, 7, 6, 1, 4, 6, 3,
                                          5, 0, 2, 7, 2, 3, 6, 7, 5, 4, 1, 0}));
}

TEST(BuildCube, CountsFollowTheFormulasForAllDivisions) {
  for (unsigned side = 1; side < 6; ++side)
    for (unsigned cap = 1; cap < 6; ++cap) {
      const MeshSample shared = cube(side, cap, true), own = cube(side, cap, false);
      EXPECT_EQ(shared.nFaces(), 2 * (2 * side + cap) * cap);
      EXPECT_EQ(own.nFaces(), shared.nFaces());
      EXPECT_EQ(shared.nPoints(), (2 * cap - 2) * (side + cap) + (2 * side + 2) * (cap + 1));
      EXPECT_EQ(own.nPoints(), 2 * (2 * side + cap + 3) * (cap + 1));
      EXPECT_EQ(shared.uvs.size(), shared.nVerts());
      EXPECT_EQ(own.uvs.size(), own.nPoints());
      EXPECT_EQ(shared.normals, own.normals);
      // The same corner positions either way, in the same order.
      for (std::size_t i = 0; i < own.nVerts(); ++i) {
        const Vec3f a = own.points[static_cast<std::size_t>(own.faceVertPointIndices()[i])];
        const Vec3f b = shared.points[static_cast<std::size_t>(shared.faceVertPointIndices()[i])];
        for (std::size_t k = 0; k < 3; ++k)
          ASSERT_NEAR(a[k], b[k], 1e-5f) << side << ' ' << cap << ' ' << i;
      }
      std::set<int> used;
      for (const int p : indices(shared)) used.insert(p);
      EXPECT_EQ(used.size(), shared.nPoints()) << "no point is left over";
    }
}

TEST(BuildCube, IsClosedWithTheVolumeAndAreaOfTheBox) {
  for (const auto& [side, cap] : {std::pair{1u, 1u}, {3u, 2u}, {2u, 5u}}) {
    for (const bool shared : {true, false}) {
      const MeshSample m = cube(side, cap, shared);
      const Measures got = measure(shared ? topologyOf(m) : welded(m));
      EXPECT_TRUE(got.closed) << side << ' ' << cap;
      EXPECT_EQ(got.euler, 2);
      EXPECT_NEAR(got.volume, 4.0 * 6 * 8, 1e-3);
      EXPECT_NEAR(got.area, 2.0 * (24 + 48 + 32), 1e-3);
      expectNormalsOutward(m, 0.999);
    }
  }
}

TEST(BuildCube, PointsWithoutSharingComeFaceByFaceAndRowByRow) {
  const MeshSample m = cube(2, 2, false, Box3d(Vec3d(0), Vec3d(2)));
  const std::size_t grid = 9;
  EXPECT_EQ(m.points[0], Vec3f(0, 0, 2));
  EXPECT_EQ(m.points[5], Vec3f(2, 1, 2)) << "front: x first, then up";
  EXPECT_EQ(m.points[grid], Vec3f(2, 0, 0)) << "back: from x max";
  EXPECT_EQ(m.points[2 * grid + 1], Vec3f(2, 0, 1)) << "right: from z max";
  EXPECT_EQ(m.points[3 * grid + 1], Vec3f(0, 0, 1)) << "left: from z min";
  EXPECT_EQ(m.points[4 * grid + 3], Vec3f(0, 2, 1)) << "top: rows from z max";
  EXPECT_EQ(m.points[5 * grid + 8], Vec3f(2, 0, 0));
  const auto faces = topologyOf(m).faces();
  EXPECT_EQ(faces[0][2], 4);
  const auto bottom = faces[20];
  EXPECT_EQ(std::vector<int>(bottom.begin(), bottom.end()), (std::vector<int>{48, 49, 46, 45}))
      << "turned round";
}

TEST(BuildCube, UVsOfTheBottomAreMirroredWithoutSharing) {
  const MeshSample own = cube(2, 2, false), shared = cube(2, 2, true);
  EXPECT_EQ(own.uvs[1], Vec2f(0.5f, 0));
  EXPECT_EQ(own.uvs[36 + 3], Vec2f(0, 0.5f));
  EXPECT_EQ(own.uvs[45], Vec2f(0, 1));
  EXPECT_EQ(own.uvs[53], Vec2f(1, 0));
  EXPECT_EQ(shared.uvs[4], Vec2f(0.5f, 0));
  EXPECT_EQ(shared.uvs[6], Vec2f(1, 0.5f));
  EXPECT_EQ(shared.uvs[shared.uvs.size() - 2], Vec2f(1, 1));
}

TEST(BuildCube, UVsAndNormalsAreAppended) {  // KEEP(cube-appends)
  MeshSample m = cube(1, 1, true);
  vela::buildCube(m, kBox, 1, 1, true, true, true, true, true);
  EXPECT_EQ(m.nFaces(), 6u);
  EXPECT_EQ(m.nPoints(), 8u);
  EXPECT_EQ(m.uvs.size(), 48u);
  EXPECT_EQ(m.normals.size(), 48u);
  EXPECT_EQ(m.normals[24], Vec3f(0, 0, 1));
}

TEST(BuildCube, NothingHappensWithoutDivisions) {
  MeshSample m;
  vela::buildCube(m, kBox, 0, 1, true, true, true, true, true);
  vela::buildCube(m, kBox, 1, 0, true, true, true, true, false);
  EXPECT_EQ(m.nFaces(), 0u);
  EXPECT_TRUE(m.points.empty() && m.uvs.empty() && m.normals.empty());
}

// A revolved shape whole, with faces and arrays sized as the builders want them.
struct Profile {
  std::function<float(int)> radius, height;
};
MeshSample revolved(unsigned rows, unsigned columns, const Profile& profile, const Vec3f& scale,
                    bool topCap, bool bottomCap, bool shareCapRings) {
  MeshSample m;
  const std::size_t caps = (topCap ? 1u : 0u) + (bottomCap ? 1u : 0u);
  m.points.resize((rows + 1) * columns + caps * (1 + (shareCapRings ? 0 : columns)));
  vela::buildRevolveMeshPoints(m, rows, columns, profile.radius, profile.height, scale, topCap,
                               bottomCap, shareCapRings);
  vela::buildRevolveMeshFaces(m, rows, columns, topCap, bottomCap, shareCapRings);
  m.uvs.resize(m.nVerts());
  m.normals.resize(m.nVerts());
  return m;
}
const Profile kCylinder{[](int) { return 1.0f; },
                        [](int row) { return static_cast<float>(row) - 1.0f; }};
// Rings of a unit sphere; the poles are rows -1 and rows + 1.
Profile sphere(unsigned rows) {
  const auto angle = [rows](int row) { return M_PI * (row + 1) / static_cast<double>(rows + 2); };
  return {[angle](int row) { return static_cast<float>(std::sin(angle(row))); },
          [angle](int row) { return static_cast<float>(-std::cos(angle(row))); }};
}

TEST(BuildRevolveMesh, RingsStartOnZAndTurnTowardsXWithoutASeamPoint) {
  const MeshSample m = revolved(2, 4, kCylinder, {2, 3, 5}, false, false, true);
  ASSERT_EQ(m.nPoints(), 12u);
  const float step = static_cast<float>(2 * M_PI / 4);
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t k = 0; k < 4; ++k) {
      const float a = static_cast<float>(k) * step;
      EXPECT_EQ(m.points[r * 4 + k],
                Vec3f(std::sin(a) * 2, (static_cast<float>(r) - 1) * 3, std::cos(a) * 5));
    }
  EXPECT_EQ(m.points[0], Vec3f(0, -3, 5));
}

TEST(BuildRevolveMesh, AFlatCapHasItsPoleInThePlaneOfTheRingAndAPointedOneARowFurther) {
  const MeshSample flat = revolved(2, 5, kCylinder, Vec3f(1), true, true, false);
  ASSERT_EQ(flat.nPoints(), 3u * 5 + 2 * 6);
  EXPECT_EQ(flat.points[0], Vec3f(0, -1, 0));
  EXPECT_EQ(flat.points[1], flat.points[6]) << "the cap's own ring";
  EXPECT_EQ(flat.points[26], Vec3f(0, 1, 0));
  EXPECT_EQ(flat.points[21], flat.points[16]);
  const Profile spindle{[](int row) { return row < 0 || row > 2 ? 0.0f : 1.0f; }, kCylinder.height};
  const MeshSample pointed = revolved(2, 5, spindle, {1, 2, 1}, true, true, true);
  ASSERT_EQ(pointed.nPoints(), 3u * 5 + 2);
  EXPECT_EQ(pointed.points[0], Vec3f(0, -4, 0));
  EXPECT_EQ(pointed.points[16], Vec3f(0, 4, 0));
}

TEST(BuildRevolveMesh, CallbacksAreAskedForRowsFromMinusOneToOnePastTheLast) {
  std::set<int> asked;
  const Profile profile{[&](int row) {
                          asked.insert(row);
                          return 1.0f;
                        },
                        kCylinder.height};
  revolved(3, 4, profile, Vec3f(1), true, true, true);
  EXPECT_EQ(asked, (std::set<int>{-1, 0, 1, 2, 3, 4}));
  asked.clear();
  revolved(3, 4, profile, Vec3f(1), false, false, true);
  EXPECT_EQ(asked, (std::set<int>{0, 1, 2, 3}));
}

TEST(BuildRevolveMesh, EmptyArraysStayEmpty) {
  MeshSample m;
  vela::buildRevolveMeshPoints(m, 2, 4, kCylinder.radius, kCylinder.height, Vec3f(1), true, true,
                               true);
  vela::buildRevolveMeshUVs(m, 2, 4, 360, 180, true, true, true, true);
  vela::buildCylinderMeshNormals(m, 2, 4, Vec3f(1), true, true);
  vela::buildSphereMeshNormals(m, 2, 4, Vec3f(1), true, true);
  EXPECT_TRUE(m.points.empty() && m.uvs.empty() && m.normals.empty());
  m = revolved(2, 4, kCylinder, Vec3f(1), true, true, true);
  m.points.clear();
  vela::buildCylinderMeshNormals(m, 2, 4, Vec3f(1), true, true);
  vela::buildSphereMeshNormals(m, 2, 4, Vec3f(1), true, true);
  for (const auto& n : m.normals) EXPECT_EQ(n, Vec3f());
}

TEST(BuildRevolveMesh, ArraysThatAreTooShortAreFilledToTheirEnd) {
  const MeshSample whole = revolved(3, 5, sphere(3), Vec3f(1), true, true, false);
  for (std::size_t n = 1; n < whole.nVerts(); n += 3) {
    MeshSample m = whole;
    m.points.resize(std::min(n, whole.nPoints()));
    m.uvs.resize(n);
    m.normals.resize(n);
    vela::buildRevolveMeshPoints(m, 3, 5, sphere(3).radius, sphere(3).height, Vec3f(1), true, true,
                                 false);
    for (std::size_t i = 0; i < m.nPoints(); ++i) EXPECT_EQ(m.points[i], whole.points[i]);
    vela::buildRevolveMeshUVs(m, 3, 5, 360, 180, true, true, true, true);
    vela::buildCylinderMeshNormals(m, 3, 5, Vec3f(1), true, true);
    vela::buildSphereMeshNormals(m, 3, 5, Vec3f(1), true, true);
    EXPECT_EQ(m.normals.size(), n);
  }
  MeshSample huge = whole;
  const unsigned most = std::numeric_limits<unsigned>::max();
  vela::buildRevolveMeshPoints(huge, most, most, kCylinder.radius, kCylinder.height, Vec3f(1), true,
                               true, false);
  vela::buildRevolveMeshPoints(huge, most, 0, kCylinder.radius, kCylinder.height, Vec3f(1), true,
                               true, false);
  vela::buildRevolveMeshPoints(huge, 3, 5, nullptr, nullptr, Vec3f(1), true, true, false);
  vela::buildRevolveMeshUVs(huge, most, most, 360, 180, true, true, true, true);
  vela::buildRevolveMeshUVs(huge, most, 0, 0, 0, true, true, true, true);
  vela::buildCylinderMeshNormals(huge, most, most, Vec3f(1), true, true);
  vela::buildSphereMeshNormals(huge, most, most, Vec3f(1), true, true);
  EXPECT_EQ(huge.nPoints(), whole.nPoints());
}

TEST(BuildRevolveMeshUVs, AFullSweepCoversTheUnitSquareInFaceOrder) {
  MeshSample m = revolved(1, 4, kCylinder, Vec3f(1), true, true, true);
  vela::buildRevolveMeshUVs(m, 1, 4, 360, 180, true, true, true, true);
  const float third = 1.0f / 3.0f;
  EXPECT_EQ(m.uvs[0], Vec2f(0, 0));
  EXPECT_EQ(m.uvs[1], Vec2f(0.25f, third));
  EXPECT_EQ(m.uvs[2], Vec2f(0, third));
  EXPECT_EQ(m.uvs[12], Vec2f(0, third)) << "first band";
  EXPECT_EQ(m.uvs[14], Vec2f(0.25f, third + third));
  EXPECT_EQ(m.uvs[28], Vec2f(0, third + third)) << "top cap";
  EXPECT_EQ(m.uvs[30], Vec2f(0.25f, third + third + third))
      << "its pole stands over the second corner";
}

TEST(BuildRevolveMeshUVs, CapsWithoutPolesHaveNoHeight) {
  MeshSample m = revolved(2, 4, kCylinder, Vec3f(1), true, true, true);
  vela::buildRevolveMeshUVs(m, 2, 4, 360, 180, true, true, false, false);
  EXPECT_EQ(m.uvs[0], Vec2f(0, 0));
  EXPECT_EQ(m.uvs[1], Vec2f(0.25f, 0));
  EXPECT_EQ(m.uvs[2], Vec2f(0, 0));
  EXPECT_EQ(m.uvs[12 + 2], Vec2f(0.25f, 0.5f));
  EXPECT_EQ(m.uvs[12 + 32], Vec2f(0, 1));
  EXPECT_EQ(m.uvs[12 + 32 + 2], Vec2f(0, 1));
}

TEST(BuildRevolveMeshUVs, APartialSweepStaysCentred) {
  MeshSample m = revolved(1, 2, kCylinder, Vec3f(1), false, false, true);
  vela::buildRevolveMeshUVs(m, 1, 2, 720, 360, false, false, false, false);
  EXPECT_EQ(m.uvs[0], Vec2f(0.25f, 0.25f));
  EXPECT_EQ(m.uvs[6], Vec2f(0.75f, 0.75f));
}

TEST(BuildCylinderMeshNormals, AreRadialAndDividedByTheScale) {  // KEEP(scaled-once)
  MeshSample m = revolved(2, 16, kCylinder, {2, 3, 0.5f}, true, true, false);
  vela::buildCylinderMeshNormals(m, 2, 16, {2, 3, 0.5f}, true, true);
  EXPECT_EQ(m.normals[0], Vec3f(0, -1, 0));
  EXPECT_EQ(m.normals[47], Vec3f(0, -1, 0));
  EXPECT_EQ(m.normals.back(), Vec3f(0, 1, 0));
  const Vec3f p = m.points[static_cast<std::size_t>(m.faceVertPointIndices()[48 + 5])];
  EXPECT_EQ(m.normals[48 + 5], Vec3f(p.x / 2, 0, p.z / 0.5f).normalized());
  expectNormalsOutward(m, 0.6);
}

TEST(BuildCylinderMeshNormals, AClosedCylinderHasItsVolumeAreaAndEulerNumber) {
  const unsigned n = 64;
  for (const bool shared : {true, false}) {
    const MeshSample m = revolved(3, n, kCylinder, {2, 3, 2}, true, true, shared);
    const Measures got = measure(shared ? topologyOf(m) : welded(m));
    EXPECT_TRUE(got.closed);
    EXPECT_EQ(got.euler, 2);
    const double area = n / 2.0 * std::sin(2 * M_PI / n) * 4,
                 around = 2 * n * std::sin(M_PI / n) * 2;
    EXPECT_NEAR(got.volume, area * 9, 1e-3);
    EXPECT_NEAR(got.area, 2 * area + around * 9, 1e-3);
  }
}

TEST(BuildSphereMeshNormals, AreThePositionsDividedByTheScaleAndLeadOutward) {
  const Vec3f scale(2, 1, 3);
  MeshSample m = revolved(12, 24, sphere(12), scale, true, true, true);
  vela::buildSphereMeshNormals(m, 12, 24, scale, true, true);
  for (std::size_t i = 0; i < m.nVerts(); ++i) {
    const Vec3f p = m.points[static_cast<std::size_t>(m.faceVertPointIndices()[i])];
    EXPECT_EQ(m.normals[i], (p / scale).normalized());
  }
  expectNormalsOutward(m, 0.8);
}

TEST(BuildSphereMeshNormals, ElementsBeyondTheFacesAreDividedAndNormalisedToo) {
  MeshSample m = revolved(2, 4, sphere(2), Vec3f(1), false, false, true);
  m.normals.push_back({0, 8, 0});
  m.normals.push_back({0, 0, 0});
  vela::buildSphereMeshNormals(m, 2, 4, {1, 2, 1}, false, false);
  EXPECT_EQ(m.normals[m.nVerts()], Vec3f(0, 1, 0));
  EXPECT_EQ(m.normals.back(), Vec3f());
}

TEST(BuildSphereMeshNormals, ASphereHasTheVolumeAreaAndEulerNumberOfOne) {
  const MeshSample m = revolved(62, 128, sphere(62), Vec3f(2), true, true, true);
  const Measures got = measure(topologyOf(m));
  EXPECT_TRUE(got.closed);
  EXPECT_EQ(got.euler, 2);
  EXPECT_NEAR(got.volume, 4.0 / 3 * M_PI * 8, 0.1);
  EXPECT_NEAR(got.area, 4 * M_PI * 4, 0.1);
  ovo::Array<Vec3f> smooth;
  ASSERT_TRUE(vela::calcPointNormals(m.nPoints(), m.pointLocations(), m.nVerts(),
                                     m.faceVertPointIndices(), m.nFaces(), m.vertsPerFace(),
                                     m.allTriangles, m.allQuads, smooth, true));
  for (std::size_t i = 0; i < m.nPoints(); ++i)
    EXPECT_GT(dot(smooth[i], m.points[i].normalized()), 0.99f);
}

TEST(BuildRevolveMeshFaces, IndicesThatNameNoPointAreLeftAlone) {
  MeshSample m = revolved(2, 4, sphere(2), Vec3f(1), true, true, true);
  m.points.resize(3);
  for (auto& n : m.normals) n = Vec3f(0, 0, 7);
  vela::buildCylinderMeshNormals(m, 2, 4, Vec3f(1), false, false);
  EXPECT_EQ(m.normals.size(), m.nVerts());
  vela::buildSphereMeshNormals(m, 2, 4, Vec3f(1), true, true);
  EXPECT_EQ(m.normals.back(), Vec3f(0, 0, 1));
}

TEST(MeshBuilders, WholeSphereIsClosedAndTouchesItsEllipsoid) {
  for (const unsigned rows : {2u, 3u, 9u}) {
    MeshSample mesh;
    mesh.points = {{9, 9, 9}};
    mesh.normals = {{9, 9, 9}};
    vela::buildSphereMesh(mesh, rows, 12, {1, 2, 3});
    EXPECT_EQ(mesh.nPoints(), 2 + (rows - 1) * 12u);
    EXPECT_EQ(mesh.nFaces(), rows * 12u);
    EXPECT_EQ(mesh.uvs.size(), mesh.nVerts());
    EXPECT_EQ(mesh.normals.size(), mesh.nVerts());
    for (const Vec3f& p : mesh.points.view()) EXPECT_NEAR((p / Vec3f(1, 2, 3)).length(), 1, 1e-6);
    for (const Vec3f& n : mesh.normals.view()) EXPECT_NEAR(n.length(), 1, 1e-6);
    for (const tarn::Vec2f& uv : mesh.uvs.view())
      EXPECT_TRUE(uv.x > -1e-5f && uv.x < 1.00001f && uv.y > -1e-5f && uv.y < 1.00001f);
    for (const auto& edge : topologyOf(mesh).edges()) EXPECT_EQ(edge.faceCount, 2);
  }
}

TEST(MeshBuilders, WholeCylinderIsThePartsInOne) {
  for (const bool shared : {false, true})
    for (const bool caps : {false, true}) {
      const Vec3f scale(2, 3, 0.5f);
      MeshSample parts, whole;
      vela::buildCylinderMesh(whole, 4, 7, scale, caps, caps, shared);
      vela::buildRevolveMeshFaces(parts, 4, 7, caps, caps, shared);
      parts.points.resize(5 * 7 + (caps ? 2 * (shared ? 1 : 8) : 0));
      vela::buildRevolveMeshPoints(
          parts, 4, 7, [](int) { return 1.0f; },
          [](int row) { return 0.5f * static_cast<float>(row) - 1.0f; }, scale, caps, caps, shared);
      parts.uvs.resize(parts.nVerts());
      vela::buildRevolveMeshUVs(parts, 4, 7, 360, 180, caps, caps, false, false);
      parts.normals.resize(parts.nVerts());
      vela::buildCylinderMeshNormals(parts, 4, 7, scale, caps, caps);
      EXPECT_EQ(whole.points, parts.points);
      EXPECT_EQ(whole.uvs, parts.uvs);
      EXPECT_EQ(whole.normals, parts.normals);
      EXPECT_EQ(indices(whole), indices(parts));
    }
}

TEST(MeshBuilders, WholeShapesWithoutRowsOrTooLargeChangeNothing) {
  MeshSample mesh;
  mesh.points = {{1, 2, 3}};
  vela::buildSphereMesh(mesh, 1, 8, Vec3f(1.0f));
  vela::buildCylinderMesh(mesh, 0, 8, Vec3f(1.0f), true, true, true);
  EXPECT_THROW(vela::buildSphereMesh(mesh, 100000, 100000, Vec3f(1.0f)), std::length_error);
  EXPECT_EQ(mesh.points, ovo::Array<Vec3f>({{1, 2, 3}}));
  EXPECT_EQ(mesh.nFaces(), 0u);
}

}  // namespace
