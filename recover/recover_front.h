// The boxes in front of the media data of an MP4 recording: what they say about its streams.
#ifndef ZMV_RECOVER_FRONT_H
#define ZMV_RECOVER_FRONT_H

#include <cstdint>

#include "recover/recover_window.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

struct Front {
  ZMVFileInfo info;     // the streams, in the form in which they can be handed to the writer
  bool sound;           // the boxes follow each other from ftyp to mdat without a gap
  uint64_t mdat;        // position of the header of the media data; 0 = not found
  uint32_t mdat_size;   // as the header states it; 8 until the file was closed
  bool recovery_brand;  // the random box says "rcvf"
  bool described_video[ZMV_MAX_VIDEO];
  bool described_audio;
  bool described_text[ZMV_MAX_TEXT];
};

// Reads the front of a file. True when it is, or may be, a recording of this library: false for other files.
bool ReadFront(Window& window, Front& front);

}  // namespace zmv::recover

#endif
