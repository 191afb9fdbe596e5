#include "vela/mesh/Triangulate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "tarn/Area.h"
#include "tarn/Lanes.h"
#include "vela/mesh/detail/Ears.h"

#define TARN_LANES_KERNEL "vela/mesh/detail/EarsLanes.h"
#include "tarn/ForEachInstructionSet.h"

namespace vela {

namespace detail {
static AnyBlocks bestEarTest() { return TARN_LANES_WIDEST(anyBlocks); }
}  // namespace detail

namespace {

// `count` elements, on the stack for the polygons that occur (most have under 32 corners).
template <class T>
class Scratch {
 public:
  explicit Scratch(std::size_t count) {
    if (count > inline_.size()) {
      heap_ = std::make_unique<T[]>(count);
      data_ = heap_.get();
    }
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  T& operator[](int i) { return data_[static_cast<std::size_t>(i)]; }
  const T& operator[](int i) const { return data_[static_cast<std::size_t>(i)]; }
  T* begin() { return data_; }

 private:
  std::array<T, 32> inline_;  // every element is written before it is read
  std::unique_ptr<T[]> heap_;
  T* data_ = inline_.data();
};

using detail::Ear;
using detail::kEarBlock;
using detail::Point2;

void emit(std::vector<int>& triangles, int a, int b, int c) {
  triangles.push_back(a);
  triangles.push_back(b);
  triangles.push_back(c);
}

// ---- Exact signs

// Adds one term to a sum of doubles kept as non-overlapping parts, smallest first, so that nothing
// is ever rounded away. 64 parts are beyond what the exponent range of products of floats can fill
// (about 12).
struct ExactSum {
  double part[64];
  int size = 0;

  void add(double term) {
    double sum = term;
    int kept = 0;
    for (int i = 0; i < size; ++i) {
      // Two-sum: high + low is exactly sum + part.
      const double high = sum + part[i];
      const double virtualPart = high - sum;
      const double low = (sum - (high - virtualPart)) + (part[i] - virtualPart);
      if (low != 0.0) part[kept++] = low;
      sum = high;
    }
    if (sum != 0.0) part[kept++] = sum;
    size = kept;
  }
  [[nodiscard]] int sign() const { return size == 0 ? 0 : part[size - 1] > 0.0 ? 1 : -1; }
};

// Sign of the area of a, b, c: 1 when they turn left. A product of two floats is exact in double,
// so six of them tell all.
int orientationExact(const Point2& a, const Point2& b, const Point2& c) {
  const double ax = static_cast<double>(a.x), ay = static_cast<double>(a.y);
  const double bx = static_cast<double>(b.x), by = static_cast<double>(b.y);
  const double cx = static_cast<double>(c.x), cy = static_cast<double>(c.y);
  ExactSum sum;
  for (const double term : {ax * by, -(ay * bx), bx * cy, -(by * cx), cx * ay, -(cy * ax)})
    sum.add(term);
  return sum.sign();
}

int orientation(const Point2& a, const Point2& b, const Point2& c) {
  const double left = (static_cast<double>(a.x) - static_cast<double>(c.x)) *
                      (static_cast<double>(b.y) - static_cast<double>(c.y));
  const double right = (static_cast<double>(a.y) - static_cast<double>(c.y)) *
                       (static_cast<double>(b.x) - static_cast<double>(c.x));
  const double det = left - right;
  // Shewchuk's bound for this expression, (3 + 16 eps) eps with eps = 2^-53, rounded up.
  const double bound = 3.3306690738754731e-16 * (std::fabs(left) + std::fabs(right));
  if (det > bound) return 1;
  if (-det > bound) return -1;
  return orientationExact(a, b, c);
}

// ---- The exact clipper

// Cuts ears off one projected polygon.
//
// What carries it: the signed indicators of the triangles always add up to the winding number, so
// as long as no triangle is turned over, a polygon that winds at most once around any point is
// covered exactly once. Cutting a corner of no area never changes a winding number. A simple
// polygon has an ear with nothing else in its closed triangle. A polygon that touches itself is
// the limit of simple ones; the ears of those end as corners of no area or as triangles that no
// edge enters. So one of the steps below applies until a polygon is used up, unless it truly
// crosses itself.
class Clipper {
 public:
  Clipper(const Point2* points, int count, int side, std::vector<int>& triangles)
      : points_(points),
        count_(count),
        side_(side),
        prev_(static_cast<std::size_t>(count)),
        next_(static_cast<std::size_t>(count)),
        usesCurve_(count > kCurveFrom),
        curve_(usesCurve_ ? static_cast<std::size_t>(count) : 0),
        triangles_(triangles) {
    for (int i = 0; i < count; ++i) {
      prev_[i] = i == 0 ? count - 1 : i - 1;
      next_[i] = i == count - 1 ? 0 : i + 1;
    }
    if (usesCurve_) threadCurve();
  }

