// Counting what a stream holds when its header does not say: over the chunks of the first "movi" list.
#include "avi/avi_reader.h"
#include "base/byte_order.h"
#include "base/fourcc.h"

namespace zmv::avi::reader {
namespace {

constexpr const char* kFunction = "AVIReaderGetStreamSize";
constexpr uint32_t kSizeCacheSize = 4096;
constexpr uint32_t kMaxSkip = 0x7FFFFFFF;
// Chunk codes with a larger number end the count.
constexpr int32_t kLastCountedNumber = 3;

// A cursor of its own that goes forward from chunk to chunk, with as little dropped from its cache as can be.
class ChunkScan {
 public:
  explicit ChunkScan(const AVIReaderHandle& handle) : stream_(handle.m_hStream), end_(DataEnd(handle)) {
    opened_ = !Failed(ZMVStreamBuf_Index(stream_, &cursor_, kSizeCacheSize));
  }
  ~ChunkScan() {
    if (opened_) ZMVStreamBuf_Release(stream_, cursor_);
  }
  ChunkScan(const ChunkScan&) = delete;
  ChunkScan& operator=(const ChunkScan&) = delete;

  bool Opened() const { return opened_; }
  uint64_t DataSize() const { return end_; }
  // `size` bytes at `position`; false when they cannot be had.
  bool Read(uint64_t position, void* to, uint32_t size) {
    if (position + size > end_ || position > UINT32_MAX) return false;
    const uint64_t gap = position - at_;  // wraps when the position lies behind, and is then too far to skip
    const int64_t moved = gap > kMaxSkip ? ZMVStreamBuf_Seek(stream_, cursor_, static_cast<uint32_t>(position))
                                         : ZMVStreamBuf_Skip(stream_, cursor_, static_cast<int32_t>(gap));
    if (Failed(moved) || ZMVStreamBuf_ReadBuffer(stream_, cursor_, to, size) != size) return false;
    at_ = position + size;
    return true;
  }

 private:
  ZMVStreamBuf* stream_;
  uint32_t cursor_ = 0;
  uint64_t end_;
  uint64_t at_ = 0;
  bool opened_ = false;
};

// atoi of two characters.
int32_t NumberOf(const uint8_t* text) {
  const auto is_digit = [](uint8_t c) { return c >= '0' && c <= '9'; };
  const auto is_space = [](uint8_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  if (is_digit(text[0])) {
    const int32_t first = text[0] - '0';
    return is_digit(text[1]) ? first * 10 + (text[1] - '0') : first;
  }
  if (!is_digit(text[1])) return 0;
  const int32_t second = text[1] - '0';
  if (text[0] == '-') return -second;
  return text[0] == '+' || is_space(text[0]) ? second : 0;
}

bool IsAudio(const uint8_t* code) { return code[2] == 'w' && code[3] == 'b'; }

// Counts the chunks from `position` to `end`, which lies within the data.
uint32_t CountChunks(ChunkScan& scan, uint64_t position, uint64_t end, uint32_t number) {
  uint32_t total = 0;
  uint32_t chunks = 0;
  uint32_t entries = 0;
  uint8_t header[kChunkHeaderSize];
  while (position + kChunkHeaderSize <= end && scan.Read(position, header, sizeof header)) {
    const int32_t found = NumberOf(header);
    const uint32_t size = LoadLE32(header + 4);
    const uint64_t next = position + kChunkHeaderSize + size;
    if (found > kLastCountedNumber || size == 0 || next > end) break;
    ++entries;
    if (found >= 0 && static_cast<uint32_t>(found) == number) {
      ++chunks;
      total += IsAudio(header) ? size : 1;
      ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction,
                  "AVIReaderGetStreamSize index(%d) size(%d) cnt(%d) entry(%d)\n", static_cast<int>(number),
                  static_cast<int>(size + kChunkHeaderSize), static_cast<int>(chunks), static_cast<int>(entries));
    }
    position = next + size % 2;
  }
  return total;
}

}  // namespace

uint32_t GetStreamSize(AVIReaderHandle& handle, uint32_t number) {
  if (number > static_cast<uint32_t>(kLastCountedNumber)) return 0;  // the count would stop at its first chunk
  ChunkScan scan(handle);
  uint8_t header[kListHeaderSize];
  if (!scan.Opened() || !scan.Read(0, header, sizeof header) || LoadLE32(header) != FourCC("RIFF")) return 0;
  uint64_t position = kListHeaderSize;
  while (scan.Read(position, header, sizeof header)) {
    const bool is_list = LoadLE32(header) == FourCC("LIST");
    if (!is_list && position == kListHeaderSize) return 0;
    const uint32_t size = LoadLE32(header + 4);
    const uint64_t end = position + kChunkHeaderSize + size;
    if (is_list && LoadLE32(header + kChunkHeaderSize) == FourCC("movi")) {
      return CountChunks(scan, position + kListHeaderSize, end < scan.DataSize() ? end : scan.DataSize(), number);
    }
    position = end + size % 2;
  }
  return 0;
}

}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

uint32_t AVIReaderGetStreamSize(AVIReaderHandle* handle, uint32_t number) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr ? GetStreamSize(*handle, number) : 0;
}
