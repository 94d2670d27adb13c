#include "face/Keys.h"

#include <orvacam/types/meta_keys.h>

#include <cstring>
#include <string>

#include "face/Failure.h"

namespace orvacam::face {

namespace {

constexpr int newestVersion = 4;

constexpr orva_key key(orva_key_kind kind, int number, const char* name, const char* unit, int version) {
  return {sizeof(orva_key), name, unit, kind, number, version, newestVersion};
}
constexpr orva_key number(int number, const char* name, const char* unit, int version) {
  return key(ORVA_KEY_NUMBER, number, name, unit, version);
}
constexpr orva_key flag(int number, const char* name, const char* unit, int version) {
  return key(ORVA_KEY_FLAG, number, name, unit, version);
}
constexpr orva_key text(int number, const char* name, const char* unit, int version) {
  return key(ORVA_KEY_TEXT, number, name, unit, version);
}

}  // namespace

// Key, name, unit of the raw value, the first header version that carries it.
constexpr orva_key keys[keyCount] = {
    number(ORVA_META_KEY_MAGIC_NUMBER, "MagicNumber", "", 1),
    number(ORVA_META_KEY_METADATA_LENGTH, "MetadataLength", "byte", 1),
    number(ORVA_META_KEY_METADATA_VERSION, "MetadataVersion", "", 1),
    flag(ORVA_META_KEY_BACK_SIDE_ILLUMINATED, "BackSideIlluminated", "", 2),
    number(ORVA_META_KEY_BASE_TEMPERATURE, "BaseTemperature", "0.1 degC", 2),
    number(ORVA_META_KEY_HORIZONTAL_BINNING, "HorizontalBinning", "", 1),
    number(ORVA_META_KEY_VERTICAL_BINNING, "VerticalBinning", "", 1),
    number(ORVA_META_KEY_BLACK_LEVEL_ADJUST, "BlackLevelAdjust", "", 1),
    number(ORVA_META_KEY_BLACK_LEVEL_SUN, "BlackLevelSun", "", 1),
    number(ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, "BlackLevelAdjustHigh", "", 2),
    number(ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, "BlackLevelSunHigh", "", 2),
    text(ORVA_META_KEY_CAMERA_MODEL, "CameraModel", "", 1),
    number(ORVA_META_KEY_CAPTURE_DATE, "CaptureDate", "", 1),
    number(ORVA_META_KEY_CAPTURE_TIME, "CaptureTime", "s", 1),
    number(ORVA_META_KEY_CAPTURE_TIME_NSECS, "CaptureTimeNsecs", "ns", 1),
    number(ORVA_META_KEY_SENSOR_COOLER_TEMP, "SensorCoolerTemp", "0.1 degC", 1),
    number(ORVA_META_KEY_COOLER_DUTY_CYCLE, "CoolerDutyCycle", "1/255", 2),
    flag(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, "CorrelatedMultipleSample", "", 3),
    number(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "DataPixelBitDepth", "bit", 1),
    number(ORVA_META_KEY_DATA_ZERO_POINT, "DataZeroPoint", "", 1),
    flag(ORVA_META_KEY_DEAD_PIXEL_CORRECTION, "DeadPixelCorrection", "", 1),
    number(ORVA_META_KEY_EXPOSURE_TIME, "ExposureTime", "10 us", 1),
    number(ORVA_META_KEY_FPGA_TEMPERATURE, "FPGATemperature", "0.1 degC", 2),
    number(ORVA_META_KEY_FRAME_NUMBER, "FrameNumber", "", 1),
    number(ORVA_META_KEY_LDR_GAIN, "LDRGain", "", 1),
    number(ORVA_META_KEY_GLOBAL_GAIN, "GlobalGain", "", 1),
    number(ORVA_META_KEY_HDR_GAIN, "HDRGain", "", 1),
    number(ORVA_META_KEY_GPS_LATITUDE_RAW, "GPSLatitudeRaw", "1/600000 deg", 2),
    number(ORVA_META_KEY_GPS_LATITUDE_DEGREES, "GPSLatitudeDegrees", "deg", 2),
    number(ORVA_META_KEY_GPS_LATITUDE_MINUTES, "GPSLatitudeMinutes", "min", 2),
    flag(ORVA_META_KEY_GPS_LATITUDE_HEMISPHERE, "GPSLatitudeHemisphere", "", 2),
    number(ORVA_META_KEY_GPS_LONGITUDE_RAW, "GPSLongitudeRaw", "1/600000 deg", 2),
    number(ORVA_META_KEY_GPS_LONGITUDE_DEGREES, "GPSLongitudeDegrees", "deg", 2),
    number(ORVA_META_KEY_GPS_LONGITUDE_MINUTES, "GPSLongitudeMinutes", "min", 2),
    flag(ORVA_META_KEY_GPS_LONGITUDE_HEMISPHERE, "GPSLongitudeHemisphere", "", 2),
    flag(ORVA_META_KEY_GLOBAL_RESET, "GlobalReset", "", 3),
    flag(ORVA_META_KEY_GPS_ERROR, "GPSError", "", 3),
    flag(ORVA_META_KEY_GPS_LOCKED, "GPSLocked", "", 2),
    flag(ORVA_META_KEY_HDR_MODE, "HDRMode", "", 1),
    number(ORVA_META_KEY_HIGH_GAIN_ADU_E, "HighGainADUe", "0.001", 3),
    number(ORVA_META_KEY_HORIZONTAL_PIXELS, "HorizontalPixels", "px", 1),
    number(ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE, "HorizontalPixelSize", "0.1 um", 2),
    flag(ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, "HorzScanDirInvert", "", 1),
    number(ORVA_META_KEY_ILLUMIN_START_DELAY, "IlluminStartDelay", "", 1),
    number(ORVA_META_KEY_ILLUMIN_STOP_DELAY, "IlluminStopDelay", "", 1),
    number(ORVA_META_KEY_IMAGE_START_COLUMN, "ImageStartColumn", "px", 1),
    number(ORVA_META_KEY_IMAGE_START_ROW, "ImageStartRow", "px", 1),
    number(ORVA_META_KEY_IMAGE_STOP_COLUMN, "ImageStopColumn", "px", 1),
    number(ORVA_META_KEY_IMAGE_STOP_ROW, "ImageStopRow", "px", 1),
    number(ORVA_META_KEY_STARTING_EXPOSURE_ROW, "StartingExposureRow", "px", 1),
    flag(ORVA_META_KEY_TEST_IS_HIGH_FRAME, "TestIsHighFrame", "", 2),
    flag(ORVA_META_KEY_EXTRA_FLAG_BIT7, "ExtraFlagBit7", "", 3),
    flag(ORVA_META_KEY_TEST_IS_MERGED_FRAME, "TestIsMergedFrame", "", 2),
    flag(ORVA_META_KEY_TEST_IS_STACKED_FRAME, "TestIsStackedFrame", "", 2),
    flag(ORVA_META_KEY_LOW_DARK_CURRENT, "LowDarkCurrent", "", 1),
    flag(ORVA_META_KEY_LOW_NOISE, "LowNoise", "", 1),
    number(ORVA_META_KEY_MERGE_GAIN_RATIO, "MergeGainRatio", "0.001", 3),
    number(ORVA_META_KEY_MERGE_LINE_OFFSET, "MergeLineOffset", "", 3),
    flag(ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, "NonRowAllignedImage", "", 1),
    number(ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, "NumberOfDataChannels", "", 1),
    flag(ORVA_META_KEY_PIXEL_ORDERED_IMAGE, "PixelOrderedImage", "", 1),
    number(ORVA_META_KEY_POST_REFERENCE_ROWS, "PostReferenceRows", "row", 1),
    number(ORVA_META_KEY_PRE_REFERENCE_ROWS, "PreReferenceRows", "row", 1),
    number(ORVA_META_KEY_POST_ROW_REF_PIXELS, "PostRowRefPixels", "px", 1),
    number(ORVA_META_KEY_PRE_ROW_REF_PIXELS, "PreRowRefPixels", "px", 1),
    number(ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, "SensorPixelBitDepth", "bit", 1),
    number(ORVA_META_KEY_SENSOR_READ_QUADRANTS, "SensorReadQuadrants", "", 3),
    number(ORVA_META_KEY_SENSOR_CHIP_TEMP, "SensorChipTemp", "0.1 degC", 1),
    text(ORVA_META_KEY_CAMERA_SERIAL_NUMBER, "CameraSerialNumber", "", 1),
    number(ORVA_META_KEY_SHUTTER_CLOSE_DELAY, "ShutterCloseDelay", "", 1),
    number(ORVA_META_KEY_SHUTTER_OPEN_DELAY, "ShutterOpenDelay", "", 1),
    number(ORVA_META_KEY_TEMPERATURE_SET_POINT, "TemperatureSetPoint", "0.1 degC", 2),
    number(ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE, "TestHighGainAbsolute", "0.01", 2),
    number(ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE, "TestLowGainAbsolute", "0.01", 2),
    number(ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, "TrackingFramesPerImageFrame", "", 1),
    number(ORVA_META_KEY_TRACKING_START_COLUMN, "TrackingStartColumn", "px", 1),
    number(ORVA_META_KEY_TRACKING_START_ROW, "TrackingStartRow", "px", 1),
    number(ORVA_META_KEY_TRACKING_STOP_COLUMN, "TrackingStopColumn", "px", 1),
    number(ORVA_META_KEY_TRACKING_STOP_ROW, "TrackingStopRow", "px", 1),
    flag(ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, "TestUseShiftedAveraging", "", 2),
    text(ORVA_META_KEY_LIB_INFO_STRING, "LibInfoString", "", 2),
    text(ORVA_META_KEY_APP_INFO_STRING, "AppInfoString", "", 2),
    number(ORVA_META_KEY_FIRMWARE_VERSION, "FirmwareVersion", "", 1),
    number(ORVA_META_KEY_VERTICAL_PIXELS, "VerticalPixels", "px", 1),
    number(ORVA_META_KEY_VERTICAL_PIXEL_SIZE, "VerticalPixelSize", "0.1 um", 2),
    flag(ORVA_META_KEY_VERT_SCAN_DIR_INVERT, "VertScanDirInvert", "", 1),
    number(ORVA_META_KEY_IMAGE_OFFSET, "ImageOffset", "byte", 4),
    number(ORVA_META_KEY_META_INFO, "MetaInfo", "", 4),
    number(ORVA_META_KEY_PIXEL_FORMAT, "PixelFormat", "", 4),
    number(ORVA_META_KEY_OTHER_TYPE, "OtherType", "", 4),
    number(ORVA_META_KEY_OTHER_TYPE_LENGTH, "OtherTypeLength", "byte", 4),
    number(ORVA_META_KEY_OTHER_TYPE_OFFSET, "OtherTypeOffset", "byte", 4),
    number(ORVA_META_KEY_RESERVED, "Reserved", "", 4),
};

const orva_key& keyOf(const char* name) {
  for (const orva_key& candidate : keys)
    if (std::strcmp(candidate.name, &required(name, "the key")) == 0) return candidate;
  fail(ORVA_BAD_ARGUMENT, "\"" + std::string(name) + "\" is no key of a header");
}

}  // namespace orvacam::face

extern "C" {

size_t orva_key_count(void) {
  return orvacam::face::keyCount;
}

const orva_key* orva_key_at(size_t index) {
  return index < orvacam::face::keyCount ? &orvacam::face::keys[index] : nullptr;
}
}
