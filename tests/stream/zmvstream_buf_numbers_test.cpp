#include "stream/zmvstream_buf.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class NumbersTest : public StreamTest {};

using Reader = uint64_t (*)(ZMVStreamBuf*, uint32_t, int64_t*);
using Writer = int64_t (*)(ZMVStreamBuf*, uint32_t, uint32_t, int64_t*);

struct ReadCase {
  Reader read;
  uint32_t width;
  uint64_t value;  // of the bytes 81 82 83 84 85 86 87 88
};

constexpr ReadCase kReaders[] = {
    {&ZMVStreamBuf_ReadByte, 1, 0x81},
    {&ZMVStreamBuf_ReadWordBE, 2, 0x8182},
    {&ZMVStreamBuf_ReadWordLE, 2, 0x8281},
    {&ZMVStreamBuf_Read3ByteBE, 3, 0x818283},
    {&ZMVStreamBuf_Read3ByteLE, 3, 0x838281},
    {&ZMVStreamBuf_ReadDWordBE, 4, 0x81828384},
    {&ZMVStreamBuf_ReadDWordLE, 4, 0x84838281},
    {&ZMVStreamBuf_ReadQWordBE, 8, 0x8182838485868788},
    {&ZMVStreamBuf_ReadQWordLE, 8, 0x8887868584838281},
};

struct WriteCase {
  Writer write;
  ByteVector bytes;  // of the value 0x81828384
};

const WriteCase kWriters[] = {
    {&ZMVStreamBuf_WriteByte, {0x84}},
    {&ZMVStreamBuf_WriteWordBE, {0x83, 0x84}},
    {&ZMVStreamBuf_WriteWordLE, {0x84, 0x83}},
    {&ZMVStreamBuf_WriteDWordBE, {0x81, 0x82, 0x83, 0x84}},
    {&ZMVStreamBuf_WriteDWordLE, {0x84, 0x83, 0x82, 0x81}},
};

TEST_F(NumbersTest, Readers_ZeroExtendTheirWidthInTheirOrder) {
  ZMVStreamBuf* const handle = ReadHandle(Hex("81 82 83 84 85 86 87 88"));
  for (const ReadCase& reader : kReaders) {
    ASSERT_EQ(ZMVStreamBuf_Seek(handle, 0, 0), 0);
    int64_t err = 0;
    EXPECT_EQ(reader.read(handle, 0, &err), reader.value);
    EXPECT_EQ(ZMVStreamBuf_Pos(handle, 0), reader.width);
    EXPECT_EQ(err, 0);
  }
}

TEST_F(NumbersTest, Readers_FromTheCache_GiveTheSameNumbers) {
  ZMVStreamBuf* const handle = ReadHandle(Join({Zeros(1), Hex("81 82 83 84 85 86 87 88"), Zeros(8)}));
  uint32_t idx = 0;
  ASSERT_EQ(ZMVStreamBuf_Index(handle, &idx, 64), 0);
  for (const ReadCase& reader : kReaders) {
    ASSERT_EQ(ZMVStreamBuf_Seek(handle, idx, 0), 0);
    int64_t err = 0;
    EXPECT_EQ(ZMVStreamBuf_ReadByte(handle, idx, &err), 0u);  // misses, and fills the cache
    const uint64_t reads = host.Count(HostCall::kRead);
    EXPECT_EQ(reader.read(handle, idx, &err), reader.value);
    EXPECT_EQ(host.Count(HostCall::kRead), reads);
    EXPECT_EQ(err, 0);
  }
}

TEST_F(NumbersTest, Readers_WithTooFewBytesLeft_GiveZeroAndTheShortCount) {
  for (const ReadCase& reader : kReaders) {
    if (reader.width == 1) continue;
    ZMVStreamBuf* const handle = ReadHandle(Pattern(reader.width - 1, 1));
    int64_t err = 0;
    EXPECT_EQ(reader.read(handle, 0, &err), 0u);
    EXPECT_EQ(err, reader.width - 1);
  }
}

TEST_F(NumbersTest, Read3Byte_OfTheLastTwoBytes_ReportsTwo) {
  ZMVStreamBuf* const handle = ReadHandle(Pattern(10));
  ASSERT_EQ(ZMVStreamBuf_Seek(handle, 0, 8), 0);
  int64_t err = 0;
  EXPECT_EQ(ZMVStreamBuf_Read3ByteBE(handle, 0, &err), 0u);
  EXPECT_EQ(err, 2);
}

