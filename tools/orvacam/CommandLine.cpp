// The command line: the one place that knows CLI11, which takes words apart. What they mean is the commands'.

#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <orvacam.hpp>

#include "Commands.h"
#include "Help.h"
#include "Program.h"

namespace tool {

namespace {

/// Shows our own help.
class HelpOf : public CLI::FormatterBase {
 public:
  explicit HelpOf(std::string text) : m_text(std::move(text)) {}
  std::string make_help(const CLI::App*, std::string, CLI::AppFormatMode) const override { return m_text; }

 private:
  std::string m_text;
};

void addOption(CLI::App& app, const Option& option) {
  std::string names;
  for (const std::string& name : option.names)
    names += (names.empty() ? "" : ",") + name;
  const auto take = [&option](const Names& words) {
    try {
      option.take(words);
    } catch (const UsageError& error) {
      throw CLI::ValidationError("", error.what());
    }
  };
  CLI::Option* added = nullptr;
  if (option.value.kind == Value::Kind::None)
    added = app.add_flag_callback(names, [take] { take({"true"}); });
  else
    added = app.add_option(names, [take](const CLI::results_t& words) {
      take(words);
      return true;
    });
  if (option.value.several != Value::Several::No) added->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  if (option.value.several == Value::Several::Words)
    added->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
  added->required(option.isRequired);
}

Names commandNames(const std::vector<Command>& commands) {
  Names names;
  for (const Command& command : commands)
    names.push_back(command.name);
  return names;
}

Names optionNames(const Command* command) {
  Names names = {"-h", "--help"};
  if (command == nullptr) names.insert(names.end(), {"--version", "--json"});
  if (command != nullptr)
    for (const Option& option : command->options)
      names.insert(names.end(), option.names.begin(), option.names.end());
  return names;
}

/// The first word that means nothing where it stands, without a value behind "="; "" for none.
std::string firstUnknown(const CLI::App& app) {
  const std::vector<std::string> extras = app.remaining(true);
  return extras.empty() ? "" : extras.front().substr(0, extras.front().find('='));
}

/// One sentence for what the parser refused.
std::string complaintOf(const CLI::App& app, const std::vector<Command>& commands, const Command* chosen,
                        const CLI::ParseError& error) {
  const std::string where = chosen == nullptr ? "" : chosen->name + ": ";
  const std::string word = firstUnknown(app);
  const bool isOption = word.rfind('-', 0) == 0;
  // "--ouput FOLDER" misses --output, too: what is misspelt is the cause.
  const bool isMisspelt = isOption && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  if (isMisspelt || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    if (chosen == nullptr && !isOption)
      return "there is no command '" + word + "'" + suggestion(word, commandNames(commands));
    if (!isOption) return where + "'" + word + "' is one argument too many";
    const Names names = optionNames(chosen);
    if (std::find(names.begin(), names.end(), word) != names.end())
      return word + ": stands behind the command";
    return where + "there is no option '" + word + "'" + suggestion(word, names);
  }
  const std::string text = error.what();
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    const std::string name = text.substr(0, text.find(':'));
    const bool missing = text.find("missing") != std::string::npos;
    return where + name + (missing ? ": the value is missing" : ": is given more than once");
  }
  return where + (text.rfind(": ", 0) == 0 ? text.substr(2) : text);
}

const Command* chosenOf(const CLI::App& app, const std::vector<Command>& commands) {
  const auto chosen = app.get_subcommands();
  if (chosen.empty()) return nullptr;
  for (const Command& command : commands)
    if (command.name == chosen.front()->get_name()) return &command;
  return nullptr;
}

/// The call that helps, behind what was wrong with one.
std::string helpFor(const Command* command) {
  return " (orvacam " + (command == nullptr ? "" : command->name + " ") + "--help)";
}

/// Reads the command line and does what it says. Throws UsageError.
int called(const std::vector<Command>& commands, int argc, char** argv) {
  CLI::App app{"", "orvacam"};
  app.set_help_flag("-h,--help", "");
  bool version = false, json = false;
  app.add_flag("--version", version);
  app.add_flag("--json", json);
  app.require_subcommand(0, 1);
  app.formatter(std::make_shared<HelpOf>(helpOf(commands)));
  for (const Command& command : commands) {
    CLI::App* const sub = app.add_subcommand(command.name);
    sub->formatter(std::make_shared<HelpOf>(helpOf(command)));
    for (const Option& option : command.options)
      addOption(*sub, option);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    return app.exit(request, std::cout, std::cerr);
  } catch (const CLI::ParseError& error) {
    const Command* const chosen = chosenOf(app, commands);
    settings().help = helpFor(chosen);
    throw UsageError(complaintOf(app, commands, chosen, error));
  }
  const Command* const chosen = chosenOf(app, commands);
  settings().help = helpFor(chosen);
  if (json && !version) throw UsageError("--json: stands behind a command, or with --version");
  if (version) {
    std::cout << (json ? versionJson(commands) : "orvacam " + orvacam::version()) << '\n';
    return Good;
  }
  const std::string log = settings().log;
  if (log == "-") settings().log.clear();  // it would be told what is wrong
  requireNamed(log, "--log");
  return chosen == nullptr ? static_cast<int>(Good) : chosen->run();
}

}  // namespace

int runProgram(int argc, char** argv) {
  resetSettings();
  const std::vector<Command> commands = allCommands();
  Outcome outcome;
  outcome.add(attempt("", [&] {
    if (argc < 2)
      std::cout << overviewOf(commands);
    else
      outcome.add(attemptCode("", [&] { return called(commands, argc, argv); }));
    flushOutput();
  }));
  if (!endLog(outcome.code())) outcome.add(NotWritten);
  return outcome.code();
}

}  // namespace tool
