#ifndef ORVACAM_SCIENCE_FRAME_BANDS_H
#define ORVACAM_SCIENCE_FRAME_BANDS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <orvacam.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvacam::science {

/// Frames that cannot be taken together, in one sentence.
class SeriesError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Many frames, each of which can be had again and again: a pass asks for every one once, in order. What the
/// functions throw goes through; what was asked for last is the frame that it is about.
struct FrameSeries {
  std::size_t count = 0;
  std::function<Frame(std::size_t index)> read;
  /// With the caller's corrections.
  std::function<Decoded(const Frame& frame, Planes wanted)> decode;
};

/// Of files, without corrections.
FrameSeries seriesOf(std::vector<std::string> paths);

struct BandSettings {
  /// Names; none: the plane that stacks take (merged, else image, else low).
  std::vector<std::string> planes = {};
  Unlike allowed = Unlike::nothing;
  std::uint64_t memory = std::uint64_t{1} << 30;  ///< bytes, for all that the process needs
  std::uint64_t bytesPerPixel = 0;                ///< of a plane, that the caller keeps beside the bands
  bool histograms = false;                        ///< whether planes carry them in the first pass
};

/// Some rows of all frames.
struct Band {
  std::uint32_t first = 0, rows = 0;  ///< of the plane's rows
  std::uint32_t width = 0;            ///< of the plane
  /// By plane, in the order of the settings, and by frame: rows * width pixels without gaps.
  std::vector<std::vector<const std::uint16_t*>> pixels;

  std::size_t count() const { return std::size_t{rows} * width; }
};

/// What was seen of a frame in the first pass. Planes are those of the settings.
struct SeenFrame {
  std::size_t index = 0;
  const Frame* frame = nullptr;
  std::vector<Plane> planes;
};

/// Frames that are alike, one after the other, as often as they are needed.
class FrameScan {
 public:
  /// Throws SeriesError: no frames.
  FrameScan(FrameSeries series, BandSettings settings);

  /// One pass over the frames. Throws what reading and decoding throw; SeriesError: a frame that lacks a
  /// plane or changed between passes, a limit of memory that does not hold one frame; orvacam::Error
  /// (mismatch): a frame that is unlike the first one.
  void pass(const std::function<void(const SeenFrame&)>& use);

  /// From the first frame on: the planes' names and size, and the bytes that one frame and the caller take.
  const std::vector<std::string>& planes() const { return m_settings.planes; }
  Size size() const { return m_size; }
  std::uint64_t bytes() const { return m_bytes; }
  std::size_t count() const { return m_series.count; }
  std::uint64_t memory() const { return m_settings.memory; }
  /// How many passes were begun.
  std::uint32_t passes() const { return m_passes; }

 private:
  void begin(const Frame& first);
  std::vector<Plane> decoded(const Frame& frame);

  FrameSeries m_series;
  BandSettings m_settings;
  std::vector<std::size_t> m_headers;  ///< a digest of each frame's, to know it again
  std::optional<Header> m_first;
  Size m_size{0, 0};
  std::uint64_t m_bytes = 0;
  std::uint32_t m_passes = 0;
};

/// The rows of many frames, band after band, within a limit of memory. All bands are of the same height but
/// for the last; one band, and so one pass, where everything fits.
class FrameBands {
 public:
  /// Throws SeriesError: no frames.
  FrameBands(FrameSeries series, BandSettings settings) : m_scan(std::move(series), std::move(settings)) {}

  /// Calls `seen` for each frame in the first pass, `use` for each band. Throws what FrameScan does;
  /// SeriesError, too, for a limit of memory that is too small for one row of all frames.
  void run(const std::function<void(const SeenFrame&)>& seen, const std::function<void(const Band&)>& use);

  const FrameScan& scan() const { return m_scan; }

 private:
  void plan();
  void keep(const SeenFrame& one, Band& band);

  FrameScan m_scan;
  std::uint32_t m_rows = 0, m_bands = 0;
  std::unique_ptr<std::uint16_t[]> m_pixels;
};

/// The median of a plane's image region, from its histogram.
double medianOf(const Statistics& statistics);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_FRAME_BANDS_H
