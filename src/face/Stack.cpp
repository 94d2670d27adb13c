// Stacks, as the C interface has them.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "face/Decoder.h"
#include "face/Likeness.h"

using namespace orvacam::face;

namespace {

using Sums = std::vector<std::uint64_t>;

unsigned int planeOf(const char* name) {
  for (const auto& plane : planeNames)
    if (std::strcmp(plane.name, name) == 0) return plane.bit;
  fail(ORVA_BAD_ARGUMENT, "\"" + std::string(name) + "\" is no plane");
}

const char* nameOf(unsigned int bit) {
  for (const auto& plane : planeNames)
    if (plane.bit == bit) return plane.name;
  return "";
}

/// sum / count, rounded once. Both are below 2^53.
float quotient(std::uint64_t sum, std::uint64_t count) {
  const auto s = static_cast<double>(sum);
  const auto n = static_cast<double>(count);
  double q = s / n;
  const auto rounded = static_cast<float>(q);
  // Where the double is just half way between two floats, the exact quotient says to which side it belongs.
  const double other = static_cast<double>(
      std::nextafter(rounded, q > static_cast<double>(rounded) ? std::numeric_limits<float>::max() : 0.0F));
  if (q - static_cast<double>(rounded) != other - q) return rounded;
  const double rest = std::fma(-q, n, s);
  if (rest == 0.0) return rounded;
  q = std::nextafter(q, rest > 0 ? std::numeric_limits<double>::max() : 0.0);
  return static_cast<float>(q);
}

void add(const std::uint16_t* pixels, std::size_t count, std::uint64_t* sums, std::uint64_t* squares) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t pixel = pixels[i];
    sums[i] += pixel;
    squares[i] += pixel * pixel;
  }
}

}  // namespace

struct orva_stack {
  explicit orva_stack(int ofMethod) : method(ofMethod) {
    if (method < ORVA_STACK_MEAN || method > ORVA_STACK_WINSORIZED)
      fail(ORVA_BAD_ARGUMENT, std::to_string(method) + " is no method of stacking");
    if (method > ORVA_STACK_SUM)
      fail(ORVA_BAD_ARGUMENT, "stacks are made by mean and by sum; other methods are not built");
  }

  void requireFrames() const {
    if (count == 0) fail(ORVA_BAD_ARGUMENT, "the stack is empty");
  }
  void requireEmpty() const {
    if (count != 0) fail(ORVA_BAD_ARGUMENT, "the stack has frames; its settings are made before the first");
  }
  void addFrame(const orva_frame& frame);
  void merge(const orva_stack& other);
  std::unique_ptr<orva_image> image(int type) const {
    requireFrames();
    return std::make_unique<orva_image>(type, width, height, Held<PixelPool>());
  }
  std::unique_ptr<orva_image> copyOf(const Sums& all) const {
    auto copy = image(ORVA_PIXEL_U64);
    std::memcpy(copy->pixels, all.data(), sizeof(std::uint64_t) * all.size());
    return copy;
  }
  std::unique_ptr<orva_image> result() const;
  std::unique_ptr<orva_image> resultU16() const;

  const int method;
  unsigned int plane = 0;  ///< 0: as the first frame has it
  bool allowUnlike = false;
  std::unique_ptr<orva_decoder> decoder;
  std::uint64_t count = 0;
  std::uint32_t width = 0, height = 0;
  Held<const orva_header> first;
  Sums sums, squares;
};

namespace {

unsigned int defaultPlane(unsigned int has) {
  for (const unsigned int plane : {ORVA_PLANE_MERGED, ORVA_PLANE_IMAGE})
    if ((has & plane) != 0) return plane;
  return ORVA_PLANE_LOW;
}

std::unique_ptr<orva_image> decodeOne(orva_decoder& decoder, const orva_frame& frame, unsigned int plane) {
  orva_request request{};
  request.size = sizeof request;
  request.planes = plane;
  DecodedImages images = decoder.decode(frame, request);
  return std::move(images.of(plane));
}

}  // namespace

