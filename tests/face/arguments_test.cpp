// The C interface: null arguments, sizes of records, statuses.

#include <orvacam_c.h>

#include <cstring>
#include <thread>

#include "face/FaceTesting.h"
#include "support/Contains.h"

using namespace face_testing;

namespace {

constexpr int badArgument = -ORVA_BAD_ARGUMENT;

/// One of each handle.
class FaceArguments : public testing::Test {
 protected:
  FaceArguments() : bytes(simulate(fieldsOf("GSense400Hdr")).bytes) {
    EXPECT_EQ(orva_frame_copy(bytes.data(), bytes.size(), &frame), 0);
    header = orva_frame_header(frame);
    EXPECT_EQ(orva_decoder_create(&decoder), 0);
    EXPECT_EQ(orva_decoder_decode(decoder, frame, nullptr, &planes), 0);
    EXPECT_EQ(orva_stack_create(ORVA_STACK_MEAN, &stack), 0);
  }
  ~FaceArguments() override {
    orva_stack_free(stack);
    orva_decoded_free(&planes);
    orva_decoder_free(decoder);
    orva_frame_free(frame);
  }

  Bytes bytes;
  orva_frame* frame = nullptr;
  const orva_header* header = nullptr;
  orva_decoder* decoder = nullptr;
  orva_decoded planes{sizeof(orva_decoded), nullptr, nullptr, nullptr, nullptr};
  orva_stack* stack = nullptr;
};

template <typename Record>
Record sized() {
  Record record{};
  record.size = sizeof record;
  return record;
}

}  // namespace

