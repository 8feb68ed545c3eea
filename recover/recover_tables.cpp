#include "recover/recover_tables.h"

#include <initializer_list>

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

int32_t ResizeTable(MP4WriterTable& table, uint32_t bytes) {
  if (table.m_pBuf == nullptr) return 0;
  HostMemory<uint8_t> buffer = AllocateBytes(kModule, bytes, __func__);
  if (!buffer) return Result(ZMV_E_MEMORY);
  FreeHost(table.m_pBuf);
  table.m_pBuf = buffer.Release();
  table.m_pPos = table.m_pBuf;
  table.m_dwBufSize = bytes;
  return 0;
}

}  // namespace

int32_t ResizeTables(MP4WriterHandle& writer, uint32_t bytes) {
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    MP4WriterTrack& track = *writer.m_pTrack[i];
    for (MP4WriterTable* table : {&track.m_Stts, &track.m_Stsz, &track.m_Stco, &track.m_Stss}) {
      if (const int32_t result = ResizeTable(*table, bytes); Failed(result)) return result;
    }
  }
  return 0;
}

int32_t ResizeTables(MP4WriterHandle& writer, uint32_t bytes, uint64_t file_size) {
  const bool large = file_size >= kNearlyFull && bytes < kLargeTableBytes;
  if (large && !Failed(ResizeTables(writer, kLargeTableBytes))) return 0;
  return ResizeTables(writer, bytes);
}

}  // namespace zmv::recover
