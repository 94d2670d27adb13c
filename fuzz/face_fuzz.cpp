// The C interface: two bytes of options and four of a region, then a frame. What the findings say of it is
// what decoding does, its planes and its fixed files are those of the documented classes, and a region that
// is cut out of it is a frame with the region's pixels.

#include <orvacam.h>
#include <orvacam_c.h>

#include <memory>

#include "fuzz_support.h"
#include "output_folder.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

/// A status is good or has a reason, which is none of the library's own faults.
void requireReasoned(orva_status status) {
  FUZZ_REQUIRE(status <= 0 && status > -ORVA_INTERNAL);
  if (status == 0) return;
  const orva_error* const error = orva_last_error();
  FUZZ_REQUIRE(error->kind == -status && error->text[0] != '\0' && orva_reason_name(error->kind)[0] != '\0');
  FUZZ_REQUIRE(std::strchr(error->text, '\n') == nullptr);
}

/// A text that is copied out is the beginning of the whole one, whatever the room.
template <typename Copy>
void requireText(const Copy& copy) {
  std::size_t length = 0;
  const orva_status status = copy(nullptr, 0, &length);
  requireReasoned(status);
  if (status != 0) return;
  std::string whole(length + 1, 'x');
  FUZZ_REQUIRE(copy(whole.data(), whole.size(), nullptr) == 0 &&
               whole.size() == std::strlen(whole.c_str()) + 1);
  for (const std::size_t room : {std::size_t{1}, length / 2 + 1, length}) {
    if (room > length) continue;
    Bytes part(room);
    std::size_t said = 0;
    auto* const text = reinterpret_cast<char*>(part.data());
    FUZZ_REQUIRE(copy(text, room, &said) == 0 && said == length);
    if (room > 0) FUZZ_REQUIRE(std::strlen(text) == room - 1 && whole.compare(0, room - 1, text) == 0);
  }
}

void askHeader(const orva_header* header) {
  orva_header_info info{};
  info.size = sizeof info;
  FUZZ_REQUIRE(orva_header_get_info(header, &info) == 0 && info.sensor != nullptr && info.model != nullptr);
  orva_geometry geometry{};
  geometry.size = sizeof geometry;
  const orva_status status = orva_header_get_geometry(header, &geometry);
  requireReasoned(status);
  if (status == 0)
    FUZZ_REQUIRE(geometry.x + std::uint64_t{geometry.image_width} <= geometry.width &&
                 geometry.y + std::uint64_t{geometry.image_height} <= geometry.height);
  for (std::size_t i = 0; i < orva_key_count(); ++i) {
    const orva_key* const key = orva_key_at(i);
    double number = 0;
    const orva_status got = orva_header_get_number(header, key->name, &number);
    FUZZ_REQUIRE((got == 0) == (key->kind != ORVA_KEY_TEXT));
    requireText([&](char* text, std::size_t room, std::size_t* length) {
      return orva_header_get_text(header, key->name, text, room, length);
    });
  }
  requireText([&](char* text, std::size_t room, std::size_t* length) {
    return orva_header_to_text(header, text, room, length);
  });
  requireText([&](char* text, std::size_t room, std::size_t* length) {
    return orva_header_to_json(header, text, room, length);
  });
}

/// The reason of the first finding that is an error; 0 without one.
int firstError(const orva_frame* frame) {
  std::size_t count = 0;
  FUZZ_REQUIRE(orva_frame_finding_count(frame, &count) == 0 && count < 50);
  int reason = 0;
  bool others = false;
  for (std::size_t i = 0; i < count; ++i) {
    orva_finding finding{};
    finding.size = sizeof finding;
    FUZZ_REQUIRE(orva_frame_get_finding(frame, i, &finding) == 0);
    FUZZ_REQUIRE(finding.id[0] != '\0' && finding.text[0] != '\0');
    const bool error = finding.severity == ORVA_ERROR;
    FUZZ_REQUIRE(error == (finding.reason != 0) && !(error && others));  // errors first
    if (error && reason == 0) reason = finding.reason;
    others = others || !error;
  }
  return reason;
}

