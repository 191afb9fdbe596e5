/// \file
/// What the lenses' kernels take from one camera, and the directions of the round lenses by the
/// platform's own sine and cosine.
#pragma once

#include <cmath>

#include "tarn/Constants.h"
#include "vela/camera/LensProjection.h"

namespace vela::detail {

constexpr double kPi = tarn::kPi<double>;

/// What the rays of one coordinate need of its sample.
struct Optics {
  double m[6];  ///< the 2-D part of `ndc`: x' = x m0 + y m2 + m4, y' = x m1 + y m3 + m5
  float h;      ///< half the magnification
  float nearDistance, farDistance;
  bool ndcIsIdentity;

  explicit Optics(const Camera::Sample& s)
      : m{s.ndc[0], s.ndc[1], s.ndc[4], s.ndc[5], s.ndc[12], s.ndc[13]},
        h(s.lensMagnification() * 0.5f),
        nearDistance(static_cast<float>(s.lensAp.clipNearDistance)),
        farDistance(static_cast<float>(s.lensAp.clipFarDistance)),
        ndcIsIdentity(s.ndcIsIdentity) {}

  [[nodiscard]] tarn::Vec2f window(float x, float y) const {
    if (ndcIsIdentity) return {x, y};
    const double wx = static_cast<double>(x), wy = static_cast<double>(y);
    return {static_cast<float>(wx * m[0] + wy * m[2] + m[4]),
            static_cast<float>(wx * m[1] + wy * m[3] + m[5])};
  }
};

/// NaN stays NaN.
inline double clampToUnit(float v) {
  return static_cast<double>(v < -1.0f ? -1.0f : v > 1.0f ? 1.0f : v);
}

/// Directions of a round lens before they are brought to unit length: the ray's own, and those of
/// its neighbours in x and y.
struct RoundDirections {
  float x, y, z;
  float xX, yX, zX;
  float xY, yY, zY;
};

/// \param p, q  in the film window
/// \param h     half the magnification
inline RoundDirections cylindricalDirections(tarn::Vec2f p, tarn::Vec2f q, float h) {
  const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
  const float x = static_cast<float>(-std::sin(phi)), z = static_cast<float>(std::cos(phi));
  const float xX = static_cast<float>(-std::sin(phiX)), zX = static_cast<float>(std::cos(phiX));
  const float y = h * static_cast<float>(clampToUnit(p.y)),
              yY = h * static_cast<float>(clampToUnit(q.y));
  return {x, y, z, xX, y, zX, x, yY, z};
}

/// \param k  width over height of the image
inline RoundDirections sphericalDirections(tarn::Vec2f p, tarn::Vec2f q, double k) {
  const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
  const double theta = ((clampToUnit(p.y) * k + 1.0) * 0.5) * kPi,
               thetaY = ((k * clampToUnit(q.y) + 1.0) * 0.5) * kPi;
  const double sinTheta = std::sin(theta), sinThetaY = std::sin(thetaY);
  const float x = static_cast<float>(-std::sin(phi) * sinTheta),
              z = static_cast<float>(std::cos(phi) * sinTheta);
  const float y = static_cast<float>(-std::cos(theta)), yY = static_cast<float>(-std::cos(thetaY));
  // KEEP(x-neighbour-latitude): the x-neighbour has the sine of the y-neighbour's latitude beside
  // the cosine of its own; the differentials of hosts' filters are tuned to it.
  const float xX = static_cast<float>(-std::sin(phiX) * sinThetaY),
              zX = static_cast<float>(std::cos(phiX) * sinThetaY);
  // KEEP(y-neighbour-latitude): and the y-neighbour has only the cosine of its own latitude.
  return {x, y, z, xX, y, zX, x, yY, z};
}

}  // namespace vela::detail
