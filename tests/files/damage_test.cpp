// What is found in standard files that were cut off, damaged or changed after they were written.

#include "files/Damage.h"

#include <fitsio.h>
#include <gmock/gmock.h>
#include <tiffio.h>

#include <cstring>
#include <stdexcept>

#include "TestFolder.h"
#include "files/TiffFile.h"

namespace {

using orvacam::files::Damage;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Bytes = std::vector<unsigned char>;
using Kinds = std::vector<Damage::Kind>;

constexpr std::size_t block = 2880;

class Files : public ::testing::Test {
 protected:
  using Look = std::vector<Damage> (*)(const std::string&);

  std::vector<Damage> damageOf(Look look, const Bytes& bytes) const {
    folder.write("file", bytes);
    return look(folder.file("file"));
  }
  Kinds kindsOf(Look look, const Bytes& bytes) const {
    Kinds kinds;
    for (const Damage& damage : damageOf(look, bytes))
      kinds.push_back(damage.kind);
    return kinds;
  }
  /// What is found first, or what is thrown.
  std::string saidOf(Look look, const Bytes& bytes) const {
    try {
      const std::vector<Damage> found = damageOf(look, bytes);
      return found.empty() ? "" : found.front().text;
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }

  TestFolder folder;
};

class DamagedFits : public Files {
 protected:
  /// A file of CFITSIO's with an empty primary unit and images of 20 x 10 pixels, with its sums.
  Bytes made(int images, bool sums = true) const {
    const std::string path = folder.file("made");
    int status = 0;
    fitsfile* file = nullptr;
    fits_create_file(&file, ("!" + path).c_str(), &status);
    fits_create_img(file, BYTE_IMG, 0, nullptr, &status);
    if (sums) fits_write_chksum(file, &status);
    for (int i = 0; i < images; ++i) {
      long size[] = {20, 10};
      fits_create_img(file, SHORT_IMG, 2, size, &status);
      std::vector<short> pixels(200);
      for (std::size_t j = 0; j < pixels.size(); ++j)
        pixels[j] = static_cast<short>(j * 37 + static_cast<unsigned>(i));
      fits_write_img(file, TSHORT, 1, 200, pixels.data(), &status);
      fits_update_key(file, TSTRING, "EXTNAME", const_cast<char*>("HIGH"), nullptr, &status);
      if (sums) fits_write_chksum(file, &status);
    }
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0);
    return folder.read("made");
  }
  Kinds kinds(const Bytes& bytes) const { return kindsOf(orvacam::files::damageOfFits, bytes); }
  std::string said(const Bytes& bytes) const { return saidOf(orvacam::files::damageOfFits, bytes); }

