#ifndef ORVACAM_SRC_METADATA_KEY_NAMES_H
#define ORVACAM_SRC_METADATA_KEY_NAMES_H

#include <orvacam/types/meta_keys.h>

#include <cstddef>
#include <string_view>

#include "support/KeyedTable.h"

/// The names of the metadata keys: those that programs ask for, and the FITS keywords that values are written
/// under and read from.
namespace orvacam::fits {

struct Keyword {
  unsigned int place;       ///< a metadata key or a FormatKeyword
  const char* key;          ///< the documented name; "" where there is none
  const char* unit;         ///< of the raw value; "" for none
  std::string_view name;    ///< in a FITS header
  const char* description;  ///< also the comment of the card that is written
};

/// Places of the format's own keywords, behind those of the metadata keys.
enum FormatKeyword : unsigned int {
  Simple = ORVA_META_KEY_COUNT,
  Bitpix,
  Naxis,
  Extend,
  Comment,
  NaxisAgain,  // a second entry that is never found: the first one of a name counts
  Naxis1,
  Naxis2,
  Bzero,
  Bscale,
  SubframeX,
  SubframeY,
  End
};

// clang-format off
inline constexpr Keyword keywords[] = {
    {ORVA_META_KEY_MAGIC_NUMBER, "MagicNumber", "", "MAGIC", "Magic Number"},
    {ORVA_META_KEY_METADATA_LENGTH, "MetadataLength", "byte", "MDLENGTH", "Meta Data Length"},
    {ORVA_META_KEY_METADATA_VERSION, "MetadataVersion", "", "MDVER", "Meta Data Version"},
    {ORVA_META_KEY_BACK_SIDE_ILLUMINATED, "BackSideIlluminated", "", "BKSDILL", "Back Side Illuminated"},
    {ORVA_META_KEY_BASE_TEMPERATURE, "BaseTemperature", "0.1 degC", "BASETEMP", "Heatsink Temperature (C)"},
    {ORVA_META_KEY_HORIZONTAL_BINNING, "HorizontalBinning", "", "XBINNING", "Binning factor used on the X axis"},
    {ORVA_META_KEY_VERTICAL_BINNING, "VerticalBinning", "", "YBINNING", "Binning factor used on the Y axis"},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST, "BlackLevelAdjust", "", "BLKLVLAD", "Black Level Adjust value"},
    {ORVA_META_KEY_BLACK_LEVEL_SUN, "BlackLevelSun", "", "BLKLVLSN", "Black Level Sun value"},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, "BlackLevelAdjustHigh", "", "BLKHAD", "Black Level Adjust High value"},
    {ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, "BlackLevelSunHigh", "", "BLKHN", "Black Level Sun High value"},
    {ORVA_META_KEY_CAMERA_MODEL, "CameraModel", "", "INSTRUME", "Camera Model"},
    {ORVA_META_KEY_CAPTURE_DATE, "CaptureDate", "", "DATE-OBS", "Date of observation (capture)"},
    {ORVA_META_KEY_CAPTURE_TIME, "CaptureTime", "s", "TIMS-OBS", "Time of observation, seconds of the day"},
    {ORVA_META_KEY_CAPTURE_TIME_NSECS, "CaptureTimeNsecs", "ns", "TIMN-OBS", "Time of observation, nanoseconds"},
    {ORVA_META_KEY_SENSOR_COOLER_TEMP, "SensorCoolerTemp", "0.1 degC", "CCD-TEMP", "Cooler Temperature (C)"},
    {ORVA_META_KEY_COOLER_DUTY_CYCLE, "CoolerDutyCycle", "1/255", "COOLDUTY", "Cooler Duty Cycle"},
    {ORVA_META_KEY_UNUSED_17, "", "", "CTLBLK1", "Control Block"},
    {ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, "CorrelatedMultipleSample", "", "CMS", "Correlated Multiple Sample flag"},
    {ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "DataPixelBitDepth", "bit", "DPIXDEP", "Data Pixel Bit Depth"},
    {ORVA_META_KEY_DATA_ZERO_POINT, "DataZeroPoint", "", "DZPOINT", "Data Zero Point"},
    {ORVA_META_KEY_DEAD_PIXEL_CORRECTION, "DeadPixelCorrection", "", "DEADPXCR", "Dead Pixel Correction flag"},
    {ORVA_META_KEY_EXPOSURE_TIME, "ExposureTime", "10 us", "EXPTIME", "Duration of exposure in 10us periods"},
    {ORVA_META_KEY_UNUSED_23, "", "", "DATE", "File create date"},
    {ORVA_META_KEY_FPGA_TEMPERATURE, "FPGATemperature", "0.1 degC", "FPGATEMP", "FPGA Temperature (C)"},
    {ORVA_META_KEY_FRAME_NUMBER, "FrameNumber", "", "FRAMENUM", "Frame Number"},
    {ORVA_META_KEY_LDR_GAIN, "LDRGain", "", "GAINLOW", "Low Gain Value"},
    {ORVA_META_KEY_GLOBAL_GAIN, "GlobalGain", "", "GAINGLOB", "Global Gain Value"},
    {ORVA_META_KEY_HDR_GAIN, "HDRGain", "", "GAINHIGH", "High Gain Value"},
    {ORVA_META_KEY_GPS_LATITUDE_RAW, "GPSLatitudeRaw", "1/600000 deg", "GEO_LAT", "Geocentric latitude [deg]"},
    {ORVA_META_KEY_GPS_LATITUDE_DEGREES, "GPSLatitudeDegrees", "deg", "GLATDEG", "Latitude degrees"},
    {ORVA_META_KEY_GPS_LATITUDE_MINUTES, "GPSLatitudeMinutes", "min", "GLATMIN", "Latitude minutes"},
    {ORVA_META_KEY_GPS_LATITUDE_HEMISPHERE, "GPSLatitudeHemisphere", "", "GLATDIR", "Latitude hemisphere"},
    {ORVA_META_KEY_GPS_LONGITUDE_RAW, "GPSLongitudeRaw", "1/600000 deg", "GEO_LONG", "[deg] Geocentric longitude"},
    {ORVA_META_KEY_GPS_LONGITUDE_DEGREES, "GPSLongitudeDegrees", "deg", "GLONGDEG", "Longitude degrees"},
    {ORVA_META_KEY_GPS_LONGITUDE_MINUTES, "GPSLongitudeMinutes", "min", "GLONGMIN", "Longitude minutes"},
    {ORVA_META_KEY_GPS_LONGITUDE_HEMISPHERE, "GPSLongitudeHemisphere", "", "GLONGDIR", "Longitude hemisphere"},
    {ORVA_META_KEY_GLOBAL_RESET, "GlobalReset", "", "GBLRESET", "Global Reset flag"},
    {ORVA_META_KEY_GPS_ERROR, "GPSError", "", "GPS_ERR", "GPS Error flag"},
    {ORVA_META_KEY_GPS_LOCKED, "GPSLocked", "", "GPS_LOCK", "GPS Present at Capture Time"},
    {ORVA_META_KEY_HDR_MODE, "HDRMode", "", "HDR-MODE", "Image captured in HDR Mode"},
    {ORVA_META_KEY_HIGH_GAIN_ADU_E, "HighGainADUe", "0.001", "H_ADUE", "High Gain ADU per electron"},
    {ORVA_META_KEY_HORIZONTAL_PIXELS, "HorizontalPixels", "px", "HPIXELS", "Horizontal Pixels"},
    {ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE, "HorizontalPixelSize", "0.1 um", "HPIXSIZE", "Horizontal Pixel Size"},
    {ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, "HorzScanDirInvert", "", "HRZDIRIN", "Horizontal Scan Direction Invert flag"},
    {ORVA_META_KEY_ILLUMIN_START_DELAY, "IlluminStartDelay", "", "ILLSTRDL", "Illumination Start Delay"},
    {ORVA_META_KEY_ILLUMIN_STOP_DELAY, "IlluminStopDelay", "", "ILLSTPDL", "Illumination Stop Delay"},
    {ORVA_META_KEY_UNUSED_47, "", "", "IMGHGT", "Image Height"},
    {ORVA_META_KEY_UNUSED_48, "", "", "CAM-MODE", "Camera Mode"},
    {ORVA_META_KEY_IMAGE_START_COLUMN, "ImageStartColumn", "px", "IMGSTACL", "Image Start Column"},
    {ORVA_META_KEY_IMAGE_START_ROW, "ImageStartRow", "px", "IMGSTARW", "Image Start Row"},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, "ImageStopColumn", "px", "IMGSTPCL", "Image Stop Column"},
    {ORVA_META_KEY_IMAGE_STOP_ROW, "ImageStopRow", "px", "IMGSTPRW", "Image Stop Row"},
    {ORVA_META_KEY_STARTING_EXPOSURE_ROW, "StartingExposureRow", "px", "IMGSTERW", "Image Starting Exposure Row"},
    {ORVA_META_KEY_UNUSED_54, "", "", "IMGTYPE", "Image Type"},
    {ORVA_META_KEY_UNUSED_55, "", "", "IMGWIDTH", "Image Width"},
    {ORVA_META_KEY_TEST_IS_HIGH_FRAME, "TestIsHighFrame", "", "ISHIFRM", "Is High Frame flag"},
    {ORVA_META_KEY_EXTRA_FLAG_BIT7, "ExtraFlagBit7", "", "ISHIONLY", "Is High Only flag"},
    {ORVA_META_KEY_TEST_IS_MERGED_FRAME, "TestIsMergedFrame", "", "ISMRGFRM", "Is Merged Frame flag"},
    {ORVA_META_KEY_UNUSED_59, "", "", "ISSFTBIN", "Is Software Binned flag"},
    {ORVA_META_KEY_TEST_IS_STACKED_FRAME, "TestIsStackedFrame", "", "ISSTKFRM", "Is Stacked Frame flag"},
    {ORVA_META_KEY_LOW_DARK_CURRENT, "LowDarkCurrent", "", "LOWDARK", "Low Dark Current flag"},
    {ORVA_META_KEY_LOW_NOISE, "LowNoise", "", "LOWNOISE", "Low Noise flag"},
    {ORVA_META_KEY_MERGE_GAIN_RATIO, "MergeGainRatio", "0.001", "MERGE_GR", "Merge Gain Ratio"},
    {ORVA_META_KEY_MERGE_LINE_OFFSET, "MergeLineOffset", "", "MERGE_LO", "Merge Line Offset"},
    {ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, "NonRowAllignedImage", "", "NONRWALL", "Non-Row Alligned Image flag"},
    {ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, "NumberOfDataChannels", "", "NUMDTCH", "Number Of Data Channels"},
    {ORVA_META_KEY_PIXEL_ORDERED_IMAGE, "PixelOrderedImage", "", "PXLORDIM", "Pixel Ordered Image flag"},
    {ORVA_META_KEY_POST_REFERENCE_ROWS, "PostReferenceRows", "row", "PSTREFRW", "Number of Post-Reference Rows"},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, "PreReferenceRows", "row", "PREREFRW", "Number of Pre-Reference Rows"},
    {ORVA_META_KEY_POST_ROW_REF_PIXELS, "PostRowRefPixels", "px", "RFPXLPRW", "Number of Post Reference pixels per row"},
    {ORVA_META_KEY_PRE_ROW_REF_PIXELS, "PreRowRefPixels", "px", "PRFPXPRW", "Number of Pre Reference pixels per row"},
    {ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, "SensorPixelBitDepth", "bit", "SNRPXLDP", "Sensor Pixel Depth capability"},
    {ORVA_META_KEY_SENSOR_READ_QUADRANTS, "SensorReadQuadrants", "", "SENSRDQ", "Sensor Read Quadrants"},
    {ORVA_META_KEY_SENSOR_CHIP_TEMP, "SensorChipTemp", "0.1 degC", "SENSTEMP", "Sensor Chip Temperature (C)"},
    {ORVA_META_KEY_CAMERA_SERIAL_NUMBER, "CameraSerialNumber", "", "SERIAL", "Camera serial number"},
    {ORVA_META_KEY_SHUTTER_CLOSE_DELAY, "ShutterCloseDelay", "", "SHUTCLDL", "Shutter Close Delay"},
    {ORVA_META_KEY_SHUTTER_OPEN_DELAY, "ShutterOpenDelay", "", "SHUTOPDL", "Shutter Open Delay"},
    {ORVA_META_KEY_TEMPERATURE_SET_POINT, "TemperatureSetPoint", "0.1 degC", "TEMPSETP", "Temperature Set Point"},
    {ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE, "TestHighGainAbsolute", "0.01", "TSTLGA", "Test Low Gain Absolute"},   // intended: these two keys are the high, then the low gain
    {ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE, "TestLowGainAbsolute", "0.01", "TSTHGA", "Test High Gain Absolute"},
    {ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, "TrackingFramesPerImageFrame", "", "TRKFRMPR", "Tracking Frames Per Image Frame"},
    {ORVA_META_KEY_TRACKING_START_COLUMN, "TrackingStartColumn", "px", "TRKSTRCL", "Tracking Start Column"},
    {ORVA_META_KEY_TRACKING_START_ROW, "TrackingStartRow", "px", "TRKSTRRW", "Tracking Start Row"},
    {ORVA_META_KEY_TRACKING_STOP_COLUMN, "TrackingStopColumn", "px", "TRKSTPCL", "Tracking Stop Column"},
    {ORVA_META_KEY_TRACKING_STOP_ROW, "TrackingStopRow", "px", "TRKSTPRW", "Tracking Stop Row"},
    {ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, "TestUseShiftedAveraging", "", "USSFTAVE", "Use Shifted Averaging flag"},
    {ORVA_META_KEY_LIB_INFO_STRING, "LibInfoString", "", "VERAPI", "API Version"},
    {ORVA_META_KEY_APP_INFO_STRING, "AppInfoString", "", "VERSAPP", "Application Version"},
    {ORVA_META_KEY_FIRMWARE_VERSION, "FirmwareVersion", "", "VERFIRM", "Firmware Version"},
    {ORVA_META_KEY_VERTICAL_PIXELS, "VerticalPixels", "px", "VPIXELS", "Vertical Pixels"},
    {ORVA_META_KEY_VERTICAL_PIXEL_SIZE, "VerticalPixelSize", "0.1 um", "VPIXSIZE", "Vertical Pixel Size"},
    {ORVA_META_KEY_VERT_SCAN_DIR_INVERT, "VertScanDirInvert", "", "VRTDIRIN", "Vertical Scan Direction Invert flag"},
    {ORVA_META_KEY_IMAGE_OFFSET, "ImageOffset", "byte", "V4OFF", "Image Offset"},
    {ORVA_META_KEY_META_INFO, "MetaInfo", "", "V4INFO", "Meta Info"},
    {ORVA_META_KEY_PIXEL_FORMAT, "PixelFormat", "", "V4PIXFMT", "Pixel Format"},
    {ORVA_META_KEY_OTHER_TYPE, "OtherType", "", "V4OTYPE", "Other Type"},
    {ORVA_META_KEY_OTHER_TYPE_LENGTH, "OtherTypeLength", "byte", "V4OLEN", "Other Type Length"},
    {ORVA_META_KEY_OTHER_TYPE_OFFSET, "OtherTypeOffset", "byte", "V4OOFF", "Other Type Offset"},
    {ORVA_META_KEY_RESERVED, "Reserved", "", "V4RES", "Reserved"},
    {Simple, "", "", "SIMPLE", "file does conform to FITS standard"},
    {Bitpix, "", "", "BITPIX", "number of bits per data pixel"},
    {Naxis, "", "", "NAXIS", "number of data axes"},
    {Extend, "", "", "EXTEND", "FITS dataset may contain extensions            "},
    {Comment, "", "", "COMMENT", ""},
    {NaxisAgain, "", "", "NAXIS", "number of data axes"},
    {Naxis1, "", "", "NAXIS1", "The X Axis (width) of Image"},
    {Naxis2, "", "", "NAXIS2", "The Y Axis (height) of Image"},
    {Bzero, "", "", "BZERO", ""},
    {Bscale, "", "", "BSCALE", ""},
    {SubframeX, "", "", "XORGSUBF", "Subframe origin on X axis"},
    {SubframeY, "", "", "YORGSUBF", "Subframe origin on Y axis"},
    {End, "", "", "END", "End"},
};
// clang-format on

inline constexpr std::size_t keywordCount = sizeof keywords / sizeof keywords[0];

static_assert(hasARowForEach(End + 1, keywords, &Keyword::place));

constexpr bool namesFitCards() {
  for (const Keyword& keyword : keywords)
    if (keyword.name.empty() || keyword.name.size() > 8) return false;
  return true;
}
static_assert(namesFitCards(), "a keyword has at most 8 characters");

}  // namespace orvacam::fits

#endif  // ORVACAM_SRC_METADATA_KEY_NAMES_H
