#include "files/Subject.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace orvacam::files {

namespace {

class HeaderFields : public Fields {
 public:
  explicit HeaderFields(const Header& header) : m_header(header) {}
  unsigned version() const override {
    return m_header.version() >= 1 && m_header.version() <= 3 ? m_header.version() : 4;
  }
  std::optional<double> number(const char* key) const override { return m_header.number(key); }
  std::optional<std::string> text(const char* key) const override {
    return std::string_view(key) == "Sensor" ? m_header.sensor() : m_header.text(key);
  }

 private:
  Header m_header;
};

/// Without a GPS fix the camera writes "NOGPS" or "ERROR" beside its own clock's time.
bool saysCameraClock(const Header& header) {
  constexpr std::size_t at = 152, length = 30;
  if (header.version() == 1 || header.bytes().size() < at + length) return false;
  const std::string_view text = header.bytes().substr(at, length);
  return text.find("NOGPS") != std::string_view::npos || text.find("ERROR") != std::string_view::npos;
}

double numberOf(const Subject& subject, const char* key) {
  return subject.fields->number(key).value_or(0);
}

}  // namespace

std::shared_ptr<const Fields> fieldsOf(const Header& header) {
  return std::make_shared<HeaderFields>(header);
}

bool Subject::highGain() const {
  if (plane == "image") return fields->version() >= 2 && numberOf(*this, "TestIsHighFrame") != 0;
  return plane != "low";
}

double Subject::saturation() const {
  double full = plane == "image" ? std::exp2(numberOf(*this, "DataPixelBitDepth")) - 1 : 4095;
  full -= bias;
  if (plane == "merged") full = std::min(65535.0, std::round(full * (merge ? merge->ratio : 1)));
  return stack && stack->sum ? full * static_cast<double>(stack->frames) : full;
}

double Subject::exposure() const {
  constexpr double periodsPerSecond = 100000;
  return stack && stack->sum ? stack->exposure : numberOf(*this, "ExposureTime") / periodsPerSecond;
}

double Subject::pixelWidth() const {
  if (fields->version() < 2) return 0;
  return numberOf(*this, "HorizontalPixelSize") * std::max(1.0, numberOf(*this, "HorizontalBinning")) / 10;
}

double Subject::pixelHeight() const {
  if (fields->version() < 2) return 0;
  return numberOf(*this, "VerticalPixelSize") * std::max(1.0, numberOf(*this, "VerticalBinning")) / 10;
}

std::string Subject::model() const {
  return fields->text("CameraModel").value_or("");
}

Subject subjectOf(const Header& header, const std::string& plane) {
  Subject subject;
  subject.fields = fieldsOf(header);
  subject.plane = plane;
  subject.size = header.frame_size();
  subject.image = header.image_region();
  subject.time = header.time();
  subject.cameraClock = saysCameraClock(header);
  return subject;
}

}  // namespace orvacam::files
