// What a header does when memory runs out. A program of its own, as it replaces operator new.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "metadata/HeaderBytes.h"

namespace {
long allocationsUntilFailure = -1;  // none fails

void* allocate(std::size_t size) {
  if (allocationsUntilFailure == 0) throw std::bad_alloc();
  if (allocationsUntilFailure > 0) --allocationsUntilFailure;
  void* const memory = std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

/// Lets the first, the second, ... allocation of an action fail until it succeeds; how often it failed.
template <typename Action>
int failures(Action action) {
  for (int count = 0; count < 1000; ++count) {
    allocationsUntilFailure = count;
    const int status = action();
    allocationsUntilFailure = -1;
    if (status == 0) return count;
    EXPECT_EQ(status, -1);
  }
  return -1;
}

TEST(OutOfMemory, FailsAParseOfAnyHeader) {
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    HeaderBytes source(version);
    source.text(8, "a model text that no small buffer holds");
    if (version == 4) source.put(244, 4, 100).resize(484);
    std::vector<unsigned char> bytes = source.bytes();
    CFrameMetaData header;
    EXPECT_GT(failures([&] { return header.Parse(bytes.data(), static_cast<unsigned>(bytes.size())); }), 3)
        << version;
    EXPECT_TRUE(header.IsValid());
  }
}

TEST(OutOfMemory, FailsAParseOfAFile) {
  std::FILE* const file = std::tmpfile();
  const HeaderBytes bytes(3);
  std::fwrite(bytes.bytes().data(), 1, bytes.size(), file);
  CFrameMetaData header;
  EXPECT_GT(failures([&] { return header.Parse(file); }), 3);
  std::fclose(file);
}

TEST(OutOfMemory, LeavesAValueAsItWas) {
  CMetaValues value;
  value.SetValueStr("before");
  EXPECT_EQ(failures([&] {
              try {
                value.SetValueStr("after");
                return 0;
              } catch (const std::bad_alloc&) {
                EXPECT_TRUE(value.IsEqual("before", 6));
                return -1;
              }
            }),
            1);
  EXPECT_TRUE(value.IsEqual("after", 5));
}

}  // namespace
