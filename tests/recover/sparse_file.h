// A damaged file of any size in memory: its first bytes, and zeros behind them that take no memory. It keeps a log of
// what is done to it.
#ifndef ZMV_TESTS_SPARSE_FILE_H
#define ZMV_TESTS_SPARSE_FILE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "base/zmv_result.h"
#include "recover/recover_file.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

class SparseFile final : public recover::File {
 public:
  enum class Kind { kWrite, kSync, kTruncate };
  struct Action {
    Kind kind;
    uint64_t position;  // or the new size
    ByteVector bytes;
  };

  SparseFile(ByteVector bytes, uint64_t size) : bytes_(std::move(bytes)), size_(size) {}

  // What stands in front of the zeros.
  const ByteVector& bytes() const { return bytes_; }
  const std::vector<Action>& log() const { return log_; }
  // The nth write, truncation or sync from now fails, and every one after it.
  uint64_t fail_at = 0;

  uint64_t Size() const override { return size_; }
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override {
    if (position >= size_) return 0;
    const uint64_t got = std::min<uint64_t>(count, size_ - position);
    const uint64_t written = position < bytes_.size() ? std::min<uint64_t>(got, bytes_.size() - position) : uint64_t{0};
    auto* to = static_cast<uint8_t*>(bytes);
    if (written != 0) std::memcpy(to, bytes_.data() + position, written);
    std::memset(to + written, 0, got - written);
    return static_cast<int64_t>(got);
  }
  int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) override {
    if (Fails()) return Result(ZMV_E_WRITE);
    const uint64_t end = position + count;
    EXPECT_LT(end, kMemory) << "a write in the zeros";
    if (end >= kMemory) return Result(ZMV_E_WRITE);
    const auto* from = static_cast<const uint8_t*>(bytes);
    log_.push_back({Kind::kWrite, position, ByteVector(from, from + count)});
    if (bytes_.size() < end) bytes_.resize(end);
    std::copy_n(from, count, bytes_.begin() + static_cast<ptrdiff_t>(position));
    size_ = std::max(size_, end);
    return 0;
  }
  int32_t Truncate(uint64_t size) override {
    if (Fails()) return Result(ZMV_E_WRITE);
    log_.push_back({Kind::kTruncate, size, {}});
    size_ = size;
    if (bytes_.size() > size) bytes_.resize(size);
    return 0;
  }
  int32_t Sync() override {
    if (Fails()) return Result(ZMV_E_WRITE);
    log_.push_back({Kind::kSync, 0, {}});
    return 0;
  }

 private:
  static constexpr uint64_t kMemory = 64u << 20;

  bool Fails() {
    if (fail_at == 0) return false;
    if (fail_at > 1) return --fail_at, false;
    return true;
  }

  ByteVector bytes_;
  uint64_t size_;
  std::vector<Action> log_;
};

}  // namespace zmv::test

#endif
