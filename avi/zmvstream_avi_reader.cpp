// The AVI reader: opening, closing, and asking a file that is still growing whether it can be described yet.
#include "avi/zmvstream_avi_reader.h"

#include "avi/avi_reader.h"
#include "base/arith.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "base/host_memory.h"
#include "platform/zmv_platform.h"

namespace zmv::avi::reader {

// ---- Chunks at the reader's cursor

uint64_t DataEnd(const AVIReaderHandle& handle) {
  const int64_t size = ZMVStreamBuf_CurSize(handle.m_hStream);
  return size < 0 ? 0 : static_cast<uint64_t>(size);
}

int32_t SeekTo(AVIReaderHandle& handle, uint64_t position, const char* function) {
  const int64_t result = position > UINT32_MAX
                             ? int64_t{Result(ZMV_E_SEEK)}
                             : ZMVStreamBuf_Seek(handle.m_hStream, handle.m_dwIndex, static_cast<uint32_t>(position));
  return Failed(result) ? Report(StreamError(result), function) : 0;
}

int32_t ReadAt(AVIReaderHandle& handle, uint64_t position, void* to, uint32_t size, const char* function) {
  const int32_t moved = SeekTo(handle, position, function);
  if (Failed(moved)) return moved;
  const int64_t result = ZMVStreamBuf_ReadBuffer(handle.m_hStream, handle.m_dwIndex, to, size);
  return result == size ? 0 : Report(StreamError(result), function);
}

int32_t ReadCodeAt(AVIReaderHandle& handle, uint64_t position, uint32_t* code, const char* function) {
  uint8_t bytes[4];
  const int32_t result = ReadAt(handle, position, bytes, sizeof bytes, function);
  *code = Failed(result) ? 0 : LoadLE32(bytes);
  return result;
}

int32_t ReadChunkHeader(AVIReaderHandle& handle, uint64_t position, ChunkHeader* chunk, const char* function) {
  uint8_t bytes[kChunkHeaderSize];
  const int32_t result = ReadAt(handle, position, bytes, sizeof bytes, function);
  if (Failed(result)) return result;
  chunk->code = LoadLE32(bytes);
  chunk->size = LoadLE32(bytes + 4);
  chunk->data = position + kChunkHeaderSize;
  return 0;
}

int32_t FindNextChunk(AVIReaderHandle& handle, const ChunkHeader& chunk, uint64_t* next, const char* function) {
  *next = chunk.End();
  if (chunk.size % 2 == 0) return 0;
  const bool may_lack_pad =
      chunk.code == FourCC("strh") || chunk.code == FourCC("strf") || chunk.code == FourCC("JUNK");
  uint8_t pad = 0;
  // This library's writer pads none of these, other writers do. No code begins with a zero, so that byte tells.
  if (may_lack_pad && *next < DataEnd(handle)) {
    const int32_t result = ReadAt(handle, *next, &pad, sizeof pad, function);
    if (Failed(result)) return result;
  }
  if (pad == 0) ++*next;
  return 0;
}

void DropStreams(AVIReaderHandle& handle) {
  for (uint32_t number = 0; number < handle.m_dwStreamCount; ++number) {
    AVIReaderStream*& stream = handle.m_pStream[number];
    ZMVStreamBuf_Close(stream->m_hStream);
    FreeHost(stream->m_pIndex);
    FreeHost(stream->m_pSuper);
    FreeHost(stream);
    stream = nullptr;
  }
  handle.m_dwStreamCount = 0;
}

namespace {

constexpr bool IsReadableForm(uint32_t form) {
  return form == FourCC("AVI ") || form == FourCC("AVIX") || form == FourCC("MENU");
}

// Where the block in front of the RIFF data says that the data begins.
constexpr uint32_t kPrefixOffset = 92;

// Finds the RIFF data and leaves the cursor there, behind the form when it is at the front of the file.
int32_t FindRiff(AVIReaderHandle& handle) {
  constexpr const char* kFunction = "AVIReaderOpen";
  uint32_t code = 0;
  int32_t result = ReadCodeAt(handle, 0, &code, kFunction);
  if (Failed(result)) return result;
  if (code != FourCC("RIFF")) {
    result = ReadCodeAt(handle, kPrefixOffset, &handle.m_dwBase, kFunction);
    return Failed(result) ? result : SeekTo(handle, handle.m_dwBase, kFunction);
  }
  uint8_t size_and_form[kListHeaderSize - sizeof code];
  result = ReadAt(handle, sizeof code, size_and_form, sizeof size_and_form, kFunction);
  if (Failed(result)) return result;
  if (IsReadableForm(LoadLE32(size_and_form + 4))) return 0;
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction, "AVIReaderOpen - File is not AVI\n");
  return Result(ZMV_E_FAIL);
}

void Close(AVIReaderHandle* handle) {
  DropStreams(*handle);
  ZMVStreamBuf_Release(handle->m_hStream, handle->m_dwIndex);
  FreeHost(handle);
}

int32_t Open(AVIReaderHandle** out, ZMVStreamBuf& stream) {
  HostMemory<AVIReaderHandle> handle = AllocateRecord<AVIReaderHandle>(kModule, "AVIReaderOpen");
  if (!handle) return Result(ZMV_E_MEMORY);
  handle->m_hStream = &stream;
  const int64_t size = ZMVStreamBuf_Size(&stream);
  handle->m_dwFileSize = size < 0 ? 0 : SaturatingU32(static_cast<uint64_t>(size));
  const int64_t indexed = ZMVStreamBuf_Index(&stream, &handle->m_dwIndex, 0);
  if (Failed(indexed)) return Report(StreamError(indexed), "AVIReaderOpen");
  const int32_t result = FindRiff(*handle);
  if (Failed(result)) {
    Close(handle.Release());
    return result;
  }
  *out = handle.Release();
  return 0;
}

// ---- A growing file

// Looks for the "movi" list from m_dwCheckPos on, which moves over everything in front of it that is complete.
uint8_t IsValidInfo(AVIReaderHandle& handle) {
  constexpr const char* kFunction = "AVIReaderIsValidInfo";
  for (;;) {
    const uint64_t available = DataEnd(handle);
    const uint64_t position = uint64_t{handle.m_dwBase} + handle.m_dwCheckPos;
    if (position + kListHeaderSize > available) return 0;

    ChunkHeader chunk;
    int32_t result = ReadChunkHeader(handle, position, &chunk, kFunction);
    if (Failed(result)) return static_cast<uint8_t>(result);
    const bool is_form = chunk.code == FourCC("RIFF");
    if (is_form || chunk.code == FourCC("LIST")) {
      uint32_t type = 0;
      result = ReadCodeAt(handle, chunk.data, &type, kFunction);
      if (Failed(result)) return static_cast<uint8_t>(result);
      if (is_form) {
        handle.m_dwCheckPos += kListHeaderSize;
        continue;
      }
      if (type == FourCC("movi")) {
        result = SeekTo(handle, handle.m_dwBase, kFunction);
        if (Failed(result)) return static_cast<uint8_t>(result);
        ZMV_TRACE(kModule, kTraceWarning, "AVIReaderIsValidInfo %d\n", static_cast<int>(available));
        return 1;
      }
    }

    // Whether a pad byte follows shows once it, or what comes in its place, is there.
    const bool complete = chunk.End() + chunk.size % 2 <= available;
    uint64_t next = position;
    if (complete) result = FindNextChunk(handle, chunk, &next, kFunction);
    if (!Failed(result)) result = SeekTo(handle, next, kFunction);
    if (Failed(result)) return static_cast<uint8_t>(result);
    if (!complete) return 0;
    handle.m_dwCheckPos = static_cast<uint32_t>(next - handle.m_dwBase);
    ZMV_TRACE(kModule, kTraceWarning, "CurPos=%d Remain=%d File=%d\n", static_cast<int>(handle.m_dwCheckPos),
              static_cast<int>(available - position), static_cast<int>(available));
  }
}

}  // namespace
}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

int32_t AVIReaderOpen(AVIReaderHandle** out, ZMVStreamBuf* stream) {
  TraceScope scope(kModule, __func__);
  if (out == nullptr || stream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = Open(out, *stream);
  return Failed(result) ? scope.Fail(result) : result;
}

void AVIReaderClose(AVIReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  ZMV_TRACE(kModule, kTraceDebug, "AVIReaderClose\n");
  if (handle != nullptr) Close(handle);
}

uint8_t AVIReaderIsValidInfo(AVIReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr ? IsValidInfo(*handle) : uint8_t{0};
}

int32_t AVIReaderMakeIndex(AVIReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  ZMV_GetSystemTick();
  return 0;
}
