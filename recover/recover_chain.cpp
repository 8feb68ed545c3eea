#include "recover/recover_chain.h"

#include <algorithm>
#include <cstring>

#include "base/zmv_result.h"

namespace zmv::recover {
namespace {

// Each byte is like the one before it, and the first one is zero: as fast as memory.
bool AllZero(const uint8_t* bytes, uint32_t count) {
  return count == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

}  // namespace

int32_t Chain::FindEnds(uint64_t known_end, Progress* progress) {
  constexpr uint32_t kFirstStep = 4096;
  constexpr uint32_t kStep = Window::kCapacity - kSectorSize;
  file_end_ = window_.file().Size();
  written_end_ = known_end;
  uint64_t end = known_end != 0 ? 0 : window_.file().DataEnd();
  for (uint32_t step = kFirstStep; end != 0; step = kStep) {
    if (progress != nullptr && !progress->Waiting()) return zmv::Result(ZMV_E_CANCELLED);
    const uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(step, end));
    const uint8_t* bytes = window_.At(end - count, count);
    if (bytes == nullptr) return window_.Error();
    end -= count;
    if (AllZero(bytes, count)) continue;
    uint32_t left = count;
    while (bytes[left - 1] == 0) --left;
    written_end_ = end + left;
    return 0;
  }
  return 0;
}

Chain::View Chain::Look(uint64_t position, uint32_t count) {
  if (position >= file_end_) return {bytes_, 0};
  count = static_cast<uint32_t>(std::min<uint64_t>(count, file_end_ - position));
  if (const uint8_t* held = window_.Held(position, count); held != nullptr) return {held, count};
  const int64_t got = window_.file().ReadAt(position, bytes_, count);
  if (got >= 0) return {bytes_, static_cast<uint32_t>(std::min<int64_t>(got, count))};
  if (error_ == 0) error_ = static_cast<int32_t>(got);
  return {bytes_, 0};
}

bool Chain::RestIsZero(uint64_t position) {
  const View view = Look(position, static_cast<uint32_t>(SectorEnd(position) - position));
  return AllZero(view.bytes, view.size);
}

bool Chain::RestIsErased(uint64_t position) {
  constexpr uint8_t kErased = 0xFF;
  const View view = Look(position, static_cast<uint32_t>(SectorEnd(position) - position));
  return view.size != 0 && view.bytes[0] == kErased && std::memcmp(view.bytes, view.bytes + 1, view.size - 1) == 0;
}

bool Chain::IsZero(uint64_t position) {
  const View view = Look(position, 1);
  return AllZero(view.bytes, view.size);
}

}  // namespace zmv::recover
