// Writing to the file stream: straight to the file, or through the ring of write-cache nodes.
#include <cstdio>
#include <cstring>

#include "base/zmv_result.h"
#include "platform/zmv_platform.h"
#include "stream/file_stream.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {
namespace {

constexpr int64_t kWriteFailed = Result(ZMV_E_WRITE);

int64_t WriteDirect(ZMVStreamFile& file, ZMVFileIndex& cursor, const uint8_t* src, uint32_t len) {
  if (Failed(MoveHandle(file, cursor.m_dwPos))) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileSeek error pos(%u)\n", cursor.m_dwPos);
    return Result(ZMV_E_SEEK);
  }
  const int64_t result = ZMV_FileWrite(file.m_hFile, src, len);
  if (result < 1) {
    if (result == 0 && std::ferror(static_cast<std::FILE*>(file.m_hFile)) == 0) return 0;
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_FileWrite error err(%ld)\n", static_cast<long>(result));
    return kWriteFailed;
  }
  file.m_dwFilePos += static_cast<uint32_t>(result);
  cursor.m_dwPos += static_cast<uint32_t>(result);
  RaiseFileSize(file, cursor.m_dwPos);
  return result;
}

// Flushes the oldest node; its failure stays with the file.
int64_t FlushOldest(ZMVStreamFile& file) {
  const int64_t result = ZMVStreamFile_WriteCache(&file);
  if (Failed(result)) file.m_llFlushError = result;
  return result;
}

// Closes the fill node when `position` lies neither in it nor right behind it. 0, or the error of the flush.
int64_t LeaveNodeUnlessInside(ZMVStreamFile& file, uint32_t position) {
  ZMVWCacheNode& node = *file.m_pFillNode;
  if (node.m_dwUsed == 0) return 0;
  const bool inside = position >= node.m_dwFilePos && uint64_t{position} <= uint64_t{node.m_dwFilePos} + node.m_dwUsed;
  if (inside) return 0;
  node.m_bReady = 1;
  file.m_pFillNode = node.m_pNext;
  return FlushOldest(file);
}

// Closes the full fill node and goes on to the next one, which is written to the file first when it still waits for
// that.
int64_t GoToNextNode(ZMVStreamFile& file) {
  ZMVWCacheNode& node = *file.m_pFillNode;
  node.m_dwUsed = file.m_dwNodeSize;
  node.m_bReady = 1;
  if (node.m_pNext->m_bReady != 0) {
    const int64_t result = FlushOldest(file);
    if (Failed(result)) return result;
  }
  file.m_pFillNode = node.m_pNext;
  return 0;
}

int64_t InvalidAccess(const ZMVWCacheNode& node, uint32_t offset, uint32_t loop, uint32_t placed) {
  ZMV_TRACE(
      kFileModule, kTraceError,
      "invaild buffer access \t\t\t\t\tbufused(%d) calc used(%d) pbuf(0x%08x) pbufpos(0x%08x) loop(%d) lRet(%d)\n",
      static_cast<int>(node.m_dwUsed), static_cast<int>(offset), LowWord(node.m_pBuffer), node.m_dwFilePos,
      static_cast<int>(loop), static_cast<int>(placed));
  return kWriteFailed;
}

int64_t WriteToNodes(ZMVStreamFile& file, ZMVFileIndex& cursor, const uint8_t* src, uint32_t len) {
  const int64_t left = LeaveNodeUnlessInside(file, cursor.m_dwPos);
  if (Failed(left)) return left;
  uint32_t placed = 0;
  for (uint32_t loop = 0; placed < len; ++loop) {
    ZMVWCacheNode& node = *file.m_pFillNode;
    const uint32_t position = cursor.m_dwPos + placed;
    if (node.m_dwUsed == 0) node.m_dwFilePos = position;
    const uint32_t offset = position - node.m_dwFilePos;
    if (offset > file.m_dwNodeSize) return InvalidAccess(node, offset, loop, placed);
    const uint32_t room = file.m_dwNodeSize - offset;
    const uint32_t rest = len - placed;
    const uint32_t part = rest < room ? rest : room;
    if (part != 0) std::memcpy(node.m_pBuffer + offset, src + placed, part);
    placed += part;
    if (rest <= room) {
      if (offset + part > node.m_dwUsed) node.m_dwUsed = offset + part;
      break;
    }
    const int64_t gone = GoToNextNode(file);
    if (Failed(gone)) return gone;
  }
  cursor.m_dwPos += placed;
  RaiseFileSize(file, cursor.m_dwPos);
  return placed;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamFile_WriteBuffer(void* context, uint32_t idx, const void* src, uint32_t len) {
  ZMVStreamFile& file = FileOf(context);
  if (idx != 0) {
    ZMV_TRACE(kFileModule, kTraceError, "index must be zero\n");
    return Result(ZMV_E_NOT_SUPPORTED);
  }
  if (Failed(file.m_llFlushError)) {
    ZMV_TRACE(kFileModule, kTraceError, "already has error err(%ld)\n", static_cast<long>(file.m_llFlushError));
    return file.m_llFlushError;
  }
  ZMVFileIndex* const cursor = file.m_pIndex[0];
  if (cursor == nullptr) return NoSuchCursor(idx, __func__);
  if (len > kMaxPosition - cursor->m_dwPos) {
    ZMV_TRACE(kFileModule, kTraceError, "file too large. pos(%u) size(%u)\n", cursor->m_dwPos, len);
    return kWriteFailed;
  }
  const uint8_t* const bytes = static_cast<const uint8_t*>(src);
  return file.m_pFillNode == nullptr ? WriteDirect(file, *cursor, bytes, len) : WriteToNodes(file, *cursor, bytes, len);
}
