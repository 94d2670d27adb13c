#include "Progress.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iostream>

#include "Messages.h"
#include "files/Json.h"

namespace tool {

namespace {

/// "1:02:03", "2:03".
std::string clockText(double seconds) {
  const auto all = static_cast<long long>(std::llround(seconds));
  char text[40];
  if (all < 3600)
    std::snprintf(text, sizeof text, "%lld:%02lld", all / 60, all % 60);
  else
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", all / 3600, all / 60 % 60, all % 60);
  return text;
}

}  // namespace

Progress::Style Progress::styleAsked() {
  const std::string& asked = settings().progress;
  if (settings().quiet || asked == "never") return Style::None;
  if (asked == "json") return Style::Json;
  if (isatty(STDERR_FILENO) == 1) return Style::Terminal;
  return asked == "always" ? Style::Lines : Style::None;
}

Progress::Progress(std::size_t total) : m_style(styleAsked()), m_total(total) {
  logLine("begin: " + (total > 0 ? std::to_string(total) + " inputs" : std::string("watching")));
}

Progress::~Progress() {
  show(true);
  logLine(std::to_string(m_done - m_failed) + " done, " + std::to_string(m_failed) + " failed");
}

void Progress::step(const std::string& subject, bool failed) {
  ++m_done;
  if (failed) ++m_failed;
  logLine(subject + (failed ? ": failed" : ": done"));
  // Often enough to be looked at, rarely enough to cost nothing.
  constexpr std::chrono::milliseconds pause[] = {std::chrono::milliseconds(100),
                                                 std::chrono::milliseconds(1000)};
  const Clock::time_point now = Clock::now();
  if (m_shown != Clock::time_point{} && now - m_shown < pause[m_style == Style::Lines ? 1 : 0]) return;
  m_shown = now;
  show(false);
}

double Progress::rate() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
  return seconds > 0 ? static_cast<double>(m_done) / seconds : 0;
}

std::string Progress::text() const {
  char speed[64];
  std::snprintf(speed, sizeof speed, ", %.1f/s", rate());
  std::string text = std::to_string(m_done);
  if (m_total > 0) text += " of " + std::to_string(m_total);
  if (m_failed > 0) text += " (" + std::to_string(m_failed) + " failed)";
  text += speed;
  if (m_done < m_total && rate() > 0)
    text += ", " + clockText(static_cast<double>(m_total - m_done) / rate()) + " left";
  return text;
}

std::string Progress::json(const char* event) const {
  orvacam::files::JsonObject object;
  object.text("event", event).whole("done", static_cast<std::int64_t>(m_done));
  if (m_total > 0)
    object.whole("total", static_cast<std::int64_t>(m_total));
  else
    object.raw("total", "null");
  object.whole("failed", static_cast<std::int64_t>(m_failed)).number("rate_per_second", rate());
  if (m_total > 0 && rate() > 0)
    object.number("seconds_left", static_cast<double>(m_total - m_done) / rate());
  else
    object.raw("seconds_left", "null");
  return object.str();
}

void Progress::show(bool isEnd) {
  switch (m_style) {
    case Style::None:
      return;
    case Style::Json:
      std::cout.flush();
      std::cerr << json(isEnd ? "end" : "progress") << std::endl;
      return;
    case Style::Lines:
      std::cout.flush();
      std::cerr << "orvacam: " << text() << std::endl;
      return;
    case Style::Terminal:
      StatusLine::show(text());
      if (!isEnd) return;
      StatusLine::show("");
      std::cerr << text() << std::endl;
  }
}

}  // namespace tool
