// Moving the streams of a reader to an index entry chosen by time. A search of one stream leaves a pending place, which
// frame reading does not see; a seek makes the pending places of its streams the reading positions once every search is
// done, and otherwise leaves every stream where it read.
#include "avi/avi_frames.h"

namespace zmv::avi::reader {
namespace {

enum class SeekMode : uint32_t { kNext = 1, kPrevious = 2, kNearest = 3 };

constexpr bool IsMode(uint32_t mode) {
  return mode >= static_cast<uint32_t>(SeekMode::kNext) && mode <= static_cast<uint32_t>(SeekMode::kNearest);
}

// An index entry to go on from, and what is counted at that point. The numbers need not be those of the entry.
struct Place {
  uint32_t entry = 0;
  uint32_t frame = 0;
  uint32_t units = 0;  // samples in front of it; 0 in a stream without sample size
};

constexpr bool IsKey(const AVIReaderIndexEntry& entry) { return entry.m_dwFlags == kKeyFrameFlag; }

// ---- The search of one stream

// The frame at a time, to the nearest.
uint64_t TargetFrame(const AVIReaderStream& stream, uint32_t time) {
  constexpr uint32_t kThousand = 1000;
  uint32_t thousandths = 0;
  if (stream.m_dwScale != 0) {
    thousandths = SaturatingU32(static_cast<float>(stream.m_dwRate) * static_cast<float>(time) /
                                static_cast<float>(stream.m_dwScale));
  }
  return (uint64_t{thousandths} + kThousand / 2) / kThousand;
}

// A stream with a sample size: the entry that holds the sample at a time.
bool FindSample(const AVIReaderStream& stream, uint32_t time, Place* place) {
  if (stream.m_dwScale != 0) {
    const double rate = static_cast<double>(stream.m_dwRate) / static_cast<double>(stream.m_dwScale);
    place->units = SaturatingU32(rate * (static_cast<double>(time) / 1000.0));
  }
  uint64_t left = uint64_t{place->units} * stream.m_dwSampleSize;
  uint32_t entry = 0;
  for (; entry < stream.m_dwIndexEntries && left >= stream.m_pIndex[entry].m_dwSize; ++entry) {
    left -= stream.m_pIndex[entry].m_dwSize;
  }
  place->entry = place->frame = entry;
  return entry < stream.m_dwIndexEntries;
}

// The key frames around a frame, of those behind frame 0.
struct KeysBefore {
  uint32_t last = 0;     // at or before it; frame 0 when there is none
  uint32_t earlier = 0;  // the one before the last
};

uint32_t FindKeyBack(const AVIReaderStream& stream, uint32_t frame) {
  while (frame > 0 && !IsKey(stream.m_pIndex[frame])) --frame;
  return frame;
}

KeysBefore FindKeysBefore(const AVIReaderStream& stream, uint32_t frame) {
  KeysBefore keys;
  keys.last = FindKeyBack(stream, frame);
  if (keys.last > 0) keys.earlier = FindKeyBack(stream, keys.last - 1);
  return keys;
}

// The first key frame behind a frame; the number of entries when there is none.
uint32_t FindKeyBehind(const AVIReaderStream& stream, uint32_t frame) {
  uint32_t entry = frame + 1;
  while (entry < stream.m_dwIndexEntries && !IsKey(stream.m_pIndex[entry])) ++entry;
  return entry;
}

// The frame is counted one short of the key frame's own number, so what follows is stamped one frame early. Without a
// key frame the last entry is taken for the frame asked for.
bool TakeNext(const AVIReaderStream& stream, uint32_t frame, Place* place) {
  if (frame + 1 >= stream.m_dwIndexEntries) {
    ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, "AVIReaderGetSeekPos", "pIndex is NULL!\n");
    return false;
  }
  const uint32_t key = FindKeyBehind(stream, frame);
  if (key < stream.m_dwIndexEntries) {
    *place = {.entry = key, .frame = key - 1};
  } else {
    *place = {.entry = key - 1, .frame = frame};
  }
  return true;
}

void TakeNearest(const AVIReaderStream& stream, uint32_t frame, Place* place) {
  constexpr const char* kFunction = "AVIReaderGetSeekPos";
  if (IsKey(stream.m_pIndex[frame])) {
    *place = {.entry = frame, .frame = frame};
    return;
  }
  const KeysBefore keys = FindKeysBefore(stream, frame);
  const uint32_t next = FindKeyBehind(stream, frame);
  // The distance back is counted from the key frame before the last one, and its number goes with the last one's entry.
  // Without a key frame ahead the one behind is nearer, however far it lies.
  if (next >= stream.m_dwIndexEntries || frame - keys.earlier < next - frame) {
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction,
                "AVIReaderSeekStreamPos(%d) - Prev=%d\n", static_cast<int>(frame), static_cast<int>(keys.earlier));
    *place = {.entry = keys.last, .frame = keys.earlier};
  } else {
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction,
                "AVIReaderSeekStreamPos(%d) - Next=%d\n", static_cast<int>(frame), static_cast<int>(next));
    *place = {.entry = next, .frame = next};
  }
}

