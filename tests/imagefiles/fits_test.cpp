// FITS headers, images and files, byte by byte.

#include <gtest/gtest.h>
#include <orvacam/imagefiles/CFitsInterface.h>
#include <orvacam/support/CLog.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "imagefiles/ImageFileTesting.h"
#include "support/Contains.h"

namespace {

constexpr unsigned int headerSize = 5760;

class Fits : public CFitsInterface {
 public:
  using CFitsInterface::DoWriteHeader;
  using CFitsInterface::m_pImageCopy;
  using CFitsInterface::m_uiPosition;
  using CFitsInterface::m_ulImageCopySize;
};

std::string card(std::string text) {
  text.resize(80, ' ');
  return text;
}

std::string asText(const std::vector<unsigned char>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

/// The cards of a header up to and with "END", trailing blanks removed.
std::vector<std::string> cardsOf(const std::string& header) {
  std::vector<std::string> cards;
  for (std::size_t at = 0; at + 80 <= header.size() && (cards.empty() || cards.back() != "END"); at += 80) {
    const std::string text = header.substr(at, 80);
    cards.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
  }
  return cards;
}

std::string headerOf(const CFrameMetaData& meta, unsigned int size = headerSize) {
  std::vector<unsigned char> bytes(size, 'x');
  EXPECT_EQ(Fits().DoWriteHeader(bytes.data(), size, meta), 0);
  return asText(bytes);
}

std::string cardOf(const CFrameMetaData& meta, const std::string& keyword) {
  for (const std::string& text : cardsOf(headerOf(meta)))
    if (text.compare(0, keyword.size(), keyword) == 0) return text;
  return "no such card";
}

/// One card with a value.
template <typename Value>
std::string written(unsigned int type, const Value* value, const char* comment,
                    const char* keyword = "KEYWORD") {
  Fits fits;
  std::vector<unsigned char> bytes(81, 'x');
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 81, keyword, type, value, comment), 0);
  EXPECT_EQ(bytes[80], 'x');
  EXPECT_EQ(fits.m_uiPosition, 80U);
  return asText(bytes).substr(0, 80);
}

// ---- Cards

TEST(FitsValueCard, OfEachTypeHasItsValueInColumn10) {
  const bool yes = true;
  const bool no = false;
  const unsigned int large = 4294967295U;
  const int negative = -2147483647 - 1;
  const double half = -0.5;
  EXPECT_EQ(written(14, &yes, "flag"), card("KEYWORD = T / flag"));
  EXPECT_EQ(written(14, &no, "flag"), card("KEYWORD = F / flag"));
  EXPECT_EQ(written(16, "text", "a text"), card("KEYWORD = 'text' / a text"));
  EXPECT_EQ(written(30, &large, "count"), card("KEYWORD = 4294967295 / count"));
  EXPECT_EQ(written(31, &negative, "delay"), card("KEYWORD = -2147483648 / delay"));
  EXPECT_EQ(written(42, &half, "ratio"), card("KEYWORD = -0.500000 / ratio"));
}

TEST(FitsValueCard, WithoutACommentHasNoSlash) {
  const double one = 1.0;
  EXPECT_EQ(written(42, &one, ""), card("KEYWORD = 1.000000"));
  EXPECT_EQ(written(42, &one, nullptr), card("KEYWORD = 1.000000"));
}

TEST(FitsValueCard, WithoutAValueIsTheKeywordAndItsComment) {
  EXPECT_EQ(written<int>(30, nullptr, nullptr, "END"), card("END"));
  EXPECT_EQ(written<int>(30, nullptr, "the end", "END"), card("END / the end"));
  EXPECT_EQ(written<int>(99, nullptr, nullptr, "KEYWORD"), card("KEYWORD"));
  EXPECT_EQ(written(99, "x", nullptr, "KEYWORD"), card("KEYWORD"));
}

TEST(FitsValueCard, OfANullTextHasTheDefaultText) {
  EXPECT_EQ(written<char>(16, nullptr, "none"), card("KEYWORD = '' / none"));
}

