// Fragmented files made by FFmpeg from the sample streams: every packet that libavformat finds comes out of the reader,
// with the bytes that are stored, in the same order and at the same time.
#include <gmock/gmock.h>
#include <stdio.h>

#include <cstdlib>
#include <fstream>

#include "facade/zmvstream_reader.h"
#include "tests/interop/libav.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

struct Variant {
  const char* name;
  const char* video;    // sample, or null
  const char* audio;    // sample, or null
  const char* options;  // of the muxer
  bool samples_in_moov;
};

void PrintTo(const Variant& variant, std::ostream* out) { *out << variant.name; }

constexpr Variant kVariants[] = {
    {"video_by_key_frame", "drive_h264.h264", nullptr, "-movflags frag_keyframe+empty_moov", false},
    {"both_by_key_frame", "drive_h264.h264", "drive_aac.aac", "-movflags frag_keyframe+empty_moov", false},
    {"both_by_duration", "drive_h264.h264", "drive_aac.aac", "-movflags empty_moov -frag_duration 200000", false},
    {"video_by_frame", "drive_h264.h264", nullptr, "-movflags empty_moov+frag_every_frame", false},
    {"hevc_by_key_frame", "drive_hevc.hevc", "drive_aac.aac", "-movflags frag_keyframe+empty_moov", false},
    {"audio_by_duration", nullptr, "drive_aac.aac", "-movflags empty_moov -frag_duration 300000", false},
    {"video_begins_in_moov", "drive_h264.h264", nullptr, "-movflags frag_keyframe", true},
    {"video_by_size", "drive_h264.h264", nullptr, "-movflags empty_moov -frag_size 20000", false},
};

struct Packet {
  uint32_t time_ms;
  uint32_t key;
  std::vector<uint8_t> data;
};

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The flags of every tfhd box.
std::vector<uint32_t> TfhdFlags(const std::vector<uint8_t>& bytes) {
  constexpr char kType[] = {'t', 'f', 'h', 'd'};
  std::vector<uint32_t> flags;
  for (auto at = bytes.begin(); (at = std::search(at, bytes.end(), kType, kType + 4)) != bytes.end(); at += 4) {
    const uint8_t* word = &*at + 4;
    flags.push_back(uint32_t{word[1]} << 16 | uint32_t{word[2]} << 8 | word[3]);
  }
  return flags;
}

// A stored sample, units behind 4-byte lengths, as it is delivered from moov: the same behind start codes.
std::vector<uint8_t> StartCoded(std::vector<uint8_t> sample) {
  for (size_t at = 0; at + 4 <= sample.size();) {
    size_t length = 0;
    for (size_t i = 0; i < 4; ++i) length = length << 8 | sample[at + i];
    for (size_t i = 0; i < 4; ++i) sample[at + i] = i == 3 ? 1 : 0;
    at += 4 + length;
  }
  return sample;
}

class FragmentsOfFfmpeg : public testing::TestWithParam<Variant> {
 protected:
  void SetUp() override {
    const Variant& variant = GetParam();
    path_ = std::string("interop_fragments_") + variant.name + ".mp4";
    std::string command = "ffmpeg -v error -nostdin -y";
    if (variant.video != nullptr) command += " -r 30 -i " + SamplesFolder() + "/" + variant.video;
    if (variant.audio != nullptr) command += " -i " + SamplesFolder() + "/" + variant.audio;
    command += " -c copy";
    if (variant.audio != nullptr) command += " -bsf:a aac_adtstoasc";
    command += std::string(" ") + variant.options + " " + path_;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    ZMVReaderParam param{path_.c_str(), nullptr, 0};
    ASSERT_EQ(ZMVReaderOpen(&reader_, &param), 0);
    ASSERT_EQ(ZMVReaderGetInfo(reader_, &info_), 0);
    theirs_ = ReadWithLibav(path_);
    ASSERT_TRUE(theirs_.opened);
  }
  ~FragmentsOfFfmpeg() override { ZMVReaderClose(reader_); }