bool FindFrame(const AVIReaderStream& stream, uint32_t frame, SeekMode mode, Place* place) {
  switch (mode) {
    case SeekMode::kNext:
      return TakeNext(stream, frame, place);
    case SeekMode::kPrevious:
      place->entry = place->frame = FindKeysBefore(stream, frame).last;
      return true;
    default:
      TakeNearest(stream, frame, place);
      return true;
  }
}

bool FindPlace(const AVIReaderStream& stream, bool first_entry, uint32_t time, SeekMode mode, Place* place) {
  if (stream.m_dwIndexEntries == 0 || stream.m_pIndex == nullptr) return false;
  if (!first_entry && stream.m_dwSampleSize != 0) return FindSample(stream, time, place);
  const uint64_t target = TargetFrame(stream, time);
  if (target >= stream.m_dwIndexEntries) return false;
  const uint32_t frame = static_cast<uint32_t>(target);
  if (!first_entry) return FindFrame(stream, frame, mode, place);
  *place = {.entry = 0, .frame = frame};
  return true;
}

// True with the pending place and its time; nothing is changed otherwise.
bool Search(const AVIReaderHandle& handle, AVIReaderStream& stream, bool first_entry, uint32_t* time, SeekMode mode) {
  Place place;
  if (!FindPlace(stream, first_entry, *time, mode, &place)) return false;
  const AVIReaderIndexEntry& entry = stream.m_pIndex[place.entry];
  const uint64_t end = uint64_t{handle.m_dwBase} + entry.m_dwPos + entry.m_dwSize;
  if (!Reaches(stream, end)) return false;
  stream.m_dwSeekEntry = place.entry;
  stream.m_dwSeekFrame = place.frame;
  stream.m_dwSeekUnits = place.units;
  stream.m_dwSeekPos = entry.m_dwPos;
  *time = Milliseconds(stream, place.units != 0 ? place.units : place.frame) + stream.m_dwStartTime;
  const bool audio = stream.m_dwMediaType == ZMV_MEDIA_AUDIO;
  if (audio || stream.m_dwMediaType == ZMV_MEDIA_VIDEO) {
    const char* format = audio ? "AVI SEEK AUDIO(%d) pos=%x cts=%d \n" : "AVI SEEK VIDEO(%d) pos=%x cts=%d \n";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, "AVIReaderGetSeekPos", format,
                static_cast<int>(place.frame), entry.m_dwPos, static_cast<int>(*time));
#pragma GCC diagnostic pop
  }
  return true;
}

bool Search(const AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t* time, SeekMode mode) {
  return Search(handle, stream, handle.m_bSeekOption != 0, time, mode);
}

// Makes the pending place the reading position.
int32_t TakePlace(uint32_t base, AVIReaderStream& stream) {
  constexpr const char* kFunction = "AVIReaderSeekStream";
  const uint64_t position = uint64_t{base} + stream.m_dwSeekPos;
  if (position > UINT32_MAX) return Report(Result(ZMV_E_SEEK), kFunction);
  const int64_t result = MoveTo(stream, static_cast<uint32_t>(position));
  if (Failed(result)) return Report(StreamError(result), kFunction);
  stream.m_dwFrameNo = stream.m_dwSeekFrame;
  stream.m_dwBytesRead = static_cast<uint32_t>(uint64_t{stream.m_dwSeekUnits} * stream.m_dwSampleSize);
  stream.m_dwPos = static_cast<uint32_t>(position);
  stream.m_dwPendingSize = 0;
  stream.m_bPadPending = 0;
  stream.m_dwIndexCur = stream.m_dwSeekEntry;
  return 0;
}

// ---- Seeks of several streams

AVIReaderStream* FirstAudio(const AVIReaderHandle& handle) {
  return handle.m_bHasAudio != 0 ? StreamAt(handle, handle.m_dwFirstAudio) : nullptr;
}
AVIReaderStream* FirstVideo(const AVIReaderHandle& handle) {
  return handle.m_bHasVideo != 0 ? StreamAt(handle, handle.m_dwFirstVideo) : nullptr;
}

// The streams that a seek moves: searched one after another, moved together. A stream that is not searched reads on.
class GroupSeek {
 public:
  explicit GroupSeek(const AVIReaderHandle& handle) : handle_(handle) {}

  // A null stream is left out.
  bool Find(AVIReaderStream* stream, uint32_t* time, SeekMode mode) {
    if (stream == nullptr) return true;
    if (!Search(handle_, *stream, time, mode)) return false;
    found_[count_++] = stream;
    return true;
  }
  // The streams that were found are within the data, so none can fail to move.
  uint8_t Take() const {
    for (uint32_t i = 0; i < count_; ++i) TakePlace(handle_.m_dwBase, *found_[i]);
    return count_ != 0 ? 1 : 0;
  }

