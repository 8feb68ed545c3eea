// The damaged file: read anywhere, and for a recovery in place also written.
//
// The library reaches it directly and not through the host, which can only create files for writing. Tests put files in
// memory here, cut their writes short and lose what was not synced.
#ifndef ZMV_RECOVER_FILE_H
#define ZMV_RECOVER_FILE_H

#include <cstdint>

namespace zmv::recover {

class File {
 public:
  virtual uint64_t Size() const = 0;
  // From here on the file is known to hold nothing but zeros, without a look at them: its size when nothing is known.
  virtual uint64_t DataEnd() { return Size(); }
  // Bytes read, fewer only at the end of the file; negative: a ZMV_E_* code.
  virtual int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) = 0;
  // 0 or a negative code. Beyond the end the file grows.
  virtual int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) = 0;
  virtual int32_t Truncate(uint64_t size) = 0;
  // Puts everything written on the storage medium.
  virtual int32_t Sync() = 0;

 protected:
  ~File() = default;
};

// A file of the operating system.
class DiskFile final : public File {
 public:
  DiskFile() = default;
  ~DiskFile();
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;

  // 0, or ZMV_E_OPEN, also for what is no regular file.
  int32_t Open(const char* path, bool for_writing);

  uint64_t Size() const override { return size_; }
  uint64_t DataEnd() override;
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override;
  int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) override;
  int32_t Truncate(uint64_t size) override;
  int32_t Sync() override;

 private:
  int descriptor_ = -1;
  uint64_t size_ = 0;
};

// Puts the folder's entry of a new file on the storage medium, so that the file is found again after a power cut. 0, or
// ZMV_E_WRITE: not every file system can.
int32_t SyncFolderOf(const char* path);

}  // namespace zmv::recover

#endif
