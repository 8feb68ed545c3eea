// What the façades promise several threads: one writer written to, one reader read from and moved, by all of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

#include "facade/zmvstream_reader_records.h"
#include "facade/zmvstream_writer_records.h"
#include "platform/zmv_platform.h"
#include "tests/facade/small_recording.h"

namespace zmv::test {
namespace {

constexpr char kPath[] = "drive.mp4";
constexpr int kThreads = 4;

template <typename Action>
void InThreads(Action action) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(action, static_cast<uint32_t>(i));
  for (std::thread& thread : threads) thread.join();
}

class FacadeThreads : public ::testing::Test {
 protected:
  FacadeThreads() {
    host_.trace_level = 0;
    host_.record = false;
  }
  ScriptedHost host_;
};

TEST_F(FacadeThreads, Writer_FramesOfEveryThread_AreAllInTheFile) {
  constexpr uint32_t kFrames = 200;
  const ZMVWriterParam param = SmallParam(kPath);
  ZMVFileInfo info = SmallInfo();
  ZMVWriter* writer = nullptr;
  ASSERT_EQ(ZMVWriterOpen(&writer, &param), 0);
  ASSERT_EQ(ZMVWriterSetInfo(writer, &info, 0), 0);
  std::atomic<int> failures{0};
  InThreads([&](uint32_t thread) {
    const uint32_t media = thread % 2 == 0 ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
    for (uint32_t i = 0; i < kFrames; ++i) failures += WriteSmallFrame(writer, media, thread * kFrames + i) != 0;
  });
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(writer->m_dwVideoFrames, 2 * kFrames);
  ZMVWriterClose(writer);

  ZMVReaderParam source{kPath, nullptr, 0};
  ZMVReader* reader = nullptr;
  ZMVFileInfo found{};
  ASSERT_EQ(ZMVReaderOpen(&reader, &source), 0);
  ASSERT_EQ(ZMVReaderGetInfo(reader, &found), 0);
  for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
    std::map<ByteVector, int> left;
    for (uint32_t thread = media - 1; thread < kThreads; thread += 2) {
      for (uint32_t i = 0; i < kFrames; ++i) ++left[SmallPayload(media, thread * kFrames + i)];
    }
    ByteVector buffer(4096);
    for (uint32_t i = 0; i < 2 * kFrames; ++i) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      ASSERT_EQ(ZMVReaderReadFrame(reader, &frame), 0) << media << " " << i;
      --left[ByteVector(buffer.begin(), buffer.begin() + frame.dwSize)];
    }
    EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](const auto& entry) { return entry.second == 0; })) << media;
  }
  ZMVReaderClose(reader);
}

TEST_F(FacadeThreads, Writer_FrameLimit_IsExactAcrossThreads) {
  constexpr uint32_t kLimit = 50;
  ZMVWriterParam param = SmallParam(kPath);
  param.dwMaxFrames = kLimit;
  ZMVFileInfo info = SmallInfo();
  ZMVWriter* writer = nullptr;
  ASSERT_EQ(ZMVWriterOpen(&writer, &param), 0);
  ASSERT_EQ(ZMVWriterSetInfo(writer, &info, 0), 0);
  std::atomic<uint32_t> written{0};
  InThreads([&](uint32_t thread) {
    for (uint32_t i = 0; i < kLimit; ++i) written += WriteSmallFrame(writer, ZMV_MEDIA_VIDEO, thread * kLimit + i) == 0;
  });
  EXPECT_EQ(written, kLimit + 1);
  ZMVWriterClose(writer);
}

TEST_F(FacadeThreads, Reader_FramesAreHandedOutOnceEach) {
  ASSERT_EQ(RecordSmall(kPath), 0);
  ZMVReaderParam param{kPath, nullptr, 0};
  ZMVReader* reader = nullptr;
  ZMVFileInfo info{};
  ASSERT_EQ(ZMVReaderOpen(&reader, &param), 0);
  ASSERT_EQ(ZMVReaderGetInfo(reader, &info), 0);
  std::atomic<uint32_t> frames{0};
  std::atomic<uint32_t> ends{0};
  InThreads([&](uint32_t thread) {
    ByteVector buffer(4096);
    ZMVFrame frame{};
    frame.dwMediaType = thread % 2 == 0 ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    int32_t result;
    while ((result = ZMVReaderReadFrame(reader, &frame)) == 0) ++frames;
    ends += Code(result) == ZMV_E_END;
  });
  EXPECT_EQ(frames, 2 * kSmallFrames);
  EXPECT_EQ(ends, static_cast<uint32_t>(kThreads));
  ZMVReaderClose(reader);
}

