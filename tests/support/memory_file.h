// A damaged file in memory, for the recovery library: every call counted, failures on demand, and a storage medium that
// loses what was not synced.
//
//     StoredFile file(bytes);
//     file.Fail(StoredFile::kRead, 3);                  // the third read from now fails
//     file.StopAfter(7);                                // the power fails behind the seventh write
//     ... calls into the library ...
//     file.AfterPowerCut([](size_t write) { return write % 2 == 0; });   // what the medium holds then
#ifndef ZMV_TESTS_MEMORY_FILE_H
#define ZMV_TESTS_MEMORY_FILE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "base/zmv_result.h"
#include "recover/recover_file.h"

namespace zmv::test {

class StoredFile final : public recover::File {
 public:
  enum Call { kRead, kWrite, kTruncate, kSync, kCalls };

  explicit StoredFile(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)), synced_(bytes_) {}

  // What a reader of the file sees.
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  // What was on the medium when Sync returned last.
  const std::vector<uint8_t>& synced() const { return synced_; }
  // Writes and truncations since then.
  size_t unsynced() const { return pending_.size(); }
  // What the medium holds after a power cut: of the changes since the last Sync those that `kept` names by their
  // numbers, 0 being the first. A medium puts them down in any order, so any of them can be missing.
  std::vector<uint8_t> AfterPowerCut(const std::function<bool(size_t)>& kept) const {
    std::vector<uint8_t> medium = synced_;
    for (size_t i = 0; i < pending_.size(); ++i) {
      if (kept(i)) Apply(medium, pending_[i]);
    }
    return medium;
  }

  // The nth call of a kind from now fails, and with `for_good` all those behind it.
  void Fail(Call call, uint64_t nth, bool for_good = false) { failures_[call] = {counts_[call] + nth, for_good}; }
  // No write, truncation or sync succeeds behind `changes` more writes and truncations.
  void StopAfter(uint64_t changes) { stop_at_ = counts_[kWrite] + counts_[kTruncate] + changes; }

  uint64_t Count(Call call) const { return counts_[call]; }
  uint64_t read_bytes() const { return read_bytes_; }
  // Positions of the writes in their order.
  const std::vector<uint64_t>& write_positions() const { return write_positions_; }
  // Reads return no more than this at once; the size says what it likes.
  uint64_t claimed_size = UINT64_MAX;

  uint64_t Size() const override { return claimed_size != UINT64_MAX ? claimed_size : bytes_.size(); }
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override {
    if (!Enter(kRead)) return Result(ZMV_E_READ);
    if (position >= bytes_.size()) return 0;
    const uint64_t got = std::min<uint64_t>(count, bytes_.size() - position);
    std::memcpy(bytes, bytes_.data() + position, got);
    read_bytes_ += got;
    return static_cast<int64_t>(got);
  }
  int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) override {
    if (Stopped() || !Enter(kWrite)) return Result(ZMV_E_WRITE);
    const auto* from = static_cast<const uint8_t*>(bytes);
    return Change({position, std::vector<uint8_t>(from, from + count), false});
  }
  int32_t Truncate(uint64_t size) override {
    if (Stopped() || !Enter(kTruncate)) return Result(ZMV_E_WRITE);
    return Change({size, {}, true});
  }
  int32_t Sync() override {
    if (Stopped() || !Enter(kSync)) return Result(ZMV_E_WRITE);
    synced_ = bytes_;
    pending_.clear();
    return 0;
  }

 private:
  struct Pending {
    uint64_t position;
    std::vector<uint8_t> bytes;
    bool truncate;
  };
  struct Failure {
    uint64_t at = 0;
    bool for_good = false;
  };

  static void Apply(std::vector<uint8_t>& medium, const Pending& change) {
    const uint64_t end = change.position + change.bytes.size();
    if (change.truncate) {
      medium.resize(change.position);
      return;
    }
    if (end > medium.size()) medium.resize(end);
    std::copy(change.bytes.begin(), change.bytes.end(), medium.begin() + static_cast<std::ptrdiff_t>(change.position));
  }
  int32_t Change(Pending change) {
    if (!change.truncate) write_positions_.push_back(change.position);
    Apply(bytes_, change);
    pending_.push_back(std::move(change));
    return 0;
  }
  bool Stopped() const { return counts_[kWrite] + counts_[kTruncate] >= stop_at_; }
  bool Enter(Call call) {
    const uint64_t number = ++counts_[call];
    const Failure& failure = failures_[call];
    return failure.at == 0 || (failure.for_good ? number < failure.at : number != failure.at);
  }

  std::vector<uint8_t> bytes_;
  std::vector<uint8_t> synced_;
  std::vector<Pending> pending_;
  std::vector<uint64_t> write_positions_;
  uint64_t counts_[kCalls] = {};
  Failure failures_[kCalls] = {};
  uint64_t stop_at_ = UINT64_MAX;
  uint64_t read_bytes_ = 0;
};

}  // namespace zmv::test

#endif
