#include "recover/recover_window.h"

#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

constexpr uint32_t kMiB = 1u << 20;

ByteVector Numbered(size_t size) {
  ByteVector bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 31 + i / 256);
  return bytes;
}

class WindowTest : public RecoverTest {
 protected:
  WindowTest() : file(Numbered(3 * kMiB)), window(file) {}
  void ExpectBytes(uint64_t position, uint32_t count) {
    const uint8_t* bytes = window.At(position, count);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::memcmp(bytes, file.bytes().data() + position, count), 0) << position << " + " << count;
  }
  StoredFile file;
  recover::Window window;
};

TEST_F(WindowTest, Bytes_AreThoseOfTheFile) {
  Noise noise(1);
  for (int i = 0; i < 2000; ++i) {
    const uint32_t count = noise.Number(3000);
    ExpectBytes(noise.Number(3 * kMiB - count), count);
  }
}

TEST_F(WindowTest, ForwardReading_ReadsEveryByteOnce) {
  for (uint64_t at = 0; at + 5000 <= 3 * kMiB; at += 5000) ExpectBytes(at, 5000);
  EXPECT_LE(file.read_bytes(), 3 * kMiB + 0u);
  EXPECT_LE(file.Count(StoredFile::kRead), 3 * kMiB / (240 * 1024) + 1);
}

TEST_F(WindowTest, LargePayload_EnlargesIt) {
  ExpectBytes(1000, 2 * kMiB);
  EXPECT_LE(host.LiveBytes(), 2 * kMiB + 128 * 1024u);
}

TEST_F(WindowTest, BeyondTheEnd_IsNullWithoutAnError) {
  ExpectBytes(3 * kMiB - 1, 1);
  EXPECT_EQ(window.At(3 * kMiB, 1), nullptr);
  EXPECT_EQ(window.Error(), 0);
  EXPECT_EQ(window.At(3 * kMiB - 10, 11), nullptr);
  EXPECT_EQ(window.At(UINT64_MAX, UINT32_MAX), nullptr);
  EXPECT_EQ(window.Error(), 0);
}

TEST_F(WindowTest, FailedRead_IsItsErrorAndCanBeRepeated) {
  file.Fail(StoredFile::kRead, 1);
  EXPECT_EQ(window.At(700, 100), nullptr);
  EXPECT_EQ(window.Error(), Result(ZMV_E_READ));
  ExpectBytes(700, 100);
}

TEST_F(WindowTest, FileShorterThanItSays_IsAFailedRead) {
  file.claimed_size = 4 * kMiB;
  EXPECT_EQ(window.At(3 * kMiB + 5, 1), nullptr);
  EXPECT_EQ(window.Error(), Result(ZMV_E_READ));
}

TEST_F(WindowTest, NoMemory_IsItsError) {
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(window.At(0, 1), nullptr);
  EXPECT_EQ(window.Error(), Result(ZMV_E_MEMORY));
}

TEST_F(WindowTest, Held_AnswersFromMemoryOnly) {
  EXPECT_EQ(window.Held(0, 1), nullptr);
  const uint8_t* bytes = window.At(1024, 100);
  const uint64_t reads = file.Count(StoredFile::kRead);
  EXPECT_EQ(window.Held(1030, 50), bytes + 6);
  EXPECT_EQ(window.Held(1023, 1), nullptr) << "it begins at a sector";
  EXPECT_EQ(window.Held(2 * kMiB, 1), nullptr);
  EXPECT_EQ(file.Count(StoredFile::kRead), reads);
}

}  // namespace
}  // namespace zmv::test
