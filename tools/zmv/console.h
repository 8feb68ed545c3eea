// Messages, warnings and the progress bar; everything here goes to standard error, data goes to standard output.
#ifndef ZMV_TOOLS_CONSOLE_H
#define ZMV_TOOLS_CONSOLE_H

#include <chrono>
#include <cstdint>
#include <string>

namespace zmv::tool {

class Console {
 public:
  Console();
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  void set_quiet(bool quiet) { quiet_ = quiet; }

  void Note(const std::string& text);     // dropped with --quiet
  void Warning(const std::string& text);  // "warning: ..."
  void Error(const std::string& text);    // "error: ..."

  // Draws the bar on a terminal, at most ten times a second; `done` is between 0 and 1.
  void Progress(const std::string& label, double done);
  void EndProgress();

 private:
  void Line(const char* colour, const char* tag, const std::string& text);

  bool quiet_ = false;
  bool terminal_ = false;
  bool colour_ = false;
  bool bar_shown_ = false;
  std::chrono::steady_clock::time_point last_bar_;
};

// 1234567 as "1,234,567".
std::string Grouped(uint64_t number);
// Milliseconds as "00:01:02.345".
std::string ClockText(uint64_t milliseconds);

}  // namespace zmv::tool

#endif
