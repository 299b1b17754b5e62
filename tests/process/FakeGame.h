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

  FakeGame();
  ~FakeGame();
  FakeGame(const FakeGame&) = delete;

  pid_t pid() const { return pid_; }
  // The full path of the game's executable, and its file name alone.
  const std::string& path() const { return path_; }
  std::string fileName() const { return path_.substr(path_.rfind('/') + 1); }
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
