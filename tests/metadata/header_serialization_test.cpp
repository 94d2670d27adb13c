// Writing a header back to bytes, and marking it as processed.

#include <gtest/gtest.h>

#include <random>

#include "metadata/HeaderBytes.h"

namespace {

constexpr unsigned int writtenSize = 384;

/// What a header writes, into a heap block of exactly its size.
std::vector<unsigned char> written(CFrameMetaData& header, unsigned int size = writtenSize) {
  std::vector<unsigned char> bytes(size, 0xEE);
  EXPECT_EQ(header.Binarize(bytes.data(), size), 384);
  return bytes;
}

unsigned long wordAt(const std::vector<unsigned char>& bytes, std::size_t offset, unsigned int count) {
  unsigned long word = 0;
  for (unsigned int i = 0; i < count; ++i)
    word = word * 256 + bytes.at(offset + i);
  return word;
}

std::string textAt(const std::vector<unsigned char>& bytes, std::size_t offset, std::size_t count) {
  return std::string(bytes.begin() + static_cast<long>(offset),
                     bytes.begin() + static_cast<long>(offset + count));
}

std::string padded(const std::string& text, std::size_t width) {
  return text + std::string(width - text.size(), '\0');
}

// ---- The layout

TEST(WrittenHeader, NeedsABufferOf384Bytes) {
  CFrameMetaData header;
  std::vector<unsigned char> bytes(383, 0xEE);
  EXPECT_EQ(header.Binarize(bytes.data(), 383), -1);
  EXPECT_EQ(bytes, std::vector<unsigned char>(383, 0xEE));
  EXPECT_EQ(header.Binarize(nullptr, 384), -1);
}

TEST(WrittenHeader, ClearsTheRestOfTheBuffer) {
  CFrameMetaData header;
  const std::vector<unsigned char> bytes = written(header, 500);
  EXPECT_EQ(textAt(bytes, 384, 116), std::string(116, '\0'));
}

TEST(WrittenHeader, IsAlwaysVersion4Of384Bytes) {
  OpenHeader header;
  header.set(0, 0x01020304).set(1, 999).set(2, 2);
  const auto bytes = written(header);
  EXPECT_EQ(wordAt(bytes, 0, 4), 0x01020304u);
  EXPECT_EQ(wordAt(bytes, 4, 2), 384u);
  EXPECT_EQ(wordAt(bytes, 6, 2), 4u);
  EXPECT_EQ(header.number(1), 999) << "what the object states stays";
  EXPECT_EQ(header.number(2), 2);
}

TEST(WrittenHeader, HasEveryNumberAtItsPlace) {
  for (const NumberField& field : numberFields(4)) {
    for (const unsigned int value : {0x8192A3B4u, 0x12345678u, 1u}) {
      OpenHeader header;
      header.ReInitialize(true);
      const auto before = written(header);
      const unsigned long word = value & field.mask();
      if (field.sign == Sign::None)
        header.set(field.key, value);
      else
        header.setInt(field.key, static_cast<int>(field.sign == Sign::Magnitude ? word & 0x7FFF : value));
      const auto after = written(header);
      EXPECT_EQ(wordAt(after, field.offset, field.bytes),
                field.sign == Sign::Magnitude ? word & 0x7FFF : word)
          << field;
      for (std::size_t i = 0; i < writtenSize; ++i)
        if (i < field.offset || i >= field.offset + field.bytes) {
          EXPECT_EQ(after[i], before[i]) << field << " also changed byte " << i;
        }
    }
  }
}

TEST(WrittenHeader, HasTheOtherTypeLength) {
  OpenHeader header;
  header.set(97, 0xA1B2C3D4);
  EXPECT_EQ(wordAt(written(header), 244, 4), 0xA1B2C3D4u);
}

TEST(WrittenHeader, HasTheChipTemperatureAsTwosComplementAlthoughItIsReadAsSignMagnitude) {
  OpenHeader header;
  header.ReInitialize(true);
  header.setInt(74, -300);
  EXPECT_EQ(wordAt(written(header), 91, 2), 0xFED4u);
}

TEST(WrittenHeader, HasDelaysAsSignAndMagnitude) {
  const struct {
    int key;
    std::size_t offset;
  } delays[] = {{77, 106}, {76, 108}, {45, 110}, {46, 112}};
  for (const auto& delay : delays) {
    OpenHeader header;
    EXPECT_EQ(wordAt(written(header.setInt(delay.key, -300)), delay.offset, 2), 0x812Cu);
    EXPECT_EQ(wordAt(written(header.setInt(delay.key, 300)), delay.offset, 2), 0x012Cu);
    EXPECT_EQ(wordAt(written(header.setInt(delay.key, 0)), delay.offset, 2), 0u);
    EXPECT_EQ(wordAt(written(header.setInt(delay.key, -32767)), delay.offset, 2), 0xFFFFu);
    // The magnitude of the smallest integer has no 32-bit form; its low 15 bits are zero.
    EXPECT_EQ(wordAt(written(header.setInt(delay.key, -2147483647 - 1)), delay.offset, 2), 0x8000u);
  }
}

TEST(WrittenHeader, PacksDepthsAndReferenceRows) {
  OpenHeader header;
  header.set(19, 12).set(20, 10).set(68, 0xABC).set(69, 0x123);
  const auto bytes = written(header);
  EXPECT_EQ(bytes[80], 0xAB);
  EXPECT_EQ(wordAt(bytes, 136, 3), 0xABC123u);
  EXPECT_EQ(written(header.set(19, 0).set(20, 0))[80], 0x0F)
      << "a depth of 0 becomes 15, as its low bits are";
  EXPECT_EQ(wordAt(written(header.set(68, 1).set(69, 0x1001)), 136, 3), 0x2001u) << "the halves are added";
}

TEST(WrittenHeader, HasTheKeptFlagBytes) {
  OpenHeader header;
  header.set(OpenHeader::controlBlock, 0xA5).set(OpenHeader::controlBlock2, 0x5A);
  header.set(OpenHeader::controlBlockTest, 0xC3).set(OpenHeader::extraFlags, 0x7E);
  header.setBool(40, true);  // a flag alone is not written
  const auto bytes = written(header);
  EXPECT_EQ(bytes[98], 0xA5);
  EXPECT_EQ(bytes[140], 0x5A);
  EXPECT_EQ(bytes[147], 0xC3);
  EXPECT_EQ(bytes[231], 0x7E);
}

TEST(WrittenHeader, PadsTextsWithZerosAndCutsThem) {
  OpenHeader header;
  header.setText(11, "VS400").setText(75, "SN");
  auto bytes = written(header);
  EXPECT_EQ(textAt(bytes, 8, 40), padded("VS400", 40));
  EXPECT_EQ(textAt(bytes, 48, 24), padded("SN", 24));
  header.setText(11, std::string(60, 'm')).setText(75, std::string(60, 's'));
  bytes = written(header);
  EXPECT_EQ(textAt(bytes, 8, 64), std::string(40, 'm') + std::string(24, 's'));
}

TEST(WrittenHeader, LeavesTextsWithoutBytesZero) {
  OpenHeader header;
  header.set(75, 12345);
  header.SetModelName(nullptr, 4);
  const auto bytes = written(header);
  EXPECT_EQ(textAt(bytes, 8, 64), std::string(64, '\0'));
}

TEST(WrittenHeader, NamesThisLibraryAndNoApplication) {
  OpenHeader header;
  header.setText(88, "application!").setText(87, "other library");
  const auto bytes = written(header);
  EXPECT_EQ(textAt(bytes, 190, 12), std::string(12, '\0'));
  EXPECT_EQ(textAt(bytes, 202, 12), padded("2.1.4", 12));
}

TEST(WrittenHeader, HasTheCaptureTimeTextAsReceived) {
  OpenHeader header;
  HeaderBytes(3).text(152, "2031/12/25 23:59:58.250000000!").parseInto(header);
  EXPECT_EQ(textAt(written(header), 152, 30), "2031/12/25 23:59:58.250000000!");
}

TEST(WrittenHeader, OfAHeaderThatWasNeverParsedHasNoCaptureTimeAndDoesNotParse) {
  OpenHeader header;
  header.ReInitialize(true);
  auto bytes = written(header);
  EXPECT_EQ(textAt(bytes, 152, 30), std::string(30, '\0'));
  OpenHeader again;
  EXPECT_EQ(again.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())), -1);
  EXPECT_FALSE(again.m_bCaptureTimeValid);
}

