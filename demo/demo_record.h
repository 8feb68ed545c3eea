// Records streams through the writer facade.
#ifndef ZMV_DEMO_RECORD_H
#define ZMV_DEMO_RECORD_H

#include <string>
#include <vector>

#include "demo/demo_stream.h"

namespace zmv::demo {

// At most one stream of each medium, as InAvi() makes it when `path` is that of an AVI. Overwrites `path`; throws
// std::runtime_error when the library reports a failure.
void Record(const std::string& path, const std::vector<DemoStream>& streams);

}  // namespace zmv::demo

#endif
