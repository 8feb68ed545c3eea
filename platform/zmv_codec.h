/*
 * Codec helpers: H.264 and HEVC parameter sets in start-code form (annex B of ISO/IEC 14496-10 and ISO/IEC 23008-2) and
 * in configuration-record form (ISO/IEC 14496-15), emulation prevention, and audio frame sizes. All are reentrant, keep
 * no state and take no memory. Failures are ZMV_E_FAIL. Buffers stay the caller's.
 *
 * Configurations inside a recording are held without emulation-prevention bytes; configuration records hold escaped NAL
 * units. The two ...FromStartCode helpers therefore put the bytes back, and what is handed to them must not have them
 * already. Since unescaped sets can contain 00 00 01, a start code counts only in front of a plausible header: NAL
 * types 7, 8 and 13 for H.264, 32 to 34 for HEVC. Three- and four-byte start codes count alike; zero bytes behind a set
 * are no part of it. Configurations hold parameter sets only: any other unit is taken as a part of the set before it.
 */
#ifndef ZMV_CODEC_H
#define ZMV_CODEC_H

#include <stdint.h>

#include "base/zmv_export.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ZMVVideoInfo;

/* What an avcC record says when the configuration has no usable SPS. */
typedef struct UtilAvcParam {
  uint32_t dwProfile;       /* profile_idc */
  uint32_t dwCompatibility; /* constraint flags byte */
  uint32_t dwLevel;         /* level_idc */
  uint32_t dwLengthSize;    /* bytes of a NAL length field in the samples: 1, 2 or 4; any other value counts as 4 */
} UtilAvcParam;

/* One NAL unit inside the caller's buffer, escaped, without start code; null and 0 when absent. */
typedef struct UtilNalUnit {
  uint8_t* pData;
  uint32_t dwSize;
} UtilNalUnit;

/* What an hvcC record is composed of. */
typedef struct UtilHevcInfo {
  uint8_t* pBuffer;      /* in: place for the escaped units, the caller's */
  uint32_t dwBufferSize; /* in: its size in bytes; one and a half times the configuration always suffices */
  UtilNalUnit vps;       /* the first of each kind */
  UtilNalUnit sps;
  UtilNalUnit pps;
  uint8_t bProfileSpace;            /* general_profile_space, 2 bits */
  uint8_t bTier;                    /* general_tier_flag */
  uint8_t bProfile;                 /* general_profile_idc, 5 bits */
  uint8_t bLevel;                   /* general_level_idc */
  uint32_t dwCompatibility;         /* general_profile_compatibility_flags, flag 0 in the top bit */
  uint64_t llConstraint;            /* general_constraint_indicator_flags, 48 bits */
  uint16_t wMinSpatialSegmentation; /* min_spatial_segmentation_idc, 0 = unknown */
  uint8_t bParallelism;             /* parallelismType: 1 slices, 2 tiles, 3 wavefronts; 0 = mixed or unknown */
  uint8_t bChromaFormat;            /* chroma_format_idc: 0 none, 1 4:2:0, 2 4:2:2, 3 4:4:4 */
  uint8_t bBitDepthLuma;            /* bits per sample, 8 to 16 */
  uint8_t bBitDepthChroma;
  uint8_t bTemporalLayers;   /* sps_max_sub_layers_minus1 + 1; 0 = unknown */
  uint8_t bTemporalIdNested; /* sps_temporal_id_nesting_flag */
} UtilHevcInfo;

/*
 * Removes the emulation-prevention bytes (each 03 that follows two zero bytes) of `*size` bytes at `buf` in place and
 * stores the new size. 0, or negative for a null argument.
 */
ZMV_API int32_t ZMVUtil_H26xRemoveEPB(uint8_t* buf, uint32_t* size);

/*
 * Turns an avcC (hvcC) record of `*size` bytes at `extra`, a buffer of 512 bytes, into start-code form in place: every
 * parameter set behind 00 00 00 01, still escaped, SPS before PPS (for HEVC the first VPS, SPS and PPS). Of a larger
 * size the first 512 bytes count. Never reads or writes beyond 512 bytes; a unit that does not fit is left out whole.
 * Data that already begins with a start code stays as it is, and so does, with a negative result, anything that is
 * neither. 0, or negative when the record is malformed (the units that could be read are then kept) or an argument is
 * null.
 */
ZMV_API int32_t ZMVUtil_ConvH264InfoToStartCode(uint8_t* extra, uint32_t* size);
ZMV_API int32_t ZMVUtil_ConvHEVCInfoToStartCode(uint8_t* extra, uint32_t* size);

