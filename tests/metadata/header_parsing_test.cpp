// Reading a frame's header from bytes and from files: every field, flag and way to fail.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <set>

#include "metadata/HeaderBytes.h"
#include "support/Cameras.h"

namespace {

constexpr unsigned int versions[] = {1, 2, 3, 4};

std::string timeTextOf(const CFrameMetaData& header) {
  char text[64];
  header.TimeMetaToString2(text, sizeof text);
  return text;
}

// ---- What is a frame

TEST(FrameRecognition, NeedsTheFourLettersOfMeta) {
  const unsigned char meta[] = {'M', 'e', 't', 'a'};
  const unsigned char other[] = {'M', 'e', 't', 'A'};
  EXPECT_TRUE(CFrameMetaData::IsRCDFrame(meta, 4));
  EXPECT_FALSE(CFrameMetaData::IsRCDFrame(meta, 3));
  EXPECT_FALSE(CFrameMetaData::IsRCDFrame(other, 4));
  EXPECT_FALSE(CFrameMetaData::IsRCDFrame(nullptr, 4));
}

TEST(HeaderParsing, RefusesWhatIsNeitherAFrameNorFits) {
  CFrameMetaData header;
  unsigned char bytes[] = "neither";
  EXPECT_EQ(header.Parse(bytes, sizeof bytes), -1);
  EXPECT_EQ(header.Parse(bytes, 0), -1);
  EXPECT_EQ(header.Parse(static_cast<unsigned char*>(nullptr), 100), -1);
}

std::string fitsHeader() {
  std::string header;
  for (const char* card :
       {"SIMPLE  =                    T", "INSTRUME= 'VESTRA VS400'", "EXPTIME =  1234", "END"})
    header += card + std::string(80 - std::strlen(card), ' ');
  return header + std::string(2880 - header.size(), ' ');
}

TEST(HeaderParsing, ReadsAFitsHeaderFromBytes) {
  std::string bytes = fitsHeader();
  OpenHeader header;
  EXPECT_EQ(header.Parse(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size())),
            0);
  EXPECT_EQ(header.text(11), "VESTRA VS400");
  EXPECT_EQ(header.number(22), 1234.0);
}

TEST(HeaderValidity, IsTheMagicNumber) {
  OpenHeader header;
  EXPECT_TRUE(header.IsValid());
  header.set(0, 0x4D657462);
  EXPECT_FALSE(header.IsValid());
}

TEST(HeaderMergedState, Is16BitsAndNoPair) {
  OpenHeader header;
  EXPECT_FALSE(header.IsMerged());
  header.SetBitsPerPixel(16);
  EXPECT_TRUE(header.IsMerged());
  header.SetHDRFrame(true);
  EXPECT_FALSE(header.IsMerged());
}

// ---- Fields

TEST(HeaderFields, AllNumbersOfAllVersionsAreRead) {
  // Three patterns per field: the top bit set, clear, and nothing but the lowest bit.
  constexpr unsigned long patterns[] = {0x8192A3B4, 0x12345678, 1};
  for (const unsigned int version : versions) {
    for (const NumberField& field : numberFields(version)) {
      for (const unsigned long pattern : patterns) {
        const unsigned long word = pattern == 1 ? 1 : pattern >> (32 - 8 * field.bytes);
        OpenHeader header;
        HeaderBytes bytes(version);
        ASSERT_EQ(bytes.put(field.offset, field.bytes, word).parseInto(header), 0)
            << version << ", " << field;
        EXPECT_EQ(header.number(field.key), field.meaning(word)) << version << ", " << field << ", " << word;
        EXPECT_EQ(header.kind(field.key), field.sign == Sign::None ? 0u : 2u) << version << ", " << field;
      }
    }
  }
}

TEST(HeaderFields, PrefixIsMagicLengthAndVersion) {
  for (const unsigned int version : versions) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version).put(4, 2, 0xFEDC).parseInto(header), 0);
    EXPECT_EQ(header.number(0), 0x4D657461);
    EXPECT_EQ(header.number(1), 0xFEDC);
    EXPECT_EQ(header.number(2), version);
  }
}

TEST(HeaderFields, PixelDepthIsTheLowNibblePlusOneAndZeroPointTheHighOne) {
  for (const unsigned int version : versions) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version).put(80, 1, 0xAB).parseInto(header), 0);
    EXPECT_EQ(header.number(19), 12);
    EXPECT_EQ(header.number(20), 10);
    ASSERT_EQ(HeaderBytes(version).put(80, 1, 0x0F).parseInto(header), 0);
    EXPECT_EQ(header.number(19), 16);
    EXPECT_EQ(header.number(20), 0);
  }
}

TEST(HeaderFields, ReferenceRowsAreTwoHalvesOfThreeBytes) {
  for (const unsigned int version : versions) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version).put(136, 3, 0xABC123).parseInto(header), 0);
    EXPECT_EQ(header.number(68), 0xABC);
    EXPECT_EQ(header.number(69), 0x123);
  }
}

TEST(HeaderFields, ReservedAndPaddingBytesAreKept) {
  std::string counted(152, '\0');
  for (std::size_t i = 0; i < counted.size(); ++i)
    counted[i] = static_cast<char>(i + 1);
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(1).text(140, counted.substr(0, 12)).parseInto(header), 0);
  EXPECT_EQ(std::memcmp(header.m_Reserved1, counted.data(), 12), 0);
  ASSERT_EQ(HeaderBytes(2).put(145, 2, 0xA1B2).text(221, counted.substr(0, 25)).parseInto(header), 0);
  EXPECT_EQ(header.number(OpenHeader::reservedOfVersion2), 0xA1B2);
  EXPECT_EQ(std::memcmp(header.m_Padding, counted.data(), 25), 0);
  EXPECT_EQ(header.m_Padding[25], 0);
  for (const unsigned int version : {3u, 4u}) {
    OpenHeader longHeader;
    ASSERT_EQ(HeaderBytes(version).text(232, counted).parseInto(longHeader), 0);
    EXPECT_EQ(std::memcmp(longHeader.m_Padding, counted.data(), 152), 0);
    EXPECT_EQ(longHeader.m_Padding[152], 0);
  }
}

