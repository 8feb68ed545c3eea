// A recording read through the reader facade.
#ifndef ZMV_TOOLS_PLAYBACK_H
#define ZMV_TOOLS_PLAYBACK_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "facade/zmvstream_reader.h"
#include "tools/zmv/annexb.h"
#include "tools/zmv/riff_frames.h"

namespace zmv::tool {

class Playback {
 public:
  // ToolError with the exit code that fits when the file cannot be read.
  explicit Playback(const std::string& path);
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  const std::string& path() const { return path_; }
  // As the reader describes the file. What it leaves open for AVI files, or counts in other units, is filled in from
  // the index and the first pictures: frames, durations, the codes of text streams, parameter sets.
  const ZMVFileInfo& info() const { return info_; }
  const FileMap& map() const { return map_; }
  // A track of an AVI as the file has it; null for one of an MP4.
  const RiffTrack* Riff(uint32_t media, uint32_t track) const;
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
  struct CloseReader {
    void operator()(ZMVReader* reader) const { ZMVReaderClose(reader); }
  };

  void Open();
  void CompleteAvi();
  void LearnParameterSets(uint32_t track);
  bool IsSilent(uint32_t media, uint32_t track) const;
  void TellKeyFrame(ZMVFrame& frame) const;

  std::string path_;
  FileMap map_;
  std::unique_ptr<ZMVReader, CloseReader> reader_;
  ZMVFileInfo info_{};
  std::vector<RiffTrack> tracks_;
  Bytes buffer_;
  int32_t last_result_ = 0;
};

const char* MediaName(uint32_t media);

}  // namespace zmv::tool

#endif
