// Saving a profile form: its 13 keys, its folder, and the profiles file packed again at the end.
#include <zrkKVL/FormObject.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/FolderLock.h"
#include "platform/files/Paths.h"
#include "platform/ini/ProfileOps.h"
#include "profiles/ProfileKeys.h"

namespace zrk {
namespace {

Text text(Dispatch& F, TextView control) {
  return formGet(F, control, u"Text").toText();
}

Text profileFolder(const Text& zrkPath, const Text& name) {
  return zrkPath + u"/profiles/" + name;
}

// A profile name is one section of the profiles file and one folder below "profiles". A name
// the section cannot hold (empty, blanks only, a line end, a "]") or that would reach elsewhere
// (see isEntryName) is refused before anything changes.
void checkProfileName(const Text& name, bool mayBeEmpty) {
  bool bad = name.empty() ? !mayBeEmpty
                          : name.find_first_not_of(u" \t") == Text::npos ||
                                !platform::isEntryName(name, u"\r\n]");
  if (bad) {
    throw Failure(err::BadFileNameOrNumber,
                  defaultDescription(err::BadFileNameOrNumber) + u" [" + name + u"]");
  }
}

// The profile's 13 values in key order. A value that holds a line end (or a NUL, which ends a
// line of a section read back) would add lines of its own, so the save stops before any key is
// written, naming the key.
std::vector<Text> checkedValues(Dispatch& F, const Text& urls) {
  std::vector<Text> values;
  for (const ProfileKey& k : kProfileKeys) {
    values.push_back(profileValue(F, k, urls));
    if (values.back().find_first_of(TextView(u"\0\r\n", 3)) != Text::npos) {
      throw Failure(err::InvalidCall,
                    defaultDescription(err::InvalidCall) + u" [" + Text(k.key) + u"]");
    }
  }
  return values;
}

// Writes the keys in one replacement of the file. A write the INI engine refuses (a read-only
// file, a full disk) stops the save: a profile stored with fewer keys than it has is no save.
void storeKeys(const Text& section, const std::vector<Text>& values, const Text& file) {
  std::vector<Text> keys;
  std::vector<platform::ProfileEdit> edits;
  keys.reserve(values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    keys.emplace_back(kProfileKeys[i].key);
    edits.push_back({&section, &keys.back(), &values[i]});
  }
  if (!platform::writeProfileEdits(edits, file)) {
    throw Failure(err::PathFileAccessError, defaultDescription(err::PathFileAccessError) + u" [" +
                                                section + u", " + file + u"]");
  }
}

// Stops the save when the packed file exists and could not be unpacked whole: packing the
// plain file over it would lose every profile that only the packed file holds.
void requireUnpacked(bool unpacked, const platform::FileSystemObject& fso, const Text& packedName) {
  if (!unpacked && fso.FileExists(packedName)) {
    throw Failure(err::PathFileAccessError,
                  defaultDescription(err::PathFileAccessError) + u" [" + packedName + u"]");
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
    // The packed file is unpacked over any plain file beside it, whichever name is given: a
    // plain file left by an earlier save is never packed over newer packed content. A name of
    // neither form could not be packed again, so nothing is written to it.
    Text plainName = replaceAll(iniFile, u".bini", u".ini");
    Text packedName = replaceAll(plainName, u".ini", u".bini");
    if (packedName == plainName) {
      throw Failure(err::BadFileNameOrNumber,
                    defaultDescription(err::BadFileNameOrNumber) + u" [" + iniFile + u"]");
    }
    // The whole save, from the unpack to the pack, is one step for every other writer of the
    // profiles file: other saves, packs and unpacks, INI edits.
    platform::FolderLock lock = platform::lockOfFile(plainName);
    requireUnpacked(DecompressBINI(packedName), fso, packedName);
    frame.line(2);
    iniFile = plainName;
    frame.line(5);
    Text urls = u" ";
    frame.line(6);
    urls = uploadUrls(F);
    frame.line(7);
    auto writeKeys = [&] { storeKeys(text(F, u"txtName"), checkedValues(F, urls), iniFile); };
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
    // CompressBINI reports its own failures. A pack that did not finish leaves the plain file:
    // the profile is then not stored, whatever the check above found.
    CompressBINI(iniFile);
    if (fso.FileExists(iniFile)) result = false;
  });
  return result;
}

static const CallRegistrar kWriterCalls{
    {u"writeProfile", calls::method<&clsKVN::writeProfile>},
};

}  // namespace zrk
