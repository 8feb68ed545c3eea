#include "facade/zmvstream_reader.h"

#include <gmock/gmock.h>

#include "facade/zmvstream_reader_records.h"
#include "tests/facade/fake_container.h"
#include "tests/facade/small_recording.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;

constexpr char kPath[] = "drive.mp4";
constexpr char kRefused[] = "[Reader]\tReaderOpen - File format is not supported!\n";

class Reader : public ::testing::Test {
 protected:
  Reader() : buffer_(4096) {}
  ~Reader() override {
    EXPECT_THAT(host_.LiveList(), ElementsAre());
    EXPECT_EQ(OpenFiles(), 0u);
  }

  uint32_t Open(const char* path = kPath) {
    ZMVReaderParam param{path, nullptr, 0};
    reader_ = nullptr;
    const uint32_t result = Code(ZMVReaderOpen(&reader_, &param));
    size_ = param.dwSize;
    return result;
  }
  void Close() {
    ZMVReaderClose(reader_);
    reader_ = nullptr;
  }
  // The code of opening a file of these bytes.
  uint32_t OpenBytes(const ByteVector& bytes) {
    host_.PutFile("sniff.bin", bytes);
    const uint32_t result = Open("sniff.bin");
    if (result == 0) Close();
    return result;
  }
  uint64_t OpenFiles() { return opened_ + host_.Count(HostCall::kOpen) - host_.Count(HostCall::kClose); }
  ZMVFrame Next(uint32_t media) {
    ZMVFrame frame{};
    frame.dwMediaType = media;
    frame.pData = buffer_.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
    result_ = ZMVReaderReadFrame(reader_, &frame);
    return frame;
  }

  ScriptedHost host_;
  ZMVReader* reader_ = nullptr;
  ByteVector buffer_;
  uint32_t size_ = 0;
  int32_t result_ = 0;
  uint64_t opened_ = 0;  // taken off: opens that failed
};

// ---- Recognising the container

TEST_F(Reader, Sniff_FirstBoxOfMp4_SelectsMp4) {
  for (const char* type : {"ftyp", "mdat", "moov"}) {
    EXPECT_EQ(OpenBytes(Join({Be32(8), Text(type)})), 0u) << type;
    EXPECT_EQ(OpenBytes(Join({Text("????"), Text(type), Zeros(5000)})), 0u) << type;
  }
}

TEST_F(Reader, Sniff_Mp4_FillsTheSlotsItServes) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov")}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  const ZMVReaderOperations& slots = reader_->operations;
  EXPECT_NE(slots.Open, nullptr);
  EXPECT_NE(slots.Close, nullptr);
  EXPECT_NE(slots.GetInfo, nullptr);
  EXPECT_NE(slots.ReadFrame, nullptr);
  EXPECT_NE(slots.ReadFrameInfo, nullptr);
  EXPECT_EQ(slots.OpenParam, nullptr);
  EXPECT_EQ(slots.Reserved, nullptr);
  EXPECT_EQ(slots.Start, nullptr);
  EXPECT_EQ(slots.MakeIndex, nullptr);
  EXPECT_EQ(slots.ReadThumb, nullptr);
  EXPECT_EQ(slots.GetStatus, nullptr);
  EXPECT_EQ(slots.SetStatus, nullptr);
  Close();
}

TEST_F(Reader, Sniff_Riff_SelectsAvi) {
  EXPECT_EQ(OpenBytes(Join({Text("RIFF"), Le32(4), Text("AVI ")})), 0u);
  EXPECT_EQ(OpenBytes(Join({Text("RIFF"), Le32(4), Text("MENU"), Zeros(5000)})), 0u);
  // The zero byte behind three letters is compared too, and then the reader finds a block in front of the RIFF data.
  EXPECT_EQ(OpenBytes(Join({Zeros(8), Text("AVI"), Zeros(85)})), 0u);
}

