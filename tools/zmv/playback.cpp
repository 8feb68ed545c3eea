#include "tools/zmv/playback.h"

#include <fmt/core.h>

#include "base/zmv_result.h"
#include "tools/zmv/tool_error.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

constexpr size_t kFirstBuffer = size_t{256} << 10;
constexpr const char* kReadableProjection = "circ";

// Why a file has no description. The reader knows one form of projection metadata and refuses a file with another.
ToolError NoDescription(const std::string& path, int32_t result) {
  if (static_cast<uint32_t>(result) == ZMV_E_FAIL) {
    StreamFile file(path);
    for (const TrackTables& tables : FindTables(file)) {
      if (tables.projection.empty() || tables.projection == kReadableProjection) continue;
      return ToolError(fmt::format("{}: its video carries projection metadata (\"{}\") that this reader cannot open; "
                                   "other players can, and circ is what can be played back here",
                                   path, tables.projection),
                       kExitNotRecording);
    }
  }
  return LibraryError(path, "its description cannot be read", result, kExitDamaged);
}

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
    throw NoDescription(path_, result);
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
  const Found found = TryRead(media, track, frame);
  if (found == Found::kLost) {
    throw LibraryError(path_, fmt::format("{} {}: a frame cannot be read", MediaName(media), track), last_result_,
                       kExitDamaged);
  }
  return found == Found::kFrame;
}

Playback::Found Playback::TryRead(uint32_t media, uint32_t track, ZMVFrame& frame) {
  while (true) {
    frame = ZMVFrame{};
    frame.dwMediaType = media;
    frame.dwTrack = track;
    frame.pData = buffer_.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
    const int32_t result = ZMVReaderReadFrame(reader_, &frame);
    const auto code = static_cast<uint32_t>(result);
    if (code == ZMV_E_END) return Found::kEnd;
    if ((code == ZMV_E_MP4_BUFFER || code == ZMV_E_AVI_BUFFER) && frame.dwBufSize > buffer_.size()) {
      buffer_.resize(frame.dwBufSize);
      continue;
    }
    last_result_ = result;
    return result < 0 ? Found::kLost : Found::kFrame;
  }
}

}  // namespace zmv::tool
