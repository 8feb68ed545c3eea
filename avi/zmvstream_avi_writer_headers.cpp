// The stream lists of the hdrl list, and the record of each stream.
#include <cstring>

#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/arith.h"
#include "base/host_memory.h"
#include "platform/zmv_codec.h"

namespace zmv::avi {
namespace {

constexpr int32_t kMemory = Result(ZMV_E_MEMORY);
constexpr int32_t kRefused = Result(ZMV_E_FAIL);

// Rates and scales of video and text are thousandths.
constexpr uint32_t kThousandths = 1000;
constexpr uint32_t kAudioScaleHint = 8;

// A stream list up to the format: "LIST" with its size and type, "strh", and the header of "strf".
constexpr uint32_t kStrhPosition = kListHeaderSize + kChunkHeaderSize;
constexpr uint32_t kListHeadSize = kStrhPosition + kStreamHeaderSize + kChunkHeaderSize;
constexpr uint32_t kSizeField = 4;  // of a chunk, from its start

// A name that no file has room for.
constexpr size_t kMaxNameLength = 0x7FFFFFFF;

// "strn": the name and at least one zero byte, of even length; the bytes of the chunk are added to `list_size`.
int32_t WriteStreamName(AVIWriterHandle& writer, const char* name, uint32_t& list_size) {
  const size_t length = std::strlen(name);
  if (length > kMaxNameLength) return kRefused;
  const uint32_t size = static_cast<uint32_t>(length / 2 * 2 + 2);
  HostMemory<uint8_t> chunk = AllocateBytes(kWriterModule, kChunkHeaderSize + size, __func__);
  if (!chunk) return kMemory;
  RiffBuilder out(chunk.Get());
  out.Code(FourCC("strn")).U32(size).Bytes(name, static_cast<uint32_t>(length));
  out.Zeros(size - static_cast<uint32_t>(length));
  list_size += out.Size();
  return WriteOrTrace(writer, chunk.Get(), out.Size());
}

// The list of one stream; `put_format` writes the data of "strf" and returns its bytes. The list's own size goes to
// `list_size`. The format is not padded, whatever its length.
template <typename PutFormat>
int32_t WriteStreamList(AVIWriterHandle& writer, AVIWriterStream& stream, PutFormat put_format, const char* name,
                        uint32_t& list_size) {
  const uint32_t start = Position(writer);
  stream.m_dwHeaderPos = start + kStrhPosition;
  uint8_t head[kListHeadSize];
  RiffBuilder out(head);
  out.Code(FourCC("LIST")).U32(0).Code(FourCC("strl"));
  out.Code(FourCC("strh")).U32(kStreamHeaderSize).Bytes(&stream.m_StreamInfo, kStreamHeaderSize);
  out.Code(FourCC("strf")).U32(0);
  if (const int32_t result = WriteOrTrace(writer, head, sizeof head); Failed(result)) return result;

  const int64_t format = put_format();
  // A write that was cut short shows only in the position.
  const int64_t written = format < 0 ? format : int64_t{Position(writer)} - start - kListHeadSize;
  const uint32_t format_size = format < 0 ? 0 : static_cast<uint32_t>(format);
  if (const int32_t result = CheckWritten(written, format_size); Failed(result)) return result;
  const uint32_t size_position = start + kListHeadSize - kSizeField;
  if (const int32_t result = PatchSize(writer, size_position, format_size); Failed(result)) return result;

  list_size = kListHeadSize - kChunkHeaderSize + format_size;
  if (name != nullptr) {
    if (const int32_t result = WriteStreamName(writer, name, list_size); Failed(result)) return result;
  }
  return PatchSize(writer, start + kSizeField, list_size);
}

void Attach(AVIWriterHandle& writer, HostMemory<AVIWriterStream>& stream, uint32_t media, uint32_t list_size,
            HeaderTotals& totals) {
  stream->m_dwMediaType = media;
  stream->m_dwStreamNo = writer.m_dwStreamCount;
  writer.m_pStream[writer.m_dwStreamCount++] = stream.Release();
  totals.hdrl_size += kChunkHeaderSize + list_size;
}

int32_t AddVideo(AVIWriterHandle& writer, const ZMVFileInfo& info, uint32_t ordinal, HeaderTotals& totals) {
  const ZMVVideoInfo& video = info.m_Video[ordinal];
  HostMemory<AVIWriterStream> stream = AllocateRecord<AVIWriterStream>(kWriterModule, __func__);
  if (!stream) return kMemory;
  AVIWriterStreamHeader& header = stream->m_StreamInfo;
  header.fccType = FourCC("vids");
  header.fccHandler = video.dwFourCC;
  header.wPriority = static_cast<uint16_t>(video.dwPriority);
  header.dwScale = kThousandths;
  header.dwRate = video.dwFrameRate;
  header.rcFrame[2] = static_cast<int16_t>(video.dwWidth);
  header.rcFrame[3] = static_cast<int16_t>(video.dwHeight);
  stream->m_dwScaleHint = kThousandths;
  stream->m_dwInitRate = video.dwFrameRate;
  stream->m_dwFixedRate = video.dwFixedRate;

  const auto put_format = [&] { return ZMVStreamBuf_PutVideoFormat(writer.m_hInOut, writer.m_dwCursor, &video); };
  const char* const name = ordinal == 0 ? info.pStreamName : nullptr;
  uint32_t list_size = 0;
  const int32_t result = WriteStreamList(writer, *stream, put_format, name, list_size);
  if (Failed(result)) return result;
  Attach(writer, stream, ZMV_MEDIA_VIDEO, list_size, totals);
  totals.chunks_per_second += video.dwFrameRate / kThousandths;
  ZMV_TRACE(kWriterModule, kTraceInfo, "video header write done index(%d) stream index(%d)\n",
            static_cast<int>(ordinal), static_cast<int>(writer.m_dwStreamCount - 1));
  return 0;
}

int32_t AddAudio(AVIWriterHandle& writer, ZMVAudioInfo& audio, HeaderTotals& totals) {
  HostMemory<AVIWriterStream> stream = AllocateRecord<AVIWriterStream>(kWriterModule, __func__);
  if (!stream) return kMemory;
  const bool pcm = audio.dwFormat == kPcmTag;
  const uint32_t sample_bytes = audio.dwChannels * (audio.dwBitsPerSample / 8);
  AVIWriterStreamHeader& header = stream->m_StreamInfo;
  header.fccType = FourCC("auds");
  header.fccHandler = audio.dwFormat;
  header.dwScale = pcm ? sample_bytes : audio.dwSamplesPerFrame;
  header.dwRate = pcm ? sample_bytes * audio.dwSampleRate : audio.dwSampleRate;
  header.dwSampleSize = pcm ? sample_bytes : 0;
  stream->m_dwScaleHint = kAudioScaleHint;
  stream->m_dwInitRate = audio.dwBitRate;
  stream->m_dwBlockAlign = header.dwSampleSize;
  stream->m_dwAudioTag = audio.dwFormat;
  audio.dwBlockAlign = header.dwScale;

  const auto put_format = [&] { return ZMVStreamBuf_PutAudioFormat(writer.m_hInOut, writer.m_dwCursor, &audio); };
  uint32_t list_size = 0;
  const int32_t result = WriteStreamList(writer, *stream, put_format, nullptr, list_size);
  if (Failed(result)) return result;
  Attach(writer, stream, ZMV_MEDIA_AUDIO, list_size, totals);
  const uint32_t chunk_samples = pcm ? audio.dwSamplesPerFrame : ZMVUtil_GetAudioSampleSize(audio.dwFormat);
  totals.chunks_per_second += DivideOrZero(audio.dwSampleRate, chunk_samples);
  ZMV_TRACE(kWriterModule, kTraceInfo, "audio header write done index(%d) stream index(%d)\n", 0,
            static_cast<int>(writer.m_dwStreamCount - 1));
  return 0;
}

int32_t AddText(AVIWriterHandle& writer, const ZMVFileInfo& info, uint32_t ordinal, HeaderTotals& totals) {
  static constexpr ZMVVideoInfo kNoVideo = {};
  const ZMVTextInfo& text = info.m_Text[ordinal];
  HostMemory<AVIWriterStream> stream = AllocateRecord<AVIWriterStream>(kWriterModule, __func__);
  if (!stream) return kMemory;
  AVIWriterStreamHeader& header = stream->m_StreamInfo;
  header.fccType = FourCC("txts");
  header.fccHandler = text.dwFourCC;
  header.dwScale = kThousandths;
  header.dwRate = text.dwRate;
  stream->m_dwScaleHint = kThousandths;
  stream->m_dwInitRate = text.dwRate;
  stream->m_dwFixedRate = text.dwFixedRate;

  // Text has no format of its own: it takes that of a video of nothing.
  const auto put_format = [&] { return ZMVStreamBuf_PutVideoFormat(writer.m_hInOut, writer.m_dwCursor, &kNoVideo); };
  uint32_t list_size = 0;
  const int32_t result = WriteStreamList(writer, *stream, put_format, nullptr, list_size);
  if (Failed(result)) return result;
  Attach(writer, stream, ZMV_MEDIA_TEXT, list_size, totals);
  totals.chunks_per_second += text.dwRate / kThousandths;
  ZMV_TRACE(kWriterModule, kTraceInfo, "text header write done index(%d) stream index(%d)\n", static_cast<int>(ordinal),
            static_cast<int>(writer.m_dwStreamCount - 1));
  return 0;
}

}  // namespace

int32_t WriteStreamLists(AVIWriterHandle& writer, ZMVFileInfo& info, HeaderTotals& totals) {
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (const int32_t result = AddVideo(writer, info, i, totals); Failed(result)) return result;
  }
  if (info.dwAudioCount != 0) {
    if (const int32_t result = AddAudio(writer, info.m_Audio, totals); Failed(result)) return result;
  }
  for (uint32_t i = 0; i < info.dwTextCount; ++i) {
    if (const int32_t result = AddText(writer, info, i, totals); Failed(result)) return result;
  }
  return 0;
}

}  // namespace zmv::avi
