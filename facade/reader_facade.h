// What the source files of the reader façade share.
#ifndef ZMV_FACADE_READER_FACADE_H
#define ZMV_FACADE_READER_FACADE_H

#include "base/trace.h"
#include "facade/zmvstream_reader_records.h"

namespace zmv::facade {

inline constexpr TraceModule kReaderModule{"zmvstreamr", "zmvstream_reader"};

// The place of a medium (ZMV_MEDIA_*) in the per-media arrays; kReaderMediaCount for anything else.
constexpr uint32_t MediaSlot(uint32_t media) {
  switch (media) {
    case ZMV_MEDIA_AUDIO:
      return kReaderAudio;
    case ZMV_MEDIA_VIDEO:
      return kReaderVideo;
    case ZMV_MEDIA_TEXT:
      return kReaderText;
    default:
      return kReaderMediaCount;
  }
}

// Fills what the container left open: time scale, buffer sizes, durations of the streams.
void ApplyDefaults(ZMVFileInfo& info);

// Starts the thread that builds the container's index, once and only for a container that has one to build.
void StartIndexThread(ZMVReader& reader);
// Tells the index thread to stop and waits until it has ended; without a thread nothing is done.
void StopIndexThread(ZMVReader& reader);

}  // namespace zmv::facade

#endif
