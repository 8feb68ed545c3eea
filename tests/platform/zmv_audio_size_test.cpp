#include <gtest/gtest.h>

#include "base/zmv_fourcc.h"
#include "platform/zmv_codec.h"

namespace {

TEST(GetAudioSampleSize, Aac_Gives1024) {
  for (const uint32_t tag : {0xFFu, 0xFEu, 0xFDu, 0x1600u, 0x1601u, 0x1602u, 0x1610u, 0x706Du}) {
    EXPECT_EQ(ZMVUtil_GetAudioSampleSize(tag), 1024u) << std::hex << tag;
  }
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('m', 'p', '4', 'a')), 1024u);
}

TEST(GetAudioSampleSize, MpegAudio_Gives1152) {
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x50), 1152u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x55), 1152u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('.', 'm', 'p', '3')), 1152u);
}

TEST(GetAudioSampleSize, DolbyDigital_Gives1536) {
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x2000), 1536u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('a', 'c', '-', '3')), 1536u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('e', 'c', '-', '3')), 1536u);
}

TEST(GetAudioSampleSize, SpeechCodecs_GiveTheirFrames) {
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('s', 'a', 'm', 'r')), 160u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('s', 'a', 'w', 'b')), 320u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x57), 160u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x58), 320u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x31), 320u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0x42), 240u);
}

TEST(GetAudioSampleSize, FormatsWithoutFrames_GiveZero) {
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(1), 0u);        // PCM
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(6), 0u);        // A-law
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(7), 0u);        // mu-law
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0xF7774), 0u);  // little-endian PCM
}

TEST(GetAudioSampleSize, UnknownTag_GivesZero) {
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0), 0u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(0xFFFFFFFFu), 0u);
  EXPECT_EQ(ZMVUtil_GetAudioSampleSize(ZMV_FOURCC('a', 'v', 'c', '1')), 0u);
}

}  // namespace
