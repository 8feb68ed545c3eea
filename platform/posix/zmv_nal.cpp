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

// Fixed header bytes of the units that may follow a parameter set.
constexpr uint8_t kAvcSeiHeader = 0x06;
constexpr uint8_t kAvcDelimiterHeader = 0x09;
constexpr uint8_t kHevcPrefixSeiHeader = 0x4E;
constexpr uint8_t kHevcSuffixSeiHeader = 0x50;
constexpr uint8_t kHevcDelimiterHeader = 0x46;
constexpr uint8_t kHevcBaseLayerHeader = 0x01;  // layer 0, temporal ID 0
// A delimiter is three bits of picture type, the stop bit and four zeros.
constexpr uint8_t kDelimiterFixedBits = 0x1F;
constexpr uint8_t kDelimiterTail = 0x10;

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

bool ParameterSetWalker::IsOtherUnit(uint32_t at) const {
  const uint32_t left = size_ - at;
  const uint8_t* header = data_ + at;
  if (codec_ == Codec::kAvc) {
    if (left < 2) return false;
    return header[0] == kAvcSeiHeader ||
           (header[0] == kAvcDelimiterHeader && (header[1] & kDelimiterFixedBits) == kDelimiterTail);
  }
  if (left < 3 || header[1] != kHevcBaseLayerHeader) return false;
  return header[0] == kHevcPrefixSeiHeader || header[0] == kHevcSuffixSeiHeader ||
         (header[0] == kHevcDelimiterHeader && (header[2] & kDelimiterFixedBits) == kDelimiterTail);
}

bool ParameterSetWalker::FindMark(uint32_t from, Mark* mark) const {
  for (uint32_t at = from; size_ - at > kShortStartCodeSize; ++at) {
    if (!IsShortStartCode(data_ + at)) continue;
    const uint32_t unit = at + kShortStartCodeSize;
    const bool parameter_set = IsParameterSet(unit);
    const bool long_code = at > 0 && data_[at - 1] == 0;
    if (!parameter_set && !(long_code && IsOtherUnit(unit))) continue;
    *mark = {at, unit, parameter_set};
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
    if (!mark.parameter_set) continue;
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
