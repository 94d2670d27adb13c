// orvacam info: what headers say, of raw frames and of the files that were made of them.

#include <algorithm>
#include <cctype>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "Commands.h"
#include "ForEach.h"
#include "files/FitsReader.h"
#include "files/FixedFiles.h"
#include "files/Json.h"
#include "files/Text.h"
#include "files/TiffFile.h"

namespace tool {

namespace files = orvacam::files;
using Json = nlohmann::ordered_json;

namespace {

struct InfoOptions {
  InputOptions inputs;
  bool json = false, csv = false;
  std::vector<std::string> keys;
};

/// What there is to say of a file, whatever its kind.
struct Facts {
  Json header = Json::object();  ///< {"values", "units"}
  Json derived = Json::object();
  std::string text;  ///< for people, where it is asked for
};

std::string lineOf(const std::string& name, const std::string& value) {
  std::string line = files::shownText(name);
  line.resize(std::max<std::size_t>(24, line.size() + 1), ' ');
  return line + "= " + files::shownText(value) + "\n";
}

std::string shown(const Json& value) {
  if (value.is_null()) return "-";
  return value.is_string() ? value.get<std::string>()
                           : value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// Lines of the library's text: what a header's texts bring along besides is escaped.
std::string escapedLines(const std::string& text) {
  std::string lines;
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t to = std::min(text.find('\n', from), text.size());
    lines += files::shownText(text.substr(from, to - from)) + "\n";
    from = to + 1;
  }
  return lines;
}

Facts factsOf(const orvacam::Header& header, bool withText) {
  Facts facts;
  Json all = Json::parse(header.to_json());
  facts.header["values"] = std::move(all["values"]);
  facts.header["units"] = std::move(all["units"]);
  facts.derived = std::move(all["derived"]);
  const auto time = header.time();
  facts.derived["time_utc"] = time ? Json(files::isoTime(*time)) : Json(nullptr);
  if (!withText) return facts;
  facts.text = escapedLines(header.to_text()) + "\n";
  for (const auto& [name, value] : facts.derived.items())
    facts.text += lineOf(name, shown(value));
  return facts;
}

Json jsonValue(const files::Value& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* whole = std::get_if<std::int64_t>(&value)) return *whole;
  if (const auto* number = std::get_if<double>(&value)) return *number;
  if (const auto* truth = std::get_if<bool>(&value)) return *truth;
  return nullptr;
}

/// "[s] exposure" begins with a unit.
std::string unitIn(const std::string& comment) {
  const std::size_t end = comment.find(']');
  return comment.empty() || comment.front() != '[' || end == std::string::npos ? ""
                                                                               : comment.substr(1, end - 1);
}

Json orNull(const files::FitsUnit& unit, const char* keyword) {
  const files::Value* const value = unit.find(keyword);
  return value != nullptr ? jsonValue(*value) : Json(nullptr);
}

/// The keywords of the first unit with pixels.
Facts factsOfFits(const std::string& path) {
  const std::vector<files::FitsUnit> units = files::readFitsUnits(path);
  const auto withPixels = std::find_if(
      units.begin(), units.end(), [](const files::FitsUnit& unit) { return unit.number("NAXIS", 0) > 0; });
  const files::FitsUnit& unit = withPixels != units.end() ? *withPixels : units.front();
  const bool tiled = unit.find("ZIMAGE") != nullptr;
  Facts facts;
  Json values = Json::object(), labels = Json::object();
  for (const files::Card& card : unit.cards) {
    if (card.keyword == "HISTORY") {
      values["HISTORY"].push_back(jsonValue(card.value));
      facts.text += lineOf(card.keyword, shown(jsonValue(card.value)));
      continue;
    }
    values[card.keyword] = jsonValue(card.value);
    if (!unitIn(card.comment).empty()) labels[card.keyword] = unitIn(card.comment);
    facts.text += lineOf(card.keyword, shown(values[card.keyword]));
  }
  facts.header = {{"values", values}, {"units", labels}};
  Json planes = Json::array();
  for (const files::FitsUnit& each : units)
    if (each.number("NAXIS", 0) > 0 && !each.text("EXTNAME").empty()) {
      std::string name = each.text("EXTNAME");
      std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
      planes.push_back(name);
    }
  facts.derived = {
      {"sensor", orNull(unit, "DETNAM")},
      {"hdr", unit.find("HDR-MODE") != nullptr ? Json(unit.number("HDR-MODE", 0) != 0) : Json(nullptr)},
      {"planes", planes},
      {"width", orNull(unit, tiled ? "ZNAXIS1" : "NAXIS1")},
      {"height", orNull(unit, tiled ? "ZNAXIS2" : "NAXIS2")},
      {"exposure_seconds", orNull(unit, "EXPTIME")},
      {"time_utc", orNull(unit, "DATE-OBS")},
      {"temperature_celsius", orNull(unit, "CCD-TEMP")}};
  return facts;
}

std::string textTag(TIFF* file, unsigned int tag) {
  const char* text = nullptr;
  return TIFFGetField(file, tag, &text) == 1 && text != nullptr ? text : "";
}

/// JSON of a file that may hold anything. Our own descriptions have some 200 keys and few levels. What is
/// nested deeper is left out, since walking through it takes stack. So are keys and values beyond the
/// thousands: they take many times the memory of their text, and an object that keeps the order of its keys
/// looks through all of them for each.
Json parsed(const std::string& text) {
  constexpr int deepest = 8;
  constexpr std::size_t most = 8192;
  std::size_t parts = 0;  // keys with their values, and elements of lists
  bool isNamed = false;
  const auto keep = [&](int depth, Json::parse_event_t event, Json&) {
    if (event == Json::parse_event_t::object_end || event == Json::parse_event_t::array_end)
      return depth <= deepest;
    if (std::exchange(isNamed, false)) return true;
    const bool kept = depth <= deepest && ++parts <= most;
    isNamed = kept && event == Json::parse_event_t::key;
    return kept;
  };
  return Json::parse(text, keep, false);
}

/// The header that the description holds, else the tags.
Facts factsOfTiff(const std::string& path) {
  const files::TiffFile file = files::openTiff(path);
  std::uint32_t width = 0, height = 0;
  TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &height);
  Facts facts;
  const Json stored = parsed(textTag(file.get(), TIFFTAG_IMAGEDESCRIPTION));
  if (stored.is_object() && stored.contains("values") && stored["values"].is_object()) {
    Json values = stored["values"];
    Json units = stored.value("units", Json::object());
    if (!units.is_object()) units = Json::object();
    facts.header = {{"values", values}, {"units", units}};
    facts.derived = stored.value("derived", Json::object());
    if (!facts.derived.is_object()) facts.derived = Json::object();
  } else {
    Json values = Json::object();
    constexpr std::pair<const char*, unsigned int> tags[] = {{"Model", TIFFTAG_MODEL},
                                                             {"Software", TIFFTAG_SOFTWARE},
                                                             {"DateTime", TIFFTAG_DATETIME},
                                                             {"ImageDescription", TIFFTAG_IMAGEDESCRIPTION}};
    for (const auto& [name, tag] : tags)
      if (const std::string text = textTag(file.get(), tag); !text.empty()) values[name] = text;
    facts.header = {{"values", values}, {"units", Json::object()}};
  }
  facts.derived["width"] = width;
  facts.derived["height"] = height;
  for (const Json& part : {facts.header["values"], facts.derived})
    for (const auto& [name, value] : part.items())
      facts.text += lineOf(name, shown(value));
  return facts;
}

