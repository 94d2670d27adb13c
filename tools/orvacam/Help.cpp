#include "Help.h"

#include <orvacam.hpp>

#include "Options.h"
#include "PlaneFile.h"
#include "files/Json.h"
#include "files/Text.h"

namespace tool {

namespace {

constexpr std::size_t indent = 30, lineLength = 100;

/// "  NAMES    text", the text broken between words and kept in its column.
std::string entry(const std::string& names, const std::string& text) {
  std::string all = "  " + names;
  std::size_t length = all.size();
  const auto toColumn = [&] {
    if (length + 1 > indent) {
      all += "\n";
      length = 0;
    }
    all += std::string(indent - length, ' ');
    length = indent;
  };
  toColumn();
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t to = std::min(text.find(' ', from), text.size());
    if (length > indent && length + 1 + to - from > lineLength) {
      all += "\n";
      length = 0;
      toColumn();
    } else if (length > indent) {
      all += ' ';
      ++length;
    }
    all += text.substr(from, to - from);
    length += to - from;
    from = to + 1;
  }
  return all + "\n";
}

std::string namesOf(const Option& option) {
  std::string names;
  for (const std::string& name : option.names)
    names += (names.empty() ? "" : ", ") + name;
  const std::string value = valueOf(option);
  return option.isPositional() ? value : names + (value.empty() ? "" : " " + value);
}

}  // namespace

std::string valueOf(const Option& option) {
  const std::string& label = option.isPositional() ? option.names.front() : option.value.label;
  return label + (option.value.several == Value::Several::Words ? "..." : "");
}

std::string sentencesOf(const Option& option) {
  using orvacam::files::numberText;
  const Value& value = option.value;
  std::string text = option.description;
  if (value.kind == Value::Kind::Choice) text += ": " + listOf(value.choices);
  if (value.kind == Value::Kind::Whole || value.kind == Value::Kind::Number) {
    if (value.most < 4294967295) text += ": " + numberText(value.least) + " to " + numberText(value.most);
  }
  if (!option.standard.empty()) text += " [" + option.standard + "]";
  if (option.isRequired) text += " (required)";
  return text;
}

std::vector<Option> programOptions() {
  std::vector<Option> options(3);
  options[0].names = {"-h", "--help"};
  options[0].description = "Show this help";
  options[1].names = {"--version"};
  options[1].description = "Show the version";
  options[2].names = {"--json"};
  options[2].description = "With --version: an object that tells what this build can do";
  return options;
}

std::string versionJson(const std::vector<Command>& commands) {
  using orvacam::files::JsonList;
  Names names;
  for (const Command& command : commands)
    names.push_back(command.name);
  const auto listed = [](const Names& texts) {
    JsonList list;
    for (const std::string& text : texts)
      list.raw(orvacam::files::jsonText(text));
    return list.str();
  };
  return orvacam::files::JsonObject()
      .text("schema", "orvacam.version/1")
      .text("version", orvacam::version())
      .raw("commands", listed(names))
      .raw("formats", listed(formatNames()))
      .raw("planes", listed(planeNames()))
      .raw("sensors", listed(orvacam::sensors()))
      .raw("cameras", listed(cameraNames()))
      .str();
}

std::string overviewOf(const std::vector<Command>& commands) {
  std::string text = "orvacam " + orvacam::version() + ": raw frames of scientific cameras\n\n";
  for (const Command& command : commands)
    text += "  " + command.what + "\n    " + command.examples.front() + "\n";
  return text + "\norvacam COMMAND --help shows a command's options.\n";
}

std::string helpOf(const std::vector<Command>& commands) {
  std::string text =
      "Raw frames of scientific cameras: look at them, convert them, stack them, make them.\n"
      "Usage: orvacam [OPTIONS] COMMAND\n\nOptions:\n";
  for (const Option& option : programOptions())
    text += entry(namesOf(option), sentencesOf(option));
  text += "\nCommands:\n";
  for (const Command& command : commands)
    text += entry(command.name, command.what);
  return text + "\norvacam COMMAND --help shows a command's options.\n";
}

std::string helpOf(const Command& command) {
  std::string usage = command.what + "\nUsage: orvacam " + command.name + " [OPTIONS]", places, options;
  for (const Option& option : command.options) {
    const std::string shown = entry(namesOf(option), sentencesOf(option));
    (option.isPositional() ? places : options) += shown;
    if (option.isPositional())
      usage += option.isRequired ? " " + valueOf(option) : " [" + valueOf(option) + "]";
  }
  std::string text = usage + "\n";
  if (!places.empty()) text += "\nArguments:\n" + places;
  text += "\nOptions:\n" + entry("-h, --help", "Show this help") + options + "\nExamples:\n";
  for (const std::string& example : command.examples)
    text += "  " + example + "\n";
  return text;
}

}  // namespace tool