TEST(WrittenHeader, OfVersion1MakesTheCaptureTimeText) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(1).put(72, 2, 21 << 9 | 11 << 5 | 30).put(74, 5, 123456789012).parseInto(header), 0);
  // 12345 seconds are 3 h 25 min 45 s.
  EXPECT_EQ(textAt(written(header), 152, 30), padded("2021/11/30 03:25:45.678901200", 30));
}

TEST(WrittenHeader, CarriesThePaddingOfVersions2And3) {
  std::string counted(152, '\0');
  for (std::size_t i = 0; i < counted.size(); ++i)
    counted[i] = static_cast<char>(i + 1);
  OpenHeader second;
  ASSERT_EQ(HeaderBytes(2).text(221, counted.substr(0, 25)).parseInto(second), 0);
  std::string expected = padded(counted.substr(0, 25), 152);
  expected.replace(4, 16, std::string(16, '\0'));  // version 4 fields win over it
  EXPECT_EQ(textAt(written(second), 232, 152), expected);

  OpenHeader third;
  ASSERT_EQ(HeaderBytes(3).text(232, counted).parseInto(third), 0);
  expected = counted;
  expected.replace(4, 16, std::string(16, '\0'));
  EXPECT_EQ(textAt(written(third), 232, 152), expected);

  OpenHeader fourth;
  ASSERT_EQ(HeaderBytes(4).text(232, counted).put(244, 8, 0).parseInto(fourth), 0);
  expected = padded("", 4) + counted.substr(4, 8) + std::string(140, '\0');
  EXPECT_EQ(textAt(written(fourth), 232, 152), expected);
}

