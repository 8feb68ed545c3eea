#include "stream/zmvstream_file.h"

#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

class FileTest : public StreamTest {};

TEST_F(FileTest, Open_ForReading_TakesTheSizeFromThePlatform) {
  ZMVStreamFile* const file = ReadFile(Pattern(1234));
  EXPECT_EQ(ZMVStreamFile_Size(file), 1234);
  EXPECT_EQ(ZMVStreamFile_GetFilesize(file), 1234);
  EXPECT_STREQ(ZMVStreamFile_GetName(file), "in");
  EXPECT_EQ(file->m_bWrite, 0);
  EXPECT_EQ(file->m_dwIndexCount, 0u);
  EXPECT_EQ(host.Calls(HostCall::kOpen)[0].position, 2u);  // flags
  EXPECT_THAT(host.Traces(4), Contains("Enter. path(in) write(0)\n"));
  ASSERT_EQ(host.Traces(3).size(), 1u);
  EXPECT_THAT(host.Traces(3)[0], MatchesRegex("File handle\\([0-9a-f]+\\) size\\(1234\\) file\\(in\\) \n"));
  EXPECT_EQ(host.traces()[0].module, "zmvstreamfile");
  EXPECT_EQ(host.traces()[0].file, "zmvstream_file");
}

TEST_F(FileTest, Open_ForWriting_StartsEmptyEvenWhenTheFileIsPresized) {
  host.presized = 5000;
  ZMVStreamFile* const file = WriteFile(0);
  EXPECT_EQ(file->m_bWrite, 1);
  EXPECT_EQ(ZMVStreamFile_Size(file), 0);
  EXPECT_EQ(ZMVStreamFile_GetFilesize(file), 5000);
}

TEST_F(FileTest, Open_ForWriting_ChoosesItsFlags) {
  struct Case {
    uint32_t flag, option;
    uint64_t flags;
  };
  for (const Case& test : {Case{1, 0, 27}, Case{0, 0, 9}, Case{1, 1, 9}, Case{0, 1, 9}}) {
    host.ClearRecords();
    ZMVStreamFile_SetOption(test.option, nullptr);
    ZMVStreamFile* file = nullptr;
    ASSERT_EQ(ZMVStreamFile_Open(&file, "out", 1, test.flag), 0);
    EXPECT_EQ(host.Calls(HostCall::kOpen)[0].position, test.flags);
    ZMVStreamFile_Close(file);
  }
}

