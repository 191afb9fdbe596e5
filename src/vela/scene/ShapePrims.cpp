#include "vela/scene/ShapePrims.h"

#include <cmath>
#include <cstddef>
#include <string>
#include <utility>

#include "ovo/Tokens.h"
#include "tarn/Box3.h"
#include "tarn/Constants.h"
#include "vela/mesh/MeshBuilders.h"

namespace vela::scene {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;

constexpr unsigned kColumns = 128, kHalfRows = 32;
constexpr double kPi = tarn::kPi<double>;

enum Kind { kCube, kSphere, kCylinder, kCone, kCapsule, kPlane };
enum class End { open, flat, pole };

// A ring about the axis of a surface of revolution, and the direction of the surface's normal
// there.
struct Ring {
  double radius, height, outward, upward;
};

MadeMesh madeOf(const MeshSample& mesh) {
  MadeMesh made;
  made.points = mesh.points;
  made.counts = ovo::Array<int>(tarn::Span<const int>(mesh.vertsPerFace(), mesh.nFaces()));
  made.indices = ovo::Array<int>(tarn::Span<const int>(mesh.faceVertPointIndices(), mesh.nVerts()));
  made.normals = mesh.normals;
  return made;
}

// A surface of revolution about y, from the bottom up. Poles are those of spheres: smooth.
MadeMesh revolve(const std::vector<Ring>& rings, End bottom, End top, double bottomPole,
                 double topPole) {
  const unsigned rows = static_cast<unsigned>(rings.size()) - 1;
  const int last = static_cast<int>(rows);
  MeshSample mesh;
  // The builder takes a ring beyond the last that is as wide for a flat end.
  const auto radius = [&](int i) {
    if (i < 0) return bottom == End::flat ? static_cast<float>(rings.front().radius) : 0.0f;
    if (i > last) return top == End::flat ? static_cast<float>(rings.back().radius) : 0.0f;
    return static_cast<float>(rings[static_cast<std::size_t>(i)].radius);
  };
  const auto height = [&](int i) {
    if (i < 0) return static_cast<float>(bottomPole);
    if (i > last) return static_cast<float>(topPole);
    return static_cast<float>(rings[static_cast<std::size_t>(i)].height);
  };
  const bool hasBottom = bottom != End::open, hasTop = top != End::open;
  RevolveShape shape;
  shape.rows = rows;
  shape.columns = kColumns;
  shape.radius = radius;
  shape.height = height;
  shape.bottomCap = hasBottom;
  shape.topCap = hasTop;
  buildRevolveMesh(mesh, shape);
  MadeMesh made = madeOf(mesh);

  // Normals: of points by their rings; flat ends have their own.
  const std::size_t firstRing = hasBottom ? 1 : 0;
  std::vector<Vec3f> ofPoint(made.points.size());
  for (std::size_t i = 0; i < rings.size(); ++i)
    for (unsigned j = 0; j < kColumns; ++j) {
      const double turn = 2.0 * kPi * j / kColumns;
      const Vec3d n(rings[i].outward * std::sin(turn), rings[i].upward,
                    rings[i].outward * std::cos(turn));
      ofPoint[firstRing + i * kColumns + j] = Vec3f(n.normalized());
    }
  if (hasBottom) ofPoint.front() = {0, -1, 0};
  if (hasTop) ofPoint.back() = {0, 1, 0};
  std::vector<Vec3f> normals;
  normals.reserve(made.indices.size());
  const std::size_t capCorners = 3 * kColumns;
  for (std::size_t i = 0; i < made.indices.size(); ++i) {
    const bool onBottom = bottom == End::flat && i < capCorners;
    const bool onTop = top == End::flat && i >= made.indices.size() - capCorners;
    normals.push_back(onBottom ? Vec3f(0, -1, 0)
                      : onTop  ? Vec3f(0, 1, 0)
                               : ofPoint[static_cast<std::size_t>(made.indices.view()[i])]);
  }
  made.normals = ovo::Array<Vec3f>(normals);
  return made;
}

MadeMesh cube(double size) {
  MeshSample mesh;
  const Vec3d half(0.5 * size);
  buildCube(mesh, {-half, half}, 1, 1, true, true, true, false, false);
  return madeOf(mesh);
}

// About y, facing up.
MadeMesh plane(double alongX, double alongZ) {
  const float x = static_cast<float>(0.5 * alongX), z = static_cast<float>(0.5 * alongZ);
  MadeMesh made;
  made.points = {{-x, 0, z}, {x, 0, z}, {x, 0, -z}, {-x, 0, -z}};
  made.counts = {4};
  made.indices = {0, 1, 2, 3};
  made.normals = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
  return made;
}

// Quarter circles from the pole (left out) to the equator and on, by angle from straight down.
void addArc(std::vector<Ring>& rings, double radius, double centre, unsigned first, unsigned last) {
  for (unsigned i = first; i <= last; ++i) {
    const double angle = 0.5 * kPi * i / kHalfRows;
    rings.push_back({radius * std::sin(angle), centre - radius * std::cos(angle), std::sin(angle),
                     -std::cos(angle)});
  }
}

MadeMesh capsule(double bottomRadius, double topRadius, double height) {
  std::vector<Ring> rings;
  addArc(rings, bottomRadius, -0.5 * height, 1, kHalfRows);
  addArc(rings, topRadius, 0.5 * height, kHalfRows, 2 * kHalfRows - 1);
  return revolve(rings, End::pole, End::pole, -0.5 * height - bottomRadius,
                 0.5 * height + topRadius);
}

// The side of a cone rises outward by as much as it narrows.
MadeMesh cylinder(double bottomRadius, double topRadius, double height, bool hasTop) {
  const double narrowing = bottomRadius - topRadius;
  return revolve({{bottomRadius, -0.5 * height, height, narrowing},
                  {topRadius, 0.5 * height, height, narrowing}},
                 End::flat, hasTop ? End::flat : End::open, -0.5 * height, 0.5 * height);
}

MadeMesh makeOf(const std::vector<double>& key) {
  switch (static_cast<int>(key[0])) {
    case kCube: return cube(key[2]);
    case kSphere: {
      std::vector<Ring> rings;
      addArc(rings, key[2], 0.0, 1, 2 * kHalfRows - 1);
      return revolve(rings, End::pole, End::pole, -key[2], key[2]);
    }
    case kCylinder: return cylinder(key[2], key[3], key[4], true);
    case kCone: return cylinder(key[2], 0.0, key[4], false);
    case kCapsule: return capsule(key[2], key[3], key[4]);
    default: return plane(key[2], key[3]);
  }
}

// From y as the axis to the one that is named; even permutations, which turn no face inside out.
void turnTo(char axis, ovo::Array<Vec3f>& vectors) {
  if (axis == 'Y') return;
  Vec3f* data = vectors.data();
  for (std::size_t i = 0; i < vectors.size(); ++i)
    data[i] = axis == 'X' ? Vec3f(data[i].y, data[i].z, data[i].x)
                          : Vec3f(data[i].z, data[i].x, data[i].y);
}

}  // namespace