TEST(FitsValueCard, CutsAKeywordAtEightCharacters) {
  const int one = 1;
  EXPECT_EQ(written(31, &one, nullptr, "LONGKEYWORD"), card("LONGKEYW= 1"));
  EXPECT_EQ(written(31, &one, nullptr, "EIGHTLET"), card("EIGHTLET= 1"));
  EXPECT_EQ(written(31, &one, nullptr, nullptr), card("        = 1"));
}

TEST(FitsValueCard, CutsATextAt68Characters) {
  const std::string text(68, 'a');
  EXPECT_EQ(written(16, text.c_str(), "comment"), "KEYWORD = '" + text + "'");
  EXPECT_EQ(written(16, (text + "bc").c_str(), "comment"), "KEYWORD = '" + text + "'");
}

TEST(FitsValueCard, DoesNotDoubleQuotes) {
  EXPECT_EQ(written(16, "it's", nullptr), card("KEYWORD = 'it's'"));
}

TEST(FitsValueCard, CutsACommentAtTheCardsEnd) {
  const std::string comment(100, 'c');
  EXPECT_EQ(written(16, "a", comment.c_str()), "KEYWORD = 'a' / " + std::string(64, 'c'));
}

TEST(FitsValueCard, HasNoCommentFromColumn77On) {
  // A text of n characters ends before column 12 + n. Up to 76 a character of comment fits.
  EXPECT_EQ(written(16, std::string(64, 'a').c_str(), "xy"), "KEYWORD = '" + std::string(64, 'a') + "' / x");
  EXPECT_EQ(written(16, std::string(65, 'a').c_str(), "xy"),
            card("KEYWORD = '" + std::string(65, 'a') + "'"));
  EXPECT_EQ(written(16, std::string(66, 'a').c_str(), "xy"),
            card("KEYWORD = '" + std::string(66, 'a') + "'"));
}

TEST(FitsValueCard, OfANumberThatIsTooLongForACardIsZero) {
  const double fits70 = 1e62;    // 63 digits, point and six decimals
  const double tooLong = -1e62;  // a sign more
  EXPECT_TRUE(contains(written(42, &fits70, nullptr), ".000000"));
  EXPECT_EQ(written(42, &tooLong, "large"), card("KEYWORD = 0. / large"));
  const double most = std::numeric_limits<double>::max();
  EXPECT_EQ(written(42, &most, "large"), card("KEYWORD = 0. / large"));
}

TEST(FitsValueCard, DoesNotFollowTheLocale) {
  const ScopedLocale german("de_DE.UTF-8");
  const double half = 0.5;
  EXPECT_EQ(written(42, &half, nullptr), card("KEYWORD = 0.500000"));
  EXPECT_EQ(cardOf(frameHeader(8, 8), "BZERO"), "BZERO   = 32768.000000");
}

TEST(FitsValueCard, IsRefusedWithoutRoomForEightyBytes) {
  Fits fits;
  const int one = 1;
  std::vector<unsigned char> bytes(239, 'x');
  EXPECT_EQ(fits.RecWriteNextKey(nullptr, 1000, "A", 31, &one, nullptr), -1);
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 79, "A", 31, &one, nullptr), -1);
  EXPECT_EQ(asText(bytes), std::string(239, 'x'));
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 239, "A", 31, &one, nullptr), 0);
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 239, "B", 31, &one, nullptr), 0);
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 239, "C", 31, &one, nullptr), -1);
  EXPECT_EQ(asText(bytes), card("A       = 1") + card("B       = 1") + std::string(79, 'x'));
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 80, "C", 31, &one, nullptr),
            -1);  // the position lies behind it
}

TEST(FitsCommentCards, HoldSeventyCharactersEach) {
  Fits fits;
  std::vector<unsigned char> bytes(320, 'x');
  const std::string text = std::string(70, 'a') + std::string(70, 'b') + "c";
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 320, text.c_str()), 0);
  EXPECT_EQ(asText(bytes), "COMMENT   " + std::string(70, 'a') + "COMMENT   " + std::string(70, 'b') +
                               card("COMMENT   c") + std::string(80, 'x'));
}

TEST(FitsCommentCards, OfNoTextAreNone) {
  Fits fits;
  std::vector<unsigned char> bytes(80, 'x');
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 80, ""), 0);
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 80, nullptr), 0);
  EXPECT_EQ(asText(bytes), std::string(80, 'x'));
}

