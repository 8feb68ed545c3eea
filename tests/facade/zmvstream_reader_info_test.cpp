#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "facade/reader_facade.h"
#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class ReaderInfo : public FakePlayback {
 protected:
  // What GetInfo makes of the container's description.
  ZMVFileInfo Described() {
    ZMVFileInfo info{};
    EXPECT_EQ(ZMVReaderGetInfo(&reader_, &info), 0);
    return info;
  }
  uint32_t AudioBuffer(uint32_t bit_rate, uint32_t sample_rate) {
    fake_.info.dwAudioCount = 1;
    fake_.info.m_Audio.dwBitRate = bit_rate;
    fake_.info.m_Audio.dwSampleRate = sample_rate;
    return Described().m_Audio.dwBufferSize;
  }
  uint32_t VideoBuffer(uint32_t width, uint32_t height) {
    fake_.info.dwVideoCount = 1;
    fake_.info.m_Video[0].dwWidth = width;
    fake_.info.m_Video[0].dwHeight = height;
    return Described().m_Video[0].dwBufferSize;
  }
  uint32_t TextBuffer(uint32_t bit_rate, uint32_t rate) {
    fake_.info.dwTextCount = 1;
    fake_.info.m_Text[0].dwBitRate = bit_rate;
    fake_.info.m_Text[0].dwRate = rate;
    return Described().m_Text[0].dwBufferSize;
  }
};

TEST_F(ReaderInfo, GetInfo_AsksTheContainerForItsIndexUnderTheMutex) {
  Described();
  EXPECT_THAT(Calls(), ElementsAre("+GetInfo(1)"));
}

TEST_F(ReaderInfo, GetInfo_EmptySlot_Fails) {
  reader_.operations.GetInfo = nullptr;
  ZMVFileInfo info{};
  EXPECT_EQ(Code(ZMVReaderGetInfo(&reader_, &info)), ZMV_E_FAIL);
}

TEST_F(ReaderInfo, GetInfo_ContainerFails_GivesItsCodeAndNoDefaults) {
  fake_.info_result = Result(ZMV_E_NO_TRACK_HEADER);
  fake_.info.dwVideoCount = 1;
  reader_.operations.MakeIndex = FakeReader::Operations().MakeIndex;
  ZMVFileInfo info{};
  EXPECT_EQ(Code(ZMVReaderGetInfo(&reader_, &info)), ZMV_E_NO_TRACK_HEADER);
  EXPECT_EQ(info.dwTimeScale, 0u);
  EXPECT_EQ(reader_.m_bHasVideo, 0);
  EXPECT_EQ(host_.Count(HostCall::kThreadCreate), 0u);
}

TEST_F(ReaderInfo, GetInfo_PositiveResult_IsZero) {
  fake_.info_result = 7;
  ZMVFileInfo info{};
  EXPECT_EQ(ZMVReaderGetInfo(&reader_, &info), 0);
}

TEST_F(ReaderInfo, TimeScale_LeftOpen_Is1000) {
  EXPECT_EQ(Described().dwTimeScale, 1000u);
  fake_.info.dwTimeScale = 600;
  EXPECT_EQ(Described().dwTimeScale, 600u);
}

TEST_F(ReaderInfo, MediaFlags_FollowTheCounts) {
  fake_.info.dwAudioCount = 1;
  fake_.info.dwVideoCount = 2;
  Described();
  EXPECT_EQ(reader_.m_bHasAudio, 1);
  EXPECT_EQ(reader_.m_bHasVideo, 1);
  EXPECT_EQ(reader_.m_bHasText, 0);
  fake_.info.dwAudioCount = 0;
  fake_.info.dwTextCount = 2;
  Described();
  EXPECT_EQ(reader_.m_bHasAudio, 0);
  EXPECT_EQ(reader_.m_bHasText, 1);
}

TEST_F(ReaderInfo, MediaFlags_CountOf256_IsNotZero) {
  fake_.info.dwVideoCount = 256;
  Described();
  EXPECT_EQ(reader_.m_bHasVideo, 1);
}

