// A host for unit tests: files in memory, every call and trace recorded, failures and odd answers on demand.
//
//     ScriptedHost host;                                  // takes the place of the operating system while it lives
//     host.PutFile("a.mp4", bytes);
//     host.Fail(HostCall::kWrite, 3);                     // the third write from now fails; kForGood: all from then on
//     ... calls into the library ...
//     EXPECT_EQ(host.File("a.mp4"), Bytes({...}));
//     EXPECT_THAT(host.Traces(1), ElementsAre("ZMVStreamBuf_Index error!!!\n"));
//     EXPECT_EQ(host.LiveBlocks(), 0u);
#ifndef ZMV_TESTS_SCRIPTED_HOST_H
#define ZMV_TESTS_SCRIPTED_HOST_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.h"

namespace zmv::test {

enum class HostCall {
  kOpen,
  kRead,
  kWrite,
  kSeek,
  kSize,
  kSync,
  kClose,
  kMalloc,
  kReAlloc,
  kFree,
  kMutexCreate,
  kMutexLock,
  kMutexUnLock,
  kMutexDestroy,
  kThreadCreate,
  kThreadDelete,
  kTick,
  kDiskSpace,
  kCount
};

struct CallRecord {
  HostCall call;
  std::string name;   // path, or the function that asked for memory
  uint64_t position;  // file position before the call, or the open flags
  uint64_t size;      // bytes asked for; seek: the target
  int64_t result;
};

struct TraceRecord {
  std::string module;
  int level;
  std::string file;
  std::string function;
  std::string text;
  uint32_t line;
};

struct MemoryFile;

class ScriptedHost {
 public:
  enum Duration { kOnce, kForGood };

  ScriptedHost();
  ~ScriptedHost();
  ScriptedHost(const ScriptedHost&) = delete;
  ScriptedHost& operator=(const ScriptedHost&) = delete;

  // ---- Files
  void PutFile(const std::string& path, ByteVector bytes);
  bool Exists(const std::string& path) const;
  ByteVector& File(const std::string& path);  // made empty when absent
  // Files grow no further than this; a write is then short, or fails.
  uint64_t file_capacity = UINT64_MAX;
  // Bytes of a file behind this are counted only, so that files of gigabytes take no memory. They read as zeros.
  uint64_t kept = UINT64_MAX;
  uint64_t FileSize(const std::string& path) const;  // with those that are not kept; 0 when absent
  // What ZMV_FileSize answers beyond the file's own size (a pre-sized file on disk).
  uint64_t presized = 0;
  // The longest result of one read or write call.
  uint64_t max_transfer = UINT64_MAX;
  // What writes answer when set: nothing is written, and the stream has no error.
  std::optional<int64_t> write_result;

  // ---- Failures: the nth call from now (1 = the next one), once or from then on.
  void Fail(HostCall call, uint64_t nth, Duration duration = kOnce);
  void ClearFailures();

  // Told of every write, with what was written, and of every sync that does not fail, in their order: what a storage
  // medium of its own needs to know. Position and bytes are 0 and null for a sync.
  std::function<void(HostCall call, uint64_t position, const void* bytes, uint32_t count)> watch;

  // ---- Records
  bool record = true;   // off: counts only, so that long runs stay small
  int trace_level = 4;  // lines above it are dropped unformatted
  const std::vector<CallRecord>& calls() const { return calls_; }
  std::vector<CallRecord> Calls(HostCall call) const;
  uint64_t Count(HostCall call) const { return counts_[static_cast<size_t>(call)]; }
  const std::vector<TraceRecord>& traces() const { return traces_; }
  std::vector<std::string> Traces(int level) const;  // the texts of one level
  bool Traced(std::string_view text) const;          // any line with exactly this text
  void ClearRecords();

  // ---- Memory
  uint64_t LiveBlocks() const;
  uint64_t LiveBytes() const;
  uint64_t PeakBytes() const { return peak_bytes_; }
  // Blocks that are alive, as "function size", for messages.
  std::vector<std::string> LiveList() const;
  // A request above this size fails.
  uint64_t max_block = UINT64_MAX;
  // What memory that need not be cleared holds, over and over: nobody is to rely on zeros.
  std::string uncleared = "\xCD";

  // ---- Clock and disk
  uint64_t tick = 1000;
  uint64_t tick_step = 0;  // added after every reading
  int64_t free_space = int64_t{1} << 40;
  std::function<int64_t(const char*)> disk_space;  // replaces free_space when set

  // ---- For the host calls
  static ScriptedHost* Current();
  bool Enter(HostCall call);  // counts; false when this call is to fail
  void Note(HostCall call, std::string name, uint64_t position, uint64_t size, int64_t result);
  void AddBlock(void* memory, uint64_t size, const char* function);
  bool RemoveBlock(void* memory, uint64_t* size);
  void AddTrace(TraceRecord trace);
  std::shared_ptr<MemoryFile> Find(const std::string& path) const;
  std::shared_ptr<MemoryFile> Create(const std::string& path);

 private:
  struct Block {
    uint64_t size;
    std::string function;
  };
  struct Failure {
    uint64_t at = 0;  // 0 = none
    Duration duration = kOnce;
  };
  mutable std::recursive_mutex mutex_;
  std::map<std::string, std::shared_ptr<MemoryFile>> files_;
  std::vector<CallRecord> calls_;
  std::vector<TraceRecord> traces_;
  std::vector<uint64_t> counts_;
  std::vector<Failure> failures_;
  std::map<void*, Block> blocks_;
  uint64_t live_bytes_ = 0;
  uint64_t peak_bytes_ = 0;
  ScriptedHost* previous_;
};

}  // namespace zmv::test

#endif
