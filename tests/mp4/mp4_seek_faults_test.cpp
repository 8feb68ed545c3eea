// Tables that cannot be read inside a seek.
#include "tests/mp4/reader_seek.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

// Faults of the stream under the tables: the nth call from now gives `fault_code`.
int64_t (*real_read)(void*, uint32_t, void*, uint32_t);
int64_t (*real_seek)(void*, uint32_t, uint32_t);
int reads_to_fault;
int seeks_to_fault;
int64_t fault_code;

int64_t FaultyRead(void* context, uint32_t idx, void* to, uint32_t size) {
  if (reads_to_fault != 0 && --reads_to_fault == 0) return fault_code;
  return real_read(context, idx, to, size);
}
int64_t FaultySeek(void* context, uint32_t idx, uint32_t position) {
  if (seeks_to_fault != 0 && --seeks_to_fault == 0) return fault_code;
  return real_seek(context, idx, position);
}

class SeekFaults : public ReaderSeek {
 protected:
  void InjectFaults(uint32_t code) {
    real_read = stream_->ReadBuffer;
    real_seek = stream_->Seek;
    stream_->ReadBuffer = &FaultyRead;
    stream_->Seek = &FaultySeek;
    fault_code = static_cast<int32_t>(code);
    reads_to_fault = seeks_to_fault = 0;
  }
};

TEST_F(SeekFaults, FailedTableRead_GivesTheLowByteOfItsCode) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  for (auto [code, low] : {std::pair{ZMV_E_SEEK, 0x14}, {ZMV_E_FAIL, 0x00}, {ZMV_E_READ, 0x12}}) {
    InjectFaults(code);
    for (uint32_t mode : {kForward, kBackward, kNearest}) {
      host_.ClearRecords();
      uint32_t time = 1500;
      reads_to_fault = 3;
      EXPECT_EQ(MP4FReaderGetSeekPos(reader_, &Track(0), &time, mode), low);
      EXPECT_EQ(time, 1500u);
      char line[32];
      snprintf(line, sizeof(line), "err (0x%x)\n", code);
      EXPECT_TRUE(host_.Traced(line));
    }
    stream_->ReadBuffer = real_read;
    stream_->Seek = real_seek;
  }
}

// Every read and every move of a table inside every search fails once: the track reads on where it read, and taking the
// place changes nothing.
TEST_F(SeekFaults, EveryFaultInASearch_LeavesTheTrackWhereItRead) {
  TrackSpec video = Video();
  video.times = {{10, 33}, {0, 1}, {30, 33}, {50, 33}};
  video.chunks = {{{1, 1, 1}, {20, 1, 1}, {40, 1, 1}}};
  TrackSpec pcm = AudioTrack(2);
  pcm.entries = {AudioEntry("sowt", {}, 1, 16, 48000)};
  pcm.time_scale = 48000;
  for (uint32_t i = 0; i < 50; ++i) pcm.frames.push_back(Unit(static_cast<uint8_t>(i), 64));
  pcm.times = {{50, 1024}};
  pcm.duration = 50 * 1024;
  const std::vector<TrackSpec> specs = {video, pcm, Subtitle()};
  ASSERT_EQ(Describe(BuildMp4(specs)), 0u);
  InjectFaults(ZMV_E_READ);
  Advance(ZMV_MEDIA_VIDEO, 12);
  Advance(ZMV_MEDIA_AUDIO, 5);
  Advance(ZMV_MEDIA_TEXT, 3);
  const std::vector<PlainPlace> before = AllPlaces();
  for (int* counter : {&reads_to_fault, &seeks_to_fault}) {
    for (uint32_t slot = 0; slot < 3; ++slot) {
      for (uint32_t mode : {kForward, kBackward, kNearest}) {
        for (int nth = 1;; ++nth) {
          uint32_t time = 900;
          *counter = nth;
          const uint8_t result = MP4FReaderGetSeekPos(reader_, &Track(slot), &time, mode);
          const bool met = *counter == 0;
          *counter = 0;
          if (!met) {
            EXPECT_GT(nth, 2) << "stts and stco";
            EXPECT_EQ(MP4ReaderLoadStblPos(reader_, &Track(slot)), 0);
            break;
          }
          ASSERT_EQ(result, 0x12);
          ASSERT_EQ(AllPlaces(), before) << "slot " << slot << " mode " << mode << " fault " << nth;
          ASSERT_EQ(MP4FReaderStreamSeek(&Track(slot)), 1);
          ASSERT_EQ(AllPlaces(), before) << "slot " << slot << " mode " << mode << " fault " << nth;
        }
      }
    }
  }
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(12, 6));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(5, 64));
  EXPECT_EQ(Read(ZMV_MEDIA_TEXT).data, Unit(10, 3));
}

// The same with a code whose low byte is 0 inside the seeks of several tracks: not done, and nothing has moved.
TEST_F(SeekFaults, EveryFaultInASeek_LeavesEveryTrackWhereItRead) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  InjectFaults(ZMV_E_FAIL);
  Advance(ZMV_MEDIA_VIDEO, 12);
  Advance(ZMV_MEDIA_AUDIO, 5);
  Advance(ZMV_MEDIA_TEXT, 3);
  const std::vector<PlainPlace> before = AllPlaces();
  for (uint8_t flag : {uint8_t{0}, uint8_t{1}}) {
    for (auto seek : {&MP4FReaderSeekByTime, &MP4FReaderSeekByKeyFrame, &MP4FReaderSeekBySubtitle}) {
      int nth = 1;
      for (;; ++nth) {
        uint32_t time = 500;
        reads_to_fault = nth;
        const uint8_t result = seek(reader_, &time, flag);
        const bool met = reads_to_fault == 0;
        reads_to_fault = 0;
        if (!met) break;
        ASSERT_EQ(result, 0);
        ASSERT_EQ(AllPlaces(), before) << "fault " << nth;
      }
      EXPECT_GT(nth, 9) << "reads of three tracks";
      // The seek went through; back to where the next sweep begins.
      ASSERT_NE(AllPlaces(), before);
      ASSERT_EQ(GetInfo(), 0u);
      Advance(ZMV_MEDIA_VIDEO, 12);
      Advance(ZMV_MEDIA_AUDIO, 5);
      Advance(ZMV_MEDIA_TEXT, 3);
      ASSERT_EQ(AllPlaces(), before);
    }
  }
}

TEST_F(SeekFaults, FaultThatCountsAsDone_LetsTheOthersGo) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  Advance(ZMV_MEDIA_VIDEO, 12);
  InjectFaults(ZMV_E_SEEK);
  reads_to_fault = 1;
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1600") << "no leader has written the time";
  EXPECT_THAT(Samples(), ElementsAre(12, 77, 16));
}

}  // namespace
}  // namespace zmv::test
