// MP4 files for reader tests, put together box by box.
//
//     TrackSpec video = VideoTrack();
//     video.frames = {Unit(0x65, 10), Unit(0x41, 5)};
//     host.PutFile("a.mp4", BuildMp4({video}));
//
// The media data come first, then moov. Every field of a TrackSpec can be bent to make a file that no writer would
// make.
#ifndef ZMV_TESTS_MP4_BUILDER_H
#define ZMV_TESTS_MP4_BUILDER_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scripted_host.h"

namespace zmv::test {

inline void Append(ByteVector& to, const ByteVector& bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }

inline ByteVector Box(const std::string& type, const ByteVector& payload = {}) {
  return Join({Be32(static_cast<uint32_t>(payload.size() + 8)), Text(type), payload});
}
inline ByteVector Box(const std::string& type, std::initializer_list<ByteVector> parts) {
  return Box(type, Join(parts));
}
// A box that begins with version 0 and flags 0.
inline ByteVector FullBox(const std::string& type, std::initializer_list<ByteVector> parts) {
  return Box(type, Join({Be32(0), Join(parts)}));
}

// A NAL unit behind a length field of `width` bytes.
inline ByteVector Prefixed(const ByteVector& unit, int width = 4) {
  const ByteVector length = Be32(static_cast<uint32_t>(unit.size()));
  return Join({ByteVector(length.end() - width, length.end()), unit});
}
// The same unit as the reader hands it out.
inline ByteVector StartCoded(const ByteVector& unit) { return Join({Bytes({0, 0, 0, 1}), unit}); }
// `size` bytes that begin with `first` and differ from their neighbours.
inline ByteVector Unit(uint8_t first, size_t size) {
  ByteVector bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(first + 7 * i);
  return bytes;
}

// ---- Sample entries

inline ByteVector AvcConfig(int profile = 100, int length_byte = 0xFF) {
  return Join({
      Bytes({1, profile, 0, 0x1E, length_byte}),  // version, profile, compatibility, level, length size - 1
      Bytes({0xE1, 0, 6, 0x67, profile, 0, 0x1E, 0xAC, 0xD9}),  // one SPS of 6 bytes
      Bytes({1, 0, 4, 0x68, 0xEE, 0x3C, 0x80}),                 // one PPS of 4 bytes
  });
}

inline ByteVector VideoEntry(const std::string& type, const ByteVector& children, uint32_t width = 640,
                             uint32_t height = 360) {
  return Box(type, {Zeros(6), Be16(1),                     // reserved, data reference
                    Zeros(16), Be16(width), Be16(height),  // pre-defined, picture size
                    Zeros(50), children});                 // resolution to pre-defined
}

inline ByteVector AudioEntry(const std::string& type, const ByteVector& children, uint32_t channels = 2,
                             uint32_t bits = 16, uint32_t rate = 48000, uint32_t version = 0) {
  return Box(type, {Zeros(6), Be16(1),                                    // reserved, data reference
                    Be16(version), Zeros(6), Be16(channels), Be16(bits),  // version, vendor
                    Zeros(4), Be16(rate), Be16(0),                        // 16.16 sample rate
                    Zeros(version == 1   ? 16
                          : version == 2 ? 36
                                         : 0),
                    children});
}

// A descriptor: tag, length, payload.
inline ByteVector Descriptor(int tag, const ByteVector& payload) {
  const int size = static_cast<int>(payload.size());
  const ByteVector length = size < 128 ? Bytes({size}) : Bytes({0x80 | size >> 7, size & 0x7F});
  return Join({Bytes({tag}), length, payload});
}

inline ByteVector Esds(int object_type = 0x40, const ByteVector& config = Bytes({0x11, 0x90}),
                       uint32_t buffer_size = 1536, uint32_t bit_rate = 128000) {
  const ByteVector buffer = Be32(buffer_size);
  const ByteVector decoder = Join({
      Bytes({object_type, 0x15}),                    // object type, stream type
      ByteVector(buffer.begin() + 1, buffer.end()),  // buffer size, 3 bytes
      Be32(bit_rate + 1), Be32(bit_rate),            // maximum, average
      Descriptor(5, config),                         // decoder specific information
  });
  return FullBox("esds", {Descriptor(3, Join({Bytes({0, 1, 0}),  // ES ID, flags
                                              Descriptor(4, decoder), Descriptor(6, Bytes({2}))}))});
}

inline ByteVector Btrt(uint32_t buffer_size, uint32_t maximum, uint32_t average) {
  return Box("btrt", {Be32(buffer_size), Be32(maximum), Be32(average)});
}

// ---- Tracks

struct TrackSpec {
  uint32_t id = 1;
  std::string handler = "vide";
  ByteVector handler_name = Text("vide");
  ByteVector media_header = FullBox("vmhd", {Zeros(8)});
  uint32_t time_scale = 1000;
  uint32_t duration = 0;
  std::vector<ByteVector> entries;