orva_image_info infoOf(const orva_image* image) {
  orva_image_info info{};
  info.size = sizeof info;
  FUZZ_REQUIRE(orva_image_get_info(image, &info) == 0);
  return info;
}

/// An image against the plane that the documented classes give.
void requirePlane(const orva_image* image, const unsigned short* plane, unsigned long pixels) {
  if (image == nullptr) return;
  const orva_image_info info = infoOf(image);
  FUZZ_REQUIRE(info.type == ORVA_PIXEL_U16 && std::uint64_t{info.width} * info.height == pixels);
  FUZZ_REQUIRE(pixels == 0 || std::memcmp(info.pixels, plane, 2 * pixels) == 0);
  const orva_header* header = nullptr;
  FUZZ_REQUIRE(orva_image_get_header(image, &header) == 0 && header != nullptr);
}

/// The same frame by CAlgo; it parses in the bytes, which are a copy.
void compareWithClasses(Bytes frame, const orva_decoded& decoded) {
  CFrameMetaData metaData;
  Bytes parsed = frame;
  // A capture time that cannot be read is a finding here, and a header that does not parse there.
  if (metaData.Parse(parsed.data(), fuzz::length(parsed)) < 0) return;
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          metaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  metaData.GetDeviceType(camera.uiDeviceType);
  const auto algo = std::make_unique<CAlgo>();
  algo->Initialize(camera, nullptr);
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  FUZZ_REQUIRE(algo->MergeImage(frame.data(), frame.size(), &images, nullptr) >= 0);
  requirePlane(decoded.image, images.pLowImage, images.ulLowImagePixels);
  requirePlane(decoded.low, images.pLowImage, images.ulLowImagePixels);
  requirePlane(decoded.high, images.pHighImage, images.ulHighImagePixels);
  // The classes merge nothing where identity frames are too small for rows from the start row on; the face
  // makes them large enough.
  if (metaData.Value(ORVA_META_KEY_IMAGE_START_ROW).GetValueUint() == 0)
    requirePlane(decoded.merged, images.pMergedImage, images.ulMergedImagePixels);
  algo->FreeFramePointers(&images);
}

/// Decodes into a target that is a pixel too small, which writes nothing, and into one that just fits.
void decodeIntoTarget(orva_decoder* decoder, const orva_frame* frame, std::uint64_t pixels) {
  for (const std::uint64_t room : {pixels - 1, pixels}) {
    fuzz::Pixels memory(room, 0x5A5A);
    orva_request request{};
    request.size = sizeof request;
    request.planes = ORVA_PLANE_LOW | ORVA_PLANE_IMAGE;
    request.low = request.image = {memory.data(), room};
    orva_decoded decoded{};
    decoded.size = sizeof decoded;
    const orva_status status = orva_decoder_decode(decoder, frame, &request, &decoded);
    if (room > 0) FUZZ_REQUIRE(status == (room == pixels ? 0 : -ORVA_BAD_ARGUMENT));
    if (room < pixels && room > 0) FUZZ_REQUIRE(memory == fuzz::Pixels(room, 0x5A5A));
    orva_decoded_free(&decoded);
  }
}

/// The same frame twice is the frame, by every method but the sum.
void stackTwice(const orva_frame* frame, const orva_image* plane, int method) {
  orva_stack* stack = nullptr;
  FUZZ_REQUIRE(orva_stack_create(method, &stack) == 0);
  FUZZ_REQUIRE(orva_stack_add(stack, frame) == 0 && orva_stack_add(stack, frame) == 0);
  FUZZ_REQUIRE(orva_stack_count(stack) == 2);
  orva_image* stacked = nullptr;
  FUZZ_REQUIRE(orva_stack_result_u16(stack, &stacked) == 0);
  const orva_image_info a = infoOf(stacked), b = infoOf(plane);
  const std::uint64_t pixels = std::uint64_t{a.width} * a.height;
  FUZZ_REQUIRE(a.width == b.width && a.height == b.height &&
               std::memcmp(a.pixels, b.pixels, 2 * pixels) == 0);
  orva_image_free(stacked);
  orva_stack_free(stack);
}

