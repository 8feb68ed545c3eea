// Reads any input that FFmpeg's libraries can read.
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>

#include "tools/zmv/libav.h"

namespace zmv::tool {
namespace {

// So many frames of each stream are converted before anything is recorded; what cannot be recorded mostly shows there.
constexpr size_t kPrerollFrames = 32;
constexpr int kMaxPrerollPackets = 4000;
constexpr AVRational kMicrosecondBase = {1, 1000000};

class LibavSource : public MediaSource {
 public:
  LibavSource(const std::string& path, const SourceOptions& options, Console& console)
      : path_(path), options_(options), console_(console), packet_(av_packet_alloc()) {
    Open();
    for (unsigned i = 0; i < format_->nb_streams; ++i) AddStream(*format_->streams[i]);
    if (streams_.empty()) throw ToolError(path_ + ": holds nothing that can be recorded");
    Preroll();
  }

  const std::vector<StreamDescription>& streams() const override { return streams_; }

  int64_t duration_us() const override {
    return stamped_ && format_->duration > 0 ? av_rescale_q(format_->duration, AV_TIME_BASE_Q, kMicrosecondBase) : 0;
  }

  double progress() const override {
    const int64_t size = format_->pb != nullptr ? avio_size(format_->pb) : 0;
    return size > 0 ? static_cast<double>(avio_tell(format_->pb)) / static_cast<double>(size) : 0;
  }

  bool Read(MediaFrame& frame) override {
    while (true) {
      for (size_t i = 0; i < converters_.size(); ++i) {
        std::deque<MediaFrame>& ready = converters_[i]->frames();
        if (ready.empty()) continue;
        frame = std::move(ready.front());
        frame.stream = static_cast<uint32_t>(i);
        ready.pop_front();
        return true;
      }
      if (!ReadPacket()) return false;
    }
  }

 private:
  void Open() {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* opened = nullptr;
    const int result = avformat_open_input(&opened, ("file:" + path_).c_str(), nullptr, nullptr);
    if (result < 0) throw ToolError(LibavMessage(path_, "cannot be read", result));
    format_.reset(opened);
    const int probed = avformat_find_stream_info(opened, nullptr);
    if (probed < 0) throw ToolError(LibavMessage(path_, "its streams cannot be told", probed));
    const std::string_view format = opened->iformat->name;
    stamped_ = format != "h264" && format != "hevc" && (opened->iformat->flags & AVFMT_NOTIMESTAMPS) == 0;
  }

  void AddStream(AVStream& stream) {
    stream.discard = AVDISCARD_ALL;
    const AVCodecParameters& parameters = *stream.codecpar;
    const char* codec = avcodec_get_name(parameters.codec_id);
    const char* type = av_get_media_type_string(parameters.codec_type);
    const std::string label = fmt::format("{} stream {} ({})", type != nullptr ? type : "unknown", stream.index, codec);
    const bool picture = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    ConverterInput input{path_, label, &stream, stamped_, options_, &console_};
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO && !picture) {
      if (options_.want_video) AddVideo(input);
    } else if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
      if (options_.want_audio) AddAudio(input);
    } else {
      console_.Note(fmt::format("{}: {} is left out", path_, label));
    }
  }

  void AddVideo(const ConverterInput& input) {
    const AVCodecID codec = input.stream->codecpar->codec_id;
    if (codec != AV_CODEC_ID_H264 && codec != AV_CODEC_ID_HEVC) {
      throw ToolError(
          fmt::format("{}: {}: only H.264 and HEVC video can be recorded; encode it, or leave it out "
                      "(--no-video)",
                      path_, input.label));
    }
    Add(input, ZMV_MEDIA_VIDEO,
        MakeVideoConverter(input, codec == AV_CODEC_ID_H264 ? VideoCodec::kH264 : VideoCodec::kHevc));
  }

  void AddAudio(const ConverterInput& input) {
    std::string reason;
    std::unique_ptr<Converter> converter = MakeAudioConverter(input, reason);
    if (converter == nullptr) throw ToolError(fmt::format("{}: {}: {}", path_, input.label, reason));
    Add(input, ZMV_MEDIA_AUDIO, std::move(converter));
  }

