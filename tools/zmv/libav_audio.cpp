// AAC, MPEG layer 3 and 16-bit PCM packets to audio frames.
#include <fmt/core.h>

#include <cmath>

#include "tools/zmv/aac.h"
#include "tools/zmv/libav.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kBitsPerSample = 16;
constexpr uint32_t kPcmSamplesPerFrame = 1024;
constexpr int64_t kMicro = 1000000;

// One packet of the input is one frame: AAC and MPEG layer 3.
class PacketAudio : public Converter {
 public:
  PacketAudio(const ConverterInput& input, uint32_t format, uint32_t samples)
      : Converter(input), format_(format), samples_(samples) {
    const AVCodecParameters& parameters = *input.stream->codecpar;
    if (format_ != ZMV_AUDIO_AAC) return;
    if (parameters.extradata_size > 0) {
      config_.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
    } else {
      strip_ = MakeFilter(input, "aac_adtstoasc");
    }
  }

  void Feed(const AVPacket* packet) override {
    if (strip_ != nullptr) {
      Filter(strip_.get(), packet, [this](const AVPacket& stripped) { Take(stripped); });
    } else if (packet != nullptr) {
      Take(*packet);
    }
  }

  void Describe(StreamDescription& description) const override {
    const AVCodecParameters& parameters = *input_.stream->codecpar;
    ZMVAudioInfo& audio = description.audio;
    if (format_ == ZMV_AUDIO_AAC && config_.empty()) throw Refused("the stream lacks its configuration");
    if (config_.size() > sizeof(audio.abExtraData)) {
      throw Refused(fmt::format("its configuration takes {} bytes, a recording has room for {}", config_.size(),
                                sizeof(audio.abExtraData)));
    }
    audio.dwFormat = format_;
    audio.dwSampleRate = static_cast<uint32_t>(parameters.sample_rate);
    audio.dwChannels = static_cast<uint32_t>(parameters.ch_layout.nb_channels);
    audio.dwBitsPerSample = kBitsPerSample;
    audio.dwSamplesPerFrame = samples_;
    audio.dwBitRate = static_cast<uint32_t>(std::max<int64_t>(parameters.bit_rate, 0));
    std::copy(config_.begin(), config_.end(), audio.abExtraData);
    audio.dwExtraDataSize = static_cast<uint32_t>(config_.size());
    description.nominal_us = Counted(1);
    description.start_us = start_us_;
  }

 private:
  int64_t Counted(int64_t frames) const {
    return av_rescale(frames * samples_, kMicro, input_.stream->codecpar->sample_rate);
  }

  void Take(const AVPacket& packet) {
    size_t size = 0;
    const uint8_t* config = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (config != nullptr && config_.empty()) config_.assign(config, config + size);
    if (packet.size <= 0) return;
    MediaFrame frame;
    frame.media = ZMV_MEDIA_AUDIO;
    frame.key = true;
    frame.time_us = TimeOf(packet, Counted(count_++));
    frame.data.assign(packet.data, packet.data + packet.size);
    frames_.push_back(std::move(frame));
  }

  uint32_t format_;
  uint32_t samples_;
  FilterOwner strip_;
  Bytes config_;
  int64_t count_ = 0;
};

// Samples cut into frames of equal length, as the sample tables of raw audio in an MP4 want them. In an AVI the last
// frame may be shorter.
class PcmAudio : public Converter {
 public:
  explicit PcmAudio(const ConverterInput& input)
      : Converter(input),
        channels_(static_cast<uint32_t>(input.stream->codecpar->ch_layout.nb_channels)),
        frame_bytes_(kPcmSamplesPerFrame * channels_ * kBitsPerSample / 8) {}

