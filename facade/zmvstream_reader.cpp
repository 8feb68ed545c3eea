// The reader façade: recognising a file's container, opening and closing.
#include "facade/zmvstream_reader.h"

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "facade/facade_call.h"
#include "facade/facade_formats.h"
#include "facade/reader_facade.h"
#include "platform/zmv_platform.h"

namespace zmv::facade {
namespace {

// Opens the stream and chooses the container reader.
int32_t OpenSource(ZMVReader& reader, const ZMVReaderParam& param) {
  const char* name = param.pszSource != nullptr ? param.pszSource : param.pszPath;
  if (name == nullptr) return Result(ZMV_E_OPEN);
  const uint32_t size = param.pszSource != nullptr ? param.dwSize : 0;
  const int64_t opened = ZMVStreamBuf_Open(&reader, name, size, ZMV_STREAM_READ);
  if (Failed(opened)) return static_cast<int32_t>(opened);
  return SelectReader(&reader);
}

int32_t OpenContainer(ZMVReader& reader, ZMVReaderParam& param) {
  const ZMVReaderOperations& container = reader.operations;
  if (container.Open != nullptr) return container.Open(&reader.hReader, reader.m_hInOut);
  if (container.OpenParam != nullptr) return container.OpenParam(&reader.hReader, &param);
  return Result(ZMV_E_FAIL);
}

// Everything of an open that can fail; what it has built by then stands in the handle.
int32_t Open(ZMVReader& reader, ZMVReaderParam& param) {
  const int32_t source = OpenSource(reader, param);
  if (Failed(source)) return source;
  if (param.pszSource == nullptr) param.dwSize = static_cast<uint32_t>(ZMVStreamBuf_Size(reader.m_hInOut));
  const int32_t container = OpenContainer(reader, param);
  if (Failed(container)) return container;
  reader.m_hMutex = ZMV_MutexCreate();
  return reader.m_hMutex != nullptr ? 0 : Result(ZMV_E_MEMORY);
}

// Closes what a handle holds, complete or not. A container is closed even when it was never opened, with null.
void CloseParts(ZMVReader& reader) {
  StopIndexThread(reader);
  if (reader.operations.Close != nullptr) reader.operations.Close(reader.hReader);
  if (reader.m_hMutex != nullptr) ZMV_MutexDestroy(reader.m_hMutex);
  ZMVStreamBuf_Close(reader.m_hInOut);
}

int32_t DescribeFile(ZMVReader& reader, ZMVReaderParam& param, ZMVFileInfo& info) {
  const int32_t source = OpenSource(reader, param);
  if (Failed(source)) return source;
  const int32_t container = OpenContainer(reader, param);
  if (Failed(container)) return container;
  if (reader.operations.GetInfo == nullptr) return Result(ZMV_E_FAIL);
  return FacadeResult(reader.operations.GetInfo(reader.hReader, &info, 0));
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

int32_t SelectReader(ZMVReader* handle) {
  TraceScope scope(kReaderModule, __func__);
  // Cleared, so that a file shorter than the signatures is judged on zeros.
  HostMemory<uint8_t> front(kReaderModule, kSniffSize, HostFill::kZero, __func__);
  if (!front) return scope.Fail(Result(ZMV_E_MEMORY));
  const int64_t peeked = ZMVStreamBuf_ShowBuffer(handle->m_hInOut, front.Get(), kSniffSize);
  if (Failed(peeked)) return scope.Fail(static_cast<int32_t>(peeked));
  const ZMVReaderOperations* found = FindReader(front.Get());
  if (found == nullptr) {
    return scope.Fail(Result(ZMV_E_UNSUPPORTED_FORMAT), "[Reader]\tReaderOpen - File format is not supported!\n");
  }
  handle->operations = *found;
  return 0;
}

int32_t ZMVReaderOpen(ZMVReader** handle, ZMVReaderParam* param) {
  TraceScope scope(kReaderModule, __func__);
  HostMemory<ZMVReader> reader = AllocateRecord<ZMVReader>(kReaderModule, __func__);
  if (!reader) {
    return scope.Fail(Result(ZMV_E_MEMORY), "ZMVReader alloc failed. size(%d)\n", static_cast<int>(sizeof(ZMVReader)));
  }
  const int32_t result = Open(*reader, *param);
  if (Failed(result)) {
    CloseParts(*reader);
    return scope.Fail(result);
  }
  *handle = reader.Release();
  return 0;
}

int32_t ZMVReaderGetInfoFile(ZMVReaderParam* param, ZMVFileInfo* info) {
  TraceScope scope(kReaderModule, __func__);
  ZMVReader reader{};
  const int32_t result = DescribeFile(reader, *param, *info);
  CloseParts(reader);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t ZMVReaderOpenSubtitle(void) {
  TraceScope scope(kReaderModule, __func__);
  return 0;
}

void ZMVReaderClose(ZMVReader* handle) {
  TraceScope scope(kReaderModule, __func__, TraceScope::Entered{});
  ZMV_TRACE(kReaderModule, kTraceDebug, "Enter. hReader(%x)\n",
            static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle)));
  if (handle == nullptr) return;
  CloseParts(*handle);
  FreeHost(handle);
}
