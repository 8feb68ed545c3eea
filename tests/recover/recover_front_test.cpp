#include "recover/recover_front.h"

#include "recover/recover_probe.h"
#include "recover/recover_recording.h"
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using recover::Front;

constexpr size_t kSector = 512;

class FrontTest : public RecoverTest {
 protected:
  static ZMVFileInfo ThreeVideos() {
    ZMVFileInfo info = SmallInfo();
    info.dwVideoCount = 3;
    info.m_Video[2] = info.m_Video[1] = info.m_Video[0];
    info.m_Video[1].dwFourCC = FourCC("H265");
    info.m_Video[1].dwWidth = 1920;
    info.m_Video[2].dwFourCC = FourCC("MP4V");
    info.m_Video[2].dwExtraDataSize = 500;
    std::fill_n(info.m_Video[2].abExtraData, 500, uint8_t{0x5A});
    return info;
  }
  static bool Read(const ByteVector& bytes, Front& front) {
    StoredFile file(bytes);
    recover::Window window(file);
    return recover::ReadFront(window, front);
  }
  static ByteVector Recorded(const ZMVFileInfo& info, uint32_t frames = 4) {
    FrameLog log(info);
    Noise noise(1);
    for (uint32_t i = 0; i < frames; ++i) {
      for (uint32_t track = 0; track < info.dwVideoCount; ++track) {
        log.Write(ZMV_MEDIA_VIDEO, noise.Video(200), 33 * i, 33333, i == 0, track);
      }
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(50), 33 * i, 33);
      log.Write(ZMV_MEDIA_TEXT, noise.Text(100), 33 * i, 33);
    }
    return log.Finish();
  }
  static void Overwrite(ByteVector& bytes, size_t from, size_t to, Noise& noise) {
    for (size_t i = from; i < std::min(to, bytes.size()); ++i) bytes[i] = noise.Byte();
  }
};