/// What can fail is done first.
void orva_stack::addFrame(const orva_frame& frame) {
  frame.look.requireDecodable();
  if (first) {
    const std::string unlike = unlikeness(first->values(), frame.values(), allowUnlike);
    if (!unlike.empty()) fail(ORVA_MISMATCH, "is unlike the first frame: " + unlike);
  }
  if (decoder == nullptr) decoder = std::make_unique<orva_decoder>();
  const unsigned int has = decoder->planesOf(frame);
  const unsigned int wanted = plane != 0 ? plane : defaultPlane(has);
  if ((has & wanted) == 0) fail(ORVA_BAD_ARGUMENT, std::string("has no plane \"") + nameOf(wanted) + "\"");
  const std::unique_ptr<orva_image> pixels = decodeOne(*decoder, frame, wanted);
  if (!first) {
    Sums zeros(pixels->pixelCount());
    squares = zeros;
    sums = std::move(zeros);
    width = pixels->width;
    height = pixels->height;
    first = frame.header;
    plane = wanted;
  }
  add(pixels->as<std::uint16_t>(), pixels->pixelCount(), sums.data(), squares.data());
  ++count;
}

void orva_stack::merge(const orva_stack& other) {
  if (method != other.method) fail(ORVA_MISMATCH, "one stack is a mean, the other one a sum");
  if (other.count == 0) return;
  if (plane != 0 && plane != other.plane)
    fail(ORVA_MISMATCH, std::string("one stack is of plane \"") + nameOf(plane) + "\", the other one of \"" +
                            nameOf(other.plane) + "\"");
  if (!first) {
    Sums otherSums = other.sums;
    squares = other.squares;
    sums = std::move(otherSums);
    first = other.first;
    width = other.width;
    height = other.height;
    plane = other.plane;
    count = other.count;
    return;
  }
  const std::string unlike = unlikeness(first->values(), other.first->values(), allowUnlike);
  if (!unlike.empty()) fail(ORVA_MISMATCH, "the stacks are unlike: " + unlike);
  const std::size_t pixels = sums.size();
  for (std::size_t i = 0; i < pixels; ++i) {
    sums[i] += other.sums[i];
    squares[i] += other.squares[i];
  }
  count += other.count;
}

std::unique_ptr<orva_image> orva_stack::result() const {
  auto mean = image(ORVA_PIXEL_F32);
  auto* const pixels = mean->as<float>();
  for (std::size_t i = 0; i < sums.size(); ++i)
    pixels[i] = method == ORVA_STACK_SUM ? static_cast<float>(sums[i]) : quotient(sums[i], count);
  return mean;
}

