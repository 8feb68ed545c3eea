// RIFF chunks in memory: braces are the chunk tree. A chunk writes its header when it opens and sets its own size when
// it closes; the size does not count the header. Data of odd length gets no pad byte here.
//
//     RiffBuilder out(dst);
//     {
//       RiffList info(out, FourCC("INFO"));
//       {
//         RiffChunk isft(out, FourCC("ISFT"));
//         out.Bytes(text, size);
//       }
//     }
//     return out.Size();
#ifndef ZMV_AVI_RIFF_BUILDER_H
#define ZMV_AVI_RIFF_BUILDER_H

#include <cstdint>
#include <cstring>

#include "avi/zmv_avi_format.h"
#include "base/byte_order.h"
#include "base/fourcc.h"

namespace zmv::avi {

// The place where bytes are put next; the caller answers for the room. Numbers are little-endian, codes stand in
// reading order.
class RiffBuilder {
 public:
  explicit RiffBuilder(uint8_t* dst) : begin_(dst), at_(dst) {}
  RiffBuilder(const RiffBuilder&) = delete;
  RiffBuilder& operator=(const RiffBuilder&) = delete;

  RiffBuilder& U32(uint32_t value) {
    StoreLE32(at_, value);
    at_ += sizeof value;
    return *this;
  }
  RiffBuilder& Code(uint32_t code) { return U32(code); }
  RiffBuilder& Zeros(uint32_t count) {
    std::memset(at_, 0, count);
    at_ += count;
    return *this;
  }
  RiffBuilder& Bytes(const void* bytes, uint32_t count) {
    if (count != 0) std::memcpy(at_, bytes, count);
    at_ += count;
    return *this;
  }

  uint8_t* At() const { return at_; }
  uint32_t Size() const { return static_cast<uint32_t>(at_ - begin_); }

 private:
  uint8_t* begin_;
  uint8_t* at_;
};

class RiffChunk {
 public:
  RiffChunk(RiffBuilder& out, uint32_t code) : out_(out), header_(out.At()), start_(out.Size()) {
    out.Code(code).U32(0);
  }
  ~RiffChunk() { StoreLE32(header_ + 4, out_.Size() - start_ - kChunkHeaderSize); }
  RiffChunk(const RiffChunk&) = delete;
  RiffChunk& operator=(const RiffChunk&) = delete;

 private:
  RiffBuilder& out_;
  uint8_t* header_;
  uint32_t start_;
};

class RiffList : public RiffChunk {
 public:
  RiffList(RiffBuilder& out, uint32_t type) : RiffChunk(out, FourCC("LIST")) { out.Code(type); }
};

}  // namespace zmv::avi

#endif
