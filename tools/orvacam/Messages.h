#ifndef ORVACAM_TOOL_MESSAGES_H
#define ORVACAM_TOOL_MESSAGES_H

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

// What the program says beside its results: on standard error, and in the log.

namespace tool {

/// "orvacam: SUBJECT: what" on standard error; control characters are shown escaped.
void complain(const std::string& subject, const std::string& what);
/// The same of a call that cannot be meant, which no log is begun for.
void complainOfUsage(const std::string& what);
/// The same for what is not wrong; silent with --quiet.
void note(const std::string& subject, const std::string& what);
/// A line for the log alone.
void logLine(const std::string& text);

/// How a run speaks: what --quiet, --log, --jobs and --progress say.
struct Settings {
  bool quiet = false;
  std::string log;
  unsigned jobs = 1;
  std::string progress = "auto";
  std::string help;  ///< " (orvacam COMMAND --help)", behind what was wrong with a call
};
Settings& settings();
/// Those of a run that begins.
void resetSettings();

/// Says in the log how the run ended. False when the log could not be written.
bool endLog(int exitCode);

enum class Colour { None, Red, Green, Yellow };
/// The text in a colour where a descriptor is a terminal that shows it and nobody wants none (NO_COLOR).
std::string coloured(const std::string& text, Colour colour, int descriptor);

/// A line at the bottom of a terminal that messages and results do not break into.
class StatusLine {
 public:
  /// Shows it in place of the one before; "" shows none.
  static void show(const std::string& text);
  /// Whether one is shown: for signal handlers.
  static bool isShown();
};

/// Something that was said.
struct Said {
  enum Kind { Output, Complaint, Note } kind;
  std::string subject, text;
};
void sayAgain(const Said& said);

/// While it lives, results on std::cout and messages are kept instead of shown.
class Capture {
 public:
  Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture();
  void keep(Said said);
  /// What was said since the last time.
  std::vector<Said> take();

 private:
  std::stringbuf m_output;
  std::streambuf* m_before;
  std::vector<Said> m_said;
};

}  // namespace tool

#endif  // ORVACAM_TOOL_MESSAGES_H
