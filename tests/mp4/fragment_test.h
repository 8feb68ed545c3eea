// What the tests of fragments share.
#ifndef ZMV_TESTS_FRAGMENT_TEST_H
#define ZMV_TESTS_FRAGMENT_TEST_H

#include "tests/mp4/reader_test.h"
#include "tests/support/mp4_fragment_builder.h"

namespace zmv::test {

constexpr char kNoBaseRemark[] = "TrackID(1) fragments without base offset are read at wrong places\n";
constexpr char kBaseRemark[] = "TrackID(1) base offset changes, seeks into fragments go to wrong places\n";
constexpr char kNoOffsetRemark[] = "TrackID(1) trun without data offset behind another is read at a wrong place\n";

// Samples that can be told apart.
inline std::vector<ByteVector> Samples(uint8_t first, std::initializer_list<size_t> sizes) {
  std::vector<ByteVector> samples;
  for (size_t size : sizes) samples.push_back(Unit(static_cast<uint8_t>(first + 16 * samples.size()), size));
  return samples;
}

class FragmentTest : public ReaderTest {
 protected:
  uint32_t Describe(const FragmentFile& file) { return ReaderTest::Describe(file.bytes); }

  // Reads a medium to its end.
  std::vector<ReadResult> ReadAll(uint32_t media, uint32_t capacity = 4096) {
    std::vector<ReadResult> frames;
    for (;;) {
      ReadResult read = Read(media, capacity);
      if (read.code != 0) {
        end_ = read.code;
        return frames;
      }
      frames.push_back(std::move(read));
      if (frames.size() > 100000) {
        ADD_FAILURE() << "reading does not end";
        return frames;
      }
    }
  }
  std::vector<ByteVector> ReadPayloads(uint32_t media) {
    std::vector<ByteVector> payloads;
    for (ReadResult& read : ReadAll(media)) payloads.push_back(std::move(read.data));
    return payloads;
  }

  // Searches a track; a time that moov does not hold is looked for in the fragments.
  uint32_t Search(uint32_t* time, uint32_t slot = 0) {
    constexpr uint32_t kBackward = 2;
    return MP4FReaderGetSeekPos(reader_, &Track(slot), time, kBackward);
  }
  // Makes what was found the reading position.
  void Take(uint32_t slot = 0) { ASSERT_EQ(MP4FReaderStreamSeek(&Track(slot)), 1); }

  uint32_t end_ = 0;  // the code that ended ReadAll
};

}  // namespace zmv::test

#endif
