#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

class AviClose : public AviWriterTest {
 protected:
  // The rate that a video stream with these frames ends with.
  uint32_t VideoRate(uint32_t declared, const std::vector<uint64_t>& times, uint32_t duration, uint32_t fixed = 0) {
    info = {};
    AddVideo(kH264, declared).dwFixedRate = fixed;
    Start();
    for (const uint64_t time : times) EXPECT_EQ(WriteVideo(4, time, 1, duration), 0);
    CloseWriter();
    const uint32_t rate = StreamHeader(0, kRate);
    Close();
    return rate;
  }
  uint32_t TextRate(uint32_t declared, const std::vector<uint64_t>& times, uint32_t fixed = 0) {
    info = {};
    AddText(declared).dwFixedRate = fixed;
    Start();
    for (const uint64_t time : times) EXPECT_EQ(WriteText(4, time), 0);
    CloseWriter();
    const uint32_t rate = StreamHeader(0, kRate);
    Close();
    return rate;
  }
  static std::vector<uint64_t> Times(uint64_t distance, uint64_t count = 20, uint64_t first = 0) {
    std::vector<uint64_t> times;
    for (uint64_t i = 0; i < count; ++i) times.push_back(first + i * distance);
    return times;
  }
};

TEST_F(AviClose, NoHandle_DoesNothing) {
  AVIWriterClose(nullptr);
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(AviClose, WithoutInformation_WritesNothingMore) {
  ASSERT_EQ(Open(), 0);
  CloseWriter();
  EXPECT_EQ(File().size(), 12u);
}

TEST_F(AviClose, AfterAFailedSetInfo_WritesNothingMoreAndFreesAll) {
  AddVideo();
  AddAudio();
  ASSERT_EQ(Open(), 0);
  host.Fail(HostCall::kWrite, 8, ScriptedHost::kForGood);
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE);
  host.ClearFailures();
  const ByteVector before = File();
  CloseWriter();
  EXPECT_EQ(Difference(File(), before), "");
}

TEST_F(AviClose, Trailer_IsIndexNameAndSizes) {
  AddVideo();
  NoFill();
  Start();
  EXPECT_EQ(WriteVideo(5, 0, 1), 0);
  EXPECT_EQ(WriteVideo(6, 40), 0);
  const size_t end = MoviEnd();
  const uint32_t movi = writer->m_dwMoviSizePos;
  CloseWriter();
  const ByteVector expected = Join({
      Text("idx1"), Le32(32),            //
      IndexEntryOf("00dc", 0x10, 4, 5),  //
      IndexEntryOf("00dc", 0, 18, 6),    //
      Text("JUNK"), Le32(320),           //
      Text("a.avi"), Zeros(315),         // the file's name; the file ends here
  });
  EXPECT_EQ(Difference(Part(File(), end), expected), "");
  EXPECT_EQ(Le32At(File(), movi), 4u + 14 + 14);
  EXPECT_EQ(movi + 4 + Le32At(File(), movi), end);
  EXPECT_EQ(Le32At(File(), 4), File().size() - 8);
  EXPECT_THAT(host.Traces(3), Contains("Do not fill junk on eos\n"));
}

TEST_F(AviClose, Name_OfTheLongestPath_IsWhole) {
  const std::string path(255, 'n');
  ASSERT_EQ(ZMVStreamBuf_Open(&stream, path.c_str(), 0, ZMV_STREAM_WRITE), 0);
  NoFill();
  Start();
  CloseWriter();
  EXPECT_EQ(Difference(Part(host.File(path), host.File(path).size() - 320), Join({Text(path), Zeros(65)})), "");
}

TEST_F(AviClose, Name_LongerThanItsChunk_IsCut) {
  NoFill();
  Start();
  static const std::string name(400, 'x');
  stream->GetName = [](void*) { return name.c_str(); };
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), File().size() - 320), Join({ByteVector(319, 'x'), Zeros(1)})), "");
}

TEST_F(AviClose, Name_OfAStreamWithoutOne_IsZero) {
  NoFill();
  Start();
  stream->GetName = nullptr;
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), File().size() - 328), Join({Text("JUNK"), Le32(320), Zeros(320)})), "");
}

// ---- The fill chunk

TEST_F(AviClose, Fill_WithoutSpaceInAdvance_IsEmpty) {
  Start();
  const size_t end = MoviEnd();
  CloseWriter();
  EXPECT_EQ(File().size(), end + 8 + 328 + 8);
  EXPECT_EQ(Difference(Part(File(), end + 336), Join({Text("JUNK"), Le32(0)})), "");
  EXPECT_EQ(Le32At(File(), 4), end + 336 - 8);  // the sizes are set before the chunk is written
  EXPECT_THAT(host.Traces(3), Contains("Fill Junk.... size (0)\n"));
}

