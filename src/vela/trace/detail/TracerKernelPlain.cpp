#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "vela/trace/detail/TracerKernel.h"

namespace vela::tracer {
namespace {

/// Eight floats in plain C++; the compiler may use what every processor of the platform has.
struct Lanes {
  float v[kWidth];

  static Lanes load(const float* p) {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = p[i];
    return r;
  }
  static Lanes broadcast(float f) {
    Lanes r;
    for (float& x : r.v) x = f;
    return r;
  }
  void store(float* p) const {
    for (std::size_t i = 0; i < kWidth; ++i) p[i] = v[i];
  }
  Lanes flipSign(const Lanes& sign) const {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = std::signbit(sign.v[i]) ? -v[i] : v[i];
    return r;
  }
  friend Lanes operator-(const Lanes& a, const Lanes& b) {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = a.v[i] - b.v[i];
    return r;
  }
  friend Lanes operator*(const Lanes& a, const Lanes& b) {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = a.v[i] * b.v[i];
    return r;
  }
  friend Lanes min(const Lanes& a, const Lanes& b) {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = a.v[i] < b.v[i] ? a.v[i] : b.v[i];
    return r;
  }
  friend Lanes max(const Lanes& a, const Lanes& b) {
    Lanes r;
    for (std::size_t i = 0; i < kWidth; ++i) r.v[i] = a.v[i] > b.v[i] ? a.v[i] : b.v[i];
    return r;
  }
  friend unsigned lessEqual(const Lanes& a, const Lanes& b) {
    unsigned r = 0;
    for (std::size_t i = 0; i < kWidth; ++i) r |= (a.v[i] <= b.v[i] ? 1u : 0u) << i;
    return r;
  }
};

#include "vela/trace/detail/TracerWalk.h"

}  // namespace

KernelFunctions plainKernel() { return kernelFunctions(); }

}  // namespace vela::tracer
