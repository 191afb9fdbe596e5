/// \file
/// A view of consecutive elements that belong to someone else.
///
/// One class at every language level, so that a function that takes it has one name in the library
/// whatever its caller is compiled as. From C++20 on it converts to and from std::span.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#if __cplusplus >= 202002L
#include <span>
#endif

#include "tarn/Fwd.h"

namespace tarn {

namespace detail {
// True where a C has size() and a data() that points at elements of the very type T, or adds const
// to it: pointers to elements of a derived class would convert too, but step by another size.
template <class T, class C, class = void>
struct CanView : std::false_type {};
template <class T, class C>
struct CanView<
    T, C, std::void_t<decltype(std::declval<C&>().size()), decltype(*std::declval<C&>().data())>>
    : std::is_convertible<std::remove_reference_t<decltype(*std::declval<C&>().data())> (*)[],
                          T (*)[]> {};
}  // namespace detail

/// A pointer and a count: pass it by value. `Span<const T>` reads, `Span<T>` writes as well.
///
/// \code
///   const std::vector<int> counts = {3, 4, 4};
///   const tarn::Span<const int> view = counts;  // no copy; valid as long as `counts` is unchanged
///   assert(view.size() == 3 && view.back() == 4);
///   int sum = 0;
///   for (const int count : view.first(2)) sum += count;
///   assert(sum == 7);
/// \endcode
///
/// Nothing is checked and nothing throws. An empty span may have a null pointer.
template <class T>
class Span {
  template <class C>
  static constexpr bool kCanView = detail::CanView<T, C>::value;

 public:
  /// The names that the standard's algorithms ask for. Iterators are plain pointers. @{
  using element_type = T;
  using value_type = std::remove_cv_t<T>;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using pointer = T*;
  using reference = T&;
  using iterator = T*;
  /// @}

  constexpr Span() noexcept = default;
  /// \p size elements from \p data on, which may be null when there are none.
  constexpr Span(T* data, std::size_t size) noexcept : data_(data), size_(size) {}
  /// All elements of an array.
  template <std::size_t N>
  constexpr Span(T (&array)[N]) noexcept : data_(array), size_(N) {}
  /// From std::vector, std::array, std::span, ovo::Array and whatever else has data() and size().
  /// A temporary serves where it lives on, as an argument does until the call returns. An
  /// ovo::Array that is only read is never made to copy what it shares. @{
  template <class C, std::enable_if_t<kCanView<const C>, int> = 0>
  constexpr Span(const C& container) : data_(container.data()), size_(container.size()) {}
  template <class C, std::enable_if_t<kCanView<C> && !kCanView<const C>, int> = 0>
  constexpr Span(C& container) : data_(container.data()), size_(container.size()) {}
  /// @}

  /// The first element; may be null in an empty span.
  [[nodiscard]] constexpr T* data() const noexcept { return data_; }
  /// How many elements there are, not bytes.
  [[nodiscard]] constexpr std::size_t size() const noexcept { return size_; }
  /// True without elements, whatever data() is.
  [[nodiscard]] constexpr bool empty() const noexcept { return size_ == 0; }
  /// The first element and one past the last, for loops and algorithms. @{
  [[nodiscard]] constexpr T* begin() const noexcept { return data_; }
  [[nodiscard]] constexpr T* end() const noexcept { return data_ + size_; }
  /// @}

  /// \p index lies in [0, size()). Of any integer type: mesh arrays are indexed by the signed
  /// indices that they hold.
  template <class I, class = std::enable_if_t<std::is_integral_v<I>>>
  [[nodiscard]] constexpr T& operator[](I index) const noexcept {
    return data_[index];
  }
  /// The first and the last element; only of a span that is not empty. @{
  [[nodiscard]] constexpr T& front() const noexcept { return data_[0]; }
  [[nodiscard]] constexpr T& back() const noexcept { return data_[size_ - 1]; }
  /// @}

  /// The first, or the last, \p count elements; \p count is at most size(). @{
  [[nodiscard]] constexpr Span first(std::size_t count) const noexcept { return {data_, count}; }
  [[nodiscard]] constexpr Span last(std::size_t count) const noexcept {
    return {data_ + (size_ - count), count};
  }
  /// @}
  /// \p count elements from \p offset on, all within the span; without a count all that follow. @{
  [[nodiscard]] constexpr Span subspan(std::size_t offset) const noexcept {
    return {data_ + offset, size_ - offset};
  }
  [[nodiscard]] constexpr Span subspan(std::size_t offset, std::size_t count) const noexcept {
    return {data_ + offset, count};
  }
  /// @}

 private:
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

static_assert(std::is_trivially_copyable_v<Span<int>> &&
              sizeof(Span<int>) == sizeof(void*) + sizeof(std::size_t));

}  // namespace tarn

#if defined(__cpp_lib_span)
// The elements outlive the span, so that std::span may be made from a temporary one.
template <class T>
inline constexpr bool std::ranges::enable_borrowed_range<tarn::Span<T>> = true;
template <class T>
inline constexpr bool std::ranges::enable_view<tarn::Span<T>> = true;
#endif
