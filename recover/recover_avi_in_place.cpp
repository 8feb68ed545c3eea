#include "recover/recover_avi_in_place.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "avi/avi_writer.h"
#include "avi/riff_builder.h"
#include "base/arith.h"
#include "base/zmv_result.h"
#include "recover/recover_replay_stream.h"
#include "stream/zmvstream_buf.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint64_t kMaxFileSize = 0xFFFFFFFF;
// What the length of a sound stream counts for a compressed frame, as the writer does.
constexpr uint32_t kCompressedLength = 2;

// What the headers say of a stream once the file is closed.
struct Counts {
  uint32_t length = 0;
  uint32_t largest = 0;  // payload
};

class Closing {
 public:
  explicit Closing(const AviInPlaceJob& job) : job_(job), front_(job.frames.avi()), stream_(job.file) {}

  int32_t Run();
  // Only bytes behind the media data have been written, so far.
  bool OnlyAppended() const { return only_appended_; }

 private:
  bool Fits() const;
  int32_t AppendIndex();
  int32_t AppendEntry(const FoundFrame& frame);
  int32_t AppendName();
  int32_t CoverRest();
  int32_t SetHeaders();
  int32_t SetWord(uint64_t position, uint32_t value);
  uint64_t MoviCode() const { return front_.front.mdat + kChunkHeaderSize; }
  bool LacksPad() const { return (job_.data_end - front_.front.end) % 2 != 0; }

  const AviInPlaceJob& job_;
  const AviFront& front_;
  ReplayStream stream_;
  Counts counts_[kMaxStreams] = {};
  uint32_t videos_ = 0;
  uint32_t movi_size_ = 0;
  uint32_t end_ = 0;  // of the chunk with the name
  bool only_appended_ = true;
};

bool Closing::Fits() const {
  const uint64_t index = kChunkHeaderSize + uint64_t{job_.count} * kIdx1EntrySize;
  return job_.data_end + (LacksPad() ? 1 : 0) + index + ChunkBytes(kNameSize) <= kMaxFileSize;
}

int32_t Closing::AppendEntry(const FoundFrame& frame) {
  const uint32_t number = job_.frames.NumberOf(frame);
  const bool video = frame.media == ZMV_MEDIA_VIDEO;
  uint8_t entry[kIdx1EntrySize];
  RiffBuilder(entry)
      .Code(ChunkCode(number, frame.media))
      .U32(!video || frame.key ? kKeyFrameFlag : 0)
      .U32(static_cast<uint32_t>(frame.position - MoviCode()))
      .U32(frame.size);
  Counts& counts = counts_[number];
  const AviStream& stream = front_.streams[number];
  const bool pcm = stream.media == ZMV_MEDIA_AUDIO && stream.code == kPcmTag;
  counts.length += frame.media != ZMV_MEDIA_AUDIO ? 1 : pcm ? frame.size / 2 + 1 : kCompressedLength;
  counts.largest = std::max(counts.largest, frame.size);
  videos_ += video ? 1 : 0;
  return stream_.Append(entry, sizeof entry);
}

// The scan ends with the frames that were found before: what follows them is being written over.
int32_t Closing::AppendIndex() {
  uint8_t header[kChunkHeaderSize];
  RiffBuilder(header).Code(FourCC("idx1")).U32(job_.count * kIdx1EntrySize);
  if (const int32_t result = stream_.Append(header, sizeof header); Failed(result)) return result;
  FoundFrame frame;
  for (uint32_t i = 0; i < job_.count; ++i) {
    if (!job_.frames.Next(frame)) {
      return Failed(job_.frames.Result()) ? job_.frames.Result() : Result(ZMV_E_READ);
    }
    if (const int32_t result = AppendEntry(frame); Failed(result)) return result;
  }
  return 0;
}

int32_t Closing::AppendName() {
  uint8_t chunk[kChunkHeaderSize + kNameSize];
  RiffBuilder out(chunk);
  out.Code(FourCC("JUNK")).U32(kNameSize);
  uint8_t* const text = out.At();
  out.Zeros(kNameSize);
  if (job_.path != nullptr) std::memcpy(text, job_.path, strnlen(job_.path, kNameSize - 1));
  const int32_t result = stream_.Append(chunk, sizeof chunk);
  end_ = stream_.End();
  return result;
}