TEST_F(NumbersTest, Readers_AtTheEnd_GiveZeroAndTheCode) {
  ZMVStreamBuf* const handle = ReadHandle({});
  for (const ReadCase& reader : kReaders) {
    int64_t err = 0;
    EXPECT_EQ(reader.read(handle, 0, &err), 0u);
    EXPECT_EQ(err, int64_t{Result(ZMV_E_READ)});
    EXPECT_EQ(reader.read(handle, 0, nullptr), 0u);
  }
}

TEST_F(NumbersTest, Readers_ThatSucceed_LeaveAnEarlierErrorStanding) {
  ZMVStreamBuf* const handle = ReadHandle(Hex("81 82 83 84 85 86 87 88"));
  for (const ReadCase& reader : kReaders) {
    ASSERT_EQ(ZMVStreamBuf_Seek(handle, 0, 0), 0);
    int64_t err = -3;
    EXPECT_EQ(reader.read(handle, 0, &err), reader.value);
    EXPECT_EQ(err, -3);
  }
}

TEST_F(NumbersTest, ReadByte_WithoutReadBuffer_IsNotSupported) {
  ZMVStreamBuf handle = {};
  int64_t err = 0;
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_ReadByte(&handle, 0, &err)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(err, 0);
  EXPECT_THAT(host.Traces(1), ElementsAre("not support readbuffer function\n"));
}

TEST_F(NumbersTest, Writers_StoreTheLowBytesInTheirOrder) {
  ZMVStreamBuf* const handle = WriteHandle();
  ByteVector expected;
  for (const WriteCase& writer : kWriters) {
    int64_t err = 0;
    EXPECT_EQ(writer.write(handle, 0, 0x81828384, &err), static_cast<int64_t>(writer.bytes.size()));
    EXPECT_EQ(err, 0);
    expected = Join({expected, writer.bytes});
  }
  EXPECT_EQ(host.File("out"), expected);
}

TEST_F(NumbersTest, WriteWordBE_OfAWiderValue_TakesItsLowSixteenBits) {
  int64_t err = 0;
  EXPECT_EQ(ZMVStreamBuf_WriteWordBE(WriteHandle(), 0, 0x12345, &err), 2);
  EXPECT_EQ(host.File("out"), Hex("23 45"));
}

TEST_F(NumbersTest, Writers_ThatFail_ReturnZeroAndStoreTheCode) {
  ZMVStreamBuf* const handle = WriteHandle();
  host.file_capacity = 0;
  for (const WriteCase& writer : kWriters) {
    int64_t err = 0;
    EXPECT_EQ(writer.write(handle, 0, 1, &err), 0);
    EXPECT_EQ(err, int64_t{Result(ZMV_E_WRITE)});
    EXPECT_EQ(writer.write(handle, 0, 1, nullptr), 0);
  }
}

TEST_F(NumbersTest, Writers_CutShort_ReturnTheCount) {
  ZMVStreamBuf* const handle = WriteHandle();
  host.file_capacity = 3;
  int64_t err = 0;
  EXPECT_EQ(ZMVStreamBuf_WriteDWordBE(handle, 0, 1, &err), 3);
  EXPECT_EQ(err, 0);
}

TEST_F(NumbersTest, Writers_ThatWriteNothing_LeaveTheErrorCell) {
  ZMVStreamBuf handle = {};
  handle.WriteBuffer = [](void*, uint32_t, const void*, uint32_t) { return int64_t{0}; };
  for (const WriteCase& writer : kWriters) {
    int64_t err = 11;
    EXPECT_EQ(writer.write(&handle, 0, 1, &err), 0);
    EXPECT_EQ(err, 11);
  }
}

TEST_F(NumbersTest, Writers_WithoutWriteBuffer_AreNotSupportedAndLeaveTheErrorCell) {
  ZMVStreamBuf handle = {};
  for (const WriteCase& writer : kWriters) {
    host.ClearRecords();
    int64_t err = 11;
    EXPECT_EQ(Code(writer.write(&handle, 0, 1, &err)), ZMV_E_NOT_SUPPORTED);
    EXPECT_EQ(err, 11);
    EXPECT_THAT(host.Traces(1), ElementsAre("not support writebuffer function\n"));
  }
}

}  // namespace
}  // namespace zmv::test
