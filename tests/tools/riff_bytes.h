// RIFF files put together chunk by chunk.
#ifndef ZMV_TESTS_TOOLS_RIFF_BYTES_H
#define ZMV_TESTS_TOOLS_RIFF_BYTES_H

#include <initializer_list>
#include <string>

#include "tools/zmv/annexb.h"

namespace zmv::tool {

inline Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
inline Bytes Code(const std::string& text) { return Bytes(text.begin(), text.end()); }
inline Bytes Little32(uint32_t value) {
  return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
          static_cast<uint8_t>(value >> 24)};
}
// Padded to even length.
inline Bytes Chunk(const std::string& code, const Bytes& data) {
  Bytes chunk = Joined({Code(code), Little32(static_cast<uint32_t>(data.size())), data});
  if (data.size() % 2 != 0) chunk.push_back(0);
  return chunk;
}
inline Bytes List(const std::string& type, const Bytes& data) { return Chunk("LIST", Joined({Code(type), data})); }
inline Bytes Form(const std::string& type, const Bytes& data) { return Chunk("RIFF", Joined({Code(type), data})); }

// The header list of one stream; `behind` follows its format.
inline Bytes Stream(const std::string& type, const std::string& handler, uint32_t scale, uint32_t rate,
                    uint32_t sample_size = 0, const Bytes& behind = {}) {
  const Bytes header = Joined({
      Code(type), Code(handler), Little32(0),  // flags
      Little32(0x00070000),                    // priority 0, language 7
      Little32(0),                             // initial frames
      Little32(scale), Little32(rate),         //
      Little32(0), Little32(0), Little32(0),   // start, length, buffer
      Little32(0), Little32(sample_size),      // quality
      Bytes(8),                                // frame
  });
  return List("strl", Joined({Chunk("strh", header), Chunk("strf", Bytes(40)), behind}));
}
// `flags` 0x10: the file has an index.
inline Bytes Headers(const Bytes& streams, uint32_t flags = 0x10) {
  return List("hdrl", Joined({Chunk("avih", Joined({Bytes(12), Little32(flags), Bytes(40)})), streams}));
}
inline Bytes IndexEntry(const std::string& code, uint32_t offset, uint32_t size, uint32_t flags = 0x10) {
  return Joined({Code(code), Little32(flags), Little32(offset), Little32(size)});
}

}  // namespace zmv::tool

#endif
