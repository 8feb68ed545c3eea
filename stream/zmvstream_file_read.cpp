// Reading from the file stream: through the read cache of a cursor, back from a file that is being written, and
// peeking.
#include <cstring>

#include "base/zmv_result.h"
#include "platform/zmv_platform.h"
#include "stream/file_stream.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {
namespace {

// Reads where the handle stands, and nothing past the last position there is. 0 or less is a failure.
int64_t ReadHandle(const ZMVStreamFile& file, void* dst, uint32_t len) {
  const uint32_t room = kMaxPosition - file.m_dwFilePos;
  if (room == 0) return 0;
  return ZMV_FileRead(file.m_hFile, dst, len < room ? len : room);
}

// Reads from the file at the cursor's m_dwPos, which moves by the bytes read. The count (at least 1), or a negative
// code. `len` is not 0.
int64_t Fetch(ZMVStreamFile& file, ZMVFileIndex& cursor, uint8_t* dst, uint32_t len) {
  const int32_t moved = MoveHandle(file, cursor.m_dwPos);
  if (Failed(moved)) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileSeek pos(%x)error. ret(%d)\n", cursor.m_dwPos, moved);
    return Result(ZMV_E_SEEK);
  }
  const int64_t result = ReadHandle(file, dst, len);
  if (result <= 0) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileRead error. len(%d) ret(%d)\n", static_cast<int>(len),
              static_cast<int>(result));
    return Result(ZMV_E_READ);
  }
  file.m_dwFilePos += static_cast<uint32_t>(result);
  cursor.m_dwPos += static_cast<uint32_t>(result);
  return result;
}

// Fetch for the bytes of a read, which says when it failed.
int64_t FetchRequested(ZMVStreamFile& file, ZMVFileIndex& cursor, uint8_t* dst, uint32_t len) {
  const int64_t result = Fetch(file, cursor, dst, len);
  if (result < 0) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMVStreamFile_Read failed. ret(%ld)\n", static_cast<long>(result));
  }
  return result;
}

inline void AdvanceInCache(ZMVFileIndex& cursor, uint32_t len) {
  cursor.m_pCachePos += len;
  cursor.m_dwCacheRemain -= len;
}

// Copies `len` bytes, of which there is at least one and which the cache holds. Returns `len`.
[[gnu::noinline]] int64_t TakeFromCache(ZMVFileIndex& cursor, void* dst, uint32_t len) {
  std::memcpy(dst, cursor.m_pCachePos, len);
  AdvanceInCache(cursor, len);
  return len;
}

// A refill that fails is not this read's failure: the next read finds the cache empty and meets it again.
void RefillCache(ZMVStreamFile& file, ZMVFileIndex& cursor) {
  const int64_t result = Fetch(file, cursor, cursor.m_pCache, cursor.m_dwCacheSize);
  cursor.m_pCachePos = cursor.m_pCache;
  cursor.m_dwCacheRemain = result < 0 ? 0 : static_cast<uint32_t>(result);
}

int64_t ReadThroughCache(ZMVStreamFile& file, ZMVFileIndex& cursor, uint8_t* dst, uint32_t len) {
  const uint32_t cached = cursor.m_dwCacheRemain;
  if (cached != 0) TakeFromCache(cursor, dst, cached);
  const int64_t fetched = FetchRequested(file, cursor, dst + cached, len - cached);
  if (fetched < 0) return fetched;
  if (cursor.m_pCache != nullptr && cursor.m_dwPos < file.m_dwFileSize) {
    RefillCache(file, cursor);
  } else {
    // The cached bytes no longer lie right before the cursor, so no Skip may go back into them.
    DropCache(cursor);
  }
  return cached + fetched;
}

// Reads what was written, of which the newest part stands in the node being filled and not yet in the file.
int64_t ReadBack(ZMVStreamFile& file, ZMVFileIndex& cursor, uint8_t* dst, uint32_t len) {
  const ZMVWCacheNode& node = *file.m_pFillNode;
  const uint64_t end = uint64_t{cursor.m_dwPos} + len;
  const uint64_t node_end = uint64_t{node.m_dwFilePos} + node.m_dwUsed;
  if (node.m_dwUsed == 0 || cursor.m_dwPos >= node_end || end <= node.m_dwFilePos) {
    return FetchRequested(file, cursor, dst, len);
  }
  uint32_t done = 0;
  if (cursor.m_dwPos < node.m_dwFilePos) {
    const uint32_t before = node.m_dwFilePos - cursor.m_dwPos;
    const int64_t fetched = FetchRequested(file, cursor, dst, before);
    if (fetched < before) return fetched;
    done = before;
  }
  const uint32_t overlap = static_cast<uint32_t>((end < node_end ? end : node_end) - cursor.m_dwPos);
  std::memcpy(dst + done, node.m_pBuffer + (cursor.m_dwPos - node.m_dwFilePos), overlap);
  cursor.m_dwPos += overlap;
  done += overlap;
  if (done == len) return len;
  const int64_t behind = FetchRequested(file, cursor, dst + done, len - done);
  if (behind < 0) return behind;
  // The part behind the node moves the cursor twice, by the fetch and here: who reads across the node seeks afterwards.
  cursor.m_dwPos += static_cast<uint32_t>(behind);
  return done + behind;
}

