/// \file
/// A growable array that is shared when copied and becomes its holder's own on the first write.
///
/// Threads: a const Array may be read, and copied, from several threads at once, and copies of one
/// Array may be used, written too, each by its own thread. One Array that is written needs the
/// caller's lock.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "ovo/ArrayBlock.h"
#include "ovo/Fwd.h"
#include "tarn/Span.h"

namespace ovo {

/// Copying costs one atomic increment, whatever the size. Every call on a non-const Array that
/// hands out writable elements, or changes them, first makes the storage this Array's own when it
/// is shared: it copies all elements then, and looks whether it must each time. So read an Array
/// that is not const through view(), which does neither.
///
/// \code
///   ovo::Array<int> a = {1, 2, 3};
///   ovo::Array<int> b = a;  // shares the elements of a
///   int sum = 0;
///   for (const int value : b.view()) sum += value;
///   assert(sum == 6 && b.view()[2] == 3 && b.isIdentical(a));
///   b[0] = 7;  // b gets elements of its own first
///   assert(a.view()[0] == 1 && !b.isIdentical(a));
/// \endcode
///
/// Pointers, references and iterators stay valid until the next non-const call on the same Array.
/// A size beyond maxSize() is a std::length_error, lack of memory std::bad_alloc; after either the
/// Array is as it was.
template <class T>
class Array {
 public:
  /// The names that the standard's algorithms ask for. Iterators are plain pointers. @{
  using value_type = T;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = T&;
  using const_reference = const T&;
  using pointer = T*;
  using const_pointer = const T*;
  using iterator = T*;
  using const_iterator = const T*;
  using reverse_iterator = std::reverse_iterator<iterator>;
  using const_reverse_iterator = std::reverse_iterator<const_iterator>;  /// @}

