// The limits of a recording: what the disk has room for, and what the caller asked for.
#include "base/zmv_result.h"
#include "facade/writer_facade.h"
#include "platform/zmv_platform.h"

namespace zmv::facade {
namespace {

// Milliseconds by which a frame may end beyond the duration limit, so that the last frame is not lost to rounding.
constexpr uint64_t kDurationGrace = 100;
constexpr int kMiBShift = 20;

bool MayGrow(ZMVWriter& writer, uint64_t current, uint32_t frame_size) {
  const int64_t need = static_cast<int64_t>(current + frame_size);
  if (writer.m_llFreeSpace >= need) [[likely]]
    return true;
  ZMV_TRACE(kWriterModule, kTraceWarning, "[Writer] WriterWrite Disk free space (%lld) media size (%d) check again\n",
            static_cast<long long>(writer.m_llFreeSpace), static_cast<int>(need));
  if (writer.m_pszTarget == nullptr) {
    const int64_t space = ZMV_GetFreeDiskSpace(writer.m_szPath);
    if (space < kDiskReserve) {
      ZMV_TRACE(kWriterModule, kTraceError, "[Writer] WriterWrite Disk free space is under 10Mb freespace(%lld)\n",
                static_cast<long long>(space));
      writer.m_llFreeSpace = 0;
    } else {
      writer.m_llFreeSpace = space - kDiskReserve;
      ZMV_TRACE(kWriterModule, kTraceInfo, "[Writer] WriterWrite Disk free space recheck freespace(%lld)\n",
                static_cast<long long>(writer.m_llFreeSpace));
    }
  }
  // The whole file is compared again, although its own bytes are no longer free: the reserve is to be met early.
  if (writer.m_llFreeSpace >= need) return true;
  ZMV_TRACE(kWriterModule, kTraceWarning,
            "[Writer] WriterWrite Disk free space (%lld) media size (%d) disk full error\n",
            static_cast<long long>(writer.m_llFreeSpace), static_cast<int>(need));
  return false;
}

// Compared without a sum that could wrap: the time stamp is the caller's.
bool EndsTooLate(const ZMVWriter& writer, const ZMVFrame& frame) {
  if (writer.m_dwMaxDuration == 0) return false;
  const uint64_t latest = writer.m_dwMaxDuration + kDurationGrace;
  return frame.llTimeStamp > latest || frame.dwDuration > latest - frame.llTimeStamp;
}

}  // namespace

uint64_t CurrentSize(const ZMVWriter& writer) {
  if (writer.operations.GetCurSize != nullptr) return writer.operations.GetCurSize(writer.hWriter);
  return static_cast<uint64_t>(ZMVStreamBuf_Size(writer.m_hInOut));
}

void MeasureDisk(ZMVWriter& writer, const ZMVWriterParam& param) {
  const int64_t space = ZMV_GetFreeDiskSpace(param.pszPath != nullptr ? param.pszPath : param.pszTarget);
  if (space < kDiskReserve) {
    ZMV_TRACE(kWriterModule, kTraceError, "[Writer] Disk free space is under 10MB (%lld)\n",
              static_cast<long long>(space));
    writer.m_llFreeSpace = 0;
  } else {
    writer.m_llFreeSpace = space - kDiskReserve;
  }
  const int free_mib = static_cast<int>(writer.m_llFreeSpace >> kMiBShift);
  if (param.dwReqFreeSpace > writer.m_llFreeSpace) {
    ZMV_TRACE(kWriterModule, kTraceError, "[Writer] Disk Free Size %d MB - Not enough!!\n", free_mib);
  } else {
    ZMV_TRACE(kWriterModule, kTraceWarning, "[Writer] Disk Free Size %d MB\n", free_mib);
  }
}

int32_t CheckLimits(ZMVWriter& writer, const ZMVFrame& frame) {
  const uint64_t current = CurrentSize(writer);
  if (!MayGrow(writer, current, frame.dwSize)) return Result(ZMV_E_DISK_FULL);
  const int64_t need = static_cast<int64_t>(current + frame.dwSize);
  const bool reached = (writer.m_llMaxFileSize != 0 && writer.m_llMaxFileSize < need) || EndsTooLate(writer, frame) ||
                       (writer.m_dwMaxFrames != 0 && writer.m_dwMaxFrames < writer.m_dwVideoFrames);
  return reached ? Result(ZMV_E_WRITE) : 0;
}

}  // namespace zmv::facade
