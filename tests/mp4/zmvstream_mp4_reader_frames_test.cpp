#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class ReaderFrames : public ReaderTest {
 protected:
  // The lines that one function traced.
  std::vector<std::string> LinesOf(const std::string& function) const {
    std::vector<std::string> lines;
    for (const TraceRecord& trace : host_.traces()) {
      if (trace.function == function) lines.push_back(trace.text);
    }
    return lines;
  }
  uint32_t PayloadPosition() { return ZMVStreamBuf_Pos(Track(0).m_hStream, Track(0).m_dwIndex); }
};

TrackSpec PlainVideo(std::vector<ByteVector> frames) {
  TrackSpec track = VideoTrack();
  track.entries = {VideoEntry("mp4v", {})};
  track.frames = std::move(frames);
  return track;
}

TrackSpec NalVideo(std::vector<ByteVector> frames, int width) {
  TrackSpec track = VideoTrack();
  track.entries = {VideoEntry("avc1", Box("avcC", AvcConfig(100, 0xFC | (width - 1))))};
  track.frames = std::move(frames);
  return track;
}

// ---- Tracks

TEST_F(ReaderFrames, NoTracks_IsTheEnd) {
  Load(BuildMp4({}));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(ReaderFrames, NullArguments_AreRefused) {
  Load(BuildMp4({}));
  ZMVFrame frame = {};
  EXPECT_EQ(Code(MP4FReaderReadFrame(nullptr, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4FReaderReadFrameInfo(nullptr, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4FReaderReadFrame(reader_, nullptr)), ZMV_E_FAIL);
}

TEST_F(ReaderFrames, NoBuffer_CountsAsABufferOfNoBytes) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 9)})})), 0u);
  ZMVFrame frame = {};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwBufSize = 100;
  EXPECT_EQ(Code(MP4FReaderReadFrame(reader_, &frame)), ZMV_E_MP4_BUFFER);
  EXPECT_EQ(frame.dwBufSize, 9u);
}

TEST_F(ReaderFrames, TrackNumber_CountsWithinTheMedium) {
  TrackSpec first = PlainVideo({Unit(1, 3)});
  TrackSpec audio = AudioTrack(2);
  audio.frames = {Unit(50, 4)};
  TrackSpec second = PlainVideo({Unit(9, 5)});
  second.id = 3;
  ASSERT_EQ(Describe(BuildMp4({first, audio, second})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 100, 1).data, Unit(9, 5));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 100, 0).data, Unit(1, 3));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO, 100, 0).data, Unit(50, 4));
}

TEST_F(ReaderFrames, NoSuchTrack_FallsThroughToTheLastSlot) {
  TrackSpec audio = AudioTrack(2);
  audio.frames = {Unit(50, 4)};
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 3)}), audio})), 0u);
  const ReadResult read = Read(ZMV_MEDIA_TEXT, 100, 7);
  EXPECT_EQ(read.code, 0u);
  EXPECT_EQ(read.data, Unit(50, 4));
}

TEST_F(ReaderFrames, LastSlotDropped_IsTheEnd) {
  TrackSpec hint = PlainVideo({Unit(1, 3)});
  hint.id = 2;
  hint.media_header = FullBox("hmhd", {Zeros(16)});
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 3)}), hint})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
}

// ---- Payload

