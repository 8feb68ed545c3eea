/* libzmvstream: MP4 and AVI recordings. This header brings in everything that an application uses. */
#ifndef ZMVSTREAM_H
#define ZMVSTREAM_H

#include "base/zmv_fourcc.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "facade/zmvstream_reader.h"
#include "facade/zmvstream_writer.h"
#include "platform/zmv_platform.h"
#include "stream/zmvstream_buf.h"
#include "stream/zmvstream_file.h"

#endif