TEST(WrittenHeader, OfVersion2CarriesNoPaddingOfAnEarlierVersion3) {
  OpenHeader header;
  ASSERT_EQ(HeaderBytes(3).fill(232, 384, 8).parseInto(header), 0);
  ASSERT_EQ(HeaderBytes(2).fill(221, 246, 9).parseInto(header), 0);
  EXPECT_EQ(textAt(written(header), 252, 132), padded(std::string(5, '\x9'), 132));
}

TEST(WrittenHeader, ReadsBackAsItWas) {
  constexpr unsigned int seed = 20240102;
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
    HeaderBytes bytes(4);
    for (std::size_t i = 72; i < bytes.size(); ++i)
      if (i < 152 || i >= 182) bytes.put(i, 1, random() & 255);
    bytes.put(244, 4, 0);
    OpenHeader first;
    ASSERT_EQ(bytes.parseInto(first), 0);
    const double chip = first.number(74);
    if (chip < 0) first.setInt(74, 0);  // negative ones are written in another form than they are read

    HeaderBytes again(4);
    const auto out = written(first);
    again.text(0, textAt(out, 0, out.size()));
    OpenHeader second;
    ASSERT_EQ(again.parseInto(second), 0);
    for (int key = 0; key < 100; ++key) {
      if (key == 87 || key == 88) continue;
      EXPECT_EQ(second.number(key), first.number(key)) << key;
      EXPECT_EQ(second.text(key), first.text(key)) << key;
      EXPECT_EQ(second.kind(key), first.kind(key)) << key;
    }
  }
}

// ---- The block behind the header

TEST(WrittenHeaderWithBlock, CarriesTheGivenBlock) {
  OpenHeader header;
  header.set(96, 7);
  std::vector<unsigned char> bytes(384 + 5 + 2, 0xEE);
  const unsigned char block[] = {1, 2, 3, 4, 5};
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 391, block, 5), 384);
  EXPECT_EQ(wordAt(bytes, 244, 4), 5u);
  EXPECT_EQ(bytes[243], 7) << "the type stays the header's";
  EXPECT_EQ(textAt(bytes, 384, 7), std::string("\1\2\3\4\5\0\0", 7));
  EXPECT_EQ(header.number(97), 5);
}

