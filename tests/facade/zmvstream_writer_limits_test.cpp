#include <gmock/gmock.h>

#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int64_t kMiB = 1024 * 1024;
constexpr int64_t kReserve = 10 * kMiB;
constexpr char kPath[] = "card/drive.mp4";

// A writer handle on a fake container, with room for everything.
class WriterLimits : public ::testing::Test {
 protected:
  WriterLimits() {
    writer_.hWriter = &fake_;
    writer_.m_hMutex = ZMV_MutexCreate();
    writer_.operations = FakeWriter::Operations();
    writer_.m_llFreeSpace = int64_t{1} << 40;
    ZMV_snprintf(writer_.m_szPath, sizeof writer_.m_szPath, "%s", kPath);
  }
  ~WriterLimits() override {
    EXPECT_EQ(host_.Count(HostCall::kMutexLock), host_.Count(HostCall::kMutexUnLock));
    ZMV_MutexDestroy(writer_.m_hMutex);
  }

  // Writes one frame; whatever happens, its size is 0 afterwards.
  uint32_t Write(uint32_t size, uint32_t media = ZMV_MEDIA_VIDEO, uint64_t time = 0, uint32_t duration = 0) {
    ZMVFrame frame{};
    frame.dwSize = size;
    frame.dwMediaType = media;
    frame.llTimeStamp = time;
    frame.dwDuration = duration;
    const int32_t result = ZMVWriterWrite(&writer_, &frame);
    EXPECT_EQ(frame.dwSize, 0u);
    return Code(result);
  }
  std::vector<std::string> Messages() {
    std::vector<std::string> messages;
    for (const TraceRecord& trace : host_.traces()) {
      if (trace.level < 4) messages.push_back(std::to_string(trace.level) + " " + trace.module + " " + trace.text);
    }
    return messages;
  }

  ScriptedHost host_;
  FakeWriter fake_;
  ZMVWriter writer_{};
};

// ---- Free space

TEST_F(WriterLimits, DiskSpace_Enough_IsNotMeasuredAgain) {
  fake_.size = 1000;
  writer_.m_llFreeSpace = 1500;
  EXPECT_EQ(Write(500), 0u);
  EXPECT_EQ(host_.Count(HostCall::kDiskSpace), 0u);
  EXPECT_THAT(fake_.calls, ElementsAre("+WriteFrame(1, 500)"));
}

TEST_F(WriterLimits, DiskSpace_RecheckFindsRoom_WritesAndKeepsTheNewMeasure) {
  fake_.size = 1000;
  writer_.m_llFreeSpace = 1499;
  host_.free_space = kReserve + 1500;
  EXPECT_EQ(Write(500), 0u);
  EXPECT_EQ(writer_.m_llFreeSpace, 1500);
  EXPECT_EQ(host_.Calls(HostCall::kDiskSpace).at(0).name, kPath);
  EXPECT_THAT(Messages(),
              ElementsAre("2 zmvstreamw [Writer] WriterWrite Disk free space (1499) media size (1500) check again\n",
                          "3 zmvstreamw [Writer] WriterWrite Disk free space recheck freespace(1500)\n"));
}

TEST_F(WriterLimits, DiskSpace_StillTooSmall_IsFull) {
  fake_.size = 1000;
  writer_.m_llFreeSpace = 0;
  host_.free_space = kReserve + 1499;
  EXPECT_EQ(Write(500), ZMV_E_DISK_FULL);
  EXPECT_EQ(writer_.m_llFreeSpace, 1499);
  EXPECT_THAT(fake_.calls, IsEmpty());
  EXPECT_THAT(
      Messages(),
      ElementsAre("2 zmvstreamw [Writer] WriterWrite Disk free space (0) media size (1500) check again\n",
                  "3 zmvstreamw [Writer] WriterWrite Disk free space recheck freespace(1499)\n",
                  "2 zmvstreamw [Writer] WriterWrite Disk free space (1499) media size (1500) disk full error\n"));
}

TEST_F(WriterLimits, DiskSpace_UnderTheReserve_IsFull) {
  writer_.m_llFreeSpace = 99;
  host_.free_space = kReserve - 1;
  EXPECT_EQ(Write(100), ZMV_E_DISK_FULL);
  EXPECT_EQ(writer_.m_llFreeSpace, 0);
  EXPECT_THAT(Messages(),
              ElementsAre("2 zmvstreamw [Writer] WriterWrite Disk free space (99) media size (100) check again\n",
                          "1 zmvstreamw [Writer] WriterWrite Disk free space is under 10Mb freespace(10485759)\n",
                          "2 zmvstreamw [Writer] WriterWrite Disk free space (0) media size (100) disk full error\n"));
}

