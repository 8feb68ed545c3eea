// Payloads that real encoders and applications make: zeros of their own, pieces of other recordings, streams that
// nobody described.
#include "tests/recover/mp4_damage.h"

namespace zmv::test {
namespace {

using ::testing::IsEmpty;

class Mp4Payloads : public RecoverTest {
 protected:
  static ByteVector First(const ByteVector& bytes, size_t count) {
    return ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
  }
  static ByteVector Unclosed(const FrameLog& log, const ByteVector& file) {
    ByteVector bytes = First(file, log.frames().back().End());
    StoreBE32(&bytes[log.frames().front().position - 8], 8);
    return bytes;
  }
  // The size in a record that lies in two sectors could be wrong, and so could that of a table behind it.
  static bool SizeInDoubt(const StoredFrame& frame) {
    return frame.position / kSector != (frame.position + 27) / kSector || frame.payload != frame.position + 28;
  }
  // Cut behind each frame that is not left out, before its last byte and behind its first ones.
  static void ExpectEveryCutIsExact(const FrameLog& log, const ByteVector& file, size_t first = 0,
                                    bool (*left_out)(const StoredFrame&) = nullptr) {
    const ByteVector bytes = Unclosed(log, file);
    const auto& frames = log.frames();
    for (size_t i = first; i < frames.size(); ++i) {
      if (left_out != nullptr && left_out(frames[i])) continue;
      for (size_t cut : {frames[i].payload + 5, frames[i].End() - 1, frames[i].End()}) {
        std::vector<StoredFrame> complete = frames;
        std::erase_if(complete, [cut](const StoredFrame& frame) { return frame.End() > cut; });
        const Found found = ScanBytes(First(bytes, cut));
        ASSERT_TRUE(found.frames == complete)
            << "cut at " << cut << ": " << found.frames.size() << " for " << complete.size() << ", last " << frames[i];
        ASSERT_EQ(found.report.dwHoles + found.report.dwDropped, 0u) << "cut at " << cut;
      }
    }
  }
  static void ExpectWhole(const FrameLog& log, const ByteVector& file) {
    const Found found = ScanBytes(file);
    ASSERT_TRUE(found.frames == log.frames());
    ASSERT_EQ(found.report.dwState, ZMV_RECOVER_WHOLE);
  }
};

// Zeros in front of the next unit of a picture, and behind the last one, up to a multiple of 64 bytes.
ByteVector PaddedPicture(Noise& noise, uint32_t slices) {
  ByteVector picture;
  for (uint32_t i = 0; i < slices; ++i) {
    const ByteVector slice = noise.Video(20 + noise.Number(900));
    picture.insert(picture.end(), slice.begin(), slice.end());
    picture.resize((picture.size() + 63) / 64 * 64);
  }
  return picture;
}

// Space that was taken in advance: padding of the last picture cannot be told from it, but is expected.
TEST_F(Mp4Payloads, PaddedPictures_ComeBackInFrontOfUnwrittenSpace) {
  FrameLog log(SmallInfo());
  Noise noise(8);
  for (uint32_t i = 0; i < 40; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, PaddedPicture(noise, 1 + i % 3), 33 * i, 33333, i % 10 == 0);
  }
  const ByteVector file = log.Finish();
  const ByteVector bytes = Unclosed(log, file);
  for (size_t i = 5; i < log.frames().size(); ++i) {
    const ByteVector written = First(bytes, log.frames()[i].End());
    const Found found = ScanBytes(Join({written, Zeros(5000)}));
    ASSERT_EQ(found.frames.size(), i + 1);
    ASSERT_TRUE(found.frames.back() == log.frames()[i]);
  }
}

// The index behind the last payload begins with zeros, too.
TEST_F(Mp4Payloads, LastPictureThatEndsWithZeros_IsNoLostSector) {
  for (uint32_t size = 100; size < 100 + kSector; ++size) {
    FrameLog log(SmallInfo());
    Noise noise(size);
    ByteVector picture = noise.Video(size);
    std::fill(picture.end() - 3, picture.end(), 0);
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(300), 0, 33333, true);
    log.Write(ZMV_MEDIA_VIDEO, picture, 33, 33333);
    ExpectWhole(log, log.Finish());
    if (HasFatalFailure()) return;
  }
}

