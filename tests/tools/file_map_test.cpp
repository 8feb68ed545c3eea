#include "tools/zmv/file_map.h"

#include <gtest/gtest.h>

#include "tests/tools/small_recording.h"
#include "tests/tools/temp_folder.h"

namespace zmv::tool {
namespace {

TEST(ContainerOfName, EveryCaseOfAvi_MakesAnAvi) {
  for (const char* name : {"a.avi", "a/b.AVI", "x.mp4.Avi"}) EXPECT_EQ(ContainerOfName(name), Container::kAvi) << name;
  for (const char* name : {"a.mp4", "avi", "a.avi/b", ".avi", "a.avi.mov"}) {
    EXPECT_EQ(ContainerOfName(name), Container::kMp4) << name;
  }
}

TEST(ScanFile, Content_TellsTheContainerWhateverTheName) {
  const TempFolder folder;
  WriteSmallRecording(folder / "a.avi", {});
  WriteSmallRecording(folder / "b.mp4", {});
  std::filesystem::rename(folder / "a.avi", folder / "a.mp4");
  std::filesystem::rename(folder / "b.mp4", folder / "b.avi");
  EXPECT_EQ(ScanFile(folder / "a.mp4").container, Container::kAvi);
  EXPECT_EQ(ScanFile(folder / "b.avi").container, Container::kMp4);
  EXPECT_STREQ(ContainerName(Container::kAvi), "AVI");
}

TEST(ScanReadable, FileWithoutFrames_EndsWithTheExitCodeOfItsHealth) {
  const TempFolder folder;
  WriteText(folder / "x", "RIFFxxxxWAVE");
  try {
    ScanReadable(folder / "x");
    FAIL();
  } catch (const ToolError& error) {
    EXPECT_EQ(error.code(), kExitNotRecording);
  }
}

}  // namespace
}  // namespace zmv::tool
