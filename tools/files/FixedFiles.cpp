#include "files/FixedFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include "files/FitsReader.h"
#include "files/Names.h"

namespace orvacam::files {

namespace {

constexpr std::size_t fixedFitsHeader = 5760;
constexpr std::size_t fixedTiffHeader = 656;

/// The fixed FITS files name the library as nothing else does, and hold as many bytes as their pixels alone
/// would: the header's 5760 are missing at the end.
bool isFixedFits(const std::string& path) {
  std::vector<FitsUnit> units;
  try {
    units = readFitsUnits(path);
  } catch (const std::exception&) {
    return false;
  }
  const FitsUnit& unit = units.front();
  return unit.text("VERAPI").rfind("Created By liborvacam", 0) == 0 && unit.number("BITPIX", 0) == 16 &&
         unit.dataStart == fixedFitsHeader && unit.find("HDR-MODE") != nullptr;
}

/// Fourteen tags at byte 14, PageNumber of a single value among them, the frame's header behind.
bool isFixedTiff(const std::string& start) {
  const auto byte = [&](std::size_t i) {
    return static_cast<unsigned int>(static_cast<unsigned char>(start[i]));
  };
  if (start.size() < fixedTiffHeader + 4 || start.compare(fixedTiffHeader, 4, "Meta") != 0) return false;
  const bool big = start[0] == 'M';
  const auto word = [&](std::size_t i) {
    return big ? byte(i) << 8 | byte(i + 1) : byte(i + 1) << 8 | byte(i);
  };
  constexpr std::size_t directory = 14, tagBytes = 12;
  constexpr unsigned int pageNumber = 297;
  const std::size_t tags = word(directory);
  if (tags < 1 || directory + 2 + tags * tagBytes > fixedTiffHeader) return false;
  const std::size_t last = directory + 2 + (tags - 1) * tagBytes;
  return word(last) == pageNumber && byte(big ? last + 7 : last + 4) == 1;
}

}  // namespace

FileKind kindOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return FileKind::Unreadable;
  std::ifstream file(path, std::ios::binary);
  if (!file) return FileKind::Unreadable;
  std::string start(fixedTiffHeader + 4, '\0');
  file.read(start.data(), static_cast<std::streamsize>(start.size()));
  start.resize(static_cast<std::size_t>(file.gcount()));
  if (start.empty()) return FileKind::Empty;
  if (start.compare(0, 4, "Meta") == 0) return FileKind::Raw;
  if (start.compare(0, 9, "SIMPLE  =") == 0) return isFixedFits(path) ? FileKind::FixedFits : FileKind::Fits;
  for (const char* const magic : {"II*\0", "MM\0*", "II+\0", "MM\0+"})
    if (start.size() >= 4 && std::memcmp(start.data(), magic, 4) == 0)
      return isFixedTiff(start) ? FileKind::FixedTiff : FileKind::Tiff;
  return FileKind::Other;
}

