// Finding a sample of a track by its time, and its place in the file. The search reads the tables through their
// cursors, which stand at the starts before, and leaves what it found in the m_dwSeek* fields of the track; the fields
// that frame reading uses stay as they are. Runs of equal durations and of equal chunks are stepped over by arithmetic,
// and stts and stss are entered at the last mark before the target, so the cost hardly grows with the recording.
#ifndef ZMV_MP4_SEEK_SEARCH_H
#define ZMV_MP4_SEEK_SEARCH_H

#include "mp4/mp4_seek_syncs.h"
#include "mp4/zmvstream_mp4_reader_records.h"

namespace zmv::mp4::reader {

enum class SeekMode : uint32_t {
  kForward = 1,   // the first sample after the time, or at it
  kBackward = 2,  // the last key frame before the first sample that reaches the time
  kNearest = 3,   // that key frame, or the first sample that reaches the time when the next key frame is not farther
};

constexpr int32_t kSeekFound = 1;
constexpr int32_t kSeekNotFound = 0;

// Each gives kSeekFound, kSeekNotFound or a negative code of a failed read.

// Searches stts and stss. Fills m_dwSeekSample, m_dwSeekSttsLeft, m_dwSeekSttsDelta and m_dwSeekDts, and the time of
// the sample in milliseconds. m_dwSeekSample is m_dwSampleCount when the time lies behind the last sample.
int32_t FindSample(const MP4FReaderHandle& handle, MP4ReaderTrack& track, SyncTable& syncs, uint32_t time,
                   SeekMode mode, uint32_t* found_time);
// Looks up the chunk and the position of m_dwSeekSample in stsc, stco and stsz. Not found when the chunks end before
// the sample or when no data is written there yet.
int32_t PlaceSample(const MP4FReaderHandle& handle, MP4ReaderTrack& track);
// Looks up which sync sample follows m_dwSeekSample, for a track with stss.
int32_t PlaceSyncEntry(const MP4FReaderHandle& handle, MP4ReaderTrack& track, SyncTable& syncs);

}  // namespace zmv::mp4::reader

#endif
