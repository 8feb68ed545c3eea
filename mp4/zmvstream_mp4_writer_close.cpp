// Finishing an MP4 file: the last table entries, user boxes, moov, the box over unused space, and the sizes that were
// left open. Write results are not looked at: whatever the medium still takes makes the file better.
#include <algorithm>

#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/mp4_writer.h"
#include "mp4/mp4_writer_boxes.h"
#include "mp4/mp4_writer_tables.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::mp4 {
namespace {

void WriteBoxHeader(MP4WriterHandle& writer, uint32_t type, uint32_t size) {
  uint8_t header[kBoxHeaderSize];
  StoreBE32(header, size);
  StoreLE32(header + 4, type);
  WriteOrTrace(writer, header, sizeof header);
}

bool HasSamples(const MP4WriterTrack& track) { return track.m_Stsz.m_dwEntryNum != 0; }

// The entries that only now are known: the last chunk's, and of each track the duration of its last frame, which is
// taken to last as long as the one before it. They may still spill into mdat.
void CloseTableRuns(MP4WriterHandle& writer) {
  if (writer.m_pLastTrack != nullptr) Insist(AppendSampleToChunk, writer, *writer.m_pLastTrack);
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    MP4WriterTrack& track = *writer.m_pTrack[i];
    if (!HasSamples(track)) continue;
    Insist(AppendTimeToSample, writer, track, track.m_dwLastDur);
    Insist(CloseTimeToSampleRun, writer, track);
  }
}

// The trak box; returns its size. The tables follow the header from their buffers and spills, whose sizes the header
// counts already.
uint32_t WriteTrack(MP4WriterHandle& writer, MP4WriterTrack& track, uint8_t* buffer) {
  if (track.m_bRawAudio != 0 && writer.m_bNoInterleave == 0) {
    track.m_Stsc.m_dwEntryNum = track.m_Stsz.m_dwEntryNum;
    track.m_Stsc.m_dwBoxSize = kTableHeaderSize + kStscEntrySize * track.m_Stsc.m_dwEntryNum;
  }
  const uint32_t size = MakeTrackHeader(track, buffer);
  const uint32_t tables = track.m_Stts.m_dwBoxSize + track.m_Stsz.m_dwBoxSize + track.m_Stco.m_dwBoxSize +
                          track.m_Stsc.m_dwBoxSize + track.m_Stss.m_dwBoxSize;
  WriteOrTrace(writer, buffer, std::min(size - tables, kBoxBufferAllocation));
  const Scratch scratch = {buffer, kBoxBufferSize};
  WriteStts(writer, track, scratch);
  WriteStsc(writer, track, scratch);
  WriteStsz(writer, track, scratch);
  WriteStco(writer, track, scratch);
  WriteStss(writer, track, scratch);
  return size;
}

// moov at the write cursor; returns its size, which the file does not state yet.
uint32_t WriteMovie(MP4WriterHandle& writer, uint8_t* buffer) {
  WriteBoxHeader(writer, FourCC("moov"), kBoxHeaderSize);
  const uint32_t header = MakeMovieHeader(writer, buffer);
  WriteOrTrace(writer, buffer, header);
  uint32_t size = kBoxHeaderSize + header;
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    MP4WriterTrack& track = *writer.m_pTrack[i];
    if (HasSamples(track)) size += WriteTrack(writer, track, buffer);
    ReleaseTables(track);
  }
  return size;
}

// A box over the space that the file was given in advance and that is left.
void CoverUnusedSpace(MP4WriterHandle& writer, uint32_t user_size, uint32_t moov_size) {
  const int64_t file_size = ZMVStreamBuf_GetFileSize(writer.m_hInOut);
  if (ZMVStreamBuf_GetOption() != 0) {
    WriteBoxHeader(writer, FourCC("free"), kBoxHeaderSize);
    return;
  }
  const int64_t rest = file_size - int64_t{user_size} - int64_t{writer.m_dwMdatSize} - int64_t{writer.m_dwRecoverSize} -
                       int64_t{moov_size} - int64_t{kFrontBoxesSize};
  if (rest <= 0) return;
  // The low half of a larger size; a box is its header at least.
  WriteBoxHeader(writer, FourCC("free"), std::max(static_cast<uint32_t>(rest), kBoxHeaderSize));
}

void PatchSize(MP4WriterHandle& writer, uint32_t position, uint32_t size) {
  uint8_t bytes[4];
  StoreBE32(bytes, size);
  const int64_t result = ZMVStreamBuf_Seek(writer.m_hInOut, writer.m_dwWidx, position);
  if (Failed(result)) {
    ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(result));
    return;
  }
  WriteOrTrace(writer, bytes, sizeof bytes);
}

// The user boxes; moov then follows at their full size, whether or not they could be written.
uint32_t WriteAlignedUserBoxes(MP4WriterHandle& writer) {
  const uint32_t position = ZMVStreamBuf_Pos(writer.m_hInOut, writer.m_dwWidx);
  const uint32_t size = WriteUserBoxes(writer);
  AlignCursor(writer, position + size);
  return size;
}

void Finish(MP4WriterHandle& writer) {
  CloseTableRuns(writer);
  if (writer.m_bMisplaced != 0) AlignCursor(writer, MdatEnd(writer));
  const uint32_t user_size = writer.m_bExtUserData != 0 ? WriteAlignedUserBoxes(writer) : 0;
  HostMemory<uint8_t> buffer = AllocateBytes(kWriterModule, kBoxBufferAllocation, __func__);
  if (!buffer) {
    ZMV_TRACE(kWriterModule, kTraceError, "MAX_BOX_SIZE(%d) Malloc Fail!!!\n", static_cast<int>(kBoxBufferSize));
    return;
  }
  // Taken from the cursor, not from the sizes, which are ahead of the file when the cursor could not be aligned.
  const uint32_t moov_position = ZMVStreamBuf_Pos(writer.m_hInOut, writer.m_dwWidx);
  const uint32_t moov_size = WriteMovie(writer, buffer.Get());
  CoverUnusedSpace(writer, user_size, moov_size);
  PatchSize(writer, writer.m_dwMdatPos, writer.m_dwMdatSize);
  ZMV_TRACE(kWriterModule, kTraceInfo, "Mdat Size (%d)\n", static_cast<int>(writer.m_dwMdatSize));
  PatchSize(writer, moov_position, moov_size);
  ZMV_TRACE(kWriterModule, kTraceInfo, "Moov Size (%d)\n", static_cast<int>(moov_size));
  PatchSize(writer, 0, kFtypSize);
}

void Release(MP4WriterHandle* writer) {
  for (uint32_t i = 0; i < writer->m_dwTrackNum; ++i) {
    MP4WriterTrack* const track = writer->m_pTrack[i];
    ReleaseTables(*track);
    FreeHost(track->m_pConfig);
    FreeHost(track);
  }
  FreeHost(writer->m_pGpsr);
  FreeHost(writer->m_pSens);
  FreeHost(writer);
}

}  // namespace
}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

void MP4WriterClose(MP4WriterHandle* handle) {
  if (handle == nullptr) {
    ZMV_TRACE(kWriterModule, kTraceDebug, "Leave.\n");
    return;
  }
  TraceScope scope(kWriterModule, __func__);
  // Nothing to finish without mdat: the open failed, or no file information was set.
  if (handle->m_dwMdatSize != 0) Finish(*handle);
  Release(handle);
}