TEST(HeaderSignMagnitude, SignBitIsClearedInTheCallersBufferAndNowhereElse) {
  const std::set<std::size_t> signs = {91, 106, 108, 110, 112};
  for (const unsigned int version : versions) {
    HeaderBytes bytes(version);
    if (version == 1)
      bytes.fill(72, bytes.size(), 0xFF);
    else
      bytes.fill(72, 152, 0xFF).fill(182, bytes.size(), 0xFF);
    if (version == 4) bytes.put(244, 4, 0);
    const HeaderBytes before = bytes;
    OpenHeader header;
    ASSERT_EQ(bytes.parseInto(header), 0) << version;
    for (std::size_t i = 0; i < bytes.size(); ++i)
      EXPECT_EQ(bytes[i], signs.count(i) != 0 ? 0x7F : before[i]) << version << ", byte " << i;
    EXPECT_EQ(header.number(77), -32767);
  }
}

// ---- Flags

struct FlagBit {
  unsigned int offset;
  unsigned int bit;
  int key;
  std::set<unsigned int> versions;
  bool whenClear = false;
};

std::vector<FlagBit> flagBits() {
  const std::set<unsigned int> all = {1, 2, 3, 4}, early = {1, 2}, from2 = {2, 3, 4}, from3 = {3, 4};
  return {{98, 7, 21, all},          {98, 6, 67, all},          {98, 5, 40, all},
          {98, 4, 62, all},          {98, 3, 61, from3},        {99, 3, 61, early},
          {98, 2, 44, all},          {98, 1, 92, all, true},    {98, 0, 65, all},
          {140, 7, 3, from2},        {140, 6, 39, from2},       {140, 1, 37, from3},
          {140, 0, 38, from3},       {147, 7, 86, from2, true}, {147, 6, 60, from2, true},
          {147, 5, 56, from2, true}, {147, 4, 58, from2, true}, {231, 6, 18, from3},
          {231, 7, 57, from3}};
}

TEST(HeaderFlags, EachFollowsItsOwnBit) {
  for (const unsigned int version : versions) {
    for (const unsigned int offset : {98u, 99u, 140u, 147u, 231u}) {
      if (offset >= headerSize(version)) continue;
      for (unsigned int bit = 0; bit < 8; ++bit) {
        HeaderBytes bytes(version);
        OpenHeader header;
        ASSERT_EQ(bytes.put(offset, 1, 1u << bit).parseInto(header), 0);
        for (const FlagBit& flag : flagBits()) {
          if (flag.versions.count(version) == 0) continue;
          const bool set = (bytes[flag.offset] >> flag.bit & 1) != 0;
          EXPECT_EQ(header.flag(flag.key), set != flag.whenClear)
              << "version " << version << ", key " << flag.key << ", bit " << bit << " at " << offset;
          EXPECT_EQ(header.kind(flag.key), 6u);
        }
      }
    }
  }
}

TEST(HeaderFlags, BytesAreKeptWhole) {
  OpenHeader header;
  ASSERT_EQ(
      HeaderBytes(3).put(98, 1, 0xA5).put(140, 1, 0x5A).put(147, 1, 0xC3).put(231, 1, 0x7E).parseInto(header),
      0);
  EXPECT_EQ(header.number(OpenHeader::controlBlock), 0xA5);
  EXPECT_EQ(header.number(OpenHeader::controlBlock2), 0x5A);
  EXPECT_EQ(header.number(OpenHeader::controlBlockTest), 0xC3);
  EXPECT_EQ(header.number(OpenHeader::extraFlags), 0x7E);
}

TEST(HeaderFlags, ReadQuadrantsAreFourBitsOfControlBlock2FromVersion3On) {
  for (const unsigned int version : {3u, 4u}) {
    for (unsigned int bit = 0; bit < 8; ++bit) {
      OpenHeader header;
      HeaderBytes(version).put(140, 1, 1u << bit).parseInto(header);
      EXPECT_EQ(header.number(73), (1u << bit) & 0x3C) << bit;
    }
  }
  OpenHeader header;
  HeaderBytes(2).put(140, 1, 0xFF).parseInto(header);
  EXPECT_EQ(header.number(73), 0);
}

// ---- Texts

TEST(HeaderTexts, AreCopiedWithTheirZeros) {
  for (const unsigned int version : versions) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version)
                  .fill(8, 72, 0)
                  .text(8, std::string("ABC\0behind", 10))
                  .text(48, "24 characters of serial!")
                  .parseInto(header),
              0);
    EXPECT_EQ(header.text(11), std::string("ABC\0behind", 10) + std::string(30, '\0'));
    EXPECT_EQ(header.text(75), "24 characters of serial!");
  }
}

TEST(HeaderTexts, OfZerosOnlyReadAsAngleBrackets) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(3).fill(8, 72, 0).parseInto(header), 0);
  for (const int key : {11, 75, 88, 87})
    EXPECT_EQ(header.text(key), "<>") << key;
}

TEST(HeaderTexts, ThatStartWithZerosStartAtTheFirstOtherByte) {
  OpenHeader header;
  HeaderBytes(3).fill(8, 48, 0).text(13, "XY").text(47, "Z").parseInto(header);
  EXPECT_EQ(header.text(11), "XY" + std::string(32, '\0') + "Z");
  HeaderBytes(3).fill(8, 48, 0).text(47, "Z").parseInto(header);
  EXPECT_EQ(header.text(11), "Z");
}

TEST(HeaderTexts, InfoOfTheApplicationComesBeforeThatOfTheLibrary) {
  for (const unsigned int version : {2u, 3u, 4u}) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version).text(190, "application!").text(202, "the library!").parseInto(header), 0);
    EXPECT_EQ(header.text(88), "application!");
    EXPECT_EQ(header.text(87), "the library!");
  }
}

