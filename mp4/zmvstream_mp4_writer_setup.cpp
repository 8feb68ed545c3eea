// Opening an MP4 file for recording: the handle, the boxes in front of the frames, and one track per stream.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/arith.h"
#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/box_builder.h"
#include "mp4/mp4_writer.h"
#include "mp4/mp4_writer_tables.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "platform/zmv_codec.h"

namespace zmv::mp4 {
namespace {

constexpr int32_t kMemory = Result(ZMV_E_MEMORY);
constexpr int32_t kRefused = Result(ZMV_E_FAIL);

// The horizon of the sample tables in seconds: without an expected length, and the margin on top of one.
constexpr uint64_t kDefaultHorizon = 120;
constexpr int64_t kHorizonMargin = 10;

constexpr uint32_t kMp41FileType = 1;
constexpr uint32_t kMovieHeaderSize = 108;

constexpr uint32_t kStereoCircular = 1;
constexpr uint32_t kEquirectangular = 7;
constexpr const char* kMetaSource = "KPZ 3D Projection";

// One of the two cursors; the write cursor is asked for first, because only cursor 0 of a file may write. No caches:
// sizes on disk must be exact when the file is closed.
int32_t TakeCursor(MP4WriterHandle& writer, uint32_t* cursor) {
  const int64_t result = ZMVStreamBuf_Index(writer.m_hInOut, cursor, 0);
  if (Failed(result)) ZMV_TRACE(kWriterModule, kTraceError, "ZMVStreamBuf_Index error!!!\n");
  return static_cast<int32_t>(result);
}

int32_t WriteFileType(MP4WriterHandle& writer) {
  const bool mp41 = writer.m_dwFileType == kMp41FileType;
  uint8_t box[kFtypSize];
  BoxBuilder out(box);
  {
    Box ftyp(out, FourCC("ftyp"));
    // Other file types leave the major brand and its version empty.
    out.Code(mp41 ? FourCC("mp41") : 0).U32(mp41 ? 1 : 0);
    out.Code(FourCC("isom")).Code(FourCC("avc1")).Code(FourCC("mp41"));
  }
  writer.m_dwCurSize = kFtypSize;
  return WriteOrTrace(writer, box, sizeof box);
}

// The header of mdat, whose size stays 8 until the file is closed.
int32_t OpenMediaData(MP4WriterHandle& writer) {
  uint8_t header[kBoxHeaderSize];
  StoreBE32(header, kBoxHeaderSize);
  StoreLE32(header + 4, FourCC("mdat"));
  writer.m_dwMdatPos = ZMVStreamBuf_Pos(writer.m_hInOut, writer.m_dwWidx);
  if (const int32_t result = WriteOrTrace(writer, header, sizeof header); Failed(result)) return result;
  writer.m_dwMdatSize = kBoxHeaderSize;
  return 0;
}

int32_t WriteFrontBoxes(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  if (const int32_t result = WriteFileType(writer); Failed(result)) return result;
  if (const int32_t result = WriteRecoveryBoxes(writer, info); Failed(result)) return result;
  if (const int32_t result = WriteBuildInformation(writer); Failed(result)) return result;
  return OpenMediaData(writer);
}

// The track's own copy of a configuration. 0, or ZMV_E_MEMORY.
int32_t CopyConfiguration(HostMemory<uint8_t>& copy, const uint8_t* bytes, uint32_t size) {
  if (size == 0) return 0;
  copy = AllocateBytes(kWriterModule, size, __func__);
  if (!copy) return kMemory;
  std::memcpy(copy.Get(), bytes, size);
  return 0;
}

void Attach(MP4WriterHandle& writer, HostMemory<MP4WriterTrack>& track) {
  track->dwTrackID = writer.m_dwTrackNum + 1;
  writer.m_pTrack[writer.m_dwTrackNum++] = track.Release();
}

void DescribeProjection(MP4WriterTrack& track, const ZMVVideoInfo& video) {
  std::memcpy(&track.m_llVidParam, video.dwStereoParam, sizeof track.m_llVidParam);
  if (video.dwProjectionMode == 0) return;
  track.m_bSpherical = 1;
  if (video.dwProjectionMode == kStereoCircular) {
    track.m_bStereo = 1;
    track.m_pszMetaSource = kMetaSource;
    track.m_dwProjBound[0] = video.dwStereoBound;
    track.m_dwProjBound[1] = video.dwStereoParam[0];
    track.m_dwProjBound[2] = video.dwStereoParam[1];
  } else if (video.dwProjectionMode == kEquirectangular) {
    track.m_pszMetaSource = kMetaSource;
  }
}

// Thousandths of a frame per second as whole frames; halves go to the even number.
uint32_t WholeRate(uint32_t thousandths) {
  return SaturatingU32(nearbyintf(static_cast<float>(static_cast<double>(thousandths) / 1000.0)));
}

int32_t MakeVideoTrack(MP4WriterHandle& writer, const ZMVFileInfo& info, uint32_t ordinal) {
  const ZMVVideoInfo& video = info.m_Video[ordinal];
  HostMemory<MP4WriterTrack> track = AllocateRecord<MP4WriterTrack>(kWriterModule, __func__);
  if (!track) return kMemory;
  ZMV_TRACE(kWriterModule, kTraceInfo, "maked video stream index(%d)\n", static_cast<int>(ordinal));
  HostMemory<uint8_t> configuration;
  if (Failed(CopyConfiguration(configuration, video.abExtraData, video.dwExtraDataSize))) return kMemory;
  track->m_dwConfigSize = video.dwExtraDataSize;
  if (configuration) ZMVUtil_H26xRemoveEPB(configuration.Get(), &track->m_dwConfigSize);
  track->m_pConfig = configuration.Release();

  track->dwMediaType = ZMV_MEDIA_VIDEO;
  track->dwFourCC = SampleEntryType(video.dwFourCC);
  track->dwWidth = video.dwWidth;
  track->dwHeight = video.dwHeight;
  track->dwVidExtra = video.dwBitRate;
  track->m_dwTimeScale = EffectiveTimeScale(info, video);
  track->m_dwMovieScale = track->m_dwTimeScale;
  track->m_dwFps = WholeRate(video.dwFrameRate);
  DescribeProjection(*track, video);
  Attach(writer, track);
  return 0;
}

bool IsRawAudio(uint32_t format) {
  return format == ZMV_AUDIO_PCM || format == ZMV_AUDIO_ALAW || format == ZMV_AUDIO_MULAW || format == ZMV_AUDIO_PCM_LE;
}

// Packets per second, in single precision; 0 when the size of a packet is not known.
uint32_t PacketRate(const ZMVAudioInfo& audio) {
  const uint32_t sample_bytes = audio.dwBitsPerSample / 8;
  const uint32_t block = audio.dwBlockAlign != 0 ? audio.dwBlockAlign : audio.dwSamplesPerFrame * sample_bytes;
  if (block == 0) return 0;
  const uint64_t bytes_per_second = uint64_t{sample_bytes} * audio.dwSampleRate;
  return SaturatingU32(nearbyintf(static_cast<float>(bytes_per_second) / static_cast<float>(block)));
}

int32_t MakeAudioTrack(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  const ZMVAudioInfo& audio = info.m_Audio;
  HostMemory<MP4WriterTrack> track = AllocateRecord<MP4WriterTrack>(kWriterModule, __func__);
  if (!track) return kMemory;
  ZMV_TRACE(kWriterModule, kTraceInfo, "maked audio stream index(%d)\n", 0);
  HostMemory<uint8_t> configuration;
  if (Failed(CopyConfiguration(configuration, audio.abExtraData, audio.dwExtraDataSize))) return kMemory;
  track->m_dwConfigSize = audio.dwExtraDataSize;
  track->m_pConfig = configuration.Release();

  track->dwMediaType = ZMV_MEDIA_AUDIO;
  track->dwFourCC = audio.dwFormat;
  track->dwChannels = audio.dwChannels;
  track->dwSampleRate = audio.dwSampleRate;
  track->dwBitsPerSample = audio.dwBitsPerSample;
  track->dwDataRefIndex = 1;
  track->dwVidExtra = audio.dwBitRate;
  track->m_dwTimeScale = audio.dwSampleRate;
  track->m_dwMovieScale = info.dwTimeScale != 0 ? info.dwTimeScale : audio.dwSampleRate;
  track->m_dwFps = PacketRate(audio);
  track->m_bRawAudio = IsRawAudio(audio.dwFormat) ? 1 : 0;
  Attach(writer, track);
  return 0;
}

int32_t MakeTextTrack(MP4WriterHandle& writer, const ZMVFileInfo& info, uint32_t ordinal) {
  const ZMVTextInfo& text = info.m_Text[ordinal];
  HostMemory<MP4WriterTrack> track = AllocateRecord<MP4WriterTrack>(kWriterModule, __func__);
  if (!track) return kMemory;
  ZMV_TRACE(kWriterModule, kTraceInfo, "maked text stream index(%d)\n", static_cast<int>(ordinal));
  track->dwMediaType = ZMV_MEDIA_TEXT;
  track->dwFourCC = text.dwFourCC;
  track->m_dwTimeScale = EffectiveTimeScale(info, text);
  track->m_dwMovieScale = info.dwTimeScale != 0 ? info.dwTimeScale : track->m_dwTimeScale;
  track->m_dwFps = WholeRate(text.dwRate);
  Attach(writer, track);
  return 0;
}

int32_t MakeTracks(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (const int32_t result = MakeVideoTrack(writer, info, i); Failed(result)) return result;
  }
  if (info.dwAudioCount != 0) {
    if (const int32_t result = MakeAudioTrack(writer, info); Failed(result)) return result;
  }
  for (uint32_t i = 0; i < info.dwTextCount; ++i) {
    if (const int32_t result = MakeTextTrack(writer, info, i); Failed(result)) return result;
  }
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    if (const int32_t result = CreateTables(writer, *writer.m_pTrack[i]); Failed(result)) return result;
  }
  return 0;
}

}  // namespace

