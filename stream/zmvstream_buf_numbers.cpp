// Numbers of fixed width at a cursor: one call of the provider each.
#include <cstring>

#include "base/trace.h"
#include "base/zmv_result.h"
#include "stream/buf_stream.h"
#include "stream/zmvstream_buf.h"

namespace zmv::stream {
namespace {

enum class Order { kBig, kLittle };

// A number of `kWidth` bytes and the 64-bit word that holds it in its low bytes.
template <uint32_t kWidth, Order kOrder>
uint64_t Decode(const uint8_t* bytes) {
  uint64_t word = 0;
  std::memcpy(&word, bytes, kWidth);
  if constexpr (kOrder == Order::kBig) word = __builtin_bswap64(word) >> (64 - 8 * kWidth);
  return word;
}

template <uint32_t kWidth, Order kOrder>
void Encode(uint64_t word, uint8_t* bytes) {
  if constexpr (kOrder == Order::kBig) word = __builtin_bswap64(word) >> (64 - 8 * kWidth);
  std::memcpy(bytes, &word, kWidth);
}

template <uint32_t kWidth, Order kOrder>
inline uint64_t ReadNumber(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  uint8_t bytes[kWidth] = {};
  const int64_t result = handle->ReadBuffer(handle->hInOut, idx, bytes, kWidth);
  if (result == kWidth) [[likely]]
    return Decode<kWidth, kOrder>(bytes);
  if (err != nullptr) *err = result;
  return 0;
}

[[gnu::cold]] int64_t NoWriteBuffer(const char* function) {
  ::ZMV_Trace(kBufModule.tag, kTraceError, kBufModule.source, __LINE__, function, "not support writebuffer function\n");
  return Result(ZMV_E_NOT_SUPPORTED);
}

template <uint32_t kWidth, Order kOrder>
inline int64_t WriteNumber(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err, const char* function) {
  if (handle->WriteBuffer == nullptr) [[unlikely]]
    return NoWriteBuffer(function);
  uint8_t bytes[kWidth];
  Encode<kWidth, kOrder>(value, bytes);
  const int64_t result = handle->WriteBuffer(handle->hInOut, idx, bytes, kWidth);
  if (result >= 0) [[likely]]
    return result;
  if (err != nullptr) *err = result;
  return 0;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

uint64_t ZMVStreamBuf_ReadByte(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  TraceScope scope(kBufModule, __func__);
  if (handle->ReadBuffer == nullptr) {
    return scope.Fail(uint64_t{ZMV_E_NOT_SUPPORTED}, "not support readbuffer function\n");
  }
  return ReadNumber<1, Order::kLittle>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<2, Order::kBig>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<2, Order::kLittle>(handle, idx, err);
}

uint64_t ZMVStreamBuf_Read3ByteBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<3, Order::kBig>(handle, idx, err);
}

uint64_t ZMVStreamBuf_Read3ByteLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<3, Order::kLittle>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadDWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<4, Order::kBig>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadDWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<4, Order::kLittle>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadQWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<8, Order::kBig>(handle, idx, err);
}

uint64_t ZMVStreamBuf_ReadQWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err) {
  return ReadNumber<8, Order::kLittle>(handle, idx, err);
}

int64_t ZMVStreamBuf_WriteByte(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err) {
  return WriteNumber<1, Order::kLittle>(handle, idx, value, err, __func__);
}

int64_t ZMVStreamBuf_WriteWordBE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err) {
  return WriteNumber<2, Order::kBig>(handle, idx, value, err, __func__);
}

int64_t ZMVStreamBuf_WriteWordLE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err) {
  return WriteNumber<2, Order::kLittle>(handle, idx, value, err, __func__);
}

int64_t ZMVStreamBuf_WriteDWordBE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err) {
  return WriteNumber<4, Order::kBig>(handle, idx, value, err, __func__);
}

int64_t ZMVStreamBuf_WriteDWordLE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err) {
  return WriteNumber<4, Order::kLittle>(handle, idx, value, err, __func__);
}
