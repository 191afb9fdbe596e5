#include "vela/mesh/Triangulate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>
#include <string>

#include "support/SharedData.h"
#include "tarn/Lanes.h"
#include "vela/mesh/detail/Ears.h"

// The kernels of every instruction set, built here beside the library's own.
#define TARN_LANES_ALL_SETS 1
#define TARN_LANES_KERNEL "vela/mesh/detail/EarsLanes.h"
#include "tarn/ForEachInstructionSet.h"

using tarn::Vec3f;
using vela::Triangulate;
using vela::triangulatePolygon;

namespace {

using Points = std::vector<Vec3f>;
using Triples = std::vector<int>;
using Cut = void (*)(const Vec3f*, const int*, int, Triples&);

Triples cutWith(Cut cut, const Points& points) {
  std::vector<int> indices(points.size());
  std::iota(indices.begin(), indices.end(), 0);
  Triples out{7, 7, 7, 7};  // must be replaced
  cut(points.data(), indices.data(), static_cast<int>(points.size()), out);
  return out;
}

Points flat(std::initializer_list<std::pair<float, float>> corners) {
  Points points;
  for (const auto& [x, y] : corners) points.emplace_back(x, y, 0.0f);
  return points;
}

// ---- Triangulate

TEST(Triangulate, TriangleComesBackAsItIs) {
  EXPECT_EQ(cutWith(Triangulate, flat({{0, 0}, {1, 0}, {0, 1}})), Triples({0, 1, 2}));
}

TEST(Triangulate, QuadIsSplitFromCornerZeroWhateverItsShape) {
  const Triples expected{0, 1, 2, 0, 2, 3};
  EXPECT_EQ(cutWith(Triangulate, flat({{0, 0}, {1, 0}, {1, 1}, {0, 1}})), expected);
  EXPECT_EQ(cutWith(Triangulate, flat({{-1, -1}, {0, 0.2f}, {1, -1}, {0, 1}})), expected);
  EXPECT_EQ(cutWith(Triangulate, flat({{0, 0}, {1, 1}, {1, 0}, {0, 1}})), expected);
}

TEST(Triangulate, FewerThanThreeCornersGiveNothing) {
  for (const int count : {0, 1, 2, -1, std::numeric_limits<int>::lowest()}) {
    const Points points(2);
    const int indices[2] = {0, 1};
    Triples out{1, 2, 3};
    Triangulate(points.data(), indices, count, out);
    EXPECT_TRUE(out.empty()) << count;
    out = {1, 2, 3};
    triangulatePolygon(points.data(), indices, count, out);
    EXPECT_TRUE(out.empty()) << count;
  }
}

TEST(Triangulate, ConvexPentagonIsAFanAroundItsLastCorner) {
  const Points pentagon =
      flat({{1, 0}, {0.31f, 0.95f}, {-0.81f, 0.59f}, {-0.81f, -0.59f}, {0.31f, -0.95f}});
  EXPECT_EQ(cutWith(Triangulate, pentagon), Triples({4, 0, 1, 4, 1, 2, 4, 2, 3}));
}

TEST(Triangulate, ClockwiseIsHandledLikeItsMirror) {
  const Points shape = flat({{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}});
  Points mirrored = shape;
  for (auto& p : mirrored) p.x = -p.x;
  EXPECT_EQ(cutWith(Triangulate, shape), cutWith(Triangulate, mirrored));
}

// Corner 3 lies in the triangle at corner 0, so the first ear is at corner 1.
TEST(Triangulate, BlockedCornerIsPassedOver) {
  const Points shape = flat({{0, 0}, {20, 0}, {20, 10}, {9, 9}, {10, 20}, {0, 20}});
  EXPECT_EQ(cutWith(Triangulate, shape), Triples({0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5}));
}

// Corner 3 lies on the line from 5 to 1: no blocker. Two ears later only a turned corner is left,
// and the cut stops one triangle short.
TEST(Triangulate, CornerOnAnEdgeOfTheEarDoesNotBlockAndTheRestIsGivenUp) {
  const Points shape = flat({{0, 0}, {20, 0}, {20, 10}, {10, 10}, {10, 20}, {0, 20}});
  EXPECT_EQ(cutWith(Triangulate, shape), Triples({5, 0, 1, 5, 1, 2, 3, 4, 5}));
}

// KEEP(triangulate-absolute-tolerance): the same shape at a hundredth of the size loses its
// blockers, and the first ear runs over the notch.
TEST(Triangulate, SmallConcavePolygonLosesItsBlockers) {
  Points shape = flat({{0, 0}, {20, 0}, {20, 10}, {5, 5}, {10, 20}, {0, 20}});
  const Triples large = cutWith(Triangulate, shape);
  for (auto& p : shape) p = p * 0.001f;
  const Triples small = cutWith(Triangulate, shape);
  EXPECT_NE(Triples(large.begin(), large.begin() + 3), Triples({5, 0, 1}));
  EXPECT_EQ(Triples(small.begin(), small.begin() + 3), Triples({5, 0, 1}));
}

TEST(Triangulate, StraightCornerCountsAsConvex) {
  const Points shape = flat({{1, 0}, {2, 0}, {2, 2}, {0, 2}, {0, 0}});
  EXPECT_EQ(cutWith(Triangulate, shape), Triples({4, 0, 1, 4, 1, 2, 4, 2, 3}));
}

TEST(Triangulate, CornersAreNotPointIndices) {
  const Points points{{9, 9, 9}, {0, 0, 0}, {1, 0, 0}, {9, 9, 9}, {2, 1, 0}, {1, 2, 0}, {0, 1, 0}};
  const int indices[5] = {1, 2, 4, 5, 6};
  Triples out;
  Triangulate(points.data(), indices, 5, out);
  EXPECT_EQ(out, Triples({4, 0, 1, 4, 1, 2, 4, 2, 3}));
}

TEST(Triangulate, NotANumberStopsTheCut) {
  Points shape = flat({{1, 0}, {2, 0}, {2, 2}, {0, 2}, {0, 0}});
  shape[2].x = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(cutWith(Triangulate, shape).empty());
}

// The rule as it is told, with a vector from which corners are erased.
Triples plainEars(const Points& points) {
  const std::size_t count = points.size();
  const auto n = static_cast<float>(count);
  Vec3f mean, normal;
  for (const Vec3f& p : points) mean += p;
  mean = mean / n;
  for (std::size_t i = 0; i < count; ++i) {
    const Vec3f &a = points[i], &b = points[(i + 1) % count];
    normal.x += (a.y - b.y) * (a.z + b.z);
    normal.y += (a.z - b.z) * (a.x + b.x);
    normal.z += (a.x - b.x) * (a.y + b.y);
  }
  normal = normal.normalized();
  const Vec3f d = points[0] - mean, u = (d - normal * dot(d, normal)).normalized(),
              v = cross(normal, u);
  std::vector<float> x, y;
  for (const Vec3f& p : points) {
    x.push_back(dot(p - mean, u));
    y.push_back(dot(p - mean, v));
  }
  float area = 0;
  for (std::size_t i = 0; i < count; ++i)
    area += x[(i + count - 1) % count] * y[i] - x[i] * y[(i + count - 1) % count];
  area = 0.5f * area;

  Triples out;
  std::vector<std::size_t> left(count);
  std::iota(left.begin(), left.end(), std::size_t{0});
  std::size_t at = 0, failures = 0;
  while (left.size() > 2 && failures < left.size()) {
    const std::size_t r = left.size(), p = left[(at + r - 1) % r], c = left[at],
                      e = left[(at + 1) % r];
    const float turn = (y[p] - y[c]) * (x[e] - x[c]) - (x[p] - x[c]) * (y[e] - y[c]);
    bool isEar = turn * area >= 0;
    for (std::size_t k = 2; k + 1 < r && isEar; ++k) {
      const std::size_t q = left[(at + k) % r];
      isEar = !(((x[c] - x[p]) * (y[e] - y[p]) - (x[e] - x[p]) * (y[c] - y[p])) *
                        ((x[c] - x[p]) * (y[q] - y[p]) - (x[q] - x[p]) * (y[c] - y[p])) >
                    0.0001f &&
                turn * ((x[e] - x[c]) * (y[q] - y[c]) - (x[q] - x[c]) * (y[e] - y[c])) > 0.0001f &&
                ((x[p] - x[e]) * (y[c] - y[e]) - (x[c] - x[e]) * (y[p] - y[e])) *
                        ((x[p] - x[e]) * (y[q] - y[e]) - (x[q] - x[e]) * (y[p] - y[e])) >
                    0.0001f);
    }
    if (isEar) {
      for (const std::size_t corner : {p, c, e}) out.push_back(static_cast<int>(corner));
      left.erase(left.begin() + static_cast<std::ptrdiff_t>(at));
      failures = 0;
      if (at == left.size()) at = 0;
    } else {
      ++failures;
      at = (at + 1) % r;
    }
  }
  return out;
}

// Corners are tested four at a time above some size, and closed up as they go: the triples must not
// know.
TEST(Triangulate, PolygonsOfEverySizeAndShapeAreCutAsTheRuleSays) {
  const unsigned seed = 20261121;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int count = 5; count < 200; count += count < 40 ? 1 : 13)
    for (int kind = 0; kind < 7; ++kind) {
      Points points;
      const double size = kind == 5 ? 0.05 : kind == 6 ? 1e6 : 3.0;
      for (int i = 0; i < count; ++i) {
        const double angle = 6.283185307179586 * i / count;
        double radius = kind == 0   ? 1.0
                        : kind == 1 ? (i % 2 ? 0.4 : 1.0)
                                    : 0.2 + 0.8 * unit(random);
        if (kind == 3) radius = 1.0 - 0.9 * i / count;  // a coil
        double px = size * radius * std::cos(angle), py = size * radius * std::sin(angle);
        if (kind == 4) px = size * unit(random), py = size * unit(random);  // a tangle
        points.emplace_back(static_cast<float>(px), static_cast<float>(0.6 * py),
                            static_cast<float>(0.8 * py + 0.01 * size * unit(random)));
      }
      if (count % 5 == 0) points[static_cast<std::size_t>(count) / 2] = points[1];
      if (count % 17 == 0) points[3].y = std::numeric_limits<float>::infinity();
      ASSERT_EQ(cutWith(Triangulate, points), plainEars(points))
          << count << " corners, kind " << kind;
      for (Vec3f& p : points) p.x = -p.x;
      ASSERT_EQ(cutWith(Triangulate, points), plainEars(points))
          << count << " corners, kind " << kind << ", mirrored";
    }
}