bool ShapePrims::make(const ovo::Prim& prim, double time, MadeMesh& mesh) {
  const std::string& type = prim.getTypeName().asString();
  const auto number = [&](const char* name, double fallback) {
    double value = fallback;
    prim.getAttr(ovo::Token(name)).get(value, time);
    return value;
  };
  ovo::Token axisName = ovo::tokens().Z;
  prim.getAttr(ovo::Token("axis")).get(axisName, time);
  const char axis = axisName == ovo::tokens().X ? 'X' : axisName == ovo::tokens().Y ? 'Y' : 'Z';

  // Kind, axis and measures.
  std::vector<double> key;
  if (type == "Cube") {
    key = {kCube, 'Y', number("size", 2.0)};
  } else if (type == "Sphere") {
    key = {kSphere, 'Y', number("radius", 1.0)};
  } else if (type == "Cylinder") {
    const double radius = number("radius", 1.0);
    key = {kCylinder, double(axis), radius, radius, number("height", 2.0)};
  } else if (type == "Cylinder_1") {
    key = {kCylinder, double(axis), number("radiusBottom", 1.0), number("radiusTop", 1.0),
           number("height", 2.0)};
  } else if (type == "Cone") {
    key = {kCone, double(axis), number("radius", 1.0), 0.0, number("height", 2.0)};
  } else if (type == "Capsule") {
    const double radius = number("radius", 0.5);
    key = {kCapsule, double(axis), radius, radius, number("height", 1.0)};
  } else if (type == "Capsule_1") {
    key = {kCapsule, double(axis), number("radiusBottom", 0.5), number("radiusTop", 0.5),
           number("height", 1.0)};
  } else if (type == "Plane") {
    // Width runs along x, or along z when x is the axis; length along y, or along z when y is the
    // axis: before the turn from y to the axis these are x and z, for z as the axis the other way
    // round.
    const double width = number("width", 2.0), length = number("length", 2.0);
    key = {kPlane, double(axis), axis == 'Z' ? length : width, axis == 'Z' ? width : length};
  } else {
    return false;
  }
  for (std::size_t i = 2; i < key.size(); ++i)
    if (!std::isfinite(key[i])) {
      mesh = MadeMesh();  // nothing to see, but a shape
      return true;
    }

  const auto [place, isNew] = known_.try_emplace(key);
  if (isNew) {
    place->second = makeOf(key);
    turnTo(static_cast<char>(key[1]), place->second.points);
    turnTo(static_cast<char>(key[1]), place->second.normals);
  }
  mesh = place->second;
  return true;
}

}  // namespace vela::scene
