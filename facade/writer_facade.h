// What the source files of the writer façade share.
#ifndef ZMV_FACADE_WRITER_FACADE_H
#define ZMV_FACADE_WRITER_FACADE_H

#include "base/trace.h"
#include "facade/zmvstream_writer_records.h"

namespace zmv::facade {

inline constexpr TraceModule kWriterModule{"zmvstreamw", "zmvstream_writer"};

// Kept free on the disk, for whatever else the device has to write.
inline constexpr int64_t kDiskReserve = 10 * 1024 * 1024;

// The size of the finished file as it stands: the container's projection, else what the stream holds.
uint64_t CurrentSize(const ZMVWriter& writer);

// Measures the free space of the disk that holds the recording, for a writer that is being opened.
void MeasureDisk(ZMVWriter& writer, const ZMVWriterParam& param);

// Whether `frame` may be added: 0; ZMV_E_DISK_FULL when it would grow the file beyond the free space, which is measured
// again before that is said; ZMV_E_WRITE when a limit of the caller is reached.
int32_t CheckLimits(ZMVWriter& writer, const ZMVFrame& frame);

}  // namespace zmv::facade

#endif
