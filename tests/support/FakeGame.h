// Starts the stand-in game from a copy of its own under a name unique to the test, and ends it
// when the test is done (its standard input closes).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "support/TestSupport.h"

namespace zrk::test {

class FakeGame {
 public:
  // Addresses the game fills (see game/fake_game.cpp).
  static constexpr uint32_t kLow = 0x30000000;
  static constexpr uint32_t kHigh = 0xC0000000;
  static constexpr uint64_t k4GiB = 0x100000000;
  static constexpr uint64_t kFar = 0x200000000000;

  struct Options {
    uid_t user = 0;  // run as this user (and its group) instead of ours; 0 keeps ours
    pid_t pid = 0;   // take exactly this process id (needs root); 0 takes any
    const FakeGame* sameAs = nullptr;  // run that game's executable instead of a copy of its own
    std::string argv0 = "";            // the first argument it gets; empty: its path
  };

  FakeGame() : FakeGame(Options{}) {}
  explicit FakeGame(Options options);
  ~FakeGame();
  FakeGame(const FakeGame&) = delete;

  // -1 when the game could not be started with the id asked for.
  pid_t pid() const { return pid_; }
  // The full path of the game's executable, and its file name alone.
  const std::string& path() const { return path_; }
  std::string fileName() const { return path_.substr(path_.rfind('/') + 1); }
  // The folder holding the game, owned by the game's user.
  const TempDir& dir() const { return dir_; }
  // Ends the game and waits for it.
  void stop();

 private:
  TempDir dir_;
  std::string path_;
  pid_t pid_ = -1;
  int stdin_ = -1;
  bool waited_ = false;
};

// The address as the interface passes it: 32 bits, the upper half negative.
inline int32_t at(uint32_t address) {
  return int32_t(address);
}

}  // namespace zrk::test
