#include "common.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>

namespace tool {

namespace fs = std::filesystem;

void complain(const std::string& subject, const std::string& what) {
  std::cerr << "orvacam: " << subject << (subject.empty() ? "" : ": ") << what << '\n';
}

int forEachFile(const std::vector<std::string>& files, const std::function<void(const std::string&)>& task) {
  int exitCode = 0;
  for (const std::string& file : files) {
    try {
      task(file);
    } catch (const std::exception& failure) {
      complain(file, failure.what());
      exitCode = 1;
    }
  }
  return exitCode;
}

Bytes readFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0)
    throw Failure(std::string("cannot be opened: ") + std::strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Failure("is not a regular file");
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) throw Failure(std::string("cannot be opened: ") + std::strerror(errno));
  Bytes bytes(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  ssize_t got = 1;
  while (done < bytes.size() && got > 0) {
    got = read(file, bytes.data() + done, bytes.size() - done);
    if (got < 0 && errno == EINTR)
      got = 1;
    else if (got > 0)
      done += static_cast<std::size_t>(got);
  }
  const int error = got < 0 ? errno : 0;
  close(file);
  if (error != 0) throw Failure(std::string("cannot be read: ") + std::strerror(error));
  bytes.resize(done);
  return bytes;
}

Frame::Frame(const std::string& path) : bytes(readFile(path)) {
  if (bytes.empty()) throw Failure("is empty");
  const auto length = static_cast<unsigned int>(std::min<std::size_t>(bytes.size(), 0xFFFFFFFFu));
  if (!CFrameMetaData::IsRCDFrame(bytes.data(), length))
    throw Failure("is not a camera frame: it does not start with \"Meta\"");
  // The parser clears sign bits in what it reads; the frame stays as it came.
  Bytes copy(bytes.begin(),
             bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(length, 1u << 17)));
  if (header.Parse(copy.data(), static_cast<unsigned int>(copy.size())) < 0)
    throw Failure("its header is cut off or damaged (" + std::to_string(bytes.size()) +
                  " bytes in the file, " + std::to_string(header.GetBinarizeSize()) + " in the header)");
}

std::string whyNotDecoded(Frame& frame) {
  unsigned int width = 0;
  unsigned int height = 0;
  if (frame.header.GetFrameDimensionsBinned(width, height) != 0)
    return "its header has an image that ends before it starts";
  unsigned int wanted = 0;
  const std::size_t header = frame.header.GetBinarizeSize();
  const std::size_t given = frame.bytes.size() > header ? frame.bytes.size() - header : 0;
  const bool known = frame.header.GetImageSizeBytes(wanted) == 0;
  if (known && given < wanted)
    return "is truncated: " + std::to_string(given) + " of " + std::to_string(wanted) +
           " bytes of pixels from byte " + std::to_string(header) + " on";
  unsigned int bits = 0;
  frame.header.GetPixelSize(bits);
  return "cannot be decoded: " + std::to_string(width) + " x " + std::to_string(height) + " pixels of " +
         std::to_string(bits) + " bits in " + std::to_string(given) + " bytes";
}

OutputFile::OutputFile(const fs::path& path) : m_path(path) {
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  m_temporary = (folder / ("." + path.filename().string() + ".XXXXXX" + path.extension().string())).string();
  const int file = mkstemps(m_temporary.data(), static_cast<int>(path.extension().string().size()));
  if (file < 0) {
    const int error = errno;
    m_committed = true;  // nothing to remove
    throw Failure("cannot write " + path.string() + ": " + std::strerror(error));
  }
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(file, 0666 & ~mask);
  close(file);
}

OutputFile::~OutputFile() {
  if (!m_committed) unlink(m_temporary.c_str());
}

void OutputFile::write(const Bytes& bytes) {
  std::FILE* const file = std::fopen(m_temporary.c_str(), "wb");
  const bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const bool closed = file != nullptr && std::fclose(file) == 0;
  if (!written || !closed) throw Failure("cannot write " + m_path.string() + ": " + std::strerror(errno));
}

void OutputFile::commit() {
  if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0)
    throw Failure("cannot write " + m_path.string() + ": " + std::strerror(errno));
  m_committed = true;
}

std::wstring wide(const std::string& text) {
  // Bytes that are no text in the program's locale are taken as UTF-8 by the library on the way back; going
  // through the library's own conversion keeps both ways alike.
  if (text.size() >= 1024) throw Failure("the path is too long");
  return utilCharToWideStrStatic(text.c_str());
}

