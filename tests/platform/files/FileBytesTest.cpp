// Whole-file byte reads: the string read and the page image give the same bytes and failures.
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include <zrkKVL/Failure.h>
#include "platform/files/FileIO.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::failureOf;
using test::T;
using test::TempDir;

std::string patterned(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i)
    s[i] = char((i * 131 + i / 4096) & 0xFF);
  return s;
}

TEST(FileBytes, StringAndImageReadTheSameBytes) {
  TempDir d;
  // Sizes around a page and the image's one spare byte, and one that crosses huge pages.
  for (size_t n :
       {size_t(0), size_t(1), size_t(4095), size_t(4096), size_t(4097), (size_t(3) << 20) + 5}) {
    std::string path = d / ("f" + std::to_string(n));
    std::string content = patterned(n);
    test::writeBytes(path, content);
    EXPECT_EQ(readAllBytes(T(path)), content) << n;
    FileImage image(T(path));
    EXPECT_EQ(image.bytes(), content) << n;
  }
}

TEST(FileBytes, FilesThatStateNoSizeAreReadToTheirEnd) {
  // Files under /proc state a size of 0 and have content all the same.
  std::string viaString = readNativeBytes("/proc/self/cmdline");
  FileImage image(u"/proc/self/cmdline");
  EXPECT_FALSE(viaString.empty());
  EXPECT_EQ(image.bytes(), viaString);
}

// A FIFO, socket or device where a file is expected is refused at once, with no writer on the
// FIFO's other end to wait for, and a device that never ends is not read at all. None is even
// opened (an open may act on a device): the FIFO's watch sees no open.
TEST(FileBytes, OnlyRegularFilesAreReadAndNothingBlocks) {
  TempDir d;
  std::string fifo = d / "pipe";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_GE(watch, 0);
  ASSERT_GE(::inotify_add_watch(watch, fifo.c_str(), IN_OPEN), 0);
  test::makeUnopenableFile(d / "socket");
  ASSERT_EQ(::symlink("/dev/zero", (d / "zero-link").c_str()), 0);
  for (const std::string& path :
       {fifo, d / "socket", std::string("/dev/zero"), d / "zero-link", std::string("/dev/null")}) {
    EXPECT_EQ(test::failureOf([&] { readNativeBytes(path); }), err::PathFileAccessError) << path;
    EXPECT_EQ(test::failureOf([&] { FileImage image(T(path)); }), err::PathFileAccessError) << path;
    EXPECT_EQ(test::failureOf([&] { TextInputFile lines(T(path)); }), err::PathFileAccessError)
        << path;
  }
  char events[4096];
  EXPECT_EQ(::read(watch, events, sizeof events), -1) << "the FIFO was opened";
  ::close(watch);
}

// A FIFO swapped with the file again and again while it is read: each read gives the file's
// content or failure 75, and none blocks.
TEST(FileBytes, AFifoSwappedInIsRefusedWithoutBlocking) {
  TempDir d;
  std::string file = d / "f", fifo = d / "p";
  test::writeBytes(file, "content");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop)
      ::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, fifo.c_str(), RENAME_EXCHANGE);
  });
  ::alarm(60);  // a read that blocks ends the test instead of hanging it
  int refused = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string got;
    int32_t number = test::failureOf([&] { got = readNativeBytes(file); });
    if (number) {
      EXPECT_EQ(number, err::PathFileAccessError);
      ++refused;
    } else {
      EXPECT_EQ(got, "content");
    }
  }
  stop = true;
  swapper.join();
  ::alarm(0);
  RecordProperty("refused", refused);
}

TEST(FileBytes, GivenBackPagesLeaveTheRestIntact) {
  TempDir d;
  std::string content = patterned((size_t(5) << 20) + 17);
  test::writeBytes(d / "big", content);
  FileImage image(T(d / "big"));
  for (size_t offset : {size_t(100), size_t(2) << 20, (size_t(4) << 20) + 4095}) {
    image.release(offset);
    EXPECT_EQ(image.bytes().substr(offset), std::string_view(content).substr(offset)) << offset;
  }
}

TEST(FileBytes, FailuresAreTheSameForBothReads) {
  TempDir d;
  test::makeDir(d / "dir");
  test::makeDir(d / "closed");
  ::chmod((d / "closed").c_str(), 0);
  test::writeBytes(d / "unreadable", "x");
  ::chmod((d / "unreadable").c_str(), 0);
  test::makeUnopenableFile(d / "socket");
  struct Case {
    const char* what;
    Text path;
    int32_t number;  // -1: whatever the system refuses with, the same for both
  } cases[] = {
      {"missing", T(d / "nope"), err::FileNotFound},
      {"missing folder on the way", T(d / "no/file"), err::FileNotFound},
      {"folder", T(d / "dir"), err::PathFileAccessError},
      {"folder that cannot be listed", T(d / "closed"), err::PathFileAccessError},
      {"empty name", u"", err::BadFileNameOrNumber},
      {"socket", T(d / "socket"), err::PathFileAccessError},
      {"no read permission", T(d / "unreadable"), -1},
  };
  for (const auto& c : cases) {
    int32_t viaString = failureOf([&] { readAllBytes(c.path); });
    int32_t viaImage = failureOf([&] { FileImage image(c.path); });
    EXPECT_EQ(viaImage, viaString) << c.what;
    if (c.number >= 0) {
      EXPECT_EQ(viaString, c.number) << c.what;
    }
  }
  EXPECT_NE(failureOf([&] { readAllBytes(T(d / "socket")); }), 0);
  // Root reads a file without permissions; anyone else is refused.
  EXPECT_EQ(failureOf([&] { readAllBytes(T(d / "unreadable")); }),
            ::geteuid() == 0 ? 0 : err::PermissionDenied);
}

}  // namespace
}  // namespace zrk::platform
