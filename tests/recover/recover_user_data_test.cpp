#include "recover/recover_user_data.h"

#include <memory>

#include "base/host_memory.h"
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

// A recording as bytes, of which some can be read and to which others are appended.
class TextOutput final : public recover::Output {
 public:
  explicit TextOutput(ByteVector file) : file_(std::move(file)) {}

  int32_t Append(const void* bytes, uint32_t count) override {
    if (appended.size() + count > capacity) return result_ = zmv::Result(ZMV_E_WRITE);
    const auto* from = static_cast<const uint8_t*>(bytes);
    appended.insert(appended.end(), from, from + count);
    return 0;
  }
  int32_t Read(uint64_t position, void* bytes, uint32_t count) override {
    if (position + count > file_.size()) return result_ = zmv::Result(ZMV_E_READ);
    std::copy_n(file_.begin() + static_cast<ptrdiff_t>(position), count, static_cast<uint8_t*>(bytes));
    return 0;
  }
  int32_t Result() const override { return result_; }

  ByteVector appended;
  size_t capacity = SIZE_MAX;

 private:
  int32_t result_ = 0;
  ByteVector file_;
};

// Writer records alone, with tables as the writer keeps them.
class UserDataTest : public testing::Test {
 protected:
  // The frames of a track that stand in the file, at their positions; the first `spilled` are in blocks of two.
  MP4WriterTrack& AddTrack(uint32_t media, const std::vector<std::pair<uint32_t, uint32_t>>& frames, size_t spilled) {
    MP4WriterTrack& track = *tracks_.emplace_back(std::make_unique<MP4WriterTrack>());
    track.dwMediaType = media;
    ByteVector positions, sizes;
    for (const auto& [position, size] : frames) {
      for (const uint8_t byte : Be32(position)) positions.push_back(byte);
      for (const uint8_t byte : Be32(size)) sizes.push_back(byte);
    }
    Fill(track.m_Stco, positions, spilled);
    Fill(track.m_Stsz, sizes, spilled);
    writer_.m_pTrack[writer_.m_dwTrackNum++] = &track;
    return track;
  }
  // 92 bytes at `position`: of every byte of the blocks the number of the frame and its place.
  void PlaceText(uint32_t position, uint8_t number) {
    if (file_.size() < position + 92) file_.resize(position + 92);
    for (uint32_t i = 0; i < 92; ++i) file_[position + i] = static_cast<uint8_t>(number + i);
  }
  static ByteVector GpsEntry(uint32_t number, uint8_t frame) {
    ByteVector entry = Join({Le32(number), Le32(72)});
    for (uint32_t i = 8; i < 80; ++i) entry.push_back(static_cast<uint8_t>(frame + i));
    return entry;
  }
  static ByteVector SensorEntry(uint8_t frame) {
    ByteVector entry;
    for (uint32_t i = 80; i < 92; ++i) entry.push_back(static_cast<uint8_t>(frame + i));
    return entry;
  }
  ByteVector Generate(const void* name) {
    TextOutput output(file_);
    EXPECT_EQ(recover::UserDataSource(writer_).Generate(name, output), 0);
    return output.appended;
  }

  MP4WriterHandle writer_ = {};
  ByteVector file_ = ByteVector(1000);
  uint8_t names_[2] = {};

 private:
  static constexpr uint32_t kBlock = 8;

  // A spilled block stands in the file behind its header.
  void Fill(MP4WriterTable& table, const ByteVector& entries, size_t spilled) {
    table.m_dwBufSize = kBlock;
    size_t taken = 0;
    for (; taken < 4 * spilled; taken += kBlock) {
      table.m_dwSpillPos[table.m_dwSpillNum++] = static_cast<uint32_t>(file_.size());
      const ByteVector block =
          Join({Text("tabl"), Be32(kBlock),
                ByteVector(entries.begin() + ssize_t(taken), entries.begin() + ssize_t(taken + kBlock))});
      file_.insert(file_.end(), block.begin(), block.end());
    }
    buffers_.emplace_back(entries.begin() + ssize_t(taken), entries.end());
    table.m_pBuf = buffers_.back().data();
    table.m_dwUsed = static_cast<uint32_t>(buffers_.back().size());
  }

  std::vector<std::unique_ptr<MP4WriterTrack>> tracks_;
  std::vector<ByteVector> buffers_;
};

TEST_F(UserDataTest, WantedAsPolicyAndFramesSay) {
  ZMVRecoverReport report = {};
  for (const bool carries : {false, true}) {
    report.bUserData = carries ? 1 : 0;
    EXPECT_EQ(recover::WantsUserData(ZMV_RECOVER_USER_DATA_AUTO, report), carries);
    EXPECT_TRUE(recover::WantsUserData(ZMV_RECOVER_USER_DATA_ALWAYS, report));
    EXPECT_FALSE(recover::WantsUserData(ZMV_RECOVER_USER_DATA_NEVER, report));
  }
}

