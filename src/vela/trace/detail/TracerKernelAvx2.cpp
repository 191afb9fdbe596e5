#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "vela/trace/detail/TracerKernel.h"

// The whole kernel is compiled for AVX2 here, by attribute and not by a flag for the file: what the
// headers above define is shared with the rest of the library and must run on every processor. FMA
// is not asked for: it would round differently.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define VELA_HAVE_AVX2_KERNEL 1
#include <immintrin.h>
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,bmi"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,bmi")
#endif

namespace vela::tracer {
namespace {

/// Eight floats in one register.
struct Lanes {
  __m256 v;

  static Lanes load(const float* p) { return {_mm256_load_ps(p)}; }
  static Lanes broadcast(float f) { return {_mm256_set1_ps(f)}; }
  void store(float* p) const { _mm256_store_ps(p, v); }
  Lanes flipSign(const Lanes& sign) const { return {_mm256_xor_ps(v, sign.v)}; }
};
inline Lanes operator-(const Lanes& a, const Lanes& b) { return {_mm256_sub_ps(a.v, b.v)}; }
inline Lanes operator*(const Lanes& a, const Lanes& b) { return {_mm256_mul_ps(a.v, b.v)}; }
inline Lanes min(const Lanes& a, const Lanes& b) { return {_mm256_min_ps(a.v, b.v)}; }
inline Lanes max(const Lanes& a, const Lanes& b) { return {_mm256_max_ps(a.v, b.v)}; }
inline unsigned lessEqual(const Lanes& a, const Lanes& b) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)));
}

#include "vela/trace/detail/TracerWalk.h"

}  // namespace
}  // namespace vela::tracer

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif

namespace vela::tracer {

KernelFunctions bestKernel() {
#if defined(VELA_HAVE_AVX2_KERNEL)
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi")) return kernelFunctions();
#endif
  return plainKernel();
}

}  // namespace vela::tracer
