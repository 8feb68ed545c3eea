#include "bench/recover_contender.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "bench/meter.h"
#include "platform/zmv_host.h"
#include "recover/zmvrecover.h"

namespace zmv::bench {
namespace {

constexpr size_t kCopyBuffer = size_t{64} << 10;
constexpr size_t kBoxHeader = 8;
constexpr std::array<uint8_t, 4> kOpenSize = {0, 0, 0, kBoxHeader};

class Descriptor {
 public:
  Descriptor(const std::string& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

struct Box {
  off_t position = 0;
  off_t size = 0;
};

// The media data of a recording; size 0 when there is none.
Box MediaData(int fd) {
  std::array<uint8_t, kBoxHeader> header{};
  Box box;
  while (pread(fd, header.data(), header.size(), box.position) == static_cast<ssize_t>(header.size())) {
    box.size = off_t{header[0]} << 24 | off_t{header[1]} << 16 | off_t{header[2]} << 8 | off_t{header[3]};
    if (header[4] == 'm' && header[5] == 'd') return box;
    if (box.size < static_cast<off_t>(kBoxHeader)) break;
    box.position += box.size;
  }
  return {};
}

bool CutAt(int fd, off_t media, off_t length) {
  return pwrite(fd, kOpenSize.data(), kOpenSize.size(), media) == static_cast<ssize_t>(kOpenSize.size()) &&
         ftruncate(fd, length) == 0;
}

using Call = int32_t (*)(const ZMVRecoverParam* param, ZMVRecoverReport* report);

bool Measure(const Task& task, Call call, Sample& sample) {
  const std::string target = task.path + ".recovered";
  unlink(target.c_str());
  ZMVHost_MemoryAccount(task.account ? 1 : 0);
  ZMVRecoverParam param{};
  param.pszPath = task.path.c_str();
  param.pszTarget = target.c_str();
  ZMVRecoverReport report{};
  const int64_t before = AnonymousBytes();
  CpuMeter cpu;
  cpu.Start();
  const int32_t result = call(&param, &report);
  cpu.Stop();
  sample.memory = AnonymousBytes() - before;
  if (task.account) {
    ZMVHostMemoryUse use{};
    ZMVHost_MemoryUse(&use);
    sample.peak_memory = static_cast<int64_t>(use.peakBytes);
  }
  unlink(target.c_str());
  sample.cpu_ns = cpu.Nanoseconds();
  sample.frames = report.dwFrames;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) sample.bytes += report.Stream[i].llBytes;
  return result == 0 && report.dwState == ZMV_RECOVER_CUT;
}

}  // namespace

bool CutRecording(const std::string& path) {
  const Descriptor file(path, O_RDWR);
  const Box media = MediaData(file.get());
  return media.size > 0 && CutAt(file.get(), media.position, media.position + media.size);
}

bool RecoverToFile(const Task& task, Sample& sample) { return Measure(task, &ZMVRecoverToFile, sample); }

bool RecoverInPlace(const Task& task, Sample& sample) {
  const Descriptor file(task.path, O_RDWR);
  const off_t length = lseek(file.get(), 0, SEEK_END);
  const bool good = Measure(task, &ZMVRecoverInPlace, sample);
  // Cut again for the next one.
  return CutAt(file.get(), MediaData(file.get()).position, length) && good;
}

bool CopyPlain(const Task& task, Sample& sample) {
  Workload workload(*task.profile, task.minutes);
  for (Frame frame; workload.Next(frame); ++sample.frames) sample.bytes += frame.size;
  const std::string target = task.path + ".copy";
  std::vector<uint8_t> buffer(kCopyBuffer);
  CpuMeter cpu;
  cpu.Start();
  ssize_t got = 0;
  bool good = true;
  {
    const Descriptor from(task.path, O_RDONLY);
    const Descriptor to(target, O_WRONLY | O_CREAT | O_TRUNC);
    while ((got = read(from.get(), buffer.data(), buffer.size())) > 0) {
      good = write(to.get(), buffer.data(), static_cast<size_t>(got)) == got && good;
    }
  }
  cpu.Stop();
  unlink(target.c_str());
  sample.cpu_ns = cpu.Nanoseconds();
  return good && got == 0;
}

}  // namespace zmv::bench
