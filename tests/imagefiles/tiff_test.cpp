// TIFF headers and files, byte by byte.

#include <gtest/gtest.h>
#include <orvacam/imagefiles/CTiffMaker.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "imagefiles/ImageFileTesting.h"

namespace {

constexpr unsigned int blockSize = 656;

class Tiff : public CTiffMaker {
 public:
  using CTiffMaker::m_pTags;
  using CTiffMaker::m_uiCursor;
  using CTiffMaker::m_uiNumTags;

  std::vector<int> tags() const {
    std::vector<int> numbers;
    for (const _tiff_tag_complete_t* node = m_pTags; node != nullptr; node = node->pNext)
      numbers.push_back(node->tag.usTag);
    return numbers;
  }
};

using Bytes = std::vector<unsigned char>;

/// A naive reader of the block.
struct Block {
  explicit Block(Bytes content) : bytes(std::move(content)), bigEndian(bytes[0] == 'M') {}

  unsigned int number(std::size_t at, unsigned int size) const {
    unsigned int value = 0;
    for (unsigned int i = 0; i < size; ++i)
      value |= static_cast<unsigned int>(bytes[at + i]) << 8 * (bigEndian ? size - 1 - i : i);
    return value;
  }

  struct Entry {
    unsigned int type;
    unsigned int count;
    std::size_t valueAt;
  };
  std::map<unsigned int, Entry> entries() const {
    std::map<unsigned int, Entry> all;
    const unsigned int directory = number(4, 4);
    for (unsigned int i = 0; i < number(directory, 2); ++i) {
      const std::size_t at = directory + 2 + 12 * i;
      all[number(at, 2)] = {number(at + 2, 2), number(at + 4, 4), at + 8};
    }
    return all;
  }

