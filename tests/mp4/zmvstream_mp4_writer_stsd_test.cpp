#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "base/fourcc.h"
#include "mp4/mp4_writer_boxes.h"
#include "mp4/zmvstream_mp4_writer_records.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint8_t kFiller = 0xEE;
constexpr uint32_t kNone = mp4::kNoSampleDescription;

// A hand-made track, its configuration, and a destination in which untouched bytes show.
class SampleDescription : public ::testing::Test {
 protected:
  MP4WriterTrack& Track(uint32_t media, uint32_t code, ByteVector config = {}) {
    track_ = std::make_unique<MP4WriterTrack>();
    config_ = std::move(config);
    track_->dwMediaType = media;
    track_->dwFourCC = code;
    track_->m_pConfig = config_.empty() ? nullptr : config_.data();
    track_->m_dwConfigSize = static_cast<uint32_t>(config_.size());
    return *track_;
  }
  ByteVector Written(uint32_t size) const { return ByteVector(dst_.begin(), dst_.begin() + size); }
  void ExpectNoMessages() const {
    for (const int level : {1, 2, 3}) EXPECT_THAT(host_.Traces(level), IsEmpty()) << level;
  }
  ByteVector MakeStsd() { return Written(MP4WriterMakeStsd(track_.get(), dst_.data())); }

  ScriptedHost host_;
  std::unique_ptr<MP4WriterTrack> track_;
  ByteVector config_;
  ByteVector dst_ = ByteVector(20 * 1024, kFiller);
};

const ByteVector kEmptyStsd = Join({
    Be32(16), Text("stsd"),  // box
    Be32(0),                 // version, flags
    Be32(1),                 // entry count, which names an entry that is not there
});

// ---- Descriptor lengths

ByteVector DescriptorLength(uint32_t value, uint8_t minimal) {
  uint8_t bytes[8] = {};
  uint8_t* cursor = bytes;
  const uint32_t count = MP4WriterSetDescLength(&cursor, value, minimal);
  EXPECT_EQ(cursor, bytes + count);
  return ByteVector(bytes, bytes + count);
}

