// Frames and headers, as the C interface has them.

#include "face/Frames.h"

#include <algorithm>
#include <cstring>

using namespace orvacam::face;

namespace {

Held<const orva_header> headerOf(const void* bytes, std::size_t length) {
  return Held<const orva_header>(new orva_header(HeaderValues::parse(bytes, length)));
}

const HeaderValues& valuesOf(const orva_header* header) {
  return required(header, "the header").values();
}

void giveBytes(const unsigned char* all, std::size_t count, const void** bytes, std::size_t* length) {
  required(length, "the length");
  required(bytes, "the bytes") = all;
  *length = count;
}

/// Copies a text out, as much of it as there is room for.
void giveText(const std::string& whole, char* text, std::size_t capacity, std::size_t* length) {
  if (capacity > 0) {
    const std::size_t copied = std::min(whole.size(), capacity - 1);
    std::memcpy(&required(text, "the text"), whole.data(), copied);
    text[copied] = '\0';
  }
  if (length != nullptr) *length = whole.size();
}

}  // namespace

orva_frame::orva_frame(const void* ofCaller, std::size_t count)
    : bytes(static_cast<const unsigned char*>(ofCaller)),
      length(count),
      header(headerOf(bytes, length)),
      look(values(), bytes, length) {}

orva_frame::orva_frame(FileBytes own, std::string fromPath)
    : memory(std::move(own)),
      bytes(memory.bytes.get()),
      length(memory.length),
      path(std::move(fromPath)),
      header(headerOf(bytes, length)),
      look(values(), bytes, length) {}

const std::vector<FindingText>& orva_frame::findings() const {
  std::call_once(m_looked, [this] { m_findings = findingsOf(look); });
  return m_findings;
}

void orvacam::face::requireHeader(const unsigned char* bytes, std::size_t length) {
  HeaderValues::parse(bytes, length);
}

std::unique_ptr<orva_frame> orvacam::face::readFrame(const char* path) {
  return withPath(path, [&] {
    const char* const name = &required(path, "the path");
    return std::make_unique<orva_frame>(readFile(name, requireHeader), name);
  });
}

