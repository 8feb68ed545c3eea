#include "tools/zmv/box_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>

#include "tests/tools/temp_folder.h"
#include "tools/zmv/gps_point.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {
namespace {

void Put32(Bytes& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void Code(Bytes& out, const char* text) {
  for (size_t i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(text[i]));
}

Bytes Box(const char* type, const Bytes& body) {
  Bytes box;
  Put32(box, static_cast<uint32_t>(body.size() + 8));
  Code(box, type);
  box.insert(box.end(), body.begin(), body.end());
  return box;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class BoxScan : public testing::Test {
 protected:
  FileMap Scan(const Bytes& file) {
    WriteBytes(path_, file);
    return ScanFile(path_);
  }

  // A small recording of three pictures and positions, as the library finishes it.
  Bytes Recording() {
    ZMVFileInfo info{};
    info.m_dwFileType = 1;
    info.dwTimeScale = kVideoTimeScale;
    info.dwVideoCount = 1;
    info.m_Video[0].dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
    info.m_Video[0].dwWidth = 32;
    info.m_Video[0].dwHeight = 16;
    info.m_Video[0].dwFrameRate = 10000;
    info.m_Video[0].dwTimeScale = kVideoTimeScale;
    info.dwAudioCount = 1;
    info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
    info.m_Audio.dwSampleRate = 48000;
    info.m_Audio.dwChannels = 2;
    info.dwTextCount = 1;
    info.m_Text[0].dwFourCC = ZMV_FOURCC('G', 'P', 'S', ' ');
    info.m_Text[0].dwRate = 1;
    std::copy_n("F test", 7, info.szSoftware);
    Console console;
    RecorderOptions options;
    options.path = folder_ / "whole.mp4";
    options.force = true;
    Recorder recorder(options, info, {100000, 21333, 1000000}, console);
    const TelemetryPayload payload = PackTelemetry(GpsPoint());
    for (int64_t i = 0; i < 3; ++i) {
      recorder.Write({ZMV_MEDIA_VIDEO, 0, i * 100000, i == 0, {0, 0, 0, 1, 0x65, 1, 2, 3}});
      recorder.Write({ZMV_MEDIA_AUDIO, 0, i * 21333, true, {1, 2, 3}});
      recorder.Write({ZMV_MEDIA_TEXT, 0, i * 1000000, true, Bytes(payload.begin(), payload.end())});
    }
    recorder.Finish();
    return ReadBytes(options.path);
  }

  static size_t DataPosition(const Bytes& file) {
    const char tag[] = "mdat";
    return static_cast<size_t>(std::search(file.begin(), file.end(), tag, tag + 4) - file.begin()) - 4;
  }

  // As it stands while it is being recorded: the size of the media data is written last.
  static Bytes Unfinished(Bytes file, size_t size) {
    const Bytes open = {0, 0, 0, 8};
    std::copy(open.begin(), open.end(), file.begin() + static_cast<std::ptrdiff_t>(DataPosition(file)));
    file.resize(size);
    return file;
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "file.mp4";
};

TEST_F(BoxScan, WholeRecording_IsCompleteWithAllItsParts) {
  const FileMap map = Scan(Recording());
  EXPECT_EQ(map.health, Health::kComplete);
  EXPECT_TRUE(map.readable);
  EXPECT_EQ(map.brand, "mp41");
  ASSERT_EQ(map.front.size(), 3u);
  EXPECT_EQ(map.front[0].media, "audio");
  EXPECT_EQ(map.front[0].code, "0xFF");
  EXPECT_EQ(map.front[0].channels, 2u);
  EXPECT_EQ(map.front[0].rate, 48000u);
  EXPECT_EQ(map.front[1].media, "video");
  EXPECT_EQ(map.front[1].code, "avc1");
  EXPECT_EQ(map.front[1].width, 32u);
  EXPECT_EQ(map.front[1].height, 16u);
  EXPECT_EQ(map.front[1].rate, 10000u);
  EXPECT_EQ(map.front[1].time_scale, kVideoTimeScale);
  EXPECT_EQ(map.front[2].media, "text");
  EXPECT_EQ(map.front[2].code, "GPS ");
  EXPECT_FALSE(map.build.empty());
  EXPECT_EQ(map.gps_entries, 3u);
  EXPECT_EQ(map.sensor_entries, 3u);
  ASSERT_TRUE(map.aidd);
  EXPECT_EQ(map.aidd->value, 0u);
  uint64_t sum = 0;
  for (const BoxEntry& box : map.boxes) {
    EXPECT_EQ(box.position, sum);
    sum += box.size;
  }
  EXPECT_EQ(sum, map.size);
}

TEST_F(BoxScan, RecordingCutInItsFrames_IsRecoverable) {
  const Bytes whole = Recording();
  const FileMap map = Scan(Unfinished(whole, DataPosition(whole) + 100));
  EXPECT_EQ(map.health, Health::kCut);
  EXPECT_FALSE(map.readable);
  EXPECT_NE(map.sentence.find("92 bytes"), std::string::npos) << map.sentence;
}

TEST_F(BoxScan, FinishedRecordingWithItsEndMissing_IsRecoverable) {
  const Bytes whole = Recording();
  EXPECT_EQ(Scan(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(DataPosition(whole)) + 100)).health,
            Health::kCut);
  Bytes index_cut = whole;
  index_cut.resize(whole.size() - 100);
  EXPECT_EQ(Scan(index_cut).health, Health::kCut);
}

TEST_F(BoxScan, RecordingCutBeforeItsFirstFrame_HoldsNothing) {
  const Bytes whole = Recording();
  EXPECT_EQ(Scan(Unfinished(whole, DataPosition(whole) + 8)).health, Health::kDamaged);
  Bytes front(whole.begin(), whole.begin() + 60);
  EXPECT_EQ(Scan(front).health, Health::kDamaged);
}

TEST_F(BoxScan, ForeignFilesCut_CannotBeRecovered) {
  const Bytes ftyp = Box("ftyp", {'i', 's', 'o', 'm', 0, 0, 0, 0});
  Bytes cut = Join({ftyp, Box("mdat", Bytes(100, 7))});
  EXPECT_EQ(Scan(cut).health, Health::kDamaged);
  cut.resize(60);
  EXPECT_EQ(Scan(cut).health, Health::kDamaged);
  Bytes late = Join({ftyp, Box("moov", Bytes(16, 0)), Box("mdat", Bytes(100, 7))});
  EXPECT_EQ(Scan(late).health, Health::kComplete);
  late.resize(late.size() - 10);
  EXPECT_EQ(Scan(late).health, Health::kDamaged);
}

TEST_F(BoxScan, RebuiltRecording_SaysSo) {
  Bytes mark;
  Code(mark, "rcvf");
  mark.resize(24, 0);
  const FileMap map =
      Scan(Join({Box("ftyp", Bytes(8, 'x')), Box("free", mark), Box("mdat", Bytes(4, 0)), Box("moov", Bytes(8, 0))}));
  EXPECT_TRUE(map.recovered);
}

TEST_F(BoxScan, OtherFiles_AreNoRecordings) {
  EXPECT_EQ(Scan({}).health, Health::kNotRecording);
  EXPECT_EQ(Scan({1, 2, 3}).health, Health::kNotRecording);
  EXPECT_EQ(Scan(Box("RIFF", Bytes(20, 1))).health, Health::kNotRecording);
  EXPECT_EQ(Scan(Box("free", Bytes(20, 1))).health, Health::kNotRecording);
  EXPECT_THROW(ScanFile(folder_ / "none.mp4"), ToolError);
  EXPECT_THROW(ScanFile(folder_ / ""), ToolError);
}

TEST_F(BoxScan, SizesThatAreTooSmall_EndTheWalk) {
  Bytes bad = Box("ftyp", Bytes(8, 'x'));
  Put32(bad, 4);
  Code(bad, "moov");
  const FileMap map = Scan(bad);
  EXPECT_EQ(map.box_count, 1u);
  EXPECT_EQ(map.health, Health::kDamaged);
}

TEST_F(BoxScan, UserBoxesThatPassTheEnd_HoldWhatIsThere) {
  Bytes file = Recording();
  const auto positionOf = [&file](const char* tag) {
    return static_cast<size_t>(std::search(file.begin(), file.end(), tag, tag + 4) - file.begin()) + 4;
  };
  file.resize(positionOf("AIDD") + 3);  // of its 4 bytes
  EXPECT_FALSE(Scan(file).aidd);
  file.resize(positionOf("GPSR") + 2 * 80 + 79);
  EXPECT_EQ(Scan(file).gps_entries, 2u);
}

TEST_F(BoxScan, ManyBoxes_AreCountedButNotAllListed) {
  Bytes file = Box("ftyp", Bytes(8, 'x'));
  for (size_t i = 0; i < 2 * kMaxListedBoxes; ++i) {
    const Bytes box = Box("skip", {});
    file.insert(file.end(), box.begin(), box.end());
  }
  const FileMap map = Scan(file);
  EXPECT_EQ(map.box_count, 2 * kMaxListedBoxes + 1);
  EXPECT_EQ(map.boxes.size(), kMaxListedBoxes);
}

// Whatever is left of a recording, it is described or refused, never misread.
TEST_F(BoxScan, EveryTruncation_IsDescribedOrRefused) {
  const Bytes whole = Recording();
  const std::string open_path = folder_ / "open.mp4";
  WriteBytes(path_, whole);
  WriteBytes(open_path, Unfinished(whole, whole.size()));
  for (size_t size = whole.size(); size-- > 0;) {
    // Cut while it was recorded: there is media data without a size, and nothing to list.
    std::filesystem::resize_file(open_path, size);
    if (size >= DataPosition(whole) + 4) {
      const FileMap open = ScanFile(open_path);
      ASSERT_TRUE(open.health == Health::kCut || open.health == Health::kDamaged) << size;
      ASSERT_FALSE(open.readable) << size;
    }
    // Cut after it was finished. Below 8 bytes there is no box header.
    std::filesystem::resize_file(path_, size);
    const FileMap cut = ScanFile(path_);
    ASSERT_EQ(cut.health == Health::kNotRecording, size < 8) << size;
    if (cut.health == Health::kNotRecording) continue;
    const Json info = DescribeRecording(path_, cut);
    ASSERT_FALSE(RecordingText(info).empty());
    ASSERT_EQ(info["streams"].empty(), !cut.readable) << size;
  }
}

}  // namespace
}  // namespace zmv::tool
