#ifndef ORVACAM_SIMULATOR_HEADER_H
#define ORVACAM_SIMULATOR_HEADER_H

#include <string>
#include <vector>

namespace orvacam::simulator {

/// A date and time of day, as a camera stamps it on a frame.
struct CaptureTime {
  unsigned int year = 2024, month = 5, day = 17, hour = 21, minute = 4, second = 33, nanosecond = 123456700;
};

/// Sensor families, by how they send their pixels.
enum class Sensor { Gsense400, Gsense2020, Gsense4040, Gsense6060, Ccd, Other };

/// The sensor behind a model text.
Sensor sensorOf(const std::string& model);

/// The bytes of a version's header, without its other-type block.
constexpr unsigned int headerSize(unsigned int version) {
  return version == 1 ? 156 : version == 2 ? 246 : 384;
}

/// What a camera says in a frame's header, in plain numbers. The defaults are those of a small frame without
/// reference pixels or rows; every field that a header version lacks is simply not written.
struct HeaderFields {
  std::string model = "VESTRA VS400";
  std::string serial = "VS-0001";
  unsigned int firmware = 0x01020304;
  int temperatureSetPoint = -200;  // tenths of a degree
  unsigned int coolerDutyCycle = 128;
  unsigned int sensorBits = 12;
  unsigned int dataBits = 12;
  unsigned int dataZeroPoint = 0;
  unsigned int exposure = 100000;  // 10 us periods
  int coolerTemperature = -198;
  int chipTemperature = -195;
  unsigned int globalGain = 1;
  unsigned int lowGain = 0;  // device gain indices
  unsigned int highGain = 0;
  unsigned int startColumn = 0, startRow = 0;
  unsigned int width = 64, height = 48;  // of the image
  unsigned int preRefPixels = 0, postRefPixels = 0;
  unsigned int preRefRows = 0, postRefRows = 0;
  unsigned int horizontalBinning = 1, verticalBinning = 1;
  bool deadPixelCorrection = false, pixelOrdered = true, hdr = false, lowNoise = false,
       lowDarkCurrent = false;
  bool horizontalInvert = false, verticalInvert = false, nonRowAligned = false;
  unsigned int blackLevel = 100, blackLevelSun = 10, blackLevelHigh = 110, blackLevelSunHigh = 11;
  int shutterOpenDelay = -300, shutterCloseDelay = 250, illuminationStartDelay = 0,
      illuminationStopDelay = -1;
  unsigned int trackingStartRow = 0, trackingStartColumn = 0, trackingStopRow = 0, trackingStopColumn = 0;
  unsigned int trackingFramesPerImage = 0;
  unsigned int frameNumber = 7;
  unsigned int startingExposureRow = 0;
  unsigned int dataChannels = 1;
  bool backSideIlluminated = false, gpsLocked = true, globalReset = false, gpsError = false;
  unsigned int quadrants = 0;  // amplifier bits of 0x3C
  int baseTemperature = 215, fpgaTemperature = 402;
  bool shiftedAveraging = false, stackedFrame = false, highFrame = false, mergedFrame = false;
  unsigned int testLowGain = 100, testHighGain = 2400;
  CaptureTime time;
  unsigned int latitude = 0x80000000u + 28800000u;  // 48 degrees north, in 1/600000 degree
  unsigned int longitude = 9600000u;                // 16 degrees west
  std::string appInfo = "app 1.0";
  std::string libInfo = "lib 1.0";
  unsigned int horizontalPixelSize = 110, verticalPixelSize = 110;  // tenths of a micrometre
  int mergeGainRatio = 6297, mergeLineOffset = 0, highGainAduPerElectron = 132;
  bool correlatedMultipleSampling = false, extraFlagBit7 = false;
  unsigned int imageOffset = headerSize(4), metaInfo = 1, pixelFormat = 2, reserved = 0;  // version 4
  unsigned int otherType = 0;
  std::vector<unsigned char> otherBlock;

  unsigned int frameWidth() const { return preRefPixels + width + postRefPixels; }
  unsigned int frameHeight() const { return preRefRows + height + postRefRows; }
};

/// The header as a camera of this version (1 to 4) sends it, and the other-type block.
std::vector<unsigned char> writeHeader(const HeaderFields& fields, unsigned int version);

/// The same frame as a camera of this version takes it. Versions 1 and 2 carry neither amplifiers nor the
/// sampling mode, and their readers take the reference pixels of some sensors for granted.
HeaderFields asVersion(const HeaderFields& fields, unsigned int version);

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_HEADER_H
