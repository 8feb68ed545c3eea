// A stream over the damaged file itself, on which the MP4 writer is replayed: most of what the writer writes stands in
// the file already and only moves its cursor; what is missing is appended; what would change bytes that stand is held
// back until everything else is on the storage medium.
//
//     ReplayStream stream(file);
//     if (Failed(stream.Prepare())) ...
//     MP4WriterOpen(&writer, stream.Handle(), ...);    // swallowed: nothing reaches the file
//     stream.WriteFrom(tail);
//     MP4WriterClose(writer);                          // appended; the sizes are held back
//     result = stream.Settle(cut);
//     if (!Failed(result)) result = stream.Commit();
#ifndef ZMV_RECOVER_REPLAY_STREAM_H
#define ZMV_RECOVER_REPLAY_STREAM_H

#include "base/host_memory.h"
#include "recover/recover_file.h"
#include "recover/recover_named_bytes.h"
#include "stream/zmvstream_buf.h"

namespace zmv::recover {

class ReplayStream final : public Output {
 public:
  explicit ReplayStream(File& file) : file_(file) {}
  ReplayStream(const ReplayStream&) = delete;
  ReplayStream& operator=(const ReplayStream&) = delete;

  // Takes the memory. 0, or ZMV_E_MEMORY. The stream then swallows.
  int32_t Prepare();
  ZMVStreamBuf* Handle() { return &handle_; }

  // From here on a write only moves the cursor.
  void Swallow() { swallow_ = true; }
  // From here on writes are appended at `position`, and those that go elsewhere are held back.
  void WriteFrom(uint32_t position);
  // Where the next appended byte goes.
  uint32_t End() const { return end_; }
  // What is generated where the writer writes it.
  NamedBytes& Named() { return named_; }

  int32_t Append(const void* bytes, uint32_t count) override;
  // Those that have just been appended, too.
  int32_t Read(uint64_t position, void* bytes, uint32_t count) override;
  int32_t Result() const override { return result_; }

  // Something is held back.
  bool Holds() const { return held_count_ != 0; }
  // Puts the appended bytes on the storage medium. Bytes behind what the writer was told of the file's size go, which
  // is below 4 GiB however long the file is; with `cut`, all bytes behind the appended ones. 0, or the first failure.
  int32_t Settle(bool cut);
  // Writes what was held back, from the end of the file to its beginning, each word on the medium before the next one.
  // The size of the media data, which makes the file whole, is therefore the last that changes. After Settle. 0, or the
  // first failure.
  int32_t Commit();

 private:
  static constexpr uint32_t kCursors = 2;
  static constexpr uint32_t kMaxHeld = 4;
  static constexpr uint32_t kHeldSize = 4;
  struct Held {
    uint32_t position;
    uint8_t bytes[kHeldSize];
  };

  static int64_t TakeCursor(void* context, uint32_t* index, uint32_t cache_size);
  static int64_t ReadAtCursor(void* context, uint32_t index, void* bytes, uint32_t count);
  static int64_t WriteAtCursor(void* context, uint32_t index, const void* bytes, uint32_t count);
  static int64_t MoveCursor(void* context, uint32_t index, uint32_t position);
  static uint32_t CursorPosition(void* context, uint32_t index);
  static int64_t FileSize(void* context);

  int64_t Write(const void* bytes, uint32_t count);
  int32_t Hold(const void* bytes, uint32_t count);
  int32_t Flush();
  int32_t WriteBuffered(uint32_t offset, uint32_t count);
  int32_t Apply(const Held& held);
  int32_t FindLastBoxEnd(uint64_t& end);
  int32_t Fail(int32_t code);

  File& file_;
  ZMVStreamBuf handle_ = {};
  HostMemory<uint8_t> buffer_;  // appended bytes that are not in the file yet; they end at end_
  uint32_t buffered_ = 0;
  bool anchored_ = false;  // the first appended bytes are on the medium
  uint32_t end_ = 0;
  bool asked_ = false;     // the writer has asked for the file's size,
  uint32_t asked_at_ = 0;  // behind its last box but the one that covers the rest of the file
  bool swallow_ = true;
  uint32_t cursors_ = 0;
  uint32_t position_[kCursors] = {};
  Held held_[kMaxHeld] = {};
  uint32_t held_count_ = 0;
  NamedBytes named_;
  int32_t result_ = 0;
};

}  // namespace zmv::recover

#endif
