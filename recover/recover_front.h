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
  bool cut;             // sound as far as it goes: the file ends within these boxes
  bool own;             // something in it is this library's without a doubt
  uint64_t mdat;        // position of the header of the media data; 0 = not found
  uint32_t mdat_size;   // as the header states it; 8 until the file was closed
  uint64_t end;         // where the media data is to be looked for: behind mdat's header, or behind the last box found
  bool recovery_brand;  // the random box says "rcvf"; info.szSoftware then says so to the writer
  bool described_video[ZMV_MAX_VIDEO];
  bool described_audio;
  bool described_text[ZMV_MAX_TEXT];
  // Of the descriptions so many stand behind a damaged stretch: their numbers are certain only when none is missing.
  uint32_t late_video;
  uint32_t late_text;
};

// Reads the front of a file. True when it is, or may be, a recording of this library: false for other files, and when
// the window has an error.
bool ReadFront(Window& window, Front& front);

// Numbers and completes the descriptions, once the streams that there are frames of are known. What is not described
// takes its description from `given` (may be null), else a plain one.
void SettleDescriptions(const ZMVRecoverReport& report, const ZMVFileInfo* given, Front& front);

// True for the codes of video whose payloads begin with the length of what follows.
bool BeginsWithLength(uint32_t code);
// True for media in which a long run of zero bytes is damage: not for samples of sound as they are, nor for text.
bool IsCompressedAudio(uint32_t format);

}  // namespace zmv::recover

#endif
