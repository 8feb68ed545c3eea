// Everything that `zmv info` knows about a recording, as JSON. The readable form is made from it, so both always agree.
#ifndef ZMV_TOOLS_RECORDING_INFO_H
#define ZMV_TOOLS_RECORDING_INFO_H

#include <nlohmann/json.hpp>
#include <string>

#include "tools/zmv/file_map.h"

namespace zmv::tool {

using Json = nlohmann::ordered_json;

// The file's health is in "health"; streams are there when it has an index. ToolError when it has one that cannot be
// read.
Json DescribeRecording(const std::string& path, const FileMap& map);

// As text, several lines.
std::string RecordingText(const Json& info);

// JSON for standard output; bytes that are no UTF-8 (file names) are replaced.
std::string JsonText(const Json& json);

}  // namespace zmv::tool

#endif
