// What the tests of the seeks share: tracks with known times and key frames, and a reader on them.
#ifndef ZMV_TESTS_READER_SEEK_H
#define ZMV_TESTS_READER_SEEK_H

#include <string>
#include <vector>

#include "tests/mp4/seek_test.h"

namespace zmv::test {

constexpr uint32_t kForward = 1;
constexpr uint32_t kBackward = 2;
constexpr uint32_t kNearest = 3;

// 33 ms a frame, 90 frames, key frames 0, 30 and 60.
inline TrackSpec Video(uint32_t id = 1) {
  TrackSpec track = VideoTrack(id);
  track.entries = {VideoEntry("mp4v", {})};
  for (uint32_t i = 0; i < 90; ++i) track.frames.push_back(Unit(static_cast<uint8_t>(i), 6));
  track.times = {{90, 33}};
  track.duration = 90 * 33;
  track.sync = {{1, 31, 61}};
  return track;
}

inline TrackSpec Audio(uint32_t id = 2, uint32_t frames = 140) {
  TrackSpec track = AudioTrack(id);
  for (uint32_t i = 0; i < frames; ++i) track.frames.push_back(Unit(static_cast<uint8_t>(i + 100), 4));
  track.times = {{frames, 21}};
  track.duration = frames * 21;
  return track;
}

inline TrackSpec Subtitle(uint32_t id = 3) {
  TrackSpec track = TextTrack(id);
  for (uint32_t i = 0; i < 30; ++i) track.frames.push_back(Unit(static_cast<uint8_t>(i + 7), 3));
  track.times = {{30, 100}};
  track.duration = 3000;
  return track;
}

class ReaderSeek : public SeekTest {
 protected:
  // The time reached, or a text that says that nothing was found.
  template <typename Seek, typename Flag>
  std::string To(Seek seek, uint32_t time, Flag flag) {
    const uint8_t done = seek(reader_, &time, flag);
    return done == 1 ? std::to_string(time) : "result " + std::to_string(done);
  }
  std::string Search(uint32_t time, uint32_t mode, uint32_t slot = 0) {
    const uint8_t found = MP4FReaderGetSeekPos(reader_, &Track(slot), &time, mode);
    if (found != 1) return "result " + std::to_string(found);
    const uint32_t sample = Track(slot).m_dwSeekSample;
    EXPECT_EQ(MP4ReaderLoadStblPos(reader_, &Track(slot)), 0);
    return "sample " + std::to_string(sample) + " at " + std::to_string(time);
  }
  // The numbers of the next samples of video, audio and text; -1 at the end and without such a track.
  std::vector<int> Samples() {
    std::vector<int> samples;
    for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
      const uint8_t present[] = {reader_->m_bHasVideo, reader_->m_bHasAudio, reader_->m_bHasText};
      if (present[media - 1] == 0) {
        samples.push_back(-1);
        continue;
      }
      const ReadResult read = Read(media);
      const int base = media == ZMV_MEDIA_VIDEO ? 0 : media == ZMV_MEDIA_AUDIO ? 100 : 7;
      samples.push_back(read.code == 0 ? static_cast<uint8_t>(read.data.at(0) - base) : -1);
    }
    return samples;
  }
  std::vector<PlainPlace> AllPlaces() {
    std::vector<PlainPlace> places;
    for (uint32_t slot = 0; slot < reader_->m_dwTrackCount; ++slot) places.push_back(Live(Track(slot)));
    return places;
  }
  void Advance(uint32_t media, int frames) {
    for (int i = 0; i < frames; ++i) ASSERT_EQ(Read(media).code, 0u);
  }
};

}  // namespace zmv::test

#endif
