#include "recover/recover_avi_front.h"

#include "tests/recover/avi_recovery_test.h"
#include "tests/support/memory_file.h"

namespace zmv::test {
namespace {

class AviFrontTest : public AviRecoveryTest {
 protected:
  bool Read(ByteVector bytes) {
    StoredFile file(std::move(bytes));
    recover::Window window(file);
    return recover::ReadAviFront(window, read_);
  }
  static size_t Find(const ByteVector& bytes, std::string_view code) {
    return static_cast<size_t>(std::search(bytes.begin(), bytes.end(), code.begin(), code.end()) - bytes.begin());
  }
  bool Recognised(ByteVector bytes) {
    StoredFile file(std::move(bytes));
    bool recognised = false;
    EXPECT_EQ(recover::RecogniseAvi(file, recognised), 0);
    return recognised;
  }

  recover::AviFront read_;
};

TEST_F(AviFrontTest, Sound_GivesEverythingThatWasDescribed) {
  char name[] = "front";
  uint8_t extra[] = {'A', 'D', 'A', 'S', 9, 8, 7};
  ZMVFileInfo info = AviInfo();
  info.pStreamName = name;
  info.pExtraHeader = extra;
  info.dwExtraHeaderSize = sizeof extra;
  const AviRecording recording = RecordAvi(info, AviFrames());
  ASSERT_TRUE(Read(recording.open));
  const recover::Front& front = read_.front;
  EXPECT_TRUE(front.sound);
  EXPECT_TRUE(front.own);
  EXPECT_FALSE(front.cut);
  EXPECT_EQ(front.mdat + 8, recording.movi);
  EXPECT_EQ(front.mdat_size, 0u);
  EXPECT_EQ(front.end, recording.FirstChunk());
  EXPECT_EQ(read_.main_header, 32u);
  ASSERT_EQ(read_.stream_count, 3u);
  EXPECT_EQ(read_.streams[0].header, Find(recording.open, "strh") + 8);
  EXPECT_EQ(read_.streams[0].rate, 25000u);
  EXPECT_EQ(read_.streams[1].scale, 1024u);
  EXPECT_EQ(read_.streams[2].media, ZMV_MEDIA_TEXT);
  EXPECT_EQ(front.info.m_Video[0].dwFourCC, FourCC("H264"));
  EXPECT_EQ(front.info.m_Video[0].dwWidth, 640u);
  EXPECT_EQ(front.info.m_Video[0].dwPriority, 3u);
  EXPECT_EQ(front.info.m_Audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(front.info.m_Audio.dwExtraDataSize, 3u);
  EXPECT_EQ(front.info.m_Audio.dwSamplesPerFrame, 1024u);
  EXPECT_EQ(front.info.m_Text[0].dwFourCC, FourCC("gps "));
  EXPECT_EQ(front.info.m_Text[0].dwRate, 10000u);
  EXPECT_STREQ(front.info.szSoftware, "camera 1.2");
  EXPECT_STREQ(front.info.pStreamName, "front");
  ASSERT_EQ(front.info.dwExtraHeaderSize, sizeof extra);
  EXPECT_EQ(std::memcmp(front.info.pExtraHeader, extra, sizeof extra), 0);
}

TEST_F(AviFrontTest, LargeBytesOfTheApplication_AreKept) {
  ByteVector extra = AviNoise(5, 3u << 20);
  ZMVFileInfo info = AviInfo();
  info.pExtraHeader = extra.data();
  info.dwExtraHeaderSize = static_cast<uint32_t>(extra.size());
  const AviRecording recording = RecordAvi(info, AviFrames());
  ASSERT_TRUE(Read(recording.open));
  EXPECT_TRUE(read_.front.sound);
  EXPECT_EQ(read_.front.end, recording.FirstChunk());
  ASSERT_EQ(read_.front.info.dwExtraHeaderSize, extra.size());
  EXPECT_EQ(std::memcmp(read_.front.info.pExtraHeader, extra.data(), extra.size()), 0);
  EXPECT_EQ(Difference(InPlace(recording.open), recording.closed), "");
}

TEST_F(AviFrontTest, OfOthers_IsRefused) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  ByteVector bytes = recording.closed;
  StoreLE32(&bytes[32], 40000);  // the time of a frame, which this library leaves open
  EXPECT_FALSE(Read(bytes));
  bytes = recording.closed;
  StoreLE32(&bytes[44], 0x10);  // flags
  EXPECT_FALSE(Read(bytes));
}

TEST_F(AviFrontTest, Cut_SaysSo) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  for (size_t length = 88; length < recording.FirstChunk(); ++length) {
    ASSERT_TRUE(Read(First(recording.open, length))) << length;
    ASSERT_TRUE(read_.front.cut) << length;
    ASSERT_FALSE(read_.front.sound);
  }
}

TEST_F(AviFrontTest, DamagedStreamHeader_KeepsTheOnesInFrontOfItAndFindsTheFrames) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  ByteVector bytes = recording.open;
  const size_t stream = Find(bytes, "auds");
  ASSERT_LT(stream, bytes.size());
  bytes.at(stream - 8) = 'X';
  ASSERT_TRUE(Read(bytes));
  EXPECT_FALSE(read_.front.sound);
  EXPECT_EQ(read_.stream_count, 1u);
  EXPECT_EQ(read_.front.end, recording.FirstChunk());
}

