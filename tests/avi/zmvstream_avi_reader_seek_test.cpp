#include "tests/avi/avi_seek_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AviSeek : public AviSeekTest {
 protected:
  AviSeek() { Load(Recording()); }
};

// ---- The search

TEST_F(AviSeek, NextWithoutAKeyFrameAhead_TakesTheLastEntry) {
  const Found found = Search(0, kNext, 1440);
  EXPECT_EQ(found.result, 1);
  EXPECT_EQ(found.place.frame, 36u);
  EXPECT_EQ(found.place.entry, 47u);
  EXPECT_EQ(found.time, 1440u);
}

TEST_F(AviSeek, NextFromTheLastEntry_FindsNothing) {
  host_.ClearRecords();
  EXPECT_EQ(Search(0, kNext, 1880).result, 0);
  EXPECT_THAT(host_.Traces(1), ElementsAre("pIndex is NULL!\n"));
}

TEST_F(AviSeek, Next_CountsOneFrameShort) {
  const Found found = Search(0, kNext, 0);
  EXPECT_EQ(found.place.entry, 12u);
  EXPECT_EQ(found.place.frame, 11u);
  EXPECT_EQ(found.time, 440u);
  EXPECT_EQ(Search(0, kNext, 440).place.frame, 11u) << "a key frame right behind the target gives the target";
}

TEST_F(AviSeek, Previous_FindsTheKeyFrameAtOrBefore) {
  EXPECT_EQ(Search(0, kPrevious, 480).place.entry, 12u);
  EXPECT_EQ(Search(0, kPrevious, 1880).place.entry, 36u);
  EXPECT_EQ(Search(0, kPrevious, 1900).result, 0);
  EXPECT_EQ(Search(0, kPrevious, 470).place.entry, 12u) << "times go to the nearest frame";
  EXPECT_EQ(Search(0, kPrevious, 459).place.entry, 0u);
}

TEST_F(AviSeek, NearestAtAKeyFrame_TakesIt) {
  const Found found = Search(0, kNearest, 960);
  EXPECT_EQ(found.place.entry, 24u);
  EXPECT_EQ(found.place.frame, 24u);
  EXPECT_EQ(found.time, 960u);
}

TEST_F(AviSeek, Nearest_CountsTheDistanceBackFromTheKeyFrameBeforeTheLast) {
  host_.ClearRecords();
  Found found = Search(0, kNearest, 30 * 40);  // 30 - 12 = 18 back, 6 ahead
  EXPECT_EQ(found.place.entry, 36u);
  EXPECT_EQ(found.place.frame, 36u);
  EXPECT_THAT(host_.Traces(2), Contains("AVIReaderSeekStreamPos(30) - Next=36\n"));
  found = Search(0, kNearest, 6 * 40);  // 6 back, 6 ahead: ahead
  EXPECT_EQ(found.place.entry, 12u);
  found = Search(0, kNearest, 5 * 40);
  EXPECT_EQ(found.place.entry, 0u);
  EXPECT_THAT(host_.Traces(2), Contains("AVIReaderSeekStreamPos(5) - Prev=0\n"));
}

TEST_F(AviSeek, NearestWithoutAKeyFrameAhead_PairsTheEarlierFrameWithTheLastEntry) {
  const Found found = Search(0, kNearest, 1880);
  EXPECT_EQ(found.result, 1);
  EXPECT_EQ(found.place.frame, 24u);
  EXPECT_EQ(found.place.entry, 36u);
  EXPECT_EQ(found.time, 960u);
}

TEST_F(AviSeek, NearestAtTimeZero_GivesTheStartTime) {
  Stream(0).m_dwStartTime = 123;
  const Found found = Search(0, kNearest, 0);
  EXPECT_EQ(found.result, 1);
  EXPECT_EQ(found.place.entry, 0u);
  EXPECT_EQ(found.time, 123u);
}

TEST_F(AviSeek, FirstEntry_NeedNotBeAKeyFrame) {
  for (auto& entry : index_[0]) entry.m_dwFlags = 0;
  EXPECT_EQ(Search(0, kPrevious, 400).place.entry, 0u);
  const Found nearest = Search(0, kNearest, 400);
  EXPECT_EQ(nearest.place.entry, 0u);
  EXPECT_EQ(nearest.time, 0u);
  EXPECT_EQ(Search(0, kNearest, 40).place.frame, 0u);
  EXPECT_EQ(Search(0, kNearest, 0).place.frame, 0u);
}

