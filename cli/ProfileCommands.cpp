// profile: validating and saving a server profile whose form fields come as options.
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>

#include <zrkKVL/FormObject.h>
#include "cli/Command.h"
#include "cli/ScratchFolder.h"
#include "platform/files/Paths.h"
#include "profiles/ProfileKeys.h"

namespace zrk::cli {
namespace {

int16_t checkValue(const Context& o, const std::string& name) {
  std::string v = o.option(name, "0");
  if (v != "0" && v != "1" && v != "2") throw UsageError{"--" + name + " takes 0, 1 or 2"};
  return int16_t(v[0] - '0');
}

int32_t listIndex(const Context& o) {
  std::string v = o.option("ll", "-1");
  try {
    size_t used = 0;
    long n = std::stol(v, &used);
    if (used == v.size() && n >= -1 && n <= INT32_MAX) return int32_t(n);
  } catch (const std::exception&) {
  }
  throw UsageError{"--ll takes a list index (-1 for none)"};
}

// The form as the main program would hold it, filled from the options.
std::shared_ptr<FormObject> formFrom(const Context& o) {
  auto text = [&](const char* name, const char* fallback = "") {
    return Variant(valueOf(o.option(name, fallback)));
  };
  auto form = std::make_shared<FormObject>();
  std::string game = o.option("game", "Please select a Game");
  form->set(u"txtName", u"Text", text("name"))
      .set(u"txtOld", u"Text", text("old"))
      .set(u"txtPath", u"Text", text("path"))
      .set(u"cboGames", u"Text", Variant(valueOf(o.option("game-text", game))))
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
  auto it = o.options.find("url");
  if (it != o.options.end()) {
    for (const auto& u : it->second)
      urls.push_back(valueOf(u));
  }
  form->control(u"lstUrls").setList(std::move(urls));
  return form;
}

namespace fs = std::filesystem;

// The packed profiles file's content, unpacked into a private folder for the time of a check:
// the check reads section names from the plain form only, and the packed file stays untouched.
class UnpackedCopy {
 public:
  UnpackedCopy(clsKVN& kvn, const Text& packedName) : folder_("profile validate", "profiles") {
    std::error_code ec;
    fs::copy_file(platform::nativePath(packedName), packedCopy(), ec);
    if (ec || !kvn.DecompressBINI(fromUtf8(packedCopy()))) {
      throw ToolError{"profile validate: cannot unpack " + quotePath(packedName)};
    }
  }
  Text plainName() const { return fromUtf8(folder_.path() + "/profiles.ini"); }

 private:
  std::string packedCopy() const { return folder_.path() + "/profiles.bini"; }

  ScratchFolder folder_;
};

// The packed file of the pair FILE names, when it exists: a save works on its content whichever
// name is given, so the check does too.
std::optional<Text> storedPackedFile(const Text& file) {
  Text plain = replaceAll(file, u".bini", u".ini");
  Text packed = replaceAll(plain, u".ini", u".bini");
  std::error_code ec;
  if (packed == plain || !fs::is_regular_file(platform::nativePath(packed), ec)) {
    return std::nullopt;
  }
  return packed;
}

int validate(Context& c) {
  auto form = formFrom(c);
  Text file = pathArg(c, 0, "FILE");
  Text message;
  if (std::optional<Text> packed = storedPackedFile(file)) {
    UnpackedCopy copy(c.kvn, *packed);
    message = c.kvn.validateProfile(*form, copy.plainName());
  } else {
    message = c.kvn.validateProfile(*form, file);
  }
  if (libraryFailed()) return 1;
  printValue(message.empty() ? Text(u"valid") : message);
  return message.empty() ? 0 : 1;
}

int save(Context& c) {
  auto form = formFrom(c);
  bool saved = c.kvn.writeProfile(*form, pathArg(c, 0, "FILE"), pathArg(c, 1, "ROOT"));
  printValue(u"[" + formGet(*form, u"txtName", u"Text").toText() + u"]");
  Text urls = uploadUrls(*form);
  for (const ProfileKey& k : kProfileKeys) {
    printValue(Text(k.key) + u"=" + profileValue(*form, k, urls));
  }
  printValue(saved ? u"saved" : u"not saved completely");
  return saved ? 0 : 1;
}

// The form's fields, as the main program's profile form holds them.
const std::vector<Option> kFormOptions = {
    {"name", "N", "the profile's name (txtName)"},
    {"old", "N", "the name it had before, when renamed (txtOld)"},
    {"path", "P", "the game server's executable (txtPath)"},
    {"game", "G", "the game's key (cboGames tooltip)"},
    {"game-text", "G", "the game as the list shows it (default: --game)"},
    {"stats", "S", "the stats system (cboStats)"},
    {"host", "H", "the stats host (txtSrHost)"},
    {"port", "P", "the game port (txtGamePort)"},
    {"url", "U", "an upload address; repeat for more (lstUrls)"},
    {"ll", "I", "the log level's list index, -1 for none (cboLL)"},
    {"acs", "0|1|2", "check box chkAcs"},
    {"ara", "0|1|2", "check box chkAra"},
    {"rbm", "0|1|2", "check box chkRbm"},
    {"asp", "0|1|2", "check box chkAntiStatsPad"},
    {"padtime", "T", "txtPadtime"},
    {"padnum", "N", "txtPadnum"},
};

const CommandRegistrar kProfile{
    {"profile", "validate", "FILE", "check a profile form; prints valid or the message (exit 1)",
     validate, kFormOptions},
    {"profile", "save", "FILE ROOT",
     "save a profile form into FILE, its folder below ROOT/profiles; prints the section", save,
     kFormOptions},
};

}  // namespace
}  // namespace zrk::cli
