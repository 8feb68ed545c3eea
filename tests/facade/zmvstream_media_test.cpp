#include "facade/zmvstream_media.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>

#include "tests/facade/test_stream.h"

namespace zmv::test {
namespace {

constexpr char kPath[] = "format.bin";
constexpr uint32_t kUntouched = 0xA5A5A5A5;

ZMVAudioInfo Pcm() {
  ZMVAudioInfo audio{};
  audio.dwFormat = ZMV_AUDIO_PCM;
  audio.dwChannels = 2;
  audio.dwSampleRate = 48000;
  audio.dwBitRate = 1536000;
  audio.dwBlockAlign = 4;
  audio.dwBitsPerSample = 16;
  return audio;
}

ByteVector PcmForm() {
  return Join({
      Hex("01 00"),        // format tag
      Hex("02 00"),        // channels
      Hex("80 BB 00 00"),  // samples per second
      Hex("00 EE 02 00"),  // average bytes per second
      Hex("04 00"),        // block align
      Hex("10 00"),        // bits per sample
  });
}

ByteVector Counting(size_t count) {
  ByteVector bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

ByteVector VideoForm(uint32_t extra) {
  return Join({
      Le32(40),         // header size
      Le32(640),        // width
      Le32(360),        // height
      Le16(1),          // planes
      Le16(24),         // bit count
      Text("H264"),     // compression
      Le32(640 * 360),  // image size
      Zeros(16),        // resolutions, colours
      Counting(extra),
  });
}

ByteVector Extra(const uint8_t* data, size_t size) { return ByteVector(data, data + size); }

// Every byte of two descriptions but those behind the one-byte field, which nobody sets.
bool SameFields(const ZMVAudioInfo& a, const ZMVAudioInfo& b) {
  constexpr size_t kGap = offsetof(ZMVAudioInfo, bValid) + sizeof a.bValid;
  return std::memcmp(&a, &b, kGap) == 0 &&
         std::memcmp(&a.dwFrames, &b.dwFrames, sizeof a - offsetof(ZMVAudioInfo, dwFrames)) == 0;
}

class MediaFormat : public ::testing::Test {
 protected:
  // What `put` writes to a new file.
  ByteVector Written(const std::function<void(ZMVStreamBuf*, uint32_t)>& put) {
    {
      TestStream stream(kPath, ZMV_STREAM_WRITE);
      put(stream.Get(), stream.Cursor());
    }
    return host_.File(kPath);
  }
  // Reads a chunk of `size` bytes that starts at offset 4 of a file; the position afterwards, counted from there.
  ZMVAudioInfo ReadAudio(const ByteVector& chunk, uint32_t size, ZMVAudioInfo audio = {}) {
    host_.PutFile(kPath, Join({Text("strf"), chunk}));
    TestStream stream(kPath, ZMV_STREAM_READ);
    ZMVStreamBuf_Seek(stream.Get(), stream.Cursor(), 4);
    StreamGetAudioFormat(stream.Get(), stream.Cursor(), size, &audio);
    position_ = stream.Position() - 4;
    return audio;
  }
  ZMVVideoInfo ReadVideo(const ByteVector& chunk, uint32_t size, ZMVVideoInfo video = {}) {
    host_.PutFile(kPath, Join({Text("strf"), chunk}));
    TestStream stream(kPath, ZMV_STREAM_READ);
    ZMVStreamBuf_Seek(stream.Get(), stream.Cursor(), 4);
    StreamGetVideoFormat(stream.Get(), stream.Cursor(), size, &video);
    position_ = stream.Position() - 4;
    return video;
  }

  ScriptedHost host_;
  uint32_t position_ = 0;
};

// ---- Writing

TEST_F(MediaFormat, PutAudio_NoExtraData_Writes16Bytes) {
  const ZMVAudioInfo audio = Pcm();
  uint32_t count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutAudioFormat(s, c, &audio); }), PcmForm());
  EXPECT_EQ(count, 16u);
  int64_t stream_count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { stream_count = ZMVStreamBuf_PutAudioFormat(s, c, &audio); }),
            PcmForm());
  EXPECT_EQ(stream_count, 16);
}

