#include <orvacam/frames/IFrame.h>
#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/CLog.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>

#include "frames/OnePassMerge.h"
#include "frames/RowInterleavedStream.h"
#include "imagefiles/ImageFormats.h"
#include "merge/FrameRegions.h"
#include "metadata/FrameGeometry.h"
#include "support/AlignedMemory.h"

namespace {

// What a header can make us allocate: see the class's documentation.
constexpr unsigned long alwaysAllowedPlane = 8UL << 20;
constexpr unsigned long largestPlaneToSource = 64;

template <typename Value>
void release(Value*& pBuffer) {
  std::free(pBuffer);
  pBuffer = nullptr;
}

/// The stream of a single packed image.
orvacam::StreamLayout singleLayout(const CFrameMetaData& metaData) {
  const orvacam::FrameRegions frame(metaData);
  return {{{frame.preRows, 0, frame.frameWidth, 0, 0, false},
           {frame.imageHeight, frame.prePixels, frame.imageWidth, frame.postPixels, 0, false},
           {frame.postRows, 0, frame.frameWidth, 0, 0, false}}};
}

unsigned char* allocateZeroed(unsigned long size) {
  return static_cast<unsigned char*>(std::calloc(std::max(size, 1UL), 1));
}

/// The three buffers share one capacity. Those that are given hold what it was when it came in: it is not
/// raised for a new buffer while a given one is smaller.
int claimMetaData(IFrame& frame, unsigned int size, unpacked_images_t& images) {
  unsigned char** const buffers[] = {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData};
  for (unsigned char* const* buffer : buffers)
    if (*buffer != nullptr && images.uiMetaDataSize < size) return -1;
  for (unsigned char** buffer : buffers)
    if (frame.AllocateMetaDataPointer(size, buffer, &images.uiMetaDataSize) != 0) return -1;
  return 0;
}

/// 0 for what is not a regular file with at least one byte.
unsigned long regularFileSize(std::FILE* pStream) {
  struct stat status {};
  if (pStream == nullptr || fstat(fileno(pStream), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  return status.st_size > 0 ? static_cast<unsigned long>(status.st_size) : 0;
}

/// A plane that begins on a cache line, as planes do that are written past the caches; freed with free.
unsigned short* allocatePlane(unsigned long size) {
  constexpr unsigned long line = 64;
  const unsigned long lines = std::max(size + line - 1, line) / line;
  return static_cast<unsigned short*>(std::aligned_alloc(line, lines * line));
}

}  // namespace

IFrame::IFrame()
    : m_pMetaData(nullptr),
      m_pSource(nullptr),
      m_ulSourceLength(0),
      m_bSourceOwned(false),
      m_bSourceIncomplete(false),
      m_pWorkBuffer1(nullptr),
      m_pWorkBuffer2(nullptr),
      m_pWorkBuffer3(nullptr),
      m_uiWorkSize(0),
      m_uiWorkSizeWithHeader(0),
      m_uiMergeLeadingBytes(0),
      m_bMergeStatistics(false),
      m_uiMergeImageFormat(ORVA_IMAGE_FORMAT_RAW),
      m_pLog(CLog::getInstance()),
      m_pMergeAlgo(nullptr),
      m_UserMergeBuffers{},
      m_bSourceByteSwapped(false),
      m_uiMergeHeaderBytes(0),
      m_Uncleared{},
      m_bMergeOnTheWay(false),
      m_bMerged(false) {}

IFrame::~IFrame() {
  FreeAll();
}

int IFrame::Merge(unpacked_images_t* /*pImages*/) {
  return -1;
}
int IFrame::Unpack(unpacked_images_t* /*pImages*/) {
  return -1;
}
int IFrame::CopyROIToBuffer(frame_roi_t& /*roi*/, unsigned char* /*pBuffer*/, unsigned int /*uiBufferSize*/) {
  return -1;
}

// ---- Initialization and source data
// --------------------------------------------------------------------------

int IFrame::Initialize(const CFrameMetaData& metaData, unsigned char* pSource, unsigned long ulLength,
                       CCustomMergeAlgo* pMergeAlgo) {
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered\n", "Initialize");
  const int result = DoInitialize(metaData, pMergeAlgo);
  SetSourceImage(pSource, ulLength);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "Initialize");
  return result;
}

int IFrame::Initialize(const CFrameMetaData& metaData, std::FILE* pStream, CCustomMergeAlgo* pMergeAlgo) {
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered\n", "Initialize");
  int result = DoInitialize(metaData, pMergeAlgo);
  if (result >= 0) result = SetSourceImage(pStream);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "Initialize");
  return result;
}

