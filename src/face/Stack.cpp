// Stacks, as the C interface has them.

#include <cstring>

#include "face/Combine.h"
#include "face/Decoder.h"
#include "face/StackContents.h"

using namespace orvacam::face;

namespace {

unsigned int planeOf(const char* name) {
  for (const auto& plane : planeNames)
    if (std::strcmp(plane.name, name) == 0) return plane.bit;
  fail(ORVA_BAD_ARGUMENT, "\"" + std::string(name) + "\" is no plane");
}

/// The squares of as many of the largest pixel value fit 64 bits.
constexpr std::uint64_t mostFrames = std::uint64_t{1} << 32;

const char* nameOf(unsigned int plane) {
  return plane != 0 ? planeNames[placeOf(plane)].name : "";
}

}  // namespace

struct orva_stack {
  explicit orva_stack(int ofMethod) : rule{ofMethod} { requireMethod(ofMethod); }

  void requireFrames() const {
    if (count == 0) fail(ORVA_BAD_ARGUMENT, "the stack is empty");
  }
  /// Throws unless the sums of so many more frames stay exact.
  void requireRoom(std::uint64_t more) const {
    if (more > mostFrames - count)
      fail(ORVA_BAD_ARGUMENT, "a stack holds at most " + std::to_string(mostFrames) + " frames");
  }
  void requireEmpty() const {
    if (count != 0) fail(ORVA_BAD_ARGUMENT, "the stack has frames; its settings are made before the first");
  }
  int allowed() const { return allowUnlike ? ORVA_ALLOW_SETTINGS : ORVA_ALLOW_NOTHING; }
  void setSigma(double low, double high);
  void addFrame(const orva_frame& frame);
  void merge(const orva_stack& other);
  const StackSums& sums() const;
  template <typename Value>
  std::unique_ptr<orva_image> result(int type) const;
  std::unique_ptr<orva_image> resultU16() const;

  StackRule rule;
  unsigned int plane = 0;  ///< 0: as the first frame has it
  bool allowUnlike = false;
  std::unique_ptr<orva_decoder> decoder;
  std::uint64_t count = 0;
  std::uint32_t width = 0, height = 0;
  Held<const orva_header> first;
  std::unique_ptr<StackContents> contents;  ///< null while there are no frames
};

namespace {

unsigned int defaultPlane(unsigned int has) {
  return (has & ORVA_PLANE_MERGED) != 0  ? ORVA_PLANE_MERGED
         : (has & ORVA_PLANE_IMAGE) != 0 ? ORVA_PLANE_IMAGE
                                         : ORVA_PLANE_LOW;
}

std::unique_ptr<orva_image> decodeOne(orva_decoder& decoder, const orva_frame& frame, unsigned int plane) {
  orva_request request{};
  request.planes = plane;
  DecodedImages images = decoder.decode(frame, request);
  return std::move(images[placeOf(plane)]);
}

}  // namespace

void orva_stack::setSigma(double low, double high) {
  requireEmpty();
  requireSigma(low, high);
  rule.sigmaLow = low;
  rule.sigmaHigh = high;
}

/// What can fail is done first.
void orva_stack::addFrame(const orva_frame& frame) {
  requireRoom(1);
  frame.look.requireDecodable();
  if (first) {
    const std::string unlike = unlikeness(first->values(), frame.values(), allowed());
    if (!unlike.empty()) fail(ORVA_MISMATCH, "is unlike the first frame: " + unlike);
  }
  if (decoder == nullptr) decoder = std::make_unique<orva_decoder>();
  const unsigned int has = decoder->planesOf(frame);
  const unsigned int wanted = plane != 0 ? plane : defaultPlane(has);
  if ((has & wanted) == 0) fail(ORVA_BAD_ARGUMENT, std::string("has no plane \"") + nameOf(wanted) + "\"");
  const Held<const orva_image> pixels(decodeOne(*decoder, frame, wanted).release());
  std::unique_ptr<StackContents> fresh;
  if (!first) fresh = emptyContents(rule, pixels->pixelCount());
  (fresh != nullptr ? fresh : contents)->add(pixels);
  ++count;
  if (first) return;
  contents = std::move(fresh);
  width = pixels->width;
  height = pixels->height;
  first = frame.header;
  plane = wanted;
}

