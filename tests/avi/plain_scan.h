// The scanning of a file byte by byte, with nothing read ahead: what the reader has to find, however it goes about it.
#ifndef ZMV_TESTS_PLAIN_SCAN_H
#define ZMV_TESTS_PLAIN_SCAN_H

#include <algorithm>
#include <cctype>
#include <string>

#include "base/zmv_result.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

struct PlainScan {
  ByteVector bytes;
  uint32_t stream = 0;
  uint32_t streams = 1;
  bool extended = false;

  size_t position = 0;
  bool pad = false;
  uint32_t frames = 0;

  size_t Left() const { return bytes.size() - position; }
  void Pass(size_t count) { position += std::min(count, Left()); }

  uint32_t GetTag(std::string* code, uint32_t* size) {
    code->clear();
    *size = 0;
    std::string held;
    uint32_t zeros = 0;
    while (code->empty()) {
      if (Left() == 0) {
        position -= held.size();
        return ZMV_E_END;
      }
      const uint8_t byte = bytes[position++];
      zeros = byte == 0 ? zeros + 1 : 0;
      if (zeros > 2048) return ZMV_E_FAIL;
      if (byte >= 0x80 || !std::isalnum(byte)) {
        held.clear();
        continue;
      }
      held += static_cast<char>(byte);
      if (held.size() < 4) continue;
      if (IsTag(held)) {
        *code = held;
      } else if (held == "RIFF" || held == "LIST") {
        if (Left() < 8) return ZMV_E_SEEK;
        position += 8;
        held.clear();
      } else {
        held.erase(0, 1);
      }
    }
    if (Left() < 4) {
      position -= 4;
      return ZMV_E_FAIL;
    }
    for (int i = 3; i >= 0; --i) *size = *size << 8 | bytes[position + static_cast<size_t>(i)];
    position += 4;
    if (*size <= Left()) return 0;
    position -= 8;
    return ZMV_E_FAIL;
  }

  // The next chunk of the stream; its payload is put in `payload`.
  uint32_t Find(ByteVector* payload) {
    if (pad) Pass(1);
    pad = false;
    for (;;) {
      std::string code;
      uint32_t size = 0;
      const uint32_t result = GetTag(&code, &size);
      if (result == ZMV_E_SEEK) return result;
      if (result != 0) return ZMV_E_END;
      if (NamesStream(code)) {
        const uint32_t number = static_cast<uint32_t>((code[0] - '0') * 10 + (code[1] - '0'));
        const std::string kind = code.substr(2);
        if (number >= streams) continue;
        if (kind != "db" && kind != "dc" && kind != "wb") {
          Pass(1);
        } else if (number != stream) {
          Pass(size + size % 2);
        } else {
          ++frames;
          if (size == 0) continue;
          payload->assign(bytes.begin() + static_cast<ptrdiff_t>(position),
                          bytes.begin() + static_cast<ptrdiff_t>(position + size));
          position += size;
          pad = size % 2 != 0;
          return 0;
        }
      } else if (code.substr(0, 2) == "ix" || (code == "idx1" && !extended)) {
        Pass(size + size % 2);
      }
    }
  }

  static bool NamesStream(const std::string& code) {
    return std::isdigit(code[0]) && std::isdigit(code[1]) && !std::isdigit(code[2]) && !std::isdigit(code[3]);
  }
  static bool IsTag(const std::string& code) {
    return NamesStream(code) || code == "JUNK" || code == "idx1" || code.substr(0, 2) == "ix";
  }
};

}  // namespace zmv::test

#endif
