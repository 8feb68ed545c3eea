#include "platform/zmv_byte.h"

#include <gtest/gtest.h>

#include "base/zmv_result.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr int64_t kReadError = static_cast<int32_t>(ZMV_E_READ);

class ByteReaderTest : public testing::Test {
 protected:
  ScriptedHost host;
  int64_t err = 0;
};

TEST_F(ByteReaderTest, Reads_InOrder_GiveBigEndianNumbers) {
  const uint8_t data[] = {0x12,                    // one byte
                          0x34, 0x56, 0x78,        // three bytes
                          0x9A, 0xBC, 0xDE, 0xF0,  // four bytes
                          0xFF, 0xFF,              // stepped over
                          'a',  'b',  'c'};        // a string
  void* reader = ZMVByte_Open(data, sizeof data);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(ZMVByte_Get_char(reader, &err), 0x12);
  EXPECT_EQ(ZMVByte_Get_3char_be_uint32(reader, &err), 0x345678u);
  EXPECT_EQ(ZMVByte_Get_be_uint32(reader, &err), 0x9ABCDEF0u);
  ZMVByte_Skip(reader, 2, &err);
  uint8_t text[4] = {'x', 'x', 'x', 'x'};
  ZMVByte_Get_string(reader, text, 3, &err);
  EXPECT_EQ(std::string(text, text + 4), "abcx");
  EXPECT_EQ(err, 0);
  ZMVByte_Get_char(reader, &err);
  EXPECT_EQ(err, kReadError);
  ZMVByte_Close(reader);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST_F(ByteReaderTest, NumberCutShort_GivesZeroAndEndsTheData) {
  const uint8_t data[] = {1, 2, 3};
  void* reader = ZMVByte_Open(data, sizeof data);
  EXPECT_EQ(ZMVByte_Get_be_uint32(reader, &err), 0u);
  EXPECT_EQ(err, kReadError);
  err = 0;
  EXPECT_EQ(ZMVByte_Get_char(reader, &err), 0);
  EXPECT_EQ(err, kReadError);
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, ThreeByteNumberCutShort_SetsTheErrorCell) {
  const uint8_t data[] = {1, 2};
  void* reader = ZMVByte_Open(data, sizeof data);
  EXPECT_EQ(ZMVByte_Get_3char_be_uint32(reader, &err), 0u);
  EXPECT_EQ(err, kReadError);
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, StringCutShort_CopiesNothing) {
  const uint8_t data[] = {'a', 'b'};
  void* reader = ZMVByte_Open(data, sizeof data);
  uint8_t text[3] = {'x', 'y', 'z'};
  ZMVByte_Get_string(reader, text, 3, &err);
  EXPECT_EQ(err, kReadError);
  EXPECT_EQ(std::string(text, text + 3), "xyz");
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, SkipToTheEnd_IsNoError_BeyondItIs) {
  const uint8_t data[] = {1, 2, 3};
  void* reader = ZMVByte_Open(data, sizeof data);
  ZMVByte_Skip(reader, 3, &err);
  EXPECT_EQ(err, 0);
  ZMVByte_Skip(reader, 0, &err);
  EXPECT_EQ(err, 0);
  ZMVByte_Skip(reader, 0xFFFFFFFFu, &err);
  EXPECT_EQ(err, kReadError);
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, ErrorCell_IsNeverCleared) {
  const uint8_t data[] = {1, 2, 3, 4};
  void* reader = ZMVByte_Open(data, sizeof data);
  err = kReadError;
  EXPECT_EQ(ZMVByte_Get_be_uint32(reader, &err), 0x01020304u);
  EXPECT_EQ(err, kReadError);
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, NullErrorCell_IsAccepted) {
  const uint8_t data[] = {1};
  void* reader = ZMVByte_Open(data, sizeof data);
  EXPECT_EQ(ZMVByte_Get_be_uint32(reader, nullptr), 0u);
  ZMVByte_Close(reader);
}

TEST_F(ByteReaderTest, NullReader_FailsEveryRead) {
  uint8_t byte = 7;
  ZMVByte_Skip(nullptr, 0, &err);
  EXPECT_EQ(err, kReadError);
  err = 0;
  ZMVByte_Get_string(nullptr, &byte, 1, &err);
  EXPECT_EQ(err, kReadError);
  EXPECT_EQ(byte, 7);
  ZMVByte_Close(nullptr);
}

TEST_F(ByteReaderTest, Open_NullOrOutOfMemory_GivesNull) {
  const uint8_t data[] = {1};
  EXPECT_EQ(ZMVByte_Open(nullptr, 1), nullptr);
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(ZMVByte_Open(data, 1), nullptr);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace zmv::test