TEST(DescriptorLengthTest, Minimal_TakesAByteForEverySevenBits) {
  EXPECT_EQ(DescriptorLength(0, 1), Bytes({0x00}));
  EXPECT_EQ(DescriptorLength(127, 1), Bytes({0x7F}));
  EXPECT_EQ(DescriptorLength(128, 1), Bytes({0x81, 0x00}));
  EXPECT_EQ(DescriptorLength(16383, 1), Bytes({0xFF, 0x7F}));
  EXPECT_EQ(DescriptorLength(16384, 1), Bytes({0x81, 0x80, 0x00}));
  EXPECT_EQ(DescriptorLength(0x1FFFFF, 1), Bytes({0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(DescriptorLength(0x200000, 1), Bytes({0x81, 0x80, 0x80, 0x00}));
}

TEST(DescriptorLengthTest, NotMinimal_AlwaysTakesFourBytes) {
  EXPECT_EQ(DescriptorLength(5, 0), Bytes({0x80, 0x80, 0x80, 0x05}));
  EXPECT_EQ(DescriptorLength(0x0FFFFFFF, 0), Bytes({0xFF, 0xFF, 0xFF, 0x7F}));
}

// ---- Sample entries

TEST_F(SampleDescription, Entry_Head_HasDataReferenceOne) {
  EXPECT_EQ(MP4WriterMakeSampleEntry(dst_.data(), FourCC("mp4s"), 0x1234), 16u);
  EXPECT_EQ(Written(16), Join({
                             Be32(0x1234), Text("mp4s"),  // size and type
                             Zeros(6),                    // reserved
                             Be16(1),                     // data reference index
                         }));
}

TEST_F(SampleDescription, AudioEntry_96000Hz_SpillsItsHighHalfInFrontOfTheRate) {
  Track(ZMV_MEDIA_AUDIO, 0xFF).dwSampleRate = 96000;
  EXPECT_EQ(MP4WriterMakeAudioSampleEntry(track_.get(), dst_.data(), FourCC("mp4a"), 36), 36u);
  EXPECT_EQ(ByteVector(dst_.begin() + 30, dst_.begin() + 36), Hex("00 01 77 00 00 00"));
  EXPECT_EQ(dst_[36], kFiller);
}

TEST_F(SampleDescription, VideoEntry_OtherTypes_HaveNoResolutionNorDepth) {
  Track(ZMV_MEDIA_VIDEO, FourCC("MP4V")).dwWidth = 0x10280;  // the low 16 bits count
  track_->dwHeight = 480;
  EXPECT_EQ(MP4WriterMakeVideoSampleEntry(track_.get(), dst_.data(), FourCC("mp4v"), 86), 86u);
  EXPECT_EQ(Written(87), Join({
                             Be32(86), Text("mp4v"),     // size and type
                             Zeros(6), Be16(1),          // reserved, data reference index
                             Zeros(16),                  // pre-defined and reserved
                             Be16(0x0280), Be16(0x1E0),  // width, height
                             Zeros(8),                   // resolutions
                             Zeros(4), Be16(0),          // reserved, frame count
                             Zeros(32),                  // compressor name
                             Be16(0), Be16(0xFFFF),      // depth, pre-defined
                             Bytes({kFiller}),           // nothing behind
                         }));
}

// ---- esds

TEST_F(SampleDescription, Esds_WithoutConfiguration_KeepsItsOwnLengths) {
  Track(ZMV_MEDIA_AUDIO, 1);
  EXPECT_EQ(MP4WriterMakeEsds(track_.get(), dst_.data(), 0, 0), 35u);
  EXPECT_EQ(Written(35), Join({
                             Be32(0x23), Text("esds"), Be32(0),  // box, version and flags
                             Bytes({0x03, 0x17}), Zeros(3),      // ES descriptor, length 23; ES ID, flags
                             Bytes({0x04, 0x0A}), Zeros(13),     // decoder configuration, length 10
                             Bytes({0x06, 0x01, 0x02}),          // SL configuration
                         }));
  EXPECT_EQ(ByteVector(dst_.begin() + 35, dst_.begin() + 92), Zeros(57));  // the area is cleared ...
  EXPECT_EQ(dst_[92], kFiller);                                            // ... and no more
}

TEST_F(SampleDescription, Esds_LongConfiguration_TakesLongerLengthFields) {
  Track(ZMV_MEDIA_AUDIO, 0xFF, ByteVector(200, 0x5A)).m_dwMaxSize = 0x01020304;
  track_->dwVidExtra = 0x0001F400;
  EXPECT_EQ(MP4WriterMakeEsds(track_.get(), dst_.data(), 0x40, 0x15), 240u);
  EXPECT_EQ(Written(241), Join({
                              Be32(240), Text("esds"), Be32(0),     // box, version and flags
                              Bytes({0x03, 0x81, 0x5F}), Zeros(3),  // 200 + 23; ES ID, flags
                              Bytes({0x04, 0x81, 0x57}),            // 200 + 15
                              Bytes({0x40, 0x15}),                  // object type, stream byte
                              Bytes({0x02, 0x03, 0x04}),            // largest payload, its low 24 bits
                              Be32(128000), Be32(128000),           // maximum and average bit rate
                              Bytes({0x05, 0x81, 0x48}),            // 200
                              ByteVector(200, 0x5A),                // decoder-specific information
                              Bytes({0x06, 0x01, 0x02}),            // SL configuration
                              Bytes({kFiller}),                     // nothing behind
                          }));
}

TEST_F(SampleDescription, Esds_ConfigurationBeyondTheBoxBuffer_IsRefused) {
  Track(ZMV_MEDIA_AUDIO, 0xFF, ByteVector(16267, 0x5A));
  EXPECT_EQ(MP4WriterMakeEsds(track_.get(), dst_.data(), 0x40, 0x15), 16267u + 40u);
  Track(ZMV_MEDIA_AUDIO, 0xFF, ByteVector(16268, 0x5A));
  EXPECT_EQ(MP4WriterMakeEsds(track_.get(), dst_.data(), 0x40, 0x15), kNone);
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  ExpectNoMessages();
}

// ---- stsd

TEST_F(SampleDescription, Aac_TwoByteConfiguration_GivesThirtyNineBytesOfEsds) {
  Track(ZMV_MEDIA_AUDIO, 0xFF, Hex("11 90"));
  track_->dwChannels = 2;
  track_->dwSampleRate = 48000;
  track_->dwBitsPerSample = 16;
  track_->dwVidExtra = 128000;
  track_->m_dwMaxSize = 371;
  // clang-format off
  const ByteVector expected = Join({
      Be32(91), Text("stsd"), Be32(0), Be32(1),     // box, version and flags, one entry
      Be32(75), Text("mp4a"), Zeros(6), Be16(1),    // entry, data reference index
      Zeros(8),                                     // reserved
      Be16(2), Be16(16), Zeros(2),                  // channels, bits, pre-defined
      Bytes({0x00, 0x00, 0xBB, 0x80, 0x00, 0x00}),  // 48000 Hz
      Be32(39), Text("esds"), Be32(0),              // box, version and flags
      Bytes({0x03, 25, 0, 0, 0}),                   // ES descriptor
      Bytes({0x04, 17, 0x40, 0x15}),                // decoder configuration: AAC, audio
      Bytes({0x00, 0x01, 0x73}),                    // largest payload
      Be32(128000), Be32(128000),                   // maximum and average bit rate
      Bytes({0x05, 2, 0x11, 0x90}),                 // AudioSpecificConfig
      Bytes({0x06, 1, 2}),                          // SL configuration
  });
  // clang-format on
  EXPECT_EQ(Difference(MakeStsd(), expected), "");
  for (uint32_t code : {0xFEu, 0xFDu}) {
    track_->dwFourCC = code;
    EXPECT_EQ(Difference(MakeStsd(), expected), "") << code;
  }
}

TEST_F(SampleDescription, Audio_EveryCode_ChoosesItsEntryAndObjectType) {
  struct Row {
    uint32_t code;
    const char* type;
    uint8_t object_type;
    uint8_t stream_type;
  };
  for (const Row& row : {Row{0x55, "mp4a", 0x6B, 0x15}, Row{1, "lpcm", 0, 0}, Row{6, "alaw", 0, 0},
                         Row{7, "ulaw", 0, 0}, Row{0xF7774, "sowt", 0, 0}}) {
    Track(ZMV_MEDIA_AUDIO, row.code);
    const ByteVector stsd = MakeStsd();
    ASSERT_EQ(stsd.size(), 16u + 36u + 35u) << row.type;
    EXPECT_EQ(ByteVector(stsd.begin() + 20, stsd.begin() + 24), Text(row.type));
    EXPECT_EQ(stsd[16 + 36 + 19], row.object_type) << row.type;
    EXPECT_EQ(stsd[16 + 36 + 20], row.stream_type) << row.type;
  }
}

TEST_F(SampleDescription, UnknownCodesAndMedia_GiveAnEmptyBox) {
  Track(ZMV_MEDIA_AUDIO, 2);
  EXPECT_EQ(MakeStsd(), kEmptyStsd);
  Track(ZMV_MEDIA_VIDEO, FourCC("X264"), ByteVector(30000, 1));  // its configuration is not looked at
  EXPECT_EQ(MakeStsd(), kEmptyStsd);
  Track(ZMV_MEDIA_VIDEO, 0xFF);
  EXPECT_EQ(MakeStsd(), kEmptyStsd);
  Track(4, FourCC("MP4S"));
  EXPECT_EQ(MakeStsd(), kEmptyStsd);
  ExpectNoMessages();
}

TEST_F(SampleDescription, Text_TellsMp4sFromOtherCodes) {
  Track(ZMV_MEDIA_TEXT, FourCC("MP4S"));
  const ByteVector head = Join({
      Be32(67), Text("stsd"), Be32(0), Be32(1),   // box, version and flags, one entry
      Be32(51), Text("mp4s"), Zeros(6), Be16(1),  // entry, data reference index
      Be32(35), Text("esds"), Be32(0),            // box, version and flags
      Bytes({0x03, 23, 0, 0, 0, 0x04, 10}),       // descriptors
  });
  const ByteVector tail = Join({Zeros(11), Bytes({0x06, 1, 2})});
  EXPECT_EQ(Difference(MakeStsd(), Join({head, Bytes({0xD3, 0x81}), tail})), "");
  track_->dwFourCC = FourCC("gps0");
  EXPECT_EQ(Difference(MakeStsd(), Join({head, Bytes({0x00, 0x00}), tail})), "");
}

TEST_F(SampleDescription, Mp4v_GetsEsds) {
  Track(ZMV_MEDIA_VIDEO, FourCC("MP4V"));
  const ByteVector stsd = MakeStsd();
  ASSERT_EQ(stsd.size(), 16u + 86u + 35u);
  EXPECT_EQ(ByteVector(stsd.begin() + 16, stsd.begin() + 24), Join({Be32(121), Text("mp4v")}));
  EXPECT_EQ(ByteVector(stsd.begin() + 102, stsd.begin() + 110), Join({Be32(35), Text("esds")}));
  EXPECT_EQ(stsd[102 + 19], 0x20);
  EXPECT_EQ(stsd[102 + 20], 0x11);
}

// ---- H.264

const ByteVector kAvcSps = Hex("67 42 C0 0A DA 08 18");
const ByteVector kAvcPps = Hex("68 CE 06 E2");

// clang-format off
const ByteVector kAvcStsd = Join({
    Be32(152), Text("stsd"), Be32(0), Be32(1),   // box, version and flags, one entry
    Be32(136), Text("avc1"), Zeros(6), Be16(1),  // entry, data reference index
    Zeros(16),                                   // pre-defined and reserved
    Be16(1920), Be16(1080),                      // width, height
    Be32(0x00480000), Be32(0x00480000),          // 72 dpi
    Zeros(4), Be16(1),                           // reserved, frame count
    Zeros(32),                                   // compressor name
    Be16(0x18), Be16(0xFFFF),                    // depth, pre-defined
    Be32(30), Text("avcC"),                      // box
    Bytes({1, 0x42, 0xC0, 0x0A}),                // version; profile, compatibility, level from the SPS
    Bytes({0xFF, 0xE1}),                         // length size 4, one SPS
    Be16(7), kAvcSps,
    Bytes({1}), Be16(4), kAvcPps,                // one PPS
    Be32(20), Text("btrt"),                      // box
    Be32(0x5601),                                // buffer size, always this
    Be32(4000000), Be32(4000000),                // maximum and average bit rate
});
// clang-format on

TEST_F(SampleDescription, Avc_HasConfigurationAndBitRates) {
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), Join({Be32(1), kAvcSps, Be32(1), kAvcPps}));
  track_->dwWidth = 1920;
  track_->dwHeight = 1080;
  track_->dwVidExtra = 4000000;
  EXPECT_EQ(Difference(MakeStsd(), kAvcStsd), "");
  EXPECT_THAT(host_.Traces(3), ElementsAre("chunk(16) config(19) max_box(16384)\n"));
  for (uint32_t code : {FourCC("AVC1"), FourCC("H264")}) {
    track_->dwFourCC = code;
    EXPECT_EQ(Difference(MakeStsd(), kAvcStsd), "");
  }
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(SampleDescription, Avc_WithoutConfiguration_FallsBackToHighProfile) {
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"));
  EXPECT_EQ(MP4WriterMakeAvcc(track_.get(), dst_.data(), 100), 19u);
  EXPECT_EQ(Written(19), Join({
                             Be32(19), Text("avcC"),        // box
                             Bytes({1, 100, 0, 50}),        // version, profile, compatibility, level
                             Bytes({0xFF, 0xE0, 0}),        // length size 4, no SPS, no PPS
                             Bytes({0xFD, 0xF8, 0xF8, 0}),  // 4:2:0, 8 and 8 bits, no SPS extension
                         }));
}

TEST_F(SampleDescription, Avc_OtherCodes_FallBackToMainProfile) {
  Track(ZMV_MEDIA_VIDEO, FourCC("xvc1"));
  EXPECT_EQ(MP4WriterMakeAvcc(track_.get(), dst_.data(), 100), 15u);
  EXPECT_EQ(Written(15), Join({
                             Be32(15), Text("avcC"),  // box
                             Bytes({1, 77, 0, 50}),   // version, profile, compatibility, level
                             Bytes({0xFF, 0xE0, 0}),  // length size 4, no SPS, no PPS
                         }));
}

TEST_F(SampleDescription, Avc_SetsThatNeedEscaping_GetTheirBytesBack) {
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), Join({Be32(1), Hex("67 42 C0 0A 00 00 01 80"), Be32(1), kAvcPps}));
  const uint32_t size = MP4WriterMakeAvcc(track_.get(), dst_.data(), 100);
  EXPECT_EQ(Written(size), Join({
                               Be32(32), Text("avcC"),                      // box
                               Bytes({1, 0x42, 0xC0, 0x0A, 0xFF, 0xE1}),    // record header
                               Be16(9), Hex("67 42 C0 0A 00 00 03 01 80"),  // 03 put back
                               Bytes({1}), Be16(4), kAvcPps,                // one PPS
                           }));
}

