// Every host call that describing and reading make, failing in turn: a code, a free mutex, nothing left behind, and a
// reader that goes on when the host does.
#include <gmock/gmock.h>

#include "facade/zmvstream_reader_records.h"
#include "tests/facade/small_recording.h"

namespace zmv::test {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;

constexpr char kPath[] = "drive.mp4";

struct Fault {
  const char* name;
  HostCall call;
  ScriptedHost::Duration duration;
};

class FacadeFaults : public ::testing::TestWithParam<Fault> {
 protected:
  FacadeFaults() : buffer_(4096) {
    host_.trace_level = 0;
    host_.record = false;
    EXPECT_EQ(RecordSmall(kPath), 0);
  }

  // Everything has been given back.
  void ExpectClean(uint64_t n) {
    EXPECT_THAT(host_.LiveList(), ElementsAre()) << n;
    EXPECT_EQ(host_.Count(HostCall::kMutexLock), host_.Count(HostCall::kMutexUnLock)) << n;
  }
  // Counts the calls of the parameter's kind; starts failing at the nth from now.
  void Arm(uint64_t n) {
    armed_at_ = host_.Count(GetParam().call) + n;
    host_.Fail(GetParam().call, n, GetParam().duration);
  }
  // Whether the armed failure took place.
  bool Disarm() {
    host_.ClearFailures();
    return host_.Count(GetParam().call) >= armed_at_;
  }
  // Reads one frame; one that is delivered is the recording's frame of its time, whole.
  int32_t ReadOne(ZMVReader* reader, uint32_t media, uint64_t* time) {
    ZMVFrame frame{};
    frame.dwMediaType = media;
    frame.pData = buffer_.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
    const int32_t result = ZMVReaderReadFrame(reader, &frame);
    if (result < 0) return result;
    *time = frame.llTimeStamp;
    EXPECT_EQ(frame.llTimeStamp % kSmallFrameMs, 0u);
    const uint32_t number = static_cast<uint32_t>(frame.llTimeStamp / kSmallFrameMs);
    EXPECT_EQ(ByteVector(buffer_.begin(), buffer_.begin() + frame.dwSize), SmallPayload(media, number));
    return result;
  }
  int32_t ReadAll(ZMVReader* reader) {
    for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
      for (uint32_t i = 0; i < kSmallFrames; ++i) {
        uint64_t time = 0;
        const int32_t result = ReadOne(reader, media, &time);
        if (result < 0) return result;
        EXPECT_EQ(time, i * kSmallFrameMs);
      }
    }
    return 0;
  }
  // The frames that are left after a failure come in order and end with the recording.
  void ReadTheRest(ZMVReader* reader, uint64_t n) {
    for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
      uint64_t before = 0;
      uint64_t time = 0;
      uint32_t count = 0;
      int32_t result = 0;
      while ((result = ReadOne(reader, media, &time)) >= 0) {
        ASSERT_LE(++count, kSmallFrames) << n;
        EXPECT_TRUE(count == 1 || time > before) << n;
        before = time;
      }
      EXPECT_EQ(Code(result), ZMV_E_END) << n;
      if (count != 0) {
        EXPECT_EQ(before, (kSmallFrames - 1) * kSmallFrameMs) << n;
      }
    }
  }
  // What a description that was reported as whole holds.
  static void ExpectWhole(const ZMVFileInfo& info, uint64_t n) {
    const ZMVFileInfo recorded = SmallInfo();
    EXPECT_EQ(info.dwVideoCount, 1u) << n;
    EXPECT_EQ(info.dwAudioCount, 1u) << n;
    EXPECT_EQ(info.dwTextCount, 0u) << n;
    EXPECT_EQ(info.m_Video[0].dwFrames, kSmallFrames) << n;
    EXPECT_EQ(info.m_Video[0].dwWidth, recorded.m_Video[0].dwWidth) << n;
    EXPECT_EQ(info.m_Video[0].dwExtraDataSize, recorded.m_Video[0].dwExtraDataSize) << n;
    EXPECT_EQ(
        std::memcmp(info.m_Video[0].abExtraData, recorded.m_Video[0].abExtraData, recorded.m_Video[0].dwExtraDataSize),
        0)
        << n;
    EXPECT_EQ(info.m_Audio.dwFrames, kSmallFrames) << n;
    EXPECT_EQ(info.m_Audio.dwSampleRate, recorded.m_Audio.dwSampleRate) << n;
    EXPECT_EQ(info.m_Audio.dwExtraDataSize, recorded.m_Audio.dwExtraDataSize) << n;
  }

  ScriptedHost host_;
  ByteVector buffer_;
  uint64_t armed_at_ = 0;
};

