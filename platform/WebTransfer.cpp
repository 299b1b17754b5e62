// The web-transfer control over libcurl's multi interface; nothing runs on another thread.
#include "platform/WebTransfer.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/CodePage.h"

#ifndef ZRK_REPORT_HOST
#define ZRK_REPORT_HOST "localhost"
#endif

namespace zrk::platform {
namespace {

void globalInit() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t appendAnswer(char* data, size_t size, size_t count, void* answer) {
  static_cast<std::string*>(answer)->append(data, size * count);
  return size * count;
}

// The transfers owned by this thread, for its event pump. At thread exit the list may go before
// a transfer held by other thread-local state; the flag (trivial, so it outlives the list) tells
// such a transfer that there is nothing left to leave.
thread_local bool tTransfersGone = false;
struct TransferList : std::vector<WebTransfer*> {
  ~TransferList() { tTransfersGone = true; }
};
thread_local TransferList tTransfers;

std::mutex gPumpMutex;
std::function<void()> gPump;

}  // namespace

struct WebTransfer::Impl {
  CURLM* multi = nullptr;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  bool running = false;
  std::string answer;
  size_t read = 0;  // characters of the answer given out by GetChunk
  std::deque<int16_t> stateChanges;

  void endRequest() {
    if (easy) {
      curl_multi_remove_handle(multi, easy);
      curl_easy_cleanup(easy);
      easy = nullptr;
    }
    curl_slist_free_all(headers);
    headers = nullptr;
    running = false;
  }
};

WebTransfer::WebTransfer() : impl_(std::make_unique<Impl>()) {
  globalInit();
  impl_->multi = curl_multi_init();
  if (!impl_->multi) throw Failure(err::OutOfMemory);
  tTransfers.push_back(this);
}

WebTransfer::~WebTransfer() {
  impl_->endRequest();
  curl_multi_cleanup(impl_->multi);
  if (!tTransfersGone)
    tTransfers.erase(std::remove(tTransfers.begin(), tTransfers.end(), this), tTransfers.end());
}

void WebTransfer::Execute(TextView url, TextView operation, TextView inputData,
                          TextView inputHeaders) {
  Impl& m = *impl_;
  if (m.running) throw Failure(kStillExecuting, u"Still executing last request");
  m.endRequest();
  m.answer.clear();
  m.read = 0;
  m.stateChanges.clear();
  m.easy = curl_easy_init();
  if (!m.easy) throw Failure(err::OutOfMemory);
  std::string body = toAnsi(inputData);
  curl_easy_setopt(m.easy, CURLOPT_URL, toAnsi(url).c_str());
  curl_easy_setopt(m.easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(m.easy, CURLOPT_WRITEFUNCTION, appendAnswer);
  curl_easy_setopt(m.easy, CURLOPT_WRITEDATA, &m.answer);
  if (equalsNoCase(operation, u"GET")) {
    curl_easy_setopt(m.easy, CURLOPT_HTTPGET, 1L);
  } else {
    curl_easy_setopt(m.easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    curl_easy_setopt(m.easy, CURLOPT_COPYPOSTFIELDS, body.c_str());
    if (!equalsNoCase(operation, u"POST")) {
      curl_easy_setopt(m.easy, CURLOPT_CUSTOMREQUEST, toAnsi(operation).c_str());
    }
  }
  for (const Text& line : split(inputHeaders, u"\r\n")) {
    if (!line.empty()) m.headers = curl_slist_append(m.headers, toAnsi(line).c_str());
  }
  // The control sends the body at once, without asking the server first.
  m.headers = curl_slist_append(m.headers, "Expect:");
  curl_easy_setopt(m.easy, CURLOPT_HTTPHEADER, m.headers);
  if (curl_multi_add_handle(m.multi, m.easy) != CURLM_OK) {
    m.endRequest();
    throw Failure(err::OutOfMemory);
  }
  m.running = true;
  perform();
}

void WebTransfer::perform() {
  Impl& m = *impl_;
  if (!m.running) return;
  int stillRunning = 0;
  curl_multi_perform(m.multi, &stillRunning);
  int queued = 0;
  while (CURLMsg* msg = curl_multi_info_read(m.multi, &queued)) {
    if (msg->msg != CURLMSG_DONE) continue;
    m.stateChanges.push_back(msg->data.result == CURLE_OK ? icResponseCompleted : icError);
    m.running = false;
  }
}

bool WebTransfer::StillExecuting() {
  perform();
  return impl_->running;
}

Text WebTransfer::GetChunk(int32_t size, int16_t) {
  Impl& m = *impl_;
  if (size <= 0 || m.read >= m.answer.size()) return Text();
  size_t n = std::min(size_t(size), m.answer.size() - m.read);
  Text chunk = fromAnsi(std::string_view(m.answer).substr(m.read, n));
  m.read += n;
  return chunk;
}

void WebTransfer::Cancel() {
  impl_->endRequest();
  impl_->stateChanges.clear();
}

void WebTransfer::deliverStateChanges() {
  while (!impl_->stateChanges.empty()) {
    int16_t state = impl_->stateChanges.front();
    impl_->stateChanges.pop_front();
    if (StateChanged) StateChanged(state);
  }
}

void runPendingEvents() {
  std::vector<WebTransfer*> transfers = tTransfers;
  for (WebTransfer* t : transfers)
    t->perform();
  for (WebTransfer* t : transfers) {
    // A handler may have released another transfer in the meantime.
    if (std::find(tTransfers.begin(), tTransfers.end(), t) != tTransfers.end()) {
      t->deliverStateChanges();
    }
  }
}

void processEvents() {
  std::function<void()> pump;
  {
    std::lock_guard lock(gPumpMutex);
    pump = gPump;
  }
  if (pump) return pump();
  runPendingEvents();
}

void setEventPump(std::function<void()> pump) {
  std::lock_guard lock(gPumpMutex);
  gPump = std::move(pump);
}

Text reportEndpointHost() {
  const char* host = std::getenv("ZRKKVL_REPORT_HOST");
  return fromUtf8(host && *host ? host : ZRK_REPORT_HOST);
}

}  // namespace zrk::platform
