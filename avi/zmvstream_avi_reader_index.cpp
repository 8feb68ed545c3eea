// The indexes of an AVI file: "idx1", and OpenDML's super indexes, whose entries name standard index chunks. Both
// become one array of entries per stream.
#include <cstring>

#include "avi/avi_reader.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "base/host_memory.h"

namespace zmv::avi::reader {
namespace {

// ---- A stream's entries

constexpr uint32_t kMinGrowth = 64;  // entries

// Makes room for one more entry; the array grows by a quarter.
[[gnu::noinline]] bool Grow(AVIReaderStream& stream) {
  const uint32_t quarter = stream.m_dwIndexCapacity / 4;
  const uint64_t capacity = uint64_t{stream.m_dwIndexCapacity} + (quarter > kMinGrowth ? quarter : kMinGrowth);
  const uint64_t bytes = capacity * sizeof(AVIReaderIndexEntry);
  if (bytes > UINT32_MAX) return false;
  void* const grown = ::ZMV_ReAlloc(stream.m_pIndex, static_cast<uint32_t>(bytes), 0, kModule.source, __LINE__,
                                    "AVIReaderAddStreamIndex");
  if (grown == nullptr) return false;
  stream.m_pIndex = static_cast<AVIReaderIndexEntry*>(grown);
  stream.m_dwIndexCapacity = static_cast<uint32_t>(capacity);
  return true;
}

inline int32_t AddEntry(AVIReaderStream& stream, uint32_t flags, uint32_t position, uint32_t size) {
  const uint32_t entries = stream.m_dwIndexEntries;
  if (entries != 0 && stream.m_pIndex[entries - 1].m_dwPos >= position) return 0;
  if (entries == stream.m_dwIndexCapacity && !Grow(stream)) return Result(ZMV_E_MEMORY);
  stream.m_pIndex[entries] = {flags, position, size};
  stream.m_dwIndexBytes += size;
  stream.m_dwIndexEntries = entries + 1;
  return 0;
}

// An entry that lies in the file; any other is dropped, since no frame can be read there.
inline int32_t AddFileEntry(const AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t flags, uint64_t position,
                            uint32_t size) {
  if (handle.m_dwBase + position >= handle.m_dwFileSize) return 0;
  return AddEntry(stream, flags, static_cast<uint32_t>(position), size);
}

void CheckSampleSize(AVIReaderHandle& handle) {
  if (handle.m_bExtended != 0 || handle.m_bHasIndex == 0) return;
  for (uint32_t number = 0; number < handle.m_dwStreamCount; ++number) {
    AVIReaderStream& stream = *handle.m_pStream[number];
    if (stream.m_dwMediaType == ZMV_MEDIA_VIDEO) stream.m_dwSampleSize = 0;
  }
}

// ---- idx1

constexpr uint32_t kIndexCacheSize = 4096;

// The second half of a chunk code, as it stands in a file.
consteval uint32_t Kind(const char (&text)[3]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(text[0]) | (static_cast<uint8_t>(text[1]) << 8));
}

constexpr bool IsIndexedKind(uint32_t kind) {
  return kind == Kind("dc") || kind == Kind("wb") || kind == Kind("db") || kind == Kind("sb") || kind == Kind("tx");
}

// The data of an "idx1" chunk, a block at a time.
class IndexBytes {
 public:
  IndexBytes(ZMVStreamBuf* stream, uint32_t cursor, uint32_t size) : stream_(stream), cursor_(cursor), unread_(size) {}

  // Has an entry's length at hand, of which the caller knows that it lies within the data. 0 or the stream's code.
  int32_t Fill() {
    if (end_ - at_ >= kIdx1EntrySize) [[likely]]
      return 0;
    std::memmove(bytes_, bytes_ + at_, end_ - at_);
    end_ -= at_;
    at_ = 0;
    while (end_ < kIdx1EntrySize) {
      const uint32_t room = kIndexCacheSize - end_;
      const int64_t result = ZMVStreamBuf_ReadBuffer(stream_, cursor_, bytes_ + end_, unread_ < room ? unread_ : room);
      if (result <= 0) return StreamError(result);
      end_ += static_cast<uint32_t>(result);
      unread_ -= static_cast<uint32_t>(result);
    }
    return 0;
  }
  const uint8_t* At() const { return bytes_ + at_; }
  void Consume(uint32_t bytes) { at_ += bytes; }

