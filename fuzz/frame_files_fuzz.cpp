// Frame files and reference files by name, through the façade: merged like the same bytes in memory, and
// converted to image files.

#include <orvacam.h>

#include <filesystem>
#include <memory>

#include "fuzz_support.h"

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

std::uint64_t claimedBytes(Bytes bytes) {
  CFrameMetaData metaData;
  unsigned int width = 0, height = 0;
  metaData.Parse(bytes.data(), fuzz::length(bytes));
  if (metaData.GetFrameDimensions(width, height) < 0) return 0;
  return std::uint64_t{2} * width * height;
}

/// The folder of the converted files, empty at the start of each run and gone at its end.
class Folder {
 public:
  Folder() : m_path(fs::temp_directory_path() / ("orvacam_fuzz_" + std::to_string(::getpid()))) {
    fs::create_directories(m_path);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  std::wstring file() const { return (m_path / "frame.raw").wstring(); }
  const fs::path& path() const { return m_path; }

 private:
  fs::path m_path;
};

void convert(const std::wstring& source, const Bytes& frame, const conv_info_t& info) {
  const Folder folder;
  const auto algo = std::make_unique<CAlgo>();
  const int status = algo->ConvertFile(source.c_str(), &info, folder.file().c_str());
  FUZZ_REQUIRE(status >= -1);
  const std::uint64_t pixels = claimedBytes(frame);
  unsigned int files = 0;
  for (const auto& entry : fs::directory_iterator(folder.path())) {
    ++files;
    const std::string extension = entry.path().extension();
    FUZZ_REQUIRE(extension == (info.uiFormat == 1 ? ".tiff" : info.uiFormat == 2 ? ".fit" : ".raw"));
    // Never more than the header's claim: pixels, or a header and pixels.
    FUZZ_REQUIRE(entry.file_size() <= pixels + 656 + 65535);
  }
  FUZZ_REQUIRE(files <= 3);
  if (info.uiFormat != 1 && info.uiFormat != 2) FUZZ_REQUIRE(status == 0 && files == 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned int options = input.byte();
  const unsigned int frameLength = input.word(), dsnuLength = input.word();
  const Bytes frame = input.bytes(frameLength), dsnuBytes = input.bytes(dsnuLength), prnuBytes = input.rest();
  for (const Bytes& bytes : {frame, dsnuBytes, prnuBytes}) {
    const std::uint64_t claimed = claimedBytes(bytes);
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
  result.algo->MergeFile(sourceName.c_str(), &result.images, &stats, dsnuGiven, prnuGiven);
  result.algo->FreeStatsPointers(&stats);
  convert(sourceName, frame, {options >> 3 & 3, dsnuGiven, prnuGiven});
  return 0;
}
