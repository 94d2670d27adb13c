#include "face/Decoder.h"

#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "face/Gains.h"
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

struct Block {
  const void* begin;
  std::size_t bytes;

  bool overlaps(const Block& other) const {
    const auto first = reinterpret_cast<std::uintptr_t>(begin);
    const auto second = reinterpret_cast<std::uintptr_t>(other.begin);
    return first < second + other.bytes && second < first + bytes;
  }
};

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

void orva_decoder::setReference(Reference& kept, const Reference& other, Reference fresh) {
  if (fresh != nullptr && other != nullptr) requireAlike(coverageOf(*fresh), coverageOf(*other));
  kept = std::move(fresh);
  m_referencesLoaded = false;
}

void orva_decoder::setDsnu(const char* path) {
  setReference(m_dsnu, m_prnu, readReference("the DSNU reference", path));
}

void orva_decoder::setPrnu(const char* path) {
  setReference(m_prnu, m_dsnu, readReference("the PRNU reference", path));
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
  m_ratioKey.reset();
}

double orva_decoder::ratioFor(const HeaderValues& header) {
  const RatioKey key{header.device(), header.flag(ORVA_META_KEY_BACK_SIDE_ILLUMINATED),
                     header.number(ORVA_META_KEY_LDR_GAIN), header.number(ORVA_META_KEY_HDR_GAIN)};
  if (m_ratioKey != key) {
    m_ratioKey.reset();
    m_ratio = gainRatioOf(header, m_stored.get());
    m_ratioKey = key;
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
  for (const Reference* const reference : {&m_dsnu, &m_prnu})
    if (*reference != nullptr) rowOfFrame(coverageOf(**reference), job.frame.look);
  if (m_biasLow == nullptr && m_biasHigh == nullptr) return;
  if (m_biasLow == nullptr) fail(ORVA_MISMATCH, "the bias frame of the first plane is missing");
  if (job.isPair() && m_biasHigh == nullptr)
    fail(ORVA_MISMATCH, "the frame is a pair of two gains, and the bias frame of the high gain is missing");
}

void orva_decoder::makeImages(const Job& job, const orva_request& request, DecodedImages& images) {
  const std::size_t bytes = sizeof(std::uint16_t) * job.pixels();
  std::array<Block, 1 + std::size(planeNames)> used{{{job.frame.bytes, job.frame.length}}};
  for (std::size_t i = 0; i < images.size(); ++i) {
    if ((job.wanted & planeNames[i].bit) == 0) continue;
    const orva_target& target = request.*planeNames[i].target;
    if (target.pixels == nullptr) {
      images[i] = std::make_unique<orva_image>(ORVA_PIXEL_U16, job.plane.width, job.plane.height, m_pool);
      continue;
    }
    const auto refuse = [&](const std::string& why) {
      fail(ORVA_BAD_ARGUMENT, std::string("the memory for ") + planeNames[i].name + why);
    };
    if (target.capacity < job.pixels())
      refuse(" holds " + std::to_string(target.capacity) + " pixels of " + std::to_string(job.pixels()));
    const Block block{target.pixels, bytes};
    if (std::any_of(used.begin(), used.end(), [&](const Block& other) { return block.overlaps(other); }))
      refuse(" overlaps other memory");
    used[1 + i] = block;
    images[i] = std::make_unique<orva_image>(job.plane.width, job.plane.height, target.pixels);
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

void orva_decoder::run(const Job& job, DecodedImages& images) {
  prepareMerge(job);
  prepareBias(job);
  unpacked_images_t wanted{};
  const auto want = [&](unsigned int plane, unsigned short*& pixels, unsigned long& capacity, bool& request) {
    const std::unique_ptr<orva_image>& image = images[placeOf(plane)];
    if (image == nullptr) return;
    pixels = image->as<unsigned short>();
    capacity = sizeof *pixels * image->pixelCount();
    request = true;
  };
  want(job.isPair() ? ORVA_PLANE_LOW : ORVA_PLANE_IMAGE, wanted.pLowImage, wanted.ulLowImageSize,
       wanted.bLowImageRequest);
  want(ORVA_PLANE_HIGH, wanted.pHighImage, wanted.ulHighImageSize, wanted.bHighImageRequest);
  want(ORVA_PLANE_MERGED, wanted.pMergedImage, wanted.ulMergedImageSize, wanted.bMergedImageRequest);
  runMachinery(job, wanted);
  if (!job.isPair() && m_biasLow != nullptr)
    orvacam::kernels::active().subtractBias(images[placeOf(ORVA_PLANE_IMAGE)]->as<std::uint16_t>(),
                                            m_biasLow->as<std::uint16_t>() + job.biasRow * job.plane.width,
                                            job.pixels());
}

/// The frame was looked at: what fails now is memory. The machinery starts anew after it.
void orva_decoder::runMachinery(const Job& job, unpacked_images_t& wanted) {
  const unsigned int device = job.frame.values().device();
  if (m_machine == nullptr || m_machineDevice != device) {
    m_machine.reset();
    m_machine.reset(CFrameFactory::Create(static_cast<ORVADEVICETYPE>(device)));
    m_machineDevice = device;
  }
  // The machinery writes to no pixel of the source.
  auto* const source = const_cast<unsigned char*>(job.frame.bytes);
  const bool decoded =
      m_machine != nullptr &&
      m_machine->Initialize(job.frame.values(), source, job.frame.length, m_merge.get()) >= 0 &&
      m_machine->Merge(&wanted) >= 0;
  if (decoded) return;
  m_machine.reset();
  throw std::bad_alloc();
}

void orva_decoder::finish(const Job& job, const orva_request& request, DecodedImages& images) {
  const bool histograms = (request.flags & ORVA_HISTOGRAMS) != 0;
  const bool statistics = histograms || (request.flags & ORVA_STATISTICS) != 0;
  if (statistics && m_counter == nullptr) m_counter = std::make_unique<PlaneCounter>();
  for (std::size_t i = 0; i < images.size(); ++i) {
    orva_image* const image = images[i].get();
    if (image == nullptr) continue;
    image->header = Held<const orva_header>(new orva_header(job.frame.header, PlaneRole{planeNames[i].bit}));
    if (statistics) image->statistics = m_counter->count(image->as<std::uint16_t>(), job.plane, histograms);
  }
}

namespace {

/// Whether the caller's record, by its size, reaches as far as this image.
bool holds(const orva_decoded& record, orva_image* orva_decoded::*image) {
  const auto* const begin = reinterpret_cast<const char*>(&record);
  const auto* const end = reinterpret_cast<const char*>(&(record.*image) + 1);
  return record.size >= static_cast<std::size_t>(end - begin);
}

}  // namespace

// ---- The C interface

extern "C" {

orva_status orva_decoder_create(orva_decoder** out) {
  return handOut(out, [&] { return new orva_decoder; });
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
    orva_request wanted{};
    wanted.planes = imagePlane | mergedPlanes;
    if (request != nullptr) wanted = taken(request, "the request");
    orva_decoder& d = required(decoder, "the decoder");
    const orva_frame& f = required(frame, "the frame");
    DecodedImages images = withFrame(f, [&] { return d.decode(f, wanted); });
    orva_decoded planes{};
    for (std::size_t i = 0; i < images.size(); ++i)
      if (holds(*decoded, planeNames[i].image)) planes.*planeNames[i].image = images[i].release();
    give(decoded, planes, "the planes");
  });
}

void orva_decoded_free(orva_decoded* decoded) {
  if (decoded == nullptr) return;
  for (const auto& plane : planeNames)
    if (holds(*decoded, plane.image)) orva_image_free(std::exchange(decoded->*plane.image, nullptr));
}
}