  static std::size_t placeOf(const Bytes& bytes, const std::string& card, std::size_t from = 0) {
    return std::string(bytes.begin(), bytes.end()).find(card, from);
  }
  /// Puts a card in place of one that begins like this.
  static Bytes withCard(Bytes bytes, const std::string& old, std::string card, std::size_t from = 0) {
    const std::size_t at = placeOf(bytes, old, from);
    card.resize(80, ' ');
    std::copy(card.begin(), card.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
  }
};

TEST_F(DamagedFits, HasNoneAsItWasWritten) {
  EXPECT_THAT(kinds(made(0)), IsEmpty());
  EXPECT_THAT(kinds(made(2)), IsEmpty());
  EXPECT_THAT(kinds(made(2, false)), IsEmpty());
}

TEST_F(DamagedFits, ShowsBytesThatChanged) {
  const Bytes whole = made(1);
  const std::size_t primarySum = placeOf(whole, "CHECKSUM"), imageSum = placeOf(whole, "CHECKSUM", block);
  for (std::size_t at = 0; at < whole.size(); at += 29) {
    // Without its keyword a sum is not looked for.
    if (at - primarySum < 10 || at - imageSum < 10) continue;
    Bytes bytes = whole;
    bytes[at] = static_cast<unsigned char>(bytes[at] ^ 1u << at % 8);
    ASSERT_NE(said(bytes), "") << at;
  }
}

TEST_F(DamagedFits, ShowsBytesThatAreMissing) {
  const Bytes whole = made(1);
  for (std::size_t length = 0; length < whole.size(); length += 36) {
    const std::string text = said(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    if (length == block)
      ASSERT_EQ(text, "") << "the primary unit alone is a file";
    else
      ASSERT_NE(text, "") << length;
  }
  const auto cut = [&](std::size_t length) {
    return said(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
  };
  EXPECT_EQ(cut(100), "has no FITS header that can be read");
  EXPECT_EQ(cut(block + 100), "is cut off: the header at byte 2880 does not end before the file does");
  EXPECT_EQ(cut(2 * block + 399), "is cut off: its unit 2 (HIGH) needs 6160 bytes, ends at byte 6159");
  EXPECT_EQ(cut(2 * block + 400),
            "is not filled up behind its data: its unit 2 (HIGH) goes to byte 8640, ends at byte 6160");
}

TEST_F(DamagedFits, TellsPixelsFromHeaders) {
  const Bytes whole = made(2);
  Bytes pixels = whole;
  pixels[2 * block + 7] ^= 1;
  EXPECT_EQ(kinds(pixels), Kinds{Damage::Broken});
  EXPECT_THAT(said(pixels), HasSubstr("is damaged: the data of its unit 2 (HIGH) add up to "));
  EXPECT_EQ(kinds(withCard(whole, "EXTNAME", "EXTNAME = 'LOW     '", block)), Kinds{Damage::Changed});
  EXPECT_EQ(
      said(withCard(whole, "EXTNAME", "EXTNAME = 'LOW     '", block)),
      "is not as it was written: the header of its unit 2 (LOW) does not fit its CHECKSUM, the data fit "
      "their DATASUM");
  // Without a sum of the data either could have changed.
  const Bytes without = withCard(whole, "DATASUM", "COMMENT", block);
  EXPECT_EQ(kinds(without), Kinds{Damage::Broken});
  EXPECT_EQ(said(without), "is damaged: its unit 2 (HIGH) does not fit its CHECKSUM");
  Bytes both = pixels;
  both[4 * block + 7] ^= 1;
  EXPECT_EQ(kinds(both), (Kinds{Damage::Broken, Damage::Broken}));
}

TEST_F(DamagedFits, TakesSumsAsOtherProgramsWriteThem) {
  const Bytes whole = made(1);
  const std::size_t at = placeOf(whole, "DATASUM", block);
  const std::string card(whole.begin() + static_cast<std::ptrdiff_t>(at),
                         whole.begin() + static_cast<std::ptrdiff_t>(at) + 80);
  const std::string digits = card.substr(11, card.find('\'', 11) - 11);
  const std::string none = "CHECKSUM= ''";
  const Bytes number =
      withCard(withCard(whole, "DATASUM", "DATASUM = " + digits, block), "CHECKSUM", none, block);
  EXPECT_THAT(kinds(number), IsEmpty());
  Bytes damaged = number;
  damaged[2 * block] ^= 1;
  EXPECT_EQ(kinds(damaged), Kinds{Damage::Broken});
  // An empty text is a sum that is not known.
  Bytes unknown = withCard(withCard(damaged, "DATASUM", "DATASUM = ''", block), "CHECKSUM", none, block);
  EXPECT_THAT(kinds(unknown), IsEmpty());
}

TEST_F(DamagedFits, ShowsWhatIsBehindTheLastUnit) {
  Bytes bytes = made(1);
  bytes.push_back('x');
  EXPECT_EQ(kinds(bytes), Kinds{Damage::Trailing});
  EXPECT_EQ(said(bytes), "has 1 byte behind its last unit");
  bytes.pop_back();
  const Bytes twice = made(0);
  bytes.insert(bytes.end(), twice.begin(), twice.end());
  EXPECT_EQ(said(bytes), "has 2880 bytes behind its last unit") << "a file is no unit of another";
}

TEST_F(DamagedFits, RefusesSizesThatCannotBe) {
  for (const char* const axis : {"-1", "1e300", "9223372036854775807"}) {
    const Bytes bytes = withCard(made(1), "NAXIS1", std::string("NAXIS1  = ") + axis, block);
    EXPECT_EQ(kinds(bytes), Kinds{Damage::Broken}) << axis;
    EXPECT_THAT(said(bytes), HasSubstr("its unit 2 (HIGH) states a size that cannot be"));
  }
  EXPECT_EQ(kinds(withCard(made(1), "NAXIS1", "NAXIS1  = 4294967295", block)), Kinds{Damage::CutOff});
}

TEST_F(DamagedFits, KnowsRandomGroups) {
  // Two groups of 3 parameters and 4 pixels of 16 bits.
  std::string header;
  for (const char* const card : {"SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 0", "NAXIS2  = 4",
                                 "GROUPS  = T", "PCOUNT  = 3", "GCOUNT  = 2", "END"}) {
    std::string line = card;
    line.resize(80, ' ');
    header += line;
  }
  header.resize(block, ' ');
  Bytes bytes(header.begin(), header.end());
  bytes.resize(block + 27);
  EXPECT_EQ(said(bytes), "is cut off: its unit 1 needs 2908 bytes, ends at byte 2907");
  bytes.resize(2 * block);
  EXPECT_THAT(kinds(bytes), IsEmpty());
}

TEST_F(DamagedFits, IsLookedAtToItsEndButNotForever) {
  const Bytes whole = made(40);
  EXPECT_THAT(kinds(whole), IsEmpty());
  Bytes last = whole;
  last[last.size() - block] ^= 1;
  EXPECT_EQ(kinds(last), Kinds{Damage::Broken});
  EXPECT_THAT(said(last), HasSubstr("its unit 41 (HIGH)"));
  Bytes all = whole;
  for (std::size_t at = 2 * block; at < all.size(); at += 2 * block)
    all[at] ^= 1;
  EXPECT_EQ(kinds(all).size(), 16u);
}

TEST_F(DamagedFits, ThatIsNotThereIsAnError) {
  EXPECT_THROW(orvacam::files::damageOfFits(folder.file("none")), std::runtime_error);
  EXPECT_THROW(orvacam::files::damageOfTiff(folder.file("none")), std::runtime_error);
}

class DamagedTiff : public Files {
 protected:
  struct Tag {
    unsigned id, type, value;
  };

  Kinds kinds(const Bytes& bytes) const { return kindsOf(orvacam::files::damageOfTiff, bytes); }
  std::string said(const Bytes& bytes) const { return saidOf(orvacam::files::damageOfTiff, bytes); }

  /// A page of 8 x 4 pixels in rows of strips, its directory first, the pixels at the end of the file.
  static Bytes made(unsigned height, unsigned offset, unsigned length, unsigned next, unsigned rows = 4) {
    constexpr unsigned Short = 3, Long = 4;
    const Tag tags[] = {{256, Long, 8},  {257, Long, height}, {258, Short, 8},   {259, Short, 1},
                        {262, Short, 1}, {273, Long, offset}, {278, Long, rows}, {279, Long, length}};
    Bytes bytes = {'I', 'I', 42, 0, 8, 0, 0, 0, std::size(tags), 0};
    const auto number = [&bytes](unsigned value, int count) {
      for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> 8 * i));
    };
    for (const Tag& tag : tags)
      number(tag.id, 2), number(tag.type, 2), number(1, 4), number(tag.value, 4);
    number(next, 4);
    return bytes;
  }
  static constexpr unsigned directory = 10 + 8 * 12 + 4;
};

TEST_F(DamagedTiff, ShowsEveryByteThatIsMissing) {
  Bytes whole = made(4, directory, 32, 0);
  whole.resize(directory + 32);
  EXPECT_THAT(kinds(whole), IsEmpty());
  for (std::size_t length = 0; length < whole.size(); ++length)
    ASSERT_NE(said(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))), "") << length;
  whole.pop_back();
  EXPECT_EQ(said(whole), "is cut off: its page 1 needs 32 bytes at byte 110, ends at byte 141");
  EXPECT_EQ(kinds(whole), Kinds{Damage::CutOff});
}

