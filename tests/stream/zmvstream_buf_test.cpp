#include "stream/zmvstream_buf.h"

#include <cstring>
#include <tuple>

#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr ZMVStreamBuf kEmptyHandle = {};

class BufTest : public StreamTest {};

TEST_F(BufTest, Open_ForReading_StoresAHandleWithNineteenOperations) {
  host.PutFile("in", Pattern(10));
  ZMVStreamBuf* handle = nullptr;
  ASSERT_EQ(ZMVStreamBuf_Open(&handle, "in", 123, ZMV_STREAM_READ), 0);
  ASSERT_NE(handle, nullptr);
  EXPECT_NE(handle->hInOut, nullptr);
  EXPECT_EQ(handle->m_pReserved, nullptr);
  EXPECT_EQ(ZMVStreamBuf_GetError(handle), 0);
  EXPECT_TRUE(handle->Open && handle->Dup && handle->Close && handle->Index && handle->Release && handle->Size);
  EXPECT_EQ(handle->CurSize, nullptr);
  EXPECT_TRUE(handle->GetName && handle->ReadBuffer && handle->WriteBuffer && handle->Skip && handle->Seek);
  EXPECT_TRUE(handle->SeekEnd && handle->Pos && handle->ShowBuffer && handle->ShowSkip && handle->ShowPos);
  EXPECT_TRUE(handle->ShowReset && handle->GetFilesize && handle->SetSync);
  EXPECT_STREQ(ZMVStreamBuf_GetName(handle), "in");
  ZMVStreamBuf_Close(handle);
}

TEST_F(BufTest, Open_ForWriting_UsesTheDefaultWritingMode) {
  WriteHandle();
  ASSERT_EQ(host.Calls(HostCall::kOpen).size(), 1u);
  EXPECT_EQ(host.Calls(HostCall::kOpen)[0].position, 27u);
}