TEST_F(WriterLimits, DiskSpace_ExactlyTheReserve_LeavesNothing) {
  writer_.m_llFreeSpace = 0;
  host_.free_space = kReserve;
  EXPECT_EQ(Write(1), ZMV_E_DISK_FULL);
  EXPECT_THAT(Messages(), Contains("3 zmvstreamw [Writer] WriterWrite Disk free space recheck freespace(0)\n"));
  fake_.size = 0;
  EXPECT_EQ(Write(0), 0u);  // nothing needs nothing
}

TEST_F(WriterLimits, DiskSpace_CannotBeMeasured_IsFull) {
  writer_.m_llFreeSpace = 0;
  host_.Fail(HostCall::kDiskSpace, 1);
  EXPECT_EQ(Write(1), ZMV_E_DISK_FULL);
}

TEST_F(WriterLimits, DiskSpace_WrittenByTarget_IsNotMeasured) {
  writer_.m_pszTarget = "target";
  writer_.m_szPath[0] = 0;
  writer_.m_llFreeSpace = 99;
  EXPECT_EQ(Write(100), ZMV_E_DISK_FULL);
  EXPECT_EQ(host_.Count(HostCall::kDiskSpace), 0u);
  EXPECT_EQ(Write(99), 0u);
}

TEST_F(WriterLimits, DiskSpace_SizesBeyond2GiB_DoNotWrap) {
  fake_.size = 0xFFFFFF00;
  writer_.m_llFreeSpace = 0x100000000;
  EXPECT_EQ(Write(0x100), 0u);
  EXPECT_EQ(Write(0x101, ZMV_MEDIA_VIDEO), 0u);  // measured again: there is room
  host_.free_space = 0;
  writer_.m_llFreeSpace = 0x100000000;
  EXPECT_EQ(Write(0x101), ZMV_E_DISK_FULL);
}

// ---- The caller's limits

TEST_F(WriterLimits, FileSize_ExactlyTheLimit_IsWritten) {
  writer_.m_llMaxFileSize = 5000;
  fake_.size = 4000;
  EXPECT_EQ(Write(1000), 0u);
  EXPECT_EQ(Write(1001), ZMV_E_WRITE);
  EXPECT_THAT(fake_.calls, ElementsAre("+WriteFrame(1, 1000)"));
}

TEST_F(WriterLimits, FileSize_LimitAbove2GiB_IsHonoured) {
  writer_.m_llMaxFileSize = 0xFFFFFFFF;
  fake_.size = 0xFFFFFFF0;
  EXPECT_EQ(Write(15), 0u);
  EXPECT_EQ(Write(16), ZMV_E_WRITE);
}

TEST_F(WriterLimits, Duration_GraceOf100_IsGiven) {
  writer_.m_dwMaxDuration = 60000;
  EXPECT_EQ(Write(1, ZMV_MEDIA_VIDEO, 60050, 50), 0u);
  EXPECT_EQ(Write(1, ZMV_MEDIA_VIDEO, 60051, 50), ZMV_E_WRITE);
  EXPECT_EQ(Write(1, ZMV_MEDIA_AUDIO, 60100, 0), 0u);
  EXPECT_EQ(Write(1, ZMV_MEDIA_AUDIO, 60101, 0), ZMV_E_WRITE);
}

TEST_F(WriterLimits, Duration_LargestValues_DoNotWrap) {
  writer_.m_dwMaxDuration = 0xFFFFFFFF;
  EXPECT_EQ(Write(1, ZMV_MEDIA_VIDEO, 0xFFFFFFFF, 100), 0u);
  EXPECT_EQ(Write(1, ZMV_MEDIA_VIDEO, 0xFFFFFFFF, 101), ZMV_E_WRITE);
  EXPECT_EQ(Write(1, ZMV_MEDIA_VIDEO, UINT64_MAX, 1), ZMV_E_WRITE);
}

TEST_F(WriterLimits, Frames_OneMoreVideoFrameIsWritten) {
  writer_.m_dwMaxFrames = 10;
  for (int i = 0; i < 11; ++i) {
    EXPECT_EQ(Write(1, ZMV_MEDIA_AUDIO), 0u);
    EXPECT_EQ(Write(1, ZMV_MEDIA_TEXT), 0u);
    EXPECT_EQ(Write(1), 0u) << i;
  }
  EXPECT_EQ(writer_.m_dwVideoFrames, 11u);
  EXPECT_EQ(Write(1), ZMV_E_WRITE);
  EXPECT_EQ(Write(1, ZMV_MEDIA_AUDIO), ZMV_E_WRITE);  // every medium is refused now
  EXPECT_EQ(Write(1, ZMV_MEDIA_TEXT), ZMV_E_WRITE);
}

TEST_F(WriterLimits, NoLimits_NothingIsRefused) {
  writer_.m_dwVideoFrames = 0xFFFFFFF0;
  EXPECT_EQ(Write(0xFFFFFFFF, ZMV_MEDIA_VIDEO, UINT64_MAX, 0xFFFFFFFF), 0u);
}