// ---- Times and positions

TEST(HeaderVersion1, PacksTheCaptureDate) {
  // 2021-11-30: 21 in seven bits, 11 in four, 30 in five.
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(1).put(72, 2, 21 << 9 | 11 << 5 | 30).parseInto(header), 0);
  EXPECT_EQ(header.number(12), 2021 * 65536 + 11 * 256 + 30);
  ASSERT_EQ(HeaderBytes(1).put(72, 2, 0xFFFF).parseInto(header), 0);
  EXPECT_EQ(header.number(12), 2127 * 65536 + 15 * 256 + 31);
  EXPECT_EQ(header.kind(12), 0u);
}

TEST(HeaderVersion1, CountsTheCaptureTimeIn100Nanoseconds) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(1).put(74, 5, 123456789012).parseInto(header), 0);
  EXPECT_EQ(header.number(13), 12345.0);
  EXPECT_EQ(header.number(14), 678901200.0);
  ASSERT_EQ(HeaderBytes(1).put(74, 5, 0xFFFFFFFFFF).parseInto(header), 0);
  EXPECT_EQ(header.number(13), 109951.0);
  EXPECT_EQ(header.number(14), 162777500.0);
  EXPECT_EQ(header.kind(13), 4u);
  EXPECT_EQ(header.kind(14), 4u);
}

TEST(HeaderCaptureTime, IsAText) {
  for (const unsigned int version : {2u, 3u, 4u}) {
    OpenHeader header;
    ASSERT_EQ(HeaderBytes(version).text(152, "2031/12/25 23:59:58.250000000").parseInto(header), 0);
    EXPECT_EQ(header.number(12), 2031 * 65536 + 12 * 256 + 25);
    EXPECT_EQ(header.number(13), 23 * 3600 + 59 * 60 + 58);
    EXPECT_EQ(header.number(14), 250000000.0);
    EXPECT_STREQ(header.m_CaptureTimeText, "2031/12/25 23:59:58.250000000");
    EXPECT_TRUE(header.m_bCaptureTimeValid);
  }
}

TEST(HeaderCaptureTime, HasNanosecondsThatMayReadOneLowerWhenCut) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(4).text(152, "2031/12/25 23:59:06.000000007").parseInto(header), 0);
  EXPECT_NEAR(header.number(14), 7.0, 1e-2);
  EXPECT_EQ(header.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueUint(), 6u);
  ASSERT_EQ(HeaderBytes(4).text(152, "2031/12/25 00:00:03.000000001").parseInto(header), 0);
  EXPECT_EQ(header.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueUint(), 1u);
}

TEST(HeaderCaptureTime, ThatIsMalformedFailsTheParseAndIsMarked) {
  for (const unsigned int version : {2u, 3u, 4u}) {
    for (const char* text :
         {"2o31/12/25 23:59:58.250000000", " 031/12/25 23:59:58.250000000", "2031/12/25 23:59"}) {
      OpenHeader header;
      header.set(12, 77).setDouble(13, 5.0).setDouble(14, 6.0);
      EXPECT_EQ(HeaderBytes(version).fill(152, 182, 0).text(152, text).put(182, 4, 1).parseInto(header), -1);
      EXPECT_FALSE(header.m_bCaptureTimeValid) << text;
      EXPECT_EQ(header.number(12), 77);
      EXPECT_EQ(header.number(13), 0.0);
      EXPECT_EQ(header.number(14), 0.0);
      EXPECT_EQ(timeTextOf(header).substr(0, 7), "ERROR: ");
      EXPECT_EQ(header.number(29), 0) << "nothing behind the failure is read";
    }
  }
}

TEST(HeaderCaptureTime, IsValidAgainForTheNextHeader) {
  OpenHeader header;
  HeaderBytes(3).text(152, "?").parseInto(header);
  EXPECT_FALSE(header.m_bCaptureTimeValid);
  EXPECT_EQ(HeaderBytes(1).parseInto(header), 0);
  EXPECT_TRUE(header.m_bCaptureTimeValid);
}

TEST(HeaderCaptureTime, ThatIsCutIsMarkedToo) {
  OpenHeader header;
  header.setDouble(13, 5.0);
  EXPECT_EQ(HeaderBytes(3).resize(181).parseInto(header), -1);
  EXPECT_FALSE(header.m_bCaptureTimeValid);
  EXPECT_EQ(header.number(13), 0.0);
}

TEST(HeaderPosition, IsHemisphereDegreesAndMinutes) {
  const struct {
    unsigned long word;
    bool hemisphere;
    double degrees, minutes;
  } rows[] = {
      {0x80000000ul + 30000000, true, 50.0, 0.0},
      {27345678, false, 45.0, 34.5678},  // 345678 / 600000 degrees are 34.5678 minutes
      {0, false, 0.0, 0.0},
      {0xFFFFFFFF, true, 3579.0, 8.3647},  // 2147483647 = 3579 x 600000 + 83647
  };
  for (const unsigned int version : {2u, 3u, 4u}) {
    for (const auto& row : rows) {
      OpenHeader header;
      ASSERT_EQ(
          HeaderBytes(version).put(182, 4, row.word).put(186, 4, row.word ^ 0x80000000).parseInto(header), 0);
      EXPECT_EQ(header.number(29), static_cast<double>(row.word));
      EXPECT_EQ(header.number(30), row.degrees);
      EXPECT_NEAR(header.number(31), row.minutes, 1e-7);
      EXPECT_EQ(header.flag(32), row.hemisphere);
      EXPECT_EQ(header.number(33), static_cast<double>(row.word ^ 0x80000000));
      EXPECT_EQ(header.number(34), row.degrees);
      EXPECT_NEAR(header.number(35), row.minutes, 1e-7);
      EXPECT_EQ(header.flag(36), !row.hemisphere);
    }
  }
}

// ---- Versions

