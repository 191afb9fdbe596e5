/// \file
/// Moves between the lanes of a register, as the tracer's kernels need them: the plain form for any
/// set of instructions, and the one for AVX2 as an overload.
///
/// Lanes are numbered from 0. What is said of a fourth lane holds for any value that it has.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tarn/Lanes.h"

namespace vela::tracer {

/// One lane of four doubles.
template <int lane, class Doubles>
inline double laneOf(const Doubles& v) {
  double values[4];
  v.store(values);
  return values[lane];
}
/// A bit a lane: whether its sign bit is set, that of -0 and NaN too.
template <class Doubles>
inline unsigned signBits(const Doubles& v) {
  double values[4];
  v.store(values);
  unsigned result = 0;
  for (unsigned i = 0; i < 4; ++i) result |= (std::signbit(values[i]) ? 1u : 0u) << i;
  return result;
}
/// The first three lanes of \p v and the fourth of \p last.
template <class Doubles>
inline Doubles withFourth(const Doubles& v, const Doubles& last) {
  double values[4], lasts[4];
  v.store(values);
  last.store(lasts);
  values[3] = lasts[3];
  return Doubles::load(values);
}
/// Lanes 1, 2, 3, 0.
template <class Doubles>
inline Doubles rotated(const Doubles& v) {
  double a[4];
  v.store(a);
  const double b[4] = {a[1], a[2], a[3], a[0]};
  return Doubles::load(b);
}
/// The first three lanes rotated: 1, 2, 0, and 2, 0, 1.
template <class Doubles>
inline Doubles next(const Doubles& v) {
  double a[4];
  v.store(a);
  const double b[4] = {a[1], a[2], a[0], a[3]};
  return Doubles::load(b);
}
template <class Doubles>
inline Doubles previous(const Doubles& v) {
  double a[4];
  v.store(a);
  const double b[4] = {a[2], a[0], a[1], a[3]};
  return Doubles::load(b);
}
/// Three floats as lanes, and 0.
template <class Floats4>
inline void setLanes(Floats4& out, float a, float b, float c) {
  const float values[4] = {a, b, c, 0.0f};
  out = Floats4::load(values);
}
/// One lane of four floats in all eight lanes.
template <int lane, class Floats, class Floats4>
inline Floats spread(const Floats4& v) {
  float values[4];
  v.store(values);
  return Floats::broadcast(values[lane]);
}
/// Rows to columns.
template <class Floats4>
inline void transposeFloats(Floats4 (&row)[4]) {
  float from[4][4], to[4][4];
  for (std::size_t r = 0; r < 4; ++r) row[r].store(from[r]);
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 4; ++c) to[c][r] = from[r][c];
  for (std::size_t r = 0; r < 4; ++r) row[r] = Floats4::load(to[r]);
}
template <class Doubles>
inline void transposeDoubles(Doubles (&row)[4]) {
  double from[4][4], to[4][4];
  for (std::size_t r = 0; r < 4; ++r) row[r].store(from[r]);
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 4; ++c) to[c][r] = from[r][c];
  for (std::size_t r = 0; r < 4; ++r) row[r] = Doubles::load(to[r]);
}

/// Puts the hit children of a node on a stack, the nearest on top. \return how many they are
///
/// \param key, child where the stack ends; eight entries from there on may be written
/// \param near       where the ray enters each hit child, not negative
///
/// Distances are kept as the bits of a float, whose order is that of the values. The lowest three
/// bits hold the child's lane: a stored distance is up to seven units in the last place too large,
/// and that of 0 is a denormal.
template <class Floats, class Mask>
inline std::uint32_t pushSorted(const Floats& near, const Mask& hit, const std::uint32_t* children,
                                std::int32_t* key, std::uint32_t* child) {
  std::int32_t all[8];
  asInts(near).store(all);
  std::uint32_t count = 0;
  for (unsigned mask = bits(hit); mask != 0; mask &= mask - 1) {
    const int lane = __builtin_ctz(mask);
    const std::int32_t k = (all[lane] & ~7) | lane;
    std::uint32_t at = count++;
    for (; at > 0 && key[at - 1] < k; --at) key[at] = key[at - 1];
    key[at] = k;
  }
  for (std::uint32_t i = 0; i < count; ++i) child[i] = children[key[i] & 7];
  return count;
}

