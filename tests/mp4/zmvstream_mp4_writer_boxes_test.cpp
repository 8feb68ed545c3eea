#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "base/fourcc.h"
#include "mp4/mp4_writer_boxes.h"
#include "mp4/zmvstream_mp4_writer_records.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr uint8_t kFiller = 0xEE;

const ByteVector kMatrix = Join({
    Be32(0x00010000), Be32(0), Be32(0),  // a, b, u
    Be32(0), Be32(0x00010000), Be32(0),  // c, d, v
    Be32(0), Be32(0), Be32(0x40000000),  // x, y, w
});

const ByteVector kDataInformation = Join({
    Be32(36), Text("dinf"),                    // box
    Be32(28), Text("dref"), Be32(0), Be32(1),  // version and flags, one entry
    Be32(12), Text("url "), Be32(1),           // media in the same file
});

const ByteVector kEmptyStsd = Join({Be32(16), Text("stsd"), Be32(0), Be32(1)});

class MovieBoxes : public ::testing::Test {
 protected:
  MP4WriterTrack& AddTrack(uint32_t media, uint32_t code) {
    tracks_.push_back(std::make_unique<MP4WriterTrack>());
    MP4WriterTrack& track = *tracks_.back();
    writer_.m_pTrack[writer_.m_dwTrackNum++] = &track;
    track.dwMediaType = media;
    track.dwFourCC = code;
    track.dwTrackID = writer_.m_dwTrackNum;
    return track;
  }
  static void SetTable(MP4WriterTable& table, uint32_t box_size, uint32_t entries) {
    table.m_dwBoxSize = box_size;
    table.m_dwEntryNum = entries;
  }
  // Tables as they are after `samples` frames: one stts run, every frame a chunk.
  static void FillTables(MP4WriterTrack& track, uint32_t samples) {
    SetTable(track.m_Stts, 24, 1);
    SetTable(track.m_Stsz, 20 + 4 * samples, samples);
    SetTable(track.m_Stco, 16 + 4 * samples, samples);
    SetTable(track.m_Stsc, 28, 1);
  }
  ByteVector MovieHeader() { return Written(mp4::MakeMovieHeader(writer_, dst_.data())); }
  ByteVector Written(uint32_t size) const { return ByteVector(dst_.begin(), dst_.begin() + size); }
  // The bytes of a trak that stand in the buffer: what is not taken by its tables.
  ByteVector TrackHeader(MP4WriterTrack& track) {
    const uint32_t size = mp4::MakeTrackHeader(track, dst_.data());
    return Written(size - TableSizes(track));
  }
  static uint32_t TableSizes(const MP4WriterTrack& track) {
    return track.m_Stts.m_dwBoxSize + track.m_Stsz.m_dwBoxSize + track.m_Stco.m_dwBoxSize + track.m_Stsc.m_dwBoxSize +
           track.m_Stss.m_dwBoxSize;
  }

  ScriptedHost host_;
  MP4WriterHandle writer_ = {};
  std::vector<std::unique_ptr<MP4WriterTrack>> tracks_;
  ByteVector dst_ = ByteVector(mp4::kBoxBufferAllocation, kFiller);
};

// ---- mvhd

TEST_F(MovieBoxes, Mvhd_FollowsTheTrackWithMostTicks) {
  MP4WriterTrack& video = AddTrack(ZMV_MEDIA_VIDEO, FourCC("avc1"));
  video.m_dwTimeScale = 90000;
  video.m_dwMediaDur = 900000;
  MP4WriterTrack& audio = AddTrack(ZMV_MEDIA_AUDIO, 0xFF);
  audio.m_dwTimeScale = 48000;
  audio.m_dwMediaDur = 480000;
  EXPECT_EQ(Difference(MovieHeader(), Join({
                                          Be32(108), Text("mvhd"), Be32(0),  // box, version and flags
                                          Be32(0), Be32(0),                  // creation, modification
                                          Be32(90000), Be32(900000),         // time scale, duration
                                          Be32(0x00010000), Be16(0x0100),    // rate, volume
                                          Zeros(10),                         // reserved
                                          kMatrix,                           //
                                          Zeros(24),                         // pre-defined
                                          Be32(2),                           // "next" track ID
                                      })),
            "");
  audio.m_dwMediaDur = 900001;
  const ByteVector mvhd = MovieHeader();
  EXPECT_EQ(ByteVector(mvhd.begin() + 20, mvhd.begin() + 28), Join({Be32(48000), Be32(900001)}));
}

