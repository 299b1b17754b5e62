// Many failing calls in a row leave the open descriptors and the memory where they were.
#include <dirent.h>

#include <fstream>

#include "support/HardeningSupport.h"

namespace zrk::test {
namespace {

using namespace platform;

size_t openDescriptors() {
  size_t n = 0;
  DIR* d = ::opendir("/proc/self/fd");
  while (dirent* e = ::readdir(d))
    n += e->d_name[0] != '.';
  ::closedir(d);
  return n - 1;  // the listing's own descriptor
}

long residentKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return -1;
}

// Counts dialogs instead of keeping them, and declines every question.
class CountingDialogs : public DialogBackend {
 public:
  int32_t messageBox(TextView, int32_t buttons, TextView) override {
    ++shown;
    return buttons == mb::YesNo ? mb::No : mb::OK;
  }
  size_t shown = 0;
};

class Resources : public HardeningTest {
 protected:
  void SetUp() override {
    HardeningTest::SetUp();
    setDialogBackend(counting);
    writeBytes(root / "bad.arc",
               "ZRKArch\x10"
               "212\x10"
               "garbage\r\n");
    writeBytes(root / "short.bini", "12345");
    writeBytes(root / "w.txt", "old\r\n");
    makeDir(root / "out");
  }
  // One round of failing calls: missing files, bad archives and packed files, refused writes.
  void failingRound() {
    kvn->ReadFile(root.text("missing.txt"));
    kvn->DecompressBINI(root.text("short.bini"));
    kvn->CompressBINI(root.text("missing.ini"));
    try {
      kvn->ExtractArchive(root.text("bad.arc"), root.text("out"));
    } catch (const Failure&) {
    }
    try {
      kvn->ExtractArchive(root.text("missing.arc"), root.text("out"));
    } catch (const Failure&) {
    }
    faults::writeRefused(root / "w.txt");
    kvn->WriteFile(root.text("w.txt"), Variant(Text(u"new")));
    faults::clear();
  }
  std::shared_ptr<CountingDialogs> counting = std::make_shared<CountingDialogs>();
};

TEST_F(Resources, TenThousandFailingCallsLeaveDescriptorsAndMemoryFlat) {
  constexpr int kCallsPerRound = 6;
  for (int i = 0; i < 50; ++i)  // let the caches and the allocator settle
    failingRound();
  reportedNumbers().clear();
  const size_t fds = openDescriptors();
  const long rss = residentKiB();
  const size_t dialogsBefore = counting->shown;
  for (int i = 0; i < 10000 / kCallsPerRound + 1; ++i) {
    failingRound();
    if (i % 200 == 0) reportedNumbers().clear();
  }
  EXPECT_GE(counting->shown - dialogsBefore, size_t(10000 / kCallsPerRound))
      << "the calls did fail and report";
  EXPECT_EQ(openDescriptors(), fds);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  (void)rss;
  GTEST_SKIP() << "a sanitizer's allocator keeps freed memory; its leak check covers this";
#else
  EXPECT_LT(residentKiB() - rss, 8 * 1024) << "KiB grown over 10,000 failing calls";
#endif
}

}  // namespace
}  // namespace zrk::test
