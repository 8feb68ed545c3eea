// Recordings of other programs, as FFmpeg makes them: what `zmv remux` and `zmv info` say of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tools/zmv/annexb.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr const char* kPicture = "-f lavfi -i testsrc2=size=160x120:rate=30:duration=1 ";
constexpr const char* kSound = "-f lavfi -i sine=sample_rate=44100:duration=1 ";

class CliForeign : public testing::Test {
 protected:
  void Make(const std::string& arguments) {
    std::string said;
    ASSERT_EQ(
        Program(folder_, "ffmpeg -hide_banner -nostdin -loglevel error -y " + arguments + " " + Quoted(path_), said), 0)
        << said;
  }

  void ExpectRefused(const std::string& reason) {
    const CliResult result = Zmv(folder_, {"remux", path_, "-o", copy_});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr(reason));
    EXPECT_FALSE(std::filesystem::exists(copy_));
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "foreign.mp4";
  const std::string copy_ = folder_ / "copy.mp4";
};

TEST_F(CliForeign, RemuxOfFragments_IsRefusedAndImportIsNot) {
  for (const std::string flags : {"frag_keyframe+empty_moov", "frag_keyframe+empty_moov+default_base_moof"}) {
    Make(std::string(kPicture) + kSound + "-c:v libx264 -bf 0 -g 15 -c:a aac -movflags " + flags);
    ExpectRefused("fragments; `zmv import`");
    const CliResult imported = Zmv(folder_, {"import", path_, "-o", folder_ / "imported.mp4", "--force"});
    EXPECT_EQ(imported.code, 0) << imported.err;
  }
  EXPECT_THAT(Zmv(folder_, {"info", path_}).out, HasSubstr("frames in fragments"));
  EXPECT_THAT(Zmv(folder_, {"info", folder_ / "imported.mp4"}).out, testing::Not(HasSubstr("frames in fragments")));
}

TEST_F(CliForeign, RemuxOfSeveralSoundFramesInAChunk_IsRefused) {
  Make(std::string(kPicture) + kSound + "-c:v libx264 -bf 0 -c:a aac");
  ExpectRefused("cannot be told apart; `zmv import`");
  Make(std::string(kSound) + "-c:a libmp3lame");
  ExpectRefused("cannot be told apart; `zmv import`");
}

TEST_F(CliForeign, RemuxOfReorderedPictures_IsRefused) {
  Make(std::string(kPicture) + "-c:v libx264 -bf 3");
  ExpectRefused("B frames");
}

TEST_F(CliForeign, RemuxOfPicturesInSlices_IsRefused) {
  Make(std::string(kPicture) + "-c:v libx264 -bf 0 -x264-params slices=2:sliced-threads=0");
  ExpectRefused("several slices");
}

// The encoder's comment stands in the sample of the first picture.
TEST_F(CliForeign, RemuxOfPicturesWithComments_KeepsThePicturesAlone) {
  struct Case {
    const char* encoder;
    VideoCodec codec;
  };
  for (const Case& c : {Case{"-c:v libx264 -bf 0", VideoCodec::kH264},
                        Case{"-c:v libx265 -x265-params bframes=0:aud=1:log-level=error", VideoCodec::kHevc}}) {
    Make(std::string(kPicture) + c.encoder);
    const CliResult result = Zmv(folder_, {"remux", path_, "-o", copy_, "--force"});
    ASSERT_EQ(result.code, 0) << result.err;
    Playback source(path_);
    Playback copy(copy_);
    ZMVFrame before;
    ZMVFrame after;
    size_t units = 0;
    size_t pictures = 0;
    while (source.Read(ZMV_MEDIA_VIDEO, 0, before)) {
      ASSERT_TRUE(copy.Read(ZMV_MEDIA_VIDEO, 0, after)) << pictures;
      const std::vector<ByteView> old_units = SplitNals(Playback::Payload(before));
      const std::vector<ByteView> new_units = SplitNals(Playback::Payload(after));
      ASSERT_EQ(new_units.size(), 1u) << pictures;
      EXPECT_TRUE(
          std::equal(new_units[0].begin(), new_units[0].end(), old_units.back().begin(), old_units.back().end()));
      EXPECT_EQ(after.dwKeyFrame, before.dwKeyFrame);
      units += old_units.size();
      ++pictures;
    }
    EXPECT_EQ(pictures, 30u);
    EXPECT_GT(units, pictures);
  }
}

TEST_F(CliForeign, UnknownCodecs_AreCalledUnknown) {
  Make(std::string(kPicture) + kSound + "-c:v mjpeg -c:a ac3 -f mov");
  const json streams = json::parse(Zmv(folder_, {"info", path_, "--json"}).out)["streams"];
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0]["codec"], "unknown");
  EXPECT_EQ(streams[1]["codec"], "unknown");
  ExpectRefused("codec unknown cannot be recorded");
}

}  // namespace
}  // namespace zmv::tool
