#include "Stacking.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iterator>
#include <memory>

#include "Corrections.h"
#include "ForEach.h"
#include "Progress.h"
#include "files/Text.h"
#include "science/FrameStack.h"

namespace tool {

namespace {

namespace science = orvacam::science;
using files::PartialStack;
using files::Raster;
using files::StackRecord;
using orvacam::Frame;
using orvacam::Stack;

constexpr struct {
  const char* name;
  Stack::Method method;
} methods[] = {{"mean", Stack::Method::mean},
               {"sum", Stack::Method::sum},
               {"median", Stack::Method::median},
               {"min", Stack::Method::minimum},
               {"max", Stack::Method::maximum},
               {"sigma", Stack::Method::sigma_clip},
               {"winsorized", Stack::Method::winsorized}};

Stack::Method methodOf(const StackOptions& options) {
  for (const auto& row : methods)
    if (options.method == row.name) return row.method;
  return Stack::Method::mean;
}

std::size_t bytesOfResult(const StackOptions& options) {
  return options.type == "uint16" ? 2 : options.type == "float32" ? 4 : 8;
}

/// What the corrections have done to the stacked plane, from the first frame on.
void describe(StackRecord& record, Corrections& corrections, const orvacam::Header& first,
              const std::string& plane) {
  files::Subject subject = files::subjectOf(first, plane);
  corrections.describe(subject, first);
  record.merge = subject.merge;
  record.bias = subject.bias;
  record.history = subject.history;
  record.corrections = corrections.digests();
}

/// How the frames became one, as history.
std::string historyOf(const StackOptions& options, std::uint64_t frames) {
  std::string text = options.method;
  if (options.rejects())
    text += " (" + files::numberText(options.sigmaLow) + ", " + files::numberText(options.sigmaHigh) + ")";
  text += " of " + std::to_string(frames) + " frames";
  if (options.normalization != "none") text += ", " + options.normalization + " normalization";
  if (options.weights != "none") text += ", weights by " + options.weights;
  return text;
}

void finishProduct(Product& product, const StackOptions& options) {
  product.subject.history.push_back(historyOf(options, product.subject.stack->frames));
  finish(product.subject, options.outputs.reproducible);
}

template <typename Pixel>
void hold(Product& product, orvacam::Size size, Raster::Sample sample, std::vector<Pixel> pixels) {
  const auto owner = std::make_shared<const std::vector<Pixel>>(std::move(pixels));
  product.raster = {size, sample, owner->data()};
  product.owner = owner;
}

template <typename Pixel>
void hold(Product& product, Raster::Sample sample, const orvacam::Image<Pixel>& image) {
  const auto owner = std::make_shared<const orvacam::Image<Pixel>>(image);
  product.raster = {owner->size(), sample, owner->data()};
  product.owner = owner;
}

constexpr std::uint64_t processBytes = std::uint64_t{24} << 20, mebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t bytesOfSums = 2 * sizeof(std::uint64_t);  // a pixel, whatever the number of frames

/// Whether a frame, and so many bytes for each pixel of a plane, fit into the memory.
bool fits(const StackOptions& options, const std::vector<Input>& inputs, std::uint64_t bytesPerPixel) {
  const std::string& path = inputs.front().path;
  std::error_code error;
  const std::uint64_t frame = std::filesystem::file_size(path, error);
  if (error) return true;  // standard input; reading says what is wrong
  const auto holds = [&](std::uint64_t pixels) {
    return processBytes + frame + pixels * bytesPerPixel <= options.memory;
  };
  if (holds(frame * 2 / 3)) return true;  // a pixel has 12 bits or more
  try {
    const orvacam::Size size = orvacam::Header::read(path).frame_size();
    return holds(std::uint64_t{size.width} * size.height);
  } catch (const orvacam::Error&) {
    return true;
  }
}

/// The sums, and their file, of a partial stack.
void requireMemory(const StackOptions& options, const Frame& first) {
  const orvacam::Size size = first.header().frame_size();
  const std::uint64_t pixels = std::uint64_t{size.width} * size.height;
  const std::uint64_t stacking = first.bytes().size() + pixels * (bytesOfSums + sizeof(std::uint16_t));
  const std::uint64_t needed = processBytes + std::max(stacking, pixels * 3 * bytesOfSums);
  if (needed > options.memory)
    throw Failure("needs " + std::to_string((needed + mebibyte - 1) / mebibyte) +
                  "M of memory to be summed, --memory is " + std::to_string(options.memory / mebibyte) + "M");
}

std::optional<PartialStack> sumOfFrames(const StackOptions& options, const std::vector<Input>& inputs) {
  Corrections corrections(options.corrections);
  PartialStack part{{}, Stack(methodOf(options))};
  part.stack.decoder(corrections.decoder()).allow_unlike(options.force);
  if (!options.plane.empty()) part.stack.plane(options.plane);
  part.record.forced = options.force;
  // A mean without one of its frames would be another mean.
  const int code = untilFailure(inputs, [&](const Input& input) {
    const Frame frame = readFrame(input.path);
    corrections.requireApplicable(frame);
    if (part.stack.count() == 0) {
      frame.header().image_region();
      if (!options.partial.empty()) requireMemory(options, frame);
    }
    part.stack.add(frame);
    if (part.stack.count() == 1) describe(part.record, corrections, frame.header(), part.stack.plane());
    part.record.add(frame, !options.partial.empty());
  });
  if (code != Good) return std::nullopt;
  return part;
}

std::optional<PartialStack> sumOfParts(const StackOptions& options, const std::vector<Input>& inputs) {
  std::optional<PartialStack> sum;
  const int code = untilFailure(inputs, [&](const Input& input) {
    PartialStack part = files::readPartialStack(input.path, methodOf(options));
    if (sum)
      files::addPart(*sum, part, options.force);
    else if (part.record.forced && !options.force)
      throw Failure("holds frames that may be unlike, as --force allowed; --force takes it");
    else
      sum = std::move(part);
  });
  if (code != Good) return std::nullopt;
  return sum;
}

/// Values of a result in the type that was asked for.
class Pixels {
 public:
  explicit Pixels(const std::string& type) : m_type(type) {}

