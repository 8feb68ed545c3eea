#include "recover/recover_records.h"

#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "base/fourcc.h"

namespace zmv::recover {
namespace {

constexpr uint8_t kRecordTag[] = {'R', 'E', 'C', 'O'};
constexpr uint8_t kTableTag[] = {'t', 'a', 'b', 'l'};
constexpr uint32_t kTagSize = 4;

// Where the numbers of a record stand.
constexpr uint32_t kMedia = 4;
constexpr uint32_t kKey = 8;
constexpr uint32_t kStamp = 12;
constexpr uint32_t kDuration = 16;
constexpr uint32_t kTrack = 20;
constexpr uint32_t kSize = 24;

// Tables are buffers of a recording's length, whole entries of 4, 8 or 12 bytes. The limit also keeps the words of a
// text that begins with the tag from being taken for a length.
constexpr uint32_t kMaxTable = 1u << 28;
constexpr uint32_t kTableUnit = 4;

bool TableLengthFits(uint32_t length) { return length != 0 && length < kMaxTable && length % kTableUnit == 0; }

bool FieldsFit(const Record& record, uint32_t key, const StreamLimits& limits) {
  return record.track < limits.Of(record.media) && key <= (record.media == ZMV_MEDIA_VIDEO ? 1u : 0u);
}

}  // namespace

bool ParseRecord(const uint8_t* bytes, const StreamLimits& limits, Record& record) {
  if (LoadLE32(bytes) != FourCC("RECO")) return false;
  const uint32_t key = LoadBE32(bytes + kKey);
  record = {.media = LoadBE32(bytes + kMedia),
            .key = key != 0,
            .stamp = LoadBE32(bytes + kStamp),
            .duration = LoadBE32(bytes + kDuration),
            .track = LoadBE32(bytes + kTrack),
            .size = LoadBE32(bytes + kSize)};
  return FieldsFit(record, key, limits);
}

bool ParseTableHeader(const uint8_t* bytes, uint32_t& length) {
  if (LoadLE32(bytes) != FourCC("tabl")) return false;
  length = LoadBE32(bytes + kTagSize);
  return TableLengthFits(length);
}

// What is cut off is filled up with what fits: whether the rest can be completed is then a question to ParseRecord.
bool BeginsRecord(const uint8_t* bytes, uint32_t count, const StreamLimits& limits) {
  if (count == 0) return false;
  count = std::min(count, kRecordSize);
  for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
    if (limits.Of(media) == 0) continue;
    uint8_t whole[kRecordSize] = {};
    std::memcpy(whole, kRecordTag, kTagSize);
    StoreBE32(whole + kMedia, media);
    std::memcpy(whole, bytes, count);
    Record record;
    if (LoadBE32(whole + kMedia) == media && ParseRecord(whole, limits, record)) return true;
  }
  return false;
}

bool BeginsTable(const uint8_t* bytes, uint32_t count) {
  if (count == 0) return false;
  uint8_t whole[kTableHeaderSize] = {};
  std::memcpy(whole, kTableTag, kTagSize);
  std::memcpy(whole, bytes, std::min(count, kTableHeaderSize));
  // The last byte of a length that is cut off can still make it fit.
  if (count < kTableHeaderSize) whole[kTableHeaderSize - 1] = kTableUnit;
  uint32_t length = 0;
  return ParseTableHeader(whole, length);
}

const uint8_t* FindRecordTag(const uint8_t* bytes, uint32_t count) {
  return static_cast<const uint8_t*>(memmem(bytes, count, kRecordTag, kTagSize));
}

bool CarriesUserData(const uint8_t* payload, uint32_t size) {
  if (size < mp4::kUserDataPayloadSize) return false;
  // Control characters that no subtitle holds.
  return std::any_of(payload + mp4::kGpsBlockOffset, payload + mp4::kUserDataPayloadSize,
                     [](uint8_t byte) { return byte < '\t'; });
}

}  // namespace zmv::recover
