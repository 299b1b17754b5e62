// Shared by the profile tests: a library whose failure reports are recorded instead of logged.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include <zrkKVL/FormObject.h>

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

// A profile form as the main program fills it; keysOf gives its section as saved.
struct Profile {
  Profile(Text n, Text o = Text()) : name(std::move(n)), old(std::move(o)) {}
  Text name, old;
  std::vector<Text> urls{u"http://a/u", u"http://b/u"};
  int32_t listIndex = 2;
};

inline std::shared_ptr<FormObject> formOf(const Profile& p) {
  auto form = std::make_shared<FormObject>();
  form->set(u"txtName", u"Text", p.name)
      .set(u"txtOld", u"Text", p.old)
      .set(u"txtPath", u"Text", Text(u"C:\\Games\\hl.exe"))
      .set(u"cboGames", u"Text", Text(u"Half-Life"))
      .set(u"cboGames", u"ToolTipText", Text(u"hl"))
      .set(u"txtSrHost", u"Text", Text(u"127.0.0.1"))
      .set(u"cboLL", u"ListIndex", p.listIndex)
      .set(u"chkAcs", u"Value", int16_t(1))
      .set(u"chkAra", u"Value", int16_t(0))
      .set(u"chkRbm", u"Value", int16_t(2))
      .set(u"chkAntiStatsPad", u"Value", int16_t(1))
      .set(u"txtPadtime", u"Text", Text(u"30"))
      .set(u"txtPadnum", u"Text", Text(u"5"))
      .set(u"cboStats", u"Text", Text(u"PsychoStats"))
      .set(u"txtGamePort", u"Text", Text(u"27015"));
  form->control(u"lstUrls").setList(p.urls);
  return form;
}

inline std::string keysOf(const Profile& p, const std::string& upload = "http://a/u|http://b/u") {
  return "[" + toUtf8(p.name) + "]\r\npath=C:\\Games\\hl.exe\r\nupload=" + upload +
         "\r\ngame=hl\r\nhost=127.0.0.1\r\nnll=" + std::to_string(p.listIndex) +
         "\r\nacs=1\r\nara=0\r\nrbm=2\r\nasp=1\r\napt=30\r\napn=5\r\nsss=PsychoStats\r\nport="
         "27015\r\n";
}

}  // namespace zrk::test
