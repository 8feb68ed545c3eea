// The streams of an AVI recording whose headers are damaged, and whether a file is one at all.
#include <algorithm>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "platform/zmv_codec.h"
#include "recover/recover_avi_front.h"
#include "recover/recover_avi_search.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint32_t kThousandths = 1000;
constexpr uint32_t kPlainVideoRate = 30 * kThousandths;
constexpr uint32_t kPlainTextRate = kThousandths;

bool Number(AviStream& stream, uint32_t media, ZMVFileInfo& info) {
  uint32_t& count = media == ZMV_MEDIA_VIDEO   ? info.dwVideoCount
                    : media == ZMV_MEDIA_AUDIO ? info.dwAudioCount
                                               : info.dwTextCount;
  const uint32_t most = media == ZMV_MEDIA_VIDEO   ? ZMV_MAX_VIDEO
                        : media == ZMV_MEDIA_AUDIO ? ZMV_MAX_AUDIO
                                                   : ZMV_MAX_TEXT;
  if (count == most) return false;
  stream = {};
  stream.media = media;
  stream.track = count++;
  return true;
}

// What the header would have said.
void TakeRates(AviStream& stream, const ZMVFileInfo& info) {
  const ZMVAudioInfo& audio = info.m_Audio;
  const uint32_t block = audio.dwChannels * (audio.dwBitsPerSample / 8);
  const bool pcm = audio.dwFormat == kPcmTag;
  switch (stream.media) {
    case ZMV_MEDIA_VIDEO:
      stream.code = info.m_Video[stream.track].dwFourCC;
      stream.scale = kThousandths;
      stream.rate = info.m_Video[stream.track].dwFrameRate;
      break;
    case ZMV_MEDIA_AUDIO:
      stream.code = audio.dwFormat;
      stream.scale = pcm ? block : audio.dwSamplesPerFrame;
      stream.rate = pcm ? block * audio.dwSampleRate : audio.dwSampleRate;
      stream.sample_size = pcm ? block : 0;
      break;
    default:
      stream.scale = kThousandths;
      stream.rate = info.m_Text[stream.track].dwRate;
      break;
  }
}

}  // namespace

int32_t RecogniseAvi(File& file, bool& recognised) {
  uint8_t bytes[kListHeaderSize];
  const int64_t got = file.ReadAt(0, bytes, sizeof bytes);
  if (got < 0) return static_cast<int32_t>(got);
  recognised = false;
  if (got < static_cast<int64_t>(sizeof bytes) || LoadLE32(bytes + 4) == FourCC("ftyp")) return 0;
  if (LoadLE32(bytes) == FourCC("RIFF")) {
    recognised = LoadLE32(bytes + kChunkHeaderSize) == FourCC("AVI ");
    return 0;
  }
  Window window(file);
  uint64_t found = 0;
  recognised = FindMovi(window, found) || (window.Error() == 0 && FindChunks(window, found));
  return window.Error();
}

void AddAviStreams(const uint32_t (&media)[kMaxStreams], const ZMVFileInfo* given, AviFront& front) {
  ZMVFileInfo& info = front.front.info;
  const uint32_t headers = front.stream_count;
  for (uint32_t i = headers; i < kMaxStreams; ++i) {
    if (media[i] != 0 && Number(front.streams[i], media[i], info)) front.stream_count = i + 1;
  }
  SettleDescriptions({}, given, front.front);
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (info.m_Video[i].dwFrameRate == 0) info.m_Video[i].dwFrameRate = kPlainVideoRate;
  }
  ZMVAudioInfo& audio = info.m_Audio;
  if (audio.dwFormat != kPcmTag && audio.dwSamplesPerFrame == 0) {
    audio.dwSamplesPerFrame = ZMVUtil_GetAudioSampleSize(audio.dwFormat);
  }
  for (uint32_t i = 0; i < info.dwTextCount; ++i) {
    if (info.m_Text[i].dwRate == 0) info.m_Text[i].dwRate = kPlainTextRate;
  }
  for (uint32_t i = headers; i < front.stream_count; ++i) TakeRates(front.streams[i], info);
}

}  // namespace zmv::recover
