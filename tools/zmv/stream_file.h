// A file read through a stream handle and one cursor: the tool's own looks into a recording's boxes and chunks.
#ifndef ZMV_TOOLS_STREAM_FILE_H
#define ZMV_TOOLS_STREAM_FILE_H

#include <cstdint>
#include <string>

#include "stream/zmvstream_buf.h"

namespace zmv::tool {

constexpr uint32_t kBoxHeader = 8;

// A box header of ISO/IEC 14496-12.
struct BoxHeader {
  uint64_t position = 0;
  uint64_t size = 0;  // header included; 0 in the file ("to the end") is resolved
  uint32_t header = kBoxHeader;
  std::string type;  // four characters; others than printable ASCII appear as '?'
};

class StreamFile {
 public:
  // ToolError when the file is not there, is no plain file, cannot be opened or passes 4 GiB.
  explicit StreamFile(const std::string& path);
  ~StreamFile();
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  uint64_t size() const { return size_; }
  uint64_t position() const;
  void Seek(uint64_t position);
  // Up to `count` bytes; what was read.
  uint32_t Read(void* to, uint32_t count);
  // A big-endian number; 0 beyond the end.
  uint32_t U32();
  // Little-endian numbers; 0 beyond the end.
  uint32_t LittleU32();
  uint16_t LittleU16();
  // Four characters.
  std::string Code();
  // The header of the box at `position`, cut to nothing: false when fewer than 8 bytes are left before `end`.
  bool ReadHeader(uint64_t position, uint64_t end, BoxHeader& box);

 private:
  ZMVStreamBuf* stream_ = nullptr;
  uint32_t cursor_ = 0;
  uint64_t size_ = 0;
};

// A FourCC of a record (bytes in reading order) as text.
std::string CodeText(uint32_t code);

}  // namespace zmv::tool

#endif
