// AVI files of FFmpeg's, read through the facade: every packet that libavformat finds comes out with the bytes that are
// stored, in the same order, with the same key flag and at the same time.
#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

#include "facade/zmvstream_reader.h"
#include "tests/interop/libav.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

struct Variant {
  const char* name;
  const char* inputs;    // and what is made of them; SAMPLES stands for the folder of the samples
  const char* code;      // of the video, as the reader tells it; null without
  uint32_t audio;        // format tag; 0 without
  bool cut_into_pieces;  // libavformat cuts the chunks of this audio into packets of its own
};

void PrintTo(const Variant& variant, std::ostream* out) { *out << variant.name; }

constexpr const char* kPicture = "-f lavfi -i testsrc2=size=176x144:rate=25:duration=5 ";
constexpr const char* kSound = "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=5 ";

constexpr Variant kVariants[] = {
    {"H264AndAac", "-r 30 -i SAMPLES/drive_h264.h264 SOUND -c:v copy -c:a aac", "H264", ZMV_AUDIO_AAC, false},
    {"H264WithUnits", "-r 30 -i SAMPLES/units_h264.h264 -c copy", "H264", 0, false},
    {"Hevc", "-r 30 -i SAMPLES/drive_hevc.hevc -c copy -tag:v HEVC", "HEVC", 0, false},
    {"Mpeg4AndMp3", "PICTURE SOUND -c:v mpeg4 -g 12 -bf 0 -c:a libmp3lame -b:a 64k", "FMP4", ZMV_AUDIO_MPEG, false},
    {"MjpegAndMonoPcm", "PICTURE SOUND -c:v mjpeg -c:a pcm_s16le", "MJPG", ZMV_AUDIO_PCM, true},
    {"Mpeg4AndStereoPcm", "PICTURE SOUND -c:v mpeg4 -g 12 -bf 0 -c:a pcm_s16le -ac 2", "FMP4", ZMV_AUDIO_PCM, true},
    {"Mp3Alone", "SOUND -c:a libmp3lame -q:a 4", nullptr, ZMV_AUDIO_MPEG, false},
    {"ReservedIndexSpace", "PICTURE SOUND -c:v mpeg4 -bf 0 -c:a libmp3lame -reserve_index_space 4096", "FMP4",
     ZMV_AUDIO_MPEG, false},
};

void Replace(std::string& text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
}

struct Packet {
  double time_ms = 0;
  bool key = false;
  std::vector<uint8_t> data;
};

class AviOfFfmpeg : public testing::TestWithParam<Variant> {
 protected:
  void SetUp() override {
    path_ = std::string("interop_avi_of_ffmpeg_") + GetParam().name + ".avi";
    std::string arguments = GetParam().inputs;
    Replace(arguments, "SAMPLES", SamplesFolder());
    Replace(arguments, "PICTURE", kPicture);
    Replace(arguments, "SOUND", kSound);
    const std::string command = "ffmpeg -v error -nostdin -y " + arguments + " " + path_;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    ZMVReaderParam param{path_.c_str(), nullptr, 0};
    ASSERT_EQ(ZMVReaderOpen(&reader_, &param), 0);
    ASSERT_EQ(ZMVReaderGetInfo(reader_, info_.get()), 0);
    theirs_ = ReadWithLibav(path_);
    ASSERT_TRUE(theirs_.opened);
  }
  ~AviOfFfmpeg() override { ZMVReaderClose(reader_); }

