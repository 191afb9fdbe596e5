/// \file
/// The lanes of one instruction set. tarn/Lanes.h, which includes this once for each, has the
/// contract.
///
/// First what is wider than a register, as a pair of halves; then a single value, which ends the
/// halving where there are no vector instructions; then the registers.

// No include guard: included once for each set, inside namespace tarn.

namespace TARN_LANES_SET {

/// Floats in the widest register. Without vector instructions: as many as keep a kernel's shape.
#if TARN_LANES_WITH_AVX2
constexpr std::size_t kFloatsAtOnce = 8;
#else
constexpr std::size_t kFloatsAtOnce = 4;
#endif
/// Floats in the narrowest: what holds a single value where masks are to take the place of
/// branches.
#if TARN_LANES_WITH_SSE2
constexpr std::size_t kSingle = 4;
#else
constexpr std::size_t kSingle = 1;
#endif

// ---- Pairs

/// True or false for each of N floats or integers.
template <std::size_t N>
struct Mask {
  Mask<N / 2> lo, hi;
};
/// True or false for each of N doubles.
template <std::size_t N>
struct DoubleMask {
  DoubleMask<N / 2> lo, hi;
};

/// N floats.
template <std::size_t N>
struct FloatLanes {
  FloatLanes<N / 2> lo, hi;

  static TARN_LANE FloatLanes load(const float* p) {
    return {FloatLanes<N / 2>::load(p), FloatLanes<N / 2>::load(p + N / 2)};
  }
  /// Where `p` is a multiple of the size of all N, which spares SSE2 an instruction.
  static TARN_LANE FloatLanes loadAligned(const float* p) {
    return {FloatLanes<N / 2>::loadAligned(p), FloatLanes<N / 2>::loadAligned(p + N / 2)};
  }
  static TARN_LANE FloatLanes broadcast(float f) {
    return {FloatLanes<N / 2>::broadcast(f), FloatLanes<N / 2>::broadcast(f)};
  }
  TARN_LANE void store(float* p) const {
    lo.store(p);
    hi.store(p + N / 2);
  }
};

/// N integers of 32 bits; sums and differences wrap.
template <std::size_t N>
struct IntLanes {
  IntLanes<N / 2> lo, hi;

  static TARN_LANE IntLanes load(const std::int32_t* p) {
    return {IntLanes<N / 2>::load(p), IntLanes<N / 2>::load(p + N / 2)};
  }
  static TARN_LANE IntLanes broadcast(std::int32_t i) {
    return {IntLanes<N / 2>::broadcast(i), IntLanes<N / 2>::broadcast(i)};
  }
  TARN_LANE void store(std::int32_t* p) const {
    lo.store(p);
    hi.store(p + N / 2);
  }
};

/// N doubles.
template <std::size_t N>
struct DoubleLanes {
  DoubleLanes<N / 2> lo, hi;

