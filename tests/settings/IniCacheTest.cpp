// Repeated lookups come from the thread's cache, and every change to the file is seen: ours,
// another process's, one through another path, a rename over it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "platform/ini/ProfileCache.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using platform::ProfileCache;

size_t cachedFiles() {
  return ProfileCache::forThread().entryCount();
}

// Runs `fn` in a child process and waits for it.
void inChild(const std::function<bool()>& fn) {
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) ::_exit(fn() ? 0 : 1);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Overwrites the value "old" of a file holding kOld with "new" in place: same size.
bool overwriteInPlace(const std::string& path, bool keepTimes) {
  int fd = ::open(path.c_str(), O_WRONLY);
  struct stat before;
  bool ok = fd >= 0 && ::fstat(fd, &before) == 0 && ::pwrite(fd, "new", 3, 7) == 3;
  if (ok && keepTimes) {
    struct timespec times[2] = {before.st_atim, before.st_mtim};
    ok = ::futimens(fd, times) == 0;
  }
  if (fd >= 0) ::close(fd);
  return ok;
}

class IniCache : public LibraryTest {
 protected:
  const std::string kOld = "[S]\r\nk=old\r\n";
};

TEST_F(IniCache, EveryChangeIsSeen) {
  struct Case {
    const char* name;
    bool linked;        // the file has a second name, "<name>.link"
    bool dropsAtWrite;  // our own write: the entry goes at once
    std::function<void(const std::string& path, const Text& file)> change;
  } cases[] = {
      {"our write", false, true,
       [&](const std::string&, const Text& f) { kvn->WriteIniKey(u"S", u"k", u"new", f); }},
      {"our write, in place for a linked file", true, true,
       [&](const std::string&, const Text& f) { kvn->WriteIniKey(u"S", u"k", u"new", f); }},
      {"another process writes in place", false, false,
       [](const std::string& p, const Text&) {
         inChild([&] { return overwriteInPlace(p, false); });
       }},
      {"another process writes in place and puts the times back", false, false,
       [](const std::string& p, const Text&) {
         inChild([&] { return overwriteInPlace(p, true); });
       }},
      {"a write through another name", true, false,
       [](const std::string& p, const Text&) {
         ASSERT_TRUE(overwriteInPlace(p + ".link", false));
       }},
      {"a rename over the file", false, false,
       [](const std::string& p, const Text&) {
         writeBytes(p + ".tmp", "[S]\r\nk=new\r\n");
         ASSERT_EQ(::rename((p + ".tmp").c_str(), p.c_str()), 0);
       }},
      {"a rename over the file of one with the same times", false, false,
       [](const std::string& p, const Text&) {
         struct stat old;
         ASSERT_EQ(::stat(p.c_str(), &old), 0);
         writeBytes(p + ".tmp", "[S]\r\nk=new\r\n");
         struct timespec times[2] = {old.st_atim, old.st_mtim};
         ASSERT_EQ(::utimensat(AT_FDCWD, (p + ".tmp").c_str(), times, 0), 0);
         ASSERT_EQ(::rename((p + ".tmp").c_str(), p.c_str()), 0);
       }},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string name = "c" + std::to_string(n++) + ".ini";
    std::string path = root / name;
    Text file = root.text(name);
    writeBytes(path, kOld);
    if (c.linked) {
      ASSERT_EQ(::link(path.c_str(), (path + ".link").c_str()), 0);
    }
    waitTillStampsLieBehind(path);
    ProfileCache::forThread().clear();
    ASSERT_EQ(kvn->GetIniKey(u"S", u"k", file), u"old");
    ASSERT_EQ(kvn->GetIniKey(u"s", u"K", file), u"old");
    ASSERT_EQ(cachedFiles(), 1u) << "the file is kept";
    c.change(path, file);
    if (c.dropsAtWrite) {
      EXPECT_EQ(cachedFiles(), 0u);
    }
    EXPECT_EQ(readBytes(path), "[S]\r\nk=new\r\n");
    EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"new");
    EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"new");
  }
  EXPECT_TRUE(dialogs->shown().empty());
}

