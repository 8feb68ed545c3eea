#include "recover/recover_replay_stream.h"

#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "base/zmv_result.h"
#include "mp4/zmv_mp4_format.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kBufferSize = 64 * 1024;
constexpr uint32_t kMaxPosition = 0xFFFFFFFFu;  // files stay below 4 GiB

ReplayStream& StreamOf(void* context) { return *static_cast<ReplayStream*>(context); }

}  // namespace

int32_t ReplayStream::Prepare() {
  buffer_ = AllocateBytes(kModule, kBufferSize, __func__);
  if (!buffer_) return zmv::Result(ZMV_E_MEMORY);
  handle_.hInOut = this;
  handle_.Index = &TakeCursor;
  handle_.ReadBuffer = &ReadAtCursor;
  handle_.WriteBuffer = &WriteAtCursor;
  handle_.Seek = &MoveCursor;
  handle_.Pos = &CursorPosition;
  handle_.GetFilesize = &FileSize;
  return 0;
}

void ReplayStream::WriteFrom(uint32_t position) {
  if (position != end_) Flush();
  swallow_ = false;
  end_ = position;
  position_[0] = position;
}

int32_t ReplayStream::Fail(int32_t code) {
  if (!Failed(result_)) {
    result_ = code;
    ZMV_TRACE(kModule, kTraceError, "recovery stopped (0x%x)\n", static_cast<unsigned>(code));
  }
  return result_;
}

int32_t ReplayStream::WriteBuffered(uint32_t offset, uint32_t count) {
  if (count == 0) return 0;
  const int32_t result = file_.WriteAt(end_ - buffered_ + offset, buffer_.Get() + offset, count);
  return Failed(result) ? Fail(result) : 0;
}

// The sector in which the media data ends goes first and by itself. If it were lost while later ones are kept, what
// follows the last frame would be neither the end of the file nor the start of anything, and the frame itself would be
// in doubt.
int32_t ReplayStream::Flush() {
  if (Failed(result_) || buffered_ == 0) return result_;
  uint32_t anchor = 0;
  if (!anchored_) {
    anchor = std::min(buffered_, kSectorSize - (end_ - buffered_) % kSectorSize);
    if (Failed(WriteBuffered(0, anchor))) return result_;
    if (const int32_t result = file_.Sync(); Failed(result)) return Fail(result);
    anchored_ = true;
  }
  if (Failed(WriteBuffered(anchor, buffered_ - anchor))) return result_;
  buffered_ = 0;
  return 0;
}

int32_t ReplayStream::Append(const void* bytes, uint32_t count) {
  if (Failed(result_)) return result_;
  if (count > kMaxPosition - end_) return Fail(zmv::Result(ZMV_E_WRITE));
  const uint8_t* from = static_cast<const uint8_t*>(bytes);
  while (count != 0) {
    if (buffered_ == kBufferSize && Failed(Flush())) return result_;
    const uint32_t part = std::min(count, kBufferSize - buffered_);
    std::memcpy(buffer_.Get() + buffered_, from, part);
    buffered_ += part;
    end_ += part;
    from += part;
    count -= part;
  }
  return 0;
}

int32_t ReplayStream::Read(uint64_t position, void* bytes, uint32_t count) {
  if (position + count > end_ - buffered_ && Failed(Flush())) return result_;
  const int64_t read = file_.ReadAt(position, bytes, count);
  if (read < 0) return Fail(static_cast<int32_t>(read));
  return read < count ? Fail(zmv::Result(ZMV_E_READ)) : 0;
}

int32_t ReplayStream::Hold(const void* bytes, uint32_t count) {
  if (count > kHeldSize || held_count_ == kMaxHeld) return Fail(zmv::Result(ZMV_E_NOT_SUPPORTED));
  Held& held = held_[held_count_++];
  held.position = position_[0];
  std::memcpy(held.bytes, bytes, kHeldSize);
  return 0;
}

int64_t ReplayStream::Write(const void* bytes, uint32_t count) {
  if (swallow_) {
    position_[0] += count;
    return count;
  }
  if (Failed(result_)) return result_;
  int32_t result = 0;
  if (named_.Has(bytes)) {
    const uint32_t before = end_;
    result = named_.Generate(bytes, *this);
    if (!Failed(result) && end_ - before != count) result = Fail(zmv::Result(ZMV_E_READ));
  } else if (position_[0] == end_) {
    result = Append(bytes, count);
  } else {
    result = Hold(bytes, count);
  }
  if (Failed(result)) return result;
  position_[0] += count;
  return count;
}

