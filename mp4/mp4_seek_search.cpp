// The search for a sample by its time, and for its place in the file.
#include "mp4/mp4_seek_search.h"

#include "base/arith.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_seek_ticks.h"
#include "mp4/mp4_seek_times.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr uint32_t kNoChunk = 0xFFFFFFFFu;

constexpr uint32_t Lower(uint32_t a, uint32_t b) { return a < b ? a : b; }

// ---- The sample

class TimeSearch {
 public:
  TimeSearch(const MP4FReaderHandle& handle, MP4ReaderTrack& track, SyncTable& syncs, uint32_t time, SeekMode mode)
      : track_(track),
        times_(handle, track),
        syncs_(syncs),
        reach_(TicksThatReach(time, times_.Scale())),
        time_(time),
        mode_(mode) {}

  // To the first sample that reaches the time, or to where the tables end, and from there to where the mode says.
  int32_t Run() {
    // The first key frame has time 0, whatever samples lie before it.
    first_ = syncs_.Present() ? syncs_.First() : 0;
    const uint32_t limit = track_.m_dwSampleCount > first_ ? track_.m_dwSampleCount - first_ : 0;
    times_.ToTicks(reach_, limit, &at_, &exhausted_);
    if (Failed()) return Error();
    const bool exact = mode_ == SeekMode::kForward && !exhausted_ && Time() == time_;
    if (!syncs_.Present() || exact) return kSeekFound;
    const KeyFrames keys = syncs_.Around(Sample());
    if (Failed()) return Error();
    if (GoesBack(keys)) {
      times_.ToSample(keys.before - first_, &at_);
      return Failed() ? Error() : kSeekFound;
    }
    if (keys.next == kNoKeyFrame) return kSeekNotFound;
    if (exhausted_) GoOn(keys.next);
    return kSeekFound;
  }

  uint32_t Sample() const { return first_ + at_.sample; }
  uint32_t Time() const { return TicksToUnits(at_.dts, kMilliseconds, times_.Scale()); }
  const TimePlace& At() const { return at_; }

 private:
  bool GoesBack(const KeyFrames& keys) const {
    if (keys.next == keys.before || mode_ == SeekMode::kBackward) return true;
    if (mode_ == SeekMode::kForward) return false;
    return keys.next == kNoKeyFrame || Sample() - keys.before <= keys.next - Sample();
  }

  // Behind the last run its duration stays in force, up to the next key frame when it lies ahead, or else to the end.
  void GoOn(uint32_t next) {
    const uint32_t sample = Sample();
    if (sample >= track_.m_dwSampleCount || sample == next || at_.dts >= reach_) return;
    const uint32_t end = next > sample ? Lower(next, track_.m_dwSampleCount) : track_.m_dwSampleCount;
    const uint32_t samples = StepsToTicks(at_.dts, at_.delta, reach_, end - sample);
    at_.sample += samples;
    at_.dts += samples * at_.delta;
  }

  bool Failed() const { return times_.Failed() || syncs_.Failed(); }
  int32_t Error() const { return times_.Failed() ? times_.Error() : syncs_.Error(); }

  const MP4ReaderTrack& track_;
  TimeWalk times_;
  SyncTable& syncs_;
  const uint64_t reach_;  // ticks
  const uint32_t time_;
  const SeekMode mode_;
  uint32_t first_ = 0;
  TimePlace at_;
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

int32_t FindSample(const MP4FReaderHandle& handle, MP4ReaderTrack& track, SyncTable& syncs, uint32_t time,
                   SeekMode mode, uint32_t* found_time) {
  TimeSearch search(handle, track, syncs, time, mode);
  const int32_t result = search.Run();
  if (result != kSeekFound) return result;
  const TimePlace& found = search.At();
  TableCursor times = SampleTimes(handle, track);
  const int32_t moved = times.Present() ? times.SeekTo(found.entry) : 0;
  if (Failed(moved)) return moved;
  *found_time = search.Time();
  track.m_dwSeekSample = Lower(search.Sample(), track.m_dwSampleCount);
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

int32_t PlaceSyncEntry(const MP4FReaderHandle& handle, MP4ReaderTrack& track, SyncTable& syncs) {
  if (!syncs.Present()) return kSeekFound;
  // The numbers count from 1 and the samples from 0, so the key frame right before the sample ends the search too.
  uint32_t number = 0;
  const uint32_t entries = syncs.UpTo(track.m_dwSeekSample, &number);
  if (syncs.Failed()) return syncs.Error();
  const int32_t result = SyncSamples(handle, track).SeekTo(entries);
  if (Failed(result)) return result;
  track.m_dwSeekNextSync = number;
  // The last entry read is not consumed yet, as after opening.
  track.m_dwSeekSyncEntry = entries != 0 ? entries - 1 : 0;
  return kSeekFound;
}

}  // namespace zmv::mp4::reader
