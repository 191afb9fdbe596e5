/// \file
/// The faces of a mesh, walked one by one over its counts and indices.
///
/// Layout of all mesh arrays: faces follow one another in the index array, the length of each is in
/// the count array. Both come from files and may contradict each other. This is the one place that
/// says what then holds; whatever walks over faces walks through here.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "tarn/Span.h"

namespace ovo {

/// One face: its point indices, in its own winding. A view of the index array.
///
/// \code
///   const std::vector<int> counts = {4, 3}, indices = {0, 1, 2, 3, 3, 2, 9};
///   for (const ovo::Face face : ovo::Faces(counts, indices))
///     assert(face.isUsable(4) == (face.index() == 0));  // the second names point 9 of 4
/// \endcode
class Face {
 public:
  constexpr Face() = default;
  /// \p size indices from \p first on; Faces makes them.
  constexpr Face(std::size_t index, std::size_t firstVertex, const std::int32_t* first,
                 std::size_t size)
      : first_(first), size_(size), index_(index), firstVertex_(firstVertex) {}

  /// How many vertices the face has; 0 for a count of zero or less, and for a face that the indices
  /// do not reach. @{
  [[nodiscard]] constexpr std::size_t size() const { return size_; }
  [[nodiscard]] constexpr bool empty() const { return size_ == 0; }
  /// @}
  /// The point indices, first and past-the-last. Null in a face without vertices. @{
  [[nodiscard]] constexpr const std::int32_t* data() const { return first_; }
  [[nodiscard]] constexpr const std::int32_t* begin() const { return first_; }
  [[nodiscard]] constexpr const std::int32_t* end() const { return first_ + size_; }
  /// @}
  /// \p corner lies in [0, size()).
  [[nodiscard]] constexpr std::int32_t operator[](std::size_t corner) const {
    return first_[corner];
  }
  /// Which face of the mesh it is, and the position of its first vertex in the index array. @{
  [[nodiscard]] constexpr std::size_t index() const { return index_; }
  [[nodiscard]] constexpr std::size_t firstVertex() const { return firstVertex_; }
  /// @}

  /// True for three vertices or more which all name one of \p pointCount points. Faces that are not
  /// usable are passed over everywhere, and the faces after them keep their index and vertices.
  [[nodiscard]] constexpr bool isUsable(std::size_t pointCount) const {
    if (size_ < 3) return false;
    // A negative index becomes larger than any number of points.
    for (std::size_t k = 0; k < size_; ++k)
      if (static_cast<std::size_t>(first_[k]) >= pointCount) return false;
    return true;
  }

 private:
  const std::int32_t* first_ = nullptr;
  std::size_t size_ = 0, index_ = 0, firstVertex_ = 0;
};

/// Every face in order, one for each count: `for (const ovo::Face face : Faces(counts, indices))`.
///
/// A face with a count of zero or less is empty. So is one that reaches past the end of the
/// indices, and every one after it: what they would name cannot be told. Whether indices name
/// points is for Face::isUsable.
///
/// A view: good as long as both arrays are. Nothing throws; one walk is linear in the faces.
class Faces {
 public:
  /// Goes from face to face.
  class iterator {
   public:
    // A face is made on the fly, hence no forward iterator; passes may be repeated all the same.
    /// The names that the standard's algorithms ask for. @{
    using iterator_category = std::input_iterator_tag;
    using value_type = Face;
    using difference_type = std::ptrdiff_t;
    using pointer = const Face*;
    using reference = Face;
    /// @}

    constexpr iterator() = default;
    /// The face that the iterator stands at, made here; the iterator is not at the end.
    [[nodiscard]] constexpr Face operator*() const {
      const std::int32_t count = *count_;
      if (count <= 0 || static_cast<std::size_t>(count) > left_)
        return Face(index_, firstVertex_, nullptr, 0);
      return Face(index_, firstVertex_, vertices_ + firstVertex_, static_cast<std::size_t>(count));
    }
    /// Goes on to the next face; the iterator is not at the end. @{
    constexpr iterator& operator++() {
      // A face that is cut off takes all that is left, so that no later one finds any.
      if (*count_ > 0) {
        const std::size_t taken = std::min(static_cast<std::size_t>(*count_), left_);
        firstVertex_ += taken;
        left_ -= taken;
      }
      ++count_;
      ++index_;
      return *this;
    }
    constexpr iterator operator++(int) {
      const iterator before = *this;
      ++*this;
      return before;
    }
    /// @}
    /// Equal at the same face of one walk. @{
    friend constexpr bool operator==(const iterator& a, const iterator& b) {
      return a.count_ == b.count_;
    }
    friend constexpr bool operator!=(const iterator& a, const iterator& b) { return !(a == b); }
    /// @}

   private:
    friend class Faces;
    const std::int32_t* count_ = nullptr;
    const std::int32_t* vertices_ = nullptr;
    std::size_t left_ = 0, index_ = 0, firstVertex_ = 0;
  };

  constexpr Faces() = default;
  /// A view of both arrays, which outlive it.
  constexpr Faces(tarn::Span<const std::int32_t> counts, tarn::Span<const std::int32_t> indices)
      : counts_(counts), indices_(indices) {}

  /// As many as there are counts.
  [[nodiscard]] constexpr std::size_t size() const { return counts_.size(); }
  /// True when there are no counts.
  [[nodiscard]] constexpr bool empty() const { return counts_.empty(); }
  /// The first face, and behind the last. @{
  [[nodiscard]] constexpr iterator begin() const {
    iterator at;
    at.count_ = counts_.data();
    at.vertices_ = indices_.data();
    at.left_ = indices_.size();
    return at;
  }
  [[nodiscard]] constexpr iterator end() const {
    iterator at;
    at.count_ = counts_.end();
    return at;
  }
  /// @}
  /// The face of that index, in [0, size()): a scan over the counts before it; loops iterate
  /// instead.
  [[nodiscard]] constexpr Face operator[](std::size_t face) const {
    iterator at = begin();
    for (std::size_t i = 0; i < face; ++i) ++at;
    return *at;
  }

 private:
  tarn::Span<const std::int32_t> counts_, indices_;
};

}  // namespace ovo
