#ifndef ORVACAM_SRC_SUPPORT_LINE_ALLOCATOR_H
#define ORVACAM_SRC_SUPPORT_LINE_ALLOCATOR_H

#include <cstddef>
#include <cstdlib>
#include <new>

namespace orvacam {

/// Memory that begins on a cache line, for containers of the standard library: vectors of pixels are read
/// there without touching two lines at a time. Throws std::bad_alloc like any allocator.
/// Without state: any number of threads may use it.
template <typename Value>
struct LineAllocator {
  using value_type = Value;

  LineAllocator() = default;
  template <typename Other>
  LineAllocator(const LineAllocator<Other>& /*other*/) {}

  Value* allocate(std::size_t count) {
    constexpr std::size_t line = 64;
    if (count > (static_cast<std::size_t>(-1) - line) / sizeof(Value)) throw std::bad_alloc();
    const std::size_t lines = (count * sizeof(Value) + line - 1) / line;
    void* const memory = std::aligned_alloc(line, lines * line);
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<Value*>(memory);
  }
  void deallocate(Value* memory, std::size_t /*count*/) { std::free(memory); }

  bool operator==(const LineAllocator& /*other*/) const { return true; }
  bool operator!=(const LineAllocator& /*other*/) const { return false; }
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_LINE_ALLOCATOR_H
