// The recordings that are measured: 30 video frames a second with a key frame every second, and AAC at 48 kHz, merged
// by decoding time. Sizes and contents are drawn from the frame's number, so every run writes the same bytes.
#ifndef ZMV_BENCH_WORKLOAD_H
#define ZMV_BENCH_WORKLOAD_H

#include <cstdint>
#include <memory>
#include <span>

namespace zmv::bench {

constexpr uint32_t kVideoRate = 30;
constexpr uint32_t kKeyInterval = 30;
constexpr uint32_t kVideoScale = 90000;
constexpr uint32_t kAudioRate = 48000;
constexpr uint32_t kAudioSamples = 1024;
constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 360;

// Parameter sets behind 4-byte start codes, and an AAC-LC stereo configuration.
std::span<const uint8_t> SequenceParameters();
std::span<const uint8_t> PictureParameters();
std::span<const uint8_t> AudioConfiguration();

struct SizeRange {
  uint32_t low;
  uint32_t high;
};

struct Profile {
  const char* name;
  uint64_t seed;
  SizeRange key;
  SizeRange other;
  SizeRange audio;
};

extern const Profile kCamera;  // payloads of a camera: what moving bytes costs
extern const Profile kTiny;    // tiny frames: what a frame costs

enum class Stream : uint32_t { kVideo = 0, kAudio = 1 };

struct Frame {
  Stream stream;
  uint32_t index;  // within the stream
  bool key;
  uint8_t* data;  // valid until the next frame is made
  uint32_t size;
};

// The order of the two streams: the earlier decoding time first, video on a tie.
class MergeClock {
 public:
  Stream Next() const { return video_ <= audio_ ? Stream::kVideo : Stream::kAudio; }
  void Advance(Stream stream) {
    // Both counters stand in samples of the audio rate.
    (stream == Stream::kVideo ? video_ : audio_) += stream == Stream::kVideo ? kAudioRate / kVideoRate : kAudioSamples;
  }
  bool Before(uint64_t end) const { return video_ < end || audio_ < end; }

 private:
  uint64_t video_ = 0;
  uint64_t audio_ = 0;
};

class Workload {
 public:
  Workload(const Profile& profile, uint32_t minutes);
  ~Workload();
  Workload(const Workload&) = delete;
  Workload& operator=(const Workload&) = delete;

  // The next frame; false after the last one.
  bool Next(Frame& frame);

 private:
  void PutHead(Frame& frame);
  void TakeHeadBack();

  static constexpr uint32_t kMaxHead = 10;

  const Profile& profile_;
  const uint64_t end_;  // in samples of the audio rate
  std::unique_ptr<uint8_t[]> pool_;
  MergeClock clock_;
  uint32_t next_[2] = {};
  uint8_t* head_ = nullptr;
  uint8_t below_head_[kMaxHead];
};

// A time in milliseconds to seek to. It is more than a frame away from every key frame, so that rounding decides for
// nobody which one lies before it.
uint32_t SeekTarget(const Profile& profile, uint32_t minutes, uint32_t index);

// The index of the key frame that lies before a time.
constexpr uint32_t KeyFrameBefore(uint32_t milliseconds) { return milliseconds / 1000 * kVideoRate; }

// The index that a video payload carries, whatever its first four bytes are.
uint32_t VideoIndexOf(const uint8_t* payload);

struct Totals {
  uint64_t frames = 0;
  uint64_t bytes = 0;
};
Totals Count(const Profile& profile, uint32_t minutes);

}  // namespace zmv::bench

#endif
