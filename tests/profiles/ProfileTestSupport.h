// Shared by the profile tests: a library whose failure reports are recorded instead of logged.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include <zrkKVL/FormObject.h>

#include "support/ProfileForm.h"
#include "support/TestSupport.h"

namespace zrk::test {

struct LoggedFailure {
  Text function;
  int32_t number;
  int32_t line;
};

// Every failure that reached the error log during the test.
inline std::vector<LoggedFailure>& loggedFailures() {
  static std::vector<LoggedFailure> all;
  return all;
}

inline Variant recordFailure(clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) {
  loggedFailures().push_back(
      {a.at(1).toText(), failureFromObject(a.at(2)).Number, a.at(3).toLong()});
  return Variant();
}

class ProfileLibraryTest : public LibraryTest {
 protected:
  void SetUp() override {
    loggedFailures().clear();
    LibraryTest::SetUp();
  }
  // The failures reported so far as "Function:number@line", in order.
  std::vector<std::string> failures() const {
    std::vector<std::string> out;
    for (const auto& f : loggedFailures()) {
      out.push_back(toUtf8(f.function) + ":" + std::to_string(f.number) + "@" +
                    std::to_string(f.line));
    }
    return out;
  }
  static void makeReadOnly(const std::string& path) { ::chmod(path.c_str(), 0444); }

  CallStandIn log_{u"LogError", recordFailure};
};

using Failures = std::vector<std::string>;

}  // namespace zrk::test
