#include "Encoder.h"

namespace orvacam::simulator {

namespace {

unsigned int evenUp(unsigned int n) {
  return n + n % 2;
}

/// Takes the next pixels of a plane and packs them, two in three bytes.
void pack12(std::vector<unsigned char>& out, const Plane& plane, std::size_t& position, unsigned int pixels) {
  for (unsigned int i = 0; i < evenUp(pixels); i += 2) {
    const unsigned int a = plane.at(position++);
    const unsigned int b = plane.at(position++);
    out.push_back(static_cast<unsigned char>(a >> 4));
    out.push_back(static_cast<unsigned char>((a & 15) << 4 | b >> 8));
    out.push_back(static_cast<unsigned char>(b & 255));
  }
}

std::vector<unsigned char> packRows(const Layout& layout, const std::vector<Plane>& planes) {
  std::vector<unsigned char> out;
  out.reserve(layout.bytes());
  std::vector<std::size_t> positions(layout.planes, 0);
  for (const Section& section : layout.sections)
    for (unsigned int row = 0; row < section.rows; ++row) {
      for (unsigned int p = 0; p < layout.planes; ++p)
        for (const unsigned int run : {section.before, section.pixels, section.after})
          pack12(out, planes[p], positions[p], run);
      // The last plane's copy is sent; the other planes hold the same pixels.
      pack12(out, planes[layout.planes - 1], positions[layout.planes - 1], section.shared);
      for (unsigned int p = 0; p + 1 < layout.planes; ++p)
        positions[p] += evenUp(section.shared);
    }
  return out;
}

std::vector<unsigned char> packBits13(const Plane& plane) {
  std::vector<unsigned char> out((plane.size() * 13 + 7) / 8, 0);
  std::size_t bit = 0;
  for (const std::uint16_t pixel : plane)
    for (unsigned int i = 13; i > 0; --i, ++bit)
      if ((pixel >> (i - 1) & 1) != 0)
        out[bit / 8] = static_cast<unsigned char>(out[bit / 8] | 0x80 >> bit % 8);
  return out;
}

/// The image as the corner amplifiers read it.
std::vector<unsigned char> readCcd(const HeaderFields& f, const Plane& image) {
  const unsigned int width = f.frameWidth();
  const unsigned int height = f.frameHeight();
  std::vector<unsigned char> out;
  const auto send = [&](unsigned int x, unsigned int y) {
    const std::uint16_t pixel = image.at(std::size_t{y} * width + x);
    out.push_back(static_cast<unsigned char>(pixel >> 8));
    out.push_back(static_cast<unsigned char>(pixel & 255));
  };
  if ((f.quadrants & 0x3C) == 0x3C) {
    const unsigned int half = width - width / 2;
    for (unsigned int i = 0; i < height / 2; ++i)
      for (const unsigned int y : {i, height - 1 - i}) {
        for (unsigned int k = 0; k < half; ++k)
          send(k, y);
        for (unsigned int k = 0; k < width - half; ++k)
          send(width - 1 - k, y);
      }
    if (height % 2 != 0)  // a line that no reader looks at
      for (unsigned int x = 0; x < width; ++x)
        send(x, height / 2);
    return out;
  }
  const unsigned int first = f.quadrants & 0x20   ? 0x20
                             : f.quadrants & 0x10 ? 0x10
                             : f.quadrants & 0x08 ? 0x08
                                                  : 0x04;
  const bool right = first == 0x10 || first == 0x04;
  const bool lower = first == 0x08 || first == 0x04;
  for (unsigned int y = 0; y < height; ++y)
    for (unsigned int x = 0; x < width; ++x)
      send(right ? width - 1 - x : x, lower ? height - 1 - y : y);
  return out;
}

}  // namespace

unsigned int binned(unsigned int size, unsigned int factor) {
  return factor < 2 ? size : size / factor + (size % factor != 0 ? 1 : 0);
}

Layout layoutOf(const HeaderFields& f) {
  const Sensor sensor = sensorOf(f.model);
  const bool gsense400 = sensor == Sensor::Gsense400;
  const bool gsense2020 = sensor == Sensor::Gsense2020;
  const bool gsense4040 = sensor == Sensor::Gsense4040;
  if (sensor == Sensor::Ccd)
    return {Packing::Ccd, 1, {{Section::Image, f.frameHeight(), 0, f.frameWidth(), 0, 0}}};

  const unsigned int pre = binned(f.preRefPixels, f.horizontalBinning);
  const unsigned int post = binned(f.postRefPixels, f.horizontalBinning);
  const unsigned int width = binned(f.width, f.horizontalBinning);
  const unsigned int height = binned(f.height, f.verticalBinning);
  const unsigned int preRows = binned(f.preRefRows, f.verticalBinning);
  const unsigned int postRows = binned(f.postRefRows, f.verticalBinning);
  const unsigned int frameWidth = pre + width + post;
  const auto sections = [&](unsigned int ahead, unsigned int behind) {
    return std::vector<Section>{{Section::PreRows, preRows, 0, frameWidth, 0, 0},
                                {Section::Image, height, ahead, width, behind, 0},
                                {Section::PostRows, postRows, 0, frameWidth, 0, 0}};
  };
  if (gsense400 && f.hdr)
    return {Packing::Packed12,
            2,
            {{Section::PreRows, f.preRefRows, 0, f.width, 0, f.postRefPixels},
             {Section::Image, f.height, 0, f.width, 0, f.postRefPixels},
             {Section::PostRows, f.postRefRows, 0, f.frameWidth(), 0, f.postRefPixels}}};
  if ((gsense2020 || gsense4040) && f.hdr) return {Packing::Packed12, 2, sections(0, post)};
  if (sensor == Sensor::Gsense6060 && f.dataBits == 12) return {Packing::Packed12, 2, sections(pre, post)};
  if (gsense2020 && f.correlatedMultipleSampling && f.dataBits != 16)
    return {Packing::Packed13, 1, sections(pre, post)};
  if (gsense400 || ((gsense2020 || gsense4040) && f.dataBits != 16))
    return {Packing::Packed12, 1, sections(pre, post)};
  return {Packing::Plain16, 1, sections(pre, post)};
}

std::size_t Layout::pixelsPerPlane() const {
  std::size_t pixels = 0;
  const bool pairs = packing == Packing::Packed12;
  const auto length = [pairs](unsigned int run) -> std::size_t { return pairs ? evenUp(run) : run; };
  for (const Section& s : sections)
    pixels += s.rows * (length(s.before) + length(s.pixels) + length(s.after) + length(s.shared));
  return pixels;
}

std::size_t Layout::bytes() const {
  if (packing == Packing::Packed13) return (pixelsPerPlane() * 13 + 7) / 8;
  if (packing != Packing::Packed12) return pixelsPerPlane() * 2;
  std::size_t pixels = pixelsPerPlane() * planes;
  for (const Section& s : sections)
    pixels -= std::size_t{s.rows} * (planes - 1) * evenUp(s.shared);  // sent once
  return pixels / 2 * 3;
}

std::vector<Plane> makePlanes(const Layout& layout,
                              const std::function<std::uint16_t(const PixelPlace&)>& value) {
  std::vector<Plane> planes(layout.planes);
  for (Plane& plane : planes)
    plane.reserve(layout.pixelsPerPlane());
  const bool pairs = layout.packing == Packing::Packed12;
  const auto fill = [&](unsigned int plane, unsigned int run, bool image, unsigned int y) {
    for (unsigned int x = 0; x < (pairs ? evenUp(run) : run); ++x)
      planes[plane].push_back(value({plane, image && x < run, x, y}));
  };
  for (const Section& section : layout.sections)
    for (unsigned int row = 0; row < section.rows; ++row) {
      for (unsigned int p = 0; p < layout.planes; ++p) {
        fill(p, section.before, false, row);
        fill(p, section.pixels, section.kind == Section::Image, row);
        fill(p, section.after, false, row);
      }
      const unsigned int last = layout.planes - 1;
      const std::size_t start = planes[last].size();
      fill(last, section.shared, false, row);
      for (unsigned int p = 0; p < last; ++p)
        planes[p].insert(planes[p].end(), planes[last].begin() + static_cast<std::ptrdiff_t>(start),
                         planes[last].end());
    }
  return planes;
}

std::vector<unsigned char> encodePixels(const HeaderFields& fields, const Layout& layout,
                                        const std::vector<Plane>& planes) {
  switch (layout.packing) {
    case Packing::Packed12:
      return packRows(layout, planes);
    case Packing::Packed13:
      return packBits13(planes.at(0));
    case Packing::Ccd:
      return readCcd(fields, planes.at(0));
    default: {
      std::vector<unsigned char> out;
      for (const std::uint16_t pixel : planes.at(0)) {
        out.push_back(static_cast<unsigned char>(pixel & 255));
        out.push_back(static_cast<unsigned char>(pixel >> 8));
      }
      return out;
    }
  }
}

std::vector<unsigned char> encodeFrame(const HeaderFields& fields, unsigned int version,
                                       const std::vector<Plane>& planes) {
  std::vector<unsigned char> frame = writeHeader(fields, version);
  const std::vector<unsigned char> pixels = encodePixels(fields, layoutOf(fields), planes);
  frame.insert(frame.end(), pixels.begin(), pixels.end());
  return frame;
}

}  // namespace orvacam::simulator
