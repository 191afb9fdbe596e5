#include "vela/mesh/MeshSample.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using tarn::Vec3;
using vela::MeshSample;

TEST(MeshSample, IsEmptyAtFirst) {
  const MeshSample m;
  EXPECT_EQ(m.nPoints() + m.nFaces() + m.nVerts(), 0u);
  EXPECT_TRUE(tarn::isDefaultTime(m.time));
  EXPECT_EQ(m.tag, 0);
  EXPECT_TRUE(m.bounds.isEmpty());
  EXPECT_EQ(m.xform, tarn::Mat4<double>());
  EXPECT_EQ(m.inverseXform, tarn::Mat4<double>());
  EXPECT_TRUE(m.xformIsIdentity);
  EXPECT_FALSE(m.allTriangles || m.allQuads || m.reverseWinding);
  EXPECT_TRUE(m.subdivisionScheme.isEmpty());
  EXPECT_EQ(m.subdivisionLevel, 0);
}

TEST(MeshSample, TheFlagsOfAddTriAndAddQuadComeFromEachOther) {  // KEEP(flags-from-each-other)
  MeshSample m;
  m.addTri(0, 1, 2);
  EXPECT_TRUE(m.allTriangles);
  m.addQuad(0, 1, 2, 3);
  EXPECT_TRUE(m.allTriangles);
  EXPECT_FALSE(m.allQuads);
  MeshSample q;
  q.addQuad(0, 1, 2, 3);
  q.addTri(4, 5, 6);
  EXPECT_TRUE(q.allQuads);
  EXPECT_FALSE(q.allTriangles);
  EXPECT_EQ(q.nFaces(), 2u);
  EXPECT_EQ(q.nVerts(), 7u);
  EXPECT_EQ(q.vertsPerFace()[1], 3);
  EXPECT_EQ(q.faceVertPointIndices()[6], 6);
}

TEST(MeshSample, ReservingMoreThanAnArrayCanHoldIsALengthError) {
  MeshSample m;
  m.addTri(0, 1, 2);
  EXPECT_THROW(m.reserveFaceVertSpace(static_cast<std::size_t>(-1), 0), std::length_error);
  EXPECT_THROW(m.reserveFaceVertSpace(0, static_cast<std::size_t>(-1)), std::length_error);
  m.reserveFaceVertSpace(100, 400);
  const auto* before = m.vertsPerFace();
  for (int i = 0; i < 99; ++i) m.addQuad(0, 1, 2, 3);
  EXPECT_EQ(m.vertsPerFace(), before) << "no further allocation";
  m.reserveFaceVertSpace(1, 1);
  EXPECT_EQ(m.nFaces(), 100u);
}

}  // namespace
