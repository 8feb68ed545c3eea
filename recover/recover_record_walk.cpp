#include "recover/recover_record_walk.h"

#include "base/zmv_result.h"

namespace zmv::recover {

bool RecordWalk::Stop(int32_t result) {
  result_ = result;
  return false;
}

// The stamps are those of all streams, which differ by less than half the range of their 32 bits.
bool RecordWalk::Take(const Record& record, uint64_t payload, FoundFrame& frame) {
  time_ =
      started_
          ? time_ + static_cast<uint64_t>(int64_t{static_cast<int32_t>(record.stamp - static_cast<uint32_t>(time_))})
          : record.stamp;
  started_ = true;
  frame = {};
  frame.position = position_;
  frame.payload = payload;
  frame.size = record.size;
  frame.media = record.media;
  frame.track = record.track;
  frame.key = record.key;
  frame.time = time_;
  frame.duration = record.duration;
  frame.new_duration = record.duration;
  position_ = payload + record.size;
  return true;
}

bool RecordWalk::Next(FoundFrame& frame) {
  // The record, and enough of what follows to see whether it is a spilled table.
  constexpr uint32_t kLook = kRecordSize + kTableHeaderSize;
  while (!Failed(result_) && position_ < report_.llDataEnd) {
    uint8_t bytes[kLook] = {};
    const int64_t read = file_.ReadAt(position_, bytes, kLook);
    if (read < 0) return Stop(static_cast<int32_t>(read));
    Record record;
    uint32_t length = 0;
    // The scan has taken frames of undescribed streams, too.
    if (ParseRecord(bytes, StreamLimits::Any(), record)) {
      if (!ParseTableHeader(bytes + kRecordSize, length)) return Take(record, position_ + kRecordSize, frame);
      const Reading reading = chain_.Read(record, position_);
      if (!reading.possible) return Stop(zmv::Result(ZMV_E_READ));
      return Take(record, reading.payload, frame);
    }
    if (!ParseTableHeader(bytes, length)) return Stop(zmv::Result(ZMV_E_READ));
    position_ += kTableHeaderSize + uint64_t{length};
  }
  return false;
}

}  // namespace zmv::recover
