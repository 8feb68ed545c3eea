// The sample streams as the demo records them and expects them back.
#ifndef ZMV_DEMO_STREAM_H
#define ZMV_DEMO_STREAM_H

#include <cstdint>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tools/zmv/annexb.h"

namespace zmv::demo {

using tool::Bytes;
using tool::ByteView;
using tool::VideoCodec;

struct DemoFrame {
  Bytes payload;
  int64_t time_us = 0;
  bool key = false;
};

struct DemoStream {
  uint32_t media = 0;
  std::string codec;       // for people
  Bytes configuration;     // parameter sets, or the audio configuration
  int64_t nominal_us = 0;  // usual distance of two frames
  uint32_t rate = 0;       // frames a second x 1000, or samples a second
  uint32_t channels = 0;
  std::vector<DemoFrame> frames;
};

// Each throws std::runtime_error when the file is missing or not what samples/README.md says.
DemoStream LoadVideo(const std::string& path, VideoCodec codec);
DemoStream LoadAac(const std::string& path);
DemoStream LoadGps(const std::string& path);

// The same stream as an AVI has it: H.264 parameter sets in front of every key frame, where an MP4 keeps them apart.
DemoStream InAvi(const DemoStream& stream);
// Whether a recording at `path` is an AVI.
bool IsAvi(const std::string& path);

}  // namespace zmv::demo

#endif
