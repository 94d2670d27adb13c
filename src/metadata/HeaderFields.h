#ifndef ORVACAM_SRC_METADATA_HEADER_FIELDS_H
#define ORVACAM_SRC_METADATA_HEADER_FIELDS_H

#include <orvacam/types/meta_keys.h>

#include <cstddef>
#include <string_view>

#include "support/KeyedTable.h"

/// The layout of the frame header, as tables: reading and writing both work through them.
namespace orvacam::header {

constexpr unsigned int magic = 0x4D657461;  // "Meta"
constexpr unsigned int prefixSize = 8;
constexpr unsigned int commonBlock = 79;  // where the block that all versions share begins
// Failures from here to the common block do not stop versions 3 and 4.
constexpr unsigned int forgivenFrom = 48;
constexpr unsigned int writtenSize = 384;  // of versions 3 and 4, and of every header that is written
constexpr unsigned int writtenVersion = 4;

/// Header versions, as a set. Versions 3 and 4 have the same fields; version 4 carries more of them in what
/// is padding in version 3.
enum Versions : unsigned char {
  V1 = 1,
  V2 = 2,
  V34 = 4,
  V12 = V1 | V2,
  V234 = V2 | V34,
  All = V1 | V2 | V34
};

enum class Encoding : unsigned char {
  Unsigned,
  Signed,         // two's complement
  SignMagnitude,  // the top bit of the first byte is the sign
  Text,           // fixed width
  OptionalText,   // read only when that many bytes remain; else the next field is read from the same position
  PixelDepths,    // low nibble: data bit depth minus one; high nibble: data zero point
  ReferenceRows,  // two 12-bit halves: rows after the image, rows before it
  PackedDate,     // version 1: 7 bits of years since 2000, 4 of month, 5 of day
  PackedTime,     // version 1: time of day in 100 ns units
  TimeText,       // "YYYY/MM/DD hh:mm:ss.nnnnnnnnn"
  Gps,            // hemisphere and 1/600000 degrees, into four keys
  Reserved,       // kept raw: the reserved bytes of version 1
  Padding,        // kept raw: the tail of versions 2 and 3
  LibraryVersion,  // written only: this library's own version
  Nothing,         // written only: stays zero
  AsRead           // written only: as it was read
};

/// Behind its keys, a header's values hold what is kept whole: the flag bytes, whose flags are derived, and
/// the two reserved bytes of version 2.
enum KeptValue : unsigned char {
  ControlBlock = ORVA_META_KEY_COUNT,
  ControlBlock2,
  ExtraFlags,
  ControlBlockTest,
  ReservedOfVersion2
};
constexpr unsigned int valueCount = ReservedOfVersion2 + 1;
constexpr unsigned char noKey = 0;  // of what is in no value

struct Field {
  unsigned short offset;
  unsigned char width;
  Versions versions;
  Encoding read;
  unsigned char key;                  // or a KeptValue; the first one where the encoding fills several
  Encoding write = Encoding::AsRead;  // differs where a header is written otherwise than it is read