TEST_F(ReaderInfo, AudioBuffer_FollowsBitRateThenSampleRate) {
  EXPECT_EQ(AudioBuffer(0, 48000), 8192u);
  EXPECT_EQ(AudioBuffer(0, 16000), 4000u);
  EXPECT_EQ(AudioBuffer(128000, 48000), 512000u);
  EXPECT_EQ(AudioBuffer(1, 16000), 512000u);
  EXPECT_EQ(AudioBuffer(0, 32771), 8192u);  // 32771 / 4
  EXPECT_EQ(AudioBuffer(0, 32768), 8192u);
  EXPECT_EQ(AudioBuffer(0, 32767), 8191u);
  EXPECT_EQ(AudioBuffer(0, 32772), 8192u);
  EXPECT_EQ(AudioBuffer(0, 40000), 8192u);
}

TEST_F(ReaderInfo, VideoBuffer_IsHalfAByteForEachPixelOfASmallPicture) {
  EXPECT_EQ(VideoBuffer(1920, 1080), 1036800u);
  EXPECT_EQ(VideoBuffer(2560, 1440), 0x100000u);
  EXPECT_EQ(VideoBuffer(1024, 2048), 1048576u);
  EXPECT_EQ(VideoBuffer(1366, 1536), 0x100000u);   // 2098176 pixels
  EXPECT_EQ(VideoBuffer(0x200001, 1), 0x100000u);  // the last small picture: 0x200001 / 2
  EXPECT_EQ(VideoBuffer(0x200002, 1), 0x100000u);
  EXPECT_EQ(VideoBuffer(0x10000, 0x10000), 0u);  // the product is taken in 32 bits
  EXPECT_EQ(VideoBuffer(0x10000, 0x10001), 32768u);
}

TEST_F(ReaderInfo, TextBuffer_IsOneFrameOfTheBitRate) {
  EXPECT_EQ(TextBuffer(8000, 1000), 1000u);
  EXPECT_EQ(TextBuffer(8000, 10000), 100u);
  EXPECT_EQ(TextBuffer(8000, 0), 1024u);
  EXPECT_EQ(TextBuffer(0, 10000), 0u);
  EXPECT_EQ(TextBuffer(40000000, 1000), 705032u);  // 40000000 x 125 modulo 2^32, over 1000
}

TEST_F(ReaderInfo, Defaults_DoNotReplaceWhatTheContainerGave) {
  fake_.info.dwDuration = 9000;
  fake_.info.dwAudioCount = fake_.info.dwVideoCount = fake_.info.dwTextCount = 1;
  fake_.info.m_Audio.dwBufferSize = 11;
  fake_.info.m_Audio.dwDuration = 8001;
  fake_.info.m_Video[0].dwBufferSize = 12;
  fake_.info.m_Video[0].dwDuration = 8002;
  fake_.info.m_Text[0].dwBufferSize = 13;
  fake_.info.m_Text[0].dwDuration = 8003;
  const ZMVFileInfo info = Described();
  EXPECT_EQ(info.m_Audio.dwBufferSize, 11u);
  EXPECT_EQ(info.m_Audio.dwDuration, 8001u);
  EXPECT_EQ(info.m_Video[0].dwBufferSize, 12u);
  EXPECT_EQ(info.m_Video[0].dwDuration, 8002u);
  EXPECT_EQ(info.m_Text[0].dwBufferSize, 13u);
  EXPECT_EQ(info.m_Text[0].dwDuration, 8003u);
}

TEST_F(ReaderInfo, AudioDuration_LeftOpen_IsThatOfTheFile) {
  fake_.info.dwDuration = 9000;
  fake_.info.dwAudioCount = 1;
  EXPECT_EQ(Described().m_Audio.dwDuration, 9000u);
}

TEST_F(ReaderInfo, Defaults_CoverEveryStreamInUseAndNoOther) {
  fake_.info.dwDuration = 9000;
  fake_.info.dwVideoCount = 8;
  fake_.info.dwTextCount = 2;
  const ZMVFileInfo info = Described();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(info.m_Video[i].dwDuration, 9000u);
  EXPECT_EQ(info.m_Video[8].dwDuration, 0u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(info.m_Text[i].dwDuration, 9000u);
    EXPECT_EQ(info.m_Text[i].dwBufferSize, 1024u);
  }
  EXPECT_EQ(info.m_Audio.dwDuration, 0u);
  EXPECT_EQ(info.m_Audio.dwBufferSize, 0u);
}

