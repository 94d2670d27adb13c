// Each call that frames, merges and the stacker make fails in turn.

#include <orvacam.h>

#include <cstdlib>

#include "TestFolder.h"
#include "merge/HandedOut.h"
#include "robustness/FaultTesting.h"
#include "robustness/Frames.h"

namespace {

using namespace fault_testing;
using robustness::families;
using robustness::fieldsOf;
using robustness::frameOf;
using robustness::Mode;
using robustness::modeNamed;
using robustness::referenceOf;

constexpr unsigned int width = 6, height = 4, pixels = width * height;

std::vector<unsigned short> planeFrom(unsigned int first) {
  std::vector<unsigned short> values(pixels);
  for (unsigned int i = 0; i < pixels; ++i)
    values[i] = static_cast<unsigned short>(first + 7 * i);
  return values;
}

// ---- Frames

/// A frame object that is initialized and merged again and again.
class FrameObject : public Operation {
 public:
  FrameObject(const Mode& family, bool fromFile, bool planesAskedFor)
      : m_fromFile(fromFile), m_bytes(frameOf(fieldsOf(family))), m_planesAskedFor(planesAskedFor) {
    Bytes copy = m_bytes;
    m_header.Parse(copy.data(), static_cast<unsigned int>(copy.size()));
    const std::string name = std::string(family.name) + ".raw";
    commonFile(name, m_bytes);
    m_file = std::fopen(commonFolder().file(name).c_str(), "rb");
    m_frame.reset(CFrameFactory::Create(m_header));
    m_merge.SetMetaData(m_header);
    unsigned int frameWidth = 0, frameHeight = 0;
    m_header.GetFrameDimensions(frameWidth, frameHeight);
    m_merge.CreateIdentityFrames(frameWidth, frameHeight, 6.25, 1.0, nullptr);
    m_bias.assign(frameWidth * frameHeight, 1);
    m_merge.SetBiasFrames(frameWidth, frameHeight, m_bias.data(), m_bias.data());
  }
  FrameObject(const FrameObject&) = delete;
  FrameObject& operator=(const FrameObject&) = delete;
  ~FrameObject() override {
    giveBack();
    std::fclose(m_file);
  }

  int run() override {
    int status = m_fromFile ? m_frame->Initialize(m_header, m_file, &m_merge)
                            : m_frame->Initialize(m_header, m_bytes.data(), m_bytes.size(), &m_merge);
    if (status < 0) return status;
    m_images.bMetaDataRequest = true;
    m_images.bLowImageRequest = m_images.bHighImageRequest = m_images.bMergedImageRequest = m_planesAskedFor;
    m_frame->EnableMergeStatistics(true);
    status = m_frame->Merge(&m_images);
    if (status >= 0) status = m_frame->GetProcessedMergedMetaData(m_images.pMergedMetaData, 384);
    m_frame->GetLowFrameStats(m_low);
    return status;
  }
  Bytes result() override {
    return Collected()
        .bytes(m_images.pLowImage, m_images.pLowImage != nullptr ? m_images.ulLowImageSize : 0)
        .bytes(m_images.pMergedImage, m_images.pMergedImage != nullptr ? m_images.ulMergedImageSize : 0)
        .bytes(m_images.pMergedMetaData, m_images.pMergedMetaData != nullptr ? 384 : 0)
        .value(m_low.dMean)
        .all();
  }
  void giveBack() override {
    for (void* buffer :
         {static_cast<void*>(m_images.pLowMetaData), static_cast<void*>(m_images.pLowImage),
          static_cast<void*>(m_images.pHighMetaData), static_cast<void*>(m_images.pHighImage),
          static_cast<void*>(m_images.pMergedMetaData), static_cast<void*>(m_images.pMergedImage)})
      std::free(buffer);
    m_images = unpacked_images_t{};
  }

