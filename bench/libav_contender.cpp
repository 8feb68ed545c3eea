#include <algorithm>
#include <memory>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include "bench/contender.h"
#include "bench/meter.h"

namespace zmv::bench {
namespace {

constexpr size_t kStartCode = 4;
constexpr uint8_t kConfigurationHead[] = {1, 0x64, 0x00, 0x1e, 0xFF, 0xE1};  // lengths of 4 bytes, one SPS

// The decoder configuration of the video: with it the muxer stores payloads as they are given.
bool PutVideoConfiguration(AVCodecParameters& parameters) {
  const auto sps = SequenceParameters().subspan(kStartCode);
  const auto pps = PictureParameters().subspan(kStartCode);
  const size_t size = sizeof kConfigurationHead + 2 + sps.size() + 3 + pps.size();
  auto* data = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (data == nullptr) return false;
  uint8_t* to = std::copy(std::begin(kConfigurationHead), std::end(kConfigurationHead), data);
  *to++ = 0;
  *to++ = static_cast<uint8_t>(sps.size());
  to = std::copy(sps.begin(), sps.end(), to);
  *to++ = 1;
  *to++ = 0;
  *to++ = static_cast<uint8_t>(pps.size());
  std::copy(pps.begin(), pps.end(), to);
  parameters.extradata = data;
  parameters.extradata_size = static_cast<int>(size);
  return true;
}

bool AddVideo(AVFormatContext& context, int scale) {
  AVStream* stream = avformat_new_stream(&context, nullptr);
  if (stream == nullptr) return false;
  stream->time_base = {1, scale};
  stream->avg_frame_rate = {kVideoRate, 1};
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  parameters.codec_id = AV_CODEC_ID_H264;
  parameters.width = kWidth;
  parameters.height = kHeight;
  return PutVideoConfiguration(parameters);
}

bool AddAudio(AVFormatContext& context) {
  AVStream* stream = avformat_new_stream(&context, nullptr);
  if (stream == nullptr) return false;
  stream->time_base = {1, kAudioRate};
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_AUDIO;
  parameters.codec_id = AV_CODEC_ID_AAC;
  parameters.sample_rate = kAudioRate;
  parameters.frame_size = kAudioSamples;
  parameters.bit_rate = 128000;
  av_channel_layout_default(&parameters.ch_layout, 2);
  const auto configuration = AudioConfiguration();
  parameters.extradata = static_cast<uint8_t*>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return false;
  std::copy(configuration.begin(), configuration.end(), parameters.extradata);
  parameters.extradata_size = static_cast<int>(configuration.size());
  return true;
}

struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Packet = std::unique_ptr<AVPacket, FreePacket>;

class Muxer {
 public:
  ~Muxer() {
    if (context_ == nullptr) return;
    avio_closep(&context_->pb);
    avformat_free_context(context_);
  }
  bool Open(const Task& task) {
    one_by_one_ = task.one_by_one;
    packet_.reset(av_packet_alloc());
    if (!packet_) return false;
    if (avformat_alloc_output_context2(&context_, nullptr, task.container->muxer, task.path.c_str()) < 0) return false;
    if (!AddVideo(*context_, task.container->video_scale) || !AddAudio(*context_)) return false;
    if (avio_open(&context_->pb, task.path.c_str(), AVIO_FLAG_WRITE) < 0) return false;
    if (avformat_write_header(context_, nullptr) < 0) return false;
    // The muxer chooses the time bases.
    step_[0] = av_rescale_q(1, {1, kVideoRate}, context_->streams[0]->time_base);
    step_[1] = av_rescale_q(kAudioSamples, {1, kAudioRate}, context_->streams[1]->time_base);
    return true;
  }
  bool Write(const Frame& frame) {
    const auto stream = static_cast<uint32_t>(frame.stream);
    AVPacket& packet = *packet_;
    packet.data = frame.data;
    packet.size = static_cast<int>(frame.size);
    packet.stream_index = static_cast<int>(stream);
    packet.pts = packet.dts = frame.index * step_[stream];
    packet.duration = step_[stream];
    packet.flags = frame.key ? AV_PKT_FLAG_KEY : 0;
    return (one_by_one_ ? av_write_frame(context_, &packet) : av_interleaved_write_frame(context_, &packet)) >= 0;
  }
  bool Close() { return av_write_trailer(context_) >= 0 && avio_closep(&context_->pb) >= 0; }

