#include "recover/recover_in_place.h"

#include <algorithm>

#include "base/zmv_result.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "recover/recover_replay_stream.h"
#include "recover/recover_user_data.h"

namespace zmv::recover {
namespace {

using namespace zmv::mp4;

// What the writer takes the front of a file to hold beside its recovery boxes: "ftyp" and the build information.
constexpr uint32_t kFixedFrontBytes = 51;
constexpr uint64_t kMaxFileSize = 0xFFFFFFFF;
// A horizon that sets up small tables, which are then given buffers of their own.
constexpr int64_t kShortHorizon = 1;

// The writer at work on a file that is complete up to the tail.
class Replay {
 public:
  explicit Replay(const InPlaceJob& job) : job_(job), stream_(job.file), samples_(job.info) {}
  ~Replay();
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  int32_t Run();
  // Only bytes behind the media data have been written, so far.
  bool OnlyAppended() const { return only_appended_; }

 private:
  int32_t Open();
  int32_t PlaceInFile();
  int32_t ShowFrames();
  int32_t ShowFrame(const FoundFrame& found);
  int32_t MakeRoom(MP4WriterTrack& track, const FoundFrame& found);
  int32_t MakeRoom(MP4WriterTrack& track, MP4WriterTable& table, uint32_t entry_size);
  MP4WriterTrack* TrackOf(const FoundFrame& found) const;
  int32_t Close();

