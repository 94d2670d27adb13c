#include "Header.h"

#include <orvacam.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace orvacam::simulator {

namespace {

/// Appends fields one behind the other, as the camera's firmware does.
class Bytes {
 public:
  Bytes& number(unsigned int bytes, unsigned long value) {
    for (unsigned int i = bytes; i > 0; --i)
      m_bytes.push_back(static_cast<unsigned char>(value >> (8 * (i - 1))));
    return *this;
  }
  Bytes& integer(unsigned int bytes, int value) {
    return number(bytes, static_cast<unsigned long>(long{value}));
  }
  Bytes& signMagnitude(unsigned int bytes, int value) {
    const auto magnitude = static_cast<unsigned long>(std::labs(value));
    return number(bytes, magnitude | (value < 0 ? 1UL << (8 * bytes - 1) : 0));
  }
  Bytes& text(std::size_t bytes, const std::string& value) {
    const std::size_t count = std::min(bytes, value.size());
    m_bytes.insert(m_bytes.end(), value.begin(), value.begin() + static_cast<std::ptrdiff_t>(count));
    m_bytes.insert(m_bytes.end(), bytes - count, 0);
    return *this;
  }
  Bytes& flags(std::initializer_list<bool> fromTheTop) {
    unsigned int byte = 0;
    for (const bool flag : fromTheTop)
      byte = byte << 1 | (flag ? 1 : 0);
    return number(1, byte << (8 - fromTheTop.size()));
  }
  std::vector<unsigned char>& all() { return m_bytes; }

 private:
  std::vector<unsigned char> m_bytes;
};

std::string timeText(const CaptureTime& t) {
  char text[64];
  std::snprintf(text, sizeof text, "%04u/%02u/%02u %02u:%02u:%02u.%09u", t.year, t.month, t.day, t.hour,
                t.minute, t.second, t.nanosecond);
  return text;
}

void putCommonBlock(Bytes& out, const HeaderFields& f, unsigned int version) {
  out.number(1, f.sensorBits).number(1, ((f.dataBits - 1) & 15) | f.dataZeroPoint << 4);
  out.number(2, f.width).number(2, f.height).number(4, f.exposure);
  out.integer(2, f.coolerTemperature).signMagnitude(2, f.chipTemperature);
  out.number(1, f.globalGain).number(1, f.lowGain).number(1, f.highGain);
  out.number(1, f.postRefPixels).number(1, f.preRefPixels);
  out.flags({f.deadPixelCorrection, f.pixelOrdered, f.hdr, f.lowNoise, version > 2 && f.lowDarkCurrent,
             f.horizontalInvert, !f.verticalInvert, f.nonRowAligned});
  if (version > 2)
    out.number(2, f.horizontalBinning);
  else  // the flag shares the byte with the binning factor
    out.number(1, f.horizontalBinning | (f.lowDarkCurrent ? 8u : 0u)).number(1, f.verticalBinning);
  out.number(3, f.blackLevel).number(2, f.blackLevelSun);
  out.signMagnitude(2, f.shutterOpenDelay).signMagnitude(2, f.shutterCloseDelay);
  out.signMagnitude(2, f.illuminationStartDelay).signMagnitude(2, f.illuminationStopDelay);
  out.number(2, f.trackingStartRow).number(2, f.trackingStartColumn);
  out.number(2, f.trackingStopRow).number(2, f.trackingStopColumn);
  out.number(2, f.startRow).number(2, f.startColumn);
  out.number(2, f.startRow + f.height - 1).number(2, f.startColumn + f.width - 1);
  out.number(2, f.trackingFramesPerImage).number(2, f.frameNumber).number(2, f.startingExposureRow);
  out.number(3, f.postRefRows << 12 | f.preRefRows).number(1, f.dataChannels);
}

void putVersion1(Bytes& out, const HeaderFields& f) {
  const CaptureTime& t = f.time;
  out.number(2, (t.year - 2000) << 9 | t.month << 5 | t.day);
  out.number(5, (t.hour * 3600UL + t.minute * 60UL + t.second) * 10000000UL + t.nanosecond / 100);
  putCommonBlock(out, f, 1);
  out.text(12, "").number(4, f.firmware);
}

void putLaterVersions(Bytes& out, const HeaderFields& f, unsigned int version) {
  out.number(4, f.firmware).integer(2, f.temperatureSetPoint).number(1, f.coolerDutyCycle);
  putCommonBlock(out, f, version);
  if (version == 2)
    out.flags({f.backSideIlluminated, f.gpsLocked});
  else
    out.number(1, (f.backSideIlluminated ? 0x80u : 0u) | (f.gpsLocked ? 0x40u : 0u) | (f.quadrants & 0x3Cu) |
                      (f.globalReset ? 0x02u : 0u) | (f.gpsError ? 0x01u : 0u));
  out.integer(2, f.baseTemperature).integer(2, f.fpgaTemperature);
  out.number(2, version == 2 ? 0 : f.verticalBinning);
  out.flags({!f.shiftedAveraging, !f.stackedFrame, !f.highFrame, !f.mergedFrame, true, true, true, true});
  out.number(2, f.testLowGain).number(2, f.testHighGain);
  out.text(30, timeText(f.time)).number(4, f.latitude).number(4, f.longitude);
  out.text(12, f.appInfo).text(12, f.libInfo);
  out.number(1, f.horizontalPixelSize).number(1, f.verticalPixelSize);
  out.number(3, f.blackLevelHigh).number(2, f.blackLevelSunHigh);
  if (version == 2) {
    out.text(25, "");
    return;
  }
  out.integer(4, f.mergeGainRatio).integer(2, f.mergeLineOffset).integer(4, f.highGainAduPerElectron);
  out.flags({f.extraFlagBit7, f.correlatedMultipleSampling});
  if (version == 3) {
    out.text(152, "");
    return;
  }
  out.text(4, "")
      .number(4, f.imageOffset)
      .number(1, f.metaInfo)
      .number(1, f.pixelFormat)
      .number(1, f.reserved);
  out.number(1, f.otherType).number(4, f.otherBlock.size()).number(4, 0).text(132, "");
}

}  // namespace

