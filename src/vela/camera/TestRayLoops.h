/// \file
/// The lenses one ray after the other, straight from their formulas, with the platform's own sine
/// and cosine: what tests hold the kernels against and benches measure them beside.
#pragma once

#include <cmath>

#include "vela/camera/LensProjection.h"
#include "vela/camera/detail/RayKernels.h"

namespace vela_test {

using RayLoop = vela::detail::RayBatch;

/// NaN stays NaN.
inline double clampToUnit(float v) {
  return static_cast<double>(v < -1.0f ? -1.0f : v > 1.0f ? 1.0f : v);
}

/// A coordinate through the 2-D part of the film window's matrix.
inline tarn::Vec2f inWindow(const vela::Camera::Sample& s, float x, float y) {
  if (s.ndcIsIdentity) return {x, y};
  const double wx = static_cast<double>(x), wy = static_cast<double>(y);
  return {static_cast<float>(wx * s.ndc[0] + wy * s.ndc[4] + s.ndc[12]),
          static_cast<float>(wx * s.ndc[1] + wy * s.ndc[5] + s.ndc[13])};
}

/// Calls `shape(p, q, h, ray)` for each ray: p and q are the coordinate and its neighbour in the
/// film window, h half the magnification. It sets origin and the three directions.
template <class Shape>
void forEachRay(const RayLoop& loop, Shape&& shape) {
  for (std::size_t i = 0; i < loop.count; ++i) {
    const vela::Camera::Sample& s = loop.samples[i * loop.stride];
    const vela::ProjectCoord& c = loop.coords[i];
    vela::RayContext& ray = loop.rays[i];
    shape(inWindow(s, c.x, c.y), inWindow(s, c.x + c.dx, c.y + c.dy), s.lensMagnification() * 0.5f,
          ray);
    ray.updateSlopes();
    ray.minDistance = static_cast<float>(s.lensAp.clipNearDistance);
    ray.maxDistance = static_cast<float>(s.lensAp.clipFarDistance);
  }
}

inline void perspectiveLoop(const RayLoop& loop) {
  forEachRay(loop, [](tarn::Vec2f p, tarn::Vec2f q, float h, vela::RayContext& ray) {
    const float px = h * p.x, py = h * p.y, qx = h * q.x, qy = h * q.y;
    ray.origin = {};
    ray.direction = tarn::Vec3f(px, py, -1.0f).normalized();
    ray.xDirection = tarn::Vec3f(qx, py, -1.0f).normalized();
    ray.yDirection = tarn::Vec3f(px, qy, -1.0f).normalized();
  });
}

inline void orthographicLoop(const RayLoop& loop) {
  forEachRay(loop, [](tarn::Vec2f p, tarn::Vec2f, float h, vela::RayContext& ray) {
    ray.origin = {h * p.x, h * p.y, 0.0f};
    ray.direction = ray.xDirection = ray.yDirection = {0.0f, 0.0f, -1.0f};
  });
}

inline void cylindricalLoop(const RayLoop& loop) {
  constexpr double pi = 3.141592653589793;
  forEachRay(loop, [](tarn::Vec2f p, tarn::Vec2f q, float h, vela::RayContext& ray) {
    const double phi = (clampToUnit(p.x) + 1.0) * pi, phiX = (clampToUnit(q.x) + 1.0) * pi;
    const float x = static_cast<float>(-std::sin(phi)), z = static_cast<float>(std::cos(phi));
    const float xX = static_cast<float>(-std::sin(phiX)), zX = static_cast<float>(std::cos(phiX));
    const float y = h * static_cast<float>(clampToUnit(p.y)),
                yY = h * static_cast<float>(clampToUnit(q.y));
    ray.origin = {};
    ray.direction = tarn::Vec3f(x, y, z).normalized();
    ray.xDirection = tarn::Vec3f(xX, y, zX).normalized();
    ray.yDirection = tarn::Vec3f(x, yY, z).normalized();
  });
}

/// \param aspect  of the image, height over width
inline void sphericalLoop(const RayLoop& loop, float aspect) {
  constexpr double pi = 3.141592653589793;
  const double k = 1.0 / static_cast<double>(aspect);
  forEachRay(loop, [k](tarn::Vec2f p, tarn::Vec2f q, float, vela::RayContext& ray) {
    const double phi = (clampToUnit(p.x) + 1.0) * pi, phiX = (clampToUnit(q.x) + 1.0) * pi;
    const double theta = ((clampToUnit(p.y) * k + 1.0) * 0.5) * pi,
                 thetaY = ((k * clampToUnit(q.y) + 1.0) * 0.5) * pi;
    const double sinTheta = std::sin(theta), sinThetaY = std::sin(thetaY);
    const float x = static_cast<float>(-std::sin(phi) * sinTheta),
                z = static_cast<float>(std::cos(phi) * sinTheta);
    const float y = static_cast<float>(-std::cos(theta)),
                yY = static_cast<float>(-std::cos(thetaY));
    // The x-neighbour has the sine of the y-neighbour's latitude, the y-neighbour only its cosine.
    const float xX = static_cast<float>(-std::sin(phiX) * sinThetaY),
                zX = static_cast<float>(std::cos(phiX) * sinThetaY);
    ray.origin = {};
    ray.direction = tarn::Vec3f(x, y, z).normalized();
    ray.xDirection = tarn::Vec3f(xX, y, zX).normalized();
    ray.yDirection = tarn::Vec3f(x, yY, z).normalized();
  });
}

/// The lens's loop.
inline void rayLoop(vela::LensProjection lens, const RayLoop& loop, float aspect) {
  switch (lens) {
    case vela::LensProjection::perspective: return perspectiveLoop(loop);
    case vela::LensProjection::orthographic: return orthographicLoop(loop);
    case vela::LensProjection::spherical: return sphericalLoop(loop, aspect);
    default: return cylindricalLoop(loop);
  }
}

}  // namespace vela_test
