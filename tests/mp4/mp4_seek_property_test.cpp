// The search against its plain form on many small tables, sound and broken ones, for every mode and every time.
#include <algorithm>
#include <string>

#include "tests/mp4/reader_test.h"
#include "tests/mp4/seek_test.h"
#include "tests/support/plain_seek.h"

namespace zmv::test {
namespace {

// Always the same numbers.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint32_t Next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(state_ >> 33);
  }
  uint32_t Below(uint32_t limit) { return Next() % limit; }
  bool OneIn(uint32_t limit) { return Below(limit) == 0; }
  uint32_t Pick(std::initializer_list<uint32_t> values) {
    return values.begin()[Below(static_cast<uint32_t>(values.size()))];
  }

 private:
  uint64_t state_;
};

constexpr uint32_t kMaxSamples = 40;

struct Case {
  TrackSpec plan;
  PlainTables tables;
};

uint32_t RandomDelta(Random& random) {
  if (random.OneIn(4)) return 0;
  if (random.OneIn(12)) return random.Pick({0x10000000, 0x7FFFFFFF, 0x80000001, 0xFFFFFFFF, random.Next() * 2});
  return random.Pick({1, 2, 3, 7, 33, 40});
}

std::vector<uint32_t> RandomSyncs(Random& random, uint32_t samples) {
  std::vector<uint32_t> syncs;
  uint32_t number = random.OneIn(3) ? random.Below(6) : 1;
  while (number <= samples + 2 && !random.OneIn(15)) {
    syncs.push_back(number);
    number += 1 + random.Below(12);
  }
  // Entries out of order, twice, and 0.
  if (!syncs.empty() && random.OneIn(6))
    syncs[random.Below(static_cast<uint32_t>(syncs.size()))] = random.Below(samples + 2);
  return syncs;
}

std::vector<std::array<uint32_t, 3>> RandomChunks(Random& random) {
  if (!random.OneIn(3)) return {{1, 1, 1}};
  std::vector<std::array<uint32_t, 3>> chunks;
  uint32_t first = random.OneIn(6) ? random.Below(4) : 1;
  while (chunks.size() < 6 && !random.OneIn(5)) {
    const uint32_t samples = random.OneIn(12) ? random.Pick({0, 0xFFFFFFFF}) : random.Pick({1, 1, 1, 2, 3, 5});
    chunks.push_back({first, samples, 1});
    first = random.OneIn(15) ? random.Below(5) : first + 1 + random.Below(6);
  }
  return chunks;
}

void AddTimes(Random& random, uint32_t samples, Case* made) {
  uint64_t total = 0;
  while (total < samples && !random.OneIn(25)) {
    const uint32_t count = random.OneIn(6) ? 0 : 1 + random.Below(9);
    made->tables.times.push_back({count, RandomDelta(random)});
    total += count;
  }
  if (random.OneIn(20)) made->tables.times.push_back({0xFFFFFFFF, RandomDelta(random)});
  made->plan.times = made->tables.times;
  if (made->plan.times.empty()) made->plan.leave_out.push_back("stts");
}

Case RandomCase(uint64_t seed) {
  Random random(seed);
  Case made;
  made.tables.media = random.Pick({1, 1, 1, 2, 3});
  TrackSpec& plan = made.plan = made.tables.media == 1   ? VideoTrack()
                                : made.tables.media == 2 ? AudioTrack()
                                                         : TextTrack();
  if (made.tables.media == 1) plan.entries = {VideoEntry("mp4v", {})};
  if (made.tables.media == 2 && random.OneIn(2)) {
    made.tables.pcm = true;
    made.tables.bits_per_sample = random.Pick({0, 8, 16});
    made.tables.sample_rate = random.Pick({0, 50, 1000, 48000});
    plan.entries = {AudioEntry("sowt", {}, 1, made.tables.bits_per_sample, made.tables.sample_rate)};
  }
  const uint32_t samples = random.Below(kMaxSamples);
  for (uint32_t i = 0; i < samples; ++i) plan.frames.push_back(Unit(static_cast<uint8_t>(i), random.Below(5)));
  if (random.OneIn(5)) plan.constant_size = 1 + random.Below(4);
  if (random.OneIn(8)) plan.sample_count = samples / 2;
  if (random.OneIn(3)) plan.sync = RandomSyncs(random, samples);
  if (made.tables.media == 1 && !plan.sync && random.OneIn(2)) plan.sync = RandomSyncs(random, samples);
  plan.time_scale = random.Pick({1000, 1000, 1000, 600, 90000, 1, 0});
  plan.chunks = made.tables.media == 2 ? std::vector<std::array<uint32_t, 3>>{{1, 1, 1}} : RandomChunks(random);
  AddTimes(random, samples, &made);
  plan.duration = random.OneIn(3) ? random.Below(1500) : samples * 8;
  return made;
}

