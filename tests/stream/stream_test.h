// What the tests of the stream room share: files on the scripted host, opened on the file provider or through a handle.
#ifndef ZMV_TESTS_STREAM_TEST_H
#define ZMV_TESTS_STREAM_TEST_H

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/zmv_platform.h"
#include "stream/zmvstream_buf.h"
#include "stream/zmvstream_file.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

// The low 32 bits of a result, to be compared with ZMV_E_*.
inline uint32_t Code(int64_t result) { return static_cast<uint32_t>(result); }

// `count` bytes that differ from their neighbours: 0, 1, ... 250, 0, 1 ...
inline ByteVector Pattern(size_t count, size_t from = 0) {
  ByteVector bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>((from + i) % 251);
  return bytes;
}

class StreamTest : public ::testing::Test {
 protected:
  StreamTest() {
    ZMVStreamFile_SetOption(0, nullptr);
    g_dwStartTime = g_dwEndTime = g_dwTotalTime = g_dwWSTime = g_dwWETime = g_dwWTotalTime = 0;
    g_dwWriteBPS = g_dwWriteBytes = 0;
    host.ClearRecords();
  }

  ~StreamTest() override {
    for (ZMVStreamBuf* handle : handles_) ZMVStreamBuf_Close(handle);
    for (ZMVStreamFile* file : files_) ZMVStreamFile_Close(file);
    ZMVStreamFile_SetOption(0, nullptr);
    EXPECT_THAT(host.LiveList(), ::testing::IsEmpty());
  }

  // A file of these bytes, open for reading.
  ZMVStreamFile* ReadFile(ByteVector bytes) {
    host.PutFile("in", std::move(bytes));
    return Opened("in", ZMV_STREAM_READ);
  }
  // A new file "out", open for writing, with a cursor 0 of this cache size.
  ZMVStreamFile* WriteFile(uint32_t cache_size) {
    ZMVStreamFile* file = Opened("out", ZMV_STREAM_WRITE);
    EXPECT_EQ(Cursor(file, cache_size), 0u);
    return file;
  }
  static uint32_t Cursor(ZMVStreamFile* file, uint32_t cache_size) {
    uint32_t idx = 99;
    EXPECT_EQ(ZMVStreamFile_Index(file, &idx, cache_size), 0);
    return idx;
  }
  void CloseFile(ZMVStreamFile* file) {
    std::erase(files_, file);
    ZMVStreamFile_Close(file);
  }

  ZMVStreamBuf* ReadHandle(ByteVector bytes) {
    host.PutFile("in", std::move(bytes));
    return OpenedHandle("in", ZMV_STREAM_READ);
  }
  ZMVStreamBuf* WriteHandle() { return OpenedHandle("out", ZMV_STREAM_WRITE); }

  static int64_t Read(ZMVStreamFile* file, uint32_t idx, uint32_t len, ByteVector* bytes) {
    bytes->assign(len, 0xEE);
    return ZMVStreamFile_ReadBuffer(file, idx, bytes->data(), len);
  }
  static int64_t Write(ZMVStreamFile* file, const ByteVector& bytes, uint32_t idx = 0) {
    return ZMVStreamFile_WriteBuffer(file, idx, bytes.data(), static_cast<uint32_t>(bytes.size()));
  }

  ScriptedHost host;

 private:
  ZMVStreamFile* Opened(const char* path, uint32_t mode) {
    ZMVStreamFile* file = nullptr;
    EXPECT_EQ(ZMVStreamFile_Open(&file, path, mode, 1), 0);
    files_.push_back(file);
    return file;
  }
  // With one cursor, number 0, without cache.
  ZMVStreamBuf* OpenedHandle(const char* path, uint32_t mode) {
    ZMVStreamBuf* handle = nullptr;
    EXPECT_EQ(ZMVStreamBuf_Open(&handle, path, 0, mode), 0);
    handles_.push_back(handle);
    uint32_t idx = 99;
    EXPECT_EQ(ZMVStreamBuf_Index(handle, &idx, 0), 0);
    EXPECT_EQ(idx, 0u);
    return handle;
  }

  std::vector<ZMVStreamFile*> files_;
  std::vector<ZMVStreamBuf*> handles_;
};

}  // namespace zmv::test

#endif
