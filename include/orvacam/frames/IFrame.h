#ifndef ORVACAM_FRAMES_IFRAME_H
#define ORVACAM_FRAMES_IFRAME_H

#include <orvacam/imagefiles/CTiffMaker.h>
#include <orvacam/statistics/CFrameStatistics.h>
#include <orvacam/types/export.h>
#include <orvacam/types/frame_roi.h>
#include <orvacam/types/image_format.h>
#include <orvacam/types/plane_stats.h>
#include <orvacam/types/unpacked_images.h>

#include <cstdio>

class CCustomMergeAlgo;
class CFrameMetaData;
class CLog;

/// One raw frame of a camera: the base of the frame classes, one per sensor family. Does what is the same for
/// all sensors (source data, buffers, the hand-over to the merge algorithm, statistics, processed metadata);
/// the classes unpack their sensor's pixels.
///
/// CFrameFactory makes the right class. Initialize it with the frame's metadata, its bytes and a merge
/// algorithm, then call Merge or Unpack once. To support another sensor, derive from this class and override
/// both: AllocateUserMergeBuffers prepares the planes, MergeFrame merges them.
///
/// What a header can make us allocate is bounded: a plane of more than 8 MiB is refused when it is more than
/// 64 times as large as the source data. A camera sends at least 1.5 bytes for 2 bytes of plane, so that
/// every frame passes, also one of which only a fiftieth arrived; a small file that claims 65535 x 65535
/// pixels does not.
///
/// Statuses: 0 or more is success, -1 failure; nothing is logged on failure. One object is used by one thread
/// at a time; it is about 0.8 MiB large.
class ORVACAM_API IFrame {
 public:
  IFrame();
  IFrame(const IFrame&) = delete;
  IFrame& operator=(const IFrame&) = delete;
  virtual ~IFrame();

  /// Unpacks the frame and, where a merged plane is asked for, merges. -1 here; frame classes override it.
  virtual int Merge(unpacked_images_t* pImages);
  /// Unpacks the frame into the planes asked for. -1 here; frame classes override it.
  virtual int Unpack(unpacked_images_t* pImages);
  /// Copies a region of packed pixels behind the room for the header. -1 here and for most sensors.
  virtual int CopyROIToBuffer(frame_roi_t& roi, unsigned char* pBuffer, unsigned int uiBufferSize);

  /// Takes a copy of the metadata, the raw frame (header included; stays the caller's and must outlive the
  /// work) and the merge algorithm (not owned; may be null).
  int Initialize(const CFrameMetaData& metaData, unsigned char* pSource, unsigned long ulLength,
                 CCustomMergeAlgo* pMergeAlgo);
  /// The same with the whole file behind a stream, which is read now and stays open and the caller's. -1 for
  /// null and for what is not a regular file with at least one byte.
  int Initialize(const CFrameMetaData& metaData, std::FILE* pStream, CCustomMergeAlgo* pMergeAlgo);

  /// Takes another raw frame of ulLength bytes, which stays the caller's; nothing for null.
  void SetSourceImage(unsigned char* pSource, unsigned long ulLength);
  /// Read another raw frame: the whole file, from its start, into memory of this object. -1 as Initialize;
  /// what a short read brought is kept.
  int SetSourceImage(std::FILE* pStream);
  int ReadSourceImage(std::FILE* pStream);
  /// Frees the raw frame where this object read it itself.
  void FreeSourceImageBuffer();

