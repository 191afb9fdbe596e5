/// \file
/// Storage for large read-only tables that are read in no order.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace vela::tracer {

/// Asks for pages of 2 MiB for large blocks: a walk through a tree of 60 MB otherwise misses the
/// table of pages at every step. Where the system has none, these are ordinary blocks.
template <class T>
struct LargeAllocator {
  using value_type = T;
  static constexpr std::size_t kPage = std::size_t{1} << 21;
  static constexpr std::size_t kLarge = 4 * kPage;

  LargeAllocator() = default;
  template <class U>
  LargeAllocator(const LargeAllocator<U>&) noexcept {}

  static std::align_val_t alignment(std::size_t count) {
    return std::align_val_t(count * sizeof(T) >= kLarge ? kPage
                            : alignof(T) > 64           ? alignof(T)
                                                        : 64);
  }
  T* allocate(std::size_t count) {
    if (count > static_cast<std::size_t>(-1) / 2 / sizeof(T)) throw std::bad_array_new_length();
    void* const block = ::operator new(count * sizeof(T), alignment(count));
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // Advice only: a refusal changes nothing.
    if (count * sizeof(T) >= kLarge) (void)madvise(block, count * sizeof(T), MADV_HUGEPAGE);
#endif
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t count) noexcept {
    ::operator delete(static_cast<void*>(block), alignment(count));
  }

  friend bool operator==(const LargeAllocator&, const LargeAllocator&) { return true; }
  friend bool operator!=(const LargeAllocator&, const LargeAllocator&) { return false; }
};

template <class T>
using LargeVector = std::vector<T, LargeAllocator<T>>;

}  // namespace vela::tracer
