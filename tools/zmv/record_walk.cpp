#include "tools/zmv/record_walk.h"

#include <algorithm>

#include "facade/zmvstream_media.h"
#include "mp4/zmv_mp4_format.h"

namespace zmv::tool {

RecordWalk::RecordWalk(const std::string& path, const FileMap& map, uint32_t track) : file_(path), track_(track) {
  for (const BoxEntry& box : map.boxes) {
    if (box.type != "mdat") continue;
    position_ = box.position + kBoxHeader;
    end_ = box.position + box.size;
  }
}

// Pieces of tables stand between frames, and between a record and its payload.
uint64_t RecordWalk::SkipSpills(uint64_t position) {
  while (position < end_ && end_ - position >= mp4::kSpillHeaderSize) {
    file_.Seek(position);
    if (file_.Code() != "tabl") break;
    position += mp4::kSpillHeaderSize + uint64_t{file_.U32()};
  }
  return position;
}

bool RecordWalk::NextRecord(Record& record) {
  position_ = SkipSpills(position_);
  if (position_ >= end_ || end_ - position_ < mp4::kRecoveryRecordSize) return false;
  file_.Seek(position_);
  if (file_.Code() != "RECO") return false;
  record.media = file_.U32();
  file_.U32();  // key flag
  record.time_ms = file_.U32();
  file_.U32();  // duration
  record.track = file_.U32();
  record.size = file_.U32();
  record.payload = SkipSpills(position_ + mp4::kRecoveryRecordSize);
  position_ = record.payload + record.size;
  return position_ <= end_;
}

bool RecordWalk::Next(FoundText& text) {
  constexpr uint32_t kHalfTurn = uint32_t{1} << 31;
  Record record;
  while (NextRecord(record)) {
    if (!first_ms_) first_ms_ = record.time_ms;
    if (record.media != ZMV_MEDIA_TEXT || record.track != track_) continue;
    // The low half of a time stamp may have turned over since the first frame. Tracks need not begin together.
    const uint32_t since = record.time_ms - *first_ms_;
    text.time_ms = since < kHalfTurn ? since : 0;
    text.payload.resize(std::min(record.size, kMostFoundBytes));
    file_.Seek(record.payload);
    if (file_.Read(text.payload.data(), static_cast<uint32_t>(text.payload.size())) != text.payload.size())
      return false;
    return true;
  }
  return false;
}

}  // namespace zmv::tool
