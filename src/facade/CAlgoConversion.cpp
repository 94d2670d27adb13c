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

#include "facade/Pipeline.h"
#include "frames/FrameParts.h"
#include "metadata/FrameGeometry.h"
#include "metadata/HeaderFields.h"
#include "support/OpenFile.h"
#include "support/WideText.h"

namespace {

/// Keeps a plane that is wanted and has just the size, else frees it.
void keepPlane(bool wanted, unsigned long size, unsigned short*& image, unsigned long& imageSize) {
  if (wanted && imageSize == size) return;
  std::free(image);
  image = nullptr;
  imageSize = 0;
}

/// Asks for the planes that the frame has. Of the buffers that the record holds, planes of the right size are
/// used again. False without memory.
///
/// Headers of versions 1 and 2 state fewer bytes than a processed header takes, and a metadata buffer of
/// their own size would stay unwritten: these are made here, large enough for every version.
bool prepareImages(const orvacam::FrameGeometry& geometry, bool hdr, unpacked_images_t& images) {
  const unsigned long size = sizeof *images.pLowImage * geometry.planePixels();
  keepPlane(true, size, images.pLowImage, images.ulLowImageSize);
  keepPlane(hdr, size, images.pHighImage, images.ulHighImageSize);
  keepPlane(hdr, size, images.pMergedImage, images.ulMergedImageSize);
  images.bMetaDataRequest = images.bLowImageRequest = true;
  images.bHighImageRequest = images.bMergedImageRequest = hdr;
  images.uiMetaDataSize =
      std::max(static_cast<unsigned int>(geometry.headerLength()), orvacam::header::writtenSize);
  for (unsigned char** buffer : {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData}) {
    std::free(*buffer);
    *buffer = static_cast<unsigned char*>(std::calloc(images.uiMetaDataSize, 1));
  }
  return images.pLowMetaData != nullptr && images.pHighMetaData != nullptr &&
         images.pMergedMetaData != nullptr;
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

/// One frame on its way from a file into planes.
struct Conversion {
  CAlgo& algo;
  CMergeSettings& settings;
  CFrameMetaData& metaData;
  CHWMergeReferenceFrames& merge;
  orvacam::ConversionMemory& memory;

  int run(const wchar_t* source, const conv_info_t& info) const;
};

int Conversion::run(const wchar_t* source, const conv_info_t& info) const {
  metaData.ReInitialize(false);
  const orvacam::OpenFile file(orvacam::openRegularFile(source, "rb"));
  if (file == nullptr) return -1;
  const int parsed = metaData.Parse(file.get());
  if (parsed < 0) return parsed;
  // Planes are as large as this header says, files as the processed one does: they must say the same.
  const orvacam::FrameGeometry geometry(metaData);
  if (geometry.fault() || !orvacam::surviveProcessing(metaData)) return -1;
  const bool hdr = metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  if (!prepareImages(geometry, hdr, memory.images) || !orvacam::takeGains(settings, metaData)) return -1;
  const int result = orvacam::takeReferences(merge, metaData, info.pDSNUFileName, info.pPRNUFileName,
                                             algo.DeriveGainRatioFromMetaData(metaData));

  const PixelsOnly pixelsOnly(merge);
  const std::unique_ptr<IFrame> frame(
      algo.InitFrame(&metaData, static_cast<std::FILE*>(nullptr), &memory.images));
  if (frame == nullptr) return -1;
  if (result < 0) return result;
  orvacam::lendSource(*frame, memory.file, orvacam::readWhole(file.get(), memory.file));
  return orvacam::mergeAndDeliver(algo, *frame, memory.images, nullptr, orvacam::Headers::WhereGiven);
}

/// The memory of a façade's conversions, made for the first one.
orvacam::ConversionMemory& kept(std::unique_ptr<orvacam::ConversionMemory>& memory) {
  if (memory == nullptr) memory = std::make_unique<orvacam::ConversionMemory>();
  return *memory;
}

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

/// Which header describes a plane in its file. Intended: all TIFF files carry the low-gain plane's, apart
/// from two flags.
enum class FileHeader : unsigned char { OfThePlane, OfTheLowPlane };

/// Converts a frame and writes a file of each plane that it yields.
template <typename Writer>
int writeFiles(const Conversion& conversion, const wchar_t* source, const conv_info_t& info,
               const wchar_t* destination, const char* extension, FileHeader header) {
  ProcessedHeader metaData;
  Writer writer;
  const unpacked_images_t& images = conversion.memory.images;
  int result = conversion.run(source, info);
  if (result < 0) return result;
  if (header == FileHeader::OfTheLowPlane) result = metaData.Read(images.pLowMetaData, images.uiMetaDataSize);
  for (const PlaneFile& plane : planeFiles(images)) {
    if (plane.image == nullptr) continue;
    if (header == FileHeader::OfThePlane) {
      metaData.ReInitialize(false);
      metaData.Read(plane.metaData, images.uiMetaDataSize);
    }
    metaData.SetIsHighFrame(plane.highFrame);
    metaData.SetIsMergedFrame(plane.mergedFrame);
    result = writer.CreateImageFile(
        conversion.algo.MakeProcessedFileName(destination, plane.suffix, extension), plane.image, metaData);
  }
  return result;
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
    default:  // intended: not an error; see there
      return utilOSWideCopyFile(pSource, pDestination);
  }
} catch (const std::out_of_range&) {
  throw;  // a destination without a dot, as documented
} catch (const std::exception&) {
  return -1;
}

int CAlgo::DoConvertBase(const wchar_t* pSource, const conv_info_t* pInfo, unpacked_images_t* pImages) {
  if (pImages == nullptr || pInfo == nullptr) return -1;
  orvacam::ConversionMemory memory;
  const int result = Conversion{*this, m_MergeSettings, m_MetaData, m_HWMerge, memory}.run(pSource, *pInfo);
  if (!memory.images.bLowImageRequest) return result;  // it did not get as far as the images
  *pImages = memory.images;
  memory.images = unpacked_images_t{};
  return result;
}

int CAlgo::DoConvertToFits(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination) {
  const Conversion conversion{*this, m_MergeSettings, m_MetaData, m_HWMerge, kept(m_pConversionMemory)};
  return writeFiles<CFitsInterface>(conversion, pSource, *pInfo, pDestination, ".fit",
                                    FileHeader::OfThePlane);
}

int CAlgo::DoConvertToTIFF(const wchar_t* pSource, const conv_info_t* pInfo, const wchar_t* pDestination) {
  const Conversion conversion{*this, m_MergeSettings, m_MetaData, m_HWMerge, kept(m_pConversionMemory)};
  return writeFiles<CTiffMaker>(conversion, pSource, *pInfo, pDestination, ".tiff",
                                FileHeader::OfTheLowPlane);
}

std::string CAlgo::MakeProcessedFileName(const wchar_t* pPath, const char* pSuffix, const char* pExtension) {
  orvacam::wideToNarrow(pPath, m_FileName, s_uiFileNameSize);
  const std::string path = m_FileName;
  const std::size_t dot = path.rfind('.');
  const std::string sourceExtension = path.substr(dot);  // intended: throws std::out_of_range without a dot
  std::string name = path.substr(0, dot);
  if (pSuffix != nullptr) name += pSuffix;
  if (pExtension != nullptr) name += pExtension;
  return name;
}
