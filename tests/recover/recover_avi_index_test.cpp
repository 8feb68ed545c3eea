#include "recover/recover_avi_index.h"

#include "tests/recover/avi_recovery_test.h"
#include "tests/support/memory_file.h"

namespace zmv::test {
namespace {

class AviIndexTest : public AviRecoveryTest {
 protected:
  AviIndexTest() : recording_(RecordAvi(AviInfo(), AviFrames())), closed_(recording_.closed) {
    index_ = recording_.open.size();
    EXPECT_EQ(LoadLE32(&closed_[index_]), FourCC("idx1"));
  }

  // Shows all frames but those of the numbers in `missing` to the check. What it says in the end.
  bool Agrees(const std::vector<size_t>& missing = {}, uint64_t items_end = 0, bool damaged = false) {
    StoredFile file(closed_);
    recover::Window window(file);
    recover::AviFront front;
    EXPECT_TRUE(recover::ReadAviFront(window, front));
    recover::AviIndexCheck check(file);
    EXPECT_EQ(check.Open(front), 0);
    keys_.clear();
    for (size_t i = 0; i < recording_.frames.size(); ++i) {
      if (std::find(missing.begin(), missing.end(), i) != missing.end()) continue;
      const AviFrame& frame = recording_.frames[i];
      recover::FoundFrame found = {};
      found.position = frame.position;
      found.size = static_cast<uint32_t>(frame.payload.size());
      found.media = frame.media;
      EXPECT_EQ(check.Check(found, frame.media - ZMV_MEDIA_VIDEO), 0);
      keys_.push_back(check.IsKey());
    }
    EXPECT_EQ(check.Finish(items_end != 0 ? items_end : index_, damaged), 0);
    closed_file_ = check.Closed();
    return check.Agrees();
  }
  bool AgreesWith(size_t position, uint32_t value) {
    const uint32_t before = LoadLE32(&closed_[position]);
    StoreLE32(&closed_[position], value);
    const bool agrees = Agrees();
    StoreLE32(&closed_[position], before);
    return agrees;
  }
  uint32_t At(size_t position) const { return LoadLE32(&closed_[position]); }
  size_t Find(std::string_view code) const { return static_cast<size_t>(FindCode(closed_, code) - closed_.begin()); }

