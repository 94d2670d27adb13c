// The mutator that the fuzz targets share: which values it sets, where, and that it keeps to the input.

#include "header_mutator.h"

#include <gtest/gtest.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <map>
#include <set>

#include "simulator/FitsHeader.h"
#include "simulator/Header.h"

namespace {

namespace sim = orvacam::simulator;
using Bytes = std::vector<std::uint8_t>;

/// Options, as inputs have them ahead of a frame, then a header, then pixels.
Bytes surrounded(const Bytes& header) {
  Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
  bytes.insert(bytes.end(), header.begin(), header.end());
  bytes.insert(bytes.end(), 100, 0xEE);
  return bytes;
}

bool isEdge(std::uint64_t value, unsigned int bits) {
  for (unsigned int choice = 0; choice < fuzz::edgeValues; ++choice)
    if (fuzz::edgeValue(choice, bits) == value) return true;
  return false;
}

TEST(EdgeValue, IsZeroAllOnesAndWhatLiesAroundEachPowerOfTwo) {
  std::set<std::uint64_t> seen;
  for (unsigned int choice = 0; choice < fuzz::edgeValues; ++choice)
    seen.insert(fuzz::edgeValue(choice, 8));
  EXPECT_EQ(seen, (std::set<std::uint64_t>{0,  1,  2,  3,  4,  5,  7,  8,   9,   15,  16,
                                           17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 255}));
  EXPECT_TRUE(isEdge(0xFFFFFFFF, 32) && isEdge(0x80000000, 32) && isEdge(0x10001, 32));
  EXPECT_TRUE(isEdge(0x100000000, 64) && isEdge(0xFFFFFFFFFFFFFFFF, 64) && isEdge(0x8000000000000001, 64));
  EXPECT_EQ(fuzz::edgeValue(5 + fuzz::edgeValues, 16), fuzz::edgeValue(5, 16));
}

TEST(HeaderMutator, FindsHeadersBehindWhateverStandsAheadOfThem) {
  Bytes bytes = surrounded(sim::writeHeader(sim::HeaderFields(), 3));
  const Bytes text = sim::writeCards({{"XBINNING", "2"}});
  bytes.insert(bytes.end(), text.begin(), text.end());
  EXPECT_EQ(fuzz::binaryHeaders(bytes), std::vector<std::size_t>{8});
  EXPECT_EQ(fuzz::fitsHeaders(bytes), std::vector<std::size_t>{8 + 384 + 100});
  EXPECT_TRUE(fuzz::binaryHeaders({'M', 'e', 't', 'a', 1, 2, 3}).empty()) << "too short for its version";
  EXPECT_TRUE(fuzz::fitsHeaders({'S', 'I', 'M', 'P', 'L', 'E'}).empty());
}

TEST(HeaderMutator, LeavesAnInputWithoutAHeaderToOthers) {
  for (Bytes bytes : {Bytes(), Bytes(500, 'x')}) {
    const Bytes before = bytes;
    EXPECT_FALSE(fuzz::mutateHeader(bytes, 1000, 3));
    EXPECT_EQ(bytes, before);
  }
}

TEST(HeaderMutator, IsTheSameForTheSameSeed) {
  const Bytes header = surrounded(sim::writeHeader(sim::HeaderFields(), 4));
  unsigned int differ = 0;
  for (unsigned int seed = 0; seed < 100; ++seed) {
    Bytes a = header, b = header, c = header;
    ASSERT_TRUE(fuzz::mutateHeader(a, 4096, seed));
    fuzz::mutateHeader(b, 4096, seed);
    fuzz::mutateHeader(c, 4096, seed + 1);
    EXPECT_EQ(a, b);
    if (a != c) ++differ;
  }
  EXPECT_GT(differ, 90u);
}

TEST(HeaderMutator, SetsFieldsOfABinaryHeaderOfEveryVersionAndNothingElse) {
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    const Bytes header = sim::writeHeader(sim::HeaderFields(), version);
    const Bytes whole = surrounded(header);
    std::map<std::size_t, std::set<unsigned int>> values;  // of each byte of the header
    for (unsigned int seed = 0; seed < 6000; ++seed) {
      Bytes bytes = whole;
      ASSERT_TRUE(fuzz::mutateHeader(bytes, whole.size(), seed)) << seed;
      ASSERT_EQ(bytes.size(), whole.size());
      std::size_t first = bytes.size(), last = 0;
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == whole[i]) continue;
        first = std::min(first, i);
        last = i;
        ASSERT_TRUE(i >= 8 + 4 && i < 8 + header.size()) << "byte " << i << " of version " << version;
        values[i - 8].insert(bytes[i]);
      }
      // A field, or two of the fields that sizes follow from, which lie between 96 and 146.
      if (first <= last && last - first >= 8) ASSERT_TRUE(last < 8 + 252) << first << " to " << last;
    }
    // Length, version, bit depths, flags, binning, image region, reference rows: each with many values.
    for (const std::size_t at :
         {4, 5, 6, 7, 80, 96, 97, 98, 99, 100, 122, 123, 124, 125, 126, 127, 128, 129, 136, 137, 138})
      EXPECT_GE(values[at].size(), 3u) << "byte " << at << " of version " << version;
    EXPECT_EQ(values[96].count(0xFF), 1u);
    EXPECT_EQ(values.count(250), version >= 3 ? 1u : 0u) << "where the other-type block lies";
  }
}

