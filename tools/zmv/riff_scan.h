// What an AVI file is made of (RIFF AVI and its OpenDML extensions): its chunks down to the stream lists, its streams,
// its index.
#ifndef ZMV_TOOLS_RIFF_SCAN_H
#define ZMV_TOOLS_RIFF_SCAN_H

#include <string>

#include "tools/zmv/file_map.h"
#include "tools/zmv/stream_file.h"

namespace zmv::tool {

struct RiffChunk {
  uint64_t position = 0;
  uint64_t data = 0;  // where its content begins: behind the type of a list or form
  uint64_t end = 0;   // as far as the file has it
  uint64_t next = 0;  // where another chunk may begin
  uint32_t size = 0;  // as the file states it; counts from the type of a list
  std::string code;   // four characters; others than printable ASCII appear as '?'
  std::string type;   // of a list or form
  bool cut = false;   // the file or the chunk around it ends before it does

  std::string name() const { return type.empty() ? code : code + " " + type; }
};

// The chunk at `position`; false when fewer than 8 bytes are left before `end`. Odd chunks are padded with a zero byte,
// which not every writer puts behind format chunks.
bool ReadRiffChunk(StreamFile& file, uint64_t position, uint64_t end, RiffChunk& chunk);

bool IsRiff(const std::string& path);

FileMap ScanRiff(const std::string& path);

}  // namespace zmv::tool

#endif