template <class Floats>
inline float lowestLane(const Floats& v) {
  float values[8];
  v.store(values);
  return values[0];
}

/// Takes the entries of a stack whose distance is above the limit out, and keeps the order of the
/// others. \return the new top
///
/// \param from, top the entries in question; eight from the top on may be read and written
/// \param limits     in all lanes: at least what pushSorted has made of each distance to be kept
template <class Floats>
inline std::uint32_t dropFarther(std::int32_t* key, std::uint32_t* child, std::uint32_t from,
                                 std::uint32_t top, const Floats& limits) {
  std::uint32_t kept = from;
  const float limit = lowestLane(limits);
  for (std::uint32_t i = from; i < top; ++i) {
    float distance;
    std::memcpy(&distance, &key[i], sizeof distance);
    key[kept] = key[i];
    child[kept] = child[i];
    kept += distance <= limit ? 1 : 0;
  }
  return kept;
}

#if TARN_LANES_HAVE_AVX2
/// For each set of lanes, given as eight bits, the lanes that are in it, first to last. As a table,
/// since the instruction for it is slow on many processors.
struct LaneLists {
  alignas(64) std::uint8_t lanes[256][8] = {};
  constexpr LaneLists() {
    for (unsigned set = 0; set < 256; ++set) {
      unsigned count = 0;
      for (unsigned lane = 0; lane < 8; ++lane)
        if ((set >> lane & 1u) != 0) lanes[set][count++] = static_cast<std::uint8_t>(lane);
    }
  }
};
inline constexpr LaneLists kLaneLists;

TARN_LANES_BEGIN_AVX2
namespace forAvx2 {
using Doubles = tarn::avx2::DoubleLanes<4>;
using Floats = tarn::avx2::FloatLanes<8>;
using Floats4 = tarn::avx2::FloatLanes<4>;
using Mask = tarn::avx2::Mask<8>;

/// Each lane with the one that was moved to it: the lanes of \p lower keep the smaller.
template <int lower>
TARN_LANE __m256i exchange(__m256i v, __m256i moved) {
  return _mm256_blend_epi32(_mm256_max_epi32(v, moved), _mm256_min_epi32(v, moved), lower);
}
/// Sorts eight integers, the largest first: a network of 19 exchanges in six steps, each a move of
/// lanes and a choice between maximum and minimum. Source: the list of smallest known networks by
/// Dobbelaere.
TARN_LANE __m256i sortDescending(__m256i v) {
  v = exchange<0xCC>(v, _mm256_shuffle_epi32(v, 0x4E));
  v = exchange<0xF0>(v, _mm256_permute4x64_epi64(v, 0x4E));
  v = exchange<0xAA>(v, _mm256_shuffle_epi32(v, 0xB1));
  v = exchange<0x30>(v, _mm256_permute4x64_epi64(v, 0xD8));
  v = exchange<0x50>(v, _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 2, 6, 1, 5, 3, 7)));
  return exchange<0x54>(v,
                        _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 2, 1, 4, 3, 6, 5, 7)));
}
}  // namespace forAvx2