TEST_F(AviClose, Fill_CoversTheSpaceGivenInAdvance) {
  for (const uint64_t beyond : {0u, 1u, 1000u, 0x40000000u}) {
    info = {};
    Start();
    const size_t end = MoviEnd() + 336;
    host.presized = end + 8 + beyond;
    CloseWriter();
    EXPECT_EQ(Difference(Part(File(), end), Join({Text("JUNK"), Le32(static_cast<uint32_t>(beyond))})), "");
    EXPECT_THAT(host.Traces(3), Contains("Fill Junk.... size (" + std::to_string(beyond) + ")\n"));
    Close();
  }
}

TEST_F(AviClose, Fill_OfLessThanItsOwnHeader_IsEmpty) {
  Start();
  const size_t end = MoviEnd() + 336;
  host.presized = end + 6;
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), end), Join({Text("JUNK"), Le32(0)})), "");
}

TEST_F(AviClose, Fill_BeyondWhatASizeCanBe_IsTheLargest) {
  Start();
  const size_t end = MoviEnd() + 336;
  host.presized = uint64_t{1} << 33;
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), end), Join({Text("JUNK"), Le32(0xFFFFFFFF)})), "");
}

TEST_F(AviClose, Fill_OfAFileOfUnknownSize_IsEmpty) {
  Start();
  const size_t end = MoviEnd() + 336;
  host.Fail(HostCall::kSize, 1);
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), end), Join({Text("JUNK"), Le32(0)})), "");
}

TEST_F(AviClose, Fill_WithTheFlag_IsNotWritten) {
  for (const uint32_t value : {1u, 3u, 0xFFFFFFFFu}) {
    info = {};
    info.dwAiddValue = value;
    Start();
    const size_t end = MoviEnd();
    host.presized = end + 5000;
    CloseWriter();
    EXPECT_EQ(File().size(), end + 336);
    Close();
  }
  info.dwAiddValue = 0xFFFFFFFE;
  Start();
  const size_t end = MoviEnd();
  CloseWriter();
  EXPECT_EQ(File().size(), end + 344);
}

// ---- Headers

TEST_F(AviClose, Headers_AreRewritten) {
  AddVideo();
  AddAudio();
  AddText();
  Start();
  for (uint64_t i = 0; i < 3; ++i) {
    EXPECT_EQ(WriteVideo(100 + i, i * 40), 0);
    EXPECT_EQ(WriteAudio(64, i * 21), 0);
  }
  EXPECT_EQ(WriteText(500, 7), 0);
  EXPECT_EQ(MainHeader(16), 0u);
  const ByteVector before = Part(File(), 0, MoviEnd());
  writer->m_MainHeader.dwMicroSecPerFrame = 40000;
  CloseWriter();
  EXPECT_EQ(MainHeader(0), 0u);
  EXPECT_EQ(MainHeader(16), 3u);    // video frames
  EXPECT_EQ(MainHeader(28), 500u);  // largest payload
  EXPECT_EQ(StreamHeader(0, kLength), 3u);
  EXPECT_EQ(StreamHeader(0, kSuggestedSize), 102u);
  EXPECT_EQ(StreamHeader(1, kLength), 3u * 33);
  EXPECT_EQ(StreamHeader(1, kSuggestedSize), 64u);
  EXPECT_EQ(StreamHeader(1, kRate), 192000u);
  EXPECT_EQ(StreamHeader(2, kLength), 1u);
  EXPECT_EQ(StreamHeader(2, kSuggestedSize), 500u);
  // Nothing else of the headers and of the frames has changed.
  ByteVector after = Part(File(), 0, before.size());
  std::copy_n(before.begin() + 4, 4, after.begin() + 4);     // RIFF
  std::copy_n(before.begin() + 32, 56, after.begin() + 32);  // avih
  const long movi = static_cast<long>(Find(before, "movi"));
  std::copy_n(before.begin() + movi - 4, 4, after.begin() + movi - 4);
  for (uint32_t i = 0; i < 3; ++i) {
    const long header = static_cast<long>(Find(before, "strh", i)) + 8;
    std::copy_n(before.begin() + header, 56, after.begin() + header);
  }
  EXPECT_EQ(Difference(after, before), "");
}

// ---- Rates

TEST_F(AviClose, VideoRate_IsMeasured) {
  EXPECT_EQ(VideoRate(25000, Times(40), 40), 25000u);
  EXPECT_THAT(host.Traces(2), Contains("hStream->m_StreamInfo.dwRate (25000), hStream->m_dwVidDur (800), "
                                       "hStream->dwTotalFrames (20)\n"));
  EXPECT_EQ(VideoRate(25000, Times(20), 20), 50000u);         // faster than declared
  EXPECT_EQ(VideoRate(30000, {0, 33, 67, 100}, 33), 30075u);  // 4 frames in 33 + 33 + 34 + 33
}

