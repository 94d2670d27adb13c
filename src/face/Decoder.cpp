#include "face/Decoder.h"

#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/types/device_types.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "face/Calibration.h"
#include "face/GainRatio.h"
#include "kernels/Kernels.h"
#include "support/QuietLog.h"

using namespace orvacam::face;

struct orva_decoder::Job {
  const orva_frame& frame;
  orva_geometry plane{};
  bool merges = false;  ///< the frame has a merged plane
  double ratio = 0;     ///< of its gains
  unsigned int has = 0, wanted = 0;
  std::size_t biasRow = 0;  ///< of the bias frames, at the frame's first row

  std::size_t pixels() const { return std::size_t{plane.width} * plane.height; }
  bool isPair() const { return frame.look.isPair(); }
};

namespace {

constexpr unsigned int largestThreshold = 65535;

const orva_target& targetOf(const orva_request& request, unsigned int plane) {
  return plane == ORVA_PLANE_LOW      ? request.low
         : plane == ORVA_PLANE_HIGH   ? request.high
         : plane == ORVA_PLANE_MERGED ? request.merged
                                      : request.image;
}

bool overlap(const void* a, std::size_t aBytes, const void* b, std::size_t bBytes) {
  const auto first = reinterpret_cast<std::uintptr_t>(a);
  const auto second = reinterpret_cast<std::uintptr_t>(b);
  return first < second + bBytes && second < first + aBytes;
}

/// A copy of a bias frame that keeps its pixels; null for none.
std::unique_ptr<orva_image> keptBias(const orva_image* bias) {
  if (bias == nullptr || bias->empty()) return nullptr;
  if (bias->type != ORVA_PIXEL_U16) fail(ORVA_BAD_ARGUMENT, "a bias frame has pixels of 16 bits");
  auto kept = std::make_unique<orva_image>(ORVA_PIXEL_U16, bias->width, bias->height, Held<PixelPool>());
  std::memcpy(kept->pixels, bias->pixels, sizeof(std::uint16_t) * bias->pixelCount());
  kept->header = bias->header;
  return kept;
}

}  // namespace

orva_decoder::orva_decoder()
    : m_highThreshold(CHWMergeReferenceFrames::MERGEREF_MAX_HIGH_THRESHOLD),
      m_differenceThreshold(CHWMergeReferenceFrames::MERGEREF_MAX_DIFFERENCE_THRESHOLD),
      m_pool(new PixelPool) {
  orvacam::makeLogQuietly();
  m_merge = std::make_unique<CHWMergeReferenceFrames>();
}

orva_decoder::~orva_decoder() {
  m_pool->close();
}

// ---- Settings

void orva_decoder::setDsnu(const char* path) {
  std::unique_ptr<const ReferenceTerms> dsnu;
  if (path != nullptr && *path != '\0') dsnu = readReference(path);
  if (dsnu != nullptr && m_prnu != nullptr)
    requireAlike(coverageOf("the DSNU reference", *dsnu), coverageOf("the PRNU reference", *m_prnu));
  m_dsnu = std::move(dsnu);
  m_referencesLoaded = false;
}

void orva_decoder::setPrnu(const char* path) {
  std::unique_ptr<const ReferenceTerms> prnu;
  if (path != nullptr && *path != '\0') prnu = readReference(path);
  if (prnu != nullptr && m_dsnu != nullptr)
    requireAlike(coverageOf("the PRNU reference", *prnu), coverageOf("the DSNU reference", *m_dsnu));
  m_prnu = std::move(prnu);
  m_referencesLoaded = false;
}

void orva_decoder::setBias(const orva_image* low, const orva_image* high) {
  std::unique_ptr<orva_image> keptLow = keptBias(low);
  std::unique_ptr<orva_image> keptHigh = keptBias(high);
  if (keptLow != nullptr && keptHigh != nullptr)
    requireAlike(coverageOf("the low bias frame", *keptLow), coverageOf("the high bias frame", *keptHigh));
  m_biasLow = std::move(keptLow);
  m_biasHigh = std::move(keptHigh);
}

void orva_decoder::setThresholds(unsigned int high, unsigned int difference) {
  for (const unsigned int threshold : {high, difference})
    if (threshold > largestThreshold)
      fail(ORVA_BAD_ARGUMENT, "a threshold of " + std::to_string(threshold) + " is above 65535");
  m_highThreshold = high;
  m_differenceThreshold = difference;
}

