// The search for a sample by its time, and for its place in the file.
#include "mp4/mp4_seek_search.h"

#include "base/arith.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr float kMilliseconds = 1000.0f;
constexpr uint32_t kMillisecondScale = 1000;
constexpr uint32_t kMaxTicks = 0xFFFFFFFFu;
constexpr uint32_t kNoKey = 0x7FFFFFFFu;
constexpr uint32_t kNoChunk = 0xFFFFFFFFu;

constexpr uint32_t Lower(uint32_t a, uint32_t b) { return a < b ? a : b; }

// Milliseconds of one chunk of constant-size audio; 0 when its entry does not say how fast the samples go by.
uint32_t ChunkMilliseconds(const MP4ReaderTrack& track) {
  const uint64_t bytes_per_second = uint64_t{track.m_dwBitsPerSample / 8} * track.m_dwSampleRate;
  if (bytes_per_second == 0) return 0;
  const float chunks_per_second = static_cast<float>(bytes_per_second) / static_cast<float>(track.m_dwSampleSize);
  return SaturatingU32(kMilliseconds / chunks_per_second);
}

// ---- The sample

// Where the search stands in a track.
struct Place {
  uint32_t sample = 0;
  uint32_t left = 0;   // samples from here to the end of the run
  uint32_t delta = 0;  // ticks
  uint32_t dts = 0;    // ticks
  uint32_t table = 0;  // where the cursor of stts stands
};

class TimeSearch {
 public:
  TimeSearch(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t time, SeekMode mode)
      : track_(track),
        times_(SampleTimes(handle, track)),
        syncs_(SyncSamples(handle, track)),
        scale_(track.m_dwTimeScale),
        time_(time),
        mode_(mode) {}

  int32_t Run() {
    Start();
    Approach();
    if (Failed()) return Error();
    const bool exact = mode_ == SeekMode::kForward && !exhausted_ && Time() == time_;
    if (!syncs_.Present() || exact) return kSeekFound;
    if (GoesBack()) {
      at_ = candidate_;
      const int32_t result = times_.Present() ? times_.Move(at_.table) : 0;
      return zmv::Failed(result) ? result : kSeekFound;
    }
    if (next_ == kNoKey) return kSeekNotFound;
    if (exhausted_) GoOn();
    return kSeekFound;
  }

  uint32_t Time() const { return TicksToUnits(at_.dts, kMilliseconds, scale_); }
  const Place& At() const { return at_; }

 private:
  // The first key frame, at time 0, whatever samples lie before it.
  void Start() {
    if (syncs_.Present()) {
      at_.sample = track_.m_dwStssCount != 0 ? NextKey() : 0;
      next_ = NextKey();
    }
    NextRun();
    if (track_.m_bPcmFraming != 0 && track_.m_dwSampleSize != 0) {
      at_.delta = ChunkMilliseconds(track_);
      scale_ = kMillisecondScale;
    }
    KeepCandidate();
  }

  // Goes to the first sample that reaches the time, or to where the tables end. The key frames on the way become
  // candidates one after another. An entry of stss that does not lie ahead is never met and hides those behind it.
  void Approach() {
    for (;;) {
      exhausted_ = at_.sample >= track_.m_dwSampleCount || (at_.left == 0 && !NextRun());
      if (exhausted_ || Failed() || Time() >= time_) return;
      if (at_.sample == next_) {
        next_ = NextKey();
        KeepCandidate();
      }
      Advance(StepsToTime(Lower(at_.left, SamplesAhead())));
    }
  }

  // Behind the last run its duration stays in force.
  void GoOn() {
    while (at_.sample < track_.m_dwSampleCount && at_.sample != next_ && Time() < time_) {
      Advance(StepsToTime(SamplesAhead()));
    }
  }

  bool GoesBack() const {
    if (next_ == candidate_.sample || mode_ == SeekMode::kBackward) return true;
    if (mode_ == SeekMode::kForward) return false;
    return next_ == kNoKey || at_.sample - candidate_.sample <= next_ - at_.sample;
  }

