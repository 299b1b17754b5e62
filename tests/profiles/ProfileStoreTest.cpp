// The profiles file as a store shared by many writers: saves in parallel processes and threads,
// INI edits during a pack, packed files that cannot be read, many profiles, and saves killed at
// any moment.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "compress/StringCompression.h"
#include "platform/files/SysCalls.h"
#include "profiles/Base64.h"
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

using namespace std::string_literals;
namespace faults = platform::faults;

// The sections of an INI text, each with its lines, by name.
std::map<std::string, std::string> sectionsOf(const std::string& text) {
  std::map<std::string, std::string> out;
  size_t at = 0;
  while ((at = text.find('[', at)) != std::string::npos) {
    size_t end = text.find("\r\n[", at);
    end = end == std::string::npos ? text.size() : end + 2;
    std::string block = text.substr(at, end - at);
    out[block.substr(1, block.find(']') - 1)] = block;
    at = end;
  }
  return out;
}

class ProfileStore : public ProfileLibraryTest {
 protected:
  void SetUp() override {
    ProfileLibraryTest::SetUp();
    makeDir(mem / "profiles");
  }
  void TearDown() override {
    faults::clear();
    ProfileLibraryTest::TearDown();
  }
  bool save(const Profile& p, const std::string& file = "profiles.bini") {
    return kvn->writeProfile(*formOf(p), mem.text(file), mem.text());
  }
  // Stores `count` profiles named "<prefix><i>" with one key each, packed.
  void storeProfiles(int count, const std::string& prefix = "Before") {
    std::string text;
    for (int i = 0; i < count; ++i)
      text += "[" + prefix + std::to_string(i) + "]\r\npath=b" + std::to_string(i) + "\r\n";
    writeBytes(mem / "profiles.ini", text);
    kvn->CompressBINI(mem.text("profiles.ini"));
    ASSERT_FALSE(exists(mem / "profiles.ini"));
  }
  // The packed file's text, unpacked from a copy elsewhere; "" when it cannot be unpacked.
  std::string unpacked() {
    TempDir check;
    writeBytes(check / "copy.bini", readBytes(mem / "profiles.bini"));
    if (!kvn->DecompressBINI(check.text("copy.bini"))) return "";
    return readBytes(check / "copy.ini");
  }

  MemoryFolder mem;
};

void waitForAll(const std::vector<pid_t>& children) {
  for (pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  }
}

// Processes and threads save different profiles into one profiles file at once: every save
// stays, and so does every profile stored before.
TEST_F(ProfileStore, ParallelSavesKeepEveryProfile) {
  constexpr int kProcesses = 6, kThreads = 3, kSavesEach = 3;
  storeProfiles(20);
  auto name = [](const std::string& who, int i) { return T(who + " " + std::to_string(i)); };
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      bool all = true;
      for (int i = 0; i < kSavesEach; ++i)
        all = save(Profile{name("P" + std::to_string(p), i)}) && all;
      ::_exit(all ? 0 : 1);
    }
    children.push_back(child);
  }
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      clsKVN own;  // each thread its own instance, as the apartment model asks
      for (int i = 0; i < kSavesEach; ++i) {
        failed += !own.writeProfile(*formOf(Profile{name("T" + std::to_string(t), i)}),
                                    mem.text("profiles.bini"), mem.text());
      }
    });
  }
  for (auto& t : threads)
    t.join();
  waitForAll(children);
  EXPECT_EQ(failed, 0);
  EXPECT_FALSE(exists(mem / "profiles.ini"));
  std::map<std::string, std::string> sections = sectionsOf(unpacked());
  EXPECT_EQ(sections.size(), size_t(20 + (kProcesses + kThreads) * kSavesEach));
  for (int i = 0; i < 20; ++i) {
    std::string n = "Before" + std::to_string(i);
    EXPECT_EQ(sections[n], "[" + n + "]\r\npath=b" + std::to_string(i) + "\r\n");
  }
  for (const char* kind : {"P", "T"}) {
    for (int w = 0; w < (kind[0] == 'P' ? kProcesses : kThreads); ++w) {
      for (int i = 0; i < kSavesEach; ++i) {
        Profile p{name(kind + std::to_string(w), i)};
        EXPECT_EQ(sections[toUtf8(p.name)], keysOf(p));
      }
    }
  }
  EXPECT_EQ(failures(), Failures{});
}

