#include <cstring>

#include "base/fourcc.h"
#include "stream/format_forms.h"
#include "stream/zmvstream_buf.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class FormatTest : public StreamTest {
 protected:
  FormatTest() : handle(WriteHandle()) {}

  ByteVector& Written() { return host.File("out"); }
  // The bytes behind the 40-byte header.
  ByteVector ExtraWritten() { return ByteVector(Written().begin() + 40, Written().end()); }
  uint32_t HeaderSizeWord() { return Written()[0] | uint32_t{Written()[1]} << 8; }
  int64_t Put(const ZMVVideoInfo& video) { return ZMVStreamBuf_PutVideoFormat(handle, 0, &video); }
  int64_t Put(const ZMVAudioInfo& audio) { return ZMVStreamBuf_PutAudioFormat(handle, 0, &audio); }

  ZMVStreamBuf* handle;
};

ZMVAudioInfo PcmAudio() {
  ZMVAudioInfo audio = {};
  audio.dwFormat = ZMV_AUDIO_PCM;
  audio.dwChannels = 2;
  audio.dwSampleRate = 48000;
  audio.dwBitRate = 1536000;
  audio.dwBlockAlign = 4;
  audio.dwBitsPerSample = 16;
  return audio;
}

ZMVVideoInfo Video(const char (&fourcc)[5], const ByteVector& extra) {
  ZMVVideoInfo video = {};
  std::memcpy(&video.dwFourCC, fourcc, 4);
  video.dwWidth = 16;
  video.dwHeight = 16;
  std::memset(video.abExtraData, 0x77, sizeof video.abExtraData);
  std::copy(extra.begin(), extra.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(extra.size());
  return video;
}

TEST_F(FormatTest, Audio_WithoutExtraData_IsSixteenBytes) {
  EXPECT_EQ(Put(PcmAudio()), 16);
  EXPECT_EQ(Written(), Hex("0100"      // format tag
                           "0200"      // channels
                           "80BB0000"  // samples per second
                           "00EE0200"  // bytes per second
                           "0400"      // block align
                           "1000"));   // bits per sample
}

TEST_F(FormatTest, Audio_WithThreeExtraBytes_GetsNoPadByte) {
  ZMVAudioInfo audio = PcmAudio();
  audio.dwExtraDataSize = 3;
  std::memcpy(audio.abExtraData, "\x11\x22\x33\x44", 4);
  EXPECT_EQ(Put(audio), 21);
  EXPECT_EQ(Written(), Hex("0100 0200 80BB0000 00EE0200 0400 1000"
                           "0300"         // extra size
                           "11 22 33"));  // extra bytes
}

TEST_F(FormatTest, Audio_WithMoreExtraDataThanItHolds_WritesWhatItHolds) {
  ZMVAudioInfo audio = PcmAudio();
  audio.dwExtraDataSize = 0xFFFFFFFF;
  std::memset(audio.abExtraData, 0x5A, sizeof audio.abExtraData);
  EXPECT_EQ(Put(audio), 18 + 512);
  ASSERT_EQ(Written().size(), 530u);
  EXPECT_EQ(Written()[16] | Written()[17] << 8, 512);
  EXPECT_EQ(Written().back(), 0x5A);
}

TEST_F(FormatTest, Audio_InMemory_IsTheSameForm) {
  ZMVAudioInfo audio = PcmAudio();
  audio.dwExtraDataSize = 2;
  uint8_t form[stream::kMaxAudioFormSize];
  const uint32_t size = stream::MakeAudioForm(audio, form);
  EXPECT_EQ(Put(audio), size);
  EXPECT_EQ(Written(), ByteVector(form, form + size));
}

TEST_F(FormatTest, Audio_WhoseWriteFails_ReportsIt) {
  host.file_capacity = 0;
  EXPECT_EQ(Put(PcmAudio()), int64_t{Result(ZMV_E_WRITE)});
}

TEST_F(FormatTest, Video_HevcBehindAFourByteStartCode_IsWrittenAsItStands) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 00 01 40 01 0C"))), 48);
  EXPECT_EQ(Written(), Hex("30000000"                             // header size: 40 and 8 extra bytes
                           "10000000"                             // width
                           "10000000"                             // height
                           "0100"                                 // planes
                           "1800"                                 // bit count
                           "68766331"                             // compression
                           "00030000"                             // image size
                           "00000000 00000000 00000000 00000000"  // resolution, colours
                           "00 00 00 01 40 01 0C"                 // configuration
                           "00"));                                // pad
}

TEST_F(FormatTest, Video_HevcBehindAThreeByteStartCode_LosesItsLastByteToTheLongerOne) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01 40 AA BB CC"))), 48);
  EXPECT_EQ(HeaderSizeWord(), 48u);
  EXPECT_EQ(ExtraWritten(), Hex("00 00 00 01 40 AA BB 00"));
}

TEST_F(FormatTest, Video_WithAThreeByteStartCode_DoesNotTestItsSecondByte) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 99 01 40 00 BB"))), 46);
  EXPECT_EQ(ExtraWritten(), Hex("00 00 00 01 40 00"));
}

TEST_F(FormatTest, Video_WithEvenExtraDataThatEndsInNonZero_IsFollowedByAZeroWord) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 00 01 40 0C"))), 48);
  EXPECT_EQ(HeaderSizeWord(), 46u);  // does not count the word
  EXPECT_EQ(ExtraWritten(), Hex("00 00 00 01 40 0C 00 00"));
}

TEST_F(FormatTest, Video_WithEvenExtraDataThatEndsInZero_IsNotFollowedByAWord) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 00 01 40 00"))), 46);
  EXPECT_EQ(ExtraWritten(), Hex("00 00 00 01 40 00"));
}

