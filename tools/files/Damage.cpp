#include "files/Damage.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "files/FitsReader.h"
#include "files/FitsWriter.h"
#include "files/TiffFile.h"

namespace orvacam::files {

namespace {

/// A file may have any number of faults; nobody reads more of them.
constexpr std::size_t mostDamages = 16;

std::uint64_t sizeOf(const std::string& path) {
  std::error_code error;
  const std::uint64_t size = std::filesystem::file_size(path, error);
  if (error) throw std::runtime_error("cannot be read: " + error.message());
  return size;
}

/// A sum of ones' complement has two zeros.
bool isSameSum(std::uint32_t a, std::uint32_t b) {
  constexpr std::uint32_t otherZero = 0xFFFFFFFF;
  return a % otherZero == b % otherZero;
}

/// The sum that a unit states of its data: digits in a text, which some writers leave out of the quotes.
std::optional<std::uint32_t> statedDataSum(const FitsUnit& unit) {
  const Value* const value = unit.find("DATASUM");
  if (value == nullptr) return std::nullopt;
  if (const auto* const whole = std::get_if<std::int64_t>(value)) return static_cast<std::uint32_t>(*whole);
  const std::string text = unit.text("DATASUM");
  std::uint32_t sum = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), sum);
  if (text.empty() || read.ec != std::errc()) return std::nullopt;
  return sum;
}

class FitsLook {
 public:
  explicit FitsLook(const std::string& path) : m_size(sizeOf(path)), m_file(path, std::ios::binary) {
    const std::uint64_t end = visitFitsUnits(path, [this](const FitsUnit& unit) {
      ++m_units;
      look(unit);
      return !m_isOver && m_found.size() < mostDamages;
    });
    if (!m_isOver && m_found.size() < mostDamages && end < m_size) lookBehind(end);
  }

  std::vector<Damage> take() { return std::move(m_found); }

 private:
  std::string nameOf(const FitsUnit& unit) const {
    const std::string name = unit.text("EXTNAME");
    return "its unit " + std::to_string(m_units) + (name.empty() ? "" : " (" + name + ")");
  }

  void look(const FitsUnit& unit) {
    const std::string name = nameOf(unit);
    m_isOver = true;  // unless all of it is there
    if (m_units > 1 && unit.find("XTENSION") == nullptr) return addTrailing(unit.headerStart);
    if (!unit.isSized) return add(Damage::Broken, name + " states a size that cannot be");
    const std::uint64_t end = unit.dataStart + unit.dataBytes;
    if (end > m_size)
      return add(Damage::CutOff, "is cut off: " + name + " needs " + std::to_string(end) +
                                     " bytes, ends at byte " + std::to_string(m_size));
    if (unit.end() > m_size)
      return add(Damage::Trailing, "is not filled up behind its data: " + name + " goes to byte " +
                                       std::to_string(unit.end()) + ", ends at byte " +
                                       std::to_string(m_size));
    m_isOver = false;
    if (unit.find("DATASUM") != nullptr || unit.find("CHECKSUM") != nullptr) compareSums(unit, name);
  }

  void compareSums(const FitsUnit& unit, const std::string& name) {
    const std::uint32_t data = fileSum(m_file, unit.dataStart, unit.end());
    const std::optional<std::uint32_t> stated = statedDataSum(unit);
    if (stated && !isSameSum(*stated, data))
      return add(Damage::Broken, "is damaged: the data of " + name + " add up to " + std::to_string(data) +
                                     ", its DATASUM is " + std::to_string(*stated));
    if (unit.text("CHECKSUM").empty()) return;
    // The checksum makes header and data add up to zero.
    if (isSameSum(addedSums(fileSum(m_file, unit.headerStart, unit.dataStart), data), 0)) return;
    if (stated)
      add(Damage::Changed, "is not as it was written: the header of " + name +
                               " does not fit its CHECKSUM, the data fit their DATASUM");
    else
      add(Damage::Broken, "is damaged: " + name + " does not fit its CHECKSUM");
  }

  void lookBehind(std::uint64_t end) {
    char start[8] = {};
    m_file.clear();
    m_file.seekg(static_cast<std::streamoff>(end));
    m_file.read(start, sizeof start);
    if (std::string(start, sizeof start) == "XTENSION")
      add(Damage::CutOff,
          "is cut off: the header at byte " + std::to_string(end) + " does not end before the file does");
    else
      addTrailing(end);
  }

  void addTrailing(std::uint64_t end) {
    const std::uint64_t bytes = m_size - end;
    add(Damage::Trailing,
        "has " + std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes") + " behind its last unit");
  }

  void add(Damage::Kind kind, std::string text) { m_found.push_back({kind, std::move(text)}); }

  std::uint64_t m_size;
  std::ifstream m_file;
  std::vector<Damage> m_found;
  std::size_t m_units = 0;
  bool m_isOver = false;
};

/// What is wrong with the page that the file stands at; takes its strips off those that the file can have.
std::optional<Damage> damageOfPage(TIFF* file, std::uint64_t size, unsigned page, std::uint64_t& stripsLeft) {
  const std::string name = "its page " + std::to_string(page);
  const std::uint64_t strips = TIFFIsTiled(file) != 0 ? TIFFNumberOfTiles(file) : TIFFNumberOfStrips(file);
  if (strips > stripsLeft)
    return Damage{Damage::Broken, "states more strips than it has bytes, up to " + name};
  stripsLeft -= strips;
  for (std::uint32_t i = 0; i < strips; ++i) {
    const std::uint64_t from = TIFFGetStrileOffset(file, i), length = TIFFGetStrileByteCount(file, i);
    if (from > size || length > size - from)
      return Damage{Damage::CutOff, "is cut off: " + name + " needs " + std::to_string(length) +
                                        " bytes at byte " + std::to_string(from) + ", ends at byte " +
                                        std::to_string(size)};
  }
  return std::nullopt;
}

}  // namespace

std::vector<Damage> damageOfFits(const std::string& path) {
  return FitsLook(path).take();
}

std::vector<Damage> damageOfTiff(const std::string& path) {
  const std::uint64_t size = sizeOf(path);
  if (!directoriesFitTheFile(path))
    return {{Damage::Broken, "is damaged: its directories state more bytes than the file has"}};
  const TiffFile file = openTiff(path);
  std::vector<Damage> found;
  std::uint64_t stripsLeft = size;
  for (unsigned page = 1; found.size() < mostDamages; ++page) {
    if (auto damage = damageOfPage(file.get(), size, page, stripsLeft)) found.push_back(std::move(*damage));
    if (TIFFLastDirectory(file.get()) != 0) break;
    if (TIFFReadDirectory(file.get()) == 0) {
      found.push_back(
          {Damage::Broken, "is damaged: its page " + std::to_string(page + 1) + " cannot be read"});
      break;
    }
  }
  return found;
}

}  // namespace orvacam::files
