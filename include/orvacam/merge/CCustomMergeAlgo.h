#ifndef ORVACAM_MERGE_CCUSTOMMERGEALGO_H
#define ORVACAM_MERGE_CCUSTOMMERGEALGO_H

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/statistics/CFrameStatistics.h>
#include <orvacam/types/export.h>
#include <orvacam/types/image_format.h>
#include <orvacam/types/merge_types.h>
#include <orvacam/types/plane_stats.h>

class CLog;

/// The base of the algorithms that make one 16-bit plane of a low-gain and a high-gain plane. Keeps what
/// every merge needs: the metadata of the frame in hand, the merge enables, the statistics of the merged
/// plane, and bias frames that frames subtract from their planes before merging.
///
/// Planes hold the binned frame, reference rows and pixels included. One object is used by one thread at a
/// time.
class ORVACAM_API CCustomMergeAlgo {
 public:
  virtual ~CCustomMergeAlgo();

  /// Bytes of image file header ahead of (leading) and of fill behind (trailing) the merged pixels of a
  /// format.
  virtual void GetMergeHeaderSize(ORVA_IMAGE_FORMAT eFormat, unsigned long ulNumPixels,
                                  unsigned int uiBitsPerPixel, unsigned int& uiLeading,
                                  unsigned int& uiTrailing);
  /// Merges two planes of ulNumPixels pixels into pMerged, which has room for the header of the image format
  /// of the merge enables, then the pixels, then the fill. All stay the caller's.
  virtual int MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                          unsigned long ulNumPixels) = 0;
  /// The sensor row at which the image in hand starts; ignored here.
  virtual void SetStartRowOffset(unsigned int uiRow);

  /// The metadata of the frame in hand, copied; may throw std::bad_alloc. Needed by merges with statistics or
  /// an image file header. The statistics of the frame before are forgotten.
  void SetMetaData(const CFrameMetaData& metaData) {
    m_MetaData = metaData;
    m_MergedStatistics.Reset();
  }
  /// That copy, which stays this object's. The camera's own merge marks it as 16 bits a pixel, not HDR.
  CFrameMetaData& GetMetaData() { return m_MetaData; }
  /// Whether the next merges gather statistics of the merged plane's image pixels. Statistics describe the
  /// last merge that was asked for alone: none when it failed.
  void EnableStatistics(bool bEnable) { m_bMergedStatistics = bEnable; }
  /// Copies those statistics and, where the record has a histogram, min(its capacity, 65535) of the counts.
  void GetMergedStats(image_plane_stats_t& stats) const;

  /// Copy the whole record out and in; all zero at first.
  void GetMergeEnables(hw_merge_enables_t& enables) const;
  void SetMergeEnables(const hw_merge_enables_t& enables);

  /// Sets the bias frames of both planes (either may be null, both null clears them), which stay the caller's
  /// and must live as long as they are set. -1 when the size is not the binned frame size of the metadata;
  /// none stay set then.
  int SetBiasFrames(unsigned int uiWidth, unsigned int uiHeight, const unsigned short* pLow,
                    const unsigned short* pHigh);
  /// Subtracts the bias frame of a channel from a plane, stopping at 0, and gathers the plane's statistics
  /// anew. Nothing when the plane or the bias frame is null; rows that the bias frame's pixels do not cover
  /// stay as they are.
  void ApplyBiasFrame(unsigned short* pPlane, unsigned int uiWidth, unsigned int uiHeight,
                      CFrameStatistics& statistics, bool bHigh);

 protected:
  CCustomMergeAlgo();
  CCustomMergeAlgo(const CCustomMergeAlgo& other) = default;
  CCustomMergeAlgo& operator=(const CCustomMergeAlgo& other) = default;

  CFrameMetaData m_MetaData;
  bool m_bMergedStatistics = false;
  CFrameStatistics m_MergedStatistics;
  hw_merge_enables_t m_MergeEnables{};
  bool m_bByteSwapped = false;  ///< the planes' pixels are in the other byte order
  unsigned int m_uiBiasWidth = 0;
  unsigned int m_uiBiasHeight = 0;
  const unsigned short* m_pBiasLow = nullptr;
  const unsigned short* m_pBiasHigh = nullptr;
  CLog* m_pLog;
};

#endif  // ORVACAM_MERGE_CCUSTOMMERGEALGO_H