  // The samples; the tables below follow from them where they are not given.
  std::vector<ByteVector> frames;
  uint32_t samples_per_chunk = 1;
  std::vector<std::pair<uint32_t, uint32_t>> times;  // count, delta; default: (frames, 40)
  std::optional<std::vector<uint32_t>> sizes;
  uint32_t constant_size = 0;
  std::optional<uint32_t> sample_count;
  std::optional<std::vector<std::array<uint32_t, 3>>> chunks;  // first chunk, samples per chunk, description
  std::optional<std::vector<uint32_t>> offsets;
  std::optional<std::vector<uint32_t>> sync;  // default: no stss
  std::vector<std::string> leave_out;         // table boxes
  ByteVector table_extra;                     // boxes in front of the tables
};

inline TrackSpec VideoTrack(uint32_t id = 1) {
  TrackSpec track;
  track.id = id;
  track.entries = {VideoEntry("avc1", Box("avcC", AvcConfig()))};
  return track;
}

inline TrackSpec AudioTrack(uint32_t id = 2) {
  TrackSpec track;
  track.id = id;
  track.handler = "soun";
  track.handler_name = Text("soun");
  track.media_header = FullBox("smhd", {Zeros(4)});
  track.entries = {AudioEntry("mp4a", Esds())};
  return track;
}

inline TrackSpec TextTrack(uint32_t id = 3) {
  TrackSpec track;
  track.id = id;
  track.handler = "tvxt";
  track.handler_name = Text("SPGG");  // the code "GGPS" as a number
  track.media_header = FullBox("nmhd", {});
  track.entries = {Box("text", {Zeros(6), Be16(1)})};
  return track;
}

inline void AppendWord(ByteVector& to, uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) to.push_back(static_cast<uint8_t>(word >> shift));
}
inline ByteVector Words(const std::vector<uint32_t>& words) {
  ByteVector bytes;
  bytes.reserve(4 * words.size());
  for (uint32_t word : words) AppendWord(bytes, word);
  return bytes;
}

// A table box: version and flags, `head`, entry count, entries.
inline ByteVector Table(const std::string& type, uint32_t count, const ByteVector& entries) {
  return FullBox(type, {Be32(count), entries});
}

