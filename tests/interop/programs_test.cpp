// What FFmpeg's programs and MediaInfo say about recordings of the sample streams.
#include <gmock/gmock.h>
#include <stdio.h>

#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// Standard output and error of a command; the exit code in `*code`.
std::string RunCommand(const std::string& command, int* code) {
  std::string output;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  char buffer[4096];
  size_t count;
  while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, count);
  *code = pclose(pipe);
  return output;
}

class ProgramsOn : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    bool hevc = GetParam();
    video_ = hevc ? LoadHevc("drive_hevc.hevc") : LoadH264("drive_h264.h264");
    audio_ = LoadAac("drive_aac.aac");
    path_ = hevc ? "interop_programs_hevc.mp4" : "interop_programs_h264.mp4";
    ASSERT_EQ(RecordSamples(path_, {.video = &video_, .audio = &audio_, .expire_ms = 6000}), 0);
  }
  SampleStream video_, audio_;
  std::string path_;
};

TEST_P(ProgramsOn, Ffprobe_ReportsNoErrorAndBothStreams) {
  int code = -1;
  std::string errors = RunCommand("ffprobe -v error " + path_, &code);
  EXPECT_EQ(code, 0);
  EXPECT_THAT(errors, IsEmpty());
  std::string streams = RunCommand(
      "ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 " + path_, &code);
  EXPECT_THAT(streams, HasSubstr((GetParam() ? "hevc," : "h264,") + std::to_string(video_.frames.size())));
  EXPECT_THAT(streams, HasSubstr("aac," + std::to_string(audio_.frames.size())));
}

TEST_P(ProgramsOn, Ffmpeg_DecodesEverythingWithoutAComplaint) {
  int code = -1;
  EXPECT_THAT(RunCommand("ffmpeg -v warning -xerror -nostdin -i " + path_ + " -map 0:v -map 0:a -f null -", &code),
              IsEmpty());
  EXPECT_EQ(code, 0);
}

TEST_P(ProgramsOn, MediaInfo_ShowsBothStreams) {
  int code = -1;
  std::string video = RunCommand("mediainfo '--Inform=Video;%Format% %Width%x%Height% %FrameCount%' " + path_, &code);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(video,
            std::string(GetParam() ? "HEVC" : "AVC") + " 640x360 " + std::to_string(video_.frames.size()) + "\n");
  std::string audio = RunCommand("mediainfo '--Inform=Audio;%Format% %SamplingRate% %Channels%' " + path_, &code);
  EXPECT_EQ(audio, "AAC 48000 2\n");
}

INSTANTIATE_TEST_SUITE_P(Codecs, ProgramsOn, testing::Bool(),
                         [](const auto& parameter) { return std::string(parameter.param ? "Hevc" : "H264"); });

}  // namespace
}  // namespace zmv::test
