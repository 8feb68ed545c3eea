// What the trace lines of this room go by.
#ifndef ZMV_RECOVER_MODULE_H
#define ZMV_RECOVER_MODULE_H

#include "base/trace.h"

namespace zmv::recover {

inline constexpr TraceModule kModule{"ZMVRECO", "zmvrecover"};

// What a storage medium loses at once.
inline constexpr uint32_t kSectorSize = 512;

constexpr uint64_t SectorStart(uint64_t position) { return position - position % kSectorSize; }
constexpr uint64_t SectorEnd(uint64_t position) { return SectorStart(position) + kSectorSize; }

}  // namespace zmv::recover

#endif