TEST_F(UserDataTest, SpilledEntriesAndThoseInTheBuffer_AreGenerated) {
  PlaceText(100, 10);
  PlaceText(300, 40);
  PlaceText(500, 70);
  AddTrack(ZMV_MEDIA_VIDEO, {{50, 400}}, 0);
  AddTrack(ZMV_MEDIA_TEXT, {{100, 92}, {300, 93}, {500, 200}}, 2);
  writer_.m_pGpsr = &names_[0];
  writer_.m_pSens = &names_[1];
  EXPECT_EQ(Difference(Generate(&names_[0]), Join({GpsEntry(0, 10), GpsEntry(1, 40), GpsEntry(2, 70)})), "");
  EXPECT_EQ(Difference(Generate(&names_[1]), Join({SensorEntry(10), SensorEntry(40), SensorEntry(70)})), "");
}

TEST_F(UserDataTest, ShortFrames_AreLeftOut) {
  PlaceText(300, 40);
  AddTrack(ZMV_MEDIA_TEXT, {{100, 91}, {300, 92}, {500, 0}}, 0);
  writer_.m_pGpsr = &names_[0];
  writer_.m_pSens = &names_[1];
  EXPECT_EQ(Difference(Generate(&names_[0]), GpsEntry(0, 40)), "");
  EXPECT_EQ(Difference(Generate(&names_[1]), SensorEntry(40)), "");
}

TEST_F(UserDataTest, TwoTracks_AreMergedByPosition) {
  for (const uint32_t position : {100u, 200u, 300u, 400u, 500u})
    PlaceText(position, static_cast<uint8_t>(position / 100));
  AddTrack(ZMV_MEDIA_TEXT, {{200, 92}, {300, 92}}, 0);
  AddTrack(ZMV_MEDIA_AUDIO, {{600, 92}}, 0);
  AddTrack(ZMV_MEDIA_TEXT, {{100, 92}, {400, 92}, {500, 92}}, 2);
  writer_.m_pGpsr = &names_[0];
  writer_.m_pSens = &names_[1];
  EXPECT_EQ(Difference(Generate(&names_[1]),
                       Join({SensorEntry(1), SensorEntry(2), SensorEntry(3), SensorEntry(4), SensorEntry(5)})),
            "");
}

TEST_F(UserDataTest, WithoutTextTracks_NothingIsGenerated) {
  AddTrack(ZMV_MEDIA_VIDEO, {{50, 400}}, 0);
  writer_.m_pSens = &names_[1];
  EXPECT_EQ(Generate(&names_[0]), ByteVector());
  EXPECT_EQ(Generate(&names_[1]), ByteVector());
}

TEST_F(UserDataTest, FailuresOfTheOutput_EndIt) {
  PlaceText(100, 10);
  AddTrack(ZMV_MEDIA_TEXT, {{100, 92}, {950, 92}}, 0);
  writer_.m_pGpsr = &names_[0];
  writer_.m_pSens = &names_[1];
  recover::UserDataSource source(writer_);
  for (const uint8_t& name : names_) {
    TextOutput beyond(file_);
    EXPECT_EQ(static_cast<uint32_t>(source.Generate(&name, beyond)), ZMV_E_READ);
    TextOutput full(file_);
    full.capacity = 11;
    EXPECT_EQ(static_cast<uint32_t>(source.Generate(&name, full)), ZMV_E_WRITE);
  }
}

// Spilled entries that cannot be read are not taken for the end of the table.
TEST_F(UserDataTest, TableThatCannotBeRead_IsAFailure) {
  PlaceText(100, 10);
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_TEXT, {{100, 92}, {100, 92}, {100, 92}}, 2);
  track.m_Stsz.m_dwSpillPos[0] = 100000;
  TextOutput output(file_);
  EXPECT_EQ(static_cast<uint32_t>(recover::UserDataSource(writer_).Generate(&names_[0], output)), ZMV_E_READ);
}

TEST_F(UserDataTest, GivenToAWriter_NamesStandForTheSamples) {
  ScriptedHost host;
  host.trace_level = 0;
  recover::UserDataSource source(writer_);
  recover::NamedBytes names;
  host.Fail(HostCall::kMalloc, 2);
  EXPECT_EQ(static_cast<uint32_t>(source.GiveTo(writer_, names, 5)), ZMV_E_MEMORY);
  EXPECT_EQ(writer_.m_bExtUserData, 0);
  EXPECT_EQ(host.LiveBlocks(), 0u);
  ASSERT_EQ(source.GiveTo(writer_, names, 5), 0);
  EXPECT_TRUE(names.Has(writer_.m_pGpsr));
  EXPECT_TRUE(names.Has(writer_.m_pSens));
  EXPECT_FALSE(names.Has(&host));
  EXPECT_EQ(writer_.m_dwGpsrNum, 5u);
  EXPECT_EQ(writer_.m_dwSensNum, 5u);
  EXPECT_EQ(writer_.m_bExtUserData, 1);
  FreeHost(writer_.m_pGpsr);
  FreeHost(writer_.m_pSens);
}

}  // namespace
}  // namespace zmv::test
