// Writes small recordings for the fuzz targets to start from:  fuzz_seeds FOLDER
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/fourcc.h"
#include "facade/zmvstream_writer.h"

namespace {

ZMVFileInfo Describe() {
  ZMVFileInfo info = {};
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = info.dwAudioCount = info.dwTextCount = 1;
  info.szSoftware[0] = 'F';
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = zmv::FourCC("H264");
  video.dwWidth = 64;
  video.dwHeight = 48;
  video.dwFrameRate = 1000;
  info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
  info.m_Audio.dwSampleRate = 48000;
  info.m_Audio.dwChannels = 2;
  info.m_Audio.dwBitsPerSample = 16;
  info.m_Text[0].dwFourCC = zmv::FourCC("text");
  info.m_Text[0].dwRate = 1000;
  return info;
}

int32_t Write(ZMVWriter* writer, uint32_t media, uint32_t size, uint64_t time, uint32_t duration) {
  std::vector<uint8_t> payload(size, static_cast<uint8_t>(time | 1));
  if (media == ZMV_MEDIA_VIDEO) std::memcpy(payload.data(), "\0\0\0\1", 4);
  ZMVFrame frame = {};
  frame.pData = payload.data();
  frame.dwSize = size;
  frame.llTimeStamp = time;
  frame.dwDuration = duration;
  frame.dwMediaType = media;
  frame.dwKeyFrame = time == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  return ZMVWriterWrite(writer, &frame);
}

int32_t Record(const std::string& path, uint32_t rounds, uint8_t interleave, uint32_t format = ZMV_FORMAT_MP4) {
  ZMVFileInfo info = Describe();
  ZMVWriterParam param = {};
  param.dwFormat = format;
  param.pszPath = path.c_str();
  param.bInterleave = interleave;
  param.llExpire = 1;
  ZMVWriter* writer = nullptr;
  int32_t result = ZMVWriterOpen(&writer, &param);
  if (result < 0) return result;
  result = ZMVWriterSetInfo(writer, &info, 0);
  for (uint32_t i = 0; result >= 0 && i < rounds; ++i) {
    result = Write(writer, ZMV_MEDIA_VIDEO, 30 + 7 * i, 40 * i, 40000 + i);
    if (result >= 0) result = Write(writer, ZMV_MEDIA_AUDIO, 10 + i, 40 * i, 40);
    if (result >= 0) result = Write(writer, ZMV_MEDIA_TEXT, 92, 40 * i, 40);
  }
  ZMVWriterClose(writer);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
    return 2;
  }
  const std::string folder = argv[1];
  const bool done = Record(folder + "/seed_small.mp4", 3, 1) >= 0 && Record(folder + "/seed_spills.mp4", 14, 1) >= 0 &&
                    Record(folder + "/seed_chunks.mp4", 14, 0) >= 0 &&
                    Record(folder + "/seed_small.avi", 6, 1, ZMV_FORMAT_AVI) >= 0;
  return done ? 0 : 1;
}
