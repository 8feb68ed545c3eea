// Tells the caller how far a call has got, now and then, and hears whether it is to stop.
#ifndef ZMV_RECOVER_PROGRESS_H
#define ZMV_RECOVER_PROGRESS_H

#include <cstdint>

#include "recover/zmvrecover.h"

namespace zmv::recover {

class Progress {
 public:
  // Bytes between two calls of the callback.
  static constexpr uint64_t kStep = 1u << 20;

  Progress() = default;
  Progress(const ZMVRecoverParam& param, uint64_t total)
      : callback_(param.pfnProgress), context_(param.pContext), total_(total) {}

  // A pass over the file that begins when `base` of the bytes are done.
  void StartPass(uint64_t base) {
    base_ = base;
    next_ = base;
  }
  // False when the call is to stop. `position` counts from the start of the pass.
  bool Reached(uint64_t position) {
    const uint64_t done = base_ + position;
    if (callback_ == nullptr || done < next_) return true;
    next_ = done + kStep;
    return callback_(context_, done < total_ ? done : total_, total_) == 0;
  }
  // The same while something takes time in which nothing is done.
  bool Waiting() {
    constexpr uint32_t kPause = 64;
    if (callback_ == nullptr || ++waits_ % kPause != 0) return true;
    return callback_(context_, base_ < total_ ? base_ : total_, total_) == 0;
  }
  // The last call: everything is done.
  bool Finished() { return callback_ == nullptr || callback_(context_, total_, total_) == 0; }

 private:
  uint32_t (*callback_)(void* context, uint64_t done, uint64_t total) = nullptr;
  void* context_ = nullptr;
  uint64_t total_ = 0;
  uint64_t base_ = 0;
  uint64_t next_ = 0;
  uint32_t waits_ = 0;
};

}  // namespace zmv::recover

#endif
