#include "Instrument.h"

#include <algorithm>
#include <cmath>

#include "Noise.h"

namespace orvacam::simulator {

namespace {

constexpr double lowOffset = 100, highOffset = 110;  // counts
constexpr double secondsPerPeriod = 1e-5;            // of the header's exposure
constexpr double blinkingStep = 40;                  // times the read noise
constexpr double converterNoise = 0.5;               // counts, of the low-gain channel

/// Every property of the camera, and every noise of a frame, is a stream of random numbers.
enum Stream : std::uint64_t {
  Column,
  Row,
  Pixel,
  Reference,
  Response,
  DarkCurrent,
  Odd,  // the places of hot, blinking and dead pixels
  Heat,
  Blink,
  Shot,
  Read,
  ReadReference,
  Streams
};

struct Moments {
  double count = 0, sum = 0, squares = 0;
  void add(double value) {
    count += 1;
    sum += value;
    squares += value * value;
  }
  double mean() const { return count > 0 ? sum / count : 0; }
  double deviation() const {
    return count > 0 ? std::sqrt(std::max(0.0, squares / count - mean() * mean())) : 0;
  }
};

enum Kind : unsigned char { Ordinary, Hot, Blinking, Dead };

/// The camera and one frame's noise, pixel by pixel.
class Model {
 public:
  /// `setting` tells frames of one number apart that are not the same: another kind or another level.
  Model(const Camera& camera, const HeaderFields& fields, const Instrument& instrument,
        std::uint64_t setting = 0)
      : m_instrument(instrument),
        m_fields(fields),
        m_layout(layoutOf(fields)),
        m_frame(keyOf(fields.frameNumber, fields.exposure, setting)) {
    for (unsigned stream = 0; stream < Streams; ++stream)
      for (unsigned plane = 0; plane < 2; ++plane)
        m_keys[stream][plane] = keyOf(instrument.seed, stream, plane);
    const bool ccd = m_layout.packing == Packing::Ccd;
    m_width = ccd ? fields.width : binned(fields.width, fields.horizontalBinning);
    m_height = ccd ? fields.height : binned(fields.height, fields.verticalBinning);
    const bool pair = m_layout.planes == 2;
    m_gains[0] = camera.lowAt(fields.lowGain);
    m_gains[1] = pair ? camera.highAt(fields.highGain) : m_gains[0];
    m_offsets[0] = lowOffset;
    m_offsets[1] = highOffset;
    m_fullScale = static_cast<double>((1u << (m_layout.packing == Packing::Packed12 ? 12 : 16)) - 1);
    for (unsigned plane = 0; plane < m_layout.planes; ++plane) {
      for (unsigned x = 0; x < fields.frameWidth() + 2; ++x)
        m_columns[plane].push_back(fixed(Column, plane, x + fields.startColumn, instrument.columnNoise));
      for (unsigned y = 0; y < fields.frameHeight() + 2; ++y)
        m_rows[plane].push_back(fixed(Row, plane, y + fields.startRow, instrument.rowNoise));
    }
    placeOddPixels();
  }

  const Layout& layout() const { return m_layout; }
  unsigned width() const { return m_width; }
  unsigned height() const { return m_height; }
  double gain(unsigned plane) const { return m_gains[plane]; }
  double fullScale() const { return m_fullScale; }
  /// Counts. The low-gain channel has as many electrons of noise, and what its converter adds.
  double readNoise(unsigned plane) const {
    const double electrons = m_instrument.readNoise;
    if (plane + 1 == m_layout.planes || electrons == 0) return electrons / m_gains[plane];
    return std::hypot(electrons / m_gains[plane], converterNoise);
  }
  /// Counts of electrons that are given for the high-gain (or only) channel.
  double counts(double electrons) const { return electrons / m_gains[1]; }
  Kind kind(std::size_t pixel) const { return static_cast<Kind>(m_kinds[pixel]); }
  /// The sensor's number of an image pixel: the same in every sub-frame.
  std::uint64_t site(unsigned x, unsigned y) const {
    return (std::uint64_t{y} + m_fields.startRow) << 20 | (x + m_fields.startColumn);
  }

  double response(unsigned x, unsigned y) const {
    if (kind(std::size_t{y} * m_width + x) == Dead) return 0.1;
    return std::max(0.0, 1 + m_instrument.response * normalOf(bitsAt(key(Response), site(x, y))));
  }
  /// Electrons per second.
  double darkCurrent(unsigned x, unsigned y) const {
    const std::size_t pixel = std::size_t{y} * m_width + x;
    const double spread = 1 + m_instrument.darkSpread * normalOf(bitsAt(key(DarkCurrent), site(x, y)));
    const double heat = kind(pixel) == Hot ? 500 + 3500 * uniformOf(bitsAt(key(Heat), pixel)) : 0;
    return m_instrument.darkCurrent * std::max(0.0, spread) + heat;
  }
  double column(unsigned plane, unsigned x) const { return m_columns[plane][x]; }
  double row(unsigned plane, unsigned y) const { return m_rows[plane][y]; }
  double pixelOffset(unsigned plane, unsigned x, unsigned y) const {
    return fixed(Pixel, plane, site(x, y), m_instrument.pixelNoise);
  }
  double offset(unsigned plane) const { return m_offsets[plane]; }

