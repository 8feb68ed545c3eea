#include <gmock/gmock.h>

#include <cstring>

#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A stream whose data is still arriving.
struct Arriving {
  int64_t size;
  int64_t current;
  uint32_t shown;
};

class ReaderStatus : public FakePlayback {
 protected:
  ReaderStatus() {
    reader_.operations.GetStatus = nullptr;
    reader_.m_hInOut = &stream_;
    stream_.hInOut = &arriving_;
    stream_.Size = [](void* context) { return static_cast<Arriving*>(context)->size; };
    stream_.CurSize = [](void* context) { return static_cast<Arriving*>(context)->current; };
    stream_.ShowPos = [](void* context) { return static_cast<Arriving*>(context)->shown; };
  }
  ZMVReaderStatus Status(Arriving arriving) {
    arriving_ = arriving;
    ZMVReaderStatus status;
    std::memset(&status, 0xEE, sizeof status);
    EXPECT_EQ(ZMVReaderGetStatus(&reader_, &status), 1);
    return status;
  }

  ZMVStreamBuf stream_{};
  Arriving arriving_{};
};

TEST_F(ReaderStatus, CompleteFile_IsLoadedAndBuffered) {
  for (const int64_t size : {int64_t{0}, int64_t{1}, int64_t{16777217}, int64_t{0xFFFFFFFF}}) {
    const ZMVReaderStatus status = Status({size, size, 0});
    EXPECT_EQ(status.dwLoadPercent, 100u) << size;
    EXPECT_EQ(status.dwBufferPercent, 100u) << size;
    EXPECT_THAT(status.adwReserved, ElementsAre(0, 0, 0));
  }
}

TEST_F(ReaderStatus, HalfArrived_CountsFromTheShowPosition) {
  const ZMVReaderStatus status = Status({100000, 50000, 48000});
  EXPECT_EQ(status.dwLoadPercent, 50u);
  EXPECT_EQ(status.dwBufferPercent, 40u);  // 2000 of a span of 5000
}

TEST_F(ReaderStatus, Percentages_AreTruncated) {
  const ZMVReaderStatus status = Status({1000, 999, 0});
  EXPECT_EQ(status.dwLoadPercent, 99u);
  EXPECT_EQ(status.dwBufferPercent, 100u);  // a span of 0
}

TEST_F(ReaderStatus, MoreBufferedThanTheSpan_IsAbove100) { EXPECT_EQ(Status({1000, 500, 0}).dwBufferPercent, 1000u); }

TEST_F(ReaderStatus, ShownBeyondWhatArrived_IsZero) { EXPECT_EQ(Status({1000, 500, 600}).dwBufferPercent, 0u); }

TEST_F(ReaderStatus, SizeUnknown_DoesNotTrap) {
  const ZMVReaderStatus status = Status({0, 500, 0});
  EXPECT_EQ(status.dwLoadPercent, 0u);
  EXPECT_EQ(status.dwBufferPercent, 0u);
}

TEST_F(ReaderStatus, SlotFilled_IsForwardedAClearedRecordUnlocked) {
  reader_.operations.GetStatus = FakeReader::Operations().GetStatus;
  fake_.status.dwBufferPercent = 12;
  fake_.status.dwLoadPercent = 34;
  const ZMVReaderStatus status = Status({1000, 500, 0});
  EXPECT_EQ(status.dwBufferPercent, 12u);
  EXPECT_EQ(status.dwLoadPercent, 34u);
  EXPECT_THAT(Calls(), ElementsAre("GetStatus(0, 0)"));
}

TEST_F(ReaderStatus, OpenFile_Reads100) {
  host_.PutFile("a.bin", Zeros(5000));
  TestStream file("a.bin", ZMV_STREAM_READ);
  reader_.m_hInOut = file.Get();
  ZMVReaderStatus status{};
  EXPECT_EQ(ZMVReaderGetStatus(&reader_, &status), 1);
  EXPECT_EQ(status.dwLoadPercent, 100u);
  EXPECT_EQ(status.dwBufferPercent, 100u);
}

TEST_F(ReaderStatus, SetStatus_ForwardsUnderTheMutex) {
  EXPECT_EQ(ZMVReaderSetStatus(&reader_, 5), 0);
  fake_.result = Result(ZMV_E_FAIL);
  EXPECT_EQ(Code(ZMVReaderSetStatus(&reader_, 6)), ZMV_E_FAIL);
  EXPECT_THAT(Calls(), ElementsAre("+SetStatus(5)", "+SetStatus(6)"));
}

TEST_F(ReaderStatus, SetStatus_NullHandleOrEmptySlot_IsZero) {
  EXPECT_EQ(ZMVReaderSetStatus(nullptr, 5), 0);
  reader_.operations.SetStatus = nullptr;
  EXPECT_EQ(ZMVReaderSetStatus(&reader_, 5), 0);
  EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace
}  // namespace zmv::test