  static TARN_LANE DoubleLanes load(const double* p) {
    return {DoubleLanes<N / 2>::load(p), DoubleLanes<N / 2>::load(p + N / 2)};
  }
  static TARN_LANE DoubleLanes broadcast(double d) {
    return {DoubleLanes<N / 2>::broadcast(d), DoubleLanes<N / 2>::broadcast(d)};
  }
  TARN_LANE void store(double* p) const {
    lo.store(p);
    hi.store(p + N / 2);
  }
};

// An operation on pairs is the operation on the lower and on the upper halves.
#define TARN_PAIR_UNARY(Result, operation, Lanes)    \
  template <std::size_t N>                           \
  TARN_LANE Result<N> operation(const Lanes<N>& v) { \
    return {operation(v.lo), operation(v.hi)};       \
  }
#define TARN_PAIR_BINARY(Result, operation, A, B)               \
  template <std::size_t N>                                      \
  TARN_LANE Result<N> operation(const A<N>& a, const B<N>& b) { \
    return {operation(a.lo, b.lo), operation(a.hi, b.hi)};      \
  }
#define TARN_PAIR_NUMBERS(Lanes, LanesMask)             \
  TARN_PAIR_BINARY(Lanes, operator+, Lanes, Lanes)      \
  TARN_PAIR_BINARY(Lanes, operator-, Lanes, Lanes)      \
  TARN_PAIR_BINARY(Lanes, operator*, Lanes, Lanes)      \
  TARN_PAIR_BINARY(Lanes, operator/, Lanes, Lanes)      \
  TARN_PAIR_BINARY(Lanes, min, Lanes, Lanes)            \
  TARN_PAIR_BINARY(Lanes, max, Lanes, Lanes)            \
  TARN_PAIR_BINARY(Lanes, flipSign, Lanes, Lanes)       \
  TARN_PAIR_UNARY(Lanes, operator-, Lanes)              \
  TARN_PAIR_UNARY(Lanes, abs, Lanes)                    \
  TARN_PAIR_UNARY(Lanes, sqrt, Lanes)                   \
  TARN_PAIR_BINARY(LanesMask, operator<, Lanes, Lanes)  \
  TARN_PAIR_BINARY(LanesMask, operator<=, Lanes, Lanes) \
  TARN_PAIR_BINARY(LanesMask, operator>, Lanes, Lanes)  \
  TARN_PAIR_BINARY(LanesMask, operator>=, Lanes, Lanes) \
  TARN_PAIR_BINARY(LanesMask, operator==, Lanes, Lanes) \
  TARN_PAIR_BINARY(LanesMask, operator!=, Lanes, Lanes)
#define TARN_PAIR_MASK(LanesMask)                              \
  TARN_PAIR_BINARY(LanesMask, operator&, LanesMask, LanesMask) \
  TARN_PAIR_BINARY(LanesMask, operator|, LanesMask, LanesMask) \
  TARN_PAIR_BINARY(LanesMask, andNot, LanesMask, LanesMask)    \
  TARN_PAIR_UNARY(LanesMask, operator~, LanesMask)             \
  template <std::size_t N>                                     \
  TARN_LANE unsigned bits(const LanesMask<N>& m) {             \
    return bits(m.lo) | bits(m.hi) << N / 2;                   \
  }
#define TARN_PAIR_SELECT(Lanes, LanesMask)                                                 \
  TARN_PAIR_BINARY(Lanes, keep, LanesMask, Lanes)                                          \
  template <std::size_t N>                                                                 \
  TARN_LANE Lanes<N> select(const LanesMask<N>& m, const Lanes<N>& a, const Lanes<N>& b) { \
    return {select(m.lo, a.lo, b.lo), select(m.hi, a.hi, b.hi)};                           \
  }

TARN_PAIR_NUMBERS(FloatLanes, Mask)
TARN_PAIR_NUMBERS(DoubleLanes, DoubleMask)
TARN_PAIR_MASK(Mask)
TARN_PAIR_MASK(DoubleMask)
TARN_PAIR_SELECT(FloatLanes, Mask)
TARN_PAIR_SELECT(IntLanes, Mask)
TARN_PAIR_SELECT(DoubleLanes, DoubleMask)
TARN_PAIR_BINARY(IntLanes, operator+, IntLanes, IntLanes)
TARN_PAIR_BINARY(IntLanes, operator-, IntLanes, IntLanes)
TARN_PAIR_BINARY(IntLanes, operator&, IntLanes, IntLanes)
TARN_PAIR_BINARY(IntLanes, operator|, IntLanes, IntLanes)
TARN_PAIR_BINARY(IntLanes, operator^, IntLanes, IntLanes)
TARN_PAIR_BINARY(Mask, operator<, IntLanes, IntLanes)
TARN_PAIR_BINARY(Mask, operator>, IntLanes, IntLanes)
TARN_PAIR_BINARY(Mask, operator==, IntLanes, IntLanes)
TARN_PAIR_UNARY(IntLanes, asInts, FloatLanes)
TARN_PAIR_UNARY(FloatLanes, asFloats, IntLanes)
TARN_PAIR_UNARY(IntLanes, asInts, Mask)
TARN_PAIR_UNARY(DoubleLanes, widen, FloatLanes)
TARN_PAIR_UNARY(DoubleLanes, widen, IntLanes)
TARN_PAIR_UNARY(DoubleMask, widen, Mask)
TARN_PAIR_UNARY(FloatLanes, narrow, DoubleLanes)
TARN_PAIR_UNARY(Mask, narrow, DoubleMask)
TARN_PAIR_UNARY(IntLanes, roundToInts, DoubleLanes)
TARN_PAIR_UNARY(IntLanes, lowWords, DoubleLanes)
/// Bit i is the sign bit of lane i.
template <std::size_t N>
TARN_LANE unsigned signBits(const IntLanes<N>& v) {
  return signBits(v.lo) | signBits(v.hi) << N / 2;
}
template <int kBits, std::size_t N>
TARN_LANE IntLanes<N> shiftLeft(const IntLanes<N>& v) {
  return {shiftLeft<kBits>(v.lo), shiftLeft<kBits>(v.hi)};
}

#undef TARN_PAIR_UNARY
#undef TARN_PAIR_BINARY
#undef TARN_PAIR_NUMBERS
#undef TARN_PAIR_MASK
#undef TARN_PAIR_SELECT

/// The halves of eight and more.
template <template <std::size_t> class Lanes, std::size_t N>
TARN_LANE Lanes<N / 2> lower(const Lanes<N>& v) {
  return v.lo;
}
template <template <std::size_t> class Lanes, std::size_t N>
TARN_LANE Lanes<N / 2> upper(const Lanes<N>& v) {
  return v.hi;
}
template <template <std::size_t> class Lanes, std::size_t N>
TARN_LANE Lanes<2 * N> join(const Lanes<N>& lo, const Lanes<N>& hi) {
  return {lo, hi};
}

// ---- One value

template <>
struct Mask<1> {
  bool v;
};
template <>
struct DoubleMask<1> {
  bool v;
};
template <>
struct FloatLanes<1> {
  float v;

  static TARN_LANE FloatLanes load(const float* p) { return {*p}; }
  static TARN_LANE FloatLanes loadAligned(const float* p) { return {*p}; }
  static TARN_LANE FloatLanes broadcast(float f) { return {f}; }
  TARN_LANE void store(float* p) const { *p = v; }
};
template <>
struct IntLanes<1> {
  std::int32_t v;

  static TARN_LANE IntLanes load(const std::int32_t* p) { return {*p}; }
  static TARN_LANE IntLanes broadcast(std::int32_t i) { return {i}; }
  TARN_LANE void store(std::int32_t* p) const { *p = v; }
};
template <>
struct DoubleLanes<1> {
  double v;

