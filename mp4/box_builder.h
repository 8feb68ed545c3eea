// Boxes in memory (ISO/IEC 14496-12, 4.2): braces are the box tree. A box writes its header when it opens and patches
// its own size when it closes.
//
//     BoxBuilder out(dst);
//     {
//       Box minf(out, FourCC("minf"));
//       {
//         FullBox vmhd(out, FourCC("vmhd"));
//         out.Zeros(8);
//       }
//     }
//     return out.Size();
#ifndef ZMV_MP4_BOX_BUILDER_H
#define ZMV_MP4_BOX_BUILDER_H

#include <cstdint>
#include <cstring>

#include "base/byte_order.h"
#include "base/fourcc.h"

namespace zmv::mp4 {

// The place where bytes are put next; the caller answers for the room. Numbers are big-endian, codes stand in reading
// order.
class BoxBuilder {
 public:
  explicit BoxBuilder(uint8_t* dst) : begin_(dst), at_(dst) {}
  BoxBuilder(const BoxBuilder&) = delete;
  BoxBuilder& operator=(const BoxBuilder&) = delete;

  BoxBuilder& U8(uint32_t value) {
    *at_++ = static_cast<uint8_t>(value);
    return *this;
  }
  BoxBuilder& U16(uint32_t value) {
    StoreBE16(at_, static_cast<uint16_t>(value));
    return Counted(2);
  }
  BoxBuilder& U24(uint32_t value) { return U8(value >> 16).U16(value); }
  BoxBuilder& U32(uint32_t value) {
    StoreBE32(at_, value);
    return Counted(4);
  }
  BoxBuilder& Code(uint32_t code) {
    StoreLE32(at_, code);
    return Counted(4);
  }
  BoxBuilder& Zeros(uint32_t count) {
    std::memset(at_, 0, count);
    return Counted(count);
  }
  BoxBuilder& Bytes(const uint8_t* bytes, uint32_t count) {
    if (count != 0) std::memcpy(at_, bytes, count);
    return Counted(count);
  }
  // `count` bytes that the caller has put at `At()` itself.
  BoxBuilder& Counted(uint32_t count) {
    at_ += count;
    return *this;
  }
  // Bytes of the open boxes that are not put down here: they count in the sizes, modulo 2^32, and move nothing.
  BoxBuilder& Elsewhere(uint32_t count) {
    elsewhere_ += count;
    return *this;
  }

  uint8_t* At() const { return at_; }
  // Everything so far, the bytes that stand elsewhere included.
  uint32_t Size() const { return static_cast<uint32_t>(at_ - begin_) + elsewhere_; }

 private:
  uint8_t* begin_;
  uint8_t* at_;
  uint32_t elsewhere_ = 0;
};

class Box {
 public:
  Box(BoxBuilder& out, uint32_t type) : out_(out), header_(out.At()), start_(out.Size()) { out.U32(0).Code(type); }
  ~Box() { StoreBE32(header_, out_.Size() - start_); }
  Box(const Box&) = delete;
  Box& operator=(const Box&) = delete;

 private:
  BoxBuilder& out_;
  uint8_t* header_;
  uint32_t start_;
};

// A box that begins with version 0 and flags.
class FullBox : public Box {
 public:
  FullBox(BoxBuilder& out, uint32_t type, uint32_t flags = 0) : Box(out, type) { out.U32(flags); }
};

}  // namespace zmv::mp4

#endif
