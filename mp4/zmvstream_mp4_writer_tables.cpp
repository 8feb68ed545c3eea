// The sample tables of the MP4 writer while frames are written: buffers, entries, and spills into mdat.
#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/mp4_writer_tables.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::mp4 {
namespace {

// What the boxes of a track are expected to take in moov, but for the entries of its tables.
constexpr uint32_t kTrackEstimate = 429;
constexpr uint32_t kVideoEstimate = 36;  // the header of stss, and vmhd
constexpr uint32_t kAudioEstimate = 15;
constexpr uint32_t kTextEstimate = 20;

struct TableShape {
  char name[5];
  uint32_t entry_size;
  uint32_t header_size;
};
constexpr TableShape kStts = {"STTS", kSttsEntrySize, kTableHeaderSize};
constexpr TableShape kStsz = {"STSZ", kStszEntrySize, kStszHeaderSize};
constexpr TableShape kStco = {"STCO", kStcoEntrySize, kTableHeaderSize};
// It goes by the name of its neighbour in messages.
constexpr TableShape kStsc = {"STCO", kStscEntrySize, kTableHeaderSize};
constexpr TableShape kStss = {"STSS", kStssEntrySize, kTableHeaderSize};

// The capacity for `entries` is a 32-bit product, so a horizon beyond all reason makes a small buffer, which only
// spills more often. A whole number of entries fits, one at least: what is spilled is always a full buffer.
int32_t CreateTable(MP4WriterHandle& writer, MP4WriterTable& table, const TableShape& shape, uint32_t entries) {
  const uint32_t product = entries * shape.entry_size;
  const uint32_t capacity = std::max(product - product % shape.entry_size, shape.entry_size);
  HostMemory<uint8_t> buffer = AllocateBytes(kWriterModule, capacity, __func__);
  if (!buffer) return Result(ZMV_E_MEMORY);
  table.m_pBuf = buffer.Release();
  table.m_pPos = table.m_pBuf;
  table.m_dwBufSize = capacity;
  std::memcpy(table.m_szName, shape.name, sizeof table.m_szName);
  table.m_dwBoxSize = shape.header_size;
  writer.m_dwCurSize += shape.header_size;
  return 0;
}

void Empty(MP4WriterTable& table) {
  table.m_pPos = table.m_pBuf;
  table.m_dwUsed = 0;
}

// Writes the buffer to the end of mdat. The slot counts only when the block is there as a whole.
int32_t Spill(MP4WriterHandle& writer, MP4WriterTable& table) {
  if (table.m_dwSpillNum >= kMp4TableMaxSpills) {
    ZMV_TRACE(kWriterModule, kTraceError, "table is spilled too often (%d)\n", static_cast<int>(table.m_dwSpillNum));
    return Result(ZMV_E_WRITE);
  }
  const uint32_t position = MdatEnd(writer);
  table.m_dwSpillPos[table.m_dwSpillNum] = position;
  ZMV_TRACE(kWriterModule, kTraceInfo, "pos(0x%x) size(%d)\n", position, static_cast<int>(table.m_dwUsed));
  uint8_t header[kSpillHeaderSize];
  StoreLE32(header, FourCC("tabl"));
  StoreBE32(header + 4, table.m_dwUsed);
  int32_t result = CheckWritten(WriteMedia(writer, header, sizeof header), sizeof header);
  if (Failed(result)) return result;
  result = CheckWritten(ContinueMedia(writer, table.m_pBuf, table.m_dwUsed), table.m_dwUsed);
  if (Failed(result)) return result;
  ++table.m_dwSpillNum;
  writer.m_bNewChunk = 1;
  GrowMdat(writer, kSpillHeaderSize + table.m_dwUsed);
  Empty(table);
  return 0;
}

// MakeRoom without a call for the usual case.
inline int32_t Reserve(MP4WriterHandle& writer, MP4WriterTable& table, uint32_t entry_size) {
  return HasRoom(table, entry_size) ? 0 : MakeRoom(writer, table, entry_size);
}

// Puts an entry of big-endian numbers where room has been made.
template <typename... Numbers>
void Put(MP4WriterHandle& writer, MP4WriterTable& table, Numbers... numbers) {
  constexpr uint32_t kSize = 4 * sizeof...(numbers);
  ((StoreBE32(table.m_pPos, numbers), table.m_pPos += 4), ...);
  table.m_dwUsed += kSize;
  table.m_dwBoxSize += kSize;
  ++table.m_dwEntryNum;
  writer.m_dwCurSize += kSize;
}

}  // namespace

int32_t CreateTables(MP4WriterHandle& writer, MP4WriterTrack& track) {
  const uint32_t seconds = std::max(static_cast<uint32_t>(writer.m_llExpire), 1u);
  const uint32_t samples = std::max(track.m_dwFps, 1u) * seconds;
  writer.m_dwCurSize += kTrackEstimate;
  int32_t result = CreateTable(writer, track.m_Stts, kStts, samples);
  if (!Failed(result)) result = CreateTable(writer, track.m_Stsz, kStsz, samples);
  if (!Failed(result)) result = CreateTable(writer, track.m_Stco, kStco, samples);
  if (Failed(result)) return result;
  if (writer.m_bNoInterleave != 0) {
    result = CreateTable(writer, track.m_Stsc, kStsc, samples);
  } else {
    track.m_Stsc.m_dwBoxSize = kFixedStscSize;
    track.m_Stsc.m_dwEntryNum = 1;
    writer.m_dwCurSize += kFixedStscSize;
  }
  if (Failed(result)) return result;
  if (track.dwMediaType != ZMV_MEDIA_VIDEO) {
    writer.m_dwCurSize += track.dwMediaType == ZMV_MEDIA_AUDIO ? kAudioEstimate : kTextEstimate;
    return 0;
  }
  // One key frame per second is expected. The estimate for video holds the header already.
  writer.m_dwCurSize += kVideoEstimate - kStss.header_size;
  return CreateTable(writer, track.m_Stss, kStss, seconds);
}

