// The file stream: opening, names, sizes and the process-wide options.
#include "stream/zmvstream_file.h"

#include <cstring>

#include "base/arith.h"
#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "platform/zmv_platform.h"
#include "stream/file_stream.h"

namespace zmv::stream {

uint32_t zmvStreamFileOptW = 0;
ZMVStreamCloseCB zmvStreamFileOptCB = nullptr;

int32_t MoveHandle(ZMVStreamFile& file, uint32_t position) {
  if (file.m_dwFilePos == position) return 0;
  const int32_t result = ZMV_FileSeek(file.m_hFile, position, 0);
  if (Failed(result)) return result;
  file.m_dwFilePos = position;
  return 0;
}

int64_t NoSuchCursor(uint32_t idx, const char* function) {
  ::ZMV_Trace(kFileModule.tag, kTraceError, kFileModule.source, __LINE__, function, "no such index(%u)\n", idx);
  return Result(ZMV_E_FAIL);
}

namespace {

constexpr int64_t kMemory = Result(ZMV_E_MEMORY);
constexpr int64_t kCannotOpen = Result(ZMV_E_OPEN);
constexpr int kRecordSize = static_cast<int>(sizeof(ZMVStreamFile));

// A longer path could only be kept cut, and Dup would then open another file.
bool PathFits(const char* path) { return path != nullptr && std::strlen(path) < sizeof(ZMVStreamFile::m_szPath); }

uint32_t OpenFlags(uint32_t write, uint32_t flag) {
  if (write == 0) return ZMV_OPEN_READ;
  return flag == 0 || WriteOption() != 0 ? ZMV_OPEN_WRITE : ZMV_OPEN_WRITE_DEFAULT;
}

// Takes the size of a file open for reading, as positions can express it. False, and the handle is closed, when the
// platform does not know it: every read would take the file for empty.
bool TakeSize(ZMVStreamFile& file, const char* path) {
  const int64_t size = ZMV_FileSize(file.m_hFile);
  if (size < 0) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileSize failed. path(%s) ret(%ld)\n", path, static_cast<long>(size));
    ZMV_FileClose(file.m_hFile);
    return false;
  }
  file.m_dwFileSize = SaturatingU32(static_cast<uint64_t>(size));
  return true;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamFile_Open(void* owner, const char* path, uint32_t write, uint32_t flag) {
  TraceScope scope(kFileModule, __func__, TraceScope::Entered{});
  const char* const shown = path == nullptr ? "" : path;
  ZMV_TRACE(kFileModule, kTraceDebug, "Enter. path(%s) write(%d)\n", shown, static_cast<int>(write));
  HostMemory<ZMVStreamFile> file = AllocateRecord<ZMVStreamFile>(kFileModule, __func__);
  if (!file) return scope.Fail(kMemory, "ZMVStreamFile alloc failed. size(%d)\n", kRecordSize);
  if (PathFits(path)) file->m_hFile = ZMV_FileOpen(path, OpenFlags(write, flag));
  if (file->m_hFile == nullptr) {
    return scope.Fail(kCannotOpen, "ZMV_FileOpen failed. path(%s) write(%d)\n", shown, static_cast<int>(write));
  }
  file->m_bWrite = write != 0;
  if (write == 0 && !TakeSize(*file, path)) return scope.Fail(kCannotOpen);
  ZMV_TRACE(kFileModule, kTraceInfo, "File handle(%x) size(%u) file(%s) \n", LowWord(file->m_hFile), file->m_dwFileSize,
            path);
  std::strcpy(file->m_szPath, path);
  *static_cast<ZMVStreamFile**>(owner) = file.Release();
  return 0;
}

int64_t ZMVStreamFile_Dup(void* context, ZMVStreamBuf* newHandle) {
  TraceScope scope(kFileModule, __func__);
  const ZMVStreamFile& file = FileOf(context);
  if (file.m_bWrite != 0) return scope.Fail(kCannotOpen, "can not support in write mode\n");
  HostMemory<ZMVStreamFile> copy = AllocateRecord<ZMVStreamFile>(kFileModule, __func__);
  if (!copy) return scope.Fail(kMemory, "ZMVStreamFile alloc failed. size(%d)\n", kRecordSize);
  copy->m_hFile = ZMV_FileOpen(file.m_szPath, ZMV_OPEN_READ);
  if (copy->m_hFile == nullptr) return scope.Fail(kCannotOpen, "ZMV_FileOpen failed. path(%s)\n", file.m_szPath);
  std::memcpy(copy->m_szPath, file.m_szPath, sizeof copy->m_szPath);
  copy->m_dwFileSize = file.m_dwFileSize;
  newHandle->hInOut = copy.Release();
  return 0;
}

int64_t ZMVStreamFile_Size(void* context) {
  TraceScope scope(kFileModule, __func__);
  return FileOf(context).m_dwFileSize;
}

int64_t ZMVStreamFile_GetFilesize(void* context) {
  TraceScope scope(kFileModule, __func__);
  return ZMV_FileSize(FileOf(context).m_hFile);
}

const char* ZMVStreamFile_GetName(void* context) {
  TraceScope scope(kFileModule, __func__);
  return FileOf(context).m_szPath;
}

int64_t ZMVStreamFile_SetSync(void* context, uint8_t flag) {
  TraceScope scope(kFileModule, __func__);
  FileOf(context).m_bSync = flag;
  return 0;
}

uint32_t ZMVStreamFile_GetOption(void) {
  TraceScope scope(kFileModule, __func__);
  return WriteOption();
}

void ZMVStreamFile_SetOption(uint32_t optW, ZMVStreamCloseCB callback) {
  TraceScope scope(kFileModule, __func__);
  __atomic_store_n(&zmvStreamFileOptW, optW, __ATOMIC_RELAXED);
  __atomic_store_n(&zmvStreamFileOptCB, callback, __ATOMIC_RELAXED);
}