TEST_F(MediaFormat, PutAudio_ThreeExtraBytes_Writes21BytesWithoutPad) {
  ZMVAudioInfo audio = Pcm();
  audio.dwExtraDataSize = 3;
  std::memcpy(audio.abExtraData, "\x11\x90\x56\x77", 4);
  const ByteVector expected = Join({PcmForm(), Le16(3), Hex("11 90 56")});
  uint32_t count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutAudioFormat(s, c, &audio); }), expected);
  EXPECT_EQ(count, 21u);
  int64_t stream_count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { stream_count = ZMVStreamBuf_PutAudioFormat(s, c, &audio); }),
            expected);
  EXPECT_EQ(stream_count, 21);
}

TEST_F(MediaFormat, PutAudio_SizeBeyondTheRecord_Writes512ExtraBytes) {
  ZMVAudioInfo audio = Pcm();
  audio.dwExtraDataSize = 0x10001;
  const ByteVector extra = Counting(512);
  std::memcpy(audio.abExtraData, extra.data(), extra.size());
  uint32_t count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutAudioFormat(s, c, &audio); }),
            Join({PcmForm(), Le16(512), extra}));
  EXPECT_EQ(count, 530u);
}

TEST_F(MediaFormat, PutAudio_WriteFails_ReturnsTheCountAllTheSame) {
  const ZMVAudioInfo audio = Pcm();
  TestStream stream(kPath, ZMV_STREAM_WRITE);
  host_.Fail(HostCall::kWrite, 1, ScriptedHost::kForGood);
  EXPECT_EQ(StreamPutAudioFormat(stream.Get(), stream.Cursor(), &audio), 16u);
  EXPECT_EQ(host_.Count(HostCall::kWrite), 1u);
}

ZMVVideoInfo Video(uint32_t extra) {
  ZMVVideoInfo video{};
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  video.dwWidth = 640;
  video.dwHeight = 360;
  video.dwBitCount = 24;
  video.dwExtraDataSize = extra;
  const ByteVector bytes = Counting(ZMV_MAX_EXTRA_DATA);
  std::memcpy(video.abExtraData, bytes.data(), bytes.size());
  return video;
}

ByteVector PlainVideoHeader() {
  return Join({
      Le32(40),      // header size, whatever follows
      Le32(640),     // width
      Le32(360),     // height
      Le16(0),       // planes
      Le16(24),      // bit count
      Text("H264"),  // compression
      Zeros(20),     // image size, resolutions, colours
  });
}

TEST_F(MediaFormat, PutVideo_NoExtraData_Writes40Bytes) {
  const ZMVVideoInfo video = Video(0);
  uint32_t count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutVideoFormat(s, c, &video); }),
            PlainVideoHeader());
  EXPECT_EQ(count, 40u);
}

TEST_F(MediaFormat, PutVideo_23ExtraBytes_TakesTheNextByteOfTheRecordAsPad) {
  const ZMVVideoInfo video = Video(23);
  uint32_t count = 0;
  EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutVideoFormat(s, c, &video); }),
            Join({PlainVideoHeader(), Counting(24)}));
  EXPECT_EQ(count, 64u);
}

TEST_F(MediaFormat, PutVideo_SizeAtAndBeyondTheRecord_Writes512ExtraBytes) {
  for (const uint32_t size : {511u, 512u, 513u, 0xFFFFFFFFu}) {
    const ZMVVideoInfo video = Video(size);
    uint32_t count = 0;
    EXPECT_EQ(Written([&](ZMVStreamBuf* s, uint32_t c) { count = StreamPutVideoFormat(s, c, &video); }),
              Join({PlainVideoHeader(), Counting(512)}))
        << size;
    EXPECT_EQ(count, 552u) << size;
  }
}

