// The value in the box AIDD, which an application may change in a finished recording.
#ifndef ZMV_TOOLS_AIDD_H
#define ZMV_TOOLS_AIDD_H

#include <cstdint>
#include <string>

namespace zmv::tool {

// Puts `value` at `position` of the file and waits until it is stored. One write of 4 bytes and nothing else: a power
// cut leaves the old value or the new one. ToolError when it fails.
void RewriteAidd(const std::string& path, uint64_t position, uint32_t value);

}  // namespace zmv::tool

#endif
