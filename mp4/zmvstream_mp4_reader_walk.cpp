// The box walk: the top-level boxes of a file, and the way down from moov to the sample table.
#include "base/arith.h"
#include "mp4/mp4_reader.h"

namespace zmv::mp4::reader {

uint64_t DataEnd(const MP4FReaderHandle& handle) {
  const int64_t size = ZMVStreamBuf_CurSize(handle.m_hStream);
  return size < 0 ? 0 : static_cast<uint64_t>(size);
}

int32_t SeekWalk(MP4FReaderHandle& handle, uint64_t position, const char* function) {
  const int64_t result = position > 0xFFFFFFFFu
                             ? int64_t{Result(ZMV_E_SEEK)}
                             : ZMVStreamBuf_Seek(handle.m_hStream, handle.m_dwIndex, static_cast<uint32_t>(position));
  return Failed(result) ? Report(StreamError(result), function) : 0;
}

int32_t WalkBoxes(BoxWalk& walk, uint32_t size, const BoxRow* rows, size_t row_count, const char* function) {
  MP4FReaderHandle& handle = walk.handle;
  uint64_t position = ZMVStreamBuf_Pos(handle.m_hStream, handle.m_dwIndex);
  const uint64_t parent_end = position + size;
  while (parent_end - position >= kBoxHeaderSize) {
    BoxReader header = ReadBox(walk, kBoxHeaderSize, function);
    uint32_t box_size = 0;
    uint32_t type = 0;
    header.U32(&box_size);
    if (header.Failed()) return header.Error();
    if (box_size < kBoxHeaderSize || box_size > parent_end - position) return 0;
    header.Code(&type);
    if (header.Failed()) return header.Error();

    const BoxRow* row = rows;
    while (row != rows + row_count && row->type != type) ++row;
    uint64_t next = position + box_size;
    if (row != rows + row_count && row->parse == nullptr) {
      next = position + kBoxHeaderSize;
    } else if (row != rows + row_count) {
      const int32_t result = row->parse(walk, box_size - kBoxHeaderSize);
      if (Failed(result)) return Report(result, function);
      if (walk.stop) return 0;
    }
    if (next > DataEnd(handle)) return 0;
    const int32_t result = SeekWalk(handle, next, function);
    if (Failed(result)) return result;
    position = next;
  }
  return 0;
}

namespace {

// ---- moov

// Creation and modification times in front of the time scale, version and flags included.
constexpr uint32_t kHeaderTimes = 12;

// The version of a header box, whose layout is read for version 0 only: other versions have no times.
struct HeaderTimes {
  uint32_t scale = 0;
  uint32_t duration = 0;
};

int32_t ReadTimes(BoxReader& box, HeaderTimes* times) {
  uint32_t version = 0;
  box.U8(&version).Skip(kHeaderTimes - 1);
  if (version == 0) box.U32(&times->scale).U32(&times->duration);
  return box.Error();
}

int32_t ParseMvhd(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseMoov");
  HeaderTimes times;
  if (Failed(ReadTimes(box, &times))) return box.Error();
  walk.handle.m_dwTimeScale = times.scale;
  walk.handle.m_dwDuration = TicksToUnits(times.duration, 1000.0f, times.scale);
  ZMV_TRACE(kModule, kTraceInfo, "hReader MVHD scaled Reader Duration(%d) scale(%d)\n",
            static_cast<int>(walk.handle.m_dwDuration), static_cast<int>(times.scale));
  return 0;
}

constexpr BoxRow kMovieRows[] = {
    {FourCC("mvhd"), &ParseMvhd},
    {FourCC("trak"), &ParseTrak},
    {FourCC("mvex"), &ParseMvex},
};
static_assert(EveryTypeOnce(kMovieRows));

// ---- trak

int32_t ParseTkhd(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseTrak");
  uint32_t id = 0;
  uint32_t duration = 0;
  box.Skip(12).U32(&id).Skip(4).U32(&duration);
  if (box.Failed()) return box.Error();

  const uint32_t known = walk.handle.m_dwTrackCount;
  const MP4ReaderTrack* named = walk.track;
  walk.track = FindTrack(walk.handle, id);
  if (walk.track == nullptr) {
    if (known < kMp4ReaderMaxTracks) return Result(ZMV_E_MEMORY);
    walk.stop = true;  // one track too many: passed over
    return 0;
  }
  // A track of this ID from before belongs to an earlier trak, unless the header is repeated inside this one.
  if (known == walk.handle.m_dwTrackCount && walk.track != named) ClearTrack(walk.handle, *walk.track);
  walk.track->m_dwDuration = duration;
  ZMV_TRACE(kModule, kTraceInfo, "hStream TrackID(%d) TKHD Duration(%lld)\n", static_cast<int>(id),
            static_cast<long long>(duration));
  return 0;
}

int32_t ParseTrackMedia(BoxWalk& walk, uint32_t payload) {
  const int32_t result = ParseMdia(walk, payload);
  if (!Failed(result)) return result;
  DropTrack(walk.handle, walk.track);
  walk.track = nullptr;
  return result;
}

constexpr BoxRow kTrackRows[] = {
    {FourCC("tkhd"), &ParseTkhd},
    {FourCC("mdia"), &ParseTrackMedia},
};
static_assert(EveryTypeOnce(kTrackRows));

// ---- mdia

int32_t ParseMdhd(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseMdia");
  HeaderTimes times;
  if (Failed(ReadTimes(box, &times))) return box.Error();
  MP4ReaderTrack& track = *walk.track;
  track.m_dwTimeScale = times.scale;
  track.m_dwDuration = times.duration;
  ZMV_TRACE(kModule, kTraceInfo, "hStream TrackID(%d) MDHD Duration(%lld) scale(%d)\n",
            static_cast<int>(track.m_dwTrackID), static_cast<long long>(track.m_dwDuration),
            static_cast<int>(track.m_dwTimeScale));
  return 0;
}

constexpr bool IsTextHandler(uint32_t type) {
  return type == FourCC("sdsm") || type == FourCC("tvxt") || type == FourCC("subp");
}

int32_t ParseHdlr(BoxWalk& walk, uint32_t payload) {
  constexpr uint32_t kNameSize = 4;
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseMdia");
  uint32_t type = 0;
  box.Skip(8).Code(&type).Skip(12);
  if (!box.Failed() && IsTextHandler(type) && box.Left() >= kNameSize) {
    // The writer puts a text track's code there as a number, so its bytes stand in reverse.
    box.U32(&walk.track->m_dwTextCode);
    walk.track->m_bTextHandler = 1;
  }
  return box.Error();
}

constexpr BoxRow kMediaRows[] = {
    {FourCC("mdhd"), &ParseMdhd},
    {FourCC("hdlr"), &ParseHdlr},
    {FourCC("minf"), &ParseMinf},
};
static_assert(EveryTypeOnce(kMediaRows));

// ---- minf: the media header decides what the track is

int32_t ParseVmhd(BoxWalk& walk, uint32_t) {
  walk.track->m_dwMediaType = ZMV_MEDIA_VIDEO;
  return 0;
}

int32_t ParseSmhd(BoxWalk& walk, uint32_t) {
  walk.track->m_dwMediaType = ZMV_MEDIA_AUDIO;
  return 0;
}

int32_t ParseHmhd(BoxWalk& walk, uint32_t) {
  walk.track->m_dwMediaType = 0;
  walk.stop = true;
  return 0;
}

int32_t ParseNmhd(BoxWalk& walk, uint32_t payload) {
  if (walk.track->m_bTextHandler == 0) return ParseHmhd(walk, payload);
  walk.track->m_dwMediaType = ZMV_MEDIA_TEXT;
  return 0;
}

constexpr BoxRow kMediaInformationRows[] = {
    {FourCC("vmhd"), &ParseVmhd}, {FourCC("smhd"), &ParseSmhd}, {FourCC("nmhd"), &ParseNmhd},
    {FourCC("hmhd"), &ParseHmhd}, {FourCC("stbl"), &ParseStbl},
};
static_assert(EveryTypeOnce(kMediaInformationRows));

// ---- The file

int32_t ReadBrand(MP4FReaderHandle& handle, BoxReader& box, ZMVFileInfo&) {
  box.Code(&handle.m_dwMajorBrand);
  return box.Error();
}

int32_t ReadAidd(MP4FReaderHandle&, BoxReader& box, ZMVFileInfo& info) {
  if (box.Left() < 4) return 0;
  const uint32_t position = box.Position();
  uint32_t value = 0;
  box.U32(&value);
  if (box.Failed()) return box.Error();
  info.dwAiddPos = position;
  info.dwAiddValue = value;
  return 0;
}

int32_t NoteMediaData(MP4FReaderHandle& handle, BoxReader& box, ZMVFileInfo&) {
  if (box.Left() != 0) handle.m_dwMdatPos = box.Position() - kBoxHeaderSize;
  return 0;
}

int32_t ReadMovie(MP4FReaderHandle& handle, BoxReader& box, ZMVFileInfo&) {
  BoxWalk walk{handle, nullptr};
  return ParseMoov(walk, static_cast<uint32_t>(box.Left()));
}

int32_t ReadMovieFragment(MP4FReaderHandle& handle, BoxReader& box, ZMVFileInfo&) {
  BoxWalk walk{handle, nullptr};
  return ParseMoof(walk, static_cast<uint32_t>(box.Left()));
}

struct FileRow {
  uint32_t type;
  int32_t (*read)(MP4FReaderHandle& handle, BoxReader& box, ZMVFileInfo& info);
};
constexpr FileRow kFileRows[] = {
    {FourCC("ftyp"), &ReadBrand},         {FourCC("mdat"), &NoteMediaData}, {FourCC("moov"), &ReadMovie},
    {FourCC("moof"), &ReadMovieFragment}, {FourCC("AIDD"), &ReadAidd},
};

}  // namespace

int32_t WalkFile(MP4FReaderHandle& handle, ZMVFileInfo& info) {
  constexpr const char* kFunction = "MP4FReaderGetInfo";
  handle.m_dwWalkPos = ZMVStreamBuf_Pos(handle.m_hStream, handle.m_dwIndex);
  while (handle.m_dwWalkPos < handle.m_dwFileSize) {
    BoxReader header(*handle.m_hStream, handle.m_dwIndex, kBoxHeaderSize, kFunction);
    uint32_t size = 0;
    uint32_t type = 0;
    header.U32(&size);
    if (header.Failed()) return header.Error();
    const uint64_t end = handle.m_dwWalkPos + uint64_t{size};
    if (size < kBoxHeaderSize || end > handle.m_dwFileSize) return 0;
    header.Code(&type);
    if (header.Failed()) return header.Error();
    handle.m_dwWalkPos = static_cast<uint32_t>(end);
    for (const FileRow& row : kFileRows) {
      if (row.type != type) continue;
      BoxReader box(*handle.m_hStream, handle.m_dwIndex, size - kBoxHeaderSize, kFunction);
      const int32_t result = row.read(handle, box, info);
      if (Failed(result)) return Report(result, kFunction);
    }
    const int32_t result = SeekWalk(handle, end, kFunction);
    if (Failed(result)) return result;
  }
  return 0;
}

int32_t ParseMoov(BoxWalk& walk, uint32_t payload) {
  return WalkBoxes(walk, payload, kMovieRows, "MP4ReaderParseMoov");
}

int32_t ParseTrak(BoxWalk& walk, uint32_t payload) {
  BoxWalk trak{walk.handle, nullptr};
  const int32_t result = WalkBoxes(trak, payload, kTrackRows, "MP4ReaderParseTrak");
  if (trak.track != nullptr && trak.track->m_dwMediaType == 0) ReleaseTables(walk.handle, *trak.track);
  return result;
}

int32_t ParseMdia(BoxWalk& walk, uint32_t payload) {
  if (walk.track == nullptr) return Result(ZMV_E_NO_TRACK_HEADER);
  BoxWalk mdia{walk.handle, walk.track};
  return WalkBoxes(mdia, payload, kMediaRows, "MP4ReaderParseMdia");
}

int32_t ParseMinf(BoxWalk& walk, uint32_t payload) {
  BoxWalk minf{walk.handle, walk.track};
  return WalkBoxes(minf, payload, kMediaInformationRows, "MP4ReaderParseMinf");
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4ReaderParseMoov(MP4FReaderHandle* handle, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  BoxWalk walk{*handle, nullptr};
  const int32_t result = ParseMoov(walk, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t MP4ReaderParseTrak(MP4FReaderHandle* handle, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  BoxWalk walk{*handle, nullptr};
  const int32_t result = ParseTrak(walk, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t MP4ReaderParseMdia(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  BoxWalk walk{*handle, track};
  const int32_t result = ParseMdia(walk, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t MP4ReaderParseMinf(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseMinf, handle, track, size, __func__);
}
