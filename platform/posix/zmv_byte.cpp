#include "platform/zmv_byte.h"

#include <cstring>

#include "base/byte_order.h"
#include "base/host_memory.h"
#include "base/zmv_result.h"

namespace zmv {
namespace {

constexpr TraceModule kModule = {"zmvbyte", "zmv_byte.cpp"};

struct ByteReader {
  const uint8_t* at;
  uint32_t left;
};

// The next `count` bytes, or null with the error cell set. A failed read leaves the reader at the end.
const uint8_t* Take(void* reader_handle, uint32_t count, int64_t* err) {
  auto* reader = static_cast<ByteReader*>(reader_handle);
  if (reader == nullptr || count > reader->left) {
    if (err != nullptr) *err = Result(ZMV_E_READ);
    if (reader != nullptr) {
      reader->at += reader->left;
      reader->left = 0;
    }
    return nullptr;
  }
  const uint8_t* at = reader->at;
  reader->at += count;
  reader->left -= count;
  return at;
}

}  // namespace
}  // namespace zmv

extern "C" void* ZMVByte_Open(const uint8_t* buf, uint32_t size) {
  if (buf == nullptr) return nullptr;
  auto reader = zmv::AllocateRecord<zmv::ByteReader>(zmv::kModule, __func__);
  if (!reader) return nullptr;
  reader->at = buf;
  reader->left = size;
  return reader.Release();
}

extern "C" void ZMVByte_Close(void* r) {
  if (r != nullptr) zmv::FreeHost(r);
}

extern "C" void ZMVByte_Skip(void* r, uint32_t n, int64_t* err) { zmv::Take(r, n, err); }

extern "C" uint8_t ZMVByte_Get_char(void* r, int64_t* err) {
  const uint8_t* at = zmv::Take(r, 1, err);
  return at == nullptr ? uint8_t{0} : *at;
}

extern "C" uint32_t ZMVByte_Get_3char_be_uint32(void* r, int64_t* err) {
  const uint8_t* at = zmv::Take(r, 3, err);
  return at == nullptr ? 0 : zmv::LoadBE24(at);
}

extern "C" uint32_t ZMVByte_Get_be_uint32(void* r, int64_t* err) {
  const uint8_t* at = zmv::Take(r, 4, err);
  return at == nullptr ? 0 : zmv::LoadBE32(at);
}

extern "C" void ZMVByte_Get_string(void* r, uint8_t* dst, uint32_t n, int64_t* err) {
  const uint8_t* at = zmv::Take(r, n, err);
  if (at != nullptr && dst != nullptr && n != 0) std::memcpy(dst, at, n);
}