// An INI edit of the plain file while it is being packed lands either in the packed file or,
// after the pack, in a new plain file beside it: never in a file the pack then deletes.
TEST_F(ProfileStore, AnEditDuringAPackIsKept) {
  int lost = 0;
  for (int round = 0; round < 40; ++round) {
    std::remove((mem / "profiles.bini").c_str());
    std::string base;
    for (int i = 0; i < 200; ++i)
      base += "[S" + std::to_string(i) + "]\r\nkey=value " + std::to_string(i) + "\r\n";
    writeBytes(mem / "profiles.ini", base);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      kvn->WriteIniKey(u"Edit", u"round", T(std::to_string(round)), mem.text("profiles.ini"));
      ::_exit(0);
    }
    kvn->CompressBINI(mem.text("profiles.ini"));
    waitForAll({child});
    std::string line = "[Edit]\r\nround=" + std::to_string(round) + "\r\n";
    bool packed = unpacked().find(line) != std::string::npos;
    bool plain = exists(mem / "profiles.ini") && readBytes(mem / "profiles.ini") == line;
    lost += !packed && !plain;
    std::remove((mem / "profiles.ini").c_str());
  }
  EXPECT_EQ(lost, 0);
}

// A packed file that cannot be unpacked whole stops the save before anything is written: the
// packed file stays byte for byte, no plain file or folder is made, the result is false.
TEST_F(ProfileStore, APackedFileThatCannotBeReadIsNeverPackedOver) {
  storeProfiles(30);
  const std::string good = readBytes(mem / "profiles.bini");
  std::string stream = base64DecodeBytes(good.substr(12));
  std::string badCheck = stream;
  badCheck.back() ^= 1;  // the stream's check value
  struct Case {
    const char* what;
    std::string packed;
    Failures failures;
    std::function<void()> fault;
  } cases[] = {
      {"check value damaged",
       good.substr(0, 12) + base64EncodeBytes(badCheck),
       {"DecompressBINI:62@13", "writeProfile:75@1"},
       nullptr},
      {"cut in the body",
       good.substr(0, 12 + (good.size() - 12) / 8 * 4),
       {"DecompressBINI:62@13", "writeProfile:75@1"},
       nullptr},
      {"header only", good.substr(0, 12), {"DecompressBINI:62@13", "writeProfile:75@1"}, nullptr},
      {"cut in the header",
       good.substr(0, 7),
       {"DecompressBINI:9@3", "writeProfile:75@1"},
       nullptr},
      {"no packed file at all", "[A]\r\npath=a\r\n", {"writeProfile:75@1"}, nullptr},
      {"full disk",
       good,
       {"DecompressBINI:61@13", "writeProfile:75@1"},
       [&] { faults::diskFull(mem / "profiles.ini"); }},
      {"unwritable plain file",
       good,
       {"DecompressBINI:70@13", "writeProfile:75@1"},
       [&] { faults::writeRefused(mem / "profiles.ini"); }},
      {"plain file not put in place",
       good,
       {"DecompressBINI:57@13", "writeProfile:75@1"},
       [&] {
         faults::add({faults::Call::Rename, mem / "profiles.ini", EIO});
       }},
  };
  for (const Case& c : cases) {
    for (const char* file : {"profiles.bini", "profiles.ini"}) {
      SCOPED_TRACE(std::string(c.what) + " / " + file);
      loggedFailures().clear();
      writeBytes(mem / "profiles.bini", c.packed);
      if (c.fault) c.fault();
      EXPECT_FALSE(save(Profile{u"New"}, file));
      faults::clear();
      EXPECT_EQ(failures(), c.failures);
      EXPECT_EQ(readBytes(mem / "profiles.bini"), c.packed);
      EXPECT_FALSE(exists(mem / "profiles.ini"));
      EXPECT_FALSE(exists(mem / "profiles/New"));
    }
  }
  // Once the packed file is readable again, the next save keeps all it holds.
  writeBytes(mem / "profiles.bini", good);
  EXPECT_TRUE(save(Profile{u"New"}));
  EXPECT_EQ(sectionsOf(unpacked()).size(), 31u);
}

