// The frames of an AVI file as its index or its chunks have them, for what the reader does not tell: how many there
// are, how many bytes they take, where they stand.
#ifndef ZMV_TOOLS_RIFF_FRAMES_H
#define ZMV_TOOLS_RIFF_FRAMES_H

#include <optional>
#include <string>
#include <vector>

#include "tools/zmv/riff_scan.h"

namespace zmv::tool {

struct RiffTrack {
  RiffStream stream;
  uint32_t track = 0;      // within its medium
  uint64_t frames = 0;     // that are not empty and that the reader can find
  uint64_t bytes = 0;      // of those
  uint64_t hidden = 0;     // frames that only an index would tell
  uint64_t intervals = 0;  // frames with the empty ones, which keep the spacing

  // Frames of an AVI have no times: they are evenly spaced, or follow from the bytes before them.
  int64_t UnitsUs(uint64_t units) const;
  uint64_t DurationMs() const;
};

std::vector<RiffTrack> CountRiffFrames(const std::string& path, const FileMap& map);

// One chunk of a stream after another, in the order of the file, up to the first that is not whole.
class ChunkWalk {
 public:
  struct Found {
    uint32_t stream = 0;
    uint64_t position = 0;  // of the payload
    uint32_t size = 0;
  };

  ChunkWalk(const std::string& path, const FileMap& map);

  bool Next(Found& found);

 private:
  bool NextIn(uint64_t end, Found& found);

  StreamFile file_;
  std::vector<BoxEntry> lists_;  // of media
  size_t list_ = 0;
  uint64_t position_ = 0;
};

// File positions of one stream's frames in the order of reading.
class RiffPositions {
 public:
  RiffPositions(const std::string& path, const FileMap& map, uint32_t stream) : walk_(path, map), stream_(stream) {}

  // Of the next frame; nothing once a frame of another size than `size` stands there.
  std::optional<uint64_t> Next(uint32_t size);

 private:
  ChunkWalk walk_;
  uint32_t stream_;
  bool lost_ = false;
};

}  // namespace zmv::tool

#endif
