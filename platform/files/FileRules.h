// What the writers of SafeFile.h share inside the files service: how a failed write is counted
// and thrown, the hook that hears of written files, and the random names of temporaries.
#pragma once

#include <sys/stat.h>

#include <string>

namespace zrk::platform {

// Counts a failed write of this thread (writeFailuresOnThisThread) and throws it the way the
// runtime words it: 76 a missing folder, 75 a folder or a file that is not a regular one, else
// by the system's error.
[[noreturn]] void failWrite(int error);

// Tells the hook (setFileWrittenHook), where one is set, of a file written, by its stat before.
void noteFileWritten(const struct stat& written);

// A name no user or member can count on: random, and made or linked exclusively, so that a
// name standing there already is tried again with another, at most kNameTries times.
std::string randomTemporaryName();
inline constexpr int kNameTries = 100;

}  // namespace zrk::platform