 private:
  AVFormatContext* context_ = nullptr;
  Packet packet_;
  int64_t step_[2] = {};
  bool one_by_one_ = false;
};

class Demuxer {
 public:
  ~Demuxer() { avformat_close_input(&context_); }
  // Without parsers: frames come as the container has them, which is also what the library delivers.
  bool Open(const Task& task) {
    context_ = avformat_alloc_context();
    if (context_ == nullptr) return false;
    context_->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    return avformat_open_input(&context_, task.path.c_str(), nullptr, nullptr) >= 0 && context_->nb_streams == 2;
  }
  int Read(AVPacket& packet) { return av_read_frame(context_, &packet); }
  // The key frame before a time. Audio that comes first is dropped.
  bool ReadKeyFrameBefore(uint32_t milliseconds, AVPacket& packet) {
    const int video = VideoStream();
    if (video < 0) return false;
    const int64_t time = av_rescale_q(milliseconds, {1, 1000}, context_->streams[video]->time_base);
    if (av_seek_frame(context_, video, time, AVSEEK_FLAG_BACKWARD) < 0) return false;
    while (Read(packet) >= 0) {
      if (packet.stream_index == video) return true;
      av_packet_unref(&packet);
    }
    return false;
  }

 private:
  int VideoStream() const {
    for (uint32_t i = 0; i < context_->nb_streams; ++i) {
      if (context_->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) return static_cast<int>(i);
    }
    return -1;
  }

  AVFormatContext* context_ = nullptr;
};

}  // namespace

bool WriteLibav(const Task& task, Sample& sample) {
  av_log_set_level(AV_LOG_ERROR);
  Workload workload(*task.profile, task.minutes);
  const int64_t calls = WriteCalls();
  const int64_t memory = AnonymousBytes();
  CpuMeter cpu;
  cpu.Start();
  Muxer muxer;
  if (!muxer.Open(task)) return false;
  for (Frame frame; workload.Next(frame); ++sample.frames) {
    if (!muxer.Write(frame)) return false;
    sample.bytes += frame.size;
  }
  cpu.Stop();
  sample.memory = AnonymousBytes() - memory;
  CpuMeter close;
  close.Start();
  const bool closed = muxer.Close();
  close.Stop();
  sample.write_calls = WriteCalls() - calls;
  sample.close_ns = close.Nanoseconds();
  sample.cpu_ns = cpu.Nanoseconds() + sample.close_ns;
  return closed;
}

bool ReadLibav(const Task& task, Sample& sample) {
  av_log_set_level(AV_LOG_ERROR);
  const int64_t memory = AnonymousBytes();
  Packet packet(av_packet_alloc());
  if (!packet) return false;
  int result = 0;
  CpuMeter cpu;
  cpu.Start();
  {
    Demuxer demuxer;
    if (!demuxer.Open(task)) return false;
    while ((result = demuxer.Read(*packet)) >= 0) {
      sample.bytes += static_cast<uint64_t>(packet->size);
      ++sample.frames;
      av_packet_unref(packet.get());
    }
    cpu.Stop();
    sample.memory = AnonymousBytes() - memory;
    cpu.Start();
  }
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return result == AVERROR_EOF;
}

bool OpenLibav(const Task& task, Sample& sample) {
  av_log_set_level(AV_LOG_ERROR);
  {
    const int64_t memory = AnonymousBytes();
    Demuxer demuxer;
    if (!demuxer.Open(task)) return false;
    sample.memory = AnonymousBytes() - memory;
  }
  CpuMeter cpu;
  cpu.Start();
  for (uint32_t i = 0; i < task.repeats; ++i) {
    Demuxer demuxer;
    if (!demuxer.Open(task)) return false;
  }
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds() / task.repeats;
  sample.frames = 1;
  return true;
}

bool SeekLibav(const Task& task, Sample& sample) {
  av_log_set_level(AV_LOG_ERROR);
  Packet packet(av_packet_alloc());
  Demuxer demuxer;
  if (!packet || !demuxer.Open(task)) return false;
  CpuMeter cpu;
  cpu.Start();
  for (; sample.frames < task.repeats; ++sample.frames) {
    const uint32_t target = SeekTarget(*task.profile, task.minutes, static_cast<uint32_t>(sample.frames));
    if (!demuxer.ReadKeyFrameBefore(target, *packet)) return false;
    if (VideoIndexOf(packet->data) != KeyFrameBefore(target) || (packet->flags & AV_PKT_FLAG_KEY) == 0) return false;
    sample.bytes += static_cast<uint64_t>(packet->size);
    av_packet_unref(packet.get());
  }
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return true;
}

}  // namespace zmv::bench
