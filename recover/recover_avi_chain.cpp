#include "recover/recover_avi_chain.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "avi/avi_writer.h"
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

// Fields of an index entry.
constexpr uint32_t kEntryFlags = 4;
constexpr uint32_t kEntryOffset = 8;
constexpr uint32_t kEntrySize = 12;

// By the header alone, which also stands in many a payload.
bool BeginsClosingChunk(const uint8_t* bytes) {
  const uint32_t code = LoadLE32(bytes);
  return code == FourCC("JUNK") || (code == FourCC("idx1") && LoadLE32(bytes + kCodeSize) % kIdx1EntrySize == 0);
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

bool AllZero(const uint8_t* bytes, uint32_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

bool BeginsWithStartCode(const uint8_t* bytes, uint32_t count) {
  const uint32_t zeros = count > 3 && bytes[2] == 0 ? 3 : 2;
  return count > zeros && bytes[0] == 0 && bytes[1] == 0 && bytes[zeros] == 1;
}

}  // namespace

int32_t AviChain::Open(const AviFront& front, uint64_t known_end, Progress* progress) {
  placed_ = front.front.mdat != 0;
  std::copy(std::begin(front.streams), std::end(front.streams), streams_);
  for (const AviStream& stream : streams_) {
    if (stream.media == ZMV_MEDIA_AUDIO) compressed_audio_ = IsCompressedAudio(stream.code);
    if (stream.media != ZMV_MEDIA_VIDEO) continue;
    start_codes_[stream.track] = BeginsWithLength(stream.code);
    compressed_video_[stream.track] = start_codes_[stream.track] || stream.code == FourCC("MJPG");
  }
  begin_ = front.front.end;
  stated_end_ = front.front.mdat + kChunkHeaderSize + front.front.mdat_size;
  stream_count_ = front.stream_count;
  video_count_ = front.front.info.dwVideoCount;
  if (const int32_t result = FindEnds(known_end, progress); Failed(result)) return result;
  return Error();
}

bool AviChain::Parse(const uint8_t* bytes, Record& record) const {
  uint32_t number = 0;
  uint32_t type = 0;
  uint32_t size = 0;
  if (!ParseChunkHeader(bytes, number, type, size)) return false;
  const AviStream& stream = streams_[number];
  const bool described = stream.media != 0;
  if (!described && !any_stream_) return false;
  if (described && stream.media != type && number + 1 != stream_count_) return false;
  record = {.media = described ? stream.media : type,
            .key = false,
            .stamp = number | type << kTypeShift,
            .duration = 0,
            .track = stream.track,
            .size = size};
  return true;
}

// True for an entry of the index: it tells of a chunk that stands in front of it. Most look like chunks themselves.
bool AviChain::IsEntry(const uint8_t* bytes, uint64_t position) {
  const uint32_t flags = LoadLE32(bytes + kEntryFlags);
  const uint32_t offset = LoadLE32(bytes + kEntryOffset);
  if (!placed_ || (flags != 0 && flags != kKeyFrameFlag) || offset < kFirstOffset) return false;
  const uint64_t chunk = begin_ + offset - kFirstOffset;
  if (chunk + kChunkHeaderSize > position) return false;
  const uint32_t code = LoadLE32(bytes);
  const uint32_t size = LoadLE32(bytes + kEntrySize);
  const View header = Look(chunk, kChunkHeaderSize);
  return header.size == kChunkHeaderSize && LoadLE32(header.bytes) == code &&
         LoadLE32(header.bytes + kCodeSize) == size;
}

// True when the index, or a piece of it, stands here although its header could not be written: zeros are in its place,
// or nothing is. `count` bytes of the file are shown, as many as kSeen if it has them.
bool AviChain::IsIndex(const uint8_t (&bytes)[kSeen], uint32_t count, uint64_t position) {
  if (count >= kIdx1EntrySize && IsEntry(bytes, position)) return true;
  if (count == kSeen) return LoadLE64(bytes) == 0 && IsEntry(bytes + kChunkHeaderSize, position);
  // The last entry is cut off: the one in front of it tells.
  if (count >= kIdx1EntrySize || position < kIdx1EntrySize) return false;
  uint8_t before[kIdx1EntrySize];
  const View view = Look(position - kIdx1EntrySize, kIdx1EntrySize);
  std::memcpy(before, view.bytes, view.size);
  return view.size == kIdx1EntrySize && IsEntry(before, position - kIdx1EntrySize);
}

// Where the header of the list says that it ends, the code will do. Elsewhere the index names a chunk, if the medium
// has its first entry, the chunk with the file's name has its size, and the one that covers the rest of the file goes
// to its end.
bool AviChain::IsClosing(const uint8_t (&bytes)[kSeen], uint32_t count, uint64_t position) {
  if (count < kChunkHeaderSize || !BeginsClosingChunk(bytes)) return false;
  if (position == stated_end_) return true;
  const uint32_t size = LoadLE32(bytes + kCodeSize);
  if (LoadLE32(bytes) == FourCC("JUNK")) return size == kNameSize || size >= file_end() - position - kChunkHeaderSize;
  const uint8_t* const entry = bytes + kChunkHeaderSize;
  return !placed_ || size == 0 || count < kSeen || AllZero(entry, kIdx1EntrySize) || IsEntry(entry, position);
}

// The size of a chunk without data at the end may be zeros that were not written, if it is in another sector than the
// code in front of it.
bool AviChain::MayLackSize(uint64_t position) const {
  return position + kChunkHeaderSize > written_end() && file_end() - position != kChunkHeaderSize &&
         SectorStart(position) != SectorStart(position + kCodeSize);
}

Place AviChain::At(uint64_t position) {
  Place place;
  if (position >= written_end()) {
    place.item = Item::kEnd;
    return place;
  }
  // Chunks take an even number of bytes.
  if (placed_ && (position - begin_) % 2 != 0) return place;
  uint8_t bytes[kSeen];
  const View view = Look(position, kSeen);
  const uint32_t count = view.size;
  std::memcpy(bytes, view.bytes, count);
  if (IsIndex(bytes, count, position)) {
    place.item = Item::kBox;
  } else if (count >= kChunkHeaderSize && Parse(bytes, place.record)) {
    const bool beyond = place.record.size > file_end() - position - kChunkHeaderSize;
    const bool lacking = place.record.size == 0 && MayLackSize(position);
    place.item = beyond || lacking ? Item::kRecordBeyond : Item::kRecord;
    place.whole_header = true;
  } else if (IsClosing(bytes, count, position)) {
    place.item = Item::kBox;
  } else {
    // A header that is cut off, by the end of the file or by zeros that were never written over.
    const auto written = static_cast<uint32_t>(std::min<uint64_t>(count, written_end() - position));
    if (written < kChunkHeaderSize && BeginsCode(bytes, written)) place.item = Item::kRecordBeyond;
  }
  return place;
}

// Of a picture whose track no header describes, the last one that a header describes tells most.
uint32_t AviChain::VideoTrackOf(const Record& record) const {
  return TypeOf(record) == record.media ? record.track : video_count_ - std::min(video_count_, 1u);
}

Prefix AviChain::CheckPayload(const Record& record, const Reading& reading) {
  // A pad byte in a sector of its own tells nothing of the payload.
  const bool padded = reading.next != reading.end && reading.end < file_end() && reading.end % kSectorSize != 0;
  if (padded && !IsZero(reading.end)) return Prefix::kWrong;
  if (TypeOf(record) != ZMV_MEDIA_VIDEO || !start_codes_[VideoTrackOf(record)]) return Prefix::kNone;
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
  if (!Parse(bytes, record)) return BeginsClosingChunk(bytes);
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
  const uint32_t type = TypeOf(record);
  if (type == ZMV_MEDIA_VIDEO) return compressed_video_[VideoTrackOf(record)];
  return type == ZMV_MEDIA_AUDIO && compressed_audio_;
}

}  // namespace zmv::recover