const KeyInfo& keyInfo(unsigned int key) {
  static constexpr std::array<KeyInfo, ORVA_META_KEY_COUNT> infos = {{
      {"MagicNumber", ""},
      {"MetadataLength", "byte"},
      {"MetadataVersion", ""},
      {"BackSideIlluminated", ""},
      {"BaseTemperature", "0.1 degC"},
      {"HorizontalBinning", ""},
      {"VerticalBinning", ""},
      {"BlackLevelAdjust", ""},
      {"BlackLevelSun", ""},
      {"BlackLevelAdjustHigh", ""},
      {"BlackLevelSunHigh", ""},
      {"CameraModel", ""},
      {"CaptureDate", ""},
      {"CaptureTime", "s"},
      {"CaptureTimeNsecs", "ns"},
      {"SensorCoolerTemp", "0.1 degC"},
      {"CoolerDutyCycle", "1/255"},
      {"", ""},
      {"CorrelatedMultipleSample", ""},
      {"DataPixelBitDepth", "bit"},
      {"DataZeroPoint", ""},
      {"DeadPixelCorrection", ""},
      {"ExposureTime", "10 us"},
      {"", ""},
      {"FPGATemperature", "0.1 degC"},
      {"FrameNumber", ""},
      {"LDRGain", ""},
      {"GlobalGain", ""},
      {"HDRGain", ""},
      {"GPSLatitudeRaw", "1/600000 deg"},
      {"GPSLatitudeDegrees", "deg"},
      {"GPSLatitudeMinutes", "min"},
      {"GPSLatitudeHemisphere", ""},
      {"GPSLongitudeRaw", "1/600000 deg"},
      {"GPSLongitudeDegrees", "deg"},
      {"GPSLongitudeMinutes", "min"},
      {"GPSLongitudeHemisphere", ""},
      {"GlobalReset", ""},
      {"GPSError", ""},
      {"GPSLocked", ""},
      {"HDRMode", ""},
      {"HighGainADUe", "0.001"},
      {"HorizontalPixels", "px"},
      {"HorizontalPixelSize", "0.1 um"},
      {"HorzScanDirInvert", ""},
      {"IlluminStartDelay", ""},
      {"IlluminStopDelay", ""},
      {"", ""},
      {"", ""},
      {"ImageStartColumn", "px"},
      {"ImageStartRow", "px"},
      {"ImageStopColumn", "px"},
      {"ImageStopRow", "px"},
      {"StartingExposureRow", "px"},
      {"", ""},
      {"", ""},
      {"TestIsHighFrame", ""},
      {"ExtraFlagBit7", ""},
      {"TestIsMergedFrame", ""},
      {"", ""},
      {"TestIsStackedFrame", ""},
      {"LowDarkCurrent", ""},
      {"LowNoise", ""},
      {"MergeGainRatio", "0.001"},
      {"MergeLineOffset", ""},
      {"NonRowAllignedImage", ""},
      {"NumberOfDataChannels", ""},
      {"PixelOrderedImage", ""},
      {"PostReferenceRows", "row"},
      {"PreReferenceRows", "row"},
      {"PostRowRefPixels", "px"},
      {"PreRowRefPixels", "px"},
      {"SensorPixelBitDepth", "bit"},
      {"SensorReadQuadrants", ""},
      {"SensorChipTemp", "0.1 degC"},
      {"CameraSerialNumber", ""},
      {"ShutterCloseDelay", ""},
      {"ShutterOpenDelay", ""},
      {"TemperatureSetPoint", "0.1 degC"},
      {"TestHighGainAbsolute", "0.01"},
      {"TestLowGainAbsolute", "0.01"},
      {"TrackingFramesPerImageFrame", ""},
      {"TrackingStartColumn", "px"},
      {"TrackingStartRow", "px"},
      {"TrackingStopColumn", "px"},
      {"TrackingStopRow", "px"},
      {"TestUseShiftedAveraging", ""},
      {"LibInfoString", ""},
      {"AppInfoString", ""},
      {"FirmwareVersion", ""},
      {"VerticalPixels", "px"},
      {"VerticalPixelSize", "0.1 um"},
      {"VertScanDirInvert", ""},
      {"ImageOffset", "byte"},
      {"MetaInfo", ""},
      {"PixelFormat", ""},
      {"OtherType", ""},
      {"OtherTypeLength", "byte"},
      {"OtherTypeOffset", "byte"},
      {"Reserved", ""},
  }};
  return infos.at(key);
}

}  // namespace tool