 private:
  bool m_fromFile;
  Bytes m_bytes;
  bool m_planesAskedFor;
  std::FILE* m_file = nullptr;
  CFrameMetaData m_header;
  CHWMergeReferenceFrames m_merge;
  std::vector<unsigned short> m_bias;
  std::unique_ptr<IFrame> m_frame;
  unpacked_images_t m_images{};
  image_plane_stats_t m_low{};
};

std::unique_ptr<Operation> copyRegion() {
  struct State {
    Bytes bytes = frameOf(fieldsOf(modeNamed("GSense4040Hdr")));
    CFrameMetaData header;
    CFrameGSense4040 frame;
    Bytes region = Bytes(384 + 12);
  };
  const auto s = std::make_shared<State>();
  Bytes copy = s->bytes;
  s->header.Parse(copy.data(), static_cast<unsigned int>(copy.size()));
  return *Steps(
      [s] {
        if (s->frame.Initialize(s->header, s->bytes.data(), s->bytes.size(), nullptr) < 0) return -1;
        frame_roi_t roi{2, 1, 4, 1};
        return s->frame.CopyROIToBuffer(roi, s->region.data(), static_cast<unsigned int>(s->region.size()));
      },
      [s] { return s->region; });
}

std::unique_ptr<Operation> makeFrame(unsigned int device) {
  const auto frame = std::make_shared<std::unique_ptr<IFrame>>();
  return *Steps(
      [frame, device] {
        frame->reset(CFrameFactory::Create(device));
        return *frame != nullptr ? 0 : -1;
      },
      [frame] { return Collected().value(*frame != nullptr).all(); }, [frame] { frame->reset(); });
}

// ---- Merges

/// A merge with its terms, and planes to use them on.
struct Terms {
  CHWMergeReferenceFrames merge;
  std::vector<unsigned short> low = planeFrom(100), high = planeFrom(2000), merged;
  HandedOut handedOut;
  std::wstring dsnu = commonFile("dsnu", referenceOf(width, height, 8, 16));
  std::wstring prnu = commonFile("prnu", referenceOf(width, height, 2048, 1024));

  Terms() : merged(pixels) { merge.CreateIdentityFrames(width, height, nullptr); }

  /// What the terms make of the planes, and the terms themselves.
  Bytes result() {
    merge.MergeFrames(low.data(), high.data(), merged.data(), pixels);
    return Collected()
        .bytes(merged.data(), 2 * pixels)
        .bytes(handedOut.pAdditiveLow, handedOut.pAdditiveLow != nullptr ? 2 * pixels : 0)
        .bytes(handedOut.pMultiplicativeHigh, handedOut.pMultiplicativeHigh != nullptr ? 2 * pixels : 0)
        .all();
  }
};

/// Something that is done to the terms.
std::unique_ptr<Operation> terms(int (*action)(Terms&)) {
  const auto s = std::make_shared<Terms>();
  return *Steps([s, action] { return action(*s); }, [s] { return s->result(); },
                [s] { s->handedOut.clear(); });
}

CFrameMetaData headerOf(unsigned int frameWidth, unsigned int frameHeight) {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(frameWidth, frameHeight);
  header.SetBitsPerPixel(8);  // a small mapping array
  return header;
}

/// A merge of planes into a layout, with statistics.
template <typename Merge>
struct Merging {
  Merge merge;
  CMergeSettings settings;
  std::vector<unsigned short> low = planeFrom(1), high = planeFrom(3),
                              out = std::vector<unsigned short>(8000);

