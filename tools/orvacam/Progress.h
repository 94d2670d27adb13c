#ifndef ORVACAM_TOOL_PROGRESS_H
#define ORVACAM_TOOL_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace tool {

/// How far a run is, as --progress and --quiet ask for it: a line on a terminal, or objects of JSON, on
/// standard error; and what became of each input, in the log.
class Progress {
 public:
  /// `total` inputs; 0 when nobody knows how many will come.
  explicit Progress(std::size_t total);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  /// Shows the end.
  ~Progress();
  /// One input is done, or has failed.
  void step(const std::string& subject, bool failed);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Style { None, Terminal, Lines, Json };
  static Style styleAsked();
  void show(bool isEnd);
  double rate() const;
  std::string text() const;
  std::string json(const char* event) const;

  Style m_style;
  std::size_t m_total, m_done = 0, m_failed = 0;
  Clock::time_point m_begin = Clock::now(), m_shown{};
};

}  // namespace tool

#endif  // ORVACAM_TOOL_PROGRESS_H
