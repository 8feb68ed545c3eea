// The search of a track's tables and the reading of its frames, sample by sample and chunk by chunk, with nothing
// stepped over: what the reader has to find, however it goes about it.
#ifndef ZMV_TESTS_PLAIN_SEEK_H
#define ZMV_TESTS_PLAIN_SEEK_H

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace zmv::test {

// The tables of a track as numbers.
struct PlainTables {
  uint32_t media = 1;
  uint32_t time_scale = 1000;
  uint32_t duration = 0;        // milliseconds
  uint32_t movie_duration = 0;  // milliseconds
  uint64_t data_end = 0;
  uint32_t sample_size = 0;  // 0 = in `sizes`
  uint32_t sample_count = 0;
  bool pcm = false;
  uint32_t bits_per_sample = 0;
  uint32_t sample_rate = 0;
  std::vector<std::pair<uint32_t, uint32_t>> times;  // count, delta
  std::vector<std::array<uint32_t, 3>> chunks;       // first chunk, samples per chunk, description
  std::vector<uint32_t> sizes;
  std::vector<uint32_t> offsets;
  std::optional<std::vector<uint32_t>> syncs;
};

// A place in the track: the reading position, or the pending one. The table positions count words from the table's
// start.
struct PlainPlace {
  uint32_t position = 0;
  uint32_t sample = 0;
  uint32_t stts_left = 0;
  uint32_t stts_delta = 0;
  uint32_t dts = 0;
  uint32_t stsc_entry = 0;
  uint32_t next_first_chunk = 0;
  uint32_t samples_per_chunk = 0;
  uint32_t samples_left = 0;
  uint32_t chunk = 0;
  uint32_t sync_entry = 0;
  uint32_t next_sync = 0;
  uint64_t stts_words = 0;
  uint64_t stsc_words = 0;
  uint64_t stsz_words = 0;
  uint64_t stco_words = 0;
  uint64_t stss_words = 0;

  bool operator==(const PlainPlace&) const = default;
};

struct PlainFrame {
  uint32_t position = 0;
  uint32_t size = 0;
  uint64_t time_stamp = 0;  // milliseconds
  uint32_t duration = 0;
  uint32_t key = 0;
  uint32_t chunk = 0;
};

// 1 and the pending place and time, or 0, for a track that is read at `live`. Modes: 1 forward, 2 backward, 3 nearest.
uint8_t PlainSearch(const PlainTables& tables, const PlainPlace& live, uint32_t mode, uint32_t* time,
                    PlainPlace* pending);
// The place after taking the pending one.
PlainPlace PlainTake(const PlainTables& tables, const PlainPlace& live, const PlainPlace& pending);
// The next frame and the place behind it; false at the end.
bool PlainRead(const PlainTables& tables, PlainPlace* place, PlainFrame* frame);

}  // namespace zmv::test

#endif
