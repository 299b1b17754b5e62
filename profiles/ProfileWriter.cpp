// Saving a profile form: its 13 keys, its folder, and the profiles file packed again at the end.
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/clsKVN.h"
#include "platform/FileSystemObject.h"
#include "platform/ProfileOps.h"
#include "profiles/FormObject.h"

namespace zrk {
namespace {

// The keys of a profile in the order they are written, and where each value comes from. The
// upload key has no control of its own: its value is the joined URL list.
struct ProfileKey {
  const char16_t* key;
  const char16_t* control;
  const char16_t* property;
};
constexpr ProfileKey kProfileKeys[] = {
    {u"path", u"txtPath", u"Text"},         {u"upload", nullptr, nullptr},
    {u"game", u"cboGames", u"ToolTipText"}, {u"host", u"txtSrHost", u"Text"},
    {u"nll", u"cboLL", u"ListIndex"},       {u"acs", u"chkAcs", u"Value"},
    {u"ara", u"chkAra", u"Value"},          {u"rbm", u"chkRbm", u"Value"},
    {u"asp", u"chkAntiStatsPad", u"Value"}, {u"apt", u"txtPadtime", u"Text"},
    {u"apn", u"txtPadnum", u"Text"},        {u"sss", u"cboStats", u"Text"},
    {u"port", u"txtGamePort", u"Text"},
};

Text text(Dispatch& F, TextView control) {
  return formGet(F, control, u"Text").toText();
}

// The list items joined with "|", or a single space for an empty list.
Text uploadUrls(Dispatch& F) {
  Text urls = u" ";
  int32_t count = formGet(F, u"lstUrls", u"ListCount").toLong();
  if (count > 0) {
    std::vector<Text> items;
    for (int32_t i = 0; i < count; ++i) {
      items.push_back(formGet(F, u"lstUrls", u"List", {Variant(i)}).toText());
    }
    urls = items[0];
    for (size_t i = 1; i < items.size(); ++i)
      urls += u"|" + items[i];
  }
  return urls;
}

Text profileFolder(const Text& zrkPath, const Text& name) {
  return zrkPath + u"/profiles/" + name;
}

void deleteSection(const Text& section, const Text& file) {
  platform::WritePrivateProfileStringA(&section, nullptr, nullptr, file);
}

// Moves a folder to a name that differs only in letter case. Both names resolve to the one
// folder, so it goes through a name of its own, copied before each deletion.
void renameFolderCase(const platform::FileSystemObject& fso, const Text& from, const Text& to) {
  Text between = to + u".~rename";
  fso.CopyFolder(from, between, true);
  fso.DeleteFolder(from, false);
  fso.CopyFolder(between, to, true);
  fso.DeleteFolder(between, false);
}

}  // namespace

bool clsKVN::writeProfile(Dispatch& F, Text iniFile, Text zrkPath) {
  bool result = false;
  MethodFrame frame(u"writeProfile");
  frame.run([&] {
    platform::FileSystemObject fso;
    frame.line(1);
    // The packed file is unpacked whichever of the two names the caller gives, so that a plain
    // name never packs one profile over the whole file. A name of neither form could not be
    // packed again, so nothing is written to it.
    Text plainName = replaceAll(iniFile, u".bini", u".ini");
    Text packedName = replaceAll(plainName, u".ini", u".bini");
    if (packedName == plainName) {
      throw Failure(err::BadFileNameOrNumber,
                    defaultDescription(err::BadFileNameOrNumber) + u" [" + iniFile + u"]");
    }
    DecompressBINI(packedName);
    frame.line(2);
    iniFile = plainName;
    frame.line(5);
    Text urls = u" ";
    frame.line(6);
    urls = uploadUrls(F);
    frame.line(7);
    auto writeKeys = [&] {
      for (const ProfileKey& k : kProfileKeys) {
        Text value = k.control ? formGet(F, k.control, k.property).toText() : urls;
        WriteIniKey(text(F, u"txtName"), k.key, value, iniFile);
      }
    };
    writeKeys();
    frame.line(8);
    if (!text(F, u"txtOld").empty()) {
      frame.line(9);
      if (text(F, u"txtOld") != text(F, u"txtName")) {
        Text oldFolder = profileFolder(zrkPath, text(F, u"txtOld"));
        Text newFolder = profileFolder(zrkPath, text(F, u"txtName"));
        deleteSection(text(F, u"txtOld"), iniFile);
        if (equalsNoCase(text(F, u"txtOld"), text(F, u"txtName"))) {
          // The section just written was the old one under another case: write it anew under
          // the new name, as a renamed profile gets it, and carry the folder the same way.
          writeKeys();
          renameFolderCase(fso, oldFolder, newFolder);
        } else {
          fso.CopyFolder(oldFolder, newFolder, true);
          fso.DeleteFolder(oldFolder, false);
        }
      }
    } else {
      frame.line(10);
      Text newFolder = profileFolder(zrkPath, text(F, u"txtName"));
      if (!fso.FolderExists(newFolder)) fso.CreateFolder(newFolder);
      if (!fso.FolderExists(newFolder + u"/settings")) fso.CreateFolder(newFolder + u"/settings");
    }
    frame.line(11);
    Variant section = GetIniSection(text(F, u"txtName"), iniFile);
    frame.line(12);
    if (section.array().upperBound() > 0 &&
        fso.FolderExists(profileFolder(zrkPath, text(F, u"txtName")))) {
      result = true;
    }
    frame.line(13);
    CompressBINI(iniFile);
  });
  return result;
}

static const CallRegistrar kWriterCalls{
    {u"writeProfile", calls::method<&clsKVN::writeProfile>},
};

}  // namespace zrk
