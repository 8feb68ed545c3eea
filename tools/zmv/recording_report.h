// What was recorded, for people and as JSON.
#ifndef ZMV_TOOLS_RECORDING_REPORT_H
#define ZMV_TOOLS_RECORDING_REPORT_H

#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {

// A note on `console` for each file; the files with their tracks as JSON.
Json ReportFiles(const Recorder& recorder, Console& console);

}  // namespace zmv::tool

#endif
