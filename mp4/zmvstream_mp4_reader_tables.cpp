// The sample tables of a track: setting their cursors up, and noting and moving their positions.
#include "base/arith.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr const char* kFunction = "MP4ReaderParseStbl";
constexpr uint32_t kVersionSize = 4;

// The entries of a table that its box has room for behind the fields read so far.
uint32_t EntriesThatFit(const BoxReader& box, uint32_t count, uint32_t entry_size) {
  const uint64_t room = box.Left() / entry_size;
  return count < room ? count : static_cast<uint32_t>(room);
}

// Opens a table whose first entry is the next field of `box`.
int32_t OpenTable(TableCursor table, const BoxReader& box) {
  const int32_t result = table.Open(box.Position());
  if (Failed(result)) {
    ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction,
                "[Reader]\t\tMP4ReaderParseStbl - ZMVStreamBuf_Index error!!!\n");
  }
  return result;
}

// The next word of a table that has just been opened, less 1 where it counts from 1; `none` in an empty table.
int32_t LookAhead(TableCursor table, uint32_t none, uint32_t base, uint32_t* value) {
  *value = none;
  uint32_t word = 0;
  if (table.Next(&word)) *value = word - base;
  return table.Failed() ? Report(table.Error(), kFunction) : 0;
}

int32_t ParseStsdBox(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, kFunction);
  const int32_t result = box.Skip(kVersionSize).Settle();
  if (Failed(result)) return result;
  BoxWalk stsd{walk.handle, walk.track};
  return ParseStsd(stsd, static_cast<uint32_t>(box.Left()));
}

int32_t ParseStts(BoxWalk& walk, uint32_t payload) {
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t count = 0;
  box.Skip(kVersionSize).U32(&count);
  if (box.Failed()) return box.Error();
  track.m_dwSttsCount = EntriesThatFit(box, count, kSttsEntrySize);
  const int32_t result = OpenTable(SampleTimes(walk.handle, track), box);
  if (Failed(result)) return result;
  track.m_dwSttsDelta = 0;
  for (uint32_t entry = 0; entry < 2 && entry < track.m_dwSttsCount && track.m_dwSttsDelta == 0; ++entry) {
    box.Skip(4).U32(&track.m_dwSttsDelta);
  }
  return box.Error();
}

int32_t ParseStsc(BoxWalk& walk, uint32_t payload) {
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t count = 0;
  box.Skip(kVersionSize).U32(&count);
  track.m_dwStscCount = EntriesThatFit(box, count, kStscEntrySize);
  track.m_dwAudioChunkSamples = 0;
  // An audio chunk is one frame, so the table is not read for audio once the size of a chunk is known. Its cursor
  // stands behind what was read of the first entry.
  if (track.m_dwMediaType == ZMV_MEDIA_AUDIO && track.m_dwStscCount != 0) {
    box.Skip(4).U32(&track.m_dwAudioChunkSamples);
  }
  if (box.Failed()) return box.Error();
  const int32_t result = OpenTable(SampleChunks(walk.handle, track), box);
  if (Failed(result)) return result;
  return LookAhead(SampleChunks(walk.handle, track), 0, 1, &track.m_dwNextFirstChunk);
}

int32_t ParseStsz(BoxWalk& walk, uint32_t payload) {
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t count = 0;
  box.Skip(kVersionSize).U32(&track.m_dwSampleSize).U32(&count);
  if (box.Failed()) return box.Error();
  if (track.m_dwSampleSize == 0) {
    track.m_dwSampleCount = EntriesThatFit(box, count, kStszEntrySize);
  } else {
    track.m_dwSampleCount = count < walk.handle.m_dwFileSize ? count : walk.handle.m_dwFileSize;
  }
  return OpenTable(SampleSizes(walk.handle, track), box);
}

int32_t ParseStco(BoxWalk& walk, uint32_t payload) {
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t count = 0;
  box.Skip(kVersionSize).U32(&count);
  if (box.Failed()) return box.Error();
  track.m_dwChunkCount = EntriesThatFit(box, count, kStcoEntrySize);
  return OpenTable(ChunkOffsets(walk.handle, track), box);
}

int32_t ParseStss(BoxWalk& walk, uint32_t payload) {
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t count = 0;
  box.Skip(kVersionSize).U32(&count);
  if (box.Failed()) return box.Error();
  track.m_dwStssCount = EntriesThatFit(box, count, kStssEntrySize);
  const int32_t result = OpenTable(SyncSamples(walk.handle, track), box);
  if (Failed(result)) return result;
  return LookAhead(SyncSamples(walk.handle, track), 0, 0, &track.m_dwNextSync);
}

// Composition offsets are not among them: all times are decoding times. Nor are 64-bit chunk offsets.
constexpr BoxRow kSampleTableRows[] = {
    {FourCC("stsd"), &ParseStsdBox}, {FourCC("stts"), &ParseStts}, {FourCC("stsc"), &ParseStsc},
    {FourCC("stsz"), &ParseStsz},    {FourCC("stco"), &ParseStco}, {FourCC("stss"), &ParseStss},
};
static_assert(EveryTypeOnce(kSampleTableRows));

// Several samples per audio chunk are delivered as one frame, of constant size or not.
void JoinAudioChunks(MP4ReaderTrack& track) {
  const uint32_t samples = track.m_dwAudioChunkSamples;
  if (track.m_dwMediaType != ZMV_MEDIA_AUDIO || samples <= 1 || !track.m_Stsz.m_dwCursor) return;
  track.m_dwSttsDelta = samples;
  track.m_dwSampleSize = SaturatingU32(uint64_t{track.m_dwSampleSize} * samples);
  track.m_dwSampleCount /= samples;
  track.m_dwAudioChunkSamples = 0;
}

template <typename Operation>
int32_t ForEachTable(MP4FReaderHandle& handle, MP4ReaderTrack& track, const char* function, Operation operation) {
  TableCursor tables[] = {SampleTimes(handle, track),  SampleChunks(handle, track), SampleSizes(handle, track),
                          ChunkOffsets(handle, track), SyncSamples(handle, track),  Fragments(handle, track)};
  for (TableCursor& table : tables) {
    const int32_t result = table.Present() ? operation(table) : 0;
    if (Failed(result)) return Report(result, function);
  }
  return 0;
}

}  // namespace

int32_t ParseStbl(BoxWalk& walk, uint32_t payload) {
  BoxWalk stbl{walk.handle, walk.track};
  const int32_t result = WalkBoxes(stbl, payload, kSampleTableRows, kFunction);
  if (!Failed(result)) JoinAudioChunks(*walk.track);
  return result;
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4ReaderParseStbl(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseStbl, handle, track, size, __func__);
}

int32_t MP4ReaderSaveStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return ForEachTable(*handle, *track, __func__, [](TableCursor& table) {
    table.Save();
    return 0;
  });
}

int32_t MP4ReaderLoadStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return ForEachTable(*handle, *track, __func__, [](TableCursor& table) { return table.Restore(); });
}

int32_t MP4ReaderSetStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return ForEachTable(*handle, *track, __func__, [](TableCursor& table) { return table.SeekTo(0); });
}