std::vector<unsigned char> writeHeader(const HeaderFields& fields, unsigned int version) {
  const std::size_t block = version == 4 ? fields.otherBlock.size() : 0;
  Bytes out;
  out.text(4, "Meta")
      .number(2, headerSize(version) + block)
      .number(2, version)
      .text(40, fields.model)
      .text(24, fields.serial);
  if (version == 1)
    putVersion1(out, fields);
  else
    putLaterVersions(out, fields, version);
  if (block > 0) out.all().insert(out.all().end(), fields.otherBlock.begin(), fields.otherBlock.end());
  return std::move(out.all());
}

Sensor sensorOf(const std::string& model) {
  CFrameMetaData header;
  header.SetModelName(model.data(), static_cast<unsigned int>(model.size()));
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  header.GetDeviceType(device);
  switch (device) {
    case ORVA_DEVICE_GSENSE400:
      return Sensor::Gsense400;
    case ORVA_DEVICE_GSENSE2020:
      return Sensor::Gsense2020;
    case ORVA_DEVICE_GSENSE4040:
      return Sensor::Gsense4040;
    case ORVA_DEVICE_GSENSE6060:
      return Sensor::Gsense6060;
    case ORVA_DEVICE_ARGENT_23042:
    case ORVA_DEVICE_ARGENT_23084:
    case ORVA_DEVICE_ARGENT_4320:
      return Sensor::Ccd;
    default:
      return Sensor::Other;
  }
}

HeaderFields asVersion(const HeaderFields& fields, unsigned int version) {
  HeaderFields f = fields;
  if (version > 2) return f;
  f.quadrants = 0;
  f.correlatedMultipleSampling = false;
  CFrameMetaData reader;
  reader.SetModelName(f.model.data(), static_cast<unsigned int>(f.model.size()));
  reader.SetValue(ORVA_META_KEY_METADATA_VERSION, std::to_string(version));
  reader.SetValue(ORVA_META_KEY_PRE_ROW_REF_PIXELS, std::to_string(f.preRefPixels));
  reader.SetValue(ORVA_META_KEY_POST_ROW_REF_PIXELS, std::to_string(f.postRefPixels));
  reader.FixRefPixels();
  f.preRefPixels = reader.Value(ORVA_META_KEY_PRE_ROW_REF_PIXELS).GetValueUint();
  f.postRefPixels = reader.Value(ORVA_META_KEY_POST_ROW_REF_PIXELS).GetValueUint();
  return f;
}

}  // namespace orvacam::simulator