// 25000 * 171799 passes 32 bits.
TEST_F(AviSeek, LateTime_IsNotWrapped) {
  LoadBytes(Zeros(1 << 16), {VideoStream()});
  for (uint32_t i = 0; i < 4296; ++i) index_[0].push_back({0x10, 12 * i, 4});
  UseIndex();
  EXPECT_EQ(Search(0, kPrevious, 171799).place.entry, 4295u);
  index_[0].resize(4295);
  UseIndex();
  EXPECT_EQ(Search(0, kPrevious, 171799).result, 0);
}

TEST_F(AviSeek, SeekOption_TakesTheFirstEntry) {
  const Found found = Search(0, kPrevious, 960, 1);
  EXPECT_EQ(found.result, 1);
  EXPECT_EQ(found.place.entry, 0u);
  EXPECT_EQ(found.place.position, index_[0][0].m_dwPos);
  EXPECT_EQ(Search(0, kPrevious, 1900, 1).result, 0);
  index_[0].clear();
  UseIndex();
  EXPECT_EQ(Search(0, kPrevious, 0, 1).result, 0);
}

TEST_F(AviSeek, SampleSize_FindsTheEntryThatHoldsTheSample) {
  AviSpec file;
  file.streams = {PcmStream()};  // 48000 samples of 4 bytes a second
  for (uint8_t i = 0; i < 10; ++i) file.chunks.push_back({"00wb", Payload(i == 3 ? 0 : 4800, i)});  // 25 ms each
  Load(file);
  Found found = Search(0, kPrevious, 60);
  EXPECT_EQ(found.place.entry, 2u);
  EXPECT_EQ(found.place.units, 2880u);
  EXPECT_EQ(found.time, 60u);
  found = Search(0, kPrevious, 75);
  EXPECT_EQ(found.place.entry, 4u) << "the empty entry holds no sample";
  EXPECT_EQ(found.place.frame, 4u);
  EXPECT_EQ(Search(0, kNext, 224).place.entry, 9u);
  EXPECT_EQ(Search(0, kNext, 225).result, 0);
  EXPECT_EQ(Search(0, kNext, 0xFFFFFFFF).result, 0);

  EXPECT_EQ(Search(0, kPrevious, 60).result, 1);
  EXPECT_EQ(AVIReaderSeekStream(0, &Stream(0)), 0);
  EXPECT_EQ(PlaceOf(0).bytes, 4u * 2880);
  const ReadResult frame = Read(ZMV_MEDIA_AUDIO, 4800);
  EXPECT_EQ(frame.data, Payload(4800, 2));
  EXPECT_EQ(frame.frame.llTimeStamp, 60u);
}

TEST_F(AviSeek, EntryBehindTheData_IsNotFound) {
  const uint32_t end = Reader()->m_dwFileSize;
  index_[0][12].m_dwPos = end - 100;
  for (auto [size, result] : {std::pair{100u, 1}, {101u, 0}, {0xFFFFFFFFu, 0}}) {
    index_[0][12].m_dwSize = size;
    EXPECT_EQ(Search(0, kPrevious, 480).result, result);
  }
}

TEST_F(AviSeek, NoIndex_FindsNothing) {
  Scan();
  for (uint32_t mode : {kNext, kPrevious, kNearest}) EXPECT_EQ(Search(0, mode, 0).result, 0);
}

TEST_F(AviSeek, WrongArguments_FindNothing) {
  uint32_t time = 0;
  AVIReaderStream empty{};
  EXPECT_EQ(Search(0, 0, 0).result, 0);
  EXPECT_EQ(Search(0, 4, 0).result, 0);
  EXPECT_EQ(AVIReaderGetSeekPos(nullptr, 0, &Stream(0), &time, kPrevious), 0);
  EXPECT_EQ(AVIReaderGetSeekPos(Reader(), 0, nullptr, &time, kPrevious), 0);
  EXPECT_EQ(AVIReaderGetSeekPos(Reader(), 0, &empty, &time, kPrevious), 0);
  EXPECT_EQ(AVIReaderGetSeekPos(Reader(), 0, &Stream(0), nullptr, kPrevious), 0);
  EXPECT_EQ(Code(AVIReaderSeekStream(0, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderSeekStream(0, &empty)), ZMV_E_FAIL);
  EXPECT_EQ(AVIReaderSeekByTime(nullptr, &time, 0), 0);
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), nullptr, 0), 0);
  EXPECT_EQ(AVIReaderSeekByKeyFrame(nullptr, &time, 0), 0);
  EXPECT_EQ(AVIReaderSeekByKeyFrame(Reader(), nullptr, 0), 0);
  EXPECT_EQ(AVIReaderSeekByMedia(nullptr, &time, 1), 0);
  EXPECT_EQ(AVIReaderSeekByMedia(Reader(), nullptr, 1), 0);
  EXPECT_EQ(AVIReaderChangeTrack(nullptr, 0, 0, 1), 0);
}