TEST(WrittenHeaderWithBlock, CarriesTheStoredBlockOtherwise) {
  OpenHeader header;
  header.m_OtherMetaData.SetData("stored", 6, 42);
  header.set(96, 7).set(97, 99);
  std::vector<unsigned char> bytes(390, 0xEE);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 390, nullptr, 99), 384);
  EXPECT_EQ(bytes[243], 42);
  EXPECT_EQ(wordAt(bytes, 244, 4), 6u);
  EXPECT_EQ(textAt(bytes, 384, 6), "stored");

  HeaderBytes again(4);
  again.resize(390).text(0, textAt(bytes, 0, 390));
  OpenHeader parsed;
  again.text(152, "2024/01/02 03:04:05.500000000");
  ASSERT_EQ(again.parseInto(parsed), 0);
  EXPECT_EQ(parsed.OtherMetaData().GetType(), 42u);
  ASSERT_EQ(parsed.OtherMetaData().GetBinarizeSize(), 6u);
  EXPECT_EQ(std::memcmp(parsed.OtherMetaData().GetData(), "stored", 6), 0);
}

TEST(WrittenHeaderWithBlock, IsTheHeaderAloneWhenThereIsNoBlock) {
  OpenHeader header;
  header.set(96, 7).set(97, 99);
  std::vector<unsigned char> bytes(384, 0xEE);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 384, nullptr, 0), 384);
  EXPECT_EQ(bytes[243], 0);
  EXPECT_EQ(wordAt(bytes, 244, 4), 0u);
  const unsigned char block = 1;
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 384, &block, 0), 384);
}

TEST(WrittenHeaderWithBlock, LeavesTheRoomOfAGivenBlockToTheCaller) {
  OpenHeader header;
  const unsigned char block[] = {1, 2, 3, 4, 5};
  for (const unsigned int size : {384u, 386u, 389u}) {
    std::vector<unsigned char> bytes(390, 0xEE);
    EXPECT_EQ(header.BinarizeEx(bytes.data(), size, block, 5), 384) << size;
    EXPECT_EQ(textAt(bytes, 384, 6), "\1\2\3\4\5\xEE") << size;
    EXPECT_EQ(wordAt(bytes, 244, 4), 5u);
  }
}

TEST(WrittenHeaderWithBlock, WritesNothingWhereAStoredBlockDoesNotFit) {
  OpenHeader header;
  header.m_OtherMetaData.SetData("stored", 6, 42);
  std::vector<unsigned char> bytes(389, 0xEE);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 389, nullptr, 0), -1);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 384, nullptr, 0), -1);
  EXPECT_EQ(bytes, std::vector<unsigned char>(389, 0xEE));
}

TEST(WrittenHeaderWithBlock, NeedsABufferOf384Bytes) {
  OpenHeader header;
  const unsigned char block[16] = {};
  std::vector<unsigned char> bytes(383, 0xEE);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 383, block, 16), -1);
  EXPECT_EQ(header.BinarizeEx(bytes.data(), 383, nullptr, 0), -1);
  EXPECT_EQ(header.BinarizeEx(nullptr, 400, block, 16), -1);
  EXPECT_EQ(header.BinarizeEx(nullptr, 400, nullptr, 0), -1);
  EXPECT_EQ(bytes, std::vector<unsigned char>(383, 0xEE));
}

TEST(WrittenHeaderSize, IsTheStatedLengthPlusTheStoredBlock) {
  OpenHeader header;
  header.set(1, 246);
  header.m_OtherMetaData.SetData("stored", 6, 42);
  EXPECT_EQ(header.GetBinarizeSize(), 246u);
  EXPECT_EQ(header.GetBinarizeSizeEx(), 252u);
}

TEST(WrittenHeaderVersion, CanBe3Or4) {
  for (const unsigned int version : {0u, 1u, 2u, 3u, 4u, 5u}) {
    OpenHeader header;
    header.set(1, 77).set(2, 1);
    header.SetBinarizeVersion(version);
    const bool accepted = version == 3 || version == 4;
    EXPECT_EQ(header.number(1), accepted ? 384 : 77) << version;
    EXPECT_EQ(header.number(2), accepted ? version : 1) << version;
  }
}

// ---- Marking as processed

