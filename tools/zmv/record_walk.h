// The text frames of a recording that has no index, found by the records that stand in front of its frames.
#ifndef ZMV_TOOLS_RECORD_WALK_H
#define ZMV_TOOLS_RECORD_WALK_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/zmv/annexb.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/stream_file.h"

namespace zmv::tool {

struct FoundText {
  uint64_t time_ms = 0;  // since the first frame of the recording
  Bytes payload;         // its first kMostFoundBytes
};

constexpr uint32_t kMostFoundBytes = 256;

class RecordWalk {
 public:
  // `track` counts the text tracks.
  RecordWalk(const std::string& path, const FileMap& map, uint32_t track);

  // The next whole text frame; false at the end of the media, or where the file is damaged.
  bool Next(FoundText& text);

 private:
  struct Record {
    uint32_t media = 0;
    uint32_t time_ms = 0;
    uint32_t track = 0;
    uint64_t payload = 0;  // position
    uint32_t size = 0;
  };

  bool NextRecord(Record& record);
  uint64_t SkipSpills(uint64_t position);

  StreamFile file_;
  uint32_t track_;
  uint64_t position_ = 0;  // of the next record
  uint64_t end_ = 0;
  std::optional<uint32_t> first_ms_;
};

}  // namespace zmv::tool

#endif
