// What was recorded, for people and as JSON.
#ifndef ZMV_TOOLS_RECORDING_REPORT_H
#define ZMV_TOOLS_RECORDING_REPORT_H

#include "tools/zmv/commands.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {

// A note on `console` for each file; the files with their tracks as JSON.
Json ReportFiles(const Recorder& recorder, Console& console);

// For commands that read frames: the exit code of a file that is not whole, and on the console what cannot be told
// without an index. An exit code that is set already stays.
void ReportHealth(const Playback& playback, Session& session);

}  // namespace zmv::tool

#endif