TEST_F(AviSeek, Traces_SayFramePositionAndTime) {
  char line[64];
  host_.ClearRecords();
  Search(0, kPrevious, 480);
  snprintf(line, sizeof(line), "AVI SEEK VIDEO(12) pos=%x cts=480 \n", index_[0][12].m_dwPos);
  EXPECT_THAT(host_.Traces(2), ElementsAre(line));
  host_.ClearRecords();
  Search(1, kPrevious, 200);
  snprintf(line, sizeof(line), "AVI SEEK AUDIO(5) pos=%x cts=200 \n", index_[1][5].m_dwPos);
  EXPECT_THAT(host_.Traces(2), ElementsAre(line));
  Stream(0).m_dwMediaType = ZMV_MEDIA_TEXT;
  host_.ClearRecords();
  Search(0, kPrevious, 480);
  EXPECT_THAT(host_.Traces(2), IsEmpty());
}

// ---- Taking the place

TEST_F(AviSeek, SeekStream_ReadsOnFromTheEntry) {
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(AVIReaderFindStreamFrame2(Reader(), &Stream(0)), 0);
  Stream(0).m_bPadPending = 1;
  Search(0, kPrevious, 1000);
  EXPECT_EQ(AVIReaderSeekStream(0, &Stream(0)), 0);
  const uint32_t position = index_[0][24].m_dwPos;
  EXPECT_EQ(
      PlaceOf(0),
      (ReadingPlace{
          .frame = 24, .bytes = 0, .pending = 0, .position = position, .entry = 24, .cursor = position, .pad = 0}));
  const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(NumberIn(frame), 24u);
  EXPECT_EQ(frame.frame.llTimeStamp, 960u);
  EXPECT_EQ(frame.frame.dwKeyFrame, 1u);
}

TEST_F(AviSeek, SeekStreamBehindTheFile_ChangesNothing) {
  Read(ZMV_MEDIA_VIDEO);
  Search(0, kPrevious, 1000);
  const ReadingPlace before = PlaceOf(0);
  for (uint32_t base : {Reader()->m_dwFileSize, 0xFFFFFFFFu}) {
    EXPECT_EQ(Code(AVIReaderSeekStream(base, &Stream(0))), ZMV_E_SEEK);
    EXPECT_EQ(PlaceOf(0).entry, before.entry);
    EXPECT_EQ(PlaceOf(0).frame, before.frame);
  }
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 1u);
}

TEST_F(AviSeek, PrefixedFile_PositionsCountFromTheBase) {
  Load(Recording(), Payload(5000));
  uint32_t time = 500;
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 1), 1);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 12u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1000u + 13);
}

// An index of which only a part was there is searched; frames are then scanned from the place found.
TEST_F(AviSeek, PartOfAnIndex_LeadsTheScan) {
  Reader()->m_bHasIndex = 0;
  uint32_t time = 500;
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 1), 1);
  const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(NumberIn(frame), 12u);
  EXPECT_EQ(frame.frame.llTimeStamp, 480u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 13u);
}

// ---- Seeks

TEST_F(AviSeek, ByTime_PreviousKey_AudioLeadsAndVideoGivesTheTime) {
  for (auto& entry : index_[1]) entry.m_dwFlags = 0;
  index_[1][20].m_dwFlags = 0x10;
  uint32_t time = 1200;
  host_.ClearRecords();
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 1), 1);
  EXPECT_THAT(host_.Traces(2), Contains("cts=1200 \n"));
  EXPECT_EQ(time, 480u) << "audio at 800 ms, video at the key frame before that";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 12u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1020u);
}

TEST_F(AviSeek, ByTime_Nearest_VideoLeadsAndAudioGivesTheTime) {
  Stream(1).m_dwStartTime = 7;
  uint32_t time = 460;
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 0), 1);
  EXPECT_EQ(time, 487u) << "video at 480 ms, audio at the same frame";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 12u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1012u);
}

