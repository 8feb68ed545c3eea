// The stereo mode and spherical video boxes of a video sample entry (Spherical Video V2: st3d, sv3d), and a variant of
// them for stereo cameras with a circular image.
#include <cstring>

#include "mp4/box_builder.h"
#include "mp4/mp4_writer.h"
#include "mp4/mp4_writer_boxes.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::mp4 {
namespace {

constexpr uint32_t kMaxMetaSource = 127;
constexpr uint32_t kReservedHeaderSize = 140;

// Types 1 and 2 are stated by a projection box without contents of its own; there are no others.
constexpr uint32_t kDescribedProjection = 0;
constexpr uint32_t kLastProjection = 2;

static_assert(kMaxSphericalBoxes == (kFullBoxHeaderSize + 1) +                                 // st3d
                                        kBoxHeaderSize +                                       // sv3d
                                        (kFullBoxHeaderSize + kMaxMetaSource + 1) +            // svhd
                                        kBoxHeaderSize +                                       // proj
                                        2 * kFullBoxHeaderSize + (3 + 5) * sizeof(uint32_t));  // prhd, equi

void WriteStereoMode(BoxBuilder& out, const MP4WriterTrack& track, uint32_t type) {
  FullBox stereo(out, type);
  out.U8(track.m_dwStereoMode);
}

void WriteMetaSource(BoxBuilder& out, const MP4WriterTrack& track) {
  const char* source = track.m_pszMetaSource != nullptr ? track.m_pszMetaSource : "";
  FullBox svhd(out, FourCC("svhd"));
  out.Bytes(reinterpret_cast<const uint8_t*>(source), static_cast<uint32_t>(strnlen(source, kMaxMetaSource))).U8(0);
}

// One word longer than the standard's box, so that both variants have one length. Readers that know four words take the
// first for the upper bound, which is 0, and never look at the last.
void WriteEquirectangular(BoxBuilder& out, const MP4WriterTrack& track) {
  FullBox equi(out, FourCC("equi"));
  out.U32(0);
  for (const uint32_t bound : track.m_dwProjBound) out.U32(bound);
}

void WriteCircular(BoxBuilder& out, const MP4WriterTrack& track) {
  FullBox circ(out, FourCC("circ"));
  out.U32(track.m_dwProjType);
  out.U32(track.m_dwProjBound[0]).U32(track.m_dwProjBound[1]).U32(track.m_dwProjBound[2]).U32(0);
}

void WriteProjection(BoxBuilder& out, const MP4WriterTrack& track, bool circular) {
  Box proj(out, FourCC("proj"));
  {
    FullBox prhd(out, FourCC("prhd"));
    out.U32(track.m_dwProjYaw).U32(track.m_dwProjPitch).U32(track.m_dwProjRoll);
  }
  if (track.m_dwProjType != kDescribedProjection) return;
  if (circular) {
    WriteCircular(out, track);
  } else {
    WriteEquirectangular(out, track);
  }
}

// A box at the write cursor: its bytes, or the stream's code.
int32_t PutBox(MP4WriterHandle& writer, const uint8_t* box, uint32_t size) {
  const int32_t result = WriteOrTrace(writer, box, size);
  return Failed(result) ? result : static_cast<int32_t>(size);
}

}  // namespace

uint32_t MakeSphericalBoxes(const MP4WriterTrack& track, uint8_t* dst) {
  const bool circular = track.m_bStereo != 0;
  if (!circular && track.m_bSpherical == 0) return 0;
  if (track.m_dwProjType > kLastProjection) {
    if (circular) {
      ZMV_TRACE(kWriterModule, kTraceError, "invalid projection type(%d)\n", static_cast<int>(track.m_dwProjType));
    }
    return kNoSampleDescription;
  }
  BoxBuilder out(dst);
  WriteStereoMode(out, track, circular ? FourCC("nt3d") : FourCC("st3d"));
  {
    Box sv3d(out, FourCC("sv3d"));
    WriteMetaSource(out, track);
    WriteProjection(out, track, circular);
  }
  return out.Size();
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterWriteSphericalVhdr(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL), "no handle\n");
  uint8_t bytes[kReservedHeaderSize];
  BoxBuilder out(bytes);
  {
    Box svhd(out, FourCC("svhd"));
    out.Zeros(kReservedHeaderSize - kBoxHeaderSize);
  }
  const int32_t result = PutBox(*handle, bytes, out.Size());
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t MP4WriterWriteProjectionHdlr(MP4WriterHandle* handle) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL), "no handle\n");
  uint8_t bytes[kBoxHeaderSize];
  BoxBuilder out(bytes);
  { Box proj(out, FourCC("proj")); }
  const int32_t result = PutBox(*handle, bytes, out.Size());
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t MP4WriterWriteProjection(MP4WriterHandle* handle) { return MP4WriterWriteProjectionHdlr(handle); }
