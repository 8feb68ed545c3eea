// Writes small recordings for the fuzz targets to start from:  fuzz_seeds FOLDER
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
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

int32_t Record(const std::string& path, uint32_t rounds, uint8_t interleave, uint32_t format = ZMV_FORMAT_MP4,
               ZMVFileInfo info = Describe()) {
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

// HEVC with its configuration, PCM, and no text: the text frames go into the last stream.
ZMVFileInfo DescribeOthers() {
  ZMVFileInfo info = Describe();
  info.dwTextCount = 0;
  info.m_Video[0].dwFourCC = zmv::FourCC("H265");
  std::memcpy(info.m_Video[0].abExtraData, "\0\0\0\1\x40\1\x0C", 7);
  info.m_Video[0].dwExtraDataSize = 7;
  info.m_Audio.dwFormat = ZMV_AUDIO_PCM;
  return info;
}

// An AVI as a power cut leaves it: no sizes, no index, the last frame incomplete. Without its first sector, when
// `headless`.
bool CutAvi(const std::string& from, const std::string& to, bool headless) {
  constexpr size_t kSector = 512;
  constexpr char kMovi[] = "movi";
  constexpr char kIndex[] = "idx1";
  std::ifstream in(from, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t movi = bytes.find(kMovi);
  const size_t index = bytes.find(kIndex);
  if (index == std::string::npos || movi > index) return false;
  bytes.resize(index - 5);
  std::fill_n(bytes.begin() + 4, 4, '\0');
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(movi) - 4, 4, '\0');
  if (headless) std::fill_n(bytes.begin(), std::min(kSector, bytes.size()), '\0');
  return static_cast<bool>(std::ofstream(to, std::ios::binary) << bytes);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
    return 2;
  }
  const std::string folder = argv[1];
  const std::string avi = folder + "/seed_small.avi";
  const std::string others = folder + "/seed_others.avi";
  const bool done =
      Record(folder + "/seed_small.mp4", 3, 1) >= 0 && Record(folder + "/seed_spills.mp4", 14, 1) >= 0 &&
      Record(folder + "/seed_chunks.mp4", 14, 0) >= 0 && Record(avi, 6, 1, ZMV_FORMAT_AVI) >= 0 &&
      Record(others, 9, 1, ZMV_FORMAT_AVI, DescribeOthers()) >= 0 && CutAvi(avi, folder + "/seed_cut.avi", false) &&
      CutAvi(others, folder + "/seed_cut_others.avi", false) && CutAvi(avi, folder + "/seed_headless.avi", true);
  return done ? 0 : 1;
}
