// The step from one sample of a track to the next, which can be taken back.
#ifndef ZMV_MP4_FRAME_STEP_H
#define ZMV_MP4_FRAME_STEP_H

#include <cstddef>

#include "mp4/mp4_box_reader.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {

// Where a track stands in its tables.
struct Counters {
  explicit Counters(const MP4ReaderTrack& track)
      : stts_left(track.m_dwSttsLeft),
        stts_delta(track.m_dwSttsDelta),
        dts(track.m_dwDts),
        stsc_entry(track.m_dwStscEntry),
        next_first_chunk(track.m_dwNextFirstChunk),
        samples_per_chunk(track.m_dwSamplesPerChunk),
        samples_left(track.m_dwSamplesLeft),
        chunk(track.m_dwChunkIndex),
        sync_entry(track.m_dwSyncEntry),
        next_sync(track.m_dwNextSync) {}
  void PutBack(MP4ReaderTrack& track) const {
    track.m_dwSttsLeft = stts_left;
    track.m_dwSttsDelta = stts_delta;
    track.m_dwDts = dts;
    track.m_dwStscEntry = stsc_entry;
    track.m_dwNextFirstChunk = next_first_chunk;
    track.m_dwSamplesPerChunk = samples_per_chunk;
    track.m_dwSamplesLeft = samples_left;
    track.m_dwChunkIndex = chunk;
    track.m_dwSyncEntry = sync_entry;
    track.m_dwNextSync = next_sync;
  }

  uint32_t stts_left, stts_delta, dts;
  uint32_t stsc_entry, next_first_chunk, samples_per_chunk, samples_left, chunk;
  uint32_t sync_entry, next_sync;
};

enum TableName { kSizes, kTimes, kChunks, kOffsets, kSyncs, kTableCount };

// The step from one sample to the next on one track. A table that cannot be read leaves the track where it was, so that
// sizes, chunks and times stay in step with each other; a payload that cannot be had is passed over.
struct Step {
  Step(MP4FReaderHandle& reader, MP4ReaderTrack& stepped, const char* caller)
      : handle(reader), track(stepped), function(caller), before(stepped) {}

  // The next word of a table, as TableCursor::Next.
  bool Next(TableCursor& table, TableName name, uint32_t* value) {
    if (!table.Next(value)) return false;
    ++words[name];
    return true;
  }

  // Puts counters and table cursors back, and the payload cursor, which a chunk that has to be entered again does by
  // itself.
  int32_t Undo() const {
    const bool entered = track.m_dwChunkIndex != before.chunk;
    before.PutBack(track);
    TableCursor tables[kTableCount] = {SampleSizes(handle, track), SampleTimes(handle, track),
                                       SampleChunks(handle, track), ChunkOffsets(handle, track),
                                       SyncSamples(handle, track)};
    for (size_t i = 0; i < kTableCount; ++i) {
      if (words[i] == 0) continue;
      const int32_t result = tables[i].Move(tables[i].Position() - kWordSize * uint64_t{words[i]});
      if (Failed(result)) return Report(result, function);
    }
    if (entered || !placed) return 0;
    const int64_t result = ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, payload);
    return Failed(result) ? Report(StreamError(result), function) : 0;
  }

  // Places the payload cursor behind the sample's `size` bytes for the next one of the chunk. When the file ends
  // before, it is placed there, where no byte of this sample can be taken for one of the next.
  void PassOver(uint32_t size) const {
    const uint64_t end = payload + uint64_t{size};
    if (end <= 0xFFFFFFFFu &&
        !Failed(ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, static_cast<uint32_t>(end)))) {
      return;
    }
    ZMVStreamBuf_SeekEnd(track.m_hStream, track.m_dwIndex, 0);
  }

  static constexpr uint32_t kWordSize = 4;

  MP4FReaderHandle& handle;
  MP4ReaderTrack& track;
  const char* function;
  const Counters before;
  uint32_t words[kTableCount] = {};  // taken from each table
  uint32_t payload = 0;              // where the payload of the sample lies
  bool placed = false;               // `payload` is known
  int32_t lost = 0;                  // the failure to reach the chunk of the sample
};

}  // namespace zmv::mp4::reader

#endif