TEST_F(WriterLimits, FullDisk_IsSaidBeforeAReachedLimit) {
  writer_.m_llMaxFileSize = 10;
  writer_.m_llFreeSpace = 0;
  host_.free_space = 0;
  EXPECT_EQ(Write(100), ZMV_E_DISK_FULL);
}

TEST_F(WriterLimits, RefusedFrame_TracesNoErrorLine) {
  writer_.m_llMaxFileSize = 10;
  EXPECT_EQ(Write(100), ZMV_E_WRITE);
  EXPECT_THAT(host_.Traces(1), IsEmpty());
}

// ---- Writing

TEST_F(WriterLimits, Write_ContainerFails_GivesItsCodeAndCountsNoFrame) {
  for (const uint32_t code : {ZMV_E_WRITE, ZMV_E_MEMORY, 0xFFFFFFFFu}) {
    fake_.result = Result(code);
    EXPECT_EQ(Write(100), code);
  }
  EXPECT_EQ(writer_.m_dwVideoFrames, 0u);
  EXPECT_THAT(host_.Traces(1), ElementsAre("[Writer] WriterWriteFrame - Write failed (0x80000013)\n",
                                           "[Writer] WriterWriteFrame - Write failed (0x80000001)\n",
                                           "[Writer] WriterWriteFrame - Write failed (0xffffffff)\n"));
}

TEST_F(WriterLimits, Write_PositiveResult_IsZero) {
  fake_.result = 100;
  EXPECT_EQ(Write(100), 0u);
  EXPECT_EQ(writer_.m_dwVideoFrames, 1u);
}

TEST_F(WriterLimits, Write_WaitsForTheMutexWithoutLimit) {
  Write(1);
  ASSERT_EQ(host_.Calls(HostCall::kMutexLock).size(), 1u);
  EXPECT_EQ(host_.Calls(HostCall::kMutexLock)[0].size, 0x7FFFFFFFu);
}

TEST_F(WriterLimits, Write_CountsVideoOnly) {
  Write(1, ZMV_MEDIA_AUDIO);
  Write(1, ZMV_MEDIA_TEXT);
  Write(1, 7);
  EXPECT_EQ(writer_.m_dwVideoFrames, 0u);
  Write(1, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(writer_.m_dwVideoFrames, 1u);
}

TEST_F(WriterLimits, Write_ContainerWithoutSize_IsJudgedByTheStream) {
  writer_.operations.GetCurSize = nullptr;
  TestStream stream("a.bin", ZMV_STREAM_WRITE);
  ZMVStreamBuf_WriteBuffer(stream.Get(), stream.Cursor(), "12345678", 8);
  writer_.m_hInOut = stream.Get();
  writer_.m_llMaxFileSize = 10;
  EXPECT_EQ(ZMVWriterGetSize(&writer_), 8u);
  EXPECT_EQ(Write(2), 0u);
  EXPECT_EQ(Write(3), ZMV_E_WRITE);
}

// ---- What else a handle forwards

TEST_F(WriterLimits, SetInfo_ForwardsUnlockedAndHandsFailuresOn) {
  ZMVFileInfo info{};
  info.dwVideoCount = 2;
  fake_.result = 5;
  EXPECT_EQ(ZMVWriterSetInfo(&writer_, &info, 0x100000000), 0);
  fake_.result = Result(ZMV_E_MEMORY);
  EXPECT_EQ(Code(ZMVWriterSetInfo(&writer_, &info, 1)), ZMV_E_MEMORY);
  EXPECT_THAT(fake_.calls, ElementsAre("SetInfo(2, 4294967296)", "SetInfo(2, 1)"));
  writer_.operations.SetInfo = nullptr;
  EXPECT_EQ(ZMVWriterSetInfo(&writer_, &info, 1), 0);
}

TEST_F(WriterLimits, GetSize_IsTheContainersProjection) {
  fake_.size = 0xFFFFFFFF;
  EXPECT_EQ(ZMVWriterGetSize(&writer_), 0xFFFFFFFFu);
}

TEST_F(WriterLimits, SetSync_GoesToTheContainerElseToTheStream) {
  EXPECT_EQ(ZMVWriterSetSync(&writer_, 1), 0);
  EXPECT_THAT(fake_.calls, ElementsAre("SetSync(1)"));
  fake_.result = Result(ZMV_E_FAIL);
  EXPECT_EQ(Code(ZMVWriterSetSync(&writer_, 1)), ZMV_E_FAIL);
  writer_.operations.SetSync = nullptr;
  TestStream stream("a.bin", ZMV_STREAM_WRITE);
  writer_.m_hInOut = stream.Get();
  EXPECT_EQ(ZMVWriterSetSync(&writer_, 1), 0);
  stream.Close();
  EXPECT_EQ(host_.Count(HostCall::kSync), 1u);
}

}  // namespace
}  // namespace zmv::test