  void Feed(const AVPacket* packet) override {
    if (packet != nullptr) {
      TimeOf(*packet, 0);
      pending_.insert(pending_.end(), packet->data, packet->data + packet->size);
    } else if (!pending_.empty() && avi()) {
      Cut(0, pending_.size());
      pending_.clear();
    } else if (!pending_.empty()) {
      const size_t silence = frame_bytes_ - pending_.size();
      pending_.resize(frame_bytes_, 0);
      input_.console->Note(fmt::format("{}: {}: the last frame is filled up with {} samples of silence", input_.file,
                                       input_.label, silence / 2));
    }
    size_t taken = 0;
    for (; pending_.size() - taken >= frame_bytes_; taken += frame_bytes_) Cut(taken, frame_bytes_);
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(taken));
  }

  void Describe(StreamDescription& description) const override {
    ZMVAudioInfo& audio = description.audio;
    audio.dwFormat = avi() ? ZMV_AUDIO_PCM : ZMV_AUDIO_PCM_LE;
    audio.dwSampleRate = static_cast<uint32_t>(input_.stream->codecpar->sample_rate);
    audio.dwChannels = channels_;
    audio.dwBitsPerSample = kBitsPerSample;
    audio.dwSamplesPerFrame = kPcmSamplesPerFrame;
    audio.dwBlockAlign = static_cast<uint32_t>(frame_bytes_);
    audio.dwBitRate = audio.dwSampleRate * channels_ * kBitsPerSample;
    description.nominal_us = Counted(1);
    description.start_us = start_us_;
  }

 private:
  int64_t Counted(int64_t frames) const {
    return av_rescale(frames * kPcmSamplesPerFrame, kMicro, input_.stream->codecpar->sample_rate);
  }

  void Cut(size_t at, size_t size) {
    const auto begin = pending_.begin() + static_cast<std::ptrdiff_t>(at);
    MediaFrame frame;
    frame.media = ZMV_MEDIA_AUDIO;
    frame.key = true;
    frame.time_us = Counted(count_++);
    frame.data.assign(begin, begin + static_cast<std::ptrdiff_t>(size));
    frames_.push_back(std::move(frame));
  }

  bool avi() const { return input_.options.container == Container::kAvi; }

  uint32_t channels_;
  size_t frame_bytes_;
  Bytes pending_;
  int64_t count_ = 0;
};

constexpr const char* kUseAac =
    "encode it as AAC (ffmpeg -i INPUT -c:v copy -c:a aac OUTPUT), or leave it out (--no-audio)";

uint32_t SamplesOr(const AVCodecParameters& parameters, uint32_t usual) {
  return parameters.frame_size > 0 ? static_cast<uint32_t>(parameters.frame_size) : usual;
}

}  // namespace

std::unique_ptr<Converter> MakeAudioConverter(const ConverterInput& input, std::string& reason) {
  const AVCodecParameters& parameters = *input.stream->codecpar;
  if (parameters.sample_rate <= 0) {
    reason = "its sample rate is not known";
    return nullptr;
  }
  switch (parameters.codec_id) {
    case AV_CODEC_ID_AAC:
      return std::make_unique<PacketAudio>(input, ZMV_AUDIO_AAC, SamplesOr(parameters, kAacSamplesPerFrame));
    case AV_CODEC_ID_MP3: {
      constexpr uint32_t kMp3SamplesPerFrame = 1152;
      return std::make_unique<PacketAudio>(input, ZMV_AUDIO_MPEG, SamplesOr(parameters, kMp3SamplesPerFrame));
    }
    case AV_CODEC_ID_PCM_S16LE:
      if (parameters.ch_layout.nb_channels == 1 || input.options.container == Container::kAvi) {
        return std::make_unique<PcmAudio>(input);
      }
      reason = fmt::format("PCM of {} channels would play at the wrong speed in an MP4; record an AVI, or {}",
                           parameters.ch_layout.nb_channels, kUseAac);
      return nullptr;
    default:
      reason = fmt::format("{} audio cannot be recorded; {}", avcodec_get_name(parameters.codec_id), kUseAac);
      return nullptr;
  }
}

}  // namespace zmv::tool
