// The search of a stream's index entry by entry: what the reader has to find, however it goes about it.
#ifndef ZMV_TESTS_PLAIN_AVI_SEEK_H
#define ZMV_TESTS_PLAIN_AVI_SEEK_H

#include <cstdint>
#include <optional>
#include <vector>

#include "avi/zmvstream_avi_reader_records.h"

namespace zmv::test {

struct PlainAviIndex {
  std::vector<AVIReaderIndexEntry> entries;
  uint32_t rate = 25000;
  uint32_t scale = 1000;
  uint32_t sample_size = 0;
  uint32_t start_time = 0;
  uint32_t base = 0;
  uint32_t data_end = 0;
};

struct PlainAviPlace {
  uint32_t entry = 0;
  uint32_t frame = 0;
  uint32_t units = 0;
  uint32_t position = 0;
  uint32_t time = 0;
  bool operator==(const PlainAviPlace&) const = default;
};

// Truncated and kept within 32 bits.
inline uint32_t PlainU32(double value) {
  if (!(value > 0)) return 0;
  return value >= 4294967296.0 ? 0xFFFFFFFF : static_cast<uint32_t>(value);
}

// Modes: 1 next, 2 previous, 3 nearest.
inline std::optional<PlainAviPlace> PlainAviSearch(const PlainAviIndex& index, bool first_entry, uint32_t mode,
                                                   uint32_t time) {
  const auto& entries = index.entries;
  const uint32_t count = static_cast<uint32_t>(entries.size());
  const auto is_key = [&entries](uint32_t entry) { return entries[entry].m_dwFlags == 0x10; };
  PlainAviPlace place;
  const float product = static_cast<float>(index.rate) * static_cast<float>(time);
  const float quotient = product / static_cast<float>(index.scale);
  const uint64_t target = index.scale == 0 ? 0 : (uint64_t{PlainU32(quotient)} + 500) / 1000;

  if (first_entry) {
    if (target >= count) return std::nullopt;
    place.frame = static_cast<uint32_t>(target);
  } else if (count == 0) {
    return std::nullopt;
  } else if (index.sample_size != 0) {
    const double per_second = index.scale == 0 ? 0.0 : double{1} * index.rate / index.scale;
    place.units = PlainU32(per_second * (time / 1000.0));
    uint64_t remainder = uint64_t{place.units} * index.sample_size;
    while (remainder >= entries[place.entry].m_dwSize) {
      remainder -= entries[place.entry].m_dwSize;
      if (++place.entry == count) return std::nullopt;
    }
    place.frame = place.entry;
  } else {
    if (target >= count) return std::nullopt;
    const uint32_t f = static_cast<uint32_t>(target);
    uint32_t last = 0;
    uint32_t earlier = 0;
    for (uint32_t i = 1; i <= f; ++i) {
      if (is_key(i)) {
        earlier = last;
        last = i;
      }
    }
    if (mode == 2) {
      place.frame = place.entry = last;
    } else if (mode == 1) {
      if (f + 1 == count) return std::nullopt;
      place.frame = f;
      for (uint32_t i = f + 1; i < count; ++i) {
        place.entry = i;
        if (is_key(i)) {
          place.frame = i - 1;
          break;
        }
      }
    } else if (is_key(f)) {
      place.frame = place.entry = f;
    } else {
      uint32_t n = earlier + 1;
      bool behind = false;
      for (uint32_t i = f + 1; i < count && !behind; ++i) {
        if (!is_key(i)) continue;
        n = i;
        behind = true;
      }
      // Without a key frame ahead the difference wraps.
      if (f - earlier < n - f || n == f) {
        place.frame = earlier;
        place.entry = last;
      } else {
        place.frame = place.entry = n;
      }
    }
  }

  const AVIReaderIndexEntry& found = entries[place.entry];
  place.position = found.m_dwPos;
  if (uint64_t{index.base} + found.m_dwPos + found.m_dwSize > index.data_end) return std::nullopt;
  const float counted = static_cast<float>(place.units != 0 ? place.units : place.frame);
  const float unit = static_cast<float>(index.scale) * 1000.0f;
  const float scaled = counted * unit;
  place.time = index.start_time;
  if (index.rate != 0) place.time += PlainU32(scaled / static_cast<float>(index.rate));
  return place;
}

}  // namespace zmv::test

#endif
