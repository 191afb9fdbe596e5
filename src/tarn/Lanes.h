/// \file
/// Several numbers in one register, and the choice of the instruction set at run time.
///
/// A kernel is written once, in a header of its own, over `FloatLanes<N>`, `DoubleLanes<N>`,
/// `IntLanes<N>` and their masks. A .cpp has it compiled for each instruction set and calls the
/// widest one that the processor runs:
///
///     // LengthKernel.h
///     namespace {
///     namespace TARN_LANES_SET {
///     inline void lengths(const float* x, const float* y, float* out) {
///       using Lanes = tarn::TARN_LANES_SET::FloatLanes<8>;
///       const Lanes vx = Lanes::load(x), vy = Lanes::load(y);
///       sqrt(vx * vx + vy * vy).store(out);
///     }
///     }
///     }
///
///     // Length.cpp
///     #include "tarn/Lanes.h"
///     #define TARN_LANES_KERNEL "LengthKernel.h"
///     #include "tarn/ForEachInstructionSet.h"
///     void lengths(const float* x, const float* y, float* out) {
///       TARN_LANES_WIDEST(lengths)(x, y, out);
///     }
///
/// The sets are namespaces of the same content: `plain` is C++ without vector instructions, `sse2`
/// and `avx2` are x86's. `baseline` is what every processor of the platform runs.
///
/// What holds for all sets:
/// - A lane has the bits that the same operation on one float or double has. Nothing is fused,
///   reordered or approximated. Only which NaN comes out of an operation is left open.
/// - `min(a, b)` is `a < b ? a : b` and `max(a, b)` is `a > b ? a : b`: with a NaN in either, and
///   with zeros of either sign, both give b.
/// - Comparisons are false where a lane is NaN, but `!=`, which is true.
/// - Bit i of `bits(mask)` is lane i.
/// - N is a power of two. Any N works in any set: what is wider than a register is a pair of
///   halves. N of 8 floats is a register of avx2.
///
/// Not installed: the headers of the library do not need it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) && defined(__GNUC__)
#define TARN_LANES_HAVE_SSE2 1
#define TARN_LANES_HAVE_AVX2 1
#include <immintrin.h>
#else
#define TARN_LANES_HAVE_SSE2 0
#define TARN_LANES_HAVE_AVX2 0
#endif

// Each operation must become part of the kernel that calls it: as a function of its own it would
// pass registers of one instruction set through code of another.
#if defined(__GNUC__)
#define TARN_LANE __attribute__((always_inline)) inline
#else
#define TARN_LANE inline
#endif

// The code between the two is compiled for AVX2. By attribute and not by a flag for the file:
// inline functions of other headers must keep running on every processor. FMA is not asked for,
// since it rounds once where the contract rounds twice.
#if TARN_LANES_HAVE_AVX2
#if defined(__clang__)
#define TARN_LANES_BEGIN_AVX2 \
  _Pragma("clang attribute push(__attribute__((target(\"avx2,bmi\"))), apply_to = function)")
#define TARN_LANES_END_AVX2 _Pragma("clang attribute pop")
#else
#define TARN_LANES_BEGIN_AVX2 _Pragma("GCC push_options") _Pragma("GCC target(\"avx2,bmi\")")
#define TARN_LANES_END_AVX2 _Pragma("GCC pop_options")
#endif
#endif

namespace tarn {

#define TARN_LANES_SET plain
#define TARN_LANES_WITH_SSE2 0
#define TARN_LANES_WITH_AVX2 0
#include "tarn/detail/LanesOfSet.h"
#undef TARN_LANES_SET
#undef TARN_LANES_WITH_SSE2

#if TARN_LANES_HAVE_SSE2
#define TARN_LANES_SET sse2
#define TARN_LANES_WITH_SSE2 1
#include "tarn/detail/LanesOfSet.h"
#undef TARN_LANES_SET
#undef TARN_LANES_WITH_AVX2

TARN_LANES_BEGIN_AVX2
#define TARN_LANES_SET avx2
#define TARN_LANES_WITH_AVX2 1
#include "tarn/detail/LanesOfSet.h"
#undef TARN_LANES_SET
#undef TARN_LANES_WITH_SSE2
TARN_LANES_END_AVX2
#endif
#undef TARN_LANES_WITH_AVX2

#if TARN_LANES_HAVE_SSE2
namespace baseline = sse2;
#else
namespace baseline = plain;
#endif

/// Whether this processor runs what is compiled for the set `avx2`.
inline bool runsAvx2() {
#if TARN_LANES_HAVE_AVX2
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
#else
  return false;
#endif
}

}  // namespace tarn

/// `function` of a kernel's namespace for the widest set that this processor runs.
#if TARN_LANES_HAVE_AVX2
#define TARN_LANES_WIDEST(function) (tarn::runsAvx2() ? avx2::function : sse2::function)
#else
#define TARN_LANES_WIDEST(function) (plain::function)
#endif
