// The face, beside the documented classes that it stands on.

#include <benchmark/benchmark.h>
#include <orvacam.h>

#include <memory>
#include <orvacam.hpp>
#include <string>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"
#include "Memory.h"

namespace {

using namespace orvacam::bench;

constexpr unsigned int smallSide = 64;

/// MergeImage into the caller's planes.
class Merging {
 public:
  explicit Merging(const HdrFrame& frame) : m_bytes(frame.bytes) {
    m_algo->Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
    for (PlaneMemory* plane : {&m_low, &m_high, &m_merged})
      plane->resize(frame.pixels());
    m_images.pLowImage = m_low.data();
    m_images.pHighImage = m_high.data();
    m_images.pMergedImage = m_merged.data();
    m_images.ulLowImageSize = m_images.ulHighImageSize = m_images.ulMergedImageSize = 2 * frame.pixels();
    m_images.bLowImageRequest = m_images.bHighImageRequest = m_images.bMergedImageRequest = true;
  }
  void run() {
    require(m_algo->MergeImage(m_bytes.data(), m_bytes.size(), &m_images, nullptr) == 0,
            "MergeImage's status");
  }
  const unsigned short* merged() { return m_merged.data(); }
  PlaneMemory& low() { return m_low; }
  PlaneMemory& high() { return m_high; }
  PlaneMemory& mergedMemory() { return m_merged; }

 private:
  std::vector<unsigned char> m_bytes;
  std::unique_ptr<CAlgo> m_algo = std::make_unique<CAlgo>();
  PlaneMemory m_low, m_high, m_merged;
  unpacked_images_t m_images{};
};

void requireSame(const orvacam::Decoded& decoded, Merging& merging, const HdrFrame& frame) {
  require(std::equal(frame.low.begin(), frame.low.end(), decoded.low.data()), "low plane");
  require(std::equal(frame.high.begin(), frame.high.end(), decoded.high.data()), "high plane");
  require(std::equal(merging.merged(), merging.merged() + frame.pixels(), decoded.merged.data()),
          "merged plane");
}

/// Planes that were let go are used again, as in a live loop.
void decodeIntoOwnPlanes(benchmark::State& state, unsigned int side) {
  const HdrFrame& hdr = hdrFrame(side);
  const orvacam::Frame frame = orvacam::Frame::view(hdr.bytes.data(), hdr.bytes.size());
  orvacam::Decoder decoder;
  Merging merging(hdr);
  merging.run();
  requireSame(decoder.decode(frame), merging, hdr);
  compareWithCopies(state, 9 * hdr.pixels(), [&] { decoder.decode(frame); },
                    {{"MergeImage", [&] { merging.run(); }}});
  const std::size_t bytes = bytesAllocatedBy([&] { decoder.decode(frame); });
  require(bytes < std::size_t{1} << 18, "a frame in a loop allocates nothing that grows with it");
  state.counters["bytes"] = static_cast<double>(bytes);
}

void decodeIntoCallersPlanes(benchmark::State& state, unsigned int side) {
  const HdrFrame& hdr = hdrFrame(side);
  const orvacam::Frame frame = orvacam::Frame::view(hdr.bytes.data(), hdr.bytes.size());
  orvacam::Decoder decoder;
  Merging merging(hdr);
  merging.run();
  // The same memory for both.
  orvacam::Targets targets;
  targets.low = {merging.low().data(), hdr.pixels()};
  targets.high = {merging.high().data(), hdr.pixels()};
  targets.merged = {merging.mergedMemory().data(), hdr.pixels()};
  compareWithCopies(state, 9 * hdr.pixels(), [&] { decoder.decode(frame, orvacam::Planes(), targets); },
                    {{"MergeImage", [&] { merging.run(); }}});
}

void decodeSmall(benchmark::State& state, bool statistics) {
  const HdrFrame& hdr = hdrFrame(smallSide);
  const orvacam::Frame frame = orvacam::Frame::view(hdr.bytes.data(), hdr.bytes.size());
  orvacam::Decoder decoder;
  orvacam::Planes wanted;
  wanted.statistics = statistics;
  constexpr std::size_t repeats = 500;
  compareWithCopies(
      state, 9 * hdr.pixels(), [&] { decoder.decode(frame, wanted); }, {}, repeats);
}

void parseHeader(benchmark::State& state) {
  const HdrFrame& hdr = hdrFrame(smallSide);
  constexpr std::size_t repeats = 1000;
  compareWithCopies(
      state, 384, [&] { orvacam::Header::parse(hdr.bytes.data(), hdr.bytes.size()); }, {}, repeats);
}

}  // namespace

void orvacam::bench::addFaceRows(bool small) {
  const unsigned int side = fullSide(small);
  addRow("face: decode, three planes", side,
         [=](benchmark::State& state) { decodeIntoOwnPlanes(state, side); });
  addRow("face: decode, three planes of the caller's", side,
         [=](benchmark::State& state) { decodeIntoCallersPlanes(state, side); });
  addRow("face: decode, three planes", smallSide, [](benchmark::State& state) { decodeSmall(state, false); });
  addRow("face: decode, three planes, statistics", smallSide,
         [](benchmark::State& state) { decodeSmall(state, true); });
  addRow("face: parse a header", smallSide, [](benchmark::State& state) { parseHeader(state); });
}
