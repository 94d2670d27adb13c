#ifndef ORVACAM_SRC_SUPPORT_ALIGNED_MEMORY_H
#define ORVACAM_SRC_SUPPORT_ALIGNED_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace orvacam {

/// Memory for std::free that starts with a cache line; null without. Large blocks of malloc start 16 bytes
/// behind a page, and there the system takes up to twice as long to copy a file in or out.
inline unsigned char* allocateAligned(std::size_t size) {
  constexpr std::size_t cacheLine = 64;
  if (size > std::numeric_limits<std::size_t>::max() - cacheLine) return nullptr;
  const std::size_t lines = (size + cacheLine - 1) / cacheLine;
  return static_cast<unsigned char*>(std::aligned_alloc(cacheLine, (lines > 0 ? lines : 1) * cacheLine));
}

/// Such memory for containers of the standard library: vectors of pixels are read there without touching two
/// lines at a time. Throws std::bad_alloc like any allocator. Without state: any number of threads may use
/// it.
template <typename Value>
struct LineAllocator {
  using value_type = Value;

  LineAllocator() = default;
  template <typename Other>
  LineAllocator(const LineAllocator<Other>& /*other*/) {}

  Value* allocate(std::size_t count) {
    std::size_t bytes = 0;
    void* const memory =
        __builtin_mul_overflow(count, sizeof(Value), &bytes) ? nullptr : allocateAligned(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<Value*>(memory);
  }
  void deallocate(Value* memory, std::size_t /*count*/) { std::free(memory); }

  bool operator==(const LineAllocator& /*other*/) const { return true; }
  bool operator!=(const LineAllocator& /*other*/) const { return false; }
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_ALIGNED_MEMORY_H
