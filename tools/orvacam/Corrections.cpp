#include "Corrections.h"

#include <cstring>
#include <filesystem>

#include "files/Sha256.h"
#include "files/Stretch.h"
#include "science/ReferenceFile.h"
#include "science/Refused.h"

namespace tool {

namespace files = orvacam::files;

namespace {

/// One plane of a bias file: 16-bit values, the low byte first.
orvacam::Plane planeAt(std::string_view bytes, orvacam::Size size) {
  std::vector<std::uint16_t> pixels(std::size_t{size.width} * size.height);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                           static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  return orvacam::Plane::copy(size, pixels.data());
}

std::string thresholdsText(const CorrectionOptions& options) {
  return std::to_string(options.high) + ", " + std::to_string(options.difference);
}

/// Throws Failure for a reference file of another kind.
void requireKind(const std::string& path, orvacam::science::ReferenceKind kind) {
  namespace science = orvacam::science;
  std::optional<science::ReferenceFile> file;
  try {
    file = science::readReferenceFile(path);
  } catch (const std::exception&) {
    return;  // the decoder says what is wrong with it
  }
  try {
    science::requireKind(path, *file, kind);
  } catch (const science::Refused& refused) {
    throw Failure(refused.path() + ": " + refused.what());
  }
}

}  // namespace

void addInputs(Targets& targets, const CorrectionOptions& options) {
  for (const std::string& path : {options.dsnu, options.prnu, options.bias, options.calibration})
    if (!path.empty()) targets.isInput(path);
}

/// The sum of a file and its name, as history: of a file that was taken, since it is read whole.
void Corrections::addReference(const char* role, const std::string& text, const std::string& path) {
  std::string bytes;
  try {
    bytes = readAll(path);
  } catch (const Failure& failure) {
    throw Failure(path + ": " + failure.what());
  }
  m_digests[role] = files::sha256(bytes.data(), bytes.size());
  m_history.push_back(text + " " + std::filesystem::path(path).filename().string());
  m_history.push_back("SHA-256 " + m_digests[role]);
}

/// Throws Failure, which names the file.
void Corrections::readBias(const std::string& path) {
  try {
    const orvacam::Frame bias = orvacam::Frame::read(path);
    const orvacam::Size size = bias.header().frame_size();
    const auto start = static_cast<std::size_t>(bias.header().number("MetadataLength"));
    const std::size_t plane = std::size_t{2} * size.width * size.height;
    const std::string_view bytes = bias.bytes();
    if (plane == 0 || bytes.size() < start + plane)
      throw Failure("needs " + std::to_string(start + plane) + " bytes for a plane, ends at byte " +
                    std::to_string(bytes.size()));
    m_biasLow = planeAt(bytes.substr(start, plane), size);
    if (bytes.size() >= start + 2 * plane) m_biasHigh = planeAt(bytes.substr(start + plane, plane), size);
    requireOffsets();
    m_biasSensor = bias.header().sensor();
  } catch (const std::runtime_error& error) {
    throw Failure(path + ": " + error.what());
  }
}

Corrections::Corrections(const CorrectionOptions& options) : m_options(options) {
  if (!options.bias.empty()) readBias(options.bias);
  if (!options.dsnu.empty()) requireKind(options.dsnu, orvacam::science::ReferenceKind::dsnu);
  if (!options.prnu.empty()) requireKind(options.prnu, orvacam::science::ReferenceKind::prnu);
  if (!options.calibration.empty()) {
    try {
      m_block = readAll(options.calibration, longestCalibration);
    } catch (const Failure& failure) {
      throw Failure(options.calibration + ": " + failure.what());
    }
  }
  apply(m_decoder);
  if (!options.bias.empty()) addReference("BIAS", "bias frame subtracted:", options.bias);
  if (!options.dsnu.empty()) addReference("DSNU", "DSNU reference:", options.dsnu);
  if (!options.prnu.empty()) addReference("PRNU", "PRNU reference:", options.prnu);
  if (!options.calibration.empty())
    addReference("CALIBRATION", "gain ratio of the calibration block:", options.calibration);
  if (options.hasThresholds) m_history.push_back("merged with thresholds " + thresholdsText(options));
  if (options.hasThresholds) m_withoutPrnu.thresholds(options.high, options.difference);
  if (!m_block.empty()) m_withoutPrnu.calibration(m_block.data(), m_block.size());
}

void Corrections::apply(orvacam::Decoder& decoder) const {
  if (!m_options.dsnu.empty()) decoder.dsnu(m_options.dsnu);
  if (!m_options.prnu.empty()) decoder.prnu(m_options.prnu);
  if (!m_biasLow.empty()) decoder.bias(m_biasLow, m_biasHigh);
  if (m_options.hasThresholds) decoder.thresholds(m_options.high, m_options.difference);
  if (m_options.calibration.empty()) return;
  try {
    decoder.calibration(m_block.data(), m_block.size());
  } catch (const orvacam::Error& error) {
    throw Failure(m_options.calibration + ": " + error.what());
  }
}

/// Files of offsets, DSNU and PRNU look alike; what a pair cannot reach is no offset of it.
void Corrections::requireOffsets() const {
  constexpr double pairFull = 4095;
  const orvacam::Size size = m_biasLow.size();
  if (m_biasHigh.empty()) return;
  for (const orvacam::Plane* plane : {&m_biasLow, &m_biasHigh})
    if (const double median = files::medianOf(*plane, {0, 0, size.width, size.height}); median > pairFull)
      throw Failure("would take " + files::numberText(median) +
                    " counts off, which is no offset: it is no bias file");
}

orvacam::Decoder Corrections::decoder() const {
  orvacam::Decoder decoder;
  apply(decoder);
  return decoder;
}

void Corrections::requireApplicable(const orvacam::Frame& frame) const {
  const std::vector<std::string> planes = frame.planes();
  const bool merges = !planes.empty() && planes.back() == "merged";
  // A frame without planes says why when it is decoded.
  if (!planes.empty() && !merges) {
    if (m_options.hasThresholds) throw Failure("has nothing to merge, to which --thresholds would apply");
    if (!m_options.calibration.empty())
      throw Failure("has nothing to merge, to which --calibration would apply");
  }
  if (!m_biasSensor.empty() && m_biasSensor != frame.header().sensor())
    throw Failure("is of the sensor " + frame.header().sensor() + ", the bias file of " + m_biasSensor);
}

orvacam::Decoded Corrections::decode(const orvacam::Frame& frame, orvacam::Planes wanted) {
  requireApplicable(frame);
  return m_decoder.decode(frame, wanted);
}

double Corrections::biasLevel(const files::Subject& subject, const orvacam::Header& header) const {
  const orvacam::Plane& bias = subject.plane == "high" ? m_biasHigh : m_biasLow;
  if (bias.empty()) return 0;
  orvacam::Region region = header.image_region();
  region.y += header.start_row();
  const orvacam::Size size = bias.size();
  if (region.x + region.width > size.width || region.y + region.height > size.height) return 0;
  return files::medianOf(bias, region);
}

void Corrections::describe(files::Subject& subject, const orvacam::Header& header) {
  const orvacam::MergeInfo merge = m_withoutPrnu.merge_info(header);
  if (merge.merges)
    subject.merge = files::MergeFacts{merge.gain_ratio, !m_options.prnu.empty(), merge.high_threshold,
                                      merge.difference_threshold, static_cast<int>(merge.type)};
  subject.bias = biasLevel(subject, header);
  subject.history.insert(subject.history.end(), m_history.begin(), m_history.end());
}

}  // namespace tool
