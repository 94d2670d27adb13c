// Fixed image files, and regions cut out of packed frames.

#include <fcntl.h>
#include <orvacam/facade/CAlgo.h>
#include <orvacam/types/device_types.h>
#include <orvacam/version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "face/Corrections.h"
#include "face/Frames.h"
#include "metadata/FrameGeometry.h"
#include "metadata/HeaderFields.h"
#include "support/QuietLog.h"

using namespace orvacam::face;
using orvacam::packedBytes;

namespace {

/// A file, or one in a folder, by the descriptor that is held open: the machinery takes wide names, which not
/// every name of the system survives.
std::wstring wideName(const Descriptor& held, const wchar_t* fileInFolder = L"") {
  return L"/proc/self/fd/" + std::to_wstring(held.number()) + fileInFolder;
}

constexpr const char* suffixes[] = {"", "_LOW", "_HIGH", "_MERGED"};

/// A folder of its own beside the files to come: they appear under their names when all of them are whole.
class WorkFolder {
 public:
  WorkFolder(const std::string& parent, std::string extension)
      : m_path(parent + "/.orvacam-XXXXXX"), m_extension(std::move(extension)) {
    if (mkdtemp(m_path.data()) == nullptr) failIo(parent, "cannot be written");
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder() {
    for (const char* const suffix : suffixes)
      unlink(file(suffix).c_str());
    rmdir(m_path.c_str());
  }

  const std::string& path() const { return m_path; }
  std::string file(const char* suffix) const { return m_path + "/frame" + suffix + m_extension; }
  /// -1 where there is none.
  off_t sizeOf(const char* suffix) const {
    struct stat status {};
    return stat(file(suffix).c_str(), &status) == 0 ? status.st_size : -1;
  }

 private:
  std::string m_path, m_extension;
};

/// A frame's bytes and header, checked for the machinery's own reader.
void requireConvertible(const orva_frame& frame) {
  constexpr std::size_t longestHeader = 1024;  // that the machinery reads from files
  frame.look.requireDecodable();
  const HeaderValues& header = frame.values();
  if (header.statedLength() > longestHeader)
    fail(ORVA_BAD_ARGUMENT, "has a header of " + std::to_string(header.statedLength()) +
                                " bytes; fixed files are made of frames with at most 1024");
  if (!header.hasReadableTime())
    fail(ORVA_BAD_ARGUMENT, "has a capture time that cannot be read, and fixed files need one");
}

/// The path without what follows its last dot. Throws Failure.
std::string stemOf(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) throw Failure{ORVA_BAD_ARGUMENT, "a destination needs a dot", 0, 0, path};
  return path.substr(0, dot);
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

/// A correction file of a conversion; nothing for none. Throws Failure where it does not cover the frame.
std::unique_ptr<Descriptor> heldReference(const char* path, const char* what, const orva_frame& frame) {
  const auto reference = readReference(what, path);
  if (reference == nullptr) return nullptr;
  rowOfFrame(coverageOf(*reference), frame.look);
  return std::make_unique<Descriptor>(path, O_RDWR);  // the machinery opens it for writing, too
}

/// Lets the machinery convert into the work folder. Throws Failure unless all files are whole.
void convert(const Descriptor& source, int format, const Descriptor* dsnu, const Descriptor* prnu,
             const WorkFolder& work) {
  const Descriptor folder(work.path(), O_RDONLY | O_DIRECTORY);
  const std::wstring dsnuName = dsnu != nullptr ? wideName(*dsnu) : L"";
  const std::wstring prnuName = prnu != nullptr ? wideName(*prnu) : L"";
  const conv_info_t request{static_cast<unsigned int>(format), dsnu != nullptr ? dsnuName.c_str() : nullptr,
                            prnu != nullptr ? prnuName.c_str() : nullptr};
  const auto algo = std::make_unique<CAlgo>();
  errno = 0;
  const int status =
      algo->ConvertFile(wideName(source).c_str(), &request, wideName(folder, L"/frame.raw").c_str());
  off_t size = -1;
  for (const char* const suffix : suffixes)
    size = std::max(size, work.sizeOf(suffix));
  const bool whole = std::all_of(std::begin(suffixes), std::end(suffixes), [&](const char* suffix) {
    return work.sizeOf(suffix) < 0 || work.sizeOf(suffix) == size;
  });
  // The status is that of the last file; those before it are as long when they are complete.
  if (status < 0 || size < 0 || !whole) failIo(work.path(), "the files cannot be written completely");
}

void publish(const WorkFolder& work, const std::string& stem, const char* extension) {
  for (const char* const suffix : suffixes) {
    if (work.sizeOf(suffix) < 0) continue;
    const std::string target = stem + suffix + extension;
    if (std::rename(work.file(suffix).c_str(), target.c_str()) != 0) failIo(target, "cannot be written");
  }
}

// ---- Regions

void requireCuttable(const FrameLook& look, const orva_geometry& region) {
  look.requireDecodable();
  const bool packed = look.plan().kind == orvacam::StreamKind::PackedPair ||
                      look.plan().kind == orvacam::StreamKind::PackedSingle;
  if (look.header().device() != ORVA_DEVICE_GSENSE4040 || !packed)
    fail(ORVA_UNSUPPORTED_SENSOR, "cannot be cut: regions are cut out of packed frames of a GSENSE4040");
  const orva_geometry whole = look.geometry();
  if (region.x % 2 != 0 || region.image_width % 2 != 0)
    fail(ORVA_BAD_ARGUMENT, "pixels are packed in pairs, so that column and width are even");
  const auto inside = [](std::uint64_t first, std::uint64_t count, std::uint64_t all) {
    return count > 0 && first + count <= all;
  };
  if (!inside(region.x, region.image_width, whole.image_width) ||
      !inside(region.y, region.image_height, whole.image_height))
    fail(ORVA_BAD_ARGUMENT, "the region does not lie inside the image of " +
                                sizeText(whole.image_width, whole.image_height) + " pixels");
}

constexpr unsigned int writtenHeader = orvacam::header::writtenSize;

/// The sensor's columns, or rows, behind a region's pixels. The last pixel may stand for fewer of them than
/// the others: more than the image has would not fit the header.
unsigned int unbinnedSize(unsigned int first, unsigned int count, unsigned int binning,
                          const orvacam::FrameGeometry::Axis& axis) {
  const std::uint64_t factor = std::max(1U, binning);
  return static_cast<unsigned int>(std::min(count * factor, axis.image - first * factor));
}

/// The header of the region as a frame of its own, without reference pixels and rows. Its rows count from 0:
/// a start row would be looked up in correction frames of the region's size.
void writeRegionHeader(const HeaderValues& of, const orva_geometry& region, unsigned char* target) {
  constexpr std::size_t chipTemperatureAt = orvacam::header::offsetOf(ORVA_META_KEY_SENSOR_CHIP_TEMP);
  const orvacam::FrameGeometry whole(of);
  CFrameMetaData header(of);
  header.SetDimensions(
      unbinnedSize(region.x, region.image_width, of.number(ORVA_META_KEY_HORIZONTAL_BINNING),
                   whole.columns()),
      unbinnedSize(region.y, region.image_height, of.number(ORVA_META_KEY_VERTICAL_BINNING), whole.rows()));
  for (const ORVA_META_KEYS key :
       {ORVA_META_KEY_PRE_REFERENCE_ROWS, ORVA_META_KEY_POST_REFERENCE_ROWS, ORVA_META_KEY_PRE_ROW_REF_PIXELS,
        ORVA_META_KEY_POST_ROW_REF_PIXELS, ORVA_META_KEY_OTHER_TYPE_LENGTH, ORVA_META_KEY_OTHER_TYPE_OFFSET})
    header.SetValue(key, "0");
  header.Binarize(target, writtenHeader);
  // It is written with another encoding than it is read with.
  std::memcpy(target + chipTemperatureAt, of.bytes().data() + chipTemperatureAt, 2);
}

FileBytes cut(const orva_frame& frame, const orva_geometry& region) {
  const orvacam::DecodePlan& plan = frame.look.plan();
  const std::size_t planes = frame.look.isPair() ? 2 : 1;
  const orvacam::StreamSection& before = plan.stream.sections[0];
  const orvacam::StreamSection& image = plan.stream.sections[1];
  const std::size_t rowBytes = orvacam::bytesPerPair * image.pairsOfRow();
  const std::size_t cutBytes = packedBytes(region.image_width);
  const std::size_t rows = planes * region.image_height;
  FileBytes out{allocateBytes(writtenHeader + rows * cutBytes), writtenHeader + rows * cutBytes};
  writeRegionHeader(frame.values(), region, out.bytes.get());
  const unsigned char* row = frame.bytes + plan.firstByte +
                             before.rows * orvacam::bytesPerPair * before.pairsOfRow() +
                             planes * region.y * rowBytes + packedBytes(image.before) + packedBytes(region.x);
  unsigned char* target = out.bytes.get() + writtenHeader;
  for (std::size_t i = 0; i < rows; ++i, row += rowBytes, target += cutBytes)
    std::memcpy(target, row, cutBytes);
  return out;
}

}  // namespace

extern "C" {

const char* orva_version(void) {
  return ORVACAM_VERSION_STRING;
}

orva_status orva_convert_file(const char* source, int format, const char* dsnu, const char* prnu,
                              const char* destination) {
  return guarded([&] {
    const std::string from = &required(source, "the source");
    const std::string to = &required(destination, "the destination");
    if (format != ORVA_FILE_TIFF && format != ORVA_FILE_FITS)
      fail(ORVA_BAD_ARGUMENT, std::to_string(format) + " is no format of fixed files");
    const char* const extension = format == ORVA_FILE_TIFF ? ".tiff" : ".fit";
    const std::string stem = stemOf(to);
    const std::unique_ptr<const orva_frame> read = readFrame(from.c_str());
    const orva_frame& frame = *read;
    withFrame(frame, [&] { requireConvertible(frame); });
    orvacam::makeLogQuietly();
    const auto dsnuFile = heldReference(dsnu, "the DSNU reference", frame);
    const auto prnuFile = heldReference(prnu, "the PRNU reference", frame);
    const Descriptor input(from, O_RDONLY);
    const WorkFolder work(folderOf(stem), extension);
    convert(input, format, dsnuFile.get(), prnuFile.get(), work);
    publish(work, stem, extension);
  });
}

orva_status orva_frame_cut(const orva_frame* frame, uint32_t x, uint32_t y, uint32_t width, uint32_t height,
                           orva_frame** out) {
  return handOut(out, [&] {
    const orva_frame& whole = required(frame, "the frame");
    orva_geometry region{};
    region.x = x;
    region.y = y;
    region.image_width = width;
    region.image_height = height;
    withFrame(whole, [&] { requireCuttable(whole.look, region); });
    return new orva_frame(cut(whole, region), std::string());
  });
}
}
