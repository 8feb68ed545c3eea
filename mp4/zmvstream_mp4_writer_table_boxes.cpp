// The table boxes of moov: spilled blocks copied back from mdat, then what is still in the buffers.
#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "mp4/mp4_writer_tables.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::mp4 {
namespace {

int32_t WriteHeader(MP4WriterHandle& writer, uint32_t type, uint32_t size, uint32_t entries) {
  uint8_t header[kTableHeaderSize];
  StoreBE32(header, size);
  StoreLE32(header + 4, type);
  StoreBE32(header + 8, 0);
  StoreBE32(header + 12, entries);
  return WriteOrTrace(writer, header, sizeof header);
}

// A box that is its header and its table.
int32_t WritePlainBox(MP4WriterHandle& writer, MP4WriterTable& table, uint32_t type, Scratch scratch) {
  if (table.m_dwEntryNum == 0) return 0;
  const int32_t result = WriteHeader(writer, type, table.m_dwBoxSize, table.m_dwEntryNum);
  return Failed(result) ? result : WriteTable(writer, table, scratch);
}

// Copies `size` bytes from the read cursor to the write cursor.
int32_t CopyBack(MP4WriterHandle& writer, uint32_t size, Scratch scratch) {
  while (size != 0) {
    const int64_t read =
        ZMVStreamBuf_ReadBuffer(writer.m_hInOut, writer.m_dwRidx, scratch.bytes, std::min(size, scratch.size));
    if (read <= 0) {
      ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(read));
      return read < 0 ? static_cast<int32_t>(read) : Result(ZMV_E_READ);
    }
    const uint32_t count = static_cast<uint32_t>(read);
    if (const int32_t result = WriteOrTrace(writer, scratch.bytes, count); Failed(result)) return result;
    size -= count;
  }
  return 0;
}

// The length that the spilled block at `position` states; the read cursor then stands at its payload.
int32_t EnterSpill(MP4WriterHandle& writer, uint32_t position, uint32_t* length) {
  int64_t error = ZMVStreamBuf_Seek(writer.m_hInOut, writer.m_dwRidx, position);
  if (!Failed(error)) {
    error = 0;
    ZMVStreamBuf_ReadDWordBE(writer.m_hInOut, writer.m_dwRidx, &error);  // the tag
  }
  if (error == 0) {
    *length = static_cast<uint32_t>(ZMVStreamBuf_ReadDWordBE(writer.m_hInOut, writer.m_dwRidx, &error));
  }
  if (error == 0) return 0;
  ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(error));
  return Failed(error) ? static_cast<int32_t>(error) : Result(ZMV_E_READ);
}

int32_t CopySpill(MP4WriterHandle& writer, const MP4WriterTable& table, uint32_t position, Scratch scratch) {
  uint32_t length = 0;
  if (const int32_t result = EnterSpill(writer, position, &length); Failed(result)) return result;
  if (table.m_dwBufSize < length) {
    char name[sizeof table.m_szName + 1] = {};
    std::memcpy(name, table.m_szName, sizeof table.m_szName);
    ZMV_TRACE(kWriterModule, kTraceInfo, "%s table size is too big (%d) dwSize(%d)\n", name, static_cast<int>(length),
              static_cast<int>(table.m_dwBufSize));
  }
  // A spill was a full buffer, whatever the file says by now.
  if (const int32_t result = CopyBack(writer, table.m_dwBufSize, scratch); Failed(result)) return result;
  ZMV_TRACE(kWriterModule, kTraceInfo, "pos(%x) size(%d)\n", position, static_cast<int>(table.m_dwBufSize));
  return 0;
}

// Raw audio in chunks of one frame: an entry per chunk, composed in the scratch buffer.
int32_t WriteChunkPerFrame(MP4WriterHandle& writer, const MP4WriterTrack& track, Scratch scratch) {
  const uint32_t chunks = track.m_Stsz.m_dwEntryNum;
  const uint32_t size = kTableHeaderSize + kStscEntrySize * chunks;
  if (const int32_t result = WriteHeader(writer, FourCC("stsc"), size, chunks); Failed(result)) return result;
  const uint32_t at_once = scratch.size / kStscEntrySize;
  if (at_once == 0) return Result(ZMV_E_FAIL);
  for (uint32_t done = 0; done < chunks;) {
    const uint32_t count = std::min(at_once, chunks - done);
    for (uint8_t* at = scratch.bytes; at != scratch.bytes + count * kStscEntrySize; at += kStscEntrySize) {
      StoreBE32(at, ++done);
      StoreBE32(at + 4, track.m_dwSampPerFrame);
      StoreBE32(at + 8, kSampleDescriptionIndex);
    }
    const int32_t result = WriteOrTrace(writer, scratch.bytes, count * kStscEntrySize);
    if (Failed(result)) return result;
  }
  return 0;
}