int IFrame::DoInitialize(const CFrameMetaData& metaData, CCustomMergeAlgo* pMergeAlgo) {
  m_pMergeAlgo = pMergeAlgo;
  delete m_pMetaData;
  m_pMetaData = nullptr;
  try {
    m_pMetaData = new CFrameMetaData(metaData);
  } catch (const std::exception&) {
    return -1;
  }
  if (pMergeAlgo != nullptr) {
    hw_merge_enables_t enables{};
    pMergeAlgo->GetMergeEnables(enables);
    m_uiMergeImageFormat = enables.uiImageFormat;
  }
  m_bMergeStatistics = false;
  DoResetStatistics();
  return 0;
}

void IFrame::SetSourceImage(unsigned char* pSource, unsigned long ulLength) {
  if (pSource == nullptr) return;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered uiSourceImageLength= %d (0x%x)\n", "SetSourceImage",
              static_cast<int>(ulLength), static_cast<unsigned int>(ulLength));
  FreeSourceImageBuffer();
  m_pSource = pSource;
  m_ulSourceLength = ulLength;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "SetSourceImage");
}

int IFrame::SetSourceImage(std::FILE* pStream) {
  if (!DoFitsSource(regularFileSize(pStream))) FreeSourceImageBuffer();
  return ReadSourceImage(pStream);
}

int IFrame::ReadSourceImage(std::FILE* pStream) {
  const unsigned long size = regularFileSize(pStream);
  if (size == 0) return -1;
  if (!DoFitsSource(size)) {
    unsigned char* const buffer = orvacam::allocateAligned(size + 1);
    if (buffer == nullptr) return -1;
    AdoptSourceBuffer(buffer, size);
  }
  std::rewind(pStream);
  const unsigned long read = std::fread(m_pSource, 1, size, pStream);
  std::memset(m_pSource + read, 0, size + 1 - read);
  m_bSourceIncomplete = read != size;
  return m_bSourceIncomplete ? -1 : 0;
}

bool IFrame::DoFitsSource(unsigned long ulLength) const {
  return m_bSourceOwned && ulLength != 0 && ulLength == m_ulSourceLength;
}

void IFrame::AdoptSourceBuffer(unsigned char* pBuffer, unsigned long ulLength) {
  FreeSourceImageBuffer();
  m_pSource = pBuffer;
  m_ulSourceLength = pBuffer != nullptr ? ulLength : 0;
  m_bSourceOwned = pBuffer != nullptr;
}

unsigned char* IFrame::ReleaseSourceBuffer(unsigned long& ulLength) {
  if (!m_bSourceOwned) return nullptr;
  unsigned char* const buffer = m_pSource;
  ulLength = m_ulSourceLength;
  m_pSource = nullptr;
  m_ulSourceLength = 0;
  m_bSourceOwned = false;
  return buffer;
}

void IFrame::FreeSourceImageBuffer() {
  if (m_bSourceOwned) {
    release(m_pSource);
    m_ulSourceLength = 0;
  }
  m_bSourceOwned = false;
  m_bSourceIncomplete = false;
}

// ---- Buffers
// -------------------------------------------------------------------------------------------------

int IFrame::AllocateBufferPointer(unsigned int uiSize, unsigned short** ppBuffer,
                                  unsigned long* pulCapacity) {
  if (ppBuffer == nullptr || pulCapacity == nullptr) return -1;
  if (*ppBuffer == nullptr) {
    *ppBuffer = reinterpret_cast<unsigned short*>(allocateZeroed(uiSize));
    if (*ppBuffer == nullptr) return -1;
    *pulCapacity = uiSize;
    return 0;
  }
  std::memset(*ppBuffer, 0, *pulCapacity);  // intended: also when it is too small
  return *pulCapacity < uiSize ? -1 : 0;
}

int IFrame::AllocateMetaDataPointer(unsigned int uiSize, unsigned char** ppBuffer,
                                    unsigned int* puiCapacity) {
  if (ppBuffer == nullptr || puiCapacity == nullptr) return -1;
  if (*ppBuffer != nullptr) return *puiCapacity < uiSize ? -1 : 0;
  // Zeroed: a header of versions 1 and 2 is too short to be written.
  *ppBuffer = allocateZeroed(uiSize);
  if (*ppBuffer == nullptr) return -1;
  *puiCapacity = uiSize;
  return 0;
}

