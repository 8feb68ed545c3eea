#include "recover/recover_mp4_chain.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "base/zmv_result.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kLengthSize = 4;
constexpr uint32_t kSizeField = 4;  // of a box
constexpr uint32_t kTypeOffset = kSizeField;
// Between a record and its payload its track's chunk offsets can be spilled, and the chunk table of another.
constexpr uint32_t kMaxTablesBetween = 4;

bool AllZero(const uint8_t* bytes, uint32_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

// The boxes that closing writes behind the media data.
constexpr uint32_t kClosingBoxes[] = {FourCC("GPSR"), FourCC("SENS"), FourCC("AIDD"), FourCC("moov"), FourCC("free")};

bool IsClosingBox(const uint8_t* bytes, uint32_t size) {
  if (size < mp4::kBoxHeaderSize || LoadBE32(bytes) < mp4::kBoxHeaderSize) return false;
  return std::find(std::begin(kClosingBoxes), std::end(kClosingBoxes), LoadLE32(bytes + 4)) != std::end(kClosingBoxes);
}

// What stands there when the header of such a box could not be written but what follows it could: the first box in
// moov, or zeros in place of all of AIDD in front of moov.
bool IsBehindClosingHeader(const uint8_t* bytes, uint32_t size) {
  constexpr uint32_t kAiddSize = 12;
  if (size < mp4::kBoxHeaderSize) return false;
  if (LoadLE32(bytes + kTypeOffset) == FourCC("mvhd")) return true;
  return size > kAiddSize && AllZero(bytes, kAiddSize) && IsClosingBox(bytes + kAiddSize, size - kAiddSize);
}

// The same for GPSR: its first entry, of this recording or the last one of another.
bool IsGpsEntry(const uint8_t* bytes, uint32_t size) {
  return size >= mp4::kBoxHeaderSize && bytes[kTypeOffset - 1] == 0 &&
         LoadLE32(bytes + kTypeOffset) == mp4::kGpsBlockSize;
}

// True when the header of such a box can begin with these bytes: none is as large as a size whose first byte is not 0.
bool BeginsClosingBox(const uint8_t* bytes, uint32_t count) {
  if (count == 0 || bytes[0] != 0 || AllZero(bytes, std::min(count, kTypeOffset))) return false;
  if (count <= kTypeOffset) return true;
  const uint32_t letters = std::min(count, mp4::kBoxHeaderSize) - kTypeOffset;
  return std::any_of(std::begin(kClosingBoxes), std::end(kClosingBoxes),
                     [&](uint32_t type) { return std::memcmp(bytes + kTypeOffset, &type, letters) == 0; });
}

}  // namespace

int32_t Mp4Chain::Open(const Front& front, uint64_t known_end, Progress* progress) {
  const ZMVFileInfo& info = front.info;
  if (front.sound) limits_ = {info.dwVideoCount, info.dwAudioCount, info.dwTextCount};
  const uint64_t stated = front.mdat + front.mdat_size;
  const bool states_end = front.mdat_size > mp4::kBoxHeaderSize && stated <= window().file().Size();
  strays_ = front.sound && info.dwVideoCount + info.dwAudioCount + info.dwTextCount != 0;
  for (uint32_t i = 0; i < ZMV_MAX_VIDEO; ++i) {
    // The numbers of descriptions behind a damaged stretch are not certain.
    length_known_[i] = front.described_video[i] && (front.sound || i + front.late_video < info.dwVideoCount);
    length_[i] = length_known_[i] && BeginsWithLength(info.m_Video[i].dwFourCC);
  }
  compressed_audio_ = front.described_audio && IsCompressedAudio(info.m_Audio.dwFormat);
  if (const int32_t result = FindEnds(known_end, progress); Failed(result)) return result;
  // Unless a box stands where it leads, the size may be damaged, or written in one of two sectors only.
  const bool certain = front.sound && SectorStart(front.mdat) == SectorStart(front.mdat + kSizeField - 1);
  if (states_end && (certain || At(stated).item == Item::kBox)) closed_end_ = stated;
  return Error();
}

// A record with a stream that is not described is one all the same: its frame is in the last track.
bool Mp4Chain::Parse(const uint8_t* bytes, Record& record) const {
  if (!ParseRecord(bytes, strays_ ? StreamLimits::Any() : limits_, record)) return false;
  record.stray = record.track >= limits_.Of(record.media);
  return true;
}

bool Mp4Chain::BeginsRecord(const uint8_t* bytes, uint32_t count) const {
  return recover::BeginsRecord(bytes, count, strays_ ? StreamLimits::Any() : limits_);
}

Place Mp4Chain::At(uint64_t position) {
  Place place;
  if (position >= written_end()) {
    place.item = Item::kEnd;
    return place;
  }
  const View view = Look(position, kRecordSize);
  const uint64_t rest = file_end() - position;
  if (view.size == kRecordSize && Parse(view.bytes, place.record)) {
    place.whole_header = true;
    // Of a record without a payload at the end nothing tells that the zeros of its size were written.
    const bool unwritten = place.record.size == 0 && position + kRecordSize > written_end() && rest != kRecordSize;
    place.item = unwritten || place.record.size > rest - kRecordSize ? Item::kRecordBeyond : Item::kRecord;
  } else if (view.size >= kTableHeaderSize && ParseTableHeader(view.bytes, place.table)) {
    place.item = place.table > rest - kTableHeaderSize ? Item::kTableBeyond : Item::kTable;
  } else if (position < closed_end_) {
    // The boxes follow where the header of the media data says.
  } else if (IsClosing(view, position)) {
    place.item = Item::kBox;
    place.whole_header = IsClosingBox(view.bytes, view.size);
  } else {
    // A header that is cut off, by the end of the file or by zeros that were never written over.
    const auto written = static_cast<uint32_t>(std::min<uint64_t>(view.size, written_end() - position));
    if (written < kRecordSize && BeginsRecord(view.bytes, written)) place.item = Item::kRecordBeyond;
    if (written < kTableHeaderSize && BeginsTable(view.bytes, written)) place.item = Item::kTableBeyond;
    if (written < mp4::kBoxHeaderSize && BeginsClosingBox(view.bytes, written)) place.item = Item::kBox;
  }
  return place;
}

