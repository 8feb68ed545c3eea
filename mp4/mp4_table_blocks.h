// A sample table read in blocks, for searches that go through many of its entries.
#ifndef ZMV_MP4_TABLE_BLOCKS_H
#define ZMV_MP4_TABLE_BLOCKS_H

#include <cstddef>

#include "mp4/mp4_box_reader.h"

namespace zmv::mp4::reader {

constexpr uint32_t BigEndian32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

template <uint32_t kEntrySize, uint32_t kBlockEntries>
class TableBlocks {
 public:
  // `cursor` reads the table of `count` entries at `start`; the blocks move it about. Without entries it is not used.
  TableBlocks(ZMVStreamBuf& stream, uint32_t cursor, uint32_t start, uint32_t count)
      : stream_(stream), cursor_(cursor), start_(start), count_(count) {}

  uint32_t Count() const { return count_; }
  // How many entries from this one on At() has at hand, one behind another.
  uint32_t Held(uint32_t entry) const { return entry - first_ < held_ ? held_ - (entry - first_) : 0; }

  // The bytes of an entry, until the next call. Null behind the last entry, and after a failed read, which Error() then
  // names.
  const uint8_t* At(uint32_t entry) {
    if (entry - first_ >= held_ && !Load(entry)) return nullptr;
    return block_ + size_t{entry - first_} * kEntrySize;
  }

  bool Failed() const { return error_ != 0; }
  int32_t Error() const { return error_; }

 private:
  bool Load(uint32_t entry) {
    held_ = 0;
    if (error_ != 0 || entry >= count_) return false;
    const uint32_t wanted = count_ - entry < kBlockEntries ? count_ - entry : kBlockEntries;
    const uint64_t position = start_ + uint64_t{entry} * kEntrySize;
    int64_t result = Result(ZMV_E_SEEK);
    // A cursor that is there already keeps what it has read ahead.
    if (ZMVStreamBuf_Pos(&stream_, cursor_) == position) {
      result = 0;
    } else if (position <= 0xFFFFFFFFu) {
      result = ZMVStreamBuf_Seek(&stream_, cursor_, static_cast<uint32_t>(position));
    }
    if (!zmv::Failed(result)) result = ZMVStreamBuf_ReadBuffer(&stream_, cursor_, block_, wanted * kEntrySize);
    if (result < int64_t{kEntrySize}) {
      error_ = StreamError(result);
      return false;
    }
    first_ = entry;
    held_ = static_cast<uint32_t>(result) / kEntrySize;
    return true;
  }

  ZMVStreamBuf& stream_;
  const uint32_t cursor_;
  const uint32_t start_;
  const uint32_t count_;
  uint32_t first_ = 0;  // the entry that the block begins with
  uint32_t held_ = 0;   // entries in the block
  int32_t error_ = 0;
  uint8_t block_[size_t{kEntrySize} * kBlockEntries];
};

}  // namespace zmv::mp4::reader

#endif
