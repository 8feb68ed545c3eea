// The files of zmv_platform.h.
//
// A handle is a standard I/O stream, but standard I/O only carries full buffers to the file and remembers that it
// failed. Its own seeks and changes between reading and writing flush the buffer, fetch it anew and cost a system call
// even when the target is already buffered; a container jumps between payloads and tables for every few frames, and
// writes each frame in several small pieces. So positions and buffers are kept here, reading goes through pread(), and
// the stream is unbuffered: nothing but these calls ever writes, neither the end of a forked child nor a stream that
// was left behind.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "platform/posix/zmv_posix_read_cache.h"
#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

static_assert(sizeof(off_t) == 8, "positions pass 2 GiB");

// Bytes that one write system call takes. Measured with camera frames on tmpfs: 64 KiB costs about a tenth more
// processor time than 256 KiB, and beyond that the gain is in the noise.
constexpr uint32_t kWriteBufferSize = 256 * 1024;
constexpr mode_t kCreateMode = 0666;

// Far beyond what any file system holds, and far enough from the end of the type for every sum with a length.
constexpr int64_t kMaxPosition = INT64_MAX / 2;

// Where a stream stands that failed to write: some of the bytes may have reached the file.
constexpr int64_t kUnknownPosition = -1;

struct OpenFile {
  FILE* stream;
  int descriptor;
  bool write;
  int64_t position;         // where the next read or write happens
  ReadCache* cache;         // reading
  char* write_buffer;       // writing, as is all that follows
  int64_t buffer_position;  // where its first byte belongs
  uint32_t pending;         // bytes in it
  int64_t stream_position;  // where the stream stands
};

// The open files by descriptor: finding the state of a stream takes neither a lock nor a search. A slot belongs to the
// one handle that owns the descriptor; handles above the last slot are not opened.
constexpr int kMaxDescriptors = 16 * 1024;
std::atomic<OpenFile*> g_files[kMaxDescriptors];

OpenFile* Find(void* handle) {
  if (handle == nullptr) return nullptr;
  FILE* stream = static_cast<FILE*>(handle);
  const int descriptor = fileno(stream);
  if (descriptor < 0 || descriptor >= kMaxDescriptors) return nullptr;
  OpenFile* file = g_files[descriptor].load(std::memory_order_acquire);
  return file != nullptr && file->stream == stream ? file : nullptr;
}

void FreeState(OpenFile* file) {
  free(file->cache);
  free(file->write_buffer);
  free(file);
}

int OpenDescriptor(const char* path, bool write) {
  const int descriptor =
      write ? open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kCreateMode) : open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return -1;
  struct stat status;
  if (descriptor < kMaxDescriptors && fstat(descriptor, &status) == 0 && !S_ISDIR(status.st_mode)) return descriptor;
  close(descriptor);
  return -1;
}

// The stream of a written file is write-only above a descriptor that can also read.
OpenFile* NewState(int descriptor, bool write) {
  auto* file = static_cast<OpenFile*>(calloc(1, sizeof(OpenFile)));
  if (file == nullptr) return nullptr;
  file->descriptor = descriptor;
  file->write = write;
  if (write) {
    file->write_buffer = static_cast<char*>(malloc(kWriteBufferSize));
  } else {
    file->cache = static_cast<ReadCache*>(calloc(1, sizeof(ReadCache)));
  }
  if (file->write_buffer != nullptr || file->cache != nullptr) file->stream = fdopen(descriptor, write ? "wb" : "rb");
  if (file->stream == nullptr) {
    FreeState(file);
    return nullptr;
  }
  setvbuf(file->stream, nullptr, _IONBF, 0);
  // Calls on one handle do not overlap, so the stream needs no lock of its own.
  __fsetlocking(file->stream, FSETLOCKING_BYCALLER);
  return file;
}

void* Open(const char* path, bool write) {
  const int descriptor = OpenDescriptor(path, write);
  if (descriptor < 0) return nullptr;
  OpenFile* file = NewState(descriptor, write);
  if (file == nullptr) {
    close(descriptor);
    return nullptr;
  }
  // An application that closes the descriptor itself (the close callback) leaves the stream behind. Its state, with
  // anything that could not be written, is released when the descriptor comes back.
  OpenFile* const abandoned = g_files[descriptor].exchange(file, std::memory_order_acq_rel);
  if (abandoned != nullptr) FreeState(abandoned);
  return file->stream;
}

// A failed write that was reported to the writer still counts against the file as a whole.
bool HasFailed(const OpenFile& file) { return ferror_unlocked(file.stream) != 0; }

int64_t BufferEnd(const OpenFile& file) { return file.buffer_position + file.pending; }

bool WriteAt(OpenFile& file, const void* from, size_t length, int64_t position) {
  bool written = file.stream_position == position || fseeko(file.stream, position, SEEK_SET) == 0;
  written = written && fwrite_unlocked(from, 1, length, file.stream) == length;
  file.stream_position = written ? position + static_cast<int64_t>(length) : kUnknownPosition;
  return written;
}

