// The items of the media data of an MP4 recording: the record in front of every payload, and the spilled tables
// between them.
#ifndef ZMV_RECOVER_RECORDS_H
#define ZMV_RECOVER_RECORDS_H

#include <cstdint>

#include "facade/zmvstream_media.h"
#include "mp4/zmv_mp4_format.h"

namespace zmv::recover {

inline constexpr uint32_t kRecordSize = mp4::kRecoveryRecordSize;
inline constexpr uint32_t kTableHeaderSize = mp4::kSpillHeaderSize;

struct Record {
  uint32_t media;  // ZMV_MEDIA_*
  bool key;
  uint32_t stamp;      // low 32 bits of the time, milliseconds
  uint32_t duration;   // microseconds for video, milliseconds otherwise
  uint32_t track;      // within the medium
  uint32_t size;       // of the payload
  bool stray = false;  // of a stream that is not described: the writer puts its frames into the last track
};

// How many streams of each medium there can be.
struct StreamLimits {
  uint32_t video = ZMV_MAX_VIDEO;
  uint32_t audio = ZMV_MAX_AUDIO;
  uint32_t text = ZMV_MAX_TEXT;

  // Whatever number a recorder hands over.
  static constexpr StreamLimits Any() { return {UINT32_MAX, UINT32_MAX, UINT32_MAX}; }
  // 0 for what is no medium.
  uint32_t Of(uint32_t media) const {
    return media == ZMV_MEDIA_VIDEO ? video : media == ZMV_MEDIA_AUDIO ? audio : media == ZMV_MEDIA_TEXT ? text : 0;
  }
};

// True, and the record, when the 28 bytes can be one. Its size is not compared with anything.
bool ParseRecord(const uint8_t* bytes, const StreamLimits& limits, Record& record);

// True when the header of a spilled table can stand here; `length` is what follows the 8 bytes.
bool ParseTableHeader(const uint8_t* bytes, uint32_t& length);

// True when the first `count` bytes of a record, or of the header of a spilled table, can be these. At least one byte
// is needed; those beyond the header are not looked at.
bool BeginsRecord(const uint8_t* bytes, uint32_t count, const StreamLimits& limits);
bool BeginsTable(const uint8_t* bytes, uint32_t count);

// The first "RECO" that lies in the bytes as a whole, or null.
const uint8_t* FindRecordTag(const uint8_t* bytes, uint32_t count);

// True when the payload of a text frame looks as if it carried the GPS block and the sensor block: it has the size, and
// the blocks are no plain text.
bool CarriesUserData(const uint8_t* payload, uint32_t size);

}  // namespace zmv::recover

#endif
