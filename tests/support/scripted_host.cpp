#include "tests/support/scripted_host.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>

#include "platform/zmv_platform.h"

namespace zmv::test {

struct MemoryFile {
  std::string path;
  ByteVector bytes;
  uint64_t counted = 0;  // where the bytes end that are not kept

  uint64_t Size() const { return std::max<uint64_t>(bytes.size(), counted); }
};

namespace {

std::atomic<ScriptedHost*> current{nullptr};

// What a handle's stdio stream stands for. The stream itself only carries the error flag; bytes move past it.
struct OpenFile {
  std::shared_ptr<MemoryFile> file;
  FILE* stream = nullptr;
  uint64_t position = 0;
};

std::map<void*, OpenFile*>& OpenFiles() {
  static auto* files = new std::map<void*, OpenFile*>;
  return *files;
}

OpenFile& Opened(void* handle) { return *OpenFiles().at(handle); }

ssize_t RefuseWrite(void*, const char*, size_t) { return 0; }

// Sets ferror() on the stream as a failed system call would.
void RaiseError(FILE* stream) {
  setvbuf(stream, nullptr, _IONBF, 0);
  fputc(0, stream);
}

}  // namespace

ScriptedHost::ScriptedHost()
    : counts_(static_cast<size_t>(HostCall::kCount)), failures_(static_cast<size_t>(HostCall::kCount)) {
  previous_ = current.exchange(this);
}

ScriptedHost::~ScriptedHost() { current = previous_; }

ScriptedHost* ScriptedHost::Current() { return current; }

std::shared_ptr<MemoryFile> ScriptedHost::Find(const std::string& path) const {
  auto it = files_.find(path);
  return it == files_.end() ? nullptr : it->second;
}

std::shared_ptr<MemoryFile> ScriptedHost::Create(const std::string& path) {
  auto& file = files_[path];
  if (!file) file = std::make_shared<MemoryFile>();
  file->path = path;
  file->bytes.clear();
  file->counted = 0;
  return file;
}

void ScriptedHost::PutFile(const std::string& path, ByteVector bytes) { Create(path)->bytes = std::move(bytes); }

bool ScriptedHost::Exists(const std::string& path) const { return files_.count(path) != 0; }

ByteVector& ScriptedHost::File(const std::string& path) {
  auto file = Find(path);
  if (!file) file = Create(path);
  return file->bytes;
}

uint64_t ScriptedHost::FileSize(const std::string& path) const {
  auto file = Find(path);
  return file ? file->Size() : 0;
}

void ScriptedHost::Fail(HostCall call, uint64_t nth, Duration duration) {
  std::lock_guard lock(mutex_);
  failures_[static_cast<size_t>(call)] = {Count(call) + nth, duration};
}

void ScriptedHost::ClearFailures() {
  std::lock_guard lock(mutex_);
  std::fill(failures_.begin(), failures_.end(), Failure{});
}

bool ScriptedHost::Enter(HostCall call) {
  std::lock_guard lock(mutex_);
  uint64_t count = ++counts_[static_cast<size_t>(call)];
  const Failure& failure = failures_[static_cast<size_t>(call)];
  if (failure.at == 0) return true;
  return failure.duration == kOnce ? count != failure.at : count < failure.at;
}

void ScriptedHost::Note(HostCall call, std::string name, uint64_t position, uint64_t size, int64_t result) {
  if (!record) return;
  std::lock_guard lock(mutex_);
  calls_.push_back({call, std::move(name), position, size, result});
}

std::vector<CallRecord> ScriptedHost::Calls(HostCall call) const {
  std::vector<CallRecord> found;
  std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
               [&](const CallRecord& entry) { return entry.call == call; });
  return found;
}

std::vector<std::string> ScriptedHost::Traces(int level) const {
  std::vector<std::string> texts;
  for (const TraceRecord& trace : traces_) {
    if (trace.level == level) texts.push_back(trace.text);
  }
  return texts;
}

bool ScriptedHost::Traced(std::string_view text) const {
  return std::any_of(traces_.begin(), traces_.end(), [&](const TraceRecord& trace) { return trace.text == text; });
}

void ScriptedHost::ClearRecords() {
  calls_.clear();
  traces_.clear();
}

