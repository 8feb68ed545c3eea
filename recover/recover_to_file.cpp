#include "recover/recover_to_file.h"

#include <cstdio>
#include <cstring>

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"
#include "facade/zmvstream_writer_records.h"
#include "mp4/zmv_mp4_format.h"
#include "platform/zmv_platform.h"
#include "recover/recover_front.h"
#include "recover/recover_module.h"
#include "recover/recover_tables.h"
#include "recover/recover_user_data.h"
#include "stream/zmvstream_file.h"

namespace zmv::recover {
namespace {

using namespace zmv::mp4;

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
constexpr uint32_t kFirstSamples = 256;
constexpr uint32_t kMostSamples = 0xFFFFFFFFu / kGpsEntrySize;
// A horizon that sets up small tables, which are then given buffers of their own.
constexpr uint64_t kShortHorizon = 1;
constexpr uint32_t kReadCursor = 1;  // the container's second one

class NewRecording {
 public:
  explicit NewRecording(const ToFileJob& job) : job_(job), info_(job.info) {}
  ~NewRecording() {
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
  bool CollectsUserData() const {
    return IsMp4() && job_.info.dwTextCount != 0 && job_.user_data != ZMV_RECOVER_USER_DATA_NEVER;
  }
  bool SizesArePatched(uint32_t mdat);
  int32_t MakeRoomForSample();
  int32_t CopyFrame(const FoundFrame& found);
  bool IsLengthPrefixed(const FoundFrame& found) const;

  const ToFileJob& job_;
  ZMVFileInfo info_;  // the writer completes the description of sound
  ZMVWriter* writer_ = nullptr;
};

int32_t NewRecording::Open() {
  ZMVWriterParam param = {};
  param.dwFormat = job_.format;
  param.pszPath = job_.target;
  param.bInterleave = 1;
  param.llExpire = kShortHorizon;
  if (const int32_t result = ZMVWriterOpen(&writer_, &param); Failed(result)) return result;
  if (const int32_t result = ZMVWriterSetInfo(writer_, &info_, 0); Failed(result)) return result;
  ZMVWriterSetSync(writer_, 1);
  return IsMp4() ? ResizeTables(Mp4(), kTableBytes) : 0;
}

// How many samples there will be is not known, so the writer's memory for them grows as they come. Whether their boxes
// are wanted shows in the end.
int32_t NewRecording::MakeRoomForSample() {
  MP4WriterHandle& writer = Mp4();
  if (writer.m_dwGpsrNum < writer.m_dwGpsrMax) return 0;
  if (writer.m_dwGpsrMax > kMostSamples / 2) return Result(ZMV_E_MEMORY);
  const uint32_t samples = writer.m_dwGpsrMax == 0 ? kFirstSamples : writer.m_dwGpsrMax * 2;
  void* gps = ZMV_ReAlloc(writer.m_pGpsr, samples * kGpsEntrySize, 0, kModule.source, __LINE__, __func__);
  if (gps == nullptr) return Result(ZMV_E_MEMORY);
  writer.m_pGpsr = static_cast<uint8_t*>(gps);
  void* sensor = ZMV_ReAlloc(writer.m_pSens, samples * kSensorBlockSize, 0, kModule.source, __LINE__, __func__);
  if (sensor == nullptr) return Result(ZMV_E_MEMORY);
  writer.m_pSens = static_cast<uint8_t*>(sensor);
  writer.m_dwGpsrMax = writer.m_dwSensMax = samples;
  writer.m_bExtUserData = 1;
  return 0;
}

bool NewRecording::IsLengthPrefixed(const FoundFrame& found) const {
  return IsMp4() && found.media == ZMV_MEDIA_VIDEO && found.size >= sizeof kStartCode &&
         BeginsWithLength(job_.info.m_Video[found.track].dwFourCC);
}

int32_t NewRecording::CopyFrame(const FoundFrame& found) {
  if (found.media == ZMV_MEDIA_TEXT && CollectsUserData()) {
    if (const int32_t result = MakeRoomForSample(); Failed(result)) return result;
  }
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

// Closing reports nothing, so the container is closed first, while the stream and the host can still be asked.
int32_t NewRecording::Finish() {
  if (IsMp4() && (Mp4().m_dwGpsrNum == 0 || !WantsUserData(job_.user_data, job_.frames.Report()))) {
    Mp4().m_bExtUserData = 0;
  }
  const uint32_t mdat = IsMp4() ? Mp4().m_dwMdatPos : 0;
  writer_->operations.Close(writer_->hWriter);
  writer_->hWriter = nullptr;
  void* const file = static_cast<ZMVStreamFile*>(writer_->m_hInOut->hInOut)->m_hFile;
  const bool failed = ZMV_FileSync(file) < 0 || std::ferror(static_cast<std::FILE*>(file)) != 0;
  const bool complete = failed || !IsMp4() || SizesArePatched(mdat);
  ZMVWriterClose(writer_);
  writer_ = nullptr;
  if (failed) return Result(ZMV_E_WRITE);
  return complete ? 0 : Result(ZMV_E_MEMORY);
}

}  // namespace

int32_t WriteNewRecording(const ToFileJob& job) {
  NewRecording recording(job);
  int32_t result = recording.Open();
  if (!Failed(result)) result = recording.CopyFrames();
  return Failed(result) ? result : recording.Finish();
}

}  // namespace zmv::recover
