#include <fcntl.h>
#include <orvacam/imagefiles/CFitsInterface.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>
#include <orvacam/version.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

#include "imagefiles/FileWriting.h"
#include "imagefiles/FramePixels.h"
#include "imagefiles/ImageFormats.h"
#include "kernels/Kernels.h"
#include "metadata/FitsCards.h"
#include "metadata/KeyNames.h"
#include "support/AlignedMemory.h"
#include "support/CheckedMath.h"
#include "support/NumberText.h"
#include "support/OpenFile.h"

using namespace orvacam::fits;

namespace {

constexpr unsigned int valueColumn = 10;
constexpr unsigned int lastValueColumn = 77;  // a value that ends here leaves no room for a comment
constexpr std::size_t longestText = 68;

/// A file is written in pieces of this size, which stay in the cache between swap and write. Whole pages, so
/// that every piece starts at one: the system copies them fastest so.
constexpr unsigned int pieceBytes = 1024 * 1024;
constexpr unsigned int piecePixels = pieceBytes / sizeof(unsigned short);

constexpr const char* formatComment =
    "FITS (Flexible Image Transport System) format is defined in 'Astronomy and Astrophysics', volume 376, "
    "page "
    "359; bibcode: 2001A&A...376..359H";

// ---- The cards

/// Where a card's value comes from.
enum class Source : unsigned char {
  Key,      // the metadata value that the keyword stands for
  Number,   // the row's number
  Derived,  // a number that the metadata derive
  Width,    // of the binned frame
  Height,
  Creator,  // this library and its version
  CaptureDate,
  LocalTime,
  FormatComment,  // no value: a text in comment cards
  None            // no value: the keyword alone
};

/// Which frames have the card.
enum class When : unsigned char { Always, HasPosition, IsHighPlane, IsLowPlane };

struct Card {
  unsigned int keyword;  // place in the keyword table, which also has the comment
  FITS_VALUE_TYPE type;
  Source source = Source::Key;
  When when = When::Always;
  double number = 0.0;
  double (CFrameMetaData::*derived)() const = nullptr;
};

constexpr FITS_VALUE_TYPE L = FITS_VALUE_LOGICAL;
constexpr FITS_VALUE_TYPE S = FITS_VALUE_STRING;
constexpr FITS_VALUE_TYPE U = FITS_VALUE_UNSIGNED;
constexpr FITS_VALUE_TYPE I = FITS_VALUE_SIGNED;
constexpr FITS_VALUE_TYPE F = FITS_VALUE_FLOAT;

/// The header, in order.
constexpr Card cards[] = {
    {Simple, L, Source::Number, When::Always, 1},
    {Bitpix, U, Source::Number, When::Always, 16},
    {Naxis, U, Source::Number, When::Always, 2},
    {Naxis1, U, Source::Width},
    {Naxis2, U, Source::Height},
    {Extend, L, Source::Number, When::Always, 1},
    {Comment, S, Source::FormatComment},
    {Bscale, F, Source::Number, When::Always, 1.0},
    {Bzero, F, Source::Number, When::Always, 32768.0},
    {ORVA_META_KEY_CAMERA_MODEL, S},
    {ORVA_META_KEY_CAMERA_SERIAL_NUMBER, S},
    {ORVA_META_KEY_FIRMWARE_VERSION, U},
    {ORVA_META_KEY_LIB_INFO_STRING, S, Source::Creator},
    {ORVA_META_KEY_METADATA_VERSION, U},
    {ORVA_META_KEY_CAPTURE_DATE, S, Source::CaptureDate},
    {ORVA_META_KEY_UNUSED_23, S, Source::LocalTime},  // intended: local time, although the standard says UTC
    {ORVA_META_KEY_SENSOR_COOLER_TEMP, I},            // intended: these three are tenths, labelled as degrees
    {ORVA_META_KEY_FPGA_TEMPERATURE, I},
    {ORVA_META_KEY_BASE_TEMPERATURE, I},
    {ORVA_META_KEY_SENSOR_CHIP_TEMP, F, Source::Derived, When::Always, 0,
     &CFrameMetaData::GetSensorTemperature},
    {ORVA_META_KEY_BACK_SIDE_ILLUMINATED, U},
    {ORVA_META_KEY_HORIZONTAL_BINNING, U},
    {ORVA_META_KEY_VERTICAL_BINNING, U},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST, U},
    {ORVA_META_KEY_BLACK_LEVEL_SUN, U},
    {ORVA_META_KEY_DEAD_PIXEL_CORRECTION, U},
    {ORVA_META_KEY_EXPOSURE_TIME, U},
    {ORVA_META_KEY_FRAME_NUMBER, U},
    {ORVA_META_KEY_TEST_IS_HIGH_FRAME, U},
    {ORVA_META_KEY_TEST_IS_MERGED_FRAME, U},
    {ORVA_META_KEY_HDR_GAIN, F, Source::Key, When::IsHighPlane},
    {ORVA_META_KEY_LDR_GAIN, F, Source::Key, When::IsLowPlane},
    {ORVA_META_KEY_LOW_DARK_CURRENT, U},
    {ORVA_META_KEY_LOW_NOISE, U},
    {ORVA_META_KEY_GPS_LOCKED, U, Source::Key, When::HasPosition},
    {ORVA_META_KEY_GPS_LATITUDE_RAW, F, Source::Derived, When::HasPosition, 0,
     &CFrameMetaData::GetGPSLatitude},
    {ORVA_META_KEY_GPS_LONGITUDE_RAW, F, Source::Derived, When::HasPosition, 0,
     &CFrameMetaData::GetGPSLongitude},
    {ORVA_META_KEY_HDR_MODE, U},
    {ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, U},
    {ORVA_META_KEY_VERT_SCAN_DIR_INVERT, U},
    {ORVA_META_KEY_ILLUMIN_START_DELAY, I},
    {ORVA_META_KEY_ILLUMIN_STOP_DELAY, I},
    {ORVA_META_KEY_IMAGE_START_COLUMN, U},
    {ORVA_META_KEY_IMAGE_START_ROW, U},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, U},
    {ORVA_META_KEY_IMAGE_STOP_ROW, U},
    {ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, U},
    {ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, U},
    {ORVA_META_KEY_PIXEL_ORDERED_IMAGE, U},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, U},
    {ORVA_META_KEY_POST_REFERENCE_ROWS, U},
    {ORVA_META_KEY_PRE_ROW_REF_PIXELS, U},
    {ORVA_META_KEY_POST_ROW_REF_PIXELS, U},
    {ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, U},
    {ORVA_META_KEY_SHUTTER_OPEN_DELAY, I},
    {ORVA_META_KEY_SHUTTER_CLOSE_DELAY, I},
    {ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, U},
    {ORVA_META_KEY_TRACKING_START_COLUMN, U},
    {ORVA_META_KEY_TRACKING_START_ROW, U},
    {ORVA_META_KEY_TRACKING_STOP_COLUMN, U},
    {ORVA_META_KEY_TRACKING_STOP_ROW, U},
    {End, U, Source::None},
};
// Each row is a card, but for the second of the two gains and for the text of two cards.
static_assert((sizeof cards / sizeof cards[0]) * cardSize <= orvacam::fitsHeaderSize,
              "the header has room for all cards");

