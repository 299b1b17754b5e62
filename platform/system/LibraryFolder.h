// The folder the library acts as lying in, and so its installation root.
#pragma once

#include <optional>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// Where the library lies below an installation root.
inline constexpr TextView kLibrarySubPath = u"/dlls/Main Functions DLL";

// The folder the library acts as lying in, without a trailing separator unless it is the root.
// The first of these that applies:
//   1. the folder that overrideLibraryFolder chose (the tool's --root, tests);
//   2. ROOT/dlls/Main Functions DLL for the environment variable ZRKKVL_ROOT=ROOT;
//   3. ROOT/dlls/Main Functions DLL for the root a host chose with setHostRoot;
//   4. the folder of the loaded file (the library, or the program that carries it, found through
//      /proc/self/exe) when it ends in /dlls/Main Functions DLL: the main program's own tree;
//   5. ROOT/dlls/Main Functions DLL for the per-user root ROOT = $XDG_DATA_HOME/zrkkvl
//      (~/.local/share/zrkkvl), both folders made on first use with mode 0700.
// So a library installed in a system folder never writes there.
Text libraryFolder();

// Steps 1 to 3 of that order, which ask nothing of the file system; nothing when none applies.
std::optional<Text> chosenLibraryFolder();
// Steps 4 and 5, which look for the loaded file and may make the per-user folders.
Text ownLibraryFolder();

// The folder to report instead of the derived one (the tool's --root; tests); nullopt restores
// the order above.
void overrideLibraryFolder(std::optional<Text> folder);

// The root a host chose for the threads that start the library afterwards; nullopt or empty
// text forgets it.
void setHostRoot(std::optional<Text> root);

// The per-user root, $XDG_DATA_HOME/zrkkvl or ~/.local/share/zrkkvl; nothing is made.
Text perUserRoot();

}  // namespace zrk::platform