TEST(HeaderMarks, KeepFlagAndByteInAgreement) {
  using Setter = void (CFrameMetaData::*)(bool);
  const struct {
    Setter set;
    int key;
    int byte;
    unsigned int mask;
    bool whenClear;
  } rows[] = {
      {&CFrameMetaData::SetHDRFrame, 40, OpenHeader::controlBlock, 0x20, false},
      {&CFrameMetaData::SetPixelEndianFormat, 67, OpenHeader::controlBlock, 0x40, false},
      {&CFrameMetaData::SetIsHighFrame, 56, OpenHeader::controlBlockTest, 0x20, true},
      {&CFrameMetaData::SetIsMergedFrame, 58, OpenHeader::controlBlockTest, 0x10, true},
      {&CFrameMetaData::SetIsStackedFrame, 60, OpenHeader::controlBlockTest, 0x40, true},
  };
  for (const auto& row : rows) {
    for (const bool value : {true, false}) {
      for (const unsigned int before : {0x00u, 0xFFu}) {
        OpenHeader header;
        header.set(row.byte, before);
        (header.*row.set)(value);
        EXPECT_EQ(header.flag(row.key), value) << row.key;
        const unsigned int expected = value != row.whenClear ? before | row.mask : before & (0xFF ^ row.mask);
        EXPECT_EQ(header.number(row.byte), expected) << row.key << ", " << value << ", " << before;
      }
    }
  }
}

TEST(HeaderMarks, BitsPerPixelAreThoseOfSensorAndData) {
  OpenHeader header;
  header.SetBitsPerPixel(14);
  EXPECT_EQ(header.number(72), 14);
  EXPECT_EQ(header.number(19), 14);
}

TEST(HeaderMarks, NamesAreCutAndNullIsIgnored) {
  const std::string text(50, 'a');
  OpenHeader header;
  header.SetModelName(text.data(), 50);
  header.SetSerialNumber(text.data(), 50);
  EXPECT_EQ(header.text(11), std::string(40, 'a'));
  EXPECT_EQ(header.text(75), std::string(24, 'a'));
  header.SetModelName("VS400 mono", 5);
  header.SetSerialNumber("SN-17", 2);
  header.SetModelName(nullptr, 3);
  header.SetSerialNumber(nullptr, 3);
  EXPECT_EQ(header.text(11), "VS400");
  EXPECT_EQ(header.text(75), "SN");
  header.SetModelName("", 0);
  EXPECT_EQ(header.text(11), "");
}

TEST(HeaderMarks, DimensionsAreSizeAndInclusiveRegion) {
  OpenHeader header;
  header.SetDimensions(10, 20, 100, 50);
  EXPECT_EQ(header.number(42), 100);
  EXPECT_EQ(header.number(90), 50);
  EXPECT_EQ(header.number(49), 10);
  EXPECT_EQ(header.number(51), 109);
  EXPECT_EQ(header.number(50), 20);
  EXPECT_EQ(header.number(52), 69);
  header.SetDimensions(10, 20, 0, 50);
  header.SetDimensions(10, 20, 50, 0);
  EXPECT_EQ(header.number(42), 100);
  EXPECT_EQ(header.number(52), 69);
  header.SetDimensions(8, 4);
  EXPECT_EQ(header.number(49), 0);
  EXPECT_EQ(header.number(50), 0);
  EXPECT_EQ(header.number(51), 7);
  EXPECT_EQ(header.number(52), 3);
}

// ---- Values from text

TEST(ValuesFromText, AreTextsForTheFourTextKeys) {
  OpenHeader header;
  for (const int key : {11, 75, 87, 88}) {
    header.SetValue(static_cast<ORVA_META_KEYS>(key), "12.5 is text");
    EXPECT_EQ(header.text(key), "12.5 is text") << key;
  }
}

TEST(ValuesFromText, AreNumbersForAllOtherKeys) {
  for (int key = 0; key < 100; ++key) {
    if (key == 11 || key == 12 || key == 75 || key == 87 || key == 88) continue;
    OpenHeader header;
    header.SetValue(static_cast<ORVA_META_KEYS>(key), " -12.5 and more");
    EXPECT_EQ(header.number(key), -12.5) << key;
    EXPECT_EQ(header.kind(key), 4u) << key;
    header.SetValue(static_cast<ORVA_META_KEYS>(key), "none");
    EXPECT_EQ(header.number(key), 0.0) << key;
  }
}

