/*
 * What libzmvplatform, the default host for Linux, offers an application beyond the calls of zmv_platform.h: its trace
 * output and its account of memory. The library itself uses none of this.
 *
 * Environment: ZMV_TRACE=0..4 selects the trace lines that go to the standard error stream: 0 none, 1 errors (the
 * default), 2 also warnings, 3 also information, 4 also debugging. It is read once, at the first line.
 */
#ifndef ZMV_HOST_H
#define ZMV_HOST_H

#include <stdint.h>

#include "base/zmv_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Trace
 * ----------------------------------------------------------------------------------------------------------*/

/* One line. All texts are borrowed for the duration of the call; `text` is the formatted message, "\n" included. */
typedef struct ZMVHostTraceLine {
  const char* module;   /* tag of the module, "ZMVMP4W" */
  const char* file;     /* source file of the call */
  const char* function; /* function of the call */
  const char* text;
  uint32_t line;
  int32_t level; /* ZMV_TRACE_ERROR to ZMV_TRACE_DEBUG */
} ZMVHostTraceLine;

/*
 * Receives lines one at a time, in the thread that traces. It may call into the library: lines that are traced
 * meanwhile by the same thread are dropped.
 */
typedef void (*ZMVHostTraceSink)(void* user, const ZMVHostTraceLine* line);

/*
 * Sends lines up to `level` (0 to 4) to `sink`, with `user` handed through, instead of to the standard error stream. A
 * null `sink` returns to the standard error stream, with `level` in place of ZMV_TRACE; ZMV_HOST_TRACE_DEFAULT goes
 * back to ZMV_TRACE itself. Any thread may call it at any time, a sink included; when it returns to another thread than
 * the sink's, the previous sink is no longer running.
 */
#define ZMV_HOST_TRACE_DEFAULT (-1)
ZMV_API void ZMVHost_SetTraceSink(int32_t level, ZMVHostTraceSink sink, void* user);

/* The highest level that is shown at present. */
ZMV_API int32_t ZMVHost_TraceLevel(void);

/* ---- Memory
 * ---------------------------------------------------------------------------------------------------------*/

typedef struct ZMVHostMemoryUse {
  uint64_t bytes;       /* in live blocks, as asked for */
  uint64_t blocks;      /* live blocks */
  uint64_t peakBytes;   /* the largest `bytes` so far */
  uint64_t peakBlocks;  /* the largest `blocks` so far */
  uint64_t allocations; /* successful ZMV_Malloc and ZMV_ReAlloc calls */
  uint64_t unrecorded;  /* blocks that the account had no memory to record; they are missing above */
} ZMVHostMemoryUse;

/* Live memory of one allocating function, or one live block (`blocks` 1). Texts live as long as the caller of
 * ZMV_Malloc. */
typedef struct ZMVHostMemoryEntry {
  const char* function;
  const char* file;
  uint32_t line; /* of the first call found */
  uint64_t bytes;
  uint64_t blocks;
} ZMVHostMemoryEntry;

typedef void (*ZMVHostMemoryVisitor)(void* user, const ZMVHostMemoryEntry* entry);

/*
 * Starts (non-zero) or stops (0) an account of ZMV_Malloc, ZMV_ReAlloc and ZMV_Free; off at first, and then without
 * cost. Starting begins at zero: blocks that are already live are not counted, and giving them back changes nothing.
 * Starting while it runs changes nothing. Stopping forgets everything. Any thread may call any of these at any time.
 */
ZMV_API void ZMVHost_MemoryAccount(int on);

/* The account so far in `*use`; all zero when it is off. */
ZMV_API void ZMVHost_MemoryUse(ZMVHostMemoryUse* use);

/*
 * Calls `visit` with `user` for every function that owns live blocks, the largest first, functions of the same name in
 * different files apart. Returns their number (a null `visit` only counts), negative when memory for the list is
 * lacking. `visit` may allocate and free: the list is a copy.
 */
ZMV_API int32_t ZMVHost_MemoryByFunction(ZMVHostMemoryVisitor visit, void* user);

#ifdef __cplusplus
}
#endif

#endif