  /// Allocates a buffer of uiSize bytes where *ppBuffer is null, else checks the caller's capacity. An image
  /// buffer is cleared over its capacity in any case. -1 for null, too small a capacity, or without memory.
  int AllocateBufferPointer(unsigned int uiSize, unsigned short** ppBuffer, unsigned long* pulCapacity);
  int AllocateMetaDataPointer(unsigned int uiSize, unsigned char** ppBuffer, unsigned int* puiCapacity);
  /// Makes the working planes, zeroed: uiSize bytes each, the third with uiExtra more. Kept when they are
  /// large enough, whatever the extra. -1, with everything freed, without memory.
  int AllocateFrameBuffers(unsigned int uiSize, unsigned int uiExtra);
  /// Frees the working planes.
  void FreeUnpackedBuffers();
  /// Frees the working planes, the copy of the metadata, and the raw frame where it was read here.
  void FreeAll();
  /// Prepares the caller's buffers and the working planes for the planes that were not asked for. -1 when the
  /// metadata gives no frame size or one out of proportion, or a buffer fails; the frame has no planes then.
  int AllocateUserMergeBuffers(unpacked_images_t* pImages);

  /// Hands two planes to the merge algorithm; its status. Nothing (0) for a null plane or no pixels.
  int MergeFrame(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                 unsigned long ulPixels);

  /// Whether the next Unpack or Merge gathers statistics. Initialize switches it off.
  void EnableMergeStatistics(bool bEnable);
  /// Copy a plane's statistics and, where the record has a histogram, min(its capacity, 65535) of the counts.
  /// The merged plane's are those of the merge algorithm, where there is one.
  void GetLowFrameStats(image_plane_stats_t& stats);
  void GetHighFrameStats(image_plane_stats_t& stats);
  void GetMergedFrameStats(image_plane_stats_t& stats);

  /// Write the processed header of a plane into a buffer of uiCapacity bytes. -1 without metadata or when its
  /// stated length exceeds the capacity. A header that states less than 384 bytes is too short to be written:
  /// the buffer stays as it is.
  int GetProcessedLowMetaData(unsigned char* pBuffer, unsigned int uiCapacity);
  int GetProcessedHighMetaData(unsigned char* pBuffer, unsigned int uiCapacity);
  int GetProcessedMergedMetaData(unsigned char* pBuffer, unsigned int uiCapacity);

  /// Decodes a single-gain frame of packed 12-bit pixels, reference rows and pixels included, into ulSize
  /// pixels. 0; -1, with what is whole and fits decoded, when the source ends early or the frame exceeds the
  /// pixels.
  int UnpackImage12to16(unsigned short* pOut, unsigned long ulSize);

 protected:
  int DoInitialize(const CFrameMetaData& metaData, CCustomMergeAlgo* pMergeAlgo);
  void DoGetStats(const CFrameStatistics& statistics, image_plane_stats_t& stats);

  CFrameMetaData* m_pMetaData = nullptr;  ///< an own copy; null before Initialize
  unsigned char* m_pSource = nullptr;     ///< the raw frame, header included
  unsigned long m_ulSourceLength = 0;
  bool m_bSourceOwned = false;
  bool m_bSourceIncomplete = false;         ///< owned, and not all of the file could be read
  unsigned char* m_pWorkBuffer1 = nullptr;  ///< stands in for the low-gain plane
  unsigned char* m_pWorkBuffer2 = nullptr;  ///< stands in for the high-gain plane
  unsigned char* m_pWorkBuffer3 = nullptr;  ///< stands in for the merged plane, with room for its header
  unsigned int m_uiWorkSize = 0;
  unsigned int m_uiWorkSizeWithHeader = 0;
  unsigned int m_uiMergeLeadingBytes = 0;
  CTiffMaker m_TiffMaker;
  bool m_bMergeStatistics = false;
  CFrameStatistics m_LowStatistics;
  CFrameStatistics m_HighStatistics;
  CFrameStatistics m_MergedStatistics;
  unsigned int m_uiMergeImageFormat = ORVA_IMAGE_FORMAT_RAW;
  CLog* m_pLog;
  CCustomMergeAlgo* m_pMergeAlgo = nullptr;
  unpacked_images_t m_UserMergeBuffers{};  ///< the caller's record, completed with working planes
  bool m_bSourceByteSwapped = false;       ///< a sensor that delivers the other byte order sets it
};

#endif  // ORVACAM_FRAMES_IFRAME_H
