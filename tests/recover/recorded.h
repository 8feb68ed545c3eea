// Recordings to cut and to damage: what was handed to the writer, where it lies in the file, and what a recovered file
// says of it by its tables, by its records and through the reader.
#ifndef ZMV_TESTS_RECORDED_H
#define ZMV_TESTS_RECORDED_H

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

struct TestFrame {
  uint32_t media = ZMV_MEDIA_VIDEO;
  uint32_t track = 0;
  uint64_t time = 0;
  uint32_t duration = 0;
  bool key = false;
  ByteVector payload;     // as it is handed to the writer
  uint64_t position = 0;  // of the record in the file
  uint64_t end = 0;       // behind the payload
  // What its record may say as well: behind a hole, the time since the frame before it in its stream.
  uint32_t since = 0;
};

// ---- What to record

// H.264 at 1 and AAC and text at their own rates, tables of ten entries: every track spills.
ZMVFileInfo SmallInfo(uint32_t video_code);
// Video, sound and text with GPS and sensor blocks, some frames of several sectors; the 32-bit time stamps wrap.
std::vector<TestFrame> SmallFrames();
// `count` frames of each track of `info`, one behind the other.
std::vector<TestFrame> FramesFor(const ZMVFileInfo& info, uint32_t count);

struct Recording {
  ByteVector open;    // as it is before it is closed
  ByteVector closed;  // and after
  uint64_t mdat = 0;
  std::vector<TestFrame> frames;  // with their places in the file

  // Frames that are complete in the first `length` bytes.
  size_t CompleteIn(uint64_t length) const;
};
// Records on the scripted host. The same front whenever it is called. `expire` 1: ten seconds. `before_close` may
// script failures of the host.
Recording Record(const ZMVFileInfo& info, std::vector<TestFrame> frames, uint8_t interleave = 1, uint64_t expire = 1,
                 const std::function<void()>& before_close = {});
// What the writer makes of the first frames: the recording that was closed behind each of them.
class References {
 public:
  References(const ZMVFileInfo& info, const std::vector<TestFrame>& frames) : info_(info), frames_(frames) {}
  const ByteVector& ClosedBehind(size_t count);

 private:
  ZMVFileInfo info_;
  std::vector<TestFrame> frames_;
  std::map<size_t, ByteVector> closed_;
};

// ---- What came back

struct BoxPlace {
  std::string type;
  size_t position;
  size_t size;
};
// The boxes at the top of a file; a fault is reported and ends the list.
std::vector<BoxPlace> TopBoxes(const ByteVector& file);
ByteVector BoxBytes(const ByteVector& file, const std::string& type);  // empty without such a box
// moov with zeros in place of all chunk offsets.
ByteVector MoovWithoutOffsets(const ByteVector& file);

// The payloads that the tables point at, track by track in file order, as they are stored.
struct Sample {
  uint64_t position;
  ByteVector bytes;
};
std::vector<std::vector<Sample>> TableSamples(const ByteVector& file);

// Compares the frames that `file` holds with the first `count` of `frames`: through the tables (positions, sizes,
// bytes), and the record in front of every payload (time, duration, key flag, stream, order). Words on the first
// difference, or none.
std::string CompareFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<TestFrame>& frames,
                          size_t count);
// The same, for any choice of the frames.
std::string CompareFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<TestFrame>& frames);

// Everything that the library's reader delivers of a file, in words.
std::vector<std::string> ReadBack(const ByteVector& file);

}  // namespace zmv::test

#endif
