// The index: collected in memory, written behind the frames.
#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/arith.h"
#include "base/host_memory.h"

namespace zmv::avi {
namespace {

constexpr uint64_t kMaxCapacity = 0xFFFFFFFF;
constexpr uint32_t kGrowth = 16000;

[[gnu::noinline]] int32_t Grow(AVIWriterHandle& writer) {
  const uint64_t capacity = uint64_t{writer.m_dwIndexCapacity} + kGrowth;
  void* grown = nullptr;
  if (capacity <= kMaxCapacity) {
    grown =
        ::ZMV_ReAlloc(writer.m_pIndex, static_cast<uint32_t>(capacity), 0, kWriterModule.source, __LINE__, __func__);
  }
  if (grown == nullptr) {
    ZMV_TRACE(kWriterModule, kTraceWarning, "not enough memory size(%d)\n", static_cast<int>(capacity));
    return Result(ZMV_E_MEMORY);
  }
  writer.m_pIndex = static_cast<uint8_t*>(grown);
  writer.m_dwIndexCapacity = static_cast<uint32_t>(capacity);
  return 0;
}

}  // namespace

int32_t CreateIndex(AVIWriterHandle& writer, uint64_t chunks_per_second) {
  uint64_t capacity = 0;
  const bool fits = MulFits(chunks_per_second, uint64_t{writer.m_dwLimitSeconds} * kIdx1EntrySize, &capacity);
  ZMV_TRACE(kWriterModule, kTraceInfo, "Tblsize(%d)\n", static_cast<int>(capacity));
  if (!fits || capacity > kMaxCapacity) return Result(ZMV_E_MEMORY);
  HostMemory<uint8_t> index = AllocateBytes(kWriterModule, static_cast<uint32_t>(capacity), __func__);
  if (!index) return Result(ZMV_E_MEMORY);
  writer.m_pIndex = index.Release();
  writer.m_dwIndexCapacity = static_cast<uint32_t>(capacity);
  return 0;
}

int32_t AppendIndexEntry(AVIWriterHandle& writer, uint32_t stream_no, uint32_t media, uint32_t key, uint32_t size) {
  if (uint64_t{writer.m_dwIndexBytes} + kIdx1EntrySize >= writer.m_dwIndexCapacity) [[unlikely]] {
    if (const int32_t result = Grow(writer); Failed(result)) return result;
  }
  const bool is_key = media != ZMV_MEDIA_VIDEO || key == ZMV_KEY_FRAME;
  RiffBuilder entry(writer.m_pIndex + writer.m_dwIndexBytes);
  entry.Code(ChunkCode(stream_no, media)).U32(is_key ? kKeyFrameFlag : 0).U32(writer.m_dwChunkOffset).U32(size);
  ++writer.m_dwIndexEntries;
  writer.m_dwIndexBytes += kIdx1EntrySize;
  return 0;
}

void WriteIndex(AVIWriterHandle& writer) {
  uint8_t header[kChunkHeaderSize];
  RiffBuilder(header).Code(FourCC("idx1")).U32(writer.m_dwIndexBytes);
  if (Failed(WriteOrTrace(writer, header, sizeof header))) {
    // Entries without their header would be taken for chunks: it is tried once more, and then they stay out as well.
    writer.m_bMisplaced = 1;
    if (Failed(AlignCursor(writer)) || Failed(WriteOrTrace(writer, header, sizeof header))) return;
  }
  if (writer.m_dwIndexBytes != 0) WriteOrTrace(writer, writer.m_pIndex, writer.m_dwIndexBytes);
}

}  // namespace zmv::avi

using namespace zmv;
using namespace zmv::avi;

int32_t AVIWriterWriteIndex(AVIWriterHandle* handle, uint32_t streamNo, uint32_t mediaType, uint32_t keyFrame,
                            uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL), "no handle\n");
  const int32_t result = AppendIndexEntry(*handle, streamNo, mediaType, keyFrame, size);
  return Failed(result) ? scope.Fail(result) : 0;
}