TEST(FitsCommentCards, StopWhereTheyDoNotFit) {
  Fits fits;
  std::vector<unsigned char> bytes(159, 'x');
  EXPECT_EQ(fits.RecWriteNextKey(bytes.data(), 159, std::string(71, 'a').c_str()), -1);
  EXPECT_EQ(asText(bytes), "COMMENT   " + std::string(70, 'a') + std::string(79, 'x'));
  EXPECT_EQ(fits.RecWriteNextKey(nullptr, 1000, "text"), -1);
}

// ---- Header

template <typename... Texts>
std::vector<std::string> listOf(const Texts&... texts) {
  return {texts...};
}

TEST(FitsHeaderCards, AreWrittenInOrder) {
  SettableHeader meta = frameHeader(100, 50);
  std::vector<std::string> cards = cardsOf(headerOf(meta));
  ASSERT_GT(cards.size(), 17U);
  std::string date = cards[16];
  std::replace_if(
      date.begin(), date.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
  EXPECT_EQ(date, "DATE    = '0000-00-00T00:00:00.000' / File create date");
  cards.erase(cards.begin() + 16);
  EXPECT_EQ(
      cards,
      listOf("SIMPLE  = T / file does conform to FITS standard",
             "BITPIX  = 16 / number of bits per data pixel", "NAXIS   = 2 / number of data axes",
             "NAXIS1  = 100 / The X Axis (width) of Image", "NAXIS2  = 50 / The Y Axis (height) of Image",
             "EXTEND  = T / FITS dataset may contain extensions",
             "COMMENT   FITS (Flexible Image Transport System) format is defined in 'Astronomy",
             "COMMENT    and Astrophysics', volume 376, page 359; bibcode: 2001A&A...376..359H",
             "BSCALE  = 1.000000", "BZERO   = 32768.000000", "INSTRUME= 'VESTRA VS4040' / Camera Model",
             "SERIAL  = 'SN-0042' / Camera serial number", "VERFIRM = 66051 / Firmware Version",
             "VERAPI  = 'Created By liborvacam 2.1.4' / API Version", "MDVER   = 3 / Meta Data Version",
             "DATE-OBS= '2024-02-29T01:02:03.004005006' / Date of observation (capture)",
             "CCD-TEMP= -105 / Cooler Temperature (C)", "FPGATEMP= 405 / FPGA Temperature (C)",
             "BASETEMP= 314 / Heatsink Temperature (C)", "SENSTEMP= -25.300000 / Sensor Chip Temperature (C)",
             "BKSDILL = 0 / Back Side Illuminated", "XBINNING= 1 / Binning factor used on the X axis",
             "YBINNING= 1 / Binning factor used on the Y axis", "BLKLVLAD= 0 / Black Level Adjust value",
             "BLKLVLSN= 0 / Black Level Sun value", "DEADPXCR= 0 / Dead Pixel Correction flag",
             "EXPTIME = 1200 / Duration of exposure in 10us periods", "FRAMENUM= 321 / Frame Number",
             "ISHIFRM = 0 / Is High Frame flag", "ISMRGFRM= 0 / Is Merged Frame flag",
             "GAINLOW = 2.000000 / Low Gain Value", "LOWDARK = 0 / Low Dark Current flag",
             "LOWNOISE= 0 / Low Noise flag", "GPS_LOCK= 0 / GPS Present at Capture Time",
             "GEO_LAT = 50.000000 / Geocentric latitude [deg]",
             "GEO_LONG= -50.000000 / [deg] Geocentric longitude", "HDR-MODE= 0 / Image captured in HDR Mode",
             "HRZDIRIN= 0 / Horizontal Scan Direction Invert flag",
             "VRTDIRIN= 0 / Vertical Scan Direction Invert flag", "ILLSTRDL= -45 / Illumination Start Delay",
             "ILLSTPDL= 46 / Illumination Stop Delay", "IMGSTACL= 0 / Image Start Column",
             "IMGSTARW= 0 / Image Start Row", "IMGSTPCL= 99 / Image Stop Column",
             "IMGSTPRW= 49 / Image Stop Row", "NONRWALL= 0 / Non-Row Alligned Image flag",
             "NUMDTCH = 0 / Number Of Data Channels", "PXLORDIM= 0 / Pixel Ordered Image flag",
             "PREREFRW= 0 / Number of Pre-Reference Rows", "PSTREFRW= 0 / Number of Post-Reference Rows",
             "PRFPXPRW= 0 / Number of Pre Reference pixels per row",
             "RFPXLPRW= 0 / Number of Post Reference pixels per row",
             "SNRPXLDP= 16 / Sensor Pixel Depth capability", "SHUTOPDL= 77 / Shutter Open Delay",
             "SHUTCLDL= -76 / Shutter Close Delay", "TRKFRMPR= 0 / Tracking Frames Per Image Frame",
             "TRKSTRCL= 0 / Tracking Start Column", "TRKSTRRW= 0 / Tracking Start Row",
             "TRKSTPCL= 0 / Tracking Stop Column", "TRKSTPRW= 0 / Tracking Stop Row", "END"));
}

TEST(FitsHeaderCards, ShowTheValueOfTheirOwnKey) {
  const std::map<std::string, int> keys = {
      {"VERFIRM", 89},  {"MDVER", 2},     {"XBINNING", 5},  {"YBINNING", 6},  {"BLKLVLAD", 7},
      {"BLKLVLSN", 8},  {"EXPTIME", 22},  {"FRAMENUM", 25}, {"IMGSTACL", 49}, {"IMGSTARW", 50},
      {"IMGSTPCL", 51}, {"IMGSTPRW", 52}, {"NUMDTCH", 66},  {"PREREFRW", 69}, {"PSTREFRW", 68},
      {"PRFPXPRW", 71}, {"RFPXLPRW", 70}, {"SNRPXLDP", 72}, {"TRKFRMPR", 81}, {"TRKSTRCL", 82},
      {"TRKSTRRW", 83}, {"TRKSTPCL", 84}, {"TRKSTPRW", 85}, {"BKSDILL", 3},   {"DEADPXCR", 21},
      {"ISHIFRM", 56},  {"ISMRGFRM", 58}, {"LOWDARK", 61},  {"LOWNOISE", 62}, {"GPS_LOCK", 39},
      {"HDR-MODE", 40}, {"HRZDIRIN", 44}, {"VRTDIRIN", 92}, {"NONRWALL", 65}, {"PXLORDIM", 67}};
  SettableHeader meta;
  for (const auto& [keyword, key] : keys)
    meta.set(key, 1000 + static_cast<unsigned int>(key));
  for (const auto& [keyword, key] : keys)
    EXPECT_TRUE(contains(cardOf(meta, keyword + std::string(8 - keyword.size(), ' ') + "= "),
                         "= " + std::to_string(1000 + key) + " /"))
        << keyword;
}

TEST(FitsHeaderCards, ShowAFlagAsANumber) {
  SettableHeader meta;
  meta.setBool(40, true);
  EXPECT_EQ(cardOf(meta, "HDR-MODE"), "HDR-MODE= 1 / Image captured in HDR Mode");
}

TEST(FitsHeaderCards, OfAHighGainPlaneShowTheHighGain) {
  SettableHeader meta = frameHeader(8, 8);
  meta.SetIsHighFrame(true);
  EXPECT_EQ(cardOf(meta, "GAINHIGH"), "GAINHIGH= 7.000000 / High Gain Value");
  EXPECT_EQ(cardOf(meta, "GAINLOW"), "no such card");
  EXPECT_EQ(cardOf(meta, "ISHIFRM"), "ISHIFRM = 1 / Is High Frame flag");
  meta.SetIsHighFrame(false);
  EXPECT_EQ(cardOf(meta, "GAINHIGH"), "no such card");
}

TEST(FitsHeaderCards, OfVersion1HaveNoPosition) {
  SettableHeader meta = frameHeader(8, 8);
  meta.set(2, 1);
  for (const char* keyword : {"GPS_LOCK", "GEO_LAT", "GEO_LONG"})
    EXPECT_EQ(cardOf(meta, keyword), "no such card");
  EXPECT_EQ(cardOf(meta, "HDR-MODE"), "HDR-MODE= 0 / Image captured in HDR Mode");
  for (const unsigned int version : {0U, 2U, 4U}) {
    meta.set(2, version);
    EXPECT_NE(cardOf(meta, "GEO_LAT"), "no such card") << version;
  }
}

TEST(FitsHeaderCards, HaveTheBinnedSizeOfTheFrame) {
  SettableHeader meta = frameHeader(101, 50);
  meta.set(71, 5).set(70, 3).set(69, 7).set(68, 2).set(5, 2).set(6, 3);
  EXPECT_EQ(cardOf(meta, "NAXIS1"), "NAXIS1  = 56 / The X Axis (width) of Image");   // 51 + 3 + 2
  EXPECT_EQ(cardOf(meta, "NAXIS2"), "NAXIS2  = 21 / The Y Axis (height) of Image");  // 17 + 3 + 1
}

TEST(FitsHeaderCards, ShowATextUpToItsFirstZero) {
  SettableHeader meta;
  meta.setText(11, std::string("AB\0CD", 5)).setText(75, std::string(100, 's'));
  EXPECT_EQ(cardOf(meta, "INSTRUME"), "INSTRUME= 'AB' / Camera Model");
  EXPECT_EQ(cardOf(meta, "SERIAL"), "SERIAL  = '" + std::string(68, 's') + "'");
  meta.set(11, 5);  // no text at all
  EXPECT_EQ(cardOf(meta, "INSTRUME"), "INSTRUME= '' / Camera Model");
}

TEST(FitsHeaderCards, OfAbsurdValuesStayWithinTheHeader) {
  SettableHeader meta;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
    meta.setDouble(static_cast<int>(key), key % 2 == 0 ? 1e308 : -1e308);
  const std::string header = headerOf(meta);
  EXPECT_EQ(cardsOf(header).back(), "END");
  EXPECT_EQ(cardOf(meta, "GAINHIGH"), "GAINHIGH= 0. / High Gain Value");
}

TEST(FitsHeaderCards, AreFollowedByBlanks) {
  const std::string header = headerOf(frameHeader(8, 8), 7000);
  const std::size_t end = 80 * cardsOf(header).size();
  EXPECT_EQ(end, 62U * 80);  // 59 value cards, 2 comments, the end
  EXPECT_EQ(header.substr(end), std::string(7000 - end, ' '));
}

TEST(FitsHeaderCards, ReportOnlyTheFirstCard) {
  const SettableHeader meta = frameHeader(8, 8);
  Fits fits;
  std::vector<unsigned char> bytes(300, 'x');
  EXPECT_EQ(fits.DoWriteHeader(nullptr, 5760, meta), -1);
  EXPECT_EQ(fits.DoWriteHeader(bytes.data(), 79, meta), -1);
  EXPECT_EQ(asText(bytes), std::string(79, ' ') + std::string(221, 'x'));
  EXPECT_EQ(fits.DoWriteHeader(bytes.data(), 170, meta), 0);
  EXPECT_EQ(asText(bytes).substr(160), std::string(10, ' ') + std::string(130, 'x'));
}

// ---- Images in memory

TEST(FitsExtraBytes, FillUpToAWholeBlock) {
  const struct {
    unsigned long pixels;
    unsigned int bits;
    unsigned int trailer;
  } sizes[] = {{1440, 16, 0}, {1, 16, 2878}, {0, 16, 0},           {1441, 16, 2878},
               {1, 12, 2878}, {2, 12, 2877}, {3UL << 32, 16, 1344}};
  for (const auto& size : sizes) {
    unsigned int header = 0;
    unsigned int trailer = 0;
    CFitsInterface::ExtraBytes(size.pixels, size.bits, header, trailer);
    EXPECT_EQ(header, 5760U);
    const unsigned long bytes = (size.pixels * size.bits + 7) / 8;
    EXPECT_EQ((bytes + trailer) % 2880, 0U);
    EXPECT_LT(trailer, 2880U);
    EXPECT_EQ(trailer, size.trailer) << size.pixels;
  }
}

TEST(FitsImageBuffer, HoldsHeaderAndSwappedPixels) {
  const SettableHeader meta = frameHeader(3, 2);
  const std::vector<unsigned short> pixels = {0x1234, 0x00FF, 0xFF00, 0, 0xFFFF, 0x8001};
  std::vector<unsigned short> buffer(headerSize / 2, 0x7878);
  buffer.insert(buffer.end(), pixels.begin(), pixels.end());
  buffer.push_back(0x1122);
  Fits fits;
  EXPECT_EQ(fits.CreateImageBuffer(buffer.data(), headerSize, 6, meta, false), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer.data()), 10), "SIMPLE  = ");
  EXPECT_EQ(std::vector<unsigned short>(buffer.begin() + headerSize / 2, buffer.end()),
            (std::vector<unsigned short>{0x3412, 0xFF00, 0x00FF, 0, 0xFFFF, 0x0180, 0x1122}));
}

