// Opening an AVI file for recording: the handle, and everything in front of the frames.
#include <cstdlib>
#include <cstring>

#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/arith.h"
#include "base/host_memory.h"

namespace zmv::avi {
namespace {

constexpr int32_t kRefused = Result(ZMV_E_FAIL);

constexpr uint32_t kMillisecondsPerSecond = 1000;
constexpr uint32_t kNoJunkFillBit = 1;

// Flags of the main header: has an index, is interleaved, trust the chunk type.
constexpr uint32_t kVideoFlags = 0x810;
constexpr uint32_t kVideoAndAudioFlags = 0x910;

// The random chunk takes from 32 to 256 bytes, an even number.
constexpr uint32_t kMinRandomJunk = 32;
constexpr uint32_t kMaxRandomJunk = 256;

// What the size of a file is taken to be beyond its frames and its index.
constexpr uint64_t kEstimatePerStream = 96;

// "LIST", its size, "hdrl", the header of "avih" and its data.
constexpr uint32_t kHdrlHeadSize = kListHeaderSize + kChunkHeaderSize + kMainHeaderSize;

bool WithinCapacity(const ZMVFileInfo& info) {
  return info.dwAudioCount <= ZMV_MAX_AUDIO && info.dwVideoCount <= ZMV_MAX_VIDEO && info.dwTextCount <= ZMV_MAX_TEXT;
}
static_assert(ZMV_MAX_AUDIO + ZMV_MAX_VIDEO + ZMV_MAX_TEXT <= kMaxStreams);

int32_t WriteRiffHeader(AVIWriterHandle& writer) {
  uint8_t header[kListHeaderSize];
  RiffBuilder(header).Code(FourCC("RIFF")).U32(0).Code(FourCC("AVI "));
  return WriteOrTrace(writer, header, sizeof header);
}

void DescribeFile(AVIWriterHandle& writer, const ZMVFileInfo& info) {
  AVIWriterMainHeader& header = writer.m_MainHeader;
  header = {};
  header.dwStreams = info.dwVideoCount + info.dwAudioCount + info.dwTextCount;
  ZMV_TRACE(kWriterModule, kTraceInfo, "total stream size(%d) v(%d)a(%d)t(%d)\n", static_cast<int>(header.dwStreams),
            static_cast<int>(info.dwVideoCount), static_cast<int>(info.dwAudioCount),
            static_cast<int>(info.dwTextCount));
  if (info.dwVideoCount == 0) return;
  header.dwFlags = info.dwAudioCount != 0 ? kVideoAndAudioFlags : kVideoFlags;
  header.dwWidth = info.m_Video[0].dwWidth;
  header.dwHeight = info.m_Video[0].dwHeight;
}

// The hdrl list up to its stream lists. Its size goes to `size_position` once it is known.
int32_t WriteMainHeader(AVIWriterHandle& writer, const ZMVFileInfo& info, uint32_t& size_position) {
  const uint32_t start = Position(writer);
  size_position = start + 4;
  ZMV_TRACE(kWriterModule, kTraceDebug, "avi first list size pos(%x)\n", size_position);
  DescribeFile(writer, info);
  writer.m_dwMainHeaderPos = start + kListHeaderSize + kChunkHeaderSize;
  ZMV_TRACE(kWriterModule, kTraceDebug, "avih size pos(%x)\n", writer.m_dwMainHeaderPos);
  uint8_t head[kHdrlHeadSize];
  RiffBuilder out(head);
  out.Code(FourCC("LIST")).U32(0).Code(FourCC("hdrl"));
  out.Code(FourCC("avih")).U32(kMainHeaderSize).Bytes(&writer.m_MainHeader, kMainHeaderSize);
  return WriteOrTrace(writer, head, sizeof head);
}

// The software's name with at least one zero byte, of even length; nothing without a name.
int32_t WriteInfoList(AVIWriterHandle& writer, const ZMVFileInfo& info) {
  const uint32_t length = static_cast<uint32_t>(strnlen(info.szSoftware, sizeof info.szSoftware));
  if (length == 0) return 0;
  uint8_t list[kListHeaderSize + kChunkHeaderSize + sizeof info.szSoftware + 2];
  RiffBuilder out(list);
  {
    RiffList type(out, FourCC("INFO"));
    RiffChunk isft(out, FourCC("ISFT"));
    out.Bytes(info.szSoftware, length).Zeros(2 - length % 2);
  }
  return WriteOrTrace(writer, list, out.Size());
}

// Nothing, of a size that differs from file to file.
int32_t WriteRandomJunk(AVIWriterHandle& writer) {
  const uint32_t drawn = static_cast<uint32_t>(std::rand()) % (kMaxRandomJunk - kMinRandomJunk);
  uint8_t chunk[kChunkHeaderSize + kMaxRandomJunk];
  RiffBuilder out(chunk);
  {
    RiffChunk junk(out, FourCC("JUNK"));
    out.Zeros(kMinRandomJunk + drawn + drawn % 2);
  }
  return WriteOrTrace(writer, chunk, out.Size());
}

// The caller's own bytes, not padded.
int32_t WriteExtraHeader(AVIWriterHandle& writer, const ZMVFileInfo& info) {
  if (info.pExtraHeader == nullptr || info.dwExtraHeaderSize == 0) return 0;
  uint8_t header[kChunkHeaderSize];
  RiffBuilder(header).Code(FourCC("JUNK")).U32(info.dwExtraHeaderSize);
  if (const int32_t result = WriteOrTrace(writer, header, sizeof header); Failed(result)) return result;
  return WriteOrTrace(writer, info.pExtraHeader, info.dwExtraHeaderSize);
}

// The head of the movi list, whose size stays 0 until the file is closed.
int32_t OpenMovi(AVIWriterHandle& writer) {
  const uint32_t size_position = Position(writer) + 4;
  uint8_t head[kListHeaderSize];
  RiffBuilder(head).Code(FourCC("LIST")).U32(0).Code(FourCC("movi"));
  if (const int32_t result = WriteOrTrace(writer, head, sizeof head); Failed(result)) return result;
  writer.m_dwMoviSizePos = size_position;
  writer.m_dwMoviSize = sizeof(uint32_t);
  writer.m_dwChunkOffset = sizeof(uint32_t);
  writer.m_bMisplaced = 0;
  return 0;
}

int32_t WriteHeaders(AVIWriterHandle& writer, ZMVFileInfo& info) {
  uint32_t size_position = 0;
  if (const int32_t result = WriteMainHeader(writer, info, size_position); Failed(result)) return result;
  HeaderTotals totals = {.hdrl_size = kHdrlHeadSize - kChunkHeaderSize, .chunks_per_second = 0};
  if (const int32_t result = WriteStreamLists(writer, info, totals); Failed(result)) return result;
  if (const int32_t result = WriteInfoList(writer, info); Failed(result)) return result;
  if (const int32_t result = PatchSize(writer, size_position, totals.hdrl_size); Failed(result)) return result;
  if (const int32_t result = WriteRandomJunk(writer); Failed(result)) return result;
  if (const int32_t result = WriteExtraHeader(writer, info); Failed(result)) return result;
  if (const int32_t result = OpenMovi(writer); Failed(result)) return result;
  return CreateIndex(writer, totals.chunks_per_second);
}

}  // namespace

int32_t CheckWritten(int64_t written, uint32_t count) {
  if (written >= count) return 0;
  const int32_t result = written < 0 ? static_cast<int32_t>(written) : Result(ZMV_E_WRITE);
  ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(result));
  return result;
}

