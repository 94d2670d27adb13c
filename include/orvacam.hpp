#ifndef ORVACAM_HPP
#define ORVACAM_HPP

/// \file
/// Raw frames of scientific cameras, opened, checked, decoded and stacked.
///
/// \code
///   #include <orvacam.hpp>
///
///   const orvacam::Frame frame = orvacam::Frame::read("m31.raw");
///   orvacam::Decoder decoder;
///   const orvacam::Plane merged = decoder.decode(frame).merged;
/// \endcode
///
/// The frame says what it is: sensor, mode and planes come from its header. Every failure is an Error that
/// says why, with the numbers that matter. Nothing that is handed in is changed.
///
/// Values. Header, Image, Plane, Frame, Decoded, Statistics, Finding and Error are copied cheaply: copies
/// share what does not change, and any number of threads may read them. Decoder and Stack are moved, and used
/// by one thread at a time. An object that was moved from can be assigned and destroyed.
///
/// This header holds the whole C++ side: it needs C++17 and stands on the C interface of <orvacam_c.h> alone,
/// so that programs of any compiler can use one library.

#include <orvacam_c.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace orvacam {

// ---- Reasons

/// Why something failed. Kinds are numbered for ever and only added.
enum class Reason {
  not_a_frame = 1,     ///< empty, no "Meta" at the start, a FITS or TIFF file
  truncated,           ///< fewer bytes than the header or the pixels need
  unsupported_sensor,  ///< a mode that the sensor cannot have
  bad_geometry,        ///< sizes that contradict each other or the sensor
  mismatch,            ///< corrections or frames that do not fit each other
  bad_argument,        ///< null, out of range, an unknown name
  io,                  ///< the system's own error, or no regular file
  out_of_memory,       ///< there is not enough memory
  internal             ///< a fault of the library
};

/// "not_a_frame" and so on.
inline std::string reason_name(Reason reason) {
  return orva_reason_name(static_cast<int>(reason));
}

/// What is thrown: what() is one sentence with the numbers that matter, without the path.
class Error : public std::runtime_error {
 public:
  explicit Error(const orva_error& error)
      : std::runtime_error(error.text),
        m_reason(static_cast<Reason>(error.kind)),
        m_path(std::make_shared<const std::string>(error.path)),
        m_needed(error.needed),
        m_available(error.available),
        m_system_error(error.system_error) {}

  Reason reason() const { return m_reason; }
  /// The file, as it was given; "" where none plays a part.
  const std::string& path() const { return *m_path; }
  /// Bytes needed and available, from the first byte of the file or buffer; 0 where they mean nothing.
  std::uint64_t needed() const { return m_needed; }
  std::uint64_t available() const { return m_available; }
  /// errno of Reason::io; else 0.
  int system_error() const { return m_system_error; }

 private:
  Reason m_reason;
  std::shared_ptr<const std::string> m_path;  // copying an exception must not throw
  std::uint64_t m_needed, m_available;
  int m_system_error;
};

namespace detail {

/// Throws this thread's last reason unless the status is good.
inline void check(orva_status status) {
  if (status != 0) throw Error(*orva_last_error());
}

template <typename Record>
Record record() {
  Record empty{};
  empty.size = sizeof empty;
  return empty;
}

/// Throws bad_argument.
[[noreturn]] inline void refuse(const char* what) {
  orva_error error = record<orva_error>();
  error.kind = ORVA_BAD_ARGUMENT;
  error.text = what;
  error.path = "";
  throw Error(error);
}

/// A share in something of the C interface that does not change.
template <typename Type, Type* (*share)(const Type*), void (*release)(Type*)>
class Shared {
 public:
  Shared() = default;
  explicit Shared(Type* owned) : m_handle(owned) {}
  Shared(const Shared& other) : m_handle(share(other.m_handle)) {}
  Shared(Shared&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
  Shared& operator=(Shared other) noexcept {
    std::swap(m_handle, other.m_handle);
    return *this;
  }
  ~Shared() { release(m_handle); }

  const Type* get() const { return m_handle; }

 private:
  Type* m_handle = nullptr;
};

using HeaderHandle = Shared<orva_header, orva_header_share, orva_header_free>;
using ImageHandle = Shared<orva_image, orva_image_share, orva_image_free>;
using FrameHandle = Shared<orva_frame, orva_frame_share, orva_frame_free>;

/// The one owner of something of the C interface.
template <typename Type, void (*release)(Type*)>
struct Release {
  void operator()(Type* handle) const { release(handle); }
};
using DecoderHandle = std::unique_ptr<orva_decoder, Release<orva_decoder, orva_decoder_free>>;
using StackHandle = std::unique_ptr<orva_stack, Release<orva_stack, orva_stack_free>>;

/// A text that the C interface copies out: write(text, capacity, length).
template <typename Write>
std::string text(const Write& write) {
  std::string whole(127, '\0');
  std::size_t length = 0;
  check(write(whole.data(), whole.size() + 1, &length));
  const bool cut = length > whole.size();
  whole.resize(length);
  if (cut) check(write(whole.data(), whole.size() + 1, &length));
  return whole;
}

/// A name for the C interface, which ends texts at a NUL: a name that holds one is nobody's.
inline std::string name(std::string_view text) {
  std::string copy(text);
  for (char& character : copy)
    if (character == '\0') character = '?';
  return copy;
}

inline unsigned bit(bool set, int value) {
  return set ? static_cast<unsigned>(value) : 0u;
}

template <typename Pixel>
struct PixelType;
template <>
struct PixelType<std::uint16_t> : std::integral_constant<int, ORVA_PIXEL_U16> {};
template <>
struct PixelType<std::uint64_t> : std::integral_constant<int, ORVA_PIXEL_U64> {};
template <>
struct PixelType<float> : std::integral_constant<int, ORVA_PIXEL_F32> {};
template <>
struct PixelType<double> : std::integral_constant<int, ORVA_PIXEL_F64> {};

}  // namespace detail

// ---- The library

/// "2.1.4"
inline std::string version() {
  return orva_version();
}

/// The sensors that the library knows by name.
inline std::vector<std::string> sensors() {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < orva_sensor_count(); ++i)
    names.emplace_back(orva_sensor_name(i));
  return names;
}

