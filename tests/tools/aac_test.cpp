#include "tools/zmv/aac.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/temp_folder.h"

namespace zmv::tool {
namespace {

using testing::ElementsAre;

TEST(AudioSpecificConfig, LowComplexity48kHzStereo_ReadsAndWrites) {
  const Bytes config = {0x11, 0x90};  // type 2, frequency 3, channels 2
  const auto parsed = ParseAudioSpecificConfig(config);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->object_type, 2);
  EXPECT_EQ(parsed->frequency_index, 3);
  EXPECT_EQ(parsed->channel_config, 2);
  EXPECT_THAT(MakeAudioSpecificConfig(*parsed), ElementsAre(0x11, 0x90));
}

TEST(AudioSpecificConfig, SpectralReplication_GivesItsCore) {
  // type 5, frequency 6 (24000), channels 2, extension frequency 3 (48000), core type 2
  const Bytes config = {0x2B, 0x11, 0x88};
  const auto parsed = ParseAudioSpecificConfig(config);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->object_type, 2);
  EXPECT_EQ(parsed->frequency_index, 6);
  EXPECT_EQ(parsed->channel_config, 2);
}

TEST(AudioSpecificConfig, WhatAdtsCannotSay_GivesNothing) {
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{}));
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0x11}));
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0x17, 0x90}));  // rate written out
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0x11, 0x80}));  // channels written out
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0xB9, 0x90}));  // type 23
}

TEST(AdtsHeader, FrameOf100Bytes_HasEveryField) {
  const auto header = MakeAdtsHeader({2, 3, 2}, 100);
  ASSERT_TRUE(header);
  EXPECT_THAT(*header, ElementsAre(0xFF, 0xF1,  // sync, MPEG-4, no checksum
                                   0x4C,        // profile 1, frequency 3, channels 2 (top bit)
                                   0x80,        // channels 2 (low bits), length 107 (top bits)
                                   0x0D,        // length
                                   0x7F,        // length, fullness
                                   0xFC));      // fullness, one block
}

TEST(AdtsHeader, LongestFrame_FitsAndOneByteMoreDoesNot) {
  EXPECT_TRUE(MakeAdtsHeader({2, 3, 2}, 8191 - 7));
  EXPECT_FALSE(MakeAdtsHeader({2, 3, 2}, 8191 - 6));
}

TEST(AdtsFrame, HeaderMadeHere_ReadsBack) {
  Bytes stream(7 + 5 + 3, 0xEE);
  const auto header = MakeAdtsHeader({2, 11, 1}, 5);
  std::copy(header->begin(), header->end(), stream.begin());
  const auto frame = ParseAdtsFrame(stream);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->size, 12u);
  EXPECT_EQ(frame->payload.size(), 5u);
  EXPECT_EQ(frame->payload.data(), stream.data() + 7);
  EXPECT_EQ(frame->config.object_type, 2);
  EXPECT_EQ(frame->config.frequency_index, 11);
  EXPECT_EQ(frame->config.channel_config, 1);
  EXPECT_EQ(AacSampleRate(11), 8000u);
}

TEST(AdtsFrame, CutOrForeignBytes_GiveNothing) {
  Bytes stream(12, 0);
  EXPECT_FALSE(ParseAdtsFrame(stream));
  const auto header = MakeAdtsHeader({2, 3, 2}, 5);
  std::copy(header->begin(), header->end(), stream.begin());
  EXPECT_TRUE(ParseAdtsFrame(stream));
  stream.pop_back();
  EXPECT_FALSE(ParseAdtsFrame(stream));
  EXPECT_FALSE(ParseAdtsFrame(ByteView(stream).first(6)));
  stream.resize(12);
  stream[3] = 0x80;
  stream[4] = 0;  // a length below the header's own
  EXPECT_FALSE(ParseAdtsFrame(stream));
}

TEST(AdtsFrame, WholeSample_IsAChainOfFramesWhoseHeadersComeBack) {
  const Bytes sample = ReadBytes(Sample("drive_aac.aac"));
  ByteView rest(sample);
  unsigned frames = 0;
  while (const auto frame = ParseAdtsFrame(rest)) {
    const auto header = MakeAdtsHeader(frame->config, frame->payload.size());
    ASSERT_TRUE(header);
    ASSERT_TRUE(std::equal(header->begin(), header->end(), rest.begin())) << "frame " << frames;
    rest = rest.subspan(frame->size);
    ++frames;
  }
  EXPECT_TRUE(rest.empty());
  EXPECT_EQ(frames, 283u);
}

}  // namespace
}  // namespace zmv::tool
