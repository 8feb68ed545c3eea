// Recovering a cut recording, and the least that copying it can cost.
#ifndef ZMV_BENCH_RECOVER_CONTENDER_H
#define ZMV_BENCH_RECOVER_CONTENDER_H

#include <string>

#include "bench/contender.h"

namespace zmv::bench {

// Makes of an MP4 recording what a power cut behind its last frame leaves.
bool CutRecording(const std::string& path);

// Each leaves the cut recording at task.path as it was.
bool RecoverToFile(const Task& task, Sample& sample);
bool RecoverInPlace(const Task& task, Sample& sample);
// read() and write() of the same file, 64 KiB at a time.
bool CopyPlain(const Task& task, Sample& sample);

}  // namespace zmv::bench

#endif