/// One of the values of a header.
struct Key {
  enum class Kind { number, flag, text };
  std::string name, unit;           ///< "ExposureTime", "10 us"; the unit is that of the raw value
  Kind kind;                        ///< what the value is
  int number;                       ///< the documented key number
  int first_version, last_version;  ///< the header versions that carry it
};

/// The 93 keys that have a name, by their numbers.
inline std::vector<Key> keys() {
  std::vector<Key> all;
  for (std::size_t i = 0; i < orva_key_count(); ++i) {
    const orva_key& key = *orva_key_at(i);
    all.push_back({key.name, key.unit, static_cast<Key::Kind>(key.kind), key.number, key.first_version,
                   key.last_version});
  }
  return all;
}

/// One gain setting of a sensor.
struct Gain {
  unsigned index;  ///< as headers have it: LDRGain, HDRGain
  double low_gain, high_gain;
  double low_electrons, high_electrons;  ///< per count
  double ratio;                          ///< high to low gain, both at this setting
};

/// A sensor's gain settings: one of sensors(), or "LUMORA420", "LUMORA533", "LUMORA571"; with a camera's
/// calibration block, or null. Throws bad_argument.
inline std::vector<Gain> gains(std::string_view sensor, bool back_side_illuminated = false,
                               const void* calibration = nullptr, std::size_t length = 0) {
  const std::string name = detail::name(sensor);
  std::size_t count = 0;
  detail::check(
      orva_gains(name.c_str(), back_side_illuminated ? 1 : 0, calibration, length, nullptr, 0, &count));
  std::vector<orva_gain> records(count, detail::record<orva_gain>());
  detail::check(orva_gains(name.c_str(), back_side_illuminated ? 1 : 0, calibration, length, records.data(),
                           records.size(), &count));
  std::vector<Gain> all;
  for (const orva_gain& gain : records)
    all.push_back(
        {gain.index, gain.low_gain, gain.high_gain, gain.low_electrons, gain.high_electrons, gain.ratio});
  return all;
}

// ---- Headers

struct Size {
  std::uint32_t width, height;
};
struct Region {
  std::uint32_t x, y, width, height;
};
inline bool operator==(const Size& a, const Size& b) {
  return a.width == b.width && a.height == b.height;
}
inline bool operator!=(const Size& a, const Size& b) {
  return !(a == b);
}
inline bool operator==(const Region& a, const Region& b) {
  return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}
inline bool operator!=(const Region& a, const Region& b) {
  return !(a == b);
}

/// In what frames of one stack may differ. Sensor, mode and size can never be unlike.
enum class Unlike {
  nothing,
  settings,  ///< exposure, gains, black level, binning, region, temperature
  exposure
};

