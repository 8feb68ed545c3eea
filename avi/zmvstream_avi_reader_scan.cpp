// Finding chunks without an index: a scanner that looks for the code of a chunk byte by byte, and so finds its way
// again behind anything that is no chunk.
#include "avi/avi_frames.h"
#include "base/fourcc.h"

namespace zmv::avi::reader {
namespace {

constexpr int32_t kEnd = Result(ZMV_E_END);
constexpr int32_t kFail = Result(ZMV_E_FAIL);

constexpr uint32_t kCodeSize = 4;
constexpr uint32_t kSizeField = 4;
// Size and form behind "RIFF" and "LIST".
constexpr uint32_t kListRest = 8;
// So many zero bytes in a row may stand between chunks.
constexpr uint32_t kMaxZeroRun = 2048;

// ---- Codes, as 32-bit words whose low byte comes first in the file

constexpr bool IsDigit(uint32_t byte) { return byte - '0' < 10; }
constexpr bool IsLetter(uint32_t byte) { return (byte | 0x20u) - 'a' < 26; }

// "00dc": the number of a stream in two digits, and what kind of chunk it is.
constexpr bool NamesStream(uint32_t code) {
  return IsDigit(code & 0xFF) && IsDigit(code >> 8 & 0xFF) && !IsDigit(code >> 16 & 0xFF) && !IsDigit(code >> 24);
}
constexpr uint32_t StreamNumber(uint32_t code) { return 10 * ((code & 0xFF) - '0') + ((code >> 8 & 0xFF) - '0'); }

constexpr uint32_t Kind(uint32_t code) { return code >> 16; }
constexpr bool IsFrame(uint32_t code) {
  return Kind(code) == Kind(FourCC("00db")) || Kind(code) == Kind(FourCC("00dc")) || Kind(code) == Kind(FourCC("00wb"));
}

constexpr bool IsStandardIndex(uint32_t code) { return (code & 0xFFFF) == (FourCC("ix00") & 0xFFFF); }
constexpr bool IsTag(uint32_t code) {
  return NamesStream(code) || IsStandardIndex(code) || code == FourCC("JUNK") || code == FourCC("idx1");
}
constexpr bool IsList(uint32_t code) { return code == FourCC("RIFF") || code == FourCC("LIST"); }

// ---- Bytes

// The bytes behind a cursor one by one. They are read in blocks, small at first because most tags stand where the
// cursor does; Place puts the cursor where it belongs.
class ByteSource {
 public:
  ByteSource(ZMVStreamBuf& stream, uint32_t cursor, uint32_t data_end)
      : stream_(stream), cursor_(cursor), start_(ZMVStreamBuf_Pos(&stream, cursor)), end_(data_end) {}

  // False at the end of the data, and when a read failed.
  bool Next(uint8_t* byte) {
    if (next_ == count_ && !Fill()) return false;
    *byte = block_[next_++];
    return true;
  }
  // The position of the next byte.
  uint32_t Position() const { return start_ + next_; }
  uint32_t Left() const { return Position() < end_ ? end_ - Position() : 0; }
  // The code of a failed read, else 0.
  int32_t Error() const { return error_; }

  // Goes on behind the next `size` bytes, of which not all may have been taken from the file.
  int64_t Skip(uint32_t size) {
    if (size <= count_ - next_) {
      next_ += size;
      return 0;
    }
    const uint64_t target = uint64_t{Position()} + size;
    const int64_t result =
        target <= UINT32_MAX ? MoveTo(stream_, cursor_, static_cast<uint32_t>(target)) : Result(ZMV_E_SEEK);
    if (Failed(result)) return result;
    start_ = static_cast<uint32_t>(target);
    next_ = count_ = 0;
    return 0;
  }
  // Puts the cursor `back` bytes in front of the next byte.
  int64_t Place(uint32_t back) const { return MoveTo(stream_, cursor_, Position() - back); }