TEST_F(MovieBoxes, Mvhd_EqualDurations_FollowsTheFirst) {
  AddTrack(ZMV_MEDIA_VIDEO, FourCC("avc1")).m_dwTimeScale = 30000;
  AddTrack(ZMV_MEDIA_AUDIO, 0xFF).m_dwTimeScale = 44100;
  writer_.m_pTrack[0]->m_dwMediaDur = writer_.m_pTrack[1]->m_dwMediaDur = 77;
  const ByteVector mvhd = MovieHeader();
  EXPECT_EQ(ByteVector(mvhd.begin() + 20, mvhd.begin() + 28), Join({Be32(30000), Be32(77)}));
}

TEST_F(MovieBoxes, Mvhd_WithoutTracks_HasNoTime) {
  const ByteVector mvhd = MovieHeader();
  ASSERT_EQ(mvhd.size(), 108u);
  EXPECT_EQ(ByteVector(mvhd.begin() + 20, mvhd.begin() + 28), Zeros(8));
  EXPECT_EQ(ByteVector(mvhd.begin() + 104, mvhd.end()), Be32(0));
}

// ---- trak

TEST_F(MovieBoxes, Trak_VideoWithUnknownCode_IsWrittenFieldByField) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_VIDEO, FourCC("X264"));
  track.dwWidth = 0x11920;  // 72224: the low 16 bits count
  track.dwHeight = 1080;
  track.m_dwTimeScale = 90000;
  track.m_dwMediaDur = 9000;
  track.m_dwMovieDur = 1;
  FillTables(track, 3);
  SetTable(track.m_Stss, 20, 1);
  // Tables: 24 + 32 + 28 + 28 + 20 = 132.
  EXPECT_EQ(Difference(TrackHeader(track), Join({
                                               Be32(397),        Text("trak"),           // 8 + 92 + 297
                                               Be32(92),         Text("tkhd"), Be32(1),  // enabled
                                               Be32(0),          Be32(0),                // creation, modification
                                               Be32(1),          Be32(0),                // track ID, reserved
                                               Be32(9000),                               // duration in media ticks
                                               Zeros(8),                                 // reserved
                                               Be16(0),          Be16(0),                // layer, alternate group
                                               Be16(0),          Be16(0),                // volume, reserved
                                               kMatrix,                                  //
                                               Be32(0x19200000),                         // width, 16.16
                                               Be32(0x04380000),                         // height, 16.16
                                               Be32(297),        Text("mdia"),           // 8 + 32 + 37 + 220
                                               Be32(32),         Text("mdhd"), Be32(0),  // version and flags
                                               Be32(0),          Be32(0),                // creation, modification
                                               Be32(90000),      Be32(9000),             // time scale, duration
                                               Be32(0),                                  // language, pre-defined
                                               Be32(37),         Text("hdlr"), Be32(0),  // version and flags
                                               Be32(0),          Text("vide"),           // pre-defined, handler
                                               Zeros(12),        Text("vide"),           // reserved, name
                                               Bytes({0}),                               // its terminator
                                               Be32(220),        Text("minf"),           // 8 + 20 + 36 + 156
                                               Be32(20),         Text("vmhd"), Be32(0),  // flags 0
                                               Zeros(8),                                 // graphics mode, colour
                                               kDataInformation,                         //
                                               Be32(156),        Text("stbl"),           // 8 + 16 + 132
                                               kEmptyStsd,                               //
                                           })),
            "");
}

TEST_F(MovieBoxes, Trak_Audio_HasVolumeAndMovieDuration) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_AUDIO, 99);
  track.dwWidth = track.dwHeight = 5;  // not of interest for audio
  track.m_dwTimeScale = 44100;
  track.m_dwMediaDur = 88200;
  track.m_dwMovieDur = 2000;
  FillTables(track, 2);
  const ByteVector trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 8 + 28, trak.begin() + 8 + 32), Be32(2000));                     // duration
  EXPECT_EQ(ByteVector(trak.begin() + 8 + 44, trak.begin() + 8 + 48), Join({Be16(0x0100), Be16(0)}));  // volume
  EXPECT_EQ(ByteVector(trak.begin() + 8 + 84, trak.begin() + 100), Zeros(8));                          // width, height
  EXPECT_EQ(ByteVector(trak.begin() + 128, trak.begin() + 136), Join({Be32(44100), Be32(88200)}));     // mdhd
  EXPECT_EQ(ByteVector(trak.begin() + 144, trak.end()), Join({
                                                            Text("hdlr"), Be32(0), Be32(0),       //
                                                            Text("soun"), Zeros(12),              // handler
                                                            Text("soun"), Bytes({0}),             // name
                                                            Be32(188), Text("minf"),              //
                                                            Be32(16), Text("smhd"), Be32(0),      //
                                                            Be32(0),                              // balance
                                                            kDataInformation,                     //
                                                            Be32(128), Text("stbl"), kEmptyStsd,  // 24 + 104
                                                        }));
}

