// The header as text, line by line.

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "metadata/SettableHeader.h"

namespace {

// clang-format off
// What the header of sampleHeader() looks like in each version: every unsigned value is 1000 plus its key but for those
// that sampleHeader() sets.
constexpr const char* version1 =
    R"(MagicNumber         = 0x4d657461
MetadataLength      = 384
MetadataVersion     = 1
CameraModel         = VESTRA VS4040
CameraSerialNumber  = SN-0042
CaptureYear         = 2024
CaptureMonth        = 2
CaptureDay          = 29
CaptureTime         = 3723.004005 secs
SensorPixelBitDepth = 1072
DataPixelBitDepth   = 1019
DataZeroPoint       = 1020
HorizontalPixels    = 1042
VerticalPixels      = 1090
ExposureTime        = 1:1.1.123450, 366112345 (10usec periods)
SensorCoolerTemp    = -10.500000
SensorChipTemp      = 25.300000
GlobalGain          = 1027
LDRGain             = 1026
HDRGain             = 1028
DummyPixelsPerRow   = 1070
UnusedByte          = 1071
ControlBlock        = 169
DeadPixelCorrection = TRUE
PixelOrderedImage   = FALSE
HDRMode             = TRUE
LowNoise            = FALSE
LowDarkCurrent      = TRUE
HorzScanDirInvert   = FALSE
VertScanDirInvert   = TRUE
NonRowAllignedImage = FALSE
HorizontalBinning   = 1005
VerticalBinning     = 1006
BlackLevelAdjust    = 1007
BlackLevelSun       = 1008
ShutterOpenDelay    = 77
ShutterCloseDelay   = -76
IlluminStartDelay   = -45
IlluminStopDelay    = 46
TrackingStartRow    = 1083
TrackingStartColumn = 1082
TrackingStopRow     = 1085
TrackingStopColumn  = 1084
ImageStartRow       = 1050
ImageStartColumn    = 1049
ImageStopRow        = 1052
ImageStopColumn     = 1051
TrackingFramesPerImageFrame = 1081
FrameNumber         = 1025
StartingExposureRow = 1053
Pre Reference Rows        = 1069
Post Reference Rows       = 1068
NumberOfDataChannels = 1066
FirmwareVersion     = 0xbeef
)";

constexpr const char* version2 =
    R"(MagicNumber             = 0x4d657461
MetadataLength          = 384
MetadataVersion         = 2
CameraModel             = VESTRA VS4040
CameraSerialNumber      = SN-0042
FirmwareVersion         = 0xbeef
Temperature Set Point   = -20.0
Cooler Duty Cycle       = 100.0
Sensor Pixel Bit Depth  = 1072
Data Pixel Bit Depth    = 1019
Data Zero Point         = 1020
Horizontal Pixels       = 1042
Vertical Pixels         = 1090
Exposure Time           = 1:1.1.123450, 366112345 (10usec periods)
Sensor Cooler Temp      = -10.500000
Sensor Chip Temp        = 25.300000
Global Gain             = 1027
LDR Gain                = 1026
HDR Gain                = 1028
Dummy Pixels Per Row    = 1070
UnusedByte              = 1071
Control Block           = 169
  DeadPixel Correction    = TRUE
  Pixel Ordered Image     = FALSE
  HDR Mode                = TRUE
  Low Noise               = FALSE
  Low Dark Current        = TRUE
  Horz Scan Dir Invert    = FALSE
  Vert Scan Dir Invert    = TRUE
  Non Row Alligned Image  = FALSE
Horizontal Binning      = 1005
Vertical Binning        = 1006
BlackLevel Adjust       = 1007
Black Level Sun         = 1008
Shutter Open Delay      = 77
Shutter Close Delay     = -76
Illumin Start Delay     = -45
Illumin Stop Delay      = 46
Tracking Start Row      = 1083
Tracking Start Column   = 1082
Tracking Stop Row       = 1085
Tracking Stop Column    = 1084
Image Start Row         = 1050
Image Start Column      = 1049
Image Stop Row          = 1052
Image StopC olumn       = 1051
Tracking Frames Per Image Frame = 1081
Frame Number            = 1025
Starting Exposure Row   = 1053
Pre Reference Rows      = 1069
Post Reference Rows     = 1068
Number Of Data Channels = 1066

