// Ctrl-C while something is being written: the work ends at its next pause and cleans up behind itself.
#ifndef ZMV_TOOLS_INTERRUPT_H
#define ZMV_TOOLS_INTERRUPT_H

#include <csignal>

namespace zmv::tool {

// A write beyond the size that files may have fails with its code from now on, and no longer ends the program, which
// would leave what is half written behind.
void LetLargeWritesFail();

// While it lives, the first SIGINT, SIGTERM or SIGHUP is only noted; a second one of its kind ends the program as
// usual. A program that ignores SIGHUP, as under nohup, goes on to. One at a time.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  static bool Requested();

 private:
  struct sigaction interrupt_before_;
  struct sigaction terminate_before_;
  struct sigaction hangup_before_;
};

}  // namespace zmv::tool

#endif
