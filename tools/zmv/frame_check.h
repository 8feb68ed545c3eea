// Whether a recording's frames are there, beyond what its structure tells.
#ifndef ZMV_TOOLS_FRAME_CHECK_H
#define ZMV_TOOLS_FRAME_CHECK_H

#include <optional>
#include <string>

#include "recover/zmvrecover.h"
#include "tools/zmv/console.h"
#include "tools/zmv/file_map.h"

namespace zmv::tool {

// Looks at every frame of the file and puts the health of `map` right by them. What was found; nothing for a file of
// another maker, whose health is left alone.
std::optional<ZMVRecoverReport> CheckFrames(const std::string& path, FileMap& map, Console& console);

}  // namespace zmv::tool

#endif
