/*
 * The recovery library: brings back a recording whose power was cut.
 *
 * MP4 recordings of this library carry a record in front of every payload, so every complete frame comes back with its
 * own time, duration, key flag, stream and order from the cut file alone. AVI recordings are found again chunk by
 * chunk; AVI stores no times, so theirs are uniform.
 *
 * Order: Probe tells what a file is; ToFile writes a new recording and never touches the old one; InPlace completes the
 * old one where it stands. Memory does not grow with the length of a recording, but for the index of a new AVI: 16
 * bytes a frame. A call works in the caller's thread; calls on different files may run in different threads. Results
 * are 0 or a negative ZMV_E_* code.
 */
#ifndef ZMVRECOVER_H
#define ZMVRECOVER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "facade/zmvstream_writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The progress callback asked to stop. */
#define ZMV_E_CANCELLED 0x80000060u

/* ---- What is found
 * --------------------------------------------------------------------------------------------------*/

/* ZMVRecoverReport.dwState */
#define ZMV_RECOVER_WHOLE 0u   /* closed, and nothing is missing */
#define ZMV_RECOVER_CUT 1u     /* not closed; every frame up to the end of the data is there */
#define ZMV_RECOVER_DAMAGED 2u /* stretches of it cannot be read, whether it was closed or not */
#define ZMV_RECOVER_FOREIGN 3u /* not a recording of this library */

#define ZMV_RECOVER_MAX_STREAMS 12u
#define ZMV_RECOVER_MAX_HOLES 64u

/* A stretch without a readable frame between frames that are. */
typedef struct ZMVRecoverHole {
  uint64_t llPosition; /* in the damaged file */
  uint64_t llLength;   /* bytes */
} ZMVRecoverHole;

/* One stream, counted over the frames that were found. */
typedef struct ZMVRecoverStream {
  uint32_t dwMediaType; /* ZMV_MEDIA_* */
  uint32_t dwTrack;     /* number within its media type, 0 = first */
  uint32_t dwFrames;
  uint32_t dwKeyFrames;
  uint64_t llFirstTime; /* time stamps of its first and last frame, milliseconds */
  uint64_t llLastTime;
  uint64_t llBytes;   /* payload */
  uint8_t bDescribed; /* 0: the file's description of the stream is lost; one given by the caller, or a plain one, is
                         used */
} ZMVRecoverStream;

typedef struct ZMVRecoverReport {
  uint32_t dwState;  /* ZMV_RECOVER_* */
  uint32_t dwFormat; /* ZMV_FORMAT_* */
  uint64_t llFileSize;
  uint64_t llDataEnd;    /* position behind the last complete frame */
  uint64_t llIncomplete; /* bytes of a last frame that is not complete, behind it; 0 = none */
  uint64_t llLastTime;   /* the latest time stamp found, milliseconds */
  uint32_t dwFrames;     /* complete frames */
  uint32_t dwDropped;    /* frames whose records are sound and whose payloads are seen to be damaged */
  uint32_t dwHoles;      /* all of them; the first ZMV_RECOVER_MAX_HOLES stand in Hole */
  uint64_t llHoleBytes;  /* of all holes */
  uint8_t bUniformTimes; /* 1: AVI, time stamps are computed from the rate */
  uint8_t bUserData;     /* 1: the text stream carries GPS and sensor blocks, whose boxes are rebuilt */
  uint8_t bCanInPlace;   /* 1: ZMVRecoverInPlace can complete it; 0: only ZMVRecoverToFile */
  uint8_t bChanged;      /* 1: ZMVRecoverInPlace has completed the file; 0: it was left alone */
  uint32_t dwStreamCount;
  ZMVRecoverStream Stream[ZMV_RECOVER_MAX_STREAMS];
  ZMVRecoverHole Hole[ZMV_RECOVER_MAX_HOLES];
} ZMVRecoverReport;

/* ---- Recovery
 * -------------------------------------------------------------------------------------------------------*/

/* ZMVRecoverParam.dwUserData */
#define ZMV_RECOVER_USER_DATA_AUTO 0u /* boxes are rebuilt when the text frames look as if they carry the blocks */
#define ZMV_RECOVER_USER_DATA_NEVER 1u
#define ZMV_RECOVER_USER_DATA_ALWAYS 2u

/* Zero the record, then set what is needed. Everything is borrowed for the call. */
typedef struct ZMVRecoverParam {
  const char* pszPath;             /* the damaged recording */
  const char* pszTarget;           /* ToFile: the new recording, which must not exist or be the damaged one */
  const ZMVFileInfo* pDescription; /* streams to assume where the file's own description is lost; may be null */
  uint32_t dwUserData;             /* ZMV_RECOVER_USER_DATA_* */
  /* Called now and then with bytes done and in all; a result other than 0 stops the call with ZMV_E_CANCELLED. */
  uint32_t (*pfnProgress)(void* context, uint64_t done, uint64_t total);
  void* pContext;
} ZMVRecoverParam;

/*
 * Says what the file is and what would come back; the file is only read. `report` is filled whenever the result is 0;
 * `info` (may be null) receives the streams as they will be described. A foreign file is a report, not a failure.
 * 0; ZMV_E_OPEN, ZMV_E_READ, ZMV_E_MEMORY, ZMV_E_CANCELLED; ZMV_E_FAIL for null arguments.
 */
ZMV_API int32_t ZMVRecoverProbe(const ZMVRecoverParam* param, ZMVRecoverReport* report, ZMVFileInfo* info);

/*
 * Writes a complete new recording at pszTarget through the writer facade. `report` (may be null) says what came back.
 * A failed or cancelled call removes the target. 0; the codes of Probe; ZMV_E_UNSUPPORTED_FORMAT for a foreign file;
 * ZMV_E_DISK_FULL, ZMV_E_WRITE or another code of the writer facade.
 */
ZMV_API int32_t ZMVRecoverToFile(const ZMVRecoverParam* param, ZMVRecoverReport* report);

/*
 * Completes the recording where it stands: appends what is missing behind the last complete frame, puts that on the
 * storage medium, and patches the sizes last. A call that ends early, by a failure or another power cut, leaves a file
 * from which the same frames come back. A file that is whole, or was closed and is damaged, is left alone (0). `report`
 * may be null. 0; the codes of Probe; ZMV_E_UNSUPPORTED_FORMAT for a foreign file; ZMV_E_NOT_SUPPORTED when bCanInPlace
 * is 0; ZMV_E_WRITE.
 */
ZMV_API int32_t ZMVRecoverInPlace(const ZMVRecoverParam* param, ZMVRecoverReport* report);

#ifdef __cplusplus
}
#endif

#endif