  void add(const science::StackedPixels& some) {
    const double *const from = some.values, *const to = some.values + some.count;
    if (m_type == "float64")
      m_doubles.insert(m_doubles.end(), from, to);
    else if (m_type == "float32")
      std::transform(from, to, std::back_inserter(m_floats), [](double v) { return static_cast<float>(v); });
    else
      std::transform(from, to, std::back_inserter(m_words), cutOff);
  }
  void reserve(std::size_t count) {
    if (m_type == "float64") m_doubles.reserve(count);
    if (m_type == "float32") m_floats.reserve(count);
    if (m_type == "uint16") m_words.reserve(count);
  }
  void giveTo(Product& product, orvacam::Size size) {
    if (m_type == "float64")
      hold(product, size, Raster::F64, std::move(m_doubles));
    else if (m_type == "float32")
      hold(product, size, Raster::F32, std::move(m_floats));
    else
      hold(product, size, Raster::U16, std::move(m_words));
  }

 private:
  static std::uint16_t cutOff(double value) {
    constexpr double largest = 65535;
    return static_cast<std::uint16_t>(std::max(0.0, std::min(value, largest)));
  }

  std::string m_type;
  std::vector<double> m_doubles;
  std::vector<float> m_floats;
  std::vector<std::uint16_t> m_words;
};

science::StackSettings settingsOf(const StackOptions& options) {
  using Settings = science::StackSettings;
  Settings settings;
  settings.method = methodOf(options);
  settings.sigmaLow = options.sigmaLow;
  settings.sigmaHigh = options.sigmaHigh;
  settings.normalization = options.normalization == "additive" ? Settings::Normalization::additive
                           : options.normalization == "multiplicative"
                               ? Settings::Normalization::multiplicative
                               : Settings::Normalization::none;
  const bool weighted = options.weights == "exposure";
  settings.weights = weighted ? Settings::Weights::exposure : Settings::Weights::none;
  settings.plane = options.plane;
  settings.allowed = options.force ? orvacam::Unlike::settings
                     : weighted    ? orvacam::Unlike::exposure
                                   : orvacam::Unlike::nothing;
  settings.memory = options.memory;
  // The result, and once the frames are gone its file.
  settings.bytesPerPixel = (options.type == "float64" ? 2 : 1) * bytesOfResult(options) +
                           (options.rejectedMap.empty() ? 0 : 2 * sizeof(std::uint16_t));
  return settings;
}

/// Frames that are read as often as they are needed, each by its name.
class Series {
 public:
  Series(const std::vector<Input>& inputs, Corrections& corrections)
      : m_inputs(inputs), m_corrections(corrections), m_progress(inputs.size()) {}

  science::FrameSeries frames() {
    return {
        m_inputs.size(), [this](std::size_t index) { return read(m_inputs[index]); },
        [this](const Frame& frame, orvacam::Planes wanted) { return m_corrections.decode(frame, wanted); }};
  }
  void seen() { m_progress.step(m_current, false); }
  /// Which frame an error is about.
  const std::string& current() const { return m_current; }