  void run() {
    // Steps a corner may be cut by, tried in this order; each is given a full lap before the next
    // is allowed.
    enum Step { kEar, kTouchingEar, kStraight, kForced };
    int step = kEar, failures = 0, corner = 0;
    for (int remaining = count_; remaining > 2;) {
      const int p = prev_[corner], n = next_[corner];
      const int turn = orientation_(p, corner, n);
      bool cut = false;
      if (turn == 0)
        cut = step >= kStraight || !liesBetween(corner, p, n);
      else if (turn > 0)
        cut = step >= kForced ||
              (step >= kTouchingEar ? !anyEdgeEnters(p, corner, n) : isEar(p, corner, n));
      else
        cut = step > kForced;

      if (cut) {
        if (step >= kForced) crossesItself_ = true;
        emit(triangles_, p, corner, n);
        unlink(corner);
        --remaining;
        step = kEar;
        failures = 0;
      } else if (++failures >= (crossesItself_ ? std::min(remaining, kPatience) : remaining)) {
        // Once a polygon is known to cross itself there is nothing to be proved: straight to the
        // forced cut.
        step = crossesItself_ && step < kForced ? static_cast<int>(kForced) : step + 1;
        failures = 0;
      }
      corner = n;
    }
  }

 private:
  static constexpr int kCurveFrom = 64;  ///< below, scanning all corners is faster than the curve
  static constexpr int kPatience =
      64;  ///< corners looked at before a forced cut, so that tangles take linear time

  int orientation_(int a, int b, int c) const {
    return side_ * orientation(points_[a], points_[b], points_[c]);
  }

  void unlink(int c) {
    next_[prev_[c]] = next_[c];
    prev_[next_[c]] = prev_[c];
    if (usesCurve_) {
      const Place& place = curve_[c];
      if (place.before >= 0) curve_[place.before].after = place.after;
      if (place.after >= 0) curve_[place.after].before = place.before;
    }
  }

  // For three corners on a line: true when c is strictly between the two others. False for
  // coinciding corners and spikes.
  bool liesBetween(int c, int p, int n) const {
    const Point2 &a = points_[p], &b = points_[c], &d = points_[n];
    return (a.x < b.x && b.x < d.x) || (d.x < b.x && b.x < a.x) || (a.y < b.y && b.y < d.y) ||
           (d.y < b.y && b.y < a.y);
  }

  struct Extent {
    float minX, minY, maxX, maxY;
    bool has(const Point2& q) const {
      return q.x >= minX && q.x <= maxX && q.y >= minY && q.y <= maxY;
    }
  };
  Extent extent(int p, int c, int n) const {
    const Point2 &a = points_[p], &b = points_[c], &d = points_[n];
    return {std::min({a.x, b.x, d.x}), std::min({a.y, b.y, d.y}), std::max({a.x, b.x, d.x}),
            std::max({a.y, b.y, d.y})};
  }

  bool isInClosedTriangle(int q, int p, int c, int n) const {
    return orientation_(p, c, q) >= 0 && orientation_(c, n, q) >= 0 && orientation_(n, p, q) >= 0;
  }