  // Samples up to the next key frame when it lies ahead, or else to the end of the track.
  uint32_t SamplesAhead() const {
    const uint32_t end = next_ > at_.sample ? Lower(next_, track_.m_dwSampleCount) : track_.m_dwSampleCount;
    return end - at_.sample;
  }

  // How many of the next `span` samples to step over to the first one that reaches the time; all when none does. Along
  // a run times never fall, until the ticks pass 32 bits; a step across that is taken on its own.
  uint32_t StepsToTime(uint32_t span) const {
    if (at_.delta != 0) {
      const uint32_t rising = (kMaxTicks - at_.dts) / at_.delta;
      span = Lower(span, rising != 0 ? rising : 1);
    }
    uint32_t low = 1;
    while (low < span) {
      const uint32_t middle = low + (span - low) / 2;
      if (TicksToUnits(at_.dts + middle * at_.delta, kMilliseconds, scale_) >= time_) {
        span = middle;
      } else {
        low = middle + 1;
      }
    }
    return low;
  }

  void Advance(uint32_t samples) {
    at_.sample += samples;
    at_.left -= Lower(samples, at_.left);
    at_.dts += samples * at_.delta;
  }

  // Enters the next run of stts that has samples; false when there is none.
  bool NextRun() {
    uint32_t count = 0;
    uint32_t delta = 0;
    while (times_.Next(&count) && times_.Next(&delta)) {
      if (count == 0) continue;
      at_.left = count;
      at_.delta = delta;
      return true;
    }
    return false;
  }

  uint32_t NextKey() {
    uint32_t number = 0;
    if (!syncs_.Next(&number)) return kNoKey;
    return number != 0 ? number - 1 : 0;
  }

  void KeepCandidate() {
    candidate_ = at_;
    if (times_.Present()) candidate_.table = times_.Position();
  }

  bool Failed() const { return times_.Failed() || syncs_.Failed(); }
  int32_t Error() const { return times_.Failed() ? times_.Error() : syncs_.Error(); }

  const MP4ReaderTrack& track_;
  TableCursor times_;
  TableCursor syncs_;
  uint32_t scale_;
  const uint32_t time_;
  const SeekMode mode_;
  Place at_;
  Place candidate_;
  uint32_t next_ = kNoKey;  // the key frame behind the candidate
  bool exhausted_ = false;
};

// ---- The chunk

struct ChunkPlace {
  uint32_t chunk = 0;  // chunks up to the one that was found
  uint64_t first = 0;  // first sample of it
  uint32_t samples = 0;
  uint32_t entries = 0;  // of stsc consumed
  uint32_t next_first = kNoChunk;
};

// Takes the next entry of stsc, which begins behind place->chunk. Not found for an entry without samples and for one
// that is not followed by a later chunk.
int32_t TakeEntry(TableCursor& chunks, ChunkPlace* place) {
  uint32_t description = 0;
  uint32_t next = 0;
  chunks.Next(&place->samples);
  chunks.Next(&description);
  const bool more = chunks.Next(&next);
  if (chunks.Failed()) return chunks.Error();
  ++place->entries;
  place->next_first = more ? next - 1 : kNoChunk;
  const bool backward = more && next <= place->chunk + 1;
  return place->samples == 0 || backward ? kSeekNotFound : kSeekFound;
}

// The chunk of `sample` in a layout of one sample per chunk. With more, the chunk that is found has the number of the
// sample. It never begins before the sample.
int32_t FindChunk(TableCursor chunks, const MP4ReaderTrack& track, uint32_t sample, ChunkPlace* place) {
  uint32_t number = 0;
  if (chunks.Next(&number)) place->next_first = number - 1;
  if (chunks.Failed()) return chunks.Error();
  if (track.m_dwStscCount == 0) place->samples = 1;
  while (place->chunk < track.m_dwChunkCount) {
    if (place->chunk == place->next_first && place->entries < track.m_dwStscCount) {
      const int32_t result = TakeEntry(chunks, place);
      if (result != kSeekFound) return result;
    }
    const bool ends = place->next_first > place->chunk && place->next_first < track.m_dwChunkCount;
    const uint64_t run = (ends ? place->next_first : track.m_dwChunkCount) - place->chunk;
    const uint64_t samples = place->samples;
    const uint64_t target = samples * sample;
    if (samples != 0) {
      const uint64_t before = target < place->first ? 0 : (target - place->first) / samples;
      if (before < run) {
        place->first += before * samples;
        place->chunk += static_cast<uint32_t>(before + 1);
        return kSeekFound;
      }
    }
    place->first += run * samples;
    place->chunk += static_cast<uint32_t>(run);
  }
  return kSeekNotFound;
}

