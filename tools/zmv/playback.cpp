#include "tools/zmv/playback.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/zmv_result.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/tool_error.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

constexpr size_t kFirstBuffer = size_t{256} << 10;
constexpr uint32_t kPicturesToLearnFrom = 256;
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

// Format chunks are filled up with zeros; a parameter set never ends in one.
void TrimConfiguration(ZMVVideoInfo& video) {
  if (!CodecOf(video.dwFourCC)) return;
  while (video.dwExtraDataSize > 0 && video.abExtraData[video.dwExtraDataSize - 1] == 0) --video.dwExtraDataSize;
}

}  // namespace

const char* MediaName(uint32_t media) {
  if (media == ZMV_MEDIA_VIDEO) return "video";
  return media == ZMV_MEDIA_AUDIO ? "audio" : "text";
}

Playback::Playback(const std::string& path) : path_(path), map_(ScanFile(path)), buffer_(kFirstBuffer) {
  Open();
  if (map_.container == Container::kAvi) CompleteAvi();
}

void Playback::Open() {
  ZMVReaderParam param{};
  param.pszPath = path_.c_str();
  ZMVReader* opened = nullptr;
  int32_t result = ZMVReaderOpen(&opened, &param);
  reader_.reset(opened);
  if (result < 0) {
    const auto code = static_cast<uint32_t>(result);
    const bool foreign = code == ZMV_E_UNSUPPORTED_FORMAT || code == ZMV_E_READ;
    throw LibraryError(path_, "cannot be played", result, foreign ? kExitNotRecording : kExitFailed);
  }
  result = ZMVReaderGetInfo(opened, &info_);
  if (result < 0) throw NoDescription(path_, result);
}

void Playback::CompleteAvi() {
  tracks_ = CountRiffFrames(path_, map_);
  info_.dwDuration = 0;
  for (const RiffTrack& entry : tracks_) {
    if (entry.track >= TrackCount(entry.stream.media)) continue;
    const auto frames = static_cast<uint32_t>(entry.frames);
    const auto duration = static_cast<uint32_t>(entry.DurationMs());
    info_.dwDuration = std::max(info_.dwDuration, duration);
    if (entry.stream.media == ZMV_MEDIA_VIDEO) {
      TrimConfiguration(info_.m_Video[entry.track]);
      info_.m_Video[entry.track].dwFrames = frames;
      info_.m_Video[entry.track].dwDuration = duration;
    } else if (entry.stream.media == ZMV_MEDIA_AUDIO) {
      info_.m_Audio.dwFrames = frames;
      info_.m_Audio.dwDuration = duration;
    } else {
      info_.m_Text[entry.track].dwFourCC = entry.stream.handler;
      info_.m_Text[entry.track].dwFrames = frames;
      info_.m_Text[entry.track].dwDuration = duration;
    }
  }
  const bool learn = std::any_of(info_.m_Video, info_.m_Video + info_.dwVideoCount,
                                 [](const ZMVVideoInfo& video) { return video.dwExtraDataSize == 0; });
  if (!learn) return;
  for (uint32_t track = 0; track < info_.dwVideoCount; ++track) LearnParameterSets(track);
  // From the start again.
  const ZMVFileInfo complete = info_;
  Open();
  info_ = complete;
}

// AVI files carry the parameter sets of H.264 in their key frames.
void Playback::LearnParameterSets(uint32_t track) {
  ZMVVideoInfo& video = info_.m_Video[track];
  const std::optional<VideoCodec> codec = CodecOf(video.dwFourCC);
  if (!codec || video.dwExtraDataSize != 0) return;
  PictureFilter filter(*codec);
  ZMVFrame frame;
  for (uint32_t i = 0; i < kPicturesToLearnFrom && *filter.Missing() != '\0'; ++i) {
    if (TryRead(ZMV_MEDIA_VIDEO, track, frame) != Found::kFrame) break;
    filter.Learn(Payload(frame));
  }
  const Bytes sets = filter.ParameterSets();
  if (sets.size() > sizeof(video.abExtraData)) return;
  std::copy(sets.begin(), sets.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
}

const RiffTrack* Playback::Riff(uint32_t media, uint32_t track) const {
  const auto at = std::find_if(tracks_.begin(), tracks_.end(), [&](const RiffTrack& entry) {
    return entry.stream.media == media && entry.track == track;
  });
  return at == tracks_.end() ? nullptr : &*at;
}

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

// Of a track that is not there an AVI has frames without content, and text frames cannot be found by scanning.
bool Playback::IsSilent(uint32_t media, uint32_t track) const {
  if (map_.container != Container::kAvi) return false;
  return track >= TrackCount(media) || (media == ZMV_MEDIA_TEXT && map_.index.empty());
}

Playback::Found Playback::TryRead(uint32_t media, uint32_t track, ZMVFrame& frame) {
  if (IsSilent(media, track)) return Found::kEnd;
  while (true) {
    frame = ZMVFrame{};
    frame.dwMediaType = media;
    frame.dwTrack = track;
    frame.pData = buffer_.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
    const int32_t result = ZMVReaderReadFrame(reader_.get(), &frame);
    const auto code = static_cast<uint32_t>(result);
    if (code == ZMV_E_END) return Found::kEnd;
    if ((code == ZMV_E_MP4_BUFFER || code == ZMV_E_AVI_BUFFER) && frame.dwBufSize > buffer_.size()) {
      buffer_.resize(frame.dwBufSize);
      continue;
    }
    last_result_ = result;
    if (result < 0) return Found::kLost;
    TellKeyFrame(frame);
    return Found::kFrame;
  }
}

// Scanning does not tell which frames are key frames; pictures do it themselves.
void Playback::TellKeyFrame(ZMVFrame& frame) const {
  if (map_.container != Container::kAvi || !map_.index.empty()) return;
  frame.dwKeyFrame = ZMV_KEY_FRAME;
  if (frame.dwMediaType != ZMV_MEDIA_VIDEO) return;
  const std::optional<VideoCodec> codec = CodecOf(info_.m_Video[frame.dwTrack].dwFourCC);
  if (!codec) return;
  const std::vector<ByteView> nals = SplitNals(Payload(frame));
  const bool key = std::any_of(nals.begin(), nals.end(), [&](ByteView nal) { return IsRandomAccess(*codec, nal); });
  frame.dwKeyFrame = key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
}

}  // namespace zmv::tool
