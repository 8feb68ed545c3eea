// Configurations of streams that x264 and x265 encode, through the codec helpers and back, beside what FFmpeg made of
// them.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/zmv_codec.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kExtraSize = 512;
constexpr uint32_t kHevcHeaderSize = 22;
constexpr uint64_t kRateNum = 30000;
constexpr uint64_t kRateDen = 1001;

struct Case {
  const char* name;
  const char* size;
  const char* pixel_format;
  const char* options;
};

std::ostream& operator<<(std::ostream& out, const Case& encoded) { return out << encoded.name; }

// What FFmpeg says about the video stream of a file it wrote.
struct Peer {
  Bytes record;
  AVCodecParameters parameters;
};

class CodecConfigTest : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("zmv_codec_config_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  // Encodes five frames into an MP4 and reads back what FFmpeg wrote.
  void Encode(const std::string& codec, Peer* peer) {
    const std::string path = folder_ / "encoded.mp4";
    const std::string source = std::string("testsrc2=size=") + GetParam().size + ":rate=" + std::to_string(kRateNum) +
                               "/" + std::to_string(kRateDen) + ":duration=0.17";
    const std::string command = "ffmpeg -nostdin -v error -y -f lavfi -i '" + source + "' -pix_fmt " +
                                GetParam().pixel_format + " -c:v " + codec + " -preset ultrafast -threads 1 " +
                                GetParam().options + " '" + path + "' < /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    AVFormatContext* file = nullptr;
    ASSERT_EQ(avformat_open_input(&file, path.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(file, nullptr), 0);
    ASSERT_EQ(file->nb_streams, 1u);
    peer->parameters = *file->streams[0]->codecpar;
    peer->record.assign(peer->parameters.extradata, peer->parameters.extradata + peer->parameters.extradata_size);
    avformat_close_input(&file);
  }

  // Record to start codes by `convert` (which takes 512 bytes: room for all sets, if not for an encoder's comment),
  // then without emulation prevention: as a recording holds a configuration.
  static Bytes Stored(const Bytes& record, int32_t (*convert)(uint8_t*, uint32_t*)) {
    Bytes extra = record;
    extra.resize(std::max<size_t>(record.size(), kExtraSize));
    uint32_t size = static_cast<uint32_t>(record.size());
    EXPECT_EQ(convert(extra.data(), &size) < 0, record.size() > kExtraSize);
    EXPECT_EQ(ZMVUtil_H26xRemoveEPB(extra.data(), &size), 0);
    extra.resize(size);
    return extra;
  }

  // What the helper reads out of every form of the configuration is what FFmpeg says.
  void CompareDescription(const Peer& peer, const Bytes& stored, int hevc) {
    const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(av_get_pix_fmt(GetParam().pixel_format));
    ASSERT_NE(pixels, nullptr);
    const uint32_t chroma = pixels->nb_components == 1   ? 0
                            : pixels->log2_chroma_h == 1 ? 1
                            : pixels->log2_chroma_w == 1 ? 2
                                                         : 3;
    for (const Bytes& config : {peer.record, stored}) {
      ZMVCodecInfo info;
      ASSERT_EQ(ZMVCodec_Describe(config.data(), static_cast<uint32_t>(config.size()), hevc, &info), 0);
      EXPECT_EQ(info.dwWidth, static_cast<uint32_t>(peer.parameters.width));
      EXPECT_EQ(info.dwHeight, static_cast<uint32_t>(peer.parameters.height));
      EXPECT_EQ(info.dwProfile, static_cast<uint32_t>(peer.parameters.profile) & 0xFFu);
      EXPECT_EQ(info.dwLevel, static_cast<uint32_t>(peer.parameters.level));
      EXPECT_EQ(info.dwChromaFormat, chroma);
      EXPECT_EQ(info.dwBitDepthLuma, static_cast<uint32_t>(pixels->comp[0].depth));
      EXPECT_EQ(info.dwFullRange, peer.parameters.color_range == AVCOL_RANGE_JPEG ? 1u : 0u);
      EXPECT_EQ(info.dwColourPrimaries, static_cast<uint32_t>(peer.parameters.color_primaries));
      EXPECT_EQ(info.dwTransfer, static_cast<uint32_t>(peer.parameters.color_trc));
      EXPECT_EQ(info.dwMatrix, static_cast<uint32_t>(peer.parameters.color_space));
      ASSERT_NE(info.llRateDen, 0u);
      EXPECT_EQ(info.llRateNum * kRateDen, info.llRateDen * kRateNum);
    }
  }

 private:
  std::filesystem::path folder_;
};

class AvcConfigTest : public CodecConfigTest {};

TEST_P(AvcConfigTest, Record_ComesBackByteForByte) {
  Peer peer;
  Encode("libx264", &peer);
  if (HasFatalFailure()) return;
  const Bytes stored = Stored(peer.record, ZMVUtil_ConvH264InfoToStartCode);
  Bytes record(1024);
  uint32_t size = static_cast<uint32_t>(record.size());
  const UtilAvcParam fallback = {77, 0, 0x32, 4};
  ASSERT_EQ(UtilConvH264InfoFromStartCode(stored.data(), static_cast<uint32_t>(stored.size()), record.data(), &size,
                                          &fallback),
            0);
  record.resize(size);
  EXPECT_EQ(record, peer.record);
  CompareDescription(peer, stored, 0);
}

INSTANTIATE_TEST_SUITE_P(
    X264, AvcConfigTest,
    testing::Values(Case{"Baseline", "320x240", "yuv420p", "-profile:v baseline"},
                    Case{"MainCropped", "322x182", "yuv420p", "-profile:v main"},
                    Case{"High", "1920x1080", "yuv420p", "-profile:v high -x264-params 8x8dct=1:ref=4"},
                    Case{"HighScalingLists", "640x360", "yuv420p", "-profile:v high -x264-params 8x8dct=1:cqm=jvt"},
                    Case{"HighFields", "720x576", "yuv420p", "-profile:v high -flags +ildct+ilme -x264-params tff=1"},
                    Case{"HighHrd", "640x360", "yuv420p",
                         "-profile:v high -b:v 500k -maxrate 500k -bufsize 500k -x264-params nal-hrd=vbr"},
                    Case{"HighColours", "640x360", "yuvj420p",
                         "-profile:v high -color_range pc -colorspace bt709 -color_primaries bt709 -color_trc bt709"},
                    Case{"High10", "640x360", "yuv420p10le", "-profile:v high10"},
                    Case{"High422", "640x362", "yuv422p10le", "-profile:v high422"},
                    Case{"High444", "639x361", "yuv444p", "-profile:v high444"},
                    Case{"Gray", "640x360", "gray", "-profile:v high"}),
    [](const auto& tested) { return std::string(tested.param.name); });

class HevcConfigTest : public CodecConfigTest {};

// The first unit of each NAL type in an hvcC record.
std::map<uint8_t, Bytes> FirstUnits(const Bytes& record) {
  std::map<uint8_t, Bytes> units;
  size_t at = kHevcHeaderSize;
  const auto number = [&record, &at] {
    const size_t value = static_cast<size_t>(record.at(at)) << 8 | record.at(at + 1);
    at += 2;
    return value;
  };
  const int arrays = record.at(at++);
  for (int i = 0; i < arrays; ++i) {
    const uint8_t type = record.at(at++) & 0x3F;
    for (size_t count = number(); count > 0; --count) {
      const size_t size = number();
      const auto begin = record.begin() + static_cast<ptrdiff_t>(at);
      units.emplace(type, Bytes(begin, begin + static_cast<ptrdiff_t>(size)));
      at += size;
    }
  }
  return units;
}

// The fields of `info` packed as ISO/IEC 14496-15 lays an hvcC record out.
Bytes Header(const UtilHevcInfo& info) {
  Bytes header = {1, static_cast<uint8_t>(info.bProfileSpace << 6 | info.bTier << 5 | info.bProfile)};
  for (int shift = 24; shift >= 0; shift -= 8) header.push_back(static_cast<uint8_t>(info.dwCompatibility >> shift));
  for (int shift = 40; shift >= 0; shift -= 8) header.push_back(static_cast<uint8_t>(info.llConstraint >> shift));
  header.push_back(info.bLevel);
  header.push_back(static_cast<uint8_t>(0xF0 | info.wMinSpatialSegmentation >> 8));
  header.push_back(static_cast<uint8_t>(info.wMinSpatialSegmentation));
  header.push_back(static_cast<uint8_t>(0xFC | info.bParallelism));
  header.push_back(static_cast<uint8_t>(0xFC | info.bChromaFormat));
  header.push_back(static_cast<uint8_t>(0xF8 | (info.bBitDepthLuma - 8)));
  header.push_back(static_cast<uint8_t>(0xF8 | (info.bBitDepthChroma - 8)));
  header.push_back(0);  // average frame rate
  header.push_back(0);
  header.push_back(static_cast<uint8_t>(info.bTemporalLayers << 3 | info.bTemporalIdNested << 2 | 3));
  return header;
}

TEST_P(HevcConfigTest, FieldsAndSets_AreThoseOfTheRecord) {
  Peer peer;
  Encode("libx265", &peer);
  if (HasFatalFailure()) return;
  const Bytes stored = Stored(peer.record, ZMVUtil_ConvHEVCInfoToStartCode);
  Bytes place(1024);
  UtilHevcInfo info{};
  info.pBuffer = place.data();
  info.dwBufferSize = static_cast<uint32_t>(place.size());
  ASSERT_EQ(UtilConvH265InfoFromStartCode(stored.data(), static_cast<uint32_t>(stored.size()), &info), 0);

  EXPECT_EQ(Header(info), Bytes(peer.record.begin(), peer.record.begin() + kHevcHeaderSize));
  std::map<uint8_t, Bytes> units = FirstUnits(peer.record);
  EXPECT_EQ(Bytes(info.vps.pData, info.vps.pData + info.vps.dwSize), units[32]);
  EXPECT_EQ(Bytes(info.sps.pData, info.sps.pData + info.sps.dwSize), units[33]);
  EXPECT_EQ(Bytes(info.pps.pData, info.pps.pData + info.pps.dwSize), units[34]);
  CompareDescription(peer, stored, 1);
}

INSTANTIATE_TEST_SUITE_P(
    X265, HevcConfigTest,
    testing::Values(
        Case{"MainWithComment", "320x240", "yuv420p", "-profile:v main -x265-params log-level=error"},
        Case{"MainCropped", "322x182", "yuv420p", "-tag:v hvc1 -profile:v main -x265-params log-level=error:info=0"},
        Case{"MainHighTier", "1920x1080", "yuv420p",
             "-profile:v main -b:v 20M -maxrate 20M -bufsize 20M -x265-params "
             "log-level=error:info=0:level-idc=4.1:high-tier=1"},
        Case{"MainHrd", "640x360", "yuv420p",
             "-profile:v main -b:v 500k -maxrate 500k -bufsize 500k -x265-params "
             "log-level=error:info=0:hrd=1:temporal-layers=1"},
        Case{"MainScalingLists", "640x360", "yuv420p",
             "-profile:v main -x265-params log-level=error:info=0:scaling-list=default:wpp=0:bframes=4:ref=4"},
        Case{"MainColours", "640x360", "yuv420p",
             "-profile:v main -color_range pc -colorspace bt709 -color_primaries bt709 -color_trc bt709 "
             "-x265-params log-level=error:info=0"},
        Case{"Main10", "640x360", "yuv420p10le", "-profile:v main10 -x265-params log-level=error:info=0"},
        Case{"Main12", "640x360", "yuv420p12le", "-profile:v main12 -x265-params log-level=error:info=0"},
        Case{"Main422", "640x362", "yuv422p10le", "-profile:v main422-10 -x265-params log-level=error:info=0"},
        Case{"Main444", "640x360", "yuv444p", "-profile:v main444-8 -x265-params log-level=error:info=0"}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