  // With a buffer that is too small at first.
  std::vector<Packet> Ours(uint32_t media) {
    std::vector<Packet> packets;
    std::vector<uint8_t> buffer(16);
    for (;;) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      const auto code = static_cast<uint32_t>(ZMVReaderReadFrame(reader_, &frame));
      if (code == ZMV_E_AVI_BUFFER) {
        EXPECT_GT(frame.dwBufSize, buffer.size());
        buffer.resize(frame.dwBufSize);
        continue;
      }
      if (code != 0) {
        EXPECT_EQ(code, ZMV_E_END);
        return packets;
      }
      packets.push_back({static_cast<double>(frame.llTimeStamp), frame.dwKeyFrame == ZMV_KEY_FRAME,
                         std::vector<uint8_t>(buffer.begin(), buffer.begin() + frame.dwSize)});
    }
  }

  std::vector<Packet> Theirs(AVMediaType type) {
    std::vector<Packet> packets;
    for (const LibavPacket& packet : theirs_.packets) {
      const LibavStream& stream = theirs_.streams[static_cast<size_t>(packet.stream)];
      if (stream.type != type) continue;
      packets.push_back({static_cast<double>(packet.dts) * av_q2d(stream.time_base) * 1000.0, packet.key, packet.data});
    }
    return packets;
  }

  static std::vector<uint8_t> Joined(const std::vector<Packet>& packets) {
    std::vector<uint8_t> bytes;
    for (const Packet& packet : packets) bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
    return bytes;
  }

  static std::vector<bool> Keys(const std::vector<Packet>& packets) {
    std::vector<bool> keys;
    for (const Packet& packet : packets) keys.push_back(packet.key);
    return keys;
  }

  void Compare(uint32_t media, AVMediaType type) {
    const std::vector<Packet> ours = Ours(media);
    const std::vector<Packet> theirs = Theirs(type);
    ASSERT_GT(theirs.size(), 20u);
    ASSERT_EQ(ours.size(), theirs.size());
    if (info_->m_Video[0].dwFourCC == ZMV_FOURCC('H', 'E', 'V', 'C')) {
      // libavformat takes HEVC apart anew, which moves the first byte of a start code to the packet before.
      EXPECT_EQ(Joined(ours), Joined(theirs));
      EXPECT_EQ(Keys(ours), Keys(theirs));
      return;
    }
    for (size_t i = 0; i < ours.size(); ++i) {
      ASSERT_EQ(ours[i].data, theirs[i].data) << i;
      ASSERT_EQ(ours[i].key, theirs[i].key) << i;
      ASSERT_NEAR(ours[i].time_ms - ours[0].time_ms, theirs[i].time_ms - theirs[0].time_ms, 1.5) << i;
    }
  }

  std::string path_;
  ZMVReader* reader_ = nullptr;
  std::unique_ptr<ZMVFileInfo> info_ = std::make_unique<ZMVFileInfo>();
  LibavFile theirs_;
};

TEST_P(AviOfFfmpeg, EveryPacket_ComesOutAsStored) {
  const Variant& variant = GetParam();
  ASSERT_EQ(info_->dwVideoCount, variant.code != nullptr ? 1u : 0u);
  ASSERT_EQ(info_->dwAudioCount, variant.audio != 0 ? 1u : 0u);
  if (variant.code != nullptr) {
    EXPECT_EQ(info_->m_Video[0].dwFourCC,
              ZMV_FOURCC(variant.code[0], variant.code[1], variant.code[2], variant.code[3]));
    Compare(ZMV_MEDIA_VIDEO, AVMEDIA_TYPE_VIDEO);
  }
  if (variant.audio == 0) return;
  EXPECT_EQ(info_->m_Audio.dwFormat, variant.audio);
  if (!variant.cut_into_pieces) {
    Compare(ZMV_MEDIA_AUDIO, AVMEDIA_TYPE_AUDIO);
    return;
  }
  const std::vector<Packet> ours = Ours(ZMV_MEDIA_AUDIO);
  EXPECT_EQ(Joined(ours), Joined(Theirs(AVMEDIA_TYPE_AUDIO)));
  // Times follow from the bytes before.
  size_t bytes = 0;
  for (const Packet& packet : ours) {
    const double exact = 1000.0 * static_cast<double>(bytes / (2 * info_->m_Audio.dwChannels)) / 44100;
    ASSERT_NEAR(packet.time_ms, exact, 1.0);
    bytes += packet.data.size();
  }
}

INSTANTIATE_TEST_SUITE_P(Interop, AviOfFfmpeg, testing::ValuesIn(kVariants),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace zmv::test
