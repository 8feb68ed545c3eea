#include "tools/zmv/console.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace zmv::tool {
namespace {

constexpr int kBarWidth = 30;
constexpr auto kBarInterval = std::chrono::milliseconds(100);
constexpr const char* kYellow = "\x1b[33m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kPlain = "\x1b[0m";
constexpr const char* kClearLine = "\r\x1b[K";

}  // namespace

Console::Console() : terminal_(isatty(STDERR_FILENO) != 0) {
  const char* no_colour = std::getenv("NO_COLOR");
  colour_ = terminal_ && (no_colour == nullptr || *no_colour == '\0');
}

Console::~Console() { EndProgress(); }

void Console::Line(const char* colour, const char* tag, const std::string& text) {
  EndProgress();
  fmt::print(stderr, "{}{}{}{}\n", colour_ ? colour : "", tag, colour_ ? kPlain : "", text);
}

void Console::Note(const std::string& text) {
  if (quiet_) return;
  EndProgress();
  fmt::print(stderr, "{}\n", text);
}

void Console::Warning(const std::string& text) { Line(kYellow, "warning: ", text); }

void Console::Error(const std::string& text) { Line(kRed, "error: ", text); }

void Console::Progress(const std::string& label, double done) {
  if (quiet_ || !terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (bar_shown_ && now - last_bar_ < kBarInterval) return;
  last_bar_ = now;
  bar_shown_ = true;
  const double part = std::clamp(done, 0.0, 1.0);
  const int filled = static_cast<int>(part * kBarWidth);
  fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3.0f} %", label, "", filled, "", kBarWidth - filled, part * 100.0);
  std::fflush(stderr);
}

void Console::EndProgress() {
  if (!bar_shown_) return;
  bar_shown_ = false;
  std::fputs(kClearLine, stderr);
}

std::string Grouped(uint64_t number) {
  std::string digits = std::to_string(number);
  for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
  return digits;
}

std::string ClockText(uint64_t milliseconds) {
  const uint64_t seconds = milliseconds / 1000;
  return fmt::format("{:02}:{:02}:{:02}.{:03}", seconds / 3600, seconds / 60 % 60, seconds % 60, milliseconds % 1000);
}

}  // namespace zmv::tool