// Many corners against many ears, a block of eight at a time, in every instruction set.
TEST(Triangulate, BlocksOfCornersBlockAsSingleOnesDo) {
  std::vector<vela::detail::AnyBlocks> kernels{vela::detail::plain::anyBlocks};
#if TARN_LANES_HAVE_SSE2
  kernels.push_back(vela::detail::sse2::anyBlocks);
  if (tarn::runsAvx2()) kernels.push_back(vela::detail::avx2::anyBlocks);
#endif
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto coordinate = [&] {
    static const float odd[] = {0.0f,
                                -0.0f,
                                1e-40f,
                                3e38f,
                                -3e38f,
                                0.1f,
                                std::numeric_limits<float>::infinity(),
                                std::numeric_limits<float>::quiet_NaN()};
    if (random() % 8 == 0) return odd[random() % 8];
    return std::uniform_real_distribution<float>(-1, 1)(random);
  };
  const auto point = [&] { return vela::detail::Point2(coordinate(), coordinate()); };
  int blocked = 0;
  for (int round = 0; round < 20000; ++round) {
    const vela::detail::Ear ear(point(), point(), point());
    const int blocks = 1 + static_cast<int>(random() % 4);
    std::vector<float> x, y;
    bool expected = false;
    for (int i = 0; i < blocks * vela::detail::kEarBlock; ++i) {
      // Few of them near the ear, so that both answers are common.
      const float away = random() % 8 == 0 ? 0.0f : 5.0f;
      x.push_back(coordinate() + away);
      y.push_back(coordinate());
      expected = expected || ear.isBlockedBy({x.back(), y.back()});
    }
    blocked += expected ? 1 : 0;
    for (const auto anyBlocks : kernels)
      ASSERT_EQ(expected, anyBlocks(ear, x.data(), y.data(), blocks,
                                    static_cast<int>(random() % static_cast<unsigned>(blocks))))
          << round;
  }
  EXPECT_GT(blocked, 1000);
  EXPECT_LT(blocked, 19000);
}