  static TARN_LANE DoubleLanes load(const double* p) { return {*p}; }
  static TARN_LANE DoubleLanes broadcast(double d) { return {d}; }
  TARN_LANE void store(double* p) const { *p = v; }
};

#define TARN_ONE_NUMBER(Lanes, LanesMask)                                                          \
  TARN_LANE Lanes<1> operator+(const Lanes<1>& a, const Lanes<1>& b) { return {a.v + b.v}; }       \
  TARN_LANE Lanes<1> operator-(const Lanes<1>& a, const Lanes<1>& b) { return {a.v - b.v}; }       \
  TARN_LANE Lanes<1> operator*(const Lanes<1>& a, const Lanes<1>& b) { return {a.v * b.v}; }       \
  TARN_LANE Lanes<1> operator/(const Lanes<1>& a, const Lanes<1>& b) { return {a.v / b.v}; }       \
  TARN_LANE Lanes<1> min(const Lanes<1>& a, const Lanes<1>& b) { return a.v < b.v ? a : b; }       \
  TARN_LANE Lanes<1> max(const Lanes<1>& a, const Lanes<1>& b) { return a.v > b.v ? a : b; }       \
  TARN_LANE Lanes<1> operator-(const Lanes<1>& a) { return {-a.v}; }                               \
  TARN_LANE Lanes<1> abs(const Lanes<1>& a) { return {std::fabs(a.v)}; }                           \
  TARN_LANE Lanes<1> sqrt(const Lanes<1>& a) { return {std::sqrt(a.v)}; }                          \
  TARN_LANE Lanes<1> flipSign(const Lanes<1>& a, const Lanes<1>& sign) {                           \
    return {std::signbit(sign.v) ? -a.v : a.v};                                                    \
  }                                                                                                \
  TARN_LANE LanesMask<1> operator<(const Lanes<1>& a, const Lanes<1>& b) { return {a.v < b.v}; }   \
  TARN_LANE LanesMask<1> operator<=(const Lanes<1>& a, const Lanes<1>& b) { return {a.v <= b.v}; } \
  TARN_LANE LanesMask<1> operator>(const Lanes<1>& a, const Lanes<1>& b) { return {a.v > b.v}; }   \
  TARN_LANE LanesMask<1> operator>=(const Lanes<1>& a, const Lanes<1>& b) { return {a.v >= b.v}; } \
  TARN_LANE LanesMask<1> operator==(const Lanes<1>& a, const Lanes<1>& b) { return {a.v == b.v}; } \
  TARN_LANE LanesMask<1> operator!=(const Lanes<1>& a, const Lanes<1>& b) { return {a.v != b.v}; }
#define TARN_ONE_MASK(LanesMask)                                                   \
  TARN_LANE LanesMask<1> operator&(const LanesMask<1>& a, const LanesMask<1>& b) { \
    return {a.v && b.v};                                                           \
  }                                                                                \
  TARN_LANE LanesMask<1> operator|(const LanesMask<1>& a, const LanesMask<1>& b) { \
    return {a.v || b.v};                                                           \
  }                                                                                \
  TARN_LANE LanesMask<1> andNot(const LanesMask<1>& a, const LanesMask<1>& b) {    \
    return {a.v && !b.v};                                                          \
  }                                                                                \
  TARN_LANE LanesMask<1> operator~(const LanesMask<1>& a) { return {!a.v}; }       \
  TARN_LANE unsigned bits(const LanesMask<1>& a) { return a.v ? 1u : 0u; }
#define TARN_ONE_SELECT(Lanes, LanesMask)                                                  \
  TARN_LANE Lanes<1> select(const LanesMask<1>& m, const Lanes<1>& a, const Lanes<1>& b) { \
    return m.v ? a : b;                                                                    \
  }                                                                                        \
  TARN_LANE Lanes<1> keep(const LanesMask<1>& m, const Lanes<1>& a) {                      \
    return m.v ? a : Lanes<1>{0};                                                          \
  }

TARN_ONE_NUMBER(FloatLanes, Mask)
TARN_ONE_NUMBER(DoubleLanes, DoubleMask)
TARN_ONE_MASK(Mask)
TARN_ONE_MASK(DoubleMask)
TARN_ONE_SELECT(FloatLanes, Mask)
TARN_ONE_SELECT(IntLanes, Mask)
TARN_ONE_SELECT(DoubleLanes, DoubleMask)
#undef TARN_ONE_NUMBER
#undef TARN_ONE_MASK
#undef TARN_ONE_SELECT

TARN_LANE IntLanes<1> wrapped(std::uint32_t bits) { return {static_cast<std::int32_t>(bits)}; }
TARN_LANE std::uint32_t unsignedOf(const IntLanes<1>& i) { return static_cast<std::uint32_t>(i.v); }
TARN_LANE IntLanes<1> operator+(const IntLanes<1>& a, const IntLanes<1>& b) {
  return wrapped(unsignedOf(a) + unsignedOf(b));
}
TARN_LANE IntLanes<1> operator-(const IntLanes<1>& a, const IntLanes<1>& b) {
  return wrapped(unsignedOf(a) - unsignedOf(b));
}
TARN_LANE IntLanes<1> operator&(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v & b.v}; }
TARN_LANE IntLanes<1> operator|(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v | b.v}; }
TARN_LANE IntLanes<1> operator^(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v ^ b.v}; }
TARN_LANE Mask<1> operator<(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v < b.v}; }
TARN_LANE Mask<1> operator>(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v > b.v}; }
TARN_LANE Mask<1> operator==(const IntLanes<1>& a, const IntLanes<1>& b) { return {a.v == b.v}; }
template <int kBits>
TARN_LANE IntLanes<1> shiftLeft(const IntLanes<1>& a) {
  return wrapped(unsignedOf(a) << kBits);
}
TARN_LANE unsigned signBits(const IntLanes<1>& a) { return a.v < 0 ? 1u : 0u; }
TARN_LANE IntLanes<1> asInts(const FloatLanes<1>& a) {
  IntLanes<1> out;
  std::memcpy(&out.v, &a.v, sizeof out.v);
  return out;
}
TARN_LANE FloatLanes<1> asFloats(const IntLanes<1>& a) {
  FloatLanes<1> out;
  std::memcpy(&out.v, &a.v, sizeof out.v);
  return out;
}
TARN_LANE IntLanes<1> asInts(const Mask<1>& m) { return {m.v ? -1 : 0}; }
TARN_LANE DoubleLanes<1> widen(const FloatLanes<1>& a) { return {static_cast<double>(a.v)}; }
TARN_LANE DoubleLanes<1> widen(const IntLanes<1>& a) { return {static_cast<double>(a.v)}; }
TARN_LANE DoubleMask<1> widen(const Mask<1>& m) { return {m.v}; }
TARN_LANE FloatLanes<1> narrow(const DoubleLanes<1>& a) { return {static_cast<float>(a.v)}; }
TARN_LANE Mask<1> narrow(const DoubleMask<1>& m) { return {m.v}; }
TARN_LANE IntLanes<1> roundToInts(const DoubleLanes<1>& a) {
  const double rounded = std::nearbyint(a.v);
  if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0)) return {INT32_MIN};
  return {static_cast<std::int32_t>(rounded)};
}
TARN_LANE IntLanes<1> lowWords(const DoubleLanes<1>& a) {
  std::uint64_t all;
  std::memcpy(&all, &a.v, sizeof all);
  return wrapped(static_cast<std::uint32_t>(all & 0xFFFFFFFFu));
}

