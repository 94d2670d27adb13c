#include "Messages.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <utility>

#include "Program.h"
#include "files/FixedFiles.h"
#include "files/Text.h"

namespace tool {

namespace {

using orvacam::files::shownText;

Capture* capture = nullptr;
std::string statusText;
std::atomic<bool> statusIsShown{false};

/// The file of --log: opened when there is something to say.
class Log {
 public:
  ~Log() { close(); }

  void write(const std::string& text) {
    if (settings().log.empty() || !m_wrong.empty() || !begin()) return;
    const std::string line = orvacam::files::isoNow() + "Z " + text + "\n";
    // One call a line: runs that share a log do not break into each other's lines.
    if (::write(m_file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) fail();
  }
  bool isBegun() const { return m_file >= 0; }
  /// What is wrong with it, "" for nothing.
  const std::string& wrong() const { return m_wrong; }
  void close() {
    if (m_file >= 0) ::close(m_file);
    m_file = -1;
    m_wrong.clear();
  }

 private:
  bool begin() {
    if (m_file >= 0) return true;
    // What goes wrong early is said before inputs are known: a frame is never a log.
    using orvacam::files::FileKind;
    const FileKind kind = orvacam::files::kindOf(settings().log);
    if (kind != FileKind::Unreadable && kind != FileKind::Empty && kind != FileKind::Other) {
      m_wrong = "is a frame or a picture and stays as it is";
      return false;
    }
    // A pipe that nobody reads is an error, not a reason to wait.
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    m_file = open(settings().log.c_str(), flags | O_NONBLOCK, 0666);
    if (m_file < 0 || fcntl(m_file, F_SETFL, flags) != 0) fail();
    return m_wrong.empty();
  }
  void fail() { m_wrong = std::string("cannot be written: ") + std::strerror(errno); }

  int m_file = -1;
  std::string m_wrong;
};
Log theLog;

void clearStatus() {
  if (!statusIsShown) return;
  std::cerr << "\r\x1b[K" << std::flush;
  statusIsShown = false;
}

void drawStatus() {
  if (statusText.empty()) return;
  statusIsShown = true;
  std::cerr << "\r\x1b[K" << statusText << std::flush;
}

void showMessage(const std::string& subject, const std::string& what, Colour colour) {
  std::cout.flush();
  clearStatus();
  std::cerr << coloured("orvacam:", colour, STDERR_FILENO) << ' ' << shownText(subject)
            << (subject.empty() ? "" : ": ") << shownText(what) << '\n';
  drawStatus();
}

std::string logged(const std::string& subject, const std::string& what) {
  return shownText(subject) + (subject.empty() ? "" : ": ") + shownText(what);
}

}  // namespace

Settings& settings() {
  static Settings of;
  return of;
}

void resetSettings() {
  theLog.close();
  settings() = Settings();
  settings().jobs = processors();
}

void complain(const std::string& subject, const std::string& what) {
  if (capture != nullptr) return capture->keep({Said::Complaint, subject, what});
  showMessage(subject, what, Colour::Red);
  theLog.write(logged(subject, what));
}

void complainOfUsage(const std::string& sentence) {
  const std::string what = sentence + settings().help;
  if (capture != nullptr) return complain("", what);
  showMessage("", what, Colour::Red);
  if (theLog.isBegun()) theLog.write(logged("", what));
}

void note(const std::string& subject, const std::string& what) {
  if (capture != nullptr) return capture->keep({Said::Note, subject, what});
  if (!settings().quiet) showMessage(subject, what, Colour::Yellow);
  theLog.write(logged(subject, what));
}

void logLine(const std::string& text) {
  theLog.write(shownText(text));
}

bool endLog(int exitCode) {
  if (theLog.isBegun()) theLog.write("end: exit code " + std::to_string(exitCode));
  const std::string wrong = theLog.wrong();
  theLog.close();
  if (!wrong.empty()) showMessage(settings().log, wrong, Colour::Red);
  return wrong.empty();
}

std::string coloured(const std::string& text, Colour colour, int descriptor) {
  const char* const none = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool wanted = (none == nullptr || *none == '\0') && terminal != nullptr &&
                      std::strcmp(terminal, "dumb") != 0 && isatty(descriptor) == 1;
  if (colour == Colour::None || !wanted) return text;
  const char* const code = colour == Colour::Red ? "31" : colour == Colour::Green ? "32" : "33";
  return "\x1b[" + std::string(code) + "m" + text + "\x1b[0m";
}

void StatusLine::show(const std::string& text) {
  std::cout.flush();
  statusText = text;
  if (text.empty())
    clearStatus();
  else
    drawStatus();
}

bool StatusLine::isShown() {
  return statusIsShown;
}

void sayAgain(const Said& said) {
  switch (said.kind) {
    case Said::Output:
      clearStatus();
      std::cout << said.text;
      return;
    case Said::Complaint:
      return complain(said.subject, said.text);
    case Said::Note:
      return note(said.subject, said.text);
  }
}

Capture::Capture() : m_before(std::cout.rdbuf(&m_output)) {
  capture = this;
}

Capture::~Capture() {
  std::cout.rdbuf(m_before);
  capture = nullptr;
}

void Capture::keep(Said said) {
  std::string output = m_output.str();
  m_output.str("");
  if (!output.empty()) m_said.push_back({Said::Output, "", std::move(output)});
  if (said.kind != Said::Output) m_said.push_back(std::move(said));
}

std::vector<Said> Capture::take() {
  keep({Said::Output, "", ""});
  return std::exchange(m_said, {});
}

}  // namespace tool
