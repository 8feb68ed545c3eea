// Calls on different files from several threads at once, on the default host.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/zmv_host.h"
#include "recover/zmvrecover.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

namespace fs = std::filesystem;

class RecoverThreads : public testing::Test {
 protected:
  RecoverThreads() {
    std::string name = (fs::temp_directory_path() / "zmvrecover.XXXXXX").string();
    folder_ = mkdtemp(name.data());
    ZMVHost_SetTraceSink(0, nullptr, nullptr);
    const SampleStream video = LoadH264("drive_h264.h264");
    const SampleStream audio = LoadAac("drive_aac.aac");
    const SampleStream text = MakeGpsText(4, 5);
    EXPECT_EQ(RecordSamples(Path("whole", 0), {&video, &audio, &text}), 0);
    frames_ = static_cast<uint32_t>(MergeSamples({&video, &audio, &text}).size());
  }
  ~RecoverThreads() override { fs::remove_all(folder_); }

  std::string Path(const std::string& name, int number) const {
    return folder_ / (name + std::to_string(number) + ".mp4");
  }

  fs::path folder_;
  uint32_t frames_ = 0;
};

TEST_F(RecoverThreads, DifferentFiles_ComeBackEachByItself) {
  constexpr int kThreads = 4;
  ZMVRecoverReport reports[kThreads] = {};
  int32_t results[kThreads] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    // Cut within the index, each elsewhere: every frame is there.
    fs::copy_file(Path("whole", 0), Path("cut", i));
    fs::resize_file(Path("cut", i), fs::file_size(Path("cut", i)) - 100 - 10 * static_cast<uintmax_t>(i));
    threads.emplace_back([&, i] {
      const std::string path = Path("cut", i);
      const std::string target = Path("new", i);
      ZMVRecoverParam param = {};
      param.pszPath = path.c_str();
      param.pszTarget = target.c_str();
      results[i] = i % 2 == 0 ? ZMVRecoverToFile(&param, &reports[i]) : ZMVRecoverInPlace(&param, &reports[i]);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(results[i], 0) << i;
    EXPECT_EQ(reports[i].dwFrames, frames_) << i;
    const std::string recovered = Path(i % 2 == 0 ? "new" : "cut", i);
    ZMVRecoverParam param = {};
    param.pszPath = recovered.c_str();
    EXPECT_EQ(ZMVRecoverProbe(&param, &reports[i], nullptr), 0) << i;
    EXPECT_EQ(reports[i].dwState, ZMV_RECOVER_WHOLE) << i;
  }
}

}  // namespace
}  // namespace zmv::test
