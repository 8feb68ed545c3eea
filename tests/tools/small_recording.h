// Recordings of tiny frames, made through the library without any input file.
#ifndef ZMV_TESTS_TOOLS_SMALL_RECORDING_H
#define ZMV_TESTS_TOOLS_SMALL_RECORDING_H

#include <algorithm>
#include <string>
#include <vector>

#include "tools/zmv/gps_point.h"
#include "tools/zmv/recorder.h"

namespace zmv::tool {

constexpr uint8_t kSmallSets[] = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0x0A, 0x80, 0, 0, 0, 1, 0x68, 0xCE};
constexpr uint32_t kSmallSampleRate = 48000;
constexpr int64_t kSmallAudioFrameUs = 21333;

// H.264 video at 30 frames a second and AAC; with `texts` text tracks. Positions are kept in boxes when `software`
// begins with F.
inline ZMVFileInfo SmallInfo(const std::string& software, uint32_t texts = 1) {
  ZMVFileInfo info{};
  info.m_dwFileType = 1;
  info.dwTimeScale = kVideoTimeScale;
  info.dwVideoCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  video.dwWidth = 32;
  video.dwHeight = 16;
  video.dwFrameRate = 30000;
  video.dwTimeScale = kVideoTimeScale;
  std::copy(std::begin(kSmallSets), std::end(kSmallSets), video.abExtraData);
  video.dwExtraDataSize = sizeof(kSmallSets);
  info.dwAudioCount = 1;
  info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
  info.m_Audio.dwSampleRate = kSmallSampleRate;
  info.m_Audio.dwChannels = 2;
  info.m_Audio.dwBitsPerSample = 16;
  info.m_Audio.dwSamplesPerFrame = 1024;
  info.m_Audio.abExtraData[0] = 0x11;  // AAC LC, 48000 Hz, 2 channels
  info.m_Audio.abExtraData[1] = 0x90;
  info.m_Audio.dwExtraDataSize = 2;
  info.dwTextCount = texts;
  for (uint32_t i = 0; i < texts; ++i) {
    info.m_Text[i].dwFourCC = ZMV_FOURCC('G', 'P', 'S', ' ');
    info.m_Text[i].dwRate = 10000;
    info.m_Text[i].dwTimeScale = kTextTimeScale;
  }
  software.copy(info.szSoftware, sizeof(info.szSoftware) - 1);
  return info;
}

inline MediaFrame SmallPicture(int64_t index) {
  return {ZMV_MEDIA_VIDEO,
          0,
          index * 1000000 / 30,
          index % 30 == 0,
          {0, 0, 0, 1, 0x65, static_cast<uint8_t>(1 + index % 200), static_cast<uint8_t>(1 + index / 200 % 200)}};
}

inline MediaFrame SmallSound(int64_t index) {
  return {ZMV_MEDIA_AUDIO,
          0,
          index * 1024 * 1000000 / kSmallSampleRate,
          true,
          {static_cast<uint8_t>(index), static_cast<uint8_t>(index >> 8), 0x5A}};
}

inline MediaFrame SmallText(int64_t time_us, Bytes payload, uint32_t track = 0) {
  return {ZMV_MEDIA_TEXT, track, time_us, true, std::move(payload)};
}

inline Bytes PayloadOf(const GpsPoint& point) {
  const TelemetryPayload payload = PackTelemetry(point);
  return Bytes(payload.begin(), payload.end());
}

// Three pictures, three sound frames, and `payloads` a second apart as text; an AVI when `path` ends in .avi.
inline void WriteSmallRecording(const std::string& path, const std::vector<Bytes>& payloads,
                                const std::string& software = "F test") {
  Console console;
  RecorderOptions options;
  options.path = path;
  options.container = ContainerOfName(path);
  options.force = true;
  Recorder recorder(options, SmallInfo(software), {33333, kSmallAudioFrameUs, 1000000}, console);
  for (int64_t i = 0; i < 3; ++i) {
    recorder.Write(SmallPicture(i));
    recorder.Write(SmallSound(i));
  }
  int64_t time_us = 0;
  for (const Bytes& payload : payloads) {
    recorder.Write(SmallText(time_us, payload));
    time_us += 1000000;
  }
  recorder.Finish();
}

}  // namespace zmv::tool

#endif
