// The profile form as the main program fills it, and the section a save of it writes: shared by
// the profile tests and the profile-save benchmark.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <zrkKVL/FormObject.h>
#include <zrkKVL/Text.h>

namespace zrk::test {

// A profile form as the main program fills it; keysOf gives its section as saved.
struct Profile {
  Profile(Text n, Text o = Text()) : name(std::move(n)), old(std::move(o)) {}
  Text name, old;
  Text path = u"C:\\Games\\hl.exe";
  std::vector<Text> urls{u"http://a/u", u"http://b/u"};
  int32_t listIndex = 2;
};

inline std::shared_ptr<FormObject> formOf(const Profile& p) {
  auto form = std::make_shared<FormObject>();
  form->set(u"txtName", u"Text", p.name)
      .set(u"txtOld", u"Text", p.old)
      .set(u"txtPath", u"Text", p.path)
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
  return "[" + toUtf8(p.name) + "]\r\npath=" + toUtf8(p.path) + "\r\nupload=" + upload +
         "\r\ngame=hl\r\nhost=127.0.0.1\r\nnll=" + std::to_string(p.listIndex) +
         "\r\nacs=1\r\nara=0\r\nrbm=2\r\nasp=1\r\napt=30\r\napn=5\r\nsss=PsychoStats\r\nport="
         "27015\r\n";
}

}  // namespace zrk::test
