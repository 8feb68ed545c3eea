// AVI recordings of the sample streams, read and decoded by FFmpeg's libraries: every decoded frame equals the decode
// of the source stream, every packet is what was recorded; FFmpeg's programs and MediaInfo have nothing to complain
// about; and our reader hands every payload back bit for bit.
#include <gmock/gmock.h>

#include <cstdio>
#include <memory>

#include "facade/zmvstream_reader.h"
#include "tests/interop/avi_samples.h"
#include "tests/interop/libav.h"

namespace zmv::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

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

class AviOfSample : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    video_ = GetParam().load(GetParam().stream);
    if (GetParam().codec == AV_CODEC_ID_H264) PutSetsInBand(video_);
    audio_ = LoadAac("drive_aac.aac");
    text_ = MakeGpsText(6, 2);
    ASSERT_GE(video_.frames.size(), 30u);
    path_ = std::string("interop_avi_") + GetParam().name + ".avi";
    const SampleSet set = {.video = &video_,
                           .audio = &audio_,
                           .text = GetParam().width == 640 ? &text_ : nullptr,
                           .width = GetParam().width,
                           .height = GetParam().height};
    has_text_ = set.text != nullptr;
    ASSERT_EQ(RecordAvi(path_, set), 0);
  }

  std::string Run(const std::string& command) const {
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, count);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
  }

  SampleStream video_, audio_, text_;
  bool has_text_ = false;
  std::string path_;
};

TEST_P(AviOfSample, EveryDecodedFrameEqualsTheDecodeOfTheSource) {
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

TEST_P(AviOfSample, EveryPacketHasItsBytesTimeAndKeyFlag) {
  const LibavFile file = ReadWithLibav(path_);
  ASSERT_TRUE(file.opened);
  ASSERT_GE(file.streams.size(), 2u);
  EXPECT_EQ(file.streams[0].codec, GetParam().codec);
  EXPECT_EQ(file.streams[0].width, static_cast<int>(GetParam().width));
  EXPECT_EQ(file.streams[0].height, static_cast<int>(GetParam().height));
  EXPECT_EQ(file.streams[1].codec, AV_CODEC_ID_AAC);
  EXPECT_EQ(file.streams[1].sample_rate, 48000);
  EXPECT_EQ(file.streams[1].channels, 2);
  EXPECT_EQ(file.streams[1].extradata, audio_.parameters);

  const SampleStream* sources[] = {&video_, &audio_};
  size_t next[2] = {};
  std::vector<uint8_t> hevc, expected_hevc;
  for (const LibavPacket& packet : file.packets) {
    const auto which = static_cast<size_t>(packet.stream);
    if (which >= 2) continue;
    ASSERT_LT(next[which], sources[which]->frames.size());
    const SampleFrame& frame = sources[which]->frames[next[which]++];
    if (which == 0 && GetParam().codec == AV_CODEC_ID_HEVC) {
      // libavformat takes HEVC apart anew, which moves the first byte of a start code to the packet before.
      hevc.insert(hevc.end(), packet.data.begin(), packet.data.end());
      expected_hevc.insert(expected_hevc.end(), frame.payload.begin(), frame.payload.end());
      EXPECT_EQ(packet.key, frame.key) << "frame " << next[which] - 1;
      continue;
    }
    ASSERT_TRUE(packet.data == frame.payload) << "stream " << which << " frame " << next[which] - 1;
    EXPECT_EQ(packet.key, frame.key) << "stream " << which << " frame " << next[which] - 1;
    const double seconds = static_cast<double>(packet.dts) * av_q2d(file.streams[which].time_base);
    ASSERT_NEAR(seconds * 1000.0, static_cast<double>(frame.time_ms), 2.0) << "frame " << next[which] - 1;
  }
  EXPECT_EQ(hevc, expected_hevc);
  for (size_t which = 0; which < 2; ++which) EXPECT_EQ(next[which], sources[which]->frames.size());
}

TEST_P(AviOfSample, OurReaderHandsEveryPayloadBack) {
  ZMVReaderParam param{path_.c_str(), nullptr, 0};
  ZMVReader* reader = nullptr;
  ASSERT_EQ(ZMVReaderOpen(&reader, &param), 0);
  const auto info = std::make_unique<ZMVFileInfo>();
  ASSERT_EQ(ZMVReaderGetInfo(reader, info.get()), 0);
  EXPECT_EQ(info->dwVideoCount, 1u);
  EXPECT_EQ(info->dwAudioCount, 1u);
  EXPECT_EQ(info->dwTextCount, has_text_ ? 1u : 0u);
  EXPECT_EQ(info->m_Video[0].dwFrames, video_.frames.size());
  std::vector<uint8_t> buffer(1 << 20);
  std::vector<const SampleStream*> sources = {&video_, &audio_};
  if (has_text_) sources.push_back(&text_);
  for (const SampleStream* source : sources) {
    for (size_t i = 0; i < source->frames.size(); ++i) {
      const SampleFrame& expected = source->frames[i];
      ZMVFrame frame{};
      frame.dwMediaType = expected.media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      ASSERT_EQ(ZMVReaderReadFrame(reader, &frame), 0) << "frame " << i;
      ASSERT_TRUE(std::vector<uint8_t>(buffer.begin(), buffer.begin() + frame.dwSize) == expected.payload) << i;
      ASSERT_NEAR(static_cast<double>(frame.llTimeStamp), static_cast<double>(expected.time_ms), 2.0) << i;
      ASSERT_EQ(frame.dwKeyFrame, expected.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME) << i;
    }
    ZMVFrame frame{};
    frame.dwMediaType = source->frames[0].media;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    EXPECT_EQ(static_cast<uint32_t>(ZMVReaderReadFrame(reader, &frame)), ZMV_E_END);
  }
  ZMVReaderClose(reader);
}

TEST_P(AviOfSample, Programs_ShowBothStreamsWithoutAComplaint) {
  EXPECT_THAT(Run("ffprobe -v error " + path_), IsEmpty());
  EXPECT_THAT(Run("ffmpeg -v error -xerror -nostdin -i " + path_ + " -map 0:v -map 0:a -f null -"), IsEmpty());
  const std::string streams =
      Run("ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 " + path_);
  EXPECT_THAT(streams, HasSubstr(std::to_string(video_.frames.size())));
  EXPECT_THAT(streams, HasSubstr("aac," + std::to_string(audio_.frames.size())));
  const std::string format = GetParam().codec == AV_CODEC_ID_H264 ? "AVC " : "H.265 ";
  const std::string size = std::to_string(GetParam().width) + "x" + std::to_string(GetParam().height);
  EXPECT_EQ(Run("mediainfo '--Inform=Video;%Format% %Width%x%Height% %FrameCount%' " + path_),
            format + size + " " + std::to_string(video_.frames.size()) + "\n");
  EXPECT_EQ(Run("mediainfo '--Inform=Audio;%Format% %SamplingRate% %Channels%' " + path_), "AAC 48000 2\n");
}

INSTANTIATE_TEST_SUITE_P(Samples, AviOfSample, testing::ValuesIn(kCases),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace zmv::test
