#include "tools/zmv/track_tables.h"

#include <algorithm>
#include <array>

#include "facade/zmvstream_media.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kEntry = sizeof(uint32_t);
constexpr uint32_t kVersionAndFlags = 4;
constexpr uint32_t kSampleEntryCount = 4;
constexpr uint32_t kVideoEntryFields = 78;  // between the header of a video sample entry and its boxes

// Walks the boxes inside `parent` and gives each to `visit`.
template <typename Visit>
void ForEachBox(StreamFile& file, uint64_t position, uint64_t end, Visit visit) {
  BoxHeader box;
  while (file.ReadHeader(position, end, box) && box.size >= box.header && box.size <= end - position) {
    visit(box);
    position += box.size;
  }
}

bool IsContainer(const std::string& type) { return type == "mdia" || type == "minf" || type == "stbl"; }

// "svhd", then "proj" with "prhd" and the box that is looked for.
std::string ProjectionOf(StreamFile& file, const BoxHeader& spherical) {
  std::string found = "none";
  ForEachBox(file, spherical.position + spherical.header, spherical.position + spherical.size, [&](BoxHeader outer) {
    if (outer.type != "proj") return;
    ForEachBox(file, outer.position + outer.header, outer.position + outer.size, [&](const BoxHeader& inner) {
      if (inner.type != "prhd") found = inner.type;
    });
  });
  return found;
}

void TakeDescription(StreamFile& file, const BoxHeader& description, TrackTables& tables) {
  const uint64_t entries = description.position + description.header + kVersionAndFlags + kSampleEntryCount;
  ForEachBox(file, entries, description.position + description.size, [&](const BoxHeader& entry) {
    const uint64_t boxes = entry.position + entry.header + kVideoEntryFields;
    ForEachBox(file, boxes, entry.position + entry.size, [&](const BoxHeader& box) {
      if (box.type == "sv3d") tables.projection = ProjectionOf(file, box);
    });
  });
}

void TakeBox(StreamFile& file, const BoxHeader& box, TrackTables& tables) {
  if (box.type == "vmhd") tables.media = ZMV_MEDIA_VIDEO;
  if (box.type == "smhd") tables.media = ZMV_MEDIA_AUDIO;
  if (box.type == "nmhd") tables.media = ZMV_MEDIA_TEXT;
  const uint64_t body = box.position + box.header;
  const uint64_t end = box.position + box.size;
  if (box.type == "stsd") {
    TakeDescription(file, box, tables);
  } else if (box.type == "ctts") {
    file.Seek(body + kVersionAndFlags);
    tables.reordered = file.U32() > 1;
  } else if (box.type == "stco") {
    file.Seek(body + kVersionAndFlags);
    tables.chunks = file.U32();
    tables.chunk_table = file.position();
    tables.chunks = static_cast<uint32_t>(
        std::min<uint64_t>(tables.chunks, end > tables.chunk_table ? (end - tables.chunk_table) / kEntry : 0));
  } else if (box.type == "stsz") {
    file.Seek(body + kVersionAndFlags);
    tables.constant_size = file.U32();
    tables.samples = file.U32();
    tables.size_table = file.position();
    if (tables.constant_size == 0) {
      tables.samples = static_cast<uint32_t>(
          std::min<uint64_t>(tables.samples, end > tables.size_table ? (end - tables.size_table) / kEntry : 0));
    }
  }
}

void WalkTrack(StreamFile& file, const BoxHeader& parent, TrackTables& tables) {
  ForEachBox(file, parent.position + parent.header, parent.position + parent.size, [&](const BoxHeader& box) {
    if (IsContainer(box.type) && box.type != parent.type) {
      WalkTrack(file, box, tables);
    } else {
      TakeBox(file, box, tables);
    }
  });
}

}  // namespace

std::vector<TrackTables> FindTables(StreamFile& file) {
  std::vector<TrackTables> tracks;
  ForEachBox(file, 0, file.size(), [&](const BoxHeader& top) {
    if (top.type != "moov" || !tracks.empty()) return;
    ForEachBox(file, top.position + top.header, top.position + top.size, [&](const BoxHeader& box) {
      if (box.type != "trak") return;
      TrackTables tables;
      WalkTrack(file, box, tables);
      tracks.push_back(tables);
    });
  });
  return tracks;
}

const TrackTables* TableOf(const std::vector<TrackTables>& tables, uint32_t media, uint32_t track) {
  uint32_t rank = 0;
  for (const TrackTables& entry : tables) {
    if (entry.media == media && rank++ == track) return &entry;
  }
  return nullptr;
}

uint64_t SampleBytes(StreamFile& file, const TrackTables& tables) {
  if (tables.constant_size != 0) return uint64_t{tables.constant_size} * tables.samples;
  uint64_t sum = 0;
  file.Seek(tables.size_table);
  std::array<uint8_t, 4096> piece;
  uint64_t left = uint64_t{tables.samples} * kEntry;
  while (left > 0) {
    const uint32_t count = file.Read(piece.data(), static_cast<uint32_t>(std::min<uint64_t>(left, piece.size())));
    if (count < kEntry) break;
    for (uint32_t at = 0; at + kEntry <= count; at += kEntry) {
      sum += static_cast<uint32_t>(piece[at] << 24 | piece[at + 1] << 16 | piece[at + 2] << 8 | piece[at + 3]);
    }
    left -= count;
  }
  return sum;
}

std::optional<uint64_t> FramePositions::Next(uint32_t chunk, uint32_t size) {
  if (chunk == 0 || chunk > tables_.chunks) return std::nullopt;
  if (chunk != chunk_) {
    const uint64_t entry = tables_.chunk_table + uint64_t{chunk - 1} * kEntry;
    if (chunk != chunk_ + 1 || chunk_ == 0) file_.Seek(entry);
    next_ = file_.U32();
    chunk_ = chunk;
  }
  const uint64_t position = next_;
  next_ += size;
  return position;
}

}  // namespace zmv::tool
