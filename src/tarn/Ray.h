/// \file
/// A ray: origin, direction and the range of distances that counts.
#pragma once

#include <limits>
#include <type_traits>

#include "tarn/Fwd.h"
#include "tarn/Vec.h"

namespace tarn {

/// The direction need not have unit length; distances are multiples of it. Which ends of the range
/// are closed is said by each test.
///
/// \code
///   const tarn::Ray3d ray({0, 0, 5}, {0, 0, -2});
///   assert(ray.origin + ray.direction * 2.5 == tarn::Vec3d(0, 0, 0));
///   assert(ray.minDistance == 0 && ray.maxDistance > 1e300);
/// \endcode
template <class T>
struct Ray {
  Vec3<T> origin;        ///< where distance 0 is
  Vec3<T> direction;     ///< any length; distances are multiples of it
  T minDistance = T(0);  ///< the near end of the range
  /// The far end. The default is the largest finite number, not infinity.
  T maxDistance = std::numeric_limits<T>::max();

  constexpr Ray() = default;
  /// All four as given. Nothing is normalised, and the ends are not put in order.
  constexpr Ray(const Vec3<T>& origin_, const Vec3<T>& direction_, T minDistance_ = T(0),
                T maxDistance_ = std::numeric_limits<T>::max())
      : origin(origin_),
        direction(direction_),
        minDistance(minDistance_),
        maxDistance(maxDistance_) {}
};

static_assert(std::is_trivially_copyable_v<Ray<float>> && sizeof(Ray<float>) == 32);

}  // namespace tarn
