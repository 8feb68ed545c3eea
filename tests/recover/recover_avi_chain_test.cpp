#include "recover/recover_avi_chain.h"

#include "tests/recover/avi_recovery_test.h"
#include "tests/support/memory_file.h"

namespace zmv::test {
namespace {

using recover::Item;
using recover::Prefix;

// A movi list at the beginning of the file, of video, sound and text.
class AviChainTest : public AviRecoveryTest {
 protected:
  AviChainTest() {
    front_.front.mdat = 500;
    front_.front.end = 512;
    front_.streams[0] = {.media = ZMV_MEDIA_VIDEO, .code = FourCC("H264")};
    front_.streams[1] = {.media = ZMV_MEDIA_AUDIO, .code = ZMV_AUDIO_AAC};
    front_.streams[2] = {.media = ZMV_MEDIA_TEXT};
    front_.stream_count = 3;
  }
  // What the chain says of the chunks that follow each other from 512 on.
  template <typename Ask>
  auto AskChain(const std::vector<ByteVector>& chunks, Ask ask) {
    ByteVector bytes(512);
    for (const ByteVector& chunk : chunks) bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    StoredFile file(bytes);
    recover::Window window(file);
    recover::AviChain chain(window);
    EXPECT_EQ(chain.Open(front_), 0);
    return ask(chain);
  }
  Item ItemAt(const std::vector<ByteVector>& chunks, uint64_t position) {
    return AskChain(chunks, [&](recover::AviChain& chain) { return chain.At(position).item; });
  }
  Prefix PrefixOf(const std::vector<ByteVector>& chunks, uint64_t position) {
    return AskChain(chunks, [&](recover::AviChain& chain) {
      const recover::Place place = chain.At(position);
      EXPECT_EQ(place.item, Item::kRecord);
      return chain.Read(place.record, position).prefix;
    });
  }

  const ByteVector first_ = Join({Text("00dc"), Le32(6), Hex("00000001 65 88")});
  recover::AviFront front_;
};

TEST_F(AviChainTest, Chunks_AreKnownByCodeStreamAndSize) {
  EXPECT_EQ(ItemAt({first_, Text("01wb"), Le32(2), Hex("2110")}, 526), Item::kRecord);
  EXPECT_EQ(ItemAt({first_, Text("01wb"), Le32(3), Hex("2110")}, 526), Item::kRecordBeyond);
  EXPECT_EQ(ItemAt({first_, Text("01w")}, 526), Item::kRecordBeyond);
  EXPECT_EQ(ItemAt({first_, Text("01dc"), Le32(2), Hex("2110")}, 526), Item::kBroken);  // the stream is sound
  EXPECT_EQ(ItemAt({first_, Text("03tx"), Le32(2), Hex("2110")}, 526), Item::kBroken);  // there is no such stream
  EXPECT_EQ(ItemAt({first_, Hex("00"), Text("01wb"), Le32(2), Hex("2110")}, 527), Item::kBroken);  // odd
  EXPECT_EQ(ItemAt({first_}, 526), Item::kEnd);
  EXPECT_EQ(ItemAt({first_, ByteVector(100)}, 526), Item::kEnd);
}

// Their codes alone stand in many a payload.
TEST_F(AviChainTest, ClosingChunks_AreWhatClosingWrites) {
  const ByteVector entry = Join({Text("00dc"), Le32(16), Le32(4), Le32(6)});
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(16), entry}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(0), Text("JUNK")}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(16), ByteVector(16), ByteVector(40, 1)}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(16), Hex("05")}, 526), Item::kBox);  // cut off
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(17), entry}, 526), Item::kBroken);
  EXPECT_EQ(ItemAt({first_, Text("idx1"), Le32(16), ByteVector(16, 1)}, 526), Item::kBroken);
  EXPECT_EQ(ItemAt({first_, Text("JUNK"), Le32(320), ByteVector(900, 1)}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("JUNK"), Le32(900), ByteVector(900, 1)}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("JUNK"), Le32(901), ByteVector(900, 1)}, 526), Item::kBox);
  EXPECT_EQ(ItemAt({first_, Text("JUNK"), Le32(899), ByteVector(900, 1)}, 526), Item::kBroken);
}

TEST_F(AviChainTest, ClosingChunkAtTheStatedEnd_IsOneByItsCode) {
  const std::vector<ByteVector> chunks = {first_, Text("idx1"), Le32(16), ByteVector(16, 1)};
  EXPECT_EQ(ItemAt(chunks, 526), Item::kBroken);
  front_.front.mdat_size = 526 - 500 - 8;
  EXPECT_EQ(ItemAt(chunks, 526), Item::kBox);
  front_.front.mdat_size = 0;
}

