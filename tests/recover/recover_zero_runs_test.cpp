// Zeros of a lost sector, and zeros of an encoder.
#include "recover/recover_zero_runs.h"

#include <gtest/gtest.h>

#include <vector>

namespace zmv::test {
namespace {

using recover::ZeroRuns;

constexpr uint32_t kLeast = 8;

// A payload at `begin` of the file with zeros in [from, to).
struct Payload {
  uint64_t begin;
  std::vector<uint8_t> bytes;

  Payload(uint64_t from, uint64_t to) : begin(from), bytes(to - from, 0x33) {}
  Payload& Zero(uint64_t from, uint64_t to) {
    for (uint64_t i = from; i < to; ++i) bytes[i - begin] = 0;
    return *this;
  }
  bool ShowsLoss(ZeroRuns& runs, bool last = false, uint32_t stream = 0) const {
    return runs.ShowLoss({bytes.data(), begin, begin, begin + bytes.size(), begin + bytes.size(), last}, kLeast,
                         stream);
  }
};

TEST(ZeroRunsTest, WholeSector_IsLost) {
  ZeroRuns runs;
  EXPECT_TRUE(Payload(100, 3000).Zero(1024, 1536).ShowsLoss(runs));
  EXPECT_TRUE(Payload(100, 3000).Zero(1024, 2048).ShowsLoss(runs));
  EXPECT_TRUE(Payload(100, 3000).Zero(1022, 1538).ShowsLoss(runs)) << "zeros of its own on both sides";
  EXPECT_TRUE(Payload(600, 3000).Zero(600, 1024).ShowsLoss(runs)) << "its first bytes";
  EXPECT_TRUE(Payload(600, 1536).Zero(1024, 1536).ShowsLoss(runs)) << "its last sector";
  EXPECT_FALSE(Payload(100, 3000).ShowsLoss(runs));
}

TEST(ZeroRunsTest, EndOfASector_IsLost) {
  ZeroRuns runs;
  EXPECT_TRUE(Payload(100, 3000).Zero(1024 - kLeast, 1024).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(1024 - kLeast + 1, 1024).ShowsLoss(runs)) << "too few to tell";
}

TEST(ZeroRunsTest, ZerosThatStopElsewhere_AreTheEncoders) {
  ZeroRuns runs;
  EXPECT_FALSE(Payload(100, 3000).Zero(900, 1700).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(400, 3000).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(1024, 1540).ShowsLoss(runs));
}

TEST(ZeroRunsTest, StreamThatMakesZeros_LosesOnlyWholeSectorsOfMore) {
  ZeroRuns runs;
  ASSERT_FALSE(Payload(100, 3000).Zero(1000, 1064).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(980, 1024).ShowsLoss(runs)) << "padding that happens to stop there";
  EXPECT_TRUE(Payload(100, 3000).Zero(1024, 1536).ShowsLoss(runs));
  EXPECT_TRUE(Payload(100, 3000).Zero(980, 1024).ShowsLoss(runs, false, 1)) << "another stream";
  ASSERT_FALSE(Payload(100, 3000).Zero(200, 900).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(1024, 1536).ShowsLoss(runs)) << "silence of that length";
}

TEST(ZeroRunsTest, ZerosAtTheEndOfAPayload_TellOfTheEncoder) {
  ZeroRuns runs;
  ASSERT_FALSE(Payload(100, 400).Zero(380, 400).ShowsLoss(runs));
  EXPECT_FALSE(Payload(100, 3000).Zero(1010, 1024).ShowsLoss(runs));
  ZeroRuns unsure;
  ASSERT_FALSE(Payload(100, 400).Zero(380, 400).ShowsLoss(unsure, true)) << "nothing follows it";
  EXPECT_TRUE(Payload(100, 3000).Zero(1010, 1024).ShowsLoss(unsure));
}

TEST(ZeroRunsTest, EndOfTheFile_EndsASectorToo) {
  ZeroRuns runs;
  EXPECT_TRUE(Payload(100, 1100).Zero(1024, 1100).ShowsLoss(runs, true));
  EXPECT_FALSE(Payload(100, 1100).Zero(1025, 1100).ShowsLoss(runs, true)) << "a part of it was written";
  EXPECT_TRUE(Payload(100, 1025).Zero(1024, 1025).ShowsLoss(runs, true)) << "however little there is of it";
  EXPECT_TRUE(Payload(100, 400).Zero(104, 400).ShowsLoss(runs, true)) << "nothing but its length was written";
  EXPECT_FALSE(Payload(100, 400).Zero(105, 400).ShowsLoss(runs, true)) << "more than that";
}

TEST(ZeroRunsTest, SectorThatIsZeroBehindThePayload_IsLost) {
  const Payload sector = Payload(100, 1536).Zero(1024, 1536);
  ZeroRuns runs;
  EXPECT_TRUE(runs.ShowLoss({sector.bytes.data(), 100, 100, 1400, 1536, false}, kLeast, 0));
  const Payload part = Payload(100, 1536).Zero(1024, 1404);
  EXPECT_FALSE(runs.ShowLoss({part.bytes.data(), 100, 100, 1400, 1536, false}, kLeast, 0)) << "a box follows";
}

TEST(ZeroRunsTest, SectorThatIsZeroInFrontOfThePayload_IsLost) {
  const Payload sector = Payload(1024, 3000).Zero(1024, 1536);
  ZeroRuns runs;
  EXPECT_TRUE(runs.ShowLoss({sector.bytes.data(), 1024, 1100, 3000, 3000, false}, kLeast, 0));
  const Payload part = Payload(1024, 3000).Zero(1024, 1400);
  EXPECT_FALSE(runs.ShowLoss({part.bytes.data(), 1024, 1100, 1400, 1400, false}, 400, 0)) << "too few to tell";
}

TEST(ZeroRunsTest, NoBytes_AreSound) {
  ZeroRuns runs;
  EXPECT_FALSE(Payload(100, 100).ShowsLoss(runs));
  EXPECT_FALSE(Payload(512, 512).ShowsLoss(runs, true));
}

}  // namespace
}  // namespace zmv::test