// A container that keeps plain counts, which only the façade's mutex protects.
struct PlainCounts {
  uint32_t calls = 0;
  uint32_t position = 0;
};

int32_t Touch(void* reader) {
  auto& counts = *static_cast<PlainCounts*>(reader);
  ++counts.calls;
  ++counts.position;
  return 0;
}

TEST_F(FacadeThreads, Reader_ReadsSeeksAndStatus_ComeOneAtATime) {
  constexpr uint32_t kRounds = 300;
  PlainCounts counts;
  ZMVReader reader{};
  reader.hReader = &counts;
  reader.m_hMutex = ZMV_MutexCreate();
  reader.operations.GetInfo = [](void* handle, ZMVFileInfo* info, uint32_t) {
    info->dwAudioCount = info->dwVideoCount = info->dwTextCount = 1;
    return Touch(handle);
  };
  reader.operations.ReadFrame = [](void* handle, ZMVFrame* frame) {
    frame->llTimeStamp = static_cast<PlainCounts*>(handle)->position;
    return Touch(handle);
  };
  reader.operations.ReadFrameInfo = [](void* handle, ZMVFrame*) { return Touch(handle); };
  reader.operations.ReadThumb = [](void* handle, ZMVFrame*) { return Touch(handle); };
  const auto seek = [](void* handle, uint32_t* time, uint8_t) {
    static_cast<PlainCounts*>(handle)->position = *time;
    return static_cast<uint8_t>(Touch(handle) == 0);
  };
  reader.operations.SeekByTime = seek;
  reader.operations.SeekByKeyFrame = seek;
  reader.operations.SeekBySubtitle = seek;
  reader.operations.SeekByMedia = [](void* handle, uint32_t*, uint32_t) {
    return static_cast<uint8_t>(Touch(handle) == 0);
  };
  reader.operations.SetStatus = [](void* handle, uint32_t) { return Touch(handle); };
  // An index being built beside all of it.
  static std::atomic<uint32_t> steps;
  steps = 0;
  reader.operations.MakeIndex = [](void*, uint32_t) { return ++steps < 1000 ? 0 : -1; };
  ZMVFileInfo first{};
  ASSERT_EQ(ZMVReaderGetInfo(&reader, &first), 0);

  InThreads([&](uint32_t thread) {
    for (uint32_t i = 0; i < kRounds; ++i) {
      ZMVFileInfo info{};
      ZMVFrame frame{};
      frame.dwMediaType = ZMV_MEDIA_VIDEO + thread % 3;
      uint32_t time = i;
      ZMVReaderGetInfo(&reader, &info);
      ZMVReaderReadFrame(&reader, &frame);
      ZMVReaderReadFrameInfo(&reader, &frame);
      frame.dwMediaType = ZMV_MEDIA_VIDEO;
      ReaderReadThumb(&reader, &frame);
      ZMVReaderSeekByTime(&reader, &time, 0);
      ZMVReaderSeekByKeyFrame(&reader, &time, 0);
      ZMVReaderSeekBySubtitle(&reader, &time, 0);
      ZMVReaderSeekByMedia(&reader, &time, ZMV_MEDIA_AUDIO);
      ZMVReaderSetStatus(&reader, 0);
    }
  });
  EXPECT_EQ(counts.calls, 1 + 9 * kRounds * kThreads);
  uint32_t exit_value = 1;
  __atomic_store_n(&reader.m_bStop, uint8_t{1}, __ATOMIC_RELAXED);
  EXPECT_EQ(ZMV_ThreadDelete(reader.m_hThread, &exit_value), 0);
  EXPECT_EQ(exit_value, 0u);
  EXPECT_EQ(reader.m_bIndexDone, 1);
  ZMV_MutexDestroy(reader.m_hMutex);
}

}  // namespace
}  // namespace zmv::test
