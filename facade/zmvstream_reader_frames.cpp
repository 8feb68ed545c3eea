// Reading frames: the playback window and the time deltas around the container's operation.
#include "base/zmv_result.h"
#include "facade/facade_call.h"
#include "facade/reader_facade.h"

namespace zmv::facade {
namespace {

bool HasMedia(const ZMVReader& reader, uint32_t slot) {
  switch (slot) {
    case kReaderAudio:
      return reader.m_bHasAudio != 0;
    case kReaderVideo:
      return reader.m_bHasVideo != 0;
    default:
      return reader.m_bHasText != 0 || reader.m_hSubtitle != nullptr;
  }
}

using ReadOperation = int32_t (*)(void* reader, ZMVFrame* frame);

// The next frame of the medium in `slot` through `read`; an empty operation gives `absent`.
int32_t ReadLocked(ZMVReader& reader, ZMVFrame& frame, uint32_t slot, ReadOperation read, int32_t absent) {
  if (!HasMedia(reader, slot)) return Result(ZMV_E_FAIL);
  if (reader.dwSkipEnd != 0 && reader.dwSkipEnd < reader.m_dwLastTS[slot]) return Result(ZMV_E_END);
  const int32_t result = read != nullptr ? read(reader.hReader, &frame) : absent;
  // Recorded and shifted whatever the result, so every retry on the same record adds the delta again.
  reader.m_dwLastTS[slot] = static_cast<uint32_t>(frame.llTimeStamp);
  frame.llTimeStamp += reader.m_dwTimeDelta[slot];
  if (reader.dwSkipEnd != 0 && frame.llTimeStamp > reader.dwSkipEnd) return Result(ZMV_E_END);
  return FacadeResult(result);
}

int32_t Read(ZMVReader& reader, ZMVFrame& frame, ReadOperation read, int32_t absent) {
  HandleLock lock(reader.m_hMutex);
  const uint32_t slot = MediaSlot(frame.dwMediaType);
  return slot == kReaderMediaCount ? 0 : ReadLocked(reader, frame, slot, read, absent);
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

int32_t ZMVReaderReadFrame(ZMVReader* handle, ZMVFrame* frame) {
  TraceScope scope(kReaderModule, __func__);
  const int32_t result = Read(*handle, *frame, handle->operations.ReadFrame, Result(ZMV_E_FAIL));
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t ZMVReaderReadFrameInfo(ZMVReader* handle, ZMVFrame* frame) {
  TraceScope scope(kReaderModule, __func__);
  const int32_t result = Read(*handle, *frame, handle->operations.ReadFrameInfo, 0);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t ReaderReadThumb(ZMVReader* handle, ZMVFrame* frame) {
  TraceScope scope(kReaderModule, __func__);
  if (frame->dwMediaType != ZMV_MEDIA_VIDEO) return 0;
  if (handle->operations.ReadThumb == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = Read(*handle, *frame, handle->operations.ReadThumb, Result(ZMV_E_FAIL));
  return Failed(result) ? scope.Fail(result) : result;
}
