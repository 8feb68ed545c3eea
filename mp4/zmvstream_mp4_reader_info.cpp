// Describing a file: what the box walk found, as the media records say it, and the payload stream of every track.
#include <cstring>

#include "base/arith.h"
#include "base/host_memory.h"
#include "mp4/mp4_reader.h"
#include "platform/zmv_codec.h"

namespace zmv::mp4::reader {
namespace {

constexpr const char* kFunction = "MP4FReaderGetInfo";
constexpr float kMilliseconds = 1000.0f;
constexpr uint32_t kMaxAudioBuffer = 8192;
constexpr uint32_t kMaxVideoBuffer = 0x100000;

// Puts reader and record back to where a first call finds them.
int32_t StartOver(MP4FReaderHandle& handle, ZMVFileInfo& info) {
  DropTracks(handle);
  handle.m_dwCurAudio = handle.m_dwCurVideo = handle.m_dwCurText = 0;
  handle.m_bHasAudio = handle.m_bHasVideo = handle.m_bHasText = 0;
  handle.m_dwMajorBrand = handle.m_dwTimeScale = handle.m_dwMdatPos = 0;
  handle.m_dwDuration = handle.m_dwFragDuration = 0;
  info.dwDuration = info.dwTimeScale = 0;
  info.dwAudioCount = info.dwVideoCount = info.dwTextCount = 0;
  info.m_dwFileType = 1;
  const bool moved = handle.m_bWalked != 0;
  handle.m_bWalked = 1;
  return moved ? SeekWalk(handle, 0, kFunction) : 0;
}

uint32_t CopyConfig(const MP4ReaderTrack& track, uint8_t (&extra)[ZMV_MAX_EXTRA_DATA]) {
  const uint32_t size = track.m_dwConfigSize < ZMV_MAX_EXTRA_DATA ? track.m_dwConfigSize : ZMV_MAX_EXTRA_DATA;
  if (size != 0) std::memcpy(extra, track.m_pConfig, size);
  return size;
}

void MakeCurrent(uint32_t slot, uint32_t* current, uint8_t* present) {
  if (*present != 0) return;
  *current = slot;
  *present = 1;
}

void DescribeAudio(MP4ReaderTrack& track, uint32_t duration, ZMVFileInfo& info) {
  if (track.m_dwMaxSampleSize > kMaxAudioBuffer) track.m_dwMaxSampleSize = kMaxAudioBuffer;
  if (info.dwAudioCount == ZMV_MAX_AUDIO) return;
  ++info.dwAudioCount;
  ZMVAudioInfo& audio = info.m_Audio;
  audio = {};
  audio.dwFormat = track.m_dwFourCC;
  audio.dwSampleRate = track.m_dwSampleRate;
  audio.dwChannels = track.m_dwChannels;
  audio.dwBitsPerSample = track.m_dwBitsPerSample;
  audio.dwBitRate = track.m_dwBitRate;
  audio.dwDuration = duration;
  audio.dwFrames = track.m_dwSampleCount;
  audio.dwBufferSize = track.m_dwMaxSampleSize;
  audio.dwExtraDataSize = CopyConfig(track, audio.abExtraData);
  audio.bValid = 1;
}

void DescribeConfig(const MP4ReaderTrack& track, ZMVVideoInfo& video) {
  video.dwExtraDataSize = CopyConfig(track, video.abExtraData);
  ZMVUtil_GetVideoInfo(track.m_pConfig, track.m_dwConfigSize, &video);
  if (video.dwExtraDataSize == 0) return;
  if (IsH264(track.m_dwFourCC)) ZMVUtil_ConvH264InfoToStartCode(video.abExtraData, &video.dwExtraDataSize);
  if (IsHevc(track.m_dwFourCC)) ZMVUtil_ConvHEVCInfoToStartCode(video.abExtraData, &video.dwExtraDataSize);
}

// In the words in which a writer takes them.
void DescribeProjection(const MP4ReaderTrack& track, ZMVVideoInfo& video) {
  if (track.m_bSpherical == 0) return;
  video.dwSpherical = 1;
  video.dwProjectionMode = 1;
  video.dwStereoBound = track.m_dwProj1;
  video.dwStereoTypeZero = track.m_dwProj0 == 0 ? 1 : 0;
  video.dwStereoParam[0] = track.m_dwProj2;
  video.dwStereoParam[1] = track.m_dwProj3;
}

void DescribeVideo(MP4ReaderTrack& track, uint32_t duration, ZMVFileInfo& info) {
  if (track.m_dwMaxSampleSize > kMaxVideoBuffer) track.m_dwMaxSampleSize = kMaxVideoBuffer;
  if (info.dwVideoCount == ZMV_MAX_VIDEO) return;
  ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
  video = {};
  video.dwFourCC = track.m_dwFourCC;
  video.dwWidth = track.m_dwWidth;
  video.dwHeight = track.m_dwHeight;
  video.dwBitRate = track.m_dwBitRate;
  video.dwDuration = duration;
  video.dwFrames = track.m_dwSampleCount;
  if (track.m_dwDuration != 0) {
    const uint32_t frame_time = DivideOrZero(track.m_dwDuration, track.m_dwSampleCount);
    video.dwFrameRate = DivideOrZero(uint32_t{1000000}, frame_time);
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction, "[Reader] FrameRate %d\n",
                static_cast<int>(video.dwFrameRate));
  }
  video.dwBufferSize = track.m_dwMaxSampleSize;
  DescribeConfig(track, video);
  DescribeProjection(track, video);
}

void DescribeText(MP4ReaderTrack& track, uint32_t duration, ZMVFileInfo& info) {
  if (track.m_dwFourCC == 0) track.m_dwFourCC = track.m_dwTextCode;
  if (info.dwTextCount == ZMV_MAX_TEXT) return;
  ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
  text = {};
  text.dwFourCC = track.m_dwFourCC;
  text.dwBitRate = track.m_dwBitRate;
  text.dwBufferSize = track.m_dwMaxSampleSize;
  text.dwDuration = duration;
  text.dwFrames = track.m_dwSampleCount;
}

int32_t PayloadFailure(MP4FReaderHandle& handle, const MP4ReaderTrack& track, int64_t error, const char* message) {
  DropTrack(handle, &track);
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction, "%s", message);
  return static_cast<int32_t>(error);
}

