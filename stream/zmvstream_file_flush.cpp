// The write cache of the file stream: its ring of nodes, their way to the file, and what a flush is measured by.
#include <cstddef>

#include "base/arith.h"
#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "platform/zmv_platform.h"
#include "stream/file_stream.h"
#include "stream/zmvstream_file.h"

uint64_t g_dwStartTime = 0;
uint64_t g_dwEndTime = 0;
uint64_t g_dwTotalTime = 0;
uint64_t g_dwWSTime = 0;
uint64_t g_dwWETime = 0;
uint64_t g_dwWTotalTime = 0;
uint32_t g_dwWriteBPS = 0;
uint32_t g_dwWriteBytes = 0;

namespace zmv::stream {
namespace {

constexpr uint32_t kNodeCount = 2;
constexpr uint64_t kReportPeriod = 2999;  // milliseconds; the report is due when the accumulator exceeds it
constexpr double kMillisecondsPerSecond = 1000.0;
constexpr double kBitsPerByte = 8.0;

// The counters are plain variables that an application reads while files are written on several threads.
template <typename T>
T Load(const T& counter) {
  return __atomic_load_n(&counter, __ATOMIC_RELAXED);
}

template <typename T>
void Store(T& counter, T value) {
  __atomic_store_n(&counter, value, __ATOMIC_RELAXED);
}

template <typename T>
void Add(T& counter, T value) {
  __atomic_fetch_add(&counter, value, __ATOMIC_RELAXED);
}

// A node with its buffer, linked to itself; null when the platform has no memory for it.
ZMVWCacheNode* MakeNode(uint32_t size) {
  HostMemory<ZMVWCacheNode> node = AllocateRecord<ZMVWCacheNode>(kFileModule, __func__);
  if (!node) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMVWCacheNode alloc failed. size(%d)\n",
              static_cast<int>(sizeof(ZMVWCacheNode)));
    return nullptr;
  }
  HostMemory<uint8_t> buffer = AllocateBytes(kFileModule, size, __func__);
  if (!buffer) {
    ZMV_TRACE(kFileModule, kTraceError, "m_pBuffer of ZMVWCacheNode alloc failed. size(%d)\n", static_cast<int>(size));
    return nullptr;
  }
  node->m_pBuffer = buffer.Release();
  node->m_pNext = node.Get();
  return node.Release();
}

// Starts the next measuring period after working out the rate of this one. A period without a millisecond in writes has
// the largest rate there is.
void ReportRate() {
  const uint64_t spent = Load(g_dwWTotalTime);
  const uint32_t bytes = Load(g_dwWriteBytes);
  const double milliseconds = static_cast<uint32_t>(spent);
  const uint32_t rate = SaturatingU32(bytes / milliseconds * kMillisecondsPerSecond * kBitsPerByte);
  Store(g_dwWriteBPS, rate);
  ZMV_TRACE(kFileModule, kTraceWarning, "PERF elapse time(%d)ms, size(%d)byte, (%d)bps\n", static_cast<int>(spent),
            static_cast<int>(bytes), static_cast<int>(rate));
  Store(g_dwWriteBytes, 0u);
  Store(g_dwWTotalTime, uint64_t{0});
  Store(g_dwTotalTime, uint64_t{0});
  Store(g_dwStartTime, Load(g_dwEndTime));
}

// Every flush adds the whole time since the period began, so the report comes the sooner the more often nodes are
// flushed.
void CountWrite(uint64_t end) {
  Store(g_dwWETime, end);
  Store(g_dwEndTime, end);
  Add(g_dwWTotalTime, end - Load(g_dwWSTime));
  Add(g_dwTotalTime, end - Load(g_dwStartTime));
  if (Load(g_dwTotalTime) > kReportPeriod) ReportRate();
}

}  // namespace

int32_t BuildWriteCache(ZMVStreamFile& file, uint32_t nodeSize) {
  for (uint32_t made = 0; made < kNodeCount; ++made) {
    ZMVWCacheNode* const node = MakeNode(nodeSize);
    if (node == nullptr) {
      FreeWriteCache(file);
      return Result(ZMV_E_MEMORY);
    }
    if (file.m_pFillNode == nullptr) {
      file.m_pFillNode = node;
    } else {
      node->m_pNext = file.m_pFillNode->m_pNext;
      file.m_pFillNode->m_pNext = node;
    }
    ++file.m_dwNodeCount;
  }
  file.m_pFlushNode = file.m_pFillNode;
  file.m_dwNodeSize = nodeSize;
  return 0;
}

void FreeWriteCache(ZMVStreamFile& file) {
  ZMVWCacheNode* node = file.m_pFillNode;
  for (; file.m_dwNodeCount != 0; --file.m_dwNodeCount) {
    ZMVWCacheNode* const next = node->m_pNext;
    FreeHost(node->m_pBuffer);
    FreeHost(node);
    node = next;
  }
  file.m_pFillNode = nullptr;
  file.m_pFlushNode = nullptr;
}

}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamFile_WriteCache(void* context) {
  TraceScope scope(kFileModule, __func__);
  ZMVStreamFile& file = FileOf(context);
  ZMVWCacheNode* const node = file.m_pFlushNode;
  if (node == nullptr || node->m_bReady == 0) return scope.Fail(int64_t{0}, "invalid action\n");
  if (Failed(MoveHandle(file, node->m_dwFilePos))) {
    return scope.Fail(int64_t{Result(ZMV_E_SEEK)}, "ZMV_FileSeek error pos(%u)\n", node->m_dwFilePos);
  }
  if (Load(g_dwStartTime) == 0) Store(g_dwStartTime, ZMV_GetSystemTick());
  Store(g_dwWSTime, ZMV_GetSystemTick());
  Add(g_dwWriteBytes, node->m_dwUsed);
  const int64_t result = ZMV_FileWrite(file.m_hFile, node->m_pBuffer, node->m_dwUsed);
  if (result <= 0) {
    return scope.Fail(int64_t{Result(ZMV_E_WRITE)}, "SysFileWrite error. ret(%ld) Pos(%x) Size(%x)\n",
                      static_cast<long>(result), node->m_dwFilePos, node->m_dwUsed);
  }
  CountWrite(ZMV_GetSystemTick());
  file.m_dwFilePos += static_cast<uint32_t>(result);
  node->m_bReady = 0;
  node->m_dwUsed = 0;
  file.m_pFlushNode = node->m_pNext;
  return 0;
}
