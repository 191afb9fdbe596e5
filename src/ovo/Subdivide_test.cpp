#include "ovo/Subdivide.h"

#include <gtest/gtest.h>
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "support/SampleMeshes.h"

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela_test::SampleMesh;
using vela_test::sampleMesh;
using vela_test::sampleMeshes;

struct Mesh {
  ovo::Array<int> counts, indices;
  ovo::Array<Vec3f> points;
  ovo::Array<float> scalars;
  ovo::Array<Vec2f> uvs;
  ovo::Array<Vec3f> vectors;

  Mesh() = default;
  explicit Mesh(const SampleMesh& m) : counts(m.counts), indices(m.indices), points(m.points) {}

  bool refine(const ovo::ArgSet& args, int levels, int from = 0) {
    ovo::MeshTessellateContext context;
    context.vertsPerFace = &counts;
    context.faceVertPointIndices = &indices;
    context.points = &points;
    if (!scalars.empty()) context.floats.push_back(&scalars);
    if (!uvs.empty()) context.vec2s.push_back(&uvs);
    if (!vectors.empty()) context.vec3s.push_back(&vectors);
    return ovo::subdivideUniform(args, counts.size(), indices.size(), points.size(), from,
                                 from + levels, context);
  }
  const Vec3f& corner(std::size_t c) const { return points[static_cast<std::size_t>(indices[c])]; }
};

ovo::ArgSet scheme(const char* name) {
  ovo::ArgSet args;
  args.scheme = name;
  return args;
}

struct P {
  Vec3d v;
  void Clear() { v = {}; }
  void AddWithWeight(const P& p, double w) { v += p.v * w; }
};

// The whole mesh through OpenSubdiv at once and in double: the corners of the refined faces in
// order, and the positions of the base points on the limit surface.
struct Oracle {
  std::vector<Vec3d> corners, limits;
  int points = 0, faces = 0;
};
Oracle oracle(const SampleMesh& m, Sdc::SchemeType type, int levels, const Sdc::Options& options,
              const std::vector<int>& pairs = {}, const std::vector<float>& weights = {},
              const std::vector<int>& sharp = {}, const std::vector<float>& sharpness = {}) {
  Far::TopologyDescriptor d;
  d.numVertices = static_cast<int>(m.points.size());
  d.numFaces = static_cast<int>(m.counts.size());
  d.numVertsPerFace = m.counts.data();
  d.vertIndicesPerFace = m.indices.data();
  d.numCreases = static_cast<int>(weights.size());
  d.creaseVertexIndexPairs = pairs.data();
  d.creaseWeights = weights.data();
  d.numCorners = static_cast<int>(sharp.size());
  d.cornerVertexIndices = sharp.data();
  d.cornerWeights = sharpness.data();
  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  const std::unique_ptr<Far::TopologyRefiner> refiner(
      Factory::Create(d, Factory::Options(type, options)));
  Far::TopologyRefiner::UniformOptions uniform(levels);
  uniform.fullTopologyInLastLevel = true;
  refiner->RefineUniform(uniform);
  const Far::PrimvarRefinerReal<double> values(*refiner);
  std::vector<P> at, next;
  for (const auto& p : m.points) at.push_back({Vec3d(p)});
  for (int l = 1; l <= levels; ++l) {
    next.assign(static_cast<std::size_t>(refiner->GetLevel(l).GetNumVertices()), P());
    values.Interpolate(l, at, next);
    at.swap(next);
  }
  const Far::TopologyLevel& last = refiner->GetLevel(levels);
  Oracle out;
  out.points = last.GetNumVertices();
  out.faces = last.GetNumFaces();
  for (int f = 0; f < last.GetNumFaces(); ++f)
    for (const int p : last.GetFaceVertices(f))
      out.corners.push_back(at[static_cast<std::size_t>(p)].v);
  next.assign(at.size(), P());
  values.Limit(at, next);
  for (std::size_t p = 0; p < m.points.size(); ++p) out.limits.push_back(next[p].v);
  return out;
}

void expectNear(const Vec3f& a, const Vec3d& b, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i) ASSERT_NEAR(static_cast<double>(a[i]), b[i], tolerance);
}