// Opens the stream through which the payloads of a track are read.
int32_t OpenPayload(MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  int64_t result = ZMVStreamBuf_Dup(handle.m_hStream, &track.m_hStream);
  if (Failed(result)) {
    return PayloadFailure(handle, track, result, "[Reader]\t\tMP4FReaderGetInfo - ZMVStreamBuf_Dup error!!!\n");
  }
  result = ZMVStreamBuf_Index(track.m_hStream, &track.m_dwIndex, 0);
  if (Failed(result)) {
    return PayloadFailure(handle, track, result, "[Reader]\t\tMP4FReaderGetInfo - ZMVStreamBuf_Index error!!!\n");
  }
  result = ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, handle.m_dwMdatPos);
  return Failed(result) ? Report(StreamError(result), kFunction) : 0;
}

int32_t DescribeTrack(MP4FReaderHandle& handle, uint32_t slot, ZMVFileInfo& info) {
  MP4ReaderTrack& track = *handle.m_pTrack[slot];
  track.m_dwDuration = TicksToUnits(track.m_dwDuration, kMilliseconds, track.m_dwTimeScale);
  ::ZMV_Trace(kModule.tag, kTraceInfo, kModule.source, __LINE__, kFunction,
              "hStream TrackID(%d) index(%d) MDHD Duration(%lld) scale(%d)\n", static_cast<int>(track.m_dwTrackID),
              static_cast<int>(slot), static_cast<long long>(track.m_dwDuration),
              static_cast<int>(track.m_dwTimeScale));
  const uint32_t duration = handle.m_dwFragDuration != 0 ? handle.m_dwFragDuration : track.m_dwDuration;
  switch (track.m_dwMediaType) {
    case ZMV_MEDIA_VIDEO:
      DescribeVideo(track, duration, info);
      MakeCurrent(slot, &handle.m_dwCurVideo, &handle.m_bHasVideo);
      break;
    case ZMV_MEDIA_AUDIO:
      DescribeAudio(track, duration, info);
      MakeCurrent(slot, &handle.m_dwCurAudio, &handle.m_bHasAudio);
      break;
    case ZMV_MEDIA_TEXT:
      DescribeText(track, duration, info);
      MakeCurrent(slot, &handle.m_dwCurText, &handle.m_bHasText);
      break;
    default:
      break;
  }
  if (duration > info.dwDuration) info.dwDuration = duration;
  FreeConfig(track);
  if (track.m_dwMediaType != 0) return OpenPayload(handle, track);
  DropTrack(handle, &track);
  return 0;
}

}  // namespace

int32_t GetInfo(MP4FReaderHandle& handle, ZMVFileInfo& info) {
  int32_t result = StartOver(handle, info);
  if (!Failed(result)) result = WalkFile(handle, info);
  if (Failed(result)) return result;
  handle.m_dwFragDuration = TicksToUnits(handle.m_dwFragDuration, kMilliseconds, handle.m_dwTimeScale);
  for (uint32_t slot = 0; slot < handle.m_dwTrackCount; ++slot) {
    if (handle.m_pTrack[slot] == nullptr) continue;
    result = DescribeTrack(handle, slot, info);
    if (Failed(result)) return result;
  }
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction, "TotalRange(%lld) Duration(%lld)\n",
              static_cast<long long>(info.dwDuration), static_cast<long long>(handle.m_dwDuration));
  if (info.dwDuration == 0) {
    info.dwDuration = handle.m_dwDuration;
  } else {
    handle.m_dwDuration = info.dwDuration;
  }
  return 0;
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4FReaderGetInfo(MP4FReaderHandle* handle, ZMVFileInfo* info) {
  TraceScope scope(kModule, __func__);
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderGetInfo\n");
  if (handle == nullptr || info == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = GetInfo(*handle, *info);
  if (Failed(result)) return scope.Fail(result);
  ZMV_TRACE(kModule, kTraceWarning, "[Reader]\tMP4FReaderGetInfo End\n");
  return 0;
}
