// What a file is made of, and whether it was finished: the boxes at its top level, the recovery boxes at its front, its
// user boxes.
#ifndef ZMV_TOOLS_BOX_SCAN_H
#define ZMV_TOOLS_BOX_SCAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/zmv/tool_error.h"

namespace zmv::tool {

struct BoxEntry {
  std::string type;
  uint64_t position = 0;
  uint64_t size = 0;  // as far as the file has it
};

// A stream as the recovery boxes at the front describe it; fields that its kind lacks are 0.
struct FrontStream {
  std::string media;  // "video", "audio", "text"
  std::string code;   // sample entry type, or the audio format as a number
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t rate = 0;  // frames a second x 1000, or samples a second
  uint32_t channels = 0;
  uint32_t time_scale = 0;
  uint32_t config_size = 0;
};

struct UserValue {
  uint32_t value = 0;
  uint64_t position = 0;
};

enum class Health { kComplete, kCut, kDamaged, kNotRecording };

struct FileMap {
  uint64_t size = 0;
  std::string brand;
  std::vector<BoxEntry> boxes;  // the first kMaxListedBoxes
  uint64_t box_count = 0;
  std::vector<FrontStream> front;
  std::string build;       // build-information box; empty when absent
  bool recovered = false;  // the file says that it was rebuilt
  bool fragmented = false;
  std::optional<uint32_t> gps_entries;
  std::optional<uint32_t> sensor_entries;
  std::optional<UserValue> aidd;
  bool indexed = false;  // a whole moov box is there, so frames can be read
  Health health = Health::kNotRecording;
  std::string sentence;  // the health in plain words
};

constexpr size_t kMaxListedBoxes = 1000;

FileMap ScanFile(const std::string& path);

ExitCode ExitCodeOf(Health health);
const char* HealthName(Health health);

// The same for commands that need an index: ToolError, with the exit code of its health, unless the file has one.
FileMap ScanReadable(const std::string& path);

}  // namespace zmv::tool

#endif
