#include "tools/zmv/playback.h"

#include <fmt/core.h>

#include "base/zmv_result.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr size_t kFirstBuffer = size_t{256} << 10;

}  // namespace

const char* MediaName(uint32_t media) {
  if (media == ZMV_MEDIA_VIDEO) return "video";
  return media == ZMV_MEDIA_AUDIO ? "audio" : "text";
}

Playback::Playback(const std::string& path) : path_(path), buffer_(kFirstBuffer) {
  ZMVReaderParam param{};
  param.pszPath = path_.c_str();
  int32_t result = ZMVReaderOpen(&reader_, &param);
  if (result < 0) {
    const auto code = static_cast<uint32_t>(result);
    const bool foreign = code == ZMV_E_UNSUPPORTED_FORMAT || code == ZMV_E_READ;
    throw LibraryError(path_, "cannot be played", result, foreign ? kExitNotRecording : kExitFailed);
  }
  result = ZMVReaderGetInfo(reader_, &info_);
  if (result < 0) {
    ZMVReaderClose(reader_);
    throw LibraryError(path_, "its description cannot be read", result, kExitDamaged);
  }
}

Playback::~Playback() { ZMVReaderClose(reader_); }

uint32_t Playback::TrackCount(uint32_t media) const {
  if (media == ZMV_MEDIA_VIDEO) return info_.dwVideoCount;
  return media == ZMV_MEDIA_AUDIO ? info_.dwAudioCount : info_.dwTextCount;
}

uint32_t Playback::FrameCount(uint32_t media, uint32_t track) const {
  if (track >= TrackCount(media)) return 0;
  if (media == ZMV_MEDIA_VIDEO) return info_.m_Video[track].dwFrames;
  return media == ZMV_MEDIA_AUDIO ? info_.m_Audio.dwFrames : info_.m_Text[track].dwFrames;
}

bool Playback::Read(uint32_t media, uint32_t track, ZMVFrame& frame) {
  while (true) {
    frame = ZMVFrame{};
    frame.dwMediaType = media;
    frame.dwTrack = track;
    frame.pData = buffer_.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
    const int32_t result = ZMVReaderReadFrame(reader_, &frame);
    const auto code = static_cast<uint32_t>(result);
    if (code == ZMV_E_END) return false;
    if ((code == ZMV_E_MP4_BUFFER || code == ZMV_E_AVI_BUFFER) && frame.dwBufSize > buffer_.size()) {
      buffer_.resize(frame.dwBufSize);
      continue;
    }
    if (result < 0) {
      throw LibraryError(path_, fmt::format("{} {}: a frame cannot be read", MediaName(media), track), result,
                         kExitDamaged);
    }
    return true;
  }
}

}  // namespace zmv::tool