  // No other corner in the closed triangle.
  bool isEar(int p, int c, int n) const {
    const Extent box = extent(p, c, n);
    const auto blocks = [&](int q) {
      return q != p && q != c && q != n && box.has(points_[q]) && isInClosedTriangle(q, p, c, n);
    };
    if (!usesCurve_) {
      for (int q = next_[n]; q != p; q = next_[q])
        if (blocks(q)) return false;
      return true;
    }
    // Whatever lies in the box lies on the curve between the codes of the box's low and high
    // corner.
    const std::uint32_t low = code({box.minX, box.minY}), high = code({box.maxX, box.maxY});
    int down = curve_[c].before, up = curve_[c].after;
    while (true) {
      const bool goesDown = down >= 0 && curve_[down].code >= low,
                 goesUp = up >= 0 && curve_[up].code <= high;
      if (!goesDown && !goesUp) return true;
      if (goesDown) {
        if (blocks(down)) return false;
        down = curve_[down].before;
      }
      if (goesUp) {
        if (blocks(up)) return false;
        up = curve_[up].after;
      }
    }
  }

  // Some remaining edge passes through the open triangle.
  bool anyEdgeEnters(int p, int c, int n) const {
    const Extent box = extent(p, c, n);
    for (int a = n; a != p; a = next_[a]) {
      const int b = next_[a];
      const Point2 &s = points_[a], &e = points_[b];
      if ((s.x <= box.minX && e.x <= box.minX) || (s.x >= box.maxX && e.x >= box.maxX) ||
          (s.y <= box.minY && e.y <= box.minY) || (s.y >= box.maxY && e.y >= box.maxY))
        continue;
      // Two convex sets are apart when a line along an edge of one of them parts them.
      if (orientation_(p, c, a) <= 0 && orientation_(p, c, b) <= 0) continue;
      if (orientation_(c, n, a) <= 0 && orientation_(c, n, b) <= 0) continue;
      if (orientation_(n, p, a) <= 0 && orientation_(n, p, b) <= 0) continue;
      const int op = orientation_(a, b, p), oc = orientation_(a, b, c), on = orientation_(a, b, n);
      if ((op >= 0 && oc >= 0 && on >= 0) || (op <= 0 && oc <= 0 && on <= 0)) continue;
      return true;
    }
    return false;
  }

  // The curve: all remaining corners in a list sorted by the Z-order code of their place in the
  // polygon's extent.
  struct Place {
    std::uint32_t code = 0;
    int before = -1, after = -1;
  };

  // Monotone in both coordinates, which is all the search rests on.
  std::uint32_t code(const Point2& q) const {
    const auto spread = [](double v) {
      std::uint32_t x = static_cast<std::uint32_t>(v);
      x = (x | (x << 8)) & 0x00FF00FFu;
      x = (x | (x << 4)) & 0x0F0F0F0Fu;
      x = (x | (x << 2)) & 0x33333333u;
      return (x | (x << 1)) & 0x55555555u;
    };
    return spread((static_cast<double>(q.x) - lowX_) * scale_) |
           (spread((static_cast<double>(q.y) - lowY_) * scale_) << 1);
  }

  void threadCurve() {
    double highX = static_cast<double>(points_[0].x), highY = static_cast<double>(points_[0].y);
    lowX_ = highX;
    lowY_ = highY;
    for (int i = 1; i < count_; ++i) {
      lowX_ = std::min(lowX_, static_cast<double>(points_[i].x));
      lowY_ = std::min(lowY_, static_cast<double>(points_[i].y));
      highX = std::max(highX, static_cast<double>(points_[i].x));
      highY = std::max(highY, static_cast<double>(points_[i].y));
    }
    const double size = std::max(highX - lowX_, highY - lowY_);
    scale_ = size > 0.0 ? 32767.0 / size : 0.0;

    std::vector<int> order(static_cast<std::size_t>(count_));
    for (int i = 0; i < count_; ++i) {
      order[static_cast<std::size_t>(i)] = i;
      curve_[i].code = code(points_[i]);
    }
    std::sort(order.begin(), order.end(), [this](int a, int b) {
      return curve_[a].code != curve_[b].code ? curve_[a].code < curve_[b].code : a < b;
    });
    for (std::size_t k = 1; k < order.size(); ++k) {
      curve_[order[k]].before = order[k - 1];
      curve_[order[k - 1]].after = order[k];
    }
  }

