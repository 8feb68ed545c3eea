// A damaged file in memory that keeps a log of what is done to it, so that a power cut can be played at any moment:
// what was synced is on the medium, of what was written since then any part may be, whole sectors each.
//
//     LogFile file(bytes);
//     ... recover in place ...
//     for (size_t cut = 0; cut <= file.log().size(); ++cut) {
//       ByteVector after = file.After(cut, [](size_t sector) { return sector % 2 == 0; });
#ifndef ZMV_TESTS_LOG_FILE_H
#define ZMV_TESTS_LOG_FILE_H

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "base/zmv_result.h"
#include "recover/recover_file.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

class LogFile final : public recover::File {
 public:
  enum class Kind { kWrite, kSync, kTruncate };
  struct Action {
    Kind kind;
    uint64_t position;  // or the new size
    ByteVector bytes;
  };

  explicit LogFile(ByteVector bytes) : before_(bytes), bytes_(std::move(bytes)) {}

  // The nth write, truncation or sync from now fails, and every one after it.
  uint64_t fail_at = 0;
  // The file grows no further than this.
  uint64_t capacity = UINT64_MAX;

  const ByteVector& bytes() const { return bytes_; }
  const std::vector<Action>& log() const { return log_; }
  uint64_t bytes_read() const { return bytes_read_; }
  uint64_t bytes_written() const { return bytes_written_; }

  // What the medium holds when the power fails behind the first `count` actions. Of each sector that was written since
  // the last sync `kept`, which is handed the sector's number and the action's, tells whether it got there.
  ByteVector After(size_t count, const std::function<bool(uint64_t sector, size_t action)>& kept) const {
    size_t synced = 0;
    for (size_t i = 0; i < count; ++i) {
      if (log_[i].kind == Kind::kSync) synced = i + 1;
    }
    ByteVector bytes = before_;
    for (size_t i = 0; i < count; ++i) {
      const Action& action = log_[i];
      if (action.kind == Kind::kTruncate) bytes.resize(action.position);
      if (action.kind == Kind::kWrite) {
        Apply(action, bytes, [&](uint64_t sector) { return i < synced || kept(sector, i); });
      }
    }
    return bytes;
  }

  uint64_t Size() const override { return bytes_.size(); }
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override {
    if (position >= bytes_.size()) return 0;
    const uint64_t part = std::min<uint64_t>(count, bytes_.size() - position);
    std::copy_n(bytes_.begin() + static_cast<ptrdiff_t>(position), part, static_cast<uint8_t*>(bytes));
    bytes_read_ += part;
    return static_cast<int64_t>(part);
  }
  int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) override {
    if (Fails() || position + count > capacity) return Result(ZMV_E_WRITE);
    const uint8_t* from = static_cast<const uint8_t*>(bytes);
    log_.push_back({Kind::kWrite, position, ByteVector(from, from + count)});
    Apply(log_.back(), bytes_, [](uint64_t) { return true; });
    bytes_written_ += count;
    return 0;
  }
  int32_t Truncate(uint64_t size) override {
    if (Fails()) return Result(ZMV_E_WRITE);
    log_.push_back({Kind::kTruncate, size, {}});
    bytes_.resize(size);
    return 0;
  }
  int32_t Sync() override {
    if (Fails()) return Result(ZMV_E_WRITE);
    log_.push_back({Kind::kSync, 0, {}});
    return 0;
  }

 private:
  static constexpr uint64_t kSector = 512;

  static void Apply(const Action& action, ByteVector& bytes, const std::function<bool(uint64_t)>& kept) {
    for (uint64_t done = 0; done < action.bytes.size();) {
      const uint64_t at = action.position + done;
      const uint64_t part = std::min<uint64_t>(action.bytes.size() - done, kSector - at % kSector);
      if (kept(at / kSector)) {
        if (bytes.size() < at + part) bytes.resize(at + part);
        std::copy_n(action.bytes.begin() + static_cast<ptrdiff_t>(done), part,
                    bytes.begin() + static_cast<ptrdiff_t>(at));
      }
      done += part;
    }
  }
  bool Fails() {
    if (fail_at == 0) return false;
    if (fail_at > 1) return --fail_at, false;
    return true;
  }

  ByteVector before_;
  ByteVector bytes_;
  std::vector<Action> log_;
  uint64_t bytes_read_ = 0;
  uint64_t bytes_written_ = 0;
};

}  // namespace zmv::test

#endif