// A save that cannot store every key, or cannot pack, says so: result false, the packed file
// untouched, and the next save starts again from it.
TEST_F(ProfileStore, ASaveThatDidNotStoreEverythingFails) {
  storeProfiles(5);
  const std::string stored = readBytes(mem / "profiles.bini");
  struct Case {
    const char* what;
    std::function<void(Profile&, FormObject&)> change;
    Failures failures;
  } cases[] = {
      {"path with a line end",
       [](Profile&, FormObject& f) { f.set(u"txtPath", u"Text", Text(u"a\r\nevil=1")); },
       {"writeProfile:5@7"}},
      {"port with a line feed",
       [](Profile&, FormObject& f) { f.set(u"txtGamePort", u"Text", Text(u"1\n[X]")); },
       {"writeProfile:5@7"}},
      {"upload address with a CR",
       [](Profile&, FormObject& f) {
         f.control(u"lstUrls").setList({u"http://a", u"http://b\r"});
       },
       {"writeProfile:5@7"}},
      {"NUL in a value",
       [](Profile&, FormObject& f) { f.set(u"txtPadnum", u"Text", Text(u"5\0x", 3)); },
       {"writeProfile:5@7"}},
      {"key write refused",
       [&](Profile&, FormObject&) { faults::writeRefused(mem / "profiles.ini", 1); },
       {"writeProfile:75@7"}},
      {"pack on a full disk",
       [&](Profile&, FormObject&) { faults::diskFull(mem / "profiles.bini"); },
       {"CompressBINI:61@10"}},
      {"packed file not put in place",
       [&](Profile&, FormObject&) {
         faults::add({faults::Call::Rename, mem / "profiles.bini", EIO});
       },
       {"CompressBINI:57@10"}},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.what);
    loggedFailures().clear();
    Profile p{u"New"};
    auto form = formOf(p);
    c.change(p, *form);
    EXPECT_FALSE(kvn->writeProfile(*form, mem.text("profiles.bini"), mem.text()));
    faults::clear();
    EXPECT_EQ(failures(), c.failures);
    EXPECT_EQ(readBytes(mem / "profiles.bini"), stored);
    if (c.failures == Failures{"writeProfile:5@7"}) {
      EXPECT_EQ(readBytes(mem / "profiles.ini").find("[New]"), std::string::npos)
          << "a refused value stores no key";
    }
  }
  Profile p{u"Next"};
  EXPECT_TRUE(save(p));
  std::map<std::string, std::string> sections = sectionsOf(unpacked());
  EXPECT_EQ(sections.size(), 6u);
  EXPECT_EQ(sections["Next"], keysOf(p));
}

// Permissions: a read-only packed file is not packed over (for every caller); a folder the
// caller may not write in (only an unprivileged caller meets one) stops the save at the unpack.
TEST_F(ProfileStore, FilesAndFoldersTheCallerMayNotWrite) {
  storeProfiles(3);
  const std::string stored = readBytes(mem / "profiles.bini");
  makeReadOnly(mem / "profiles.bini");
  EXPECT_FALSE(save(Profile{u"New"}));
  EXPECT_EQ(failures(), Failures{"CompressBINI:70@6"});
  EXPECT_EQ(readBytes(mem / "profiles.bini"), stored);
  ::chmod((mem / "profiles.bini").c_str(), 0644);
  std::remove((mem / "profiles.ini").c_str());

  if (::geteuid() != 0) {
    loggedFailures().clear();
    ::chmod(mem.path().c_str(), 0555);
    EXPECT_FALSE(save(Profile{u"New"}));
    ::chmod(mem.path().c_str(), 0755);
    EXPECT_EQ(failures(), (Failures{"DecompressBINI:70@13", "writeProfile:75@1"}));
    EXPECT_EQ(readBytes(mem / "profiles.bini"), stored);
    EXPECT_FALSE(exists(mem / "profiles.ini"));
  }
  loggedFailures().clear();
  EXPECT_TRUE(save(Profile{u"New"}));
  EXPECT_EQ(sectionsOf(unpacked()).size(), 4u);
  EXPECT_EQ(failures(), Failures{});
}