// Every RIFF file is the AVI reader's to judge: these are not refused as a format that is not known.
TEST_F(Reader, Sniff_RiffThatIsNoAvi_FailsInTheAviReader) {
  for (const ByteVector& bytes : {Text("RIFF?"), Join({Text("RIFF"), Le32(4), Text("WAVE")})}) {
    host_.ClearRecords();
    const uint32_t result = OpenBytes(bytes);
    EXPECT_NE(result, 0u);
    EXPECT_NE(result, ZMV_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(reader_, nullptr);
  }
}

TEST_F(Reader, Sniff_Avi_FillsTheSlotsItServes) {
  host_.PutFile("sniff.bin", Join({Text("RIFF"), Le32(4), Text("AVI ")}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  const ZMVReaderOperations& slots = reader_->operations;
  EXPECT_NE(slots.Open, nullptr);
  EXPECT_NE(slots.Close, nullptr);
  EXPECT_NE(slots.GetInfo, nullptr);
  EXPECT_NE(slots.ReadFrame, nullptr);
  EXPECT_NE(slots.SeekByTime, nullptr);
  EXPECT_NE(slots.SeekByKeyFrame, nullptr);
  EXPECT_NE(slots.SeekByMedia, nullptr);
  EXPECT_NE(slots.ChangeTrack, nullptr);
  EXPECT_EQ(slots.ReadFrameInfo, nullptr);
  EXPECT_EQ(slots.SeekBySubtitle, nullptr);
  EXPECT_EQ(slots.OpenParam, nullptr);
  EXPECT_EQ(slots.Reserved, nullptr);
  EXPECT_EQ(slots.Start, nullptr);
  EXPECT_EQ(slots.MakeIndex, nullptr);
  EXPECT_EQ(slots.ReadThumb, nullptr);
  EXPECT_EQ(slots.GetStatus, nullptr);
  EXPECT_EQ(slots.SetStatus, nullptr);
  Close();
}

TEST_F(Reader, Sniff_OtherFiles_AreRefusedWithTheMessage) {
  const ByteVector others[] = {
      Text("R"),
      Text("RIF"),
      Text("RIFX"),
      Zeros(4096),
      Join({Be32(8), Text("free"), Be32(8), Text("moov")}),  // only the first box counts
      Join({Be32(8), Text("ftyq")}),
      Join({Be32(7), Text("moo")}),
      Join({Zeros(8), Text("AVI "), Zeros(20)}),  // a form without its RIFF
  };
  for (const ByteVector& bytes : others) {
    host_.ClearRecords();
    EXPECT_EQ(OpenBytes(bytes), ZMV_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(reader_, nullptr);
    EXPECT_THAT(host_.Traces(1), ElementsAre(kRefused));
  }
}

TEST_F(Reader, Sniff_PeeksOnceAtTheFront) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("ftyp"), Zeros(9000)}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  const std::vector<CallRecord> reads = host_.Calls(HostCall::kRead);
  ASSERT_GE(reads.size(), 1u);
  EXPECT_EQ(reads[0].position, 0u);
  EXPECT_EQ(reads[0].size, 4096u);
  Close();
}

TEST_F(Reader, Sniff_EmptyFile_GivesTheCodeOfTheRead) { EXPECT_EQ(OpenBytes({}), ZMV_E_READ); }

TEST_F(Reader, Sniff_ReadFails_GivesItsCode) {
  host_.Fail(HostCall::kRead, 1);
  EXPECT_EQ(OpenBytes(Join({Be32(8), Text("ftyp")})), ZMV_E_READ);
}

TEST_F(Reader, Sniff_BytesBehindAShortFile_CountAsZeros) {
  // Memory that is not cleared would complete every one of them.
  host_.uncleared = "ftypmoov";
  EXPECT_EQ(OpenBytes(Be32(8)), ZMV_E_UNSUPPORTED_FORMAT);
  EXPECT_EQ(OpenBytes(Join({Be32(8), Text("f")})), ZMV_E_UNSUPPORTED_FORMAT);
  EXPECT_EQ(OpenBytes(Join({Be32(8), Text("fty")})), ZMV_E_UNSUPPORTED_FORMAT);
  EXPECT_EQ(OpenBytes(Join({Be32(8), Text("ftyp")})), 0u);
}

// ---- Opening and closing

TEST_F(Reader, Open_NoSuchFile_GivesTheStreamsCode) {
  opened_ -= 1;
  EXPECT_EQ(Open("absent.mp4"), ZMV_E_OPEN);
  EXPECT_EQ(reader_, nullptr);
}

TEST_F(Reader, Open_NoName_CannotBeOpened) { EXPECT_EQ(Open(nullptr), ZMV_E_OPEN); }

TEST_F(Reader, Open_ByPath_TellsTheSize) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov"), Zeros(992)}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  EXPECT_EQ(size_, 1000u);
  Close();
}

TEST_F(Reader, Open_BySource_IsOpenedInsteadAndKeepsItsSize) {
  host_.PutFile("source.bin", Join({Be32(8), Text("moov")}));
  ZMVReaderParam param{"absent.mp4", "source.bin", 77};
  ASSERT_EQ(ZMVReaderOpen(&reader_, &param), 0);
  EXPECT_EQ(param.dwSize, 77u);
  EXPECT_EQ(host_.Calls(HostCall::kOpen).at(0).name, "source.bin");
  EXPECT_EQ(host_.Calls(HostCall::kOpen).at(0).position, 2u);
  Close();
}

TEST_F(Reader, Open_EveryAllocation_MadeToFail) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov")}));
  uint64_t failures = 0;
  for (uint64_t n = 1;; ++n) {
    const uint64_t before = host_.Count(HostCall::kMalloc);
    host_.Fail(HostCall::kMalloc, n);
    const uint32_t result = Open("sniff.bin");
    host_.ClearFailures();
    if (host_.Count(HostCall::kMalloc) < before + n) break;
    EXPECT_EQ(result, ZMV_E_MEMORY) << n;
    EXPECT_EQ(reader_, nullptr);
    EXPECT_THAT(host_.LiveList(), ElementsAre()) << n;
    EXPECT_EQ(OpenFiles(), 0u) << n;
    ++failures;
  }
  EXPECT_GE(failures, 5u);  // handle, stream handle, file, front, container
  Close();
}