Control Block 2         = 165 (0xa5)
  Back Side Illuminated   = TRUE
  GPS Locked              = FALSE
  Sensor Read Quadrant UL = TRUE
  Sensor Read Quadrant UR = FALSE
  Sensor Read Quadrant LL = FALSE
  Sensor Read Quadrant LR = TRUE

Base Temperature        = 31.4
FPGA Temperature        = -40.5
Reserved [0xab, 0x5]

Control Block Test         = 0xef
 Test Use Shifted Averaging = FALSE
 Test Is Stacked Frame      = TRUE
 Test Is High Frame         = FALSE
 Test Is Merged Frame       = TRUE

Test Low Gain Absolute  = 12.340
Test High Gain Absolute = 56.780
Capture Time   = 2024/02/29 01:02:03.004005006
Latitude=      = 48.000000 deg 8.1234 min N
Longitude=     = 11.000000 deg 34.5670 min W

App Info String = Demo 1.0
Lib Info String = 2.1.4

Horizontal Pixel Size    = 9.0 (0x5a)
Vertical Pixel Size      = 6.5 (0x41)
Black Level Adjust High  = 592137 (0x90909)
Black Level Sun High     = 4112 (0x1010)

Padding = 00, 07, 14, 21, 28, 35, 42, 49, 56, 63, 70, 77, 84, 91, 98, 105, 112, 119, 126, 133, 140, 147, 154, 161, 168
)";

constexpr const char* version3 =
    R"(MagicNumber             = 0x4d657461
MetadataLength          = 384
MetadataVersion         = 3
CameraModel             = VESTRA VS4040
CameraSerialNumber      = SN-0042
FirmwareVersion         = 0xbeef
Temperature Set Point   = -20.0
Cooler Duty Cycle       = 100.0
Sensor Pixel Bit Depth  = 1072
Data Pixel Bit Depth    = 1019
Data Zero Point         = 1020
Horizontal Pixels       = 1042
Vertical Pixels         = 1090
Exposure Time           = 1:1.1.123450, 366112345 (10usec periods)
Sensor Cooler Temp      = -10.500000
Sensor Chip Temp        = 25.300000
Global Gain             = 1027
LDR Gain                = 1026
HDR Gain                = 1028
PostRowRefPixels        = 1070
PreRowRefPixels         = 1071
Control Block           = 169
    DeadPixel Correction   = TRUE
    Pixel Ordered Image    = FALSE
    HDR Mode               = TRUE
    Low Noise              = FALSE
    Low Dark Current       = TRUE
    Horz Scan Dir Invert   = FALSE
    Vert Scan Dir Invert   = TRUE
    Non Row Alligned Image = FALSE
Correlated Multiple Sample = TRUE
Horizontal Binning         = 1005
Vertical Binning           = 1006
BlackLevel Adjust          = 1007
Black Level Sun            = 1008
Shutter Open Delay         = 77
Shutter Close Delay        = -76
Illumin Start Delay        = -45
Illumin Stop Delay         = 46
Tracking Start Row         = 1083
Tracking Start Column      = 1082
Tracking Stop Row          = 1085
Tracking Stop Column       = 1084
Image Start Row            = 1050
Image Start Column         = 1049
Image Stop Row             = 1052
Image Stop Column          = 1051
Tracking Frames Per Image Frame = 1081
Frame Number               = 1025
Starting Exposure Row      = 1053
Pre Reference Rows         = 1069
Post Reference Rows        = 1068
Number Of Data Channels    = 1066

Control Block 2         = 165 (0xa5)
    GPS Error               = TRUE
    Global Reset            = FALSE
    Sensor Read Quadrant UL = TRUE
    Sensor Read Quadrant UR = FALSE
    Sensor Read Quadrant LL = FALSE
    Sensor Read Quadrant LR = TRUE
    GPS Locked              = FALSE
    Back Side Illuminated   = TRUE

Base Temperature        = 31.4
FPGA Temperature        = -40.5
Reserved [0xab, 0x5]

Control Block Test         = 0xef
    Test Use Shifted Averaging = FALSE
    Test Is Stacked Frame      = TRUE
    Test Is High Frame         = FALSE
    Test Is Merged Frame       = TRUE

Test Low Gain Absolute  = 12.340
Test High Gain Absolute = 56.780
Merge Gain Ratio = 4.567
Merge Line Offset = -64
High Gain ADUe = -1.500
Capture Time   = 2024/02/29 01:02:03.004005006
Latitude=      = 48.000000 deg 8.1234 min N
Longitude=     = 11.000000 deg 34.5670 min W