TEST_F(FaceArguments, NullIsAnswered) {
  orva_header* header_out = nullptr;
  orva_frame* frame_out = nullptr;
  orva_image* image_out = nullptr;
  orva_stack* stack_out = nullptr;
  const orva_header* borrowed = nullptr;
  const void* data = nullptr;
  std::size_t size = 0;
  double number = 0;
  auto info = sized<orva_header_info>();
  auto geometry = sized<orva_geometry>();
  auto image_info = sized<orva_image_info>();
  auto statistics = sized<orva_statistics>();
  auto finding = sized<orva_finding>();
  auto merge = sized<orva_merge_info>();
  auto decoded = sized<orva_decoded>();
  const auto refused = [](const std::vector<orva_status>& statuses) {
    for (std::size_t i = 0; i < statuses.size(); ++i)
      EXPECT_EQ(statuses[i], badArgument) << "call " << i;
  };
  refused({orva_header_parse(bytes.data(), bytes.size(), nullptr), orva_header_parse(nullptr, 1, &header_out),
           orva_header_read(nullptr, &header_out), orva_header_read("x", nullptr),
           orva_header_get_info(nullptr, &info), orva_header_get_info(header, nullptr),
           orva_header_get_geometry(nullptr, &geometry), orva_header_get_geometry(header, nullptr),
           orva_header_get_number(nullptr, "HDRMode", &number),
           orva_header_get_number(header, nullptr, &number)});
  refused({orva_header_get_number(header, "HDRMode", nullptr),
           orva_header_get_text(nullptr, "HDRMode", nullptr, 0, &size),
           orva_header_get_text(header, nullptr, nullptr, 0, &size),
           orva_header_get_text(header, "HDRMode", nullptr, 5, &size),
           orva_header_to_text(nullptr, nullptr, 0, &size), orva_header_to_json(nullptr, nullptr, 0, &size),
           orva_header_get_bytes(nullptr, &data, &size), orva_header_get_bytes(header, nullptr, &size),
           orva_header_get_bytes(header, &data, nullptr),
           orva_header_of_plane(nullptr, ORVA_PLANE_LOW, &header_out)});
  refused({orva_header_of_plane(header, ORVA_PLANE_LOW, nullptr)});
  refused({orva_image_copy(ORVA_PIXEL_U16, 1, 1, nullptr, &image_out),
           orva_image_copy(ORVA_PIXEL_U16, 1, 1, "ab", nullptr), orva_image_copy(9, 1, 1, "ab", &image_out),
           orva_image_get_info(nullptr, &image_info), orva_image_get_info(planes.low, nullptr),
           orva_image_get_header(nullptr, &borrowed), orva_image_get_header(planes.low, nullptr),
           orva_image_get_statistics(nullptr, &statistics),
           orva_image_get_statistics(planes.low, &statistics)});
  refused({orva_frame_read(nullptr, &frame_out), orva_frame_read("x", nullptr),
           orva_frame_copy(nullptr, 1, &frame_out), orva_frame_copy(bytes.data(), bytes.size(), nullptr),
           orva_frame_view(nullptr, 1, &frame_out), orva_frame_view(bytes.data(), bytes.size(), nullptr),
           orva_frame_get_bytes(nullptr, &data, &size), orva_frame_get_bytes(frame, nullptr, &size),
           orva_frame_get_bytes(frame, &data, nullptr), orva_frame_finding_count(nullptr, &size)});
  refused({orva_frame_finding_count(frame, nullptr), orva_frame_get_finding(nullptr, 0, &finding),
           orva_frame_get_finding(frame, 0, &finding), orva_frame_cut(nullptr, 0, 0, 2, 2, &frame_out),
           orva_frame_cut(frame, 0, 0, 2, 2, nullptr)});
  refused({orva_decoder_create(nullptr), orva_decoder_set_dsnu(nullptr, "x"),
           orva_decoder_set_prnu(nullptr, "x"), orva_decoder_set_bias(nullptr, nullptr, nullptr),
           orva_decoder_set_thresholds(nullptr, 1, 1), orva_decoder_set_calibration(nullptr, nullptr, 0),
           orva_decoder_get_merge_info(nullptr, header, &merge),
           orva_decoder_get_merge_info(decoder, nullptr, &merge),
           orva_decoder_get_merge_info(decoder, header, nullptr),
           orva_decoder_decode(nullptr, frame, nullptr, &decoded)});
  refused({orva_decoder_decode(decoder, nullptr, nullptr, &decoded),
           orva_decoder_decode(decoder, frame, nullptr, nullptr)});
  refused({orva_convert_file(nullptr, ORVA_FILE_FITS, nullptr, nullptr, "a.fit"),
           orva_convert_file("a", ORVA_FILE_FITS, nullptr, nullptr, nullptr),
           orva_gains(nullptr, 0, nullptr, 0, nullptr, 0, &size),
           orva_gains("GSENSE400", 0, nullptr, 0, nullptr, 0, nullptr),
           orva_gains("GSENSE400", 0, nullptr, 0, nullptr, 3, &size)});
  refused({orva_stack_create(ORVA_STACK_MEAN, nullptr), orva_stack_set_plane(nullptr, "low"),
           orva_stack_set_decoder(stack, nullptr), orva_stack_allow_unlike(nullptr, 1),
           orva_stack_add(nullptr, frame), orva_stack_add(stack, nullptr),
           orva_stack_sums(nullptr, &image_out), orva_stack_sums(stack, nullptr),
           orva_stack_squares(nullptr, &image_out), orva_stack_get_header(nullptr, &borrowed)});
  refused({orva_stack_get_header(stack, nullptr),
           orva_stack_from_sums(nullptr, 1, planes.low, planes.low, &stack_out),
           orva_stack_from_sums(header, 1, nullptr, planes.low, &stack_out),
           orva_stack_from_sums(header, 1, planes.low, nullptr, &stack_out),
           orva_stack_from_sums(header, 1, planes.low, planes.low, &stack_out),
           orva_stack_from_sums(header, 1, planes.low, planes.low, nullptr), orva_stack_merge(nullptr, stack),
           orva_stack_merge(stack, nullptr), orva_stack_result(nullptr, &image_out),
           orva_stack_result(stack, nullptr)});
  refused({orva_stack_result_u16(nullptr, &image_out), orva_stack_result_u16(stack, nullptr)});
  EXPECT_EQ(orva_last_error()->kind, ORVA_BAD_ARGUMENT);
  EXPECT_TRUE(contains(orva_last_error()->text, "is null"));
  EXPECT_EQ(header_out, nullptr);
  EXPECT_EQ(frame_out, nullptr);
  EXPECT_EQ(image_out, nullptr);
  EXPECT_EQ(stack_out, nullptr);
}