  const Point2* points_;
  int count_;
  int side_;
  Scratch<int> prev_, next_;
  bool usesCurve_;
  bool crossesItself_ = false;
  double lowX_ = 0.0, lowY_ = 0.0, scale_ = 0.0;
  Scratch<Place> curve_;
  std::vector<int>& triangles_;
};

// Sign of the area of the whole polygon.
int windingSign(const Point2* points, int count) {
  // Sum about the first corner; each term carries a few roundings, the sum one more a term.
  double area = 0.0, magnitude = 0.0;
  const double ox = static_cast<double>(points[0].x), oy = static_cast<double>(points[0].y);
  for (int i = 1; i + 1 < count; ++i) {
    const double ax = static_cast<double>(points[i].x) - ox,
                 ay = static_cast<double>(points[i].y) - oy;
    const double bx = static_cast<double>(points[i + 1].x) - ox,
                 by = static_cast<double>(points[i + 1].y) - oy;
    area += ax * by - bx * ay;
    magnitude += std::fabs(ax * by) + std::fabs(bx * ay);
  }
  const double bound = magnitude * 1.2e-16 * (static_cast<double>(count) + 8.0);
  if (area > bound) return 1;
  if (-area > bound) return -1;

  ExactSum sum;
  for (int i = 0; i < count; ++i) {
    const int j = i + 1 == count ? 0 : i + 1;
    sum.add(static_cast<double>(points[i].x) * static_cast<double>(points[j].y));
    sum.add(-(static_cast<double>(points[j].x) * static_cast<double>(points[i].y)));
  }
  return sum.sign();
}

// Fills the projected corners; false when a coordinate is not finite.
bool projectAlongWidestAxis(const tarn::Vec3f* points, const int* indices, int count,
                            Scratch<Point2>& flat) {
  // In double: sizes from 1e-38 to 1e38 neither vanish nor overflow when squared. The vector is
  // finite exactly when all corners are.
  const tarn::Vec3d normal = tarn::areaVector(static_cast<std::size_t>(count), [&](std::size_t k) {
    return tarn::Vec3d(points[indices[k]]);
  });
  if (!isFinite(normal)) return false;

  const double nx = std::fabs(normal.x), ny = std::fabs(normal.y), nz = std::fabs(normal.z);
  const std::size_t axis = nz >= nx && nz >= ny ? 2 : nx >= ny ? 0 : 1;
  const std::size_t u = axis == 0 ? 1 : axis == 1 ? 2 : 0, v = axis == 0 ? 2 : axis == 1 ? 0 : 1;
  for (int i = 0; i < count; ++i) flat[i] = Point2(points[indices[i]][u], points[indices[i]][v]);
  return true;
}

// Four corners by either diagonal; the one from corner 0 unless only the other is right.
void cutQuad(const Scratch<Point2>& flat, int side, std::vector<int>& triangles) {
  const int o012 = side * orientation(flat[0], flat[1], flat[2]),
            o023 = side * orientation(flat[0], flat[2], flat[3]);
  if (!(o012 > 0 && o023 > 0)) {
    const int o123 = side * orientation(flat[1], flat[2], flat[3]),
              o130 = side * orientation(flat[1], flat[3], flat[0]);
    const bool otherIsProper = o123 > 0 && o130 > 0;
    const bool otherIsLess = !(o012 >= 0 && o023 >= 0) && o123 >= 0 && o130 >= 0;
    if (otherIsProper || otherIsLess) {
      triangles.assign({1, 2, 3, 1, 3, 0});
      return;
    }
  }
  triangles.assign({0, 1, 2, 0, 2, 3});
}

// ---- Ears with a tolerance

// The corners of a polygon in its plane, with room for whole blocks.
struct Corners {
  Scratch<float> x, y;