  explicit Merging(ORVA_IMAGE_FORMAT format) {
    merge.SetMetaData(headerOf(width, height));
    merge.SetMergeEnables({0, static_cast<unsigned int>(format), 0});
    merge.EnableStatistics(true);
    settings.Initialize({ORVA_DEVICE_GSENSE400, false}, nullptr);
    if constexpr (std::is_same_v<Merge, CMergeAlgoLegacy>)
      merge.SetMergeSettings(&settings);
    else
      merge.CreateIdentityFrames(width, height, nullptr);
  }
};

template <typename Merge>
std::unique_ptr<Operation> merging(ORVA_IMAGE_FORMAT format) {
  const auto s = std::make_shared<Merging<Merge>>(format);
  return *Steps(
      [s] {
        std::fill(s->out.begin(), s->out.end(), static_cast<unsigned short>(0));
        return s->merge.MergeFrames(s->low.data(), s->high.data(), s->out.data(), pixels);
      },
      [s] {
        image_plane_stats_t stats{};
        s->merge.GetMergedStats(stats);
        return Collected().bytes(s->out.data(), 2 * s->out.size()).value(stats.dMean).all();
      });
}

std::unique_ptr<Operation> copyMerge() {
  struct State {
    CHWMergeReferenceFrames from, to;
    std::vector<unsigned short> low = planeFrom(100), high = planeFrom(2000), merged = planeFrom(0);
  };
  const auto s = std::make_shared<State>();
  s->from.CreateIdentityFrames(width, height, 0.0, 0.0, 1.0, 1.0, 3u, 10u, 1.0, 1.0, nullptr);
  return *Steps(
      [s] {
        return withoutMemory([&] {
          const CHWMergeReferenceFrames copy(s->from);
          s->to = copy;
        });
      },
      [s] {
        s->to.MergeFrames(s->low.data(), s->high.data(), s->merged.data(), pixels);
        return Collected().bytes(s->merged.data(), 2 * pixels).all();
      });
}

// ---- The stacker

std::unique_ptr<Operation> stack() {
  struct State {
    CStacker stacker;
    const Bytes frame = frameOf(fieldsOf(modeNamed("GSense400Hdr")));
    Bytes base = frame, header;
    std::vector<unsigned short> low = planeFrom(1), high = planeFrom(50), means;
  };
  const auto s = std::make_shared<State>();
  s->means.reserve(2 * pixels);
  s->header.reserve(384);
  return *Steps(
      [s] {
        s->base.assign(s->frame.begin(), s->frame.end());  // the parser clears sign bits in what it reads
        s->means.clear();
        s->header.clear();
        if (s->stacker.Initialize(pixels) < 0) return -1;
        if (s->stacker.StackNextFrame(s->low.data(), s->high.data(), pixels) < 0) return -1;
        unsigned char* header = nullptr;
        unsigned int length = 0;
        if (s->stacker.GetStackedMetaData(s->base.data(), static_cast<unsigned int>(s->base.size()), &header,
                                          &length) < 0)
          return -1;
        s->header.assign(header, header + length);
        unsigned short *low = nullptr, *high = nullptr;
        unsigned int count = 0;
        if (s->stacker.Finish(&low, &high, &count) < 0) return -1;
        s->means.assign(low, low + count);
        s->means.insert(s->means.end(), high, high + count);
        return 0;
      },
      [s] { return Collected().bytes(s->header).bytes(s->means.data(), 2 * s->means.size()).all(); });
}

std::vector<Subject> mergeSubjects() {
  std::vector<Subject> all;
  const auto add = [&all](const std::string& name, auto make) { all.push_back({name, make}); };
  for (const Mode& family : families) {
    add(std::string("Frame_") + family.name,
        [&] { return std::make_unique<FrameObject>(family, false, true); });
  }
  for (const char* name : {"GSense400Hdr", "GSense2020Sixteen", "FourAmplifiers"})
    add(std::string("FrameFromFile_") + name,
        [name] { return std::make_unique<FrameObject>(modeNamed(name), true, false); });
  add("CopyROIToBuffer", copyRegion);
  for (const unsigned int device : {ORVA_DEVICE_GSENSE400, ORVA_DEVICE_GSENSE6060, ORVA_DEVICE_UNKNOWN})
    add("CreateFrame_" + std::to_string(device), [device] { return makeFrame(device); });

  add("CreateIdentityFrames", [] {
    return terms([](Terms& t) {
      return t.merge.CreateIdentityFrames(width, height, 1.0, 2.0, 3.0, 4.0, 3u, 10u, 0.5, 0.25,
                                          &t.handedOut);
    });
  });
  add("CreateReferenceFrames", [] {
    return terms([](Terms& t) {
      return t.merge.CreateReferenceFrames(t.dsnu.c_str(), t.prnu.c_str(), 2.0, 1.0, &t.handedOut);
    });
  });
  add("CreateReferenceFramesOfDsnuAlone", [] {
    return terms(
        [](Terms& t) { return t.merge.CreateReferenceFrames(t.dsnu.c_str(), nullptr, 2.0, 1.0, nullptr); });
  });
  add("SetFromBuffers", [] {
    return terms([](Terms& t) {
      const unsigned short* const values = t.low.data();
      const auto* const additive = reinterpret_cast<const short*>(t.high.data());
      int status = t.merge.SetAdditiveLowFromBuffer(additive, pixels);
      if (status == 0) status = t.merge.SetAdditiveHighFromBuffer(additive, pixels);
      if (status == 0) status = t.merge.SetMultiplicativeLowFromBuffer(values, pixels);
      return status == 0 ? t.merge.SetMultiplicativeHighFromBuffer(values, pixels) : status;
    });
  });
  add("TestMerge", [] {
    return terms(
        [](Terms& t) { return t.merge.MergeFrames(t.low.data(), t.high.data(), width, height, 0u); });
  });
  add("CopyMerge", copyMerge);
  for (const auto& [format, name] :
       {std::pair(ORVA_IMAGE_FORMAT_RAW, "Pixels"), std::pair(ORVA_IMAGE_FORMAT_TIFF, "Tiff"),
        std::pair(ORVA_IMAGE_FORMAT_FITS, "Fits")}) {
    add(std::string("MergeInto") + name,
        [format = format] { return merging<CHWMergeReferenceFrames>(format); });
    add(std::string("LegacyMergeInto") + name,
        [format = format] { return merging<CMergeAlgoLegacy>(format); });
  }
  add("Stack", stack);
  return all;
}

ORVACAM_FAIL_EVERY_CALL(MergeWithFaults, mergeSubjects());

}  // namespace