void expectCorners(const Mesh& mesh, const Oracle& o) {
  // A rounding to float moves a coordinate by at most 2^-24 of the largest. Five of them allow for
  // one a level, of at most four levels, and one for the sums within a level.
  double largest = 0;
  for (const Vec3d& p : o.corners)
    for (std::size_t i = 0; i < 3; ++i) largest = std::max(largest, std::fabs(p[i]));
  const double tolerance = std::max(2e-6, 5 * largest * std::ldexp(1.0, -24));
  ASSERT_EQ(mesh.counts.size(), static_cast<std::size_t>(o.faces));
  ASSERT_EQ(mesh.indices.size(), o.corners.size());
  EXPECT_EQ(mesh.points.size(), static_cast<std::size_t>(o.points));
  for (std::size_t c = 0; c < o.corners.size(); ++c)
    expectNear(mesh.corner(c), o.corners[c], tolerance);
}

bool plain(const SampleMesh& m) {
  // OpenSubdiv gives two faces that run the same way along an edge a point each on it.
  return !m.broken && m.name != "the same face twice" && m.name != "a point twice in a face" &&
         m.name != "unused points";
}
bool isTriangles(const SampleMesh& m) {
  for (const int n : m.counts)
    if (n != 3) return false;
  return true;
}

TEST(SubdivideUniform, PointsAgreeWithOpenSubdivOnTheWholeMesh) {
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  for (const auto& m : sampleMeshes()) {
    if (!plain(m)) continue;
    SCOPED_TRACE(m.name);
    for (int levels = 1; levels <= 4; ++levels) {
      Mesh smooth(m), flat(m);
      ASSERT_TRUE(smooth.refine(scheme("catmullClark"), levels));
      expectCorners(smooth, oracle(m, Sdc::SCHEME_CATMARK, levels, options));
      ASSERT_TRUE(flat.refine(scheme("bilinear"), levels));
      expectCorners(flat, oracle(m, Sdc::SCHEME_BILINEAR, levels, options));
      Mesh loop(m);
      ASSERT_EQ(loop.refine(scheme("loop"), levels), isTriangles(m));
      if (isTriangles(m)) expectCorners(loop, oracle(m, Sdc::SCHEME_LOOP, levels, options));
    }
  }
}

TEST(SubdivideUniform, PointsApproachOpenSubdivsLimitSurface) {
  struct Case {
    const char *mesh, *scheme;
    Sdc::SchemeType type;
    bool sharp;
  };
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  const std::vector<int> pairs = {0, 1, 1, 2, 2, 3, 3, 0, 4, 5}, corners = {6};
  const std::vector<float> weights = {10, 10, 10, 10, 1.5f}, sharpness = {10};
  for (const Case& c : {Case{"cube", "catmullClark", Sdc::SCHEME_CATMARK, false},
                        {"octahedron", "catmullClark", Sdc::SCHEME_CATMARK, false},
                        {"hexagonal prism", "catmullClark", Sdc::SCHEME_CATMARK, false},
                        {"torus", "catmullClark", Sdc::SCHEME_CATMARK, false},
                        {"grid", "catmullClark", Sdc::SCHEME_CATMARK, false},
                        {"cube", "catmullClark", Sdc::SCHEME_CATMARK, true},
                        {"octahedron", "loop", Sdc::SCHEME_LOOP, false},
                        {"tetrahedron", "loop", Sdc::SCHEME_LOOP, false}}) {
    SCOPED_TRACE(std::string(c.mesh) + " " + c.scheme + (c.sharp ? ", sharp" : ""));
    const SampleMesh& m = sampleMesh(c.mesh);
    // OpenSubdiv has limits where nothing is sharp any more but for ever: after the second level.
    const Oracle o = c.sharp ? oracle(m, c.type, 3, options, pairs, weights, corners, sharpness)
                             : oracle(m, c.type, 1, options);
    ovo::ArgSet args = scheme(c.scheme);
    if (c.sharp) {
      args.creaseIndices = {0, 1, 2, 3, 0, 4, 5};
      args.creaseLengths = {5, 2};
      args.creaseSharpnesses = {10.0f, 1.5f};
      args.cornerIndices = {6};
      args.cornerSharpnesses = {10};
    }
    // The distance falls to a quarter with each level, and the first points stay the mesh's own.
    double before = 0;
    for (int levels = 2; levels <= 6; ++levels) {
      Mesh mesh(m);
      ASSERT_TRUE(mesh.refine(args, levels));
      double worst = 0;
      for (std::size_t p = 0; p < m.points.size(); ++p)
        worst = std::max(worst, (Vec3d(mesh.points[p]) - o.limits[p]).length());
      if (levels > (c.sharp ? 3 : 2)) {
        EXPECT_LT(worst, before * 0.36 + 1e-6);
      }
      before = worst;
    }
    EXPECT_LT(before, 1e-3);
    if (c.sharp) {
      EXPECT_EQ(o.limits[6], Vec3d(m.points[6])) << "a sharp corner stays";
      EXPECT_NE(o.limits[7], Vec3d(m.points[7]));
    }
  }
}