// Written again, a word that stands would only cost a sync.
int32_t ReplayStream::Apply(const Held& held) {
  uint8_t before[kHeldSize];
  if (file_.ReadAt(held.position, before, kHeldSize) == kHeldSize && std::memcmp(before, held.bytes, kHeldSize) == 0) {
    return 0;
  }
  if (const int32_t result = file_.WriteAt(held.position, held.bytes, kHeldSize); Failed(result)) return Fail(result);
  if (const int32_t result = file_.Sync(); Failed(result)) return Fail(result);
  return 0;
}

// What the writer made of the file's size: a box over the rest of the file, an empty one, or none.
int32_t ReplayStream::FindLastBoxEnd(uint64_t& end) {
  end = end_;
  if (end_ - asked_at_ != mp4::kBoxHeaderSize) return 0;
  uint8_t header[mp4::kBoxHeaderSize];
  if (const int32_t result = Read(asked_at_, header, sizeof header); Failed(result)) return result;
  end = std::max<uint64_t>(end_, uint64_t{asked_at_} + LoadBE32(header));
  return 0;
}

int32_t ReplayStream::Settle(bool cut) {
  if (Failed(Flush())) return result_;
  uint64_t size = cut ? end_ : file_.Size();
  if (!cut && asked_ && Failed(FindLastBoxEnd(size))) return result_;
  if (file_.Size() > size) {
    if (const int32_t result = file_.Truncate(size); Failed(result)) return Fail(result);
  }
  const int32_t result = file_.Sync();
  return Failed(result) ? Fail(result) : 0;
}

int32_t ReplayStream::Commit() {
  std::sort(held_, held_ + held_count_, [](const Held& a, const Held& b) { return a.position > b.position; });
  for (uint32_t i = 0; i < held_count_; ++i) {
    if (Failed(result_) || Failed(Apply(held_[i]))) return result_;
  }
  held_count_ = 0;
  return result_;
}

// ---- The operations of the stream handle. Cursor 0 writes, cursor 1 reads.

int64_t ReplayStream::TakeCursor(void* context, uint32_t* index, uint32_t) {
  ReplayStream& stream = StreamOf(context);
  if (stream.cursors_ == kCursors) return zmv::Result(ZMV_E_MEMORY);
  *index = stream.cursors_++;
  return 0;
}

int64_t ReplayStream::ReadAtCursor(void* context, uint32_t index, void* bytes, uint32_t count) {
  ReplayStream& stream = StreamOf(context);
  if (index >= stream.cursors_) return zmv::Result(ZMV_E_FAIL);
  const int32_t result = stream.Read(stream.position_[index], bytes, count);
  if (Failed(result)) return result;
  stream.position_[index] += count;
  return count;
}

int64_t ReplayStream::WriteAtCursor(void* context, uint32_t index, const void* bytes, uint32_t count) {
  if (index != 0) return zmv::Result(ZMV_E_NOT_SUPPORTED);
  return StreamOf(context).Write(bytes, count);
}

int64_t ReplayStream::MoveCursor(void* context, uint32_t index, uint32_t position) {
  ReplayStream& stream = StreamOf(context);
  if (index >= stream.cursors_) return zmv::Result(ZMV_E_SEEK);
  stream.position_[index] = position;
  return 0;
}

uint32_t ReplayStream::CursorPosition(void* context, uint32_t index) {
  return index < kCursors ? StreamOf(context).position_[index] : 0;
}

int64_t ReplayStream::FileSize(void* context) {
  ReplayStream& stream = StreamOf(context);
  const uint64_t size = std::max<uint64_t>(stream.file_.Size(), stream.end_);
  const bool room_for_box = kMaxPosition - stream.end_ >= mp4::kBoxHeaderSize;
  stream.asked_ = true;
  stream.asked_at_ = stream.end_;
  return room_for_box ? static_cast<int64_t>(std::min<uint64_t>(size, kMaxPosition)) : int64_t{stream.end_};
}

}  // namespace zmv::recover