TEST(FitsImageBuffer, LeavesPixelsAloneThatAreSwappedAlready) {
  std::vector<unsigned short> buffer(headerSize / 2 + 1, 0x1234);
  EXPECT_EQ(Fits().CreateImageBuffer(buffer.data(), headerSize, 1, frameHeader(1, 1), true), 0);
  EXPECT_EQ(buffer.back(), 0x1234);
}

TEST(FitsImageBuffer, NeedsABufferAndRoomForTheHeader) {
  const SettableHeader meta = frameHeader(1, 1);
  std::vector<unsigned short> buffer(headerSize / 2 + 1, 0x1234);
  EXPECT_EQ(Fits().CreateImageBuffer(nullptr, headerSize, 1, meta, false), -1);
  EXPECT_EQ(Fits().CreateImageBuffer(buffer.data(), headerSize - 1, 1, meta, false), -1);
  EXPECT_EQ(buffer, std::vector<unsigned short>(headerSize / 2 + 1, 0x1234));
}

TEST(FitsImageBuffer, TakesRoomOfAnyLargerSize) {
  for (const unsigned int room : {headerSize + 1, headerSize + 2, headerSize + 81}) {
    std::vector<unsigned short> buffer(headerSize, 0);
    auto* const bytes = reinterpret_cast<unsigned char*>(buffer.data());
    const unsigned char pixels[] = {1, 2, 3, 4, 5, 6, 7};
    std::memcpy(bytes + room, pixels, sizeof pixels);
    EXPECT_EQ(Fits().CreateImageBuffer(buffer.data(), room, 3, frameHeader(3, 1), false), 0);
    EXPECT_EQ(std::vector<int>(bytes + room, bytes + room + 7), (std::vector<int>{2, 1, 4, 3, 6, 5, 7}))
        << room;
    EXPECT_EQ(bytes[room - 1], ' ');
  }
}

