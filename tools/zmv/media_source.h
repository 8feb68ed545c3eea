// Inputs of `zmv import`: encoded streams, frame by frame, in the form a recording stores.
#ifndef ZMV_TOOLS_MEDIA_SOURCE_H
#define ZMV_TOOLS_MEDIA_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tools/zmv/annexb.h"
#include "tools/zmv/console.h"
#include "tools/zmv/file_map.h"

namespace zmv::tool {

struct MediaFrame {
  uint32_t media = 0;   // ZMV_MEDIA_*
  uint32_t stream = 0;  // in a source: its stream; in a recording: the track within the medium
  int64_t time_us = 0;  // from the first frame of the stream
  bool key = false;
  Bytes data;
};

// One stream, ready to be recorded.
struct StreamDescription {
  uint32_t media = 0;  // ZMV_MEDIA_VIDEO: `video` is filled, ZMV_MEDIA_AUDIO: `audio`
  ZMVVideoInfo video{};
  ZMVAudioInfo audio{};
  int64_t nominal_us = 0;  // usual distance of two frames
  int64_t start_us = 0;    // time of the first frame in the input
  std::string label;       // "video 0 (h264)", for messages
};

struct SourceOptions {
  double frame_rate = 0;      // of video without time stamps; 0: what the stream says
  bool allow_slices = false;  // store pictures of several NAL units in an MP4, where general players misread them
  Container container = Container::kMp4;  // of the recording
  bool want_video = true;
  bool want_audio = true;
};

class MediaSource {
 public:
  virtual ~MediaSource() = default;

  virtual const std::vector<StreamDescription>& streams() const = 0;
  virtual int64_t duration_us() const = 0;  // 0: not known
  virtual double progress() const = 0;      // 0 to 1

  // The next frame of any stream; frames of one stream come in order. False at the end.
  virtual bool Read(MediaFrame& frame) = 0;
};

// ToolError when the file cannot be opened or holds something that cannot be recorded. What is left out is reported on
// `console`, which must outlive the source.
std::unique_ptr<MediaSource> OpenMediaSource(const std::string& path, const SourceOptions& options, Console& console);

}  // namespace zmv::tool

#endif
