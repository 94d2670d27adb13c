#include "files/TiffFile.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <vector>

namespace orvacam::files {

namespace {

/// Widths in bytes, which differ between TIFF 6.0 and BigTIFF.
struct Layout {
  unsigned offset;  ///< of a place, of a number of elements, and of what an entry holds itself
  unsigned entryCount;
  unsigned entry() const { return 4 + 2 * offset; }  ///< tag, type, number of elements, place
};
constexpr Layout classic = {4, 2};
constexpr Layout big = {8, 8};

/// Bytes of an element of a field type; 0 for what is no type.
std::uint64_t elementSize(std::uint64_t type) {
  constexpr unsigned char sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < std::size(sizes) ? sizes[type] : 0;
}

class DirectoryWalk {
 public:
  explicit DirectoryWalk(const std::string& path) : m_file(path, std::ios::binary) {
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(path, error);
    m_size = error ? 0 : size;
  }

  /// Bytes that tags share are few: those of all pages are held against several times the file's.
  bool fits() {
    const std::uint64_t mostOfPage = m_size + slack;
    const std::uint64_t mostOfAll = 16 * mostOfPage;
    std::uint64_t all = 0;
    std::set<std::uint64_t> seen;  // a directory that comes again is refused by libtiff
    for (std::uint64_t at = firstDirectory(); at != 0 && seen.insert(at).second; at = m_next) {
      const std::uint64_t bytes = bytesOf(at);
      all += bytes;
      if (bytes > mostOfPage || all > mostOfAll) return false;
    }
    return true;
  }

 private:
  static constexpr std::uint64_t slack = std::uint64_t{1} << 20;
  static constexpr std::uint64_t mostEntries = 0xFFFF;

  /// False where the file ends before.
  bool read(std::uint64_t at, std::size_t count) {
    m_bytes.resize(count);
    m_file.clear();
    return at <= m_size && count <= m_size - at && m_file.seekg(static_cast<std::streamoff>(at)) &&
           m_file.read(reinterpret_cast<char*>(m_bytes.data()), static_cast<std::streamsize>(count));
  }

  std::uint64_t number(std::size_t place, unsigned width) const {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
      value = value << 8 | m_bytes[place + (m_bigEndian ? i : width - 1 - i)];
    return value;
  }

  std::uint64_t firstDirectory() {
    if (!read(0, 8)) return 0;
    m_bigEndian = m_bytes[0] == 'M';
    m_layout = number(2, 2) == 43 ? big : classic;
    const std::size_t place = m_layout.offset;
    return read(0, 2 * place) ? number(place, m_layout.offset) : 0;
  }

  /// The bytes of a directory and of what it points to; where the next one is.
  std::uint64_t bytesOf(std::uint64_t at) {
    m_next = 0;
    if (!read(at, m_layout.entryCount)) return 0;
    const std::uint64_t entries = number(0, m_layout.entryCount);
    const std::uint64_t length = entries * m_layout.entry();
    if (entries > mostEntries || !read(at + m_layout.entryCount, length)) return 0;
    std::uint64_t bytes = length;
    for (std::size_t entry = 0; entry < length; entry += m_layout.entry()) {
      const std::uint64_t elements = std::min(number(entry + 4, m_layout.offset), m_size);
      const std::uint64_t data = std::min(elements * elementSize(number(entry + 2, 2)), m_size);
      if (data > m_layout.offset) bytes += data;
    }
    if (read(at + m_layout.entryCount + length, m_layout.offset)) m_next = number(0, m_layout.offset);
    return bytes;
  }

  std::ifstream m_file;
  std::uint64_t m_size = 0;
  std::uint64_t m_next = 0;
  std::vector<unsigned char> m_bytes;
  Layout m_layout = classic;
  bool m_bigEndian = false;
};

}  // namespace

bool directoriesFitTheFile(const std::string& path) {
  return DirectoryWalk(path).fits();
}

TiffFile openTiff(const std::string& path) {
  if (!directoriesFitTheFile(path))
    throw std::runtime_error("has TIFF directories that state more bytes than it has");
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  TiffFile file(TIFFOpen(path.c_str(), "rm"));
  if (!file) throw std::runtime_error("has no TIFF directory that can be read");
  return file;
}

}  // namespace orvacam::files
