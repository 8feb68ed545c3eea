#include "tools/zmv/riff_frames.h"

#include <algorithm>
#include <array>

#include "avi/zmv_avi_format.h"
#include "facade/zmvstream_media.h"

namespace zmv::tool {
namespace {

constexpr uint64_t kSecondUs = 1000000;
constexpr uint64_t kSecondMs = 1000;
constexpr uint64_t kMillisecondUs = 1000;
constexpr uint32_t kListHeader = 12;

uint32_t LoadLittle(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16) | static_cast<uint32_t>(bytes[3]) << 24;
}

// The stream of a chunk code such as "00dc"; stream 10 is "0:" for those that count on in ASCII.
std::optional<uint32_t> StreamOf(const std::string& code) {
  const auto high = static_cast<unsigned>(code[0] - '0');
  const auto low = static_cast<unsigned>(code[1] - '0');
  const std::string type = code.substr(2);
  const bool known = type == "db" || type == "dc" || type == "sb" || type == "wb" || type == "tx";
  if (!known || high > 9 || low > (high == 0 ? 11u : 9u)) return std::nullopt;
  return high * 10 + low;
}

void Count(std::vector<RiffTrack>& tracks, uint32_t stream, uint32_t size) {
  if (stream >= tracks.size()) return;
  RiffTrack& track = tracks[stream];
  ++track.intervals;
  if (size == 0) return;
  ++track.frames;
  track.bytes += size;
}

void CountIndex(StreamFile& file, const BoxEntry& index, std::vector<RiffTrack>& tracks) {
  constexpr size_t kEntries = 256;
  std::array<uint8_t, kEntries * avi::kIdx1EntrySize> piece;
  const uint64_t end = index.position + index.size;
  for (uint64_t at = index.position + avi::kChunkHeaderSize; at < end; at += piece.size()) {
    file.Seek(at);
    const uint32_t count = file.Read(piece.data(), static_cast<uint32_t>(std::min<uint64_t>(end - at, piece.size())));
    for (uint32_t entry = 0; entry + avi::kIdx1EntrySize <= count; entry += avi::kIdx1EntrySize) {
      const uint8_t* bytes = piece.data() + entry;
      constexpr size_t kSize = 12;
      const auto stream = StreamOf(std::string(bytes, bytes + sizeof(uint32_t)));
      if (stream) Count(tracks, *stream, LoadLittle(bytes + kSize));
    }
  }
}

}  // namespace

int64_t RiffTrack::UnitsUs(uint64_t units) const {
  if (stream.rate == 0) return 0;
  return static_cast<int64_t>(static_cast<long double>(units) * stream.scale * kSecondUs / stream.rate + 0.5L);
}

uint64_t RiffTrack::DurationMs() const {
  const uint64_t units = stream.sample_size != 0 ? bytes / stream.sample_size : intervals;
  const uint64_t us = static_cast<uint64_t>(UnitsUs(units));
  return std::min<uint64_t>((us + kMillisecondUs / 2) / kMillisecondUs, UINT32_MAX / kSecondMs * kSecondMs);
}

ChunkWalk::ChunkWalk(const std::string& path, const FileMap& map) : file_(path) {
  std::copy_if(map.boxes.begin(), map.boxes.end(), std::back_inserter(lists_),
               [](const BoxEntry& box) { return box.type == "LIST movi"; });
  if (!lists_.empty()) position_ = lists_[0].position + kListHeader;
}

bool ChunkWalk::Next(Found& found) {
  while (list_ < lists_.size()) {
    const BoxEntry& list = lists_[list_];
    if (NextIn(list.position + list.size, found)) return true;
    if (++list_ < lists_.size()) position_ = lists_[list_].position + kListHeader;
  }
  return false;
}

bool ChunkWalk::NextIn(uint64_t end, Found& found) {
  RiffChunk chunk;
  while (ReadRiffChunk(file_, position_, end, chunk)) {
    if (chunk.type == "rec ") {  // frames that belong together stand in a list of their own
      position_ = chunk.data;
      continue;
    }
    if (chunk.cut || chunk.code == "idx1") return false;
    position_ = chunk.next;
    const auto stream = StreamOf(chunk.code);
    if (!stream) continue;
    found = {*stream, chunk.data, chunk.size};
    return true;
  }
  return false;
}

std::vector<RiffTrack> CountRiffFrames(const std::string& path, const FileMap& map) {
  std::vector<RiffTrack> tracks;
  for (const RiffStream& stream : map.streams) {
    RiffTrack track;
    track.stream = stream;
    track.track = static_cast<uint32_t>(std::count_if(
        tracks.begin(), tracks.end(), [&](const RiffTrack& earlier) { return earlier.stream.media == stream.media; }));
    tracks.push_back(track);
  }
  const auto index =
      std::find_if(map.boxes.begin(), map.boxes.end(), [](const BoxEntry& box) { return box.type == "idx1"; });
  if (map.index == "idx1" && index != map.boxes.end()) {
    StreamFile file(path);
    CountIndex(file, *index, tracks);
    return tracks;
  }
  ChunkWalk walk(path, map);
  for (ChunkWalk::Found found; walk.Next(found);) Count(tracks, found.stream, found.size);
  for (RiffTrack& track : tracks) {
    if (!map.index.empty() || track.stream.media != ZMV_MEDIA_TEXT) continue;
    track.hidden = track.frames;
    track.frames = track.bytes = track.intervals = 0;
  }
  return tracks;
}

std::optional<uint64_t> RiffPositions::Next(uint32_t size) {
  ChunkWalk::Found found;
  while (!lost_ && walk_.Next(found)) {
    if (found.stream != stream_ || found.size == 0) continue;
    lost_ = found.size != size;
    if (!lost_) return found.position;
  }
  lost_ = true;
  return std::nullopt;
}

}  // namespace zmv::tool