[[gnu::noinline]] int64_t ReadFromFile(ZMVStreamFile& file, uint32_t idx, uint8_t* dst, uint32_t len) {
  ZMVFileIndex* const cursor = FindCursor(file, idx);
  if (cursor == nullptr) return NoSuchCursor(idx, "ZMVStreamFile_ReadBuffer");
  if (len == 0) return 0;
  if (file.m_bWrite != 0 && file.m_pFillNode != nullptr) return ReadBack(file, *cursor, dst, len);
  return ReadThroughCache(file, *cursor, dst, len);
}

// Puts the handle at the peek position of a file open for reading. 0, or the code to return.
int64_t BeginPeek(ZMVStreamFile& file, const char* function) {
  if (file.m_bWrite != 0) {
    ::ZMV_Trace(kFileModule.tag, kTraceError, kFileModule.source, __LINE__, function,
                "can not support in write mode\n");
    return Result(ZMV_E_NOT_SUPPORTED);
  }
  const int32_t moved = MoveHandle(file, file.m_dwShowPos);
  if (!Failed(moved)) return 0;
  ::ZMV_Trace(kFileModule.tag, kTraceError, kFileModule.source, __LINE__, function, "ZMV_FileSeek failed. ret(%d)\n",
              moved);
  return Result(ZMV_E_SEEK);
}

// The handle and the peek position move together.
void AdvancePeek(ZMVStreamFile& file, uint32_t delta) {
  file.m_dwFilePos += delta;
  file.m_dwShowPos += delta;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamFile_ReadBuffer(void* context, uint32_t idx, void* dst, uint32_t len) {
  ZMVStreamFile& file = FileOf(context);
  ZMVFileIndex* const cursor = FindCursor(file, idx);
  // A request of no bytes fails the test: len - 1 is then the largest number.
  if (cursor != nullptr && len - 1 < cursor->m_dwCacheRemain) [[likely]] {
    // Most reads are single words of a table.
    if (len != sizeof(uint32_t)) return TakeFromCache(*cursor, dst, len);
    std::memcpy(dst, cursor->m_pCachePos, sizeof(uint32_t));
    AdvanceInCache(*cursor, sizeof(uint32_t));
    return sizeof(uint32_t);
  }
  return ReadFromFile(file, idx, static_cast<uint8_t*>(dst), len);
}

int64_t ZMVStreamFile_ShowBuffer(void* context, void* dst, uint32_t len) {
  ZMVStreamFile& file = FileOf(context);
  const int64_t begun = BeginPeek(file, __func__);
  if (Failed(begun)) return begun;
  if (len == 0) return 0;
  const int64_t result = ReadHandle(file, dst, len);
  if (result <= 0) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileRead failed. ret(%ld)\n", static_cast<long>(result));
    return Result(ZMV_E_READ);
  }
  AdvancePeek(file, static_cast<uint32_t>(result));
  return result;
}

int64_t ZMVStreamFile_ShowSkip(void* context, int32_t delta) {
  ZMVStreamFile& file = FileOf(context);
  const int64_t begun = BeginPeek(file, __func__);
  if (Failed(begun)) return begun;
  const int64_t target = int64_t{file.m_dwShowPos} + delta;
  const bool expressible = target >= 0 && target <= int64_t{kMaxPosition};
  const int32_t moved = expressible ? ZMV_FileSeek(file.m_hFile, delta, 1) : Result(ZMV_E_SEEK);
  if (Failed(moved)) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileSeek failed. ret(%d)\n", moved);
    return Result(ZMV_E_SEEK);
  }
  AdvancePeek(file, static_cast<uint32_t>(delta));
  return 0;
}

uint32_t ZMVStreamFile_ShowPos(void* context) { return FileOf(context).m_dwShowPos; }

int64_t ZMVStreamFile_ShowReset(void* context) {
  FileOf(context).m_dwShowPos = 0;
  return 0;
}
