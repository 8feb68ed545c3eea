// A recording in which one write fails: every frame that the writer took comes back, through the reader, bit for bit.
#include <map>

#include "mp4/mp4_writer.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

constexpr uint32_t kPairs = 25;

class WriterReadback : public ReaderTest {
 protected:
  struct Sent {
    ByteVector data;
    int32_t result;
  };

  // A video and a text track that change places with every frame, each with room for ten entries in every table.
  void OpenRecording(uint8_t interleave) {
    const ByteVector sets =
        Join({StartCoded(Bytes({0x67, 100, 0, 0x1E, 0xAC, 0xD9})), StartCoded(Bytes({0x68, 0xEE, 0x3C, 0x80}))});
    *info_ = {};
    info_->m_dwFileType = 1;
    info_->dwVideoCount = 1;
    ZMVVideoInfo& video = info_->m_Video[0];
    video.dwFourCC = FourCC("H264");
    video.dwWidth = 640;
    video.dwHeight = 360;
    video.dwFrameRate = 1000;
    video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
    std::copy(sets.begin(), sets.end(), video.abExtraData);
    info_->dwTextCount = 1;
    info_->m_Text[0].dwFourCC = FourCC("GGPS");
    info_->m_Text[0].dwRate = 1000;
    srand(1);
    ASSERT_EQ(ZMVStreamBuf_Open(&out_, "a.mp4", 0, ZMV_STREAM_WRITE), 0);
    ASSERT_EQ(MP4WriterOpen(&writer_, out_, interleave, 1), 0);
    ASSERT_EQ(MP4WriterSetInfo(writer_, info_.get(), 0), 0);
  }
  void Send(uint32_t media, ByteVector data, uint32_t duration) {
    ZMVFrame frame = {};
    frame.pData = data.data();
    frame.dwSize = static_cast<uint32_t>(data.size());
    frame.llTimeStamp = sent_[media].size();
    frame.dwDuration = duration;
    frame.dwMediaType = media;
    frame.dwKeyFrame = ZMV_KEY_FRAME;
    const int32_t result = MP4WriterWriteFrame(writer_, &frame);
    sent_[media].push_back({std::move(data), result});
  }
  // Sizes and durations that differ fill stsz and stts.
  void SendAll() {
    sent_.clear();
    for (uint32_t i = 0; i < kPairs; ++i) {
      Send(ZMV_MEDIA_VIDEO, StartCoded(Unit(0x65, 40 + i)), 30000 + 1000 * i);
      Send(ZMV_MEDIA_TEXT, Unit(static_cast<uint8_t>(i), 20 + i), 1000 + i);
    }
  }
  void CloseRecording() {
    MP4WriterClose(writer_);
    ZMVStreamBuf_Close(out_);
    host_.ClearFailures();
  }

  // How many frames of a track were refused. Such a frame keeps its place in the tables and may hold anything.
  uint32_t CompareTrack(uint32_t media) {
    uint32_t refused = 0;
    const std::vector<Sent>& sent = sent_[media];
    for (const Sent& frame : sent) {
      const ReadResult read = Read(media);
      if (Failed(frame.result)) {
        ++refused;
        continue;
      }
      EXPECT_EQ(read.code, 0u) << media << " " << &frame - sent.data();
      EXPECT_EQ(Difference(read.data, frame.data), "") << media << " " << &frame - sent.data();
    }
    EXPECT_EQ(Read(media).code, ZMV_E_END);
    return refused;
  }

  ZMVStreamBuf* out_ = nullptr;
  MP4WriterHandle* writer_ = nullptr;
  std::map<uint32_t, std::vector<Sent>> sent_;
};

TEST_F(WriterReadback, OneFailedWrite_CostsOneFrameAtMost) {
  host_.record = false;
  host_.trace_level = 0;
  for (const uint8_t interleave : {uint8_t{0}, uint8_t{1}}) {
    OpenRecording(interleave);
    const uint64_t before = host_.Count(HostCall::kWrite);
    SendAll();
    const uint64_t writes = host_.Count(HostCall::kWrite) - before;
    CloseRecording();
    ASSERT_EQ(Describe(host_.File("a.mp4")), 0u);
    ASSERT_EQ(CompareTrack(ZMV_MEDIA_VIDEO) + CompareTrack(ZMV_MEDIA_TEXT), 0u);
    Close();
    uint32_t refusals = 0;
    for (uint64_t nth = 1; nth <= writes; ++nth) {
      SCOPED_TRACE(testing::Message() << "interleave " << int{interleave} << " write " << nth);
      OpenRecording(interleave);
      host_.Fail(HostCall::kWrite, nth);
      SendAll();
      CloseRecording();
      ASSERT_EQ(Describe(host_.File("a.mp4")), 0u);
      const uint32_t refused = CompareTrack(ZMV_MEDIA_VIDEO) + CompareTrack(ZMV_MEDIA_TEXT);
      EXPECT_LE(refused, 1u);
      refusals += refused;
      Close();
      if (HasFailure()) return;
    }
    EXPECT_GE(refusals, 2 * kPairs);  // each payload, and the spilled chunk offsets
  }
}

}  // namespace
}  // namespace zmv::test
