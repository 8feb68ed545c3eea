#include "tools/zmv/frame_merger.h"

#include <gtest/gtest.h>

#include <string>

namespace zmv::tool {
namespace {

// Hands out prepared frames in the order of the list.
class ListSource : public MediaSource {
 public:
  explicit ListSource(std::vector<MediaFrame> frames) : frames_(std::move(frames)) {}
  const std::vector<StreamDescription>& streams() const override { return streams_; }
  int64_t duration_us() const override { return 0; }
  double progress() const override { return 0; }
  bool Read(MediaFrame& frame) override {
    if (at_ == frames_.size()) return false;
    frame = frames_[at_++];
    return true;
  }
  size_t read() const { return at_; }

 private:
  std::vector<StreamDescription> streams_;
  std::vector<MediaFrame> frames_;
  size_t at_ = 0;
};

MediaFrame Frame(uint32_t stream, int64_t time_us, size_t size = 1) { return {0, stream, time_us, false, Bytes(size)}; }

std::string Order(FrameMerger& merger) {
  std::string order;
  MediaFrame frame;
  while (merger.Next(frame)) {
    order += (order.empty() ? "" : " ") + std::string(frame.media == ZMV_MEDIA_VIDEO ? "v" : "a") +
             std::to_string(frame.stream) + "@" + std::to_string(frame.time_us);
  }
  return order;
}

TEST(FrameMerger, TwoInputs_ComeInTheOrderOfTimeVideoFirst) {
  ListSource audio({Frame(0, 0), Frame(0, 10), Frame(0, 20)});
  ListSource video({Frame(0, 0), Frame(0, 20), Frame(0, 25)});
  FrameMerger merger({{&audio, 0, ZMV_MEDIA_AUDIO, 0}, {&video, 0, ZMV_MEDIA_VIDEO, 0}});
  EXPECT_EQ(Order(merger), "v0@0 a0@0 a0@10 v0@20 a0@20 v0@25");
  EXPECT_EQ(merger.last_us(), 25);
}

TEST(FrameMerger, OneInputWithBadlyMixedStreams_IsSorted) {
  ListSource source({Frame(1, 0), Frame(1, 10), Frame(1, 20), Frame(0, 0), Frame(0, 15)});
  FrameMerger merger({{&source, 0, ZMV_MEDIA_VIDEO, 0}, {&source, 1, ZMV_MEDIA_AUDIO, 0}});
  EXPECT_EQ(Order(merger), "v0@0 a0@0 a0@10 v0@15 a0@20");
}

TEST(FrameMerger, StreamsThatAreNotRecorded_AreDropped) {
  ListSource source({Frame(0, 0), Frame(1, 5), Frame(0, 10)});
  FrameMerger merger({{&source, 0, ZMV_MEDIA_VIDEO, 3}});
  EXPECT_EQ(Order(merger), "v3@0 v3@10");
}

TEST(FrameMerger, StreamThatFallsSilent_IsNotWaitedForWithoutEnd) {
  constexpr size_t kLarge = size_t{8} << 20;
  std::vector<MediaFrame> frames = {Frame(1, 0)};
  for (int i = 0; i < 40; ++i) frames.push_back(Frame(0, i, kLarge));
  ListSource source(std::move(frames));
  FrameMerger merger({{&source, 0, ZMV_MEDIA_VIDEO, 0}, {&source, 1, ZMV_MEDIA_AUDIO, 0}});
  MediaFrame frame;
  ASSERT_TRUE(merger.Next(frame));  // video 0
  ASSERT_TRUE(merger.Next(frame));  // audio 0, the only one
  ASSERT_TRUE(merger.Next(frame));  // video 1: the audio is given up on for now
  EXPECT_LT(source.read(), 15u);
}

TEST(FrameMerger, NothingToRead_EndsAtOnce) {
  ListSource source({});
  FrameMerger merger({{&source, 0, ZMV_MEDIA_VIDEO, 0}});
  MediaFrame frame;
  EXPECT_FALSE(merger.Next(frame));
}

}  // namespace
}  // namespace zmv::tool
