#include "platform/posix/zmv_config_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::Bytes;
using test::kStart4;
using test::operator+;
using test::U16;
using test::WithLength;
using testing::ElementsAre;

struct Visited {
  uint8_t type;
  Bytes unit;
  bool operator==(const Visited&) const = default;
};

TEST(RecordCursor, ReadPastTheEnd_FailsForGood) {
  const Bytes data = {0x01, 0x02, 0x03, 0x00, 0x05, 0xAA};
  RecordCursor cursor(data.data(), static_cast<uint32_t>(data.size()));
  EXPECT_EQ(cursor.U8(), 1);
  EXPECT_EQ(cursor.U16(), 0x0203);
  EXPECT_EQ(cursor.Unit().data, nullptr);  // five bytes announced, one there
  EXPECT_TRUE(cursor.Failed());
  EXPECT_EQ(cursor.U8(), 0);
}

TEST(VisitAvcRecord, Units_CarryTheTypeOfTheirList) {
  const Bytes record = Bytes{0x01, 0x64, 0x00, 0x1E, 0xFF, 0xE2} + WithLength({0x67, 0x01}) + WithLength({0x67, 0x02}) +
                       Bytes{0x02} + WithLength({}) + WithLength({0x68, 0x03}) +  //
                       Bytes{0xFD, 0xF8, 0xF8, 0x01} + WithLength({0x6D, 0x04});
  std::vector<Visited> visited;
  EXPECT_TRUE(
      VisitAvcRecord(record.data(), static_cast<uint32_t>(record.size()), [&](uint8_t type, const NalSpan& unit) {
        visited.push_back({type, Bytes(unit.data, unit.data + unit.size)});
      }));
  EXPECT_THAT(visited, ElementsAre(Visited{7, {0x67, 0x01}}, Visited{7, {0x67, 0x02}}, Visited{8, {0x68, 0x03}},
                                   Visited{13, {0x6D, 0x04}}));
}

TEST(VisitAvcRecord, BytesBehindAMainRecord_AreNoTrailer) {
  const Bytes record = Bytes{0x01, 0x4D, 0x00, 0x1E, 0xFF, 0xE0, 0x00, 0xFD, 0xF8, 0xF8, 0x01} + WithLength({0x6D});
  int visits = 0;
  EXPECT_TRUE(
      VisitAvcRecord(record.data(), static_cast<uint32_t>(record.size()), [&](uint8_t, const NalSpan&) { ++visits; }));
  EXPECT_EQ(visits, 0);
}

TEST(VisitHevcRecord, Units_CarryTheTypeOfTheirArray) {
  Bytes record(22, 0x00);
  record = record + Bytes{0x02, 0xA0} + U16(2) + WithLength({0x40, 0x01}) + WithLength({0x40, 0x02}) +  //
           Bytes{0x27} + U16(1) + WithLength({0x4E, 0x01});
  std::vector<Visited> visited;
  EXPECT_TRUE(
      VisitHevcRecord(record.data(), static_cast<uint32_t>(record.size()), [&](uint8_t type, const NalSpan& unit) {
        visited.push_back({type, Bytes(unit.data, unit.data + unit.size)});
      }));
  EXPECT_THAT(visited, ElementsAre(Visited{32, {0x40, 0x01}}, Visited{32, {0x40, 0x02}}, Visited{39, {0x4E, 0x01}}));
}

TEST(VisitHevcRecord, CountsBeyondTheData_EndAtIt) {
  Bytes record(22, 0x00);
  record = record + Bytes{0xFF, 0xA0} + U16(0xFFFF) + WithLength({0x40, 0x01});
  int visits = 0;
  EXPECT_FALSE(
      VisitHevcRecord(record.data(), static_cast<uint32_t>(record.size()), [&](uint8_t, const NalSpan&) { ++visits; }));
  EXPECT_EQ(visits, 1);
}

TEST(StartCodeWriter, UnitThatDoesNotFit_IsLeftOutAndTheNextTaken) {
  const Bytes large = {0x68, 1, 2, 3, 4, 5}, small = {0x68, 9};
  uint8_t place[12];
  StartCodeWriter writer(place, 9);
  writer.Append({large.data(), 6});
  EXPECT_EQ(writer.Size(), 0u);
  writer.Append({small.data(), 2});
  writer.Append({small.data(), 2});
  EXPECT_EQ(Bytes(place, place + writer.Size()), kStart4 + small);
}

}  // namespace
}  // namespace zmv::codec
