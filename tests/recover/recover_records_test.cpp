#include "recover/recover_records.h"

#include <gtest/gtest.h>

#include "facade/zmvstream_media.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

using namespace recover;

ByteVector RecordBytes(uint32_t media, uint32_t key, uint32_t track) {
  return Join({
      Text("RECO"), Be32(media), Be32(key),
      Be32(0x01020304),  // stamp
      Be32(33333),       // duration
      Be32(track),
      Be32(0xFFFFFFFF),  // size
  });
}

bool Parses(const ByteVector& bytes, const StreamLimits& limits = {}) {
  Record record;
  return ParseRecord(bytes.data(), limits, record);
}

TEST(Record_, Fields_AreTaken) {
  Record record;
  ASSERT_TRUE(ParseRecord(RecordBytes(ZMV_MEDIA_VIDEO, 1, 8).data(), StreamLimits(), record));
  EXPECT_EQ(record.media, ZMV_MEDIA_VIDEO);
  EXPECT_TRUE(record.key);
  EXPECT_EQ(record.stamp, 0x01020304u);
  EXPECT_EQ(record.duration, 33333u);
  EXPECT_EQ(record.track, 8u);
  EXPECT_EQ(record.size, 0xFFFFFFFFu);
}

TEST(Record_, ImplausibleFields_AreRefused) {
  EXPECT_TRUE(Parses(RecordBytes(ZMV_MEDIA_AUDIO, 0, 0)));
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_AUDIO, 1, 0))) << "only video has key frames";
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_VIDEO, 2, 0)));
  EXPECT_FALSE(Parses(RecordBytes(0, 0, 0)));
  EXPECT_FALSE(Parses(RecordBytes(4, 0, 0)));
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_VIDEO, 0, 9)));
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_AUDIO, 0, 1)));
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_TEXT, 0, 2)));
  EXPECT_FALSE(Parses(RecordBytes(ZMV_MEDIA_TEXT, 0, 0), {1, 1, 0})) << "no text stream is described";
  ByteVector other = RecordBytes(ZMV_MEDIA_VIDEO, 0, 0);
  other[3] = 'o';
  EXPECT_FALSE(Parses(other));
}

TEST(Record_, AnyPartOfIt_BeginsARecord) {
  const ByteVector record = RecordBytes(ZMV_MEDIA_VIDEO, 1, 1);
  EXPECT_FALSE(BeginsRecord(record.data(), 0, StreamLimits()));
  for (uint32_t count = 1; count <= record.size(); ++count) {
    EXPECT_TRUE(BeginsRecord(record.data(), count, {2, 0, 0})) << count;
    EXPECT_EQ(BeginsRecord(record.data(), count, {1, 0, 0}), count < 24) << count << ": the track is byte 23";
    EXPECT_EQ(BeginsRecord(record.data(), count, {0, 1, 1}), count < 8) << count << ": the medium is byte 7";
  }
}

TEST(Table_, Lengths_AreWholeEntriesAndNoText) {
  uint32_t length = 0;
  const auto parses = [&length](uint32_t value) {
    return ParseTableHeader(Join({Text("tabl"), Be32(value)}).data(), length);
  };
  EXPECT_TRUE(parses(40));
  EXPECT_EQ(length, 40u);
  EXPECT_TRUE(parses(0x0FFFFFFC));
  EXPECT_FALSE(parses(0));
  EXPECT_FALSE(parses(42));
  EXPECT_FALSE(parses(0x65732020)) << "tables  ";
  EXPECT_FALSE(ParseTableHeader(Join({Text("tabs"), Be32(40)}).data(), length));
}

TEST(Table_, AnyPartOfItsHeader_BeginsATable) {
  const ByteVector header = Join({Text("tabl"), Be32(0x01000028), Text("more")});
  EXPECT_FALSE(BeginsTable(header.data(), 0));
  for (uint32_t count = 1; count <= header.size(); ++count) EXPECT_TRUE(BeginsTable(header.data(), count)) << count;
  EXPECT_FALSE(BeginsTable(Text("tabs").data(), 4));
  EXPECT_FALSE(BeginsTable(Text("table").data(), 5));
  EXPECT_FALSE(BeginsTable(Join({Text("tabl"), Be32(41)}).data(), 8));
  EXPECT_TRUE(BeginsTable(Join({Text("tabl"), Be32(41)}).data(), 7));
}

TEST(FindRecordTag_, FirstWholeTag_IsFound) {
  const ByteVector bytes = Text("RECRECOxRECO");
  EXPECT_EQ(FindRecordTag(bytes.data(), 12), bytes.data() + 3);
  EXPECT_EQ(FindRecordTag(bytes.data() + 4, 8), bytes.data() + 8);
  EXPECT_EQ(FindRecordTag(bytes.data() + 4, 7), nullptr);
  EXPECT_EQ(FindRecordTag(bytes.data(), 0), nullptr);
}

TEST(CarriesUserData_, Blocks_AreNoPlainText) {
  ByteVector payload(92, 'a');
  EXPECT_FALSE(CarriesUserData(payload.data(), 92));
  payload[7] = 0;
  EXPECT_FALSE(CarriesUserData(payload.data(), 92)) << "in front of the blocks";
  payload[8] = 0;
  EXPECT_TRUE(CarriesUserData(payload.data(), 92));
  EXPECT_FALSE(CarriesUserData(payload.data(), 91));
  payload[8] = 'a';
  payload[91] = 1;
  EXPECT_TRUE(CarriesUserData(payload.data(), 92));
}

}  // namespace
}  // namespace zmv::test
