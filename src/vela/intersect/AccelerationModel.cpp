#include "vela/intersect/AccelerationModel.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <typeinfo>

#include "ovo/Faces.h"
#include "tarn/Hash.h"
#include "vela/intersect/detail/FaceCheck.h"
#include "vela/intersect/detail/Kernels.h"
#include "vela/mesh/Triangulate.h"

namespace vela {

AccelerationModel::~AccelerationModel() = default;

bool detail::hasTrianglesAlone(const AccelerationModel& model) {
  return typeid(model) == typeid(TriangleAccelerationModel) ||
         typeid(model) == typeid(PrimAccelerationModel);
}

// ---- TriangleAccelerationModel

TriangleAccelerationModel::TriangleAccelerationModel(const ovo::Array<tarn::Vec3f>& points,
                                                     const ovo::Array<int>& faceVertexCounts,
                                                     const ovo::Array<int>& faceVertexIndices)
    : points_(points) {
  initialize(faceVertexCounts, faceVertexIndices);
}

TriangleAccelerationModel::TriangleAccelerationModel(const TriangleAccelerationModel&) = default;
TriangleAccelerationModel::TriangleAccelerationModel(TriangleAccelerationModel&&) noexcept =
    default;
TriangleAccelerationModel& TriangleAccelerationModel::operator=(const TriangleAccelerationModel&) =
    default;
TriangleAccelerationModel& TriangleAccelerationModel::operator=(
    TriangleAccelerationModel&&) noexcept = default;
TriangleAccelerationModel::~TriangleAccelerationModel() = default;

void TriangleAccelerationModel::initialize(const ovo::Array<int>& faceVertexCounts,
                                           const ovo::Array<int>& faceVertexIndices) {
  // Box of all points. The padding keeps flat meshes from having a grid without volume.
  bounds_ = tarn::Box3f();
  for (const auto& p : points_) bounds_.extendBy(p);
  for (std::size_t k = 0; k < 3; ++k) {
    bounds_.min[k] = static_cast<float>(static_cast<double>(bounds_.min[k]) - 1e-5);
    bounds_.max[k] = static_cast<float>(static_cast<double>(bounds_.max[k]) + 1e-5);
  }

  triangles_.clear();
  triangles_.reserve(faceVertexCounts.size());
  const tarn::Vec3f* const at = points_.cdata();
  std::vector<int> triplets;
  for (const ovo::Face i : ovo::Faces(faceVertexCounts, faceVertexIndices)) {
    if (!i.isUsable(points_.size()) || detail::hasNan(at, i)) continue;
    const int face = static_cast<int>(i.index());
    if (i.size() == 3) {
      triangles_.push_back({i[0], i[1], i[2], face});
    } else if (i.size() == 4) {
      triangles_.push_back({i[0], i[1], i[2], face});
      triangles_.push_back({i[2], i[3], i[0], face});
    } else {
      Triangulate(at, i.data(), static_cast<int>(i.size()), triplets);
      for (std::size_t k = 0; k + 2 < triplets.size(); k += 3) {
        const auto corner = [&](std::size_t n) { return i[static_cast<std::size_t>(triplets[n])]; };
        triangles_.push_back({corner(k), corner(k + 1), corner(k + 2), face});
      }
    }
  }
}

std::size_t TriangleAccelerationModel::size() const { return triangles_.size(); }

tarn::Box3f TriangleAccelerationModel::bounds(std::size_t i) const {
  const Triangle& triangle = triangles_[i];
  tarn::Box3f box;
  for (const int point : {triangle.a, triangle.b, triangle.c})
    box.extendBy(points_[static_cast<std::size_t>(point)]);
  return box;
}

tarn::Box3f TriangleAccelerationModel::bounds() const { return bounds_; }

bool TriangleAccelerationModel::intersect(const IntersectionContext&, const tarn::Ray3f& ray,
                                          std::size_t i, CollisionResult& result) const {
  const Triangle& triangle = triangles_[i];
  const tarn::Vec3f* const at = points_.cdata();
  if (!detail::hitTriangle(ray, at[triangle.a], at[triangle.b], at[triangle.c], result))
    return false;
  result.faceIndex = triangle.face;
  return true;
}

bool TriangleAccelerationModel::exclude(const IntersectionContext&, std::size_t) const {
  return false;
}

bool TriangleAccelerationModel::hasSameTriangles(const TriangleAccelerationModel& other) const {
  static_assert(std::has_unique_object_representations_v<Triangle>);
  const auto sameBytes = [](const void* a, const void* b, std::size_t size) {
    return size == 0 || std::memcmp(a, b, size) == 0;
  };
  return points_.size() == other.points_.size() && triangles_.size() == other.triangles_.size() &&
         (points_.isIdentical(other.points_) || sameBytes(points_.cdata(), other.points_.cdata(),
                                                          points_.size() * sizeof(tarn::Vec3f))) &&
         sameBytes(triangles_.data(), other.triangles_.data(),
                   triangles_.size() * sizeof(Triangle));
}

std::uint64_t TriangleAccelerationModel::roughHash() const {
  tarn::Hash hash;
  hash.append(static_cast<std::uint32_t>(points_.size()));
  hash.append(static_cast<std::uint32_t>(triangles_.size()));
  const std::size_t stride = std::max<std::size_t>(points_.size() / 64, 1);
  for (std::size_t i = 0; i < points_.size(); i += stride)
    hash.append(points_.cdata() + i, sizeof(tarn::Vec3f));
  return hash.value();
}

}  // namespace vela