// What lies behind the last chunk is covered by one more, of nothing where nothing is left, as closing does by itself.
// What it does not cover goes: all of the rest where the application takes care of it, or the chunk has no room, and
// what no position of 32 bits reaches. Then everything is on the medium.
int32_t Closing::CoverRest() {
  const bool cut = ZMVStreamBuf_GetOption() != 0 || kMaxFileSize - end_ < kChunkHeaderSize;
  if (!cut) {
    const uint64_t size = std::min(job_.file.Size(), kMaxFileSize);
    const uint64_t covered = size - std::min<uint64_t>(size, uint64_t{end_} + kChunkHeaderSize);
    uint8_t header[kChunkHeaderSize];
    RiffBuilder(header).Code(FourCC("JUNK")).U32(SaturatingU32(covered));
    if (const int32_t result = stream_.Append(header, sizeof header); Failed(result)) return result;
    if (job_.file.Size() > size) {
      if (const int32_t result = job_.file.Truncate(size); Failed(result)) return result;
    }
  }
  return stream_.Settle(cut);
}

int32_t Closing::SetWord(uint64_t position, uint32_t value) {
  uint8_t bytes[sizeof value];
  StoreLE32(bytes, value);
  return job_.file.WriteAt(position, bytes, sizeof bytes);
}

// The size of the form, which makes the file whole, is the last word that changes.
int32_t Closing::SetHeaders() {
  only_appended_ = false;
  constexpr uint32_t kFrames = offsetof(AVIWriterMainHeader, dwTotalFrames);
  constexpr uint32_t kLargest = offsetof(AVIWriterMainHeader, dwSuggestedBufferSize);
  constexpr uint32_t kStreamLength = offsetof(AVIWriterStreamHeader, dwLength);
  constexpr uint32_t kStreamLargest = offsetof(AVIWriterStreamHeader, dwSuggestedBufferSize);
  int32_t result = SetWord(front_.main_header + kFrames, videos_);
  uint32_t largest = 0;
  for (uint32_t i = 0; i < front_.stream_count; ++i) {
    const uint64_t header = front_.streams[i].header;
    if (!Failed(result)) result = SetWord(header + kStreamLength, counts_[i].length);
    if (!Failed(result)) result = SetWord(header + kStreamLargest, counts_[i].largest);
    largest = std::max(largest, counts_[i].largest);
  }
  if (!Failed(result)) result = SetWord(front_.main_header + kLargest, largest);
  if (!Failed(result)) result = SetWord(front_.front.mdat + sizeof(uint32_t), movi_size_);
  if (!Failed(result)) result = job_.file.Sync();
  if (!Failed(result)) result = SetWord(kRiffSizePosition, end_ - kChunkHeaderSize);
  if (!Failed(result)) result = job_.file.Sync();
  return result;
}

int32_t Closing::Run() {
  if (!Fits()) return Result(ZMV_E_WRITE);
  if (const int32_t result = stream_.Prepare(); Failed(result)) return result;
  stream_.WriteFrom(static_cast<uint32_t>(job_.data_end));
  constexpr uint8_t kPad = 0;
  int32_t result = LacksPad() ? stream_.Append(&kPad, sizeof kPad) : 0;
  movi_size_ = static_cast<uint32_t>(stream_.End() - MoviCode());
  if (!Failed(result)) result = AppendIndex();
  if (!Failed(result)) result = AppendName();
  if (!Failed(result)) result = CoverRest();
  if (!Failed(result)) result = SetHeaders();
  return result;
}

}  // namespace

int32_t CompleteAviInPlace(const AviInPlaceJob& job) {
  const uint64_t size = job.file.Size();
  Closing closing(job);
  const int32_t result = closing.Run();
  // What was appended without completing the file goes again.
  if (Failed(result) && closing.OnlyAppended() && job.file.Size() > size) job.file.Truncate(size);
  return result;
}

}  // namespace zmv::recover