void orva_stack::merge(const orva_stack& other) {
  if (rule.method != other.rule.method) fail(ORVA_MISMATCH, "the stacks are of different methods");
  if (other.count == 0) return;
  if (plane != 0 && plane != other.plane)
    fail(ORVA_MISMATCH, std::string("one stack is of plane \"") + nameOf(plane) + "\", the other one of \"" +
                            nameOf(other.plane) + "\"");
  if (!first) {
    auto copy = emptyContents(rule, std::size_t{other.width} * other.height);
    copy->merge(*other.contents);
    contents = std::move(copy);
    first = other.first;
    width = other.width;
    height = other.height;
    plane = other.plane;
    count = other.count;
    return;
  }
  const std::string unlike = unlikeness(first->values(), other.first->values(), allowed());
  if (!unlike.empty()) fail(ORVA_MISMATCH, "the stacks are unlike: " + unlike);
  requireRoom(other.count);
  contents->merge(*other.contents);
  count += other.count;
}

const StackSums& orva_stack::sums() const {
  if (rule.method != ORVA_STACK_MEAN && rule.method != ORVA_STACK_SUM)
    fail(ORVA_BAD_ARGUMENT, "only a mean and a sum have sums");
  requireFrames();
  return static_cast<const StackSums&>(*contents);
}

template <typename Value>
std::unique_ptr<orva_image> orva_stack::result(int type) const {
  requireFrames();
  auto image = std::make_unique<orva_image>(type, width, height, Held<PixelPool>());
  contents->result(image->as<Value>());
  return image;
}

std::unique_ptr<orva_image> orva_stack::resultU16() const {
  if (rule.method == ORVA_STACK_SUM) fail(ORVA_BAD_ARGUMENT, "a sum has no result of 16 bits");
  auto image = result<std::uint16_t>(ORVA_PIXEL_U16);
  image->header = Held<const orva_header>(new orva_header(first, PlaneRole{plane, true}));
  return image;
}

namespace {

/// Throws unless this many 16-bit frames can have these sums.
void requirePossible(const std::uint64_t* sums, const std::uint64_t* squares, std::size_t pixels,
                     std::uint64_t count) {
  constexpr std::uint64_t largest = 65535;
  if (count == 0 || count > mostFrames)
    fail(ORVA_BAD_ARGUMENT, std::to_string(count) + " is no number of frames");
  for (std::size_t i = 0; i < pixels; ++i) {
    const auto square = static_cast<unsigned __int128>(sums[i]) * sums[i];
    if (sums[i] > largest * count || squares[i] > largest * sums[i] || squares[i] < sums[i] ||
        square > static_cast<unsigned __int128>(squares[i]) * count)
      fail(ORVA_BAD_ARGUMENT, "no " + std::to_string(count) + " frames of 16 bits have these sums at pixel " +
                                  std::to_string(i));
  }
}

/// The planes that frames with this header can yield, whatever the decoder's gain ratio.
unsigned int planesOfSums(const FrameLook& look, const char* name) {
  const unsigned int has = look.planes();
  if (name == nullptr || *name == '\0') return defaultPlane(has);
  const unsigned int plane = planeOf(name);
  const unsigned int possible = look.wantsMerge() ? has | ORVA_PLANE_MERGED : has;
  if ((possible & plane) == 0)
    fail(ORVA_BAD_ARGUMENT, std::string("frames with this header have no plane \"") + name + "\"");
  return plane;
}

std::unique_ptr<orva_stack> stackOfSums(const orva_header& first, const orva_stack_state& state) {
  if (state.method != ORVA_STACK_MEAN && state.method != ORVA_STACK_SUM)
    fail(ORVA_BAD_ARGUMENT, "only a mean and a sum are made of sums");
  const orva_image& sums = required(state.sums, "the sums");
  const orva_image& squares = required(state.squares, "the squares");
  const FrameLook look = lookAtHeader(first.values());
  look.requireDecodable();
  const orva_geometry plane = look.geometry();
  for (const orva_image* image : {&sums, &squares}) {
    if (image->type != ORVA_PIXEL_U64) fail(ORVA_BAD_ARGUMENT, "sums have pixels of 64 bits");
    if (image->width != plane.width || image->height != plane.height)
      fail(ORVA_MISMATCH, "the sums have " + sizeText(image->width, image->height) +
                              " pixels, the header's planes " + sizeText(plane.width, plane.height));
  }
  const std::size_t pixels = sums.pixelCount();
  requirePossible(sums.as<std::uint64_t>(), squares.as<std::uint64_t>(), pixels, state.count);
  auto stack = std::make_unique<orva_stack>(state.method);
  stack->plane = planesOfSums(look, state.plane);
  stack->contents = std::make_unique<StackSums>(state.method == ORVA_STACK_MEAN, pixels, state.count,
                                                sums.as<std::uint64_t>(), squares.as<std::uint64_t>());
  stack->width = plane.width;
  stack->height = plane.height;
  stack->count = state.count;
  stack->first = Held<const orva_header>::shared(first);
  return stack;
}

/// A copy of what the sums of a stack have.
std::unique_ptr<orva_image> copyOf(const orva_stack& stack,
                                   const std::vector<std::uint64_t>& (StackSums::*values)() const) {
  const std::vector<std::uint64_t>& all = (stack.sums().*values)();
  auto copy = std::make_unique<orva_image>(ORVA_PIXEL_U64, stack.width, stack.height, Held<PixelPool>());
  std::memcpy(copy->pixels, all.data(), sizeof(std::uint64_t) * all.size());
  return copy;
}

}  // namespace

