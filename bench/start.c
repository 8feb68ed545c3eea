/* Does nothing but start, with the libraries or without them. */
#ifdef ZMV_BENCH_PLAIN
int main(void) { return 0; }
#else
#include "platform/zmv_host.h"
#include "stream/zmvstream_buf.h"

int main(void) { return ZMVStreamBuf_GetOption() == 0 && ZMVHost_TraceLevel() >= 0 ? 0 : 1; }
#endif