/// The values that one frame's cards show.
class CardValues {
 public:
  explicit CardValues(const CFrameMetaData& meta) : m_meta(meta) {
    m_meta.GetFrameDimensionsBinned(m_width, m_height);
  }

  bool applies(When when) const {
    const bool isHighPlane = m_meta.Value(ORVA_META_KEY_TEST_IS_HIGH_FRAME).GetValueBool();
    switch (when) {
      case When::HasPosition:
        return m_meta.Value(ORVA_META_KEY_METADATA_VERSION).GetValueUint() != 1;
      case When::IsHighPlane:
        return isHighPlane;
      case When::IsLowPlane:
        return !isHighPlane;
      default:
        return true;
    }
  }

  /// The card's value in its type; null for none. Valid until the next call.
  const void* of(const Card& card) {
    switch (card.source) {
      case Source::Key:
        return card.type == FITS_VALUE_STRING ? keyText(card) : number(card.type, keyNumber(card));
      case Source::Number:
        return number(card.type, card.number);
      case Source::Derived:
        return number(card.type, (m_meta.*card.derived)());
      case Source::Width:
        return number(card.type, m_width);
      case Source::Height:
        return number(card.type, m_height);
      case Source::Creator:
        return "Created By liborvacam " ORVACAM_VERSION_STRING;
      case Source::CaptureDate:
        m_meta.GetCaptureDate(m_text, sizeof m_text);
        return m_text;
      case Source::LocalTime:
        utilOSGetLocalTimeString(m_text, sizeof m_text);
        return m_text;
      default:
        return nullptr;
    }
  }