extern "C" {

// ---- Headers

orva_status orva_header_parse(const void* bytes, size_t length, orva_header** out) {
  return handOut(out, [&] { return new orva_header(HeaderValues::parse(bytes, length)); });
}

orva_status orva_header_read(const char* path, orva_header** out) {
  return handOut(out, [&] {
    return withPath(path, [&] {
      const FileBytes start = readStart(&required(path, "the path"));
      return new orva_header(HeaderValues::parse(start.bytes.get(), start.length));
    });
  });
}

orva_status orva_header_of_plane(const orva_header* raw, unsigned plane, orva_header** out) {
  return handOut(out, [&] {
    const orva_header& header = required(raw, "the header");
    const bool isPlane = std::any_of(std::begin(planeNames), std::end(planeNames),
                                     [plane](const PlaneName& known) { return known.bit == plane; });
    if (!isPlane) fail(ORVA_BAD_ARGUMENT, "a header is that of one plane, of low, high, merged and image");
    return new orva_header(Held<const orva_header>::shared(header), PlaneRole{plane});
  });
}

orva_header* orva_header_share(const orva_header* header) {
  return shareHandle(header);
}

void orva_header_free(orva_header* header) {
  freeHandle(header);
}

orva_status orva_header_get_info(const orva_header* header, orva_header_info* info) {
  return guarded([&] {
    const HeaderValues& h = valuesOf(header);
    give(info,
         orva_header_info{sizeof(orva_header_info), h.version(), h.flag(ORVA_META_KEY_HDR_MODE) ? 1 : 0,
                          h.sensor(), h.model().c_str(), h.serial().c_str(), h.exposureSeconds(), 1,
                          h.hasSetPoint() ? 1 : 0, h.time() ? 1 : 0, h.temperature(),
                          h.hasSetPoint() ? h.setPoint() : 0.0, h.time().value_or(0)},
         "the info");
  });
}

orva_status orva_header_get_geometry(const orva_header* header, orva_geometry* geometry) {
  return guarded([&] { give(geometry, lookAtHeader(valuesOf(header)).geometry(), "the geometry"); });
}

orva_status orva_header_get_number(const orva_header* header, const char* key, double* number) {
  return guarded([&] {
    const HeaderValues& h = valuesOf(header);
    const orva_key& known = keyOf(key);
    if (known.kind == ORVA_KEY_TEXT)
      fail(ORVA_BAD_ARGUMENT, std::string("\"") + known.name + "\" is a text, no number");
    required(number, "the number") = h.Value(static_cast<ORVA_META_KEYS>(known.number)).GetValueDouble();
  });
}

orva_status orva_header_get_text(const orva_header* header, const char* key, char* text, size_t capacity,
                                 size_t* length) {
  return guarded([&] {
    const HeaderValues& h = valuesOf(header);
    giveText(h.text(keyOf(key)), text, capacity, length);
  });
}

orva_status orva_header_to_text(const orva_header* header, char* text, size_t capacity, size_t* length) {
  return guarded([&] { giveText(renderText(valuesOf(header)), text, capacity, length); });
}

orva_status orva_header_to_json(const orva_header* header, char* text, size_t capacity, size_t* length) {
  return guarded([&] { giveText(renderJson(valuesOf(header)), text, capacity, length); });
}

orva_status orva_header_get_bytes(const orva_header* header, const void** bytes, size_t* length) {
  return guarded([&] {
    const std::vector<unsigned char>& all = valuesOf(header).bytes();
    giveBytes(all.data(), all.size(), bytes, length);
  });
}

// ---- Frames

orva_status orva_frame_read(const char* path, orva_frame** out) {
  return handOut(out, [&] { return readFrame(path).release(); });
}

orva_status orva_frame_copy(const void* bytes, size_t length, orva_frame** out) {
  return handOut(out, [&] {
    HeaderValues::parse(bytes, length);  // before memory is taken for what is no frame
    FileBytes own{allocateBytes(length), length};
    std::memcpy(own.bytes.get(), bytes, length);
    return new orva_frame(std::move(own), std::string());
  });
}

orva_status orva_frame_view(const void* bytes, size_t length, orva_frame** out) {
  return handOut(out, [&] { return new orva_frame(bytes, length); });
}

orva_frame* orva_frame_share(const orva_frame* frame) {
  return shareHandle(frame);
}

void orva_frame_free(orva_frame* frame) {
  freeHandle(frame);
}

const orva_header* orva_frame_header(const orva_frame* frame) {
  return frame != nullptr ? frame->header.get() : nullptr;
}

orva_status orva_frame_get_bytes(const orva_frame* frame, const void** bytes, size_t* length) {
  return guarded([&] {
    const orva_frame& f = required(frame, "the frame");
    giveBytes(f.bytes, f.length, bytes, length);
  });
}

unsigned orva_frame_planes(const orva_frame* frame) {
  unsigned planes = 0;
  guarded([&] { planes = required(frame, "the frame").look.planes(); });
  return planes;
}

orva_status orva_frame_finding_count(const orva_frame* frame, size_t* count) {
  return guarded([&] { required(count, "the count") = required(frame, "the frame").findings().size(); });
}

orva_status orva_frame_get_finding(const orva_frame* frame, size_t index, orva_finding* finding) {
  return guarded([&] {
    const std::vector<FindingText>& all = required(frame, "the frame").findings();
    if (index >= all.size())
      fail(ORVA_BAD_ARGUMENT,
           "there is no finding " + std::to_string(index) + " among " + std::to_string(all.size()));
    orva_finding found = all[index].check->kind;
    found.text = all[index].text.c_str();
    if (found.reason == ORVA_TRUNCATED) {
      found.needed = frame->look.plan().bytesNeeded;
      found.available = frame->length;
    }
    give(finding, found, "the finding");
  });
}

size_t orva_finding_kind_count(void) {
  return checkCount;
}

const orva_finding* orva_finding_kind_at(size_t index) {
  return index < checkCount ? &checks[index].kind : nullptr;
}
}
