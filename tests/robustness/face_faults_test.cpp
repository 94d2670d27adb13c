// Each call that the face makes fails in turn: the kind says so, nothing leaks, and the same decoder decodes
// the next frame right.

#include <orvacam_c.h>

#include <cstring>
#include <functional>
#include <vector>

#include "robustness/FaultTesting.h"
#include "robustness/Frames.h"

namespace {

using namespace fault_testing;
using faults::Call;
using robustness::fieldsOf;
using robustness::frameOf;
using robustness::modeNamed;
using robustness::referenceOf;

using Work = std::function<orva_status()>;

bool isMemory(Call call) {
  return call == Call::Malloc || call == Call::Calloc || call == Call::Realloc || call == Call::New;
}

/// What the planes of a frame are, decoded by this decoder; empty where that fails.
std::vector<Bytes> planesOf(orva_decoder* decoder, const orva_frame* frame) {
  orva_decoded decoded{sizeof(orva_decoded), nullptr, nullptr, nullptr, nullptr};
  std::vector<Bytes> planes;
  if (orva_decoder_decode(decoder, frame, nullptr, &decoded) != 0) return planes;
  for (const orva_image* image : {decoded.low, decoded.high, decoded.merged, decoded.image}) {
    orva_image_info info{};
    info.size = sizeof info;
    if (image == nullptr || orva_image_get_info(image, &info) != 0) continue;
    const auto* const pixels = static_cast<const unsigned char*>(info.pixels);
    planes.emplace_back(pixels, pixels + std::size_t{2} * info.width * info.height);
  }
  orva_decoded_free(&decoded);
  return planes;
}

/// Lets call after call of the work fail, until none does.
void expectKinds(const Work& work, const std::function<void()>& after) {
  ASSERT_EQ(work(), 0);
  after();
  for (const faults::Extent extent : {faults::Extent::Once, faults::Extent::FromThenOn})
    for (long number = 0;; ++number) {
      Call first = Call::None;
      orva_status status = 0;
      {
        const faults::Failing failing(number, extent);
        status = work();
        first = faults::Failing::first();
      }
      after();
      if (first == Call::None) {
        EXPECT_EQ(status, 0);
        break;
      }
      ASSERT_LT(number, 100000);
      if (status == 0) continue;  // a call that nothing depends on, as closing what was read
      const int kind = orva_last_error()->kind;
      EXPECT_EQ(status, -kind);
      if (isMemory(first))
        EXPECT_EQ(kind, ORVA_OUT_OF_MEMORY)
            << faults::nameOf(first) << " " << number << ": " << orva_last_error()->text;
      else
        EXPECT_TRUE(kind == ORVA_IO || kind == ORVA_OUT_OF_MEMORY)
            << faults::nameOf(first) << " " << number << ": " << orva_last_error()->text;
    }
}

/// A frame and a decoder that are made before anything fails.
class FaceFaults : public testing::TestWithParam<const char*> {
 protected:
  FaceFaults() : m_bytes(frameOf(fieldsOf(modeNamed(GetParam())))) {
    EXPECT_EQ(orva_frame_view(m_bytes.data(), m_bytes.size(), &m_frame), 0);
    EXPECT_EQ(orva_decoder_create(&m_decoder), 0);
    m_expected = planesOf(m_decoder, m_frame);
    EXPECT_FALSE(m_expected.empty());
  }
  ~FaceFaults() override {
    orva_decoder_free(m_decoder);
    orva_frame_free(m_frame);
  }

  Bytes m_bytes;
  orva_frame* m_frame = nullptr;
  orva_decoder* m_decoder = nullptr;
  std::vector<Bytes> m_expected;
};

INSTANTIATE_TEST_SUITE_P(Frames, FaceFaults,
                         testing::Values("GSense400Hdr", "GSense2020Hdr", "GSense4040Single", "GSense6060Hdr",
                                         "Imx183"));

}  // namespace

TEST_P(FaceFaults, OfDecodingLeaveTheDecoderAsGoodAsNew) {
  orva_request request{};
  request.size = sizeof request;
  request.planes = ORVA_PLANE_LOW | ORVA_PLANE_HIGH | ORVA_PLANE_MERGED | ORVA_PLANE_IMAGE;
  request.flags = ORVA_HISTOGRAMS;
  orva_decoded decoded{sizeof(orva_decoded), nullptr, nullptr, nullptr, nullptr};
  orva_decoder* fresh = nullptr;
  expectKinds(
      [&] {
        const orva_status made = orva_decoder_create(&fresh);
        if (made != 0) return made;
        const orva_status first = orva_decoder_decode(fresh, m_frame, &request, &decoded);
        if (first != 0) return first;
        orva_decoded_free(&decoded);
        return orva_decoder_decode(m_decoder, m_frame, &request, &decoded);
      },
      [&] {
        orva_decoded_free(&decoded);
        EXPECT_EQ(planesOf(m_decoder, m_frame), m_expected);
        if (fresh != nullptr) EXPECT_EQ(planesOf(fresh, m_frame), m_expected);
        orva_decoder_free(fresh);
        fresh = nullptr;
      });
}

