// Byte strings for tests: written down as the layouts are, compared in words.
#ifndef ZMV_TESTS_BYTES_H
#define ZMV_TESTS_BYTES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace zmv::test {

using ByteVector = std::vector<uint8_t>;

// A byte vector from numbers and texts: Bytes({0x00, 0x1C}), or Join({Be32(28), Text("ftyp"), Zeros(8)}).
ByteVector Bytes(std::initializer_list<int> values);
ByteVector Be16(uint32_t value);
ByteVector Be32(uint32_t value);
ByteVector Be64(uint64_t value);
ByteVector Le16(uint32_t value);
ByteVector Le32(uint32_t value);
ByteVector Text(std::string_view text);
ByteVector Zeros(size_t count);
ByteVector Join(std::initializer_list<ByteVector> parts);
ByteVector Hex(std::string_view digits);  // blanks are passed over
// The first difference of two byte strings in words, empty when equal: readable where EXPECT_EQ would print everything.
std::string Difference(const ByteVector& actual, const ByteVector& expected);

}  // namespace zmv::test

#endif
