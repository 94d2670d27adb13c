#ifndef ORVACAM_STACK_CSTACKER_H
#define ORVACAM_STACK_CSTACKER_H

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/export.h>

#include <memory>

class CLog;

namespace orvacam {
class StackSums;
}

/// Averages a run of frames of equal size, pixel by pixel.
///
/// \code
///   CStacker stacker;
///   stacker.Initialize(pixels);
///   for (const unsigned short* plane : planes) stacker.StackNextFrame(plane, pixels);
///   stacker.Finish(&mean, nullptr, &count);
/// \endcode
///
/// Frames of 8 and 16 bits may be mixed; they share the low-gain sum. Means are exact, rounded down. Results
/// stay the stacker's: they are overwritten by the next Finish and freed by Initialize, Deinitialize and the
/// destructor. Statuses: 0, or -1. One object is used by one thread at a time; it is about 4.5 KiB large,
/// without its planes.
class ORVACAM_API CStacker {
 public:
  CStacker();
  CStacker(const CStacker&) = delete;
  CStacker& operator=(const CStacker&) = delete;
  virtual ~CStacker();

  /// Starts a stack of planes of this many pixels. -1 without memory; the stacker is then empty.
  int Initialize(unsigned long ulNumPixels);

  /// Add a frame, which stays the caller's: a plane to the low-gain sum, or two planes; pHigh may be null.
  /// -1, with nothing added, for a null plane, an uninitialized stacker, or another number of pixels.
  int StackNextFrame(const unsigned char* pFrame, unsigned long ulNumPixels);
  int StackNextFrame(const unsigned short* pFrame, unsigned long ulNumPixels);
  int StackNextFrame(const unsigned short* pLow, const unsigned short* pHigh, unsigned long ulNumPixels);

  /// Computes the means, hands them out and starts over. Without frames they are 0. Either plane's pointer
  /// may be null. -1 for a null count or an uninitialized stacker.
  int Finish(unsigned short** ppLow, unsigned short** ppHigh, unsigned int* puiNumPixels);

  /// Makes the header of the result from that of a frame (uiLength bytes; its sign bits are cleared in
  /// place): a stacked 16-bit frame, 384 bytes and zeros as long as the frame's own header and block (its
  /// GetBinarizeSizeEx). The bytes handed out stay the stacker's until the next call. puiLength may be null.
  /// The parse's status; 0 with nothing done for a null pBaseMeta or ppMeta; -1 without memory.
  int GetStackedMetaData(unsigned char* pBaseMeta, unsigned int uiLength, unsigned char** ppMeta,
                         unsigned int* puiLength);

  /// Forgets the frames added so far.
  void ResetStack();
  /// Frees everything; Initialize starts anew.
  void Deinitialize();
  void FreeBuffers();

 protected:
  unsigned long m_uiNumPixels;
  CFrameMetaData m_MetaData;
  unsigned char* m_pMetaDataBuffer;
  unsigned int m_uiMetaDataBufferSize;
  unsigned int m_uiNumFrames;                   ///< added since the last reset
  std::unique_ptr<orvacam::StackSums> m_pSums;  ///< null before Initialize
  CLog* m_pLog;
};

#endif  // ORVACAM_STACK_CSTACKER_H
