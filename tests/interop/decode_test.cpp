// Recordings of the sample streams, read and decoded by FFmpeg's libraries: every decoded frame equals the decode of
// the source stream, every packet lies where and when it was recorded; and our reader hands every payload back bit for
// bit.
#include <gmock/gmock.h>

#include "facade/zmvstream_reader.h"
#include "tests/interop/libav.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

struct Case {
  const char* name;
  SampleStream (*load)(const std::string&);
  const char* stream;
  uint32_t width;
  uint32_t height;
  AVCodecID codec;
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

constexpr Case kCases[] = {
    {"H264", LoadH264, "drive_h264.h264", 640, 360, AV_CODEC_ID_H264},
    {"Hevc", LoadHevc, "drive_hevc.hevc", 640, 360, AV_CODEC_ID_HEVC},
    {"H264_EscapedParameterSets", LoadH264, "epb_h264.h264", 176, 144, AV_CODEC_ID_H264},
    {"Hevc_EscapedParameterSets", LoadHevc, "epb_hevc.hevc", 176, 144, AV_CODEC_ID_HEVC},
};

class RecordedSample : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    video_ = GetParam().load(GetParam().stream);
    audio_ = LoadAac("drive_aac.aac");
    text_ = MakeGpsText(6, 2);
    ASSERT_GE(video_.frames.size(), 30u);
    ASSERT_GE(audio_.frames.size(), 280u);
    set_ = {.video = &video_, .audio = &audio_, .text = &text_, .width = GetParam().width, .height = GetParam().height};
    path_ = std::string("interop_decode_") + GetParam().name + ".mp4";
  }
  void Record() { ASSERT_EQ(RecordSamples(path_, set_), 0); }

  SampleStream video_, audio_, text_;
  SampleSet set_;
  std::string path_;
};

TEST_P(RecordedSample, EveryDecodedFrameEqualsTheDecodeOfTheSource) {
  Record();
  bool error = false;
  auto pictures = DecodeWithLibav(path_, AVMEDIA_TYPE_VIDEO, &error);
  EXPECT_FALSE(error);
  auto expected = DecodeWithLibav(SamplesFolder() + "/" + GetParam().stream, AVMEDIA_TYPE_VIDEO, &error);
  EXPECT_FALSE(error);
  ASSERT_EQ(pictures.size(), video_.frames.size());
  ASSERT_EQ(pictures.size(), expected.size());
  for (size_t i = 0; i < pictures.size(); ++i) ASSERT_TRUE(pictures[i] == expected[i]) << "picture " << i;

  auto sounds = DecodeWithLibav(path_, AVMEDIA_TYPE_AUDIO, &error);
  EXPECT_FALSE(error);
  auto expected_sounds = DecodeWithLibav(SamplesFolder() + "/drive_aac.aac", AVMEDIA_TYPE_AUDIO, &error);
  EXPECT_FALSE(error);
  ASSERT_GE(sounds.size(), audio_.frames.size() - 1);
  ASSERT_EQ(sounds.size(), expected_sounds.size());
  for (size_t i = 0; i < sounds.size(); ++i) ASSERT_TRUE(sounds[i] == expected_sounds[i]) << "sound frame " << i;
}

