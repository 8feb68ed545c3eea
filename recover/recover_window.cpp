#include "recover/recover_window.h"

#include <algorithm>
#include <cstring>

#include "base/zmv_result.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kCapacityStep = 16 * 1024;

}  // namespace

bool Window::Enlarge(uint64_t capacity) {
  if (capacity <= capacity_) return true;
  // A small file needs no more than its size.
  const uint64_t usual = std::min<uint64_t>(kCapacity, file_.Size());
  capacity = std::max(usual, (capacity + kCapacityStep - 1) / kCapacityStep * kCapacityStep);
  HostMemory<uint8_t> larger;
  if (capacity <= UINT32_MAX) larger = AllocateBytes(kModule, static_cast<uint32_t>(capacity), __func__);
  if (!larger) {
    error_ = Result(ZMV_E_MEMORY);
    return false;
  }
  if (filled_ != 0) std::memcpy(larger.Get(), memory_.Get(), filled_);
  memory_ = std::move(larger);
  capacity_ = static_cast<uint32_t>(capacity);
  return true;
}

// The window begins at a sector, so that whoever looks at the sectors of a payload finds them whole.
const uint8_t* Window::Fill(uint64_t position, uint32_t count) {
  error_ = 0;
  const uint64_t size = file_.Size();
  if (position > size || count > size - position) return nullptr;
  const uint64_t from = SectorStart(position);
  const uint64_t lead = position - from;
  if (!Enlarge(lead + count)) return nullptr;
  uint32_t kept = 0;
  if (from >= start_ && from - start_ < filled_) {
    kept = filled_ - static_cast<uint32_t>(from - start_);
    std::memmove(memory_.Get(), memory_.Get() + (from - start_), kept);
  }
  start_ = from;
  filled_ = kept;
  const int64_t got = file_.ReadAt(from + kept, memory_.Get() + kept, capacity_ - kept);
  if (got < 0) {
    error_ = static_cast<int32_t>(got);
    return nullptr;
  }
  filled_ += static_cast<uint32_t>(std::min<int64_t>(got, capacity_ - kept));
  if (lead + count > filled_) {
    // The file is shorter than it says.
    error_ = Result(ZMV_E_READ);
    return nullptr;
  }
  return memory_.Get() + lead;
}

}  // namespace zmv::recover
