// Whole files through the reader's own entry points: what the headers and the index say is what frames and seeks give.
#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

// Bytes that no scanner takes for a code.
ByteVector Frame(uint32_t number, uint32_t size) {
  ByteVector bytes(size);
  for (uint32_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(0x80 + (number * 31 + i * 7) % 0x7F);
  return bytes;
}

struct FrameRead {
  ByteVector data;
  uint64_t time;
  uint32_t duration;
  bool operator==(const FrameRead&) const = default;
};

class AviWholeFiles : public AviReaderTest {
 protected:
  static std::vector<AviChunk> Chunks(uint32_t count, uint32_t first = 0) {
    std::vector<AviChunk> chunks;
    for (uint32_t i = first; i < first + count; ++i) {
      chunks.push_back({"00dc", Frame(i, 40 + i * 17 % 100), i % 5 == 0 ? 0x10u : 0u});
      chunks.push_back({"01wb", Frame(i + 500, 20 + i * 5 % 30)});
    }
    return chunks;
  }
  static AviSpec Recording(uint32_t count = 20) {
    AviSpec file;
    file.streams = {VideoStream(), AacStream()};
    file.chunks = Chunks(count);
    return file;
  }
  static std::vector<ByteVector> DataOf(const std::vector<AviChunk>& chunks, const std::string& code) {
    std::vector<ByteVector> data;
    for (const AviChunk& chunk : chunks) {
      if (chunk.code == code) data.push_back(chunk.data);
    }
    return data;
  }

  uint32_t ReadOne(uint32_t media, FrameRead* read) {
    ByteVector buffer(4096);
    ZMVFrame frame{};
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    frame.dwMediaType = media;
    const uint32_t code = Code(AVIReaderReadFrame(reader_, &frame));
    if (code == 0) *read = {Front(buffer, frame.dwSize), frame.llTimeStamp, frame.dwDuration};
    return code;
  }
  std::vector<FrameRead> ReadAll(uint32_t media) {
    std::vector<FrameRead> frames;
    FrameRead read;
    uint32_t code = 0;
    while ((code = ReadOne(media, &read)) == 0) frames.push_back(read);
    EXPECT_EQ(code, ZMV_E_END);
    return frames;
  }
  static std::vector<ByteVector> Payloads(const std::vector<FrameRead>& frames) {
    std::vector<ByteVector> data;
    for (const FrameRead& frame : frames) data.push_back(frame.data);
    return data;
  }
};

TEST_F(AviWholeFiles, ScannedFile_GivesTheFramesOfTheIndexedOne) {
  const AviSpec file = Recording();
  for (const ByteVector& prefix : {ByteVector{}, Join({Zeros(92), Le32(96)})}) {
    const ByteVector bytes = Join({prefix, BuildAvi(file)});
    ASSERT_EQ(Describe(bytes), 0u);
    const std::vector<FrameRead> video = ReadAll(ZMV_MEDIA_VIDEO);
    const std::vector<FrameRead> audio = ReadAll(ZMV_MEDIA_AUDIO);
    EXPECT_EQ(Payloads(video), DataOf(file.chunks, "00dc"));
    EXPECT_EQ(Payloads(audio), DataOf(file.chunks, "01wb"));
    Load(bytes);
    ASSERT_EQ(Code(AVIReaderGetInfo2(reader_, info_.get())), 0u);
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), video);
    EXPECT_EQ(ReadAll(ZMV_MEDIA_AUDIO), audio);
  }
}

TEST_F(AviWholeFiles, ExtendedFile_IsReadAcrossItsForms) {
  AviSpec file;
  file.streams = {VideoStream(), AacStream()};
  const std::vector<std::vector<AviChunk>> parts = {Chunks(7), Chunks(7, 7), Chunks(6, 14)};
  const std::vector<AviChunk> all = Chunks(20);
  const ByteVector bytes = BuildOpenDml(file, parts);
  ASSERT_EQ(Describe(bytes), 0u);
  EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_VIDEO)), DataOf(all, "00dc"));
  EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_AUDIO)), DataOf(all, "01wb"));
  uint32_t time = 400;
  EXPECT_EQ(AVIReaderSeekByTime(reader_, &time, 1), 1);
  FrameRead read;
  ASSERT_EQ(ReadOne(ZMV_MEDIA_VIDEO, &read), 0u);
  EXPECT_EQ(read.data, all[2 * 10].data);
  EXPECT_EQ(read.time, 400u);
  Load(bytes);
  ASSERT_EQ(Code(AVIReaderGetInfo2(reader_, info_.get())), 0u);
  EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_VIDEO)), DataOf(all, "00dc"));
  EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_AUDIO)), DataOf(all, "01wb"));
}

