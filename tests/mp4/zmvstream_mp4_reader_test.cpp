#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

class Reader : public ReaderTest {
 protected:
  static TrackSpec Video(uint32_t id, std::vector<ByteVector> frames) {
    TrackSpec track = VideoTrack(id);
    track.frames = std::move(frames);
    track.sync = {{1}};
    return track;
  }
  // A small file with everything in it.
  static ByteVector SmallFile() {
    TrackSpec video = Video(1, {Prefixed(Unit(0x65, 20)), Prefixed(Unit(0x41, 7)), Prefixed(Unit(0x41, 9))});
    video.entries = {VideoEntry("avc1", Join({Box("avcC", AvcConfig()), Btrt(900, 8000000, 6000000)}))};
    video.times = {{2, 40}, {1, 41}};
    TrackSpec audio = AudioTrack(2);
    audio.frames = {Unit(1, 30), Unit(2, 31)};
    TrackSpec text = TextTrack(3);
    text.frames = {Unit(3, 12)};
    FileSpec file;
    file.before_moov = Box("AIDD", {Be32(7)});
    file.after_moov = Box("free", Zeros(3));
    return BuildMp4({video, audio, text}, file);
  }
  // Opens, describes and reads everything; the first failure that is not the end of a track, or 0.
  uint32_t Play() {
    if (ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ) != 0) return ZMV_E_OPEN;
    uint32_t code = Code(MP4FReaderOpen(&reader_, stream_));
    if (code == 0) code = GetInfo();
    for (uint32_t media = ZMV_MEDIA_VIDEO; code == 0 && media <= ZMV_MEDIA_TEXT; ++media) {
      uint32_t read = 0;
      while (read == 0) read = Read(media).code;
      if (read != ZMV_E_END) code = read;
    }
    return code;
  }
};

// ---- Open and close

TEST_F(Reader, OpenTakesOneCursorAndReadsNothing) {
  Load(SmallFile());
  EXPECT_EQ(host_.Count(HostCall::kRead), 0u);
  EXPECT_EQ(CursorsInUse(), 1u);
  EXPECT_THAT(host_.Traces(2), ElementsAre("[Reader]\tMP4FReaderClose\n", "[Reader]\tMP4FReaderOpen\n",
                                           "[Reader]\tMP4FReaderOpen End\n"));
  EXPECT_THAT(host_.traces(), Contains(::testing::AllOf(::testing::Field(&TraceRecord::module, "ZMVMP4R"),
                                                        ::testing::Field(&TraceRecord::file, "zmvstream_mp4_reader"))));
}

TEST_F(Reader, CloseNull_OnlyTraces) {
  MP4FReaderClose(nullptr);
  EXPECT_THAT(host_.Traces(2), ElementsAre("[Reader]\tMP4FReaderClose\n"));
}

TEST_F(Reader, CloseGivesEveryCursorBack) {
  ASSERT_EQ(Describe(SmallFile()), 0u);
  EXPECT_EQ(CursorsInUse(), 14u);
  MP4FReaderClose(reader_);
  reader_ = nullptr;
  EXPECT_EQ(CursorsInUse(), 0u);
}

TEST_F(Reader, OpenWithoutMemory_LeavesTheHandleAlone) {
  host_.PutFile("a.mp4", SmallFile());
  ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ), 0);
  for (uint64_t nth : {1u, 2u}) {  // the handle, its cursor
    host_.Fail(HostCall::kMalloc, nth);
    EXPECT_EQ(Code(MP4FReaderOpen(&reader_, stream_)), ZMV_E_MEMORY);
    EXPECT_EQ(reader_, nullptr);
  }
}

TEST_F(Reader, SizeAboveFourGigabytes_IsTakenAsTheLargestOfThirtyTwoBits) {
  host_.PutFile("a.mp4", SmallFile());
  ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ), 0);
  stream_->Size = [](void*) { return int64_t{0x100000005}; };
  ASSERT_EQ(MP4FReaderOpen(&reader_, stream_), 0);
  EXPECT_EQ(reader_->m_dwFileSize, 0xFFFFFFFFu);
}

