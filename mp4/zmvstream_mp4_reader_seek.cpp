// Moving the tracks of a reader to a sample chosen by time. A search of one track leaves a pending place, which frame
// reading does not see; a seek makes the pending places of all its tracks the reading positions once every search is
// done, and otherwise leaves every track where it read.
#include <cstddef>

#include "base/trace.h"
#include "mp4/mp4_fragments.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_seek_search.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

// ---- The pending place of a track

// Makes the reading position the pending place, so that taking it changes nothing.
void HoldPlace(MP4ReaderTrack& track) {
  track.m_dwSeekPos = ZMVStreamBuf_Pos(track.m_hStream, track.m_dwIndex);
  track.m_dwSeekSample = track.m_dwSampleIndex;
  track.m_dwSeekSttsLeft = track.m_dwSttsLeft;
  track.m_dwSeekSttsDelta = track.m_dwSttsDelta;
  track.m_dwSeekDts = track.m_dwDts;
  track.m_dwSeekStscEntry = track.m_dwStscEntry;
  track.m_dwSeekNextFirstChunk = track.m_dwNextFirstChunk;
  track.m_dwSeekSamplesPerChunk = track.m_dwSamplesPerChunk;
  track.m_dwSeekSamplesLeft = track.m_dwSamplesLeft;
  track.m_dwSeekChunk = track.m_dwChunkIndex;
  track.m_dwSeekSyncEntry = track.m_dwSyncEntry;
  track.m_dwSeekNextSync = track.m_dwNextSync;
  track.m_dwSeekFragDts = track.m_dwFragDts;
  track.m_dwSeekTrunIndex = track.m_dwTrunIndex;
  track.m_dwSeekTrunLeft = track.m_dwTrunLeft;
  track.m_dwSeekBaseOffset = track.m_dwBaseOffset;
  track.m_dwSeekTfhdDuration = track.m_dwTfhdDuration;
  track.m_dwSeekTfhdSize = track.m_dwTfhdSize;
  track.m_dwSeekTrunFlags = track.m_dwTrunFlags;
  track.m_dwSeekTrunEnd = track.m_dwTrunEnd;
}

// Makes the start of the fragments the pending place in them: what is found in moov has them all ahead, as after
// opening.
void HoldFragmentStart(MP4ReaderTrack& track) {
  track.m_dwSeekFragDts = track.m_dwSeekTrunIndex = track.m_dwSeekTrunLeft = 0;
  track.m_dwSeekBaseOffset = track.m_dwSeekTfhdDuration = track.m_dwSeekTfhdSize = 0;
}

// Makes the pending place the reading position. The cursors of the tables stand there since the search.
void TakePlace(MP4ReaderTrack& track) {
  track.m_dwSampleIndex = track.m_dwSeekSample;
  track.m_dwSttsLeft = track.m_dwSeekSttsLeft;
  if (track.m_bPcmFraming == 0) track.m_dwSttsDelta = track.m_dwSeekSttsDelta;
  track.m_dwDts = track.m_dwSeekDts;
  track.m_dwStscEntry = track.m_dwSeekStscEntry;
  track.m_dwNextFirstChunk = track.m_dwSeekNextFirstChunk;
  track.m_dwSamplesPerChunk = track.m_dwSeekSamplesPerChunk;
  track.m_dwSamplesLeft = track.m_dwSeekSamplesLeft;
  track.m_dwChunkIndex = track.m_dwSeekChunk;
  track.m_dwSyncEntry = track.m_dwSeekSyncEntry;
  track.m_dwNextSync = track.m_dwSeekNextSync;
  track.m_dwFragDts = track.m_dwSeekFragDts;
  track.m_dwTrunIndex = track.m_dwSeekTrunIndex;
  track.m_dwTrunLeft = track.m_dwSeekTrunLeft;
  track.m_dwBaseOffset = track.m_dwSeekBaseOffset;
  track.m_dwTfhdDuration = track.m_dwSeekTfhdDuration;
  track.m_dwTfhdSize = track.m_dwSeekTfhdSize;
  track.m_dwTrunFlags = track.m_dwSeekTrunFlags;
  track.m_dwTrunEnd = track.m_dwSeekTrunEnd;
  // A place in moov leaves it as it is: it goes back to no fragment, but knows what their base offset was.
  if (track.m_dwTrunIndex != 0) track.m_dwSearchBase = track.m_dwBaseOffset;
  const int64_t result = ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, track.m_dwSeekPos);
  if (Failed(result)) Report(StreamError(result), "MP4FReaderStreamSeek");
}

// ---- The search of one track

void TraceFound(const MP4ReaderTrack& track, uint32_t time) {
  const char* format = "[Reader]\tMP4 SEEK TEXT(%d) chk=%d pos=%x cts=%d \n";
  if (track.m_dwMediaType == ZMV_MEDIA_AUDIO) format = "[Reader]\tMP4 SEEK AUDIO(%d) chk=%d pos=%x cts=%d \n";
  if (track.m_dwMediaType == ZMV_MEDIA_VIDEO) format = "[Reader]\tMP4 SEEK VIDEO(%d) chk=%d pos=%x cts=%d \n";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, "MP4FReaderGetSeekPos", format,
              static_cast<int>(track.m_dwSeekSample), static_cast<int>(track.m_dwSeekChunk), track.m_dwSeekPos,
              static_cast<int>(time));
