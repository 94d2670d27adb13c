#ifndef ORVACAM_TYPES_GAIN_TYPES_H
#define ORVACAM_TYPES_GAIN_TYPES_H

/// \file
/// Records of the gain tables and of the camera's stored merge calibration.

/// Selects the channel that a gain table belongs to. Every operation rejects other values.
enum ORVAGAINTABLE : unsigned int { ORVA_GAIN_TABLE_LOW_CHANNEL = 0, ORVA_GAIN_TABLE_HIGH_CHANNEL = 1 };

/// One gain setting of a sensor.
struct gain_value_t {
  unsigned int uiValue;        ///< gain multiplied by 1000 (1000 = unity gain)
  unsigned int uiDeviceIndex;  ///< what the camera's gain register takes for this setting
};

/// One entry of an electrons-per-count ("DNE") table.
struct merge_gain_t {
  double dValue;  ///< electrons per count; the plain gain before the merge settings are initialized
  unsigned int uiDeviceIndex;  ///< what the camera's gain register takes for this setting
};

/// What a caller knows of the camera.
struct gain_type_info_t {
  unsigned int uiDeviceType;  ///< an ORVADEVICETYPE
  bool bBSI;                  ///< back-side-illuminated sensor; only consulted for the GSENSE2020
};

/// One calibrated electrons-per-count value.
struct electrons_per_count_t {
  unsigned int uiGain;        ///< device gain index
  double dElectronsPerCount;  ///< electrons per ADU count at that gain
};

/// How to scale and offset the low-gain image for one pair of gain settings. The initializers are the values
/// that a record has where the camera's calibration does not say otherwise.
struct merge_line_offsets_t {
  double dTemperature[3] = {-10.0, 5.0, 20.0};  ///< interpolation points of the line offset, in degrees
  unsigned int uiMappingThreshold =
      3800;  ///< high-gain level up to which the mapping array copies high-gain values
  unsigned int uiMergeThreshold1 = 15752;   ///< first merge threshold in ADU
  unsigned int uiMergeThreshold2 = 15670;   ///< second merge threshold in ADU
  unsigned int uiHighGainSetting = 0;       ///< high-gain setting that the record belongs to
  unsigned int uiLowGainSetting = 0;        ///< low-gain setting that the record belongs to
  double dGainRatio = 40.0;                 ///< ratio of high to low gain for this pair
  int iLineOffset[3] = {4800, 5000, 5200};  ///< line offset at each of the three temperatures
};

#endif  // ORVACAM_TYPES_GAIN_TYPES_H
