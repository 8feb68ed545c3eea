// AVI files for reader tests, put together chunk by chunk.
//
//     AviSpec file;
//     file.streams = {VideoStream(25000, 1000), PcmStream()};
//     file.chunks = {{"00dc", key}, {"01wb", sound}, {"00dc", other, 0}};
//     host.PutFile("a.avi", BuildAvi(file));
//
// Every field can be bent to make a file that no writer would make.
#ifndef ZMV_TESTS_AVI_BUILDER_H
#define ZMV_TESTS_AVI_BUILDER_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scripted_host.h"

namespace zmv::test {

// A chunk, padded to even length unless `pad` is false.
inline ByteVector Chunk(const std::string& code, const ByteVector& data, bool pad = true) {
  ByteVector bytes = Join({Text(code), Le32(static_cast<uint32_t>(data.size())), data});
  if (pad && data.size() % 2 != 0) bytes.push_back(0);
  return bytes;
}
inline ByteVector List(const std::string& type, const ByteVector& data) {
  return Chunk("LIST", Join({Text(type), data}));
}
inline ByteVector Riff(const std::string& form, const ByteVector& data) {
  return Chunk("RIFF", Join({Text(form), data}));
}

// ---- Streams

struct AviStream {
  std::string type = "vids";
  std::string handler = "H264";
  uint32_t language = 0;  // 16 bits
  uint32_t scale = 1000;
  uint32_t rate = 25000;
  uint32_t start = 0;
  uint32_t length = 0;
  uint32_t suggested_size = 0;
  uint32_t sample_size = 0;
  ByteVector format;  // data of "strf"
  ByteVector behind;  // chunks behind "strf", such as "indx"
  ByteVector header;  // data of "strh"; empty: built from the fields above
  bool has_header = true;
  bool has_format = true;
};

// BITMAPINFOHEADER
inline ByteVector BitmapFormat(const std::string& code, uint32_t width = 640, uint32_t height = 480) {
  return Join({
      Le32(40),
      Le32(width),
      Le32(height),
      Le16(1),
      Le16(24),  // planes, bits
      Text(code),
      Le32(width * height * 3),  // compression, image size
      ByteVector(16),
  });
}
// WAVEFORMAT with its bits per sample; `extra` is put behind its length.
inline ByteVector WaveFormat(uint32_t tag, uint32_t channels, uint32_t rate, uint32_t bytes_per_second, uint32_t align,
                             uint32_t bits, const ByteVector& extra = {}) {
  const ByteVector head =
      Join({Le16(static_cast<uint16_t>(tag)), Le16(static_cast<uint16_t>(channels)), Le32(rate), Le32(bytes_per_second),
            Le16(static_cast<uint16_t>(align)), Le16(static_cast<uint16_t>(bits))});
  if (extra.empty()) return head;
  return Join({head, Le16(static_cast<uint16_t>(extra.size())), extra});
}

inline AviStream VideoStream(uint32_t rate = 25000, uint32_t scale = 1000, const std::string& code = "H264") {
  AviStream stream;
  stream.handler = code;
  stream.rate = rate;
  stream.scale = scale;
  stream.format = BitmapFormat(code);
  return stream;
}
// 16-bit stereo PCM at 48 kHz.
inline AviStream PcmStream() {
  AviStream stream;
  stream.type = "auds";
  stream.handler = std::string("\1\0\0\0", 4);
  stream.scale = 4;
  stream.rate = 192000;
  stream.sample_size = 4;
  stream.format = WaveFormat(1, 2, 48000, 192000, 4, 16);
  return stream;
}
// AAC at 48 kHz, 1024 samples a chunk.
inline AviStream AacStream() {
  AviStream stream;
  stream.type = "auds";
  stream.handler = std::string("\xFF\0\0\0", 4);
  stream.scale = 1024;
  stream.rate = 48000;
  stream.format = WaveFormat(0xFF, 2, 48000, 16000, 1024, 16, {0x11, 0x90});
  return stream;
}
inline AviStream TextStream(uint32_t rate = 10000) {
  AviStream stream;
  stream.type = "txts";
  stream.handler = std::string(4, '\0');
  stream.rate = rate;
  stream.format = BitmapFormat(std::string(4, '\0'), 0, 0);
  return stream;
}

inline ByteVector StreamHeader(const AviStream& stream) {
  if (!stream.header.empty()) return stream.header;
  return Join({
      Text(stream.type),
      Text(stream.handler),
      Le32(0),  // flags
      Le16(0),
      Le16(static_cast<uint16_t>(stream.language)),
      Le32(0),  // priority, initial frames
      Le32(stream.scale),
      Le32(stream.rate),
      Le32(stream.start),
      Le32(stream.length),
      Le32(stream.suggested_size),
      Le32(0),  // quality
      Le32(stream.sample_size),
      ByteVector(8),
  });
}
inline ByteVector StreamList(const AviStream& stream) {
  ByteVector data;
  if (stream.has_header) data = Join({data, Chunk("strh", StreamHeader(stream))});
  if (stream.has_format) data = Join({data, Chunk("strf", stream.format)});
  return List("strl", Join({data, stream.behind}));
}

// ---- Files

struct AviChunk {
  std::string code;
  ByteVector data;
  uint32_t flags = 0x10;
};

struct AviSpec {
  std::vector<AviStream> streams;
  std::vector<AviChunk> chunks;
  uint32_t frame_time = 0;  // "avih": microseconds
  ByteVector headers;       // chunks behind the "hdrl" list
  bool has_index = true;
  std::optional<uint32_t> first_offset;  // of the index; without one the offsets count from "movi"
};

inline ByteVector MainHeader(const AviSpec& file) {
  return Join(
      {Le32(file.frame_time), ByteVector(20), Le32(static_cast<uint32_t>(file.streams.size())), ByteVector(28)});
}
inline ByteVector HeaderList(const AviSpec& file) {
  ByteVector data = Chunk("avih", MainHeader(file));
  for (const AviStream& stream : file.streams) data = Join({data, StreamList(stream)});
  return List("hdrl", data);
}
inline ByteVector MoviData(const AviSpec& file) {
  ByteVector data;
  for (const AviChunk& chunk : file.chunks) data = Join({data, Chunk(chunk.code, chunk.data)});
  return data;
}
inline ByteVector IndexEntry(const std::string& code, uint32_t flags, uint32_t offset, uint32_t size) {
  return Join({Text(code), Le32(flags), Le32(offset), Le32(size)});
}
inline ByteVector IndexData(const AviSpec& file) {
  ByteVector data;
  uint32_t offset = file.first_offset.value_or(4);
  for (const AviChunk& chunk : file.chunks) {
    const uint32_t size = static_cast<uint32_t>(chunk.data.size());
    data = Join({data, IndexEntry(chunk.code, chunk.flags, offset, size)});
    offset += 8 + size + size % 2;
  }
  return data;
}
inline ByteVector BuildAvi(const AviSpec& file) {
  ByteVector data = Join({HeaderList(file), file.headers, List("movi", MoviData(file))});
  if (file.has_index) data = Join({data, Chunk("idx1", IndexData(file))});
  return Riff("AVI ", data);
}

// ---- OpenDML

// A standard index over chunks of `code`, whose data lie at the given offsets from `base`; bit 31 of a size: no key
// frame.
struct StdIndexSpec {
  std::string code = "00dc";
  uint64_t base = 0;
  std::vector<std::pair<uint32_t, uint32_t>> entries;  // offset, size
  uint32_t reserved = 0;
  std::optional<uint32_t> count = {};  // instead of the number of entries
};
inline ByteVector StdIndexData(const StdIndexSpec& index) {
  ByteVector data = Join({
      Le16(2),        // longs per entry
      Bytes({0, 1}),  // sub-type, type: an index of chunks
      Le32(index.count.value_or(static_cast<uint32_t>(index.entries.size()))),
      Text(index.code),
      Le32(static_cast<uint32_t>(index.base)),
      Le32(static_cast<uint32_t>(index.base >> 32)),
      Le32(index.reserved),
  });
  for (const auto& [offset, size] : index.entries) data = Join({data, Le32(offset), Le32(size)});
  return data;
}

inline ByteVector SuperIndexHeader(uint32_t type, uint32_t sub_type, uint32_t entries) {
  return Join({
      Le16(4),  // longs per entry
      Bytes({static_cast<int>(sub_type), static_cast<int>(type)}),
      Le32(entries),
      Text("00dc"),
      ByteVector(12),
  });
}
inline ByteVector SuperIndexEntry(uint64_t offset, uint32_t size = 32, uint32_t duration = 1) {
  return Join(
      {Le32(static_cast<uint32_t>(offset)), Le32(static_cast<uint32_t>(offset >> 32)), Le32(size), Le32(duration)});
}

// An OpenDML file of one RIFF form for each of `parts`. Every "movi" list begins with a standard index for each stream
// over its chunks, and every stream's super index names its own. With an old index, "idx1" lists the chunks of the
// first form. `movi_positions` receives where the lists' data begin, counted from the start of the file.
inline ByteVector BuildOpenDml(AviSpec file, const std::vector<std::vector<AviChunk>>& parts, bool old_index = false,
                               std::vector<uint32_t>* movi_positions = nullptr) {
  const uint32_t streams = static_cast<uint32_t>(file.streams.size());
  std::vector<ByteVector> supers(streams, SuperIndexHeader(0, 0, static_cast<uint32_t>(parts.size())));
  for (uint32_t i = 0; i < streams; ++i) {
    file.streams[i].behind = Chunk("indx", ByteVector(24 + 16 * parts.size()));
  }
  uint32_t position = 12 + static_cast<uint32_t>(Join({HeaderList(file), file.headers}).size());
  std::vector<ByteVector> lists;
  ByteVector old_entries;
  for (const std::vector<AviChunk>& chunks : parts) {
    const uint32_t movi = position + 12;
    if (movi_positions != nullptr) movi_positions->push_back(movi);
    std::vector<StdIndexSpec> indexes(streams);
    uint32_t at = movi;
    for (uint32_t i = 0; i < streams; ++i) {
      const std::string number = "0" + std::to_string(i);
      for (const AviChunk& chunk : chunks) {
        if (chunk.code.substr(0, 2) != number) continue;
        indexes[i].code = chunk.code;
        indexes[i].entries.push_back({0, 0});
      }
      indexes[i].base = movi;
      const uint32_t size = 32 + 8 * static_cast<uint32_t>(indexes[i].entries.size());
      supers[i] = Join({supers[i], SuperIndexEntry(at, size, static_cast<uint32_t>(indexes[i].entries.size()))});
      indexes[i].entries.clear();
      at += size;
    }
    ByteVector data;
    for (const AviChunk& chunk : chunks) {
      const uint32_t size = static_cast<uint32_t>(chunk.data.size());
      const uint32_t delta = chunk.flags == 0x10 ? 0 : 0x80000000;
      indexes[static_cast<uint32_t>(chunk.code[1] - '0')].entries.push_back({at + 8 - movi, size | delta});
      old_entries = Join({old_entries, IndexEntry(chunk.code, chunk.flags, at - movi + 4, size)});
      data = Join({data, Chunk(chunk.code, chunk.data)});
      at += 8 + size + size % 2;
    }
    ByteVector front;
    for (uint32_t i = 0; i < streams; ++i) {
      front = Join({front, Chunk("ix0" + std::to_string(i), StdIndexData(indexes[i]))});
    }
    lists.push_back(List("movi", Join({front, data})));
    position = at + 12;  // the next form's header lies in between
    if (old_index && lists.size() == 1) {
      lists[0] = Join({lists[0], Chunk("idx1", old_entries)});
      position += 8 + static_cast<uint32_t>(old_entries.size());
    }
  }
  for (uint32_t i = 0; i < streams; ++i) file.streams[i].behind = Chunk("indx", supers[i]);
  ByteVector bytes = Riff("AVI ", Join({HeaderList(file), file.headers, lists[0]}));
  for (size_t i = 1; i < lists.size(); ++i) bytes = Join({bytes, Riff("AVIX", lists[i])});
  return bytes;
}

}  // namespace zmv::test

#endif
