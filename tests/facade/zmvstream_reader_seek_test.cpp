#include <gmock/gmock.h>

#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReaderSeek : public FakePlayback {
 protected:
  void Window(uint32_t start, uint32_t end) {
    reader_.dwSkipStart = start;
    reader_.dwSkipEnd = end;
  }
  uint8_t ByTime(uint32_t time, uint8_t flag) {
    time_ = time;
    return ZMVReaderSeekByTime(&reader_, &time_, flag);
  }
  uint8_t ByKeyFrame(uint32_t time, uint8_t flag) {
    time_ = time;
    return ZMVReaderSeekByKeyFrame(&reader_, &time_, flag);
  }
  uint8_t ByMedia(uint32_t time, uint32_t media) {
    time_ = time;
    return ZMVReaderSeekByMedia(&reader_, &time_, media);
  }
  uint8_t BySubtitle(uint32_t time, uint8_t flag) {
    time_ = time;
    return ZMVReaderSeekBySubtitle(&reader_, &time_, flag);
  }

  uint32_t time_ = 0;  // the time reached
};

// ---- By time

TEST_F(ReaderSeek, ByTime_ForwardsUnderTheMutexAndSetsEveryLastTime) {
  fake_.seeks = {{1, 4966}};
  EXPECT_EQ(ByTime(5000, 0), 1);
  EXPECT_EQ(time_, 4966u);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(5000, 0)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(4966));
}

TEST_F(ReaderSeek, ByTime_FlagsAndFailuresPassThrough) {
  fake_.seeks = {{0, 5000}, {0x14, 70}};
  EXPECT_EQ(ByTime(5000, 1), 0);
  EXPECT_EQ(ByTime(60, 7), 0x14);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(5000, 1)", "+SeekByTime(60, 7)"));
}

TEST_F(ReaderSeek, ByTime_EmptySlot_IsNotPossible) {
  reader_.operations.SeekByTime = nullptr;
  EXPECT_EQ(ByTime(5000, 0), 0);
  EXPECT_THAT(reader_.m_dwLastTS, Each(5000));
}