// ---- Registers of SSE2: four floats, two doubles

#if TARN_LANES_WITH_SSE2

template <>
struct Mask<4> {
  __m128 v;
};
template <>
struct DoubleMask<2> {
  __m128d v;
};

template <>
struct FloatLanes<4> {
  __m128 v;

  static TARN_LANE FloatLanes load(const float* p) { return {_mm_loadu_ps(p)}; }
  static TARN_LANE FloatLanes loadAligned(const float* p) { return {_mm_load_ps(p)}; }
  static TARN_LANE FloatLanes broadcast(float f) { return {_mm_set1_ps(f)}; }
  TARN_LANE void store(float* p) const { _mm_storeu_ps(p, v); }
};
TARN_LANE FloatLanes<4> operator+(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_add_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> operator-(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_sub_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> operator*(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_mul_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> operator/(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_div_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> min(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_min_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> max(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_max_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<4> operator-(const FloatLanes<4>& a) {
  return {_mm_xor_ps(a.v, _mm_set1_ps(-0.0f))};
}
TARN_LANE FloatLanes<4> abs(const FloatLanes<4>& a) {
  return {_mm_andnot_ps(_mm_set1_ps(-0.0f), a.v)};
}
TARN_LANE FloatLanes<4> sqrt(const FloatLanes<4>& a) { return {_mm_sqrt_ps(a.v)}; }
TARN_LANE FloatLanes<4> flipSign(const FloatLanes<4>& a, const FloatLanes<4>& sign) {
  return {_mm_xor_ps(a.v, _mm_and_ps(sign.v, _mm_set1_ps(-0.0f)))};
}
TARN_LANE Mask<4> operator<(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmplt_ps(a.v, b.v)};
}
TARN_LANE Mask<4> operator<=(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmple_ps(a.v, b.v)};
}
TARN_LANE Mask<4> operator>(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmpgt_ps(a.v, b.v)};
}
TARN_LANE Mask<4> operator>=(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmpge_ps(a.v, b.v)};
}
TARN_LANE Mask<4> operator==(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmpeq_ps(a.v, b.v)};
}
TARN_LANE Mask<4> operator!=(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_cmpneq_ps(a.v, b.v)};
}

TARN_LANE Mask<4> operator&(const Mask<4>& a, const Mask<4>& b) { return {_mm_and_ps(a.v, b.v)}; }
TARN_LANE Mask<4> operator|(const Mask<4>& a, const Mask<4>& b) { return {_mm_or_ps(a.v, b.v)}; }
TARN_LANE Mask<4> andNot(const Mask<4>& a, const Mask<4>& b) { return {_mm_andnot_ps(b.v, a.v)}; }
TARN_LANE Mask<4> operator~(const Mask<4>& m) {
  return {_mm_xor_ps(m.v, _mm_castsi128_ps(_mm_set1_epi32(-1)))};
}
TARN_LANE unsigned bits(const Mask<4>& m) { return static_cast<unsigned>(_mm_movemask_ps(m.v)); }
TARN_LANE FloatLanes<4> select(const Mask<4>& m, const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_or_ps(_mm_and_ps(m.v, a.v), _mm_andnot_ps(m.v, b.v))};
}
TARN_LANE FloatLanes<4> keep(const Mask<4>& m, const FloatLanes<4>& a) {
  return {_mm_and_ps(m.v, a.v)};
}

template <>
struct IntLanes<4> {
  __m128i v;

  static TARN_LANE IntLanes load(const std::int32_t* p) {
    return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
  }
  static TARN_LANE IntLanes broadcast(std::int32_t i) { return {_mm_set1_epi32(i)}; }
  TARN_LANE void store(std::int32_t* p) const {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
  }
};
TARN_LANE IntLanes<4> operator+(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_add_epi32(a.v, b.v)};
}
TARN_LANE IntLanes<4> operator-(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_sub_epi32(a.v, b.v)};
}
TARN_LANE IntLanes<4> operator&(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_and_si128(a.v, b.v)};
}
TARN_LANE IntLanes<4> operator|(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_or_si128(a.v, b.v)};
}
TARN_LANE IntLanes<4> operator^(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_xor_si128(a.v, b.v)};
}
TARN_LANE Mask<4> operator<(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_castsi128_ps(_mm_cmplt_epi32(a.v, b.v))};
}
TARN_LANE Mask<4> operator>(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_castsi128_ps(_mm_cmpgt_epi32(a.v, b.v))};
}
TARN_LANE Mask<4> operator==(const IntLanes<4>& a, const IntLanes<4>& b) {
  return {_mm_castsi128_ps(_mm_cmpeq_epi32(a.v, b.v))};
}
template <int kBits>
TARN_LANE IntLanes<4> shiftLeft(const IntLanes<4>& a) {
  return {_mm_slli_epi32(a.v, kBits)};
}
TARN_LANE unsigned signBits(const IntLanes<4>& a) {
  return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(a.v)));
}
TARN_LANE IntLanes<4> asInts(const FloatLanes<4>& a) { return {_mm_castps_si128(a.v)}; }
TARN_LANE FloatLanes<4> asFloats(const IntLanes<4>& a) { return {_mm_castsi128_ps(a.v)}; }
TARN_LANE IntLanes<4> asInts(const Mask<4>& m) { return {_mm_castps_si128(m.v)}; }
TARN_LANE IntLanes<4> select(const Mask<4>& m, const IntLanes<4>& a, const IntLanes<4>& b) {
  return asInts(select(m, asFloats(a), asFloats(b)));
}
TARN_LANE IntLanes<4> keep(const Mask<4>& m, const IntLanes<4>& a) {
  return {_mm_and_si128(_mm_castps_si128(m.v), a.v)};
}