TEST_F(SampleDescription, Avc_CapacityTooSmallOrNoMemory_IsRefused) {
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), Join({Be32(1), kAvcSps, Be32(1), kAvcPps}));
  EXPECT_EQ(MP4WriterMakeAvcc(track_.get(), dst_.data(), 29), kNone);
  EXPECT_EQ(ByteVector(dst_.begin() + 29, dst_.begin() + 32), ByteVector(3, kFiller));
  EXPECT_EQ(MP4WriterMakeAvcc(track_.get(), dst_.data(), 30), 30u);
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(MP4WriterMakeAvcc(track_.get(), dst_.data(), 100), kNone);
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(SampleDescription, Avc_LargestConfiguration_IsBuiltAndOneMoreByteRefused) {
  // One PPS that fills the configuration.
  ByteVector config = Join({Be32(1), kAvcSps, Be32(1), kAvcPps});
  config.resize(16267, 0x55);
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), config);
  // The record: 6 + 2 + 7 + 1 + 2 and the PPS of 16267 - 15 bytes.
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), 16u + 86u + 8u + 18u + 16252u + 20u);
  EXPECT_THAT(host_.Traces(1), IsEmpty());

  config.push_back(0x55);
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), config);
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  EXPECT_THAT(host_.Traces(1), ElementsAre("is too big config. chunk(16) config(16268) max_box(16384)\n"));

  track_->m_dwConfigSize = 0xFFFFFFFF;  // no sum wraps
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  EXPECT_TRUE(host_.Traced("is too big config. chunk(16) config(-1) max_box(16384)\n"));
}