  /// The electrons of all image pixels, shot noise included. `light` may be empty: none.
  std::vector<float> collect(const std::vector<float>& light) const {
    const double seconds = m_fields.exposure * secondsPerPeriod;
    std::vector<float> electrons(std::size_t{m_width} * m_height, 0);
    if (light.empty() && seconds == 0) return electrons;
    const std::uint64_t shot = frameKey(Shot, 0);
    for (unsigned y = 0; y < m_height; ++y)
      for (unsigned x = 0; x < m_width; ++x) {
        const std::size_t pixel = std::size_t{y} * m_width + x;
        double mean = seconds > 0 ? darkCurrent(x, y) * seconds : 0;
        if (!light.empty()) mean += double{light[pixel]} * response(x, y);
        electrons[pixel] = static_cast<float>(poissonOf(mean, bitsAt(shot, pixel)));
      }
    return electrons;
  }

  /// What the channels read of collected electrons.
  std::vector<Plane> read(const std::vector<float>& electrons) const {
    std::uint64_t references[2] = {0, 0};
    const double noises[2] = {readNoise(0), readNoise(m_layout.planes - 1)};
    const std::uint64_t reads[2] = {frameKey(Read, 0), frameKey(Read, 1)};
    const std::uint64_t referenceReads[2] = {frameKey(ReadReference, 0), frameKey(ReadReference, 1)};
    const std::uint64_t blink = frameKey(Blink, 0);
    return makePlanes(m_layout, [&](const PixelPlace& place) {
      unsigned x = place.x, y = place.y;
      const double noise = noises[place.plane];
      double value = m_offsets[place.plane] + m_columns[place.plane][x] + m_rows[place.plane][y];
      if (imagePixel(place, x, y)) {
        const std::size_t pixel = std::size_t{y} * m_width + x;
        value += pixelOffset(place.plane, x, y) + double{electrons[pixel]} / m_gains[place.plane];
        value += noise * normalOf(bitsAt(reads[place.plane], pixel));
        if (kind(pixel) == Blinking && (bitsAt(blink, pixel) & 1) != 0)
          value += blinkingStep * std::max(noise, 0.5);
      } else {
        const std::uint64_t index = references[place.plane]++;
        value += fixed(Reference, place.plane, index, m_instrument.pixelNoise);
        value += noise * normalOf(bitsAt(referenceReads[place.plane], index));
      }
      return static_cast<std::uint16_t>(std::min(m_fullScale, std::max(0.0, std::floor(value + 0.5))));
    });
  }

 private:
  /// Of what is the same in all frames.
  std::uint64_t key(Stream stream, unsigned plane = 0) const { return m_keys[stream][plane]; }
  /// Of what is different in each.
  std::uint64_t frameKey(Stream stream, unsigned plane) const { return keyOf(key(stream, plane), m_frame); }
  /// A fixed offset in counts.
  double fixed(Stream stream, unsigned plane, std::uint64_t index, double electrons) const {
    return counts(electrons) * normalOf(bitsAt(key(stream, plane), index));
  }

  /// Whether a place is an image pixel; x and y become its position in the image.
  bool imagePixel(const PixelPlace& place, unsigned& x, unsigned& y) const {
    if (m_layout.packing != Packing::Ccd) return place.image;
    x -= m_fields.preRefPixels;  // wraps, and is too large then
    y -= m_fields.preRefRows;
    return x < m_width && y < m_height;
  }

  void placeOddPixels() {
    m_kinds.assign(std::size_t{m_width} * m_height, Ordinary);
    std::uint64_t draw = 0;
    // At most a quarter of the pixels each, so that places are always found.
    const auto most = static_cast<unsigned>(m_kinds.size() / 4);
    const auto place = [&](unsigned count, Kind kind) {
      for (unsigned placed = 0; placed < std::min(count, most);) {
        unsigned char& found = m_kinds[bitsAt(key(Odd), draw++) % m_kinds.size()];
        if (found != Ordinary) continue;
        found = kind;
        ++placed;
      }
    };
    place(m_instrument.hotPixels, Hot);
    place(m_instrument.blinking, Blinking);
    place(m_instrument.deadPixels, Dead);
  }

