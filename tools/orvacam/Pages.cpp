#include "Pages.h"

#include <algorithm>
#include <orvacam.hpp>

#include "Help.h"

namespace tool {

namespace {

/// Every character of a set gets something ahead of it.
std::string escaped(const std::string& text, const std::string& set, const std::string& ahead) {
  std::string result;
  for (const char c : text) {
    if (set.find(c) != std::string::npos) result += ahead;
    result += c;
  }
  return result;
}

std::string joined(const Names& names, const std::string& between) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : between) + name;
  return text;
}

bool takesFiles(const Value& value) {
  return value.kind == Value::Kind::File || value.kind == Value::Kind::Frames;
}

/// What stands without a name, in its order.
std::vector<Option> placesOf(const Command& command) {
  std::vector<Option> places;
  for (const Option& option : command.options)
    if (option.isPositional()) places.push_back(option);
  return places;
}

/// --help of a command, which the parser adds.
Option helpOption() {
  Option help;
  help.names = {"-h", "--help"};
  help.description = "Show this help";
  return help;
}

/// What begins with a dash, --help first.
std::vector<Option> namedOptions(const Command& command) {
  std::vector<Option> options = {helpOption()};
  for (const Option& option : command.options)
    if (!option.isPositional()) options.push_back(option);
  return options;
}

// ---- Manual pages

/// Text as it is: nothing in it is a request.
std::string roff(const std::string& text) {
  std::string result;
  for (const char c : text)
    result += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
  return (result.rfind('.', 0) == 0 || result.rfind('\'', 0) == 0 ? "\\&" : "") + result;
}

std::string manTitle(const std::string& name, const std::string& what) {
  std::string upper = name, line = what;
  std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
  if (!line.empty() && line.back() == '.') line.pop_back();
  return ".TH " + roff(upper) + " 1 \"\" \"orvacam " + orvacam::version() +
         "\" \"User Commands\"\n.SH NAME\n" + roff(name) + " \\- " + roff(line) + "\n";
}

std::string manEntry(const Option& option) {
  std::string names;
  for (const std::string& name : option.names) {
    if (!names.empty()) names += ", ";
    names += (option.isPositional() ? "\\fI" : "\\fB") + roff(name) + "\\fR";
  }
  const std::string value = valueOf(option);
  if (option.isPositional())
    names = "\\fI" + roff(value) + "\\fR";
  else if (!value.empty())
    names += " \\fI" + roff(value) + "\\fR";
  return ".TP\n" + names + "\n" + roff(sentencesOf(option)) + "\n";
}

constexpr const char* exitStatus =
    ".SH EXIT STATUS\n"
    ".TP\n\\fB0\\fR\nAll is done.\n"
    ".TP\n\\fB1\\fR\nAn input failed, or a check found something; the other inputs are done.\n"
    ".TP\n\\fB2\\fR\nWrong usage: nothing is done.\n"
    ".TP\n\\fB3\\fR\nAn output could not be written, or is there already; the others are done.\n"
    ".TP\n\\fB129\\fR, \\fB130\\fR, \\fB143\\fR\nStopped by HUP, INT or TERM; no file is left half "
    "written.\n";

std::string manPage(const Command& command) {
  const std::string name = "orvacam-" + command.name;
  std::string text = manTitle(name, command.what) + ".SH SYNOPSIS\n\\fBorvacam " + roff(command.name) +
                     "\\fR [\\fIOPTIONS\\fR]";
  std::string places, options;
  for (const Option& option : command.options)
    if (option.isPositional()) {
      places += manEntry(option);
      const std::string value = "\\fI" + roff(valueOf(option)) + "\\fR";
      text += option.isRequired ? " " + value : " [" + value + "]";
    }
  for (const Option& option : namedOptions(command))
    options += manEntry(option);
  text += "\n.SH DESCRIPTION\n" + roff(command.what) + "\n" + places;
  text += ".SH OPTIONS\n" + options + exitStatus + ".SH EXAMPLES\n";
  for (const std::string& example : command.examples)
    text +=
        std::string(example == command.examples.front() ? "" : ".PP\n") + ".EX\n" + roff(example) + "\n.EE\n";
  return text + ".SH SEE ALSO\n.BR orvacam (1)\n";
}

