#include "tests/support/plain_seek.h"

#include <algorithm>
#include <cmath>

namespace zmv::test {
namespace {

constexpr uint32_t kNone = 0x7FFFFFFF;
constexpr uint32_t kNoChunk = 0xFFFFFFFF;
enum : uint32_t { kForward = 1, kBackward = 2, kNearest = 3 };

uint32_t Saturate(float value) {
  if (std::isnan(value) || value <= 0) return 0;
  return value >= 4294967296.0f ? 0xFFFFFFFF : static_cast<uint32_t>(value);
}

uint32_t Cts(uint32_t dts, uint32_t scale, float unit = 1000.0f) {
  return scale == 0 ? 0 : Saturate(static_cast<float>(dts) * unit / static_cast<float>(scale));
}

bool OneSamplePerChunk(const PlainTables& tables) { return tables.media == 2 || tables.pcm; }

// The next entry of stts with samples in it.
bool NextTime(const PlainTables& tables, uint64_t* words, uint32_t* left, uint32_t* delta) {
  while (*words / 2 < tables.times.size()) {
    const auto [count, ticks] = tables.times[*words / 2];
    *words += 2;
    if (count == 0) continue;
    *left = count;
    *delta = ticks;
    return true;
  }
  return false;
}

// The next entry of stss as a sample from 0.
uint32_t NextKey(const PlainTables& tables, size_t* consumed) {
  if (*consumed >= tables.syncs->size()) return kNone;
  const uint32_t number = (*tables.syncs)[(*consumed)++];
  return number == 0 ? 0 : number - 1;
}

struct Candidate {
  uint64_t words;
  uint32_t left;
  uint32_t delta;
  uint32_t dts;
};

// The sample. Fills sample, stts_* and dts of `place`.
bool FindSample(const PlainTables& tables, uint32_t mode, uint32_t target, uint32_t* time, PlainPlace* place) {
  const bool keys = tables.syncs.has_value();
  size_t consumed = 0;
  uint32_t candidate = 0;
  uint32_t next = 0;
  if (keys) {
    candidate = tables.syncs->empty() ? 0 : NextKey(tables, &consumed);
    next = NextKey(tables, &consumed);
  }
  uint32_t current = candidate;
  uint32_t scale = tables.time_scale;
  uint64_t words = 0;
  uint32_t left = 0;
  uint32_t delta = 0;
  uint32_t dts = 0;
  NextTime(tables, &words, &left, &delta);
  if (tables.pcm && tables.sample_size != 0) {
    scale = 1000;
    const uint64_t bytes = uint64_t{tables.bits_per_sample / 8} * tables.sample_rate;
    delta = bytes == 0 ? 0 : Saturate(1000.0f / (static_cast<float>(bytes) / static_cast<float>(tables.sample_size)));
  }
  Candidate saved{words, left, delta, dts};

  bool restored = false;
  for (;;) {
    bool exhausted = current >= tables.sample_count;
    if (!exhausted && left == 0) exhausted = !NextTime(tables, &words, &left, &delta);
    const uint32_t cts = Cts(dts, scale);
    const bool passed = exhausted || (mode == kForward ? cts > target : cts >= target);
    if (!passed && keys && current == next) {
      next = NextKey(tables, &consumed);
      candidate = current;
      saved = {words, left, delta, dts};
    }
    if (passed) {
      if (!keys) break;
      const bool nearer = next == kNone || current - candidate <= next - current;
      if (next == candidate || mode == kBackward || (mode == kNearest && nearer)) {
        restored = true;
        break;
      }
      if (next == kNone) return false;
      if (current == next) break;
    }
    if (cts >= target || current >= tables.sample_count) break;
    ++current;
    if (left != 0) --left;
    dts += delta;
  }
  if (restored) {
    current = candidate;
    words = saved.words;
    left = saved.left;
    delta = saved.delta;
    dts = saved.dts;
  }
  *time = Cts(dts, scale);
  place->sample = std::min(current, tables.sample_count);
  place->stts_words = words;
  place->stts_left = left;
  place->stts_delta = delta;
  place->dts = dts;
  return true;
}

// The chunk. Fills the chunk fields; *first is its first sample.
bool FindChunk(const PlainTables& tables, PlainPlace* place, uint64_t* first) {
  const auto count = static_cast<uint32_t>(tables.offsets.size());
  *first = place->sample;
  if (place->sample == tables.sample_count) {
    place->chunk = count;
    place->samples_left = 0;
    return true;
  }
  if (OneSamplePerChunk(tables)) {
    if (place->sample >= count) return false;
    place->chunk = place->sample + 1;
    place->samples_per_chunk = place->samples_left = 1;
    return true;
  }
  const auto& entries = tables.chunks;
  uint32_t next = kNoChunk;
  if (!entries.empty()) {
    next = entries[0][0] - 1;
    place->stsc_words = 1;
  }
  uint64_t samples = entries.empty() ? 1 : 0;
  uint32_t consumed = 0;
  uint32_t chunk = 0;
  uint64_t through = 0;
  *first = 0;
  for (;;) {
    if (chunk == count) return false;
    if (chunk == next && consumed < entries.size()) {
      samples = entries[consumed][1];
      ++consumed;
      const bool more = consumed < entries.size();
      next = more ? entries[consumed][0] - 1 : kNoChunk;
      place->stsc_words = 3 * uint64_t{consumed} + (more ? 1 : 0);
      if (samples == 0 || (more && entries[consumed][0] <= chunk + 1)) return false;
    }
    through = *first + samples;
    ++chunk;
    if (through > samples * place->sample) break;
    *first = through;
  }
  place->stsc_entry = consumed;
  place->next_first_chunk = next;
  place->samples_per_chunk = static_cast<uint32_t>(samples);
  place->samples_left = static_cast<uint32_t>(std::min<uint64_t>(through - place->sample, 0xFFFFFFFF));
  place->chunk = chunk;
  return true;
}

void FindSync(const PlainTables& tables, PlainPlace* place) {
  place->next_sync = 0;
  place->stss_words = 0;
  while (place->stss_words < tables.syncs->size()) {
    place->next_sync = (*tables.syncs)[place->stss_words++];
    if (place->sample == 0 || place->next_sync >= place->sample) break;
  }
  place->sync_entry = place->stss_words == 0 ? 0 : static_cast<uint32_t>(place->stss_words - 1);
}

bool EnterChunk(const PlainTables& tables, PlainPlace* place) {
  if (OneSamplePerChunk(tables)) {
    place->samples_left = 1;
  } else {
    const auto& entries = tables.chunks;
    if (place->next_first_chunk == place->chunk && place->stsc_entry < entries.size()) {
      place->samples_per_chunk = entries[place->stsc_entry++][1];
      const bool more = place->stsc_entry < entries.size();
      place->next_first_chunk = more ? entries[place->stsc_entry][0] - 1 : kNoChunk;
      place->stsc_words = 3 * uint64_t{place->stsc_entry} + (more ? 1 : 0);
    }
    place->samples_left = place->samples_per_chunk;
  }
  if (place->stco_words >= tables.offsets.size()) return false;
  place->position = tables.offsets[place->stco_words++];
  ++place->chunk;
  return true;
}

}  // namespace

uint8_t PlainSearch(const PlainTables& tables, const PlainPlace& live, uint32_t mode, uint32_t* time,
                    PlainPlace* pending) {
  uint32_t target = *time;
  if (target > tables.duration) {
    if (target > tables.movie_duration) return 0;
    target = tables.duration;
  }
  if (tables.sample_count == 0 || tables.offsets.empty()) return 0;
  PlainPlace place = live;
  place.stts_words = place.stsc_words = place.stsz_words = place.stco_words = place.stss_words = 0;
  uint32_t found = 0;
  if (!FindSample(tables, mode, target, &found, &place)) return 0;
  if (tables.pcm) place.dts = place.sample * live.stts_delta;

  uint64_t first = 0;
  if (!FindChunk(tables, &place, &first)) return 0;
  uint64_t position = tables.offsets[place.chunk - 1];
  place.stco_words = place.chunk;
  if (tables.sample_size == 0) place.stsz_words = std::min<uint64_t>(first, tables.sizes.size());
  for (uint64_t sample = first; sample < place.sample; ++sample) {
    position += tables.sample_size != 0 ? tables.sample_size : tables.sizes[place.stsz_words++];
  }
  if (position >= tables.data_end) return 0;
  place.position = static_cast<uint32_t>(position);
  if (tables.syncs) FindSync(tables, &place);
  *time = found;
  *pending = place;
  return 1;
}

PlainPlace PlainTake(const PlainTables& tables, const PlainPlace& live, const PlainPlace& pending) {
  PlainPlace place = pending;
  if (tables.pcm) place.stts_delta = live.stts_delta;
  return place;
}

bool PlainRead(const PlainTables& tables, PlainPlace* place, PlainFrame* frame) {
  if (place->sample >= tables.sample_count || tables.offsets.empty()) return false;
  if (tables.media == 2 && place->samples_left == 0 && place->chunk >= tables.offsets.size()) return false;
  frame->size = tables.sample_size;
  if (frame->size == 0) {
    if (place->stsz_words >= tables.sizes.size()) return false;
    frame->size = tables.sizes[place->stsz_words++];
  }
  if (place->samples_left == 0 && place->chunk < tables.offsets.size() && !EnterChunk(tables, place)) return false;
  if (place->samples_left != 0) --place->samples_left;
  frame->position = place->position;
  frame->chunk = place->chunk;

  if (tables.pcm && place->stts_delta != 0) {
    if (place->stts_left == 0) place->stts_left = tables.sample_count;
  } else if (place->stts_left == 0) {
    NextTime(tables, &place->stts_words, &place->stts_left, &place->stts_delta);
  }
  frame->duration = Cts(place->stts_delta, tables.time_scale);
  frame->time_stamp =
      tables.media == 1 ? Cts(place->dts, tables.time_scale, 1000000.0f) / 1000 : Cts(place->dts, tables.time_scale);
  const uint32_t average = tables.duration / tables.sample_count;
  if (tables.media == 1 && uint64_t{average} + 5 < frame->duration) frame->duration = average;
  if (place->stts_left != 0) --place->stts_left;
  place->dts += place->stts_delta;

  frame->key = 1;
  if (tables.syncs) {
    frame->key = 2;
    if (place->sample == place->next_sync - 1 && place->sync_entry < tables.syncs->size()) {
      place->next_sync = place->stss_words < tables.syncs->size() ? (*tables.syncs)[place->stss_words++] : 0;
      ++place->sync_entry;
      frame->key = 1;
    }
  }
  place->position += frame->size;
  ++place->sample;
  return true;
}

}  // namespace zmv::test
