#include "recover/recover_avi_chain.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "recover/recover_avi_search.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint32_t kCodeSize = 4;
// The first chunk's offset from the code of the movi list.
constexpr uint32_t kFirstOffset = 4;

bool IsClosingChunk(const uint8_t* bytes) {
  const uint32_t code = LoadLE32(bytes);
  if (code == FourCC("JUNK")) return true;
  return code == FourCC("idx1") && LoadLE32(bytes + kCodeSize) % kIdx1EntrySize == 0;
}

// True when the code of a chunk, or of one that closing writes, can begin with these bytes.
bool BeginsCode(const uint8_t* bytes, uint32_t count) {
  count = std::min(count, kCodeSize);
  for (const char* code : {"idx1", "JUNK"}) {
    if (std::memcmp(bytes, code, count) == 0) return true;
  }
  for (const char* type : {"dc", "wb", "tx"}) {
    const bool digits = bytes[0] == '0' && (count < 2 || (bytes[1] >= '0' && bytes[1] < '0' + kMaxStreams));
    if (digits && (count <= 2 || std::memcmp(bytes + 2, type, count - 2) == 0)) return true;
  }
  return false;
}

bool BeginsWithStartCode(const uint8_t* bytes, uint32_t count) {
  const uint32_t zeros = count > 3 && bytes[2] == 0 ? 3 : 2;
  return count > zeros && bytes[0] == 0 && bytes[1] == 0 && bytes[zeros] == 1;
}

}  // namespace

int32_t AviChain::Open(const AviFront& front, bool any_stream) {
  any_stream_ = any_stream;
  placed_ = front.front.mdat != 0;
  std::copy(std::begin(front.streams), std::end(front.streams), streams_);
  for (const AviStream& stream : streams_) {
    if (stream.media == ZMV_MEDIA_AUDIO) compressed_audio_ = IsCompressedAudio(stream.code);
    if (stream.media != ZMV_MEDIA_VIDEO) continue;
    start_codes_[stream.track] = BeginsWithLength(stream.code);
    compressed_video_[stream.track] = start_codes_[stream.track] || stream.code == FourCC("MJPG");
  }
  begin_ = front.front.end;
  if (const int32_t result = FindEnds(); Failed(result)) return result;
  const View view = Look(begin_, kChunkHeaderSize);
  if (placed_ && view.size == kChunkHeaderSize) std::memcpy(first_, view.bytes, sizeof first_);
  return Error();
}

bool AviChain::Parse(const uint8_t* bytes, Record& record) const {
  uint32_t number = 0;
  uint32_t media = 0;
  uint32_t size = 0;
  if (!ParseChunkHeader(bytes, number, media, size)) return false;
  uint32_t track = streams_[number].track;
  if (streams_[number].media != media) {
    if (!any_stream_ || streams_[number].media != 0) return false;
    track = 0;
  }
  record = {.media = media, .key = false, .stamp = number, .duration = 0, .track = track, .size = size};
  return true;
}

// The first entry of the index looks like a chunk. It names the first chunk.
bool AviChain::IsFirstEntry(const uint8_t* bytes) const {
  const uint32_t flags = LoadLE32(bytes + 4);
  return placed_ && LoadLE32(bytes) == LoadLE32(first_) && (flags == 0 || flags == kKeyFrameFlag) &&
         LoadLE32(bytes + 8) == kFirstOffset && LoadLE32(bytes + 12) == LoadLE32(first_ + kCodeSize);
}