// The duplicate check sees every section, however long the list of names.
TEST_F(ProfileStore, DuplicateCheckSeesAThousandProfiles) {
  std::string text;
  for (int i = 0; i < 1000; ++i)
    text += "[Server " + std::to_string(10000 + i) + "]\r\npath=p\r\n";
  writeBytes(mem / "profiles.ini", text);
  auto form = formOf(Profile{u"Server 10999"});
  form->set(u"cboStats", u"Text", Text(u"S"));
  EXPECT_EQ(kvn->validateProfile(*form, mem.text("profiles.ini")),
            u"You already have a profile with this name!");
  form->set(u"txtName", u"Text", Text(u"Server 11000"));
  EXPECT_EQ(kvn->validateProfile(*form, mem.text("profiles.ini")), u"");
  form->set(u"txtName", u"Text", Text(u"Server 10500")).set(u"txtOld", u"Text", Text(u"X"));
  EXPECT_EQ(kvn->validateProfile(*form, mem.text("profiles.ini")),
            u"You already have a profile with this name!");

  kvn->CompressBINI(mem.text("profiles.ini"));
  Profile p{u"Server 11000"};
  EXPECT_TRUE(save(p));
  std::map<std::string, std::string> sections = sectionsOf(unpacked());
  EXPECT_EQ(sections.size(), 1001u);
  EXPECT_EQ(sections["Server 10999"], "[Server 10999]\r\npath=p\r\n");
  EXPECT_EQ(sections["Server 11000"], keysOf(p));
  EXPECT_EQ(failures(), Failures{});
}

// Saves killed at a few hundred moments spread over a save: the packed file always holds the
// old content or the new, whole, and the next save recovers every profile stored before.
TEST_F(ProfileStore, KilledSavesLeaveOldOrNewContent) {
  storeProfiles(50);
  // How long one save takes here, to spread the kills over it.
  auto started = std::chrono::steady_clock::now();
  ASSERT_TRUE(save(Profile{u"Timed"}));
  auto oneSave = std::chrono::steady_clock::now() - started;
  const int64_t spanUs =
      std::chrono::duration_cast<std::chrono::microseconds>(oneSave).count() * 5 / 4 + 100;
  std::set<std::string> stored;
  for (const auto& [name, block] : sectionsOf(unpacked()))
    stored.insert(name);

  std::mt19937 random(4242);
  int killed = 0, completed = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (int round = 0; round < 300 && killed < 150 && std::chrono::steady_clock::now() < deadline;
       ++round) {
    Profile p{T("Killed " + std::to_string(round))};
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(save(p) ? 0 : 1);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % spanUs));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    (WIFSIGNALED(status) ? killed : completed) += 1;

    std::string text = unpacked();
    ASSERT_FALSE(text.empty()) << "round " << round << ": the packed file cannot be unpacked";
    std::map<std::string, std::string> sections = sectionsOf(text);
    for (const std::string& name : stored)
      ASSERT_EQ(sections.count(name), 1u) << "round " << round << " lost " << name;
    ASSERT_LE(sections.size(), stored.size() + 1) << "round " << round;
    auto it = sections.find(toUtf8(p.name));
    if (it != sections.end()) {
      ASSERT_EQ(it->second, keysOf(p)) << "round " << round << ": a half-saved profile";
      stored.insert(it->first);
    }
  }
  // Enough of the saves were killed midway for the rounds to have tested something, also on a
  // loaded machine where fewer rounds fit in the time.
  EXPECT_GE(killed, 50) << completed << " saves completed";
  // The next save starts from the packed file, whatever a killed one left beside it.
  Profile last{u"After"};
  EXPECT_TRUE(save(last));
  EXPECT_FALSE(exists(mem / "profiles.ini"));
  std::map<std::string, std::string> sections = sectionsOf(unpacked());
  EXPECT_EQ(sections.size(), stored.size() + 1);
  EXPECT_EQ(sections["After"], keysOf(last));
  EXPECT_EQ(failures(), Failures{});
}

}  // namespace
}  // namespace zrk::test
