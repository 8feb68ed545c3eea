#include "recover/recover_avi_search.h"

#include "base/byte_order.h"
#include "facade/zmvstream_media.h"
#include "tests/support/memory_file.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr uint64_t kMegabyte = 1u << 20;

class AviSearchTest : public testing::Test {
 protected:
  AviSearchTest() {
    host_.record = false;
    host_.trace_level = 0;
  }
  // Where the search ends; UINT64_MAX when nothing is found.
  template <typename Search>
  uint64_t Found(Search search, ByteVector bytes) {
    StoredFile file(std::move(bytes));
    recover::Window window(file);
    uint64_t found = UINT64_MAX;
    const bool any = search(window, found);
    error_ = window.Error();
    bytes_read_ = file.read_bytes();
    return any ? found : UINT64_MAX;
  }
  static ByteVector At(uint64_t position, const ByteVector& bytes, size_t behind = 0) {
    return Join({ByteVector(position, 0x30), bytes, ByteVector(behind, 0x31)});
  }

  ScriptedHost host_;
  int32_t error_ = 0;
  uint64_t bytes_read_ = 0;
  const ByteVector movi_ = Join({Text("LIST"), Le32(0), Text("movi"), Text("01wb"), Le32(2)});
  const ByteVector chunks_ =
      Join({Text("00dc"), Le32(3), Hex("11223300"), Text("01wb"), Le32(2), Hex("2110"), Text("02tx"), Le32(1)});
};

TEST(ParseChunkHeader, Chunks_AreNamedByStreamAndMedium) {
  uint32_t stream = 0, media = 0, size = 0;
  const auto parse = [&](const char* code) {
    return recover::ParseChunkHeader(Join({Text(code), Le32(77)}).data(), stream, media, size);
  };
  ASSERT_TRUE(parse("00dc"));
  EXPECT_EQ(stream, 0u);
  EXPECT_EQ(media, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(size, 77u);
  ASSERT_TRUE(parse("09wb"));
  EXPECT_EQ(stream, 9u);
  EXPECT_EQ(media, ZMV_MEDIA_AUDIO);
  ASSERT_TRUE(parse("0:tx"));
  EXPECT_EQ(stream, 10u);
  EXPECT_EQ(media, ZMV_MEDIA_TEXT);
  ASSERT_TRUE(parse("0;dc"));
  EXPECT_EQ(stream, 11u);
  for (const char* code : {"0<dc", "0/dc", "10dc", "00db", "00cd", "00wd", "idx1", "JUNK", "LIST"}) {
    EXPECT_FALSE(parse(code)) << code;
  }
}

TEST_F(AviSearchTest, Movi_IsFoundWhereAChunkStandsInIt) {
  for (const uint64_t position :
       {uint64_t{0}, uint64_t{1}, uint64_t{700}, uint64_t{4090}, uint64_t{4096}, uint64_t{250000}}) {
    EXPECT_EQ(Found(recover::FindMovi, At(position, movi_)), position);
    EXPECT_EQ(Found(recover::FindMovi, At(position, movi_, 9000)), position);
  }
  EXPECT_EQ(error_, 0);
}

TEST_F(AviSearchTest, MoviWithoutAChunk_IsPassedOver) {
  const ByteVector empty = Join({Text("LIST"), Le32(0), Text("movi"), Text("idx1"), Le32(0)});
  EXPECT_EQ(Found(recover::FindMovi, empty), UINT64_MAX);
  EXPECT_EQ(Found(recover::FindMovi, Join({empty, movi_})), empty.size());
  EXPECT_EQ(Found(recover::FindMovi, Join({Text("RIFF"), movi_})), 4u);
  EXPECT_EQ(Found(recover::FindMovi, ByteVector(movi_.begin(), movi_.end() - 1)), UINT64_MAX);
  EXPECT_EQ(Found(recover::FindMovi, {}), UINT64_MAX);
  EXPECT_EQ(error_, 0);
}

TEST_F(AviSearchTest, Chunks_AreFoundWhereThreeFollowEachOther) {
  for (const uint64_t position : {uint64_t{0}, uint64_t{3}, uint64_t{511}, uint64_t{4089}, uint64_t{300000}}) {
    EXPECT_EQ(Found(recover::FindChunks, At(position, chunks_)), position);
  }
  EXPECT_EQ(Found(recover::FindChunks, ByteVector(chunks_.begin(), chunks_.end() - 1)), UINT64_MAX);
  ByteVector broken = chunks_;
  broken[12] = 'x';
  EXPECT_EQ(Found(recover::FindChunks, broken), UINT64_MAX);
  EXPECT_EQ(error_, 0);
}

TEST_F(AviSearchTest, BehindTheHeaders_NothingIsLookedFor) {
  EXPECT_EQ(Found(recover::FindMovi, At(kMegabyte - 20, movi_)), kMegabyte - 20);
  EXPECT_EQ(Found(recover::FindMovi, At(kMegabyte - 19, movi_)), UINT64_MAX);
  EXPECT_LE(bytes_read_, 2 * kMegabyte);
  EXPECT_EQ(Found(recover::FindChunks, At(kMegabyte - 8, chunks_)), kMegabyte - 8);
  EXPECT_EQ(Found(recover::FindChunks, At(kMegabyte - 7, chunks_)), UINT64_MAX);
}

// Every one leads to another place far behind it.
TEST_F(AviSearchTest, ChunksThatLeadFarAway_CostNoMoreThanTheirHeaders) {
  ByteVector bytes;
  const ByteVector chunk = Join({Text("00dc"), Le32(static_cast<uint32_t>(kMegabyte + 4))});
  while (bytes.size() < 2 * kMegabyte) bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  EXPECT_EQ(Found(recover::FindChunks, bytes), UINT64_MAX);
  EXPECT_LE(bytes_read_, 4 * kMegabyte);
}

TEST_F(AviSearchTest, FailedReads_AreErrors) {
  // The first read takes the beginning, the second one follows a chunk.
  const ByteVector far = Join({Text("00dc"), Le32(600000), ByteVector(600000), chunks_});
  for (uint64_t nth = 1; nth <= 2; ++nth) {
    StoredFile file(far);
    file.Fail(StoredFile::kRead, nth, true);
    recover::Window window(file);
    uint64_t found = 0;
    EXPECT_FALSE(recover::FindChunks(window, found)) << nth;
    EXPECT_EQ(window.Error(), Result(ZMV_E_READ)) << nth;
  }
  StoredFile file(far);
  recover::Window window(file);
  uint64_t found = 1;
  EXPECT_TRUE(recover::FindChunks(window, found));
  EXPECT_EQ(found, 0u);
}

}  // namespace
}  // namespace zmv::test
