// Counting what a stream holds.
#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AviSize : public AviReaderTest {
 protected:
  // A file whose "movi" list, right behind an empty header list, holds `data`.
  static ByteVector WithMovi(const ByteVector& data) {
    return Riff("AVI ", Join({List("hdrl", {}), List("movi", data)}));
  }
  uint32_t Count(const ByteVector& bytes, uint32_t number) {
    Load(bytes);
    host_.ClearRecords();
    const uint32_t count = AVIReaderGetStreamSize(reader_, number);
    EXPECT_EQ(CursorsInUse(), 1u);
    return count;
  }
};

TEST_F(AviSize, PicturesAreCountedAndSoundIsSummedUp) {
  const ByteVector file = WithMovi(Join({
      Chunk("00dc", ByteVector(5)),  // 14 bytes with its pad
      Chunk("01wb", ByteVector(100)),
      Chunk("00db", ByteVector(6)),
      Chunk("01wb", ByteVector(33)),
      Chunk("02tx", ByteVector(1)),
  }));
  EXPECT_EQ(Count(file, 0), 2u);
  EXPECT_THAT(host_.Traces(2), ElementsAre("AVIReaderGetStreamSize index(0) size(13) cnt(1) entry(1)\n",
                                           "AVIReaderGetStreamSize index(0) size(14) cnt(2) entry(3)\n"));
  EXPECT_EQ(Count(file, 1), 133u);
  EXPECT_EQ(Count(file, 2), 1u);
  EXPECT_EQ(Count(file, 3), 0u);
  EXPECT_THAT(host_.Traces(2), IsEmpty());
}

TEST_F(AviSize, NumbersAreReadAsTextIs) {
  const ByteVector file = WithMovi(Join({
      Chunk("ix00", {1, 2}),                         // no digit: stream 0
      Chunk("1xdc", {1, 2}),                         // stops at the letter
      Chunk(" 1dc", {1, 2}),                         // blanks are passed
      Chunk("+2dc", {1, 2}), Chunk("-1dc", {1, 2}),  // no stream at all
      Chunk("x1dc", {1, 2}),                         // stream 0
  }));
  EXPECT_EQ(Count(file, 0), 2u);
  EXPECT_EQ(Count(file, 1), 2u);
  EXPECT_EQ(Count(file, 2), 1u);
}

TEST_F(AviSize, NumberAboveThree_EndsTheCount) {
  const ByteVector file =
      WithMovi(Join({Chunk("03dc", {1, 2}), Chunk("04dc", {1, 2}), Chunk("03dc", {1, 2}), Chunk("00dc", {1, 2})}));
  EXPECT_EQ(Count(file, 3), 1u);
  EXPECT_EQ(Count(file, 0), 0u);
  EXPECT_EQ(Count(file, 4), 0u);
}

TEST_F(AviSize, EmptyChunk_EndsTheCount) {
  EXPECT_EQ(Count(WithMovi(Join({Chunk("00dc", {1, 2}), Chunk("00dc", {}), Chunk("00dc", {1, 2})})), 0), 1u);
}

TEST_F(AviSize, ChunkThatDoesNotFit_EndsTheCount) {
  const ByteVector good = Chunk("00wb", {1, 2});
  for (uint32_t size : {3u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Count(WithMovi(Join({good, good, Text("00wb"), Le32(size), ByteVector(2)})), 0), 4u) << size;
  }
  EXPECT_EQ(Count(WithMovi(Join({good, Text("00wb"), Le32(2), ByteVector(2)})), 0), 4u) << "one that just fits";
}

TEST_F(AviSize, OnlyTheFirstListIsCounted) {
  EXPECT_EQ(Count(Join({WithMovi(Chunk("00dc", {1, 2})), Riff("AVIX", List("movi", Chunk("00dc", {1, 2})))}), 0), 1u);
}

