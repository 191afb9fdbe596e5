/// \file
/// Corners against an ear, several at once; Triangulate.cpp includes this once for each instruction
/// set.

// No include guard: included once for each instruction set.

namespace vela::detail {
namespace {
namespace TARN_LANES_SET {

/// Every lane rounds as Ear::isBlockedBy does.
class EarLanes {
 public:
  using Lanes = tarn::TARN_LANES_SET::FloatLanes<kEarBlock>;

  explicit EarLanes(const Ear& e)
      : px_(of(e.p.x)),
        py_(of(e.p.y)),
        cx_(of(e.c.x)),
        cy_(of(e.c.y)),
        nx_(of(e.n.x)),
        ny_(of(e.n.y)),
        nSide_(of(e.nSide)),
        turn_(of(e.turn)),
        cSide_(of(e.cSide)),
        cpx_(of(e.c.x - e.p.x)),
        cpy_(of(e.c.y - e.p.y)),
        ncx_(of(e.n.x - e.c.x)),
        ncy_(of(e.n.y - e.c.y)),
        pnx_(of(e.p.x - e.n.x)),
        pny_(of(e.p.y - e.n.y)),
        tolerance_(of(kEarTolerance)) {}

  [[nodiscard]] bool isBlockedByAny(const float* xs, const float* ys) const {
    const Lanes qx = Lanes::load(xs), qy = Lanes::load(ys);
    auto inside = nSide_ * (cpx_ * (qy - py_) - (qx - px_) * cpy_) > tolerance_;
    if (!any(inside)) return false;
    inside = inside & (turn_ * (ncx_ * (qy - cy_) - (qx - cx_) * ncy_) > tolerance_);
    if (!any(inside)) return false;
    return any(inside & (cSide_ * (pnx_ * (qy - ny_) - (qx - nx_) * pny_) > tolerance_));
  }

 private:
  static Lanes of(float f) { return Lanes::broadcast(f); }

  Lanes px_, py_, cx_, cy_, nx_, ny_, nSide_, turn_, cSide_, cpx_, cpy_, ncx_, ncy_, pnx_, pny_,
      tolerance_;
};

inline bool anyBlocks(const Ear& ear, const float* x, const float* y, int blocks, int first) {
  const EarLanes lanes(ear);
  for (int block = first; block < blocks; ++block)
    if (lanes.isBlockedByAny(x + kEarBlock * block, y + kEarBlock * block)) return true;
  for (int block = 0; block < first; ++block)
    if (lanes.isBlockedByAny(x + kEarBlock * block, y + kEarBlock * block)) return true;
  return false;
}

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::detail