TEST(HeaderVersions, OtherThan1To3AreParsedAs4) {
  for (const unsigned int version : {0u, 4u, 5u, 7u, 0xFFFFu}) {
    OpenHeader header;
    EXPECT_EQ(HeaderBytes(4).put(6, 2, version).put(236, 4, 0x11223344).put(145, 2, 9).parseInto(header), 0);
    EXPECT_EQ(header.number(2), version);
    EXPECT_EQ(header.number(93), 0x11223344);
    EXPECT_EQ(header.number(6), 9);
  }
}

TEST(HeaderVersion3, DoesNotReadTheFieldsOfVersion4) {
  OpenHeader header;
  EXPECT_EQ(HeaderBytes(3).fill(236, 252, 1).parseInto(header), 0);
  for (int key = 93; key <= 99; ++key)
    EXPECT_EQ(header.number(key), 0) << key;
}

HeaderBytes withBlock(unsigned int offset, unsigned int length, std::size_t size) {
  HeaderBytes bytes(4);
  bytes.put(243, 1, 42).put(244, 4, length).put(248, 4, offset).resize(size);
  for (std::size_t i = 384; i < size; ++i)
    bytes.put(i, 1, i - 384 + 1);
  return bytes;
}

TEST(HeaderVersion4, StoresTheBlockBehindTheHeader) {
  OpenHeader header;
  EXPECT_EQ(withBlock(0, 16, 400).parseInto(header), 0);
  EXPECT_EQ(header.number(97), 16);
  EXPECT_EQ(header.OtherMetaData().GetType(), 42u);
  ASSERT_EQ(header.OtherMetaData().GetBinarizeSize(), 16u);
  for (unsigned int i = 0; i < 16; ++i)
    EXPECT_EQ(header.OtherMetaData().GetData()[i], i + 1);
}

TEST(HeaderVersion4, FindsTheBlockByTheBytesGivenNotByTheStatedLength) {
  OpenHeader header;
  EXPECT_EQ(withBlock(4, 12, 400).put(4, 2, 384).parseInto(header), 0);
  ASSERT_EQ(header.OtherMetaData().GetBinarizeSize(), 12u);
  EXPECT_EQ(header.OtherMetaData().GetData()[0], 5);
  EXPECT_EQ(header.OtherMetaData().GetData()[11], 16);
}

TEST(HeaderVersion4, DropsABlockThatIsNotThereAndKeepsThePreviousOne) {
  const struct {
    unsigned int offset, length;
    std::size_t size;
  } rows[] = {{0, 16, 399},          {1, 16, 400},         {0, 1, 384},  {0xFFFFFFFF, 1, 400},
              {0xFFFFFFF0, 16, 400}, {0, 0xFFFFFFFF, 400}, {400, 1, 400}};
  for (const auto& row : rows) {
    OpenHeader header;
    ASSERT_EQ(withBlock(0, 3, 387).parseInto(header), 0);
    EXPECT_EQ(withBlock(row.offset, row.length, row.size).parseInto(header), 0);
    EXPECT_EQ(header.number(97), 0) << row.offset << ", " << row.length;
    EXPECT_EQ(header.number(98), row.offset);
    EXPECT_EQ(header.OtherMetaData().GetBinarizeSize(), 3u);
  }
}

TEST(HeaderVersion4, OfNoBlockLengthLeavesTheBlockAlone) {
  OpenHeader header;
  ASSERT_EQ(withBlock(0, 3, 387).parseInto(header), 0);
  EXPECT_EQ(withBlock(0, 0, 400).parseInto(header), 0);
  EXPECT_EQ(header.OtherMetaData().GetBinarizeSize(), 3u);
}

TEST(HeaderVersions1And2, CorrectTheReferencePixelsOfKnownSensors) {
  for (const cameras::Camera& camera : cameras::all) {
    const char* const model = camera.model != nullptr ? camera.model : "UNKNOWN";
    for (const unsigned int version : versions) {
      OpenHeader header;
      ASSERT_EQ(
          HeaderBytes(version).fill(8, 48, 0).text(8, model).put(96, 1, 9).put(97, 1, 7).parseInto(header),
          0);
      const auto expected = [version](int known, double stated) {
        return version <= 2 && known != cameras::asStated ? known : stated;
      };
      EXPECT_EQ(header.number(71), expected(camera.pre, 7)) << model << ", version " << version;
      EXPECT_EQ(header.number(70), expected(camera.post, 9)) << model << ", version " << version;
    }
  }
}

TEST(HeaderVersions1And2, CorrectTheReferencePixelsOnRequestToo) {
  for (const unsigned int version : {0u, 1u, 2u, 3u, 4u, 5u}) {
    OpenHeader header;
    header.setText(11, "VS6060").set(2, version).set(70, 9).set(71, 7).FixRefPixels();
    const bool early = version == 1 || version == 2;
    EXPECT_EQ(header.number(71), early ? 32 : 7) << version;
    EXPECT_EQ(header.number(70), early ? 24 : 9) << version;
  }
}

TEST(HeaderVersions1And2, LeaveTheReferencePixelsOfAFailedParse) {
  OpenHeader header;
  EXPECT_EQ(HeaderBytes(2).text(8, "VS6060   ").put(96, 2, 0x0907).resize(245).parseInto(header), -1);
  EXPECT_EQ(header.number(70), 9);
  EXPECT_EQ(header.number(71), 7);
}

// ---- Failures

TEST(TruncatedHeader, FailsAtEveryLength) {
  for (const unsigned int version : versions) {
    for (std::size_t size = 0; size < headerSize(version); ++size) {
      CFrameMetaData header;
      EXPECT_EQ(HeaderBytes(version).resize(size).parseInto(header), -1) << version << ", " << size;
    }
    CFrameMetaData header;
    EXPECT_EQ(HeaderBytes(version).parseInto(header), 0) << version;
  }
}