std::string manPage(const std::vector<Command>& commands) {
  std::string text = manTitle("orvacam", "raw frames of scientific cameras") +
                     ".SH SYNOPSIS\n\\fBorvacam\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR]\n.SH DESCRIPTION\n" +
                     "Looks at raw frames, converts them, stacks them and makes them.\n.SH COMMANDS\n";
  std::string others;
  for (const Command& command : commands) {
    text += ".TP\n\\fB" + roff(command.name) + "\\fR\n" + roff(command.what) + "\n";
    others += std::string(others.empty() ? "" : " ,\n") + ".BR " + roff("orvacam-" + command.name) + " (1)";
  }
  text += ".SH OPTIONS\n";
  for (const Option& option : programOptions())
    text += manEntry(option);
  return text + exitStatus + ".SH SEE ALSO\n" + others + "\n";
}

// ---- bash

/// What completes a value: a line of the shell's.
std::string bashValue(const Value& value) {
  switch (value.kind) {
    case Value::Kind::Choice:
      return std::string(value.several == Value::Several::Commas ? "_orvacam_list" : "_orvacam_words") +
             " '" + joined(value.choices, " ") + "'";
    case Value::Kind::Folder:
      return "_orvacam_names -d";
    case Value::Kind::File:
    case Value::Kind::Frames:
      return "_orvacam_names -f";
    default:
      return ":";
  }
}

/// The first word behind the command may be another thing than those that follow; files where nothing is
/// said.
std::string bashPlaces(const std::vector<Option>& places) {
  if (places.empty()) return "_orvacam_names -f";
  if (places.size() == 1) return bashValue(places[0].value);
  return "if ((COMP_CWORD == i + 1)); then " + bashValue(places[0].value) + "; else " +
         bashValue(places[1].value) + "; fi";
}

constexpr const char* bashBegin = R"(# Completion of orvacam in bash.
_orvacam_words() {
  COMPREPLY=($(compgen -W "$1" -- "$word"))
}
# The last of a list with commas.
_orvacam_list() {
  local ahead=
  [[ $word == *,* ]] && ahead=${word%,*},
  COMPREPLY=($(compgen -P "$ahead" -W "$1" -- "${word##*,}"))
}
_orvacam_names() {
  compopt -o filenames 2>/dev/null
  local IFS=$'\n'
  COMPREPLY=($(compgen "$1" -- "$word"))
}
_orvacam() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= i
  COMPREPLY=()
  # "--format=fi" comes as three words.
  if [[ $word == = ]]; then
    word=
  elif [[ $before == = ]]; then
    before=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  for ((i = 1; i < COMP_CWORD; ++i)); do
    if [[ ${COMP_WORDS[i]} != -* ]]; then
      command=${COMP_WORDS[i]}
      break
    fi
  done
  case $command:$before in
)";

std::string bashPage(const std::vector<Command>& commands) {
  std::string values, names, places, all;
  for (const Command& command : commands) {
    Names words;
    for (const Option& option : namedOptions(command)) {
      words.insert(words.end(), option.names.begin(), option.names.end());
      if (option.value.kind == Value::Kind::None) continue;
      std::string patterns;
      for (const std::string& name : option.names)
        patterns += (patterns.empty() ? "" : " | ") + command.name + ":" + name;
      values += "    " + patterns + ")\n      " + bashValue(option.value) + "\n      return\n      ;;\n";
    }
    names += "    " + command.name + ":-*) _orvacam_words '" + joined(words, " ") + "' ;;\n";
    places += "    " + command.name + ":*) " + bashPlaces(placesOf(command)) + " ;;\n";
    all += (all.empty() ? "" : " ") + command.name;
  }
  Names ofProgram;
  for (const Option& option : programOptions())
    ofProgram.insert(ofProgram.end(), option.names.begin(), option.names.end());
  return bashBegin + values + "  esac\n  case $command:$word in\n    :-*) _orvacam_words '" +
         joined(ofProgram, " ") + "' ;;\n    :*) _orvacam_words '" + all + "' ;;\n" + names + places +
         "  esac\n}\ncomplete -F _orvacam orvacam\n";
}

// ---- zsh

std::string zshText(const std::string& text) {
  std::string plain;
  for (const char c : text)
    plain += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return escaped(plain, "[]:", "\\");
}

std::string zshAction(const Value& value) {
  switch (value.kind) {
    case Value::Kind::Choice:
      return value.several == Value::Several::Commas ? "_values -s , value " + joined(value.choices, " ")
                                                     : "(" + joined(value.choices, " ") + ")";
    case Value::Kind::Folder:
      return "_files -/";
    case Value::Kind::File:
    case Value::Kind::Frames:
      return "_files";
    default:
      return " ";
  }
}

