// The damaged file over POSIX calls.
#include "recover/recover_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "base/zmv_result.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

// Sizes and positions are checked against what the system's offsets can express.
constexpr uint64_t kMaxPosition = INT64_MAX;

bool Expressible(uint64_t position, uint32_t count) { return position <= kMaxPosition - count; }

}  // namespace

DiskFile::~DiskFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

int32_t DiskFile::Open(const char* path, bool for_writing) {
  if (path == nullptr || descriptor_ >= 0) return Result(ZMV_E_OPEN);
  // A pipe in place of the file must not hold the caller up until somebody writes to it.
  descriptor_ = open(path, (for_writing ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status = {};
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ZMV_TRACE(kModule, kTraceError, "can not open (%s)\n", path);
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
    return Result(ZMV_E_OPEN);
  }
  size_ = static_cast<uint64_t>(status.st_size);
  return 0;
}

// Space that was taken in advance and never written is a hole to the file system.
uint64_t DiskFile::DataEnd() {
  off_t at = 0;
  while (true) {
    const off_t data = lseek(descriptor_, at, SEEK_DATA);
    if (data < 0) return errno == ENXIO ? static_cast<uint64_t>(at) : size_;
    at = lseek(descriptor_, data, SEEK_HOLE);
    if (at <= data) return size_;
  }
}

int64_t DiskFile::ReadAt(uint64_t position, void* bytes, uint32_t count) {
  if (!Expressible(position, count)) return Result(ZMV_E_READ);
  uint32_t done = 0;
  while (done < count) {
    const ssize_t got =
        pread(descriptor_, static_cast<uint8_t*>(bytes) + done, count - done, static_cast<off_t>(position + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Result(ZMV_E_READ);
    if (got == 0) break;
    done += static_cast<uint32_t>(got);
  }
  return done;
}

int32_t DiskFile::WriteAt(uint64_t position, const void* bytes, uint32_t count) {
  if (!Expressible(position, count)) return Result(ZMV_E_WRITE);
  uint32_t done = 0;
  while (done < count) {
    const ssize_t put = pwrite(descriptor_, static_cast<const uint8_t*>(bytes) + done, count - done,
                               static_cast<off_t>(position + done));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return Result(ZMV_E_WRITE);
    done += static_cast<uint32_t>(put);
    if (position + done > size_) size_ = position + done;
  }
  return 0;
}

int32_t DiskFile::Truncate(uint64_t size) {
  if (size > kMaxPosition || ftruncate(descriptor_, static_cast<off_t>(size)) != 0) return Result(ZMV_E_WRITE);
  size_ = size;
  return 0;
}

int32_t DiskFile::Sync() { return fsync(descriptor_) == 0 ? 0 : Result(ZMV_E_WRITE); }

int32_t SyncFolderOf(const char* path) {
  char folder[PATH_MAX] = ".";
  if (const char* const name = std::strrchr(path, '/'); name != nullptr) {
    const size_t length = name == path ? 1 : static_cast<size_t>(name - path);
    if (length >= sizeof folder) return Result(ZMV_E_WRITE);
    std::memcpy(folder, path, length);
    folder[length] = '\0';
  }
  const int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return Result(ZMV_E_WRITE);
  const int synced = fsync(descriptor);
  close(descriptor);
  return synced == 0 ? 0 : Result(ZMV_E_WRITE);
}

}  // namespace zmv::recover
