// What the source files of the stream handle share.
#ifndef ZMV_STREAM_BUF_STREAM_H
#define ZMV_STREAM_BUF_STREAM_H

#include "base/trace.h"

namespace zmv::stream {

inline constexpr TraceModule kBufModule{"zmvstreambuf", "zmvstream_buf"};

}  // namespace zmv::stream

#endif