 private:
  const CMetaValues& value(const Card& card) const {
    return m_meta.Value(static_cast<ORVA_META_KEYS>(card.keyword));
  }
  const void* keyText(const Card& card) const {
    int length = 0;
    return value(card).GetValue(nullptr, length);  // which a zero byte closes
  }
  double keyNumber(const Card& card) const {
    return card.type == FITS_VALUE_SIGNED  ? value(card).GetValueInt()
           : card.type == FITS_VALUE_FLOAT ? value(card).GetValueDouble()
                                           : value(card).GetValueUint();
  }

  /// All 32-bit integers are doubles, too.
  const void* number(FITS_VALUE_TYPE type, double value) {
    if (type == FITS_VALUE_LOGICAL) return &(m_number.flag = value != 0.0);
    if (type == FITS_VALUE_UNSIGNED) return &(m_number.whole = static_cast<unsigned int>(value));
    if (type == FITS_VALUE_SIGNED) return &(m_number.integer = static_cast<int>(value));
    return &(m_number.real = value);
  }

  const CFrameMetaData& m_meta;
  unsigned int m_width = 0;
  unsigned int m_height = 0;
  union {
    bool flag;
    unsigned int whole;
    int integer;
    double real = 0.0;
  } m_number;
  char m_text[128] = "";
};

/// The next card of a header, blank but for the keyword, and the position behind it; null, with nothing
/// moved, where there is no room.
unsigned char* nextCard(unsigned char* header, unsigned int size, unsigned int& position,
                        std::string_view keyword) {
  if (header == nullptr || position > size || size - position < cardSize) return nullptr;
  unsigned char* const card = header + position;
  position += cardSize;
  std::memset(card, ' ', cardSize);
  keyword.copy(reinterpret_cast<char*>(card), keywordSize);
  return card;
}

using ValueText = char[cardSize + 1];

/// A value as it stands in its card; null for none.
const char* formatValue(unsigned int type, const void* value, ValueText& text) {
  if (value == nullptr) return nullptr;
  switch (type) {
    case FITS_VALUE_LOGICAL:
      return *static_cast<const bool*>(value) ? "T" : "F";
    case FITS_VALUE_STRING:
      std::snprintf(text, sizeof text, "'%.*s'", static_cast<int>(longestText),
                    static_cast<const char*>(value));
      return text;
    case FITS_VALUE_UNSIGNED:
      std::snprintf(text, sizeof text, "%u", *static_cast<const unsigned int*>(value));
      return text;
    case FITS_VALUE_SIGNED:
      std::snprintf(text, sizeof text, "%d", *static_cast<const int*>(value));
      return text;
    case FITS_VALUE_FLOAT: {
      orvacam::NumberMemory memory;
      const std::string_view digits = orvacam::fixedText(memory, *static_cast<const double*>(value));
      if (digits.size() > cardSize - valueColumn) return "0.";  // a cut number would be another number
      text[digits.copy(text, digits.size())] = '\0';
      return text;
    }
    default:
      return nullptr;
  }
}

// ---- Pixels and files

/// Room of an odd size puts the pixels at odd addresses.
void swapInPlace(unsigned char* bytes, std::size_t pixels) {
  if (reinterpret_cast<std::uintptr_t>(bytes) % alignof(std::uint16_t) == 0) {
    auto* const words = reinterpret_cast<std::uint16_t*>(bytes);
    orvacam::kernels::active().swapBytes(words, words, pixels);
    return;
  }
  for (std::size_t i = 0; i < pixels; ++i)
    std::swap(bytes[2 * i], bytes[2 * i + 1]);
}