inline ByteVector BuildStbl(const TrackSpec& track, const std::vector<uint32_t>& offsets) {
  const auto frames = static_cast<uint32_t>(track.frames.size());
  auto wanted = [&](const std::string& type) {
    for (const std::string& name : track.leave_out) {
      if (name == type) return false;
    }
    return true;
  };
  ByteVector stbl = track.table_extra;
  ByteVector entries;
  for (const ByteVector& entry : track.entries) Append(entries, entry);
  if (wanted("stsd")) Append(stbl, Table("stsd", static_cast<uint32_t>(track.entries.size()), entries));

  auto times = track.times;
  if (times.empty() && frames != 0) times = {{frames, 40}};
  ByteVector stts;
  for (auto [count, delta] : times) {
    AppendWord(stts, count);
    AppendWord(stts, delta);
  }
  if (wanted("stts")) Append(stbl, Table("stts", static_cast<uint32_t>(times.size()), stts));

  auto chunks = track.chunks.value_or(std::vector<std::array<uint32_t, 3>>{{1, track.samples_per_chunk, 1}});
  ByteVector stsc;
  for (const auto& entry : chunks) {
    for (uint32_t word : entry) AppendWord(stsc, word);
  }
  if (wanted("stsc")) Append(stbl, Table("stsc", static_cast<uint32_t>(chunks.size()), stsc));

  std::vector<uint32_t> sizes;
  if (track.sizes) sizes = *track.sizes;
  if (!track.sizes && track.constant_size == 0) {
    for (const ByteVector& frame : track.frames) sizes.push_back(static_cast<uint32_t>(frame.size()));
  }
  const uint32_t count =
      track.sample_count.value_or(track.constant_size != 0 ? frames : static_cast<uint32_t>(sizes.size()));
  if (wanted("stsz")) Append(stbl, FullBox("stsz", {Be32(track.constant_size), Be32(count), Words(sizes)}));
  if (wanted("stco")) Append(stbl, Table("stco", static_cast<uint32_t>(offsets.size()), Words(offsets)));
  if (track.sync) Append(stbl, Table("stss", static_cast<uint32_t>(track.sync->size()), Words(*track.sync)));
  return Box("stbl", stbl);
}

inline ByteVector Tkhd(uint32_t id, uint32_t duration) {
  return FullBox("tkhd", {Zeros(8), Be32(id), Zeros(4), Be32(duration), Zeros(60)});
}
inline ByteVector Mdhd(uint32_t time_scale, uint32_t duration) {
  return FullBox("mdhd", {Zeros(8), Be32(time_scale), Be32(duration), Zeros(4)});
}
inline ByteVector Hdlr(const std::string& type, const ByteVector& name) {
  return FullBox("hdlr", {Zeros(4), Text(type), Zeros(12), name});
}
inline ByteVector Mvhd(uint32_t time_scale, uint32_t duration) {
  return FullBox("mvhd", {Zeros(8), Be32(time_scale), Be32(duration), Zeros(80)});
}

inline ByteVector BuildTrak(const TrackSpec& track, const std::vector<uint32_t>& offsets) {
  const ByteVector minf = Box("minf", {track.media_header, BuildStbl(track, offsets)});
  return Box("trak", {Tkhd(track.id, track.duration), Box("mdia", {Mdhd(track.time_scale, track.duration),
                                                                   Hdlr(track.handler, track.handler_name), minf})});
}

// ---- Files

struct FileSpec {
  ByteVector movie_header = Mvhd(1000, 0);
  ByteVector movie_end;  // boxes behind the tracks in moov
  ByteVector before_moov;
  ByteVector after_moov;
};

constexpr size_t kChunkGap = 5;  // bytes in front of every chunk that belong to no sample

inline ByteVector BuildMp4(const std::vector<TrackSpec>& tracks, const FileSpec& file = {}) {
  ByteVector bytes = Box("ftyp", {Text("mp41"), Be32(0), Text("mp41")});
  ByteVector data;
  std::vector<std::vector<uint32_t>> offsets(tracks.size());
  for (size_t t = 0; t < tracks.size(); ++t) {
    for (size_t i = 0; i < tracks[t].frames.size(); ++i) {
      if (i % tracks[t].samples_per_chunk == 0) {
        Append(data, ByteVector(kChunkGap, 0xFE));
        offsets[t].push_back(static_cast<uint32_t>(bytes.size() + 8 + data.size()));
      }
      Append(data, tracks[t].frames[i]);
    }
    if (tracks[t].offsets) offsets[t] = *tracks[t].offsets;
  }
  Append(bytes, Box("mdat", data));
  Append(bytes, file.before_moov);
  ByteVector moov = file.movie_header;
  for (size_t t = 0; t < tracks.size(); ++t) Append(moov, BuildTrak(tracks[t], offsets[t]));
  Append(moov, file.movie_end);
  Append(bytes, Box("moov", moov));
  Append(bytes, file.after_moov);
  return bytes;
}

}  // namespace zmv::test

#endif
