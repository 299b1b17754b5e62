// Stand-in for the web-transfer control: one HTTP request at a time, run by libcurl's multi
// interface on the caller's thread, with its state changes delivered by the thread's event pass
// (EventPump.h). An answer is kept up to kAnswerLimit characters; a longer one ends the transfer
// in error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

class WebTransfer {
 public:
  // States passed to StateChanged, and the data type of GetChunk.
  static constexpr int16_t icError = 11;
  static constexpr int16_t icResponseCompleted = 12;
  static constexpr int16_t icString = 0;
  // The control's refusal of a second request while one runs.
  static constexpr int32_t kStillExecuting = 35764;
  // The longest answer kept: far more than any answer the library reads.
  static constexpr size_t kAnswerLimit = 64 * 1024;

  // The first control made loads libcurl, once for the process. Failure 429 (a component that
  // cannot be created) where it cannot be loaded.
  WebTransfer();
  ~WebTransfer();
  WebTransfer(const WebTransfer&) = delete;
  WebTransfer& operator=(const WebTransfer&) = delete;

  // Raised from the event pass, on the thread that owns the transfer.
  std::function<void(int16_t state)> StateChanged;

  // Starts the request and returns at once. Texts go out through the ANSI code page; the headers
  // are lines separated by CR LF. Failure 35764 while a request runs, 7 when none can be made.
  void Execute(TextView url, TextView operation, TextView inputData, TextView inputHeaders);
  // True from Execute until the transfer has ended (answered, failed or cancelled).
  bool StillExecuting();
  // The next part of the answer, at most `size` characters; empty text when no more is left.
  Text GetChunk(int32_t size, int16_t dataType = icString);
  // True when the last request's answer went past kAnswerLimit: the transfer ended in error and
  // kept nothing of it.
  bool answerOverLimit() const;
  // Ends the request and drops its undelivered state changes.
  void Cancel();

  // Moves the transfer on without blocking; called by the event pass.
  void perform();
  // Raises the state changes queued since the last call.
  void deliverStateChanges();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Moves this thread's transfers on and delivers their state changes: the transfers' share of one
// pass of events.
void runTransfers();

// The libcurl file the first control loads (overrideLibraryFile names another, for tests).
inline constexpr const char* kTransferLibrary = "libcurl.so.4";

// Host (and port) of the error-report endpoint: ZRKKVL_REPORT_HOST when set, else the build's.
Text reportEndpointHost();

}  // namespace zrk::platform
