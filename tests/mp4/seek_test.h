// What the tests of seeking share: a track of the reader under test beside its plain form.
#ifndef ZMV_TESTS_SEEK_TEST_H
#define ZMV_TESTS_SEEK_TEST_H

#include <algorithm>
#include <ostream>
#include <vector>

#include "tests/mp4/reader_test.h"
#include "tests/support/plain_seek.h"

namespace zmv::test {

// Prints what differs by name.
inline void PrintTo(const PlainPlace& place, std::ostream* out) {
  *out << "position " << place.position << " sample " << place.sample << " stts left " << place.stts_left << " delta "
       << place.stts_delta << " dts " << place.dts << " stsc entry " << place.stsc_entry << " next first chunk "
       << place.next_first_chunk << " samples per chunk " << place.samples_per_chunk << " samples left "
       << place.samples_left << " chunk " << place.chunk << " sync entry " << place.sync_entry << " next sync "
       << place.next_sync << " words: stts " << place.stts_words << " stsc " << place.stsc_words << " stsz "
       << place.stsz_words << " stco " << place.stco_words << " stss " << place.stss_words;
}

class SeekTest : public ReaderTest {
 protected:
  // The tables of a track as the reader bounds them, taken from what the file was built of.
  PlainTables TablesOf(const MP4ReaderTrack& track, const TrackSpec& plan) {
    PlainTables tables;
    tables.media = track.m_dwMediaType;
    tables.time_scale = track.m_dwTimeScale;
    tables.duration = track.m_dwDuration;
    tables.movie_duration = reader_->m_dwDuration;
    tables.data_end = static_cast<uint64_t>(ZMVStreamBuf_CurSize(stream_));
    tables.sample_size = track.m_dwSampleSize;
    tables.sample_count = track.m_dwSampleCount;
    tables.pcm = track.m_bPcmFraming != 0;
    tables.bits_per_sample = track.m_dwBitsPerSample;
    tables.sample_rate = track.m_dwSampleRate;
    tables.times = plan.times;
    if (plan.chunks) tables.chunks = *plan.chunks;
    for (const ByteVector& frame : plan.frames) tables.sizes.push_back(static_cast<uint32_t>(frame.size()));
    tables.sizes.resize(std::min<size_t>(tables.sizes.size(), tables.sample_count));
    tables.offsets = OffsetsIn(track);
    tables.syncs = plan.sync;
    return tables;
  }

  PlainPlace Live(const MP4ReaderTrack& track) const {
    PlainPlace place;
    place.position = ZMVStreamBuf_Pos(track.m_hStream, track.m_dwIndex);
    place.sample = track.m_dwSampleIndex;
    place.stts_left = track.m_dwSttsLeft;
    place.stts_delta = track.m_dwSttsDelta;
    place.dts = track.m_dwDts;
    place.stsc_entry = track.m_dwStscEntry;
    place.next_first_chunk = track.m_dwNextFirstChunk;
    place.samples_per_chunk = track.m_dwSamplesPerChunk;
    place.samples_left = track.m_dwSamplesLeft;
    place.chunk = track.m_dwChunkIndex;
    place.sync_entry = track.m_dwSyncEntry;
    place.next_sync = track.m_dwNextSync;
    FillWords(track, &place);
    return place;
  }
  PlainPlace Pending(const MP4ReaderTrack& track) const {
    PlainPlace place;
    place.position = track.m_dwSeekPos;
    place.sample = track.m_dwSeekSample;
    place.stts_left = track.m_dwSeekSttsLeft;
    place.stts_delta = track.m_dwSeekSttsDelta;
    place.dts = track.m_dwSeekDts;
    place.stsc_entry = track.m_dwSeekStscEntry;
    place.next_first_chunk = track.m_dwSeekNextFirstChunk;
    place.samples_per_chunk = track.m_dwSeekSamplesPerChunk;
    place.samples_left = track.m_dwSeekSamplesLeft;
    place.chunk = track.m_dwSeekChunk;
    place.sync_entry = track.m_dwSeekSyncEntry;
    place.next_sync = track.m_dwSeekNextSync;
    FillWords(track, &place);
    return place;
  }