/// What a frame says of itself.
class Header {
 public:
  /// The header at the start of bytes, which are not changed. Throws not_a_frame and truncated.
  static Header parse(const void* bytes, std::size_t length) {
    orva_header* header = nullptr;
    detail::check(orva_header_parse(bytes, length, &header));
    return Header(detail::HeaderHandle(header));
  }
  /// The same of a file, of which at most 64 KiB are read. Also throws io.
  static Header read(const std::filesystem::path& path) {
    orva_header* header = nullptr;
    detail::check(orva_header_read(path.c_str(), &header));
    return Header(detail::HeaderHandle(header));
  }
  /// Of a raw header: the processed one that a plane of such a frame has, as decoding gives it. Its bytes do
  /// not read back the same: pass the raw header on. Throws bad_argument: no plane's name.
  Header of_plane(std::string_view plane) const {
    const unsigned bit =
        detail::bit(plane == "low", ORVA_PLANE_LOW) | detail::bit(plane == "high", ORVA_PLANE_HIGH) |
        detail::bit(plane == "merged", ORVA_PLANE_MERGED) | detail::bit(plane == "image", ORVA_PLANE_IMAGE);
    orva_header* header = nullptr;
    detail::check(orva_header_of_plane(m_handle.get(), bit, &header));
    return Header(detail::HeaderHandle(header));
  }

  /// As stated; 1 to 4 are known.
  unsigned version() const { return info().version; }
  std::string model() const { return info().model; }
  std::string serial() const { return info().serial; }
  /// One of sensors(); "GENERIC" for a model that names none.
  std::string sensor() const { return info().sensor; }
  /// The flag: the frame holds a low-gain and a high-gain image.
  bool hdr() const { return info().hdr != 0; }

  /// Width and height of a plane in pixels: binned, reference rows and pixels included. Throws bad_geometry
  /// where the header has none.
  Size frame_size() const {
    const orva_geometry all = geometry();
    return {all.width, all.height};
  }
  /// The image within a plane; reference rows and pixels lie outside. Throws bad_geometry.
  Region image_region() const {
    const orva_geometry all = geometry();
    return {all.x, all.y, all.image_width, all.image_height};
  }
  /// The sensor's row that the image begins with, where correction frames apply from. Throws bad_geometry.
  std::uint32_t start_row() const { return geometry().start_row; }

  double exposure_seconds() const { return info().exposure_seconds; }
  /// Of the sensor, and what its cooler is set to; none in header versions without them.
  std::optional<double> temperature_celsius() const {
    const orva_header_info all = info();
    return all.has_temperature != 0 ? std::optional<double>(all.temperature_celsius) : std::nullopt;
  }
  std::optional<double> set_point_celsius() const {
    const orva_header_info all = info();
    return all.has_set_point != 0 ? std::optional<double>(all.set_point_celsius) : std::nullopt;
  }
  /// When the exposure began, UTC; none where the header's text cannot be read or the date is impossible.
  std::optional<std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>> time() const {
    const orva_header_info all = info();
    if (all.has_time == 0) return std::nullopt;
    return std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>(
        std::chrono::nanoseconds(all.time_nanoseconds));
  }

  /// A raw value as delivered, by its name in keys(); flags are 0 and 1. Throws bad_argument: an unknown key,
  /// the key of a text.
  double number(std::string_view key) const {
    double value = 0;
    detail::check(orva_header_get_number(m_handle.get(), detail::name(key).c_str(), &value));
    return value;
  }
  /// The same as text, UTF-8: of a number its shortest exact digits, of a flag "true" or "false". Throws
  /// bad_argument: an unknown key.
  std::string text(std::string_view key) const {
    const std::string name = detail::name(key);
    return detail::text([&](char* text, std::size_t capacity, std::size_t* length) {
      return orva_header_get_text(m_handle.get(), name.c_str(), text, capacity, length);
    });
  }
  /// The library's metadata text, a line per field.
  std::string to_text() const {
    return detail::text([this](char* text, std::size_t capacity, std::size_t* length) {
      return orva_header_to_text(m_handle.get(), text, capacity, length);
    });
  }
  /// {"schema": "orvacam.header/1", "values": {name: value}, "units": {name: unit}, "derived": {...}}
  std::string to_json() const {
    return detail::text([this](char* text, std::size_t capacity, std::size_t* length) {
      return orva_header_to_json(m_handle.get(), text, capacity, length);
    });
  }
  /// The bytes as received, of a processed header as the library writes them; they live as long as any copy
  /// of this header.
  std::string_view bytes() const {
    const void* bytes = nullptr;
    std::size_t length = 0;
    detail::check(orva_header_get_bytes(m_handle.get(), &bytes, &length));
    return {static_cast<const char*>(bytes), length};
  }

 private:
  friend class Decoder;
  friend class Frame;
  friend class Plane;
  friend class Stack;
  friend void require_alike(const Header& first, const Header& other, Unlike allowed);
  Header() = default;
  explicit Header(detail::HeaderHandle handle) : m_handle(std::move(handle)) {}

  orva_header_info info() const {
    orva_header_info info = detail::record<orva_header_info>();
    detail::check(orva_header_get_info(m_handle.get(), &info));
    return info;
  }
  orva_geometry geometry() const {
    orva_geometry geometry = detail::record<orva_geometry>();
    detail::check(orva_header_get_geometry(m_handle.get(), &geometry));
    return geometry;
  }

