#include "platform/zmv_byte.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

class ReaderEsds : public ReaderTest {
 protected:
  uint32_t ParseEsds(const ByteVector& descriptors) { return Parse(&MP4ReaderParseESDS, Join({Be32(0), descriptors})); }
  static ByteVector Decoder(int object_type, const ByteVector& rest = {}) {
    return Descriptor(4, Join({
                             Bytes({object_type, 0x15}),  // object type, stream type
                             Bytes({0x00, 0x18, 0x00}),   // buffer size
                             Be32(200000),
                             Be32(128000),  // maximum, average bit rate
                             rest,
                         }));
  }
};

TEST_F(ReaderEsds, Configuration_IsKept) {
  const ByteVector box = Esds(0x40, Bytes({0x11, 0x90, 0x56}), 0x012345, 96000);
  ASSERT_EQ(Parse(&MP4ReaderParseESDS, ByteVector(box.begin() + 8, box.end())), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 0xFFu);
  EXPECT_EQ(track_->m_dwMaxSampleSize, 0x012345u);
  EXPECT_EQ(track_->m_dwBitRate, 96000u);
  EXPECT_EQ(Config(*track_), Bytes({0x11, 0x90, 0x56}));
}

TEST_F(ReaderEsds, ObjectTypes_GiveTheirCodes) {
  const std::pair<int, uint32_t> types[] = {
      {0x40, 0xFF},           {0x69, 0x55},           {0x6B, 0x55}, {0xF0, FourCC("YV12")},
      {0xF1, FourCC("AVC1")}, {0xE2, FourCC("ec-3")}, {0x20, 0}};
  for (auto [type, code] : types) {
    ASSERT_EQ(ParseEsds(Descriptor(3, Join({Bytes({0, 1, 0}), Decoder(type)}))), 0u);
    EXPECT_EQ(track_->m_dwFourCC, code) << type;
  }
}

TEST_F(ReaderEsds, OptionalFieldsOfTheStream_AreSteppedOver) {
  const ByteVector head = Join({
      Bytes({0, 1, 0xE0}),        // ES ID; all three flags
      Bytes({0, 9}),              // the stream it depends on
      Bytes({3, 'u', 'r', 'l'}),  // URL
      Bytes({0, 7}),              // clock reference stream
  });
  ASSERT_EQ(ParseEsds(Descriptor(3, Join({head, Decoder(0x40, Descriptor(5, Bytes({8})))}))), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 0xFFu);
  EXPECT_EQ(Config(*track_), Bytes({8}));
}

TEST_F(ReaderEsds, AnotherFirstTag_HasTwoBytes) {
  ASSERT_EQ(ParseEsds(Join({Bytes({9, 0, 1}), Decoder(0x69)})), 0u);
  EXPECT_EQ(track_->m_dwFourCC, 0x55u);
  EXPECT_EQ(track_->m_dwBitRate, 128000u);
}

TEST_F(ReaderEsds, LongLengths_AreDecoded) {
  const ByteVector specific = Join({Bytes({5, 0x80, 0x80, 0x80, 2}), Bytes({0x12, 0x10})});
  const ByteVector other = Join({Bytes({6, 0x81, 0x00}), Zeros(128)});
  ASSERT_EQ(ParseEsds(Descriptor(3, Join({Bytes({0, 1, 0}), Decoder(0x40, Join({other, specific}))}))), 0u);
  EXPECT_EQ(Config(*track_), Bytes({0x12, 0x10}));
}

TEST_F(ReaderEsds, EveryTruncation_EndsWithoutHarm) {
  const ByteVector box = Esds();
  for (size_t size = 0; size + 8 <= box.size(); ++size) {
    const ByteVector payload(box.begin() + 8, box.begin() + 8 + static_cast<ptrdiff_t>(size));
    const uint32_t code = Parse(&MP4ReaderParseESDS, payload);
    EXPECT_TRUE(code == 0 || code == ZMV_E_FAIL) << size;
    EXPECT_EQ(track_->m_pConfig != nullptr, track_->m_dwConfigSize != 0);
    Close();
    EXPECT_EQ(host_.LiveBlocks(), 0u);
  }
}

