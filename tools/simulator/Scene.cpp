#include "Scene.h"

#include <orvacam.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

namespace orvacam::simulator {

namespace {

constexpr double bias = 20;  // high-gain counts of a dark pixel

/// A small generator with distributions of its own, so that every machine draws the same numbers.
class Random {
 public:
  explicit Random(unsigned long seed) : m_state(seed * 0x9E3779B97F4A7C15UL + 1) {}

  unsigned long bits() {  // splitmix64
    m_state += 0x9E3779B97F4A7C15UL;
    unsigned long z = m_state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9UL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBUL;
    return z ^ (z >> 31);
  }
  double uniform() { return static_cast<double>(bits() >> 11) / 9007199254740992.0; }
  /// Nearly normal: a sum of twelve uniform numbers needs no transcendental function.
  double normal() {
    double sum = -6;
    for (int i = 0; i < 12; ++i)
      sum += uniform();
    return sum;
  }

 private:
  unsigned long m_state;
};

/// A number from -1 to 1 that belongs to a place.
double patternAt(unsigned long seed, unsigned long a, unsigned long b) {
  return 2 * Random(seed ^ (a * 0x100000001B3UL + b * 0x1F123BB5UL + 77)).uniform() - 1;
}

/// The level of a pixel without light, in high-gain counts.
double darkLevel(const Sky& sky, const PixelPlace& place) {
  return bias + sky.columnPattern * patternAt(sky.seed, place.x, 1u << 20) +
         sky.rowPattern * patternAt(sky.seed, 1u << 20, place.y);
}
double response(const Sky& sky, const PixelPlace& place) {
  return 1 + sky.gainPattern * patternAt(sky.seed, place.x, place.y);
}

double ratioOf(const Camera& camera, const HeaderFields& fields) {
  return camera.electronsHigh > 0 ? camera.lowAt(fields.lowGain) / camera.highAt(fields.highGain) : 1.0;
}

std::vector<unsigned char> referenceFile(const HeaderFields& fields, int neutral,
                                         const std::function<int(const PixelPlace&)>& term) {
  Layout layout = layoutOf(fields);
  layout.planes = 2;
  // Planes in a file are row by row as wide as the decoded ones, whatever the stream had between the pixels.
  HeaderFields plain = fields;
  plain.width = binned(fields.width, fields.horizontalBinning) +
                binned(fields.preRefPixels, fields.horizontalBinning) +
                binned(fields.postRefPixels, fields.horizontalBinning);
  plain.height = binned(fields.height, fields.verticalBinning) +
                 binned(fields.preRefRows, fields.verticalBinning) +
                 binned(fields.postRefRows, fields.verticalBinning);
  plain.hdr = false;
  plain.startColumn = plain.startRow = 0;
  plain.preRefPixels = plain.postRefPixels = plain.preRefRows = plain.postRefRows = 0;
  plain.horizontalBinning = plain.verticalBinning = 1;
  std::vector<unsigned char> file = writeHeader(plain, 3);
  for (Plane& plane :
       makePlanes(layout, [&](const PixelPlace& place) { return static_cast<std::uint16_t>(term(place)); })) {
    plane.resize(std::size_t{plain.width} * plain.height, static_cast<std::uint16_t>(neutral));
    for (const std::uint16_t value : plane) {
      file.push_back(static_cast<unsigned char>(value & 255));
      file.push_back(static_cast<unsigned char>(value >> 8));
    }
  }
  return file;
}

int roundToInt(double value) {
  return static_cast<int>(std::floor(value + 0.5));
}

std::string lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

/// A camera with two channels of 12 bits, and what one count means at each setting of its sensor. At settings
/// that it does not have, it counts as at the first one.
Camera twoGains(const char* name, const char* model) {
  CFrameMetaData header;
  header.SetModelName(model, static_cast<unsigned int>(std::strlen(model)));
  gain_type_info_t type{ORVA_DEVICE_UNKNOWN, false};
  header.GetDeviceType(type.uiDeviceType);
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(type, nullptr));
  if (tables == nullptr) throw std::bad_alloc();
  Camera camera{name, model, 0, 0, 12, false, {}};
  const unsigned int settings = tables->GetDNETableNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL);
  for (unsigned int i = 0; i < settings; ++i) {
    const unsigned int index = tables->GetDNETableDeviceIndex(ORVA_GAIN_TABLE_LOW_CHANNEL, i);
    camera.gains.push_back({index, tables->GetDNETableValue(ORVA_GAIN_TABLE_LOW_CHANNEL, index),
                            tables->GetDNETableValue(ORVA_GAIN_TABLE_HIGH_CHANNEL, index)});
  }
  camera.electronsLow = camera.gains.at(0).electronsLow;
  camera.electronsHigh = camera.gains.at(0).electronsHigh;
  return camera;
}