void orva_decoder::setCalibration(const void* block, std::size_t length) {
  std::unique_ptr<CCameraNVMergeSettings> stored;
  if (block != nullptr) stored = readCalibration(block, length);
  m_stored = std::move(stored);
  m_hasRatio = false;
}

double orva_decoder::ratioFor(const HeaderValues& header) {
  const RatioKey key{header.device(), header.number(ORVA_META_KEY_LDR_GAIN),
                     header.number(ORVA_META_KEY_HDR_GAIN), header.flag(ORVA_META_KEY_BACK_SIDE_ILLUMINATED)};
  if (!m_hasRatio || !(key == m_ratioKey)) {
    m_hasRatio = false;
    m_ratio = gainRatioOf(header, m_stored.get());
    m_ratioKey = key;
    m_hasRatio = true;
  }
  return m_ratio;
}

orva_merge_info orva_decoder::mergeInfo(const HeaderValues& header) {
  const FrameLook look = lookAtHeader(header);
  const double ratio = look.wantsMerge() ? ratioFor(header) : 0;
  const bool merges = look.isDecodable() && look.wantsMerge() && (m_prnu != nullptr || isMergeable(ratio));
  return {sizeof(orva_merge_info),
          merges ? 1 : 0,
          merges && m_prnu == nullptr ? flooredRatio(ratio) : 0.0,
          m_highThreshold,
          m_differenceThreshold,
          0,
          m_dsnu != nullptr ? 1 : 0,
          m_prnu != nullptr ? 1 : 0,
          m_biasLow != nullptr || m_biasHigh != nullptr ? 1 : 0};
}

unsigned int orva_decoder::planesOf(const orva_frame& frame) {
  return plan(frame, orva_request{}).has;
}

// ---- One frame

DecodedImages orva_decoder::decode(const orva_frame& frame, const orva_request& request) {
  const Job job = plan(frame, request);
  DecodedImages images;
  makeImages(job, request, images);
  if (job.wanted != 0) run(job, images);
  finish(job, request, images);
  return images;
}

orva_decoder::Job orva_decoder::plan(const orva_frame& frame, const orva_request& request) {
  frame.look.requireDecodable();
  Job job{frame};
  job.plane = frame.look.geometry();
  if (frame.look.wantsMerge()) {
    job.ratio = ratioFor(frame.values());
    job.merges = m_prnu != nullptr || isMergeable(job.ratio);
  }
  job.has = !job.isPair() ? imagePlane : job.merges ? mergedPlanes : pairPlanes;
  job.wanted = job.has & request.planes;
  requireCorrections(job);
  if (m_biasLow != nullptr) job.biasRow = rowOfFrame(coverageOf("the bias frame", *m_biasLow), frame.look);
  return job;
}

void orva_decoder::requireCorrections(const Job& job) const {
  if ((m_dsnu != nullptr || m_prnu != nullptr) && !job.merges)
    fail(ORVA_MISMATCH, "the frame has nothing to merge, and DSNU or PRNU references are set");
  if (m_dsnu != nullptr) rowOfFrame(coverageOf("the DSNU reference", *m_dsnu), job.frame.look);
  if (m_prnu != nullptr) rowOfFrame(coverageOf("the PRNU reference", *m_prnu), job.frame.look);
  if (m_biasLow == nullptr && m_biasHigh == nullptr) return;
  if (m_biasLow == nullptr) fail(ORVA_MISMATCH, "the bias frame of the first plane is missing");
  if (job.isPair() && m_biasHigh == nullptr)
    fail(ORVA_MISMATCH, "the frame is a pair of two gains, and the bias frame of the high gain is missing");
}

void orva_decoder::makeImages(const Job& job, const orva_request& request, DecodedImages& images) {
  const std::size_t bytes = sizeof(std::uint16_t) * job.pixels();
  const orva_target* others[std::size(planeNames)] = {};
  for (std::size_t i = 0; i < std::size(planeNames); ++i) {
    const auto& plane = planeNames[i];
    const orva_target& target = targetOf(request, plane.bit);
    if ((job.wanted & plane.bit) == 0 || target.pixels == nullptr) continue;
    others[i] = &target;
    if (target.capacity < job.pixels())
      fail(ORVA_BAD_ARGUMENT, std::string("the memory for ") + plane.name + " holds " +
                                  std::to_string(target.capacity) + " pixels of " +
                                  std::to_string(job.pixels()));
    bool shared = overlap(target.pixels, bytes, job.frame.bytes, job.frame.length);
    for (std::size_t other = 0; other < i; ++other)
      shared =
          shared || (others[other] != nullptr && overlap(target.pixels, bytes, others[other]->pixels, bytes));
    if (shared)
      fail(ORVA_BAD_ARGUMENT, std::string("the memory for ") + plane.name + " overlaps other memory");
  }
  for (const auto& plane : planeNames) {
    if ((job.wanted & plane.bit) == 0) continue;
    std::uint16_t* const target = targetOf(request, plane.bit).pixels;
    images.of(plane.bit) =
        target != nullptr
            ? std::make_unique<orva_image>(job.plane.width, job.plane.height, target)
            : std::make_unique<orva_image>(ORVA_PIXEL_U16, job.plane.width, job.plane.height, m_pool);
  }
}