TEST_F(DamagedTiff, RefusesPlacesOutsideTheFile) {
  // Lengths of a single strip that are far off are no fault: readers work them out from the size.
  for (const auto& [offset, length] :
       {std::pair(0xFFFFFFFFu, 32u), std::pair(directory + 1, 32u), std::pair(0xFFFFFFF0u, 0x20u)}) {
    Bytes bytes = made(4, offset, length, 0);
    bytes.resize(directory + 32);
    EXPECT_EQ(kinds(bytes), Kinds{Damage::CutOff}) << offset << " " << length;
  }
}

TEST_F(DamagedTiff, RefusesMoreStripsThanBytes) {
  Bytes bytes = made(5000, directory, 32, 0, 1);
  bytes.resize(directory + 32);
  EXPECT_EQ(said(bytes), "states more strips than it has bytes, up to its page 1");
  EXPECT_EQ(kinds(bytes), Kinds{Damage::Broken});
}

TEST_F(DamagedTiff, CountsTheStripsOfAllPagesAgainstItsBytes) {
  Bytes bytes = made(200, directory, 32, directory, 1);
  const Bytes second = made(200, directory, 32, 0, 1);
  bytes.insert(bytes.end(), second.begin() + 8, second.end());
  bytes.resize(399);
  EXPECT_THAT(said(bytes), HasSubstr("states more strips than it has bytes, up to its page 2"));
  bytes.resize(400);
  EXPECT_THAT(said(bytes), Not(HasSubstr("strips")));
}

