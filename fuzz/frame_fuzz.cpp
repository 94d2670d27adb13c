// Whole frames of every family of sensors through the façade: a byte that chooses the model, two of options,
// six of a region, then the frame, whose header is binary or FITS text. The model text is overwritten.

#include <orvacam.h>

#include <array>
#include <cmath>
#include <iterator>
#include <memory>

#include "caller_buffers.h"
#include "frame_families.h"
#include "fuzz_support.h"
#include "header_mutator.h"
#include "simulator/Encoder.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Pixels;

/// A frame that every input is preceded by: nothing of it may be left in what follows, but for the high-gain
/// black levels, which headers of version 1 lack and then keep (as documented).
const Bytes& frameBefore() {
  static const Bytes frame = [] {
    orvacam::simulator::HeaderFields fields;
    fields.hdr = true;
    fields.width = 32;
    fields.height = 12;
    fields.blackLevelHigh = fields.blackLevelSunHigh = 0;
    const orvacam::simulator::Layout layout = orvacam::simulator::layoutOf(fields);
    unsigned int next = 0;
    const auto value = [&](const orvacam::simulator::PixelPlace&) {
      return static_cast<std::uint16_t>(next++ % 90);
    };
    return orvacam::simulator::encodeFrame(fields, 3, orvacam::simulator::makePlanes(layout, value));
  }();
  return frame;
}

void setModel(Bytes& frame, const char* model) {
  if (CFitsInterface::IsFitsFrame(frame.data(), fuzz::length(frame))) {
    fuzz::setFitsCard(frame, 0, "INSTRUME", "'" + std::string(model) + "'", frame.size() + 80);
    return;
  }
  if (frame.size() < 48) return;
  std::memset(frame.data() + 8, 0, 40);
  std::memcpy(frame.data() + 8, model, std::strlen(model));
}

/// Options that ask for statistics: a quarter of all, as they take most of the time.
constexpr unsigned int withStatistics = 0x0410;

/// One merge, as a caller asks for it: which planes, which layout, with statistics or without.
struct Run {
  CAlgo& algo;
  unpacked_images_t images{};
  unpacked_stats_t stats{};
  unsigned int format = ORVA_IMAGE_FORMAT_RAW;
  std::array<std::vector<double>, 3> histograms;
  int status = 0;

