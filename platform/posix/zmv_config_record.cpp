#include "platform/posix/zmv_config_record.h"

#include <algorithm>
#include <cstring>

#include "base/zmv_result.h"

namespace zmv::codec {
namespace {

// Capacity of the extra data of a video description.
constexpr uint32_t kExtraCapacity = 512;

}  // namespace

void StartCodeWriter::Append(const NalSpan& unit) {
  const uint32_t room = capacity_ - used_;
  if (room < kStartCodeSize || unit.size > room - kStartCodeSize) return;
  std::memcpy(to_ + used_, kStartCode, kStartCodeSize);
  std::memcpy(to_ + used_ + kStartCodeSize, unit.data, unit.size);
  used_ += kStartCodeSize + unit.size;
}

int32_t ConvertRecordInPlace(uint8_t* extra, uint32_t* size, RecordToStartCodes convert) {
  if (extra == nullptr || size == nullptr) return Result(ZMV_E_FAIL);
  *size = std::min(*size, kExtraCapacity);
  if (*size == 0 || IsStartCodeForm(extra, *size)) return 0;
  // Anything but a record of the known version is left as it came: what it is, a decoder may know.
  if (extra[0] != kRecordVersion) return Result(ZMV_E_FAIL);

  uint8_t record[kExtraCapacity];
  std::memcpy(record, extra, *size);
  StartCodeWriter writer(extra, kExtraCapacity);
  const bool whole = convert(record, *size, &writer);
  *size = writer.Size();
  return whole ? 0 : Result(ZMV_E_FAIL);
}

}  // namespace zmv::codec
