// The injector finds what it is there to find.

#include <gtest/gtest-spi.h>

#include <cstdio>
#include <cstdlib>

#include "robustness/FaultTesting.h"
#include "support/Contains.h"

namespace {

using namespace fault_testing;
using faults::Call;
using faults::Extent;

/// Compilers leave out allocations that nobody looks at.
template <typename Value>
Value* seen(Value* memory) {
  static Value* volatile last;
  last = memory;
  return last;
}

/// Three allocations of different kinds; how many of them succeeded.
int allocateThree() {
  void* const first = seen(std::malloc(1));
  void* const second = seen(std::calloc(1, 1));
  char* const third = seen(new (std::nothrow) char[1]);
  const int succeeded = (first != nullptr) + (second != nullptr) + (third != nullptr);
  std::free(first);
  std::free(second);
  delete[] third;
  return succeeded;
}

TEST(FaultInjector, FailsTheCallThatWasChosenAndNoOther) {
  constexpr Call kinds[] = {Call::Malloc, Call::Calloc, Call::New, Call::None};
  for (int number = 0; number <= 3; ++number) {
    const faults::Failing failing(number, Extent::Once);
    EXPECT_EQ(allocateThree(), number < 3 ? 2 : 3);
    EXPECT_EQ(failing.first(), kinds[number]);
  }
  EXPECT_EQ(allocateThree(), 3);
}

TEST(FaultInjector, FailsThatCallAndAllThatFollow) {
  for (int number = 0; number <= 3; ++number) {
    const faults::Failing failing(number, Extent::FromThenOn);
    EXPECT_EQ(allocateThree(), number);
  }
}

TEST(FaultInjector, CountsAndFailsCallsOfOneKindAlone) {
  for (const Call kind : {Call::Malloc, Call::Calloc, Call::New}) {
    const faults::Failing failing(0, Extent::FromThenOn, kind);
    EXPECT_EQ(allocateThree(), 2);
    EXPECT_EQ(failing.first(), kind);
  }
  const faults::Failing failing(1, Extent::Once, Call::Calloc);
  EXPECT_EQ(allocateThree(), 3);
  EXPECT_EQ(allocateThree(), 2);
}

TEST(FaultInjector, ThrowsWhereAnAllocationIsNotAskedForAStatus) {
  const faults::Failing failing(0, Extent::Once);
  EXPECT_THROW(delete seen(new int(1)), std::bad_alloc);
}

TEST(FaultInjector, CountsTheMemoryThatIsHeld) {
  const faults::MemoryWatch watch;
  void* const kept = seen(std::malloc(100));
  char* const given = seen(new char[50]);
  EXPECT_EQ(watch.blocks(), 2u);
  EXPECT_EQ(watch.bytes(), 150u);
  delete[] given;
  EXPECT_EQ(watch.bytes(), 100u);
  EXPECT_EQ(watch.peak(), 150u);
  std::free(kept);
  EXPECT_EQ(watch.blocks(), 0u);
}

// ---- What the driver says of operations that are not as they should be

/// An allocation that is handled in a way of its own.
class Handled : public Operation {
 public:
  enum Way { Well, Silently, ByThrowing, ByLosingMemory, ByKeepingAFile, ByStayingBroken };
  explicit Handled(Way way) : m_way(way) {}
  int run() override {
    m_done = false;
    if (m_broken) return -1;
    void* const memory = seen(std::malloc(8));
    if (memory == nullptr) return failed();
    m_done = true;
    std::free(memory);
    return 0;
  }
  Bytes result() override { return Bytes(m_done ? 1 : 0); }

 private:
  int failed() {
    // What is lost here is found again at the end, for the sanitizers.
    static std::unique_ptr<int> lost;
    static std::unique_ptr<std::FILE, int (*)(std::FILE*)> kept(nullptr, std::fclose);
    switch (m_way) {
      case Silently:
        return 0;
      case ByThrowing:
        throw std::bad_alloc();
      case ByLosingMemory:
        lost = std::make_unique<int>(1);
        return -1;
      case ByKeepingAFile:
        kept.reset(std::fopen("/dev/null", "rb"));
        return -1;
      case ByStayingBroken:
        m_broken = true;
        return -1;
      default:
        return -1;
    }
  }

  Way m_way;
  bool m_done = false;
  bool m_broken = false;
};

std::string complaints(Handled::Way way) {
  ::testing::TestPartResultArray results;
  {
    const ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
    failEveryCall({"handled", [way] { return std::make_unique<Handled>(way); }}, Extent::Once);
  }
  std::string messages;
  for (int i = 0; i < results.size(); ++i)
    messages += results.GetTestPartResult(i).message();
  return messages;
}

TEST(FailEveryCall, IsContentWithAStatusThatTells) {
  EXPECT_EQ(complaints(Handled::Well), "");
}

TEST(FailEveryCall, FindsWhatIsNotAsItShouldBe) {
  for (const auto& [way, complaint] : {std::pair(Handled::Silently, "less is delivered"),
                                       std::pair(Handled::ByThrowing, "an exception came out"),
                                       std::pair(Handled::ByLosingMemory, "blocks of memory are lost"),
                                       std::pair(Handled::ByKeepingAFile, "files stay open"),
                                       std::pair(Handled::ByStayingBroken, "does not work again")})
    EXPECT_TRUE(contains(complaints(way), complaint));
}

}  // namespace