void ScriptedHost::AddTrace(TraceRecord trace) {
  std::lock_guard lock(mutex_);
  traces_.push_back(std::move(trace));
}

void ScriptedHost::AddBlock(void* memory, uint64_t size, const char* function) {
  std::lock_guard lock(mutex_);
  blocks_[memory] = {size, function};
  live_bytes_ += size;
  peak_bytes_ = std::max(peak_bytes_, live_bytes_);
}

bool ScriptedHost::RemoveBlock(void* memory, uint64_t* size) {
  std::lock_guard lock(mutex_);
  auto it = blocks_.find(memory);
  if (it == blocks_.end()) return false;
  *size = it->second.size;
  live_bytes_ -= it->second.size;
  blocks_.erase(it);
  return true;
}

uint64_t ScriptedHost::LiveBlocks() const { return blocks_.size(); }
uint64_t ScriptedHost::LiveBytes() const { return live_bytes_; }

std::vector<std::string> ScriptedHost::LiveList() const {
  std::vector<std::string> list;
  for (const auto& [memory, block] : blocks_) list.push_back(block.function + " " + std::to_string(block.size));
  return list;
}

}  // namespace zmv::test

// ---- The host calls
// ------------------------------------------------------------------------------------------------------

using zmv::test::HostCall;
using zmv::test::MemoryFile;
using zmv::test::Opened;
using zmv::test::OpenFile;
using zmv::test::OpenFiles;
using zmv::test::ScriptedHost;

namespace {
bool Enter(HostCall call) {
  ScriptedHost* host = ScriptedHost::Current();
  return host == nullptr || host->Enter(call);
}
void Note(HostCall call, const std::string& name, uint64_t position, uint64_t size, int64_t result) {
  if (ScriptedHost* host = ScriptedHost::Current()) host->Note(call, name, position, size, result);
}
std::string_view Uncleared() {
  ScriptedHost* host = ScriptedHost::Current();
  return host == nullptr ? std::string_view("\xCD") : std::string_view(host->uncleared);
}
// The pattern over and over; zeros for an empty one.
void FillBlock(void* memory, size_t size, std::string_view pattern) {
  if (pattern.size() < 2) {
    memset(memory, pattern.empty() ? 0 : pattern[0], size);
    return;
  }
  for (size_t i = 0; i < size; ++i) static_cast<char*>(memory)[i] = pattern[i % pattern.size()];
}
}  // namespace

