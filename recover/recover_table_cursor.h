// A table of big-endian numbers in the file, read from front to end through a small buffer.
#ifndef ZMV_RECOVER_TABLE_CURSOR_H
#define ZMV_RECOVER_TABLE_CURSOR_H

#include <algorithm>
#include <cstdint>

#include "base/byte_order.h"
#include "base/zmv_result.h"
#include "recover/recover_file.h"

namespace zmv::recover {

class TableCursor {
 public:
  // `count` numbers at `position`.
  void Open(uint64_t position, uint64_t count) {
    position_ = position;
    left_ = count;
    filled_ = used_ = 0;
  }
  bool AtEnd() const { return left_ == 0; }
  // The next number; 0 at the end of the table and after a failed read, whose code goes to `error`.
  uint32_t Next(File& file, int32_t& error) {
    if (left_ == 0) return 0;
    if (used_ == filled_ && !Fill(file, error)) return 0;
    const uint32_t number = LoadBE32(bytes_ + used_);
    used_ += sizeof number;
    --left_;
    return number;
  }

 private:
  bool Fill(File& file, int32_t& error) {
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(sizeof bytes_, left_ * sizeof(uint32_t)));
    const int64_t got = file.ReadAt(position_, bytes_, count);
    used_ = filled_ = 0;
    if (got != count) {
      error = got < 0 ? static_cast<int32_t>(got) : Result(ZMV_E_READ);
      left_ = 0;
      return false;
    }
    filled_ = count;
    position_ += count;
    return true;
  }

  uint64_t position_ = 0;
  uint64_t left_ = 0;
  uint32_t filled_ = 0;
  uint32_t used_ = 0;
  uint8_t bytes_[1024];
};

}  // namespace zmv::recover

#endif
