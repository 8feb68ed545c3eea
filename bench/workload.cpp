#include "bench/workload.h"

#include <algorithm>
#include <cstring>

namespace zmv::bench {
namespace {

constexpr uint32_t kPoolSize = 327680;
constexpr uint32_t kPoolStarts = 262144;

constexpr uint8_t kSequenceParameters[] = {
    0,    0,    0,    1,     // start code
    0x67, 0x64, 0x00, 0x1e,  // sequence parameter set, High, level 3.0
    0xac, 0xb2, 0x01, 0x40, 0x5f, 0xf2, 0xe0, 0x22, 0x00, 0x00, 0x03, 0x00, 0x02,  // 640 x 360
    0x00, 0x00, 0x03, 0x00, 0x78, 0x1e, 0x2c, 0x5c, 0x90,                          // 30 frames per second
};
constexpr uint8_t kPictureParameters[] = {0, 0, 0, 1, 0x68, 0xeb, 0xcc, 0xb2, 0x2c};
constexpr uint8_t kAudioConfiguration[] = {0x11, 0x90};  // AAC-LC, 48 kHz, two channels

constexpr uint8_t kKeyHead[] = {0, 0, 0, 1, 0x65};
constexpr uint8_t kOtherHead[] = {0, 0, 0, 1, 0x41};
constexpr uint8_t kAudioHead[] = {0x21, 0x10};
constexpr uint32_t kIndexBytes = 5;
constexpr uint32_t kIndexBits = 7;

constexpr uint64_t kSeekStream = 100;  // of Draw(): no frame is drawn from it
constexpr uint32_t kSecond = 1000;
constexpr uint32_t kKeyDistance = 40;  // in milliseconds, above the duration of a frame

constexpr uint64_t Lcg(uint64_t x) { return x * 6364136223846793005u + 1442695040888963407u; }

constexpr uint64_t Draw(uint64_t seed, uint64_t stream, uint64_t index) {
  uint64_t x = Lcg(Lcg(seed) ^ stream << 56 ^ index);
  x ^= x >> 32;
  x = Lcg(x);
  x ^= x >> 29;
  x = Lcg(x);
  return x ^ x >> 32;
}

uint32_t Scale(uint64_t drawn, SizeRange range) {
  return range.low + static_cast<uint32_t>(((drawn >> 32) * (range.high - range.low + 1)) >> 32);
}

}  // namespace

const Profile kCamera = {"W1", 20240601, {36864, 45055}, {4096, 12287}, {256, 427}};
const Profile kTiny = {"W1s", 20240602, {152, 247}, {152, 247}, {84, 115}};

std::span<const uint8_t> SequenceParameters() { return kSequenceParameters; }
std::span<const uint8_t> PictureParameters() { return kPictureParameters; }
std::span<const uint8_t> AudioConfiguration() { return kAudioConfiguration; }

Workload::Workload(const Profile& profile, uint32_t minutes)
    : profile_(profile), end_(uint64_t{minutes} * 60 * kAudioRate), pool_(new uint8_t[kPoolSize]) {
  uint64_t x = 1;
  for (uint32_t i = 0; i < kPoolSize; ++i) {
    x = Lcg(x);
    pool_[i] = static_cast<uint8_t>(1 + (x >> 33) % 255);  // never 0: no accidental start codes
  }
}

Workload::~Workload() = default;

void Workload::TakeHeadBack() {
  if (head_ != nullptr) std::memcpy(head_, below_head_, kMaxHead);
}

void Workload::PutHead(Frame& frame) {
  TakeHeadBack();
  head_ = frame.data;
  std::memcpy(below_head_, head_, kMaxHead);
  uint8_t* to = frame.data;
  if (frame.stream == Stream::kAudio) {
    to = std::copy(std::begin(kAudioHead), std::end(kAudioHead), to);
  } else {
    const auto& head = frame.key ? kKeyHead : kOtherHead;
    to = std::copy(std::begin(head), std::end(head), to);
  }
  for (uint32_t i = kIndexBytes; i-- > 0;) {
    *to++ = static_cast<uint8_t>(0x80 | (uint64_t{frame.index} >> (i * kIndexBits) & 0x7F));
  }
}

bool Workload::Next(Frame& frame) {
  if (!clock_.Before(end_)) return false;
  const Stream stream = clock_.Next();
  clock_.Advance(stream);
  const bool video = stream == Stream::kVideo;
  const uint32_t index = next_[static_cast<uint32_t>(stream)]++;
  const uint64_t drawn = Draw(profile_.seed, static_cast<uint64_t>(stream), index);
  frame.stream = stream;
  frame.index = index;
  frame.key = !video || index % kKeyInterval == 0;
  frame.size = Scale(drawn, !video ? profile_.audio : frame.key ? profile_.key : profile_.other);
  frame.data = pool_.get() + (drawn & 0xFFFFFFFF) % kPoolStarts;
  PutHead(frame);
  return true;
}

uint32_t SeekTarget(const Profile& profile, uint32_t minutes, uint32_t index) {
  static_assert(kKeyInterval == kVideoRate, "a key frame every second");
  const uint32_t target = Scale(Draw(profile.seed, kSeekStream, index), {0, minutes * 60 * kSecond - 1});
  const uint32_t offset = target % kSecond;
  return target - offset + std::clamp(offset, kKeyDistance, kSecond - kKeyDistance);
}

uint32_t VideoIndexOf(const uint8_t* payload) {
  uint64_t index = 0;
  for (uint32_t i = 0; i < kIndexBytes; ++i) index = index << kIndexBits | (payload[sizeof kKeyHead + i] & 0x7F);
  return static_cast<uint32_t>(index);
}

Totals Count(const Profile& profile, uint32_t minutes) {
  Workload workload(profile, minutes);
  Totals totals;
  for (Frame frame; workload.Next(frame); ++totals.frames) totals.bytes += frame.size;
  return totals;
}

}  // namespace zmv::bench