TEST_F(MediaFormat, PutVideo_WriteFails_ReturnsTheCountAllTheSame) {
  const ZMVVideoInfo video = Video(23);
  TestStream stream(kPath, ZMV_STREAM_WRITE);
  host_.Fail(HostCall::kWrite, 1, ScriptedHost::kForGood);
  EXPECT_EQ(StreamPutVideoFormat(stream.Get(), stream.Cursor(), &video), 64u);
}

// ---- Reading audio

TEST_F(MediaFormat, GetAudio_16Bytes_ReadsBackUnchanged) {
  const ZMVAudioInfo audio = ReadAudio(PcmForm(), 16);
  const ZMVAudioInfo expected = Pcm();
  EXPECT_TRUE(SameFields(audio, expected));
  EXPECT_EQ(position_, 16u);
}

TEST_F(MediaFormat, GetAudio_ExtraWithinTheChunk_IsTakenAndTheRestSkipped) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(4), Counting(4), Hex("EE EE"), Text("next")}), 24);
  EXPECT_EQ(audio.dwExtraDataSize, 4u);
  EXPECT_EQ(Extra(audio.abExtraData, 5), Hex("01 02 03 04 00"));
  EXPECT_EQ(position_, 24u);
}

TEST_F(MediaFormat, GetAudio_ExtraBeyondTheChunk_IsSkipped) {
  ZMVAudioInfo before{};
  before.dwExtraDataSize = kUntouched;
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(4), Hex("EE EE"), Text("next")}), 20, before);
  EXPECT_EQ(audio.dwExtraDataSize, kUntouched);
  EXPECT_EQ(audio.abExtraData[0], 0);
  EXPECT_EQ(position_, 20u);
}

TEST_F(MediaFormat, GetAudio_ExtraSizeZero_SkipsTheRest) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(0), Hex("EE EE EE")}), 21);
  EXPECT_EQ(audio.dwExtraDataSize, 0u);
  EXPECT_EQ(position_, 21u);
}

TEST_F(MediaFormat, GetAudio_512ExtraBytes_AreTaken) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(512), Counting(512)}), 530);
  EXPECT_EQ(audio.dwExtraDataSize, 512u);
  EXPECT_EQ(Extra(audio.abExtraData, 512), Counting(512));
  EXPECT_EQ(audio.dwBufferSize, 0u);
}

TEST_F(MediaFormat, GetAudio_513ExtraBytes_AreSkippedWhole) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(513), Counting(513)}), 531);
  EXPECT_EQ(audio.dwExtraDataSize, 0u);
  EXPECT_EQ(audio.abExtraData[0], 0);
  EXPECT_EQ(position_, 531u);
}

TEST_F(MediaFormat, GetAudio_17Bytes_GivesSixFieldsAndEndsAtTheChunk) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Hex("FF"), Text("next")}), 17);
  EXPECT_EQ(audio.dwBitsPerSample, 16u);
  EXPECT_EQ(audio.dwExtraDataSize, 0u);
  EXPECT_EQ(position_, 17u);
}

TEST_F(MediaFormat, GetAudio_ShortChunk_GivesTheFieldsWithinItAndEndsThere) {
  ZMVAudioInfo before{};
  before.dwFormat = before.dwChannels = before.dwSampleRate = before.dwBitRate = kUntouched;
  before.dwBlockAlign = before.dwBitsPerSample = kUntouched;
  for (uint32_t size = 0; size < 16; ++size) {
    const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Zeros(32)}), size, before);
    EXPECT_EQ(audio.dwFormat, size >= 2 ? 1u : kUntouched) << size;
    EXPECT_EQ(audio.dwChannels, size >= 4 ? 2u : kUntouched) << size;
    EXPECT_EQ(audio.dwSampleRate, size >= 8 ? 48000u : kUntouched) << size;
    EXPECT_EQ(audio.dwBitRate, size >= 12 ? 1536000u : kUntouched) << size;
    EXPECT_EQ(audio.dwBlockAlign, size >= 14 ? 4u : kUntouched) << size;
    EXPECT_EQ(audio.dwBitsPerSample, kUntouched) << size;
    EXPECT_EQ(position_, size);
  }
}

