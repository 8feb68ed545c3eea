// Loads and stores of fixed-width numbers in memory, whatever the alignment.
#ifndef ZMV_BASE_BYTE_ORDER_H
#define ZMV_BASE_BYTE_ORDER_H

#include <cstdint>
#include <cstring>

namespace zmv {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "four-character codes rely on a little-endian target");

inline void StoreLE16(uint8_t* to, uint16_t value) { std::memcpy(to, &value, sizeof value); }
inline void StoreLE32(uint8_t* to, uint32_t value) { std::memcpy(to, &value, sizeof value); }
inline void StoreBE16(uint8_t* to, uint16_t value) { StoreLE16(to, __builtin_bswap16(value)); }
inline void StoreBE32(uint8_t* to, uint32_t value) { StoreLE32(to, __builtin_bswap32(value)); }

inline uint16_t LoadLE16(const uint8_t* from) {
  uint16_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline uint32_t LoadLE32(const uint8_t* from) {
  uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline uint64_t LoadLE64(const uint8_t* from) {
  uint64_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline uint16_t LoadBE16(const uint8_t* from) { return __builtin_bswap16(LoadLE16(from)); }
inline uint32_t LoadBE32(const uint8_t* from) { return __builtin_bswap32(LoadLE32(from)); }
inline uint64_t LoadBE64(const uint8_t* from) { return __builtin_bswap64(LoadLE64(from)); }
inline uint32_t LoadBE24(const uint8_t* from) {
  return (static_cast<uint32_t>(from[0]) << 16) | (static_cast<uint32_t>(from[1]) << 8) | from[2];
}

}  // namespace zmv

#endif