  detail::HeaderHandle m_handle;
};

// ---- Images

/// Pixels that do not change, row by row without padding: std::uint16_t, std::uint64_t, float or double.
template <class Pixel>
class Image {
 public:
  Image() = default;
  Image(const Image&) = default;
  Image(Image&& other) noexcept
      : m_handle(std::move(other.m_handle)),
        m_size(std::exchange(other.m_size, Size{0, 0})),
        m_data(std::exchange(other.m_data, nullptr)) {}
  Image& operator=(const Image&) = default;
  Image& operator=(Image&& other) noexcept {
    m_handle = std::move(other.m_handle);
    m_size = std::exchange(other.m_size, Size{0, 0});
    m_data = std::exchange(other.m_data, nullptr);
    return *this;
  }
  ~Image() = default;

  Size size() const { return m_size; }
  /// Whether there are no pixels.
  bool empty() const { return m_data == nullptr; }
  /// width x height pixels, which live as long as any copy of this image; null when it is empty.
  const Pixel* data() const { return m_data; }
  /// Unchecked: y is below the height, x below the width.
  const Pixel* row(std::uint32_t y) const { return m_data + std::size_t{y} * m_size.width; }
  Pixel operator()(std::uint32_t x, std::uint32_t y) const { return row(y)[x]; }

  /// Pixels of the caller's, copied. Throws bad_argument: null for pixels that there should be.
  static Image copy(Size size, const Pixel* pixels) {
    orva_image* image = nullptr;
    detail::check(orva_image_copy(detail::PixelType<Pixel>::value, size.width, size.height, pixels, &image));
    return Image(detail::ImageHandle(image));
  }

 protected:
  friend class Decoder;
  friend class Stack;
  explicit Image(detail::ImageHandle handle) : m_handle(std::move(handle)) {
    if (m_handle.get() == nullptr) return;
    orva_image_info info = detail::record<orva_image_info>();
    detail::check(orva_image_get_info(m_handle.get(), &info));
    m_size = {info.width, info.height};
    m_data = static_cast<const Pixel*>(info.pixels);
  }

  detail::ImageHandle m_handle;

 private:
  Size m_size{0, 0};
  const Pixel* m_data = nullptr;
};

struct Extreme {
  std::uint16_t value;
  std::uint32_t x, y;  ///< the first place in row order that has it; a position in the plane
};

/// Statistics of a plane's image region.
struct Statistics {
  std::uint64_t count;
  double mean, deviation;  ///< exact to rounding; the deviation of the population
  std::uint16_t mode;      ///< the most frequent value, the lowest of several
  Extreme minimum, maximum;
  std::uint16_t clip_low, clip_high;     ///< where 5 % of the pixels lie below, and 0.1 % above
  std::vector<std::uint32_t> histogram;  ///< 65536 counts; empty unless asked for
};

/// A 16-bit plane of a frame.
class Plane : public Image<std::uint16_t> {
 public:
  Plane() = default;

  /// The processed header: 16 bits a pixel, no pair, this plane's flags. Throws bad_argument for an empty and
  /// for a copied plane.
  const Header& header() const& {
    if (m_header.m_handle.get() == nullptr) {
      const orva_header* none = nullptr;
      detail::check(orva_image_get_header(m_handle.get(), &none));
    }
    return m_header;
  }
  Header header() const&& { return header(); }  ///< of a plane that goes away
  /// None unless asked for.
  const std::optional<Statistics>& statistics() const& {
    static const std::optional<Statistics> none;
    return m_statistics != nullptr ? *m_statistics : none;
  }
  std::optional<Statistics> statistics() const&& { return statistics(); }

  /// Pixels of the caller's, copied, without header and statistics.
  static Plane copy(Size size, const std::uint16_t* pixels) {
    orva_image* image = nullptr;
    detail::check(orva_image_copy(ORVA_PIXEL_U16, size.width, size.height, pixels, &image));
    return Plane(detail::ImageHandle(image));
  }

 private:
  friend class Decoder;
  friend class Stack;
  explicit Plane(detail::ImageHandle handle) : Image(std::move(handle)) {
    if (m_handle.get() == nullptr) return;
    orva_image_info info = detail::record<orva_image_info>();
    detail::check(orva_image_get_info(m_handle.get(), &info));
    if (info.has_header != 0) {
      const orva_header* header = nullptr;
      detail::check(orva_image_get_header(m_handle.get(), &header));
      m_header.m_handle = detail::HeaderHandle(orva_header_share(header));
    }
    if (info.has_statistics != 0) {
      orva_statistics statistics = detail::record<orva_statistics>();
      detail::check(orva_image_get_statistics(m_handle.get(), &statistics));
      m_statistics = std::make_shared<const std::optional<Statistics>>(from(statistics));
    }
  }
  static Statistics from(const orva_statistics& s) {
    constexpr std::size_t values = 65536;
    return {s.count,
            s.mean,
            s.deviation,
            s.mode,
            {s.minimum.value, s.minimum.x, s.minimum.y},
            {s.maximum.value, s.maximum.x, s.maximum.y},
            s.clip_low,
            s.clip_high,
            s.histogram != nullptr ? std::vector<std::uint32_t>(s.histogram, s.histogram + values)
                                   : std::vector<std::uint32_t>()};
  }