TEST_F(ReaderFrames, FramesComeInOrder_ThenTheEndEveryTime) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 30), Unit(2, 1), Unit(3, 2000)})})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(1, 30));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(2, 1));
  const ReadResult last = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(last.data, Unit(3, 2000));
  EXPECT_EQ(last.frame.dwChunk, 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(ReaderFrames, SeveralSamplesInAChunk_AreReadOneBehindTheOther) {
  TrackSpec track = PlainVideo({Unit(1, 3), Unit(2, 4), Unit(3, 5), Unit(4, 6), Unit(5, 7)});
  track.samples_per_chunk = 2;
  track.chunks = {{{1, 2, 1}, {3, 1, 1}}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  std::vector<uint32_t> chunks;
  for (const ByteVector& frame : track.frames) {
    const ReadResult read = Read(ZMV_MEDIA_VIDEO);
    EXPECT_EQ(read.data, frame);
    chunks.push_back(read.frame.dwChunk);
  }
  EXPECT_THAT(chunks, ElementsAre(1, 1, 2, 2, 3));
}

TEST_F(ReaderFrames, BehindTheLastChunk_ReadingGoesOn) {
  TrackSpec track = PlainVideo({Unit(1, 3), Unit(2, 4), Unit(3, 5)});
  track.samples_per_chunk = 3;
  track.chunks = {{{1, 1, 1}}};  // one sample in the only chunk; two more behind it
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (const ByteVector& frame : track.frames) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, frame);
  EXPECT_EQ(Track(0).m_dwSamplesLeft, 0u);
}

TEST_F(ReaderFrames, NoSamplesInAChunk_CountAsOne) {
  TrackSpec track = PlainVideo({Unit(1, 3), Unit(2, 4)});
  track.chunks = {{{1, 0, 1}}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (const ByteVector& frame : track.frames) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, frame);
}

TEST_F(ReaderFrames, FirstChunksRunningBackward_AreNotReached) {
  TrackSpec track = PlainVideo({Unit(1, 3), Unit(2, 4), Unit(3, 5)});
  track.chunks = {{{1, 1, 1}, {1, 7, 1}, {0, 9, 1}}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (const ByteVector& frame : track.frames) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, frame);
}

TEST_F(ReaderFrames, BufferOneByteShort_KeepsTheFrame) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 8), Unit(2, 300), Unit(3, 9)})})), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  for (int i = 0; i < 2; ++i) {
    const ReadResult refused = Read(ZMV_MEDIA_VIDEO, 299);
    EXPECT_EQ(refused.code, ZMV_E_MP4_BUFFER);
    EXPECT_EQ(refused.frame.dwBufSize, 300u);
  }
  const ReadResult read = Read(ZMV_MEDIA_VIDEO, 300);
  EXPECT_EQ(read.data, Unit(2, 300));
  EXPECT_EQ(read.frame.llTimeStamp, 40u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(3, 9));
}

TEST_F(ReaderFrames, BufferShortForAConstantSize_KeepsTheFrame) {
  TrackSpec track = PlainVideo({Unit(1, 8), Unit(2, 8)});
  track.constant_size = 8;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (int i = 0; i < 500; ++i) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 7).code, ZMV_E_MP4_BUFFER);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 8).data, Unit(1, 8));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 8).data, Unit(2, 8));
}

TEST_F(ReaderFrames, PayloadCutShort_IsTheEnd) {
  TrackSpec track = PlainVideo({Unit(1, 8)});
  track.sizes = {{5000}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 6000).code, ZMV_E_END);
}

TEST_F(ReaderFrames, ChunkBeyondTheFile_IsAFailedSeek) {
  TrackSpec track = PlainVideo({Unit(1, 8)});
  track.offsets = {{0x7FFFFFF0}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_SEEK);
  EXPECT_TRUE(host_.Traced("err (0x80000014)\n"));
}

TEST_F(ReaderFrames, SampleWithoutBytes_DeliversNothing) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({{}, Unit(2, 4)})})), 0u);
  const ReadResult read = Read(ZMV_MEDIA_VIDEO, 0);
  EXPECT_EQ(read.code, 0u);
  EXPECT_EQ(read.frame.dwSize, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(2, 4));
}

// ---- NAL units

TEST_F(ReaderFrames, TwoUnits_ComeBehindStartCodesInTheSameSize) {
  const ByteVector sample = Join({Prefixed(Unit(0x65, 10)), Prefixed(Unit(0x41, 20))});
  ASSERT_EQ(Describe(BuildMp4({NalVideo({sample}, 4)})), 0u);
  const ReadResult read = Read(ZMV_MEDIA_VIDEO, static_cast<uint32_t>(sample.size()));
  EXPECT_EQ(read.data, Join({StartCoded(Unit(0x65, 10)), StartCoded(Unit(0x41, 20))}));
}

TEST_F(ReaderFrames, ShortLengthFields_AreRead) {
  for (int width = 1; width <= 4; ++width) {
    const ByteVector sample =
        Join({Prefixed(Unit(0x65, 10), width), Prefixed({}, width), Prefixed(Unit(0x41, 20), width)});
    ASSERT_EQ(Describe(BuildMp4({NalVideo({sample, Prefixed(Unit(7, 5), width)}, width)})), 0u);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data,
              Join({StartCoded(Unit(0x65, 10)), StartCoded({}), StartCoded(Unit(0x41, 20))}))
        << width;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, StartCoded(Unit(7, 5)));
  }
}