int IFrame::AllocateFrameBuffers(unsigned int uiSize, unsigned int uiExtra) {
  // Intended: a larger header alone does not make the buffers anew.
  if (m_pWorkBuffer1 != nullptr && m_uiWorkSize >= uiSize) return 0;
  FreeUnpackedBuffers();
  m_uiWorkSize = uiSize;
  m_uiWorkSizeWithHeader = uiSize + uiExtra;
  // Intended: twice what is asked for. Pages that nobody touches cost nothing.
  m_pWorkBuffer1 = allocateZeroed(uiSize);
  m_pWorkBuffer2 = allocateZeroed(2UL * uiSize);
  m_pWorkBuffer3 = allocateZeroed(2UL * uiSize + 2UL * uiExtra);
  if (m_pWorkBuffer1 != nullptr && m_pWorkBuffer2 != nullptr && m_pWorkBuffer3 != nullptr) return 0;
  FreeAll();
  return -1;
}

void IFrame::FreeUnpackedBuffers() {
  release(m_pWorkBuffer1);
  release(m_pWorkBuffer2);
  release(m_pWorkBuffer3);
  m_uiWorkSize = 0;
  m_uiWorkSizeWithHeader = 0;
}

void IFrame::FreeAll() {
  delete m_pMetaData;
  m_pMetaData = nullptr;
  FreeUnpackedBuffers();
  FreeSourceImageBuffer();
  m_UserMergeBuffers = unpacked_images_t{};
}

/// The pixels of the binned frame, when the metadata has a size that the source bears out.
bool IFrame::DoFrameSize(unsigned int& uiPixels) const {
  if (m_pMetaData == nullptr) return false;
  const orvacam::FrameGeometry geometry(*m_pMetaData);
  const std::uint64_t bytes = 2 * geometry.planePixels();
  if (geometry.fault() || bytes > std::numeric_limits<unsigned int>::max()) return false;
  if (bytes > alwaysAllowedPlane && bytes / largestPlaneToSource > m_ulSourceLength) return false;
  uiPixels = static_cast<unsigned int>(geometry.planePixels());
  return true;
}

int IFrame::AllocateUserMergeBuffers(unpacked_images_t* pImages) {
  const int result = DoClaimPlanes(pImages);
  DoClearPlanes(0, 0, 0);
  return result == 0 ? DoMakeWorkingPlanes() : result;
}

int IFrame::DoClaimPlane(unsigned int uiSize, unsigned short** ppBuffer, unsigned long* pulCapacity,
                         uncleared_t& uncleared) {
  if (*ppBuffer == nullptr) {
    // Memory that a short source will not fill stays untouched pages that are zero.
    if (uiSize / 2 > m_ulSourceLength) return AllocateBufferPointer(uiSize, ppBuffer, pulCapacity);
    *ppBuffer = allocatePlane(uiSize);
    if (*ppBuffer == nullptr) return -1;
    *pulCapacity = uiSize;
  }
  uncleared = {reinterpret_cast<unsigned char*>(*ppBuffer), *pulCapacity};
  return *pulCapacity < uiSize ? -1 : 0;
}

void IFrame::DoClearPlanes(unsigned long ulLowKept, unsigned long ulHighKept, unsigned long ulMergedKept) {
  const unsigned long kept[] = {ulLowKept, ulHighKept, ulMergedKept};
  for (unsigned int i = 0; i < 3; ++i) {
    uncleared_t& plane = m_Uncleared[i];
    if (plane.ulBytes > kept[i]) std::memset(plane.pBytes + kept[i], 0, plane.ulBytes - kept[i]);
    plane = uncleared_t{};
  }
}

