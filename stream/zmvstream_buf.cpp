// The stream handle: opening, closing, and the calls that forward to the provider.
#include "stream/zmvstream_buf.h"

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "stream/buf_stream.h"
#include "stream/stream_layout.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {
namespace {

// A handle on the file provider, before it is opened. Files have no CurSize of their own: all their data is there.
constexpr ZMVStreamBuf kFileHandle = {
    .hInOut = nullptr,
    .m_pReserved = nullptr,
    .m_dwError = 0,
    .Open = &ZMVStreamFile_Open,
    .Dup = &ZMVStreamFile_Dup,
    .Close = &ZMVStreamFile_Close,
    .Index = &ZMVStreamFile_Index,
    .Release = &ZMVStreamFile_Release,
    .Size = &ZMVStreamFile_Size,
    .CurSize = nullptr,
    .GetName = &ZMVStreamFile_GetName,
    .ReadBuffer = &ZMVStreamFile_ReadBuffer,
    .WriteBuffer = &ZMVStreamFile_WriteBuffer,
    .Skip = &ZMVStreamFile_Skip,
    .Seek = &ZMVStreamFile_Seek,
    .SeekEnd = &ZMVStreamFile_SeekEnd,
    .Pos = &ZMVStreamFile_Pos,
    .ShowBuffer = &ZMVStreamFile_ShowBuffer,
    .ShowSkip = &ZMVStreamFile_ShowSkip,
    .ShowPos = &ZMVStreamFile_ShowPos,
    .ShowReset = &ZMVStreamFile_ShowReset,
    .GetFilesize = &ZMVStreamFile_GetFilesize,
    .SetSync = &ZMVStreamFile_SetSync,
};

constexpr uint32_t kFileFlag = 1;
constexpr int64_t kNotSupported = Result(ZMV_E_NOT_SUPPORTED);

// The first field of every owner record receives the handle.
void StoreHandle(void* owner, ZMVStreamBuf* handle) { *static_cast<ZMVStreamBuf**>(owner) = handle; }

HostMemory<ZMVStreamBuf> AllocateHandle(HostFill fill, const char* function) {
  HostMemory<ZMVStreamBuf> handle(kBufModule, static_cast<uint32_t>(sizeof(ZMVStreamBuf)), fill, function);
  if (!handle) {
    ZMV_TRACE(kBufModule, kTraceError, "ZMVStreamBuf malloc failed size(%d)\n", static_cast<int>(sizeof(ZMVStreamBuf)));
  }
  return handle;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamBuf_Open(void* owner, const char* path, uint32_t, uint32_t mode) {
  TraceScope scope(kBufModule, __func__);
  HostMemory<ZMVStreamBuf> handle = AllocateHandle(HostFill::kZero, __func__);
  if (!handle) return scope.Fail(int64_t{Result(ZMV_E_MEMORY)});
  *handle = kFileHandle;
  const int64_t result = handle->Open(handle.Get(), path, mode, kFileFlag);
  if (Failed(result)) return scope.Fail(result, "Open failed ret(%ld)\n", static_cast<long>(result));
  StoreHandle(owner, handle.Release());
  return 0;
}

int64_t ZMVStreamBuf_Dup(ZMVStreamBuf* handle, void* owner) {
  TraceScope scope(kBufModule, __func__);
  if (handle->Dup == nullptr) return scope.Fail(kNotSupported, "not support duplicate function\n");
  HostMemory<ZMVStreamBuf> copy = AllocateHandle(HostFill::kNone, __func__);
  if (!copy) return scope.Fail(int64_t{Result(ZMV_E_MEMORY)});
  *copy = *handle;
  const int64_t result = handle->Dup(handle->hInOut, copy.Get());
  if (Failed(result)) return scope.Fail(result, "Dup failed ret(%ld)\n", static_cast<long>(result));
  StoreHandle(owner, copy.Release());
  return 0;
}

void ZMVStreamBuf_Close(ZMVStreamBuf* handle) {
  if (handle == nullptr) return;
  TraceScope scope(kBufModule, __func__);
  if (handle->Close != nullptr) handle->Close(handle->hInOut);
  FreeHost(handle);
}

int64_t ZMVStreamBuf_Index(ZMVStreamBuf* handle, uint32_t* idx, uint32_t cacheSize) {
  TraceScope scope(kBufModule, __func__);
  if (handle->Index == nullptr) return scope.Fail(kNotSupported, "not support index function\n");
  return handle->Index(handle->hInOut, idx, cacheSize);
}

int64_t ZMVStreamBuf_Release(ZMVStreamBuf* handle, uint32_t idx) {
  TraceScope scope(kBufModule, __func__);
  if (handle->Release == nullptr) return scope.Fail(kNotSupported, "not support release function\n");
  handle->Release(handle->hInOut, idx);
  return 0;
}

int64_t ZMVStreamBuf_Size(ZMVStreamBuf* handle) {
  TraceScope scope(kBufModule, __func__);
  if (handle->Size == nullptr) return scope.Fail(kNotSupported, "not support size function\n");
  return handle->Size(handle->hInOut);
}

int64_t ZMVStreamBuf_CurSize(ZMVStreamBuf* handle) {
  TraceScope scope(kBufModule, __func__);
  const auto current = handle->CurSize != nullptr ? handle->CurSize : handle->Size;
  if (current == nullptr) return scope.Fail(kNotSupported, "not support size function\n");
  return current(handle->hInOut);
}

const char* ZMVStreamBuf_GetName(ZMVStreamBuf* handle) {
  TraceScope scope(kBufModule, __func__);
  constexpr const char* kNoName = nullptr;
  if (handle->GetName == nullptr) return scope.Fail(kNoName, "not support getname function\n");
  return handle->GetName(handle->hInOut);
}

int64_t ZMVStreamBuf_ReadBuffer(ZMVStreamBuf* handle, uint32_t idx, void* dst, uint32_t n) {
  TraceScope scope(kBufModule, __func__);
  if (handle->ReadBuffer == nullptr) return scope.Fail(kNotSupported, "not support readbuffer function\n");
  return handle->ReadBuffer(handle->hInOut, idx, dst, n);
}

int64_t ZMVStreamBuf_WriteBuffer(ZMVStreamBuf* handle, uint32_t idx, const void* src, uint32_t n) {
  if (handle->WriteBuffer == nullptr) {
    ZMV_TRACE(kBufModule, kTraceError, "not support writebuffer function\n");
    return kNotSupported;
  }
  return handle->WriteBuffer(handle->hInOut, idx, src, n);
}

int64_t ZMVStreamBuf_Skip(ZMVStreamBuf* handle, uint32_t idx, int32_t n) {
  if (handle->Skip == nullptr) {
    ZMV_TRACE(kBufModule, kTraceError, "not support skip function\n");
    return kNotSupported;
  }
  return handle->Skip(handle->hInOut, idx, n);
}

int64_t ZMVStreamBuf_Seek(ZMVStreamBuf* handle, uint32_t idx, uint32_t pos) {
  return handle->Seek(handle->hInOut, idx, pos);
}

int64_t ZMVStreamBuf_SeekEnd(ZMVStreamBuf* handle, uint32_t idx, int32_t dist) {
  return handle->SeekEnd(handle->hInOut, idx, dist);
}

uint32_t ZMVStreamBuf_Pos(ZMVStreamBuf* handle, uint32_t idx) { return handle->Pos(handle->hInOut, idx); }

int64_t ZMVStreamBuf_ShowBuffer(ZMVStreamBuf* handle, void* dst, uint32_t n) {
  return handle->ShowBuffer(handle->hInOut, dst, n);
}

int64_t ZMVStreamBuf_ShowSkip(ZMVStreamBuf* handle, int32_t n) { return handle->ShowSkip(handle->hInOut, n); }

uint32_t ZMVStreamBuf_ShowPos(ZMVStreamBuf* handle) { return handle->ShowPos(handle->hInOut); }

int64_t ZMVStreamBuf_ShowReset(ZMVStreamBuf* handle) { return handle->ShowReset(handle->hInOut); }

int64_t ZMVStreamBuf_GetFileSize(ZMVStreamBuf* handle) { return handle->GetFilesize(handle->hInOut); }

int64_t ZMVStreamBuf_SetSync(ZMVStreamBuf* handle, uint8_t flag) {
  TraceScope scope(kBufModule, __func__);
  if (handle == nullptr || handle->SetSync == nullptr) return 0;
  return handle->SetSync(handle->hInOut, flag);
}

int64_t ZMVStreamBuf_GetError(ZMVStreamBuf* handle) {
  TraceScope scope(kBufModule, __func__);
  return handle->m_dwError;
}

uint32_t ZMVStreamBuf_GetOption(void) {
  TraceScope scope(kBufModule, __func__);
  return ZMVStreamFile_GetOption();
}

void ZMVStreamBuf_SetOption(uint32_t option, ZMVStreamCloseCB callback) {
  TraceScope scope(kBufModule, __func__);
  ZMVStreamFile_SetOption(option, callback);
}