TEST_F(FaceArguments, NullIsFreedSharedAndCounted) {
  orva_header_free(nullptr);
  orva_image_free(nullptr);
  orva_frame_free(nullptr);
  orva_decoder_free(nullptr);
  orva_stack_free(nullptr);
  orva_decoded_free(nullptr);
  EXPECT_EQ(orva_header_share(nullptr), nullptr);
  EXPECT_EQ(orva_image_share(nullptr), nullptr);
  EXPECT_EQ(orva_frame_share(nullptr), nullptr);
  EXPECT_EQ(orva_frame_header(nullptr), nullptr);
  EXPECT_EQ(orva_frame_planes(nullptr), 0u);
  EXPECT_EQ(orva_stack_count(nullptr), 0u);
  EXPECT_EQ(orva_key_at(93), nullptr);
  EXPECT_EQ(orva_sensor_name(10), nullptr);
  EXPECT_EQ(orva_finding_kind_at(orva_finding_kind_count()), nullptr);
  EXPECT_STREQ(orva_reason_name(10), "");
  EXPECT_STREQ(orva_reason_name(-1), "");
}

TEST_F(FaceArguments, SharedHandlesLiveOnTheirOwn) {
  orva_header* shared = orva_header_share(header);
  orva_image* image = orva_image_share(planes.low);
  orva_frame* other = orva_frame_share(frame);
  orva_frame_free(frame);
  frame = other;
  orva_decoded_free(&planes);
  auto info = sized<orva_header_info>();
  EXPECT_EQ(orva_header_get_info(shared, &info), 0);
  EXPECT_STREQ(info.sensor, "GSENSE400");
  auto size = sized<orva_image_info>();
  EXPECT_EQ(orva_image_get_info(image, &size), 0);
  EXPECT_EQ(size.width, 24u);
  orva_header_free(shared);
  orva_image_free(image);
}

TEST_F(FaceArguments, RecordsAreFilledAsFarAsTheyGo) {
  struct {
    orva_header_info info;
    unsigned char beyond[64];
  } old;
  std::memset(&old, 0xAB, sizeof old);
  old.info.size = offsetof(orva_header_info, sensor);
  ASSERT_EQ(orva_header_get_info(header, &old.info), 0);
  EXPECT_EQ(old.info.version, 3u);
  EXPECT_EQ(old.info.hdr, 1);
  EXPECT_EQ(old.info.size, offsetof(orva_header_info, sensor));
  const auto* const rest = reinterpret_cast<const unsigned char*>(&old) + offsetof(orva_header_info, sensor);
  for (std::size_t i = 0; i < sizeof old - offsetof(orva_header_info, sensor); ++i)
    ASSERT_EQ(rest[i], 0xAB);
  // A record of a later version.
  struct {
    orva_geometry geometry;
    unsigned char beyond[64];
  } later;
  std::memset(&later, 0xCD, sizeof later);
  later.geometry.size = sizeof later;
  ASSERT_EQ(orva_header_get_geometry(header, &later.geometry), 0);
  EXPECT_EQ(later.geometry.size, sizeof later);
  EXPECT_EQ(later.geometry.width, 24u);
  EXPECT_EQ(later.beyond[0], 0xCD);
}

TEST_F(FaceArguments, PlanesBeyondARecordOfTheCallersAreNeitherGivenNorFreed) {
  orva_decoded decoded{};
  std::memset(static_cast<void*>(&decoded), 0xAB, sizeof decoded);
  decoded.size = offsetof(orva_decoded, merged);  // low and high alone
  ASSERT_EQ(orva_decoder_decode(decoder, frame, nullptr, &decoded), 0);
  auto info = sized<orva_image_info>();
  EXPECT_EQ(orva_image_get_info(decoded.high, &info), 0);
  orva_decoded_free(&decoded);
  EXPECT_EQ(decoded.low, nullptr);
  EXPECT_EQ(decoded.high, nullptr);
  const auto* const rest = reinterpret_cast<const unsigned char*>(&decoded.merged);
  for (std::size_t i = 0; i < sizeof decoded - offsetof(orva_decoded, merged); ++i)
    ASSERT_EQ(rest[i], 0xAB);
}

TEST_F(FaceArguments, RecordsWithoutASizeAreRefused) {
  orva_header_info info{};
  EXPECT_EQ(orva_header_get_info(header, &info), badArgument);
  EXPECT_TRUE(contains(orva_last_error()->text, "does not state its size"));
  orva_request request{};
  auto decoded = sized<orva_decoded>();
  EXPECT_EQ(orva_decoder_decode(decoder, frame, &request, &decoded), badArgument);
  orva_decoded none{};
  EXPECT_EQ(orva_decoder_decode(decoder, frame, nullptr, &none), badArgument);
}

