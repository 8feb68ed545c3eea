// A recording read through the reader facade.
#ifndef ZMV_TOOLS_PLAYBACK_H
#define ZMV_TOOLS_PLAYBACK_H

#include <cstdint>
#include <string>

#include "facade/zmvstream_reader.h"
#include "tools/zmv/annexb.h"

namespace zmv::tool {

class Playback {
 public:
  // ToolError with the exit code that fits when the file cannot be read.
  explicit Playback(const std::string& path);
  ~Playback();
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  const std::string& path() const { return path_; }
  const ZMVFileInfo& info() const { return info_; }
  uint32_t TrackCount(uint32_t media) const;
  // Frames that the file's tables promise for a track.
  uint32_t FrameCount(uint32_t media, uint32_t track) const;

  // The next frame of a track, its payload valid until the next call; false after the last, or where the file ends.
  bool Read(uint32_t media, uint32_t track, ZMVFrame& frame);
  // The same for those who go on behind a frame that cannot be read.
  enum class Found { kFrame, kLost, kEnd };
  Found TryRead(uint32_t media, uint32_t track, ZMVFrame& frame);
  static ByteView Payload(const ZMVFrame& frame) { return ByteView(frame.pData, frame.dwSize); }

 private:
  std::string path_;
  ZMVReader* reader_ = nullptr;
  ZMVFileInfo info_{};
  Bytes buffer_;
  int32_t last_result_ = 0;
};

const char* MediaName(uint32_t media);

}  // namespace zmv::tool

#endif