TEST_F(FormatTest, Video_OfEveryHevcCode_GetsItsConfiguration) {
  for (const auto& fourcc : {"hvc1", "HEV1", "hev1", "H265", "HEVC"}) {
    ZMVVideoInfo video = Video("....", Hex("00 00 00 01 40 00"));
    std::memcpy(&video.dwFourCC, fourcc, 4);
    EXPECT_EQ(Put(video), 46) << fourcc;
  }
}

TEST_F(FormatTest, Video_OfAnotherCodec_IsTheHeaderAlone) {
  EXPECT_EQ(Put(Video("H264", Hex("00 00 00 01 67 42 00"))), 40);
  EXPECT_EQ(Written().size(), 40u);
  EXPECT_EQ(HeaderSizeWord(), 40u);
}

TEST_F(FormatTest, Video_WithoutStartCode_IsTheHeaderAlone) {
  EXPECT_EQ(Put(Video("hvc1", Hex("01 00 00 01 40 01"))), 40);
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 02 01 40 01"))), 40);
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 00 02 40 01"))), 40);
  EXPECT_EQ(Written().size(), 120u);
}

TEST_F(FormatTest, Video_WhoseFirstByteIsNotZero_IsTheHeaderAlone) {
  EXPECT_EQ(Put(Video("hvc1", Hex("02 00 01 40 01 0C"))), 40);
  EXPECT_EQ(Written().size(), 40u);
  EXPECT_EQ(HeaderSizeWord(), 40u);
}

TEST_F(FormatTest, Video_WithLessThanAStartCode_IsTheHeaderAlone) {
  EXPECT_EQ(Put(Video("hvc1", {})), 40);
  EXPECT_EQ(Put(Video("hvc1", Hex("00"))), 40);
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01"))), 40);
  EXPECT_EQ(Written().size(), 120u);
}

TEST_F(FormatTest, Video_WithABareStartCode_WritesIt) {
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01 40"))), 46);
  EXPECT_EQ(ExtraWritten(), Hex("00 00 00 01 00 00"));
}

TEST_F(FormatTest, Video_WithMoreExtraDataThanItHolds_WritesWhatItHolds) {
  ZMVVideoInfo video = Video("hvc1", Hex("00 00 00 01"));
  video.dwExtraDataSize = 600;
  EXPECT_EQ(Put(video), 40 + 512 + 2);
  EXPECT_EQ(HeaderSizeWord(), 552u);
}

TEST_F(FormatTest, Video_BitCount_SizesTheImage) {
  ZMVVideoInfo video = Video("H264", {});
  video.dwWidth = 3;
  video.dwHeight = 5;
  video.dwBitCount = 32;
  EXPECT_EQ(Put(video), 40);
  EXPECT_EQ(ByteVector(Written().begin() + 14, Written().begin() + 24), Hex("2000 48323634 3C000000"));  // 3 * 5 * 4
}

TEST_F(FormatTest, Video_BytesOfAPixel_AreTakenIn13Bits) {
  ZMVVideoInfo video = Video("H264", {});
  video.dwWidth = 3;
  video.dwHeight = 5;
  video.dwBitCount = 0x10010;  // 0x2002 bytes, of which 2 remain
  EXPECT_EQ(Put(video), 40);
  EXPECT_EQ(ByteVector(Written().begin() + 14, Written().begin() + 24), Hex("1000 48323634 1E000000"));
  video.dwBitCount = 0xFFF8;  // 0x1FFF bytes
  EXPECT_EQ(Put(video), 40);
  EXPECT_EQ(ByteVector(Written().begin() + 60, Written().begin() + 64), Le32(15 * 0x1FFF));
}

TEST_F(FormatTest, Video_AllZeroDescription_IsTheTextForm) {
  const ZMVVideoInfo video = {};
  EXPECT_EQ(Put(video), 40);
  EXPECT_EQ(Written(), Join({Hex("28000000"),   // header size
                             Zeros(8),          // width, height
                             Hex("0100 1800"),  // planes, bit count
                             Zeros(24)}));
}

TEST_F(FormatTest, Video_WithoutMemoryForTheConversion_WritesNothing) {
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01 40 AA BB CC"))), int64_t{Result(ZMV_E_MEMORY)});
  EXPECT_TRUE(Written().empty());
}

TEST_F(FormatTest, Video_WithAnyWriteFailing_ReportsItAndLeaksNothing) {
  const uint64_t blocks = host.LiveBlocks();
  for (uint64_t nth = 1; nth <= 3; ++nth) {
    host.Fail(HostCall::kWrite, nth);
    EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01 40 AA BB CC"))), int64_t{Result(ZMV_E_WRITE)});
    EXPECT_EQ(host.LiveBlocks(), blocks);
  }
  EXPECT_EQ(Put(Video("hvc1", Hex("00 00 01 40 AA BB CC"))), 48);
}

TEST_F(FormatTest, Forms_OnAHandleThatCannotWrite_AreNotSupported) {
  ZMVStreamBuf reader = {};
  const ZMVVideoInfo video = {};
  const ZMVAudioInfo audio = {};
  EXPECT_EQ(Code(ZMVStreamBuf_PutVideoFormat(&reader, 0, &video)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Code(ZMVStreamBuf_PutAudioFormat(&reader, 0, &audio)), ZMV_E_NOT_SUPPORTED);
  EXPECT_THAT(host.Traces(1), ElementsAre("not support writebuffer function\n", "not support writebuffer function\n"));
}

}  // namespace
}  // namespace zmv::test