TEST_F(FrontTest, Descriptions_AreThoseOfTheWriter) {
  const ByteVector file = Recorded(ThreeVideos());
  Front front;
  ASSERT_TRUE(Read(file, front));
  EXPECT_TRUE(front.sound);
  EXPECT_TRUE(front.own);
  EXPECT_FALSE(front.cut);
  EXPECT_FALSE(front.recovery_brand);
  EXPECT_EQ(ByteVector(file.begin() + static_cast<ptrdiff_t>(front.mdat) + 4,
                       file.begin() + static_cast<ptrdiff_t>(front.mdat) + 8),
            Text("mdat"));
  EXPECT_EQ(front.mdat_size, NumberAt(file, front.mdat));
  EXPECT_EQ(front.end, front.mdat + 8);
  EXPECT_EQ(front.info.m_dwFileType, 1u);
  EXPECT_EQ(front.info.dwTimeScale, 90000u);
  ASSERT_EQ(front.info.dwVideoCount, 3u);
  EXPECT_EQ(front.info.m_Video[0].dwFourCC, FourCC("H264"));
  EXPECT_EQ(front.info.m_Video[0].dwWidth, 640u);
  EXPECT_EQ(front.info.m_Video[0].dwHeight, 360u);
  EXPECT_EQ(front.info.m_Video[0].dwFrameRate, 1000u);
  EXPECT_EQ(front.info.m_Video[0].dwBitRate, 4000000u);
  EXPECT_EQ(front.info.m_Video[0].dwTimeScale, 90000u);
  ASSERT_EQ(front.info.m_Video[0].dwExtraDataSize, 16u);
  EXPECT_EQ(std::memcmp(front.info.m_Video[0].abExtraData, SmallInfo().m_Video[0].abExtraData, 16), 0);
  EXPECT_EQ(front.info.m_Video[1].dwFourCC, FourCC("H265"));
  EXPECT_EQ(front.info.m_Video[1].dwWidth, 1920u);
  EXPECT_EQ(front.info.m_Video[2].dwFourCC, FourCC("MP4V"));
  EXPECT_EQ(front.info.m_Video[2].dwExtraDataSize, 500u);
  ASSERT_EQ(front.info.dwAudioCount, 1u);
  EXPECT_EQ(front.info.m_Audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(front.info.m_Audio.dwSampleRate, 48000u);
  EXPECT_EQ(front.info.m_Audio.dwChannels, 2u);
  EXPECT_EQ(front.info.m_Audio.dwBitsPerSample, 16u);
  EXPECT_EQ(front.info.m_Audio.dwBitRate, 128000u);
  EXPECT_EQ(front.info.m_Audio.dwExtraDataSize, 2u);
  EXPECT_EQ(front.info.m_Audio.abExtraData[1], 0x90);
  EXPECT_EQ(front.info.m_Audio.dwSamplesPerFrame, 1024u);
  ASSERT_EQ(front.info.dwTextCount, 1u);
  EXPECT_EQ(front.info.m_Text[0].dwFourCC, FourCC("gpsd"));
  EXPECT_EQ(front.info.m_Text[0].dwRate, 1000u);
  EXPECT_EQ(front.info.m_Text[0].dwTimeScale, 1000u);
  EXPECT_TRUE(front.described_video[0] && front.described_video[1] && front.described_video[2]);
  EXPECT_TRUE(front.described_audio && front.described_text[0]);
}

// A new recording takes no memory for rates that nothing has.
TEST_F(FrontTest, EnormousRates_AreNotBelieved) {
  const ByteVector file = Recorded(SmallInfo());
  const auto recover_with = [&](std::initializer_list<std::pair<uint32_t, uint32_t>> changes) {
    ByteVector bytes = file;
    for (const auto& [from, to] : changes) {
      const ByteVector old = Be32(from);
      auto at = std::search(bytes.begin(), bytes.begin() + 300, old.begin(), old.end());
      for (; at != bytes.begin() + 300; at = std::search(at, bytes.begin() + 300, old.begin(), old.end())) {
        StoreBE32(&*at, to);
      }
    }
    StoredFile source(bytes);
    ZMVRecoverParam param = {};
    param.pszTarget = "new.mp4";
    ZMVRecoverReport report = {};
    EXPECT_EQ(recover::RecoverToFile(source, param, report), 0);
    EXPECT_EQ(report.dwFrames, 12u);
    return host.PeakBytes();
  };
  const uint64_t sound = recover_with({});
  EXPECT_LE(recover_with({{1000, UINT32_MAX}}), sound) << "of video and of text";
  EXPECT_LE(recover_with({{48000, UINT32_MAX}}), sound) << "of sound";
  EXPECT_LE(recover_with({{48000, 9'000'000}, {16, UINT32_MAX}}), sound) << "of sound, by its bits";
}

TEST_F(FrontTest, RecoveryBrand_IsSeen) {
  ZMVFileInfo info = SmallInfo();
  std::strncpy(info.szSoftware, "Recovery", sizeof info.szSoftware);
  info.m_dwFileType = 0;
  Front front;
  ASSERT_TRUE(Read(Recorded(info), front));
  EXPECT_TRUE(front.sound);
  EXPECT_TRUE(front.recovery_brand);
  EXPECT_STREQ(front.info.szSoftware, "Recovery");
  EXPECT_EQ(front.info.m_dwFileType, 0u);
  ASSERT_TRUE(Read(Recorded(SmallInfo()), front));
  EXPECT_FALSE(front.recovery_brand);
  EXPECT_STREQ(front.info.szSoftware, "");
}

TEST_F(FrontTest, FrontCutAnywhere_IsCutAndNotDamaged) {
  const ByteVector file = Recorded(SmallInfo());
  Front whole;
  ASSERT_TRUE(Read(file, whole));
  for (size_t size = 28; size < whole.mdat + 8; ++size) {
    Front front;
    ASSERT_TRUE(Read(ByteVector(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)), front)) << size;
    EXPECT_TRUE(front.cut && !front.sound) << size;
  }
  for (size_t size = 0; size < 28; ++size) {
    EXPECT_EQ(ScanBytes(ByteVector(file.begin(), file.begin() + static_cast<ptrdiff_t>(size))).report.dwState,
              ZMV_RECOVER_FOREIGN)
        << size;
  }
}

TEST_F(FrontTest, AnyDamagedSector_LeavesTheFramesBehindIt) {
  const ByteVector file = Recorded(ThreeVideos(), 30);
  const Found sound = ScanBytes(file);
  ASSERT_EQ(sound.frames.size(), 150u);
  Front whole;
  ASSERT_TRUE(Read(file, whole));
  Noise noise(2);
  for (int round = 0; round < 40; ++round) {
    for (size_t from = 0; from < whole.mdat + 8; from += kSector) {
      ByteVector bytes = file;
      if (round % 2 == 0) Overwrite(bytes, from, from + kSector, noise);
      if (round % 2 == 1) std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(from), kSector, 0);
      const Found found = ScanBytes(bytes);
      std::vector<StoredFrame> untouched = sound.frames;
      std::erase_if(untouched, [=](const StoredFrame& frame) { return frame.position < from + kSector; });
      ASSERT_GE(found.frames.size(), untouched.size()) << "damage at " << from;
      const auto behind = found.frames.end() - static_cast<ptrdiff_t>(untouched.size());
      ASSERT_EQ(std::vector<StoredFrame>(behind, found.frames.end()), untouched) << "damage at " << from;
      // The content of the random box is the only thing that nobody misses.
      Front front;
      const bool same = Read(bytes, front) && std::memcmp(&front.info, &whole.info, sizeof front.info) == 0;
      ASSERT_EQ(found.report.dwState == ZMV_RECOVER_WHOLE, same && untouched.size() == sound.frames.size());
    }
  }
}

