// H.264 and HEVC packets to pictures behind a start code.
#include <fmt/core.h>

#include <cmath>

#include "tools/zmv/libav.h"

namespace zmv::tool {
namespace {

constexpr uint8_t kConfigurationRecord = 1;  // first byte of avcC and hvcC; a byte stream begins with 0
constexpr AVRational kMicrosecondBase = {1, 1000000};
constexpr AVRational kDefaultRate = {25, 1};

class VideoConverter : public Converter {
 public:
  VideoConverter(const ConverterInput& input, VideoCodec codec) : Converter(input), codec_(codec), filter_(codec) {
    const AVCodecParameters& parameters = *input.stream->codecpar;
    const bool record = parameters.extradata_size > 0 && parameters.extradata[0] == kConfigurationRecord;
    if (record) {
      unpack_ = MakeFilter(input, codec == VideoCodec::kH264 ? "h264_mp4toannexb" : "hevc_mp4toannexb");
      LearnExtradata(*unpack_->par_out);
    } else {
      LearnExtradata(parameters);
    }
    parser_.reset(av_parser_init(parameters.codec_id));
    decoder_.reset(avcodec_alloc_context3(nullptr));
    if (parser_ == nullptr || decoder_ == nullptr || avcodec_parameters_to_context(decoder_.get(), &parameters) < 0) {
      throw ToolError(input.file + ": " + input.label + ": no parser for it in this build of FFmpeg's libraries");
    }
    // The parser is given whole access units, start codes included, only to learn their order of display.
    parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    av_freep(&decoder_->extradata);
    decoder_->extradata_size = 0;
    rate_ = ChooseRate();
  }

  void Feed(const AVPacket* packet) override {
    if (unpack_ != nullptr) {
      Filter(unpack_.get(), packet, [this](const AVPacket& unpacked) { Take(unpacked); });
    } else if (packet != nullptr) {
      Take(*packet);
    }
  }

  void Describe(StreamDescription& description) const override {
    if (*filter_.Missing() != '\0') {
      throw Refused(fmt::format("the stream lacks {}", filter_.Missing()));
    }
    const Bytes sets = filter_.ParameterSets();
    ZMVVideoInfo& video = description.video;
    if (sets.size() > sizeof(video.abExtraData)) {
      throw Refused(fmt::format("its parameter sets take {} bytes, a recording has room for {}", sets.size(),
                                sizeof(video.abExtraData)));
    }
    if (filter_.HasSurplus()) {
      input_.console->Warning(fmt::format("{}: {}: of its parameter sets only the first of each kind is stored",
                                          input_.file, input_.label));
    }
    const AVCodecParameters& parameters = *input_.stream->codecpar;
    video.dwFourCC = codec_ == VideoCodec::kH264 ? ZMV_FOURCC('H', '2', '6', '4') : ZMV_FOURCC('H', '2', '6', '5');
    video.dwWidth = static_cast<uint32_t>(parameters.width);
    video.dwHeight = static_cast<uint32_t>(parameters.height);
    video.dwFrameRate = static_cast<uint32_t>(std::lround(av_q2d(rate_) * 1000));
    if (IsConstant() && rate_.num % rate_.den == 0) video.dwFixedRate = video.dwFrameRate;
    video.dwBitRate = static_cast<uint32_t>(std::max<int64_t>(parameters.bit_rate, 0));
    std::copy(sets.begin(), sets.end(), video.abExtraData);
    video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
    description.nominal_us = av_rescale_q(1, av_inv_q(rate_), kMicrosecondBase);
    description.start_us = start_us_;
  }

 private:
  void LearnExtradata(const AVCodecParameters& parameters) {
    if (parameters.extradata_size > 0) {
      filter_.Learn(ByteView(parameters.extradata, static_cast<size_t>(parameters.extradata_size)));
    }
  }

  bool IsConstant() const {
    const AVStream& stream = *input_.stream;
    return !input_.stamped ||
           (stream.avg_frame_rate.num > 0 && av_cmp_q(stream.avg_frame_rate, stream.r_frame_rate) == 0);
  }