TEST(ValuesFromText, DoNotFollowTheLocale) {
  const ScopedLocale german("de_DE.UTF-8");
  OpenHeader header;
  header.SetValue(ORVA_META_KEY_EXPOSURE_TIME, "1.25");
  EXPECT_EQ(header.number(22), 1.25);
}

TEST(ValuesFromText, OfKeysAbove99AreIgnored) {
  OpenHeader header;
  header.SetValue(static_cast<ORVA_META_KEYS>(100), "5");
  header.SetValue(static_cast<ORVA_META_KEYS>(0xFFFFFFFF), "5");
  for (int key = 0; key < 100; ++key)
    EXPECT_NE(header.number(key), 5.0) << key;
}

TEST(ValuesFromText, OfTheCaptureDateSetTheTimeToo) {
  OpenHeader header;
  header.SetValue(ORVA_META_KEY_CAPTURE_DATE, "2024/01/02 03:04:05.000000006");
  EXPECT_EQ(header.number(12), 2024 * 65536 + 1 * 256 + 2);
  EXPECT_EQ(header.kind(12), 0u);
  EXPECT_EQ(header.number(13), 11045.0);
  EXPECT_NEAR(header.number(14), 6.0, 0.01);
  EXPECT_TRUE(header.m_bCaptureTimeValid);
}

TEST(ValuesFromText, ThatAreNoCaptureDateStayATextAndMarkTheTime) {
  for (const char* text :
       {"2024/01/02", "", "2024-01-02T03:04:0x.000000006", " 024/01/02 03:04:05.000000006"}) {
    OpenHeader header;
    header.setDouble(13, 5.0);
    header.SetValue(ORVA_META_KEY_CAPTURE_DATE, text);
    EXPECT_EQ(header.text(12), text);
    EXPECT_EQ(header.kind(12), 5u);
    EXPECT_EQ(header.number(13), 5.0);
    EXPECT_FALSE(header.m_bCaptureTimeValid) << text;
  }
}

TEST(WrittenHeader, TakesNumbersThatCameAsText) {
  OpenHeader header;
  header.SetValue(ORVA_META_KEY_EXPOSURE_TIME, "1e300");
  header.SetValue(ORVA_META_KEY_FRAME_NUMBER, "-3");
  header.SetValue(ORVA_META_KEY_BASE_TEMPERATURE, "-3.9");
  header.SetValue(ORVA_META_KEY_SHUTTER_OPEN_DELAY, "-1e300");
  const auto bytes = written(header);
  EXPECT_EQ(wordAt(bytes, 85, 4), 0xFFFFFFFFu);
  EXPECT_EQ(wordAt(bytes, 132, 2), 0u);
  EXPECT_EQ(wordAt(bytes, 141, 2), 0xFFFDu);
  EXPECT_EQ(wordAt(bytes, 106, 2), 0x8000u);
}

// ---- Byte writers

TEST(ByteWriters, StoreTheLowBytesBigEndian) {
  for (unsigned int n = 0; n <= 9; ++n) {
    std::vector<unsigned char> narrow(10, 0xEE), wide(10, 0xEE), expectedNarrow(10, 0xEE),
        expectedWide(10, 0xEE);
    for (unsigned int i = 0; i < n; ++i) {
      if (n <= 4) expectedNarrow[n - 1 - i] = static_cast<unsigned char>(0x89ABCDEF >> (8 * i));
      if (n <= 8) expectedWide[n - 1 - i] = static_cast<unsigned char>(0x0123456789ABCDEF >> (8 * i));
    }
    CFrameMetaData::Uint32ToBuf(0x89ABCDEF, narrow.data(), n);
    CFrameMetaData::Uint64ToBuf(0x0123456789ABCDEF, wide.data(), n);
    EXPECT_EQ(narrow, expectedNarrow) << n;
    EXPECT_EQ(wide, expectedWide) << n;
  }
  CFrameMetaData::Uint32ToBuf(1, nullptr, 4);
  CFrameMetaData::Uint64ToBuf(1, nullptr, 8);
}

}  // namespace