/// Writes a file of 2 bytes for each pixel, header included: false when it cannot be written whole. The
/// memory begins with the header and has room for a piece of pixels besides.
bool writeImage(int file, unsigned char* memory, const unsigned short* pixels, unsigned int count) {
  // Intended: the length counts the pixels alone, so that the header displaces the last of them.
  std::size_t left = sizeof *pixels * std::size_t{count};
  std::size_t filled = std::min<std::size_t>(left, orvacam::fitsHeaderSize);
  while (left > 0) {
    const std::size_t piece = std::min<std::size_t>(left, pieceBytes);
    const std::size_t swapped = (piece - filled) / sizeof *pixels;
    orvacam::kernels::active().swapBytes(pixels, reinterpret_cast<unsigned short*>(memory + filled), swapped);
    if (!orvacam::writeAll(file, memory, piece)) return false;
    pixels += swapped;
    left -= piece;
    filled = 0;
  }
  return true;
}

}  // namespace

CFitsInterface::CFitsInterface()
    : m_pDefaultText(""), m_pImageCopy(nullptr), m_ulImageCopySize(0), m_uiPosition(0), m_ValueText{} {}

CFitsInterface::~CFitsInterface() {
  FreeAll();
}

bool CFitsInterface::IsFitsFrame(const unsigned char* pBuffer, unsigned int uiLength) {
  return isFitsFrame(pBuffer, uiLength);
}

bool CFitsInterface::IsSupportIncluded() {
  return true;
}

// ---- Header

int CFitsInterface::RecWriteNextKey(unsigned char* pBuffer, unsigned int uiSize, const char* pKeyword,
                                    unsigned int uiType, const void* pValue, const char* pComment) {
  const std::string_view keyword(pKeyword, pKeyword != nullptr ? strnlen(pKeyword, keywordSize) : 0);
  unsigned char* const card = nextCard(pBuffer, uiSize, m_uiPosition, keyword);
  if (card == nullptr) return -1;

  std::size_t end = keyword.size();
  if (uiType == FITS_VALUE_STRING && pValue == nullptr) pValue = m_pDefaultText;
  if (const char* const value = formatValue(uiType, pValue, m_ValueText)) {
    card[keywordSize] = '=';
    end = valueColumn;
    for (const char* next = value; *next != '\0' && end < cardSize; ++next)
      card[end++] = static_cast<unsigned char>(*next);
  }
  if (pComment != nullptr && *pComment != '\0' && end < lastValueColumn) {
    card[end + 1] = '/';
    std::memcpy(card + end + 3, pComment, strnlen(pComment, cardSize - (end + 3)));
  }
  return 0;
}

int CFitsInterface::RecWriteNextKey(unsigned char* pBuffer, unsigned int uiSize, const char* pText) {
  std::string_view text = pText != nullptr ? pText : "";
  while (!text.empty()) {
    const std::string_view part = text.substr(0, cardSize - valueColumn);
    unsigned char* const card = nextCard(pBuffer, uiSize, m_uiPosition, keywords[Comment].name);
    if (card == nullptr) return -1;
    std::memcpy(card + valueColumn, part.data(), part.size());
    text.remove_prefix(part.size());
  }
  return 0;
}

int CFitsInterface::DoWriteHeader(unsigned char* pBuffer, unsigned int uiSize, const CFrameMetaData& meta) {
  if (pBuffer == nullptr) return -1;
  std::memset(pBuffer, ' ', uiSize);
  m_uiPosition = 0;

  CardValues values(meta);
  int result = 0;
  for (const Card& card : cards) {
    if (!values.applies(card.when)) continue;
    const Keyword& keyword = keywords[card.keyword];
    const int written =
        card.source == Source::FormatComment
            ? RecWriteNextKey(pBuffer, uiSize, formatComment)
            : RecWriteNextKey(pBuffer, uiSize, keyword.name.data(), card.type, values.of(card),
                              card.source == Source::None ? nullptr : keyword.description);
    // Intended: only the first card's failure is reported.
    if (card.keyword == Simple) result = written;
  }
  return result;
}

// ---- Images

void CFitsInterface::ExtraBytes(unsigned long ulNumPixels, unsigned int uiBitsPerPixel,
                                unsigned int& uiHeaderBytes, unsigned int& uiTrailerBytes) {
  const unsigned long bytes = orvacam::ceilDivide(ulNumPixels * uiBitsPerPixel, 8UL);
  const auto excess = static_cast<unsigned int>(bytes % blockSize);
  uiHeaderBytes = orvacam::fitsHeaderSize;
  uiTrailerBytes = excess != 0 ? blockSize - excess : 0;
}

