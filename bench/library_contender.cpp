#include <algorithm>
#include <cstring>
#include <vector>

#include "base/zmv_result.h"
#include "bench/contender.h"
#include "bench/meter.h"
#include "facade/zmvstream_reader.h"
#include "facade/zmvstream_writer.h"
#include "platform/zmv_host.h"

namespace zmv::bench {
namespace {

constexpr uint32_t kFileTypeMp41 = 1;
constexpr uint8_t kBackward = 0;
constexpr size_t kReadBuffer = size_t{256} << 10;
// Frames until everything that is made only once exists.
constexpr uint64_t kWarmUpFrames = 100;

// In turn, so that stamps do not drift from the frames' positions.
constexpr uint32_t kVideoMicroseconds[] = {33333, 33333, 33334};
constexpr uint32_t kVideoMilliseconds[] = {33, 33, 34};
constexpr uint32_t kAudioMilliseconds[] = {21, 21, 22};

void Append(uint8_t* to, uint32_t& size, std::span<const uint8_t> bytes) {
  std::copy(bytes.begin(), bytes.end(), to + size);
  size += static_cast<uint32_t>(bytes.size());
}

ZMVFileInfo Describe() {
  ZMVFileInfo info{};
  info.m_dwFileType = kFileTypeMp41;
  info.dwTimeScale = kVideoScale;
  info.dwVideoCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  video.dwWidth = kWidth;
  video.dwHeight = kHeight;
  video.dwFrameRate = kVideoRate * 1000;
  video.dwTimeScale = kVideoScale;
  Append(video.abExtraData, video.dwExtraDataSize, SequenceParameters());
  Append(video.abExtraData, video.dwExtraDataSize, PictureParameters());
  info.dwAudioCount = 1;
  info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
  info.m_Audio.dwSampleRate = kAudioRate;
  info.m_Audio.dwChannels = 2;
  info.m_Audio.dwBitsPerSample = 16;
  info.m_Audio.dwSamplesPerFrame = kAudioSamples;
  info.m_Audio.dwBitRate = 128000;
  Append(info.m_Audio.abExtraData, info.m_Audio.dwExtraDataSize, AudioConfiguration());
  return info;
}

int64_t Allocations() {
  ZMVHostMemoryUse use{};
  ZMVHost_MemoryUse(&use);
  return static_cast<int64_t>(use.allocations);
}

int64_t PeakBytes() {
  ZMVHostMemoryUse use{};
  ZMVHost_MemoryUse(&use);
  return static_cast<int64_t>(use.peakBytes);
}

class Writer {
 public:
  ~Writer() { ZMVWriterClose(writer_); }
  bool Open(const Task& task) {
    video_in_microseconds_ = task.container->format == ZMV_FORMAT_MP4;
    ZMVWriterParam param{};
    param.dwFormat = task.container->format;
    param.pszPath = task.path.c_str();
    param.bInterleave = 1;
    ZMVFileInfo info = Describe();
    return ZMVWriterOpen(&writer_, &param) >= 0 && ZMVWriterSetInfo(writer_, &info, 0) >= 0;
  }
  bool Write(const Frame& made) {
    ZMVFrame frame{};
    frame.pData = made.data;
    frame.dwSize = made.size;
    const auto& video = video_in_microseconds_ ? kVideoMicroseconds : kVideoMilliseconds;
    const uint32_t turn = made.index % 3;
    if (made.stream == Stream::kVideo) {
      frame.dwMediaType = ZMV_MEDIA_VIDEO;
      frame.llTimeStamp = uint64_t{made.index} * 1000 / kVideoRate;
      frame.dwDuration = video[turn];
      frame.dwKeyFrame = made.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    } else {
      frame.dwMediaType = ZMV_MEDIA_AUDIO;
      frame.llTimeStamp = uint64_t{made.index} * kAudioSamples * 1000 / kAudioRate;
      frame.dwDuration = kAudioMilliseconds[turn];
      frame.dwKeyFrame = ZMV_KEY_FRAME;
    }
    return ZMVWriterWrite(writer_, &frame) >= 0;
  }
  void Close() {
    ZMVWriterClose(writer_);
    writer_ = nullptr;
  }

 private:
  ZMVWriter* writer_ = nullptr;
  bool video_in_microseconds_ = false;  // durations; AVI takes milliseconds
};

class Reader {
 public:
  ~Reader() { ZMVReaderClose(reader_); }
  bool Open(const Task& task) {
    ZMVReaderParam param{};
    param.pszPath = task.path.c_str();
    return ZMVReaderOpen(&reader_, &param) >= 0 && ZMVReaderGetInfo(reader_, &info_) >= 0;
  }
  // The next frame of the stream whose turn it is, into `buffer`. False at the end, and on a failure, which Failed()
  // then tells.
  bool Read(std::vector<uint8_t>& buffer, ZMVFrame& frame) {
    while (ended_[0] == 0 || ended_[1] == 0) {
      Stream stream = clock_.Next();
      if (ended_[static_cast<size_t>(stream)] != 0) stream = stream == Stream::kVideo ? Stream::kAudio : Stream::kVideo;
      clock_.Advance(stream);
      frame.dwTrack = 0;
      frame.dwMediaType = stream == Stream::kVideo ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      const int32_t result = ZMVReaderReadFrame(reader_, &frame);
      if (result >= 0) return true;
      failed_ = failed_ || static_cast<uint32_t>(result) != ZMV_E_END;
      ended_[static_cast<size_t>(stream)] = 1;
    }
    return false;
  }
  // The key frame before a time, into `buffer`.
  bool ReadKeyFrameBefore(uint32_t milliseconds, std::vector<uint8_t>& buffer, ZMVFrame& frame) {
    if (ZMVReaderSeekByKeyFrame(reader_, &milliseconds, kBackward) == 0) return false;
    frame.dwTrack = 0;
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    return ZMVReaderReadFrame(reader_, &frame) >= 0;
  }
  bool Failed() const { return failed_; }
  void Close() {
    ZMVReaderClose(reader_);
    reader_ = nullptr;
  }

