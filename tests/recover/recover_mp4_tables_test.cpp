#include "recover/recover_mp4_tables.h"

#include "tests/mp4/writer_test.h"
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using recover::Mp4Tables;

class Mp4TablesTest : public RecoverTest {
 protected:
  // Whether the file's tables agree with what a scan finds in it.
  static bool Agree(const ByteVector& bytes, uint64_t fail_read = 0, int32_t* result = nullptr) {
    StoredFile file(bytes);
    recover::Mp4Scan scan(file);
    if (scan.Open() != 0) return false;
    StoredFile tables_file(bytes);
    if (fail_read != 0) tables_file.Fail(StoredFile::kRead, fail_read);
    Mp4Tables tables(tables_file);
    int32_t code = tables.Open(scan.front());
    recover::FoundFrame frame = {};
    while (code == 0 && scan.Next(frame)) code = tables.Check(frame);
    if (code == 0) code = tables.Finish(scan.ItemsEnd());
    if (result != nullptr) *result = code;
    return code == 0 && tables.Agree();
  }
  static ByteVector RawAudio(uint8_t interleave) {
    ZMVFileInfo info = SmallInfo();
    info.m_Audio.dwFormat = ZMV_AUDIO_PCM_LE;
    info.m_Audio.dwChannels = 1;
    info.m_Audio.dwExtraDataSize = 0;
    FrameLog log(info, interleave);
    Noise noise(2);
    for (uint32_t i = 0; i < 30; ++i) {
      if (i % 3 == 0) log.Write(ZMV_MEDIA_VIDEO, noise.Video(200), 40 * i, 40000, i == 0);
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(960), 10 * i, 10);
    }
    return log.Finish();
  }
};

TEST_F(Mp4TablesTest, ClosedRecordings_Agree) {
  EXPECT_TRUE(Agree(SmallRecording(1).file));
  EXPECT_TRUE(Agree(SmallRecording(2, 24, 0).file)) << "chunks of several frames";
  EXPECT_TRUE(Agree(SmallRecording(3, 1).file));
  EXPECT_TRUE(Agree(RawAudio(1)));
  EXPECT_TRUE(Agree(RawAudio(0)));
  FrameLog empty(SmallInfo());
  EXPECT_TRUE(Agree(empty.Finish())) << "no frames, no tracks";
}

// Of an empty frame the record does not tell whether a table behind it stands in front of the payload.
TEST_F(Mp4TablesTest, EmptyFrames_Agree) {
  FrameLog log(SmallInfo());
  Noise noise(1);
  for (uint32_t i = 0; i < 60; ++i) log.Write(ZMV_MEDIA_TEXT, i % 3 == 0 ? noise.Text(100) : ByteVector(), 33 * i, 33);
  EXPECT_TRUE(Agree(log.Finish()));
}

TEST_F(Mp4TablesTest, StreamsWithoutFrames_AreNoFault) {
  ZMVFileInfo info = SmallInfo();
  info.dwVideoCount = 2;
  info.m_Video[1] = info.m_Video[0];
  FrameLog log(info);
  Noise noise(1);
  for (uint32_t i = 0; i < 5; ++i) log.Write(ZMV_MEDIA_VIDEO, noise.Video(100), 33 * i, 33333, true, 1);
  for (uint32_t i = 0; i < 5; ++i) log.Write(ZMV_MEDIA_TEXT, noise.Text(100), 33 * i, 33);
  EXPECT_TRUE(Agree(log.Finish()));
}

TEST_F(Mp4TablesTest, AnyChangedByteOfATable_Disagrees) {
  for (uint8_t interleave : {uint8_t{1}, uint8_t{0}}) {
    const ByteVector file = SmallRecording(4, 12, interleave).file;
    ASSERT_TRUE(Agree(file));
    for (uint32_t track = 0; track < 3; ++track) {
      for (const char* type : {"stts", "stsc", "stsz", "stco", "stss"}) {
        const ByteVector box = SampleTableBox(file, type, track);
        if (box.empty()) continue;
        const auto at = std::search(file.begin(), file.end(), box.begin(), box.end()) - file.begin();
        for (size_t i = 0; i < box.size(); ++i) {
          // Version, flags and the number of the sample description are the writer's constants.
          const bool description = std::string(type) == "stsc" && i >= 16 && (i - 16) % 12 >= 8;
          if ((i >= 8 && i < 12) || description) continue;
          ByteVector damaged = file;
          damaged[static_cast<size_t>(at) + i] ^= 0x01;
          ASSERT_FALSE(Agree(damaged)) << type << " of track " << track << " byte " << i;
        }
      }
    }
  }
}

TEST_F(Mp4TablesTest, AnyCutOrBrokenChainOfBoxes_Disagrees) {
  const SmallRecording recording(5, 6);
  for (size_t size = recording.MdatEnd(); size < recording.file.size(); ++size) {
    ASSERT_FALSE(Agree(ByteVector(recording.file.begin(), recording.file.begin() + static_cast<ptrdiff_t>(size))))
        << size;
  }
  ByteVector unpatched = recording.file;
  StoreBE32(&unpatched[recording.MdatPosition()], 8);
  EXPECT_FALSE(Agree(unpatched));
  ByteVector wrong = recording.file;
  StoreBE32(&wrong[recording.MdatPosition()],
            static_cast<uint32_t>(recording.MdatEnd() - recording.MdatPosition()) - 4);
  EXPECT_FALSE(Agree(wrong));
  EXPECT_FALSE(Agree(Join({recording.file, {0, 0, 0}}))) << "stray bytes behind the last box";
  EXPECT_TRUE(Agree(Join({recording.file, Be32(12), Text("free"), Be32(0)})));
  EXPECT_FALSE(Agree(Join({recording.file, BoxAt(recording.file, {"moov"})}))) << "two of them";
}

TEST_F(Mp4TablesTest, MissingBoxes_Disagree) {
  const SmallRecording recording(6, 6);
  for (const std::string type :
       {"mvhd", "tkhd", "mdia", "mdhd", "minf", "stbl", "stts", "stsc", "stsz", "stco", "stss"}) {
    ByteVector renamed = recording.file;
    const ByteVector name = Text(type);
    const auto at = std::search(renamed.begin() + static_cast<ptrdiff_t>(recording.MdatEnd()), renamed.end(),
                                name.begin(), name.end());
    ASSERT_NE(at, renamed.end());
    *at = 'x';
    EXPECT_FALSE(Agree(renamed)) << type;
  }
}

TEST_F(Mp4TablesTest, FailedReads_AreTheirCode) {
  const ByteVector file = SmallRecording(7, 12).file;
  uint64_t nth = 0;
  int32_t result = 0;
  while (!Agree(file, ++nth, &result)) {
    ASSERT_EQ(result, Result(ZMV_E_READ)) << nth;
    ASSERT_LT(nth, 1000u);
  }
  EXPECT_GT(nth, 50u);
}

}  // namespace
}  // namespace zmv::test
