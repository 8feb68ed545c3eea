#include "facade/zmvstream_writer.h"

#include <gmock/gmock.h>

#include "facade/zmvstream_writer_records.h"
#include "tests/facade/small_recording.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

constexpr char kPath[] = "drive.mp4";
constexpr char kTarget[] = "target.mp4";
constexpr int64_t kReserve = 10 * 1024 * 1024;

int g_closed_descriptor = -2;
std::string g_closed_path;
void NoteClosed(int descriptor, const char* path) {
  g_closed_descriptor = descriptor;
  g_closed_path = path;
}

class Writer : public ::testing::Test {
 protected:
  ~Writer() override {
    EXPECT_THAT(host_.LiveList(), ElementsAre());
    EXPECT_EQ(host_.Count(HostCall::kMutexCreate), host_.Count(HostCall::kMutexDestroy) + lost_mutexes_);
    ZMVStreamBuf_SetOption(0, nullptr);
  }

  uint32_t Open(const ZMVWriterParam& param) {
    writer_ = nullptr;
    return Code(ZMVWriterOpen(&writer_, &param));
  }
  uint64_t OpenFiles() { return host_.Calls(HostCall::kOpen).size() - host_.Calls(HostCall::kClose).size(); }

  ScriptedHost host_;
  ZMVWriter* writer_ = nullptr;
  uint64_t lost_mutexes_ = 0;  // creations that were made to fail
};

// ---- Choosing the container

TEST_F(Writer, Select_Mp4_FillsTheTable) {
  ZMVWriter writer{};
  EXPECT_EQ(SelectWriter(&writer, ZMV_FORMAT_MP4), 0);
  EXPECT_NE(writer.operations.Open, nullptr);
  EXPECT_NE(writer.operations.Close, nullptr);
  EXPECT_NE(writer.operations.SetInfo, nullptr);
  EXPECT_NE(writer.operations.GetCurSize, nullptr);
  EXPECT_NE(writer.operations.WriteFrame, nullptr);
  EXPECT_EQ(writer.operations.Reserved, nullptr);
  EXPECT_EQ(writer.operations.SetSync, nullptr);
  EXPECT_THAT(host_.Traces(3), ElementsAre("File format MP4 selected\n"));
}

TEST_F(Writer, Select_Avi_FillsTheTable) {
  ZMVWriter writer{};
  EXPECT_EQ(SelectWriter(&writer, ZMV_FORMAT_AVI), 0);
  EXPECT_NE(writer.operations.Open, nullptr);
  EXPECT_NE(writer.operations.Close, nullptr);
  EXPECT_NE(writer.operations.SetInfo, nullptr);
  EXPECT_NE(writer.operations.GetCurSize, nullptr);
  EXPECT_NE(writer.operations.WriteFrame, nullptr);
  EXPECT_EQ(writer.operations.Reserved, nullptr);
  EXPECT_EQ(writer.operations.SetSync, nullptr);
  EXPECT_THAT(host_.Traces(3), ElementsAre("File format AVI selected\n"));
}

