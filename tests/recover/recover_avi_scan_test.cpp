#include "recover/recover_avi_scan.h"

#include "tests/recover/avi_recovery_test.h"
#include "tests/recover/avi_shapes.h"
#include "tests/support/memory_file.h"

namespace zmv::test {
namespace {

struct Timed {
  uint32_t media;
  uint64_t time;
  uint32_t duration;
};

class AviScanTest : public AviRecoveryTest {
 protected:
  std::vector<Timed> Scan(const ByteVector& bytes) {
    StoredFile file(bytes);
    recover::AviScan scan(file);
    result_ = scan.Open(nullptr);
    std::vector<Timed> found;
    recover::FoundFrame frame;
    while (result_ == 0 && scan.Next(frame)) {
      found.push_back({frame.media, frame.time, frame.duration});
      EXPECT_EQ(frame.new_duration, frame.duration);
    }
    report_ = scan.Report();
    return found;
  }
  // Sets a word of the header of the stream of a type.
  static void Set(ByteVector& bytes, std::string_view type, size_t word, uint32_t value) {
    const auto header = static_cast<size_t>(FindCode(bytes, type) - bytes.begin());
    StoreLE32(&bytes.at(header + word), value);
  }
  static constexpr size_t kScale = 20;
  static constexpr size_t kRate = 24;
  static constexpr size_t kSampleSize = 44;
};

TEST_F(AviScanTest, Times_AreThoseOfTheRates) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  uint64_t videos = 0, sounds = 0, texts = 0;
  for (const Timed& one : Scan(recording.open)) {
    if (one.media == ZMV_MEDIA_VIDEO) {
      EXPECT_EQ(one.time, 40 * videos++);
      EXPECT_EQ(one.duration, 40u);
    } else if (one.media == ZMV_MEDIA_AUDIO) {
      EXPECT_EQ(one.time, 1024 * 1000 * sounds++ / 48000);
      EXPECT_EQ(one.duration, 1024 * 1000 * sounds / 48000 - one.time);
    } else {
      EXPECT_EQ(one.time, 100 * texts++);
    }
  }
  EXPECT_EQ(videos + sounds + texts, recording.frames.size());
  EXPECT_EQ(report_.bUniformTimes, 1);
  EXPECT_EQ(report_.llLastTime, std::max<uint64_t>(40 * 23, 1024 * 1000 * 39 / 48000));
}

// 160 bytes are 80 samples, 10 ms.
TEST_F(AviScanTest, TimesOfPcm_AreThoseOfTheSamples) {
  uint64_t time = 0;
  for (const Timed& one : Scan(RecordAvi(HevcPcmInfo(), HevcPcmFrames()).open)) {
    if (one.media != ZMV_MEDIA_AUDIO) continue;
    EXPECT_EQ(one.time, time);
    EXPECT_EQ(one.duration, 10u);
    time += 10;
  }
  EXPECT_EQ(time, 300u);
}

TEST_F(AviScanTest, RatesThatTellNothing_GiveTimeZero) {
  ByteVector bytes = RecordAvi(SoundOnly().info, SoundOnly().frames).open;
  Set(bytes, "auds", kRate, 0);
  for (const Timed& one : Scan(bytes)) EXPECT_EQ(one.time, 0u);
  EXPECT_EQ(report_.dwFrames, SoundOnly().frames.size());
}

// The times of a stream never go back, so that it can be recorded anew.
TEST_F(AviScanTest, RatesThatLeadBeyondAllTimes_StayAtTheLatest) {
  const AviShape shape = SoundOnly();
  for (const uint32_t scale : {UINT32_MAX, 3000000000u, 1u << 31, 4000000u}) {
    for (const uint32_t sample_size : {0u, 1u}) {
      ByteVector bytes = RecordAvi(shape.info, shape.frames).open;
      Set(bytes, "auds", kScale, scale);
      Set(bytes, "auds", kRate, 1);
      Set(bytes, "auds", kSampleSize, sample_size);
      uint64_t last = 0;
      for (const Timed& one : Scan(bytes)) {
        EXPECT_GE(one.time, last);
        last = one.time;
      }
      EXPECT_EQ(last, uint64_t{INT32_MAX});
      ToFile(bytes);
      EXPECT_EQ(result_, 0) << scale;
      EXPECT_EQ(report_.dwFrames, shape.frames.size());
    }
  }
}

TEST_F(AviScanTest, FramesOfNoDescribedTrack_CountForTheLastStream) {
  const AviShape shape = Undescribed();
  const AviRecording recording = RecordAvi(shape.info, shape.frames);
  Scan(recording.open);
  ASSERT_EQ(report_.dwStreamCount, 2u);
  EXPECT_EQ(report_.Stream[0].dwFrames, 14u);
  EXPECT_EQ(report_.Stream[1].dwFrames, shape.frames.size() - 14);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_CUT);
}

