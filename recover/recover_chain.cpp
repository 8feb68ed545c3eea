#include "recover/recover_chain.h"

#include <algorithm>

namespace zmv::recover {
namespace {

bool AllZero(const uint8_t* bytes, uint32_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

}  // namespace

int32_t Chain::FindEnds() {
  constexpr uint32_t kFirstStep = 4096;
  constexpr uint32_t kStep = 128 * 1024;
  file_end_ = window_.file().Size();
  uint64_t end = file_end_;
  uint32_t step = kFirstStep;
  while (end != 0) {
    const uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(step, end));
    const uint8_t* bytes = window_.At(end - count, count);
    if (bytes == nullptr) return window_.Error();
    uint32_t left = count;
    while (left != 0 && bytes[left - 1] == 0) --left;
    if (left != 0) {
      written_end_ = end - count + left;
      return 0;
    }
    end -= count;
    step = kStep;
  }
  written_end_ = 0;
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

bool Chain::IsZero(uint64_t position) {
  const View view = Look(position, 1);
  return AllZero(view.bytes, view.size);
}

}  // namespace zmv::recover
