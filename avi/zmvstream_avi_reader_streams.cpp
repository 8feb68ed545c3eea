// Streams of an AVI file: made from a "strh" and a "strf" chunk, described in the media records, and put in front of
// their first frame once the walk is done.
#include "avi/avi_reader.h"
#include "base/arith.h"
#include "base/fourcc.h"
#include "base/host_memory.h"
#include "facade/zmvstream_media.h"
#include "platform/zmv_platform.h"

namespace zmv::avi::reader {
namespace {

constexpr const char* kFunction = "AVIReaderGetInfo";
constexpr float kMilliseconds = 1000.0f;
constexpr uint32_t kMaxAudioBuffer = 8192;
constexpr uint32_t kMaxVideoBuffer = 0x100000;
// Headers without a rate are taken as 25 a second.
constexpr uint32_t kDefaultScale = 1;
constexpr uint32_t kDefaultRate = 25;
constexpr uint32_t kMicrosecondsPerSecond = 1000000;

// A stream without a rate has no times.
uint32_t UnitsToMilliseconds(uint32_t units, uint32_t scale, uint32_t rate) {
  if (rate == 0) return 0;
  return SaturatingU32(static_cast<float>(units) * (static_cast<float>(scale) * kMilliseconds) /
                       static_cast<float>(rate));
}

constexpr uint32_t AtMost(uint32_t value, uint32_t limit) { return value < limit ? value : limit; }

bool LacksRate(const StreamHeader& header) { return header.scale == 0 || header.rate == 0; }

// The codec is told by the format, so a stream that is to be dropped shows only here.
void DescribeVideo(HeaderWalk& walk, AVIReaderStream& stream) {
  StreamHeader& header = walk.header;
  if (LacksRate(header)) {
    header.scale = walk.frame_time != 0 ? walk.frame_time : kDefaultScale;
    header.rate = walk.frame_time != 0 ? kMicrosecondsPerSecond : kDefaultRate;
  }
  ZMVVideoInfo scratch;  // what a stream beyond the record's capacity fills
  ZMVVideoInfo& video = walk.video_count < ZMV_MAX_VIDEO ? walk.info.m_Video[walk.video_count] : scratch;
  video = {};
  StreamGetVideoFormat(walk.handle.m_hStream, walk.handle.m_dwIndex, walk.chunk.size, &video);
  stream.m_dwMediaType = ZMV_MEDIA_VIDEO;
  stream.m_dwFourCC = video.dwFourCC;
  video.dwFrames = header.length;
  video.dwBufferSize = AtMost(header.suggested_size, kMaxVideoBuffer);
  video.dwFrameRate = TicksToUnits(header.rate, kMilliseconds, header.scale);
}

void DescribeAudio(HeaderWalk& walk, AVIReaderStream& stream) {
  StreamHeader& header = walk.header;
  if (LacksRate(header)) {
    header.scale = kDefaultScale;
    header.rate = kDefaultRate;
  }
  ZMVAudioInfo scratch;
  ZMVAudioInfo& audio = walk.audio_count < ZMV_MAX_AUDIO ? walk.info.m_Audio : scratch;
  audio = {};
  StreamGetAudioFormat(walk.handle.m_hStream, walk.handle.m_dwIndex, walk.chunk.size, &audio);
  stream.m_dwMediaType = ZMV_MEDIA_AUDIO;
  audio.dwBufferSize =
      audio.dwFormat == kPcmTag ? header.suggested_size : AtMost(header.suggested_size, kMaxAudioBuffer);
  audio.dwFrames = header.length;
  audio.bValid = 1;
}

void DescribeText(HeaderWalk& walk, AVIReaderStream& stream) {
  stream.m_dwMediaType = ZMV_MEDIA_TEXT;
  if (walk.info.dwTextCount == ZMV_MAX_TEXT) return;
  ZMVTextInfo& text = walk.info.m_Text[walk.info.dwTextCount++];
  text.dwFrames = walk.header.length;
  text.dwBufferSize = walk.header.suggested_size;
}

int32_t DupFailure(int64_t error, const char* message, uint32_t line = __builtin_LINE()) {
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, line, kFunction, "%s", message);
  return StreamError(error);
}

// Opens the file once more, so that the stream is read on its own.
int32_t OpenStream(const AVIReaderHandle& handle, AVIReaderStream& stream) {
  int64_t result = ZMVStreamBuf_Dup(handle.m_hStream, &stream.m_hStream);
  if (Failed(result)) return DupFailure(result, "AVIReaderOpen - ZMVStreamBuf_Dup error!!!\n");
  result = ZMVStreamBuf_Index(stream.m_hStream, &stream.m_dwIndex, kStreamCacheSize);
  if (!Failed(result)) return 0;
  ZMVStreamBuf_Close(stream.m_hStream);
  return DupFailure(result, "AVIReaderOpen - ZMVStreamBuf_Index error!!!\n");
}

void MakeCurrent(uint32_t number, uint32_t* current, uint8_t* present) {
  if (*present != 0) return;
  *current = number;
  *present = 1;
}

// Puts the stream in the list, after which it counts among those of its medium.
void Accept(HeaderWalk& walk, AVIReaderStream* stream) {
  AVIReaderHandle& handle = walk.handle;
  handle.m_pStream[handle.m_dwStreamCount++] = stream;
  walk.stream = stream;
  if (stream->m_dwMediaType == ZMV_MEDIA_VIDEO) {
    ++walk.video_count;
    MakeCurrent(stream->m_dwStreamNo, &handle.m_dwFirstVideo, &handle.m_bHasVideo);
  } else if (stream->m_dwMediaType == ZMV_MEDIA_AUDIO) {
    ++walk.audio_count;
    MakeCurrent(stream->m_dwStreamNo, &handle.m_dwFirstAudio, &handle.m_bHasAudio);
  }
}

int32_t PlaceStream(const AVIReaderHandle& handle, AVIReaderStream& stream) {
  const bool indexed = handle.m_bHasIndex != 0 && stream.m_dwIndexEntries != 0;
  const uint64_t position = uint64_t{handle.m_dwBase} + (indexed ? stream.m_pIndex[0].m_dwPos : handle.m_dwDataPos);
  const int64_t result = position > UINT32_MAX
                             ? int64_t{Result(ZMV_E_SEEK)}
                             : ZMVStreamBuf_Seek(stream.m_hStream, stream.m_dwIndex, static_cast<uint32_t>(position));
  if (Failed(result)) return Report(StreamError(result), kFunction);
  stream.m_dwPos = static_cast<uint32_t>(position);
  return 0;
}

uint32_t DurationOf(const AVIReaderStream& stream) {
  const uint32_t units = stream.m_dwSampleSize != 0 ? stream.m_dwLength / stream.m_dwSampleSize : stream.m_dwLength;
  return UnitsToMilliseconds(units, stream.m_dwScale, stream.m_dwRate);
}

}  // namespace

