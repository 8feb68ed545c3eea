// The contenders: the library, libavformat, and plain file access, each doing the same work on the same frames.
#ifndef ZMV_BENCH_CONTENDER_H
#define ZMV_BENCH_CONTENDER_H

#include <cstdint>
#include <string>

#include "bench/workload.h"

namespace zmv::bench {

// A container format and the names it has for each side.
struct Container {
  const char* name;
  uint32_t format;        // ZMV_FORMAT_*
  const char* extension;  // with the dot
  const char* muxer;      // libavformat's name
  int video_scale;        // ticks a second given to libavformat: its AVI writer fills what lies between frames
};

extern const Container kMp4;
extern const Container kAvi;

struct Task {
  const Container* container = nullptr;
  const Profile* profile = nullptr;
  uint32_t minutes = 0;
  std::string path;
  uint32_t repeats = 1;     // opening and seeking
  bool account = false;     // count the library's allocations
  bool one_by_one = false;  // libavformat's writer: av_write_frame() in place of av_interleaved_write_frame()
};

// What one run of a contender found. Plain data: it comes through a pipe.
struct Sample {
  uint64_t frames = 0;      // opening: of no meaning; seeking: one for every seek
  uint64_t bytes = 0;       // of payload
  double cpu_ns = 0;        // the whole task; opening: one opening; seeking: all seeks, without the opening
  double close_ns = 0;      // finishing a recording
  int64_t memory = 0;       // growth of the process in bytes: while writing or reading, or by opening
  int64_t peak_memory = 0;  // the library's own account: most bytes in live blocks
  int64_t allocations = 0;  // the library's own account: between the first second and the last frame
  int64_t write_calls = 0;  // write system calls
};

// Each does one task in a process of its own and returns false when anything went wrong.
using Run = bool (*)(const Task& task, Sample& sample);

bool WriteLibrary(const Task& task, Sample& sample);
bool ReadLibrary(const Task& task, Sample& sample);
bool OpenLibrary(const Task& task, Sample& sample);
// Goes back to the key frame before each of `repeats` times and reads it.
bool SeekLibrary(const Task& task, Sample& sample);
// Reads the file and compares every frame with what was written.
bool CheckLibrary(const Task& task, Sample& sample);

bool WriteLibav(const Task& task, Sample& sample);
bool ReadLibav(const Task& task, Sample& sample);
bool OpenLibav(const Task& task, Sample& sample);
bool SeekLibav(const Task& task, Sample& sample);

// The payload bytes and nothing else, through a standard stream with a buffer of 64 KiB.
bool WritePlain(const Task& task, Sample& sample);
bool ReadPlain(const Task& task, Sample& sample);
// Makes the frames and drops them: what the others contain of that.
bool MakeFrames(const Task& task, Sample& sample);

}  // namespace zmv::bench

#endif