// Bytes that do not reach the file stay in the buffer. They were accepted, so the next flush tries them again: a disk
// that was full for a while leaves no hole.
bool Flush(OpenFile& file) {
  if (file.pending == 0) return true;
  if (!WriteAt(file, file.write_buffer, file.pending, file.buffer_position)) return false;
  file.buffer_position += file.pending;
  file.pending = 0;
  return true;
}

// Bytes that are only in the buffer are flushed when the read needs them, and only then: a table that is read back from
// far behind and copied to the end does not break the writing into small pieces.
int64_t ReadBack(OpenFile& file, void* buffer, uint32_t length) {
  const bool before = file.position < file.buffer_position && length <= file.buffer_position - file.position;
  if (file.pending == 0 || before || file.position >= BufferEnd(file)) {
    const int64_t count = ReadAt(file.descriptor, buffer, length, file.position);
    // A short read before the buffer is one of a gap, which only what is buffered turns into a part of the file.
    if (file.pending == 0 || !before || count < 0 || count == length) return count;
  }
  return Flush(file) ? ReadAt(file.descriptor, buffer, length, file.position) : -1;
}

bool FitsBuffer(const OpenFile& file, uint32_t length) {
  return file.position == BufferEnd(file) && length <= kWriteBufferSize - file.pending;
}

void Append(OpenFile& file, const void* from, uint32_t length) {
  std::memcpy(file.write_buffer + file.pending, from, length);
  file.pending += length;
  file.position += length;
}

// What the buffer does not take: bytes for another place, or more of them than there is room for. A failure counts for
// the write as a whole: the position stays, and what is written next lands where the caller thinks it does.
[[gnu::noinline]] bool WriteBeyondBuffer(OpenFile& file, const void* from, uint32_t length) {
  if (!Flush(file)) return false;
  if (length < kWriteBufferSize) {
    file.buffer_position = file.position;
    Append(file, from, length);
    return true;
  }
  if (!WriteAt(file, from, length, file.position)) return false;
  file.position += length;
  return true;
}

}  // namespace
}  // namespace zmv::posix

using zmv::posix::Find;
using zmv::posix::OpenFile;

void* ZMV_FileOpen(const char* path, uint32_t flags) {
  if (path == nullptr) return nullptr;
  switch (flags) {
    case ZMV_OPEN_READ:
      return zmv::posix::Open(path, false);
    case ZMV_OPEN_WRITE:
    case ZMV_OPEN_WRITE_DEFAULT:
      return zmv::posix::Open(path, true);
    default:
      return nullptr;
  }
}

int64_t ZMV_FileRead(void* handle, void* buffer, uint32_t length) {
  OpenFile* file = Find(handle);
  if (file == nullptr || buffer == nullptr) return -1;
  const int64_t count = file->write ? zmv::posix::ReadBack(*file, buffer, length)
                                    : file->cache->Read(file->descriptor, buffer, length, file->position);
  if (count > 0) file->position += count;
  return count;
}

int64_t ZMV_FileWrite(void* handle, const void* buffer, uint32_t length) {
  OpenFile* file = Find(handle);
  if (file == nullptr || buffer == nullptr || !file->write) return -1;
  if (zmv::posix::FitsBuffer(*file, length)) [[likely]] {
    zmv::posix::Append(*file, buffer, length);
    return length;
  }
  return zmv::posix::WriteBeyondBuffer(*file, buffer, length) ? int64_t{length} : -1;
}

int32_t ZMV_FileSeek(void* handle, int64_t offset, uint32_t origin) {
  OpenFile* file = Find(handle);
  if (file == nullptr || origin > 1) return -1;
  int64_t target = offset;
  if (origin == 1 && __builtin_add_overflow(file->position, offset, &target)) return -1;
  if (target < 0 || target > zmv::posix::kMaxPosition) return -1;
  file->position = target;
  return 0;
}

int64_t ZMV_FileSize(void* handle) {
  OpenFile* file = Find(handle);
  struct stat status;
  if (file == nullptr || !zmv::posix::Flush(*file) || fstat(file->descriptor, &status) != 0) return -1;
  return status.st_size;
}

int32_t ZMV_FileSync(void* handle) {
  OpenFile* file = Find(handle);
  if (file == nullptr) return -1;
  const bool flushed = zmv::posix::Flush(*file);
  const bool synced = fsync(file->descriptor) == 0;
  return flushed && synced && !zmv::posix::HasFailed(*file) ? 0 : -1;
}

int32_t ZMV_FileClose(void* handle) {
  OpenFile* file = Find(handle);
  if (file == nullptr) return -1;
  // The slot first: once the descriptor is closed, another thread may be given it.
  zmv::posix::g_files[file->descriptor].store(nullptr, std::memory_order_release);
  const bool flushed = zmv::posix::Flush(*file);
  const bool failed = zmv::posix::HasFailed(*file);
  const bool closed = fclose(file->stream) == 0;
  zmv::posix::FreeState(file);
  return flushed && closed && !failed ? 0 : -1;
}