// ---- Streams whose headers are lost

ByteVector WithoutHeaders(const AviRecording& recording) {
  ByteVector bytes = recording.open;
  std::fill_n(bytes.begin(), 512, uint8_t{0});
  return bytes;
}

TEST_F(AviScanTest, StreamsWithoutHeaders_AreWhatMostOfTheirChunksSay) {
  AviShape shape = TwoCameras();
  AviRecording recording = RecordAvi(shape.info, shape.frames);
  ByteVector bytes = WithoutHeaders(recording);
  // The first chunk of the sound says that it is text.
  const auto sound = std::find_if(recording.frames.begin(), recording.frames.end(),
                                  [](const AviFrame& frame) { return frame.media == ZMV_MEDIA_AUDIO; });
  ASSERT_EQ(bytes[sound->position + 1], '2');
  bytes[sound->position + 2] = 't';
  bytes[sound->position + 3] = 'x';
  Scan(bytes);
  ASSERT_EQ(report_.dwStreamCount, 5u);
  EXPECT_EQ(report_.Stream[2].dwMediaType, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(report_.Stream[2].dwFrames, 24u);
}

TEST_F(AviScanTest, SurveyOfTheStreams_CanBeStopped) {
  AviShape shape = VideoOnly();
  for (AviFrame& frame : shape.frames) frame.payload.resize(200000, 0x77);
  StoredFile file(WithoutHeaders(RecordAvi(shape.info, shape.frames)));
  std::vector<uint64_t> told;
  ZMVRecoverParam param = {};
  param.pContext = &told;
  param.pfnProgress = [](void* context, uint64_t done, uint64_t) -> uint32_t {
    std::vector<uint64_t>& all = *static_cast<std::vector<uint64_t>*>(context);
    all.push_back(done);
    return all.size() == 3 ? 1 : 0;
  };
  recover::Progress progress(param, file.Size());
  recover::AviScan scan(file, &progress);
  EXPECT_EQ(scan.Open(nullptr), Result(ZMV_E_CANCELLED));
  EXPECT_EQ(told.size(), 3u);
  EXPECT_LT(file.read_bytes(), file.Size());
}

// ---- Key frames

// What the application called a key frame stands in the index of a closed file.
TEST_F(AviScanTest, KeyFramesOfAClosedFile_AreThoseOfItsIndex) {
  AviShape shape = JpegAndPcm();
  uint32_t keys = 0;
  for (size_t i = 0; i < shape.frames.size(); ++i) {
    AviFrame& frame = shape.frames[i];
    if (frame.media != ZMV_MEDIA_VIDEO) continue;
    frame.key = i % 4 == 0;
    keys += frame.key ? 1 : 0;
  }
  const AviRecording recording = RecordAvi(shape.info, shape.frames);
  EXPECT_EQ(CompareAvi(ToFile(recording.closed), shape.info, recording.frames), "");
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(report_.Stream[0].dwKeyFrames, keys);
  // Without the index all of them can be decoded by themselves.
  ToFile(recording.open);
  EXPECT_EQ(report_.Stream[0].dwKeyFrames, report_.Stream[0].dwFrames);
}

}  // namespace
}  // namespace zmv::test
