// The writer façade: one recording through the operations of its container.
#include "facade/zmvstream_writer.h"

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "facade/facade_call.h"
#include "facade/facade_formats.h"
#include "facade/writer_facade.h"
#include "platform/zmv_platform.h"

namespace zmv::facade {
namespace {

// Opens the stream on the target, or on the path, which is then kept for measuring the disk again.
int32_t OpenStream(ZMVWriter& writer, const ZMVWriterParam& param) {
  const char* name = param.pszTarget;
  uint32_t size = param.dwTargetSize;
  writer.m_pszTarget = param.pszTarget;
  if (name == nullptr) {
    if (param.pszPath == nullptr) return Result(ZMV_E_OPEN);
    ZMV_snprintf(writer.m_szPath, sizeof writer.m_szPath, "%s", param.pszPath);
    name = param.pszPath;
    size = 0;
  }
  return static_cast<int32_t>(ZMVStreamBuf_Open(&writer, name, size, ZMV_STREAM_WRITE));
}

// Everything of an open that can fail; what it has built by then stands in the handle.
int32_t Open(ZMVWriter& writer, const ZMVWriterParam& param) {
  if (param.dwOptW != 0) ZMVStreamBuf_SetOption(param.dwOptW, param.pfnCloseCB);
  const int32_t opened = OpenStream(writer, param);
  if (Failed(opened)) {
    ZMV_TRACE(kWriterModule, kTraceError, "[Writer] WriterOpen - StreamInOutOpen error!!!\n");
    return opened;
  }
  const int32_t selected = SelectWriter(&writer, param.dwFormat);
  if (Failed(selected)) return selected;
  writer.m_llMaxFileSize = param.dwMaxFileSize;
  writer.m_dwMaxDuration = param.dwMaxDuration;
  writer.m_dwMaxFrames = param.dwMaxFrames;
  const int32_t result = writer.operations.Open(&writer.hWriter, writer.m_hInOut, param.bInterleave, param.llExpire);
  if (Failed(result)) return result;
  MeasureDisk(writer, param);
  writer.m_hMutex = ZMV_MutexCreate();
  return writer.m_hMutex != nullptr ? 0 : Result(ZMV_E_MEMORY);
}

// Releases whatever a handle holds, complete or not. A container is closed even when it was never opened, with null.
void Release(ZMVWriter* writer) {
  if (writer->operations.Close != nullptr) writer->operations.Close(writer->hWriter);
  if (writer->m_hMutex != nullptr) ZMV_MutexDestroy(writer->m_hMutex);
  ZMVStreamBuf_Close(writer->m_hInOut);
  FreeHost(writer);
}

int32_t Write(ZMVWriter& writer, ZMVFrame& frame) {
  const int32_t allowed = CheckLimits(writer, frame);
  if (Failed(allowed)) return allowed;
  const int32_t result = writer.operations.WriteFrame(writer.hWriter, &frame);
  if (Failed(result)) {
    ZMV_TRACE(kWriterModule, kTraceError, "[Writer] WriterWriteFrame - Write failed (0x%x)\n",
              static_cast<unsigned>(result));
    return result;
  }
  if (frame.dwMediaType == ZMV_MEDIA_VIDEO) ++writer.m_dwVideoFrames;
  return 0;
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

int32_t SelectWriter(ZMVWriter* handle, uint32_t format) {
  TraceScope scope(kWriterModule, __func__);
  const WriterFormat* found = FindWriter(format);
  if (found == nullptr) return scope.Fail(Result(ZMV_E_UNSUPPORTED_FORMAT), "can not support File format\n");
  ZMV_TRACE(kWriterModule, kTraceInfo, "File format %s selected\n", found->name);
  handle->operations = *found->operations;
  return 0;
}

int32_t ZMVWriterOpen(ZMVWriter** handle, const ZMVWriterParam* param) {
  TraceScope scope(kWriterModule, __func__);
  HostMemory<ZMVWriter> writer = AllocateRecord<ZMVWriter>(kWriterModule, __func__);
  if (!writer) {
    return scope.Fail(Result(ZMV_E_MEMORY), "ZMVWriter alloc failed. size(%d)\n", static_cast<int>(sizeof(ZMVWriter)));
  }
  const int32_t result = Open(*writer, *param);
  if (Failed(result)) {
    Release(writer.Release());
    return scope.Fail(result);
  }
  *handle = writer.Release();
  return 0;
}

int32_t ZMVWriterSetInfo(ZMVWriter* handle, ZMVFileInfo* info, uint64_t value) {
  TraceScope scope(kWriterModule, __func__);
  if (handle->operations.SetInfo == nullptr) return 0;
  const int32_t result = handle->operations.SetInfo(handle->hWriter, info, value);
  return Failed(result) ? scope.Fail(result) : 0;
}

int32_t ZMVWriterWrite(ZMVWriter* handle, ZMVFrame* frame) {
  TraceScope scope(kWriterModule, __func__);
  int32_t result;
  {
    // The limits are judged and the frame is written in one piece: no second thread may pass between the two.
    HandleLock lock(handle->m_hMutex);
    result = Write(*handle, *frame);
    frame->dwSize = 0;
  }
  return Failed(result) ? scope.Fail(result) : 0;
}

uint64_t ZMVWriterGetSize(ZMVWriter* handle) {
  TraceScope scope(kWriterModule, __func__);
  return CurrentSize(*handle);
}

const char* ZMVWriterGetFilePath(ZMVWriter* handle) {
  TraceScope scope(kWriterModule, __func__);
  return handle->m_szPath;
}

int32_t ZMVWriterSetSync(ZMVWriter* handle, uint8_t flag) {
  TraceScope scope(kWriterModule, __func__);
  const int32_t result = handle->operations.SetSync != nullptr
                             ? handle->operations.SetSync(handle->hWriter, flag)
                             : static_cast<int32_t>(ZMVStreamBuf_SetSync(handle->m_hInOut, flag));
  return FacadeResult(result);
}

void ZMVWriterClose(ZMVWriter* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle != nullptr) Release(handle);
}