TEST(TruncatedHeader, KeepsWhatWasReadAndLeavesTheRest) {
  for (const unsigned int version : versions) {
    for (const NumberField& cut : numberFields(version)) {
      if (cut.offset < 79 || cut.offset >= 236) continue;
      OpenHeader header;
      HeaderBytes first(version), second(version);
      for (const NumberField& field : numberFields(version)) {
        first.put(field.offset, field.bytes, 1);
        second.put(field.offset, field.bytes, 2);
      }
      ASSERT_EQ(first.parseInto(header), 0);
      EXPECT_EQ(second.resize(cut.offset + cut.bytes - 1).parseInto(header), -1);
      for (const NumberField& field : numberFields(version))
        EXPECT_EQ(header.number(field.key), field.offset < cut.offset ? 2 : 1)
            << "version " << version << ", cut in " << cut << ", " << field;
    }
  }
}

TEST(TruncatedHeader, StillDerivesTheFlagsFromTheBytesItHolds) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(3).put(98, 1, 0x22).put(140, 1, 0x94).put(231, 1, 0x40).parseInto(header), 0);
  for (const int key : {40, 3, 18})
    header.setBool(key, false);
  header.set(73, 0).setBool(92, true);
  EXPECT_EQ(HeaderBytes(3).resize(90).parseInto(header), -1);
  EXPECT_TRUE(header.flag(40));
  EXPECT_TRUE(header.flag(3));
  EXPECT_TRUE(header.flag(18));
  EXPECT_FALSE(header.flag(92));
  EXPECT_EQ(header.number(73), 0x14);

  OpenHeader early;
  early.set(5, 8);
  EXPECT_EQ(HeaderBytes(1).resize(90).parseInto(early), -1);
  EXPECT_TRUE(early.flag(61));
}

TEST(TruncatedHeader, WithoutAVersionIsParsedAsTheVersionThatIsHeld) {
  // Seven bytes: magic and length are read, the version is not; held is 1, whose first text then fails.
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(1).parseInto(header), 0);
  header.set(5, 8).setBool(61, false);
  EXPECT_EQ(HeaderBytes(3).put(4, 2, 0x0102).resize(7).parseInto(header), -1);
  EXPECT_EQ(header.number(1), 0x0102);
  EXPECT_EQ(header.number(2), 1);
  EXPECT_TRUE(header.flag(61)) << "the flag rule of version 1 was applied";
  EXPECT_EQ(HeaderBytes(3).resize(5).parseInto(header), -1);
  EXPECT_EQ(header.number(1), 0) << "an unread length is 0";
}

TEST(TruncatedHeader, EmptiesATextThatIsCut) {
  OpenHeader header;
  header.setText(11, "previous");
  EXPECT_EQ(HeaderBytes(2).resize(47).parseInto(header), -1);
  EXPECT_EQ(header.text(11), "");
}

TEST(HeaderVersion2, ReadsTheSerialNumberOnlyWhen24BytesRemain) {
  OpenHeader header;
  header.setText(75, "previous");
  EXPECT_EQ(HeaderBytes(2)
                .put(48, 4, 0x01020304)
                .put(52, 2, 0xFFFE)
                .put(54, 1, 5)
                .put(55, 1, 6)
                .resize(71)
                .parseInto(header),
            -1);
  EXPECT_EQ(header.text(75), "previous");
  EXPECT_EQ(header.number(89), 0x01020304) << "the firmware version is read from the same position";
  EXPECT_EQ(header.number(78), -2);
  EXPECT_EQ(header.number(16), 5);
  EXPECT_EQ(header.number(72), 6);

  EXPECT_EQ(HeaderBytes(2).text(48, "24 characters of serial!").resize(72).parseInto(header), -1);
  EXPECT_EQ(header.text(75), "24 characters of serial!");
}

TEST(HeaderVersion1, SkipsAShortSerialNumberToo) {
  OpenHeader header;
  header.setText(75, "previous");
  EXPECT_EQ(
      HeaderBytes(1).put(48, 2, 21 << 9 | 11 << 5 | 30).put(50, 5, 20000000).resize(55).parseInto(header),
      -1);
  EXPECT_EQ(header.text(75), "previous");
  EXPECT_EQ(header.number(12), 2021 * 65536 + 11 * 256 + 30);
  EXPECT_EQ(header.number(13), 2);
}

TEST(HeaderInfoTexts, AreReadOnlyWhen12BytesRemain) {
  for (const unsigned int version : {2u, 3u}) {
    OpenHeader header;
    HeaderBytes bytes(version);
    bytes.put(190, 1, 11).put(191, 1, 12).put(192, 3, 13).put(195, 2, 14).put(197, 4, 0xFFFFFFFF);
    EXPECT_EQ(bytes.resize(201).parseInto(header), -1);
    EXPECT_EQ(header.text(88), "Unknown");
    EXPECT_EQ(header.text(87), "Unknown");
    EXPECT_EQ(header.number(43), 11) << "the pixel size is read from the same position";
    EXPECT_EQ(header.number(91), 12);
    EXPECT_EQ(header.number(9), 13);
    EXPECT_EQ(header.number(10), 14);
    EXPECT_EQ(header.number(63), version == 3 ? -1 : 0);

    EXPECT_EQ(HeaderBytes(version).text(190, "application!").put(202, 1, 21).resize(213).parseInto(header),
              -1);
    EXPECT_EQ(header.text(88), "application!");
    EXPECT_EQ(header.text(87), "Unknown");
    EXPECT_EQ(header.number(43), 21);
  }
}

