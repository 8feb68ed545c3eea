// Small parts: messages, numbers for people, file headers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/zmv_result.h"
#include "tests/tools/temp_folder.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/console.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/tool_error.h"
#include "tools/zmv/wav.h"

namespace zmv::tool {
namespace {

TEST(ResultText, KnownCodes_AreWordsAndOthersNumbers) {
  EXPECT_NE(ResultText(Result(ZMV_E_DISK_FULL)).find("disk is full"), std::string::npos);
  EXPECT_EQ(ResultText(Result(0x80001234u)), "result 0x80001234");
  const ToolError error = LibraryError("a.mp4", "cannot be played", Result(ZMV_E_OPEN), kExitDamaged);
  EXPECT_STREQ(error.what(), "a.mp4: cannot be played: it cannot be opened");
  EXPECT_EQ(error.code(), kExitDamaged);
}

TEST(Console, Numbers_AreWrittenForPeople) {
  EXPECT_EQ(Grouped(0), "0");
  EXPECT_EQ(Grouped(999), "999");
  EXPECT_EQ(Grouped(1000), "1,000");
  EXPECT_EQ(Grouped(12345678), "12,345,678");
  EXPECT_EQ(ClockText(0), "00:00:00.000");
  EXPECT_EQ(ClockText(3723045), "01:02:03.045");
}

TEST(Console, Quiet_KeepsWarningsAndErrorsOnly) {
  testing::internal::CaptureStderr();
  Console console;
  console.Note("seen");
  console.set_quiet(true);
  console.Note("hidden");
  console.Warning("careful");
  console.Error("broken");
  console.Progress("work", 0.5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "seen\nwarning: careful\nerror: broken\n");
}

TEST(Console, WithoutTerminal_NoBarIsDrawn) {
  testing::internal::CaptureStderr();
  Console console;
  console.Progress("work", 0.5);
  console.EndProgress();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(WavHeader, MonoOf16Bits_HasEveryField) {
  EXPECT_THAT(MakeWavHeader({16000, 1, 16}, 2048),
              testing::ElementsAre('R', 'I', 'F', 'F', 0x24, 0x08, 0, 0,    // size without this header: 2084
                                   'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',  //
                                   16, 0, 0, 0, 1, 0, 1, 0,                 // integer samples, one channel
                                   0x80, 0x3E, 0, 0, 0x00, 0x7D, 0, 0,      // 16000 samples, 32000 bytes a second
                                   2, 0, 16, 0,                             // bytes and bits of a sample
                                   'd', 'a', 't', 'a', 0x00, 0x08, 0, 0));  // 2048 bytes
}

TEST(OutputFile, ExistingFileOrFolder_IsRefused) {
  const TempFolder folder;
  WriteText(folder / "there", "x");
  EXPECT_THROW(OutputFile(folder / "there", false), ToolError);
  EXPECT_THROW(OutputFile(folder / "", true), ToolError);
  EXPECT_THROW(OutputFile(folder / "none/file", true), ToolError);
  OutputFile out(folder / "there", true);
  out.Write(Bytes{1, 2, 3});
  out.Rewrite(Bytes{9});
  out.Close();
  EXPECT_EQ(ReadBytes(folder / "there"), (Bytes{9, 2, 3}));
}

TEST(ConfigText, H264ParameterSets_GiveProfileAndLevel) {
  ZMVVideoInfo video{};
  video.dwFourCC = ZMV_FOURCC('A', 'V', 'C', '1');
  const uint8_t sets[] = {0, 0, 0, 1, 0x67, 100, 0, 31, 0xAC, 0, 0, 0, 1, 0x68, 0xEE};
  std::copy(std::begin(sets), std::end(sets), video.abExtraData);
  video.dwExtraDataSize = sizeof(sets);
  const CodecText text = DescribeVideo(video);
  EXPECT_EQ(text.name, "H.264");
  EXPECT_EQ(text.profile, "High");
  EXPECT_EQ(text.level, "3.1");
  ASSERT_EQ(text.sets.size(), 2u);
  EXPECT_EQ(text.sets[0].name, "SPS");
  EXPECT_EQ(text.sets[1].hex, "68 ee");
}

TEST(ConfigText, AudioFormats_HaveNames) {
  ZMVAudioInfo audio{};
  audio.dwFormat = ZMV_AUDIO_AAC;
  audio.abExtraData[0] = 0x11;
  audio.abExtraData[1] = 0x90;
  audio.dwExtraDataSize = 2;
  const CodecText text = DescribeAudio(audio);
  EXPECT_EQ(text.name, "AAC");
  EXPECT_EQ(text.profile, "LC");
  audio.dwFormat = 0x1234;
  EXPECT_EQ(DescribeAudio(audio).name, "0x1234");
}

}  // namespace
}  // namespace zmv::tool
