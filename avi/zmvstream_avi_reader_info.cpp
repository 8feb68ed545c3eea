// Describing an AVI file: the walk over its headers, flat and forward only. A list that is of interest is entered,
// which puts its children in its place, and every other one is stepped over.
#include <cstring>

#include "avi/avi_reader.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "facade/zmvstream_media.h"

namespace zmv::avi::reader {
namespace {

constexpr const char* kFunction = "AVIReaderGetInfo";

// A run of more empty headers than this is the unused end of a file.
constexpr uint32_t kMaxEmptyHeaders = 2048;
// The application's own header chunk is this "JUNK" chunk of the file.
constexpr uint32_t kExtraHeaderJunk = 2;

constexpr uint32_t kCodeSize = 4;

void Enter(HeaderWalk& walk) { walk.next = walk.chunk.data + kCodeSize; }

int32_t Read(HeaderWalk& walk, uint64_t position, void* to, uint32_t size) {
  return ReadAt(walk.handle, position, to, size, kFunction);
}

int32_t ReadCode(HeaderWalk& walk, uint64_t position, uint32_t* code) {
  return ReadCodeAt(walk.handle, position, code, kFunction);
}

// Counted from the start of the RIFF data.
uint32_t FromBase(const HeaderWalk& walk, uint64_t position) {
  return static_cast<uint32_t>(position - walk.handle.m_dwBase);
}

// ---- Forms and lists

int32_t ReadForm(HeaderWalk& walk) {
  // A form that is cut short behind the frames ends the walk like any other end of the data.
  if (walk.handle.m_dwMoviPos != 0 && walk.chunk.data + kCodeSize > DataEnd(walk.handle)) {
    walk.stop = true;
    return 0;
  }
  uint32_t form = 0;
  const int32_t result = ReadCode(walk, walk.chunk.data, &form);
  if (Failed(result)) return result;
  if (form == FourCC("AVIX")) walk.handle.m_bExtended = 1;
  if (form != FourCC("AVI ") && form != FourCC("AVIX") && form != FourCC("MENU")) {
    ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction, "AVIReaderOpen - File is not AVI\n");
    return Result(ZMV_E_FAIL);
  }
  Enter(walk);
  return 0;
}

constexpr bool IsStandardIndex(uint32_t code) { return (code & 0xFFFF) == (FourCC("ix  ") & 0xFFFF); }

// Steps over the standard indexes at the start of a "movi" list, as far as the data goes.
int32_t SkipStandardIndexes(HeaderWalk& walk, uint64_t end, uint64_t* position) {
  while (*position + kChunkHeaderSize <= end) {
    ChunkHeader chunk;
    const int32_t result = ReadChunkHeader(walk.handle, *position, &chunk, kFunction);
    if (Failed(result)) return result;
    const uint64_t next = chunk.End() + chunk.size % 2;
    if (!IsStandardIndex(chunk.code) || next > end) return 0;
    *position = next;
  }
  return 0;
}

// Where the frames are. A list that is not complete belongs to a recording that was never closed: nothing follows it.
int32_t ReadMovi(HeaderWalk& walk) {
  AVIReaderHandle& handle = walk.handle;
  if (handle.m_dwMoviPos == 0) handle.m_dwMoviPos = FromBase(walk, walk.chunk.data);
  const uint64_t data_end = DataEnd(handle);
  walk.stop = walk.chunk.size < kCodeSize || walk.chunk.End() > data_end;
  uint64_t position = walk.chunk.data + kCodeSize;
  if (handle.m_bSuperIndex != 0) {
    const int32_t result = SkipStandardIndexes(walk, walk.stop ? data_end : walk.chunk.End(), &position);
    if (Failed(result)) return result;
  }
  uint32_t& data_position = handle.m_dwDataPos == 0 ? handle.m_dwDataPos : handle.m_dwDataPos2;
  data_position = FromBase(walk, position);
  return 0;
}

int32_t ReadList(HeaderWalk& walk) {
  // Too near to the end of the data to have a type: stepped over, or found to reach beyond it.
  if (walk.chunk.data + kCodeSize > DataEnd(walk.handle)) return 0;
  uint32_t type = 0;
  const int32_t result = ReadCode(walk, walk.chunk.data, &type);
  if (Failed(result)) return result;
  if (type == FourCC("movi")) return ReadMovi(walk);
  if (walk.chunk.size < kCodeSize) return 0;
  if (type == FourCC("odml") || type == FourCC("lmdo")) walk.handle.m_bOdml = 1;
  const bool is_stream = type == FourCC("strl") && walk.handle.m_bMenu == 0;
  if (is_stream || type == FourCC("hdrl") || type == FourCC("DMNU")) Enter(walk);
  return 0;
}

// ---- Headers

int32_t ReadMainHeader(HeaderWalk& walk) {
  if (walk.chunk.size < kCodeSize) return 0;
  return ReadCode(walk, walk.chunk.data, &walk.frame_time);
}

int32_t ReadStreamHeader(HeaderWalk& walk) {
  // The 16-bit language field of a stream header, free for the application.
  constexpr uint32_t kLanguage = 14;
  constexpr uint32_t kLanguageEnd = 16;
  const uint32_t size = walk.chunk.size;
  uint8_t bytes[kStreamHeaderSize] = {};
  const int32_t result = Read(walk, walk.chunk.data, bytes, size < kStreamHeaderSize ? size : kStreamHeaderSize);
  if (Failed(result)) return result;
  walk.header.type = LoadLE32(bytes);
  walk.header.scale = LoadLE32(bytes + 20);
  walk.header.rate = LoadLE32(bytes + 24);
  walk.header.start = LoadLE32(bytes + 28);
  walk.header.length = LoadLE32(bytes + 32);
  walk.header.suggested_size = LoadLE32(bytes + 36);
  walk.header.sample_size = LoadLE32(bytes + 44);
  walk.has_header = true;
  if (walk.header.type == FourCC("vids") && !walk.has_video_header && size >= kLanguageEnd) {
    walk.has_video_header = true;
    walk.info.dwAiddValue = LoadLE16(bytes + kLanguage);
    walk.info.dwAiddPos = static_cast<uint32_t>(walk.chunk.data + kLanguage);
  }
  if (size > kStreamHeaderSize) {
    ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction,
                "invalid StreamHeader size dwsize(%d) header(%d)\n", static_cast<int>(size),
                static_cast<int>(kStreamHeaderSize));
  }
  return 0;
}