  Header m_header;
  std::shared_ptr<const std::optional<Statistics>> m_statistics;
};

// ---- Frames

/// Something that a look at a frame brought up. A frame with an error cannot be decoded.
struct Finding {
  enum class Severity { note, warning, error } severity;
  std::string id, text;  ///< a stable name, and one sentence with numbers
  Reason reason;         ///< of an error: what decoding throws; else 0
};

/// All findings that there are; the text says what each means.
inline std::vector<Finding> finding_kinds() {
  std::vector<Finding> all;
  for (std::size_t i = 0; i < orva_finding_kind_count(); ++i) {
    const orva_finding& kind = *orva_finding_kind_at(i);
    all.push_back({static_cast<Finding::Severity>(kind.severity), kind.id, kind.text,
                   static_cast<Reason>(kind.reason)});
  }
  return all;
}

/// A raw frame: its header and its bytes. It is there as soon as its header can be read; whatever else is
/// wrong with it is a finding of check().
class Frame {
 public:
  /// The whole file, read once; later changes of the file do not matter. Throws not_a_frame, truncated (the
  /// header alone), io.
  static Frame read(const std::filesystem::path& path) {
    orva_frame* frame = nullptr;
    detail::check(orva_frame_read(path.c_str(), &frame));
    return Frame(detail::FrameHandle(frame));
  }
  static Frame copy(const void* bytes, std::size_t length) {
    orva_frame* frame = nullptr;
    detail::check(orva_frame_copy(bytes, length, &frame));
    return Frame(detail::FrameHandle(frame));
  }
  /// The bytes stay the caller's, unchanged, and outlive the frame and its copies.
  static Frame view(const void* bytes, std::size_t length) {
    orva_frame* frame = nullptr;
    detail::check(orva_frame_view(bytes, length, &frame));
    return Frame(detail::FrameHandle(frame));
  }

  const Header& header() const& { return m_header; }
  Header header() const&& { return m_header; }  ///< of a frame that goes away
  /// {"low", "high", "merged"}, {"image"}, {"low", "high"}; {} where it cannot be decoded.
  std::vector<std::string> planes() const {
    constexpr struct {
      unsigned bit;
      const char* name;
    } all[] = {{ORVA_PLANE_LOW, "low"},
               {ORVA_PLANE_HIGH, "high"},
               {ORVA_PLANE_MERGED, "merged"},
               {ORVA_PLANE_IMAGE, "image"}};
    const unsigned mine = orva_frame_planes(m_handle.get());
    std::vector<std::string> names;
    for (const auto& plane : all)
      if ((mine & plane.bit) != 0) names.emplace_back(plane.name);
    return names;
  }
  /// What is to be said of the frame, errors first; empty: whole and sane.
  std::vector<Finding> check() const {
    std::size_t count = 0;
    detail::check(orva_frame_finding_count(m_handle.get(), &count));
    std::vector<Finding> all;
    for (std::size_t i = 0; i < count; ++i) {
      orva_finding finding = detail::record<orva_finding>();
      detail::check(orva_frame_get_finding(m_handle.get(), i, &finding));
      all.push_back({static_cast<Finding::Severity>(finding.severity), finding.id, finding.text,
                     static_cast<Reason>(finding.reason)});
    }
    return all;
  }
  /// The raw bytes, header included; they live as long as any copy of this frame (of a view: as the
  /// caller's).
  std::string_view bytes() const {
    const void* bytes = nullptr;
    std::size_t length = 0;
    detail::check(orva_frame_get_bytes(m_handle.get(), &bytes, &length));
    return {static_cast<const char*>(bytes), length};
  }
  /// A region of the image, cut out of the packed pixels: a raw frame again. Positions count from the image
  /// region's corner; x and width are even. Throws unsupported_sensor for sensors that cannot, bad_argument.
  Frame cut(const Region& region) const {
    orva_frame* frame = nullptr;
    detail::check(orva_frame_cut(m_handle.get(), region.x, region.y, region.width, region.height, &frame));
    return Frame(detail::FrameHandle(frame));
  }

 private:
  friend class Decoder;
  friend class Stack;
  explicit Frame(detail::FrameHandle handle)
      : m_handle(std::move(handle)),
        m_header(detail::HeaderHandle(orva_header_share(orva_frame_header(m_handle.get())))) {}

