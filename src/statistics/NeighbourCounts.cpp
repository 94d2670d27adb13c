#include "statistics/NeighbourCounts.h"

#include <algorithm>

namespace orvacam {

namespace {

/// Pixels that are added at once: what is noted of them stays in the cache.
constexpr std::size_t blockPixels = 8192;
constexpr WindowWatch::Rules neighbourRules = {1, 8, 65536};

}  // namespace

kernels::Extremes countRow(const std::uint16_t* pixels, std::size_t count, Histogram histogram,
                           bool isSmall) {
  const kernels::KernelTable& kernel = kernels::active();
  kernels::Extremes extremes;
  kernel.findExtremes(pixels, count, &extremes);
  if (isSmall)
    histogram.useEach(pixels, count, extremes);
  else
    histogram.use(extremes);
  kernel.countValues(pixels, count, histogram.counts(), 0, pixels + count, count * sizeof *pixels);
  return extremes;
}

NeighbourCounts::NeighbourCounts() : m_watch(neighbourRules), m_first(0) {}

kernels::Extremes NeighbourCounts::addRow(const std::uint16_t* pixels, std::size_t count,
                                          Histogram histogram) {
  if (!m_watch.inWindows() && m_watch.isDue(count)) chooseWindow(pixels, count);
  if (!m_watch.inWindows()) return countRow(pixels, count, histogram, false);
  return addPairs(pixels, count, histogram);
}

kernels::Extremes NeighbourCounts::addPairs(const std::uint16_t* pixels, std::size_t count,
                                            Histogram histogram) {
  const std::uint16_t last = pixels[count - 1];
  kernels::Extremes all = {last, last};
  std::size_t pairsOutside = 0;
  for (std::size_t done = 0; done + 1 < count; done += blockPixels) {
    kernels::Extremes extremes;
    pairsOutside += addBlock(pixels + done, std::min(blockPixels, count - done) / 2, histogram, &extremes);
    all = {std::min(all.minimum, extremes.minimum), std::max(all.maximum, extremes.maximum)};
  }
  if (count % 2 != 0) histogram.add(last, 1);
  if (m_watch.isOver(count, 2 * pairsOutside)) fold(histogram);
  return all;
}

/// Counts pairs; how many were outside the window, and the extremes of all.
std::size_t NeighbourCounts::addBlock(const std::uint16_t* pixels, std::size_t pairs, Histogram histogram,
                                      kernels::Extremes* extremes) {
  const kernels::KernelTable& kernel = kernels::active();
  alignas(64) std::uint16_t places[blockPixels / 2];  // kernels write and read whole cache lines
  std::uint16_t outside[blockPixels / 2];
  kernel.placePairs(pixels, pairs, m_first, places, extremes);
  kernel.countValues(places, pairs, m_banks, kernels::pairBankStride, pixels + 2 * pairs,
                     2 * pairs * sizeof *pixels);
  const std::size_t found = kernel.findEach(places, pairs, 0, outside);
  for (std::size_t i = 0; i < found; ++i)
    for (const std::size_t pixel : {2UL * outside[i], 2UL * outside[i] + 1})
      histogram.add(pixels[pixel], 1);
  return found;
}

/// A window around most of these pixels, if one is wide enough.
void NeighbourCounts::chooseWindow(const std::uint16_t* pixels, std::size_t count) {
  constexpr std::size_t samples = 256;
  constexpr int largest = 65535;
  int sample[samples];
  for (std::size_t i = 0; i < samples; ++i)
    sample[i] = pixels[i * count / samples];
  const Spread spread = spreadOf(sample);
  m_watch.looked(spread.bits() <= kernels::pairWindowBits);
  if (!m_watch.inWindows()) return;
  m_first =
      static_cast<std::uint16_t>(movedWithin(windowAround(spread, kernels::pairWindowBits), largest).first);
  std::fill_n(m_banks, kernels::pairEntries, 0U);
}

void NeighbourCounts::fold(Histogram histogram) {
  forEach([&](unsigned int value, std::uint32_t times) { histogram.add(value, times); });
  if (m_watch.inWindows()) m_watch.left();
}

}  // namespace orvacam