  // Searches a track and compares everything; afterwards the track stands where it stood.
  void CompareSearch(const PlainTables& tables, uint32_t mode, uint32_t time, uint32_t slot = 0) {
    MP4ReaderTrack& track = Track(slot);
    const PlainPlace before = Live(track);
    PlainPlace expected = before;
    uint32_t expected_time = time;
    const uint8_t expected_result = PlainSearch(tables, before, mode, &expected_time, &expected);
    uint32_t found_time = time;
    ASSERT_EQ(MP4FReaderGetSeekPos(reader_, &track, &found_time, mode), expected_result);
    ASSERT_EQ(found_time, expected_time);
    ASSERT_EQ(Pending(track), expected);
    ++(expected_result != 0 ? found_ : not_found_);
    if (expected_result != 0) {
      if (expected.sample == tables.sample_count) ++at_end_;
      ASSERT_EQ(MP4ReaderLoadStblPos(reader_, &track), 0);
    }
    ASSERT_EQ(Live(track), before);
  }

  // Searches, takes the place when there is one, and compares the frames from there on.
  void CompareCommit(const PlainTables& tables, const ByteVector& file, uint32_t mode, uint32_t time, uint32_t frames) {
    MP4ReaderTrack& track = Track(0);
    PlainPlace expected = Live(track);
    PlainPlace pending;
    uint32_t expected_time = time;
    const uint8_t found = PlainSearch(tables, expected, mode, &expected_time, &pending);
    if (found != 0) expected = PlainTake(tables, expected, pending);
    ASSERT_EQ(MP4FReaderGetSeekPos(reader_, &track, &time, mode), found);
    if (found != 0) {
      ASSERT_EQ(MP4FReaderStreamSeek(&track), 1);
    }
    ASSERT_EQ(Live(track), expected);
    ReadSome(tables, file, frames);
  }

  // Reads up to `count` frames of track 0 and compares each.
  void ReadSome(const PlainTables& tables, const ByteVector& file, uint32_t count) {
    MP4ReaderTrack& track = Track(0);
    PlainPlace expected = Live(track);
    for (uint32_t i = 0; i < count; ++i) {
      PlainFrame frame;
      const bool more = PlainRead(tables, &expected, &frame);
      const bool whole = more && uint64_t{frame.position} + frame.size <= file.size();
      if (more && !whole) return;  // the payload ends early and says nothing about the tables
      const ReadResult read = Read(tables.media, 64);
      ASSERT_EQ(read.code, more ? 0u : ZMV_E_END);
      if (!more) return;
      ++frames_read_;
      ASSERT_EQ(read.frame.dwSize, frame.size);
      ASSERT_EQ(read.data, ByteVector(file.begin() + frame.position, file.begin() + frame.position + frame.size));
      ASSERT_EQ(read.frame.dwDuration, frame.duration);
      ASSERT_EQ(read.frame.dwKeyFrame, frame.key);
      ASSERT_EQ(read.frame.dwChunk, frame.chunk);
      if (frame.time_stamp != 0xFFFFFFFF) {
        ASSERT_EQ(read.frame.llTimeStamp, frame.time_stamp);
      }
      ASSERT_EQ(Live(track), expected);
    }
  }

  uint64_t found_ = 0;
  uint64_t not_found_ = 0;
  uint64_t at_end_ = 0;
  uint64_t frames_read_ = 0;

 private:
  uint64_t Words(uint32_t cursor, uint32_t start) const {
    return cursor == 0 ? 0 : (ZMVStreamBuf_Pos(stream_, cursor) - start) / 4;
  }
  void FillWords(const MP4ReaderTrack& track, PlainPlace* place) const {
    place->stts_words = Words(track.m_Stts.m_dwCursor, track.m_Stts.m_dwStart);
    place->stsc_words = Words(track.m_Stsc.m_dwCursor, track.m_Stsc.m_dwStart);
    place->stsz_words = Words(track.m_Stsz.m_dwCursor, track.m_Stsz.m_dwStart);
    place->stco_words = Words(track.m_Stco.m_dwCursor, track.m_Stco.m_dwStart);
    place->stss_words = Words(track.m_dwStssCursor, track.m_dwStssStart);
  }
  std::vector<uint32_t> OffsetsIn(const MP4ReaderTrack& track) {
    const ByteVector& file = host_.File("a.mp4");
    std::vector<uint32_t> offsets;
    for (uint32_t i = 0; i < track.m_dwChunkCount; ++i) {
      const size_t at = track.m_Stco.m_dwStart + 4 * size_t{i};
      offsets.push_back(uint32_t{file[at]} << 24 | uint32_t{file[at + 1]} << 16 | uint32_t{file[at + 2]} << 8 |
                        file[at + 3]);
    }
    return offsets;
  }
};

}  // namespace zmv::test

#endif
