// bini: packing, unpacking and testing packed text files from the command line.
#include "cli/Command.h"
#include "core/mdlKVN.h"
#include "platform/FileSystemObject.h"

namespace zrk::cli {
namespace {

// The type word given after FILE, "ini" when there is none.
Text typeArg(const Context& c) {
  Text type = c.args.size() > 1 ? textArg(c, 1, "TYPE") : Text();
  return type.empty() ? Text(u"ini") : type;
}

int pack(Context& c) {
  Text file = textArg(c, 0, "FILE"), type = typeArg(c);
  c.kvn.CompressBINI(file, type);
  Text packed = replaceAll(file, u"." + type, u".b" + type);
  platform::FileSystemObject& fso = mdlKVN::SharedFileSystem();
  if (packed == file || !fso.FileExists(packed) || fso.FileExists(file)) return 1;
  printLine(packed);
  return 0;
}

int unpack(Context& c) {
  Text file = textArg(c, 0, "FILE"), type = typeArg(c);
  if (!c.kvn.DecompressBINI(file, &type)) {
    printLine(u"not unpacked: " + file);
    return 1;
  }
  printLine(replaceAll(file, u".b" + type, u"." + type));
  return 0;
}

int test(Context& c) {
  bool packed = c.kvn.IsBINIFile(textArg(c, 0, "FILE"));
  printLine(packed ? u"packed" : u"not packed");
  return packed ? 0 : 1;
}

const CommandRegistrar kBini{
    {"bini", "pack", "FILE [TYPE]",
     "pack a text file into FILE with .bTYPE, deleting the plain file", pack},
    {"bini", "unpack", "FILE [TYPE]", "unpack a packed file beside itself", unpack},
    {"bini", "test", "FILE", "tell whether FILE carries the magic BINI", test},
};

}  // namespace
}  // namespace zrk::cli
