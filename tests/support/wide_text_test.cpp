// Wide and narrow text in the locales that host programs run in.

#include <gtest/gtest.h>

#include <cwchar>
#include <random>
#include <string>
#include <vector>

#include "metadata/SettableHeader.h"
#include "support/WideText.h"

namespace {

std::string narrowed(const std::wstring& text, std::size_t capacity = 4096) {
  std::vector<char> buffer(capacity, '#');  // on the heap: a write behind it is found
  const std::size_t length = orvacam::wideToNarrow(text.c_str(), buffer.data(), capacity);
  EXPECT_EQ(buffer.at(length), '\0');
  return std::string(buffer.data(), length);
}

std::wstring widened(const std::string& text, std::size_t capacity = 4096) {
  std::vector<wchar_t> buffer(capacity, L'#');
  const std::size_t length = orvacam::narrowToWide(text.c_str(), buffer.data(), capacity);
  EXPECT_EQ(buffer.at(length), L'\0');
  return std::wstring(buffer.data(), length);
}

const std::wstring greek = L"M\u00FCnchen \u03B1 \u20AC \U0001F30C";
const std::string greekUtf8 = "M\xC3\xBCnchen \xCE\xB1 \xE2\x82\xAC \xF0\x9F\x8C\x8C";

TEST(WideText, IsUtf8InALocaleOfThatEncodingAndInTheCLocale) {
  for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8"}) {
    const ScopedLocale scope(locale);
    EXPECT_EQ(narrowed(greek), greekUtf8) << locale;
    EXPECT_EQ(widened(greekUtf8), greek) << locale;
  }
}

TEST(WideText, IsInTheEncodingOfTheLocaleAsFarAsThatGoes) {
  const ScopedLocale latin("de_DE.ISO-8859-1");
  EXPECT_EQ(narrowed(L"M\u00FCnchen"), "M\xFCnchen");
  EXPECT_EQ(widened("M\xFCnchen"), L"M\u00FCnchen");
  EXPECT_EQ(narrowed(L"\u20AC"), "\xE2\x82\xAC");
}

TEST(WideText, BringsAnyBytesBackUnchanged) {
  constexpr unsigned int seed = 7;
  for (const char* locale : {"C", "de_DE.UTF-8"}) {
    const ScopedLocale scope(locale);
    std::mt19937 random(seed);
    for (int i = 0; i < 20000; ++i) {
      std::string text(random() % 12, '\0');
      for (char& c : text)
        c = static_cast<char>(random() % 2 == 0 ? 1 + random() % 255 : 0xC0 + random() % 64);
      ASSERT_EQ(narrowed(widened(text)), text) << locale << ", seed " << seed << ", text " << i;
    }
  }
}

TEST(WideText, TakesMalformedUtf8ByteByByte) {
  // A lone continuation, an overlong slash, a surrogate, a code too large, a start without its end.
  EXPECT_EQ(widened("\x80"), L"\xDC80");
  EXPECT_EQ(widened("\xC0\xAF"), L"\xDCC0\xDCAF");
  EXPECT_EQ(widened("\xED\xA0\x80"), L"\xDCED\xDCA0\xDC80");
  EXPECT_EQ(widened("\xF4\x90\x80\x80"), L"\xDCF4\xDC90\xDC80\xDC80");
  EXPECT_EQ(widened("\xF8\x88\x80\x80\x80"), L"\xDCF8\xDC88\xDC80\xDC80\xDC80");
  EXPECT_EQ(widened("a\xE2\x82"), L"a\xDCE2\xDC82");
  EXPECT_EQ(widened("\xE2\x41"),
            L"\xDCE2"
            L"A");
}

TEST(WideText, WritesAQuestionMarkForWhatIsNoCharacter) {
  const wchar_t none[] = {L'a', static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1), L'b', 0};
  EXPECT_EQ(narrowed(none), "a??b");
}

TEST(WideText, IsCutToWholeCharactersAndAlwaysTerminated) {
  EXPECT_EQ(narrowed(L"abc", 4), "abc");
  EXPECT_EQ(narrowed(L"abc", 3), "ab");
  EXPECT_EQ(narrowed(L"abc", 1), "");
  EXPECT_EQ(narrowed(L"a\u20AC", 4), "a");
  EXPECT_EQ(narrowed(L"a\u20AC", 5), "a\xE2\x82\xAC");
  EXPECT_EQ(widened("abc", 4), L"abc");
  EXPECT_EQ(widened("abc", 3), L"ab");
  EXPECT_EQ(widened("\xE2\x82\xAC\xE2\x82\xAC", 2), L"\u20AC");
  EXPECT_EQ(widened("abc", 1), L"");
}

TEST(WideText, TakesNullAsEmptyAndWritesNowhereWithoutRoom) {
  char narrow[2] = {'#', '#'};
  wchar_t wide[2] = {L'#', L'#'};
  EXPECT_EQ(orvacam::wideToNarrow(L"abc", narrow, 0), 0u);
  EXPECT_EQ(orvacam::narrowToWide("abc", wide, 0), 0u);
  EXPECT_EQ(narrow[0], '#');
  EXPECT_EQ(wide[0], L'#');
  EXPECT_EQ(orvacam::wideToNarrow(L"abc", nullptr, 5), 0u);
  EXPECT_EQ(orvacam::narrowToWide("abc", nullptr, 5), 0u);
  EXPECT_EQ(orvacam::wideToNarrow(nullptr, narrow, 2), 0u);
  EXPECT_EQ(orvacam::narrowToWide(nullptr, wide, 2), 0u);
  EXPECT_EQ(narrow[0], '\0');
  EXPECT_EQ(wide[0], L'\0');
}

}  // namespace
