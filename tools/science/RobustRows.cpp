#include "science/RobustRows.h"

#include <algorithm>
#include <cmath>

namespace orvacam::science {

namespace {

constexpr double clip = 4;              // deviations
constexpr double farClip = 5;           // deviations of a blinking pixel's values
constexpr std::size_t oftenBlinks = 4;  // one of so many frames
constexpr double ordinary = 1.5;        // times the ordinary variance: noise is measured below

}  // namespace

double NoiseModel::at(double value) const {
  if (relative) return variance * std::fmax(value, 0.05);
  return variance + perCount * std::fmax(value - level, 0);
}

RowCombiner::RowCombiner(std::size_t width)
    : m_centres(width), m_limits(width), m_farLimits(width), m_far(width), m_means(width), m_blinking(width) {
  for (Half& half : m_halves)
    half = {std::vector<double>(width), std::vector<double>(width), std::vector<double>(width)};
}

template <class Pixel>
void RowCombiner::findCentres(const std::vector<const Pixel*>& rows) {
  const std::size_t width = m_centres.size();
  if (rows.size() == 2) {  // whichever is right, it is not the higher one
    for (std::size_t x = 0; x < width; ++x)
      m_centres[x] = std::min<double>(rows[0][x], rows[1][x]);
    return;
  }
  Combining median;
  median.method = Stack::Method::median;
  Combined out;
  out.values = m_centres.data();
  orvacam::combine(median, rows, width, out);
}

template <class Pixel>
void RowCombiner::average(const std::vector<const Pixel*>& rows) {
  const std::size_t width = m_centres.size();
  for (Half& half : m_halves)
    for (auto* const list : {&half.sums, &half.squares, &half.counts})
      std::fill(list->begin(), list->end(), 0.0);
  std::fill(m_far.begin(), m_far.end(), 0u);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Pixel* const row = rows[i];
    Half& half = m_halves[i % 2];
    for (std::size_t x = 0; x < width; ++x) {
      const double off = row[x] - m_centres[x];
      const double distance = std::fabs(off);
      const double stays = distance <= m_limits[x] ? 1 : 0;
      half.counts[x] += stays;
      half.sums[x] += stays * off;
      half.squares[x] += stays * off * off;
      m_far[x] += distance > m_farLimits[x] ? 1u : 0u;
    }
  }
}

/// Of a blinking pixel: the deviation of all values, and their mean where it blinks often.
template <class Pixel>
void RowCombiner::takeBlinking(const std::vector<const Pixel*>& rows, std::size_t x) {
  double sum = 0, squares = 0;
  for (const Pixel* const row : rows) {
    const double off = row[x] - m_centres[x];
    sum += off;
    squares += off * off;
  }
  const auto frames = static_cast<double>(rows.size());
  if (m_far[x] * oftenBlinks >= rows.size()) m_means[x] = static_cast<float>(m_centres[x] + sum / frames);
  m_blinking[x] = static_cast<float>(std::sqrt(std::fmax(squares - sum * sum / frames, 0) / (frames - 1)));
}

template <class Pixel>
RowSums RowCombiner::combine(const std::vector<const Pixel*>& rows, const NoiseModel& noise,
                             std::uint32_t first, std::uint32_t last) {
  findCentres(rows);
  const double pair = rows.size() == 2 ? std::sqrt(2.0) : 1;
  for (std::size_t x = 0; x < m_centres.size(); ++x) {
    const double deviation = std::sqrt(noise.at(m_centres[x]));
    m_limits[x] = clip * pair * deviation;
    m_farLimits[x] = farClip * deviation;
  }
  average(rows);
  const std::size_t enough =
      rows.size() < 4 ? rows.size() + 1 : std::max<std::size_t>(2, (rows.size() + 9) / 10);
  for (std::size_t x = 0; x < m_centres.size(); ++x) {
    const double count = m_halves[0].counts[x] + m_halves[1].counts[x];
    const double sum = m_halves[0].sums[x] + m_halves[1].sums[x];
    m_means[x] = static_cast<float>(count > 0 ? m_centres[x] + sum / count : m_centres[x]);
    m_blinking[x] = 0;
    if (m_far[x] >= enough) takeBlinking(rows, x);
  }
  return summed(noise, rows.size(), first, last);
}

RowSums RowCombiner::summed(const NoiseModel& noise, std::size_t frames, std::uint32_t first,
                            std::uint32_t last) const {
  RowSums result;
  for (std::size_t x = first; x < last; ++x) {
    if (m_blinking[x] > 0) {
      ++result.blinking;
      continue;
    }
    const Half &even = m_halves[0], &odd = m_halves[1];
    const double count = even.counts[x] + odd.counts[x];
    result.rejected += frames - static_cast<std::size_t>(count);
    if (noise.at(m_means[x]) > ordinary * noise.at(noise.level) || count < 2) continue;
    const double sum = even.sums[x] + odd.sums[x];
    result.temporal += even.squares[x] + odd.squares[x] - sum * sum / count;
    result.freedom += count - 1;
    if (even.counts[x] == 0 || odd.counts[x] == 0) continue;
    const double half = even.sums[x] / even.counts[x] - odd.sums[x] / odd.counts[x];
    result.halves += half;
    result.halfSquares += half * half;
    result.halfPixels += 1;
  }
  return result;
}

template RowSums RowCombiner::combine(const std::vector<const std::uint16_t*>&, const NoiseModel&,
                                      std::uint32_t, std::uint32_t);
template RowSums RowCombiner::combine(const std::vector<const double*>&, const NoiseModel&, std::uint32_t,
                                      std::uint32_t);

}  // namespace orvacam::science
