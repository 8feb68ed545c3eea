#include <gmock/gmock.h>

#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReaderFrames : public FakePlayback {
 protected:
  ReaderFrames() { HasEverything(); }

  int32_t Read(uint32_t media) {
    frame_ = ZMVFrame{};
    frame_.dwMediaType = media;
    return ZMVReaderReadFrame(&reader_, &frame_);
  }

  ZMVFrame frame_{};
};

TEST_F(ReaderFrames, ReadFrame_ForwardsEachMediumUnderTheMutex) {
  fake_.frames = {{0, 33}, {0, 21}, {0, 1000}};
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(frame_.llTimeStamp, 33u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO), 0);
  EXPECT_EQ(Read(ZMV_MEDIA_TEXT), 0);
  EXPECT_THAT(Calls(), ElementsAre("+ReadFrame(1)", "+ReadFrame(2)", "+ReadFrame(3)"));
  EXPECT_THAT(reader_.m_dwLastTS, ElementsAre(21, 33, 1000));
}

TEST_F(ReaderFrames, ReadFrame_BeforeGetInfo_Fails) {
  reader_.m_bHasAudio = reader_.m_bHasVideo = reader_.m_bHasText = 0;
  for (uint32_t media = 1; media <= 3; ++media) EXPECT_EQ(Code(Read(media)), ZMV_E_FAIL) << media;
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReaderFrames, ReadFrame_MissingMedium_FailsAndTheOthersRead) {
  fake_.frames = {{0, 1}, {0, 2}};
  reader_.m_bHasAudio = 0;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(Code(Read(ZMV_MEDIA_AUDIO)), ZMV_E_FAIL);
  reader_.m_bHasAudio = 1;
  reader_.m_bHasVideo = 0;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_FAIL);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO), 0);
}

TEST_F(ReaderFrames, ReadFrame_TextWithSubtitleSource_IsAllowed) {
  fake_.frames = {{0, 5}};
  reader_.m_bHasText = 0;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_TEXT)), ZMV_E_FAIL);
  int source = 0;
  reader_.m_hSubtitle = &source;
  EXPECT_EQ(Read(ZMV_MEDIA_TEXT), 0);
}

TEST_F(ReaderFrames, ReadFrame_UnknownMedium_DoesNothing) {
  for (const uint32_t media : {0u, 4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Read(media), 0);
    EXPECT_EQ(frame_.llTimeStamp, 0u);
  }
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReaderFrames, ReadFrame_ContainerCodes_ArriveUnchanged) {
  for (const uint32_t code : {ZMV_E_MP4_BUFFER, ZMV_E_AVI_BUFFER, ZMV_E_END, ZMV_E_READ}) {
    fake_.frames = {{Result(code), 0}};
    EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), code);
  }
  fake_.frames = {{12, 0}};
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);  // success is exactly 0
}

TEST_F(ReaderFrames, ReadFrame_EmptySlot_Fails) {
  reader_.operations.ReadFrame = nullptr;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_FAIL);
}

// ---- Time deltas

TEST_F(ReaderFrames, TimeDelta_SetTwice_AddsUpUntilReset) {
  fake_.frames = {{0, 40}, {0, 80}, {0, 120}};
  EXPECT_EQ(ZMVReaderSetTimeDelta(&reader_, 500, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(ZMVReaderSetTimeDelta(&reader_, 500, ZMV_MEDIA_VIDEO), 1);
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame_.llTimeStamp, 1040u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 40u);  // recorded before the delta
  Read(ZMV_MEDIA_AUDIO);
  EXPECT_EQ(frame_.llTimeStamp, 80u);
  EXPECT_EQ(ZMVReaderSetTimeDelta(&reader_, 0, ZMV_MEDIA_VIDEO), 1);
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame_.llTimeStamp, 120u);
}

TEST_F(ReaderFrames, TimeDelta_IsKeptPerMedium) {
  ZMVReaderSetTimeDelta(&reader_, 1, ZMV_MEDIA_AUDIO);
  ZMVReaderSetTimeDelta(&reader_, 2, ZMV_MEDIA_VIDEO);
  ZMVReaderSetTimeDelta(&reader_, 3, ZMV_MEDIA_TEXT);
  EXPECT_EQ(ZMVReaderSetTimeDelta(&reader_, 9, 4), 1);
  EXPECT_EQ(ZMVReaderSetTimeDelta(&reader_, 9, 0), 1);
  EXPECT_THAT(reader_.m_dwTimeDelta, ElementsAre(1, 2, 3));
}

TEST_F(ReaderFrames, TimeDelta_FailedRead_ShiftsTheSameRecordAgain) {
  reader_.m_dwTimeDelta[kReaderVideo] = 500;
  // A container that fails without touching the record.
  reader_.operations.ReadFrame = [](void*, ZMVFrame*) { return Result(ZMV_E_MP4_BUFFER); };
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  frame_.llTimeStamp = 40;
  EXPECT_EQ(Code(ZMVReaderReadFrame(&reader_, &frame_)), ZMV_E_MP4_BUFFER);
  EXPECT_EQ(frame_.llTimeStamp, 540u);
  EXPECT_EQ(Code(ZMVReaderReadFrame(&reader_, &frame_)), ZMV_E_MP4_BUFFER);
  EXPECT_EQ(frame_.llTimeStamp, 1040u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 540u);
}

TEST_F(ReaderFrames, LastTime_KeepsThirtyTwoBits) {
  fake_.frames = {{0, 0x100000005}};
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame_.llTimeStamp, 0x100000005u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 5u);
}

