// The library in a throwaway root with a fixed clock, a fixed description and a process list
// chosen by the test.
#pragma once

#include <ctime>

#include "core/mdlKVN.h"
#include "platform/system/Clock.h"
#include "support/TestSupport.h"

namespace zrk::test {

// What the GetRunningProcesses stand-in gives.
inline Variant gProcesses;
inline int gProcessCalls = 0;

inline Variant fixedProcesses(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  ++gProcessCalls;
  return gProcesses;
}

inline std::tm fixedTime() {
  std::tm t{};
  t.tm_year = 2026 - 1900;
  t.tm_mon = 2;
  t.tm_mday = 4;
  t.tm_hour = 5;
  t.tm_min = 6;
  t.tm_sec = 7;
  return t;
}

class DiagnosticsTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    platform::setLocalClock(fixedTime);
    mdlKVN::state().SystemInfoStr = u"Testix[zorv]6.1[zorv]23[zorv]0.0";
    mdlKVN::state().systemInfoDue = false;
    gProcesses = Variant::textArray({u"/usr/sbin/initd", u"/usr/bin/bashx"});
    gProcessCalls = 0;
  }
  void TearDown() override {
    platform::setLocalClock({});
    LibraryTest::TearDown();
  }

  std::string errorLog() const { return readBytes(root / "ErrorLog.txt"); }

  CallStandIn processes{u"GetRunningProcesses", fixedProcesses};
};

}  // namespace zrk::test
