#include "recover/recover_chain_scan.h"

#include <algorithm>

#include "base/byte_order.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"

namespace zmv::recover {
namespace {

// A search reads this much at once. The last bytes of a block can be the beginning of a tag.
constexpr uint32_t kSearchBlock = 64 * 1024;
constexpr uint32_t kTagOverlap = 3;

constexpr uint32_t kSizeField = 4;  // of a box

// Payloads up to this size fit the window with everything around them.
constexpr uint32_t kAhead = 128 * 1024;

// The largest payload that can be in memory with the sectors around it.
constexpr uint32_t kMaxPayloadView = UINT32_MAX - 2 * kSectorSize;

bool AllZero(const uint8_t* bytes, uint64_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

bool Straddles(uint64_t position, uint32_t size) { return SectorStart(position) != SectorStart(position + size - 1); }

}  // namespace

bool ChainScan::Fail(int32_t result) {
  result_ = result;
  done_ = true;
  ZMV_TRACE(kModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(result));
  return false;
}

void ChainScan::Begin(uint32_t format) {
  report_.dwFormat = format;
  report_.llFileSize = window_.file().Size();
  report_.dwState = ZMV_RECOVER_FOREIGN;
}

int32_t ChainScan::Refuse() {
  Fail(window_.Error() != 0 ? window_.Error() : zmv::Result(ZMV_E_UNSUPPORTED_FORMAT));
  return result_;
}

void ChainScan::StartAtFront(uint64_t media_end) {
  streams_.Open(front(), report_);
  position_ = items_end_ = report_.llDataEnd = front().end;
  media_end_ = media_end;
  if (front().cut) EndAt(front().end);
}

void ChainScan::SearchFirst() {
  uint64_t found = 0;
  if (done_ || !Search(position_, UINT64_MAX, found)) return;
  if (found != position_) Skip(position_, found);
}

bool ChainScan::Next(FoundFrame& frame) {
  while (!done_) {
    if (progress_ != nullptr && !progress_->Reached(position_)) return Fail(zmv::Result(ZMV_E_CANCELLED));
    if (!Bring(position_, chain().HeaderSize())) return false;
    const Place place = chain().At(position_);
    if (chain().Error() != 0) return Fail(chain().Error());
    switch (place.item) {
      case Item::kRecord:
        if (TakeRecord(place.record, frame)) return true;
        break;
      case Item::kTable:
        TakeTable(place.table);
        break;
      case Item::kBox:
      case Item::kEnd:
        EndAt(position_);
        break;
      case Item::kRecordBeyond:
      case Item::kTableBeyond:
      case Item::kBroken:
        Lose(position_, position_ + 1);
        break;
    }
  }
  return false;
}

// Brings bytes into the window, as far as the file goes. False after a failure.
bool ChainScan::Bring(uint64_t position, uint32_t count) {
  if (position >= chain().file_end()) return true;
  count = static_cast<uint32_t>(std::min<uint64_t>(count, chain().file_end() - position));
  if (window_.At(position, count) != nullptr) return true;
  return Fail(window_.Error() != 0 ? window_.Error() : zmv::Result(ZMV_E_READ));
}

// True when a frame is delivered. The position moves on in any case.
bool ChainScan::TakeRecord(const Record& record, FoundFrame& frame) {
  // What comes next is read together with the payload, unless that is so large that its size is to be proved first.
  if (record.size <= kAhead && !Bring(position_, chain().HeaderSize() + record.size + kSectorSize)) return false;
  const Reading reading = chain().Read(record, position_);
  if (chain().Error() != 0) return Fail(chain().Error());
  if (!reading.possible) {
    Lose(position_, position_ + chain().HeaderSize());
    return false;
  }
  if (!reading.behind.Chained()) return TakeUnchained(record, reading, frame);
  // A wrong size can lead to a later frame by chance; it then leads over others.
  uint64_t found = 0;
  if (SizeInDoubt(reading) && Search(position_ + chain().HeaderSize(), reading.end, found)) {
    Skip(position_, found);
    return false;
  }
  if (result_ != 0) return false;
  return Deliver(record, reading, frame);
}

// The size in a header that goes on in another sector may be damaged, unless the length of video bears it out.
bool ChainScan::SizeInDoubt(const Reading& reading) {
  return Straddles(position_, chain().HeaderSize()) && reading.prefix != Prefix::kRight;
}

// The chain breaks behind the payload: the record may be damaged, or the end of the payload, or only what follows.
bool ChainScan::TakeUnchained(const Record& record, const Reading& reading, FoundFrame& frame) {
  const uint64_t position = position_;
  if (SizeInDoubt(reading) && !EndsUnwritten(record, reading)) {
    Lose(position, position + chain().HeaderSize());
    return false;
  }
  // What looks like a payload may be the beginning of a table whose header goes on in the damaged sector.
  const bool table = reading.prefix != Prefix::kRight && chain().BeginsTableAt(reading.payload);
  const bool damaged = table || reading.prefix == Prefix::kWrong || DamageReachesBack(record, reading);
  if (chain().Error() != 0) return Fail(chain().Error());
  if (!damaged) return Deliver(record, reading, frame);
  uint64_t found = 0;
  const bool more = Search(position + chain().HeaderSize(), UINT64_MAX, found);
  if (result_ != 0) return false;
  // What is found within the payload shows that the size was wrong.
  const bool sized = !more || found >= reading.end;
  if (sized) Drop(record);
  const uint64_t hole = sized ? reading.end : position;
  if (more) {
    Skip(hole, found);
  } else {
    EndAt(hole);
  }
  return false;
}

// True when the damage that begins behind the payload may have touched the payload's end, which shares a sector with
// it.
bool ChainScan::DamageReachesBack(const Record& record, const Reading& reading) {
  if (reading.end % kSectorSize == 0 || reading.next % kSectorSize == 0) return false;
  if (chain().BeginsItem(reading.next)) return false;
  if (!chain().RestIsZero(reading.next)) return true;
  // The first bytes of the box behind the media data of a closed recording.
  if (reading.next == media_end_ && SectorEnd(reading.next) - reading.next < kSizeField) return false;
  return !EndsUnwritten(record, reading);
}

// True when the payload is what was written last of its sector: zeros follow it, but it does not end with one.
bool ChainScan::EndsUnwritten(const Record& record, const Reading& reading) {
  return record.size != 0 && chain().RestIsZero(reading.end) && !chain().IsZero(reading.end - 1);
}

// The bytes from the start of the payload's first sector to the end of its last one, as far as the file goes.
const uint8_t* ChainScan::Payload(const Reading& reading, uint64_t& from) {
  from = SectorStart(reading.payload);
  uint64_t to = reading.end == reading.payload ? reading.end : SectorEnd(reading.end - 1);
  to = std::min(to, chain().file_end());
  if (reading.end - reading.payload > kMaxPayloadView) {
    Fail(zmv::Result(ZMV_E_MEMORY));
    return nullptr;
  }
  const uint8_t* bytes = window_.At(from, static_cast<uint32_t>(to - from));
  if (bytes == nullptr) Fail(window_.Error() != 0 ? window_.Error() : zmv::Result(ZMV_E_READ));
  return bytes;
}

// True when a sector of the payload holds nothing but zeros, or ends with them although the payload goes on: what was
// written to it last is then missing.
bool ChainScan::LostSector(const Reading& reading, const uint8_t* bytes, uint64_t from) {
  // No NAL unit holds three zero bytes in a row, between units there are few, and in other media seldom many.
  constexpr uint32_t kNalZeros = 4;
  constexpr uint32_t kUnitsZeros = 8;
  constexpr uint32_t kOtherZeros = 64;
  const uint32_t zeros = reading.prefix == Prefix::kRight   ? kNalZeros
                         : reading.prefix == Prefix::kStart ? kUnitsZeros
                                                            : kOtherZeros;
  for (uint64_t sector = from; sector < reading.end; sector += kSectorSize) {
    const uint8_t* const first = bytes + (sector - from);
    const uint64_t end = sector + kSectorSize;
    if (end < reading.end && first[kSectorSize - 1] == 0 && end - std::max(sector, reading.payload) >= zeros &&
        AllZero(first + kSectorSize - zeros, zeros)) {
      return true;
    }
    // Nearly every sector begins with something.
    if (*first != 0) [[likely]]
      continue;
    const uint64_t size = std::min<uint64_t>(kSectorSize, chain().file_end() - sector);
    if (AllZero(first, size)) return true;
  }
  return false;
}

// True when the payload, behind which nothing is written, may not have been written to its end.
bool ChainScan::LostTail(const Record& record, const Reading& reading, const uint8_t* bytes, uint64_t from) {
  if (record.size == 0) return false;
  const uint64_t zeros = chain().file_end() - std::min(reading.next, chain().file_end());
  if (chain().Compressed(record)) {
    return LostSector(reading, bytes, from) || (zeros != 0 && bytes[reading.end - 1 - from] == 0);
  }
  // Fewer can be the first bytes of a box that closing began.
  if (zeros < kSizeField) return false;
  const uint64_t last = std::max(SectorStart(reading.end - 1), from);
  return std::all_of(bytes + (last - from), bytes + (reading.end - from), [](uint8_t byte) { return byte == 0; });
}

bool ChainScan::Deliver(const Record& record, const Reading& reading, FoundFrame& frame) {
  uint64_t from = 0;
  const uint8_t* bytes = Payload(reading, from);
  if (bytes == nullptr) return false;
  if (reading.behind.item == Item::kEnd && LostTail(record, reading, bytes, from)) {
    EndAt(position_);
    return false;
  }
  const uint64_t position = position_;
  position_ = items_end_ = reading.next;
  if (reading.prefix == Prefix::kWrong || (chain().Compressed(record) && LostSector(reading, bytes, from))) {
    Drop(record);
    return false;
  }
  frame.position = position;
  frame.payload = reading.payload;
  frame.bytes = bytes + (reading.payload - from);
  report_.llDataEnd = reading.end;
  Accept(record, frame);
  return true;
}

void ChainScan::TakeTable(uint32_t length) {
  const uint64_t end = position_ + kTableHeaderSize + length;
  if (chain().At(end).Chained()) {
    position_ = items_end_ = end;
  } else {
    Lose(position_, position_ + kTableHeaderSize);
  }
}

void ChainScan::Drop(const Record& record) {
  ++report_.dwDropped;
  streams_.Interrupt(record);
}

// The chain is broken at `hole`: goes on with the next frame that can be found from `search` on.
void ChainScan::Lose(uint64_t hole, uint64_t search) {
  uint64_t found = 0;
  if (Search(search, UINT64_MAX, found)) {
    Skip(hole, found);
  } else if (result_ == 0) {
    EndAt(hole);
  }
}

void ChainScan::Skip(uint64_t hole, uint64_t found) {
  AddHole(hole, found);
  position_ = found;
}

// The first frame in [from, to).
bool ChainScan::Search(uint64_t from, uint64_t to, uint64_t& found) {
  uint64_t end = std::min(to, chain().written_end());
  if (media_end_ != 0) end = std::min(end, media_end_);
  while (from + chain().HeaderSize() <= end) {
    if (progress_ != nullptr && !progress_->Reached(from)) return Fail(zmv::Result(ZMV_E_CANCELLED));
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(kSearchBlock, end - from));
    const uint8_t* const bytes = window_.At(from, count);
    if (bytes == nullptr) return Fail(window_.Error() != 0 ? window_.Error() : zmv::Result(ZMV_E_READ));
    const uint8_t* at = bytes;
    while ((at = chain().FindTag(at, static_cast<uint32_t>(bytes + count - at))) != nullptr) {
      const uint64_t position = from + static_cast<uint64_t>(at - bytes);
      if (IsFrame(position)) {
        found = position;
        return true;
      }
      if (chain().Error() != 0) return Fail(chain().Error());
      ++at;
    }
    from += count - kTagOverlap;
  }
  return false;
}

// True for a record that is borne out: by what stands behind its payload, or by how that begins.
bool ChainScan::IsFrame(uint64_t position) {
  const Place place = chain().At(position);
  if (place.item != Item::kRecord) return false;
  const Reading reading = chain().Read(place.record, position);
  if (!reading.possible) return false;
  const bool starts = reading.prefix == Prefix::kStart && !Straddles(position, chain().HeaderSize());
  return reading.behind.Chained() || reading.prefix == Prefix::kRight || starts;
}

void ChainScan::AddHole(uint64_t from, uint64_t to) {
  if (report_.dwHoles < ZMV_RECOVER_MAX_HOLES) report_.Hole[report_.dwHoles] = {from, to - from};
  ++report_.dwHoles;
  report_.llHoleBytes += to - from;
  streams_.Interrupt();
  ZMV_TRACE(kModule, kTraceWarning, "hole pos(%llu) size(%llu)\n", static_cast<unsigned long long>(from),
            static_cast<unsigned long long>(to - from));
}

// No frame stands behind `from`, where the last one ends or one begins that is not complete.
void ChainScan::EndAt(uint64_t from) {
  done_ = true;
  const Item item = chain().At(from).item;
  if (chain().Error() != 0) {
    Fail(chain().Error());
    return;
  }
  const uint64_t written = chain().written_end();
  if (media_end_ != 0 && from < media_end_) {
    // A closed recording: what is missing was there.
    AddHole(from, media_end_);
  } else if (item != Item::kEnd && item != Item::kBox && !front().cut) {
    report_.llIncomplete = std::max(written, from) - from;
  }
  Conclude(item == Item::kBox);
}

void ChainScan::Conclude(bool box_follows) {
  const bool found = report_.dwFrames != 0;
  if (!front().own && !found) {
    report_.dwState = ZMV_RECOVER_FOREIGN;
    return;
  }
  const bool damaged = report_.dwHoles != 0 || report_.dwDropped != 0 || (!front().sound && !front().cut);
  // Without a frame the size of the media data is the same before and after closing.
  const bool closed = media_end_ != 0 ? media_end_ == items_end_ : box_follows && items_end_ == front().end;
  report_.dwState = damaged ? ZMV_RECOVER_DAMAGED : closed ? ZMV_RECOVER_WHOLE : ZMV_RECOVER_CUT;
  report_.bCanInPlace = front().sound ? 1 : 0;
}

}  // namespace zmv::recover