int32_t CheckWritten(int64_t written, uint32_t count) {
  if (written >= count) return 0;
  const int32_t result = written < 0 ? static_cast<int32_t>(written) : Result(ZMV_E_WRITE);
  ZMV_TRACE(kWriterModule, kTraceError, "err (0x%x)\n", static_cast<uint32_t>(result));
  return result;
}

int32_t AlignCursor(MP4WriterHandle& writer, uint32_t position) {
  constexpr uint8_t kZeros[64] = {};
  uint32_t at = ZMVStreamBuf_Pos(writer.m_hInOut, writer.m_dwWidx);
  if (at > position) {
    const int64_t result = ZMVStreamBuf_Seek(writer.m_hInOut, writer.m_dwWidx, position);
    return Failed(result) ? static_cast<int32_t>(result) : 0;
  }
  while (at < position) {
    const uint32_t count = std::min(position - at, static_cast<uint32_t>(sizeof kZeros));
    if (const int32_t result = CheckWritten(WriteBytes(writer, kZeros, count), count); Failed(result)) return result;
    at += count;
  }
  return 0;
}

bool WithinCapacity(const ZMVFileInfo& info) {
  if (info.dwAudioCount > ZMV_MAX_AUDIO || info.dwVideoCount > ZMV_MAX_VIDEO || info.dwTextCount > ZMV_MAX_TEXT) {
    return false;
  }
  if (info.dwAudioCount + info.dwVideoCount + info.dwTextCount > kMp4WriterMaxTracks) return false;
  if (info.dwAudioCount != 0 && info.m_Audio.dwExtraDataSize > ZMV_MAX_EXTRA_DATA) return false;
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (info.m_Video[i].dwExtraDataSize > ZMV_MAX_EXTRA_DATA) return false;
  }
  return true;
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterOpen(MP4WriterHandle** handle, ZMVStreamBuf* hInOut, uint8_t interleave, int64_t Exp) {
  TraceScope scope(kWriterModule, __func__, TraceScope::Entered());
  ZMV_TRACE(kWriterModule, kTraceInfo, "Enter. hInOut(%p) interleave(%d) Exp(%lld)\n", static_cast<void*>(hInOut),
            interleave, static_cast<long long>(Exp));
  if (handle == nullptr || hInOut == nullptr) return scope.Fail(kRefused, "no handle or no stream\n");
  HostMemory<MP4WriterHandle> memory = AllocateRecord<MP4WriterHandle>(kWriterModule, __func__);
  if (!memory) return scope.Fail(kMemory, "can not create mp4 writer handle\n");
  MP4WriterHandle* const writer = memory.Release();
  writer->m_hInOut = hInOut;
  writer->m_bNoInterleave = interleave == 0 ? 1 : 0;
  writer->m_llExpire = kDefaultHorizon;
  if (Exp != 0) {
    ZMV_TRACE(kWriterModule, kTraceWarning, "expire duration (%lld)\n", static_cast<long long>(Exp));
    writer->m_llExpire = static_cast<uint64_t>(Exp / 1000 + kHorizonMargin);
  }
  int32_t result = TakeCursor(*writer, &writer->m_dwWidx);
  if (!Failed(result)) {
    ZMV_TRACE(kWriterModule, kTraceInfo, "StreamBuf Index Widx(%d)\n", static_cast<int>(writer->m_dwWidx));
    result = TakeCursor(*writer, &writer->m_dwRidx);
  }
  if (Failed(result)) {
    MP4WriterClose(writer);
    return scope.Fail(result);
  }
  ZMV_TRACE(kWriterModule, kTraceInfo, "StreamBuf Index Ridx(%d)\n", static_cast<int>(writer->m_dwRidx));
  *handle = writer;
  ZMV_TRACE(kWriterModule, kTraceInfo, "Leave hWriter(%p)\n", static_cast<void*>(writer));
  return scope.Fail(0);
}

