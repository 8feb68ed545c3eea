#include "tools/zmv/interrupt.h"

namespace zmv::tool {
namespace {

volatile std::sig_atomic_t requested = 0;

void Note(int) { requested = 1; }

}  // namespace

void LetLargeWritesFail() {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &action, nullptr);
}

Interrupt::Interrupt() {
  requested = 0;
  struct sigaction action {};
  action.sa_handler = &Note;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigaction(SIGINT, &action, &interrupt_before_);
  sigaction(SIGTERM, &action, &terminate_before_);
  sigaction(SIGHUP, nullptr, &hangup_before_);
  if (hangup_before_.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);
}

Interrupt::~Interrupt() {
  sigaction(SIGINT, &interrupt_before_, nullptr);
  sigaction(SIGTERM, &terminate_before_, nullptr);
  sigaction(SIGHUP, &hangup_before_, nullptr);
}

bool Interrupt::Requested() { return requested != 0; }

}  // namespace zmv::tool