 private:
  bool Fill() {
    start_ += count_;
    next_ = count_ = 0;
    const uint32_t wanted = Left() < wanted_ ? Left() : wanted_;
    if (wanted == 0) return false;
    const int64_t result = ZMVStreamBuf_ReadBuffer(&stream_, cursor_, block_, wanted);
    if (result <= 0 || result > wanted) {
      error_ = StreamError(result);
      return false;
    }
    count_ = static_cast<uint32_t>(result);
    if (wanted_ < sizeof(block_)) wanted_ *= 2;
    return true;
  }

  ZMVStreamBuf& stream_;
  uint32_t cursor_;
  uint32_t start_;  // position of the block
  uint32_t end_;    // of the data
  uint32_t next_ = 0;
  uint32_t count_ = 0;
  uint32_t wanted_ = kChunkHeaderSize;
  int32_t error_ = 0;
  uint8_t block_[64 * kChunkHeaderSize];
};

// ---- Tags

// The last bytes seen, as many as may still become a code.
class CodeRegister {
 public:
  void Clear() { held_ = 0; }
  // True when there are four.
  bool Add(uint8_t byte) {
    code_ = code_ >> 8 | uint32_t{byte} << 24;
    return ++held_ == kCodeSize;
  }
  void DropOldest() { --held_; }
  uint32_t Code() const { return code_; }
  uint32_t Held() const { return held_; }

