// Recordings whose power was cut: an AVI of the samples, cut at every chunk of its media and one byte to either side,
// is read by scanning. Every frame that is whole comes out, and nothing else.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "facade/zmvstream_reader.h"
#include "tests/interop/avi_samples.h"

namespace zmv::test {
namespace {

uint32_t Little(const std::vector<uint8_t>& bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16) |
         static_cast<uint32_t>(bytes[at + 3]) << 24;
}

class CutAvi : public testing::Test {
 protected:
  struct Chunk {
    size_t position;  // of its header
    size_t end;       // of its payload
    uint32_t media;
  };

  void SetUp() override {
    video_ = LoadH264("drive_h264.h264");
    PutSetsInBand(video_);
    audio_ = LoadAac("drive_aac.aac");
    video_.frames.resize(45);
    audio_.frames.resize(70);
    ASSERT_EQ(RecordAvi("interop_avi_cut_whole.avi", {.video = &video_, .audio = &audio_}), 0);
    file_ = ReadWholeFile("interop_avi_cut_whole.avi");
    const char tag[] = {'m', 'o', 'v', 'i'};
    const auto movi = std::search(file_.begin(), file_.end(), std::begin(tag), std::end(tag));
    ASSERT_NE(movi, file_.end());
    const auto at = static_cast<size_t>(movi - file_.begin());
    const size_t end = at + Little(file_, at - 4);
    for (size_t chunk = at + 4; chunk < end;) {
      const size_t size = Little(file_, chunk + 4);
      chunks_.push_back({chunk, chunk + 8 + size, file_[chunk + 2] == 'd' ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO});
      chunk += 8 + size + size % 2;
    }
    ASSERT_EQ(chunks_.size(), video_.frames.size() + audio_.frames.size());
    // Sizes are filled in at the end, so a recording that was cut has none.
    std::fill_n(file_.begin() + 4, 4, 0);
    std::fill_n(file_.begin() + static_cast<std::ptrdiff_t>(at) - 4, 4, 0);
  }

  void Cut(size_t size) {
    path_ = "interop_avi_cut.avi";
    size_ = size;
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(file_.data()), static_cast<std::streamsize>(size));
  }

  // The number of frames of a medium that come out; all must be those that went in.
  size_t Read(ZMVReader* reader, const SampleStream& source) {
    std::vector<uint8_t> buffer(1 << 17);
    for (size_t i = 0;; ++i) {
      ZMVFrame frame{};
      frame.dwMediaType = source.frames[0].media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      const auto code = static_cast<uint32_t>(ZMVReaderReadFrame(reader, &frame));
      if (code != 0) {
        // A file that ends before its media begins has no place to read from.
        EXPECT_TRUE(code == ZMV_E_END || (code == ZMV_E_SEEK && size_ < chunks_[0].position)) << code;
        return i;
      }
      const bool same = i < source.frames.size() && frame.dwSize == source.frames[i].payload.size() &&
                        std::equal(buffer.begin(), buffer.begin() + frame.dwSize, source.frames[i].payload.begin());
      EXPECT_TRUE(same) << "frame " << i;
      if (!same) return i;
    }
  }

  void ExpectWholeFrames(size_t size) {
    SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
    Cut(size);
    ZMVReaderParam param{path_.c_str(), nullptr, 0};
    ZMVReader* reader = nullptr;
    ASSERT_EQ(ZMVReaderOpen(&reader, &param), 0);
    const auto info = std::make_unique<ZMVFileInfo>();
    ASSERT_EQ(ZMVReaderGetInfo(reader, info.get()), 0);
    EXPECT_EQ(info->dwVideoCount, 1u);
    EXPECT_EQ(info->dwAudioCount, 1u);
    for (const SampleStream* source : {&video_, &audio_}) {
      const auto whole = std::count_if(chunks_.begin(), chunks_.end(), [&](const Chunk& chunk) {
        return chunk.media == source->frames[0].media && chunk.end <= size;
      });
      EXPECT_EQ(Read(reader, *source), static_cast<size_t>(whole));
    }
    ZMVReaderClose(reader);
  }

  SampleStream video_, audio_;
  std::vector<uint8_t> file_;
  std::vector<Chunk> chunks_;
  std::string path_;
  size_t size_ = 0;
};

TEST_F(CutAvi, AtEveryChunkAndOneByteToEitherSide_GivesEveryWholeFrame) {
  for (const Chunk& chunk : chunks_) {
    for (const size_t edge : {chunk.position, chunk.end}) {
      for (const size_t size : {edge - 1, edge, edge + 1}) ExpectWholeFrames(size);
    }
  }
}

}  // namespace
}  // namespace zmv::test
