// A question on the terminal: the host's events run while it waits for the answer typed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// Standard input taken from a terminal of our own for the scope of the object.
class TerminalInput {
 public:
  TerminalInput() {
    if (::openpty(&master_, &slave_, nullptr, nullptr, nullptr) != 0) return;
    saved_ = ::dup(STDIN_FILENO);
    ::dup2(slave_, STDIN_FILENO);
  }
  ~TerminalInput() {
    if (saved_ >= 0) ::dup2(saved_, STDIN_FILENO), ::close(saved_);
    if (slave_ >= 0) ::close(slave_);
    if (master_ >= 0) ::close(master_);
  }
  TerminalInput(const TerminalInput&) = delete;
  bool ok() const { return saved_ >= 0; }
  // Types a line as the user would.
  void type(const std::string& line) { (void)!::write(master_, line.data(), line.size()); }

 private:
  int master_ = -1, slave_ = -1, saved_ = -1;
};

TEST(TerminalQuestion, TheHostsEventsRunWhileTheAnswerIsAwaited) {
  TerminalInput terminal;
  ASSERT_TRUE(terminal.ok());
  auto host = std::make_shared<WithHostEvents<platform::TerminalDialogs>>();
  platform::setDialogBackend(host);
  std::atomic<int> passes = 0;
  host->onEvents = [&] {
    if (++passes == 20) terminal.type("n\n");
  };
  // Should the events not run, the answer comes all the same, later.
  std::thread late([&] {
    for (int i = 0; i < 100 && passes < 20; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (passes < 20) terminal.type("y\n");
  });
  int32_t answer =
      platform::dialogBackend()->messageBox(u"Save the profile?", platform::mb::YesNo, u"Question");
  late.join();
  platform::setDialogBackend(nullptr);
  EXPECT_GE(passes, 20);
  EXPECT_EQ(answer, platform::mb::No);
}

}  // namespace
}  // namespace zrk::test
