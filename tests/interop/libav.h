// FFmpeg's libraries as an independent reader and decoder.
#ifndef ZMV_TESTS_INTEROP_LIBAV_H
#define ZMV_TESTS_INTEROP_LIBAV_H

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
}
#pragma GCC diagnostic pop

#include <cstdint>
#include <string>
#include <vector>

namespace zmv::test {

// A packet as libavformat hands it out.
struct LibavPacket {
  int stream = 0;
  int64_t dts = 0;
  int64_t duration = 0;
  int64_t position = 0;
  bool key = false;
  std::vector<uint8_t> data;
};

struct LibavStream {
  AVMediaType type = AVMEDIA_TYPE_UNKNOWN;
  AVCodecID codec = AV_CODEC_ID_NONE;
  AVRational time_base{0, 1};
  int width = 0;
  int height = 0;
  int sample_rate = 0;
  int channels = 0;
  std::vector<uint8_t> extradata;
};

struct LibavFile {
  bool opened = false;
  std::vector<LibavStream> streams;
  std::vector<LibavPacket> packets;
};

// Everything libavformat finds in a file, in file order.
inline LibavFile ReadWithLibav(const std::string& path) {
  LibavFile file;
  av_log_set_level(AV_LOG_ERROR);
  AVFormatContext* context = nullptr;
  if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) return file;
  file.opened = avformat_find_stream_info(context, nullptr) >= 0;
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const AVStream* stream = context->streams[i];
    const AVCodecParameters* codec = stream->codecpar;
    LibavStream entry;
    entry.type = codec->codec_type;
    entry.codec = codec->codec_id;
    entry.time_base = stream->time_base;
    entry.width = codec->width;
    entry.height = codec->height;
    entry.sample_rate = codec->sample_rate;
    entry.channels = codec->ch_layout.nb_channels;
    if (codec->extradata_size > 0) entry.extradata.assign(codec->extradata, codec->extradata + codec->extradata_size);
    file.streams.push_back(std::move(entry));
  }
  AVPacket* packet = av_packet_alloc();
  while (av_read_frame(context, packet) >= 0) {
    LibavPacket entry;
    entry.stream = packet->stream_index;
    entry.dts = packet->dts;
    entry.duration = packet->duration;
    entry.position = packet->pos;
    entry.key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    entry.data.assign(packet->data, packet->data + packet->size);
    file.packets.push_back(std::move(entry));
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  avformat_close_input(&context);
  return file;
}

// Every decoded picture or sound frame of the first stream of `type`, as its raw bytes. Stops at the first error, which
// leaves `*error` set.
inline std::vector<std::vector<uint8_t>> DecodeWithLibav(const std::string& path, AVMediaType type, bool* error) {
  std::vector<std::vector<uint8_t>> frames;
  *error = true;
  av_log_set_level(AV_LOG_ERROR);
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return frames;
  avformat_find_stream_info(format, nullptr);
  int index = av_find_best_stream(format, type, -1, -1, nullptr, 0);
  if (index < 0) {
    avformat_close_input(&format);
    return frames;
  }
  const AVCodecParameters* parameters = format->streams[index]->codecpar;
  AVCodecContext* codec = avcodec_alloc_context3(avcodec_find_decoder(parameters->codec_id));
  avcodec_parameters_to_context(codec, parameters);
  codec->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM;
  codec->thread_count = 1;
  bool good = avcodec_open2(codec, nullptr, nullptr) >= 0;
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  auto drain = [&] {
    while (avcodec_receive_frame(codec, frame) >= 0) {
      std::vector<uint8_t> bytes;
      if (type == AVMEDIA_TYPE_VIDEO) {
        auto pixels = static_cast<AVPixelFormat>(frame->format);
        int size = av_image_get_buffer_size(pixels, frame->width, frame->height, 1);
        bytes.resize(static_cast<size_t>(size));
        av_image_copy_to_buffer(bytes.data(), size, frame->data, frame->linesize, pixels, frame->width, frame->height,
                                1);
      } else {
        int planes = frame->ch_layout.nb_channels;
        auto line = static_cast<size_t>(frame->nb_samples) *
                    static_cast<size_t>(av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame->format)));
        for (int plane = 0; plane < planes; ++plane) {
          bytes.insert(bytes.end(), frame->extended_data[plane], frame->extended_data[plane] + line);
        }
      }
      frames.push_back(std::move(bytes));
    }
  };
  while (good && av_read_frame(format, packet) >= 0) {
    if (packet->stream_index == index) {
      good = avcodec_send_packet(codec, packet) >= 0;
      drain();
    }
    av_packet_unref(packet);
  }
  if (good) {
    avcodec_send_packet(codec, nullptr);
    drain();
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&codec);
  avformat_close_input(&format);
  *error = !good;
  return frames;
}

}  // namespace zmv::test

#endif