  explicit Corners(std::size_t count) : x(count + kEarBlock), y(count + kEarBlock) {}
  Point2 operator[](int i) const { return {x[i], y[i]}; }
};

// The corners that are left, a block of eight at a time: whether any of them blocks an ear does
// not depend on their order. An ear's own corners may be among them: for each of them one of the
// products is exactly 0. Corners that are gone are NaN, which blocks nothing.
class Remaining {
 public:
  static constexpr int kFrom = 24;  ///< below, walking from corner to corner is as fast

  Remaining(const Corners& flat, int count, detail::AnyBlocks kernel)
      : x_(static_cast<std::size_t>(count) + kEarBlock),
        y_(static_cast<std::size_t>(count) + kEarBlock),
        slotOf_(static_cast<std::size_t>(count)),
        cornerAt_(static_cast<std::size_t>(count)),
        size_(count),
        anyBlocks_(kernel) {
    for (int i = 0; i < count; ++i) {
      x_[i] = flat.x[i];
      y_[i] = flat.y[i];
      slotOf_[i] = cornerAt_[i] = i;
    }
    pad();
  }

  [[nodiscard]] bool anyBlocks(const Ear& ear, int /*before*/, int /*corner*/, int after) {
    // From the ear's end on: what blocks an ear is most often close by.
    return anyBlocks_(ear, x_.begin(), y_.begin(), (size_ + kEarBlock - 1) / kEarBlock,
                      slotOf_[after] / kEarBlock);
  }

  void remove(int corner) {
    const int slot = slotOf_[corner];
    x_[slot] = std::numeric_limits<float>::quiet_NaN();
    cornerAt_[slot] = -1;
    if (++gone_ * 8 <= size_) return;
    // An eighth is gone: close the ranks, in their order.
    int kept = 0;
    for (int i = 0; i < size_; ++i) {
      if (cornerAt_[i] < 0) continue;
      x_[kept] = x_[i];
      y_[kept] = y_[i];
      cornerAt_[kept] = cornerAt_[i];
      slotOf_[cornerAt_[kept]] = kept;
      ++kept;
    }
    size_ = kept;
    gone_ = 0;
    pad();
  }

 private:
  // NaN up to a whole block behind the last corner.
  void pad() {
    for (int i = 0; i < kEarBlock; ++i) {
      x_[size_ + i] = std::numeric_limits<float>::quiet_NaN();
      y_[size_ + i] = 0.0f;
    }
  }

  Scratch<float> x_, y_;
  Scratch<int> slotOf_, cornerAt_;
  int size_, gone_ = 0;
  detail::AnyBlocks anyBlocks_;
};

// The same for few corners: a bit for each that is left.
class FewRemaining {
 public:
  FewRemaining(const Corners& flat, int count) : flat_(flat), left_((1u << count) - 1) {}

  [[nodiscard]] bool anyBlocks(const Ear& ear, int before, int corner, int after) const {
    for (unsigned others = left_ & ~(1u << before | 1u << corner | 1u << after); others != 0;
         others &= others - 1)
      if (ear.isBlockedBy(flat_[__builtin_ctz(others)])) return true;
    return false;
  }
  void remove(int corner) { left_ &= ~(1u << corner); }

