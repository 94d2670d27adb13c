// Raw frame files become image files.

#include <orvacam/facade/CAlgo.h>
#include <orvacam/frames/IFrame.h>
#include <orvacam/imagefiles/CFitsInterface.h>
#include <orvacam/imagefiles/CTiffMaker.h>
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>
#include <orvacam/types/device_types.h>
#include <orvacam/types/image_format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

#include "metadata/FrameGeometry.h"
#include "support/OpenFile.h"
#include "support/WideText.h"

namespace {

// What a processed header takes when it is written.
constexpr unsigned int processedHeaderSize = 384;

struct FileCloser {
  void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};

/// The planes of one conversion. At its end the images go back to the memory that lent them, or will.
struct Planes {
  Planes(CAlgo& owner, unpacked_images_t& lender) : algo(owner), kept(lender) {}
  Planes(const Planes&) = delete;
  Planes& operator=(const Planes&) = delete;
  ~Planes() {
    std::swap(kept.pLowImage, images.pLowImage);
    std::swap(kept.pHighImage, images.pHighImage);
    std::swap(kept.pMergedImage, images.pMergedImage);
    kept.ulLowImageSize = images.ulLowImageSize;
    kept.ulHighImageSize = images.ulHighImageSize;
    kept.ulMergedImageSize = images.ulMergedImageSize;
    algo.FreeFramePointers(&images);
  }

  CAlgo& algo;
  unpacked_images_t& kept;
  unpacked_images_t images{};
};

/// Lends a plane that was kept when it is asked for and has just the size, else frees it.
void lendPlane(bool requested, unsigned long size, unsigned short*& kept, unsigned long keptSize,
               unsigned short*& image, unsigned long& imageSize) {
  if (requested && kept != nullptr && keptSize == size) {
    image = kept;
    imageSize = size;
  } else {
    std::free(kept);
  }
  kept = nullptr;
}

void lendPlanes(const orvacam::FrameGeometry& geometry, unpacked_images_t& kept, unpacked_images_t& images) {
  const unsigned long size = sizeof *kept.pLowImage * geometry.planePixels();
  lendPlane(images.bLowImageRequest, size, kept.pLowImage, kept.ulLowImageSize, images.pLowImage,
            images.ulLowImageSize);
  lendPlane(images.bHighImageRequest, size, kept.pHighImage, kept.ulHighImageSize, images.pHighImage,
            images.ulHighImageSize);
  lendPlane(images.bMergedImageRequest, size, kept.pMergedImage, kept.ulMergedImageSize, images.pMergedImage,
            images.ulMergedImageSize);
}

/// Headers of versions 1 and 2 state fewer bytes than a processed header takes, and a metadata buffer of
/// their own size would stay unwritten: these are made here, large enough for every version.
int makeMetaDataBuffers(const orvacam::FrameGeometry& geometry, unpacked_images_t& images) {
  images.uiMetaDataSize = std::max(static_cast<unsigned int>(geometry.headerLength()), processedHeaderSize);
  for (unsigned char** buffer : {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData}) {
    *buffer = static_cast<unsigned char*>(std::calloc(images.uiMetaDataSize, 1));
    if (*buffer == nullptr) return -1;
  }
  return 0;
}

/// Merges into pixels alone, whatever layout the caller has set for merges in memory: the image file gets its
/// own header.
class PixelsOnly {
 public:
  explicit PixelsOnly(CCustomMergeAlgo& algo) : m_Algo(algo), m_Enables{} {
    m_Algo.GetMergeEnables(m_Enables);
    hw_merge_enables_t pixels = m_Enables;
    pixels.uiImageFormat = ORVA_IMAGE_FORMAT_RAW;
    m_Algo.SetMergeEnables(pixels);
  }
  PixelsOnly(const PixelsOnly&) = delete;
  PixelsOnly& operator=(const PixelsOnly&) = delete;
  ~PixelsOnly() { m_Algo.SetMergeEnables(m_Enables); }

 private:
  CCustomMergeAlgo& m_Algo;
  hw_merge_enables_t m_Enables;
};

/// One output file of a conversion; image is null when the frame does not yield the plane.
struct PlaneFile {
  const unsigned short* image;
  unsigned char* metaData;
  const char* suffix;
  bool highFrame, mergedFrame;
};

std::array<PlaneFile, 3> planeFiles(const unpacked_images_t& images) {
  const char* const lowSuffix = images.pHighImage != nullptr ? "_LOW" : "";
  return {{{images.pLowImage, images.pLowMetaData, lowSuffix, false, false},
           {images.pHighImage, images.pHighMetaData, "_HIGH", true, false},
           {images.pMergedImage, images.pMergedMetaData, "_MERGED", false, true}}};
}

/// Parses what a plane's processed header has. What does not parse is left out of the image file, but missing
/// memory, which Parse reports the same way, is no reason to write less.
class ProcessedHeader : public CFrameMetaData {
 public:
  int Read(unsigned char* pHeader, unsigned int uiSize) {
    return IsRCDFrame(pHeader, uiSize) ? DoParse(pHeader, uiSize) : -1;
  }
};

void mark(CFrameMetaData& metaData, const PlaneFile& plane) {
  metaData.SetIsHighFrame(plane.highFrame);
  metaData.SetIsMergedFrame(plane.mergedFrame);
}

}  // namespace

