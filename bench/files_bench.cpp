// Files: image files beside plain writes and beside the libraries that a user would pick, and the conversion
// of a raw frame file. They lie in the folder for temporary files, in the system's cache.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fitsio.h>
#include <orvacam.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"
#include "Memory.h"

namespace {

using namespace orvacam::bench;
namespace fs = std::filesystem;

class Folder {
 public:
  Folder() : m_path(fs::temp_directory_path() / ("orvacam-bench-" + std::to_string(getpid()))) {
    fs::create_directory(m_path);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { fs::remove_all(m_path); }
  std::string file(const std::string& name) const { return m_path / name; }

 private:
  fs::path m_path;
};

/// What any file costs from memory as a program has it: open, write, close.
void writeFile(const std::string& path, int flags, const void* data, std::size_t bytes) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | flags, 0600);
  require(file >= 0 && write(file, data, bytes) == static_cast<ssize_t>(bytes) && close(file) == 0,
          path.c_str());
}

void readFile(const std::string& path, void* data, std::size_t bytes) {
  const int file = open(path.c_str(), O_RDONLY);
  require(file >= 0 && read(file, data, bytes) == static_cast<ssize_t>(bytes), path.c_str());
  close(file);
}

std::vector<unsigned char> contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeByCfitsio(const std::string& path, Plane& plane, unsigned int side) {
  fitsfile* file = nullptr;
  int status = 0;
  std::array<long, 2> sides = {side, side};
  fits_create_file(&file, ("!" + path).c_str(), &status);
  fits_create_img(file, USHORT_IMG, 2, sides.data(), &status);
  fits_write_img(file, TUSHORT, 1, static_cast<LONGLONG>(plane.size()), plane.data(), &status);
  fits_close_file(file, &status);
  require(status == 0, "CFITSIO");
}

void writeByLibtiff(const std::string& path, Plane& plane, unsigned int side) {
  TIFF* const file = TIFFOpen(path.c_str(), "w");
  require(file != nullptr, "libtiff");
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, side);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, side);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(file, 0));
  for (unsigned int y = 0; y < side; ++y)
    require(TIFFWriteScanline(file, plane.data() + std::size_t{y} * side, y, 0) == 1, "libtiff");
  TIFFClose(file);
}

CFrameMetaData headerOf(unsigned int side) {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(side, side);
  header.SetPixelEndianFormat(true);
  return header;
}

/// Its size and every pixel; the header of a FITS file takes the room of the last ones.
void checkImageFile(const std::string& path, bool tiff, const Plane& plane) {
  const std::size_t headerBytes = tiff ? 656 + 384 : 5760;
  const std::size_t pixelBytes = 2 * plane.size() - (tiff ? 0 : headerBytes);
  const std::vector<unsigned char> file = contentOf(path);
  require(file.size() == headerBytes + pixelBytes, "size of an image file");
  for (std::size_t i = 0; i < pixelBytes; ++i)
    require(file[headerBytes + i] == (plane[i / 2] >> ((i % 2 == 0) == tiff ? 0 : 8) & 255),
            "pixels of an image file");
}

// ---- One plane

void fitsFile(benchmark::State& state, unsigned int side) {
  Plane plane = hdrFrame(side).high;
  const CFrameMetaData header = headerOf(side);
  const Folder folder;
  const std::string path = folder.file("frame.fit");
  const std::size_t bytes = 2 * plane.size();
  const auto convert = [&] {
    require(CFitsInterface().CreateImageFile(path, plane.data(), header) == 0, path.c_str());
  };
  convert();
  checkImageFile(path, false, plane);

  const std::string plain = folder.file("plain");
  const std::string other = folder.file("other.fit");
  compare(state, convert,
          {{"write", [&] { writeFile(plain, 0, plane.data(), bytes); }},
           {"CFITSIO", [&] { writeByCfitsio(other, plane, side); }}});
  state.counters["bytes"] = static_cast<double>(bytes);
}

void tiffFile(benchmark::State& state, unsigned int side) {
  Plane plane = hdrFrame(side).high;
  CFrameMetaData header = headerOf(side);
  const Folder folder;
  const std::string path = folder.file("frame.tiff");
  const std::size_t bytes = 2 * plane.size();
  const auto convert = [&] {
    require(CTiffMaker().CreateImageFile(path, plane.data(), header) > 0, path.c_str());
  };
  convert();
  checkImageFile(path, true, plane);

  const std::string plain = folder.file("plain");
  const std::string other = folder.file("other.tiff");
  compare(state, convert,
          {{"write", [&] { writeFile(plain, O_TRUNC, plane.data(), bytes); }},  // as the operation does
           {"libtiff", [&] { writeByLibtiff(other, plane, side); }}});
  state.counters["bytes"] = static_cast<double>(bytes);
}

// ---- A raw frame file

void convertFile(benchmark::State& state, unsigned int side, unsigned int format) {
  const HdrFrame& frame = hdrFrame(side);
  const Folder folder;
  const std::string source = folder.file("frame.raw");
  writeFile(source, O_TRUNC, frame.bytes.data(), frame.bytes.size());
  const std::string destination = folder.file("out.raw");
  const std::wstring wideSource(source.begin(), source.end());
  const std::wstring wideDestination(destination.begin(), destination.end());
  const conv_info_t info{format, nullptr, nullptr};
  const auto convertBy = [&](CAlgo& algo) {
    require(algo.ConvertFile(wideSource.c_str(), &info, wideDestination.c_str()) >= 0, "ConvertFile");
  };
  const double grown = residentGrowthOf([&] {
    CAlgo algo;
    convertBy(algo);
  });
  CAlgo algo;
  const auto convert = [&] { convertBy(algo); };
  convert();
  const bool tiff = format == ORVA_IMAGE_FORMAT_TIFF;
  PlainMerge plain(frame.pixels());
  plain.run(frame, false);
  const std::string ending = tiff ? ".tiff" : ".fit";
  checkImageFile(folder.file("out_LOW" + ending), tiff, plain.low);
  checkImageFile(folder.file("out_HIGH" + ending), tiff, plain.high);
  checkImageFile(folder.file("out_MERGED" + ending), tiff, plain.merged);

  std::vector<unsigned char> bytes(frame.bytes.size());
  const auto readAndWrite = [&] {
    readFile(source, bytes.data(), bytes.size());
    for (const char* const name : {"plain1", "plain2", "plain3"})
      writeFile(folder.file(name), tiff ? O_TRUNC : 0, frame.low.data(), 2 * frame.pixels());
  };
  compare(state, convert, {{"read and write", readAndWrite}});
  state.counters["bytes"] = static_cast<double>(frame.bytes.size() + 6 * frame.pixels());
  state.counters["grown"] = grown;
  state.counters["given"] = static_cast<double>(frame.bytes.size() + 6 * frame.pixels());
}

}  // namespace

void orvacam::bench::addFileRows(bool small) {
  const unsigned int side = fullSide(small);
  addRow("FITS file of a plane", side, [side](benchmark::State& state) { fitsFile(state, side); });
  addRow("TIFF file of a plane", side, [side](benchmark::State& state) { tiffFile(state, side); });
  addRow("ConvertFile to FITS", side,
         [side](benchmark::State& state) { convertFile(state, side, ORVA_IMAGE_FORMAT_FITS); });
  addRow("ConvertFile to TIFF", side,
         [side](benchmark::State& state) { convertFile(state, side, ORVA_IMAGE_FORMAT_TIFF); });
}