int IFrame::DoClaimPlanes(unpacked_images_t* pImages) {
  m_UserMergeBuffers = unpacked_images_t{};
  m_uiMergeLeadingBytes = 0;
  m_uiMergeHeaderBytes = 0;
  unsigned int trailing = 0;
  unsigned int pixels = 0;
  if (pImages == nullptr || !DoFrameSize(pixels)) return -1;
  const unsigned int planeSize = 2 * pixels;

  if (pImages->bMetaDataRequest && claimMetaData(*this, m_pMetaData->GetBinarizeSize(), *pImages) != 0)
    return -1;
  if (pImages->bLowImageRequest) {
    if (DoClaimPlane(planeSize, &pImages->pLowImage, &pImages->ulLowImageSize, m_Uncleared[0]) != 0)
      return -1;
    pImages->ulLowImagePixels = pixels;
  }
  if (pImages->bHighImageRequest) {
    if (DoClaimPlane(planeSize, &pImages->pHighImage, &pImages->ulHighImageSize, m_Uncleared[1]) != 0)
      return -1;
    pImages->ulHighImagePixels = pixels;
  }
  if (pImages->bMergedImageRequest) {
    const auto format = static_cast<ORVA_IMAGE_FORMAT>(m_uiMergeImageFormat);
    if (m_pMergeAlgo != nullptr) {
      m_pMergeAlgo->GetMergeHeaderSize(format, pixels, 16, m_uiMergeLeadingBytes, trailing);
      m_pMergeAlgo->SetStartRowOffset(
          static_cast<unsigned int>(m_pMetaData->Value(ORVA_META_KEY_IMAGE_START_ROW).GetValueInt()));
    } else {
      const orvacam::Surroundings bytes = orvacam::imageFormatOf(format).around(*m_pMetaData, pixels, 16);
      m_uiMergeLeadingBytes = bytes.leading;
      trailing = bytes.trailing;
    }
    const unsigned long size = planeSize + static_cast<unsigned long>(m_uiMergeLeadingBytes) + trailing;
    if (size > std::numeric_limits<unsigned int>::max() ||
        DoClaimPlane(static_cast<unsigned int>(size), &pImages->pMergedImage, &pImages->ulMergedImageSize,
                     m_Uncleared[2]) != 0)
      return -1;
    pImages->ulMergedImagePixels = pixels;
  }
  m_uiMergeHeaderBytes = m_uiMergeLeadingBytes + trailing;

  m_UserMergeBuffers = *pImages;
  unpacked_images_t& own = m_UserMergeBuffers;
  if (!own.bLowImageRequest) {
    own.pLowImage = nullptr;
    own.ulLowImagePixels = pixels;
  }
  if (!own.bHighImageRequest) {
    own.pHighImage = nullptr;
    own.ulHighImagePixels = pixels;
  }
  if (!own.bMergedImageRequest) {
    own.pMergedImage = nullptr;
    own.ulMergedImagePixels = pixels;
  }
  return 0;
}

int IFrame::DoMakeWorkingPlanes() {
  unpacked_images_t& own = m_UserMergeBuffers;
  unsigned int pixels = 0;
  if (!DoFrameSize(pixels)) return -1;
  const int result = AllocateFrameBuffers(2 * pixels, m_uiMergeHeaderBytes);
  if (result != 0) return result;
  if (!own.bLowImageRequest) {
    own.pLowImage = reinterpret_cast<unsigned short*>(m_pWorkBuffer1);
    own.ulLowImageSize = m_uiWorkSize;
  }
  if (!own.bHighImageRequest) {
    own.pHighImage = reinterpret_cast<unsigned short*>(m_pWorkBuffer2);
    own.ulHighImageSize = m_uiWorkSize;
  }
  if (!own.bMergedImageRequest) {
    own.pMergedImage = reinterpret_cast<unsigned short*>(m_pWorkBuffer3);
    own.ulMergedImageSize = m_uiWorkSizeWithHeader;
  }
  return 0;
}

// ---- Steps that the frame classes share
// ----------------------------------------------------------------------

int IFrame::DoPrepare(unpacked_images_t* pImages) {
  if (m_pMetaData == nullptr || m_pSource == nullptr || pImages == nullptr) return -1;
  // The façade does not look at the status of reading: the pixels that are missing would pass for zeros.
  if (m_bSourceIncomplete) return -1;
  return AllocateUserMergeBuffers(pImages);
}

int IFrame::DoPrepareUncleared(unpacked_images_t* pImages) {
  if (m_pMetaData == nullptr || m_pSource == nullptr || pImages == nullptr) return -1;
  if (m_bSourceIncomplete) return -1;
  const int result = DoClaimPlanes(pImages);
  if (result != 0) DoClearPlanes(0, 0, 0);
  return result;
}

int IFrame::DoCheckPlanes(unsigned int uiImagePixels) {
  if (m_UserMergeBuffers.ulLowImagePixels >= uiImagePixels &&
      m_UserMergeBuffers.ulHighImagePixels >= uiImagePixels)
    return 0;
  DoClearPlanes(0, 0, 0);
  return -1;
}