 private:
  ZMVStreamBuf* stream_;
  uint32_t cursor_;
  uint32_t unread_;
  uint32_t at_ = 0;
  uint32_t end_ = 0;
  uint8_t bytes_[kIndexCacheSize];
};

// What the offsets count from, which the first entry tells: the "movi" code or the start of the RIFF data.
uint32_t OffsetBase(const AVIReaderHandle& handle, uint32_t first_offset) {
  constexpr uint32_t kLargestFirstOffset = 8;
  if (handle.m_bSuperIndex != 0) return 0;
  if (first_offset <= kLargestFirstOffset) return handle.m_dwMoviPos;
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, "AVIReaderReadIndex",
              "index position start at file start position pos(%d)\n", static_cast<int>(first_offset));
  return 0;
}

// An entry that names no frame costs four bytes of the data but a whole entry of the count: what follows is looked at
// four bytes on, and as many entries are lost at the end.
int32_t ReadIndexEntries(AVIReaderHandle& handle, IndexBytes& data, uint32_t count) {
  constexpr uint32_t kCodeSize = 4;
  constexpr uint16_t kFirstNumber = 0x3030;  // "00"
  bool first = true;
  uint32_t base = 0;
  for (; count != 0; --count) {
    int32_t result = data.Fill();
    if (Failed(result)) return result;
    const uint8_t* const entry = data.At();
    const uint16_t number = static_cast<uint16_t>(LoadBE16(entry) - kFirstNumber);
    if (number >= handle.m_dwStreamCount || !IsIndexedKind(LoadLE16(entry + 2))) {
      data.Consume(kCodeSize);
      continue;
    }
    const uint32_t offset = LoadLE32(entry + 8);
    if (first) base = OffsetBase(handle, offset);
    first = false;
    result = AddFileEntry(handle, *handle.m_pStream[number], LoadLE32(entry + 4), uint64_t{base} + offset,
                          LoadLE32(entry + 12));
    if (Failed(result)) return result;
    data.Consume(kIdx1EntrySize);
  }
  return 0;
}

int32_t ReadIndexData(AVIReaderHandle& handle, uint32_t position, uint32_t size) {
  const int64_t moved = ZMVStreamBuf_Seek(handle.m_hStream, handle.m_dwIndexCursor, position);
  if (Failed(moved)) return Report(StreamError(moved), "AVIReaderReadIndex");
  const uint64_t data_end = DataEnd(handle);
  const uint64_t available = data_end > position ? data_end - position : 0;
  const bool complete = available >= size;
  if (complete) handle.m_bHasIndex = 1;
  const uint32_t bytes = complete ? size : static_cast<uint32_t>(available);
  IndexBytes data(handle.m_hStream, handle.m_dwIndexCursor, bytes);
  const int32_t result = ReadIndexEntries(handle, data, bytes / kIdx1EntrySize);
  if (Failed(result)) return Report(result, "AVIReaderReadIndex");
  if (complete) CheckSampleSize(handle);
  return 0;
}

// ---- Super index

enum IndexType : uint8_t { kIndexOfIndexes = 0, kIndexOfChunks = 1, kIndexIsData = 0x80 };
constexpr uint8_t kFieldIndex = 1;  // the sub-type of an index of fields

// The header that super and standard indexes share; 24 bytes in a file.
struct OdmlHeader {
  uint8_t sub_type;
  uint8_t type;
  uint32_t entries;
  uint32_t code;
  uint32_t base;      // standard index: low half of the base offset
  uint32_t reserved;  // standard index
};

OdmlHeader ParseOdmlHeader(const uint8_t (&bytes)[kOdmlIndexHeaderSize]) {
  return {.sub_type = bytes[2],
          .type = bytes[3],
          .entries = LoadLE32(bytes + 4),
          .code = LoadLE32(bytes + 8),
          .base = LoadLE32(bytes + 12),
          .reserved = LoadLE32(bytes + 20)};
}

// No more entries than fit the chunk.
uint32_t EntriesWithin(uint32_t entries, uint32_t chunk_size, uint32_t entry_size) {
  const uint32_t room = chunk_size < kOdmlIndexHeaderSize ? 0 : (chunk_size - kOdmlIndexHeaderSize) / entry_size;
  return entries < room ? entries : room;
}

void DropSuperIndex(AVIReaderStream& stream) {
  FreeHost(stream.m_pSuper);
  stream.m_pSuper = nullptr;
  stream.m_dwSuperEntries = 0;
}