TEST_F(ReaderEsds, ConfigurationLongerThanItsData_IsRefusedBeforeItIsAllocated) {
  host_.max_block = 10000;
  const ByteVector specific = Join({Bytes({5, 0xFF, 0xFF, 0xFF, 0x7F}), Bytes({1, 2, 3})});
  EXPECT_EQ(ParseEsds(Descriptor(3, Join({Bytes({0, 1, 0}), Decoder(0x40, specific)}))), ZMV_E_FAIL);
  for (const CallRecord& call : host_.Calls(HostCall::kMalloc)) EXPECT_LT(call.size, 10000u);
  EXPECT_EQ(track_->m_dwConfigSize, 0u);
}

TEST_F(ReaderEsds, RepeatedConfiguration_ReplacesTheFirst) {
  const ByteVector two = Join({Descriptor(5, Bytes({1, 2, 3})), Descriptor(5, Bytes({4}))});
  ASSERT_EQ(ParseEsds(Descriptor(3, Join({Bytes({0, 1, 0}), Decoder(0x40, two)}))), 0u);
  EXPECT_EQ(Config(*track_), Bytes({4}));
}

TEST_F(ReaderEsds, NoMemory_MakesItUnusable) {
  const ByteVector box = Esds();
  for (uint64_t nth : {1u, 2u}) {  // the buffer, the configuration
    Load(ByteVector(box.begin() + 8, box.end()));
    track_ = MP4ReaderFindTrak(reader_, 1);
    host_.Fail(HostCall::kMalloc, nth);
    EXPECT_EQ(Code(MP4ReaderParseESDS(reader_, track_, static_cast<uint32_t>(box.size() - 8))), ZMV_E_FAIL);
    EXPECT_EQ(track_->m_dwConfigSize, 0u);
  }
}

TEST_F(ReaderEsds, UnusableBox_FailsTheDescription) {
  TrackSpec track = AudioTrack();
  ByteVector box = Esds();
  box[box.size() - 6] = 0x70;  // the length of the decoder specific information
  track.entries = {AudioEntry("mp4a", box)};
  EXPECT_EQ(Describe(BuildMp4({track})), ZMV_E_FAIL);
}

// ---- Descriptor lengths

TEST_F(ReaderEsds, Length_TakesUpToFourBytes) {
  const std::pair<ByteVector, uint32_t> lengths[] = {
      {Bytes({0}), 0},
      {Bytes({0x7F, 0xFF}), 127},
      {Bytes({0x81, 0x00}), 128},
      {Bytes({0x80, 0x80, 0x80, 0x05}), 5},
      {Bytes({0xFF, 0xFF, 0xFF, 0x7F}), 0x0FFFFFFF},
      {Bytes({0xFF, 0xFF, 0xFF, 0xFF, 0x01}), 0x0FFFFFFF},
  };
  for (const auto& [bytes, length] : lengths) {
    Load(bytes);
    EXPECT_EQ(Code(MP4ReaderGetDescLength(stream_, reader_->m_dwIndex)), length);
    int64_t error = 0;
    void* memory = ZMVByte_Open(bytes.data(), static_cast<uint32_t>(bytes.size()));
    EXPECT_EQ(MP4ReaderGetDescLength2(memory, &error), length);
    EXPECT_EQ(error, 0);
    ZMVByte_Close(memory);
  }
}

TEST_F(ReaderEsds, LengthCutShort_IsAnError) {
  const ByteVector bytes = Bytes({0x81});
  Load(bytes);
  EXPECT_EQ(Code(MP4ReaderGetDescLength(stream_, reader_->m_dwIndex)), ZMV_E_READ);
  EXPECT_EQ(Code(MP4ReaderGetDescLength(nullptr, 0)), ZMV_E_FAIL);
  int64_t error = 0;
  void* memory = ZMVByte_Open(bytes.data(), 1);
  EXPECT_EQ(MP4ReaderGetDescLength2(memory, &error), 0u);
  EXPECT_NE(error, 0);
  ZMVByte_Close(memory);
}

}  // namespace
}  // namespace zmv::test
