// Texts, sums and names.

#include <gtest/gtest.h>

#include <cmath>

#include "files/Json.h"
#include "files/Names.h"
#include "files/NpyWriter.h"
#include "files/Sha256.h"
#include "files/Text.h"

namespace {

using namespace orvacam::files;

TEST(Sha256, OfTheStandardsOwnExamples) {
  // FIPS 180-4: "abc", nothing, 56 bytes (two blocks), a million times "a".
  const auto of = [](const std::string& text) { return sha256(text.data(), text.size()); };
  EXPECT_EQ(of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(of(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Texts, AreMadePlainForCardsAndShownForTerminals) {
  EXPECT_EQ(plainText("VS\x01\xC3\xA4'q\x7F"),
            "VS?"
            "?"
            "?"
            "'q?");
  EXPECT_EQ(shownText("a\n\t\r\x1b[31m\x7F\xC3\xA4"), "a\\n\\t\\r\\x1B[31m\\x7F\xC3\xA4");
}

TEST(Texts, ShowNoCharacterThatATerminalObeys) {
  // U+009B opens a sequence as ESC [ does; so does the lone byte, where a terminal takes one for a character.
  EXPECT_EQ(shownText("a\xC2\x9B"
                      "31m\xC2\xA0"),
            "a\\xC2\\x9B31m\xC2\xA0");
  EXPECT_EQ(shownText("\x9B"
                      "1A\xE4 \xE2\x82"),
            "\\x9B1A\\xE4 \\xE2\\x82");
  EXPECT_EQ(jsonText("\xC2\x9B"), R"("\u009b")");
}

TEST(Texts, AreFieldsOfTables) {
  EXPECT_EQ(csvField("a b.raw"), "a b.raw");
  EXPECT_EQ(csvField("a,b.raw"), R"("a,b.raw")");
  EXPECT_EQ(csvField("12\" lens\n.raw"), R"("12"" lens\n.raw")");
}

TEST(Texts, OfTimesAreUtc) {
  const Instant time(std::chrono::nanoseconds(1715979873123456700));  // 2024-05-17T21:04:33.1234567
  EXPECT_EQ(isoTime(time), "2024-05-17T21:04:33.123456700");
  EXPECT_EQ(tiffTime(time), "2024:05:17 21:04:33");
  EXPECT_EQ(isoTime(Instant(std::chrono::nanoseconds(-1))), "1969-12-31T23:59:59.999999999");
  EXPECT_EQ(isoTime(Instant(std::chrono::nanoseconds(-1000000000))), "1969-12-31T23:59:59.000000000");
  EXPECT_EQ(isoTime(Instant::max()), "2262-04-11T23:47:16.854775807");
  EXPECT_EQ(isoTime(Instant::min()), "1677-09-21T00:12:43.145224192");
}

TEST(Texts, OfNumbersReadBackAsTheSameNumber) {
  EXPECT_EQ(numberText(100000), "100000");
  EXPECT_EQ(numberText(-0.1), "-0.1");
  EXPECT_EQ(numberText(7.575757575757576), "7.575757575757576");
  EXPECT_EQ(std::stod(numberText(1e300)), 1e300);
}

TEST(Json, HoldsAnyBytes) {
  EXPECT_EQ(jsonText("a\"b\\c\n\x7F"), R"("a\"b\\c\u000a\u007f")");
  EXPECT_EQ(jsonText("\xC3\xA4\xFF"), "\"\xC3\xA4\xEF\xBF\xBD\"");
  EXPECT_EQ(jsonText("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"") << "half of a pair";
  EXPECT_EQ(jsonText("\xC0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"") << "a NUL in two bytes";
  EXPECT_EQ(asciiJson("\"\xC3\xA4 \xF0\x9F\x8C\x99\""), R"("\u00e4 \ud83c\udf19")");
  EXPECT_EQ(jsonNumber(std::nan("")), "null");
  EXPECT_EQ(jsonNumber(INFINITY), "null");
  EXPECT_EQ(JsonObject().text("a", "b").whole("c", -1).truth("d", true).str(),
            R"({"a": "b", "c": -1, "d": true})");
  EXPECT_EQ(JsonList().raw("1").raw("2").str(), "[1, 2]");
}

TEST(Names, EndAtTheLastDot) {
  EXPECT_EQ(stemOf("night/a.b.raw"), "a.b");
  EXPECT_EQ(stemOf(".raw"), ".raw");
  EXPECT_EQ(stemOf("x/y"), "y");
  EXPECT_EQ(stemOf("-"), "stdin");
  EXPECT_EQ(suffixOf("merged", {"low", "high", "merged"}), "_MERGED");
  EXPECT_EQ(suffixOf("image", {"image"}), "");
}

TEST(Npy, KnowsEveryTypeOfPixel) {
  const std::pair<Raster::Sample, const char*> types[] = {{Raster::U8, "'|u1'"},
                                                          {Raster::U16, "'<u2'"},
                                                          {Raster::F32, "'<f4'"},
                                                          {Raster::F64, "'<f8'"},
                                                          {Raster::I64, "'<i8'"}};
  for (const auto& [sample, name] : types)
    EXPECT_NE(npyHeader({{2, 3}, sample, nullptr}).find(name), std::string::npos) << name;
}

TEST(Npy, HasAHeaderOfWholeBlocks) {
  for (const std::uint32_t width : {1u, 10u, 65535u, 1000000u}) {
    const std::string header = npyHeader({{width, 7}, Raster::U16, nullptr});
    EXPECT_EQ(header.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    EXPECT_EQ(header.size() % 64, 0u);
    EXPECT_EQ(header.size(),
              10u + static_cast<unsigned char>(header[8]) + 256u * static_cast<unsigned char>(header[9]));
    EXPECT_EQ(header.back(), '\n');
    EXPECT_NE(header.find("'<u2', 'fortran_order': False, 'shape': (7, " + std::to_string(width) + ")"),
              std::string::npos);
  }
}

}  // namespace
