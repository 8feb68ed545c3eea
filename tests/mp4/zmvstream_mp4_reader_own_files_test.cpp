// What the writer records, the reader hands back.
#include <cstring>

#include "mp4/zmvstream_mp4_writer.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

class OwnFiles : public ReaderTest {
 protected:
  struct Input {
    uint32_t media;
    ByteVector data;
    uint32_t duration;
    uint32_t key = 1;
  };
  // Records the frames and describes the file.
  uint32_t Record(const ZMVFileInfo& info, const std::vector<Input>& frames) {
    ZMVStreamBuf* out = nullptr;
    MP4WriterHandle* writer = nullptr;
    EXPECT_EQ(ZMVStreamBuf_Open(&out, "own.mp4", 0, ZMV_STREAM_WRITE), 0);
    EXPECT_EQ(MP4WriterOpen(&writer, out, 1, 0), 0);
    EXPECT_EQ(MP4WriterSetInfo(writer, &info, 0), 0);
    for (Input input : frames) {
      ZMVFrame frame = {};
      frame.pData = input.data.data();
      frame.dwSize = static_cast<uint32_t>(input.data.size());
      frame.dwDuration = input.duration;
      frame.dwMediaType = input.media;
      frame.dwKeyFrame = input.key;
      EXPECT_EQ(MP4WriterWriteFrame(writer, &frame), 0);
    }
    MP4WriterClose(writer);
    ZMVStreamBuf_Close(out);
    return Describe(host_.File("own.mp4"));
  }
  static ZMVFileInfo AudioFile(uint32_t format, uint32_t rate, uint32_t channels, uint32_t bits, uint32_t samples) {
    ZMVFileInfo info = {};
    info.m_dwFileType = 1;
    info.dwTimeScale = 90000;
    info.dwAudioCount = 1;
    info.m_Audio.dwFormat = format;
    info.m_Audio.dwSampleRate = rate;
    info.m_Audio.dwChannels = channels;
    info.m_Audio.dwBitsPerSample = bits;
    info.m_Audio.dwSamplesPerFrame = samples;
    info.m_Audio.dwBlockAlign = channels * bits / 8;
    return info;
  }
  std::vector<uint64_t> AudioStamps(size_t count) {
    std::vector<uint64_t> stamps;
    for (size_t i = 0; i < count; ++i) stamps.push_back(Read(ZMV_MEDIA_AUDIO, 8192).frame.llTimeStamp);
    return stamps;
  }
};

