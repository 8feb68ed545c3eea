#include "tools/zmv/tool_error.h"

#include <fmt/core.h>

#include "base/zmv_result.h"
#include "recover/zmvrecover.h"

namespace zmv::tool {
namespace {

struct ResultRow {
  uint32_t code;
  const char* text;
};

constexpr ResultRow kResultRows[] = {
    {ZMV_E_FAIL, "the operation failed, or its data is malformed"},
    {ZMV_E_MEMORY, "out of memory, or the file has more tracks than can be read at once"},
    {ZMV_E_DISK_FULL, "the disk is full (10 MiB are kept free)"},
    {ZMV_E_NOT_SUPPORTED, "the operation is not possible on this file"},
    {ZMV_E_OPEN, "it cannot be opened"},
    {ZMV_E_READ, "it cannot be read, or ends too early"},
    {ZMV_E_WRITE, "a write failed, or a size limit is reached"},
    {ZMV_E_SEEK, "a position lies outside the file"},
    {ZMV_E_UNSUPPORTED_FORMAT, "it is not a recording of a known format"},
    {ZMV_E_NO_TRACK_HEADER, "the description of a track is out of order"},
    {ZMV_E_MP4_BUFFER, "a frame is larger than its buffer"},
    {ZMV_E_AVI_BUFFER, "a frame is larger than its buffer"},
    {ZMV_E_END, "the end of the stream is reached, or a frame is cut off"},
    {ZMV_E_CANCELLED, "it was stopped"},
};

}  // namespace

std::string ResultText(int32_t result) {
  for (const ResultRow& row : kResultRows) {
    if (row.code == static_cast<uint32_t>(result)) return row.text;
  }
  return fmt::format("result 0x{:08X}", static_cast<uint32_t>(result));
}

ToolError LibraryError(const std::string& file, const std::string& what, int32_t result, ExitCode code) {
  return ToolError(fmt::format("{}: {}: {}", file, what, ResultText(result)), code);
}

}  // namespace zmv::tool
