// What the recovery library found in a recording, in words and as JSON.
#ifndef ZMV_TOOLS_RECOVERY_REPORT_H
#define ZMV_TOOLS_RECOVERY_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "recover/zmvrecover.h"
#include "tools/zmv/console.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {

// Looks at every frame of the file, with a progress bar; Ctrl-C ends it. `streams` (may be null) receives the streams
// as they would be described. ToolError when the file cannot be read; a foreign file is a report.
ZMVRecoverReport ProbeRecording(const std::string& path, Console& console, ZMVFileInfo* streams = nullptr);

// The library's progress callback: draws the bar of the console that is its context, and stops when Ctrl-C was pressed.
uint32_t ShowProgress(void* console, uint64_t done, uint64_t total);

Container ContainerOf(const ZMVRecoverReport& report);

// "whole", "cut", "damaged", "not a recording".
const char* StateName(uint32_t state);

// Milliseconds from the first frame to the last one.
uint64_t RecoveredMs(const ZMVRecoverReport& report);

// "17,982 of 17,982 complete frames, up to 00:09:59.4".
std::string FramesText(const ZMVRecoverReport& report);

// A sentence for everything that does not come back, or not as it was; empty when nothing is lost.
std::vector<std::string> LossTexts(const ZMVRecoverReport& report);
// A sentence for everything else that is worth saying.
std::vector<std::string> RemarkTexts(const ZMVRecoverReport& report);

// True when frames are missing, or a stream had to be described by a guess.
bool IsIncomplete(const ZMVRecoverReport& report);

Json RecoveryJson(const ZMVRecoverReport& report);

}  // namespace zmv::tool

#endif