template <>
struct DoubleLanes<2> {
  __m128d v;

  static TARN_LANE DoubleLanes load(const double* p) { return {_mm_loadu_pd(p)}; }
  static TARN_LANE DoubleLanes broadcast(double d) { return {_mm_set1_pd(d)}; }
  TARN_LANE void store(double* p) const { _mm_storeu_pd(p, v); }
};
TARN_LANE DoubleLanes<2> operator+(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_add_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> operator-(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_sub_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> operator*(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_mul_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> operator/(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_div_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> min(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_min_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> max(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_max_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<2> operator-(const DoubleLanes<2>& a) {
  return {_mm_xor_pd(a.v, _mm_set1_pd(-0.0))};
}
TARN_LANE DoubleLanes<2> abs(const DoubleLanes<2>& a) {
  return {_mm_andnot_pd(_mm_set1_pd(-0.0), a.v)};
}
TARN_LANE DoubleLanes<2> sqrt(const DoubleLanes<2>& a) { return {_mm_sqrt_pd(a.v)}; }
TARN_LANE DoubleLanes<2> flipSign(const DoubleLanes<2>& a, const DoubleLanes<2>& sign) {
  return {_mm_xor_pd(a.v, _mm_and_pd(sign.v, _mm_set1_pd(-0.0)))};
}
TARN_LANE DoubleMask<2> operator<(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmplt_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator<=(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmple_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator>(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmpgt_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator>=(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmpge_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator==(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmpeq_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator!=(const DoubleLanes<2>& a, const DoubleLanes<2>& b) {
  return {_mm_cmpneq_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator&(const DoubleMask<2>& a, const DoubleMask<2>& b) {
  return {_mm_and_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> operator|(const DoubleMask<2>& a, const DoubleMask<2>& b) {
  return {_mm_or_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<2> andNot(const DoubleMask<2>& a, const DoubleMask<2>& b) {
  return {_mm_andnot_pd(b.v, a.v)};
}
TARN_LANE DoubleMask<2> operator~(const DoubleMask<2>& m) {
  return {_mm_xor_pd(m.v, _mm_castsi128_pd(_mm_set1_epi32(-1)))};
}
TARN_LANE unsigned bits(const DoubleMask<2>& m) {
  return static_cast<unsigned>(_mm_movemask_pd(m.v));
}
TARN_LANE DoubleLanes<2> select(const DoubleMask<2>& m, const DoubleLanes<2>& a,
                                const DoubleLanes<2>& b) {
  return {_mm_or_pd(_mm_and_pd(m.v, a.v), _mm_andnot_pd(m.v, b.v))};
}
TARN_LANE DoubleLanes<2> keep(const DoubleMask<2>& m, const DoubleLanes<2>& a) {
  return {_mm_and_pd(m.v, a.v)};
}

#endif

#if TARN_LANES_WITH_SSE2 && !TARN_LANES_WITH_AVX2

// Between four floats in a register and four doubles in two.
TARN_LANE DoubleLanes<4> widen(const FloatLanes<4>& a) {
  return {{_mm_cvtps_pd(a.v)}, {_mm_cvtps_pd(_mm_movehl_ps(a.v, a.v))}};
}
TARN_LANE DoubleLanes<4> widen(const IntLanes<4>& a) {
  return {{_mm_cvtepi32_pd(a.v)}, {_mm_cvtepi32_pd(_mm_unpackhi_epi64(a.v, a.v))}};
}
TARN_LANE DoubleMask<4> widen(const Mask<4>& m) {
  return {{_mm_castps_pd(_mm_unpacklo_ps(m.v, m.v))}, {_mm_castps_pd(_mm_unpackhi_ps(m.v, m.v))}};
}
TARN_LANE FloatLanes<4> narrow(const DoubleLanes<4>& a) {
  return {_mm_movelh_ps(_mm_cvtpd_ps(a.lo.v), _mm_cvtpd_ps(a.hi.v))};
}
TARN_LANE IntLanes<4> roundToInts(const DoubleLanes<4>& a) {
  return {_mm_unpacklo_epi64(_mm_cvtpd_epi32(a.lo.v), _mm_cvtpd_epi32(a.hi.v))};
}
TARN_LANE Mask<4> narrow(const DoubleMask<4>& m) {
  return {_mm_shuffle_ps(_mm_castpd_ps(m.lo.v), _mm_castpd_ps(m.hi.v), _MM_SHUFFLE(2, 0, 2, 0))};
}
TARN_LANE IntLanes<4> lowWords(const DoubleLanes<4>& a) {
  return {_mm_castps_si128(
      _mm_shuffle_ps(_mm_castpd_ps(a.lo.v), _mm_castpd_ps(a.hi.v), _MM_SHUFFLE(2, 0, 2, 0)))};
}

#endif

// ---- Registers of AVX2: eight floats, four doubles

#if TARN_LANES_WITH_AVX2

template <>
struct Mask<8> {
  __m256 v;
};
template <>
struct DoubleMask<4> {
  __m256d v;
};

template <>
struct FloatLanes<8> {
  __m256 v;

  static TARN_LANE FloatLanes load(const float* p) { return {_mm256_loadu_ps(p)}; }
  static TARN_LANE FloatLanes loadAligned(const float* p) { return {_mm256_load_ps(p)}; }
  static TARN_LANE FloatLanes broadcast(float f) { return {_mm256_set1_ps(f)}; }
  TARN_LANE void store(float* p) const { _mm256_storeu_ps(p, v); }
};
TARN_LANE FloatLanes<8> operator+(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_add_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> operator-(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_sub_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> operator*(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_mul_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> operator/(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_div_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> min(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_min_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> max(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_max_ps(a.v, b.v)};
}
TARN_LANE FloatLanes<8> operator-(const FloatLanes<8>& a) {
  return {_mm256_xor_ps(a.v, _mm256_set1_ps(-0.0f))};
}
TARN_LANE FloatLanes<8> abs(const FloatLanes<8>& a) {
  return {_mm256_andnot_ps(_mm256_set1_ps(-0.0f), a.v)};
}
TARN_LANE FloatLanes<8> sqrt(const FloatLanes<8>& a) { return {_mm256_sqrt_ps(a.v)}; }
TARN_LANE FloatLanes<8> flipSign(const FloatLanes<8>& a, const FloatLanes<8>& sign) {
  return {_mm256_xor_ps(a.v, _mm256_and_ps(sign.v, _mm256_set1_ps(-0.0f)))};
}
TARN_LANE Mask<8> operator<(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)};
}
TARN_LANE Mask<8> operator<=(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)};
}
TARN_LANE Mask<8> operator>(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_GT_OQ)};
}
TARN_LANE Mask<8> operator>=(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_GE_OQ)};
}
TARN_LANE Mask<8> operator==(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_EQ_OQ)};
}
TARN_LANE Mask<8> operator!=(const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_NEQ_UQ)};
}

TARN_LANE Mask<8> operator&(const Mask<8>& a, const Mask<8>& b) {
  return {_mm256_and_ps(a.v, b.v)};
}
TARN_LANE Mask<8> operator|(const Mask<8>& a, const Mask<8>& b) { return {_mm256_or_ps(a.v, b.v)}; }
TARN_LANE Mask<8> andNot(const Mask<8>& a, const Mask<8>& b) {
  return {_mm256_andnot_ps(b.v, a.v)};
}
TARN_LANE Mask<8> operator~(const Mask<8>& m) {
  return {_mm256_xor_ps(m.v, _mm256_castsi256_ps(_mm256_set1_epi32(-1)))};
}
TARN_LANE unsigned bits(const Mask<8>& m) { return static_cast<unsigned>(_mm256_movemask_ps(m.v)); }
TARN_LANE FloatLanes<8> select(const Mask<8>& m, const FloatLanes<8>& a, const FloatLanes<8>& b) {
  return {_mm256_blendv_ps(b.v, a.v, m.v)};
}
TARN_LANE FloatLanes<8> keep(const Mask<8>& m, const FloatLanes<8>& a) {
  return {_mm256_and_ps(m.v, a.v)};
}

template <>
struct IntLanes<8> {
  __m256i v;

  static TARN_LANE IntLanes load(const std::int32_t* p) {
    return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))};
  }
  static TARN_LANE IntLanes broadcast(std::int32_t i) { return {_mm256_set1_epi32(i)}; }
  TARN_LANE void store(std::int32_t* p) const {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
  }
};
TARN_LANE IntLanes<8> operator+(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_add_epi32(a.v, b.v)};
}
TARN_LANE IntLanes<8> operator-(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_sub_epi32(a.v, b.v)};
}
TARN_LANE IntLanes<8> operator&(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_and_si256(a.v, b.v)};
}
TARN_LANE IntLanes<8> operator|(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_or_si256(a.v, b.v)};
}
TARN_LANE IntLanes<8> operator^(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_xor_si256(a.v, b.v)};
}
TARN_LANE Mask<8> operator<(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_castsi256_ps(_mm256_cmpgt_epi32(b.v, a.v))};
}
TARN_LANE Mask<8> operator>(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_castsi256_ps(_mm256_cmpgt_epi32(a.v, b.v))};
}
TARN_LANE Mask<8> operator==(const IntLanes<8>& a, const IntLanes<8>& b) {
  return {_mm256_castsi256_ps(_mm256_cmpeq_epi32(a.v, b.v))};
}
template <int kBits>
TARN_LANE IntLanes<8> shiftLeft(const IntLanes<8>& a) {
  return {_mm256_slli_epi32(a.v, kBits)};
}
TARN_LANE unsigned signBits(const IntLanes<8>& a) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(a.v)));
}
TARN_LANE IntLanes<8> asInts(const FloatLanes<8>& a) { return {_mm256_castps_si256(a.v)}; }
TARN_LANE FloatLanes<8> asFloats(const IntLanes<8>& a) { return {_mm256_castsi256_ps(a.v)}; }
TARN_LANE IntLanes<8> asInts(const Mask<8>& m) { return {_mm256_castps_si256(m.v)}; }
TARN_LANE IntLanes<8> select(const Mask<8>& m, const IntLanes<8>& a, const IntLanes<8>& b) {
  return asInts(select(m, asFloats(a), asFloats(b)));
}
TARN_LANE IntLanes<8> keep(const Mask<8>& m, const IntLanes<8>& a) {
  return {_mm256_and_si256(_mm256_castps_si256(m.v), a.v)};
}

