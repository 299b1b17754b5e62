// Saving a profile form: its 13 keys, its folder, and the profiles file packed again at the end.
#include <zrkKVL/FormObject.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/FileSystemObject.h"
#include "platform/ProfileOps.h"
#include "profiles/ProfileKeys.h"

namespace zrk {
namespace {

Text text(Dispatch& F, TextView control) {
  return formGet(F, control, u"Text").toText();
}

Text profileFolder(const Text& zrkPath, const Text& name) {
  return zrkPath + u"/profiles/" + name;
}

// A profile name stays a single folder below "profiles": a name holding a separator, or "."
// or "..", would reach elsewhere, so it is refused before anything changes.
void checkProfileName(const Text& name, bool mayBeEmpty) {
  bool bad = name.empty()
                 ? !mayBeEmpty
                 : name == u"." || name == u".." || name.find_first_of(u"/\\") != Text::npos;
  if (bad) {
    throw Failure(err::BadFileNameOrNumber,
                  defaultDescription(err::BadFileNameOrNumber) + u" [" + name + u"]");
  }
}

void deleteSection(const Text& section, const Text& file) {
  platform::WritePrivateProfileStringA(&section, nullptr, nullptr, file);
}

}  // namespace

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

Text profileValue(Dispatch& F, const ProfileKey& key, const Text& urls) {
  return key.control ? formGet(F, key.control, key.property).toText() : urls;
}

bool clsKVN::writeProfile(Dispatch& F, Text iniFile, Text zrkPath) {
  bool result = false;
  MethodFrame frame(u"writeProfile");
  frame.run([&] {
    platform::FileSystemObject fso;
    frame.line(1);
    checkProfileName(text(F, u"txtName"), false);
    checkProfileName(text(F, u"txtOld"), true);
    // With the packed name the packed file is unpacked, also over a plain file left by an
    // earlier save. With the plain name a plain file that exists is kept as it is; only
    // without one is the packed file unpacked, so that a plain name never packs one profile
    // over the whole file. A name of neither form could not be packed again, so nothing is
    // written to it.
    Text plainName = replaceAll(iniFile, u".bini", u".ini");
    Text packedName = replaceAll(plainName, u".ini", u".bini");
    if (packedName == plainName) {
      throw Failure(err::BadFileNameOrNumber,
                    defaultDescription(err::BadFileNameOrNumber) + u" [" + iniFile + u"]");
    }
    if (iniFile != plainName || !fso.FileExists(plainName)) DecompressBINI(packedName);
    frame.line(2);
    iniFile = plainName;
    frame.line(5);
    Text urls = u" ";
    frame.line(6);
    urls = uploadUrls(F);
    frame.line(7);
    auto writeKeys = [&] {
      for (const ProfileKey& k : kProfileKeys) {
        WriteIniKey(text(F, u"txtName"), k.key, profileValue(F, k, urls), iniFile);
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
          // the new name, as a renamed profile gets it.
          writeKeys();
        }
        // One rename where it can be (a change of letter case included), else the old folder
        // merged into the new one and removed: owners, modes and links kept.
        fso.MoveFolder(oldFolder, newFolder);
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
