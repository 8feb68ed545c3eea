// Brings the streams of several inputs together in the order of time.
#ifndef ZMV_TOOLS_FRAME_MERGER_H
#define ZMV_TOOLS_FRAME_MERGER_H

#include <deque>
#include <memory>
#include <vector>

#include "tools/zmv/media_source.h"

namespace zmv::tool {

class FrameMerger {
 public:
  // A stream of a source and its track in the recording.
  struct Track {
    MediaSource* source = nullptr;
    uint32_t stream = 0;
    uint32_t media = 0;
    uint32_t track = 0;
  };

  explicit FrameMerger(const std::vector<Track>& tracks);

  // The frame with the lowest time over all tracks, video first among equals; its `stream` is the track within the
  // medium. False when every source has ended.
  bool Next(MediaFrame& frame);

  // End of the media so far: the highest time of a frame handed out.
  int64_t last_us() const { return last_us_; }

 private:
  struct Queue {
    Track track;
    std::deque<MediaFrame> frames;
    bool ended = false;
  };

  void Fill(Queue& queue);
  size_t QueuedBytes(const MediaSource* source) const;

  std::vector<Queue> queues_;
  int64_t last_us_ = 0;
};

}  // namespace zmv::tool

#endif
