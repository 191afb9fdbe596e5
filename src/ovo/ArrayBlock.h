/// \file
/// The storage of an Array: one block of memory that knows its owners.
///
/// For ovo/Array.h alone. A block is told by the address of its elements, null for none: before
/// them stands a header, so that an Array needs one allocation and one pointer.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace ovo::detail {

template <class T>
struct ArrayBlock {
  struct Header {
    explicit Header(std::size_t room) : capacity(room) {}
    std::atomic<std::size_t> owners{1};
    std::size_t capacity;
  };
  static constexpr std::size_t kAlign = std::max(alignof(T), alignof(Header));
  static constexpr std::size_t kHeaderBytes = (sizeof(Header) + kAlign - 1) / kAlign * kAlign;

  static constexpr std::size_t maxSize() noexcept {
    constexpr auto most = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
    return (most - kHeaderBytes) / sizeof(T);
  }

  static Header* header(const T* data) noexcept {
    return reinterpret_cast<Header*>(
        reinterpret_cast<std::byte*>(const_cast<std::remove_const_t<T>*>(data)) - kHeaderBytes);
  }
  static std::size_t capacity(const T* data) noexcept { return data ? header(data)->capacity : 0; }

  // Acquire pairs with the release in release(): what another owner read before letting go stays
  // before our writes.
  static bool isUnique(const T* data) noexcept {
    return data && header(data)->owners.load(std::memory_order_acquire) == 1;
  }
  static void retain(const T* data) noexcept {
    if (data) header(data)->owners.fetch_add(1, std::memory_order_relaxed);
  }
  // The last owner ends `size` elements and the block.
  static void release(T* data, std::size_t size) noexcept {
    if (!data) return;
    Header* const block = header(data);
    if (block->owners.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    std::destroy_n(data, size);
    block->~Header();
    ::operator delete(static_cast<void*>(block), std::align_val_t(kAlign));
  }
  // Room for elements, none of them made, with one owner.
  static T* allocate(std::size_t room) {
    if (room > maxSize()) throw std::length_error("ovo::Array: too many elements");
    void* const block = ::operator new(kHeaderBytes + room * sizeof(T), std::align_val_t(kAlign));
    ::new (block) Header(room);
    return reinterpret_cast<T*>(static_cast<std::byte*>(block) + kHeaderBytes);
  }

  // Makes elements in the room `to` by moving those that nobody else owns, else by copying.
  static void fill(T* from, std::size_t size, T* to) {
    if constexpr (std::is_nothrow_move_constructible_v<T>) {
      if (isUnique(from)) {
        std::uninitialized_move_n(from, size, to);
        return;
      }
    }
    std::uninitialized_copy_n(static_cast<const T*>(from), size, to);
  }
  static std::size_t grownCapacity(std::size_t size, std::size_t needed) noexcept {
    const std::size_t doubled = size > maxSize() / 2 ? maxSize() : size * 2;
    return std::max({needed, doubled, std::size_t{4}});
  }
  static bool isInside(const T& value, const T* data, std::size_t size) noexcept {
    const std::less<const T*> before;
    return !before(&value, data) && before(&value, data + size);
  }
};

}  // namespace ovo::detail