std::unique_ptr<orva_image> orva_stack::resultU16() const {
  if (method != ORVA_STACK_MEAN) fail(ORVA_BAD_ARGUMENT, "a sum has no result of 16 bits");
  auto mean = image(ORVA_PIXEL_U16);
  auto* const pixels = mean->as<std::uint16_t>();
  for (std::size_t i = 0; i < sums.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(sums[i] / count);
  mean->header = Held<const orva_header>(new orva_header(first, PlaneRole{plane, true}));
  return mean;
}

namespace {

/// Throws unless this many 16-bit frames can have these sums.
void requirePossible(const std::uint64_t* sums, const std::uint64_t* squares, std::size_t pixels,
                     std::uint64_t count) {
  constexpr std::uint64_t largest = 65535;
  if (count == 0 || count > std::uint64_t{1} << 32)
    fail(ORVA_BAD_ARGUMENT, std::to_string(count) + " is no number of frames");
  for (std::size_t i = 0; i < pixels; ++i) {
    const auto square = static_cast<unsigned __int128>(sums[i]) * sums[i];
    if (sums[i] > largest * count || squares[i] > largest * sums[i] || squares[i] < sums[i] ||
        square > static_cast<unsigned __int128>(squares[i]) * count)
      fail(ORVA_BAD_ARGUMENT, "no " + std::to_string(count) + " frames of 16 bits have these sums at pixel " +
                                  std::to_string(i));
  }
}

std::unique_ptr<orva_stack> stackOfSums(const orva_header& first, std::uint64_t count, const orva_image& sums,
                                        const orva_image& squares) {
  const FrameLook look = lookAtHeader(first.values());
  look.requireDecodable();
  const orva_geometry plane = look.geometry();
  for (const orva_image* image : {&sums, &squares}) {
    if (image->type != ORVA_PIXEL_U64) fail(ORVA_BAD_ARGUMENT, "sums have pixels of 64 bits");
    if (image->width != plane.width || image->height != plane.height)
      fail(ORVA_MISMATCH, "the sums have " + std::to_string(image->width) + " x " +
                              std::to_string(image->height) + " pixels, the header's planes " +
                              std::to_string(plane.width) + " x " + std::to_string(plane.height));
  }
  const std::size_t pixels = sums.pixelCount();
  requirePossible(sums.as<std::uint64_t>(), squares.as<std::uint64_t>(), pixels, count);
  auto stack = std::make_unique<orva_stack>(ORVA_STACK_MEAN);
  stack->sums.assign(sums.as<std::uint64_t>(), sums.as<std::uint64_t>() + pixels);
  stack->squares.assign(squares.as<std::uint64_t>(), squares.as<std::uint64_t>() + pixels);
  stack->width = plane.width;
  stack->height = plane.height;
  stack->count = count;
  stack->first = Held<const orva_header>::shared(first);
  stack->plane = defaultPlane(look.planes());
  return stack;
}

template <typename Make>
orva_status giveImage(const orva_stack* stack, orva_image** out, const Make& make) {
  return guarded([&] {
    required(out, "out") = nullptr;
    *out = make(required(stack, "the stack")).release();
  });
}

}  // namespace

extern "C" {

orva_status orva_stack_create(int method, orva_stack** out) {
  return guarded([&] {
    required(out, "out") = nullptr;
    *out = new orva_stack(method);
  });
}

void orva_stack_free(orva_stack* stack) {
  delete stack;
}

orva_status orva_stack_set_plane(orva_stack* stack, const char* name) {
  return guarded([&] {
    required(stack, "the stack").requireEmpty();
    stack->plane = name != nullptr && *name != '\0' ? planeOf(name) : 0;
  });
}

orva_status orva_stack_set_decoder(orva_stack* stack, orva_decoder* decoder) {
  std::unique_ptr<orva_decoder> taken(decoder);
  return guarded([&] {
    required(stack, "the stack").requireEmpty();
    required(decoder, "the decoder");
    stack->decoder = std::move(taken);
  });
}

orva_status orva_stack_allow_unlike(orva_stack* stack, int allow) {
  return guarded([&] { required(stack, "the stack").allowUnlike = allow != 0; });
}

orva_status orva_stack_add(orva_stack* stack, const orva_frame* frame) {
  return guarded([&] {
    orva_stack& s = required(stack, "the stack");
    const orva_frame& f = required(frame, "the frame");
    withFrame(f, [&] { s.addFrame(f); });
  });
}

uint64_t orva_stack_count(const orva_stack* stack) {
  return stack != nullptr ? stack->count : 0;
}

orva_status orva_stack_sums(const orva_stack* stack, orva_image** out) {
  return giveImage(stack, out, [](const orva_stack& s) { return s.copyOf(s.sums); });
}

orva_status orva_stack_squares(const orva_stack* stack, orva_image** out) {
  return giveImage(stack, out, [](const orva_stack& s) { return s.copyOf(s.squares); });
}

orva_status orva_stack_get_header(const orva_stack* stack, const orva_header** header) {
  return guarded([&] {
    required(header, "the header") = nullptr;
    required(stack, "the stack").requireFrames();
    *header = stack->first.get();
  });
}

orva_status orva_stack_from_sums(const orva_header* first, uint64_t count, const orva_image* sums,
                                 const orva_image* squares, orva_stack** out) {
  return guarded([&] {
    required(out, "out") = nullptr;
    *out = stackOfSums(required(first, "the header"), count, required(sums, "the sums"),
                       required(squares, "the squares"))
               .release();
  });
}

orva_status orva_stack_merge(orva_stack* stack, const orva_stack* other) {
  return guarded([&] { required(stack, "the stack").merge(required(other, "the other stack")); });
}

orva_status orva_stack_result(const orva_stack* stack, orva_image** out) {
  return giveImage(stack, out, [](const orva_stack& s) { return s.result(); });
}

orva_status orva_stack_result_u16(const orva_stack* stack, orva_image** out) {
  return giveImage(stack, out, [](const orva_stack& s) { return s.resultU16(); });
}
}