TEST(SubdivideUniform, CountsFollowTheClosedFormulas) {
  for (const auto& m : sampleMeshes()) {
    if (!m.closed) continue;
    SCOPED_TRACE(m.name);
    const std::size_t corners = m.indices.size(), faces = m.counts.size(), edges = corners / 2,
                      points = m.points.size();
    std::size_t f = corners, e = 2 * edges + corners, p = points + edges + faces;
    for (int levels = 1; levels <= 4; ++levels) {
      Mesh mesh(m);
      ASSERT_TRUE(mesh.refine(scheme("catmullClark"), levels));
      EXPECT_EQ(mesh.counts.size(), f);
      EXPECT_EQ(mesh.indices.size(), 4 * f);
      EXPECT_EQ(mesh.points.size(), p);
      p += e + f;
      e = 2 * e + 4 * f;
      f *= 4;
    }
    if (!isTriangles(m)) continue;
    f = faces, e = edges, p = points;
    for (int levels = 1; levels <= 4; ++levels) {
      p += e;
      e = 2 * e + 3 * f;
      f *= 4;
      Mesh mesh(m);
      ASSERT_TRUE(mesh.refine(scheme("loop"), levels));
      EXPECT_EQ(mesh.counts.size(), f);
      EXPECT_EQ(mesh.indices.size(), 3 * f);
      EXPECT_EQ(mesh.points.size(), p);
    }
  }
}

TEST(SubdivideUniform, CreasesAndCornersAgreeWithOpenSubdiv) {
  const SampleMesh& m = sampleMesh("cube");
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  ovo::ArgSet args = scheme("catmullClark");
  args.creaseIndices = {0, 1, 2, 3, 0, 4, 5};
  args.creaseLengths = {5, 2};
  args.creaseSharpnesses = {2.5f, 10.0f};
  args.cornerIndices = {6, 7};
  args.cornerSharpnesses = {1.3f, 10.0f};
  for (int levels = 1; levels <= 5; ++levels) {
    Mesh mesh(m);
    ASSERT_TRUE(mesh.refine(args, levels));
    expectCorners(mesh,
                  oracle(m, Sdc::SCHEME_CATMARK, levels, options, {0, 1, 1, 2, 2, 3, 3, 0, 4, 5},
                         {2.5f, 2.5f, 2.5f, 2.5f, 10}, {6, 7}, {1.3f, 10}));
  }
}

TEST(SubdivideUniform, CreaseSharpnessesMayBeGivenForEveryEdge) {
  const SampleMesh& m = sampleMesh("cube");
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  ovo::ArgSet args = scheme("catmullClark");
  args.creaseIndices = {0, 1, 2, 3};
  args.creaseLengths = {4};
  args.creaseSharpnesses = {0.5f, 3.0f, 1.0f};
  Mesh mesh(m);
  ASSERT_TRUE(mesh.refine(args, 3));
  expectCorners(mesh, oracle(m, Sdc::SCHEME_CATMARK, 3, options, {0, 1, 1, 2, 2, 3}, {0.5f, 3, 1}));
}

TEST(SubdivideUniform, WhatCreasesCornersAndHolesNameWronglyCountsForNothing) {
  Mesh mesh(sampleMesh("cube")), clean(sampleMesh("cube"));
  ovo::ArgSet args = scheme("catmullClark");
  args.creaseIndices = {0, 6, 99, -1, 2, 2, 5};
  args.creaseLengths = {2, -3, 0, 2, 1, 900};
  args.creaseSharpnesses = {3, 3, 3, 3, 3, 3};
  args.cornerIndices = {-1, 8, 3, 2};
  args.cornerSharpnesses = {5, 5, -1, std::numeric_limits<float>::quiet_NaN()};
  args.holeIndices = {-1, 6, 1000};
  ASSERT_TRUE(mesh.refine(args, 2));
  ASSERT_TRUE(clean.refine(scheme("catmullClark"), 2));
  EXPECT_EQ(mesh.points, clean.points);
  EXPECT_EQ(mesh.indices, clean.indices);
}