extern "C" {

void* ZMV_FileOpen(const char* path, uint32_t flags) {
  ScriptedHost* host = ScriptedHost::Current();
  std::shared_ptr<MemoryFile> file;
  if (Enter(HostCall::kOpen)) file = flags == ZMV_OPEN_READ ? host->Find(path) : host->Create(path);
  if (!file) {
    Note(HostCall::kOpen, path, flags, 0, -1);
    return nullptr;
  }
  auto* open = new OpenFile;
  open->file = file;
  cookie_io_functions_t functions{};
  functions.write = zmv::test::RefuseWrite;
  open->stream = fopencookie(open, "w", functions);
  OpenFiles()[open->stream] = open;
  Note(HostCall::kOpen, path, flags, 0, 0);
  return open->stream;
}

int64_t ZMV_FileRead(void* handle, void* buffer, uint32_t length) {
  ScriptedHost* host = ScriptedHost::Current();
  OpenFile& open = Opened(handle);
  int64_t result = -1;
  if (Enter(HostCall::kRead)) {
    uint64_t size = open.file->Size();
    uint64_t left = open.position < size ? size - open.position : 0;
    uint64_t count = std::min({left, uint64_t{length}, host->max_transfer});
    const auto& bytes = open.file->bytes;
    uint64_t kept = open.position < bytes.size() ? std::min(count, bytes.size() - open.position) : 0;
    if (kept != 0) memcpy(buffer, bytes.data() + open.position, kept);
    if (kept < count) memset(static_cast<uint8_t*>(buffer) + kept, 0, count - kept);
    result = static_cast<int64_t>(count);
  }
  Note(HostCall::kRead, open.file->path, open.position, length, result);
  if (result > 0) open.position += static_cast<uint64_t>(result);
  return result;
}

int64_t ZMV_FileWrite(void* handle, const void* buffer, uint32_t length) {
  ScriptedHost* host = ScriptedHost::Current();
  OpenFile& open = Opened(handle);
  if (host->write_result.has_value()) {
    Enter(HostCall::kWrite);
    Note(HostCall::kWrite, open.file->path, open.position, length, *host->write_result);
    return *host->write_result;
  }
  int64_t result = 0;
  if (Enter(HostCall::kWrite)) {
    uint64_t room = open.position < host->file_capacity ? host->file_capacity - open.position : 0;
    uint64_t count = std::min({room, uint64_t{length}, host->max_transfer});
    auto& bytes = open.file->bytes;
    const uint64_t kept = open.position < host->kept ? std::min(count, host->kept - open.position) : 0;
    if (kept != 0 && bytes.size() < open.position + kept) {
      if (bytes.capacity() < open.position + kept) bytes.reserve(2 * (open.position + kept));
      bytes.resize(open.position + kept);
    }
    if (kept != 0) memcpy(bytes.data() + open.position, buffer, kept);
    if (kept < count) open.file->counted = std::max(open.file->counted, open.position + count);
    result = static_cast<int64_t>(count);
  }
  if (host->watch && result > 0) {
    host->watch(HostCall::kWrite, open.position, buffer, static_cast<uint32_t>(result));
  }
  if (result < static_cast<int64_t>(length)) zmv::test::RaiseError(open.stream);
  Note(HostCall::kWrite, open.file->path, open.position, length, result);
  if (result > 0) open.position += static_cast<uint64_t>(result);
  return result;
}

int32_t ZMV_FileSeek(void* handle, int64_t offset, uint32_t origin) {
  OpenFile& open = Opened(handle);
  int64_t target = offset + (origin == 1 ? static_cast<int64_t>(open.position) : 0);
  bool good = Enter(HostCall::kSeek) && target >= 0;
  Note(HostCall::kSeek, open.file->path, open.position, static_cast<uint64_t>(target), good ? 0 : -1);
  if (!good) return -1;
  open.position = static_cast<uint64_t>(target);
  return 0;
}

int64_t ZMV_FileSize(void* handle) {
  OpenFile& open = Opened(handle);
  uint64_t presized = ScriptedHost::Current() != nullptr ? ScriptedHost::Current()->presized : 0;
  int64_t size = static_cast<int64_t>(std::max(open.file->Size(), presized));
  if (!Enter(HostCall::kSize)) size = -1;
  Note(HostCall::kSize, open.file->path, open.position, 0, size);
  return size;
}

int32_t ZMV_FileSync(void* handle) {
  int32_t result = Enter(HostCall::kSync) ? 0 : -1;
  ScriptedHost* host = ScriptedHost::Current();
  if (result == 0 && host != nullptr && host->watch) host->watch(HostCall::kSync, 0, nullptr, 0);
  Note(HostCall::kSync, Opened(handle).file->path, Opened(handle).position, 0, result);
  return result;
}

int32_t ZMV_FileClose(void* handle) {
  OpenFile* open = &Opened(handle);
  int32_t result = Enter(HostCall::kClose) ? 0 : -1;
  Note(HostCall::kClose, open->file->path, open->position, 0, result);
  OpenFiles().erase(handle);
  fclose(open->stream);
  delete open;
  return result;
}

void* ZMV_Malloc(uint32_t size, uint32_t, int32_t fill, const char*, uint32_t, const char* function) {
  ScriptedHost* host = ScriptedHost::Current();
  void* memory = nullptr;
  if (Enter(HostCall::kMalloc) && (host == nullptr || size <= host->max_block)) memory = malloc(size == 0 ? 1 : size);
  if (memory != nullptr) FillBlock(memory, size == 0 ? 1 : size, fill == ZMV_FILL_ZERO ? "" : Uncleared());
  if (host != nullptr && memory != nullptr) host->AddBlock(memory, size, function);
  Note(HostCall::kMalloc, function, 0, size, memory == nullptr ? -1 : 0);
  return memory;
}

void* ZMV_ReAlloc(void* memory, uint32_t size, uint32_t, const char*, uint32_t, const char* function) {
  ScriptedHost* host = ScriptedHost::Current();
  void* grown = nullptr;
  if (Enter(HostCall::kReAlloc) && (host == nullptr || size <= host->max_block)) {
    uint64_t before = 0;
    if (host != nullptr && memory != nullptr) host->RemoveBlock(memory, &before);
    grown = realloc(memory, size == 0 ? 1 : size);
    if (host != nullptr) host->AddBlock(grown, size, function);
  }
  Note(HostCall::kReAlloc, function, 0, size, grown == nullptr ? -1 : 0);
  return grown;
}

void ZMV_Free(void* memory, uint32_t) {
  if (memory == nullptr) return;
  Enter(HostCall::kFree);
  uint64_t size = 0;
  if (ScriptedHost* host = ScriptedHost::Current()) host->RemoveBlock(memory, &size);
  free(memory);
}

void* ZMV_MutexCreate(void) {
  if (!Enter(HostCall::kMutexCreate)) return nullptr;
  Note(HostCall::kMutexCreate, "", 0, 0, 0);
  return new std::timed_mutex;
}

int32_t ZMV_MutexLock(void* mutex, uint32_t timeout) {
  Enter(HostCall::kMutexLock);
  Note(HostCall::kMutexLock, "", 0, timeout, 0);
  static_cast<std::timed_mutex*>(mutex)->lock();
  return 0;
}

int32_t ZMV_MutexUnLock(void* mutex) {
  Enter(HostCall::kMutexUnLock);
  Note(HostCall::kMutexUnLock, "", 0, 0, 0);
  static_cast<std::timed_mutex*>(mutex)->unlock();
  return 0;
}

int32_t ZMV_MutexDestroy(void* mutex) {
  Enter(HostCall::kMutexDestroy);
  Note(HostCall::kMutexDestroy, "", 0, 0, 0);
  delete static_cast<std::timed_mutex*>(mutex);
  return 0;
}

namespace {
struct ScriptedThread {
  pthread_t thread;
  ZMVThreadEntry entry;
  void* argument;
};

void* RunThread(void* argument) {
  auto* thread = static_cast<ScriptedThread*>(argument);
  thread->entry(thread->argument);
  return nullptr;
}
}  // namespace

void* ZMV_ThreadCreate(const char* name, int32_t, uint32_t stackSize, ZMVThreadEntry entry, void* argument) {
  if (!Enter(HostCall::kThreadCreate)) return nullptr;
  Note(HostCall::kThreadCreate, name, 0, stackSize, 0);
  auto* thread = new ScriptedThread{{}, entry, argument};
  if (pthread_create(&thread->thread, nullptr, RunThread, thread) != 0) {
    delete thread;
    return nullptr;
  }
  return thread;
}

int32_t ZMV_ThreadDelete(void* handle, uint32_t* exitValue) {
  if (!Enter(HostCall::kThreadDelete)) return -1;
  auto* thread = static_cast<ScriptedThread*>(handle);
  void* value = nullptr;
  pthread_join(thread->thread, &value);
  if (exitValue != nullptr) *exitValue = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(value));
  Note(HostCall::kThreadDelete, "", 0, 0, 0);
  delete thread;
  return 0;
}

