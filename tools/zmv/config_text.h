// Codec configurations in words.
#ifndef ZMV_TOOLS_CONFIG_TEXT_H
#define ZMV_TOOLS_CONFIG_TEXT_H

#include <optional>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tools/zmv/annexb.h"

namespace zmv::tool {

struct ParameterSetText {
  std::string name;  // "VPS", "SPS", "PPS"
  std::string hex;
};

struct CodecText {
  std::string name;     // "H.264", "HEVC", "AAC" ...
  std::string profile;  // empty when it cannot be told
  std::string level;    // "3.1"
  std::vector<ParameterSetText> sets;
};

// The codec of a video's FourCC; nothing for another one.
std::optional<VideoCodec> CodecOf(uint32_t fourcc);

CodecText DescribeVideo(const ZMVVideoInfo& video);
CodecText DescribeAudio(const ZMVAudioInfo& audio);

// "67 64 00 1e".
std::string HexText(ByteView bytes);

}  // namespace zmv::tool

#endif