TEST_F(AviClose, VideoRate_IsTruncated) {
  // 33 + 33 + 34 milliseconds: 1000 / (100 / 3) x 1000 lies just below 30000 in double precision.
  EXPECT_EQ(VideoRate(30000, {10, 43, 77}, 33), 29999u);
  // 33 + 40 + 40: 26548.67
  EXPECT_EQ(VideoRate(30000, {10, 50, 90}, 33), 26548u);
}

TEST_F(AviClose, VideoRate_AtThreeQuartersOrLess_IsTheDeclaredOne) {
  // 1000 / (160 / 3) x 1000 is 18750, three quarters of 25000.
  EXPECT_EQ(VideoRate(25000, {10, 70, 130}, 40), 25000u);
  EXPECT_THAT(host.Traces(2),
              Contains("V:hStream->m_StreamInfo.dwRate (18750) Invalid!! Set initial rate (25000)...\n"));
  EXPECT_EQ(VideoRate(25000, {10, 70, 129}, 40), 18867u);  // 3 frames in 159
  EXPECT_EQ(VideoRate(25001, {10, 70, 130}, 40), 25001u);  // 3 x 25001 / 4 is 18750, too
  EXPECT_EQ(VideoRate(24999, {10, 70, 130}, 40), 18750u);  // above 18749
}

TEST_F(AviClose, VideoRate_WithoutFrames_IsTheDeclaredOne) {
  EXPECT_EQ(VideoRate(25000, {}, 40), 25000u);
  EXPECT_THAT(host.Traces(2), Contains("V:hStream->m_StreamInfo.dwRate (0) Invalid!! Set initial rate (25000)...\n"));
}

TEST_F(AviClose, VideoRate_WhereNoTimePasses_IsTheDeclaredOne) { EXPECT_EQ(VideoRate(25000, {0, 0, 0}, 0), 25000u); }

TEST_F(AviClose, VideoRate_WithNoneDeclared_IsWhatWasMeasured) {
  EXPECT_EQ(VideoRate(0, Times(40), 40), 25000u);
  EXPECT_EQ(VideoRate(0, Times(10000, 3), 10000), 100u);
}

TEST_F(AviClose, VideoRate_Fixed_IsInWholeFrames) {
  EXPECT_EQ(VideoRate(25000, Times(40), 40, 30999), 30000u);
  EXPECT_EQ(VideoRate(25000, Times(40), 40, 19000), 19000u);
  EXPECT_EQ(VideoRate(25000, Times(40), 40, 18000), 25000u);  // below three quarters
  EXPECT_EQ(VideoRate(25000, Times(40), 40, 999), 25000u);    // no whole frame
  EXPECT_EQ(VideoRate(25000, {}, 40, 0xFFFFFFFF), 4294967000u);
}

TEST_F(AviClose, VideoRate_DeclaredBeyondReason_WrapsInTheThreshold) {
  // 3 x 0x60000000 is 0x20000000 in 32 bits.
  EXPECT_EQ(VideoRate(0x60000000, Times(40), 40), 0x60000000u);
  EXPECT_EQ(VideoRate(0x55555556, Times(40), 40), 25000u);  // 3 x is 2
}

TEST_F(AviClose, TextRate_AboveTwoThirds_IsMeasured) {
  EXPECT_EQ(TextRate(10000, Times(100, 5, 100)), 11111u);  // 50 + 4 x 100
  EXPECT_THAT(host.Traces(2), Not(Contains(::testing::HasSubstr("m_StreamInfo"))));
  // 2 frames in 50 + 250; 2 x 10000 / 3 is 6666, too.
  EXPECT_EQ(TextRate(10000, {100, 350}), 10000u);
  EXPECT_THAT(host.Traces(2),
              Contains("T:hStream->m_StreamInfo.dwRate (6666) Invalid!! Set initial rate (10000)...\n"));
  EXPECT_EQ(TextRate(9998, {100, 350}), 6666u);  // 2 x 9998 / 3 is 6665
}

TEST_F(AviClose, TextRate_Fixed) {
  EXPECT_EQ(TextRate(20000, {0}, 10000), 20000u);  // 13333 is not below 10000
  EXPECT_EQ(TextRate(14000, {0}, 10000), 10000u);
  EXPECT_EQ(TextRate(20000, {}, 0), 20000u);
}

TEST_F(AviClose, Traces_OfARecordingThatGoesWell_HoldNoError) {
  AddVideo();
  AddAudio();
  Start(1000);
  for (uint64_t i = 0; i < 30; ++i) {
    EXPECT_EQ(WriteVideo(9, i * 40), 0);
    EXPECT_EQ(WriteAudio(9, i * 40), 0);
  }
  Close();
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

}  // namespace
}  // namespace zmv::test