 private:
  uint32_t code_ = 0;
  uint32_t held_ = 0;
};

// Takes bytes up to and with the code of a chunk. `*back` is by how much the cursor has to go back when there is none.
int32_t TakeCode(ByteSource& bytes, uint32_t* code, uint32_t* back) {
  CodeRegister seen;
  uint32_t zeros = 0;
  uint8_t byte = 0;
  while (bytes.Next(&byte)) {
    zeros = byte == 0 ? zeros + 1 : 0;
    if (zeros > kMaxZeroRun) return kFail;
    if (!IsDigit(byte) && !IsLetter(byte)) {
      seen.Clear();
      continue;
    }
    if (!seen.Add(byte)) continue;
    if (IsTag(seen.Code())) {
      *code = seen.Code();
      return 0;
    }
    if (IsList(seen.Code())) {
      const int64_t result = bytes.Skip(kListRest);
      if (Failed(result)) return StreamError(result);
      seen.Clear();
    } else {
      seen.DropOldest();
    }
  }
  *back = seen.Held();
  return bytes.Error() != 0 ? Result(ZMV_E_READ) : kEnd;
}

// Takes the size behind a code.
int32_t TakeSize(ByteSource& bytes, uint32_t* size, uint32_t* back, const char* function) {
  *back = kCodeSize;
  if (bytes.Left() < kSizeField) return kFail;
  uint32_t value = 0;
  for (uint32_t shift = 0; shift < 32; shift += 8) {
    uint8_t byte = 0;
    if (!bytes.Next(&byte)) return Report(StreamError(bytes.Error()), function);
    value |= uint32_t{byte} << shift;
    ++*back;
  }
  *size = value;
  return value > bytes.Left() ? kFail : 0;
}

// The next chunk header at a cursor, which is then behind it; without one it is where looking may go on.
int32_t NextTag(ZMVStreamBuf& stream, uint32_t cursor, uint32_t data_end, uint32_t* code, uint32_t* size,
                const char* function) {
  *code = *size = 0;
  ByteSource bytes(stream, cursor, data_end);
  uint32_t back = 0;
  int32_t result = TakeCode(bytes, code, &back);
  if (!Failed(result)) result = TakeSize(bytes, size, &back, function);
  const int64_t placed = bytes.Place(Failed(result) ? back : 0);
  return Failed(result) || !Failed(placed) ? result : StreamError(placed);
}

// ---- Frames

// Scanning goes on at `position`, or at the end of the data.
int32_t GoTo(const AVIReaderStream& stream, uint64_t position, const char* function) {
  const int64_t result =
      MoveTo(stream, position < stream.m_dwDataEnd ? static_cast<uint32_t>(position) : stream.m_dwDataEnd);
  return Failed(result) ? Report(StreamError(result), function) : 0;
}

constexpr uint64_t Padded(uint32_t size) { return uint64_t{size} + size % 2; }

// How many bytes behind its header a chunk that is not wanted is left at.
uint64_t BytesToPass(const AVIReaderHandle& handle, uint32_t code, uint32_t size) {
  if (NamesStream(code)) {
    if (StreamNumber(code) >= handle.m_dwStreamCount) return 0;
    return IsFrame(code) ? Padded(size) : 1;
  }
  const bool index = IsStandardIndex(code) || (code == FourCC("idx1") && handle.m_bExtended == 0);
  return index ? Padded(size) : 0;
}

// True when scanning goes on one byte further although no chunk could be had: there is more data to come.
bool GoesOn(const AVIReaderHandle& handle, const AVIReaderStream& stream, int32_t result) {
  return result == kFail && stream.m_dwDataEnd < handle.m_dwFileSize;
}

// Finds the next chunk of the stream that is not empty. The cursor is then behind its header.
int32_t ScanForFrame(const AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t* size, const char* function) {
  for (;;) {
    uint32_t code = 0;
    int32_t result = NextTag(*stream.m_hStream, stream.m_dwIndex, stream.m_dwDataEnd, &code, size, function);
    uint64_t pass = 1;
    if (Failed(result)) {
      if (result == Result(ZMV_E_READ) || result == Result(ZMV_E_SEEK)) return result;
      if (!GoesOn(handle, stream, result)) return kEnd;
    } else if (NamesStream(code) && IsFrame(code) && StreamNumber(code) == stream.m_dwStreamNo &&
               stream.m_dwStreamNo < handle.m_dwStreamCount) {
      ++stream.m_dwFrameNo;
      if (*size != 0) return 0;
      continue;
    } else {
      pass = BytesToPass(handle, code, *size);
    }
    if (pass == 0) continue;
    result = GoTo(stream, ZMVStreamBuf_Pos(stream.m_hStream, stream.m_dwIndex) + pass, function);
    if (Failed(result)) return result;
  }
}

}  // namespace

int32_t FindByScan(const AVIReaderHandle& handle, AVIReaderStream& stream, const char* function) {
  stream.m_dwDataEnd = DataEnd(*stream.m_hStream);
  // A file may end without the pad byte of its last chunk.
  const int32_t moved = GoTo(stream, uint64_t{stream.m_dwPos} + (stream.m_bPadPending != 0 ? 1 : 0), function);
  if (Failed(moved)) return moved;
  stream.m_bPadPending = 0;
  stream.m_dwPendingSize = 0;
  uint32_t size = 0;
  const int32_t result = ScanForFrame(handle, stream, &size, function);
  stream.m_dwPos = ZMVStreamBuf_Pos(stream.m_hStream, stream.m_dwIndex);
  if (Failed(result)) return result;
  stream.m_dwPos += size;
  stream.m_dwPendingSize = size;
  stream.m_bPadPending = static_cast<uint8_t>(size % 2);
  return 0;
}

}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

int32_t AVIReaderGetTag(ZMVStreamBuf* stream, uint32_t cursor, uint32_t* code, uint32_t* size) {
  TraceScope scope(kModule, __func__);
  if (stream == nullptr || code == nullptr || size == nullptr) return scope.Fail(kFail);
  const int32_t result = NextTag(*stream, cursor, DataEnd(*stream), code, size, __func__);
  return Failed(result) && result != kEnd ? scope.Fail(result) : result;
}

int32_t AVIReaderFindStreamFrame(AVIReaderHandle* handle, AVIReaderStream* stream) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || stream == nullptr || stream->m_hStream == nullptr) return scope.Fail(kFail);
  const int32_t result = FindByScan(*handle, *stream, __func__);
  return Failed(result) && result != kEnd ? scope.Fail(result) : result;
}
