#ifndef ORVACAM_MERGE_CMERGEALGOLEGACY_H
#define ORVACAM_MERGE_CMERGEALGOLEGACY_H

#include <orvacam/gain/CMergeSettings.h>
#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/types/export.h>

class CMergeMappingArray;

/// The table-driven merge: looks every pixel's merged value up in the mapping array of the frame's gains, bit
/// depth and temperature, by its high-gain and low-gain value. Values outside the array merge to 0.
/// One object is used by one thread at a time, as are settings that it was given. It is about 260 KiB large.
class ORVACAM_API CMergeAlgoLegacy : public CCustomMergeAlgo {
 public:
  CMergeAlgoLegacy();
  CMergeAlgoLegacy(const CMergeAlgoLegacy&) = delete;
  CMergeAlgoLegacy& operator=(const CMergeAlgoLegacy&) = delete;
  ~CMergeAlgoLegacy() override;

  /// 0, or -1 for a null plane, settings that give no mapping array, or without memory for the header. For
  /// the TIFF format the pixels follow a TIFF header; for every other format they start at pMerged.
  int MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                  unsigned long ulNumPixels) override;
  /// The same merge by regions of the metadata's frame; statistics cover the image pixels, in frame
  /// coordinates.
  void DoMergeWithStats(const CMergeMappingArray* pMap, unsigned short* pLow, unsigned short* pHigh,
                        unsigned short* pMerged, unsigned long ulNumPixels);

  /// Settings to use in place of the embedded ones; they stay the caller's and must outlive their use. Null
  /// goes back.
  void SetMergeSettings(CMergeSettings* pMergeSettings) { m_pMergeSettings = pMergeSettings; }
  /// The settings in use.
  CMergeSettings* GetMergeSettings() {
    return m_pMergeSettings != nullptr ? m_pMergeSettings : &m_MergeSettings;
  }

 protected:
  CMergeSettings* m_pMergeSettings;
  CMergeSettings m_MergeSettings;
};

#endif  // ORVACAM_MERGE_CMERGEALGOLEGACY_H
