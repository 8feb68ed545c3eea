// The two ways to recover a recording, on an open file.
#ifndef ZMV_RECOVER_RECORDING_H
#define ZMV_RECOVER_RECORDING_H

#include "recover/recover_file.h"
#include "recover/recover_tables.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

// Both take the streams, the choice of user data and the progress from `param`, and fill the report as far as they get.

// Into a new recording at param.pszTarget, which must not exist. The results are those of ZMVRecoverToFile; after a
// failure the target may exist.
int32_t RecoverToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report);
// Where it stands. The results are those of ZMVRecoverInPlace. `table_bytes`: see ResizeTables.
int32_t RecoverInPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report,
                       uint32_t table_bytes = kTableBytes);

}  // namespace zmv::recover

#endif