TEST_F(Reader, NullArguments_AreRefused) {
  EXPECT_EQ(Code(MP4FReaderOpen(&reader_, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4FReaderGetInfo(nullptr, info_.get())), ZMV_E_FAIL);
  EXPECT_EQ(MP4FReaderIsValidInfo(nullptr), 0);
  EXPECT_EQ(MP4ReaderFindTrak(nullptr, 1), nullptr);
}

// ---- Files that grow

TEST_F(Reader, CompleteMoov_IsValid) {
  Load(SmallFile());
  EXPECT_EQ(MP4FReaderIsValidInfo(reader_), 1);
  EXPECT_EQ(MP4FReaderIsValidInfo(reader_), 1);
  EXPECT_EQ(GetInfo(), 0u);  // starts at the front again
  EXPECT_EQ(info_->dwVideoCount, 1u);
  EXPECT_EQ(info_->dwAiddValue, 7u);
}

TEST_F(Reader, ValidInfo_LeavesTheCursorBehindMoov) {
  const ByteVector bytes = SmallFile();
  Load(bytes);
  host_.ClearRecords();
  ASSERT_EQ(MP4FReaderIsValidInfo(reader_), 1);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), bytes.size() - 11);  // the free box behind it
  EXPECT_THAT(host_.Traces(2), ElementsAre("[Reader]\tMP4FReaderIsValidInfo Start\n"));
}

TEST_F(Reader, GetInfo_TracesItsWayAtLevelTwo) {
  Load(BuildMp4({Video(1, {Unit(1, 4)})}));
  host_.ClearRecords();
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_THAT(host_.Traces(2), ElementsAre("[Reader]\tMP4FReaderGetInfo\n", "TotalRange(0) Duration(0)\n",
                                           "[Reader]\tMP4FReaderGetInfo End\n"));
  EXPECT_THAT(host_.Traces(1), ElementsAre());
}

TEST_F(Reader, MoovThatLacksAByte_IsNotValid) {
  const ByteVector moov = Box("moov", Zeros(100));
  const ByteVector whole = Join({Box("ftyp", Zeros(8)), Box("free", {}), moov});
  for (size_t size = 0; size <= whole.size(); ++size) {
    Load(ByteVector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
    EXPECT_EQ(MP4FReaderIsValidInfo(reader_), size == whole.size() ? 1 : 0) << size;
  }
}

TEST_F(Reader, IncompleteBox_LeavesTheCursorInFrontOfIt) {
  Load(Join({Box("ftyp", Zeros(8)), Be32(5000), Text("mdat"), Zeros(12)}));
  host_.ClearRecords();
  EXPECT_EQ(MP4FReaderIsValidInfo(reader_), 0);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), 16u);
  EXPECT_EQ(reader_->m_dwWalkPos, 16u);
  EXPECT_THAT(host_.Traces(2),
              ElementsAre("[Reader]\tMP4FReaderIsValidInfo Start\n", "[Reader]\tMP4FReaderIsValidInfo End 36\n"));
}

TEST_F(Reader, SizeBelowEight_IsNotValid) {
  for (uint32_t size = 0; size < 8; ++size) {
    Load(Join({Be32(size), Text("moov"), Box("moov", Zeros(8))}));
    EXPECT_EQ(MP4FReaderIsValidInfo(reader_), 0) << size;
  }
}

TEST_F(Reader, FailedReadOfABox_GivesItsLowByte) {
  Load(SmallFile());
  host_.Fail(HostCall::kRead, 2);
  EXPECT_EQ(MP4FReaderIsValidInfo(reader_), 0x12);
}

// ---- Tracks

TEST_F(Reader, FindTrak_MakesTwelveTracksAndNoMore) {
  Load(SmallFile());
  for (uint32_t id = 1; id <= 12; ++id) {
    MP4ReaderTrack* track = MP4ReaderFindTrak(reader_, id * 100);
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(track->m_dwTrackID, id * 100);
    EXPECT_EQ(MP4ReaderFindTrak(reader_, id * 100), track);
  }
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 1300), nullptr);
  EXPECT_NE(MP4ReaderFindTrak(reader_, 100), nullptr);
}