TEST_F(AviSeek, ByTime_OneMediumAlone_GivesTheTime) {
  for (uint32_t present : {0u, 1u}) {
    for (bool previous : {false, true}) {
      Load(Recording());
      (present == 0 ? Reader()->m_bHasAudio : Reader()->m_bHasVideo) = 0;
      const ReadingPlace other = PlaceOf(1 - present);
      uint32_t time = 480;
      EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, previous ? 1 : 0), 1);
      EXPECT_EQ(time, 480u);
      EXPECT_EQ(PlaceOf(present).entry, 12u);
      EXPECT_EQ(PlaceOf(1 - present), other);
    }
  }
}

TEST_F(AviSeek, NothingToMove_IsNotDone) {
  Reader()->m_bHasAudio = Reader()->m_bHasVideo = 0;
  uint32_t time = 480;
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 0), 0);
  EXPECT_EQ(AVIReaderSeekByTime(Reader(), &time, 1), 0);
  for (uint32_t media : std::initializer_list<uint32_t>{ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT, 0, 9}) {
    EXPECT_EQ(AVIReaderSeekByMedia(Reader(), &time, media), 0);
  }
  EXPECT_EQ(time, 480u);
}

TEST_F(AviSeek, ByKeyFrame_MovesEveryVideoStreamAndTheCurrentAudio) {
  AviSpec file;
  file.streams = {VideoStream(), AacStream(), VideoStream(), TextStream(), AacStream()};
  file.streams[1].rate = file.streams[4].rate = 25000;
  file.streams[1].scale = file.streams[4].scale = 1000;
  for (uint32_t i = 0; i < 40; ++i) {
    file.chunks.push_back({"00dc", FrameData(i), i % 10 == 0 ? 0x10u : 0u});
    file.chunks.push_back({"01wb", FrameData(1000 + i)});
    file.chunks.push_back({"02dc", FrameData(2000 + i), i % 8 == 0 ? 0x10u : 0u});
    file.chunks.push_back({"03tx", FrameData(3000 + i)});
    file.chunks.push_back({"04wb", FrameData(4000 + i)});
  }
  Load(file);
  Read(ZMV_MEDIA_TEXT);
  Read(ZMV_MEDIA_AUDIO, 64, 1);
  uint32_t time = 1000;  // frame 25
  EXPECT_EQ(AVIReaderSeekByKeyFrame(Reader(), &time, 0), 1);
  EXPECT_EQ(time, 640u) << "20 in the first, 16 before that in the second";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 20u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO, 64, 1)), 2016u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1016u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_TEXT)), 3001u) << "reads on";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO, 64, 1)), 4001u) << "reads on";

  time = 0;
  EXPECT_EQ(AVIReaderSeekByKeyFrame(Reader(), &time, 1), 1);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 10u);
  const ReadResult second = Read(ZMV_MEDIA_VIDEO, 64, 1);  // the key frame behind frame 9 is 16
  EXPECT_EQ(NumberIn(second), 2016u);
  EXPECT_EQ(second.frame.llTimeStamp, 600u) << "stamped one frame early";
  EXPECT_EQ(time, 600u);
}

