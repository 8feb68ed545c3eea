// What the scanners of the two containers hand out: the frames of a damaged file, one at a time, in file order.
//
//     FoundFrame frame;
//     while (scan.Next(frame)) { ... }
//     if (Failed(scan.Result())) ...
#ifndef ZMV_RECOVER_SCAN_H
#define ZMV_RECOVER_SCAN_H

#include <cstdint>

#include "recover/zmvrecover.h"

namespace zmv::recover {

struct FoundFrame {
  uint64_t position;  // of its record (MP4) or chunk header (AVI)
  uint64_t payload;   // position of its payload
  uint32_t size;      // of the payload
  uint32_t media;     // ZMV_MEDIA_*
  uint32_t track;     // within the medium
  bool key;
  uint64_t time;      // milliseconds; MP4: the record's stamp, carried on over the wrap of its 32 bits
  uint32_t duration;  // as it was recorded: microseconds for video, milliseconds otherwise (MP4); milliseconds (AVI)
  // The duration to record it anew with: the recorded one, or after a hole the time since the frame before it in its
  // stream, in the same units, so that later stamps stay true.
  uint32_t new_duration;
  bool after_hole;       // a hole lies between this frame and the one before it in its stream
  const uint8_t* bytes;  // the payload as it is stored, valid until the next call of Next
};

class Scan {
 public:
  // The next complete frame. False at the end of the data and after a failure.
  virtual bool Next(FoundFrame& frame) = 0;
  // 0, or why the scan ended early.
  virtual int32_t Result() const = 0;
  // What has been found so far; complete once Next has returned false.
  virtual const ZMVRecoverReport& Report() const = 0;

 protected:
  ~Scan() = default;
};

}  // namespace zmv::recover

#endif
