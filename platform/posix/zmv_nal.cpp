#include "platform/posix/zmv_nal.h"

#include <cstring>

#include "base/zmv_result.h"
#include "platform/zmv_codec.h"

namespace zmv::codec {
namespace {

constexpr uint32_t kShortStartCodeSize = 3;
constexpr uint8_t kForbiddenBit = 0x80;
constexpr uint8_t kEmulationPrevention = 3;
constexpr uint32_t kEmulationZeros = 2;

bool IsShortStartCode(const uint8_t* at) { return at[0] == 0 && at[1] == 0 && at[2] == 1; }

}  // namespace

bool IsStartCodeForm(const uint8_t* data, uint32_t size) {
  if (size >= kShortStartCodeSize && IsShortStartCode(data)) return true;
  return size >= kStartCodeSize && std::memcmp(data, kStartCode, kStartCodeSize) == 0;
}

bool ParameterSetWalker::IsParameterSet(uint32_t at) const {
  const uint32_t header_size = codec_ == Codec::kAvc ? kAvcNalHeaderSize : kHevcNalHeaderSize;
  if (size_ - at < header_size || (data_[at] & kForbiddenBit) != 0) return false;
  const uint8_t type = TypeOf(codec_, {data_ + at, header_size});
  if (codec_ == Codec::kAvc) return type == kAvcSps || type == kAvcPps || type == kAvcSpsExtension;
  const uint32_t temporal_id_plus1 = data_[at + 1] & 7u;
  return type >= kHevcVps && type <= kHevcPps && temporal_id_plus1 != 0;
}

bool ParameterSetWalker::FindMark(uint32_t from, Mark* mark) const {
  for (uint32_t at = from; size_ - at > kShortStartCodeSize; ++at) {
    if (!IsShortStartCode(data_ + at) || !IsParameterSet(at + kShortStartCodeSize)) continue;
    *mark = {at, at + kShortStartCodeSize};
    return true;
  }
  return false;
}

bool ParameterSetWalker::Next(NalSpan* unit) {
  Mark mark;
  while (FindMark(position_, &mark)) {
    Mark next;
    uint32_t end = FindMark(mark.unit, &next) ? next.code : size_;
    position_ = end;
    while (end > mark.unit && data_[end - 1] == 0) --end;
    if (end == mark.unit) continue;
    *unit = {data_ + mark.unit, end - mark.unit};
    return true;
  }
  return false;
}

bool IsEscaped(const NalSpan& unit) {
  for (uint32_t at = kEmulationZeros; at < unit.size; ++at) {
    if (unit.data[at - 2] != 0 || unit.data[at - 1] != 0) continue;
    if (unit.data[at] < kEmulationPrevention) return false;
    const bool stray = at + 1 < unit.size && unit.data[at + 1] > kEmulationPrevention;
    if (unit.data[at] == kEmulationPrevention && stray) return false;
  }
  return true;
}

bool Escape(const NalSpan& unit, uint8_t* to, uint32_t capacity, uint32_t* written) {
  uint32_t zeros = 0;
  uint32_t used = 0;
  for (uint32_t at = 0; at < unit.size; ++at) {
    const uint8_t byte = unit.data[at];
    if (zeros >= kEmulationZeros && byte <= kEmulationPrevention) {
      if (used == capacity) return false;
      to[used++] = kEmulationPrevention;
      zeros = 0;
    }
    if (used == capacity) return false;
    to[used++] = byte;
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  if (zeros > 0) {
    if (used == capacity) return false;
    to[used++] = kEmulationPrevention;
  }
  *written = used;
  return true;
}

uint32_t Unescape(uint8_t* data, uint32_t size) {
  uint32_t zeros = 0;
  uint32_t kept = 0;
  for (uint32_t at = 0; at < size; ++at) {
    const uint8_t byte = data[at];
    if (zeros >= kEmulationZeros && byte == kEmulationPrevention) {
      zeros = 0;
      continue;
    }
    data[kept++] = byte;
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return kept;
}

}  // namespace zmv::codec

extern "C" int32_t ZMVUtil_H26xRemoveEPB(uint8_t* buf, uint32_t* size) {
  if (size == nullptr || (buf == nullptr && *size != 0)) return zmv::Result(ZMV_E_FAIL);
  *size = zmv::codec::Unescape(buf, *size);
  return 0;
}