#pragma GCC diagnostic pop
}

int32_t SearchTables(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t* time, SeekMode mode) {
  uint32_t target = *time;
  if (track.m_Frag.m_dwCursor != 0 && (target > track.m_dwDuration || track.m_dwSampleCount == 0)) {
    return SearchFragments(handle, track, time, "MP4ReaderGetSeekPosFrag");
  }
  if (target > track.m_dwDuration) {
    if (target > handle.m_dwDuration) return kSeekNotFound;
    target = track.m_dwDuration;
  }
  if (track.m_dwSampleCount == 0 || track.m_dwChunkCount == 0) return kSeekNotFound;
  uint32_t found_time = 0;
  SyncTable syncs(handle, track);
  int32_t result = FindSample(handle, track, syncs, target, mode, &found_time);
  if (result == kSeekFound) result = PlaceSample(handle, track);
  if (result == kSeekFound) result = PlaceSyncEntry(handle, track, syncs);
  if (result != kSeekFound) return result;
  *time = found_time;
  TraceFound(track, found_time);
  return kSeekFound;
}

// 1 with the pending place and the time of the sample found; 0 when there is none. A failed read gives the low byte of
// its code, which counts as done: the pending place is then the reading position.
uint8_t Search(MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t* time, SeekMode mode) {
  HoldPlace(track);
  HoldFragmentStart(track);
  MP4ReaderSaveStblPos(&handle, &track);
  int32_t result = MP4ReaderSetStblPos(&handle, &track);
  if (!Failed(result)) result = SearchTables(handle, track, time, mode);
  if (result == kSeekFound) return 1;
  MP4ReaderLoadStblPos(&handle, &track);
  HoldPlace(track);
  return Failed(result) ? static_cast<uint8_t>(Report(result, "MP4FReaderGetSeekPos")) : uint8_t{0};
}

// ---- Tracks

// The current track of a medium, and the slot number that names it.
struct Current {
  const uint8_t* present = nullptr;
  uint32_t* slot = nullptr;
};

Current CurrentOf(MP4FReaderHandle& handle, uint32_t media) {
  switch (media) {
    case ZMV_MEDIA_VIDEO:
      return {&handle.m_bHasVideo, &handle.m_dwCurVideo};
    case ZMV_MEDIA_AUDIO:
      return {&handle.m_bHasAudio, &handle.m_dwCurAudio};
    case ZMV_MEDIA_TEXT:
      return {&handle.m_bHasText, &handle.m_dwCurText};
    default:
      return {};
  }
}

// A track that can be read; null for an empty slot and for a track that GetInfo did not get to.
MP4ReaderTrack* TrackInSlot(const MP4FReaderHandle& handle, uint32_t slot) {
  MP4ReaderTrack* track = slot < handle.m_dwTrackCount ? handle.m_pTrack[slot] : nullptr;
  return track != nullptr && track->m_hStream != nullptr ? track : nullptr;
}

MP4ReaderTrack* CurrentTrack(MP4FReaderHandle& handle, uint32_t media) {
  const Current current = CurrentOf(handle, media);
  return current.slot != nullptr && *current.present != 0 ? TrackInSlot(handle, *current.slot) : nullptr;
}

// ---- Seeks of several tracks

constexpr uint32_t kMedia[] = {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT};
constexpr size_t kMediaCount = sizeof(kMedia) / sizeof(kMedia[0]);
enum : size_t { kVideo = 0, kAudio = 1, kText = 2 };

// Who leads, and the mode of each medium in the order of kMedia.
struct SeekPlan {
  size_t leader;
  SeekMode modes[kMediaCount];
};

constexpr SeekPlan kByTime = {kVideo, {SeekMode::kNearest, SeekMode::kNearest, SeekMode::kBackward}};
constexpr SeekPlan kByTimeAudioLed = {kAudio, {SeekMode::kBackward, SeekMode::kBackward, SeekMode::kBackward}};
constexpr SeekPlan kToKeyBefore = {kVideo, {SeekMode::kBackward, SeekMode::kBackward, SeekMode::kBackward}};
constexpr SeekPlan kToKeyBehind = {kVideo, {SeekMode::kForward, SeekMode::kForward, SeekMode::kForward}};
constexpr SeekPlan kToTextBefore = {kText, {SeekMode::kBackward, SeekMode::kNearest, SeekMode::kBackward}};
constexpr SeekPlan kToTextBehind = {kText, {SeekMode::kBackward, SeekMode::kNearest, SeekMode::kForward}};

class GroupSeek {
 public:
  GroupSeek(MP4FReaderHandle& handle, const SeekPlan& plan) : handle_(handle), plan_(plan) {
    for (size_t i = 0; i < kMediaCount; ++i) tracks_[i] = CurrentTrack(handle, kMedia[i]);
  }