TEST(Triangulate, CornersAllInOnePointAreCutBecauseNothingIsConcave) {
  EXPECT_EQ(cutWith(Triangulate, Points(5, Vec3f(1, 2, 3))), Triples({4, 0, 1, 4, 1, 2, 4, 2, 3}));
}

// ---- TriangulatePolygon

struct Case {
  std::string name;
  bool simple = false;
  Points points;
};

std::vector<Case> readCorpus() {
  std::ifstream file(vela_test::sourcePath("src/vela/mesh/polygons.txt"));
  std::vector<Case> cases;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t first = line.find(" | "), second = line.find(" | ", first + 3);
    if (second == std::string::npos) {
      ADD_FAILURE() << "not a case: " << line;
      continue;
    }
    Case c;
    c.name = line.substr(0, first);
    c.simple = line.substr(first + 3, second - first - 3) == "simple";
    std::istringstream corners(line.substr(second + 3));
    for (std::string corner; std::getline(corners, corner, ',');) {
      std::istringstream numbers(corner);
      double x = 0, y = 0, z = 0;  // doubles: a stream refuses denormal floats
      if (!(numbers >> x >> y >> z)) ADD_FAILURE() << "bad corner in " << c.name;
      c.points.emplace_back(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
    }
    cases.push_back(c);
  }
  return cases;
}

