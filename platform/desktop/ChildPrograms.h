// The dialog programs (zenity, xdotool, xdg-open, the browser) run as child processes: found on
// the PATH, started with their streams where the dialog needs them, waited for while the
// thread's events go on, or left to live on by themselves.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace zrk::platform::programs {

// Whether `program` is an executable file in a folder of $PATH (/usr/bin:/bin without one).
bool onPath(const std::string& program);

// A child process: its standard input a socket we write to when fed, its standard output a
// pipe we read when captured, its standard error discarded (GTK talks there).
struct Child {
  pid_t pid = -1;
  int input = -1;
  int output = -1;
};

// What a child's output streams go to: nowhere, or standard output (with or without standard
// error) into one pipe.
enum class Capture { None, Output, OutputAndErrors };

// Starts `args` (found on the PATH) with `overrides` ("NAME=value") in its environment, its
// standard input a socket when `feed`; a child with pid -1 when it could not be started.
Child spawn(const std::vector<std::string>& args, bool feed, Capture what,
            const std::vector<std::string>& overrides = {});

// The exit status, or -1 when the child ended otherwise.
int waitFor(pid_t pid);

// Runs a program to its end; gives its exit status (-1 when it could not run) and what it
// printed.
int run(const std::vector<std::string>& args, std::string* printed);

// Waits for a child that shows a window while the thread's events go on, as a modal window's
// message loop keeps them going: each round runs one pass of them, then waits up to one tick for
// the child to print or end. Gives the exit status and collects what the child printed.
int waitRunningEvents(Child& child, std::string& printed);

// Starts a program that lives on by itself: a shell puts it in the background and ends, so no
// child of ours is left to reap.
void runDetached(const std::vector<std::string>& args);

// Sends all of `bytes` down a socket; false when the reader is gone.
bool sendAll(int fd, std::string_view bytes);

}  // namespace zrk::platform::programs