// ---- The playback window

TEST_F(ReaderFrames, Window_FirstFrameBeyondTheEnd_IsDeliveredWithTheEndCode) {
  fake_.frames = {{0, 19980}, {0, 20000}, {0, 20020}, {0, 20040}};
  ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 0);
  Calls();
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);  // exactly the end is inside
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_END);
  EXPECT_EQ(frame_.llTimeStamp, 20020u);
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_END);
  EXPECT_EQ(frame_.llTimeStamp, 0u);  // not read
  EXPECT_THAT(Calls(), ElementsAre("+ReadFrame(1)", "+ReadFrame(1)", "+ReadFrame(1)"));
}

TEST_F(ReaderFrames, Window_EachMediumEndsForItself) {
  fake_.frames = {{0, 20020}, {0, 15000}};
  reader_.dwSkipEnd = 20000;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO), 0);
}

TEST_F(ReaderFrames, Window_ShiftedTimeDecidesAboutTheFrameAndUnshiftedAboutTheNext) {
  fake_.frames = {{0, 19900}, {0, 19940}};
  reader_.dwSkipEnd = 20000;
  reader_.m_dwTimeDelta[kReaderVideo] = 200;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_END);  // 20100
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_END);  // read all the same: 19900 was not beyond the end
  EXPECT_EQ(frame_.llTimeStamp, 20140u);
}

TEST_F(ReaderFrames, Window_ContainerCodeWithinTheWindow_IsKept) {
  fake_.frames = {{Result(ZMV_E_MP4_BUFFER), 100}};
  reader_.dwSkipEnd = 20000;
  EXPECT_EQ(Code(Read(ZMV_MEDIA_VIDEO)), ZMV_E_MP4_BUFFER);
}

TEST_F(ReaderFrames, Window_Removed_ReadsOn) {
  fake_.frames = {{0, 20040}};
  reader_.dwSkipEnd = 20000;
  reader_.m_dwLastTS[kReaderVideo] = 20020;
  ZMVReaderSetSkip(&reader_, 0, 0, 0, 0);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO), 0);
}

// ---- Frame information and thumbnails

TEST_F(ReaderFrames, ReadFrameInfo_ForwardsUnderTheMutex) {
  fake_.frames = {{0, 66}};
  reader_.m_dwTimeDelta[kReaderVideo] = 4;
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(ZMVReaderReadFrameInfo(&reader_, &frame_), 0);
  EXPECT_EQ(frame_.llTimeStamp, 70u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 66u);
  EXPECT_THAT(Calls(), ElementsAre("+ReadFrameInfo(1)"));
}

TEST_F(ReaderFrames, ReadFrameInfo_EmptySlot_RecordsAndShiftsTheTime) {
  reader_.operations.ReadFrameInfo = nullptr;
  reader_.m_dwTimeDelta[kReaderAudio] = 500;
  frame_.dwMediaType = ZMV_MEDIA_AUDIO;
  frame_.llTimeStamp = 21;
  EXPECT_EQ(ZMVReaderReadFrameInfo(&reader_, &frame_), 0);
  EXPECT_EQ(frame_.llTimeStamp, 521u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderAudio], 21u);
}

TEST_F(ReaderFrames, ReadFrameInfo_HonoursWindowAndMedia) {
  reader_.dwSkipEnd = 100;
  reader_.m_dwLastTS[kReaderVideo] = 101;
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(Code(ZMVReaderReadFrameInfo(&reader_, &frame_)), ZMV_E_END);
  reader_.m_bHasAudio = 0;
  frame_.dwMediaType = ZMV_MEDIA_AUDIO;
  EXPECT_EQ(Code(ZMVReaderReadFrameInfo(&reader_, &frame_)), ZMV_E_FAIL);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReaderFrames, ReadThumb_ForwardsVideoOnly) {
  fake_.frames = {{0, 7}};
  frame_.dwMediaType = ZMV_MEDIA_AUDIO;
  EXPECT_EQ(ReaderReadThumb(&reader_, &frame_), 0);
  frame_.dwMediaType = ZMV_MEDIA_TEXT;
  EXPECT_EQ(ReaderReadThumb(&reader_, &frame_), 0);
  EXPECT_THAT(Calls(), IsEmpty());
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(ReaderReadThumb(&reader_, &frame_), 0);
  EXPECT_EQ(frame_.llTimeStamp, 7u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 7u);
  EXPECT_THAT(Calls(), ElementsAre("+ReadThumb(1)"));
}

TEST_F(ReaderFrames, ReadThumb_EmptySlot_FailsForVideoOnly) {
  reader_.operations.ReadThumb = nullptr;
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(Code(ReaderReadThumb(&reader_, &frame_)), ZMV_E_FAIL);
  frame_.dwMediaType = ZMV_MEDIA_AUDIO;
  EXPECT_EQ(ReaderReadThumb(&reader_, &frame_), 0);
}

TEST_F(ReaderFrames, ReadThumb_HonoursWindowAndMedia) {
  reader_.dwSkipEnd = 100;
  reader_.m_dwLastTS[kReaderVideo] = 101;
  frame_.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(Code(ReaderReadThumb(&reader_, &frame_)), ZMV_E_END);
  reader_.m_bHasVideo = 0;
  EXPECT_EQ(Code(ReaderReadThumb(&reader_, &frame_)), ZMV_E_FAIL);
  EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace
}  // namespace zmv::test
