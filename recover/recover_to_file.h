// Writing the frames of a damaged recording into a new one, through the writer facade.
#ifndef ZMV_RECOVER_TO_FILE_H
#define ZMV_RECOVER_TO_FILE_H

#include "recover/recover_scan.h"

namespace zmv::recover {

struct ToFileJob {
  Scan& frames;              // from the first one; its progress is that of the call
  const ZMVFileInfo& info;   // of an MP4: its software does not make the writer collect user data
  uint32_t format;           // ZMV_FORMAT_*
  const char* target;        // created, or overwritten
  uint32_t user_data;        // ZMV_RECOVER_USER_DATA_*
  uint64_t source_size = 0;  // bytes of the damaged file, which the new one may reach
};

// 0, or a negative code, and then the target, which may exist, is of no use.
int32_t WriteNewRecording(const ToFileJob& job);

}  // namespace zmv::recover

#endif