namespace {

/// Where the cards of a fixed file have a header's value, and how many of its units one of theirs is.
struct CardSource {
  const char* key;
  const char* keyword;
  double factor;
};
constexpr CardSource cardSources[] = {{"CameraModel", "INSTRUME", 1},
                                      {"CameraSerialNumber", "SERIAL", 1},
                                      {"FirmwareVersion", "VERFIRM", 1},
                                      {"MetadataVersion", "MDVER", 1},
                                      {"SensorCoolerTemp", "CCD-TEMP", 1},
                                      {"FPGATemperature", "FPGATEMP", 1},
                                      {"BaseTemperature", "BASETEMP", 1},
                                      {"SensorChipTemp", "SENSTEMP", 10},
                                      {"BackSideIlluminated", "BKSDILL", 1},
                                      {"HorizontalBinning", "XBINNING", 1},
                                      {"VerticalBinning", "YBINNING", 1},
                                      {"BlackLevelAdjust", "BLKLVLAD", 1},
                                      {"BlackLevelSun", "BLKLVLSN", 1},
                                      {"DeadPixelCorrection", "DEADPXCR", 1},
                                      {"ExposureTime", "EXPTIME", 1},
                                      {"FrameNumber", "FRAMENUM", 1},
                                      {"TestIsHighFrame", "ISHIFRM", 1},
                                      {"TestIsMergedFrame", "ISMRGFRM", 1},
                                      {"HDRGain", "GAINHIGH", 1},
                                      {"LDRGain", "GAINLOW", 1},
                                      {"LowDarkCurrent", "LOWDARK", 1},
                                      {"LowNoise", "LOWNOISE", 1},
                                      {"GPSLocked", "GPS_LOCK", 1},
                                      {"HorzScanDirInvert", "HRZDIRIN", 1},
                                      {"VertScanDirInvert", "VRTDIRIN", 1},
                                      {"IlluminStartDelay", "ILLSTRDL", 1},
                                      {"IlluminStopDelay", "ILLSTPDL", 1},
                                      {"ImageStartColumn", "IMGSTACL", 1},
                                      {"ImageStartRow", "IMGSTARW", 1},
                                      {"ImageStopColumn", "IMGSTPCL", 1},
                                      {"ImageStopRow", "IMGSTPRW", 1},
                                      {"NonRowAllignedImage", "NONRWALL", 1},
                                      {"NumberOfDataChannels", "NUMDTCH", 1},
                                      {"PixelOrderedImage", "PXLORDIM", 1},
                                      {"PreReferenceRows", "PREREFRW", 1},
                                      {"PostReferenceRows", "PSTREFRW", 1},
                                      {"PreRowRefPixels", "PRFPXPRW", 1},
                                      {"PostRowRefPixels", "RFPXLPRW", 1},
                                      {"SensorPixelBitDepth", "SNRPXLDP", 1},
                                      {"ShutterOpenDelay", "SHUTOPDL", 1},
                                      {"ShutterCloseDelay", "SHUTCLDL", 1},
                                      {"TrackingFramesPerImageFrame", "TRKFRMPR", 1},
                                      {"TrackingStartColumn", "TRKSTRCL", 1},
                                      {"TrackingStartRow", "TRKSTRRW", 1},
                                      {"TrackingStopColumn", "TRKSTPCL", 1},
                                      {"TrackingStopRow", "TRKSTPRW", 1}};

/// Degrees as the header has them: 1/600000 degree, the top bit for north and east.
std::optional<double> positionWord(const FitsUnit& unit, const char* keyword) {
  if (unit.find(keyword) == nullptr) return std::nullopt;
  constexpr double topBit = 2147483648.0;
  const double degrees = unit.number(keyword, 0);
  const double steps = std::round(std::fabs(degrees) * 600000);
  if (!(steps < topBit)) return std::nullopt;
  return steps + (degrees >= 0 ? topBit : 0);
}

/// Processed headers write a cold sensor's temperature in two's complement, and are read as sign and
/// magnitude: in tenths, t below 0 arrives as -(32768 + t), which is below absolute zero.
double chipTemperature(double tenths) {
  constexpr double absoluteZero = -2731.5;
  return tenths < absoluteZero ? -tenths - 32768 : tenths;
}

class CardFields : public Fields {
 public:
  explicit CardFields(FitsUnit unit) : m_unit(std::move(unit)) {}
  unsigned version() const override {
    const double stated = m_unit.number("MDVER", 4);
    return stated >= 1 && stated <= 3 ? static_cast<unsigned>(stated) : 4;
  }
  std::optional<double> number(const char* key) const override {
    if (std::strcmp(key, "GPSLatitudeRaw") == 0) return positionWord(m_unit, "GEO_LAT");
    if (std::strcmp(key, "GPSLongitudeRaw") == 0) return positionWord(m_unit, "GEO_LONG");
    for (const CardSource& source : cardSources)
      if (std::strcmp(key, source.key) == 0 && m_unit.find(source.keyword) != nullptr) {
        const double value = m_unit.number(source.keyword, 0) * source.factor;
        if (!std::isfinite(value)) return std::nullopt;
        return std::strcmp(key, "SensorChipTemp") == 0 ? chipTemperature(value) : value;
      }
    return std::nullopt;
  }
  std::optional<std::string> text(const char* key) const override {
    for (const CardSource& source : cardSources)
      if (std::strcmp(key, source.key) == 0 && m_unit.find(source.keyword) != nullptr)
        return m_unit.text(source.keyword);
    return std::nullopt;
  }