TEST_F(FileTest, Open_ThatThePlatformRefuses_LeavesNothingBehind) {
  host.Fail(HostCall::kOpen, 1);
  ZMVStreamFile* file = nullptr;
  EXPECT_EQ(ZMVStreamFile_Open(&file, "out", 1, 1), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(file, nullptr);
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileOpen failed. path(out) write(1)\n"));
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST_F(FileTest, Open_WithAPathOf255Bytes_KeepsAllOfIt) {
  const std::string path(255, 'p');
  host.PutFile(path, Pattern(3));
  ZMVStreamFile* file = nullptr;
  ASSERT_EQ(ZMVStreamFile_Open(&file, path.c_str(), 0, 1), 0);
  EXPECT_EQ(ZMVStreamFile_GetName(file), path);
  ZMVStreamFile_Close(file);
}

TEST_F(FileTest, Open_WithAPathOf256Bytes_IsRefused) {
  const std::string path(256, 'p');
  host.PutFile(path, Pattern(3));
  ZMVStreamFile* file = nullptr;
  EXPECT_EQ(ZMVStreamFile_Open(&file, path.c_str(), 0, 1), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(host.Count(HostCall::kOpen), 0u);
  EXPECT_EQ(ZMVStreamFile_Open(&file, nullptr, 0, 1), int64_t{Result(ZMV_E_OPEN)});
}

TEST_F(FileTest, Open_OfAFileBeyond4GiB_SeesItsFirst4GiB) {
  host.presized = 0x100000005;
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  EXPECT_EQ(ZMVStreamFile_Size(file), 0xFFFFFFFF);
  EXPECT_EQ(ZMVStreamFile_GetFilesize(file), 0x100000005);
}

TEST_F(FileTest, Open_OfAFileWhoseSizeCannotBeHad_ClosesItAndLeavesNothingBehind) {
  host.PutFile("in", Pattern(10));
  host.Fail(HostCall::kSize, 1);
  ZMVStreamFile* file = nullptr;
  EXPECT_EQ(ZMVStreamFile_Open(&file, "in", 0, 1), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(file, nullptr);
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileSize failed. path(in) ret(-1)\n"));
  EXPECT_EQ(host.Count(HostCall::kOpen), 1u);
  EXPECT_EQ(host.Count(HostCall::kClose), 1u);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

// The application's close callback takes over files that were open, not ones that could not be opened.
TEST_F(FileTest, Open_OfAFileWhoseSizeCannotBeHad_IsNotHandedToTheCallback) {
  host.PutFile("in", Pattern(10));
  ZMVStreamFile_SetOption(1, [](int, const char*) { FAIL(); });
  host.Fail(HostCall::kSize, 1);
  ZMVStreamFile* file = nullptr;
  EXPECT_EQ(ZMVStreamFile_Open(&file, "in", 0, 1), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(host.Count(HostCall::kClose), 1u);
}

TEST_F(FileTest, Open_ForWriting_DoesNotAskForTheSize) {
  host.Fail(HostCall::kSize, 1, ScriptedHost::kForGood);
  EXPECT_EQ(ZMVStreamFile_Size(WriteFile(0)), 0);
  EXPECT_EQ(host.Count(HostCall::kSize), 0u);
}

TEST_F(FileTest, Dup_TakesTheSizeOfTheOriginal) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  host.Fail(HostCall::kSize, 1, ScriptedHost::kForGood);
  ZMVStreamBuf handle = {};
  ASSERT_EQ(ZMVStreamFile_Dup(file, &handle), 0);
  EXPECT_EQ(ZMVStreamFile_Size(handle.hInOut), 100);
  ZMVStreamFile_Close(handle.hInOut);
}

TEST_F(FileTest, Dup_HasItsOwnHandleAndNoCursors) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ByteVector bytes;
  ASSERT_EQ(Read(file, 0, 10, &bytes), 10);
  ZMVStreamBuf handle = {};
  ASSERT_EQ(ZMVStreamFile_Dup(file, &handle), 0);
  auto* const copy = static_cast<ZMVStreamFile*>(handle.hInOut);
  EXPECT_NE(copy->m_hFile, file->m_hFile);
  EXPECT_STREQ(copy->m_szPath, "in");
  EXPECT_EQ(copy->m_dwFileSize, 100u);
  EXPECT_EQ(copy->m_dwIndexCount, 0u);
  EXPECT_EQ(copy->m_dwFilePos, 0u);
  EXPECT_EQ(host.Calls(HostCall::kOpen)[1].position, 2u);
  EXPECT_EQ(Cursor(copy, 0), 0u);
  ASSERT_EQ(Read(copy, 0, 4, &bytes), 4);
  EXPECT_THAT(bytes, ElementsAre(0, 1, 2, 3));
  ASSERT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_THAT(bytes, ElementsAre(10, 11, 12, 13));
  ZMVStreamFile_Close(copy);
}

TEST_F(FileTest, Dup_OfAWritingFile_IsRefused) {
  ZMVStreamFile* const file = WriteFile(0);
  ZMVStreamBuf handle = {};
  EXPECT_EQ(ZMVStreamFile_Dup(file, &handle), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(handle.hInOut, nullptr);
  EXPECT_THAT(host.Traces(1), ElementsAre("can not support in write mode\n"));
}

TEST_F(FileTest, Dup_ThatCannotAllocateOrOpen_LeavesNothingBehind) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  const uint64_t blocks = host.LiveBlocks();
  ZMVStreamBuf handle = {};
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(ZMVStreamFile_Dup(file, &handle), int64_t{Result(ZMV_E_MEMORY)});
  host.Fail(HostCall::kOpen, 1);
  EXPECT_EQ(ZMVStreamFile_Dup(file, &handle), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(handle.hInOut, nullptr);
  EXPECT_THAT(host.Traces(1),
              ElementsAre("ZMVStreamFile alloc failed. size(496)\n", "ZMV_FileOpen failed. path(in)\n"));
  EXPECT_EQ(host.LiveBlocks(), blocks);
}

TEST_F(FileTest, SetSync_IsKept) {
  ZMVStreamFile* const file = WriteFile(0);
  EXPECT_EQ(ZMVStreamFile_SetSync(file, 1), 0);
  EXPECT_EQ(file->m_bSync, 1);
  EXPECT_EQ(ZMVStreamFile_SetSync(file, 0), 0);
  EXPECT_EQ(file->m_bSync, 0);
}

TEST_F(FileTest, Option_StaysSetUntilItIsSetAgain) {
  ZMVStreamFile_SetOption(3, nullptr);
  CloseFile(WriteFile(0));
  EXPECT_EQ(ZMVStreamFile_GetOption(), 3u);
  ZMVStreamFile_SetOption(0, nullptr);
  EXPECT_EQ(ZMVStreamFile_GetOption(), 0u);
}

}  // namespace
}  // namespace zmv::test
