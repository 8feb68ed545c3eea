// The descriptions of the streams of a recording whose front is damaged.
#include <algorithm>

#include "base/fourcc.h"
#include "platform/zmv_codec.h"
#include "recover/recover_front.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kPlainTimeScale = 90000;
constexpr uint32_t kPlainSampleRate = 48000;
constexpr uint32_t kPlainChannels = 2;
constexpr uint32_t kPlainBits = 16;

// Streams of a medium up to the last one that there are frames of.
uint32_t StreamsSeen(const ZMVRecoverReport& report, uint32_t media) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) {
    const ZMVRecoverStream& stream = report.Stream[i];
    if (stream.dwMediaType == media && stream.dwFrames != 0) count = std::max(count, stream.dwTrack + 1);
  }
  return count;
}

// Descriptions that are missing stood in the damaged stretch: those behind it belong to the last streams.
template <typename Info>
void MoveLate(Info* infos, bool* described, uint32_t& count, uint32_t late, uint32_t seen, uint32_t capacity) {
  seen = std::min(seen, capacity);
  if (seen <= count) return;
  const uint32_t first = count - late;
  std::move_backward(infos + first, infos + count, infos + seen);
  std::move_backward(described + first, described + count, described + seen);
  std::fill(infos + first, infos + seen - late, Info{});
  std::fill(described + first, described + seen - late, false);
  count = seen;
}

ZMVVideoInfo PlainVideo() {
  ZMVVideoInfo video = {};
  video.dwFourCC = FourCC("H264");
  video.dwTimeScale = kPlainTimeScale;
  return video;
}

ZMVAudioInfo PlainAudio() {
  ZMVAudioInfo audio = {};
  audio.dwFormat = ZMV_AUDIO_AAC;
  audio.dwSampleRate = kPlainSampleRate;
  audio.dwChannels = kPlainChannels;
  audio.dwBitsPerSample = kPlainBits;
  audio.dwSamplesPerFrame = ZMVUtil_GetAudioSampleSize(ZMV_AUDIO_AAC);
  return audio;
}

ZMVTextInfo PlainText() {
  ZMVTextInfo text = {};
  text.dwFourCC = FourCC("text");
  return text;
}

}  // namespace

void SettleDescriptions(const ZMVRecoverReport& report, const ZMVFileInfo* given, Front& front) {
  ZMVFileInfo& info = front.info;
  MoveLate(info.m_Video, front.described_video, info.dwVideoCount, front.late_video,
           StreamsSeen(report, ZMV_MEDIA_VIDEO), ZMV_MAX_VIDEO);
  MoveLate(info.m_Text, front.described_text, info.dwTextCount, front.late_text, StreamsSeen(report, ZMV_MEDIA_TEXT),
           ZMV_MAX_TEXT);
  front.late_video = front.late_text = 0;
  if (StreamsSeen(report, ZMV_MEDIA_AUDIO) != 0) info.dwAudioCount = 1;
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (front.described_video[i]) continue;
    if (given != nullptr && i < given->dwVideoCount) {
      info.m_Video[i] = given->m_Video[i];
    } else if (info.m_Video[i].dwFourCC == 0) {
      info.m_Video[i] = PlainVideo();
    }
  }
  if (info.dwAudioCount != 0 && !front.described_audio) {
    if (given != nullptr && given->dwAudioCount != 0) {
      info.m_Audio = given->m_Audio;
    } else if (info.m_Audio.dwFormat == 0) {
      info.m_Audio = PlainAudio();
    }
  }
  for (uint32_t i = 0; i < info.dwTextCount; ++i) {
    if (front.described_text[i]) continue;
    if (given != nullptr && i < given->dwTextCount) {
      info.m_Text[i] = given->m_Text[i];
    } else if (info.m_Text[i].dwFourCC == 0) {
      info.m_Text[i] = PlainText();
    }
  }
  if (!front.sound) {
    info.m_dwFileType = 1;
    if (info.dwVideoCount != 0) info.dwTimeScale = info.m_Video[0].dwTimeScale;
  }
}

}  // namespace zmv::recover
