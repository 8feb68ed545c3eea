// Ten minutes of video, sound and text, cut at every record and one byte to either side of it.
//
// What a scan makes of the bytes in front of a cut does not depend on where the recording began. So every cut is made
// in a recording that begins some frames in front of it, with every byte in the sector it has in the long one; and some
// of the cuts are made in the long one itself.
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

constexpr uint64_t kMinutes = 10;
constexpr uint64_t kSector = 512;
constexpr size_t kFramesInFront = 20;

// 30 video frames and 46.875 sound frames a second, a text ten times a second.
std::vector<TestFrame> LongFrames() {
  constexpr uint64_t kEnd = kMinutes * 60 * 1000;
  std::vector<TestFrame> frames;
  uint64_t video = 0, audio = 0, text = 0;
  const auto video_time = [&] { return (video * 1000 + 15) / 30; };
  const auto audio_time = [&] { return audio * 64 / 3; };
  uint64_t seed = 1;
  const auto payload = [&](size_t size, uint8_t first) {
    ByteVector bytes(size, first);
    for (size_t i = 5; i < size; ++i) {
      seed = seed * 6364136223846793005u + 1442695040888963407u;
      bytes[i] = static_cast<uint8_t>(1 + (seed >> 33) % 255);
    }
    return bytes;
  };
  while (video_time() < kEnd) {
    if (video_time() <= audio_time() && video_time() <= text * 100) {
      ByteVector bytes = payload(video % 30 == 0 ? 700 : 12 + video % 40, 0);
      bytes[3] = 1;
      bytes[4] = video % 30 == 0 ? 0x65 : 0x41;
      frames.push_back({ZMV_MEDIA_VIDEO, 0, video_time(), video % 3 == 2 ? 33334u : 33333u, video % 30 == 0, bytes});
      ++video;
    } else if (audio_time() <= text * 100) {
      frames.push_back(
          {ZMV_MEDIA_AUDIO, 0, audio_time(), audio % 3 == 2 ? 22u : 21u, true, payload(10 + audio % 9, 0x21)});
      ++audio;
    } else {
      frames.push_back({ZMV_MEDIA_TEXT, 0, text * 100, 100, true, payload(92, 3)});
      ++text;
    }
  }
  return frames;
}

class LongRecording : public RecoveryTest {
 protected:
  LongRecording() {
    info_.m_Video[0].dwFrameRate = 30000;
    recording_ = Record(info_, LongFrames(), 1, 120000);
  }

  // The recording from frame `first` on, cut at `end`, behind a text of such a size that every byte stays in its
  // sector.
  ByteVector Part(size_t first, uint64_t end, std::vector<TestFrame>& frames) const {
    constexpr uint64_t kRecord = 28;
    const uint64_t front = recording_.mdat + 8;
    const uint64_t from = recording_.frames[first].position;
    uint64_t pad = (from - front) % kSector;
    if (pad <= kRecord) pad += kSector;
    TestFrame filler = {ZMV_MEDIA_TEXT, 0, recording_.frames[first].time, 0, true, ByteVector(pad - kRecord, 0x20)};
    ByteVector file = First(recording_.open, front);
    const ByteVector record =
        Join({Text("RECO"), Be32(filler.media), Be32(0), Be32(static_cast<uint32_t>(filler.time)), Be32(0), Be32(0),
              Be32(static_cast<uint32_t>(filler.payload.size())), filler.payload});
    file.insert(file.end(), record.begin(), record.end());
    EXPECT_EQ((from - file.size()) % kSector, 0u);
    file.insert(file.end(), recording_.open.begin() + static_cast<ptrdiff_t>(from),
                recording_.open.begin() + static_cast<ptrdiff_t>(end));
    frames = {filler};
    for (size_t i = first; i < recording_.frames.size() && recording_.frames[i].end <= end; ++i) {
      frames.push_back(recording_.frames[i]);
    }
    return file;
  }

  // What the tables of a recovered file point at, against the places where the frames were recorded.
  std::string ComparePlaces(const ByteVector& file, size_t count) const {
    std::map<uint32_t, std::vector<uint64_t>> expected, actual;
    for (size_t i = 0; i < count; ++i) {
      const TestFrame& frame = recording_.frames[i];
      expected[frame.media].push_back(frame.end - frame.payload.size());
    }
    uint32_t media = 0;
    for (const auto& track : TableSamples(file)) {
      ++media;
      for (const Sample& sample : track) actual[media].push_back(sample.position);
    }
    if (actual != expected) return "places";
    return "";
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  Recording recording_;
};

TEST_F(LongRecording, CutAtEveryRecord_GivesTheCompleteFrames) {
  ASSERT_GT(recording_.frames.size(), 50000u);
  std::vector<TestFrame> frames;
  for (size_t i = kFramesInFront; i < recording_.frames.size(); ++i) {
    for (const uint64_t end : {recording_.frames[i].end - 1, recording_.frames[i].end, recording_.frames[i].end + 1}) {
      if (end > recording_.open.size()) continue;
      const ByteVector cut = Part(i - kFramesInFront, end, frames);
      const ByteVector made = ToFile(cut);
      ASSERT_EQ(result_, 0) << i;
      ASSERT_EQ(report_.dwFrames, frames.size()) << i << " " << end;
      ASSERT_EQ(CompareFrames(made, info_, frames), "") << i << " " << end;
      const ByteVector completed = InPlace(cut);
      ASSERT_EQ(result_, 0) << i;
      ASSERT_EQ(Difference(MoovWithoutOffsets(completed), MoovWithoutOffsets(made)), "") << i << " " << end;
      ASSERT_EQ(CompareFrames(completed, info_, frames), "") << i << " " << end;
    }
  }
}

TEST_F(LongRecording, CutInTheWholeRecording_GivesTheCompleteFrames) {
  table_bytes_ = recover::kTableBytes;
  const size_t step = recording_.frames.size() / 150;
  for (size_t i = step / 2; i < recording_.frames.size(); i += step) {
    for (const uint64_t end : {recording_.frames[i].end - 1, recording_.frames[i].end, recording_.frames[i].end + 1}) {
      const ByteVector cut = First(recording_.open, std::min<uint64_t>(end, recording_.open.size()));
      const size_t count = recording_.CompleteIn(cut.size());
      const ByteVector completed = InPlace(cut);
      ASSERT_EQ(result_, 0) << i;
      ASSERT_EQ(report_.dwFrames, count) << i;
      ASSERT_EQ(ComparePlaces(completed, count), "") << i;
      const ByteVector made = ToFile(cut);
      ASSERT_EQ(Difference(MoovWithoutOffsets(completed), MoovWithoutOffsets(made)), "") << i;
    }
  }
  const ByteVector completed = InPlace(recording_.open);
  EXPECT_EQ(Difference(BoxBytes(completed, "moov"), BoxBytes(recording_.closed, "moov")), "");
}

}  // namespace
}  // namespace zmv::test