int32_t CreateStream(HeaderWalk& walk) {
  AVIReaderHandle& handle = walk.handle;
  HostMemory<AVIReaderStream> stream = AllocateRecord<AVIReaderStream>(kModule, kFunction);
  if (!stream) return Result(ZMV_E_MEMORY);
  stream->m_dwStreamNo = handle.m_dwStreamCount;
  int32_t result = SeekTo(handle, walk.chunk.data, kFunction);
  if (Failed(result)) return result;
  const StreamHeader& header = walk.header;
  if (header.type == FourCC("vids")) DescribeVideo(walk, *stream);
  if (header.type == FourCC("auds")) DescribeAudio(walk, *stream);
  if (header.type == FourCC("txts")) DescribeText(walk, *stream);
  if (stream->m_dwMediaType == ZMV_MEDIA_VIDEO) {
    if (stream->m_dwFourCC == FourCC("DXSB")) {  // a subtitle overlay: its description is the next video stream's
      if (walk.video_count < ZMV_MAX_VIDEO) walk.info.m_Video[walk.video_count] = {};
      return 0;
    }
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction, "video fourcc(%x : %s)\n",
                static_cast<unsigned>(stream->m_dwFourCC), ZMV_FourCC_String(stream->m_dwFourCC, 0));
  }
  result = OpenStream(handle, *stream);
  if (Failed(result)) return result;
  stream->m_dwScale = header.scale;
  stream->m_dwRate = header.rate;
  stream->m_dwSampleSize = header.sample_size;
  stream->m_dwLength = header.length != 0 ? header.length : GetStreamSize(handle, stream->m_dwStreamNo);
  stream->m_dwStartTime = UnitsToMilliseconds(header.start, header.scale, header.rate);
  Accept(walk, stream.Release());
  return 0;
}

int32_t FinishStreams(AVIReaderHandle& handle, ZMVFileInfo& info) {
  for (uint32_t number = 0; number < handle.m_dwStreamCount; ++number) {
    AVIReaderStream& stream = *handle.m_pStream[number];
    const int32_t result = PlaceStream(handle, stream);
    if (Failed(result)) return result;
    stream.m_dwDuration = DurationOf(stream);
    if (stream.m_dwDuration > info.dwDuration) info.dwDuration = stream.m_dwDuration;
    if (stream.m_dwMediaType == ZMV_MEDIA_VIDEO && info.dwVideoCount < ZMV_MAX_VIDEO) {
      info.m_Video[info.dwVideoCount++].dwDuration = stream.m_dwDuration;
    }
    if (stream.m_dwMediaType == ZMV_MEDIA_AUDIO && info.dwAudioCount < ZMV_MAX_AUDIO) {
      ++info.dwAudioCount;
      info.m_Audio.dwSampleBlock = stream.m_dwSampleSize;
      info.m_Audio.dwDuration = stream.m_dwDuration;
    }
  }
  return 0;
}

}  // namespace zmv::avi::reader