orva_decoded decodedBy(orva_decoder* decoder, const orva_frame* frame, orva_status* status) {
  orva_decoded decoded{};
  decoded.size = sizeof decoded;
  *status = orva_decoder_decode(decoder, frame, nullptr, &decoded);
  requireReasoned(*status);
  return decoded;
}

/// A plane less itself is 0.
void subtractFromItself(orva_decoder* decoder, const orva_frame* frame, const orva_decoded& planes) {
  const orva_image* const first = planes.image != nullptr ? planes.image : planes.low;
  FUZZ_REQUIRE(orva_decoder_set_bias(decoder, first, planes.high) == 0);
  orva_status status = 0;
  orva_decoded dark = decodedBy(decoder, frame, &status);
  FUZZ_REQUIRE(status == 0);
  const orva_image_info info = infoOf(dark.image != nullptr ? dark.image : dark.low);
  const auto* const pixels = static_cast<const std::uint16_t*>(info.pixels);
  for (std::uint64_t i = 0; i < std::uint64_t{info.width} * info.height; ++i)
    FUZZ_REQUIRE(pixels[i] == 0);
  orva_decoded_free(&dark);
  FUZZ_REQUIRE(orva_decoder_set_bias(decoder, nullptr, nullptr) == 0);
}

/// Any bytes as a calibration block; where they are one, frames decode with it.
void calibrate(orva_decoder* decoder, const orva_frame* frame, const Bytes& bytes) {
  const orva_status set = orva_decoder_set_calibration(decoder, bytes.data(), bytes.size());
  requireReasoned(set);
  orva_merge_info info{};
  info.size = sizeof info;
  FUZZ_REQUIRE(orva_decoder_get_merge_info(decoder, orva_frame_header(frame), &info) == 0);
  FUZZ_REQUIRE(info.gain_ratio >= 0 && info.gain_ratio < 64);
  orva_status status = 0;
  orva_decoded decoded = decodedBy(decoder, frame, &status);
  FUZZ_REQUIRE(status == 0);
  orva_decoded_free(&decoded);
}

/// With the frame's own header and bytes as both reference files, it is merged as the classes merge it.
void correct(orva_decoder* decoder, const orva_frame* frame, const Bytes& bytes) {
  orva_geometry geometry{};
  geometry.size = sizeof geometry;
  FUZZ_REQUIRE(orva_header_get_geometry(orva_frame_header(frame), &geometry) == 0);
  CFrameMetaData metaData;
  Bytes reference = bytes;
  if (metaData.Parse(reference.data(), fuzz::length(reference)) < 0) return;
  reference.resize(std::min<std::size_t>(metaData.GetBinarizeSize(), reference.size()));
  for (std::uint64_t i = 0; i < 4 * std::uint64_t{geometry.width} * geometry.height; ++i)
    reference.push_back(bytes[i % bytes.size()]);
  const fuzz::MemoryFile terms(reference), source(bytes);
  const std::wstring wide = terms.path();
  const std::string name(wide.begin(), wide.end());
  for (const auto set : {orva_decoder_set_dsnu, orva_decoder_set_prnu}) {
    const orva_status status = set(decoder, name.c_str());
    requireReasoned(status);
    if (status != 0) return;
  }
  orva_status status = 0;
  orva_decoded decoded = decodedBy(decoder, frame, &status);
  if (status == 0 && decoded.merged != nullptr) {
    gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                            metaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
    metaData.GetDeviceType(camera.uiDeviceType);
    const auto algo = std::make_unique<CAlgo>();
    algo->Initialize(camera, nullptr);
    unpacked_images_t images{};
    images.bMergedImageRequest = true;
    FUZZ_REQUIRE(algo->MergeFile(source.path().c_str(), &images, nullptr, wide.c_str(), wide.c_str()) >= 0);
    requirePlane(decoded.merged, images.pMergedImage, images.ulMergedImagePixels);
    algo->FreeFramePointers(&images);
  }
  orva_decoded_free(&decoded);
  FUZZ_REQUIRE(orva_decoder_set_dsnu(decoder, nullptr) == 0 && orva_decoder_set_prnu(decoder, nullptr) == 0);
}

