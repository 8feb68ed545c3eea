// What the source files of the AVI writer share.
#ifndef ZMV_AVI_WRITER_H
#define ZMV_AVI_WRITER_H

#include "avi/zmv_avi_format.h"
#include "avi/zmvstream_avi_writer_records.h"
#include "base/fourcc.h"
#include "base/trace.h"
#include "base/zmv_result.h"

namespace zmv::avi {

inline constexpr TraceModule kWriterModule{"ZMVAVIW", "zmvstream_avi_writer"};

// The size of the RIFF form, which is the whole file.
inline constexpr uint32_t kRiffSizePosition = 4;
// The data of the chunk that holds the file's name.
inline constexpr uint32_t kNameSize = 320;

// ---- Writing

// Writes at the cursor. The count, or the stream's negative code.
inline int64_t WriteBytes(AVIWriterHandle& writer, const void* bytes, uint32_t count) {
  return ZMVStreamBuf_WriteBuffer(writer.m_hInOut, writer.m_dwCursor, bytes, count);
}

// A write's count as a result: 0, or a code, which has then been traced. Less than all is ZMV_E_WRITE.
int32_t CheckWritten(int64_t written, uint32_t count);

inline int32_t WriteOrTrace(AVIWriterHandle& writer, const void* bytes, uint32_t count) {
  return CheckWritten(WriteBytes(writer, bytes, count), count);
}

inline uint32_t Position(const AVIWriterHandle& writer) { return ZMVStreamBuf_Pos(writer.m_hInOut, writer.m_dwCursor); }

// 0, or a code, which has then been traced.
int32_t SeekOrTrace(AVIWriterHandle& writer, uint32_t position);

// Sets a size field and takes the cursor to the end of the data; after a failure it stays. 0, or a code, traced.
int32_t PatchSize(AVIWriterHandle& writer, uint32_t position, uint32_t value);

// ---- The movi list

// Where the next chunk goes, or idx1.
inline uint64_t MoviEnd(const AVIWriterHandle& writer) {
  return uint64_t{writer.m_dwMoviSizePos} + sizeof writer.m_dwMoviSize + writer.m_dwMoviSize;
}

// Takes the cursor to the end of the movi list if it may stand elsewhere: behind the pieces of a chunk that was not
// written whole, which are then written over. 0, or a code, which has been traced.
inline int32_t AlignCursor(AVIWriterHandle& writer) {
  if (writer.m_bMisplaced == 0) [[likely]]
    return 0;
  const int32_t result = SeekOrTrace(writer, static_cast<uint32_t>(MoviEnd(writer)));
  if (!Failed(result)) writer.m_bMisplaced = 0;
  return result;
}

// The code of a stream's chunks: "00dc", "01wb", "02tx". The second character counts on behind "9".
inline uint32_t ChunkCode(uint32_t stream_no, uint32_t media) {
  constexpr uint32_t kVideo = FourCC("\0\0dc");
  constexpr uint32_t kAudio = FourCC("\0\0wb");
  constexpr uint32_t kOther = FourCC("\0\0tx");
  const uint32_t type = media == ZMV_MEDIA_VIDEO ? kVideo : media == ZMV_MEDIA_AUDIO ? kAudio : kOther;
  return type | '0' | (('0' + stream_no) & 0xFF) << 8;
}

// Bytes of a chunk with `size` bytes of data.
constexpr uint64_t ChunkBytes(uint64_t size) { return kChunkHeaderSize + size + size % 2; }

// ---- Parts

// What the stream lists add up to.
struct HeaderTotals {
  uint32_t hdrl_size;          // of the hdrl list, its type included
  uint64_t chunks_per_second;  // of all streams, to size the index
};

// Makes the stream records and writes the strl list of each; sets the block alignment of the audio description. 0, or a
// code.
int32_t WriteStreamLists(AVIWriterHandle& writer, ZMVFileInfo& info, HeaderTotals& totals);

// Takes the index's first memory. 0, or ZMV_E_MEMORY.
int32_t CreateIndex(AVIWriterHandle& writer, uint64_t chunks_per_second);
// Adds an entry for the chunk at the chunk offset. 0, or ZMV_E_MEMORY, the entries so far staying.
int32_t AppendIndexEntry(AVIWriterHandle& writer, uint32_t stream_no, uint32_t media, uint32_t key, uint32_t size);
// idx1 at the cursor.
void WriteIndex(AVIWriterHandle& writer);

}  // namespace zmv::avi

#endif