int CAlgo::ConvertFile(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination) try {
  if (pSource == nullptr || pInfo == nullptr || pDestination == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Invalid (NULL) parameter specified!\n", "ConvertFile");
    return -1;
  }
  switch (pInfo->uiFormat) {
    case ORVA_IMAGE_FORMAT_TIFF:
      return DoConvertToTIFF(pSource, pInfo, pDestination);
    case ORVA_IMAGE_FORMAT_FITS:
      return DoConvertToFits(pSource, pInfo, pDestination);
    default:
      return utilOSWideCopyFile(pSource, pDestination);
  }
} catch (const std::out_of_range&) {
  throw;  // a destination without a dot, as documented
} catch (const std::exception&) {
  return -1;
}

int CAlgo::DoConvertBase(const wchar_t* pSource, const conv_info_t* pInfo, unpacked_images_t* pImages,
                         conversion_memory_t* pMemory) {
  if (pImages == nullptr) return -1;
  m_MetaData.ReInitialize(false);
  const std::unique_ptr<std::FILE, FileCloser> file(orvacam::openRegularFile(pSource, "rb"));
  return file == nullptr ? -1 : DoConvertStream(file.get(), pInfo, pImages, pMemory);
}

int CAlgo::DoConvertStream(std::FILE* pStream, const conv_info_t* pInfo, unpacked_images_t* pImages,
                           conversion_memory_t* pMemory) {
  const int parsed = m_MetaData.Parse(pStream);
  if (parsed < 0) return parsed;
  // Planes are as large as this header says, files as the processed one does: they must say the same.
  const orvacam::FrameGeometry geometry(m_MetaData);
  if (geometry.fault() || orvacam::processedHeaderFault(m_MetaData)) return -1;

  *pImages = unpacked_images_t{};
  pImages->bMetaDataRequest = true;
  pImages->bLowImageRequest = true;
  pImages->bHighImageRequest = pImages->bMergedImageRequest =
      m_MetaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  if (pMemory != nullptr) lendPlanes(geometry, pMemory->planes, *pImages);
  if (makeMetaDataBuffers(geometry, *pImages) < 0) return -1;

  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          m_MetaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  m_MetaData.GetDeviceType(camera.uiDeviceType);
  DoInitialize(camera, nullptr);
  if (!m_MergeSettings.HasGainTables()) return -1;  // no memory
  int result = DoCreateReferenceFrames(pInfo->pDSNUFileName, pInfo->pPRNUFileName,
                                       DeriveGainRatioFromMetaData(m_MetaData),
                                       static_cast<unsigned int>(geometry.columns().frame()),
                                       static_cast<unsigned int>(geometry.rows().frame()));

  const PixelsOnly pixelsOnly(m_HWMerge);
  const std::unique_ptr<IFrame> frame(DoInitFrame(&m_MetaData, pStream, pImages, pMemory));
  if (frame == nullptr) return -1;
  frame->EnableMergeStatistics(false);
  if (result < 0) return result;
  result = frame->Merge(pImages);
  if (pMemory != nullptr) pMemory->pSource = frame->ReleaseSourceBuffer(pMemory->ulSourceLength);
  if (result < 0) return result;
  frame->GetProcessedLowMetaData(pImages->pLowMetaData, pImages->uiMetaDataSize);
  frame->GetProcessedHighMetaData(pImages->pHighMetaData, pImages->uiMetaDataSize);
  frame->GetProcessedMergedMetaData(pImages->pMergedMetaData, pImages->uiMetaDataSize);
  return result;
}

int CAlgo::DoConvertToFits(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination) {
  ProcessedHeader metaData;
  CFitsInterface fits;
  Planes planes(*this, m_ConversionMemory.planes);
  unpacked_images_t& images = planes.images;
  int result = DoConvertBase(pSource, pInfo, &images, &m_ConversionMemory);
  if (result < 0) return result;

  for (const PlaneFile& plane : planeFiles(images)) {
    if (plane.image == nullptr) continue;
    metaData.ReInitialize(false);
    metaData.Read(plane.metaData, images.uiMetaDataSize);
    mark(metaData, plane);
    result = fits.CreateImageFile(MakeProcessedFileName(pDestination, plane.suffix, ".fit"), plane.image,
                                  metaData);
  }
  return result;
}

int CAlgo::DoConvertToTIFF(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination) {
  ProcessedHeader metaData;
  CTiffMaker tiff;
  Planes planes(*this, m_ConversionMemory.planes);
  unpacked_images_t& images = planes.images;
  int result = DoConvertBase(pSource, pInfo, &images, &m_ConversionMemory);
  if (result < 0) return result;

  // Intended: all files carry the low-gain plane's metadata, apart from two flags.
  result = metaData.Read(images.pLowMetaData, images.uiMetaDataSize);
  for (const PlaneFile& plane : planeFiles(images)) {
    if (plane.image == nullptr) continue;
    mark(metaData, plane);
    result = tiff.CreateImageFile(MakeProcessedFileName(pDestination, plane.suffix, ".tiff"), plane.image,
                                  metaData);
  }
  return result;
}

std::string CAlgo::MakeProcessedFileName(const wchar_t* pPath, const char* pSuffix, const char* pExtension) {
  orvacam::wideToNarrow(pPath, m_FileName, s_uiFileNameSize);
  const std::string path = m_FileName;
  const std::size_t dot = path.rfind('.');
  const std::string sourceExtension =
      path.substr(dot);  // throws std::out_of_range without a dot, as documented
  std::string name = path.substr(0, dot);
  if (pSuffix != nullptr) name += pSuffix;
  if (pExtension != nullptr) name += pExtension;
  return name;
}
