#include "recover/recover_avi_index.h"

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "base/zmv_result.h"
#include "recover/recover_avi_search.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint32_t kFieldSize = 4;
constexpr uint32_t kRiffSize = 4;     // position of the size of the form
constexpr uint32_t kMainFrames = 16;  // in the data of "avih"
constexpr uint32_t kStreamLength = 32;

// Fields of an index entry.
constexpr uint32_t kEntryOffset = 8;
constexpr uint32_t kEntrySize = 12;

}  // namespace

// Null when the bytes are not in the file, and after a failure.
const uint8_t* AviIndexCheck::Read(uint64_t position, uint32_t count) { return window_.At(position, count); }

int32_t AviIndexCheck::Open(const AviFront& front) {
  front_ = &front;
  movi_ = front.front.mdat + kChunkHeaderSize;
  if (!front.front.sound || front.front.mdat_size < kFieldSize) return 0;
  const uint64_t index = movi_ + front.front.mdat_size;
  const uint8_t* head = Read(index, kChunkHeaderSize);
  if (head == nullptr) return window_.Error();
  const uint32_t size = LoadLE32(head + kFieldSize);
  next_ = index + kChunkHeaderSize;
  end_ = next_ + size;
  agrees_ = LoadLE32(head) == FourCC("idx1") && size % kIdx1EntrySize == 0 && end_ <= file_.Size();
  if (agrees_) begin_ = next_;
  return 0;
}

// Frames that are damaged have entries, too.
int32_t AviIndexCheck::Check(const FoundFrame& frame, uint32_t number) {
  ++frames_[number];
  const uint64_t offset = frame.position - movi_;
  while (agrees_) {
    const uint8_t* entry = next_ < end_ ? Read(next_, kIdx1EntrySize) : nullptr;
    if (entry == nullptr) {
      agrees_ = false;
      return window_.Error();
    }
    next_ += kIdx1EntrySize;
    const uint32_t entry_offset = LoadLE32(entry + kEntryOffset);
    if (entry_offset < offset) continue;
    uint32_t stream = 0;
    uint32_t media = 0;
    uint32_t flags = 0;  // which stand where a chunk has its size
    agrees_ = entry_offset == offset && ParseChunkHeader(entry, stream, media, flags) && stream == number &&
              media == frame.media && LoadLE32(entry + kEntrySize) == frame.size;
    key_ = flags == kKeyFrameFlag;
    return 0;
  }
  return 0;
}

// The form ends behind the index, and with the file at the latest.
bool AviIndexCheck::FormAgrees() {
  const uint8_t* riff = Read(kRiffSize, kFieldSize);
  const uint64_t end = riff != nullptr ? uint64_t{LoadLE32(riff)} + kChunkHeaderSize : 0;
  return end >= end_ && end <= file_.Size();
}

// The counts cover what was recorded, which can be more than what is found.
bool AviIndexCheck::CountsAgree(const Counts& counts) {
  uint64_t videos = 0;
  for (uint32_t i = 0; i < front_->stream_count; ++i) {
    const AviStream& stream = front_->streams[i];
    const uint8_t* length = Read(stream.header + kStreamLength, kFieldSize);
    if (length == nullptr || LoadLE32(length) < counts[i]) return false;
    if (stream.media == ZMV_MEDIA_VIDEO) videos += counts[i];
  }
  const uint8_t* frames = Read(front_->main_header + kMainFrames, kFieldSize);
  return frames != nullptr && LoadLE32(frames) >= videos;
}

// The header alone is read: entries follow each other, the chunks they name lie anywhere.
bool AviIndexCheck::IsChunk(uint64_t offset, uint32_t code, uint32_t size) {
  uint8_t header[kChunkHeaderSize];
  return file_.ReadAt(movi_ + offset, header, sizeof header) == sizeof header && LoadLE32(header) == code &&
         LoadLE32(header + kFieldSize) == size;
}

bool AviIndexCheck::NamesChunks(Counts& counts) {
  uint64_t free = kFieldSize;  // behind the last chunk
  for (uint64_t at = begin_; at < end_; at += kIdx1EntrySize) {
    const uint8_t* entry = Read(at, kIdx1EntrySize);
    uint32_t stream = 0;
    uint32_t media = 0;
    uint32_t flags = 0;
    if (entry == nullptr || !ParseChunkHeader(entry, stream, media, flags)) return false;
    const uint32_t offset = LoadLE32(entry + kEntryOffset);
    const uint32_t size = LoadLE32(entry + kEntrySize);
    if (offset < free || !IsChunk(offset, LoadLE32(entry), size)) return false;
    free = uint64_t{offset} + kChunkHeaderSize + size;
    ++counts[stream];
  }
  return free <= front_->front.mdat_size;
}

int32_t AviIndexCheck::Finish(uint64_t items_end, bool damaged) {
  if (begin_ == 0) return 0;
  const bool form = FormAgrees();
  agrees_ = agrees_ && form && items_end == movi_ + front_->front.mdat_size && CountsAgree(frames_);
  closed_ = agrees_;
  if (form && damaged && !agrees_) {
    Counts counts = {};
    closed_ = NamesChunks(counts) && CountsAgree(counts);
  }
  return window_.Error();
}

}  // namespace zmv::recover