/*
 * Completes `video` from a configuration (record or start-code form, escaped or not): width and height, less the
 * cropping, where they are 0. Which standard applies is told by the FourCC of `video`; for one of neither, by the
 * configuration itself. 0, or negative when nothing could be read or `video` is null. A null or empty configuration is
 * accepted and changes nothing.
 */
ZMV_API int32_t ZMVUtil_GetVideoInfo(const uint8_t* config, uint32_t size, struct ZMVVideoInfo* video);

/*
 * Samples (per channel) in one compressed frame of the audio format, a WAVE format tag or a FourCC: 1024 for AAC, 1152
 * for MPEG audio and so on. 0 for an unknown tag and for formats without a fixed frame, PCM and G.711 among them.
 */
ZMV_API uint32_t ZMVUtil_GetAudioSampleSize(uint32_t tag);

/*
 * Writes the AVC decoder configuration record of the SPS and PPS in `config` (start-code form, without emulation
 * prevention) to `record`. `*recordSize`: in, the capacity in bytes; out, the length, 0 on failure. At most 31 SPS and
 * 255 PPS are taken. Profile, compatibility and level come from the first SPS, else from `param` (null: High profile,
 * level 5, length size 4). Profiles other than 66, 77 and 88 get the trailer with chroma format, bit depths and SPS
 * extensions. 0, or negative when the record does not fit or `record` or `recordSize` is null. A null or empty
 * configuration gives a record without sets.
 */
ZMV_API int32_t UtilConvH264InfoFromStartCode(const uint8_t* config, uint32_t size, uint8_t* record,
                                              uint32_t* recordSize, const UtilAvcParam* param);

/*
 * Takes the first VPS, SPS and PPS of `config` (start-code form, without emulation prevention) apart into `info`, whose
 * pBuffer and dwBufferSize the caller has set; everything else in it is overwritten. 0, or negative when a unit did not
 * fit, which is then absent, or `info` is null. A null or empty configuration leaves all units absent; fields that no
 * SPS gives are 0, but chroma 4:2:0 and 8 bits.
 */
ZMV_API int32_t UtilConvH265InfoFromStartCode(const uint8_t* config, uint32_t size, UtilHevcInfo* info);

/* ---- Beyond the host contract
 * -----------------------------------------------------------------------------------------
 *
 * Services of libzmvplatform for tools. libzmvstream does not call them, and a host of one's own need not have them.
 */

/* What an SPS says about its stream. */
typedef struct ZMVCodecInfo {
  uint32_t dwWidth; /* pixels, after cropping */
  uint32_t dwHeight;
  uint32_t dwCodedWidth; /* pixels, before cropping */
  uint32_t dwCodedHeight;
  uint32_t dwProfile;       /* profile_idc, general_profile_idc */
  uint32_t dwLevel;         /* level_idc (10 x the level), general_level_idc (30 x the level) */
  uint32_t dwTier;          /* HEVC: 0 Main, 1 High */
  uint32_t dwCompatibility; /* H.264: constraint flags byte; HEVC: compatibility flags, flag 0 in the top bit */
  uint64_t llConstraint;    /* HEVC: constraint flags, 48 bits */
  uint32_t dwChromaFormat;  /* 0 none, 1 4:2:0, 2 4:2:2, 3 4:4:4 */
  uint32_t dwBitDepthLuma;  /* bits per sample */
  uint32_t dwBitDepthChroma;
  uint32_t dwInterlaced;  /* H.264: 1 when pictures may be coded as fields */
  uint32_t dwAspectWidth; /* sample aspect ratio; 0 = unspecified */
  uint32_t dwAspectHeight;
  uint32_t dwFullRange;       /* 1: sample values use the full range */
  uint32_t dwColourPrimaries; /* as in ISO/IEC 23091-2; 2 = unspecified */
  uint32_t dwTransfer;
  uint32_t dwMatrix;
  uint64_t llRateNum; /* frames per second: llRateNum / llRateDen; both 0 when the SPS has no timing */
  uint64_t llRateDen;
} ZMVCodecInfo;

/*
 * Describes the first SPS of a configuration of `size` bytes in record or start-code form, escaped or not, H.264 or
 * (hevc not 0) HEVC. 0, or negative when a pointer is null or no picture size could be read; `out` then holds what
 * could be (profile and level), the rest at its neutral value.
 */
ZMV_API int32_t ZMVCodec_Describe(const uint8_t* config, uint32_t size, int hevc, ZMVCodecInfo* out);

#ifdef __cplusplus
}
#endif

#endif
