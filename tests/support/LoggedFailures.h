// A fixture whose LogError stand-in records every reported failure, so tests can check the words,
// the method text and the line that reach the error log.
#pragma once

#include <vector>

#include "support/TestSupport.h"

namespace zrk::test {

struct LoggedFailure {
  Text func;
  FailureInfo failure;
  int32_t line = -1;
};

inline std::vector<LoggedFailure>& loggedFailures() {
  static std::vector<LoggedFailure> all;
  return all;
}

inline Variant recordLogError(clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) {
  loggedFailures().push_back({a.at(1).toText(), failureFromObject(a.at(2)), a.at(3).toLong()});
  return Variant();
}

class ReportingTest : public LibraryTest {
 protected:
  void SetUp() override {
    loggedFailures().clear();
    LibraryTest::SetUp();
  }
  // The one failure reported since the test began (fails the test unless there is exactly one).
  LoggedFailure onlyFailure() const {
    EXPECT_EQ(loggedFailures().size(), 1u);
    return loggedFailures().empty() ? LoggedFailure{} : loggedFailures().front();
  }
  size_t failureCount() const { return loggedFailures().size(); }

  CallStandIn logError_{u"LogError", recordLogError};
};

inline std::string bytesOf(std::initializer_list<int> values) {
  std::string s;
  for (int v : values)
    s += static_cast<char>(v);
  return s;
}

}  // namespace zrk::test