TEST_F(Reader, Open_NoMutex_ReleasesEverything) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov")}));
  host_.Fail(HostCall::kMutexCreate, 1);
  EXPECT_EQ(Open("sniff.bin"), ZMV_E_MEMORY);
  EXPECT_EQ(reader_, nullptr);
  EXPECT_EQ(host_.Count(HostCall::kMutexDestroy), 0u);
}

TEST_F(Reader, Close_Null_IsIgnored) {
  ZMVReaderClose(nullptr);
  EXPECT_TRUE(host_.Traced("Enter. hReader(0)\n"));
  EXPECT_EQ(host_.Count(HostCall::kFree), 0u);
}

TEST_F(Reader, Close_TracesTheHandleUnderTheReadersTag) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov")}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  char line[64];
  ZMV_snprintf(line, sizeof line, "Enter. hReader(%x)\n", static_cast<unsigned>(reinterpret_cast<uintptr_t>(reader_)));
  Close();
  EXPECT_TRUE(host_.Traced(line));
  const TraceRecord& last = host_.traces().back();
  EXPECT_EQ(last.module, "zmvstreamr");
  EXPECT_EQ(last.file, "zmvstream_reader");
  EXPECT_EQ(last.text, "Leave.\n");
}

// Seen by a container that is being closed: the thread has ended, the mutex and the stream are still there.
std::vector<std::string>* g_order = nullptr;

TEST_F(Reader, Close_StopsTheIndexThreadThenTakesTheRestDownInOrder) {
  host_.PutFile("sniff.bin", Join({Be32(8), Text("moov")}));
  ASSERT_EQ(Open("sniff.bin"), 0u);
  reader_->operations.Close(reader_->hReader);
  FakeReader fake;
  std::vector<std::string> order;
  g_order = &order;
  reader_->hReader = &fake;
  reader_->operations = FakeReader::Operations();
  reader_->operations.Close = [](void*) {
    const ScriptedHost& host = *ScriptedHost::Current();
    g_order->push_back("threads ended " + std::to_string(host.Count(HostCall::kThreadDelete)));
    g_order->push_back("mutexes gone " + std::to_string(host.Count(HostCall::kMutexDestroy)));
    g_order->push_back("files closed " + std::to_string(host.Count(HostCall::kClose)));
  };
  ZMVFileInfo info{};
  ASSERT_EQ(ZMVReaderGetInfo(reader_, &info), 0);
  ASSERT_EQ(host_.Count(HostCall::kThreadCreate), 1u);
  Close();
  EXPECT_THAT(order, ElementsAre("threads ended 1", "mutexes gone 0", "files closed 0"));
  EXPECT_EQ(host_.Count(HostCall::kMutexDestroy), 1u);
}