 private:
  const AVIReaderHandle& handle_;
  AVIReaderStream* found_[kMaxStreams + 1] = {};
  uint32_t count_ = 0;
};

uint8_t SeekByTime(const AVIReaderHandle& handle, uint32_t* time, bool previous_key) {
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, "AVIReaderSeekByTime", "cts=%d \n",
              static_cast<int>(*time));
  AVIReaderStream* const first = previous_key ? FirstAudio(handle) : FirstVideo(handle);
  AVIReaderStream* const second = previous_key ? FirstVideo(handle) : FirstAudio(handle);
  const SeekMode mode = previous_key ? SeekMode::kPrevious : SeekMode::kNearest;
  GroupSeek seek(handle);
  if (!seek.Find(first, time, mode)) return 0;
  uint32_t target = *time;
  if (!seek.Find(second, &target, mode)) return 0;
  *time = target;
  return seek.Take();
}

uint8_t SeekByKeyFrame(const AVIReaderHandle& handle, uint32_t* time, bool forward) {
  const SeekMode mode = forward ? SeekMode::kNext : SeekMode::kPrevious;
  GroupSeek seek(handle);
  for (uint32_t number = 0; number < handle.m_dwStreamCount && number < kMaxStreams; ++number) {
    AVIReaderStream* stream = StreamAt(handle, number);
    if (stream == nullptr || stream->m_dwMediaType != ZMV_MEDIA_VIDEO) continue;
    if (!seek.Find(stream, time, mode)) return 0;
  }
  uint32_t target = *time;
  if (!seek.Find(FirstAudio(handle), &target, mode)) return 0;
  return seek.Take();
}

uint8_t SeekByMedia(const AVIReaderHandle& handle, uint32_t* time, uint32_t media) {
  AVIReaderStream* stream = nullptr;
  if (media == ZMV_MEDIA_AUDIO) stream = FirstAudio(handle);
  if (media == ZMV_MEDIA_VIDEO) stream = FirstVideo(handle);
  GroupSeek seek(handle);
  return seek.Find(stream, time, SeekMode::kNext) ? seek.Take() : uint8_t{0};
}

// The number of the current stream of a medium, or null for a medium without one.
uint32_t* CurrentOf(AVIReaderHandle& handle, uint32_t media) {
  if (media == ZMV_MEDIA_AUDIO) return &handle.m_dwFirstAudio;
  return media == ZMV_MEDIA_VIDEO ? &handle.m_dwFirstVideo : nullptr;
}

int32_t ChangeTrack(AVIReaderHandle& handle, uint32_t rank, uint32_t time, uint32_t media) {
  AVIReaderStream* const stream = StreamOfRank(handle, media, rank);
  uint32_t* const current = CurrentOf(handle, media);
  if (stream == nullptr || (current != nullptr && StreamAt(handle, *current) == stream)) return 0;
  GroupSeek seek(handle);
  if (!seek.Find(stream, &time, SeekMode::kPrevious)) return 0;
  if (current != nullptr) *current = stream->m_dwStreamNo;
  return seek.Take();
}

}  // namespace
}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

uint8_t AVIReaderGetSeekPos(AVIReaderHandle* handle, uint32_t seekOption, AVIReaderStream* stream, uint32_t* time,
                            uint32_t mode) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || stream == nullptr || stream->m_hStream == nullptr || time == nullptr) return 0;
  if (seekOption == 0 && !IsMode(mode)) return 0;
  return Search(*handle, *stream, seekOption != 0, time, static_cast<SeekMode>(mode)) ? 1 : 0;
}

int32_t AVIReaderSeekStream(uint32_t baseOffset, AVIReaderStream* stream) {
  TraceScope scope(kModule, __func__);
  if (stream == nullptr || stream->m_hStream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = TakePlace(baseOffset, *stream);
  return Failed(result) ? scope.Fail(result) : result;
}

uint8_t AVIReaderSeekByTime(AVIReaderHandle* handle, uint32_t* time, uint8_t previousKey) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr && time != nullptr ? SeekByTime(*handle, time, previousKey != 0) : uint8_t{0};
}

uint8_t AVIReaderSeekByKeyFrame(AVIReaderHandle* handle, uint32_t* time, uint8_t forward) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr && time != nullptr ? SeekByKeyFrame(*handle, time, forward != 0) : uint8_t{0};
}

uint8_t AVIReaderSeekByMedia(AVIReaderHandle* handle, uint32_t* time, uint32_t media) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr && time != nullptr ? SeekByMedia(*handle, time, media) : uint8_t{0};
}

int32_t AVIReaderChangeTrack(AVIReaderHandle* handle, uint32_t rank, uint32_t time, uint32_t media) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr ? ChangeTrack(*handle, rank, time, media) : 0;
}
