// The web-transfer control over libcurl's multi interface; nothing runs on another thread.
// libcurl is loaded when the first request is made, so a program that sends none never needs it.
#include "platform/net/WebTransfer.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/loader/SharedLibrary.h"
#include "platform/text/CodePage.h"

#ifndef ZRK_REPORT_HOST
#define ZRK_REPORT_HOST "localhost"
#endif

namespace zrk::platform {
namespace {

// The libcurl functions the control uses, resolved from the loaded library.
struct CurlApi {
  decltype(&curl_global_init) global_init;
  decltype(&curl_multi_init) multi_init;
  decltype(&curl_multi_cleanup) multi_cleanup;
  decltype(&curl_multi_add_handle) multi_add_handle;
  decltype(&curl_multi_remove_handle) multi_remove_handle;
  decltype(&curl_multi_perform) multi_perform;
  decltype(&curl_multi_info_read) multi_info_read;
  decltype(&curl_easy_init) easy_init;
  decltype(&curl_easy_cleanup) easy_cleanup;
  decltype(&curl_easy_setopt) easy_setopt;
  decltype(&curl_slist_append) slist_append;
  decltype(&curl_slist_free_all) slist_free_all;
};

bool bindCurl(const LibrarySymbols& l, CurlApi& api) {
  bool all =
      l.bind(api.global_init, "curl_global_init") && l.bind(api.multi_init, "curl_multi_init") &&
      l.bind(api.multi_cleanup, "curl_multi_cleanup") &&
      l.bind(api.multi_add_handle, "curl_multi_add_handle") &&
      l.bind(api.multi_remove_handle, "curl_multi_remove_handle") &&
      l.bind(api.multi_perform, "curl_multi_perform") &&
      l.bind(api.multi_info_read, "curl_multi_info_read") &&
      l.bind(api.easy_init, "curl_easy_init") && l.bind(api.easy_cleanup, "curl_easy_cleanup") &&
      l.bind(api.easy_setopt, "curl_easy_setopt") &&
      l.bind(api.slist_append, "curl_slist_append") &&
      l.bind(api.slist_free_all, "curl_slist_free_all");
  return all && api.global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

// The functions of the library in use, loaded on first need; null when it cannot be loaded.
const CurlApi* curl() {
  static OnDemandLibrary<CurlApi> library(kTransferLibrary, bindCurl);
  return library.get();
}

// The transfers owned by this thread, for its event pass. At thread exit the list may go before
// a transfer held by other thread-local state; the flag (trivial, so it outlives the list) tells
// such a transfer that there is nothing left to leave.
thread_local bool tTransfersGone = false;
struct TransferList : std::vector<WebTransfer*> {
  ~TransferList() { tTransfersGone = true; }
};
thread_local TransferList tTransfers;

}  // namespace

struct WebTransfer::Impl {
  const CurlApi* api = nullptr;
  CURLM* multi = nullptr;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  bool running = false;
  bool answerOverLimit = false;
  std::string answer;
  size_t read = 0;  // characters of the answer given out by GetChunk
  std::deque<int16_t> stateChanges;

  // Takes in the answer up to kAnswerLimit; past it, giving back less than was handed over
  // makes libcurl end the transfer with an error.
  static size_t appendAnswer(char* data, size_t size, size_t count, void* self) {
    Impl& m = *static_cast<Impl*>(self);
    size_t n = size * count;
    if (n > kAnswerLimit - m.answer.size()) {
      m.answerOverLimit = true;
      std::string().swap(m.answer);
      return 0;
    }
    m.answer.append(data, n);
    return n;
  }

  void endRequest() {
    if (easy) {
      api->multi_remove_handle(multi, easy);
      api->easy_cleanup(easy);
      easy = nullptr;
    }
    if (headers) api->slist_free_all(headers);
    headers = nullptr;
    running = false;
  }

  void addHeader(const std::string& line) {
    curl_slist* list = api->slist_append(headers, line.c_str());
    if (!list) throw Failure(err::OutOfMemory);
    headers = list;
  }
};

WebTransfer::WebTransfer() : impl_(std::make_unique<Impl>()) {
  impl_->api = curl();
  if (!impl_->api) throw Failure(err::CantCreateObject);
  impl_->multi = impl_->api->multi_init();
  if (!impl_->multi) throw Failure(err::OutOfMemory);
  tTransfers.push_back(this);
}

WebTransfer::~WebTransfer() {
  impl_->endRequest();
  impl_->api->multi_cleanup(impl_->multi);
  if (!tTransfersGone)
    tTransfers.erase(std::remove(tTransfers.begin(), tTransfers.end(), this), tTransfers.end());
}

void WebTransfer::Execute(TextView url, TextView operation, TextView inputData,
                          TextView inputHeaders) {
  Impl& m = *impl_;
  if (m.running) throw Failure(kStillExecuting, u"Still executing last request");
  m.endRequest();
  m.answer.clear();
  m.answerOverLimit = false;
  m.read = 0;
  m.stateChanges.clear();
  const CurlApi& api = *m.api;
  m.easy = api.easy_init();
  if (!m.easy) throw Failure(err::OutOfMemory);
  std::string body = toAnsi(inputData);
  api.easy_setopt(m.easy, CURLOPT_URL, toAnsi(url).c_str());
  api.easy_setopt(m.easy, CURLOPT_NOSIGNAL, 1L);
  api.easy_setopt(m.easy, CURLOPT_WRITEFUNCTION, &Impl::appendAnswer);
  api.easy_setopt(m.easy, CURLOPT_WRITEDATA, &m);
  if (equalsNoCase(operation, u"GET")) {
    api.easy_setopt(m.easy, CURLOPT_HTTPGET, 1L);
  } else {
    api.easy_setopt(m.easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    api.easy_setopt(m.easy, CURLOPT_COPYPOSTFIELDS, body.c_str());
    if (!equalsNoCase(operation, u"POST")) {
      api.easy_setopt(m.easy, CURLOPT_CUSTOMREQUEST, toAnsi(operation).c_str());
    }
  }
  for (const Text& line : split(inputHeaders, u"\r\n")) {
    if (!line.empty()) m.addHeader(toAnsi(line));
  }
  // The control sends the body at once, without asking the server first.
  m.addHeader("Expect:");
  api.easy_setopt(m.easy, CURLOPT_HTTPHEADER, m.headers);
  if (api.multi_add_handle(m.multi, m.easy) != CURLM_OK) {
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
  m.api->multi_perform(m.multi, &stillRunning);
  int queued = 0;
  while (CURLMsg* msg = m.api->multi_info_read(m.multi, &queued)) {
    if (msg->msg != CURLMSG_DONE) continue;
    bool answered = msg->data.result == CURLE_OK && !m.answerOverLimit;
    m.stateChanges.push_back(answered ? icResponseCompleted : icError);
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

bool WebTransfer::answerOverLimit() const {
  return impl_->answerOverLimit;
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

void runTransfers() {
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

Text reportEndpointHost() {
  const char* host = std::getenv("ZRKKVL_REPORT_HOST");
  return fromUtf8(host && *host ? host : ZRK_REPORT_HOST);
}

}  // namespace zrk::platform