TEST_F(FrontTest, DescriptionsBehindTheDamage_GoToTheLastStreams) {
  ByteVector file = Recorded(ThreeVideos());
  // The first sector holds ftyp, audio, and the first two videos; the third is long and goes on behind it.
  const ByteVector mark = Text("MP4V");
  const auto third = std::search(file.begin(), file.end(), mark.begin(), mark.end()) - 16;
  std::fill(file.begin(), third, 0xEE);
  Front front;
  ASSERT_TRUE(Read(file, front));
  EXPECT_FALSE(front.sound);
  EXPECT_EQ(front.info.dwVideoCount, 1u);
  EXPECT_EQ(front.late_video, 1u);
  const Found found = ScanBytes(file);
  EXPECT_EQ(found.frames.size(), 20u);

  ZMVFileInfo given = {};
  given.dwVideoCount = 1;
  given.m_Video[0].dwFourCC = FourCC("H264");
  given.m_Video[0].dwWidth = 1234;
  given.m_Video[0].dwTimeScale = 1000;
  Front settled = front;
  recover::SettleDescriptions(found.report, &given, settled);
  ASSERT_EQ(settled.info.dwVideoCount, 3u);
  EXPECT_EQ(settled.info.m_Video[0].dwWidth, 1234u) << "as the caller says";
  EXPECT_EQ(settled.info.dwTimeScale, 1000u);
  EXPECT_EQ(settled.info.m_Video[1].dwFourCC, FourCC("H264")) << "a plain one";
  EXPECT_EQ(settled.info.m_Video[2].dwFourCC, FourCC("MP4V")) << "the one behind the damage";
  EXPECT_FALSE(settled.described_video[0] || settled.described_video[1]);
  EXPECT_TRUE(settled.described_video[2]);
  ASSERT_EQ(settled.info.dwAudioCount, 1u);
  EXPECT_EQ(settled.info.m_Audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(settled.info.m_Audio.dwSampleRate, 48000u);
  EXPECT_EQ(settled.info.dwTextCount, 1u);
  EXPECT_TRUE(settled.described_text[0]);
  EXPECT_EQ(settled.info.m_dwFileType, 1u);

  StoredFile stored(file);
  recover::Finding finding;
  ASSERT_EQ(recover::ProbeFile(stored, ZMVRecoverParam{}, finding), 0);
  std::vector<int> described;
  for (uint32_t i = 0; i < finding.report.dwStreamCount; ++i) described.push_back(finding.report.Stream[i].bDescribed);
  EXPECT_THAT(described, ::testing::ElementsAre(0, 0, 1, 0, 1)) << "three videos, audio, text";
}

TEST_F(FrontTest, FilesOfOthers_AreForeign) {
  const auto box = [](std::string_view type, const ByteVector& body) { return BoxOf(type, {body}); };
  const ByteVector brands = Join({Text("isom"), Be32(512), Text("isom"), Text("iso2"), Text("avc1"), Text("mp41")});
  const ByteVector media(5000, 0x41);
  const ByteVector movie(300, 0);
  for (const ByteVector& file : {
           Join({box("ftyp", brands), box("free", {}), box("mdat", media), box("moov", movie)}),
           Join({box("ftyp", brands), box("moov", movie), box("mdat", media)}),
           Join({box("moov", movie), box("mdat", media)}),
           Join({Text("RIFF"), Le32(5000), Text("WAVE"), media}),
           ByteVector(20000, 'a'),
           Zeros(20000),
           ByteVector(),
       }) {
    const Found found = ScanBytes(file);
    EXPECT_TRUE(found.frames.empty());
    EXPECT_EQ(found.report.dwState, ZMV_RECOVER_FOREIGN);
  }
}

}  // namespace
}  // namespace zmv::test