TEST_F(MediaFormat, GetAudio_FileEndsInTheChunk_GivesZeros) {
  ZMVAudioInfo before{};
  before.dwBlockAlign = before.dwBitsPerSample = kUntouched;
  ByteVector cut = PcmForm();
  cut.resize(12);
  const ZMVAudioInfo audio = ReadAudio(cut, 40, before);
  EXPECT_EQ(audio.dwSampleRate, 48000u);
  EXPECT_EQ(audio.dwBlockAlign, 0u);
  EXPECT_EQ(audio.dwBitsPerSample, 0u);
  EXPECT_EQ(audio.dwExtraDataSize, 0u);
}

TEST_F(MediaFormat, GetAudio_FileEndsInTheExtraBytes_LeavesZerosBehindThem) {
  ZMVAudioInfo before{};
  std::memset(before.abExtraData, 0xCC, sizeof before.abExtraData);
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(4), Hex("0A 0B")}), 22, before);
  EXPECT_EQ(audio.dwExtraDataSize, 4u);
  EXPECT_EQ(Extra(audio.abExtraData, 5), Hex("0A 0B 00 00 CC"));
}

TEST_F(MediaFormat, GetAudio_ChunkPast4GiB_DoesNotWrap) {
  const ZMVAudioInfo audio = ReadAudio(Join({PcmForm(), Le16(2), Counting(2), Text("more")}), 0xFFFFFFFF);
  EXPECT_EQ(audio.dwExtraDataSize, 2u);
  EXPECT_EQ(position_, 20u);  // the chunk's end cannot be reached
}

// ---- Reading video

TEST_F(MediaFormat, GetVideo_40Bytes_LeavesTheExtraSizeUntouched) {
  ZMVVideoInfo before{};
  before.dwExtraDataSize = kUntouched;
  const ZMVVideoInfo video = ReadVideo(VideoForm(0), 40, before);
  EXPECT_EQ(video.dwWidth, 640u);
  EXPECT_EQ(video.dwHeight, 360u);
  EXPECT_EQ(video.dwBitCount, 24u);
  EXPECT_EQ(video.dwFourCC, ZMV_FOURCC('H', '2', '6', '4'));
  EXPECT_EQ(video.dwExtraDataSize, kUntouched);
  EXPECT_EQ(position_, 40u);
}

TEST_F(MediaFormat, GetVideo_ExtraBytes_AreAllTaken) {
  const ZMVVideoInfo video = ReadVideo(Join({VideoForm(23), Text("next")}), 63);
  EXPECT_EQ(video.dwExtraDataSize, 23u);
  EXPECT_EQ(Extra(video.abExtraData, 24), Join({Counting(23), Zeros(1)}));
  EXPECT_EQ(position_, 63u);
}

TEST_F(MediaFormat, GetVideo_514ExtraBytes_Takes512AndSkipsTheRest) {
  const ZMVVideoInfo video = ReadVideo(Join({VideoForm(514), Text("next")}), 554);
  EXPECT_EQ(video.dwExtraDataSize, 512u);
  EXPECT_EQ(Extra(video.abExtraData, 512), Counting(512));
  EXPECT_EQ(video.dwBufferSize, 0u);
  EXPECT_EQ(position_, 554u);
}

TEST_F(MediaFormat, GetVideo_ShortChunk_GivesTheFieldsWithinItAndEndsThere) {
  ZMVVideoInfo before{};
  before.dwWidth = before.dwHeight = before.dwBitCount = before.dwFourCC = before.dwExtraDataSize = kUntouched;
  for (uint32_t size = 0; size < 40; ++size) {
    const ZMVVideoInfo video = ReadVideo(VideoForm(8), size, before);
    EXPECT_EQ(video.dwWidth, size >= 8 ? 640u : kUntouched) << size;
    EXPECT_EQ(video.dwHeight, size >= 12 ? 360u : kUntouched) << size;
    EXPECT_EQ(video.dwBitCount, size >= 16 ? 24u : kUntouched) << size;
    EXPECT_EQ(video.dwFourCC, size >= 20 ? ZMV_FOURCC('H', '2', '6', '4') : kUntouched) << size;
    EXPECT_EQ(video.dwExtraDataSize, kUntouched) << size;
    EXPECT_EQ(position_, size);
  }
}