// A silent frame at a constant bit rate: a header, and zeros.
ByteVector Silence(Noise& noise, size_t size) {
  ByteVector frame = noise.Compressed(36);
  frame.resize(size);
  return frame;
}

TEST_F(Mp4Payloads, PaddedPictures_ComeBackFromEveryCut) {
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    FrameLog log(SmallInfo());
    Noise noise(seed);
    for (uint32_t i = 0; i < 60; ++i) {
      log.Write(ZMV_MEDIA_VIDEO, PaddedPicture(noise, 1 + i % 3), 33 * i, 33333, i % 10 == 0);
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(1 + noise.Number(200)), 33 * i, 33);
    }
    const ByteVector file = log.Finish();
    ExpectWhole(log, file);
    ExpectEveryCutIsExact(log, file);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Mp4Payloads, SilenceOfAConstantBitRate_ComesBackFromEveryCut) {
  ZMVFileInfo info = SmallInfo();
  info.m_Audio.dwFormat = ZMV_AUDIO_MPEG;
  info.m_Audio.dwExtraDataSize = 0;
  FrameLog log(info);
  Noise noise(2);
  for (uint32_t i = 0; i < 60; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(20 + noise.Number(900)), 24 * i, 24000, i % 10 == 0);
    log.Write(ZMV_MEDIA_AUDIO, Silence(noise, 960), 24 * i, 24);
  }
  const ByteVector file = log.Finish();
  ExpectWhole(log, file);
  // Zeros up to the end of the file are believed once the stream has shown such.
  constexpr size_t kSecondSilence = 3;
  ExpectEveryCutIsExact(log, file, kSecondSilence);
}

// Zeros of a lost sector are still told from padding, which is shorter.
TEST_F(Mp4Payloads, LostSectorOfPaddedPictures_LosesOnlyTheFramesItTouches) {
  FrameLog log(SmallInfo());
  Noise noise(3);
  for (uint32_t i = 0; i < 60; ++i) {
    ByteVector picture = PaddedPicture(noise, 1 + i % 3);
    picture.insert(picture.begin(), {0, 0, 0, 1});
    log.Write(ZMV_MEDIA_VIDEO, picture, 33 * i, 33333, i % 10 == 0);
  }
  const ByteVector file = log.Finish();
  for (size_t from = log.frames()[0].position / kSector * kSector; from < file.size(); from += kSector) {
    const ByteVector bytes = WithSector(file, from, [] { return uint8_t{0}; });
    ExpectLosesOnlyTouched(ScanBytes(bytes), log.frames(), from, from + kSector, Allow::kNothing);
    if (HasFatalFailure()) return;
  }
}

// Records and payload ends at every place of a sector: small frames, any bytes in them.
TEST_F(Mp4Payloads, AnySectorOfSmallSound_LosesOnlyTheFramesItTouches) {
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    FrameLog log(SmallInfo());
    Noise noise(100 + seed);
    for (uint32_t i = 0; i < 150; ++i) {
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(430 + noise.Number(110)), 21 * i, 21);
    }
    const ByteVector file = log.Finish();
    for (size_t from = log.frames()[0].position / kSector * kSector; from < file.size(); from += kSector) {
      for (bool zeros : {true, false}) {
        const ByteVector bytes = WithSector(file, from, [&] { return zeros ? uint8_t{0} : noise.Byte(); });
        ExpectLosesOnlyTouched(ScanBytes(bytes), log.frames(), from, from + kSector,
                               zeros ? Allow::kNothing : Allow::kAnyMedium);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// A text that is itself a piece of a recording.
TEST_F(Mp4Payloads, PieceOfARecordingInAPayload_IsNoFrame) {
  const SmallRecording other(9, 5);
  const size_t begin = other.frames[2].position;
  for (size_t size : {other.frames[6].End() - begin + 5, other.frames[6].End() - begin - 9, size_t{900}}) {
    FrameLog log(SmallInfo());
    Noise noise(4);
    const auto from = other.file.begin() + static_cast<ptrdiff_t>(begin);
    for (uint32_t i = 0; i < 40; ++i) {
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(100 + 13 * i), 40 * i, 40);
      log.Write(ZMV_MEDIA_TEXT, ByteVector(from, from + static_cast<ptrdiff_t>(size)), 40 * i, 40);
    }
    const ByteVector file = log.Finish();
    ExpectWhole(log, file);
    ExpectEveryCutIsExact(log, file, 0, &SizeInDoubt);
    if (HasFatalFailure()) return;
  }
}

// The writer puts frames of a stream that nobody described into the last track.
TEST_F(Mp4Payloads, FramesOfUndescribedStreams_ComeBackAsTheyWereRecorded) {
  FrameLog log(SmallInfo());
  Noise noise(5);
  for (uint32_t i = 0; i < 30; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(20 + noise.Number(900)), 33 * i, 33333, i % 10 == 0);
    log.Write(ZMV_MEDIA_VIDEO, noise.Compressed(30), 33 * i, 33333, false, 1);
    log.Write(ZMV_MEDIA_TEXT, noise.Compressed(30), 33 * i, 33, false, 7);
  }
  const ByteVector file = log.Finish();
  ExpectWhole(log, file);
  ExpectEveryCutIsExact(log, file);
  const ZMVRecoverReport report = ScanBytes(file).report;
  EXPECT_EQ(report.dwStreamCount, 3u);
  EXPECT_EQ(report.Stream[2].dwFrames, 60u) << "of the last stream";
}

