#ifndef ORVACAM_TESTS_GAIN_CALIBRATION_BLOCK_H
#define ORVACAM_TESTS_GAIN_CALIBRATION_BLOCK_H

#include <orvacam/types/gain_types.h>

#include <cmath>
#include <vector>

/// Writes a camera's calibration block as the camera does, field by field.
class CalibrationBlock {
 public:
  using Bytes = std::vector<unsigned char>;

  void put(unsigned int bytes, long value) {
    for (unsigned int i = bytes; i > 0; --i)
      body.push_back(static_cast<unsigned char>(value >> (8 * (i - 1))));
  }
  void ratios(double r1, double r2, double gain, double fallback) {
    for (const double r : {r1, r2, gain, fallback})
      put(4, std::lround(r * 1000));
  }
  void counts(unsigned int high, unsigned int low, unsigned int records, unsigned int extra) {
    for (const unsigned int count : {high, low, records, extra})
      put(2, count);
  }
  void electrons(unsigned int gain, double value) {
    put(2, gain);
    put(4, std::lround(value * 10000));
  }
  /// A record of a version; of version 2, extra records carry a gain ratio.
  void record(unsigned int version, bool extra, const merge_line_offsets_t& r) {
    if (version == 4) put(2, r.uiMappingThreshold);
    if (version >= 3) put(2, r.uiMergeThreshold1), put(2, r.uiMergeThreshold2);
    put(2, r.uiHighGainSetting);
    put(2, r.uiLowGainSetting);
    if (version >= 3 || (version == 2 && extra)) put(4, std::lround(r.dGainRatio * 1000));
    for (int i = 0; i < 3; ++i)
      put(2, std::lround(r.dTemperature[i] * 100)), put(2, r.iLineOffset[i]);
  }
  Bytes block(unsigned int version, int length = -1, unsigned int magic = 0x4D657461) const {
    CalibrationBlock whole;
    whole.put(4, magic);
    whole.put(2, length < 0 ? static_cast<long>(body.size()) + 8 : length);
    whole.put(2, version);
    whole.body.insert(whole.body.end(), body.begin(), body.end());
    return whole.body;
  }

  /// A block of version 2 with one value for each channel.
  static Bytes ofGain(unsigned int gain, double high, double low) {
    CalibrationBlock b;
    b.ratios(1, 1, 1, 1);
    b.counts(1, 1, 0, 0);
    b.electrons(gain, high);
    b.electrons(gain, low);
    return b.block(2);
  }

  Bytes body;
};

inline merge_line_offsets_t sampleRecord(unsigned int low, unsigned int high) {
  merge_line_offsets_t record;
  record.uiLowGainSetting = low;
  record.uiHighGainSetting = high;
  record.uiMappingThreshold = 1234;
  record.uiMergeThreshold1 = 111;
  record.uiMergeThreshold2 = 222;
  record.dGainRatio = 12.5 + low;
  record.dTemperature[0] = -20.25;
  record.dTemperature[1] = 0.5;
  record.dTemperature[2] = 33.0;
  record.iLineOffset[0] = -100;
  record.iLineOffset[1] = 200 + static_cast<int>(high);
  record.iLineOffset[2] = 300;
  return record;
}

#endif  // ORVACAM_TESTS_GAIN_CALIBRATION_BLOCK_H
