// A recording of a few frames through the façades.
#ifndef ZMV_TESTS_FACADE_SMALL_RECORDING_H
#define ZMV_TESTS_FACADE_SMALL_RECORDING_H

#include <cstring>

#include "base/fourcc.h"
#include "facade/zmvstream_reader.h"
#include "facade/zmvstream_writer.h"
#include "tests/facade/test_stream.h"

namespace zmv::test {

inline constexpr uint32_t kSmallFrames = 3;
inline constexpr uint32_t kSmallFrameMs = 40;

inline ZMVWriterParam SmallParam(const char* path) {
  ZMVWriterParam param{};
  param.dwFormat = ZMV_FORMAT_MP4;
  param.pszPath = path;
  param.bInterleave = 1;
  return param;
}

// One H.264 and one AAC stream.
inline ZMVFileInfo SmallInfo() {
  static const ByteVector kParameters =
      Hex("00 00 00 01 67 42 C0 0A DA 10 8D 80 6D 0A 13 50"  // sequence parameters
          "00 00 00 01 68 CE 3C 80");                        // picture parameters
  ZMVFileInfo info{};
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = info.dwAudioCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = FourCC("H264");
  video.dwWidth = 64;
  video.dwHeight = 48;
  video.dwFrameRate = 25000;
  std::memcpy(video.abExtraData, kParameters.data(), kParameters.size());
  video.dwExtraDataSize = static_cast<uint32_t>(kParameters.size());
  ZMVAudioInfo& audio = info.m_Audio;
  audio.dwFormat = ZMV_AUDIO_AAC;
  audio.dwSampleRate = 48000;
  audio.dwChannels = 2;
  audio.dwBitsPerSample = 16;
  audio.abExtraData[0] = 0x11;
  audio.abExtraData[1] = 0x90;
  audio.dwExtraDataSize = 2;
  return info;
}

// Payload of frame `number` of a medium, recognisable and of a size of its own.
inline ByteVector SmallPayload(uint32_t media, uint32_t number) {
  ByteVector payload = media == ZMV_MEDIA_VIDEO ? Hex("00 00 00 01 65") : Hex("21");
  payload.insert(payload.end(), 10 + media + number, static_cast<uint8_t>(0x10 * media + number));
  return payload;
}

inline int32_t WriteSmallFrame(ZMVWriter* writer, uint32_t media, uint32_t number) {
  ByteVector payload = SmallPayload(media, number);
  ZMVFrame frame{};
  frame.pData = payload.data();
  frame.dwSize = static_cast<uint32_t>(payload.size());
  frame.dwMediaType = media;
  frame.llTimeStamp = number * kSmallFrameMs;
  frame.dwDuration = media == ZMV_MEDIA_VIDEO ? kSmallFrameMs * 1000 : kSmallFrameMs;
  frame.dwKeyFrame = number == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  return ZMVWriterWrite(writer, &frame);
}

// Records kSmallFrames frames of each medium; the first failure, or 0.
inline int32_t RecordSmall(const char* path) {
  const ZMVWriterParam param = SmallParam(path);
  ZMVFileInfo info = SmallInfo();
  ZMVWriter* writer = nullptr;
  int32_t result = ZMVWriterOpen(&writer, &param);
  if (result < 0) return result;
  result = ZMVWriterSetInfo(writer, &info, 0);
  for (uint32_t i = 0; i < kSmallFrames && result >= 0; ++i) {
    result = WriteSmallFrame(writer, ZMV_MEDIA_VIDEO, i);
    if (result >= 0) result = WriteSmallFrame(writer, ZMV_MEDIA_AUDIO, i);
  }
  ZMVWriterClose(writer);
  return result;
}

}  // namespace zmv::test

#endif
