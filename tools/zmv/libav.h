// Owners of FFmpeg's objects and the converters between its packets and a recording's frames.
#ifndef ZMV_TOOLS_LIBAV_H
#define ZMV_TOOLS_LIBAV_H

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/version.h>
}

#include <deque>
#include <memory>
#include <string>

#include "tools/zmv/media_source.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {

struct FreeFormat {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFilter {
  void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
};
struct FreeParser {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
struct FreeCodec {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
using FormatOwner = std::unique_ptr<AVFormatContext, FreeFormat>;
using PacketOwner = std::unique_ptr<AVPacket, FreePacket>;
using FilterOwner = std::unique_ptr<AVBSFContext, FreeFilter>;
using ParserOwner = std::unique_ptr<AVCodecParserContext, FreeParser>;
using CodecOwner = std::unique_ptr<AVCodecContext, FreeCodec>;

// "FILE: what: FFmpeg's reason".
std::string LibavMessage(const std::string& file, const std::string& what, int error);

// What a converter needs to know about its input.
struct ConverterInput {
  std::string file;
  std::string label;
  AVStream* stream = nullptr;
  bool stamped = true;  // the container stores time stamps
  SourceOptions options;
  Console* console = nullptr;
};

// Turns the packets of one stream into frames.
class Converter {
 public:
  explicit Converter(const ConverterInput& input) : input_(input) {}
  virtual ~Converter() = default;
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Appends the frames of `packet` to frames(); with null, what is left at the end.
  virtual void Feed(const AVPacket* packet) = 0;
  // Completes `description` once frames have come; ToolError when something is missing.
  virtual void Describe(StreamDescription& description) const = 0;

  std::deque<MediaFrame>& frames() { return frames_; }

 protected:
  ToolError Refused(const std::string& reason) const;
  // Microseconds from the stream's first frame; `counted_us` when the packet has no stamp.
  int64_t TimeOf(const AVPacket& packet, int64_t counted_us);
  // Runs a packet (null: the end) through a filter and hands each result to `take`.
  template <typename Take>
  void Filter(AVBSFContext* filter, const AVPacket* packet, Take take);

  ConverterInput input_;
  std::deque<MediaFrame> frames_;
  int64_t start_us_ = AV_NOPTS_VALUE;
};

FilterOwner MakeFilter(const ConverterInput& input, const char* name);

std::unique_ptr<Converter> MakeVideoConverter(const ConverterInput& input, VideoCodec codec);
// Null when the codec cannot be recorded; `reason` then says why and what to do.
std::unique_ptr<Converter> MakeAudioConverter(const ConverterInput& input, std::string& reason);

template <typename Take>
void Converter::Filter(AVBSFContext* filter, const AVPacket* packet, Take take) {
  PacketOwner copy(packet != nullptr ? av_packet_clone(packet) : nullptr);
  if (packet != nullptr && copy == nullptr) throw ToolError(input_.file + ": out of memory");
  int result = av_bsf_send_packet(filter, copy.get());
  const PacketOwner out(av_packet_alloc());
  while (result >= 0 && (result = av_bsf_receive_packet(filter, out.get())) >= 0) {
    take(*out);
    av_packet_unref(out.get());
  }
  if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) {
    throw ToolError(LibavMessage(input_.file, input_.label, result));
  }
}

}  // namespace zmv::tool

#endif
