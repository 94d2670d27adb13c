#include "science/FrameStack.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace orvacam::science {

namespace {

using Method = Stack::Method;
using Normalization = StackSettings::Normalization;

bool isNormalized(const StackSettings& settings) {
  return settings.normalization != Normalization::none;
}

/// What is done to each frame's values, worked out as the frames come.
class Adjustments {
 public:
  explicit Adjustments(const StackSettings& settings) : m_settings(settings) {}

  void see(const Frame& frame, const Plane& plane) {
    m_weights.push_back(frame.header().exposure_seconds());
    if (!isNormalized(m_settings)) return;
    const double median = medianOf(plane.statistics().value());
    if (m_scales.empty()) m_first = median;
    const bool scaled = m_settings.normalization == Normalization::multiplicative;
    if (scaled && median == 0)
      throw SeriesError("has a median of 0, to which nothing can be scaled; --normalize additive can");
    m_scales.push_back(scaled ? m_first / median : 1);
    m_offsets.push_back(scaled ? 0 : m_first - median);
  }
  double scale() const { return m_scales.empty() ? 1 : m_scales.back(); }
  double offset() const { return m_offsets.empty() ? 0 : m_offsets.back(); }
  double weight() const { return isWeighted() ? m_weights.back() : 1; }
  bool isWeighted() const { return m_settings.weights == StackSettings::Weights::exposure; }

  Combining combining() const {
    Combining how{m_settings.method, m_settings.sigmaLow, m_settings.sigmaHigh, {}, {}, {}};
    if (m_settings.normalization == Normalization::multiplicative) how.scales = m_scales;
    if (m_settings.normalization == Normalization::additive) how.offsets = m_offsets;
    if (isWeighted()) how.weights = m_weights;
    return how;
  }

 private:
  const StackSettings& m_settings;
  double m_first = 0;  ///< the first frame's median
  std::vector<double> m_scales, m_offsets, m_weights;
};

BandSettings bandsOf(const StackSettings& settings, std::uint64_t bytesPerPixel) {
  BandSettings bands;
  if (!settings.plane.empty()) bands.planes = {settings.plane};
  bands.allowed = settings.allowed;
  bands.memory = settings.memory;
  bands.bytesPerPixel = settings.bytesPerPixel + bytesPerPixel;
  bands.histograms = isNormalized(settings);
  return bands;
}

constexpr std::size_t piece = 65536;

/// All values of a pixel at once.
std::string stackByBands(const FrameSeries& series, const StackSettings& settings,
                         const std::function<void(const Frame&)>& seen,
                         const std::function<void(const StackedPixels&)>& put) {
  Adjustments adjustments(settings);
  FrameBands bands(series, bandsOf(settings, 0));
  std::vector<double> values(piece);
  std::vector<std::uint16_t> rejected(piece);
  std::vector<const std::uint16_t*> rows(series.count);
  bands.run(
      [&](const SeenFrame& one) {
        adjustments.see(*one.frame, one.planes.front());
        seen(*one.frame);
      },
      [&](const Band& band) {
        const Combining how = adjustments.combining();
        for (std::size_t first = 0; first < band.count(); first += piece) {
          const std::size_t count = std::min(piece, band.count() - first);
          std::transform(band.pixels.front().begin(), band.pixels.front().end(), rows.begin(),
                         [&](const std::uint16_t* row) { return row + first; });
          combine(how, rows, count, {values.data(), nullptr, rejected.data()});
          put({std::size_t{band.first} * band.width + first, count, values.data(), rejected.data()});
        }
      });
  return bands.scan().planes().front();
}

/// Methods that take one frame after the other: values so far, and the sum of the weights.
class Running {
 public:
  Running(Method method, std::size_t pixels) : m_method(method), m_values(pixels) {}

  void add(const Plane& plane, const Adjustments& by) {
    const std::uint16_t* const pixels = plane.data();
    const double scale = by.scale(), offset = by.offset(), weight = by.weight();
    const auto each = [&](auto step) {
      for (std::size_t i = 0; i < m_values.size(); ++i)
        m_values[i] = step(m_values[i], static_cast<double>(pixels[i]) * scale + offset);
    };
    if (m_method == Method::mean || m_method == Method::sum)
      each([weight](double sum, double value) { return sum + weight * value; });
    else if (m_frames == 0)
      each([](double, double value) { return value; });
    else if (m_method == Method::minimum)
      each([](double kept, double value) { return value < kept ? value : kept; });
    else
      each([](double kept, double value) { return value > kept ? value : kept; });
    ++m_frames;
    m_weights += weight;
  }

  void put(const std::function<void(const StackedPixels&)>& to) {
    if (m_method == Method::mean) {
      if (m_weights == 0) throw SeriesError("all exposures are 0, by which nothing can be weighted");
      for (double& value : m_values)
        value /= m_weights;
    }
    const std::vector<std::uint16_t> none(std::min(piece, m_values.size()));
    for (std::size_t first = 0; first < m_values.size(); first += piece)
      to({first, std::min(piece, m_values.size() - first), m_values.data() + first, none.data()});
  }

 private:
  Method m_method;
  std::vector<double> m_values;
  std::uint64_t m_frames = 0;
  double m_weights = 0;
};

std::string stackRunning(const FrameSeries& series, const StackSettings& settings,
                         const std::function<void(const Frame&)>& seen,
                         const std::function<void(const StackedPixels&)>& put) {
  Adjustments adjustments(settings);
  std::optional<Running> running;
  FrameScan scan(series, bandsOf(settings, sizeof(double)));
  scan.pass([&](const SeenFrame& one) {
    const Plane& plane = one.planes.front();
    adjustments.see(*one.frame, plane);
    if (!running) running.emplace(settings.method, std::size_t{plane.size().width} * plane.size().height);
    running->add(plane, adjustments);
    seen(*one.frame);
  });
  running.value().put(put);
  return scan.planes().front();
}

}  // namespace

std::string stackFrames(const FrameSeries& series, const StackSettings& settings,
                        const std::function<void(const Frame&)>& seen,
                        const std::function<void(const StackedPixels&)>& put) {
  const Method method = settings.method;
  const bool runs = method == Method::mean || method == Method::sum || method == Method::minimum ||
                    method == Method::maximum;
  return runs && !settings.byBands ? stackRunning(series, settings, seen, put)
                                   : stackByBands(series, settings, seen, put);
}

}  // namespace orvacam::science
