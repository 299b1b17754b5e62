// The old content of a file rewritten in place, kept in the recovery folder (recoveryFolder() of
// SafeFile.h) until the new one is whole: copied and synced on construction, removed by
// remove(), and left there when the object goes without it.
#pragma once

#include <sys/types.h>

#include <string>

namespace zrk::platform {

class RecoveryCopy {
 public:
  // Copies the whole content of `oldFd` under a random name beginning with `fileName`.
  RecoveryCopy(int oldFd, const std::string& fileName);
  ~RecoveryCopy();
  RecoveryCopy(const RecoveryCopy&) = delete;
  RecoveryCopy& operator=(const RecoveryCopy&) = delete;

  // Puts the old content back into `fd`; false when that failed too (the copy then stays).
  bool restoreInto(int fd);
  void remove();

 private:
  int dirFd_ = -1;
  int fd_ = -1;
  std::string name_;
  off_t length_ = 0;
};

}  // namespace zrk::platform
