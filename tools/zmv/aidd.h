// The value of a recording that an application may change when it is finished.
#ifndef ZMV_TOOLS_AIDD_H
#define ZMV_TOOLS_AIDD_H

#include <cstdint>
#include <string>

#include "tools/zmv/file_map.h"

namespace zmv::tool {

// Puts `value` in the place of `found` and waits until it is stored. One write of 4 bytes (MP4) or 2 (AVI) and nothing
// else: a power cut leaves the old value or the new one. ToolError when it fails, or when `value` has no room.
void RewriteAidd(const std::string& path, const UserValue& found, uint32_t value);

}  // namespace zmv::tool

#endif
