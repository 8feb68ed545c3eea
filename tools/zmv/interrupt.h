// Ctrl-C while something is being written: the work ends at its next pause and cleans up behind itself.
#ifndef ZMV_TOOLS_INTERRUPT_H
#define ZMV_TOOLS_INTERRUPT_H

#include <csignal>

namespace zmv::tool {

// While it lives, the first SIGINT or SIGTERM is only noted; a second one ends the program as usual. One at a time.
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
};

}  // namespace zmv::tool

#endif
