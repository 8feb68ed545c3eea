// Finding key frames in stss. What lies before the nearest mark of the track is left out; the way through the table has
// set marks for later searches.
#ifndef ZMV_MP4_SEEK_SYNCS_H
#define ZMV_MP4_SEEK_SYNCS_H

#include "mp4/mp4_table_blocks.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_reader_records.h"

namespace zmv::mp4::reader {

constexpr uint32_t kNoKeyFrame = 0x7FFFFFFFu;

// Samples, from 0.
struct KeyFrames {
  uint32_t before = 0;
  uint32_t next = kNoKeyFrame;  // the entry behind it, wherever that lies
};

// An entry 0 counts as 1. After a failed read, which Error() then names, results mean nothing.
class SyncTable {
 public:
  SyncTable(const MP4FReaderHandle& handle, MP4ReaderTrack& track);

  bool Present() const { return present_; }

  // The first key frame; sample 0 without entries.
  uint32_t First();
  // The last key frame that is met on the way from the first one to `sample`, or the first one. An entry that does not
  // lie ahead is never met and hides those behind it.
  KeyFrames Around(uint32_t sample);
  // The entries up to the first one whose number is not below `sample`, that one included, and its number; all when
  // there is none, and the number of the last.
  uint32_t UpTo(uint32_t sample, uint32_t* number);

  bool Failed() const { return entries_.Failed(); }
  int32_t Error() const { return entries_.Error(); }

 private:
  uint32_t StartBelow(uint32_t number);
  bool Next(uint32_t* number);
  uint32_t NextSample();

  static constexpr uint32_t kBlockEntries = 128;

  const bool present_;
  TableBlocks<kStssEntrySize, kBlockEntries> entries_;
  MP4ReaderSyncMarks& marks_;
  const uint32_t stride_;  // entries from one mark to the next
  uint32_t entry_ = 0;     // the next one
  int64_t last_ = -1;      // the number of the one before
  bool rising_ = true;     // so far every number has been above the one before
};

}  // namespace zmv::mp4::reader

#endif
