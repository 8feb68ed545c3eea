// Fragmented files cut at every length, with bytes changed, and with every host call failing in turn: result codes, no
// endless walk, no leak, and nothing delivered from a cut file that the whole file does not hold.
#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

class HostileFragments : public FragmentTest {
 protected:
  HostileFragments() {
    host_.trace_level = 0;
    host_.record = false;
  }

  static FragmentFile Mixed() {
    TrackSpec video = VideoTrack();
    video.frames = {Prefixed(Unit(0x65, 9))};
    video.duration = 40;
    FragmentFile file({video, AudioTrack()}, {FullBox("mehd", {Be32(400)}), Trex(1, 40, 6), Trex(2, 20)});
    for (uint8_t i = 0; i < 2; ++i) {
      file.Add({{.track = 1,
                 .boxes = FullBox("tfdt", {Be32(80u * i)}),
                 .runs = {{.flags = kDataOffset | kFirstFlags | kDurations | kSizes | kFlags | kComposition,
                           .samples = Samples(1, {5, 6})},
                          {}}},
                {.track = 2,
                 .flags = kBaseOffset | kDescription | kDefaultDuration | kDefaultSize | kDefaultFlags,
                 .duration = 21,
                 .size = 4,
                 .runs = {{.flags = kDataOffset, .samples = Samples(50, {4, 4, 4})}}}});
    }
    return file;
  }

  // Describes, reads and searches; everything that was delivered.
  std::vector<ByteVector> Run(const ByteVector& bytes) {
    std::vector<ByteVector> payloads;
    Load(bytes);
    const bool described = GetInfo() == 0;
    for (uint32_t media = ZMV_MEDIA_VIDEO; described && media <= ZMV_MEDIA_TEXT; ++media) {
      for (int i = 0; i < 40; ++i) {
        ReadResult read = Read(media, 64);
        if (read.code != 0) break;
        payloads.push_back(std::move(read.data));
      }
    }
    for (uint32_t slot = 0; described && slot < reader_->m_dwTrackCount; ++slot) {
      MP4ReaderTrack* track = reader_->m_pTrack[slot];
      if (track == nullptr || track->m_hStream == nullptr) continue;
      for (uint32_t time : {0u, 1u, 60u, 500u, 0xFFFFFFFFu}) Search(&time, slot);
    }
    Close();
    return payloads;
  }
};

TEST_F(HostileFragments, EveryTruncation_DeliversOnlyWhatTheWholeFileHolds) {
  const ByteVector whole = Mixed().bytes;
  const std::vector<ByteVector> all = Run(whole);
  ASSERT_EQ(all.size(), 1u + 4 + 6);
  size_t delivered = 0;
  for (size_t size = 0; size < whole.size(); ++size) {
    const std::vector<ByteVector> some = Run(ByteVector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
    for (const ByteVector& payload : some) EXPECT_THAT(all, testing::Contains(payload)) << size;
    delivered = std::max(delivered, some.size());
    ASSERT_FALSE(HasFailure()) << size;
  }
  EXPECT_EQ(delivered, 1u + 4 + 5);  // all but the last sample of the audio
}

TEST_F(HostileFragments, EveryChangedByte_EndsInAResult) {
  const ByteVector whole = Mixed().bytes;
  for (size_t at = 0; at < whole.size(); ++at) {
    for (uint8_t value : Bytes({0x00, 0x01, 0x7F, 0x80, 0xFF})) {
      ByteVector bytes = whole;
      if (bytes[at] == value) continue;
      bytes[at] = value;
      EXPECT_LE(Run(bytes).size(), 120u);
    }
    ASSERT_EQ(host_.LiveBlocks(), 0u) << at;
  }
}

TEST_F(HostileFragments, ManyChangedBytes_EndInAResult) {
  const ByteVector whole = Mixed().bytes;
  uint32_t state = 1;
  auto next = [&state] { return state = state * 1664525 + 1013904223; };
  for (int i = 0; i < 3000; ++i) {
    ByteVector bytes = whole;
    for (uint32_t changes = 1 + (next() >> 16) % 8; changes != 0; --changes) {
      bytes[(next() >> 8) % bytes.size()] = static_cast<uint8_t>(next() >> 24);
    }
    EXPECT_LE(Run(bytes).size(), 120u);
    ASSERT_EQ(host_.LiveBlocks(), 0u) << i;
  }
}

TEST_F(HostileFragments, EveryHostCallThatFails_EndsInAResult) {
  const ByteVector whole = Mixed().bytes;
  const std::vector<ByteVector> all = Run(whole);
  for (HostCall call : {HostCall::kRead, HostCall::kSeek, HostCall::kOpen, HostCall::kMalloc}) {
    for (auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
      for (uint64_t n = 1;; ++n) {
        host_.PutFile("a.mp4", whole);
        const uint64_t before = host_.Count(call);
        host_.Fail(call, n, duration);
        std::vector<ByteVector> some;
        if (ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ) == 0 && MP4FReaderOpen(&reader_, stream_) == 0 &&
            GetInfo() == 0) {
          for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
            for (int i = 0; i < 20; ++i) {
              ReadResult read = Read(media, 64);
              if (read.code == ZMV_E_END) break;
              if (read.code == 0) some.push_back(read.data);
            }
          }
        }
        Close();
        host_.ClearFailures();
        for (const ByteVector& payload : some) EXPECT_THAT(all, testing::Contains(payload));
        ASSERT_EQ(host_.LiveBlocks(), 0u) << static_cast<int>(call) << " " << n;
        ASSERT_FALSE(HasFailure()) << static_cast<int>(call) << " " << n;
        if (host_.Count(call) - before < n) break;
      }
    }
  }
}

// A failed read inside the fragments is reported and the same sample comes next: nothing is lost or doubled.
TEST_F(HostileFragments, ReadThatFailsOnce_LosesNoSample) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  std::vector<ByteVector> expected;
  for (uint8_t i = 0; i < 3; ++i) {
    const std::vector<ByteVector> samples = Samples(i, {5, 6, 7});
    expected.insert(expected.end(), samples.begin(), samples.end());
    file.Add({{.runs = {{.flags = kDataOffset | kDurations | kSizes | kFlags, .samples = samples}}}});
  }
  int failures = 0;
  for (uint64_t n = 1;; ++n) {
    ASSERT_EQ(Describe(file), 0u);
    const uint64_t before = host_.Count(HostCall::kRead);
    host_.Fail(HostCall::kRead, n);
    std::vector<ByteVector> got;
    for (;;) {
      ReadResult read = Read(ZMV_MEDIA_VIDEO);
      if (read.code == ZMV_E_END) break;
      failures += read.code == ZMV_E_READ;
      if (read.code == 0) got.push_back(read.data);
      ASSERT_LT(got.size(), 20u);
    }
    host_.ClearFailures();
    ASSERT_EQ(got, expected) << n;
    if (host_.Count(HostCall::kRead) - before < n) break;
  }
  EXPECT_GT(failures, 9);
}

}  // namespace
}  // namespace zmv::test
