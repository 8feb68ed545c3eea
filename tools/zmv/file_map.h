// What a file is made of, and whether it was finished.
#ifndef ZMV_TOOLS_FILE_MAP_H
#define ZMV_TOOLS_FILE_MAP_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/zmv/tool_error.h"

namespace zmv::tool {

enum class Container { kMp4, kAvi };

struct BoxEntry {
  std::string type;  // of a RIFF list or form with the type of its content: "LIST movi"
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

// The value that an application may change in a finished recording: the box AIDD of an MP4, 32 bits, or the language
// field in the first video header of an AVI, 16 bits.
struct UserValue {
  uint32_t value = 0;
  uint64_t position = 0;
  Container container = Container::kMp4;

  uint32_t largest() const { return container == Container::kMp4 ? UINT32_MAX : UINT16_MAX; }
};

// A stream as its AVI headers describe it.
struct RiffStream {
  uint32_t media = 0;  // ZMV_MEDIA_*; 0 for another kind
  uint32_t number = 0;
  uint32_t handler = 0;  // code that the stream header names
  uint32_t scale = 0;
  uint32_t rate = 0;  // of `scale` units a second
  uint32_t sample_size = 0;
};

enum class Health { kComplete, kCut, kDamaged, kNotRecording };

struct FileMap {
  Container container = Container::kMp4;
  uint64_t size = 0;
  std::string brand;            // of an MP4
  std::vector<BoxEntry> boxes;  // the first kMaxListedBoxes
  uint64_t box_count = 0;
  std::vector<FrontStream> front;
  std::string build;       // build-information box; empty when absent
  bool recovered = false;  // the file says that it was rebuilt
  bool fragmented = false;
  std::optional<uint32_t> gps_entries;
  std::optional<uint32_t> sensor_entries;
  std::optional<UserValue> aidd;
  bool readable = false;  // frames can be read: a whole moov box, or AVI headers and media behind them
  // Of an AVI.
  std::vector<RiffStream> streams;
  std::string index;     // "idx1" or "OpenDML"; empty: frames are found by scanning, those of text streams are not
  std::string software;  // that the file names
  Health health = Health::kNotRecording;
  std::string sentence;  // the health in plain words
};

constexpr size_t kMaxListedBoxes = 1000;

// Looks into a file of either container.
FileMap ScanFile(const std::string& path);

ExitCode ExitCodeOf(Health health);
const char* HealthName(Health health);

// The same for commands that read frames: ToolError, with the exit code of its health, when none can be read.
FileMap ScanReadable(const std::string& path);

// "MP4", "AVI".
const char* ContainerName(Container container);
// What a new recording at `path` is to be: an AVI when it is named so, in any case, else an MP4.
Container ContainerOfName(const std::string& path);

}  // namespace zmv::tool

#endif