 private:
  const Corners& flat_;
  unsigned left_;
};
static_assert(Remaining::kFrom <= 32, "a bit a corner");

// Cuts ears, one corner after the other around the polygon.
//
// \param area  of the polygon, with its sign
// \param left  the corners that may block an ear
// \param out   room for three numbers a triangle
// \return the end of what was written
template <class Left>
int* cutEars(const Corners& flat, int count, float area, Left&& left, int* out) {
  Scratch<int> next(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) next[i] = i + 1 == count ? 0 : i + 1;

  int before = count - 1, corner = 0, failures = 0;
  for (int remaining = count; remaining > 2;) {
    // A full lap without an ear: what is cut stays, the rest is given up.
    if (failures >= remaining) break;
    const int after = next[corner];
    const Ear ear(flat[before], flat[corner], flat[after]);

    // Convex? Written so that a NaN is not. Blocked?
    if (ear.turn * area >= 0.0f && !left.anyBlocks(ear, before, corner, after)) {
      *out++ = before;
      *out++ = corner;
      *out++ = after;
      next[before] = after;
      left.remove(corner);
      --remaining;
      failures = 0;
    } else {
      ++failures;
      before = corner;
    }
    corner = after;
  }
  return out;
}

}  // namespace

void Triangulate(const tarn::Vec3f* points, const int* indices, int count,
                 std::vector<int>& triangles) {
  using tarn::Vec3f;
  if (count == 3) {
    triangles.assign({0, 1, 2});
    return;
  }
  if (count == 4) {
    triangles.assign({0, 1, 2, 0, 2, 3});
    return;
  }
  triangles.clear();
  if (count < 3) return;
  const auto size = static_cast<std::size_t>(count);
  const auto point = [&](int corner) -> const Vec3f& { return points[indices[corner]]; };

  // The polygon's plane: mean and Newell normal, with x, y and z in lanes.
  using Lanes = tarn::baseline::FloatLanes<4>;
  using tarn::baseline::shuffle;
  const auto load = [&](int corner) { return tarn::baseline::loadThree(&point(corner).x); };
  Lanes sum = Lanes::broadcast(0.0f), newell = sum, a = load(0);
  for (int i = 0; i < count; ++i) {
    const Lanes b = load(i + 1 == count ? 0 : i + 1), less = a - b, more = a + b;
    sum = sum + a;
    newell = newell + shuffle<1, 2, 0, 3>(less, less) * shuffle<2, 0, 1, 3>(more, more);
    a = b;
  }
  const auto vectorOf = [](const Lanes& lanes) {
    float v[4];
    lanes.store(v);
    return Vec3f(v[0], v[1], v[2]);
  };
  const Vec3f mean = vectorOf(sum) / static_cast<float>(count),
              normal = vectorOf(newell).normalized();

  // Its frame, and the corners in it, four at a time.
  const Vec3f first = point(0) - mean;
  const Vec3f u = (first - normal * tarn::dot(first, normal)).normalized();
  const Vec3f v = tarn::cross(normal, u);
  Corners flat(size);
  const auto of = [](float f) { return Lanes::broadcast(f); };
  for (int i = 0; i < count; i += 4) {
    Lanes x = load(i), y = load(std::min(i + 1, count - 1)), z = load(std::min(i + 2, count - 1)),
          w = load(std::min(i + 3, count - 1));
    transpose(x, y, z, w);
    x = x - of(mean.x);
    y = y - of(mean.y);
    z = z - of(mean.z);
    (x * of(u.x) + y * of(u.y) + z * of(u.z)).store(&flat.x[i]);
    (x * of(v.x) + y * of(v.y) + z * of(v.z)).store(&flat.y[i]);
  }

  float area = 0.0f;
  for (int i = 0; i < count; ++i) {
    const int before = i == 0 ? count - 1 : i - 1;
    area += flat.x[before] * flat.y[i] - flat.x[i] * flat.y[before];
  }
  area = 0.5f * area;

  triangles.resize((size - 2) * 3);
  int* const end = count < Remaining::kFrom
                       ? cutEars(flat, count, area, FewRemaining(flat, count), triangles.data())
                       : cutEars(flat, count, area, Remaining(flat, count, detail::bestEarTest()),
                                 triangles.data());
  triangles.resize(static_cast<std::size_t>(end - triangles.data()));
}

void triangulatePolygon(const tarn::Vec3f* points, const int* indices, int count,
                        std::vector<int>& triangles) {
  if (count == 3) {
    triangles.assign({0, 1, 2});
    return;
  }
  triangles.clear();
  if (count < 3) return;
  const auto size = static_cast<std::size_t>(count);
  triangles.reserve((size - 2) * 3);

  Scratch<Point2> flat(size);
  if (!projectAlongWidestAxis(points, indices, count, flat)) {
    for (int i = 1; i + 1 < count; ++i) emit(triangles, 0, i, i + 1);
    return;
  }
  const int side = windingSign(flat.begin(), count) < 0 ? -1 : 1;
  if (count == 4)
    cutQuad(flat, side, triangles);
  else
    Clipper(flat.begin(), count, side, triangles).run();
}

}  // namespace vela
