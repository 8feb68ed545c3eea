// The fixed-layout boxes of moov, built in the box buffer at close.
#ifndef ZMV_MP4_WRITER_BOXES_H
#define ZMV_MP4_WRITER_BOXES_H

#include "mp4/zmvstream_mp4_writer_records.h"

namespace zmv::mp4 {

// What messages and limits call the size of the box buffer, and what is allocated: the largest accepted configuration
// and the boxes around it pass the first.
constexpr uint32_t kBoxBufferSize = 16384;
constexpr uint32_t kBoxBufferAllocation = kBoxBufferSize + 1024;

// A sample description that could not be built. Its parents add it modulo 2^32, so every size around it stays right.
constexpr uint32_t kNoSampleDescription = 0xFFFFFFFFu;

// The most that MakeSphericalBoxes writes: a metadata source of 127 characters and a projection box.
constexpr uint32_t kMaxSphericalBoxes = 225;

// mvhd of the movie into `dst`; returns its bytes.
uint32_t MakeMovieHeader(const MP4WriterHandle& writer, uint8_t* dst);

// The trak chain of a track up to the end of its stsd into `dst`. Sets the box sizes of the track's tables to their
// final values (0 for a table without entries) and counts them: returns the size of the whole trak box. Once per track,
// since it carries the duration of raw audio over to samples.
uint32_t MakeTrackHeader(MP4WriterTrack& track, uint8_t* dst);

// The whole stsd box of a track into `dst`; returns its bytes, or kNoSampleDescription.
uint32_t MakeStsd(MP4WriterTrack& track, uint8_t* dst);
// The stereo mode and spherical video boxes that a track asks for into `dst`; returns their bytes, 0 for a track that
// asks for none, or kNoSampleDescription for an unknown projection type, which only the circular variant explains in
// the trace.
uint32_t MakeSphericalBoxes(const MP4WriterTrack& track, uint8_t* dst);

}  // namespace zmv::mp4

#endif
