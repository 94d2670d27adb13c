#ifndef ORVACAM_GAIN_CMERGESETTINGS_H
#define ORVACAM_GAIN_CMERGESETTINGS_H

#include <orvacam/gain/CMergeMappingArray.h>
#include <orvacam/types/export.h>
#include <orvacam/types/gain_types.h>

#include <memory>

class CCameraNVMergeSettings;
class IDeviceGainTables;

/// How the two gains of a camera are merged: one merge-line record for each pair of low-gain and high-gain
/// table entries, from the sensor's gain tables and the camera's stored settings, and the mapping array of
/// the pair in use.
///
/// Gain settings are device indices. An object is used by one thread at a time.
class ORVACAM_API CMergeSettings {
 public:
  CMergeSettings();
  CMergeSettings(const CMergeSettings&) = delete;
  CMergeSettings& operator=(const CMergeSettings&) = delete;
  ~CMergeSettings();

  /// Builds the records of a camera. pNV, its stored settings, may be null and is not kept. Always 0: sensors
  /// without electrons-per-count tables have no records.
  int Initialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNV);

  /// Low-gain over high-gain electrons per count; the stored settings' base ratio (40.0) before Initialize.
  double GetGainRatio(unsigned int uiLow, unsigned int uiHigh) const;
  /// The record of a pair, which stays the object's. Needs records (HasGainOffsetPairs); a default record
  /// without. Both device indices are looked up in the low-gain table.
  merge_line_offsets_t& GetGainOffsetPair(unsigned int uiLow, unsigned int uiHigh);
  /// That record's gain ratio.
  double GetGainOffsetPairGainRatio(unsigned int uiLow, unsigned int uiHigh);
  /// Whether the sensor's gain tables are there: after Initialize, unless memory ran out.
  bool HasGainTables() const { return m_pGainTables != nullptr; }
  /// Whether there are records, and for how many gains of either channel.
  bool HasGainOffsetPairs() const { return m_ppGainOffsetPairs != nullptr; }
  unsigned int GetNumLowGains() const { return m_uiNumLowGains; }
  unsigned int GetNumHighGains() const { return m_uiNumHighGains; }

  /// Gain ratio, line offset at a temperature (degrees) and mapping threshold of a pair. The offset runs
  /// linearly between the record's three points and on beyond them. 0.
  int CalculateMergeParams(unsigned int uiLow, unsigned int uiHigh, double dTemperature, double& dGainRatio,
                           int& iLineOffset, unsigned int& uiThreshold);
  /// Electrons per count of the high-gain setting; 1.0 without gain tables.
  double GetADUValue(unsigned int uiHigh) const;
  /// The mapping array for pixels of uiBits bits, rebuilt for each call; it stays the object's. Null without
  /// records, without memory, or for more than 14 bits (2^28 entries, 512 MiB).
  CMergeMappingArray* GenerateMergeMappingArrays(unsigned int uiBits, unsigned int uiLow, unsigned int uiHigh,
                                                 double dTemperature);

  /// Index of the first record of a pair of gain settings; -1 when there is none.
  static int FindCameraMergeLineOffsetIndex(const merge_line_offsets_t* pRecords, unsigned int uiCount,
                                            unsigned int uiLowDevice, unsigned int uiHighDevice);

  /// Makes the records, each with its defaults; records of exactly this many gains are kept as they are. 0,
  /// or -1 without memory.
  int AllocateGainOffsetPairs(unsigned int uiLowGains, unsigned int uiHighGains);
  /// Frees the records.
  void FreeGainOffsetPairs();
  /// Frees the records and the gain tables.
  void FreeAll();

 protected:
  void DoInitialize();

  double m_dADUScale;
  double m_dGainRatio;
  merge_line_offsets_t m_DefaultLineOffsets;
  /// [low-gain table index][high-gain table index]
  std::unique_ptr<std::unique_ptr<merge_line_offsets_t[]>[]> m_ppGainOffsetPairs;
  unsigned int m_uiNumLowGains;
  unsigned int m_uiNumHighGains;
  CMergeMappingArray m_MappingArray;
  std::unique_ptr<IDeviceGainTables> m_pGainTables;
};

#endif  // ORVACAM_GAIN_CMERGESETTINGS_H
