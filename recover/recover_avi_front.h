// The headers in front of the frames of an AVI recording: what they say about its streams, and where the words stand
// that closing sets.
#ifndef ZMV_RECOVER_AVI_FRONT_H
#define ZMV_RECOVER_AVI_FRONT_H

#include <cstdint>

#include "avi/zmv_avi_format.h"
#include "base/host_memory.h"
#include "recover/recover_front.h"
#include "recover/recover_window.h"

namespace zmv::recover {

// A stream in the order of the headers, which is what chunks are named by.
struct AviStream {
  uint32_t media = 0;  // ZMV_MEDIA_*; 0 = there is no such stream
  uint32_t track = 0;  // within its medium
  uint32_t code = 0;   // codec of video, format of audio
  uint32_t scale = 0;  // `rate` frames, or samples, in `scale` seconds
  uint32_t rate = 0;
  uint32_t sample_size = 0;  // not 0: bytes of a sample, and the rate counts samples
  uint64_t header = 0;       // position of the data of "strh"
};

struct AviFront {
  // Of the fields, mdat is the position of the header of the movi list (0: it is lost) and mdat_size the size stated
  // there, 0 until the file was closed; `end` is where the first chunk stands, or is to be looked for from. The
  // pointers in `info` point at `name` and `extra`.
  Front front = {};
  AviStream streams[avi::kMaxStreams] = {};
  uint32_t stream_count = 0;
  uint64_t main_header = 0;  // position of the data of "avih"
  HostMemory<uint8_t> name;
  HostMemory<uint8_t> extra;
  int32_t error = 0;  // ZMV_E_MEMORY when there was none for these two
};

// Whether the file begins as an AVI file does, or its beginning is damaged and chunks with frames follow. 0 or a
// negative code.
int32_t RecogniseAvi(File& file, bool& recognised);

// Reads the front of a file. False for files that are not of this library's making, and when the window or the front
// has an error.
bool ReadAviFront(Window& window, AviFront& front);

// Adds streams that no header describes: `media` of their numbers, 0 where there is none. Their descriptions are taken
// from `given` (may be null), else plain ones.
void AddAviStreams(const uint32_t (&media)[avi::kMaxStreams], const ZMVFileInfo* given, AviFront& front);

}  // namespace zmv::recover

#endif