 private:
  Frame read(const Input& input) {
    m_current = shownName(input);
    requireUsable(input);
    return readFrame(input.path);
  }

  const std::vector<Input>& m_inputs;
  Corrections& m_corrections;
  Progress m_progress;
  std::string m_current;
};

}  // namespace

Names stackMethods() {
  Names names;
  for (const auto& row : methods)
    names.emplace_back(row.name);
  return names;
}

std::optional<PartialStack> sumsOf(const StackOptions& options, const std::vector<Input>& inputs) {
  return options.combine ? sumOfParts(options, inputs) : sumOfFrames(options, inputs);
}

Stacked stackedOf(const StackOptions& options, PartialStack part) {
  Stacked stacked;
  Product& product = stacked.product;
  product.header = part.stack.header();
  product.subject = part.subject(options.method == "sum");
  if (options.type == "uint16")
    hold<std::uint16_t>(product, Raster::U16, part.stack.result_u16());
  else if (options.type == "float32")
    hold(product, Raster::F32, part.stack.result());
  else
    hold(product, Raster::F64, part.stack.result_f64());
  finishProduct(product, options);
  return stacked;
}

namespace {

/// By bands of rows, or one frame after the other.
class Selection {
 public:
  Selection(const StackOptions& options, const std::vector<Input>& inputs)
      : m_options(options),
        m_settings(settingsOf(options)),
        m_corrections(options.corrections),
        m_series(inputs, m_corrections),
        m_pixels(options.type) {
    const std::uint64_t plane = sizeof(std::uint16_t), sums = sizeof(double);
    m_settings.byBands = !fits(options, inputs, plane + sums + m_settings.bytesPerPixel);
  }

  /// Throws what frames can be wrong with; current() says which.
  void run() {
    m_plane = science::stackFrames(
        m_series.frames(), m_settings, [&](const Frame& frame) { see(frame); },
        [&](const science::StackedPixels& some) { put(some); });
  }
  const std::string& current() const { return m_series.current(); }

  Stacked result() {
    Stacked stacked;
    Product& product = stacked.product;
    describe(m_record, m_corrections, *m_first, m_plane);
    product.header = m_first;
    product.subject = files::subjectOf(*m_first, m_plane);
    product.subject.stack = m_record.facts(m_options.method == "sum");
    product.subject.stack->frames = m_frames;
    product.subject.merge = m_record.merge;
    product.subject.bias = m_record.bias;
    product.subject.history = m_record.history;
    const orvacam::Size size = m_first->frame_size();
    m_pixels.giveTo(product, size);
    finishProduct(product, m_options);
    if (m_options.rejectedMap.empty()) return stacked;
    stacked.rejected = product;
    stacked.rejected->subject.isCount = true;
    stacked.rejected->subject.history.emplace_back("how many frames were rejected at each pixel");
    hold(*stacked.rejected, size, Raster::U16, std::move(m_rejected));
    return stacked;
  }

 private:
  void see(const Frame& frame) {
    if (!m_first) {
      m_first = frame.header();
      const orvacam::Size size = m_first->frame_size();
      m_pixels.reserve(std::size_t{size.width} * size.height);
    }
    ++m_frames;
    m_record.add(frame, false);
    m_series.seen();
  }
  void put(const science::StackedPixels& some) {
    m_pixels.add(some);
    if (!m_options.rejectedMap.empty())
      m_rejected.insert(m_rejected.end(), some.rejected, some.rejected + some.count);
  }

  const StackOptions& m_options;
  science::StackSettings m_settings;
  Corrections m_corrections;
  Series m_series;
  Pixels m_pixels;
  std::vector<std::uint16_t> m_rejected;
  std::optional<orvacam::Header> m_first;
  std::uint64_t m_frames = 0;
  StackRecord m_record;
  std::string m_plane;
};

}  // namespace

std::optional<Stacked> stackedOf(const StackOptions& options, const std::vector<Input>& inputs) {
  const std::uint64_t beside = std::max(sizeof(std::uint16_t), bytesOfResult(options));
  if (options.combine || (options.isSummed() && fits(options, inputs, bytesOfSums + beside))) {
    auto sums = sumsOf(options, inputs);
    if (!sums) return std::nullopt;
    return stackedOf(options, std::move(*sums));
  }
  Selection selection(options, inputs);
  // What is reported is about the frame that was read last.
  std::exception_ptr wrong;
  try {
    selection.run();
  } catch (...) {
    wrong = std::current_exception();
  }
  if (!wrong) return selection.result();
  attempt(selection.current(), [&] { std::rethrow_exception(wrong); });
  return std::nullopt;
}

}  // namespace tool
