// The operation tables of the containers. A slot that a container does not serve is null; the adapters give the
// exported entry points exactly the slot's type, so that no function pointer is ever cast.
#include "facade/facade_formats.h"

#include "avi/zmvstream_avi_reader.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "mp4/zmvstream_mp4_reader.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::facade {
namespace {

// ---- MP4 writer

MP4WriterHandle* Mp4Writer(void* writer) { return static_cast<MP4WriterHandle*>(writer); }

int32_t Mp4WriterOpen(void** writer, ZMVStreamBuf* stream, uint8_t interleave, uint64_t expire) {
  MP4WriterHandle* opened = nullptr;
  const int32_t result = MP4WriterOpen(&opened, stream, interleave, static_cast<int64_t>(expire));
  if (!Failed(result)) *writer = opened;
  return result;
}

void Mp4WriterClose(void* writer) { MP4WriterClose(Mp4Writer(writer)); }

int32_t Mp4WriterSetInfo(void* writer, ZMVFileInfo* info, uint64_t start_time) {
  return MP4WriterSetInfo(Mp4Writer(writer), info, start_time);
}

uint64_t Mp4WriterGetCurSize(void* writer) { return MP4WriterGetCurSize(Mp4Writer(writer)); }

int32_t Mp4WriterWriteFrame(void* writer, ZMVFrame* frame) { return MP4WriterWriteFrame(Mp4Writer(writer), frame); }

constexpr ZMVWriterOperations kMp4WriterOperations = {
    .Open = &Mp4WriterOpen,
    .Reserved = nullptr,
    .Close = &Mp4WriterClose,
    .SetInfo = &Mp4WriterSetInfo,
    .GetCurSize = &Mp4WriterGetCurSize,
    .WriteFrame = &Mp4WriterWriteFrame,
    .SetSync = nullptr,
};

// ---- MP4 reader

MP4FReaderHandle* Mp4Reader(void* reader) { return static_cast<MP4FReaderHandle*>(reader); }

int32_t Mp4ReaderOpen(void** reader, ZMVStreamBuf* stream) {
  MP4FReaderHandle* opened = nullptr;
  const int32_t result = MP4FReaderOpen(&opened, stream);
  if (!Failed(result)) *reader = opened;
  return result;
}

void Mp4ReaderClose(void* reader) { MP4FReaderClose(Mp4Reader(reader)); }

// MP4 keeps its index in the file, so there is none to build.
int32_t Mp4ReaderGetInfo(void* reader, ZMVFileInfo* info, uint32_t) {
  return MP4FReaderGetInfo(Mp4Reader(reader), info);
}

int32_t Mp4ReaderReadFrame(void* reader, ZMVFrame* frame) { return MP4FReaderReadFrame(Mp4Reader(reader), frame); }

int32_t Mp4ReaderReadFrameInfo(void* reader, ZMVFrame* frame) {
  return MP4FReaderReadFrameInfo(Mp4Reader(reader), frame);
}

uint8_t Mp4ReaderSeekByTime(void* reader, uint32_t* time, uint8_t flag) {
  return MP4FReaderSeekByTime(Mp4Reader(reader), time, flag);
}

uint8_t Mp4ReaderSeekByKeyFrame(void* reader, uint32_t* time, uint8_t flag) {
  return MP4FReaderSeekByKeyFrame(Mp4Reader(reader), time, flag);
}

uint8_t Mp4ReaderSeekBySubtitle(void* reader, uint32_t* time, uint8_t flag) {
  return MP4FReaderSeekBySubtitle(Mp4Reader(reader), time, flag);
}

uint8_t Mp4ReaderSeekByMedia(void* reader, uint32_t* time, uint32_t media) {
  return MP4FReaderSeekByMedia(Mp4Reader(reader), time, media);
}

int32_t Mp4ReaderChangeTrack(void* reader, uint32_t track, uint32_t time, uint32_t media, ZMVReader*) {
  return MP4FReaderChangeTrack(Mp4Reader(reader), track, time, media);
}

constexpr ZMVReaderOperations kMp4ReaderOperations = {
    .Open = &Mp4ReaderOpen,
    .OpenParam = nullptr,
    .Close = &Mp4ReaderClose,
    .Reserved = nullptr,
    .GetInfo = &Mp4ReaderGetInfo,
    .Start = nullptr,
    .MakeIndex = nullptr,
    .ReadThumb = nullptr,
    .ReadFrame = &Mp4ReaderReadFrame,
    .ReadFrameInfo = &Mp4ReaderReadFrameInfo,
    .SeekByTime = &Mp4ReaderSeekByTime,
    .SeekByKeyFrame = &Mp4ReaderSeekByKeyFrame,
    .SeekBySubtitle = &Mp4ReaderSeekBySubtitle,
    .SeekByMedia = &Mp4ReaderSeekByMedia,
    .ChangeTrack = &Mp4ReaderChangeTrack,
    .GetStatus = nullptr,
    .SetStatus = nullptr,
};

// ---- AVI writer

AVIWriterHandle* AviWriter(void* writer) { return static_cast<AVIWriterHandle*>(writer); }

int32_t AviWriterOpen(void** writer, ZMVStreamBuf* stream, uint8_t interleave, uint64_t expire) {
  AVIWriterHandle* opened = nullptr;
  const int32_t result = AVIWriterOpen(&opened, stream, interleave, expire, 0.0);
  if (!Failed(result)) *writer = opened;
  return result;
}

void AviWriterClose(void* writer) { AVIWriterClose(AviWriter(writer)); }

int32_t AviWriterSetInfo(void* writer, ZMVFileInfo* info, uint64_t start_time) {
  return AVIWriterSetInfo(AviWriter(writer), info, static_cast<double>(start_time));
}

uint64_t AviWriterGetCurSize(void* writer) { return AVIWriterGetCurSize(AviWriter(writer)); }

int32_t AviWriterWriteFrame(void* writer, ZMVFrame* frame) { return AVIWriterWriteFrame(AviWriter(writer), frame); }

constexpr ZMVWriterOperations kAviWriterOperations = {
    .Open = &AviWriterOpen,
    .Reserved = nullptr,
    .Close = &AviWriterClose,
    .SetInfo = &AviWriterSetInfo,
    .GetCurSize = &AviWriterGetCurSize,
    .WriteFrame = &AviWriterWriteFrame,
    .SetSync = nullptr,
};

// ---- AVI reader

AVIReaderHandle* AviReader(void* reader) { return static_cast<AVIReaderHandle*>(reader); }

int32_t AviReaderOpen(void** reader, ZMVStreamBuf* stream) {
  AVIReaderHandle* opened = nullptr;
  const int32_t result = AVIReaderOpen(&opened, stream);
  if (!Failed(result)) *reader = opened;
  return result;
}

void AviReaderClose(void* reader) { AVIReaderClose(AviReader(reader)); }

int32_t AviReaderGetInfo(void* reader, ZMVFileInfo* info, uint32_t read_index) {
  return AVIReaderGetInfo(AviReader(reader), info, read_index);
}

int32_t AviReaderReadFrame(void* reader, ZMVFrame* frame) { return AVIReaderReadFrame(AviReader(reader), frame); }

uint8_t AviReaderSeekByTime(void* reader, uint32_t* time, uint8_t flag) {
  return AVIReaderSeekByTime(AviReader(reader), time, flag);
}

uint8_t AviReaderSeekByKeyFrame(void* reader, uint32_t* time, uint8_t flag) {
  return AVIReaderSeekByKeyFrame(AviReader(reader), time, flag);
}

uint8_t AviReaderSeekByMedia(void* reader, uint32_t* time, uint32_t media) {
  return AVIReaderSeekByMedia(AviReader(reader), time, media);
}

int32_t AviReaderChangeTrack(void* reader, uint32_t track, uint32_t time, uint32_t media, ZMVReader*) {
  return AVIReaderChangeTrack(AviReader(reader), track, time, media);
}

// The index is made by GetInfo, so none is built beside it.
constexpr ZMVReaderOperations kAviReaderOperations = {
    .Open = &AviReaderOpen,
    .OpenParam = nullptr,
    .Close = &AviReaderClose,
    .Reserved = nullptr,
    .GetInfo = &AviReaderGetInfo,
    .Start = nullptr,
    .MakeIndex = nullptr,
    .ReadThumb = nullptr,
    .ReadFrame = &AviReaderReadFrame,
    .ReadFrameInfo = nullptr,
    .SeekByTime = &AviReaderSeekByTime,
    .SeekByKeyFrame = &AviReaderSeekByKeyFrame,
    .SeekBySubtitle = nullptr,
    .SeekByMedia = &AviReaderSeekByMedia,
    .ChangeTrack = &AviReaderChangeTrack,
    .GetStatus = nullptr,
    .SetStatus = nullptr,
};

// ---- What there is

constexpr WriterFormat kWriterFormats[] = {
    {ZMV_FORMAT_AVI, "AVI", &kAviWriterOperations},
    {ZMV_FORMAT_MP4, "MP4", &kMp4WriterOperations},
};

// ISO/IEC 14496-12 4.2: the type of the first box follows its 32-bit size. Recordings begin with "ftyp"; "mdat" and
// "moov" are the fronts of files without one.
bool IsMp4(const uint8_t* front) {
  const uint32_t type = LoadLE32(front + 4);
  return type == FourCC("ftyp") || type == FourCC("mdat") || type == FourCC("moov");
}

// Any RIFF file is the AVI reader's to judge. The second test compares with the zero byte behind the three letters.
bool IsAvi(const uint8_t* front) {
  constexpr uint32_t kForm = ZMV_FOURCC('A', 'V', 'I', 0);
  return LoadLE32(front) == FourCC("RIFF") || LoadLE32(front + 8) == kForm;
}

struct ReaderFormat {
  bool (*Matches)(const uint8_t* front);
  const ZMVReaderOperations* operations;
};

constexpr ReaderFormat kReaderFormats[] = {
    {&IsMp4, &kMp4ReaderOperations},
    {&IsAvi, &kAviReaderOperations},
};

}  // namespace

const WriterFormat* FindWriter(uint32_t number) {
  for (const WriterFormat& format : kWriterFormats) {
    if (format.number == number) return &format;
  }
  return nullptr;
}

const ZMVReaderOperations* FindReader(const uint8_t* front) {
  for (const ReaderFormat& format : kReaderFormats) {
    if (format.Matches(front)) return format.operations;
  }
  return nullptr;
}

}  // namespace zmv::facade
