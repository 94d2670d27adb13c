#ifndef ORVACAM_TYPES_META_KEYS_H
#define ORVACAM_TYPES_META_KEYS_H

/// \file
/// The keys of a frame's metadata and the record through which callers read one value.

/// Every field of a frame header has a key. The numbers are fixed: they index the value table, the FITS
/// keyword table and the text rendering.
enum ORVA_META_KEYS : unsigned int {
  ORVA_META_KEY_MAGIC_NUMBER = 0,      ///< header magic, the ASCII bytes "Meta" read big-endian (0x4D657461)
  ORVA_META_KEY_METADATA_LENGTH = 1,   ///< total header length in bytes
  ORVA_META_KEY_METADATA_VERSION = 2,  ///< header version 1 to 4
  ORVA_META_KEY_BACK_SIDE_ILLUMINATED = 3,        ///< back-side-illuminated sensor
  ORVA_META_KEY_BASE_TEMPERATURE = 4,             ///< base temperature, signed
  ORVA_META_KEY_HORIZONTAL_BINNING = 5,           ///< horizontal binning factor
  ORVA_META_KEY_VERTICAL_BINNING = 6,             ///< vertical binning factor
  ORVA_META_KEY_BLACK_LEVEL_ADJUST = 7,           ///< black level adjust
  ORVA_META_KEY_BLACK_LEVEL_SUN = 8,              ///< black level sun
  ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH = 9,      ///< black level adjust, high-gain channel
  ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH = 10,        ///< black level sun, high-gain channel
  ORVA_META_KEY_CAMERA_MODEL = 11,                ///< model name text
  ORVA_META_KEY_CAPTURE_DATE = 12,                ///< packed date: year x 65536 + month x 256 + day
  ORVA_META_KEY_CAPTURE_TIME = 13,                ///< whole seconds of the capture time of day
  ORVA_META_KEY_CAPTURE_TIME_NSECS = 14,          ///< nanoseconds within that second
  ORVA_META_KEY_SENSOR_COOLER_TEMP = 15,          ///< cooler temperature, two's complement
  ORVA_META_KEY_COOLER_DUTY_CYCLE = 16,           ///< cooler duty cycle
  ORVA_META_KEY_UNUSED_17 = 17,                   ///< filled by no header version
  ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE = 18,  ///< correlated multiple sampling in use
  ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH = 19,        ///< bits per pixel of the data, 1 to 16
  ORVA_META_KEY_DATA_ZERO_POINT = 20,             ///< data zero point
  ORVA_META_KEY_DEAD_PIXEL_CORRECTION = 21,       ///< dead pixel correction is on
  ORVA_META_KEY_EXPOSURE_TIME = 22,               ///< exposure time in 10 us periods
  ORVA_META_KEY_UNUSED_23 = 23,                   ///< filled by no header version
  ORVA_META_KEY_FPGA_TEMPERATURE = 24,            ///< FPGA temperature, signed
  ORVA_META_KEY_FRAME_NUMBER = 25,                ///< frame number
  ORVA_META_KEY_LDR_GAIN = 26,                    ///< low-gain (LDR) gain index
  ORVA_META_KEY_GLOBAL_GAIN = 27,                 ///< global gain
  ORVA_META_KEY_HDR_GAIN = 28,                    ///< high-gain (HDR) gain index
  ORVA_META_KEY_GPS_LATITUDE_RAW = 29,            ///< raw latitude word
  ORVA_META_KEY_GPS_LATITUDE_DEGREES = 30,        ///< whole degrees
  ORVA_META_KEY_GPS_LATITUDE_MINUTES = 31,        ///< minutes
  ORVA_META_KEY_GPS_LATITUDE_HEMISPHERE = 32,     ///< bit 31 of the raw word: set for north
  ORVA_META_KEY_GPS_LONGITUDE_RAW = 33,           ///< raw longitude word
  ORVA_META_KEY_GPS_LONGITUDE_DEGREES = 34,       ///< whole degrees
  ORVA_META_KEY_GPS_LONGITUDE_MINUTES = 35,       ///< minutes
  ORVA_META_KEY_GPS_LONGITUDE_HEMISPHERE = 36,    ///< bit 31 of the raw word: set for east
  ORVA_META_KEY_GLOBAL_RESET = 37,                ///< global reset
  ORVA_META_KEY_GPS_ERROR = 38,                   ///< GPS error
  ORVA_META_KEY_GPS_LOCKED = 39,                  ///< GPS locked at capture time
  ORVA_META_KEY_HDR_MODE = 40,                    ///< the frame holds a low-gain and a high-gain image
  ORVA_META_KEY_HIGH_GAIN_ADU_E = 41,             ///< high-gain ADU per electron, scaled integer
  ORVA_META_KEY_HORIZONTAL_PIXELS = 42,           ///< image width in pixels
  ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE = 43,       ///< pixel width in tenths of a micrometre
  ORVA_META_KEY_HORZ_SCAN_DIR_INVERT = 44,        ///< horizontal scan direction inverted
  ORVA_META_KEY_ILLUMIN_START_DELAY = 45,         ///< illumination start delay
  ORVA_META_KEY_ILLUMIN_STOP_DELAY = 46,          ///< illumination stop delay
  ORVA_META_KEY_UNUSED_47 = 47,                   ///< filled by no header version
  ORVA_META_KEY_UNUSED_48 = 48,                   ///< filled by no header version
  ORVA_META_KEY_IMAGE_START_COLUMN = 49,          ///< first image column
  ORVA_META_KEY_IMAGE_START_ROW = 50,             ///< first image row
  ORVA_META_KEY_IMAGE_STOP_COLUMN = 51,           ///< last image column, inclusive
  ORVA_META_KEY_IMAGE_STOP_ROW = 52,              ///< last image row, inclusive
  ORVA_META_KEY_STARTING_EXPOSURE_ROW = 53,       ///< row at which the exposure starts
  ORVA_META_KEY_UNUSED_54 = 54,                   ///< filled by no header version
  ORVA_META_KEY_UNUSED_55 = 55,                   ///< filled by no header version
  ORVA_META_KEY_TEST_IS_HIGH_FRAME = 56,          ///< this is the high-gain plane of a frame
  ORVA_META_KEY_EXTRA_FLAG_BIT7 =
      57,  ///< bit 7 of the extra flag byte; parsed and written back, nothing else reads it
  ORVA_META_KEY_TEST_IS_MERGED_FRAME = 58,     ///< this is a merged plane
  ORVA_META_KEY_UNUSED_59 = 59,                ///< filled by no header version
  ORVA_META_KEY_TEST_IS_STACKED_FRAME = 60,    ///< this is a stacked frame
  ORVA_META_KEY_LOW_DARK_CURRENT = 61,         ///< low dark current mode
  ORVA_META_KEY_LOW_NOISE = 62,                ///< low noise mode
  ORVA_META_KEY_MERGE_GAIN_RATIO = 63,         ///< merge gain ratio, scaled integer
  ORVA_META_KEY_MERGE_LINE_OFFSET = 64,        ///< merge line offset
  ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE = 65,   ///< rows are not aligned
  ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS = 66,  ///< number of data channels
  ORVA_META_KEY_PIXEL_ORDERED_IMAGE = 67,      ///< pixels are in the order of a little-endian machine
  ORVA_META_KEY_POST_REFERENCE_ROWS = 68,      ///< reference rows after the image
  ORVA_META_KEY_PRE_REFERENCE_ROWS = 69,       ///< reference rows before the image
  ORVA_META_KEY_POST_ROW_REF_PIXELS = 70,      ///< reference pixels after each row
  ORVA_META_KEY_PRE_ROW_REF_PIXELS = 71,       ///< reference pixels before each row
  ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH = 72,   ///< sensor bit depth
  ORVA_META_KEY_SENSOR_READ_QUADRANTS =
      73,  ///< readout amplifiers: 0x20 upper left, 0x10 upper right, 0x08 lower left, 0x04 lower right
  ORVA_META_KEY_SENSOR_CHIP_TEMP = 74,                 ///< sensor chip temperature
  ORVA_META_KEY_CAMERA_SERIAL_NUMBER = 75,             ///< serial number text
  ORVA_META_KEY_SHUTTER_CLOSE_DELAY = 76,              ///< shutter close delay, signed
  ORVA_META_KEY_SHUTTER_OPEN_DELAY = 77,               ///< shutter open delay, signed
  ORVA_META_KEY_TEMPERATURE_SET_POINT = 78,            ///< cooler set point, signed
  ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE = 79,          ///< absolute high gain, scaled integer
  ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE = 80,           ///< absolute low gain, scaled integer
  ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME = 81,  ///< tracking frames per image frame
  ORVA_META_KEY_TRACKING_START_COLUMN = 82,            ///< tracking window: first column
  ORVA_META_KEY_TRACKING_START_ROW = 83,               ///< tracking window: first row
  ORVA_META_KEY_TRACKING_STOP_COLUMN = 84,             ///< tracking window: last column
  ORVA_META_KEY_TRACKING_STOP_ROW = 85,                ///< tracking window: last row
  ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING = 86,       ///< shifted averaging is in use
  ORVA_META_KEY_LIB_INFO_STRING = 87,                  ///< second 12-byte info text
  ORVA_META_KEY_APP_INFO_STRING = 88,                  ///< first 12-byte info text
  ORVA_META_KEY_FIRMWARE_VERSION = 89,                 ///< firmware version
  ORVA_META_KEY_VERTICAL_PIXELS = 90,                  ///< image height in pixels
  ORVA_META_KEY_VERTICAL_PIXEL_SIZE = 91,              ///< pixel height in tenths of a micrometre
  ORVA_META_KEY_VERT_SCAN_DIR_INVERT = 92,             ///< vertical scan direction inverted
  ORVA_META_KEY_IMAGE_OFFSET = 93,                     ///< offset of the image data
  ORVA_META_KEY_META_INFO = 94,                        ///< meta info byte
  ORVA_META_KEY_PIXEL_FORMAT = 95,                     ///< pixel format code
  ORVA_META_KEY_OTHER_TYPE = 96,                       ///< type of the other-type block
  ORVA_META_KEY_OTHER_TYPE_LENGTH = 97,                ///< length of the other-type block
  ORVA_META_KEY_OTHER_TYPE_OFFSET = 98,                ///< offset of the other-type block
  ORVA_META_KEY_RESERVED = 99,                         ///< reserved byte
};

/// The number of metadata keys.
constexpr unsigned int ORVA_META_KEY_COUNT = 100;

/// A caller's view of one metadata value, filled by CFrameMetaData::GetValue.
struct meta_data_value_t {
  double value;   ///< the numeric value as a double; not set for texts
  int length;     ///< -1 for a numeric value, else the number of bytes of text
  char text[64];  ///< the text, zero-filled; not terminated when it is 64 bytes long
};

#endif  // ORVACAM_TYPES_META_KEYS_H
