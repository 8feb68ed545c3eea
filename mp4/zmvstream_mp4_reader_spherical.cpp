// The stereo and projection boxes of a video sample entry, in the fixed order in which the writer lays them out.
#include "base/host_memory.h"
#include "mp4/mp4_reader.h"
#include "platform/zmv_platform.h"

namespace zmv::mp4::reader {
namespace {

constexpr const char* kFunction = "MP4ReaderParseSV3D";
constexpr uint32_t kMetadataSize = 128;

// Reads the header of the next box, which has to be `type`; `message` says that it is another.
int32_t ExpectBox(BoxReader& box, uint32_t type, const char* message) {
  uint32_t size = 0;
  uint32_t found = 0;
  box.U32(&size).Code(&found);
  if (box.Failed()) return box.Error();
  if (found == type) return 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction, message, ZMV_FourCC_String(found, 0));
#pragma GCC diagnostic pop
  return Result(ZMV_E_FAIL);
}

int32_t BadSize(uint32_t size) {
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction, "Invalid data size (%d)\n",
              static_cast<int>(size));
  return Result(ZMV_E_FAIL);
}

// The metadata source, which a first box "svhd" holds as text.
int32_t ReadHeader(BoxReader& box, uint32_t payload) {
  if (payload < kFullBoxHeaderSize) return BadSize(payload);
  uint32_t size = 0;
  uint32_t type = 0;
  box.U32(&size).Code(&type).Skip(4);
  if (box.Failed()) return box.Error();
  if (size > kMetadataSize) size = kMetadataSize;
  if (size < kFullBoxHeaderSize || size > payload - kFullBoxHeaderSize) return BadSize(size);
  if (type != FourCC("svhd")) return 0;
  uint8_t text[kMetadataSize] = {};
  box.Bytes(text, size - kFullBoxHeaderSize);
  if (box.Failed()) return box.Error();
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, kFunction, "Shperical Header Meta info (%s)\n",
              reinterpret_cast<const char*>(text));
  return 0;
}

}  // namespace

int32_t ParseSt3d(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseST3D");
  box.Skip(4).U8(&walk.track->m_dwStereoMode);
  return box.Error();
}

int32_t ParseSv3d(BoxWalk& walk, uint32_t payload) {
  constexpr uint32_t kPose = 12;  // yaw, pitch and roll
  BoxReader box = ReadBox(walk, payload, kFunction);
  int32_t result = ReadHeader(box, payload);
  if (Failed(result)) return result;
  result = ExpectBox(box, FourCC("proj"), "is not projection box fourcc(%s)\n");
  if (Failed(result)) return result;
  result = ExpectBox(box, FourCC("prhd"), "is not projection box fourcc(%s)\n");
  if (Failed(result)) return result;
  box.Skip(4 + kPose);
  result = ExpectBox(box, FourCC("circ"), "is not projection data box fourcc(%s)\n");
  if (Failed(result)) return result;
  MP4ReaderTrack& track = *walk.track;
  box.Skip(4).U32(&track.m_dwProj0).U32(&track.m_dwProj1).U32(&track.m_dwProj2).U32(&track.m_dwProj3);
  return box.Error();
}

}  // namespace zmv::mp4::reader

using namespace zmv::mp4::reader;

int32_t MP4ReaderParseST3D(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseSt3d, handle, track, size, __func__);
}

int32_t MP4ReaderParseSV3D(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseSv3d, handle, track, size, __func__);
}
