// What stands at a position in the media data of an MP4 recording, and where the payload of a record lies. The items of
// a sound recording follow each other without a gap: each is checked by what stands behind it.
#ifndef ZMV_RECOVER_MP4_CHAIN_H
#define ZMV_RECOVER_MP4_CHAIN_H

#include <cstdint>

#include "recover/recover_front.h"
#include "recover/recover_module.h"
#include "recover/recover_records.h"
#include "recover/recover_window.h"

namespace zmv::recover {

enum class Item : uint8_t {
  kBroken,        // nothing that belongs there
  kRecord,        // a record whose payload can lie in the file
  kRecordBeyond,  // the beginning of a record, or one whose payload goes on behind the end of the file
  kTable,         // a spilled table
  kTableBeyond,   // the beginning of one
  kBox,           // a box that closing writes behind the media data
  kEnd,           // the end of the file, or nothing but unwritten zeros up to it
};

struct Place {
  Item item = Item::kBroken;
  Record record = {};
  uint32_t table = 0;  // bytes behind the table's header

  bool Chained() const { return item != Item::kBroken; }
};

// How the first bytes of a payload agree with its size, for video that begins with a length.
enum class Prefix : uint8_t { kNone, kRight, kWrong };

// Where the payload of a record lies.
struct Reading {
  bool possible = false;  // it lies within the file
  uint64_t payload = 0;
  uint64_t end = 0;
  Place behind;
  Prefix prefix = Prefix::kNone;
};

class Chain {
 public:
  explicit Chain(Window& window) : window_(window) {}

  // Finds where the unwritten zeros at the end of the file begin, and takes what is known of the streams. 0, or a
  // negative code.
  int32_t Open(const Front& front);

  Place At(uint64_t position);
  // Where the payload of the record at `position` lies: behind it, or behind tables that were spilled between the two.
  Reading Read(const Record& record, uint64_t position);
  // True when the rest of the sector at `position` can be the beginning of a record, a table or a closing box: what is
  // broken there then lies in the next sector.
  bool BeginsItem(uint64_t position);
  bool BeginsTableAt(uint64_t position);
  // True when the rest of the sector at `position` is zero.
  bool RestIsZero(uint64_t position);
  bool IsZero(uint64_t position);

  uint64_t file_end() const { return file_end_; }
  // Behind the last byte of the file that is not zero.
  uint64_t written_end() const { return written_end_; }
  // What stops a search: 0, or the code of a failed read.
  int32_t Error() const { return error_; }
  bool Compressed(const Record& record) const;

 private:
  struct View {
    const uint8_t* bytes;
    uint32_t size;
  };
  // Up to `count` bytes, fewer at the end of the file. Valid until the next call; the window does not move.
  View Look(uint64_t position, uint32_t count);
  Prefix CheckPrefix(const Record& record, uint64_t payload);
  Reading At(const Record& record, uint64_t payload);
  bool MayBeTable(uint64_t position);
  int32_t FindWrittenEnd();

  Window& window_;
  uint64_t file_end_ = 0;
  uint64_t written_end_ = 0;
  StreamLimits limits_;
  bool length_known_[ZMV_MAX_VIDEO] = {};  // whether payloads begin with their length is known
  bool length_[ZMV_MAX_VIDEO] = {};        // they do
  bool compressed_audio_ = false;
  int32_t error_ = 0;
  uint8_t bytes_[kSectorSize] = {};
};

}  // namespace zmv::recover

#endif
