// The sample tables of a track while frames are written (ISO/IEC 14496-12, 8.6 and 8.7): bounded buffers that are
// spilled into mdat when they are full and copied back behind the headers of their boxes at close.
#ifndef ZMV_MP4_WRITER_TABLES_H
#define ZMV_MP4_WRITER_TABLES_H

#include "mp4/mp4_writer.h"

namespace zmv::mp4 {

constexpr uint32_t kTableHeaderSize = 16;  // size, type, version and flags, entry count
constexpr uint32_t kStszHeaderSize = 20;   // the same with the common sample size
// An stsc box in which every sample is a chunk: one entry.
constexpr uint32_t kFixedStscSize = kTableHeaderSize + kStscEntrySize;

constexpr uint32_t kSampleDescriptionIndex = 1;

// Takes the buffers of a track and counts its boxes in the projected size. 0, or ZMV_E_MEMORY; what was taken stays
// with the track.
int32_t CreateTables(MP4WriterHandle& writer, MP4WriterTrack& track);
void ReleaseTables(MP4WriterTrack& track);

// True when an entry goes into the buffer as it is.
inline bool HasRoom(const MP4WriterTable& table, uint32_t entry_size) {
  return uint64_t{table.m_dwUsed} + entry_size <= table.m_dwBufSize;
}

// Makes room for an entry, spilling a full buffer. 0; ZMV_E_MEMORY without a buffer; ZMV_E_WRITE when the table has
// spilled as often as it can; the stream's code, and then the buffer keeps what it held.
int32_t MakeRoom(MP4WriterHandle& writer, MP4WriterTable& table, uint32_t entry_size);

// Each adds one entry; the results are those of MakeRoom.
int32_t AppendTimeToSample(MP4WriterHandle& writer, MP4WriterTrack& track, uint32_t delta);
int32_t AppendSampleSize(MP4WriterHandle& writer, MP4WriterTrack& track, uint32_t size);
int32_t AppendSampleToChunk(MP4WriterHandle& writer, MP4WriterTrack& track);
int32_t AppendChunkOffset(MP4WriterHandle& writer, MP4WriterTrack& track);
int32_t AppendSyncSample(MP4WriterHandle& writer, MP4WriterTrack& track);
// Writes the open run of stts, whatever its delta.
int32_t CloseTimeToSampleRun(MP4WriterHandle& writer, MP4WriterTrack& track);

// Adds an entry with one of the above; when its spill fails, once more, because the samples of all later frames would
// be found with the entries of others if it were left out. The first result, whatever became of the second attempt.
template <typename Append, typename... Numbers>
inline int32_t Insist(Append append, MP4WriterHandle& writer, MP4WriterTrack& track, Numbers... numbers) {
  const int32_t result = append(writer, track, numbers...);
  if (Failed(result)) [[unlikely]]
    append(writer, track, numbers...);
  return result;
}

// Memory through which spilled blocks are copied.
struct Scratch {
  uint8_t* bytes;
  uint32_t size;
};

// Copies a table's spilled blocks and its buffer to the write cursor. 0, or the stream's code.
int32_t WriteTable(MP4WriterHandle& writer, MP4WriterTable& table, Scratch scratch);
// Each writes one box, or nothing for a table without entries.
int32_t WriteStts(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch);
int32_t WriteStsz(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch);
int32_t WriteStsc(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch);
int32_t WriteStco(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch);
int32_t WriteStss(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch);

}  // namespace zmv::mp4

#endif