  const AviRecording recording_;
  ByteVector closed_;
  size_t index_ = 0;
  std::vector<bool> keys_;
  bool closed_file_ = false;
};

TEST_F(AviIndexTest, Closed_AgreesAndTellsKeyFrames) {
  ASSERT_TRUE(Agrees());
  for (size_t i = 0; i < keys_.size(); ++i) {
    EXPECT_EQ(keys_[i], recording_.frames[i].media != ZMV_MEDIA_VIDEO || recording_.frames[i].key) << i;
  }
}

TEST_F(AviIndexTest, FramesThatAreNotFound_AreStillClosed) {
  EXPECT_TRUE(Agrees({0}));
  EXPECT_TRUE(Agrees({3, 4, 5, 20}));
  EXPECT_TRUE(Agrees({recording_.frames.size() - 1}));
}

TEST_F(AviIndexTest, EntriesThatTellOtherwise_DoNotAgree) {
  for (const size_t number : {size_t{0}, size_t{7}, recording_.frames.size() - 1}) {
    const size_t entry = index_ + 8 + 16 * number;
    EXPECT_FALSE(AgreesWith(entry, FourCC("00db"))) << number;
    EXPECT_FALSE(AgreesWith(entry, At(entry) + 0x100)) << number;  // the next stream
    EXPECT_FALSE(AgreesWith(entry + 8, At(entry + 8) + 1)) << number;
    EXPECT_FALSE(AgreesWith(entry + 8, At(entry + 8) - 1)) << number;
    EXPECT_FALSE(AgreesWith(entry + 12, At(entry + 12) + 1)) << number;
  }
}

TEST_F(AviIndexTest, IndexThatIsShortOrNone_DoesNotAgree) {
  EXPECT_FALSE(AgreesWith(index_, FourCC("idx2")));
  EXPECT_FALSE(AgreesWith(index_ + 4, At(index_ + 4) - 16));
  EXPECT_FALSE(AgreesWith(index_ + 4, At(index_ + 4) - 1));
  EXPECT_FALSE(AgreesWith(index_ + 4, 0xFFFFFFF0));
  const ByteVector whole = closed_;
  closed_.resize(index_ + 4);
  EXPECT_FALSE(Agrees());
  closed_ = recording_.open;
  EXPECT_FALSE(Agrees());
}

TEST_F(AviIndexTest, HeadersOfAFileThatIsNotClosed_DoNotAgree) {
  const size_t movi = recording_.movi - 4;
  EXPECT_FALSE(AgreesWith(movi, 0));
  EXPECT_FALSE(AgreesWith(movi, At(movi) + 2));
  EXPECT_FALSE(AgreesWith(4, 0));
  EXPECT_FALSE(AgreesWith(4, static_cast<uint32_t>(closed_.size())));  // more than the file has
  EXPECT_FALSE(AgreesWith(4, static_cast<uint32_t>(index_)));          // the index is not in it
  EXPECT_FALSE(AgreesWith(32 + 16, 23));                               // one picture less
  EXPECT_TRUE(AgreesWith(32 + 16, 25));                                // one more, that is not found
  EXPECT_FALSE(AgreesWith(Find("vids") + 32, 0));
  EXPECT_FALSE(AgreesWith(Find("auds") + 32, 39));
  EXPECT_FALSE(AgreesWith(Find("txts") + 32, 8));
}

// The list must end where the last item does.
TEST_F(AviIndexTest, ItemsThatEndElsewhere_DoNotAgree) {
  EXPECT_FALSE(Agrees({}, index_ - 2));
  EXPECT_FALSE(Agrees({}, index_ + 2));
}

// What is found beside the entries comes from the damage, if there is some.
TEST_F(AviIndexTest, DamagedFileWhoseIndexNamesChunks_IsClosed) {
  // One frame is not in the index: its entry gives way to those behind it.
  const size_t entry = index_ + 8 + 16 * 7;
  const size_t entries = 16 * recording_.frames.size();
  std::copy(closed_.begin() + static_cast<ptrdiff_t>(entry) + 16,
            closed_.begin() + static_cast<ptrdiff_t>(index_ + 8 + entries),
            closed_.begin() + static_cast<ptrdiff_t>(entry));
  StoreLE32(&closed_[index_ + 4], static_cast<uint32_t>(entries - 16));
  EXPECT_FALSE(Agrees({}, 0, true));
  EXPECT_TRUE(closed_file_);
  EXPECT_FALSE(Agrees({}, 0, false));
  EXPECT_FALSE(closed_file_);
  EXPECT_TRUE(Agrees({7}));
  EXPECT_TRUE(closed_file_);
  // Each of these names no chunk, or one twice.
  for (const auto& [field, value] : {std::pair{size_t{0}, FourCC("00db")}, std::pair{size_t{8}, At(entry + 8) + 1},
                                     std::pair{size_t{8}, At(entry - 16 + 8)}, std::pair{size_t{8}, 0xFFFFFFF0u},
                                     std::pair{size_t{12}, At(entry + 12) + 1}}) {
    const uint32_t before = At(entry + field);
    StoreLE32(&closed_[entry + field], value);
    EXPECT_FALSE(Agrees({}, 0, true));
    EXPECT_FALSE(closed_file_) << field << " " << value;
    StoreLE32(&closed_[entry + field], before);
  }
  StoreLE32(&closed_[4], 0);
  EXPECT_FALSE(Agrees({}, 0, true));
  EXPECT_FALSE(closed_file_);
}

TEST_F(AviIndexTest, FailedReads_AreTheirCodes) {
  // The window reads all of a small file at once.
  StoredFile file(closed_);
  recover::Window window(file);
  recover::AviFront front;
  ASSERT_TRUE(recover::ReadAviFront(window, front));
  recover::AviIndexCheck check(file);
  file.Fail(StoredFile::kRead, 1);
  EXPECT_EQ(check.Open(front), Result(ZMV_E_READ));
  EXPECT_FALSE(check.Agrees());
}

}  // namespace
}  // namespace zmv::test