  void Add(const ConverterInput& input, uint32_t media, std::unique_ptr<Converter> converter) {
    input.stream->discard = AVDISCARD_DEFAULT;
    StreamDescription description;
    description.media = media;
    description.label = input.label;
    streams_.push_back(description);
    converters_.push_back(std::move(converter));
    av_index_.push_back(input.stream->index);
  }

  // False at the end, when the converters have given what they had.
  bool ReadPacket() {
    if (ended_) return false;
    const int result = av_read_frame(format_.get(), packet_.get());
    if (result < 0) {
      ended_ = true;
      if (result != AVERROR_EOF) console_.Warning(LibavMessage(path_, "reading ends early", result));
      for (const auto& converter : converters_) converter->Feed(nullptr);
      return true;
    }
    const auto at = std::find(av_index_.begin(), av_index_.end(), packet_->stream_index);
    if (at != av_index_.end()) converters_[static_cast<size_t>(at - av_index_.begin())]->Feed(packet_.get());
    av_packet_unref(packet_.get());
    return true;
  }

  void Preroll() {
    const auto short_of_frames = [](const auto& converter) { return converter->frames().size() < kPrerollFrames; };
    for (int packets = 0; packets < kMaxPrerollPackets; ++packets) {
      if (std::none_of(converters_.begin(), converters_.end(), short_of_frames) || !ReadPacket()) break;
    }
    int64_t first = std::numeric_limits<int64_t>::max();
    for (size_t i = 0; i < streams_.size(); ++i) {
      if (converters_[i]->frames().empty())
        throw ToolError(fmt::format("{}: {} has no frames", path_, streams_[i].label));
      converters_[i]->Describe(streams_[i]);
      first = std::min(first, streams_[i].start_us);
    }
    constexpr int64_t kNoticedOffsetUs = 50000;
    for (const StreamDescription& stream : streams_) {
      if (stream.start_us - first <= kNoticedOffsetUs) continue;
      console_.Warning(
          fmt::format("{}: {} begins {} ms after the first stream; in a recording all streams begin together", path_,
                      stream.label, (stream.start_us - first) / 1000));
    }
  }

  std::string path_;
  SourceOptions options_;
  Console& console_;
  FormatOwner format_;
  PacketOwner packet_;
  bool stamped_ = true;
  bool ended_ = false;
  std::vector<StreamDescription> streams_;
  std::vector<std::unique_ptr<Converter>> converters_;
  std::vector<int> av_index_;
};

}  // namespace

std::string LibavMessage(const std::string& file, const std::string& what, int error) {
  char reason[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, reason, sizeof(reason));
  return fmt::format("{}: {}: {}", file, what, reason);
}

ToolError Converter::Refused(const std::string& reason) const {
  return ToolError(fmt::format("{}: {}: {}", input_.file, input_.label, reason));
}

int64_t Converter::TimeOf(const AVPacket& packet, int64_t counted_us) {
  const bool stamped = packet.pts != AV_NOPTS_VALUE;
  const int64_t us = stamped ? av_rescale_q(packet.pts, input_.stream->time_base, kMicrosecondBase) : counted_us;
  if (start_us_ == AV_NOPTS_VALUE) start_us_ = us;
  return stamped ? us - start_us_ : counted_us;
}

FilterOwner MakeFilter(const ConverterInput& input, const char* name) {
  const AVBitStreamFilter* kind = av_bsf_get_by_name(name);
  if (kind == nullptr) throw ToolError(fmt::format("{}: FFmpeg's libraries lack the filter {}", input.file, name));
  AVBSFContext* made = nullptr;
  int result = av_bsf_alloc(kind, &made);
  FilterOwner filter(made);
  if (result >= 0) result = avcodec_parameters_copy(filter->par_in, input.stream->codecpar);
  if (result >= 0) {
    filter->time_base_in = input.stream->time_base;
    result = av_bsf_init(filter.get());
  }
  if (result < 0) throw ToolError(LibavMessage(input.file, input.label, result));
  return filter;
}

std::unique_ptr<MediaSource> OpenMediaSource(const std::string& path, const SourceOptions& options, Console& console) {
  return std::make_unique<LibavSource>(path, options, console);
}

}  // namespace zmv::tool