template <>
struct DoubleLanes<4> {
  __m256d v;

  static TARN_LANE DoubleLanes load(const double* p) { return {_mm256_loadu_pd(p)}; }
  static TARN_LANE DoubleLanes broadcast(double d) { return {_mm256_set1_pd(d)}; }
  TARN_LANE void store(double* p) const { _mm256_storeu_pd(p, v); }
};
TARN_LANE DoubleLanes<4> operator+(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_add_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> operator-(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_sub_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> operator*(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_mul_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> operator/(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_div_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> min(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_min_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> max(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_max_pd(a.v, b.v)};
}
TARN_LANE DoubleLanes<4> operator-(const DoubleLanes<4>& a) {
  return {_mm256_xor_pd(a.v, _mm256_set1_pd(-0.0))};
}
TARN_LANE DoubleLanes<4> abs(const DoubleLanes<4>& a) {
  return {_mm256_andnot_pd(_mm256_set1_pd(-0.0), a.v)};
}
TARN_LANE DoubleLanes<4> sqrt(const DoubleLanes<4>& a) { return {_mm256_sqrt_pd(a.v)}; }
TARN_LANE DoubleLanes<4> flipSign(const DoubleLanes<4>& a, const DoubleLanes<4>& sign) {
  return {_mm256_xor_pd(a.v, _mm256_and_pd(sign.v, _mm256_set1_pd(-0.0)))};
}
TARN_LANE DoubleMask<4> operator<(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_LT_OQ)};
}
TARN_LANE DoubleMask<4> operator<=(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_LE_OQ)};
}
TARN_LANE DoubleMask<4> operator>(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_GT_OQ)};
}
TARN_LANE DoubleMask<4> operator>=(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_GE_OQ)};
}
TARN_LANE DoubleMask<4> operator==(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_EQ_OQ)};
}
TARN_LANE DoubleMask<4> operator!=(const DoubleLanes<4>& a, const DoubleLanes<4>& b) {
  return {_mm256_cmp_pd(a.v, b.v, _CMP_NEQ_UQ)};
}
TARN_LANE DoubleMask<4> operator&(const DoubleMask<4>& a, const DoubleMask<4>& b) {
  return {_mm256_and_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<4> operator|(const DoubleMask<4>& a, const DoubleMask<4>& b) {
  return {_mm256_or_pd(a.v, b.v)};
}
TARN_LANE DoubleMask<4> andNot(const DoubleMask<4>& a, const DoubleMask<4>& b) {
  return {_mm256_andnot_pd(b.v, a.v)};
}
TARN_LANE DoubleMask<4> operator~(const DoubleMask<4>& m) {
  return {_mm256_xor_pd(m.v, _mm256_castsi256_pd(_mm256_set1_epi32(-1)))};
}
TARN_LANE unsigned bits(const DoubleMask<4>& m) {
  return static_cast<unsigned>(_mm256_movemask_pd(m.v));
}
TARN_LANE DoubleLanes<4> select(const DoubleMask<4>& m, const DoubleLanes<4>& a,
                                const DoubleLanes<4>& b) {
  return {_mm256_blendv_pd(b.v, a.v, m.v)};
}
TARN_LANE DoubleLanes<4> keep(const DoubleMask<4>& m, const DoubleLanes<4>& a) {
  return {_mm256_and_pd(m.v, a.v)};
}

// Between four floats or integers and four doubles, each in a register.
TARN_LANE DoubleLanes<4> widen(const FloatLanes<4>& a) { return {_mm256_cvtps_pd(a.v)}; }
TARN_LANE DoubleLanes<4> widen(const IntLanes<4>& a) { return {_mm256_cvtepi32_pd(a.v)}; }
TARN_LANE DoubleMask<4> widen(const Mask<4>& m) {
  return {_mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm_castps_si128(m.v)))};
}
TARN_LANE FloatLanes<4> narrow(const DoubleLanes<4>& a) { return {_mm256_cvtpd_ps(a.v)}; }
TARN_LANE IntLanes<4> roundToInts(const DoubleLanes<4>& a) { return {_mm256_cvtpd_epi32(a.v)}; }
TARN_LANE IntLanes<4> lowWords(const DoubleLanes<4>& a) {
  const __m128 low = _mm_castpd_ps(_mm256_castpd256_pd128(a.v)),
               high = _mm_castpd_ps(_mm256_extractf128_pd(a.v, 1));
  return {_mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0)))};
}
TARN_LANE Mask<4> narrow(const DoubleMask<4>& m) {
  return {_mm_castsi128_ps(lowWords(DoubleLanes<4>{m.v}).v)};
}