TEST_P(FacadeFaults, OpenAndGetInfo_FailOrSucceedWhole) {
  for (uint64_t n = 1;; ++n) {
    ASSERT_LT(n, 1000u);
    Arm(n);
    ZMVReaderParam param{kPath, nullptr, 0};
    ZMVReader* reader = nullptr;
    ZMVFileInfo info{};
    int32_t result = ZMVReaderOpen(&reader, &param);
    EXPECT_EQ(result < 0, reader == nullptr) << n;
    if (result >= 0) {
      result = ZMVReaderGetInfo(reader, &info);
      if (result >= 0) {
        ExpectWhole(info, n);
        EXPECT_EQ(reader->m_bHasVideo, 1) << n;
        EXPECT_EQ(reader->m_bHasAudio, 1) << n;
        EXPECT_NE(info.dwTimeScale, 0u) << n;
      }
      ZMVReaderClose(reader);
    }
    const bool failed = Disarm();
    ExpectClean(n);
    if (failed && GetParam().call == HostCall::kMalloc) {
      // The audio configuration of MP4 reports a malformed header instead.
      EXPECT_THAT(Code(result), AnyOf(ZMV_E_MEMORY, ZMV_E_FAIL)) << n;
    }
    if (!failed) {
      EXPECT_EQ(result, 0);
      break;
    }
  }
}

TEST_P(FacadeFaults, ReadFrame_FailsOnceAndTheMutexIsFree) {
  for (uint64_t n = 1;; ++n) {
    ASSERT_LT(n, 1000u);
    ZMVReaderParam param{kPath, nullptr, 0};
    ZMVReader* reader = nullptr;
    ZMVFileInfo info{};
    ASSERT_EQ(ZMVReaderOpen(&reader, &param), 0);
    ASSERT_EQ(ZMVReaderGetInfo(reader, &info), 0);
    Arm(n);
    const int32_t result = ReadAll(reader);
    const bool failed = Disarm();
    EXPECT_EQ(host_.Count(HostCall::kMutexLock), host_.Count(HostCall::kMutexUnLock)) << n;
    if (result < 0) ReadTheRest(reader, n);
    ZMVReaderClose(reader);
    ExpectClean(n);
    if (!failed) {
      EXPECT_EQ(result, 0);
      break;
    }
  }
}

TEST_P(FacadeFaults, Recording_LeavesNothingBehind) {
  for (uint64_t n = 1;; ++n) {
    ASSERT_LT(n, 5000u);
    Arm(n);
    const int32_t result = RecordSmall("other.mp4");
    const bool failed = Disarm();
    ExpectClean(n);
    if (GetParam().call != HostCall::kMutexCreate) {
      EXPECT_EQ(host_.Count(HostCall::kMutexCreate), host_.Count(HostCall::kMutexDestroy)) << n;
    } else {
      EXPECT_EQ(Code(result), failed ? ZMV_E_MEMORY : 0) << n;
    }
    if (!failed) {
      EXPECT_EQ(result, 0);
      break;
    }
  }
}

// The next handle works after every failure of this one.
TEST_P(FacadeFaults, AfterAFailure_TheNextRecordingIsWhole) {
  Arm(1);
  RecordSmall("other.mp4");
  Disarm();
  host_.File("other.mp4").clear();
  ASSERT_EQ(RecordSmall("other.mp4"), 0);
  ZMVReaderParam param{"other.mp4", nullptr, 0};
  ZMVFileInfo info{};
  ASSERT_EQ(ZMVReaderGetInfoFile(&param, &info), 0);
  EXPECT_EQ(info.m_Video[0].dwFrames, kSmallFrames);
}

INSTANTIATE_TEST_SUITE_P(HostCalls, FacadeFaults,
                         ::testing::Values(Fault{"Malloc", HostCall::kMalloc, ScriptedHost::kOnce},
                                           Fault{"MallocForGood", HostCall::kMalloc, ScriptedHost::kForGood},
                                           Fault{"ReAlloc", HostCall::kReAlloc, ScriptedHost::kOnce},
                                           Fault{"Open", HostCall::kOpen, ScriptedHost::kOnce},
                                           Fault{"Read", HostCall::kRead, ScriptedHost::kOnce},
                                           Fault{"ReadForGood", HostCall::kRead, ScriptedHost::kForGood},
                                           Fault{"Write", HostCall::kWrite, ScriptedHost::kOnce},
                                           Fault{"WriteForGood", HostCall::kWrite, ScriptedHost::kForGood},
                                           Fault{"Seek", HostCall::kSeek, ScriptedHost::kOnce},
                                           Fault{"Size", HostCall::kSize, ScriptedHost::kOnce},
                                           Fault{"DiskSpace", HostCall::kDiskSpace, ScriptedHost::kOnce},
                                           Fault{"MutexCreate", HostCall::kMutexCreate, ScriptedHost::kOnce}),
                         [](const auto& fault) { return std::string(fault.param.name); });

}  // namespace
}  // namespace zmv::test
