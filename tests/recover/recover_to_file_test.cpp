// New recordings out of damaged ones: what they cost in memory, and what is said when the host does not carry one
// through.
#include "recover/recover_to_file.h"

#include "base/host_memory.h"
#include "mp4/mp4_writer.h"
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class NewRecording : public RecoveryTest {
 protected:
  ~NewRecording() override {
    FreeHost(mp4::pExtUserLast);
    mp4::pExtUserLast = nullptr;
  }

  // Text frames alone, which carry the blocks. The recorder has room for 100,000 samples.
  Recording RecordTexts(uint32_t count) {
    info_.dwVideoCount = info_.dwAudioCount = 0;
    info_.m_Text[0].dwRate = 100;
    info_.dwDuration = 500;
    std::vector<TestFrame> frames;
    for (uint32_t i = 0; i < count; ++i) {
      ByteVector payload(92 + i % 3, static_cast<uint8_t>(1 + i % 251));
      for (uint32_t k = 0; k < 3; ++k) payload[80 + k] = static_cast<uint8_t>(i >> (8 * k));
      payload[12] = 0;
      frames.push_back({ZMV_MEDIA_TEXT, 0, 10 * i, 10, true, payload});
    }
    return Record(info_, frames, 1, 600000);
  }
  // The most memory that a new recording takes at once.
  uint64_t Peak(const ByteVector& damaged, ByteVector& made) {
    ScriptedHost host;
    host.trace_level = 0;
    host.record = false;
    LogFile source(damaged);
    param_.pszTarget = kTarget;
    result_ = recover::RecoverToFile(source, param_, report_);
    made = host.File(kTarget);
    EXPECT_EQ(host.LiveBlocks(), 0u);
    return host.PeakBytes();
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
};

TEST_F(NewRecording, ManyTexts_TakeNoMoreMemoryThanFew) {
  ByteVector made;
  const uint64_t few = Peak(RecordTexts(5000).open, made);
  ASSERT_EQ(result_, 0);
  const Recording recording = RecordTexts(100000);
  EXPECT_EQ(Peak(recording.open, made), few);
  ASSERT_EQ(result_, 0);
  for (const char* box : {"GPSR", "SENS", "AIDD"}) {
    EXPECT_EQ(Difference(BoxBytes(made, box), BoxBytes(recording.closed, box)), "") << box;
  }
  EXPECT_EQ(BoxBytes(made, "GPSR").size(), 8u + 80 * 100000);
}

TEST_F(NewRecording, LastSampleOfTheProcess_Stays) {
  const Recording first = RecordTexts(20);
  const Recording second = RecordTexts(30);
  ASSERT_NE(mp4::pExtUserLast, nullptr);
  const uint8_t* const memory = mp4::pExtUserLast;
  const ByteVector before(memory, memory + mp4::kUserSampleSize);
  ASSERT_NE(BoxBytes(ToFile(first.open), "SENS"), ByteVector());
  EXPECT_EQ(mp4::pExtUserLast, memory);
  EXPECT_EQ(Difference(ByteVector(memory, memory + mp4::kUserSampleSize), before), "");
}

// The first free box that is neither a description nor the build information says it.
TEST_F(NewRecording, RecoveryBrand_IsKept) {
  const auto says = [](const ByteVector& file) {
    const ByteVector brand = Text("rcvf");
    const auto end = file.begin() + static_cast<ptrdiff_t>(TopBoxes(file).at(5).position);
    return std::search(file.begin(), end, brand.begin(), brand.end()) != end;
  };
  for (const char* software : {"Recovery", "Fleet", "", "Recovery2"}) {
    std::memset(info_.szSoftware, 0, sizeof info_.szSoftware);
    std::strcpy(info_.szSoftware, software);
    const bool expected = std::string(software) == "Recovery";
    const Recording recording = Record(info_, SmallFrames());
    ASSERT_EQ(says(recording.closed), expected);
    const ByteVector made = ToFile(recording.open);
    EXPECT_EQ(says(made), expected) << software;
    EXPECT_EQ(says(InPlace(recording.open)), expected) << software;
    EXPECT_EQ(CompareFrames(made, info_, recording.frames, recording.frames.size()), "");
    // The blocks of the text frames tell whether the boxes are wanted.
    EXPECT_EQ(BoxBytes(made, "GPSR").size(), 8u + 14 * 80) << software;
    EXPECT_EQ(BoxBytes(made, "SENS").size(), 8u + 14 * 12) << software;
  }
}

}  // namespace
}  // namespace zmv::test