/// A camera with one channel of 16 bits.
Camera oneGain(const char* name, const char* model) {
  return {name, model, 2.0, 0, 16, sensorOf(model) == Sensor::Ccd, {}};
}

}  // namespace

double Camera::lowAt(unsigned int index) const {
  for (const GainSetting& gain : gains)
    if (gain.index == index) return gain.electronsLow;
  return electronsLow;
}

double Camera::highAt(unsigned int index) const {
  for (const GainSetting& gain : gains)
    if (gain.index == index) return gain.electronsHigh;
  return electronsHigh;
}

const std::vector<Camera>& cameras() {
  static const std::vector<Camera> all = {
      twoGains("GSENSE400", "VESTRA VS400"),   twoGains("GSENSE2020", "VESTRA VS2020"),
      twoGains("GSENSE4040", "VESTRA VS4040"), twoGains("GSENSE6060", "VESTRA VS6060"),
      oneGain("CCD230-42", "ARGENT 230-42"),   oneGain("CCD230-84", "ARGENT 230-84"),
      oneGain("CCD4320", "ARGENT 4320"),       oneGain("IMX183", "VESTRA IMX183"),
      oneGain("GENERIC", "VESTRA PLAIN"),
  };
  return all;
}

const Camera* findCamera(const std::string& name) {
  for (const Camera& camera : cameras())
    if (lower(camera.name) == lower(name)) return &camera;
  return nullptr;
}

std::optional<HeaderFields> headerFor(const Camera& camera, const std::string& mode) {
  HeaderFields f;
  f.model = camera.model;
  f.dataBits = f.sensorBits = camera.bits;
  const Sensor sensor = sensorOf(camera.model);
  const bool gsense = camera.electronsHigh > 0;
  if (camera.ccd) f.quadrants = 0x3C;
  if (mode == "single") {
    // The GSENSE6060 sends its 12-bit data as two planes always: its single images have 16 bits.
    if (sensor == Sensor::Gsense6060) f.dataBits = 16;
    return f;
  }
  if (mode == "hdr" && gsense) {
    f.hdr = true;
    return f;
  }
  if (mode == "16bit" && sensor != Sensor::Gsense400) {
    f.dataBits = 16;
    return f;
  }
  if (mode == "cms" && sensor == Sensor::Gsense2020) {
    f.correlatedMultipleSampling = true;
    return f;
  }
  return std::nullopt;
}