// Frames of a track that no header describes were put into the last stream, and into no other.
TEST_F(AviChainTest, ChunksOfTheLastStream_MayBeOfAnyType) {
  for (const auto& [code, type] : {std::pair{"02dc", ZMV_MEDIA_VIDEO}, std::pair{"02wb", ZMV_MEDIA_AUDIO}}) {
    const ByteVector chunk = Join({Text(code), Le32(6), Hex("00000001 41 9A")});
    EXPECT_EQ(ItemAt({first_, chunk}, 526), Item::kRecord);
    EXPECT_EQ(ItemAt({first_, Text("01"), Text(code + 2), Le32(6), Hex("00000001 41 9A")}, 526),
              type == ZMV_MEDIA_AUDIO ? Item::kRecord : Item::kBroken);
    const recover::Record record =
        AskChain({first_, chunk}, [](recover::AviChain& chain) { return chain.At(526).record; });
    EXPECT_EQ(recover::NumberOf(record), 2u);
    EXPECT_EQ(recover::TypeOf(record), type);
    EXPECT_EQ(record.media, ZMV_MEDIA_TEXT);
    EXPECT_EQ(record.track, 0u);
  }
  // It is looked at as the picture, or the sound, that it is.
  EXPECT_EQ(PrefixOf({first_, Text("02dc"), Le32(6), Hex("00000001 41 9A")}, 526), Prefix::kStart);
}

// An entry has the form of a chunk of 16 bytes, or of none.
TEST_F(AviChainTest, IndexWithoutItsHeader_IsNoChunk) {
  for (const uint32_t flags : {0u, 0x10u}) {
    const ByteVector entry = Join({Text("00dc"), Le32(flags), Le32(4), Le32(6)});
    EXPECT_EQ(ItemAt({first_, entry, ByteVector(40, 1)}, 526), Item::kBox);
    EXPECT_EQ(ItemAt({first_, ByteVector(8), entry, ByteVector(40, 1)}, 526), Item::kBox);
  }
  // What it tells is not so.
  EXPECT_EQ(ItemAt({first_, Text("00dc"), Le32(16), Le32(4), Le32(7), ByteVector(40, 1)}, 526), Item::kRecord);
  EXPECT_EQ(ItemAt({first_, Text("00dc"), Le32(16), Le32(6), Le32(6), ByteVector(40, 1)}, 526), Item::kRecord);
  EXPECT_EQ(ItemAt({first_, Text("00dc"), Le32(16), Le32(0), Le32(6), ByteVector(40, 1)}, 526), Item::kRecord);
  EXPECT_EQ(ItemAt({first_, Text("00dc"), Le32(16), Le32(UINT32_MAX), Le32(6), ByteVector(40, 1)}, 526), Item::kRecord);
}

TEST_F(AviChainTest, AnyEntryOfTheIndex_IsNoChunk) {
  const ByteVector second = Join({Text("01wb"), Le32(2), Hex("2110")});
  const ByteVector entry = Join({Text("01wb"), Le32(16), Le32(18), Le32(2)});
  EXPECT_EQ(ItemAt({first_, second, entry, ByteVector(40, 1)}, 536), Item::kBox);
  // One that the end of the file cuts off.
  const ByteVector begun = Join({Text("00dc"), Le32(0)});
  EXPECT_EQ(ItemAt({first_, second, entry, begun}, 552), Item::kBox);
  EXPECT_EQ(ItemAt({first_, second, begun}, 536), Item::kRecord);
}

// The size of a chunk without data is written together with its code when both lie in a sector.
TEST_F(AviChainTest, ChunkWithoutDataInFrontOfUnwrittenZeros_IsKnownByItsSector) {
  const ByteVector empty = Join({Text("01wb"), Le32(0), ByteVector(2000)});
  EXPECT_EQ(ItemAt({first_, empty}, 526), Item::kRecord);
  const ByteVector long_one = Join({Text("00dc"), Le32(1020 - 526 - 8), ByteVector(1020 - 526 - 8, 5)});
  EXPECT_EQ(ItemAt({first_, long_one, empty}, 1020), Item::kRecordBeyond);
}

TEST_F(AviChainTest, PadByte_TellsOfDamageToThePayloadInItsSector) {
  const ByteVector odd = Join({Text("01wb"), Le32(3), Hex("211004")});
  EXPECT_EQ(PrefixOf({odd, Hex("00"), first_}, 512), Prefix::kNone);
  EXPECT_EQ(PrefixOf({odd, Hex("07"), first_}, 512), Prefix::kWrong);
  EXPECT_EQ(PrefixOf({odd}, 512), Prefix::kNone);  // cut behind the payload
  // From 521 the payload ends with its sector when it is of odd length.
  front_.front.mdat = 501;
  front_.front.end = 513;
  const ByteVector whole = Join({Text("01wb"), Le32(1024 - 521), ByteVector(1024 - 521, 5)});
  EXPECT_EQ(PrefixOf({Hex("00"), whole, Hex("07"), first_}, 513), Prefix::kNone);
}

TEST_F(AviChainTest, StartCode_IsSeenInVideo) {
  EXPECT_EQ(PrefixOf({first_}, 512), Prefix::kStart);
  EXPECT_EQ(PrefixOf({Text("00dc"), Le32(4), Hex("00000165")}, 512), Prefix::kStart);
  EXPECT_EQ(PrefixOf({Text("00dc"), Le32(4), Hex("65880001")}, 512), Prefix::kNone);
  EXPECT_EQ(PrefixOf({Text("01wb"), Le32(4), Hex("00000165")}, 512), Prefix::kNone);
}

}  // namespace
}  // namespace zmv::test