TEST_F(ReaderFrames, ShortLengthFieldsAndASmallBuffer_TellTheExactNeedAndChangeNothing) {
  const ByteVector sample = Join({Prefixed(Unit(0x65, 10), 2), Prefixed(Unit(0x41, 20), 2)});  // 34 bytes, 38 delivered
  TrackSpec track = NalVideo({Prefixed(Unit(1, 5), 2), sample, Prefixed(Unit(2, 5), 2)}, 2);
  track.sync = {{1, 2}};
  track.times = {{1, 40}, {1, 50}, {1, 60}};
  track.duration = 150;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  for (uint32_t capacity : {0u, 5u, 33u, 34u, 37u}) {
    const ReadResult refused = Read(ZMV_MEDIA_VIDEO, capacity);
    EXPECT_EQ(refused.code, ZMV_E_MP4_BUFFER);
    EXPECT_EQ(refused.frame.dwBufSize, 38u);
  }
  const ReadResult read = Read(ZMV_MEDIA_VIDEO, 38);
  EXPECT_EQ(read.data, Join({StartCoded(Unit(0x65, 10)), StartCoded(Unit(0x41, 20))}));
  EXPECT_EQ(read.frame.llTimeStamp, 40u);
  EXPECT_EQ(read.frame.dwDuration, 50u);
  EXPECT_EQ(read.frame.dwKeyFrame, ZMV_KEY_FRAME);
  EXPECT_EQ(read.frame.dwChunk, 2u);
  const ReadResult next = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(next.data, StartCoded(Unit(2, 5)));
  EXPECT_EQ(next.frame.llTimeStamp, 90u);
  EXPECT_EQ(next.frame.dwKeyFrame, ZMV_NOT_KEY_FRAME);
}

TEST_F(ReaderFrames, LengthBeyondTheSample_IsTheEndBeforeAByteIsRead) {
  for (uint32_t length : {7u, 0xFFFFFFFFu}) {
    ASSERT_EQ(Describe(BuildMp4({NalVideo({Join({Be32(length), Unit(0x65, 6)}), Unit(1, 100)}, 4)})), 0u);
    ByteVector buffer(64, 0xA5);
    ZMVFrame frame = {};
    frame.pData = buffer.data();
    frame.dwBufSize = 64;
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    EXPECT_EQ(Code(MP4FReaderReadFrame(reader_, &frame)), ZMV_E_END);
    EXPECT_EQ(buffer, ByteVector(64, 0xA5));
  }
}

TEST_F(ReaderFrames, FewerBytesThanALengthField_AreTheEnd) {
  ASSERT_EQ(Describe(BuildMp4({NalVideo({Join({Prefixed(Unit(0x65, 6)), Bytes({0, 0, 0})})}, 4)})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(ReaderFrames, BadUnitWhileMeasuring_IsTheEnd) {
  ASSERT_EQ(Describe(BuildMp4({NalVideo({Join({Prefixed(Unit(0x65, 6), 1), Bytes({200, 1})})}, 1)})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 9).code, ZMV_E_END);
}

// ---- Missing tables

TEST_F(ReaderFrames, NoSizesOrNoChunks_IsTheEnd) {
  for (const char* table : {"stsz", "stco"}) {
    for (TrackSpec track : {PlainVideo({Unit(1, 4)}), AudioTrack()}) {
      track.frames = {Unit(1, 4)};
      track.leave_out = {table};
      ASSERT_EQ(Describe(BuildMp4({track})), 0u);
      const uint32_t media = track.handler == "vide" ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
      EXPECT_EQ(Read(media).code, ZMV_E_END) << table;
      EXPECT_EQ(ReadInfo(media).code, ZMV_E_END) << table;
    }
  }
}

TEST_F(ReaderFrames, NoChunkLayout_IsOneSampleInAChunk) {
  for (const bool empty : {false, true}) {
    TrackSpec track = PlainVideo({Unit(1, 4), Unit(2, 5)});
    if (empty) {
      track.chunks = std::vector<std::array<uint32_t, 3>>{};
    } else {
      track.leave_out = {"stsc"};
    }
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    for (const ByteVector& frame : track.frames) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, frame);
  }
}

// ---- Frame information

TEST_F(ReaderFrames, Info_FillsEverythingButPayloadAndChunk) {
  TrackSpec track = PlainVideo({Unit(1, 4), Unit(2, 5)});
  track.sync = {{1}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  ReadInfo(ZMV_MEDIA_VIDEO);
  const ReadResult read = ReadInfo(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(read.code, 0u);
  EXPECT_EQ(read.frame.dwSize, 5u);
  EXPECT_EQ(read.frame.llTimeStamp, 40u);
  EXPECT_EQ(read.frame.llTimeStampUs, 40000u);
  EXPECT_EQ(read.frame.dwDuration, 40u);
  EXPECT_EQ(read.frame.dwKeyFrame, ZMV_NOT_KEY_FRAME);
  EXPECT_EQ(read.frame.dwChunk, 0u);
  EXPECT_EQ(read.data, ByteVector(5, 0xA5));
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(ReaderFrames, InfoWithoutBuffer_TellsTheSize) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 77)})})), 0u);
  const ReadResult read = ReadInfo(ZMV_MEDIA_VIDEO, 0);
  EXPECT_EQ(read.code, ZMV_E_MP4_BUFFER);
  EXPECT_EQ(read.frame.dwBufSize, 77u);
}

