// Whole files, byte by byte: tables that outgrow their buffers and spill into the media data.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/mp4_expected.h"

namespace zmv::test {
namespace {

using namespace expected;

class WholeSpills : public ::testing::Test {
 protected:
  ScriptedHost host_;
};

// MP4V at a frame a second and in milliseconds: with a horizon of 10 seconds every table holds 10 entries.
ZMVFileInfo SlowVideo() {
  ZMVFileInfo info = FileInfo();
  info.dwTimeScale = 1000;
  ZMVVideoInfo& video = AddVideo(info, FourCC("MP4V"), 64, 48, 9600, {});
  video.dwFrameRate = 1000;
  video.dwTimeScale = 1000;
  return info;
}
constexpr int64_t kTenSeconds = 1;

ByteVector SlowVideoStsd() {
  // clang-format off
  return StsdOf({
      Be32(121), Text("mp4v"), Zeros(6), Be16(1),  // 86 + 35, data reference index
      Zeros(16), Be16(64), Be16(48),               // reserved, picture size
      Zeros(8), Zeros(4), Be16(0), Zeros(32),      // no resolution, reserved, no frame count, compressor
      Be16(0), Be16(0xFFFF),                       // no depth, pre-defined
      PlainEsds(0x20, 0x11, 3, 9600),
  });
  // clang-format on
}

ByteVector SlowVideoRecovery() {
  // clang-format off
  return Join({
      Be32(44), Text("free"), Text("RECO"), Be32(0), Text("MP4V"),  // recovery box, sample entry type
      Be32(64), Be32(48), Be32(1000), Be32(9600), Be32(1000),       // size, frame rate, bit rate, time scale
      Be32(0),                                                      // no configuration
  });
  // clang-format on
}

// mdat as it grows: its bytes, and where each payload of a track begins.
struct Media {
  explicit Media(uint32_t mdat) : position(mdat), bytes(Zeros(8)) {}
  void Put(const ByteVector& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
  void Spill(const ByteVector& entries) {
    Put(Join({Text("tabl"), Be32(static_cast<uint32_t>(entries.size())), entries}));
  }
  uint32_t End() const { return position + static_cast<uint32_t>(bytes.size()); }
  ByteVector Box() const {
    ByteVector box = Join({Be32(static_cast<uint32_t>(bytes.size())), Text("mdat"), bytes});
    box.erase(box.begin() + 8, box.begin() + 16);
    return box;
  }
  uint32_t position;
  ByteVector bytes;
};

ByteVector Numbers(const std::vector<uint32_t>& values) {
  ByteVector all;
  for (uint32_t value : values) all = Join({all, Be32(value)});
  return all;
}

// Payload n has 3 bytes when n is odd, else 2.
ByteVector Payload(uint32_t n) { return ByteVector(2 + n % 2, static_cast<uint8_t>(n)); }

TEST_F(WholeSpills, Interleaved_EveryTableSpillsOnce) {
  Mp4Recording recording(SlowVideo(), 1, kTenSeconds);
  // Durations that change with every frame fill stts, key frames only fill stss.
  for (uint32_t n = 1; n <= 13; ++n) recording.Video(Payload(n), n * 1000, true, n);
  const ByteVector file = recording.Finish();

  Media media(28 + 44 + RandomBoxSize() + 23);
  std::vector<uint32_t> offsets;
  for (uint32_t n = 1; n <= 13; ++n) {
    // The run of frame n is written with frame n + 1, and the first frame has none: the eleventh entry comes with
    // frame 13.
    if (n == 13) {
      // clang-format off
      media.Spill(Join({
          SttsEntry(1, 2), SttsEntry(1, 3), SttsEntry(1, 4), SttsEntry(1, 5), SttsEntry(1, 6),
          SttsEntry(1, 7), SttsEntry(1, 8), SttsEntry(1, 9), SttsEntry(1, 10), SttsEntry(1, 11),
      }));
      // clang-format on
    }
    if (n == 11) {
      media.Spill(Numbers({3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));   // stsz
      media.Spill(Numbers({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));  // stss
    }
    media.Put(Reco(1, 1, n, n * 1000, 0, 2 + n % 2));
    if (n == 11) media.Spill(Numbers(offsets));  // between the record and the payload
    offsets.push_back(media.End());
    media.Put(Payload(n));
  }
  // 13 records, 33 bytes of payload, four blocks.
  ASSERT_EQ(media.bytes.size(), 8u + 13u * 28u + 33u + 88u + 48u + 48u + 48u);

  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(), SlowVideoRecovery(), RandomBox(), BuildInformation(), media.Box(),
      BoxOf("moov", {
          Mvhd(1000, 91, 1),  // 1 + 2 + ... + 13
          TrakOf({Tkhd(1, 91, 0, 64, 48), Mdhd(1000, 91), Hdlr("vide", "vide"), Vmhd(), SlowVideoStsd(),
                  {
                      TableOf("stts", 12, {
                          SttsEntry(1, 2), SttsEntry(1, 3), SttsEntry(1, 4), SttsEntry(1, 5), SttsEntry(1, 6),
                          SttsEntry(1, 7), SttsEntry(1, 8), SttsEntry(1, 9), SttsEntry(1, 10), SttsEntry(1, 11),
                          SttsEntry(1, 12), SttsEntry(2, 13),
                      }),
                      StscInterleaved(),
                      StszOf({3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3}),
                      TableOf("stco", 13, {Numbers(offsets)}),
                      TableOf("stss", 13, {Numbers({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13})}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(WholeSpills, Interleaved_TablesSpillAgainAndAgain) {
  Mp4Recording recording(SlowVideo(), 1, kTenSeconds);
  for (uint32_t n = 1; n <= 35; ++n) recording.Video(Payload(n), 1000, n == 1, n);
  const ByteVector file = recording.Finish();

  Media media(28 + 44 + RandomBoxSize() + 23);
  std::vector<uint32_t> offsets;
  for (uint32_t n = 1; n <= 35; ++n) {
    const bool spill = n == 11 || n == 21 || n == 31;
    if (spill) media.Spill(Numbers({3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));
    media.Put(Reco(1, n == 1 ? 1 : 0, n, 1000, 0, 2 + n % 2));
    if (spill) media.Spill(Numbers({offsets.end() - 10, offsets.end()}));
    offsets.push_back(media.End());
    media.Put(Payload(n));
  }
  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(), SlowVideoRecovery(), RandomBox(), BuildInformation(), media.Box(),
      BoxOf("moov", {
          Mvhd(1000, 35, 1),
          TrakOf({Tkhd(1, 35, 0, 64, 48), Mdhd(1000, 35), Hdlr("vide", "vide"), Vmhd(), SlowVideoStsd(),
                  {
                      TableOf("stts", 1, {SttsEntry(35, 1)}),
                      StscInterleaved(),
                      StszOf({3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2,
                              3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3}),
                      TableOf("stco", 35, {Numbers(offsets)}),
                      TableOf("stss", 1, {Be32(1)}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

// Twelve chunks of video, of one and two frames in turn, with a text frame between any two.
TEST_F(WholeSpills, NotInterleaved_SampleToChunkSpillsToo) {
  ZMVFileInfo info = SlowVideo();
  AddText(info, FourCC("abcd"), 20000);  // 20 a second: its tables are large enough
  Mp4Recording recording(info, 0, kTenSeconds);
  Media media(28 + 44 + 32 + RandomBoxSize() + 23);
  std::vector<uint32_t> video_offsets;
  std::vector<uint32_t> text_offsets;
  uint32_t n = 0;
  for (uint32_t chunk = 1; chunk <= 12; ++chunk) {
    for (uint32_t i = 0; i < 1 + (chunk + 1) % 2; ++i) {
      ++n;
      recording.Video(Payload(n), 1000, false, n);
      if (n == 11) media.Spill(Numbers({3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));  // stsz; frame 11 opens chunk 8
      media.Put(Reco(1, 0, n, 1000, 0, 2 + n % 2));
      if (i == 0) {
        if (chunk == 11) media.Spill(Numbers(video_offsets));  // stco
        video_offsets.push_back(media.End());
      }
      media.Put(Payload(n));
    }
    if (chunk == 12) break;
    recording.Text(Bytes({0x7A}), 1, n);
    media.Put(Reco(3, 0, n, 1, 0, 1));
    if (chunk == 11) {
      // The text frame ends the eleventh chunk of the video.
      // clang-format off
      media.Spill(Join({
          StscEntry(1, 1), StscEntry(2, 2), StscEntry(3, 1), StscEntry(4, 2), StscEntry(5, 1),
          StscEntry(6, 2), StscEntry(7, 1), StscEntry(8, 2), StscEntry(9, 1), StscEntry(10, 2),
      }));
      // clang-format on
    }
    text_offsets.push_back(media.End());
    media.Put(Bytes({0x7A}));
  }
  const ByteVector file = recording.Finish();

  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(), SlowVideoRecovery(),
      Be32(32), Text("free"), Text("RECO"), Be32(0), Text("abcd"),  // recovery box of the text, code
      Be32(20000), Be32(0), Be32(1000),                             // rate, bit rate, time scale
      RandomBox(), BuildInformation(), media.Box(),
      BoxOf("moov", {
          Mvhd(1000, 18, 2),
          TrakOf({Tkhd(1, 18, 0, 64, 48), Mdhd(1000, 18), Hdlr("vide", "vide"), Vmhd(), SlowVideoStsd(),
                  {
                      TableOf("stts", 1, {SttsEntry(18, 1)}),
                      TableOf("stsc", 12, {
                          StscEntry(1, 1), StscEntry(2, 2), StscEntry(3, 1), StscEntry(4, 2), StscEntry(5, 1),
                          StscEntry(6, 2), StscEntry(7, 1), StscEntry(8, 2), StscEntry(9, 1), StscEntry(10, 2),
                          StscEntry(11, 1), StscEntry(12, 2),
                      }),
                      StszOf({3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2}),
                      TableOf("stco", 12, {Numbers(video_offsets)}),
                  }}),
          TrakOf({Tkhd(2, 11, 0, 0, 0), Mdhd(1000, 11), Hdlr("tvxt", "dcba"), Nmhd(),
                  StsdOf({Be32(51), Text("mp4s"), Zeros(6), Be16(1), PlainEsds(0, 0, 1, 0)}),
                  {
                      TableOf("stts", 1, {SttsEntry(11, 1)}),
                      TableOf("stsc", 1, {StscEntry(1, 1)}),
                      StszConstant(1, 11),
                      TableOf("stco", 11, {Numbers(text_offsets)}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeSpills, NotInterleaved_ASpillBreaksTheRunOfSamples) {
  Mp4Recording recording(SlowVideo(), 0, kTenSeconds);
  for (uint32_t n = 1; n <= 13; ++n) recording.Video(Payload(n), 1000, false, n);
  const ByteVector file = recording.Finish();

  Media media(28 + 44 + RandomBoxSize() + 23);
  std::vector<uint32_t> offsets;
  for (uint32_t n = 1; n <= 13; ++n) {
    if (n == 11) media.Spill(Numbers({3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));
    media.Put(Reco(1, 0, n, 1000, 0, 2 + n % 2));
    if (n == 1 || n == 11) offsets.push_back(media.End());
    media.Put(Payload(n));
  }
  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(), SlowVideoRecovery(), RandomBox(), BuildInformation(), media.Box(),
      BoxOf("moov", {
          Mvhd(1000, 13, 1),
          TrakOf({Tkhd(1, 13, 0, 64, 48), Mdhd(1000, 13), Hdlr("vide", "vide"), Vmhd(), SlowVideoStsd(),
                  {
                      TableOf("stts", 1, {SttsEntry(13, 1)}),
                      TableOf("stsc", 2, {StscEntry(1, 10), StscEntry(2, 3)}),
                      StszOf({3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3}),
                      TableOf("stco", 2, {Numbers(offsets)}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

}  // namespace
}  // namespace zmv::test
