// The sample streams as frames, and recordings of them through the writer facade. Works on any host.
#ifndef ZMV_TESTS_SAMPLE_RECORDING_H
#define ZMV_TESTS_SAMPLE_RECORDING_H

#include <cstdint>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "facade/zmvstream_writer.h"

namespace zmv::test {

// One frame as it is handed to the writer.
struct SampleFrame {
  uint32_t media = ZMV_MEDIA_VIDEO;
  uint64_t time_ms = 0;
  uint32_t duration = 0;  // microseconds for video, else milliseconds
  bool key = true;
  std::vector<uint8_t> payload;
};

struct SampleStream {
  uint32_t fourcc = 0;              // or the audio format
  std::vector<uint8_t> parameters;  // parameter sets behind start codes, or the audio configuration
  std::vector<SampleFrame> frames;
};

// The folder of the samples, from the environment of the test run.
std::string SamplesFolder();
// Throws when there is nothing to read.
std::vector<uint8_t> ReadWholeFile(const std::string& path);

// Annex B video at 30 frames a second, one slice a picture; everything that is no slice and no parameter set is left
// out.
SampleStream LoadH264(const std::string& name);
SampleStream LoadHevc(const std::string& name);
// ADTS audio at 48 kHz.
SampleStream LoadAac(const std::string& name);
// A text track of `seconds` x `rate` frames that carry 92-byte position and sensor blocks.
SampleStream MakeGpsText(uint32_t seconds, uint32_t rate);

// What a recording is made of; absent streams are null.
struct SampleSet {
  const SampleStream* video = nullptr;
  const SampleStream* audio = nullptr;
  const SampleStream* text = nullptr;
  uint32_t width = 640;
  uint32_t height = 360;
  uint64_t expire_ms = 0;
  uint8_t interleave = 1;
  uint32_t projection = 0;  // of the video
};

ZMVFileInfo DescribeSamples(const SampleSet& set);
// All frames of the set in the order of their times, video before audio before text on a tie.
std::vector<const SampleFrame*> MergeSamples(const SampleSet& set);
// Records the set into an MP4 at `path`; the first negative code, or 0.
int32_t RecordSamples(const std::string& path, const SampleSet& set);

}  // namespace zmv::test

#endif
