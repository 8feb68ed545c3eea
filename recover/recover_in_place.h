// Completing an MP4 recording where it stands.
//
// The MP4 writer is replayed over the file: it is shown every frame that was found, at the place where it was found,
// and closed. What it then writes behind the last frame is what it would have written had the power stayed on.
#ifndef ZMV_RECOVER_IN_PLACE_H
#define ZMV_RECOVER_IN_PLACE_H

#include "recover/recover_file.h"
#include "recover/recover_progress.h"
#include "recover/recover_scan.h"
#include "recover/recover_tables.h"

namespace zmv::recover {

struct InPlaceJob {
  File& file;
  const ZMVFileInfo& info;
  uint64_t mdat;      // position of the header of the media data
  uint64_t data_end;  // behind the last complete frame
  uint64_t live;      // bytes of the found frames and their records; the rest of the media data stays unused
  Scan& frames;       // from the first one; bytes may be null
  bool user_data;     // the boxes of GPS and sensor samples are wanted
  Progress& progress;
  uint32_t table_bytes = kTableBytes;
};

// 0, or a negative code, and then the same frames are found again. ZMV_E_WRITE also for a file that would pass 4 GiB.
int32_t CompleteInPlace(const InPlaceJob& job);

}  // namespace zmv::recover

#endif
