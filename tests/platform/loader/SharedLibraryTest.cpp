// Libraries opened at their first need: what a missing file or function gives, and the test
// seam that names another file.
#include <gtest/gtest.h>

#include <string>

#include "platform/loader/SharedLibrary.h"

namespace zrk::platform {
namespace {

// One function of zlib, which every system that runs the library has.
struct VersionApi {
  const char* (*version)();
};

// Binds the function the case names, so that one table drives every case.
const char* gFunction = nullptr;
bool bindVersion(const LibrarySymbols& l, VersionApi& api) {
  return l.bind(api.version, gFunction);
}

TEST(OnDemandLibrary, LoadsOnlyAFileWithEveryFunction) {
  struct Case {
    const char* file;
    const char* function;
    bool loaded;
  } cases[] = {
      {"libz.so.1", "zlibVersion", true},
      {"libz.so.1", "zrk_no_such_function", false},
      {"libzrk-missing.so.1", "zlibVersion", false},
  };
  for (const Case& c : cases) {
    gFunction = c.function;
    OnDemandLibrary<VersionApi> library(c.file, bindVersion);
    const VersionApi* api = library.get();
    EXPECT_EQ(api != nullptr, c.loaded) << c.file << " " << c.function;
    if (api) {
      EXPECT_EQ(std::string(api->version()).substr(0, 2), "1.") << c.file;
    }
    EXPECT_EQ(library.get(), api) << "the first answer stays: " << c.file;
  }
}

TEST(OnDemandLibrary, AnOverrideTakesEffectAtTheNextGet) {
  gFunction = "zlibVersion";
  OnDemandLibrary<VersionApi> library("libz.so.1", bindVersion);
  const VersionApi* usual = library.get();
  ASSERT_NE(usual, nullptr);
  overrideLibraryFile("libz.so.1", "libzrk-missing.so.1");
  EXPECT_EQ(libraryFile("libz.so.1"), "libzrk-missing.so.1");
  EXPECT_EQ(library.get(), nullptr);
  overrideLibraryFile("libz.so.1", "");
  EXPECT_EQ(libraryFile("libz.so.1"), "libz.so.1");
  EXPECT_EQ(library.get(), usual) << "the table loaded first is kept";
}

}  // namespace
}  // namespace zrk::platform