int32_t ReadStreamFormat(HeaderWalk& walk) {
  if (!walk.has_header) return Result(ZMV_E_FAIL);
  walk.has_header = false;
  walk.stream = nullptr;
  return walk.handle.m_dwStreamCount < kMaxStreams ? CreateStream(walk) : 0;
}

int32_t ReadMenu(HeaderWalk& walk) {
  walk.handle.m_bMenu = 1;
  return 0;
}

int32_t ReadJunk(HeaderWalk& walk) {
  const ZMVFileInfo& info = walk.info;
  const bool wanted = ++walk.junk_chunks == kExtraHeaderJunk && info.pExtraHeader != nullptr &&
                      info.dwExtraHeaderSize != 0 && walk.chunk.size >= kCodeSize;
  if (!wanted) return 0;
  uint32_t code = 0;
  const int32_t result = ReadCode(walk, walk.chunk.data, &code);
  if (Failed(result) || code != FourCC("ADAS")) return result;
  const uint32_t size = info.dwExtraHeaderSize < walk.chunk.size ? info.dwExtraHeaderSize : walk.chunk.size;
  return Read(walk, walk.chunk.data, info.pExtraHeader, size);
}

// ---- Indexes

int32_t ReadSuperIndex(HeaderWalk& walk) {
  if (!walk.read_index || walk.stream == nullptr) return 0;
  const int32_t moved = SeekTo(walk.handle, walk.chunk.data, kFunction);
  return Failed(moved) ? moved : ReadStreamIndex(walk.handle, *walk.stream, walk.chunk.size);
}

int32_t ReadOldIndex(HeaderWalk& walk) {
  walk.stop = true;
  walk.handle.m_dwIdx1Pos = static_cast<uint32_t>(walk.chunk.data);
  if (!walk.read_index || walk.handle.m_bSuperIndex != 0) return 0;
  return ReadIndex(walk.handle, walk.handle.m_dwIdx1Pos, walk.chunk.size);
}