TEST_P(FaceFaults, OfReadingAreTold) {
  const std::string path = (commonFolder().path() / (std::string("face_") + GetParam() + ".raw")).string();
  commonFile(std::string("face_") + GetParam() + ".raw", m_bytes);
  orva_frame* frame = nullptr;
  orva_header* header = nullptr;
  std::size_t count = 0;
  std::size_t length = 0;
  expectKinds(
      [&] {
        orva_status status = orva_frame_read(path.c_str(), &frame);
        if (status == 0) status = orva_frame_finding_count(frame, &count);
        if (status == 0) status = orva_header_read(path.c_str(), &header);
        if (status == 0) status = orva_header_to_json(header, nullptr, 0, &length);
        if (status == 0) status = orva_header_to_text(header, nullptr, 0, &length);
        return status;
      },
      [&] {
        orva_frame_free(frame);
        orva_header_free(header);
        frame = nullptr;
        header = nullptr;
      });
  EXPECT_EQ(faults::openDescriptors(), faults::openDescriptors());
}

TEST_P(FaceFaults, OfStacksLeaveThemAsBefore) {
  orva_stack* stack = nullptr;
  ASSERT_EQ(orva_stack_create(ORVA_STACK_MEAN, &stack), 0);
  ASSERT_EQ(orva_stack_add(stack, m_frame), 0);
  orva_stack* fresh = nullptr;
  orva_image* mean = nullptr;
  std::uint64_t before = 1;
  expectKinds(
      [&] {
        before = orva_stack_count(stack);
        orva_status status = orva_stack_create(ORVA_STACK_MEAN, &fresh);
        if (status == 0) status = orva_stack_add(fresh, m_frame);
        if (status == 0) status = orva_stack_result_u16(fresh, &mean);
        if (status == 0) status = orva_stack_add(stack, m_frame);
        EXPECT_EQ(orva_stack_count(stack), before + (status == 0 ? 1 : 0));
        return status;
      },
      [&] {
        orva_stack_free(fresh);
        orva_image_free(mean);
        fresh = nullptr;
        mean = nullptr;
      });
  // Every frame is the same: so is their mean.
  ASSERT_EQ(orva_stack_result_u16(stack, &mean), 0);
  orva_image_info info{};
  info.size = sizeof info;
  ASSERT_EQ(orva_image_get_info(mean, &info), 0);
  const Bytes& expected = m_expected.back();
  EXPECT_EQ(std::memcmp(info.pixels, expected.data(), expected.size()), 0);
  orva_image_free(mean);
  orva_stack_free(stack);
}

TEST_P(FaceFaults, LeakNothing) {
  // The thread's last reason keeps its texts.
  constexpr std::size_t reasonTexts = 2;
  const faults::MemoryWatch watch;
  for (const long number : {0L, 1L, 2L, 3L, 5L, 8L, 13L, 21L, 34L, 55L, 89L, 144L, 233L}) {
    orva_frame* frame = nullptr;
    orva_decoder* decoder = nullptr;
    orva_decoded decoded{sizeof(orva_decoded), nullptr, nullptr, nullptr, nullptr};
    {
      const faults::Failing failing(number, faults::Extent::FromThenOn);
      if (orva_frame_copy(m_bytes.data(), m_bytes.size(), &frame) == 0 && orva_decoder_create(&decoder) == 0)
        orva_decoder_decode(decoder, frame, nullptr, &decoded);
    }
    orva_decoded_free(&decoded);
    orva_decoder_free(decoder);
    orva_frame_free(frame);
  }
  EXPECT_LE(watch.blocks(), reasonTexts);
}

TEST_P(FaceFaults, OfCorrectionsLeaveTheEarlierOnes) {
  const auto fields = fieldsOf(modeNamed(GetParam()));
  if (!fields.hdr) return;
  Bytes terms = referenceOf(fields.frameWidth(), fields.frameHeight(), 8, 16);
  // The terms' header names the frame's camera.
  std::memcpy(terms.data() + 8, m_bytes.data() + 8, 40);
  const std::string name = std::string("face_") + GetParam() + ".ref";
  commonFile(name, terms);
  const std::string path = (commonFolder().path() / name).string();
  expectKinds(
      [&] {
        const orva_status set = orva_decoder_set_dsnu(m_decoder, path.c_str());
        if (set != 0) return set;
        orva_decoded decoded{sizeof(orva_decoded), nullptr, nullptr, nullptr, nullptr};
        const orva_status status = orva_decoder_decode(m_decoder, m_frame, nullptr, &decoded);
        orva_decoded_free(&decoded);
        return status;
      },
      [&] {
        EXPECT_EQ(orva_decoder_set_dsnu(m_decoder, nullptr), 0);
        EXPECT_EQ(planesOf(m_decoder, m_frame), m_expected);
      });
}
