// A part of the file in memory, moved along as it is read. A payload that is larger than the window enlarges it, so it
// takes no more than the largest frame.
#ifndef ZMV_RECOVER_WINDOW_H
#define ZMV_RECOVER_WINDOW_H

#include <cstdint>

#include "base/host_memory.h"
#include "recover/recover_file.h"

namespace zmv::recover {

class Window {
 public:
  // What is read at once, the rest of the first sector included.
  static constexpr uint32_t kCapacity = 256 * 1024;

  explicit Window(File& file) : file_(file) {}

  // `count` bytes of the file, valid until the next call; null when the file has no such bytes or cannot be read there,
  // and then Error() tells which: 0 = beyond the end.
  const uint8_t* At(uint64_t position, uint32_t count) {
    const uint8_t* held = Held(position, count);
    return held != nullptr ? held : Fill(position, count);
  }
  // The same bytes when they are in memory already, else null. Moves nothing: what At returned stays valid.
  const uint8_t* Held(uint64_t position, uint32_t count) const {
    if (position < start_ || position - start_ > filled_ || count > filled_ - (position - start_)) return nullptr;
    return memory_.Get() + (position - start_);
  }
  int32_t Error() const { return error_; }
  File& file() const { return file_; }

 private:
  const uint8_t* Fill(uint64_t position, uint32_t count);
  bool Enlarge(uint64_t capacity);

  File& file_;
  HostMemory<uint8_t> memory_;
  uint32_t capacity_ = 0;
  uint64_t start_ = 0;
  uint32_t filled_ = 0;
  int32_t error_ = 0;
};

}  // namespace zmv::recover

#endif
