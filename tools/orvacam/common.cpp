#include "common.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <new>

namespace tool {

namespace fs = std::filesystem;
namespace sim = orvacam::simulator;

void complain(const std::string& subject, const std::string& what) {
  std::cerr << "orvacam: " << subject << (subject.empty() ? "" : ": ") << what << '\n';
}

std::string truncated(const std::string& what, std::size_t needed, std::size_t given) {
  return "is truncated: it needs " + std::to_string(needed) + " bytes for its " + what +
         ", and ends at byte " + std::to_string(given);
}

int report(const std::string& file, const std::function<void()>& task) {
  try {
    task();
    return 0;
  } catch (const std::bad_alloc&) {
    complain(file, "there is not enough memory for it");
  } catch (const std::exception& failure) {
    complain(file, failure.what());
  }
  return 1;
}

int forEachFile(const std::vector<std::string>& files, const std::function<void(const std::string&)>& task) {
  int exitCode = 0;
  for (const std::string& file : files)
    exitCode |= report(file, [&] { task(file); });
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

HeldPath::HeldPath(const std::string& path, int flags) : m_file(open(path.c_str(), flags | O_CLOEXEC)) {
  if (m_file < 0) throw Failure("cannot be opened: " + std::string(std::strerror(errno)));
}

HeldPath::~HeldPath() {
  close(m_file);
}

std::wstring HeldPath::wide(const wchar_t* fileInFolder) const {
  return L"/proc/self/fd/" + std::to_wstring(m_file) + (*fileInFolder != 0 ? L"/" : L"") + fileInFolder;
}

namespace {

/// What of a header decides how its pixels lie.
sim::HeaderFields fieldsOf(CFrameMetaData& header) {
  const auto number = [&header](ORVA_META_KEYS key) { return header.Value(key).GetValueUint(); };
  sim::HeaderFields f;
  meta_data_value_t model{};
  header.GetValue(ORVA_META_KEY_CAMERA_MODEL, model);
  f.model.assign(model.text, strnlen(model.text, sizeof model.text));
  f.dataBits = number(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH);
  f.hdr = header.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  f.correlatedMultipleSampling = header.Value(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE).GetValueBool();
  f.width = f.height = 0;
  header.GetImageDimensions(f.width, f.height);
  f.startRow = number(ORVA_META_KEY_IMAGE_START_ROW);
  f.preRefPixels = number(ORVA_META_KEY_PRE_ROW_REF_PIXELS);
  f.postRefPixels = number(ORVA_META_KEY_POST_ROW_REF_PIXELS);
  f.preRefRows = number(ORVA_META_KEY_PRE_REFERENCE_ROWS);
  f.postRefRows = number(ORVA_META_KEY_POST_REFERENCE_ROWS);
  f.horizontalBinning = number(ORVA_META_KEY_HORIZONTAL_BINNING);
  f.verticalBinning = number(ORVA_META_KEY_VERTICAL_BINNING);
  return f;
}

std::string sizeText(unsigned int width, unsigned int height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

/// What is wrong with a frame that starts with "Meta" and does not parse.
std::string whyNotParsed(const Bytes& bytes) {
  constexpr std::size_t prefix = 8;
  constexpr std::size_t sizes[] = {0, 156, 246, 384, 384};  // of the header versions
  if (bytes.size() < prefix) return truncated("header", prefix, bytes.size());
  const std::size_t stated = bytes[4] * 256u + bytes[5];
  const unsigned int version = bytes[6] * 256u + bytes[7];
  if (version < 1 || version > 4)
    return "has a damaged header: its version " + std::to_string(version) + " at byte 6 is none of 1 to 4";
  const std::size_t needed = std::max(stated, sizes[version]);
  if (bytes.size() < needed) return truncated("header", needed, bytes.size());
  // All other fields take any bytes.
  return "has a damaged header: its capture time at byte 152 cannot be read";
}

}  // namespace

Frame::Frame(const std::string& path) : bytes(readFile(path)) {
  constexpr std::size_t longestHeader = 0xFFFF + 1;
  // The parser clears sign bits in what it reads; the frame stays as it came.
  Bytes start(bytes.begin(),
              bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), longestHeader)));
  const auto length = static_cast<unsigned int>(start.size());
  if (bytes.empty()) throw Failure("is empty");
  if (!CFrameMetaData::IsRCDFrame(start.data(), length))
    throw Failure("is not a camera frame: it does not start with \"Meta\"");
  if (header.Parse(start.data(), length) < 0) throw Failure(whyNotParsed(bytes));
  fields = fieldsOf(header);
  header.GetFrameDimensionsBinned(width, height);
}

