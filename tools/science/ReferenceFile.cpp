#include "science/ReferenceFile.h"

#include <algorithm>
#include <cmath>

#include "science/Estimate.h"
#include "science/Refused.h"

namespace orvacam::science {

namespace {

constexpr std::size_t headerBytes = 384;

/// Where a header of version 3 has what is different in a reference file. Numbers are big-endian.
enum Offset : std::size_t {
  Length = 4,
  Version = 6,
  Width = 81,
  Height = 83,
  ChipTemperature = 91,
  PostPixels = 96,
  PrePixels = 97,
  HorizontalBinning = 99,
  StartRow = 122,
  StartColumn = 124,
  StopRow = 126,
  StopColumn = 128,
  ReferenceRows = 136,
  VerticalBinning = 145,
  GainRatio = 221,
  LineOffset = 225,
  Padding = 232
};

void put(std::string& header, Offset offset, unsigned bytes, std::uint32_t value) {
  for (unsigned i = 0; i < bytes; ++i)
    header[offset + i] = static_cast<char>(value >> 8 * (bytes - 1 - i) & 255);
}

/// The library writes it in two's complement, cameras send sign and magnitude.
void putChipTemperature(std::string& header, double tenths) {
  const auto magnitude = static_cast<std::uint32_t>(std::fabs(tenths));
  put(header, ChipTemperature, 2, tenths < 0 ? magnitude | 0x8000u : magnitude);
}

/// As the merge takes it: where the image starts and stops, and the reference pixels or rows, whatever the
/// header says of binning. 0 for what is none.
std::uint32_t extentOf(const Header& header, const char* start, const char* stop, const char* before,
                       const char* behind) {
  const double image = header.number(stop) - header.number(start) + 1;
  const double all = header.number(before) + image + header.number(behind);
  constexpr double longest = 0xFFFFFFFF;
  return image < 1 || all > longest ? 0 : static_cast<std::uint32_t>(all);
}

}  // namespace

ReferenceFile readReferenceFile(const std::string& path) {
  const Frame file = Frame::read(path);
  const Header& header = file.header();
  ReferenceFile result;
  result.size = {
      extentOf(header, "ImageStartColumn", "ImageStopColumn", "PreRowRefPixels", "PostRowRefPixels"),
      extentOf(header, "ImageStartRow", "ImageStopRow", "PreReferenceRows", "PostReferenceRows")};
  const auto begin = static_cast<std::size_t>(header.number("MetadataLength"));
  const std::size_t pixels = std::size_t{result.size.width} * result.size.height;
  const std::string_view bytes = file.bytes();
  if (pixels == 0 || begin > bytes.size() || (bytes.size() - begin) / 2 < pixels)
    throw Refused(path, "needs " + std::to_string(begin + 2 * pixels) + " bytes for a plane of " +
                            std::to_string(result.size.width) + " x " + std::to_string(result.size.height) +
                            ", ends at byte " + std::to_string(bytes.size()));
  result.planes = (bytes.size() - begin) / 2 / pixels >= 2 ? 2 : 1;
  result.bytes = bytes.size();
  result.bytesOfPair = begin + 4 * pixels;
  result.sensor = header.sensor();
  result.exposure = header.exposure_seconds();
  if (header.version() >= 3) {
    result.gainRatio = header.number("MergeGainRatio") / 1000;
    result.pedestal = header.number("MergeLineOffset");
  }
  result.terms.resize(pixels * result.planes);
  for (std::size_t i = 0; i < result.terms.size(); ++i) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[begin + at]); };
    result.terms[i] = static_cast<std::uint16_t>(byte(2 * i) | byte(2 * i + 1) << 8);
  }
  return result;
}

namespace {

/// Of a plane's terms; rows ahead of those of the frames, whose terms are 0 in files of offsets, aside.
double medianTerm(const ReferenceFile& file, unsigned plane, const FixedPoint& format, bool zerosCount) {
  std::vector<std::uint64_t> counts(65536);
  const std::size_t pixels = std::size_t{file.size.width} * file.size.height;
  const std::uint16_t* const terms = file.plane(plane);
  for (std::size_t i = 0; i < pixels; ++i)
    ++counts[terms[i]];
  if (!zerosCount) counts[0] = 0;
  std::uint64_t all = 0, below = 0;
  for (const std::uint64_t count : counts)
    all += count;
  // In the order of the values: those of signed terms begin in the middle.
  const unsigned first = format.least < 0 ? 32768 : 0;
  for (unsigned i = 0; i < counts.size(); ++i) {
    const auto stored = static_cast<std::uint16_t>(first + i);
    below += counts[stored];
    if (2 * below > all) return format.back(stored);
  }
  return 0;
}

}  // namespace

