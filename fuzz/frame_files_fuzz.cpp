// Frame files and reference files by name, through the façade: merged like the same bytes in memory, into any
// buffers, and converted to image files, which are read back.

#include <orvacam.h>

#include <filesystem>
#include <memory>

#include "caller_buffers.h"
#include "fuzz_support.h"
#include "output_folder.h"

namespace {

namespace fs = std::filesystem;
using fuzz::Bytes;

/// A façade, which is megabytes large, and what it delivers.
struct Result {
  Result() { images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true; }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  ~Result() { algo->FreeFramePointers(&images); }

  const std::unique_ptr<CAlgo> algo = std::make_unique<CAlgo>();
  unpacked_images_t images{};
  int status = 0;
};

void requireSame(const unsigned short* a, const unsigned short* b, unsigned long bytes) {
  FUZZ_REQUIRE((a == nullptr) == (b == nullptr));
  if (a != nullptr) FUZZ_REQUIRE(std::memcmp(a, b, bytes) == 0);
}

/// What the file gives, its bytes give too, once the façade knows the camera.
void compareWithMemory(const std::wstring& name, const Bytes& original) {
  Result file;
  file.status = file.algo->MergeFile(name.c_str(), &file.images, nullptr, nullptr, nullptr);
  FUZZ_REQUIRE(file.status >= -1);

  Bytes frame = original;
  CFrameMetaData metaData;
  if (metaData.Parse(frame.data(), fuzz::length(frame)) < 0 || metaData.GetBinarizeSize() > 1024 ||
      !CFrameMetaData::IsRCDFrame(frame.data(), fuzz::length(frame)) ||
      metaData.GetBinarizeSize() > frame.size())
    return;
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          metaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  metaData.GetDeviceType(camera.uiDeviceType);
  Result memory;
  memory.algo->Initialize(camera, nullptr);
  frame = original;
  memory.status = memory.algo->MergeImage(frame.data(), frame.size(), &memory.images, nullptr);
  if (memory.status < 0 || file.status < 0) return;
  requireSame(file.images.pLowImage, memory.images.pLowImage, memory.images.ulLowImageSize);
  requireSame(file.images.pHighImage, memory.images.pHighImage, memory.images.ulHighImageSize);
  requireSame(file.images.pMergedImage, memory.images.pMergedImage, memory.images.ulMergedImageSize);
}

/// An image file against the plane that it was made of: all of a TIFF file's pixels, and of a FITS file's,
/// whose bytes are swapped, those that its header does not displace.
void requirePixels(const fs::path& path, unsigned int format, const unsigned short* plane,
                   unsigned long bytes) {
  const Bytes file = fuzz::contentOf(path);
  const std::size_t header = format == ORVA_IMAGE_FORMAT_TIFF ? 656 + 384 : 5760;
  FUZZ_REQUIRE(file.size() == (format == ORVA_IMAGE_FORMAT_TIFF ? header + bytes : bytes));
  for (std::size_t at = header; at + 1 < file.size(); at += 2) {
    const unsigned int first = file[at], second = file[at + 1];
    FUZZ_REQUIRE(plane[(at - header) / 2] ==
                 (format == ORVA_IMAGE_FORMAT_TIFF ? first | second << 8 : first << 8 | second));
  }
}

/// Converts, and reads the files back: those of the planes that the same file merges into, and no others.
void convert(const std::wstring& source, const conv_info_t& info, const Result& planes, bool hdr) {
  const fuzz::OutputFolder folder;
  const auto algo = std::make_unique<CAlgo>();
  const int status = algo->ConvertFile(source.c_str(), &info, folder.file().wstring().c_str());
  FUZZ_REQUIRE(status >= -1);
  const auto files = std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator());
  if (info.uiFormat != ORVA_IMAGE_FORMAT_TIFF && info.uiFormat != ORVA_IMAGE_FORMAT_FITS) {
    FUZZ_REQUIRE(status == 0 && files == 1 && fs::exists(folder.path() / "frame.raw"));
    return;
  }
  if (status < 0) {
    FUZZ_REQUIRE(files == 0);
    return;
  }
  FUZZ_REQUIRE(planes.status >= 0 && files == (hdr ? 3 : 1));
  const char* const extension = info.uiFormat == ORVA_IMAGE_FORMAT_TIFF ? ".tiff" : ".fit";
  const auto require = [&](const char* suffix, const unsigned short* plane, unsigned long bytes) {
    requirePixels(folder.path() / (std::string("frame") + suffix + extension), info.uiFormat, plane, bytes);
  };
  const unpacked_images_t& images = planes.images;
  require(hdr ? "_LOW" : "", images.pLowImage, images.ulLowImageSize);
  if (!hdr) return;
  require("_HIGH", images.pHighImage, images.ulHighImageSize);
  require("_MERGED", images.pMergedImage, images.ulMergedImageSize);
}

