// What FFmpeg's programs say about recovered AVI recordings, and what recovery says about AVI files of FFmpeg's making.
#include <gmock/gmock.h>
#include <stdio.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "facade/zmvstream_writer.h"
#include "platform/zmv_host.h"
#include "recover/zmvrecover.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using testing::HasSubstr;
using testing::IsEmpty;

std::string RunCommand(const std::string& command, int* code) {
  std::string output;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  char buffer[4096];
  size_t count;
  while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, count);
  *code = pclose(pipe);
  return output;
}

class AviPrograms : public testing::Test {
 protected:
  AviPrograms() {
    std::string name = (fs::temp_directory_path() / "zmvrecover.XXXXXX").string();
    folder_ = mkdtemp(name.data());
    ZMVHost_SetTraceSink(0, nullptr, nullptr);
  }
  ~AviPrograms() override { fs::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  static void Store(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), ssize_t(bytes.size()));
  }

  // Parameter sets go in front of every key frame: the file has no other place for those of H.264.
  void Record(const std::string& path, bool hevc) {
    SampleStream video = hevc ? LoadHevc("drive_hevc.hevc") : LoadH264("drive_h264.h264");
    for (SampleFrame& frame : video.frames) {
      frame.duration /= 1000;
      if (frame.key) frame.payload.insert(frame.payload.begin(), video.parameters.begin(), video.parameters.end());
    }
    const SampleStream audio = LoadAac("drive_aac.aac");
    const SampleSet set = {.video = &video, .audio = &audio};
    ZMVWriterParam param{};
    param.dwFormat = ZMV_FORMAT_AVI;
    param.pszPath = path.c_str();
    ZMVWriter* writer = nullptr;
    ASSERT_EQ(ZMVWriterOpen(&writer, &param), 0);
    ZMVFileInfo info = DescribeSamples(set);
    ASSERT_EQ(ZMVWriterSetInfo(writer, &info, 0), 0);
    for (const SampleFrame* source : MergeSamples(set)) {
      ZMVFrame frame{};
      frame.pData = const_cast<uint8_t*>(source->payload.data());
      frame.dwSize = static_cast<uint32_t>(source->payload.size());
      frame.llTimeStamp = source->time_ms;
      frame.dwDuration = source->duration;
      frame.dwMediaType = source->media;
      frame.dwKeyFrame = source->key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
      ASSERT_EQ(ZMVWriterWrite(writer, &frame), 0);
    }
    ZMVWriterClose(writer);
  }

  // As it was before it was closed, up to `length`.
  static Bytes Cut(const std::string& path, size_t length) {
    Bytes bytes = ReadWholeFile(path);
    bytes.resize(length);
    constexpr std::string_view kMovi = "movi";
    const auto movi = std::search(bytes.begin(), bytes.end(), kMovi.begin(), kMovi.end());
    std::fill(movi - 4, movi, uint8_t{0});
    std::fill(bytes.begin() + 4, bytes.begin() + 8, uint8_t{0});
    return bytes;
  }

  void ExpectPlays(const std::string& path, bool hevc, const ZMVRecoverReport& report) {
    int code = -1;
    EXPECT_THAT(RunCommand("ffmpeg -v warning -xerror -nostdin -i " + path + " -map 0:v -map 0:a -f null -", &code),
                IsEmpty());
    EXPECT_EQ(code, 0);
    const std::string streams = RunCommand(
        "ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 " + path, &code);
    EXPECT_THAT(streams, HasSubstr((hevc ? "hevc," : "h264,") + std::to_string(report.Stream[0].dwFrames)));
    EXPECT_THAT(streams, HasSubstr("aac," + std::to_string(report.Stream[1].dwFrames)));
  }

  ZMVRecoverReport Probe(const std::string& path) {
    ZMVRecoverParam param = {};
    param.pszPath = path.c_str();
    ZMVRecoverReport report = {};
    EXPECT_EQ(ZMVRecoverProbe(&param, &report, nullptr), 0);
    return report;
  }

  fs::path folder_;
};

TEST_F(AviPrograms, RecoveredRecordings_PlayWithoutAComplaint) {
  for (const bool hevc : {false, true}) {
    Record(Path("whole.avi"), hevc);
    EXPECT_EQ(Probe(Path("whole.avi")).dwState, ZMV_RECOVER_WHOLE);
    const size_t size = fs::file_size(Path("whole.avi"));
    for (const size_t length : {size / 3, size / 2 + 1, size - size / 7}) {
      Store(Path("cut.avi"), Cut(Path("whole.avi"), length));
      fs::remove(Path("new.avi"));
      const std::string cut = Path("cut.avi");
      const std::string made = Path("new.avi");
      ZMVRecoverParam param = {};
      param.pszPath = cut.c_str();
      param.pszTarget = made.c_str();
      ZMVRecoverReport report = {};
      ASSERT_EQ(ZMVRecoverToFile(&param, &report), 0);
      EXPECT_EQ(report.dwState, ZMV_RECOVER_CUT);
      EXPECT_GT(report.dwFrames, 20u);
      ExpectPlays(made, hevc, report);
      ASSERT_EQ(ZMVRecoverInPlace(&param, &report), 0);
      ExpectPlays(cut, hevc, report);
      EXPECT_EQ(Probe(cut).dwState, ZMV_RECOVER_WHOLE);
      EXPECT_EQ(Probe(made).dwState, ZMV_RECOVER_WHOLE);
    }
  }
}

TEST_F(AviPrograms, FilesOfOthers_AreForeignAndStayAsTheyAre) {
  const std::string samples = SamplesFolder();
  const std::string commands[] = {
      "-i " + samples + "/drive_h264.h264 -c copy " + Path("h264.avi"),
      "-i " + samples + "/drive_h264.h264 -i " + samples + "/drive_aac.aac -c copy " + Path("both.avi"),
      "-f lavfi -i testsrc=duration=1:size=64x48:rate=10 -f lavfi -i sine=duration=1 -c:v mjpeg -c:a pcm_s16le " +
          Path("mjpeg.avi"),
      "-f lavfi -i sine=duration=1 -c:a pcm_s16le " + Path("sound.avi"),
      "-f lavfi -i sine=duration=1 -c:a pcm_s16le " + Path("sound.wav"),
  };
  for (const std::string& command : commands) {
    int code = -1;
    const std::string output = RunCommand("ffmpeg -v error -nostdin -y " + command, &code);
    ASSERT_EQ(code, 0) << output;
  }
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(folder_)) {
    const std::string path = entry.path().string();
    const Bytes whole = ReadWholeFile(path);
    for (const size_t length : {whole.size(), whole.size() / 2}) {
      const Bytes bytes(whole.begin(), whole.begin() + ssize_t(length));
      Store(path, bytes);
      EXPECT_EQ(Probe(path).dwState, ZMV_RECOVER_FOREIGN) << path;
      ZMVRecoverParam param = {};
      param.pszPath = path.c_str();
      EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverInPlace(&param, nullptr)), ZMV_E_UNSUPPORTED_FORMAT) << path;
      EXPECT_EQ(ReadWholeFile(path), bytes) << path;
    }
    ++files;
  }
  EXPECT_EQ(files, std::size(commands));
}

}  // namespace
}  // namespace zmv::test
