#ifndef ORVACAM_FILES_JSON_H
#define ORVACAM_FILES_JSON_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvacam::files {

/// A text in quotes; what is no UTF-8 becomes U+FFFD.
std::string jsonText(std::string_view text);
/// A number; null for NaN and infinity.
std::string jsonNumber(double number);
/// JSON without a byte that is not ASCII.
std::string asciiJson(std::string_view json);

/// An object, or a list, written member by member.
class JsonObject {
 public:
  JsonObject& text(std::string_view name, std::string_view value) { return raw(name, jsonText(value)); }
  JsonObject& number(std::string_view name, double value) { return raw(name, jsonNumber(value)); }
  JsonObject& whole(std::string_view name, std::int64_t value) { return raw(name, std::to_string(value)); }
  JsonObject& truth(std::string_view name, bool value) { return raw(name, value ? "true" : "false"); }
  JsonObject& raw(std::string_view name, std::string_view json);
  std::string str() const { return "{" + m_members + "}"; }

 private:
  std::string m_members;
};

class JsonList {
 public:
  JsonList& raw(std::string_view json);
  std::string str() const { return "[" + m_items + "]"; }

 private:
  std::string m_items;
};

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_JSON_H