App Info String = Demo 1.0
Lib Info String = 2.1.4

Horizontal Pixel Size    = 9.0 (0x5a)
Vertical Pixel Size      = 6.5 (0x41)
Black Level Adjust High  = 592137 (0x90909)
Black Level Sun High     = 4112 (0x1010)
Padding = 00, 07, 14, 21, 28, 35, 42, 49, 56, 63, 70, 77, 84, 91, 98, 105, 112, 119, 126, 133, 140, 147, 154, 161, 168, 175, 182, 189, 196, 203, 210, 217, 224, 231, 238, 245, 252, 03, 10, 17, 24, 31, 38, 45, 52, 59, 66, 73, 80, 87, 94, 101, 108, 115, 122, 129, 136, 143, 150, 157, 164, 171, 178, 185, 192, 199, 206, 213, 220, 227, 234, 241, 248, 255, 06, 13, 20, 27, 34, 41, 48, 55, 62, 69, 76, 83, 90, 97, 104, 111, 118, 125, 132, 139, 146, 153, 160, 167, 174, 181, 188, 195, 202, 209, 216, 223, 230, 237, 244, 251, 02, 09, 16, 23, 30, 37, 44, 51, 58, 65, 72, 79, 86, 93, 100, 107, 114, 121, 128, 135, 142, 149, 156, 163, 170, 177, 184, 191, 198, 205, 212, 219, 226, 233, 240, 247, 254, 05, 12, 19, 26, 33
)";

// A version 4 header has those lines but for these of its own, and padding that is shorter.
constexpr const char* version4Lines =
    R"(V4 Image Offset          = 0x00000445
V4 Meta Info             = 0x00000446
V4 Pixel Format          = 0x00000447
V4 Reserved              = 0x0000044b
V4 Other Type            = 0x00000448
V4 Other Type Length     = 0x00000449
V4 Other Type Offset     = 0x0000044a
Padding = 00, 07, 14, 21, 28, 35, 42, 49, 56, 63, 70, 77, 84, 91, 98, 105, 112, 119, 126, 133, 140, 147, 154, 161, 168
)";
// clang-format on

std::string textOfVersion4(unsigned int stated = 4) {
  std::string text = version3;
  const std::string version = "MetadataVersion         = ";
  text.replace(text.find(version), version.size() + 1, version + std::to_string(stated));
  return text.substr(0, text.find("Padding = ")) + version4Lines;
}

SettableHeader sampleHeader(unsigned int version) {
  SettableHeader header;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
    header.set(static_cast<int>(key), 1000 + key);
  for (const int key : {3, 18, 21, 37, 38, 39, 40, 44, 56, 58, 60, 61, 62, 65, 67, 86, 92})
    header.setBool(key, false);
  for (const int key : {21, 40, 61, 92, 3, 38, 18, 60, 58})
    header.setBool(key, true);
  header.set(0, 0x4D657461).set(1, 384).set(2, version);
  header.setText(11, std::string("VESTRA VS4040").append(27, '\0'))
      .setText(75, std::string("SN-0042").append(17, '\0'));
  header.setText(88, std::string("Demo 1.0\0rest", 12)).setText(87, "2.1.4");
  header.set(12, 2024U << 16 | 2 << 8 | 29).setDouble(13, 3723.0).setDouble(14, 4005006.0);
  header.set(22, 366112345);  // 3661.12345 s
  header.setInt(15, -105).setInt(74, 253).setInt(78, -200).setInt(4, 314).setInt(24, -405).set(16, 255);
  header.set(80, 1234).set(79, 5678).setInt(63, 4567).setInt(41, -1500).setInt(64, -64).set(43, 90).set(91,
                                                                                                        65);
  header.setInt(45, -45).setInt(46, 46).setInt(76, -76).setInt(77, 77);
  header.set(73, 0x24).set(89, 0xBEEF).set(9, 0x90909).set(10, 0x1010);
  header.setDouble(30, 48.0).setDouble(31, 8.1234).setBool(32, true);
  header.setDouble(34, 11.0).setDouble(35, 34.567).setBool(36, false);
  header.set(SettableHeader::controlBlock, 0xA9).set(SettableHeader::controlBlock2, 0xA5);
  header.set(SettableHeader::controlBlockTest, 0xEF).set(SettableHeader::reservedOfVersion2, 0xAB05);
  for (unsigned int i = 0; i < sizeof header.m_Padding; ++i)
    header.m_Padding[i] = static_cast<unsigned char>(7 * i);
  return header;
}