  Instrument m_instrument;
  HeaderFields m_fields;
  Layout m_layout;
  std::uint64_t m_frame;
  std::uint64_t m_keys[Streams][2];
  unsigned m_width = 0, m_height = 0;
  double m_gains[2], m_offsets[2], m_fullScale = 0;
  std::vector<double> m_columns[2], m_rows[2];
  std::vector<unsigned char> m_kinds;
};

std::vector<float> lightOf(const Model& model, const HeaderFields& fields, FrameType type, double level,
                           const Sky& sky) {
  if (type == FrameType::Flat)
    return std::vector<float>(std::size_t{model.width()} * model.height(), static_cast<float>(level));
  if (type != FrameType::Light) return {};
  HeaderFields image = fields;  // as the planes have it
  image.width = model.width();
  image.height = model.height();
  const std::vector<double> seen = lightOfSky(image, sky);
  return {seen.begin(), seen.end()};
}

PlaneTruth truthOfPlane(const Model& model, unsigned plane, const char* name) {
  Moments columns, rows, pixels, responses, dark;
  for (unsigned x = 0; x < model.width(); ++x)
    columns.add(model.column(plane, x));
  for (unsigned y = 0; y < model.height(); ++y)
    rows.add(model.row(plane, y));
  for (unsigned y = 0; y < model.height(); ++y)
    for (unsigned x = 0; x < model.width(); ++x) {
      if (model.kind(std::size_t{y} * model.width() + x) != Ordinary) continue;
      pixels.add(model.pixelOffset(plane, x, y));
      responses.add(model.response(x, y));
      dark.add(model.darkCurrent(x, y));
    }
  const double gain = model.gain(plane);
  return {name,
          model.offset(plane) + columns.mean() + rows.mean() + pixels.mean(),
          gain,
          model.readNoise(plane) * gain,
          dark.mean(),
          columns.deviation() * gain,
          rows.deviation() * gain,
          pixels.deviation() * gain,
          100 * responses.deviation() / responses.mean(),
          model.fullScale()};
}

/// Where the image begins in a decoded plane.
Place originOf(const HeaderFields& fields, const Layout& layout) {
  if (layout.packing == Packing::Ccd) return {fields.preRefPixels, fields.preRefRows};
  Place origin{0, 0};
  for (const Section& section : layout.sections) {
    if (section.kind == Section::PreRows) origin.y += section.rows;
    if (section.kind == Section::Image) origin.x = section.before;
  }
  return origin;
}

}  // namespace

std::vector<Plane> exposeFrame(const Camera& camera, const HeaderFields& fields, const Instrument& instrument,
                               FrameType type, double level, const Sky& sky) {
  const double own = type == FrameType::Flat ? std::max(0.0, level) : 0;
  const std::uint64_t setting =
      keyOf(static_cast<std::uint64_t>(type), static_cast<std::uint64_t>(own * 1024));
  const Model model(camera, fields, instrument, setting);
  return model.read(model.collect(lightOf(model, fields, type, level, sky)));
}

std::vector<std::vector<double>> fixedPattern(const Camera& camera, const HeaderFields& fields,
                                              const Instrument& instrument, double level) {
  const Model model(camera, fields, instrument);
  const double seconds = fields.exposure * secondsPerPeriod;
  std::vector<std::vector<double>> planes(model.layout().planes);
  for (unsigned plane = 0; plane < planes.size(); ++plane)
    for (unsigned y = 0; y < model.height(); ++y)
      for (unsigned x = 0; x < model.width(); ++x)
        planes[plane].push_back(model.offset(plane) + model.column(plane, x) + model.row(plane, y) +
                                model.pixelOffset(plane, x, y) +
                                (model.darkCurrent(x, y) * seconds + level * model.response(x, y)) /
                                    model.gain(plane));
  return planes;
}

double usualLevel(const Camera& camera, const HeaderFields& fields) {
  const Model model(camera, fields, {});
  return model.fullScale() / 2 * model.gain(model.layout().planes - 1);
}

HeaderFields withGains(const Camera& camera, HeaderFields fields) {
  const double high = camera.highAt(fields.highGain);
  if (high <= 0) return fields;
  fields.highGainAduPerElectron = static_cast<int>(std::floor(1000 / high + 0.5));
  fields.mergeGainRatio = static_cast<int>(std::floor(1000 * camera.lowAt(fields.lowGain) / high + 0.5));
  return fields;
}

Truth truthOf(const Camera& camera, const HeaderFields& fields, const Instrument& instrument) {
  const Model model(camera, fields, instrument);
  Truth truth{0, {}, {}, {}, {}};
  if (model.layout().planes == 2) {
    truth.ratio = model.gain(0) / model.gain(1);
    truth.planes = {truthOfPlane(model, 0, "low"), truthOfPlane(model, 1, "high")};
  } else {
    truth.planes = {truthOfPlane(model, 0, "image")};
  }
  const Place origin = originOf(fields, model.layout());
  for (unsigned y = 0; y < model.height(); ++y)
    for (unsigned x = 0; x < model.width(); ++x) {
      const Kind kind = model.kind(std::size_t{y} * model.width() + x);
      if (kind == Ordinary) continue;
      (kind == Hot        ? truth.hot
       : kind == Blinking ? truth.blinking
                          : truth.dead)
          .push_back({x + origin.x, y + origin.y});
    }
  return truth;
}

}  // namespace orvacam::simulator