/// The file into any mixture of buffers; headers go into those that are there, asked for or not.
void mergeIntoAnyBuffers(const std::wstring& source, const Bytes& frame, const conv_info_t& references,
                         const Result& whole) {
  const Bytes choices = fuzz::choicesOf(frame, 1, 64);
  fuzz::Input input(choices.data(), choices.size());
  const unpacked_images_t& all = whole.images;
  fuzz::NeededSizes needed{input.word(), input.word(), input.word() % 1200};
  if (whole.status >= 0) needed = {all.ulLowImageSize, all.ulMergedImageSize, all.uiMetaDataSize};
  fuzz::CallerBuffers own(needed, input);
  const int status = whole.algo->MergeFile(source.c_str(), &own.images, nullptr, references.pDSNUFileName,
                                           references.pPRNUFileName);
  own.check();
  FUZZ_REQUIRE((status >= 0) == (whole.status >= 0 && own.suffice(true)));
  if (status >= 0 && own.images.bLowImageRequest)
    FUZZ_REQUIRE(std::memcmp(own.images.pLowImage, all.pLowImage, needed.plane) == 0);
}

}  // namespace

FUZZ_TARGET(data, size) {
  fuzz::Input input(data, size);
  const unsigned int options = input.byte();
  const unsigned int frameLength = input.word(), dsnuLength = input.word();
  const Bytes frame = input.bytes(frameLength), dsnuBytes = input.bytes(dsnuLength), prnuBytes = input.rest();
  for (const Bytes& bytes : {frame, dsnuBytes, prnuBytes})
    for (const bool binned : {false, true}) {
      const std::uint64_t claimed = fuzz::claimedPlane(bytes, binned);
      if (claimed > 128 << 10 && claimed <= 16 << 20) return 0;  // takes its time and is nothing new
    }
  const fuzz::MemoryFile source(frame), dsnu(dsnuBytes), prnu(prnuBytes);
  const std::wstring sourceName = source.path(), dsnuName = dsnu.path(), prnuName = prnu.path();
  const wchar_t* const dsnuGiven = (options & 1) == 0 ? dsnuName.c_str() : nullptr;
  const wchar_t* const prnuGiven = (options & 2) == 0 ? prnuName.c_str() : nullptr;

  compareWithMemory(sourceName, frame);
  Result result;
  unpacked_stats_t stats{};
  stats.statsMerged.bRequest = (options & 4) == 0;
  result.images.bMetaDataRequest = true;
  result.status = result.algo->MergeFile(sourceName.c_str(), &result.images, &stats, dsnuGiven, prnuGiven);
  result.algo->FreeStatsPointers(&stats);

  Bytes parsed = frame;
  CFrameMetaData metaData;
  metaData.Parse(parsed.data(), fuzz::length(parsed));
  const conv_info_t info{options >> 3 & 3, dsnuGiven, prnuGiven};
  convert(sourceName, info, result, metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
  mergeIntoAnyBuffers(sourceName, frame, info, result);
  return 0;
}
