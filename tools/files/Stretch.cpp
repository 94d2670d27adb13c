#include "files/Stretch.h"

#include <algorithm>
#include <cmath>

namespace orvacam::files {

namespace {

using Counts = std::vector<std::uint64_t>;  // by value

Counts countsOf(const Image<std::uint16_t>& plane, const Region& region) {
  Counts counts(65536);
  for (std::uint32_t y = region.y; y < region.y + region.height; ++y) {
    const std::uint16_t* const row = plane.row(y) + region.x;
    for (std::uint32_t x = 0; x < region.width; ++x)
      ++counts[row[x]];
  }
  return counts;
}

/// The value at a place in order, of values with these counts.
template <class Value>
double valueAt(const std::vector<std::pair<Value, std::uint64_t>>& counts, std::uint64_t place) {
  std::uint64_t below = 0;
  for (const auto& [value, count] : counts) {
    below += count;
    if (place < below) return static_cast<double>(value);
  }
  return 0;
}

double medianIn(const std::vector<std::pair<double, std::uint64_t>>& counts) {
  std::uint64_t all = 0;
  for (const auto& entry : counts)
    all += entry.second;
  return all == 0 ? 0 : (valueAt(counts, (all - 1) / 2) + valueAt(counts, all / 2)) / 2;
}

std::vector<std::pair<double, std::uint64_t>> present(const Counts& counts) {
  std::vector<std::pair<double, std::uint64_t>> list;
  for (std::size_t value = 0; value < counts.size(); ++value)
    if (counts[value] > 0) list.emplace_back(static_cast<double>(value), counts[value]);
  return list;
}

}  // namespace

std::optional<StretchKind> stretchNamed(std::string_view name) {
  if (name == "auto") return StretchKind::Auto;
  if (name == "asinh") return StretchKind::Asinh;
  if (name == "linear") return StretchKind::Linear;
  return std::nullopt;
}

double medianOf(const Image<std::uint16_t>& plane, const Region& region) {
  return medianIn(present(countsOf(plane, region)));
}

Stretch::Stretch(const Image<std::uint16_t>& plane, const Region& image, double white, StretchKind kind)
    : m_curve(Curve::Flat) {
  auto values = present(countsOf(plane, image));
  if (values.size() < 2) return;
  const double median = medianIn(values);
  const double smallest = values.front().first, largest = values.back().first;
  for (auto& [value, count] : values)
    value = std::fabs(value - median);
  std::sort(values.begin(), values.end());
  const double deviation = 1.4826 * medianIn(values);
  const double shadows = std::max(0.0, median - 2.8 * deviation);
  if (kind == StretchKind::Linear || deviation == 0 || white <= shadows) {
    m_curve = Curve::Linear;
    m_from = smallest;
    m_to = largest;
    return;
  }
  m_from = shadows;
  m_to = white;
  if (kind == StretchKind::Asinh) {
    m_curve = Curve::Asinh;
    return;
  }
  m_curve = Curve::Midtone;
  // (b - 1) x / ((2 b - 1) x - b) = 1/4, solved for b.
  const double x = std::clamp((median - shadows) / (white - shadows), 0.0, 1.0);
  m_midtone = 3 * x / (2 * x + 1);
}

std::uint8_t Stretch::at(double value) const {
  if (m_curve == Curve::Flat) return 0;
  const double x = std::clamp((value - m_from) / (m_to - m_from), 0.0, 1.0);
  double y = x;
  if (m_curve == Curve::Asinh) y = std::asinh(10 * x) / std::asinh(10.0);
  if (m_curve == Curve::Midtone && x > 0 && x < 1)
    y = (m_midtone - 1) * x / ((2 * m_midtone - 1) * x - m_midtone);
  return static_cast<std::uint8_t>(std::lround(std::clamp(y, 0.0, 1.0) * 255));
}

namespace {

/// What a pixel of a scaled line covers of the full one.
struct Span {
  std::uint32_t first, last;   ///< inclusive
  double firstPart, lastPart;  ///< of the pixels at both ends
};

std::vector<Span> spansOf(std::uint32_t full, std::uint32_t scaled) {
  std::vector<Span> spans;
  const double step = static_cast<double>(full) / scaled;
  for (std::uint32_t i = 0; i < scaled; ++i) {
    const double from = i * step, to = std::min(static_cast<double>(full), (i + 1) * step);
    const auto first = static_cast<std::uint32_t>(from);
    const auto last = std::max(first, static_cast<std::uint32_t>(std::ceil(to)) - 1);
    if (first == last)
      spans.push_back({first, last, to - from, 0});
    else
      spans.push_back({first, last, first + 1 - from, to - last});
  }
  return spans;
}

double partAt(const Span& span, std::uint32_t i) {
  return i == span.first ? span.firstPart : i == span.last ? span.lastPart : 1;
}

Picture scaled(const Image<std::uint16_t>& plane, const Region& region, Size size, const Stretch& stretch) {
  Picture picture{size, {}};
  picture.pixels.reserve(std::size_t{size.width} * size.height);
  const std::vector<Span> columns = spansOf(region.width, size.width);
  std::vector<double> line(size.width);
  for (const Span& rows : spansOf(region.height, size.height)) {
    std::fill(line.begin(), line.end(), 0.0);
    double height = 0;
    for (std::uint32_t y = rows.first; y <= rows.last; ++y) {
      const std::uint16_t* const row = plane.row(region.y + y) + region.x;
      const double part = partAt(rows, y);
      height += part;
      for (std::uint32_t i = 0; i < size.width; ++i) {
        double sum = 0;
        for (std::uint32_t x = columns[i].first; x <= columns[i].last; ++x)
          sum += row[x] * partAt(columns[i], x);
        line[i] += sum * part;
      }
    }
    const double area = height * region.width / size.width;
    for (const double sum : line)
      picture.pixels.push_back(stretch.at(sum / area));
  }
  return picture;
}

}  // namespace

Picture pictureOf(const Image<std::uint16_t>& plane, const Region& region, std::uint32_t longest,
                  const Stretch& stretch) {
  const std::uint32_t longer = std::max(region.width, region.height);
  if (longer > longest) {
    const auto shrunk = [&](std::uint32_t side) {
      return std::max<std::uint32_t>(
          1, static_cast<std::uint32_t>(std::llround(static_cast<double>(side) * longest / longer)));
    };
    return scaled(plane, region, {shrunk(region.width), shrunk(region.height)}, stretch);
  }
  std::vector<std::uint8_t> table(65536);
  for (std::size_t value = 0; value < table.size(); ++value)
    table[value] = stretch.at(static_cast<double>(value));
  Picture picture{{region.width, region.height}, {}};
  picture.pixels.reserve(std::size_t{region.width} * region.height);
  for (std::uint32_t y = region.y; y < region.y + region.height; ++y) {
    const std::uint16_t* const row = plane.row(y) + region.x;
    for (std::uint32_t x = 0; x < region.width; ++x)
      picture.pixels.push_back(table[row[x]]);
  }
  return picture;
}

}  // namespace orvacam::files