TEST(HeaderVersion3, CarriesOnWithTheCommonBlockAfterAFailureBeforeIt) {
  for (const unsigned int version : {3u, 4u}) {
    OpenHeader header;
    header.set(89, 77);
    // Three bytes behind the model: no serial number, no firmware version; the common block takes two.
    EXPECT_EQ(HeaderBytes(version).put(48, 3, 0x0C1B05).resize(51).parseInto(header), -1);
    EXPECT_EQ(header.number(89), 77);
    EXPECT_EQ(header.number(72), 0x0C);
    EXPECT_EQ(header.number(19), 12);
    EXPECT_EQ(header.number(20), 1);
    // One byte behind the firmware version: no set point.
    EXPECT_EQ(HeaderBytes(version).put(76, 1, 0x0E).resize(77).parseInto(header), -1);
    EXPECT_EQ(header.number(72), 0x0E);
  }
  OpenHeader second;
  EXPECT_EQ(HeaderBytes(2).put(48, 3, 0x0C1B05).resize(51).parseInto(second), -1);
  EXPECT_EQ(second.number(72), 0) << "version 2 stops there";
  OpenHeader cutModel;
  EXPECT_EQ(HeaderBytes(3).resize(47).parseInto(cutModel), -1);
  EXPECT_EQ(cutModel.number(72), 0) << "a failure before offset 48 stops version 3 too";
}

// ---- The header as received

TEST(RawHeaderStore, HoldsTheStatedLength) {
  OpenHeader header;
  HeaderBytes bytes(3);
  bytes.fill(232, 384, 7).resize(2000).fill(384, 2000, 8);
  ASSERT_EQ(bytes.parseInto(header), 0);
  EXPECT_EQ(std::memcmp(header.m_RawHeader, bytes.bytes().data(), 384), 0);
  EXPECT_EQ(header.m_RawHeader[384], 0);
}

TEST(RawHeaderStore, HoldsUpTo1024BytesWhenNoOrAGreaterLengthIsStated) {
  for (const unsigned int stated : {0u, 1024u, 1025u, 0xFFFFu}) {
    OpenHeader header;
    HeaderBytes bytes(3);
    bytes.put(4, 2, stated).resize(2000).fill(384, 2000, 8);
    ASSERT_EQ(bytes.parseInto(header), 0);
    EXPECT_EQ(std::memcmp(header.m_RawHeader, bytes.bytes().data(), 1024), 0) << stated;
  }
}

TEST(RawHeaderStore, HoldsNoMoreThanTheBytesGivenAlsoOfAFailedParse) {
  OpenHeader header;
  HeaderBytes bytes(3);
  bytes.resize(100);
  ASSERT_EQ(bytes.parseInto(header), -1);
  EXPECT_EQ(std::memcmp(header.m_RawHeader, bytes.bytes().data(), 100), 0);
  EXPECT_EQ(header.m_RawHeader[100], 0);
}

TEST(RawHeaderStore, IsFilledAfterTheParseSoItsSignBitsAreCleared) {
  OpenHeader header;
  HeaderBytes(3).put(106, 2, 0x812C).parseInto(header);
  EXPECT_EQ(header.number(77), -300);
  EXPECT_EQ(header.m_RawHeader[106], 0x01);
  EXPECT_EQ(header.m_RawHeader[107], 0x2C);
}

// ---- Files

class HeaderFile {
 public:
  explicit HeaderFile(const void* bytes, std::size_t size) : m_File(std::tmpfile()) {
    std::fwrite(bytes, 1, size, m_File);
  }
  explicit HeaderFile(const HeaderBytes& bytes) : HeaderFile(bytes.bytes().data(), bytes.size()) {}
  HeaderFile(const HeaderFile&) = delete;
  HeaderFile& operator=(const HeaderFile&) = delete;
  ~HeaderFile() { std::fclose(m_File); }
  std::FILE* get() { return m_File; }

 private:
  std::FILE* m_File;
};

TEST(HeaderFromFile, IsParsedFromTheStartOfTheStream) {
  for (const unsigned int version : versions) {
    HeaderFile file(HeaderBytes(version).put(85, 4, 1234));
    OpenHeader header;
    header.m_bCaptureTimeValid = false;
    EXPECT_EQ(header.Parse(file.get()), 0);
    EXPECT_EQ(header.number(0), 0x4D657461);
    EXPECT_EQ(header.number(1), headerSize(version));
    EXPECT_EQ(header.number(2), version);
    EXPECT_EQ(header.number(22), 1234);
    EXPECT_TRUE(header.m_bCaptureTimeValid);
    EXPECT_EQ(std::ftell(file.get()), static_cast<long>(headerSize(version)));
    EXPECT_EQ(header.Parse(file.get()), 0) << "from the start again";
    meta_data_value_t value{};
    EXPECT_EQ(header.GetValueNext(value), 0);
  }
}

TEST(HeaderFromFile, CanCarryTheBlockOfVersion4) {
  HeaderFile file(withBlock(0, 16, 400).put(4, 2, 400));
  OpenHeader header;
  EXPECT_EQ(header.Parse(file.get()), 0);
  ASSERT_EQ(header.OtherMetaData().GetBinarizeSize(), 16u);
  EXPECT_EQ(header.OtherMetaData().GetData()[15], 16);
}

TEST(HeaderFromFile, CanBe1024BytesLong) {
  HeaderBytes bytes(3);
  bytes.put(4, 2, 1024).resize(1100).fill(384, 1100, 9);
  HeaderFile file(bytes);
  OpenHeader header;
  EXPECT_EQ(header.Parse(file.get()), 0);
  EXPECT_EQ(std::memcmp(header.m_RawHeader, bytes.bytes().data(), 1024), 0);
}

TEST(HeaderFromFile, OfMoreThan1024BytesIsRefusedAndTheStoreIsLeftAlone) {
  for (const unsigned int stated : {1025u, 0xFFFFu}) {
    HeaderBytes bytes(3);
    bytes.put(4, 2, stated).resize(70000).fill(384, 70000, 9);
    HeaderFile file(bytes);
    OpenHeader header;
    EXPECT_EQ(header.Parse(file.get()), -1);
    for (const unsigned char byte : header.m_RawHeader)
      ASSERT_EQ(byte, 0);
    EXPECT_EQ(header.number(72), 0);
  }
}

TEST(HeaderFromFile, ThatStatesFewerBytesThanItsPrefixFails) {
  for (unsigned int stated = 0; stated <= 8; ++stated) {
    HeaderFile file(HeaderBytes(3).put(4, 2, stated));
    OpenHeader header;
    EXPECT_EQ(header.Parse(file.get()), -1) << stated;
    EXPECT_EQ(header.text(11), "");
  }
}

