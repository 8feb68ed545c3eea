// One track of a recording, frame by frame, for `zmv remux`.
#ifndef ZMV_TOOLS_TRACK_SOURCE_H
#define ZMV_TOOLS_TRACK_SOURCE_H

#include <optional>
#include <vector>

#include "tools/zmv/media_source.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {

// `playback` must outlive the source.
class TrackSource : public MediaSource {
 public:
  TrackSource(Playback& playback, uint32_t media, uint32_t track);

  // For an MP4: other programs put comments and delimiters into their samples beside the picture, AVI files parameter
  // sets. Pictures of several units, and with parameter sets that are not among `parameter_sets`, are refused.
  void KeepPicturesOnly(VideoCodec codec, ByteView parameter_sets);
  // For raw audio in an MP4: every frame is as long as the first; a shorter last one is filled up with silence.
  void KeepFramesEqual() { equal_size_ = first_size(); }
  void Start() { has_ahead_ = Take(ahead_); }

  const std::vector<StreamDescription>& streams() const override { return streams_; }
  int64_t duration_us() const override;
  double progress() const override;
  bool Read(MediaFrame& frame) override;

  StreamDescription& description() { return streams_[0]; }
  uint32_t media() const { return streams_[0].media; }
  uint32_t track() const { return track_; }
  uint32_t promised() const { return playback_.FrameCount(media(), track_); }
  uint64_t taken() const { return taken_; }
  size_t first_size() const { return has_ahead_ ? ahead_.data.size() : 0; }

 private:
  bool Take(MediaFrame& out);
  Bytes PayloadOf(const ZMVFrame& frame);
  void FillUp(Bytes& payload);
  int64_t TimeOf(const ZMVFrame& frame) const;
  [[noreturn]] void Refuse(const char* what) const;

  Playback& playback_;
  uint32_t track_;
  std::vector<StreamDescription> streams_;
  MediaFrame ahead_;
  std::optional<PictureFilter> filter_;
  size_t equal_size_ = 0;
  bool filled_up_ = false;
  bool has_ahead_ = false;
  uint64_t tried_ = 0;
  uint64_t taken_ = 0;
  uint64_t bytes_ = 0;  // before the next frame
};

}  // namespace zmv::tool

#endif
