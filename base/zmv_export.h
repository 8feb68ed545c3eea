/* Visibility of the names that a shared library of this family exports. */
#ifndef ZMV_BASE_EXPORT_H
#define ZMV_BASE_EXPORT_H

#if defined(__GNUC__)
#define ZMV_API __attribute__((visibility("default")))
#else
#define ZMV_API
#endif

#endif
