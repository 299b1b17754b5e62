// The operating system's name, the program files folder and the platform id.
#include "diagnostics/PlatformQueries.h"
#include "platform/system/SystemInfo.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

class PlatformQueriesTest : public LibraryTest {
 protected:
  void TearDown() override {
    platform::setOsReleaseFile(std::nullopt);
    platform::setKernelReleaseOverride(std::nullopt);
    platform::setPlatformIdOverride(std::nullopt);
    platform::setShellFolderSource(nullptr);
    LibraryTest::TearDown();
  }
  TempDir dir;
};

TEST_F(PlatformQueriesTest, ProductNameIsSearchedInLowerCaseBeforeTheFirstBar) {
  struct Case {
    const char* osRelease;  // nullptr: no file
    bool vista, windows7;
  } cases[] = {
      {"PRETTY_NAME=\"Microsoft Windows VISTA Home\"\n", true, false},
      {"NAME=x\nPRETTY_NAME='  Microsoft Windows 7 Professional  '\n", false, true},
      {"PRETTY_NAME=\"windows 7|vista\"\n", false, true},  // only the first part counts
      {"PRETTY_NAME=\"Vista of Windows 7\"\n", true, true},
      {"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", false, false},
      {"PRETTY_NAME=\"Windows 70\"\n", false, true},  // no version numbers compared
      {"NAME=\"Vista Linux\"\n", true, false},        // no PRETTY_NAME: NAME stands in
      {"", false, false},
      {nullptr, false, false},
  };
  for (const Case& c : cases) {
    std::string file = dir / "os-release";
    std::remove(file.c_str());
    if (c.osRelease) writeBytes(file, c.osRelease);
    platform::setOsReleaseFile(file);
    EXPECT_EQ(kvn->IsVista(), c.vista) << (c.osRelease ? c.osRelease : "none");
    EXPECT_EQ(kvn->IsWindows7(), c.windows7) << (c.osRelease ? c.osRelease : "none");
  }
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(PlatformQueriesTest, OperatingSystemRecordFromOsReleaseAndKernel) {
  writeBytes(dir / "os-release", "ID=debian\nPRETTY_NAME=\"Debian \\\"test\\\"\"\n");
  platform::setOsReleaseFile(dir / "os-release");
  platform::setKernelReleaseOverride("6.1.23-17-amd64");
  auto os = platform::queryOperatingSystem();
  ASSERT_TRUE(os);
  EXPECT_EQ(os->Name, u"Debian \"test\"|/");
  EXPECT_EQ(os->Version, u"6.1.23-17-amd64");  // the whole release
}

TEST_F(PlatformQueriesTest, ProgramFilesFolder) {
  EXPECT_EQ(kvn->GetProgramFilesFolder(0), u"/opt");
  std::vector<std::pair<int32_t, int32_t>> asked;
  std::optional<std::string> answer;
  platform::setShellFolderSource([&](int32_t hwnd, int32_t folder) {
    asked.emplace_back(hwnd, folder);
    return answer;
  });
  struct Case {
    std::optional<std::string> path;
    Text expected;
  } cases[] = {
      {"/srv/programs", u"/srv/programs"},
      {"/srv/pr\xC3\xB6gramme", u"/srv/pr\u00F6gramme"},
      {std::nullopt, u""},           // the folder is unknown
      {std::string(260, 'p'), u""},  // too long for the path buffer
      {std::string(259, 'p'), Text(259, u'p')},
  };
  for (int32_t hwnd : {0, 4242}) {
    for (const Case& c : cases) {
      answer = c.path;
      asked.clear();
      EXPECT_EQ(kvn->GetProgramFilesFolder(hwnd), c.expected);
      ASSERT_EQ(asked.size(), 1u);
      EXPECT_EQ(asked[0], std::make_pair(hwnd, 38));
    }
  }
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(PlatformQueriesTest, VersionRecordAndPlatformId) {
  platform::setKernelReleaseOverride("5.10.3-foo");
  platform::OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 148;
  ASSERT_EQ(platform::GetVersionExA(info), 1);
  EXPECT_EQ(info.dwMajorVersion, 5u);
  EXPECT_EQ(info.dwMinorVersion, 10u);
  EXPECT_EQ(info.dwBuildNumber, 3u);
  EXPECT_EQ(info.dwPlatformId, 2u);
  platform::OSVERSIONINFOA wrong{};
  wrong.dwOSVersionInfoSize = 156;
  EXPECT_EQ(platform::GetVersionExA(wrong), 0);
  EXPECT_EQ(wrong.dwPlatformId, 0u);

  EXPECT_EQ(diagnostics::GetPlatformId(), 2);
  platform::setPlatformIdOverride(1);
  EXPECT_EQ(diagnostics::GetPlatformId(), 1);
}

}  // namespace
}  // namespace zrk::test
