// A pair of reference files: the input split in two.

#include <orvacam.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "fuzz_support.h"

namespace {

void write(const std::filesystem::path& path, const std::uint8_t* data, std::size_t size) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  FUZZ_REQUIRE(file != nullptr);
  if (size > 0) FUZZ_REQUIRE(std::fwrite(data, 1, size, file) == size);
  std::fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("orvacam_fuzz_" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::size_t half = size / 2;
  write(folder / "dsnu", data, half);
  write(folder / "prnu", half > 0 ? data + half : data, size - half);
  const std::wstring dsnu = (folder / "dsnu").wstring();
  const std::wstring prnu = (folder / "prnu").wstring();

  CHWMergeReferenceFrames merge;
  ref_frames_t planes{};
  merge.CreateReferenceFrames(dsnu.c_str(), prnu.c_str(), 10.0, 1.0, &planes);
  delete[] planes.pAdditiveLow;
  delete[] planes.pAdditiveHigh;
  delete[] planes.pMultiplicativeLow;
  delete[] planes.pMultiplicativeHigh;
  merge.CreateReferenceFrames(dsnu.c_str(), nullptr, 10.0, 1.0, nullptr);
  merge.CreateReferenceFrames(nullptr, prnu.c_str(), 10.0, 1.0, nullptr);
  std::filesystem::remove_all(folder);
  return 0;
}
