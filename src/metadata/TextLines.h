#ifndef ORVACAM_SRC_METADATA_TEXT_LINES_H
#define ORVACAM_SRC_METADATA_TEXT_LINES_H

#include <orvacam/types/meta_keys.h>

#include <cstddef>

#include "metadata/HeaderFields.h"

/// The lines of the metadata text. Labels are the interface: programs search for them. Intended: their
/// misspellings.
namespace orvacam::text {

/// How a line shows its value.
enum class Rule : unsigned char {
  Empty,          // nothing
  Decimal,        // %d of an unsigned value: intended, large ones show as negative
  Signed,         // %d of a signed value
  Hex,            // 0x%x
  Hex8,           // 0x%08x
  DecimalAndHex,  // %d (0x%x)
  Text,           // the stored bytes up to the first zero
  Flag,           // TRUE or FALSE
  Tenths6,        // %f of tenths
  Tenths,         // %.1f of tenths
  TenthsAndHex,   // %.1f of tenths (0x%x)
  Hundredths,     // %.3f of hundredths
  Thousandths,    // %.3f of thousandths
  Percent,        // %.1f of a byte as a percentage of 255
  Year,           // parts of the packed capture date
  Month,
  Day,
  Seconds,        // capture time of day with its fraction
  CaptureTime,    // capture date and time
  Exposure,       // clock text and count of 10 us periods
  ReservedBytes,  // [0x%x, 0x%x] of two bytes
  Bit,            // TRUE where the value has the line's bit
  Latitude,       // degrees, minutes and hemisphere
  Longitude,
  Padding  // the padding bytes in decimal
};

struct Line {
  Rule rule;
  unsigned char key;      // or a KeptValue
  const char* labels[4];  // of versions 1, 2, 3 and of what version 4 adds to 3; null for no such line
  unsigned char bit = 0;  // of Rule::Bit
};

constexpr const char* none = nullptr;
using header::noKey;

constexpr Line line(Rule rule, unsigned char key, const char* version1, const char* version2,
                    const char* version3) {
  return {rule, key, {version1, version2, version3, none}};
}
constexpr Line line(Rule rule, unsigned char key, const char* version1, const char* versions2And3) {
  return line(rule, key, version1, versions2And3, versions2And3);
}

// clang-format off
inline constexpr Line lines[] = {
    line(Rule::Hex8, ORVA_META_KEY_MAGIC_NUMBER, "MagicNumber         = ", "MagicNumber             = "),
    line(Rule::Decimal, ORVA_META_KEY_METADATA_LENGTH, "MetadataLength      = ", "MetadataLength          = "),
    line(Rule::Decimal, ORVA_META_KEY_METADATA_VERSION, "MetadataVersion     = ", "MetadataVersion         = "),
    line(Rule::Text, ORVA_META_KEY_CAMERA_MODEL, "CameraModel         = ", "CameraModel             = "),
    line(Rule::Text, ORVA_META_KEY_CAMERA_SERIAL_NUMBER, "CameraSerialNumber  = ", "CameraSerialNumber      = "),
    line(Rule::Year, ORVA_META_KEY_CAPTURE_DATE, "CaptureYear         = ", none, none),
    line(Rule::Month, ORVA_META_KEY_CAPTURE_DATE, "CaptureMonth        = ", none, none),
    line(Rule::Day, ORVA_META_KEY_CAPTURE_DATE, "CaptureDay          = ", none, none),
    line(Rule::Seconds, ORVA_META_KEY_CAPTURE_TIME, "CaptureTime         = ", none, none),
    line(Rule::Hex, ORVA_META_KEY_FIRMWARE_VERSION, none, "FirmwareVersion         = "),
    line(Rule::Tenths, ORVA_META_KEY_TEMPERATURE_SET_POINT, none, "Temperature Set Point   = "),
    line(Rule::Percent, ORVA_META_KEY_COOLER_DUTY_CYCLE, none, "Cooler Duty Cycle       = "),
    line(Rule::Decimal, ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, "SensorPixelBitDepth = ", "Sensor Pixel Bit Depth  = "),
    line(Rule::Decimal, ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "DataPixelBitDepth   = ", "Data Pixel Bit Depth    = "),
    line(Rule::Decimal, ORVA_META_KEY_DATA_ZERO_POINT, "DataZeroPoint       = ", "Data Zero Point         = "),
    line(Rule::Decimal, ORVA_META_KEY_HORIZONTAL_PIXELS, "HorizontalPixels    = ", "Horizontal Pixels       = "),
    line(Rule::Decimal, ORVA_META_KEY_VERTICAL_PIXELS, "VerticalPixels      = ", "Vertical Pixels         = "),
    line(Rule::Exposure, ORVA_META_KEY_EXPOSURE_TIME, "ExposureTime        = ", "Exposure Time           = "),
    line(Rule::Tenths6, ORVA_META_KEY_SENSOR_COOLER_TEMP, "SensorCoolerTemp    = ", "Sensor Cooler Temp      = "),
    line(Rule::Tenths6, ORVA_META_KEY_SENSOR_CHIP_TEMP, "SensorChipTemp      = ", "Sensor Chip Temp        = "),
    line(Rule::Decimal, ORVA_META_KEY_GLOBAL_GAIN, "GlobalGain          = ", "Global Gain             = "),
    line(Rule::Decimal, ORVA_META_KEY_LDR_GAIN, "LDRGain             = ", "LDR Gain                = "),
    line(Rule::Decimal, ORVA_META_KEY_HDR_GAIN, "HDRGain             = ", "HDR Gain                = "),
    line(Rule::Decimal, ORVA_META_KEY_POST_ROW_REF_PIXELS, "DummyPixelsPerRow   = ", "Dummy Pixels Per Row    = ", "PostRowRefPixels        = "),
    line(Rule::Decimal, ORVA_META_KEY_PRE_ROW_REF_PIXELS, "UnusedByte          = ", "UnusedByte              = ", "PreRowRefPixels         = "),
    line(Rule::Decimal, header::ControlBlock, "ControlBlock        = ", "Control Block           = "),
    line(Rule::Flag, ORVA_META_KEY_DEAD_PIXEL_CORRECTION, "DeadPixelCorrection = ", "  DeadPixel Correction    = ", "    DeadPixel Correction   = "),
    line(Rule::Flag, ORVA_META_KEY_PIXEL_ORDERED_IMAGE, "PixelOrderedImage   = ", "  Pixel Ordered Image     = ", "    Pixel Ordered Image    = "),
    line(Rule::Flag, ORVA_META_KEY_HDR_MODE, "HDRMode             = ", "  HDR Mode                = ", "    HDR Mode               = "),
    line(Rule::Flag, ORVA_META_KEY_LOW_NOISE, "LowNoise            = ", "  Low Noise               = ", "    Low Noise              = "),
    line(Rule::Flag, ORVA_META_KEY_LOW_DARK_CURRENT, "LowDarkCurrent      = ", "  Low Dark Current        = ", "    Low Dark Current       = "),
    line(Rule::Flag, ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, "HorzScanDirInvert   = ", "  Horz Scan Dir Invert    = ", "    Horz Scan Dir Invert   = "),
    line(Rule::Flag, ORVA_META_KEY_VERT_SCAN_DIR_INVERT, "VertScanDirInvert   = ", "  Vert Scan Dir Invert    = ", "    Vert Scan Dir Invert   = "),
    line(Rule::Flag, ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, "NonRowAllignedImage = ", "  Non Row Alligned Image  = ", "    Non Row Alligned Image = "),
    line(Rule::Flag, ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, none, none, "Correlated Multiple Sample = "),
    line(Rule::Decimal, ORVA_META_KEY_HORIZONTAL_BINNING, "HorizontalBinning   = ", "Horizontal Binning      = ", "Horizontal Binning         = "),
    line(Rule::Decimal, ORVA_META_KEY_VERTICAL_BINNING, "VerticalBinning     = ", "Vertical Binning        = ", "Vertical Binning           = "),
    line(Rule::Decimal, ORVA_META_KEY_BLACK_LEVEL_ADJUST, "BlackLevelAdjust    = ", "BlackLevel Adjust       = ", "BlackLevel Adjust          = "),
    line(Rule::Decimal, ORVA_META_KEY_BLACK_LEVEL_SUN, "BlackLevelSun       = ", "Black Level Sun         = ", "Black Level Sun            = "),
    line(Rule::Signed, ORVA_META_KEY_SHUTTER_OPEN_DELAY, "ShutterOpenDelay    = ", "Shutter Open Delay      = ", "Shutter Open Delay         = "),
    line(Rule::Signed, ORVA_META_KEY_SHUTTER_CLOSE_DELAY, "ShutterCloseDelay   = ", "Shutter Close Delay     = ", "Shutter Close Delay        = "),
    line(Rule::Signed, ORVA_META_KEY_ILLUMIN_START_DELAY, "IlluminStartDelay   = ", "Illumin Start Delay     = ", "Illumin Start Delay        = "),
    line(Rule::Signed, ORVA_META_KEY_ILLUMIN_STOP_DELAY, "IlluminStopDelay    = ", "Illumin Stop Delay      = ", "Illumin Stop Delay         = "),
    line(Rule::Decimal, ORVA_META_KEY_TRACKING_START_ROW, "TrackingStartRow    = ", "Tracking Start Row      = ", "Tracking Start Row         = "),
    line(Rule::Decimal, ORVA_META_KEY_TRACKING_START_COLUMN, "TrackingStartColumn = ", "Tracking Start Column   = ", "Tracking Start Column      = "),
    line(Rule::Decimal, ORVA_META_KEY_TRACKING_STOP_ROW, "TrackingStopRow     = ", "Tracking Stop Row       = ", "Tracking Stop Row          = "),
    line(Rule::Decimal, ORVA_META_KEY_TRACKING_STOP_COLUMN, "TrackingStopColumn  = ", "Tracking Stop Column    = ", "Tracking Stop Column       = "),
    line(Rule::Decimal, ORVA_META_KEY_IMAGE_START_ROW, "ImageStartRow       = ", "Image Start Row         = ", "Image Start Row            = "),
    line(Rule::Decimal, ORVA_META_KEY_IMAGE_START_COLUMN, "ImageStartColumn    = ", "Image Start Column      = ", "Image Start Column         = "),
    line(Rule::Decimal, ORVA_META_KEY_IMAGE_STOP_ROW, "ImageStopRow        = ", "Image Stop Row          = ", "Image Stop Row             = "),
    line(Rule::Decimal, ORVA_META_KEY_IMAGE_STOP_COLUMN, "ImageStopColumn     = ", "Image StopC olumn       = ", "Image Stop Column          = "),
    line(Rule::Decimal, ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, "TrackingFramesPerImageFrame = ", "Tracking Frames Per Image Frame = "),
    line(Rule::Decimal, ORVA_META_KEY_FRAME_NUMBER, "FrameNumber         = ", "Frame Number            = ", "Frame Number               = "),
    line(Rule::Decimal, ORVA_META_KEY_STARTING_EXPOSURE_ROW, "StartingExposureRow = ", "Starting Exposure Row   = ", "Starting Exposure Row      = "),
    line(Rule::Decimal, ORVA_META_KEY_PRE_REFERENCE_ROWS, "Pre Reference Rows        = ", "Pre Reference Rows      = ", "Pre Reference Rows         = "),
    line(Rule::Decimal, ORVA_META_KEY_POST_REFERENCE_ROWS, "Post Reference Rows       = ", "Post Reference Rows     = ", "Post Reference Rows        = "),
    line(Rule::Decimal, ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, "NumberOfDataChannels = ", "Number Of Data Channels = ", "Number Of Data Channels    = "),
    line(Rule::Hex, ORVA_META_KEY_FIRMWARE_VERSION, "FirmwareVersion     = ", none, none),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::DecimalAndHex, header::ControlBlock2, none, "Control Block 2         = "),
    line(Rule::Flag, ORVA_META_KEY_BACK_SIDE_ILLUMINATED, none, "  Back Side Illuminated   = ", none),
    line(Rule::Flag, ORVA_META_KEY_GPS_LOCKED, none, "  GPS Locked              = ", none),
    line(Rule::Flag, ORVA_META_KEY_GPS_ERROR, none, none, "    GPS Error               = "),
    line(Rule::Flag, ORVA_META_KEY_GLOBAL_RESET, none, none, "    Global Reset            = "),
    {Rule::Bit, ORVA_META_KEY_SENSOR_READ_QUADRANTS, {none, "  Sensor Read Quadrant UL = ", "    Sensor Read Quadrant UL = ", none}, 0x20},
    {Rule::Bit, ORVA_META_KEY_SENSOR_READ_QUADRANTS, {none, "  Sensor Read Quadrant UR = ", "    Sensor Read Quadrant UR = ", none}, 0x10},
    {Rule::Bit, ORVA_META_KEY_SENSOR_READ_QUADRANTS, {none, "  Sensor Read Quadrant LL = ", "    Sensor Read Quadrant LL = ", none}, 0x08},
    {Rule::Bit, ORVA_META_KEY_SENSOR_READ_QUADRANTS, {none, "  Sensor Read Quadrant LR = ", "    Sensor Read Quadrant LR = ", none}, 0x04},
    line(Rule::Flag, ORVA_META_KEY_GPS_LOCKED, none, none, "    GPS Locked              = "),
    line(Rule::Flag, ORVA_META_KEY_BACK_SIDE_ILLUMINATED, none, none, "    Back Side Illuminated   = "),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::Tenths, ORVA_META_KEY_BASE_TEMPERATURE, none, "Base Temperature        = "),
    line(Rule::Tenths, ORVA_META_KEY_FPGA_TEMPERATURE, none, "FPGA Temperature        = "),
    line(Rule::ReservedBytes, header::ReservedOfVersion2, none, "Reserved "),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::Hex, header::ControlBlockTest, none, "Control Block Test         = "),
    line(Rule::Flag, ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, none, " Test Use Shifted Averaging = ", "    Test Use Shifted Averaging = "),
    line(Rule::Flag, ORVA_META_KEY_TEST_IS_STACKED_FRAME, none, " Test Is Stacked Frame      = ", "    Test Is Stacked Frame      = "),
    line(Rule::Flag, ORVA_META_KEY_TEST_IS_HIGH_FRAME, none, " Test Is High Frame         = ", "    Test Is High Frame         = "),
    line(Rule::Flag, ORVA_META_KEY_TEST_IS_MERGED_FRAME, none, " Test Is Merged Frame       = ", "    Test Is Merged Frame       = "),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::Hundredths, ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE, none, "Test Low Gain Absolute  = "),
    line(Rule::Hundredths, ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE, none, "Test High Gain Absolute = "),
    line(Rule::Thousandths, ORVA_META_KEY_MERGE_GAIN_RATIO, none, none, "Merge Gain Ratio = "),
    line(Rule::Signed, ORVA_META_KEY_MERGE_LINE_OFFSET, none, none, "Merge Line Offset = "),
    line(Rule::Thousandths, ORVA_META_KEY_HIGH_GAIN_ADU_E, none, none, "High Gain ADUe = "),
    line(Rule::CaptureTime, noKey, none, "Capture Time   = "),
    line(Rule::Latitude, ORVA_META_KEY_GPS_LATITUDE_DEGREES, none, "Latitude=      = "),
    line(Rule::Longitude, ORVA_META_KEY_GPS_LONGITUDE_DEGREES, none, "Longitude=     = "),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::Text, ORVA_META_KEY_APP_INFO_STRING, none, "App Info String = "),
    line(Rule::Text, ORVA_META_KEY_LIB_INFO_STRING, none, "Lib Info String = "),
    line(Rule::Empty, noKey, none, ""),
    line(Rule::TenthsAndHex, ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE, none, "Horizontal Pixel Size    = "),
    line(Rule::TenthsAndHex, ORVA_META_KEY_VERTICAL_PIXEL_SIZE, none, "Vertical Pixel Size      = "),
    line(Rule::DecimalAndHex, ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, none, "Black Level Adjust High  = "),
    line(Rule::DecimalAndHex, ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, none, "Black Level Sun High     = "),
    line(Rule::Empty, noKey, none, "", none),
    {Rule::Hex8, ORVA_META_KEY_IMAGE_OFFSET, {none, none, none, "V4 Image Offset          = "}},
    {Rule::Hex8, ORVA_META_KEY_META_INFO, {none, none, none, "V4 Meta Info             = "}},
    {Rule::Hex8, ORVA_META_KEY_PIXEL_FORMAT, {none, none, none, "V4 Pixel Format          = "}},
    {Rule::Hex8, ORVA_META_KEY_RESERVED, {none, none, none, "V4 Reserved              = "}},
    {Rule::Hex8, ORVA_META_KEY_OTHER_TYPE, {none, none, none, "V4 Other Type            = "}},
    {Rule::Hex8, ORVA_META_KEY_OTHER_TYPE_LENGTH, {none, none, none, "V4 Other Type Length     = "}},
    {Rule::Hex8, ORVA_META_KEY_OTHER_TYPE_OFFSET, {none, none, none, "V4 Other Type Offset     = "}},
    {Rule::Padding, noKey, {none, "Padding = ", "Padding = ", "Padding = "}},
};
// clang-format on

constexpr std::size_t countLines(unsigned int version) {
  std::size_t count = 0;
  for (const Line& row : lines)
    if (row.labels[version - 1] != none) ++count;
  return count;
}
static_assert(countLines(1) == 54 && countLines(2) == 86 && countLines(3) == 91 && countLines(4) == 8);

}  // namespace orvacam::text

#endif  // ORVACAM_SRC_METADATA_TEXT_LINES_H
