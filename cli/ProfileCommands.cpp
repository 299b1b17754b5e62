// profile: validating and saving a server profile whose form fields come as options.
#include <cstdint>
#include <map>
#include <memory>

#include <zrkKVL/FormObject.h>
#include "cli/Command.h"
#include "profiles/ProfileKeys.h"

namespace zrk::cli {
namespace {

// The positional arguments, and the options as name -> values.
struct Options {
  std::vector<std::string> positional;
  std::map<std::string, std::vector<std::string>> values;

  std::string get(const std::string& name, const std::string& fallback = "") const {
    auto it = values.find(name);
    return it == values.end() ? fallback : it->second.back();
  }
};

Options parse(const std::vector<std::string>& args) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.rfind("--", 0) != 0) {
      o.positional.push_back(a);
      continue;
    }
    if (i + 1 >= args.size()) throw UsageError{"missing value for " + a};
    o.values[a.substr(2)].push_back(args[++i]);
  }
  return o;
}

int16_t checkValue(const Options& o, const std::string& name) {
  std::string v = o.get(name, "0");
  if (v != "0" && v != "1" && v != "2") throw UsageError{"--" + name + " takes 0, 1 or 2"};
  return int16_t(v[0] - '0');
}

int32_t listIndex(const Options& o) {
  std::string v = o.get("ll", "-1");
  try {
    size_t used = 0;
    long n = std::stol(v, &used);
    if (used == v.size() && n >= -1 && n <= INT32_MAX) return int32_t(n);
  } catch (const std::exception&) {
  }
  throw UsageError{"--ll takes a list index (-1 for none)"};
}

// The form as the main program would hold it, filled from the options.
std::shared_ptr<FormObject> formFrom(const Options& o) {
  auto text = [&](const char* name, const char* fallback = "") {
    return Variant(fromUtf8(o.get(name, fallback)));
  };
  auto form = std::make_shared<FormObject>();
  std::string game = o.get("game", "Please select a Game");
  form->set(u"txtName", u"Text", text("name"))
      .set(u"txtOld", u"Text", text("old"))
      .set(u"txtPath", u"Text", text("path"))
      .set(u"cboGames", u"Text", Variant(fromUtf8(o.get("game-text", game))))
      .set(u"cboGames", u"ToolTipText", text("game"))
      .set(u"cboStats", u"Text", text("stats", "Please select a Stats System"))
      .set(u"txtSrHost", u"Text", text("host"))
      .set(u"txtGamePort", u"Text", text("port"))
      .set(u"cboLL", u"ListIndex", Variant(listIndex(o)))
      .set(u"chkAcs", u"Value", checkValue(o, "acs"))
      .set(u"chkAra", u"Value", checkValue(o, "ara"))
      .set(u"chkRbm", u"Value", checkValue(o, "rbm"))
      .set(u"chkAntiStatsPad", u"Value", checkValue(o, "asp"))
      .set(u"txtPadtime", u"Text", text("padtime"))
      .set(u"txtPadnum", u"Text", text("padnum"));
  std::vector<Text> urls;
  auto it = o.values.find("url");
  if (it != o.values.end()) {
    for (const auto& u : it->second)
      urls.push_back(fromUtf8(u));
  }
  form->control(u"lstUrls").setList(std::move(urls));
  return form;
}

const std::string& positional(const Options& o, size_t i, const char* what) {
  if (i >= o.positional.size()) throw UsageError{std::string("missing argument: ") + what};
  return o.positional[i];
}

int validate(Context& c) {
  Options o = parse(c.args);
  auto form = formFrom(o);
  Text message = c.kvn.validateProfile(*form, fromUtf8(positional(o, 0, "FILE")));
  printLine(message.empty() ? Text(u"valid") : message);
  return message.empty() ? 0 : 1;
}

int save(Context& c) {
  Options o = parse(c.args);
  auto form = formFrom(o);
  bool saved = c.kvn.writeProfile(*form, fromUtf8(positional(o, 0, "FILE")),
                                  fromUtf8(positional(o, 1, "ROOT")));
  printLine(u"[" + formGet(*form, u"txtName", u"Text").toText() + u"]");
  Text urls = uploadUrls(*form);
  for (const ProfileKey& k : kProfileKeys) {
    printLine(Text(k.key) + u"=" + profileValue(*form, k, urls));
  }
  printLine(saved ? u"saved" : u"not saved completely");
  return saved ? 0 : 1;
}

const CommandRegistrar kProfile{
    {"profile", "validate", "FILE --name N [--old N] [--path P] [--game G] [--stats S]",
     "check a profile form; prints the message", validate},
    {"profile", "save",
     "FILE ROOT --name N [--old N] [--path P] [--game G] [--game-text G] [--stats S] [--host H] "
     "[--port P] [--url U]... [--ll I] [--acs|--ara|--rbm|--asp 0|1|2] [--padtime T] "
     "[--padnum N]",
     "save a profile form into FILE, its folder below ROOT/profiles", save},
};

}  // namespace
}  // namespace zrk::cli
