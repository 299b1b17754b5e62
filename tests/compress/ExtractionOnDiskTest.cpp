// ExtractArchive on a real disk: members in place as the walk goes (also for a process that
// dies at the damaged-archive question or at any moment), extractions into one folder at once,
// and members that bear names the library once used for its own files.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <set>

#include <zrkKVL/DialogBackend.h>
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

// Elements "N|member-I.txt" + a content of its own, and an element without a bar at `damagedAt`.
Variant elements(int count, int damagedAt = -1, size_t size = 100) {
  std::vector<Text> all;
  for (int i = 0; i < count; ++i) {
    if (i == damagedAt) {
      all.push_back(u"no bar here");
      continue;
    }
    Text name = u"member-" + decimal(i) + u".txt";
    all.push_back(decimal(int64_t(name.size())) + u"|" + name +
                  Text(size, char16_t(u'a' + i % 26)));
  }
  return Variant::textArray(std::move(all));
}

std::string contentOf(int i, size_t size = 100) {
  return std::string(size, char('a' + i % 26)) + "\r\n";
}

// A host that dies while the question is open.
class DiesAtTheQuestion : public platform::DialogBackend {
 public:
  int32_t messageBox(TextView, int32_t, TextView) override {
    ::kill(::getpid(), SIGKILL);
    return 0;
  }
};

