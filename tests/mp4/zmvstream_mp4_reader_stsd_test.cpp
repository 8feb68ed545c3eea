#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class ReaderStsd : public ReaderTest {
 protected:
  // The payload of stsd behind version and flags.
  uint32_t ParseEntries(const ByteVector& entries) { return Parse(&MP4ReaderParseStsd, Join({Be32(1), entries})); }
};

// ---- Entries

TEST_F(ReaderStsd, AudioEntries_GiveTheirCodes) {
  struct Case {
    const char* type;
    uint32_t code;
    int pcm;
  };
  for (const Case& entry :
       {Case{"samr", 0, 0}, Case{"sevc", 0, 0}, Case{"sqcp", 0, 0}, Case{"sawb", 0, 0}, Case{"mp4a", 0xFF, 0},
        Case{".mp3", 0x55, 0}, Case{"sowt", 1, 1}, Case{"ipcm", 1, 1}, Case{"lpcm", 1, 1}, Case{"alaw", 0, 0}}) {
    ASSERT_EQ(ParseEntries(AudioEntry(entry.type, {}, 1, 8, 8000)), 0u);
    EXPECT_EQ(track_->m_dwFourCC, entry.code) << entry.type;
    EXPECT_EQ(track_->m_bPcmFraming, entry.pcm) << entry.type;
    EXPECT_EQ(track_->m_dwSampleRate, entry.type == std::string("alaw") ? 0u : 8000u);
  }
}

TEST_F(ReaderStsd, VideoEntries_GiveTheirCodes) {
  const std::pair<const char*, uint32_t> entries[] = {
      {"avc1", FourCC("AVC1")}, {"hev1", FourCC("HEV1")}, {"hvc1", FourCC("hvc1")},
      {"mp4v", FourCC("MP4V")}, {"s263", FourCC("H263")}, {"avc3", 0},
  };
  for (const auto& [type, code] : entries) {
    ASSERT_EQ(ParseEntries(VideoEntry(type, {}, 320, 240)), 0u);
    EXPECT_EQ(track_->m_dwFourCC, code) << type;
    EXPECT_EQ(track_->m_dwWidth, code == 0 ? 0u : 320u);
    EXPECT_EQ(track_->m_dwHeight, code == 0 ? 0u : 240u);
  }
}

TEST_F(ReaderStsd, OfSeveralEntries_TheLastKnownOneWins) {
  ASSERT_EQ(ParseEntries(Join({AudioEntry("mp4a", {}), AudioEntry("sowt", {}, 1), AudioEntry("alaw", {}, 5)})), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 1u);
  EXPECT_EQ(track_->m_bPcmFraming, 1);
  EXPECT_EQ(track_->m_dwChannels, 1u);
  ASSERT_EQ(ParseEntries(Join({AudioEntry("sowt", {}), AudioEntry("mp4a", {})})), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 0xFFu);
  EXPECT_EQ(track_->m_bPcmFraming, 0);
}

TEST_F(ReaderStsd, AudioFields_AreReadForEveryVersion) {
  for (uint32_t version = 0; version <= 2; ++version) {
    ASSERT_EQ(ParseEntries(AudioEntry("mp4a", Esds(), 6, 24, 44100, version)), 0u);
    EXPECT_EQ(track_->m_dwChannels, 6u);
    EXPECT_EQ(track_->m_dwBitsPerSample, 24u);
    EXPECT_EQ(track_->m_dwSampleRate, 44100u);
    EXPECT_EQ(Config(*track_), Bytes({0x11, 0x90})) << version;
  }
}