std::vector<double> lightOfSky(const HeaderFields& f, const Sky& sky) {
  std::vector<double> electrons(std::size_t{f.width} * f.height, sky.background);
  Random random(sky.seed);
  for (unsigned int i = 0; i < sky.stars; ++i) {
    const double cx = random.uniform() * f.width;
    const double cy = random.uniform() * f.height;
    // Faint stars are many, bright ones few.
    const double rank = sky.stars > 1 ? static_cast<double>(i) / (sky.stars - 1) : 0;
    const double total = sky.faintestStar + (sky.brightestStar - sky.faintestStar) / (1 + 400 * rank * rank);
    // A Moffat profile with exponent 2.
    const double a2 = sky.starRadius * sky.starRadius;
    const double peak = total / (3.14159265358979 * a2);
    const double reach = 30 * sky.starRadius;
    const auto low = [](double v) { return static_cast<unsigned int>(std::max(0.0, v)); };
    for (unsigned int y = low(cy - reach); y < std::min<double>(f.height, cy + reach); ++y)
      for (unsigned int x = low(cx - reach); x < std::min<double>(f.width, cx + reach); ++x) {
        const double r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
        const double t = 1 + r2 / a2;
        electrons[std::size_t{y} * f.width + x] += peak / (t * t);
      }
  }
  return electrons;
}

std::vector<Plane> exposeSky(const Camera& camera, const HeaderFields& fields, const Sky& sky) {
  const Layout layout = layoutOf(fields);
  const std::vector<double> electrons = lightOfSky(fields, sky);
  // One exposure: both channels read the same electrons. A CCD's image lies inside its frame; other streams
  // tell image and reference pixels apart.
  // A frame whose number nobody chose is the same as ever.
  const unsigned long frame = fields.frameNumber - static_cast<unsigned long>(HeaderFields().frameNumber);
  Random random(sky.seed ^ 0xABCDEF ^ frame << 32);
  std::vector<double> collected(electrons.size());
  for (std::size_t i = 0; i < collected.size(); ++i)
    collected[i] = std::max(0.0, electrons[i] + random.normal() * std::sqrt(electrons[i]));

  const double ratio = ratioOf(camera, fields);
  const unsigned int depth = layout.packing == Packing::Packed13   ? 13
                             : layout.packing == Packing::Packed12 ? 12
                                                                   : 16;
  const double largest = (1u << depth) - 1;
  const unsigned int binX = std::max(1u, fields.horizontalBinning);
  const unsigned int binY = std::max(1u, fields.verticalBinning);
  return makePlanes(layout, [&](const PixelPlace& place) {
    const bool high = place.plane == 1;
    const double perCount = high ? camera.highAt(fields.highGain) : camera.lowAt(fields.lowGain);
    const double scale = layout.planes == 2 && !high ? 1 / ratio : 1;  // of what is given in high-gain counts
    unsigned int x = place.x * binX;
    unsigned int y = place.y * binY;
    bool lit = place.image;
    if (layout.packing == Packing::Ccd) {
      lit = place.x >= fields.preRefPixels && place.x < fields.preRefPixels + fields.width &&
            place.y >= fields.preRefRows && place.y < fields.preRefRows + fields.height;
      x = place.x - fields.preRefPixels;
      y = place.y - fields.preRefRows;
    }
    double counts = darkLevel(sky, place) * scale;
    if (lit && x < fields.width && y < fields.height)
      counts += collected[std::size_t{y} * fields.width + x] * response(sky, place) / perCount;
    counts += random.normal() * sky.readNoise / perCount;
    return static_cast<std::uint16_t>(std::min(largest, std::max(0.0, std::floor(counts + 0.5))));
  });
}

std::vector<unsigned char> dsnuFile(const Camera& camera, const HeaderFields& fields, const Sky& sky) {
  constexpr double one = 8;  // 3 fraction bits
  return referenceFile(fields, 0, [&](const PixelPlace& place) {
    const double scale = place.plane == 1 ? 1 : 1 / ratioOf(camera, fields);
    return roundToInt(-darkLevel(sky, place) * scale * one);
  });
}

std::vector<unsigned char> prnuFile(const Camera& camera, const HeaderFields& fields, const Sky& sky) {
  constexpr double one = 1024;  // 10 fraction bits
  return referenceFile(fields, 1024, [&](const PixelPlace& place) {
    const double scale = place.plane == 1 ? 1 : ratioOf(camera, fields);
    return roundToInt(scale / response(sky, place) * one);
  });
}

}  // namespace orvacam::simulator