// Between eight of them in a register and eight doubles in two.
TARN_LANE FloatLanes<4> lower(const FloatLanes<8>& a) { return {_mm256_castps256_ps128(a.v)}; }
TARN_LANE FloatLanes<4> upper(const FloatLanes<8>& a) { return {_mm256_extractf128_ps(a.v, 1)}; }
TARN_LANE IntLanes<4> lower(const IntLanes<8>& a) { return {_mm256_castsi256_si128(a.v)}; }
TARN_LANE IntLanes<4> upper(const IntLanes<8>& a) { return {_mm256_extracti128_si256(a.v, 1)}; }
TARN_LANE Mask<4> lower(const Mask<8>& m) { return {_mm256_castps256_ps128(m.v)}; }
TARN_LANE Mask<4> upper(const Mask<8>& m) { return {_mm256_extractf128_ps(m.v, 1)}; }
TARN_LANE FloatLanes<8> join(const FloatLanes<4>& lo, const FloatLanes<4>& hi) {
  return {_mm256_insertf128_ps(_mm256_castps128_ps256(lo.v), hi.v, 1)};
}
TARN_LANE IntLanes<8> join(const IntLanes<4>& lo, const IntLanes<4>& hi) {
  return {_mm256_inserti128_si256(_mm256_castsi128_si256(lo.v), hi.v, 1)};
}
TARN_LANE Mask<8> join(const Mask<4>& lo, const Mask<4>& hi) {
  return {_mm256_insertf128_ps(_mm256_castps128_ps256(lo.v), hi.v, 1)};
}
TARN_LANE DoubleLanes<8> widen(const FloatLanes<8>& a) {
  return {widen(lower(a)), widen(upper(a))};
}
TARN_LANE DoubleLanes<8> widen(const IntLanes<8>& a) { return {widen(lower(a)), widen(upper(a))}; }
TARN_LANE DoubleMask<8> widen(const Mask<8>& m) { return {widen(lower(m)), widen(upper(m))}; }
TARN_LANE FloatLanes<8> narrow(const DoubleLanes<8>& a) { return join(narrow(a.lo), narrow(a.hi)); }
TARN_LANE Mask<8> narrow(const DoubleMask<8>& m) { return join(narrow(m.lo), narrow(m.hi)); }
TARN_LANE IntLanes<8> roundToInts(const DoubleLanes<8>& a) {
  return join(roundToInts(a.lo), roundToInts(a.hi));
}
TARN_LANE IntLanes<8> lowWords(const DoubleLanes<8>& a) {
  return join(lowWords(a.lo), lowWords(a.hi));
}

#endif

// ---- Built on the above

template <std::size_t N>
TARN_LANE bool any(const Mask<N>& m) {
  return bits(m) != 0;
}
template <std::size_t N>
TARN_LANE bool all(const Mask<N>& m) {
  return bits(m) == 0xFFFFFFFFu >> (32 - N);
}

