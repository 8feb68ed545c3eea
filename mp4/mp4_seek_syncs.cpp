// The search for key frames.
#include "mp4/mp4_seek_syncs.h"

namespace zmv::mp4::reader {
namespace {

constexpr uint32_t SampleOf(uint32_t number) { return number != 0 ? number - 1 : 0; }

}  // namespace

SyncTable::SyncTable(const MP4FReaderHandle& handle, MP4ReaderTrack& track)
    : present_(track.m_dwStssCursor != 0),
      entries_(*handle.m_hStream, track.m_dwStssCursor, track.m_dwStssStart, present_ ? track.m_dwStssCount : 0),
      marks_(track.m_SyncMarks),
      stride_(entries_.Count() / kMp4SyncMarks + 1) {
  // The marks of another table say nothing about this one.
  if (marks_.m_dwTable != track.m_dwStssStart || marks_.m_dwEntries != entries_.Count()) {
    marks_.m_dwTable = track.m_dwStssStart;
    marks_.m_dwEntries = entries_.Count();
    marks_.m_dwCount = 0;
  }
}

uint32_t SyncTable::First() {
  if (marks_.m_dwCount != 0) return SampleOf(marks_.m_dwNumber[0]);
  uint32_t number = 0;
  StartBelow(0);
  Next(&number);
  return SampleOf(number);
}

KeyFrames SyncTable::Around(uint32_t sample) {
  if (entries_.Count() == 0) return {};
  bool first = StartBelow(sample) == 0;
  KeyFrames keys;
  keys.before = NextSample();
  keys.next = NextSample();
  // At the first one it may be met once more.
  while (keys.next < sample && (keys.next > keys.before || (first && keys.next == keys.before))) {
    keys.before = keys.next;
    keys.next = NextSample();
    first = false;
  }
  return keys;
}

uint32_t SyncTable::UpTo(uint32_t sample, uint32_t* number) {
  *number = 0;
  StartBelow(sample);
  while (Next(number) && *number < sample) continue;
  return entry_;
}

// Goes to the last mark whose number is below `number`, or to the start of the table; the entry there. Up to the last
// mark numbers only rise, so none that is left out reaches the number, or lies anywhere but ahead of the one before it.
uint32_t SyncTable::StartBelow(uint32_t number) {
  uint32_t low = 1;
  for (uint32_t high = marks_.m_dwCount; low < high;) {
    const uint32_t middle = low + (high - low) / 2;
    if (marks_.m_dwNumber[middle] < number) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  entry_ = (low - 1) * stride_;
  rising_ = true;
  last_ = low > 1 ? int64_t{marks_.m_dwNumber[low - 1]} - 1 : -1;
  return entry_;
}

// The number of the next entry; false, and nothing changed, behind the last one.
bool SyncTable::Next(uint32_t* number) {
  const uint8_t* bytes = entries_.At(entry_);
  if (bytes == nullptr) return false;
  *number = BigEndian32(bytes);
  rising_ = rising_ && int64_t{*number} > last_;
  last_ = *number;
  if (rising_ && entry_ == marks_.m_dwCount * stride_ && marks_.m_dwCount != kMp4SyncMarks) {
    marks_.m_dwNumber[marks_.m_dwCount++] = *number;
  }
  ++entry_;
  return true;
}

uint32_t SyncTable::NextSample() {
  uint32_t number = 0;
  return Next(&number) ? SampleOf(number) : kNoKeyFrame;
}

}  // namespace zmv::mp4::reader