 private:
  ZMVReader* reader_ = nullptr;
  ZMVFileInfo info_{};
  MergeClock clock_;
  uint8_t ended_[2] = {};
  bool failed_ = false;
};

}  // namespace

bool WriteLibrary(const Task& task, Sample& sample) {
  Workload workload(*task.profile, task.minutes);
  ZMVHost_MemoryAccount(task.account ? 1 : 0);
  const int64_t calls = WriteCalls();
  const int64_t memory = AnonymousBytes();
  int64_t allocations = 0;
  CpuMeter cpu;
  cpu.Start();
  Writer writer;
  if (!writer.Open(task)) return false;
  for (Frame frame; workload.Next(frame); ++sample.frames) {
    if (sample.frames == kWarmUpFrames && task.account) allocations = Allocations();
    if (!writer.Write(frame)) return false;
    sample.bytes += frame.size;
  }
  cpu.Stop();
  if (task.account) sample.allocations = Allocations() - allocations;
  sample.memory = AnonymousBytes() - memory;
  CpuMeter close;
  close.Start();
  writer.Close();
  close.Stop();
  sample.write_calls = WriteCalls() - calls;
  if (task.account) sample.peak_memory = PeakBytes();
  sample.close_ns = close.Nanoseconds();
  sample.cpu_ns = cpu.Nanoseconds() + sample.close_ns;
  return true;
}

bool ReadLibrary(const Task& task, Sample& sample) {
  std::vector<uint8_t> buffer(kReadBuffer);
  ZMVHost_MemoryAccount(task.account ? 1 : 0);
  const int64_t memory = AnonymousBytes();
  int64_t allocations = 0;
  CpuMeter cpu;
  cpu.Start();
  Reader reader;
  if (!reader.Open(task)) return false;
  ZMVFrame frame{};
  for (; reader.Read(buffer, frame); ++sample.frames) {
    if (sample.frames == kWarmUpFrames && task.account) allocations = Allocations();
    sample.bytes += frame.dwSize;
  }
  cpu.Stop();
  if (task.account) {
    sample.allocations = Allocations() - allocations;
    sample.peak_memory = PeakBytes();
  }
  sample.memory = AnonymousBytes() - memory;
  cpu.Start();
  reader.Close();
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return !reader.Failed();
}

bool OpenLibrary(const Task& task, Sample& sample) {
  {
    const int64_t memory = AnonymousBytes();
    Reader reader;
    if (!reader.Open(task)) return false;
    sample.memory = AnonymousBytes() - memory;
  }
  CpuMeter cpu;
  cpu.Start();
  for (uint32_t i = 0; i < task.repeats; ++i) {
    Reader reader;
    if (!reader.Open(task)) return false;
  }
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds() / task.repeats;
  sample.frames = 1;
  return true;
}

bool SeekLibrary(const Task& task, Sample& sample) {
  std::vector<uint8_t> buffer(kReadBuffer);
  Reader reader;
  if (!reader.Open(task)) return false;
  ZMVFrame frame{};
  CpuMeter cpu;
  cpu.Start();
  for (; sample.frames < task.repeats; ++sample.frames) {
    const uint32_t target = SeekTarget(*task.profile, task.minutes, static_cast<uint32_t>(sample.frames));
    if (!reader.ReadKeyFrameBefore(target, buffer, frame)) return false;
    if (VideoIndexOf(buffer.data()) != KeyFrameBefore(target) || frame.dwKeyFrame != ZMV_KEY_FRAME) return false;
    sample.bytes += frame.dwSize;
  }
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return true;
}

bool CheckLibrary(const Task& task, Sample& sample) {
  Workload workload(*task.profile, task.minutes);
  std::vector<uint8_t> buffer(kReadBuffer);
  Reader reader;
  if (!reader.Open(task)) return false;
  Frame made;
  ZMVFrame frame{};
  for (; workload.Next(made); ++sample.frames) {
    if (!reader.Read(buffer, frame)) return false;
    const bool video = made.stream == Stream::kVideo;
    const bool key = frame.dwKeyFrame == ZMV_KEY_FRAME;
    if (frame.dwMediaType != (video ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO) || key != made.key) return false;
    if (frame.dwSize != made.size || std::memcmp(buffer.data(), made.data, made.size) != 0) return false;
    sample.bytes += frame.dwSize;
  }
  return !reader.Read(buffer, frame) && !reader.Failed();
}

}  // namespace zmv::bench
