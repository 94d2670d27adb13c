#ifndef ORVACAM_SRC_METADATA_FITS_KEYWORDS_H
#define ORVACAM_SRC_METADATA_FITS_KEYWORDS_H

#include <orvacam/types/meta_keys.h>

#include <cstddef>
#include <string_view>

#include "support/KeyedTable.h"

/// The FITS keywords that frame metadata is written under and read from.
namespace orvacam::fits {

struct Keyword {
  unsigned int place;  ///< a metadata key or a FormatKeyword
  std::string_view name;
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
    {ORVA_META_KEY_MAGIC_NUMBER, "MAGIC", "Magic Number"},
    {ORVA_META_KEY_METADATA_LENGTH, "MDLENGTH", "Meta Data Length"},
    {ORVA_META_KEY_METADATA_VERSION, "MDVER", "Meta Data Version"},
    {ORVA_META_KEY_BACK_SIDE_ILLUMINATED, "BKSDILL", "Back Side Illuminated"},
    {ORVA_META_KEY_BASE_TEMPERATURE, "BASETEMP", "Heatsink Temperature (C)"},
    {ORVA_META_KEY_HORIZONTAL_BINNING, "XBINNING", "Binning factor used on the X axis"},
    {ORVA_META_KEY_VERTICAL_BINNING, "YBINNING", "Binning factor used on the Y axis"},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST, "BLKLVLAD", "Black Level Adjust value"},
    {ORVA_META_KEY_BLACK_LEVEL_SUN, "BLKLVLSN", "Black Level Sun value"},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, "BLKHAD", "Black Level Adjust High value"},
    {ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, "BLKHN", "Black Level Sun High value"},
    {ORVA_META_KEY_CAMERA_MODEL, "INSTRUME", "Camera Model"},
    {ORVA_META_KEY_CAPTURE_DATE, "DATE-OBS", "Date of observation (capture)"},
    {ORVA_META_KEY_CAPTURE_TIME, "TIMS-OBS", "Time of observation, seconds of the day"},
    {ORVA_META_KEY_CAPTURE_TIME_NSECS, "TIMN-OBS", "Time of observation, nanoseconds"},
    {ORVA_META_KEY_SENSOR_COOLER_TEMP, "CCD-TEMP", "Cooler Temperature (C)"},
    {ORVA_META_KEY_COOLER_DUTY_CYCLE, "COOLDUTY", "Cooler Duty Cycle"},
    {ORVA_META_KEY_UNUSED_17, "CTLBLK1", "Control Block"},
    {ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, "CMS", "Correlated Multiple Sample flag"},
    {ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "DPIXDEP", "Data Pixel Bit Depth"},
    {ORVA_META_KEY_DATA_ZERO_POINT, "DZPOINT", "Data Zero Point"},
    {ORVA_META_KEY_DEAD_PIXEL_CORRECTION, "DEADPXCR", "Dead Pixel Correction flag"},
    {ORVA_META_KEY_EXPOSURE_TIME, "EXPTIME", "Duration of exposure in 10us periods"},
    {ORVA_META_KEY_UNUSED_23, "DATE", "File create date"},
    {ORVA_META_KEY_FPGA_TEMPERATURE, "FPGATEMP", "FPGA Temperature (C)"},
    {ORVA_META_KEY_FRAME_NUMBER, "FRAMENUM", "Frame Number"},
    {ORVA_META_KEY_LDR_GAIN, "GAINLOW", "Low Gain Value"},
    {ORVA_META_KEY_GLOBAL_GAIN, "GAINGLOB", "Global Gain Value"},
    {ORVA_META_KEY_HDR_GAIN, "GAINHIGH", "High Gain Value"},
    {ORVA_META_KEY_GPS_LATITUDE_RAW, "GEO_LAT", "Geocentric latitude [deg]"},
    {ORVA_META_KEY_GPS_LATITUDE_DEGREES, "GLATDEG", "Latitude degrees"},
    {ORVA_META_KEY_GPS_LATITUDE_MINUTES, "GLATMIN", "Latitude minutes"},
    {ORVA_META_KEY_GPS_LATITUDE_HEMISPHERE, "GLATDIR", "Latitude hemisphere"},
    {ORVA_META_KEY_GPS_LONGITUDE_RAW, "GEO_LONG", "[deg] Geocentric longitude"},
    {ORVA_META_KEY_GPS_LONGITUDE_DEGREES, "GLONGDEG", "Longitude degrees"},
    {ORVA_META_KEY_GPS_LONGITUDE_MINUTES, "GLONGMIN", "Longitude minutes"},
    {ORVA_META_KEY_GPS_LONGITUDE_HEMISPHERE, "GLONGDIR", "Longitude hemisphere"},
    {ORVA_META_KEY_GLOBAL_RESET, "GBLRESET", "Global Reset flag"},
    {ORVA_META_KEY_GPS_ERROR, "GPS_ERR", "GPS Error flag"},
    {ORVA_META_KEY_GPS_LOCKED, "GPS_LOCK", "GPS Present at Capture Time"},
    {ORVA_META_KEY_HDR_MODE, "HDR-MODE", "Image captured in HDR Mode"},
    {ORVA_META_KEY_HIGH_GAIN_ADU_E, "H_ADUE", "High Gain ADU per electron"},
    {ORVA_META_KEY_HORIZONTAL_PIXELS, "HPIXELS", "Horizontal Pixels"},
    {ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE, "HPIXSIZE", "Horizontal Pixel Size"},
    {ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, "HRZDIRIN", "Horizontal Scan Direction Invert flag"},
    {ORVA_META_KEY_ILLUMIN_START_DELAY, "ILLSTRDL", "Illumination Start Delay"},
    {ORVA_META_KEY_ILLUMIN_STOP_DELAY, "ILLSTPDL", "Illumination Stop Delay"},
    {ORVA_META_KEY_UNUSED_47, "IMGHGT", "Image Height"},
    {ORVA_META_KEY_UNUSED_48, "CAM-MODE", "Camera Mode"},
    {ORVA_META_KEY_IMAGE_START_COLUMN, "IMGSTACL", "Image Start Column"},
    {ORVA_META_KEY_IMAGE_START_ROW, "IMGSTARW", "Image Start Row"},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, "IMGSTPCL", "Image Stop Column"},
    {ORVA_META_KEY_IMAGE_STOP_ROW, "IMGSTPRW", "Image Stop Row"},
    {ORVA_META_KEY_STARTING_EXPOSURE_ROW, "IMGSTERW", "Image Starting Exposure Row"},
    {ORVA_META_KEY_UNUSED_54, "IMGTYPE", "Image Type"},
    {ORVA_META_KEY_UNUSED_55, "IMGWIDTH", "Image Width"},
    {ORVA_META_KEY_TEST_IS_HIGH_FRAME, "ISHIFRM", "Is High Frame flag"},
    {ORVA_META_KEY_EXTRA_FLAG_BIT7, "ISHIONLY", "Is High Only flag"},
    {ORVA_META_KEY_TEST_IS_MERGED_FRAME, "ISMRGFRM", "Is Merged Frame flag"},
    {ORVA_META_KEY_UNUSED_59, "ISSFTBIN", "Is Software Binned flag"},
    {ORVA_META_KEY_TEST_IS_STACKED_FRAME, "ISSTKFRM", "Is Stacked Frame flag"},
    {ORVA_META_KEY_LOW_DARK_CURRENT, "LOWDARK", "Low Dark Current flag"},
    {ORVA_META_KEY_LOW_NOISE, "LOWNOISE", "Low Noise flag"},
    {ORVA_META_KEY_MERGE_GAIN_RATIO, "MERGE_GR", "Merge Gain Ratio"},
    {ORVA_META_KEY_MERGE_LINE_OFFSET, "MERGE_LO", "Merge Line Offset"},
    {ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, "NONRWALL", "Non-Row Alligned Image flag"},
    {ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, "NUMDTCH", "Number Of Data Channels"},
    {ORVA_META_KEY_PIXEL_ORDERED_IMAGE, "PXLORDIM", "Pixel Ordered Image flag"},
    {ORVA_META_KEY_POST_REFERENCE_ROWS, "PSTREFRW", "Number of Post-Reference Rows"},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, "PREREFRW", "Number of Pre-Reference Rows"},
    {ORVA_META_KEY_POST_ROW_REF_PIXELS, "RFPXLPRW", "Number of Post Reference pixels per row"},
    {ORVA_META_KEY_PRE_ROW_REF_PIXELS, "PRFPXPRW", "Number of Pre Reference pixels per row"},
    {ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, "SNRPXLDP", "Sensor Pixel Depth capability"},
    {ORVA_META_KEY_SENSOR_READ_QUADRANTS, "SENSRDQ", "Sensor Read Quadrants"},
    {ORVA_META_KEY_SENSOR_CHIP_TEMP, "SENSTEMP", "Sensor Chip Temperature (C)"},
    {ORVA_META_KEY_CAMERA_SERIAL_NUMBER, "SERIAL", "Camera serial number"},
    {ORVA_META_KEY_SHUTTER_CLOSE_DELAY, "SHUTCLDL", "Shutter Close Delay"},
    {ORVA_META_KEY_SHUTTER_OPEN_DELAY, "SHUTOPDL", "Shutter Open Delay"},
    {ORVA_META_KEY_TEMPERATURE_SET_POINT, "TEMPSETP", "Temperature Set Point"},
    {ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE, "TSTLGA", "Test Low Gain Absolute"},   // intended: these two keys are the high, then the low gain
    {ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE, "TSTHGA", "Test High Gain Absolute"},
    {ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, "TRKFRMPR", "Tracking Frames Per Image Frame"},
    {ORVA_META_KEY_TRACKING_START_COLUMN, "TRKSTRCL", "Tracking Start Column"},
    {ORVA_META_KEY_TRACKING_START_ROW, "TRKSTRRW", "Tracking Start Row"},
    {ORVA_META_KEY_TRACKING_STOP_COLUMN, "TRKSTPCL", "Tracking Stop Column"},
    {ORVA_META_KEY_TRACKING_STOP_ROW, "TRKSTPRW", "Tracking Stop Row"},
    {ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, "USSFTAVE", "Use Shifted Averaging flag"},
    {ORVA_META_KEY_LIB_INFO_STRING, "VERAPI", "API Version"},
    {ORVA_META_KEY_APP_INFO_STRING, "VERSAPP", "Application Version"},
    {ORVA_META_KEY_FIRMWARE_VERSION, "VERFIRM", "Firmware Version"},
    {ORVA_META_KEY_VERTICAL_PIXELS, "VPIXELS", "Vertical Pixels"},
    {ORVA_META_KEY_VERTICAL_PIXEL_SIZE, "VPIXSIZE", "Vertical Pixel Size"},
    {ORVA_META_KEY_VERT_SCAN_DIR_INVERT, "VRTDIRIN", "Vertical Scan Direction Invert flag"},
    {ORVA_META_KEY_IMAGE_OFFSET, "V4OFF", "Image Offset"},
    {ORVA_META_KEY_META_INFO, "V4INFO", "Meta Info"},
    {ORVA_META_KEY_PIXEL_FORMAT, "V4PIXFMT", "Pixel Format"},
    {ORVA_META_KEY_OTHER_TYPE, "V4OTYPE", "Other Type"},
    {ORVA_META_KEY_OTHER_TYPE_LENGTH, "V4OLEN", "Other Type Length"},
    {ORVA_META_KEY_OTHER_TYPE_OFFSET, "V4OOFF", "Other Type Offset"},
    {ORVA_META_KEY_RESERVED, "V4RES", "Reserved"},
    {Simple, "SIMPLE", "file does conform to FITS standard"},
    {Bitpix, "BITPIX", "number of bits per data pixel"},
    {Naxis, "NAXIS", "number of data axes"},
    {Extend, "EXTEND", "FITS dataset may contain extensions            "},
    {Comment, "COMMENT", ""},
    {NaxisAgain, "NAXIS", "number of data axes"},
    {Naxis1, "NAXIS1", "The X Axis (width) of Image"},
    {Naxis2, "NAXIS2", "The Y Axis (height) of Image"},
    {Bzero, "BZERO", ""},
    {Bscale, "BSCALE", ""},
    {SubframeX, "XORGSUBF", "Subframe origin on X axis"},
    {SubframeY, "YORGSUBF", "Subframe origin on Y axis"},
    {End, "END", "End"},
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

#endif  // ORVACAM_SRC_METADATA_FITS_KEYWORDS_H