TEST(SubdivideUniform, BoundariesFollowTheirRule) {
  const SampleMesh& m = sampleMesh("grid");
  for (const auto& [word, rule] : {std::pair{"edgeOnly", Sdc::Options::VTX_BOUNDARY_EDGE_ONLY},
                                   {"edgeAndCorner", Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER}}) {
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(rule);
    ovo::ArgSet args = scheme("catmullClark");
    args.interpolateBoundary = word;
    Mesh mesh(m);
    ASSERT_TRUE(mesh.refine(args, 3));
    expectCorners(mesh, oracle(m, Sdc::SCHEME_CATMARK, 3, options));
  }
  Mesh corner(m), edge(m);
  ovo::ArgSet args = scheme("catmullClark");
  ASSERT_TRUE(corner.refine(args, 2));
  args.interpolateBoundary = "edgeOnly";
  ASSERT_TRUE(edge.refine(args, 2));
  EXPECT_EQ(corner.points[0], m.points[0]);
  EXPECT_NE(edge.points[0], m.points[0]);
}

TEST(SubdivideUniform, WithoutBoundaryInterpolationTheFacesAlongTheBorderAreHoles) {
  ovo::ArgSet args = scheme("catmullClark");
  args.interpolateBoundary = "none";
  for (int levels = 1; levels <= 3; ++levels) {
    Mesh mesh(vela_test::makeGrid(5, 6));
    ASSERT_TRUE(mesh.refine(args, levels));
    EXPECT_EQ(mesh.counts.size(), static_cast<std::size_t>(3 * 4) << (2 * levels));
  }
}

TEST(SubdivideUniform, HolesShapeTheirNeighboursAndDoNotComeOut) {
  Mesh holed(sampleMesh("cube")), whole(sampleMesh("cube"));
  ovo::ArgSet args = scheme("catmullClark");
  args.holeIndices = {1};
  ASSERT_TRUE(holed.refine(args, 3));
  ASSERT_TRUE(whole.refine(scheme("catmullClark"), 3));
  EXPECT_EQ(holed.counts.size(), whole.counts.size() * 5 / 6);
  std::size_t c = 0;
  for (std::size_t f = 0; f < whole.counts.size(); ++f) {
    if (f / 64 == 1) continue;
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(holed.corner(c++), whole.corner(f * 4 + k));
  }
  std::set<int> used(holed.indices.cbegin(), holed.indices.cend());
  EXPECT_EQ(used.size(), holed.points.size()) << "no point is left over";
}

