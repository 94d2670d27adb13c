// The one place where sizes are worked out, and what it refuses.

#include "metadata/FrameGeometry.h"

#include <gtest/gtest.h>

#include <cstring>

#include "metadata/HeaderBytes.h"
#include "metadata/SettableHeader.h"

namespace {

using orvacam::FrameGeometry;
using orvacam::GeometryFault;
using orvacam::headerLengthFault;
using orvacam::longestAxis;
using orvacam::longestHeader;
using orvacam::surviveProcessing;

enum Key : int {
  Magic = 0,
  Length = 1,
  HorizontalBinning = 5,
  VerticalBinning = 6,
  StartColumn = 49,
  StartRow = 50,
  StopColumn = 51,
  StopRow = 52,
  PostRows = 68,
  PreRows = 69,
  PostPixels = 70,
  PrePixels = 71
};

std::string asText(const FrameGeometry::Axis& axis) {
  return std::to_string(axis.before) + " + " + std::to_string(axis.image) + " + " +
         std::to_string(axis.after);
}

void expectFault(const CFrameMetaData& metaData, GeometryFault::Kind kind, const std::string& text) {
  const FrameGeometry geometry(metaData);
  EXPECT_EQ(geometry.fault().kind, kind) << text;
  EXPECT_EQ(geometry.fault().text(), text);
  EXPECT_TRUE(geometry.fault());
  for (const std::uint64_t size :
       {geometry.imagePixels(), geometry.framePixels(), geometry.binnedImagePixels(), geometry.planePixels(),
        geometry.headerLength()})
    EXPECT_EQ(size, 0u) << text;
}

TEST(FrameGeometry, IsTheImageAndWhatLiesAroundIt) {
  const FrameGeometry geometry(smallFrame());
  EXPECT_FALSE(geometry.fault());
  EXPECT_EQ(geometry.fault().text(), "");
  EXPECT_EQ(asText(geometry.columns()), "5 + 16 + 3");
  EXPECT_EQ(asText(geometry.rows()), "7 + 10 + 2");
  EXPECT_EQ(geometry.imagePixels(), 160u);
  EXPECT_EQ(geometry.framePixels(), 24u * 19);
  EXPECT_EQ(geometry.planePixels(), 24u * 19);
  EXPECT_EQ(geometry.headerLength(), 384u);
}

TEST(FrameGeometry, RoundsEachPartOfABinnedFrameUp) {
  SettableHeader header = smallFrame();
  header.set(HorizontalBinning, 2).set(VerticalBinning, 3);
  const FrameGeometry geometry(header);
  EXPECT_EQ(asText(geometry.binnedColumns()), "3 + 8 + 2");
  EXPECT_EQ(asText(geometry.binnedRows()), "3 + 4 + 1");
  EXPECT_EQ(geometry.binnedImagePixels(), 32u);
  EXPECT_EQ(geometry.planePixels(), 13u * 8);
  EXPECT_EQ(geometry.framePixels(), 24u * 19);
  for (const unsigned int none : {0u, 1u}) {
    header.set(HorizontalBinning, none).set(VerticalBinning, none);
    EXPECT_EQ(FrameGeometry(header).planePixels(), 24u * 19);
  }
  header.set(HorizontalBinning, 0xFFFFFFFF).set(VerticalBinning, 0xFFFFFFFF);
  EXPECT_EQ(FrameGeometry(header).planePixels(), 9u);  // one of each of the three parts, in both directions
}

TEST(FrameGeometry, AgreesWithTheDocumentedQueriesWhereNothingWraps) {
  for (const unsigned int binning : {0u, 1u, 2u, 3u, 7u, 1000u}) {
    SettableHeader header = smallFrame();
    header.set(HorizontalBinning, binning).set(VerticalBinning, binning + 1);
    const FrameGeometry geometry(header);
    unsigned int a = 0, b = 0;
    ASSERT_EQ(header.GetFrameDimensions(a, b), 0);
    EXPECT_TRUE(geometry.columns().frame() == a && geometry.rows().frame() == b);
    ASSERT_EQ(header.GetFrameDimensionsBinned(a, b), 0);
    EXPECT_TRUE(geometry.binnedColumns().frame() == a && geometry.binnedRows().frame() == b);
    ASSERT_EQ(header.GetImageDimensionsBinned(a, b), 0);
    EXPECT_TRUE(geometry.binnedColumns().image == a && geometry.binnedRows().image == b);
    header.GetRefPixelsBinned(a, b);
    EXPECT_TRUE(geometry.binnedColumns().before == a && geometry.binnedColumns().after == b);
    header.GetRefRowsBinned(a, b);
    EXPECT_TRUE(geometry.binnedRows().before == a && geometry.binnedRows().after == b);
  }
}

TEST(FrameGeometry, RefusesAnImageThatEndsBeforeItStarts) {
  SettableHeader header = smallFrame();
  header.set(StopColumn, 7);
  expectFault(header, GeometryFault::ImageEndsBeforeItStarts,
              "its image ends before it starts: columns 8 to 7");
  header = smallFrame();
  header.set(StartRow, 14);
  expectFault(header, GeometryFault::ImageEndsBeforeItStarts,
              "its image ends before it starts: rows 14 to 13");
  EXPECT_EQ(asText(FrameGeometry(header).columns()), "5 + 16 + 3");  // what could be worked out
  EXPECT_EQ(asText(FrameGeometry(header).rows()), "7 + 0 + 2");
}

TEST(FrameGeometry, RefusesSizesAtWhichTheDocumentedQueriesWrap) {
  SettableHeader header = smallFrame();
  header.setImage(0, 0xFFFFFFFF, 0, 9).set(PrePixels, 0).set(PostPixels, 0);
  unsigned int width = 7, height = 7;
  EXPECT_EQ(header.GetFrameDimensions(width, height), 0);
  EXPECT_EQ(width, 0u) << "the query wraps, as documented";
  expectFault(header, GeometryFault::FrameTooLarge, "its frame has 4294967296 columns, more than 2147483647");

  header = smallFrame();
  header.set(PreRows, 0xFFFFFFFF).set(PostRows, 0xFFFFFFFF);
  expectFault(header, GeometryFault::FrameTooLarge,
              "its frame has 8589934600 rows, more than 2147483647");  // 2 x 4294967295 + 10
  header.set(VerticalBinning, 65535);
  expectFault(header, GeometryFault::FrameTooLarge, "its frame has 8589934600 rows, more than 2147483647");
}

TEST(FrameGeometry, HoldsAxesUpToTheLongestOne) {
  SettableHeader header = smallFrame();
  header.setImage(0, longestAxis - 1, 0, longestAxis - 1);
  for (const int key : {PrePixels, PostPixels, PreRows, PostRows})
    header.set(key, 0);
  EXPECT_FALSE(FrameGeometry(header).fault());
  EXPECT_EQ(FrameGeometry(header).framePixels(), 4611686014132420609u);  // (2^31 - 1)^2
  header.set(PostPixels, 1);
  expectFault(header, GeometryFault::FrameTooLarge, "its frame has 2147483648 columns, more than 2147483647");
}

TEST(FrameGeometry, RefusesAHeaderLongerThanAny) {
  SettableHeader header = smallFrame();
  header.set(Length, longestHeader);
  EXPECT_EQ(FrameGeometry(header).headerLength(), 65535u);
  EXPECT_FALSE(headerLengthFault(header));
  for (const unsigned int length : {65536u, 200000000u, 0xFFFFFFFFu}) {
    header.set(Length, length);
    expectFault(header, GeometryFault::HeaderTooLong,
                "its header claims " + std::to_string(length) + " bytes, more than 65535");
    EXPECT_EQ(headerLengthFault(header).value, length);
  }
  header.setImage(5, 4, 0, 0);
  EXPECT_EQ(FrameGeometry(header).fault().kind, GeometryFault::ImageEndsBeforeItStarts) << "the first fault";
  EXPECT_EQ(headerLengthFault(header).kind, GeometryFault::HeaderTooLong) << "whatever the image is";
}

TEST(FrameGeometry, IsTheSameFromBytesFitsTextAndSetters) {
  HeaderBytes bytes(3);
  CFrameMetaData binary;
  ASSERT_EQ(bytes.put(122, 2, 4)
                .put(124, 2, 8)
                .put(126, 2, 13)
                .put(128, 2, 23)
                .put(97, 1, 5)
                .put(96, 1, 3)
                .put(136, 3, 2 << 12 | 7)
                .put(99, 2, 2)
                .put(145, 2, 3)
                .parseInto(binary),
            0);
  CFrameMetaData text;
  std::string cards;
  for (const char* card :
       {"SIMPLE  = T", "MDLENGTH= 384", "IMGSTARW= 4", "IMGSTACL= 8", "IMGSTPRW= 13", "IMGSTPCL= 23",
        "PRFPXPRW= 5", "RFPXLPRW= 3", "PREREFRW= 7", "PSTREFRW= 2", "XBINNING= 2.9", "YBINNING= 3", "END"}) {
    cards += card;
    cards.resize((cards.size() + 79) / 80 * 80, ' ');
  }
  ASSERT_EQ(text.Parse(reinterpret_cast<unsigned char*>(cards.data()), static_cast<unsigned>(cards.size())),
            0);
  SettableHeader set = smallFrame();
  set.set(HorizontalBinning, 2).set(VerticalBinning, 3);
  const CFrameMetaData* const all[] = {&binary, &text, &set};
  for (const CFrameMetaData* metaData : all) {
    const FrameGeometry geometry(*metaData);
    EXPECT_FALSE(geometry.fault());
    EXPECT_EQ(asText(geometry.columns()) + ", " + asText(geometry.rows()), "5 + 16 + 3, 7 + 10 + 2");
    EXPECT_EQ(asText(geometry.binnedColumns()) + ", " + asText(geometry.binnedRows()),
              "3 + 8 + 2, 3 + 4 + 1");
    EXPECT_EQ(geometry.headerLength(), 384u);
  }
}

TEST(ProcessedHeader, HoldsTheLargestValueOfEachFieldAndNotTheNext) {
  const struct {
    int key;
    unsigned int most;
    const char* name;
  } rows[] = {{StartColumn, 65535, "image start column"},
              {StopColumn, 65535, "image stop column"},
              {StartRow, 65535, "image start row"},
              {StopRow, 65535, "image stop row"},
              {PrePixels, 255, "number of reference pixels ahead of a row"},
              {PostPixels, 255, "number of reference pixels behind a row"},
              {PreRows, 4095, "number of reference rows ahead of the image"},
              {PostRows, 4095, "number of reference rows behind the image"},
              {HorizontalBinning, 65535, "horizontal binning"},
              {VerticalBinning, 65535, "vertical binning"}};
  for (const auto& row : rows) {
    SettableHeader header = smallFrame();
    header.set(row.key, row.most);
    EXPECT_TRUE(surviveProcessing(header)) << row.name;
    // What is written is what is read back.
    std::vector<unsigned char> bytes(384);
    ASSERT_EQ(header.Binarize(bytes.data(), 384), 384);
    SettableHeader back;
    back.Parse(bytes.data(), 384);
    EXPECT_EQ(back.Value(static_cast<ORVA_META_KEYS>(row.key)).GetValueUint(), row.most) << row.name;

    header.set(row.key, row.most + 1);
    EXPECT_FALSE(surviveProcessing(header)) << row.name;
  }
}

TEST(ProcessedHeader, IsNoneWithoutItsMagicNumber) {
  SettableHeader header = smallFrame();
  EXPECT_TRUE(surviveProcessing(header));
  header.set(Magic, 5);
  EXPECT_FALSE(surviveProcessing(header));
}

}  // namespace