  Bytes bytes;
  bool bigEndian;
};

Bytes binarized(const CTiffMaker& tiff, bool bigEndian) {
  Bytes bytes(blockSize + 1, 0xEE);
  EXPECT_EQ(tiff.Binarize(bytes.data(), blockSize, bigEndian), 656);
  EXPECT_EQ(bytes.back(), 0xEE);
  bytes.pop_back();
  return bytes;
}

// ---- The list of tags

TEST(TiffTags, StartWithThoseOfEveryFile) {
  Tiff tiff;
  EXPECT_EQ(tiff.tags(), (std::vector<int>{254, 258, 259, 262, 273, 277}));
  EXPECT_EQ(tiff.m_uiNumTags, 6U);
  EXPECT_EQ(tiff.m_uiCursor, 400U);
  EXPECT_EQ(tiff.FindTag(273)->tag.uiValue, 656U);
  EXPECT_EQ(tiff.InitTags(384), 0);
  EXPECT_EQ(tiff.FindTag(273)->tag.uiValue, 1040U);
  EXPECT_EQ(tiff.FindTag(258)->tag.uiValue, 16U);
  EXPECT_EQ(tiff.tags(), (std::vector<int>{254, 258, 259, 262, 273, 277}));
}

TEST(TiffTags, CanBeCleared) {
  Tiff tiff;
  const unsigned int words[] = {1, 2, 3};
  EXPECT_EQ(tiff.AddTag({300, TIFF_TAGTYPE_LONG, 3, 0}, words, 3), 0);
  tiff.ClearTags();
  EXPECT_EQ(tiff.m_pTags, nullptr);
  EXPECT_EQ(tiff.m_uiNumTags, 0U);
  EXPECT_EQ(tiff.m_uiCursor, 400U);
  EXPECT_EQ(tiff.FindTag(254), nullptr);
  tiff.ClearTags();
}

TEST(TiffTags, AreSortedBehindTheFirst) {
  Tiff tiff;
  tiff.ClearTags();
  constexpr unsigned short added[] = {300, 100, 300, 200, 400};
  for (const unsigned short tag : added)
    EXPECT_EQ(tiff.AddTag({tag, TIFF_TAGTYPE_SHORT, 1, 0}, nullptr, 0), 0);
  EXPECT_EQ(tiff.tags(), (std::vector<int>{300, 100, 200, 300, 400}));
}

TEST(TiffTags, OfTheSameNumberKeepTheirOrder) {
  Tiff tiff;
  tiff.AddTag({300, TIFF_TAGTYPE_LONG, 1, 11}, nullptr, 0);
  tiff.AddTag({300, TIFF_TAGTYPE_LONG, 1, 22}, nullptr, 0);
  EXPECT_EQ(tiff.FindTag(300)->tag.uiValue, 11U);
  EXPECT_EQ(tiff.FindTag(300)->pNext->tag.uiValue, 22U);
}

TEST(TiffTags, AreAtMost31) {
  Tiff tiff;
  for (unsigned short tag = 1000; tiff.m_uiNumTags < 31; ++tag)
    EXPECT_EQ(tiff.AddTag({tag, TIFF_TAGTYPE_SHORT, 1, tag}, nullptr, 0), 0);
  EXPECT_EQ(tiff.AddTag({2000, TIFF_TAGTYPE_SHORT, 1, 0}, nullptr, 0), -1);
  EXPECT_EQ(tiff.SetTag(2000, TIFF_TAGTYPE_LONG, 1), -1);
  EXPECT_EQ(tiff.tags().size(), 31U);
  EXPECT_EQ(tiff.SetTag(1000, TIFF_TAGTYPE_LONG, 1), 0);  // one that exists can still be set
}

TEST(TiffTags, OfTheImageStopAtTheFirstThatCannotBeAdded) {
  Tiff tiff;
  for (unsigned short tag = 1000; tiff.m_uiNumTags < 29; ++tag)
    tiff.AddTag({tag, TIFF_TAGTYPE_SHORT, 1, tag}, nullptr, 0);
  EXPECT_EQ(tiff.SetImageDimensions(10, 20), -1);
  EXPECT_NE(tiff.FindTag(256), nullptr);
  EXPECT_NE(tiff.FindTag(257), nullptr);
  EXPECT_EQ(tiff.FindTag(278), nullptr);
  EXPECT_EQ(tiff.FindTag(279), nullptr);
  EXPECT_EQ(tiff.SetPixelSize(1, 1), -1);
  EXPECT_EQ(tiff.SetPageNumber(1), -1);
}

TEST(TiffTags, CanBeSetAgain) {
  Tiff tiff;
  EXPECT_EQ(tiff.SetTag(258, TIFF_TAGTYPE_LONG, 70000), 0);
  EXPECT_EQ(tiff.FindTag(258)->tag.usType, TIFF_TAGTYPE_LONG);
  EXPECT_EQ(tiff.FindTag(258)->tag.uiValue, 70000U);
  EXPECT_EQ(tiff.FindTag(258)->tag.uiCount, 1U);
  EXPECT_EQ(tiff.tags().size(), 6U);
  EXPECT_EQ(tiff.SetTag(300, TIFF_TAGTYPE_BYTE, 5), 0);
  EXPECT_EQ(tiff.tags().size(), 7U);
}

TEST(TiffTags, OfTextsAndRatiosCannotBeSetToAValue) {
  Tiff tiff;
  EXPECT_EQ(tiff.SetTag(258, TIFF_TAGTYPE_ASCII, 1), -1);
  EXPECT_EQ(tiff.SetTag(258, TIFF_TAGTYPE_RATIONAL, 1), -1);
  EXPECT_EQ(tiff.FindTag(258)->tag.uiValue, 16U);
}

TEST(TiffTags, SetToAValueLoseTheirData) {
  Tiff tiff;
  const unsigned int words[] = {7, 8};
  tiff.AddTag({300, TIFF_TAGTYPE_LONG, 2, 0}, words, 2);
  EXPECT_EQ(tiff.SetTag(300, TIFF_TAGTYPE_LONG, 5), 0);
  const Block block(binarized(tiff, false));
  EXPECT_EQ(block.number(block.entries()[300].valueAt, 4), 5U);
  EXPECT_EQ(Bytes(block.bytes.begin() + 400, block.bytes.end()), Bytes(256, 0));
}

// ---- Out-of-line data

TEST(TiffData, AdvancesTheCursorByItsLengthAndTheRestOfSixteen) {
  const struct {
    unsigned short type;
    unsigned int elements;
    unsigned int advance;
  } data[] = {{TIFF_TAGTYPE_RATIONAL, 1, 16},
              {TIFF_TAGTYPE_LONG, 4, 16},
              {TIFF_TAGTYPE_LONG, 3, 24},
              {TIFF_TAGTYPE_SHORT, 1, 4},
              {TIFF_TAGTYPE_ASCII, 5, 10},
              {TIFF_TAGTYPE_BYTE, 17, 18},
              {77, 3, 6}};
  const Bytes source(64, 1);
  for (const auto& row : data) {
    Tiff tiff;
    EXPECT_EQ(tiff.AddTag({300, row.type, row.elements, 0}, source.data(), row.elements), 0);
    EXPECT_EQ(tiff.FindTag(300)->tag.uiValue, 400U);
    EXPECT_EQ(tiff.FindTag(300)->uiNumElements, row.elements);
    EXPECT_EQ(tiff.m_uiCursor, 400 + row.advance) << row.type;
  }
}

TEST(TiffData, IsNotAssignedWithoutNodeDataOrElements) {
  Tiff tiff;
  _tiff_tag_complete_t* const node = tiff.FindTag(258);
  const unsigned int word = 1;
  EXPECT_EQ(tiff.AssignTagData(nullptr, &word, 1), 0);
  EXPECT_EQ(tiff.AssignTagData(node, nullptr, 1), 0);
  EXPECT_EQ(tiff.AssignTagData(node, &word, 0), 0);
  EXPECT_EQ(node->pData, nullptr);
  EXPECT_EQ(node->tag.uiValue, 16U);
  EXPECT_EQ(tiff.m_uiCursor, 400U);
}

TEST(TiffData, CanBeReplaced) {
  Tiff tiff;
  _tiff_tag_complete_t* const node = tiff.FindTag(258);
  const unsigned short three[] = {16, 16, 16};
  EXPECT_EQ(tiff.AssignTagData(node, three, 3), 0);
  EXPECT_EQ(tiff.AssignTagData(node, three, 2), 0);
  EXPECT_EQ(node->uiNumElements, 2U);
  EXPECT_EQ(node->tag.uiValue, 412U);
}

TEST(TiffData, IsWrittenWordByWordInTheFilesOrder) {
  const unsigned short shorts[] = {0x1122, 0x3344, 0x5566};
  const unsigned int longs[] = {0x11223344, 0x55667788};
  const unsigned int ratio[] = {0x01020304, 0x05060708};
  for (const bool bigEndian : {false, true}) {
    Tiff tiff;
    tiff.AddTag({300, TIFF_TAGTYPE_SHORT, 3, 0}, shorts, 3);    // 400, 6 + 6
    tiff.AddTag({301, TIFF_TAGTYPE_LONG, 2, 0}, longs, 2);      // 412, 8 + 8
    tiff.AddTag({302, TIFF_TAGTYPE_RATIONAL, 1, 0}, ratio, 1);  // 428, 8 + 8
    tiff.AddTag({303, TIFF_TAGTYPE_ASCII, 5, 0}, "text", 5);    // 444
    const Block block(binarized(tiff, bigEndian));
    auto entries = block.entries();
    const std::vector<unsigned int> offsets = {400, 412, 428, 444};
    for (unsigned int i = 0; i < 4; ++i)
      EXPECT_EQ(block.number(entries[300 + i].valueAt, 4), offsets[i]);
    EXPECT_EQ(block.number(400, 2), 0x1122U);
    EXPECT_EQ(block.number(404, 2), 0x5566U);
    EXPECT_EQ(block.number(412, 4), 0x11223344U);
    EXPECT_EQ(block.number(416, 4), 0x55667788U);
    EXPECT_EQ(block.number(428, 4), 0x01020304U);
    EXPECT_EQ(block.number(432, 4), 0x05060708U);
    EXPECT_EQ(std::memcmp(block.bytes.data() + 444, "text", 5), 0);
  }
}

TEST(TiffData, ThatDoesNotFitTheBlockIsRefusedAndNothingIsWritten) {
  const Bytes data(300, 7);
  Tiff tiff;
  tiff.AddTag({300, TIFF_TAGTYPE_BYTE, 256, 0}, data.data(), 256);
  EXPECT_EQ(Block(binarized(tiff, false)).bytes.back(), 7);  // 400 + 256 is the end
  for (const unsigned int size : {257U, 300U}) {
    Tiff tooLarge;
    tooLarge.AddTag({300, TIFF_TAGTYPE_BYTE, size, 0}, data.data(), size);
    Bytes bytes(1000, 0xEE);
    EXPECT_EQ(tooLarge.Binarize(bytes.data(), 1000, true), -1);
    EXPECT_EQ(bytes, Bytes(1000, 0xEE));
  }
}

TEST(TiffData, OfAllTagsStaysInTheBlockOrIsRefused) {
  const Bytes data(64, 9);
  for (unsigned int size = 1; size <= 64; ++size) {
    Tiff tiff;
    for (unsigned short tag = 1000; tiff.m_uiNumTags < 31; ++tag)
      tiff.AddTag({tag, TIFF_TAGTYPE_ASCII, size, 0}, data.data(), size);
    Bytes bytes(blockSize + 100, 0xEE);
    const int result = tiff.Binarize(bytes.data(), blockSize, false);
    EXPECT_EQ(result, 400 + 24 * (size + size % 16) + size <= 656 ? 656 : -1) << size;
    EXPECT_EQ(Bytes(bytes.begin() + blockSize, bytes.end()), Bytes(100, 0xEE));
  }
}

TEST(TiffData, AtAnOffsetSetFromOutsideIsRefusedOutsideTheDataArea) {
  for (const unsigned int offset : {0U, 399U, 649U, 656U, 0xFFFFFFF8U}) {
    Tiff tiff;
    tiff.SetPixelSize(1, 1);
    tiff.FindTag(282)->tag.uiValue = offset;
    Bytes bytes(blockSize, 0xEE);
    EXPECT_EQ(tiff.Binarize(bytes.data(), blockSize, false), -1) << offset;
  }
}

// ---- The block

TEST(TiffBlock, NeedsItsSize) {
  const Tiff tiff;
  Bytes bytes(blockSize, 0xEE);
  EXPECT_EQ(tiff.Binarize(bytes.data(), 655, true), -1);
  EXPECT_EQ(tiff.Binarize(nullptr, 656, true), -1);
  EXPECT_EQ(bytes, Bytes(blockSize, 0xEE));
}

TEST(TiffBlock, HasTheHeaderOfItsByteOrder) {
  const Tiff tiff;
  const Bytes big = binarized(tiff, true);
  EXPECT_EQ(Bytes(big.begin(), big.begin() + 16),
            (Bytes{'M', 'M', 0, 42, 0, 0, 0, 14, 0, 0, 0, 0, 0, 0, 0, 6}));
  const Bytes little = binarized(tiff, false);
  EXPECT_EQ(Bytes(little.begin(), little.begin() + 16),
            (Bytes{'I', 'I', 42, 0, 14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0}));
}

TEST(TiffBlock, WritesValuesByTheirTypeFromTheFieldsStart) {
  Tiff tiff;
  tiff.SetTag(300, TIFF_TAGTYPE_BYTE, 0x11223344);
  tiff.SetTag(301, TIFF_TAGTYPE_SHORT, 0x11223344);
  tiff.SetTag(302, TIFF_TAGTYPE_LONG, 0x11223344);
  const auto field = [&tiff](unsigned int tag, bool bigEndian) {
    const Block block(binarized(tiff, bigEndian));
    const std::size_t at = block.entries()[tag].valueAt;
    return Bytes(block.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 block.bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4);
  };
  EXPECT_EQ(field(300, true), (Bytes{0x44, 0, 0, 0}));
  EXPECT_EQ(field(300, false), (Bytes{0x44, 0, 0, 0}));
  EXPECT_EQ(field(301, true), (Bytes{0x33, 0x44, 0, 0}));
  EXPECT_EQ(field(301, false), (Bytes{0x44, 0x33, 0, 0}));
  EXPECT_EQ(field(302, true), (Bytes{0x11, 0x22, 0x33, 0x44}));
  EXPECT_EQ(field(302, false), (Bytes{0x44, 0x33, 0x22, 0x11}));
}

TEST(TiffBlock, OfTheMostTagsEndsItsDirectoryBeforeTheData) {
  Tiff tiff;
  for (unsigned short tag = 1000; tiff.m_uiNumTags < 31; ++tag)
    tiff.AddTag({tag, TIFF_TAGTYPE_LONG, 1, 0xFFFFFFFF}, nullptr, 0);
  const Block block(binarized(tiff, true));
  EXPECT_EQ(block.entries().size(), 31U);
  EXPECT_EQ(block.number(16 + 31 * 12, 4), 0U);  // no further directory
  EXPECT_EQ(block.entries().rbegin()->second.valueAt, 384U);
}

TEST(TiffPixelSize, GivesPixelsPerCentimetre) {
  Tiff tiff;
  EXPECT_EQ(tiff.SetPixelSize(90, 45), 0);
  EXPECT_EQ(tiff.SetPixelSize(65, 0), 0);  // set again in place
  const Block block(binarized(tiff, true));
  auto entries = block.entries();
  EXPECT_EQ(block.number(entries[282].valueAt, 4), 400U);
  EXPECT_EQ(block.number(entries[283].valueAt, 4), 416U);
  EXPECT_EQ(block.number(400, 4), 100000U);
  EXPECT_EQ(block.number(404, 4), 65U);
  EXPECT_EQ(block.number(416, 4), 100000U);
  EXPECT_EQ(block.number(420, 4), 0U);
  EXPECT_EQ(block.number(entries[296].valueAt, 2), 3U);
  EXPECT_EQ(tiff.m_uiCursor, 432U);
}

TEST(TiffPixelSize, FailsWhereAResolutionHasNoData) {
  Tiff x;
  x.SetTag(282, TIFF_TAGTYPE_LONG, 1);
  EXPECT_EQ(x.SetPixelSize(90, 45), -1);
  EXPECT_NE(x.FindTag(283), nullptr);  // the rest is set all the same
  EXPECT_NE(x.FindTag(296), nullptr);
  Tiff y;
  y.SetTag(283, TIFF_TAGTYPE_LONG, 1);
  EXPECT_EQ(y.SetPixelSize(90, 45), -1);
  EXPECT_EQ(y.FindTag(296), nullptr);  // here at once
}

TEST(TiffPixelSize, FailsWhereAResolutionHasTooLittleData) {
  Tiff tiff;
  const unsigned short little[] = {1, 2, 3};
  tiff.AddTag({282, TIFF_TAGTYPE_SHORT, 3, 0}, little, 3);
  EXPECT_EQ(tiff.SetPixelSize(90, 45), -1);
  EXPECT_EQ(std::memcmp(tiff.FindTag(282)->pData, little, sizeof little), 0);
}

// ---- Header of a frame

SettableHeader tiffFrame(unsigned int width, unsigned int height) {
  SettableHeader meta = frameHeader(width, height);
  meta.set(71, 5).set(70, 3).set(69, 7).set(68, 2).set(5, 2).set(6, 3);
  return meta;
}

TEST(TiffHeader, HasTheTagsOfTheFrame) {
  SettableHeader meta = tiffFrame(101, 50);  // 51 + 3 + 2 by 17 + 3 + 1
  const std::map<unsigned int, std::vector<unsigned int>> expected = {
      {254, {4, 1, 0}},  {256, {3, 1, 56}},          {257, {3, 1, 21}},   {258, {3, 1, 16}},
      {259, {3, 1, 1}},  {262, {3, 1, 1}},           {273, {4, 1, 1040}}, {277, {3, 1, 1}},
      {278, {3, 1, 21}}, {279, {4, 1, 56 * 21 * 2}}, {282, {5, 1, 400}},  {283, {5, 1, 416}},
      {296, {3, 1, 3}},  {297, {3, 1, 321}}};
  for (const bool bigEndian : {false, true}) {
    Bytes bytes(1040 + 1, 0xEE);
    EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 1040, meta, bigEndian), 1040);
    EXPECT_EQ(bytes[1040], 0xEE);
    const Block block(bytes);
    EXPECT_EQ(block.bigEndian, bigEndian);
    EXPECT_EQ(block.number(14, 2), 14U);
    std::map<unsigned int, std::vector<unsigned int>> found;
    for (const auto& [tag, entry] : block.entries())
      found[tag] = {entry.type, entry.count, block.number(entry.valueAt, entry.type == 3 ? 2 : 4)};
    EXPECT_EQ(found, expected);
    EXPECT_EQ(block.number(404, 4), 90U);
    EXPECT_EQ(block.number(420, 4), 45U);
  }
}