TEST(HeaderFromFile, ThatIsCutYieldsZeroAndParsesNothing) {
  for (const std::size_t size : {8ul, 9ul, 200ul, 383ul}) {
    HeaderFile file(HeaderBytes(3).put(79, 1, 12).resize(size));
    OpenHeader header;
    header.m_bCaptureTimeValid = false;
    EXPECT_EQ(header.Parse(file.get()), 0) << size;
    EXPECT_EQ(header.number(72), 0);
    EXPECT_EQ(header.text(11), "");
    EXPECT_TRUE(header.m_bCaptureTimeValid);
  }
}

TEST(HeaderFromFile, ThatFailsToParseYieldsThat) {
  HeaderFile file(HeaderBytes(3).text(152, "no time"));
  CFrameMetaData header;
  EXPECT_EQ(header.Parse(file.get()), -1);
}

TEST(HeaderFromFile, ThatIsNeitherAFrameNorFitsYieldsZero) {
  CFrameMetaData header;
  meta_data_value_t value{};
  header.GetValue(ORVA_META_KEY_HDR_MODE, value);
  HeaderFile other("neither of the two", 18);
  EXPECT_EQ(header.Parse(other.get()), 0);
  EXPECT_EQ(header.GetValueNext(value), 0);
  HeaderFile tiny("Meta", 4);
  EXPECT_EQ(header.Parse(tiny.get()), 0);
  HeaderFile empty("", 0);
  EXPECT_EQ(header.Parse(empty.get()), 0);
}

TEST(HeaderFromFile, ThatCannotBePositionedYieldsZero) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::FILE* const stream = fdopen(ends[0], "rb");
  CFrameMetaData header;
  EXPECT_EQ(header.Parse(stream), 0);
  std::fclose(stream);
  close(ends[1]);
}

TEST(HeaderFromFile, CanBeFits) {
  const std::string bytes = fitsHeader();
  HeaderFile file(bytes.data(), bytes.size());
  OpenHeader header;
  EXPECT_EQ(header.Parse(file.get()), 0);
  EXPECT_EQ(header.text(11), "VESTRA VS400");
  EXPECT_EQ(header.number(22), 1234.0);
}

// ---- Life cycle

void expectEmptyHeader(const OpenHeader& header, double blackLevelHigh) {
  for (int key = 0; key < 100; ++key) {
    double expected = 0.0;
    std::string text;
    if (key == 0) expected = 0x4D657461;
    if (key == 5 || key == 6 || key == 43 || key == 91) expected = 1.0;
    if (key == 9 || key == 10) expected = blackLevelHigh;
    if (key == 87 || key == 88) text = "Unknown";
    EXPECT_EQ(header.number(key), expected) << key;
    EXPECT_EQ(header.text(key), text) << key;
    EXPECT_EQ(header.kind(key) == 5, key == 11 || key == 75 || key == 87 || key == 88) << key;
  }
  EXPECT_EQ(header.number(OpenHeader::controlBlockTest), 255);
  EXPECT_EQ(header.number(OpenHeader::controlBlock), 0);
  EXPECT_EQ(header.number(OpenHeader::controlBlock2), 0);
  EXPECT_EQ(header.number(OpenHeader::extraFlags), 0);
  EXPECT_TRUE(header.m_bCaptureTimeValid);
  EXPECT_EQ(header.OtherMetaData().GetBinarizeSize(), 0u);
  const auto isZero = [](const auto& area) {
    for (const auto element : area)
      if (element != 0) return false;
    return true;
  };
  EXPECT_TRUE(isZero(header.m_CaptureTimeText));
  EXPECT_TRUE(isZero(header.m_Padding));
  EXPECT_TRUE(isZero(header.m_Reserved1));
  EXPECT_EQ(header.number(OpenHeader::reservedOfVersion2), 0);
  EXPECT_TRUE(isZero(header.m_RawHeader));
}

TEST(HeaderLifeCycle, StartsEmpty) {
  expectEmptyHeader(OpenHeader(), 0.0);
}

TEST(HeaderLifeCycle, ReInitializeEmptiesAllButTheHighGainBlackLevels) {
  OpenHeader header;
  for (const unsigned int version : versions) {
    HeaderBytes bytes(version);
    if (version == 1)
      bytes.fill(72, bytes.size(), 0x11);
    else
      bytes.fill(72, 152, 0x11).fill(182, bytes.size(), 0x11);
    if (version == 4) bytes.put(244, 4, 2).put(248, 4, 0).resize(386);
    ASSERT_EQ(bytes.parseInto(header), 0);
  }
  header.set(9, 5).set(10, 5).set(17, 0);
  header.m_bCaptureTimeValid = false;
  header.ReInitialize(false);
  expectEmptyHeader(header, 5.0);
}

TEST(HeaderLifeCycle, ReInitializeAsDefaultFrameDescribesASyntheticOne) {
  OpenHeader header;
  header.ReInitialize(true);
  EXPECT_EQ(header.number(1), 384);
  EXPECT_EQ(header.number(2), 3);
  EXPECT_EQ(header.text(11), "VESTRA VS4040");
  EXPECT_EQ(header.number(72), 16);
  EXPECT_EQ(header.number(19), 16);
  EXPECT_EQ(header.number(42), 4096);
  EXPECT_EQ(header.number(90), 4096);
  EXPECT_EQ(header.number(49), 0);
  EXPECT_EQ(header.number(50), 0);
  EXPECT_EQ(header.number(51), 4095);
  EXPECT_EQ(header.number(52), 4095);
  EXPECT_EQ(header.number(5), 1);
  EXPECT_TRUE(header.IsValid());
}

// ---- Field and byte readers

using FieldReader = int (*)(unsigned char*&, unsigned int&, CMetaValues&, unsigned int);