TEST_F(Reader, FindTrakWithoutMemory_GivesNothing) {
  Load(SmallFile());
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 1), nullptr);
}

// ---- Faults

TEST_F(Reader, EveryHostCallFailing_GivesACodeAndLeavesNothing) {
  host_.PutFile("a.mp4", SmallFile());
  for (HostCall call : {HostCall::kOpen, HostCall::kRead, HostCall::kSeek, HostCall::kMalloc}) {
    for (const auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
      bool untouched = false;
      for (uint64_t nth = 1; !untouched; ++nth) {
        ASSERT_LT(nth, 2000u);
        const uint64_t before = host_.Count(call);
        host_.Fail(call, nth, duration);
        const uint32_t code = Play();
        untouched = host_.Count(call) - before < nth;
        host_.ClearFailures();
        Close();
        ASSERT_EQ(host_.LiveBlocks(), 0u) << static_cast<int>(call) << " " << nth;
        if (untouched) {
          EXPECT_EQ(code, 0u);
        }
        // A payload that cannot be read is the end of its track; a refill of a table's cache is made up for later.
        if (!untouched && call != HostCall::kRead && call != HostCall::kSeek) {
          EXPECT_NE(code, 0u) << nth;
        }
      }
    }
  }
}

TEST_F(Reader, EveryTruncation_NeitherCrashesNorLeaks) {
  const ByteVector whole = SmallFile();
  uint32_t described = 0;
  for (size_t size = 0; size <= whole.size(); ++size) {
    host_.PutFile("a.mp4", ByteVector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
    if (Play() == 0 && info_->dwVideoCount == 1) ++described;
    Close();
    ASSERT_EQ(host_.LiveBlocks(), 0u) << size;
    host_.ClearRecords();
  }
  // moov is whole and nothing, part of a header that could be a size, or all of the box behind it is there.
  EXPECT_EQ(described, 1u + 8u);
}

TEST_F(Reader, EveryByteBent_NeitherCrashesNorLeaks) {
  const ByteVector whole = SmallFile();
  host_.trace_level = 0;
  host_.record = false;
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x7F, 0xFF}) {
      ByteVector bent = whole;
      bent[at] = static_cast<uint8_t>(value);
      host_.PutFile("a.mp4", bent);
      Play();
      Close();
      ASSERT_EQ(host_.LiveBlocks(), 0u) << at;
    }
  }
}

// ---- Cost

TEST_F(Reader, OpeningCostsTheSameForAnyLength) {
  host_.record = false;
  host_.trace_level = 0;
  uint64_t reads[2];
  uint64_t memory[2];
  uint64_t peak[2];
  for (size_t i = 0; i < 2; ++i) {
    const uint32_t samples = i == 0 ? 300 : 100000;
    TrackSpec track = Video(1, {});
    std::vector<uint32_t> numbers(samples, 1);
    track.sizes = numbers;
    track.offsets = numbers;
    track.sync = numbers;
    track.times.assign(samples, {1, 1});
    track.chunks.emplace(samples, std::array<uint32_t, 3>{1, 1, 1});
    host_.PutFile("a.mp4", BuildMp4({track}));
    const uint64_t read_before = host_.Count(HostCall::kRead);
    ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ), 0);
    ASSERT_EQ(MP4FReaderOpen(&reader_, stream_), 0);
    ASSERT_EQ(GetInfo(), 0u);
    EXPECT_EQ(info_->m_Video[0].dwFrames, samples);
    reads[i] = host_.Count(HostCall::kRead) - read_before;
    memory[i] = host_.LiveBytes();
    peak[i] = host_.PeakBytes();
    Close();
  }
  EXPECT_EQ(reads[0], reads[1]);
  EXPECT_EQ(memory[0], memory[1]);
  EXPECT_EQ(peak[0], peak[1]);
}

}  // namespace
}  // namespace zmv::test