TEST(FitsImageCopy, GrowsAndIsKeptWhenLargeEnough) {
  Fits fits;
  EXPECT_EQ(fits.m_pImageCopy, nullptr);
  EXPECT_EQ(fits.AllocateImageCopy(10, 100), 0);
  EXPECT_EQ(fits.m_ulImageCopySize, 120U);
  const unsigned char* const first = fits.m_pImageCopy;
  EXPECT_EQ(fits.AllocateImageCopy(5, 110), 0);
  EXPECT_EQ(fits.m_pImageCopy, first);
  EXPECT_EQ(fits.m_ulImageCopySize, 120U);
  EXPECT_EQ(fits.AllocateImageCopy(11, 100), 0);
  EXPECT_EQ(fits.m_ulImageCopySize, 122U);
  fits.FreeAll();
  EXPECT_EQ(fits.m_pImageCopy, nullptr);
  EXPECT_EQ(fits.m_ulImageCopySize, 0U);
  fits.FreeAll();
}

#if !ORVACAM_SANITIZED  // their shadow memory does not live with a limit of address space
[[noreturn]] void allocateWithinOneGiB() {
  const rlimit limit{1UL << 30, 1UL << 30};
  setrlimit(RLIMIT_AS, &limit);
  Fits fits;
  const bool failed = fits.AllocateImageCopy(0xFFFFFFFF, 5760) == -1 && fits.m_pImageCopy == nullptr;
  _exit(failed && fits.AllocateImageCopy(1000, 5760) == 0 ? 7 : 1);
}