Place AviChain::At(uint64_t position) {
  Place place;
  if (position >= written_end()) {
    place.item = Item::kEnd;
    return place;
  }
  // Chunks take an even number of bytes.
  if (placed_ && (position - begin_) % 2 != 0) return place;
  constexpr uint32_t kSeen = kChunkHeaderSize + kIdx1EntrySize;
  const View view = Look(position, kSeen);
  const uint64_t rest = file_end() - position;
  // The index when its header could not be written: zeros stand in its place, or nothing does.
  const bool entry = view.size >= kIdx1EntrySize && IsFirstEntry(view.bytes);
  const bool entry_behind = view.size == kSeen && LoadLE64(view.bytes) == 0 && IsFirstEntry(view.bytes + 8);
  if (entry || entry_behind) {
    place.item = Item::kBox;
  } else if (view.size >= kChunkHeaderSize && Parse(view.bytes, place.record)) {
    // Of a chunk without data at the end nothing tells that the zeros of its size were written.
    const bool unwritten =
        place.record.size == 0 && position + kChunkHeaderSize > written_end() && rest != kChunkHeaderSize;
    place.item = unwritten || place.record.size > rest - kChunkHeaderSize ? Item::kRecordBeyond : Item::kRecord;
  } else if (view.size >= kChunkHeaderSize && IsClosingChunk(view.bytes)) {
    place.item = Item::kBox;
  } else {
    // A header that is cut off, by the end of the file or by zeros that were never written over.
    const auto written = static_cast<uint32_t>(std::min<uint64_t>(view.size, written_end() - position));
    if (written < kChunkHeaderSize && BeginsCode(view.bytes, written)) place.item = Item::kRecordBeyond;
  }
  return place;
}

Prefix AviChain::CheckPayload(const Record& record, const Reading& reading) {
  // A pad byte in a sector of its own tells nothing of the payload.
  const bool padded = reading.next != reading.end && reading.end < file_end() && reading.end % kSectorSize != 0;
  if (padded && !IsZero(reading.end)) return Prefix::kWrong;
  if (record.media != ZMV_MEDIA_VIDEO || !start_codes_[record.track]) return Prefix::kNone;
  const View view = Look(reading.payload, std::min(record.size, kCodeSize));
  return BeginsWithStartCode(view.bytes, view.size) ? Prefix::kStart : Prefix::kNone;
}

Reading AviChain::Read(const Record& record, uint64_t position) {
  Reading reading;
  reading.payload = position + kChunkHeaderSize;
  reading.end = reading.payload + record.size;
  reading.next = reading.end + record.size % 2;
  if (reading.end > file_end()) return reading;
  reading.possible = true;
  reading.behind = At(reading.next);
  reading.prefix = CheckPayload(record, reading);
  return reading;
}

bool AviChain::BeginsItem(const uint8_t* bytes, uint32_t count, uint64_t position) const {
  if (count == 0 || !BeginsCode(bytes, count)) return false;
  if (count < kChunkHeaderSize) return true;
  Record record;
  if (!Parse(bytes, record)) return IsClosingChunk(bytes);
  return record.size <= file_end() - position - kChunkHeaderSize;
}

bool AviChain::BeginsItem(uint64_t position) {
  const View rest = Look(position, static_cast<uint32_t>(SectorEnd(position) - position));
  if (BeginsItem(rest.bytes, rest.size, position)) return true;
  // What was put down of the sector may end within the header: zeros take the place of the rest.
  uint32_t written = rest.size;
  while (written != 0 && rest.bytes[written - 1] == 0) --written;
  return written != rest.size && BeginsItem(rest.bytes, written, position);
}

bool AviChain::BeginsTag(uint64_t position) {
  const View rest = Look(position, static_cast<uint32_t>(SectorEnd(position) - position));
  return BeginsItem(rest.bytes, rest.size, position);
}

const uint8_t* AviChain::FindTag(const uint8_t* bytes, uint32_t count) const {
  const uint8_t* const end = bytes + count;
  for (const uint8_t* at = bytes; end - at >= static_cast<std::ptrdiff_t>(kCodeSize); ++at) {
    at = static_cast<const uint8_t*>(std::memchr(at, '0', static_cast<size_t>(end - at)));
    if (at == nullptr || end - at < static_cast<std::ptrdiff_t>(kCodeSize)) return nullptr;
    if (BeginsCode(at, kCodeSize)) return at;
  }
  return nullptr;
}

bool AviChain::Compressed(const Record& record) const {
  if (record.media == ZMV_MEDIA_VIDEO) return compressed_video_[record.track];
  return record.media == ZMV_MEDIA_AUDIO && compressed_audio_;
}

}  // namespace zmv::recover
