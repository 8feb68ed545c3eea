// The MP4 reader: opening, closing, and asking a file that is still growing whether it can be described yet.
#include "mp4/zmvstream_mp4_reader.h"

#include "base/arith.h"
#include "base/host_memory.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

int32_t Open(MP4FReaderHandle** out, ZMVStreamBuf& stream) {
  HostMemory<MP4FReaderHandle> handle = AllocateRecord<MP4FReaderHandle>(kModule, "MP4FReaderOpen");
  if (!handle) return Result(ZMV_E_MEMORY);
  handle->m_hStream = &stream;
  const int64_t size = ZMVStreamBuf_Size(&stream);
  handle->m_dwFileSize = size < 0 ? 0 : SaturatingU32(static_cast<uint64_t>(size));
  const int64_t result = ZMVStreamBuf_Index(&stream, &handle->m_dwIndex, 0);
  if (Failed(result)) return static_cast<int32_t>(result);
  *out = handle.Release();
  return 0;
}

void Close(MP4FReaderHandle* handle) {
  DropTracks(*handle);
  ZMVStreamBuf_Release(handle->m_hStream, handle->m_dwIndex);
  FreeHost(handle);
}

// Looks for a complete moov box from m_dwWalkPos on, which moves over every other box that is complete.
uint8_t IsValidInfo(MP4FReaderHandle& handle) {
  constexpr const char* kFunction = "MP4FReaderIsValidInfo";
  constexpr uint32_t kMoov = FourCC("moov");
  handle.m_bWalked = 1;
  const uint64_t available = DataEnd(handle);
  while (handle.m_dwWalkPos + uint64_t{kBoxHeaderSize} <= available) {
    int32_t error = SeekWalk(handle, handle.m_dwWalkPos, kFunction);
    if (Failed(error)) return static_cast<uint8_t>(error);
    BoxReader box(*handle.m_hStream, handle.m_dwIndex, kBoxHeaderSize, kFunction);
    uint32_t size = 0;
    uint32_t type = 0;
    box.U32(&size).Code(&type);
    if (box.Failed()) return static_cast<uint8_t>(box.Error());
    const uint64_t end = handle.m_dwWalkPos + uint64_t{size};
    const bool complete = size >= kBoxHeaderSize && end <= available;
    error = SeekWalk(handle, complete ? end : handle.m_dwWalkPos, kFunction);
    if (Failed(error)) return static_cast<uint8_t>(error);
    if (!complete) {
      ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderIsValidInfo End %d\n", static_cast<int>(available));
      return 0;
    }
    if (type == kMoov) return 1;
    handle.m_dwWalkPos = static_cast<uint32_t>(end);
  }
  return 0;
}

}  // namespace

// ---- Tracks

MP4ReaderTrack* FindTrack(MP4FReaderHandle& handle, uint32_t id) {
  for (uint32_t slot = 0; slot < handle.m_dwTrackCount; ++slot) {
    MP4ReaderTrack* track = handle.m_pTrack[slot];
    if (track != nullptr && track->m_dwTrackID == id) return track;
  }
  if (handle.m_dwTrackCount == kMp4ReaderMaxTracks) return nullptr;
  MP4ReaderTrack* track = AllocateRecord<MP4ReaderTrack>(kModule, "MP4ReaderFindTrak").Release();
  if (track == nullptr) return nullptr;
  track->m_dwTrackID = id;
  handle.m_pTrack[handle.m_dwTrackCount++] = track;
  return track;
}

void FreeConfig(MP4ReaderTrack& track) {
  FreeHost(track.m_pConfig);
  track.m_pConfig = nullptr;
  track.m_dwConfigSize = 0;
}

void ReleaseTables(MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  SampleTimes(handle, track).Release();
  SampleChunks(handle, track).Release();
  SampleSizes(handle, track).Release();
  ChunkOffsets(handle, track).Release();
  SyncSamples(handle, track).Release();
}

void ClearTrack(MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  ReleaseTables(handle, track);
  ZMVStreamBuf_Close(track.m_hStream);
  FreeConfig(track);
  MP4ReaderTrack fresh{};
  fresh.m_dwTrackID = track.m_dwTrackID;
  fresh.m_Frag = track.m_Frag;
  fresh.m_dwTrexDuration = track.m_dwTrexDuration;
  fresh.m_dwTrexSize = track.m_dwTrexSize;
  fresh.m_dwTrunCount = track.m_dwTrunCount;
  fresh.m_dwFragLastBase = track.m_dwFragLastBase;
  fresh.m_dwFragNotes = track.m_dwFragNotes;
  track = fresh;
}

void DropTrack(MP4FReaderHandle& handle, const MP4ReaderTrack* track) {
  for (MP4ReaderTrack*& slot : handle.m_pTrack) {
    if (slot == nullptr || slot != track) continue;
    ReleaseTables(handle, *slot);
    Fragments(handle, *slot).Release();
    ZMVStreamBuf_Close(slot->m_hStream);
    FreeConfig(*slot);
    FreeHost(slot);
    slot = nullptr;
  }
}

void DropTracks(MP4FReaderHandle& handle) {
  for (uint32_t slot = 0; slot < handle.m_dwTrackCount; ++slot) DropTrack(handle, handle.m_pTrack[slot]);
  handle.m_dwTrackCount = 0;
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4FReaderOpen(MP4FReaderHandle** out, ZMVStreamBuf* stream) {
  TraceScope scope(kModule, __func__);
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderOpen\n");
  if (out == nullptr || stream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = Open(out, *stream);
  if (Failed(result)) return scope.Fail(Report(result, __func__));
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderOpen End\n");
  return 0;
}

void MP4FReaderClose(MP4FReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  if (handle != nullptr) Close(handle);
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderClose\n");
}

uint8_t MP4FReaderIsValidInfo(MP4FReaderHandle* handle) {
  TraceScope scope(kModule, __func__);
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderIsValidInfo Start\n");
  return handle != nullptr ? IsValidInfo(*handle) : uint8_t{0};
}

MP4ReaderTrack* MP4ReaderFindTrak(MP4FReaderHandle* handle, uint32_t trackID) {
  TraceScope scope(kModule, __func__);
  return handle != nullptr ? FindTrack(*handle, trackID) : nullptr;
}