  AVRational ChooseRate() const {
    const double wanted = input_.options.frame_rate;
    if (wanted > 0 && !input_.stamped) return av_d2q(wanted, 1000000);
    if (wanted > 0) {
      input_.console->Note(
          fmt::format("{}: {}: --fps is not used, the input has time stamps", input_.file, input_.label));
    }
    AVRational rate = input_.stream->avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = input_.stream->r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = kDefaultRate;
    if (!input_.stamped) {
      input_.console->Note(fmt::format("{}: {}: {:.6g} frames a second (--fps sets another rate)", input_.file,
                                       input_.label, av_q2d(rate)));
    }
    return rate;
  }

  void Take(const AVPacket& packet) {
    PictureFilter::Picture picture = filter_.Take(ByteView(packet.data, static_cast<size_t>(packet.size)));
    if (picture.payload.empty()) return;
    if (picture.slices > 1) CheckSlices(picture.slices);
    if (picture.new_parameters && count_ > 0 && !warned_parameters_) {
      warned_parameters_ = true;
      input_.console->Warning(
          fmt::format("{}: {}: its parameter sets change at picture {}; a recording keeps those of "
                      "its start, so later pictures may not decode",
                      input_.file, input_.label, count_));
    }
    MediaFrame frame;
    frame.media = ZMV_MEDIA_VIDEO;
    frame.key = picture.random_access || (packet.flags & AV_PKT_FLAG_KEY) != 0;
    const int64_t counted_us = av_rescale_q(count_, av_inv_q(rate_), kMicrosecondBase);
    CheckOrder(packet, picture);
    frame.time_us = input_.stamped ? TimeOf(packet, counted_us) : counted_us;
    if (count_ > 0 && frame.time_us < last_us_) RefuseReordering();
    if (!input_.stamped) start_us_ = 0;
    last_us_ = frame.time_us;
    frame.data = std::move(picture.payload);
    frames_.push_back(std::move(frame));
    ++count_;
  }

  // A picture in an AVI is an access unit with all its start codes.
  void CheckSlices(unsigned slices) {
    if (input_.options.container == Container::kAvi) return;
    if (!input_.options.allow_slices) {
      throw Refused(
          fmt::format("picture {} consists of {} slices; players would show only the first. Encode with one "
                      "slice a picture (x264: slices=1), or store it as it is with --allow-slices",
                      count_, slices));
    }
    if (warned_slices_) return;
    warned_slices_ = true;
    input_.console->Warning(
        fmt::format("{}: {}: pictures of several slices are stored as they are; general players "
                    "misread them",
                    input_.file, input_.label));
  }

  // Without time stamps, the order of display stands in the pictures themselves.
  void CheckOrder(const AVPacket& packet, const PictureFilter::Picture& picture) {
    if (input_.stamped && packet.pts != AV_NOPTS_VALUE) return;
    uint8_t* ignored = nullptr;
    int ignored_size = 0;
    av_parser_parse2(parser_.get(), decoder_.get(), &ignored, &ignored_size, packet.data, packet.size, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, -1);
    const int order = parser_->output_picture_number;
    if (count_ > 0 && !picture.random_access && order < last_order_) RefuseReordering();
    last_order_ = order;
  }

  [[noreturn]] void RefuseReordering() const {
    throw Refused(
        fmt::format("picture {} is shown before an earlier one; recordings keep no display order. Encode "
                    "without B frames (x264, x265: bframes=0)",
                    count_));
  }

  VideoCodec codec_;
  PictureFilter filter_;
  FilterOwner unpack_;
  ParserOwner parser_;
  CodecOwner decoder_;
  AVRational rate_{};
  int64_t count_ = 0;
  int64_t last_us_ = 0;
  int last_order_ = 0;
  bool warned_slices_ = false;
  bool warned_parameters_ = false;
};

}  // namespace

std::unique_ptr<Converter> MakeVideoConverter(const ConverterInput& input, VideoCodec codec) {
  return std::make_unique<VideoConverter>(input, codec);
}

}  // namespace zmv::tool
