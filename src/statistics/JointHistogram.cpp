#include "statistics/JointHistogram.h"

#include <algorithm>
#include <new>
#include <numeric>

#include "statistics/Histogram.h"
#include "statistics/PlaneCounts.h"

namespace orvacam {

namespace {

constexpr unsigned int pixelBits = 12;
constexpr int pixelValues = 1 << pixelBits;
constexpr unsigned int largestValue = 65535;

/// Smaller frames are not worth windows or marks, whose memory is cleared and read once for each frame.
constexpr std::size_t smallestFrame = 131072;
constexpr unsigned int mostSpareBits = 3;
constexpr WindowWatch::Rules jointRules = {2048, 4, 32768};
constexpr kernels::Extremes none = {65535, 0};

/// The count of a value that may be marked.
std::uint32_t countOf(const std::uint32_t* banks, unsigned int value) {
  std::uint32_t count = 0;
  for (std::size_t bank = 0; bank < kernels::countBanks; ++bank)
    count += banks[bank * kernels::markedBankStride + value];
  return count;
}

/// Pixel i lies in the upper or lower 12 of the 16 bits that begin at byte 3 * i / 2.
std::uint16_t unpackedAt(const std::uint8_t* packed, std::size_t i) {
  const std::uint8_t* const first = packed + 3 * i / 2;
  const unsigned int both = static_cast<unsigned int>(first[0]) << 8 | first[1];
  return static_cast<std::uint16_t>(both >> (i % 2 == 0 ? 16 - pixelBits : 0) & (pixelValues - 1));
}

void removeMarks(std::uint16_t* pixels, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    pixels[i] = static_cast<std::uint16_t>(pixels[i] & (pixelValues - 1));
}

bool extend(kernels::Extremes* extremes, const kernels::Extremes& seen) {
  const bool isNew = seen.minimum < extremes->minimum || seen.maximum > extremes->maximum;
  *extremes = {std::min(extremes->minimum, seen.minimum), std::max(extremes->maximum, seen.maximum)};
  return isNew;
}

}  // namespace

JointHistogram::JointHistogram(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged,
                               const kernels::MergeRule& rule, const kernels::UniformTerms* terms,
                               std::size_t pixels)
    : m_kernel(kernels::active()),
      m_low(low),
      m_high(high),
      m_merged(merged),
      m_rule(rule),
      m_terms(terms),
      m_memory(pixels >= smallestFrame ? new (std::nothrow) Memory : nullptr),
      m_watch(jointRules),
      m_ranges{none, none, none} {}

kernels::PairNotes& JointHistogram::notes() {
  m_notes.low = m_watch.inWindows() ? nullptr : m_lowPixels;
  m_notes.high = m_watch.inWindows() ? nullptr : m_highPixels;
  m_notes.places = m_watch.inWindows() ? m_places : nullptr;
  const bool follows = isUniform() && (m_watch.inWindows() || m_marking);
  m_notes.merged = follows ? nullptr : m_mergedPixels;
  return m_notes;
}

void JointHistogram::add(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead) {
  if (run.pairs == 0) return;
  if (m_watch.inWindows())
    countPlaces(run, place, ahead);
  else
    countEach(run, place, ahead);
}

void JointHistogram::finish() {
  if (m_watch.inWindows()) leaveWindows();
  if (m_marking) putMarks();
}

/// What pixels become in a merge of this type (1 takes the low-gain, 2 the high-gain plane alone).
void JointHistogram::merge(unsigned int type, const std::uint16_t* low, const std::uint16_t* high,
                           std::uint16_t* merged, std::size_t pixels) const {
  kernels::MergeRule rule = m_rule;
  rule.type = type;
  m_kernel.mergeUniform(low, high, merged, pixels, rule, *m_terms);
}

bool JointHistogram::extendRanges(const Ranges& seen) {
  const bool low = extend(&m_ranges.low, seen.low);
  const bool high = extend(&m_ranges.high, seen.high);
  const bool merged = extend(&m_ranges.merged, seen.merged);
  return low || high || merged;
}

// ---- Each plane by itself, marked or not

void JointHistogram::countEach(const kernels::PackedPair& run, const RunPlace& place,
                               const BytesAhead& ahead) {
  const std::size_t pixels = 2 * run.pairs;
  const bool isNew = extendRanges({m_notes.lowExtremes, m_notes.highExtremes, m_notes.mergedExtremes});
  if (m_marking && !isNew)
    countMarked(pixels, place, ahead);
  else
    countByThemselves(pixels, place);
  if (m_memory != nullptr && m_watch.isDue(pixels)) chooseWindows(pixels);
}

void JointHistogram::countByThemselves(std::size_t pixels, const RunPlace& place) {
  removeMarks(m_lowPixels, pixels);
  removeMarks(m_highPixels, pixels);
  if (m_marking && isUniform()) merge(m_rule.type, m_lowPixels, m_highPixels, m_mergedPixels, pixels);
  addRow(m_low, m_lowPixels, pixels, place.x, 2 * place.y);
  addRow(m_high, m_highPixels, pixels, place.x, 2 * place.y + 1);
  addRow(m_merged, m_mergedPixels, pixels, place.mergedX, place.mergedY);
}

void JointHistogram::beginMarks() {
  if (m_marking) return;
  std::fill_n(m_memory->lowMarks, kernels::markedEntries, 0U);
  std::fill_n(m_memory->highMarks, kernels::markedEntries, 0U);
  m_marking = true;
}

void JointHistogram::countMarked(std::size_t pixels, const RunPlace& place, const BytesAhead& ahead) {
  constexpr std::size_t stride = kernels::markedBankStride;
  m_kernel.countValues(m_lowPixels, pixels, m_memory->lowMarks, stride, ahead.first, ahead.count);
  m_kernel.countValues(m_highPixels, pixels, m_memory->highMarks, stride, nullptr, 0);
  if (!isUniform()) addRow(m_merged, m_mergedPixels, pixels, place.mergedX, place.mergedY);
}

void JointHistogram::putMarks() {
  putMarksOf(m_low, m_memory->lowMarks, 1);
  putMarksOf(m_high, m_memory->highMarks, 2);
}

/// Marked and other counts are the plane's; the marked ones, at the corrected values, are the merged plane's
/// where all pixels have the same terms.
void JointHistogram::putMarksOf(CFrameStatistics& plane, const std::uint32_t* banks, unsigned int mergeType) {
  static_assert(mostPixels >= pixelValues);
  std::uint32_t* const times = m_memory->times;
  std::iota(m_places, m_places + pixelValues, std::uint16_t{0});
  for (unsigned int value = 0; value < pixelValues; ++value)
    times[value] = countOf(banks, value) + countOf(banks, kernels::takenMark + value);
  addCounted(plane, {m_places, times, pixelValues});
  if (!isUniform()) return;
  merge(mergeType, m_places, m_places, m_places, pixelValues);
  for (unsigned int value = 0; value < pixelValues; ++value)
    times[value] = countOf(banks, kernels::takenMark + value);
  addCounted(m_merged, {m_places, times, pixelValues});
}

// ---- In windows

/// From the pixels that were just counted one by one.
void JointHistogram::chooseWindows(std::size_t pixels) {
  constexpr std::size_t samples = 512;
  int low[samples], high[samples], difference[samples];
  for (std::size_t i = 0; i < samples; ++i) {
    const std::size_t at = i * pixels / samples;
    low[i] = m_lowPixels[at] % pixelValues;
    high[i] = m_highPixels[at] % pixelValues;
    difference[i] = isUniform() ? 0 : m_mergedPixels[at] - high[i];
  }
  const Spread ofLow = spreadOf(low);
  const Spread ofHigh = spreadOf(high);
  const Spread ofDifference = spreadOf(difference);
  const unsigned int differenceBits = isUniform() ? 0 : ofDifference.bits();
  const unsigned int needed = ofLow.bits() + ofHigh.bits() + differenceBits;
  const unsigned int spare = needed < windowBits ? windowBits - needed : 0;
  const unsigned int spareLow = std::min((spare + 1) / 2, mostSpareBits);
  const unsigned int spareHigh = std::min(spare - spareLow, mostSpareBits);
  m_windows = {windowAround(ofLow, ofLow.bits() + spareLow), windowAround(ofHigh, ofHigh.bits() + spareHigh),
               isUniform() ? CountWindow{0, 0} : windowAround(ofDifference, differenceBits)};
  m_windows.low.first = std::max(m_windows.low.first, int{m_ranges.low.minimum});
  m_windows.high.first = std::max(m_windows.high.first, int{m_ranges.high.minimum});
  m_watch.looked(m_windows.bits() <= windowBits);
  if (m_watch.inWindows()) {
    std::fill_n(m_memory->together, std::size_t{1} << m_windows.bits(), 0U);
    placeWithinExtremes();
  } else {
    beginMarks();
  }
}

/// Whether pixels within these ranges cannot merge to a new extreme. Corrections keep their pixels' order.
bool JointHistogram::mergesWithinExtremes(const kernels::PairPlaces& where) const {
  std::uint16_t low[] = {where.low.first, where.low.last};
  std::uint16_t high[] = {where.high.first, where.high.last};
  merge(1, low, low, low, 2);
  merge(2, high, high, high, 2);
  return std::min(low[0], high[0]) >= m_ranges.merged.minimum &&
         std::max(low[1], high[1]) <= m_ranges.merged.maximum;
}

/// Only values between the extremes are counted together: whatever is a new one, is outside. Windows begin
/// there, so that no place changes when extremes do.
void JointHistogram::placeWithinExtremes() {
  const auto upTo = [](const CountWindow& window, unsigned int largest) -> kernels::ValueRange {
    const int last = std::min(window.last(), static_cast<int>(largest));
    return {static_cast<std::uint16_t>(window.first), static_cast<std::uint16_t>(last)};
  };
  kernels::PairPlaces& where = m_notes.where;
  where.low = upTo(m_windows.low, m_ranges.low.maximum);
  where.high = upTo(m_windows.high, m_ranges.high.maximum);
  where.merged = {m_ranges.merged.minimum, m_ranges.merged.maximum};
  where.withMerged = !isUniform() || !mergesWithinExtremes(where);
  where.difference = upTo(m_windows.difference, largestValue);
  where.withDifference = !isUniform();
  where.highShift = m_windows.difference.bits;
  where.lowShift = where.highShift + m_windows.high.bits;
}

void JointHistogram::countPlaces(const kernels::PackedPair& run, const RunPlace& place,
                                 const BytesAhead& ahead) {
  const std::size_t pixels = 2 * run.pairs;
  m_kernel.countValues(m_places, pixels, m_memory->together, 0, ahead.first, ahead.count);
  const std::size_t outside = m_kernel.findEach(m_places, pixels, 0, m_places);
  if (outside > 0) countOutside(run, outside, place);
  if (!m_watch.isOver(pixels, outside)) return;
  leaveWindows();
  beginMarks();
}

/// Counts the pixels of a run that are at m_places, by themselves.
void JointHistogram::countOutside(const kernels::PackedPair& run, std::size_t outside,
                                  const RunPlace& place) {
  for (std::size_t i = 0; i < outside; ++i) {
    m_lowPixels[i] = unpackedAt(run.packedLow, m_places[i]);
    m_highPixels[i] = unpackedAt(run.packedHigh, m_places[i]);
    if (!isUniform()) m_mergedPixels[i] = m_mergedPixels[m_places[i]];
  }
  if (isUniform()) merge(m_rule.type, m_lowPixels, m_highPixels, m_mergedPixels, outside);
  Ranges seen{};
  m_kernel.findExtremes(m_lowPixels, outside, &seen.low);
  m_kernel.findExtremes(m_highPixels, outside, &seen.high);
  m_kernel.findExtremes(m_mergedPixels, outside, &seen.merged);
  if (!extendRanges(seen)) {
    handOver(outside, nullptr);
    return;
  }
  for (std::size_t i = 0; i < outside; ++i) {
    m_low.AddPixel(m_lowPixels[i], {place.x + m_places[i], 2 * place.y});
    m_high.AddPixel(m_highPixels[i], {place.x + m_places[i], 2 * place.y + 1});
    m_merged.AddPixel(m_mergedPixels[i], {place.mergedX + m_places[i], place.mergedY});
  }
  placeWithinExtremes();
}

/// Gives pixels of all planes to the accumulators, once each where `times` is null.
void JointHistogram::handOver(std::size_t count, const std::uint32_t* times) {
  addCounted(m_low, {m_lowPixels, times, count});
  addCounted(m_high, {m_highPixels, times, count});
  addCounted(m_merged, {m_mergedPixels, times, count});
}

/// Brings what was counted together to each plane.
void JointHistogram::leaveWindows() {
  const unsigned int highValues = static_cast<unsigned int>(m_windows.high.size());
  const unsigned int differences = static_cast<unsigned int>(m_windows.difference.size());
  std::size_t batch = 0;
  const auto flush = [&] {
    if (isUniform()) merge(m_rule.type, m_lowPixels, m_highPixels, m_mergedPixels, batch);
    handOver(batch, m_memory->times);
    batch = 0;
  };
  m_memory->together[0] = 0;  // says nothing: those outside are counted already
  forEachCount(m_memory->together, std::size_t{1} << m_windows.bits(),
               [&](unsigned int place, std::uint32_t times) {
                 const int low = m_windows.low.first + static_cast<int>(place / differences / highValues);
                 const int high = m_windows.high.first + static_cast<int>(place / differences % highValues);
                 const int merged = high + m_windows.difference.first + static_cast<int>(place % differences);
                 m_lowPixels[batch] = static_cast<std::uint16_t>(low);
                 m_highPixels[batch] = static_cast<std::uint16_t>(high);
                 m_mergedPixels[batch] = static_cast<std::uint16_t>(merged);
                 m_memory->times[batch] = times;
                 if (++batch == mostPixels) flush();
                 return true;
               });
  flush();
  m_watch.left();
}

}  // namespace orvacam
