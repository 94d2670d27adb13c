#ifndef ORVACAM_TESTS_SUPPORT_FAILURES_H
#define ORVACAM_TESTS_SUPPORT_FAILURES_H

#include <gtest/gtest.h>

#include "support/FaultInjector.h"

namespace faults {

/// Lets the first, the second, ... call of one kind (None: of any) that an action makes and all later ones
/// fail until its status is 0; how often it failed, with -1 each time. What must hold after each failure is
/// checked by the second action.
template <typename Action, typename Check>
int failures(Call only, Action action, Check check) {
  for (int count = 0; count < 1000; ++count) {
    int status = 0;
    {
      const Failing failing(count, Extent::FromThenOn, only);
      status = action();
    }
    if (status == 0) return count;
    EXPECT_EQ(status, -1);
    check();
  }
  return -1;
}
template <typename Action>
int failures(Call only, Action action) {
  return failures(only, action, [] {});
}

}  // namespace faults

#endif  // ORVACAM_TESTS_SUPPORT_FAILURES_H