/// A region, where the sensor's frames can be cut, is a frame that decodes.
void cutCorner(orva_decoder* decoder, const orva_frame* frame) {
  orva_frame* corner = nullptr;
  const orva_status status = orva_frame_cut(frame, 0, 0, 2, 1, &corner);
  requireReasoned(status);
  if (status != 0) return;
  orva_status decodable = 0;
  orva_decoded decoded = decodedBy(decoder, corner, &decodable);
  FUZZ_REQUIRE(decodable == 0);
  orva_decoded_free(&decoded);
  orva_frame_free(corner);
}

void decode(const orva_frame* frame, const Bytes& bytes, int expected, unsigned int flags) {
  orva_decoder* decoder = nullptr;
  FUZZ_REQUIRE(orva_decoder_create(&decoder) == 0);
  orva_request request{};
  request.size = sizeof request;
  request.planes = ORVA_PLANE_LOW | ORVA_PLANE_HIGH | ORVA_PLANE_MERGED | ORVA_PLANE_IMAGE;
  request.flags = flags;
  orva_decoded decoded{};
  decoded.size = sizeof decoded;
  const orva_status status = orva_decoder_decode(decoder, frame, &request, &decoded);
  requireReasoned(status);
  FUZZ_REQUIRE(status == -expected);
  const auto bit = [](const orva_image* image, orva_plane plane) {
    return image != nullptr ? unsigned{plane} : 0;
  };
  const unsigned int planes = bit(decoded.low, ORVA_PLANE_LOW) | bit(decoded.high, ORVA_PLANE_HIGH) |
                              bit(decoded.merged, ORVA_PLANE_MERGED) | bit(decoded.image, ORVA_PLANE_IMAGE);
  FUZZ_REQUIRE(planes == orva_frame_planes(frame));
  if (status == 0) {
    compareWithClasses(bytes, decoded);
    const orva_image* const first = decoded.image != nullptr ? decoded.image : decoded.low;
    const orva_image* const stacked = decoded.merged != nullptr ? decoded.merged : first;
    const orva_image_info info = infoOf(first);
    decodeIntoTarget(decoder, frame, std::uint64_t{info.width} * info.height);
    for (const int method : {ORVA_STACK_MEAN, ORVA_STACK_MINIMUM, ORVA_STACK_WINSORIZED})
      stackTwice(frame, stacked, method);
    subtractFromItself(decoder, frame, decoded);
    calibrate(decoder, frame, bytes);
    cutCorner(decoder, frame);
    correct(decoder, frame, bytes);
  }
  orva_decoded_free(&decoded);
  orva_decoder_free(decoder);
}

/// The low-gain plane, or the image; null where the frame does not decode. The caller's.
orva_image* planeOf(const orva_frame* frame) {
  orva_decoder* decoder = nullptr;
  FUZZ_REQUIRE(orva_decoder_create(&decoder) == 0);
  orva_request request{};
  request.size = sizeof request;
  request.planes = ORVA_PLANE_LOW | ORVA_PLANE_IMAGE;
  orva_decoded decoded{};
  decoded.size = sizeof decoded;
  orva_decoder_decode(decoder, frame, &request, &decoded);
  orva_decoder_free(decoder);
  return decoded.image != nullptr ? decoded.image : decoded.low;
}

