// What objects are after memory ran out in the midst of something; that they say so, lose nothing and work
// again is what the other tests here find.

#include <orvacam.h>

#include <cstdarg>

#include "TestFolder.h"
#include "merge/HandedOut.h"
#include "simulator/Header.h"
#include "support/FaultInjector.h"

namespace {

using faults::Call;

/// Lets the first, the second, ... call of one kind (None: of any) that an action makes and all later ones
/// fail until its status is 0; how often it failed, with -1 each time. What must hold after each failure is
/// checked by the second action.
template <typename Action, typename Check>
int failures(Call only, Action action, Check check) {
  for (int count = 0; count < 1000; ++count) {
    int status = 0;
    {
      const faults::Failing failing(count, faults::Extent::FromThenOn, only);
      status = action();
    }
    if (status == 0) return count;
    EXPECT_EQ(status, -1);
    check();
  }
  return -1;
}

/// -1 for the one exception that is documented.
template <typename Action>
int statusOf(Action action) {
  try {
    action();
    return 0;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

TEST(ValueWithoutMemory, IsAsItWas) {
  CMetaValues value;
  value.SetValueStr("before");
  EXPECT_EQ(failures(
                Call::New, [&] { return statusOf([&] { value.SetValueStr("after"); }); },
                [&] { EXPECT_TRUE(value.IsEqual("before", 6)); }),
            1);
  EXPECT_TRUE(value.IsEqual("after", 5));
}

// ---- The merge, which takes memory by operator new and by aligned_alloc

class MergeWithoutMemory : public ::testing::Test {
 protected:
  void expectNoFrames() {
    EXPECT_EQ(planes.uiWidth + planes.uiHeight, 0u);
    EXPECT_TRUE(planes.pAdditiveLow == nullptr && planes.pAdditiveHigh == nullptr);
    EXPECT_TRUE(planes.pMultiplicativeLow == nullptr && planes.pMultiplicativeHigh == nullptr);
    EXPECT_EQ(corrected(), (std::vector<int>{10, 10}));
  }
  /// Low-gain pixels of 10, corrected.
  std::vector<int> corrected() {
    merge.SetMergeEnables({0, 0, 1});
    unsigned short low[] = {10, 10}, high[] = {0, 0}, out[] = {77, 77};
    EXPECT_EQ(merge.MergeFrames(low, high, out, 2), 0);
    return {out, out + 2};
  }

  std::unique_ptr<CHWMergeReferenceFrames> owner = std::make_unique<CHWMergeReferenceFrames>();
  CHWMergeReferenceFrames& merge = *owner;
  HandedOut planes;
};

TEST_F(MergeWithoutMemory, HandsOutNoPlanesAndHasNoFrames) {
  EXPECT_EQ(failures(
                Call::None, [&] { return merge.CreateIdentityFrames(2, 1, 3.0, 1.0, &planes); },
                [&] { expectNoFrames(); }),
            4);
  EXPECT_EQ(corrected(), (std::vector<int>{30, 30}));
}

TEST_F(MergeWithoutMemory, NeedsNoneForFramesOfOneValue) {
  EXPECT_EQ(
      failures(
          Call::None, [&] { return merge.CreateIdentityFrames(60000, 60000, 3.0, 1.0, nullptr); }, [] {}),
      0);
}

TEST_F(MergeWithoutMemory, MakesNoRamps) {
  const auto make = [&] {
    return merge.CreateIdentityFrames(2, 1, 0.0, 0.0, 1.0, 1.0, 3u, 10u, 1.0, 1.0, &planes);
  };
  // Four planes: the terms' owner, the terms, what is handed out.
  EXPECT_EQ(failures(Call::None, make, [&] { expectNoFrames(); }), 12);
  EXPECT_EQ(corrected(), (std::vector<int>{10, 22}));  // (10 + 0) x 1, (10 + 1) x 2
}

TEST_F(MergeWithoutMemory, KeepsTheOldPlaneWhenItCannotCopyTheNewOne) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  const short old[] = {8, 16}, next[] = {80, 160};
  ASSERT_EQ(merge.SetAdditiveLowFromBuffer(old, 2), 0);
  EXPECT_EQ(failures(
                Call::None, [&] { return merge.SetAdditiveLowFromBuffer(next, 2); },
                [&] {
                  EXPECT_EQ(corrected(), (std::vector<int>{11, 12}));
                }),
            2);  // the terms' owner and the terms
  EXPECT_EQ(corrected(), (std::vector<int>{20, 30}));
}

TEST_F(MergeWithoutMemory, ThrowsFromACopyAndStaysUsable) {
  const short additive[] = {8, 16};
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  ASSERT_EQ(merge.SetAdditiveLowFromBuffer(additive, 2), 0);
  CHWMergeReferenceFrames other;
  const unsigned short one[] = {2048};
  ASSERT_EQ(other.CreateIdentityFrames(1, 1, nullptr), 0);
  ASSERT_EQ(other.SetMultiplicativeLowFromBuffer(one, 1), 0);
  const auto use = [&] {
    unsigned short low[] = {10}, high[] = {0}, out[] = {0};
    EXPECT_EQ(merge.MergeFrames(low, high, out, 1), 0);
  };
  EXPECT_GE(failures(
                Call::None, [&] { return statusOf([&] { merge = other; }); }, use),
            0);
  use();
}

// ---- The stacker

void expectUsable(CStacker& stacker) {
  const unsigned short low[] = {3, 5}, high[] = {7, 9};
  unsigned short *lowMean = nullptr, *highMean = nullptr;
  unsigned int count = 0;
  ASSERT_EQ(stacker.StackNextFrame(low, high, 2), 0);
  ASSERT_EQ(stacker.Finish(&lowMean, &highMean, &count), 0);
  EXPECT_EQ(std::vector<int>(lowMean, lowMean + count), (std::vector<int>{3, 5}));
  EXPECT_EQ(std::vector<int>(highMean, highMean + count), (std::vector<int>{7, 9}));
}

TEST(StackerWithoutMemory, IsEmptyAfterAFailedInitializeAndCanBeUsedAgain) {
  const unsigned short pixels[] = {1, 2};
  CStacker stacker;
  const auto check = [&] {
    unsigned int count = 77;
    EXPECT_EQ(stacker.StackNextFrame(pixels, 2), -1);
    EXPECT_EQ(stacker.StackNextFrame(pixels, 0), -1);
    EXPECT_EQ(stacker.Finish(nullptr, nullptr, &count), -1);
    EXPECT_EQ(count, 77u);
    ASSERT_EQ(stacker.Initialize(2), 0);
    expectUsable(stacker);
  };
  ASSERT_EQ(stacker.Initialize(2), 0);
  EXPECT_EQ(failures(
                Call::Calloc, [&] { return stacker.Initialize(2); }, check),
            6)
      << "two sums of two widths and two results";
  expectUsable(stacker);
}

TEST(StackerWithoutMemory, HandsOutNoHeaderUntilThereIsMemory) {
  orvacam::simulator::HeaderFields fields;
  std::vector<unsigned char> base = orvacam::simulator::writeHeader(fields, 3);
  CStacker stacker;
  unsigned char* bytes = nullptr;
  unsigned int length = 77;
  const auto getHeader = [&] {
    return stacker.GetStackedMetaData(base.data(), static_cast<unsigned int>(base.size()), &bytes, &length);
  };
  const auto check = [&] {
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 77u);
  };
  EXPECT_EQ(failures(Call::Calloc, getHeader, check), 1);
  EXPECT_EQ(length, 384u);
  EXPECT_EQ(failures(Call::Calloc, getHeader, [] {}), 0) << "a buffer that is large enough serves again";
  fields.otherBlock.assign(5000, 7);
  base = orvacam::simulator::writeHeader(fields, 4);
  EXPECT_EQ(failures(Call::Calloc, getHeader, [] {}), 1);
  EXPECT_EQ(length, 384u + 5000 + 5000);  // the header's own length, which counts its block, and the block
}

// ---- The log

/// Standard error without the number and text of the error, which are those of whatever failed last.
template <typename Action>
std::string shownWithoutMemory(Action action) {
  ::testing::internal::CaptureStderr();
  {
    const faults::Failing failing(0, faults::Extent::FromThenOn, Call::New);
    action();
  }
  const std::string shown = ::testing::internal::GetCapturedStderr();
  return shown.substr(0, shown.find("error"));
}

void list(CLog& log, void (CLog::*pEntry)(const wchar_t*, va_list), const wchar_t* pFormat, ...) {
  va_list args;
  va_start(args, pFormat);
  (log.*pEntry)(pFormat, args);
  va_end(args);
}

TEST(LogWithoutMemory, ShowsAMessageAndGoesOn) {
  const LogCapture capture;
  CLog& log = *CLog::getInstance();
  log.logInfo(L"before");
  // The first character of "CLog::...: Program Exception occurred." is all that standard error sees of it.
  for (int level = 1; level <= 8; ++level) {
    const auto eLevel = static_cast<CLOGLEVEL>(level);
    EXPECT_EQ(shownWithoutMemory([&log, eLevel] { log.log(eLevel, L"lost %d", 1); }), "C: ") << level;
    EXPECT_EQ(shownWithoutMemory([&log, eLevel] { log.log(eLevel, "lost %d", 1); }), "C: ") << level;
  }
  for (auto entry :
       {&CLog::logError, &CLog::logWarning, &CLog::logInfo, &CLog::logTrace, &CLog::logTraceFibre})
    EXPECT_EQ(shownWithoutMemory([&log, entry] { (log.*entry)(L"lost %d", 1); }), "C: ");
  for (auto entry : {&CLog::vlogError, &CLog::vlogWarning, &CLog::vlogInfo, &CLog::vlogDebug,
                     &CLog::vlogTrace, &CLog::vlogTraceFibre})
    EXPECT_EQ(shownWithoutMemory([&log, entry] { list(log, entry, L"lost %d", 1); }), "C: ");
  log.logInfo(L"after");
  EXPECT_EQ(capture.text(), "INFO , before\nINFO , after\n");
}

}  // namespace
