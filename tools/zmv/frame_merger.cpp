#include "tools/zmv/frame_merger.h"

#include <algorithm>

namespace zmv::tool {
namespace {

// A stream that has nothing for so long is not waited for: the frames of its neighbours have to be kept meanwhile.
constexpr size_t kMaxWaitingBytes = size_t{64} << 20;

}  // namespace

FrameMerger::FrameMerger(const std::vector<Track>& tracks) {
  for (const Track& track : tracks) queues_.push_back({track, {}, false});
}

size_t FrameMerger::QueuedBytes(const MediaSource* source) const {
  size_t bytes = 0;
  for (const Queue& queue : queues_) {
    if (queue.track.source != source) continue;
    for (const MediaFrame& frame : queue.frames) bytes += frame.data.size();
  }
  return bytes;
}

void FrameMerger::Fill(Queue& queue) {
  MediaSource* const source = queue.track.source;
  size_t waiting = QueuedBytes(source);
  while (queue.frames.empty() && waiting < kMaxWaitingBytes) {
    MediaFrame frame;
    if (!source->Read(frame)) {
      for (Queue& other : queues_) other.ended |= other.track.source == source;
      return;
    }
    waiting += frame.data.size();
    const auto owner = std::find_if(queues_.begin(), queues_.end(), [&](const Queue& other) {
      return other.track.source == source && other.track.stream == frame.stream;
    });
    if (owner != queues_.end()) owner->frames.push_back(std::move(frame));
  }
}

bool FrameMerger::Next(MediaFrame& frame) {
  Queue* first = nullptr;
  for (Queue& queue : queues_) {
    if (queue.frames.empty() && !queue.ended) Fill(queue);
    if (queue.frames.empty()) continue;
    const auto rank = [](const Queue& q) { return std::pair(q.frames.front().time_us, q.track.media); };
    if (first == nullptr || rank(queue) < rank(*first)) first = &queue;
  }
  if (first == nullptr) return false;
  frame = std::move(first->frames.front());
  first->frames.pop_front();
  frame.media = first->track.media;
  frame.stream = first->track.track;
  last_us_ = std::max(last_us_, frame.time_us);
  return true;
}

}  // namespace zmv::tool