TEST(TiffHeader, IsFollowedByTheMetadataHeader) {
  SettableHeader meta = tiffFrame(101, 50);
  meta.set(1, 400).set(2, 1);  // of version 1, whose capture time is written from its values
  Bytes bytes(1056, 0xEE);
  EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 1056, meta, true), 1056);
  Bytes header(400);
  meta.Binarize(header.data(), 400);
  EXPECT_EQ(Bytes(bytes.begin() + blockSize, bytes.end()), header);
  CFrameMetaData parsed;
  EXPECT_GE(parsed.Parse(bytes.data() + blockSize, 400), 0);
  EXPECT_EQ(parsed.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 321U);
}

TEST(TiffHeader, LeavesOutAMetadataHeaderThatIsTooShort) {
  for (const unsigned int length : {0U, 156U, 383U}) {
    SettableHeader meta = tiffFrame(8, 8);
    meta.set(1, length);
    Bytes bytes(blockSize + length + 1, 0xEE);
    EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), blockSize + length, meta, true),
              static_cast<int>(656 + length));
    EXPECT_EQ(Bytes(bytes.begin() + blockSize, bytes.end() - 1), Bytes(length, 0));
    EXPECT_EQ(bytes.back(), 0xEE);
    const Block block(bytes);
    EXPECT_EQ(block.number(block.entries()[273].valueAt, 4), 656 + length);
  }
}

