/// \file
/// Rays as arrays: origins and directions (n, 3), ranges as numbers or arrays (n,).
#pragma once

#include <nanobind/nanobind.h>

#include <limits>
#include <optional>
#include <string>

#include "Arrays.h"
#include "Calls.h"
#include "tarn/Ray.h"

namespace vela::python {

/// One end of the rays' ranges: a number for all, or an array (n,).
template <class T>
class RangeEnd {
 public:
  RangeEnd(nb::handle source, std::size_t size, const char* name, T otherwise) : all_(otherwise) {
    if (source.is_none()) return;
    if (PyFloat_Check(source.ptr()) || PyLong_Check(source.ptr())) {
      all_ = nb::cast<T>(source);
      return;
    }
    each_.emplace(In<T>{nb::borrow(source)}.read(name));
    if (each_->size() != size)
      refuse(std::string(name) + ": expected one number or " + std::to_string(size) + ", found " +
             std::to_string(each_->size()));
  }
  [[nodiscard]] T operator[](std::size_t i) const { return each_ ? each_->data()[i] : all_; }

 private:
  T all_;
  std::optional<InView<T>> each_;
};

/// Rays that are read where the caller has them.
template <class T>
class RayBatch {
 public:
  RayBatch(nb::handle origins, nb::handle directions, nb::handle least, nb::handle most)
      : origins_(In<tarn::Vec3<T>>{nb::borrow(origins)}.read("origins")),
        directions_(In<tarn::Vec3<T>>{nb::borrow(directions)}.read("directions")),
        least_(least, origins_.size(), "min_distance", T(0)),
        most_(most, origins_.size(), "max_distance", std::numeric_limits<T>::max()) {
    if (origins_.size() != directions_.size())
      refuse("directions: expected " + std::to_string(origins_.size()) +
             " rows as origins, found " + std::to_string(directions_.size()));
  }
  [[nodiscard]] std::size_t size() const { return origins_.size(); }
  [[nodiscard]] tarn::Ray<T> operator[](std::size_t i) const {
    return {origins_.data()[i], directions_.data()[i], least_[i], most_[i]};
  }

 private:
  InView<tarn::Vec3<T>> origins_, directions_;
  RangeEnd<T> least_, most_;
};

/// True when rays are traced in single precision: no array that says so is of another type.
inline bool areFloats(nb::handle origins, nb::handle directions) {
  const auto isFloat = [](nb::handle a) {
    return HeldArray::elementTypeOf(a) == Element::float32 || !nb::hasattr(a, "dtype");
  };
  return isFloat(origins) && isFloat(directions);
}

}  // namespace vela::python