bool Mp4Chain::IsClosing(const View& view, uint64_t position) {
  if (IsClosingBox(view.bytes, view.size) || IsBehindClosingHeader(view.bytes, view.size)) return true;
  if (!IsGpsEntry(view.bytes, view.size)) return false;
  // Another entry follows it, or the next box.
  const View next = Look(position + mp4::kGpsEntrySize, mp4::kBoxHeaderSize);
  return next.size < mp4::kBoxHeaderSize || IsGpsEntry(next.bytes, next.size) || IsClosingBox(next.bytes, next.size);
}

Prefix Mp4Chain::CheckPrefix(const Record& record, uint64_t payload) {
  if (record.media != ZMV_MEDIA_VIDEO || record.size < kLengthSize || record.stray) return Prefix::kNone;
  const bool known = length_known_[record.track];
  if (known && !length_[record.track]) return Prefix::kNone;
  const View view = Look(payload, kLengthSize);
  if (view.size == kLengthSize && LoadBE32(view.bytes) == record.size - kLengthSize) return Prefix::kRight;
  return known ? Prefix::kWrong : Prefix::kNone;
}

Reading Mp4Chain::At(const Record& record, uint64_t payload) {
  Reading reading;
  reading.payload = payload;
  reading.end = reading.next = payload + record.size;
  reading.prefix = CheckPrefix(record, payload);
  reading.possible = reading.end <= file_end();
  if (reading.possible) reading.behind = At(reading.end);
  return reading;
}

// True when a table that was cut off can stand here, so that it cannot be told from the payload.
bool Mp4Chain::MayBeTable(uint64_t position) {
  const Item item = At(position).item;
  return item == Item::kTable || item == Item::kTableBeyond;
}

// What looks like a table is believed to be a payload when something certain follows it: not when the file ends there,
// or with a few bytes that can begin anything.
bool Mp4Chain::IsPayload(const Reading& reading) {
  if (!reading.possible || reading.prefix == Prefix::kWrong) return false;
  if (reading.prefix == Prefix::kRight || !MayBeTable(reading.payload)) return true;
  return reading.behind.item == Item::kTable || reading.behind.whole_header;
}

Reading Mp4Chain::Read(const Record& record, uint64_t position) {
  uint64_t payload = position + kRecordSize;
  const Reading reading = At(record, payload);
  if (!MayBeTable(payload) || reading.prefix == Prefix::kRight) return reading;
  // Either tables lie between, or the payload begins as they do: what stands behind it tells.
  Reading best = {};
  for (uint32_t i = 0; i < kMaxTablesBetween; ++i) {
    const Place place = At(payload);
    if (place.item != Item::kTable) break;
    payload += kTableHeaderSize + uint64_t{place.table};
    const Reading behind = At(record, payload);
    // As long as nothing certain follows, all that looks like tables is taken for them.
    if (IsPayload(behind) && (behind.behind.Chained() || !best.behind.Chained())) best = behind;
  }
  if (best.possible && best.behind.Chained()) return best;
  return IsPayload(reading) ? reading : best;
}

// True when `begins` holds for the rest of the sector at `position`, or for what was put down of it: zeros take the
// place of the rest of a header within which that ends.
template <typename Begins>
bool Mp4Chain::RestOfSector(uint64_t position, Begins begins) {
  const View rest = Look(position, static_cast<uint32_t>(SectorEnd(position) - position));
  if (begins(rest.bytes, rest.size)) return true;
  uint32_t written = rest.size;
  while (written != 0 && rest.bytes[written - 1] == 0) --written;
  return written != rest.size && begins(rest.bytes, written);
}

bool Mp4Chain::BeginsItem(uint64_t position) {
  return RestOfSector(position, [this](const uint8_t* bytes, uint32_t count) {
    return BeginsRecord(bytes, count) || BeginsTable(bytes, count) || BeginsClosingBox(bytes, count);
  });
}

bool Mp4Chain::BeginsTag(uint64_t position) {
  return RestOfSector(position, [this](const uint8_t* bytes, uint32_t count) {
    return BeginsRecord(bytes, count) || BeginsTable(bytes, count);
  });
}

bool Mp4Chain::BeginsTableAt(uint64_t position) {
  const auto rest = static_cast<uint32_t>(SectorEnd(position) - position);
  const View view = Look(position, std::min(rest, kTableHeaderSize));
  return BeginsTable(view.bytes, view.size);
}

bool Mp4Chain::Compressed(const Record& record) const {
  return record.media == ZMV_MEDIA_VIDEO || (record.media == ZMV_MEDIA_AUDIO && compressed_audio_);
}

}  // namespace zmv::recover