  // The leader writes *time; the others search with a copy.
  uint8_t Run(uint32_t* time) {
    size_t leader = plan_.leader;
    for (size_t i = 0; i < kMediaCount && tracks_[leader] == nullptr; ++i) leader = i;
    if (tracks_[leader] == nullptr || !SearchOne(leader, time)) return 0;
    for (size_t i = 0; i < kMediaCount; ++i) {
      uint32_t target = *time;
      if (i == leader || tracks_[i] == nullptr || SearchOne(i, &target)) continue;
      Undo();
      return 0;
    }
    for (MP4ReaderTrack* track : tracks_) {
      if (track != nullptr) TakePlace(*track);
    }
    return 1;
  }
  bool Has(size_t medium) const { return tracks_[medium] != nullptr; }

 private:
  bool SearchOne(size_t medium, uint32_t* time) {
    searched_[medium] = Search(handle_, *tracks_[medium], time, plan_.modes[medium]) != 0;
    return searched_[medium];
  }
  void Undo() {
    for (size_t i = 0; i < kMediaCount; ++i) {
      if (searched_[i]) MP4ReaderLoadStblPos(&handle_, tracks_[i]);
    }
  }

  MP4FReaderHandle& handle_;
  const SeekPlan& plan_;
  MP4ReaderTrack* tracks_[kMediaCount];
  bool searched_[kMediaCount] = {};
};

uint8_t SeekTogether(MP4FReaderHandle* handle, uint32_t* time, const SeekPlan& plan) {
  if (handle == nullptr || time == nullptr) return 0;
  GroupSeek seek(*handle, plan);
  if (plan.leader == kText && !seek.Has(kText)) return 0;
  return seek.Run(time);
}

uint8_t SeekByMedia(MP4FReaderHandle& handle, uint32_t* time, uint32_t media) {
  MP4ReaderTrack* track = CurrentTrack(handle, media);
  if (track == nullptr || Search(handle, *track, time, SeekMode::kForward) == 0) return 0;
  TakePlace(*track);
  return 1;
}

// The slot of the track with this rank among those of its medium; the number of slots when there is none.
uint32_t SlotOfRank(const MP4FReaderHandle& handle, uint32_t rank, uint32_t media) {
  uint32_t slot = 0;
  for (; slot < handle.m_dwTrackCount; ++slot) {
    const MP4ReaderTrack* track = handle.m_pTrack[slot];
    if (track == nullptr || track->m_dwMediaType != media) continue;
    if (rank-- == 0) break;
  }
  return slot;
}

int32_t ChangeTrack(MP4FReaderHandle& handle, uint32_t rank, uint32_t time, uint32_t media) {
  const Current current = CurrentOf(handle, media);
  if (current.slot == nullptr) return 0;
  const uint32_t slot = SlotOfRank(handle, rank, media);
  MP4ReaderTrack* track = TrackInSlot(handle, slot);
  if (track == nullptr || (*current.present != 0 && *current.slot == slot)) return 0;
  if (Search(handle, *track, &time, SeekMode::kBackward) == 0) return 0;
  TakePlace(*track);
  *current.slot = slot;
  return 1;
}

constexpr bool IsMode(uint32_t mode) {
  return mode >= static_cast<uint32_t>(SeekMode::kForward) && mode <= static_cast<uint32_t>(SeekMode::kNearest);
}

}  // namespace
}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

uint8_t MP4FReaderGetSeekPos(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t* time, uint32_t mode) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr || track->m_hStream == nullptr) return 0;
  if (time == nullptr || !IsMode(mode)) return 0;
  return Search(*handle, *track, time, static_cast<SeekMode>(mode));
}

uint8_t MP4FReaderStreamSeek(MP4ReaderTrack* track) {
  TraceScope scope(kModule, __func__);
  if (track == nullptr || track->m_hStream == nullptr) return 0;
  TakePlace(*track);
  return 1;
}

uint8_t MP4FReaderSeekByTime(MP4FReaderHandle* handle, uint32_t* time, uint8_t audioLed) {
  TraceScope scope(kModule, __func__);
  return SeekTogether(handle, time, audioLed != 0 ? kByTimeAudioLed : kByTime);
}

uint8_t MP4FReaderSeekByKeyFrame(MP4FReaderHandle* handle, uint32_t* time, uint8_t forward) {
  TraceScope scope(kModule, __func__);
  return SeekTogether(handle, time, forward != 0 ? kToKeyBehind : kToKeyBefore);
}

uint8_t MP4FReaderSeekBySubtitle(MP4FReaderHandle* handle, uint32_t* time, uint8_t forward) {
  TraceScope scope(kModule, __func__);
  return SeekTogether(handle, time, forward != 0 ? kToTextBehind : kToTextBefore);
}

uint8_t MP4FReaderSeekByMedia(MP4FReaderHandle* handle, uint32_t* time, uint32_t media) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr && time != nullptr ? SeekByMedia(*handle, time, media) : uint8_t{0};
}

int32_t MP4FReaderChangeTrack(MP4FReaderHandle* handle, uint32_t rank, uint32_t time, uint32_t media) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr ? ChangeTrack(*handle, rank, time, media) : 0;
}