class ExtractionOnDisk : public ReportingTest {
 protected:
  void SetUp() override {
    ReportingTest::SetUp();
    makeDir(root / "out");
  }
  // Runs `body` in a child process and gives its wait status.
  template <class Body>
  int inChild(Body&& body) {
    pid_t child = ::fork();
    if (child == 0) {
      body();
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
  }
};

// Every member before the first damaged record is in place, whole, while the question is open:
// a host killed then keeps them, and no temporary of any kind is left.
TEST_F(ExtractionOnDisk, AHostThatDiesAtTheQuestionKeepsWhatCameBefore) {
  for (int before : {1, 5, 200}) {
    std::string arc = root / ("a" + std::to_string(before) + ".zrk");
    ASSERT_TRUE(kvn->MakeArchive(elements(before + 3, before), T(arc)));
    std::string out = root / ("out" + std::to_string(before));
    makeDir(out);
    int status = inChild([&] {
      platform::setDialogBackend(std::make_shared<DiesAtTheQuestion>());
      kvn->ExtractArchive(T(arc), T(out));
    });
    ASSERT_TRUE(WIFSIGNALED(status)) << before;
    std::set<std::string> expected;
    for (int i = 0; i < before; ++i) {
      expected.insert("member-" + std::to_string(i) + ".txt");
      EXPECT_EQ(readBytes(out + "/member-" + std::to_string(i) + ".txt"), contentOf(i));
    }
    EXPECT_EQ(entriesOf(out), expected) << before;
  }
}

// Killed at any moment, an extraction leaves each member absent or whole, and nothing else but
// at most one random temporary of the library's own.
TEST_F(ExtractionOnDisk, AKilledExtractionLeavesWholeMembers) {
  const size_t size = 20000;
  std::string arc = root / "big.zrk";
  ASSERT_TRUE(kvn->MakeArchive(elements(600, -1, size), T(arc)));
  std::mt19937 random(5);
  for (int round = 0; round < 12; ++round) {
    std::string out = root / ("k" + std::to_string(round));
    makeDir(out);
    pid_t child = ::fork();
    if (child == 0) {
      kvn->ExtractArchive(T(arc), T(out));
      ::_exit(0);
    }
    ::usleep(useconds_t(random() % 60000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    int temporaries = 0;
    for (const std::string& e : entriesOf(out)) {
      if (e.rfind(".zrk-tmp-", 0) == 0) {
        ++temporaries;
        continue;
      }
      ASSERT_EQ(e.rfind("member-", 0), 0u) << e;
      int i = std::stoi(e.substr(7));
      EXPECT_TRUE(readBytes(out + "/" + e) == contentOf(i, size)) << "round " << round << " " << e;
    }
    EXPECT_LE(temporaries, 1) << "round " << round;
  }
}

// Extractions of one archive into one folder at once, in processes of their own, each report
// nothing and leave every member whole.
TEST_F(ExtractionOnDisk, ExtractionsIntoOneFolderAtOnceReportNothing) {
  std::string arc = root / "c.zrk";
  ASSERT_TRUE(kvn->MakeArchive(elements(300), T(arc)));
  std::vector<pid_t> children;
  for (int k = 0; k < 4; ++k) {
    pid_t child = ::fork();
    if (child == 0) {
      bool ok = true;
      for (int round = 0; round < 5; ++round)
        ok = kvn->ExtractArchive(T(arc), root.text("out")) && ok;
      ::_exit(ok && failureCount() == 0 && dialogs->shown().empty() ? 0 : 1);
    }
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a false report";
  }
  std::set<std::string> expected;
  for (int i = 0; i < 300; ++i) {
    expected.insert("member-" + std::to_string(i) + ".txt");
    EXPECT_EQ(readBytes(root / ("out/member-" + std::to_string(i) + ".txt")), contentOf(i));
  }
  EXPECT_EQ(entriesOf(root / "out"), expected);
}

// Under a low open-file limit the members wait in smaller batches: every one comes out whole.
TEST_F(ExtractionOnDisk, ALowOpenFileLimitStillExtractsEveryMember) {
  std::string arc = root / "l.zrk";
  ASSERT_TRUE(kvn->MakeArchive(elements(300), T(arc)));
  for (rlim_t limit : {rlim_t(40), rlim_t(200)}) {
    std::string out = root / ("l" + std::to_string(limit));
    makeDir(out);
    int status = inChild([&] {
      struct rlimit low = {limit, limit};
      bool ok = ::setrlimit(RLIMIT_NOFILE, &low) == 0 && kvn->ExtractArchive(T(arc), T(out));
      ::_exit(ok && failureCount() == 0 ? 0 : 1);
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << limit;
    std::set<std::string> expected;
    for (int i = 0; i < 300; ++i) {
      expected.insert("member-" + std::to_string(i) + ".txt");
      EXPECT_EQ(readBytes(out + "/member-" + std::to_string(i) + ".txt"), contentOf(i)) << limit;
    }
    EXPECT_EQ(entriesOf(out), expected) << limit;
  }
}

// Names the library once gave its temporary files, and the form of today's, are members like
// any other; user files of such names in the folder stay.
TEST_F(ExtractionOnDisk, MembersNamedLikeTemporariesAreMembers) {
  writeBytes(root / "out/.~zrk.c.txt", "a user's file");
  Variant members = Variant::textArray({u"11|.~zrk.b.txtfirst", u"5|b.txtsecond",
                                        u"25|.zrk-tmp-0123456789abcdefthird", u"6|.~zrk.fourth"});
  ASSERT_TRUE(kvn->MakeArchive(members, root.text("t.zrk")));
  ASSERT_TRUE(kvn->ExtractArchive(root.text("t.zrk"), root.text("out")));
  EXPECT_EQ(readBytes(root / "out/.~zrk.b.txt"), "first\r\n");
  EXPECT_EQ(readBytes(root / "out/b.txt"), "second\r\n");
  EXPECT_EQ(readBytes(root / "out/.zrk-tmp-0123456789abcdef"), "third\r\n");
  EXPECT_EQ(readBytes(root / "out/.~zrk."), "fourth\r\n");
  EXPECT_EQ(readBytes(root / "out/.~zrk.c.txt"), "a user's file");
  EXPECT_EQ(entriesOf(root / "out"), (std::set<std::string>{".~zrk.", ".~zrk.b.txt", ".~zrk.c.txt",
                                                            ".zrk-tmp-0123456789abcdef", "b.txt"}));
  EXPECT_EQ(failureCount(), 0u);
}

// A NUL in the output folder's name is a bad name: reported for each member, nothing written.
TEST_F(ExtractionOnDisk, ANulInTheFolderNameWritesNothing) {
  ASSERT_TRUE(kvn->MakeArchive(elements(2), root.text("n.zrk")));
  Text folder = root.text("out") + Text(u"\0x", 2);
  EXPECT_TRUE(kvn->ExtractArchive(root.text("n.zrk"), folder));
  ASSERT_EQ(failureCount(), 2u);
  for (const LoggedFailure& f : loggedFailures())
    EXPECT_EQ(f.failure.Number, err::BadFileNameOrNumber);
  EXPECT_TRUE(entriesOf(root / "out").empty());
}

}  // namespace
}  // namespace zrk::test