int32_t MP4WriterSetInfo(MP4WriterHandle* handle, const ZMVFileInfo* info, uint64_t dwStartCTS) {
  TraceScope scope(kWriterModule, __func__, TraceScope::Entered());
  ZMV_TRACE(kWriterModule, kTraceDebug, "Enter. dwStartCTS(%lld)\n", static_cast<long long>(dwStartCTS));
  if (handle == nullptr || info == nullptr) return scope.Fail(kRefused, "no handle or no information\n");
  MP4WriterHandle& writer = *handle;
  if (writer.m_dwMdatSize != 0) return scope.Fail(kRefused, "file information is set already\n");
  if (!WithinCapacity(*info)) {
    return scope.Fail(kRefused, "too many streams or too big config. audio(%u) video(%u) text(%u)\n",
                      info->dwAudioCount, info->dwVideoCount, info->dwTextCount);
  }
  writer.m_dwFileType = info->m_dwFileType;
  if (const int32_t result = WriteFrontBoxes(writer, *info); Failed(result)) return scope.Fail(result);
  if (const int32_t result = MakeTracks(writer, *info); Failed(result)) return scope.Fail(result);
  writer.m_llStartCTS = dwStartCTS;
  writer.m_dwCurSize += writer.m_dwMdatSize + kMovieHeaderSize;
  PrepareUserData(writer, *info);
  return 0;
}

uint32_t MP4WriterGetCurSize(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  return handle == nullptr ? 0 : handle->m_dwCurSize;
}