// The end of a form lies in the sector that is lost: the header of its stream still tells.
TEST_F(AviFrontTest, VideoFormInADamagedSector_IsNotBelieved) {
  ZMVFileInfo info = HevcPcmInfo();
  std::fill(info.m_Video[0].abExtraData + 30, info.m_Video[0].abExtraData + 500, uint8_t{7});
  info.m_Video[0].dwExtraDataSize = 500;
  ByteVector bytes = RecordAvi(info, HevcPcmFrames()).open;
  std::fill_n(bytes.begin() + 512, 512, uint8_t{0xAB});
  ASSERT_TRUE(Read(bytes));
  EXPECT_FALSE(read_.front.sound);
  ASSERT_EQ(read_.stream_count, 1u);
  EXPECT_FALSE(read_.front.described_video[0]);
  const ZMVVideoInfo& video = read_.front.info.m_Video[0];
  EXPECT_EQ(video.dwFourCC, FourCC("H265"));
  EXPECT_EQ(video.dwWidth, 320u);
  EXPECT_EQ(video.dwHeight, 240u);
  EXPECT_EQ(video.dwFrameRate, 25000u);
  EXPECT_EQ(video.dwExtraDataSize, 0u);
}

TEST_F(AviFrontTest, SoundFormInADamagedSector_IsNotBelieved) {
  ZMVFileInfo info = HevcPcmInfo();
  const auto form_of = [](const ByteVector& bytes) { return Find(bytes, "auds") + 56 + 8; };
  // The name of the first stream moves everything behind it.
  std::string name(400 - form_of(RecordAvi(info, {}).open), 'n');
  ByteVector bytes;
  do {
    name += 'n';
    info.pStreamName = name.data();
    bytes = RecordAvi(info, HevcPcmFrames()).open;
  } while (form_of(bytes) < 500);
  ASSERT_LT(form_of(bytes), 512u);
  std::fill_n(bytes.begin() + 512, 512, uint8_t{0xAB});
  ASSERT_TRUE(Read(bytes));
  EXPECT_FALSE(read_.front.sound);
  ASSERT_EQ(read_.stream_count, 2u);
  EXPECT_TRUE(read_.front.described_video[0]);
  EXPECT_FALSE(read_.front.described_audio);
  EXPECT_EQ(read_.front.info.m_Audio.dwFormat, ZMV_AUDIO_PCM);
  EXPECT_EQ(read_.front.info.m_Audio.dwSampleRate, 8000u);
  EXPECT_EQ(read_.front.info.m_Audio.dwChannels, 0u);
  EXPECT_EQ(read_.streams[1].sample_size, 2u);
}

// The sector in which the form ends is sound when a header begins at its end.
TEST_F(AviFrontTest, FormInFrontOfAHeaderThatADamagedSectorCutsOff_IsBelieved) {
  ZMVFileInfo info = HevcPcmInfo();
  const auto second_list = [](const ByteVector& file) { return Find(file, "auds") - 8 - 12; };
  ByteVector bytes;
  uint32_t& extra = info.m_Video[0].dwExtraDataSize;
  std::fill(info.m_Video[0].abExtraData + extra, std::end(info.m_Video[0].abExtraData), uint8_t{7});
  do {
    ++extra;
    bytes = RecordAvi(info, HevcPcmFrames()).open;
  } while (second_list(bytes) < 509);
  ASSERT_LE(second_list(bytes), 510u);  // at least "LI"
  std::fill_n(bytes.begin() + 512, 512, uint8_t{0xAB});
  ASSERT_TRUE(Read(bytes));
  ASSERT_EQ(read_.stream_count, 1u);
  EXPECT_TRUE(read_.front.described_video[0]);
}

TEST_F(AviFrontTest, Files_AreRecognisedByFormOrByChunks) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  EXPECT_TRUE(Recognised(recording.open));
  ByteVector bytes = recording.open;
  std::fill_n(bytes.begin(), 512, uint8_t{0});
  EXPECT_TRUE(Recognised(bytes));
  std::fill(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(recording.FirstChunk()), uint8_t{0});
  EXPECT_TRUE(Recognised(bytes));
  EXPECT_FALSE(Recognised(First(recording.open, 11)));
  EXPECT_FALSE(Recognised(Join({Text("RIFF"), Le32(100), Text("WAVE")})));
  EXPECT_FALSE(Recognised(ByteVector(5000)));
}

}  // namespace
}  // namespace zmv::test
