// The loading state, for sources whose data arrives over time.
#include "base/arith.h"
#include "facade/facade_call.h"
#include "facade/reader_facade.h"

namespace zmv::facade {
namespace {

constexpr uint32_t kWhole = 100;     // percent
constexpr int64_t kBufferSpan = 10;  // percent of what is still to come that counts as a full buffer

// A quotient of 64-bit numbers as a percentage that fits its field; nothing below 0 is reported.
uint32_t Percent(int64_t part, int64_t whole) {
  return part <= 0 || whole <= 0 ? 0 : SaturatingU32(static_cast<uint64_t>(part * kWhole / whole));
}

// Single precision alone can give 99 for a file that is there in full.
uint32_t LoadPercent(int64_t current, int64_t size) {
  if (current == size) return kWhole;
  if (size <= 0) return 0;
  return SaturatingU32(static_cast<float>(current) * static_cast<float>(kWhole) / static_cast<float>(size));
}

void MeasureStream(ZMVStreamBuf* stream, ZMVReaderStatus& status) {
  const int64_t size = ZMVStreamBuf_Size(stream);
  const int64_t current = ZMVStreamBuf_CurSize(stream);
  status.dwLoadPercent = LoadPercent(current, size);
  const int64_t span = (size - current) * kBufferSpan / kWhole;
  status.dwBufferPercent =
      span == 0 ? kWhole : Percent(current - static_cast<int64_t>(ZMVStreamBuf_ShowPos(stream)), span);
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

int32_t ZMVReaderGetStatus(ZMVReader* handle, ZMVReaderStatus* status) {
  TraceScope scope(kReaderModule, __func__);
  *status = ZMVReaderStatus{};
  if (handle->operations.GetStatus != nullptr) {
    handle->operations.GetStatus(handle->hReader, status);
  } else {
    MeasureStream(handle->m_hInOut, *status);
  }
  return 1;
}

int32_t ZMVReaderSetStatus(ZMVReader* handle, uint32_t value) {
  TraceScope scope(kReaderModule, __func__);
  if (handle == nullptr || handle->operations.SetStatus == nullptr) return 0;
  HandleLock lock(handle->m_hMutex);
  return FacadeResult(handle->operations.SetStatus(handle->hReader, value));
}
