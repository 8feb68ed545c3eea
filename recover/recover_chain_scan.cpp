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

// A larger payload would take its size in memory. No encoder makes one; a picture of 8K as it is has 50 MB.
constexpr uint32_t kMaxPayload = 64u << 20;

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
  media_end_ = std::min(media_end, chain().file_end());
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
        TakeBox();
        break;
      case Item::kEnd:
        EndAt(position_);
        break;
      case Item::kRecordBeyond:
        LoseBeyond(place);
        break;
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
  if (SizeInDoubt(reading) && LeadsOverOthers(reading)) return false;
  if (result_ != 0) return false;
  return Deliver(record, reading, frame);
}

// A wrong size can lead to a later frame by chance; it then leads over others, and the first of them is gone to.
bool ChainScan::LeadsOverOthers(const Reading& reading) {
  uint64_t found = 0;
  if (!Search(position_ + chain().HeaderSize(), reading.end, found) || !CarriesOn(found, reading.end, true))
    return false;
  Skip(position_, found);
  return true;
}

// True when items follow each other from `from` to `end` or beyond, or to the end of the media data, or when they are
// many. Those of a payload that is itself a piece of a recording are few and end within it.
bool ChainScan::CarriesOn(uint64_t from, uint64_t end, bool in_doubt) {
  constexpr uint32_t kMany = 64;
  for (uint32_t i = 0; i < kMany; ++i) {
    const Place place = chain().At(from);
    if (from >= end) return place.Chained();
    if (place.item == Item::kTable) {
      from += kTableHeaderSize + uint64_t{place.table};
    } else {
      if (place.item == Item::kBox && (in_doubt || from == media_end_)) return true;
      if (place.item == Item::kEnd && in_doubt) return true;
      if (place.item != Item::kRecord) return false;
      const Reading reading = chain().Read(place.record, from);
      if (!reading.possible) return false;
      from = reading.next;
    }
  }
  return true;
}

// The size in a header that goes on in another sector may be damaged, unless the length of video bears it out.
bool ChainScan::SizeInDoubt(const Reading& reading) {
  return Straddles(position_, chain().HeaderSize()) && reading.prefix != Prefix::kRight;
}

// The chain breaks behind the payload: the record may be damaged, or the end of the payload, or only what follows.
bool ChainScan::TakeUnchained(const Record& record, const Reading& reading, FoundFrame& frame) {
  const uint64_t position = position_;
  // A size whose last byte is that of an erased sector leads to the end of one by itself.
  const bool erased = SizeInDoubt(reading) && chain().RestIsErased(SectorEnd(position));
  if (erased || (SizeInDoubt(reading) && !EndsUnwritten(record, reading) && !LeadsToLoss(reading))) {
    Lose(position, position + chain().HeaderSize());
    return false;
  }
  if (SizeInDoubt(reading) && LeadsOverOthers(reading)) return false;
  if (result_ != 0) return false;
  // What looks like a payload may be the beginning of a table whose header goes on in the damaged sector.
  const bool table = record.size != 0 && reading.prefix != Prefix::kRight && chain().BeginsTableAt(reading.payload);
  const bool damaged = table || reading.prefix == Prefix::kWrong || DamageReachesBack(record, reading);
  if (chain().Error() != 0) return Fail(chain().Error());
  if (!damaged) return Deliver(record, reading, frame);
  uint64_t found = 0;
  bool more = Search(position + chain().HeaderSize(), UINT64_MAX, found);
  if (more && found < reading.end && !table && !CarriesOn(found, reading.end, SizeInDoubt(reading))) {
    more = Search(reading.end, UINT64_MAX, found);
  }
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
  // They can be the first bytes of a box behind the media data, unless all of the sector is lost.
  if (MayBeginBox(reading) && (reading.next == media_end_ || !chain().RestIsZero(SectorStart(reading.next)))) {
    return false;
  }
  return !EndsUnwritten(record, reading);
}

// True when the payload is what was written last of its sector: zeros follow it, but it does not end with one.
bool ChainScan::EndsUnwritten(const Record& record, const Reading& reading) {
  return record.size != 0 && chain().RestIsZero(reading.end) && !chain().IsZero(reading.end - 1);
}

PayloadView ChainScan::View(const Reading& reading, const uint8_t* bytes) {
  const bool last = reading.behind.item == Item::kEnd;
  // The zeros in front of a box's size are its own.
  const bool box = reading.behind.item == Item::kBox && reading.behind.whole_header;
  const uint64_t from = SectorStart(reading.payload);
  return {.bytes = bytes - (reading.payload - from),
          .from = from,
          .begin = reading.payload,
          .end = reading.end,
          .to = last || box ? reading.end : SectorEndOf(reading),
          .last = last};
}

// The end of the payload's last sector, as far as the file goes.
uint64_t ChainScan::SectorEndOf(const Reading& reading) {
  return reading.end == reading.payload ? reading.end : std::min(SectorEnd(reading.end - 1), chain().file_end());
}

// With the whole of its first and of its last sector.
const uint8_t* ChainScan::Payload(const Reading& reading) {
  const uint64_t from = SectorStart(reading.payload);
  const uint8_t* bytes = window_.At(from, static_cast<uint32_t>(SectorEndOf(reading) - from));
  if (bytes != nullptr) return bytes + (reading.payload - from);
  Fail(window_.Error() != 0 ? window_.Error() : zmv::Result(ZMV_E_READ));
  return nullptr;
}

