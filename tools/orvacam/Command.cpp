#include "Command.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include "Program.h"
#include "files/Text.h"

namespace tool {

namespace {

using orvacam::files::numberText;

Names separated(const std::string& text) {
  Names parts;
  for (std::size_t from = 0;;) {
    const std::size_t to = std::min(text.find(',', from), text.size());
    parts.push_back(text.substr(from, to - from));
    if (to == text.size()) return parts;
    from = to + 1;
  }
}

bool sameWord(const std::string& a, const std::string& b, bool anyCase) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [&](unsigned char x, unsigned char y) {
           return x == y || (anyCase && std::toupper(x) == std::toupper(y));
         });
}

/// A number in digits, as they are written everywhere; hexadecimal with 0x where it is a whole one.
std::optional<double> numberIn(const std::string& text, bool whole) {
  const char* from = text.data();
  const char* const end = from + text.size();
  double value = 0;
  std::from_chars_result result{};
  if (whole) {
    const bool hexadecimal = text.rfind("0x", 0) == 0;
    unsigned long long digits = 0;
    result = std::from_chars(from + (hexadecimal ? 2 : 0), end, digits, hexadecimal ? 16 : 10);
    value = static_cast<double>(digits);
  } else {
    result = std::from_chars(from, end, value);
  }
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return value;
}

/// What a word stands for. Throws UsageError.
std::string fitting(const Option& option, const std::string& word) {
  const Value& value = option.value;
  if (value.kind == Value::Kind::Choice) {
    for (const std::string& choice : value.choices)
      if (sameWord(word, choice, option.isAnyCase)) return choice;
    const std::string near = suggestion(word, value.choices);
    // What stands without a name says what it is: "there is no camera 'X'".
    std::string kind = option.isPositional() && !value.label.empty() ? value.label + " " : "";
    std::transform(kind.begin(), kind.end(), kind.begin(), [](unsigned char c) { return std::tolower(c); });
    throw UsageError((option.isPositional() ? "" : option.name() + ": ") + "there is no " + kind + "'" +
                     word + "'" + (near.empty() ? "; there are " + listOf(value.choices) : near));
  }
  const bool whole = value.kind == Value::Kind::Whole;
  if (whole || value.kind == Value::Kind::Number) {
    const std::optional<double> number = numberIn(word, whole);
    // Neither is a NaN within the limits.
    if (!number || !(*number >= value.least && *number <= value.most))
      throw UsageError(option.name() + ": '" + word + "' is no " + (whole ? "whole " : "") + "number from " +
                       numberText(value.least) + " to " + numberText(value.most));
  }
  if (word.empty() && value.kind != Value::Kind::Text)
    throw UsageError(option.name() + ": the name is empty");
  return word;
}

template <class Number>
Number read(const std::string& word) {
  return static_cast<Number>(numberIn(word, std::is_integral_v<Number>).value());
}

struct Take {
  const Names& words;

  void operator()(bool* flag) const { *flag = true; }
  void operator()(std::string* text) const { *text = words.back(); }
  void operator()(Names* texts) const { texts->insert(texts->end(), words.begin(), words.end()); }
  void operator()(std::optional<double>* number) const { *number = read<double>(words.back()); }
  void operator()(const std::function<void(const std::string&)>& reader) const { reader(words.back()); }
  template <class Number>
  void operator()(Number* number) const {
    *number = read<Number>(words.back());
  }
};

struct Standard {
  std::string operator()(const std::string* text) const { return *text; }
  std::string operator()(const std::optional<double>*) const { return ""; }
  std::string operator()(const Names*) const { return ""; }
  std::string operator()(const bool*) const { return ""; }
  std::string operator()(const std::function<void(const std::string&)>&) const { return ""; }
  template <class Number>
  std::string operator()(const Number* number) const {
    return numberText(static_cast<double>(*number));
  }
};

}  // namespace

Value Value::commas() const {
  Value value = *this;
  value.several = Several::Commas;
  return value;
}

Value Value::words() const {
  Value value = *this;
  value.several = Several::Words;
  return value;
}

Value textValue(std::string label) {
  return {Value::Kind::Text, std::move(label)};
}

Value wholeNumber(double least, double most) {
  return {Value::Kind::Whole, "NUMBER", {}, least, most};
}

Value number(double least, double most, std::string label) {
  return {Value::Kind::Number, std::move(label), {}, least, most};
}

Value fileValue(std::string label) {
  return {Value::Kind::File, std::move(label)};
}

Value folderValue(std::string label) {
  return {Value::Kind::Folder, std::move(label)};
}

Value framesValue(std::string label) {
  return {Value::Kind::Frames, std::move(label)};
}

Value oneOf(std::string label, Names choices) {
  return {Value::Kind::Choice, std::move(label), std::move(choices)};
}

Option& Option::required() {
  isRequired = true;
  standard.clear();
  return *this;
}

Option& Option::anyCase() {
  isAnyCase = true;
  return *this;
}

void Option::take(const Names& words) const {
  Names values;
  for (const std::string& word : words)
    for (const std::string& part : value.several == Value::Several::Commas ? separated(word) : Names{word})
      values.push_back(value.kind == Value::Kind::None ? part : fitting(*this, part));
  std::visit(Take{values}, target);
}

Option& Command::add(const std::string& names, Target target, std::string description, Value value) {
  Option option;
  option.names = separated(names);
  option.description = std::move(description);
  option.value = std::move(value);
  option.target = std::move(target);
  option.standard = std::visit(Standard(), option.target);
  options.push_back(std::move(option));
  return options.back();
}

Option& Command::add(const std::string& names, bool& flag, std::string description) {
  return add(names, &flag, std::move(description), Value());
}

void addCommon(Command& command) {
  command.add("-q,--quiet", settings().quiet, "No notes and no progress, only errors");
}

std::string suggestion(const std::string& word, const Names& names) {
  const std::string found = nearest(word, names);
  return found.empty() ? "" : "; did you mean '" + found + "'?";
}

std::string listOf(const Names& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

void requireApart(bool one, const std::string& a, bool other, const std::string& b) {
  if (one && other) throw UsageError(a + " and " + b + " do not go together");
}

void requireNamed(const std::string& path, const std::string& option) {
  if (path == "-") throw UsageError(option + ": cannot be standard output; ./- is what is called so");
}

}  // namespace tool
