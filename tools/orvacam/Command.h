#ifndef ORVACAM_TOOL_COMMAND_H
#define ORVACAM_TOOL_COMMAND_H

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// What the program's commands say of themselves. A command is described once, in its own source: from that
// the command line is read, and help, man pages and completions are made. Commands.cpp lists the commands.

namespace tool {

using Names = std::vector<std::string>;

/// What may stand behind an option, or in a place of its own. What does not fit is refused.
struct Value {
  enum class Kind {
    None,  ///< the option stands alone
    Text,
    Whole,   ///< a whole number
    Number,  ///< any number
    Choice,  ///< one of the choices
    File,
    Folder,
    Frames  ///< a file or a folder of files
  };
  enum class Several { No, Commas, Words };  ///< "a,b" in one word; "a b" up to the next option

  Kind kind = Kind::None;
  std::string label;  ///< as help shows it
  Names choices = {};
  double least = 0, most = 0;  ///< of numbers
  Several several = Several::No;

  Value commas() const;  ///< several of them, with commas between
  Value words() const;   ///< several of them, a word each
};

Value textValue(std::string label);
Value wholeNumber(double least = 0, double most = std::numeric_limits<unsigned>::max());
Value number(double least, double most = std::numeric_limits<double>::max(), std::string label = "NUMBER");
Value fileValue(std::string label = "FILE");
Value folderValue(std::string label = "FOLDER");
Value framesValue(std::string label = "FILE");
/// A format, a plane, a camera, a method: one of these, as they are.
Value oneOf(std::string label, Names choices);

/// Where an option's value goes; for a function, that reads it itself and throws UsageError.
using Target = std::variant<bool*, std::string*, Names*, int*, unsigned*, unsigned long*, double*,
                            std::optional<double>*, std::function<void(const std::string&)>>;

/// An option, or what stands in a place of its own ("FILE").
struct Option {
  Names names;  ///< "-o", "--output"
  std::string description;
  Value value;
  Target target;
  bool isRequired = false, isAnyCase = false;
  std::string standard;  ///< the value when it is not given, as help shows it

  bool isPositional() const { return names.front().front() != '-'; }
  /// The longest name: "--output".
  const std::string& name() const { return names.back(); }
  Option& required();
  /// Of a choice: in capitals or not; what is kept is the name as it stands in the list.
  Option& anyCase();
  /// Gives the value to its target. Throws UsageError for what does not fit.
  void take(const Names& words) const;
};

/// What may be called, and how.
struct Command {
  std::string name, what;  ///< in one sentence
  Names examples;          ///< whole command lines, the most telling one first
  std::vector<Option> options = {};
  std::function<int()> run = {};  ///< gives the exit code; throws UsageError

  /// Names with commas between: "-o,--output", or "FILE" for what has no name.
  Option& add(const std::string& names, Target target, std::string description, Value value);
  Option& add(const std::string& names, bool& flag, std::string description);
};

/// What every command has: --quiet.
void addCommon(Command& command);

/// A command with its options: describe() tells what there is, run() does it.
template <class Options>
Command commandOf(std::string name, std::string what, Names examples,
                  void (*describe)(Command& command, Options& options), int (*run)(const Options& options)) {
  Command command{std::move(name), std::move(what), std::move(examples)};
  const auto options = std::make_shared<Options>();
  describe(command, *options);
  addCommon(command);
  command.run = [options, run] { return run(*options); };
  return command;
}

/// "; did you mean 'NAME'?" where a name is near, else "".
std::string suggestion(const std::string& word, const Names& names);

/// "a, b, c".
std::string listOf(const Names& names);

/// Throws UsageError when both are given.
void requireApart(bool one, const std::string& a, bool other, const std::string& b);
/// Throws UsageError for "-" where an output cannot be standard output: a folder, a second output.
void requireNamed(const std::string& path, const std::string& option);

}  // namespace tool

#endif  // ORVACAM_TOOL_COMMAND_H