Facts factsOf(const std::string& path, bool withText) {
  if (path == "-") return factsOf(readFrame(path).header(), withText);
  switch (files::kindOf(path)) {
    case files::FileKind::Fits:
    case files::FileKind::FixedFits:
      return factsOfFits(path);
    case files::FileKind::Tiff:
    case files::FileKind::FixedTiff:
      return factsOfTiff(path);
    default:
      return factsOf(orvacam::Header::read(path), withText);
  }
}

// ---- Keys

std::string lower(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

/// "*" stands for any characters, "?" for one; any case.
bool matches(const std::string& pattern, const std::string& name) {
  std::size_t p = 0, n = 0, star = std::string::npos, from = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      from = n;
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (star != std::string::npos) {
      p = star + 1;
      n = ++from;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*')
    ++p;
  return p == pattern.size();
}

/// The names that a file has, raw or keyword first, then derived.
std::vector<std::string> namesOf(const Facts& facts) {
  std::vector<std::string> names;
  for (const auto& item : facts.header.at("values").items())
    names.push_back(item.key());
  for (const auto& item : facts.derived.items())
    if (!facts.header.at("values").contains(item.key())) names.push_back(item.key());
  return names;
}

Json valueOf(const Facts& facts, const std::string& name) {
  const Json& values = facts.header.at("values");
  if (values.contains(name)) return values[name];
  return facts.derived.contains(name) ? facts.derived[name] : Json(nullptr);
}

std::string unitOf(const Facts& facts, const std::string& name) {
  const Json& units = facts.header.at("units");
  return units.contains(name) && units[name].is_string() ? units[name].get<std::string>() : "";
}

/// The asked names as they are written in the files, in the order asked. Throws UsageError for a pattern
/// that nothing matches.
std::vector<std::string> askedNames(const std::vector<std::string>& patterns,
                                    const std::vector<std::string>& known) {
  std::vector<std::string> names;
  std::set<std::string> seen;
  for (const std::string& pattern : patterns) {
    bool matched = false;
    for (const std::string& name : known) {
      if (!matches(lower(pattern), lower(name))) continue;
      matched = true;
      if (seen.insert(name).second) names.push_back(name);
    }
    if (matched || known.empty()) continue;
    throw UsageError("--keys: there is no key '" + pattern + "'" + suggestion(pattern, known));
  }
  return names;
}

// ---- What is printed

/// Without names all there is.
void printJson(const std::string& path, const Facts& facts,
               const std::optional<std::vector<std::string>>& names) {
  Json object{{"schema", "orvacam.info/1"}, {"file", path}};
  if (!names) {
    object["header"] = facts.header;
    object["derived"] = facts.derived;
  } else {
    Json values = Json::object(), units = Json::object(), derived = Json::object();
    for (const std::string& name : *names) {
      const bool raw = facts.header.at("values").contains(name);
      if (raw) values[name] = valueOf(facts, name);
      if (raw && !unitOf(facts, name).empty()) units[name] = unitOf(facts, name);
      if (!raw && facts.derived.contains(name)) derived[name] = facts.derived[name];
    }
    object["header"] = {{"values", values}, {"units", units}};
    object["derived"] = derived;
  }
  std::cout << object.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void printCsvLine(const std::string& path, const Facts& facts, const std::vector<std::string>& names) {
  std::cout << files::csvField(path);
  for (const std::string& name : names) {
    const Json value = valueOf(facts, name);
    std::cout << ',' << (value.is_null() ? "" : files::csvField(shown(value)));
  }
  std::cout << '\n';
}

void printKeys(const Facts& facts, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const std::string unit = unitOf(facts, name);
    if (facts.header.at("values").contains(name) || facts.derived.contains(name))
      std::cout << lineOf(name, shown(valueOf(facts, name)) + (unit.empty() ? "" : " " + unit));
  }
}

/// The names that the files have, in order. What is wrong with files will be said when they are shown.
std::vector<std::string> knownNames(const std::vector<Input>& inputs) {
  std::vector<std::string> known;
  std::set<std::string> seen;
  for (const Input& input : inputs) {
    try {
      requireUsable(input);
      for (const std::string& name : namesOf(factsOf(input.path, false)))
        if (seen.insert(name).second) known.push_back(name);
    } catch (const std::exception&) {
      continue;
    }
  }
  return known;
}

void show(const Input& input, const InfoOptions& options, bool alone,
          const std::optional<std::vector<std::string>>& names) {
  requireUsable(input);
  const Facts facts = factsOf(input.path, !options.json && !names);
  if (options.csv) return printCsvLine(input.path, facts, names.value());
  if (options.json) return printJson(input.path, facts, names);
  if (!alone) std::cout << files::shownText(input.path) << ":\n";
  if (names)
    printKeys(facts, *names);
  else
    std::cout << facts.text;
}

int info(const InfoOptions& options) {
  const std::vector<Input> inputs = inputsOf(options.inputs);
  const bool some = options.csv || !options.keys.empty();
  // Names are looked up in all files before the first line is printed.
  std::optional<std::vector<std::string>> names;
  if (some)
    names =
        askedNames(options.keys.empty() ? std::vector<std::string>{"*"} : options.keys, knownNames(inputs));
  if (options.csv) {
    std::cout << "file";
    for (const std::string& name : names.value())
      std::cout << ',' << files::csvField(name);
    std::cout << '\n';
  }
  return forEach(inputs, [&](const Input& input) { show(input, options, inputs.size() == 1, names); });
}

void describe(Command& c, InfoOptions& o) {
  addInputs(c, o.inputs, "Raw frames, FITS or TIFF files, folders of frames, or -");
  addJobs(c);
  c.add("--json", o.json, "An object for each file, one a line");
  c.add("--csv", o.csv, "A line for each file");
  c.add("--keys", &o.keys, "Only these keys, in any case; * is any text, ? any letter",
        textValue("NAME,...").commas());
}

int checked(const InfoOptions& o) {
  requireApart(o.json, "--json", o.csv, "--csv");
  return info(o);
}

}  // namespace

Command infoCommand() {
  return commandOf<InfoOptions>(
      "info", "Show what headers say: of raw frames, and of FITS and TIFF files made of them.",
      {"orvacam info frame.raw --keys 'Exposure*,time_utc'"}, describe, checked);
}

}  // namespace tool