/// Directories of so many tags each, whose data are all the same bytes: 1 MiB of them behind the header.
class TiffOfSharedData : public DamagedTiff, public testing::WithParamInterface<std::pair<bool, bool>> {
 protected:
  static constexpr std::size_t shared = std::size_t{1} << 20;

  static Bytes made(unsigned pages, unsigned tags) {
    const auto [bigEndian, big] = GetParam();
    const unsigned place = big ? 8 : 4;
    Bytes bytes(2, bigEndian ? 'M' : 'I');
    const auto number = [&, swap = bigEndian](std::uint64_t value, unsigned count) {
      for (unsigned i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> 8 * (swap ? count - 1 - i : i)));
    };
    number(big ? 43 : 42, 2);
    if (big) number(8, 2), number(0, 2);
    number(2 * place + shared, place);
    bytes.resize(2 * place + shared);
    for (unsigned page = 1; page <= pages; ++page) {
      number(8 + tags, big ? 8 : 2);
      for (const auto& [id, type, value] : {Tag{256, 4, 1}, Tag{257, 4, 1}, Tag{258, 3, 8}, Tag{259, 3, 1},
                                            Tag{262, 3, 1}, Tag{273, 4, 8}, Tag{278, 4, 1}, Tag{279, 4, 1}}) {
        const unsigned width = type == 3 ? 2 : 4;
        number(id, 2), number(type, 2), number(1, place), number(value, width), number(0, place - width);
      }
      for (unsigned tag = 0; tag < tags; ++tag)
        number(40000 + tag, 2), number(1, 2), number(shared, place), number(2 * place, place);
      number(page < pages ? bytes.size() + place : 0, place);
    }
    return bytes;
  }
};

TEST_P(TiffOfSharedData, IsRefusedBeforeAllOfItIsRead) {
  EXPECT_THAT(kinds(made(1, 1)), IsEmpty());
  EXPECT_THAT(kinds(made(30, 1)), IsEmpty());
  for (const Bytes& bytes : {made(1, 3), made(40, 1)}) {
    EXPECT_EQ(said(bytes), "is damaged: its directories state more bytes than the file has");
    EXPECT_EQ(kinds(bytes), Kinds{Damage::Broken});
    folder.write("made", bytes);
    EXPECT_THROW(orvacam::files::openTiff(folder.file("made")), std::runtime_error);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryLayout, TiffOfSharedData,
                         testing::Values(std::pair(false, false), std::pair(true, false),
                                         std::pair(false, true), std::pair(true, true)));

TEST_F(DamagedTiff, LooksAtEveryPage) {
  Bytes bytes = made(4, directory, 32, directory);
  Bytes second = made(4, 2 * directory, 32, 0);
  bytes.insert(bytes.end(), second.begin() + 8, second.end());
  bytes.resize(2 * directory + 32);
  EXPECT_THAT(kinds(bytes), IsEmpty());
  bytes.resize(2 * directory + 31);
  EXPECT_THAT(said(bytes), HasSubstr("is cut off: its page 2 needs 32 bytes"));

  Bytes lost = made(4, directory, 32, 100000);
  lost.resize(directory + 32);
  EXPECT_EQ(said(lost), "is damaged: its page 2 cannot be read");
}

TEST_F(DamagedTiff, OfOtherWritersInStripsAndTilesHasNone) {
  for (const bool tiled : {false, true}) {
    TIFF* const file = TIFFOpen(folder.file("made").c_str(), "w");
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 64);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, 64);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    std::vector<unsigned char> pixels(64 * 64, 7);
    if (tiled) {
      TIFFSetField(file, TIFFTAG_TILEWIDTH, 32);
      TIFFSetField(file, TIFFTAG_TILELENGTH, 32);
      for (unsigned i = 0; i < 4; ++i)
        TIFFWriteEncodedTile(file, i, pixels.data(), 32 * 32);
    } else {
      TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, 16);
      for (unsigned i = 0; i < 4; ++i)
        TIFFWriteEncodedStrip(file, i, pixels.data(), 64 * 16);
    }
    TIFFClose(file);
    EXPECT_THAT(kinds(folder.read("made")), IsEmpty()) << tiled;
  }
}

}  // namespace