int CFitsInterface::CreateImageBuffer(unsigned short* pBuffer, unsigned int uiHeaderBytes,
                                      unsigned int uiNumPixels, const CFrameMetaData& meta, bool bSwapped) {
  if (pBuffer == nullptr || uiHeaderBytes < orvacam::fitsHeaderSize) return -1;
  auto* const bytes = reinterpret_cast<unsigned char*>(pBuffer);
  const int result = DoWriteHeader(bytes, uiHeaderBytes, meta);
  // Intended: 32768 is not subtracted, although the header declares it.
  if (result == 0 && !bSwapped) swapInPlace(bytes + uiHeaderBytes, uiNumPixels);
  return result;
}

int CFitsInterface::AllocateImageCopy(unsigned int uiNumPixels, unsigned int uiHeaderBytes) {
  const std::size_t size = sizeof(unsigned short) * std::size_t{uiNumPixels} + uiHeaderBytes;
  if (m_pImageCopy != nullptr && size <= m_ulImageCopySize) return 0;
  FreeAll();
  m_pImageCopy = orvacam::allocateAligned(size);
  if (m_pImageCopy == nullptr) return -1;
  m_ulImageCopySize = size;
  return 0;
}

void CFitsInterface::FreeAll() {
  std::free(m_pImageCopy);
  m_pImageCopy = nullptr;
  m_ulImageCopySize = 0;
}

int CFitsInterface::CreateImageFile(const std::string& path, const unsigned short* pPixels,
                                    const CFrameMetaData& meta) try {
  constexpr const char* operation = "CreateImageFile";
  CLog* const log = CLog::getInstance();  // before there is a file: it may be made here, and find no memory
  unsigned int pixels = 0;
  if (pPixels == nullptr || !orvacam::framePixels(meta, pixels)) return -1;
  if (AllocateImageCopy(std::min(pixels, piecePixels), orvacam::fitsHeaderSize) != 0) return -1;

  // Intended: an existing file is not truncated.
  const int file = orvacam::openForWriting(path.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR);
  if (file < 0) {
    log->log(CLOGLEVEL_ERROR, L"%s: Unable to open file %s, err %d\n", operation, path.c_str(), errno);
    return -1;
  }
  const bool written = DoWriteHeader(m_pImageCopy, orvacam::fitsHeaderSize, meta) == 0 &&
                       writeImage(file, m_pImageCopy, pPixels, pixels);
  int result = written ? 0 : -1;
  if (close(file) != 0) result = -1;  // some file systems say only now that the disk is full
  log->log(
      CLOGLEVEL_ERROR,  // intended: the success, too
      result == 0 ? L"%s: Successfully wrote file %s, size %d\n" : L"%s: Error writing file %s, size %d\n",
      operation, path.c_str(), static_cast<int>(pixels * sizeof(unsigned short)));
  return result;
} catch (const std::exception&) {
  return -1;
}

// ---- Reading back

int CFitsInterface::ParseMetaData(const unsigned char* pBuffer, unsigned int uiLength, CFrameMetaData& meta,
                                  bool& bEnd) {
  return parseMetaData(pBuffer, uiLength, meta, bEnd);
}

int CFitsInterface::ParseMetaData(std::FILE* pStream, CFrameMetaData& meta) {
  return parseMetaData(pStream, meta);
}

int CFitsInterface::ParseNextKey(const unsigned char* pCard, unsigned int uiLength, std::string& keyword,
                                 std::string& value) {
  return parseNextKey(pCard, uiLength, keyword, value);
}

int CFitsInterface::FindKeyIndex(const std::string& keyword) {
  return findKeyIndex(keyword);
}

void CFitsInterface::ProcessKeyValue(const std::string& keyword, const std::string& value,
                                     CFrameMetaData& meta) {
  processKeyValue(keyword, value, meta);
}

void CFitsInterface::LogFitsError(const char* /*pOperation*/, const char* /*pText*/, int /*iStatus*/) {}
