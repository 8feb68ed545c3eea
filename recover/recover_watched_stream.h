// The stream of a new recording under watch. The writers do not look at the result of every write, and closing reports
// nothing: the first failure is kept here, and nothing is written behind it.
//
//     WatchedStream watched;
//     watched.Attach(*writer->m_hInOut);
//     ... the writer at work ...
//     if (Failed(watched.Result())) ...
//     watched.Detach();               // before the stream is closed
#ifndef ZMV_RECOVER_WATCHED_STREAM_H
#define ZMV_RECOVER_WATCHED_STREAM_H

#include "recover/recover_named_bytes.h"
#include "stream/zmvstream_buf.h"

namespace zmv::recover {

class WatchedStream {
 public:
  WatchedStream() = default;
  ~WatchedStream() { Detach(); }
  WatchedStream(const WatchedStream&) = delete;
  WatchedStream& operator=(const WatchedStream&) = delete;

  // Takes the place of the stream's provider, which then works behind it. A read that the provider carries out in part
  // is carried through, a write in part has failed. `stream` is open for writing and stays until Detach.
  void Attach(ZMVStreamBuf& stream);
  // Puts the provider back.
  void Detach();
  // What is generated where it is written, from the stream itself, whose cursor 1 reads.
  NamedBytes& Named() { return named_; }
  // 0, or the first failure.
  int32_t Result() const { return result_; }

 private:
  class Generated;

  static int64_t TakeCursor(void* context, uint32_t* index, uint32_t cache_size);
  static int64_t ReleaseCursor(void* context, uint32_t index);
  static int64_t Size(void* context);
  static const char* Name(void* context);
  static int64_t ReadAtCursor(void* context, uint32_t index, void* bytes, uint32_t count);
  static int64_t WriteAtCursor(void* context, uint32_t index, const void* bytes, uint32_t count);
  static int64_t SkipCursor(void* context, uint32_t index, int32_t distance);
  static int64_t MoveCursor(void* context, uint32_t index, uint32_t position);
  static int64_t MoveCursorFromEnd(void* context, uint32_t index, int32_t distance);
  static uint32_t CursorPosition(void* context, uint32_t index);
  static int64_t FileSize(void* context);
  static int64_t Sync(void* context, uint8_t flag);

  int64_t Read(uint32_t index, void* bytes, uint32_t count);
  int64_t Write(uint32_t index, const void* bytes, uint32_t count);
  int64_t Generate(uint32_t index, const void* name, uint32_t count);
  int64_t Note(int64_t result);

  ZMVStreamBuf* stream_ = nullptr;
  ZMVStreamBuf provider_ = {};
  NamedBytes named_;
  int32_t result_ = 0;
};

}  // namespace zmv::recover

#endif