TEST_F(ReaderInfo, Defaults_CountsBeyondTheCapacity_StayWithinTheRecord) {
  fake_.info.dwDuration = 9000;
  fake_.info.dwAudioCount = fake_.info.dwVideoCount = fake_.info.dwTextCount = 0xFFFFFFFF;
  const ZMVFileInfo info = Described();
  EXPECT_EQ(info.m_Video[8].dwDuration, 9000u);
  EXPECT_EQ(info.m_Text[1].dwDuration, 9000u);
  EXPECT_EQ(info.pStreamName, nullptr);
  EXPECT_EQ(info.szSoftware[0], 0);
}

// ---- The index thread

TEST_F(ReaderInfo, IndexThread_ContainerWithoutIndex_IsNotStarted) {
  Described();
  EXPECT_EQ(host_.Count(HostCall::kThreadCreate), 0u);
  EXPECT_EQ(reader_.m_hThread, nullptr);
}

class IndexThread : public ReaderInfo {
 protected:
  IndexThread() { reader_.operations.MakeIndex = FakeReader::Operations().MakeIndex; }
  ~IndexThread() override { facade::StopIndexThread(reader_); }

  bool WaitFor(const std::function<bool()>& happened) {
    for (int i = 0; i < 5000 && !happened(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return happened();
  }
  bool Done() { return __atomic_load_n(&reader_.m_bIndexDone, __ATOMIC_ACQUIRE) != 0; }
};

TEST_F(IndexThread, GetInfo_StartsItWithItsNameAndStack) {
  fake_.index_limit = 3;
  Described();
  const std::vector<CallRecord> created = host_.Calls(HostCall::kThreadCreate);
  ASSERT_EQ(created.size(), 1u);
  EXPECT_EQ(created[0].name, "ReaderMakeIndex");
  EXPECT_EQ(created[0].size, 0x20000u);
  EXPECT_NE(reader_.m_hThread, nullptr);
}

TEST_F(IndexThread, MakeIndexFails_EndsIt) {
  fake_.index_limit = 3;
  Described();
  EXPECT_TRUE(WaitFor([&] { return Done(); }));
  facade::StopIndexThread(reader_);
  EXPECT_EQ(fake_.index_steps, 3);
  EXPECT_EQ(host_.Count(HostCall::kThreadDelete), 1u);
  EXPECT_EQ(reader_.m_hThread, nullptr);
}

TEST_F(IndexThread, Stop_EndsItBetweenTwoSteps) {
  Described();
  EXPECT_TRUE(WaitFor([&] { return fake_.index_steps > 0; }));
  EXPECT_FALSE(Done());
  facade::StopIndexThread(reader_);
  EXPECT_EQ(reader_.m_bStop, 1);
  EXPECT_TRUE(Done());
  const int steps = fake_.index_steps;
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(fake_.index_steps, steps);
}

TEST_F(IndexThread, StopSetBefore_MakesNoStep) {
  reader_.m_bStop = 1;
  Described();
  facade::StopIndexThread(reader_);
  EXPECT_EQ(fake_.index_steps, 0);
  EXPECT_TRUE(Done());
}

TEST_F(IndexThread, ItsEntryAndLeave_AreTraced) {
  fake_.index_limit = 1;
  Described();
  facade::StopIndexThread(reader_);
  std::vector<std::string> lines;
  for (const TraceRecord& trace : host_.traces()) {
    if (trace.function == "TaskReaderMakeIndex") lines.push_back(trace.module + " " + trace.text);
  }
  EXPECT_THAT(lines, ElementsAre("zmvstreamr Enter.\n", "zmvstreamr Leave.\n"));
}

TEST_F(IndexThread, SecondGetInfo_KeepsTheRunningOne) {
  Described();
  Described();
  EXPECT_EQ(host_.Count(HostCall::kThreadCreate), 1u);
}

TEST_F(IndexThread, CreateFails_GetInfoSucceedsAndSaysSo) {
  host_.Fail(HostCall::kThreadCreate, 1);
  Described();
  EXPECT_EQ(reader_.m_hThread, nullptr);
  EXPECT_THAT(host_.Traces(1), ElementsAre("ZMV_ThreadCreate failed\n"));
}

}  // namespace
}  // namespace zmv::test
