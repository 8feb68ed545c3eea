#include "tools/zmv/annexb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zmv::tool {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST(SplitNals, ThreeAndFourByteStartCodes_GiveUnitsWithoutThem) {
  const Bytes stream = {0, 0, 0, 1,    0x67, 0x42,      // 4-byte start code
                        0, 0, 1, 0x68,                  // 3-byte start code
                        0, 0, 0, 0,    1,    0x65, 9};  // an extra zero before the start code
  const auto nals = SplitNals(stream);
  ASSERT_EQ(nals.size(), 3u);
  EXPECT_THAT(nals[0], ElementsAre(0x67, 0x42));
  EXPECT_THAT(nals[1], ElementsAre(0x68));
  EXPECT_THAT(nals[2], ElementsAre(0x65, 9));
}

TEST(SplitNals, BytesBeforeTheFirstStartCode_AreNoUnit) {
  const Bytes stream = {7, 7, 0, 0, 1, 0x65, 1};
  const auto nals = SplitNals(stream);
  ASSERT_EQ(nals.size(), 1u);
  EXPECT_THAT(nals[0], ElementsAre(0x65, 1));
}

TEST(SplitNals, NothingOrOnlyStartCodes_GiveNoUnit) {
  EXPECT_TRUE(SplitNals({}).empty());
  const Bytes codes = {0, 0, 1, 0, 0, 0, 1};
  EXPECT_TRUE(SplitNals(codes).empty());
  const Bytes short_code = {0, 0};
  EXPECT_TRUE(SplitNals(short_code).empty());
}

TEST(ClassifyNal, H264Types_AreToldApart) {
  const auto kind = [](uint8_t header) { return ClassifyNal(VideoCodec::kH264, Bytes{header, 0}); };
  EXPECT_EQ(kind(0x41), NalKind::kPicture);       // slice of a P picture
  EXPECT_EQ(kind(0x65), NalKind::kPicture);       // IDR
  EXPECT_EQ(kind(0x06), NalKind::kOther);         // comment
  EXPECT_EQ(kind(0x67), NalKind::kParameterSet);  // sequence
  EXPECT_EQ(kind(0x68), NalKind::kParameterSet);  // picture
  EXPECT_EQ(kind(0x6D), NalKind::kParameterSet);  // sequence extension
  EXPECT_EQ(kind(0x09), NalKind::kOther);         // delimiter
  EXPECT_EQ(kind(0x0C), NalKind::kOther);         // filler
  EXPECT_EQ(kind(0x13), NalKind::kOther);         // auxiliary picture
}

TEST(ClassifyNal, HevcTypes_AreToldApart) {
  const auto kind = [](unsigned type, unsigned layer) {
    return ClassifyNal(VideoCodec::kHevc, Bytes{static_cast<uint8_t>(type << 1 | layer >> 5),
                                                static_cast<uint8_t>((layer & 31) << 3 | 1)});
  };
  EXPECT_EQ(kind(1, 0), NalKind::kPicture);
  EXPECT_EQ(kind(20, 0), NalKind::kPicture);
  EXPECT_EQ(kind(31, 0), NalKind::kPicture);
  EXPECT_EQ(kind(32, 0), NalKind::kParameterSet);
  EXPECT_EQ(kind(34, 0), NalKind::kParameterSet);
  EXPECT_EQ(kind(35, 0), NalKind::kOther);                                  // delimiter
  EXPECT_EQ(kind(39, 0), NalKind::kOther);                                  // comment
  EXPECT_EQ(kind(1, 1), NalKind::kOther);                                   // another layer
  EXPECT_EQ(kind(1, 32), NalKind::kOther);                                  // another layer, its number's top bit
  EXPECT_EQ(ClassifyNal(VideoCodec::kHevc, Bytes{0x02}), NalKind::kOther);  // header cut off
}

