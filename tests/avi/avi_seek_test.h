// What the tests of AVI seeking share: streams whose index stands apart from their file.
#ifndef ZMV_TESTS_AVI_SEEK_TEST_H
#define ZMV_TESTS_AVI_SEEK_TEST_H

#include "tests/avi/plain_avi_seek.h"
#include "tests/avi/reader_records_test.h"

namespace zmv::test {

constexpr uint32_t kNext = 1;
constexpr uint32_t kPrevious = 2;
constexpr uint32_t kNearest = 3;

class AviSeekTest : public ReaderRecords {
 protected:
  // A video chunk and an audio chunk in turn, with a key frame every `group`.
  static AviSpec Recording(uint32_t frames = 48, uint32_t group = 12) {
    AviSpec file;
    file.streams = {VideoStream(), AacStream()};
    file.streams[1].rate = 25000;
    file.streams[1].scale = 1000;
    for (uint32_t i = 0; i < frames; ++i) {
      file.chunks.push_back({"00dc", FrameData(i), i % group == 0 ? 0x10u : 0u});
      file.chunks.push_back({"01wb", FrameData(i + 1000), 0x10});
    }
    return file;
  }
  // The number of a frame, as its payload.
  static ByteVector FrameData(uint32_t number) { return Join({Le32(number), ByteVector(number % 5, 0xEE)}); }
  static uint32_t NumberIn(const ReadResult& frame) {
    if (frame.data.size() < 4) return 0xFFFFFFFF;
    return static_cast<uint32_t>(frame.data[0] | frame.data[1] << 8 | frame.data[2] << 16 | frame.data[3] << 24);
  }
  PlainAviIndex IndexOf(uint32_t number) {
    const AVIReaderStream& stream = Stream(number);
    return {.entries = index_[number],
            .rate = stream.m_dwRate,
            .scale = stream.m_dwScale,
            .sample_size = stream.m_dwSampleSize,
            .start_time = stream.m_dwStartTime,
            .base = Reader()->m_dwBase,
            .data_end = Reader()->m_dwFileSize};
  }
  struct Found {
    uint8_t result;
    uint32_t time;
    PlainAviPlace place;
  };
  Found Search(uint32_t number, uint32_t mode, uint32_t time, uint32_t option = 0) {
    Found found{};
    AVIReaderStream& stream = Stream(number);
    found.time = time;
    found.result = AVIReaderGetSeekPos(Reader(), option, &stream, &found.time, mode);
    found.place = {stream.m_dwSeekEntry, stream.m_dwSeekFrame, stream.m_dwSeekUnits, stream.m_dwSeekPos, found.time};
    return found;
  }
  std::vector<ReadingPlace> Places() {
    std::vector<ReadingPlace> places;
    for (uint32_t i = 0; i < Reader()->m_dwStreamCount; ++i) places.push_back(PlaceOf(i));
    return places;
  }
};

}  // namespace zmv::test

#endif