TEST_F(AviSize, ListThatRunsPastTheData_IsCountedAsFarAsItGoes) {
  ByteVector file = WithMovi(Join({Chunk("00dc", {1, 2}), Chunk("00dc", {1, 2})}));
  file[28] = 0xFF;  // size of the movi list
  EXPECT_EQ(Count(file, 0), 2u);
  EXPECT_EQ(Count(Front(file, file.size() - 1), 0), 1u);
}

TEST_F(AviSize, UnfinishedList_HoldsNothing) {
  ByteVector file = WithMovi(Chunk("00dc", {1, 2}));
  std::fill(file.begin() + 28, file.begin() + 32, uint8_t{0});
  EXPECT_EQ(Count(file, 0), 0u);
}

TEST_F(AviSize, AnyChunkOnTheWay_IsSteppedOver) {
  const ByteVector movi = List("movi", Chunk("00dc", {1, 2}));
  EXPECT_EQ(Count(Riff("AVI ", Join({List("hdrl", ByteVector(7)), Chunk("JUNK", ByteVector(5000)), Chunk("odd ", {1}),
                                     Chunk("none", {}), Chunk("LIST", {}), movi})),
                  0),
            1u);
}

TEST_F(AviSize, FilesOfAnotherShape_AreNotCounted) {
  const ByteVector movi = List("movi", Chunk("00dc", {1, 2}));
  EXPECT_EQ(Count(Riff("AVI ", Join({Chunk("JUNK", {1, 2}), movi})), 0), 0u) << "no list in front";
  EXPECT_EQ(Count(Riff("AVI ", List("hdrl", {})), 0), 0u) << "no movi";
  EXPECT_EQ(Count(Riff("AVI ", {}), 0), 0u);
  EXPECT_EQ(Count(Join({ByteVector(92, 1), Le32(96), Riff("AVI ", movi)}), 0), 0u) << "a block in front";
}

TEST_F(AviSize, SizesOnTheWay_NeverLeadBackward) {
  for (uint32_t size : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFECu, 0x80000000u, 0x7FFFFFFFu}) {
    EXPECT_EQ(
        Count(Join({Text("RIFF"), Le32(0), Text("AVI "), Text("LIST"), Le32(size), Text("hdrl"), ByteVector(99)}), 0),
        0u);
  }
}

TEST_F(AviSize, FaultsGiveWhatWasCounted) {
  ByteVector chunks;
  for (int i = 0; i < 4; ++i) chunks = Join({chunks, Chunk("00dc", ByteVector(6000))});
  const ByteVector file = WithMovi(chunks);
  Load(file);
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(AVIReaderGetStreamSize(reader_, 0), 0u);
  uint32_t before = 0;
  for (uint64_t nth = 1; before != 4 && nth < 50; ++nth) {
    Load(file);
    host_.Fail(HostCall::kRead, nth, ScriptedHost::kForGood);
    const uint32_t count = AVIReaderGetStreamSize(reader_, 0);
    host_.ClearFailures();
    EXPECT_GE(count, before);
    EXPECT_EQ(CursorsInUse(), 1u);
    before = count;
  }
  EXPECT_EQ(before, 4u);
}

TEST_F(AviSize, ManySmallChunks_AreReadInBlocks) {
  ByteVector chunks;
  for (int i = 0; i < 2000; ++i) chunks.insert(chunks.end(), {'0', '0', 'd', 'c', 2, 0, 0, 0, 1, 2});
  Load(WithMovi(chunks));
  const uint64_t reads = host_.Count(HostCall::kRead);
  EXPECT_EQ(AVIReaderGetStreamSize(reader_, 0), 2000u);
  EXPECT_LT(host_.Count(HostCall::kRead) - reads, 20u);  // 20 KB in blocks of 4 KiB
  EXPECT_LT(host_.PeakBytes(), 16384u) << "the file is not loaded";
}

}  // namespace
}  // namespace zmv::test