// Twice the area in long double, seen along `axis`; the 64 bits hold what the corpus has.
long double area2(const Points& p, int axis, int a, int b, int c) {
  const auto u = static_cast<std::size_t>((axis + 1) % 3),
             v = static_cast<std::size_t>((axis + 2) % 3);
  const auto at = [&](int i, std::size_t k) {
    return static_cast<long double>(p[static_cast<std::size_t>(i)][k]);
  };
  return (at(b, u) - at(a, u)) * (at(c, v) - at(a, v)) -
         (at(b, v) - at(a, v)) * (at(c, u) - at(a, u));
}

// What must hold for any input, and, for simple polygons, that nothing is turned over: with areas
// that add up to the whole that means covered exactly once.
void check(const Points& points, bool simple, const std::string& name) {
  const int count = static_cast<int>(points.size());
  const Triples triples = cutWith(triangulatePolygon, points);
  ASSERT_EQ(triples.size(), static_cast<std::size_t>(std::max(0, count - 2)) * 3) << name;
  for (const int corner : triples) ASSERT_TRUE(corner >= 0 && corner < count) << name;
  for (int i = 0; i + 2 < static_cast<int>(triples.size()); i += 3) {
    const auto k = static_cast<std::size_t>(i);
    ASSERT_TRUE(triples[k] != triples[k + 1] && triples[k + 1] != triples[k + 2] &&
                triples[k] != triples[k + 2])
        << name;
  }

  int axis = 2;
  long double whole = 0;
  for (const int candidate : {2, 0, 1}) {
    long double sum = 0;
    for (int i = 1; i + 1 < count; ++i) sum += area2(points, candidate, 0, i, i + 1);
    if (std::fabs(sum) > std::fabs(whole)) {
      whole = sum;
      axis = candidate;
    }
  }
  long double total = 0, magnitude = 0;
  int turnedOver = 0;
  for (std::size_t i = 0; i + 2 < triples.size(); i += 3) {
    const long double area = area2(points, axis, triples[i], triples[i + 1], triples[i + 2]);
    total += area;
    magnitude += std::fabs(area);
    if (whole >= 0 ? area < 0 : area > 0) ++turnedOver;
  }
  EXPECT_LE(std::fabs(total - whole), 1e-15L * magnitude) << name;
  EXPECT_TRUE(!simple || turnedOver == 0) << name << ": " << turnedOver;
}

