// `zmv aidd`: shows the value, and changes it without touching anything else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tests/tools/small_recording.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class CliAidd : public testing::Test {
 protected:
  CliAidd() { WriteSmallRecording(path_, {PayloadOf(GpsPoint())}); }

  const TempFolder folder_;
  const std::string path_ = folder_ / "drive.mp4";
};

TEST_F(CliAidd, NewRecording_Holds0) {
  const CliResult result = Zmv(folder_, {"aidd", path_});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out, "0 (0x00000000)\n");
}

TEST_F(CliAidd, Rewriting_ChangesFourBytesInPlace) {
  const Bytes before = ReadBytes(path_);
  ASSERT_EQ(Zmv(folder_, {"aidd", path_, "0x12345678"}).code, 0);
  const Bytes after = ReadBytes(path_);
  const json shown = json::parse(Zmv(folder_, {"aidd", path_, "--json"}).out);
  EXPECT_EQ(shown["value"], 0x12345678);
  const auto position = shown["position"].get<size_t>();
  Bytes expected = before;
  const uint8_t word[] = {0x12, 0x34, 0x56, 0x78};  // big-endian
  ASSERT_LE(position + sizeof(word), expected.size());
  const char box[] = "AIDD";
  EXPECT_TRUE(std::equal(box, box + 4, expected.begin() + static_cast<std::ptrdiff_t>(position) - 4));
  std::copy(std::begin(word), std::end(word), expected.begin() + static_cast<std::ptrdiff_t>(position));
  EXPECT_EQ(after, expected);
  ASSERT_EQ(Zmv(folder_, {"aidd", path_, "0"}).code, 0);
  EXPECT_EQ(ReadBytes(path_), before);
}

TEST_F(CliAidd, Rewriting_ReportsBothValues) {
  ASSERT_EQ(Zmv(folder_, {"aidd", path_, "7"}).code, 0);
  const CliResult result = Zmv(folder_, {"aidd", path_, "4294967295", "--json"});
  const json report = json::parse(result.out);
  EXPECT_EQ(report["previous"], 7);
  EXPECT_EQ(report["value"], 0xFFFFFFFFu);
  EXPECT_THAT(result.err, HasSubstr("was 7 (0x00000007)"));
  EXPECT_EQ(json::parse(Zmv(folder_, {"info", path_, "--json"}).out)["user"]["aidd"]["value"], 0xFFFFFFFFu);
}

TEST_F(CliAidd, ValuesThatAreNone_AreRefusedAndChangeNothing) {
  const Bytes before = ReadBytes(path_);
  for (const char* value : {"4294967296", "0x100000000", "seven", "7x", "0x", "1.5", ""}) {
    EXPECT_EQ(Zmv(folder_, {"aidd", path_, value}).code, 2) << value;
  }
  EXPECT_EQ(Zmv(folder_, {"aidd", path_, "-1"}).code, 2);
  EXPECT_EQ(ReadBytes(path_), before);
}

TEST_F(CliAidd, FilesCutAtOrBeforeTheValue_DoNotGrow) {
  const Bytes whole = ReadBytes(path_);
  const char box[] = "AIDD";
  const auto at = std::search(whole.begin(), whole.end(), box, box + 4);
  ASSERT_NE(at, whole.end());
  for (const std::ptrdiff_t left : {-100, 4, 7}) {
    const Bytes cut(whole.begin(), at + left);
    WriteBytes(path_, cut);
    const CliResult result = Zmv(folder_, {"aidd", path_, "1"});
    EXPECT_EQ(result.code, 4) << left;
    EXPECT_THAT(result.err, HasSubstr("can be rebuilt"));
    EXPECT_EQ(ReadBytes(path_), cut) << left;
  }
  WriteBytes(path_, Bytes(whole.begin(), at + 8));
  EXPECT_EQ(Zmv(folder_, {"aidd", path_, "1"}).code, 0);
}

TEST_F(CliAidd, FilesWithoutTheBox_AreRefused) {
  WriteSmallRecording(path_, {PayloadOf(GpsPoint())}, "test");
  const Bytes before = ReadBytes(path_);
  const CliResult result = Zmv(folder_, {"aidd", path_, "1"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("has no AIDD box"));
  EXPECT_EQ(ReadBytes(path_), before);
  WriteText(folder_ / "garbage", std::string(100, 'g'));
  EXPECT_EQ(Zmv(folder_, {"aidd", folder_ / "garbage"}).code, 3);
  EXPECT_EQ(Zmv(folder_, {"aidd", folder_ / "none"}).code, 1);
}

}  // namespace
}  // namespace zmv::tool
