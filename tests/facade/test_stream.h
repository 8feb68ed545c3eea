// Streams on files of the scripted host.
#ifndef ZMV_TESTS_FACADE_TEST_STREAM_H
#define ZMV_TESTS_FACADE_TEST_STREAM_H

#include "stream/zmvstream_buf.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

// A result code as the headers list it.
inline uint32_t Code(int64_t result) { return static_cast<uint32_t>(result); }

// An open stream with one cursor, closed at the end of its block.
class TestStream {
 public:
  TestStream(const char* path, uint32_t mode) {
    if (Failed(ZMVStreamBuf_Open(&stream_, path, 0, mode))) return;
    ZMVStreamBuf_Index(stream_, &cursor_, 0);
  }
  ~TestStream() { Close(); }
  TestStream(const TestStream&) = delete;
  TestStream& operator=(const TestStream&) = delete;

  void Close() {
    ZMVStreamBuf_Close(stream_);
    stream_ = nullptr;
  }
  ZMVStreamBuf* Get() const { return stream_; }
  uint32_t Cursor() const { return cursor_; }
  uint32_t Position() const { return ZMVStreamBuf_Pos(stream_, cursor_); }

 private:
  ZMVStreamBuf* stream_ = nullptr;
  uint32_t cursor_ = 0;
};

}  // namespace zmv::test

#endif