TEST_F(SampleDescription, Avc_EscapingBeyondTheBoxBuffer_IsRefusedWithoutAWriteBehind) {
  // A PPS of zeros grows by half when it is escaped.
  ByteVector config = Join({Be32(1), kAvcSps, Be32(1), kAvcPps});
  config.resize(16266, 0x00);
  config.push_back(0x80);
  Track(ZMV_MEDIA_VIDEO, FourCC("avc1"), config);
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  EXPECT_EQ(ByteVector(dst_.begin() + mp4::kBoxBufferAllocation, dst_.end()),
            ByteVector(dst_.size() - mp4::kBoxBufferAllocation, kFiller));
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

// ---- HEVC

// Main profile, main tier, level 2.0, 176 x 144, 4:2:0, 8 bits; without emulation prevention.
const ByteVector kHevcVps = Hex("40 01 0C 01 FF FF 01 60 00 00 00 90 00 00 00 00 00 3C 92 80 90");
const ByteVector kHevcSps =
    Hex("42 01 01 01 60 00 00 00 90 00 00 00 00 00 3C A0 16 20 24 59 64 A9 24 CA F0 16 80 80 00 00 00 80 00 00 0F 04");
const ByteVector kHevcPps = Hex("44 01 C1 72 B4 22 40");

TEST_F(SampleDescription, Hevc_RecordIsComposedFromItsSets) {
  Track(ZMV_MEDIA_VIDEO, FourCC("hvc1"), Join({Be32(1), kHevcVps, Be32(1), kHevcSps, Be32(1), kHevcPps}));
  track_->m_bSpherical = 1;  // HEVC carries no boxes behind the record
  const ByteVector stsd = MakeStsd();
  const ByteVector record = Join({
      Bytes({1}),                // version
      Bytes({0x01}),             // profile space 0, main tier, profile 1
      Hex("60 00 00 00"),        // compatibility flags
      Hex("90 00 00 00 00 00"),  // constraint flags
      Bytes({0x3C}),             // level 2.0
      Hex("F0 00"),              // spatial segmentation unknown
      Bytes({0xFC}),             // parallelism unknown
      Bytes({0xFD}),             // 4:2:0
      Bytes({0xF8, 0xF8}),       // 8 and 8 bits
      Hex("00 00"),              // average frame rate
      Bytes({0x0F}),             // one temporal layer, nested, length size 4
      Bytes({3}),                // arrays
      Bytes({0xA0}),
      Be16(1),
      Be16(24),  // VPS: one unit of 21 bytes and three put back
      Hex("40 01 0C 01 FF FF 01 60 00 00 03 00 90 00 00 03 00 00 03 00 3C 92 80 90"),
      Bytes({0xA1}),
      Be16(1),
      Be16(40),  // SPS: 36 and four
      Hex("42 01 01 01 60 00 00 03 00 90 00 00 03 00 00 03 00 3C A0 16 20 24 59 64 A9 24 CA F0 16 80 80"
          "00 00 03 00 80 00 00 0F 04"),
      Bytes({0xA2}),
      Be16(1),
      Be16(7),  // PPS
      kHevcPps,
  });
  EXPECT_EQ(ByteVector(stsd.begin() + 16, stsd.begin() + 24), Join({Be32(203), Text("hvc1")}));
  EXPECT_EQ(Difference(ByteVector(stsd.begin() + 102, stsd.end()), Join({Be32(117), Text("hvcC"), record})), "");
  for (uint32_t code : {FourCC("HEV1"), FourCC("hev1"), FourCC("H265"), FourCC("HEVC")}) {
    track_->dwFourCC = code;
    EXPECT_EQ(MakeStsd(), stsd);
  }
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(SampleDescription, Hevc_OnlySomeSets_CountsTheArraysPresent) {
  Track(ZMV_MEDIA_VIDEO, FourCC("hvc1"), Join({Be32(1), kHevcPps}));
  EXPECT_EQ(MP4WriterMakeHvcc(track_.get(), dst_.data(), 100), 8u + 23u + 5u + 7u);
  EXPECT_EQ(dst_[8 + 22], 1);
  EXPECT_EQ(ByteVector(dst_.begin() + 31, dst_.begin() + 43), Join({Bytes({0xA2}), Be16(1), Be16(7), kHevcPps}));
  EXPECT_EQ(MP4WriterMakeHvcc(track_.get(), dst_.data(), 42), kNone);
  Track(ZMV_MEDIA_VIDEO, FourCC("hvc1"));
  EXPECT_EQ(MP4WriterMakeHvcc(track_.get(), dst_.data(), 100), 31u);
  EXPECT_EQ(dst_[8 + 22], 0);
}

TEST_F(SampleDescription, Hevc_ConfigurationTooLarge_IsRefusedWithoutAMessage) {
  ByteVector config = Join({Be32(1), kHevcPps});
  config.resize(16267, 0x55);
  Track(ZMV_MEDIA_VIDEO, FourCC("H265"), config);
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), 16u + 86u + 8u + 23u + 5u + 16263u);
  for (uint32_t size : {16268u, 16300u}) {
    config.resize(size, 0x55);
    Track(ZMV_MEDIA_VIDEO, FourCC("H265"), config);
    EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
  }
  ExpectNoMessages();
  host_.Fail(HostCall::kMalloc, 1);
  Track(ZMV_MEDIA_VIDEO, FourCC("H265"), Join({Be32(1), kHevcPps}));
  EXPECT_EQ(MP4WriterMakeStsd(track_.get(), dst_.data()), kNone);
}

}  // namespace
}  // namespace zmv::test
