// The walk through stts.
#include "mp4/mp4_seek_times.h"

#include "base/arith.h"
#include "mp4/mp4_seek_ticks.h"

namespace zmv::mp4::reader {
namespace {

constexpr uint32_t kMillisecondScale = 1000;

template <typename Integer>
constexpr Integer Lower(Integer a, Integer b) {
  return a < b ? a : b;
}

// Milliseconds of one chunk of constant-size audio; 0 when its entry does not say how fast the samples go by.
uint32_t ChunkMilliseconds(const MP4ReaderTrack& track) {
  const uint64_t bytes_per_second = uint64_t{track.m_dwBitsPerSample / 8} * track.m_dwSampleRate;
  if (bytes_per_second == 0) return 0;
  const float chunks_per_second = static_cast<float>(bytes_per_second) / static_cast<float>(track.m_dwSampleSize);
  return SaturatingU32(kMilliseconds / chunks_per_second);
}

}  // namespace

TimeWalk::TimeWalk(const MP4FReaderHandle& handle, MP4ReaderTrack& track)
    : entries_(*handle.m_hStream, track.m_Stts.m_dwCursor, track.m_Stts.m_dwStart,
               track.m_Stts.m_dwCursor != 0 ? track.m_dwSttsCount : 0),
      marks_(track.m_TimeMarks),
      stride_(entries_.Count() / (kMp4TimeMarks + 1) + 1),
      scale_(track.m_dwTimeScale),
      by_chunk_(track.m_bPcmFraming != 0 && track.m_dwSampleSize != 0) {
  if (by_chunk_) {
    chunk_delta_ = ChunkMilliseconds(track);
    scale_ = kMillisecondScale;
  }
  // The marks of another table say nothing about this one.
  if (marks_.m_dwTable != track.m_Stts.m_dwStart || marks_.m_dwEntries != entries_.Count()) {
    marks_.m_dwTable = track.m_Stts.m_dwStart;
    marks_.m_dwEntries = entries_.Count();
    marks_.m_dwCount = 0;
  }
}

void TimeWalk::ToTicks(uint64_t reach, uint32_t limit, TimePlace* place, bool* exhausted) {
  // Up to the last mark ticks only rise, so a mark below `reach` has nothing before it that reaches it.
  uint32_t low = 0;
  for (uint32_t high = marks_.m_dwCount; low < high;) {
    const uint32_t middle = low + (high - low) / 2;
    const MP4ReaderTimeMark& mark = marks_.m_Mark[middle];
    if (mark.m_dwDts < reach && mark.m_dwSample < limit) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  StartAt(low);
  const uint64_t bound = Lower(reach, kTickModulus);
  for (;;) {
    if (at_.left == 0) PassRuns(bound, limit);
    *exhausted = at_.sample >= limit || (at_.left == 0 && !NextRun());
    if (*exhausted || at_.dts >= reach) break;
    const uint32_t span = Lower(at_.left, limit - at_.sample);
    const bool passes = at_.dts + uint64_t{span} * at_.delta < bound;
    Advance(passes ? span : StepsToTicks(at_.dts, at_.delta, reach, span));
  }
  *place = at_;
}

void TimeWalk::ToSample(uint32_t sample, TimePlace* place) {
  uint32_t low = 0;
  for (uint32_t high = marks_.m_dwCount; low < high;) {
    const uint32_t middle = low + (high - low) / 2;
    if (marks_.m_Mark[middle].m_dwSample <= sample) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  StartAt(low);
  while (at_.left != 0 && at_.sample != sample) {
    Advance(Lower(at_.left, sample - at_.sample));
    if (at_.left != 0) continue;
    PassRuns(kTickModulus, sample + 1);
    NextRun();
  }
  *place = at_;
}

// Enters the run at the last of the first `marks` marks, or the first run of the table.
void TimeWalk::StartAt(uint32_t marks) {
  at_ = {};
  wrapped_ = false;
  if (marks != 0) {
    const MP4ReaderTimeMark& mark = marks_.m_Mark[marks - 1];
    at_.sample = mark.m_dwSample;
    at_.dts = mark.m_dwDts;
    at_.entry = marks * stride_;
  }
  NextRun();
  if (by_chunk_ && marks == 0) at_.delta = chunk_delta_;
}

// Leaves the runs of the present block behind that end before `bound` ticks and `limit` samples, up to the next mark to
// be set. Most of a search is spent here.
void TimeWalk::PassRuns(uint64_t bound, uint32_t limit) {
  const uint32_t mark = (marks_.m_dwCount + 1) * stride_;
  uint32_t entries = entries_.Held(at_.entry);
  if (at_.entry <= mark) entries = Lower(entries, mark - at_.entry);
  if (entries == 0 || at_.sample >= limit) return;
  TimePlace at = at_;
  for (const uint8_t* entry = entries_.At(at.entry); entries != 0; entry += kSttsEntrySize, --entries) {
    const uint32_t count = BigEndian32(entry);
    const uint32_t delta = BigEndian32(entry + kSttsEntrySize / 2);
    const uint64_t end = at.dts + uint64_t{count} * delta;
    if (end >= bound || count >= limit - at.sample) break;
    at.sample += count;
    at.dts = static_cast<uint32_t>(end);
    if (count != 0) at.delta = delta;
    ++at.entry;
  }
  at_ = at;
}

// Enters the next run that has samples; false when there is none.
bool TimeWalk::NextRun() {
  while (const uint8_t* entry = entries_.At(at_.entry)) {
    const uint32_t count = BigEndian32(entry);
    if (count != 0) SetMark(at_.entry);
    ++at_.entry;
    if (count == 0) continue;
    at_.left = count;
    at_.delta = BigEndian32(entry + kSttsEntrySize / 2);
    return true;
  }
  return false;
}

// Sets the mark of a run that is being entered when its turn has come. A mark stands at a run that has samples, so that
// the duration in force there needs no look back, and never at the first such run, which may have a duration of its
// own; where the entry at its place does not allow it, the marks end. They end, too, where ticks wrap, behind which a
// time may have been met before.
void TimeWalk::SetMark(uint32_t entry) {
  if (entry != (marks_.m_dwCount + 1) * stride_ || at_.sample == 0) return;
  if (wrapped_ || marks_.m_dwCount == kMp4TimeMarks) return;
  marks_.m_Mark[marks_.m_dwCount++] = {at_.sample, at_.dts};
}

void TimeWalk::Advance(uint32_t samples) {
  const uint64_t dts = at_.dts + uint64_t{samples} * at_.delta;
  if (dts >= kTickModulus) wrapped_ = true;
  at_.sample += samples;
  at_.left -= samples;
  at_.dts = static_cast<uint32_t>(dts);
}

}  // namespace zmv::mp4::reader
