// Every operation of tarn/Lanes.h over arrays, for the tests.

// No include guard: included once for each instruction set.

namespace {
namespace TARN_LANES_SET {

using namespace tarn::TARN_LANES_SET;

template <std::size_t N>
inline void compute(const float* fa, const float* fb, const double* da, const double* db,
                    const std::int32_t* ia, const std::int32_t* ib, Results<N>& r) {
  alignas(4 * N) float aligned[N];
  std::memcpy(aligned, fb, sizeof aligned);
  const auto a = FloatLanes<N>::load(fa), b = FloatLanes<N>::loadAligned(aligned);
  (a + b).store(r.plus);
  (a - b).store(r.minus);
  (a * b).store(r.times);
  (a / b).store(r.over);
  min(a, b).store(r.least);
  max(a, b).store(r.largest);
  (-a).store(r.negative);
  abs(a).store(r.magnitude);
  sqrt(a).store(r.root);
  flipSign(a, b).store(r.flipped);
  const auto less = a<b, greater = a> FloatLanes<N>::broadcast(0.5f);
  select(less, a, b).store(r.chosen);
  keep(less, a).store(r.kept);
  r.less = bits(less);
  r.lessEqual = bits(a <= b);
  r.greater = bits(a > b);
  r.greaterEqual = bits(a >= b);
  r.equal = bits(a == b);
  r.unequal = bits(a != b);
  r.both = bits(less & greater);
  r.either = bits(less | greater);
  r.butNot = bits(andNot(less, greater));
  r.inverse = bits(~less);
  r.anyLess = any(less);
  r.allLess = all(less);
  quad<N / 4 - 1>(a).store(r.lastQuad);
  FloatLanes<4> quads[N / 4];
  for (std::size_t q = 0; q < N / 4; ++q) quads[q] = FloatLanes<4>::load(fb + 4 * q);
  fromQuads<N>(quads).store(r.fromQuads);
  if constexpr (N >= 8) {
    lower(a).store(r.lowerHalf);
    upper(a).store(r.upperHalf);
    join(upper(a), lower(a)).store(r.swapped);
    r.swappedMask = bits(join(upper(less), lower(less)));
    join(upper(IntLanes<N>::load(ia)), lower(IntLanes<N>::load(ib))).store(r.joinedI);
  }

  const auto c = DoubleLanes<N>::load(da), d = DoubleLanes<N>::load(db);
  (c + d).store(r.plusD);
  (c - d).store(r.minusD);
  (c * d).store(r.timesD);
  (c / d).store(r.overD);
  min(c, d).store(r.leastD);
  max(c, d).store(r.largestD);
  (-c).store(r.negativeD);
  abs(c).store(r.magnitudeD);
  sqrt(c).store(r.rootD);
  flipSign(c, d).store(r.flippedD);
  const auto lessD = c<d, greaterD = c> DoubleLanes<N>::broadcast(0.5);
  select(lessD, c, d).store(r.chosenD);
  keep(lessD, c).store(r.keptD);
  r.lessD = bits(lessD);
  r.lessEqualD = bits(c <= d);
  r.greaterD = bits(c > d);
  r.greaterEqualD = bits(c >= d);
  r.equalD = bits(c == d);
  r.unequalD = bits(c != d);
  r.bothD = bits(lessD & greaterD);
  r.eitherD = bits(lessD | greaterD);
  r.butNotD = bits(andNot(lessD, greaterD));
  r.inverseD = bits(~lessD);

  const auto i = IntLanes<N>::load(ia), j = IntLanes<N>::load(ib);
  (i + j).store(r.plusI);
  (i - j).store(r.minusI);
  (i & j).store(r.andI);
  (i | j).store(r.orI);
  (i ^ j).store(r.xorI);
  shiftLeft<5>(i).store(r.shiftedI);
  const auto lessI = i < j;
  select(lessI, i, j).store(r.chosenI);
  keep(lessI, IntLanes<N>::broadcast(7)).store(r.keptI);
  asInts(a).store(r.fromFloats);
  asInts(less).store(r.fromMask);
  r.lessI = bits(lessI);
  r.greaterI = bits(i > j);
  r.equalI = bits(i == j);
  r.signs = signBits(i);
  asFloats(i).store(r.fromInts);

  widen(a).store(r.widened);
  widen(i).store(r.widenedI);
  narrow(c).store(r.narrowed);
  roundToInts(c).store(r.rounded);
  lowWords(c).store(r.words);
  r.maskThere = bits(widen(less));
  r.maskBack = bits(narrow(lessD));
}

inline void computeAcross(const float* f, AcrossResults& r) {
  const auto a = FloatLanes<4>::load(f), b = FloatLanes<4>::load(f + 4);
  shuffle<3, 0, 2, 1>(a, b).store(r.shuffled);
  interleaveLower(a, b).store(r.interleaved);
  interleaveUpper(a, b).store(r.interleaved + 4);
  loadThree(f).store(r.three);
  storeTwo(a, r.two);
  storeUpperTwo(b, r.upperTwo);
  loadTwos(f + 1, f + 6).store(r.twos);
  storeThrees(a, b, FloatLanes<4>::load(f + 8), r.threes);
  r.firstInt = first(asInts(b));
  r.single = first(FloatLanes<kSingle>::broadcast(f[9]));
  quadOf(f[2], f[5], f[0], f[7]).store(r.four);
  r.first = first(b);
  FloatLanes<4> rows[4] = {a, b, FloatLanes<4>::load(f + 8), FloatLanes<4>::load(f + 12)};
  transpose(rows[0], rows[1], rows[2], rows[3]);
  for (std::size_t row = 0; row < 4; ++row) rows[row].store(r.transposed + 4 * row);
}

}  // namespace TARN_LANES_SET
}  // namespace