// A description that was used before: every field of it must go.
ZMVVideoInfo UsedVideo() {
  ZMVVideoInfo video{};
  video.dwWidth = video.dwHeight = video.dwBitCount = video.dwFourCC = video.dwExtraDataSize = kUntouched;
  std::memset(video.abExtraData, 0xCC, sizeof video.abExtraData);
  return video;
}

TEST_F(MediaFormat, GetVideo_FileEndsBeforeAField_GivesZeroThere) {
  for (uint32_t left = 0; left <= 40; ++left) {
    ByteVector cut = VideoForm(0);
    cut.resize(left);
    const ZMVVideoInfo video = ReadVideo(cut, 100, UsedVideo());
    EXPECT_EQ(video.dwWidth, left >= 8 ? 640u : 0u) << left;
    EXPECT_EQ(video.dwHeight, left >= 12 ? 360u : 0u) << left;
    EXPECT_EQ(video.dwBitCount, left >= 16 ? 24u : 0u) << left;
    EXPECT_EQ(video.dwFourCC, left >= 20 ? ZMV_FOURCC('H', '2', '6', '4') : 0u) << left;
    EXPECT_EQ(video.dwExtraDataSize, 60u) << left;
    EXPECT_EQ(Extra(video.abExtraData, 61), Join({Zeros(60), Hex("CC")})) << left;
  }
}

TEST_F(MediaFormat, GetVideo_FileEndsInTheExtraBytes_LeavesZerosBehindThem) {
  const ZMVVideoInfo video = ReadVideo(VideoForm(2), 44, UsedVideo());
  EXPECT_EQ(video.dwExtraDataSize, 4u);
  EXPECT_EQ(Extra(video.abExtraData, 5), Hex("01 02 00 00 CC"));
}

TEST_F(MediaFormat, GetVideo_FileEndsAndTheChunkIsLarge_Gives512ZeroBytes) {
  ByteVector cut = VideoForm(0);
  cut.resize(30);
  const ZMVVideoInfo video = ReadVideo(cut, 0xFFFFFFFF, UsedVideo());
  EXPECT_EQ(video.dwExtraDataSize, 512u);
  EXPECT_EQ(Extra(video.abExtraData, 512), Zeros(512));
}

// The chunk ends first: what lies behind its end stays, whatever the file holds.
TEST_F(MediaFormat, GetVideo_ShortChunkInAFileThatEnds_ZeroesItsOwnFieldsOnly) {
  ByteVector cut = VideoForm(0);
  cut.resize(10);
  const ZMVVideoInfo video = ReadVideo(cut, 17, UsedVideo());
  EXPECT_EQ(video.dwWidth, 640u);
  EXPECT_EQ(video.dwHeight, 0u);
  EXPECT_EQ(video.dwBitCount, 0u);
  EXPECT_EQ(video.dwFourCC, kUntouched);
  EXPECT_EQ(video.dwExtraDataSize, kUntouched);
}

TEST_F(MediaFormat, GetVideo_WhatStreamPutWrote_ReadsBack) {
  const ZMVVideoInfo written = Video(24);
  Written([&](ZMVStreamBuf* s, uint32_t c) { StreamPutVideoFormat(s, c, &written); });
  TestStream stream(kPath, ZMV_STREAM_READ);
  ZMVVideoInfo read{};
  StreamGetVideoFormat(stream.Get(), stream.Cursor(), 64, &read);
  EXPECT_EQ(read.dwWidth, written.dwWidth);
  EXPECT_EQ(read.dwFourCC, written.dwFourCC);
  EXPECT_EQ(Extra(read.abExtraData, 24), Counting(24));
}

// ---- Decoding from memory