TEST_F(ReaderStsd, ShortEntries_ReadWhatIsThere) {
  for (uint32_t size = 8; size < 60; ++size) {
    ByteVector entry = AudioEntry("mp4a", Zeros(40), 2, 16, 48000, 1);
    entry.resize(size);
    std::copy_n(Be32(size).begin(), 4, entry.begin());
    ASSERT_EQ(ParseEntries(entry), 0u) << size;
    EXPECT_EQ(track_->m_dwFourCC, 0xFFu);
    EXPECT_EQ(track_->m_dwChannels, size >= 26 ? 2u : 0u) << size;
    EXPECT_EQ(track_->m_dwSampleRate, size >= 34 ? 48000u : 0u) << size;
  }
  for (uint32_t size = 8; size < 100; ++size) {
    ByteVector entry = VideoEntry("avc1", Zeros(40));
    entry.resize(size);
    std::copy_n(Be32(size).begin(), 4, entry.begin());
    ASSERT_EQ(ParseEntries(entry), 0u) << size;
    EXPECT_EQ(track_->m_dwWidth, size >= 34 ? 640u : 0u) << size;
    EXPECT_EQ(track_->m_dwHeight, size >= 36 ? 360u : 0u) << size;
  }
}

TEST_F(ReaderStsd, Wave_IsWalkedAsIfItsChildrenStoodInItsPlace) {
  ASSERT_EQ(ParseEntries(AudioEntry("mp4a", Box("wave", {Box("frma", Text("mp4a")), Esds(0x69), Box("\0\0\0\0", {})}),
                                    2, 16, 48000, 1)),
            0u);
  EXPECT_EQ(track_->m_dwFourCC, 0x55u);
  ByteVector nested = Esds(0x69);
  for (int i = 0; i < 5000; ++i) nested = Box("wave", nested);
  ASSERT_EQ(ParseEntries(AudioEntry("mp4a", nested)), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 0x55u);
}

TEST_F(ReaderStsd, ChildrenOfOtherTypes_ArePassedOver) {
  ASSERT_EQ(ParseEntries(VideoEntry(
                "avc1", Join({Box("pasp", Zeros(8)), Box("avcC", AvcConfig()), Box("colr", Zeros(3)), Btrt(1, 2, 3)}))),
            0u);
  EXPECT_EQ(Config(*track_), AvcConfig());
  EXPECT_EQ(track_->m_dwBitRate, 3u);
}

TEST_F(ReaderStsd, AudioAndVideoParsers_WorkOnTheirOwn) {
  const ByteVector audio = AudioEntry("mp4a", Esds());
  EXPECT_EQ(Parse(&MP4ReaderParseAudio, ByteVector(audio.begin() + 16, audio.end())), 0u);
  EXPECT_EQ(track_->m_dwSampleRate, 48000u);
  EXPECT_EQ(Config(*track_), Bytes({0x11, 0x90}));
  const ByteVector video = VideoEntry("avc1", Btrt(9, 8, 7));
  EXPECT_EQ(Parse(&MP4ReaderParseVideo, ByteVector(video.begin() + 16, video.end())), 0u);
  EXPECT_EQ(track_->m_dwWidth, 640u);
  EXPECT_EQ(track_->m_dwMaxSampleSize, 9u);
}

TEST_F(ReaderStsd, NoTrack_IsRefused) {
  Load(Zeros(40));
  EXPECT_EQ(Code(MP4ReaderParseStsd(reader_, nullptr, 40)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderParseAVCC(nullptr, nullptr, 40)), ZMV_E_FAIL);
}

// ---- Configuration records

TEST_F(ReaderStsd, Avcc_GivesLengthSizeAndCode) {
  ASSERT_EQ(Parse(&MP4ReaderParseAVCC, Hex("01 4D 40 1F FF E0 00")), 0u);
  EXPECT_EQ(track_->m_dwFourCC, FourCC("H264"));
  EXPECT_EQ(track_->m_dwNalLengthSize, 4u);
  EXPECT_EQ(Config(*track_), Hex("01 4D 40 1F FF E0 00"));

  ASSERT_EQ(ParseEntries(VideoEntry("avc1", Box("avcC", Hex("01 64 00 28 FD E0 00")))), 0u);
  EXPECT_EQ(track_->m_dwFourCC, FourCC("AVC1"));
  EXPECT_EQ(track_->m_dwNalLengthSize, 2u);
}

