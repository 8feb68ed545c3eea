// Fragmented MP4 files for reader tests, on top of mp4_builder.h.
//
//     FragmentFile file({VideoTrack()}, {Trex(1, 40)});
//     file.Add({{.track = 1, .runs = {{.samples = {Unit(1, 10), Unit(2, 20)}}}}});   // moof and mdat
//     host.PutFile("a.mp4", file.bytes);
#ifndef ZMV_TESTS_MP4_FRAGMENT_BUILDER_H
#define ZMV_TESTS_MP4_FRAGMENT_BUILDER_H

#include "tests/support/mp4_builder.h"

namespace zmv::test {

// tfhd
constexpr uint32_t kBaseOffset = 0x1;
constexpr uint32_t kDescription = 0x2;
constexpr uint32_t kDefaultDuration = 0x8;
constexpr uint32_t kDefaultSize = 0x10;
constexpr uint32_t kDefaultFlags = 0x20;
constexpr uint32_t kBaseIsMoof = 0x020000;
// trun
constexpr uint32_t kDataOffset = 0x1;
constexpr uint32_t kFirstFlags = 0x4;
constexpr uint32_t kDurations = 0x100;
constexpr uint32_t kSizes = 0x200;
constexpr uint32_t kFlags = 0x400;
constexpr uint32_t kComposition = 0x800;

inline ByteVector Trex(uint32_t id, uint32_t duration, uint32_t size = 0) {
  return FullBox("trex", {Be32(id), Be32(1), Be32(duration), Be32(size), Be32(0x01010000)});
}

struct RunSpec {
  uint32_t flags = kDataOffset | kSizes;
  std::vector<ByteVector> samples = {};
  uint32_t duration = 30;                        // of sample 0; each next one lasts a tick longer
  std::optional<uint32_t> count = std::nullopt;  // what the box claims
};

struct TrafSpec {
  uint32_t track = 1;
  uint32_t flags = kBaseOffset;
  uint32_t duration = 0;
  uint32_t size = 0;
  std::optional<uint32_t> base = std::nullopt;  // default: where the moof stands
  bool base_at_data = false;                    // the base is where the data of the traf begin
  ByteVector boxes = {};                        // between tfhd and the first trun
  std::vector<RunSpec> runs = {};
};

inline ByteVector FlaggedBox(const std::string& type, uint32_t flags, const ByteVector& payload) {
  return Box(type, {Be32(flags), payload});
}

inline ByteVector BuildTfhd(const TrafSpec& traf, uint32_t base) {
  ByteVector fields = Be32(traf.track);
  if (traf.flags & kBaseOffset) Append(fields, Be64(base));
  if (traf.flags & kDescription) Append(fields, Be32(0x11111111));
  if (traf.flags & kDefaultDuration) Append(fields, Be32(traf.duration));
  if (traf.flags & kDefaultSize) Append(fields, Be32(traf.size));
  if (traf.flags & kDefaultFlags) Append(fields, Be32(0x22222222));
  return FlaggedBox("tfhd", traf.flags, fields);
}

inline ByteVector BuildTrun(const RunSpec& run, uint32_t data_offset) {
  ByteVector fields = Be32(run.count.value_or(static_cast<uint32_t>(run.samples.size())));
  if (run.flags & kDataOffset) Append(fields, Be32(data_offset));
  if (run.flags & kFirstFlags) Append(fields, Be32(0x33333333));
  for (size_t i = 0; i < run.samples.size(); ++i) {
    if (run.flags & kDurations) AppendWord(fields, run.duration + static_cast<uint32_t>(i));
    if (run.flags & kSizes) AppendWord(fields, static_cast<uint32_t>(run.samples[i].size()));
    if (run.flags & kFlags) AppendWord(fields, 0x44444444);
    if (run.flags & kComposition) AppendWord(fields, 0x55555555);
  }
  return FlaggedBox("trun", run.flags, fields);
}

// A moof that stands at `position`; the data of its runs follow one after another from `data` on.
inline ByteVector BuildMoof(const std::vector<TrafSpec>& trafs, uint32_t position, uint32_t data) {
  ByteVector moof = FullBox("mfhd", {Be32(1)});
  for (const TrafSpec& traf : trafs) {
    const uint32_t base = traf.base_at_data ? data : traf.base.value_or(position);
    ByteVector boxes = Join({BuildTfhd(traf, base), traf.boxes});
    for (const RunSpec& run : traf.runs) {
      Append(boxes, BuildTrun(run, data - (traf.flags & kBaseOffset ? base : 0)));
      for (const ByteVector& sample : run.samples) data += static_cast<uint32_t>(sample.size());
    }
    Append(moof, Box("traf", boxes));
  }
  return Box("moof", moof);
}

inline ByteVector BuildFragment(const std::vector<TrafSpec>& trafs, uint32_t position) {
  const auto header = static_cast<uint32_t>(BuildMoof(trafs, 0, 0).size());
  ByteVector data;
  for (const TrafSpec& traf : trafs) {
    for (const RunSpec& run : traf.runs) {
      for (const ByteVector& sample : run.samples) Append(data, sample);
    }
  }
  return Join({BuildMoof(trafs, position, position + header + 8), Box("mdat", data)});
}

struct FragmentFile {
  explicit FragmentFile(const std::vector<TrackSpec>& tracks, const std::vector<ByteVector>& extends = {}) {
    FileSpec file;
    ByteVector mvex;
    for (const ByteVector& box : extends) Append(mvex, box);
    file.movie_end = Box("mvex", mvex);
    bytes = BuildMp4(tracks, file);
  }
  void Add(const std::vector<TrafSpec>& trafs) { Append(bytes, BuildFragment(trafs, Size())); }
  uint32_t Size() const { return static_cast<uint32_t>(bytes.size()); }

  ByteVector bytes;
};

}  // namespace zmv::test

#endif