// Every sample is a chunk.
int32_t WriteFixedStsc(MP4WriterHandle& writer) {
  uint8_t entry[kStscEntrySize];
  StoreBE32(entry, 1);
  StoreBE32(entry + 4, 1);
  StoreBE32(entry + 8, kSampleDescriptionIndex);
  const int32_t result = WriteHeader(writer, FourCC("stsc"), kFixedStscSize, 1);
  return Failed(result) ? result : WriteOrTrace(writer, entry, sizeof entry);
}

}  // namespace

int32_t WriteTable(MP4WriterHandle& writer, MP4WriterTable& table, Scratch scratch) {
  if (table.m_dwSpillNum != 0 && (scratch.bytes == nullptr || scratch.size == 0)) return Result(ZMV_E_FAIL);
  for (uint32_t i = 0; i < table.m_dwSpillNum; ++i) {
    const int32_t result = CopySpill(writer, table, table.m_dwSpillPos[i], scratch);
    if (Failed(result)) return result;
  }
  return table.m_dwUsed == 0 ? 0 : WriteOrTrace(writer, table.m_pBuf, table.m_dwUsed);
}

int32_t WriteStts(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch) {
  return WritePlainBox(writer, track.m_Stts, FourCC("stts"), scratch);
}

int32_t WriteStco(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch) {
  return WritePlainBox(writer, track.m_Stco, FourCC("stco"), scratch);
}

int32_t WriteStss(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch) {
  return WritePlainBox(writer, track.m_Stss, FourCC("stss"), scratch);
}

int32_t WriteStsz(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch) {
  const MP4WriterTable& table = track.m_Stsz;
  if (table.m_dwEntryNum == 0) return 0;
  const bool raw = track.m_bRawAudio != 0;
  const uint32_t sample_size = raw ? track.dwBitsPerSample / 8 : track.m_dwConstSize;
  const uint32_t count = raw ? table.m_dwEntryNum * track.m_dwSampPerFrame : table.m_dwEntryNum;
  uint8_t header[kStszHeaderSize];
  StoreBE32(header, sample_size != 0 ? kStszHeaderSize : table.m_dwBoxSize);
  StoreLE32(header + 4, FourCC("stsz"));
  StoreBE32(header + 8, 0);
  StoreBE32(header + 12, sample_size);
  StoreBE32(header + 16, count);
  if (const int32_t result = WriteOrTrace(writer, header, sizeof header); Failed(result)) return result;
  return sample_size != 0 ? 0 : WriteTable(writer, track.m_Stsz, scratch);
}

int32_t WriteStsc(MP4WriterHandle& writer, MP4WriterTrack& track, Scratch scratch) {
  if (writer.m_bNoInterleave != 0) return WritePlainBox(writer, track.m_Stsc, FourCC("stsc"), scratch);
  if (track.m_Stsc.m_dwEntryNum == 0) return 0;
  return track.m_bRawAudio != 0 ? WriteChunkPerFrame(writer, track, scratch) : WriteFixedStsc(writer);
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterWriteTable(MP4WriterHandle* handle, MP4WriterTrack*, MP4WriterTable* table, uint8_t* scratch,
                            uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || table == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteTable(*handle, *table, {scratch, scratchSize});
}

int32_t MP4WriterWriteStts(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch, uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteStts(*handle, *track, {scratch, scratchSize});
}

int32_t MP4WriterWriteStsz(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch, uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteStsz(*handle, *track, {scratch, scratchSize});
}

int32_t MP4WriterWriteStsc(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch, uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteStsc(*handle, *track, {scratch, scratchSize});
}

int32_t MP4WriterWriteStco(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch, uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteStco(*handle, *track, {scratch, scratchSize});
}

int32_t MP4WriterWriteStss(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch, uint32_t scratchSize) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteStss(*handle, *track, {scratch, scratchSize});
}
