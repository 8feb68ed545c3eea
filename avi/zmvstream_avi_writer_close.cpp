// Finishing an AVI file: the index, the chunk with the file's name, the sizes that were left open, the chunk over
// unused space, and the final headers. Write results are not looked at: whatever the medium still takes makes the file
// better.
#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/arith.h"
#include "base/host_memory.h"
#include "platform/zmv_platform.h"

namespace zmv::avi {
namespace {

constexpr uint32_t kThousandths = 1000;
constexpr double kMillisecondsPerSecond = 1000.0;

// The name is cut to what leaves room for its end; the bytes behind it are zero.
void WriteNameChunk(AVIWriterHandle& writer) {
  uint8_t chunk[kChunkHeaderSize + kNameSize];
  RiffBuilder out(chunk);
  out.Code(FourCC("JUNK")).U32(kNameSize);
  char* const text = reinterpret_cast<char*>(out.At());
  out.Zeros(kNameSize);
  const char* const name = ZMVStreamBuf_GetName(writer.m_hInOut);
  if (name != nullptr) ZMV_snprintf(text, kNameSize, "%s", name);
  WriteOrTrace(writer, chunk, sizeof chunk);
}

void PatchRiffSize(AVIWriterHandle& writer) {
  const int64_t size = ZMVStreamBuf_Size(writer.m_hInOut) - int64_t{kChunkHeaderSize};
  PatchSize(writer, kRiffSizePosition, size < 0 ? 0 : SaturatingU32(static_cast<uint64_t>(size)));
}

// A chunk from `position` to the end of the file, space included that the file was given in advance. What a frame left
// behind that could not be written is covered in any case.
void CoverUnusedSpace(AVIWriterHandle& writer, uint32_t position) {
  if (writer.m_bNoJunkFill != 0 && ZMVStreamBuf_Size(writer.m_hInOut) <= position) {
    ZMV_TRACE(kWriterModule, kTraceInfo, "Do not fill junk on eos\n");
    return;
  }
  if (Failed(SeekOrTrace(writer, position))) return;
  uint8_t field[4];
  StoreLE32(field, FourCC("JUNK"));
  WriteOrTrace(writer, field, sizeof field);
  const int64_t begin = int64_t{Position(writer)} + static_cast<int64_t>(sizeof field);
  const int64_t rest = ZMVStreamBuf_GetFileSize(writer.m_hInOut) - begin;
  const uint32_t size = rest < 0 ? 0 : SaturatingU32(static_cast<uint64_t>(rest));
  ZMV_TRACE(kWriterModule, kTraceInfo, "Fill Junk.... size (%d)\n", static_cast<int>(size));
  StoreLE32(field, size);
  WriteOrTrace(writer, field, sizeof field);
}

void WriteMainHeader(AVIWriterHandle& writer) {
  if (Failed(SeekOrTrace(writer, writer.m_dwMainHeaderPos))) return;
  writer.m_MainHeader.dwMicroSecPerFrame = 0;
  WriteOrTrace(writer, &writer.m_MainHeader, kMainHeaderSize);
}

// Frames in `dwScale` seconds, from the fixed rate or over the frames; 0 when no time has passed.
uint32_t MeasuredRate(const AVIWriterStream& stream, uint32_t duration) {
  const uint32_t scale = stream.m_StreamInfo.dwScale;
  if (stream.m_dwFixedRate != 0) return stream.m_dwFixedRate / kThousandths * scale;
  if (duration == 0) return 0;
  const double frame_time = static_cast<double>(duration) / stream.dwTotalFrames;
  return SaturatingU32(kMillisecondsPerSecond / frame_time * scale);
}

// A measured rate at or below three quarters of the declared one is not taken.
void FixVideoRate(AVIWriterStream& stream) {
  const uint32_t rate = MeasuredRate(stream, stream.m_dwVidDur);
  if (rate <= 3 * stream.m_dwInitRate / 4) {
    ZMV_TRACE(kWriterModule, kTraceWarning, "V:hStream->m_StreamInfo.dwRate (%d) Invalid!! Set initial rate (%d)...\n",
              static_cast<int>(rate), static_cast<int>(stream.m_dwInitRate));
    stream.m_StreamInfo.dwRate = stream.m_dwInitRate;
    return;
  }
  ZMV_TRACE(kWriterModule, kTraceWarning,
            "hStream->m_StreamInfo.dwRate (%d), hStream->m_dwVidDur (%d), hStream->dwTotalFrames (%d)\n",
            static_cast<int>(rate), static_cast<int>(stream.m_dwVidDur), static_cast<int>(stream.dwTotalFrames));
  stream.m_StreamInfo.dwRate = rate;
}

// Text keeps what lies above two thirds of the declared rate.
void FixTextRate(AVIWriterStream& stream) {
  const uint32_t rate = MeasuredRate(stream, stream.m_dwTxtDur);
  stream.m_StreamInfo.dwRate = rate;
  if (2 * stream.m_dwInitRate / 3 < rate) return;
  ZMV_TRACE(kWriterModule, kTraceWarning, "T:hStream->m_StreamInfo.dwRate (%d) Invalid!! Set initial rate (%d)...\n",
            static_cast<int>(rate), static_cast<int>(stream.m_dwInitRate));
  stream.m_StreamInfo.dwRate = stream.m_dwInitRate;
}

void WriteStreamHeader(AVIWriterHandle& writer, AVIWriterStream& stream) {
  if (stream.m_dwMediaType == ZMV_MEDIA_VIDEO) FixVideoRate(stream);
  if (stream.m_dwMediaType == ZMV_MEDIA_TEXT) FixTextRate(stream);
  if (Failed(SeekOrTrace(writer, stream.m_dwHeaderPos))) return;
  WriteOrTrace(writer, &stream.m_StreamInfo, kStreamHeaderSize);
}

void Finish(AVIWriterHandle& writer) {
  AlignCursor(writer);
  WriteIndex(writer);
  WriteNameChunk(writer);
  const uint32_t end = Position(writer);
  PatchSize(writer, writer.m_dwMoviSizePos, writer.m_dwMoviSize);
  PatchRiffSize(writer);
  CoverUnusedSpace(writer, end);
  WriteMainHeader(writer);
  for (uint32_t i = 0; i < writer.m_dwStreamCount; ++i) WriteStreamHeader(writer, *writer.m_pStream[i]);
}

void Release(AVIWriterHandle* writer) {
  for (uint32_t i = 0; i < writer->m_dwStreamCount; ++i) {
    FreeHost(writer->m_pStream[i]->m_pPrefix);
    FreeHost(writer->m_pStream[i]);
  }
  FreeHost(writer->m_pIndex);
  FreeHost(writer);
}

}  // namespace
}  // namespace zmv::avi

using namespace zmv;
using namespace zmv::avi;

void AVIWriterClose(AVIWriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return;
  // Nothing to finish without the movi list: no file information was set, or it could not be written.
  if (handle->m_dwMoviSize != 0) Finish(*handle);
  Release(handle);
}
