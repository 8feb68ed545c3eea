// What stands at a position in the media data of a recording, and where the payload of a frame lies. The items of a
// sound recording follow each other without a gap: each is checked by what stands behind it.
#ifndef ZMV_RECOVER_CHAIN_H
#define ZMV_RECOVER_CHAIN_H

#include <cstdint>

#include "recover/recover_module.h"
#include "recover/recover_progress.h"
#include "recover/recover_records.h"
#include "recover/recover_window.h"

namespace zmv::recover {

enum class Item : uint8_t {
  kBroken,        // nothing that belongs there
  kRecord,        // the header of a frame whose payload can lie in the file
  kRecordBeyond,  // the beginning of one, or one whose payload goes on behind the end of the file
  kTable,         // MP4: a spilled table
  kTableBeyond,   // the beginning of one
  kBox,           // what closing writes behind the media data
  kEnd,           // the end of the file, or nothing but unwritten zeros up to it
};

struct Place {
  Item item = Item::kBroken;
  Record record = {};
  bool whole_header = false;  // of a record or a box: all of it stands there
  uint32_t table = 0;         // bytes behind the table's header

  bool Chained() const { return item != Item::kBroken; }
};

// How a payload agrees with what stands around it.
enum class Prefix : uint8_t {
  kNone,   // nothing can be told
  kStart,  // video that begins with a start code: the payload is one, its size is not proved
  kRight,  // video whose first bytes are the length of the rest
  kWrong,  // these bytes, or the pad byte behind the payload, are not what they have to be
};

// Where the payload of a record lies.
struct Reading {
  bool possible = false;  // it lies within the file
  uint64_t payload = 0;
  uint64_t end = 0;
  uint64_t next = 0;  // where the next item begins: the end, or behind a pad byte
  Place behind;       // what stands there
  Prefix prefix = Prefix::kNone;
};

class Chain {
 public:
  virtual Place At(uint64_t position) = 0;
  // Where the payload of the record at `position` lies.
  virtual Reading Read(const Record& record, uint64_t position) = 0;
  // True when the rest of the sector at `position` can be the beginning of an item: what is broken there then lies in
  // the next sector.
  virtual bool BeginsItem(uint64_t position) = 0;
  // The same for what begins with a tag of its own.
  virtual bool BeginsTag(uint64_t position) = 0;
  virtual bool BeginsTableAt(uint64_t position) = 0;
  // Media in which a long run of zero bytes is damage.
  virtual bool Compressed(const Record& record) const = 0;
  // True when what closing writes holds nothing that looks like a frame.
  virtual bool BoxesHoldNoTags() const = 0;
  // The size of the header in front of a payload.
  virtual uint32_t HeaderSize() const = 0;
  // The first four bytes that can begin such a header and lie in the bytes as a whole, or null.
  virtual const uint8_t* FindTag(const uint8_t* bytes, uint32_t count) const = 0;

  // True when the rest of the sector at `position` is zero.
  bool RestIsZero(uint64_t position);
  // True when it is as flash memory that was erased and not written.
  bool RestIsErased(uint64_t position);
  bool IsZero(uint64_t position);

  uint64_t file_end() const { return file_end_; }
  // Behind the last byte of the file that is not zero.
  uint64_t written_end() const { return written_end_; }
  // What stops a search: 0, or the code of a failed read.
  int32_t Error() const { return error_; }

 protected:
  struct View {
    const uint8_t* bytes;
    uint32_t size;
  };
  explicit Chain(Window& window) : window_(window) {}
  const Window& window() const { return window_; }
  ~Chain() = default;

  // Finds where the unwritten zeros at the end of the file begin, unless that is known already (0: it is not).
  // `progress` may be null. 0, or a negative code.
  int32_t FindEnds(uint64_t known_end = 0, Progress* progress = nullptr);
  // Up to `count` bytes, a sector at most, fewer at the end of the file. Valid until the next call; the window does not
  // move.
  View Look(uint64_t position, uint32_t count);

 private:
  Window& window_;
  uint64_t file_end_ = 0;
  uint64_t written_end_ = 0;
  int32_t error_ = 0;
  uint8_t bytes_[kSectorSize] = {};
};

}  // namespace zmv::recover

#endif