TEST(SubdivideUniform, DataIsCarriedByTheFaceVaryingRule) {
  // The corner numbers of a quad's own square: bilinear under every rule but none, since all four
  // are corners of a single face.
  Mesh mesh(sampleMesh("quad"));
  mesh.uvs = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  mesh.scalars = {0, 2, 4, 2};
  mesh.vectors = {{0, 0, 5}, {1, 0, 5}, {1, 1, 5}, {0, 1, 5}};
  ASSERT_TRUE(mesh.refine(scheme("catmullClark"), 3));
  ASSERT_EQ(mesh.uvs.size(), mesh.indices.size());
  ASSERT_EQ(mesh.scalars.size(), mesh.indices.size());
  for (std::size_t c = 0; c < mesh.indices.size(); ++c) {
    EXPECT_NEAR(mesh.scalars[c], 2 * (mesh.uvs[c].x + mesh.uvs[c].y), 1e-5f);
    EXPECT_NEAR(mesh.vectors[c].z, 5, 1e-5f);
    EXPECT_NEAR(mesh.vectors[c].x, mesh.uvs[c].x, 1e-6f);
  }
  // Over a grid whose uvs are its own plane the smooth rules carry what the points do, `all` what a
  // flat one would.
  SampleMesh flat = vela_test::makeGrid(4, 4);
  for (auto& p : flat.points) p.z = 0;
  flat.points[12] = {2.7f, 2.4f, 0};
  const auto withUVs = [&] {
    Mesh m(flat);
    for (const int i : flat.indices)
      m.uvs.push_back(
          {flat.points[static_cast<std::size_t>(i)].x, flat.points[static_cast<std::size_t>(i)].y});
    return m;
  };
  for (const char* rule :
       {"none", "cornersOnly", "cornersPlus1", "cornersPlus2", "boundaries", "all"}) {
    SCOPED_TRACE(rule);
    ovo::ArgSet args = scheme("catmullClark");
    args.faceVaryingLinearInterpolation = rule;
    if (std::string(rule) == "none") args.interpolateBoundary = "edgeOnly";
    Mesh smooth = withUVs(), linear = withUVs();
    ASSERT_TRUE(smooth.refine(args, 3));
    ASSERT_TRUE(linear.refine(scheme("bilinear"), 3));
    float difference = 0;
    for (std::size_t c = 0; c < smooth.indices.size(); ++c) {
      if (std::string(rule) == "all") {
        EXPECT_NEAR(smooth.uvs[c].x, linear.uvs[c].x, 1e-5f);
      } else if (std::string(rule) != "boundaries") {
        EXPECT_NEAR(smooth.uvs[c].x, smooth.corner(c).x, 1e-5f);
        EXPECT_NEAR(smooth.uvs[c].y, smooth.corner(c).y, 1e-5f);
      }
      difference = std::max(difference, std::fabs(smooth.uvs[c].x - linear.uvs[c].x));
    }
    EXPECT_EQ(difference > 0.01f, std::string(rule) != "all");
  }
}

TEST(SubdivideUniform, SeamsStayWhereValuesDiffer) {
  Mesh mesh(sampleMeshes().front());
  for (std::size_t f = 0; f < 6; ++f)
    for (int k = 0; k < 4; ++k)
      mesh.uvs.push_back(
          {static_cast<float>(f) + (k == 1 || k == 2 ? 0.9f : 0.0f), k > 1 ? 0.9f : 0.0f});
  mesh.scalars = mesh.uvs.empty() ? ovo::Array<float>() : ovo::Array<float>(24, 7.0f);
  ASSERT_TRUE(mesh.refine(scheme("catmullClark"), 3));
  for (std::size_t f = 0; f < mesh.counts.size(); ++f)
    for (std::size_t k = 0; k < 4; ++k) {
      EXPECT_GE(mesh.uvs[f * 4 + k].x, static_cast<float>(f / 64));
      EXPECT_LE(mesh.uvs[f * 4 + k].x, static_cast<float>(f / 64) + 0.9f);
      EXPECT_NEAR(mesh.scalars[f * 4 + k], 7, 1e-5f);
    }
}

// The corners of the faces that can be refined. A corner at the same point as the one before it
// does not count, and of fewer than three nothing is left.
std::size_t refinedCorners(const SampleMesh& m) {
  std::size_t corners = 0, first = 0;
  for (std::size_t f = 0; f < m.counts.size(); ++f) {
    const std::size_t n = m.counts[f] > 0 ? static_cast<std::size_t>(m.counts[f]) : 0;
    std::size_t distinct = 0;
    if (m.usable(f))
      for (std::size_t k = 0; k < n; ++k)
        if (m.indices[first + k] != m.indices[first + (k + 1) % n]) ++distinct;
    if (distinct >= 3) corners += distinct;
    first += n;
  }
  return corners;
}

TEST(SubdivideUniform, FacesThatCannotBeUsedDoNotComeOut) {
  for (const auto& m : sampleMeshes()) {
    SCOPED_TRACE(m.name);
    const std::size_t corners = refinedCorners(m);
    for (const char* name : {"catmullClark", "loop", "bilinear"}) {
      Mesh mesh(m);
      mesh.scalars.resize(m.indices.size());
      const Mesh before = mesh;
      if (!mesh.refine(scheme(name), 2)) {
        EXPECT_TRUE(corners == 0 || std::string(name) == "loop");
        EXPECT_EQ(mesh.indices, before.indices);
        EXPECT_EQ(mesh.counts, before.counts);
        EXPECT_EQ(mesh.points.size(), before.points.size());
        EXPECT_EQ(mesh.scalars, before.scalars);
        continue;
      }
      EXPECT_EQ(mesh.indices.size(), corners * 16);
      EXPECT_EQ(mesh.scalars.size(), mesh.indices.size());
      for (const int p : std::as_const(mesh.indices)) {
        ASSERT_GE(p, 0);
        ASSERT_LT(static_cast<std::size_t>(p), mesh.points.size());
      }
    }
  }
}

