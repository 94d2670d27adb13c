#ifndef ORVACAM_TESTS_ROBUSTNESS_FAULT_TESTING_H
#define ORVACAM_TESTS_ROBUSTNESS_FAULT_TESTING_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "support/FaultInjector.h"

namespace fault_testing {

using Bytes = std::vector<unsigned char>;

/// One thing that a caller does, on objects of its own that live as long as this.
class Operation {
 public:
  virtual ~Operation() = default;

  /// Does it; the status.
  virtual int run() = 0;
  /// All that the last run delivered: planes, records, files.
  virtual Bytes result() = 0;
  /// Gives back what the last run allocated for the caller, and removes the files that it made.
  virtual void giveBack() {}
  /// Whether the last run, of which a call failed, may have delivered less with a status that does not say
  /// so. Only what is documented so.
  virtual bool mayBeSilent(faults::Call /*first*/) { return false; }
};

/// A folder for files that serve many operations of a test. Making one for each takes most of the time.
inline const TestFolder& commonFolder() {
  static const TestFolder folder;
  return folder;
}
inline std::wstring commonFile(const std::string& name, const Bytes& bytes) {
  return commonFolder().has(name) ? commonFolder().wideFile(name) : commonFolder().write(name, bytes);
}

/// Appends numbers and texts as bytes.
class Collected {
 public:
  template <typename Value>
  Collected& value(const Value& v) {
    static_assert(std::is_arithmetic_v<Value>);
    return bytes(&v, sizeof v);
  }
  Collected& bytes(const void* data, std::size_t size) {
    const auto* const begin = static_cast<const unsigned char*>(data);
    if (begin != nullptr) m_all.insert(m_all.end(), begin, begin + size);
    return *this;
  }
  Collected& bytes(const Bytes& data) { return value(data.size()).bytes(data.data(), data.size()); }
  Bytes all() { return std::move(m_all); }

 private:
  Bytes m_all;
};

/// An operation of few words: what to do, what it delivered, how to give that back.
class Steps : public Operation {
 public:
  Steps(
      std::function<int()> run, std::function<Bytes()> result, std::function<void()> giveBack = [] {})
      : m_run(std::move(run)), m_result(std::move(result)), m_giveBack(std::move(giveBack)) {}

  /// The status is documented not to tell of failures of such calls.
  std::unique_ptr<Steps> silentAfter(std::set<faults::Call> calls) && {
    m_silent = std::move(calls);
    return std::make_unique<Steps>(std::move(*this));
  }
  std::unique_ptr<Steps> operator*() && { return std::make_unique<Steps>(std::move(*this)); }

  int run() override { return m_run(); }
  Bytes result() override { return m_result(); }
  void giveBack() override { m_giveBack(); }
  bool mayBeSilent(faults::Call first) override { return m_silent.count(first) > 0; }

 private:
  std::function<int()> m_run;
  std::function<Bytes()> m_result;
  std::function<void()> m_giveBack;
  std::set<faults::Call> m_silent;
};

/// -1 for the one exception that an operation is documented to throw.
template <typename Action>
int withoutMemory(Action action) {
  try {
    action();
    return 0;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

struct Subject {
  std::string name;
  std::function<std::unique_ptr<Operation>()> make;
};
inline std::ostream& operator<<(std::ostream& out, const Subject& subject) {
  return out << subject.name;
}
inline std::string nameOf(const ::testing::TestParamInfo<Subject>& info) {
  return info.param.name;
}

/// Fails the first, the second, ... call that the operation makes, until one run meets no failure. After
/// each: the status tells of it unless all is delivered as ever, no exception came out, the same objects do
/// the same again with the same result, and nothing of it all is held when they are gone.
inline void failEveryCall(const Subject& subject, faults::Extent extent) {
  const faults::StoppedClock clock;
  Bytes expected;
  int expectedStatus = 0;
  {
    const std::unique_ptr<Operation> undisturbed = subject.make();
    expectedStatus = undisturbed->run();
    expected = undisturbed->result();
    undisturbed->giveBack();
  }
  ASSERT_GE(expectedStatus, 0) << "it fails by itself";

  constexpr long most = 5000;
  for (long number = 0; number < most && !::testing::Test::HasFailure(); ++number) {
    const unsigned int descriptors = faults::openDescriptors();
    faults::Call first = faults::Call::None;
    std::size_t left = 0;
    {
      const faults::MemoryWatch watch;
      {
        const std::unique_ptr<Operation> operation = subject.make();
        int status = 0;
        bool escaped = false;
        {
          const faults::Failing failing(number, extent);
          try {
            status = operation->run();
          } catch (...) {
            escaped = true;
          }
          first = failing.first();
        }
        const auto where = [&] {
          return "call " + std::to_string(number) + ", " + faults::nameOf(first) +
                 (extent == faults::Extent::Once ? ", failed once" : ", failed from then on");
        };
        EXPECT_FALSE(escaped) << where() << ": an exception came out";
        EXPECT_GE(status, -1) << where();
        if (!escaped && status >= 0 && !operation->mayBeSilent(first))
          EXPECT_EQ(operation->result() == expected, true)
              << where() << ": less is delivered with status " << status;
        operation->giveBack();

        EXPECT_EQ(operation->run(), expectedStatus) << where() << ": does not work again";
        EXPECT_EQ(operation->result() == expected, true) << where() << ": delivers something else afterwards";
        operation->giveBack();
      }
      left = watch.blocks();
    }
    // A failed expectation takes memory itself.
    if (!::testing::Test::HasFailure())
      EXPECT_EQ(left, 0u) << "call " << number << ", " << faults::nameOf(first)
                          << ": blocks of memory are lost";
    EXPECT_EQ(faults::openDescriptors(), descriptors)
        << "call " << number << ", " << faults::nameOf(first) << ": files stay open";
    if (first == faults::Call::None) return;
  }
  if (!::testing::Test::HasFailure()) FAIL() << "did not pass within " << most << " calls";
}

/// A test suite over subjects: each with single failures, then with lasting ones.
class FaultInjection : public ::testing::TestWithParam<Subject> {};

}  // namespace fault_testing

#define ORVACAM_FAIL_EVERY_CALL(suite, subjects)                              \
  class suite : public ::fault_testing::FaultInjection {};                    \
  TEST_P(suite, SurvivesEveryFailure) {                                       \
    ::fault_testing::failEveryCall(GetParam(), ::faults::Extent::Once);       \
    if (HasFailure()) return;                                                 \
    ::fault_testing::failEveryCall(GetParam(), ::faults::Extent::FromThenOn); \
  }                                                                           \
  INSTANTIATE_TEST_SUITE_P(All, suite, ::testing::ValuesIn(subjects), ::fault_testing::nameOf)

#endif  // ORVACAM_TESTS_ROBUSTNESS_FAULT_TESTING_H
