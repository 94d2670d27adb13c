#ifndef ORVACAM_TESTS_SUPPORT_CONTAINS_H
#define ORVACAM_TESTS_SUPPORT_CONTAINS_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

/// Whether a text contains another; says of both where that is wrong. Takes a third of a gmock matcher's time
/// to compile.
inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
  const bool found = text.find(part) != text.npos;
  return (found ? testing::AssertionSuccess() : testing::AssertionFailure())
         << "\"" << text << "\" contains " << (found ? "\"" : "no \"") << part << "\"";
}
/// Whether it contains all of them.
inline testing::AssertionResult contains(const std::string& text, std::initializer_list<std::string> parts) {
  for (const std::string& part : parts)
    if (const auto result = contains(text, part); !result) return result;
  return testing::AssertionSuccess();
}

#endif  // ORVACAM_TESTS_SUPPORT_CONTAINS_H
