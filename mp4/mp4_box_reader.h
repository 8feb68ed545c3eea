// Reading the fields of a box at a cursor. Reads chain on one error cell: after the first failure nothing more is read,
// and the caller asks once.
//
//     BoxReader box(*handle.m_hStream, handle.m_dwIndex, payload, "MP4ReaderParseMdia");
//     box.Skip(12).U32(&track.m_dwTimeScale).U32(&track.m_dwDuration);
//     if (box.Failed()) return box.Error();
//
// A field that does not lie inside the payload reads as 0 and is no failure.
#ifndef ZMV_MP4_BOX_READER_H
#define ZMV_MP4_BOX_READER_H

#include "base/trace.h"
#include "base/zmv_result.h"
#include "stream/zmvstream_buf.h"

namespace zmv::mp4::reader {

inline constexpr TraceModule kModule{"ZMVMP4R", "zmvstream_mp4_reader"};

// The code of a stream result: a failure as it is, a count that fell short as a failed read.
constexpr int32_t StreamError(int64_t result) {
  return zmv::Failed(result) ? static_cast<int32_t>(result) : Result(ZMV_E_READ);
}

// Says under an exported function's name that `error` ended it, and hands the code back.
inline int32_t Report(int32_t error, const char* function, uint32_t line = __builtin_LINE()) {
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, line, function, "err (0x%x)\n", static_cast<unsigned>(error));
  return error;
}

class BoxReader {
 public:
  BoxReader(ZMVStreamBuf& stream, uint32_t cursor, uint32_t payload, const char* function)
      : stream_(stream),
        cursor_(cursor),
        function_(function),
        at_(ZMVStreamBuf_Pos(&stream, cursor)),
        position_(at_),
        end_(position_ + payload) {}

  BoxReader& Skip(uint32_t bytes) {
    position_ = bytes < Left() ? position_ + bytes : end_;
    return *this;
  }
  BoxReader& U8(uint32_t* value, uint32_t line = __builtin_LINE()) {
    return Number<1>(value, &ZMVStreamBuf_ReadByte, line);
  }
  BoxReader& U16(uint32_t* value, uint32_t line = __builtin_LINE()) {
    return Number<2>(value, &ZMVStreamBuf_ReadWordBE, line);
  }
  BoxReader& U32(uint32_t* value, uint32_t line = __builtin_LINE()) {
    return Number<4>(value, &ZMVStreamBuf_ReadDWordBE, line);
  }
  // A four-character code.
  BoxReader& Code(uint32_t* value, uint32_t line = __builtin_LINE()) {
    return Number<4>(value, &ZMVStreamBuf_ReadDWordLE, line);
  }
  // `size` bytes to `to`; what lies beyond the payload is left as it is.
  BoxReader& Bytes(uint8_t* to, uint32_t size, uint32_t line = __builtin_LINE()) {
    if (size > Left()) size = static_cast<uint32_t>(Left());
    if (size == 0 || !Reach(line)) return *this;
    const int64_t result = ZMVStreamBuf_ReadBuffer(&stream_, cursor_, to, size);
    if (result != size) return Stop(result, line);
    return Advance(size);
  }

  // Where the next field lies, and how many bytes of the payload are left.
  uint32_t Position() const { return static_cast<uint32_t>(position_); }
  uint64_t Left() const { return end_ - position_; }
  // Puts the cursor where the next field lies, for a parser that takes over from here.
  int32_t Settle(uint32_t line = __builtin_LINE()) {
    Reach(line);
    return error_;
  }

  bool Failed() const { return error_ != 0; }
  int32_t Error() const { return error_; }

 private:
  using ReadCall = uint64_t (*)(ZMVStreamBuf*, uint32_t, int64_t*);

  template <uint32_t kWidth>
  BoxReader& Number(uint32_t* value, ReadCall read, uint32_t line) {
    *value = 0;
    if (Left() < kWidth) return Skip(kWidth);
    if (!Reach(line)) return *this;
    int64_t error = 0;
    *value = static_cast<uint32_t>(read(&stream_, cursor_, &error));
    if (error != 0) return Stop(error, line);
    return Advance(kWidth);
  }

  bool Reach(uint32_t line) {
    if (error_ != 0) return false;
    if (at_ == position_) return true;
    // A box may claim to pass 4 GiB; no data lies there.
    const int64_t result =
        position_ > 0xFFFFFFFFu ? int64_t{Result(ZMV_E_SEEK)} : ZMVStreamBuf_Seek(&stream_, cursor_, Position());
    if (zmv::Failed(result)) {
      Stop(result, line);
      return false;
    }
    at_ = position_;
    return true;
  }
  BoxReader& Advance(uint32_t bytes) {
    position_ += bytes;
    at_ = position_;
    return *this;
  }
  BoxReader& Stop(int64_t result, uint32_t line) {
    error_ = Report(StreamError(result), function_, line);
    return *this;
  }

  ZMVStreamBuf& stream_;
  uint32_t cursor_;
  const char* function_;
  uint64_t at_;  // where the cursor stands
  uint64_t position_;
  uint64_t end_;
  int32_t error_ = 0;
};

}  // namespace zmv::mp4::reader

#endif