  const InPlaceJob& job_;
  ReplayStream stream_;
  MP4WriterHandle* writer_ = nullptr;
  uint32_t mdat_ = 0;
  uint32_t tail_ = 0;  // end of the media data so far: the last frame, then spilled tables
  bool only_appended_ = true;
  SampleCount samples_;
};

// A writer that has no media data writes nothing when it is closed.
Replay::~Replay() {
  if (writer_ == nullptr) return;
  writer_->m_dwMdatSize = 0;
  MP4WriterClose(writer_);
}

int32_t Replay::Open() {
  if (const int32_t result = stream_.Prepare(); Failed(result)) return result;
  constexpr uint8_t kInterleaved = 1;
  int32_t result = MP4WriterOpen(&writer_, stream_.Handle(), kInterleaved, kShortHorizon);
  if (!Failed(result)) result = MP4WriterSetInfo(writer_, &job_.info, 0);
  if (!Failed(result)) result = ResizeTables(*writer_, job_.table_bytes, job_.data_end);
  return result;
}

// The writer believes that it has just written a front of its own; this one has another size. What lies in the media
// data beside the frames is part of the file's size, too.
int32_t Replay::PlaceInFile() {
  if (job_.data_end > kMaxFileSize || job_.mdat < kFixedFrontBytes) return Result(ZMV_E_WRITE);
  mdat_ = static_cast<uint32_t>(job_.mdat);
  tail_ = static_cast<uint32_t>(job_.data_end);
  const uint64_t media = job_.data_end - job_.mdat - kBoxHeaderSize;
  const uint64_t unused = media - std::min(media, job_.live);
  const uint64_t projected = uint64_t{writer_->m_dwCurSize} - writer_->m_dwMdatPos + job_.mdat + unused;
  if (projected + job_.live > kMaxFileSize) return Result(ZMV_E_WRITE);
  writer_->m_dwCurSize = static_cast<uint32_t>(projected);
  writer_->m_dwRecoverSize = mdat_ - kFixedFrontBytes;
  writer_->m_dwMdatPos = mdat_;
  return 0;
}

// Where the writer will put the frame: what it does not find goes into its last track.
MP4WriterTrack* Replay::TrackOf(const FoundFrame& found) const {
  MP4WriterTrack* track = nullptr;
  uint32_t ordinal = 0;
  for (uint32_t i = 0; i < writer_->m_dwTrackNum; ++i) {
    track = writer_->m_pTrack[i];
    if (track->dwMediaType == found.media && ordinal++ == found.track) break;
  }
  return track;
}

// A full buffer goes behind the last frame, not to where the replay stands.
int32_t Replay::MakeRoom(MP4WriterTrack& track, MP4WriterTable& table, uint32_t entry_size) {
  if (uint64_t{table.m_dwUsed} + entry_size <= table.m_dwBufSize) return 0;
  writer_->m_dwMdatSize = tail_ - mdat_;
  stream_.WriteFrom(tail_);
  const int32_t result = MP4WriterWriteBuf(writer_, &track, &table, entry_size);
  stream_.Swallow();
  tail_ = mdat_ + writer_->m_dwMdatSize;
  return result;
}

int32_t Replay::MakeRoom(MP4WriterTrack& track, const FoundFrame& found) {
  int32_t result = MakeRoom(track, track.m_Stts, kSttsEntrySize);
  if (!Failed(result)) result = MakeRoom(track, track.m_Stsz, kStszEntrySize);
  if (!Failed(result)) result = MakeRoom(track, track.m_Stco, kStcoEntrySize);
  if (!Failed(result) && found.media == ZMV_MEDIA_VIDEO && found.key && track.m_Stss.m_pBuf != nullptr) {
    result = MakeRoom(track, track.m_Stss, kStssEntrySize);
  }
  return result;
}

int32_t Replay::ShowFrame(const FoundFrame& found) {
  MP4WriterTrack* const track = TrackOf(found);
  if (track == nullptr) return Result(ZMV_E_FAIL);
  if (const int32_t result = MakeRoom(*track, found); Failed(result)) return result;
  // Swallowed payloads are not looked at; the writer only steps over a start code.
  uint8_t unread[kBoxHeaderSize] = {};
  ZMVFrame frame = {};
  frame.pData = unread;
  frame.dwSize = found.size;
  frame.llTimeStamp = found.time;
  frame.dwDuration = found.new_duration;
  frame.dwTrack = found.track;
  frame.dwMediaType = found.media;
  frame.dwKeyFrame = found.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  // A spilled table may lie between the record and the payload, which is what the tables point at.
  writer_->m_dwMdatSize = static_cast<uint32_t>(found.payload - kRecoveryRecordSize - mdat_);
  samples_.Add(found);
  return MP4WriterWriteFrame(writer_, &frame);
}

// What follows the last frame is being written over by now: nothing that a scan finds there is a frame.
int32_t Replay::ShowFrames() {
  FoundFrame found;
  while (job_.frames.Next(found) && found.position < job_.data_end) {
    if (const int32_t result = ShowFrame(found); Failed(result)) return result;
    if (!job_.progress.Reached(found.position)) return Result(ZMV_E_CANCELLED);
  }
  return job_.frames.Result();
}

int32_t Replay::Close() {
  writer_->m_dwMdatSize = tail_ - mdat_;
  stream_.WriteFrom(tail_);
  UserDataSource source(*writer_);
  if (job_.user_data && samples_.Samples() != 0) {
    if (const int32_t result = source.GiveTo(*writer_, stream_.Named(), samples_.Samples()); Failed(result))
      return result;
  }
  MP4WriterClose(writer_);
  writer_ = nullptr;
  // Closing reports nothing; without memory it leaves out moov, and then the sizes too.
  if (Failed(stream_.Result())) return stream_.Result();
  if (!stream_.Holds()) return Result(ZMV_E_MEMORY);
  if (const int32_t result = stream_.Settle(false); Failed(result)) return result;
  only_appended_ = false;
  return stream_.Commit();
}

int32_t Replay::Run() {
  int32_t result = Open();
  if (!Failed(result)) result = PlaceInFile();
  if (!Failed(result)) result = ShowFrames();
  if (!Failed(result)) result = Close();
  return result;
}

}  // namespace

int32_t CompleteInPlace(const InPlaceJob& job) {
  const uint64_t size = job.file.Size();
  Replay replay(job);
  const int32_t result = replay.Run();
  // What was appended without completing the file goes again.
  if (Failed(result) && replay.OnlyAppended() && job.file.Size() > size) job.file.Truncate(size);
  return result;
}

}  // namespace zmv::recover
