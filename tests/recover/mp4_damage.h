// What a damaged stretch of an MP4 recording may cost.
#ifndef ZMV_TESTS_MP4_DAMAGE_H
#define ZMV_TESTS_MP4_DAMAGE_H

#include <algorithm>
#include <functional>
#include <vector>

#include "tests/recover/recover_test.h"

namespace zmv::test {

constexpr size_t kSector = 512;

// From its record to the end of its payload: tables that were spilled between the two are a part of it, since a lost
// header of theirs leaves no way to the payload.
inline bool Touches(const StoredFrame& frame, size_t from, size_t to) {
  return frame.position < to && frame.End() > from;
}

// What a damaged frame may still say: exactly its record.
inline bool SameRecord(const StoredFrame& one, const StoredFrame& other) {
  StoredFrame same = one;
  same.bytes = other.bytes;
  return one.bytes.size() == other.bytes.size() && same == other;
}

enum class Allow { kNothing, kUncompressed, kAnyMedium };

// Every untouched frame in order, and of the touched ones only those that cannot be told from sound ones.
inline void ExpectLosesOnlyTouched(const Found& found, const std::vector<StoredFrame>& frames, size_t from, size_t to,
                                   Allow allow) {
  ASSERT_EQ(found.result, 0);
  size_t next = 0;
  for (const StoredFrame& frame : frames) {
    const bool here = next < found.frames.size() && found.frames[next].position == frame.position;
    if (!Touches(frame, from, to)) {
      ASSERT_TRUE(here) << "damage at " << from << " loses " << frame;
      ASSERT_EQ(found.frames[next], frame) << "damage at " << from;
    } else if (here) {
      const bool told = allow == Allow::kAnyMedium || (allow == Allow::kUncompressed && frame.media == ZMV_MEDIA_TEXT);
      ASSERT_TRUE(told && SameRecord(found.frames[next], frame)) << "damage at " << from << ", " << found.frames[next];
    }
    if (here) ++next;
  }
  ASSERT_EQ(next, found.frames.size()) << "damage at " << from << " invents " << found.frames[next];
}

// Overwrites one sector, as far as the file goes.
inline ByteVector WithSector(const ByteVector& file, size_t from, const std::function<uint8_t()>& byte) {
  ByteVector bytes = file;
  for (size_t i = from; i < std::min(from + kSector, file.size()); ++i) bytes[i] = byte();
  return bytes;
}

}  // namespace zmv::test

#endif