// One enormous payload between small ones, without the bytes in memory.
class EnormousPayload final : public recover::File {
 public:
  EnormousPayload(ByteVector before, uint64_t size, ByteVector after)
      : before_(std::move(before)), size_(size), after_(std::move(after)) {}
  uint64_t Size() const override { return before_.size() + size_ + after_.size(); }
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override {
    count = static_cast<uint32_t>(std::min<uint64_t>(count, Size() - std::min(position, Size())));
    const uint64_t behind = before_.size() + size_;
    for (uint32_t i = 0; i < count; ++i, ++position) {
      static_cast<uint8_t*>(bytes)[i] = position < before_.size() ? before_[position]
                                        : position < behind       ? uint8_t{0x55}
                                                                  : after_[position - behind];
    }
    return count;
  }
  int32_t WriteAt(uint64_t, const void*, uint32_t) override { return Result(ZMV_E_WRITE); }
  int32_t Truncate(uint64_t) override { return Result(ZMV_E_WRITE); }
  int32_t Sync() override { return 0; }

 private:
  ByteVector before_;
  uint64_t size_;
  ByteVector after_;
};

TEST_F(Mp4Payloads, EnormousPayload_IsLeftOutWithoutTheMemoryForIt) {
  FrameLog log(SmallInfo());
  Noise noise(6);
  for (uint32_t i = 0; i < 3; ++i) log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(50), 21 * i, 21);
  ByteVector file = log.Finish();
  constexpr uint32_t kSize = 300u << 20;
  const StoredFrame& middle = log.frames()[1];
  StoreBE32(&file[middle.position + 24], kSize);
  StoreBE32(&file[log.frames()[0].position - 8], 8);
  const auto at = [&](uint64_t position) { return file.begin() + static_cast<ptrdiff_t>(position); };
  EnormousPayload damaged(ByteVector(file.begin(), at(middle.payload)), kSize,
                          ByteVector(at(middle.End()), at(log.frames()[2].End())));
  recover::Mp4Scan scan(damaged);
  ASSERT_EQ(scan.Open(), 0);
  recover::FoundFrame frame;
  const uint64_t before = host.LiveBytes();
  std::vector<uint64_t> times;
  while (scan.Next(frame)) times.push_back(frame.time);
  EXPECT_EQ(scan.Result(), 0);
  EXPECT_THAT(times, ::testing::ElementsAre(0, 42));
  EXPECT_EQ(scan.Report().dwDropped, 1u);
  EXPECT_LE(host.LiveBytes(), before + (1u << 20));
}

// Space that was taken in advance behind a recording: a call can be stopped while its end is looked for.
TEST_F(Mp4Payloads, LookingForTheEndOfTheData_CanBeStopped) {
  const SmallRecording recording(3, 5);
  EnormousPayload file(recording.Unclosed(), 0, ByteVector(64u << 20));
  ZMVRecoverParam param = {};
  param.pfnProgress = [](void*, uint64_t, uint64_t) -> uint32_t { return 1; };
  recover::Progress progress(param, file.Size());
  recover::Mp4Scan scan(file, &progress);
  EXPECT_EQ(scan.Open(), Result(ZMV_E_CANCELLED));
}

}  // namespace
}  // namespace zmv::test
