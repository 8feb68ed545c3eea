// The host calls that this room builds on. They are declared here so that base depends on no other room; the contract
// of each stands in platform/zmv_platform.h, and a translation unit that sees both headers fails to compile if they
// differ.
#ifndef ZMV_BASE_HOST_CALLS_H
#define ZMV_BASE_HOST_CALLS_H

#include <stdint.h>

extern "C" {
void* ZMV_Malloc(uint32_t size, uint32_t reserved, int32_t fill, const char* file, uint32_t line, const char* function);
void* ZMV_ReAlloc(void* memory, uint32_t size, uint32_t reserved, const char* file, uint32_t line,
                  const char* function);
void ZMV_Free(void* memory, uint32_t reserved);
void ZMV_Trace(const char* module, int32_t level, const char* file, uint32_t line, const char* function,
               const char* format, ...) __attribute__((format(printf, 6, 7)));
}

#endif