  detail::FrameHandle m_handle;
  Header m_header;
};

// ---- Decoding

/// What is wanted of a frame. Planes that the frame does not have are passed over.
struct Planes {
  bool low = true, high = true, merged = true, image = true, statistics = false, histograms = false;
};

/// The caller's own memory for planes, in pixels; null: the decoder's. It must outlive the planes made over
/// it.
struct Target {
  std::uint16_t* pixels = nullptr;
  std::size_t capacity = 0;
};
struct Targets {
  Target low, high, merged, image;
};

/// A frame's planes; empty where it has none or it was not asked for.
struct Decoded {
  Plane low, high, merged, image;
};

/// How a decoder merges frames.
struct MergeInfo {
  bool merges;        ///< whether there is something to merge
  double gain_ratio;  ///< of high to low gain, as used: floored to 10 bits; 0 with PRNU frames
  unsigned high_threshold, difference_threshold;
  unsigned type;          ///< 0: both gains
  bool dsnu, prnu, bias;  ///< whether corrections are set
};

/// Turns frames into planes. Holds settings, and machinery and memory that frames share: in a loop, planes
/// that were let go are used again.
class Decoder {
 public:
  Decoder() {
    orva_decoder* decoder = nullptr;
    detail::check(orva_decoder_create(&decoder));
    m_handle.reset(decoder);
  }

  /// Correction files of the merge: read now, opened for reading only; "" takes one back. After a refusal the
  /// earlier one holds. Throws what reading a frame does, and mismatch.
  Decoder& dsnu(const std::filesystem::path& path) & {
    detail::check(orva_decoder_set_dsnu(m_handle.get(), path.c_str()));
    return *this;
  }
  Decoder& prnu(const std::filesystem::path& path) & {
    detail::check(orva_decoder_set_prnu(m_handle.get(), path.c_str()));
    return *this;
  }
  /// Subtracted from each plane before merging, stopping at 0; frames of one image take the first. Empty
  /// planes take them back. A plane with a header covers the rows from its start row on, others those from
  /// row 0 on.
  Decoder& bias(const Plane& low, const Plane& high) & {
    detail::check(orva_decoder_set_bias(m_handle.get(), low.m_handle.get(), high.m_handle.get()));
    return *this;
  }
  /// Of the merge; 3700 and 128 at first. No effect where nothing is merged. Throws bad_argument above 65535.
  Decoder& thresholds(unsigned high, unsigned difference) & {
    detail::check(orva_decoder_set_thresholds(m_handle.get(), high, difference));
    return *this;
  }
  /// The calibration block that a camera keeps, from which gain ratios are taken. Copied; null takes it back.
  /// Throws bad_argument: it is none; the earlier one holds.
  Decoder& calibration(const void* block, std::size_t length) & {
    detail::check(orva_decoder_set_calibration(m_handle.get(), block, length));
    return *this;
  }

  // Of a decoder without a name: `Decoder decoder = Decoder().thresholds(3600, 128);`
  Decoder&& dsnu(const std::filesystem::path& path) && { return std::move(dsnu(path)); }
  Decoder&& prnu(const std::filesystem::path& path) && { return std::move(prnu(path)); }
  Decoder&& bias(const Plane& low, const Plane& high) && { return std::move(bias(low, high)); }
  Decoder&& thresholds(unsigned high, unsigned difference) && {
    return std::move(thresholds(high, difference));
  }
  Decoder&& calibration(const void* block, std::size_t length) && {
    return std::move(calibration(block, length));
  }

  /// The planes of a frame. Throws what the frame's error findings say, mismatch where corrections do not
  /// cover the frame or have nothing to correct, and out_of_memory; the decoder is as good as new after it.
  Decoded decode(const Frame& frame, Planes wanted = {}) { return decode(frame, wanted, Targets()); }
  /// The same into memory of the caller's. Also throws bad_argument, with nothing written, when it is too
  /// small.
  Decoded decode(const Frame& frame, Planes wanted, const Targets& targets) {
    orva_request request = detail::record<orva_request>();
    request.planes = detail::bit(wanted.low, ORVA_PLANE_LOW) | detail::bit(wanted.high, ORVA_PLANE_HIGH) |
                     detail::bit(wanted.merged, ORVA_PLANE_MERGED) |
                     detail::bit(wanted.image, ORVA_PLANE_IMAGE);
    request.flags =
        detail::bit(wanted.statistics, ORVA_STATISTICS) | detail::bit(wanted.histograms, ORVA_HISTOGRAMS);
    request.low = {targets.low.pixels, targets.low.capacity};
    request.high = {targets.high.pixels, targets.high.capacity};
    request.merged = {targets.merged.pixels, targets.merged.capacity};
    request.image = {targets.image.pixels, targets.image.capacity};
    orva_decoded decoded = detail::record<orva_decoded>();
    detail::check(orva_decoder_decode(m_handle.get(), frame.m_handle.get(), &request, &decoded));
    detail::ImageHandle low(decoded.low), high(decoded.high), merged(decoded.merged), image(decoded.image);
    return {Plane(std::move(low)), Plane(std::move(high)), Plane(std::move(merged)), Plane(std::move(image))};
  }
  /// How frames with this header would be merged.
  MergeInfo merge_info(const Header& header) {
    orva_merge_info info = detail::record<orva_merge_info>();
    detail::check(orva_decoder_get_merge_info(m_handle.get(), header.m_handle.get(), &info));
    return {info.merges != 0, info.gain_ratio, info.high_threshold, info.difference_threshold,
            info.type,        info.dsnu != 0,  info.prnu != 0,      info.bias != 0};
  }

