#include "science/FrameBands.h"

#include <algorithm>
#include <functional>
#include <string_view>

namespace orvacam::science {

namespace {

/// What a process takes before it has a frame: code, libraries, tables.
constexpr std::uint64_t processBytes = std::uint64_t{24} << 20;
/// What combining sorts at a time, for each frame.
constexpr std::uint64_t sortedBytes = 32 * sizeof(double);

std::string defaultPlane(const Frame& frame) {
  const std::vector<std::string> planes = frame.planes();
  for (const char* const name : {"merged", "image"})
    if (std::find(planes.begin(), planes.end(), name) != planes.end()) return name;
  return "low";
}

Plane& planeNamed(Decoded& decoded, const std::string& name) {
  return name == "low"      ? decoded.low
         : name == "high"   ? decoded.high
         : name == "merged" ? decoded.merged
                            : decoded.image;
}

constexpr std::uint64_t kibibyte = std::uint64_t{1} << 10, mebibyte = std::uint64_t{1} << 20;

std::string atMost(std::uint64_t bytes) {
  if (bytes < kibibyte) return std::to_string(bytes) + " bytes";
  return bytes < mebibyte ? std::to_string(bytes / kibibyte) + "K" : std::to_string(bytes / mebibyte) + "M";
}
std::string atLeast(std::uint64_t bytes) {
  return std::to_string((bytes + mebibyte - 1) / mebibyte) + "M";
}

}  // namespace

FrameSeries seriesOf(std::vector<std::string> paths) {
  const auto decoder = std::make_shared<Decoder>();
  const std::size_t count = paths.size();
  return {count, [paths = std::move(paths)](std::size_t index) { return Frame::read(paths[index]); },
          [decoder](const Frame& frame, Planes wanted) { return decoder->decode(frame, wanted); }};
}

FrameScan::FrameScan(FrameSeries series, BandSettings settings)
    : m_series(std::move(series)), m_settings(std::move(settings)) {
  if (m_series.count == 0) throw SeriesError("there are no frames");
}

/// Before the first frame is decoded, so that the limit holds from the start.
void FrameScan::begin(const Frame& first) {
  m_size = first.header().frame_size();
  if (m_settings.planes.empty()) m_settings.planes = {defaultPlane(first)};
  const std::uint64_t pixels = std::uint64_t{m_size.width} * m_size.height;
  m_bytes = processBytes + first.bytes().size() +
            pixels * (m_settings.planes.size() * sizeof(std::uint16_t) + m_settings.bytesPerPixel);
  if (m_bytes > m_settings.memory)
    throw SeriesError(atMost(m_settings.memory) + " of memory do not hold one frame; that takes " +
                      atLeast(m_bytes));
  m_first = first.header();
}

std::vector<Plane> FrameScan::decoded(const Frame& frame) {
  const auto wants = [&](const char* name) {
    return std::find(m_settings.planes.begin(), m_settings.planes.end(), name) != m_settings.planes.end();
  };
  const bool histograms = m_settings.histograms && m_passes == 1;
  Decoded all = m_series.decode(
      frame, {wants("low"), wants("high"), wants("merged"), wants("image"), histograms, histograms});
  std::vector<Plane> planes;
  for (const std::string& name : m_settings.planes) {
    planes.push_back(std::move(planeNamed(all, name)));
    if (planes.back().empty()) throw SeriesError("has no plane '" + name + "'");
  }
  return planes;
}

void FrameScan::pass(const std::function<void(const SeenFrame&)>& use) {
  ++m_passes;
  for (std::size_t index = 0; index < m_series.count; ++index) {
    const Frame frame = m_series.read(index);
    const std::size_t header = std::hash<std::string_view>()(frame.header().bytes());
    if (!m_first) begin(frame);
    if (m_passes == 1) {
      require_alike(*m_first, frame.header(), m_settings.allowed);
      m_headers.push_back(header);
    } else if (m_headers[index] != header) {
      throw SeriesError("has changed since it was read the first time");
    }
    use({index, &frame, decoded(frame)});
  }
}

/// As many rows as there is memory for, beside what a scan takes. A limit that does not hold one row of all
/// frames is refused: it would not be one.
void FrameBands::plan() {
  const Size size = m_scan.size();
  const std::uint64_t row = m_scan.count() * m_scan.planes().size() * size.width * sizeof(std::uint16_t);
  const std::uint64_t fixed = m_scan.bytes() + m_scan.count() * sortedBytes;
  if (m_scan.memory() < fixed + row)
    throw SeriesError(atMost(m_scan.memory()) + " of memory do not hold a frame and a row of each of " +
                      std::to_string(m_scan.count()) + " frames; that takes " + atLeast(fixed + row));
  const std::uint64_t rows = std::min<std::uint64_t>((m_scan.memory() - fixed) / row, size.height);
  m_bands = static_cast<std::uint32_t>((size.height + rows - 1) / rows);
  m_rows = (size.height + m_bands - 1) / m_bands;
  m_pixels.reset(new std::uint16_t[m_rows * (row / sizeof(std::uint16_t))]);
}

/// Copies the band's rows of a frame.
void FrameBands::keep(const SeenFrame& one, Band& band) {
  const std::size_t stride = std::size_t{m_rows} * band.width;
  band.pixels.resize(one.planes.size(), std::vector<const std::uint16_t*>(m_scan.count()));
  for (std::size_t plane = 0; plane < one.planes.size(); ++plane) {
    std::uint16_t* const to = m_pixels.get() + (plane * m_scan.count() + one.index) * stride;
    std::copy_n(one.planes[plane].row(band.first), band.count(), to);
    band.pixels[plane][one.index] = to;
  }
}

void FrameBands::run(const std::function<void(const SeenFrame&)>& seen,
                     const std::function<void(const Band&)>& use) {
  Band band;
  do {
    m_scan.pass([&](const SeenFrame& one) {
      if (m_bands == 0) plan();
      if (m_scan.passes() == 1) seen(one);
      band.width = m_scan.size().width;
      band.rows = std::min(m_rows, m_scan.size().height - band.first);
      keep(one, band);
    });
    use(band);
    band.first += band.rows;
  } while (band.first < m_scan.size().height);
  m_pixels.reset();
}

double medianOf(const Statistics& statistics) {
  // The values of two positions in sorted order; the same one twice when there is a middle.
  const std::uint64_t upper = statistics.count / 2;
  const std::uint64_t lower = statistics.count % 2 != 0 ? upper : upper - 1;
  std::uint64_t below = 0;
  double low = 0;
  bool hasLow = false;
  for (std::size_t value = 0; value < statistics.histogram.size(); ++value) {
    below += statistics.histogram[value];
    if (!hasLow && below > lower) {
      low = static_cast<double>(value);
      hasLow = true;
    }
    if (below > upper) return (low + static_cast<double>(value)) / 2;
  }
  return low;
}

}  // namespace orvacam::science