TEST_F(Reader, OpenSubtitle_DoesNothing) { EXPECT_EQ(ZMVReaderOpenSubtitle(), 0); }

// ---- A recording played back

class Playback : public Reader {
 protected:
  Playback() {
    EXPECT_EQ(RecordSmall(kPath), 0);
    host_.ClearRecords();
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(ZMVReaderGetInfo(reader_, &info_), 0);
  }
  ~Playback() override { Close(); }

  ZMVFileInfo info_{};
};

TEST_F(Playback, GetInfo_DescribesWhatWasRecorded) {
  EXPECT_EQ(info_.dwVideoCount, 1u);
  EXPECT_EQ(info_.dwAudioCount, 1u);
  EXPECT_EQ(info_.dwTextCount, 0u);
  EXPECT_EQ(info_.m_Video[0].dwWidth, 64u);
  EXPECT_EQ(info_.m_Video[0].dwHeight, 48u);
  EXPECT_EQ(info_.m_Video[0].dwFrames, kSmallFrames);
  EXPECT_EQ(info_.m_Audio.dwSampleRate, 48000u);
  EXPECT_EQ(info_.m_Audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(size_, host_.File(kPath).size());
}

TEST_F(Playback, ReadFrame_GivesEveryPayloadThenTheEnd) {
  for (const uint32_t media : {ZMV_MEDIA_AUDIO, ZMV_MEDIA_VIDEO}) {
    for (uint32_t i = 0; i < kSmallFrames; ++i) {
      const ZMVFrame frame = Next(media);
      ASSERT_EQ(result_, 0) << media << " " << i;
      EXPECT_EQ(ByteVector(buffer_.begin(), buffer_.begin() + frame.dwSize), SmallPayload(media, i));
      EXPECT_EQ(frame.llTimeStamp, i * kSmallFrameMs);
    }
    Next(media);
    EXPECT_EQ(Code(result_), ZMV_E_END);
  }
}

TEST_F(Playback, ReadFrame_BufferTooSmall_TellsTheSizeAndGivesTheFrameNextTime) {
  ZMVFrame frame{};
  frame.dwMediaType = ZMV_MEDIA_AUDIO;
  frame.pData = buffer_.data();
  frame.dwBufSize = 1;
  EXPECT_EQ(Code(ZMVReaderReadFrame(reader_, &frame)), ZMV_E_MP4_BUFFER);
  EXPECT_EQ(frame.dwBufSize, SmallPayload(ZMV_MEDIA_AUDIO, 0).size());
  EXPECT_EQ(ZMVReaderReadFrame(reader_, &frame), 0);
  EXPECT_EQ(ByteVector(buffer_.begin(), buffer_.begin() + frame.dwSize), SmallPayload(ZMV_MEDIA_AUDIO, 0));
}

TEST_F(Playback, ReadFrame_TimeDeltaTwice_ShiftsAndResets) {
  ZMVReaderSetTimeDelta(reader_, 500, ZMV_MEDIA_VIDEO);
  ZMVReaderSetTimeDelta(reader_, 500, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(Next(ZMV_MEDIA_VIDEO).llTimeStamp, 1000u);
  EXPECT_EQ(Next(ZMV_MEDIA_VIDEO).llTimeStamp, 1000u + kSmallFrameMs);
  ZMVReaderSetTimeDelta(reader_, 0, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(Next(ZMV_MEDIA_VIDEO).llTimeStamp, 2 * kSmallFrameMs);
}

TEST_F(Playback, ReadFrame_MediumThatIsNotThere_Fails) {
  Next(ZMV_MEDIA_TEXT);
  EXPECT_EQ(Code(result_), ZMV_E_FAIL);
}

TEST_F(Playback, ReadFrameInfo_GivesTheTimesWithoutThePayload) {
  ZMVFrame frame{};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
  for (uint32_t i = 0; i < kSmallFrames; ++i) {
    ASSERT_EQ(ZMVReaderReadFrameInfo(reader_, &frame), 0);
    EXPECT_EQ(frame.llTimeStamp, i * kSmallFrameMs);
    EXPECT_EQ(frame.dwKeyFrame, i == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME);
  }
}

TEST_F(Playback, GetStatus_ReadsHundredForAFile) {
  ZMVReaderStatus status{};
  EXPECT_EQ(ZMVReaderGetStatus(reader_, &status), 1);
  EXPECT_EQ(status.dwLoadPercent, 100u);
  EXPECT_EQ(status.dwBufferPercent, 100u);
}

TEST_F(Playback, ReadThumb_IsNotToBeHad) {
  ZMVFrame frame{};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(Code(ReaderReadThumb(reader_, &frame)), ZMV_E_FAIL);
}

// ---- Describing a file that need not stay open

TEST_F(Reader, GetInfoFile_DescribesWithoutAHandleAndKeepsNothing) {
  ASSERT_EQ(RecordSmall(kPath), 0);
  ZMVReaderParam param{kPath, nullptr, 77};
  ZMVFileInfo info{};
  EXPECT_EQ(ZMVReaderGetInfoFile(&param, &info), 0);
  EXPECT_EQ(info.dwVideoCount, 1u);
  EXPECT_EQ(info.m_Video[0].dwFrames, kSmallFrames);
  EXPECT_EQ(param.dwSize, 77u);
  EXPECT_EQ(host_.Count(HostCall::kThreadCreate), 0u);
}

// HEVC recordings do not say how large a frame can be.
TEST_F(Reader, GetInfoFile_FillsNoDefaults) {
  SampleStream video = LoadHevc("epb_hevc.hevc");
  ASSERT_EQ(RecordSamples(kPath, {.video = &video, .width = 176, .height = 144}), 0);
  ZMVReaderParam param{kPath, nullptr, 0};
  ZMVFileInfo info{};
  EXPECT_EQ(ZMVReaderGetInfoFile(&param, &info), 0);
  EXPECT_EQ(info.dwVideoCount, 1u);
  EXPECT_EQ(info.m_Video[0].dwBufferSize, 0u);
  ASSERT_EQ(Open(), 0u);
  EXPECT_EQ(ZMVReaderGetInfo(reader_, &info), 0);
  EXPECT_EQ(info.m_Video[0].dwBufferSize, info.m_Video[0].dwWidth * info.m_Video[0].dwHeight / 2);
  Close();
}

TEST_F(Reader, GetInfoFile_Failures_ArePassedOn) {
  ZMVFileInfo info{};
  ZMVReaderParam absent{"absent.mp4", nullptr, 0};
  opened_ -= 1;
  EXPECT_EQ(Code(ZMVReaderGetInfoFile(&absent, &info)), ZMV_E_OPEN);
  ZMVReaderParam none{nullptr, nullptr, 0};
  EXPECT_EQ(Code(ZMVReaderGetInfoFile(&none, &info)), ZMV_E_OPEN);
  host_.PutFile("foreign.bin", Zeros(100));
  ZMVReaderParam foreign{"foreign.bin", nullptr, 0};
  EXPECT_EQ(Code(ZMVReaderGetInfoFile(&foreign, &info)), ZMV_E_UNSUPPORTED_FORMAT);
}

TEST_F(Reader, GetInfoFile_EveryAllocation_MadeToFail) {
  ASSERT_EQ(RecordSmall(kPath), 0);
  ZMVReaderParam param{kPath, nullptr, 0};
  uint64_t failures = 0;
  for (uint64_t n = 1;; ++n) {
    const uint64_t before = host_.Count(HostCall::kMalloc);
    host_.Fail(HostCall::kMalloc, n);
    ZMVFileInfo info{};
    const int32_t result = ZMVReaderGetInfoFile(&param, &info);
    host_.ClearFailures();
    if (host_.Count(HostCall::kMalloc) < before + n) break;
    // The audio configuration of MP4 reports a malformed header instead.
    EXPECT_THAT(Code(result), AnyOf(ZMV_E_MEMORY, ZMV_E_FAIL)) << n;
    EXPECT_THAT(host_.LiveList(), ElementsAre()) << n;
    EXPECT_EQ(OpenFiles(), 0u) << n;
    ++failures;
  }
  EXPECT_GE(failures, 6u);
}

}  // namespace
}  // namespace zmv::test