std::string textOf(CFrameMetaData& header) {
  std::vector<char> text(32768, 'x');
  const int length = header.ToString(text.data(), static_cast<unsigned int>(text.size()));
  EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(text.data()));
  return text.data();
}

std::string lineOf(CFrameMetaData& header, const std::string& label) {
  std::istringstream lines(textOf(header));
  for (std::string line; std::getline(lines, line);)
    if (line.compare(0, label.size(), label) == 0) return line.substr(label.size());
  return "no such line";
}

// ---- The texts, to the letter

TEST(MetaDataText, OfVersion1) {
  SettableHeader header = sampleHeader(1);
  EXPECT_EQ(textOf(header), version1);
}

TEST(MetaDataText, OfVersion2) {
  SettableHeader header = sampleHeader(2);
  EXPECT_EQ(textOf(header), version2);
}

TEST(MetaDataText, OfVersion3) {
  SettableHeader header = sampleHeader(3);
  EXPECT_EQ(textOf(header), version3);
}

TEST(MetaDataText, OfVersion4IsVersion3WithoutPaddingAndABlockOfItsOwn) {
  SettableHeader header = sampleHeader(4);
  EXPECT_EQ(textOf(header), textOfVersion4());
}

TEST(MetaDataText, OfAnUnknownVersionIsThatOfVersion4) {
  for (const unsigned int version : {0U, 5U, 7U, 65535U}) {
    SettableHeader header = sampleHeader(version);
    EXPECT_EQ(textOf(header), textOfVersion4(version));
  }
}

TEST(MetaDataText, DoesNotFollowTheLocale) {
  const ScopedLocale german("de_DE.UTF-8");
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  const std::string expected[] = {version1, version2, version3, textOfVersion4()};
  for (unsigned int version = 1; version <= 4; ++version) {
    SettableHeader header = sampleHeader(version);
    EXPECT_EQ(textOf(header), expected[version - 1]);
  }
}

// ---- Single lines

TEST(MetaDataTextLine, OfEachFlagShowsItsOwnKey) {
  using Flags = std::map<std::string, int>;
  const Flags common = {{"DeadPixelCorrection", 21},
                        {"PixelOrderedImage", 67},
                        {"HDRMode", 40},
                        {"LowNoise", 62},
                        {"LowDarkCurrent", 61},
                        {"HorzScanDirInvert", 44},
                        {"VertScanDirInvert", 92},
                        {"NonRowAllignedImage", 65}};
  Flags version2Flags = {{"BackSideIlluminated", 3}, {"GPSLocked", 39},       {"TestUseShiftedAveraging", 86},
                         {"TestIsStackedFrame", 60}, {"TestIsHighFrame", 56}, {"TestIsMergedFrame", 58}};
  version2Flags.insert(common.begin(), common.end());
  Flags version3Flags = {{"CorrelatedMultipleSample", 18}, {"GPSError", 38}, {"GlobalReset", 37}};
  version3Flags.insert(version2Flags.begin(), version2Flags.end());
  const Flags* const flagsOf[] = {&common, &version2Flags, &version3Flags};

  for (unsigned int version = 1; version <= 3; ++version) {
    Flags seen;
    for (const auto& [label, key] : *flagsOf[version - 1]) {
      SettableHeader header;
      header.set(2, version).setBool(key, true);
      // The one line that says TRUE, its label without blanks.
      std::istringstream lines(textOf(header));
      for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find("= TRUE");
        if (equals == line.npos) continue;
        std::string name;
        for (const char c : line.substr(0, equals))
          if (c != ' ') name += c;
        EXPECT_TRUE(seen.emplace(name, key).second) << name;
      }
    }
    EXPECT_EQ(seen, *flagsOf[version - 1]) << "version " << version;
  }
}

TEST(MetaDataTextLine, OfEachReadQuadrantShowsItsBit) {
  for (const unsigned int version : {2U, 3U}) {
    const std::string indent(version == 2 ? 2U : 4U, ' ');
    for (const auto& [name, bit] :
         std::map<std::string, unsigned int>{{"UL", 0x20}, {"UR", 0x10}, {"LL", 8}, {"LR", 4}}) {
      SettableHeader header;
      header.set(2, version).set(73, bit);
      for (const char* other : {"UL", "UR", "LL", "LR"})
        EXPECT_EQ(lineOf(header, indent + "Sensor Read Quadrant " + other + " = "),
                  other == name ? "TRUE" : "FALSE");
    }
  }
}

