// Writes frames into one recording, or a row of recordings that are split by time or size, through the writer facade.
//
// An AVI stores no times: its frames are evenly spaced, at the measured rate. It stores no configuration of H.264
// either: parameter sets go in front of every key frame that lacks them.
#ifndef ZMV_TOOLS_RECORDER_H
#define ZMV_TOOLS_RECORDER_H

#include <memory>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "facade/zmvstream_writer.h"
#include "tools/zmv/console.h"
#include "tools/zmv/duration_clock.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/media_source.h"

namespace zmv::tool {

constexpr uint32_t kVideoTimeScale = 90000;
constexpr uint32_t kTextTimeScale = 1000;

struct RecorderOptions {
  std::string path;
  Container container = Container::kMp4;
  bool force = false;
  uint32_t max_size = 0;     // bytes of a file; 0: no limit
  int64_t split_us = 0;      // a new file at the next key frame after so long; 0: one file
  uint64_t expected_ms = 0;  // expected length of a file; 0: not known
};

struct RecordedTrack {
  uint32_t media = 0;
  uint32_t track = 0;
  uint64_t frames = 0;
  uint64_t bytes = 0;
  uint64_t key_frames = 0;
};

struct RecordedFile {
  std::string path;
  uint64_t duration_ms = 0;
  std::vector<RecordedTrack> tracks;
};

class Recorder {
 public:
  // `nominal_us` holds the usual distance of frames for each track: videos, audio, texts. Creates the first file.
  Recorder(const RecorderOptions& options, const ZMVFileInfo& info, std::vector<int64_t> nominal_us, Console& console);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // Frames in the order of time, `stream` being the track within the medium. False when the limit ends the recording:
  // the file is finished and the frame is not in it. ToolError when it cannot be written.
  bool Write(const MediaFrame& frame);
  // Finishes the last file; ToolError when it is not whole then. Called without it (an error), the destructor does the
  // same and says nothing.
  void Finish();

  const std::vector<RecordedFile>& files() const { return files_; }
  uint64_t left_out() const { return left_out_; }  // frames between the end of a full file and the next key frame
  // The path of file number `number`, counted from 1: OUT.mp4, OUT_0002.mp4 ...
  static std::string NumberedPath(const std::string& path, unsigned number);

 private:
  struct Track {
    uint32_t media;
    uint32_t track;
    int64_t nominal_us;
    DurationClock clock;
    int64_t base_us;    // time of its first frame in this file; none yet when negative
    int64_t last_us;    // of the frame before, from there
    int64_t widest_us;  // largest distance of two frames
  };

  bool avi() const { return options_.container == Container::kAvi; }
  void OpenFile();
  void ResetTracks();
  bool StartsFile(const MediaFrame& frame) const;
  void NextFile(const MediaFrame& frame);
  int32_t Put(const MediaFrame& frame);
  int32_t PutBlank(Track& track, size_t index);
  void FillPayload(const Track& track, const MediaFrame& frame);
  void ReportUnevenness() const;
  int32_t Hand(Track& track, size_t index, const MediaFrame& frame, int64_t us);

  RecorderOptions options_;
  ZMVFileInfo info_;
  std::vector<int64_t> nominal_us_;
  Console& console_;
  ZMVWriter* writer_ = nullptr;
  std::vector<Track> tracks_;
  std::vector<RecordedFile> files_;
  int64_t file_start_us_ = 0;
  bool waiting_ = false;  // a full file was closed; the next begins at a key frame
  uint64_t left_out_ = 0;
  int write_errno_ = 0;  // what the system said during the last write
  Bytes scratch_;
};

}  // namespace zmv::tool

#endif