// A table that is empty or cannot be had counts as none, so that the frames are found in another way.
int32_t ReadSuperEntries(AVIReaderHandle& handle, AVIReaderStream& stream, uint64_t position, uint32_t entries) {
  constexpr const char* kFunction = "AVIReaderReadStreamIndex";
  static_assert(sizeof(AVIReaderSuperEntry) == kSuperIndexEntrySize);  // read as it stands in the file
  if (entries == 0) return 0;
  DropSuperIndex(stream);
  const uint32_t bytes = entries * kSuperIndexEntrySize;
  if (position + bytes > DataEnd(handle)) return Report(Result(ZMV_E_READ), kFunction);
  HostMemory<AVIReaderSuperEntry> table(kModule, bytes, HostFill::kNone, kFunction);
  if (!table) return 0;
  const int32_t result = ReadAt(handle, position, table.Get(), bytes, kFunction);
  if (Failed(result)) return result;
  stream.m_pSuper = table.Release();
  stream.m_dwSuperEntries = entries;
  handle.m_bSuperIndex = 1;
  return 0;
}

void ReportIndexType(const OdmlHeader& header) {
  constexpr const char* kFunction = "AVIReaderReadStreamIndex";
  const auto warn = [](const char* text, uint32_t line = __builtin_LINE()) {
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, line, kFunction, "%s", text);
  };
  switch (header.type) {
    case kIndexOfIndexes:
      warn("[Reader] AVIReaderReadStreamIndex - Super Index's sub-type is not valid.\n");
      break;
    case kIndexOfChunks:
      warn("AVIReaderReadStreamIndex - Index Type is AVI_INDEX_OF_CHUNKS\n");
      if (header.sub_type != kFieldIndex) {
        warn("[Reader] AVIReaderReadStreamIndex - Field Index's sub-type is not valid.\n");
      }
      break;
    case kIndexIsData:
      warn("[Reader] AVIReaderReadStreamIndex - Index Type is AVI_INDEX_IS_DATA\n");
      break;
    default:
      warn("[Reader] AVIReaderReadStreamIndex - Not-supported/Unknown Sub type defined.\n");
      break;
  }
}

// ---- Standard indexes

constexpr uint32_t kBatchEntries = 10000;

struct Batch {
  HostMemory<uint8_t> bytes;
  uint32_t capacity = 0;  // entries

  // Room for `entries` or for a full batch, whichever is less.
  bool Reserve(uint32_t entries) {
    const uint32_t wanted = entries < kBatchEntries ? entries : kBatchEntries;
    if (wanted <= capacity) return true;
    bytes = AllocateBytes(kModule, wanted * kStdIndexEntrySize, "AVIReaderReadStdIndex");
    capacity = bytes ? wanted : 0;
    return capacity != 0;
  }
};

// The position of an entry is that of its data.
int32_t AddStdEntries(const AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t base, const uint8_t* entries,
                      uint32_t count) {
  for (; count != 0; --count, entries += kStdIndexEntrySize) {
    const uint64_t data = uint64_t{base} + LoadLE32(entries);
    if (data < kChunkHeaderSize) continue;
    const uint32_t size = LoadLE32(entries + 4);
    const uint32_t flags = (size & kStdIndexDeltaFrame) == 0 ? kKeyFrameFlag : 0;
    const int32_t result = AddFileEntry(handle, stream, flags, data - kChunkHeaderSize, size & ~kStdIndexDeltaFrame);
    if (Failed(result)) return result;
  }
  return 0;
}

constexpr bool HasStdIndexKind(uint32_t code) {
  const uint32_t kind = code >> 16;
  return kind == Kind("dc") || kind == Kind("wb") || kind == Kind("db");
}

// Reads the standard index chunk at `position`, which moves behind what was read.
int32_t ReadStdChunk(AVIReaderHandle& handle, AVIReaderStream& stream, Batch& batch, uint64_t* position) {
  constexpr const char* kFunction = "AVIReaderReadStdIndex";
  ChunkHeader chunk;
  uint8_t bytes[kOdmlIndexHeaderSize];
  int32_t result = ReadChunkHeader(handle, *position, &chunk, kFunction);
  if (!Failed(result)) result = ReadAt(handle, chunk.data, bytes, sizeof bytes, kFunction);
  if (Failed(result)) return result;
  const OdmlHeader header = ParseOdmlHeader(bytes);
  if (header.reserved != 0) {
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction,
                "[Reaser] AVIReaderReadStdIndex - Standard Index is not valid.\n");
    return Result(ZMV_E_FAIL);
  }
  *position = chunk.data + kOdmlIndexHeaderSize;
  if (!HasStdIndexKind(header.code)) return 0;
  uint32_t entries = EntriesWithin(header.entries, chunk.size, kStdIndexEntrySize);
  if (!batch.Reserve(entries)) return Result(ZMV_E_MEMORY);
  while (entries != 0) {
    const uint32_t count = entries < kBatchEntries ? entries : kBatchEntries;
    result = ReadAt(handle, *position, batch.bytes.Get(), count * kStdIndexEntrySize, kFunction);
    if (!Failed(result)) result = AddStdEntries(handle, stream, header.base, batch.bytes.Get(), count);
    if (Failed(result)) return result;
    *position += uint64_t{count} * kStdIndexEntrySize;
    entries -= count;
  }
  return 0;
}

