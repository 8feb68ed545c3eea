// Closing a file stream: what is cached is written, everything is given back, the file is closed or handed over.
#include <stdio.h>
#include <unistd.h>

#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "platform/zmv_platform.h"
#include "stream/file_stream.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {
namespace {

void StopFlushThread(ZMVStreamFile& file) {
  __atomic_store_n(&file.m_bFlushStop, uint8_t{1}, __ATOMIC_RELAXED);
  if (file.m_hFlushThread == nullptr) return;
  uint32_t exit_value = 0;
  if (ZMV_ThreadDelete(file.m_hFlushThread, &exit_value) != 0) {
    ZMV_TRACE(kFileModule, kTraceError, "ZMV_ThreadDelete failed\n");
  }
  file.m_hFlushThread = nullptr;
}

// Writes the nodes that hold data, oldest first. After an earlier failure nothing more is written: the file would have
// a hole where the lost node belongs.
void FlushAll(ZMVStreamFile& file) {
  if (file.m_llFlushError != 0) {
    ZMV_TRACE(kFileModule, kTraceError, "can not flush flushnode(%x) has error(%x)\n", LowWord(file.m_pFlushNode),
              static_cast<uint32_t>(file.m_llFlushError));
    return;
  }
  while (file.m_pFlushNode->m_dwUsed != 0) {
    file.m_pFlushNode->m_bReady = 1;
    if (Failed(ZMVStreamFile_WriteCache(&file))) {
      ZMV_TRACE(kFileModule, kTraceError, "ZMVStreamFile_WriteCache failed\n");
      return;
    }
  }
}

void CloseHandle(ZMVStreamFile& file) {
  const ZMVStreamCloseCB callback = CloseCallback();
  if (WriteOption() != 0 && callback != nullptr) {
    // The application works on the descriptor, so the stream object on top of it is left as it is.
    ZMV_FileSync(file.m_hFile);
    const int descriptor = fileno(static_cast<FILE*>(file.m_hFile));
    callback(descriptor, file.m_szPath);
    close(descriptor);
    return;
  }
  if (file.m_bSync != 0) ZMV_FileSync(file.m_hFile);
  ZMV_FileClose(file.m_hFile);
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

void ZMVStreamFile_Close(void* context) {
  if (context == nullptr) return;
  TraceScope scope(kFileModule, __func__);
  ZMVStreamFile& file = FileOf(context);
  for (uint32_t idx = 0; idx < ZMV_STREAM_MAX_CURSORS; ++idx) FreeCursor(file, idx);
  if (file.m_bWrite != 0) {
    StopFlushThread(file);
    if (file.m_pFillNode != nullptr) FlushAll(file);
    FreeWriteCache(file);
  }
  CloseHandle(file);
  FreeHost(context);
}