void ZMV_ThreadExit(uint32_t exitValue) { pthread_exit(reinterpret_cast<void*>(uintptr_t{exitValue})); }

void ZMV_Trace(const char* module, int32_t level, const char* file, uint32_t line, const char* function,
               const char* format, ...) {
  ScriptedHost* host = ScriptedHost::Current();
  if (host == nullptr || level > host->trace_level) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  host->AddTrace({module, level, file, function, text, line});
}

uint64_t ZMV_GetSystemTick(void) {
  ScriptedHost* host = ScriptedHost::Current();
  Enter(HostCall::kTick);
  if (host == nullptr) return 0;
  uint64_t now = host->tick;
  host->tick += host->tick_step;
  return now;
}

int64_t ZMV_GetFreeDiskSpace(const char* path) {
  ScriptedHost* host = ScriptedHost::Current();
  int64_t space = -1;
  if (Enter(HostCall::kDiskSpace) && host != nullptr)
    space = host->disk_space ? host->disk_space(path) : host->free_space;
  Note(HostCall::kDiskSpace, path, 0, 0, space);
  return space;
}

int ZMV_snprintf(char* buffer, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int count = vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return count;
}

const char* ZMV_FourCC_String(uint32_t code, uint32_t) {
  thread_local char text[5];
  memcpy(text, &code, 4);
  return text;
}

}  // extern "C"
