// Shared by the hardening tests: a library whose failure reports are counted by number, the
// faults to inject, and the entries of a folder.
#pragma once

#include <dirent.h>

#include <cerrno>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/files/SysCalls.h"
#include "support/TestSupport.h"

namespace zrk::test {

// The numbers of the failures that reached the error log, in order.
inline std::vector<int32_t>& reportedNumbers() {
  static std::vector<int32_t> all;
  return all;
}

inline Variant recordNumber(clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) {
  reportedNumbers().push_back(failureFromObject(a.at(2)).Number);
  return Variant();
}

// A write fault on the paths that hold a part, with the errno it simulates.
struct WriteFault {
  const char* name;
  void (*arm)(const std::string& pathPart);
  int error;
};

inline const std::vector<WriteFault>& writeFaults() {
  static const std::vector<WriteFault> all = {
      {"disk full", [](const std::string& p) { platform::faults::diskFull(p); }, ENOSPC},
      {"write refused", [](const std::string& p) { platform::faults::writeRefused(p); }, EACCES},
      {"read-only folder", platform::faults::readOnlyFolder, EROFS},
  };
  return all;
}

// The number a failure of `error` is reported with.
inline int32_t numberOf(int error) {
  return failureFromErrno(error).info().Number;
}

class HardeningTest : public LibraryTest {
 protected:
  void SetUp() override {
    reportedNumbers().clear();
    LibraryTest::SetUp();
  }
  platform::faults::Scope faults_;
  CallStandIn log_{u"LogError", recordNumber};
};

}  // namespace zrk::test