void requireKind(const std::string& path, const ReferenceFile& file, ReferenceKind kind) {
  constexpr double leastOffset = -5, mostOffset = 4095, mostFactor = 4;
  if (file.planes < 2) return;
  for (const unsigned plane : {0U, 1U}) {
    const std::string where = std::string(plane == 0 ? "low" : "high") + " plane";
    if (kind == ReferenceKind::prnu) {
      const double factor = medianTerm(file, plane, prnuTerms(), true);
      if (plane == 1 && !(factor >= 1 / mostFactor && factor <= mostFactor))
        throw Refused(path, "would multiply the " + where + " by " + fixedText(factor, 3) +
                                ", which is no correction: it is no PRNU file");
      continue;
    }
    const bool dsnu = kind == ReferenceKind::dsnu;
    const double offset = dsnu ? file.pedestal - medianTerm(file, plane, dsnuTerms(), false)
                               : medianTerm(file, plane, biasTerms(), false);
    if (!(offset >= leastOffset && offset <= mostOffset))
      throw Refused(path, "would take " + fixedText(offset, 1) + " counts off the " + where +
                              ", which is no offset: it is no " + (dsnu ? "DSNU" : "bias") + " file");
  }
}

std::string referenceHeader(const Header& ofPlane, const ReferenceHeader& facts) {
  const Size plane = ofPlane.frame_size();
  const std::uint64_t height = std::uint64_t{ofPlane.start_row()} + plane.height;
  if (plane.width > 65535 || height > 65535)
    throw Refused("", "a header cannot hold " + std::to_string(plane.width) + " x " + std::to_string(height) +
                          " pixels: " + std::to_string(plane.height) + " rows behind row " +
                          std::to_string(ofPlane.start_row()));
  std::string header(ofPlane.bytes().substr(0, headerBytes));
  header.resize(headerBytes, '\0');
  const auto rows = static_cast<std::uint32_t>(height);
  put(header, Length, 2, headerBytes);
  put(header, Version, 2, 3);
  put(header, Width, 2, plane.width);
  put(header, Height, 2, rows);
  putChipTemperature(header, ofPlane.number("SensorChipTemp"));
  put(header, PostPixels, 1, 0);
  put(header, PrePixels, 1, 0);
  put(header, HorizontalBinning, 2, 1);
  put(header, VerticalBinning, 2, 1);
  put(header, StartRow, 2, 0);
  put(header, StartColumn, 2, 0);
  put(header, StopRow, 2, rows - 1);
  put(header, StopColumn, 2, plane.width - 1);
  put(header, ReferenceRows, 3, 0);
  put(header, GainRatio, 4, static_cast<std::uint32_t>(std::lround(facts.gainRatio * 1000)));
  put(header, LineOffset, 2, facts.pedestal);
  std::fill(header.begin() + Padding, header.end(), '\0');
  return header;
}

std::uint16_t FixedPoint::operator()(double value) {
  // Means of few frames often lie halfway: rounding them all up would shift the plane.
  const double number = std::nearbyint(value * one);
  if (number < least || number > most) ++clipped;
  const double stored = std::fmin(std::fmax(number, least), most);
  return static_cast<std::uint16_t>(static_cast<std::int32_t>(stored) & 0xFFFF);
}

double FixedPoint::back(std::uint16_t stored) const {
  const int number = least < 0 ? static_cast<std::int16_t>(stored) : static_cast<int>(stored);
  return number / one;
}

void appendTerms(std::string& file, const std::vector<std::uint16_t>& terms) {
  file.reserve(file.size() + 2 * terms.size());
  for (const std::uint16_t term : terms) {
    file.push_back(static_cast<char>(term & 255));
    file.push_back(static_cast<char>(term >> 8));
  }
}

}  // namespace orvacam::science
