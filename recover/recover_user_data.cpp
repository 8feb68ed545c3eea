#include "recover/recover_user_data.h"

#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/zmv_mp4_format.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

using namespace zmv::mp4;

// The entries of a table of 32-bit numbers, in order: spilled blocks from the file, then the writer's buffer.
class TableEntries {
 public:
  TableEntries(const MP4WriterTable& table, Output& output) : table_(table), output_(output) {}

  // The next entry; false behind the last one and after a failure to read.
  bool Next(uint32_t& value) {
    if (at_ == filled_ && !Fill()) return false;
    value = LoadBE32(batch_ + at_);
    at_ += kEntry;
    return true;
  }

 private:
  static constexpr uint32_t kEntry = 4;
  static constexpr uint32_t kBatch = 1024;

  bool Fill() {
    const uint64_t in_spills = uint64_t{table_.m_dwSpillNum} * table_.m_dwBufSize;
    at_ = filled_ = 0;
    if (taken_ < in_spills) {
      const uint32_t spill = static_cast<uint32_t>(taken_ / table_.m_dwBufSize);
      const uint32_t offset = static_cast<uint32_t>(taken_ % table_.m_dwBufSize);
      const uint32_t count = std::min(kBatch, table_.m_dwBufSize - offset);
      const uint64_t position = uint64_t{table_.m_dwSpillPos[spill]} + kSpillHeaderSize + offset;
      if (Failed(output_.Read(position, batch_, count))) return false;
      filled_ = count;
    } else {
      const uint64_t offset = taken_ - in_spills;
      if (offset >= table_.m_dwUsed) return false;
      filled_ = static_cast<uint32_t>(std::min<uint64_t>(kBatch, table_.m_dwUsed - offset));
      std::memcpy(batch_, table_.m_pBuf + offset, filled_);
    }
    taken_ += filled_;
    return true;
  }

  const MP4WriterTable& table_;
  Output& output_;
  uint64_t taken_ = 0;  // bytes of the table that have been in the batch
  uint32_t at_ = 0;
  uint32_t filled_ = 0;
  uint8_t batch_[kBatch];
};

// The text frames of one track that are long enough for blocks.
class TextFrames {
 public:
  TextFrames(const MP4WriterTrack& track, Output& output)
      : positions_(track.m_Stco, output), sizes_(track.m_Stsz, output) {
    Advance();
  }
  bool Left() const { return left_; }
  uint32_t Position() const { return position_; }
  void Advance() {
    uint32_t size = 0;
    do {
      left_ = positions_.Next(position_) && sizes_.Next(size);
    } while (left_ && size < kUserDataPayloadSize);
  }

 private:
  TableEntries positions_;
  TableEntries sizes_;
  uint32_t position_ = 0;
  bool left_ = false;
};

// Runs through the frames of up to two text tracks in file order. `append` receives the blocks of each.
template <typename Append>
int32_t ForEachSample(const MP4WriterHandle& writer, Output& output, Append append) {
  const MP4WriterTrack* tracks[ZMV_MAX_TEXT] = {};
  uint32_t count = 0;
  for (uint32_t i = 0; i < writer.m_dwTrackNum && count < ZMV_MAX_TEXT; ++i) {
    if (writer.m_pTrack[i]->dwMediaType == ZMV_MEDIA_TEXT) tracks[count++] = writer.m_pTrack[i];
  }
  if (count == 0) return 0;
  TextFrames first(*tracks[0], output);
  TextFrames second(*tracks[count - 1], output);
  const bool two = count == ZMV_MAX_TEXT;
  while (first.Left() || (two && second.Left())) {
    const bool take_second = two && second.Left() && (!first.Left() || second.Position() < first.Position());
    TextFrames& frames = take_second ? second : first;
    uint8_t blocks[kUserDataPayloadSize - kGpsBlockOffset];
    if (const int32_t result = output.Read(uint64_t{frames.Position()} + kGpsBlockOffset, blocks, sizeof blocks);
        Failed(result)) {
      return result;
    }
    if (const int32_t result = append(blocks); Failed(result)) return result;
    frames.Advance();
  }
  return output.Result();
}

}  // namespace

bool WantsUserData(uint32_t policy, const ZMVRecoverReport& report) {
  if (policy == ZMV_RECOVER_USER_DATA_ALWAYS) return true;
  return policy == ZMV_RECOVER_USER_DATA_AUTO && report.bUserData != 0;
}

// A stream that is not described has its frames in the last track, which is a text track when there is one.
void SampleCount::Add(const FoundFrame& frame) {
  if (info_.dwTextCount == 0) return;
  if (frame.media == ZMV_MEDIA_TEXT) {
    if (frame.size >= kUserDataPayloadSize) ++samples_;
  } else if (frame.track >= (frame.media == ZMV_MEDIA_VIDEO ? info_.dwVideoCount : info_.dwAudioCount)) {
    mixed_ = true;
  }
}

int32_t UserDataSource::GiveTo(MP4WriterHandle& writer, NamedBytes& names, uint32_t samples) {
  HostMemory<uint8_t> gps = AllocateBytes(kModule, 1, __func__);
  HostMemory<uint8_t> sensor = AllocateBytes(kModule, 1, __func__);
  if (!gps || !sensor) return zmv::Result(ZMV_E_MEMORY);
  names.Set(this, gps.Get(), sensor.Get());
  writer.m_pGpsr = gps.Release();
  writer.m_pSens = sensor.Release();
  writer.m_dwGpsrMax = writer.m_dwGpsrNum = samples;
  writer.m_dwSensMax = writer.m_dwSensNum = samples;
  writer.m_bExtUserData = 1;
  return 0;
}

int32_t UserDataSource::Generate(const void* name, Output& output) {
  if (name == writer_.m_pSens) {
    return ForEachSample(writer_, output, [&](const uint8_t* blocks) {
      return output.Append(blocks + (kSensorBlockOffset - kGpsBlockOffset), kSensorBlockSize);
    });
  }
  uint32_t number = 0;
  return ForEachSample(writer_, output, [&](const uint8_t* blocks) {
    uint8_t head[kGpsEntrySize - kGpsBlockSize];
    StoreLE32(head, number++);
    StoreLE32(head + 4, kGpsBlockSize);
    if (const int32_t result = output.Append(head, sizeof head); Failed(result)) return result;
    return output.Append(blocks, kGpsBlockSize);
  });
}

}  // namespace zmv::recover