 private:
  friend class Stack;
  detail::DecoderHandle m_handle;
};

/// Fixed image files, byte for byte those of CAlgo::ConvertFile, which programs in the field read.
enum class FileFormat { tiff = 1, fits = 2 };

/// "a/b.raw" as destination gives "a/b_LOW.fit", "a/b_HIGH.fit" and "a/b_MERGED.fit", or "a/b.fit" for a
/// frame of one plane. "" for no correction file. Throws what decoding does, io, and bad_argument for a
/// destination without a dot.
inline void convert_file(const std::filesystem::path& source, FileFormat format,
                         const std::filesystem::path& destination, const std::filesystem::path& dsnu = {},
                         const std::filesystem::path& prnu = {}) {
  detail::check(orva_convert_file(source.c_str(), static_cast<int>(format), dsnu.c_str(), prnu.c_str(),
                                  destination.c_str()));
}

// ---- Stacks

/// Whether two frames go into one stack. Throws mismatch, naming the field and both values.
inline void require_alike(const Header& first, const Header& other, Unlike allowed = Unlike::nothing) {
  detail::check(
      orva_header_require_alike(first.m_handle.get(), other.m_handle.get(), static_cast<int>(allowed)));
}

/// Many frames into one: of the merged plane of HDR frames, else the image (or low) plane. A mean and a sum
/// keep sums, minimum and maximum one plane, whatever the number of frames; the other methods keep all planes
/// in memory (rows of more frames than that: combine).
class Stack {
 public:
  /// sigma_clip takes values away that lie outside median - low * deviation ... median + high * deviation
  /// (deviation of the population) of those that are left, until none does, 20 times at most; then the mean.
  /// winsorized sets them to the limits of the last round instead.
  enum class Method { mean, sum, median, minimum, maximum, sigma_clip, winsorized };

  explicit Stack(Method method = Method::mean) {
    orva_stack* stack = nullptr;
    detail::check(orva_stack_create(static_cast<int>(method), &stack));
    m_handle.reset(stack);
  }

  /// Settings, to be made before the first frame. Throw bad_argument later, and for what is no plane's name.
  Stack& plane(std::string_view name) & {
    detail::check(orva_stack_set_plane(m_handle.get(), detail::name(name).c_str()));
    return *this;
  }
  /// Its settings hold for every frame.
  Stack& decoder(Decoder decoder) & {
    detail::check(orva_stack_set_decoder(m_handle.get(), decoder.m_handle.release()));
    return *this;
  }
  /// The limits of sigma_clip and winsorized; 3 and 3 at first. Throws bad_argument: not above 0.
  Stack& sigma(double low, double high) & {
    detail::check(orva_stack_set_sigma(m_handle.get(), low, high));
    return *this;
  }
  /// Takes frames whose settings differ as well; sensor, mode and size can never be unlike.
  Stack& allow_unlike(bool allow) & {
    detail::check(orva_stack_allow_unlike(m_handle.get(), allow ? 1 : 0));
    return *this;
  }
  // Of a stack without a name: `Stack stack = Stack(Stack::Method::median).plane("low");`
  Stack&& plane(std::string_view name) && { return std::move(plane(name)); }
  Stack&& decoder(Decoder decoder) && { return std::move(this->decoder(std::move(decoder))); }
  Stack&& sigma(double low, double high) && { return std::move(sigma(low, high)); }
  Stack&& allow_unlike(bool allow) && { return std::move(allow_unlike(allow)); }

  /// Throws what decoding does; mismatch, naming the field, for a frame that is unlike the first one;
  /// bad_argument for a frame that lacks the plane. The stack is then as before.
  void add(const Frame& frame) { detail::check(orva_stack_add(m_handle.get(), frame.m_handle.get())); }
  std::uint64_t count() const { return orva_stack_count(m_handle.get()); }

  /// The plane that is stacked; "" while that is the first frame's to say.
  std::string plane() const { return orva_stack_plane(m_handle.get()); }

