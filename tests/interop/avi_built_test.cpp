// AVI files that no program at hand writes, put together by hand and read by both: OpenDML files of several forms,
// audio with a sample size. What the reader hands out is what libavformat finds.
#include <gmock/gmock.h>

#include <fstream>
#include <memory>

#include "facade/zmvstream_reader.h"
#include "tests/interop/libav.h"
#include "tests/support/avi_builder.h"

namespace zmv::test {
namespace {

// A picture or a sound of `size` bytes that are like no other's.
ByteVector Payload(uint32_t seed, size_t size) {
  ByteVector bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed * 31 + i * 7 + 1);
  return bytes;
}

// MPEG-4 part 2 pictures and PCM: packets of neither are looked into.
std::vector<AviChunk> Chunks(uint32_t first, uint32_t count) {
  std::vector<AviChunk> chunks;
  for (uint32_t i = first; i < first + count; ++i) {
    chunks.push_back({"00dc", Payload(i, 201 + i % 5), i % 10 == 0 ? 0x10u : 0u});
    chunks.push_back({"01wb", Payload(1000 + i, 1920 * 4), 0x10});
  }
  return chunks;
}

AviSpec RawFile() {
  AviSpec file;
  file.frame_time = 40000;
  file.streams = {VideoStream(25000, 1000, "DUCK"), PcmStream()};
  return file;
}

class BuiltAvi : public testing::Test {
 protected:
  // On the disk for libavformat, in the memory of the scripted host for the reader.
  void Put(const std::string& name, const ByteVector& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    theirs_ = ReadWithLibav(name);
    ASSERT_TRUE(theirs_.opened);
    host_.PutFile(name, bytes);
    ZMVReaderParam param{name.c_str(), nullptr, 0};
    ASSERT_EQ(ZMVReaderOpen(&reader_, &param), 0);
    ASSERT_EQ(ZMVReaderGetInfo(reader_, info_.get()), 0);
  }
  void TearDown() override { ZMVReaderClose(reader_); }

  struct Packet {
    bool key = false;
    ByteVector data;
    uint64_t time_ms = 0;
  };

  std::vector<Packet> Ours(uint32_t media) {
    std::vector<Packet> packets;
    ByteVector buffer(1 << 16);
    for (;;) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      const auto code = static_cast<uint32_t>(ZMVReaderReadFrame(reader_, &frame));
      if (code != 0) {
        EXPECT_EQ(code, ZMV_E_END);
        return packets;
      }
      packets.push_back({frame.dwKeyFrame == ZMV_KEY_FRAME, ByteVector(buffer.begin(), buffer.begin() + frame.dwSize),
                         frame.llTimeStamp});
    }
  }

  std::vector<LibavPacket> Theirs(int stream) const {
    std::vector<LibavPacket> packets;
    for (const LibavPacket& packet : theirs_.packets) {
      if (packet.stream == stream) packets.push_back(packet);
    }
    return packets;
  }

  template <typename List>
  static ByteVector Joined(const List& packets) {
    ByteVector bytes;
    for (const auto& packet : packets) bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
    return bytes;
  }

  // The pictures one by one; the sound, of which libavformat makes packets of its own, as a whole.
  void Compare(size_t pictures) {
    const std::vector<Packet> ours = Ours(ZMV_MEDIA_VIDEO);
    const std::vector<LibavPacket> theirs = Theirs(0);
    ASSERT_EQ(ours.size(), pictures);
    ASSERT_EQ(theirs.size(), pictures);
    for (size_t i = 0; i < pictures; ++i) {
      ASSERT_EQ(ours[i].data, theirs[i].data) << i;
      EXPECT_EQ(ours[i].key, theirs[i].key) << i;
      EXPECT_EQ(ours[i].time_ms, i * 40) << i;
      EXPECT_EQ(theirs[i].dts, static_cast<int64_t>(i)) << i;
    }
    EXPECT_EQ(Joined(Ours(ZMV_MEDIA_AUDIO)), Joined(Theirs(1)));
  }

  ScriptedHost host_;
  ZMVReader* reader_ = nullptr;
  std::unique_ptr<ZMVFileInfo> info_ = std::make_unique<ZMVFileInfo>();
  LibavFile theirs_;
};

TEST_F(BuiltAvi, PlainFile_IsReadAlike) {
  AviSpec file = RawFile();
  file.chunks = Chunks(0, 40);
  Put("interop_avi_plain.avi", BuildAvi(file));
  Compare(40);
}

TEST_F(BuiltAvi, OpenDmlOverTheIndexBoundary_IsReadAlike) {
  Put("interop_avi_odml.avi", BuildOpenDml(RawFile(), {Chunks(0, 30), Chunks(30, 30), Chunks(60, 7)}));
  Compare(67);
}

TEST_F(BuiltAvi, OpenDmlWithAnOldIndexOfItsFirstForm_IsReadAlike) {
  Put("interop_avi_odml_idx1.avi", BuildOpenDml(RawFile(), {Chunks(0, 30), Chunks(30, 20)}, true));
  Compare(50);
}

// 16,000 bytes a second: a sample is a byte, and the chunks need not be frames.
TEST_F(BuiltAvi, Mp3WithASampleSize_IsTimedByItsBytes) {
  AviStream sound = AacStream();
  sound.handler = std::string("\x55\0\0\0", 4);
  sound.scale = 1;
  sound.rate = 16000;
  sound.sample_size = 1;
  sound.format = WaveFormat(0x55, 2, 44100, 16000, 1, 0, {1, 0, 2, 0, 0, 0, 0x80, 1, 1, 0, 0, 0});
  AviSpec file = RawFile();
  file.streams[1] = sound;
  for (uint32_t i = 0; i < 40; ++i) {
    file.chunks.push_back({"00dc", Payload(i, 100), 0x10});
    file.chunks.push_back({"01wb", Payload(500 + i, 600 + i % 3), 0x10});
  }
  Put("interop_avi_mp3_bytes.avi", BuildAvi(file));
  const std::vector<Packet> ours = Ours(ZMV_MEDIA_AUDIO);
  ASSERT_EQ(ours.size(), 40u);
  EXPECT_EQ(info_->m_Audio.dwFormat, ZMV_AUDIO_MPEG);
  size_t bytes = 0;
  for (const Packet& packet : ours) {
    EXPECT_NEAR(static_cast<double>(packet.time_ms), static_cast<double>(bytes) / 16, 1.0);
    bytes += packet.data.size();
  }
  ByteVector stored;
  for (const AviChunk& chunk : file.chunks) {
    if (chunk.code == "01wb") stored.insert(stored.end(), chunk.data.begin(), chunk.data.end());
  }
  EXPECT_EQ(Joined(ours), stored);
  ASSERT_EQ(theirs_.streams.size(), 2u);
  EXPECT_EQ(theirs_.streams[1].codec, AV_CODEC_ID_MP3);
}

}  // namespace
}  // namespace zmv::test
