// Text between wide and narrow form.

#include "support/WideText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

using orvacam::narrowToWide;
using orvacam::wideToNarrow;

std::string narrow(const std::wstring& text, std::size_t capacity = 100) {
  std::string out(capacity, 'x');
  const std::size_t length = wideToNarrow(text.c_str(), out.data(), capacity);
  EXPECT_EQ(out[length], '\0');
  return out.substr(0, length);
}

std::wstring wide(const std::string& text, std::size_t capacity = 100) {
  std::wstring out(capacity, L'x');
  const std::size_t length = narrowToWide(text.c_str(), out.data(), capacity);
  EXPECT_EQ(out[length], L'\0');
  return out.substr(0, length);
}

TEST(WideText, SurvivesInAnyLocale) {
  for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
    for (const std::wstring& text : {std::wstring(L"plain"), std::wstring(L"\u00e9t\u00e9"),
                                     std::wstring(L"\u20ac \U0001F52D"), std::wstring()})
      EXPECT_EQ(wide(narrow(text)), text) << locale;
    EXPECT_EQ(narrow(L"\u00e9\u20ac\U0001F52D"), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\xAD") << locale;
  }
  std::setlocale(LC_CTYPE, "C");
}

TEST(WideText, BytesThatAreNoTextComeBackAsTheyWere) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    std::setlocale(LC_CTYPE, locale);
    for (const char* bytes :
         {"\xFF\xFE", "a\x80z", "\xC3", "\xE2\x82", "\xED\xA0\x80", "\xF8\x88\x80\x80\x80", "\xC0\x80"})
      EXPECT_EQ(narrow(wide(bytes)), bytes) << locale;
  }
  std::setlocale(LC_CTYPE, "C");
}

TEST(WideText, IsCutToWholeCharacters) {
  EXPECT_EQ(narrow(L"abcdef", 4), "abc");
  EXPECT_EQ(narrow(L"ab\u20ac", 5), "ab");  // the third takes three bytes
  EXPECT_EQ(wide("abcdef", 4), L"abc");
  char none[1] = {'x'};
  EXPECT_EQ(wideToNarrow(L"a", none, 1), 0u);
  EXPECT_EQ(none[0], '\0');
  EXPECT_EQ(wideToNarrow(L"a", none, 0), 0u);
  EXPECT_EQ(wideToNarrow(L"a", nullptr, 5), 0u);
  EXPECT_EQ(narrowToWide("a", nullptr, 5), 0u);
}

TEST(WideText, OfNullIsEmptyAndOfNoCharacterAQuestionMark) {
  char out[5] = "xxxx";
  EXPECT_EQ(wideToNarrow(nullptr, out, 5), 0u);
  wchar_t wideOut[5];
  EXPECT_EQ(narrowToWide(nullptr, wideOut, 5), 0u);
  EXPECT_EQ(narrow(std::wstring(1, static_cast<wchar_t>(0x110000))), "?");
}

}  // namespace