TEST_F(ReaderSeek, ByTime_BeforeTheWindow_IsRaisedToItsStart) {
  Window(10000, 20000);
  EXPECT_EQ(ByTime(3000, 0), 1);
  EXPECT_EQ(ByTime(10000, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(10000, 0)", "+SeekByTime(10000, 0)"));
}

TEST_F(ReaderSeek, ByTime_BehindTheWindow_DoesNothing) {
  Window(10000, 20000);
  reader_.m_dwLastTS[kReaderVideo] = 77;
  EXPECT_EQ(ByTime(20001, 0), 0);
  EXPECT_EQ(time_, 20001u);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 77u);
}

TEST_F(ReaderSeek, ByTime_WindowWithoutStart_HasItsEnd) {
  Window(0, 20000);
  EXPECT_EQ(ByTime(0, 0), 1);
  EXPECT_EQ(ByTime(20001, 0), 0);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(0, 0)"));
}

TEST_F(ReaderSeek, ByTime_WindowWithoutEnd_HasItsStart) {
  Window(10000, 0);
  EXPECT_EQ(ByTime(5, 0), 1);
  EXPECT_EQ(ByTime(4000000000, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(10000, 0)", "+SeekByTime(4000000000, 0)"));
}

TEST_F(ReaderSeek, ByTime_LandsAtTheEnd_SeeksTheStartWithFlag1) {
  Window(10000, 20000);
  fake_.seeks = {{1, 20000}, {1, 9990}};
  EXPECT_EQ(ByTime(19990, 0), 1);
  EXPECT_EQ(time_, 9990u);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(19990, 0)", "+SeekByTime(10000, 1)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(9990));
}

TEST_F(ReaderSeek, ByTime_SecondSeekDecides) {
  Window(10000, 20000);
  fake_.seeks = {{1, 20100}, {0, 10000}};
  EXPECT_EQ(ByTime(19990, 0), 0);
  EXPECT_EQ(time_, 10000u);
  fake_.seeks = {{0, 20000}, {1, 10020}};
  EXPECT_EQ(ByTime(20000, 0), 1);  // exactly the end may be asked for
}

TEST_F(ReaderSeek, ByTime_LandsJustBeforeTheEnd_Stays) {
  Window(10000, 20000);
  fake_.seeks = {{1, 19999}};
  EXPECT_EQ(ByTime(20000, 0), 1);
  EXPECT_EQ(time_, 19999u);
}

// ---- By key frame

TEST_F(ReaderSeek, ByKeyFrame_ForwardsTheFlagUnderTheMutex) {
  fake_.seeks = {{1, 6000}};
  EXPECT_EQ(ByKeyFrame(5000, 1), 1);
  EXPECT_EQ(time_, 6000u);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByKeyFrame(5000, 1)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(6000));
}

TEST_F(ReaderSeek, ByKeyFrame_EmptySlot_SeeksByTimeWithFlag0) {
  reader_.operations.SeekByKeyFrame = nullptr;
  fake_.seeks = {{1, 4000}};
  EXPECT_EQ(ByKeyFrame(5000, 1), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByTime(5000, 0)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(4000));
}

TEST_F(ReaderSeek, ByKeyFrame_NoSlotAtAll_IsNotPossible) {
  reader_.operations.SeekByKeyFrame = nullptr;
  reader_.operations.SeekByTime = nullptr;
  EXPECT_EQ(ByKeyFrame(5000, 1), 0);
}

TEST_F(ReaderSeek, ByKeyFrame_WindowBoundsTheTargetOnly) {
  Window(10000, 20000);
  EXPECT_EQ(ByKeyFrame(20001, 0), 0);
  fake_.seeks = {{1, 21000}};
  EXPECT_EQ(ByKeyFrame(1, 1), 1);
  EXPECT_EQ(time_, 21000u);  // the place reached is not judged
  EXPECT_THAT(Calls(), ElementsAre("+SeekByKeyFrame(10000, 1)"));
}

// ---- By medium

TEST_F(ReaderSeek, ByMedia_SetsTheLastTimeOfThatMediumOnly) {
  fake_.seeks = {{1, 4980}};
  EXPECT_EQ(ByMedia(5000, ZMV_MEDIA_AUDIO), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByMedia(5000, 2)"));
  EXPECT_THAT(reader_.m_dwLastTS, ElementsAre(4980, 0, 0));
  ByMedia(7000, ZMV_MEDIA_TEXT);
  EXPECT_THAT(reader_.m_dwLastTS, ElementsAre(4980, 0, 7000));
}

TEST_F(ReaderSeek, ByMedia_UnknownMedium_SetsNone) {
  EXPECT_EQ(ByMedia(5000, 9), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByMedia(5000, 9)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(0));
}

TEST_F(ReaderSeek, ByMedia_WindowAndEmptySlot) {
  Window(10000, 20000);
  EXPECT_EQ(ByMedia(20001, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(ByMedia(1, ZMV_MEDIA_VIDEO), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekByMedia(10000, 1)"));
  reader_.operations.SeekByMedia = nullptr;
  EXPECT_EQ(ByMedia(12000, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 12000u);
}

// ---- By subtitle

TEST_F(ReaderSeek, BySubtitle_KnowsNoWindow) {
  Window(10000, 20000);
  fake_.seeks = {{1, 30500}};
  EXPECT_EQ(BySubtitle(30000, 1), 1);
  EXPECT_EQ(time_, 30500u);
  EXPECT_EQ(BySubtitle(5, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("+SeekBySubtitle(30000, 1)", "+SeekBySubtitle(5, 0)"));
  EXPECT_THAT(reader_.m_dwLastTS, Each(5));
}

TEST_F(ReaderSeek, BySubtitle_EmptySlot_IsNotPossible) {
  reader_.operations.SeekBySubtitle = nullptr;
  EXPECT_EQ(BySubtitle(5000, 0), 0);
}

// ---- Start

TEST_F(ReaderSeek, Start_WithSlot_ForwardsUnlocked) {
  uint32_t time = 500;
  EXPECT_EQ(ZMVReaderStart(&reader_, &time), 0);
  EXPECT_EQ(ZMVReaderStart(&reader_, nullptr), 0);
  fake_.result = Result(ZMV_E_READ);
  EXPECT_EQ(Code(ZMVReaderStart(&reader_, &time)), ZMV_E_READ);
  EXPECT_THAT(Calls(), ElementsAre("Start(500)", "Start(null)", "Start(500)"));
}

TEST_F(ReaderSeek, Start_WithoutSlot_SeeksUnlessTheTimeIsZero) {
  reader_.operations.Start = nullptr;
  uint32_t time = 0;
  EXPECT_EQ(ZMVReaderStart(&reader_, nullptr), 0);
  EXPECT_EQ(ZMVReaderStart(&reader_, &time), 0);
  EXPECT_THAT(Calls(), IsEmpty());
  fake_.seeks = {{1, 480}, {0, 700}};
  time = 500;
  EXPECT_EQ(ZMVReaderStart(&reader_, &time), 0);
  EXPECT_EQ(time, 480u);
  time = 700;
  EXPECT_EQ(Code(ZMVReaderStart(&reader_, &time)), ZMV_E_FAIL);
  EXPECT_THAT(Calls(), ElementsAre("SeekByTime(500, 0)", "SeekByTime(700, 0)"));
}

TEST_F(ReaderSeek, Start_NothingToSeekWith_Fails) {
  reader_.operations.Start = nullptr;
  reader_.operations.SeekByTime = nullptr;
  uint32_t time = 500;
  EXPECT_EQ(Code(ZMVReaderStart(&reader_, &time)), ZMV_E_FAIL);
}

// ---- The playback window

TEST_F(ReaderSeek, SetSkip_Disable_ClearsBothBounds) {
  Window(10000, 20000);
  EXPECT_EQ(ZMVReaderSetSkip(&reader_, 1, 2, 0, 1), 1);
  EXPECT_EQ(reader_.dwSkipStart, 0u);
  EXPECT_EQ(reader_.dwSkipEnd, 0u);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReaderSeek, SetSkip_StartAhead_SeeksUnlockedAndBeginsWhereItLands) {
  fake_.seeks = {{1, 9980}};
  reader_.m_dwLastTS[kReaderText] = 50000;  // text does not count
  EXPECT_EQ(ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("SeekByTime(10000, 0)"));
  EXPECT_EQ(reader_.dwSkipStart, 9980u);
  EXPECT_EQ(reader_.dwSkipEnd, 20000u);
  EXPECT_EQ(reader_.m_dwLastTS[kReaderVideo], 0u);
}

TEST_F(ReaderSeek, SetSkip_StartNotAheadOfBoth_DoesNotSeek) {
  for (const uint32_t slot : {kReaderAudio, kReaderVideo}) {
    reader_.m_dwLastTS[kReaderAudio] = reader_.m_dwLastTS[kReaderVideo] = 5000;
    reader_.m_dwLastTS[slot] = 10000;
    EXPECT_EQ(ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 0), 1);
    EXPECT_EQ(reader_.dwSkipStart, 10000u);
  }
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReaderSeek, SetSkip_Force_SeeksBackToo) {
  reader_.m_dwLastTS[kReaderAudio] = reader_.m_dwLastTS[kReaderVideo] = 15000;
  EXPECT_EQ(ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 1), 1);
  EXPECT_THAT(Calls(), ElementsAre("SeekByTime(10000, 0)"));
}

TEST_F(ReaderSeek, SetSkip_LandsNotBelowTheEnd_SeeksAgainWithFlag1) {
  fake_.seeks = {{1, 20000}, {1, 10021}};
  EXPECT_EQ(ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("SeekByTime(10000, 0)", "SeekByTime(10000, 1)"));
  EXPECT_EQ(reader_.dwSkipStart, 10021u);
}

TEST_F(ReaderSeek, SetSkip_EmptySlot_StillSetsTheWindow) {
  reader_.operations.SeekByTime = nullptr;
  EXPECT_EQ(ZMVReaderSetSkip(&reader_, 10000, 20000, 1, 1), 1);
  EXPECT_EQ(reader_.dwSkipStart, 10000u);
  EXPECT_EQ(reader_.dwSkipEnd, 20000u);
}

// ---- Tracks

TEST_F(ReaderSeek, ChangeTrack_PassesTheLastTimeOfTheMedium) {
  reader_.m_dwLastTS[kReaderAudio] = 11;
  reader_.m_dwLastTS[kReaderVideo] = 22;
  reader_.m_dwLastTS[kReaderText] = 33;
  fake_.result = 1;
  EXPECT_EQ(ZMVReaderChangeTrack(&reader_, 4, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(ZMVReaderChangeTrack(&reader_, 5, ZMV_MEDIA_AUDIO), 1);
  fake_.result = 0;
  EXPECT_EQ(ZMVReaderChangeTrack(&reader_, 6, ZMV_MEDIA_TEXT), 0);
  EXPECT_THAT(Calls(), ElementsAre("ChangeTrack(4, 22, 1)", "ChangeTrack(5, 11, 2)", "ChangeTrack(6, 33, 3)"));
}

TEST_F(ReaderSeek, ChangeTrack_OtherMediumOrEmptySlot_HasNothingToDo) {
  EXPECT_EQ(ZMVReaderChangeTrack(&reader_, 0, 4), 1);
  reader_.operations.ChangeTrack = nullptr;
  EXPECT_EQ(ZMVReaderChangeTrack(&reader_, 0, ZMV_MEDIA_VIDEO), 1);
  EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace
}  // namespace zmv::test