int IFrame::DoReadyPlanes(unsigned long ulLowKept, unsigned long ulHighKept) {
  DoClearPlanes(2 * ulLowKept, 2 * ulHighKept, 0);
  // A merge of ours merges into the caller's plane alone, so that a stand-in for it would serve nobody.
  const unpacked_images_t& own = m_UserMergeBuffers;
  const bool allThere = own.bLowImageRequest && own.bHighImageRequest;
  return allThere && (own.bMergedImageRequest || m_bMergeOnTheWay) ? 0 : DoMakeWorkingPlanes();
}

int IFrame::DoDecodePair(const orvacam::StreamLayout& layout) {
  unsigned long length = 0;
  const unsigned char* const source = DoPixelData(length);
  const unpacked_images_t& own = m_UserMergeBuffers;
  const std::uint64_t pixels = layout.pixelsOfEach();
  const bool whole = source != nullptr && layout.bytes() <= length && pixels <= own.ulLowImagePixels &&
                     pixels <= own.ulHighImagePixels;
  if (whole && DoMergeInOnePass(layout, source)) return 0;
  if (DoReadyPlanes(whole ? pixels : 0, whole ? pixels : 0) != 0) return -1;
  orvacam::PlaneCursor planes[] = {
      {own.pLowImage, own.ulLowImagePixels, m_bMergeStatistics ? &m_LowStatistics : nullptr},
      {own.pHighImage, own.ulHighImagePixels, m_bMergeStatistics ? &m_HighStatistics : nullptr}};
  return orvacam::decodeStream({source, length}, layout, planes);
}

/// The whole stream, where nobody wants to see its planes before they are merged. False, with nothing done,
/// where unpacking comes first.
bool IFrame::DoMergeInOnePass(const orvacam::StreamLayout& layout, const unsigned char* pSource) {
  const unpacked_images_t& own = m_UserMergeBuffers;
  if (!m_bMergeOnTheWay || !own.bMergedImageRequest || own.ulLowImagePixels != own.ulHighImagePixels ||
      own.ulMergedImagePixels != own.ulLowImagePixels ||
      !m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool())
    return false;
  const unsigned long pixels = own.ulLowImagePixels;
  const orvacam::PairPlanes planes = {
      own.pLowImage, own.pHighImage,
      reinterpret_cast<unsigned char*>(own.pMergedImage) + m_uiMergeLeadingBytes, pixels};
  orvacam::OnePassMerge pass(m_pMergeAlgo, *m_pMetaData, layout);
  if (!pass.fits(planes)) return false;
  DoClearPlanes(2 * pixels, 2 * pixels, 2 * pixels + m_uiMergeLeadingBytes);
  pass.run(pSource, planes, own.pMergedImage, m_bMergeStatistics ? &m_LowStatistics : nullptr,
           m_bMergeStatistics ? &m_HighStatistics : nullptr);
  m_bMerged = true;
  return true;
}

void IFrame::DoResetStatistics() {
  m_LowStatistics.Reset();
  m_HighStatistics.Reset();
  m_MergedStatistics.Reset();
}

void IFrame::DoApplyBias(bool bHigh) {
  if (m_pMergeAlgo == nullptr) return;
  unsigned int width = 0;
  unsigned int height = 0;
  m_pMetaData->GetFrameDimensionsBinned(width, height);
  m_pMergeAlgo->ApplyBiasFrame(bHigh ? m_UserMergeBuffers.pHighImage : m_UserMergeBuffers.pLowImage, width,
                               height, bHigh ? m_HighStatistics : m_LowStatistics, bHigh);
}

void IFrame::DoComputeStatistics() {
  if (!m_bMergeStatistics) return;
  m_LowStatistics.Compute();
  m_HighStatistics.Compute();
}

void IFrame::DoMergePlanes(const unpacked_images_t* pImages) {
  const unsigned long pixels = m_UserMergeBuffers.ulLowImagePixels;
  if (pImages->pMergedImage == nullptr ||
      pImages->ulMergedImagePixels < m_UserMergeBuffers.ulHighImagePixels ||
      !m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool() || m_pMergeAlgo == nullptr)
    return;
  // A merged plane that is there without being asked for has not been checked yet.
  unsigned int leading = 0;
  unsigned int trailing = 0;
  m_pMergeAlgo->GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(m_uiMergeImageFormat), pixels, 16, leading,
                                   trailing);
  if (pImages->ulMergedImageSize < 2 * pixels + leading + trailing) return;
  MergeFrame(m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.pHighImage, pImages->pMergedImage, pixels);
}

