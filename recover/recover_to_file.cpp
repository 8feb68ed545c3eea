#include "recover/recover_to_file.h"

#include <cstdio>
#include <cstring>

#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"
#include "facade/zmvstream_writer_records.h"
#include "mp4/zmv_mp4_format.h"
#include "platform/zmv_platform.h"
#include "recover/recover_front.h"
#include "recover/recover_module.h"
#include "recover/recover_tables.h"
#include "recover/recover_user_data.h"
#include "recover/recover_watched_stream.h"
#include "stream/zmvstream_file.h"

namespace zmv::recover {
namespace {

using namespace zmv::mp4;

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
// A horizon that sets up small tables, which are then given buffers of their own.
constexpr uint64_t kShortHorizon = 1;
constexpr uint32_t kReadCursor = 1;  // the container's second one

class NewRecording {
 public:
  explicit NewRecording(const ToFileJob& job) : job_(job), info_(job.info), samples_(job.info) {}
  ~NewRecording() {
    stream_.Detach();
    if (writer_ != nullptr) ZMVWriterClose(writer_);
  }
  NewRecording(const NewRecording&) = delete;
  NewRecording& operator=(const NewRecording&) = delete;

  int32_t Open();
  int32_t CopyFrames();
  int32_t Finish();

 private:
  bool IsMp4() const { return job_.format == ZMV_FORMAT_MP4; }
  MP4WriterHandle& Mp4() const { return *static_cast<MP4WriterHandle*>(writer_->hWriter); }
  bool SizesArePatched(uint32_t mdat);
  int32_t CopyFrame(const FoundFrame& found);
  int32_t Close();
  bool IsLengthPrefixed(const FoundFrame& found) const;

  const ToFileJob& job_;
  ZMVFileInfo info_;  // the writer completes the description of sound
  ZMVWriter* writer_ = nullptr;
  WatchedStream stream_;
  SampleCount samples_;
};

int32_t NewRecording::Open() {
  ZMVWriterParam param = {};
  param.dwFormat = job_.format;
  param.pszPath = job_.target;
  param.bInterleave = 1;
  param.llExpire = kShortHorizon;
  if (const int32_t result = ZMVWriterOpen(&writer_, &param); Failed(result)) return result;
  stream_.Attach(*writer_->m_hInOut);
  if (const int32_t result = ZMVWriterSetInfo(writer_, &info_, 0); Failed(result)) return result;
  ZMVWriterSetSync(writer_, 1);
  return IsMp4() ? ResizeTables(Mp4(), kTableBytes, job_.source_size) : 0;
}

bool NewRecording::IsLengthPrefixed(const FoundFrame& found) const {
  return IsMp4() && found.media == ZMV_MEDIA_VIDEO && found.track < job_.info.dwVideoCount &&
         found.size >= sizeof kStartCode && BeginsWithLength(job_.info.m_Video[found.track].dwFourCC);
}

int32_t NewRecording::CopyFrame(const FoundFrame& found) {
  samples_.Add(found);
  ZMVFrame frame = {};
  // The scan's memory, which is not the file's; it is given back as it was.
  frame.pData = const_cast<uint8_t*>(found.bytes);
  frame.dwSize = found.size;
  frame.llTimeStamp = found.time;
  frame.dwDuration = found.new_duration;
  frame.dwTrack = found.track;
  frame.dwMediaType = found.media;
  frame.dwKeyFrame = found.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  if (!IsLengthPrefixed(found)) return ZMVWriterWrite(writer_, &frame);
  uint8_t stored[sizeof kStartCode];
  std::memcpy(stored, frame.pData, sizeof stored);
  std::memcpy(frame.pData, kStartCode, sizeof kStartCode);
  const int32_t result = ZMVWriterWrite(writer_, &frame);
  std::memcpy(frame.pData, stored, sizeof stored);
  return result;
}

int32_t NewRecording::CopyFrames() {
  FoundFrame found;
  while (job_.frames.Next(found)) {
    if (const int32_t result = CopyFrame(found); Failed(result)) return result;
  }
  return job_.frames.Result();
}

// True when the size of the media data has been patched, which closing leaves out, with all of moov, when it has no
// memory.
bool NewRecording::SizesArePatched(uint32_t mdat) {
  ZMVStreamBuf* const stream = writer_->m_hInOut;
  int64_t error = 0;
  if (Failed(ZMVStreamBuf_Seek(stream, kReadCursor, mdat))) return false;
  const uint64_t size = ZMVStreamBuf_ReadDWordBE(stream, kReadCursor, &error);
  if (error != 0) return false;
  return size > kBoxHeaderSize || job_.frames.Report().dwFrames == 0;
}

// The container alone, while the stream and the host can still be asked. The writer has collected no samples: their
// boxes are wanted or not, as all text frames together look.
int32_t NewRecording::Close() {
  if (!IsMp4()) {
    writer_->operations.Close(writer_->hWriter);
    writer_->hWriter = nullptr;
    return 0;
  }
  const uint32_t mdat = Mp4().m_dwMdatPos;
  UserDataSource source(Mp4());
  if (samples_.Samples() != 0 && WantsUserData(job_.user_data, job_.frames.Report())) {
    if (const int32_t result = source.GiveTo(Mp4(), stream_.Named(), samples_.Samples()); Failed(result)) return result;
  }
  writer_->operations.Close(writer_->hWriter);
  writer_->hWriter = nullptr;
  stream_.Named().Set(nullptr, nullptr, nullptr);
  return SizesArePatched(mdat) ? 0 : Result(ZMV_E_MEMORY);
}

int32_t NewRecording::Finish() {
  const int32_t closed = Close();
  const int32_t streamed = stream_.Result();
  stream_.Detach();
  void* const file = static_cast<ZMVStreamFile*>(writer_->m_hInOut->hInOut)->m_hFile;
  const bool failed = ZMV_FileSync(file) < 0 || std::ferror(static_cast<std::FILE*>(file)) != 0;
  ZMVWriterClose(writer_);
  writer_ = nullptr;
  // What did not reach the file cannot be read back from it either.
  if (failed) return Result(ZMV_E_WRITE);
  return Failed(streamed) ? streamed : closed;
}

}  // namespace

int32_t WriteNewRecording(const ToFileJob& job) {
  NewRecording recording(job);
  int32_t result = recording.Open();
  if (!Failed(result)) result = recording.CopyFrames();
  return Failed(result) ? result : recording.Finish();
}

}  // namespace zmv::recover