  Run(CAlgo& owner, unsigned int options) : algo(owner) {
    images.bLowImageRequest = (options & 1) == 0;
    images.bHighImageRequest = (options & 2) == 0;
    images.bMergedImageRequest = (options & 4) == 0;
    images.bMetaDataRequest = (options & 8) != 0;
    // Histograms of the caller's, as those that the library makes take longer to fill than small frames.
    image_plane_stats_t* const planes[] = {&stats.statsLow, &stats.statsHigh, &stats.statsMerged};
    for (std::size_t i = 0; i < 3; ++i) {
      histograms[i].resize(1 + (options >> 11));
      planes[i]->uiHistogramSize = 1 + (options >> 11);
      planes[i]->pHistogram = histograms[i].data();
    }
    stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest =
        (options & withStatistics) == withStatistics;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() { algo.FreeFramePointers(&images); }

  void merge(Bytes& frame, unsigned int options) {
    format = options >> 5 & 3;
    algo.SetHWMergeEnables({0, format, options >> 7 & 3});
    status = algo.MergeImage(frame.data(), frame.size(), &images, &stats);
    FUZZ_REQUIRE(status >= -1);
  }
};

Bytes planeBytes(const unsigned short* plane, unsigned long size) {
  return plane == nullptr ? Bytes() : fuzz::copyOf(reinterpret_cast<const std::uint8_t*>(plane), size);
}

/// The merged plane's bytes behind a FITS header, which holds the time of day.
Bytes mergedBytes(const Run& run) {
  const std::ptrdiff_t header = run.format == ORVA_IMAGE_FORMAT_FITS ? 5760 : 0;
  Bytes bytes = planeBytes(run.images.pMergedImage, run.images.ulMergedImageSize);
  if (!bytes.empty()) bytes.erase(bytes.begin(), bytes.begin() + header);
  return bytes;
}

/// Bit by bit, as a mean may be no number.
bool sameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

void requireSame(const image_plane_stats_t& a, const image_plane_stats_t& b) {
  FUZZ_REQUIRE(sameBits(a.dMean, b.dMean) && sameBits(a.dStdDev, b.dStdDev) && a.dMode == b.dMode);
  FUZZ_REQUIRE(a.uiMin == b.uiMin && a.minPoint.x == b.minPoint.x && a.minPoint.y == b.minPoint.y);
  FUZZ_REQUIRE(a.uiMax == b.uiMax && a.maxPoint.x == b.maxPoint.x && a.maxPoint.y == b.maxPoint.y);
  // A plane without pixels leaves the clip points as they were.
  if (a.uiMin <= a.uiMax) FUZZ_REQUIRE(a.uiLowClip == b.uiLowClip && a.uiHighClip == b.uiHighClip);
  for (unsigned int i = 0; i < std::min(a.uiHistogramSize, b.uiHistogramSize); ++i)
    FUZZ_REQUIRE(a.pHistogram[i] == b.pHistogram[i]);
}

/// All that two merges of one frame must agree on.
void requireSame(const Run& a, const Run& b) {
  FUZZ_REQUIRE(a.status == b.status);
  if (a.status < 0) return;
  const unpacked_images_t &x = a.images, &y = b.images;
  FUZZ_REQUIRE(planeBytes(x.pLowImage, x.ulLowImageSize) == planeBytes(y.pLowImage, y.ulLowImageSize));
  FUZZ_REQUIRE(planeBytes(x.pHighImage, x.ulHighImageSize) == planeBytes(y.pHighImage, y.ulHighImageSize));
  FUZZ_REQUIRE(mergedBytes(a) == mergedBytes(b));
  requireSame(a.stats.statsLow, b.stats.statsLow);
  requireSame(a.stats.statsHigh, b.stats.statsHigh);
  requireSame(a.stats.statsMerged, b.stats.statsMerged);
}

void requireSaneStatistics(const image_plane_stats_t& stats, std::uint64_t pixels) {
  if (!stats.bRequest || stats.pHistogram == nullptr) return;
  double counted = 0;
  for (unsigned int i = 0; i < stats.uiHistogramSize; ++i)
    counted += stats.pHistogram[i];
  FUZZ_REQUIRE(counted <= static_cast<double>(pixels));
  if (std::isnan(stats.dMean) || stats.uiMin > stats.uiMax) return;  // no pixels
  FUZZ_REQUIRE(stats.uiMin <= stats.dMean && stats.dMean <= stats.uiMax);
  FUZZ_REQUIRE(stats.uiMin >= stats.uiHistogramSize || stats.pHistogram[stats.uiMin] >= 1);
  // Squares of larger values count as negative, and their deviation need not be a number.
  FUZZ_REQUIRE(stats.uiMax > 46340 || (stats.dStdDev >= 0 && stats.dStdDev <= 65535));
}

void requireSane(const Run& run, std::uint64_t claimed) {
  const unpacked_images_t& images = run.images;
  if (run.status < 0) return;
  const struct {
    bool requested;
    const unsigned short* plane;
    unsigned long pixels, size;
  } planes[] = {
      {images.bLowImageRequest, images.pLowImage, images.ulLowImagePixels, images.ulLowImageSize},
      {images.bHighImageRequest, images.pHighImage, images.ulHighImagePixels, images.ulHighImageSize},
      {images.bMergedImageRequest, images.pMergedImage, images.ulMergedImagePixels,
       images.ulMergedImageSize}};
  for (const auto& plane : planes) {
    FUZZ_REQUIRE((plane.plane != nullptr) == plane.requested);
    if (plane.requested) FUZZ_REQUIRE(2 * plane.pixels == claimed && plane.size >= claimed);
  }
  const std::uint64_t pixels = 2 * claimed;  // an odd run counts one pixel more
  requireSaneStatistics(run.stats.statsLow, pixels);
  requireSaneStatistics(run.stats.statsHigh, pixels);
  requireSaneStatistics(run.stats.statsMerged, pixels);
}

/// The caller's own buffers: exactly as large as the library made them, or one byte smaller, which must fail.
void mergeIntoOwnBuffers(const Run& first, Bytes& frame, unsigned int options) {
  if (first.status < 0) return;
  for (const unsigned long missing : {0UL, 1UL}) {
    Run run(first.algo, options);
    const unpacked_images_t& made = first.images;
    unpacked_images_t& own = run.images;
    const auto give = [&](unsigned short*& plane, unsigned long& capacity, unsigned long size) {
      if (size <= missing) return;
      capacity = size - missing;
      plane = static_cast<unsigned short*>(std::malloc(capacity));
      FUZZ_REQUIRE(plane != nullptr);
      std::memset(plane, 0x5A, capacity);
    };
    if (own.bLowImageRequest) give(own.pLowImage, own.ulLowImageSize, made.ulLowImageSize);
    if (own.bHighImageRequest) give(own.pHighImage, own.ulHighImageSize, made.ulHighImageSize);
    if (own.bMergedImageRequest) give(own.pMergedImage, own.ulMergedImageSize, made.ulMergedImageSize);
    run.merge(frame, options);
    if (missing == 0) requireSame(first, run);
    if (missing == 1 && (own.bLowImageRequest || own.bHighImageRequest || own.bMergedImageRequest))
      FUZZ_REQUIRE(run.status == -1);
  }
}

/// Any mixture of requests and buffers: what is given is kept to, what is too small fails, and nothing else
/// does.
void mergeIntoAnyBuffers(CAlgo& algo, Bytes& frame, unsigned int options) {
  constexpr unsigned int layout = 0x01E0, withHeaders = 8;
  Run whole(algo, (options & layout) | withHeaders);
  whole.merge(frame, options);
  const unpacked_images_t& all = whole.images;
  for (const unsigned int turn : {1u, 2u, 3u}) {
    const Bytes choices = fuzz::choicesOf(frame, options + turn, 64);
    Input input(choices.data(), choices.size());
    fuzz::NeededSizes needed{input.word(), input.word(), input.word() % 1200};
    if (whole.status >= 0) needed = {all.ulLowImageSize, all.ulMergedImageSize, all.uiMetaDataSize};
    fuzz::CallerBuffers own(needed, input);
    const int status = algo.MergeImage(frame.data(), frame.size(), &own.images, nullptr);
    own.check();
    FUZZ_REQUIRE((status >= 0) == (whole.status >= 0 && own.suffice()));
    if (status < 0) continue;
    const unsigned long stamped = whole.format == ORVA_IMAGE_FORMAT_FITS ? 5760 : 0;  // holds the time of day
    const auto same = [](const unsigned short* a, const unsigned short* b, unsigned long from,
                         unsigned long to) {
      return std::memcmp(reinterpret_cast<const char*>(a) + from, reinterpret_cast<const char*>(b) + from,
                         to - from) == 0;
    };
    const unpacked_images_t& x = own.images;
    if (x.bLowImageRequest) FUZZ_REQUIRE(same(x.pLowImage, all.pLowImage, 0, needed.plane));
    if (x.bHighImageRequest) FUZZ_REQUIRE(same(x.pHighImage, all.pHighImage, 0, needed.plane));
    if (x.bMergedImageRequest) FUZZ_REQUIRE(same(x.pMergedImage, all.pMergedImage, stamped, needed.merged));
  }
}

/// Pixels of a region that was copied packed, against the unpacked plane. Told apart only where all runs of a
/// row are even, as only then rows lie where a region looks for them.
void compareRegion(const CFrameMetaData& metaData, const frame_roi_t& roi, const Bytes& copied,
                   const unpacked_images_t& images) {
  unsigned int width = 0, height = 0, pre = 0, post = 0, preRows = 0, postRows = 0, bits = 0;
  metaData.GetFrameDimensionsBinned(width, height);
  metaData.GetRefPixelsBinned(pre, post);
  metaData.GetRefRowsBinned(preRows, postRows);
  metaData.GetPixelSize(bits);
  if (metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool() || bits == 16 || (width | pre | post) % 2 != 0)
    return;
  const std::size_t header = metaData.GetBinarizeSize();
  for (std::size_t y = 0; y < roi.uiHeight; ++y)
    for (std::size_t x = 0; x < roi.uiWidth; ++x) {
      const std::size_t at = header + (y * roi.uiWidth + x) / 2 * 3;
      const unsigned int first = copied[at] * 16u + copied[at + 1] / 16;
      const unsigned int second = copied[at + 1] % 16u * 256 + copied[at + 2];
      FUZZ_REQUIRE(images.pLowImage[(preRows + roi.uiY + y) * width + pre + roi.uiX + x] ==
                   (x % 2 == 0 ? first : second));
    }
}

void copyRegion(Bytes& frame, const frame_roi_t& region, unsigned int room, const Run& run) {
  CFrameMetaData metaData;
  if (metaData.Parse(frame.data(), fuzz::length(frame)) < 0) return;
  const std::unique_ptr<IFrame> raw(run.algo.InitFrame(&metaData, frame.data(), frame.size(), nullptr));
  FUZZ_REQUIRE(raw != nullptr);
  frame_roi_t roi = region;
  Bytes copied(room, 0x5A);
  const int status = raw->CopyROIToBuffer(roi, copied.data(), room);
  FUZZ_REQUIRE(status == 0 || (status == -1 && copied == Bytes(room, 0x5A)));
  if (status == 0 && run.status == 0 && run.images.pLowImage != nullptr)
    compareRegion(metaData, region, copied, run.images);
}

}  // namespace

