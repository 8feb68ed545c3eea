// Where the sample tables of a recording stand, for what the reader does not tell: the file position of a chunk and the
// bytes of a stream. Tables are read piece by piece, never as a whole.
#ifndef ZMV_TOOLS_TRACK_TABLES_H
#define ZMV_TOOLS_TRACK_TABLES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/zmv/stream_file.h"

namespace zmv::tool {

struct TrackTables {
  uint32_t media = 0;  // ZMV_MEDIA_*
  uint64_t chunk_table = 0;
  uint32_t chunks = 0;
  uint64_t size_table = 0;
  uint32_t samples = 0;
  uint32_t constant_size = 0;  // of every sample; 0: the table has them
  bool reordered = false;      // it has composition offsets that differ
  std::string projection;      // type of the box that describes a spherical picture, "none" without; empty: flat
};

// The tracks of the first moov box, in file order.
std::vector<TrackTables> FindTables(StreamFile& file);

// The track number `track` of a medium; null when there is none.
const TrackTables* TableOf(const std::vector<TrackTables>& tables, uint32_t media, uint32_t track);

// The bytes of all samples.
uint64_t SampleBytes(StreamFile& file, const TrackTables& tables);

// File positions of one track's frames in the order of reading.
class FramePositions {
 public:
  FramePositions(const std::string& path, const TrackTables& tables) : file_(path), tables_(tables) {}

  // The position of the next frame, which the reader found in `chunk` (counted from 1) with `size` bytes; nothing for
  // frames that no table places.
  std::optional<uint64_t> Next(uint32_t chunk, uint32_t size);

 private:
  StreamFile file_;
  TrackTables tables_;
  uint32_t chunk_ = 0;
  uint64_t next_ = 0;
};

}  // namespace zmv::tool

#endif