TEST_F(ReaderFrames, InfoOfUnits_CountsLengthFieldsOneAfterAnother) {
  // One unit: exact. Two units: the second length is taken from the first unit's bytes, here 00 00 00 02.
  const ByteVector two = Join({Prefixed(Bytes({0, 0, 0, 2, 9, 9})), Prefixed(Unit(1, 8))});  // 22 bytes
  ASSERT_EQ(Describe(BuildMp4({NalVideo({Prefixed(Unit(1, 50)), two}, 4)})), 0u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).frame.dwSize, 54u);
  // 22 - (4 + 6) = 12; 12 - (4 + 2) = 6; the third field, 09 09 00 00, passes what is left.
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).frame.dwSize, 10u + 6u + 4u);
}

TEST_F(ReaderFrames, InfoOfAHugeLength_IsComparedAsALargeNumber) {
  ASSERT_EQ(Describe(BuildMp4({NalVideo({Join({Be32(0xFFFFFFF0), Unit(1, 8)})}, 4)})), 0u);
  const ReadResult read = ReadInfo(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(read.code, 0u);
  EXPECT_EQ(read.frame.dwSize, 4u);
}

TEST_F(ReaderFrames, InfoOfOneUnit_IsExactForEveryLengthSize) {
  for (int width = 1; width <= 4; ++width) {
    ASSERT_EQ(Describe(BuildMp4({NalVideo({Prefixed(Unit(0x65, 10), width)}, width)})), 0u);
    EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).frame.dwSize, 14u) << width;
  }
}

TEST_F(ReaderFrames, Info_MovesThePayloadCursorByTheLengthsItReads) {
  ASSERT_EQ(Describe(BuildMp4({NalVideo({Prefixed(Unit(0x65, 10))}, 4)})), 0u);
  ASSERT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, 0u);
  EXPECT_EQ(PayloadPosition(), 33u + 4u);  // ftyp 20, mdat header 8, gap 5
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 8)})})), 0u);
  ASSERT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, 0u);
  EXPECT_EQ(PayloadPosition(), 33u);
}

TEST_F(ReaderFrames, InfoOfAudio_GoesOnBehindTheLastChunk) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(1, 4)};
  track.sizes = {{4, 5, 6}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (uint32_t size : {4u, 5u, 6u}) {
    const ReadResult read = ReadInfo(ZMV_MEDIA_AUDIO);
    EXPECT_EQ(read.code, 0u);
    EXPECT_EQ(read.frame.dwSize, size);
  }
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(ReaderFrames, InfoAndFrames_ShareThePosition) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 4), Unit(2, 5), Unit(3, 6)})})), 0u);
  ReadInfo(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(2, 5));
}

// ---- Cost

TEST_F(ReaderFrames, ReadingAllocatesNothing) {
  TrackSpec track = NalVideo({}, 4);
  for (int i = 0; i < 2000; ++i) track.frames.push_back(Prefixed(Unit(1, 20)));
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  const uint64_t before = host_.Count(HostCall::kMalloc);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(Read(ZMV_MEDIA_VIDEO, 64).code, 0u);
  EXPECT_EQ(host_.Count(HostCall::kMalloc), before);
}

TEST_F(ReaderFrames, ReadError_IsTracedAndReturned) {
  TrackSpec track = PlainVideo({});
  for (int i = 0; i < 600; ++i) track.frames.push_back(Unit(1, 1));
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  host_.ClearRecords();
  host_.Fail(HostCall::kRead, 1);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_EQ(LinesOf("MP4FReaderReadFrame"), (std::vector<std::string>{"Enter.\n", "err (0x80000012)\n"}));
  host_.ClearRecords();
  host_.Fail(HostCall::kRead, 1);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_EQ(LinesOf("MP4FReaderReadFrameInfo"), (std::vector<std::string>{"Enter.\n", "err (0x80000012)\n"}));
}

TEST_F(ReaderFrames, OrdinaryAnswers_LeaveAsFramesDo) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 8)})})), 0u);
  const std::pair<uint32_t, uint32_t> calls[] = {{7, ZMV_E_MP4_BUFFER}, {8, 0}, {8, ZMV_E_END}};
  for (const auto& [capacity, code] : calls) {
    host_.ClearRecords();
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, capacity).code, code);
    EXPECT_EQ(LinesOf("MP4FReaderReadFrame"), (std::vector<std::string>{"Enter.\n", "Leave.\n"}));
  }
}

}  // namespace
}  // namespace zmv::test
