/*
 * The host: every operating-system service that libzmvstream uses.
 *
 * The library leaves these names undefined. A process links libzmvplatform, the default host for Linux, or defines all
 * of them itself. Every call may come from any thread that calls into the library; ZMV_Trace, ZMV_Malloc, ZMV_ReAlloc,
 * ZMV_Free and ZMV_FourCC_String must be safe to call from several threads at once.
 */
#ifndef ZMV_PLATFORM_H
#define ZMV_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#include "base/zmv_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Files ----------------------------------------------------------------------------------------------------------
 *
 * A file handle is a standard I/O stream (FILE *): the library applies ferror() to it after a failed write, and
 * fileno() when it hands the descriptor to an application's close callback.
 */

/* The three values that ZMV_FileOpen is called with. */
#define ZMV_OPEN_READ 2u           /* an existing file, for reading */
#define ZMV_OPEN_WRITE 9u          /* create or truncate, for writing; what was written can be read back */
#define ZMV_OPEN_WRITE_DEFAULT 27u /* the same; the default writing mode */

/* Opens `path` (zero-terminated, borrowed). Returns the handle, or null on failure and for any other flags. */
ZMV_API void* ZMV_FileOpen(const char* path, uint32_t flags);

/*
 * Reads up to `length` bytes (never 0) to `buffer` at the handle's position. Returns the bytes read; 0 or less means
 * failure, the end of the file included. A read that follows a write on the same handle is made to work by the host.
 */
ZMV_API int64_t ZMV_FileRead(void* file, void* buffer, uint32_t length);

/*
 * Writes `length` bytes at the handle's position. Returns the bytes written, which may be fewer. Negative is a failure;
 * so is 0 when ferror() on the handle is set, and, when a write cache is flushed, in any case. A write that follows a
 * read on the same handle is made to work by the host.
 */
ZMV_API int64_t ZMV_FileWrite(void* file, const void* buffer, uint32_t length);

/*
 * Moves the handle by `offset` bytes; origin 0 counts from the start, 1 from the position. A target beyond the end of
 * the file is allowed. Negative on failure, and the position is then as before.
 */
ZMV_API int32_t ZMV_FileSeek(void* file, int64_t offset, uint32_t origin);

/* The file's size in bytes, bytes still buffered included; the position does not move. Negative on failure. */
ZMV_API int64_t ZMV_FileSize(void* file);

/* Puts everything written so far on the storage medium. Negative when it, or an earlier write, failed; ignored. */
ZMV_API int32_t ZMV_FileSync(void* file);

/* Closes the handle. Negative when something written did not reach the file; the library ignores the result. */
ZMV_API int32_t ZMV_FileClose(void* file);

/* ---- Memory ---------------------------------------------------------------------------------------------------------
 *
 * `file`, `line` and `function` name the place of the call, for the host's accounts and messages; both texts live as
 * long as the library. `reserved` is always 0.
 */

#define ZMV_FILL_ZERO 0    /* the memory must be zero-filled */
#define ZMV_FILL_NONE (-1) /* it need not be cleared */

/* `size` bytes, or null on failure. A size of 0 is served as 1 byte, so null always means failure. */
ZMV_API void* ZMV_Malloc(uint32_t size, uint32_t reserved, int32_t fill, const char* file, uint32_t line,
                         const char* function);

/* Resizes `memory` (null: allocates) to `size` bytes, contents kept. Null on failure; `memory` is then still valid. */
ZMV_API void* ZMV_ReAlloc(void* memory, uint32_t size, uint32_t reserved, const char* file, uint32_t line,
                          const char* function);

/* Gives `memory` back; null is accepted. */
ZMV_API void ZMV_Free(void* memory, uint32_t reserved);

/* ---- Mutexes (not recursive)
 * ----------------------------------------------------------------------------------------*/

#define ZMV_WAIT_FOREVER 0x7FFFFFFFu

/* A new mutex, or null on failure. */
ZMV_API void* ZMV_MutexCreate(void);
/* Waits up to `timeout` milliseconds; the library always passes ZMV_WAIT_FOREVER. 0, or negative on time-out. */
ZMV_API int32_t ZMV_MutexLock(void* mutex, uint32_t timeout);
ZMV_API int32_t ZMV_MutexUnLock(void* mutex);
ZMV_API int32_t ZMV_MutexDestroy(void* mutex);

/* ---- Threads
 * --------------------------------------------------------------------------------------------------------*/

typedef void (*ZMVThreadEntry)(void* argument);

/* Starts `entry(argument)` on a stack of `stackSize` bytes. Priority is always 0. The handle, or null on failure. */
ZMV_API void* ZMV_ThreadCreate(const char* name, int32_t priority, uint32_t stackSize, ZMVThreadEntry entry,
                               void* argument);
/* Waits until the thread has ended, stores its exit value in `*exitValue` (may be null), frees the handle. 0 = done. */
ZMV_API int32_t ZMV_ThreadDelete(void* thread, uint32_t* exitValue);
/*
 * Ends the calling thread, which ZMV_ThreadCreate started, with this exit value; it does not return. Objects in the
 * frames that are left may go without destruction. A thread that returns from its entry has the exit value 0. In any
 * other thread the call must not be made: libzmvplatform then traces an error and returns.
 */
ZMV_API void ZMV_ThreadExit(uint32_t exitValue);

/* ---- Trace
 * ----------------------------------------------------------------------------------------------------------*/

#define ZMV_TRACE_ERROR 1
#define ZMV_TRACE_WARNING 2
#define ZMV_TRACE_INFO 3
#define ZMV_TRACE_DEBUG 4

/*
 * One log line. `module` is the tag of the calling module ("ZMVMP4W"), `file`, `line` and `function` name the place,
 * and `format` with its arguments is as for printf; formats end in "\n" themselves. The host decides which levels it
 * shows; a level that is not shown should cost a comparison.
 */
ZMV_API void ZMV_Trace(const char* module, int32_t level, const char* file, uint32_t line, const char* function,
                       const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;

/* ---- Other services
 * -------------------------------------------------------------------------------------------------*/

/* A monotonic tick in milliseconds. */
ZMV_API uint64_t ZMV_GetSystemTick(void);

/* Free bytes on the file system that holds `path` (the file itself need not exist). Negative on failure. */
ZMV_API int64_t ZMV_GetFreeDiskSpace(const char* path);

/* As snprintf. */
ZMV_API int ZMV_snprintf(char* buffer, size_t size, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/* A printable form of a four-character code, for trace lines; never freed by the caller. `reserved` is always 0. */
ZMV_API const char* ZMV_FourCC_String(uint32_t code, uint32_t reserved);

#ifdef __cplusplus
}
#endif

#endif