TEST(MediaFormatMem, Audio_17Bytes_SixFieldsNoExtraData) {
  const ByteVector form = Join({PcmForm(), Hex("FF")});
  ZMVAudioInfo audio{};
  GetAudioFormatMem(form.data(), 17, &audio);
  const ZMVAudioInfo expected = Pcm();
  EXPECT_TRUE(SameFields(audio, expected));
}

TEST(MediaFormatMem, Audio_20BytesSizeWord2_TakesTwo) {
  const ByteVector form = Join({PcmForm(), Le16(2), Hex("12 10")});
  ZMVAudioInfo audio{};
  GetAudioFormatMem(form.data(), 20, &audio);
  EXPECT_EQ(audio.dwExtraDataSize, 2u);
  EXPECT_EQ(Extra(audio.abExtraData, 2), Hex("12 10"));
}

TEST(MediaFormatMem, Audio_20BytesSizeWord3_TakesNone) {
  const ByteVector form = Join({PcmForm(), Le16(3), Hex("12 10")});
  ZMVAudioInfo audio{};
  GetAudioFormatMem(form.data(), 20, &audio);
  EXPECT_EQ(audio.dwExtraDataSize, 0u);
  EXPECT_EQ(audio.abExtraData[0], 0);
}

TEST(MediaFormatMem, Audio_Below16Bytes_DoesNothing) {
  ZMVAudioInfo audio{};
  for (uint32_t size = 0; size < 16; ++size) GetAudioFormatMem(PcmForm().data(), size, &audio);
  const ZMVAudioInfo untouched{};
  EXPECT_TRUE(SameFields(audio, untouched));
}

TEST(MediaFormatMem, Audio_MoreExtraThanTheRecordHolds_TakesNone) {
  const ByteVector full = Join({PcmForm(), Le16(512), Counting(512)});
  ZMVAudioInfo audio{};
  GetAudioFormatMem(full.data(), static_cast<uint32_t>(full.size()), &audio);
  EXPECT_EQ(audio.dwExtraDataSize, 512u);
  const ByteVector beyond = Join({PcmForm(), Le16(513), Counting(513)});
  ZMVAudioInfo other{};
  GetAudioFormatMem(beyond.data(), static_cast<uint32_t>(beyond.size()), &other);
  EXPECT_EQ(other.dwExtraDataSize, 0u);
}

TEST(MediaFormatMem, Video_40And63Bytes_TakesWhatIsBehindTheHeader) {
  ZMVVideoInfo video{};
  video.dwExtraDataSize = kUntouched;
  GetVideoFormatMem(VideoForm(0).data(), 40, &video);
  EXPECT_EQ(video.dwFourCC, ZMV_FOURCC('H', '2', '6', '4'));
  EXPECT_EQ(video.dwWidth, 640u);
  EXPECT_EQ(video.dwHeight, 360u);
  EXPECT_EQ(video.dwBitCount, 24u);
  EXPECT_EQ(video.dwExtraDataSize, kUntouched);
  GetVideoFormatMem(VideoForm(23).data(), 63, &video);
  EXPECT_EQ(video.dwExtraDataSize, 23u);
  EXPECT_EQ(Extra(video.abExtraData, 23), Counting(23));
}

TEST(MediaFormatMem, Video_Below40Bytes_DoesNothing) {
  ZMVVideoInfo video{};
  for (uint32_t size = 0; size < 40; ++size) GetVideoFormatMem(VideoForm(0).data(), size, &video);
  const ZMVVideoInfo untouched{};
  EXPECT_EQ(std::memcmp(&video, &untouched, sizeof video), 0);
}

TEST(MediaFormatMem, Video_514ExtraBytes_Takes512) {
  ZMVVideoInfo video{};
  GetVideoFormatMem(VideoForm(514).data(), 554, &video);
  EXPECT_EQ(video.dwExtraDataSize, 512u);
  EXPECT_EQ(Extra(video.abExtraData, 512), Counting(512));
  EXPECT_EQ(video.dwBufferSize, 0u);
}

}  // namespace
}  // namespace zmv::test