template <int lane>
TARN_LANE double laneOf(const forAvx2::Doubles& v) {
  const __m128d half = lane < 2 ? _mm256_castpd256_pd128(v.v) : _mm256_extractf128_pd(v.v, 1);
  return _mm_cvtsd_f64(lane % 2 == 0 ? half : _mm_unpackhi_pd(half, half));
}
TARN_LANE unsigned signBits(const forAvx2::Doubles& v) {
  return static_cast<unsigned>(_mm256_movemask_pd(v.v));
}
TARN_LANE forAvx2::Doubles withFourth(const forAvx2::Doubles& v, const forAvx2::Doubles& last) {
  return {_mm256_blend_pd(v.v, last.v, 8)};
}
TARN_LANE forAvx2::Doubles rotated(const forAvx2::Doubles& v) {
  return {_mm256_permute4x64_pd(v.v, 0x39)};
}
TARN_LANE forAvx2::Doubles next(const forAvx2::Doubles& v) {
  return {_mm256_permute4x64_pd(v.v, 0xC9)};
}
TARN_LANE forAvx2::Doubles previous(const forAvx2::Doubles& v) {
  return {_mm256_permute4x64_pd(v.v, 0xD2)};
}
template <int lane, class Floats>
TARN_LANE forAvx2::Floats spread(const forAvx2::Floats4& v) {
  return {_mm256_permutevar8x32_ps(_mm256_castps128_ps256(v.v), _mm256_set1_epi32(lane))};
}
/// Built in registers: values stored one by one and loaded as one would stall the processor.
TARN_LANE void setLanes(forAvx2::Floats4& out, float a, float b, float c) {
  out.v = _mm_set_ps(0.0f, c, b, a);
}
TARN_LANE void transposeFloats(forAvx2::Floats4 (&row)[4]) {
  _MM_TRANSPOSE4_PS(row[0].v, row[1].v, row[2].v, row[3].v);
}
TARN_LANE void transposeDoubles(forAvx2::Doubles (&row)[4]) {
  const __m256d a = _mm256_unpacklo_pd(row[0].v, row[1].v);
  const __m256d b = _mm256_unpackhi_pd(row[0].v, row[1].v);
  const __m256d c = _mm256_unpacklo_pd(row[2].v, row[3].v);
  const __m256d d = _mm256_unpackhi_pd(row[2].v, row[3].v);
  row[0].v = _mm256_permute2f128_pd(a, c, 0x20);
  row[1].v = _mm256_permute2f128_pd(b, d, 0x20);
  row[2].v = _mm256_permute2f128_pd(a, c, 0x31);
  row[3].v = _mm256_permute2f128_pd(b, d, 0x31);
}
/// Without a branch: a child that is not hit has -1 as its key, which sorts behind all others.
TARN_LANE std::uint32_t pushSorted(const forAvx2::Floats& near, const forAvx2::Mask& hit,
                                   const std::uint32_t* children, std::int32_t* key,
                                   std::uint32_t* child) {
  const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256i all =
      _mm256_or_si256(_mm256_and_si256(_mm256_castps_si256(near.v), _mm256_set1_epi32(~7)), lanes);
  const __m256i sorted = forAvx2::sortDescending(
      _mm256_or_si256(all, _mm256_xor_si256(_mm256_castps_si256(hit.v), _mm256_set1_epi32(-1))));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(key), sorted);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(child),
                      _mm256_permutevar8x32_epi32(
                          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(children)), sorted));
  return static_cast<std::uint32_t>(
      __builtin_popcount(static_cast<unsigned>(_mm256_movemask_ps(hit.v))));
}
TARN_LANE std::uint32_t dropFarther(std::int32_t* key, std::uint32_t* child, std::uint32_t from,
                                    std::uint32_t top, const forAvx2::Floats& limits) {
  std::uint32_t kept = from;
  for (std::uint32_t i = from; i < top; i += 8) {
    const __m256i k = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(key + i));
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(child + i));
    unsigned stays = static_cast<unsigned>(
        _mm256_movemask_ps(_mm256_cmp_ps(_mm256_castsi256_ps(k), limits.v, _CMP_LE_OQ)));
    if (top - i < 8) stays &= (1u << (top - i)) - 1u;
    const __m256i list = _mm256_cvtepu8_epi32(
        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kLaneLists.lanes[stays])));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(key + kept),
                        _mm256_permutevar8x32_epi32(k, list));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(child + kept),
                        _mm256_permutevar8x32_epi32(c, list));
    kept += static_cast<std::uint32_t>(__builtin_popcount(stays));
  }
  return kept;
}
TARN_LANES_END_AVX2
#endif

}  // namespace vela::tracer