/// Terms of the frame: uniform ones as many rows as the start row needs, or those of the reference files.
void orva_decoder::prepareMerge(const Job& job) {
  m_merge->SetMergeThresholds(static_cast<unsigned short>(m_highThreshold),
                              static_cast<unsigned short>(m_differenceThreshold));
  if (m_dsnu != nullptr || m_prnu != nullptr) {
    loadReferences(job.ratio);
  } else {
    m_referencesLoaded = false;
    m_merge->CreateIdentityFrames(job.plane.width, job.plane.start_row + job.plane.height,
                                  job.merges ? job.ratio : 1.0, 1.0, nullptr);
  }
}

void orva_decoder::loadReferences(double ratio) {
  const bool ratioMatters = m_prnu == nullptr;
  if (m_referencesLoaded && (!ratioMatters || ratio == m_loadedRatio)) return;
  m_referencesLoaded = false;
  const ReferenceTerms& size = m_dsnu != nullptr ? *m_dsnu : *m_prnu;
  int status =
      m_merge->CreateIdentityFrames(size.width, size.height, ratioMatters ? ratio : 1.0, 1.0, nullptr);
  const auto count = static_cast<unsigned int>(size.count());
  if (status == 0 && m_dsnu != nullptr) {
    status = m_merge->SetAdditiveLowFromBuffer(m_dsnu->low<short>(), count);
    if (status == 0) status = m_merge->SetAdditiveHighFromBuffer(m_dsnu->high<short>(), count);
  }
  if (status == 0 && m_prnu != nullptr) {
    status = m_merge->SetMultiplicativeLowFromBuffer(m_prnu->low<unsigned short>(), count);
    if (status == 0) status = m_merge->SetMultiplicativeHighFromBuffer(m_prnu->high<unsigned short>(), count);
  }
  if (status != 0) throw std::bad_alloc();
  m_referencesLoaded = true;
  m_loadedRatio = ratio;
}

void orva_decoder::prepareBias(const Job& job) {
  m_merge->SetBiasFrames(0, 0, nullptr, nullptr);
  if (m_biasLow == nullptr || !job.isPair()) return;
  m_merge->SetMetaData(job.frame.values());  // which the sizes of bias frames are held against
  const std::size_t first = job.biasRow * job.plane.width;
  if (m_merge->SetBiasFrames(job.plane.width, job.plane.height, m_biasLow->as<unsigned short>() + first,
                             m_biasHigh->as<unsigned short>() + first) != 0)
    fail(ORVA_INTERNAL, "the merge refuses the bias frames");
}

IFrame& orva_decoder::machineOf(unsigned int device) {
  if (m_machine == nullptr || m_machineDevice != device) {
    m_machine.reset();
    m_machine.reset(CFrameFactory::Create(static_cast<ORVADEVICETYPE>(device)));
    if (m_machine == nullptr) throw std::bad_alloc();
    m_machineDevice = device;
  }
  return *m_machine;
}

void orva_decoder::run(const Job& job, DecodedImages& images) {
  prepareMerge(job);
  prepareBias(job);
  unpacked_images_t wanted{};
  const auto want = [&](const std::unique_ptr<orva_image>& image, unsigned short*& pixels,
                        unsigned long& capacity, bool& request) {
    if (image == nullptr) return;
    pixels = image->as<unsigned short>();
    capacity = sizeof *pixels * image->pixelCount();
    request = true;
  };
  want(job.isPair() ? images.low : images.image, wanted.pLowImage, wanted.ulLowImageSize,
       wanted.bLowImageRequest);
  want(images.high, wanted.pHighImage, wanted.ulHighImageSize, wanted.bHighImageRequest);
  want(images.merged, wanted.pMergedImage, wanted.ulMergedImageSize, wanted.bMergedImageRequest);
  runMachinery(job, wanted);
  if (!job.isPair() && m_biasLow != nullptr)
    orvacam::kernels::active().subtractBias(images.image->as<std::uint16_t>(),
                                            m_biasLow->as<std::uint16_t>() + job.biasRow * job.plane.width,
                                            job.pixels());
}