  // Reads every packet of a medium, with a buffer that is too small at first.
  std::vector<Packet> Ours(uint32_t media) {
    std::vector<Packet> packets;
    std::vector<uint8_t> buffer(16);
    for (;;) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      const uint32_t code = static_cast<uint32_t>(ZMVReaderReadFrame(reader_, &frame));
      if (code == ZMV_E_MP4_BUFFER) {
        EXPECT_GT(frame.dwBufSize, buffer.size());
        buffer.resize(frame.dwBufSize);
        continue;
      }
      if (code != 0) {
        EXPECT_EQ(code, ZMV_E_END);
        return packets;
      }
      packets.push_back({static_cast<uint32_t>(frame.llTimeStamp), frame.dwKeyFrame,
                         std::vector<uint8_t>(buffer.begin(), buffer.begin() + frame.dwSize)});
    }
  }

  std::vector<LibavPacket> Theirs(AVMediaType type) {
    std::vector<LibavPacket> packets;
    for (const LibavPacket& packet : theirs_.packets) {
      if (Stream(packet).type == type) packets.push_back(packet);
    }
    return packets;
  }
  const LibavStream& Stream(const LibavPacket& packet) const {
    return theirs_.streams[static_cast<size_t>(packet.stream)];
  }

  void Compare(uint32_t media, AVMediaType type) {
    const std::vector<Packet> ours = Ours(media);
    const std::vector<LibavPacket> theirs = Theirs(type);
    ASSERT_GT(theirs.size(), 100u);
    ASSERT_EQ(ours.size(), theirs.size());
    const size_t moov = type == AVMEDIA_TYPE_VIDEO ? info_.m_Video[0].dwFrames : info_.m_Audio.dwFrames;
    EXPECT_EQ(moov != 0, GetParam().samples_in_moov);
    for (size_t i = 0; i < ours.size(); ++i) {
      // Samples of moov come out behind start codes, those of fragments as they are stored.
      ASSERT_EQ(ours[i].data, i < moov ? StartCoded(theirs[i].data) : theirs[i].data) << i;
      const double exact = static_cast<double>(theirs[i].dts) * av_q2d(Stream(theirs[i]).time_base) * 1000.0;
      ASSERT_NEAR(ours[i].time_ms, std::floor(exact), 1.0) << i;
    }
  }

  std::string path_;
  ZMVReader* reader_ = nullptr;
  ZMVFileInfo info_{};
  LibavFile theirs_;
};

TEST_P(FragmentsOfFfmpeg, EveryPacket_ComesOutAsStored) {
  const Variant& variant = GetParam();
  if (variant.video != nullptr) Compare(ZMV_MEDIA_VIDEO, AVMEDIA_TYPE_VIDEO);
  if (variant.audio != nullptr) Compare(ZMV_MEDIA_AUDIO, AVMEDIA_TYPE_AUDIO);
}

// What the comparison rests on: offsets that count from a base in the file and not from moof.
TEST_P(FragmentsOfFfmpeg, EveryTrackFragment_NamesItsBase) {
  const std::vector<uint32_t> flags = TfhdFlags(ReadFile(path_));
  ASSERT_GT(flags.size(), 1u);
  for (uint32_t word : flags) EXPECT_EQ(word & 0x20001, 1u);
}

// Here every trun begins with a key frame and no other frame is one.
class FragmentsByKeyFrame : public FragmentsOfFfmpeg {};

TEST_P(FragmentsByKeyFrame, KeyFlags_AgreeWithTheStream) {
  const std::vector<Packet> ours = Ours(ZMV_MEDIA_VIDEO);
  const std::vector<LibavPacket> theirs = Theirs(AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(ours.size(), theirs.size());
  for (size_t i = 0; i < ours.size(); ++i) EXPECT_EQ(ours[i].key == 1, theirs[i].key) << i;
}

std::string NameOf(const testing::TestParamInfo<Variant>& param) { return param.param.name; }

INSTANTIATE_TEST_SUITE_P(Interop, FragmentsOfFfmpeg, testing::ValuesIn(kVariants), NameOf);
INSTANTIATE_TEST_SUITE_P(Interop, FragmentsByKeyFrame,
                         testing::Values(kVariants[0], kVariants[1], kVariants[4], kVariants[6]), NameOf);

}  // namespace
}  // namespace zmv::test
