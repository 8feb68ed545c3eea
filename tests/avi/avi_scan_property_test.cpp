// Scanning against its plain form, on files put together of codes, sizes and noise.
#include "tests/avi/plain_scan.h"
#include "tests/avi/reader_records_test.h"

namespace zmv::test {
namespace {

class AviScanProperty : public ReaderRecords {
 protected:
  std::mt19937 random_{20240817};

  ByteVector Piece() {
    static const char* const kTexts[] = {"00dc", "00db", "01wb", "01tx", "00pc", "05dc", "12wb", "ix00", "idx1",
                                         "JUNK", "RIFF", "LIST", "rec ", "movi", "0",    "00",   "d",    "ix"};
    switch (random_() % 8) {
      case 0:  // mostly what ends the scan at once
        return random_() % 20 == 0 ? Text(kTexts[random_() % std::size(kTexts)]) : Text("x");
      case 1:
      case 2:
        return Join({Text(kTexts[random_() % std::size(kTexts)]), Le32(static_cast<uint32_t>(random_() % 20))});
      case 3:
        return Le32(static_cast<uint32_t>(random_() % 40));
      case 4:
        return Join({Text(random_() % 2 == 0 ? "00dc" : "01wb"), Le32(static_cast<uint32_t>(random_() % 60))});
      case 5:
        return Zeros(random_() % 300 == 0 ? 2000 + random_() % 100 : random_() % 6);
      case 6:
        return Payload(static_cast<uint32_t>(random_() % 50), static_cast<uint8_t>(random_()));
      default: {
        ByteVector bytes(random_() % 5);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random_());
        return bytes;
      }
    }
  }
  ByteVector RandomFile() {
    ByteVector bytes;
    const size_t pieces = random_() % 200;
    for (size_t i = 0; i < pieces; ++i) {
      const ByteVector piece = Piece();
      bytes.insert(bytes.end(), piece.begin(), piece.end());
    }
    return bytes;
  }
};

TEST_F(AviScanProperty, RandomFiles_GiveTheFramesOfAPlainScan) {
  host_.trace_level = 0;
  host_.record = false;
  constexpr uint32_t kCaches[] = {0, 8, 100, 1024};
  size_t frames = 0;
  for (int run = 0; run < 10000; ++run) {
    const ByteVector bytes = RandomFile();
    cache_size_ = kCaches[random_() % std::size(kCaches)];
    host_.max_transfer = random_() % 4 == 0 ? 1 + random_() % 20 : UINT64_MAX;
    LoadBytes(bytes, {VideoStream(), AacStream()});
    for (uint32_t number : {0u, 1u}) {
      PlainScan plain{.bytes = bytes, .stream = number, .streams = 2, .extended = random_() % 2 == 0};
      Reader()->m_bExtended = plain.extended;
      for (int failures = 0; failures < 4;) {
        ByteVector expected;
        const uint32_t code = plain.Find(&expected);
        const ReadResult result = Read(number == 0 ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO);
        ASSERT_EQ(result.code, code) << "run " << run;
        ASSERT_EQ(result.data, expected) << "run " << run;
        ASSERT_EQ(PlaceOf(number).frame, plain.frames) << "run " << run;
        ASSERT_EQ(PlaceOf(number).position, plain.position) << "run " << run;
        ASSERT_EQ(PlaceOf(number).cursor, plain.position) << "run " << run;
        ASSERT_EQ(PlaceOf(number).pad != 0, plain.pad) << "run " << run;
        if (code != 0) {
          ++failures;
        } else {
          ++frames;
        }
      }
    }
  }
  EXPECT_GT(frames, 10000u);
}

}  // namespace
}  // namespace zmv::test
