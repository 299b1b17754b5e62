// Child processes for the dialog programs, through posix_spawn.
#include "platform/desktop/ChildPrograms.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/desktop/EventPump.h"
#include "platform/system/Clock.h"

namespace zrk::platform::programs {
namespace {

// The environment with `overrides` ("NAME=value") put in place of their names.
std::vector<std::string> environment(const std::vector<std::string>& overrides) {
  std::vector<std::string> env(overrides);
  for (char** e = environ; *e; ++e) {
    std::string_view entry(*e);
    bool replaced = false;
    for (const auto& o : overrides) {
      replaced |= entry.substr(0, entry.find('=') + 1) == o.substr(0, o.find('=') + 1);
    }
    if (!replaced) env.emplace_back(entry);
  }
  return env;
}

std::string readAll(int fd) {
  std::string all;
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    all.append(buf, size_t(n));
  }
  return all;
}

// Appends what a non-blocking descriptor holds now; false once it is at its end.
bool readAvailable(int fd, std::string& to) {
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n > 0) {
      to.append(buf, size_t(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);  // more may come; else the end
  }
}

}  // namespace

bool onPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string_view rest = path ? path : "/usr/bin:/bin";
  while (true) {
    size_t colon = rest.find(':');
    std::string dir(rest.substr(0, colon));
    if (!dir.empty() && ::access((dir + "/" + program).c_str(), X_OK) == 0) return true;
    if (colon == std::string_view::npos) return false;
    rest.remove_prefix(colon + 1);
  }
}

Child spawn(const std::vector<std::string>& args, bool feed, Capture what,
            const std::vector<std::string>& overrides) {
  bool capture = what != Capture::None;
  Child child;
  int in[2] = {-1, -1}, out[2] = {-1, -1};
  if (feed && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) != 0) return child;
  if (capture && ::pipe2(out, O_CLOEXEC) != 0) {
    if (feed) ::close(in[0]), ::close(in[1]);
    return child;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (feed) {
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (capture) {
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  if (what == Capture::OutputAndErrors) {
    posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  auto pointers = [](const std::vector<std::string>& strings) {
    std::vector<char*> p;
    for (const auto& s : strings)
      p.push_back(const_cast<char*>(s.c_str()));
    p.push_back(nullptr);
    return p;
  };
  std::vector<char*> argv = pointers(args);
  std::vector<std::string> env = environment(overrides);
  std::vector<char*> envp = pointers(env);
  pid_t pid = -1;
  int rc = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (feed) ::close(in[0]);
  if (capture) ::close(out[1]);
  if (rc != 0) {
    if (feed) ::close(in[1]);
    if (capture) ::close(out[0]);
    return child;
  }
  child.pid = pid;
  child.input = feed ? in[1] : -1;
  child.output = capture ? out[0] : -1;
  return child;
}

// The exit status, or -1 when the child ended otherwise.
int waitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a program to its end; gives its exit status (-1 when it could not run) and what it
// printed.
int run(const std::vector<std::string>& args, std::string* printed) {
  Child child = spawn(args, false, printed ? Capture::Output : Capture::None);
  if (child.pid < 0) return -1;
  if (printed) {
    *printed = readAll(child.output);
    ::close(child.output);
  }
  return waitFor(child.pid);
}

// Waits for a child that shows a window while the thread's events go on, as a modal window's
// message loop keeps them going: each round runs one pass of them, then waits up to one tick for
// the child to print or end. Gives the exit status and collects what the child printed.
int waitRunningEvents(Child& child, std::string& printed) {
  ::fcntl(child.output, F_SETFL, ::fcntl(child.output, F_GETFL) | O_NONBLOCK);
  bool outputOpen = true;
  int status = 0;
  for (;;) {
    pid_t done = ::waitpid(child.pid, &status, WNOHANG);
    if (done == child.pid) break;
    if (done < 0 && errno != EINTR) {
      status = -1;
      break;
    }
    processEvents();
    if (outputOpen) {
      pollfd p{child.output, POLLIN, 0};
      ::poll(&p, 1, kEventTickMs);
      outputOpen = readAvailable(child.output, printed);
    } else {
      sleepMs(kEventTickMs);
    }
  }
  ::fcntl(child.output, F_SETFL, ::fcntl(child.output, F_GETFL) & ~O_NONBLOCK);
  printed += readAll(child.output);
  ::close(child.output);
  return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Starts a program that lives on by itself: a shell puts it in the background and ends, so no
// child of ours is left to reap.
void runDetached(const std::vector<std::string>& args) {
  std::vector<std::string> shell{"/bin/sh", "-c", "\"$@\" &", "sh"};
  shell.insert(shell.end(), args.begin(), args.end());
  run(shell, nullptr);
}

bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(size_t(n));
  }
  return true;
}

}  // namespace zrk::platform::programs