TEST(TiffHeader, IsRefusedWhereItDoesNotFit) {
  SettableHeader meta = tiffFrame(8, 8);
  Bytes bytes(1040, 0xEE);
  EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 1039, meta, true), -1);
  EXPECT_EQ(CTiffMaker().WriteHeader(nullptr, 1040, meta, true), -1);
  for (const unsigned int length : {0xFFFFFFFFU, 0xFFFFFD70U, 0x7FFFFFFFU}) {  // sums that wrap at 32 bits
    meta.set(1, length);
    EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 1040, meta, true), -1) << length;
    EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 0xFFFFFFFF, meta, true), -1) << length;
  }
  EXPECT_EQ(bytes, Bytes(1040, 0xEE));
}

TEST(TiffHeader, CutsALargeWidthTo16Bits) {
  SettableHeader meta = frameHeader(65536 + 7, 3);
  Bytes bytes(1040);
  EXPECT_EQ(CTiffMaker().WriteHeader(bytes.data(), 1040, meta, true), 1040);
  const Block block(bytes);
  auto entries = block.entries();
  EXPECT_EQ(block.number(entries[256].valueAt, 2), 7U);
  EXPECT_EQ(block.number(entries[279].valueAt, 4), 65543U * 3 * 2);
}

TEST(TiffHeader, CanBeWrittenAgainWithTheSameObject) {
  Tiff tiff;
  SettableHeader meta = tiffFrame(8, 8);
  Bytes first(1040);
  Bytes second(1040);
  EXPECT_EQ(tiff.WriteHeader(first.data(), 1040, meta, true), 1040);
  EXPECT_EQ(tiff.WriteHeader(second.data(), 1040, meta, true), 1040);
  EXPECT_EQ(first, second);
  EXPECT_EQ(tiff.m_uiNumTags, 14U);
}