FUZZ_TARGET(data, size) {
  Input input(data, size);
  const fuzz::families::Model& model =
      fuzz::families::models[input.byte() % std::size(fuzz::families::models)];
  const unsigned int options = input.word();
  frame_roi_t region{};
  region.uiX = input.hostile();
  region.uiY = input.hostile();
  region.uiWidth = input.hostile();
  region.uiHeight = input.hostile();
  const unsigned int room = input.word() % 2048;
  Bytes frame = input.rest();
  setModel(frame, model.name);
  // Planes of some megabytes take the time of a thousand small ones and differ in nothing else; larger ones
  // are out of proportion to the input and must be refused.
  const std::uint64_t claimed = fuzz::claimedPlane(frame, true);
  if (claimed > 128 << 10 && claimed <= 8 << 20) return 0;

  const Bytes original = frame;
  static CAlgo algo;
  Run first(algo, options);
  const unsigned int wanted = first.stats.statsMerged.bRequest ? withStatistics : 0;
  Bytes before = frameBefore();
  Run run(algo, wanted);
  run.merge(before, wanted);
  FUZZ_REQUIRE(run.status == 0);
  first.merge(frame, options);
  for (std::size_t i = 0; i < frame.size(); ++i)
    FUZZ_REQUIRE(frame[i] == original[i] || (i < 1024 && frame[i] == (original[i] & 0x7F)));
  FUZZ_REQUIRE(claimed <= 8 << 20 || first.status == -1);
  requireSane(first, claimed);

  // Parsing has cleared sign bits, which read as other values: the comparisons are of frames alike. Into the
  // buffers of the call before, as a camera loop does, and by an object that has seen nothing.
  first.merge(frame, options);
  const auto fresh = std::make_unique<CAlgo>();
  Run third(*fresh, options);
  third.merge(frame, options);
  requireSame(first, third);
  mergeIntoOwnBuffers(first, frame, options);
  mergeIntoAnyBuffers(algo, frame, options);
  copyRegion(frame, region, room, first);

  CFrameMetaData metaData;
  metaData.Parse(frame.data(), fuzz::length(frame));
  Input again(data, size);
  model.decode(metaData, frame, again);
  return 0;
}
