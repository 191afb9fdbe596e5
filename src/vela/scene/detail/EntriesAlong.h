/// \file
/// Which boxes a ray enters.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"

namespace vela::scene::detail {

/// The entries whose boxes a ray enters, all of them and perhaps a few more. A tree of boxes whose
/// leaves are never hit, so that the walk through it goes on and takes note of each.
///
/// Belongs to one thread.
class EntriesAlong final : public AccelerationModel {
 public:
  /// \param boxes of the entries, up to single precision; an empty box is never entered
  /// \param rays  those that will be asked about
  EntriesAlong(const std::vector<tarn::Box3f>& boxes, const std::vector<tarn::Ray3f>& rays);

  /// Refills \p entries.
  void find(const tarn::Ray3f& ray, std::vector<std::size_t>& entries) const;

 private:
  std::size_t size() const override { return boxes_.size(); }
  tarn::Box3f bounds(std::size_t i) const override { return boxes_[i]; }
  tarn::Box3f bounds() const override { return bounds_; }
  bool exclude(const IntersectionContext&, std::size_t) const override { return false; }
  bool intersect(const IntersectionContext&, const tarn::Ray3f&, std::size_t i,
                 CollisionResult&) const override {
    found_->push_back(entries_[i]);
    return false;
  }

  std::vector<tarn::Box3f> boxes_;
  std::vector<std::size_t> entries_;  // of the boxes
  std::vector<std::size_t> always_;   // entries whose boxes are too large to compute with
  tarn::Box3f bounds_;
  std::unique_ptr<BvhAcceleration> tree_;
  IntersectionContext context_;
  mutable std::vector<std::size_t>* found_ = nullptr;
};

}  // namespace vela::scene::detail