// ---- Files

class TiffFile : public ::testing::Test {
 protected:
  const TestFolder directory;
  const std::string path = directory.file("frame.tiff");
  const std::vector<unsigned short> pixels = ramp(100 * 100);
  SettableHeader meta = frameHeader(20, 10);
};

TEST_F(TiffFile, HoldsBlockMetadataAndPixelsAsInMemory) {
  for (const bool littleEndian : {false, true}) {
    meta.SetPixelEndianFormat(littleEndian);
    fill(path, std::string(5000, 'x'));  // an existing file is replaced
    EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), 1040);
    const std::string content = contentOf(path);
    ASSERT_EQ(content.size(), 1040U + 400);
    EXPECT_EQ(content.substr(0, 4), littleEndian ? std::string("II\x2A\0", 4) : std::string("MM\0\x2A", 4));
    EXPECT_EQ(content.substr(656, 4), "Meta");
    EXPECT_EQ(std::memcmp(content.data() + 1040, pixels.data(), 400), 0);
  }
}

TEST_F(TiffFile, OfAVersion1HeaderIsWrittenWithoutIt) {
  meta.set(1, 156).set(2, 1);
  EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), 812);
  EXPECT_EQ(contentOf(path).substr(656, 156), std::string(156, '\0'));
  EXPECT_EQ(contentOf(path).size(), 812U + 400);
}