TEST(IsRandomAccess, IdrAndHevcRandomAccessPictures_AreKeys) {
  EXPECT_TRUE(IsRandomAccess(VideoCodec::kH264, Bytes{0x65}));
  EXPECT_FALSE(IsRandomAccess(VideoCodec::kH264, Bytes{0x41}));
  EXPECT_TRUE(IsRandomAccess(VideoCodec::kHevc, Bytes{16 << 1, 1}));
  EXPECT_TRUE(IsRandomAccess(VideoCodec::kHevc, Bytes{21 << 1, 1}));
  EXPECT_FALSE(IsRandomAccess(VideoCodec::kHevc, Bytes{24 << 1, 1}));
  EXPECT_FALSE(IsRandomAccess(VideoCodec::kHevc, Bytes{1 << 1, 1}));
}

TEST(PictureFilter, AccessUnit_LeavesOnlyThePictureBehindAFourByteStartCode) {
  const Bytes unit = {0, 0, 0, 1,    0x09, 0xF0,           // delimiter
                      0, 0, 0, 1,    0x67, 1,    2,    3,  // sequence parameter set
                      0, 0, 1, 0x68, 4,                    // picture parameter set
                      0, 0, 1, 0x06, 5,    5,    0x80,     // comment
                      0, 0, 1, 0x65, 0xAA, 0xBB};          // IDR picture
  PictureFilter filter(VideoCodec::kH264);
  const PictureFilter::Picture picture = filter.Take(unit);
  EXPECT_THAT(picture.payload, ElementsAre(0, 0, 0, 1, 0x65, 0xAA, 0xBB));
  EXPECT_EQ(picture.slices, 1u);
  EXPECT_TRUE(picture.random_access);
  EXPECT_TRUE(picture.new_parameters);
  EXPECT_THAT(filter.ParameterSets(), ElementsAre(0, 0, 0, 1, 0x67, 1, 2, 3, 0, 0, 0, 1, 0x68, 4));
  EXPECT_STREQ(filter.Missing(), "");
}

TEST(PictureFilter, KnownParameterSetsAgain_AreNoNews) {
  const Bytes sets = {0, 0, 1, 0x67, 1, 0, 0, 1, 0x68, 2};
  PictureFilter filter(VideoCodec::kH264);
  EXPECT_TRUE(filter.Learn(sets));
  EXPECT_FALSE(filter.Learn(sets));
  const Bytes changed = {0, 0, 1, 0x67, 9, 0, 0, 1, 0x41, 1};
  const PictureFilter::Picture picture = filter.Take(changed);
  EXPECT_TRUE(picture.new_parameters);
  EXPECT_FALSE(picture.random_access);
}

TEST(PictureFilter, Slices_AreCountedAndKept) {
  PictureFilter filter(VideoCodec::kH264);
  const auto picture = filter.Take(Bytes{0, 0, 1, 0x41, 1, 0, 0, 1, 0x41, 2});
  EXPECT_EQ(picture.slices, 2u);
  EXPECT_THAT(picture.payload, ElementsAre(0, 0, 0, 1, 0x41, 1, 0, 0, 0, 1, 0x41, 2));
}

TEST(PictureFilter, HevcSets_ComeInTheOrderVideoSequencePicture) {
  PictureFilter filter(VideoCodec::kHevc);
  const Bytes pps = {0, 0, 1, 34 << 1, 1, 0x11};
  const Bytes vps = {0, 0, 1, 32 << 1, 1, 0x22};
  const Bytes sps = {0, 0, 1, 33 << 1, 1, 0x33};
  filter.Learn(pps);
  EXPECT_STRNE(filter.Missing(), "");
  filter.Learn(vps);
  filter.Learn(sps);
  EXPECT_STREQ(filter.Missing(), "");
  EXPECT_FALSE(filter.HasSurplus());
  const uint8_t expected[] = {0, 0, 0, 1, 64, 1, 0x22, 0, 0, 0, 1, 66, 1, 0x33, 0, 0, 0, 1, 68, 1, 0x11};
  EXPECT_THAT(filter.ParameterSets(), ElementsAreArray(expected));
  filter.Learn(Bytes{0, 0, 1, 34 << 1, 1, 0x12});
  EXPECT_TRUE(filter.HasSurplus());
}

TEST(PictureFilter, UnitWithoutPicture_HasNoPayload) {
  PictureFilter filter(VideoCodec::kH264);
  EXPECT_TRUE(filter.Take(Bytes{0, 0, 1, 0x06, 1}).payload.empty());
}

}  // namespace
}  // namespace zmv::tool
