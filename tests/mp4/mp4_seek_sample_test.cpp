// Seeks to every sample time of a recording of the sample streams, against the plain search.
#include "tests/mp4/seek_test.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

class SeekSample : public SeekTest {
 protected:
  SeekSample() {
    host_.record = false;
    host_.trace_level = 0;
  }

  // Records the streams, on a host of its own as the writer keeps a block for good, and opens the recording.
  void Record(const SampleSet& set) {
    ByteVector file;
    {
      ScriptedHost recorder;
      recorder.record = false;
      recorder.trace_level = 0;
      ASSERT_EQ(RecordSamples("a.mp4", set), 0);
      file = recorder.File("a.mp4");
    }
    ASSERT_EQ(Describe(file), 0u);
  }
  uint32_t Word(uint64_t at) {
    const ByteVector& file = host_.File("a.mp4");
    return uint32_t{file.at(at)} << 24 | uint32_t{file.at(at + 1)} << 16 | uint32_t{file.at(at + 2)} << 8 |
           file.at(at + 3);
  }
  // What the tables of the file say, read without the reader's cursors.
  PlainTables TablesInFile(uint32_t slot) {
    const MP4ReaderTrack& track = Track(slot);
    PlainTables tables = TablesOf(track, TrackSpec{});
    for (uint32_t i = 0; i < track.m_dwSttsCount; ++i) {
      const uint64_t at = track.m_Stts.m_dwStart + uint64_t{8} * i;
      tables.times.push_back({Word(at), Word(at + 4)});
    }
    for (uint32_t i = 0; i < track.m_dwStscCount; ++i) {
      const uint64_t at = track.m_Stsc.m_dwStart + uint64_t{12} * i;
      tables.chunks.push_back({Word(at), Word(at + 4), Word(at + 8)});
    }
    for (uint32_t i = 0; i < track.m_dwSampleCount && track.m_dwSampleSize == 0; ++i) {
      tables.sizes.push_back(Word(track.m_Stsz.m_dwStart + uint64_t{4} * i));
    }
    if (track.m_dwStssCursor == 0) return tables;
    tables.syncs.emplace();
    for (uint32_t i = 0; i < track.m_dwStssCount; ++i) {
      tables.syncs->push_back(Word(track.m_dwStssStart + uint64_t{4} * i));
    }
    return tables;
  }
  static std::vector<uint32_t> SampleTimes(const PlainTables& tables) {
    std::vector<uint32_t> times;
    uint32_t dts = 0;
    for (const auto& [count, delta] : tables.times) {
      for (uint32_t i = 0; i < count; ++i, dts += delta) {
        times.push_back(
            static_cast<uint32_t>(static_cast<float>(dts) * 1000.0f / static_cast<float>(tables.time_scale)));
      }
    }
    return times;
  }

  // Every track, every mode, at, before and behind every sample time.
  void CheckEverySampleTime() {
    for (uint32_t slot = 0; slot < reader_->m_dwTrackCount; ++slot) {
      const PlainTables tables = TablesInFile(slot);
      const std::vector<uint32_t> times = SampleTimes(tables);
      ASSERT_EQ(times.size(), tables.sample_count);
      ASSERT_GT(times.size(), 10u);
      for (uint32_t sample_time : times) {
        for (uint32_t time : {sample_time - (sample_time != 0 ? 1 : 0), sample_time, sample_time + 1}) {
          for (uint32_t mode = 1; mode <= 3; ++mode) {
            ASSERT_NO_FATAL_FAILURE(CompareSearch(tables, mode, time, slot))
                << "slot " << slot << " mode " << mode << " time " << time;
          }
        }
      }
    }
    EXPECT_GT(found_, 1000u);
  }

  // Seeks of all tracks together to every video time: the payloads that follow are those of the samples found.
  void CheckPayloads(const SampleSet& set) {
    const std::vector<uint32_t> times = SampleTimes(TablesInFile(0));
    for (uint8_t flag : {uint8_t{0}, uint8_t{1}}) {
      for (auto seek : {&MP4FReaderSeekByTime, &MP4FReaderSeekByKeyFrame}) {
        for (uint32_t target : times) {
          uint32_t time = target;
          if (seek(reader_, &time, flag) == 0) continue;
          ++seeks_;
          ASSERT_NO_FATAL_FAILURE(CheckNext(*set.video, 0)) << "time " << target;
          ASSERT_NO_FATAL_FAILURE(CheckNext(*set.audio, 1)) << "time " << target;
          ASSERT_NO_FATAL_FAILURE(CheckNext(*set.text, 2)) << "time " << target;
        }
      }
    }
    EXPECT_GT(seeks_, times.size() * 3);
  }
  void CheckNext(const SampleStream& stream, uint32_t slot) {
    const uint32_t sample = Track(slot).m_dwSampleIndex;
    const ReadResult read = Read(Track(slot).m_dwMediaType, 1 << 20);
    if (sample == stream.frames.size()) {
      ASSERT_EQ(read.code, ZMV_E_END);
      return;
    }
    ASSERT_EQ(read.code, 0u);
    ASSERT_EQ(read.data, stream.frames.at(sample).payload);
  }

  uint64_t seeks_ = 0;
};

TEST_F(SeekSample, H264AacAndText_AreSearchedAsByThePlainSearch) {
  const SampleStream video = LoadH264("drive_h264.h264");
  const SampleStream audio = LoadAac("drive_aac.aac");
  const SampleStream text = MakeGpsText(static_cast<uint32_t>(video.frames.size() / 30), 5);
  SampleSet set;
  set.video = &video;
  set.audio = &audio;
  set.text = &text;
  ASSERT_NO_FATAL_FAILURE(Record(set));
  ASSERT_NO_FATAL_FAILURE(CheckEverySampleTime());
  ASSERT_NO_FATAL_FAILURE(CheckPayloads(set));
}

TEST_F(SeekSample, Hevc_IsSearchedAsByThePlainSearch) {
  const SampleStream video = LoadHevc("drive_hevc.hevc");
  SampleSet set;
  set.video = &video;
  ASSERT_NO_FATAL_FAILURE(Record(set));
  ASSERT_NO_FATAL_FAILURE(CheckEverySampleTime());
}

}  // namespace
}  // namespace zmv::test