TEST_F(TiffFile, ThatCannotBeOpenedFails) {
  EXPECT_EQ(CTiffMaker().CreateImageFile(directory.file("missing/frame.tiff"), pixels.data(), meta), -1);
}

TEST_F(TiffFile, ThatCannotBeWrittenFails) {
  // Fails when the stream is closed.
  EXPECT_EQ(CTiffMaker().CreateImageFile("/dev/full", pixels.data(), meta), -1);
  SettableHeader large = frameHeader(100, 100);  // fails in the pixels
  EXPECT_EQ(CTiffMaker().CreateImageFile("/dev/full", pixels.data(), large), -1);
  SettableHeader longHeader = frameHeader(20, 10);  // fails in the metadata
  longHeader.set(1, 60000);
  EXPECT_EQ(CTiffMaker().CreateImageFile("/dev/full", pixels.data(), longHeader), -1);
}

TEST_F(TiffFile, IsRefusedWithoutPixelsOrSize) {
  EXPECT_EQ(CTiffMaker().CreateImageFile(path, nullptr, meta), -1);
  meta.setImage(8, 7, 0, 0);
  EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), -1);
  for (const unsigned int size : {65535U, 65536U, 46341U}) {
    SettableHeader huge = frameHeader(size, size);
    EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), huge), -1) << size;
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TiffFile, IsRefusedWithAMetadataLengthThatNoHeaderHas) {
  for (const unsigned int length : {65536U, 0xFFFFFFFFU, 0xFFFFFD70U}) {
    meta.set(1, length);
    EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), -1);
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  meta.set(1, 65535);
  EXPECT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), 65535 + 656);
}

}  // namespace