  constexpr Encoding written() const { return write == Encoding::AsRead ? read : write; }
};

/// Every field behind the prefix, in the order of the bytes of each version.
inline constexpr Field fields[] = {
    {8, 40, All, Encoding::Text, ORVA_META_KEY_CAMERA_MODEL},
    {48, 24, All, Encoding::OptionalText, ORVA_META_KEY_CAMERA_SERIAL_NUMBER},
    {72, 2, V1, Encoding::PackedDate, ORVA_META_KEY_CAPTURE_DATE},
    {74, 5, V1, Encoding::PackedTime, ORVA_META_KEY_CAPTURE_TIME},
    {72, 4, V234, Encoding::Unsigned, ORVA_META_KEY_FIRMWARE_VERSION},
    {76, 2, V234, Encoding::Signed, ORVA_META_KEY_TEMPERATURE_SET_POINT},
    {78, 1, V234, Encoding::Unsigned, ORVA_META_KEY_COOLER_DUTY_CYCLE},

    {79, 1, All, Encoding::Unsigned, ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH},
    {80, 1, All, Encoding::PixelDepths, ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH},
    {81, 2, All, Encoding::Unsigned, ORVA_META_KEY_HORIZONTAL_PIXELS},
    {83, 2, All, Encoding::Unsigned, ORVA_META_KEY_VERTICAL_PIXELS},
    {85, 4, All, Encoding::Unsigned, ORVA_META_KEY_EXPOSURE_TIME},
    {89, 2, All, Encoding::Signed, ORVA_META_KEY_SENSOR_COOLER_TEMP},
    // Intended: read as sign-magnitude, written as two's complement.
    {91, 2, All, Encoding::SignMagnitude, ORVA_META_KEY_SENSOR_CHIP_TEMP, Encoding::Signed},
    {93, 1, All, Encoding::Unsigned, ORVA_META_KEY_GLOBAL_GAIN},
    {94, 1, All, Encoding::Unsigned, ORVA_META_KEY_LDR_GAIN},
    {95, 1, All, Encoding::Unsigned, ORVA_META_KEY_HDR_GAIN},
    {96, 1, All, Encoding::Unsigned, ORVA_META_KEY_POST_ROW_REF_PIXELS},
    {97, 1, All, Encoding::Unsigned, ORVA_META_KEY_PRE_ROW_REF_PIXELS},
    {98, 1, All, Encoding::Unsigned, ControlBlock},
    {99, 1, V12, Encoding::Unsigned, ORVA_META_KEY_HORIZONTAL_BINNING},
    {100, 1, V12, Encoding::Unsigned, ORVA_META_KEY_VERTICAL_BINNING},
    {99, 2, V34, Encoding::Unsigned, ORVA_META_KEY_HORIZONTAL_BINNING},
    {101, 3, All, Encoding::Unsigned, ORVA_META_KEY_BLACK_LEVEL_ADJUST},
    {104, 2, All, Encoding::Unsigned, ORVA_META_KEY_BLACK_LEVEL_SUN},
    {106, 2, All, Encoding::SignMagnitude, ORVA_META_KEY_SHUTTER_OPEN_DELAY},
    {108, 2, All, Encoding::SignMagnitude, ORVA_META_KEY_SHUTTER_CLOSE_DELAY},
    {110, 2, All, Encoding::SignMagnitude, ORVA_META_KEY_ILLUMIN_START_DELAY},
    {112, 2, All, Encoding::SignMagnitude, ORVA_META_KEY_ILLUMIN_STOP_DELAY},
    {114, 2, All, Encoding::Unsigned, ORVA_META_KEY_TRACKING_START_ROW},
    {116, 2, All, Encoding::Unsigned, ORVA_META_KEY_TRACKING_START_COLUMN},
    {118, 2, All, Encoding::Unsigned, ORVA_META_KEY_TRACKING_STOP_ROW},
    {120, 2, All, Encoding::Unsigned, ORVA_META_KEY_TRACKING_STOP_COLUMN},
    {122, 2, All, Encoding::Unsigned, ORVA_META_KEY_IMAGE_START_ROW},
    {124, 2, All, Encoding::Unsigned, ORVA_META_KEY_IMAGE_START_COLUMN},
    {126, 2, All, Encoding::Unsigned, ORVA_META_KEY_IMAGE_STOP_ROW},
    {128, 2, All, Encoding::Unsigned, ORVA_META_KEY_IMAGE_STOP_COLUMN},
    {130, 2, All, Encoding::Unsigned, ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME},
    {132, 2, All, Encoding::Unsigned, ORVA_META_KEY_FRAME_NUMBER},
    {134, 2, All, Encoding::Unsigned, ORVA_META_KEY_STARTING_EXPOSURE_ROW},
    {136, 3, All, Encoding::ReferenceRows, ORVA_META_KEY_POST_REFERENCE_ROWS},
    {139, 1, All, Encoding::Unsigned, ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS},

    {140, 12, V1, Encoding::Reserved, noKey},
    {152, 4, V1, Encoding::Unsigned, ORVA_META_KEY_FIRMWARE_VERSION},

    {140, 1, V234, Encoding::Unsigned, ControlBlock2},
    {141, 2, V234, Encoding::Signed, ORVA_META_KEY_BASE_TEMPERATURE},
    {143, 2, V234, Encoding::Signed, ORVA_META_KEY_FPGA_TEMPERATURE},
    {145, 2, V2, Encoding::Unsigned, ReservedOfVersion2},
    {145, 2, V34, Encoding::Unsigned, ORVA_META_KEY_VERTICAL_BINNING},
    {147, 1, V234, Encoding::Unsigned, ControlBlockTest},
    {148, 2, V234, Encoding::Unsigned, ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE},
    {150, 2, V234, Encoding::Unsigned, ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE},
    {152, 30, V234, Encoding::TimeText, ORVA_META_KEY_CAPTURE_DATE},
    {182, 4, V234, Encoding::Gps, ORVA_META_KEY_GPS_LATITUDE_RAW},
    {186, 4, V234, Encoding::Gps, ORVA_META_KEY_GPS_LONGITUDE_RAW},
    // Intended: the application's text is the application's to write; ours says who wrote the header.
    {190, 12, V234, Encoding::OptionalText, ORVA_META_KEY_APP_INFO_STRING, Encoding::Nothing},
    {202, 12, V234, Encoding::OptionalText, ORVA_META_KEY_LIB_INFO_STRING, Encoding::LibraryVersion},
    {214, 1, V234, Encoding::Unsigned, ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE},
    {215, 1, V234, Encoding::Unsigned, ORVA_META_KEY_VERTICAL_PIXEL_SIZE},
    {216, 3, V234, Encoding::Unsigned, ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH},
    {219, 2, V234, Encoding::Unsigned, ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH},
    {221, 25, V2, Encoding::Padding, noKey},
    {221, 4, V34, Encoding::Signed, ORVA_META_KEY_MERGE_GAIN_RATIO},
    {225, 2, V34, Encoding::Signed, ORVA_META_KEY_MERGE_LINE_OFFSET},
    {227, 4, V34, Encoding::Signed, ORVA_META_KEY_HIGH_GAIN_ADU_E},
    {231, 1, V34, Encoding::Unsigned, ExtraFlags},
    {232, 152, V34, Encoding::Padding, noKey},
};

/// What version 4 carries in the padding.
inline constexpr Field version4Fields[] = {
    {236, 4, V34, Encoding::Unsigned, ORVA_META_KEY_IMAGE_OFFSET},
    {240, 1, V34, Encoding::Unsigned, ORVA_META_KEY_META_INFO},
    {241, 1, V34, Encoding::Unsigned, ORVA_META_KEY_PIXEL_FORMAT},
    {242, 1, V34, Encoding::Unsigned, ORVA_META_KEY_RESERVED},
    {243, 1, V34, Encoding::Unsigned, ORVA_META_KEY_OTHER_TYPE},
    {244, 4, V34, Encoding::Unsigned, ORVA_META_KEY_OTHER_TYPE_LENGTH},
    {248, 4, V34, Encoding::Unsigned, ORVA_META_KEY_OTHER_TYPE_OFFSET},
};
// Intended: the bytes left for these fields are counted from 244 although reading starts at 236.
constexpr unsigned int version4CountedFrom = 244;

/// One flag of a kept byte.
struct Flag {
  unsigned char byte;  // a KeptValue, or the key of a value that also carries a flag
  unsigned char mask;
  unsigned char key;
  Versions versions;
  bool whenClear;  // true when the bit is clear, as the camera sends it
};

inline constexpr Flag flags[] = {
    {ControlBlock, 0x80, ORVA_META_KEY_DEAD_PIXEL_CORRECTION, All, false},
    {ControlBlock, 0x40, ORVA_META_KEY_PIXEL_ORDERED_IMAGE, All, false},
    {ControlBlock, 0x20, ORVA_META_KEY_HDR_MODE, All, false},
    {ControlBlock, 0x10, ORVA_META_KEY_LOW_NOISE, All, false},
    {ControlBlock, 0x08, ORVA_META_KEY_LOW_DARK_CURRENT, V34, false},
    // Intended: versions 1 and 2 have it in the byte behind the Control Block.
    {ORVA_META_KEY_HORIZONTAL_BINNING, 0x08, ORVA_META_KEY_LOW_DARK_CURRENT, V12, false},
    {ControlBlock, 0x04, ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, All, false},
    {ControlBlock, 0x02, ORVA_META_KEY_VERT_SCAN_DIR_INVERT, All, true},  // intended: inverted
    {ControlBlock, 0x01, ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, All, false},
    {ControlBlock2, 0x80, ORVA_META_KEY_BACK_SIDE_ILLUMINATED, V234, false},
    {ControlBlock2, 0x40, ORVA_META_KEY_GPS_LOCKED, V234, false},
    {ControlBlock2, 0x02, ORVA_META_KEY_GLOBAL_RESET, V34, false},
    {ControlBlock2, 0x01, ORVA_META_KEY_GPS_ERROR, V34, false},
    // Intended: a camera sends 0xFF when none of the four applies.
    {ControlBlockTest, 0x80, ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, V234, true},
    {ControlBlockTest, 0x40, ORVA_META_KEY_TEST_IS_STACKED_FRAME, V234, true},
    {ControlBlockTest, 0x20, ORVA_META_KEY_TEST_IS_HIGH_FRAME, V234, true},
    {ControlBlockTest, 0x10, ORVA_META_KEY_TEST_IS_MERGED_FRAME, V234, true},
    {ExtraFlags, 0x40, ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, V34, false},
    {ExtraFlags, 0x80, ORVA_META_KEY_EXTRA_FLAG_BIT7, V34, false},
};
constexpr unsigned int quadrantMask = 0x3C;  // of Control Block 2, versions 3 and 4

constexpr Versions setOf(unsigned int version) {
  return version == 1 ? V1 : version == 2 ? V2 : V34;
}

/// The bytes of a version's header, without an other-type block.
constexpr unsigned int sizeOf(unsigned int version) {
  return version == 1 ? 156 : version == 2 ? 246 : writtenSize;
}

/// The bytes of padding that a version carries.
constexpr unsigned int paddingOf(Versions version) {
  for (const Field& field : fields)
    if (field.read == Encoding::Padding && (field.versions & version) != 0) return field.width;
  return 0;
}

/// Fields follow each other without a gap.
template <unsigned int count>
constexpr bool areContiguous(const Field (&rows)[count], Versions version, unsigned int begin,
                             unsigned int end) {
  unsigned int offset = begin;
  for (const Field& field : rows) {
    if ((field.versions & version) == 0) continue;
    if (field.offset != offset) return false;
    offset += field.width;
  }
  return offset == end;
}
static_assert(areContiguous(fields, V1, prefixSize, sizeOf(1)));
static_assert(areContiguous(fields, V2, prefixSize, sizeOf(2)));
static_assert(areContiguous(fields, V34, prefixSize, sizeOf(3)));
static_assert(areContiguous(version4Fields, V34, 236, 252));

// Fields that fill several keys, and lines of the text that show several, take neighbours.
static_assert(areNeighbours(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, ORVA_META_KEY_DATA_ZERO_POINT));
static_assert(areNeighbours(ORVA_META_KEY_POST_REFERENCE_ROWS, ORVA_META_KEY_PRE_REFERENCE_ROWS));
static_assert(areNeighbours(ORVA_META_KEY_CAPTURE_DATE, ORVA_META_KEY_CAPTURE_TIME,
                            ORVA_META_KEY_CAPTURE_TIME_NSECS));
static_assert(areNeighbours(ORVA_META_KEY_GPS_LATITUDE_RAW, ORVA_META_KEY_GPS_LATITUDE_DEGREES,
                            ORVA_META_KEY_GPS_LATITUDE_MINUTES, ORVA_META_KEY_GPS_LATITUDE_HEMISPHERE));
static_assert(areNeighbours(ORVA_META_KEY_GPS_LONGITUDE_RAW, ORVA_META_KEY_GPS_LONGITUDE_DEGREES,
                            ORVA_META_KEY_GPS_LONGITUDE_MINUTES, ORVA_META_KEY_GPS_LONGITUDE_HEMISPHERE));

/// The kinds of the neighbouring keys that an encoding fills, a letter for each: unsigned, signed integer,
/// double, text, flag.
constexpr std::string_view kindsOf(Encoding encoding) {
  switch (encoding) {
    case Encoding::Unsigned:
    case Encoding::PackedDate:
      return "u";
    case Encoding::Signed:
    case Encoding::SignMagnitude:
      return "i";
    case Encoding::Text:
    case Encoding::OptionalText:
      return "t";
    case Encoding::PixelDepths:
    case Encoding::ReferenceRows:
      return "uu";
    case Encoding::PackedTime:
      return "dd";
    case Encoding::TimeText:
      return "udd";
    case Encoding::Gps:
      return "uddf";
    default:
      return "";
  }
}

constexpr bool fills(const Field& field, unsigned int key, Versions versions) {
  return (field.versions & versions) != 0 && key >= field.key && key - field.key < kindsOf(field.read).size();
}

/// The field that fills a key, as written.
constexpr const Field& fieldOf(unsigned int key) {
  for (const Field& field : fields)
    if (fills(field, key, V34)) return field;
  const Field* field = version4Fields;
  while (field->key != key)  // does not compile for a key without a field
    ++field;
  return *field;
}
constexpr unsigned int widthOf(unsigned int key) {
  return fieldOf(key).width;
}
constexpr unsigned int offsetOf(unsigned int key) {
  return fieldOf(key).offset;
}

/// How many fields and flags of a set of versions fill a key.
constexpr unsigned int timesFilled(unsigned int key, Versions versions) {
  const bool isPrefix = key <= ORVA_META_KEY_METADATA_VERSION;
  const bool isQuadrants = key == ORVA_META_KEY_SENSOR_READ_QUADRANTS && (versions & V34) != 0;
  unsigned int times = isPrefix || isQuadrants ? 1U : 0U;
  for (const Field& field : fields)
    times += fills(field, key, versions) ? 1U : 0U;
  for (const Field& field : version4Fields)
    times += fills(field, key, versions) ? 1U : 0U;
  for (const Flag& flag : flags)
    times += flag.key == key && (flag.versions & versions) != 0 ? 1U : 0U;
  return times;
}

/// How many keys a set of versions fills this many times.
constexpr unsigned int keysFilled(unsigned int times, Versions versions) {
  unsigned int keys = 0;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
    keys += timesFilled(key, versions) == times ? 1U : 0U;
  return keys;
}
constexpr bool keysAreUnique(Versions version) {
  return keysFilled(0, version) + keysFilled(1, version) == ORVA_META_KEY_COUNT;
}
static_assert(keysAreUnique(V1) && keysAreUnique(V2) && keysAreUnique(V34));
static_assert(keysFilled(0, All) == 7, "17, 23, 47, 48, 54, 55 and 59 belong to no version");

/// The first version that carries a key.
constexpr unsigned int firstVersionOf(unsigned int key) {
  for (const Field& field : version4Fields)
    if (field.key == key) return 4;
  return timesFilled(key, V1) > 0 ? 1 : timesFilled(key, V2) > 0 ? 2 : 3;
}

/// The letter of a key's kind; 0 for a key that no version carries.
constexpr char kindOf(unsigned int key) {
  for (const Flag& flag : flags)
    if (flag.key == key) return 'f';
  for (const Field& field : fields)
    if (fills(field, key, All)) return kindsOf(field.read)[key - field.key];
  return timesFilled(key, All) > 0 ? 'u' : '\0';
}

/// Bits that a header that is written has for a value.
constexpr std::size_t writtenBits(unsigned int key) {
  const Field& field = fieldOf(key);
  return 8 * field.width / kindsOf(field.read).size();
}

}  // namespace orvacam::header

#endif  // ORVACAM_SRC_METADATA_HEADER_FIELDS_H
