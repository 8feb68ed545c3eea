#include "recover/recover_avi_key.h"

#include <initializer_list>

#include "base/fourcc.h"
#include "recover/recover_front.h"

namespace zmv::recover {
namespace {

enum class Unit : uint8_t { kOther, kParameters, kPicture, kKeyPicture };

// ISO/IEC 14496-10, table 7-1.
Unit AvcUnit(uint8_t head) {
  const unsigned type = head & 0x1F;
  if (type == 5) return Unit::kKeyPicture;
  if (type >= 1 && type <= 4) return Unit::kPicture;
  return type == 7 ? Unit::kParameters : Unit::kOther;
}

// ISO/IEC 23008-2, table 7-1: pictures where decoding can begin have the types 16 to 23.
Unit HevcUnit(uint8_t head) {
  const unsigned type = (head >> 1) & 0x3F;
  if (type >= 16 && type <= 23) return Unit::kKeyPicture;
  if (type < 32) return Unit::kPicture;
  return type == 32 || type == 33 ? Unit::kParameters : Unit::kOther;
}

bool IsHevc(uint32_t code) {
  for (const uint32_t hevc : {FourCC("H265"), FourCC("HEVC"), FourCC("hvc1"), FourCC("hev1"), FourCC("HEV1")}) {
    if (code == hevc) return true;
  }
  return false;
}

// The byte behind the next start code, or the end.
const uint8_t* NextUnit(const uint8_t* at, const uint8_t* end) {
  for (uint32_t zeros = 0; at != end; ++at) {
    if (*at == 1 && zeros >= 2) return at + 1;
    zeros = *at == 0 ? zeros + 1 : 0;
  }
  return end;
}

}  // namespace

bool IsKeyPayload(uint32_t code, const uint8_t* bytes, uint32_t size) {
  if (size == 0) return false;
  if (!BeginsWithLength(code)) return true;
  const bool hevc = IsHevc(code);
  const uint8_t* const end = bytes + size;
  bool any = false;
  bool parameters = false;
  for (const uint8_t* at = NextUnit(bytes, end); at != end; at = NextUnit(at, end)) {
    any = true;
    const Unit unit = hevc ? HevcUnit(*at) : AvcUnit(*at);
    if (unit == Unit::kKeyPicture) return true;
    if (unit == Unit::kPicture) return false;
    parameters = parameters || unit == Unit::kParameters;
  }
  return parameters || !any;
}

}  // namespace zmv::recover