Points scaled(Points points, int exponent) {
  for (auto& p : points)
    p = Vec3f(std::ldexp(p.x, exponent), std::ldexp(p.y, exponent), std::ldexp(p.z, exponent));
  return points;
}

TEST(TriangulatePolygon, CorpusIsCoveredOnce) {
  const std::vector<Case> cases = readCorpus();
  ASSERT_FALSE(cases.empty());
  for (const Case& c : cases) check(c.points, c.simple, c.name);
}

TEST(TriangulatePolygon, AnyStartCornerAndAnyWindingIsCoveredOnce) {
  for (Case c : readCorpus()) {
    for (std::size_t turn = 0; turn < c.points.size(); ++turn) {
      std::rotate(c.points.begin(), c.points.begin() + 1, c.points.end());
      check(c.points, c.simple, c.name + ", turned by " + std::to_string(turn + 1));
      Points reversed(c.points.rbegin(), c.points.rend());
      check(reversed, c.simple, c.name + ", reversed");
    }
  }
}

TEST(TriangulatePolygon, AnyAxisIsUp) {
  for (const Case& c : readCorpus()) {
    Points turned = c.points;
    for (auto& p : turned) p = Vec3f(p.z, p.x, p.y);
    check(turned, c.simple, c.name);
    for (auto& p : turned) p = Vec3f(p.z, p.x, p.y);
    check(turned, c.simple, c.name);
  }
}

TEST(TriangulatePolygon, SizeDoesNotMatter) {
  const Points shape = flat({{0, 0}, {20, 0}, {20, 10}, {5, 5}, {10, 20}, {0, 20}});
  const Triples expected = cutWith(triangulatePolygon, shape);
  for (const int exponent : {-120, -67, -10, -1, 1, 10, 67, 120})
    EXPECT_EQ(cutWith(triangulatePolygon, scaled(shape, exponent)), expected) << exponent;
}

TEST(TriangulatePolygon, ConvexQuadIsSplitFromCornerZero) {
  EXPECT_EQ(cutWith(triangulatePolygon, flat({{0, 0}, {1, 0}, {1, 1}, {0, 1}})),
            Triples({0, 1, 2, 0, 2, 3}));
}

TEST(TriangulatePolygon, ConcaveQuadIsSplitFromItsConcaveCorner) {
  EXPECT_EQ(cutWith(triangulatePolygon, flat({{-1, -1}, {0, 0.2f}, {1, -1}, {0, 1}})),
            Triples({1, 2, 3, 1, 3, 0}));
}

TEST(TriangulatePolygon, StraightCornersAreSpreadOverTrianglesWithArea) {
  const Points shape = flat({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {3, 1}, {0, 1}});
  const Triples triples = cutWith(triangulatePolygon, shape);
  for (std::size_t i = 0; i < triples.size(); i += 3)
    EXPECT_GT(area2(shape, 2, triples[i], triples[i + 1], triples[i + 2]), 0.0L);
}

