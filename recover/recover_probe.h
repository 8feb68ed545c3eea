// What a file is, for the containers whose recordings can be recovered.
#ifndef ZMV_RECOVER_PROBE_H
#define ZMV_RECOVER_PROBE_H

#include "recover/recover_file.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

struct Finding {
  ZMVRecoverReport report;
  ZMVFileInfo info;      // the streams as they will be described
  uint64_t written_end;  // behind the last byte of the file that is not zero
  bool closed;           // its boxes are all there, and its index has the form that closing gives it
  bool named;            // closed, and its index names every frame that was found
  bool complete;  // closed, and its tables agree with the frames that were found, whatever is missing between them
};

// A container.
struct Container {
  // By its first bytes: 0 or a negative code.
  int32_t (*Recognise)(File& file, bool& recognised);
  // 0 also for a foreign file; else as ZMVRecoverProbe.
  int32_t (*Probe)(File& file, const ZMVRecoverParam& param, Finding& finding);
  // As RecoverToFile and RecoverInPlace.
  int32_t (*ToFile)(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report);
  int32_t (*InPlace)(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes);
};

// The container of a file: what no other recognises may be an MP4 recording whose front is damaged. 0 or a negative
// code.
int32_t FindContainer(File& file, const Container** container);

int32_t ProbeFile(File& file, const ZMVRecoverParam& param, Finding& finding);

// An MP4 recording, through one pass over the file.
int32_t ProbeMp4(File& file, const ZMVRecoverParam& param, Finding& finding);
int32_t RecoverMp4ToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report);
int32_t RecoverMp4InPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes);

// An AVI recording, likewise.
int32_t ProbeAvi(File& file, const ZMVRecoverParam& param, Finding& finding);
int32_t RecoverAviToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report);
int32_t RecoverAviInPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes);

}  // namespace zmv::recover

#endif
