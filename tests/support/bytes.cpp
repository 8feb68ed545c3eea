#include "tests/support/bytes.h"

#include <algorithm>
#include <cstdio>

namespace zmv::test {
namespace {

ByteVector Number(uint64_t value, int width, bool big) {
  ByteVector bytes;
  for (int i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * (big ? width - 1 - i : i))));
  return bytes;
}

}  // namespace

ByteVector Bytes(std::initializer_list<int> values) {
  ByteVector bytes;
  for (int value : values) bytes.push_back(static_cast<uint8_t>(value));
  return bytes;
}

ByteVector Be16(uint32_t value) { return Number(value, 2, true); }
ByteVector Be32(uint32_t value) { return Number(value, 4, true); }
ByteVector Be64(uint64_t value) { return Number(value, 8, true); }
ByteVector Le16(uint32_t value) { return Number(value, 2, false); }
ByteVector Le32(uint32_t value) { return Number(value, 4, false); }
ByteVector Text(std::string_view text) { return ByteVector(text.begin(), text.end()); }
ByteVector Zeros(size_t count) { return ByteVector(count, 0); }

ByteVector Join(std::initializer_list<ByteVector> parts) {
  ByteVector bytes;
  for (const ByteVector& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

ByteVector Hex(std::string_view digits) {
  ByteVector bytes;
  std::string pair;
  for (char digit : digits) {
    if (digit == ' ' || digit == '\n') continue;
    pair += digit;
    if (pair.size() == 2) {
      bytes.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
      pair.clear();
    }
  }
  return bytes;
}

std::string Difference(const ByteVector& actual, const ByteVector& expected) {
  size_t common = std::min(actual.size(), expected.size());
  size_t at = 0;
  while (at < common && actual[at] == expected[at]) ++at;
  if (at == common && actual.size() == expected.size()) return "";
  auto around = [&](const ByteVector& bytes) {
    std::string text;
    for (size_t i = at < 8 ? 0 : at - 8; i < std::min(bytes.size(), at + 24); ++i) {
      char piece[8];
      snprintf(piece, sizeof piece, i == at ? "[%02X] " : "%02X ", bytes[i]);
      text += piece;
    }
    return text;
  };
  return "sizes " + std::to_string(actual.size()) + " and " + std::to_string(expected.size()) +
         ", first difference at " + std::to_string(at) + "\n  actual:   " + around(actual) +
         "\n  expected: " + around(expected);
}

}  // namespace zmv::test