/// A region that is cut out is a raw frame again, whose plane is the region of the whole one's.
void cut(const orva_frame* frame, Input& region) {
  const unsigned int x = region.hostile(), y = region.hostile();
  const unsigned int width = region.hostile(), height = region.hostile();
  orva_frame* part = nullptr;
  const orva_status status = orva_frame_cut(frame, x, y, width, height, &part);
  requireReasoned(status);
  FUZZ_REQUIRE((status == 0) == (part != nullptr));
  if (part == nullptr) return;
  FUZZ_REQUIRE(firstError(part) == 0);
  orva_geometry geometry{};
  geometry.size = sizeof geometry;
  FUZZ_REQUIRE(orva_header_get_geometry(orva_frame_header(frame), &geometry) == 0);
  orva_image *const whole = planeOf(frame), *const small = planeOf(part);
  const orva_image_info a = infoOf(whole), b = infoOf(small);
  FUZZ_REQUIRE(b.width == width && b.height == height);
  for (std::size_t row = 0; row < height; ++row)
    FUZZ_REQUIRE(std::memcmp(static_cast<const unsigned short*>(b.pixels) + row * width,
                             static_cast<const unsigned short*>(a.pixels) + (geometry.y + y + row) * a.width +
                                 geometry.x + x,
                             2 * std::size_t{width}) == 0);
  orva_image_free(whole);
  orva_image_free(small);
  orva_frame_free(part);
}

/// The same fixed files as CAlgo::ConvertFile makes, all or none.
void convert(const Bytes& bytes, int format) {
  const fuzz::MemoryFile source(bytes);
  const fuzz::OutputFolder own("face"), classes("classes");
  const std::wstring wide = source.path();
  const std::string name(wide.begin(), wide.end());
  const orva_status status = orva_convert_file(name.c_str(), format, nullptr, nullptr, own.file().c_str());
  requireReasoned(status);
  const auto files = own.content();
  FUZZ_REQUIRE(files.empty() == (status != 0));
  if (status != 0) return;
  const conv_info_t info{static_cast<unsigned int>(format), nullptr, nullptr};
  const auto algo = std::make_unique<CAlgo>();
  FUZZ_REQUIRE(algo->ConvertFile(wide.c_str(), &info, classes.file().wstring().c_str()) >= 0);
  const auto others = classes.content();
  FUZZ_REQUIRE(files.size() == others.size());
  for (const auto& [file, content] : files) {
    const auto other = others.find(file);
    FUZZ_REQUIRE(other != others.end() && content.size() == other->second.size());
    // A FITS header holds the time of day.
    const std::size_t from = format == ORVA_FILE_FITS ? std::min<std::size_t>(5760, content.size()) : 0;
    FUZZ_REQUIRE(std::equal(content.begin() + static_cast<std::ptrdiff_t>(from), content.end(),
                            other->second.begin() + static_cast<std::ptrdiff_t>(from)));
  }
}

}  // namespace

FUZZ_TARGET(data, size) {
  Input input(data, size);
  const unsigned int options = input.word();
  Input region = input;
  input.bytes(4);
  const Bytes bytes = input.rest();
  const std::uint64_t claimed = fuzz::claimedPlane(bytes, true);
  if (claimed > 128 << 10 && claimed <= 8 << 20) return 0;  // takes its time and is nothing new

  orva_frame* frame = nullptr;
  const orva_status status = (options & 4) != 0 ? orva_frame_copy(bytes.data(), bytes.size(), &frame)
                                                : orva_frame_view(bytes.data(), bytes.size(), &frame);
  requireReasoned(status);
  FUZZ_REQUIRE((status == 0) == (frame != nullptr));
  orva_header* header = nullptr;
  FUZZ_REQUIRE(orva_header_parse(bytes.data(), bytes.size(), &header) == status);
  orva_header_free(header);
  if (frame == nullptr) return 0;
  askHeader(orva_frame_header(frame));
  const int expected = firstError(frame);
  FUZZ_REQUIRE((orva_frame_planes(frame) == 0) == (expected != 0));
  decode(frame, bytes, expected, options & 3);
  cut(frame, region);
  orva_frame_free(frame);
  if ((options & 8) != 0) convert(bytes, 1 + static_cast<int>(options >> 4 & 1));
  return 0;
}