// ---- Four floats across lanes

#if TARN_LANES_WITH_SSE2

/// {a[i], a[j], b[k], b[l]}
template <int i, int j, int k, int l>
TARN_LANE FloatLanes<4> shuffle(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(l, k, j, i))};
}
/// {a[0], b[0], a[1], b[1]}
TARN_LANE FloatLanes<4> interleaveLower(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_unpacklo_ps(a.v, b.v)};
}
/// {a[2], b[2], a[3], b[3]}
TARN_LANE FloatLanes<4> interleaveUpper(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {_mm_unpackhi_ps(a.v, b.v)};
}
/// {a, b, c, d}
TARN_LANE FloatLanes<4> quadOf(float a, float b, float c, float d) {
  return {_mm_setr_ps(a, b, c, d)};
}
/// {p[0], p[1], p[2], +0}; p[3] is not read.
TARN_LANE FloatLanes<4> loadThree(const float* p) {
  return {_mm_movelh_ps(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                        _mm_load_ss(p + 2))};
}
/// {lo[0], lo[1], hi[0], hi[1]}
TARN_LANE FloatLanes<4> loadTwos(const float* lo, const float* hi) {
  return {_mm_loadh_pi(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lo))),
                       reinterpret_cast<const __m64*>(hi))};
}
/// The lower two lanes to p[0] and p[1].
TARN_LANE void storeTwo(const FloatLanes<4>& a, float* p) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_castps_si128(a.v));
}
/// The upper two lanes to p[0] and p[1].
TARN_LANE void storeUpperTwo(const FloatLanes<4>& a, float* p) {
  _mm_storeh_pi(reinterpret_cast<__m64*>(p), a.v);
}
/// a[0]
TARN_LANE float first(const FloatLanes<4>& a) { return _mm_cvtss_f32(a.v); }
TARN_LANE std::int32_t first(const IntLanes<4>& a) { return _mm_cvtsi128_si32(a.v); }

#else

template <int i, int j, int k, int l>
TARN_LANE FloatLanes<4> shuffle(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  float from[8];
  a.store(from);
  b.store(from + 4);
  const float to[4] = {from[i], from[j], from[4 + k], from[4 + l]};
  return FloatLanes<4>::load(to);
}
TARN_LANE FloatLanes<4> interleaveLower(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {{a.lo.lo, b.lo.lo}, {a.lo.hi, b.lo.hi}};
}
TARN_LANE FloatLanes<4> interleaveUpper(const FloatLanes<4>& a, const FloatLanes<4>& b) {
  return {{a.hi.lo, b.hi.lo}, {a.hi.hi, b.hi.hi}};
}
TARN_LANE FloatLanes<4> quadOf(float a, float b, float c, float d) {
  return {{{a}, {b}}, {{c}, {d}}};
}
TARN_LANE FloatLanes<4> loadThree(const float* p) { return {{{p[0]}, {p[1]}}, {{p[2]}, {0.0f}}}; }
TARN_LANE FloatLanes<4> loadTwos(const float* lo, const float* hi) {
  return {FloatLanes<2>::load(lo), FloatLanes<2>::load(hi)};
}
TARN_LANE void storeTwo(const FloatLanes<4>& a, float* p) { a.lo.store(p); }
TARN_LANE void storeUpperTwo(const FloatLanes<4>& a, float* p) { a.hi.store(p); }
TARN_LANE float first(const FloatLanes<4>& a) { return a.lo.lo.v; }
TARN_LANE std::int32_t first(const IntLanes<4>& a) { return a.lo.lo.v; }
TARN_LANE float first(const FloatLanes<1>& a) { return a.v; }
TARN_LANE std::int32_t first(const IntLanes<1>& a) { return a.v; }

#endif

/// Lanes 4 index to 4 index + 3.
template <std::size_t index, std::size_t N>
TARN_LANE FloatLanes<4> quad(const FloatLanes<N>& v) {
  if constexpr (N == 4)
    return v;
  else if constexpr (index < N / 8)
    return quad<index>(lower(v));
  else
    return quad<index - N / 8>(upper(v));
}
/// N / 4 quads in a row.
template <std::size_t N>
TARN_LANE FloatLanes<N> fromQuads(const FloatLanes<4>* quads) {
  if constexpr (N == 4)
    return quads[0];
  else
    return join(fromQuads<N / 2>(quads), fromQuads<N / 2>(quads + N / 8));
}

/// Twelve floats in a row: x[0], y[0], z[0], x[1] ...
TARN_LANE void storeThrees(const FloatLanes<4>& x, const FloatLanes<4>& y, const FloatLanes<4>& z,
                           float* p) {
  const FloatLanes<4> xy01 = interleaveLower(x, y), xy23 = interleaveUpper(x, y);
  shuffle<0, 1, 0, 2>(xy01, shuffle<0, 0, 1, 1>(z, x)).store(p);
  shuffle<0, 2, 0, 1>(shuffle<1, 1, 1, 1>(y, z), xy23).store(p + 4);
  shuffle<0, 2, 0, 2>(shuffle<2, 2, 3, 3>(z, x), shuffle<3, 3, 3, 3>(y, z)).store(p + 8);
}

/// Rows become columns.
TARN_LANE void transpose(FloatLanes<4>& a, FloatLanes<4>& b, FloatLanes<4>& c, FloatLanes<4>& d) {
  const FloatLanes<4> ab01 = interleaveLower(a, b), ab23 = interleaveUpper(a, b);
  const FloatLanes<4> cd01 = interleaveLower(c, d), cd23 = interleaveUpper(c, d);
  a = shuffle<0, 1, 0, 1>(ab01, cd01);
  b = shuffle<2, 3, 2, 3>(ab01, cd01);
  c = shuffle<0, 1, 0, 1>(ab23, cd23);
  d = shuffle<2, 3, 2, 3>(ab23, cd23);
}

}  // namespace TARN_LANES_SET
