// The build without FFmpeg's libraries: `zmv import` is there and says why it cannot read.
#include "tools/zmv/media_source.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {

std::unique_ptr<MediaSource> OpenMediaSource(const std::string& path, const SourceOptions&, Console&) {
  throw ToolError(path +
                  ": this zmv was built without input support; build it with libavformat, libavcodec and libavutil");
}

}  // namespace zmv::tool