TEST(FieldReaders, ReadAndMoveOn) {
  const struct {
    FieldReader read;
    unsigned int n;
    double value;
  } rows[] = {{CFrameMetaData::ParseUint, 1, 0xFE},
              {CFrameMetaData::ParseUint, 4, 0xFEDCBA98},
              {CFrameMetaData::ParseInt, 1, -2},
              {CFrameMetaData::ParseInt, 3, -0x12346},  // 0xFEDCBA is 0x1000000 - 0x12346
              {CFrameMetaData::ParseUint64, 5, 0xFEDCBA9876},
              {CFrameMetaData::ParseInt64, 5, -0x123456789 - 1.0},
              {CFrameMetaData::ParseIntSignedMagnitude, 1, -0x7E},
              {CFrameMetaData::ParseIntSignedMagnitude, 4, -double{0x7EDCBA98}}};
  for (const auto& row : rows) {
    unsigned char bytes[] = {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
    unsigned char* position = bytes;
    unsigned int remaining = row.n + 1;
    CMetaValues value;
    EXPECT_EQ(row.read(position, remaining, value, row.n), 0);
    EXPECT_EQ(value.GetValueDouble(), row.value);
    EXPECT_EQ(position, bytes + row.n);
    EXPECT_EQ(remaining, 1u);
  }
}

TEST(FieldReaders, RefuseANullPositionAndTooFewBytes) {
  for (const FieldReader read :
       {CFrameMetaData::ParseUint, CFrameMetaData::ParseInt, CFrameMetaData::ParseUint64,
        CFrameMetaData::ParseInt64, CFrameMetaData::ParseIntSignedMagnitude, CFrameMetaData::ParseString}) {
    unsigned char bytes[] = {0xFF, 0xFF};
    CMetaValues value;
    value.SetValueUint(77);
    unsigned char* position = bytes;
    unsigned int remaining = 1;
    EXPECT_EQ(read(position, remaining, value, 2), -1);
    EXPECT_EQ(position, bytes);
    EXPECT_EQ(remaining, 1u);
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(value.IsStringValue(), read == CFrameMetaData::ParseString);  // a text is emptied first
    EXPECT_EQ(value.GetValueUint(), value.IsStringValue() ? 0u : 77u);
    position = nullptr;
    remaining = 10;
    EXPECT_EQ(read(position, remaining, value, 2), -1);
    EXPECT_EQ(position, nullptr);
    EXPECT_EQ(remaining, 10u);
  }
}

TEST(FieldReaders, OfAPositionNeedFourBytesAndFourTargets) {
  unsigned char bytes[] = {0x81, 0xC9, 0xC3, 0x80, 0};
  unsigned char* position = bytes;
  unsigned int remaining = 3;
  CMetaValues raw, degrees, minutes, hemisphere;
  EXPECT_EQ(CFrameMetaData::ParseGPSLocation(position, remaining, raw, degrees, minutes, hemisphere), -1);
  EXPECT_EQ(position, bytes);
  remaining = 5;
  EXPECT_EQ(CFrameMetaData::ParseGPSLocation(position, remaining, raw, degrees, minutes, hemisphere), 0);
  EXPECT_EQ(position, bytes + 4);
  EXPECT_EQ(remaining, 1u);
  EXPECT_EQ(raw.GetValueUint(), 0x81C9C380u);
  EXPECT_EQ(degrees.GetValueDouble(), 50.0);
  EXPECT_EQ(minutes.GetValueDouble(), 0.0);
  EXPECT_TRUE(hemisphere.GetValueBool());
}

TEST(ByteReaders, AreBigEndian) {
  const unsigned char bytes[] = {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
  EXPECT_EQ(CFrameMetaData::BufToUint32(bytes, 1), 0xFEu);
  EXPECT_EQ(CFrameMetaData::BufToUint32(bytes, 3), 0xFEDCBAu);
  EXPECT_EQ(CFrameMetaData::BufToUint32(bytes, 4), 0xFEDCBA98u);
  EXPECT_EQ(CFrameMetaData::BufToUint64(bytes, 8), 0xFEDCBA9876543210ul);
  EXPECT_EQ(CFrameMetaData::BufToInt32(bytes, 1), -2);
  EXPECT_EQ(CFrameMetaData::BufToInt32(bytes, 4), static_cast<int>(0xFEDCBA98u));
  EXPECT_EQ(CFrameMetaData::BufToInt32(bytes + 4, 2), 0x7654);
  EXPECT_EQ(CFrameMetaData::BufToInt64(bytes, 2), -0x124);
  EXPECT_EQ(CFrameMetaData::BufToInt64(bytes, 8), static_cast<long>(0xFEDCBA9876543210ul));
}

TEST(ByteReaders, ReadZeroFromNothing) {
  const unsigned char byte = 0xFF;
  EXPECT_EQ(CFrameMetaData::BufToUint32(nullptr, 4), 0u);
  EXPECT_EQ(CFrameMetaData::BufToUint32(&byte, 0), 0u);
  EXPECT_EQ(CFrameMetaData::BufToUint64(nullptr, 8), 0ul);
  EXPECT_EQ(CFrameMetaData::BufToUint64(&byte, 0), 0ul);
  EXPECT_EQ(CFrameMetaData::BufToInt32(nullptr, 4), 0);
  EXPECT_EQ(CFrameMetaData::BufToInt32(&byte, 0), 0);
  EXPECT_EQ(CFrameMetaData::BufToInt64(nullptr, 8), 0);
  EXPECT_EQ(CFrameMetaData::BufToInt64(&byte, 0), 0);
}

TEST(ByteReaders, SplitASignFromItsMagnitude) {
  int sign = 0;
  EXPECT_EQ(CFrameMetaData::CheckForSignMagnitude(0x85, &sign), 0x05);
  EXPECT_EQ(sign, -1);
  EXPECT_EQ(CFrameMetaData::CheckForSignMagnitude(0x75, &sign), 0x75);
  EXPECT_EQ(sign, 1);
  EXPECT_EQ(CFrameMetaData::CheckForSignMagnitude(0x85, nullptr), 0x85);
}

}  // namespace