// True when zeros in a payload show that a sector of it is lost.
bool ChainScan::LostSector(const Record& record, const Reading& reading, const uint8_t* bytes) {
  if (!chain().Compressed(record)) return false;
  // No NAL unit holds three zero bytes in a row, between units there are few, and in other media seldom many.
  constexpr uint32_t kNalZeros = 4;
  constexpr uint32_t kUnitsZeros = 8;
  constexpr uint32_t kOtherZeros = 64;
  const uint32_t zeros = reading.prefix == Prefix::kRight   ? kNalZeros
                         : reading.prefix == Prefix::kStart ? kUnitsZeros
                                                            : kOtherZeros;
  return zeros_.ShowLoss(View(reading, bytes), zeros, streams_.Number(record));
}

// True when the payload, behind which nothing is written, may not have been written to its end.
bool ChainScan::LostTail(const Record& record, const Reading& reading, const uint8_t* bytes) {
  if (record.size == 0) return false;
  const uint64_t zeros = chain().file_end() - std::min(reading.next, chain().file_end());
  const uint8_t* const end = bytes + record.size;
  if (chain().Compressed(record)) {
    if (LostSector(record, reading, bytes)) return true;
    return zeros != 0 && end[-1] == 0 && !zeros_.EndsPadded(View(reading, bytes), streams_.Number(record));
  }
  // Fewer can be the first bytes of a box that closing began.
  if (zeros < kSizeField) return false;
  const uint64_t last = std::max(SectorStart(reading.end - 1), reading.payload);
  return std::all_of(bytes + (last - reading.payload), end, [](uint8_t byte) { return byte == 0; });
}

bool ChainScan::Deliver(const Record& record, const Reading& reading, FoundFrame& frame) {
  if (record.size > kMaxPayload) {
    ZMV_TRACE(kModule, kTraceError, "frame too large pos(%llu) size(%u)\n", static_cast<unsigned long long>(position_),
              record.size);
    position_ = items_end_ = reading.next;
    Drop(record);
    return false;
  }
  const uint8_t* bytes = Payload(reading);
  if (bytes == nullptr) return false;
  const bool at_end = reading.behind.item == Item::kEnd;
  if (at_end && LostTail(record, reading, bytes)) {
    EndAt(position_);
    return false;
  }
  const uint64_t position = position_;
  position_ = items_end_ = reading.next;
  if (reading.prefix == Prefix::kWrong || (!at_end && LostSector(record, reading, bytes))) {
    Drop(record);
    return false;
  }
  frame.position = position;
  frame.payload = reading.payload;
  frame.bytes = bytes;
  report_.llDataEnd = reading.end;
  Accept(record, frame);
  return true;
}

void ChainScan::TakeTable(uint32_t length) {
  const uint64_t end = position_ + kTableHeaderSize + length;
  if (end == media_end_ || chain().At(end).Chained()) {
    position_ = items_end_ = end;
  } else {
    Lose(position_, position_ + kTableHeaderSize);
  }
}

// What looks like a box that closing writes is one when no frame follows it.
void ChainScan::TakeBox() {
  uint64_t found = 0;
  if (media_end_ == 0 && chain().BoxesHoldNoTags() && Search(position_, UINT64_MAX, found)) {
    Skip(position_, found);
  } else if (result_ == 0) {
    EndAt(position_);
  }
}

void ChainScan::Drop(const Record& record) {
  ++report_.dwDropped;
  streams_.Interrupt(record);
}

// The payload of the record goes on behind the end of the file. When its size is sound nothing can follow it.
void ChainScan::LoseBeyond(const Place& place) {
  uint64_t found = 0;
  const bool more = Search(position_ + 1, UINT64_MAX, found);
  if (result_ != 0) return;
  const bool sized = place.whole_header && !SizeInDoubt(chain().Read(place.record, position_));
  if (more && (!sized || CarriesOn(found, UINT64_MAX, false))) {
    Skip(position_, found);
  } else {
    EndAt(position_);
  }
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

// True for a record that is borne out: by what stands behind its payload, or by how that begins, or because the payload
// ends where the next sector, which is lost, takes on.
bool ChainScan::IsFrame(uint64_t position) {
  const Place place = chain().At(position);
  if (place.item != Item::kRecord || place.record.stray) return false;
  const Reading reading = chain().Read(place.record, position);
  if (!reading.possible) return false;
  if (reading.behind.Chained() || reading.prefix == Prefix::kRight) return true;
  if (Straddles(position, chain().HeaderSize()) || reading.prefix == Prefix::kWrong) return false;
  return reading.prefix == Prefix::kStart || LeadsToLoss(reading);
}

// A damaged size hardly leads to a place from which on exactly a sector can be lost, or to the end of the media data.
bool ChainScan::LeadsToLoss(const Reading& reading) {
  return reading.end % kSectorSize == 0 || reading.next % kSectorSize == 0 || reading.next == media_end_ ||
         chain().BeginsTag(reading.next) || MayBeginBox(reading);
}

// True when the last bytes of a sector, behind the payload, can be the first ones of a box's size.
bool ChainScan::MayBeginBox(const Reading& reading) {
  return SectorEnd(reading.next) - reading.next < kSizeField && chain().RestIsZero(reading.next);
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