TEST(SubdivideUniform, NothingHappensWithoutALevelAndNothingChangesOnFailure) {
  Mesh mesh(sampleMesh("cube"));
  const Mesh before = mesh;
  EXPECT_TRUE(mesh.refine(scheme("catmullClark"), 0));
  EXPECT_TRUE(mesh.refine(scheme("catmullClark"), -3));
  EXPECT_FALSE(mesh.refine(scheme("none"), 1));
  EXPECT_FALSE(mesh.refine(scheme(""), 1));
  EXPECT_FALSE(mesh.refine(scheme("loop"), 1));
  EXPECT_FALSE(mesh.refine(scheme("catmullClark"), 16));
  EXPECT_FALSE(mesh.refine(scheme("catmullClark"), 14)) << "more than 2^31 - 1 face-vertices";
  EXPECT_FALSE(mesh.refine(scheme("catmullClark"), std::numeric_limits<int>::max()));
  ovo::MeshTessellateContext context;
  EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 0, 0, 0, 0, 1, context));
  context.vertsPerFace = &mesh.counts;
  context.faceVertPointIndices = &mesh.indices;
  context.points = &mesh.points;
  EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 7, 24, 8, 0, 1, context));
  EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 6, 25, 8, 0, 1, context));
  EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 6, 24, 9, 0, 1, context));
  ovo::Array<float> tooFew(23);
  context.floats = {&tooFew};
  EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 6, 24, 8, 0, 1, context));
  EXPECT_EQ(mesh.points, before.points);
  EXPECT_EQ(mesh.indices, before.indices);
}

TEST(SubdivideUniform, LevelsCountFromTheLevelTheMeshIsAt) {
  Mesh a(sampleMesh("cube")), b(sampleMesh("cube"));
  ASSERT_TRUE(a.refine(scheme("catmullClark"), 2, 0));
  ASSERT_TRUE(b.refine(scheme("catmullClark"), 2, 3));
  EXPECT_EQ(a.points, b.points);
}

TEST(SubdivideUniform, DataPerPointIsRefinedAsThePointsOrLinearly) {
  // Beside the points themselves: what is refined as they are stays what they are, what is linear
  // is what a bilinear mesh has.
  for (const auto& m : sampleMeshes()) {
    if (!plain(m)) continue;
    SCOPED_TRACE(m.name);
    Mesh smooth(m), flat(m);
    ovo::Array<Vec3f> asPoints = m.points, linear = m.points;
    ovo::MeshTessellateContext context;
    context.vertsPerFace = &smooth.counts;
    context.faceVertPointIndices = &smooth.indices;
    context.points = &smooth.points;
    context.pointVec3s.push_back(&asPoints);
    context.linearPointVec3s.push_back(&linear);
    ASSERT_TRUE(ovo::subdivideUniform(scheme("catmullClark"), m.counts.size(), m.indices.size(),
                                      m.points.size(), 0, 3, context));
    ASSERT_TRUE(flat.refine(scheme("bilinear"), 3));
    EXPECT_EQ(asPoints, smooth.points);
    ASSERT_EQ(linear.size(), flat.points.size());
    for (std::size_t p = 0; p < linear.size(); ++p)
      expectNear(linear[p], Vec3d(flat.points[p]), 2e-6);
  }
}

