// Reading the frames of a stream one after another: a frame is a chunk, found through the index or by scanning.
#include "avi/avi_frames.h"

namespace zmv::avi::reader {
namespace {

constexpr int32_t kEnd = Result(ZMV_E_END);
constexpr int32_t kFail = Result(ZMV_E_FAIL);

// A chunk's size stands behind its code.
constexpr uint32_t kSizeField = 4;

void PassEmptyEntries(AVIReaderStream& stream) {
  while (stream.m_dwIndexCur < stream.m_dwIndexEntries && stream.m_pIndex[stream.m_dwIndexCur].m_dwSize == 0) {
    ++stream.m_dwIndexCur;
    ++stream.m_dwFrameNo;
  }
}

// The index leads to the chunk; what the chunk itself says of its size counts.
int32_t ReadChunkSize(const AVIReaderStream& stream, uint32_t position, uint32_t* size, const char* function) {
  const int64_t moved = MoveTo(stream, position);
  if (Failed(moved)) return Report(StreamError(moved), function);
  int64_t error = 0;
  *size = static_cast<uint32_t>(ZMVStreamBuf_ReadDWordLE(stream.m_hStream, stream.m_dwIndex, &error));
  return error != 0 ? Report(StreamError(error), function) : 0;
}

// The entry of the pending chunk is the one in front of the current one.
uint32_t KeyFlag(const AVIReaderStream& stream) {
  const uint32_t next = stream.m_dwIndexCur;
  if (next == 0 || next > stream.m_dwIndexEntries) return ZMV_NOT_KEY_FRAME;
  return stream.m_pIndex[next - 1].m_dwFlags == kKeyFrameFlag ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
}

void Stamp(const AVIReaderStream& stream, uint32_t size, ZMVFrame& frame) {
  uint32_t length = 1;
  uint32_t before = stream.m_dwFrameNo - 1;
  if (stream.m_dwSampleSize != 0) {
    length = size / stream.m_dwSampleSize;
    before = stream.m_dwBytesRead / stream.m_dwSampleSize;
  }
  frame.dwDuration = Milliseconds(stream, length);
  frame.llTimeStamp = uint64_t{Milliseconds(stream, before)} + stream.m_dwStartTime;
}

// The `size` bytes in front of m_dwPos. A host may deliver them in pieces.
int32_t ReadPayload(const AVIReaderStream& stream, uint8_t* to, uint32_t size, const char* function) {
  int64_t result = MoveTo(stream, stream.m_dwPos - size);
  if (Failed(result)) return Report(StreamError(result), function);
  while (size != 0) {
    result = ZMVStreamBuf_ReadBuffer(stream.m_hStream, stream.m_dwIndex, to, size);
    if (result <= 0 || result > size) return Report(StreamError(result), function);
    to += result;
    size -= static_cast<uint32_t>(result);
  }
  return 0;
}

int32_t ReadFrame(AVIReaderHandle& handle, ZMVFrame& frame) {
  constexpr const char* kFunction = "AVIReaderReadFrame";
  AVIReaderStream* stream = StreamOfRank(handle, frame.dwMediaType, frame.dwTrack);
  if (stream == nullptr) {
    ZMV_TRACE(kModule, kTraceWarning, "AVIReaderReadFrame can not find stream idx req(%d) total(%d)\n",
              static_cast<int>(frame.dwTrack), static_cast<int>(handle.m_dwStreamCount));
    frame.dwSize = 0;
    return 0;
  }
  const bool indexed = handle.m_bHasIndex != 0;
  if (stream->m_dwPendingSize == 0) {
    const int32_t result = indexed ? FindByIndex(handle, *stream, kFunction) : FindByScan(handle, *stream, kFunction);
    if (Failed(result)) return result;
  }
  if (indexed) frame.dwKeyFrame = KeyFlag(*stream);
  const uint32_t size = stream->m_dwPendingSize;
  const uint32_t capacity = frame.pData != nullptr ? frame.dwBufSize : 0;
  if (capacity < size) {
    frame.dwBufSize = size;
    return Result(ZMV_E_AVI_BUFFER);
  }
  Stamp(*stream, size, frame);
  // A payload that cannot be read is passed over: reading goes on behind it.
  stream->m_dwPendingSize = 0;
  const int32_t result = ReadPayload(*stream, frame.pData, size, kFunction);
  if (Failed(result)) return result;
  stream->m_dwBytesRead += size;
  frame.dwSize = size;
  return 0;
}

// The end of a stream and a buffer that is too small are ordinary answers.
constexpr bool IsFault(int32_t result) {
  return Failed(result) && result != kEnd && result != Result(ZMV_E_AVI_BUFFER);
}

}  // namespace

int32_t FindByIndex(const AVIReaderHandle& handle, AVIReaderStream& stream, const char* function) {
  PassEmptyEntries(stream);
  if (stream.m_dwIndexCur >= stream.m_dwIndexEntries) return kEnd;
  const uint64_t position = uint64_t{handle.m_dwBase} + kSizeField + stream.m_pIndex[stream.m_dwIndexCur].m_dwPos;
  if (position >= handle.m_dwFileSize) return kEnd;
  if (!Reaches(stream, position + 1)) return kFail;
  uint32_t size = 0;
  const int32_t result = ReadChunkSize(stream, static_cast<uint32_t>(position), &size, function);
  // The entry stays current, so that a later call may find what cannot be read now.
  if (Failed(result)) return result;
  ++stream.m_dwFrameNo;
  ++stream.m_dwIndexCur;
  // A chunk that is cut is passed over: a part of a frame is of no use.
  stream.m_dwPendingSize = 0;
  const uint64_t end = position + kSizeField + size;
  if (!Reaches(stream, end)) return kFail;
  stream.m_dwPendingSize = size;
  stream.m_dwPos = static_cast<uint32_t>(end);
  return 0;
}

}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

int32_t AVIReaderReadFrame(AVIReaderHandle* handle, ZMVFrame* frame) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadFrame(*handle, *frame);
  return IsFault(result) ? scope.Fail(result) : result;
}

int32_t AVIReaderFindStreamFrame2(AVIReaderHandle* handle, AVIReaderStream* stream) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || stream == nullptr || stream->m_hStream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = FindByIndex(*handle, *stream, __func__);
  return IsFault(result) ? scope.Fail(result) : result;
}