class SeekProperty : public SeekTest {
 protected:
  void Check(uint64_t seed) {
    SCOPED_TRACE("table " + std::to_string(seed));
    Case made = RandomCase(seed);
    Random random(~seed);
    const uint32_t missing_chunks = random.OneIn(8) ? random.Below(4) : 0;
    const ByteVector file = BuildCase(&made, missing_chunks);
    ASSERT_EQ(Describe(file), 0u);
    reader_->m_dwDuration += random.Below(3);
    made.tables = TablesOf(Track(0), made.plan);
    const uint32_t read_before = random.OneIn(3) ? random.Below(10) : 0;
    ASSERT_NO_FATAL_FAILURE(ReadSome(made.tables, file, read_before));
    const std::vector<uint32_t> times = Times(made.tables);
    for (const auto& [time, mode] : InAnyOrder(times, &random)) {
      SCOPED_TRACE("mode " + std::to_string(mode) + " time " + std::to_string(time));
      ASSERT_NO_FATAL_FAILURE(CompareSearch(made.tables, mode, time));
    }
    for (int i = 0; i < 6; ++i) {
      const uint32_t time = times[random.Below(static_cast<uint32_t>(times.size()))];
      const uint32_t mode = 1 + random.Below(3);
      SCOPED_TRACE("commit mode " + std::to_string(mode) + " time " + std::to_string(time));
      ASSERT_NO_FATAL_FAILURE(CompareCommit(made.tables, file, mode, time, random.Below(kMaxSamples)));
    }
  }

 private:
  // With some chunk offsets left out, or with one at the end of the data.
  static ByteVector BuildCase(Case* made, uint32_t missing_chunks) {
    ByteVector file = BuildMp4({made->plan});
    if (missing_chunks == 0) return file;
    std::vector<uint32_t> offsets(made->plan.frames.size(), 40);
    if (missing_chunks == 1 && !offsets.empty()) offsets.back() = static_cast<uint32_t>(file.size());
    for (; missing_chunks > 1 && !offsets.empty(); --missing_chunks) offsets.pop_back();
    made->plan.offsets = offsets;
    return BuildMp4({made->plan});
  }

  // Every time in every mode. What a search leaves behind for later ones is met by searches behind it and before it.
  static std::vector<std::pair<uint32_t, uint32_t>> InAnyOrder(const std::vector<uint32_t>& times, Random* random) {
    std::vector<std::pair<uint32_t, uint32_t>> searches;
    for (uint32_t time : times) {
      for (uint32_t mode = 1; mode <= 3; ++mode) searches.push_back({time, mode});
    }
    if (random->OneIn(4)) return searches;
    for (size_t i = searches.size(); i > 1; --i) {
      std::swap(searches[i - 1], searches[random->Below(static_cast<uint32_t>(i))]);
    }
    return searches;
  }

  // All up to behind the end; in a long track those around every sample.
  static std::vector<uint32_t> Times(const PlainTables& tables) {
    std::vector<uint32_t> times;
    if (tables.movie_duration <= 120) {
      for (uint32_t time = 0; time <= tables.movie_duration + 2; ++time) times.push_back(time);
      return times;
    }
    times = {0, 1, tables.duration - 1, tables.duration, tables.duration + 1, tables.movie_duration + 1, 0xFFFFFFFF};
    uint32_t dts = 0;
    for (const auto& [count, delta] : tables.times) {
      for (uint32_t i = 0; i < std::min(count, kMaxSamples); ++i) {
        const uint32_t time =
            tables.time_scale == 0 ? 0 : static_cast<uint32_t>(uint64_t{dts} * 1000 / tables.time_scale);
        for (uint32_t near : {time - 1, time, time + 1}) times.push_back(near);
        dts += delta;
      }
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
  }
};

TEST_F(SeekProperty, RandomTables_AreSearchedAsByThePlainSearch) {
  host_.record = false;
  host_.trace_level = 0;
  constexpr uint64_t kTables = 20000;
  for (uint64_t seed = 1; seed <= kTables && !HasFatalFailure(); ++seed) Check(seed);
  // The comparison is of use only when all outcomes are met.
  EXPECT_GT(found_, 100000u);
  EXPECT_GT(not_found_, 20000u);
  EXPECT_GT(at_end_, 2000u);
  EXPECT_GT(frames_read_, 50000u);
}

}  // namespace
}  // namespace zmv::test
