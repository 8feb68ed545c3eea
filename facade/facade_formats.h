// The containers that the façades know, each as one constant table of operations. Nothing else in the façades asks
// which format a file has.
#ifndef ZMV_FACADE_FORMATS_H
#define ZMV_FACADE_FORMATS_H

#include "facade/zmvstream_reader_records.h"
#include "facade/zmvstream_writer_records.h"

namespace zmv::facade {

// A container that can be written: the number applications name it by, and its name in the trace.
struct WriterFormat {
  uint32_t number;
  const char* name;
  const ZMVWriterOperations* operations;
};

// The bytes of a file's front that tell the containers apart.
inline constexpr uint32_t kSniffSize = 4096;

// The container writer of a ZMV_FORMAT_* number, or null.
const WriterFormat* FindWriter(uint32_t number);

// The container reader of a file that begins with these kSniffSize bytes (zeros behind a shorter file), or null.
const ZMVReaderOperations* FindReader(const uint8_t* front);

}  // namespace zmv::facade

#endif
