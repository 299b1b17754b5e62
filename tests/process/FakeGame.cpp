// The stand-in game's life: copy, start, wait for "ready", end.
#include "FakeGame.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace zrk::test {

FakeGame::FakeGame() {
  path_ = dir_ / ("game-" + dir_.path().substr(dir_.path().rfind('-') + 1));
  std::filesystem::copy_file(ZRK_FAKE_GAME, path_);
  std::filesystem::permissions(path_, std::filesystem::perms::owner_exec,
                               std::filesystem::perm_options::add);
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::execl(path_.c_str(), path_.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  stdin_ = in[1];
  std::string line;
  char c;
  while (::read(out[0], &c, 1) == 1 && c != '\n')
    line += c;
  ::close(out[0]);
  if (line != "ready") {
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
