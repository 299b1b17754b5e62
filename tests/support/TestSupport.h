// Shared helpers for the tests: throwaway folders, raw file bytes, a library set up in a
// throwaway installation root with scripted dialogs.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <set>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "platform/desktop/Dialogs.h"
#include "platform/text/VectorLevel.h"

namespace zrk::test {

// A folder removed with all it holds at the end of the test.
class TempDir {
 public:
  TempDir();
  // Below `parent`, or in the usual temporary folder where none can be made there.
  explicit TempDir(const std::string& parent);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  // The same as Text, for the library's arguments.
  Text text(const std::string& name = "") const;

 private:
  std::string path_;
};

// A throwaway folder in memory (/dev/shm) where there is one, else on disk, for tests of many
// processes or many syncs, in which the disk's speed is not what is tested.
struct MemoryFolder : TempDir {
  MemoryFolder() : TempDir("/dev/shm") {}
};

// Removes a tree whatever modes a test gave its entries (links left as they point; not a tree
// deeper than the longest path).
void removeTree(const std::string& path);

std::string readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);
// The entry itself, not what a link points to; a failed check when there is none.
struct stat statOf(const std::string& path);
// The names a folder holds, without "." and "..".
std::set<std::string> entriesOf(const std::string& dir);
void makeDir(const std::string& path);
// A file that exists but cannot be opened (a socket), since tests may run as root, for whom
// permission bits refuse nothing.
void makeUnopenableFile(const std::string& path);
// Waits until the file's stamps lie behind the clock the file system stamps files with, so
// that what is read of the file now is kept by the INI cache.
void waitTillStampsLieBehind(const std::string& path);

// A file of the build or source tree: the copy the environment variable `name` points to when
// set (an unprivileged run passes copies it may reach), else `compiled`, where the build put it.
std::string builtFile(const char* name, const char* compiled);
// `path`, or a copy of it in a folder every account may enter when some folder above it keeps
// other accounts out (a clone in a private folder): what a test runs as another user.
std::string reachableByAll(const std::string& path);

inline Text T(const std::string& s) {
  return fromUtf8(s);
}

// Byte-holding text from bytes and back, through the code page.
Text bytes(std::string_view b);
std::string ansi(const Text& t);

// Runs `check` at every vector level the processor offers, the plain loops last, and then goes
// back to the processor's own level.
template <class Check>
void atEveryVectorLevel(Check&& check) {
  using platform::VectorLevel;
  for (VectorLevel level : {VectorLevel::Avx512, VectorLevel::Avx2, VectorLevel::Plain}) {
    platform::useVectorLevel(level);
    if (platform::vectorLevel() != level) continue;
    SCOPED_TRACE("vector level " + std::to_string(int(level)));
    check();
  }
  platform::useVectorLevel(VectorLevel::Avx512);
}

// The number of the Failure that `call` throws, 0 when it throws none.
template <class Call>
int32_t failureOf(Call&& call) {
  try {
    call();
  } catch (const Failure& e) {
    return e.number();
  }
  return 0;
}

// Stands in for a call by name for the scope of the object.
class CallStandIn {
 public:
  CallStandIn(TextView name, CallFn fn)
      : name_(name), old_(CallTable::instance().replace(name, fn)) {}
  ~CallStandIn() { CallTable::instance().replace(name_, old_); }

 private:
  Text name_;
  CallFn old_;
};

// A dialog backend of a host with events of its own: `onEvents` runs in each pass of events of the
// library's waits.
template <class Backend>
class WithHostEvents : public Backend {
 public:
  std::function<void()> onEvents;
  void processEvents() override {
    if (onEvents) onEvents();
  }
};

// The library loaded as if it lay in <root>/dlls/Main Functions DLL, dialogs scripted.
class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  TempDir root;
  std::shared_ptr<platform::ScriptedDialogs> dialogs;
  std::unique_ptr<clsKVN> kvn;
};

}  // namespace zrk::test
