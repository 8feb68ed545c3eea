// One frame: its chunk in the movi list, its entry in the index, and what its stream counts.
#include <algorithm>

#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "avi/zmvstream_avi_writer.h"

namespace zmv::avi {
namespace {

constexpr uint64_t kMaxFileSize = 0xFFFFFFFF;

// Up to this size a chunk is put together and written at once, which costs less than two or three writes.
constexpr uint32_t kJoinedChunk = 1024;

// What the length of an audio stream grows by with a compressed frame.
constexpr uint32_t kCompressedLength = 2;
// Milliseconds of a text frame that has none before it.
constexpr uint32_t kFirstTextDuration = 50;

// The stream of a frame. A track number that no stream of the medium has goes to the last stream.
AVIWriterStream& FindStream(const AVIWriterHandle& writer, const ZMVFrame& frame) {
  const uint32_t last = writer.m_dwStreamCount - 1;
  uint32_t ordinal = 0;
  for (uint32_t i = 0; i < last; ++i) {
    AVIWriterStream* const stream = writer.m_pStream[i];
    if (stream->m_dwMediaType == frame.dwMediaType && ordinal++ == frame.dwTrack) return *stream;
  }
  return *writer.m_pStream[last];
}

// True when the closed file stays below 4 GiB with `chunk` more bytes in the movi list.
bool HasRoomFor(const AVIWriterHandle& writer, uint64_t chunk) {
  const uint64_t index = uint64_t{kChunkHeaderSize} + writer.m_dwIndexBytes + kIdx1EntrySize;
  const uint64_t fill = writer.m_bNoJunkFill != 0 ? 0 : kChunkHeaderSize;
  return MoviEnd(writer) + chunk + index + ChunkBytes(kNameSize) + fill <= kMaxFileSize;
}

bool Write(ZMVStreamBuf* stream, uint32_t cursor, const void* bytes, uint32_t count) {
  return ZMVStreamBuf_WriteBuffer(stream, cursor, bytes, count) == count;
}

// Header, prefix, payload and pad one after the other.
bool WriteInParts(ZMVStreamBuf* handle, uint32_t cursor, const AVIWriterStream& stream,
                  const uint8_t (&header)[kChunkHeaderSize], const uint8_t* payload, uint32_t size) {
  constexpr uint8_t kPad = 0;
  if (!Write(handle, cursor, header, sizeof header)) return false;
  if (stream.m_dwPrefixSize != 0 && !Write(handle, cursor, stream.m_pPrefix, stream.m_dwPrefixSize)) return false;
  if (size != 0 && !Write(handle, cursor, payload, size)) return false;
  return (stream.m_dwPrefixSize + size) % 2 == 0 || Write(handle, cursor, &kPad, sizeof kPad);
}

// The bytes of the chunk, or 0 when a write failed or there is no such chunk.
uint32_t WriteChunk(ZMVStreamBuf* handle, uint32_t cursor, AVIWriterStream& stream, uint32_t media,
                    const uint8_t* payload, uint32_t size) {
  const uint64_t data = uint64_t{stream.m_dwPrefixSize} + size;
  const uint64_t bytes = ChunkBytes(data);
  if (bytes > kMaxFileSize) return 0;
  const uint32_t code = ChunkCode(stream.m_dwStreamNo, media);
  if (bytes <= kJoinedChunk) {
    uint8_t chunk[kJoinedChunk];
    chunk[bytes - 1] = 0;  // the pad, if there is one
    RiffBuilder out(chunk);
    out.Code(code).U32(static_cast<uint32_t>(data));
    out.Bytes(stream.m_pPrefix, stream.m_dwPrefixSize).Bytes(payload, size);
    if (!Write(handle, cursor, chunk, static_cast<uint32_t>(bytes))) return 0;
  } else {
    uint8_t header[kChunkHeaderSize];
    RiffBuilder(header).Code(code).U32(static_cast<uint32_t>(data));
    if (!WriteInParts(handle, cursor, stream, header, payload, size)) return 0;
  }
  ++stream.m_dwChunks;
  return static_cast<uint32_t>(bytes);
}

// Milliseconds that a frame adds to its stream: the time since the one before, which time stamp 0 cannot tell.
uint32_t DurationOf(const AVIWriterStream& stream, const ZMVFrame& frame, uint32_t first) {
  return stream.m_ullPrevTS == 0 ? first : static_cast<uint32_t>(frame.llTimeStamp - stream.m_ullPrevTS);
}

// Counts a frame with `size` bytes of data in its stream. False for an unknown medium, which nothing counts.
bool CountFrame(AVIWriterHandle& writer, AVIWriterStream& stream, const ZMVFrame& frame, uint32_t size) {
  switch (frame.dwMediaType) {
    case ZMV_MEDIA_VIDEO:
      stream.m_dwVidDur += DurationOf(stream, frame, frame.dwDuration);
      ++stream.dwTotalFrames;
      ++stream.m_StreamInfo.dwLength;
      ++writer.m_MainHeader.dwTotalFrames;
      return true;
    case ZMV_MEDIA_AUDIO:
      // Neither samples nor chunks: readers of these files expect exactly these lengths.
      stream.m_StreamInfo.dwLength += stream.m_dwAudioTag == kPcmTag ? size / 2 + 1 : kCompressedLength;
      return true;
    case ZMV_MEDIA_TEXT:
      stream.m_dwTxtDur += DurationOf(stream, frame, kFirstTextDuration);
      ++stream.dwTotalFrames;
      ++stream.m_StreamInfo.dwLength;
      return true;
    default:
      ZMV_TRACE(kWriterModule, kTraceError, "Unknown media type (0x%X)\n", frame.dwMediaType);
      return false;
  }
}

[[gnu::cold]] int32_t RefuseTime(const AVIWriterStream& stream, const ZMVFrame& frame) {
  ZMV_TRACE(kWriterModule, kTraceError, "Video CTS Check!!! media(%d) id(%d) size(%d) prev(%llu) > curr(%llu)\n",
            static_cast<int>(frame.dwMediaType), static_cast<int>(stream.m_dwStreamNo), static_cast<int>(frame.dwSize),
            static_cast<unsigned long long>(stream.m_ullPrevTS), static_cast<unsigned long long>(frame.llTimeStamp));
  return Result(ZMV_E_FAIL);
}

[[gnu::cold]] int32_t RefuseSize(const ZMVFrame& frame) {
  ZMV_TRACE(kWriterModule, kTraceError, "no room for frame media(%d) index(%d) size(%u)\n",
            static_cast<int>(frame.dwMediaType), static_cast<int>(frame.dwTrack), frame.dwSize);
  return Result(ZMV_E_WRITE);
}

int32_t WriteFrame(AVIWriterHandle& writer, const ZMVFrame& frame) {
  AVIWriterStream& stream = FindStream(writer, frame);
  if (frame.llTimeStamp < stream.m_ullPrevTS) return RefuseTime(stream, frame);
  const uint64_t data = uint64_t{frame.dwSize} + stream.m_dwPrefixSize;
  if (!HasRoomFor(writer, ChunkBytes(data))) return RefuseSize(frame);

  uint32_t bytes = 0;
  if (!Failed(AlignCursor(writer))) {
    bytes = WriteChunk(writer.m_hInOut, writer.m_dwCursor, stream, frame.dwMediaType, frame.pData, frame.dwSize);
  }
  if (bytes == 0) {
    writer.m_bMisplaced = 1;
    ZMV_TRACE(kWriterModule, kTraceError, "AVIWriterWriteChunk fail\n");
    return Result(ZMV_E_FAIL);
  }
  writer.m_dwMoviSize += bytes;
  const uint32_t size = static_cast<uint32_t>(data);
  const int32_t indexed = AppendIndexEntry(writer, stream.m_dwStreamNo, frame.dwMediaType, frame.dwKeyFrame, size);
  if (Failed(indexed)) {
    ZMV_TRACE(kWriterModule, kTraceError, "AVIWriterWriteIndex fail\n");
    // The chunk stays in the list; the entries to come are to point at theirs all the same.
    writer.m_dwChunkOffset += bytes;
    return indexed;
  }
  // The chunk offset stays with a frame of an unknown medium: files are known with exactly these offsets.
  if (!CountFrame(writer, stream, frame, size)) return 0;
  AVIWriterStreamHeader& header = stream.m_StreamInfo;
  header.dwSuggestedBufferSize = std::max(header.dwSuggestedBufferSize, size);
  writer.m_MainHeader.dwSuggestedBufferSize = std::max(writer.m_MainHeader.dwSuggestedBufferSize, size);
  stream.m_dwPrefixSize = 0;
  stream.m_ullPrevTS = frame.llTimeStamp;
  writer.m_dwChunkOffset += bytes;
  return 0;
}

}  // namespace
}  // namespace zmv::avi

using namespace zmv;
using namespace zmv::avi;

uint32_t AVIWriterWriteChunk(ZMVStreamBuf* hInOut, uint32_t cursor, AVIWriterStream* stream, uint32_t mediaType,
                             const uint8_t* payload, uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (hInOut == nullptr || stream == nullptr || (payload == nullptr && size != 0)) {
    return scope.Fail(0u, "no stream or no payload\n");
  }
  return WriteChunk(hInOut, cursor, *stream, mediaType, payload, size);
}

int32_t AVIWriterWriteFrame(AVIWriterHandle* handle, ZMVFrame* frame) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL), "no handle or no frame\n");
  if (handle->m_dwStreamCount == 0) return scope.Fail(-1);
  if (frame->pData == nullptr && frame->dwSize != 0) return scope.Fail(Result(ZMV_E_FAIL), "no payload\n");
  if (handle->m_dwMoviSize == 0) return scope.Fail(Result(ZMV_E_FAIL), "file information is not set\n");
  const int32_t result = WriteFrame(*handle, *frame);
  return Failed(result) ? scope.Fail(result) : 0;
}
