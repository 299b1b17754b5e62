// A small HTTP server on 127.0.0.1 for the report tests: records each request and answers it as
// told, or never.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zrk::test {

struct HttpRequest {
  std::string requestLine;  // "POST /path HTTP/1.1"
  std::string headers;      // the header lines, each ending in CR LF
  std::string body;
};

class HttpTestServer {
 public:
  // Answers every request with the parts as its body: one part with a Content-Length, several
  // in chunked encoding, each part written separately.
  explicit HttpTestServer(std::vector<std::string> answerParts);
  // Reads requests and never answers them.
  static std::unique_ptr<HttpTestServer> silent();
  // Answers each request with `answer`, `delayMs` milliseconds after it came in; requests that
  // come in meanwhile are read and answered each in its own time.
  static std::unique_ptr<HttpTestServer> delayed(std::string answer, int delayMs);
  // Answers with a body of digits that ends only after `limit` bytes or when the client leaves.
  static std::unique_ptr<HttpTestServer> flood(size_t limit);
  ~HttpTestServer();

  // "127.0.0.1:port".
  std::string host() const;
  std::vector<HttpRequest> requests() const;

  // A loopback port on which nothing listens.
  static int deadPort();

  // Waits until a flood has ended, and gives how many body bytes the client took in.
  size_t floodSent() const;

 private:
  enum class Mode { Answer, Silent, Flood, Delayed };
  HttpTestServer(std::vector<std::string> parts, Mode mode, size_t floodLimit = 0, int delayMs = 0);
  // Answers the delayed requests whose time has come.
  void answerDue();
  void serve();
  void handle(int fd);
  void answer(int fd);
  void floodAnswer(int fd);

  std::vector<std::string> parts_;
  Mode mode_;
  size_t floodLimit_;
  std::atomic<size_t> floodSent_{0};
  std::atomic<bool> floodEnded_{false};
  int listenFd_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::vector<HttpRequest> requests_;
  std::vector<int> held_;  // connections left unanswered
  int delayMs_ = 0;
  std::vector<std::pair<int, std::chrono::steady_clock::time_point>> delayed_;  // and when due
  std::thread thread_;
};

}  // namespace zrk::test
