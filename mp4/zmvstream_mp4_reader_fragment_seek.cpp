// Finding a sample of the fragments by its time. The search starts at the first fragment each time: nothing but their
// boxes says which times they hold.
#include "base/arith.h"
#include "mp4/mp4_fragments.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr float kMilliseconds = 1000.0f;
constexpr uint64_t kMaxTicks = 0xFFFFFFFFu;
constexpr uint64_t kNoPosition = uint64_t{1} << 32;  // any position that the file does not have

constexpr int32_t kFound = 1;
constexpr int32_t kNotFound = 0;

constexpr uint64_t Clamped(uint64_t position) { return position < kNoPosition ? position : kNoPosition; }

class FragmentSearch {
 public:
  FragmentSearch(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t time, const char* function)
      : handle_(handle), track_(track), time_(time), function_(function) {}

  int32_t Run() {
    for (;;) {
      uint32_t payload = 0;
      int32_t result = FindTrun(handle_, track_, &defaults_, &payload, function_);
      if (result != kTrunFound) return Failed(result) ? result : kNotFound;
      result = ReadTrunHeader(handle_, track_, payload, &trun_, function_);
      if (Failed(result)) return result;
      Place();
      ++index_;
      left_ = trun_.samples;
      result = TrunEntrySize(trun_.flags) != 0 ? ReadSamples() : CountSamples();
      if (Failed(result)) return result;
      const int32_t moved = left_ == 0 ? LeaveTrun(handle_, track_, trun_.end, function_) : 0;
      if (Failed(moved)) return moved;
      if (ticks_ > kMaxTicks) return kNotFound;  // 32 bits do not express the times from here on
      if (result == kFound) return position_ <= DataEnd(handle_) ? kFound : kNotFound;
    }
  }

  uint32_t Time() const { return static_cast<uint32_t>(At(static_cast<uint32_t>(ticks_))); }

  bool BaseChanges() const { return defaults_.base_offset != track_.m_dwSearchBase; }

  // Makes the sample found the pending place of the track.
  void Keep() const {
    track_.m_dwSeekPos = static_cast<uint32_t>(position_);
    track_.m_dwSeekSample = track_.m_dwSampleCount;
    track_.m_dwSeekFragDts = static_cast<uint32_t>(ticks_);
    track_.m_dwSeekTrunIndex = index_;
    track_.m_dwSeekTrunLeft = left_;
    track_.m_dwSeekTrunFlags = trun_.flags;
    track_.m_dwSeekTrunEnd = trun_.end;
    track_.m_dwSeekBaseOffset = defaults_.base_offset;
    track_.m_dwSeekTfhdDuration = defaults_.duration;
    track_.m_dwSeekTfhdSize = defaults_.size;
  }

 private:
  // The base offset is that of the fragment read last, so the place is right in files whose base offset is the same in
  // all fragments.
  void Place() {
    if (trun_.has_offset) {
      const int64_t position = int64_t{track_.m_dwSearchBase} + trun_.data_offset;
      position_ = position < 0 ? kNoPosition : static_cast<uint64_t>(position);
    } else {
      position_ += track_.m_dwSearchBase;
    }
    position_ = Clamped(position_);
  }

  // Milliseconds.
  int64_t At(uint32_t ticks) const {
    int32_t time = 0;
    if (track_.m_dwTimeScale != 0) {
      time = SaturatingI32(static_cast<float>(ticks) * kMilliseconds / static_cast<float>(track_.m_dwTimeScale));
    }
    return int64_t{track_.m_dwDuration} + time;
  }
  bool Reached(uint64_t ticks) const { return ticks > kMaxTicks || time_ <= At(static_cast<uint32_t>(ticks)); }

  void Pass(uint64_t samples, const FragmentSample& sample) {
    ticks_ += samples * sample.duration;
    position_ = Clamped(position_ + samples * sample.size);
    left_ -= static_cast<uint32_t>(samples);
  }

  int32_t ReadSamples() {
    while (left_ != 0) {
      FragmentSample sample;
      const int32_t result = ReadTrunEntry(handle_, track_, trun_.flags, defaults_, &sample, function_);
      if (Failed(result)) return result;
      Pass(1, sample);
      if (Reached(ticks_)) return kFound;
    }
    return kNotFound;
  }

  // Samples that are all alike, however many: the fewest that reach the time, or all of them.
  int32_t CountSamples() {
    if (left_ == 0) return kNotFound;
    FragmentSample sample;
    const int32_t result = ReadTrunEntry(handle_, track_, trun_.flags, defaults_, &sample, function_);
    if (Failed(result)) return result;
    uint64_t low = 1;
    uint64_t high = left_;
    while (low < high) {
      const uint64_t middle = low + (high - low) / 2;
      if (Reached(ticks_ + middle * sample.duration)) {
        high = middle;
      } else {
        low = middle + 1;
      }
    }
    Pass(low, sample);
    return Reached(ticks_) ? kFound : kNotFound;
  }

  const MP4FReaderHandle& handle_;
  MP4ReaderTrack& track_;
  uint32_t time_;
  const char* function_;
  FragmentDefaults defaults_;
  Trun trun_;
  uint64_t ticks_ = 0;
  uint64_t position_ = 0;
  uint32_t index_ = 0;
  uint32_t left_ = 0;
};

void TraceFound(const MP4ReaderTrack& track, uint32_t time, const char* function) {
  const char* format = "[Reader]\tMP4 SEEK TEXT Frag(%d, %d) pos=%x cts=%d \n";
  if (track.m_dwMediaType == ZMV_MEDIA_AUDIO) format = "[Reader]\tMP4 SEEK AUDIO Frag(%d, %d) pos=%x cts=%d \n";
  if (track.m_dwMediaType == ZMV_MEDIA_VIDEO) format = "[Reader]\tMP4 SEEK VIDEO Frag(%d, %d) pos=%x cts=%d \n";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, function, format,
              static_cast<int>(track.m_dwSeekTrunIndex), static_cast<int>(track.m_dwSeekTrunLeft), track.m_dwSeekPos,
              static_cast<int>(time));
#pragma GCC diagnostic pop
}

}  // namespace

int32_t SearchFragments(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t* time, const char* function) {
  if (!Fragments(handle, track).Present()) return kNotFound;
  FragmentSearch search(handle, track, *time, function);
  const int32_t result = search.Run();
  if (result != kFound) return result;
  if (search.BaseChanges()) NoteSeekLimit(track, function);
  search.Keep();
  *time = search.Time();
  TraceFound(track, *time, function);
  return kFound;
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

uint8_t MP4ReaderGetSeekPosFrag(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t* time, uint32_t) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr || time == nullptr) return 0;
  const int32_t result = SearchFragments(*handle, *track, time, __func__);
  if (result == 1) return 1;
  MP4ReaderLoadStblPos(handle, track);
  return static_cast<uint8_t>(result);
}
