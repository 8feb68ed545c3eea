// The search against its plain form, on indexes and times of all kinds.
#include "tests/avi/avi_seek_test.h"

namespace zmv::test {
namespace {

class AviSeekProperty : public AviSeekTest {
 protected:
  uint32_t Random(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
  uint32_t OneOf(std::initializer_list<uint32_t> values) {
    return values.begin()[Random(static_cast<uint32_t>(values.size()))];
  }

  // An index over a file of 64 KiB, some of it beyond.
  void MakeIndex() {
    AVIReaderStream& stream = Stream(0);
    stream.m_dwMediaType = OneOf({ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT, 0});
    stream.m_dwRate = OneOf({25000, 29970, 30000, 48000, 15, 1, 0, 0xFFFFFFFF, Random(100000)});
    stream.m_dwScale = OneOf({1000, 1001, 1, 1024, 0, 0xFFFFFFFF, Random(5000)});
    stream.m_dwSampleSize = OneOf({0, 0, 0, 1, 2, 4, Random(20), 0xFFFFFFFF});
    stream.m_dwStartTime = OneOf({0, 0, 40, 0xFFFFFFF0});
    Reader()->m_dwBase = OneOf({0, 0, 0, 100, 0xFFFFFFFF});
    const uint32_t keys = OneOf({1, 2, 5, 12, 1000});
    const uint32_t step = OneOf({10, 100, 2000});
    std::vector<AVIReaderIndexEntry> entries(OneOf({0, 1, 2, 3, Random(60), Random(300)}));
    uint32_t position = 12;
    for (AVIReaderIndexEntry& entry : entries) {
      entry = {Random(keys) == 0 ? 0x10u : OneOf({0, 0, 0x11, 0x8010}), position, Random(12) == 0 ? 0 : Random(step)};
      position += 8 + entry.m_dwSize;
    }
    index_[0] = entries;
    UseIndex();
  }
  // Near a frame of the index, or anywhere.
  uint32_t SomeTime() {
    const AVIReaderStream& stream = Stream(0);
    const uint32_t frames = stream.m_dwIndexEntries + 3;
    switch (Random(4)) {
      case 0:
        return OneOf({0, 1, 20, 0x7FFFFFFF, 0xFFFFFFFF, 171799});
      case 1:
        return Random(100000);
      default: {
        const double time = 1000.0 * Random(frames) * stream.m_dwScale / (stream.m_dwRate != 0 ? stream.m_dwRate : 1);
        return PlainU32(time) + Random(5) - 2;
      }
    }
  }

  std::mt19937 random_{4711};
};

TEST_F(AviSeekProperty, EverySearch_FindsWhatThePlainOneFinds) {
  LoadBytes(Zeros(65536), {VideoStream()});
  host_.trace_level = 0;
  host_.record = false;
  size_t found_places = 0;
  for (int run = 0; run < 20000; ++run) {
    MakeIndex();
    const PlainAviIndex index = IndexOf(0);
    for (uint32_t mode : {kNext, kPrevious, kNearest}) {
      for (uint32_t option : {0u, 1u}) {
        const uint32_t time = SomeTime();
        const ReadingPlace before = PlaceOf(0);
        const auto expected = PlainAviSearch(index, option != 0, mode, time);
        const Found found = Search(0, mode, time, option);
        ASSERT_EQ(found.result, expected ? 1 : 0) << "run " << run << " mode " << mode << " time " << time;
        ASSERT_EQ(PlaceOf(0), before) << "a search moves nothing";
        if (!expected) {
          ASSERT_EQ(found.time, time);
          continue;
        }
        ++found_places;
        ASSERT_EQ(found.place, *expected) << "run " << run << " mode " << mode << " time " << time << " frame "
                                          << found.place.frame << " entry " << found.place.entry;
      }
    }
  }
  EXPECT_GT(found_places, 20000u);
}

// All times of small indexes with every pattern of key frames.
TEST_F(AviSeekProperty, EveryKeyPattern_IsSearchedAtEveryTime) {
  LoadBytes(Zeros(65536), {VideoStream()});
  host_.trace_level = 0;
  host_.record = false;
  for (uint32_t count = 1; count <= 9; ++count) {
    for (uint32_t pattern = 0; pattern < 1u << count; ++pattern) {
      index_[0].clear();
      for (uint32_t i = 0; i < count; ++i) index_[0].push_back({(pattern >> i & 1) * 0x10, 20 * i, 12});
      UseIndex();
      const PlainAviIndex index = IndexOf(0);
      for (uint32_t time = 0; time < 40 * (count + 1); time += 10) {
        for (uint32_t mode : {kNext, kPrevious, kNearest}) {
          const auto expected = PlainAviSearch(index, false, mode, time);
          const Found found = Search(0, mode, time);
          ASSERT_EQ(found.result, expected ? 1 : 0);
          if (expected) {
            ASSERT_EQ(found.place, *expected);
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace zmv::test