// Fills the chunk fields; *first is the sample from which on sizes are read.
int32_t PlaceChunk(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t* first) {
  const uint32_t sample = track.m_dwSeekSample;
  *first = sample;
  if (sample == track.m_dwSampleCount) {
    track.m_dwSeekSamplesLeft = 0;
    track.m_dwSeekChunk = track.m_dwChunkCount;
    return kSeekFound;
  }
  // A chunk of audio is a frame, and its table of chunks is not read.
  if (track.m_dwMediaType == ZMV_MEDIA_AUDIO || track.m_bPcmFraming != 0) {
    track.m_dwSeekSamplesPerChunk = track.m_dwSeekSamplesLeft = 1;
    track.m_dwSeekChunk = sample + 1;
    return kSeekFound;
  }
  ChunkPlace place;
  const int32_t result = FindChunk(SampleChunks(handle, track), track, sample, &place);
  if (result != kSeekFound) return result;
  *first = SaturatingU32(place.first);
  track.m_dwSeekStscEntry = place.entries;
  track.m_dwSeekNextFirstChunk = place.next_first;
  track.m_dwSeekSamplesPerChunk = place.samples;
  track.m_dwSeekSamplesLeft = SaturatingU32(place.first + place.samples - sample);
  track.m_dwSeekChunk = place.chunk;
  return kSeekFound;
}

}  // namespace

int32_t FindSample(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t time, SeekMode mode,
                   uint32_t* found_time) {
  TimeSearch search(handle, track, time, mode);
  const int32_t result = search.Run();
  if (result != kSeekFound) return result;
  const Place& found = search.At();
  *found_time = search.Time();
  track.m_dwSeekSample = Lower(found.sample, track.m_dwSampleCount);
  track.m_dwSeekSttsLeft = found.left;
  track.m_dwSeekSttsDelta = found.delta;
  // Constant-size audio is searched in milliseconds but stamped in ticks.
  track.m_dwSeekDts = track.m_bPcmFraming != 0 ? track.m_dwSeekSample * track.m_dwSttsDelta : found.dts;
  return kSeekFound;
}

int32_t PlaceSample(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  uint32_t first = 0;
  int32_t result = PlaceChunk(handle, track, &first);
  if (result != kSeekFound) return result;

  TableCursor offsets = ChunkOffsets(handle, track);
  result = offsets.SeekTo(track.m_dwSeekChunk - 1);
  if (Failed(result)) return result;
  if (!offsets.Next(&track.m_dwSeekPos)) return offsets.Failed() ? offsets.Error() : kSeekNotFound;
  if (track.m_dwSampleSize == 0) {
    result = SampleSizes(handle, track).SeekTo(first);
    if (Failed(result)) return result;
  }
  return track.m_dwSeekPos < DataEnd(handle) ? kSeekFound : kSeekNotFound;
}

int32_t PlaceSyncEntry(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  TableCursor syncs = SyncSamples(handle, track);
  if (!syncs.Present()) return kSeekFound;
  const int32_t result = syncs.SeekTo(0);
  if (Failed(result)) return result;
  track.m_dwSeekNextSync = 0;
  uint32_t entries = 0;
  // The numbers count from 1 and the samples from 0, so the key frame right before the sample ends the search too.
  while (syncs.Next(&track.m_dwSeekNextSync)) {
    ++entries;
    if (track.m_dwSeekNextSync >= track.m_dwSeekSample) break;
  }
  // The last entry read is not consumed yet, as after opening.
  track.m_dwSeekSyncEntry = entries != 0 ? entries - 1 : 0;
  return syncs.Failed() ? syncs.Error() : kSeekFound;
}

}  // namespace zmv::mp4::reader