TEST_F(AviWholeFiles, SecondDescription_StartsReadingOver) {
  ASSERT_EQ(Describe(Recording()), 0u);
  const std::vector<FrameRead> video = ReadAll(ZMV_MEDIA_VIDEO);
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), video);
}

// A recording whose power was cut: list sizes are those of an open file, and there is no index.
TEST_F(AviWholeFiles, CutRecordings_GiveTheirCompleteFrames) {
  AviSpec file = Recording(6);
  file.has_index = false;
  ByteVector whole = BuildAvi(file);
  ASSERT_EQ(Describe(whole), 0u);
  const uint32_t first = reader_->m_dwDataPos;
  for (uint32_t i = 0; i < 4; ++i) whole[first - 8 + i] = 0;  // the size of the "movi" list
  uint32_t boundary = first;
  std::vector<ByteVector> video;
  std::vector<ByteVector> audio;
  for (const AviChunk& chunk : file.chunks) {
    const uint32_t size = static_cast<uint32_t>(chunk.data.size());
    boundary += 8 + size + size % 2;
    for (int32_t off : {-1, 0, 1}) {
      if (boundary + static_cast<uint32_t>(off) > whole.size()) continue;
      std::vector<ByteVector> seen = chunk.code == "00dc" ? video : audio;
      if (off >= 0 || size % 2 != 0) seen.push_back(chunk.data);
      ASSERT_EQ(Describe(Front(whole, boundary + static_cast<uint32_t>(off))), 0u);
      EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_VIDEO)), chunk.code == "00dc" ? seen : video) << boundary << " " << off;
      EXPECT_EQ(Payloads(ReadAll(ZMV_MEDIA_AUDIO)), chunk.code == "00dc" ? audio : seen) << boundary << " " << off;
    }
    (chunk.code == "00dc" ? video : audio).push_back(chunk.data);
  }
}

TEST_F(AviWholeFiles, Seeks_NeedAnIndex) {
  Load(BuildAvi(Recording()));
  ASSERT_EQ(Code(AVIReaderGetInfo2(reader_, info_.get())), 0u);
  uint32_t time = 0;
  EXPECT_EQ(AVIReaderSeekByTime(reader_, &time, 0), 0);
  EXPECT_EQ(AVIReaderSeekByKeyFrame(reader_, &time, 0), 0);
  EXPECT_EQ(AVIReaderSeekByMedia(reader_, &time, ZMV_MEDIA_VIDEO), 0);
}

// Every read and every allocation of a whole playback fails, once and for good: no wrong frame comes, and nothing is
// left behind.
TEST_F(AviWholeFiles, EveryFailure_IsReportedAndLeavesNothing) {
  const AviSpec file = Recording(8);
  const ByteVector bytes = BuildAvi(file);
  const std::vector<ByteVector> frames = DataOf(file.chunks, "00dc");
  host_.record = false;
  for (HostCall call : {HostCall::kRead, HostCall::kMalloc, HostCall::kOpen, HostCall::kSeek}) {
    for (auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
      for (uint64_t nth = 1, calls = nth; calls >= nth; ++nth) {
        const uint64_t before = host_.Count(call);
        host_.Fail(call, nth, duration);
        if (TryOpen(bytes) == 0 && GetInfo() == 0) {
          size_t next = 0;
          FrameRead read;
          for (int i = 0; i < 20; ++i) {
            uint32_t time = 200;
            if (i == 3 && AVIReaderSeekByTime(reader_, &time, 1) != 0) next = 5;
            if (ReadOne(ZMV_MEDIA_VIDEO, &read) != 0) continue;
            while (next < frames.size() && frames[next] != read.data) ++next;
            ASSERT_LT(next, frames.size());
            ++next;
          }
        }
        calls = host_.Count(call) - before;
        host_.ClearFailures();
        Close();
        ASSERT_EQ(host_.LiveBlocks(), 0u);
      }
    }
  }
}

}  // namespace
}  // namespace zmv::test
