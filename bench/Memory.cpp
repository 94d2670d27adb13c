#include "Memory.h"

#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

namespace {
std::size_t allocated = 0;
}

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size) {
  allocated += size;
  return __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  allocated += count * size;
  return __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  allocated += size;
  return __real_realloc(block, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) {
  if (void* const block = std::malloc(size > 0 ? size : 1)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size > 0 ? size : 1);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace orvacam::bench {

namespace {

double statusBytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word)
    if (word == key + ":") {
      double kibibytes = 0;
      status >> kibibytes;
      return kibibytes * 1024;
    }
  return -1;
}

/// The peak counts from now on.
bool forgetPeak() {
  std::ofstream file("/proc/self/clear_refs");
  file << "5" << std::flush;
  return file.good();
}

}  // namespace

std::size_t bytesAllocatedBy(const std::function<void()>& work) {
  allocated = 0;
  work();
  return allocated;
}

double residentGrowthOf(const std::function<void()>& work) {
  malloc_trim(0);  // what others have given back does not help
  if (!forgetPeak()) return -1;
  const double before = statusBytes("VmRSS");
  work();
  return statusBytes("VmHWM") - before;
}

}  // namespace orvacam::bench