// ---- The walk

struct ChunkRow {
  uint32_t code;
  int32_t (*read)(HeaderWalk& walk);
};
constexpr ChunkRow kChunkRows[] = {
    {FourCC("RIFF"), &ReadForm},         {FourCC("LIST"), &ReadList},         {FourCC("avih"), &ReadMainHeader},
    {FourCC("strh"), &ReadStreamHeader}, {FourCC("strf"), &ReadStreamFormat}, {FourCC("indx"), &ReadSuperIndex},
    {FourCC("idx1"), &ReadOldIndex},     {FourCC("MENU"), &ReadMenu},         {FourCC("JUNK"), &ReadJunk},
};

int32_t ReadChunk(HeaderWalk& walk) {
  for (const ChunkRow& row : kChunkRows) {
    if (row.code == walk.chunk.code) return row.read(walk);
  }
  return 0;
}

int32_t WalkHeaders(HeaderWalk& walk) {
  AVIReaderHandle& handle = walk.handle;
  uint64_t position = handle.m_dwBase;
  uint32_t empty_headers = 0;
  while (!walk.stop && position + kChunkHeaderSize <= DataEnd(handle)) {
    int32_t result = ReadChunkHeader(handle, position, &walk.chunk, kFunction);
    if (Failed(result)) return result;
    empty_headers = walk.chunk.code == 0 && walk.chunk.size == 0 ? empty_headers + 1 : 0;
    if (empty_headers > kMaxEmptyHeaders) return 0;
    walk.next = 0;
    result = ReadChunk(walk);
    if (Failed(result)) return result;
    if (walk.stop) return 0;
    if (walk.next == 0) {
      if (walk.chunk.End() > DataEnd(handle)) return Report(Result(ZMV_E_SEEK), kFunction);
      result = FindNextChunk(handle, walk.chunk, &walk.next, kFunction);
      if (Failed(result)) return result;
    }
    position = walk.next;
  }
  return 0;
}

// Puts reader and record back to where a first call finds them.
void StartOver(AVIReaderHandle& handle, ZMVFileInfo& info) {
  DropStreams(handle);
  handle.m_dwFirstAudio = handle.m_dwFirstVideo = 0;
  handle.m_bHasAudio = handle.m_bHasVideo = 0;
  handle.m_dwMoviPos = handle.m_dwDataPos = handle.m_dwDataPos2 = handle.m_dwIdx1Pos = 0;
  handle.m_bHasIndex = handle.m_bExtended = handle.m_bSuperIndex = handle.m_bOdml = handle.m_bMenu = 0;
  info.m_dwFileType = info.dwDuration = info.dwTimeScale = 0;
  info.dwAudioCount = info.dwVideoCount = info.dwTextCount = 0;
  info.m_Audio = {};
  std::memset(info.m_Video, 0, sizeof info.m_Video);
  std::memset(info.m_Text, 0, sizeof info.m_Text);
}

int32_t GetInfo(AVIReaderHandle& handle, ZMVFileInfo& info, bool read_index) {
  StartOver(handle, info);
  HeaderWalk walk{.handle = handle, .info = info, .read_index = read_index};
  int32_t result = WalkHeaders(walk);
  if (!Failed(result) && handle.m_bSuperIndex != 0) result = ReadStdIndex(handle);
  return Failed(result) ? result : FinishStreams(handle, info);
}

}  // namespace
}  // namespace zmv::avi::reader

using namespace zmv;
using namespace zmv::avi::reader;

int32_t AVIReaderGetInfo(AVIReaderHandle* handle, ZMVFileInfo* info, uint32_t readIndex) {
  TraceScope scope(kModule, __func__);
  ZMV_TRACE(kModule, kTraceDebug, "AVIReaderGetInfo\n");
  if (handle == nullptr || info == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = GetInfo(*handle, *info, readIndex != 0);
  if (Failed(result)) return scope.Fail(result);
  ZMV_TRACE(kModule, kTraceDebug, "AVIReaderGetInfo End\n");
  return 0;
}

int32_t AVIReaderGetInfo2(AVIReaderHandle* handle, ZMVFileInfo* info) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || info == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = GetInfo(*handle, *info, false);
  return Failed(result) ? scope.Fail(result) : result;
}