TEST(FitsImageCopyDeathTest, FailsWithoutMemory) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(allocateWithinOneGiB(), testing::ExitedWithCode(7), "");
}
#endif

// ---- Files

std::string bigEndian(const std::vector<unsigned short>& pixels, std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) {
    bytes += static_cast<char>(pixels[i] >> 8);
    bytes += static_cast<char>(pixels[i] & 255);
  }
  return bytes;
}

class FitsFile : public testing::Test {
 protected:
  const TestFolder directory;
  const std::string path = directory.file("frame.fit");
  const std::vector<unsigned short> pixels = ramp(40);
};

TEST_F(FitsFile, EndsTheHeadersLengthBeforeTheLastPixel) {
  const std::vector<unsigned short> frame = ramp(100 * 50);
  EXPECT_EQ(Fits().CreateImageFile(path, frame.data(), frameHeader(100, 50)), 0);
  const std::string content = contentOf(path);
  ASSERT_EQ(content.size(), 10000U);  // 5000 pixels of 2 bytes, header included
  EXPECT_EQ(cardsOf(content).size(), 62U);
  EXPECT_EQ(content.substr(headerSize), bigEndian(frame, 5000 - headerSize / 2));
  EXPECT_EQ(frame, ramp(100 * 50));
}

TEST_F(FitsFile, OfManyPixelsIsWrittenInPieces) {
  const std::vector<unsigned short> frame = ramp(1100 * 1000);
  Fits fits;
  EXPECT_EQ(fits.CreateImageFile(path, frame.data(), frameHeader(1100, 1000)), 0);
  const std::string content = contentOf(path);
  ASSERT_EQ(content.size(), 2200000U);
  EXPECT_TRUE(content.substr(headerSize) == bigEndian(frame, 1100000 - headerSize / 2));
  EXPECT_LT(fits.m_ulImageCopySize, 2200000U);
}

