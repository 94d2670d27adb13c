#ifndef ORVACAM_SRC_METADATA_FITS_KEYWORDS_H
#define ORVACAM_SRC_METADATA_FITS_KEYWORDS_H

#include <orvacam/types/meta_keys.h>

#include <cstddef>
#include <string_view>

/// The FITS keywords that frame metadata is written under and read from.
namespace orvacam::fits {

struct Keyword {
  std::string_view name;
  const char* description;  ///< also the comment of the card that is written
};

/// The place of a keyword below ORVA_META_KEY_COUNT is its metadata key; behind those come the keywords of
/// the format itself.
// clang-format off
inline constexpr Keyword keywords[] = {
    {"MAGIC", "Magic Number"},
    {"MDLENGTH", "Meta Data Length"},
    {"MDVER", "Meta Data Version"},
    {"BKSDILL", "Back Side Illuminated"},
    {"BASETEMP", "Heatsink Temperature (C)"},
    {"XBINNING", "Binning factor used on the X axis"},
    {"YBINNING", "Binning factor used on the Y axis"},
    {"BLKLVLAD", "Black Level Adjust value"},
    {"BLKLVLSN", "Black Level Sun value"},
    {"BLKHAD", "Black Level Adjust High value"},
    {"BLKHN", "Black Level Sun High value"},
    {"INSTRUME", "Camera Model"},
    {"DATE-OBS", "Date of observation (capture)"},
    {"TIMS-OBS", "Time of observation, seconds of the day"},
    {"TIMN-OBS", "Time of observation, nanoseconds"},
    {"CCD-TEMP", "Cooler Temperature (C)"},
    {"COOLDUTY", "Cooler Duty Cycle"},
    {"CTLBLK1", "Control Block"},
    {"CMS", "Correlated Multiple Sample flag"},
    {"DPIXDEP", "Data Pixel Bit Depth"},
    {"DZPOINT", "Data Zero Point"},
    {"DEADPXCR", "Dead Pixel Correction flag"},
    {"EXPTIME", "Duration of exposure in 10us periods"},
    {"DATE", "File create date"},
    {"FPGATEMP", "FPGA Temperature (C)"},
    {"FRAMENUM", "Frame Number"},
    {"GAINLOW", "Low Gain Value"},
    {"GAINGLOB", "Global Gain Value"},
    {"GAINHIGH", "High Gain Value"},
    {"GEO_LAT", "Geocentric latitude [deg]"},
    {"GLATDEG", "Latitude degrees"},
    {"GLATMIN", "Latitude minutes"},
    {"GLATDIR", "Latitude hemisphere"},
    {"GEO_LONG", "[deg] Geocentric longitude"},
    {"GLONGDEG", "Longitude degrees"},
    {"GLONGMIN", "Longitude minutes"},
    {"GLONGDIR", "Longitude hemisphere"},
    {"GBLRESET", "Global Reset flag"},
    {"GPS_ERR", "GPS Error flag"},
    {"GPS_LOCK", "GPS Present at Capture Time"},
    {"HDR-MODE", "Image captured in HDR Mode"},
    {"H_ADUE", "High Gain ADU per electron"},
    {"HPIXELS", "Horizontal Pixels"},
    {"HPIXSIZE", "Horizontal Pixel Size"},
    {"HRZDIRIN", "Horizontal Scan Direction Invert flag"},
    {"ILLSTRDL", "Illumination Start Delay"},
    {"ILLSTPDL", "Illumination Stop Delay"},
    {"IMGHGT", "Image Height"},
    {"CAM-MODE", "Camera Mode"},
    {"IMGSTACL", "Image Start Column"},
    {"IMGSTARW", "Image Start Row"},
    {"IMGSTPCL", "Image Stop Column"},
    {"IMGSTPRW", "Image Stop Row"},
    {"IMGSTERW", "Image Starting Exposure Row"},
    {"IMGTYPE", "Image Type"},
    {"IMGWIDTH", "Image Width"},
    {"ISHIFRM", "Is High Frame flag"},
    {"ISHIONLY", "Is High Only flag"},
    {"ISMRGFRM", "Is Merged Frame flag"},
    {"ISSFTBIN", "Is Software Binned flag"},
    {"ISSTKFRM", "Is Stacked Frame flag"},
    {"LOWDARK", "Low Dark Current flag"},
    {"LOWNOISE", "Low Noise flag"},
    {"MERGE_GR", "Merge Gain Ratio"},
    {"MERGE_LO", "Merge Line Offset"},
    {"NONRWALL", "Non-Row Alligned Image flag"},
    {"NUMDTCH", "Number Of Data Channels"},
    {"PXLORDIM", "Pixel Ordered Image flag"},
    {"PSTREFRW", "Number of Post-Reference Rows"},
    {"PREREFRW", "Number of Pre-Reference Rows"},
    {"RFPXLPRW", "Number of Post Reference pixels per row"},
    {"PRFPXPRW", "Number of Pre Reference pixels per row"},
    {"SNRPXLDP", "Sensor Pixel Depth capability"},
    {"SENSRDQ", "Sensor Read Quadrants"},
    {"SENSTEMP", "Sensor Chip Temperature (C)"},
    {"SERIAL", "Camera serial number"},
    {"SHUTCLDL", "Shutter Close Delay"},
    {"SHUTOPDL", "Shutter Open Delay"},
    {"TEMPSETP", "Temperature Set Point"},
    {"TSTLGA", "Test Low Gain Absolute"},   // intended: these two keys are the high, then the low gain
    {"TSTHGA", "Test High Gain Absolute"},
    {"TRKFRMPR", "Tracking Frames Per Image Frame"},
    {"TRKSTRCL", "Tracking Start Column"},
    {"TRKSTRRW", "Tracking Start Row"},
    {"TRKSTPCL", "Tracking Stop Column"},
    {"TRKSTPRW", "Tracking Stop Row"},
    {"USSFTAVE", "Use Shifted Averaging flag"},
    {"VERAPI", "API Version"},
    {"VERSAPP", "Application Version"},
    {"VERFIRM", "Firmware Version"},
    {"VPIXELS", "Vertical Pixels"},
    {"VPIXSIZE", "Vertical Pixel Size"},
    {"VRTDIRIN", "Vertical Scan Direction Invert flag"},
    {"V4OFF", "Image Offset"},
    {"V4INFO", "Meta Info"},
    {"V4PIXFMT", "Pixel Format"},
    {"V4OTYPE", "Other Type"},
    {"V4OLEN", "Other Type Length"},
    {"V4OOFF", "Other Type Offset"},
    {"V4RES", "Reserved"},
    {"SIMPLE", "file does conform to FITS standard"},
    {"BITPIX", "number of bits per data pixel"},
    {"NAXIS", "number of data axes"},
    {"EXTEND", "FITS dataset may contain extensions            "},
    {"COMMENT", ""},
    {"NAXIS", "number of data axes"},
    {"NAXIS1", "The X Axis (width) of Image"},
    {"NAXIS2", "The Y Axis (height) of Image"},
    {"BZERO", ""},
    {"BSCALE", ""},
    {"XORGSUBF", "Subframe origin on X axis"},
    {"YORGSUBF", "Subframe origin on Y axis"},
    {"END", "End"},
};
// clang-format on

/// Places of the keywords that are no metadata keys.
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

inline constexpr std::size_t keywordCount = sizeof keywords / sizeof keywords[0];

static_assert(keywordCount == 113 && End == keywordCount - 1, "one row for each keyword");
static_assert(keywords[ORVA_META_KEY_CAMERA_MODEL].name == "INSTRUME");
static_assert(keywords[ORVA_META_KEY_HDR_MODE].name == "HDR-MODE");
static_assert(keywords[ORVA_META_KEY_TEST_IS_HIGH_FRAME].name == "ISHIFRM");
static_assert(keywords[ORVA_META_KEY_CAMERA_SERIAL_NUMBER].name == "SERIAL");
static_assert(keywords[ORVA_META_KEY_VERT_SCAN_DIR_INVERT].name == "VRTDIRIN");
static_assert(keywords[ORVA_META_KEY_RESERVED].name == "V4RES");
static_assert(keywords[Simple].name == "SIMPLE" && keywords[End].name == "END");

constexpr bool namesFitCards() {
  for (const Keyword& keyword : keywords)
    if (keyword.name.empty() || keyword.name.size() > 8) return false;
  return true;
}
static_assert(namesFitCards(), "a keyword has at most 8 characters");

}  // namespace orvacam::fits

#endif  // ORVACAM_SRC_METADATA_FITS_KEYWORDS_H
