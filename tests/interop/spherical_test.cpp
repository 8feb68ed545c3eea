// What FFmpeg makes of the stereo and spherical boxes of recordings.
#include <gmock/gmock.h>

#include <string>

#include "tests/interop/libav.h"
#include "tests/support/sample_recording.h"

extern "C" {
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

namespace zmv::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string log_text;

// Keeps what libavformat complains about.
void KeepComplaints(void* context, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_WARNING) return;
  char line[1024];
  int prefix = 0;
  av_log_format_line2(context, level, format, arguments, line, sizeof line, &prefix);
  log_text += line;
}

// The side data of the only stream of a file.
class Projection {
 public:
  explicit Projection(const std::string& path) {
    log_text.clear();
    av_log_set_callback(&KeepComplaints);
    opened_ = avformat_open_input(&context_, path.c_str(), nullptr, nullptr) >= 0;
    av_log_set_callback(&av_log_default_callback);
  }
  ~Projection() { avformat_close_input(&context_); }
  Projection(const Projection&) = delete;
  Projection& operator=(const Projection&) = delete;

  bool opened() const { return opened_ && context_->nb_streams == 1; }
  const AVSphericalMapping* spherical() const {
    return reinterpret_cast<const AVSphericalMapping*>(SideData(AV_PKT_DATA_SPHERICAL));
  }
  const AVStereo3D* stereo() const { return reinterpret_cast<const AVStereo3D*>(SideData(AV_PKT_DATA_STEREO3D)); }

 private:
  const uint8_t* SideData(AVPacketSideDataType type) const {
    return av_stream_get_side_data(context_->streams[0], type, nullptr);
  }

  AVFormatContext* context_ = nullptr;
  bool opened_ = false;
};

class Spherical : public testing::Test {
 protected:
  static std::string Record(const SampleStream& video, uint32_t mode) {
    const std::string path = "interop_spherical.mp4";
    EXPECT_EQ(RecordSamples(path, {.video = &video, .projection = mode}), 0);
    return path;
  }
};

TEST_F(Spherical, EquirectangularModes_AreUnderstood) {
  const SampleStream video = LoadH264("drive_h264.h264");
  for (uint32_t mode : {3u, 7u}) {
    const Projection projection(Record(video, mode));
    ASSERT_TRUE(projection.opened()) << mode;
    EXPECT_THAT(log_text, IsEmpty());
    ASSERT_NE(projection.spherical(), nullptr) << mode;
    // Five words instead of four: had one of the bounds been misread, this would be a tile.
    EXPECT_EQ(projection.spherical()->projection, AV_SPHERICAL_EQUIRECTANGULAR);
    EXPECT_EQ(projection.spherical()->yaw, 0);
    EXPECT_EQ(projection.spherical()->pitch, 0);
    EXPECT_EQ(projection.spherical()->roll, 0);
    ASSERT_NE(projection.stereo(), nullptr);
    EXPECT_EQ(projection.stereo()->type, AV_STEREO3D_2D);
  }
}

TEST_F(Spherical, CircularMode_IsUnknownAndStillPlays) {
  const SampleStream video = LoadH264("drive_h264.h264");
  const std::string path = Record(video, 1);
  const Projection projection(path);
  ASSERT_TRUE(projection.opened());
  EXPECT_THAT(log_text, HasSubstr("Unknown projection type: circ"));
  EXPECT_EQ(projection.spherical(), nullptr);
  EXPECT_EQ(projection.stereo(), nullptr);
  bool error = true;
  EXPECT_EQ(DecodeWithLibav(path, AVMEDIA_TYPE_VIDEO, &error).size(), video.frames.size());
  EXPECT_FALSE(error);
}

TEST_F(Spherical, HevcAndPlainVideo_HaveNone) {
  const Projection hevc(Record(LoadHevc("drive_hevc.hevc"), 7));
  ASSERT_TRUE(hevc.opened());
  EXPECT_EQ(hevc.spherical(), nullptr);
  EXPECT_EQ(hevc.stereo(), nullptr);
  const Projection plain(Record(LoadH264("drive_h264.h264"), 0));
  ASSERT_TRUE(plain.opened());
  EXPECT_EQ(plain.spherical(), nullptr);
}

}  // namespace
}  // namespace zmv::test
