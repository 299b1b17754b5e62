// The library object: construction, version, folder tree, release.
#include <zrkKVL/clsKVN.h>

#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/files/FileSystemObject.h"
#include "platform/system/LibraryFolder.h"

namespace zrk {

void SetRootPath(TextView root) {
  platform::setHostRoot(Text(root));
}

clsKVN::clsKVN() {
  mdlKVN::State& s = mdlKVN::state();
  if (!s.started) {
    s.started = true;
    mdlKVN::Main();
  }
}

clsKVN::~clsKVN() = default;

Text clsKVN::dllVersion(Text) {
  return noTrap([] {
    return decimal(kVersionMajor) + u"." + decimal(kVersionMinor) + u"." +
           decimal(kVersionRevision);
  });
}

void clsKVN::reqFolders(Text zrkPath) {
  MethodFrame frame(u"reqFolders");
  frame.run([&] {
    platform::FileSystemObject fso;
    frame.line(1);
    // An empty root would put the folders at the top of the file system.
    if (zrkPath.empty()) throw Failure(err::PathNotFound);
    Text updates = zrkPath + u"/updates";
    if (fso.FolderExists(updates)) fso.DeleteFolder(updates, false);
    frame.line(2);
    for (TextView name : {u"profiles", u"settings", u"adminlogs", u"plugins", u"mods"}) {
      Text folder = zrkPath + u"/" + Text(name);
      if (!fso.FolderExists(folder)) fso.CreateFolder(folder);
    }
  });
}

void clsKVN::Unload() {
  noTrap([] { mdlKVN::ReleaseLibrary(); });
}

static const CallRegistrar kCoreCalls{
    {u"CompressedSize", calls::variable<&clsKVN::CompressedSize>},
    {u"OriginalSize", calls::variable<&clsKVN::OriginalSize>},
    {u"MONITOR", calls::variable<&clsKVN::MONITOR>},
    {u"ProfileCount", calls::variable<&clsKVN::ProfileCount>},
    {u"ActiveProfiles", calls::variable<&clsKVN::ActiveProfiles>},
    {u"dllVersion", calls::method<&clsKVN::dllVersion>},
    {u"reqFolders", calls::method<&clsKVN::reqFolders>},
    {u"Unload", calls::method<&clsKVN::Unload>},
};

}  // namespace zrk