std::string zshSpec(const Option& option) {
  if (option.isPositional()) {
    const bool many = option.value.several != Value::Several::No;
    return "'" + std::string(many ? "*" : "1") + ":" + zshText(option.names[0]) + ":" +
           zshAction(option.value) + "'";
  }
  const bool hasValue = option.value.kind != Value::Kind::None;
  const std::string text =
      "[" + zshText(option.description) + "]" +
      (hasValue ? ":" + zshText(option.value.label) + ":" + zshAction(option.value) : "") + "'";
  Names names = option.names;
  for (std::string& name : names)
    if (hasValue && name.rfind("--", 0) == 0) name += "=";
  if (names.size() == 1) return "'" + names[0] + text;
  return "'(" + joined(option.names, " ") + ")'{" + joined(names, ",") + "}'" + text;
}

std::string zshPage(const std::vector<Command>& commands) {
  std::string all, cases, program;
  for (const Command& command : commands) {
    all += "    '" + command.name + ":" + zshText(command.what) + "'\n";
    cases += "        " + command.name + ")\n          _arguments";
    for (const Option& option : namedOptions(command))
      cases += " \\\n            " + zshSpec(option);
    for (const Option& place : placesOf(command))
      cases += " \\\n            " + zshSpec(place);
    // What follows the first word of an option of several; zsh's own way knows no option behind them.
    const std::vector<Option>& options = command.options;
    const auto more = std::find_if(options.begin(), options.end(), [](const Option& option) {
      return !option.isPositional() && option.value.several == Value::Several::Words;
    });
    if (more != options.end())
      cases += " \\\n            '*:" + zshText(more->value.label) + ":" + zshAction(more->value) + "'";
    cases += "\n          ;;\n";
  }
  for (const Option& option : programOptions())
    program += "    " + zshSpec(option) + " \\\n";
  return "#compdef orvacam\n# Completion of orvacam in zsh.\n_orvacam() {\n"
         "  local curcontext=$curcontext state line\n  local -a commands\n  commands=(\n" +
         all + "  )\n  _arguments -C \\\n" + program +
         "    '1:command:->command' \\\n    '*::argument:->argument'\n"
         "  case $state in\n    command) _describe command commands ;;\n    argument)\n      case $line[1] "
         "in\n" +
         cases + "      esac\n      ;;\n  esac\n}\n_orvacam \"$@\"\n";
}

// ---- fish

std::string fishText(const std::string& text) {
  return "'" + escaped(text, "\\'", "\\") + "'";
}

std::string fishValue(const Value& value) {
  switch (value.kind) {
    case Value::Kind::None:
      return "";
    case Value::Kind::Choice: {
      if (value.several != Value::Several::Commas) return " -x -a '" + joined(value.choices, " ") + "'";
      return " -x -a '(__fish_append , " + joined(value.choices, " ") + ")'";
    }
    case Value::Kind::Folder:
      return " -x -a '(__fish_complete_directories)'";
    case Value::Kind::File:
    case Value::Kind::Frames:
      return " -r -F";
    default:
      return " -x";
  }
}

std::string fishLine(const std::string& condition, const Option& option) {
  std::string line = "complete -c orvacam -n '" + condition + "'";
  for (const std::string& name : option.names)
    line += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
  return line + fishValue(option.value) + " -d " + fishText(option.description) + "\n";
}

std::string fishPage(const std::vector<Command>& commands) {
  std::string text = "# Completion of orvacam in fish.\ncomplete -c orvacam -f\n";
  for (const Option& option : programOptions())
    text += fishLine("__fish_use_subcommand", option);
  for (const Command& command : commands) {
    text += "complete -c orvacam -n __fish_use_subcommand -a " + command.name + " -d " +
            fishText(command.what) + "\n";
    const std::string seen = "__fish_seen_subcommand_from " + command.name;
    const std::vector<Option> places = placesOf(command);
    if (places.empty() || takesFiles(places.back().value))
      text += "complete -c orvacam -n '" + seen + "' -F\n";
    if (!places.empty() && places[0].value.kind == Value::Kind::Choice)
      text += "complete -c orvacam -n '" + seen + "' -a '" + joined(places[0].value.choices, " ") + "'\n";
    for (const Option& option : namedOptions(command))
      text += fishLine(seen, option);
  }
  return text;
}

}  // namespace

std::vector<Page> pagesOf(const std::vector<Command>& commands) {
  std::vector<Page> pages = {{"man/man1/orvacam.1", manPage(commands)},
                             {"bash-completion/completions/orvacam", bashPage(commands)},
                             {"zsh/site-functions/_orvacam", zshPage(commands)},
                             {"fish/vendor_completions.d/orvacam.fish", fishPage(commands)}};
  for (const Command& command : commands)
    pages.push_back({"man/man1/orvacam-" + command.name + ".1", manPage(command)});
  return pages;
}

}  // namespace tool
