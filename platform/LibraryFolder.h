// The folder from which the library's own file was loaded.
#pragma once

#include <optional>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// The loaded library's folder, without a trailing separator unless it is the root.
Text libraryFolder();

// Test seam: a folder to report instead of the real one (nullopt restores the real one).
void overrideLibraryFolder(std::optional<Text> folder);

}  // namespace zrk::platform