/// A FITS header's value, as the reader has it.
double valueOf(const Bytes& bytes, std::size_t header, ORVA_META_KEYS key) {
  Bytes copy(bytes.begin() + static_cast<std::ptrdiff_t>(header), bytes.end());
  CFrameMetaData metaData;
  metaData.Parse(copy.data(), static_cast<unsigned int>(copy.size()));
  return metaData.Value(key).GetValueDouble();
}

TEST(FitsCard, IsReplacedOrPutAheadOfTheEnd) {
  const Bytes header = sim::writeCards({{"XBINNING", "2"}, {"YBINNING", "3"}});
  ASSERT_EQ(header.size(), 2880u);
  Bytes bytes = header;
  EXPECT_TRUE(fuzz::setFitsCard(bytes, 0, "XBINNING", "65536", bytes.size()));
  EXPECT_TRUE(fuzz::setFitsCard(bytes, 0, "MDLENGTH", "4294967295", bytes.size()));
  EXPECT_EQ(bytes.size(), 2880u) << "there are blanks behind END";
  EXPECT_EQ(valueOf(bytes, 0, ORVA_META_KEY_HORIZONTAL_BINNING), 65536.0);
  EXPECT_EQ(valueOf(bytes, 0, ORVA_META_KEY_VERTICAL_BINNING), 3.0);
  EXPECT_EQ(valueOf(bytes, 0, ORVA_META_KEY_METADATA_LENGTH), 4294967295.0);
}

TEST(FitsCard, MovesWhatFollowsOnWhereThereIsRoom) {
  Bytes bytes = sim::writeCards({});
  bytes.resize(160);  // SIMPLE, END
  bytes.push_back('p');
  Bytes full = bytes;
  EXPECT_FALSE(fuzz::setFitsCard(full, 0, "XBINNING", "2", 240));
  EXPECT_EQ(full, bytes);
  EXPECT_TRUE(fuzz::setFitsCard(bytes, 0, "XBINNING", "2", 241));
  ASSERT_EQ(bytes.size(), 241u);
  EXPECT_EQ(bytes.back(), 'p');
  EXPECT_EQ(valueOf(bytes, 0, ORVA_META_KEY_HORIZONTAL_BINNING), 2.0);
  Bytes endless(bytes.begin(), bytes.begin() + 80);
  EXPECT_FALSE(fuzz::setFitsCard(endless, 0, "XBINNING", "2", 1000)) << "no END";
}

TEST(HeaderMutator, SetsCardsOfAFitsHeaderToNumbersOfAnySize) {
  const Bytes header = sim::writeCards(sim::cardsOf(sim::HeaderFields()));
  const Bytes whole = surrounded(header);
  std::map<std::string, std::set<std::string>> values;
  unsigned int pairs = 0;
  for (unsigned int seed = 0; seed < 12000; ++seed) {
    Bytes bytes = whole;
    ASSERT_TRUE(fuzz::mutateHeader(bytes, whole.size() + 160, seed)) << seed;
    ASSERT_LE(bytes.size(), whole.size() + 160);
    ASSERT_TRUE(std::equal(bytes.begin(), bytes.begin() + 8 + 80, whole.begin()))
        << "options and SIMPLE stay";
    ASSERT_TRUE(std::equal(bytes.end() - 100, bytes.end(), whole.end() - 100)) << "pixels stay";
    unsigned int changed = 0;
    for (std::size_t at = 8; at + 80 <= bytes.size() - 100; at += 80) {
      const std::string card(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at) + 80);
      const std::string before(whole.begin() + static_cast<std::ptrdiff_t>(at),
                               whole.begin() + static_cast<std::ptrdiff_t>(at) + 80);
      if (card == before || card.substr(0, 4) == "END ") continue;
      ASSERT_EQ(card.substr(8, 2), "= ") << card;
      values[card.substr(0, card.find_first_of(" ="))].insert(card.substr(10, card.find(' ', 10) - 10));
      ++changed;
    }
    ASSERT_LE(changed, 2u);
    if (changed == 2) ++pairs;
  }
  EXPECT_GT(pairs, 1000u);
  std::set<std::string> all;
  for (const char* keyword : {"MDLENGTH", "IMGSTACL", "IMGSTPCL", "IMGSTARW", "IMGSTPRW", "PRFPXPRW",
                              "RFPXLPRW", "PREREFRW", "PSTREFRW", "XBINNING", "YBINNING"}) {
    EXPECT_GE(values[keyword].size(), 50u) << keyword;
    all.insert(values[keyword].begin(), values[keyword].end());
  }
  for (const char* value :
       {"0", "1", "-1", "255", "65535", "65536", "65537", "2147483647", "2147483648", "4294967295",
        "4294967296", "4294967297", "9223372036854775808", "18446744073709551615"})
    EXPECT_EQ(all.count(value), 1u) << value;
  EXPECT_GT(values.size(), 80u) << "every key has its turn";
}

}  // namespace