TEST_P(RecordedSample, EveryPacketHasItsBytesTimeAndKeyFlag) {
  Record();
  LibavFile file = ReadWithLibav(path_);
  ASSERT_TRUE(file.opened);
  ASSERT_EQ(file.streams.size(), 3u);
  EXPECT_EQ(file.streams[0].codec, GetParam().codec);
  EXPECT_EQ(file.streams[0].width, static_cast<int>(GetParam().width));
  EXPECT_EQ(file.streams[0].height, static_cast<int>(GetParam().height));
  EXPECT_EQ(file.streams[0].time_base.den, 90000);
  EXPECT_EQ(file.streams[1].codec, AV_CODEC_ID_AAC);
  EXPECT_EQ(file.streams[1].sample_rate, 48000);
  EXPECT_EQ(file.streams[1].channels, 2);
  EXPECT_EQ(file.streams[1].extradata, audio_.parameters);

  const SampleStream* sources[] = {&video_, &audio_, &text_};
  size_t next[3] = {};
  for (const LibavPacket& packet : file.packets) {
    auto which = static_cast<size_t>(packet.stream);
    ASSERT_LT(next[which], sources[which]->frames.size());
    const SampleFrame& frame = sources[which]->frames[next[which]++];
    std::vector<uint8_t> expected = frame.payload;
    if (which == 0) {  // the start code became the length of the unit behind it
      auto size = static_cast<uint32_t>(expected.size() - 4);
      for (int k = 0; k < 4; ++k) expected[static_cast<size_t>(k)] = static_cast<uint8_t>(size >> (24 - 8 * k));
      EXPECT_EQ(packet.key, frame.key) << "frame " << next[which] - 1;
    }
    ASSERT_TRUE(packet.data == expected) << "stream " << which << " frame " << next[which] - 1;
    double seconds = static_cast<double>(packet.dts) * av_q2d(file.streams[which].time_base);
    ASSERT_NEAR(seconds * 1000.0, static_cast<double>(frame.time_ms), 1.0) << "frame " << next[which] - 1;
  }
  for (size_t which = 0; which < 3; ++which) EXPECT_EQ(next[which], sources[which]->frames.size());
}

TEST_P(RecordedSample, OurReaderHandsEveryPayloadBack) {
  Record();
  ZMVReaderParam param{path_.c_str(), nullptr, 0};
  ZMVReader* reader = nullptr;
  ASSERT_EQ(ZMVReaderOpen(&reader, &param), 0);
  ZMVFileInfo info{};
  ASSERT_EQ(ZMVReaderGetInfo(reader, &info), 0);
  EXPECT_EQ(info.dwVideoCount, 1u);
  EXPECT_EQ(info.dwAudioCount, 1u);
  EXPECT_EQ(info.dwTextCount, 1u);
  EXPECT_EQ(info.m_Video[0].dwWidth, GetParam().width);
  EXPECT_EQ(info.m_Video[0].dwHeight, GetParam().height);
  EXPECT_EQ(info.m_Video[0].dwFrames, video_.frames.size());
  std::vector<uint8_t> parameters(info.m_Video[0].abExtraData,
                                  info.m_Video[0].abExtraData + info.m_Video[0].dwExtraDataSize);
  EXPECT_EQ(parameters, video_.parameters);

  std::vector<uint8_t> buffer(1 << 20);
  for (const SampleStream* source : {&video_, &audio_, &text_}) {
    for (size_t i = 0; i < source->frames.size(); ++i) {
      const SampleFrame& expected = source->frames[i];
      ZMVFrame frame{};
      frame.dwMediaType = expected.media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      ASSERT_EQ(ZMVReaderReadFrame(reader, &frame), 0) << "frame " << i;
      ASSERT_TRUE(std::vector<uint8_t>(buffer.begin(), buffer.begin() + frame.dwSize) == expected.payload) << i;
      ASSERT_NEAR(static_cast<double>(frame.llTimeStamp), static_cast<double>(expected.time_ms), 1.0) << i;
      if (expected.media == ZMV_MEDIA_VIDEO) {
        ASSERT_EQ(frame.dwKeyFrame, expected.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME) << i;
      }
    }
    ZMVFrame frame{};
    frame.dwMediaType = source->frames[0].media;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    EXPECT_EQ(static_cast<uint32_t>(ZMVReaderReadFrame(reader, &frame)), ZMV_E_END);
  }
  ZMVReaderClose(reader);
}

INSTANTIATE_TEST_SUITE_P(Samples, RecordedSample, testing::ValuesIn(kCases),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace zmv::test
