// Moving about: the four seeks, the playback window, the start, and the change of a track. The container writes the
// time it reached into the cell it is given.
#include "base/zmv_result.h"
#include "facade/facade_call.h"
#include "facade/reader_facade.h"

namespace zmv::facade {
namespace {

// Raises a target before the window to its start; false for a target behind its end.
bool EnterWindow(const ZMVReader& reader, uint32_t* time) {
  if (reader.dwSkipStart != 0 && reader.dwSkipStart > *time) {
    *time = reader.dwSkipStart;
    return true;
  }
  return reader.dwSkipEnd == 0 || reader.dwSkipEnd >= *time;
}

uint8_t SeekContainerByTime(ZMVReader& reader, uint32_t* time, uint8_t flag) {
  return reader.operations.SeekByTime != nullptr ? reader.operations.SeekByTime(reader.hReader, time, flag)
                                                 : uint8_t{0};
}

void SetLastTimes(ZMVReader& reader, uint32_t time) {
  for (uint32_t& last : reader.m_dwLastTS) last = time;
}

// A place at or behind the window's end is of no use: the window then begins anew, led by the other medium.
uint8_t SeekByTime(ZMVReader& reader, uint32_t* time, uint8_t flag) {
  uint8_t done = SeekContainerByTime(reader, time, flag);
  if (reader.dwSkipEnd != 0 && *time >= reader.dwSkipEnd) {
    *time = reader.dwSkipStart;
    done = SeekContainerByTime(reader, time, 1);
  }
  SetLastTimes(reader, *time);
  return done;
}

uint8_t SeekByKeyFrame(ZMVReader& reader, uint32_t* time, uint8_t flag) {
  const uint8_t done = reader.operations.SeekByKeyFrame != nullptr
                           ? reader.operations.SeekByKeyFrame(reader.hReader, time, flag)
                           : SeekContainerByTime(reader, time, 0);
  SetLastTimes(reader, *time);
  return done;
}

bool LiesAhead(const ZMVReader& reader, uint32_t time) {
  return time > reader.m_dwLastTS[kReaderAudio] && time > reader.m_dwLastTS[kReaderVideo];
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

uint8_t ZMVReaderSeekByTime(ZMVReader* handle, uint32_t* time, uint8_t flag) {
  TraceScope scope(kReaderModule, __func__);
  if (!EnterWindow(*handle, time)) return 0;
  HandleLock lock(handle->m_hMutex);
  return SeekByTime(*handle, time, flag);
}

uint8_t ZMVReaderSeekByKeyFrame(ZMVReader* handle, uint32_t* time, uint8_t flag) {
  TraceScope scope(kReaderModule, __func__);
  if (!EnterWindow(*handle, time)) return 0;
  HandleLock lock(handle->m_hMutex);
  return SeekByKeyFrame(*handle, time, flag);
}

uint8_t ZMVReaderSeekBySubtitle(ZMVReader* handle, uint32_t* time, uint8_t flag) {
  TraceScope scope(kReaderModule, __func__);
  HandleLock lock(handle->m_hMutex);
  const auto seek = handle->operations.SeekBySubtitle;
  const uint8_t done = seek != nullptr ? seek(handle->hReader, time, flag) : uint8_t{0};
  SetLastTimes(*handle, *time);
  return done;
}

uint8_t ZMVReaderSeekByMedia(ZMVReader* handle, uint32_t* time, uint32_t media) {
  TraceScope scope(kReaderModule, __func__);
  if (!EnterWindow(*handle, time)) return 0;
  HandleLock lock(handle->m_hMutex);
  const auto seek = handle->operations.SeekByMedia;
  const uint8_t done = seek != nullptr ? seek(handle->hReader, time, media) : uint8_t{0};
  const uint32_t slot = MediaSlot(media);
  if (slot != kReaderMediaCount) handle->m_dwLastTS[slot] = *time;
  return done;
}

int32_t ZMVReaderStart(ZMVReader* handle, uint32_t* time) {
  TraceScope scope(kReaderModule, __func__);
  int32_t result = 0;
  if (handle->operations.Start != nullptr) {
    result = FacadeResult(handle->operations.Start(handle->hReader, time));
  } else if (time != nullptr && *time != 0) {
    result = SeekContainerByTime(*handle, time, 0) != 0 ? 0 : Result(ZMV_E_FAIL);
  }
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t ZMVReaderSetSkip(ZMVReader* handle, uint32_t start, uint32_t end, uint8_t enable, uint8_t force) {
  TraceScope scope(kReaderModule, __func__);
  handle->dwSkipStart = enable != 0 ? start : 0;
  handle->dwSkipEnd = enable != 0 ? end : 0;
  if (enable == 0) return 1;
  if (force == 0 && !LiesAhead(*handle, start)) return 1;
  // The window begins where the seek lands.
  SeekContainerByTime(*handle, &handle->dwSkipStart, 0);
  if (handle->dwSkipStart >= end) {
    handle->dwSkipStart = start;
    SeekContainerByTime(*handle, &handle->dwSkipStart, 1);
  }
  return 1;
}

int32_t ZMVReaderSetTimeDelta(ZMVReader* handle, uint32_t delta, uint32_t media) {
  TraceScope scope(kReaderModule, __func__);
  const uint32_t slot = MediaSlot(media);
  if (slot == kReaderMediaCount) return 1;
  uint32_t& sum = handle->m_dwTimeDelta[slot];
  sum = delta != 0 ? sum + delta : 0;
  return 1;
}

int32_t ZMVReaderChangeTrack(ZMVReader* handle, uint32_t track, uint32_t media) {
  TraceScope scope(kReaderModule, __func__);
  const uint32_t slot = MediaSlot(media);
  if (handle->operations.ChangeTrack == nullptr || slot == kReaderMediaCount) return 1;
  return handle->operations.ChangeTrack(handle->hReader, track, handle->m_dwLastTS[slot], media, handle);
}