bool Frame::hdr() const {
  return fields.hdr;
}

gain_type_info_t Frame::camera() const {
  gain_type_info_t camera{0, header.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  header.GetDeviceType(camera.uiDeviceType);
  return camera;
}

void Frame::requirePixels() const {
  const auto requireOrder = [this](const char* what, ORVA_META_KEYS start, ORVA_META_KEYS stop,
                                   const char* where) {
    const unsigned int first = header.Value(start).GetValueUint();
    const unsigned int last = header.Value(stop).GetValueUint();
    if (last < first)
      throw Failure("has a damaged header: its image ends before it starts: " + std::string(what) + " " +
                    std::to_string(first) + " to " + std::to_string(last) + " at bytes " + where);
  };
  requireOrder("columns", ORVA_META_KEY_IMAGE_START_COLUMN, ORVA_META_KEY_IMAGE_STOP_COLUMN, "124 and 128");
  requireOrder("rows", ORVA_META_KEY_IMAGE_START_ROW, ORVA_META_KEY_IMAGE_STOP_ROW, "122 and 126");
  const std::size_t needed = headerSize() + sim::layoutOf(fields).bytes();
  if (bytes.size() < needed) throw Failure(truncated("pixels", needed, bytes.size()));
}

std::string whyNotDecoded(const Frame& frame) {
  const unsigned int quadrants = frame.header.Value(ORVA_META_KEY_SENSOR_READ_QUADRANTS).GetValueUint();
  if (sim::layoutOf(frame.fields).packing == sim::Packing::Ccd && quadrants == 0)
    return "cannot be decoded: its header does not say which amplifiers read the sensor";
  return "cannot be decoded: " + sizeText(frame.width, frame.height) + " pixels of " +
         std::to_string(frame.fields.dataBits) + " bits" + (frame.hdr() ? " in two planes" : "") +
         " from a '" + frame.fields.model + "'";
}

OutputFile::OutputFile(const fs::path& path) : m_path(path) {
  std::error_code none;
  if (fs::is_symlink(path, none)) m_path = fs::weakly_canonical(path);
  if (fs::exists(m_path, none) && !fs::is_regular_file(m_path, none)) {
    m_committed = true;  // nothing to remove
    throw Failure("is there already and is not a regular file");
  }
  const fs::path folder = m_path.has_parent_path() ? m_path.parent_path() : fs::path(".");
  const std::string extension = m_path.extension().string();
  m_temporary = (folder / (".orvacam-XXXXXX" + extension)).string();
  const int file = mkstemps(m_temporary.data(), static_cast<int>(extension.size()));
  if (file < 0) {
    m_committed = true;
    throw Failure("cannot be written: " + std::string(std::strerror(errno)));
  }
  fchmod(file, newFileMode());
  close(file);
}

OutputFile::~OutputFile() {
  if (!m_committed) unlink(m_temporary.c_str());
}

void OutputFile::write(const Bytes& bytes) {
  std::FILE* const file = std::fopen(m_temporary.c_str(), "wb");
  const bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const int error = errno;
  const bool closed = file != nullptr && std::fclose(file) == 0;
  if (!written || !closed)
    throw Failure("cannot be written: " + std::string(std::strerror(written ? errno : error)));
}

void OutputFile::commit() {
  if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0)
    throw Failure("cannot be written: " + std::string(std::strerror(errno)));
  m_committed = true;
}

void writeFile(const std::string& path, const Bytes& bytes) {
  OutputFile file(path);
  file.write(bytes);
  file.commit();
}

unsigned int newFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

void Planes::read(Frame& frame) {
  frame.requirePixels();
  m_algo.Initialize(frame.camera(), nullptr);
  m_images.bLowImageRequest = m_images.bMetaDataRequest = true;
  m_images.bHighImageRequest = sim::layoutOf(frame.fields).planes == 2;
  m_images.bMergedImageRequest = frame.hdr();
  if (m_algo.MergeImage(frame.bytes.data(), frame.bytes.size(), &m_images, nullptr) < 0)
    throw Failure(whyNotDecoded(frame));
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