TEST_F(AviSeek, ByMedia_MovesOneStreamForward) {
  const ReadingPlace audio = PlaceOf(1);
  uint32_t time = 100;
  EXPECT_EQ(AVIReaderSeekByMedia(Reader(), &time, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(time, 440u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 12u);
  EXPECT_EQ(PlaceOf(1), audio);
  time = 100;
  EXPECT_EQ(AVIReaderSeekByMedia(Reader(), &time, ZMV_MEDIA_AUDIO), 1);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1004u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 13u);
}

// A stream that has read something, holds a chunk, and has no place near the target.
TEST_F(AviSeek, FailedSeeks_LeaveEveryStreamWhereItReads) {
  for (bool indexed : {true, false}) {
    for (uint32_t failing : {0u, 1u}) {
      Load(Recording());
      if (!indexed) Reader()->m_bHasIndex = 0;
      index_[failing].resize(20);
      UseIndex();
      Read(ZMV_MEDIA_VIDEO);
      Read(ZMV_MEDIA_AUDIO);
      Read(ZMV_MEDIA_VIDEO);
      EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 1).code, ZMV_E_AVI_BUFFER);  // stays pending
      const std::vector<ReadingPlace> before = Places();
      for (int kind = 0; kind < 6; ++kind) {
        uint32_t time = 1000;
        const uint32_t media = failing == 0 ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
        uint8_t result = 1;
        if (kind == 0) result = AVIReaderSeekByTime(Reader(), &time, 0);
        if (kind == 1) result = AVIReaderSeekByTime(Reader(), &time, 1);
        if (kind == 2) result = AVIReaderSeekByKeyFrame(Reader(), &time, 0);
        if (kind == 3) result = AVIReaderSeekByKeyFrame(Reader(), &time, 1);
        if (kind == 4) result = AVIReaderSeekByMedia(Reader(), &time, media);
        if (kind == 5) result = static_cast<uint8_t>(AVIReaderChangeTrack(Reader(), 0, 1000, media));
        EXPECT_EQ(result, 0) << "kind " << kind;
        EXPECT_EQ(Places(), before) << "kind " << kind;
      }
      const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
      EXPECT_EQ(NumberIn(frame), 2u);
      EXPECT_EQ(frame.frame.llTimeStamp, 80u);
      EXPECT_EQ(frame.frame.dwKeyFrame, indexed ? 2u : 77u);
      EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_AUDIO)), 1001u);
    }
  }
}

TEST_F(AviSeek, EveryFrame_IsReachedInEveryMode) {
  for (uint32_t frame = 0; frame < 48; ++frame) {
    for (uint32_t mode : {kNext, kPrevious, kNearest}) {
      const auto expected = PlainAviSearch(IndexOf(0), false, mode, 40 * frame);
      const Found found = Search(0, mode, 40 * frame);
      ASSERT_EQ(found.result, expected ? 1 : 0);
      if (!expected) continue;
      ASSERT_EQ(AVIReaderSeekStream(0, &Stream(0)), 0);
      const ReadResult read = Read(ZMV_MEDIA_VIDEO);
      EXPECT_EQ(NumberIn(read), expected->entry);
      EXPECT_EQ(read.frame.llTimeStamp, expected->time);
    }
  }
}

// ---- Tracks

class AviTracks : public AviSeekTest {
 protected:
  AviTracks() {
    AviSpec file;
    file.streams = {VideoStream(), VideoStream(), TextStream(), AacStream()};
    file.streams[2].rate = 25000;
    for (uint32_t i = 0; i < 40; ++i) {
      file.chunks.push_back({"00dc", FrameData(i), i % 10 == 0 ? 0x10u : 0u});
      file.chunks.push_back({"01dc", FrameData(1000 + i), i % 8 == 0 ? 0x10u : 0u});
      file.chunks.push_back({"02tx", FrameData(2000 + i)});
      file.chunks.push_back({"03wb", FrameData(3000 + i)});
    }
    Load(file);
  }
};

TEST_F(AviTracks, ChangeTrack_MakesItCurrentAndMovesIt) {
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 1, 1000, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(Reader()->m_dwFirstVideo, 1u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO, 64, 1)), 1024u);
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO, 64, 0)), 0u);
  uint32_t time = 400;
  EXPECT_EQ(AVIReaderSeekByMedia(Reader(), &time, ZMV_MEDIA_VIDEO), 1) << "seeks go to the current track";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO, 64, 1)), 1016u);
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 0, 1000, ZMV_MEDIA_VIDEO), 1) << "and back";
  EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_VIDEO)), 20u);
}

TEST_F(AviTracks, CurrentOrMissingTrack_IsNotChanged) {
  const std::vector<ReadingPlace> before = Places();
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 0, 1000, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 2, 1000, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 0, 100, ZMV_MEDIA_AUDIO), 0);
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 0, 100, 9), 0);
  EXPECT_EQ(Places(), before);
}

TEST_F(AviTracks, FailedSearch_KeepsTheCurrentTrack) {
  EXPECT_EQ(AVIReaderChangeTrack(Reader(), 1, 1600, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(Reader()->m_dwFirstVideo, 0u);
}

TEST_F(AviTracks, Text_HasNoCurrentTrack) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(AVIReaderChangeTrack(Reader(), 0, 1000, ZMV_MEDIA_TEXT), 1);
    EXPECT_EQ(NumberIn(Read(ZMV_MEDIA_TEXT)), 2025u);
  }
}

}  // namespace
}  // namespace zmv::test