TEST_F(MovieBoxes, Trak_Text_NamesItsCodeInReverse) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_TEXT, FourCC("abcd"));
  FillTables(track, 1);
  const ByteVector trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 144, trak.begin() + 205), Join({
                                                                    Text("hdlr"), Be32(0), Be32(0),   //
                                                                    Text("tvxt"), Zeros(12),          // handler
                                                                    Text("dcba"), Bytes({0}),         // name
                                                                    Be32(227), Text("minf"),          //
                                                                    Be32(12), Text("nmhd"), Be32(0),  //
                                                                    Be32(36), Text("dinf"),           //
                                                                }));
}

TEST_F(MovieBoxes, Trak_OtherMedia_HasNeitherHandlerNorMediaHeader) {
  MP4WriterTrack& track = AddTrack(9, FourCC("abcd"));
  const ByteVector trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 144, trak.begin() + 193), Join({
                                                                    Text("hdlr"), Be32(0), Be32(0),  //
                                                                    Zeros(21),                       // nothing named
                                                                    Be32(68), Text("minf"),          //
                                                                    Be32(36), Text("dinf"),          //
                                                                }));
}

TEST_F(MovieBoxes, Trak_RawAudio_CountsItsDurationInSamplesOnce) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_AUDIO, ZMV_AUDIO_PCM_LE);
  track.m_bRawAudio = 1;
  track.dwSampleRate = 48000;
  track.dwBitsPerSample = 16;
  track.m_dwTimeScale = 1000;
  track.m_dwMediaDur = 3000;
  ByteVector trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 128, trak.begin() + 136), Join({Be32(48000), Be32(144000)}));
  EXPECT_EQ(track.m_dwMediaDur, 144000u);
  // 48000 x 48000 needs all 32 bits.
  track.m_dwMediaDur = 48000;
  trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 132, trak.begin() + 136), Be32(2304000));
}

TEST_F(MovieBoxes, Trak_RawAudio_WrapsIn32BitsAndDropsTheTopByte) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_AUDIO, ZMV_AUDIO_PCM_LE);
  track.m_bRawAudio = 1;
  // 200000 x 4294967295 wraps to 4294767296; / 1000 = 4294767 = 0x41886F.
  track.dwSampleRate = 200000;
  track.m_dwMediaDur = 0xFFFFFFFF;
  ByteVector trak = TrackHeader(track);
  EXPECT_EQ(ByteVector(trak.begin() + 132, trak.begin() + 136), Be32(0x0041886F));
  EXPECT_EQ(track.m_dwMediaDur, 0x0041886Fu);
}

// ---- Tables

TEST_F(MovieBoxes, TableSizes_WithoutEntries_BecomeZero) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_VIDEO, FourCC("X264"));
  track.m_Stts.m_dwBoxSize = track.m_Stco.m_dwBoxSize = track.m_Stsc.m_dwBoxSize = track.m_Stss.m_dwBoxSize = 16;
  track.m_Stsz.m_dwBoxSize = 20;
  track.m_dwConstSize = 4;
  EXPECT_EQ(mp4::MakeTrackHeader(track, dst_.data()), 265u);  // the boxes before the tables
  EXPECT_EQ(TableSizes(track), 0u);
}

TEST_F(MovieBoxes, TableSizes_CommonSampleSize_LeavesOnlyTheHeaderOfStsz) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_VIDEO, FourCC("X264"));
  FillTables(track, 5);
  EXPECT_EQ(mp4::MakeTrackHeader(track, dst_.data()), 265u + 24u + 40u + 36u + 28u);
  EXPECT_EQ(track.m_Stsz.m_dwBoxSize, 40u);
  track.m_dwConstSize = 100;
  EXPECT_EQ(mp4::MakeTrackHeader(track, dst_.data()), 265u + 24u + 20u + 36u + 28u);
  EXPECT_EQ(track.m_Stsz.m_dwBoxSize, 20u);
}

TEST_F(MovieBoxes, TableSizes_RawAudio_GoByTheBytesOfASample) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_AUDIO, ZMV_AUDIO_PCM_LE);
  track.m_bRawAudio = 1;
  track.dwBitsPerSample = 16;
  FillTables(track, 5);
  mp4::MakeTrackHeader(track, dst_.data());
  EXPECT_EQ(track.m_Stsz.m_dwBoxSize, 20u);
  FillTables(track, 5);
  track.dwBitsPerSample = 7;  // no whole byte: the sizes are listed
  track.m_dwConstSize = 100;
  mp4::MakeTrackHeader(track, dst_.data());
  EXPECT_EQ(track.m_Stsz.m_dwBoxSize, 40u);
}

// ---- A sample description that could not be built

