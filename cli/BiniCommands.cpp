// bini: packing, unpacking and testing packed text files from the command line.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

// The type word given after FILE, "ini" when there is none.
Text typeArg(const Context& c) {
  Text type = c.args.size() > 1 ? pathArg(c, 1, "TYPE") : Text();
  return type.empty() ? Text(u"ini") : type;
}

int pack(Context& c) {
  Text file = pathArg(c, 0, "FILE"), type = typeArg(c);
  c.kvn.CompressBINI(file, type);
  // Every pack that does not finish is a reported failure. The files are not looked at
  // afterwards: an edit that waited for the pack may already have made a new plain file.
  if (libraryFailed()) return 1;
  printPath(replaceAll(file, u"." + type, u".b" + type));
  return 0;
}

int unpack(Context& c) {
  Text file = existingFile(c, 0, "FILE"), type = typeArg(c);
  if (!c.kvn.DecompressBINI(file, &type))
    throw ToolError{"bini unpack: " + quotePath(file) + " not unpacked"};
  printPath(replaceAll(file, u".b" + type, u"." + type));
  return 0;
}

// A missing file is no packed file, and is not made by the test.
int test(Context& c) {
  return answer(c.kvn.IsBINIFile(existingFile(c, 0, "FILE")));
}

const CommandRegistrar kBini{
    {"bini", "pack", "FILE [TYPE]",
     "pack a text file into FILE with .bTYPE, deleting the plain file", pack},
    {"bini", "unpack", "FILE [TYPE]", "unpack a packed file beside itself", unpack},
    {"bini", "test", "FILE",
     "whether FILE carries the magic BINI: yes (exit 0) or no (exit 1); a missing FILE is named",
     test},
};

}  // namespace
}  // namespace zrk::cli