int32_t SeekOrTrace(AVIWriterHandle& writer, uint32_t position) {
  const int32_t result = static_cast<int32_t>(ZMVStreamBuf_Seek(writer.m_hInOut, writer.m_dwCursor, position));
  if (!Failed(result)) return 0;
  ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(result));
  return result;
}

int32_t PatchSize(AVIWriterHandle& writer, uint32_t position, uint32_t value) {
  uint8_t bytes[sizeof value];
  StoreLE32(bytes, value);
  writer.m_bMisplaced = 1;
  if (const int32_t result = SeekOrTrace(writer, position); Failed(result)) return result;
  if (const int32_t result = WriteOrTrace(writer, bytes, sizeof bytes); Failed(result)) return result;
  const int64_t result = ZMVStreamBuf_SeekEnd(writer.m_hInOut, writer.m_dwCursor, 0);
  return Failed(result) ? static_cast<int32_t>(result) : 0;
}

}  // namespace zmv::avi

using namespace zmv;
using namespace zmv::avi;

int32_t AVIWriterOpen(AVIWriterHandle** handle, ZMVStreamBuf* hInOut, uint8_t, uint64_t limit, double) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || hInOut == nullptr) return scope.Fail(kRefused, "no handle or no stream\n");
  HostMemory<AVIWriterHandle> writer = AllocateRecord<AVIWriterHandle>(kWriterModule, __func__);
  if (!writer) return scope.Fail(Result(ZMV_E_MEMORY));
  writer->m_hInOut = hInOut;
  writer->m_dwLimitSeconds = SaturatingU32(limit / kMillisecondsPerSecond);
  // No cache: sizes on disk must be exact when the file is closed.
  const int64_t indexed = ZMVStreamBuf_Index(hInOut, &writer->m_dwCursor, 0);
  if (Failed(indexed)) return scope.Fail(static_cast<int32_t>(indexed), "ZMVStreamBuf_Index error!!!\n");
  if (const int32_t result = WriteRiffHeader(*writer); Failed(result)) {
    ZMVStreamBuf_Release(hInOut, writer->m_dwCursor);
    return scope.Fail(result);
  }
  *handle = writer.Release();
  return 0;
}

int32_t AVIWriterSetInfo(AVIWriterHandle* handle, ZMVFileInfo* info, double value) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || info == nullptr) return scope.Fail(kRefused, "no handle or no information\n");
  AVIWriterHandle& writer = *handle;
  if (writer.m_bInfoSet != 0) return scope.Fail(kRefused, "file information is set already\n");
  if (!WithinCapacity(*info)) {
    return scope.Fail(kRefused, "too many streams. audio(%u) video(%u) text(%u)\n", info->dwAudioCount,
                      info->dwVideoCount, info->dwTextCount);
  }
  writer.m_bInfoSet = 1;
  writer.m_bNoJunkFill = (info->dwAiddValue & kNoJunkFillBit) != 0 ? 1 : 0;
  writer.m_dValue = value;
  const int32_t result = WriteHeaders(writer, *info);
  return Failed(result) ? scope.Fail(result) : 0;
}

int32_t AVIWriterWriteTagSize(AVIWriterHandle* handle, uint32_t position, uint32_t value) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return scope.Fail(kRefused, "no handle\n");
  const int32_t result = PatchSize(*handle, position, value);
  return Failed(result) ? scope.Fail(result) : 0;
}

uint64_t AVIWriterGetCurSize(AVIWriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return 0;
  return uint64_t{handle->m_dwMoviSize} + handle->m_dwIndexBytes + kEstimatePerStream * handle->m_dwStreamCount +
         kMainHeaderSize;
}
