// The loopback HTTP server of the report tests, over plain sockets.
#include "HttpTestServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace zrk::test {
namespace {

int loopbackSocket(int& port) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) std::abort();
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  port = ntohs(addr.sin_port);
  return fd;
}

// False when the client has gone.
bool writeAll(int fd, const std::string& s) {
  for (size_t off = 0; off < s.size();) {
    ssize_t n = ::send(fd, s.data() + off, s.size() - off, MSG_NOSIGNAL);
    if (n <= 0) return false;
    off += size_t(n);
  }
  return true;
}

size_t contentLength(const std::string& headers) {
  std::string lower;
  for (char c : headers)
    lower += char(std::tolower(static_cast<unsigned char>(c)));
  size_t at = lower.find("\r\ncontent-length:");
  return at == std::string::npos ? 0 : std::strtoul(lower.c_str() + at + 17, nullptr, 10);
}

}  // namespace

HttpTestServer::HttpTestServer(std::vector<std::string> answerParts)
    : HttpTestServer(std::move(answerParts), Mode::Answer) {}

std::unique_ptr<HttpTestServer> HttpTestServer::silent() {
  return std::unique_ptr<HttpTestServer>(new HttpTestServer({}, Mode::Silent));
}

std::unique_ptr<HttpTestServer> HttpTestServer::flood(size_t limit) {
  return std::unique_ptr<HttpTestServer>(new HttpTestServer({}, Mode::Flood, limit));
}

std::unique_ptr<HttpTestServer> HttpTestServer::delayed(std::string answer, int delayMs) {
  return std::unique_ptr<HttpTestServer>(
      new HttpTestServer({std::move(answer)}, Mode::Delayed, 0, delayMs));
}

HttpTestServer::HttpTestServer(std::vector<std::string> parts, Mode mode, size_t floodLimit,
                               int delayMs)
    : parts_(std::move(parts)), mode_(mode), floodLimit_(floodLimit), delayMs_(delayMs) {
  listenFd_ = loopbackSocket(port_);
  ::listen(listenFd_, 8);
  thread_ = std::thread([this] { serve(); });
}

HttpTestServer::~HttpTestServer() {
  stop_ = true;
  thread_.join();
  for (int fd : held_)
    ::close(fd);
  for (auto& [fd, due] : delayed_)
    ::close(fd);
  ::close(listenFd_);
}

std::string HttpTestServer::host() const {
  return "127.0.0.1:" + std::to_string(port_);
}

std::vector<HttpRequest> HttpTestServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

size_t HttpTestServer::floodSent() const {
  while (!floodEnded_)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return floodSent_;
}

int HttpTestServer::deadPort() {
  int port = 0;
  ::close(loopbackSocket(port));
  return port;
}

void HttpTestServer::serve() {
  while (!stop_) {
    answerDue();
    pollfd p{listenFd_, POLLIN, 0};
    if (::poll(&p, 1, 10) <= 0) continue;
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) handle(fd);
  }
}

void HttpTestServer::answerDue() {
  auto now = std::chrono::steady_clock::now();
  for (auto it = delayed_.begin(); it != delayed_.end();) {
    if (it->second > now) {
      ++it;
      continue;
    }
    answer(it->first);
    ::close(it->first);
    it = delayed_.erase(it);
  }
}

void HttpTestServer::handle(int fd) {
  std::string data;
  char buf[4096];
  size_t headerEnd;
  while ((headerEnd = data.find("\r\n\r\n")) == std::string::npos) {
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return (void)::close(fd);
    data.append(buf, size_t(n));
  }
  HttpRequest r;
  size_t lineEnd = data.find("\r\n");
  r.requestLine = data.substr(0, lineEnd);
  r.headers = data.substr(lineEnd + 2, headerEnd + 2 - (lineEnd + 2));
  size_t length = contentLength(data.substr(lineEnd, headerEnd - lineEnd + 2));
  r.body = data.substr(headerEnd + 4);
  while (r.body.size() < length) {
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) break;
    r.body.append(buf, size_t(n));
  }
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(r);
  }
  if (mode_ == Mode::Silent) {
    held_.push_back(fd);
    return;
  }
  if (mode_ == Mode::Delayed) {
    delayed_.push_back(
        {fd, std::chrono::steady_clock::now() + std::chrono::milliseconds(delayMs_)});
    return;
  }
  if (mode_ == Mode::Flood) {
    floodAnswer(fd);
  } else {
    answer(fd);
  }
  ::close(fd);
}

void HttpTestServer::answer(int fd) {
  if (parts_.size() == 1) {
    writeAll(fd, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(parts_[0].size()) +
                     "\r\nConnection: close\r\n\r\n" + parts_[0]);
    return;
  }
  writeAll(fd, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n");
  for (const auto& part : parts_) {
    char size[16];
    std::snprintf(size, sizeof size, "%zx\r\n", part.size());
    writeAll(fd, size + part + "\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  writeAll(fd, "0\r\n\r\n");
}

// A body without a length, so only the end of the connection would end it.
void HttpTestServer::floodAnswer(int fd) {
  const std::string block(64 * 1024, '1');
  if (writeAll(fd, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n")) {
    while (!stop_ && floodSent_ < floodLimit_ && writeAll(fd, block))
      floodSent_ += block.size();
  }
  floodEnded_ = true;
}

}  // namespace zrk::test