TEST(MetaDataTextLine, OfTheCaptureTimeSaysErrorWhenItDidNotParse) {
  SettableHeader header = sampleHeader(3);
  header.m_bCaptureTimeValid = false;
  EXPECT_EQ(lineOf(header, "Capture Time   = "), "ERROR: 2024/02/29 01:02:03.004005006");
}

TEST(MetaDataTextLine, OfTheLatitudeShowsTheHemisphere) {
  SettableHeader header = sampleHeader(3);
  header.setBool(32, false).setBool(36, true);
  EXPECT_EQ(lineOf(header, "Latitude=      = "), "48.000000 deg 8.1234 min S");
  EXPECT_EQ(lineOf(header, "Longitude=     = "), "11.000000 deg 34.5670 min E");
}

TEST(MetaDataTextLine, OfTheDutyCycleIsAPercentage) {
  SettableHeader header;
  header.set(2, 3);
  for (const auto& [byte, percent] :
       std::map<unsigned int, std::string>{{0, "0.0"}, {128, "50.2"}, {255, "100.0"}}) {
    header.set(16, byte);
    EXPECT_EQ(lineOf(header, "Cooler Duty Cycle       = "), percent);
  }
}

TEST(MetaDataTextLine, OfALargeUnsignedValueIsPrintedAsSigned) {
  SettableHeader header;
  header.set(2, 3).set(22, 0xFFFFFFFF);
  // 4294967295 periods are 42949.67295 s.
  EXPECT_EQ(lineOf(header, "Exposure Time           = "), "11:55.49.672950, -1 (10usec periods)");
}

TEST(MetaDataTextLine, OfASignedValueReadFromAFitsHeaderKeepsItsSign) {
  CFrameMetaData header;
  header.SetValue(ORVA_META_KEY_METADATA_VERSION, "3");
  header.SetValue(ORVA_META_KEY_ILLUMIN_START_DELAY, "-5");
  EXPECT_EQ(lineOf(header, "Illumin Start Delay        = "), "-5");
}

TEST(MetaDataTextLine, OfATextEndsAtItsFirstZero) {
  SettableHeader header;
  header.set(2, 3).setText(11, std::string("AB\0CD", 5)).setText(75, std::string(24, 's'));
  EXPECT_EQ(lineOf(header, "CameraModel             = "), "AB");
  EXPECT_EQ(lineOf(header, "CameraSerialNumber      = "), std::string(24, 's'));
  header.setText(11, "");
  EXPECT_EQ(lineOf(header, "CameraModel             = "), "");
}

TEST(MetaDataTextLine, OfThePaddingPrintsEveryByteWhole) {
  SettableHeader header;
  header.set(2, 2);
  std::memset(header.m_Padding, 200, sizeof header.m_Padding);
  header.m_Padding[0] = 5;
  std::string expected = "05";
  for (int i = 1; i < 25; ++i)
    expected += ", 200";
  EXPECT_EQ(lineOf(header, "Padding = "), expected);
}

// ---- Buffers

TEST(MetaDataTextBuffer, OfNullFails) {
  for (unsigned int version = 1; version <= 4; ++version) {
    SettableHeader header = sampleHeader(version);
    EXPECT_EQ(header.ToString(static_cast<char*>(nullptr), 100), -1);
    EXPECT_EQ(header.ToString(static_cast<wchar_t*>(nullptr), 100), -1);
  }
  SettableHeader header;
  EXPECT_EQ(header.DoToString1(nullptr, 9), -1);
  EXPECT_EQ(header.DoToString2(nullptr, 9), -1);
  EXPECT_EQ(header.DoToString3(nullptr, 9, true), -1);
  EXPECT_EQ(header.DoToString4(nullptr, 9), -1);
}