TEST_F(BufTest, Open_OfAMissingFile_LeavesNothingBehind) {
  ZMVStreamBuf* handle = nullptr;
  EXPECT_EQ(ZMVStreamBuf_Open(&handle, "absent", 0, ZMV_STREAM_READ), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(handle, nullptr);
  EXPECT_THAT(host.Traces(1),
              ElementsAre("ZMV_FileOpen failed. path(absent) write(0)\n", "Open failed ret(-2147483632)\n"));
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST_F(BufTest, Open_WithAnyAllocationFailing_ReportsMemory) {
  host.PutFile("in", Pattern(10));
  const std::vector<std::string> messages = {"ZMVStreamBuf malloc failed size(184)\n",
                                             "ZMVStreamFile alloc failed. size(496)\n"};
  for (uint64_t nth = 1; nth <= messages.size(); ++nth) {
    host.Fail(HostCall::kMalloc, nth);
    ZMVStreamBuf* handle = nullptr;
    EXPECT_EQ(ZMVStreamBuf_Open(&handle, "in", 0, ZMV_STREAM_READ), int64_t{Result(ZMV_E_MEMORY)});
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(host.Traced(messages[nth - 1]));
    EXPECT_EQ(host.LiveBlocks(), 0u);
  }
}

TEST_F(BufTest, Dup_OfAReadingHandle_HasPositionsOfItsOwn) {
  ZMVStreamBuf* const handle = ReadHandle(Pattern(100));
  ASSERT_EQ(ZMVStreamBuf_Seek(handle, 0, 40), 0);
  ZMVStreamBuf* copy = nullptr;
  ASSERT_EQ(ZMVStreamBuf_Dup(handle, &copy), 0);
  EXPECT_NE(copy, handle);
  EXPECT_NE(copy->hInOut, handle->hInOut);
  EXPECT_EQ(copy->ReadBuffer, handle->ReadBuffer);
  EXPECT_EQ(ZMVStreamBuf_Pos(copy, 0), 0u);  // it has no cursor yet
  uint32_t idx = 99;
  ASSERT_EQ(ZMVStreamBuf_Index(copy, &idx, 0), 0);
  int64_t err = 0;
  EXPECT_EQ(ZMVStreamBuf_ReadWordBE(copy, idx, &err), 0x0001u);
  EXPECT_EQ(ZMVStreamBuf_ReadWordBE(handle, 0, &err), 0x2829u);
  EXPECT_EQ(err, 0);
  ZMVStreamBuf_Close(copy);
}

TEST_F(BufTest, Dup_OfAWritingHandle_IsRefused) {
  ZMVStreamBuf* copy = nullptr;
  EXPECT_EQ(ZMVStreamBuf_Dup(WriteHandle(), &copy), int64_t{Result(ZMV_E_OPEN)});
  EXPECT_EQ(copy, nullptr);
  EXPECT_THAT(host.Traces(1), ElementsAre("can not support in write mode\n", "Dup failed ret(-2147483632)\n"));
}

TEST_F(BufTest, Dup_WithAnyAllocationFailing_ReportsMemory) {
  ZMVStreamBuf* const handle = ReadHandle(Pattern(10));
  const uint64_t blocks = host.LiveBlocks();
  for (uint64_t nth = 1; nth <= 2; ++nth) {
    host.Fail(HostCall::kMalloc, nth);
    ZMVStreamBuf* copy = nullptr;
    EXPECT_EQ(ZMVStreamBuf_Dup(handle, &copy), int64_t{Result(ZMV_E_MEMORY)});
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(host.LiveBlocks(), blocks);
  }
}

TEST_F(BufTest, Close_OfNull_DoesNothing) {
  ZMVStreamBuf_Close(nullptr);
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(BufTest, Close_WithoutCloseOperation_FreesTheHandle) {
  auto* handle = static_cast<ZMVStreamBuf*>(ZMV_Malloc(sizeof(ZMVStreamBuf), 0, ZMV_FILL_ZERO, "", 0, ""));
  ZMVStreamBuf_Close(handle);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST_F(BufTest, CheckedCalls_OnEmptySlots_AreNotSupported) {
  ZMVStreamBuf handle = kEmptyHandle;
  uint32_t idx = 7;
  uint8_t byte = 0;
  ZMVStreamBuf* copy = nullptr;
  EXPECT_EQ(Code(ZMVStreamBuf_Dup(&handle, &copy)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_Index(&handle, &idx, 0)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_Release(&handle, 0)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_Size(&handle)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(ZMVStreamBuf_GetName(&handle), nullptr);
  EXPECT_EQ(Code(ZMVStreamBuf_ReadBuffer(&handle, 0, &byte, 1)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_WriteBuffer(&handle, 0, &byte, 1)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_Skip(&handle, 0, 1)), ZMV_E_NOT_SUPPORTED);
  EXPECT_THAT(host.Traces(1), ElementsAre("not support duplicate function\n", "not support index function\n",
                                          "not support release function\n", "not support size function\n",
                                          "not support getname function\n", "not support readbuffer function\n",
                                          "not support writebuffer function\n", "not support skip function\n"));
  for (const TraceRecord& trace : host.traces()) {
    EXPECT_EQ(trace.module, "zmvstreambuf");
    EXPECT_EQ(trace.file, "zmvstream_buf");
  }
}

// A provider that writes down how it is called.
struct Provider {
  std::string call;
  int64_t result = 0;
};

std::string& Called(void* context) { return static_cast<Provider*>(context)->call; }
int64_t ResultOf(void* context) { return static_cast<Provider*>(context)->result; }

int64_t Note(void* context, const char* name, int64_t a, int64_t b) {
  Called(context) = std::string(name) + " " + std::to_string(a) + " " + std::to_string(b);
  return ResultOf(context);
}

ZMVStreamBuf HandleOf(Provider* provider) {
  ZMVStreamBuf handle = {};
  handle.hInOut = provider;
  handle.Index = [](void* c, uint32_t* idx, uint32_t size) { return Note(c, "Index", *idx, size); };
  handle.Release = [](void* c, uint32_t idx) { return Note(c, "Release", idx, 0); };
  handle.Size = [](void* c) { return Note(c, "Size", 0, 0); };
  handle.CurSize = [](void* c) { return Note(c, "CurSize", 0, 0); };
  handle.ReadBuffer = [](void* c, uint32_t idx, void*, uint32_t n) { return Note(c, "ReadBuffer", idx, n); };
  handle.WriteBuffer = [](void* c, uint32_t idx, const void*, uint32_t n) { return Note(c, "WriteBuffer", idx, n); };
  handle.Skip = [](void* c, uint32_t idx, int32_t n) { return Note(c, "Skip", idx, n); };
  handle.Seek = [](void* c, uint32_t idx, uint32_t pos) { return Note(c, "Seek", idx, pos); };
  handle.SeekEnd = [](void* c, uint32_t idx, int32_t dist) { return Note(c, "SeekEnd", idx, dist); };
  handle.Pos = [](void* c, uint32_t idx) { return static_cast<uint32_t>(Note(c, "Pos", idx, 0)); };
  handle.ShowBuffer = [](void* c, void*, uint32_t n) { return Note(c, "ShowBuffer", n, 0); };
  handle.ShowSkip = [](void* c, int32_t n) { return Note(c, "ShowSkip", n, 0); };
  handle.ShowPos = [](void* c) { return static_cast<uint32_t>(Note(c, "ShowPos", 0, 0)); };
  handle.ShowReset = [](void* c) { return Note(c, "ShowReset", 0, 0); };
  handle.GetFilesize = [](void* c) { return Note(c, "GetFilesize", 0, 0); };
  handle.SetSync = [](void* c, uint8_t flag) { return Note(c, "SetSync", flag, 0); };
  return handle;
}

TEST_F(BufTest, Forwarders_HandTheirArgumentsOnAndTheResultBack) {
  Provider provider;
  ZMVStreamBuf handle = HandleOf(&provider);
  uint8_t byte = 0;
  uint32_t idx = 5;
  for (const int64_t result : {int64_t{0}, int64_t{77}, int64_t{Result(ZMV_E_SEEK)}}) {
    provider.result = result;
    EXPECT_EQ(ZMVStreamBuf_Index(&handle, &idx, 1024), result);
    EXPECT_EQ(provider.call, "Index 5 1024");
    EXPECT_EQ(ZMVStreamBuf_Size(&handle), result);
    EXPECT_EQ(provider.call, "Size 0 0");
    EXPECT_EQ(ZMVStreamBuf_ReadBuffer(&handle, 3, &byte, 9), result);
    EXPECT_EQ(provider.call, "ReadBuffer 3 9");
    EXPECT_EQ(ZMVStreamBuf_WriteBuffer(&handle, 3, &byte, 9), result);
    EXPECT_EQ(provider.call, "WriteBuffer 3 9");
    EXPECT_EQ(ZMVStreamBuf_Skip(&handle, 3, -9), result);
    EXPECT_EQ(provider.call, "Skip 3 -9");
    EXPECT_EQ(ZMVStreamBuf_Seek(&handle, 3, 0xFFFFFFFF), result);
    EXPECT_EQ(provider.call, "Seek 3 4294967295");
    EXPECT_EQ(ZMVStreamBuf_SeekEnd(&handle, 3, -1), result);
    EXPECT_EQ(provider.call, "SeekEnd 3 -1");
    EXPECT_EQ(ZMVStreamBuf_Pos(&handle, 3), static_cast<uint32_t>(result));
    EXPECT_EQ(provider.call, "Pos 3 0");
    EXPECT_EQ(ZMVStreamBuf_ShowBuffer(&handle, &byte, 9), result);
    EXPECT_EQ(provider.call, "ShowBuffer 9 0");
    EXPECT_EQ(ZMVStreamBuf_ShowSkip(&handle, -4), result);
    EXPECT_EQ(provider.call, "ShowSkip -4 0");
    EXPECT_EQ(ZMVStreamBuf_ShowPos(&handle), static_cast<uint32_t>(result));
    EXPECT_EQ(provider.call, "ShowPos 0 0");
    EXPECT_EQ(ZMVStreamBuf_ShowReset(&handle), result);
    EXPECT_EQ(provider.call, "ShowReset 0 0");
    EXPECT_EQ(ZMVStreamBuf_GetFileSize(&handle), result);
    EXPECT_EQ(provider.call, "GetFilesize 0 0");
    EXPECT_EQ(ZMVStreamBuf_SetSync(&handle, 1), result);
    EXPECT_EQ(provider.call, "SetSync 1 0");
  }
}

TEST_F(BufTest, FrequentCalls_TraceNothing) {
  Provider provider;
  provider.result = 4;
  ZMVStreamBuf handle = HandleOf(&provider);
  uint32_t word = 0;
  int64_t err = 0;
  ZMVStreamBuf_WriteBuffer(&handle, 0, &word, 4);
  ZMVStreamBuf_Skip(&handle, 0, 1);
  ZMVStreamBuf_Seek(&handle, 0, 1);
  ZMVStreamBuf_SeekEnd(&handle, 0, 0);
  ZMVStreamBuf_Pos(&handle, 0);
  ZMVStreamBuf_ReadDWordBE(&handle, 0, &err);
  ZMVStreamBuf_WriteDWordBE(&handle, 0, 1, &err);
  EXPECT_THAT(host.traces(), IsEmpty());
}

TEST_F(BufTest, Release_OfAValidCursor_ReturnsZeroWhateverTheProviderCounts) {
  Provider provider;
  provider.result = 2;
  ZMVStreamBuf handle = HandleOf(&provider);
  EXPECT_EQ(ZMVStreamBuf_Release(&handle, 6), 0);
  EXPECT_EQ(provider.call, "Release 6 0");
  EXPECT_EQ(ZMVStreamBuf_Release(ReadHandle(Pattern(1)), 0), 0);
}

TEST_F(BufTest, CurSize_UsesItsSlotOrElseTheSize) {
  Provider provider;
  ZMVStreamBuf handle = HandleOf(&provider);
  provider.result = 12;
  EXPECT_EQ(ZMVStreamBuf_CurSize(&handle), 12);
  EXPECT_EQ(provider.call, "CurSize 0 0");
  handle.CurSize = nullptr;
  EXPECT_EQ(ZMVStreamBuf_CurSize(&handle), 12);
  EXPECT_EQ(provider.call, "Size 0 0");
  handle.Size = nullptr;
  EXPECT_EQ(Code(ZMVStreamBuf_CurSize(&handle)), ZMV_E_NOT_SUPPORTED);
}

TEST_F(BufTest, CurSize_OnAFile_EqualsSize) {
  ZMVStreamBuf* const handle = ReadHandle(Pattern(321));
  EXPECT_EQ(ZMVStreamBuf_CurSize(handle), 321);
  EXPECT_EQ(ZMVStreamBuf_Size(handle), 321);
  EXPECT_EQ(ZMVStreamBuf_GetFileSize(handle), 321);
}

TEST_F(BufTest, SetSync_WithoutHandleOrSlot_MakesNoCall) {
  EXPECT_EQ(ZMVStreamBuf_SetSync(nullptr, 1), 0);
  Provider provider;
  provider.result = 9;
  ZMVStreamBuf handle = HandleOf(&provider);
  handle.SetSync = nullptr;
  EXPECT_EQ(ZMVStreamBuf_SetSync(&handle, 1), 0);
  EXPECT_EQ(provider.call, "");
}

TEST_F(BufTest, GetError_ReturnsTheField) {
  ZMVStreamBuf handle = kEmptyHandle;
  handle.m_dwError = int64_t{1} << 40;
  EXPECT_EQ(ZMVStreamBuf_GetError(&handle), int64_t{1} << 40);
}

TEST_F(BufTest, Options_AreThoseOfTheFileProvider) {
  EXPECT_EQ(ZMVStreamBuf_GetOption(), 0u);
  ZMVStreamBuf_SetOption(5, nullptr);
  EXPECT_EQ(ZMVStreamBuf_GetOption(), 5u);
  EXPECT_EQ(ZMVStreamFile_GetOption(), 5u);
}

TEST_F(BufTest, Peek_ThroughTheHandle_LeavesCursorsAlone) {
  ZMVStreamBuf* const handle = ReadHandle(Pattern(20));
  uint8_t bytes[4] = {};
  EXPECT_EQ(ZMVStreamBuf_ShowBuffer(handle, bytes, 4), 4);
  EXPECT_THAT(bytes, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(ZMVStreamBuf_ShowPos(handle), 4u);
  EXPECT_EQ(ZMVStreamBuf_ShowReset(handle), 0);
  EXPECT_EQ(ZMVStreamBuf_ShowPos(handle), 0u);
  EXPECT_EQ(ZMVStreamBuf_Pos(handle, 0), 0u);
}

}  // namespace
}  // namespace zmv::test
