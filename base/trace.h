// Tracing under a module's tag and source name.
//
// A room declares one `TraceModule` per module and writes
//
//     TraceScope scope(kModule, __func__);                             // "Enter.\n" now, "Leave.\n" at the end
//     if (failed) return scope.Fail(result, "ZMVStreamBuf_Index error!!!\n");   // level 1, and no "Leave.\n"
//     ZMV_TRACE(kModule, kTraceInfo, "Mdat Size (%d)\n", size);
#ifndef ZMV_BASE_TRACE_H
#define ZMV_BASE_TRACE_H

#include "base/host_calls.h"

namespace zmv {

enum TraceLevel : int32_t { kTraceError = 1, kTraceWarning = 2, kTraceInfo = 3, kTraceDebug = 4 };

// `tag` names the module in the log and `source` its source file, whatever file the line stands in.
struct TraceModule {
  const char* tag;
  const char* source;
};

#define ZMV_TRACE(module, level, ...) \
  ::ZMV_Trace((module).tag, (level), (module).source, __LINE__, __func__, __VA_ARGS__)

// The text of a failure and the line that reports it, which the compiler fills in where the text is handed over.
struct FailureText {
  FailureText(const char* text, uint32_t where = __builtin_LINE()) : format(text), line(where) {}
  const char* format;
  uint32_t line;
};

// Entry and exit go by the line that declares the scope, a failure by its own.
class TraceScope {
 public:
  TraceScope(const TraceModule& module, const char* function, uint32_t line = __builtin_LINE())
      : module_(module), function_(function), line_(line) {
    ::ZMV_Trace(module.tag, kTraceDebug, module.source, line, function, "Enter.\n");
  }
  // For functions whose entry line has a wording of its own, which they trace themselves.
  struct Entered {};
  TraceScope(const TraceModule& module, const char* function, Entered, uint32_t line = __builtin_LINE())
      : module_(module), function_(function), line_(line) {}
  ~TraceScope() {
    if (leave_) ::ZMV_Trace(module_.tag, kTraceDebug, module_.source, line_, function_, "Leave.\n");
  }
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

  // Traces the message as an error, drops the "Leave.\n" and hands `result` back.
  template <typename Value, typename... Arguments>
  Value Fail(Value result, FailureText text, Arguments... arguments) {
    leave_ = false;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    ::ZMV_Trace(module_.tag, kTraceError, module_.source, text.line, function_, text.format, arguments...);
#pragma GCC diagnostic pop
    return result;
  }

  // Drops the "Leave.\n" without a line of its own, where the place that failed has traced already.
  template <typename Value>
  Value Fail(Value result) {
    leave_ = false;
    return result;
  }

 private:
  const TraceModule& module_;
  const char* function_;
  uint32_t line_;
  bool leave_ = true;
};

}  // namespace zmv

#endif