TEST(SubdivideUniform, RefinedFacesAndPointsAreTracedBackToWhatTheyComeFrom) {
  // A row of a triangle, a face that cannot be used, a hole, a quad and a pentagon. Point 0 is
  // unused, 1 and 2 are the hole's alone.
  Mesh mesh;
  mesh.points = {{9, 9, 9}, {2, 1, 0}, {2, 2, 0}, {0, 0, 0}, {1, 0, 0}, {1, 1, 0},
                 {3, 0, 0}, {3, 1, 0}, {4, 0, 0}, {5, 1, 0}, {4, 2, 0}};
  mesh.counts = {3, 2, 4, 4, 5};
  mesh.indices = {3, 4, 5, 0, 0, 5, 4, 1, 2, 4, 6, 7, 1, 6, 8, 9, 10, 7};
  ovo::ArgSet args = scheme("catmullClark");
  args.holeIndices = {2};
  for (int levels = 1; levels <= 3; ++levels) {
    Mesh refined = mesh;
    ovo::Array<int> sources, refinedPoint;
    ovo::MeshTessellateContext context;
    context.vertsPerFace = &refined.counts;
    context.faceVertPointIndices = &refined.indices;
    context.points = &refined.points;
    context.sourceFaces = &sources;
    context.refinedPointOf = &refinedPoint;
    ASSERT_TRUE(ovo::subdivideUniform(args, 5, 18, 11, 0, levels, context));

    // In the order of the faces, as many of each as its corners times four to the levels less one.
    ovo::Array<int> wanted;
    for (const auto& [face, corners] : {std::pair{0, 3}, {3, 4}, {4, 5}})
      for (int i = 0; i < corners << (2 * (levels - 1)); ++i) wanted.push_back(face);
    EXPECT_EQ(sources, wanted);
    EXPECT_EQ(sources.size(), refined.counts.size());

    // Every point that comes out lies where the child of that corner lies: the first refined face
    // of a corner has it.
    ASSERT_EQ(refinedPoint.size(), 11u);
    int next = 0;
    for (std::size_t p = 0; p < 11; ++p) {
      const bool isOut = p != 0 && p != 2;
      EXPECT_EQ(refinedPoint[p], isOut ? next++ : -1) << p;
    }
    const std::size_t firstQuad = static_cast<std::size_t>(3) << (2 * (levels - 1));
    EXPECT_EQ(refined.indices[0], refinedPoint[3]);
    EXPECT_EQ(refined.indices[firstQuad * 4], refinedPoint[4]);
  }
}

TEST(SubdivideUniform, DataPerPointMustBeAsLongAsThePoints) {
  Mesh mesh(sampleMesh("cube"));
  ovo::Array<Vec3f> tooFew(7);
  for (const bool linear : {false, true}) {
    ovo::MeshTessellateContext context;
    context.vertsPerFace = &mesh.counts;
    context.faceVertPointIndices = &mesh.indices;
    context.points = &mesh.points;
    (linear ? context.linearPointVec3s : context.pointVec3s).push_back(&tooFew);
    EXPECT_FALSE(ovo::subdivideUniform(scheme("catmullClark"), 6, 24, 8, 0, 1, context));
    EXPECT_EQ(mesh.counts.size(), 6u);
  }
}

TEST(SubdivideUniform, PartsFitTogether) {
  // 66 x 300 quads are more than one part; their last step agrees with the whole mesh at once.
  const SampleMesh m = vela_test::makeTorus(66, 300, 2.0f, 1.0f);
  Sdc::Options options;
  options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
  Mesh mesh(m);
  for (const int p : m.indices) mesh.vectors.push_back(m.points[static_cast<std::size_t>(p)]);
  ASSERT_TRUE(mesh.refine(scheme("catmullClark"), 1));
  expectCorners(mesh, oracle(m, Sdc::SCHEME_CATMARK, 1, options));
  for (std::size_t c = 0; c < mesh.indices.size(); ++c)
    ASSERT_EQ(mesh.vectors[c], mesh.corner(c))
        << "data without seams, on a surface without borders, is refined as the points are";
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsOurs = false;  // a sanitizer's own bookkeeping would be measured
#else
constexpr bool kMemoryIsOurs = true;
#endif

// Kilobytes in use now, and the most since the last reset, as the system counts them.
std::size_t status(const char* field) {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;)
    if (word == field) {
      std::size_t value = 0;
      file >> value;
      return value;
    }
  return 0;
}