 private:
  FitsUnit m_unit;
};

/// "2024-05-17T21:04:33.123456700"; none for an impossible date.
std::optional<Instant> timeIn(const std::string& text) {
  constexpr std::size_t point = 19, length = 29;
  std::tm t{};
  long nanoseconds = 0;
  if (text.size() != length || text.find_first_not_of("0123456789", point + 1) != std::string::npos ||
      std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%9ld", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour,
                  &t.tm_min, &t.tm_sec, &nanoseconds) != 7)
    return std::nullopt;
  t.tm_year -= 1900;
  t.tm_mon -= 1;
  const std::tm stated = t;
  const std::time_t seconds = timegm(&t);
  if (t.tm_mon != stated.tm_mon || t.tm_mday != stated.tm_mday || t.tm_hour != stated.tm_hour ||
      t.tm_sec != stated.tm_sec || t.tm_year < 70 || t.tm_year > 350)
    return std::nullopt;
  return Instant(std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds));
}

std::string planeOf(const FitsUnit& unit, const std::string& path) {
  if (unit.number("ISMRGFRM", 0) != 0) return "merged";
  if (unit.number("ISHIFRM", 0) != 0) return "high";
  const std::string stem = stemOf(path);
  const auto endsIn = [&](const std::string& end) {
    return stem.size() >= end.size() && stem.compare(stem.size() - end.size(), end.size(), end) == 0;
  };
  return endsIn("_MERGED") ? "merged" : endsIn("_HIGH") ? "high" : endsIn("_LOW") ? "low" : "image";
}

/// The image between its reference pixels, all binned, as far as the cards agree with the size.
Region imageOf(const FitsUnit& unit, Size size) {
  const auto line = [&](const char* ahead, const char* behind, const char* binning, std::uint32_t all) {
    const double factor = std::max(1.0, unit.number(binning, 1));
    const double before = std::ceil(unit.number(ahead, 0) / factor),
                 after = std::ceil(unit.number(behind, 0) / factor);
    if (!(before >= 0 && after >= 0 && before + after < all))
      return std::pair<std::uint32_t, std::uint32_t>(0, all);
    return std::pair(static_cast<std::uint32_t>(before), static_cast<std::uint32_t>(all - before - after));
  };
  const auto [x, width] = line("PRFPXPRW", "RFPXLPRW", "XBINNING", size.width);
  const auto [y, height] = line("PREREFRW", "PSTREFRW", "YBINNING", size.height);
  return {x, y, width, height};
}

}  // namespace

FixedFits readFixedFits(const std::string& path) {
  const FitsUnit unit = readFitsUnits(path).front();
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const auto length = static_cast<std::uint64_t>(std::max<std::streamoff>(0, file.tellg()));
  const double width = unit.number("NAXIS1", 0), height = unit.number("NAXIS2", 0);
  if (length < fixedFitsHeader || !(width >= 1 && width <= 1e6 && height >= 1 && height <= 1e6))
    throw std::runtime_error("holds no pixel that could be saved");
  FixedFits fixed;
  fixed.subject.size = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  const std::uint64_t pixels = std::uint64_t{fixed.subject.size.width} * fixed.subject.size.height;
  // Its writer counts the header into the pixels' bytes. Older, longer content may stand behind them.
  if (length < pixels * 2)
    throw std::runtime_error("is cut off: needs " + std::to_string(pixels * 2) + " bytes, ends at byte " +
                             std::to_string(length));
  fixed.present = static_cast<std::size_t>(pixels - std::min<std::uint64_t>(pixels, fixedFitsHeader / 2));
  fixed.pixels.resize(static_cast<std::size_t>(pixels));
  std::vector<unsigned char> bytes(2 * fixed.present);
  file.seekg(fixedFitsHeader);
  if (!file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
    throw std::runtime_error("cannot be read");
  for (std::size_t i = 0; i < fixed.present; ++i)
    fixed.pixels[i] = static_cast<std::uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
  fixed.subject.plane = planeOf(unit, path);
  fixed.subject.image = imageOf(unit, fixed.subject.size);
  fixed.subject.time = timeIn(unit.text("DATE-OBS"));
  fixed.subject.fields = std::make_shared<CardFields>(unit);
  return fixed;
}

}  // namespace orvacam::files
