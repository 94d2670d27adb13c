#include "frames/PairStatistics.h"

#include <algorithm>
#include <numeric>

namespace orvacam {

namespace {

constexpr unsigned int pixelBits = 12;
constexpr int pixelValues = 1 << pixelBits;
constexpr unsigned int largestValue = 65535;

/// Smaller planes are not worth looking for windows: their table is cleared and read once for each plane.
constexpr std::size_t smallestPlane = 131072;
constexpr unsigned int windowBits = 16;  // together
constexpr unsigned int mostSpareBits = 3;
/// Whether windows fit is looked at after so many pixels; then at most a quarter of these are outside.
constexpr std::size_t pixelsOfJudgement = 2048;
/// Windows that soon fit no more are not followed at once: the frame has too much in it.
constexpr std::size_t shortLife = 32768;
constexpr std::size_t pauseAfterShortLife = 131072;
constexpr std::size_t never = ~std::size_t{0};

/// The count of a value that may be marked.
unsigned int countOf(const unsigned int* banks, unsigned int value) {
  unsigned int count = 0;
  for (unsigned int bank = 0; bank < kernels::countBanks; ++bank)
    count += banks[bank * kernels::markedBankStride + value];
  return count;
}

std::uint16_t unpackedAt(const std::uint8_t* packed, std::size_t i) {
  const std::uint8_t* const pair = packed + i / 2 * 3;
  const unsigned int both =
      static_cast<unsigned int>(pair[0]) << 16 | static_cast<unsigned int>(pair[1]) << 8 | pair[2];
  return static_cast<std::uint16_t>(both >> (i % 2 == 0 ? pixelBits : 0) & (pixelValues - 1));
}

}  // namespace

PairStatistics::PairStatistics(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged,
                               const MergeTerms& terms, std::size_t pixels)
    : m_kernel(kernels::active()),
      m_low(low),
      m_high(high),
      m_merged(merged),
      m_terms(terms),
      m_notes(),
      m_pixelsUntilChoice(pixels >= smallestPlane ? 0 : never) {
  static_assert(kernels::markedEntries + (std::size_t{1} << windowBits) <=
                CFrameStatistics::s_uiValues + CFrameStatistics::s_uiSpareEntries);
  for (CFrameStatistics* plane : {&m_low, &m_high})
    std::fill_n(plane->m_Counts.GetEntries(), kernels::markedEntries, 0U);
}

kernels::PairNotes& PairStatistics::notes() {
  m_notes.low = m_inWindows ? nullptr : m_lowPixels;
  m_notes.high = m_inWindows ? nullptr : m_highPixels;
  m_notes.places = m_inWindows ? m_places : nullptr;
  m_notes.merged = m_terms.isUniform ? nullptr : m_mergedPixels;
  return m_notes;
}

void PairStatistics::add(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead) {
  if (run.pairs == 0) return;
  if (m_inWindows)
    countPlaces(run, place, ahead);
  else
    countMarked(run, place, ahead);
  for (CFrameStatistics* plane : {&m_low, &m_high, &m_merged})
    plane->m_uiCount += static_cast<unsigned int>(2 * run.pairs);
}

void PairStatistics::finish() {
  if (m_inWindows) leaveWindows();
  if (m_terms.isUniform && m_merged.m_uiCount > 0) {
    static_assert(mergeBlock >= pixelValues);
    for (unsigned short* pixels : {m_lowPixels, m_highPixels})
      std::iota(pixels, pixels + pixelValues, static_cast<unsigned short>(0));
    correct(1, m_lowPixels, pixelValues);
    correct(2, m_highPixels, pixelValues);
    m_merged.m_Counts.Cover(m_merged.m_uiMin, m_merged.m_uiMax);
    putTaken(m_low, m_lowPixels);
    putTaken(m_high, m_highPixels);
  }
  unmark(m_low);
  unmark(m_high);
}

// ---- Each plane by itself

void PairStatistics::countMarked(const kernels::PackedPair& run, const RunPlace& place,
                                 const BytesAhead& ahead) {
  const std::size_t pixels = 2 * run.pairs;
  m_kernel.countValues(m_lowPixels, pixels, m_low.m_Counts.GetEntries(), kernels::markedBankStride,
                       ahead.first, ahead.count);
  m_kernel.countValues(m_highPixels, pixels, m_high.m_Counts.GetEntries(), kernels::markedBankStride, nullptr,
                       0);
  if (!m_terms.isUniform) {
    m_merged.m_Counts.Cover(m_notes.mergedExtremes.minimum, m_notes.mergedExtremes.maximum);
    m_kernel.countValues(m_mergedPixels, pixels, m_merged.m_Counts.GetEntries(), 0, nullptr, 0);
  }
  const auto first = [&](const std::uint8_t* packed) {
    return [this, &run, packed](std::uint16_t value) {
      m_kernel.unpack12(packed, m_places, run.pairs);
      return m_kernel.findFirst(m_places, 2 * run.pairs, value);
    };
  };
  m_low.DoExtend({m_notes.lowExtremes.minimum, m_notes.lowExtremes.maximum}, {place.x, 2 * place.y},
                 first(run.packedLow));
  m_high.DoExtend({m_notes.highExtremes.minimum, m_notes.highExtremes.maximum}, {place.x, 2 * place.y + 1},
                  first(run.packedHigh));
  m_merged.DoExtend({m_notes.mergedExtremes.minimum, m_notes.mergedExtremes.maximum},
                    {place.mergedX, place.mergedY},
                    [&](std::uint16_t value) { return m_kernel.findFirst(run.merged, pixels, value); });
  if (m_pixelsUntilChoice == never) return;
  m_pixelsUntilChoice -= std::min(m_pixelsUntilChoice, pixels);
  if (m_pixelsUntilChoice == 0) chooseWindows(pixels);
}

/// What becomes of pixels when the merge takes one plane's only (type 1 low, 2 high gain).
void PairStatistics::correct(unsigned int type, unsigned short* pixels, std::size_t count) const {
  kernels::MergeRule rule = m_terms.rule;
  rule.type = type;
  m_kernel.mergeUniform(pixels, pixels, pixels, count, rule, m_terms.uniform);
}

/// Puts the counts of the pixels that the merge took of a plane at their corrected values.
void PairStatistics::putTaken(CFrameStatistics& plane, const unsigned short* corrected) {
  const unsigned int* const marked = plane.m_Counts.GetEntries();
  unsigned int* const counts = m_merged.m_Counts.GetEntries();
  for (unsigned int value = plane.m_uiMin; value <= plane.m_uiMax; ++value)
    if (const unsigned int taken = countOf(marked, pixelValues + value)) counts[corrected[value]] += taken;
}

/// Marked and other counts become the plane's.
void PairStatistics::unmark(CFrameStatistics& plane) {
  if (plane.m_uiMin > plane.m_uiMax) return;
  const unsigned int* const marked = plane.m_Counts.GetEntries();
  unsigned int counts[pixelValues];
  for (unsigned int value = plane.m_uiMin; value <= plane.m_uiMax; ++value)
    counts[value] = countOf(marked, value) + countOf(marked, pixelValues + value);
  plane.m_Counts.Clear();
  plane.m_Counts.Cover(plane.m_uiMin, plane.m_uiMax);
  std::copy(counts + plane.m_uiMin, counts + plane.m_uiMax + 1, plane.m_Counts.GetEntries() + plane.m_uiMin);
}

// ---- Both together

/// From the pixels that were just counted one by one.
void PairStatistics::chooseWindows(std::size_t pixels) {
  constexpr std::size_t samples = 512;
  int low[samples], high[samples], difference[samples];
  for (std::size_t i = 0; i < samples; ++i) {
    const std::size_t at = i * pixels / samples;
    low[i] = m_lowPixels[at] % pixelValues;
    high[i] = m_highPixels[at] % pixelValues;
    difference[i] = m_terms.isUniform ? 0 : m_mergedPixels[at] - high[i];
  }
  const Spread ofLow = spreadOf(low);
  const Spread ofHigh = spreadOf(high);
  const Spread ofDifference = spreadOf(difference);
  const unsigned int differenceBits = m_terms.isUniform ? 0 : ofDifference.bits();
  const unsigned int needed = ofLow.bits() + ofHigh.bits() + differenceBits;
  const unsigned int spare = needed < windowBits ? windowBits - needed : 0;
  const unsigned int spareLow = std::min((spare + 1) / 2, mostSpareBits);
  const unsigned int spareHigh = std::min(spare - spareLow, mostSpareBits);
  m_windows = {windowAround(ofLow, ofLow.bits() + spareLow), windowAround(ofHigh, ofHigh.bits() + spareHigh),
               m_terms.isUniform ? CountWindow{0, 0} : windowAround(ofDifference, differenceBits)};
  m_windows.low.first = std::max(m_windows.low.first, static_cast<int>(m_low.m_uiMin));
  m_windows.high.first = std::max(m_windows.high.first, static_cast<int>(m_high.m_uiMin));
  m_inWindows = m_windows.bits() <= windowBits;
  m_pixelsInWindows = m_pixelsToJudge = m_outsideToJudge = 0;
  m_pixelsUntilChoice = pauseAfterShortLife;
  if (!m_inWindows) return;
  std::fill_n(together(), std::size_t{1} << m_windows.bits(), 0U);
  placeWithinExtremes();
}

/// Whether pixels within these ranges cannot merge to a new extreme. Corrections keep their pixels' order.
bool PairStatistics::mergesWithinExtremes(const kernels::PairPlaces& where) const {
  unsigned short low[] = {where.low.first, where.low.last};
  unsigned short high[] = {where.high.first, where.high.last};
  correct(1, low, 2);
  correct(2, high, 2);
  return std::min(low[0], high[0]) >= m_merged.m_uiMin && std::max(low[1], high[1]) <= m_merged.m_uiMax;
}

/// Only values between the extremes are counted together: whatever is a new one, is outside. Windows begin
/// there, so that no place changes when extremes do.
void PairStatistics::placeWithinExtremes() {
  const auto upTo = [](const CountWindow& window, unsigned int largest) -> kernels::ValueRange {
    const int last = std::min(window.last(), static_cast<int>(largest));
    return {static_cast<std::uint16_t>(window.first), static_cast<std::uint16_t>(last)};
  };
  kernels::PairPlaces& where = m_notes.where;
  where.low = upTo(m_windows.low, m_low.m_uiMax);
  where.high = upTo(m_windows.high, m_high.m_uiMax);
  where.merged = {static_cast<std::uint16_t>(m_merged.m_uiMin), static_cast<std::uint16_t>(m_merged.m_uiMax)};
  where.withMerged = !m_terms.isUniform || !mergesWithinExtremes(where);
  where.difference = upTo(m_windows.difference, largestValue);
  where.withDifference = !m_terms.isUniform;
  where.highShift = m_windows.difference.bits;
  where.lowShift = where.highShift + m_windows.high.bits;
}

void PairStatistics::countPlaces(const kernels::PackedPair& run, const RunPlace& place,
                                 const BytesAhead& ahead) {
  const std::size_t pixels = 2 * run.pairs;
  m_kernel.countValues(m_places, pixels, together(), 0, ahead.first, ahead.count);
  const std::size_t outside = m_kernel.findEach(m_places, pixels, 0, m_places);
  if (outside > 0) countOutside(run, outside, place);
  m_pixelsInWindows += pixels;
  m_pixelsToJudge += pixels;
  m_outsideToJudge += outside;
  if (m_pixelsToJudge < pixelsOfJudgement) return;
  if (m_outsideToJudge > m_pixelsToJudge / 4) {
    leaveWindows();
    m_pixelsUntilChoice = m_pixelsInWindows < shortLife ? pauseAfterShortLife : 0;
  }
  m_pixelsToJudge = m_outsideToJudge = 0;
}

/// Counts the pixels of a run that are at m_places.
void PairStatistics::countOutside(const kernels::PackedPair& run, std::size_t outside,
                                  const RunPlace& place) {
  for (std::size_t i = 0; i < outside; ++i) {
    m_lowPixels[i] = unpackedAt(run.packedLow, m_places[i]);
    m_highPixels[i] = unpackedAt(run.packedHigh, m_places[i]);
    if (!m_terms.isUniform) m_mergedPixels[i] = m_mergedPixels[m_places[i]];
  }
  const auto once = [](std::size_t /*i*/) { return 1U; };
  const auto extend = [&](CFrameStatistics& plane, const unsigned short* pixels, const int_point_t& start) {
    kernels::Extremes extremes;
    m_kernel.findExtremes(pixels, outside, &extremes);
    return plane.DoExtend({extremes.minimum, extremes.maximum}, start, [&](std::uint16_t value) {
      return m_places[m_kernel.findFirst(pixels, outside, value)];
    });
  };
  if (m_terms.isUniform) mergeBatch(outside);
  const bool newLow = extend(m_low, m_lowPixels, {place.x, 2 * place.y});
  const bool newHigh = extend(m_high, m_highPixels, {place.x, 2 * place.y + 1});
  const bool newMerged = extend(m_merged, m_mergedPixels, {place.mergedX, place.mergedY});
  countBatch(outside, once);
  if (newLow || newHigh || newMerged) placeWithinExtremes();
}

void PairStatistics::mergeBatch(std::size_t pixels) {
  m_kernel.mergeUniform(m_lowPixels, m_highPixels, m_mergedPixels, pixels, m_terms.rule, m_terms.uniform);
}

/// Counts pixels of both gains, each so many times, and what they merge to.
template <typename Times>
void PairStatistics::countBatch(std::size_t pixels, const Times& times) {
  m_merged.m_Counts.Cover(m_merged.m_uiMin, m_merged.m_uiMax);
  unsigned int* const low = m_low.m_Counts.GetEntries();
  unsigned int* const high = m_high.m_Counts.GetEntries();
  unsigned int* const merged = m_merged.m_Counts.GetEntries();
  for (std::size_t i = 0; i < pixels; ++i) {
    const unsigned int count = times(i);
    low[m_lowPixels[i]] += count;
    high[m_highPixels[i]] += count;
    merged[m_mergedPixels[i]] += count;
  }
}

/// Brings what was counted together to each plane.
void PairStatistics::leaveWindows() {
  const std::size_t highValues = static_cast<std::size_t>(m_windows.high.size());
  const std::size_t differences = static_cast<std::size_t>(m_windows.difference.size());
  const std::size_t places = std::size_t{1} << m_windows.bits();
  const unsigned int* const counts = together();
  std::size_t batch = 0;
  const auto flush = [&] {
    if (m_terms.isUniform) mergeBatch(batch);
    countBatch(batch, [&](std::size_t i) { return counts[m_places[i]]; });
    batch = 0;
  };
  for (std::size_t place = 1; place < places; ++place) {
    if (counts[place] == 0) continue;
    const int low = m_windows.low.first + static_cast<int>(place / differences / highValues);
    const int high = m_windows.high.first + static_cast<int>(place / differences % highValues);
    const int merged = high + m_windows.difference.first + static_cast<int>(place % differences);
    m_places[batch] = static_cast<unsigned short>(place);
    m_lowPixels[batch] = static_cast<unsigned short>(low);
    m_highPixels[batch] = static_cast<unsigned short>(high);
    m_mergedPixels[batch] = static_cast<unsigned short>(merged);
    if (++batch == mergeBlock) flush();
  }
  flush();
  m_inWindows = false;
}

}  // namespace orvacam
