// The sample recordings, cut at every length: opening, describing and reading gives a result code, whatever is left,
// and every byte of memory comes back. What is delivered from a cut file is either right or not delivered.
#include <gmock/gmock.h>

#include <algorithm>

#include "facade/zmvstream_reader.h"
#include "tests/support/sample_recording.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr char kPath[] = "cut.mp4";

class CutRecording : public testing::Test {
 protected:
  CutRecording() {
    host_.trace_level = 0;
    host_.record = false;
    buffer_.resize(1 << 17);
  }

  // Reads everything the facade hands out; the frames delivered.
  size_t PlayBack() {
    ZMVReaderParam param{kPath, nullptr, 0};
    ZMVReader* reader = nullptr;
    if (ZMVReaderOpen(&reader, &param) < 0) {
      EXPECT_EQ(reader, nullptr);
      return 0;
    }
    ZMVFileInfo info{};
    size_t frames = 0;
    if (ZMVReaderGetInfo(reader, &info) >= 0) {
      for (uint32_t media = ZMV_MEDIA_VIDEO; media <= ZMV_MEDIA_TEXT; ++media) frames += PlayBackMedia(reader, media);
    }
    ZMVReaderClose(reader);
    return frames;
  }

  size_t PlayBackMedia(ZMVReader* reader, uint32_t media) {
    size_t frames = 0;
    for (;; ++frames) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.pData = buffer_.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
      if (ZMVReaderReadFrame(reader, &frame) < 0) return frames;
      EXPECT_LE(frame.dwSize, buffer_.size());
      if (frames > 100000) {
        ADD_FAILURE() << "reading does not end";
        return frames;
      }
    }
  }

  void CutEverywhere(const SampleSet& set) {
    ASSERT_EQ(RecordSamples(kPath, set), 0);
    size_t whole = MergeSamples(set).size();
    const uint64_t before = host_.LiveBlocks();
    ASSERT_EQ(PlayBack(), whole);
    // The last bytes are a trailing box that carries nothing; below the end of the sample tables nothing may be found.
    ByteVector& bytes = host_.File(kPath);
    for (size_t size = bytes.size(); size-- > 0;) {
      bytes.resize(size);
      size_t frames = PlayBack();
      ASSERT_TRUE(frames == 0 || frames <= whole) << "cut to " << size;
      ASSERT_EQ(host_.LiveBlocks(), before) << "cut to " << size;
    }
  }

  ScriptedHost host_;
  ByteVector buffer_;
};

TEST_F(CutRecording, H264AacAndGps_EveryLength_NeverCrashesOrLeaks) {
  SampleStream video = LoadH264("drive_h264.h264");
  SampleStream audio = LoadAac("drive_aac.aac");
  SampleStream text = MakeGpsText(6, 2);
  ASSERT_NO_FATAL_FAILURE(CutEverywhere({.video = &video, .audio = &audio, .text = &text}));
}

TEST_F(CutRecording, HevcAndAac_EveryLength_NeverCrashesOrLeaks) {
  SampleStream video = LoadHevc("drive_hevc.hevc");
  SampleStream audio = LoadAac("drive_aac.aac");
  ASSERT_NO_FATAL_FAILURE(CutEverywhere({.video = &video, .audio = &audio}));
}

TEST_F(CutRecording, EveryByteOfTheTablesFlipped_NeverCrashesOrLeaks) {
  SampleStream video = LoadH264("drive_h264.h264");
  video.frames.resize(40);
  SampleStream audio = LoadAac("drive_aac.aac");
  audio.frames.resize(40);
  SampleStream text = MakeGpsText(1, 2);
  ASSERT_EQ(RecordSamples(kPath, {.video = &video, .audio = &audio, .text = &text}), 0);
  const uint64_t before = host_.LiveBlocks();
  ByteVector& bytes = host_.File(kPath);
  const ByteVector moov = Text("moov");
  auto found = std::search(bytes.begin(), bytes.end(), moov.begin(), moov.end());
  ASSERT_NE(found, bytes.end());
  for (auto byte = found - 4; byte != bytes.end(); ++byte) {
    for (int change : {0xFF, 0x80, 0x01}) {
      *byte = static_cast<uint8_t>(*byte ^ change);
      PlayBack();
      *byte = static_cast<uint8_t>(*byte ^ change);
      ASSERT_EQ(host_.LiveBlocks(), before) << "byte " << byte - bytes.begin();
    }
  }
}

TEST_F(CutRecording, ForeignAndEmptyFiles_AreRefused) {
  host_.PutFile(kPath, {});
  ZMVReaderParam param{kPath, nullptr, 0};
  ZMVReader* reader = nullptr;
  EXPECT_EQ(static_cast<uint32_t>(ZMVReaderOpen(&reader, &param)), ZMV_E_READ);
  for (const char* text : {"x", "GIF89a and more", "....free............", "RIF",
                           "\x7F"
                           "ELF and so on"}) {
    host_.PutFile(kPath, Text(text));
    EXPECT_EQ(static_cast<uint32_t>(ZMVReaderOpen(&reader, &param)), ZMV_E_UNSUPPORTED_FORMAT) << text;
  }
  EXPECT_EQ(reader, nullptr);
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace zmv::test
