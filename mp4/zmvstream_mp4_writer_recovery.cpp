// What the MP4 writer stores besides the media: the boxes and records from which a cut recording can be rebuilt, and
// the GPS and sensor samples that text frames carry.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/arith.h"
#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/box_builder.h"
#include "mp4/mp4_writer.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "platform/zmv_platform.h"

namespace zmv::mp4 {

uint8_t* pExtUserLast = nullptr;

namespace {

constexpr uint32_t kMaxRecoveryBoxSize = 44 + ZMV_MAX_EXTRA_DATA;

// The random box: its size is a multiple of 32 up to 1024.
constexpr uint32_t kRandomRange = 1024;
constexpr uint32_t kRandomStep = 32;
constexpr uint32_t kRandomHeaderSize = kBoxHeaderSize + 4;
constexpr char kRecoveryBrand[] = "Recovery";

constexpr uint32_t kBuildTextLimit = 19;
constexpr uint32_t kAiddBoxSize = 12;

// Memory for this many samples per second and this long, when the file does not say how long it is to be.
constexpr uint64_t kDefaultUserSeconds = 60;
constexpr uint64_t kUserSampleMargin = 2;
constexpr uint32_t kThousandthsAbove = 1000;

int32_t WriteFrontBox(MP4WriterHandle& writer, const uint8_t* box, uint32_t size) {
  writer.m_dwRecoverSize += size;
  writer.m_dwCurSize += size;
  return WriteOrTrace(writer, box, size);
}

int32_t WriteAudioBox(MP4WriterHandle& writer, const ZMVAudioInfo& audio) {
  uint8_t box[kMaxRecoveryBoxSize];
  BoxBuilder out(box);
  {
    Box free(out, FourCC("free"));
    out.Code(FourCC("RECO")).U32(0).U32(audio.dwFormat);
    out.U32(audio.dwChannels).U32(audio.dwSampleRate).U32(audio.dwBitsPerSample).U32(audio.dwBitRate);
    out.U32(audio.dwSampleRate);  // the time scale
    out.U32(audio.dwExtraDataSize).Bytes(audio.abExtraData, audio.dwExtraDataSize);
  }
  return WriteFrontBox(writer, box, out.Size());
}

int32_t WriteVideoBox(MP4WriterHandle& writer, const ZMVFileInfo& info, const ZMVVideoInfo& video) {
  uint8_t box[kMaxRecoveryBoxSize];
  BoxBuilder out(box);
  {
    Box free(out, FourCC("free"));
    out.Code(FourCC("RECO")).U32(0).Code(SampleEntryType(video.dwFourCC));
    out.U32(video.dwWidth).U32(video.dwHeight).U32(video.dwFrameRate).U32(video.dwBitRate);
    out.U32(EffectiveTimeScale(info, video));
    out.U32(video.dwExtraDataSize).Bytes(video.abExtraData, video.dwExtraDataSize);
  }
  return WriteFrontBox(writer, box, out.Size());
}

int32_t WriteTextBox(MP4WriterHandle& writer, const ZMVFileInfo& info, const ZMVTextInfo& text) {
  uint8_t box[kMaxRecoveryBoxSize];
  BoxBuilder out(box);
  {
    Box free(out, FourCC("free"));
    out.Code(FourCC("RECO")).U32(0).Code(text.dwFourCC);
    out.U32(text.dwRate).U32(text.dwBitRate).U32(EffectiveTimeScale(info, text));
  }
  return WriteFrontBox(writer, box, out.Size());
}

// A box of random size, which varies where the media data begins; its content is zero bytes.
int32_t WriteRandomBox(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  char brand[sizeof info.szSoftware + 1] = {};
  std::memcpy(brand, info.szSoftware, sizeof info.szSoftware);
  ZMV_TRACE(kWriterModule, kTraceError, "Brand custom (%s)\n", brand);
  const uint32_t drawn = static_cast<uint32_t>(std::rand()) % kRandomRange + kRandomStep - 1;
  const uint32_t size = drawn - drawn % kRandomStep;
  HostMemory<uint8_t> content;
  if (size != 0) content = HostMemory<uint8_t>(kWriterModule, size - kRandomHeaderSize, HostFill::kZero, __func__);
  if (!content) {
    ZMV_TRACE(kWriterModule, kTraceError, "can not alloc for random size chunk data size(%d)\n",
              static_cast<int>(size - kRandomHeaderSize));
    return 0;
  }
  uint8_t header[kRandomHeaderSize];
  StoreBE32(header, size);
  StoreLE32(header + 4, FourCC("free"));
  StoreLE32(header + 8, std::strcmp(brand, kRecoveryBrand) == 0 ? FourCC("rcvf") : 0);
  if (const int32_t result = WriteFrontBox(writer, header, sizeof header); Failed(result)) return result;
  return WriteFrontBox(writer, content.Get(), size - kRandomHeaderSize);
}

// ---- User data

// Writers on several threads share the last sample. It is held for the copy of a sample at most; a thread that finds it
// held sleeps, so that a holder of lower priority gets to run.
std::atomic_flag last_sample_busy = ATOMIC_FLAG_INIT;
constexpr timespec kLastSampleWait = {0, 50'000};

class LastSampleGuard {
 public:
  LastSampleGuard() {
    while (last_sample_busy.test_and_set(std::memory_order_acquire)) nanosleep(&kLastSampleWait, nullptr);
  }
  ~LastSampleGuard() { last_sample_busy.clear(std::memory_order_release); }
  LastSampleGuard(const LastSampleGuard&) = delete;
  LastSampleGuard& operator=(const LastSampleGuard&) = delete;
};

bool HasLastSample() {
  LastSampleGuard guard;
  return pExtUserLast != nullptr;
}

// Takes the memory of the last sample, once for all writers. Another writer may do so at the same time: the first
// stays.
void PrepareLastSample() {
  if (HasLastSample()) return;
  HostMemory<uint8_t> memory(kWriterModule, kUserSampleSize, HostFill::kZero, __func__);
  LastSampleGuard guard;
  if (pExtUserLast == nullptr) pExtUserLast = memory.Release();
}

// Rates and durations above 1000 are thousandths.
uint64_t Whole(uint32_t value) { return value > kThousandthsAbove ? value / kThousandthsAbove : value; }

// A user box of `count` entries, or of the last sample of any writer when there are none. Returns its bytes; write
// results are not looked at, since a recording without them is still a recording.
uint32_t WriteUserBox(MP4WriterHandle& writer, uint32_t type, const uint8_t* entries, uint32_t count,
                      uint32_t entry_size, uint32_t offset_in_last) {
  uint8_t last[kUserSampleSize] = {};
  if (count == 0) {
    LastSampleGuard guard;
    // The length word of the GPS entry tells a sample from memory that is still clear.
    if (pExtUserLast == nullptr || LoadLE32(pExtUserLast + 4) == 0) return 0;
    std::memcpy(last, pExtUserLast + offset_in_last, entry_size);
  }
  const uint32_t bytes = count == 0 ? entry_size : count * entry_size;
  uint8_t header[kBoxHeaderSize];
  StoreBE32(header, kBoxHeaderSize + bytes);
  StoreLE32(header + 4, type);
  WriteBytes(writer, header, sizeof header);
  WriteBytes(writer, count == 0 ? last : entries, bytes);
  return kBoxHeaderSize + bytes;
}

uint32_t WriteGpsr(MP4WriterHandle& writer) {
  return WriteUserBox(writer, FourCC("GPSR"), writer.m_pGpsr, writer.m_dwGpsrNum, kGpsEntrySize, 0);
}

uint32_t WriteSens(MP4WriterHandle& writer) {
  return WriteUserBox(writer, FourCC("SENS"), writer.m_pSens, writer.m_dwSensNum, kSensorBlockSize, kGpsEntrySize);
}

// A value that applications rewrite in place.
uint32_t WriteAidd(MP4WriterHandle& writer) {
  uint8_t box[kAiddBoxSize];
  StoreBE32(box, kAiddBoxSize);
  StoreLE32(box + 4, FourCC("AIDD"));
  StoreBE32(box + 8, writer.m_dwAidd);
  WriteBytes(writer, box, sizeof box);
  return kAiddBoxSize;
}

}  // namespace

int32_t WriteRecoveryBoxes(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  if (info.dwAudioCount != 0) {
    if (const int32_t result = WriteAudioBox(writer, info.m_Audio); Failed(result)) return result;
  }
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
    if (const int32_t result = WriteVideoBox(writer, info, info.m_Video[i]); Failed(result)) return result;
  }
  for (uint32_t i = 0; i < info.dwTextCount; ++i) {
    if (const int32_t result = WriteTextBox(writer, info, info.m_Text[i]); Failed(result)) return result;
  }
  return WriteRandomBox(writer, info);
}

int32_t WriteBuildInformation(MP4WriterHandle& writer) {
  char text[kBuildTextLimit + 1];
  ZMV_snprintf(text, sizeof text, "%s KPZ", __DATE__);
  uint8_t box[kBoxHeaderSize + kBuildInfoTextSize];
  StoreBE32(box, sizeof box);
  StoreLE32(box + 4, FourCC("free"));
  std::memcpy(box + kBoxHeaderSize, text, kBuildInfoTextSize);
  writer.m_dwCurSize += static_cast<uint32_t>(sizeof box);
  return WriteOrTrace(writer, box, sizeof box);
}

int64_t WriteRecoveryRecord(MP4WriterHandle& writer, const ZMVFrame& frame) {
  const bool key = frame.dwMediaType == ZMV_MEDIA_VIDEO && frame.dwKeyFrame == ZMV_KEY_FRAME;
  uint8_t record[kRecoveryRecordSize];
  StoreLE32(record, FourCC("RECO"));
  StoreBE32(record + 4, frame.dwMediaType);
  StoreBE32(record + 8, key ? 1 : 0);
  StoreBE32(record + 12, static_cast<uint32_t>(frame.llTimeStamp));
  StoreBE32(record + 16, frame.dwDuration);
  StoreBE32(record + 20, frame.dwTrack);
  StoreBE32(record + 24, frame.dwSize);
  const int64_t result = WriteMedia(writer, record, sizeof record);
  GrowMdat(writer, sizeof record);
  return result;
}

void PrepareUserData(MP4WriterHandle& writer, const ZMVFileInfo& info) {
  if (info.dwTextCount == 0 || info.szSoftware[0] != 'F') return;
  const uint64_t seconds = info.dwDuration == 0 ? kDefaultUserSeconds : Whole(info.dwDuration);
  const uint64_t samples = seconds * Whole(info.m_Text[0].dwRate) * kUserSampleMargin;
  const uint32_t gps_size = SaturatingU32(samples * kGpsEntrySize);
  const uint32_t sensor_size = SaturatingU32(samples * kSensorBlockSize);
  HostMemory<uint8_t> gps;
  HostMemory<uint8_t> sensor;
  if (samples * kGpsEntrySize == gps_size) {
    gps = AllocateBytes(kWriterModule, gps_size, __func__);
    sensor = AllocateBytes(kWriterModule, sensor_size, __func__);
  }
  if (!gps || !sensor) {
    ZMV_TRACE(kWriterModule, kTraceError, "Alloc for extra userdata failed! (%u, %u bytes)\n", gps_size, sensor_size);
    return;
  }
  writer.m_pGpsr = gps.Release();
  writer.m_pSens = sensor.Release();
  writer.m_dwGpsrMax = static_cast<uint32_t>(samples);
  writer.m_dwSensMax = static_cast<uint32_t>(samples);
  writer.m_bExtUserData = 1;
  PrepareLastSample();
}

void CollectUserData(MP4WriterHandle& writer, const ZMVFrame& frame) {
  if (frame.dwSize < kUserDataPayloadSize) return;
  if (writer.m_dwGpsrNum >= writer.m_dwGpsrMax || writer.m_dwSensNum >= writer.m_dwSensMax) {
    ZMV_TRACE(kWriterModule, kTraceError, "ExtUserData over than max(%d)\n", static_cast<int>(writer.m_dwGpsrMax));
    return;
  }
  uint8_t* const gps = writer.m_pGpsr + size_t{writer.m_dwGpsrNum} * kGpsEntrySize;
  uint8_t* const sensor = writer.m_pSens + size_t{writer.m_dwSensNum} * kSensorBlockSize;
  // Little-endian, unlike every other number of the file.
  StoreLE32(gps, writer.m_dwGpsrNum++);
  StoreLE32(gps + 4, kGpsBlockSize);
  std::memcpy(gps + 8, frame.pData + kGpsBlockOffset, kGpsBlockSize);
  std::memcpy(sensor, frame.pData + kSensorBlockOffset, kSensorBlockSize);
  ++writer.m_dwSensNum;
  LastSampleGuard guard;
  if (pExtUserLast == nullptr) return;
  std::memcpy(pExtUserLast, gps, kGpsEntrySize);
  std::memcpy(pExtUserLast + kGpsEntrySize, sensor, kSensorBlockSize);
}

uint64_t UserBoxBytes(const MP4WriterHandle& writer) {
  if (writer.m_bExtUserData == 0) return 0;
  return 2 * kBoxHeaderSize + kAiddBoxSize + (uint64_t{writer.m_dwGpsrNum} + 1) * kGpsEntrySize +
         (uint64_t{writer.m_dwSensNum} + 1) * kSensorBlockSize;
}

uint32_t WriteUserBoxes(MP4WriterHandle& writer) {
  uint32_t bytes = WriteGpsr(writer);
  bytes += WriteSens(writer);
  bytes += WriteAidd(writer);
  return bytes;
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterSetRecoverInfo(MP4WriterHandle* handle, const ZMVFileInfo* info) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || info == nullptr || !WithinCapacity(*info)) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteRecoveryBoxes(*handle, *info);
}

int32_t MP4WriterSetBuildInfo(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return WriteBuildInformation(*handle);
}

int32_t MP4WriterWriteRecoverData(MP4WriterHandle* handle, MP4WriterTrack*, const ZMVFrame* frame) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int64_t result = WriteRecoveryRecord(*handle, *frame);
  return result < 0 ? static_cast<int32_t>(result) : 0;
}

int32_t MP4WriterWriteGPSR(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  return handle == nullptr ? 0 : static_cast<int32_t>(WriteGpsr(*handle));
}

int32_t MP4WriterWriteSENS(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  return handle == nullptr ? 0 : static_cast<int32_t>(WriteSens(*handle));
}

int32_t MP4WriterWriteAIDD(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  return handle == nullptr ? 0 : static_cast<int32_t>(WriteAidd(*handle));
}