TEST_F(ReaderStsd, ShortAvcc_CountsMissingBytesAsZero) {
  for (const char* record : {"", "01", "01 64 00 28"}) {
    ASSERT_EQ(Parse(&MP4ReaderParseAVCC, Hex(record)), 0u);
    EXPECT_EQ(track_->m_dwNalLengthSize, 1u);
    EXPECT_EQ(Config(*track_), Hex(record));
  }
  ASSERT_EQ(Parse(&MP4ReaderParseAVCC, Hex("01 4D")), 0u);
  EXPECT_EQ(track_->m_dwFourCC, FourCC("H264"));
}

TEST_F(ReaderStsd, Hvcc_AlwaysHasFourByteLengths) {
  ASSERT_EQ(Parse(&MP4ReaderParseHVCC, ByteVector(23, 0)), 0u);
  EXPECT_EQ(track_->m_dwFourCC, FourCC("H265"));
  EXPECT_EQ(track_->m_dwNalLengthSize, 4u);
  EXPECT_EQ(Config(*track_), Zeros(23));
}

TEST_F(ReaderStsd, RecordLargerThanTheData_IsRefusedBeforeAnythingIsAllocated) {
  for (auto parser : {&MP4ReaderParseAVCC, &MP4ReaderParseHVCC, &MP4ReaderParseESDS}) {
    Load(Zeros(100));
    track_ = MP4ReaderFindTrak(reader_, 1);
    const uint64_t before = host_.Count(HostCall::kMalloc);
    for (uint32_t size : {101u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      EXPECT_EQ(Code(parser(reader_, track_, size)), ZMV_E_READ);
    }
    EXPECT_EQ(host_.Count(HostCall::kMalloc), before);
  }
}

TEST_F(ReaderStsd, RepeatedRecord_ReplacesTheFirst) {
  ASSERT_EQ(ParseEntries(VideoEntry("avc1", Join({Box("avcC", AvcConfig(77)), Box("avcC", AvcConfig(66))}))), 0u);
  EXPECT_EQ(Config(*track_), AvcConfig(66));
}

TEST_F(ReaderStsd, NoMemoryForARecord_IsReported) {
  Load(AvcConfig());
  track_ = MP4ReaderFindTrak(reader_, 1);
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(Code(MP4ReaderParseAVCC(reader_, track_, 10)), ZMV_E_MEMORY);
  EXPECT_EQ(track_->m_dwConfigSize, 0u);
}

// ---- Bit rates

TEST_F(ReaderStsd, Btrt_GivesTheLargerRate) {
  ASSERT_EQ(Parse(&MP4ReaderParseBTRT, Join({Be32(1234), Be32(8000000), Be32(6000000)})), 0u);
  EXPECT_EQ(track_->m_dwBitRate, 8000000u);
  EXPECT_EQ(track_->m_dwMaxSampleSize, 1234u);
  ASSERT_EQ(Parse(&MP4ReaderParseBTRT, Join({Be32(1234), Be32(5), Be32(6)})), 0u);
  EXPECT_EQ(track_->m_dwBitRate, 6u);
}

TEST_F(ReaderStsd, ShortBtrt_ChangesNothing) {
  Load(ByteVector(11, 1));
  track_ = MP4ReaderFindTrak(reader_, 1);
  track_->m_dwBitRate = 5;
  track_->m_dwMaxSampleSize = 6;
  ASSERT_EQ(MP4ReaderParseBTRT(reader_, track_, 11), 0);
  EXPECT_EQ(track_->m_dwBitRate, 5u);
  EXPECT_EQ(track_->m_dwMaxSampleSize, 6u);
  EXPECT_THAT(host_.Traces(2), Contains("btrt box size is too small (11)\n"));
}

}  // namespace
}  // namespace zmv::test
