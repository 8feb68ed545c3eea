// Going through stts from run to run, a run being samples that last equally long, to a sample given by its ticks or by
// its number. What lies before the nearest mark of the track is left out; the way through it has set marks for later
// searches.
#ifndef ZMV_MP4_SEEK_TIMES_H
#define ZMV_MP4_SEEK_TIMES_H

#include "mp4/mp4_table_blocks.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_reader_records.h"

namespace zmv::mp4::reader {

// A place in stts. Samples count from the one at which all searches of the track start, with time 0.
struct TimePlace {
  uint32_t sample = 0;
  uint32_t left = 0;   // samples from here to the end of the run
  uint32_t delta = 0;  // ticks
  uint32_t dts = 0;    // ticks; wraps
  uint32_t entry = 0;  // entries of stts taken
};

class TimeWalk {
 public:
  TimeWalk(const MP4FReaderHandle& handle, MP4ReaderTrack& track);

  // Ticks per second of the search.
  uint32_t Scale() const { return scale_; }

  // To the first sample that reaches `reach` ticks, or to where the samples, of which there are `limit`, or the entries
  // end: then *exhausted. The walk may have failed, before which *place means nothing.
  void ToTicks(uint64_t reach, uint32_t limit, TimePlace* place, bool* exhausted);
  // To a sample that a walk has passed, or stands at.
  void ToSample(uint32_t sample, TimePlace* place);

  bool Failed() const { return entries_.Failed(); }
  int32_t Error() const { return entries_.Error(); }

 private:
  void StartAt(uint32_t marks);
  void PassRuns(uint64_t bound, uint32_t limit);
  bool NextRun();
  void SetMark(uint32_t entry);
  void Advance(uint32_t samples);

  // With the 1 KiB that the cursor reads ahead a block takes 4 KiB of the file.
  static constexpr uint32_t kBlockEntries = 384;

  TableBlocks<kSttsEntrySize, kBlockEntries> entries_;
  MP4ReaderTimeMarks& marks_;
  uint32_t stride_;  // entries from one mark to the next
  uint32_t scale_;
  bool by_chunk_;  // constant-size audio: the first run has a duration of its own
  uint32_t chunk_delta_ = 0;
  TimePlace at_;
  bool wrapped_ = false;  // ticks have passed 32 bits on the way here
};

}  // namespace zmv::mp4::reader

#endif