/// The frame was looked at: what fails now is memory. The machinery starts anew after it.
void orva_decoder::runMachinery(const Job& job, unpacked_images_t& wanted) {
  IFrame& machine = machineOf(job.frame.values().device());
  // The machinery writes to no pixel of the source.
  auto* const source = const_cast<unsigned char*>(job.frame.bytes);
  const bool decoded = machine.Initialize(job.frame.values(), source, job.frame.length, m_merge.get()) >= 0 &&
                       machine.Merge(&wanted) >= 0;
  if (decoded) return;
  m_machine.reset();
  throw std::bad_alloc();
}

void orva_decoder::finish(const Job& job, const orva_request& request, DecodedImages& images) {
  const bool histograms = (request.flags & ORVA_HISTOGRAMS) != 0;
  const bool statistics = histograms || (request.flags & ORVA_STATISTICS) != 0;
  if (statistics && m_counter == nullptr) m_counter = std::make_unique<PlaneCounter>();
  for (const auto& plane : planeNames) {
    const std::unique_ptr<orva_image>& image = images.of(plane.bit);
    if (image == nullptr) continue;
    image->header = Held<const orva_header>(new orva_header(job.frame.header, PlaneRole{plane.bit}));
    if (statistics) image->statistics = m_counter->count(image->as<std::uint16_t>(), job.plane, histograms);
  }
}

// ---- The C interface

namespace {

/// Everything that a frame has.
orva_request everything() {
  orva_request all{};
  all.size = sizeof all;
  all.planes = ORVA_PLANE_LOW | ORVA_PLANE_HIGH | ORVA_PLANE_MERGED | ORVA_PLANE_IMAGE;
  return all;
}

}  // namespace

extern "C" {

orva_status orva_decoder_create(orva_decoder** out) {
  return guarded([&] {
    required(out, "out") = nullptr;
    *out = new orva_decoder;
  });
}

void orva_decoder_free(orva_decoder* decoder) {
  delete decoder;
}

orva_status orva_decoder_set_dsnu(orva_decoder* decoder, const char* path) {
  return guarded([&] { required(decoder, "the decoder").setDsnu(path); });
}

orva_status orva_decoder_set_prnu(orva_decoder* decoder, const char* path) {
  return guarded([&] { required(decoder, "the decoder").setPrnu(path); });
}

orva_status orva_decoder_set_bias(orva_decoder* decoder, const orva_image* low, const orva_image* high) {
  return guarded([&] { required(decoder, "the decoder").setBias(low, high); });
}

orva_status orva_decoder_set_thresholds(orva_decoder* decoder, unsigned high, unsigned difference) {
  return guarded([&] { required(decoder, "the decoder").setThresholds(high, difference); });
}

orva_status orva_decoder_set_calibration(orva_decoder* decoder, const void* block, size_t length) {
  return guarded([&] { required(decoder, "the decoder").setCalibration(block, length); });
}

orva_status orva_decoder_get_merge_info(orva_decoder* decoder, const orva_header* header,
                                        orva_merge_info* info) {
  return guarded([&] {
    const HeaderValues& values = required(header, "the header").values();
    give(info, required(decoder, "the decoder").mergeInfo(values), "the info");
  });
}

orva_status orva_decoder_decode(orva_decoder* decoder, const orva_frame* frame, const orva_request* request,
                                orva_decoded* decoded) {
  return guarded([&] {
    give(decoded, orva_decoded{}, "the planes");
    const orva_request wanted = request != nullptr ? taken(request, "the request") : everything();
    orva_decoder& d = required(decoder, "the decoder");
    const orva_frame& f = required(frame, "the frame");
    DecodedImages images;
    withFrame(f, [&] { images = d.decode(f, wanted); });
    give(decoded,
         orva_decoded{sizeof(orva_decoded), images.low.release(), images.high.release(),
                      images.merged.release(), images.image.release()},
         "the planes");
  });
}

void orva_decoded_free(orva_decoded* decoded) {
  if (decoded == nullptr) return;
  for (orva_image** image : {&decoded->low, &decoded->high, &decoded->merged, &decoded->image}) {
    orva_image_free(*image);
    *image = nullptr;
  }
}
}