TEST_F(OwnFiles, VideoAudioAndText_ComeBackBitForBit) {
  const ByteVector sets =
      Join({StartCoded(Bytes({0x67, 100, 0, 0x1E, 0xAC, 0xD9})), StartCoded(Bytes({0x68, 0xEE, 0x3C, 0x80}))});
  ZMVFileInfo info = AudioFile(ZMV_AUDIO_AAC, 48000, 2, 16, 1024);
  info.m_Audio.dwExtraDataSize = 2;
  std::memcpy(info.m_Audio.abExtraData, "\x11\x90", 2);
  info.dwVideoCount = 1;
  info.m_Video[0].dwFourCC = FourCC("H264");
  info.m_Video[0].dwWidth = 640;
  info.m_Video[0].dwHeight = 360;
  info.m_Video[0].dwFrameRate = 30000;
  info.m_Video[0].dwExtraDataSize = static_cast<uint32_t>(sets.size());
  std::memcpy(info.m_Video[0].abExtraData, sets.data(), sets.size());
  info.dwTextCount = 1;
  info.m_Text[0].dwFourCC = FourCC("GGPS");
  info.m_Text[0].dwRate = 1000;

  std::vector<Input> frames;
  for (uint8_t i = 0; i < 9; ++i) {
    frames.push_back(
        {ZMV_MEDIA_VIDEO, StartCoded(Unit(i % 4 == 0 ? 0x65 : 0x41, 50u + i)), 40000, i % 4 == 0 ? 1u : 2u});
    frames.push_back({ZMV_MEDIA_AUDIO, Unit(i, 20u + i), 21});
  }
  frames.push_back({ZMV_MEDIA_TEXT, Unit(3, 120), 1000});
  ASSERT_EQ(Record(info, frames), 0u);

  EXPECT_EQ(info_->m_Video[0].dwFourCC, FourCC("AVC1"));
  EXPECT_EQ(info_->m_Video[0].dwFrames, 9u);
  EXPECT_EQ(info_->m_Video[0].dwBufferSize, 22017u);
  EXPECT_EQ(
      ByteVector(info_->m_Video[0].abExtraData, info_->m_Video[0].abExtraData + info_->m_Video[0].dwExtraDataSize),
      sets);
  EXPECT_EQ(info_->m_Audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(info_->m_Audio.dwExtraDataSize, 2u);
  EXPECT_EQ(info_->m_Text[0].dwFourCC, FourCC("GGPS"));
  for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
    uint32_t index = 0;
    for (const Input& input : frames) {
      if (input.media != media) continue;
      const ReadResult read = Read(media);
      ASSERT_EQ(read.code, 0u);
      EXPECT_EQ(read.data, input.data) << media << " " << index;
      EXPECT_EQ(read.frame.dwKeyFrame, input.key);
      EXPECT_EQ(read.frame.dwChunk, ++index);
      if (media == ZMV_MEDIA_VIDEO) {
        // 40 ms each, in single precision: the sixth falls just short of a millisecond.
        constexpr uint64_t kStamps[] = {0, 40, 80, 120, 160, 199, 240, 280, 320};
        EXPECT_EQ(read.frame.llTimeStamp, kStamps[index - 1]);
      }
    }
    EXPECT_EQ(Read(media).code, ZMV_E_END);
  }
}

TEST_F(OwnFiles, PcmMono_KeepsTime) {
  ASSERT_EQ(Record(AudioFile(ZMV_AUDIO_PCM_LE, 48000, 1, 16, 1024),
                   std::vector<Input>(4, {ZMV_MEDIA_AUDIO, Unit(1, 2048), 21})),
            0u);
  EXPECT_EQ(info_->m_Audio.dwFormat, ZMV_AUDIO_PCM);
  EXPECT_EQ(AudioStamps(4), (std::vector<uint64_t>{0, 21, 42, 64}));
}

TEST_F(OwnFiles, PcmStereo_CountsEveryChannelAsTime) {
  ASSERT_EQ(Record(AudioFile(ZMV_AUDIO_PCM_LE, 48000, 2, 16, 1024),
                   std::vector<Input>(4, {ZMV_MEDIA_AUDIO, Unit(1, 4096), 21})),
            0u);
  EXPECT_EQ(AudioStamps(4), (std::vector<uint64_t>{0, 42, 85, 128}));
}

TEST_F(OwnFiles, G711_IsReadableAsPayload) {
  std::vector<Input> frames;
  for (uint32_t i = 0; i < 500; ++i) frames.push_back({ZMV_MEDIA_AUDIO, Unit(static_cast<uint8_t>(i), 160), 20});
  ASSERT_EQ(Record(AudioFile(ZMV_AUDIO_ALAW, 8000, 1, 8, 160), frames), 0u);
  EXPECT_EQ(info_->m_Audio.dwFormat, 0u);
  for (uint32_t i = 0; i < 500; ++i) {
    const ReadResult read = Read(ZMV_MEDIA_AUDIO);
    ASSERT_EQ(read.code, 0u) << i;
    EXPECT_EQ(read.data, frames[i].data);
    EXPECT_EQ(read.frame.dwDuration, 0u);
    for (const auto& [index, stamp] : {std::pair{0u, 0u}, {7u, 0u}, {8u, 1u}, {499u, 62u}}) {
      if (i == index) {
        EXPECT_EQ(read.frame.llTimeStamp, stamp);
      }
    }
  }
}

}  // namespace
}  // namespace zmv::test
