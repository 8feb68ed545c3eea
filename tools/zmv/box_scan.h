// What an MP4 file is made of: the boxes at its top level, the recovery boxes at its front, its user boxes.
#ifndef ZMV_TOOLS_BOX_SCAN_H
#define ZMV_TOOLS_BOX_SCAN_H

#include <string>

#include "tools/zmv/file_map.h"

namespace zmv::tool {

FileMap ScanBoxes(const std::string& path);

}  // namespace zmv::tool

#endif
