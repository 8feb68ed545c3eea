#include "recover/recover_avi_search.h"

#include <algorithm>
#include <cstring>

#include "avi/zmv_avi_format.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "facade/zmvstream_media.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint32_t kCodeSize = 4;
// Headers take no more than this, but for bytes of the application that are out of the ordinary.
constexpr uint64_t kMaxHeaders = 1u << 20;
// So many chunks in a row are no accident.
constexpr uint32_t kChunksInARow = 3;

bool IsMoviAt(const uint8_t* bytes) {
  uint32_t stream = 0;
  uint32_t media = 0;
  uint32_t size = 0;
  return LoadLE32(bytes) == FourCC("LIST") && LoadLE32(bytes + kChunkHeaderSize) == FourCC("movi") &&
         ParseChunkHeader(bytes + kListHeaderSize, stream, media, size);
}

// Leaves the window where it is, unless the bytes cannot be read: then it knows why.
bool ReadHeader(Window& window, uint64_t position, uint8_t (&header)[kChunkHeaderSize]) {
  const uint8_t* bytes = window.Held(position, sizeof header);
  if (bytes == nullptr) {
    const int64_t got = window.file().ReadAt(position, header, sizeof header);
    if (got == sizeof header) return true;
    if (got >= 0) return false;
    bytes = window.At(position, sizeof header);
  }
  if (bytes != nullptr) std::memcpy(header, bytes, sizeof header);
  return bytes != nullptr;
}

bool AreChunksAt(Window& window, uint64_t position) {
  for (uint32_t i = 0; i < kChunksInARow; ++i) {
    uint32_t stream = 0;
    uint32_t media = 0;
    uint32_t size = 0;
    uint8_t header[kChunkHeaderSize];
    if (!ReadHeader(window, position, header) || !ParseChunkHeader(header, stream, media, size)) return false;
    position += kChunkHeaderSize + uint64_t{size} + size % 2;
  }
  return true;
}

// The first place where `match` holds, which is shown `seen` bytes.
template <typename Match>
bool Find(Window& window, uint32_t seen, Match match, uint64_t& found) {
  constexpr uint32_t kBlock = 4096;
  const uint64_t end = std::min<uint64_t>(window.file().Size(), kMaxHeaders);
  for (uint64_t from = 0; from + seen <= end; from += kBlock - seen + 1) {
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(kBlock, end - from));
    for (uint32_t at = 0; at + seen <= count; ++at) {
      const uint8_t* bytes = window.At(from + at, seen);
      if (bytes == nullptr) return false;
      if (!match(bytes, from + at)) continue;
      found = from + at;
      return true;
    }
  }
  return false;
}

}  // namespace

bool ParseChunkHeader(const uint8_t* bytes, uint32_t& stream, uint32_t& media, uint32_t& size) {
  if (bytes[0] != '0' || bytes[1] < '0' || bytes[1] >= '0' + kMaxStreams) return false;
  const char first = static_cast<char>(bytes[2]);
  const char second = static_cast<char>(bytes[3]);
  if (first == 'd' && second == 'c') {
    media = ZMV_MEDIA_VIDEO;
  } else if (first == 'w' && second == 'b') {
    media = ZMV_MEDIA_AUDIO;
  } else if (first == 't' && second == 'x') {
    media = ZMV_MEDIA_TEXT;
  } else {
    return false;
  }
  stream = bytes[1] - uint32_t{'0'};
  size = LoadLE32(bytes + kCodeSize);
  return true;
}

bool FindMovi(Window& window, uint64_t& list) {
  return Find(
      window, kListHeaderSize + kChunkHeaderSize, [](const uint8_t* bytes, uint64_t) { return IsMoviAt(bytes); }, list);
}

bool FindChunks(Window& window, uint64_t& first) {
  const auto match = [&window](const uint8_t* bytes, uint64_t position) {
    return bytes[0] == '0' && AreChunksAt(window, position);
  };
  return Find(window, kChunkHeaderSize, match, first) && window.Error() == 0;
}

}  // namespace zmv::recover
