// The stand-in game's life: copy, start, wait for "ready", end.
#include "support/FakeGame.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace zrk::test {
namespace {

// A child process: by fork, or by clone3 with the id asked for.
pid_t spawn(pid_t wanted) {
  if (wanted <= 0) return ::fork();
  clone_args args{};
  args.exit_signal = SIGCHLD;
  args.set_tid = reinterpret_cast<uintptr_t>(&wanted);
  args.set_tid_size = 1;
  return pid_t(::syscall(SYS_clone3, &args, sizeof args));
}

// In the child: become `user`. Raw system calls, since the C library's own keep state that a
// child made by clone3 does not have in order.
void becomeUser(uid_t user) {
  if (user == 0) return;
  if (::syscall(SYS_setgroups, 0, nullptr) != 0 ||
      ::syscall(SYS_setresgid, user, user, user) != 0 ||
      ::syscall(SYS_setresuid, user, user, user) != 0) {
    ::_exit(126);
  }
}

}  // namespace

FakeGame::FakeGame(Options options) {
  if (options.sameAs) {
    path_ = options.sameAs->path_;
  } else {
    path_ = dir_ / ("game-" + dir_.path().substr(dir_.path().rfind('-') + 1));
    std::filesystem::copy_file(ZRK_FAKE_GAME, path_);
    std::filesystem::permissions(path_, std::filesystem::perms::owner_exec,
                                 std::filesystem::perm_options::add);
  }
  if (options.user != 0 && !options.sameAs) {
    if (::chown(dir_.path().c_str(), options.user, options.user) != 0 ||
        ::chown(path_.c_str(), options.user, options.user) != 0) {
      ADD_FAILURE() << "cannot give the game's folder to user " << options.user;
      return;
    }
  }
  const std::string argv0 = options.argv0.empty() ? path_ : options.argv0;
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
  pid_ = spawn(options.pid);
  if (pid_ == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    becomeUser(options.user);
    ::execl(path_.c_str(), argv0.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  stdin_ = in[1];
  std::string line;
  char c;
  while (pid_ > 0 && ::read(out[0], &c, 1) == 1 && c != '\n')
    line += c;
  ::close(out[0]);
  if (pid_ > 0 && line != "ready") {
    stop();
    ADD_FAILURE() << "the game did not start";
  }
}

FakeGame::~FakeGame() {
  stop();
}

void FakeGame::stop() {
  if (stdin_ >= 0) ::close(stdin_);
  stdin_ = -1;
  if (pid_ > 0 && !waited_) ::waitpid(pid_, nullptr, 0);
  waited_ = true;
}

}  // namespace zrk::test