extern "C" {

orva_status orva_header_require_alike(const orva_header* first, const orva_header* other, int allowed) {
  return guarded([&] {
    const auto& f = required(first, "the first header").values();
    const auto& o = required(other, "the other header").values();
    if (allowed < ORVA_ALLOW_NOTHING || allowed > ORVA_ALLOW_EXPOSURE)
      fail(ORVA_BAD_ARGUMENT, std::to_string(allowed) + " is nothing that can be allowed");
    const std::string unlike = unlikeness(f, o, allowed);
    if (!unlike.empty()) fail(ORVA_MISMATCH, "is unlike the first frame: " + unlike);
  });
}

orva_status orva_stack_create(int method, orva_stack** out) {
  return handOut(out, [&] { return new orva_stack(method); });
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

orva_status orva_stack_set_sigma(orva_stack* stack, double low, double high) {
  return guarded([&] { required(stack, "the stack").setSigma(low, high); });
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
  return handOut(out, [&] { return copyOf(required(stack, "the stack"), &StackSums::sums).release(); });
}

orva_status orva_stack_squares(const orva_stack* stack, orva_image** out) {
  return handOut(out, [&] { return copyOf(required(stack, "the stack"), &StackSums::squares).release(); });
}

orva_status orva_stack_get_header(const orva_stack* stack, const orva_header** header) {
  return guarded([&] {
    required(header, "the header") = nullptr;
    required(stack, "the stack").requireFrames();
    *header = stack->first.get();
  });
}

const char* orva_stack_plane(const orva_stack* stack) {
  return stack != nullptr ? nameOf(stack->plane) : "";
}

orva_status orva_stack_from_sums(const orva_header* first, uint64_t count, const orva_image* sums,
                                 const orva_image* squares, orva_stack** out) {
  const orva_stack_state state{sizeof state, ORVA_STACK_MEAN, nullptr, count, sums, squares};
  return orva_stack_restore(first, &state, out);
}

orva_status orva_stack_restore(const orva_header* first, const orva_stack_state* state, orva_stack** out) {
  return handOut(
      out, [&] { return stackOfSums(required(first, "the header"), taken(state, "the state")).release(); });
}

orva_status orva_stack_merge(orva_stack* stack, const orva_stack* other) {
  return guarded([&] { required(stack, "the stack").merge(required(other, "the other stack")); });
}

orva_status orva_stack_result(const orva_stack* stack, orva_image** out) {
  return handOut(out, [&] { return required(stack, "the stack").result<float>(ORVA_PIXEL_F32).release(); });
}

orva_status orva_stack_result_f64(const orva_stack* stack, orva_image** out) {
  return handOut(out, [&] { return required(stack, "the stack").result<double>(ORVA_PIXEL_F64).release(); });
}

orva_status orva_stack_result_u16(const orva_stack* stack, orva_image** out) {
  return handOut(out, [&] { return required(stack, "the stack").resultU16().release(); });
}
}