TEST(MetaDataTextBuffer, OfAnySizeHoldsTheTextCutWithAClosingZeroAndIsCleared) {
  const std::string expected[] = {version1, version2, version3, textOfVersion4()};
  for (unsigned int version = 1; version <= 4; ++version) {
    SettableHeader header = sampleHeader(version);
    const std::string& whole = expected[version - 1];
    // Every size at the ends, and around what version 4 has of its own.
    const std::size_t block = std::min(whole.find("V4 Image Offset"), whole.size());
    const auto near = [](std::size_t size, std::size_t place) {
      return size < place + 60 && place < size + 60;
    };
    for (std::size_t size = 0; size < whole.size() + 60;
         size += near(size, 0) || near(size, block) || near(size, whole.size()) ? 1 : 37) {
      std::vector<char> text(size + 1, 'x');
      EXPECT_EQ(header.ToString(text.data(), static_cast<unsigned int>(size)),
                static_cast<int>(whole.size()));
      std::string cut = whole.substr(0, size > 0 ? size - 1 : 0);
      cut.resize(size);
      EXPECT_EQ(std::string(text.data(), size), cut);
      EXPECT_EQ(text[size], 'x') << "written behind " << size << " bytes";
    }
  }
}

// ---- Wide form

TEST(MetaDataTextWide, HoldsTheSameText) {
  SettableHeader header = sampleHeader(4);
  const std::string narrow = textOfVersion4();
  std::vector<wchar_t> text(8000, L'x');
  EXPECT_EQ(header.ToString(text.data(), 8000), static_cast<int>(narrow.size()));
  EXPECT_EQ(std::wstring(text.data()), std::wstring(narrow.begin(), narrow.end()));
  EXPECT_EQ(text.back(), L'\0');
}

TEST(MetaDataTextWide, OfTenCharactersHoldsNineAndReturnsTheWholeLength) {
  SettableHeader header = sampleHeader(3);
  wchar_t text[12];
  std::wmemset(text, L'x', 12);
  EXPECT_EQ(header.ToString(text, 10), static_cast<int>(std::strlen(version3)));
  EXPECT_EQ(std::wstring(text), L"MagicNumb");
  EXPECT_EQ(text[10], L'x');
  EXPECT_EQ(header.ToString(text, 1), static_cast<int>(std::strlen(version3)));
  EXPECT_EQ(text[0], L'\0');
  text[0] = L'x';
  EXPECT_EQ(header.ToString(text, 0), static_cast<int>(std::strlen(version3)));
  EXPECT_EQ(text[0], L'x');
}

TEST(MetaDataTextWide, ConvertsAModelOfAnyBytes) {
  for (const char* locale : {"C", "de_DE.UTF-8"}) {
    const ScopedLocale scoped(locale);
    SettableHeader header;
    header.set(2, 3).setText(11, "Caf\xC3\xA9 \xFF!");
    std::vector<wchar_t> text(8000);
    header.ToString(text.data(), 8000);
    const std::wstring wide = text.data();
    // What is UTF-8 is a character; a byte that is not becomes one of its own, and the text goes on.
    EXPECT_NE(wide.find(L"= Caf\u00E9 "), wide.npos) << locale;
    EXPECT_NE(wide.find(L"!\nCameraSerialNumber"), wide.npos) << locale;
  }
}

TEST(MetaDataTextWide, IsLimitedByTheWorkBuffer) {
  SettableHeader header = sampleHeader(3);
  header.setText(75, std::string(40000, 's'));
  std::vector<wchar_t> text(50000, L'x');
  const int length = header.ToString(text.data(), 50000);
  EXPECT_GT(length, 40000);
  EXPECT_EQ(std::wcslen(text.data()), 32767U);
}

// ---- Capture time

TEST(TimeText, IsThirtyBytesWithItsZero) {
  const SettableHeader header = sampleHeader(3);
  char text[31];
  std::memset(text, 'x', sizeof text);
  header.TimeMetaToString2(text, 30);
  EXPECT_STREQ(text, "2024/02/29 01:02:03.004005006");
  EXPECT_EQ(text[30], 'x');
}

TEST(TimeText, IsCutAndNullIsIgnored) {
  const SettableHeader header = sampleHeader(3);
  char text[8] = "xxxxxxx";
  header.TimeMetaToString2(text, 5);
  EXPECT_EQ(std::string(text, 7), std::string("2024\0xx", 7));
  header.TimeMetaToString2(text, 0);
  EXPECT_EQ(text[0], '2');
  header.TimeMetaToString2(nullptr, 5);
}

TEST(TimeText, OfNonsenseValuesStaysWithinItsBuffer) {
  SettableHeader header;
  header.set(12, 0xFFFFFFFF).setDouble(13, 1e300).setDouble(14, 1e300);
  header.m_bCaptureTimeValid = false;
  char text[128];
  header.TimeMetaToString2(text, sizeof text);
  EXPECT_EQ(std::string(text).substr(0, 21), "ERROR: 65535/255/255 ");
}

}  // namespace