TEST(TriangulatePolygon, NonFinitePointsGiveAFan) {
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    Points shape = flat({{0, 0}, {1, 0}, {1, 1}, {0.5f, 2}, {0, 1}});
    shape[3].y = bad;
    EXPECT_EQ(cutWith(triangulatePolygon, shape), Triples({0, 1, 2, 0, 2, 3, 0, 3, 4}));
  }
}

// An outline with random radii is simple by construction, concave all over, and crosses the size
// from which the curve is used.
TEST(TriangulatePolygon, RandomOutlinesAreCoveredOnce) {
  const unsigned seed = 20240611;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (const int count : {5, 6, 7, 8, 12, 16, 31, 32, 33, 63, 64, 65, 66, 100, 300, 2000}) {
    for (int round = 0; round < (count > 200 ? 3 : 60); ++round) {
      Points points;
      const double size = std::exp2(std::floor(unit(random) * 120.0 - 60.0)),
                   tilt = unit(random) * 6.0;
      for (int i = 0; i < count; ++i) {
        const double angle = 6.283185307179586 * i / count, radius = size * (0.05 + unit(random));
        const double x = radius * std::cos(angle), y = radius * std::sin(angle);
        points.emplace_back(static_cast<float>(x), static_cast<float>(y * std::cos(tilt)),
                            static_cast<float>(y * std::sin(tilt)));
      }
      check(points, true, "outline of " + std::to_string(count));
    }
  }
}

// On a coarse grid corners coincide, lie on edges and line up all the time. The outline walks
// around random cells, so that it touches itself but never crosses.
TEST(TriangulatePolygon, RandomCellOutlinesAreCoveredOnce) {
  const unsigned seed = 77;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 400; ++round) {
    // Grow a region of cells without holes as a tree walk: go around the tree of cells that a
    // random walk visited.
    constexpr int kSize = 7;
    bool taken[kSize][kSize] = {};
    Points outline;
    const auto corner = [&](int x, int y) {
      outline.emplace_back(static_cast<float>(x), static_cast<float>(y), 0.0f);
    };
    const auto visit = [&](const auto& self, int x, int y, int from) -> void {
      taken[y][x] = true;
      // Around the cell counter-clockwise, from the corner after the side that was entered by; side
      // 0 is the bottom.
      const int cx[4] = {x, x + 1, x + 1, x}, cy[4] = {y, y, y + 1, y + 1};
      const int dx[4] = {0, 1, 0, -1}, dy[4] = {-1, 0, 1, 0};
      for (int k = 1; k <= 3; ++k) {
        const int s = (from + k) % 4, nx = x + dx[s], ny = y + dy[s];
        corner(cx[s], cy[s]);
        if (nx >= 0 && ny >= 0 && nx < kSize && ny < kSize && !taken[ny][nx] && random() % 3 != 0)
          self(self, nx, ny, (s + 2) % 4);
      }
      corner(cx[from], cy[from]);
    };
    visit(visit, 3, 3, 0);
    check(outline, true, "cells, round " + std::to_string(round));
  }
}

TEST(TriangulatePolygon, TanglesAreCutToTheEnd) {
  const unsigned seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  for (const int count : {4, 5, 6, 9, 40, 70, 500, 5000}) {
    for (int round = 0; round < (count > 100 ? 2 : 100); ++round) {
      Points points;
      for (int i = 0; i < count; ++i)
        points.emplace_back(unit(random), unit(random), 0.1f * unit(random));
      check(points, false, "tangle of " + std::to_string(count));
    }
  }
}

TEST(TriangulatePolygon, CoordinatesOfEveryMagnitudeAreCutToTheEnd) {
  const unsigned seed = 6;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    const std::size_t count = 4 + random() % 12;
    Points points(count);
    for (auto& p : points)
      for (std::size_t k = 0; k < 3; ++k)
        p[k] = std::ldexp(static_cast<float>(random() % 15) - 7.0f,
                          static_cast<int>(random() % 250) - 140);
    EXPECT_EQ(cutWith(triangulatePolygon, points).size(), (count - 2) * 3);
  }
}

}  // namespace