// A byte-order mark before the first head hides nothing, on the first read (the file searched as
// it stands) and on the later ones (the tables built over it).
TEST_F(IniCache, AByteOrderMarkHidesNoSectionFromEitherSearch) {
  std::string path = root / "bom.ini";
  writeBytes(path, "\xEF\xBB\xBF[S]\r\nk=first\r\n[T]\r\nk=second\r\n");
  Text file = root.text("bom.ini");
  waitTillStampsLieBehind(path);
  ProfileCache::forThread().clear();
  for (int lookup = 1; lookup <= 3; ++lookup) {
    SCOPED_TRACE("lookup " + std::to_string(lookup));
    EXPECT_EQ(kvn->GetIniKey(u"s", u"k", file), u"first");
    EXPECT_EQ(kvn->GetIniKey(u"T", u"k", file), u"second");
    Variant names = kvn->GetAllIniSections(file);
    ASSERT_TRUE(names.isArray());
    EXPECT_EQ(names.array().items.size(), 3u);
    EXPECT_EQ(names.array().at(0).toText(), u"S");
    Variant lines = kvn->GetIniSection(u"S", file);
    ASSERT_TRUE(lines.isArray());
    EXPECT_EQ(lines.array().at(0).toText(), u"k=first");
  }
  EXPECT_EQ(cachedFiles(), 1u) << "the later lookups came from the tables";
  kvn->WriteIniKey(u"S", u"k", u"new", file);
  EXPECT_EQ(readBytes(path), "\xEF\xBB\xBF[S]\r\nk=new\r\n[T]\r\nk=second\r\n");
}

TEST_F(IniCache, AFileStampedAfterTheReadBeganIsNotKept) {
  std::string path = root / "fresh.ini";
  writeBytes(path, kOld);
  struct timespec later[2];
  ::clock_gettime(CLOCK_REALTIME, &later[0]);
  later[0].tv_sec += 3600;
  later[1] = later[0];
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), later, 0), 0);
  Text file = root.text("fresh.ini");
  ProfileCache::forThread().clear();
  EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"old");
  EXPECT_EQ(cachedFiles(), 0u);
  ASSERT_TRUE(overwriteInPlace(path, true));  // same size, same modification time
  EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"new");
}

TEST_F(IniCache, EachThreadHasItsOwn) {
  std::string path = root / "t.ini";
  writeBytes(path, kOld);
  Text file = root.text("t.ini");
  waitTillStampsLieBehind(path);
  ProfileCache::forThread().clear();
  EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"old");
  ASSERT_EQ(cachedFiles(), 1u);

  std::promise<void> cached, written, unloaded;
  std::future<void> writtenDone = written.get_future();
  Text seenBefore, seenAfter;
  size_t keptBefore = 99, keptAfterRead = 0, keptAfterUnload = 99;
  std::thread other([&] {
    keptBefore = cachedFiles();
    seenBefore = kvn->GetIniKey(u"S", u"k", file);
    keptAfterRead = cachedFiles();
    cached.set_value();
    writtenDone.wait();
    seenAfter = kvn->GetIniKey(u"S", u"k", file);
    kvn->Unload();
    keptAfterUnload = cachedFiles();
    unloaded.set_value();
  });
  cached.get_future().wait();
  EXPECT_EQ(cachedFiles(), 1u) << "the other thread's read adds nothing here";
  kvn->WriteIniKey(u"S", u"k", u"new", file);
  EXPECT_EQ(cachedFiles(), 0u) << "our write drops our entry";
  waitTillStampsLieBehind(path);
  EXPECT_EQ(kvn->GetIniKey(u"S", u"k", file), u"new");
  EXPECT_EQ(cachedFiles(), 1u);
  written.set_value();
  unloaded.get_future().wait();
  other.join();
  EXPECT_EQ(keptBefore, 0u);
  EXPECT_EQ(seenBefore, u"old");
  EXPECT_EQ(keptAfterRead, 1u);
  EXPECT_EQ(seenAfter, u"new") << "our write, seen through the other thread's cache";
  EXPECT_EQ(keptAfterUnload, 0u) << "Unload frees the thread's cache";
  EXPECT_EQ(cachedFiles(), 1u) << "the other thread's Unload leaves this one's cache";
}

}  // namespace
}  // namespace zrk::test