  /// Exact sums of the pixels and of their squares. Throw bad_argument when the stack is empty, and for
  /// methods other than mean and sum.
  Image<std::uint64_t> sums() const { return taken<Image<std::uint64_t>>(orva_stack_sums); }
  Image<std::uint64_t> squares() const { return taken<Image<std::uint64_t>>(orva_stack_squares); }
  /// The first frame's header, raw. Throws bad_argument when the stack is empty.
  Header header() const {
    const orva_header* header = nullptr;
    detail::check(orva_stack_get_header(m_handle.get(), &header));
    return Header(detail::HeaderHandle(orva_header_share(header)));
  }
  /// A stack that goes on where another one stopped: its first frame's header, its count and both its sums.
  /// No name of a plane: that of the header. Throws bad_argument for a method other than mean and sum, a
  /// plane that the header's frames do not have, sums that so many frames cannot have; mismatch for their
  /// size.
  static Stack from_sums(const Header& first, std::uint64_t count, Image<std::uint64_t> sums,
                         Image<std::uint64_t> squares, std::string_view plane = {},
                         Method method = Method::mean) {
    const std::string name = detail::name(plane);
    orva_stack_state state = detail::record<orva_stack_state>();
    state.method = static_cast<int>(method);
    state.plane = name.c_str();
    state.count = count;
    state.sums = sums.m_handle.get();
    state.squares = squares.m_handle.get();
    orva_stack* stack = nullptr;
    detail::check(orva_stack_restore(first.m_handle.get(), &state, &stack));
    return Stack(detail::StackHandle(stack));
  }
  /// Adds another stack's frames. Throws mismatch: unlike frames, planes or methods.
  void merge(const Stack& other) { detail::check(orva_stack_merge(m_handle.get(), other.m_handle.get())); }

  /// The result so far; the stack goes on. Throws bad_argument when it is empty.
  Image<float> result() const { return taken<Image<float>>(orva_stack_result); }
  Image<double> result_f64() const { return taken<Image<double>>(orva_stack_result_f64); }
  /// The result, cut off to 16 bits. Throws bad_argument when the stack is empty or a sum.
  Plane result_u16() const { return taken<Plane>(orva_stack_result_u16); }

 private:
  explicit Stack(detail::StackHandle handle) : m_handle(std::move(handle)) {}

  template <typename Result>
  Result taken(orva_status (*take)(const orva_stack*, orva_image**)) const {
    orva_image* image = nullptr;
    detail::check(take(m_handle.get(), &image));
    return Result(detail::ImageHandle(image));
  }

  detail::StackHandle m_handle;
};

// ---- Rows of many frames

/// How rows are combined. Empty lists: 1, 0 and 1 for every frame; else they have a number for each frame.
struct Combining {
  Stack::Method method = Stack::Method::mean;
  double sigma_low = 3, sigma_high = 3;
  std::vector<double> scales = {}, offsets = {};  ///< a frame's values are value * scale + offset
  std::vector<double> weights = {};               ///< of a mean alone; none below 0, not all of them 0
};

/// Where results go, in the caller's memory. Null: not wanted.
struct Combined {
  double* values = nullptr;
  double* deviations = nullptr;       ///< of the population of the values that stayed
  std::uint16_t* rejected = nullptr;  ///< how many were taken away; 65535 for more
};

/// Combines rows of `count` pixels each, std::uint16_t or double, into one: values[i] of rows[0][i],
/// rows[1][i] and so on. Every value depends on its own column alone, so that an image may be combined in
/// parts and by several threads. Throws bad_argument: no rows, null rows, lists of another length, numbers
/// that are not finite.
template <class Pixel>
void combine(const Combining& how, const std::vector<const Pixel*>& rows, std::size_t count,
             const Combined& out) {
  static_assert(std::is_same_v<Pixel, std::uint16_t> || std::is_same_v<Pixel, double>);
  for (const auto* list : {&how.scales, &how.offsets, &how.weights})
    if (!list->empty() && list->size() != rows.size())
      detail::refuse("a list has not one number for each row");
  const auto array = [](const std::vector<double>& list) { return list.empty() ? nullptr : list.data(); };
  orva_combining all = detail::record<orva_combining>();
  all.method = static_cast<int>(how.method);
  all.sigma_low = how.sigma_low;
  all.sigma_high = how.sigma_high;
  all.scales = array(how.scales);
  all.offsets = array(how.offsets);
  all.weights = array(how.weights);
  const orva_combined target{sizeof target, out.values, out.deviations, out.rejected};
  const std::vector<const void*> untyped(rows.begin(), rows.end());
  detail::check(
      orva_combine(&all, detail::PixelType<Pixel>::value, untyped.data(), untyped.size(), count, &target));
}

}  // namespace orvacam

#endif  // ORVACAM_HPP