TEST_F(MovieBoxes, Trak_WithoutSampleDescription_IsOneByteShortAndItsParentsSaySo) {
  MP4WriterTrack& track = AddTrack(ZMV_MEDIA_VIDEO, FourCC("hvc1"));
  ByteVector config(16268, 0x55);
  track.m_pConfig = config.data();
  track.m_dwConfigSize = 16268;
  FillTables(track, 3);
  const ByteVector trak = TrackHeader(track);
  // 112 bytes of tables; the last letter of "stbl" is the missing byte.
  ASSERT_EQ(trak.size(), 248u);
  EXPECT_EQ(ByteVector(trak.begin(), trak.begin() + 4), Be32(248 + 112));
  EXPECT_EQ(ByteVector(trak.begin() + 100, trak.begin() + 104), Be32(148 + 112));  // mdia
  EXPECT_EQ(ByteVector(trak.begin() + 177, trak.begin() + 181), Be32(71 + 112));   // minf
  EXPECT_EQ(ByteVector(trak.begin() + 241, trak.end()), Join({Be32(7 + 112), Text("stb")}));
}

// ---- The entry points for sample descriptions

// An H.264 track without configuration, and a destination in which untouched bytes show.
class EntryPoints : public ::testing::Test {
 protected:
  EntryPoints() {
    track_->dwMediaType = ZMV_MEDIA_VIDEO;
    track_->dwFourCC = FourCC("avc1");
  }
  ScriptedHost host_;
  std::unique_ptr<MP4WriterTrack> track_ = std::make_unique<MP4WriterTrack>();
  ByteVector dst_ = ByteVector(20 * 1024, kFiller);
};

TEST_F(EntryPoints, SayThatTheyCameAndWent) {
  uint8_t* cursor = dst_.data();
  MP4WriterTrack* const track = track_.get();
  uint8_t* const dst = dst_.data();
  const auto expect_pair = [this](uint32_t) {
    EXPECT_THAT(host_.Traces(4), ::testing::ElementsAre("Enter.\n", "Leave.\n"));
    host_.ClearRecords();
  };
  expect_pair(MP4WriterMakeStsd(track, dst));  // nothing inside comes and goes
  expect_pair(MP4WriterMakeSampleEntry(dst, 1, 16));
  expect_pair(MP4WriterMakeAudioSampleEntry(track, dst, 1, 36));
  expect_pair(MP4WriterMakeVideoSampleEntry(track, dst, 1, 86));
  expect_pair(MP4WriterMakeEsds(track, dst, 0, 0));
  expect_pair(MP4WriterMakeBtrt(track, dst));
  expect_pair(MP4WriterMakeAvcc(track, dst, 100));
  expect_pair(MP4WriterMakeHvcc(track, dst, 200));
  expect_pair(MP4WriterSetDescLength(&cursor, 5, 0));
}

TEST_F(EntryPoints, NullArguments_AreRefused) {
  MP4WriterTrack* const track = track_.get();
  uint8_t* const dst = dst_.data();
  uint8_t* no_cursor = nullptr;
  const struct {
    uint32_t result, refusal;
  } rows[] = {
      {MP4WriterMakeStsd(nullptr, dst), mp4::kNoSampleDescription},
      {MP4WriterMakeStsd(track, nullptr), mp4::kNoSampleDescription},
      {MP4WriterMakeEsds(nullptr, dst, 0, 0), mp4::kNoSampleDescription},
      {MP4WriterMakeEsds(track, nullptr, 0, 0), mp4::kNoSampleDescription},
      {MP4WriterMakeAvcc(nullptr, dst, 100), mp4::kNoSampleDescription},
      {MP4WriterMakeAvcc(track, nullptr, 100), mp4::kNoSampleDescription},
      {MP4WriterMakeHvcc(nullptr, dst, 100), mp4::kNoSampleDescription},
      {MP4WriterMakeHvcc(track, nullptr, 100), mp4::kNoSampleDescription},
      {MP4WriterMakeSampleEntry(nullptr, 1, 16), 0},
      {MP4WriterMakeAudioSampleEntry(nullptr, dst, 1, 36), 0},
      {MP4WriterMakeAudioSampleEntry(track, nullptr, 1, 36), 0},
      {MP4WriterMakeVideoSampleEntry(nullptr, dst, 1, 86), 0},
      {MP4WriterMakeVideoSampleEntry(track, nullptr, 1, 86), 0},
      {MP4WriterMakeBtrt(nullptr, dst), 0},
      {MP4WriterMakeBtrt(track, nullptr), 0},
      {MP4WriterSetDescLength(nullptr, 5, 0), 0},
      {MP4WriterSetDescLength(&no_cursor, 5, 0), 0},
  };
  for (const auto& row : rows) EXPECT_EQ(row.result, row.refusal) << &row - rows;
  EXPECT_EQ(host_.Traces(1).size(), std::size(rows));
  EXPECT_EQ(dst_, ByteVector(dst_.size(), kFiller));
}

}  // namespace
}  // namespace zmv::test