void ReleaseTables(MP4WriterTrack& track) {
  for (MP4WriterTable* table : {&track.m_Stts, &track.m_Stsz, &track.m_Stco, &track.m_Stsc, &track.m_Stss}) {
    FreeHost(table->m_pBuf);
    table->m_pBuf = nullptr;
    table->m_dwBufSize = 0;
    Empty(*table);
  }
}

int32_t MakeRoom(MP4WriterHandle& writer, MP4WriterTable& table, uint32_t entry_size) {
  if (HasRoom(table, entry_size)) [[likely]]
    return 0;
  if (table.m_pBuf == nullptr || entry_size > table.m_dwBufSize) return Result(ZMV_E_MEMORY);
  return Spill(writer, table);
}

int32_t CloseTimeToSampleRun(MP4WriterHandle& writer, MP4WriterTrack& track) {
  if (track.m_dwRunCount == 0) return 0;
  if (const int32_t result = Reserve(writer, track.m_Stts, kSttsEntrySize); Failed(result)) return result;
  // Raw audio is counted in samples, of which each lasts one tick.
  const bool raw = track.m_bRawAudio != 0;
  const uint32_t count = raw ? track.m_dwRunCount * track.m_dwSampPerFrame : track.m_dwRunCount;
  Put(writer, track.m_Stts, count, raw ? 1u : track.m_dwRunDelta);
  track.m_dwRunCount = 0;
  return 0;
}

int32_t AppendTimeToSample(MP4WriterHandle& writer, MP4WriterTrack& track, uint32_t delta) {
  if (delta != track.m_dwRunDelta) {
    if (const int32_t result = CloseTimeToSampleRun(writer, track); Failed(result)) return result;
    track.m_dwRunDelta = delta;
  }
  ++track.m_dwRunCount;
  return 0;
}

int32_t AppendSampleSize(MP4WriterHandle& writer, MP4WriterTrack& track, uint32_t size) {
  if (const int32_t result = Reserve(writer, track.m_Stsz, kStszEntrySize); Failed(result)) return result;
  if (track.m_Stsz.m_dwEntryNum == 0) {
    track.m_dwConstSize = size;
  } else if (size != track.m_dwConstSize) {
    track.m_dwConstSize = 0;
  }
  Put(writer, track.m_Stsz, size);
  return 0;
}

int32_t AppendSampleToChunk(MP4WriterHandle& writer, MP4WriterTrack& track) {
  if (track.m_dwLastSpc != 0 && track.m_dwLastSpc == track.m_dwChunkSamples) return 0;
  if (const int32_t result = Reserve(writer, track.m_Stsc, kStscEntrySize); Failed(result)) return result;
  Put(writer, track.m_Stsc, track.m_dwCurChunk, track.m_dwChunkSamples, kSampleDescriptionIndex);
  track.m_dwLastSpc = track.m_dwChunkSamples;
  return 0;
}

int32_t AppendChunkOffset(MP4WriterHandle& writer, MP4WriterTrack& track) {
  // The offset is taken after a spill, which moves the end of mdat.
  if (const int32_t result = Reserve(writer, track.m_Stco, kStcoEntrySize); Failed(result)) return result;
  Put(writer, track.m_Stco, MdatEnd(writer));
  return 0;
}

int32_t AppendSyncSample(MP4WriterHandle& writer, MP4WriterTrack& track) {
  if (const int32_t result = Reserve(writer, track.m_Stss, kStssEntrySize); Failed(result)) return result;
  Put(writer, track.m_Stss, track.dwTotalFrames);
  return 0;
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterWriteBuf(MP4WriterHandle* handle, MP4WriterTrack*, MP4WriterTable* table, uint32_t entrySize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || table == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return MakeRoom(*handle, *table, entrySize);
}

int32_t MP4WriterWriteSttsEntry(MP4WriterHandle* handle, MP4WriterTrack* track, uint32_t delta) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return AppendTimeToSample(*handle, *track, delta);
}

int32_t MP4WriterWriteStszEntry(MP4WriterHandle* handle, MP4WriterTrack* track, uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return AppendSampleSize(*handle, *track, size);
}

int32_t MP4WriterWriteStscEntry(MP4WriterHandle* handle, MP4WriterTrack* track) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return AppendSampleToChunk(*handle, *track);
}

int32_t MP4WriterWriteStcoEntry(MP4WriterHandle* handle, MP4WriterTrack* track) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return AppendChunkOffset(*handle, *track);
}

int32_t MP4WriterWriteStssEntry(MP4WriterHandle* handle, MP4WriterTrack* track) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return AppendSyncSample(*handle, *track);
}
