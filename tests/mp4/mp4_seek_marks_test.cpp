// The marks in stts and stss: searches by them find what searches from the starts of the tables find, whatever the
// tables hold and whatever was searched before.
#include "mp4/mp4_seek_search.h"
#include "mp4/mp4_seek_times.h"
#include "tests/mp4/reader_seek.h"

namespace zmv::test {
namespace {

class SeekMarks : public ReaderSeek {
 protected:
  SeekMarks() {
    host_.record = false;
    host_.trace_level = 0;
  }
  uint32_t Next(uint32_t limit) {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(state_ >> 33) % limit;
  }
  // A track with more runs and key frames than there are marks.
  TrackSpec Long(uint32_t runs) {
    TrackSpec track = Video();
    track.times.clear();
    track.sync.emplace();
    uint32_t samples = 0;
    for (uint32_t i = 0; i < runs; ++i) {
      track.times.push_back({1 + Next(2), 20 + Next(3)});
      samples += track.times.back().first;
    }
    track.frames.assign(samples, Unit(1, 1));
    for (uint32_t number = 1; number <= samples; number += 1 + Next(3)) track.sync->push_back(number);
    track.chunks = {{{1, 1, 1}}};
    track.duration = samples * 21;
    return track;
  }
  void Open(const TrackSpec& track) {
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    tables_ = TablesOf(Track(0), track);
  }
  void SearchAtRandom(int searches) {
    for (int i = 0; i < searches; ++i) {
      const uint32_t time = Next(tables_.duration + 3);
      const uint32_t mode = 1 + Next(3);
      SCOPED_TRACE("search " + std::to_string(i) + " mode " + std::to_string(mode) + " time " + std::to_string(time));
      ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, mode, time));
    }
  }
  const MP4ReaderTimeMarks& TimeMarks() { return Track(0).m_TimeMarks; }
  const MP4ReaderSyncMarks& SyncMarks() { return Track(0).m_SyncMarks; }

  uint64_t state_ = 1;
  PlainTables tables_;
};

TEST_F(SeekMarks, LongTables_AreMarkedEvenlyAndSearchedAsByThePlainSearch) {
  Open(Long(5000));
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration / 2));
  EXPECT_GT(TimeMarks().m_dwCount, kMp4TimeMarks / 4) << "as far as the search has gone";
  EXPECT_LT(TimeMarks().m_dwCount, kMp4TimeMarks * 3 / 4);
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  ASSERT_GT(TimeMarks().m_dwCount, kMp4TimeMarks * 9 / 10);
  ASSERT_GT(SyncMarks().m_dwCount, kMp4SyncMarks * 9 / 10);
  for (uint32_t i = 1; i < TimeMarks().m_dwCount; ++i) {
    ASSERT_GT(TimeMarks().m_Mark[i].m_dwSample, TimeMarks().m_Mark[i - 1].m_dwSample);
  }
  SearchAtRandom(2000);
}

TEST_F(SeekMarks, TimesOfEveryMark_AreFoundOnBothSides) {
  Open(Long(3000));
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  for (uint32_t i = 0; i < TimeMarks().m_dwCount; i += 7) {
    const uint32_t time = TimeMarks().m_Mark[i].m_dwDts;
    for (uint32_t near : {time - 1, time, time + 1}) {
      for (uint32_t mode : {kForward, kBackward, kNearest}) ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, mode, near));
    }
  }
}

TEST_F(SeekMarks, SearchesInAnyOrder_FillTheMarksAlike) {
  const TrackSpec track = Long(4000);
  Open(track);
  SearchAtRandom(300);
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  const MP4ReaderTimeMarks times = TimeMarks();
  const MP4ReaderSyncMarks syncs = SyncMarks();
  Open(track);
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  ASSERT_EQ(times.m_dwCount, TimeMarks().m_dwCount);
  for (uint32_t i = 0; i < times.m_dwCount; ++i) {
    ASSERT_EQ(times.m_Mark[i].m_dwSample, TimeMarks().m_Mark[i].m_dwSample);
    ASSERT_EQ(times.m_Mark[i].m_dwDts, TimeMarks().m_Mark[i].m_dwDts);
  }
  ASSERT_EQ(syncs.m_dwCount, SyncMarks().m_dwCount);
  for (uint32_t i = 0; i < syncs.m_dwCount; ++i) ASSERT_EQ(syncs.m_dwNumber[i], SyncMarks().m_dwNumber[i]);
}

// ---- Tables that no recorder makes

TEST_F(SeekMarks, EntriesThatGoWrongSomewhere_AreSearchedAsByThePlainSearch) {
  for (int table = 0; table < 60; ++table) {
    SCOPED_TRACE(table);
    TrackSpec track = Long(1200 + Next(1200));
    const auto runs = static_cast<uint32_t>(track.times.size());
    const auto keys = static_cast<uint32_t>(track.sync->size());
    for (uint32_t faults = 1 + Next(3); faults != 0; --faults) {
      auto& [count, delta] = track.times[Next(runs)];
      switch (Next(8)) {
        case 0:
          count = 0;
          break;
        case 1:
          delta = 0xFFFFFFF0 + Next(16);  // ticks wrap, and times fall
          break;
        case 2:
          delta = 0x40000000;
          break;
        case 3:
          for (uint32_t i = 0; i < 200; ++i) track.times[(Next(20) + i) % runs].first = 0;
          break;
        case 4:
          for (auto& run : track.times) run.second = Next(4) == 0 ? 21 : 0;
          break;
        case 5:
          (*track.sync)[Next(keys)] = Next(runs);
          break;
        case 6:
          (*track.sync)[Next(keys)] = (*track.sync)[Next(keys)];
          break;
        default:
          (*track.sync)[0] = Next(40);
          break;
      }
    }
    Open(track);
    ASSERT_NO_FATAL_FAILURE(SearchAtRandom(60));
    if (HasFatalFailure()) return;
  }
}

