#include "recover/recover_mp4_scan.h"

#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"

namespace zmv::recover {

int32_t Mp4Scan::Open() {
  Begin(ZMV_FORMAT_MP4);
  if (!ReadFront(window_, front_)) return Refuse();
  if (const int32_t result = chain_.Open(front_, known_end_, progress_); Failed(result)) {
    Fail(result);
    return result;
  }
  StartAtFront(chain_.closed_end());
  // Where the header of the media data is lost, what is left of the front can look like the boxes behind the frames.
  if (front_.mdat == 0) SearchFirst();
  return Result();
}

void Mp4Scan::Accept(const Record& record, FoundFrame& frame) {
  streams_.Accept(record, frame, report_);
  if (record.media != ZMV_MEDIA_TEXT) return;
  text_carries_ = text_carries_ && CarriesUserData(frame.bytes, frame.size);
  report_.bUserData = text_carries_ ? 1 : 0;
}

}  // namespace zmv::recover