TEST_F(Writer, Select_FormatThatCannotBeWritten_IsRefused) {
  for (const uint32_t format : {2u, 3u, 0xFFFFFFFFu}) {
    host_.ClearRecords();
    ZMVWriter writer{};
    EXPECT_EQ(Code(SelectWriter(&writer, format)), ZMV_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(writer.operations.Close, nullptr);
    EXPECT_THAT(host_.Traces(1), ElementsAre("can not support File format\n"));
  }
}

TEST_F(Writer, Open_UnknownFormat_ClosesTheStream) {
  for (const uint32_t format : {2u, 0xFFFFFFFFu}) {
    ZMVWriterParam param = SmallParam(kPath);
    param.dwFormat = format;
    EXPECT_EQ(Open(param), ZMV_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(writer_, nullptr);
    EXPECT_EQ(OpenFiles(), 0u);
  }
}

// ---- Opening

TEST_F(Writer, Open_ByPath_KeepsItAndTheLimits) {
  ZMVWriterParam param = SmallParam(kPath);
  param.dwMaxFileSize = 0xFFFFFFFF;
  param.dwMaxDuration = 60000;
  param.dwMaxFrames = 10;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_STREQ(ZMVWriterGetFilePath(writer_), kPath);
  EXPECT_EQ(writer_->m_pszTarget, nullptr);
  EXPECT_EQ(writer_->m_llMaxFileSize, 0xFFFFFFFF);
  EXPECT_EQ(writer_->m_dwMaxDuration, 60000u);
  EXPECT_EQ(writer_->m_dwMaxFrames, 10u);
  EXPECT_EQ(writer_->m_dwVideoFrames, 0u);
  EXPECT_EQ(host_.Calls(HostCall::kOpen).at(0).name, kPath);
  EXPECT_EQ(host_.Calls(HostCall::kOpen).at(0).position, 27u);
  ZMVWriterClose(writer_);
  EXPECT_EQ(OpenFiles(), 0u);
}

TEST_F(Writer, Open_ByTarget_WritesThereAndMeasuresThePath) {
  ZMVWriterParam param = SmallParam("card/any");
  param.pszTarget = kTarget;
  param.dwTargetSize = 77;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_STREQ(ZMVWriterGetFilePath(writer_), "");
  EXPECT_EQ(writer_->m_pszTarget, kTarget);
  EXPECT_TRUE(host_.Exists(kTarget));
  EXPECT_FALSE(host_.Exists("card/any"));
  EXPECT_EQ(host_.Calls(HostCall::kDiskSpace).at(0).name, "card/any");
  ZMVWriterClose(writer_);
}

TEST_F(Writer, Open_TargetWithoutPath_MeasuresTheTarget) {
  ZMVWriterParam param = SmallParam(nullptr);
  param.pszTarget = kTarget;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_EQ(host_.Calls(HostCall::kDiskSpace).at(0).name, kTarget);
  ZMVWriterClose(writer_);
}

TEST_F(Writer, Open_NoName_CannotBeOpened) {
  EXPECT_EQ(Open(SmallParam(nullptr)), ZMV_E_OPEN);
  EXPECT_EQ(host_.Count(HostCall::kOpen), 0u);
}

TEST_F(Writer, Open_StreamFails_GivesItsCodeAndSaysSo) {
  host_.Fail(HostCall::kOpen, 1);
  EXPECT_EQ(Open(SmallParam(kPath)), ZMV_E_OPEN);
  EXPECT_EQ(writer_, nullptr);
  EXPECT_THAT(host_.Traces(1), Contains("[Writer] WriterOpen - StreamInOutOpen error!!!\n"));
}

TEST_F(Writer, Open_PathOf256Bytes_IsRefused) {
  const std::string path(256, 'p');
  EXPECT_EQ(Open(SmallParam(path.c_str())), ZMV_E_OPEN);
  const std::string longest(255, 'p');
  ASSERT_EQ(Open(SmallParam(longest.c_str())), 0u);
  EXPECT_EQ(ZMVWriterGetFilePath(writer_), longest);
  ZMVWriterClose(writer_);
}

TEST_F(Writer, Open_NoMemory_SaysTheSizeOfTheHandle) {
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(Open(SmallParam(kPath)), ZMV_E_MEMORY);
  EXPECT_THAT(host_.Traces(1), ElementsAre("ZMVWriter alloc failed. size(384)\n"));
}

TEST_F(Writer, Open_EveryAllocation_MadeToFail) {
  uint64_t failures = 0;
  for (uint64_t n = 1;; ++n) {
    const uint64_t before = host_.Count(HostCall::kMalloc);
    host_.Fail(HostCall::kMalloc, n);
    const uint32_t result = Open(SmallParam(kPath));
    host_.ClearFailures();
    if (host_.Count(HostCall::kMalloc) < before + n) break;
    EXPECT_EQ(result, ZMV_E_MEMORY) << n;
    EXPECT_EQ(writer_, nullptr);
    EXPECT_THAT(host_.LiveList(), ElementsAre()) << n;
    EXPECT_EQ(OpenFiles(), 0u) << n;
    ++failures;
  }
  EXPECT_GE(failures, 4u);  // handle, stream handle, file, container
  ZMVWriterClose(writer_);
}

TEST_F(Writer, Open_NoMutex_ReleasesEverything) {
  host_.Fail(HostCall::kMutexCreate, 1);
  lost_mutexes_ = 1;
  EXPECT_EQ(Open(SmallParam(kPath)), ZMV_E_MEMORY);
  EXPECT_EQ(writer_, nullptr);
  EXPECT_EQ(OpenFiles(), 0u);
  EXPECT_EQ(host_.File(kPath).size(), 0u);
}

TEST_F(Writer, Open_OptW_SetsTheStreamOptionBeforeOpening) {
  ZMVWriterParam param = SmallParam(kPath);
  param.dwOptW = 1;
  param.pfnCloseCB = &NoteClosed;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_EQ(host_.Calls(HostCall::kOpen).at(0).position, 9u);
  EXPECT_EQ(ZMVStreamBuf_GetOption(), 1u);
  g_closed_path.clear();
  ZMVWriterClose(writer_);
  EXPECT_EQ(g_closed_path, kPath);
}

TEST_F(Writer, Open_OptWZero_LeavesTheOptionAsItIs) {
  ZMVStreamBuf_SetOption(3, nullptr);
  ZMVWriterParam param = SmallParam(kPath);
  param.pfnCloseCB = &NoteClosed;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_EQ(ZMVStreamBuf_GetOption(), 3u);
  g_closed_path.clear();
  ZMVWriterClose(writer_);
  EXPECT_EQ(g_closed_path, "");
}

// ---- Measuring the disk

TEST_F(Writer, FreeSpace_JustUnder10MiB_IsNothingAndTheFirstWriteMeasuresAgain) {
  host_.free_space = kReserve - 1;
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  EXPECT_EQ(writer_->m_llFreeSpace, 0);
  EXPECT_THAT(host_.Traces(1), ElementsAre("[Writer] Disk free space is under 10MB (10485759)\n"));
  EXPECT_THAT(host_.Traces(2), Contains("[Writer] Disk Free Size 0 MB\n"));
  host_.free_space = kReserve << 4;
  ZMVFileInfo info = SmallInfo();
  ASSERT_EQ(ZMVWriterSetInfo(writer_, &info, 0), 0);
  EXPECT_EQ(WriteSmallFrame(writer_, ZMV_MEDIA_VIDEO, 0), 0);
  EXPECT_EQ(host_.Count(HostCall::kDiskSpace), 2u);
  EXPECT_EQ(writer_->m_llFreeSpace, (kReserve << 4) - kReserve);
  ZMVWriterClose(writer_);
}

TEST_F(Writer, FreeSpace_Exactly10MiB_IsNothingWithoutTheMessage) {
  host_.free_space = kReserve;
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  EXPECT_EQ(writer_->m_llFreeSpace, 0);
  EXPECT_THAT(host_.Traces(1), ElementsAre());
  ZMVWriterClose(writer_);
}

TEST_F(Writer, FreeSpace_CannotBeMeasured_IsNothing) {
  host_.Fail(HostCall::kDiskSpace, 1);
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  EXPECT_EQ(writer_->m_llFreeSpace, 0);
  EXPECT_THAT(host_.Traces(1), ElementsAre("[Writer] Disk free space is under 10MB (-1)\n"));
  ZMVWriterClose(writer_);
}

TEST_F(Writer, FreeSpace_BelowWhatTheCallerNeeds_IsReportedOnly) {
  host_.free_space = kReserve + (int64_t{100} << 20);
  ZMVWriterParam param = SmallParam(kPath);
  param.dwReqFreeSpace = (100u << 20) + 1;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_EQ(writer_->m_llFreeSpace, int64_t{100} << 20);
  EXPECT_THAT(host_.Traces(1), ElementsAre("[Writer] Disk Free Size 100 MB - Not enough!!\n"));
  ZMVWriterClose(writer_);
  host_.ClearRecords();
  param.dwReqFreeSpace = 100u << 20;
  ASSERT_EQ(Open(param), 0u);
  EXPECT_THAT(host_.Traces(1), ElementsAre());
  EXPECT_THAT(host_.Traces(2), Contains("[Writer] Disk Free Size 100 MB\n"));
  ZMVWriterClose(writer_);
}

// ---- A whole recording

TEST_F(Writer, Recording_OpenedClosedWithoutInfo_WritesNothing) {
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  ZMVWriterClose(writer_);
  EXPECT_EQ(host_.File(kPath).size(), 0u);
}

TEST_F(Writer, Recording_BeginsWithFtypAndEndsWithMoov) {
  ASSERT_EQ(RecordSmall(kPath), 0);
  const ByteVector& file = host_.File(kPath);
  ASSERT_GT(file.size(), 28u);
  EXPECT_EQ(ByteVector(file.begin() + 4, file.begin() + 8), Text("ftyp"));
  EXPECT_NE(std::string(file.begin(), file.end()).find("moov"), std::string::npos);
}

TEST_F(Writer, Recording_CountsBeyondTheCapacity_AreRefusedBeforeAnythingIsWritten) {
  for (const uint32_t which : {0u, 1u, 2u}) {
    ASSERT_EQ(Open(SmallParam(kPath)), 0u);
    ZMVFileInfo info = SmallInfo();
    if (which == 0) info.dwAudioCount = 2;
    if (which == 1) info.dwVideoCount = 10;
    if (which == 2) info.dwTextCount = 3;
    EXPECT_EQ(Code(ZMVWriterSetInfo(writer_, &info, 0)), ZMV_E_FAIL) << which;
    ZMVWriterClose(writer_);
    EXPECT_EQ(host_.File(kPath).size(), 0u);
  }
}

TEST_F(Writer, Recording_FrameWithoutInfo_IsRefused) {
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  EXPECT_EQ(WriteSmallFrame(writer_, ZMV_MEDIA_VIDEO, 0), -1);
  ZMVWriterClose(writer_);
}

TEST_F(Writer, Recording_SizeLimitReached_LeavesAFileThatPlays) {
  ZMVWriterParam param = SmallParam(kPath);
  ASSERT_EQ(Open(param), 0u);
  ZMVFileInfo info = SmallInfo();
  ASSERT_EQ(ZMVWriterSetInfo(writer_, &info, 0), 0);
  writer_->m_llMaxFileSize = static_cast<int64_t>(ZMVWriterGetSize(writer_)) + 200;
  uint32_t written = 0;
  int32_t result = 0;
  while (written < 100 && (result = WriteSmallFrame(writer_, ZMV_MEDIA_VIDEO, written)) == 0) ++written;
  EXPECT_EQ(Code(result), ZMV_E_WRITE);
  EXPECT_GT(written, 0u);
  ZMVWriterClose(writer_);
  ZMVReaderParam source{kPath, nullptr, 0};
  ZMVFileInfo found{};
  ASSERT_EQ(ZMVReaderGetInfoFile(&source, &found), 0);
  EXPECT_EQ(found.m_Video[0].dwFrames, written);
}

TEST_F(Writer, SetSync_ClosesWithASync) {
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  EXPECT_EQ(ZMVWriterSetSync(writer_, 1), 0);
  ZMVWriterClose(writer_);
  EXPECT_EQ(host_.Count(HostCall::kSync), 1u);
}

TEST_F(Writer, Close_Null_IsIgnored) {
  ZMVWriterClose(nullptr);
  EXPECT_EQ(host_.Count(HostCall::kFree), 0u);
}

TEST_F(Writer, EveryEntryPoint_TracesUnderTheWritersTag) {
  ASSERT_EQ(Open(SmallParam(kPath)), 0u);
  ZMVWriterGetFilePath(writer_);
  ZMVWriterGetSize(writer_);
  ZMVWriterSetSync(writer_, 0);
  ZMVWriterClose(writer_);
  std::vector<std::string> entered;
  for (const TraceRecord& trace : host_.traces()) {
    if (trace.module != "zmvstreamw") continue;
    EXPECT_EQ(trace.file, "zmvstream_writer");
    if (trace.text == "Enter.\n") entered.push_back(trace.function);
  }
  EXPECT_THAT(entered, ElementsAre("ZMVWriterOpen", "SelectWriter", "ZMVWriterGetFilePath", "ZMVWriterGetSize",
                                   "ZMVWriterSetSync", "ZMVWriterClose"));
}

}  // namespace
}  // namespace zmv::test