// Chunks are taken in the order of the file and once: one that begins inside what was read already could only name
// entries again, and a table made of such would be read for ever.
int32_t ReadStdChunks(AVIReaderHandle& handle, AVIReaderStream& stream, Batch& batch) {
  uint64_t behind = 0;
  for (uint32_t i = 0; i < stream.m_dwSuperEntries; ++i) {
    uint64_t position = uint64_t{handle.m_dwBase} + static_cast<uint32_t>(stream.m_pSuper[i].m_llOffset);
    if (position < behind) continue;
    const int32_t result = ReadStdChunk(handle, stream, batch, &position);
    if (Failed(result)) return result;
    behind = position;
  }
  return 0;
}

}  // namespace

int32_t ReadIndex(AVIReaderHandle& handle, uint32_t position, uint32_t size) {
  const int64_t indexed = ZMVStreamBuf_Index(handle.m_hStream, &handle.m_dwIndexCursor, kIndexCacheSize);
  if (Failed(indexed)) return Report(StreamError(indexed), "AVIReaderReadIndex");
  const int32_t result = ReadIndexData(handle, position, size);
  ZMVStreamBuf_Release(handle.m_hStream, handle.m_dwIndexCursor);
  return result;
}

int32_t ReadStreamIndex(AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t size) {
  constexpr const char* kFunction = "AVIReaderReadStreamIndex";
  const ChunkHeader chunk{
      .code = FourCC("indx"), .size = size, .data = ZMVStreamBuf_Pos(handle.m_hStream, handle.m_dwIndex)};
  uint8_t bytes[kOdmlIndexHeaderSize] = {};
  int32_t result =
      ReadAt(handle, chunk.data, bytes, size < kOdmlIndexHeaderSize ? size : kOdmlIndexHeaderSize, kFunction);
  if (Failed(result)) return result;
  const OdmlHeader header = ParseOdmlHeader(bytes);
  if (header.type == kIndexOfIndexes && header.sub_type <= kFieldIndex) {
    const uint32_t entries = EntriesWithin(header.entries, size, kSuperIndexEntrySize);
    result = ReadSuperEntries(handle, stream, chunk.data + kOdmlIndexHeaderSize, entries);
    if (Failed(result)) return result;
  } else {
    ReportIndexType(header);
  }
  uint64_t next = chunk.End() + chunk.size % 2;
  if (next == DataEnd(handle) + 1) next = chunk.End();  // the file may end without a pad byte
  return SeekTo(handle, next, kFunction);
}

int32_t ReadStdIndex(AVIReaderHandle& handle) {
  Batch batch;
  for (uint32_t number = 0; number < handle.m_dwStreamCount; ++number) {
    AVIReaderStream& stream = *handle.m_pStream[number];
    const int32_t result = ReadStdChunks(handle, stream, batch);
    if (Failed(result)) return result;
    DropSuperIndex(stream);
  }
  handle.m_bHasIndex = 1;
  ::ZMV_Trace(kModule.tag, kTraceDebug, kModule.source, __LINE__, "AVIReaderReadStdIndex",
              "Standard Index Parsing Successful\n");
  return 0;
}

}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

int32_t AVIReaderAddStreamIndex(AVIReaderStream* stream, uint32_t flags, uint32_t position, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (stream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = AddEntry(*stream, flags, position, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t AVIReaderReadIndex(AVIReaderHandle* handle, uint32_t position, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadIndex(*handle, position, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t AVIReaderReadStreamIndex(AVIReaderHandle* handle, AVIReaderStream* stream, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || stream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadStreamIndex(*handle, *stream, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t AVIReaderReadStdIndex(AVIReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadStdIndex(*handle);
  return Failed(result) ? scope.Fail(result) : result;
}

void AVIReaderCheckSampleSize(AVIReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  if (handle != nullptr) CheckSampleSize(*handle);
}
