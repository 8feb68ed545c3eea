// The streams of a recording while its frames are found: their times, their counts, and what holes do to them.
#ifndef ZMV_RECOVER_STREAMS_H
#define ZMV_RECOVER_STREAMS_H

#include <cstdint>

#include "recover/recover_front.h"
#include "recover/recover_records.h"
#include "recover/recover_scan.h"

namespace zmv::recover {

class Streams {
 public:
  // Lists the streams of the front in the report: those of a medium by their numbers, video before audio before text.
  void Open(const Front& front, ZMVRecoverReport& report);

  // Frames may be missing from here on: of every stream, or of one.
  void Interrupt();
  void Interrupt(const Record& record);

  // Which of the streams that there can be a frame counts for: below ZMV_RECOVER_MAX_STREAMS.
  uint32_t Number(const Record& record) const;

  // Fills in what the streams know of a frame (all but its place and its bytes) and counts it.
  void Accept(const Record& record, FoundFrame& frame, ZMVRecoverReport& report);

 private:
  struct Stream {
    uint32_t frames = 0;
    uint64_t first_time = 0;
    uint64_t last_time = 0;
    uint64_t clock = 0;  // time from the first frame to the last one by the durations, in their units
    bool interrupted = false;
    bool late = false;  // frames in front of its first one are missing
  };
  uint64_t Time(const Record& record, const Stream& stream) const;
  static uint32_t Since(uint32_t media, const Stream& stream, uint64_t time);
  ZMVRecoverStream& Entry(const Record& record, ZMVRecoverReport& report) const;

  Stream streams_[ZMV_RECOVER_MAX_STREAMS];
  uint32_t last_ = 0;  // of the described ones
  bool any_ = false;
  uint64_t first_time_ = 0;
  uint64_t last_time_ = 0;  // of the frame found last, whatever its stream
};

}  // namespace zmv::recover

#endif