TEST_F(FaceArguments, RequestsOfEarlierVersionsAskForWhatTheyKnow) {
  auto request = sized<orva_request>();
  request.size = offsetof(orva_request, flags);
  request.planes = ORVA_PLANE_HIGH;
  request.flags = ORVA_STATISTICS;  // beyond what its size says
  auto decoded = sized<orva_decoded>();
  ASSERT_EQ(orva_decoder_decode(decoder, frame, &request, &decoded), 0);
  EXPECT_EQ(decoded.low, nullptr);
  ASSERT_NE(decoded.high, nullptr);
  auto statistics = sized<orva_statistics>();
  EXPECT_EQ(orva_image_get_statistics(decoded.high, &statistics), badArgument);
  orva_decoded_free(&decoded);
}

TEST_F(FaceArguments, PlanesAreNullAfterAFailure) {
  auto decoded = sized<orva_decoded>();
  decoded.low = planes.low;
  orva_frame* cut = nullptr;
  ASSERT_EQ(orva_frame_view(bytes.data(), bytes.size() - 1, &cut), 0);
  EXPECT_EQ(orva_decoder_decode(decoder, cut, nullptr, &decoded), -ORVA_TRUNCATED);
  EXPECT_EQ(decoded.low, nullptr);
  EXPECT_EQ(orva_last_error()->needed, bytes.size());
  orva_frame_free(cut);
}

TEST_F(FaceArguments, TextsAreCutWithTheirLengthTold) {
  char text[4] = {'x', 'x', 'x', 'x'};
  std::size_t length = 0;
  EXPECT_EQ(orva_header_get_text(header, "CameraModel", text, sizeof text, &length), 0);
  EXPECT_STREQ(text, "VES");
  EXPECT_EQ(length, std::strlen("VESTRA VS400"));
  EXPECT_EQ(orva_header_get_text(header, "CameraModel", nullptr, 0, nullptr), 0);
}

TEST_F(FaceArguments, GainsAreFilledAsFarAsThereIsRoom) {
  orva_gain gains[3] = {sized<orva_gain>(), sized<orva_gain>(), sized<orva_gain>()};
  gains[2].index = 77;
  std::size_t count = 0;
  EXPECT_EQ(orva_gains("GSENSE400", 0, nullptr, 0, gains, 2, &count), 0);
  EXPECT_EQ(count, 8u);
  EXPECT_EQ(gains[1].index, 1u);
  EXPECT_EQ(gains[2].index, 77u);
}

TEST_F(FaceArguments, ReasonsAreThoseOfTheThread) {
  EXPECT_EQ(orva_decoder_set_thresholds(decoder, 99999, 1), badArgument);
  std::thread([] { EXPECT_EQ(orva_last_error()->kind, 0); }).join();
  EXPECT_EQ(orva_last_error()->kind, ORVA_BAD_ARGUMENT);
  EXPECT_EQ(orva_decoder_set_thresholds(decoder, 1, 1), 0);
  EXPECT_EQ(orva_last_error()->kind, ORVA_BAD_ARGUMENT);  // untouched by success
}

TEST_F(FaceArguments, ImagesSayWhatTheyCarry) {
  auto info = sized<orva_image_info>();
  ASSERT_EQ(orva_image_get_info(planes.low, &info), 0);
  EXPECT_EQ(info.has_header, 1);
  EXPECT_EQ(info.has_statistics, 0);
  orva_image* copy = nullptr;
  ASSERT_EQ(orva_image_copy(ORVA_PIXEL_U16, 1, 1, "ab", &copy), 0);
  ASSERT_EQ(orva_image_get_info(copy, &info), 0);
  EXPECT_EQ(info.has_header, 0);
  orva_image_free(copy);
}

TEST_F(FaceArguments, AStackTakesItsDecoderAlsoWhenItRefusesIt) {
  orva_decoder* given = nullptr;
  ASSERT_EQ(orva_decoder_create(&given), 0);
  EXPECT_EQ(orva_stack_set_decoder(nullptr, given), badArgument);  // freed: a leak would show
}
