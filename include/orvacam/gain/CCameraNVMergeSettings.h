#ifndef ORVACAM_GAIN_CCAMERANVMERGESETTINGS_H
#define ORVACAM_GAIN_CCAMERANVMERGESETTINGS_H

#include <orvacam/types/export.h>
#include <orvacam/types/gain_types.h>

#include <memory>
#include <vector>

class CLog;

/// The merge calibration that a camera keeps in its non-volatile memory: electrons per count of each gain,
/// and how to scale and offset the low-gain image for each pair of gains. The caller reads the block from the
/// camera and hands it to Initialize; a null pointer to such an object everywhere means a camera without
/// stored settings.
///
/// The block starts with the bytes "Meta", its length (9 to 1024) and its version (1 to 4), all integers
/// big-endian. Each Initialize discards everything and parses afresh; afterwards the object is only read,
/// also by several threads.
class ORVACAM_API CCameraNVMergeSettings {
 public:
  CCameraNVMergeSettings();
  CCameraNVMergeSettings(const CCameraNVMergeSettings&) = delete;
  CCameraNVMergeSettings& operator=(const CCameraNVMergeSettings&) = delete;
  virtual ~CCameraNVMergeSettings();

  /// Parses a block of uiLength bytes, which stays the caller's. Always 0: whether settings were found shows
  /// in the counts and lists, and in the log. A truncated block keeps what was parsed before the cut.
  int Initialize(const unsigned char* pBuffer, unsigned int uiLength);

  /// The first value listed for a gain setting; false, with dValue left alone, when there is none.
  bool GetNVElectronsPerCount(unsigned int uiGain, bool bHighGain, double& dValue) const;

  /// High to low gain: the ratio to go by without gain tables, and the one for a pair of gains that the block
  /// does not describe. Both 40.0 without a block.
  double GetGainRatio() const { return m_dGainRatio; }
  double GetDefaultGainRatio() const { return m_dDefaultGainRatio; }
  unsigned int GetNumLineOffsets() const { return m_pLineOffsets != nullptr ? m_uiNumLineOffsets : 0; }
  /// The merge-line records by pair of gains, null when there are none, and those of the extra list, the
  /// first of which stands in for missing pairs. They stay the object's.
  const merge_line_offsets_t* GetLineOffsets() const { return m_pLineOffsets.get(); }
  const std::vector<merge_line_offsets_t>& GetExtraLineOffsets() const { return m_vExtraLineOffsets; }

  /// Parse the body of a block of one version: uiLength bytes behind the header. 0, or -1 for a null or
  /// truncated body.
  int ParseSettings1(const unsigned char* pBody, unsigned int uiLength);
  int ParseSettings2(const unsigned char* pBody, unsigned int uiLength);
  int ParseSettings3(const unsigned char* pBody, unsigned int uiLength);
  int ParseSettings4(const unsigned char* pBody, unsigned int uiLength);

 protected:
  void DoInitialize();
  int DoParseSettings(const unsigned char* pBuffer, unsigned int uiLength);
  bool DoGetNVElectronsPerCount(unsigned int uiGain, const std::vector<electrons_per_count_t>& list,
                                double& dValue) const;

  unsigned long m_ulReserved[2];
  unsigned int m_uiMagic;
  unsigned int m_uiLength;
  unsigned int m_uiVersion;
  double m_dRatio1;  ///< kept as parsed; nothing here computes with the first two
  double m_dRatio2;
  double m_dGainRatio;
  double m_dDefaultGainRatio;  ///< for a gain pair that the block does not describe
  unsigned int m_uiNumHighEPC;
  unsigned int m_uiNumLowEPC;
  unsigned int m_uiNumLineOffsets;
  unsigned int m_uiNumExtraLineOffsets;
  std::unique_ptr<merge_line_offsets_t[]> m_pLineOffsets;  ///< m_uiNumLineOffsets records
  std::vector<merge_line_offsets_t> m_vExtraLineOffsets;
  std::vector<electrons_per_count_t> m_vHighEPC;
  std::vector<electrons_per_count_t> m_vLowEPC;
  CLog* m_pLog;
};

#endif  // ORVACAM_GAIN_CCAMERANVMERGESETTINGS_H
