#ifndef ORVACAM_FACADE_CALGO_H
#define ORVACAM_FACADE_CALGO_H

#include <orvacam/gain/CMergeSettings.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/merge/CMergeAlgoLegacy.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/conv_info.h>
#include <orvacam/types/export.h>
#include <orvacam/types/gain_types.h>
#include <orvacam/types/merge_types.h>
#include <orvacam/types/plane_stats.h>
#include <orvacam/types/unpacked_images.h>

#include <cstdio>
#include <memory>
#include <string>

class CCameraNVMergeSettings;
class CLog;
class IFrame;

namespace orvacam {
struct ConversionMemory;
}

/// The object that callers hold: turns one raw camera frame, in memory or in a file, into up to three 16-bit
/// planes (low gain, high gain, merged), each with its processed metadata and statistics, or into image
/// files.
///
/// Construct it, Initialize it once, load correction frames and set thresholds where wanted; then merge any
/// number of frames. No frame's state survives a call; settings, correction frames and thresholds do. Buffers
/// are the caller's (see unpacked_images_t).
///
/// Statuses: 0 or more is success. The library's own failures are -1 (null input, a file that cannot be
/// opened or is no regular file, a header or frame that does not parse or is cut off, a buffer that is too
/// small, no memory); a failing part's status is passed on. One object is used by one thread at a time;
/// several threads may each have their own. It is about 0.5 MiB large: hold it on the heap.
class ORVACAM_API CAlgo {
 public:
  CAlgo();
  CAlgo(const CAlgo&) = delete;
  CAlgo& operator=(const CAlgo&) = delete;
  virtual ~CAlgo();

  /// Takes the camera's type and its stored merge settings (may be null; not kept).
  int Initialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNVMergeSettings);
  /// Does nothing; 0.
  int DeInitialize();

  /// Unpacks and merges a raw frame of ulLength bytes in memory, which stays the caller's; the sign bits of a
  /// few header fields are cleared in it. Null images is success without work. Statistics may be null; where
  /// they are asked for they are delivered also after a failed merge. With bMetaDataRequest, each plane's
  /// processed metadata is delivered.
  int MergeImage(unsigned char* pFrame, unsigned long ulLength, unpacked_images_t* pImages,
                 unpacked_stats_t* pStats);

  /// The same for a raw frame file, with reference files (DSNU, PRNU; either may be null) in place of the
  /// frames set before. Processed metadata is delivered into every metadata buffer that is not null.
  int MergeFile(const wchar_t* pFileName, unpacked_images_t* pImages, unpacked_stats_t* pStats,
                const wchar_t* pDSNUFileName, const wchar_t* pPRNUFileName);

  /// Converts a raw frame file to FITS or TIFF files named after the destination: "out/frame.raw" becomes
  /// "out/frame_LOW.fit", "_HIGH" and "_MERGED", or "out/frame.fit" for a frame of one plane. Other formats
  /// create an empty destination and copy nothing. All planes are tried; the last one's status is returned.
  /// The memory for a file and its planes is kept for the next one of the same size, until the object goes.
  /// Throws std::out_of_range when the destination holds no dot, and nothing else.
  int ConvertFile(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination);
  /// What ConvertFile names its files: the path up to its last dot, then suffix and extension, each unless it
  /// is null. Throws std::out_of_range for a path without a dot, and may throw std::bad_alloc.
  std::string MakeProcessedFileName(const wchar_t* pPath, const char* pSuffix, const char* pExtension);

  /// Makes the frame object of a frame, which the caller deletes; null without metadata or memory. The
  /// frame's own initialization may have failed (a stream that cannot be read): its operations then say so.
  /// The metadata is copied; the buffer must outlive the frame, the stream only this call.
  IFrame* InitFrame(CFrameMetaData* pMetaData, unsigned char* pFrame, unsigned long ulLength,
                    unpacked_images_t* pImages);
  IFrame* InitFrame(CFrameMetaData* pMetaData, std::FILE* pStream, unpacked_images_t* pImages);

  /// Copies the statistics of the planes asked for; makes histograms where their pointers are null.
  void GetStats(IFrame* pFrame, unpacked_stats_t* pStats);

  /// Free and null the six buffers; the three histograms, whose capacities become 0.
  void FreeFramePointers(unpacked_images_t* pImages);
  void FreeStatsPointers(unpacked_stats_t* pStats);

  /// Loads the caller's correction frames, each that is not null, or with bMakeIdentity goes back to none (0
  /// in any case). The record and its planes stay the caller's. The height of the reference frames stays as
  /// it was.
  int SetHWMergeReferenceFrames(ref_frames_t* pFrames, bool bMakeIdentity);
  void GetHWMergeEnables(hw_merge_enables_t& enables);
  void SetHWMergeEnables(const hw_merge_enables_t& enables);
  /// The two thresholds of the merge, in this order: the high threshold, then the difference threshold.
  void GetHWMergeThresholds(unsigned short& usLow, unsigned short& usHigh);
  void SetHWMergeThresholds(unsigned short usLow, unsigned short usHigh);

  /// High to low gain ratio of a frame, from its sensor's own gain tables.
  double DeriveGainRatioFromMetaData(CFrameMetaData& metaData);

 protected:
  static constexpr unsigned int s_uiFileNameSize = 2048;

  int DoInitialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNVMergeSettings);
  /// Parses, unpacks and merges a raw frame file into *pImages, which is zeroed before; its buffers become
  /// the caller's, also those of a failed conversion.
  int DoConvertBase(const wchar_t* pSource, const conv_info_t* pInfo, unpacked_images_t* pImages);
  int DoConvertToFits(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination);
  int DoConvertToTIFF(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination);

  CMergeSettings m_MergeSettings;
  CFrameMetaData m_MetaData;  ///< of the frame in hand
  CHWMergeReferenceFrames m_HWMerge;
  CMergeAlgoLegacy m_LegacyMerge;  ///< for classes derived from this one; never handed to a frame here
  char m_FileName[s_uiFileNameSize];
  CLog* m_pLog;

 private:
  std::unique_ptr<orvacam::ConversionMemory> m_pConversionMemory;  ///< null before the first conversion
};

#endif  // ORVACAM_FACADE_CALGO_H
