// Completing an AVI recording where it stands: the index and the chunk with the file's name are written behind the last
// complete frame, put on the storage medium, and then the words in the headers are set.
#ifndef ZMV_RECOVER_AVI_IN_PLACE_H
#define ZMV_RECOVER_AVI_IN_PLACE_H

#include <cstdint>

#include "recover/recover_avi_scan.h"
#include "recover/recover_file.h"

namespace zmv::recover {

struct AviInPlaceJob {
  File& file;
  AviScan& frames;    // from the first one, open
  uint32_t count;     // of frames, which an earlier scan has found
  uint64_t data_end;  // behind the last of them
  const char* path;   // for the chunk with the name; may be null
};

// 0, or a negative code, and then the same frames are found again. ZMV_E_WRITE also for a file that would pass 4 GiB.
int32_t CompleteAviInPlace(const AviInPlaceJob& job);

}  // namespace zmv::recover

#endif
