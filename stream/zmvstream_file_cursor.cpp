// Cursors of the file stream: their numbers and their positions.
#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "stream/file_stream.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {

void FreeCursor(ZMVStreamFile& file, uint32_t idx) {
  ZMVFileIndex* const cursor = file.m_pIndex[idx];
  if (cursor == nullptr) return;
  FreeHost(cursor->m_pCache);
  FreeHost(cursor);
  file.m_pIndex[idx] = nullptr;
  --file.m_dwIndexCount;
}

namespace {

constexpr int64_t kMemory = Result(ZMV_E_MEMORY);
constexpr int64_t kBeyondFile = Result(ZMV_E_SEEK);

// The smallest cache: one byte would make write-cache nodes of no bytes at all.
constexpr uint32_t kMinCacheSize = 2;

uint32_t LowestFreeNumber(const ZMVStreamFile& file) {
  uint32_t idx = 0;
  while (file.m_pIndex[idx] != nullptr) ++idx;
  return idx;
}

int64_t OutOfFile(const ZMVStreamFile& file, uint32_t target, const char* function) {
  ::ZMV_Trace(kFileModule.tag, kTraceError, kFileModule.source, __LINE__, function,
              "Out of File size!!! cur(%u) pos(%u)\n", file.m_dwFileSize, target);
  return kBeyondFile;
}

// Moves inside the cached bytes when the target lies among them; false, and nothing moved, when it does not.
bool SkipInsideCache(ZMVFileIndex& cursor, int32_t delta) {
  const int64_t consumed = cursor.m_pCachePos - cursor.m_pCache;
  const bool inside = delta < 0 ? -int64_t{delta} < consumed : delta < int64_t{cursor.m_dwCacheRemain};
  if (!inside) return false;
  cursor.m_pCachePos += delta;
  cursor.m_dwCacheRemain -= static_cast<uint32_t>(delta);
  return true;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamFile_Index(void* context, uint32_t* idx, uint32_t cacheSize) {
  TraceScope scope(kFileModule, __func__);
  ZMVStreamFile& file = FileOf(context);
  if (file.m_dwIndexCount >= ZMV_STREAM_MAX_CURSORS) return scope.Fail(kMemory, "opened index too many\n");
  const uint32_t number = LowestFreeNumber(file);
  HostMemory<ZMVFileIndex> cursor = AllocateRecord<ZMVFileIndex>(kFileModule, __func__);
  if (!cursor) {
    return scope.Fail(kMemory, "ZMVFileIndex alloc failed. size(%d)\n", static_cast<int>(sizeof(ZMVFileIndex)));
  }
  if (cacheSize < kMinCacheSize) cacheSize = 0;
  if (cacheSize != 0 && file.m_bWrite == 0) {
    HostMemory<uint8_t> cache = AllocateBytes(kFileModule, cacheSize, __func__);
    if (!cache) return scope.Fail(kMemory, "m_pCache alloc failed. size(%d)\n", static_cast<int>(cacheSize));
    cursor->m_pCache = cache.Release();
    cursor->m_pCachePos = cursor->m_pCache;
    cursor->m_dwCacheSize = cacheSize;
  } else if (cacheSize != 0 && number == 0 && file.m_pFillNode == nullptr) {
    if (Failed(BuildWriteCache(file, cacheSize / 2))) return scope.Fail(kMemory);
  }
  file.m_pIndex[number] = cursor.Release();
  ++file.m_dwIndexCount;
  *idx = number;
  return 0;
}

int64_t ZMVStreamFile_Release(void* context, uint32_t idx) {
  TraceScope scope(kFileModule, __func__);
  ZMVStreamFile& file = FileOf(context);
  if (FindCursor(file, idx) != nullptr) FreeCursor(file, idx);
  return file.m_dwIndexCount;
}

int64_t ZMVStreamFile_Skip(void* context, uint32_t idx, int32_t delta) {
  ZMVStreamFile& file = FileOf(context);
  ZMVFileIndex* const cursor = FindCursor(file, idx);
  if (cursor == nullptr) [[unlikely]]
    return NoSuchCursor(idx, __func__);
  if (cursor->m_pCache != nullptr && SkipInsideCache(*cursor, delta)) return 0;
  // From here on the cursor stands at the end of what was cached, also when the target turns out to be out of reach.
  const int64_t target = int64_t{cursor->m_dwPos} - cursor->m_dwCacheRemain + delta;
  DropCache(*cursor);
  if (target < 0 || target > file.m_dwFileSize) return OutOfFile(file, static_cast<uint32_t>(target), __func__);
  cursor->m_dwPos = static_cast<uint32_t>(target);
  return 0;
}

int64_t ZMVStreamFile_Seek(void* context, uint32_t idx, uint32_t pos) {
  ZMVStreamFile& file = FileOf(context);
  ZMVFileIndex* const cursor = FindCursor(file, idx);
  if (cursor == nullptr) [[unlikely]]
    return NoSuchCursor(idx, __func__);
  if (pos > file.m_dwFileSize) return OutOfFile(file, pos, __func__);
  cursor->m_dwPos = pos;
  DropCache(*cursor);
  return 0;
}

int64_t ZMVStreamFile_SeekEnd(void* context, uint32_t idx, int32_t dist) {
  return ZMVStreamFile_Seek(context, idx, FileOf(context).m_dwFileSize + static_cast<uint32_t>(dist));
}

uint32_t ZMVStreamFile_Pos(void* context, uint32_t idx) {
  const ZMVFileIndex* const cursor = FindCursor(FileOf(context), idx);
  return cursor == nullptr ? 0 : cursor->m_dwPos - cursor->m_dwCacheRemain;
}
