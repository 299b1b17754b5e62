// Where the installed library and tool keep their files: the root order, seen from outside as a
// program linked with the library and as the tool started from PATH see it.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "support/TestSupport.h"

namespace zrk::test {
namespace {

namespace fs = std::filesystem;

// Runs a shell command line and gives its standard output.
std::string output(const std::string& command) {
  FILE* p = ::popen(command.c_str(), "r");
  if (!p) return "popen failed";
  std::string out;
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
    out.append(buf, n);
  ::pclose(p);
  return out;
}

// Puts `from` at `to` as a hard link where the file system allows one, else as a copy: the
// library and the tool are tens of megabytes, and each case needs its own place for them.
void place(const std::string& from, const std::string& to) {
  std::error_code linked;
  fs::create_hard_link(from, to, linked);
  if (linked) fs::copy_file(from, to);
}

std::string quoted(const std::string& s) {
  return "'" + s + "'";
}

int modeOf(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

// Every entry below `dir`, for "nothing was written here".
std::vector<std::string> entriesBelow(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::recursive_directory_iterator(dir))
    names.push_back(e.path().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The library copied into a folder, with the probe beside it; the probe's environment is only
// what the case gives.
TEST(RootOrder, LinkedProgramTakesTheFirstRootThatApplies) {
  TempDir t;
  std::string real = fs::canonical(t.path()).string();
  struct Case {
    const char* libraryIn;  // where the library and the probe lie, below t
    const char* env;        // the probe's whole environment, "T" standing for t
    const char* chosen;     // the root the probe chooses with SetRootPath, "" for none
    const char* root;       // the root expected, below t
  } cases[] = {
      {"lib", "ZRKKVL_ROOT=T/env HOME=T/home", "T/host", "env"},
      {"dlls/Main Functions DLL", "ZRKKVL_ROOT=T/env HOME=T/home", "", "env"},
      {"lib", "ZRKKVL_ROOT= HOME=T/home", "T/host", "host"},
      {"dlls/Main Functions DLL", "HOME=T/home", "T/host", "host"},
      {"dlls/Main Functions DLL", "HOME=T/home", "", ""},
      {"a/dlls/Main Functions DLL/b/dlls/Main Functions DLL", "HOME=T/home", "", "a/b"},
      {"DLLS/Main Functions DLL", "HOME=T/home", "", "home/.local/share/zrkkvl"},
      {"dlls/Main Functions DLL/sub", "HOME=T/home", "", "home/.local/share/zrkkvl"},
      {"lib", "HOME=T/home XDG_DATA_HOME=T/xdg", "", "xdg/zrkkvl"},
      {"lib", "HOME=T/home XDG_DATA_HOME=relative", "", "home/.local/share/zrkkvl"},
      {"lib", "HOME=/", "", "/.local/share/zrkkvl"},  // named, but never made in "/"
  };
  const bool rootHadDotLocal = exists("/.local");
  auto expand = [&](std::string s) {
    for (size_t at; (at = s.find("T/")) != std::string::npos;)
      s.replace(at, 1, real);
    return s;
  };
  for (const Case& c : cases) {
    std::string dir = t / c.libraryIn;
    if (!fs::exists(dir + "/probe")) {
      makeDir(dir);
      place(ZRK_LIBRARY_FILE, dir + "/libzrkKVL.so.1");
      place(ZRK_PROBE_FILE, dir + "/probe");
    }
    std::string command = "env -i " + expand(c.env) + " " + quoted(dir + "/probe");
    if (*c.chosen) command += " " + quoted(expand(c.chosen));
    std::string root = c.root[0] == '/' ? c.root : *c.root ? real + "/" + c.root : real;
    EXPECT_EQ(output(command), root + "\n") << c.libraryIn << " | " << c.env << " | " << c.chosen;
  }
  // The per-user root and the folder the library acts as lying in, made private.
  EXPECT_EQ(modeOf(t / "home/.local/share/zrkkvl"), 0700);
  EXPECT_EQ(modeOf(t / "home/.local/share/zrkkvl/dlls/Main Functions DLL"), 0700);
  EXPECT_EQ(modeOf(t / "xdg/zrkkvl"), 0700);
  if (!rootHadDotLocal) {
    EXPECT_FALSE(exists("/.local")) << "nothing made in /";
  }
  EXPECT_FALSE(exists(t / "env")) << "a chosen root is not made";
  EXPECT_FALSE(exists(t / "host"));
}

// The tool started from PATH finds its own file through /proc/self/exe, not argv[0]; --root
// comes before ZRKKVL_ROOT. `report log` writes a record and prints the error log's path.
TEST(RootOrder, ToolFromPathTakesTheFirstRootThatApplies) {
  TempDir t;
  std::string real = fs::canonical(t.path()).string();
  for (const char* bin : {"bin", "tree/dlls/Main Functions DLL"}) {
    makeDir(t / bin);
    place(ZRK_TOOL_FILE, t / bin + "/zrkkvl");
  }
  makeDir(t / "work");
  makeDir(t / "r");
  makeDir(t / "e");
  struct Case {
    const char* path;  // PATH, below t
    const char* env;
    const char* args;
    const char* log;  // the error log expected, below t
  } cases[] = {
      {"bin", "HOME=T/home", "", "home/.local/share/zrkkvl/ErrorLog.txt"},
      {"bin", "HOME=T/home ZRKKVL_ROOT=T/e", "", "e/ErrorLog.txt"},
      {"bin", "HOME=T/home ZRKKVL_ROOT=T/e", "--root T/r", "r/ErrorLog.txt"},
      {"tree/dlls/Main Functions DLL", "HOME=T/home", "", "tree/ErrorLog.txt"},
  };
  auto expand = [&](std::string s) {
    for (size_t at; (at = s.find("T/")) != std::string::npos;)
      s.replace(at, 1, real);
    return s;
  };
  for (const Case& c : cases) {
    std::string command = "cd " + quoted(t / "work") + " && env -i " +
                          quoted("PATH=" + real + "/" + c.path) + " " + expand(c.env) + " zrkkvl " +
                          expand(c.args) + " report log 2>&1";
    std::string log = real + "/" + c.log;
    EXPECT_EQ(output(command), log + "\n") << c.path << " | " << c.env << " | " << c.args;
    EXPECT_TRUE(exists(log)) << log;
  }
  EXPECT_TRUE(entriesBelow(t / "work").empty()) << "nothing in the working folder";
  EXPECT_EQ(entriesBelow(t / "bin"), std::vector<std::string>{t / "bin/zrkkvl"})
      << "nothing beside the program";
}

}  // namespace
}  // namespace zrk::test
