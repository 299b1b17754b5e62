// Questions nobody can answer (no terminal, input at its end) take the answer that changes
// nothing, and say so on stderr.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "support/HardeningSupport.h"

namespace zrk::test {
namespace {

using namespace platform;

// Points a standard descriptor elsewhere for the scope of the object.
class Redirect {
 public:
  Redirect(int fd, int to) : fd_(fd), saved_(::dup(fd)) { ::dup2(to, fd); }
  ~Redirect() {
    ::dup2(saved_, fd_);
    ::close(saved_);
  }

 private:
  int fd_, saved_;
};

// The terminal backend's answer with standard input on `input`, and what it wrote to stderr.
std::pair<int32_t, std::string> askOn(int input, int32_t buttons, const TempDir& dir) {
  int err = ::open((dir / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  int32_t answer;
  {
    Redirect in(STDIN_FILENO, input), out(STDERR_FILENO, err);
    answer = TerminalDialogs().messageBox(u"File: x\r\n\r\nDo you wish to continue?\r\n", buttons,
                                          u"Confirmation Required!");
  }
  ::close(err);
  std::cin.clear();
  ::clearerr(stdin);
  return {answer, readBytes(dir / "stderr")};
}

TEST(UnattendedDialogs, NoTerminalTakesTheAnswerThatChangesNothing) {
  struct Case {
    int32_t buttons, answer;
    const char* line;  // the last line on stderr
  } cases[] = {
      {mb::YesNo, mb::No, "answered No"},
      {mb::YesNoCancel, mb::Cancel, "answered Cancel"},
      {mb::OKCancel, mb::Cancel, "answered Cancel"},
      {mb::RetryCancel, mb::Cancel, "answered Cancel"},
      {mb::AbortRetryIgnore | mb::Question, mb::Abort, "answered Abort"},
      {mb::OKOnly, mb::OK, "(OK)"},
  };
  TempDir dir;
  int devNull = ::open("/dev/null", O_RDONLY);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.buttons);
    auto [answer, printed] = askOn(devNull, c.buttons, dir);
    EXPECT_EQ(answer, c.answer);
    EXPECT_NE(printed.find(c.line), std::string::npos) << printed;
    if (c.buttons != mb::OKOnly) {
      EXPECT_NE(printed.find("[Confirmation Required!] \"Do you wish to continue?\": answered "),
                std::string::npos)
          << printed;
    }
  }
  ::close(devNull);
}

// A terminal whose input has ended answers no more than no terminal; a typed answer still counts.
TEST(UnattendedDialogs, TerminalAtEndOfInput) {
  int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(::grantpt(master), 0);
  ASSERT_EQ(::unlockpt(master), 0);
  int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  TempDir dir;
  ASSERT_EQ(::write(master, "y\n", 2), 2);
  EXPECT_EQ(askOn(terminal, mb::YesNo, dir).first, mb::Yes);
  ASSERT_EQ(::write(master, "\x04", 1), 1);  // end of input
  auto [answer, printed] = askOn(terminal, mb::YesNo, dir);
  EXPECT_EQ(answer, mb::No);
  EXPECT_NE(printed.find("\"Do you wish to continue?\": answered No, as the input has ended"),
            std::string::npos)
      << printed;
  ::close(terminal);
  ::close(master);
}

// The tool run from cron or a pipe: the damaged-archive question is declined, nothing is written.
using UnattendedTool = LibraryTest;

TEST_F(UnattendedTool, DeclinesToWriteDamagedRecords) {
  const TempDir& dir = root;
  makeDir(dir / "out");
  std::string stream = ansi(kvn->CompressString(u"no bar in this text"));
  std::string record = "19\x10" + stream;
  std::string length = std::to_string(record.size());
  writeBytes(dir / "d.zrk",
             "ZRKArch\x10" + std::to_string(length.size()) + length + "\x10" + record);
  std::string command = "env -u DISPLAY -u WAYLAND_DISPLAY '" +
                        builtFile("ZRK_TOOL_FILE", ZRK_TOOL_FILE) + "' --root '" + dir.path() +
                        "' archive extract '" + dir / "d.zrk" + "' '" + dir / "out" +
                        "' </dev/null 2>'" + dir / "stderr" + "'";
  int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(entriesOf(dir / "out"), std::set<std::string>{});
  EXPECT_NE(readBytes(dir / "stderr").find("\"Do you wish to continue?\": answered No"),
            std::string::npos);
}

}  // namespace
}  // namespace zrk::test
