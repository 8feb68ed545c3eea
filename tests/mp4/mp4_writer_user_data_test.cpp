// The memory that a recording sets aside for GPS and sensor samples.
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

class WriterUserData : public WriterTest {};

TEST_F(WriterUserData, SetInfo_UserData_IsSizedByRateAndDuration) {
  const struct {
    uint32_t duration, rate, samples;
  } rows[] = {
      {0, 10, 60 * 10 * 2},           // a minute when the duration is not known
      {30, 10, 30 * 10 * 2},          // seconds
      {1000, 1000, 1000 * 1000 * 2},  // 1000 is not above 1000
      {1001, 1001, 1 * 1 * 2},        // thousandths
      {30500, 10999, 30 * 10 * 2},   {5, 0, 0},
  };
  Brand("F");
  AddText();
  for (const auto& row : rows) {
    info.dwDuration = row.duration;
    info.m_Text[0].dwRate = row.rate;
    Start(1, 1);
    EXPECT_EQ(writer->m_bExtUserData, 1);
    EXPECT_EQ(writer->m_dwGpsrMax, row.samples) << row.duration;
    EXPECT_EQ(writer->m_dwSensMax, row.samples) << row.duration;
    EXPECT_EQ(writer->m_dwGpsrNum, 0u);
    Close();
  }
}

TEST_F(WriterUserData, SetInfo_UserData_NeedsATextStreamAndItsBrand) {
  Brand("F1");
  AddVideo();
  Start();
  EXPECT_EQ(writer->m_bExtUserData, 0);
  EXPECT_EQ(mp4::pExtUserLast, nullptr);
  Close();
  AddText();
  Brand("f");
  Start();
  EXPECT_EQ(writer->m_bExtUserData, 0);
  Close();
  Brand("Front");
  Start();
  EXPECT_EQ(writer->m_bExtUserData, 1);
  EXPECT_NE(mp4::pExtUserLast, nullptr);
}

TEST_F(WriterUserData, SetInfo_NoMemoryForUserData_IsSwitchedOff) {
  Brand("F");
  AddText(10);
  info.dwDuration = 10;
  ASSERT_EQ(Open(1, 1), 0);
  host.Fail(HostCall::kMalloc, 6);  // random box, track, three tables, GPS array
  EXPECT_EQ(SetInfo(), 0);
  EXPECT_TRUE(host.Traced("Alloc for extra userdata failed! (16000, 2400 bytes)\n"));
  EXPECT_EQ(writer->m_bExtUserData, 0);
  EXPECT_EQ(writer->m_pGpsr, nullptr);
  EXPECT_EQ(writer->m_pSens, nullptr);
}

TEST_F(WriterUserData, SetInfo_UserDataBeyond32Bits_AllocatesNothing) {
  Brand("F");
  AddText(1000);
  info.dwDuration = 0xFFFFFFFF;  // 4294967 seconds, 8589934000 samples
  ASSERT_EQ(Open(1, 1), 0);
  EXPECT_EQ(SetInfo(), 0);
  EXPECT_TRUE(host.Traced("Alloc for extra userdata failed! (4294967295, 4294967295 bytes)\n"));
  EXPECT_EQ(writer->m_bExtUserData, 0);
  for (const CallRecord& call : host.Calls(HostCall::kMalloc)) EXPECT_NE(call.name, "PrepareUserData");
}

TEST_F(WriterUserData, SetInfo_SecondUserDataArrayFails_FreesTheFirst) {
  Brand("F");
  AddText(10);
  ASSERT_EQ(Open(1, 1), 0);
  // Random box, track, three tables, GPS array, sensor array.
  host.Fail(HostCall::kMalloc, 7);
  const uint64_t blocks = host.LiveBlocks();
  EXPECT_EQ(SetInfo(), 0);
  EXPECT_EQ(writer->m_bExtUserData, 0);
  EXPECT_EQ(host.LiveBlocks(), blocks + 4);
}

}  // namespace
}  // namespace zmv::test