TEST_F(FitsFile, OfFewPixelsHoldsPartOfTheHeader) {
  EXPECT_EQ(Fits().CreateImageFile(path, pixels.data(), frameHeader(40, 1)), 0);
  EXPECT_EQ(contentOf(path), card("SIMPLE  = T / file does conform to FITS standard"));
}

TEST_F(FitsFile, IsForItsOwnerOnly) {
  const mode_t before = umask(0);
  EXPECT_EQ(Fits().CreateImageFile(path, pixels.data(), frameHeader(8, 1)), 0);
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(FitsFile, KeepsTheEndOfALongerExistingFile) {
  fill(path, std::string(100, 'x'));
  EXPECT_EQ(Fits().CreateImageFile(path, pixels.data(), frameHeader(40, 1)), 0);
  EXPECT_EQ(contentOf(path).substr(80), std::string(20, 'x'));
  EXPECT_EQ(contentOf(path).size(), 100U);
}

TEST_F(FitsFile, IsRefusedWithoutPixelsOrSize) {
  EXPECT_EQ(Fits().CreateImageFile(path, nullptr, frameHeader(8, 1)), -1);
  SettableHeader inverted = frameHeader(8, 1);
  inverted.setImage(8, 7, 0, 0);
  EXPECT_EQ(Fits().CreateImageFile(path, pixels.data(), inverted), -1);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FitsFile, IsRefusedWhereTheSizeIsBeyondAllSensors) {
  for (const unsigned int size : {65535U, 65536U, 46341U}) {
    EXPECT_EQ(Fits().CreateImageFile(path, pixels.data(), frameHeader(size, size)), -1) << size;
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

// ---- Log

class FitsFileLog : public FitsFile {
 protected:
  const LogCapture log;
};

TEST_F(FitsFileLog, SaysWhatWasWrittenAtTheErrorLevel) {
  EXPECT_EQ(CFitsInterface().CreateImageFile(path, pixels.data(), frameHeader(40, 1)), 0);
  EXPECT_TRUE(
      contains(log.text(), "ERROR, CreateImageFile: Successfully wrote file " + path + ", size 80\n"));
}

TEST_F(FitsFileLog, SaysThatAFileCannotBeOpened) {
  const std::string missing = directory.file("missing/frame.fit");
  EXPECT_EQ(CFitsInterface().CreateImageFile(missing, pixels.data(), frameHeader(40, 1)), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, CreateImageFile: Unable to open file " + missing + ", err 2\n"));
}

TEST_F(FitsFileLog, SaysThatAFileCannotBeWritten) {
  EXPECT_EQ(CFitsInterface().CreateImageFile("/dev/full", pixels.data(), frameHeader(40, 1)), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, CreateImageFile: Error writing file /dev/full, size 80\n"));
}

[[noreturn]] void writeWithin7000Bytes(const std::string& path) {
  const rlimit limit{7000, 7000};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limit);
  _exit(Fits().CreateImageFile(path, ramp(5000).data(), frameHeader(100, 50)) == -1 ? 7 : 1);
}

using FitsFileDeathTest = FitsFile;

TEST_F(FitsFileDeathTest, FailsWhereOnlyAPartCanBeWritten) {
  testing::GTEST_FLAG(death_test_style) = "fast";
  EXPECT_EXIT(writeWithin7000Bytes(path), testing::ExitedWithCode(7), "");
  EXPECT_EQ(contentOf(path).size(), 7000U);
}

TEST_F(FitsFile, LooksTheLogUpWhenItIsNeeded) {
  CFitsInterface fits;
  const LogCapture log;  // releases the log that existed before
  EXPECT_EQ(fits.CreateImageFile(directory.file("a.fit"), pixels.data(), frameHeader(40, 1)), 0);
  EXPECT_TRUE(contains(log.text(), "a.fit, size 80"));
}

// ---- Reading back

TEST(FitsReading, RoundTripsTheHeader) {
  SettableHeader meta = frameHeader(100, 50);
  meta.SetHDRFrame(true);
  std::string header = headerOf(meta);
  CFrameMetaData read;
  bool end = false;
  EXPECT_EQ(
      CFitsInterface::ParseMetaData(reinterpret_cast<unsigned char*>(header.data()), headerSize, read, end),
      0);
  EXPECT_TRUE(end);
  for (const int key : {2, 5, 6, 22, 25, 26, 40, 45, 46, 49, 50, 51, 52, 72, 76, 77, 89, 12, 13})
    EXPECT_EQ(read.Value(ORVA_META_KEYS(key)).GetValueDouble(),
              meta.Value(ORVA_META_KEYS(key)).GetValueDouble())
        << key;
  EXPECT_NEAR(read.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueDouble(), 4005006.0, 1.0);
  EXPECT_TRUE(read.Value(ORVA_META_KEY_CAMERA_MODEL).IsEqual("VESTRA VS4040", 13));
  EXPECT_TRUE(read.Value(ORVA_META_KEY_LIB_INFO_STRING).IsEqual("Created By liborvacam 2.1.4", 27));
  unsigned int width = 0;
  unsigned int height = 0;
  EXPECT_EQ(read.GetFrameDimensionsBinned(width, height), 0);
  EXPECT_EQ(width, 100U);
  EXPECT_EQ(height, 50U);
}

TEST(FitsReading, RoundTripsAFile) {
  const TestFolder directory;
  const std::string path = directory.file("frame.fit");
  const std::vector<unsigned short> pixels = ramp(100 * 50);
  ASSERT_EQ(Fits().CreateImageFile(path, pixels.data(), frameHeader(100, 50)), 0);
  std::FILE* const stream = std::fopen(path.c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  CFrameMetaData read;
  EXPECT_EQ(CFitsInterface::ParseMetaData(stream, read), 0);
  EXPECT_EQ(read.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 321U);
  std::fclose(stream);
  EXPECT_EQ(CFitsInterface::ParseMetaData(nullptr, read), -1);
}

TEST(FitsReading, OffersTheGrammarOfTheCards) {
  std::string keyword;
  std::string value;
  const std::string text = card("FRAMENUM= 12 / Frame Number");
  EXPECT_EQ(
      CFitsInterface::ParseNextKey(reinterpret_cast<const unsigned char*>(text.data()), 80, keyword, value),
      0);
  EXPECT_EQ(keyword, "FRAMENUM");
  EXPECT_EQ(value, "12");
  EXPECT_EQ(CFitsInterface::FindKeyIndex("framenum"), 25);
  CFrameMetaData meta;
  CFitsInterface::ProcessKeyValue(keyword, value, meta);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 12U);
  EXPECT_TRUE(CFitsInterface::IsFitsFrame(reinterpret_cast<const unsigned char*>("simple"), 6));
  EXPECT_TRUE(CFitsInterface::IsSupportIncluded());
  CFitsInterface::LogFitsError("operation", "text", -1);
}

}  // namespace