TEST(SubdivideUniform, AMillionQuadsTakeLessThanThreeTimesTheirMemory) {
  for (const bool withUVs : {false, true}) {
    Mesh mesh(vela_test::makeTorus(32, 32, 2.0f, 1.0f));
    if (withUVs)
      for (std::size_t c = 0; c < mesh.indices.size(); ++c) {
        const Vec3f p = mesh.corner(c);
        mesh.uvs.push_back({p.x, p.y});
      }
    std::ofstream("/proc/self/clear_refs") << 5;
    const std::size_t before = status("VmRSS:");
    ASSERT_TRUE(mesh.refine(scheme("catmullClark"), 5));
    const std::size_t most = status("VmHWM:");
    ASSERT_EQ(mesh.counts.size(), 1048576u);
    const std::size_t bytes = mesh.counts.size() * 4 + mesh.indices.size() * 4 +
                              mesh.points.size() * 12 + mesh.uvs.size() * 8;
    if (kMemoryIsOurs && before != 0) {
      EXPECT_LT(most - before, 3 * bytes / 1024) << bytes / 1024 << " KiB of result";
      RecordProperty(withUVs ? "percent_with_uvs" : "percent",
                     static_cast<int>((most - before) * 1024 * 100 / bytes));
    }
  }
}

// All faces of the second level lie around the point in the middle.
TEST(SubdivideUniform, AFaceOfManyCornersTakesNoMoreThanOthers) {
  constexpr int kCorners = 40000;
  Mesh mesh;
  mesh.counts.push_back(kCorners);
  for (int i = 0; i < kCorners; ++i) {
    const float angle = static_cast<float>(i) * 6.2831853f / kCorners;
    mesh.points.push_back({std::cos(angle), std::sin(angle), 0.0f});
    mesh.indices.push_back(i);
  }
  std::ofstream("/proc/self/clear_refs") << 5;
  const std::size_t before = status("VmRSS:");
  ASSERT_TRUE(mesh.refine(scheme("catmullClark"), 2));
  const std::size_t most = status("VmHWM:");
  ASSERT_EQ(mesh.counts.size(), 4u * kCorners);
  for (const Vec3f& p : mesh.points.view()) ASSERT_TRUE(std::isfinite(p.x) && p.z == 0.0f);
  // The result has 6 MiB; what the middle's part takes comes on top.
  if (kMemoryIsOurs && before != 0) {
    EXPECT_LT(most - before, 200u * 1024u);
  }
}

TEST(SubdivideUniform, SaysWhyNothingWasRefined) {
  struct Try {
    ovo::Token scheme;
    ovo::Array<int> counts, indices;
    std::size_t points;
    int level;
    std::string why;
  };
  const std::string noFace =
      "it has no usable face, or more neighbours at a point than can be counted";
  for (const Try& t : std::vector<Try>{
           {"catmullClark", {4}, {0, 1, 2, 3}, 4, 1, ""},
           {"loop", {3}, {0, 1, 2}, 4, 1, ""},
           {"loop", {4}, {0, 1, 2, 3}, 4, 1, "the scheme loop is for triangles alone"},
           {"loop", {4}, {0, 1, 2, 9}, 4, 1, "the scheme loop is for triangles alone"},
           {"loop", {3}, {0, 1, 9}, 4, 1, noFace},
           {"catmullClark", {4}, {0, 1, 2, 9}, 4, 1, noFace},
           {"catmullClark", {}, {}, 4, 1, noFace},
           {"round",
            {4},
            {0, 1, 2, 3},
            4,
            1,
            "its scheme 'round' is none of catmullClark, loop, bilinear"},
           {"bilinear", {4}, {0, 1, 2, 3}, 4, 15, "the refined mesh would be too large to count"},
           {"bilinear", {4}, {0, 1, 2, 3}, 5, 1, "an array is missing or too short"}}) {
    SCOPED_TRACE(t.why);
    ovo::Array<int> counts = t.counts, indices = t.indices;
    ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    ovo::MeshTessellateContext context;
    context.vertsPerFace = &counts;
    context.faceVertPointIndices = &indices;
    context.points = &points;
    ovo::ArgSet args;
    args.scheme = t.scheme;
    std::string why = "something";
    const bool isRefined = ovo::subdivideUniform(args, t.counts.size(), t.indices.size(), t.points,
                                                 0, t.level, context, &why);
    EXPECT_EQ(why, t.why);
    EXPECT_EQ(isRefined, t.why.empty());
    if (!isRefined) {
      EXPECT_EQ(counts, t.counts);
      EXPECT_EQ(indices, t.indices);
      EXPECT_EQ(points.size(), 4u);
    }
  }
}

}  // namespace
