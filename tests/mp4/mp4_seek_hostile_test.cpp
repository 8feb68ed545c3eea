// Seeks and reads in files that are damaged at random: every call ends in a result, nothing is leaked, and what was
// searched before has no influence on what a search of the samples of moov finds.
#include "tests/mp4/fragment_test.h"
#include "tests/mp4/reader_seek.h"

namespace zmv::test {
namespace {

class HostileSeek : public ReaderSeek {
 protected:
  HostileSeek() {
    host_.trace_level = 0;
    host_.record = false;
  }

  uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<uint32_t>(state_ >> 16);
  }

  // Three tracks with samples in moov and in two fragments.
  static ByteVector Whole() {
    TrackSpec video = VideoTrack();
    video.entries = {VideoEntry("mp4v", {})};
    for (uint8_t i = 0; i < 30; ++i) video.frames.push_back(Unit(i, 6));
    video.times = {{10, 33}, {5, 40}, {15, 33}};
    video.duration = 30 * 33;
    video.sync = {{1, 11, 21}};
    video.chunks = {{{1, 1, 1}, {5, 2, 1}, {8, 1, 1}}};
    TrackSpec audio = AudioTrack(2);
    audio.entries = {AudioEntry("sowt", {}, 1, 16, 48000)};
    audio.frames.assign(20, Unit(9, 8));
    audio.times = {{20, 2400}};
    audio.time_scale = audio.duration = 48000;
    TrackSpec text = TextTrack(3);
    text.frames.assign(10, Unit(7, 3));
    text.times = {{10, 100}};
    text.duration = 1000;
    FragmentFile file({video, audio, text},
                      {FullBox("mehd", {Be32(2000)}), Trex(1, 40, 6), Trex(2, 2400, 8), Trex(3, 100, 3)});
    for (int i = 0; i < 2; ++i) {
      file.Add({{.track = 1,
                 .runs = {{.flags = kDataOffset | kDurations | kSizes, .samples = test::Samples(1, {5, 6})}, {}}},
                {.track = 2,
                 .flags = kBaseOffset | kDefaultDuration | kDefaultSize,
                 .duration = 2400,
                 .size = 4,
                 .runs = {{.flags = kDataOffset, .samples = test::Samples(50, {4, 4, 4})}}},
                {.track = 3, .runs = {{.samples = test::Samples(9, {3, 3})}}}});
    }
    return file.bytes;
  }

  void Damage(ByteVector& bytes) {
    constexpr uint32_t kWords[] = {0, 1, 2, 8, 16, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFF};
    for (uint32_t changes = 1 + Next() % 4; changes != 0; --changes) {
      const size_t at = Next() % bytes.size();
      if (Next() % 2 == 0) {
        bytes[at] = static_cast<uint8_t>(Next());
        continue;
      }
      const ByteVector word = Be32(kWords[Next() % std::size(kWords)]);
      std::copy(word.begin(), word.begin() + static_cast<ptrdiff_t>(std::min<size_t>(4, bytes.size() - at)),
                bytes.begin() + static_cast<ptrdiff_t>(at));
    }
    if (Next() % 5 == 0) bytes.resize(Next() % bytes.size());
  }

  // One exported seek, and some reads.
  void SeekAndRead() {
    uint32_t time = Next() % 6 == 0 ? Next() : Next() % 2200;
    const auto flag = static_cast<uint8_t>(Next() & 1);
    const uint32_t media = Next() % 5;
    int32_t result = 0;
    switch (Next() % 5) {
      case 0:
        result = MP4FReaderSeekByTime(reader_, &time, flag);
        break;
      case 1:
        result = MP4FReaderSeekByKeyFrame(reader_, &time, flag);
        break;
      case 2:
        result = MP4FReaderSeekBySubtitle(reader_, &time, flag);
        break;
      case 3:
        result = MP4FReaderSeekByMedia(reader_, &time, media);
        break;
      default:
        result = MP4FReaderChangeTrack(reader_, Next() % 3, time, media);
        break;
    }
    EXPECT_TRUE(result == 0 || result == 1);
    done_ += static_cast<uint32_t>(result);
    for (uint32_t reads = Next() % 6; reads != 0; --reads) {
      if (Next() % 8 == 0) {
        ReadInfo(Next() % 4, 64);
      } else if (Read(Next() % 4, 64).code == 0) {
        ++frames_;
      }
    }
  }

  struct Found {
    uint8_t result;
    uint32_t time, sample, position, dts, chunk, next_sync;
    bool operator==(const Found&) const = default;
  };
  // Searches the samples of moov of every track.
  std::vector<Found> SearchAll() {
    std::vector<Found> all;
    for (uint32_t slot = 0; slot < reader_->m_dwTrackCount; ++slot) {
      MP4ReaderTrack* track = reader_->m_pTrack[slot];
      if (track == nullptr || track->m_hStream == nullptr || track->m_dwSampleCount == 0) continue;
      for (uint32_t target : {0u, 100u, 330u, 500u, 990u}) {
        if (target > track->m_dwDuration) continue;
        for (uint32_t mode : {kForward, kBackward, kNearest}) {
          uint32_t time = target;
          const uint8_t result = MP4FReaderGetSeekPos(reader_, track, &time, mode);
          if (result != 1) {
            all.push_back({result, time, 0, 0, 0, 0, 0});
            continue;
          }
          // A track of constant-size audio keeps its own delta, which reading may have changed.
          const uint32_t dts = track->m_bPcmFraming != 0 ? 0 : track->m_dwSeekDts;
          const uint32_t next_sync = track->m_dwStssCursor != 0 ? track->m_dwSeekNextSync : 0;
          all.push_back(
              {result, time, track->m_dwSeekSample, track->m_dwSeekPos, dts, track->m_dwSeekChunk, next_sync});
          MP4ReaderLoadStblPos(reader_, track);
        }
      }
    }
    return all;
  }

  uint64_t state_ = 88172645463325252u;
  uint64_t done_ = 0;
  uint64_t frames_ = 0;
};

TEST_F(HostileSeek, DamagedFiles_AreSoughtInWithoutHarmAndWithoutMemory) {
  const ByteVector whole = Whole();
  uint64_t described = 0;
  uint64_t compared = 0;
  for (int i = 0; i < 5000; ++i) {
    SCOPED_TRACE(i);
    ByteVector bytes = whole;
    Damage(bytes);
    if (Describe(bytes) == 0) {
      ++described;
      for (int k = 0; k < 10; ++k) SeekAndRead();
      const std::vector<Found> later = SearchAll();
      ASSERT_EQ(Describe(bytes), 0u);
      ASSERT_EQ(SearchAll(), later);
      compared += later.size();
    }
    Close();
    ASSERT_EQ(host_.LiveBlocks(), 0u);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(described, 3000u);
  EXPECT_GT(done_, 5000u);
  EXPECT_GT(frames_, 10000u);
  EXPECT_GT(compared, 50000u);
}

}  // namespace
}  // namespace zmv::test