int IFrame::DoMerge(unpacked_images_t* pImages, bool bInOnePass) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  if (pImages == nullptr) return 0;
  m_bMergeOnTheWay = bInOnePass;
  m_bMerged = false;
  const int result = Unpack(pImages);
  m_bMergeOnTheWay = false;
  if (result >= 0 && !m_bMerged) DoMergePlanes(pImages);
  return result;
}

int IFrame::MergeFrame(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                       unsigned long ulPixels) {
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr || ulPixels == 0) return 0;
  m_MergedStatistics.Reset();
  if (m_pMergeAlgo == nullptr) return -1;
  m_pMergeAlgo->EnableStatistics(m_bMergeStatistics);
  return m_pMergeAlgo->MergeFrames(pLow, pHigh, pMerged, ulPixels);
}

const unsigned char* IFrame::DoPixelData(unsigned long& ulLength) const {
  const unsigned long header = m_pMetaData->GetBinarizeSize();
  ulLength = m_ulSourceLength > header ? m_ulSourceLength - header : 0;
  return ulLength > 0 ? m_pSource + header : nullptr;
}

const unsigned char* IFrame::DoPixelDataOfAnySource(unsigned long& ulLength) const {
  const auto known = static_cast<unsigned int>(std::min(m_ulSourceLength, 4UL));
  if (CFrameMetaData::IsRCDFrame(m_pSource, known)) return DoPixelData(ulLength);
  ulLength = m_ulSourceLength;
  return m_pSource;
}

void IFrame::DoCopyPlane16(unsigned short* pOut, unsigned long ulPixels) const {
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  // Intended: a source that is too short is left uncopied, without an error.
  if (pixels != nullptr && ulPixels > 0 && length / 2 >= ulPixels) std::memcpy(pOut, pixels, 2 * ulPixels);
}

int IFrame::UnpackImage12to16(unsigned short* pOut, unsigned long ulSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  orvacam::PlaneCursor plane(pOut, ulSize, nullptr);
  return orvacam::decodeStream({pixels, length}, singleLayout(*m_pMetaData).sections, &plane, 1);
}

unsigned long IFrame::DoSingleImagePixels(unsigned int uiBits) const {
  const unsigned long plane = m_UserMergeBuffers.ulLowImagePixels;
  unsigned long length = 0;
  DoPixelData(length);
  if (uiBits == 16) return length / 2 >= plane ? plane : 0;
  const orvacam::StreamLayout layout = singleLayout(*m_pMetaData);
  const std::uint64_t pairs = layout.bytes() / 3;
  return layout.bytes() <= length && pairs <= plane / 2 ? 2 * pairs : 0;
}

// ---- Results
// -------------------------------------------------------------------------------------------------

void IFrame::EnableMergeStatistics(bool bEnable) {
  m_bMergeStatistics = bEnable;
}

void IFrame::DoGetStats(const CFrameStatistics& statistics, image_plane_stats_t& stats) {
  statistics.GetResults(stats);
}

void IFrame::GetLowFrameStats(image_plane_stats_t& stats) {
  DoGetStats(m_LowStatistics, stats);
}
void IFrame::GetHighFrameStats(image_plane_stats_t& stats) {
  DoGetStats(m_HighStatistics, stats);
}

void IFrame::GetMergedFrameStats(image_plane_stats_t& stats) {
  if (m_pMergeAlgo != nullptr)
    m_pMergeAlgo->GetMergedStats(stats);
  else
    DoGetStats(m_MergedStatistics, stats);
}

int IFrame::DoGetProcessedMetaData(unsigned char* pBuffer, unsigned int uiCapacity, bool bHigh,
                                   bool bMerged) {
  if (m_pMetaData == nullptr || m_pMetaData->GetBinarizeSize() > uiCapacity) return -1;
  m_pMetaData->SetBitsPerPixel(16);
  m_pMetaData->SetHDRFrame(false);
  m_pMetaData->SetPixelEndianFormat(!m_bSourceByteSwapped);
  m_pMetaData->SetIsHighFrame(bHigh);
  m_pMetaData->SetIsMergedFrame(bMerged);
  m_pMetaData->Binarize(pBuffer, uiCapacity);
  return 0;
}

int IFrame::GetProcessedLowMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return DoGetProcessedMetaData(pBuffer, uiCapacity, false, false);
}
int IFrame::GetProcessedHighMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return DoGetProcessedMetaData(pBuffer, uiCapacity, true, false);
}
int IFrame::GetProcessedMergedMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return DoGetProcessedMetaData(pBuffer, uiCapacity, false, true);
}