  Array() noexcept = default;
  /// \p count elements, each made by T().
  explicit Array(size_type count) { resize(count); }
  Array(size_type count, const T& value) { assign(count, value); }  ///< copies of one value
  /// The given elements, copied in their order. @{
  Array(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
  Array(const std::vector<T>& values) { assign(values.begin(), values.end()); }
  explicit Array(tarn::Span<const T> values) { assign(values.begin(), values.end()); }
  template <class It, class = typename std::iterator_traits<It>::iterator_category>
  Array(It first, It last) {
    assign(first, last);
  }  /// @}
  /// Shares the storage of the other, or takes it: what was moved from is empty then. @{
  Array(const Array& other) noexcept : data_(other.data_), size_(other.size_) {
    Block::retain(data_);
  }
  Array(Array&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  ~Array() { Block::release(data_, size_); }
  Array& operator=(const Array& other) noexcept {
    Array(other).swap(*this);
    return *this;
  }
  Array& operator=(Array&& other) noexcept {
    Array(std::move(other)).swap(*this);
    return *this;
  }  /// @}
  Array& operator=(std::initializer_list<T> values) {
    assign(values);
    return *this;
  }  ///< as assign()

  [[nodiscard]] size_type size() const noexcept { return size_; }   ///< elements, not bytes
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }  ///< capacity() may be more
  /// Elements that the storage holds, which other copies may share; 0 without storage.
  [[nodiscard]] size_type capacity() const noexcept { return Block::capacity(data_); }
  /// The most elements that an Array can address. @{
  [[nodiscard]] static constexpr size_type maxSize() noexcept { return Block::maxSize(); }
  [[nodiscard]] static constexpr size_type max_size() noexcept { return maxSize(); }  /// @}

  /// All elements, to be read: valid until the next non-const call on this Array.
  [[nodiscard]] tarn::Span<const T> view() const noexcept { return {data_, size_}; }
  /// Null only when nothing was ever stored. @{
  [[nodiscard]] const T* data() const noexcept { return data_; }
  [[nodiscard]] const T* cdata() const noexcept { return data_; }  /// @}
  /// From the first element to behind the last, or back. Null where data() is. @{
  [[nodiscard]] const_iterator begin() const noexcept { return data_; }
  [[nodiscard]] const_iterator end() const noexcept { return data_ + size_; }
  [[nodiscard]] const_iterator cbegin() const noexcept { return data_; }
  [[nodiscard]] const_iterator cend() const noexcept { return data_ + size_; }
  [[nodiscard]] const_reverse_iterator rbegin() const noexcept {
    return const_reverse_iterator(end());
  }
  [[nodiscard]] const_reverse_iterator rend() const noexcept {
    return const_reverse_iterator(begin());
  }  /// @}
  /// \p index is not checked: it lies in [0, size()).
  [[nodiscard]] const T& operator[](size_type index) const noexcept { return data_[index]; }
  [[nodiscard]] const T& front() const noexcept { return data_[0]; }         ///< size() is above 0
  [[nodiscard]] const T& back() const noexcept { return data_[size_ - 1]; }  ///< size() is above 0
  /// True when both use the same storage, so that equality needs no look at the elements.
  [[nodiscard]] bool isIdentical(const Array& other) const noexcept {
    return data_ == other.data_ && size_ == other.size_;
  }
  /// Equal are Arrays of one size whose elements are, by their own ==. A NaN equals nothing. @{
  friend bool operator==(const Array& a, const Array& b) {
    // Identical storage proves equality only where every element equals itself, which NaN does not.
    return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
  }
  friend bool operator!=(const Array& a, const Array& b) { return !(a == b); }  /// @}
  /// `[a, b, c]`, with the elements' own printing.
  friend std::ostream& operator<<(std::ostream& out, const Array& array) {
    out << '[';
    for (size_type i = 0; i < array.size_; ++i) {
      if (i != 0) out << ", ";
      out << array.data_[i];
    }
    return out << ']';
  }

  /// As the calls of these names on a const Array, but what is shared is copied first. @{
  [[nodiscard]] T* data() {
    detach();
    return data_;
  }
  [[nodiscard]] iterator begin() {
    detach();
    return data_;
  }
  [[nodiscard]] iterator end() {
    detach();
    return data_ + size_;
  }
  [[nodiscard]] reverse_iterator rbegin() { return reverse_iterator(end()); }
  [[nodiscard]] reverse_iterator rend() { return reverse_iterator(begin()); }
  [[nodiscard]] T& operator[](size_type index) {
    detach();
    return data_[index];
  }
  [[nodiscard]] T& front() { return (*this)[0]; }
  [[nodiscard]] T& back() { return (*this)[size_ - 1]; }  /// @}
  /// Exchanges the storage of both. No element is copied or moved. @{
  void swap(Array& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
  }
  friend void swap(Array& a, Array& b) noexcept { a.swap(b); }  /// @}

  /// Removes all elements. Storage of its own is kept for reuse, shared storage is let go.
  void clear() noexcept {
    if (!data_) return;
    if (isUnique()) {
      std::destroy_n(data_, size_);
      size_ = 0;
    } else {
      Array().swap(*this);
    }
  }

  /// Room for \p count elements without another allocation; never shrinks.
  void reserve(size_type count) {
    if (count > capacity() || (count > size_ && !isUnique())) reallocate(std::max(count, size_));
  }

  /// New elements are made by T(), or copied from \p value; elements past \p count are destroyed.
  /// @{
  void resize(size_type count) {
    resizeWith(count,
               [](T* first, size_type n) { std::uninitialized_value_construct_n(first, n); });
  }
  void resize(size_type count, const T& value) {
    if (count > size_ && Block::isInside(value, data_, size_)) {
      const T copy(value);
      resize(count, copy);
      return;
    }
    resizeWith(count,
               [&value](T* first, size_type n) { std::uninitialized_fill_n(first, n, value); });
  }  /// @}

  /// Appends an element, which may be made from one of this Array's own. @{
  void push_back(const T& value) { emplace_back(value); }
  void push_back(T&& value) { emplace_back(std::move(value)); }
  template <class... Args>
  T& emplace_back(Args&&... args) {
    if (size_ < capacity() && isUnique()) {
      T* const slot = ::new (static_cast<void*>(data_ + size_)) T(std::forward<Args>(args)...);
      ++size_;
      return *slot;
    }
    // The new element is made before the old storage goes: an argument may be one of the old
    // elements.
    if (size_ == maxSize()) throw std::length_error("ovo::Array: too many elements");
    Array grown;
    grown.allocate(Block::grownCapacity(size_, size_ + 1));
    T* const slot = ::new (static_cast<void*>(grown.data_ + size_)) T(std::forward<Args>(args)...);
    try {
      fillFrom(grown);
    } catch (...) {
      std::destroy_at(slot);
      throw;
    }
    grown.size_ = size_ + 1;
    swap(grown);
    return data_[size_ - 1];
  }  /// @}
  void pop_back() {
    detach();
    std::destroy_at(data_ + --size_);
  }  ///< size() is above 0
  void assign(size_type count, const T& value) {
    const T copy(value);
    clear();
    resize(count, copy);
  }  ///< \p value may be an element
  /// Replaces all elements by copies of the given ones, in their order. @{
  void assign(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
  void assign(const std::vector<T>& values) { assign(values.begin(), values.end()); }  /// @}
  /// [first, last) may lie inside this Array.
  template <class It, class = typename std::iterator_traits<It>::iterator_category>
  void assign(It first, It last) {
    using Category = typename std::iterator_traits<It>::iterator_category;
    Array fresh;
    if constexpr (std::is_base_of_v<std::forward_iterator_tag, Category>) {
      const auto count = static_cast<size_type>(std::distance(first, last));
      if (count != 0) {
        fresh.allocate(count);
        std::uninitialized_copy(first, last, fresh.data_);
        fresh.size_ = count;
      }
    } else {
      for (; first != last; ++first) fresh.emplace_back(*first);
    }
    swap(fresh);
  }

 private:
  using Block = detail::ArrayBlock<T>;

  [[nodiscard]] bool isUnique() const noexcept { return Block::isUnique(data_); }
  // Only for an Array without storage.
  void allocate(size_type room) { data_ = Block::allocate(room); }
  void fillFrom(Array& to) { Block::fill(data_, size_, to.data_); }
  void reallocate(size_type room) {
    Array fresh;
    fresh.allocate(room);
    fillFrom(fresh);
    fresh.size_ = size_;
    swap(fresh);
  }
  void detach() {
    if (data_ && !isUnique()) reallocate(size_);
  }
  template <class Make>
  void resizeWith(size_type count, Make make) {
    if (count == size_) return;
    if (count == 0) return clear();
    if (count < size_) {
      // Shared storage is copied only as far as it is kept.
      if (!isUnique()) {
        assign(cbegin(), cbegin() + count);
      } else {
        std::destroy_n(data_ + count, size_ - count);
        size_ = count;
      }
      return;
    }
    // resize() in small steps must not copy everything each time, so growth is geometric here too.
    if (count > maxSize()) throw std::length_error("ovo::Array: too many elements");
    if (!isUnique() || count > capacity())
      reallocate(size_ == 0 ? count : Block::grownCapacity(size_, count));
    make(data_ + size_, count - size_);
    size_ = count;
  }

  T* data_ = nullptr;
  size_type size_ = 0;
};

}  // namespace ovo