TEST_F(SeekMarks, LeadingEntriesWithoutSamples_KeepTheDurationOfConstantSizeAudio) {
  TrackSpec track = Audio(1, 40);
  track.entries = {AudioEntry("sowt", {}, 1, 16, 1000)};
  track.times = {{0, 5}, {0, 6}, {3, 1}, {4, 2}, {33, 3}};
  track.chunks = {{{1, 1, 1}}};
  track.duration = 100;
  Open(track);
  ASSERT_TRUE(tables_.pcm);
  SearchAtRandom(200);
}

TEST_F(SeekMarks, TicksThatWrap_EndTheMarks) {
  TrackSpec track = Long(2000);
  track.times[1000].second = 0xFFFFFFFF;
  Open(track);
  tables_.duration = tables_.movie_duration = Track(0).m_dwDuration = reader_->m_dwDuration = 0x7FFFFFFF;
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kForward, 0x7FFFFFFF));
  EXPECT_GT(TimeMarks().m_dwCount, 200u);
  EXPECT_LT(TimeMarks().m_dwCount, 300u);
}

TEST_F(SeekMarks, KeyFramesOutOfOrder_EndTheMarks) {
  TrackSpec track = Long(2000);
  (*track.sync)[700] = 1;
  Open(track);
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kForward, tables_.duration));
  EXPECT_GT(SyncMarks().m_dwCount, 50u);
  EXPECT_LE(SyncMarks().m_dwCount, 700 / (track.sync->size() / kMp4SyncMarks + 1) + 1);
}

// ---- Reading them

TEST_F(SeekMarks, RepeatedInformation_DropsTheMarks) {
  Open(Long(3000));
  SearchAtRandom(100);
  ASSERT_GT(TimeMarks().m_dwCount, 0u);
  ASSERT_GT(SyncMarks().m_dwCount, 0u);
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(TimeMarks().m_dwCount, 0u);
  EXPECT_EQ(SyncMarks().m_dwCount, 0u);
  SearchAtRandom(100);
}

TEST_F(SeekMarks, AnotherTableInTheTrack_IsNotSearchedByTheOldMarks) {
  const TrackSpec track = Long(2000);
  Open(track);
  ASSERT_NO_FATAL_FAILURE(CompareSearch(tables_, kBackward, tables_.duration));
  // The entries from the tenth on as a table of their own.
  MP4ReaderTrack& changed = Track(0);
  changed.m_Stts.m_dwStart += 80;
  changed.m_dwSttsCount -= 10;
  changed.m_dwStssStart += 40;
  changed.m_dwStssCount -= 10;
  tables_.times.erase(tables_.times.begin(), tables_.times.begin() + 10);
  tables_.syncs->erase(tables_.syncs->begin(), tables_.syncs->begin() + 10);
  ASSERT_EQ(MP4ReaderSetStblPos(reader_, &changed), 0);
  SearchAtRandom(200);
}

// Every read of a first search fails once: what has been marked until then is right, and the next search finds.
TEST_F(SeekMarks, ReadsThatFailOnTheWay_LeaveRightMarks) {
  const TrackSpec track = Long(3000);
  for (uint64_t nth = 1;; ++nth) {
    Open(track);
    const uint64_t before = host_.Count(HostCall::kRead);
    host_.Fail(HostCall::kRead, nth);
    uint32_t time = tables_.duration;
    if (MP4FReaderGetSeekPos(reader_, &Track(0), &time, kBackward) == 1) {
      ASSERT_EQ(MP4ReaderLoadStblPos(reader_, &Track(0)), 0);
    }
    host_.ClearFailures();
    const bool met = host_.Count(HostCall::kRead) - before >= nth;
    ASSERT_NO_FATAL_FAILURE(SearchAtRandom(20)) << nth;
    if (!met) {
      EXPECT_GT(nth, 8u);
      return;
    }
  }
}

// A stream that hands out fewer bytes than it is asked for: entries that are cut are read again.
int64_t (*whole_read)(void*, uint32_t, void*, uint32_t);
int64_t ShortRead(void* context, uint32_t idx, void* to, uint32_t size) {
  return whole_read(context, idx, to, size > 100 ? 93 : size);
}

TEST_F(SeekMarks, ShortReads_AreGoneOnFrom) {
  Open(Long(2000));
  whole_read = stream_->ReadBuffer;
  stream_->ReadBuffer = &ShortRead;
  SearchAtRandom(100);
  stream_->ReadBuffer = whole_read;
}

TEST_F(SeekMarks, TheRecordOfATrack_StaysSmall) { EXPECT_LE(sizeof(MP4ReaderTrack), 6u * 1024); }

}  // namespace
}  // namespace zmv::test
